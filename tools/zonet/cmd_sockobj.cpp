// zonet bindable, zonet stacks and zonet accept: the stack probes and the
// timed accept of the socket object, from the shell.
#include <cstdio>
#include <string>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoSocket.h"
#include "commands.h"

namespace zonet {

namespace {

// "present" or "not present" for one stack; false when the probe failed.
bool ShowStack(const char* name, CZoError (*probe)(bool&)) {
  bool present = false;
  CZoError error = probe(present);
  std::printf("%-5s %s\n", name, present ? "present" : "not present");
  if (!error.IsError()) return true;
  std::fflush(stdout);
  PrintError(error);
  return false;
}

}  // namespace

int CmdBindable(const Args& args) {
  if (args.size() != 1) return UsageError("bindable: one ADDRESS wanted, %zu given", args.size());
  if (!args[0].empty() && args[0][0] == '-') return UsageError("bindable: unknown option '%s'", args[0].c_str());
  CZoIPAddr addr;
  CZoError error = addr.SetAddressString(args[0].c_str());
  if (error.IsError()) {
    PrintError(error);
    return 1;
  }
  bool bindable = false;
  error = CZoIPAddr::IsAddrBindable(addr, bindable);
  std::printf("%s: %s\n", args[0].c_str(), bindable ? "yes" : "no");
  if (!error.IsError()) return 0;
  std::fflush(stdout);
  PrintError(error);
  return 1;
}

int CmdStacks(const Args& args) {
  if (!args.empty()) return UsageError("stacks: takes no arguments, '%s' given", args[0].c_str());
  bool fine = ShowStack("IPv4", CZoIPAddr::IsIPv4StackPresent);
  fine = ShowStack("IPv6", CZoIPAddr::IsIPv6StackPresent) && fine;
  fine = ShowStack("Unix", CZoIPAddr::IsUnixStackPresent) && fine;
  return fine ? 0 : 1;
}

int CmdAccept(const Args& args) {
  long long port = -1;
  long long timeout = -1;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--timeout") {
      if (i + 1 >= args.size() || !ParseNumber(args[i + 1], 0, 86400, timeout)) {
        return UsageError("accept: --timeout wants whole seconds, 0 to 86400");
      }
      ++i;
    } else if (!arg.empty() && arg[0] == '-') {
      return UsageError("accept: unknown option '%s'", arg.c_str());
    } else if (port != -1) {
      return UsageError("accept: one PORT only");
    } else if (!ParseNumber(arg, 0, 65535, port)) {
      return UsageError("accept: PORT wants a number, 0 to 65535");
    }
  }
  if (port < 0) return UsageError("accept: PORT is missing");
  if (timeout < 0) return UsageError("accept: --timeout is missing");

  CZoIPAddr where("127.0.0.1");
  CZoSocket listener;
  CZoError error = where.SetPortNumber(static_cast<int>(port));
  if (!error.IsError()) error = listener.Bind(where);
  if (!error.IsError()) error = listener.Listen(5);
  if (!error.IsError()) error = listener.GetLocalAddress(where);
  if (error.IsError()) {
    listener.Close();
    PrintError(error);
    return 1;
  }
  // The port first, and at once: whoever started us is waiting for it.
  std::printf("listening on %s:%d\n", listener.GetLocalAddressString().c_str(), where.GetPortNumber());
  std::fflush(stdout);

  CZoSocket accepted;
  int timedOut = 0;
  error = listener.AcceptWithTimeout(accepted, static_cast<int>(timeout), &timedOut);
  listener.Close();
  if (error.IsError()) {
    PrintError(error);
    return 1;
  }
  // An accept that failed in the system leaves the socket invalid without an
  // error of its own.
  if (!accepted.IsValid()) {
    std::fprintf(stderr, "zonet: the connection was lost before it could be accepted\n");
    return 1;
  }
  CZoIPAddr peer;
  error = accepted.GetPeerAddress(peer);
  if (error.IsError()) {
    accepted.Close();
    PrintError(error);
    return 1;
  }
  std::printf("accepted a connection from %s:%d\n", accepted.GetPeerAddressString().c_str(), peer.GetPortNumber());
  accepted.Close();
  return 0;
}

}  // namespace zonet
