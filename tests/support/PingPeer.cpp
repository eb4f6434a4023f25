#include "support/PingPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

namespace zotest {

namespace {

uint16_t HostWord(const uint8_t* at) {
  uint16_t value;
  std::memcpy(&value, at, 2);
  return value;
}

// The packets that answer one request (the request's IP header at packet,
// ihl long, the whole length bytes).
std::vector<std::vector<uint8_t>> BuildAnswer(PingAnswer answer, const uint8_t* packet, size_t ihl, size_t length) {
  std::vector<uint8_t> reply(packet + ihl, packet + length);
  reply[0] = 0;
  reply[1] = 0;
  StoreChecksum(reply, reply.size());
  switch (answer) {
    case PingAnswer::kNone:
    case PingAnswer::kGood:
      break;
    case PingAnswer::kOtherId: {
      const uint16_t other = static_cast<uint16_t>(OwnIcmpIdentifier() ^ 0x5a5a);
      std::memcpy(&reply[4], &other, 2);
      StoreChecksum(reply, reply.size());
      break;
    }
    case PingAnswer::kUnreachable: {
      // Host unreachable, quoting the request's IP header and first 8 bytes.
      std::vector<uint8_t> message = {3, 1, 0, 0, 0, 0, 0, 0};
      message.insert(message.end(), packet, packet + ihl + 8);
      StoreChecksum(message, message.size());
      return {message};
    }
    case PingAnswer::kShort:
      reply.pop_back();
      StoreChecksum(reply, reply.size());
      break;
    case PingAnswer::kBadChecksum:
      reply[2] ^= 0xff;
      break;
    case PingAnswer::kOddByte:
      reply.back() = 0x5a;
      StoreChecksum(reply, reply.size());
      break;
    case PingAnswer::kOddByteUnsummed:
      reply.back() = 0x5a;
      StoreChecksum(reply, reply.size() - 1);
      break;
    case PingAnswer::kForeignThenGood: {
      std::vector<uint8_t> foreign = reply;
      const uint16_t other = static_cast<uint16_t>(OwnIcmpIdentifier() ^ 0x00ff);
      std::memcpy(&foreign[4], &other, 2);
      StoreChecksum(foreign, foreign.size());
      return {foreign, reply};
    }
  }
  return {reply};
}

}  // namespace

uint16_t WireChecksum(const uint8_t* data, size_t length) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < length; i += 2) sum += static_cast<uint32_t>(data[i] << 8 | data[i + 1]);
  if (length & 1) sum += static_cast<uint32_t>(data[length - 1] << 8);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return htons(static_cast<uint16_t>(~sum));
}

void StoreChecksum(std::vector<uint8_t>& icmp, size_t over) {
  icmp[2] = icmp[3] = 0;
  const uint16_t sum = WireChecksum(icmp.data(), over);
  std::memcpy(&icmp[2], &sum, 2);
}

uint16_t OwnIcmpIdentifier() { return static_cast<uint16_t>(getpid() & 0xffff); }

std::vector<uint8_t> EchoRequest(uint16_t id, uint16_t sequence, size_t dataBytes) {
  std::vector<uint8_t> echo(8 + dataBytes, 0);
  echo[0] = 8;
  std::memcpy(&echo[4], &id, 2);
  std::memcpy(&echo[6], &sequence, 2);
  StoreChecksum(echo, echo.size());
  return echo;
}

PingResponder::PingResponder(const NetNamespace& where, std::vector<PingAnswer> script, int delayMs,
                             PingAnswer afterScript)
    : m_script(std::move(script)), m_delayMs(delayMs), m_afterScript(afterScript) {
  std::atomic<int> ready{0};
  m_thread = std::thread([this, &where, &ready] { Run(where, ready); });
  while (ready == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  m_ok = ready > 0;
}

PingResponder::~PingResponder() { Stop(); }

void PingResponder::Stop() {
  m_stop = true;
  if (m_thread.joinable()) m_thread.join();
}

void PingResponder::Run(const NetNamespace& where, std::atomic<int>& ready) {
  const int fd = where.Enter() ? socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP) : -1;
  ready = fd >= 0 ? 1 : -1;
  if (fd < 0) return;
  size_t next = 0;
  while (!m_stop) {
    pollfd p = {fd, POLLIN, 0};
    if (poll(&p, 1, 50) <= 0) continue;
    uint8_t packet[2048];
    sockaddr_in from;
    socklen_t fromLength = sizeof from;
    const ssize_t n = recvfrom(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&from), &fromLength);
    if (n <= 0) continue;
    const size_t ihl = static_cast<size_t>(packet[0] & 0x0f) * 4;
    if (static_cast<size_t>(n) < ihl + 8 || packet[ihl] != 8) continue;
    PingRequest request;
    request.ttl = packet[8];
    request.type = packet[ihl];
    request.code = packet[ihl + 1];
    request.id = HostWord(packet + ihl + 4);
    request.sequence = HostWord(packet + ihl + 6);
    request.icmpLength = static_cast<size_t>(n) - ihl;
    request.checksumRight = WireChecksum(packet + ihl, request.icmpLength) == 0;
    m_requests.push_back(request);
    const PingAnswer answer = next < m_script.size() ? m_script[next] : m_afterScript;
    ++next;
    if (answer == PingAnswer::kNone) continue;
    if (m_delayMs > 0) std::this_thread::sleep_for(std::chrono::milliseconds(m_delayMs));
    for (const std::vector<uint8_t>& reply : BuildAnswer(answer, packet, ihl, static_cast<size_t>(n))) {
      sendto(fd, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), sizeof from);
    }
  }
  close(fd);
}

bool PingPeerNet::Build() {
  return pinger.Ok() && peer.Ok() && NetNamespace::Veth(pinger, "va", peer, "vb") &&
         pinger.Ip("addr add 10.77.0.1/24 dev va") == 0 && pinger.Ip("link set va up") == 0 &&
         pinger.Ip("link set lo up") == 0 && peer.Ip("addr add 10.77.0.2/24 dev vb") == 0 &&
         peer.Ip("link set vb up") == 0 && peer.Ip("link set lo up") == 0 &&
         peer.Exec("sysctl -q -w net.ipv4.icmp_echo_ignore_all=1") == 0;
}

}  // namespace zotest
