// CZoPing against real peers: the loopback adapter of a namespace the test
// makes, and a peer in a second namespace over a veth pair whose kernel echo
// is switched off, so that the test answers each request itself from a raw
// socket, as it likes (late, with another identifier or type, a byte short,
// with a wrong checksum, or not at all). Needs root; without it the tests
// skip and say why.
#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/capability.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoPing.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "flat/FlatInternal.h"
#include "objects/ObjectsInternal.h"
#include "support/HostsNamespace.h"
#include "support/NetNamespace.h"
#include "support/PingPeer.h"
#include "support/TestSupport.h"

namespace {

const char* const kPeerAddress = zotest::PingPeerNet::kPeerAddress;
// On the peer's link, owned by nobody: its neighbour never resolves.
const char* const kNobodyAddress = "10.77.0.9";
const unsigned kData = 56;

#define REQUIRE_PING_PEERS()                                                                   \
  do {                                                                                         \
    if (!zotest::CanOpenRawSockets()) GTEST_SKIP() << "raw sockets need root or CAP_NET_RAW"; \
    ZOTEST_REQUIRE_NET_NAMESPACES();                                                           \
  } while (0)

using zotest::WireChecksum;
using Answer = zotest::PingAnswer;
using Request = zotest::PingRequest;
using Responder = zotest::PingResponder;
using PeerNet = zotest::PingPeerNet;

// A namespace with only its loopback adapter, up: 127.0.0.1 answered by the
// kernel, and nobody else's ICMP in sight.
struct LoopNet {
  zotest::NetNamespace pinger{"loop"};
  bool Build() { return pinger.Ok() && pinger.Ip("link set lo up") == 0; }
};

// ---------------------------------------------------------------- the caller

struct Seen {
  void* context;
  _ZoPingResponse response;
  bool last;
};

class Recorder : public CZoPingCallback {
public:
  bool OnPingResponse(void* context, _ZoPingResponse& response, bool last) override {
    seen.push_back({context, response, last});
    return stopAfter == 0 || seen.size() < stopAfter;
  }
  void OnPingLog(const char* text) override {
    logs.push_back(text);
    logsBeforeFirstResponse += seen.empty() ? 1 : 0;
  }

  size_t stopAfter = 0;
  std::vector<Seen> seen;
  std::vector<std::string> logs;
  int logsBeforeFirstResponse = 0;
};

std::vector<unsigned> Statuses(const Recorder& recorder) {
  std::vector<unsigned> statuses;
  for (const Seen& s : recorder.seen) statuses.push_back(s.response.status);
  return statuses;
}

// The entry at index of error's chain ("" past its end).
std::string Entry(const CZoError& error, size_t index) {
  return index < error.GetItemCount() ? error.GetItem(index)->AsString() : std::string();
}

bool StartsWith(const std::string& text, const std::string& start) { return text.compare(0, start.size(), start) == 0; }

// The ping's socket is looked at and used from the test's own thread while
// the ping runs on another, with nothing ordering the two but time. These go
// to the kernel directly, past the thread sanitizer's descriptor tracking,
// which would call that a race with the socket's creation.
int PeekSockOpt(int fd, int level, int name, void* value, socklen_t* length) {
  return static_cast<int>(syscall(SYS_getsockopt, fd, level, name, value, length));
}
int PokeSockOpt(int fd, int level, int name, const void* value, socklen_t length) {
  return static_cast<int>(syscall(SYS_setsockopt, fd, level, name, value, length));
}
long PokeSendTo(int fd, const void* data, size_t length, int flags, const sockaddr_in& to) {
  return syscall(SYS_sendto, fd, data, length, flags, &to, sizeof to);
}
int PeekFlags(int fd) { return static_cast<int>(syscall(SYS_fcntl, fd, F_GETFL)); }

// The descriptors of raw ICMP sockets open in this process.
std::set<int> RawIcmpSockets() {
  std::set<int> found;
  for (int fd : zotest::OpenDescriptors()) {
    int type = 0, protocol = 0;
    socklen_t length = sizeof type;
    if (PeekSockOpt(fd, SOL_SOCKET, SO_TYPE, &type, &length) != 0 || type != SOCK_RAW) continue;
    length = sizeof protocol;
    if (PeekSockOpt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &length) != 0 || protocol != IPPROTO_ICMP) continue;
    found.insert(fd);
  }
  return found;
}

