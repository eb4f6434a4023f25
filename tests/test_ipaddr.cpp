// CZoIPAddr: construction, the comparison rule, ports, text, paths, the
// collision marker on numeric answers, and the IPv4 CIDR arithmetic.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "ZoNetwork/ZoIPAddr.h"
#include "ipaddr_test_util.h"
#include "support/TestSupport.h"

namespace {

using IP = CZoIPAddr;

using iptest::Contains;
using iptest::Text;

CZoIPAddr Parsed(const char* text) {
  CZoIPAddr addr;
  CZoError e = addr.SetAddressString(text);
  EXPECT_FALSE(e.IsError()) << text << ": " << e.AsString();
  return addr;
}

CZoIPAddr WithPort(const char* text, int port) {
  CZoIPAddr addr = Parsed(text);
  EXPECT_FALSE(addr.SetPortNumber(port).IsError());
  return addr;
}

// Runs body in a forked child, so that once-only process settings (the family
// preference) can be set without touching the other tests. body returns 0
// when every check held; a failed check prints itself on stderr.
int InChild(const std::function<int()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string LongPath(size_t length) {
  std::string path = "/";
  path.append(length - 1, 'p');
  return path;
}

}  // namespace

// ---------------------------------------------------------------- layout and clearing

TEST(IPAddr, IsExactlyOneRecordAndCopiesAsABlock) {
  static_assert(sizeof(CZoIPAddr) == sizeof(ZONET_SockAddr), "one record");
  CZoIPAddr a = WithPort("10.0.0.1", 8080);
  CZoIPAddr b(a);
  ZONET_SockAddr ra = a.GetSockAddr();
  ZONET_SockAddr rb = b.GetSockAddr();
  EXPECT_EQ(std::memcmp(&ra, &rb, sizeof ra), 0);
  EXPECT_EQ(b.GetPortNumber(), 8080);
}

TEST(IPAddr, FamilyNumbersAreThePlatformsOwn) {
  EXPECT_EQ(IP::IP_FAMILY_ANY, 0);
  EXPECT_EQ(IP::IP_FAMILY_UNIX, AF_UNIX);
  EXPECT_EQ(IP::IP_FAMILY_IPV4, AF_INET);
  EXPECT_EQ(IP::IP_FAMILY_IPV6, AF_INET6);
}

TEST(IPAddr, ADefaultObjectIsAllZeroWithThePreferredFamily) {
  CZoIPAddr addr;
  ZONET_SockAddr record = addr.GetSockAddr();
  EXPECT_EQ(addr.GetAddressFamily(), IP::GetPreferredFamily());
  for (size_t i = 2; i < sizeof record.bytes; ++i) ASSERT_EQ(record.bytes[i], 0) << "byte " << i;
  EXPECT_EQ(addr.GetPortNumber(), 0);
}

TEST(IPAddr, ThePreferredFamilyShapesEveryClearedObject) {
  int rc = InChild([] {
    IP::SetPreferredFamily(IP::IP_FAMILY_IPV6);
    IPTEST_CHILD_CHECK(IP::GetPreferredFamily() == IP::IP_FAMILY_IPV6);
    IPTEST_CHILD_CHECK(std::strcmp(IP::GetPreferredFamilyString(), "IPv6") == 0);
    CZoIPAddr cleared;
    IPTEST_CHILD_CHECK(cleared.GetAddressFamily() == IP::IP_FAMILY_IPV6);
    IPTEST_CHILD_CHECK(Text(cleared) == "::");
    CZoIPAddr unparsed("not an address");
    IPTEST_CHILD_CHECK(unparsed.GetAddressFamily() == IP::IP_FAMILY_IPV6);
    CZoString mask;
    IPTEST_CHILD_CHECK(!IP::ConvertCIDRPrefixToSubnetMaskString(0, mask).IsError());
    IPTEST_CHILD_CHECK(mask == "::");
    return 0;
  });
  EXPECT_EQ(rc, 0);
}

TEST(IPAddr, AnIPv4PreferenceRendersAnOutOfRangeMaskAsTheZeroAddress) {
  int rc = InChild([] {
    IP::SetPreferredFamily(IP::IP_FAMILY_IPV4);
    CZoString mask;
    IPTEST_CHILD_CHECK(!IP::ConvertCIDRPrefixToSubnetMaskString(33, mask).IsError());
    IPTEST_CHILD_CHECK(mask == "0.0.0.0");
    IPTEST_CHILD_CHECK(!IP::ConvertCIDRPrefixToSubnetMaskString(-1, mask).IsError());
    IPTEST_CHILD_CHECK(mask == "0.0.0.0");
    // A cleared IPv4 object has a family, so a port can be set on it.
    CZoIPAddr cleared;
    IPTEST_CHILD_CHECK(!cleared.SetPortNumber(5).IsError());
    IPTEST_CHILD_CHECK(cleared.GetPortNumber() == 5);
    return 0;
  });
  EXPECT_EQ(rc, 0);
}

TEST(IPAddr, ClearForgetsAddressAndPort) {
  CZoIPAddr addr = WithPort("192.168.1.1", 99);
  addr.Clear();
  EXPECT_EQ(addr.GetAddressFamily(), IP::GetPreferredFamily());
  EXPECT_EQ(addr.GetPortNumber(), 0);
  EXPECT_EQ(addr.GetSockAddr().ipv4.addr, 0u);
}

TEST(IPAddr, SetAddressFamilyDestroysTheAddress) {
  CZoIPAddr addr = WithPort("10.9.8.7", 1234);
  addr.SetAddressFamily(IP::IP_FAMILY_IPV4);
  EXPECT_EQ(addr.GetAddressFamily(), IP::IP_FAMILY_IPV4);
  EXPECT_EQ(addr.GetPortNumber(), 0);
  EXPECT_EQ(Text(addr), "0.0.0.0");
  addr.SetAddressFamily(IP::IP_FAMILY_IPV6);
  EXPECT_EQ(Text(addr), "::");
}

TEST(IPAddr, FamilyStrings) {
  CZoIPAddr addr;
  addr.SetAddressFamily(IP::IP_FAMILY_IPV4);
  EXPECT_STREQ(addr.GetAddressFamilyString(), "IPv4");
  addr.SetAddressFamily(IP::IP_FAMILY_IPV6);
  EXPECT_STREQ(addr.GetAddressFamilyString(), "IPv6");
  addr.SetAddressFamily(IP::IP_FAMILY_UNIX);
  EXPECT_STREQ(addr.GetAddressFamilyString(), "UNIX");
  addr.SetAddressFamily(IP::IP_FAMILY_ANY);
  EXPECT_STREQ(addr.GetAddressFamilyString(), "ANY");
  addr.SetAddressFamily(static_cast<IP::IP_FAMILY>(99));
  EXPECT_STREQ(addr.GetAddressFamilyString(), "ANY");
}

// ---------------------------------------------------------------- comparison

TEST(IPAddr, AnObjectOfFamilyAnyIsNotEqualToItself) {
  CZoIPAddr addr;
  addr.SetAddressFamily(IP::IP_FAMILY_ANY);
  const CZoIPAddr& same = addr;
  EXPECT_FALSE(addr == same);
  EXPECT_TRUE(addr != same);
  CZoIPAddr other = addr;
  EXPECT_FALSE(addr == other);
}

TEST(IPAddr, AnUnknownFamilyEqualsNothingEvenWithTheSameBytes) {
  CZoIPAddr addr;
  addr.SetAddressFamily(static_cast<IP::IP_FAMILY>(42));
  CZoIPAddr copy(addr);
  EXPECT_FALSE(addr == copy);
}

TEST(IPAddr, PortsDoNotTakePartInEquality) {
  EXPECT_TRUE(WithPort("10.0.0.1", 80) == WithPort("10.0.0.1", 443));
  EXPECT_FALSE(WithPort("10.0.0.1", 80) != WithPort("10.0.0.1", 443));
  EXPECT_FALSE(WithPort("10.0.0.1", 80) == WithPort("10.0.0.2", 80));
}

TEST(IPAddr, IPv6ScopeAndFlowInformationDoNotTakePartInEquality) {
  sockaddr_in6 a;
  std::memset(&a, 0, sizeof a);
  a.sin6_family = AF_INET6;
  ASSERT_EQ(inet_pton(AF_INET6, "fe80::1", &a.sin6_addr), 1);
  sockaddr_in6 b = a;
  a.sin6_scope_id = 3;
  b.sin6_scope_id = 5;
  b.sin6_flowinfo = htonl(0x12345);
  b.sin6_port = htons(9);
  EXPECT_TRUE(CZoIPAddr(a) == CZoIPAddr(b));
  sockaddr_in6 c = a;
  c.sin6_addr.s6_addr[15] = 2;
  EXPECT_TRUE(CZoIPAddr(a) != CZoIPAddr(c));
}

TEST(IPAddr, AnIPv4AddressIsUnequalToItsMappedIPv6Form) {
  CZoIPAddr v4 = Parsed("10.0.0.1");
  CZoIPAddr mapped = Parsed("::ffff:10.0.0.1");
  EXPECT_EQ(mapped.GetAddressFamily(), IP::IP_FAMILY_IPV6);
  EXPECT_FALSE(v4 == mapped);
  EXPECT_TRUE(v4 != mapped);
}

TEST(IPAddr, LocalAddressesCompareTheirPathsExactly) {
  EXPECT_TRUE(Parsed("/tmp/a.sock") == Parsed("/tmp/a.sock"));
  EXPECT_FALSE(Parsed("/tmp/a.sock") == Parsed("/tmp/A.sock"));
  EXPECT_FALSE(Parsed("/tmp/a.sock") == Parsed("/tmp/a.sock2"));
}

TEST(IPAddr, DifferentFamiliesAreUnequal) {
  CZoIPAddr zero4 = Parsed("0.0.0.0");
  CZoIPAddr zero6 = Parsed("::");
  EXPECT_FALSE(zero4 == zero6);
}

// ---------------------------------------------------------------- ports

TEST(IPAddr, SetPortNumberOnFamilyAnyFailsWithTheStateError) {
  CZoIPAddr addr;
  addr.SetAddressFamily(IP::IP_FAMILY_ANY);
  CZoError e = addr.SetPortNumber(80);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_STATE);
  EXPECT_TRUE(Contains(e.AsString(), "Address family not set")) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::SetPortNumber")) << e.AsString();
}

