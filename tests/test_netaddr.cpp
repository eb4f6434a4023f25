// The flat address model: the record, its lengths and names, ports,
// comparison under a prefix, and the numeric text conversions with the
// collision sentinel.
#include <arpa/inet.h>
#include <errno.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "flat/FlatInternal.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "support/TestSupport.h"

namespace {

class NetAddr : public ::testing::Test {
protected:
  zotest::FdLeakCheck m_fds;
};

ZONET_SockAddr Filled(uint8_t byte) {
  ZONET_SockAddr addr;
  memset(&addr, byte, sizeof addr);
  return addr;
}

ZONET_SockAddr Parse(const char* text) {
  ZONET_SockAddr addr;
  memset(&addr, 0, sizeof addr);
  EXPECT_EQ(ZONET_str2ip(text, &addr), 0) << text;
  return addr;
}

ZONET_SockAddr Local(const std::string& path) {
  ZONET_SockAddr addr;
  memset(&addr, 0, sizeof addr);
  addr.family = ZONET_FAMILY_UNIX;
  memcpy(addr.local.path, path.c_str(), path.size() + 1);
  return addr;
}

std::string Text(const ZONET_SockAddr& addr) {
  char buffer[128];
  int rc = ZONET_ip2str(&addr, buffer, sizeof buffer);
  return rc == 0 ? std::string(buffer) : "error " + std::to_string(rc);
}

}  // namespace

// ---- the record ----

TEST_F(NetAddr, FamiliesAreThePlatformsOwnNumbers) {
  EXPECT_EQ(ZONET_FAMILY_ANY, 0);
  EXPECT_EQ(ZONET_FAMILY_UNIX, AF_UNIX);
  EXPECT_EQ(ZONET_FAMILY_IPV4, AF_INET);
  EXPECT_EQ(ZONET_FAMILY_IPV6, AF_INET6);
  EXPECT_EQ(sizeof(ZONET_SockAddr), 112u);
}

TEST_F(NetAddr, ParsedIpv4RecordBindsAsItStands) {
  ZONET_SockAddr addr = Parse("127.0.0.1");
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&addr), ZONET_GetActualSockAddrLen(&addr)), 0)
      << strerror(errno);
  ZONET_SockAddr bound;
  memset(&bound, 0, sizeof bound);
  socklen_t length = sizeof bound;
  ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(length, 16u);
  EXPECT_EQ(bound.family, ZONET_FAMILY_IPV4);
  EXPECT_NE(ZONET_getport(&bound), 0);
  EXPECT_TRUE(ZONET_addrequal(&addr, &bound, 0, 0));
  close(fd);
}

TEST_F(NetAddr, ParsedIpv6RecordBindsAsItStands) {
  int fd = socket(AF_INET6, SOCK_DGRAM, 0);
  if (fd < 0) GTEST_SKIP() << "no IPv6 on this machine";
  ZONET_SockAddr addr = Parse("::1");
  if (bind(fd, reinterpret_cast<const sockaddr*>(&addr), ZONET_GetActualSockAddrLen(&addr)) != 0) {
    int error = errno;
    close(fd);
    GTEST_SKIP() << "cannot bind ::1 here: " << strerror(error);
  }
  ZONET_SockAddr bound;
  socklen_t length = sizeof bound;
  ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(length, 28u);
  EXPECT_EQ(Text(bound), "::1");
  close(fd);
}

TEST_F(NetAddr, LocalRecordBindsWithItsActualLength) {
  zotest::TempDir dir;
  ZONET_SockAddr addr;
  ASSERT_EQ(ZONET_str2ip(dir.File("flat.sock").c_str(), &addr), 0);
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&addr), ZONET_GetActualSockAddrLen(&addr)), 0)
      << strerror(errno);
  struct sockaddr_un bound;
  socklen_t length = sizeof bound;
  ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(std::string(bound.sun_path), dir.File("flat.sock"));
  EXPECT_EQ(static_cast<int>(length), ZONET_GetActualSockAddrLen(&addr));
  close(fd);
}

TEST_F(NetAddr, RecordsCopyWholeAndHostListsShareTheirArray) {
  ZONET_SockAddr a = Local("/tmp/one");
  ZONET_SockAddr b = Filled(0x55);
  b = a;
  EXPECT_EQ(memcmp(&a, &b, sizeof a), 0);

  ZONET_HostEnt first{};
  ASSERT_EQ(ZONET_name2ip("/tmp/shared.sock", &first, ZONET_FAMILY_ANY), 0);
  ZONET_HostEnt second{};
  second = first;
  EXPECT_EQ(second.count, 1u);
  EXPECT_EQ(second.addrs, first.addrs);
  ZONET_freehostent(&first);  // only one of the two is freed
  EXPECT_EQ(first.addrs, nullptr);
}

// ---- lengths and names ----

