// zonet http2: one whole URL through CZoHTTP2. "get" fetches URL into FILE,
// "put" sends FILE to URL as the request's body (--post: POST instead of PUT).
#include <string>

#include "ZoNetwork/ZoHTTP2.h"
#include "commands.h"

namespace zonet {

int CmdHttp2(const Args& args) {
  if (args.empty()) return UsageError("http2: wants get or put");
  const std::string& verb = args[0];
  if (verb != "get" && verb != "put") return UsageError("http2: unknown operation '%s'", verb.c_str());
  if (args.size() < 3) {
    return UsageError("http2: %s", verb == "get" ? "get wants URL FILE" : "put wants FILE URL");
  }
  CZoHTTP2 http("zonet");
  long long timeoutSeconds = 0;
  for (size_t i = 3; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--user" || arg == "--password" || arg == "--timeout") {
      if (i + 1 >= args.size()) return UsageError("http2: %s wants a value", arg.c_str());
      const std::string& value = args[++i];
      if (arg == "--user") http.SetUser(value.c_str());
      if (arg == "--password") http.SetPassword(value.c_str());
      if (arg == "--timeout" && !ParseNumber(value, 1, 2000000, timeoutSeconds)) {
        return UsageError("http2: --timeout wants seconds");
      }
    } else if (arg == "--post" && verb == "put") {
      http.SetPostUpload(true);
    } else if (arg == "--raw-url") {
      http.SetAutoEscapeUrl(false);
    } else {
      return UsageError("http2: unknown option '%s'", arg.c_str());
    }
  }
  if (timeoutSeconds > 0) http.SetInternetTimeoutSec(static_cast<long>(timeoutSeconds));
  CZoError error = verb == "get" ? http.DownloadFile(args[2].c_str(), args[1].c_str())
                                 : http.UploadFile(args[1].c_str(), args[2].c_str());
  if (error.IsError()) return Fail(error);
  return 0;
}

}  // namespace zonet