TEST(IPAddr, SetPortNumberOnALocalAddressSucceedsAndStoresNothing) {
  CZoIPAddr addr = Parsed("/run/x.sock");
  ZONET_SockAddr before = addr.GetSockAddr();
  EXPECT_FALSE(addr.SetPortNumber(8080).IsError());
  EXPECT_EQ(addr.GetPortNumber(), 0);
  ZONET_SockAddr after = addr.GetSockAddr();
  EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}

TEST(IPAddr, PortsAreCutTo16BitsWithoutARangeCheck) {
  CZoIPAddr v4 = Parsed("10.0.0.1");
  ASSERT_FALSE(v4.SetPortNumber(70000).IsError());
  EXPECT_EQ(v4.GetPortNumber(), 4464);
  ASSERT_FALSE(v4.SetPortNumber(-1).IsError());
  EXPECT_EQ(v4.GetPortNumber(), 65535);
  CZoIPAddr v6 = Parsed("::1");
  ASSERT_FALSE(v6.SetPortNumber(65536 + 22).IsError());
  EXPECT_EQ(v6.GetPortNumber(), 22);
}

TEST(IPAddr, ThePortIsStoredInNetworkOrder) {
  CZoIPAddr v4 = WithPort("10.0.0.1", 0x1234);
  EXPECT_EQ(v4.GetIPv4SockAddr().sin_port, htons(0x1234));
  CZoIPAddr v6 = WithPort("::1", 0x1234);
  EXPECT_EQ(v6.GetIPv6SockAddr().sin6_port, htons(0x1234));
}

