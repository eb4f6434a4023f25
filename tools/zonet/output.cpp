// How the tool shows what the library said.
#include <cstdio>

#include "ZoUtils/ZoError.h"
#include "commands.h"

namespace zonet {

void PrintError(const CZoError& error) { std::fprintf(stderr, "zonet: %s\n", error.AsString().c_str()); }

int Fail(const CZoError& error) {
  PrintError(error);
  return 1;
}

}  // namespace zonet
