// Name resolution of the flat layer: the run-time binding of the system's
// resolver with the library's own IPv4 resolver behind it, host names to
// address lists (with the DNS name collision refused), addresses back to
// names, and the thin host and service calls.
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>

#include "flat/FlatInternal.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "flat/FlatPlatform.h"

namespace zonet_internal {

// Whether the rows hold the three the platform's own look-up found (rather
// than the library's own, or what a test's look-up gave).
std::atomic<int> g_platformRows{0};

namespace {

// ---- the binding ----

// The three rows of the binding: each starts as the library's own function
// and is replaced, all three together, by the system's when the system has
// all three. Beside them the cached pointers every caller reads first. No
// lock: whoever binds first writes the same values as anyone else would;
// the atomics only make that well defined.
std::atomic<GetAddrInfoFn> g_rowGetAddrInfo{FallbackGetAddrInfo};
std::atomic<GetNameInfoFn> g_rowGetNameInfo{FallbackGetNameInfo};
std::atomic<FreeAddrInfoFn> g_rowFreeAddrInfo{FallbackFreeAddrInfo};
std::atomic<int> g_bound{0};

std::atomic<GetAddrInfoFn> g_cachedGetAddrInfo{nullptr};
std::atomic<GetNameInfoFn> g_cachedGetNameInfo{nullptr};
std::atomic<FreeAddrInfoFn> g_cachedFreeAddrInfo{nullptr};

std::atomic<ResolverLookupFn> g_lookup{nullptr};

void Bind() {
  if (g_bound.load(std::memory_order_acquire) != 0) return;
  ResolverLookupFn lookup = g_lookup.load(std::memory_order_acquire);
  const bool platformLookup = lookup == nullptr;
  if (platformLookup) lookup = zonet_platform::FindResolverFunction;
  // Looked up in the order of the rows; one missing keeps all three of the
  // library's own, so a list is never freed by a stranger to its maker.
  void* getaddrinfoAddress = lookup("getaddrinfo");
  void* getnameinfoAddress = lookup("getnameinfo");
  void* freeaddrinfoAddress = lookup("freeaddrinfo");
  if (getaddrinfoAddress != nullptr && getnameinfoAddress != nullptr && freeaddrinfoAddress != nullptr) {
    g_rowGetAddrInfo.store(reinterpret_cast<GetAddrInfoFn>(getaddrinfoAddress), std::memory_order_relaxed);
    g_rowGetNameInfo.store(reinterpret_cast<GetNameInfoFn>(getnameinfoAddress), std::memory_order_relaxed);
    g_rowFreeAddrInfo.store(reinterpret_cast<FreeAddrInfoFn>(freeaddrinfoAddress), std::memory_order_relaxed);
    g_platformRows.store(platformLookup ? 1 : 0, std::memory_order_relaxed);
  }
  g_bound.store(1, std::memory_order_release);
}

template <typename Fn>
Fn Cached(std::atomic<Fn>& cached, std::atomic<Fn>& row) {
  Fn fn = cached.load(std::memory_order_acquire);
  if (fn != nullptr) return fn;
  Bind();
  fn = row.load(std::memory_order_relaxed);
  cached.store(fn, std::memory_order_release);
  return fn;
}

void ClearCache() {
  g_cachedGetAddrInfo.store(nullptr, std::memory_order_release);
  g_cachedGetNameInfo.store(nullptr, std::memory_order_release);
  g_cachedFreeAddrInfo.store(nullptr, std::memory_order_release);
}

void RowsToFallbacks() {
  g_platformRows.store(0, std::memory_order_relaxed);
  g_rowGetAddrInfo.store(FallbackGetAddrInfo, std::memory_order_relaxed);
  g_rowGetNameInfo.store(FallbackGetNameInfo, std::memory_order_relaxed);
  g_rowFreeAddrInfo.store(FallbackFreeAddrInfo, std::memory_order_relaxed);
}

// ---- the library's own IPv4 resolver ----

constexpr size_t kNameRoom = 1025;  // 1024 characters and the NUL
constexpr int kMaxAliasTries = 16;
constexpr size_t kPortTextRoom = 6;  // "65535" and the NUL

// The host database's failures as the resolver gives them: the three it
// shares with the resolver stay, anything else is "not found".
int HostFailure(int code) {
  if (code == EAI_NONAME || code == EAI_AGAIN || code == EAI_FAIL) return code;
  return EAI_NONAME;
}

void CopyBounded(char* target, const char* source) {
  size_t length = strnlen(source, kNameRoom - 1);
  memcpy(target, source, length);
  target[length] = '\0';
}

// A decimal port: digits only, within 16 bits.
bool ParsePort(const char* text, uint16_t* port) {
  if (*text == '\0') return false;
  unsigned long value = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') return false;
    value = value * 10 + static_cast<unsigned long>(*c - '0');
    if (value > 0xFFFF) return false;
  }
  *port = static_cast<uint16_t>(value);
  return true;
}

int CountDots(const char* text) {
  int dots = 0;
  for (; *text != '\0'; ++text) dots += *text == '.';
  return dots;
}

// One record with its own address, both from calloc as the system's
// freeaddrinfo would expect of its own.
struct addrinfo* NewRecord(int flags, int socktype, int protocol, uint32_t addr, uint16_t port) {
  struct addrinfo* record = static_cast<struct addrinfo*>(calloc(1, sizeof(struct addrinfo)));
  if (record == nullptr) return nullptr;
  struct sockaddr_in* in = static_cast<struct sockaddr_in*>(calloc(1, sizeof(struct sockaddr_in)));
  if (in == nullptr) {
    free(record);
    return nullptr;
  }
  in->sin_family = AF_INET;
  in->sin_port = port;
  in->sin_addr.s_addr = addr;
  record->ai_flags = flags;
  record->ai_family = AF_INET;
  record->ai_socktype = socktype;
  record->ai_protocol = protocol;
  record->ai_addrlen = sizeof(struct sockaddr_in);
  record->ai_addr = reinterpret_cast<struct sockaddr*>(in);
  return record;
}

// Looks name up in the host database, following an alias when the answer has
// no address, and appends one record per IPv4 address at *tail.
int LookUpName(const char* node, int flags, int socktype, int protocol, uint16_t port, struct addrinfo** list) {
  char name[kNameRoom];
  char alias[kNameRoom];
  CopyBounded(name, node);
  alias[0] = '\0';
  struct addrinfo** tail = list;

  for (int tries = 1;; ++tries) {
    const struct hostent* host = nullptr;
    int rc = zonet_platform::HostByName(name, &host);
    if (rc != 0) return HostFailure(rc);

    if (host->h_addrtype == AF_INET && host->h_length == 4 && host->h_addr_list != nullptr) {
      for (char** address = host->h_addr_list; *address != nullptr; ++address) {
        uint32_t addr;
        memcpy(&addr, *address, 4);
        struct addrinfo* record = NewRecord(flags, socktype, protocol, addr, port);
        if (record == nullptr) return EAI_MEMORY;
        *tail = record;
        tail = &record->ai_next;
      }
    }
    CopyBounded(alias, host->h_name != nullptr ? host->h_name : "");
    if (host->h_addr_list != nullptr && host->h_addr_list[0] != nullptr) break;

    // No address at all: the official name may lead further, but not in a
    // circle and not for ever.
    if (alias[0] == '\0' || strcmp(alias, name) == 0 || tries >= kMaxAliasTries) return EAI_FAIL;
    memcpy(name, alias, sizeof name);
  }

  if ((flags & AI_CANONNAME) != 0 && *list != nullptr) {
    (*list)->ai_canonname = strdup(alias);
    if ((*list)->ai_canonname == nullptr) return EAI_MEMORY;
  }
  return 0;
}

// Behind every record a datagram twin with the datagram service's port.
int AddDatagramTwins(struct addrinfo* list, uint16_t udpPort) {
  for (struct addrinfo* record = list; record != nullptr; record = record->ai_next) {
    const struct sockaddr_in* in = reinterpret_cast<const struct sockaddr_in*>(record->ai_addr);
    struct addrinfo* twin = NewRecord(record->ai_flags, SOCK_DGRAM, record->ai_protocol, in->sin_addr.s_addr,
                                      udpPort);
    if (twin == nullptr) return EAI_MEMORY;
    twin->ai_next = record->ai_next;
    record->ai_next = twin;
    record = twin;
  }
  return 0;
}

}  // namespace

