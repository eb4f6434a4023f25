// Narrow text of any bytes must widen, narrow back and split without harm;
// a valid sequence must survive the round trip.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ZoUtils/ZoString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  std::wstring wide = FXString::ToWstring(text);
  std::string narrow = FXString::ToString(wide);
  if (FXString::ToWstring(narrow) != wide) __builtin_trap();
  std::vector<std::string> pieces;
  FXString::Split(text, text.substr(0, size % 3), pieces, 0);
  std::string copy = text;
  FXString::TrimRight(copy, "\r\n ");
  FXString::ReplaceAll(copy, "a", "bb", size % 5);
  return 0;
}
