// Descriptor sets: the flat record and ZoFdset, their limits, messages, copy
// rules, and the mask that select reads and writes.
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetSocket.h"
#include "flat/FlatInternal.h"
#include "sock_test_util.h"
#include "support/TestSupport.h"

namespace {

// Puts the process-wide limit back whatever a test did to it.
class MaxsockGuard {
public:
  MaxsockGuard() : m_saved(xnfdset_maxsock_get()) {}
  ~MaxsockGuard() { xnfdset_maxsock_set(m_saved); }

private:
  int m_saved;
};

std::vector<int> Members(const xnfdset_t& set) { return std::vector<int>(set.members, set.members + set.count); }

// A record that is freed at the end of the test.
struct Flat : xnfdset_t {
  explicit Flat(int size) { xnfdset_alloc(size, this); }
  ~Flat() { xnfdset_free(this); }
};

bool Mentions(const CZoError& err, const std::string& text) { return err.AsString().find(text) != std::string::npos; }

}  // namespace

TEST(Fdset, AllocRaisesASmallSizeToTheBuiltInList) {
  Flat set(100);
  EXPECT_EQ(1024u, set.limit);
  EXPECT_EQ(1024u, set.capacity);
  EXPECT_EQ(-1, set.maxfd);
  EXPECT_EQ(0u, set.count);
  EXPECT_EQ(&set.inline_set, set.set_ptr);
  EXPECT_EQ(&set.inline_set, xnfdset_get_fdsetp(&set));
  EXPECT_EQ(-1, xnfdset_alloc(100, nullptr));
  Flat negative(-5);
  EXPECT_EQ(1024u, negative.limit);
}

TEST(Fdset, TheDefaultLimitIs8192AndAppliesToLaterSets) {
  MaxsockGuard guard;
  EXPECT_EQ(8192, xnfdset_maxsock_get());
  Flat before(xnfdset_maxsock_get());
  xnfdset_maxsock_set(2000);
  EXPECT_EQ(2000, ZoFdset::maxsock_get());
  Flat after(xnfdset_maxsock_get());
  EXPECT_EQ(8192u, before.limit);
  EXPECT_EQ(2000u, after.limit);
  ZoFdset::maxsock_set(3000);
  EXPECT_EQ(3000, xnfdset_maxsock_get());
}

TEST(Fdset, AddingTheSameSocketTwiceKeepsOneMember) {
  Flat set(0);
  EXPECT_EQ(0, xnfdset_set(7, &set));
  EXPECT_EQ(0, xnfdset_set(7, &set));
  EXPECT_EQ(1u, set.count);
  EXPECT_EQ(1, xnfdset_isset(7, &set));
  EXPECT_EQ(0, xnfdset_isset(8, &set));
}

TEST(Fdset, The1025thMemberMovesTheListToTheHeapKeepingAll) {
  Flat set(8192);
  for (int fd = 0; fd < 1024; ++fd) ASSERT_EQ(0, xnfdset_set(fd, &set));
  EXPECT_EQ(set.inline_members, set.members);
  EXPECT_EQ(1024u, set.capacity);
  ASSERT_EQ(0, xnfdset_set(1024, &set));
  EXPECT_NE(set.inline_members, set.members);
  EXPECT_EQ(8192u, set.capacity);
  EXPECT_EQ(8192u, set.limit);
  ASSERT_EQ(1025u, set.count);
  for (int fd = 0; fd <= 1024; ++fd) {
    EXPECT_EQ(fd, set.members[fd]);
    EXPECT_EQ(1, xnfdset_isset(fd, &set));
  }
}

