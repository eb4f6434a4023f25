// Name resolution: the binding of the system's resolver, host names to address
// lists with the DNS name collision refused, addresses back to names, the host
// and service calls, and the library's own IPv4 resolver that stands in when
// the system lacks one.
//
// Names that the tests need to resolve in a particular way come from a hosts
// file of the test's own, seen only by a child process (support/HostsNamespace).
#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <netdb.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "flat/FlatInternal.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "support/HostsNamespace.h"
#include "support/TestSupport.h"

using zonet_internal::FallbackFreeAddrInfo;
using zonet_internal::FallbackGetAddrInfo;
using zonet_internal::FallbackGetNameInfo;

namespace {

class Resolve : public ::testing::Test {
protected:
  void SetUp() override {
    zonet_internal::SetResolverLookup(nullptr);
    zonet_internal::ResetResolverBinding();
  }
  void TearDown() override {
    zonet_internal::SetResolverLookup(nullptr);
    zonet_internal::ResetResolverBinding();
  }
  zotest::FdLeakCheck m_fds;
};

using ResolveFallback = Resolve;

std::string Text(const ZONET_SockAddr& addr) {
  char buffer[128];
  return ZONET_ip2str(&addr, buffer, sizeof buffer) == 0 ? std::string(buffer) : std::string("?");
}

std::vector<std::string> Texts(const ZONET_HostEnt& list) {
  std::vector<std::string> texts;
  for (uint32_t i = 0; i < list.count; ++i) texts.push_back(Text(list.addrs[i]));
  return texts;
}

// The addresses the system's own resolver gives for name, in its order.
std::vector<std::string> SystemOrder(const char* name, int family) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  struct addrinfo* list = nullptr;
  std::vector<std::string> texts;
  if (getaddrinfo(name, nullptr, &hints, &list) != 0) return texts;
  for (struct addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    char host[NI_MAXHOST];
    if (getnameinfo(entry->ai_addr, entry->ai_addrlen, host, sizeof host, nullptr, 0, NI_NUMERICHOST) == 0) {
      texts.push_back(host);
    }
  }
  freeaddrinfo(list);
  return texts;
}

struct addrinfo Hints(int flags, int family, int socktype) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_flags = flags;
  hints.ai_family = family;
  hints.ai_socktype = socktype;
  return hints;
}

struct Record {
  std::string address;
  uint16_t port;
  int socktype;
};

std::vector<Record> Records(const struct addrinfo* list) {
  std::vector<Record> records;
  for (; list != nullptr; list = list->ai_next) {
    const struct sockaddr_in* in = reinterpret_cast<const struct sockaddr_in*>(list->ai_addr);
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
    records.push_back({text, ntohs(in->sin_port), list->ai_socktype});
  }
  return records;
}

// The records of the library's own resolver in one line, "127.0.0.1 stream
// 53, 127.0.0.1 datagram 53", or "error N".
std::string Answer(const char* node, const char* service, const struct addrinfo* hints) {
  struct addrinfo* list = nullptr;
  int rc = FallbackGetAddrInfo(node, service, hints, &list);
  if (rc != 0) return "error " + std::to_string(rc);
  std::string text;
  for (const Record& record : Records(list)) {
    if (!text.empty()) text += ", ";
    const char* type = record.socktype == SOCK_STREAM ? "stream" : record.socktype == SOCK_DGRAM ? "datagram" : "raw";
    text += record.address + " " + type + " " + std::to_string(record.port);
  }
  FallbackFreeAddrInfo(list);
  return text;
}

bool HasService(const char* name, const char* protocol) { return getservbyname(name, protocol) != nullptr; }

struct sockaddr_in Ipv4(const char* text, uint16_t port) {
  struct sockaddr_in in;
  memset(&in, 0, sizeof in);
  in.sin_family = AF_INET;
  in.sin_port = htons(port);
  inet_pton(AF_INET, text, &in.sin_addr);
  return in;
}

}  // namespace

// ---- the binding ----

TEST_F(Resolve, BindsTheResolverThatTheProcessUses) {
  EXPECT_FALSE(zonet_internal::ResolverUsesFallbacks());
  EXPECT_EQ(reinterpret_cast<void*>(zonet_internal::ResolverGetAddrInfo()), dlsym(RTLD_DEFAULT, "getaddrinfo"));
  EXPECT_EQ(reinterpret_cast<void*>(zonet_internal::ResolverGetNameInfo()), dlsym(RTLD_DEFAULT, "getnameinfo"));
  EXPECT_EQ(reinterpret_cast<void*>(zonet_internal::ResolverFreeAddrInfo()), dlsym(RTLD_DEFAULT, "freeaddrinfo"));
}

namespace {
const char* g_missing = nullptr;
int g_lookups = 0;
void* LookupWithOneMissing(const char* name) {
  ++g_lookups;
  if (strcmp(name, g_missing) == 0) return nullptr;
  return dlsym(RTLD_DEFAULT, name);
}
}  // namespace