// ---------------------------------------------------------------- platform records

TEST(IPAddr, ConstructionFromSockaddrInClearsFirst) {
  sockaddr_in in;
  std::memset(&in, 0, sizeof in);
  in.sin_family = AF_INET;
  in.sin_port = htons(53);
  in.sin_addr.s_addr = htonl(0x0A000001);
  CZoIPAddr addr(in);
  EXPECT_EQ(Text(addr), "10.0.0.1");
  EXPECT_EQ(addr.GetPortNumber(), 53);
  ZONET_SockAddr record = addr.GetSockAddr();
  for (size_t i = sizeof in; i < sizeof record.bytes; ++i) ASSERT_EQ(record.bytes[i], 0) << "byte " << i;
}

TEST(IPAddr, AssigningASockaddrOverwritesOnlyItsLeadingBytes) {
  CZoIPAddr addr = Parsed("/a/long/enough/path/to/reach/past/sixteen/and/twenty/eight/bytes");
  ZONET_SockAddr before = addr.GetSockAddr();
  sockaddr_in in;
  std::memset(&in, 0, sizeof in);
  in.sin_family = AF_INET;
  in.sin_addr.s_addr = htonl(0x7F000001);
  addr = in;
  ZONET_SockAddr after = addr.GetSockAddr();
  EXPECT_EQ(Text(addr), "127.0.0.1");
  EXPECT_EQ(std::memcmp(before.bytes + sizeof in, after.bytes + sizeof in, sizeof before.bytes - sizeof in), 0);

  sockaddr_in6 in6;
  std::memset(&in6, 0, sizeof in6);
  in6.sin6_family = AF_INET6;
  in6.sin6_addr.s6_addr[15] = 1;
  addr = in6;
  after = addr.GetSockAddr();
  EXPECT_EQ(Text(addr), "::1");
  EXPECT_EQ(std::memcmp(before.bytes + sizeof in6, after.bytes + sizeof in6, sizeof before.bytes - sizeof in6), 0);
}

