// Percent-encoding over any text: what URLEncode makes, URLDecode takes back
// to the text (up to its first zero byte, as C text ends there), and the path
// form differs only in the slashes and backslashes it keeps.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZoNetwork/XnHTTPReq.h"

namespace {

XnCURL::XnHTTPReq& Object() {
  static XnCURL::XnHTTPReq* request = [] {
    auto* r = new XnCURL::XnHTTPReq();
    if (r->initialize(0).IsError()) __builtin_trap();
    return r;
  }();
  return *request;
}

bool Unreserved(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~' || c == '%';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::string text = input.c_str();  // C text: up to the first zero byte
  XnCURL::XnHTTPReq& request = Object();
  std::string encoded, decoded, path, pathDecoded, raw;
  request.URLEncode(input, encoded);
  for (char c : encoded) {
    if (!Unreserved(c)) __builtin_trap();
  }
  request.URLDecode(encoded, decoded);
  if (decoded != text) __builtin_trap();
  request.URLEncodePath(input, path);
  for (char c : path) {
    if (!Unreserved(c) && c != '/' && c != '\\') __builtin_trap();
  }
  request.URLDecodePath(path, pathDecoded);
  if (pathDecoded != text) __builtin_trap();
  // Decoding any text never grows it.
  request.URLDecode(input, raw);
  if (raw.size() > text.size()) __builtin_trap();
  return 0;
}
