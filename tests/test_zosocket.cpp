// CZoSocket and CZoSocketDescriptor, against real loopback peers.
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoNetSocket.h"
#include "ZoNetwork/ZoSocket.h"
#include "flat/FlatInternal.h"
#include "support/TestSupport.h"
#include "support/ZoSocketTestSupport.h"

namespace {

using zotest::HasMessage;
using zotest::IsState;
using zotest::IsSystem;
using zotest::Loopback4;

bool FdIsOpen(uint64_t handle) { return fcntl(static_cast<int>(handle), F_GETFD) != -1; }

// A connected TCP pair through a listener that is closed again.
void Connected(CZoSocket& client, CZoSocket& server) {
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  ASSERT_FALSE(client.Connect(where).IsError());
  ASSERT_FALSE(listener.Accept(server).IsError());
  ASSERT_TRUE(server.IsValid());
  listener.Close();
}

bool WaitReadable(uint64_t handle, int ms = 2000) {
  pollfd p{};
  p.fd = static_cast<int>(handle);
  p.events = POLLIN;
  return poll(&p, 1, ms) == 1;
}

// Counts closes through the flat layer's close callback.
int g_closes = 0;
void CountClose(ZONET_SOCKET) { ++g_closes; }

}  // namespace

// ============================================================ descriptor

TEST(SocketDescriptor, DefaultIsInvalidAndAllOnesIsTheOnlyInvalidValue) {
  CZoSocketDescriptor none;
  EXPECT_FALSE(none.IsValid());
  EXPECT_EQ(static_cast<uint64_t>(none), ZONET_INVALID_SOCKET);
  EXPECT_TRUE(CZoSocketDescriptor::IsValid(0));
  EXPECT_TRUE(CZoSocketDescriptor::IsValid(ZONET_INVALID_SOCKET - 1));
  EXPECT_FALSE(CZoSocketDescriptor::IsValid(ZONET_INVALID_SOCKET));
  const CZoSocketDescriptor three(3);
  EXPECT_TRUE(three.IsValid());
  EXPECT_EQ(static_cast<uint64_t>(three), 3u);
}

TEST(SocketDescriptor, AddressOfGivesTheHandleForAFlatCallToFill) {
  zotest::FdLeakCheck leaks;
  CZoSocketDescriptor handle;
  ASSERT_EQ(ZONET_socket(ZONET_FAMILY_IPV4, &handle), 0);
  EXPECT_TRUE(handle.IsValid());
  EXPECT_TRUE(FdIsOpen(handle));
  ZONET_close(handle);
}

// "0x%p" as the designed platform prints it: "0x" and 16 upper-case
// hexadecimal digits, never glibc's "0x0x1a" or "0x(nil)".
TEST(SocketDescriptor, AsStringIs0xAndSixteenUpperCaseHexDigits) {
  EXPECT_EQ(CZoSocketDescriptor::AsString(0x1a), "0x000000000000001A");
  EXPECT_EQ(CZoSocketDescriptor(0x1a).AsString(), "0x000000000000001A");
  EXPECT_EQ(CZoSocketDescriptor::AsString(0), "0x0000000000000000");
  EXPECT_EQ(CZoSocketDescriptor::AsString(0xabcdef0123456789ULL), "0xABCDEF0123456789");
  EXPECT_EQ(CZoSocketDescriptor().AsString(), "0xFFFFFFFFFFFFFFFF");
}

TEST(SocketDescriptor, DestroyingOrOverwritingNeverCloses) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET raw = ZONET_INVALID_SOCKET;
  ASSERT_EQ(ZONET_socket(ZONET_FAMILY_IPV4, &raw), 0);
  {
    CZoSocketDescriptor a(raw);
    CZoSocketDescriptor b;
    b = a;
    a = CZoSocketDescriptor();
  }
  EXPECT_TRUE(FdIsOpen(raw));
  ZONET_close(raw);
}

// ============================================================ ownership and operators

TEST(ZoSocket, DestroyingAnOpenSocketLeavesItOpenForItsCopies) {
  zotest::FdLeakCheck leaks;
  CZoSocket keeper;
  {
    CZoSocket owner;
    ASSERT_FALSE(owner.Socket(Loopback4()).IsError());
    keeper = owner;
  }
  ASSERT_TRUE(keeper.IsValid());
  EXPECT_TRUE(FdIsOpen(keeper.GetSocketDescriptor()));
  // Still a working socket through the copy.
  ASSERT_FALSE(keeper.Bind(Loopback4()).IsError());
  EXPECT_EQ(keeper.GetLocalAddressString(), "127.0.0.1");
  keeper.Close();
  EXPECT_FALSE(keeper.IsValid());
}

TEST(ZoSocket, CopiesShareOneHandleAndCloseOfOneLeavesTheOtherDead) {
  zotest::FdLeakCheck leaks;
  CZoSocket a;
  ASSERT_FALSE(a.Socket(Loopback4()).IsError());
  CZoSocket b(a);
  EXPECT_EQ(static_cast<uint64_t>(a.GetSocketDescriptor()), static_cast<uint64_t>(b.GetSocketDescriptor()));
  a.Close();
  EXPECT_FALSE(a.IsValid());
  // b still holds the number, but the system no longer knows it.
  EXPECT_TRUE(b.IsValid());
  CZoIPAddr addr;
  EXPECT_TRUE(IsSystem(b.GetLocalAddress(addr), EBADF, "CZoSocket::GetLocalAddress"));
}

TEST(ZoSocket, AssignedCopyEqualsItsSourceButTwoInvalidSocketsDiffer) {
  zotest::FdLeakCheck leaks;
  CZoSocket a;
  CZoSocket b;
  EXPECT_FALSE(a == b);
  EXPECT_TRUE(a != b);
  EXPECT_FALSE(a == a);
  ASSERT_FALSE(b.Socket(Loopback4()).IsError());
  a = b;
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  // Only the right side's validity counts.
  CZoSocket invalid;
  EXPECT_FALSE(a == invalid);
  EXPECT_FALSE(invalid == a);
  b.Close();
}