TEST(IPAddr, RecordAssignmentAndConstructionCopyTheWholeRecord) {
  ZONET_SockAddr record;
  for (size_t i = 0; i < sizeof record.bytes; ++i) record.bytes[i] = static_cast<uint8_t>(i * 7);
  record.family = ZONET_FAMILY_IPV4;
  CZoIPAddr constructed(record);
  CZoIPAddr assigned;
  assigned = record;
  ZONET_SockAddr a = constructed.GetSockAddr();
  ZONET_SockAddr b = assigned.GetSockAddr();
  EXPECT_EQ(std::memcmp(&a, &record, sizeof record), 0);
  EXPECT_EQ(std::memcmp(&b, &record, sizeof record), 0);
}

TEST(IPAddr, TheSockaddrViewsReadTheLeadingBytesWhateverTheFamily) {
  CZoIPAddr path = Parsed("/abcdefghijklmnopqrstuvwxyz");
  sockaddr_in v4 = path.GetIPv4SockAddr();
  sockaddr_in6 v6 = path.GetIPv6SockAddr();
  ZONET_SockAddr record = path.GetSockAddr();
  EXPECT_EQ(std::memcmp(&v4, &record, sizeof v4), 0);
  EXPECT_EQ(std::memcmp(&v6, &record, sizeof v6), 0);
  EXPECT_EQ(v4.sin_family, AF_UNIX);
}

TEST(IPAddr, GetUnixSockAddrGivesThePathOnlyForLocalAddresses) {
  EXPECT_EQ(Parsed("/run/app.sock").GetUnixSockAddr(), "/run/app.sock");
  EXPECT_EQ(Parsed("C:\\run\\app.sock").GetUnixSockAddr(), "C:\\run\\app.sock");
  EXPECT_EQ(Parsed("10.0.0.1").GetUnixSockAddr(), "");
}

// ---------------------------------------------------------------- text

TEST(IPAddr, TextNeverCarriesThePort) {
  EXPECT_EQ(Text(WithPort("192.168.10.20", 8080)), "192.168.10.20");
  EXPECT_EQ(Text(WithPort("2001:db8::5", 8080)), "2001:db8::5");
}

TEST(IPAddr, ALocalAddressRendersAsItsPath) { EXPECT_EQ(Text(Parsed("/var/run/x")), "/var/run/x"); }

TEST(IPAddr, RenderingFamilyAnyFailsAndLeavesTheOutputEmpty) {
  CZoIPAddr addr;
  addr.SetAddressFamily(IP::IP_FAMILY_ANY);
  CZoString out("previous text");
  CZoError e = addr.GetAddressString(out);
  EXPECT_TRUE(e.IsError());
  EXPECT_TRUE(out.IsEmpty());
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetAddressString")) << e.AsString();
}

TEST(IPAddr, SetAddressStringParsesNumbersWithPortZero) {
  CZoIPAddr addr = WithPort("1.2.3.4", 77);
  ASSERT_FALSE(addr.SetAddressString("5.6.7.8").IsError());
  EXPECT_EQ(addr.GetPortNumber(), 0);
  EXPECT_EQ(addr.GetAddressFamily(), IP::IP_FAMILY_IPV4);
  EXPECT_EQ(Text(addr), "5.6.7.8");
  ASSERT_FALSE(addr.SetAddressString("fe80::abcd").IsError());
  EXPECT_EQ(addr.GetAddressFamily(), IP::IP_FAMILY_IPV6);
  EXPECT_EQ(Text(addr), "fe80::abcd");
}

