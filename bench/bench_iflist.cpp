// Interface discovery beside the raw walk it stands on: GetIFList against a
// getifaddrs call that copies every IPv4 and IPv6 address of the running and
// loopback links, in the same namespace. Run it inside the namespace to
// measure (see docs/benchmarks.md), so both sides see the same adapters.
#include <benchmark/benchmark.h>

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "ZoNetwork/ZoIPAddr.h"

namespace {

struct RawAddress {
  sockaddr_storage address;
  unsigned prefix;
};

unsigned PrefixOf(const sockaddr* mask) {
  if (mask == nullptr) return 0;
  const unsigned char* bytes = mask->sa_family == AF_INET
                                   ? reinterpret_cast<const unsigned char*>(
                                         &reinterpret_cast<const sockaddr_in*>(mask)->sin_addr)
                                   : reinterpret_cast<const sockaddr_in6*>(mask)->sin6_addr.s6_addr;
  size_t size = mask->sa_family == AF_INET ? 4 : 16;
  unsigned bits = 0;
  for (size_t i = 0; i < size; ++i) bits += static_cast<unsigned>(__builtin_popcount(bytes[i]));
  return bits;
}

void BM_GetIFList(benchmark::State& state) {
  std::vector<std::pair<CZoIPAddr, CZoIPAddr> > pairs;
  for (auto _ : state) {
    CZoError e = CZoIPAddr::GetIFList(pairs, CZoIPAddr::IP_FAMILY_ANY);
    if (e.IsError()) state.SkipWithError(e.AsString().c_str());
    benchmark::DoNotOptimize(pairs.data());
  }
  state.counters["addresses"] = static_cast<double>(pairs.size());
}
BENCHMARK(BM_GetIFList);

void BM_GetIFListAddresses(benchmark::State& state) {
  std::vector<CZoIPAddr> addresses;
  for (auto _ : state) {
    addresses.clear();
    CZoError e = CZoIPAddr::GetIFList(addresses, CZoIPAddr::IP_FAMILY_ANY);
    if (e.IsError()) state.SkipWithError(e.AsString().c_str());
    benchmark::DoNotOptimize(addresses.data());
  }
}
BENCHMARK(BM_GetIFListAddresses);

void BM_GetMACList(benchmark::State& state) {
  std::vector<std::string> macs;
  for (auto _ : state) {
    macs.clear();
    CZoError e = CZoIPAddr::GetMACList(macs, CZoIPAddr::IP_FAMILY_ANY);
    if (e.IsError()) state.SkipWithError(e.AsString().c_str());
    benchmark::DoNotOptimize(macs.data());
  }
}
BENCHMARK(BM_GetMACList);

// The raw walk: one getifaddrs, every IPv4 and IPv6 address of a running or
// loopback link copied out with its prefix.
void BM_Raw_GetifaddrsWalk(benchmark::State& state) {
  std::vector<RawAddress> out;
  for (auto _ : state) {
    out.clear();
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
      state.SkipWithError("getifaddrs failed");
      break;
    }
    for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
      if (entry->ifa_addr == nullptr) continue;
      int family = entry->ifa_addr->sa_family;
      if (family != AF_INET && family != AF_INET6) continue;
      if ((entry->ifa_flags & (IFF_RUNNING | IFF_LOOPBACK)) == 0) continue;
      RawAddress raw;
      std::memset(&raw.address, 0, sizeof raw.address);
      std::memcpy(&raw.address, entry->ifa_addr, family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6));
      raw.prefix = PrefixOf(entry->ifa_netmask);
      out.push_back(raw);
    }
    freeifaddrs(list);
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["addresses"] = static_cast<double>(out.size());
}
BENCHMARK(BM_Raw_GetifaddrsWalk);

}  // namespace
