// The flat socket functions against real loopback and local peers: creation,
// addresses, accept, close and listen callbacks, options, the send and
// receive loops and select.
#include <fcntl.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/un.h>

#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoNetSocket.h"
#include "sock_test_util.h"
#include "support/TestSupport.h"

using socktest::Fd;

namespace {

const ZONET_SOCKET kNotADescriptor = static_cast<ZONET_SOCKET>(INT_MAX) + 1;

// Sockets seen by the watch callbacks.
std::vector<ZONET_SOCKET> g_closed;
std::vector<ZONET_SOCKET> g_listened;
void OnClose(ZONET_SOCKET s) { g_closed.push_back(s); }
void OnListen(ZONET_SOCKET s) {
  // The callback runs before listen: the socket is not listening yet.
  int on = -1;
  socklen_t len = sizeof(on);
  ::getsockopt(static_cast<int>(s), SOL_SOCKET, SO_ACCEPTCONN, &on, &len);
  EXPECT_EQ(0, on);
  g_listened.push_back(s);
}

ZONET_SockAddr LocalAddr(const std::string& path) {
  ZONET_SockAddr a;
  std::memset(&a, 0, sizeof(a));
  a.local.family = AF_UNIX;
  std::strncpy(a.local.path, path.c_str(), sizeof(a.local.path) - 1);
  return a;
}

}  // namespace

TEST(Socket, CreatesEachKindAndReportsItsFamily) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s = 0;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &s));
  EXPECT_EQ(ZONET_FAMILY_IPV4, ZONET_getsockfamily(s));
  int type = 0;
  int len = sizeof(type);
  EXPECT_EQ(0, ZONET_getsockopt(s, SOL_SOCKET, SO_TYPE, &type, &len));
  EXPECT_EQ(SOCK_STREAM, type);
  // Not inherited by programs the host starts.
  EXPECT_NE(0, ::fcntl(static_cast<int>(s), F_GETFD) & FD_CLOEXEC);
  EXPECT_EQ(0, ZONET_close(s));

  ASSERT_EQ(0, ZONET_dgramsocket(ZONET_FAMILY_IPV4, &s));
  int proto = 0;
  len = sizeof(proto);
  EXPECT_EQ(0, ZONET_getsockopt(s, SOL_SOCKET, SO_PROTOCOL, &proto, &len));
  EXPECT_EQ(IPPROTO_UDP, proto);
  EXPECT_EQ(0, ZONET_close(s));

  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_UNIX, &s));
  EXPECT_EQ(ZONET_FAMILY_UNIX, ZONET_getsockfamily(s));
  EXPECT_EQ(0, ZONET_close(s));
}

TEST(Socket, FailedCreationStoresTheInvalidHandle) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s = 0;
  EXPECT_EQ(EAFNOSUPPORT, ZONET_socket(12345, &s));
  EXPECT_EQ(ZONET_INVALID_SOCKET, s);
  // A local datagram socket over UDP does not exist.
  s = 0;
  EXPECT_NE(0, ZONET_dgramsocket(ZONET_FAMILY_UNIX, &s));
  EXPECT_EQ(ZONET_INVALID_SOCKET, s);
  EXPECT_EQ(ZONET_ERR_INVALID_PARAMETER, ZONET_socket(ZONET_FAMILY_IPV4, nullptr));
  EXPECT_EQ(ZONET_ERR_INVALID_PARAMETER, ZONET_dgramsocket(ZONET_FAMILY_IPV4, nullptr));
  EXPECT_EQ(ZONET_ERR_INVALID_PARAMETER, ZONET_icmpsocket(ZONET_FAMILY_IPV4, nullptr));
}

TEST(Socket, BindListenConnectAcceptOverIpv4) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET listener = ZONET_INVALID_SOCKET, client = ZONET_INVALID_SOCKET, server = ZONET_INVALID_SOCKET;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &listener));
  ZONET_SockAddr addr = socktest::Loopback4();
  ASSERT_EQ(0, ZONET_bind(listener, &addr));
  ASSERT_EQ(0, ZONET_listen(listener, 5));
  ZONET_SockAddr bound;
  ASSERT_EQ(0, ZONET_getsockname(listener, &bound));
  EXPECT_EQ(ZONET_FAMILY_IPV4, bound.family);
  EXPECT_NE(0, bound.ipv4.port);

  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &client));
  ASSERT_EQ(0, ZONET_connect(client, &bound));
  ZONET_SockAddr peer;
  ASSERT_EQ(0, ZONET_accept(listener, &server, &peer));
  ASSERT_NE(ZONET_INVALID_SOCKET, server);
  // The peer's address replaced the listener's own.
  ZONET_SockAddr clientName;
  ASSERT_EQ(0, ZONET_getsockname(client, &clientName));
  EXPECT_EQ(ZONET_FAMILY_IPV4, peer.family);
  EXPECT_EQ(clientName.ipv4.port, peer.ipv4.port);
  EXPECT_EQ(clientName.ipv4.addr, peer.ipv4.addr);
  ZONET_SockAddr serverPeer;
  ASSERT_EQ(0, ZONET_getpeername(server, &serverPeer));
  EXPECT_EQ(clientName.ipv4.port, serverPeer.ipv4.port);

  EXPECT_EQ(0, ZONET_close(client));
  EXPECT_EQ(0, ZONET_close(server));
  EXPECT_EQ(0, ZONET_close(listener));
}

