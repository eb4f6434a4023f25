#include "ZoNetwork/ZoIPAddr.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "flat/FlatInternal.h"
#include "flat/FlatPlatform.h"

namespace {

constexpr const char* kCollisionMarker = "127.0.53.53";
constexpr const char* kCollisionText = "DNS name collision occured";
constexpr const char* kNullText = "Null parameter passed";

// Text buffers of the fixed sizes the flat calls are given.
constexpr size_t kAddressTextSize = 108;
constexpr size_t kHostNameSize = 1025;

// Serialises marker probes while none has worked; afterwards nobody takes it.
std::mutex g_probeLock;

bool IsPath(const char* name) { return std::strchr(name, '/') != nullptr || std::strchr(name, '\\') != nullptr; }

// A local record of name, cut to the longest path that fits, as a look-up
// (unlike the parser) takes any length.
ZONET_SockAddr LocalRecord(const char* name) {
  ZONET_SockAddr record;
  std::memset(&record, 0, sizeof record);
  record.family = ZONET_FAMILY_UNIX;
  std::strncpy(record.local.path, name, sizeof record.local.path - 1);
  return record;
}

// One resolution as the library's look-ups make it: a stream (TCP) endpoint,
// the canonical name asked for, no service. The answer is released by the
// destructor on every way out, also the collision exit, which must not leak
// the list on a system where nothing else would ever free it.
class Resolution {
public:
  Resolution(const char* name, int family) : m_list(nullptr) {
    addrinfo hints;
    std::memset(&hints, 0, sizeof hints);
    hints.ai_flags = AI_CANONNAME;
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    m_code = zonet_internal::ResolverGetAddrInfo()(name, nullptr, &hints, &m_list);
    zonet_platform::SetResolverError(m_code);
  }
  ~Resolution() {
    if (m_list != nullptr) zonet_internal::ResolverFreeAddrInfo()(m_list);
  }
  Resolution(const Resolution&) = delete;
  Resolution& operator=(const Resolution&) = delete;

