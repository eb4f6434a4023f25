// Any text given to the numeric parser must come back as an error or as a
// record whose text parses again to the same record.
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <string>

#include "ZoNetwork/ZoNetAddr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);  // stops at an inner NUL, as C text does
  ZONET_SockAddr addr;
  memset(&addr, 0, sizeof addr);
  errno = EIO;
  int rc = ZONET_str2ip(text.c_str(), &addr);
  // Go on with an address, or with the collision address, which is refused
  // with the record filled in and the resolver's own success left in errno.
  bool collision = rc == ZONET_ERR_HOST_NOT_FOUND && errno == 0;
  if (rc != 0 && !collision) return 0;

  int length = ZONET_GetActualSockAddrLen(&addr);
  if (length <= 0 || length > ZONET_GetMaxSockAddrLen(addr.family)) __builtin_trap();

  char buffer[128];
  if (ZONET_ip2str(&addr, buffer, sizeof buffer) != 0) __builtin_trap();
  // Every smaller room is refused or filled with a terminated text.
  char small[16];
  for (size_t room = 0; room < sizeof small; ++room) {
    if (ZONET_ip2str(&addr, small, room) == 0 && strnlen(small, room) == room) __builtin_trap();
  }

  ZONET_SockAddr again;
  memset(&again, 0, sizeof again);
  int rc2 = ZONET_str2ip(buffer, &again);
  if (rc2 != rc) __builtin_trap();
  if (!ZONET_addrequal(&addr, &again, 0, 1)) __builtin_trap();
  return 0;
}