struct addrinfo TcpStreamHints(int flags, int family) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_flags = flags;
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  return hints;
}

GetAddrInfoFn ResolverGetAddrInfo() { return Cached(g_cachedGetAddrInfo, g_rowGetAddrInfo); }
GetNameInfoFn ResolverGetNameInfo() { return Cached(g_cachedGetNameInfo, g_rowGetNameInfo); }
FreeAddrInfoFn ResolverFreeAddrInfo() { return Cached(g_cachedFreeAddrInfo, g_rowFreeAddrInfo); }

void ForceResolverFallbacks() {
  RowsToFallbacks();
  g_bound.store(1, std::memory_order_release);
  ClearCache();
}

void ResetResolverBinding() {
  RowsToFallbacks();
  g_bound.store(0, std::memory_order_release);
  ClearCache();
}

bool ResolverUsesFallbacks() {
  return ResolverGetAddrInfo() == FallbackGetAddrInfo && ResolverGetNameInfo() == FallbackGetNameInfo &&
         ResolverFreeAddrInfo() == FallbackFreeAddrInfo;
}

bool ResolverIsThePlatforms() {
  if (g_bound.load(std::memory_order_acquire) == 0) Bind();
  return g_platformRows.load(std::memory_order_relaxed) != 0;
}

void SetResolverLookup(ResolverLookupFn lookup) { g_lookup.store(lookup, std::memory_order_release); }

