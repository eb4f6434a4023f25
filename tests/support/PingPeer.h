// A peer for ping tests and benchmarks: two network namespaces over a veth
// pair, the pinger at 10.77.0.1 and the peer at 10.77.0.2, whose kernel does
// not answer echo requests, so that a raw socket in the peer's namespace
// answers each request as the caller scripts it (late, wrong, or not at all).
// Needs root and the ip tool (see NetNamespace.h).
#ifndef ZONET_TESTS_PINGPEER_H
#define ZONET_TESTS_PINGPEER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "support/NetNamespace.h"

namespace zotest {

// The Internet checksum as the wire has it: big-endian words, an odd last
// byte padded with zero; returned ready to be stored (network order).
uint16_t WireChecksum(const uint8_t* data, size_t length);

// Stores in icmp's checksum field the checksum of its first over bytes.
void StoreChecksum(std::vector<uint8_t>& icmp, size_t over);

// The identifier a ping from this process carries.
uint16_t OwnIcmpIdentifier();

// An echo request with id and sequence as given (host order, as the ping
// sends them) and dataBytes zero bytes of data, its checksum right.
std::vector<uint8_t> EchoRequest(uint16_t id, uint16_t sequence, size_t dataBytes);

// How the peer answers one echo request.
enum class PingAnswer {
  kNone,             // not at all
  kGood,             // a proper reply
  kOtherId,          // a reply with another identifier
  kUnreachable,      // a destination-unreachable message instead
  kShort,            // a proper reply a byte short
  kBadChecksum,      // a reply whose checksum is off
  kOddByte,          // a reply whose odd last data byte is 0x5A, checksum right
  kOddByteUnsummed,  // the same, with the checksum taken without that byte
  kForeignThenGood,  // another process's reply, then the proper one
};

// An echo request as the peer saw it.
struct PingRequest {
  int ttl;
  int type;
  int code;
  uint16_t id;
  uint16_t sequence;
  size_t icmpLength;
  bool checksumRight;
};

// Answers echo requests in a namespace from a raw socket, one answer of the
// script per request and afterScript past its end, each after delayMs.
class PingResponder {
public:
  PingResponder(const NetNamespace& where, std::vector<PingAnswer> script, int delayMs = 0,
                PingAnswer afterScript = PingAnswer::kNone);
  ~PingResponder();
  PingResponder(const PingResponder&) = delete;
  PingResponder& operator=(const PingResponder&) = delete;

  // Whether the raw socket is open and listening.
  bool Ok() const { return m_ok; }
  void Stop();
  // What came in; read after Stop.
  const std::vector<PingRequest>& Requests() const { return m_requests; }

private:
  void Run(const NetNamespace& where, std::atomic<int>& ready);

  std::vector<PingAnswer> m_script;
  int m_delayMs;
  PingAnswer m_afterScript;
  std::thread m_thread;
  std::atomic<bool> m_stop{false};
  bool m_ok = false;
  std::vector<PingRequest> m_requests;
};

// The two namespaces over their veth pair.
struct PingPeerNet {
  static constexpr const char* kPingerAddress = "10.77.0.1";
  static constexpr const char* kPeerAddress = "10.77.0.2";

  NetNamespace pinger{"ping"};
  NetNamespace peer{"peer"};

  // Wires and addresses both ends and turns the peer's kernel echo off;
  // false when any step fails.
  bool Build();
};

}  // namespace zotest

#endif  // ZONET_TESTS_PINGPEER_H