TEST(ZoSocket, InvalidSocketIsEquivalentToEverySocketInTheOrdering) {
  zotest::FdLeakCheck leaks;
  CZoSocket x;
  CZoSocket y;
  ASSERT_FALSE(x.Socket(Loopback4()).IsError());
  ASSERT_FALSE(y.Socket(Loopback4()).IsError());
  const bool xFirst = static_cast<uint64_t>(x.GetSocketDescriptor()) < static_cast<uint64_t>(y.GetSocketDescriptor());
  EXPECT_EQ(x < y, xFirst);
  EXPECT_EQ(y < x, !xFirst);
  EXPECT_FALSE(x < x);

  CZoSocket invalid;
  EXPECT_FALSE(x < invalid);
  // All ones is the largest value, so the invalid one is not smaller either.
  EXPECT_FALSE(invalid < x);
  EXPECT_FALSE(invalid < invalid);

  std::set<CZoSocket> set;
  set.insert(x);
  set.insert(y);
  EXPECT_EQ(set.size(), 2u);
  // Equivalent to what is there: not added.
  set.insert(invalid);
  EXPECT_EQ(set.size(), 2u);
  EXPECT_NE(set.find(invalid), set.end());
  x.Close();
  y.Close();
}

TEST(ZoSocket, AssigningAnAddressForgetsAnOpenHandleWithoutClosingIt) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.Socket(Loopback4()).IsError());
  const uint64_t handle = s.GetSocketDescriptor();

  s = "127.0.0.1";
  EXPECT_FALSE(s.IsValid());
  EXPECT_TRUE(FdIsOpen(handle));

  CZoSocket t;
  t.AttachConnectedSocket(handle);
  t = Loopback4();
  EXPECT_FALSE(t.IsValid());
  t.AttachConnectedSocket(handle);
  t = Loopback4().GetIPv4SockAddr();
  EXPECT_FALSE(t.IsValid());
  t.AttachConnectedSocket(handle);
  CZoIPAddr six;
  ASSERT_FALSE(six.SetAddressString("::1").IsError());
  t = six.GetIPv6SockAddr();
  EXPECT_FALSE(t.IsValid());
  EXPECT_TRUE(FdIsOpen(handle));
  ZONET_close(handle);
}

TEST(ZoSocket, ConstructorsFromAnAddressStartInvalid) {
  zotest::FdLeakCheck leaks;
  CZoIPAddr six;
  ASSERT_FALSE(six.SetAddressString("::1").IsError());
  EXPECT_FALSE(CZoSocket().IsValid());
  EXPECT_FALSE(CZoSocket("127.0.0.1").IsValid());
  EXPECT_FALSE(CZoSocket(Loopback4()).IsValid());
  EXPECT_FALSE(CZoSocket(Loopback4().GetIPv4SockAddr()).IsValid());
  EXPECT_FALSE(CZoSocket(six.GetIPv6SockAddr()).IsValid());
}

// The address an object carries is where a datagram of SendtoICMPSocket goes;
// a datagram socket shows it without raw-socket rights, as Socket and
// DgramSocket leave the address alone.
TEST(ZoSocket, AddressGivenAtConstructionIsTheDestinationOfADatagram) {
  zotest::FdLeakCheck leaks;
  CZoSocket receiver;
  ASSERT_FALSE(receiver.DgramSocket(Loopback4()).IsError());
  ASSERT_FALSE(receiver.Bind(Loopback4()).IsError());
  CZoIPAddr where;
  ASSERT_FALSE(receiver.GetLocalAddress(where).IsError());

  CZoSocket sender(where);
  ASSERT_FALSE(sender.DgramSocket(where).IsError());
  int timedOut = 0;
  int sent = 0;
  ASSERT_FALSE(sender.SendtoICMPSocket("hello", 5, 0, &timedOut, 0, &sent).IsError());
  EXPECT_EQ(sent, 5);

  char buffer[16] = {};
  int received = 0;
  ASSERT_TRUE(WaitReadable(receiver.GetSocketDescriptor()));
  ASSERT_FALSE(receiver.Recv(buffer, 5, 0, &received).IsError());
  EXPECT_EQ(std::string(buffer, 5), "hello");
  sender.Close();
  receiver.Close();
}

TEST(ZoSocket, ReceivedDatagramsSenderBecomesTheObjectsAddress) {
  zotest::FdLeakCheck leaks;
  CZoSocket a;
  CZoSocket b;
  ASSERT_FALSE(a.DgramSocket(Loopback4()).IsError());
  ASSERT_FALSE(a.Bind(Loopback4()).IsError());
  ASSERT_FALSE(b.DgramSocket(Loopback4()).IsError());
  ASSERT_FALSE(b.Bind(Loopback4()).IsError());
  CZoIPAddr whereA;
  CZoIPAddr whereB;
  ASSERT_FALSE(a.GetLocalAddress(whereA).IsError());
  ASSERT_FALSE(b.GetLocalAddress(whereB).IsError());

  // b learns a's address only from what it receives.
  CZoSocket toB;
  toB.AttachConnectedSocket(a.GetSocketDescriptor(), whereB);
  int timedOut = 0;
  int count = 0;
  ASSERT_FALSE(toB.SendtoICMPSocket("ping", 4, 0, &timedOut, 0, &count).IsError());

  char buffer[16] = {};
  ASSERT_FALSE(b.RecvfromICMPSocket(buffer, sizeof buffer, 2, &timedOut, 0, &count).IsError());
  EXPECT_EQ(timedOut, 0);
  EXPECT_EQ(std::string(buffer, count), "ping");
  ASSERT_FALSE(b.SendtoICMPSocket("pong", 4, 0, &timedOut, 0, &count).IsError());

  ASSERT_TRUE(WaitReadable(a.GetSocketDescriptor()));
  ASSERT_FALSE(a.Recv(buffer, 4, 0, &count).IsError());
  EXPECT_EQ(std::string(buffer, 4), "pong");
  a.Close();
  b.Close();
}