// Waits up to a second for a raw ICMP socket that is not among before; -1
// when none comes.
int WaitForNewRawSocket(const std::set<int>& before) {
  for (int i = 0; i < 200; ++i) {
    for (int fd : RawIcmpSockets())
      if (before.count(fd) == 0) return fd;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return -1;
}

// ---------------------------------------------------------------- the tests' networks

// A test in a network of its own (LoopNet or PeerNet), made before the test
// runs and skipped, with the reason, where it cannot be. The test pings from
// the network's pinging namespace into result and error, the callbacks going
// to recorder.
template <typename Net>
class PingIn : public ::testing::Test {
protected:
  void SetUp() override {
    REQUIRE_PING_PEERS();
    net.emplace();
    ASSERT_TRUE(net->Build());
  }

  // One call of a fresh CZoPing, made on a thread inside the pinger's namespace.
  void Ping(const char* host, unsigned data, unsigned count, unsigned timeout = 1, void* context = nullptr) {
    Call(host, data, count, timeout, context, &recorder);
  }
  // The same without a callback object.
  void PingWithoutCallback(const char* host, unsigned data, unsigned count) {
    Call(host, data, count, 1, nullptr, nullptr);
  }

  zotest::FdLeakCheck leaks;
  std::optional<Net> net;
  Recorder recorder;
  _ZoPingResult result;
  CZoError error = CZoError::Success();

private:
  void Call(const char* host, unsigned data, unsigned count, unsigned timeout, void* context,
            CZoPingCallback* callback) {
    net->pinger.Run([&] {
      CZoPing ping;
      error = ping.ping(host, data, count, timeout, context, callback, result, false);
    });
  }
};

class PingLoopback : public PingIn<LoopNet> {};

class PingScriptedPeer : public PingIn<PeerNet> {
protected:
  // Pings the peer count times while it answers by script, each answer after
  // delayMs; what it saw goes to requests. False, with nothing sent, when the
  // peer cannot listen.
  bool PingThePeer(std::vector<Answer> script, unsigned data, unsigned count, int delayMs = 0) {
    Responder peer(net->peer, std::move(script), delayMs);
    if (!peer.Ok()) return false;
    Ping(kPeerAddress, data, count);
    peer.Stop();
    requests = peer.Requests();
    return true;
  }

  std::vector<Request> requests;
};

}  // namespace

// ================================================================ checksum

