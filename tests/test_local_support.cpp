// Whether local (Unix-domain) sockets may be used: the version rule of the
// other platform, the trial made here, the once-only decision and the switch
// that turns them off for good.
#include <stdio.h>
#include <sys/resource.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "flat/FlatInternal.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoNetSocket.h"
#include "support/TestSupport.h"

using zonet_internal::UnixSocketsSupportedByVersion;

namespace {

class LocalSupport : public ::testing::Test {
protected:
  void SetUp() override { zonet_internal::ResetUnixSocketsDecision(); }
  void TearDown() override { zonet_internal::ResetUnixSocketsDecision(); }
  zotest::FdLeakCheck m_fds;
};

}  // namespace

// ---- the version rule ----

namespace {

struct Version {
  uint32_t major;
  uint32_t ubr;
  uint32_t build;
  int expected;
};

void ExpectRule(const std::vector<Version>& versions) {
  for (const Version& v : versions) {
    EXPECT_EQ(UnixSocketsSupportedByVersion(v.major, v.ubr, v.build), v.expected)
        << "major " << v.major << ", build " << v.build << ", revision " << v.ubr;
  }
}

}  // namespace

TEST(LocalSupportVersionRule, Build17763NeedsRevision2210) {
  ExpectRule({{10, 2209, 17763, 0}, {10, 2210, 17763, 1}, {10, 9999, 17763, 1}, {10, 0, 17763, 0}});
}

TEST(LocalSupportVersionRule, ALaterBuildNeedsNoRevision) {
  ExpectRule({{10, 0, 17764, 1}, {10, 0, 22621, 1}, {11, 0, 26100, 1}});
}

TEST(LocalSupportVersionRule, AnEarlierBuildOrMajorVersionIsNotEnough) {
  ExpectRule({{10, 9999, 17762, 0}, {6, 0, 20000, 0}, {6, 5000, 17763, 0}, {9, 9999, 99999, 0}});
}

// ---- the decision here ----

TEST_F(LocalSupport, ATrialSocketDecidesOnceAndLeavesNothingOpen) {
  int before = zonet_internal::UnixSocketTrials();
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 1);
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 1);
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 1);
  EXPECT_EQ(zonet_internal::UnixSocketTrials(), before + 1);
}

namespace {

int g_closeCallbacks = 0;
void CountClose(ZONET_SOCKET) { ++g_closeCallbacks; }

}  // namespace

TEST_F(LocalSupport, TheTrialSocketIsClosedWithoutTheCloseCallback) {
  // The trial is the library's own business: a host watching its sockets
  // never hears of it.
  g_closeCallbacks = 0;
  ZONET_setclosecb(CountClose);
  int before = zonet_internal::UnixSocketTrials();
  int answer = ZONET_AreUnixSocketsSupported();
  ZONET_setclosecb(nullptr);
  EXPECT_EQ(answer, 1);
  EXPECT_EQ(zonet_internal::UnixSocketTrials(), before + 1);
  EXPECT_EQ(g_closeCallbacks, 0);
}

namespace {

void SetDescriptorLimit(rlim_t limit) {
  struct rlimit rl;
  getrlimit(RLIMIT_NOFILE, &rl);
  rl.rlim_cur = limit;
  setrlimit(RLIMIT_NOFILE, &rl);
}

// In a child: asks with no descriptor left to give, then with room again.
void AskWithoutDescriptorsThenWith() {
  struct rlimit original;
  getrlimit(RLIMIT_NOFILE, &original);
  SetDescriptorLimit(0);
  int first = ZONET_AreUnixSocketsSupported();
  SetDescriptorLimit(original.rlim_cur);
  // Decided: a later call does not try again, though it would work now.
  int later = ZONET_AreUnixSocketsSupported();
  if (first != 0 || later != 0) fprintf(stderr, "answers %d then %d, wanted 0 and 0\n", first, later);
  fflush(nullptr);
  _exit(first == 0 && later == 0 ? 0 : 1);
}

}  // namespace

TEST_F(LocalSupport, ASystemThatRefusesTheTrialSocketHasNoLocalSockets) {
  // With no descriptor left to give, the system refuses every socket.
  EXPECT_EXIT(AskWithoutDescriptorsThenWith(), ::testing::ExitedWithCode(0), "");
}

TEST_F(LocalSupport, DisablingBeforeTheFirstQuestionMeansNoTrialAndZero) {
  int before = zonet_internal::UnixSocketTrials();
  ZONET_DisableUnixSockets();
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 0);
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 0);
  EXPECT_EQ(zonet_internal::UnixSocketTrials(), before);
}

TEST_F(LocalSupport, DisablingAfterTheDecisionTurnsThemOffForGood) {
  ASSERT_EQ(ZONET_AreUnixSocketsSupported(), 1);
  int trials = zonet_internal::UnixSocketTrials();
  ZONET_DisableUnixSockets();
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 0);
  ZONET_DisableUnixSockets();
  EXPECT_EQ(ZONET_AreUnixSocketsSupported(), 0);
  EXPECT_EQ(zonet_internal::UnixSocketTrials(), trials);
}

TEST_F(LocalSupport, FirstQuestionsFromManyThreadsAgree) {
  std::vector<int> answers(8, -1);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < answers.size(); ++i) {
    threads.emplace_back([i, &answers] { answers[i] = ZONET_AreUnixSocketsSupported(); });
  }
  for (std::thread& thread : threads) thread.join();
  for (int answer : answers) EXPECT_EQ(answer, 1);
}

TEST_F(LocalSupport, ASwitchOffRacingTheFirstQuestionIsNeverLost) {
  for (int round = 0; round < 20; ++round) {
    zonet_internal::ResetUnixSocketsDecision();
    std::thread asker([] { ZONET_AreUnixSocketsSupported(); });
    std::thread disabler([] { ZONET_DisableUnixSockets(); });
    asker.join();
    disabler.join();
    ASSERT_EQ(ZONET_AreUnixSocketsSupported(), 0) << "round " << round;
  }
}