TEST_F(Resolve, OneMissingFunctionKeepsAllThreeOfTheLibrarysOwn) {
  for (const char* missing : {"getaddrinfo", "getnameinfo", "freeaddrinfo"}) {
    g_missing = missing;
    zonet_internal::SetResolverLookup(LookupWithOneMissing);
    zonet_internal::ResetResolverBinding();
    EXPECT_TRUE(zonet_internal::ResolverUsesFallbacks()) << missing;
    EXPECT_EQ(zonet_internal::ResolverFreeAddrInfo(), &FallbackFreeAddrInfo) << missing;
  }
}

TEST_F(Resolve, BindingRunsOnceAndEachCallThenCostsOnePointerTest) {
  g_missing = "none";
  g_lookups = 0;
  zonet_internal::SetResolverLookup(LookupWithOneMissing);
  zonet_internal::ResetResolverBinding();
  ZONET_SockAddr addr;
  for (int i = 0; i < 5; ++i) ASSERT_EQ(ZONET_str2ip("127.0.0.1", &addr), 0);
  EXPECT_EQ(g_lookups, 3);
  EXPECT_FALSE(zonet_internal::ResolverUsesFallbacks());
}

TEST_F(Resolve, FirstCallsFromManyThreadsAtOnceAllResolve) {
  zonet_internal::ResetResolverBinding();
  zonet_internal::ResetCollisionSentinel();
  std::vector<int> results(8, -1);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < results.size(); ++i) {
    threads.emplace_back([i, &results] {
      ZONET_SockAddr addr;
      int rc = ZONET_str2ip(i % 2 == 0 ? "127.0.0.1" : "127.0.53.53", &addr);
      ZONET_HostEnt list{};
      int named = ZONET_name2ip("localhost", &list, ZONET_FAMILY_IPV4);
      ZONET_freehostent(&list);
      results[i] = (i % 2 == 0 ? rc == 0 : rc == ZONET_ERR_HOST_NOT_FOUND) && named == 0 ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t i = 0; i < results.size(); ++i) EXPECT_EQ(results[i], 1) << "thread " << i;
}

// ---- host names to lists ----

TEST_F(Resolve, LocalhostGivesLoopbackRecordsWithPortZero) {
  ZONET_HostEnt list{};
  ASSERT_EQ(ZONET_name2ip("localhost", &list, ZONET_FAMILY_IPV4), 0);
  ASSERT_GE(list.count, 1u);
  for (uint32_t i = 0; i < list.count; ++i) {
    EXPECT_EQ(list.addrs[i].family, ZONET_FAMILY_IPV4);
    EXPECT_EQ(ZONET_getport(&list.addrs[i]), 0);
  }
  std::vector<std::string> texts = Texts(list);
  EXPECT_NE(std::find(texts.begin(), texts.end(), "127.0.0.1"), texts.end());
  ZONET_freehostent(&list);
}

TEST_F(Resolve, ANameWithASlashNeverReachesTheResolverWhateverTheFamily) {
  // Each of these would fail at the resolver: an unknown name, and families
  // it refuses.
  for (int family : {0, int{ZONET_FAMILY_IPV4}, int{ZONET_FAMILY_IPV6}, int{ZONET_FAMILY_UNIX}, 4711}) {
    ZONET_HostEnt list{};
    ASSERT_EQ(ZONET_name2ip("no-such-host.invalid/zonet.sock", &list, family), 0) << family;
    ASSERT_EQ(list.count, 1u);
    EXPECT_EQ(list.addrs[0].family, ZONET_FAMILY_UNIX);
    EXPECT_STREQ(list.addrs[0].local.path, "no-such-host.invalid/zonet.sock");
    ZONET_freehostent(&list);
  }
  ZONET_HostEnt list{};
  ASSERT_EQ(ZONET_name2ip("C:\\pipes\\svc", &list, ZONET_FAMILY_IPV6), 0);
  EXPECT_EQ(list.addrs[0].family, ZONET_FAMILY_UNIX);
  ZONET_freehostent(&list);
}

TEST_F(Resolve, APathOf107CharactersFitsAnd108DoNot) {
  std::string fits = "/" + std::string(106, 'n');
  ZONET_HostEnt list{};
  ASSERT_EQ(ZONET_name2ip(fits.c_str(), &list, ZONET_FAMILY_ANY), 0);
  EXPECT_EQ(std::string(list.addrs[0].local.path), fits);
  ZONET_freehostent(&list);
  std::string tooLong = fits + "x";
  EXPECT_EQ(ZONET_name2ip(tooLong.c_str(), &list, ZONET_FAMILY_ANY), ZONET_ERR_NAME_TOO_LONG);
  EXPECT_EQ(list.addrs, nullptr);
}

TEST_F(Resolve, TheResolversFailureIsReturnedAndLeftInErrno) {
  ZONET_HostEnt list{};
  errno = 0;
  int rc = ZONET_name2ip("localhost", &list, ZONET_FAMILY_UNIX);
  EXPECT_EQ(rc, EAI_FAMILY);
  EXPECT_EQ(errno, EAI_FAMILY);
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(list.addrs, nullptr);
}

TEST_F(Resolve, NullArgumentsAreRefused) {
  ZONET_HostEnt list{};
  EXPECT_EQ(ZONET_name2ip(nullptr, &list, 0), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_name2ip("localhost", nullptr, 0), ZONET_ERR_INVALID_PARAMETER);
  ZONET_SockAddr addr;
  char buffer[32];
  EXPECT_EQ(ZONET_ip2name(nullptr, buffer, sizeof buffer), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_ip2name(&addr, nullptr, 32), ZONET_ERR_INVALID_PARAMETER);
  ZONET_freehostent(nullptr);
}

TEST_F(Resolve, FreeingAListWithoutAnArrayOnlyClearsTheCount) {
  ZONET_HostEnt list;
  list.count = 5;
  list.addrs = nullptr;
  ZONET_freehostent(&list);
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(list.addrs, nullptr);

  ASSERT_EQ(ZONET_name2ip("/tmp/twice.sock", &list, 0), 0);
  ZONET_freehostent(&list);
  ZONET_freehostent(&list);  // a second call is harmless
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(list.addrs, nullptr);
}

namespace {
// A resolver that answers success with nothing in it. No real resolver does,
// so this one stands in for it; the release is the system's own.
int EmptyGetAddrInfo(const char*, const char*, const struct addrinfo*, struct addrinfo** result) {
  *result = nullptr;
  return 0;
}
void* EmptyAnswerLookup(const char* name) {
  if (strcmp(name, "getaddrinfo") == 0) return reinterpret_cast<void*>(&EmptyGetAddrInfo);
  return dlsym(RTLD_DEFAULT, name);
}
}  // namespace

TEST_F(Resolve, AnEmptySuccessGivesCountZeroAndAnEmptyArray) {
  zonet_internal::SetResolverLookup(EmptyAnswerLookup);
  zonet_internal::ResetResolverBinding();
  ZONET_HostEnt list;
  list.count = 9;
  list.addrs = nullptr;
  ASSERT_EQ(ZONET_name2ip("anything", &list, ZONET_FAMILY_IPV4), 0);
  EXPECT_EQ(list.count, 0u);
  ZONET_freehostent(&list);
}

// ---- through the real resolver, with the test's own hosts file ----

TEST_F(Resolve, ANameOfTheSentinelAloneIsNotFound) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.53.53 collide.test\n", [] {
    zonet_internal::ResetCollisionSentinel();
    ZONET_HostEnt list{};
    ZOTEST_CHILD_CHECK(ZONET_name2ip("collide.test", &list, ZONET_FAMILY_ANY) == ZONET_ERR_HOST_NOT_FOUND);
    ZOTEST_CHILD_CHECK(list.count == 0 && list.addrs == nullptr);
    ZOTEST_CHILD_CHECK(ZONET_name2ip("collide.test", &list, ZONET_FAMILY_IPV4) == ZONET_ERR_HOST_NOT_FOUND);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Resolve, ACollisionIsToldFromAPlainMissByTheResolversOwnAnswer) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.53.53 collide.test\n", [] {
    ZONET_HostEnt list{};
    errno = EIO;
    ZOTEST_CHILD_CHECK(ZONET_name2ip("collide.test", &list, ZONET_FAMILY_ANY) == ZONET_ERR_HOST_NOT_FOUND);
    ZOTEST_CHILD_CHECK(errno == 0);
    ZOTEST_CHILD_CHECK(ZONET_name2ip("missing.test", &list, ZONET_FAMILY_ANY) == ZONET_ERR_HOST_NOT_FOUND);
    ZOTEST_CHILD_CHECK(errno == EAI_NONAME);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Resolve, TheSentinelAsSecondAddressRefusesTheNameAndLeavesTheListAsItWas) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.7 twoaddr.test\n127.0.53.53 twoaddr.test\n", [] {
    // The resolver itself gives both, the sentinel second.
    std::vector<std::string> order = SystemOrder("twoaddr.test", AF_INET);
    ZOTEST_CHILD_CHECK((order == std::vector<std::string>{"127.0.0.7", "127.0.53.53"}));
    ZONET_SockAddr mine;
    ZONET_HostEnt list;
    list.count = 77;
    list.addrs = &mine;
    ZOTEST_CHILD_CHECK(ZONET_name2ip("twoaddr.test", &list, ZONET_FAMILY_IPV4) == ZONET_ERR_HOST_NOT_FOUND);
    ZOTEST_CHILD_CHECK(list.count == 77);
    ZOTEST_CHILD_CHECK(list.addrs == &mine);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Resolve, ANameWithOnlyIpv6GivesEveryRecordWithPortZeroAndNoSentinelTest) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("::1 v6only.test\n2001:db8::9 v6only.test\n::ffff:127.0.53.53 v6only.test\n",
                                        [] {
    zonet_internal::ResetCollisionSentinel();
    ZONET_HostEnt list{};
    ZOTEST_CHILD_CHECK(ZONET_name2ip("v6only.test", &list, ZONET_FAMILY_ANY) == 0);
    ZOTEST_CHILD_CHECK(list.count == 3);
    std::set<std::string> texts;
    for (uint32_t i = 0; i < list.count; ++i) {
      ZOTEST_CHILD_CHECK(list.addrs[i].family == ZONET_FAMILY_IPV6);
      ZOTEST_CHILD_CHECK(ZONET_getport(&list.addrs[i]) == 0);
      texts.insert(Text(list.addrs[i]));
    }
    ZOTEST_CHILD_CHECK((texts == std::set<std::string>{"::1", "2001:db8::9", "::ffff:127.0.53.53"}));
    // The sentinel was never needed, so it was never parsed.
    ZOTEST_CHILD_CHECK(!zonet_internal::CollisionSentinelReady());
    ZONET_freehostent(&list);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Resolve, RecordsComeInTheResolversOrder) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.7 multi.test\n127.0.0.8 multi.test\n127.0.0.9 multi.test\n", [] {
    ZONET_HostEnt list{};
    ZOTEST_CHILD_CHECK(ZONET_name2ip("multi.test", &list, ZONET_FAMILY_IPV4) == 0);
    ZOTEST_CHILD_CHECK(Texts(list) == SystemOrder("multi.test", AF_INET));
    ZOTEST_CHILD_CHECK(list.count == 3);
    ZONET_freehostent(&list);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Resolve, AnAddressGoesBackToItsName) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n127.0.0.9 box.example.test\n::1 ip6-loopback\n", [] {
    char buffer[256];
    ZONET_SockAddr addr;
    ZOTEST_CHILD_CHECK(ZONET_str2ip("127.0.0.9", &addr) == 0);
    ZOTEST_CHILD_CHECK(ZONET_ip2name(&addr, buffer, sizeof buffer) == 0);
    ZOTEST_CHILD_CHECK(strcmp(buffer, "box.example.test") == 0);
    // IPv6 is given the whole record's length, which the resolver takes.
    ZOTEST_CHILD_CHECK(ZONET_str2ip("::1", &addr) == 0);
    ZOTEST_CHILD_CHECK(ZONET_ip2name(&addr, buffer, sizeof buffer) == 0);
    ZOTEST_CHILD_CHECK(strcmp(buffer, "ip6-loopback") == 0);
    // A name is required: an address without one is not found.
    ZOTEST_CHILD_CHECK(ZONET_str2ip("192.0.2.55", &addr) == 0);
    errno = 0;
    ZOTEST_CHILD_CHECK(ZONET_ip2name(&addr, buffer, sizeof buffer) == EAI_NONAME);
    ZOTEST_CHILD_CHECK(errno == EAI_NONAME);
    // A name that does not fit.
    ZOTEST_CHILD_CHECK(ZONET_str2ip("127.0.0.9", &addr) == 0);
    ZOTEST_CHILD_CHECK(ZONET_ip2name(&addr, buffer, 5) == EAI_OVERFLOW);
    ZOTEST_CHILD_CHECK(ZONET_ip2name(&addr, buffer, 0) == ZONET_ERR_NAME_TOO_LONG);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Resolve, ALocalRecordsNameIsItsPath) {
  ZONET_SockAddr addr;
  ASSERT_EQ(ZONET_str2ip("/run/zonet/ctl.sock", &addr), 0);
  char buffer[64];
  ASSERT_EQ(ZONET_ip2name(&addr, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "/run/zonet/ctl.sock");
  char exact[20];
  EXPECT_EQ(ZONET_ip2name(&addr, exact, sizeof exact), 0);
  EXPECT_EQ(ZONET_ip2name(&addr, exact, sizeof exact - 1), ZONET_ERR_NAME_TOO_LONG);
}

TEST_F(Resolve, RecordOfNoFamilyHasNoName) {
  ZONET_SockAddr any;
  memset(&any, 0, sizeof any);
  char buffer[64];
  EXPECT_EQ(ZONET_ip2name(&any, buffer, sizeof buffer), EAI_FAMILY);
}

// ---- host and service calls ----

TEST_F(Resolve, HostNameIsTheMachines) {
  char expected[256];
  ASSERT_EQ(gethostname(expected, sizeof expected), 0);
  char buffer[256];
  ASSERT_EQ(ZONET_gethostname(buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, expected);
  if (strlen(expected) > 1) {
    EXPECT_EQ(ZONET_gethostname(buffer, 1), ENAMETOOLONG);
  }
  EXPECT_EQ(ZONET_gethostname(nullptr, 10), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_gethostname(buffer, 0), ZONET_ERR_INVALID_PARAMETER);
}

TEST_F(Resolve, ServicesByNameAndByPort) {
  if (!HasService("http", "tcp")) GTEST_SKIP() << "no http/tcp in the services database";
  struct servent* service = nullptr;
  ASSERT_EQ(ZONET_getservbyname("http", "tcp", &service), 0);
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(service->s_port, htons(80));
  EXPECT_STREQ(service->s_proto, "tcp");

  ASSERT_EQ(ZONET_getservbyport(htons(80), "tcp", &service), 0);
  ASSERT_NE(service, nullptr);
  EXPECT_STREQ(service->s_name, "http");

  ASSERT_EQ(ZONET_getservbyname("http", nullptr, &service), 0);
  EXPECT_EQ(service->s_port, htons(80));
}

TEST_F(Resolve, AnUnknownServiceIsNotFoundAndLeavesNoEntry) {
  struct servent* service = reinterpret_cast<struct servent*>(&service);
  EXPECT_EQ(ZONET_getservbyname("zonet-no-such-service", "tcp", &service), ENOENT);
  EXPECT_EQ(service, nullptr);
  service = reinterpret_cast<struct servent*>(&service);
  EXPECT_EQ(ZONET_getservbyport(htons(1), "zonet-no-such-protocol", &service), ENOENT);
  EXPECT_EQ(service, nullptr);
  EXPECT_EQ(ZONET_getservbyname(nullptr, "tcp", &service), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_getservbyname("http", "tcp", nullptr), ZONET_ERR_INVALID_PARAMETER);
  EXPECT_EQ(ZONET_getservbyport(80, "tcp", nullptr), ZONET_ERR_INVALID_PARAMETER);
}

TEST_F(Resolve, EachThreadHasItsOwnServiceEntry) {
  if (!HasService("http", "tcp") || !HasService("ssh", "tcp")) GTEST_SKIP() << "no http or ssh in the services database";
  struct servent* mine = nullptr;
  ASSERT_EQ(ZONET_getservbyname("http", "tcp", &mine), 0);
  std::thread other([] {
    struct servent* theirs = nullptr;
    ZONET_getservbyname("ssh", "tcp", &theirs);
  });
  other.join();
  EXPECT_STREQ(mine->s_name, "http");
}

// ---- the flat calls on the library's own resolver ----

TEST_F(ResolveFallback, FlatCallsWorkOnTheLibrarysOwnResolver) {
  zonet_internal::ForceResolverFallbacks();
  ASSERT_TRUE(zonet_internal::ResolverUsesFallbacks());

  ZONET_HostEnt list{};
  ASSERT_EQ(ZONET_name2ip("localhost", &list, ZONET_FAMILY_IPV4), 0);
  ASSERT_GE(list.count, 1u);
  EXPECT_EQ(Text(list.addrs[0]), "127.0.0.1");
  EXPECT_EQ(ZONET_getport(&list.addrs[0]), 0);
  ZONET_freehostent(&list);

  ZONET_SockAddr addr;
  ASSERT_EQ(ZONET_str2ip("192.0.2.200", &addr), 0);
  EXPECT_EQ(Text(addr), "192.0.2.200");
  EXPECT_EQ(ZONET_str2ip("127.0.53.53", &addr), ZONET_ERR_HOST_NOT_FOUND);
  // IPv4 only: no IPv6 text, no IPv6 family.
  EXPECT_EQ(ZONET_str2ip("::1", &addr), EAI_NONAME);
  EXPECT_EQ(ZONET_name2ip("localhost", &list, ZONET_FAMILY_IPV6), EAI_FAMILY);

  char buffer[64];
  ASSERT_EQ(ZONET_str2ip("127.0.0.1", &addr), 0);
  ASSERT_EQ(ZONET_ip2name(&addr, buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "localhost");
}

TEST_F(ResolveFallback, TheSentinelIsRefusedThroughTheLibrarysOwnResolverToo) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.7 twoaddr.test\n127.0.53.53 twoaddr.test\n", [] {
    zonet_internal::ForceResolverFallbacks();
    zonet_internal::ResetCollisionSentinel();
    ZONET_HostEnt list{};
    ZOTEST_CHILD_CHECK(ZONET_name2ip("twoaddr.test", &list, ZONET_FAMILY_ANY) == ZONET_ERR_HOST_NOT_FOUND);
    ZOTEST_CHILD_CHECK(list.count == 0 && list.addrs == nullptr);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

// ---- the library's own getaddrinfo ----

TEST_F(ResolveFallback, ANumericNodeGivesOneRecordMarkedNumeric) {
  struct addrinfo hints = Hints(0, AF_UNSPEC, SOCK_STREAM);
  hints.ai_protocol = IPPROTO_TCP;
  struct addrinfo* list = nullptr;
  ASSERT_EQ(FallbackGetAddrInfo("192.0.2.1", nullptr, &hints, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->ai_family, AF_INET);
  EXPECT_EQ(list->ai_socktype, SOCK_STREAM);
  EXPECT_EQ(list->ai_protocol, IPPROTO_TCP);
  EXPECT_EQ(list->ai_addrlen, 16u);
  EXPECT_NE(list->ai_flags & AI_NUMERICHOST, 0);
  EXPECT_EQ(list->ai_canonname, nullptr);
  EXPECT_EQ(list->ai_next, nullptr);
  std::vector<Record> records = Records(list);
  EXPECT_EQ(records[0].address, "192.0.2.1");
  EXPECT_EQ(records[0].port, 0);
  FallbackFreeAddrInfo(list);
}

TEST_F(ResolveFallback, TheCanonicalNameOfANumericNodeIsItsDottedText) {
  struct addrinfo hints = Hints(AI_CANONNAME, AF_INET, 0);
  struct addrinfo* list = nullptr;
  ASSERT_EQ(FallbackGetAddrInfo("10.0.0.1", nullptr, &hints, &list), 0);
  ASSERT_NE(list->ai_canonname, nullptr);
  EXPECT_STREQ(list->ai_canonname, "10.0.0.1");
  FallbackFreeAddrInfo(list);
}

TEST_F(ResolveFallback, NoNodeIsLoopbackOrAnyWhenPassive) {
  struct addrinfo hints = Hints(0, AF_UNSPEC, SOCK_STREAM);
  struct addrinfo* list = nullptr;
  ASSERT_EQ(FallbackGetAddrInfo(nullptr, "8080", &hints, &list), 0);
  std::vector<Record> records = Records(list);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].address, "127.0.0.1");
  EXPECT_EQ(records[0].port, 8080);
  EXPECT_EQ(list->ai_flags & AI_NUMERICHOST, 0);
  FallbackFreeAddrInfo(list);

  hints.ai_flags = AI_PASSIVE;
  ASSERT_EQ(FallbackGetAddrInfo(nullptr, "8080", &hints, &list), 0);
  EXPECT_EQ(Records(list)[0].address, "0.0.0.0");
  FallbackFreeAddrInfo(list);
}

TEST_F(ResolveFallback, ANumericServiceWithoutSocketTypeGivesAStreamAndADatagramRecord) {
  EXPECT_EQ(Answer("127.0.0.1", "5353", nullptr), "127.0.0.1 stream 5353, 127.0.0.1 datagram 5353");
}

TEST_F(ResolveFallback, NamedServicesComeFromTheServicesDatabase) {
  if (!HasService("domain", "tcp") || !HasService("domain", "udp") || !HasService("http", "tcp") ||
      HasService("http", "udp") || !HasService("ntp", "udp") || HasService("ntp", "tcp")) {
    GTEST_SKIP() << "the services database lacks the usual domain, http and ntp entries";
  }
  // Both protocols: stream first, its datagram twin behind it.
  EXPECT_EQ(Answer("127.0.0.1", "domain", nullptr), "127.0.0.1 stream 53, 127.0.0.1 datagram 53");
  // Stream only, datagram only.
  EXPECT_EQ(Answer("127.0.0.1", "http", nullptr), "127.0.0.1 stream 80");
  EXPECT_EQ(Answer("127.0.0.1", "ntp", nullptr), "127.0.0.1 datagram 123");

  // Asked for a socket type the service does not have.
  struct addrinfo hints = Hints(0, AF_INET, SOCK_DGRAM);
  struct addrinfo* list = nullptr;
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", "http", &hints, &list), EAI_SERVICE);
  EXPECT_EQ(list, nullptr);
}

TEST_F(ResolveFallback, AnUnknownServiceIsAServiceErrorOnlyWhenASocketTypeWasAsked) {
  struct addrinfo* list = reinterpret_cast<struct addrinfo*>(&list);
  struct addrinfo hints = Hints(0, AF_UNSPEC, SOCK_STREAM);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", "zonet-no-such-service", &hints, &list), EAI_SERVICE);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", "zonet-no-such-service", nullptr, &list), EAI_NONAME);
  hints.ai_socktype = SOCK_RAW;
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", "http", &hints, &list), EAI_SERVICE);
  // Out of a port's range is no number.
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", "70000", nullptr, &list), EAI_NONAME);
}