TEST(Socket, BindConnectAcceptOverIpv6) {
  if (!socktest::HasIpv6Loopback()) GTEST_SKIP() << "this host cannot bind ::1";
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET listener, client, server;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV6, &listener));
  ZONET_SockAddr addr = socktest::Loopback6();
  ASSERT_EQ(0, ZONET_bind(listener, &addr));
  ASSERT_EQ(0, ZONET_listen(listener, 5));
  ASSERT_EQ(0, ZONET_getsockname(listener, &addr));
  EXPECT_EQ(ZONET_FAMILY_IPV6, addr.family);
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV6, &client));
  ASSERT_EQ(0, ZONET_connect(client, &addr));
  ZONET_SockAddr peer;
  ASSERT_EQ(0, ZONET_accept(listener, &server, &peer));
  ASSERT_NE(ZONET_INVALID_SOCKET, server);
  EXPECT_EQ(ZONET_FAMILY_IPV6, peer.family);
  EXPECT_EQ(1, peer.ipv6.addr[15]);
  ZONET_close(client);
  ZONET_close(server);
  ZONET_close(listener);
}

TEST(Socket, LocalSocketsKeepTheirPathsAndUnnamedPeersGetNone) {
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  const std::string path = dir.File("s");
  ZONET_SOCKET listener, client, server;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_UNIX, &listener));
  ZONET_SockAddr addr = LocalAddr(path);
  ASSERT_EQ(0, ZONET_bind(listener, &addr));
  ASSERT_EQ(0, ZONET_listen(listener, 5));
  ZONET_SockAddr name;
  ASSERT_EQ(0, ZONET_getsockname(listener, &name));
  EXPECT_EQ(ZONET_FAMILY_UNIX, name.family);
  EXPECT_STREQ(path.c_str(), name.local.path);

  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_UNIX, &client));
  // An unbound local socket: the kernel gives just the family.
  ASSERT_EQ(0, ZONET_getsockname(client, &name));
  EXPECT_EQ(ZONET_FAMILY_UNIX, name.family);
  EXPECT_STREQ("", name.local.path);

  ASSERT_EQ(0, ZONET_connect(client, &addr));
  ZONET_SockAddr peer;
  ASSERT_EQ(0, ZONET_accept(listener, &server, &peer));
  ASSERT_NE(ZONET_INVALID_SOCKET, server);
  // The accepted client is unnamed, so the listener's path that was in the
  // record before is gone.
  EXPECT_EQ(ZONET_FAMILY_UNIX, peer.family);
  EXPECT_STREQ("", peer.local.path);
  ASSERT_EQ(0, ZONET_getpeername(client, &name));
  EXPECT_STREQ(path.c_str(), name.local.path);
  ZONET_close(client);
  ZONET_close(server);
  ZONET_close(listener);
}

TEST(Socket, LocalPathFillingTheWholeAreaComesBackTerminated) {
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  char cwd[4096];
  ASSERT_NE(nullptr, ::getcwd(cwd, sizeof(cwd)));
  ASSERT_EQ(0, ::chdir(dir.Path().c_str()));
  // 108 characters and no room for a terminator: the kernel accepts it as a
  // relative path and gives it back unterminated.
  const std::string name(sizeof(sockaddr_un::sun_path), 'p');
  Fd s(::socket(AF_UNIX, SOCK_STREAM, 0));
  sockaddr_un sun{};
  sun.sun_family = AF_UNIX;
  std::memcpy(sun.sun_path, name.data(), name.size());
  const int bound = ::bind(s.get(), reinterpret_cast<sockaddr*>(&sun), sizeof(sun));
  ASSERT_EQ(0, ::chdir(cwd));
  ASSERT_EQ(0, bound) << std::strerror(errno);
  ZONET_SockAddr addr;
  ASSERT_EQ(0, ZONET_getsockname(s.sock(), &addr));
  EXPECT_EQ(0, addr.bytes[109]);
  EXPECT_EQ(name.substr(0, 107), std::string(addr.local.path));
}

