// The round trip CZoPing reports, beside the round trip a plain raw-socket
// echo loop measures and the one the system's ping reports, all against the
// same peer: a namespace over a veth pair whose kernel echo is off and where
// a thread answers every request after kDelayMs. Needs root and the ip tool;
// every benchmark is skipped otherwise. Times are the round trips themselves
// (manual time): CZoPing sleeps a second before each attempt, which is not
// counted.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "ZoNetwork/ZoPing.h"
#include "support/PingPeer.h"

namespace {

const int kDelayMs = 20;
const char* const kPeer = zotest::PingPeerNet::kPeerAddress;
const unsigned kData = 56;
const int kRounds = 15;

// The two namespaces and the delayed peer, which answers every echo request
// kDelayMs late; made at the first benchmark and gone at exit.
struct DelayedPeer {
  DelayedPeer() {
    why = zotest::NetNamespaceUnavailableReason();
    if (!why.empty()) return;
    net.emplace();
    if (!net->Build()) {
      why = "cannot make the test network (ip netns, veth)";
      return;
    }
    answering.emplace(net->peer, std::vector<zotest::PingAnswer>{}, kDelayMs, zotest::PingAnswer::kGood);
    if (!answering->Ok()) why = "cannot open the peer's raw socket";
  }

  std::string why;
  std::optional<zotest::PingPeerNet> net;
  // Stops before the namespaces go.
  std::optional<zotest::PingResponder> answering;
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
    entered = Peer().net->pinger.Enter();
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
      const uint16_t id = zotest::OwnIcmpIdentifier();
      const std::vector<uint8_t> echo = zotest::EchoRequest(id, ++sequence, kData);
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
  const std::string command = "ip netns exec " + Peer().net->pinger.Name() + " ping -n -c 1 -W 2 -s " + std::to_string(kData) +
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