TEST_F(ResolveFallback, HintsAreChecked) {
  struct addrinfo* list = nullptr;
  struct addrinfo hints = Hints(0, AF_UNSPEC, 0);
  char name[] = "x";
  hints.ai_canonname = name;
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_FAIL);
  hints = Hints(0, AF_UNSPEC, 0);
  struct sockaddr_in in{};
  hints.ai_addr = reinterpret_cast<struct sockaddr*>(&in);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_FAIL);
  hints = Hints(0, AF_UNSPEC, 0);
  struct addrinfo other = Hints(0, 0, 0);
  hints.ai_next = &other;
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_FAIL);
  hints = Hints(0, AF_UNSPEC, 0);
  hints.ai_addrlen = 16;
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_FAIL);

  hints = Hints(AI_CANONNAME, AF_UNSPEC, 0);
  EXPECT_EQ(FallbackGetAddrInfo(nullptr, "80", &hints, &list), EAI_BADFLAGS);
  hints = Hints(0, AF_INET6, 0);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_FAMILY);
  hints = Hints(0, AF_UNIX, 0);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_FAMILY);
  hints = Hints(0, AF_INET, SOCK_SEQPACKET);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), EAI_SOCKTYPE);
  hints = Hints(0, AF_INET, SOCK_RAW);
  ASSERT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, &hints, &list), 0);
  EXPECT_EQ(list->ai_socktype, SOCK_RAW);
  FallbackFreeAddrInfo(list);

  EXPECT_EQ(FallbackGetAddrInfo(nullptr, nullptr, nullptr, &list), EAI_NONAME);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(FallbackGetAddrInfo("127.0.0.1", nullptr, nullptr, nullptr), EAI_FAIL);
}

