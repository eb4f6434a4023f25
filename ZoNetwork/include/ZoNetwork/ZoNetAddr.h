/*
 * The flat address interface: one record for IPv4, IPv6 and local
 * (Unix-domain) addresses, the family preference, text conversions and name
 * resolution. C linkage; compiles as C and as C++.
 *
 * Every function that returns int returns 0 for success or an error number:
 * errno, the EAI_* code of the resolver, or one of the library's fixed codes
 * (ZoUtils/ZoErrorCodes.h).
 */
#ifndef ZONETWORK_ZONETADDR_H
#define ZONETWORK_ZONETADDR_H

#include <stddef.h>
#include <stdint.h>

#ifndef _WIN32
#include <netdb.h>
#include <sys/socket.h>
#endif

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoErrorCodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A socket handle: the descriptor, widened. All ones is the invalid handle. */
typedef uint64_t ZONET_SOCKET;
#define ZONET_INVALID_SOCKET (~(uint64_t)0)

/* Address families, with the platform's own numbers (IPv6 is 10 on Linux). */
enum {
  ZONET_FAMILY_ANY = 0,
  ZONET_FAMILY_UNIX = AF_UNIX,
  ZONET_FAMILY_IPV4 = AF_INET,
  ZONET_FAMILY_IPV6 = AF_INET6
};

/* Longest local socket path, without its NUL. */
#define ZONET_MAX_PATH 107

/*
 * One socket address of any family, 112 bytes, laid out as the system's own
 * sockaddr_in, sockaddr_in6 and sockaddr_un so that it can go to bind,
 * connect, sendto and getnameinfo as it stands. Only the bytes of the form in
 * use are defined.
 */
typedef struct ZONET_SockAddr {
  union {
    uint16_t family; /* host order, a ZONET_FAMILY_* value */
    struct {
      uint16_t family;
      uint16_t port; /* network order */
      uint32_t addr; /* network order */
      uint8_t zero[8];
    } ipv4;
    struct {
      uint16_t family;
      uint16_t port; /* network order */
      uint32_t flowinfo;
      uint8_t addr[16];
      uint32_t scope_id;
    } ipv6;
    struct {
      uint16_t family;
      char path[108]; /* NUL-terminated, at most 107 characters */
    } local;
    uint8_t bytes[112];
    uint64_t align_; /* as aligned as the system's sockaddr_storage */
  };
} ZONET_SockAddr;

/* The answer of a name resolution: count records in a malloc'd array, owned by
 * the holder until ZONET_freehostent. Copying the record shares the array. */
typedef struct ZONET_HostEnt {
  uint32_t count;
  ZONET_SockAddr* addrs;
} ZONET_HostEnt;

/* ---- address model ---- */

/* Bytes this record's form occupies: 16, 28, path length + 3, or 112. */
ZONET_API int ZONET_GetActualSockAddrLen(const ZONET_SockAddr* addr);
/* Largest length of a family: 16, 28, 110, or 112 for any other. */
ZONET_API int ZONET_GetMaxSockAddrLen(int family);
/* The family asked for when a resolution asks for family 0. */
ZONET_API int ZONET_GetFamilyPreference(void);
/* Stores the preference once; UNIX is ignored; a different second value
 * raises SIGTRAP, a deliberate trap for a process that wants two. */
ZONET_API void ZONET_SetFamilyPreference(int family);
/* "ANY", "UNIX", "IPv4" or "IPv6"; static text. */
ZONET_API const char* ZONET_family2str(int family);
/* Port in host order; only IPv4 and IPv6 records have one. */
ZONET_API void ZONET_setport(ZONET_SockAddr* addr, uint16_t port);
ZONET_API uint16_t ZONET_getport(const ZONET_SockAddr* addr);
/* 1 when equal by family and address (the first prefixBits bits when that is
 * shorter than the address), and port when comparePort; else 0. */
ZONET_API int ZONET_addrequal(const ZONET_SockAddr* a, const ZONET_SockAddr* b, int prefixBits, int comparePort);
/* Numeric text of the address, or the path. */
ZONET_API int ZONET_ip2str(const ZONET_SockAddr* addr, char* buffer, size_t size);
/* Parses a numeric address, or takes a text with '/' or '\\' as a path; never
 * looks a name up. 127.0.53.53 gives ZONET_ERR_HOST_NOT_FOUND. */
ZONET_API int ZONET_str2ip(const char* text, ZONET_SockAddr* addr);

/* ---- name resolution ---- */

ZONET_API int ZONET_name2ip(const char* name, ZONET_HostEnt* hostEnt, int family);
ZONET_API void ZONET_freehostent(ZONET_HostEnt* hostEnt);
ZONET_API int ZONET_ip2name(const ZONET_SockAddr* addr, char* buffer, size_t size);
ZONET_API int ZONET_gethostname(char* buffer, int size);
ZONET_API int ZONET_getservbyname(const char* name, const char* protocol, struct servent** result);
ZONET_API int ZONET_getservbyport(int port, const char* protocol, struct servent** result);

/* ---- local sockets ---- */

/* 1 when local sockets can be used, 0 when not or switched off. */
ZONET_API int ZONET_AreUnixSocketsSupported(void);
/* Switches local sockets off for the rest of the process. */
ZONET_API void ZONET_DisableUnixSockets(void);

#ifdef __cplusplus
}
#endif

#endif /* ZONETWORK_ZONETADDR_H */