TEST_F(NetAddr, ActualLengthFollowsTheForm) {
  ZONET_SockAddr addr = Filled(0);
  addr.family = ZONET_FAMILY_IPV4;
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&addr), 16);
  addr.family = ZONET_FAMILY_IPV6;
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&addr), 28);
  addr.family = ZONET_FAMILY_ANY;
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&addr), 112);
  addr.family = 99;
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&addr), 112);
  ZONET_SockAddr local = Local("/run/x.sock");
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&local), 11 + 3);
}

TEST_F(NetAddr, ActualLengthOfAnEmptyPathIsThree) {
  ZONET_SockAddr local = Local("");
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&local), 3);
}

TEST_F(NetAddr, ActualLengthOfALongestPathIsTheMaximum) {
  ZONET_SockAddr local = Local(std::string(107, 'p'));
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&local), 110);
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&local), ZONET_GetMaxSockAddrLen(ZONET_FAMILY_UNIX));
}

TEST_F(NetAddr, ActualLengthNeverReadsPastAPathWithoutItsNul) {
  ZONET_SockAddr local = Filled('q');
  local.family = ZONET_FAMILY_UNIX;
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&local), 110);
  EXPECT_EQ(ZONET_GetActualSockAddrLen(nullptr), 0);
}

TEST_F(NetAddr, MaximumLengthOfEachFamily) {
  EXPECT_EQ(ZONET_GetMaxSockAddrLen(ZONET_FAMILY_ANY), 112);
  EXPECT_EQ(ZONET_GetMaxSockAddrLen(ZONET_FAMILY_UNIX), 110);
  EXPECT_EQ(ZONET_GetMaxSockAddrLen(ZONET_FAMILY_IPV4), 16);
  EXPECT_EQ(ZONET_GetMaxSockAddrLen(ZONET_FAMILY_IPV6), 28);
  EXPECT_EQ(ZONET_GetMaxSockAddrLen(23), 112);  // another platform's IPv6 number means nothing here
  EXPECT_EQ(ZONET_GetMaxSockAddrLen(-1), 112);
}

TEST_F(NetAddr, FamilyNames) {
  EXPECT_STREQ(ZONET_family2str(ZONET_FAMILY_ANY), "ANY");
  EXPECT_STREQ(ZONET_family2str(ZONET_FAMILY_UNIX), "UNIX");
  EXPECT_STREQ(ZONET_family2str(ZONET_FAMILY_IPV4), "IPv4");
  EXPECT_STREQ(ZONET_family2str(ZONET_FAMILY_IPV6), "IPv6");
  EXPECT_STREQ(ZONET_family2str(12345), "ANY");
  EXPECT_STREQ(ZONET_family2str(-7), "ANY");
}

// ---- ports ----

TEST_F(NetAddr, PortIsKeptInNetworkOrderAndReadInHostOrder) {
  ZONET_SockAddr v4 = Parse("192.0.2.1");
  ZONET_setport(&v4, 0x1234);
  EXPECT_EQ(v4.bytes[2], 0x12);
  EXPECT_EQ(v4.bytes[3], 0x34);
  EXPECT_EQ(ZONET_getport(&v4), 0x1234);

  ZONET_SockAddr v6 = Parse("2001:db8::1");
  ZONET_setport(&v6, 443);
  EXPECT_EQ(v6.ipv6.port, htons(443));
  EXPECT_EQ(ZONET_getport(&v6), 443);
}

TEST_F(NetAddr, OnlyIpRecordsHaveAPort) {
  ZONET_SockAddr local = Local("/tmp/p.sock");
  ZONET_SockAddr before = local;
  ZONET_setport(&local, 80);
  EXPECT_EQ(memcmp(&local, &before, sizeof local), 0);
  EXPECT_EQ(ZONET_getport(&local), 0);

  ZONET_SockAddr any = Filled(0x7F);
  any.family = ZONET_FAMILY_ANY;
  before = any;
  ZONET_setport(&any, 80);
  EXPECT_EQ(memcmp(&any, &before, sizeof any), 0);
  EXPECT_EQ(ZONET_getport(&any), 0);

  ZONET_setport(nullptr, 80);
  EXPECT_EQ(ZONET_getport(nullptr), 0);
}

// ---- comparison ----

TEST_F(NetAddr, SamePointerIsEqualEvenForFamilyAny) {
  ZONET_SockAddr any = Filled(0);
  EXPECT_EQ(ZONET_addrequal(&any, &any, 0, 1), 1);
  EXPECT_EQ(ZONET_addrequal(nullptr, nullptr, 0, 0), 1);
}

TEST_F(NetAddr, NullOrDifferentFamilyIsNotEqual) {
  ZONET_SockAddr v4 = Parse("127.0.0.1");
  ZONET_SockAddr v6 = Parse("::ffff:127.0.0.1");
  EXPECT_EQ(ZONET_addrequal(&v4, nullptr, 0, 0), 0);
  EXPECT_EQ(ZONET_addrequal(nullptr, &v4, 0, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&v4, &v6, 0, 0), 0);
}