TEST_F(ResolveFallback, NumericOnlyRefusesNamesAndShortForms) {
  struct addrinfo hints = Hints(AI_NUMERICHOST, AF_UNSPEC, 0);
  struct addrinfo* list = nullptr;
  EXPECT_EQ(FallbackGetAddrInfo("localhost", nullptr, &hints, &list), EAI_NONAME);
  // Only a text with exactly three dots counts as numeric.
  EXPECT_EQ(FallbackGetAddrInfo("127.1", nullptr, &hints, &list), EAI_NONAME);
  EXPECT_EQ(FallbackGetAddrInfo("1.2.3.4.5", nullptr, &hints, &list), EAI_NONAME);
  EXPECT_EQ(list, nullptr);
  ASSERT_EQ(FallbackGetAddrInfo("255.255.255.255", nullptr, &hints, &list), 0);
  EXPECT_EQ(Records(list)[0].address, "255.255.255.255");
  FallbackFreeAddrInfo(list);
}

TEST_F(ResolveFallback, NamesComeFromTheHostDatabase) {
  struct addrinfo hints = Hints(AI_CANONNAME, AF_INET, SOCK_STREAM);
  struct addrinfo* list = nullptr;
  ASSERT_EQ(FallbackGetAddrInfo("localhost", "80", &hints, &list), 0);
  std::vector<Record> records = Records(list);
  ASSERT_GE(records.size(), 1u);
  EXPECT_EQ(records[0].address, "127.0.0.1");
  EXPECT_EQ(records[0].port, 80);
  EXPECT_EQ(list->ai_flags & AI_NUMERICHOST, 0);
  ASSERT_NE(list->ai_canonname, nullptr);
  EXPECT_STREQ(list->ai_canonname, "localhost");
  FallbackFreeAddrInfo(list);
}