TEST(Fdset, WithLimit1024The1025thMemberIsRefused) {
  Flat set(1024);
  for (int fd = 0; fd < 1024; ++fd) ASSERT_EQ(0, xnfdset_set(fd, &set));
  EXPECT_EQ(-1, xnfdset_set(1024, &set));
  EXPECT_EQ(1024u, set.count);
  EXPECT_EQ(0, xnfdset_isset(1024, &set));
  // A member already there is still fine.
  EXPECT_EQ(0, xnfdset_set(5, &set));

  MaxsockGuard guard;
  ZoFdset::maxsock_set(1024);
  ZoFdset fdset;
  for (int fd = 0; fd < 1024; ++fd) ASSERT_FALSE(fdset.set(fd).IsError());
  const CZoError err = fdset.set(1024);
  ASSERT_TRUE(err.IsError());
  EXPECT_EQ(ZONET_ERR_INVALID_STATE, err.GetErrorCode());
  EXPECT_TRUE(Mentions(err, "Specified fd set is already full; Set size of 1024")) << err.AsString();
  EXPECT_TRUE(Mentions(err, "ZoFdset::set")) << err.AsString();
}

TEST(Fdset, The8193rdMemberAtTheDefaultLimitGivesTheMessageWith8192) {
  MaxsockGuard guard;
  ZoFdset fdset;
  for (int fd = 0; fd < 8192; ++fd) ASSERT_FALSE(fdset.set(fd).IsError()) << fd;
  const CZoError err = fdset.set(8192);
  ASSERT_TRUE(err.IsError());
  EXPECT_EQ(ZONET_ERR_INVALID_STATE, err.GetErrorCode());
  EXPECT_TRUE(Mentions(err, "Specified fd set is already full; Set size of 8192")) << err.AsString();
}

TEST(Fdset, ClearingAMemberInTheMiddleKeepsTheOrder) {
  Flat set(0);
  for (int fd : {10, 3, 42, 7, 99}) ASSERT_EQ(0, xnfdset_set(fd, &set));
  EXPECT_EQ(0, xnfdset_clr(42, &set));
  EXPECT_EQ((std::vector<int>{10, 3, 7, 99}), Members(set));
  EXPECT_EQ(0, xnfdset_isset(42, &set));
  // A socket that is not there: nothing changes.
  EXPECT_EQ(0, xnfdset_clr(5, &set));
  EXPECT_EQ(0, xnfdset_clr(ZONET_INVALID_SOCKET, &set));
  EXPECT_EQ(4u, set.count);
  EXPECT_EQ(0, xnfdset_clr(10, &set));
  EXPECT_EQ(0, xnfdset_clr(99, &set));
  EXPECT_EQ((std::vector<int>{3, 7}), Members(set));
}

TEST(Fdset, MaxfdOfASetWithOneMemberIsOne) {
  Flat set(0);
  EXPECT_EQ(-1, xnfdset_get_maxfd(&set));
  ASSERT_EQ(0, xnfdset_set(600, &set));
  EXPECT_EQ(1, xnfdset_get_maxfd(&set));
  ASSERT_EQ(0, xnfdset_set(900, &set));
  EXPECT_EQ(1, xnfdset_get_maxfd(&set));
  EXPECT_EQ(-1, xnfdset_get_maxfd(nullptr));
  xnfdset_zero(&set);
  EXPECT_EQ(-1, xnfdset_get_maxfd(&set));

  ZoFdset fdset;
  EXPECT_EQ(~uint64_t(0), fdset.get_maxfd());
  ASSERT_FALSE(fdset.set(3).IsError());
  EXPECT_EQ(1u, fdset.get_maxfd());
}

TEST(Fdset, ZeroEmptiesButKeepsTheHeapAndCapacity) {
  Flat set(4096);
  for (int fd = 0; fd < 1100; ++fd) ASSERT_EQ(0, xnfdset_set(fd, &set));
  int* heap = set.members;
  xnfdset_zero(&set);
  EXPECT_EQ(0u, set.count);
  EXPECT_EQ(-1, set.maxfd);
  EXPECT_EQ(heap, set.members);
  EXPECT_EQ(4096u, set.capacity);
  EXPECT_EQ(0, xnfdset_isset(5, &set));
  EXPECT_EQ(0, xnfdset_isset(1050, &set));
  xnfdset_zero(nullptr);
}

