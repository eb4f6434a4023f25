// CZoPing: the echo packets are built and read here, the IP header of replies
// and the Internet checksum included; the socket work goes through CZoSocket.
#include "ZoNetwork/ZoPing.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "ZoNetwork/ZoIPAddr.h"
#include "objects/ObjectsInternal.h"
#include "objects/ObjectsPlatform.h"

namespace plat = zonet_platform;

namespace {

// The product's own result codes of ping's failures.
const int kResultNotSupported = 2;
const int kResultInvalidArgument = 3;
const int kResultNoMemory = 5;

// The echo header: type, code, checksum, identifier, sequence.
const unsigned int kEchoHeaderSize = 8;
// Room for the largest IP header and whatever ICMP message precedes the data,
// beside the data itself.
const unsigned int kRecvExtra = 1032;
const unsigned char kEchoRequest = 8;
const unsigned char kEchoReply = 0;
const int kTimeToLive = 128;
// Every attempt waits this long before it sends: it is what spaces them.
const unsigned long kAttemptSpacingMs = 1000;
const size_t kLogBufferSize = 4096;

// The largest data size whose buffers still have a size the socket calls can
// take (an int) once the header or the receive room is added.
const unsigned int kMaxBufferSize = static_cast<unsigned int>(INT_MAX) - kRecvExtra;

// Stores a 16-bit value in the machine's own order, as the wire format has it.
inline void PutHostWord(unsigned char* at, unsigned short value) { std::memcpy(at, &value, sizeof value); }

inline unsigned short GetHostWord(const unsigned char* at) {
  unsigned short value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// The header of an echo request, checksum 0.
void WriteEchoHeader(unsigned char* packet, unsigned short identifier, unsigned short sequence) {
  packet[0] = kEchoRequest;
  packet[1] = 0;
  PutHostWord(packet + 2, 0);
  PutHostWord(packet + 4, identifier);
  PutHostWord(packet + 6, sequence);
}

// Milliseconds of a stamp, in floating point.
inline double Milliseconds(const CTimeStamp& stamp) {
  const timespec t = stamp.AsTimeSpec();
  return static_cast<double>(t.tv_sec) * 1000.0 + static_cast<double>(t.tv_nsec) / 1e6;
}

// receive - send, cut to an unsigned 64-bit number. The difference is not
// guarded: after a send time-out the receive stamp is the epoch and the
// difference is negative. It is cut through a signed 64-bit integer so that
// a negative difference wraps as two's complement, which is defined, where
// a direct conversion of a negative double to an unsigned integer is not.
uint64_t ElapsedMs(const CTimeStamp& sendTime, const CTimeStamp& recvTime) {
  const double difference = Milliseconds(recvTime) - Milliseconds(sendTime);
  return static_cast<uint64_t>(static_cast<int64_t>(difference));
}

// The socket calls take their time-out as an int; a longer one is as good as
// the longest they can take.
inline int TimeoutSeconds(unsigned int timeout) {
  return timeout > static_cast<unsigned int>(INT_MAX) ? INT_MAX : static_cast<int>(timeout);
}

// printf's "%s" of a host that may be null.
inline const char* HostText(const char* host) { return host != nullptr ? host : "(null)"; }

}  // namespace

namespace zonet_internal {

// RFC 1071 over 16-bit words read in the machine's order; a last odd byte is
// added as it is, then the sum is folded twice and complemented.
unsigned short PingChecksum(const void* data, int size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(data);
  uint32_t sum = 0;
  while (size > 1) {
    sum += GetHostWord(bytes);
    bytes += 2;
    size -= 2;
  }
  if (size == 1) sum += *bytes;
  sum = (sum >> 16) + (sum & 0xffff);
  sum += sum >> 16;
  return static_cast<unsigned short>(~sum);
}

}  // namespace zonet_internal

// ---------------------------------------------------------------- life

CZoPing::CZoPing()
    : m_SendBuffer(nullptr),
      m_RecvBuffer(nullptr),
      m_Identifier(0),
      m_BufferSize(0),
      m_SendSize(0),
      m_RecvSize(0),
      m_Count(0),
      m_Timeout(0),
      m_Context(nullptr),
      m_Callback(nullptr),
      m_IPv6(false) {}

CZoPing::CZoPing(const CZoPing& other) = default;

CZoPing& CZoPing::operator=(const CZoPing& other) = default;

CZoPing::~CZoPing() {
  // Errors of either are of no use to anyone here.
  (void)closePingSocket();
  (void)unprepareBuffer();
}

// ---------------------------------------------------------------- ping

CZoError CZoPing::ping(const char* host, unsigned int bufferSize, unsigned int count, unsigned int timeout,
                       void* context, CZoPingCallback* callback, _ZoPingResult& result, bool ipv6) {
  if (ipv6) return FXErrorUtil::ErrorXNResult(FXLOC("CZoPing::ping"), kResultNotSupported, "IPV6 is not supported currently");
  // A size whose buffers could not be told to the socket calls is as invalid
  // as 0: the sizes would wrap.
  if (bufferSize == 0 || bufferSize > kMaxBufferSize)
    return FXErrorUtil::ErrorXNResult(FXLOC("CZoPing::ping"), kResultInvalidArgument, "Invalid buffer size (%u)",
                                      bufferSize);
  if (count == 0)
    return FXErrorUtil::ErrorXNResult(FXLOC("CZoPing::ping"), kResultInvalidArgument, "Invalid buffer count (%u)",
                                      count);

  m_BufferSize = bufferSize;
  m_Count = count;
  m_Timeout = timeout;
  m_Context = context;
  m_Callback = callback;
  m_IPv6 = ipv6;
  _ZoPingResponse response;

  CZoError error = preparePingSocket(host, timeout, ipv6);
  if (error.IsError()) return error.Push(FXLOC("CZoPing::ping"), "prepare socket failed [%s]", HostText(host));
  error = prepareBuffer();
  if (error.IsError()) return error.Push(FXLOC("CZoPing::ping"), "prepare buffer failed");

  result.ipAddress = m_IPAddress.c_str();
  result.server = m_Server.c_str();

  for (unsigned int attempt = 0; attempt < m_Count; ++attempt) {
    CTimeStamp sendTime;
    CTimeStamp recvTime;
    ZOSLEEP_InTeRnAl(kAttemptSpacingMs, __FILE__, __LINE__);

    bool timedOut = false;
    error = sendPingRequest(result.sent, timedOut, sendTime);
    if (error.IsError()) return error.Push(FXLOC("CZoPing::ping"), "Sending ping request failed");
    ++result.sent;

    if (timedOut) {
      response.status = 1;
      ++result.timedOut;
    } else {
      error = recvAndProcessPingResponse(response, result, recvTime);
      if (error.IsError()) return error.Push(FXLOC("CZoPing::ping"), "Receiving ping reply failed");
    }

    response.time = ElapsedMs(sendTime, recvTime);
    result.totalTime += response.time;

    response.ipAddress = m_IPAddress.c_str();
    response.server = m_Server.c_str();
    response.sequence = result.sent;
    response.count = m_Count;

    if (m_Callback != nullptr && !m_Callback->OnPingResponse(m_Context, response, result.sent == m_Count)) break;
  }
  return CZoError::Success();
}

// ---------------------------------------------------------------- preparation

CZoError CZoPing::preparePingSocket(const char* host, unsigned int timeout, bool ipv6) {
  const CZoIPAddr::IP_FAMILY family = ipv6 ? CZoIPAddr::IP_FAMILY_IPV6 : CZoIPAddr::IP_FAMILY_IPV4;
  CZoIPAddr addr;
  int ttl = kTimeToLive;
  const char* shown = HostText(host);

  // A numeric address never goes to the resolver.
  if (addr.SetAddressString(host).IsError()) {
    CZoError error = CZoIPAddr::GetByName(host, addr, family);
    if (error.IsError()) return error.Push(FXLOC("CZoPing::preparePingSocket"), "Get by name [%s] failed", shown);
  }

  CZoError error = addr.GetAddressString(m_IPAddress);
  if (error.IsError())
    return error.Push(FXLOC("CZoPing::preparePingSocket"), "Get IP-address string failed. [%s]", shown);

  log("ZoPing: [server - %s] [IP - %s]", shown, m_IPAddress.c_str());

  error = m_Socket.ICMPSocket(addr, family);
  if (error.IsError())
    return error.Push(FXLOC("CZoPing::preparePingSocket"), "ICMP-Socket creation [%s] failed.", shown);

  if (timeout != 0) {
    error = m_Socket.SetToNonBlocking();
    if (error.IsError())
      return error.Push(FXLOC("CZoPing::preparePingSocket"), "Setting non blocking mode failed [%s]", shown);
  }

  // IPPROTO_IP and IP_TTL by name: the option's number is the platform's.
  error = m_Socket.SetSockOpt(plat::PingIpLevel(), plat::PingTtlOption(), reinterpret_cast<char*>(&ttl),
                              static_cast<int>(sizeof ttl));
  if (error.IsError()) return error.Push(FXLOC("CZoPing::preparePingSocket"), "Setting socket-TTL failed. [%s]", shown);

  m_Server = host;
  return CZoError::Success();
}

CZoError CZoPing::prepareBuffer() {
  if (m_SendBuffer == nullptr) {
    m_SendSize = m_BufferSize + kEchoHeaderSize;
    // Cleared, so that no stale memory of the process goes out as echo data.
    m_SendBuffer = new (std::nothrow) unsigned char[m_SendSize]();
    if (m_SendBuffer == nullptr)
      return FXErrorUtil::ErrorXNResult(FXLOC("CZoPing::prepareBuffer"), kResultNoMemory,
                                        "Ping send-buffer allocation failed");
  }
  if (m_RecvBuffer == nullptr) {
    m_RecvSize = m_BufferSize + kRecvExtra;
    m_RecvBuffer = new (std::nothrow) unsigned char[m_RecvSize]();
    if (m_RecvBuffer == nullptr) {
      delete[] m_SendBuffer;
      m_SendBuffer = nullptr;
      return FXErrorUtil::ErrorXNResult(FXLOC("CZoPing::prepareBuffer"), kResultNoMemory,
                                        "Ping recv-buffer allocation failed");
    }
  }
  const FXProcess self(0, CTimeStamp(), nullptr, false);
  m_Identifier = static_cast<unsigned short>(self.getProcessId() & 0xffff);
  WriteEchoHeader(m_SendBuffer, m_Identifier, 0);
  return CZoError::Success();
}

// ---------------------------------------------------------------- one attempt

CZoError CZoPing::sendPingRequest(unsigned int sequence, bool& timedOut, CTimeStamp& sendTime) {
  WriteEchoHeader(m_SendBuffer, m_Identifier, static_cast<unsigned short>(sequence & 0xffff));
  // Stored as computed, without a byte swap: the words were read in the
  // machine's order, so the sum is in that order too.
  PutHostWord(m_SendBuffer + 2, checksum(reinterpret_cast<unsigned short*>(m_SendBuffer), static_cast<int>(m_SendSize)));

  int timedOutFlag = 0;
  int bytes = 0;
  sendTime = CTimeStamp::Now();
  CZoError error =
      m_Socket.SendtoICMPSocket(m_SendBuffer, static_cast<int>(m_SendSize), TimeoutSeconds(m_Timeout), &timedOutFlag, 0,
                                &bytes);
  if (timedOutFlag == 1) {
    // The socket's "Socket send timed out" is no failure of the ping.
    timedOut = true;
    return CZoError::Success();
  }
  if (error.IsError()) return error.Push(FXLOC("CZoPing::sendPingRequest"), "Sending ping request failed");
  return CZoError::Success();
}

CZoError CZoPing::recvAndProcessPingResponse(_ZoPingResponse& response, _ZoPingResult& result,
                                             CTimeStamp& recvTime) {
  int timedOutFlag = 0;
  int bytes = 0;
  CZoError error = m_Socket.RecvfromICMPSocket(m_RecvBuffer, static_cast<int>(m_RecvSize), TimeoutSeconds(m_Timeout),
                                               &timedOutFlag, 0, &bytes);
  recvTime = CTimeStamp::Now();
  if (timedOutFlag == 1) {
    response.status = 1;
    ++result.timedOut;
    return CZoError::Success();
  }
  if (error.IsError()) return error.Push(FXLOC("CZoPing::recvAndProcessPingResponse"), "Failed to receive ping request");

  // The IP header comes first; its length is in the low half of its first
  // byte, in 32-bit words. The receive buffer has room beyond the largest
  // header for the fields read below, whatever arrived.
  const unsigned int headerLength = 4u * (m_RecvBuffer[0] & 0x0f);
  unsigned char* icmp = m_RecvBuffer + headerLength;

  if (icmp[0] != kEchoReply || GetHostWord(icmp + 4) != m_Identifier) {
    response.status = 4;
    ++result.unexpected;
  } else if (static_cast<unsigned int>(bytes) < m_SendSize + headerLength) {
    response.status = 2;
    ++result.tooShort;
  } else {
    const unsigned short received = GetHostWord(icmp + 2);
    PutHostWord(icmp + 2, 0);
    if (checksum(reinterpret_cast<unsigned short*>(icmp), static_cast<int>(m_SendSize)) != received) {
      response.status = 3;
      ++result.badChecksum;
    } else {
      response.status = 0;
      response.bytes = m_BufferSize;
      response.ttl = m_RecvBuffer[8];
      ++result.received;
    }
  }
  return CZoError::Success();
}

unsigned short CZoPing::checksum(unsigned short* data, int size) { return zonet_internal::PingChecksum(data, size); }

// ---------------------------------------------------------------- release

CZoError CZoPing::closePingSocket() {
  m_Socket.Close();
  return CZoError::Success();
}

CZoError CZoPing::unprepareBuffer() {
  delete[] m_SendBuffer;
  m_SendBuffer = nullptr;
  delete[] m_RecvBuffer;
  m_RecvBuffer = nullptr;
  return CZoError::Success();
}

// ---------------------------------------------------------------- log

void CZoPing::log(const char* format, ...) {
  if (m_Callback == nullptr) return;
  char text[kLogBufferSize];
  std::memset(text, 0, sizeof text);
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  m_Callback->OnPingLog(text);
}