TEST_F(ResolveFallback, NamesFromTheHostsFileWithTheirOfficialNameAndTwins) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile(
      "127.0.0.7 multi.test nick.test\n127.0.0.8 multi.test\n", [] {
        struct addrinfo hints = Hints(AI_CANONNAME, AF_UNSPEC, 0);
        struct addrinfo* list = nullptr;
        ZOTEST_CHILD_CHECK(FallbackGetAddrInfo("nick.test", "99", &hints, &list) == 0);
        std::vector<Record> records = Records(list);
        ZOTEST_CHILD_CHECK(records.size() == 2);
        ZOTEST_CHILD_CHECK(records[0].address == "127.0.0.7" && records[0].socktype == SOCK_STREAM);
        ZOTEST_CHILD_CHECK(records[1].address == "127.0.0.7" && records[1].socktype == SOCK_DGRAM);
        ZOTEST_CHILD_CHECK(records[1].port == 99);
        // The official name of the answer, on the first record only.
        ZOTEST_CHILD_CHECK(list->ai_canonname != nullptr && strcmp(list->ai_canonname, "multi.test") == 0);
        ZOTEST_CHILD_CHECK(list->ai_next->ai_canonname == nullptr);
        FallbackFreeAddrInfo(list);

        ZOTEST_CHILD_CHECK(Answer("multi.test", "99", nullptr) ==
                           "127.0.0.7 stream 99, 127.0.0.7 datagram 99, 127.0.0.8 stream 99, 127.0.0.8 datagram 99");

        ZOTEST_CHILD_CHECK(FallbackGetAddrInfo("unknown.test", nullptr, nullptr, &list) == EAI_NONAME);
        ZOTEST_CHILD_CHECK(list == nullptr);
        return 0;
      });
  EXPECT_EQ(status, 0);
}

