// zonet ping: ICMP echo through CZoPing, a line per attempt and a summary in
// the style of the system's ping.
#include <cstdint>
#include <cstdio>
#include <string>

#include "ZoNetwork/ZoPing.h"
#include "commands.h"

namespace zonet {

namespace {

// The largest echo data an IPv4 datagram holds: 65535 less the IP and ICMP
// headers.
const long long kMaxData = 65507;

// Prints every attempt as it comes and keeps the round trips of good replies.
class Printer : public CZoPingCallback {
public:
  bool OnPingResponse(void* /*context*/, _ZoPingResponse& response, bool /*last*/) override {
    switch (response.status) {
      case 0:
        // As the system's ping counts it: the ICMP message, header included.
        std::printf("%u bytes from %s: icmp_seq=%u ttl=%u time=%llu ms\n", response.bytes + 8,
                    response.ipAddress.c_str(), response.sequence, response.ttl,
                    static_cast<unsigned long long>(response.time));
        if (m_good == 0 || response.time < m_min) m_min = response.time;
        if (m_good == 0 || response.time > m_max) m_max = response.time;
        m_sum += response.time;
        ++m_good;
        break;
      case 1:
        std::printf("Request timeout for icmp_seq %u\n", response.sequence);
        break;
      case 2:
        std::printf("icmp_seq=%u: reply too short\n", response.sequence);
        break;
      case 3:
        std::printf("icmp_seq=%u: reply with a wrong checksum\n", response.sequence);
        break;
      default:
        std::printf("icmp_seq=%u: a packet that is no reply to this ping (another type or identifier)\n",
                    response.sequence);
        break;
    }
    std::fflush(stdout);
    return true;
  }

  Printer(const std::string& host, unsigned long size) : m_host(host), m_size(size) {}

  // The library's one line comes once the host has its address: the header
  // then, and not for a name that never resolved. The attempts name the
  // address.
  void OnPingLog(const char* /*text*/) override {
    std::printf("PING %s: %lu data bytes\n", m_host.c_str(), m_size);
    std::fflush(stdout);
  }

  void PrintRoundTrips() const {
    if (m_good == 0) return;
    std::printf("rtt min/avg/max = %llu/%.3f/%llu ms\n", static_cast<unsigned long long>(m_min),
                static_cast<double>(m_sum) / static_cast<double>(m_good), static_cast<unsigned long long>(m_max));
  }

private:
  std::string m_host;
  unsigned long m_size;
  unsigned m_good = 0;
  uint64_t m_min = 0;
  uint64_t m_max = 0;
  uint64_t m_sum = 0;
};

int BadOption(const char* what, const std::string& value) {
  return UsageError("ping: invalid %s '%s'", what, value.c_str());
}

}  // namespace

int CmdPing(const Args& args) {
  std::string host;
  long long count = 4;
  long long size = 56;
  long long timeout = 1;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const bool hasValue = i + 1 < args.size();
    if (arg == "-c" && hasValue) {
      if (!ParseNumber(args[++i], 1, 1000000, count)) return BadOption("count", args[i]);
    } else if (arg == "-s" && hasValue) {
      if (!ParseNumber(args[++i], 1, kMaxData, size)) return BadOption("size", args[i]);
    } else if (arg == "-W" && hasValue) {
      if (!ParseNumber(args[++i], 0, 86400, timeout)) return BadOption("time-out", args[i]);
    } else if (!arg.empty() && arg[0] == '-') {
      return UsageError("ping: unknown option or missing value '%s'", arg.c_str());
    } else if (host.empty()) {
      host = arg;
    } else {
      return UsageError("ping: one host only ('%s' is a second)", arg.c_str());
    }
  }
  if (host.empty()) return UsageError("ping: a host is needed");

  Printer printer(host, static_cast<unsigned long>(size));
  _ZoPingResult result;
  CZoPing ping;
  CZoError error = ping.ping(host.c_str(), static_cast<unsigned>(size), static_cast<unsigned>(count),
                             static_cast<unsigned>(timeout), nullptr, &printer, result, false);
  if (error.IsError()) return Fail(error);

  const unsigned lost = result.sent - result.received;
  std::printf("\n--- %s ping statistics ---\n", host.c_str());
  std::printf("%u packets transmitted, %u received, %u%% packet loss, time %llums\n", result.sent, result.received,
              result.sent != 0 ? lost * 100 / result.sent : 0, static_cast<unsigned long long>(result.totalTime));
  if (result.timedOut + result.tooShort + result.badChecksum + result.unexpected != 0) {
    std::printf("%u timed out, %u too short, %u bad checksum, %u unexpected\n", result.timedOut, result.tooShort,
                result.badChecksum, result.unexpected);
  }
  printer.PrintRoundTrips();
  return 0;
}

}  // namespace zonet