TEST(PingChecksum, IsTheInternetChecksumWithTheOddByteAddedAsItIs) {
  // RFC 1071's own example: the checksum field, as stored, reads 22 0d.
  const uint8_t example[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  const unsigned short sum = zonet_internal::PingChecksum(example, sizeof example);
  uint8_t stored[2];
  std::memcpy(stored, &sum, 2);
  EXPECT_EQ(0x22, stored[0]);
  EXPECT_EQ(0x0d, stored[1]);
  // Every length, odd ones included, agrees with the wire's checksum, and the
  // last odd byte counts.
  uint8_t bytes[41];
  for (size_t i = 0; i < sizeof bytes; ++i) bytes[i] = static_cast<uint8_t>(i * 37 + 11);
  for (int length = 0; length <= static_cast<int>(sizeof bytes); ++length) {
    const unsigned short ours = zonet_internal::PingChecksum(bytes, length);
    EXPECT_EQ(WireChecksum(bytes, static_cast<size_t>(length)), ours) << length;
  }
  const uint8_t nine[9] = {8, 0, 0, 0, 1, 2, 3, 4, 0x5a};
  EXPECT_NE(zonet_internal::PingChecksum(nine, 9), zonet_internal::PingChecksum(nine, 8));
}

// ================================================================ arguments

TEST(Ping, Ipv6IsRefusedBeforeAnyFieldIsStored) {
  zotest::FdLeakCheck leaks;
  CZoPing ping;
  Recorder recorder;
  _ZoPingResult result;
  result.sent = 7;
  // Every other argument is bad too: the family is looked at first.
  CZoError error = ping.ping("::1", 0, 0, 1, &recorder, &recorder, result, true);
  ASSERT_TRUE(error.IsError());
  EXPECT_EQ(FXErrorUtil::ErrorXNResult(FXLOC("x"), 2, "x").GetErrorCode(), error.GetErrorCode());
  EXPECT_TRUE(StartsWith(Entry(error, 0), "CZoPing::ping: IPV6 is not supported currently (")) << Entry(error, 0);
  EXPECT_EQ(1u, error.GetItemCount());
  EXPECT_TRUE(recorder.logs.empty());
  EXPECT_TRUE(recorder.seen.empty());
  EXPECT_EQ("", result.server);
  EXPECT_EQ(7u, result.sent);
  EXPECT_TRUE(RawIcmpSockets().empty());
}

TEST(Ping, BufferSizeIsCheckedBeforeCount) {
  zotest::FdLeakCheck leaks;
  CZoPing ping;
  _ZoPingResult result;
  const long invalid = FXErrorUtil::ErrorXNResult(FXLOC("x"), 3, "x").GetErrorCode();
  CZoError error = ping.ping("127.0.0.1", 0, 0, 1, nullptr, nullptr, result, false);
  EXPECT_EQ(invalid, error.GetErrorCode());
  EXPECT_TRUE(StartsWith(Entry(error, 0), "CZoPing::ping: Invalid buffer size (0) (")) << Entry(error, 0);
  error = ping.ping("127.0.0.1", 56, 0, 1, nullptr, nullptr, result, false);
  EXPECT_EQ(invalid, error.GetErrorCode());
  EXPECT_TRUE(StartsWith(Entry(error, 0), "CZoPing::ping: Invalid buffer count (0) (")) << Entry(error, 0);
  // A size whose buffers the socket calls could not be told is refused the
  // same way, before anything is allocated or opened.
  error = ping.ping("127.0.0.1", 0xffffffffu, 1, 1, nullptr, nullptr, result, false);
  EXPECT_TRUE(StartsWith(Entry(error, 0), "CZoPing::ping: Invalid buffer size (4294967295) (")) << Entry(error, 0);
  EXPECT_EQ(0u, result.sent);
  EXPECT_EQ("", result.server);
}

TEST(Ping, WithoutRawSocketPermissionTheSocketCreationFails) {
  // A child process without CAP_NET_RAW in its effective set, root or not.
  fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    if (syscall(SYS_capget, &header, data) != 0) _exit(10);
    data[CAP_NET_RAW / 32].effective &= ~(1u << (CAP_NET_RAW % 32));
    if (syscall(SYS_capset, &header, data) != 0) _exit(11);
    CZoPing ping;
    _ZoPingResult result;
    CZoError error = ping.ping("127.0.0.1", 56, 1, 1, nullptr, nullptr, result, false);
    if (!error.Is(EPERM)) _exit(12);
    if (!StartsWith(Entry(error, 0), "CZoSocket::ICMPSocket (")) _exit(13);
    if (Entry(error, 1) != "CZoPing::preparePingSocket: ICMP-Socket creation [127.0.0.1] failed.") _exit(14);
    if (Entry(error, 2) != "CZoPing::ping: prepare socket failed [127.0.0.1]") _exit(15);
    if (result.sent != 0 || !result.server.empty()) _exit(16);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status)) << "10/11 capabilities, 12 code, 13-15 chain, 16 record";
}

TEST(Ping, AnUnknownNameFailsWithTheResolversCodeAndTheChain) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  const int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n", [] {
    CZoPing ping;
    _ZoPingResult result;
    CZoError error = ping.ping("no-such-host.test", 56, 1, 1, nullptr, nullptr, result, false);
    ZOTEST_CHILD_CHECK(error.Is(ZONET_ERR_HOST_NOT_FOUND));
    ZOTEST_CHILD_CHECK(error.GetItemCount() == 3);
    ZOTEST_CHILD_CHECK(StartsWith(Entry(error, 0), "CZoIPAddr::GetByName"));
    ZOTEST_CHILD_CHECK(
        Entry(error, 1) == "CZoPing::preparePingSocket: Get by name [no-such-host.test] failed");
    ZOTEST_CHILD_CHECK(Entry(error, 2) == "CZoPing::ping: prepare socket failed [no-such-host.test]");
    ZOTEST_CHILD_CHECK(result.server.empty() && result.sent == 0);
    return 0;
  });
  EXPECT_EQ(0, status);
}

