// The round trip CZoPing reports, beside the round trip a plain raw-socket
// echo loop measures and the one the system's ping reports, all against the
// same peer: a namespace over a veth pair whose kernel echo is off and where
// a thread answers every request after kDelayMs. Needs root and the ip tool;
// every benchmark is skipped otherwise. Times are the round trips themselves
// (manual time): CZoPing sleeps a second before each attempt, which is not
// counted.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "ZoNetwork/ZoPing.h"

namespace {

const int kDelayMs = 20;
const char* const kPeer = "10.77.0.2";
const unsigned kData = 56;
const int kRounds = 15;

int Shell(const std::string& command) {
  const int status = std::system((command + " >/dev/null 2>&1").c_str());
  return status == -1 ? -1 : WEXITSTATUS(status);
}

bool EnterNamespace(const std::string& name) {
  const int fd = open(("/run/netns/" + name).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool entered = setns(fd, CLONE_NEWNET) == 0;
  close(fd);
  return entered;
}

uint16_t WireChecksum(const uint8_t* data, size_t length) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < length; i += 2) sum += static_cast<uint32_t>(data[i] << 8 | data[i + 1]);
  if (length & 1) sum += static_cast<uint32_t>(data[length - 1] << 8);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return htons(static_cast<uint16_t>(~sum));
}

// The two namespaces and the delayed peer, made at the first benchmark and
// gone at exit.
class DelayedPeer {
public:
  DelayedPeer() {
    const std::string tag = std::to_string(getpid());
    pinger = "zo-bench-ping-" + tag;
    peer = "zo-bench-peer-" + tag;
    if (geteuid() != 0) {
      why = "needs root (network namespaces and raw sockets)";
      return;
    }
    made = Shell("ip netns add " + pinger) == 0 && Shell("ip netns add " + peer) == 0;
    const bool wired = made && Shell("ip -n " + pinger + " link add va type veth peer name vb netns " + peer) == 0 &&
                       Shell("ip -n " + pinger + " addr add 10.77.0.1/24 dev va") == 0 &&
                       Shell("ip -n " + pinger + " link set va up") == 0 &&
                       Shell("ip -n " + pinger + " link set lo up") == 0 &&
                       Shell("ip -n " + peer + " addr add 10.77.0.2/24 dev vb") == 0 &&
                       Shell("ip -n " + peer + " link set vb up") == 0 &&
                       Shell("ip netns exec " + peer + " sysctl -q -w net.ipv4.icmp_echo_ignore_all=1") == 0;
    if (!wired) {
      why = "cannot make the test network (ip netns, veth)";
      return;
    }
    std::atomic<int> ready{0};
    answering = std::thread([this, &ready] { Answer(ready); });
    while (ready == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (ready < 0) why = "cannot open the peer's raw socket";
  }

  ~DelayedPeer() {
    stop = true;
    if (answering.joinable()) answering.join();
    if (made) {
      Shell("ip netns del " + pinger);
      Shell("ip netns del " + peer);
    }
  }

  std::string pinger, peer, why;

private:
  // Every echo request gets its reply, kDelayMs late.
  void Answer(std::atomic<int>& ready) {
    const int fd = EnterNamespace(peer) ? socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP) : -1;
    ready = fd >= 0 ? 1 : -1;
    if (fd < 0) return;
    while (!stop) {
      pollfd p = {fd, POLLIN, 0};
      if (poll(&p, 1, 50) <= 0) continue;
      uint8_t packet[2048];
      sockaddr_in from;
      socklen_t length = sizeof from;
      const ssize_t n = recvfrom(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&from), &length);
      if (n <= 0) continue;
      const size_t ihl = static_cast<size_t>(packet[0] & 0x0f) * 4;
      if (static_cast<size_t>(n) < ihl + 8 || packet[ihl] != 8) continue;
      std::vector<uint8_t> reply(packet + ihl, packet + n);
      reply[0] = 0;
      reply[2] = reply[3] = 0;
      const uint16_t sum = WireChecksum(reply.data(), reply.size());
      std::memcpy(&reply[2], &sum, 2);
      std::this_thread::sleep_for(std::chrono::milliseconds(kDelayMs));
      sendto(fd, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), sizeof from);
    }
    close(fd);
  }

  bool made = false;
  std::atomic<bool> stop{false};
  std::thread answering;
};

