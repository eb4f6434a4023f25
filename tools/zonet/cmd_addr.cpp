// zonet resolve and zonet addr: name resolution and the numeric address model
// of the flat layer, from the shell.
#include <cerrno>
#include <cstdio>
#include <string>

#include "ZoNetwork/ZoNetAddr.h"
#include "ZoUtils/ZoError.h"
#include "commands.h"

namespace zonet {

namespace {

// A refusal for the collision sentinel and a plain "not found" share one
// code; they differ in what the resolver itself answered, which the flat
// layer leaves in errno: success for the sentinel.
bool IsNameCollision(int rc, int resolverResult) { return rc == ZONET_ERR_HOST_NOT_FOUND && resolverResult == 0; }

}  // namespace

int CmdResolve(const Args& args) {
  std::string name;
  bool haveName = false;
  int family = ZONET_FAMILY_ANY;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--family") {
      if (i + 1 >= args.size() || (args[i + 1] != "4" && args[i + 1] != "6")) {
        return UsageError("resolve: --family wants 4 or 6");
      }
      family = args[++i] == "4" ? ZONET_FAMILY_IPV4 : ZONET_FAMILY_IPV6;
    } else if (!arg.empty() && arg[0] == '-') {
      return UsageError("resolve: unknown option '%s'", arg.c_str());
    } else if (haveName) {
      return UsageError("resolve: one NAME only");
    } else {
      name = arg;
      haveName = true;
    }
  }
  if (!haveName) return UsageError("resolve: NAME is missing");

  ZONET_HostEnt list;
  list.count = 0;
  list.addrs = nullptr;
  errno = 0;
  int rc = ZONET_name2ip(name.c_str(), &list, family);
  int resolverResult = errno;
  if (IsNameCollision(rc, resolverResult)) {
    return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdResolve"), rc,
                                        "'%s' is a DNS name collision: the resolver answered 127.0.53.53, "
                                        "so the name is refused",
                                        name.c_str()));
  }
  if (rc != 0) {
    return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdResolve"), rc, "cannot resolve '%s' (family %s)",
                                        name.c_str(), ZONET_family2str(family)));
  }

  if (list.count == 0) std::printf("(no addresses)\n");
  for (uint32_t i = 0; i < list.count; ++i) {
    char text[128];
    int textRc = ZONET_ip2str(&list.addrs[i], text, sizeof text);
    std::printf("%-5s %s\n", ZONET_family2str(list.addrs[i].family), textRc == 0 ? text : "(no text)");
  }
  ZONET_freehostent(&list);
  return 0;
}

int CmdAddr(const Args& args) {
  if (args.size() != 1) return UsageError("addr: one TEXT wanted, %zu given", args.size());
  // No numeric address and no local socket path starts with a dash.
  if (!args[0].empty() && args[0][0] == '-') return UsageError("addr: unknown option '%s'", args[0].c_str());
  const std::string& input = args[0];
  ZONET_SockAddr addr;
  errno = 0;
  int rc = ZONET_str2ip(input.c_str(), &addr);
  int resolverResult = errno;
  if (IsNameCollision(rc, resolverResult)) {
    return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdAddr"), rc,
                                        "'%s' is the DNS name collision address and is refused", input.c_str()));
  }
  if (rc != 0) {
    return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdAddr"), rc,
                                        "'%s' is neither a numeric address nor a local socket path", input.c_str()));
  }

  char text[128];
  int textRc = ZONET_ip2str(&addr, text, sizeof text);
  if (textRc != 0) {
    return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdAddr"), textRc, "cannot give '%s' back as text",
                                        input.c_str()));
  }
  std::printf("family: %s\n", ZONET_family2str(addr.family));
  std::printf("length: %d\n", ZONET_GetActualSockAddrLen(&addr));
  std::printf("text:   %s\n", text);
  return 0;
}

}  // namespace zonet