  int Code() const { return m_code; }
  const addrinfo* First() const { return m_code == 0 ? m_list : nullptr; }

private:
  addrinfo* m_list;
  int m_code;
};

// The address of an entry as the structure of its family.
sockaddr_in AsIPv4(const addrinfo* entry) {
  sockaddr_in addr;
  std::memset(&addr, 0, sizeof addr);
  if (entry->ai_addr != nullptr) std::memcpy(&addr, entry->ai_addr, std::min<size_t>(sizeof addr, entry->ai_addrlen));
  return addr;
}

sockaddr_in6 AsIPv6(const addrinfo* entry) {
  sockaddr_in6 addr;
  std::memset(&addr, 0, sizeof addr);
  if (entry->ai_addr != nullptr) std::memcpy(&addr, entry->ai_addr, std::min<size_t>(sizeof addr, entry->ai_addrlen));
  return addr;
}

// Empties out, then fills it with what a flat text function writes into a
// buffer of Size bytes; on failure out stays empty.
template <size_t Size>
CZoError FlatText(int (*flat)(const ZONET_SockAddr*, char*, size_t), const ZONET_SockAddr& addr, CZoString& out,
                  const FXCodeLocation& location) {
  out.Clear();
  char buffer[Size] = {0};
  int rc = flat(&addr, buffer, sizeof buffer);
  if (rc != 0) return FXErrorUtil::ErrorWin32(location, static_cast<unsigned long>(rc));
  buffer[sizeof buffer - 1] = '\0';
  out = buffer;
  return CZoError::Success();
}

// atoi without its undefined overflow: a number out of int's range becomes
// the nearest end, which no prefix check accepts either.
int ParseInt(const std::string& text) {
  long value = std::strtol(text.c_str(), nullptr, 10);
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

}  // namespace

// Built before any other static object of the library (a socket object's
// address among them), so that its own construction, which clears it, can't
// come after another object's probe has filled it.
#if defined(__GNUC__)
__attribute__((init_priority(101)))
#endif
CZoIPAddr CZoIPAddr::m_DummyIp;
bool CZoIPAddr::m_DummyIpInit = false;

// ---------------------------------------------------------------- construction

CZoIPAddr::CZoIPAddr() {
  Clear();
  // Once the marker is set this is the whole cost: one look at the flag. A
  // failed probe (a resolver that can't answer yet) is tried again by the next
  // default construction; until one works nothing is refused as a collision.
  if (__atomic_load_n(&m_DummyIpInit, __ATOMIC_ACQUIRE)) return;
  std::lock_guard<std::mutex> lock(g_probeLock);
  if (__atomic_load_n(&m_DummyIpInit, __ATOMIC_ACQUIRE)) return;
  CZoError probed = GetByName(kCollisionMarker, m_DummyIp, IP_FAMILY_IPV4);
  __atomic_store_n(&m_DummyIpInit, !probed.IsError(), __ATOMIC_RELEASE);
}

// The record is overwritten whole, so clearing it first would change nothing.
CZoIPAddr::CZoIPAddr(const CZoIPAddr& other) : m_SockAddr(other.m_SockAddr) {}

CZoIPAddr::CZoIPAddr(const ZONET_SockAddr& addr) : m_SockAddr(addr) {}

CZoIPAddr::CZoIPAddr(const sockaddr_in& addr) {
  Clear();
  *this = addr;
}

CZoIPAddr::CZoIPAddr(const sockaddr_in6& addr) {
  Clear();
  *this = addr;
}

CZoIPAddr::CZoIPAddr(const char* text) {
  Clear();
  *this = text;
}

CZoIPAddr::~CZoIPAddr() { Clear(); }

CZoIPAddr& CZoIPAddr::operator=(const CZoIPAddr& other) {
  if (this != &other) m_SockAddr = other.m_SockAddr;
  return *this;
}

CZoIPAddr& CZoIPAddr::operator=(const ZONET_SockAddr& addr) {
  if (&m_SockAddr != &addr) m_SockAddr = addr;
  return *this;
}

CZoIPAddr& CZoIPAddr::operator=(const sockaddr_in& addr) {
  static_assert(sizeof(sockaddr_in) <= sizeof(ZONET_SockAddr), "sockaddr_in fits the record");
  std::memmove(&m_SockAddr, &addr, sizeof addr);
  return *this;
}

CZoIPAddr& CZoIPAddr::operator=(const sockaddr_in6& addr) {
  static_assert(sizeof(sockaddr_in6) <= sizeof(ZONET_SockAddr), "sockaddr_in6 fits the record");
  std::memmove(&m_SockAddr, &addr, sizeof addr);
  return *this;
}

CZoIPAddr& CZoIPAddr::operator=(const char* text) {
  (void)ZONET_str2ip(text, &m_SockAddr);
  return *this;
}

// ---------------------------------------------------------------- comparison

bool CZoIPAddr::operator==(const CZoIPAddr& other) const {
  const ZONET_SockAddr& a = m_SockAddr;
  const ZONET_SockAddr& b = other.m_SockAddr;
  if (a.family != b.family) return false;
  switch (a.family) {
    case ZONET_FAMILY_UNIX:
      return std::strncmp(a.local.path, b.local.path, sizeof a.local.path) == 0;
    case ZONET_FAMILY_IPV4:
      return a.ipv4.addr == b.ipv4.addr;
    case ZONET_FAMILY_IPV6:
      return std::memcmp(a.ipv6.addr, b.ipv6.addr, sizeof a.ipv6.addr) == 0;
    default:
      // No address is set, so there is nothing to be equal to.
      return false;
  }
}

bool CZoIPAddr::operator!=(const CZoIPAddr& other) const { return !(*this == other); }

// ---------------------------------------------------------------- plain accessors

void CZoIPAddr::Clear() {
  std::memset(&m_SockAddr, 0, sizeof m_SockAddr);
  m_SockAddr.family = static_cast<uint16_t>(ZONET_GetFamilyPreference());
}

CZoIPAddr::IP_FAMILY CZoIPAddr::GetAddressFamily() const { return static_cast<IP_FAMILY>(m_SockAddr.family); }

void CZoIPAddr::SetAddressFamily(IP_FAMILY family) {
  Clear();
  m_SockAddr.family = static_cast<uint16_t>(family);
}

const char* CZoIPAddr::GetAddressFamilyString() const { return ZONET_family2str(m_SockAddr.family); }

CZoIPAddr::IP_FAMILY CZoIPAddr::GetPreferredFamily() { return static_cast<IP_FAMILY>(ZONET_GetFamilyPreference()); }

const char* CZoIPAddr::GetPreferredFamilyString() { return ZONET_family2str(ZONET_GetFamilyPreference()); }

void CZoIPAddr::SetPreferredFamily(IP_FAMILY family) { ZONET_SetFamilyPreference(family); }

ZONET_SockAddr CZoIPAddr::GetSockAddr() const { return m_SockAddr; }

sockaddr_in CZoIPAddr::GetIPv4SockAddr() const {
  sockaddr_in out;
  std::memcpy(&out, &m_SockAddr, sizeof out);
  return out;
}

sockaddr_in6 CZoIPAddr::GetIPv6SockAddr() const {
  sockaddr_in6 out;
  std::memcpy(&out, &m_SockAddr, sizeof out);
  return out;
}

std::string CZoIPAddr::GetUnixSockAddr() const {
  if (m_SockAddr.family != ZONET_FAMILY_UNIX) return std::string();
  const char* path = m_SockAddr.local.path;
  return std::string(path, strnlen(path, sizeof m_SockAddr.local.path));
}

int CZoIPAddr::GetPortNumber() const { return ZONET_getport(&m_SockAddr); }

CZoError CZoIPAddr::SetPortNumber(int port) {
  switch (m_SockAddr.family) {
    case ZONET_FAMILY_UNIX:
      return CZoError::Success();
    case ZONET_FAMILY_IPV4:
    case ZONET_FAMILY_IPV6:
      // Cut to 16 bits on purpose, without a range check.
      ZONET_setport(&m_SockAddr, static_cast<uint16_t>(static_cast<unsigned int>(port) & 0xFFFFu));
      return CZoError::Success();
    default:
      return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::SetPortNumber"), ZONET_ERR_INVALID_STATE,
                                     "Address family not set");
  }
}

