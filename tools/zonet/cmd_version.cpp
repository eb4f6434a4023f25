#include <cstdio>

#include "commands.h"

namespace zonet {

int CmdVersion(const Args& args) {
  if (!args.empty()) return UsageError("version: takes no arguments, '%s' given", args[0].c_str());
  std::printf("zonet %s (ZoNetwork for Linux)\n", ZONET_VERSION);
  return 0;
}

}  // namespace zonet
