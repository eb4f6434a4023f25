// CZoIPAddrBlacklist: grace attempts, decay on demand, the walk, copies, and
// loading from a file. Time runs on a test clock unless a test says otherwise.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "objects/ObjectsInternal.h"
#include "ZoNetwork/ZoIPAddrBlacklist.h"
#include "ipaddr_test_util.h"
#include "support/HostsNamespace.h"
#include "support/TestSupport.h"

namespace {

using IP = CZoIPAddr;

time_t g_now = 1700000000;
time_t TestClock() { return g_now; }

CZoIPAddr Addr(const char* text, int port = 0) {
  CZoIPAddr addr;
  EXPECT_FALSE(addr.SetAddressString(text).IsError()) << text;
  if (port != 0) {
    EXPECT_FALSE(addr.SetPortNumber(port).IsError());
  }
  return addr;
}

using iptest::Contains;
using iptest::Text;

struct Entry {
  std::string address;
  std::string description;
  unsigned int attempts;
  int64_t lastAttempt;
  int64_t secondsLeft;
};

// The whole list, by a walk from the start.
std::vector<Entry> Walk(CZoIPAddrBlacklist& list) {
  std::vector<Entry> entries;
  CZoIPAddr addr;
  CZoString description;
  Entry e{};
  for (CZoError err = list.GetFirstBlacklistEntry(addr, &description, &e.attempts, &e.lastAttempt, &e.secondsLeft);
       !err.IsError();
       err = list.GetNextBlacklistEntry(addr, &description, &e.attempts, &e.lastAttempt, &e.secondsLeft)) {
    e.address = addr.GetAddressFamily() == IP::IP_FAMILY_UNIX ? addr.GetUnixSockAddr() : Text(addr);
    e.description = description.c_str();
    entries.push_back(e);
  }
  return entries;
}

class Blacklist : public ::testing::Test {
protected:
  void SetUp() override {
    g_now = 1700000000;
    zonet_internal::SetBlacklistClock(TestClock);
  }
  void TearDown() override { zonet_internal::SetBlacklistClock(nullptr); }
};

}  // namespace

// ---------------------------------------------------------------- grace

TEST_F(Blacklist, WithTheDefaultsOneReportBlacklistsForEver) {
  CZoIPAddrBlacklist list;
  CZoIPAddr addr = Addr("10.0.0.1");
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
  EXPECT_FALSE(list.AddAddressToBlacklist(addr).IsError());
  unsigned int attempts = 0;
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 1u);
  g_now += 10LL * 365 * 24 * 3600;
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 1u);
}

TEST_F(Blacklist, GraceAttemptsDelayTheBlacklistAndReportsAreClamped) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(3);
  CZoIPAddr addr = Addr("10.0.0.1");
  unsigned int attempts = 99;

  list.AddAddressToBlacklist(addr);
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 1u);
  list.AddAddressToBlacklist(addr);
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 2u);
  list.AddAddressToBlacklist(addr);
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 3u);

  g_now += 100;
  list.AddAddressToBlacklist(addr);  // a fourth report only refreshes the time
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 3u);
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].lastAttempt, g_now);
}

TEST_F(Blacklist, LoweringTheGraceBlacklistsAtOnceAndRaisingItForgives) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(5);
  CZoIPAddr addr = Addr("10.0.0.1");
  list.AddAddressToBlacklist(addr);
  list.AddAddressToBlacklist(addr);
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
  list.SetGraceAttempts(2);
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
  list.SetGraceAttempts(3);
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
  list.AddAddressToBlacklist(addr);
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
}

TEST_F(Blacklist, AGraceOfZeroBlacklistsEveryListedAddressAndItsCountWrapsOnDecay) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(0);
  list.SetExpirationTime(10);
  CZoIPAddr addr = Addr("10.0.0.1");
  unsigned int attempts = 0;

  list.AddAddressToBlacklist(addr);
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 1u);
  list.AddAddressToBlacklist(addr);  // the clamp takes it to 0
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 0u);

  g_now += 11;  // one decay step below zero
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, UINT_MAX);
  EXPECT_EQ(Walk(list).size(), 1u) << "a wrapped entry is not removed";

  g_now += 10LL * 365 * 24 * 3600;  // many steps at once stay cheap and exact
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, UINT_MAX - 31536000u);
}