TEST(ZoSocket, DummyIsAnInvalidSocket) {
  zotest::FdLeakCheck leaks;
  CZoSocket d = CZoSocket::Dummy();
  EXPECT_FALSE(d.IsValid());
  EXPECT_TRUE(d != CZoSocket::Dummy());
}

TEST(ZoSocket, ShutdownAndCloseOfANeverOpenedObjectDoNothing) {
  zotest::FdLeakCheck leaks;
  g_closes = 0;
  ZONET_setclosecb(CountClose);
  CZoSocket never;
  EXPECT_FALSE(never.Shutdown(SHUT_RDWR).IsError());
  never.Close();
  ZONET_setclosecb(nullptr);
  EXPECT_EQ(g_closes, 0);
  EXPECT_FALSE(never.IsValid());
}

TEST(ZoSocket, ClearAndAttachNeverClose) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.Socket(Loopback4()).IsError());
  const uint64_t handle = s.GetSocketDescriptor();
  s.Clear();
  EXPECT_FALSE(s.IsValid());
  EXPECT_TRUE(FdIsOpen(handle));
  s.AttachConnectedSocket(handle);
  EXPECT_EQ(static_cast<uint64_t>(s.GetSocketDescriptor()), handle);
  s.Close();
  EXPECT_FALSE(FdIsOpen(handle));
}

TEST(ZoSocket, SetFastLoopBackWritesTheSwitchAndConnectionsStillWork) {
  zotest::FdLeakCheck leaks;
  EXPECT_FALSE(CZoSocket::bEnableLoopBack);
  CZoSocket::SetFastLoopBack(true);
  EXPECT_TRUE(CZoSocket::bEnableLoopBack);
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  CZoSocket::SetFastLoopBack(false);
  EXPECT_FALSE(CZoSocket::bEnableLoopBack);
  int count = 0;
  ASSERT_FALSE(client.Send("x", 1, 0, &count).IsError());
  char c = 0;
  ASSERT_FALSE(server.Recv(&c, 1, 0, &count).IsError());
  EXPECT_EQ(c, 'x');
  client.Close();
  server.Close();
}

// ============================================================ state errors

TEST(ZoSocket, EveryOperationOnAnInvalidHandleSaysNotAValidSocket) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  char buffer[4] = {};
  int count = 0;
  int timedOut = 0;
  CZoIPAddr addr;
  int length = sizeof buffer;
  unsigned queued = 0;
  EXPECT_TRUE(IsState(s.Recv(buffer, 4, 0, &count), "CZoSocket::Recv", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.Send(buffer, 4, 0, &count), "CZoSocket::Send", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.RecvWithTimeout(buffer, 4, 1, &timedOut, 0, &count), "CZoSocket::RecvWithTimeout",
                      "Not a valid socket"));
  // The handle is looked at before the pointer.
  EXPECT_TRUE(IsState(s.RecvWithTimeout(buffer, 4, 1, nullptr, 0, &count), "CZoSocket::RecvWithTimeout",
                      "Not a valid socket"));
  EXPECT_TRUE(IsState(s.SendWithTimeOut(buffer, 4, 1, &timedOut, 0, &count), "CZoSocket::SendWithTimeOut",
                      "Not a valid socket"));
  EXPECT_TRUE(IsState(s.SendtoICMPSocket(buffer, 4, 1, &timedOut, 0, &count), "CZoSocket::SendtoICMPSocket",
                      "Not a valid socket"));
  EXPECT_TRUE(IsState(s.RecvfromICMPSocket(buffer, 4, 1, &timedOut, 0, &count), "CZoSocket::RecvfromICMPSocket",
                      "Not a valid socket"));
  EXPECT_TRUE(IsState(s.GetLocalAddress(addr), "CZoSocket::GetLocalAddress", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.GetPeerAddress(addr), "CZoSocket::GetPeerAddress", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.GetSockOpt(SOL_SOCKET, SO_TYPE, buffer, &length), "CZoSocket::GetSockOpt",
                      "Not a valid socket"));
  EXPECT_TRUE(IsState(s.SetSockOpt(SOL_SOCKET, SO_TYPE, buffer, 4), "CZoSocket::SetSockOpt", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.SetToBlocking(), "CZoSocket::SetToBlocking", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.SetToNonBlocking(), "CZoSocket::SetToNonBlocking", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.NagleOff(), "CZoSocket::SetSockOpt", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.NagleOn(), "CZoSocket::SetSockOpt", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.GetReadQueueLen(&queued), "CZoSocket::GetReadQueueLen", "Not a valid socket"));
  EXPECT_TRUE(IsState(s.Listen(5), "CZoSocket::Listen", "Not a bound socket"));
  EXPECT_EQ(s.GetLocalAddressString(), "");
  EXPECT_EQ(s.GetPeerAddressString(), "");
  // The flat answer for a handle it cannot read, as it is.
  EXPECT_EQ(static_cast<int>(s.GetAddressFamily()), -1);
}

// The family is the system's answer as it is: -1 for a handle that cannot be
// read, and a family the library does not speak keeps its own number.
TEST(ZoSocket, GetAddressFamilyGivesTheFlatAnswerAsItIs) {
  zotest::FdLeakCheck leaks;
  EXPECT_TRUE((std::is_same<std::underlying_type<CZoIPAddr::IP_FAMILY>::type, int>::value));
  CZoSocket closed;
  EXPECT_EQ(static_cast<int>(closed.GetAddressFamily()), -1);
  // A descriptor that is no socket.
  const int file = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(file, 0);
  CZoSocket notSocket;
  notSocket.AttachConnectedSocket(static_cast<uint64_t>(file));
  EXPECT_EQ(static_cast<int>(notSocket.GetAddressFamily()), -1);
  ::close(file);
  // A routing socket: a family of the kernel's that is none of the four.
  const int route = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (route < 0) GTEST_SKIP() << "no netlink socket here: " << std::strerror(errno);
  CZoSocket netlink;
  netlink.AttachConnectedSocket(static_cast<uint64_t>(route));
  EXPECT_EQ(static_cast<int>(netlink.GetAddressFamily()), AF_NETLINK);
  EXPECT_EQ(static_cast<int>(netlink.GetAddressFamily()), ZONET_getsockfamily(static_cast<ZONET_SOCKET>(route)));
  netlink.Close();
}