int FallbackGetAddrInfo(const char* node, const char* service, const struct addrinfo* hints,
                        struct addrinfo** result) {
  if (result == nullptr) return EAI_FAIL;
  *result = nullptr;
  if (node == nullptr && service == nullptr) return EAI_NONAME;

  int flags = 0;
  int socktype = 0;
  int protocol = 0;
  if (hints != nullptr) {
    if (hints->ai_canonname != nullptr || hints->ai_addr != nullptr || hints->ai_next != nullptr ||
        hints->ai_addrlen != 0) {
      return EAI_FAIL;
    }
    if ((hints->ai_flags & AI_CANONNAME) != 0 && node == nullptr) return EAI_BADFLAGS;
    if (hints->ai_family != AF_UNSPEC && hints->ai_family != AF_INET) return EAI_FAMILY;
    if (hints->ai_socktype != 0 && hints->ai_socktype != SOCK_STREAM && hints->ai_socktype != SOCK_DGRAM &&
        hints->ai_socktype != SOCK_RAW) {
      return EAI_SOCKTYPE;
    }
    flags = hints->ai_flags;
    socktype = hints->ai_socktype;
    protocol = hints->ai_protocol;
  }

  // The service: a number, or a name from the services database.
  uint16_t port = 0;
  uint16_t udpPort = 0;
  bool wantDatagram = false;
  if (service != nullptr) {
    uint16_t number = 0;
    if (ParsePort(service, &number)) {
      port = htons(number);
      udpPort = port;
      if (socktype == 0) {
        socktype = SOCK_STREAM;
        wantDatagram = true;
      }
    } else {
      uint16_t tcpPort = 0;
      bool haveTcp = false;
      bool haveUdp = false;
      struct servent* entry = nullptr;
      if ((socktype == 0 || socktype == SOCK_DGRAM) && zonet_platform::ServiceByName(service, "udp", &entry) == 0) {
        udpPort = static_cast<uint16_t>(entry->s_port);
        haveUdp = true;
      }
      if ((socktype == 0 || socktype == SOCK_STREAM) && zonet_platform::ServiceByName(service, "tcp", &entry) == 0) {
        tcpPort = static_cast<uint16_t>(entry->s_port);
        haveTcp = true;
      }
      if (!haveTcp && !haveUdp) return socktype != 0 ? EAI_SERVICE : EAI_NONAME;
      if (socktype == 0) {
        socktype = haveTcp ? SOCK_STREAM : SOCK_DGRAM;
        wantDatagram = haveTcp && haveUdp;
      }
      port = socktype == SOCK_DGRAM ? udpPort : tcpPort;
    }
  }

  // The node: a dotted address, nothing, or a name.
  struct addrinfo* list = nullptr;
  int rc = 0;
  uint32_t addr = 0;
  bool numeric = node != nullptr && CountDots(node) == 3 && zonet_platform::ParseDottedIpv4(node, &addr);
  if (numeric || node == nullptr) {
    if (node == nullptr) addr = htonl((flags & AI_PASSIVE) != 0 ? INADDR_ANY : INADDR_LOOPBACK);
    list = NewRecord(numeric ? flags | AI_NUMERICHOST : flags, socktype, protocol, addr, port);
    if (list == nullptr) {
      rc = EAI_MEMORY;
    } else if (numeric && (flags & AI_CANONNAME) != 0) {
      char text[16];
      zonet_platform::FormatDottedIpv4(addr, text);
      list->ai_canonname = strdup(text);
      if (list->ai_canonname == nullptr) rc = EAI_MEMORY;
    }
  } else if ((flags & AI_NUMERICHOST) != 0) {
    rc = EAI_NONAME;
  } else {
    rc = LookUpName(node, flags, socktype, protocol, port, &list);
  }

  if (rc == 0 && wantDatagram) rc = AddDatagramTwins(list, udpPort);
  if (rc != 0) {
    FallbackFreeAddrInfo(list);
    return rc;
  }
  *result = list;
  return 0;
}