DelayedPeer& Peer() {
  static DelayedPeer peer;
  return peer;
}

// Runs body on a thread inside the pinging namespace.
template <typename Body>
bool InPinger(Body body) {
  bool entered = false;
  std::thread worker([&] {
    entered = EnterNamespace(Peer().pinger);
    if (entered) body();
  });
  worker.join();
  return entered;
}

void BM_CZoPing(benchmark::State& state) {
  if (!Peer().why.empty()) {
    state.SkipWithError(Peer().why.c_str());
    return;
  }
  for (auto _ : state) {
    _ZoPingResult result;
    CZoError error = CZoError::Success();
    InPinger([&] {
      CZoPing ping;
      error = ping.ping(kPeer, kData, 1, 2, nullptr, nullptr, result, false);
    });
    if (error.IsError() || result.received != 1) {
      state.SkipWithError(error.IsError() ? error.AsString().c_str() : "no good reply");
      return;
    }
    state.SetIterationTime(static_cast<double>(result.totalTime) / 1000.0);
  }
}

// The same exchange by hand: one echo request on a raw socket, then reads
// until its reply, timed with the steady clock.
void BM_RawEchoLoop(benchmark::State& state) {
  if (!Peer().why.empty()) {
    state.SkipWithError(Peer().why.c_str());
    return;
  }
  uint16_t sequence = 0;
  for (auto _ : state) {
    double seconds = -1;
    InPinger([&] {
      const int fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
      if (fd < 0) return;
      sockaddr_in to = {};
      to.sin_family = AF_INET;
      inet_pton(AF_INET, kPeer, &to.sin_addr);
      std::vector<uint8_t> echo(8 + kData, 0);
      const uint16_t id = static_cast<uint16_t>(getpid() & 0xffff);
      ++sequence;
      echo[0] = 8;
      std::memcpy(&echo[4], &id, 2);
      std::memcpy(&echo[6], &sequence, 2);
      const uint16_t sum = WireChecksum(echo.data(), echo.size());
      std::memcpy(&echo[2], &sum, 2);
      const auto start = std::chrono::steady_clock::now();
      sendto(fd, echo.data(), echo.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
      for (;;) {
        pollfd p = {fd, POLLIN, 0};
        if (poll(&p, 1, 2000) <= 0) break;
        uint8_t packet[2048];
        const ssize_t n = recv(fd, packet, sizeof packet, 0);
        if (n <= 0) continue;
        const size_t ihl = static_cast<size_t>(packet[0] & 0x0f) * 4;
        if (n < static_cast<ssize_t>(ihl + 8) || packet[ihl] != 0) continue;
        if (std::memcmp(&packet[ihl + 4], &id, 2) != 0 || std::memcmp(&packet[ihl + 6], &sequence, 2) != 0) continue;
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        break;
      }
      close(fd);
    });
    if (seconds < 0) {
      state.SkipWithError("no reply to the raw echo");
      return;
    }
    state.SetIterationTime(seconds);
  }
}

// The system's ping (iputils), one request per run, its own report of the
// round trip.
void BM_SystemPing(benchmark::State& state) {
  if (!Peer().why.empty()) {
    state.SkipWithError(Peer().why.c_str());
    return;
  }
  const std::string command = "ip netns exec " + Peer().pinger + " ping -n -c 1 -W 2 -s " + std::to_string(kData) +
                              " " + kPeer + " 2>&1";
  for (auto _ : state) {
    FILE* out = popen(command.c_str(), "r");
    double ms = -1;
    char line[512];
    while (out != nullptr && std::fgets(line, sizeof line, out) != nullptr) {
      const char* at = std::strstr(line, "time=");
      if (at != nullptr && ms < 0) ms = std::atof(at + 5);
    }
    if (out != nullptr) pclose(out);
    if (ms < 0) {
      state.SkipWithError("the system's ping gave no round trip (is iputils-ping installed?)");
      return;
    }
    state.SetIterationTime(ms / 1000.0);
  }
}

}  // namespace

BENCHMARK(BM_CZoPing)->UseManualTime()->Iterations(1)->Repetitions(kRounds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RawEchoLoop)->UseManualTime()->Iterations(1)->Repetitions(kRounds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SystemPing)->UseManualTime()->Iterations(1)->Repetitions(kRounds)->Unit(benchmark::kMillisecond);