TEST(ZoSocket, OpeningAnOpenObjectSaysSocketAlreadyInUse) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.Socket(Loopback4()).IsError());
  const uint64_t handle = s.GetSocketDescriptor();
  EXPECT_TRUE(IsState(s.Socket(Loopback4()), "CZoSocket::Socket", "Socket already in use"));
  EXPECT_TRUE(IsState(s.DgramSocket(Loopback4()), "CZoSocket::DgramSocket", "Socket already in use"));
  EXPECT_TRUE(IsState(s.ICMPSocket(Loopback4(), CZoIPAddr::IP_FAMILY_IPV4), "CZoSocket::ICMPSocket",
                      "Socket already in use"));
  EXPECT_EQ(static_cast<uint64_t>(s.GetSocketDescriptor()), handle);
  s.Close();
}

TEST(ZoSocket, AcceptComplainsAboutAnOpenOutputObjectBeforeItsOwnHandle) {
  zotest::FdLeakCheck leaks;
  CZoSocket notListening;
  CZoSocket open;
  ASSERT_FALSE(open.Socket(Loopback4()).IsError());
  EXPECT_TRUE(IsState(notListening.Accept(open), "CZoSocket::Accept",
                      "Output socket object is already a connected socket"));
  CZoSocket fresh;
  EXPECT_TRUE(IsState(notListening.Accept(fresh), "CZoSocket::Accept", "Not a listening socket"));
  open.Close();
}

// ============================================================ opening, binding, connecting

TEST(ZoSocket, SocketAndDgramSocketOpenTheFamilyOfTheAddress) {
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  CZoIPAddr six;
  ASSERT_FALSE(six.SetAddressString("::1").IsError());
  CZoIPAddr path;
  ASSERT_FALSE(path.SetAddressString(dir.File("s").c_str()).IsError());

  CZoSocket a;
  CZoSocket b;
  CZoSocket c;
  ASSERT_FALSE(a.Socket(Loopback4()).IsError());
  EXPECT_EQ(a.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);
  ASSERT_FALSE(b.DgramSocket(six).IsError());
  EXPECT_EQ(b.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV6);
  ASSERT_FALSE(c.Socket(path).IsError());
  EXPECT_EQ(c.GetAddressFamily(), CZoIPAddr::IP_FAMILY_UNIX);

  int type = 0;
  int length = sizeof type;
  ASSERT_FALSE(b.GetSockOpt(SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length).IsError());
  EXPECT_EQ(type, SOCK_DGRAM);
  a.Close();
  b.Close();
  c.Close();
}

TEST(ZoSocket, SocketOfAFamilyWithoutAStackIsTheSystemsError) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  CZoIPAddr none;
  none.SetAddressFamily(CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(IsSystem(s.Socket(none), EAFNOSUPPORT, "CZoSocket::Socket"));
  EXPECT_FALSE(s.IsValid());
}

TEST(ZoSocket, BindOnAnOpenObjectUsesItsHandle) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.DgramSocket(Loopback4()).IsError());
  const uint64_t handle = s.GetSocketDescriptor();
  ASSERT_FALSE(s.Bind(Loopback4()).IsError());
  EXPECT_EQ(static_cast<uint64_t>(s.GetSocketDescriptor()), handle);
  // Still the datagram socket made above, not a new stream one.
  int type = 0;
  int length = sizeof type;
  ASSERT_FALSE(s.GetSockOpt(SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length).IsError());
  EXPECT_EQ(type, SOCK_DGRAM);
  s.Close();
}

TEST(ZoSocket, BindOnAClosedObjectOpensAStreamSocketThatAFailedBindLeavesOpen) {
  zotest::FdLeakCheck leaks;
  CZoSocket holder;
  CZoIPAddr taken;
  zotest::ListenOnLoopback(holder, taken);

  CZoSocket s;
  EXPECT_TRUE(IsSystem(s.Bind(taken), EADDRINUSE, "CZoSocket::Bind"));
  ASSERT_TRUE(s.IsValid());
  int type = 0;
  int length = sizeof type;
  ASSERT_FALSE(s.GetSockOpt(SOL_SOCKET, SO_TYPE, reinterpret_cast<char*>(&type), &length).IsError());
  EXPECT_EQ(type, SOCK_STREAM);
  s.Close();
  holder.Close();
}

TEST(ZoSocket, BindOfAFamilyWithoutAStackIsTheCLibraryFamilyError) {
  zotest::FdLeakCheck leaks;
  ZONET_SockAddr record;
  std::memset(&record, 0, sizeof record);
  record.family = 250;  // no family of the system
  CZoSocket s;
  CZoError error = s.Bind(CZoIPAddr(record));
  ASSERT_TRUE(error.IsError());
  EXPECT_TRUE(FXErrorUtil::IsErrNo(error, ZONET_ERRNO_AFNOSUPPORT)) << error.AsString();
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocket::Bind");
  EXPECT_FALSE(s.IsValid());

  s.Close();
}