int FallbackGetNameInfo(const struct sockaddr* addr, socklen_t length, char* host, socklen_t hostLength,
                        char* service, socklen_t serviceLength, int flags) {
  if (addr == nullptr || length < sizeof(struct sockaddr_in)) return EAI_FAIL;
  if (addr->sa_family != AF_INET) return EAI_FAMILY;
  bool wantHost = host != nullptr && hostLength > 0;
  bool wantService = service != nullptr && serviceLength > 0;
  if (!wantHost && !wantService) return EAI_NONAME;
  if ((flags & NI_NUMERICHOST) != 0 && (flags & NI_NAMEREQD) != 0) return EAI_BADFLAGS;

  struct sockaddr_in in;
  memcpy(&in, addr, sizeof in);

  if (wantService) {
    const char* name = nullptr;
    char digits[kPortTextRoom];
    if ((flags & NI_NUMERICSERV) == 0) {
      struct servent* entry = nullptr;
      if (zonet_platform::ServiceByPort(in.sin_port, (flags & NI_DGRAM) != 0 ? "udp" : nullptr, &entry) == 0) {
        name = entry->s_name;
      }
    }
    if (name == nullptr) {
      snprintf(digits, sizeof digits, "%u", static_cast<unsigned>(ntohs(in.sin_port)));
      name = digits;
    }
    size_t need = strlen(name) + 1;
    if (need > serviceLength) return EAI_FAIL;
    memcpy(service, name, need);
  }

  if (wantHost) {
    char text[kNameRoom];
    text[0] = '\0';
    bool named = false;
    if ((flags & NI_NUMERICHOST) == 0) {
      const struct hostent* entry = nullptr;
      int rc = zonet_platform::HostByAddr(&in.sin_addr, &entry);
      if (rc == 0 && entry->h_name != nullptr && entry->h_name[0] != '\0') {
        CopyBounded(text, entry->h_name);
        if ((flags & NI_NOFQDN) != 0) {
          char* dot = strchr(text, '.');
          if (dot != nullptr) *dot = '\0';
        }
        named = true;
      } else if ((flags & NI_NAMEREQD) != 0) {
        return HostFailure(rc != 0 ? rc : EAI_NONAME);
      }
    }
    if (!named) zonet_platform::FormatDottedIpv4(in.sin_addr.s_addr, text);
    size_t need = strlen(text) + 1;
    if (need > hostLength) return EAI_FAIL;
    memcpy(host, text, need);
  }
  return 0;
}

void FallbackFreeAddrInfo(struct addrinfo* list) {
  while (list != nullptr) {
    struct addrinfo* next = list->ai_next;
    free(list->ai_canonname);
    free(list->ai_addr);
    free(list);
    list = next;
  }
}

}  // namespace zonet_internal

