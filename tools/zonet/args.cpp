// What the commands share to read their arguments.
#include <charconv>
#include <string>
#include <system_error>

#include "commands.h"

namespace zonet {

bool ParseNumber(const std::string& text, long long low, long long high, long long& value) {
  long long parsed = 0;
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, parsed);
  if (text.empty() || result.ec != std::errc() || result.ptr != end || parsed < low || parsed > high) return false;
  value = parsed;
  return true;
}

}  // namespace zonet