TEST_F(ResolveFallback, AVeryLongNameIsCutAndNotFound) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n", [] {
    std::string name(3000, 'a');
    struct addrinfo* list = nullptr;
    int rc = FallbackGetAddrInfo(name.c_str(), nullptr, nullptr, &list);
    ZOTEST_CHILD_CHECK(rc == EAI_NONAME);
    ZOTEST_CHILD_CHECK(list == nullptr);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

// ---- the library's own getnameinfo ----

TEST_F(ResolveFallback, NameInfoChecksItsArguments) {
  struct sockaddr_in in = Ipv4("127.0.0.1", 0);
  const struct sockaddr* sa = reinterpret_cast<const struct sockaddr*>(&in);
  char host[64];
  char service[16];
  EXPECT_EQ(FallbackGetNameInfo(nullptr, 16, host, sizeof host, nullptr, 0, 0), EAI_FAIL);
  EXPECT_EQ(FallbackGetNameInfo(sa, 15, host, sizeof host, nullptr, 0, 0), EAI_FAIL);
  EXPECT_EQ(FallbackGetNameInfo(sa, 16, nullptr, 0, nullptr, 0, 0), EAI_NONAME);
  EXPECT_EQ(FallbackGetNameInfo(sa, 16, host, 0, service, 0, 0), EAI_NONAME);
  EXPECT_EQ(FallbackGetNameInfo(sa, 16, host, sizeof host, nullptr, 0, NI_NUMERICHOST | NI_NAMEREQD), EAI_BADFLAGS);
  struct sockaddr_in6 in6{};
  in6.sin6_family = AF_INET6;
  EXPECT_EQ(FallbackGetNameInfo(reinterpret_cast<const struct sockaddr*>(&in6), sizeof in6, host, sizeof host, nullptr,
                                0, 0),
            EAI_FAMILY);
}

