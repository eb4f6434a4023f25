// Sockets far beyond a plain fd_set's 1024 descriptors: the time-out
// functions and the descriptor sets must work on descriptor 5000.
#include <fcntl.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetSocket.h"
#include "sock_test_util.h"
#include "support/TestSupport.h"

using socktest::Fd;

namespace {

const int kHigh = 5000;

// A loopback pair whose reading end is descriptor 5000 and writing end 5001.
class HighPair : public ::testing::Test {
protected:
  void SetUp() override {
    if (!m_limit.ok()) GTEST_SKIP() << "cannot raise the descriptor limit past " << kHigh + 2;
    auto pair = socktest::TcpPair();
    ASSERT_GE(pair.first.get(), 0);
    ASSERT_EQ(kHigh, ::dup3(pair.second.get(), kHigh, O_CLOEXEC));
    ASSERT_EQ(kHigh + 1, ::dup3(pair.first.get(), kHigh + 1, O_CLOEXEC));
    m_reader.reset(kHigh);
    m_writer.reset(kHigh + 1);
  }

  socktest::NoFileLimit m_limit{kHigh + 64};
  zotest::FdLeakCheck m_leaks;
  Fd m_reader, m_writer;
};

}  // namespace

TEST_F(HighPair, TimeOutFunctionsWorkOnDescriptor5000) {
  std::vector<char> data(256 << 10);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i % 253);
  std::vector<char> got(data.size());
  int received = 0, recvTimedOut = 7, recvResult = -1;
  std::thread reader([&] {
    recvResult = ZONET_recvwithtimeout(m_reader.sock(), got.data(), static_cast<int>(got.size()), &received, 5,
                                       &recvTimedOut, 0);
  });
  int sent = 0, timedOut = 7;
  EXPECT_EQ(0, ZONET_sendwithtimeout(m_writer.sock(), data.data(), static_cast<int>(data.size()), &sent, 5,
                                     &timedOut, 0));
  reader.join();
  EXPECT_EQ(0, timedOut);
  EXPECT_EQ(static_cast<int>(data.size()), sent);
  EXPECT_EQ(0, recvResult);
  EXPECT_EQ(0, recvTimedOut);
  EXPECT_EQ(static_cast<int>(data.size()), received);
  EXPECT_TRUE(data == got);
}

TEST_F(HighPair, SetsSelectOnDescriptor5000) {
  ZoFdset rd;
  ASSERT_FALSE(rd.set(m_reader.sock()).IsError());
  EXPECT_GT(rd.mask_bits, static_cast<uint32_t>(kHigh));
  ZoFdset quiet(rd);
  struct timeval tv = {0, 0};
  int ready = -1;
  ASSERT_EQ(0, ZONET_select(kHigh + 1, quiet.get_fdsetp(), nullptr, nullptr, &tv, &ready));
  EXPECT_EQ(0, ready);
  EXPECT_EQ(0, quiet.is_set(m_reader.sock()));

  int sent = 0;
  ASSERT_EQ(0, ZONET_send(m_writer.sock(), "5000", 4, &sent, 0));
  tv.tv_sec = 5;
  ASSERT_EQ(0, ZONET_select(kHigh + 1, rd.get_fdsetp(), nullptr, nullptr, &tv, &ready));
  EXPECT_EQ(1, ready);
  EXPECT_EQ(1, rd.is_set(m_reader.sock()));

  // A low set beside a high one: the low mask grows to the nfds asked for.
  xnfdset_t low, high;
  xnfdset_alloc(0, &low);
  xnfdset_alloc(0, &high);
  auto lowPair = socktest::TcpPair();
  ASSERT_EQ(0, xnfdset_set(lowPair.first.sock(), &low));
  ASSERT_EQ(0, xnfdset_set(m_reader.sock(), &high));
  tv.tv_sec = 5;
  ASSERT_EQ(0, ZONET_selectfdsets(kHigh + 1, &high, &low, nullptr, &tv, &ready));
  EXPECT_EQ(2, ready);
  EXPECT_EQ(1, xnfdset_isset(m_reader.sock(), &high));
  EXPECT_EQ(1, xnfdset_isset(lowPair.first.sock(), &low));
  xnfdset_free(&low);
  xnfdset_free(&high);
}
