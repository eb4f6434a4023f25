// CZoIPAddr's look-ups through the real resolver, answering from a hosts file
// of the test's own: the collision marker, the resolver's order, appending,
// reverse look-ups and the local host.
#include <gtest/gtest.h>

#include <netdb.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "flat/FlatInternal.h"
#include "ZoNetwork/ZoIPAddr.h"
#include "ipaddr_test_util.h"
#include "support/HostsNamespace.h"
#include "support/TestSupport.h"

namespace {

using IP = CZoIPAddr;

using iptest::Contains;
using iptest::Text;

// The numeric texts of what the system's resolver lists for name, in its
// order, asked the way the library asks (stream, TCP, canonical name).
std::vector<std::string> RawAnswer(const char* name, int family) {
  addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_flags = AI_CANONNAME;
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* list = nullptr;
  std::vector<std::string> texts;
  if (getaddrinfo(name, nullptr, &hints, &list) != 0) return texts;
  for (addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
    char host[NI_MAXHOST];
    if (getnameinfo(entry->ai_addr, entry->ai_addrlen, host, sizeof host, nullptr, 0, NI_NUMERICHOST) == 0) {
      texts.push_back(host);
    }
  }
  freeaddrinfo(list);
  return texts;
}

// Runs body against a hosts file of hostsText and expects every check in it
// to hold, with no descriptor left open behind it.
void ExpectWithHosts(const std::string& hostsText, const std::function<int()>& body) {
  zotest::FdLeakCheck fds;
  EXPECT_EQ(zotest::RunWithHostsFile(hostsText, body), 0);
}

std::string MachineName() {
  char name[256] = {0};
  gethostname(name, sizeof name - 1);
  return name;
}

}  // namespace

TEST(IPAddrResolve, ANameThatResolvesToTheMarkerAloneIsACollision) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ExpectWithHosts("127.0.53.53 collide.test\n", [] {
    CZoIPAddr probe;  // the marker is set once a default construction has probed
    CZoIPAddr out("10.0.0.1");
    CZoError e = IP::GetByName("collide.test", out, IP::IP_FAMILY_IPV4);
    IPTEST_CHILD_CHECK(e.IsError());
    IPTEST_CHILD_CHECK(e.GetErrorCode() == ZONET_ERR_HOST_NOT_FOUND);
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "DNS name collision occured"));
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "CZoIPAddr::GetByName"));
    IPTEST_CHILD_CHECK(Text(out) == "127.0.53.53");  // out holds the marker

    std::vector<CZoIPAddr> all = {CZoIPAddr("10.9.9.9")};
    e = IP::GetAllByName("collide.test", all, IP::IP_FAMILY_ANY);
    IPTEST_CHILD_CHECK(e.IsError());
    IPTEST_CHILD_CHECK(e.GetErrorCode() == ZONET_ERR_HOST_NOT_FOUND);
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "DNS name collision occured"));
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "CZoIPAddr::GetAllByName"));
    IPTEST_CHILD_CHECK(all.size() == 1 && Text(all[0]) == "10.9.9.9");
    return 0;
  });
}

TEST(IPAddrResolve, AddressesBeforeTheMarkerStayInTheVector) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ExpectWithHosts("127.0.0.5 mixed.test\n127.0.53.53 mixed.test\n127.0.0.6 mixed.test\n", [] {
    CZoIPAddr probe;
    // What the resolver lists before the marker is what stays.
    std::vector<std::string> raw = RawAnswer("mixed.test", AF_INET);
    size_t marker = 0;
    while (marker < raw.size() && raw[marker] != "127.0.53.53") ++marker;
    if (marker == 0 || marker == raw.size()) {
      std::fprintf(stderr, "the resolver did not list another address before the marker\n");
      return 2;
    }
    std::vector<CZoIPAddr> all = {CZoIPAddr("/kept/by/the/caller")};
    CZoError e = IP::GetAllByName("mixed.test", all, IP::IP_FAMILY_IPV4);
    IPTEST_CHILD_CHECK(e.GetErrorCode() == ZONET_ERR_HOST_NOT_FOUND);
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "DNS name collision occured"));
    IPTEST_CHILD_CHECK(all.size() == 1 + marker);
    IPTEST_CHILD_CHECK(all[0].GetUnixSockAddr() == "/kept/by/the/caller");
    for (size_t i = 0; i < marker; ++i) {
      IPTEST_CHILD_CHECK(Text(all[1 + i]) == raw[i]);
      IPTEST_CHILD_CHECK(all[1 + i].GetPortNumber() == 0);
    }

    // The first answer alone is no collision.
    CZoIPAddr out;
    IPTEST_CHILD_CHECK(!IP::GetByName("mixed.test", out, IP::IP_FAMILY_IPV4).IsError());
    IPTEST_CHILD_CHECK(Text(out) == raw[0]);
    return 0;
  });
}

