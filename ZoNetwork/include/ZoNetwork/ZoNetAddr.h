/**
 * @file
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

/** A socket handle: the descriptor, widened. All ones is the invalid handle. */
typedef uint64_t ZONET_SOCKET;
/** The invalid socket handle, all ones. */
#define ZONET_INVALID_SOCKET (~(uint64_t)0)

/** Address families, with the platform's own numbers (IPv6 is 10 on Linux). */
enum {
  ZONET_FAMILY_ANY = 0,              /**< no family: an empty record, or "any" in a request */
  ZONET_FAMILY_UNIX = AF_UNIX,       /**< local (Unix-domain) socket path */
  ZONET_FAMILY_IPV4 = AF_INET,       /**< IPv4 */
  ZONET_FAMILY_IPV6 = AF_INET6       /**< IPv6 */
};

/** Longest local socket path, without its NUL. */
#define ZONET_MAX_PATH 107

/**
 * One socket address of any family, 112 bytes, laid out as the system's own
 * sockaddr_in, sockaddr_in6 and sockaddr_un so that it can go to bind,
 * connect, sendto and getnameinfo as it stands. Only the bytes of the form in
 * use are defined.
 */
typedef struct ZONET_SockAddr {
  /** The forms of the record, one per family; family is common to all. */
  union {
    uint16_t family; /**< host order, a ZONET_FAMILY_* value */
    /** The IPv4 form, as sockaddr_in. */
    struct {
      uint16_t family; /**< ZONET_FAMILY_IPV4 */
      uint16_t port; /**< network order */
      uint32_t addr; /**< network order */
      uint8_t zero[8]; /**< unused, zero */
    } ipv4;
    /** The IPv6 form, as sockaddr_in6. */
    struct {
      uint16_t family; /**< ZONET_FAMILY_IPV6 */
      uint16_t port; /**< network order */
      uint32_t flowinfo; /**< flow information, network order */
      uint8_t addr[16]; /**< the address, network order */
      uint32_t scope_id; /**< interface index of a scoped address, 0 for none */
    } ipv6;
    /** The local form, as sockaddr_un. */
    struct {
      uint16_t family; /**< ZONET_FAMILY_UNIX */
      char path[108]; /**< NUL-terminated, at most 107 characters */
    } local;
    uint8_t bytes[112]; /**< the whole record as bytes */
    uint64_t align_; /**< as aligned as the system's sockaddr_storage */
  };
} ZONET_SockAddr;

/** The answer of a name resolution: count records in a malloc'd array, owned by
 * the holder until ZONET_freehostent. Copying the record shares the array. */
typedef struct ZONET_HostEnt {
  uint32_t count; /**< number of records in addrs */
  ZONET_SockAddr* addrs; /**< the records; null or empty when count is 0 */
} ZONET_HostEnt;

/* ---- address model ---- */

/** Bytes this record's form occupies: 16 (IPv4), 28 (IPv6), path length + 3
 * (local; at most 110, never past the record), or 112 for any other family.
 * This is the length to give bind and connect. 0 for a null record. */
ZONET_API int ZONET_GetActualSockAddrLen(const ZONET_SockAddr* addr);
/** Largest length of a family: 16, 28, 110, or 112 for any other. */
ZONET_API int ZONET_GetMaxSockAddrLen(int family);
/** The family asked for when a resolution asks for family 0; 0 until set. */
ZONET_API int ZONET_GetFamilyPreference(void);
/** Stores the preference once, for the life of the process (0 included);
 * UNIX is ignored; the same value again does nothing. A different second
 * value raises SIGTRAP, a deliberate trap for a process that wants two, and
 * the first value stays. Meant for start-up, before other threads resolve. */
ZONET_API void ZONET_SetFamilyPreference(int family);
/** "ANY", "UNIX", "IPv4" or "IPv6" ("ANY" for an unknown family); static. */
ZONET_API const char* ZONET_family2str(int family);
/** Sets the port, given in host order; only IPv4 and IPv6 records have one:
 * any other record (or a null one) is left alone. */
ZONET_API void ZONET_setport(ZONET_SockAddr* addr, uint16_t port);
/** The port in host order; 0 for a record of another family than IPv4 and
 * IPv6, and for a null record. */
ZONET_API uint16_t ZONET_getport(const ZONET_SockAddr* addr);
/** 1 when equal, else 0. The same pointer twice is equal, a null one equals
 * nothing, different families are unequal. Local paths compare as text.
 * IPv4, and every other family as IPv6, compare the address (its first
 * prefixBits bits when 0 < prefixBits < its length, nothing when prefixBits
 * is -1 to -23, else all of it; flow and scope never), and the port too when
 * comparePort is non-zero. */
