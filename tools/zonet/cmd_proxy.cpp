// zonet proxy: the proxy look-ups of CZoHTTP2. Prints the machine-wide
// setting, the current user's, and with a URL the proxy for it (by the
// script --pac URL, else the user's script, else auto-detection).
#include <cstdio>
#include <string>

#include "ZoNetwork/ZoHTTP2.h"
#include "commands.h"

namespace zonet {

int CmdProxy(const Args& args) {
  std::string url, pac;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--pac") {
      if (i + 1 >= args.size()) return UsageError("proxy: --pac wants a URL");
      pac = args[++i];
    } else if (!args[i].empty() && args[i][0] == '-') {
      return UsageError("proxy: unknown option '%s'", args[i].c_str());
    } else if (url.empty()) {
      url = args[i];
    } else {
      return UsageError("proxy: one URL at most");
    }
  }
  std::string proxy, bypass;
  CZoError error = CZoHTTP2::GetGlobalProxyConfiguration(proxy, bypass);
  if (error.IsError()) return Fail(error);
  std::printf("machine: proxy \"%s\" bypass \"%s\"\n", proxy.c_str(), bypass.c_str());
  std::string script;
  bool detect = false;
  error = CZoHTTP2::GetProxyConfigurationForCurrentUser(proxy, bypass, script, detect);
  if (error.IsError()) return Fail(error);
  std::printf("user:    proxy \"%s\" bypass \"%s\" script \"%s\" autodetect %s\n", proxy.c_str(), bypass.c_str(),
              script.c_str(), detect ? "yes" : "no");
  if (url.empty()) return 0;
  if (pac.empty()) pac = script;
  error = CZoHTTP2::GetProxyForUrl(url, pac, proxy, bypass);
  if (error.IsError()) return Fail(error);
  std::printf("url:     %s proxy \"%s\" bypass \"%s\"%s\n", url.c_str(), proxy.c_str(), bypass.c_str(),
              proxy.empty() ? " (direct)" : "");
  return 0;
}

}  // namespace zonet
