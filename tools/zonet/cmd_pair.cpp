// zonet pair: a connected socket pair over loopback, one message across it.
#include <cstdio>
#include <cstring>
#include <string>

#include "ZoNetwork/ZoNetSocket.h"
#include "ZoUtils/ZoError.h"
#include "commands.h"

namespace zonet {

namespace {

const char kMessage[] = "hello across the pair";

void PrintEnd(const char* which, ZONET_SOCKET sock) {
  const int family = ZONET_getsockfamily(sock);
  ZONET_SockAddr name;
  char text[128] = "?";
  if (ZONET_getsockname(sock, &name) == 0) ZONET_ip2str(&name, text, sizeof(text));
  std::printf("%s: handle %llu, family %s (%d), %s port %u\n", which, static_cast<unsigned long long>(sock),
              ZONET_family2str(family), family, text, static_cast<unsigned>(ZONET_getport(&name)));
}

}  // namespace

int CmdPair(const Args& args) {
  if (!args.empty()) return UsageError("pair: takes no arguments, '%s' given", args[0].c_str());
  ZONET_SOCKET pair[2];
  int rc = ZONET_socketpair(pair);
  if (rc != 0) {
    return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdPair"), rc, "cannot make a socket pair"));
  }
  PrintEnd("sockets[0]", pair[0]);
  PrintEnd("sockets[1]", pair[1]);

  // Both ends are non-blocking, so the reader waits with a time-out.
  int sent = 0, received = 0, timedOut = 0;
  char buffer[sizeof(kMessage)] = {};
  rc = ZONET_send(pair[0], kMessage, static_cast<int>(sizeof(kMessage)), &sent, 0);
  if (rc == 0) rc = ZONET_recvwithtimeout(pair[1], buffer, static_cast<int>(sizeof(buffer)), &received, 5, &timedOut, 0);
  ZONET_close(pair[0]);
  ZONET_close(pair[1]);
  if (rc != 0 || timedOut != 0 || received != static_cast<int>(sizeof(kMessage))) {
    CZoError error = rc != 0 ? FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdPair"), rc, "the message did not cross")
                             : FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdPair"), ZONET_ERR_INVALID_STATE,
                                                       "the message did not cross: %d of %d bytes%s", received,
                                                       static_cast<int>(sizeof(kMessage)),
                                                       timedOut ? ", timed out" : "");
    return Fail(error);
  }
  std::printf("sent %d bytes on sockets[0], received on sockets[1]: \"%s\"\n", sent, buffer);
  std::printf("both ends closed\n");
  return 0;
}

}  // namespace zonet
