// CZoSocketSelector over real loopback sockets.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoSocket.h"
#include "ZoNetwork/ZoSocketSelector.h"
#include "objects/ObjectsInternal.h"
#include "support/TestSupport.h"

namespace {

// A connected pair over loopback; closes both ends when it goes.
struct Pair {
  CZoSocket a;
  CZoSocket b;
  Pair() {
    CZoError error = CZoSocket::CreateSocketPair(&a, &b);
    EXPECT_FALSE(error.IsError()) << error.AsString();
    EXPECT_TRUE(a.IsValid() && b.IsValid());
  }
  ~Pair() {
    a.Close();
    b.Close();
  }
  // Makes b readable and waits until it is.
  void Feed(const char* text = "x") {
    int sent = 0;
    EXPECT_FALSE(a.Send(text, 1, 0, &sent).IsError());
    pollfd p{};
    p.fd = static_cast<int>(static_cast<uint64_t>(b.GetSocketDescriptor()));
    p.events = POLLIN;
    EXPECT_EQ(poll(&p, 1, 2000), 1);
  }
};

const timeval kPoll = {0, 0};

bool Holds(const std::set<CZoSocket>& set, const CZoSocket& socket) {
  for (const CZoSocket& s : set)
    if (static_cast<uint64_t>(s.GetSocketDescriptor()) == static_cast<uint64_t>(socket.GetSocketDescriptor()))
      return true;
  return false;
}

// One poll of selector (a zero time value) that must succeed and report
// timedOut as expected; the out-value starts as the opposite, so it must have
// been written.
::testing::AssertionResult PollGives(CZoSocketSelector& selector, bool expected) {
  bool timedOut = !expected;
  CZoError error = selector.Select(&kPoll, &timedOut);
  if (error.IsError()) return ::testing::AssertionFailure() << error.AsString();
  if (timedOut != expected) return ::testing::AssertionFailure() << "timedOut is " << timedOut;
  return ::testing::AssertionSuccess();
}

::testing::AssertionResult PollTimesOut(CZoSocketSelector& selector) { return PollGives(selector, true); }
::testing::AssertionResult PollFindsReady(CZoSocketSelector& selector) { return PollGives(selector, false); }

// Turns the wait hook off whatever the test does.
struct WaitHook {
  ~WaitHook() { zonet_internal::SetSelectorWaitFailure(0, 0); }
};

}  // namespace

TEST(SocketSelector, EmptySelectorPolledWithAZeroTimeValueTimesOut) {
  zotest::FdLeakCheck leaks;
  CZoSocketSelector selector;
  ASSERT_TRUE(PollTimesOut(selector));
  EXPECT_TRUE(selector.GetReadSelected().empty());
  EXPECT_TRUE(selector.GetWriteSelected().empty());
  EXPECT_TRUE(selector.GetExceptionSelected().empty());
}

TEST(SocketSelector, ResultsBeforeAnySelectAreEmpty) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  selector.SetWriteSocket(pair.b);
  EXPECT_TRUE(selector.GetReadSelected().empty());
  EXPECT_TRUE(selector.GetWriteSelected().empty());
}

TEST(SocketSelector, ZeroTimeValuePollsAndTimesOutWhenNothingIsReady) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  ASSERT_TRUE(PollTimesOut(selector));
  EXPECT_TRUE(selector.GetReadSelected().empty());
}

TEST(SocketSelector, ReadyReadAndWriteSocketsComeBackAndTheTimeValueIsNotWritten) {
  zotest::FdLeakCheck leaks;
  Pair one;
  Pair two;
  one.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(one.b);
  selector.SetReadSocket(two.b);
  selector.SetWriteSocket(two.a);
  const timeval limit = {2, 0};
  bool timedOut = true;
  ASSERT_FALSE(selector.Select(&limit, &timedOut).IsError());
  EXPECT_FALSE(timedOut);
  EXPECT_EQ(limit.tv_sec, 2);
  EXPECT_EQ(limit.tv_usec, 0);
  std::set<CZoSocket> read = selector.GetReadSelected();
  ASSERT_EQ(read.size(), 1u);
  EXPECT_TRUE(Holds(read, one.b));
  std::set<CZoSocket> write = selector.GetWriteSelected();
  ASSERT_EQ(write.size(), 1u);
  EXPECT_TRUE(Holds(write, two.a));
  EXPECT_TRUE(selector.GetExceptionSelected().empty());
}

TEST(SocketSelector, NullTimeValueWaitsUntilSomethingIsReadyAndTimedOutMayBeNull) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  ASSERT_FALSE(selector.Select(nullptr, nullptr).IsError());
  EXPECT_EQ(selector.GetReadSelected().size(), 1u);
  ASSERT_FALSE(selector.Select(&kPoll, nullptr).IsError());
}

