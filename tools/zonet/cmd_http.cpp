// zonet http: one request over the library's curl layer. GET to standard
// output or a file, PUT of a file, HEAD with the answer's headers.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ZoNetwork/XnHTTPReq.h"
#include "ZoUtils/ZoFile.h"
#include "commands.h"

namespace zonet {

namespace {

struct Options {
  std::string verb, url, file, output, user, proxy;
  bool insecure = false;
};

// What the body sink keeps: where the bytes go and how far it got, for the
// progress line.
struct Download {
  FILE* out = nullptr;
  unsigned long long received = 0;
  std::chrono::steady_clock::time_point start, lastShown;
  bool shown = false;
};

// A transfer that runs longer than a second shows a progress line on
// standard error, renewed at most twice a second.
void ShowProgress(Download& d, bool last) {
  auto now = std::chrono::steady_clock::now();
  double seconds = std::chrono::duration<double>(now - d.start).count();
  if (!last && (seconds < 1.0 || now - d.lastShown < std::chrono::milliseconds(500))) return;
  if (last && !d.shown) return;
  d.lastShown = now;
  d.shown = true;
  double mib = static_cast<double>(d.received) / (1024.0 * 1024.0);
  std::fprintf(stderr, "\r%.1f MiB received, %.1f MiB/s%s", mib, seconds > 0 ? mib / seconds : 0.0,
               last ? "\n" : "");
  std::fflush(stderr);
}

size_t Receive(char* data, size_t size, size_t count, void* context) {
  Download& d = *static_cast<Download*>(context);
  size_t written = std::fwrite(data, size, count, d.out);
  d.received += static_cast<unsigned long long>(written) * size;
  ShowProgress(d, false);
  return written * size;
}

size_t PrintHeader(char* data, size_t size, size_t count, void* /*context*/) {
  std::fwrite(data, size, count, stdout);
  return size * count;
}

// The scheme and authority of a URL ("http://host:port"), or "" when it has
// no scheme.
std::string ServerOf(const std::string& url) {
  size_t mark = url.find("://");
  if (mark == std::string::npos) return "";
  size_t slash = url.find('/', mark + 3);
  return slash == std::string::npos ? url : url.substr(0, slash);
}

int Parse(const Args& args, Options& o) {
  std::vector<std::string> plain;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&](std::string& into) {
      if (i + 1 >= args.size()) return false;
      into = args[++i];
      return true;
    };
    if (a == "--insecure" || a == "-k") {
      o.insecure = true;
    } else if (a == "--user" || a == "-u") {
      if (!value(o.user)) return UsageError("http: %s wants USER:PASSWORD", a.c_str());
    } else if (a == "--proxy" || a == "-x") {
      if (!value(o.proxy)) return UsageError("http: %s wants [USER:PASSWORD@]HOST:PORT", a.c_str());
    } else if (a == "-o" || a == "--output") {
      if (!value(o.output)) return UsageError("http: %s wants a FILE", a.c_str());
    } else if (a.size() > 1 && a[0] == '-') {
      return UsageError("http: unknown option '%s'", a.c_str());
    } else {
      plain.push_back(a);
    }
  }
  if (plain.empty()) return UsageError("http: get, put or head wanted");
  o.verb = plain[0];
  if (o.verb == "get" || o.verb == "head") {
    if (plain.size() != 2) return UsageError("http: %s wants one URL", o.verb.c_str());
    o.url = plain[1];
  } else if (o.verb == "put") {
    if (plain.size() != 3) return UsageError("http: put wants FILE and URL");
    o.file = plain[1];
    o.url = plain[2];
  } else {
    return UsageError("http: unknown request '%s' (get, put or head)", o.verb.c_str());
  }
  if (!o.output.empty() && o.verb != "get") return UsageError("http: -o goes with get only");
  if (ServerOf(o.url).empty()) return UsageError("http: '%s' is no URL (http://HOST[:PORT]/PATH)", o.url.c_str());
  if (!o.user.empty() && o.user.find(':') == std::string::npos) {
    return UsageError("http: --user wants USER:PASSWORD");
  }
  if (!o.proxy.empty()) {
    std::string hostPort = o.proxy.substr(o.proxy.rfind('@') == std::string::npos ? 0 : o.proxy.rfind('@') + 1);
    if (hostPort.find("://") != std::string::npos) hostPort = hostPort.substr(hostPort.find("://") + 3);
    size_t colon = hostPort.rfind(':');
    long long port = 0;
    if (colon == std::string::npos || !ParseNumber(hostPort.substr(colon + 1), 1, 65535, port)) {
      return UsageError("http: --proxy wants [USER:PASSWORD@]HOST:PORT");
    }
  }
  return 0;
}

