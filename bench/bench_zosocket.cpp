// The socket object and the selector beside the raw calls they stand on:
// Send/Recv of 64 KiB chunks over one loopback TCP connection against
// send/recv on the same connection, and a selector over 1, 100 and 1000
// registered sockets with one ready against poll (and select) on the same
// descriptors.
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <vector>

#include <benchmark/benchmark.h>

#include "ZoNetwork/ZoSocket.h"
#include "ZoNetwork/ZoSocketSelector.h"

namespace {

constexpr int kChunk = 64 * 1024;

void Die(const char* what, const CZoError& error) {
  std::fprintf(stderr, "%s: %s\n", what, error.AsString().c_str());
  std::exit(1);
}

// One blocking loopback TCP connection with buffers large enough that a
// chunk sent is taken at once, so one thread can send and then receive.
struct Connection {
  CZoSocket client;
  CZoSocket server;
  Connection() {
    CZoIPAddr loopback("127.0.0.1");
    int big = 4 << 20;
    CZoSocket listener;
    CZoError error = listener.Socket(loopback);
    if (!error.IsError())
      error = listener.SetSockOpt(SOL_SOCKET, SO_RCVBUF, reinterpret_cast<char*>(&big), sizeof big);
    if (!error.IsError()) error = listener.Bind(loopback);
    if (!error.IsError()) error = listener.Listen(1);
    CZoIPAddr where;
    if (!error.IsError()) error = listener.GetLocalAddress(where);
    if (!error.IsError()) error = client.Socket(loopback);
    if (!error.IsError()) error = client.SetSockOpt(SOL_SOCKET, SO_SNDBUF, reinterpret_cast<char*>(&big), sizeof big);
    if (!error.IsError()) error = client.Connect(where);
    if (!error.IsError()) error = listener.Accept(server);
    if (error.IsError() || !server.IsValid()) Die("connection", error);
    listener.Close();
  }
  ~Connection() {
    client.Close();
    server.Close();
  }
  int ClientFd() const { return static_cast<int>(static_cast<uint64_t>(client.GetSocketDescriptor())); }
  int ServerFd() const { return static_cast<int>(static_cast<uint64_t>(server.GetSocketDescriptor())); }
};

void BM_ZoSocket_SendRecv64K(benchmark::State& state) {
  Connection c;
  std::vector<char> out(kChunk, 'z');
  std::vector<char> in(kChunk);
  for (auto _ : state) {
    int sent = 0;
    int received = 0;
    CZoError error = c.client.Send(out.data(), kChunk, 0, &sent);
    if (!error.IsError()) error = c.server.Recv(in.data(), kChunk, 0, &received);
    if (error.IsError()) Die("transfer", error);
    benchmark::DoNotOptimize(in.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
}
BENCHMARK(BM_ZoSocket_SendRecv64K);

void BM_Raw_SendRecv64K(benchmark::State& state) {
  Connection c;
  const int out = c.ClientFd();
  const int in = c.ServerFd();
  std::vector<char> outBuffer(kChunk, 'z');
  std::vector<char> inBuffer(kChunk);
  for (auto _ : state) {
    for (int done = 0; done < kChunk;) {
      ssize_t n = ::send(out, outBuffer.data() + done, static_cast<size_t>(kChunk - done), MSG_NOSIGNAL);
      if (n <= 0) std::abort();
      done += static_cast<int>(n);
    }
    for (int done = 0; done < kChunk;) {
      ssize_t n = ::recv(in, inBuffer.data() + done, static_cast<size_t>(kChunk - done), 0);
      if (n <= 0) std::abort();
      done += static_cast<int>(n);
    }
    benchmark::DoNotOptimize(inBuffer.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kChunk);
}
BENCHMARK(BM_Raw_SendRecv64K);

// count descriptors (local socket pairs), of which the first is readable.
struct Descriptors {
  std::vector<int> fds;
  explicit Descriptors(int count) {
    while (static_cast<int>(fds.size()) < count) {
      int pair[2];
      if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) std::abort();
      fds.push_back(pair[0]);
      fds.push_back(pair[1]);
    }
    // fds[1] is written, fds[0] becomes ready; with count 1 only fds[0] is
    // registered.
    if (::send(fds[1], "x", 1, 0) != 1) std::abort();
  }
  ~Descriptors() {
    for (int fd : fds) ::close(fd);
  }
};

void BM_Selector_Select(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  Descriptors d(count);
  std::vector<CZoSocket> sockets(static_cast<size_t>(count));
  CZoSocketSelector selector;
  for (int i = 0; i < count; ++i) {
    sockets[static_cast<size_t>(i)].AttachConnectedSocket(static_cast<uint64_t>(d.fds[static_cast<size_t>(i)]));
    selector.SetReadSocket(sockets[static_cast<size_t>(i)]);
  }
  const timeval poll = {0, 0};
  for (auto _ : state) {
    bool timedOut = true;
    CZoError error = selector.Select(&poll, &timedOut);
    if (error.IsError() || timedOut) Die("select", error);
    std::set<CZoSocket> ready = selector.GetReadSelected();
    if (ready.size() != 1) std::abort();
    benchmark::DoNotOptimize(ready);
  }
}
BENCHMARK(BM_Selector_Select)->Arg(1)->Arg(100)->Arg(1000);

void BM_Raw_Poll(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  Descriptors d(count);
  std::vector<pollfd> fds(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    fds[static_cast<size_t>(i)].fd = d.fds[static_cast<size_t>(i)];
    fds[static_cast<size_t>(i)].events = POLLIN;
  }
  for (auto _ : state) {
    if (::poll(fds.data(), fds.size(), 0) != 1) std::abort();
    int ready = -1;
    for (const pollfd& p : fds)
      if (p.revents & POLLIN) ready = p.fd;
    benchmark::DoNotOptimize(ready);
  }
}
BENCHMARK(BM_Raw_Poll)->Arg(1)->Arg(100)->Arg(1000);

void BM_Raw_Select(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  Descriptors d(count);
  fd_set registered;
  FD_ZERO(&registered);
  int maxFd = -1;
  for (int i = 0; i < count; ++i) {
    const int fd = d.fds[static_cast<size_t>(i)];
    if (fd >= FD_SETSIZE) {
      state.SkipWithError("descriptor beyond FD_SETSIZE");
      return;
    }
    FD_SET(fd, &registered);
    if (fd > maxFd) maxFd = fd;
  }
  for (auto _ : state) {
    fd_set working = registered;
    timeval poll = {0, 0};
    if (::select(maxFd + 1, &working, nullptr, nullptr, &poll) != 1) std::abort();
    int ready = -1;
    for (int i = 0; i < count; ++i)
      if (FD_ISSET(d.fds[static_cast<size_t>(i)], &working)) ready = d.fds[static_cast<size_t>(i)];
    benchmark::DoNotOptimize(ready);
  }
}
BENCHMARK(BM_Raw_Select)->Arg(1)->Arg(100)->Arg(1000);

}  // namespace
