/// @file
/// CZoPing: ICMP echo requests to one host over a raw socket, one at a time and
/// a second apart, each attempt reported to a callback and all of them counted
/// in the caller's record.
#ifndef ZONETWORK_ZOPING_H
#define ZONETWORK_ZOPING_H

#include <stdint.h>

#include <string>

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoNetwork/ZoSocket.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoString.h"
#include "ZoUtils/ZoTime.h"

/// The caller's record of one or more calls of CZoPing::ping. It belongs to
/// the caller and ping never clears it: a record given to a second call goes
/// on counting from where it stood. A default-constructed record starts at 0.
struct _ZoPingResult {
  /// The host text given to ping, set before the first attempt.
  std::string server;
  /// The numeric address that was pinged, set before the first attempt.
  std::string ipAddress;
  /// Attempts made: counted after each successful send, or send time-out.
  unsigned int sent = 0;
  /// Good replies (status 0).
  unsigned int received = 0;
  /// Replies whose checksum was wrong (status 3).
  unsigned int badChecksum = 0;
  /// Replies shorter than the request (status 2).
  unsigned int tooShort = 0;
  /// Attempts that timed out, sending or receiving (status 1).
  unsigned int timedOut = 0;
  /// Packets that were no reply to this process (status 4).
  unsigned int unexpected = 0;
  /// The sum of the time of every attempt, whatever its status, in
  /// milliseconds.
  uint64_t totalTime = 0;
};

/// One attempt, as handed to CZoPingCallback::OnPingResponse. ping builds one
/// record per call, with its numbers at 0, and reuses it for every attempt,
/// so bytes and ttl keep the values of the last good reply through later
/// failed attempts.
struct _ZoPingResponse {
  /// The host text given to ping.
  std::string server;
  /// The numeric address that was pinged.
  std::string ipAddress;
  /// The number of attempts asked for.
  unsigned int count = 0;
  /// The record's sent counter after this attempt was counted.
  unsigned int sequence = 0;
  /// Bytes of echo data in the reply; written on status 0 only.
  unsigned int bytes = 0;
  /// The time-to-live byte of the reply's IP header; written on status 0
  /// only.
  unsigned int ttl = 0;
  /// 0 good reply, 1 timed out (sending or receiving), 2 reply shorter than
  /// the request, 3 reply checksum wrong, 4 a packet that is no reply to this
  /// process (another ICMP type or another identifier).
  unsigned int status = 0;
  /// Milliseconds between the send and the receive stamps. After a send
  /// time-out the receive stamp is the epoch, and this is the difference
  /// all the same, a number near 2^64.
  uint64_t time = 0;
};

/// What a caller of CZoPing::ping implements to hear of every attempt and of
/// the log lines. Both run on the thread that called ping.
class ZONET_API CZoPingCallback {
public:
  /// Called after every attempt with the caller's context and the attempt.
  /// last is true when the record's sent counter equals the count asked for.
  /// Returning false stops the pings at once, which is no error.
  virtual bool OnPingResponse(void* context, _ZoPingResponse& response, bool last) = 0;
  /// Receives one formatted log line (at most 4095 characters).
  virtual void OnPingLog(const char* text) = 0;

protected:
  /// Not for deleting a callback through this class: ping never owns one.
  ~CZoPingCallback() = default;
};

/// ICMP echo to one host. An object serves one ping: the socket and buffers
/// it makes stay until the destructor, so a second ping on the same object
/// fails ("ICMP-Socket creation [%s] failed."). A raw socket needs root or
/// CAP_NET_RAW; without them ping fails with the system's EPERM. Not for use
/// by two threads at once.
class ZONET_API CZoPing {
public:
  /// No socket and no buffers yet.
  CZoPing();
  /// Copies every field, the socket handle and the buffer pointers included
  /// (nothing is duplicated): copy only an object that has not pinged yet.
  CZoPing(const CZoPing& other);
  /// As the copy constructor.
  CZoPing& operator=(const CZoPing& other);
  /// Closes the socket and frees the buffers.
  ~CZoPing();

  /// Sends count echo requests of bufferSize data bytes to host (a numeric
  /// IPv4 address or a name, which is resolved), one a second, the first
  /// after a second too, each waiting up to timeout whole seconds to send
  /// and to receive (0: the socket blocks, and a lost reply waits for ever).
  /// Each attempt goes to callback (which may be null) and into result.
  /// Lost and bad replies are not errors: the result is Success and result
  /// tells what happened. Errors: "IPV6 is not supported currently" (ipv6
  /// true, code 2 of the product's results), "Invalid buffer size (%u)" and
  /// "Invalid buffer count (%u)" (code 3), allocation failures (code 5),
  /// and failures of the resolver or the socket, with their own code and
  /// this call's texts pushed on top.
  CZoError ping(const char* host, unsigned int bufferSize, unsigned int count, unsigned int timeout, void* context,
                CZoPingCallback* callback, _ZoPingResult& result, bool ipv6);

private:
  CZoError preparePingSocket(const char* host, unsigned int timeout, bool ipv6);
  CZoError prepareBuffer();
  CZoError sendPingRequest(unsigned int sequence, bool& timedOut, CTimeStamp& sendTime);
  CZoError recvAndProcessPingResponse(_ZoPingResponse& response, _ZoPingResult& result, CTimeStamp& recvTime);
  unsigned short checksum(unsigned short* data, int size);
  CZoError closePingSocket();
  CZoError unprepareBuffer();
  void log(const char* format, ...) ZO_PRINTF_LIKE(2, 3);

  CZoSocket m_Socket;
  unsigned char* m_SendBuffer;
  unsigned char* m_RecvBuffer;
  unsigned short m_Identifier;
  unsigned int m_BufferSize;
  unsigned int m_SendSize;
  unsigned int m_RecvSize;
  unsigned int m_Count;
  unsigned int m_Timeout;
  void* m_Context;
  CZoPingCallback* m_Callback;
  bool m_IPv6;
  CZoString m_Server;
  CZoString m_IPAddress;
};

#endif  // ZONETWORK_ZOPING_H
