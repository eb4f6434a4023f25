#include <cstdio>

#include "commands.h"

namespace zonet {

int CmdVersion(const Args& /*args*/) {
  std::printf("zonet %s (ZoNetwork for Linux)\n", ZONET_VERSION);
  return 0;
}

}  // namespace zonet
