// Interface discovery: GetIFList (pairs and addresses), GetMACList and
// GetAllInterfaces against adapters that the tests make in network
// namespaces of their own (loopback only, veth pairs with set hardware
// addresses and known IPv4 and IPv6 addresses, an adapter without carrier),
// the query's failure paths through the internal fault hook, and every log
// line through a writer of the test's own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoUtils/ZoLog.h"
#include "ipaddr_test_util.h"
#include "objects/ObjectsInternal.h"
#include "support/HostsNamespace.h"
#include "support/LogCapture.h"
#include "support/NetNamespace.h"
#include "support/TestSupport.h"

using iptest::Contains;
using iptest::Text;
using zotest::LogCapture;
using zonet_internal::IfQueryFault;
using Pairs = std::vector<std::pair<CZoIPAddr, CZoIPAddr> >;

namespace {

// Sets a fault of the adapter query for one test.
class FaultScope {
public:
  FaultScope(IfQueryFault fault, int code) { zonet_internal::SetIfQueryFault(fault, code); }
  ~FaultScope() { zonet_internal::SetIfQueryFault(IfQueryFault::kNone); }
};

std::vector<std::string> Texts(const std::vector<CZoIPAddr>& addresses) {
  std::vector<std::string> out;
  for (const CZoIPAddr& a : addresses) out.push_back(Text(a));
  return out;
}

std::vector<std::string> FirstTexts(const Pairs& pairs) {
  std::vector<std::string> out;
  for (const auto& p : pairs) out.push_back(Text(p.first));
  return out;
}

// The companion of text in pairs, or null.
const CZoIPAddr* CompanionOf(const Pairs& pairs, const std::string& text) {
  for (const auto& p : pairs) {
    if (Text(p.first) == text) return &p.second;
  }
  return nullptr;
}

bool SameRecord(const CZoIPAddr& a, const CZoIPAddr& b) {
  ZONET_SockAddr x = a.GetSockAddr();
  ZONET_SockAddr y = b.GetSockAddr();
  return std::memcmp(&x, &y, sizeof x) == 0;
}

// Waits until dev in ns is running (operationally up), for up to 5 seconds.
bool WaitRunning(const zotest::NetNamespace& ns, const std::string& dev) {
  for (int i = 0; i < 100; ++i) {
    if (ns.Ip("link show dev " + dev + " | grep -q 'state UP'") == 0) return true;
    zotest::RunShell("sleep 0.05");
  }
  return false;
}

// The addresses of the veth test network, as the tests expect them back.
constexpr const char* kMacA = "02:aa:bb:cc:dd:01";
constexpr const char* kMacC = "02:aa:bb:cc:dd:03";
constexpr const char* kV4Net24 = "192.168.1.17";  // prefix 24
constexpr const char* kV4Host32 = "192.168.2.5";  // prefix 32
constexpr const char* kV4Wide0 = "10.77.0.1";     // prefix 0
constexpr const char* kV6First = "fd00:1:2:abcd:ffff::1";
constexpr const char* kV6Second = "fd00:9:9:abcd:1::2";  // other bytes, the same bytes 6 and 7
constexpr const char* kV4Skipped = "192.168.3.3";       // on the adapter without carrier

// Namespace a holds lo (up), va (up, its peer vb up in b) with the addresses
// above, and vc (up, but its peer vd in b is down: no carrier).
class VethNetwork {
public:
  VethNetwork() : a("ifa"), b("ifb") {}
  bool Build() {
    if (!a.Ok() || !b.Ok()) return false;
    if (!zotest::NetNamespace::Veth(a, "va", b, "vb") || !zotest::NetNamespace::Veth(a, "vc", b, "vd")) return false;
    const char* steps[] = {
        "link set lo up",
        // No link-local IPv6 addresses of their own: the lists hold only what the test set.
        "link set va addrgenmode none",
        "link set vc addrgenmode none",
        "link set va address 02:AA:BB:CC:DD:01",
        "link set vc address 02:aa:bb:cc:dd:03",
        "addr add 192.168.1.17/24 dev va",
        "addr add 192.168.2.5/32 dev va",
        "addr add 10.77.0.1/0 dev va",
        "addr add fd00:1:2:abcd:ffff::1/64 dev va nodad",
        "addr add fd00:9:9:abcd:1::2/64 dev va nodad",
        "addr add 192.168.3.3/24 dev vc",
        "link set va up",
        "link set vc up",
    };
    for (const char* step : steps) {
      if (a.Ip(step) != 0) return false;
    }
    if (b.Ip("link set vb up") != 0) return false;
    return WaitRunning(a, "va");
  }
  zotest::NetNamespace a;
  zotest::NetNamespace b;
};

// Builds the network; its skipped adapter's log lines go to a writer that
// keeps them from the test's output (a test that reads them installs its own).
#define BUILD_VETH_NETWORK(net)                                      \
  ZOTEST_REQUIRE_NET_NAMESPACES();                                   \
  LogCapture net##_quiet;                                            \
  VethNetwork net;                                                   \
  ASSERT_TRUE(net.Build()) << "could not build the test network"

}  // namespace

