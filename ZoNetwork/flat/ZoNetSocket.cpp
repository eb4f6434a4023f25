// The flat socket functions: one thin layer over each socket call, the send
// and receive loops, and the time-out versions that wait in one-second select
// slices on a whole-second clock.
#include "ZoNetwork/ZoNetSocket.h"

#include <climits>
#include <cstring>

#include <atomic>

#include "flat/FlatInternal.h"
#include "flat/FlatPlatform.h"

namespace plat = zonet_platform;

namespace {

// The watch callbacks. Set during start-up and read on every close and
// listen; relaxed atomics keep a late change from being torn.
std::atomic<ZONET_SOCKCB> g_closeCallback{nullptr};
std::atomic<ZONET_SOCKCB> g_listenCallback{nullptr};

// The byte that ends the path area of a local record, whatever the kernel
// wrote before it.
const int kLastPathByte = 109;
// What getsockname and getpeername are asked with: the whole record.
const int kWholeRecord = static_cast<int>(sizeof(ZONET_SockAddr));
// IPv4's address length for the ICMP calls; every other family is given the
// whole record.
const int kIpv4AddrLength = 16;

// A handle as a descriptor: false when it cannot be one, which the kernel
// would call a bad descriptor.
inline bool ToFd(ZONET_SOCKET sock, int* fd) {
  if (sock > static_cast<ZONET_SOCKET>(INT_MAX)) return false;
  *fd = static_cast<int>(sock);
  return true;
}

inline ZONET_SOCKET FromFd(int fd) { return fd < 0 ? ZONET_INVALID_SOCKET : static_cast<ZONET_SOCKET>(fd); }

inline bool IsPeek(int flags) { return (flags & plat::SockPeekFlag()) != 0; }

int MakeSocket(int family, plat::SockKind kind, ZONET_SOCKET* sock) {
  if (sock == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  int fd = -1;
  const int rc = plat::SockOpen(family, kind, &fd);
  *sock = FromFd(fd);
  return rc;
}

// A local record as the kernel left it may be unterminated, or hold an old
// path where an unnamed socket has none.
void RepairLocalPath(ZONET_SockAddr* addr, int length) {
  if (addr->family != ZONET_FAMILY_UNIX) return;
  if (length == static_cast<int>(sizeof(addr->family))) addr->local.path[0] = '\0';
  addr->bytes[kLastPathByte] = 0;
}

// As above, and a length of 0 makes the record an empty local one.
void RepairLocalName(ZONET_SockAddr* addr, int length) {
  if (length == 0) {
    addr->family = ZONET_FAMILY_UNIX;
    addr->local.path[0] = '\0';
    return;
  }
  RepairLocalPath(addr, length);
}

// bind and connect: the record is copied and given with its actual length,
// so a local record goes with its true length, the path plus 3.
int CallWithAddress(ZONET_SOCKET sock, const ZONET_SockAddr* addr, int (*call)(int fd, const void* addr, int length)) {
  if (addr == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  const ZONET_SockAddr copy = *addr;
  return call(fd, &copy, ZONET_GetActualSockAddrLen(&copy));
}

typedef int (*NameCall)(int fd, void* addr, int* length);

int GetName(ZONET_SOCKET sock, ZONET_SockAddr* addr, NameCall call) {
  if (addr == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  // Asked into a record of its own, so that a failure leaves the caller's as
  // it was. The kernel writes only the bytes of the form it returns; the rest
  // of the record should not carry an older address.
  ZONET_SockAddr name;
  std::memset(&name, 0, sizeof(name));
  int length = kWholeRecord;
  const int rc = call(fd, &name, &length);
  if (rc != 0) return rc;
  RepairLocalName(&name, length);
  *addr = name;
  return 0;
}

// Arguments shared by every data call: counts reset first, then the checks.
int CheckData(const void* buffer, int length, int* count) {
  if (count == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  *count = 0;
  if (length < 0) return ZONET_ERR_INVALID_PARAMETER;
  if (buffer == nullptr && length > 0) return ZONET_ERR_INVALID_PARAMETER;
  return 0;
}

// True once more than timeout whole seconds have passed since start; at
// exactly timeout seconds the wait goes on.
inline bool PastLimit(int64_t start, int timeout) {
  return static_cast<int32_t>(plat::NowSeconds() - start) > timeout;
}

enum WaitResult { kWaitReady, kWaitNotYet, kWaitNoSet, kWaitError };

// One slice of waiting: a fresh set with only this socket, one select of up
// to one second on the read or write side. *error is the select's error.
WaitResult WaitOneSlice(ZONET_SOCKET sock, int fd, bool forWrite, int* error) {
  xnfdset_t set;
  xnfdset_alloc(xnfdset_maxsock_get(), &set);
  xnfdset_zero(&set);
  if (xnfdset_set(sock, &set) != 0) {
    xnfdset_free(&set);
    return kWaitNoSet;
  }
  // Filled anew for every slice: Linux's select writes the time left into
  // it, which after a full slice is nothing.
  struct timeval slice;
  slice.tv_sec = 1;
  slice.tv_usec = 0;
  int ready = 0;
  fd_set* mask = xnfdset_get_fdsetp(&set);
  *error = ZONET_select(fd + 1, forWrite ? nullptr : mask, forWrite ? mask : nullptr, nullptr, &slice, &ready);
  xnfdset_free(&set);
  if (*error != 0) return kWaitError;
  return ready != 0 ? kWaitReady : kWaitNotYet;
}

// Slices until the socket is ready or more than timeout seconds have passed
// since start. False when the caller is to stop and return *result: 0 with
// *timedOut set, 0 when no set could be built, or select's error.
bool WaitReady(ZONET_SOCKET sock, int fd, bool forWrite, int64_t start, int timeout, int* timedOut, int* result) {
  for (;;) {
    if (PastLimit(start, timeout)) {
      *timedOut = 1;
      *result = 0;
      return false;
    }
    int error = 0;
    switch (WaitOneSlice(sock, fd, forWrite, &error)) {
      case kWaitReady:
        return true;
      case kWaitNotYet:
        continue;
      case kWaitNoSet:
        *result = 0;
        return false;
      case kWaitError:
        *result = error;
        return false;
    }
  }
}

// A short peek of a stream cannot tell a peer that has gone from one that is
// slow; once the peer has gone the peek would give the same bytes for ever.
// *error is 0 for a peer that shut down in order, else the connection's error.
inline bool ShortPeekAtEnd(int fd, int flags, int received, int length, int* error) {
  return IsPeek(flags) && received < length && plat::SockPeerHasClosed(fd, error);
}

// The loop of every stream send and receive, after their checks: move what
// can move until length bytes are through, the peer has closed or an error
// comes. With a timeout above 0 each step first waits in one-second slices,
// and the loop ends once more than timeout seconds have passed. A send never
// writes to bytes.
int StreamLoop(ZONET_SOCKET sock, char* bytes, int length, int* count, int timeout, int* timedOut, int flags,
               bool forWrite) {
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  const bool timed = timeout > 0;
  const int64_t start = timed ? plat::NowSeconds() : 0;
  const bool peek = !forWrite && IsPeek(flags);
  while (*count < length) {
    int result = 0;
    if (timed && !WaitReady(sock, fd, forWrite, start, timeout, timedOut, &result)) return result;
    // A peek leaves the data where it is, so every peek starts again at the
    // front and asks for all of it.
    if (peek) *count = 0;
    const size_t rest = static_cast<size_t>(length - *count);
    long n = 0;
    int rc;
    if (forWrite) {
      // With a limit, only what fits now: a blocking send of the rest would
      // wait for the peer however long that takes.
      rc = plat::SockSend(fd, bytes + *count, rest, timed ? flags | plat::SockDontWaitFlag() : flags, &n);
      if (timed && plat::SockWouldBlock(rc)) continue;
    } else {
      rc = plat::SockRecv(fd, bytes + *count, rest, flags, &n);
    }
    if (rc != 0) return rc;
    // Nothing moved: the peer has closed, and the caller sees a short count.
    if (n == 0) return 0;
    *count += static_cast<int>(n);
    int peerError = 0;
    if (ShortPeekAtEnd(fd, flags, *count, length, &peerError)) return peerError;
  }
  return 0;
}

// Both stream time-out functions: the checks, then no limit at all for a
// timeout of 0 or less, else the sliced loop.
int TimedStream(ZONET_SOCKET sock, char* bytes, int length, int* count, int timeout, int* timedOut, int flags,
                bool forWrite) {
  if (timedOut == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  *timedOut = 0;
  const int check = CheckData(bytes, length, count);
  if (check != 0) return check;
  if (timeout <= 0 || length == 0) {
    return forWrite ? ZONET_send(sock, bytes, length, count, flags) : ZONET_recv(sock, bytes, length, count, flags);
  }
  return StreamLoop(sock, bytes, length, count, timeout, timedOut, flags, forWrite);
}

// The ICMP calls: optionally wait for the socket, then one sendto or one
// recvfrom, since a datagram moves whole or not at all.
int TimedDatagram(ZONET_SOCKET sock, ZONET_SockAddr* addr, char* bytes, int length, int* count, int flags,
                  int timeout, int* timedOut, bool forWrite) {
  if (addr == nullptr || timedOut == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  int addrLength = addr->family == ZONET_FAMILY_IPV4 ? kIpv4AddrLength : kWholeRecord;
  *timedOut = 0;
  const int check = CheckData(bytes, length, count);
  if (check != 0) return check;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  if (timeout > 0) {
    int result = 0;
    if (!WaitReady(sock, fd, forWrite, plat::NowSeconds(), timeout, timedOut, &result)) return result;
  }
  long n = 0;
  const int rc = forWrite ? plat::SockSendTo(fd, bytes, static_cast<size_t>(length), flags, addr, addrLength, &n)
                          : plat::SockRecvFrom(fd, bytes, static_cast<size_t>(length), flags, addr, &addrLength, &n);
  if (rc != 0) return rc;
  *count = static_cast<int>(n);
  return 0;
}

}  // namespace

extern "C" {

// ---- creation ----

int ZONET_socket(int family, ZONET_SOCKET* sock) { return MakeSocket(family, plat::kSockStream, sock); }

int ZONET_dgramsocket(int family, ZONET_SOCKET* sock) { return MakeSocket(family, plat::kSockDatagram, sock); }

int ZONET_icmpsocket(int family, ZONET_SOCKET* sock) { return MakeSocket(family, plat::kSockIcmp, sock); }

// ---- addresses and connections ----

int ZONET_bind(ZONET_SOCKET sock, const ZONET_SockAddr* addr) { return CallWithAddress(sock, addr, plat::SockBind); }

int ZONET_listen(ZONET_SOCKET sock, int backlog) {
  const ZONET_SOCKCB callback = g_listenCallback.load(std::memory_order_relaxed);
  if (callback != nullptr) callback(sock);
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  return plat::SockListen(fd, backlog);
}

int ZONET_accept(ZONET_SOCKET sock, ZONET_SOCKET* newSock, ZONET_SockAddr* addr) {
  if (newSock == nullptr || addr == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  *newSock = ZONET_INVALID_SOCKET;
  const int rc = ZONET_getsockname(sock, addr);
  if (rc != 0) return rc;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  // The listening socket's own family sizes the peer's address.
  int length = ZONET_GetMaxSockAddrLen(addr->family);
  int newFd = -1;
  // A failing accept is deliberately not an error of this function: the
  // caller learns of it from the invalid handle, and its error is dropped.
  (void)plat::SockAccept(fd, addr, &length, &newFd);
  *newSock = FromFd(newFd);
  RepairLocalPath(addr, length);
  return 0;
}

int ZONET_connect(ZONET_SOCKET sock, const ZONET_SockAddr* addr) {
  return CallWithAddress(sock, addr, plat::SockConnect);
}

int ZONET_close(ZONET_SOCKET sock) {
  const ZONET_SOCKCB callback = g_closeCallback.load(std::memory_order_relaxed);
  if (callback != nullptr) callback(sock);
  int fd;
  if (!ToFd(sock, &fd)) {
    errno = EBADF;
    return -1;
  }
  return plat::SockClose(fd);
}

int ZONET_shutdown(ZONET_SOCKET sock, int how) {
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  return plat::SockShutdown(fd, how);
}

int ZONET_getsockname(ZONET_SOCKET sock, ZONET_SockAddr* addr) { return GetName(sock, addr, plat::SockGetName); }

int ZONET_getpeername(ZONET_SOCKET sock, ZONET_SockAddr* addr) { return GetName(sock, addr, plat::SockGetPeerName); }

// ---- options ----

int ZONET_getsockfamily(ZONET_SOCKET sock) {
  int fd;
  int domain = -1;
  if (!ToFd(sock, &fd) || plat::SockGetDomain(fd, &domain) != 0) return -1;
  return domain;
}

int ZONET_getsockopt(ZONET_SOCKET sock, int level, int name, void* value, int* length) {
  if (length == nullptr || *length < 0 || (value == nullptr && *length > 0)) return ZONET_ERR_INVALID_PARAMETER;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  return plat::SockGetOpt(fd, level, name, value, length);
}

int ZONET_setsockopt(ZONET_SOCKET sock, int level, int name, const void* value, int length) {
  if (length < 0 || (value == nullptr && length > 0)) return ZONET_ERR_INVALID_PARAMETER;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  return plat::SockSetOpt(fd, level, name, value, length);
}

int ZONET_ioctl(ZONET_SOCKET sock, unsigned long command, int* argument) {
  if (argument == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  return plat::SockIoctl(fd, command, argument);
}

int ZONET_setblocking(ZONET_SOCKET sock) {
  int off = 0;
  return ZONET_ioctl(sock, plat::SockNonBlockingCommand(), &off);
}

int ZONET_setnonblocking(ZONET_SOCKET sock) {
  int on = 1;
  return ZONET_ioctl(sock, plat::SockNonBlockingCommand(), &on);
}

int ZONET_settcpkeepaliveoptions(ZONET_SOCKET sock, int idleSeconds, int intervalSeconds) {
  int fd;
  if (!ToFd(sock, &fd)) return EBADF;
  return plat::SockSetKeepAlive(fd, idleSeconds, intervalSeconds);
}

// ---- waiting ----

int ZONET_select(int nfds, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, struct timeval* timeout,
                 int* ready) {
  int count = 0;
  const int rc = plat::SockSelect(nfds, readSet, writeSet, exceptSet, timeout, &count);
  if (rc != 0) return rc;
  if (ready != nullptr) *ready = count;
  return 0;
}

int ZONET_selectfdsets(int nfds, xnfdset_t* readSet, xnfdset_t* writeSet, xnfdset_t* exceptSet,
                       struct timeval* timeout, int* ready) {
  xnfdset_t* sets[3] = {readSet, writeSet, exceptSet};
  for (xnfdset_t* set : sets) {
    if (set == nullptr) continue;
    if (set->set_ptr == nullptr) return ZONET_ERR_INVALID_PARAMETER;
    // The kernel reads nfds bits of every mask, whatever each one holds.
    if (zonet_internal::FdsetCoverBits(set, nfds) != 0) return ENOMEM;
  }
  return ZONET_select(nfds, xnfdset_get_fdsetp(readSet), xnfdset_get_fdsetp(writeSet), xnfdset_get_fdsetp(exceptSet),
                      timeout, ready);
}

// ---- data ----

int ZONET_send(ZONET_SOCKET sock, const void* buffer, int length, int* sent, int flags) {
  const int check = CheckData(buffer, length, sent);
  if (check != 0 || length == 0) return check;
  return StreamLoop(sock, static_cast<char*>(const_cast<void*>(buffer)), length, sent, 0, nullptr, flags, true);
}

int ZONET_recv(ZONET_SOCKET sock, void* buffer, int length, int* received, int flags) {
  const int check = CheckData(buffer, length, received);
  if (check != 0 || length == 0) return check;
  return StreamLoop(sock, static_cast<char*>(buffer), length, received, 0, nullptr, flags, false);
}

int ZONET_sendwithtimeout(ZONET_SOCKET sock, const void* buffer, int length, int* sent, int timeout, int* timedOut,
                          int flags) {
  return TimedStream(sock, static_cast<char*>(const_cast<void*>(buffer)), length, sent, timeout, timedOut, flags,
                     true);
}

int ZONET_recvwithtimeout(ZONET_SOCKET sock, void* buffer, int length, int* received, int timeout, int* timedOut,
                          int flags) {
  return TimedStream(sock, static_cast<char*>(buffer), length, received, timeout, timedOut, flags, false);
}

int ZONET_sendtoicmpsocket(ZONET_SOCKET sock, const ZONET_SockAddr* addr, const void* buffer, int length, int* sent,
                           int flags, int timeout, int* timedOut) {
  // Neither the address nor the bytes are written on the sending side.
  return TimedDatagram(sock, const_cast<ZONET_SockAddr*>(addr), static_cast<char*>(const_cast<void*>(buffer)), length,
                       sent, flags, timeout, timedOut, true);
}

int ZONET_recvfromicmpsocket(ZONET_SOCKET sock, ZONET_SockAddr* addr, void* buffer, int length, int* received,
                             int flags, int timeout, int* timedOut) {
  return TimedDatagram(sock, addr, static_cast<char*>(buffer), length, received, flags, timeout, timedOut, false);
}

// ---- watch callbacks ----

void ZONET_setclosecb(ZONET_SOCKCB callback) { g_closeCallback.store(callback, std::memory_order_relaxed); }

void ZONET_setlistencb(ZONET_SOCKCB callback) { g_listenCallback.store(callback, std::memory_order_relaxed); }

}  // extern "C"