// An IPv6 address bound to an IPv4 handle is the caller's mistake, not a
// missing stack: the bind step keeps the plain system number.
TEST(ZoSocket, BindOfAnAddressOfAnotherFamilyKeepsTheSystemNumber) {
  zotest::FdLeakCheck leaks;
  CZoIPAddr six;
  ASSERT_FALSE(six.SetAddressString("::1").IsError());
  CZoSocket s;
  ASSERT_FALSE(s.Socket(Loopback4()).IsError());
  CZoError error = s.Bind(six);
  ASSERT_TRUE(error.IsError());
  EXPECT_TRUE(error.Is(EAFNOSUPPORT)) << error.AsString();
  EXPECT_FALSE(FXErrorUtil::IsErrNo(error, ZONET_ERRNO_AFNOSUPPORT)) << error.AsString();
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocket::Bind");
  // The socket stays open in the object.
  EXPECT_TRUE(s.IsValid());
  s.Close();
}

TEST(ZoSocket, ConnectOpensAStreamSocketAndReportsARefusal) {
  zotest::FdLeakCheck leaks;
  // A port that was just free and has nobody listening.
  CZoSocket probe;
  CZoIPAddr where;
  ASSERT_FALSE(probe.Bind(Loopback4()).IsError());
  ASSERT_FALSE(probe.GetLocalAddress(where).IsError());
  probe.Close();

  CZoSocket s;
  EXPECT_TRUE(IsSystem(s.Connect(where), ECONNREFUSED, "CZoSocket::Connect"));
  EXPECT_TRUE(s.IsValid());
  s.Close();
}

TEST(ZoSocket, AcceptTakesTheWaitingClientWithItsAddress) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  CZoSocket client;
  ASSERT_FALSE(client.Connect(where).IsError());

  CZoSocket accepted;
  ASSERT_FALSE(listener.Accept(accepted).IsError());
  ASSERT_TRUE(accepted.IsValid());
  EXPECT_TRUE(zotest::AcceptedFrom(accepted, client));
  EXPECT_EQ(accepted.GetPeerAddressString(), "127.0.0.1");
  EXPECT_EQ(client.GetPeerAddressString(), "127.0.0.1");
  CZoIPAddr clientPeer;
  ASSERT_FALSE(client.GetPeerAddress(clientPeer).IsError());
  EXPECT_EQ(clientPeer.GetPortNumber(), where.GetPortNumber());
  accepted.Close();
  client.Close();
  listener.Close();
}

TEST(ZoSocket, AFailedAcceptIsSuccessWithTheOutputStillInvalid) {
  zotest::FdLeakCheck leaks;
  CZoSocket listener;
  CZoIPAddr where;
  zotest::ListenOnLoopback(listener, where);
  ASSERT_FALSE(listener.SetToNonBlocking().IsError());
  CZoSocket accepted;
  EXPECT_FALSE(listener.Accept(accepted).IsError());
  EXPECT_FALSE(accepted.IsValid());
  listener.Close();
}

// ============================================================ transfers

TEST(ZoSocket, SendAndRecvMoveAllTheBytes) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  std::vector<char> out(200000);
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<char>(i * 7);
  std::vector<char> in(out.size());
  int sent = 0;
  int received = 0;
  std::thread writer([&] { EXPECT_FALSE(client.Send(out.data(), static_cast<int>(out.size()), 0, &sent).IsError()); });
  EXPECT_FALSE(server.Recv(in.data(), static_cast<int>(in.size()), 0, &received).IsError());
  writer.join();
  EXPECT_EQ(sent, static_cast<int>(out.size()));
  EXPECT_EQ(received, static_cast<int>(in.size()));
  EXPECT_EQ(in, out);
  client.Close();
  server.Close();
}

TEST(ZoSocket, ShortReceiveIsShutdownDetectedWithTheCountFilled) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  int count = 0;
  ASSERT_FALSE(client.Send("abc", 3, 0, &count).IsError());
  ASSERT_FALSE(client.Shutdown(SHUT_WR).IsError());
  char buffer[10] = {};
  int received = -1;
  EXPECT_TRUE(IsState(server.Recv(buffer, 10, 0, &received), "CZoSocket::Recv", "Socket shutdown detected"));
  EXPECT_EQ(received, 3);
  EXPECT_EQ(std::string(buffer, 3), "abc");
  // A null count is allowed.
  EXPECT_TRUE(IsState(server.Recv(buffer, 10, 0, nullptr), "CZoSocket::Recv", "Socket shutdown detected"));
  client.Close();
  server.Close();
}

TEST(ZoSocket, ReceiveOfZeroBytesSucceedsWithoutAShutdownMessage) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  char buffer[1];
  int received = -1;
  EXPECT_FALSE(server.Recv(buffer, 0, 0, &received).IsError());
  EXPECT_EQ(received, 0);
  int timedOut = 0;
  EXPECT_FALSE(server.RecvWithTimeout(buffer, 0, 1, &timedOut, 0, &received).IsError());
  client.Close();
  server.Close();
}

TEST(ZoSocket, SendToAPeerThatHasGoneIsTheSystemsError) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  server.Close();
  std::vector<char> data(1 << 20);
  int sent = 0;
  CZoError error = CZoError::Success();
  // The first sends may still be taken before the reset comes back.
  for (int i = 0; i < 50 && !error.IsError(); ++i) error = client.Send(data.data(), static_cast<int>(data.size()), 0, &sent);
  ASSERT_TRUE(error.IsError());
  EXPECT_TRUE(error.Is(EPIPE) || error.Is(ECONNRESET)) << error.AsString();
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocket::Send");
  client.Close();
}

TEST(ZoSocket, NullTimedOutPointerIsAnInvalidParameterWhateverTheTimeout) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  char buffer[4] = {};
  int count = 0;
  for (int timeout : {0, 5, -1}) {
    EXPECT_TRUE(HasMessage(server.RecvWithTimeout(buffer, 4, timeout, nullptr, 0, &count),
                           ZONET_ERR_INVALID_PARAMETER, "CZoSocket::RecvWithTimeout",
                           "Invalid input parameter, pnTimedOut is NULL"));
    EXPECT_TRUE(HasMessage(client.SendWithTimeOut(buffer, 4, timeout, nullptr, 0, &count),
                           ZONET_ERR_INVALID_PARAMETER, "CZoSocket::SendWithTimeOut",
                           "Invalid input parameter, pnTimedOut is NULL"));
  }
  client.Close();
  server.Close();
}

