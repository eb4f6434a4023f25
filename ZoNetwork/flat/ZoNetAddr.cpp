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

// A dotted quad as inet_pton reads one: four decimal parts of one to three
// digits, each at most 255 and without a leading zero unless it is "0", and
// nothing else. Read here rather than by the C library: the grammar is
// fixed, and inet_pton's length count, its calls and its byte-wise buffer
// cost as much as all the rest of a parse. true with the address in network
// order.
inline bool ParseDottedQuad(const char* text, uint32_t* addr) {
  uint32_t value = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0 && *text++ != '.') return false;
    unsigned digit = static_cast<unsigned char>(*text) - '0';
    if (digit > 9) return false;
    uint32_t number = digit;
    ++text;
    for (int more = 0; more < 2; ++more) {
      digit = static_cast<unsigned char>(*text) - '0';
      if (digit > 9) break;
      if (number == 0) return false;  // a leading zero
      number = number * 10 + digit;
      ++text;
    }
    if (number > 255) return false;
    value = value << 8 | number;
  }
  if (*text != '\0') return false;
  *addr = htonl(value);
  return true;
}

// The common forms without the resolver's list: a dotted quad, or IPv6 in
// hexadecimal groups with no dotted tail and no scope. The system's resolver
// reads a numeric host of these forms with the same strict grammar and
// answers with one entry, so the record is the one its list would give: the
// address structure with port, flow and scope 0. Anything else (the classic
// forms such as "127.1" or "0x7f.1", a scope, an embedded IPv4 part, spaces,
// a path, a name) is left to the resolver. true with the record filled and
// the resolver's last result 0, as the resolver leaves it after an answer;
// false with nothing written when the text is none of these forms.
bool ParseCommonForm(const char* text, ZONET_SockAddr* addr) {
  // Field by field rather than through a whole structure on the stack: a
  // wide copy of freshly written narrow fields waits for them to reach
  // memory.
  uint32_t v4;
  if (ParseDottedQuad(text, &v4)) {
    addr->ipv4.family = AF_INET;
    addr->ipv4.port = 0;
    addr->ipv4.addr = v4;
    memset(addr->ipv4.zero, 0, sizeof addr->ipv4.zero);
    // What the resolver leaves behind after an answer.
    zonet_platform::SetResolverError(0);
    return true;
  }
  // An embedded IPv4 part, which the reader takes too, is left to the
  // resolver; the reader leaves the resolver's last result as an answer
  // would.
  uint8_t v6[16];
  if (strchr(text, '.') != nullptr || !zonet_platform::ParseNumericHost6(text, v6)) return false;
  addr->ipv6.family = AF_INET6;
  addr->ipv6.port = 0;
  addr->ipv6.flowinfo = 0;
  memcpy(addr->ipv6.addr, v6, sizeof v6);
  addr->ipv6.scope_id = 0;
  return true;
}

// Parses the sentinel once per process (twice at worst, when two threads
// come first together: both store the same value).
__attribute__((noinline)) void ParseSentinel() {
  ZONET_SockAddr parsed;
  memset(&parsed, 0, sizeof parsed);
  // A failed parse leaves the sentinel zero, which matches nothing; it is
  // not tried again.
  ParseNumeric(kCollisionSentinel, &parsed);
  g_sentinelFamily.store(parsed.family, std::memory_order_relaxed);
  g_sentinelAddr.store(parsed.family == ZONET_FAMILY_IPV4 ? parsed.ipv4.addr : 0, std::memory_order_relaxed);
  g_sentinelReady.store(1, std::memory_order_release);
}

// Whether the four bytes at the IPv4 address's place in addr are the
// sentinel's; in line, as every parse asks.
inline bool SentinelMatches(const ZONET_SockAddr* addr) {
  if (g_sentinelReady.load(std::memory_order_acquire) == 0) ParseSentinel();
  return g_sentinelFamily.load(std::memory_order_relaxed) == ZONET_FAMILY_IPV4 &&
         g_sentinelAddr.load(std::memory_order_relaxed) == addr->ipv4.addr;
}

}  // namespace

namespace zonet_internal {

// Whether the four bytes at the IPv4 address's place in addr are the
// sentinel's. Used by resolution as well as by the parser.
bool MatchesCollisionSentinel(const ZONET_SockAddr* addr) { return SentinelMatches(addr); }

void ResetCollisionSentinel() {
  g_sentinelReady.store(0, std::memory_order_release);
  g_sentinelFamily.store(0, std::memory_order_relaxed);
  g_sentinelAddr.store(0, std::memory_order_relaxed);
}

bool CollisionSentinelReady() { return g_sentinelReady.load(std::memory_order_acquire) != 0; }

}  // namespace zonet_internal

namespace {

// The end of every parse that found an address or looked for one: the
// sentinel decides over whatever the record holds.
int CollisionTest(int result, ZONET_SockAddr* addr) {
  if (SentinelMatches(addr)) {
    // The resolver's own answer was success, and stays what is left for the
    // caller: that is how a collision is told from a text that is no address.
    zonet_platform::SetResolverError(0);
    return ZONET_ERR_HOST_NOT_FOUND;
  }
  return result;
}

// The common forms the short way; false when text is not one of them or the
// resolver bound is not the system's, whose answer the short way gives.
inline __attribute__((always_inline)) bool CommonForm(const char* text, ZONET_SockAddr* addr, int* result) {
  if (!zonet_internal::ResolverIsThePlatformsQuick() || !ParseCommonForm(text, addr)) return false;
  *result = CollisionTest(0, addr);
  return true;
}

int FullPath(const char* text, ZONET_SockAddr* addr) {
  if (IsPathText(text)) return FillPath(text, addr);
  int result = ParseNumeric(text, addr);
  // Resolver failures end here; past this point an address was looked for.
  if (result != 0 && result != ZONET_ERR_AF_NOT_SUPPORTED) return result;
  return CollisionTest(result, addr);
}

}  // namespace

namespace zonet_internal {

int Str2ipFullPath(const char* text, ZONET_SockAddr* addr) {
  if (text == nullptr || addr == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  return FullPath(text, addr);
}

bool Str2ipCommonForm(const char* text, ZONET_SockAddr* addr, int* result) {
  if (text == nullptr || addr == nullptr || result == nullptr) return false;
  return CommonForm(text, addr, result);
}

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
  // Most texts are plain addresses, and for those a list from the resolver
  // (two allocations and their release) is most of the cost. A text in one
  // of the common forms holds neither slash nor backslash, so it is never a
  // path, and the order of the two tests does not matter.
  int result;
  if (CommonForm(text, addr, &result)) return result;
  return FullPath(text, addr);
}

}  // extern "C"