TEST_F(Blacklist, AnAddressOfFamilyAnyAppendsOnEveryReportAndIsNeverBlacklisted) {
  CZoIPAddrBlacklist list;
  CZoIPAddr any;
  any.SetAddressFamily(IP::IP_FAMILY_ANY);
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(list.AddAddressToBlacklist(any).IsError());
  EXPECT_FALSE(list.IsAddressBlacklisted(any, nullptr, nullptr));
  EXPECT_EQ(Walk(list).size(), 3u);
}

TEST_F(Blacklist, PortsShareOneEntry) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(2);
  list.AddAddressToBlacklist(Addr("10.0.0.1", 80));
  list.AddAddressToBlacklist(Addr("10.0.0.1", 443));
  EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1", 8080), nullptr, nullptr));
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].attempts, 2u);
}

TEST_F(Blacklist, AnEntryKeepsTheDescriptionOfItsFirstReport) {
  CZoIPAddrBlacklist list;
  CZoIPAddr addr = Addr("10.0.0.1");
  list.AddAddressToBlacklist(addr, "connect refused");
  list.AddAddressToBlacklist(addr, "timed out");
  CZoString description;
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, &description, nullptr));
  EXPECT_EQ(std::string(description.c_str()), "connect refused");
}

TEST_F(Blacklist, LocalAndIPv6AddressesAreListedToo) {
  CZoIPAddrBlacklist list;
  list.AddAddressToBlacklist(Addr("/run/peer.sock"));
  list.AddAddressToBlacklist(Addr("2001:db8::1", 5));
  EXPECT_TRUE(list.IsAddressBlacklisted(Addr("/run/peer.sock"), nullptr, nullptr));
  EXPECT_TRUE(list.IsAddressBlacklisted(Addr("2001:db8::1"), nullptr, nullptr));
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("/run/peer.sock2"), nullptr, nullptr));
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("::ffff:10.0.0.1"), nullptr, nullptr));
}

// ---------------------------------------------------------------- decay

TEST_F(Blacklist, TheWorkedExampleOfDecay) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(60);
  list.SetGraceAttempts(3);
  CZoIPAddr addr = Addr("10.0.0.1");
  for (int i = 0; i < 3; ++i) list.AddAddressToBlacklist(addr, "example");
  CZoIPAddrBlacklist later(list);  // the same entry, first asked about at T+200
  unsigned int attempts = 0;
  CZoString description;

  g_now = t + 60;  // exactly one period: still whole
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, &description, &attempts));
  EXPECT_EQ(attempts, 3u);

  g_now = t + 61;
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, &description, &attempts));
  EXPECT_EQ(attempts, 2u);
  EXPECT_EQ(std::string(description.c_str()), "example") << "a false answer for a listed address still fills";
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].lastAttempt, t + 60) << "moved by one period, not set to now";

  g_now = t + 200;
  EXPECT_FALSE(later.IsAddressBlacklisted(addr, &description, &attempts));
  EXPECT_EQ(attempts, 0u);
  EXPECT_TRUE(description.IsEmpty());
  EXPECT_TRUE(Walk(later).empty()) << "three steps bring it to 0 and the entry is gone";
}

TEST_F(Blacklist, ALongSilenceCostsSeveralStepsCountedFromTheLastReport) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(10);
  list.SetGraceAttempts(5);
  CZoIPAddr addr = Addr("10.0.0.1");
  for (int i = 0; i < 5; ++i) list.AddAddressToBlacklist(addr);
  unsigned int attempts = 0;
  g_now = t + 31;  // periods ending at T+10, T+20, T+30
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 2u);
  EXPECT_EQ(Walk(list)[0].lastAttempt, t + 30);
  g_now = t + 40;  // T+40 is not past T+30 + 10
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, &attempts));
  EXPECT_EQ(attempts, 2u);
}