TEST(IPAddr, SetAddressStringNeverResolvesANameAndReportsTheParserCode) {
  CZoIPAddr addr = Parsed("10.1.1.1");
  CZoError e = addr.SetAddressString("localhost");
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), EAI_NONAME);
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::SetAddressString")) << e.AsString();
}

TEST(IPAddr, SetAddressStringDoesNotClearFirst) {
  CZoIPAddr addr = Parsed("/a/path/that/is/longer/than/the/ipv4/form");
  ZONET_SockAddr before = addr.GetSockAddr();
  ASSERT_FALSE(addr.SetAddressString("10.0.0.1").IsError());
  ZONET_SockAddr after = addr.GetSockAddr();
  EXPECT_EQ(std::memcmp(before.bytes + 16, after.bytes + 16, sizeof before.bytes - 16), 0);
}

TEST(IPAddr, SetAddressStringOfANullTextIsAnInvalidParameter) {
  CZoIPAddr addr = Parsed("10.0.0.1");
  CZoError e = addr.SetAddressString(nullptr);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
}

TEST(IPAddr, ConstructionFromTextThatDoesNotParseLeavesTheObjectCleared) {
  CZoIPAddr bad("300.1.1.1");
  CZoIPAddr cleared;
  ZONET_SockAddr a = bad.GetSockAddr();
  ZONET_SockAddr b = cleared.GetSockAddr();
  EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
  CZoIPAddr null(static_cast<const char*>(nullptr));
  ZONET_SockAddr c = null.GetSockAddr();
  EXPECT_EQ(std::memcmp(&c, &b, sizeof c), 0);
  EXPECT_EQ(Text(CZoIPAddr("172.16.0.9")), "172.16.0.9");
}

TEST(IPAddr, AssigningTextReportsNothing) {
  CZoIPAddr addr;
  addr = "10.20.30.40";
  EXPECT_EQ(Text(addr), "10.20.30.40");
  addr = "no such address";  // nothing to report it with
  addr = static_cast<const char*>(nullptr);
  addr = "/tmp/s";
  EXPECT_EQ(addr.GetUnixSockAddr(), "/tmp/s");
}

TEST(IPAddr, APathOf107CharactersFitsAndOneOf108IsRefusedByTheParser) {
  CZoIPAddr addr;
  ASSERT_FALSE(addr.SetAddressString(LongPath(107).c_str()).IsError());
  EXPECT_EQ(addr.GetUnixSockAddr(), LongPath(107));
  CZoError e = addr.SetAddressString(LongPath(108).c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NAME_TOO_LONG);
}

// ---------------------------------------------------------------- look-ups without a name

TEST(IPAddr, ANullNameIsRefusedByBothLookups) {
  CZoIPAddr out = Parsed("10.0.0.1");
  CZoError e = IP::GetByName(nullptr, out, IP::IP_FAMILY_ANY);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_TRUE(Contains(e.AsString(), "Null parameter passed")) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetByName")) << e.AsString();
  EXPECT_EQ(Text(out), "10.0.0.1");

  std::vector<CZoIPAddr> all(2, out);
  e = IP::GetAllByName(nullptr, all, IP::IP_FAMILY_ANY);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_TRUE(Contains(e.AsString(), "Null parameter passed")) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetAllByName")) << e.AsString();
  EXPECT_EQ(all.size(), 2u);
}

TEST(IPAddr, ANameWithABackslashIsALocalPathAndNeverAResolverName) {
  zotest::FdLeakCheck fds;
  CZoIPAddr out;
  // No resolver knows this name; as a path it needs none.
  ASSERT_FALSE(IP::GetByName("pipe\\no-such-host.invalid", out, IP::IP_FAMILY_IPV4).IsError());
  EXPECT_EQ(out.GetAddressFamily(), IP::IP_FAMILY_UNIX);
  EXPECT_EQ(out.GetUnixSockAddr(), "pipe\\no-such-host.invalid");
  ASSERT_FALSE(IP::GetByName("dir/no-such-host.invalid", out, IP::IP_FAMILY_IPV6).IsError());
  EXPECT_EQ(out.GetUnixSockAddr(), "dir/no-such-host.invalid");
}

