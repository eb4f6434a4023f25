// Any text given to ZoHTTP::SetBaseURL is taken without a crash, and the
// working URL then is the base URL, which ends in "/"; the working URL read
// back as a base URL is taken again.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZoNetwork/ZoHTTP.h"
#include "http/ZoHTTPInternal.h"

using zonet_internal::ZoHTTPAccess;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);  // stops at an inner NUL, as C text does
  ZoHTTP http("fuzz");
  http.SetBaseURL(text.c_str());
  CZoString url;
  http.GetWorkingURL(url);
  std::string given(text.c_str());
  if (given.empty()) {
    if (!ZoHTTPAccess::BaseURL(http).IsEmpty()) __builtin_trap();
    // Built from the parts: "HTTP:///" for a fresh object.
    if (std::string(url.c_str()) != "HTTP:///") __builtin_trap();
    return 0;
  }
  std::string base(ZoHTTPAccess::BaseURL(http).c_str());
  if (base.empty() || base.back() != '/') __builtin_trap();
  if (base.compare(0, given.size(), given) != 0) __builtin_trap();
  if (std::string(url.c_str()) != base) __builtin_trap();
  // The server holds no "/" and the path no more than the base URL.
  if (std::string(ZoHTTPAccess::WebServer(http).c_str()).find('/') != std::string::npos) __builtin_trap();
  if (ZoHTTPAccess::Path(http).Length() > base.size()) __builtin_trap();
  ZoHTTP again("fuzz");
  again.SetBaseURL(url.c_str());
  CZoString second;
  again.GetWorkingURL(second);
  if (std::string(second.c_str()) != base) __builtin_trap();
  return 0;
}