// ---- loopback only ----

TEST(IfList, ALoopbackThatIsDownWithoutAddressesGivesNothing) {
  ZOTEST_REQUIRE_NET_NAMESPACES();
  zotest::FdLeakCheck leaks;
  zotest::NetNamespace ns("iflo");
  ASSERT_TRUE(ns.Ok());
  LogCapture log;
  ns.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_TRUE(pairs.empty());
    std::vector<std::string> macs;
    ASSERT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_TRUE(macs.empty());
  });
  EXPECT_TRUE(log.Lines().empty()) << "the loopback counts whatever its state";
}

TEST(IfList, ALoopbackThatIsDownListsItsAddresses) {
  ZOTEST_REQUIRE_NET_NAMESPACES();
  zotest::FdLeakCheck leaks;
  zotest::NetNamespace ns("iflo");
  ASSERT_TRUE(ns.Ok());
  ASSERT_EQ(ns.Ip("addr add 127.0.0.1/8 dev lo"), 0);
  ASSERT_NE(ns.Ip("link show dev lo | grep -q 'UP'"), 0) << "the loopback should still be down";
  LogCapture log;
  ns.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    ASSERT_EQ(pairs.size(), 1u);
    EXPECT_EQ(Text(pairs[0].first), "127.0.0.1");
    EXPECT_EQ(Text(pairs[0].second), "127.0.0.0");
    EXPECT_EQ(pairs[0].second.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);

    std::vector<std::string> macs;
    ASSERT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_TRUE(macs.empty()) << "the loopback has no hardware address";

    GetAllInterfacesArgs_t args = {true, true};
    GetAllInterfacesRet_t ret;
    ASSERT_FALSE(CZoIPAddr::GetAllInterfaces(args, ret, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_TRUE(ret.addressStrings.empty());
    EXPECT_TRUE(ret.hostNames.empty());
    EXPECT_EQ(Texts(ret.addresses), std::vector<std::string>({"127.0.0.1"}));
  });
  EXPECT_TRUE(log.Lines().empty());
}

TEST(IfList, ALoopbackThatIsUpListsBothFamiliesWithTheirCompanions) {
  ZOTEST_REQUIRE_NET_NAMESPACES();
  zotest::FdLeakCheck leaks;
  zotest::NetNamespace ns("iflo");
  ASSERT_TRUE(ns.Ok());
  ASSERT_EQ(ns.Ip("link set lo up"), 0);
  ns.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    ASSERT_EQ(FirstTexts(pairs), std::vector<std::string>({"127.0.0.1", "::1"}));
    EXPECT_EQ(Text(pairs[0].second), "127.0.0.0");
    // ::1 has zero bytes 6 and 7: an IPv4 companion of 0.0.0.0.
    EXPECT_EQ(pairs[1].second.GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);
    EXPECT_EQ(Text(pairs[1].second), "0.0.0.0");

    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_IPV4).IsError());
    EXPECT_EQ(FirstTexts(pairs), std::vector<std::string>({"127.0.0.1"}));
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_IPV6).IsError());
    EXPECT_EQ(FirstTexts(pairs), std::vector<std::string>({"::1"}));

    std::vector<std::string> macs;
    ASSERT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_TRUE(macs.empty());
  });
}

