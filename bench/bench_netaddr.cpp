// The numeric text conversions of the flat layer beside the raw calls that do
// the same work: ZONET_str2ip against inet_pton, ZONET_ip2str against
// inet_ntop, for IPv4 and IPv6. A dotted quad and plain IPv6 are read without
// the resolver's list; every other form (here a scoped IPv6 address and the
// classic "127.1") still goes through the bound resolver (getaddrinfo with
// numeric-only hints), whose cost the last two show beside getaddrinfo
// itself. ZONET_ip2str goes through getnameinfo with numeric host.
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <string.h>

#include <benchmark/benchmark.h>

#include "ZoNetwork/ZoNetAddr.h"

namespace {

constexpr const char kIpv4Text[] = "192.0.2.123";
constexpr const char kIpv6Text[] = "2001:db8:85a3::8a2e:370:7334";
constexpr const char kScopedText[] = "fe80::1%lo";
constexpr const char kShortText[] = "127.1";

void BM_Str2ip(benchmark::State& state, const char* text) {
  ZONET_SockAddr addr;
  for (auto _ : state) {
    int rc = ZONET_str2ip(text, &addr);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(addr);
  }
}
BENCHMARK_CAPTURE(BM_Str2ip, IPv4, kIpv4Text);
BENCHMARK_CAPTURE(BM_Str2ip, IPv6, kIpv6Text);
BENCHMARK_CAPTURE(BM_Str2ip, ScopedIPv6, kScopedText);
BENCHMARK_CAPTURE(BM_Str2ip, ShortIPv4, kShortText);

// The resolver's numeric reading with the hints ZONET_str2ip gives it, list
// and release included: what the forms that are not read directly cost.
void BM_Raw_GetAddrInfoNumeric(benchmark::State& state, const char* text) {
  struct addrinfo hints;
  memset(&hints, 0, sizeof hints);
  hints.ai_flags = AI_NUMERICHOST;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  for (auto _ : state) {
    struct addrinfo* list = nullptr;
    int rc = getaddrinfo(text, nullptr, &hints, &list);
    if (rc == 0) freeaddrinfo(list);
    benchmark::DoNotOptimize(rc);
  }
}
BENCHMARK_CAPTURE(BM_Raw_GetAddrInfoNumeric, ScopedIPv6, kScopedText);
BENCHMARK_CAPTURE(BM_Raw_GetAddrInfoNumeric, ShortIPv4, kShortText);

// inet_pton into the system's own address structure, as the library fills
// its record.
void BM_Raw_InetPton(benchmark::State& state, int family, const char* text) {
  union {
    struct sockaddr_in v4;
    struct sockaddr_in6 v6;
  } addr;
  memset(&addr, 0, sizeof addr);
  void* target = family == AF_INET ? static_cast<void*>(&addr.v4.sin_addr) : static_cast<void*>(&addr.v6.sin6_addr);
  for (auto _ : state) {
    addr.v4.sin_family = static_cast<sa_family_t>(family);
    int rc = inet_pton(family, text, target);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(addr);
  }
}
BENCHMARK_CAPTURE(BM_Raw_InetPton, IPv4, AF_INET, kIpv4Text);
BENCHMARK_CAPTURE(BM_Raw_InetPton, IPv6, AF_INET6, kIpv6Text);

void BM_Ip2str(benchmark::State& state, const char* text) {
  ZONET_SockAddr addr;
  if (ZONET_str2ip(text, &addr) != 0) {
    state.SkipWithError("cannot parse the address text");
    return;
  }
  char buffer[64];
  for (auto _ : state) {
    int rc = ZONET_ip2str(&addr, buffer, sizeof buffer);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(buffer);
  }
}
BENCHMARK_CAPTURE(BM_Ip2str, IPv4, kIpv4Text);
BENCHMARK_CAPTURE(BM_Ip2str, IPv6, kIpv6Text);

void BM_Raw_InetNtop(benchmark::State& state, int family, const char* text) {
  struct in6_addr addr;  // room for either family
  inet_pton(family, text, &addr);
  char buffer[64];
  for (auto _ : state) {
    const char* result = inet_ntop(family, &addr, buffer, sizeof buffer);
    benchmark::DoNotOptimize(result);
    benchmark::DoNotOptimize(buffer);
  }
}
BENCHMARK_CAPTURE(BM_Raw_InetNtop, IPv4, AF_INET, kIpv4Text);
BENCHMARK_CAPTURE(BM_Raw_InetNtop, IPv6, AF_INET6, kIpv6Text);

}  // namespace
