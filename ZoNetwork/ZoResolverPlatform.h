// The platform under the address model, name resolution and the local-socket
// decision. The logic files call only what is declared here; Posix/ holds the
// Linux side (and a later Windows/ the other). Not installed, not exported.
//
// Numbers that leave these functions are already the platform's own: errno,
// or the EAI_* code that means the same as the platform's host-database error.
// The translation of h_errno into those codes is made here and nowhere else.
#ifndef ZONETWORK_ZORESOLVERPLATFORM_H
#define ZONETWORK_ZORESOLVERPLATFORM_H

#include <stddef.h>
#include <stdint.h>

#include <netdb.h>

namespace zonet_platform {

// ---- the three resolver functions, found at run time ----

// The address of a resolver function as the process sees it, or null when
// the process has none by that name.
void* FindResolverFunction(const char* name);

// ---- the resolver's last result ----

// Where the result of a resolution is kept for whoever asks afterwards
// (errno here, the socket layer's last error on the other platform).
void SetResolverError(int code);
int ResolverError();

// ---- the host database, for the library's own IPv4 resolver ----

// A host by name or by its IPv4 address (4 bytes, network order). 0 with
// *host pointing to this thread's own copy of the answer, valid until this
// thread's next call of either function; or EAI_NONAME, EAI_AGAIN, EAI_FAIL,
// EAI_NODATA, EAI_MEMORY, or another EAI code for other failures.
int HostByName(const char* name, const struct hostent** host);
int HostByAddr(const void* addr4, const struct hostent** host);

// A service by name or by port (network order); protocol may be null for any.
// 0 with *service pointing to this thread's own copy, valid until this
// thread's next call of either function; ENOENT when there is no such
// service, or the errno of the failure. *service is null on failure.
int ServiceByName(const char* name, const char* protocol, struct servent** service);
int ServiceByPort(int port, const char* protocol, struct servent** service);

// The classic dotted IPv4 parser (also "1.2.3" and hexadecimal parts).
// true with the address in network order, false when text is not one.
bool ParseDottedIpv4(const char* text, uint32_t* addr);
// The dotted text of an IPv4 address in network order; buffer of 16 bytes.
void FormatDottedIpv4(uint32_t addr, char text[16]);

// ---- the machine ----

// The machine's host name into buffer (size bytes); 0 or errno.
int HostName(char* buffer, size_t size);

// Whether a local stream socket can be made here: one is opened and closed
// at once.
bool CanOpenLocalSocket();

// Stops the process as a breakpoint with no debugger stops it (SIGTRAP).
void DebugTrap();

}  // namespace zonet_platform

#endif  // ZONETWORK_ZORESOLVERPLATFORM_H
