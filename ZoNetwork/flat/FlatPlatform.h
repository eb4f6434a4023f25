// The platform under the flat layer, behind one narrow face: the socket
// calls, the resolver and host database, the local-socket probe and the start
// and end of the system's socket layer. The logic files of flat/ call only what
// is declared here; flat/posix/ is the Linux side (and a later flat/windows/
// the other). Not installed, not exported.
//
// Descriptors are plain ints here: the flat layer checks that a handle fits
// before it comes this far. Every function that returns int returns 0 or the
// system's error number unless it says otherwise. Numbers that leave these
// functions are already the platform's own: errno, or the EAI_* code that
// means the same as the platform's host-database error; the translation of
// h_errno into those codes is made here and nowhere else.
#ifndef ZONETWORK_FLAT_FLATPLATFORM_H
#define ZONETWORK_FLAT_FLATPLATFORM_H

#include <netdb.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>
#include <sys/time.h>

namespace zonet_platform {

// ---- start and end of the socket layer ----
// Start and end of the system's socket layer; 0 or the error number. Linux
// has nothing to start, so these only count, for the tests' sake.
int SocketLayerStart();
void SocketLayerEnd();
// How many starts are not ended yet.
int SocketLayerStarts();

// ---- sockets ----

// The kinds of socket the flat layer makes; the platform picks its own type
// and protocol numbers for them.
enum SockKind { kSockStream, kSockDatagram, kSockIcmp };

// A new socket of family and kind, closed on exec; *fd is -1 on failure. An
// IPv4 ICMP socket is made deaf to incoming echo requests.
int SockOpen(int family, SockKind kind, int* fd);
int SockBind(int fd, const void* addr, int length);
int SockListen(int fd, int backlog);
// *length is the size of addr in and the address's size out. *newFd is -1 on
// failure, and the result is then the error.
int SockAccept(int fd, void* addr, int* length, int* newFd);
int SockConnect(int fd, const void* addr, int length);
// close's own 0 or -1.
int SockClose(int fd);
int SockShutdown(int fd, int how);
int SockGetName(int fd, void* addr, int* length);
int SockGetPeerName(int fd, void* addr, int* length);
// The socket's address family.
int SockGetDomain(int fd, int* domain);
int SockGetOpt(int fd, int level, int name, void* value, int* length);
int SockSetOpt(int fd, int level, int name, const void* value, int length);
int SockIoctl(int fd, unsigned long command, int* argument);
// The platform's command that switches blocking off (argument 1) or on (0).
unsigned long SockNonBlockingCommand();
// Keep-alive on, with the idle time and probe interval in seconds.
int SockSetKeepAlive(int fd, int idleSeconds, int intervalSeconds);
// select; *ready gets its count.
int SockSelect(int nfds, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, struct timeval* timeout, int* ready);
// One send, never raising a signal for a peer that has gone; *done gets the
// count (0 included).
int SockSend(int fd, const void* buffer, size_t length, int flags, long* done);
int SockRecv(int fd, void* buffer, size_t length, int flags, long* done);
int SockSendTo(int fd, const void* buffer, size_t length, int flags, const void* addr, int addrLength, long* done);
// *addrLength is the size of addr in and the sender's size out.
int SockRecvFrom(int fd, void* buffer, size_t length, int flags, void* addr, int* addrLength, long* done);
// The peek flag of recv.
int SockPeekFlag();
// The flag that makes one send return what fits instead of blocking.
int SockDontWaitFlag();
// True for the error of a call that would have had to wait.
bool SockWouldBlock(int error);
// True when the peer of a stream socket has gone, whatever is still unread;
// asked after a short peek, which cannot tell a closed peer from a slow one
// by itself. *error is 0 when the peer shut its sending side in order, and
// otherwise the error a receive would give for the connection (ECONNRESET
// for a reset).
bool SockPeerHasClosed(int fd, int* error);
// The wall clock in whole seconds.
int64_t NowSeconds();

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
// The strict reader of IPv6 text (inet_pton), standing in for the resolver
// asked for a numeric host of that form: hexadecimal groups with "::" and
// perhaps a dotted IPv4 tail, never a scope. true with the 16 address bytes
// in addr16 and the resolver's last result 0, as after any answer of the
// resolver (one call rather than two, which is a fair part of the parse);
// false, with nothing written and the last result as it was, when text is
// not one.
bool ParseNumericHost6(const char* text, void* addr16);
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

#endif  // ZONETWORK_FLAT_FLATPLATFORM_H
