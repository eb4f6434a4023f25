// Uses the installed headers and libraries only.
#include <cstdio>

#include <ZoNetwork/ZoNetwork.h>

int main() {
  CZoSockInit sockets;
  CZoError error = sockets.Init();
  if (error.IsError()) {
    std::fprintf(stderr, "%s\n", error.AsString().c_str());
    return 1;
  }
  CZoError made = FXErrorUtil::ErrorWin32(FXLOC("Consumer::main"), ZONET_ERR_INVALID_STATE, "consumer check");
  if (!made.Is(ZONET_ERR_INVALID_STATE)) return 1;
  std::printf("consumer: linked against the installed package\n");
  return 0;
}