TEST_F(ResolveFallback, NameInfoGivesNumbersOrNames) {
  struct sockaddr_in in = Ipv4("127.0.0.1", 8080);
  const struct sockaddr* sa = reinterpret_cast<const struct sockaddr*>(&in);
  char host[64];
  char service[16];
  ASSERT_EQ(FallbackGetNameInfo(sa, 16, host, sizeof host, service, sizeof service, NI_NUMERICHOST | NI_NUMERICSERV),
            0);
  EXPECT_STREQ(host, "127.0.0.1");
  EXPECT_STREQ(service, "8080");

  ASSERT_EQ(FallbackGetNameInfo(sa, sizeof in + 40, host, sizeof host, nullptr, 0, 0), 0);
  EXPECT_STREQ(host, "localhost");

  if (HasService("http", "tcp")) {
    in.sin_port = htons(80);
    ASSERT_EQ(FallbackGetNameInfo(sa, 16, nullptr, 0, service, sizeof service, 0), 0);
    EXPECT_STREQ(service, "http");
  }
  if (HasService("ntp", "udp")) {
    in.sin_port = htons(123);
    ASSERT_EQ(FallbackGetNameInfo(sa, 16, nullptr, 0, service, sizeof service, NI_DGRAM), 0);
    EXPECT_STREQ(service, "ntp");
  }
  // Text that does not fit.
  in.sin_port = htons(65535);
  EXPECT_EQ(FallbackGetNameInfo(sa, 16, nullptr, 0, service, 5, NI_NUMERICSERV), EAI_FAIL);
  EXPECT_EQ(FallbackGetNameInfo(sa, 16, host, 9, nullptr, 0, NI_NUMERICHOST), EAI_FAIL);
  EXPECT_EQ(FallbackGetNameInfo(sa, 16, host, 10, nullptr, 0, NI_NUMERICHOST), 0);
}