TEST(SocketSelector, RegisteringTwiceIsHarmlessAndOneClearRemovesIt) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  selector.SetReadSocket(pair.b);
  ASSERT_TRUE(PollFindsReady(selector));
  EXPECT_EQ(selector.GetReadSelected().size(), 1u);

  selector.ClearReadSocket(pair.b);
  // The data is still there, but the socket no longer is.
  ASSERT_TRUE(PollTimesOut(selector));
  EXPECT_TRUE(selector.GetReadSelected().empty());
}

TEST(SocketSelector, ASocketClearedAfterSelectIsNoLongerInTheResult) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  ASSERT_TRUE(PollFindsReady(selector));
  ASSERT_EQ(selector.GetReadSelected().size(), 1u);
  selector.ClearReadSocket(pair.b);
  EXPECT_TRUE(selector.GetReadSelected().empty());
}

TEST(SocketSelector, AfterClearingTheHighestSocketTheOthersAreStillFound) {
  zotest::FdLeakCheck leaks;
  Pair low;
  Pair high;
  low.Feed();
  high.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(low.b);
  selector.SetReadSocket(high.b);
  selector.ClearReadSocket(high.b);
  ASSERT_TRUE(PollFindsReady(selector));
  std::set<CZoSocket> read = selector.GetReadSelected();
  ASSERT_EQ(read.size(), 1u);
  EXPECT_TRUE(Holds(read, low.b));
}

TEST(SocketSelector, AnInvalidSocketIsNotRegistered) {
  zotest::FdLeakCheck leaks;
  CZoSocketSelector selector;
  selector.SetReadSocket(CZoSocket());
  selector.SetWriteSocket(CZoSocket::Dummy());
  selector.SetExceptionSocket(CZoSocket());
  ASSERT_TRUE(PollTimesOut(selector));
  EXPECT_TRUE(selector.GetReadSelected().empty());
}

TEST(SocketSelector, AHandleBeyondTheSystemsDescriptorsIsNotRegistered) {
  zotest::FdLeakCheck leaks;
  CZoSocketSelector selector;
  CZoSocket huge;
  huge.AttachConnectedSocket(uint64_t(1) << 40);
  selector.SetReadSocket(huge);
  // Nothing registered, and the largest handle did not move: the wait is fine.
  ASSERT_TRUE(PollTimesOut(selector));
}

// Clearing erases every registered socket equivalent to the one given, and
// an invalid socket is equivalent to all of them.
TEST(SocketSelector, ClearingAnInvalidSocketEmptiesTheGroupsListButNotItsSet) {
  zotest::FdLeakCheck leaks;
  Pair one;
  Pair two;
  one.Feed();
  two.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(one.b);
  selector.SetReadSocket(two.b);
  selector.SetWriteSocket(one.a);
  selector.ClearReadSocket(CZoSocket());
  // select still finds the two readable sockets, but none is listed.
  ASSERT_TRUE(PollFindsReady(selector));
  EXPECT_TRUE(selector.GetReadSelected().empty());
  EXPECT_EQ(selector.GetWriteSelected().size(), 1u);
}

TEST(SocketSelector, ClearAllOfOneGroupLeavesTheOthers) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  selector.SetWriteSocket(pair.b);
  selector.ClearAllReadSockets();
  ASSERT_TRUE(PollFindsReady(selector));
  EXPECT_TRUE(selector.GetReadSelected().empty());
  EXPECT_EQ(selector.GetWriteSelected().size(), 1u);
  selector.ClearAllWriteSockets();
  selector.SetExceptionSocket(pair.b);
  selector.ClearAllExceptionSockets();
  ASSERT_TRUE(PollTimesOut(selector));
}

TEST(SocketSelector, ClearAllEmptiesEverything) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector selector;
  selector.SetReadSocket(pair.b);
  selector.SetWriteSocket(pair.a);
  selector.SetExceptionSocket(pair.a);
  ASSERT_TRUE(PollFindsReady(selector));
  selector.ClearAll();
  EXPECT_TRUE(selector.GetReadSelected().empty());
  EXPECT_TRUE(selector.GetWriteSelected().empty());
  ASSERT_TRUE(PollTimesOut(selector));
}

