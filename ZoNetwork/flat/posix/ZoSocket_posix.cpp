// The Linux side of the flat socket layer: every socket, select, ioctl,
// setsockopt and clock call of ZoNetSocket.cpp and ZoNetPair.cpp.
#include "flat/FlatPlatform.h"

#include <errno.h>
#include <linux/icmp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

namespace zonet_platform {

namespace {

// errno, or EIO if a failing call left none, so that a failure never reads as
// success.
int LastError() { return errno != 0 ? errno : EIO; }

int Result(int rc) { return rc < 0 ? LastError() : 0; }

}  // namespace

int SockOpen(int family, SockKind kind, int* fd) {
  int type = SOCK_STREAM;
  int protocol = 0;
  switch (kind) {
    case kSockStream:
      break;
    case kSockDatagram:
      type = SOCK_DGRAM;
      protocol = IPPROTO_UDP;
      break;
    case kSockIcmp:
      type = SOCK_RAW;
      // The echo protocol of the family: ICMPv6 is IPv6's own ICMP.
      protocol = family == AF_INET6 ? int(IPPROTO_ICMPV6) : int(IPPROTO_ICMP);
      break;
  }
  *fd = ::socket(family, type | SOCK_CLOEXEC, protocol);
  if (*fd < 0) return LastError();
  if (kind == kSockIcmp && family == AF_INET) {
    // A raw IPv4 ICMP socket gets every ICMP packet the host takes in, echo
    // requests too, so a ping of a local address would read its own request
    // before the reply. Requests are never what such a socket waits for.
    struct icmp_filter filter;
    filter.data = 1u << ICMP_ECHO;
    if (::setsockopt(*fd, SOL_RAW, ICMP_FILTER, &filter, sizeof filter) < 0) {
      const int error = LastError();
      ::close(*fd);
      *fd = -1;
      return error;
    }
  }
  return 0;
}

int SockBind(int fd, const void* addr, int length) {
  return Result(::bind(fd, static_cast<const sockaddr*>(addr), static_cast<socklen_t>(length)));
}

int SockListen(int fd, int backlog) { return Result(::listen(fd, backlog)); }

int SockAccept(int fd, void* addr, int* length, int* newFd) {
  socklen_t len = static_cast<socklen_t>(*length);
  *newFd = ::accept4(fd, static_cast<sockaddr*>(addr), &len, SOCK_CLOEXEC);
  if (*newFd < 0) return LastError();
  *length = static_cast<int>(len);
  return 0;
}

int SockConnect(int fd, const void* addr, int length) {
  return Result(::connect(fd, static_cast<const sockaddr*>(addr), static_cast<socklen_t>(length)));
}

int SockClose(int fd) { return ::close(fd); }

int SockShutdown(int fd, int how) { return Result(::shutdown(fd, how)); }

int SockGetName(int fd, void* addr, int* length) {
  socklen_t len = static_cast<socklen_t>(*length);
  if (::getsockname(fd, static_cast<sockaddr*>(addr), &len) < 0) return LastError();
  *length = static_cast<int>(len);
  return 0;
}

int SockGetPeerName(int fd, void* addr, int* length) {
  socklen_t len = static_cast<socklen_t>(*length);
  if (::getpeername(fd, static_cast<sockaddr*>(addr), &len) < 0) return LastError();
  *length = static_cast<int>(len);
  return 0;
}

int SockGetDomain(int fd, int* domain) {
  int value = 0;
  socklen_t len = sizeof(value);
  if (::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &value, &len) < 0) return LastError();
  *domain = value;
  return 0;
}

int SockGetOpt(int fd, int level, int name, void* value, int* length) {
  socklen_t len = static_cast<socklen_t>(*length);
  if (::getsockopt(fd, level, name, value, &len) < 0) return LastError();
  *length = static_cast<int>(len);
  return 0;
}

int SockSetOpt(int fd, int level, int name, const void* value, int length) {
  return Result(::setsockopt(fd, level, name, value, static_cast<socklen_t>(length)));
}

int SockIoctl(int fd, unsigned long command, int* argument) { return Result(::ioctl(fd, command, argument)); }

unsigned long SockNonBlockingCommand() { return FIONBIO; }

int SockSetKeepAlive(int fd, int idleSeconds, int intervalSeconds) {
  int on = 1;
  if (::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on)) < 0) return LastError();
  if (::setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idleSeconds, sizeof(idleSeconds)) < 0) return LastError();
  return Result(::setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &intervalSeconds, sizeof(intervalSeconds)));
}

int SockSelect(int nfds, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, struct timeval* timeout, int* ready) {
  int rc = ::select(nfds, readSet, writeSet, exceptSet, timeout);
  if (rc < 0) return LastError();
  *ready = rc;
  return 0;
}

int SockSend(int fd, const void* buffer, size_t length, int flags, long* done) {
  ssize_t rc = ::send(fd, buffer, length, flags | MSG_NOSIGNAL);
  if (rc < 0) return LastError();
  *done = static_cast<long>(rc);
  return 0;
}

int SockRecv(int fd, void* buffer, size_t length, int flags, long* done) {
  ssize_t rc = ::recv(fd, buffer, length, flags);
  if (rc < 0) return LastError();
  *done = static_cast<long>(rc);
  return 0;
}

int SockSendTo(int fd, const void* buffer, size_t length, int flags, const void* addr, int addrLength, long* done) {
  ssize_t rc = ::sendto(fd, buffer, length, flags | MSG_NOSIGNAL, static_cast<const sockaddr*>(addr),
                        static_cast<socklen_t>(addrLength));
  if (rc < 0) return LastError();
  *done = static_cast<long>(rc);
  return 0;
}

int SockRecvFrom(int fd, void* buffer, size_t length, int flags, void* addr, int* addrLength, long* done) {
  socklen_t len = static_cast<socklen_t>(*addrLength);
  ssize_t rc = ::recvfrom(fd, buffer, length, flags, static_cast<sockaddr*>(addr), &len);
  if (rc < 0) return LastError();
  *addrLength = static_cast<int>(len);
  *done = static_cast<long>(rc);
  return 0;
}

int SockPeekFlag() { return MSG_PEEK; }

int SockDontWaitFlag() { return MSG_DONTWAIT; }

bool SockWouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }

bool SockPeerHasClosed(int fd, int* error) {
  *error = 0;
  pollfd p{};
  p.fd = fd;
  p.events = POLLRDHUP;
  if (::poll(&p, 1, 0) <= 0) return false;
  if ((p.revents & POLLNVAL) != 0) {
    *error = EBADF;
    return true;
  }
  // A reset leaves bytes that were already received to be peeked for ever,
  // and its error waits behind them, where a receive never reaches it; the
  // socket's pending error is that error, taken as a receive would take it.
  if ((p.revents & POLLERR) != 0) {
    int pending = 0;
    socklen_t len = sizeof(pending);
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &len) == 0) *error = pending;
  }
  return (p.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

int64_t NowSeconds() { return static_cast<int64_t>(::time(nullptr)); }

}  // namespace zonet_platform