// A failed name query leaves the caller's record as it was, every byte.
TEST(Socket, FailedNameQueriesLeaveTheRecordUntouched) {
  zotest::FdLeakCheck leaks;
  ZONET_SockAddr before;
  std::memset(&before, 0xAB, sizeof(before));
  ZONET_SockAddr addr = before;
  // Not connected: getpeername's ENOTCONN.
  Fd s(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(ENOTCONN, ZONET_getpeername(s.sock(), &addr));
  EXPECT_EQ(0, std::memcmp(&before, &addr, sizeof(addr)));
  // Not a socket: ENOTSOCK from both.
  Fd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(ENOTSOCK, ZONET_getsockname(file.sock(), &addr));
  EXPECT_EQ(0, std::memcmp(&before, &addr, sizeof(addr)));
  EXPECT_EQ(ENOTSOCK, ZONET_getpeername(file.sock(), &addr));
  EXPECT_EQ(0, std::memcmp(&before, &addr, sizeof(addr)));
  // A closed descriptor: EBADF.
  const ZONET_SOCKET closed = s.sock();
  s.reset();
  EXPECT_EQ(EBADF, ZONET_getsockname(closed, &addr));
  EXPECT_EQ(0, std::memcmp(&before, &addr, sizeof(addr)));
  // And accept, whose first step is getsockname, leaves it too.
  ZONET_SOCKET newSock = 42;
  EXPECT_EQ(EBADF, ZONET_accept(closed, &newSock, &addr));
  EXPECT_EQ(0, std::memcmp(&before, &addr, sizeof(addr)));
}

TEST(Socket, AcceptOnASocketNotListeningSucceedsWithAnInvalidHandle) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &s));
  ZONET_SockAddr addr = socktest::Loopback4();
  ASSERT_EQ(0, ZONET_bind(s, &addr));
  ZONET_SOCKET newSock = 42;
  EXPECT_EQ(0, ZONET_accept(s, &newSock, &addr));
  EXPECT_EQ(ZONET_INVALID_SOCKET, newSock);
  ZONET_close(s);
}

TEST(Socket, AcceptOnAClosedSocketGivesTheNameError) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &s));
  ASSERT_EQ(0, ZONET_close(s));
  ZONET_SOCKET newSock = 42;
  ZONET_SockAddr addr;
  EXPECT_EQ(EBADF, ZONET_accept(s, &newSock, &addr));
  EXPECT_EQ(ZONET_INVALID_SOCKET, newSock);
  // Not a socket at all: getsockname's own answer.
  Fd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(ENOTSOCK, ZONET_accept(file.sock(), &newSock, &addr));
}

TEST(Socket, CloseCallsTheCallbackEvenForAnInvalidHandle) {
  zotest::FdLeakCheck leaks;
  g_closed.clear();
  ZONET_setclosecb(OnClose);
  errno = 0;
  EXPECT_EQ(-1, ZONET_close(ZONET_INVALID_SOCKET));
  EXPECT_EQ(EBADF, errno);
  ZONET_SOCKET s;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &s));
  EXPECT_EQ(0, ZONET_close(s));
  ZONET_setclosecb(nullptr);
  EXPECT_EQ(-1, ZONET_close(ZONET_INVALID_SOCKET));
  ASSERT_EQ(2u, g_closed.size());
  EXPECT_EQ(ZONET_INVALID_SOCKET, g_closed[0]);
  EXPECT_EQ(s, g_closed[1]);
}

TEST(Socket, ListenCallsTheCallbackBeforeListening) {
  zotest::FdLeakCheck leaks;
  g_listened.clear();
  ZONET_setlistencb(OnListen);
  ZONET_SOCKET s;
  ASSERT_EQ(0, ZONET_socket(ZONET_FAMILY_IPV4, &s));
  ZONET_SockAddr addr = socktest::Loopback4();
  ASSERT_EQ(0, ZONET_bind(s, &addr));
  EXPECT_EQ(0, ZONET_listen(s, 1));
  ZONET_setlistencb(nullptr);
  ASSERT_EQ(1u, g_listened.size());
  EXPECT_EQ(s, g_listened[0]);
  ZONET_close(s);
}

TEST(Socket, FamilyOfAnInvalidHandleIsMinusOne) {
  zotest::FdLeakCheck leaks;
  EXPECT_EQ(-1, ZONET_getsockfamily(ZONET_INVALID_SOCKET));
  EXPECT_EQ(-1, ZONET_getsockfamily(kNotADescriptor));
  Fd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(-1, ZONET_getsockfamily(file.sock()));
}