TEST(Fdset, FreeEndsTheSetButKeepsItsLimit) {
  xnfdset_t set;
  ASSERT_EQ(0, xnfdset_alloc(5000, &set));
  for (int fd = 0; fd < 1030; ++fd) ASSERT_EQ(0, xnfdset_set(fd, &set));
  ASSERT_EQ(0, xnfdset_set(4000, &set));
  xnfdset_free(&set);
  EXPECT_EQ(nullptr, set.set_ptr);
  EXPECT_EQ(nullptr, xnfdset_get_fdsetp(&set));
  EXPECT_EQ(0u, set.capacity);
  EXPECT_EQ(-1, set.maxfd);
  EXPECT_EQ(5000u, set.limit);
  EXPECT_EQ(-2, xnfdset_set(1, &set));
  EXPECT_EQ(-2, xnfdset_clr(1, &set));
  EXPECT_EQ(-2, xnfdset_isset(1, &set));
  EXPECT_EQ(-1, xnfdset_get_maxfd(&set));
  xnfdset_zero(&set);
  xnfdset_free(&set);
  xnfdset_free(nullptr);
  // And it can be allocated again.
  ASSERT_EQ(0, xnfdset_alloc(0, &set));
  EXPECT_EQ(0, xnfdset_set(1, &set));
  xnfdset_free(&set);
}

TEST(Fdset, NullSetsAreBadPointers) {
  EXPECT_EQ(-2, xnfdset_set(1, nullptr));
  EXPECT_EQ(-2, xnfdset_clr(1, nullptr));
  EXPECT_EQ(-2, xnfdset_isset(1, nullptr));
  EXPECT_EQ(nullptr, xnfdset_get_fdsetp(nullptr));
  Flat set(0);
  EXPECT_EQ(-1, xnfdset_copy_fdset(nullptr, &set));
  EXPECT_EQ(-1, xnfdset_copy_fdset(&set, nullptr));
}

TEST(Fdset, HandlesThatCannotBeDescriptorsAreRefused) {
  Flat set(0);
  const ZONET_SOCKET tooBig = static_cast<ZONET_SOCKET>(INT_MAX) + 1;
  EXPECT_EQ(-3, xnfdset_set(tooBig, &set));
  EXPECT_EQ(-3, xnfdset_set(ZONET_INVALID_SOCKET, &set));
  EXPECT_EQ(0u, set.count);
  EXPECT_EQ(0, xnfdset_isset(tooBig, &set));
  ZoFdset fdset;
  const CZoError err = fdset.set(ZONET_INVALID_SOCKET);
  ASSERT_TRUE(err.IsError());
  EXPECT_EQ(ZONET_ERR_INVALID_STATE, err.GetErrorCode());
  EXPECT_TRUE(Mentions(err, "Unknown error -3 setting fd in fd set")) << err.AsString();
}

TEST(Fdset, HighDescriptorsMoveTheMaskToTheHeap) {
  Flat set(0);
  ASSERT_EQ(0, xnfdset_set(5, &set));
  ASSERT_EQ(0, xnfdset_set(5000, &set));
  EXPECT_NE(&set.inline_set, set.set_ptr);
  EXPECT_GT(set.mask_bits, 5000u);
  EXPECT_EQ(1, xnfdset_isset(5, &set));
  EXPECT_EQ(1, xnfdset_isset(5000, &set));
  EXPECT_EQ(0, xnfdset_isset(4999, &set));
  EXPECT_EQ(0, xnfdset_isset(200000, &set));
  // The members stay in the record's own list.
  EXPECT_EQ(set.inline_members, set.members);
  EXPECT_EQ(0, xnfdset_clr(5000, &set));
  EXPECT_EQ(0, xnfdset_isset(5000, &set));
  EXPECT_EQ((std::vector<int>{5}), Members(set));
}