TEST(IPAddrResolve, GetAllByNameAppendsTheAnswerOnEveryCall) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ExpectWithHosts("10.0.0.1 two.test\n10.0.0.2 two.test\n2001:db8::2 two.test\n", [] {
    std::vector<std::string> raw = RawAnswer("two.test", AF_UNSPEC);
    IPTEST_CHILD_CHECK(raw.size() == 3);
    std::vector<CZoIPAddr> all;
    IPTEST_CHILD_CHECK(!IP::GetAllByName("two.test", all, IP::IP_FAMILY_ANY).IsError());
    IPTEST_CHILD_CHECK(!IP::GetAllByName("two.test", all, IP::IP_FAMILY_ANY).IsError());
    IPTEST_CHILD_CHECK(all.size() == 6);
    for (size_t i = 0; i < all.size(); ++i) {
      IPTEST_CHILD_CHECK(Text(all[i]) == raw[i % 3]);  // the resolver's order, twice over
      IPTEST_CHILD_CHECK(all[i].GetPortNumber() == 0);
    }
    return 0;
  });
}

TEST(IPAddrResolve, FamilyAnyTakesWhateverTheResolverListsFirst) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ExpectWithHosts("10.0.0.1 both.test\n2001:db8::1 both.test\n", [] {
    std::vector<std::string> raw = RawAnswer("both.test", AF_UNSPEC);
    IPTEST_CHILD_CHECK(raw.size() == 2);
    CZoIPAddr out;
    IPTEST_CHILD_CHECK(!IP::GetByName("both.test", out, IP::IP_FAMILY_ANY).IsError());
    IPTEST_CHILD_CHECK(Text(out) == raw[0]);
    IPTEST_CHILD_CHECK(!IP::GetByName("both.test", out, IP::IP_FAMILY_IPV6).IsError());
    IPTEST_CHILD_CHECK(Text(out) == "2001:db8::1");
    IPTEST_CHILD_CHECK(out.GetAddressFamily() == IP::IP_FAMILY_IPV6);
    IPTEST_CHILD_CHECK(!IP::GetByName("both.test", out, IP::IP_FAMILY_IPV4).IsError());
    IPTEST_CHILD_CHECK(Text(out) == "10.0.0.1");
    return 0;
  });
}

TEST(IPAddrResolve, AnUnknownNameCarriesTheResolverCodeAndLeavesTheOutput) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ExpectWithHosts("10.0.0.1 known.test\n", [] {
    CZoIPAddr out("10.1.1.1");
    CZoError e = IP::GetByName("unknown.test", out, IP::IP_FAMILY_IPV4);
    IPTEST_CHILD_CHECK(e.IsError());
    IPTEST_CHILD_CHECK(e.GetErrorCode() == EAI_NONAME);
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "CZoIPAddr::GetByName"));
    IPTEST_CHILD_CHECK(Text(out) == "10.1.1.1");
    std::vector<CZoIPAddr> all;
    e = IP::GetAllByName("unknown.test", all, IP::IP_FAMILY_ANY);
    IPTEST_CHILD_CHECK(e.GetErrorCode() == EAI_NONAME);
    IPTEST_CHILD_CHECK(all.empty());
    // An IPv4-only name asked for as IPv6.
    e = IP::GetByName("known.test", out, IP::IP_FAMILY_IPV6);
    IPTEST_CHILD_CHECK(e.IsError());
    IPTEST_CHILD_CHECK(Text(out) == "10.1.1.1");
    return 0;
  });
}

TEST(IPAddrResolve, ReverseLookupNeedsAName) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ExpectWithHosts("10.7.7.7 named.test\n", [] {
    CZoString name;
    CZoIPAddr named("10.7.7.7");
    IPTEST_CHILD_CHECK(!named.SetPortNumber(80).IsError());
    IPTEST_CHILD_CHECK(!named.GetHostName(name).IsError());
    IPTEST_CHILD_CHECK(name == "named.test");

    name = "left over";
    CZoError e = CZoIPAddr("10.7.7.8").GetHostName(name);
    IPTEST_CHILD_CHECK(e.IsError());  // a numeric answer is no name
    IPTEST_CHILD_CHECK(name.IsEmpty());
    IPTEST_CHILD_CHECK(Contains(e.AsString(), "CZoIPAddr::GetHostName"));

    IPTEST_CHILD_CHECK(!CZoIPAddr("/run/peer.sock").GetHostName(name).IsError());
    IPTEST_CHILD_CHECK(name == "/run/peer.sock");
    return 0;
  });
}