// ---------------------------------------------------------------- text

CZoError CZoIPAddr::SetAddressString(const char* text) {
  int rc = ZONET_str2ip(text, &m_SockAddr);
  if (rc != 0) return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::SetAddressString"), static_cast<unsigned long>(rc));
  return CZoError::Success();
}

CZoError CZoIPAddr::GetAddressString(CZoString& out) const {
  return FlatText<kAddressTextSize>(ZONET_ip2str, m_SockAddr, out, FXLOC("CZoIPAddr::GetAddressString"));
}

CZoError CZoIPAddr::GetHostName(CZoString& out) const {
  return FlatText<kHostNameSize>(ZONET_ip2name, m_SockAddr, out, FXLOC("CZoIPAddr::GetHostName"));
}

// ---------------------------------------------------------------- look-ups

CZoError CZoIPAddr::GetByName(const char* name, CZoIPAddr& out, IP_FAMILY family) {
  if (name == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetByName"), ZONET_ERR_INVALID_PARAMETER, "%s", kNullText);
  }
  if (IsPath(name)) {
    out = LocalRecord(name);
    return CZoError::Success();
  }

  int asked = family != IP_FAMILY_ANY ? static_cast<int>(family) : ZONET_GetFamilyPreference();
  Resolution answer(name, asked);
  if (answer.Code() != 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetByName"), static_cast<unsigned long>(answer.Code()));
  }

  // The first address of a family we hold wins; no ordering of our own.
  for (const addrinfo* entry = answer.First(); entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_family == ZONET_FAMILY_IPV4) {
      out = AsIPv4(entry);
    } else if (entry->ai_family == ZONET_FAMILY_IPV6) {
      out = AsIPv6(entry);
    } else {
      continue;
    }
    (void)out.SetPortNumber(0);
    break;
  }

  // An answer without a usable address left out as it was, and that is
  // tested here all the same.
  if (__atomic_load_n(&m_DummyIpInit, __ATOMIC_ACQUIRE) && out == m_DummyIp) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetByName"), ZONET_ERR_HOST_NOT_FOUND, "%s", kCollisionText);
  }
  return CZoError::Success();
}