CZoError Configure(XnCURL::XnHTTPReq& request, const Options& o) {
  CZoError e = request.initialize(0);
  if (e.IsError()) return e;
  request.setURL(ServerOf(o.url));
  if (o.insecure) {
    e = request.setSecured(false, "");
    if (e.IsError()) return e;
  }
  if (!o.user.empty()) {
    size_t colon = o.user.find(':');
    e = request.setCredentials(o.user.substr(0, colon), o.user.substr(colon + 1));
    if (e.IsError()) return e;
    e = request.setHTTPAuth(CURLAUTH_ANY);
    if (e.IsError()) return e;
  }
  if (!o.proxy.empty()) {
    std::string proxy = o.proxy;
    if (proxy.find("://") != std::string::npos) proxy = proxy.substr(proxy.find("://") + 3);
    std::string credentials;
    size_t at = proxy.rfind('@');
    if (at != std::string::npos) {
      credentials = proxy.substr(0, at);
      proxy = proxy.substr(at + 1);
    }
    size_t colon = proxy.rfind(':');
    size_t split = credentials.find(':');
    std::string user = split == std::string::npos ? credentials : credentials.substr(0, split);
    std::string password = split == std::string::npos ? "" : credentials.substr(split + 1);
    e = request.setProxyDetails(proxy.substr(0, colon), user, password, proxy.substr(colon + 1));
    if (e.IsError()) return e;
    e = request.setProyAuth(CURLAUTH_BASIC);
    if (e.IsError()) return e;
  }
  return CZoError::Success();
}

}  // namespace

int CmdHttp(const Args& args) {
  Options o;
  int status = Parse(args, o);
  if (status != 0) return status;
  XnCURL::XnHTTPReq request;
  CZoError e = Configure(request, o);
  if (e.IsError()) return Fail(e.Push(FXLOC("zonet::CmdHttp")));
  const std::vector<XnCURL::commandInfo> none;
  int code = 0;

  if (o.verb == "get") {
    Download d;
    d.out = o.output.empty() ? stdout : std::fopen(o.output.c_str(), "wb");
    if (d.out == nullptr) {
      return Fail(FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdHttp"), errno, "cannot open %s", o.output.c_str()));
    }
    d.start = d.lastShown = std::chrono::steady_clock::now();
    request.setWriteFunctionPointer(&d, Receive);
    e = request.download(o.url.c_str(), none);
    ShowProgress(d, true);
    if (d.out != stdout && std::fclose(d.out) != 0 && !e.IsError()) {
      e = FXErrorUtil::ErrorWin32(FXLOC("zonet::CmdHttp"), errno, "cannot write %s", o.output.c_str());
    }
    request.getLastServerResponseCode(code);
    if (e.IsError()) return Fail(e.Push(FXLOC("zonet::CmdHttp"), "GET %s answered %d", o.url.c_str(), code));
    if (!o.output.empty()) std::printf("HTTP %d, %llu bytes saved to %s\n", code, d.received, o.output.c_str());
    return 0;
  }

  if (o.verb == "put") {
    char* buffer = nullptr;
    size_t size = 0;
    e = CZoFile::ReadWholeFile(o.file.c_str(), &buffer, size);
    // An empty file is read as "empty", which is a file all the same.
    if (e.IsError() && !e.Is(ZONET_ERR_EMPTY)) return Fail(e.Push(FXLOC("zonet::CmdHttp"), "cannot read %s", o.file.c_str()));
    static const char kNothing[] = "";
    e = request.doPutOperation(o.url.c_str(), buffer != nullptr ? buffer : kNothing, static_cast<long>(size), none);
    std::free(buffer);
    request.getLastServerResponseCode(code);
    if (e.IsError()) return Fail(e.Push(FXLOC("zonet::CmdHttp"), "PUT %s answered %d", o.url.c_str(), code));
    std::printf("HTTP %d, %zu bytes sent to %s\n", code, size, o.url.c_str());
    return 0;
  }

  // head: the answer's headers as they came, then the size when it is known.
  request.setHeaderWriteFunctionPointer(&request, PrintHeader);
  double size = 0;
  e = request.getFileInfo(o.url, size);
  request.getLastServerResponseCode(code);
  int curlCode = 0;
  std::string message;
  request.getLastCurlErrorCodeAndErrorMsg(curlCode, message);
  if (e.IsError() && !(curlCode == 0 && code / 100 >= 1 && code / 100 <= 3)) {
    return Fail(e.Push(FXLOC("zonet::CmdHttp"), "HEAD %s answered %d", o.url.c_str(), code));
  }
  if (e.IsError()) {
    std::printf("size: unknown\n");
  } else {
    std::printf("size: %.0f bytes\n", size);
  }
  return 0;
}

}  // namespace zonet