// ---- the veth network ----

TEST(IfList, AddressesComeInAdapterOrderAndAnAdapterWithoutCarrierIsSkipped) {
  BUILD_VETH_NETWORK(net);
  zotest::FdLeakCheck leaks;
  LogCapture log;
  net.a.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    std::vector<std::string> texts = FirstTexts(pairs);
    ASSERT_EQ(texts.size(), 7u) << ::testing::PrintToString(texts);
    // The loopback (index 1) first, IPv4 before IPv6 as the system lists them;
    // then va with its IPv4 addresses in the order they were added.
    EXPECT_EQ(std::vector<std::string>(texts.begin(), texts.begin() + 5),
              std::vector<std::string>({"127.0.0.1", "::1", kV4Net24, kV4Host32, kV4Wide0}));
    std::vector<std::string> v6(texts.begin() + 5, texts.end());
    std::sort(v6.begin(), v6.end());
    EXPECT_EQ(v6, std::vector<std::string>({kV6First, kV6Second}));
    EXPECT_EQ(std::count(texts.begin(), texts.end(), kV4Skipped), 0);
  });
  std::vector<std::string> lines = log.Lines();
  EXPECT_EQ(lines, std::vector<std::string>({"-1|CZoIPAddr::GetIFList|Skipping disabled interface 'vc'"}));
}

TEST(IfList, IPv4CompanionsAreNetworkAddressesOrCleared) {
  BUILD_VETH_NETWORK(net);
  net.a.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_IPV4).IsError());
    const CZoIPAddr* net24 = CompanionOf(pairs, kV4Net24);
    const CZoIPAddr* host32 = CompanionOf(pairs, kV4Host32);
    const CZoIPAddr* wide0 = CompanionOf(pairs, kV4Wide0);
    ASSERT_TRUE(net24 && host32 && wide0);
    EXPECT_EQ(Text(*net24), "192.168.1.0");
    EXPECT_EQ(net24->GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);
    EXPECT_TRUE(*host32 == CZoIPAddr(kV4Host32));
    EXPECT_TRUE(SameRecord(*wide0, CZoIPAddr())) << "a prefix of 0 leaves the companion cleared";
  });
}

TEST(IfList, IPv6CompanionsComeFromAddressBytesSixAndSevenOnly) {
  BUILD_VETH_NETWORK(net);
  net.a.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_IPV6).IsError());
    const CZoIPAddr* first = CompanionOf(pairs, kV6First);
    const CZoIPAddr* second = CompanionOf(pairs, kV6Second);
    ASSERT_TRUE(first && second);
    // Bytes 6 and 7 are 0xab 0xcd; the word they make, zero-extended and
    // stored as it was, reads 171.205.0.0.
    EXPECT_EQ(first->GetAddressFamily(), CZoIPAddr::IP_FAMILY_IPV4);
    EXPECT_EQ(Text(*first), "171.205.0.0");
    EXPECT_TRUE(SameRecord(*first, *second)) << "nothing but bytes 6 and 7 counts";
    EXPECT_EQ(first->GetPortNumber(), 0);
  });
}

