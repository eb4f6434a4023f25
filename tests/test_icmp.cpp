// Raw ICMP sockets: an echo request to the loopback address and its reply,
// through the ICMP send and receive calls. Needs root or CAP_NET_RAW.
#include <netinet/icmp6.h>
#include <netinet/ip.h>
#include <netinet/ip_icmp.h>
#include <unistd.h>

#include <cstring>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoNetSocket.h"
#include "sock_test_util.h"
#include "support/TestSupport.h"

namespace {

uint16_t Checksum(const void* data, size_t length) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < length; i += 2) sum += static_cast<uint32_t>(p[i] << 8 | p[i + 1]);
  if (length & 1) sum += static_cast<uint32_t>(p[length - 1] << 8);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return htons(static_cast<uint16_t>(~sum));
}

// The identifier of this process's probes.
uint16_t ProbeId() { return static_cast<uint16_t>(::getpid() & 0xffff); }

}  // namespace

TEST(Icmp, WithoutPermissionCreationFailsWithTheInvalidHandle) {
  if (zotest::CanOpenRawSockets()) GTEST_SKIP() << "this process may open raw sockets";
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s = 0;
  EXPECT_EQ(EPERM, ZONET_icmpsocket(ZONET_FAMILY_IPV4, &s));
  EXPECT_EQ(ZONET_INVALID_SOCKET, s);
}

// Where an echo reply to this process starts in what a raw socket read, or
// -1 when the packet is something else.
typedef int (*ReplyFinder)(const unsigned char* packet, int length);

int FindIpv4Reply(const unsigned char* packet, int length) {
  // IPv4 raw reads begin with the IP header.
  const int headerLength = static_cast<int>(reinterpret_cast<const iphdr*>(packet)->ihl) * 4;
  if (length < headerLength + static_cast<int>(sizeof(icmphdr))) return -1;
  const icmphdr* reply = reinterpret_cast<const icmphdr*>(packet + headerLength);
  return reply->type == ICMP_ECHOREPLY && reply->un.echo.id == ProbeId() ? headerLength : -1;
}

int FindIpv6Reply(const unsigned char* packet, int length) {
  if (length < static_cast<int>(sizeof(icmp6_hdr))) return -1;
  const icmp6_hdr* reply = reinterpret_cast<const icmp6_hdr*>(packet);
  return reply->icmp6_type == ICMP6_ECHO_REPLY && reply->icmp6_id == ProbeId() ? 0 : -1;
}

// Sends the echo request through the ICMP calls of family and reads until its
// reply: the socket sees every ICMP packet of the host (an IPv6 one our own
// request too; an IPv4 one no echo request). The reply's sender must be the
// loopback address.
void EchoRoundTrip(int family, int protocol, const ZONET_SockAddr& loopback, const unsigned char* request,
                   int requestLength, ReplyFinder find) {
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s;
  ASSERT_EQ(0, ZONET_icmpsocket(family, &s));
  int proto = 0, len = sizeof(proto);
  ASSERT_EQ(0, ZONET_getsockopt(s, SOL_SOCKET, SO_PROTOCOL, &proto, &len));
  EXPECT_EQ(protocol, proto);

  int sent = 0, timedOut = 7;
  ASSERT_EQ(0, ZONET_sendtoicmpsocket(s, &loopback, request, requestLength, &sent, 0, 2, &timedOut));
  EXPECT_EQ(requestLength, sent);
  EXPECT_EQ(0, timedOut);

  bool answered = false;
  for (int i = 0; i < 50 && !answered; ++i) {
    unsigned char buf[1500];
    ZONET_SockAddr from = loopback;
    std::memset(from.bytes + 2, 0, sizeof(from.bytes) - 2);
    int received = 0;
    ASSERT_EQ(0, ZONET_recvfromicmpsocket(s, &from, buf, sizeof(buf), &received, 0, 2, &timedOut));
    ASSERT_EQ(0, timedOut) << "no echo reply from the loopback address";
    const int start = find(buf, received);
    if (start < 0) continue;
    answered = true;
    // Identifier, sequence and payload come back as they went.
    ASSERT_EQ(requestLength, received - start);
    EXPECT_EQ(0, std::memcmp(buf + start + 4, request + 4, static_cast<size_t>(requestLength - 4)));
    EXPECT_EQ(family, from.family);
    char text[64] = "";
    ZONET_ip2str(&from, text, sizeof(text));
    char expected[64] = "";
    ZONET_ip2str(&loopback, expected, sizeof(expected));
    EXPECT_STREQ(expected, text);
  }
  EXPECT_TRUE(answered);
  ZONET_close(s);
}

TEST(Icmp, Ipv4SocketsAreMadeDeafToEchoRequestsOnly) {
  if (!zotest::CanOpenRawSockets()) GTEST_SKIP() << "raw sockets need root or CAP_NET_RAW";
  zotest::FdLeakCheck leaks;
  ZONET_SOCKET s;
  ASSERT_EQ(0, ZONET_icmpsocket(ZONET_FAMILY_IPV4, &s));
  // ICMP_FILTER of <linux/icmp.h> (SOL_RAW, option 1): a bit per blocked type.
  uint32_t blocked = 0;
  int length = sizeof(blocked);
  ASSERT_EQ(0, ZONET_getsockopt(s, SOL_RAW, 1, &blocked, &length));
  EXPECT_EQ(1u << ICMP_ECHO, blocked);
  ZONET_close(s);
}

TEST(Icmp, EchoToIpv4LoopbackIsAnswered) {
  if (!zotest::CanOpenRawSockets()) GTEST_SKIP() << "raw sockets need root or CAP_NET_RAW";
  unsigned char packet[sizeof(icmphdr) + 16] = {};
  icmphdr* request = reinterpret_cast<icmphdr*>(packet);
  request->type = ICMP_ECHO;
  request->un.echo.id = ProbeId();
  request->un.echo.sequence = 7;
  std::memcpy(packet + sizeof(icmphdr), "zonet echo probe", 16);
  request->checksum = Checksum(packet, sizeof(packet));
  EchoRoundTrip(ZONET_FAMILY_IPV4, IPPROTO_ICMP, socktest::Loopback4(), packet, sizeof(packet), FindIpv4Reply);
}

TEST(Icmp, EchoToIpv6LoopbackUsesIcmpv6AndTheWholeRecord) {
  if (!zotest::CanOpenRawSockets()) GTEST_SKIP() << "raw sockets need root or CAP_NET_RAW";
  if (!socktest::HasIpv6Loopback()) GTEST_SKIP() << "this host cannot bind ::1";
  // The kernel fills in the checksum of ICMPv6; the address goes out with
  // the whole record's length, 112.
  unsigned char packet[sizeof(icmp6_hdr) + 8] = {};
  icmp6_hdr* request = reinterpret_cast<icmp6_hdr*>(packet);
  request->icmp6_type = ICMP6_ECHO_REQUEST;
  request->icmp6_id = ProbeId();
  request->icmp6_seq = 9;
  std::memcpy(packet + sizeof(icmp6_hdr), "zonet v6", 8);
  EchoRoundTrip(ZONET_FAMILY_IPV6, IPPROTO_ICMPV6, socktest::Loopback6(), packet, sizeof(packet),
                FindIpv6Reply);
}
