// The address model of the flat layer: one record for every family, its
// lengths and names, the once-only family preference, comparison under a
// prefix, and the numeric text conversions with the collision sentinel.
#include "ZoNetwork/ZoNetAddr.h"

#include <netinet/in.h>
#include <string.h>
#include <sys/un.h>

#include <atomic>
#include <cstddef>

#include "flat/FlatInternal.h"
#include "flat/FlatPlatform.h"

// The record goes to the system's socket calls as it stands, so each form
// must lie exactly where the system's own address structure has it.
static_assert(sizeof(ZONET_SockAddr) == 112, "the record is 112 bytes");
static_assert(offsetof(ZONET_SockAddr, family) == 0, "family comes first");
static_assert(sizeof(sockaddr_in) == 16, "IPv4 form is 16 bytes");
static_assert(offsetof(ZONET_SockAddr, ipv4.family) == offsetof(sockaddr_in, sin_family), "IPv4 family");
static_assert(offsetof(ZONET_SockAddr, ipv4.port) == offsetof(sockaddr_in, sin_port), "IPv4 port");
static_assert(offsetof(ZONET_SockAddr, ipv4.addr) == offsetof(sockaddr_in, sin_addr), "IPv4 address");
static_assert(sizeof(sockaddr_in6) == 28, "IPv6 form is 28 bytes");
static_assert(offsetof(ZONET_SockAddr, ipv6.family) == offsetof(sockaddr_in6, sin6_family), "IPv6 family");
static_assert(offsetof(ZONET_SockAddr, ipv6.port) == offsetof(sockaddr_in6, sin6_port), "IPv6 port");
static_assert(offsetof(ZONET_SockAddr, ipv6.flowinfo) == offsetof(sockaddr_in6, sin6_flowinfo), "IPv6 flow");
static_assert(offsetof(ZONET_SockAddr, ipv6.addr) == offsetof(sockaddr_in6, sin6_addr), "IPv6 address");
static_assert(offsetof(ZONET_SockAddr, ipv6.scope_id) == offsetof(sockaddr_in6, sin6_scope_id), "IPv6 scope");
static_assert(offsetof(ZONET_SockAddr, local.family) == offsetof(sockaddr_un, sun_family), "local family");
static_assert(offsetof(ZONET_SockAddr, local.path) == offsetof(sockaddr_un, sun_path), "local path");
static_assert(sizeof(((ZONET_SockAddr*)nullptr)->local.path) == sizeof(((sockaddr_un*)nullptr)->sun_path),
              "local path room");
static_assert(sizeof(sockaddr_un) == 110, "local form is at most 110 bytes");
static_assert(alignof(ZONET_SockAddr) >= alignof(sockaddr_in6), "aligned as the system's forms");

namespace {

constexpr int kIpv4Length = 16;
constexpr int kIpv6Length = 28;
constexpr int kLocalMaxLength = 110;  // family, 107 characters and the NUL
constexpr int kRecordLength = 112;
constexpr size_t kPathRoom = sizeof(((ZONET_SockAddr*)nullptr)->local.path);

// Family preference: stored once, at start-up, without a lock; atomic only
// so that readers on other threads are well defined.
std::atomic<int> g_familyPreference{ZONET_FAMILY_ANY};
std::atomic<int> g_preferenceSet{0};

// The collision sentinel, the parsed form of "127.0.53.53". Only its family
// and IPv4 address take part in the test, so those are what is kept; both
// are published before the ready flag, so a thread that sees the flag sees
// them too.
std::atomic<int> g_sentinelReady{0};
std::atomic<int> g_sentinelFamily{0};
std::atomic<uint32_t> g_sentinelAddr{0};

constexpr const char kCollisionSentinel[] = "127.0.53.53";

bool IsPathText(const char* text) { return strchr(text, '/') != nullptr || strchr(text, '\\') != nullptr; }

size_t PathLength(const ZONET_SockAddr* addr) { return strnlen(addr->local.path, kPathRoom); }

// A local path of text, or ZONET_ERR_NAME_TOO_LONG when it does not fit.
int FillPath(const char* text, ZONET_SockAddr* addr) {
  size_t length = strlen(text);
  if (length + 1 > kPathRoom) return ZONET_ERR_NAME_TOO_LONG;
  addr->family = ZONET_FAMILY_UNIX;
  memcpy(addr->local.path, text, length + 1);
  return 0;
}

// Numeric parse of text (no path) into addr, without the sentinel test.
int ParseNumeric(const char* text, ZONET_SockAddr* addr) {
  struct addrinfo hints = zonet_internal::TcpStreamHints(AI_NUMERICHOST, AF_UNSPEC);
  struct addrinfo* list = nullptr;
  int result = zonet_internal::ResolverGetAddrInfo()(text, nullptr, &hints, &list);
  zonet_platform::SetResolverError(result);
  if (result != 0) return result;

  result = ZONET_ERR_AF_NOT_SUPPORTED;
  for (struct addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_addr == nullptr) continue;
    if (entry->ai_family == AF_INET) {
      memcpy(addr, entry->ai_addr, kIpv4Length);
    } else if (entry->ai_family == AF_INET6) {
      memcpy(addr, entry->ai_addr, kIpv6Length);
    } else {
      continue;
    }
    addr->ipv4.port = 0;  // same place in both forms
    result = 0;
    break;
  }
  zonet_internal::ResolverFreeAddrInfo()(list);
  return result;
}