TEST(Ping, ANullHostFailsWithAClearError) {
  zotest::FdLeakCheck leaks;
  CZoPing ping;
  _ZoPingResult result;
  CZoError error = ping.ping(nullptr, 56, 1, 1, nullptr, nullptr, result, false);
  EXPECT_TRUE(error.Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_TRUE(Entry(error, 1) == "CZoPing::preparePingSocket: Get by name [(null)] failed") << error.AsString();
  EXPECT_TRUE(Entry(error, 2) == "CZoPing::ping: prepare socket failed [(null)]") << error.AsString();
}

// ================================================================ loopback

TEST_F(PingLoopback, ThreeWithoutACallback) {
  const auto start = std::chrono::steady_clock::now();
  PingWithoutCallback("127.0.0.1", kData, 3);
  const auto took = std::chrono::steady_clock::now() - start;
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ("127.0.0.1", result.server);
  EXPECT_EQ("127.0.0.1", result.ipAddress);
  EXPECT_EQ(3u, result.sent);
  // The socket reads no echo request, its own included, so every attempt
  // finds the kernel's reply.
  EXPECT_EQ(3u, result.received);
  EXPECT_EQ(0u, result.timedOut + result.unexpected + result.tooShort + result.badChecksum);
  EXPECT_LT(result.totalTime, 300u);
  // A second before every attempt, the first included.
  EXPECT_GE(took, std::chrono::milliseconds(3000));
}

TEST_F(PingLoopback, TheCallbackHearsEveryAttemptInOrderAndTheLastOneLast) {
  int context = 0;
  Ping("127.0.0.1", 100, 3, 1, &context);
  ASSERT_FALSE(error.IsError()) << error.AsString();
  ASSERT_EQ(1u, recorder.logs.size());
  EXPECT_EQ("ZoPing: [server - 127.0.0.1] [IP - 127.0.0.1]", recorder.logs[0]);
  EXPECT_EQ(1, recorder.logsBeforeFirstResponse);
  ASSERT_EQ(3u, recorder.seen.size());
  for (unsigned i = 0; i < 3; ++i) {
    const Seen& s = recorder.seen[i];
    EXPECT_EQ(&context, s.context);
    EXPECT_EQ(i + 1, s.response.sequence);
    EXPECT_EQ(3u, s.response.count);
    EXPECT_EQ(0u, s.response.status);
    EXPECT_EQ(100u, s.response.bytes);
    EXPECT_EQ(64u, s.response.ttl) << "the kernel answers with its default time-to-live";
    EXPECT_EQ("127.0.0.1", s.response.server);
    EXPECT_EQ("127.0.0.1", s.response.ipAddress);
    EXPECT_EQ(i == 2, s.last) << i;
  }
  EXPECT_EQ(recorder.seen[0].response.time + recorder.seen[1].response.time + recorder.seen[2].response.time,
            result.totalTime);
}

TEST_F(PingLoopback, ACallbackThatSaysStopEndsTheCallWithSuccess) {
  recorder.stopAfter = 1;
  const auto start = std::chrono::steady_clock::now();
  Ping("127.0.0.1", kData, 3);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1900));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(1u, result.sent);
  EXPECT_EQ(1u, recorder.seen.size());
  EXPECT_FALSE(recorder.seen[0].last);
}

TEST_F(PingLoopback, ASecondPingOnOneObjectFailsAsTheSocketIsInUse) {
  CZoError second = CZoError::Success();
  net->pinger.Run([&] {
    CZoPing ping;
    error = ping.ping("127.0.0.1", kData, 1, 1, nullptr, nullptr, result, false);
    second = ping.ping("127.0.0.1", kData, 1, 1, nullptr, nullptr, result, false);
  });
  ASSERT_FALSE(error.IsError()) << error.AsString();
  ASSERT_TRUE(second.Is(ZONET_ERR_INVALID_STATE)) << second.AsString();
  ASSERT_EQ(3u, second.GetItemCount()) << second.AsString();
  EXPECT_TRUE(StartsWith(Entry(second, 0), "CZoSocket::ICMPSocket: Socket already in use (")) << Entry(second, 0);
  EXPECT_TRUE(Entry(second, 1) == "CZoPing::preparePingSocket: ICMP-Socket creation [127.0.0.1] failed.")
      << Entry(second, 1);
  EXPECT_TRUE(Entry(second, 2) == "CZoPing::ping: prepare socket failed [127.0.0.1]") << Entry(second, 2);
  EXPECT_EQ(1u, result.sent);
}

