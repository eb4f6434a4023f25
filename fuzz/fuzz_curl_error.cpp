// The curl error domain over any code and any text: the code is an OR with
// the domain's pattern, the read-back follows the pattern's bits, and an
// entry's text is the code and the text that was given.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "ZoNetwork/XnCURLError.h"
#include "ZoUtils/ZoString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4) return 0;
  int32_t code;
  memcpy(&code, data, 4);
  std::string text(reinterpret_cast<const char*>(data + 4), size - 4);
  text = text.c_str();

  const uint32_t expected = static_cast<uint32_t>(code) | 0xEDD00000u;
  CZoError plain = XnCURL::ErrorXnCURL(FXLOC("Fuzz::Plain"), code);
  if (!plain.IsError()) __builtin_trap();
  if (static_cast<uint32_t>(plain.GetErrorCode()) != expected) __builtin_trap();
  if (!XnCURL::IsXnCURL(plain, code) || XnCURL::IsNotXnCURL(plain, code)) __builtin_trap();
  const int back = XnCURL::GetXnCURL(plain);
  const bool inDomain = (expected & 0x20000000u) != 0 && ((expected >> 16) & 0xFFFu) == 0xDD0u;
  if (back != (inDomain ? static_cast<int>(expected & 0xFFFFu) : -1)) __builtin_trap();
  const std::string head = "Fuzz::Plain" + FXString::Format("/XnCURL.%d.0x%X", code, static_cast<unsigned>(code));
  if (plain.GetItem(0)->AsString() != head) __builtin_trap();

  CZoError described = XnCURL::ErrorXnCURL(FXLOC("Fuzz::Text"), code, "%s", text.c_str());
  std::string entry = described.GetItem(0)->AsString();
  const std::string lead = "Fuzz::Text" + FXString::Format("/XnCURL.%d.0x%X", code, static_cast<unsigned>(code)) + "-";
  if (entry.compare(0, lead.size(), lead) != 0) __builtin_trap();
  if (text.size() <= FXString::kMaxFormattedLength && entry.substr(lead.size()) != text) __builtin_trap();
  if (described.GetItem(0)->Clone()->AsString() != entry) __builtin_trap();

  CZoError pushed = FXErrorUtil::ErrorInt(FXLOC("Fuzz::Int"), 1, "%s", "x");
  const long before = pushed.GetErrorCode();
  XnCURL::PushXnCURL(pushed, FXLOC("Fuzz::Push"), code, "%s", text.c_str());
  if (pushed.GetErrorCode() != before || pushed.GetItemCount() != 2) __builtin_trap();
  return 0;
}