TEST_F(Blacklist, AReportRefreshesTheWholeEntry) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(60);
  list.SetGraceAttempts(2);
  CZoIPAddr addr = Addr("10.0.0.1");
  list.AddAddressToBlacklist(addr);
  g_now = t + 59;
  list.AddAddressToBlacklist(addr);
  g_now = t + 110;  // past the first report's period, not the second's
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
}

TEST_F(Blacklist, NullOutputsStillApplyDecay) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(5);
  list.SetGraceAttempts(3);
  CZoIPAddr a = Addr("10.0.0.1");
  CZoIPAddr b = Addr("10.0.0.2");
  for (int i = 0; i < 3; ++i) list.AddAddressToBlacklist(a);
  list.AddAddressToBlacklist(b);
  g_now = t + 6;
  EXPECT_FALSE(list.IsAddressBlacklisted(a, nullptr, nullptr));
  EXPECT_FALSE(list.IsAddressBlacklisted(b, nullptr, nullptr));
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].address, "10.0.0.1");
  EXPECT_EQ(entries[0].attempts, 2u);
}

TEST_F(Blacklist, DecayHappensOnlyForTheAddressAskedAbout) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(5);
  list.AddAddressToBlacklist(Addr("10.0.0.1"));
  list.AddAddressToBlacklist(Addr("10.0.0.2"));
  g_now = t + 1000;
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr));
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].address, "10.0.0.2");
  EXPECT_EQ(entries[0].attempts, 1u);
}

TEST_F(Blacklist, AnUnknownAddressGivesEmptyOutputs) {
  CZoIPAddrBlacklist list;
  list.AddAddressToBlacklist(Addr("10.0.0.1"), "listed");
  CZoString description("left over");
  unsigned int attempts = 7;
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.2"), &description, &attempts));
  EXPECT_TRUE(description.IsEmpty());
  EXPECT_EQ(attempts, 0u);
}

TEST_F(Blacklist, ANegativeOrZeroExpirationMeansNoDecayAndNoSecondsLeft) {
  for (int expiration : {0, -5}) {
    const time_t t = g_now;
    CZoIPAddrBlacklist list;
    list.SetExpirationTime(expiration);
    list.AddAddressToBlacklist(Addr("10.0.0.1"));
    g_now = t + 1000000;
    EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr)) << expiration;
    std::vector<Entry> entries = Walk(list);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].secondsLeft, -1) << expiration;
  }
}

TEST_F(Blacklist, SecondsLeftCountsToTheNextStepAndIsZeroWhenOverdue) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(60);
  list.SetGraceAttempts(3);
  for (int i = 0; i < 3; ++i) list.AddAddressToBlacklist(Addr("10.0.0.1"));
  g_now = t + 20;
  EXPECT_EQ(Walk(list)[0].secondsLeft, 40);
  g_now = t + 500;  // overdue: the walk applies no decay and shows 0
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].secondsLeft, 0);
  EXPECT_EQ(entries[0].attempts, 3u);
}

// ---------------------------------------------------------------- the walk

TEST_F(Blacklist, AWalkOfAnEmptyListFailsWithTheEndOfTheList) {
  CZoIPAddrBlacklist list;
  CZoIPAddr addr = Addr("10.9.9.9");
  CZoError e = list.GetFirstBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NO_MORE_ITEMS);
  EXPECT_TRUE(Contains(e.AsString(), "End of blacklist reached")) << e.AsString();
  ASSERT_EQ(e.GetItemCount(), 2u);
  EXPECT_STREQ(e.GetItem(0)->GetLocation().GetFunction(), "CZoIPAddrBlacklist::GetNextBlacklistEntry");
  EXPECT_STREQ(e.GetItem(1)->GetLocation().GetFunction(), "CZoIPAddrBlacklist::GetFirstBlacklistEntry");
  EXPECT_EQ(Text(addr), "10.9.9.9");
}

