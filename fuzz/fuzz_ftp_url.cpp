// The composition of an FTP or SFTP request's URL out of a registered
// server, a path and a port, over any text: never an error on an initialized
// object, and a URL that carries the scheme, the port and the path.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnSFTPReq.h"
#include "ZoUtils/ZoString.h"

namespace {

template <typename Base>
class Req : public Base {
public:
  using XnCURL::XnProtocolReq::setURLPath;
};

// Two objects, made once: initializing loads curl, which is slow.
template <typename Base>
Req<Base>& Object() {
  static Req<Base>* request = [] {
    Req<Base>* r = new Req<Base>();
    if (r->initialize(0).IsError()) __builtin_trap();
    return r;
  }();
  return *request;
}

template <typename Base>
void Check(const std::string parts[3], const std::string& scheme, bool anyCase) {
  Req<Base>& request = Object<Base>();
  request.setURL(parts[0]);
  request.setURLPath(parts[1]);
  request.setPortNumber(parts[2]);
  std::string url;
  if (request.getFullWorkingURL(url).IsError()) __builtin_trap();
  std::string lower = url;
  std::string path = parts[1];
  if (anyCase) {
    FXString::ToLower(lower);
    FXString::ToLower(path);
  }
  // The scheme is there; a server of nothing but the scheme loses the last
  // slash of it to the trailing-slash rule.
  if (lower.find(scheme.substr(0, scheme.size() - 1)) == std::string::npos) __builtin_trap();
  if (!parts[2].empty() && url.find(":" + parts[2]) == std::string::npos) __builtin_trap();
  // A path without the scheme ends the URL behind a slash of its own.
  if (path.find(scheme) == std::string::npos) {
    const std::string tail = "/" + parts[1];
    if (url.size() < tail.size() || url.compare(url.size() - tail.size(), tail.size(), tail) != 0) __builtin_trap();
  } else if (parts[2].empty() && url != parts[1] && url != parts[1] + "/") {
    // A path with the scheme is the whole URL (a slash behind a bare server).
    __builtin_trap();
  }
}

}  // namespace

// Input: a class byte (even: FTP, odd: SFTP), then server, path and port
// separated by '\n'.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool sftp = data[0] & 1;
  std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
  std::string parts[3];
  for (int i = 0, at = 0; i < 3; ++i) {
    size_t end = rest.find('\n', at);
    parts[i] = rest.substr(at, end == std::string::npos ? std::string::npos : end - at);
    if (end == std::string::npos) break;
    at = static_cast<int>(end + 1);
  }
  if (sftp) {
    Check<XnCURL::XnSFTPReq>(parts, "sftp://", true);
  } else {
    Check<XnCURL::XnFTPReq>(parts, "ftp://", false);
  }
  return 0;
}
