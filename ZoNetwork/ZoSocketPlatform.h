// The socket calls of the flat layer, behind one narrow face: socket, bind,
// listen, accept, connect, close, shutdown, names, options, ioctl, select,
// send and receive, and the whole-second clock. The logic in ZoNetSocket.cpp
// and ZoNetPair.cpp speaks only to this; Posix/ZoSocket_posix.cpp is the Linux
// side. Not installed, not exported.
//
// Descriptors are plain ints here: the flat layer checks that a handle fits
// before it comes this far. Every function that returns int returns 0 or the
// system's error number unless it says otherwise.
#ifndef ZONETWORK_ZOSOCKETPLATFORM_H
#define ZONETWORK_ZOSOCKETPLATFORM_H

#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>
#include <sys/time.h>

namespace zonet_platform {

// The kinds of socket the flat layer makes; the platform picks its own type
// and protocol numbers for them.
enum SockKind { kSockStream, kSockDatagram, kSockIcmp };

// A new socket of family and kind, closed on exec; *fd is -1 on failure.
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
// True when the peer of a stream socket has shut its sending side, whatever
// is still unread; asked after a short peek, which cannot tell a closed peer
// from a slow one by itself.
bool SockPeerHasClosed(int fd);
// The wall clock in whole seconds.
int64_t NowSeconds();

}  // namespace zonet_platform

#endif  // ZONETWORK_ZOSOCKETPLATFORM_H