// Parses the sentinel once per process (twice at worst, when two threads
// come first together: both store the same value).
void EnsureSentinel() {
  if (g_sentinelReady.load(std::memory_order_acquire) != 0) return;
  ZONET_SockAddr parsed;
  memset(&parsed, 0, sizeof parsed);
  // A failed parse leaves the sentinel zero, which matches nothing; it is
  // not tried again.
  ParseNumeric(kCollisionSentinel, &parsed);
  g_sentinelFamily.store(parsed.family, std::memory_order_relaxed);
  g_sentinelAddr.store(parsed.family == ZONET_FAMILY_IPV4 ? parsed.ipv4.addr : 0, std::memory_order_relaxed);
  g_sentinelReady.store(1, std::memory_order_release);
}

}  // namespace

namespace zonet_internal {

// Whether the four bytes at the IPv4 address's place in addr are the
// sentinel's. Used by resolution as well as by the parser.
bool MatchesCollisionSentinel(const ZONET_SockAddr* addr) {
  EnsureSentinel();
  return g_sentinelFamily.load(std::memory_order_relaxed) == ZONET_FAMILY_IPV4 &&
         g_sentinelAddr.load(std::memory_order_relaxed) == addr->ipv4.addr;
}

void ResetCollisionSentinel() {
  g_sentinelReady.store(0, std::memory_order_release);
  g_sentinelFamily.store(0, std::memory_order_relaxed);
  g_sentinelAddr.store(0, std::memory_order_relaxed);
}

bool CollisionSentinelReady() { return g_sentinelReady.load(std::memory_order_acquire) != 0; }

}  // namespace zonet_internal