TEST(IPAddr, ALongPathIsCutTo107CharactersByTheLookupButRefusedByTheParser) {
  std::string path = LongPath(200);
  CZoIPAddr out;
  ASSERT_FALSE(IP::GetByName(path.c_str(), out, IP::IP_FAMILY_ANY).IsError());
  EXPECT_EQ(out.GetUnixSockAddr(), path.substr(0, 107));

  std::vector<CZoIPAddr> all;
  ASSERT_FALSE(IP::GetAllByName(path.c_str(), all, IP::IP_FAMILY_ANY).IsError());
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].GetUnixSockAddr(), path.substr(0, 107));

  CZoIPAddr parsed;
  CZoError e = parsed.SetAddressString(path.c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NAME_TOO_LONG);
}

TEST(IPAddr, GetAllByNameOfAPathEmptiesTheVectorFirst) {
  std::vector<CZoIPAddr> all = {Parsed("10.0.0.1"), Parsed("10.0.0.2")};
  ASSERT_FALSE(IP::GetAllByName("/tmp/one.sock", all, IP::IP_FAMILY_ANY).IsError());
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].GetUnixSockAddr(), "/tmp/one.sock");
  ASSERT_FALSE(IP::GetAllByName("/tmp/one.sock", all, IP::IP_FAMILY_ANY).IsError());
  EXPECT_EQ(all.size(), 1u);
}

TEST(IPAddr, ANumericAnswerGivesTheAddressWithPortZero) {
  zotest::FdLeakCheck fds;
  CZoIPAddr out = WithPort("10.0.0.1", 99);
  ASSERT_FALSE(IP::GetByName("192.0.2.7", out, IP::IP_FAMILY_IPV4).IsError());
  EXPECT_EQ(Text(out), "192.0.2.7");
  EXPECT_EQ(out.GetPortNumber(), 0);
  ASSERT_FALSE(IP::GetByName("2001:db8::7", out, IP::IP_FAMILY_IPV6).IsError());
  EXPECT_EQ(out.GetAddressFamily(), IP::IP_FAMILY_IPV6);
  EXPECT_EQ(Text(out), "2001:db8::7");
}

TEST(IPAddr, AResolverFailureCarriesItsOwnCode) {
  zotest::FdLeakCheck fds;
  CZoIPAddr out = Parsed("10.0.0.1");
  // An IPv6 text asked for as IPv4 fails inside the resolver, without a query.
  CZoError e = IP::GetByName("2001:db8::1", out, IP::IP_FAMILY_IPV4);
  ASSERT_TRUE(e.IsError());
  EXPECT_LT(e.GetErrorCode(), 0) << "an EAI_* code";
  EXPECT_EQ(Text(out), "10.0.0.1");
  // A family the resolver doesn't know.
  e = IP::GetByName("10.0.0.9", out, IP::IP_FAMILY_UNIX);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), EAI_FAMILY);
}

TEST(IPAddr, GetAllByNameAppendsOnEveryCallDuplicatesIncluded) {
  zotest::FdLeakCheck fds;
  std::vector<CZoIPAddr> all = {Parsed("/kept/by/the/caller")};
  ASSERT_FALSE(IP::GetAllByName("127.0.0.1", all, IP::IP_FAMILY_IPV4).IsError());
  ASSERT_FALSE(IP::GetAllByName("127.0.0.1", all, IP::IP_FAMILY_IPV4).IsError());
  ASSERT_EQ(all.size(), 3u);
  EXPECT_EQ(all[0].GetUnixSockAddr(), "/kept/by/the/caller");
  EXPECT_EQ(Text(all[1]), "127.0.0.1");
  EXPECT_EQ(Text(all[2]), "127.0.0.1");
  EXPECT_EQ(all[1].GetPortNumber(), 0);
}

// ---------------------------------------------------------------- the collision marker

TEST(IPAddr, TheCollisionMarkerIsRefusedOnceTheProbeHasWorked) {
  zotest::FdLeakCheck fds;
  CZoIPAddr probe;  // a default construction probes while the marker isn't set
  CZoIPAddr out = Parsed("10.0.0.1");
  CZoError e = IP::GetByName("127.0.53.53", out, IP::IP_FAMILY_IPV4);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_TRUE(Contains(e.AsString(), "DNS name collision occured")) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::GetByName")) << e.AsString();
  // out keeps the marker address.
  EXPECT_EQ(out.GetAddressFamily(), IP::IP_FAMILY_IPV4);
  EXPECT_EQ(out.GetSockAddr().ipv4.addr, htonl(0x7F003535));

  std::vector<CZoIPAddr> all = {Parsed("10.0.0.1")};
  e = IP::GetAllByName("127.0.53.53", all, IP::IP_FAMILY_ANY);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_TRUE(Contains(e.AsString(), "DNS name collision occured")) << e.AsString();
  ASSERT_EQ(all.size(), 1u) << "the marker itself is never appended";
}

