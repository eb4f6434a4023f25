// Any text given to CZoHTTP2's URL splitting and escaping is taken without a
// crash. The escaped form never holds one of the thirteen dropped
// characters; a text that the layer cracks gives an escaped URL that cracks
// again to the same scheme and port; one that does not crack escapes to
// nothing and splits into an empty host and the whole text as the path.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZoNetwork/ZoHTTP2.h"
#include "ZoUtils/ZoString.h"
#include "http/HttpPlatform2.h"
#include "http/ZoHTTP2Internal.h"

using zonet_internal::ZoHTTP2Access;
namespace hp = zonet_http2;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string narrow(reinterpret_cast<const char*>(data), size);
  std::wstring text = FXString::ToWstring(narrow.c_str());
  CZoHTTP2 http;
  std::wstring host, path, escaped;
  int port = -1;
  if (ZoHTTP2Access::BreakUrl(http, text.c_str(), host, path, port).IsError()) __builtin_trap();
  if (ZoHTTP2Access::EscapeUrl(http, text.c_str(), escaped).IsError()) __builtin_trap();
  if (escaped.find_first_of(L"!$&'()*+,;=?@") != std::wstring::npos) __builtin_trap();
  hp::UrlComponents parts;
  bool cracks = hp::WinHttpCrackUrl(text.c_str(), 0, 0, &parts);
  if (!cracks) {
    if (!escaped.empty() || !host.empty() || path != text || port != 0) __builtin_trap();
    return 0;
  }
  if (port != parts.nPort) __builtin_trap();
  hp::UrlComponents again;
  uint32_t length = 0;
  hp::WinHttpCreateUrl(&parts, hp::kIcuEscape, nullptr, &length);
  std::wstring built(length, L'\0');
  if (!hp::WinHttpCreateUrl(&parts, hp::kIcuEscape, &built[0], &length)) __builtin_trap();
  built.resize(length);
  if (!hp::WinHttpCrackUrl(built.c_str(), 0, 0, &again)) __builtin_trap();
  if (again.nScheme != parts.nScheme || again.nPort != parts.nPort) __builtin_trap();
  return 0;
}