TEST_F(Blacklist, TheWalkKeepsTheOrderOfFirstReportsAndEndsUntilRestarted) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(4);
  list.AddAddressToBlacklist(Addr("10.0.0.3"), "third");
  g_now += 1;
  list.AddAddressToBlacklist(Addr("10.0.0.1"), "first");
  g_now += 1;
  list.AddAddressToBlacklist(Addr("10.0.0.3"));  // keeps its place

  CZoIPAddr addr;
  CZoString description;
  unsigned int attempts = 0;
  int64_t last = 0;
  int64_t left = 0;
  ASSERT_FALSE(list.GetFirstBlacklistEntry(addr, &description, &attempts, &last, &left).IsError());
  EXPECT_EQ(Text(addr), "10.0.0.3");
  EXPECT_EQ(std::string(description.c_str()), "third");
  EXPECT_EQ(attempts, 2u);
  EXPECT_EQ(last, g_now);
  ASSERT_FALSE(list.GetNextBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());
  EXPECT_EQ(Text(addr), "10.0.0.1");

  // Past the end, the outputs stay as they were, call after call.
  for (int i = 0; i < 3; ++i) {
    CZoError e = list.GetNextBlacklistEntry(addr, &description, &attempts, &last, &left);
    ASSERT_TRUE(e.IsError());
    EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NO_MORE_ITEMS);
    EXPECT_TRUE(Contains(e.AsString(), "End of blacklist reached"));
    EXPECT_EQ(Text(addr), "10.0.0.1");
    EXPECT_EQ(std::string(description.c_str()), "third");
  }
  ASSERT_FALSE(list.GetFirstBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());
  EXPECT_EQ(Text(addr), "10.0.0.3");
}

TEST_F(Blacklist, ContinuingAWalkThatNeverStartedEndsAtOnce) {
  CZoIPAddrBlacklist list;
  list.AddAddressToBlacklist(Addr("10.0.0.1"));
  CZoIPAddr addr;
  CZoError e = list.GetNextBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NO_MORE_ITEMS);
}

TEST_F(Blacklist, ARemovalUnderTheWalkMovesItToTheNextEntry) {
  const time_t t = g_now;
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(10);
  list.AddAddressToBlacklist(Addr("10.0.0.1"));
  list.AddAddressToBlacklist(Addr("10.0.0.2"));
  list.AddAddressToBlacklist(Addr("10.0.0.3"));
  CZoIPAddr addr;
  ASSERT_FALSE(list.GetFirstBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());
  g_now = t + 100;
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.2"), nullptr, nullptr));  // removed where the walk stands
  ASSERT_FALSE(list.GetNextBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());
  EXPECT_EQ(Text(addr), "10.0.0.3");
  EXPECT_TRUE(list.GetNextBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());
}

// ---------------------------------------------------------------- copies

TEST_F(Blacklist, CopiesCarrySettingsAndEntriesButNoWalk) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(2);
  list.SetExpirationTime(30);
  list.AddAddressToBlacklist(Addr("10.0.0.1"), "one");
  list.AddAddressToBlacklist(Addr("10.0.0.2"), "two");
  CZoIPAddr addr;
  ASSERT_FALSE(list.GetFirstBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());

  CZoIPAddrBlacklist copy(list);
  CZoIPAddrBlacklist assigned;
  assigned = list;
  for (CZoIPAddrBlacklist* other : {&copy, &assigned}) {
    EXPECT_TRUE(other->GetNextBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError())
        << "a walk on a copy begins with GetFirstBlacklistEntry";
    std::vector<Entry> entries = Walk(*other);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].description, "two");
    EXPECT_EQ(entries[0].secondsLeft, 30);
    other->AddAddressToBlacklist(Addr("10.0.0.1"));
    EXPECT_TRUE(other->IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr)) << "grace 2 was copied";
  }
  // The source's walk goes on where it stood, and its entries are its own.
  ASSERT_FALSE(list.GetNextBlacklistEntry(addr, nullptr, nullptr, nullptr, nullptr).IsError());
  EXPECT_EQ(Text(addr), "10.0.0.2");
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, nullptr));
}

