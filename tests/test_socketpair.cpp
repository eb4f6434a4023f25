// Socket pairs over loopback: the pair itself, the order of "localhost",
// every failure path, and that no listener or half-made pair stays open.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoNetSocket.h"
#include "flat/FlatInternal.h"
#include "sock_test_util.h"
#include "support/TestSupport.h"

using socktest::Fd;

namespace {

// The addresses the next resolution gives; 0 family ends the list.
std::vector<ZONET_SockAddr> g_addresses;
int g_resolverError = 0;

int FakeResolver(const char* name, ZONET_HostEnt* hostEnt, int family) {
  EXPECT_STREQ("localhost", name);
  EXPECT_EQ(ZONET_FAMILY_ANY, family);
  if (g_resolverError != 0) return g_resolverError;
  hostEnt->count = static_cast<uint32_t>(g_addresses.size());
  hostEnt->addrs = static_cast<ZONET_SockAddr*>(std::calloc(g_addresses.size() + 1, sizeof(ZONET_SockAddr)));
  std::copy(g_addresses.begin(), g_addresses.end(), hostEnt->addrs);
  return 0;
}

// Installs the fake resolution for one test and takes every hook off after.
class Hooks {
public:
  explicit Hooks(std::vector<ZONET_SockAddr> addresses, int resolverError = 0) {
    g_addresses = std::move(addresses);
    g_resolverError = resolverError;
    zonet_internal::SetSocketPairResolver(FakeResolver);
  }
  Hooks() {}
  ~Hooks() {
    zonet_internal::SetSocketPairResolver(nullptr);
    zonet_internal::SetSocketPairFailure(zonet_internal::kPairNoStep, 0);
  }
};

ZONET_SockAddr Ipv4(const char* text) {
  ZONET_SockAddr a = socktest::Loopback4();
  inet_pton(AF_INET, text, &a.ipv4.addr);
  return a;
}

ZONET_SockAddr BogusFamily() {
  ZONET_SockAddr a = socktest::Loopback4();
  a.family = 12345;
  return a;
}

void ExpectWorkingPair(const ZONET_SOCKET pair[2]) {
  ASSERT_NE(ZONET_INVALID_SOCKET, pair[0]);
  ASSERT_NE(ZONET_INVALID_SOCKET, pair[1]);
  // Both ends non-blocking: an empty read fails at once.
  for (int i = 0; i < 2; ++i) {
    EXPECT_NE(0, ::fcntl(static_cast<int>(pair[i]), F_GETFL) & O_NONBLOCK);
    char c;
    int got = 7;
    EXPECT_EQ(EAGAIN, ZONET_recv(pair[i], &c, 1, &got, 0));
    EXPECT_EQ(0, got);
  }
  int n = 0, t = 0;
  ASSERT_EQ(0, ZONET_send(pair[0], "ping", 4, &n, 0));
  char buf[8];
  ASSERT_EQ(0, ZONET_recvwithtimeout(pair[1], buf, 4, &n, 5, &t, 0));
  EXPECT_EQ(4, n);
  EXPECT_EQ(0, std::memcmp(buf, "ping", 4));
  ASSERT_EQ(0, ZONET_send(pair[1], "pong", 4, &n, 0));
  ASSERT_EQ(0, ZONET_recvwithtimeout(pair[0], buf, 4, &n, 5, &t, 0));
  EXPECT_EQ(0, std::memcmp(buf, "pong", 4));
  // Each end's peer is the other end.
  ZONET_SockAddr name0, peer1;
  ASSERT_EQ(0, ZONET_getsockname(pair[0], &name0));
  ASSERT_EQ(0, ZONET_getpeername(pair[1], &peer1));
  EXPECT_EQ(ZONET_getport(&name0), ZONET_getport(&peer1));
}

void ExpectNoPair(const ZONET_SOCKET pair[2]) {
  EXPECT_EQ(ZONET_INVALID_SOCKET, pair[0]);
  EXPECT_EQ(ZONET_INVALID_SOCKET, pair[1]);
}

void ClosePair(const ZONET_SOCKET pair[2]) {
  ZONET_close(pair[0]);
  ZONET_close(pair[1]);
}

}  // namespace

TEST(SocketPair, WritingOnOneEndIsReadableOnTheOther) {
  zotest::FdLeakCheck leaks;
  const size_t before = zotest::OpenDescriptors().size();
  ZONET_SOCKET pair[2];
  ASSERT_EQ(0, ZONET_socketpair(pair));
  // Just the two ends: the listener is gone.
  EXPECT_EQ(before + 2, zotest::OpenDescriptors().size());
  ExpectWorkingPair(pair);
  EXPECT_EQ(ZONET_getsockfamily(pair[0]), ZONET_getsockfamily(pair[1]));

  // The family is that of the first address of "localhost" that works.
  ZONET_HostEnt list = {0, nullptr};
  ASSERT_EQ(0, ZONET_name2ip("localhost", &list, ZONET_FAMILY_ANY));
  ASSERT_GT(list.count, 0u);
  if (list.addrs[0].family == ZONET_FAMILY_IPV4 || socktest::HasIpv6Loopback()) {
    EXPECT_EQ(list.addrs[0].family, ZONET_getsockfamily(pair[0]));
  }
  ZONET_freehostent(&list);
  ClosePair(pair);
}