TEST(ZoSocket, TimedTransfersWithinTheirTimeSucceed) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  int timedOut = 9;
  int count = 0;
  ASSERT_FALSE(client.SendWithTimeOut("hello", 5, 5, &timedOut, 0, &count).IsError());
  EXPECT_EQ(timedOut, 0);
  EXPECT_EQ(count, 5);
  char buffer[5] = {};
  timedOut = 9;
  ASSERT_FALSE(server.RecvWithTimeout(buffer, 5, 5, &timedOut, 0, &count).IsError());
  EXPECT_EQ(timedOut, 0);
  EXPECT_EQ(std::string(buffer, 5), "hello");
  ASSERT_FALSE(client.Shutdown(SHUT_WR).IsError());
  EXPECT_TRUE(IsState(server.RecvWithTimeout(buffer, 5, 5, &timedOut, 0, &count), "CZoSocket::RecvWithTimeout",
                      "Socket shutdown detected"));
  EXPECT_EQ(count, 0);
  client.Close();
  server.Close();
}

// The three whole-second time-outs run side by side, so the test waits about
// two seconds rather than six.
TEST(ZoSocket, TimeOutsReportTheirMessageWithThePartialCount) {
  zotest::FdLeakCheck leaks;
  // Receive: three of ten bytes come.
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  int count = 0;
  ASSERT_FALSE(client.Send("abc", 3, 0, &count).IsError());

  // Send: a peer that reads nothing, with small buffers on both sides.
  CZoSocket listener;
  int small = 4096;
  ASSERT_FALSE(listener.Socket(Loopback4()).IsError());
  ASSERT_FALSE(listener.SetSockOpt(SOL_SOCKET, SO_RCVBUF, reinterpret_cast<char*>(&small), sizeof small).IsError());
  ASSERT_FALSE(listener.Bind(Loopback4()).IsError());
  ASSERT_FALSE(listener.Listen(1).IsError());
  CZoIPAddr where;
  ASSERT_FALSE(listener.GetLocalAddress(where).IsError());
  CZoSocket writer;
  ASSERT_FALSE(writer.Socket(Loopback4()).IsError());
  ASSERT_FALSE(writer.SetSockOpt(SOL_SOCKET, SO_SNDBUF, reinterpret_cast<char*>(&small), sizeof small).IsError());
  ASSERT_FALSE(writer.Connect(where).IsError());
  // Non-blocking, so that a send takes what fits and the wait comes back to
  // the clock instead of blocking in the system.
  ASSERT_FALSE(writer.SetToNonBlocking().IsError());
  CZoSocket idle;
  ASSERT_FALSE(listener.Accept(idle).IsError());

  // Datagrams: nobody sends.
  CZoSocket quiet;
  ASSERT_FALSE(quiet.DgramSocket(Loopback4()).IsError());
  ASSERT_FALSE(quiet.Bind(Loopback4()).IsError());

  char buffer[10] = {};
  int received = -1;
  int recvTimedOut = 0;
  CZoError recvError = CZoError::Success();
  std::vector<char> big(8 << 20);
  int sent = -1;
  int sendTimedOut = 0;
  CZoError sendError = CZoError::Success();
  char datagram[64];
  int got = -1;
  int dgramTimedOut = 0;
  CZoError dgramError = CZoError::Success();

  std::thread sending(
      [&] { sendError = writer.SendWithTimeOut(big.data(), static_cast<int>(big.size()), 1, &sendTimedOut, 0, &sent); });
  std::thread datagrams([&] { dgramError = quiet.RecvfromICMPSocket(datagram, sizeof datagram, 1, &dgramTimedOut, 0, &got); });
  recvError = server.RecvWithTimeout(buffer, 10, 1, &recvTimedOut, 0, &received);
  sending.join();
  datagrams.join();

  EXPECT_TRUE(IsState(recvError, "CZoSocket::RecvWithTimeout", "Socket receive timed out"));
  EXPECT_EQ(recvTimedOut, 1);
  EXPECT_EQ(received, 3);
  EXPECT_EQ(std::string(buffer, 3), "abc");

  EXPECT_TRUE(IsState(sendError, "CZoSocket::SendWithTimeOut", "Socket send timed out"));
  EXPECT_EQ(sendTimedOut, 1);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<int>(big.size()));

  EXPECT_TRUE(IsState(dgramError, "CZoSocket::RecvfromICMPSocket", "Socket receive timed out"));
  EXPECT_EQ(dgramTimedOut, 1);
  EXPECT_EQ(got, 0);

  for (CZoSocket* s : {&client, &server, &listener, &writer, &idle, &quiet}) s->Close();
}

TEST(ZoSocket, DatagramCallsCheckTheTimedOutPointerOnlyWithATimeout) {
  zotest::FdLeakCheck leaks;
  CZoSocket s(Loopback4(9));
  ASSERT_FALSE(s.DgramSocket(Loopback4()).IsError());
  char buffer[4] = {};
  int count = 0;
  EXPECT_TRUE(HasMessage(s.SendtoICMPSocket(buffer, 4, 1, nullptr, 0, &count), ZONET_ERR_INVALID_PARAMETER,
                         "CZoSocket::SendtoICMPSocket", "Invalid input parameter, pnTimedOut is NULL"));
  EXPECT_TRUE(HasMessage(s.RecvfromICMPSocket(buffer, 4, 1, nullptr, 0, &count), ZONET_ERR_INVALID_PARAMETER,
                         "CZoSocket::RecvfromICMPSocket", "Invalid input parameter, pnTimedOut is NULL"));
  // Without a time-out the object lets it through and the flat call refuses
  // it, without a message of the object's own.
  EXPECT_TRUE(IsSystem(s.SendtoICMPSocket(buffer, 4, 0, nullptr, 0, &count), ZONET_ERR_INVALID_PARAMETER,
                       "CZoSocket::SendtoICMPSocket"));
  EXPECT_TRUE(IsSystem(s.RecvfromICMPSocket(buffer, 4, 0, nullptr, 0, &count), ZONET_ERR_INVALID_PARAMETER,
                       "CZoSocket::RecvfromICMPSocket"));
  s.Close();
}