TEST(Socket, HandlesThatCannotBeDescriptorsAreBadDescriptors) {
  zotest::FdLeakCheck leaks;
  ZONET_SockAddr addr = socktest::Loopback4();
  ZONET_SOCKET out;
  char buf[4];
  int n = 7, t = 7, v = 0, len = sizeof(v);
  for (ZONET_SOCKET bad : {ZONET_INVALID_SOCKET, kNotADescriptor}) {
    EXPECT_EQ(EBADF, ZONET_bind(bad, &addr));
    EXPECT_EQ(EBADF, ZONET_connect(bad, &addr));
    EXPECT_EQ(EBADF, ZONET_listen(bad, 1));
    EXPECT_EQ(EBADF, ZONET_accept(bad, &out, &addr));
    EXPECT_EQ(EBADF, ZONET_shutdown(bad, SHUT_RDWR));
    EXPECT_EQ(EBADF, ZONET_getsockname(bad, &addr));
    EXPECT_EQ(EBADF, ZONET_getpeername(bad, &addr));
    EXPECT_EQ(EBADF, ZONET_getsockopt(bad, SOL_SOCKET, SO_TYPE, &v, &len));
    EXPECT_EQ(EBADF, ZONET_setsockopt(bad, SOL_SOCKET, SO_REUSEADDR, &v, sizeof(v)));
    EXPECT_EQ(EBADF, ZONET_setnonblocking(bad));
    EXPECT_EQ(EBADF, ZONET_setblocking(bad));
    EXPECT_EQ(EBADF, ZONET_settcpkeepaliveoptions(bad, 10, 5));
    EXPECT_EQ(EBADF, ZONET_send(bad, buf, 4, &n, 0));
    EXPECT_EQ(EBADF, ZONET_recv(bad, buf, 4, &n, 0));
    EXPECT_EQ(EBADF, ZONET_sendwithtimeout(bad, buf, 4, &n, 1, &t, 0));
    EXPECT_EQ(EBADF, ZONET_recvwithtimeout(bad, buf, 4, &n, 1, &t, 0));
    EXPECT_EQ(EBADF, ZONET_sendtoicmpsocket(bad, &addr, buf, 4, &n, 0, 0, &t));
    EXPECT_EQ(EBADF, ZONET_recvfromicmpsocket(bad, &addr, buf, 4, &n, 0, 0, &t));
    EXPECT_EQ(-1, ZONET_close(bad));
  }
}

TEST(Socket, NullPointersGiveInvalidParameter) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  const ZONET_SOCKET s = pair.first.sock();
  ZONET_SockAddr addr = socktest::Loopback4();
  ZONET_SOCKET out;
  char buf[4] = {};
  int n = 0, t = 0, v = 0, len = sizeof(v);
  const int inval = ZONET_ERR_INVALID_PARAMETER;
  EXPECT_EQ(inval, ZONET_bind(s, nullptr));
  EXPECT_EQ(inval, ZONET_connect(s, nullptr));
  EXPECT_EQ(inval, ZONET_accept(s, nullptr, &addr));
  EXPECT_EQ(inval, ZONET_accept(s, &out, nullptr));
  EXPECT_EQ(inval, ZONET_getsockname(s, nullptr));
  EXPECT_EQ(inval, ZONET_getpeername(s, nullptr));
  EXPECT_EQ(inval, ZONET_getsockopt(s, SOL_SOCKET, SO_TYPE, &v, nullptr));
  EXPECT_EQ(inval, ZONET_getsockopt(s, SOL_SOCKET, SO_TYPE, nullptr, &len));
  EXPECT_EQ(inval, ZONET_setsockopt(s, SOL_SOCKET, SO_REUSEADDR, nullptr, sizeof(v)));
  EXPECT_EQ(inval, ZONET_ioctl(s, FIONREAD, nullptr));
  EXPECT_EQ(inval, ZONET_send(s, buf, 4, nullptr, 0));
  EXPECT_EQ(inval, ZONET_send(s, nullptr, 4, &n, 0));
  EXPECT_EQ(inval, ZONET_send(s, buf, -1, &n, 0));
  EXPECT_EQ(inval, ZONET_recv(s, buf, 4, nullptr, 0));
  EXPECT_EQ(inval, ZONET_recv(s, nullptr, 4, &n, 0));
  EXPECT_EQ(inval, ZONET_recv(s, buf, -4, &n, 0));
  EXPECT_EQ(inval, ZONET_sendwithtimeout(s, buf, 4, &n, 1, nullptr, 0));
  EXPECT_EQ(inval, ZONET_sendwithtimeout(s, buf, 4, nullptr, 1, &t, 0));
  EXPECT_EQ(inval, ZONET_recvwithtimeout(s, buf, 4, &n, 1, nullptr, 0));
  EXPECT_EQ(inval, ZONET_recvwithtimeout(s, nullptr, 4, &n, 1, &t, 0));
  EXPECT_EQ(inval, ZONET_sendtoicmpsocket(s, nullptr, buf, 4, &n, 0, 0, &t));
  EXPECT_EQ(inval, ZONET_sendtoicmpsocket(s, &addr, buf, 4, nullptr, 0, 0, &t));
  EXPECT_EQ(inval, ZONET_recvfromicmpsocket(s, nullptr, buf, 4, &n, 0, 0, &t));
  EXPECT_EQ(inval, ZONET_recvfromicmpsocket(s, &addr, buf, 4, &n, 0, 0, nullptr));
  EXPECT_EQ(inval, ZONET_socketpair(nullptr));
  // Nothing was sent by any of them.
  EXPECT_EQ(0, ZONET_setnonblocking(pair.second.sock()));
  EXPECT_EQ(EAGAIN, ZONET_recv(pair.second.sock(), buf, 1, &n, 0));
}