TEST(IPAddr, TheMarkerIsAnIPv4AddressOnly) {
  CZoIPAddr probe;
  CZoIPAddr out;
  // The same four bytes in an IPv6 answer are no collision.
  EXPECT_FALSE(IP::GetByName("::ffff:127.0.53.53", out, IP::IP_FAMILY_IPV6).IsError());
  EXPECT_FALSE(IP::GetByName("127.0.53.54", out, IP::IP_FAMILY_IPV4).IsError());
}

TEST(IPAddr, ThePortOfTheOutputDoesNotHideTheMarker) {
  CZoIPAddr probe;
  CZoIPAddr out = WithPort("10.0.0.1", 4000);
  CZoError e = IP::GetByName("127.0.53.53", out, IP::IP_FAMILY_ANY);
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_EQ(out.GetPortNumber(), 0);
}

// ---------------------------------------------------------------- IPv4 CIDR

TEST(IPAddr, SubnetMaskFromPrefix) {
  CZoIPAddr mask;
  ASSERT_FALSE(mask.SetSubnetMaskFromCIDRPrefix(32).IsError());
  EXPECT_EQ(Text(mask), "255.255.255.255");
  ASSERT_FALSE(mask.SetSubnetMaskFromCIDRPrefix(1).IsError());
  EXPECT_EQ(Text(mask), "128.0.0.0");
  ASSERT_FALSE(mask.SetSubnetMaskFromCIDRPrefix(20).IsError());
  EXPECT_EQ(Text(mask), "255.255.240.0");
  EXPECT_EQ(mask.GetAddressFamily(), IP::IP_FAMILY_IPV4);
}

TEST(IPAddr, AnOutOfRangePrefixLeavesTheObjectAsItWasAndSucceeds) {
  CZoIPAddr addr = WithPort("10.0.0.1", 80);
  ZONET_SockAddr before = addr.GetSockAddr();
  for (int prefix : {33, 0, -1, 1000}) {
    EXPECT_FALSE(addr.SetSubnetMaskFromCIDRPrefix(prefix).IsError()) << prefix;
    ZONET_SockAddr after = addr.GetSockAddr();
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0) << prefix;
  }
}

TEST(IPAddr, TheMaskLeavesThePortAlone) {
  CZoIPAddr addr = WithPort("2001:db8::1", 4242);
  ASSERT_FALSE(addr.SetSubnetMaskFromCIDRPrefix(8).IsError());
  EXPECT_EQ(addr.GetAddressFamily(), IP::IP_FAMILY_IPV4);
  EXPECT_EQ(Text(addr), "255.0.0.0");
  EXPECT_EQ(addr.GetPortNumber(), 4242);
}

TEST(IPAddr, PrefixToMaskText) {
  CZoString out;
  ASSERT_FALSE(IP::ConvertCIDRPrefixToSubnetMaskString(24, out).IsError());
  EXPECT_EQ(std::string(out.c_str()), "255.255.255.0");
  ASSERT_FALSE(IP::ConvertCIDRPrefixToSubnetMaskString(32, out).IsError());
  EXPECT_EQ(std::string(out.c_str()), "255.255.255.255");
}

TEST(IPAddr, AnOutOfRangePrefixGivesAnEmptyTextWhileNoFamilyIsPreferred) {
  if (IP::GetPreferredFamily() != IP::IP_FAMILY_ANY) GTEST_SKIP() << "a preference is stored in this process";
  CZoString out("something");
  EXPECT_FALSE(IP::ConvertCIDRPrefixToSubnetMaskString(0, out).IsError());
  EXPECT_TRUE(out.IsEmpty());
  EXPECT_FALSE(IP::ConvertCIDRPrefixToSubnetMaskString(40, out).IsError());
  EXPECT_TRUE(out.IsEmpty());
}

namespace {

CZoError Within(const std::string& address, const std::string& block, bool& result) {
  return IP::CheckIfIpv4AddressIsWithinCidrBlock(address, block, result);
}

bool IsWithin(const std::string& address, const std::string& block) {
  bool result = false;
  CZoError e = Within(address, block, result);
  EXPECT_FALSE(e.IsError()) << address << " in " << block << ": " << e.AsString();
  return result;
}

}  // namespace

