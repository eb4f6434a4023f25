// The platform HTTP layer's reading of a reply's status line and header
// fields, with the parser and limits it uses on a connection: any bytes give
// a status of three digits with its fields, or one of the two failures that
// a reply can cause.
#include <stddef.h>
#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

#include "ZoUtils/ZoErrorCodes.h"
#include "http/HttpInternal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  unsigned status = 0;
  std::vector<std::pair<std::string, std::string>> fields;
  uint32_t error = 0;
  bool ok = zonet_internal::HttpParseReplyHead(reinterpret_cast<const char*>(data), size, status, fields, error);
  if (ok) {
    if (status < 100 || status > 999) __builtin_trap();
    for (const auto& field : fields) {
      if (field.first.empty()) __builtin_trap();
      if (field.first.find_first_of(":\r\n") != std::string::npos) __builtin_trap();
      if (field.second.find_first_of("\r\n") != std::string::npos) __builtin_trap();
    }
  } else if (error != ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE && error != ZONET_ERR_HTTP_CONNECTION_ABORTED) {
    __builtin_trap();
  }
  return 0;
}