TEST(Socket, OptionsIoctlAndBlockingMode) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  const ZONET_SOCKET a = pair.first.sock(), b = pair.second.sock();
  int on = 1;
  EXPECT_EQ(0, ZONET_setsockopt(a, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)));
  int value = 0, len = sizeof(value);
  EXPECT_EQ(0, ZONET_getsockopt(a, IPPROTO_TCP, TCP_NODELAY, &value, &len));
  EXPECT_NE(0, value);
  EXPECT_EQ(static_cast<int>(sizeof(value)), len);
  EXPECT_EQ(ENOPROTOOPT, ZONET_getsockopt(a, SOL_SOCKET, 99999, &value, &len));

  int sent = 0;
  ASSERT_EQ(0, ZONET_send(a, "hello", 5, &sent, 0));
  // Wait for the bytes to arrive, then count them.
  char c;
  int got = 0;
  ASSERT_EQ(0, ZONET_recv(b, &c, 1, &got, MSG_PEEK));
  int pending = 0;
  EXPECT_EQ(0, ZONET_ioctl(b, FIONREAD, &pending));
  EXPECT_EQ(5, pending);

  EXPECT_EQ(0, ZONET_setnonblocking(b));
  EXPECT_NE(0, ::fcntl(b, F_GETFL) & O_NONBLOCK);
  char buf[16];
  EXPECT_EQ(0, ZONET_recv(b, buf, 5, &got, 0));
  EXPECT_EQ(EAGAIN, ZONET_recv(b, buf, 1, &got, 0));
  EXPECT_EQ(0, got);
  EXPECT_EQ(0, ZONET_setblocking(b));
  EXPECT_EQ(0, ::fcntl(b, F_GETFL) & O_NONBLOCK);
}

TEST(Socket, KeepAliveOptionsAreTheSystemsSeconds) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  const ZONET_SOCKET a = pair.first.sock();
  ASSERT_EQ(0, ZONET_settcpkeepaliveoptions(a, 30, 7));
  int v = 0, len = sizeof(v);
  ASSERT_EQ(0, ZONET_getsockopt(a, SOL_SOCKET, SO_KEEPALIVE, &v, &len));
  EXPECT_NE(0, v);
  ASSERT_EQ(0, ZONET_getsockopt(a, IPPROTO_TCP, TCP_KEEPIDLE, &v, &len));
  EXPECT_EQ(30, v);
  ASSERT_EQ(0, ZONET_getsockopt(a, IPPROTO_TCP, TCP_KEEPINTVL, &v, &len));
  EXPECT_EQ(7, v);
  EXPECT_EQ(EINVAL, ZONET_settcpkeepaliveoptions(a, 0, 7));
}

TEST(Socket, ShutdownOfTheSendingSideIsSeenAsAShortCount) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  ASSERT_EQ(0, ZONET_shutdown(pair.first.sock(), SHUT_WR));
  char buf[8];
  int got = -1;
  EXPECT_EQ(0, ZONET_recv(pair.second.sock(), buf, 8, &got, 0));
  EXPECT_EQ(0, got);
  EXPECT_EQ(EINVAL, ZONET_shutdown(pair.first.sock(), 99));
}

TEST(Socket, SendAndRecvMoveEveryByteInOrder) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  std::vector<char> data(4 << 20);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + i / 251);
  std::vector<char> got(data.size());
  int received = 0, recvResult = -1;
  std::thread reader([&] {
    recvResult = ZONET_recv(pair.second.sock(), got.data(), static_cast<int>(got.size()), &received, 0);
  });
  int sent = 0;
  EXPECT_EQ(0, ZONET_send(pair.first.sock(), data.data(), static_cast<int>(data.size()), &sent, 0));
  reader.join();
  EXPECT_EQ(static_cast<int>(data.size()), sent);
  EXPECT_EQ(0, recvResult);
  EXPECT_EQ(static_cast<int>(data.size()), received);
  EXPECT_TRUE(data == got);
}