TEST_F(PingLoopback, ALocalSocketPathAsHostFailsAtTheFirstSend) {
  // A text with a slash is a local address to the address object, which an
  // ICMP socket cannot send to.
  PingWithoutCallback("/tmp/zo-ping.sock", kData, 2);
  ASSERT_TRUE(error.IsError());
  const size_t n = error.GetItemCount();
  ASSERT_GE(n, 3u) << error.AsString();
  EXPECT_EQ("CZoPing::sendPingRequest: Sending ping request failed", Entry(error, n - 2)) << error.AsString();
  EXPECT_EQ("CZoPing::ping: Sending ping request failed", Entry(error, n - 1)) << error.AsString();
  EXPECT_EQ("/tmp/zo-ping.sock", result.server);
  EXPECT_EQ(0u, result.sent);
}

namespace {

// Counts look-ups that are not numeric-only, in front of the real resolver.
std::atomic<int> g_nameLookups{0};

int CountingGetAddrInfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
  if (hints == nullptr || (hints->ai_flags & AI_NUMERICHOST) == 0) ++g_nameLookups;
  return getaddrinfo(node, service, hints, result);
}

void* CountingLookup(const char* name) {
  if (std::strcmp(name, "getaddrinfo") == 0) return reinterpret_cast<void*>(&CountingGetAddrInfo);
  return dlsym(RTLD_DEFAULT, name);
}

}  // namespace

TEST_F(PingLoopback, ANumericHostNeverReachesTheResolver) {
  zonet_internal::SetResolverLookup(CountingLookup);
  zonet_internal::ResetResolverBinding();
  g_nameLookups = 0;
  Recorder numeric, named;
  _ZoPingResult numericResult, namedResult;
  CZoError numericError = CZoError::Success();
  CZoError namedError = CZoError::Success();
  int afterNumeric = -1;
  net->pinger.Run([&] {
    CZoPing a;
    numericError = a.ping("127.0.0.1", kData, 1, 1, nullptr, &numeric, numericResult, false);
    afterNumeric = g_nameLookups;
    // The counter does see a name.
    CZoPing b;
    namedError = b.ping("localhost", kData, 1, 1, nullptr, &named, namedResult, false);
  });
  const int afterName = g_nameLookups;
  zonet_internal::SetResolverLookup(nullptr);
  zonet_internal::ResetResolverBinding();
  ASSERT_FALSE(numericError.IsError()) << numericError.AsString();
  EXPECT_EQ(0, afterNumeric);
  EXPECT_EQ(1u, numericResult.received);
  ASSERT_FALSE(namedError.IsError()) << namedError.AsString();
  EXPECT_GE(afterName, 1);
  EXPECT_EQ("localhost", namedResult.server);
  EXPECT_EQ("127.0.0.1", namedResult.ipAddress);
  ASSERT_EQ(1u, named.logs.size());
  EXPECT_EQ("ZoPing: [server - localhost] [IP - 127.0.0.1]", named.logs[0]);
  EXPECT_EQ(1u, namedResult.received);
}

// ================================================================ a scripted peer

TEST_F(PingScriptedPeer, TheRequestOnTheWire) {
  ASSERT_TRUE(PingThePeer({Answer::kGood, Answer::kGood}, kData, 2));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(2u, result.received);
  ASSERT_EQ(2u, requests.size());
  for (size_t i = 0; i < 2; ++i) {
    const Request& r = requests[i];
    EXPECT_EQ(128, r.ttl);
    EXPECT_EQ(8, r.type);
    EXPECT_EQ(0, r.code);
    // Identifier and sequence in the machine's own order.
    EXPECT_EQ(zotest::OwnIcmpIdentifier(), r.id);
    EXPECT_EQ(i, r.sequence);
    EXPECT_EQ(8 + kData, r.icmpLength);
    EXPECT_TRUE(r.checksumRight);
  }
  // The peer answers with its own time-to-live.
  EXPECT_EQ(64u, recorder.seen[1].response.ttl);
}

