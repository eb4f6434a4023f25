// Any text as an address and as a CIDR block: parsing must never crash, a
// parsed address must render and compare sanely, and the block check must
// either answer or refuse.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "ZoNetwork/ZoIPAddr.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  // "ADDRESS\nBLOCK"; without a line feed the whole input is both.
  size_t split = input.find('\n');
  std::string address = split == std::string::npos ? input : input.substr(0, split);
  std::string block = split == std::string::npos ? input : input.substr(split + 1);

  CZoIPAddr addr;
  CZoError parsed = addr.SetAddressString(address.c_str());
  CZoString text;
  CZoError rendered = addr.GetAddressString(text);
  if (!parsed.IsError()) {
    CZoIPAddr::IP_FAMILY family = addr.GetAddressFamily();
    if (family != CZoIPAddr::IP_FAMILY_UNIX && family != CZoIPAddr::IP_FAMILY_IPV4 &&
        family != CZoIPAddr::IP_FAMILY_IPV6) {
      __builtin_trap();  // a parsed address always has a family
    }
    if (rendered.IsError() || !(addr == CZoIPAddr(addr))) __builtin_trap();
    if (family == CZoIPAddr::IP_FAMILY_UNIX && addr.GetUnixSockAddr() != text.c_str()) __builtin_trap();
    if (addr.GetPortNumber() != 0) __builtin_trap();
    // What was rendered parses back to an equal address (scoped IPv6 texts
    // may name an interface this machine lacks, and are left out).
    if (family != CZoIPAddr::IP_FAMILY_IPV6 || std::strchr(text.c_str(), '%') == nullptr) {
      CZoIPAddr again;
      if (!again.SetAddressString(text.c_str()).IsError() && !(again == addr)) __builtin_trap();
    }
  } else if (!text.IsEmpty() && rendered.IsError()) {
    __builtin_trap();  // a failed rendering leaves the text empty
  }

  bool within = false;
  CZoError checked = CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(address, block, within);
  // A block with a slash is refused only for its address part, never as a
  // block without one.
  if (checked.IsError() && block.find('/') != std::string::npos &&
      checked.GetErrorCode() == ZONET_ERR_INVALID_PARAMETER) {
    __builtin_trap();
  }
  return 0;
}