TEST_F(ResolveFallback, NameInfoFromTheHostsFile) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.9 box.example.test\n", [] {
    struct sockaddr_in in = Ipv4("127.0.0.9", 0);
    const struct sockaddr* sa = reinterpret_cast<const struct sockaddr*>(&in);
    char host[64];
    ZOTEST_CHILD_CHECK(FallbackGetNameInfo(sa, 16, host, sizeof host, nullptr, 0, 0) == 0);
    ZOTEST_CHILD_CHECK(strcmp(host, "box.example.test") == 0);
    ZOTEST_CHILD_CHECK(FallbackGetNameInfo(sa, 16, host, sizeof host, nullptr, 0, NI_NOFQDN) == 0);
    ZOTEST_CHILD_CHECK(strcmp(host, "box") == 0);
    // No name: the number, unless a name is required.
    inet_pton(AF_INET, "192.0.2.44", &in.sin_addr);
    ZOTEST_CHILD_CHECK(FallbackGetNameInfo(sa, 16, host, sizeof host, nullptr, 0, 0) == 0);
    ZOTEST_CHILD_CHECK(strcmp(host, "192.0.2.44") == 0);
    ZOTEST_CHILD_CHECK(FallbackGetNameInfo(sa, 16, host, sizeof host, nullptr, 0, NI_NAMEREQD) == EAI_NONAME);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(ResolveFallback, FreeingNothingIsHarmless) { FallbackFreeAddrInfo(nullptr); }
