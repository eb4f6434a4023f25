// CTimeStamp, FXProcess and the sleep.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <ctime>

#include "ZoUtils/ZoTime.h"

TEST(TimeStamp, DefaultIsTheEpochAndNowIsTheWallClock) {
  timespec zero = CTimeStamp().AsTimeSpec();
  EXPECT_EQ(zero.tv_sec, 0);
  EXPECT_EQ(zero.tv_nsec, 0);
  time_t before = time(nullptr);
  timespec now = CTimeStamp::Now().AsTimeSpec();
  time_t after = time(nullptr);
  // time() reads the coarse clock, which may still show the last second
  // for a few milliseconds after the fine one has moved on.
  EXPECT_GE(now.tv_sec, before);
  EXPECT_LE(now.tv_sec, after + 1);
  EXPECT_GE(now.tv_nsec, 0);
  EXPECT_LT(now.tv_nsec, 1000000000L);
}

TEST(TimeStamp, DifferencesInMillisecondsFollowASleep) {
  timespec a = CTimeStamp::Now().AsTimeSpec();
  ZOSLEEP(50);
  timespec b = CTimeStamp::Now().AsTimeSpec();
  double ms = (b.tv_sec - a.tv_sec) * 1000.0 + (b.tv_nsec - a.tv_nsec) / 1000000.0;
  EXPECT_GE(ms, 50.0);
  EXPECT_LT(ms, 2000.0);
}

TEST(Process, ZeroStandsForTheCallingProcess) {
  FXProcess self(0, CTimeStamp(), nullptr, false);
  EXPECT_EQ(self.getProcessId(), static_cast<int64_t>(getpid()));
  FXProcess other(12345, CTimeStamp::Now(), "other", true);
  EXPECT_EQ(other.getProcessId(), 12345);
}

TEST(Sleep, BlocksForTheTimeAsked) {
  auto start = std::chrono::steady_clock::now();
  ZOSLEEP_InTeRnAl(120, __FILE__, __LINE__);
  auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  EXPECT_GE(took.count(), 120);
  ZOSLEEP_InTeRnAl(0, __FILE__, __LINE__);
}