TEST_F(Blacklist, NodesCopyAllFourFields) {
  CZoIPAddrBlacklistNode node;
  EXPECT_EQ(node.m_LastAttempt, 0);
  EXPECT_TRUE(node.m_Description.IsEmpty());
  node.m_Address = Addr("10.0.0.1");
  node.m_Description = "text";
  node.m_Attempts = 4;
  node.m_LastAttempt = 123;
  CZoIPAddrBlacklistNode copy(node);
  CZoIPAddrBlacklistNode assigned;
  assigned = node;
  for (const CZoIPAddrBlacklistNode* n : {&copy, &assigned}) {
    EXPECT_TRUE(n->m_Address == node.m_Address);
    EXPECT_EQ(std::string(n->m_Description.c_str()), "text");
    EXPECT_EQ(n->m_Attempts, 4u);
    EXPECT_EQ(n->m_LastAttempt, 123);
  }
}

// ---------------------------------------------------------------- the real clock

TEST(BlacklistRealClock, AnEntryDecaysOnTheWallClock) {
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(1);
  CZoIPAddr addr = Addr("10.0.0.1");
  time_t reported = time(nullptr);
  list.AddAddressToBlacklist(addr);
  EXPECT_TRUE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_GE(entries[0].lastAttempt, reported);
  EXPECT_LE(entries[0].lastAttempt, reported + 1);
  // One period must have ended before now: two seconds on by the wall clock.
  while (time(nullptr) < entries[0].lastAttempt + 2) usleep(50 * 1000);
  EXPECT_FALSE(list.IsAddressBlacklisted(addr, nullptr, nullptr));
  EXPECT_TRUE(Walk(list).empty());
}

// ---------------------------------------------------------------- files

namespace {

// Loads a file of these contents into list and walks the list afterwards.
std::vector<Entry> LoadAndWalk(CZoIPAddrBlacklist& list, const std::string& contents) {
  zotest::FdLeakCheck fds;
  zotest::TempDir dir;
  CZoError e = list.LoadBlacklistFromFile(dir.Write("blacklist.txt", contents).c_str());
  EXPECT_FALSE(e.IsError()) << e.AsString();
  return Walk(list);
}

}  // namespace

TEST_F(Blacklist, TheLastLineCountsTwiceWhenTheFileEndsInALineFeed) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(2);
  LoadAndWalk(list, "10.0.0.1\n");
  unsigned int attempts = 0;
  EXPECT_TRUE(list.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, &attempts));
  EXPECT_EQ(attempts, 2u);

  CZoIPAddrBlacklist once;
  once.SetGraceAttempts(2);
  LoadAndWalk(once, "10.0.0.1");
  EXPECT_FALSE(once.IsAddressBlacklisted(Addr("10.0.0.1"), nullptr, &attempts));
  EXPECT_EQ(attempts, 1u);
}

TEST_F(Blacklist, OnlyTheLastLineCountsTwice) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(5);
  std::vector<Entry> entries = LoadAndWalk(list, "10.0.0.1\n2001:db8::1\n10.0.0.3\n");
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].address, "10.0.0.1");
  EXPECT_EQ(entries[0].attempts, 1u);
  EXPECT_EQ(entries[1].address, "2001:db8::1");
  EXPECT_EQ(entries[1].attempts, 1u);
  EXPECT_EQ(entries[2].address, "10.0.0.3");
  EXPECT_EQ(entries[2].attempts, 2u);
  EXPECT_EQ(entries[0].lastAttempt, g_now);
  EXPECT_TRUE(entries[0].description.empty());
}

TEST_F(Blacklist, WindowsLineEndsLoadAsUnixOnes) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(5);
  std::vector<Entry> entries = LoadAndWalk(list, "10.0.0.1\r\n/run/x.sock\r\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].address, "10.0.0.1");
  EXPECT_EQ(entries[1].address, "/run/x.sock");
  EXPECT_EQ(entries[1].attempts, 2u);
}

TEST_F(Blacklist, EmptyFilesAndEmptyLinesGiveNoEntries) {
  CZoIPAddrBlacklist list;
  EXPECT_TRUE(LoadAndWalk(list, "").empty());
  EXPECT_TRUE(LoadAndWalk(list, "\n\n\r\n\n").empty());
}