TEST_F(PingScriptedPeer, OneDataByteMakesANineBytePacketWhoseOddByteIsSummed) {
  // The replies carry 0x5A in the odd byte: summed right, then summed without it.
  ASSERT_TRUE(PingThePeer({Answer::kOddByte, Answer::kOddByteUnsummed}, 1, 2));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  ASSERT_EQ(2u, requests.size());
  EXPECT_EQ(9u, requests[0].icmpLength);
  EXPECT_TRUE(requests[0].checksumRight);
  EXPECT_EQ((std::vector<unsigned>{0, 3}), Statuses(recorder));
  EXPECT_EQ(1u, recorder.seen[0].response.bytes);
  EXPECT_EQ(1u, result.received);
  EXPECT_EQ(1u, result.badChecksum);
}

TEST_F(PingScriptedPeer, APeerThatNeverAnswersTimesOutEveryAttempt) {
  ASSERT_TRUE(PingThePeer({}, kData, 2));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(2u, requests.size());
  EXPECT_EQ(2u, result.sent);
  EXPECT_EQ(2u, result.timedOut);
  EXPECT_EQ(0u, result.received);
  EXPECT_EQ((std::vector<unsigned>{1, 1}), Statuses(recorder));
  for (const Seen& s : recorder.seen) {
    // One second on a whole-second clock: more than one second, less than three.
    EXPECT_GE(s.response.time, 1000u);
    EXPECT_LT(s.response.time, 3100u);
    EXPECT_EQ(0u, s.response.bytes);
    EXPECT_EQ(0u, s.response.ttl);
  }
  EXPECT_EQ(recorder.seen[0].response.time + recorder.seen[1].response.time, result.totalTime);
}

TEST_F(PingScriptedPeer, ALateReplyTakesAtLeastItsDelay) {
  ASSERT_TRUE(PingThePeer({Answer::kGood}, kData, 1, 300));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  ASSERT_EQ(1u, recorder.seen.size());
  EXPECT_EQ(0u, recorder.seen[0].response.status);
  EXPECT_GE(recorder.seen[0].response.time, 300u);
  EXPECT_LT(recorder.seen[0].response.time, 1000u);
  EXPECT_EQ(recorder.seen[0].response.time, result.totalTime);
  EXPECT_TRUE(recorder.seen[0].last);
}

TEST_F(PingScriptedPeer, MisbehavingRepliesEachUseUpTheirAttempt) {
  // 1: another process's reply, then ours, which waits for attempt 2 (no
  // answer of its own): sequences are never compared. 3: destination
  // unreachable. 4: a byte short. 5: a wrong checksum.
  ASSERT_TRUE(PingThePeer(
      {Answer::kForeignThenGood, Answer::kNone, Answer::kUnreachable, Answer::kShort, Answer::kBadChecksum}, kData, 5));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(5u, requests.size());
  EXPECT_EQ((std::vector<unsigned>{4, 0, 4, 2, 3}), Statuses(recorder));
  EXPECT_EQ(5u, result.sent);
  EXPECT_EQ(1u, result.received);
  EXPECT_EQ(2u, result.unexpected);
  EXPECT_EQ(1u, result.tooShort);
  EXPECT_EQ(1u, result.badChecksum);
  EXPECT_EQ(0u, result.timedOut);
  ASSERT_EQ(5u, recorder.seen.size());
  // Before the first good reply bytes and ttl are 0; after it, they keep its
  // values through the failed attempts.
  EXPECT_EQ(0u, recorder.seen[0].response.bytes);
  EXPECT_EQ(0u, recorder.seen[0].response.ttl);
  for (size_t i = 1; i < 5; ++i) {
    EXPECT_EQ(kData, recorder.seen[i].response.bytes) << i;
    EXPECT_EQ(64u, recorder.seen[i].response.ttl) << i;
  }
  // Bad replies come at once: no attempt waited for a time-out.
  for (const Seen& s : recorder.seen) EXPECT_LT(s.response.time, 900u);
}

