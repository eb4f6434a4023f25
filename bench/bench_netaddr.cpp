// The numeric text conversions of the flat layer beside the raw calls that do
// the same work: ZONET_str2ip against inet_pton, ZONET_ip2str against
// inet_ntop, for IPv4 and IPv6. The library goes through the bound resolver
// (getaddrinfo with numeric-only hints, getnameinfo with numeric host), which
// is what the ratio shows.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>

#include <benchmark/benchmark.h>

#include "ZoNetwork/ZoNetAddr.h"

namespace {

constexpr const char kIpv4Text[] = "192.0.2.123";
constexpr const char kIpv6Text[] = "2001:db8:85a3::8a2e:370:7334";

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