TEST(Socket, ZeroLengthReturnsAtOnceWithoutTouchingTheSocket) {
  zotest::FdLeakCheck leaks;
  char buf[1];
  int n = 99, t = 99;
  // An invalid handle would fail at once if it were used.
  EXPECT_EQ(0, ZONET_send(ZONET_INVALID_SOCKET, buf, 0, &n, 0));
  EXPECT_EQ(0, n);
  n = 99;
  EXPECT_EQ(0, ZONET_recv(ZONET_INVALID_SOCKET, nullptr, 0, &n, 0));
  EXPECT_EQ(0, n);
  n = 99;
  EXPECT_EQ(0, ZONET_sendwithtimeout(ZONET_INVALID_SOCKET, buf, 0, &n, 5, &t, 0));
  EXPECT_EQ(0, n);
  EXPECT_EQ(0, t);
  n = 99, t = 99;
  EXPECT_EQ(0, ZONET_recvwithtimeout(ZONET_INVALID_SOCKET, buf, 0, &n, 5, &t, 0));
  EXPECT_EQ(0, n);
  EXPECT_EQ(0, t);
}

TEST(Socket, PeerSendingHalfAndClosingGivesSuccessWithHalf) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  int sent = 0;
  ASSERT_EQ(0, ZONET_send(pair.first.sock(), "12345", 5, &sent, 0));
  pair.first.reset();
  char buf[10];
  int received = -1;
  // A peek of more than is there ends too, once the peer is known to be gone.
  EXPECT_EQ(0, ZONET_recv(pair.second.sock(), buf, 10, &received, MSG_PEEK));
  EXPECT_EQ(5, received);
  received = -1;
  EXPECT_EQ(0, ZONET_recv(pair.second.sock(), buf, 10, &received, 0));
  EXPECT_EQ(5, received);
  EXPECT_EQ(0, std::memcmp(buf, "12345", 5));
}

namespace {

// What a 10-byte peek at a fresh pair's accepting end gives after the other
// end sent "1234" and went away as goAway makes it go, by ZONET_recv or by
// ZONET_recvwithtimeout (which must not call that a time-out).
struct PeekOutcome {
  int rc = -1;
  int received = -1;
};
void PeekAfterThePeerGoes(bool timed, const std::function<void(Fd& sender)>& goAway, PeekOutcome* out) {
  auto pair = socktest::TcpPair();
  int sent = 0;
  ASSERT_EQ(0, ZONET_send(pair.first.sock(), "1234", 4, &sent, 0));
  ASSERT_NO_FATAL_FAILURE(goAway(pair.first));
  char buf[10];
  int timedOut = -1;
  out->rc = timed ? ZONET_recvwithtimeout(pair.second.sock(), buf, 10, &out->received, 5, &timedOut, MSG_PEEK)
                  : ZONET_recv(pair.second.sock(), buf, 10, &out->received, MSG_PEEK);
  if (timed) {
    EXPECT_EQ(0, timedOut);
  }
}

}  // namespace

// A peer that resets the connection (an abortive close) is an error, not an
// orderly end: the repeated peek gives the receive's ECONNRESET, in both the
// plain and the timed form.
TEST(Socket, PeekOfResetConnectionGivesTheResetError) {
  zotest::FdLeakCheck leaks;
  for (int timed = 0; timed < 2; ++timed) {
    SCOPED_TRACE(timed ? "ZONET_recvwithtimeout" : "ZONET_recv");
    PeekOutcome peek;
    ASSERT_NO_FATAL_FAILURE(PeekAfterThePeerGoes(timed, [](Fd& sender) {
      const linger abortive = {1, 0};
      ASSERT_EQ(0, ::setsockopt(sender.get(), SOL_SOCKET, SO_LINGER, &abortive, sizeof(abortive)));
      sender.reset();
    }, &peek));
    EXPECT_EQ(ECONNRESET, peek.rc);
  }
}

// The orderly counterpart: a peer that shuts down after 4 of 10 bytes ends
// the peek with success and the short count, in both forms.
TEST(Socket, PeekOfShutDownPeerGivesShortCount) {
  zotest::FdLeakCheck leaks;
  for (int timed = 0; timed < 2; ++timed) {
    SCOPED_TRACE(timed ? "ZONET_recvwithtimeout" : "ZONET_recv");
    PeekOutcome peek;
    ASSERT_NO_FATAL_FAILURE(PeekAfterThePeerGoes(
        timed, [](Fd& sender) { ASSERT_EQ(0, ::shutdown(sender.get(), SHUT_WR)); }, &peek));
    EXPECT_EQ(0, peek.rc);
    EXPECT_EQ(4, peek.received);
  }
}