TEST_F(NetAddr, Ipv4PrefixOf24MatchesAndOf25DoesNot) {
  ZONET_SockAddr a = Parse("10.1.2.3");
  ZONET_SockAddr b = Parse("10.1.2.200");
  EXPECT_EQ(ZONET_addrequal(&a, &b, 24, 0), 1);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 25, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 8, 0), 1);
  ZONET_SockAddr c = Parse("10.1.3.3");
  EXPECT_EQ(ZONET_addrequal(&a, &c, 23, 0), 1);  // 2 and 3 differ only in the last bit of the byte
  EXPECT_EQ(ZONET_addrequal(&a, &c, 24, 0), 0);
}

TEST_F(NetAddr, FullLengthAndLongerPrefixesCompareTheWholeAddress) {
  ZONET_SockAddr a = Parse("10.1.2.3");
  ZONET_SockAddr b = Parse("10.1.2.4");
  ZONET_SockAddr same = Parse("10.1.2.3");
  for (int bits : {0, 32, 64, 128, -24, INT_MIN}) {
    EXPECT_EQ(ZONET_addrequal(&a, &b, bits, 0), 0) << bits;
    EXPECT_EQ(ZONET_addrequal(&a, &same, bits, 0), 1) << bits;
  }

  ZONET_SockAddr x = Parse("2001:db8::1");
  ZONET_SockAddr y = Parse("2001:db8::2");
  EXPECT_EQ(ZONET_addrequal(&x, &y, 128, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&x, &y, 0, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&x, &y, 200, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&x, &y, 127, 0), 0);  // ...01 and ...10 differ in the last two bits
  EXPECT_EQ(ZONET_addrequal(&x, &y, 126, 0), 1);
  EXPECT_EQ(ZONET_addrequal(&x, &y, 64, 0), 1);
}

// A prefix of -1 to -23 takes no byte whole and masks the next one with 255
// shifted left by 9 to 31, which in 8 bits is 0: every address is equal, and
// only the port can still tell them apart.
TEST_F(NetAddr, NegativePrefixesDownToMinus23MatchAnyAddress) {
  ZONET_SockAddr a = Parse("10.1.2.3");
  ZONET_SockAddr b = Parse("192.168.7.9");
  ZONET_SockAddr x = Parse("2001:db8::1");
  ZONET_SockAddr y = Parse("fe80::2");
  for (int bits : {-1, -5, -8, -9, -23}) {
    EXPECT_EQ(ZONET_addrequal(&a, &b, bits, 0), 1) << bits;
    EXPECT_EQ(ZONET_addrequal(&x, &y, bits, 0), 1) << bits;
  }
  ZONET_setport(&a, 80);
  ZONET_setport(&b, 81);
  EXPECT_EQ(ZONET_addrequal(&a, &b, -1, 1), 0);
  ZONET_setport(&b, 80);
  EXPECT_EQ(ZONET_addrequal(&a, &b, -1, 1), 1);
  // Families still have to agree.
  EXPECT_EQ(ZONET_addrequal(&a, &x, -1, 0), 0);
}

TEST_F(NetAddr, PortCountsOnlyWhenAsked) {
  ZONET_SockAddr a = Parse("192.0.2.7");
  ZONET_SockAddr b = Parse("192.0.2.7");
  ZONET_setport(&a, 80);
  ZONET_setport(&b, 81);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 0, 0), 1);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 0, 1), 0);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 16, 1), 0);
  ZONET_setport(&b, 80);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 0, 1), 1);

  ZONET_SockAddr x = Parse("::1");
  ZONET_SockAddr y = Parse("::1");
  ZONET_setport(&x, 1);
  EXPECT_EQ(ZONET_addrequal(&x, &y, 0, 1), 0);
  EXPECT_EQ(ZONET_addrequal(&x, &y, 0, 0), 1);
}

TEST_F(NetAddr, Ipv6FlowAndScopeTakeNoPart) {
  ZONET_SockAddr x = Parse("fe80::1");
  ZONET_SockAddr y = x;
  y.ipv6.flowinfo = htonl(0x12345);
  y.ipv6.scope_id = 7;
  EXPECT_EQ(ZONET_addrequal(&x, &y, 0, 1), 1);
}

TEST_F(NetAddr, LocalPathsCompareAsTextWhateverPrefixOrPort) {
  ZONET_SockAddr a = Local("/tmp/a.sock");
  ZONET_SockAddr b = Local("/tmp/a.sock");
  ZONET_SockAddr c = Local("/tmp/b.sock");
  b.local.path[50] = 'x';  // behind the NUL: not part of the path
  EXPECT_EQ(ZONET_addrequal(&a, &b, 3, 1), 1);
  EXPECT_EQ(ZONET_addrequal(&a, &c, 0, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&a, &c, 8, 0), 0);
}