TEST(ZoSocket, RecvAndSendMayRunOnTwoThreadsAtOnce) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  const CZoSocket& shared = server;
  const int rounds = 200;
  std::thread echoer([&] {
    char c = 0;
    int n = 0;
    for (int i = 0; i < rounds; ++i) {
      if (client.Recv(&c, 1, 0, &n).IsError()) return;
      if (client.Send(&c, 1, 0, &n).IsError()) return;
    }
  });
  std::thread sender([&] {
    int n = 0;
    for (int i = 0; i < rounds; ++i) {
      const char c = static_cast<char>(i);
      if (shared.Send(&c, 1, 0, &n).IsError()) return;
    }
  });
  int total = 0;
  for (int i = 0; i < rounds; ++i) {
    char c = 0;
    int n = 0;
    if (shared.Recv(&c, 1, 0, &n).IsError()) break;
    EXPECT_EQ(c, static_cast<char>(i));
    total += n;
  }
  sender.join();
  echoer.join();
  EXPECT_EQ(total, rounds);
  client.Close();
  server.Close();
}

// ============================================================ options

TEST(ZoSocket, NagleOffAndOnSwitchNoDelay) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.Socket(Loopback4()).IsError());
  int value = -1;
  int length = sizeof value;
  ASSERT_FALSE(s.NagleOff().IsError());
  ASSERT_FALSE(s.GetSockOpt(IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&value), &length).IsError());
  EXPECT_NE(value, 0);
  ASSERT_FALSE(s.NagleOn().IsError());
  ASSERT_FALSE(s.GetSockOpt(IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&value), &length).IsError());
  EXPECT_EQ(value, 0);
  // A datagram socket has no such option: the system's refusal comes back.
  CZoSocket d;
  ASSERT_FALSE(d.DgramSocket(Loopback4()).IsError());
  EXPECT_TRUE(IsSystem(d.NagleOff(), ENOPROTOOPT, "CZoSocket::SetSockOpt"));
  s.Close();
  d.Close();
}

TEST(ZoSocket, BlockingModeSwitches) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.Socket(Loopback4()).IsError());
  const int fd = static_cast<int>(static_cast<uint64_t>(s.GetSocketDescriptor()));
  ASSERT_FALSE(s.SetToNonBlocking().IsError());
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  ASSERT_FALSE(s.SetToBlocking().IsError());
  EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  s.Close();
}

TEST(ZoSocket, ReadQueueLengthCountsWaitingBytes) {
  zotest::FdLeakCheck leaks;
  CZoSocket client;
  CZoSocket server;
  Connected(client, server);
  unsigned queued = 99;
  ASSERT_FALSE(server.GetReadQueueLen(&queued).IsError());
  EXPECT_EQ(queued, 0u);
  int count = 0;
  ASSERT_FALSE(client.Send("12345", 5, 0, &count).IsError());
  ASSERT_TRUE(WaitReadable(server.GetSocketDescriptor()));
  ASSERT_FALSE(server.GetReadQueueLen(&queued).IsError());
  EXPECT_EQ(queued, 5u);
  EXPECT_TRUE(IsSystem(server.GetReadQueueLen(nullptr), ZONET_ERR_INVALID_PARAMETER, "CZoSocket::GetReadQueueLen"));
  client.Close();
  server.Close();
}

// ============================================================ socket pairs

TEST(ZoSocket, CreateSocketPairGivesTwoConnectedEnds) {
  zotest::FdLeakCheck leaks;
  CZoSocket first;
  CZoSocket second;
  ASSERT_FALSE(CZoSocket::CreateSocketPair(&first, &second).IsError());
  ASSERT_TRUE(first.IsValid());
  ASSERT_TRUE(second.IsValid());
  EXPECT_TRUE(first != second);
  int count = 0;
  ASSERT_FALSE(first.Send("to second", 9, 0, &count).IsError());
  ASSERT_TRUE(WaitReadable(second.GetSocketDescriptor()));
  char buffer[9] = {};
  ASSERT_FALSE(second.Recv(buffer, 9, 0, &count).IsError());
  EXPECT_EQ(std::string(buffer, 9), "to second");
  CZoIPAddr a;
  CZoIPAddr b;
  ASSERT_FALSE(first.GetLocalAddress(a).IsError());
  ASSERT_FALSE(second.GetPeerAddress(b).IsError());
  EXPECT_EQ(a.GetPortNumber(), b.GetPortNumber());
  first.Close();
  second.Close();
}

namespace {

int EmptyList(const char*, ZONET_HostEnt* hostEnt, int) {
  hostEnt->count = 0;
  hostEnt->addrs = nullptr;
  return 0;
}

int FamilyWithoutStack(const char*, ZONET_HostEnt* hostEnt, int) {
  hostEnt->count = 1;
  hostEnt->addrs = static_cast<ZONET_SockAddr*>(calloc(1, sizeof(ZONET_SockAddr)));
  hostEnt->addrs[0].family = 250;
  return 0;
}

// Puts the flat layer's hooks back whatever the test does.
struct PairHooks {
  ~PairHooks() {
    zonet_internal::SetSocketPairResolver(nullptr);
    zonet_internal::SetSocketPairFailure(zonet_internal::kPairNoStep, 0);
  }
};

}  // namespace

