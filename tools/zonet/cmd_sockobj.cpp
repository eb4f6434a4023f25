// zonet bindable, zonet stacks and zonet accept: the stack probes and the
// timed accept of the socket object, from the shell.
#include <charconv>
#include <cstdio>
#include <string>
#include <system_error>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoSocket.h"
#include "commands.h"

namespace zonet {

namespace {

// The whole of text as a decimal number within [low, high], or false.
bool ParseNumber(const std::string& text, long low, long high, long& value) {
  long parsed = 0;
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, parsed);
  if (text.empty() || result.ec != std::errc() || result.ptr != end || parsed < low || parsed > high) return false;
  value = parsed;
  return true;
}

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
  if (args.size() != 1) {
    std::fprintf(stderr, "usage: zonet bindable ADDRESS\n");
    return 2;
  }
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
  if (!args.empty()) {
    std::fprintf(stderr, "usage: zonet stacks\n");
    return 2;
  }
  bool fine = ShowStack("IPv4", CZoIPAddr::IsIPv4StackPresent);
  fine = ShowStack("IPv6", CZoIPAddr::IsIPv6StackPresent) && fine;
  fine = ShowStack("Unix", CZoIPAddr::IsUnixStackPresent) && fine;
  return fine ? 0 : 1;
}

static int AcceptUsage() {
  std::fprintf(stderr, "usage: zonet accept PORT --timeout SECONDS   (PORT 0: any free port; SECONDS 0: no limit)\n");
  return 2;
}

int CmdAccept(const Args& args) {
  long port = -1;
  long timeout = -1;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--timeout" && i + 1 < args.size()) {
      if (!ParseNumber(args[++i], 0, 86400, timeout)) return AcceptUsage();
    } else if (port == -1) {
      if (!ParseNumber(args[i], 0, 65535, port)) return AcceptUsage();
    } else {
      return AcceptUsage();
    }
  }
  if (port < 0 || timeout < 0) return AcceptUsage();

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