TEST(IfList, PairsAreReplacedAndAddressesAppended) {
  BUILD_VETH_NETWORK(net);
  net.a.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    size_t once = pairs.size();
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_EQ(pairs.size(), once) << "the pair list is emptied first";

    std::vector<CZoIPAddr> addresses(1, CZoIPAddr("10.1.1.1"));
    ASSERT_FALSE(CZoIPAddr::GetIFList(addresses, CZoIPAddr::IP_FAMILY_ANY).IsError());
    ASSERT_FALSE(CZoIPAddr::GetIFList(addresses, CZoIPAddr::IP_FAMILY_ANY).IsError());
    ASSERT_EQ(addresses.size(), 1 + 2 * once);
    std::vector<std::string> texts = Texts(addresses);
    EXPECT_EQ(texts[0], "10.1.1.1");
    EXPECT_EQ(std::vector<std::string>(texts.begin() + 1, texts.begin() + 1 + once),
              std::vector<std::string>(texts.begin() + 1 + once, texts.end()));
    EXPECT_EQ(std::vector<std::string>(texts.begin() + 1, texts.begin() + 1 + once), FirstTexts(pairs));
  });
}

TEST(IfList, HardwareAddressesAsLowerCaseTextAppended) {
  BUILD_VETH_NETWORK(net);
  LogCapture log;
  net.a.Run([&] {
    std::vector<std::string> macs(1, "left by the caller");
    ASSERT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    // The loopback has none, vc is skipped: va's alone, in lower case.
    EXPECT_EQ(macs, std::vector<std::string>({"left by the caller", kMacA}));
    ASSERT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_EQ(macs, std::vector<std::string>({"left by the caller", kMacA, kMacA})) << "duplicates stay";
  });
  EXPECT_EQ(log.Lines(), std::vector<std::string>(2, "-1|CZoIPAddr::GetMACList|Skipping disabled interface 'vc'"));
}

TEST(IfList, AnAdapterWithCarrierShowsItsHardwareAddress) {
  BUILD_VETH_NETWORK(net);
  ASSERT_EQ(net.b.Ip("link set vd up"), 0);
  ASSERT_TRUE(WaitRunning(net.a, "vc"));
  LogCapture log;
  net.a.Run([&] {
    std::vector<std::string> macs;
    ASSERT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    std::sort(macs.begin(), macs.end());
    EXPECT_EQ(macs, std::vector<std::string>({kMacA, kMacC}));
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_IPV4).IsError());
    EXPECT_NE(CompanionOf(pairs, kV4Skipped), nullptr);
  });
  EXPECT_TRUE(log.Lines().empty());
}

// The size is learnt for one family and the fetch asks for all: with IPv6
// addresses about, the buffer is too small for the fetch.
TEST(IfList, AMacListForOneFamilyCanFindItsBufferTooSmall) {
  BUILD_VETH_NETWORK(net);
  LogCapture log;
  net.a.Run([&] {
    std::vector<std::string> macs(1, "kept");
    CZoError e = CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_IPV4);
    EXPECT_TRUE(e.Is(ZONET_ERR_BUFFER_OVERFLOW)) << e.AsString();
    EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetMACList")) << e.AsString();
    EXPECT_TRUE(Contains(e.AsString(), "Error fetching adapter addresses")) << e.AsString();
    EXPECT_EQ(macs, std::vector<std::string>({"kept"}));
  });
  EXPECT_EQ(log.Lines(), std::vector<std::string>({FXString::Format(
                             "-1|CZoIPAddr::GetMACList|Error fetching adapter addresses: %d",
                             static_cast<int>(ZONET_ERR_BUFFER_OVERFLOW))}));
}

TEST(IfList, AFamilyTheQueryDoesNotKnowFailsTheSizeQuery) {
  ZOTEST_REQUIRE_NET_NAMESPACES();
  zotest::NetNamespace ns("iflo");
  ASSERT_TRUE(ns.Ok());
  LogCapture log;
  ns.Run([&] {
    Pairs pairs;
    CZoError e = CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_UNIX);
    EXPECT_TRUE(e.Is(ZONET_ERR_INVALID_PARAMETER)) << e.AsString();
    EXPECT_TRUE(Contains(e.AsString(), "Can't figure out buffer space for adapter addresses.")) << e.AsString();
  });
  EXPECT_EQ(log.Lines().size(), 2u);
}