TEST(SocketSelector, ACopyCarriesRegistrationAndResultsAndLivesByItself) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector original;
  original.SetReadSocket(pair.b);
  ASSERT_TRUE(PollFindsReady(original));

  CZoSocketSelector copy(original);
  EXPECT_EQ(copy.GetReadSelected().size(), 1u);
  CZoSocketSelector assigned;
  assigned = original;
  EXPECT_EQ(assigned.GetReadSelected().size(), 1u);

  original.ClearAll();
  EXPECT_TRUE(original.GetReadSelected().empty());
  ASSERT_TRUE(PollFindsReady(copy));
  EXPECT_EQ(copy.GetReadSelected().size(), 1u);
  ASSERT_TRUE(PollFindsReady(assigned));
  EXPECT_EQ(assigned.GetReadSelected().size(), 1u);

  CZoSocketSelector& same = assigned;
  assigned = same;
  EXPECT_EQ(assigned.GetReadSelected().size(), 1u);
}

TEST(SocketSelector, UrgentDataShowsInTheExceptionGroup) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  int sent = 0;
  ASSERT_FALSE(pair.a.Send("!", 1, MSG_OOB, &sent).IsError());
  CZoSocketSelector selector;
  selector.SetExceptionSocket(pair.b);
  const timeval limit = {2, 0};
  bool timedOut = true;
  ASSERT_FALSE(selector.Select(&limit, &timedOut).IsError());
  EXPECT_FALSE(timedOut);
  EXPECT_EQ(selector.GetExceptionSelected().size(), 1u);
}

TEST(SocketSelector, WaitOnAClosedHandleGivesTheSystemsError) {
  zotest::FdLeakCheck leaks;
  CZoSocket s;
  ASSERT_FALSE(s.DgramSocket(CZoIPAddr("127.0.0.1")).IsError());
  CZoSocketSelector selector;
  selector.SetReadSocket(s);
  s.Close();
  bool timedOut = true;
  CZoError error = selector.Select(&kPoll, &timedOut);
  ASSERT_TRUE(error.Is(EBADF)) << error.AsString();
  EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocketSelector::Select");
  EXPECT_TRUE(timedOut);
}

TEST(SocketSelector, AFailedWaitWithoutALastErrorIsSuccessWithTimedOutUntouched) {
  zotest::FdLeakCheck leaks;
  WaitHook hook;
  CZoSocketSelector selector;
  zonet_internal::SetSelectorWaitFailure(EBADF, 0);
  bool timedOut = true;
  EXPECT_FALSE(selector.Select(&kPoll, &timedOut).IsError());
  EXPECT_TRUE(timedOut);
  timedOut = false;
  EXPECT_FALSE(selector.Select(&kPoll, &timedOut).IsError());
  EXPECT_FALSE(timedOut);
  // The last error, not the wait's own result, is the code.
  zonet_internal::SetSelectorWaitFailure(EBADF, EINTR);
  EXPECT_TRUE(selector.Select(&kPoll, &timedOut).Is(EINTR));
}

// A descriptor past the 1024 of a plain fd_set grows the group's set, while
// the other groups keep their small ones; select reads as many bits of all
// three.
TEST(SocketSelector, DescriptorsPast1024AreWaitedFor) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  if (limit.rlim_cur < 1300) GTEST_SKIP() << "needs at least 1300 descriptors, the limit is " << limit.rlim_cur;
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  const int high = fcntl(static_cast<int>(static_cast<uint64_t>(pair.b.GetSocketDescriptor())), F_DUPFD_CLOEXEC, 1200);
  ASSERT_GE(high, 1200);
  CZoSocket far;
  far.AttachConnectedSocket(static_cast<uint64_t>(high));
  CZoSocketSelector selector;
  selector.SetReadSocket(far);
  selector.SetWriteSocket(pair.a);
  ASSERT_TRUE(PollFindsReady(selector));
  std::set<CZoSocket> read = selector.GetReadSelected();
  ASSERT_EQ(read.size(), 1u);
  EXPECT_TRUE(Holds(read, far));
  EXPECT_EQ(selector.GetWriteSelected().size(), 1u);
  far.Close();
}

TEST(SocketSelector, TwoSelectorsMayHoldTheSameSocket) {
  zotest::FdLeakCheck leaks;
  Pair pair;
  pair.Feed();
  CZoSocketSelector first;
  CZoSocketSelector second;
  first.SetReadSocket(pair.b);
  second.SetReadSocket(pair.b);
  ASSERT_TRUE(PollFindsReady(first));
  EXPECT_EQ(first.GetReadSelected().size(), 1u);
  ASSERT_TRUE(PollFindsReady(second));
  EXPECT_EQ(second.GetReadSelected().size(), 1u);
}

