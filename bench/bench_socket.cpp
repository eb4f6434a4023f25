// The flat socket layer beside the system calls it stands on: send and recv
// loops over a loopback TCP pair, the time-out receive beside poll and recv,
// and descriptor sets beside a plain vector with the same rules.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <benchmark/benchmark.h>

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetSocket.h"

namespace {

const int kChunk = 64 << 10;
const int kMessage = 1 << 10;

// A connected loopback TCP pair, made with the system's calls; closed at the
// end of the benchmark.
struct TcpPair {
  int a = -1, b = -1;
  TcpPair() {
    int l = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(sa);
    if (::bind(l, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0 || ::listen(l, 1) != 0 ||
        ::getsockname(l, reinterpret_cast<sockaddr*>(&sa), &len) != 0)
      std::abort();
    a = ::socket(AF_INET, SOCK_STREAM, 0);
    if (::connect(a, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0) std::abort();
    b = ::accept(l, nullptr, nullptr);
    ::close(l);
    // Room for a whole chunk in flight, so one thread can send then receive.
    int size = 4 * kChunk;
    ::setsockopt(a, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    ::setsockopt(b, SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
  }
  ~TcpPair() {
    ::close(a);
    ::close(b);
  }
};

void RawSendAll(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t r = ::send(fd, p, n, MSG_NOSIGNAL);
    if (r <= 0) std::abort();
    p += r;
    n -= static_cast<size_t>(r);
  }
}

void RawRecvAll(int fd, char* p, size_t n) {
  while (n > 0) {
    ssize_t r = ::recv(fd, p, n, 0);
    if (r <= 0) std::abort();
    p += r;
    n -= static_cast<size_t>(r);
  }
}

void BM_Raw_SendRecv64K(benchmark::State& state) {
  TcpPair pair;
  std::vector<char> out(kChunk, 'x'), in(kChunk);
  for (auto _ : state) {
    RawSendAll(pair.a, out.data(), out.size());
    RawRecvAll(pair.b, in.data(), in.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
}
BENCHMARK(BM_Raw_SendRecv64K);

void BM_ZonetSendRecv64K(benchmark::State& state) {
  TcpPair pair;
  std::vector<char> out(kChunk, 'x'), in(kChunk);
  int n = 0;
  for (auto _ : state) {
    if (ZONET_send(static_cast<ZONET_SOCKET>(pair.a), out.data(), kChunk, &n, 0) != 0 || n != kChunk) std::abort();
    if (ZONET_recv(static_cast<ZONET_SOCKET>(pair.b), in.data(), kChunk, &n, 0) != 0 || n != kChunk) std::abort();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
}
BENCHMARK(BM_ZonetSendRecv64K);

void BM_Raw_PollRecv1K(benchmark::State& state) {
  TcpPair pair;
  std::vector<char> out(kMessage, 'y'), in(kMessage);
  for (auto _ : state) {
    RawSendAll(pair.a, out.data(), out.size());
    size_t got = 0;
    while (got < in.size()) {
      pollfd p{pair.b, POLLIN, 0};
      if (::poll(&p, 1, 1000) != 1) std::abort();
      ssize_t r = ::recv(pair.b, in.data() + got, in.size() - got, 0);
      if (r <= 0) std::abort();
      got += static_cast<size_t>(r);
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kMessage);
}
BENCHMARK(BM_Raw_PollRecv1K);

void BM_ZonetRecvWithTimeout1K(benchmark::State& state) {
  TcpPair pair;
  std::vector<char> out(kMessage, 'y'), in(kMessage);
  int n = 0, timedOut = 0;
  for (auto _ : state) {
    RawSendAll(pair.a, out.data(), out.size());
    if (ZONET_recvwithtimeout(static_cast<ZONET_SOCKET>(pair.b), in.data(), kMessage, &n, 5, &timedOut, 0) != 0 ||
        n != kMessage)
      std::abort();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kMessage);
}
BENCHMARK(BM_ZonetRecvWithTimeout1K);

// The same rules as a descriptor set's list, in a vector: no duplicates,
// members in order, found by scanning.
void BM_Raw_VectorSetIssetClr(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    std::vector<int> set;
    set.reserve(1024);
    for (int fd = 0; fd < n; ++fd) {
      if (std::find(set.begin(), set.end(), fd) == set.end()) set.push_back(fd);
    }
    int found = 0;
    for (int fd = 0; fd < n; ++fd) found += std::find(set.begin(), set.end(), fd) != set.end();
    for (int fd = 0; fd < n; ++fd) {
      auto it = std::find(set.begin(), set.end(), fd);
      if (it != set.end()) set.erase(it);
    }
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n * 3);
}
BENCHMARK(BM_Raw_VectorSetIssetClr)->Arg(10)->Arg(1000)->Arg(8192);

void BM_FdsetSetIssetClr(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  for (auto _ : state) {
    xnfdset_t set;
    xnfdset_alloc(8192, &set);
    for (int fd = 0; fd < n; ++fd) xnfdset_set(static_cast<ZONET_SOCKET>(fd), &set);
    int found = 0;
    for (int fd = 0; fd < n; ++fd) found += xnfdset_isset(static_cast<ZONET_SOCKET>(fd), &set);
    for (int fd = 0; fd < n; ++fd) xnfdset_clr(static_cast<ZONET_SOCKET>(fd), &set);
    benchmark::DoNotOptimize(found);
    xnfdset_free(&set);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * n * 3);
}
BENCHMARK(BM_FdsetSetIssetClr)->Arg(10)->Arg(1000)->Arg(8192);

}  // namespace