TEST(SocketPair, TheOrderOfLocalhostDecidesTheFamily) {
  if (!socktest::HasIpv6Loopback()) GTEST_SKIP() << "this host cannot bind ::1";
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET pair[2];
  {
    Hooks hooks({socktest::Loopback6(), socktest::Loopback4()});
    ASSERT_EQ(0, ZONET_socketpair(pair));
    EXPECT_EQ(ZONET_FAMILY_IPV6, ZONET_getsockfamily(pair[0]));
    ExpectWorkingPair(pair);
    ClosePair(pair);
  }
  {
    Hooks hooks({socktest::Loopback4(), socktest::Loopback6()});
    ASSERT_EQ(0, ZONET_socketpair(pair));
    EXPECT_EQ(ZONET_FAMILY_IPV4, ZONET_getsockfamily(pair[0]));
    ClosePair(pair);
  }
}

TEST(SocketPair, AnAddressThatFailsGivesWayToTheNext) {
  zotest::FdLeakCheck leaks;
  // 192.0.2.1 is not this host's: bind fails, and 127.0.0.1 is tried.
  Hooks hooks({Ipv4("192.0.2.1"), BogusFamily(), socktest::Loopback4()});
  ZONET_SOCKET pair[2];
  ASSERT_EQ(0, ZONET_socketpair(pair));
  EXPECT_EQ(ZONET_FAMILY_IPV4, ZONET_getsockfamily(pair[1]));
  ExpectWorkingPair(pair);
  ClosePair(pair);
}

TEST(SocketPair, WhenEveryAddressFailsTheLastFailureIsReturned) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET pair[2] = {1, 2};
  {
    Hooks hooks({BogusFamily(), Ipv4("192.0.2.1")});
    EXPECT_EQ(EADDRNOTAVAIL, ZONET_socketpair(pair));
    ExpectNoPair(pair);
  }
  {
    Hooks hooks({Ipv4("192.0.2.1"), BogusFamily()});
    EXPECT_EQ(EAFNOSUPPORT, ZONET_socketpair(pair));
    ExpectNoPair(pair);
  }
}

TEST(SocketPair, AnEmptyListGivesNoAddress) {
  zotest::FdLeakCheck leaks;
  Hooks hooks(std::vector<ZONET_SockAddr>{});
  ZONET_SOCKET pair[2] = {1, 2};
  EXPECT_EQ(ZONET_ERR_NO_ADDRESS, ZONET_socketpair(pair));
  ExpectNoPair(pair);
}

TEST(SocketPair, AFailedResolutionIsReturnedAsItIs) {
  zotest::FdLeakCheck leaks;
  Hooks hooks(std::vector<ZONET_SockAddr>{}, ZONET_ERR_TRY_AGAIN);
  ZONET_SOCKET pair[2] = {1, 2};
  EXPECT_EQ(ZONET_ERR_TRY_AGAIN, ZONET_socketpair(pair));
  ExpectNoPair(pair);
}

TEST(SocketPair, EveryFailingStepClosesWhatItOpened) {
  using namespace zonet_internal;
  for (int step = kPairListenerSocket; step <= kPairServerNonBlocking; ++step) {
    SCOPED_TRACE(step);
    zotest::FdLeakCheck leaks;
    Hooks hooks;
    SetSocketPairFailure(static_cast<SocketPairStep>(step), ENETDOWN);
    ZONET_SOCKET pair[2] = {1, 2};
    EXPECT_EQ(ENETDOWN, ZONET_socketpair(pair));
    ExpectNoPair(pair);
  }
}

TEST(SocketPair, RunningOutOfDescriptorsAtEachStepLeaksNothing) {
  zotest::FdLeakCheck leaks;
  Hooks hooks({socktest::Loopback4()});
  // Fill every gap below the highest descriptor, so that the limit alone
  // decides how many more can open.
  std::vector<Fd> fillers;
  const std::vector<int> open = zotest::OpenDescriptors();
  const int highest = *std::max_element(open.begin(), open.end());
  for (;;) {
    Fd f(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_GE(f.get(), 0);
    if (f.get() > highest) break;
    fillers.push_back(std::move(f));
  }
  socktest::NoFileLimit restore(0);
  // With room for 0 or 1 sockets, socket() fails; with room for 2 the accept
  // fails, which shows only when the accepted handle is made non-blocking.
  const int expected[] = {EMFILE, EMFILE, EBADF};
  for (int room = 0; room <= 3; ++room) {
    SCOPED_TRACE(room);
    ASSERT_TRUE(socktest::NoFileLimit::SetSoft(static_cast<rlim_t>(highest + 1 + room)));
    ZONET_SOCKET pair[2] = {1, 2};
    const int rc = ZONET_socketpair(pair);
    ASSERT_TRUE(socktest::NoFileLimit::SetSoft(static_cast<rlim_t>(highest + 100)));
    if (room < 3) {
      EXPECT_EQ(expected[room], rc);
      ExpectNoPair(pair);
    } else {
      ASSERT_EQ(0, rc);
      ClosePair(pair);
    }
  }
}

TEST(SocketPair, ManyThreadsMakePairsAtOnce) {
  zotest::FdLeakCheck leaks;
  std::vector<std::thread> threads;
  std::vector<int> results(8, -1);
  for (size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([&results, i] {
      for (int round = 0; round < 10; ++round) {
        ZONET_SOCKET pair[2];
        int rc = ZONET_socketpair(pair);
        if (rc == 0) {
          int n = 0, t = 0;
          char c = 0;
          rc = ZONET_send(pair[0], "x", 1, &n, 0);
          if (rc == 0) rc = ZONET_recvwithtimeout(pair[1], &c, 1, &n, 5, &t, 0);
          if (rc == 0 && c != 'x') rc = -1;
          ZONET_close(pair[0]);
          ZONET_close(pair[1]);
        }
        if (rc != 0 || round == 9) {
          results[i] = rc;
          return;
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  for (int rc : results) EXPECT_EQ(0, rc);
}