ZONET_API int ZONET_addrequal(const ZONET_SockAddr* a, const ZONET_SockAddr* b, int prefixBits, int comparePort);
/** Numeric text of the address (never the port), or the local path, into
 * buffer of size bytes. ZONET_ERR_NAME_TOO_LONG when a path (or anything, into
 * a size of 0) does not fit, EAI_OVERFLOW when the resolver's text does not,
 * another EAI code of getnameinfo, or ZONET_ERR_INVALID_PARAMETER for a null
 * pointer. The resolver's result is also left in errno. */
ZONET_API int ZONET_ip2str(const ZONET_SockAddr* addr, char* buffer, size_t size);
/** Parses a numeric IPv4 or IPv6 address (port 0), or takes a text with '/' or
 * '\\' anywhere as a local path; never looks a name up, and writes only the
 * bytes of the form it fills. ZONET_ERR_NAME_TOO_LONG for a path of 108 or
 * more characters, the resolver's EAI code for a text that is no address (also
 * left in errno), ZONET_ERR_AF_NOT_SUPPORTED when the answer held neither
 * family, ZONET_ERR_INVALID_PARAMETER for a null pointer.
 * 127.0.53.53, the DNS name collision address, gives ZONET_ERR_HOST_NOT_FOUND
 * on every call, with addr filled in all the same and errno 0. */
ZONET_API int ZONET_str2ip(const char* text, ZONET_SockAddr* addr);

/* ---- name resolution ---- */

/** Resolves name to its IPv4 and IPv6 addresses, in the resolver's order, each
 * with port 0, into a new array that the caller releases with
 * ZONET_freehostent. family 0 asks for the preferred family. A name with '/'
 * or '\\' is a local path and never reaches the resolver: one local record.
 * An empty answer gives count 0 and an empty array (free it all the same).
 * Errors: the resolver's EAI code (also left in errno);
 * ZONET_ERR_NAME_TOO_LONG for a path that does not fit;
 * ZONET_ERR_NOT_ENOUGH_MEMORY; ZONET_ERR_INVALID_PARAMETER for a null pointer;
 * ZONET_ERR_HOST_NOT_FOUND with errno 0 when an IPv4 answer was 127.0.53.53,
 * a name that collides with a new top-level domain. On any error hostEnt is
 * not changed and there is nothing to free. */
ZONET_API int ZONET_name2ip(const char* name, ZONET_HostEnt* hostEnt, int family);
/** Frees the array (if any) and leaves count 0 and addrs null; a second call,
 * or a null pointer, is harmless. */
ZONET_API void ZONET_freehostent(ZONET_HostEnt* hostEnt);
/** The name of an address (a name is required), or the local path, into buffer
 * of size bytes. IPv4 is given with its 16 bytes, anything else with the whole
 * record's 112. Errors as ZONET_ip2str, EAI_NONAME for an address without a
 * name. */
ZONET_API int ZONET_ip2name(const ZONET_SockAddr* addr, char* buffer, size_t size);
/** The machine's host name; 0, errno (ENAMETOOLONG when it does not fit), or
 * ZONET_ERR_INVALID_PARAMETER for a null buffer or a size under 1. */
ZONET_API int ZONET_gethostname(char* buffer, int size);
/** A service by name, or by port (network order), for protocol ("tcp", "udp",
 * or null for any). *result points to this thread's own entry, valid until
 * its next call of either function; it is null on failure: ENOENT when there
 * is no such service, errno for other failures, ZONET_ERR_INVALID_PARAMETER
 * for a null name or result. */
ZONET_API int ZONET_getservbyname(const char* name, const char* protocol, struct servent** result);
/** The service of port (network order) for protocol, as ZONET_getservbyname. */
ZONET_API int ZONET_getservbyport(int port, const char* protocol, struct servent** result);

/* ---- local sockets ---- */

/** 1 when local sockets can be used, 0 when not or switched off. Decided at
 * the first call, by opening (and at once closing) a local stream socket. */
ZONET_API int ZONET_AreUnixSocketsSupported(void);
/** Switches local sockets off for the rest of the process, decided or not.
 * Meant for start-up. */
ZONET_API void ZONET_DisableUnixSockets(void);

#ifdef __cplusplus
}
#endif

#endif /* ZONETWORK_ZONETADDR_H */