// ---- the digest, with reverse names from the namespace's own hosts file ----

TEST(IfList, TheDigestSortsAddressesAndLowerCaseNamesWithoutDuplicates) {
  BUILD_VETH_NETWORK(net);
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  const std::string hosts =
      "127.0.0.1 localhost\n"
      "192.168.1.17 Alpha.Test\n"
      "192.168.2.5 ALPHA.test\n"
      "fd00:1:2:abcd:ffff::1 Beta.Test\n"
      "192.168.9.9 Gamma.test\n";
  const zotest::NetNamespace& ns = net.a;
  int status = zotest::RunWithHostsFile(hosts, [&]() -> int {
    ZOTEST_CHILD_CHECK(ns.Enter());
    GetAllInterfacesArgs_t args = {false, true};
    GetAllInterfacesRet_t ret;
    // What the caller left: an address of its own, a text and a name.
    ret.addresses.push_back(CZoIPAddr("192.168.9.9"));
    ret.addressStrings.push_back("zz left");
    ret.hostNames.push_back("gamma.test");
    ZOTEST_CHILD_CHECK(!CZoIPAddr::GetAllInterfaces(args, ret, CZoIPAddr::IP_FAMILY_ANY).IsError());
    ZOTEST_CHILD_CHECK(args.wantAddresses);
    ZOTEST_CHILD_CHECK(args.wantHostNames);
    // Every address of the walk behind the caller's, loopback ones included.
    ZOTEST_CHILD_CHECK(ret.addresses.size() == 8);
    ZOTEST_CHILD_CHECK(Text(ret.addresses[0]) == "192.168.9.9");
    ZOTEST_CHILD_CHECK(Text(ret.addresses[1]) == "127.0.0.1");
    ZOTEST_CHILD_CHECK(Text(ret.addresses[2]) == "::1");
    // Byte-wise order, loopback addresses left out; the address without a
    // name (10.77.0.1, fd00:9:...) is there all the same.
    std::vector<std::string> strings = {kV4Wide0, kV4Net24, kV4Host32, "192.168.9.9", kV6First, kV6Second, "zz left"};
    ZOTEST_CHILD_CHECK(ret.addressStrings == strings);
    // Two addresses on one name give one entry; upper case comes out lower;
    // the caller's name and the name of its address make one.
    std::vector<std::string> names = {"alpha.test", "beta.test", "gamma.test"};
    if (ret.hostNames != names) {
      for (const std::string& name : ret.hostNames) fprintf(stderr, "host name: %s\n", name.c_str());
    }
    ZOTEST_CHILD_CHECK(ret.hostNames == names);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(IfList, TheDigestWithoutNamesAsksForNoNames) {
  BUILD_VETH_NETWORK(net);
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  const zotest::NetNamespace& ns = net.a;
  int status = zotest::RunWithHostsFile("192.168.1.17 alpha.test\n", [&]() -> int {
    ZOTEST_CHILD_CHECK(ns.Enter());
    GetAllInterfacesArgs_t args = {true, false};
    GetAllInterfacesRet_t ret;
    ZOTEST_CHILD_CHECK(!CZoIPAddr::GetAllInterfaces(args, ret, CZoIPAddr::IP_FAMILY_IPV4).IsError());
    ZOTEST_CHILD_CHECK(ret.hostNames.empty());
    std::vector<std::string> strings = {kV4Wide0, kV4Net24, kV4Host32};
    ZOTEST_CHILD_CHECK(ret.addressStrings == strings);
    ZOTEST_CHILD_CHECK(ret.addresses.size() == 4);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(IfList, TheDigestNeedsSomethingAsked) {
  GetAllInterfacesArgs_t args = {false, false};
  GetAllInterfacesRet_t ret;
  ret.addressStrings.push_back("b");
  ret.addressStrings.push_back("a");
  CZoError e = CZoIPAddr::GetAllInterfaces(args, ret, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.Is(ZONET_ERR_INVALID_PARAMETER)) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "Nothing requested in arguments.")) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetAllInterfaces")) << e.AsString();
  EXPECT_EQ(ret.addressStrings, std::vector<std::string>({"b", "a"})) << "nothing is touched";
  EXPECT_FALSE(args.wantAddresses);
}

// ---- the query's outcomes that a machine seldom shows ----

TEST(IfList, AFailingSizeQueryGivesItsNumberTextAndTwoLogLines) {
  zotest::FdLeakCheck leaks;
  LogCapture log;
  FaultScope fault(IfQueryFault::kSizeQueryFails, EIO);
  Pairs pairs(1, std::make_pair(CZoIPAddr("10.0.0.1"), CZoIPAddr()));
  CZoError e = CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.Is(EIO)) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetIFList: Can't figure out buffer space for adapter addresses."))
      << e.AsString();
  EXPECT_TRUE(pairs.empty()) << "emptied before anything else";
  const std::string expected = FXString::Format("Expected error: %d or %d (), but received %d",
                                                static_cast<int>(ZONET_ERR_NO_DATA),
                                                static_cast<int>(ZONET_ERR_BUFFER_OVERFLOW), EIO);
  EXPECT_EQ(log.Lines(), std::vector<std::string>({
                             "-1|CZoIPAddr::GetIFList|Can't figure out buffer space for adapter addresses.",
                             "-1|CZoIPAddr::GetIFList|" + expected,
                         }));

  // The address list: the same error with its own location pushed, and the
  // caller's vector as it was.
  std::vector<CZoIPAddr> addresses(1, CZoIPAddr("10.0.0.2"));
  e = CZoIPAddr::GetIFList(addresses, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.Is(EIO));
  EXPECT_EQ(e.GetItemCount(), 2u) << e.AsString();
  EXPECT_EQ(Texts(addresses), std::vector<std::string>({"10.0.0.2"}));

  log.Clear();
  std::vector<std::string> macs(1, "kept");
  e = CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.Is(EIO));
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetMACList: Can't figure out buffer space")) << e.AsString();
  EXPECT_EQ(macs, std::vector<std::string>({"kept"}));
  EXPECT_EQ(log.Lines(), std::vector<std::string>({
                             "-1|CZoIPAddr::GetMACList|Can't figure out buffer space for adapter addresses.",
                             "-1|CZoIPAddr::GetMACList|" + expected,
                         }));
}

TEST(IfList, ASizeQueryThatSucceedsAtOnceIsAnErrorWithCodeZero) {
  LogCapture log;
  FaultScope fault(IfQueryFault::kSizeQueryFails, 0);
  Pairs pairs;
  CZoError e = CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), 0);
  EXPECT_TRUE(Contains(e.AsString(), "Can't figure out buffer space for adapter addresses.")) << e.AsString();
  std::vector<std::string> lines = log.Lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(Contains(lines[1], "but received 0")) << lines[1];
}

