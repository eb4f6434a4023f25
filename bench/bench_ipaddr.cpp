// The address object and the blacklist beside the plain system records and
// calls they stand for: a copy, a comparison, a parse, a list look-up.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoIPAddrBlacklist.h"

namespace {

CZoIPAddr Parsed(const char* text) {
  CZoIPAddr addr;
  addr.SetAddressString(text);
  return addr;
}

// The i-th address of a list: 10.0.x.y.
const char* NthAddress(int i, char (&text)[32]) {
  std::snprintf(text, sizeof text, "10.0.%d.%d", i / 256, i % 256);
  return text;
}

sockaddr_storage Storage(const char* text) {
  sockaddr_storage storage;
  std::memset(&storage, 0, sizeof storage);
  sockaddr_in* in = reinterpret_cast<sockaddr_in*>(&storage);
  in->sin_family = AF_INET;
  inet_pton(AF_INET, text, &in->sin_addr);
  return storage;
}

// ---------------------------------------------------------------- copy

void BM_IPAddrCopy(benchmark::State& state) {
  CZoIPAddr source = Parsed("10.0.0.1");
  for (auto _ : state) {
    CZoIPAddr copy(source);
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_IPAddrCopy);

void BM_Raw_SockaddrStorageCopy(benchmark::State& state) {
  sockaddr_storage source = Storage("10.0.0.1");
  for (auto _ : state) {
    sockaddr_storage copy = source;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_Raw_SockaddrStorageCopy);

// ---------------------------------------------------------------- comparison

void BM_IPAddrEqual(benchmark::State& state, const char* text) {
  CZoIPAddr a = Parsed(text);
  CZoIPAddr b = Parsed(text);
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    bool equal = a == b;
    benchmark::DoNotOptimize(equal);
  }
}
BENCHMARK_CAPTURE(BM_IPAddrEqual, ipv4, "10.0.0.1");
BENCHMARK_CAPTURE(BM_IPAddrEqual, ipv6, "2001:db8::1");

// The whole sockaddr_in, as a caller without the object would compare it.
void BM_Raw_MemcmpSockaddrIn(benchmark::State& state) {
  sockaddr_storage a = Storage("10.0.0.1");
  sockaddr_storage b = Storage("10.0.0.1");
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    bool equal = std::memcmp(&a, &b, sizeof(sockaddr_in)) == 0;
    benchmark::DoNotOptimize(equal);
  }
}
BENCHMARK(BM_Raw_MemcmpSockaddrIn);

// ---------------------------------------------------------------- parse

void BM_IPAddrSetAddressString(benchmark::State& state, const char* text) {
  CZoIPAddr addr;
  for (auto _ : state) {
    CZoError e = addr.SetAddressString(text);
    benchmark::DoNotOptimize(e);
  }
}
BENCHMARK_CAPTURE(BM_IPAddrSetAddressString, ipv4, "192.168.100.200");
BENCHMARK_CAPTURE(BM_IPAddrSetAddressString, ipv6, "2001:db8:1234::abcd");

void BM_Raw_InetPton(benchmark::State& state, int family, const char* text) {
  in6_addr addr;  // room for either family
  for (auto _ : state) {
    int rc = inet_pton(family, text, &addr);
    benchmark::DoNotOptimize(rc);
    benchmark::DoNotOptimize(addr);
  }
}
BENCHMARK_CAPTURE(BM_Raw_InetPton, ipv4, AF_INET, "192.168.100.200");
BENCHMARK_CAPTURE(BM_Raw_InetPton, ipv6, AF_INET6, "2001:db8:1234::abcd");

// ---------------------------------------------------------------- blacklist look-up

// state.range(0) entries, 10.0.x.y; the one asked about is the last, the
// worst case of a linear walk.
void BM_BlacklistIsAddressBlacklisted(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  CZoIPAddrBlacklist list;
  list.SetExpirationTime(3600);
  char text[32];
  for (int i = 0; i < count; ++i) list.AddAddressToBlacklist(Parsed(NthAddress(i, text)));
  CZoIPAddr wanted = Parsed(text);
  for (auto _ : state) {
    bool listed = list.IsAddressBlacklisted(wanted, nullptr, nullptr);
    benchmark::DoNotOptimize(listed);
  }
}
BENCHMARK(BM_BlacklistIsAddressBlacklisted)->Arg(10)->Arg(1000);

void BM_Raw_VectorScanMemcmp(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  std::vector<sockaddr_storage> list;
  char text[32];
  for (int i = 0; i < count; ++i) list.push_back(Storage(NthAddress(i, text)));
  sockaddr_storage wanted = Storage(text);
  for (auto _ : state) {
    bool listed = false;
    for (const sockaddr_storage& entry : list) {
      if (std::memcmp(&entry, &wanted, sizeof(sockaddr_in)) == 0) {
        listed = true;
        break;
      }
    }
    benchmark::DoNotOptimize(listed);
  }
}
BENCHMARK(BM_Raw_VectorScanMemcmp)->Arg(10)->Arg(1000);

}  // namespace