TEST(IPAddrResolve, TheLocalHostIsTheMachinesNameResolved) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  const std::string machine = MachineName();
  ASSERT_FALSE(machine.empty());
  CZoString name;
  ASSERT_FALSE(IP::GetLocalHost(name).IsError());
  EXPECT_EQ(std::string(name.c_str()), machine);

  ExpectWithHosts("10.8.8.8 " + machine + "\n", [] {
    CZoIPAddr out;
    CZoError e = IP::GetLocalHost(out, IP::IP_FAMILY_IPV4);
    IPTEST_CHILD_CHECK(!e.IsError());
    IPTEST_CHILD_CHECK(Text(out) == "10.8.8.8");
    return 0;
  });

  ExpectWithHosts("10.8.8.8 not-this-machine.test\n", [] {
    CZoIPAddr out("10.1.1.1");
    CZoError e = IP::GetLocalHost(out, IP::IP_FAMILY_IPV4);
    IPTEST_CHILD_CHECK(e.GetErrorCode() == EAI_NONAME);
    IPTEST_CHILD_CHECK(e.GetItemCount() == 2);
    IPTEST_CHILD_CHECK(strcmp(e.GetItem(0)->GetLocation().GetFunction(), "CZoIPAddr::GetByName") == 0);
    IPTEST_CHILD_CHECK(strcmp(e.GetItem(1)->GetLocation().GetFunction(), "CZoIPAddr::GetLocalHost") == 0);
    return 0;
  });
}

// ---------------------------------------------------------------- an answer of other families

namespace {

// No system resolver answers a stream request with a family other than IPv4
// or IPv6, so this one stands in for it through the library's own binding
// hook: one local-socket entry, nothing else.
int OtherFamiliesGetAddrInfo(const char*, const char*, const addrinfo*, addrinfo** result) {
  addrinfo* entry = static_cast<addrinfo*>(calloc(1, sizeof(addrinfo)));
  sockaddr_un* local = static_cast<sockaddr_un*>(calloc(1, sizeof(sockaddr_un)));
  local->sun_family = AF_UNIX;
  strcpy(local->sun_path, "/not/an/ip/address");
  entry->ai_family = AF_UNIX;
  entry->ai_socktype = SOCK_STREAM;
  entry->ai_addrlen = sizeof(sockaddr_un);
  entry->ai_addr = reinterpret_cast<sockaddr*>(local);
  *result = entry;
  return 0;
}

void OtherFamiliesFreeAddrInfo(addrinfo* list) {
  while (list != nullptr) {
    addrinfo* next = list->ai_next;
    free(list->ai_addr);
    free(list);
    list = next;
  }
}

void* OtherFamiliesLookup(const char* name) {
  if (strcmp(name, "getaddrinfo") == 0) return reinterpret_cast<void*>(OtherFamiliesGetAddrInfo);
  if (strcmp(name, "freeaddrinfo") == 0) return reinterpret_cast<void*>(OtherFamiliesFreeAddrInfo);
  if (strcmp(name, "getnameinfo") == 0) return reinterpret_cast<void*>(getnameinfo);
  return nullptr;
}

struct OtherFamiliesResolver {
  OtherFamiliesResolver() {
    zonet_internal::SetResolverLookup(OtherFamiliesLookup);
    zonet_internal::ResetResolverBinding();
  }
  ~OtherFamiliesResolver() {
    zonet_internal::SetResolverLookup(nullptr);
    zonet_internal::ResetResolverBinding();
  }
};

}  // namespace

TEST(IPAddrResolve, AnAnswerOfOtherFamiliesOnlyIsSuccessWithTheOutputUntouched) {
  CZoIPAddr out("10.4.4.4");
  ASSERT_FALSE(out.SetPortNumber(44).IsError());
  std::vector<CZoIPAddr> all;
  {
    OtherFamiliesResolver resolver;
    EXPECT_FALSE(IP::GetByName("anything.test", out, IP::IP_FAMILY_ANY).IsError());
    EXPECT_FALSE(IP::GetAllByName("anything.test", all, IP::IP_FAMILY_ANY).IsError());
  }
  EXPECT_EQ(Text(out), "10.4.4.4");
  EXPECT_EQ(out.GetPortNumber(), 44) << "not even the port is touched";
  EXPECT_TRUE(all.empty());
}