TEST_F(PingScriptedPeer, AReusedRecordGoesOnCounting) {
  result.sent = 1;
  result.received = 1;
  result.totalTime = 5;
  ASSERT_TRUE(PingThePeer({Answer::kGood, Answer::kGood}, kData, 2));
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(3u, result.sent);
  EXPECT_EQ(3u, result.received);
  ASSERT_EQ(2u, recorder.seen.size());
  EXPECT_EQ(2u, recorder.seen[0].response.sequence);
  EXPECT_EQ(3u, recorder.seen[1].response.sequence);
  // "last" is sent == count: true at the first attempt here, never after.
  EXPECT_TRUE(recorder.seen[0].last);
  EXPECT_FALSE(recorder.seen[1].last);
  EXPECT_EQ(5u + recorder.seen[0].response.time + recorder.seen[1].response.time, result.totalTime);
  // On the wire the sequence is the record's count before the attempt.
  ASSERT_EQ(2u, requests.size());
  EXPECT_EQ(1u, requests[0].sequence);
  EXPECT_EQ(2u, requests[1].sequence);
}

TEST_F(PingScriptedPeer, WithoutATimeOutTheSocketBlocksForALateReply) {
  // Later than a one-second time-out would ever wait on the whole-second clock.
  Responder peer(net->peer, {Answer::kGood}, 3200);
  ASSERT_TRUE(peer.Ok());
  const std::set<int> before = RawIcmpSockets();
  std::thread pinging([&] { Ping(kPeerAddress, kData, 1, 0); });
  const int fd = WaitForNewRawSocket(before);
  int flags = fd >= 0 ? PeekFlags(fd) : -1;
  pinging.join();
  peer.Stop();
  ASSERT_GE(fd, 0) << "the ping's socket was not seen";
  EXPECT_EQ(0, flags & O_NONBLOCK) << "a ping without a time-out keeps its socket blocking";
  ASSERT_FALSE(error.IsError()) << error.AsString();
  ASSERT_EQ(1u, recorder.seen.size());
  EXPECT_EQ(0u, recorder.seen[0].response.status);
  EXPECT_GE(recorder.seen[0].response.time, 3200u);
}

TEST_F(PingScriptedPeer, ASendTimeOutLeavesTheReceiveStampAtTheEpoch) {
  // Packets to an address nobody owns wait in the neighbour queue while its
  // resolution is tried, holding the socket's send room; make that last.
  ASSERT_EQ(0, net->pinger.Exec("sysctl -q -w net.ipv4.neigh.va.mcast_solicit=30"));
  const std::set<int> before = RawIcmpSockets();
  std::thread pinging([&] { Ping(kNobodyAddress, kData, 1); });
  // While the ping sleeps its first second, fill its socket's send room.
  const int fd = WaitForNewRawSocket(before);
  int queued = 0;
  int flags = -1;
  if (fd >= 0) {
    int small = 1;
    PokeSockOpt(fd, SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    sockaddr_in nobody = {};
    nobody.sin_family = AF_INET;
    inet_pton(AF_INET, kNobodyAddress, &nobody.sin_addr);
    const std::vector<uint8_t> echo = zotest::EchoRequest(0, 0, kData);
    while (queued < 1000 && PokeSendTo(fd, echo.data(), echo.size(), MSG_DONTWAIT, nobody) > 0) ++queued;
    flags = PeekFlags(fd);
  }
  pinging.join();
  ASSERT_GE(fd, 0) << "the ping's socket was not seen";
  EXPECT_NE(0, flags & O_NONBLOCK) << "a ping with a time-out makes its socket non-blocking";
  ASSERT_GT(queued, 0);
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_EQ(1u, result.sent);
  EXPECT_EQ(1u, result.timedOut);
  ASSERT_EQ(1u, recorder.seen.size());
  EXPECT_EQ(1u, recorder.seen[0].response.status);
  // Receive (the epoch) minus send: a negative number of milliseconds, about
  // minus the present, as an unsigned 64-bit value.
  const int64_t asSigned = static_cast<int64_t>(recorder.seen[0].response.time);
  const int64_t nowMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
  EXPECT_LT(asSigned, 0);
  EXPECT_NEAR(static_cast<double>(-nowMs), static_cast<double>(asSigned), 10000.0);
  EXPECT_EQ(recorder.seen[0].response.time, result.totalTime);
}