TEST(ZoSocket, CreateSocketPairFailureWithTheLastErrorSetIsReported) {
  zotest::FdLeakCheck leaks;
  PairHooks hooks;
  zonet_internal::SetSocketPairResolver(FamilyWithoutStack);
  CZoSocket first;
  CZoSocket second;
  errno = 0;
  CZoError error = CZoSocket::CreateSocketPair(&first, &second);
  EXPECT_TRUE(HasMessage(error, EAFNOSUPPORT, "CZoSocket::CreateSocketPair", "Failed to create a socket pair"));
  EXPECT_FALSE(first.IsValid());
  EXPECT_FALSE(second.IsValid());
}

TEST(ZoSocket, CreateSocketPairFailureWithoutALastErrorPassesForSuccess) {
  zotest::FdLeakCheck leaks;
  PairHooks hooks;
  CZoSocket first;
  CZoSocket second;

  // An empty list of addresses leaves no system error behind.
  zonet_internal::SetSocketPairResolver(EmptyList);
  errno = 0;
  EXPECT_FALSE(CZoSocket::CreateSocketPair(&first, &second).IsError());
  EXPECT_FALSE(first.IsValid());
  EXPECT_FALSE(second.IsValid());

  // Nor does a step whose failure is not the system's: the look-up of
  // "localhost" has left the last error at 0.
  zonet_internal::SetSocketPairResolver(nullptr);
  zonet_internal::SetSocketPairFailure(zonet_internal::kPairConnect, ECONNREFUSED);
  errno = ETIMEDOUT;
  EXPECT_FALSE(CZoSocket::CreateSocketPair(&first, &second).IsError());
  EXPECT_FALSE(first.IsValid());
  EXPECT_FALSE(second.IsValid());
  zonet_internal::SetSocketPairFailure(zonet_internal::kPairNoStep, 0);

  // The pair's own result is never the code: with the empty list (whose
  // result is ZONET_ERR_NO_ADDRESS) an error the thread already had decides.
  zonet_internal::SetSocketPairResolver(EmptyList);
  errno = ETIMEDOUT;
  CZoError error = CZoSocket::CreateSocketPair(&first, &second);
  EXPECT_TRUE(HasMessage(error, ETIMEDOUT, "CZoSocket::CreateSocketPair", "Failed to create a socket pair"));
  EXPECT_FALSE(first.IsValid());
}

TEST(ZoSocket, CreateSocketPairRefusesNullObjects) {
  zotest::FdLeakCheck leaks;
  CZoSocket one;
  EXPECT_TRUE(CZoSocket::CreateSocketPair(&one, nullptr).Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_TRUE(CZoSocket::CreateSocketPair(nullptr, &one).Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_FALSE(one.IsValid());
}

// ============================================================ raw ICMP

namespace {

uint16_t Checksum(const uint8_t* data, size_t length) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < length; i += 2) sum += static_cast<uint32_t>(data[i] | (data[i + 1] << 8));
  if (length % 2) sum += data[length - 1];
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

}  // namespace

TEST(ZoSocket, ICMPSocketPicksICMPv6OnlyForIPv6) {
  if (!zotest::CanOpenRawSockets()) GTEST_SKIP() << "raw sockets need root or CAP_NET_RAW";
  zotest::FdLeakCheck leaks;
  CZoSocket v4;
  CZoSocket v6;
  CZoSocket any;
  CZoIPAddr six;
  ASSERT_FALSE(six.SetAddressString("::1").IsError());
  ASSERT_FALSE(v4.ICMPSocket(Loopback4(), CZoIPAddr::IP_FAMILY_IPV4).IsError());
  ASSERT_FALSE(v6.ICMPSocket(six, CZoIPAddr::IP_FAMILY_IPV6).IsError());
  ASSERT_FALSE(any.ICMPSocket(Loopback4(), CZoIPAddr::IP_FAMILY_UNIX).IsError());
  EXPECT_EQ(v4.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);
  EXPECT_EQ(v6.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV6);
  EXPECT_EQ(any.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);
  int protocol = -1;
  int length = sizeof protocol;
  ASSERT_FALSE(v6.GetSockOpt(SOL_SOCKET, SO_PROTOCOL, reinterpret_cast<char*>(&protocol), &length).IsError());
  EXPECT_EQ(protocol, IPPROTO_ICMPV6);
  v4.Close();
  v6.Close();
  any.Close();
}

TEST(ZoSocket, EchoToLoopbackOverAnICMPSocket) {
  if (!zotest::CanOpenRawSockets()) GTEST_SKIP() << "raw sockets need root or CAP_NET_RAW";
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.ICMPSocket(Loopback4(), CZoIPAddr::IP_FAMILY_IPV4).IsError());
  uint8_t request[16] = {};
  request[0] = ICMP_ECHO;
  request[4] = 0x12;  // identifier
  request[5] = 0x34;
  std::memcpy(request + 8, "zonet!!!", 8);
  const uint16_t sum = Checksum(request, sizeof request);
  std::memcpy(request + 2, &sum, 2);
  int timedOut = 0;
  int count = 0;
  ASSERT_FALSE(s.SendtoICMPSocket(request, sizeof request, 2, &timedOut, 0, &count).IsError());
  EXPECT_EQ(count, static_cast<int>(sizeof request));

  // The socket sees every ICMP packet of the host but echo requests (other
  // tests' replies among them). Wait for the reply to this identifier.
  bool replied = false;
  for (int i = 0; i < 20 && !replied; ++i) {
    uint8_t packet[256] = {};
    ASSERT_FALSE(s.RecvfromICMPSocket(packet, sizeof packet, 2, &timedOut, 0, &count).IsError());
    ASSERT_GT(count, 20);
    const int header = (packet[0] & 0x0f) * 4;
    replied = packet[header] == ICMP_ECHOREPLY && packet[header + 4] == 0x12 && packet[header + 5] == 0x34;
  }
  EXPECT_TRUE(replied);
  s.Close();
}