TEST(IfList, TheDigestSucceedsWhenTheQueryFailsWithWhatTheCallerLeftSorted) {
  LogCapture log;
  FaultScope fault(IfQueryFault::kSizeQueryFails, EIO);
  GetAllInterfacesArgs_t args = {true, false};
  GetAllInterfacesRet_t ret;
  ret.addresses.push_back(CZoIPAddr("192.168.0.20"));
  ret.addresses.push_back(CZoIPAddr("127.0.0.1"));
  ret.addresses.push_back(CZoIPAddr("10.0.0.3"));
  ret.addresses.push_back(CZoIPAddr("192.168.0.20"));
  CZoError e = CZoIPAddr::GetAllInterfaces(args, ret, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(ret.addresses.size(), 4u);
  EXPECT_EQ(ret.addressStrings, std::vector<std::string>({"10.0.0.3", "192.168.0.20", "192.168.0.20"}));
  EXPECT_TRUE(ret.hostNames.empty());
  EXPECT_EQ(log.Lines().size(), 2u) << "the walk's failure is logged, then dropped";
}

TEST(IfList, NoAdaptersIsSuccessWithNothingAndADetailLine) {
  FaultScope fault(IfQueryFault::kNoAdapters, 0);
  {
    LogCapture log(1);
    Pairs pairs(1, std::make_pair(CZoIPAddr("10.0.0.1"), CZoIPAddr()));
    EXPECT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    EXPECT_TRUE(pairs.empty());
    EXPECT_TRUE(log.Lines().empty()) << "the detail line needs level 2";
  }
  LogCapture log(2);
  std::vector<CZoIPAddr> addresses(1, CZoIPAddr("10.0.0.2"));
  EXPECT_FALSE(CZoIPAddr::GetIFList(addresses, CZoIPAddr::IP_FAMILY_ANY).IsError());
  EXPECT_EQ(Texts(addresses), std::vector<std::string>({"10.0.0.2"}));
  std::vector<std::string> macs(1, "kept");
  EXPECT_FALSE(CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY).IsError());
  EXPECT_EQ(macs, std::vector<std::string>({"kept"}));
  EXPECT_EQ(log.Lines(), std::vector<std::string>({"2|CZoIPAddr::GetIFList|No interfaces available",
                                                   "2|CZoIPAddr::GetMACList|No interfaces available"}));
}