TEST(IPAddr, AnAddressWithinAndOutsideABlock) {
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.1.0.0/16"));
  EXPECT_FALSE(IsWithin("10.1.2.3", "10.2.0.0/16"));
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.1.2.3/32"));
  EXPECT_FALSE(IsWithin("10.1.2.4", "10.1.2.3/32"));
  EXPECT_TRUE(IsWithin("192.168.1.200", "192.168.1.128/25"));
  EXPECT_FALSE(IsWithin("192.168.1.100", "192.168.1.128/25"));
}

TEST(IPAddr, APrefixOutOfRangeOrNotANumberMakesABlockThatHoldsEveryAddress) {
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.2.0.0/0"));
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.2.0.0/33"));
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.2.0.0/abc"));
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.2.0.0/-8"));
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.2.0.0/99999999999999999999"));
  EXPECT_TRUE(IsWithin("10.1.2.3", "10.2.0.0/"));
}

TEST(IPAddr, APrefixIsReadAsAtoiReadsIt) {
  EXPECT_FALSE(IsWithin("10.1.2.3", "10.2.0.0/16abc"));
  EXPECT_FALSE(IsWithin("10.1.2.3", "10.2.0.0/ 16"));
}

TEST(IPAddr, PartsBeyondTheSecondAreIgnored) {
  EXPECT_FALSE(IsWithin("10.1.2.3", "10.2.0.0/16/9"));
  EXPECT_TRUE(IsWithin("10.2.2.3", "10.2.0.0/16/9"));
}

TEST(IPAddr, ABlockWithoutASlashIsRefusedAndTheResultIsNotWritten) {
  bool result = true;
  CZoError e = Within("10.1.2.3", "10.2.0.0", result);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_TRUE(Contains(e.AsString(), "Invalid CIDR block: [10.2.0.0].")) << e.AsString();
  EXPECT_TRUE(Contains(e.AsString(), "CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock")) << e.AsString();
  EXPECT_TRUE(result);
  result = false;
  e = Within("10.1.2.3", "", result);
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_TRUE(Contains(e.AsString(), "Invalid CIDR block: [].")) << e.AsString();
  EXPECT_FALSE(result);
}

TEST(IPAddr, ABlockAddressThatDoesNotParseIsItsParseError) {
  bool result = true;
  CZoError e = Within("10.1.2.3", "ten.two/16", result);
  ASSERT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), EAI_NONAME);
  // The parser's place comes first, then the check's.
  ASSERT_EQ(e.GetItemCount(), 2u);
  EXPECT_STREQ(e.GetItem(0)->GetLocation().GetFunction(), "CZoIPAddr::SetAddressString");
  EXPECT_STREQ(e.GetItem(1)->GetLocation().GetFunction(), "CZoIPAddr::CheckIfIpv4AddressIsWithinCidrBlock");
  EXPECT_TRUE(result);
}

TEST(IPAddr, AnAddressThatDoesNotParseCountsAsAllZero) {
  EXPECT_TRUE(IsWithin("not an address", "0.0.0.0/8"));
  EXPECT_FALSE(IsWithin("not an address", "10.0.0.0/8"));
  EXPECT_TRUE(IsWithin("", "0.0.0.0/1"));
}

TEST(IPAddr, AnIPv6BlockReadsItsFlowInformationWordWhichIsZero) {
  EXPECT_TRUE(IsWithin("0.1.2.3", "2001:db8::/8"));
  EXPECT_FALSE(IsWithin("10.1.2.3", "2001:db8::/8"));
}

// ---------------------------------------------------------------- the exported face

TEST(IPAddr, TheSharedLibraryExportsTheClassButNotTheTestHooks) {
  void* lib = dlopen(ZONETWORK_SO, RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(lib, nullptr) << dlerror();
  EXPECT_NE(dlsym(lib, "_ZN9CZoIPAddr9GetByNameEPKcRS_NS_9IP_FAMILYE"), nullptr);
  EXPECT_NE(dlsym(lib, "_ZNK9CZoIPAddreqERKS_"), nullptr);
  EXPECT_NE(dlsym(lib, "_ZN18CZoIPAddrBlacklist20IsAddressBlacklistedERK9CZoIPAddrP9CZoStringPj"), nullptr);
  EXPECT_EQ(dlsym(lib, "_ZN14zonet_internal17SetBlacklistClockEPFlvE"), nullptr);
  EXPECT_EQ(dlsym(lib, "_ZN14zonet_platform16WallClockSecondsEv"), nullptr);
  dlclose(lib);
}