TEST_F(Blacklist, LinesWithASlashBecomeLocalAddresses) {
  CZoIPAddrBlacklist list;
  std::vector<Entry> entries = LoadAndWalk(list, "/run/a.sock\nC:\\pipes\\b\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].address, "/run/a.sock");
  EXPECT_EQ(entries[1].address, "C:\\pipes\\b");
}

TEST_F(Blacklist, ALineOf1023CharactersOrMoreIsSplit) {
  std::string first = "/" + std::string(1022, 'a');  // what one read takes
  CZoIPAddrBlacklist list;
  std::vector<Entry> entries = LoadAndWalk(list, first + "/rest\n");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].address, first.substr(0, 107));
  EXPECT_EQ(entries[1].address, "/rest");
}

TEST_F(Blacklist, LoadingAddsToTheListAndNeverClearsIt) {
  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(3);
  list.AddAddressToBlacklist(Addr("10.0.0.1"), "earlier");
  list.AddAddressToBlacklist(Addr("10.0.0.9"));
  std::vector<Entry> entries = LoadAndWalk(list, "10.0.0.2\n10.0.0.1");
  ASSERT_EQ(entries.size(), 3u);
  EXPECT_EQ(entries[0].address, "10.0.0.1");
  EXPECT_EQ(entries[0].attempts, 2u);
  EXPECT_EQ(entries[0].description, "earlier");
  EXPECT_EQ(entries[1].address, "10.0.0.9");
  EXPECT_EQ(entries[2].address, "10.0.0.2");
}

TEST_F(Blacklist, AMissingFileGivesTheOpenErrorAndLeavesTheList) {
  zotest::FdLeakCheck fds;
  zotest::TempDir dir;
  CZoIPAddrBlacklist list;
  list.AddAddressToBlacklist(Addr("10.0.0.1"));
  std::string missing = dir.File("missing.txt");
  CZoError e = list.LoadBlacklistFromFile(missing.c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ENOENT);
  EXPECT_TRUE(Contains(e.AsString(), "Failed to open file, FileName=" + missing)) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddrBlacklist::LoadBlacklistFromFile")) << e.AsString();
  EXPECT_EQ(Walk(list).size(), 1u);
}

TEST_F(Blacklist, ADirectoryIsRefusedAsAFileThatCannotBeOpened) {
  zotest::FdLeakCheck fds;
  zotest::TempDir dir;
  CZoIPAddrBlacklist list;
  CZoError e = list.LoadBlacklistFromFile(dir.Path().c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), EISDIR);
  EXPECT_TRUE(Contains(e.AsString(), "Failed to open file, FileName=" + dir.Path())) << e.AsString();
}

// A report that cannot be stored is an error with its place, never Success,
// and the list stays as it was.
TEST_F(Blacklist, AReportThatCannotBeStoredIsOutOfMemory) {
  CZoIPAddrBlacklist list;
  ASSERT_FALSE(list.AddAddressToBlacklist(Addr("10.0.0.1")).IsError());
  zonet_internal::FailBlacklistEntryAllocation(1);
  // A listed address needs no new entry: its report still works.
  EXPECT_FALSE(list.AddAddressToBlacklist(Addr("10.0.0.1")).IsError());
  CZoError e = list.AddAddressToBlacklist(Addr("10.0.0.2"), CZoString("why"));
  zonet_internal::FailBlacklistEntryAllocation(0);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_OUTOFMEMORY);
  EXPECT_STREQ(e.GetItem(0)->GetLocation().GetFunction(), "CZoIPAddrBlacklist::AddAddressToBlacklist");
  EXPECT_FALSE(list.IsAddressBlacklisted(Addr("10.0.0.2"), nullptr, nullptr));
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].address, "10.0.0.1");

  // The overload without a description says the same.
  zonet_internal::FailBlacklistEntryAllocation(1);
  e = list.AddAddressToBlacklist(Addr("10.0.0.3"));
  zonet_internal::FailBlacklistEntryAllocation(0);
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_OUTOFMEMORY);
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddrBlacklist::AddAddressToBlacklist")) << e.AsString();
  EXPECT_EQ(Walk(list).size(), 1u);
}

