// Arbitrary text as a proxy auto-configuration script: evaluated in the
// bounded child process (here one second and 64 MiB), it never crashes or
// hangs the caller, and an answer, when there is one, turns into a proxy
// list without DIRECT entries.
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ZoUtils/ZoErrorCodes.h"
#include "http/beast/HttpProxy2.h"

namespace px = zonet_http2::proxy;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string script(reinterpret_cast<const char*>(data), size);
  std::string result;
  uint32_t error = 0;
  if (px::EvaluatePac(script, "http://www.example.test/a", "www.example.test", result, error, 1000, 64ull << 20)) {
    std::string list = px::ProxyListFromPacResult(result);
    if (list.find("DIRECT") == 0) __builtin_trap();
  } else if (error != ZONET_ERR_HTTP_BAD_AUTO_PROXY_SCRIPT) {
    __builtin_trap();
  }
  return 0;
}