TEST(Socket, PeekRepeatsUntilAllBytesCanBePeeked) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  int sent = 0;
  ASSERT_EQ(0, ZONET_send(pair.first.sock(), "abcd", 4, &sent, 0));
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    int n = 0;
    ZONET_send(pair.first.sock(), "efghij", 6, &n, 0);
  });
  char buf[10];
  int received = 0;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(0, ZONET_recv(pair.second.sock(), buf, 10, &received, MSG_PEEK));
  late.join();
  EXPECT_GE(socktest::SecondsSince(start), 0.1);
  EXPECT_EQ(10, received);
  EXPECT_EQ(0, std::memcmp(buf, "abcdefghij", 10));
  // A peek takes nothing out.
  char again[10];
  EXPECT_EQ(0, ZONET_recv(pair.second.sock(), again, 10, &received, 0));
  EXPECT_EQ(0, std::memcmp(again, "abcdefghij", 10));
}

TEST(Socket, NonBlockingSendGivesWouldBlockAtOnce) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  ASSERT_EQ(0, ZONET_setnonblocking(pair.first.sock()));
  std::vector<char> data(64 << 20);
  int sent = 0;
  EXPECT_EQ(EAGAIN, ZONET_send(pair.first.sock(), data.data(), static_cast<int>(data.size()), &sent, 0));
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<int>(data.size()));
}

TEST(Socket, SendingToAGonePeerGivesEpipeAndNoSignal) {
  zotest::FdLeakCheck leaks;
  struct sigaction before {};
  ASSERT_EQ(0, ::sigaction(SIGPIPE, nullptr, &before));
  ASSERT_EQ(SIG_DFL, before.sa_handler) << "the test needs SIGPIPE at its default, which ends the process";

  int sv[2];
  ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv));
  Fd a(sv[0]);
  ::close(sv[1]);
  int sent = -1;
  EXPECT_EQ(EPIPE, ZONET_send(a.sock(), "x", 1, &sent, 0));
  EXPECT_EQ(0, sent);
  int t = 0;
  EXPECT_EQ(EPIPE, ZONET_sendwithtimeout(a.sock(), "x", 1, &sent, 1, &t, 0));

  // Over TCP the first send may still go out before the reset comes back.
  auto pair = socktest::TcpPair();
  pair.second.reset();
  int rc = 0;
  for (int i = 0; i < 100 && rc == 0; ++i) rc = ZONET_send(pair.first.sock(), "y", 1, &sent, 0);
  EXPECT_TRUE(rc == EPIPE || rc == ECONNRESET) << rc;

  struct sigaction after {};
  ASSERT_EQ(0, ::sigaction(SIGPIPE, nullptr, &after));
  EXPECT_EQ(SIG_DFL, after.sa_handler);
}

TEST(Socket, RecvWithTimeoutZeroBlocksLikeRecv) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  std::thread late([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    int n = 0;
    ZONET_send(pair.first.sock(), "0123456789", 10, &n, 0);
  });
  char buf[10];
  int received = 0, timedOut = 7;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(0, ZONET_recvwithtimeout(pair.second.sock(), buf, 10, &received, 0, &timedOut, 0));
  late.join();
  EXPECT_GE(socktest::SecondsSince(start), 0.15);
  EXPECT_EQ(10, received);
  EXPECT_EQ(0, timedOut);
}

TEST(Socket, TimeOutFunctionsMoveDataThatIsReady) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  std::vector<char> data(1 << 20, 'z');
  std::vector<char> got(data.size());
  int received = 0, recvTimedOut = 7, recvResult = -1;
  std::thread reader([&] {
    recvResult = ZONET_recvwithtimeout(pair.second.sock(), got.data(), static_cast<int>(got.size()), &received, 5,
                                       &recvTimedOut, 0);
  });
  int sent = 0, timedOut = 7;
  EXPECT_EQ(0, ZONET_sendwithtimeout(pair.first.sock(), data.data(), static_cast<int>(data.size()), &sent, 5,
                                     &timedOut, 0));
  reader.join();
  EXPECT_EQ(static_cast<int>(data.size()), sent);
  EXPECT_EQ(0, timedOut);
  EXPECT_EQ(0, recvResult);
  EXPECT_EQ(static_cast<int>(data.size()), received);
  EXPECT_EQ(0, recvTimedOut);
  EXPECT_TRUE(data == got);

  // A peer that closes ends the wait with a short count and no time-out.
  ASSERT_EQ(0, ZONET_send(pair.first.sock(), "ab", 2, &sent, 0));
  pair.first.reset();
  char buf[8];
  EXPECT_EQ(0, ZONET_recvwithtimeout(pair.second.sock(), buf, 8, &received, 5, &recvTimedOut, 0));
  EXPECT_EQ(2, received);
  EXPECT_EQ(0, recvTimedOut);
}

