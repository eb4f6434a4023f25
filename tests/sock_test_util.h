// Real peers for the socket tests, built with the system's own calls so that
// the function under test is never also the one that made its peer.
#ifndef ZONET_TESTS_SOCK_TEST_UTIL_H
#define ZONET_TESTS_SOCK_TEST_UTIL_H

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "ZoNetwork/ZoNetSocket.h"

namespace socktest {

// Closes a descriptor at the end of a scope.
class Fd {
public:
  Fd() = default;
  explicit Fd(int fd) : m_fd(fd) {}
  Fd(Fd&& other) noexcept : m_fd(other.release()) {}
  Fd& operator=(Fd&& other) noexcept {
    reset(other.release());
    return *this;
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() { reset(); }

  int get() const { return m_fd; }
  ZONET_SOCKET sock() const { return m_fd < 0 ? ZONET_INVALID_SOCKET : static_cast<ZONET_SOCKET>(m_fd); }
  int release() { return std::exchange(m_fd, -1); }
  void reset(int fd = -1) {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = fd;
  }

private:
  int m_fd = -1;
};

inline ZONET_SockAddr Loopback4(uint16_t port = 0) {
  ZONET_SockAddr a;
  std::memset(&a, 0, sizeof(a));
  a.ipv4.family = AF_INET;
  a.ipv4.port = htons(port);
  a.ipv4.addr = htonl(INADDR_LOOPBACK);
  return a;
}

inline ZONET_SockAddr Loopback6(uint16_t port = 0) {
  ZONET_SockAddr a;
  std::memset(&a, 0, sizeof(a));
  a.ipv6.family = AF_INET6;
  a.ipv6.port = htons(port);
  a.ipv6.addr[15] = 1;
  return a;
}

// A listening TCP socket on 127.0.0.1 with a port of the system's choice.
inline Fd Listener4(uint16_t* port) {
  Fd l(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(sa);
  if (::bind(l.get(), reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0 || ::listen(l.get(), 8) != 0 ||
      ::getsockname(l.get(), reinterpret_cast<sockaddr*>(&sa), &len) != 0)
    return Fd();
  *port = ntohs(sa.sin_port);
  return l;
}

// A connected TCP pair over 127.0.0.1, both ends blocking; first is the
// connecting end.
inline std::pair<Fd, Fd> TcpPair() {
  uint16_t port = 0;
  Fd l = Listener4(&port);
  Fd c(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  sa.sin_port = htons(port);
  if (l.get() < 0 || ::connect(c.get(), reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0) return {};
  Fd s(::accept4(l.get(), nullptr, nullptr, SOCK_CLOEXEC));
  return {std::move(c), std::move(s)};
}

// Whether this host can bind TCP on ::1.
inline bool HasIpv6Loopback() {
  Fd s(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (s.get() < 0) return false;
  sockaddr_in6 sa{};
  sa.sin6_family = AF_INET6;
  sa.sin6_addr = in6addr_loopback;
  return ::bind(s.get(), reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) == 0;
}

// Seconds since start, as a double, for the timing tests.
inline double SecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Raises the soft descriptor limit to at least want for a scope, and puts the
// old one back after.
class NoFileLimit {
public:
  explicit NoFileLimit(rlim_t want) {
    ::getrlimit(RLIMIT_NOFILE, &m_old);
    rlimit r = m_old;
    if (r.rlim_cur < want) r.rlim_cur = want;
    if (r.rlim_max != RLIM_INFINITY && r.rlim_cur > r.rlim_max) r.rlim_cur = r.rlim_max;
    m_ok = ::setrlimit(RLIMIT_NOFILE, &r) == 0 && r.rlim_cur >= want;
  }
  // Sets the soft limit to exactly value (lowering it).
  static bool SetSoft(rlim_t value) {
    rlimit r;
    ::getrlimit(RLIMIT_NOFILE, &r);
    r.rlim_cur = value;
    return ::setrlimit(RLIMIT_NOFILE, &r) == 0;
  }
  ~NoFileLimit() { ::setrlimit(RLIMIT_NOFILE, &m_old); }
  bool ok() const { return m_ok; }

private:
  rlimit m_old{};
  bool m_ok = false;
};

}  // namespace socktest

#endif  // ZONET_TESTS_SOCK_TEST_UTIL_H