TEST(Fdset, CopyFollowsTheCapacityRules) {
  Flat small(1024);
  Flat big(8192);
  for (int fd = 0; fd < 1500; ++fd) ASSERT_EQ(0, xnfdset_set(fd, &big));
  // More members than the destination can ever hold.
  EXPECT_EQ(-1, xnfdset_copy_fdset(&small, &big));

  // The destination grows to its own limit to take a heap-sized source.
  Flat grown(8192);
  ASSERT_EQ(0, xnfdset_set(77, &grown));
  ASSERT_EQ(0, xnfdset_copy_fdset(&grown, &big));
  EXPECT_EQ(8192u, grown.capacity);
  EXPECT_EQ(1500u, grown.count);
  EXPECT_EQ(Members(big), Members(grown));

  // A source limit below the destination's capacity is copied all the same:
  // a heap list of 8192 now says 1024, and refuses the 1025th member.
  Flat inlineSource(0);
  for (int fd = 0; fd < 1024; ++fd) ASSERT_EQ(0, xnfdset_set(fd + 3000, &inlineSource));
  ASSERT_EQ(0, xnfdset_copy_fdset(&grown, &inlineSource));
  EXPECT_EQ(1024u, grown.capacity);
  EXPECT_NE(grown.inline_members, grown.members);
  EXPECT_EQ(-1, xnfdset_set(1, &grown));
  EXPECT_EQ(1, xnfdset_isset(4023, &grown));
  EXPECT_EQ(0, xnfdset_isset(1400, &grown));

  // Its list is on the heap already, so it does not grow again, and a
  // larger source is refused.
  EXPECT_EQ(-1, xnfdset_copy_fdset(&grown, &big));
  EXPECT_EQ(1024u, grown.count);
  EXPECT_EQ(0, xnfdset_copy_fdset(&big, &big));
}

// A copy that needs a new list and a new mask either takes both or leaves
// the destination exactly as it was, whichever of the two allocations fails.
TEST(Fdset, CopyThatCannotAllocateLeavesTheDestinationAsItWas) {
  Flat source(8192);
  // 1025 members move the list to the heap; descriptor 1500 the mask.
  for (int fd = 0; fd < 1024; ++fd) ASSERT_EQ(0, xnfdset_set(fd, &source));
  ASSERT_EQ(0, xnfdset_set(1500, &source));
  for (int failing = 1; failing <= 2; ++failing) {
    SCOPED_TRACE(failing == 1 ? "list allocation fails" : "mask allocation fails");
    Flat destination(8192);
    for (int fd : {7, 3, 5}) ASSERT_EQ(0, xnfdset_set(fd, &destination));
    zonet_internal::FailFdsetAllocation(failing);
    EXPECT_EQ(-1, xnfdset_copy_fdset(&destination, &source));
    zonet_internal::FailFdsetAllocation(0);
    EXPECT_EQ((std::vector<int>{7, 3, 5}), Members(destination));
    EXPECT_EQ(1024u, destination.capacity);
    EXPECT_EQ(destination.inline_members, destination.members);
    EXPECT_EQ(&destination.inline_set, destination.set_ptr);
    EXPECT_EQ(1, xnfdset_isset(5, &destination));
    EXPECT_EQ(0, xnfdset_isset(1500, &destination));
    // And the set still works: the next copy takes everything.
    ASSERT_EQ(0, xnfdset_copy_fdset(&destination, &source));
    EXPECT_EQ(Members(source), Members(destination));
    EXPECT_EQ(1, xnfdset_isset(1500, &destination));
  }
}

TEST(Fdset, IsSetOnANewObjectInitialisesItAndGivesZero) {
  ZoFdset fdset;
  EXPECT_FALSE(fdset.IsInitialized());
  EXPECT_EQ(0, fdset.is_set(3));
  EXPECT_TRUE(fdset.IsInitialized());
  EXPECT_EQ(8192u, fdset.limit);

  ZoFdset viaZero;
  viaZero.zero();
  EXPECT_TRUE(viaZero.IsInitialized());
  ZoFdset viaPointer;
  EXPECT_NE(nullptr, viaPointer.get_fdsetp());
  EXPECT_TRUE(viaPointer.IsInitialized());
  ZoFdset viaClr;
  EXPECT_FALSE(viaClr.clr(3).IsError());
  EXPECT_TRUE(viaClr.IsInitialized());
}

