// The Linux side of the resolver platform: the C library's resolver as the
// process sees it, its host and service databases through the reentrant
// calls, the host name, the trial local socket and the breakpoint.
#include "flat/FlatPlatform.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <netinet/in.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace zonet_platform {

namespace {

// The other platform's host-database calls answer into per-thread storage;
// glibc's plain gethostbyname and getservbyname share one buffer among all
// threads. The reentrant calls with one buffer per thread give the same
// contract as there.
constexpr size_t kFirstBuffer = 1024;
constexpr size_t kLargestBuffer = 1024 * 1024;

struct HostSlot {
  struct hostent entry;
  std::vector<char> buffer;
};

struct ServiceSlot {
  struct servent entry;
  std::vector<char> buffer;
};

HostSlot& ThisThreadsHost() {
  thread_local HostSlot slot;
  if (slot.buffer.empty()) slot.buffer.resize(kFirstBuffer);
  return slot;
}

ServiceSlot& ThisThreadsService() {
  thread_local ServiceSlot slot;
  if (slot.buffer.empty()) slot.buffer.resize(kFirstBuffer);
  return slot;
}

// The one translation of the host database's h_errno into the resolver's
// codes of the same meaning.
int HostErrorToEai(int herr, int err) {
  switch (herr) {
    case HOST_NOT_FOUND:
      return EAI_NONAME;
    case TRY_AGAIN:
      return EAI_AGAIN;
    case NO_RECOVERY:
      return EAI_FAIL;
    case NO_DATA:
      return EAI_NODATA;
    case NETDB_INTERNAL:
      return err == ENOMEM ? EAI_MEMORY : EAI_SYSTEM;
    default:
      // No answer and no reason given: the host is simply not there.
      return EAI_NONAME;
  }
}

// Runs one reentrant host call, growing this thread's buffer while the call
// says it is too small.
template <typename Call>
int HostCall(const struct hostent** host, Call call) {
  *host = nullptr;
  HostSlot& slot = ThisThreadsHost();
  for (;;) {
    struct hostent* result = nullptr;
    int herr = 0;
    int rc = call(&slot.entry, slot.buffer.data(), slot.buffer.size(), &result, &herr);
    if (rc == ERANGE && slot.buffer.size() < kLargestBuffer) {
      slot.buffer.resize(slot.buffer.size() * 2);
      continue;
    }
    if (rc == 0 && result != nullptr) {
      *host = result;
      return 0;
    }
    if (rc != 0 && herr == 0) herr = NETDB_INTERNAL;
    return HostErrorToEai(herr, rc != 0 ? rc : errno);
  }
}

template <typename Call>
int ServiceCall(struct servent** service, Call call) {
  *service = nullptr;
  ServiceSlot& slot = ThisThreadsService();
  for (;;) {
    struct servent* result = nullptr;
    int rc = call(&slot.entry, slot.buffer.data(), slot.buffer.size(), &result);
    if (rc == ERANGE && slot.buffer.size() < kLargestBuffer) {
      slot.buffer.resize(slot.buffer.size() * 2);
      continue;
    }
    if (rc != 0) return rc;
    // glibc reports an unknown service as success with no entry.
    if (result == nullptr) return ENOENT;
    *service = result;
    return 0;
  }
}

}  // namespace

void* FindResolverFunction(const char* name) {
  // The process's own global look-up order rather than a handle on the C
  // library: whatever stands in front of the C library's resolver (a
  // preloaded resolver, a sanitizer's interceptor) is what the process uses,
  // and so is what the library uses.
  dlerror();
  return dlsym(RTLD_DEFAULT, name);
}

void SetResolverError(int code) { errno = code; }

int ResolverError() { return errno; }

int HostByName(const char* name, const struct hostent** host) {
  return HostCall(host, [name](struct hostent* entry, char* buffer, size_t size, struct hostent** result,
                               int* herr) { return gethostbyname_r(name, entry, buffer, size, result, herr); });
}

int HostByAddr(const void* addr4, const struct hostent** host) {
  return HostCall(host, [addr4](struct hostent* entry, char* buffer, size_t size, struct hostent** result,
                                int* herr) {
    return gethostbyaddr_r(addr4, 4, AF_INET, entry, buffer, size, result, herr);
  });
}

int ServiceByName(const char* name, const char* protocol, struct servent** service) {
  return ServiceCall(service, [name, protocol](struct servent* entry, char* buffer, size_t size,
                                               struct servent** result) {
    return getservbyname_r(name, protocol, entry, buffer, size, result);
  });
}

int ServiceByPort(int port, const char* protocol, struct servent** service) {
  return ServiceCall(service, [port, protocol](struct servent* entry, char* buffer, size_t size,
                                               struct servent** result) {
    return getservbyport_r(port, protocol, entry, buffer, size, result);
  });
}

bool ParseDottedIpv4(const char* text, uint32_t* addr) {
  // inet_aton is glibc's inet_addr without its ambiguity: inet_addr answers
  // 255.255.255.255 and a failure with the same number.
  struct in_addr parsed;
  if (inet_aton(text, &parsed) == 0) return false;
  *addr = parsed.s_addr;
  return true;
}

bool ParseNumericHost6(const char* text, void* addr16) {
  struct in6_addr parsed;
  if (inet_pton(AF_INET6, text, &parsed) != 1) return false;
  memcpy(addr16, &parsed, sizeof parsed);
  errno = 0;
  return true;
}

void FormatDottedIpv4(uint32_t addr, char text[16]) {
  struct in_addr in;
  in.s_addr = addr;
  inet_ntop(AF_INET, &in, text, 16);
}

int HostName(char* buffer, size_t size) { return gethostname(buffer, size) == 0 ? 0 : errno; }

bool CanOpenLocalSocket() {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  close(fd);
  return true;
}

void DebugTrap() { raise(SIGTRAP); }

}  // namespace zonet_platform
