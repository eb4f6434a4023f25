// The time-out functions running out of time. Each case waits one to two
// seconds, so they all run at once on their own threads and the file takes
// about two seconds in all.
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoNetSocket.h"
#include "sock_test_util.h"
#include "support/TestSupport.h"

namespace {

struct Outcome {
  std::string name;
  int result = -1;
  int count = -1;
  int timedOut = -1;
  double seconds = 0;
};

// A time-out of one second ends at the first whole-second tick after more
// than one second: never before one second, and not much after two.
void ExpectOneSecondTimeOut(const Outcome& o) {
  SCOPED_TRACE(o.name);
  EXPECT_EQ(0, o.result);
  EXPECT_EQ(1, o.timedOut);
  EXPECT_GT(o.seconds, 1.0);
  EXPECT_LT(o.seconds, 2.5);
}

}  // namespace

TEST(SocketTimeout, OneSecondTimeOutsEndAfterTheTickPastOneSecond) {
  zotest::FdLeakCheck leaks;
  auto recvPair = socktest::TcpPair();
  auto peekPair = socktest::TcpPair();
  auto sendPair = socktest::TcpPair();
  auto closedPeekPair = socktest::TcpPair();
  socktest::Fd udp(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ZONET_SockAddr udpAddr = socktest::Loopback4();
  ASSERT_EQ(0, ZONET_bind(udp.sock(), &udpAddr));

  int sent = 0;
  // The receiver gets 3 of the 10 bytes it wants, and the peer stays.
  ASSERT_EQ(0, ZONET_send(recvPair.first.sock(), "abc", 3, &sent, 0));
  // The peeker sees 4 of 10 bytes; the peek repeats until the time is over.
  ASSERT_EQ(0, ZONET_send(peekPair.first.sock(), "wxyz", 4, &sent, 0));
  // 4 of 10 bytes and a peer that is gone: the peek stops at once.
  ASSERT_EQ(0, ZONET_send(closedPeekPair.first.sock(), "1234", 4, &sent, 0));
  closedPeekPair.first.reset();
  // The sender's peer never reads, and both buffers are small.
  int small = 4096;
  ASSERT_EQ(0, ZONET_setsockopt(sendPair.first.sock(), SOL_SOCKET, SO_SNDBUF, &small, sizeof(small)));
  ASSERT_EQ(0, ZONET_setsockopt(sendPair.second.sock(), SOL_SOCKET, SO_RCVBUF, &small, sizeof(small)));

  std::vector<char> big(16 << 20, 'b');
  Outcome recvOut{"recv, partial data"}, peekOut{"peek, partial data"}, sendOut{"send, peer not reading"},
      udpOut{"recvfrom, no datagram"}, closedOut{"peek, peer gone"};

  auto timed = [](Outcome* o, std::function<int(int*, int*)> call) {
    const auto start = std::chrono::steady_clock::now();
    o->result = call(&o->count, &o->timedOut);
    o->seconds = socktest::SecondsSince(start);
  };
  std::vector<std::thread> threads;
  threads.emplace_back(timed, &recvOut, [&](int* n, int* t) {
    char buf[10];
    return ZONET_recvwithtimeout(recvPair.second.sock(), buf, 10, n, 1, t, 0);
  });
  threads.emplace_back(timed, &peekOut, [&](int* n, int* t) {
    char buf[10];
    return ZONET_recvwithtimeout(peekPair.second.sock(), buf, 10, n, 1, t, MSG_PEEK);
  });
  threads.emplace_back(timed, &sendOut, [&](int* n, int* t) {
    return ZONET_sendwithtimeout(sendPair.first.sock(), big.data(), static_cast<int>(big.size()), n, 1, t, 0);
  });
  threads.emplace_back(timed, &udpOut, [&](int* n, int* t) {
    ZONET_SockAddr from = socktest::Loopback4();
    char buf[16];
    return ZONET_recvfromicmpsocket(udp.sock(), &from, buf, sizeof(buf), n, 0, 1, t);
  });
  threads.emplace_back(timed, &closedOut, [&](int* n, int* t) {
    char buf[10];
    return ZONET_recvwithtimeout(closedPeekPair.second.sock(), buf, 10, n, 1, t, MSG_PEEK);
  });
  for (auto& t : threads) t.join();

  ExpectOneSecondTimeOut(recvOut);
  EXPECT_EQ(3, recvOut.count);
  ExpectOneSecondTimeOut(peekOut);
  EXPECT_EQ(4, peekOut.count);
  ExpectOneSecondTimeOut(sendOut);
  // What went out before the buffers filled is counted.
  EXPECT_GT(sendOut.count, 0);
  EXPECT_LT(sendOut.count, static_cast<int>(big.size()));
  ExpectOneSecondTimeOut(udpOut);
  EXPECT_EQ(0, udpOut.count);

  EXPECT_EQ(0, closedOut.result);
  EXPECT_EQ(0, closedOut.timedOut);
  EXPECT_EQ(4, closedOut.count);
  EXPECT_LT(closedOut.seconds, 0.5);
}