TEST(Fdset, ACopyOfAnUninitialisedSetStaysUninitialised) {
  ZoFdset empty;
  ZoFdset copy(empty);
  EXPECT_FALSE(copy.IsInitialized());
  ZoFdset assigned;
  ASSERT_FALSE(assigned.set(4).IsError());
  assigned = empty;
  EXPECT_FALSE(assigned.IsInitialized());
  EXPECT_EQ(nullptr, assigned.set_ptr);
}

TEST(Fdset, CopiesAreDeepAndIndependent) {
  ZoFdset a;
  for (int fd : {9, 2, 5000}) ASSERT_FALSE(a.set(fd).IsError());
  ZoFdset b(a);
  ASSERT_TRUE(b.IsInitialized());
  EXPECT_EQ(Members(a), Members(b));
  EXPECT_EQ(1, b.is_set(5000));
  ASSERT_FALSE(b.clr(9).IsError());
  EXPECT_EQ(1, a.is_set(9));
  EXPECT_EQ(0, b.is_set(9));

  // Assigning over a smaller set reallocates it at the source's capacity.
  MaxsockGuard guard;
  ZoFdset big;
  for (int fd = 0; fd < 2000; ++fd) ASSERT_FALSE(big.set(fd).IsError());
  ZoFdset::maxsock_set(1024);
  ZoFdset small;
  ASSERT_FALSE(small.set(1).IsError());
  EXPECT_EQ(1024u, small.limit);
  small = big;
  EXPECT_TRUE(small.IsInitialized());
  EXPECT_EQ(8192u, small.capacity);
  EXPECT_EQ(2000u, small.count);
  EXPECT_EQ(1, small.is_set(1999));

  ZoFdset& self = small;
  small = self;
  EXPECT_EQ(2000u, small.count);
}

TEST(Fdset, BrokenRecordsGiveTheBadPointerMessages) {
  ZoFdset fdset;
  ASSERT_FALSE(fdset.init().IsError());
  // The record freed behind the object's back.
  xnfdset_free(&fdset);
  CZoError err = fdset.set(1);
  EXPECT_EQ(ZONET_ERR_INVALID_STATE, err.GetErrorCode());
  EXPECT_TRUE(Mentions(err, "Bad fdset pointer passed to 'set' routine")) << err.AsString();
  EXPECT_TRUE(Mentions(err, "ZoFdset::set")) << err.AsString();
  err = fdset.clr(1);
  EXPECT_EQ(ZONET_ERR_INVALID_STATE, err.GetErrorCode());
  EXPECT_TRUE(Mentions(err, "Bad fdset pointer passed to 'clr' routine")) << err.AsString();
  EXPECT_TRUE(Mentions(err, "ZoFdset::clr")) << err.AsString();
  // init starts it afresh.
  ASSERT_FALSE(fdset.init().IsError());
  EXPECT_FALSE(fdset.set(1).IsError());
}

TEST(Fdset, AfterSelectIsSetTellsWhatIsReady) {
  zotest::FdLeakCheck leaks;
  auto quiet = socktest::TcpPair();
  auto busy = socktest::TcpPair();
  int sent = 0;
  ASSERT_EQ(0, ZONET_send(busy.first.sock(), "x", 1, &sent, 0));
  ZoFdset fdset;
  ASSERT_FALSE(fdset.set(quiet.second.sock()).IsError());
  ASSERT_FALSE(fdset.set(busy.second.sock()).IsError());
  const int nfds = std::max(quiet.second.get(), busy.second.get()) + 1;
  struct timeval tv = {5, 0};
  int ready = 0;
  ASSERT_EQ(0, ZONET_select(nfds, fdset.get_fdsetp(), nullptr, nullptr, &tv, &ready));
  EXPECT_EQ(1, ready);
  EXPECT_EQ(1, fdset.is_set(busy.second.sock()));
  EXPECT_EQ(0, fdset.is_set(quiet.second.sock()));
  // The members stay; adding one again watches it again.
  EXPECT_EQ(2u, fdset.count);
  ASSERT_FALSE(fdset.set(quiet.second.sock()).IsError());
  EXPECT_EQ(2u, fdset.count);
  EXPECT_EQ(1, fdset.is_set(quiet.second.sock()));
}
