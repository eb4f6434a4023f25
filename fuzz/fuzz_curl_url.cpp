// The composition of a request's URL out of a registered server, a path, a
// port and a protocol, over any text: an error of its own, or a URL that
// carries the scheme, the port and the path it was given.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZoNetwork/XnHTTPReq.h"

namespace {

class Req : public XnCURL::XnHTTPReq {
public:
  explicit Req(XnCURL::HTTPProtocol protocol) : XnHTTPReq(protocol) {}
  using XnCURL::XnProtocolReq::setURLPath;
  XnCURL::XnProtocolReq& Base() { return *this; }
};

// Two objects, made once: initializing loads curl, which is slow.
Req& Object(bool secure) {
  static Req* plain = [] {
    Req* r = new Req(XnCURL::protocolHTTP);
    if (r->initialize(0).IsError()) __builtin_trap();
    return r;
  }();
  static Req* tls = [] {
    Req* r = new Req(XnCURL::protocolHTTPS);
    if (r->initialize(0).IsError()) __builtin_trap();
    return r;
  }();
  return secure ? *tls : *plain;
}

}  // namespace

// Input: a protocol byte, then server, path and port separated by '\n'.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool secure = data[0] & 1;
  std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
  std::string parts[3];
  for (int i = 0, at = 0; i < 3; ++i) {
    size_t end = rest.find('\n', at);
    parts[i] = rest.substr(at, end == std::string::npos ? std::string::npos : end - at);
    if (end == std::string::npos) break;
    at = static_cast<int>(end + 1);
  }
  Req& request = Object(secure);
  request.setURL(parts[0]);
  request.setURLPath(parts[1]);
  request.setPortNumber(parts[2]);
  std::string url;
  CZoError e = request.Base().getFullWorkingURL(url);
  if (e.IsError()) {
    // The only refusals: a conflicting server, or nothing to compose.
    std::string text = e.AsString();
    if (text.find("Server name in URLPath conflicts with registered server") == std::string::npos &&
        text.find("URL is empty.") == std::string::npos && text.find("URL path is empty.") == std::string::npos) {
      __builtin_trap();
    }
    return 0;
  }
  if (url.find("http://") == std::string::npos && url.find("https://") == std::string::npos) __builtin_trap();
  if (!parts[2].empty() && url.find(":" + parts[2]) == std::string::npos) __builtin_trap();
  // The path given ends the URL (with a slash in front when it had none)
  // unless it was itself a URL.
  if (parts[1].find("://") == std::string::npos && parts[0].find("://") == std::string::npos &&
      parts[1].compare(0, parts[0].size(), parts[0]) != 0) {
    std::string path = (parts[1].empty() || parts[1][0] != '/') ? "/" + parts[1] : parts[1];
    if (url.size() < path.size() || url.compare(url.size() - path.size(), path.size(), path) != 0) __builtin_trap();
  }
  return 0;
}