TEST(Socket, SelectReportsReadySockets) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  const int fd = pair.second.get();
  fd_set rd;
  FD_ZERO(&rd);
  FD_SET(fd, &rd);
  struct timeval tv = {0, 0};
  int ready = -1;
  EXPECT_EQ(0, ZONET_select(fd + 1, &rd, nullptr, nullptr, &tv, &ready));
  EXPECT_EQ(0, ready);
  int sent = 0;
  ASSERT_EQ(0, ZONET_send(pair.first.sock(), "!", 1, &sent, 0));
  FD_SET(fd, &rd);
  tv.tv_sec = 5;
  EXPECT_EQ(0, ZONET_select(fd + 1, &rd, nullptr, nullptr, &tv, nullptr));
  EXPECT_TRUE(FD_ISSET(fd, &rd));
  EXPECT_EQ(EINVAL, ZONET_select(-1, nullptr, nullptr, nullptr, &tv, &ready));
}

TEST(Socket, SelectOverSetsCoversAnyNfds) {
  zotest::FdLeakCheck leaks;
  auto pair = socktest::TcpPair();
  xnfdset_t rd, wr;
  xnfdset_alloc(0, &rd);
  xnfdset_alloc(0, &wr);
  ASSERT_EQ(0, xnfdset_set(pair.second.sock(), &rd));
  ASSERT_EQ(0, xnfdset_set(pair.first.sock(), &wr));
  int sent = 0;
  ASSERT_EQ(0, ZONET_send(pair.first.sock(), "!", 1, &sent, 0));
  struct timeval tv = {5, 0};
  int ready = 0;
  // Far more bits than either mask holds: the sets grow to take them.
  EXPECT_EQ(0, ZONET_selectfdsets(3000, &rd, &wr, nullptr, &tv, &ready));
  EXPECT_EQ(2, ready);
  EXPECT_GE(rd.mask_bits, 3000u);
  EXPECT_EQ(1, xnfdset_isset(pair.second.sock(), &rd));
  EXPECT_EQ(1, xnfdset_isset(pair.first.sock(), &wr));
  xnfdset_free(&rd);
  EXPECT_EQ(ZONET_ERR_INVALID_PARAMETER, ZONET_selectfdsets(10, &rd, &wr, nullptr, &tv, &ready));
  xnfdset_free(&wr);
}

// The ICMP calls are plain sendto and recvfrom: UDP shows their addressing
// without needing raw sockets. A datagram goes out at once, another after
// waiting for the socket, and both come back with the sender's address.
void DatagramRoundTrip(int family, const ZONET_SockAddr& loopback) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET rx, tx;
  ASSERT_EQ(0, ZONET_dgramsocket(family, &rx));
  ASSERT_EQ(0, ZONET_dgramsocket(family, &tx));
  ZONET_SockAddr addr = loopback;
  ASSERT_EQ(0, ZONET_bind(rx, &addr));
  ASSERT_EQ(0, ZONET_getsockname(rx, &addr));
  int sent = 0, t = 7;
  ASSERT_EQ(0, ZONET_sendtoicmpsocket(tx, &addr, "ping", 4, &sent, 0, 0, &t));
  EXPECT_EQ(4, sent);
  EXPECT_EQ(0, t);
  ASSERT_EQ(0, ZONET_sendtoicmpsocket(tx, &addr, "pong!", 5, &sent, 0, 3, &t));
  EXPECT_EQ(5, sent);
  ZONET_SockAddr txName;
  ASSERT_EQ(0, ZONET_getsockname(tx, &txName));
  const char* expected[] = {"ping", "pong!"};
  for (int i = 0; i < 2; ++i) {
    ZONET_SockAddr from = loopback;
    char buf[16];
    int received = 0;
    t = 7;
    ASSERT_EQ(0, ZONET_recvfromicmpsocket(rx, &from, buf, sizeof(buf), &received, 0, i * 3, &t));
    EXPECT_EQ(0, t);
    ASSERT_EQ(static_cast<int>(std::strlen(expected[i])), received);
    EXPECT_EQ(0, std::memcmp(buf, expected[i], received));
    EXPECT_EQ(family, from.family);
    EXPECT_EQ(ZONET_getport(&txName), ZONET_getport(&from));
  }
  ZONET_close(rx);
  ZONET_close(tx);
}

TEST(Socket, DatagramsGoThroughTheIcmpCallsOverIpv4) { DatagramRoundTrip(ZONET_FAMILY_IPV4, socktest::Loopback4()); }

TEST(Socket, Ipv6DatagramsUseTheWholeRecordAsAddressLength) {
  if (!socktest::HasIpv6Loopback()) GTEST_SKIP() << "this host cannot bind ::1";
  // 112 bytes of address: Linux takes any length from sockaddr_in6's up.
  DatagramRoundTrip(ZONET_FAMILY_IPV6, socktest::Loopback6());
}
