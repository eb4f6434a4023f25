// Names holding a slash or a backslash are local paths: they never reach the
// resolver, and each either fits the record or is refused, and is freed.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "ZoNetwork/ZoNetAddr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string name(reinterpret_cast<const char*>(data), size);
  name = name.c_str();  // C text ends at the first NUL
  // Make sure of a path: the first byte decides where the separator goes.
  const char separator = (size > 0 && (data[0] & 1)) ? '\\' : '/';
  if (name.find('/') == std::string::npos && name.find('\\') == std::string::npos) {
    name.insert(size > 0 ? data[0] % (name.size() + 1) : 0, 1, separator);
  }

  ZONET_HostEnt list;
  list.count = 0;
  list.addrs = nullptr;
  int family = size > 1 ? static_cast<int8_t>(data[1]) : 0;
  int rc = ZONET_name2ip(name.c_str(), &list, family);
  if (name.size() > ZONET_MAX_PATH) {
    if (rc != ZONET_ERR_NAME_TOO_LONG || list.addrs != nullptr) __builtin_trap();
    return 0;
  }
  if (rc != 0 || list.count != 1 || list.addrs == nullptr) __builtin_trap();
  if (list.addrs[0].family != ZONET_FAMILY_UNIX) __builtin_trap();
  if (name != list.addrs[0].local.path) __builtin_trap();
  if (ZONET_GetActualSockAddrLen(&list.addrs[0]) != static_cast<int>(name.size()) + 3) __builtin_trap();

  char buffer[ZONET_MAX_PATH + 1];
  if (ZONET_ip2name(&list.addrs[0], buffer, sizeof buffer) != 0 || name != buffer) __builtin_trap();
  ZONET_freehostent(&list);
  if (list.count != 0 || list.addrs != nullptr) __builtin_trap();
  return 0;
}