extern "C" {

ZONET_API int ZONET_name2ip(const char* name, ZONET_HostEnt* hostEnt, int family) {
  if (name == nullptr || hostEnt == nullptr) return ZONET_ERR_INVALID_PARAMETER;

  // A path never goes to the resolver, whatever family was asked for.
  if (strchr(name, '/') != nullptr || strchr(name, '\\') != nullptr) {
    ZONET_SockAddr probe;
    size_t length = strlen(name);
    if (length + 1 > sizeof probe.local.path) return ZONET_ERR_NAME_TOO_LONG;
    ZONET_SockAddr* record = static_cast<ZONET_SockAddr*>(calloc(1, sizeof(ZONET_SockAddr)));
    if (record == nullptr) return ZONET_ERR_NOT_ENOUGH_MEMORY;
    record->family = ZONET_FAMILY_UNIX;
    memcpy(record->local.path, name, length + 1);
    hostEnt->count = 1;
    hostEnt->addrs = record;
    return 0;
  }

  struct addrinfo hints = zonet_internal::TcpStreamHints(
      AI_CANONNAME, family != ZONET_FAMILY_ANY ? family : ZONET_GetFamilyPreference());
  struct addrinfo* list = nullptr;
  int result = zonet_internal::ResolverGetAddrInfo()(name, nullptr, &hints, &list);
  zonet_platform::SetResolverError(result);
  if (result != 0) return result;

  uint32_t wanted = 0;
  for (struct addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_addr != nullptr && (entry->ai_family == AF_INET || entry->ai_family == AF_INET6)) ++wanted;
  }

  zonet_internal::FreeAddrInfoFn freeList = zonet_internal::ResolverFreeAddrInfo();
  ZONET_SockAddr* addrs = static_cast<ZONET_SockAddr*>(calloc(wanted, sizeof(ZONET_SockAddr)));
  if (addrs == nullptr && wanted != 0) {
    freeList(list);
    return ZONET_ERR_NOT_ENOUGH_MEMORY;
  }

  uint32_t copied = 0;
  for (struct addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    if (entry->ai_addr == nullptr) continue;
    ZONET_SockAddr* record = &addrs[copied];
    if (entry->ai_family == AF_INET) {
      memcpy(record, entry->ai_addr, sizeof(struct sockaddr_in));
      ZONET_setport(record, 0);
      // A name server's answer of 127.0.53.53 means the name collides with a
      // new top-level domain: the name is not found, whatever else came.
      if (zonet_internal::MatchesCollisionSentinel(record)) {
        free(addrs);
        freeList(list);
        // The resolver's own answer was success, and stays what is left for
        // the caller: that is how a collision is told from a plain miss.
        zonet_platform::SetResolverError(result);
        return ZONET_ERR_HOST_NOT_FOUND;
      }
    } else if (entry->ai_family == AF_INET6) {
      memcpy(record, entry->ai_addr, sizeof(struct sockaddr_in6));
      ZONET_setport(record, 0);
    } else {
      continue;
    }
    ++copied;
  }

  hostEnt->count = copied;
  hostEnt->addrs = addrs;
  freeList(list);
  return 0;
}

ZONET_API void ZONET_freehostent(ZONET_HostEnt* hostEnt) {
  if (hostEnt == nullptr) return;
  hostEnt->count = 0;
  free(hostEnt->addrs);
  hostEnt->addrs = nullptr;
}

ZONET_API int ZONET_ip2name(const ZONET_SockAddr* addr, char* buffer, size_t size) {
  if (addr == nullptr || buffer == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  if (addr->family == ZONET_FAMILY_UNIX) {
    size_t length = strnlen(addr->local.path, sizeof addr->local.path);
    if (size < length + 1) return ZONET_ERR_NAME_TOO_LONG;
    memcpy(buffer, addr->local.path, length);
    buffer[length] = '\0';
    return 0;
  }
  // The resolver would write nothing into no room and call it success.
  if (size == 0) return ZONET_ERR_NAME_TOO_LONG;

  // Deliberately the whole record's length for anything but IPv4, not the
  // IPv6 form's 28 bytes.
  socklen_t length = addr->family == ZONET_FAMILY_IPV4 ? sizeof(struct sockaddr_in) : sizeof(ZONET_SockAddr);
  socklen_t room = size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<socklen_t>(size);
  int result = zonet_internal::ResolverGetNameInfo()(reinterpret_cast<const struct sockaddr*>(addr), length, buffer,
                                                     room, nullptr, 0, NI_NAMEREQD);
  zonet_platform::SetResolverError(result);
  return zonet_platform::ResolverError();
}

ZONET_API int ZONET_gethostname(char* buffer, int size) {
  if (buffer == nullptr || size <= 0) return ZONET_ERR_INVALID_PARAMETER;
  return zonet_platform::HostName(buffer, static_cast<size_t>(size));
}

ZONET_API int ZONET_getservbyname(const char* name, const char* protocol, struct servent** result) {
  if (result == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  *result = nullptr;
  if (name == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  return zonet_platform::ServiceByName(name, protocol, result);
}

ZONET_API int ZONET_getservbyport(int port, const char* protocol, struct servent** result) {
  if (result == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  *result = nullptr;
  return zonet_platform::ServiceByPort(port, protocol, result);
}

}  // extern "C"