// A file whose addresses cannot all be stored is not reported as loaded.
TEST_F(Blacklist, LoadingStopsWithTheErrorOfAnEntryThatCannotBeStored) {
  zotest::FdLeakCheck fds;
  zotest::TempDir dir;
  CZoIPAddrBlacklist list;
  const std::string path = dir.Write("blacklist.txt", "10.0.0.1\n10.0.0.2\n10.0.0.3");
  zonet_internal::FailBlacklistEntryAllocation(2);
  CZoError e = list.LoadBlacklistFromFile(path.c_str());
  zonet_internal::FailBlacklistEntryAllocation(0);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_OUTOFMEMORY);
  EXPECT_STREQ(e.GetItem(0)->GetLocation().GetFunction(), "CZoIPAddrBlacklist::AddAddressToBlacklist");
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddrBlacklist::LoadBlacklistFromFile")) << e.AsString();
  // What was stored before the failure stays; nothing after it was read.
  std::vector<Entry> entries = Walk(list);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].address, "10.0.0.1");
}

TEST_F(Blacklist, ANullFileNameIsAnInvalidParameter) {
  CZoIPAddrBlacklist list;
  CZoError e = list.LoadBlacklistFromFile(nullptr);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
}

// ---------------------------------------------------------------- files through the resolver

TEST(BlacklistFile, NamesAreResolvedAndEveryAddressIsOneEntry) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  zotest::FdLeakCheck fds;
  zotest::TempDir dir;
  std::string file = dir.Write("names", "multi.test\n10.0.0.9\n");
  int status = zotest::RunWithHostsFile("10.0.0.1 multi.test\n10.0.0.2 multi.test\n", [&file] {
    CZoIPAddrBlacklist list;
    list.SetGraceAttempts(3);
    IPTEST_CHILD_CHECK(!list.LoadBlacklistFromFile(file.c_str()).IsError());
    std::vector<Entry> entries = Walk(list);
    IPTEST_CHILD_CHECK(entries.size() == 3);
    IPTEST_CHILD_CHECK(entries[0].address == "10.0.0.1" || entries[0].address == "10.0.0.2");
    IPTEST_CHILD_CHECK(entries[1].address == "10.0.0.1" || entries[1].address == "10.0.0.2");
    IPTEST_CHILD_CHECK(entries[0].address != entries[1].address);
    IPTEST_CHILD_CHECK(entries[2].address == "10.0.0.9");
    IPTEST_CHILD_CHECK(entries[2].attempts == 2);  // the last line, twice
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(BlacklistFile, LinesThatDoNotResolveAreSkippedSilently) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  zotest::FdLeakCheck fds;
  zotest::TempDir dir;
  // No comment syntax: "#" goes to the resolver like any name and fails.
  // Spaces are not trimmed. A collision is a failure like any other.
  std::string nothing = dir.Write("nothing", "# blocked hosts\nno-such-host.test\n 10.0.0.1\ncollide.test\n");
  std::string some = dir.Write("some", "# comment\nknown.test\nno-such-host.test\n");
  int status = zotest::RunWithHostsFile("10.0.0.5 known.test\n127.0.53.53 collide.test\n", [&nothing, &some] {
    CZoIPAddr probe;  // the collision marker is set
    CZoIPAddrBlacklist list;
    IPTEST_CHILD_CHECK(!list.LoadBlacklistFromFile(nothing.c_str()).IsError());
    IPTEST_CHILD_CHECK(Walk(list).empty());
    IPTEST_CHILD_CHECK(!list.LoadBlacklistFromFile(some.c_str()).IsError());
    std::vector<Entry> entries = Walk(list);
    IPTEST_CHILD_CHECK(entries.size() == 1);
    IPTEST_CHILD_CHECK(entries[0].address == "10.0.0.5");
    return 0;
  });
  EXPECT_EQ(status, 0);
}