TEST(IfList, AFailedAllocationIsCodeEightWithItsLine) {
  LogCapture log;
  FaultScope fault(IfQueryFault::kAllocationFails, 0);
  Pairs pairs;
  CZoError e = CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.Is(ZONET_ERR_NOT_ENOUGH_MEMORY)) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "Error allocating memory for pAdapterAddBuff")) << e.AsString();
  EXPECT_EQ(log.Lines(),
            std::vector<std::string>({"-1|CZoIPAddr::GetIFList|Error allocating memory for pAdapterAddBuff"}));
}

TEST(IfList, AFailedFetchKeepsItsTextAndLogsItsNumber) {
  zotest::FdLeakCheck leaks;
  LogCapture log;
  FaultScope fault(IfQueryFault::kFetchFails, EAGAIN);
  std::vector<std::string> macs;
  CZoError e = CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY);
  EXPECT_TRUE(e.Is(EAGAIN)) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetMACList: Error fetching adapter addresses")) << e.AsString();
  EXPECT_TRUE(macs.empty());
  EXPECT_EQ(log.Lines(), std::vector<std::string>({FXString::Format(
                             "-1|CZoIPAddr::GetMACList|Error fetching adapter addresses: %d", EAGAIN)}));
}

TEST(IfList, AnAddressOfAnotherFamilyIsSkippedWithItsLine) {
  ZOTEST_REQUIRE_NET_NAMESPACES();
  zotest::NetNamespace ns("iflo");
  ASSERT_TRUE(ns.Ok());
  ASSERT_EQ(ns.Ip("link set lo up"), 0);
  LogCapture log;
  FaultScope fault(IfQueryFault::kForeignFamily, 0);
  ns.Run([&] {
    Pairs pairs;
    ASSERT_FALSE(CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY).IsError());
    // The loopback's first address (127.0.0.1) now reads as a local one.
    EXPECT_EQ(FirstTexts(pairs), std::vector<std::string>({"::1"}));
  });
  EXPECT_EQ(log.Lines(), std::vector<std::string>({FXString::Format(
                             "-1|CZoIPAddr::GetIFList|Unknown address family (%d), skipping",
                             static_cast<int>(ZONET_FAMILY_UNIX))}));
}
