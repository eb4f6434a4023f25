// The listing scanner of ZoHTTP on arbitrary pages, with either marker: no
// crash, no entry holding a quotation mark, no more entries than markers,
// and every entry a piece of the page.
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "http/ZoHTTPInternal.h"

namespace {

size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  bool jsp = (data[0] & 1) != 0;
  std::string page(reinterpret_cast<const char*>(data) + 1, size - 1);
  CZoString text(page.c_str());  // the page is NUL-terminated text, as the client builds it
  std::string seen(text.c_str());
  std::vector<std::string> entries;
  CZoError error = zonet_internal::ScanListingPage(text, jsp, [&](CZoString& link, bool directory) {
    // The index test reads the terminating NUL: never a directory here.
    if (directory) __builtin_trap();
    entries.emplace_back(link.c_str());
    return CZoError::Success();
  });
  if (error.IsError()) __builtin_trap();
  size_t markers = Count(seen, jsp ? "href=\"" : "HREF=\"");
  if (entries.size() + (markers > 0 ? 1 : 0) > markers && !entries.empty()) __builtin_trap();
  for (const std::string& entry : entries) {
    if (entry.find('"') != std::string::npos) __builtin_trap();
    if (seen.find(entry) == std::string::npos) __builtin_trap();
  }
  return 0;
}