CZoError CZoIPAddr::GetAllByName(const char* name, std::vector<CZoIPAddr>& out, IP_FAMILY family) {
  if (name == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetAllByName"), ZONET_ERR_INVALID_PARAMETER, "%s", kNullText);
  }
  try {
    if (IsPath(name)) {
      out.clear();
      out.push_back(CZoIPAddr(LocalRecord(name)));
      return CZoError::Success();
    }

    int asked = family != IP_FAMILY_ANY ? static_cast<int>(family) : ZONET_GetFamilyPreference();
    Resolution answer(name, asked);
    if (answer.Code() != 0) {
      return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetAllByName"), static_cast<unsigned long>(answer.Code()));
    }

    // Appended to what the caller left in out, duplicates included.
    bool markerSet = __atomic_load_n(&m_DummyIpInit, __ATOMIC_ACQUIRE);
    for (const addrinfo* entry = answer.First(); entry != nullptr; entry = entry->ai_next) {
      if (entry->ai_family != ZONET_FAMILY_IPV4 && entry->ai_family != ZONET_FAMILY_IPV6) continue;
      CZoIPAddr addr = entry->ai_family == ZONET_FAMILY_IPV4 ? CZoIPAddr(AsIPv4(entry)) : CZoIPAddr(AsIPv6(entry));
      (void)addr.SetPortNumber(0);
      // What came before the marker stays in out.
      if (markerSet && addr == m_DummyIp) {
        return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetAllByName"), ZONET_ERR_HOST_NOT_FOUND, "%s",
                                       kCollisionText);
      }
      out.push_back(addr);
    }
  } catch (const std::bad_alloc&) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetAllByName"), ZONET_ERR_NOT_ENOUGH_MEMORY);
  }
  return CZoError::Success();
}

CZoError CZoIPAddr::GetLocalHost(CZoIPAddr& out, IP_FAMILY family) {
  CZoString hostName;
  CZoError error = GetLocalHost(hostName);
  if (error.IsError()) return error;
  error = GetByName(hostName.c_str(), out, family);
  if (error.IsError()) return error.Push(FXLOC("CZoIPAddr::GetLocalHost"));
  return CZoError::Success();
}

CZoError CZoIPAddr::GetLocalHost(CZoString& out) {
  char hostName[kHostNameSize] = {0};
  int rc = ZONET_gethostname(hostName, static_cast<int>(sizeof hostName));
  if (rc != 0) return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetLocalHost"), static_cast<unsigned long>(rc));
  hostName[sizeof hostName - 1] = '\0';
  out = hostName;
  return CZoError::Success();
}

// ---------------------------------------------------------------- IPv4 CIDR

CZoError CZoIPAddr::SetSubnetMaskFromCIDRPrefix(int prefix) {
  // A prefix out of range is no error: the object simply stays as it was.
  if (prefix < 1 || prefix > 32) return CZoError::Success();
  uint32_t mask = prefix == 32 ? 0xFFFFFFFFu : ~(0xFFFFFFFFu >> prefix);
  m_SockAddr.family = ZONET_FAMILY_IPV4;
  m_SockAddr.ipv4.addr = htonl(mask);
  return CZoError::Success();
}

CZoError CZoIPAddr::ConvertCIDRPrefixToSubnetMaskString(int prefix, CZoString& out) {
  CZoIPAddr mask;
  (void)mask.SetSubnetMaskFromCIDRPrefix(prefix);
  (void)mask.GetAddressString(out);
  return CZoError::Success();
}

CZoError CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock(const std::string& address, const std::string& cidrBlock,
                                                        bool& result) {
  std::vector<std::string> parts;
  try {
    FXString::Split(cidrBlock, "/", parts, 0);
  } catch (const std::bad_alloc&) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock"),
                                   ZONET_ERR_NOT_ENOUGH_MEMORY);
  }
  // A third part and beyond are ignored.
  if (parts.size() < 2) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid CIDR block: [%s].", cidrBlock.c_str());
  }

  CZoIPAddr mask;
  CZoIPAddr block;
  CZoIPAddr addr;
  // A prefix that isn't 1 to 32 (text that isn't a number is 0) leaves the
  // mask zero, and such a block holds every address.
  (void)mask.SetSubnetMaskFromCIDRPrefix(ParseInt(parts[1]));
  CZoError error = block.SetAddressString(parts[0].c_str());
  if (error.IsError()) return error.Push(FXLOC("CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock"));
  // An address that doesn't parse is compared as the cleared object, all zero.
  (void)addr.SetAddressString(address.c_str());

  // The word at the IPv4 address's place, whatever the families are.
  uint32_t maskWord = mask.m_SockAddr.ipv4.addr;
  result = (block.m_SockAddr.ipv4.addr & maskWord) == (addr.m_SockAddr.ipv4.addr & maskWord);
  return CZoError::Success();
}