namespace {

uint64_t HandleOf(const CZoSocket& socket) { return static_cast<uint64_t>(socket.GetSocketDescriptor()); }

// The handles of a result, in the result's own order.
std::vector<uint64_t> Handles(const std::set<CZoSocket>& set) {
  std::vector<uint64_t> handles;
  for (const CZoSocket& s : set) handles.push_back(HandleOf(s));
  return handles;
}

// count pairs whose b ends are registered for reading; the pairs named in
// fed are made readable.
struct Crowd {
  std::vector<std::unique_ptr<Pair>> pairs;
  CZoSocketSelector selector;
  Crowd(size_t count, const std::vector<size_t>& fed) {
    for (size_t i = 0; i < count; ++i) pairs.push_back(std::make_unique<Pair>());
    for (size_t i : fed) pairs[i]->Feed();
    // Registered from the last to the first: the order of registering is
    // not the order of the result.
    for (size_t i = count; i-- > 0;) selector.SetReadSocket(pairs[i]->b);
  }
  std::vector<uint64_t> HandlesOf(const std::vector<size_t>& which) const {
    std::vector<uint64_t> handles;
    for (size_t i : which) handles.push_back(HandleOf(pairs[i]->b));
    std::sort(handles.begin(), handles.end());
    return handles;
  }
};

// Few ready among many registered, and most of them ready: both ways the
// result can be gathered must give the same answer.
const std::vector<std::pair<size_t, std::vector<size_t>>> kCrowds = {
    {64, {37}}, {64, {3, 50}}, {8, {0, 1, 2, 3, 4, 5, 6, 7}}, {8, {1, 2, 4, 5, 6}}};

}  // namespace

TEST(SocketSelector, ReadySocketsComeBackInHandleOrderWhateverTheirNumber) {
  zotest::FdLeakCheck leaks;
  for (const auto& crowd : kCrowds) {
    Crowd c(crowd.first, crowd.second);
    ASSERT_TRUE(PollFindsReady(c.selector));
    EXPECT_EQ(Handles(c.selector.GetReadSelected()), c.HandlesOf(crowd.second))
        << crowd.first << " registered, " << crowd.second.size() << " ready";
    // Asking again gives the same; the wait's result stays until the next.
    EXPECT_EQ(Handles(c.selector.GetReadSelected()), c.HandlesOf(crowd.second));
    EXPECT_TRUE(c.selector.GetWriteSelected().empty());
  }
}

TEST(SocketSelector, OnlySocketsStillRegisteredComeBackWhateverTheirNumber) {
  zotest::FdLeakCheck leaks;
  for (const auto& crowd : kCrowds) {
    Crowd c(crowd.first, crowd.second);
    ASSERT_TRUE(PollFindsReady(c.selector));
    // The first ready one goes after the wait; the rest stay.
    std::vector<size_t> rest(crowd.second.begin() + 1, crowd.second.end());
    c.selector.ClearReadSocket(c.pairs[crowd.second[0]]->b);
    EXPECT_EQ(Handles(c.selector.GetReadSelected()), c.HandlesOf(rest))
        << crowd.first << " registered, " << crowd.second.size() << " ready";
    // Registered again, it is found again: its bit from the wait is still set.
    c.selector.SetReadSocket(c.pairs[crowd.second[0]]->b);
    EXPECT_EQ(Handles(c.selector.GetReadSelected()), c.HandlesOf(crowd.second));
  }
}

TEST(SocketSelector, ASocketRegisteredAfterTheWaitIsNotInItsResult) {
  zotest::FdLeakCheck leaks;
  for (const auto& crowd : kCrowds) {
    Crowd c(crowd.first, crowd.second);
    Pair late;
    late.Feed();
    ASSERT_TRUE(PollFindsReady(c.selector));
    // Readable, and now registered, but not waited for.
    c.selector.SetReadSocket(late.b);
    EXPECT_EQ(Handles(c.selector.GetReadSelected()), c.HandlesOf(crowd.second))
        << crowd.first << " registered, " << crowd.second.size() << " ready";
    // The next wait takes it in.
    ASSERT_TRUE(PollFindsReady(c.selector));
    std::vector<uint64_t> expected = c.HandlesOf(crowd.second);
    expected.push_back(HandleOf(late.b));
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(Handles(c.selector.GetReadSelected()), expected);
  }
}

TEST(SocketSelector, AfterClearAllANewRegistrationIsFoundWithoutTheOldOnes) {
  zotest::FdLeakCheck leaks;
  Crowd c(40, {5, 30});
  ASSERT_TRUE(PollFindsReady(c.selector));
  ASSERT_EQ(c.selector.GetReadSelected().size(), 2u);
  c.selector.ClearAll();
  EXPECT_TRUE(c.selector.GetReadSelected().empty());
  // The smallest handle alone, after the largest was forgotten.
  c.selector.SetReadSocket(c.pairs[5]->b);
  ASSERT_TRUE(PollFindsReady(c.selector));
  EXPECT_EQ(Handles(c.selector.GetReadSelected()), c.HandlesOf({5}));
}