TEST_F(NetAddr, UnknownFamiliesCompareAsIpv6) {
  ZONET_SockAddr a = Filled(0);
  ZONET_SockAddr b = Filled(0);
  a.family = b.family = 99;
  a.ipv6.addr[15] = 1;
  b.ipv6.addr[15] = 2;
  a.ipv6.flowinfo = 5;  // not compared
  EXPECT_EQ(ZONET_addrequal(&a, &b, 0, 0), 0);
  EXPECT_EQ(ZONET_addrequal(&a, &b, 120, 0), 1);
  a.family = b.family = ZONET_FAMILY_ANY;
  EXPECT_EQ(ZONET_addrequal(&a, &b, 120, 0), 1);
}

// ---- text to address ----

TEST_F(NetAddr, ParsesIpv4AndClearsThePort) {
  ZONET_SockAddr addr = Filled(0xAA);
  ASSERT_EQ(ZONET_str2ip("192.0.2.33", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_IPV4);
  EXPECT_EQ(addr.ipv4.port, 0);
  EXPECT_EQ(addr.ipv4.addr, inet_addr("192.0.2.33"));
  // Only the IPv4 form is written.
  for (size_t i = 16; i < sizeof addr; ++i) ASSERT_EQ(addr.bytes[i], 0xAA) << i;
}

TEST_F(NetAddr, ParsesIpv6WithItsScope) {
  ZONET_SockAddr addr = Filled(0xAA);
  ASSERT_EQ(ZONET_str2ip("2001:db8::5", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_IPV6);
  EXPECT_EQ(addr.ipv6.port, 0);
  EXPECT_EQ(addr.ipv6.scope_id, 0u);
  struct in6_addr expected;
  ASSERT_EQ(inet_pton(AF_INET6, "2001:db8::5", &expected), 1);
  EXPECT_EQ(memcmp(addr.ipv6.addr, &expected, 16), 0);
  for (size_t i = 28; i < sizeof addr; ++i) ASSERT_EQ(addr.bytes[i], 0xAA) << i;

  unsigned loopbackIndex = if_nametoindex("lo");
  if (loopbackIndex != 0) {
    ASSERT_EQ(ZONET_str2ip("fe80::1%lo", &addr), 0);
    EXPECT_EQ(addr.ipv6.scope_id, loopbackIndex);
  }
}

TEST_F(NetAddr, ASlashMakesALocalPathAndNothingElseIsChecked) {
  ZONET_SockAddr addr = Filled(0xAA);
  ASSERT_EQ(ZONET_str2ip("relative/x.sock", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_UNIX);
  EXPECT_STREQ(addr.local.path, "relative/x.sock");
  EXPECT_EQ(addr.bytes[2 + 16], 0xAA);  // behind the NUL, untouched

  ASSERT_EQ(ZONET_str2ip("1.2.3.4/24", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_UNIX);
}

TEST_F(NetAddr, ADriveLetterWithBackslashesIsALocalPath) {
  ZONET_SockAddr addr;
  ASSERT_EQ(ZONET_str2ip("C:\\temp\\svc.sock", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_UNIX);
  EXPECT_STREQ(addr.local.path, "C:\\temp\\svc.sock");
}

TEST_F(NetAddr, PathOf107CharactersFitsAnd108DoNot) {
  std::string fits = "/" + std::string(106, 'a');
  ZONET_SockAddr addr;
  ASSERT_EQ(ZONET_str2ip(fits.c_str(), &addr), 0);
  EXPECT_EQ(std::string(addr.local.path), fits);
  EXPECT_EQ(ZONET_GetActualSockAddrLen(&addr), 110);

  std::string tooLong = fits + "b";
  ZONET_SockAddr untouched = Filled(0x11);
  EXPECT_EQ(ZONET_str2ip(tooLong.c_str(), &untouched), ZONET_ERR_NAME_TOO_LONG);
  EXPECT_EQ(untouched.bytes[0], 0x11);
}

TEST_F(NetAddr, EmptyTextGoesToTheResolverAndItsAnswerComesBack) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  struct addrinfo* list = nullptr;
  int expected = getaddrinfo("", nullptr, &hints, &list);
  if (list != nullptr) freeaddrinfo(list);
  ASSERT_NE(expected, 0);

  ZONET_SockAddr addr;
  errno = 0;
  EXPECT_EQ(ZONET_str2ip("", &addr), expected);
  EXPECT_EQ(errno, expected);  // the resolver's answer is also left for the caller
}

TEST_F(NetAddr, NamesAreNeverLookedUp) {
  ZONET_SockAddr addr;
  EXPECT_EQ(ZONET_str2ip("localhost", &addr), EAI_NONAME);
  EXPECT_EQ(ZONET_str2ip("not an address", &addr), EAI_NONAME);
}

TEST_F(NetAddr, NullArgumentsAreRefused) {
  ZONET_SockAddr addr;
  char buffer[64];
  EXPECT_EQ(ZONET_str2ip(nullptr, &addr), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_str2ip("127.0.0.1", nullptr), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_ip2str(nullptr, buffer, sizeof buffer), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_ip2str(&addr, nullptr, 64), ZONET_ERR_INVALID_PARAMETER);
}

// ---- the collision sentinel ----

TEST_F(NetAddr, CollisionSentinelIsRefusedOnEveryCallWithTheAddressFilled) {
  zonet_internal::ResetCollisionSentinel();
  ASSERT_FALSE(zonet_internal::CollisionSentinelReady());
  for (int call = 0; call < 3; ++call) {
    ZONET_SockAddr addr = Filled(0);
    EXPECT_EQ(ZONET_str2ip("127.0.53.53", &addr), ZONET_ERR_HOST_NOT_FOUND) << "call " << call;
    EXPECT_EQ(addr.family, ZONET_FAMILY_IPV4);
    EXPECT_EQ(addr.ipv4.addr, inet_addr("127.0.53.53"));
    EXPECT_TRUE(zonet_internal::CollisionSentinelReady());
  }
}

TEST_F(NetAddr, ACollisionIsToldFromTextThatIsNoAddressByTheResolversOwnAnswer) {
  ZONET_SockAddr addr;
  errno = EIO;
  EXPECT_EQ(ZONET_str2ip("127.0.53.53", &addr), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(ZONET_str2ip("collide.test", &addr), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_EQ(errno, EAI_NONAME);
}

TEST_F(NetAddr, NeighboursOfTheSentinelAreAddressesLikeAnyOther) {
  ZONET_SockAddr addr;
  EXPECT_EQ(ZONET_str2ip("127.0.53.54", &addr), 0);
  EXPECT_EQ(ZONET_str2ip("127.0.0.1", &addr), 0);
}

TEST_F(NetAddr, AnIpv6ResultIsNeverTakenForTheSentinel) {
  ZONET_SockAddr addr;
  EXPECT_EQ(ZONET_str2ip("::ffff:127.0.53.53", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_IPV6);
}

TEST_F(NetAddr, ThePlainParserAgreesWithTheSentinel) {
  zonet_internal::ResetCollisionSentinel();
  ZONET_SockAddr addr = Parse("127.0.0.1");
  EXPECT_FALSE(zonet_internal::MatchesCollisionSentinel(&addr));
  addr.ipv4.addr = inet_addr("127.0.53.53");
  EXPECT_TRUE(zonet_internal::MatchesCollisionSentinel(&addr));
}

// ---- address to text ----

TEST_F(NetAddr, TextOfIpv4AndIpv6IsNumeric) {
  EXPECT_EQ(Text(Parse("192.0.2.1")), "192.0.2.1");
  EXPECT_EQ(Text(Parse("2001:db8:0:0::7")), "2001:db8::7");
  ZONET_SockAddr withPort = Parse("127.0.0.1");
  ZONET_setport(&withPort, 8080);
  EXPECT_EQ(Text(withPort), "127.0.0.1");  // the port is never part of the text
  unsigned loopbackIndex = if_nametoindex("lo");
  if (loopbackIndex != 0) {
    EXPECT_EQ(Text(Parse("fe80::1%lo")), "fe80::1%lo");
  }
}

TEST_F(NetAddr, TextOfALocalRecordIsItsPath) {
  ZONET_SockAddr local = Local("/var/run/zonet.sock");
  EXPECT_EQ(Text(local), "/var/run/zonet.sock");
  char exact[20];  // path length + 1
  EXPECT_EQ(ZONET_ip2str(&local, exact, sizeof exact), 0);
  EXPECT_STREQ(exact, "/var/run/zonet.sock");
  char shortBuffer[19];
  EXPECT_EQ(ZONET_ip2str(&local, shortBuffer, sizeof shortBuffer), ZONET_ERR_NAME_TOO_LONG);
}

TEST_F(NetAddr, TextThatDoesNotFitIsTheResolversOverflow) {
  ZONET_SockAddr addr = Parse("192.0.2.123");
  char small[8];
  errno = 0;
  EXPECT_EQ(ZONET_ip2str(&addr, small, sizeof small), EAI_OVERFLOW);
  EXPECT_EQ(errno, EAI_OVERFLOW);
  char none[1];
  EXPECT_EQ(ZONET_ip2str(&addr, none, 0), ZONET_ERR_NAME_TOO_LONG);
}

TEST_F(NetAddr, RecordOfNoFamilyHasNoText) {
  ZONET_SockAddr any = Filled(0);
  char buffer[64];
  EXPECT_EQ(ZONET_ip2str(&any, buffer, sizeof buffer), EAI_FAMILY);
}

namespace {

std::vector<socklen_t> g_lengthsSeen;

int RecordingGetNameInfo(const struct sockaddr* addr, socklen_t length, char* host, socklen_t hostLength,
                         char* service, socklen_t serviceLength, int flags) {
  g_lengthsSeen.push_back(length);
  return getnameinfo(addr, length, host, hostLength, service, serviceLength, flags);
}

// A binding that finds these three functions and no others.
template <zonet_internal::GetAddrInfoFn GetAddrInfo, zonet_internal::GetNameInfoFn GetNameInfo,
          zonet_internal::FreeAddrInfoFn FreeAddrInfo>
void* LookupOf(const char* name) {
  if (strcmp(name, "getaddrinfo") == 0) return reinterpret_cast<void*>(GetAddrInfo);
  if (strcmp(name, "getnameinfo") == 0) return reinterpret_cast<void*>(GetNameInfo);
  if (strcmp(name, "freeaddrinfo") == 0) return reinterpret_cast<void*>(FreeAddrInfo);
  return nullptr;
}

}  // namespace

// Binds the resolver through lookup for one test, and afresh after it.
struct ScopedResolverLookup {
  explicit ScopedResolverLookup(zonet_internal::ResolverLookupFn lookup) {
    zonet_internal::SetResolverLookup(lookup);
    zonet_internal::ResetResolverBinding();
  }
  ~ScopedResolverLookup() {
    zonet_internal::SetResolverLookup(nullptr);
    zonet_internal::ResetResolverBinding();
  }
};

TEST_F(NetAddr, ALengthTheResolverRefusesIsTriedOnceMoreAsIpv4) {
  // The system's own getnameinfo, watched on its way through.
  ScopedResolverLookup watched(LookupOf<getaddrinfo, RecordingGetNameInfo, freeaddrinfo>);
  g_lengthsSeen.clear();

  ZONET_SockAddr any = Filled(0);
  char buffer[64];
  EXPECT_EQ(ZONET_ip2str(&any, buffer, sizeof buffer), EAI_FAMILY);
  EXPECT_EQ(g_lengthsSeen, (std::vector<socklen_t>{112, 16}));

  g_lengthsSeen.clear();
  ZONET_SockAddr v6 = Parse("::1");
  EXPECT_EQ(ZONET_ip2str(&v6, buffer, sizeof buffer), 0);
  EXPECT_EQ(g_lengthsSeen, (std::vector<socklen_t>{28}));
}

namespace {

// A getnameinfo that only notes the length it was given, and knows no names.
int NoNameGetNameInfo(const struct sockaddr*, socklen_t length, char*, socklen_t, char*, socklen_t, int) {
  g_lengthsSeen.push_back(length);
  return EAI_NONAME;
}

}  // namespace

TEST_F(NetAddr, ANameIsAskedWithSixteenBytesForIpv4AndTheWholeRecordOtherwise) {
  ZONET_SockAddr v4 = Parse("127.0.0.1");
  ZONET_SockAddr v6 = Parse("::1");
  ScopedResolverLookup noNames(LookupOf<getaddrinfo, NoNameGetNameInfo, freeaddrinfo>);
  g_lengthsSeen.clear();
  char buffer[64];
  EXPECT_EQ(ZONET_ip2name(&v4, buffer, sizeof buffer), EAI_NONAME);
  EXPECT_EQ(ZONET_ip2name(&v6, buffer, sizeof buffer), EAI_NONAME);
  // Not the 28 bytes of the IPv6 form, and no retry.
  EXPECT_EQ(g_lengthsSeen, (std::vector<socklen_t>{16, 112}));
}

namespace {

// A numeric parser that answers with one local entry only, neither IPv4 nor
// IPv6; its list is its own to free.
int LocalOnlyGetAddrInfo(const char*, const char*, const struct addrinfo*, struct addrinfo** result) {
  struct addrinfo* entry = static_cast<struct addrinfo*>(calloc(1, sizeof(struct addrinfo)));
  struct sockaddr_un* path = static_cast<struct sockaddr_un*>(calloc(1, sizeof(struct sockaddr_un)));
  path->sun_family = AF_UNIX;
  entry->ai_family = AF_UNIX;
  entry->ai_socktype = SOCK_STREAM;
  entry->ai_addrlen = sizeof(struct sockaddr_un);
  entry->ai_addr = reinterpret_cast<struct sockaddr*>(path);
  *result = entry;
  return 0;
}

int g_localOnlyFreed = 0;
void LocalOnlyFreeAddrInfo(struct addrinfo* list) {
  ++g_localOnlyFreed;
  free(list->ai_addr);
  free(list);
}

}  // namespace

TEST_F(NetAddr, AnAnswerWithNeitherFamilyIsRefusedUnlessTheRecordHoldsTheSentinel) {
  // The sentinel comes from the real parser, before the answers change.
  ZONET_SockAddr sentinel = Filled(0);
  ASSERT_EQ(ZONET_str2ip("127.0.53.53", &sentinel), ZONET_ERR_HOST_NOT_FOUND);
  ScopedResolverLookup localOnly(LookupOf<LocalOnlyGetAddrInfo, getnameinfo, LocalOnlyFreeAddrInfo>);
  g_localOnlyFreed = 0;

  // Nothing is written, and the list is released all the same.
  ZONET_SockAddr addr = Filled(0x22);
  EXPECT_EQ(ZONET_str2ip("10.0.0.1", &addr), ZONET_ERR_AF_NOT_SUPPORTED);
  EXPECT_EQ(addr.bytes[0], 0x22);
  EXPECT_EQ(addr.bytes[111], 0x22);
  EXPECT_EQ(g_localOnlyFreed, 1);

  // The sentinel test looks at the record whatever the parse gave: a record
  // that already held the sentinel is refused as a collision.
  EXPECT_EQ(ZONET_str2ip("10.0.0.1", &sentinel), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_EQ(g_localOnlyFreed, 2);
}

TEST_F(NetAddr, RoundTripsThroughText) {
  for (const char* text : {"0.0.0.0", "255.255.255.255", "10.0.0.1", "::", "::1", "fe80::abcd:1", "2001:db8::ff00:42:8329",
                           "/tmp/round.sock", "a\\b"}) {
    ZONET_SockAddr addr;
    ASSERT_EQ(ZONET_str2ip(text, &addr), 0) << text;
    EXPECT_EQ(Text(addr), text);
  }
}

// ---- the short way for the common forms ----

namespace {

// One text through both ways of the parser, each into a record filled with
// the same byte, with errno set to something neither way leaves behind.
struct BothWays {
  ZONET_SockAddr full;
  ZONET_SockAddr shortWay;
  int fullCode = 0;
  int shortCode = 0x7FFFFFFF;
  int fullErrno = 0;
  int shortErrno = 0;
  bool taken = false;

  BothWays(const char* text, uint8_t fill = 0xA5) : full(Filled(fill)), shortWay(Filled(fill)) {
    errno = EIO;
    fullCode = zonet_internal::Str2ipFullPath(text, &full);
    fullErrno = errno;
    errno = EIO;
    taken = zonet_internal::Str2ipCommonForm(text, &shortWay, &shortCode);
    shortErrno = errno;
  }
};

bool SameRecord(const ZONET_SockAddr& a, const ZONET_SockAddr& b) { return memcmp(&a, &b, sizeof a) == 0; }

// ZONET_str2ip of text gives the same code, bytes and errno as the
// resolver's way.
::testing::AssertionResult PublicCallAgreesWithTheResolversWay(const char* text) {
  BothWays both(text);
  ZONET_SockAddr pub = Filled(0xA5);
  errno = EIO;
  int code = ZONET_str2ip(text, &pub);
  if (code != both.fullCode)
    return ::testing::AssertionFailure() << "code " << code << ", the resolver's way " << both.fullCode;
  if (errno != both.fullErrno)
    return ::testing::AssertionFailure() << "errno " << errno << ", the resolver's way " << both.fullErrno;
  if (!SameRecord(pub, both.full)) return ::testing::AssertionFailure() << "the records differ";
  return ::testing::AssertionSuccess();
}

}  // namespace

TEST_F(NetAddr, CommonFormsTakeTheShortWayAndGiveTheResolversRecordByteForByte) {
  ASSERT_TRUE(zonet_internal::ResolverIsThePlatforms());
  for (const char* text : {"192.0.2.33", "0.0.0.0", "255.255.255.255", "10.0.0.1", "1.22.133.0", "::", "::1",
                           "2001:db8::5", "FE80::A", "2001:db8:85a3::8a2e:370:7334", "1:2:3:4:5:6:7:8"}) {
    for (uint8_t fill : {0x00, 0xA5, 0xFF}) {
      BothWays both(text, fill);
      ASSERT_TRUE(both.taken) << text;
      EXPECT_EQ(both.shortCode, 0) << text;
      EXPECT_EQ(both.shortCode, both.fullCode) << text;
      EXPECT_EQ(both.shortErrno, both.fullErrno) << text;
      EXPECT_TRUE(SameRecord(both.shortWay, both.full)) << text << " filled with " << int(fill);
    }
    EXPECT_TRUE(PublicCallAgreesWithTheResolversWay(text)) << text;
  }
}

TEST_F(NetAddr, EveryOtherFormIsLeftToTheResolverWithTheRecordUntouched) {
  for (const char* text : {"1.2.3", "0x7f.1", "127.1", "010.1.2.3", "1.2.3.04", "1.2.3.4.", ".1.2.3.4", "1..2.3",
                           "256.1.1.1", "1.2.3.4.5", "1234", " 1.2.3.4", "1.2.3.4 ", "\t::1", "", "::ffff:1.2.3.4",
                           "::1.2.3.4", "fe80::1%lo", "fe80::1%1", "1:2:3:4:5:6:7:8:9", ":::", "localhost",
                           "/tmp/x.sock", "1.2.3.4/24", "C:\\x", "[::1]"}) {
    BothWays both(text);
    EXPECT_FALSE(both.taken) << text;
    EXPECT_TRUE(SameRecord(both.shortWay, Filled(0xA5))) << text;
    EXPECT_TRUE(PublicCallAgreesWithTheResolversWay(text)) << text;
  }
}

TEST_F(NetAddr, TheClassicIpv4FormsKeepTheResolversReading) {
  ZONET_SockAddr addr = Filled(0);
  ASSERT_EQ(ZONET_str2ip("127.1", &addr), 0);
  EXPECT_EQ(Text(addr), "127.0.0.1");
  ASSERT_EQ(ZONET_str2ip("0x7f.1", &addr), 0);
  EXPECT_EQ(Text(addr), "127.0.0.1");
  ASSERT_EQ(ZONET_str2ip("1.2.3", &addr), 0);
  EXPECT_EQ(Text(addr), "1.2.0.3");
  // A leading zero is octal to the resolver, not a decimal 10.
  ASSERT_EQ(ZONET_str2ip("010.1.2.3", &addr), 0);
  EXPECT_EQ(Text(addr), "8.1.2.3");
  // Spaces, a part too large and a trailing dot are no address.
  EXPECT_EQ(ZONET_str2ip(" 1.2.3.4", &addr), EAI_NONAME);
  EXPECT_EQ(ZONET_str2ip("1.2.3.4 ", &addr), EAI_NONAME);
  EXPECT_EQ(ZONET_str2ip("256.1.1.1", &addr), EAI_NONAME);
  EXPECT_EQ(ZONET_str2ip("1.2.3.4.", &addr), EAI_NONAME);
}

TEST_F(NetAddr, ScopedAndMappedIpv6KeepTheResolversReading) {
  ZONET_SockAddr addr = Filled(0xAA);
  ASSERT_EQ(ZONET_str2ip("::ffff:192.0.2.1", &addr), 0);
  EXPECT_EQ(addr.family, ZONET_FAMILY_IPV6);
  struct in6_addr mapped;
  ASSERT_EQ(inet_pton(AF_INET6, "::ffff:192.0.2.1", &mapped), 1);
  EXPECT_EQ(memcmp(addr.ipv6.addr, &mapped, 16), 0);
  EXPECT_EQ(addr.ipv6.scope_id, 0u);
  for (size_t i = 28; i < sizeof addr; ++i) ASSERT_EQ(addr.bytes[i], 0xAA) << i;

  unsigned loopbackIndex = if_nametoindex("lo");
  if (loopbackIndex == 0) GTEST_SKIP() << "no loopback interface named lo";
  ASSERT_EQ(ZONET_str2ip("fe80::1%lo", &addr), 0);
  EXPECT_EQ(addr.ipv6.scope_id, loopbackIndex);
  std::string numeric = "fe80::1%" + std::to_string(loopbackIndex);
  ASSERT_EQ(ZONET_str2ip(numeric.c_str(), &addr), 0);
  EXPECT_EQ(addr.ipv6.scope_id, loopbackIndex);
}

TEST_F(NetAddr, TheSentinelIsRefusedOnTheShortWayToo) {
  zonet_internal::ResetCollisionSentinel();
  for (int call = 0; call < 2; ++call) {
    BothWays both("127.0.53.53", 0);
    ASSERT_TRUE(both.taken);
    EXPECT_EQ(both.shortCode, ZONET_ERR_HOST_NOT_FOUND) << "call " << call;
    EXPECT_EQ(both.shortErrno, 0);  // the resolver's own success
    EXPECT_EQ(both.shortWay.ipv4.addr, inet_addr("127.0.53.53"));
    EXPECT_TRUE(SameRecord(both.shortWay, both.full));
  }
  ZONET_SockAddr addr;
  errno = EIO;
  EXPECT_EQ(ZONET_str2ip("127.0.53.53", &addr), ZONET_ERR_HOST_NOT_FOUND);
  EXPECT_EQ(errno, 0);
  // The IPv6 form of the sentinel is no collision, and not a common form.
  EXPECT_EQ(ZONET_str2ip("::ffff:127.0.53.53", &addr), 0);
}

TEST_F(NetAddr, TheShortWayIsTakenOnlyWithTheSystemsResolver) {
  struct Rebind {
    ~Rebind() { zonet_internal::ResetResolverBinding(); }
  } rebind;
  zonet_internal::ForceResolverFallbacks();
  EXPECT_FALSE(zonet_internal::ResolverIsThePlatforms());
  ZONET_SockAddr addr = Filled(0x33);
  int code = 0;
  EXPECT_FALSE(zonet_internal::Str2ipCommonForm("::1", &addr, &code));
  EXPECT_FALSE(zonet_internal::Str2ipCommonForm("192.0.2.1", &addr, &code));
  EXPECT_TRUE(SameRecord(addr, Filled(0x33)));
  // The library's own resolver knows no IPv6, and its answer is what counts.
  EXPECT_EQ(ZONET_str2ip("::1", &addr), EAI_NONAME);
  ASSERT_EQ(ZONET_str2ip("192.0.2.1", &addr), 0);
  EXPECT_EQ(addr.ipv4.addr, inet_addr("192.0.2.1"));

  zonet_internal::ResetResolverBinding();
  EXPECT_TRUE(zonet_internal::ResolverIsThePlatforms());
  EXPECT_TRUE(zonet_internal::Str2ipCommonForm("::1", &addr, &code));
}
