// The family preference: process-wide, stored once, and a trap for a process
// that asks for two. Every test here changes it, so each runs in a child
// process of its own; the test process itself never sets it.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoNetAddr.h"
#include "support/HostsNamespace.h"
#include "support/TestSupport.h"

namespace {

// Ends the child: 0 when cond holds, else a message and 1.
void ExitWith(bool cond, const char* what) {
  if (!cond) fprintf(stderr, "child check failed: %s\n", what);
  fflush(nullptr);
  _exit(cond ? 0 : 1);
}

volatile sig_atomic_t g_traps = 0;
void CountTrap(int) { g_traps = g_traps + 1; }

class FamilyPreference : public ::testing::Test {
protected:
  zotest::FdLeakCheck m_fds;
};

}  // namespace

TEST_F(FamilyPreference, NoneIsSetAtStart) {
  EXPECT_EXIT(ExitWith(ZONET_GetFamilyPreference() == ZONET_FAMILY_ANY, "preference 0 at start"),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(FamilyPreference, LocalIsIgnoredAndLeavesThePreferenceUnset) {
  EXPECT_EXIT(
      {
        ZONET_SetFamilyPreference(ZONET_FAMILY_UNIX);
        bool unchanged = ZONET_GetFamilyPreference() == ZONET_FAMILY_ANY;
        // Still unset: a first real value is taken without a trap.
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV4);
        ExitWith(unchanged && ZONET_GetFamilyPreference() == ZONET_FAMILY_IPV4, "UNIX ignored, then IPv4 stored");
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(FamilyPreference, ZeroIsStoredSoThatALaterValueTraps) {
  EXPECT_EXIT(
      {
        ZONET_SetFamilyPreference(ZONET_FAMILY_ANY);
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV4);
        ExitWith(false, "no trap after 0 then IPv4");
      },
      ::testing::KilledBySignal(SIGTRAP), "");
}

TEST_F(FamilyPreference, ADifferentSecondValueTraps) {
  EXPECT_EXIT(
      {
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV4);
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV6);
        ExitWith(false, "no trap after IPv4 then IPv6");
      },
      ::testing::KilledBySignal(SIGTRAP), "");
}

TEST_F(FamilyPreference, TheSameValueAgainAndLocalAfterwardsDoNotTrap) {
  EXPECT_EXIT(
      {
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV6);
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV6);
        ZONET_SetFamilyPreference(ZONET_FAMILY_UNIX);
        ExitWith(ZONET_GetFamilyPreference() == ZONET_FAMILY_IPV6, "IPv6 kept");
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(FamilyPreference, AfterTheTrapTheFirstValueStays) {
  // With a handler the trap returns, which shows what the call left behind.
  EXPECT_EXIT(
      {
        signal(SIGTRAP, CountTrap);
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV4);
        ZONET_SetFamilyPreference(ZONET_FAMILY_IPV6);
        ZONET_SetFamilyPreference(ZONET_FAMILY_ANY);
        ExitWith(g_traps == 2 && ZONET_GetFamilyPreference() == ZONET_FAMILY_IPV4, "two traps and IPv4 kept");
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(FamilyPreference, ResolutionOfFamilyZeroAsksForThePreferredFamily) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  const char* hosts = "127.0.0.5 both.test\n::5 both.test\n";
  auto onlyFamily = [](int preferred) {
    return [preferred] {
      if (preferred != ZONET_FAMILY_ANY) ZONET_SetFamilyPreference(preferred);
      ZONET_HostEnt list{};
      ZOTEST_CHILD_CHECK(ZONET_name2ip("both.test", &list, ZONET_FAMILY_ANY) == 0);
      int v4 = 0;
      int v6 = 0;
      for (uint32_t i = 0; i < list.count; ++i) {
        v4 += list.addrs[i].family == ZONET_FAMILY_IPV4;
        v6 += list.addrs[i].family == ZONET_FAMILY_IPV6;
      }
      ZONET_freehostent(&list);
      if (preferred == ZONET_FAMILY_IPV4) ZOTEST_CHILD_CHECK(v4 == 1 && v6 == 0);
      if (preferred == ZONET_FAMILY_IPV6) ZOTEST_CHILD_CHECK(v4 == 0 && v6 == 1);
      if (preferred == ZONET_FAMILY_ANY) ZOTEST_CHILD_CHECK(v4 == 1 && v6 == 1);
      return 0;
    };
  };
  EXPECT_EQ(zotest::RunWithHostsFile(hosts, onlyFamily(ZONET_FAMILY_IPV4)), 0);
  EXPECT_EQ(zotest::RunWithHostsFile(hosts, onlyFamily(ZONET_FAMILY_IPV6)), 0);
  EXPECT_EQ(zotest::RunWithHostsFile(hosts, onlyFamily(ZONET_FAMILY_ANY)), 0);
}

TEST_F(FamilyPreference, AnExplicitFamilyOverridesThePreference) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.5 both.test\n::5 both.test\n", [] {
    ZONET_SetFamilyPreference(ZONET_FAMILY_IPV6);
    ZONET_HostEnt list{};
    ZOTEST_CHILD_CHECK(ZONET_name2ip("both.test", &list, ZONET_FAMILY_IPV4) == 0);
    ZOTEST_CHILD_CHECK(list.count == 1 && list.addrs[0].family == ZONET_FAMILY_IPV4);
    ZONET_freehostent(&list);
    return 0;
  });
  EXPECT_EQ(status, 0);
}