extern "C" {

ZONET_API int ZONET_GetActualSockAddrLen(const ZONET_SockAddr* addr) {
  if (addr == nullptr) return 0;
  switch (addr->family) {
    case ZONET_FAMILY_IPV4:
      return kIpv4Length;
    case ZONET_FAMILY_IPV6:
      return kIpv6Length;
    case ZONET_FAMILY_UNIX: {
      // A path that fills its whole room without a NUL is taken as the
      // system takes it: all 108 bytes, 110 in all, never past the record.
      size_t length = PathLength(addr) + 3;
      return length > static_cast<size_t>(kLocalMaxLength) ? kLocalMaxLength : static_cast<int>(length);
    }
    default:
      return kRecordLength;
  }
}

ZONET_API int ZONET_GetMaxSockAddrLen(int family) {
  switch (family) {
    case ZONET_FAMILY_IPV4:
      return kIpv4Length;
    case ZONET_FAMILY_IPV6:
      return kIpv6Length;
    case ZONET_FAMILY_UNIX:
      return kLocalMaxLength;
    default:
      return kRecordLength;
  }
}

ZONET_API int ZONET_GetFamilyPreference(void) { return g_familyPreference.load(std::memory_order_relaxed); }

ZONET_API void ZONET_SetFamilyPreference(int family) {
  // Local sockets are no family one prefers for a host name.
  if (family == ZONET_FAMILY_UNIX) return;
  if (g_preferenceSet.load(std::memory_order_relaxed) == 0) {
    g_familyPreference.store(family, std::memory_order_relaxed);
    g_preferenceSet.store(1, std::memory_order_relaxed);
    return;
  }
  if (g_familyPreference.load(std::memory_order_relaxed) == family) return;
  // A process that wants two preferences has a fault that no return value
  // would make anyone see; it stops here, and the first value stays.
  zonet_platform::DebugTrap();
}

ZONET_API const char* ZONET_family2str(int family) {
  switch (family) {
    case ZONET_FAMILY_UNIX:
      return "UNIX";
    case ZONET_FAMILY_IPV4:
      return "IPv4";
    case ZONET_FAMILY_IPV6:
      return "IPv6";
    default:
      return "ANY";
  }
}

ZONET_API void ZONET_setport(ZONET_SockAddr* addr, uint16_t port) {
  if (addr == nullptr) return;
  if (addr->family == ZONET_FAMILY_IPV4 || addr->family == ZONET_FAMILY_IPV6) addr->ipv4.port = htons(port);
}

ZONET_API uint16_t ZONET_getport(const ZONET_SockAddr* addr) {
  if (addr == nullptr) return 0;
  if (addr->family == ZONET_FAMILY_IPV4 || addr->family == ZONET_FAMILY_IPV6) return ntohs(addr->ipv4.port);
  return 0;
}

ZONET_API int ZONET_addrequal(const ZONET_SockAddr* a, const ZONET_SockAddr* b, int prefixBits, int comparePort) {
  if (a == b) return 1;
  if (a == nullptr || b == nullptr) return 0;
  if (a->family != b->family) return 0;
  if (a->family == ZONET_FAMILY_UNIX) {
    return strncmp(a->local.path, b->local.path, kPathRoom) == 0 ? 1 : 0;
  }

  const uint8_t* left;
  const uint8_t* right;
  int fullBits;
  if (a->family == ZONET_FAMILY_IPV4) {
    left = reinterpret_cast<const uint8_t*>(&a->ipv4.addr);
    right = reinterpret_cast<const uint8_t*>(&b->ipv4.addr);
    fullBits = 32;
  } else {
    // Every other family is compared as IPv6; flow and scope take no part.
    left = a->ipv6.addr;
    right = b->ipv6.addr;
    fullBits = 128;
  }
  if (comparePort != 0 && a->ipv4.port != b->ipv4.port) return 0;
  // The most negative prefix whose mask shift stays below 32 bits.
  const int kLeastMaskedPrefix = -23;
  // No prefix, or one as long as the address or longer, compares the whole
  // address; so does a prefix of -24 or less, whose mask shift below would
  // reach 32 bits and has no value of its own.
  if (prefixBits == 0 || prefixBits >= fullBits || prefixBits < kLeastMaskedPrefix)
    return memcmp(left, right, fullBits / 8) == 0 ? 1 : 0;

  int bits = prefixBits;
  for (; bits >= 8; bits -= 8, ++left, ++right) {
    if (*left != *right) return 0;
  }
  if (bits == 0) return 1;
  // -1 to -23 shift by 9 to 31, which leaves nothing in 8 bits: a mask of 0.
  uint8_t mask = static_cast<uint8_t>(0xFFu << (8 - bits));
  return (*left & mask) == (*right & mask) ? 1 : 0;
}

ZONET_API int ZONET_ip2str(const ZONET_SockAddr* addr, char* buffer, size_t size) {
  if (addr == nullptr || buffer == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  if (addr->family == ZONET_FAMILY_UNIX) {
    size_t length = PathLength(addr);
    if (size < length + 1) return ZONET_ERR_NAME_TOO_LONG;
    memcpy(buffer, addr->local.path, length);
    buffer[length] = '\0';
    return 0;
  }
  // The resolver would write nothing into no room and call it success.
  if (size == 0) return ZONET_ERR_NAME_TOO_LONG;

  ZONET_SockAddr copy;
  memcpy(&copy, addr, sizeof copy);
  socklen_t room = size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<socklen_t>(size);
  zonet_internal::GetNameInfoFn getnameinfoFn = zonet_internal::ResolverGetNameInfo();
  const struct sockaddr* sa = reinterpret_cast<const struct sockaddr*>(&copy);
  int result = getnameinfoFn(sa, static_cast<socklen_t>(ZONET_GetActualSockAddrLen(&copy)), buffer, room, nullptr,
                             0, NI_NUMERICHOST);
  zonet_platform::SetResolverError(result);
  // A length the resolver refuses for this record: once more with the IPv4
  // length, for callers whose record and family disagree.
  if (result == EAI_FAMILY) {
    result = getnameinfoFn(sa, kIpv4Length, buffer, room, nullptr, 0, NI_NUMERICHOST);
    zonet_platform::SetResolverError(result);
  }
  return result;
}

ZONET_API int ZONET_str2ip(const char* text, ZONET_SockAddr* addr) {
  if (text == nullptr || addr == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  if (IsPathText(text)) return FillPath(text, addr);

  int result = ParseNumeric(text, addr);
  // Resolver failures end here; past this point an address was looked for,
  // and the sentinel decides over whatever the record holds.
  if (result != 0 && result != ZONET_ERR_AF_NOT_SUPPORTED) return result;
  if (zonet_internal::MatchesCollisionSentinel(addr)) {
    // The resolver's own answer was success, and stays what is left for the
    // caller: that is how a collision is told from a text that is no address.
    zonet_platform::SetResolverError(0);
    return ZONET_ERR_HOST_NOT_FOUND;
  }
  return result;
}

}  // extern "C"
