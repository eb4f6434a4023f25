/// @file
/// CZoSocket: the object form of a socket, a handle and an address, with every
/// operation of the flat socket interface put behind state checks and CZoError
/// results. CZoSocketDescriptor is the thin wrapper of the handle inside it.
#ifndef ZONETWORK_ZOSOCKET_H
#define ZONETWORK_ZOSOCKET_H

#include <stdint.h>

#include <string>

#ifndef _WIN32
#include <netinet/in.h>
#endif

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoString.h"

/// A socket handle as a value. It never closes anything: not when it is
/// overwritten, not when it is destroyed.
class ZONET_API CZoSocketDescriptor {
public:
  /// The invalid handle (all ones).
  CZoSocketDescriptor();
  /// Wraps handle.
  CZoSocketDescriptor(uint64_t handle);  // NOLINT: a handle is taken wherever one is expected
  /// The same handle as other.
  CZoSocketDescriptor(const CZoSocketDescriptor& other);
  /// Does nothing; above all it does not close the handle.
  ~CZoSocketDescriptor();

  /// Takes other's handle; the old one is not closed.
  CZoSocketDescriptor& operator=(const CZoSocketDescriptor& other);

  /// The handle.
  operator uint64_t();  // NOLINT
  /// The handle.
  operator uint64_t() const;  // NOLINT
  /// The address of the handle, so that a flat function can fill it in place.
  uint64_t* operator&();

  /// True when the handle is less than all ones.
  bool IsValid() const;
  /// True when handle is less than all ones.
  static bool IsValid(uint64_t handle);

  /// The handle formatted with "0x%p": "0x" and 16 upper-case hexadecimal
  /// digits, e.g. "0x000000000000001A".
  std::string AsString() const;
  /// handle formatted as AsString() does.
  static std::string AsString(uint64_t handle);

private:
  uint64_t m_Handle;
};

/// A socket as a plain value. It does not own its handle: copies share it
/// without duplicating or counting it, the destructor never closes it, and only
/// Close() does, after which every other copy holds a dead handle. Keeping one
/// copy that closes is the caller's duty.
///
/// Every operation that needs an open handle checks it first. State errors are
/// ZONET_ERR_INVALID_STATE with a message ("Not a valid socket", "Socket
/// already in use", ...); a failure of the system carries the system's own
/// error number; every error is located at "CZoSocket::Method".
///
/// The object has no lock. Recv and Send are const and touch only the handle,
/// so one thread may receive while another sends on the same socket.
class ZONET_API CZoSocket {
public:
  /// An invalid handle and a cleared address.
  CZoSocket();
  /// The handle and the address, shared with other.
  CZoSocket(const CZoSocket& other);
  /// An invalid handle and that address; the same as the matching operator=.
  CZoSocket(const sockaddr_in& addr);   // NOLINT
  /// An invalid handle and that address.
  CZoSocket(const sockaddr_in6& addr);  // NOLINT
  /// An invalid handle and that address.
  CZoSocket(const CZoIPAddr& addr);     // NOLINT
  /// An invalid handle and the address parsed from addr (numeric or a path).
  CZoSocket(const char* addr);          // NOLINT
  /// Clears the object; the socket stays open.
  ~CZoSocket();

  /// Copies handle and address; the old handle is not closed.
  CZoSocket& operator=(const CZoSocket& other);
  /// The address becomes addr and the handle invalid, without a close: an open
  /// handle is left open and forgotten.
  CZoSocket& operator=(const sockaddr_in& addr);
  /// As operator=(const sockaddr_in&), for an IPv6 address.
  CZoSocket& operator=(const sockaddr_in6& addr);
  /// As operator=(const sockaddr_in&), for an address object.
  CZoSocket& operator=(const CZoIPAddr& addr);
  /// As operator=(const sockaddr_in&), for a numeric address or path.
  CZoSocket& operator=(const char* addr);

  /// False when other's handle is invalid, otherwise whether the handles are
  /// equal. So two invalid sockets are not equal, and are different.
  bool operator==(const CZoSocket& other) const;
  /// The negation of operator==.
  bool operator!=(const CZoSocket& other) const;
  /// False when other's handle is invalid, otherwise whether this handle is
  /// smaller. An invalid socket is therefore equivalent to every socket in an
  /// ordered container.
  bool operator<(const CZoSocket& other) const;

  /// A stream socket of addr's family. "Socket already in use" when open.
  CZoError Socket(const CZoIPAddr& addr);
  /// A datagram socket of addr's family. "Socket already in use" when open.
  CZoError DgramSocket(const CZoIPAddr& addr);
  /// A raw ICMP socket, ICMPv6 when family is IP_FAMILY_IPV6 and IPv4 ICMP for
  /// any other value; addr becomes the destination of SendtoICMPSocket.
  CZoError ICMPSocket(const CZoIPAddr& addr, CZoIPAddr::IP_FAMILY family);
  /// Binds to addr, first making a stream socket of addr's family when the
  /// handle is invalid. A failed bind leaves the new socket open in the
  /// object. A socket that cannot be made for the family's absence from the
  /// system (EAFNOSUPPORT) is reported in the C-library domain,
  /// ZONET_ERRNO_AFNOSUPPORT, so that FXErrorUtil::IsErrNo recognises it; a
  /// failed bind keeps the plain system number.
  CZoError Bind(const CZoIPAddr& addr);
  /// Connects to addr, first making a stream socket of addr's family when the
  /// handle is invalid.
  CZoError Connect(const CZoIPAddr& addr);
  /// "Not a bound socket" when the handle is invalid.
  CZoError Listen(int backlog);
  /// Accepts one connection into accepted, whose address becomes the peer's.
  /// "Output socket object is already a connected socket" when accepted is
  /// open (checked first), "Not a listening socket" when this handle is
  /// invalid. A failure of the accept call itself is not reported: the
  /// result is then Success with accepted still invalid, so test
  /// accepted.IsValid().
  CZoError Accept(CZoSocket& accepted) const;
  /// Accept, waiting at most timeout seconds for a client (no limit when
  /// timeout <= 0). *pnTimedOut becomes 1 on a time-out, whose error is
  /// ZONET_ERRNO_TIMEDOUT in the C-library domain; an exception condition on
  /// the socket is ZONET_ERRNO_IO. A null pnTimedOut is
  /// ZONET_ERR_INVALID_PARAMETER.
  CZoError AcceptWithTimeout(CZoSocket& accepted, int timeout, int* pnTimedOut) const;

  /// Receives exactly length bytes. *received (when not null) gets the count
  /// whatever the outcome; a count short of length is "Socket shutdown
  /// detected".
  CZoError Recv(void* buffer, int length, int flags, int* received) const;
  /// Sends all length bytes; the same rules as Recv.
  CZoError Send(const void* buffer, int length, int flags, int* sent) const;
  /// Recv limited to timeout whole seconds (no limit when timeout <= 0).
  /// *pnTimedOut must not be null; a time-out is "Socket receive timed out"
  /// with *received telling how much came.
  CZoError RecvWithTimeout(void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                           int* received) const;
  /// Send limited to timeout whole seconds; a time-out is "Socket send timed
  /// out". The spelling of the name is part of the library's face.
  CZoError SendWithTimeOut(const void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                           int* sent) const;
  /// One datagram to the address given to ICMPSocket, after waiting up to
  /// timeout seconds for the socket to be writable. pnTimedOut may be null
  /// only when timeout is 0. A datagram that went out short is not an error.
  CZoError SendtoICMPSocket(const void* buffer, int length, int timeout, int* pnTimedOut, int flags, int* sent);
  /// One datagram into buffer (written although declared const), after
  /// waiting up to timeout seconds; its sender becomes this object's address.
  CZoError RecvfromICMPSocket(const void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                              int* received);

  /// The socket's own address; addr is written only on success.
  CZoError GetLocalAddress(CZoIPAddr& addr) const;
  /// The peer's address; addr is written only on success.
  CZoError GetPeerAddress(CZoIPAddr& addr) const;
  /// Socket options; *length is value's size in and the option's size out.
  CZoError GetSockOpt(int level, int name, char* value, int* length) const;
  /// Sets a socket option from length bytes of value.
  CZoError SetSockOpt(int level, int name, char* value, int length) const;
  /// Makes the socket blocking.
  CZoError SetToBlocking();
  /// Makes the socket non-blocking.
  CZoError SetToNonBlocking();
  /// TCP_NODELAY on (NagleOff) or off (NagleOn).
  CZoError NagleOff();
  /// TCP_NODELAY off: Nagle's algorithm on.
  CZoError NagleOn();
  /// Shuts down one or both directions; Success when the handle is invalid.
  CZoError Shutdown(int how);
  /// The number of bytes waiting to be read.
  CZoError GetReadQueueLen(unsigned* length);

  /// Two connected sockets over loopback, each end taken by one object. The
  /// result is decided, as it always has been, by the system's last error
  /// rather than by the pair's own result: a failure that left no error
  /// behind comes out as Success with both objects unchanged, so test
  /// IsValid(). Otherwise the error is "Failed to create a socket pair" with
  /// that last error's number.
  static CZoError CreateSocketPair(CZoSocket* first, CZoSocket* second);

  /// The handle invalid and the address cleared; nothing is closed.
  void Clear();
  /// Closes the handle when it is valid, then Clear().
  void Close();
  /// Takes handle, with a cleared address; an open handle is left open.
  void AttachConnectedSocket(uint64_t handle);
  /// Takes handle and addr, the peer's address.
  void AttachConnectedSocket(uint64_t handle, CZoIPAddr addr);

  /// A copy of the handle.
  const CZoSocketDescriptor GetSocketDescriptor() const;
  /// True when the handle is not all ones.
  bool IsValid() const;
  /// The family of the socket as the system reports it (ZONET_getsockfamily),
  /// without a validity check: -1 when it cannot be read, and any family the
  /// system gives, also one outside the enumeration's names.
  CZoIPAddr::IP_FAMILY GetAddressFamily() const;
  /// The text of the socket's own or peer's address; empty when it cannot be
  /// read.
  CZoString GetLocalAddressString() const;
  /// The text of the peer's address; empty when it cannot be read.
  CZoString GetPeerAddressString() const;

  /// A copy of m_DummyObj: an invalid socket for callers who need a value.
  static CZoSocket Dummy();
  /// Writes bEnableLoopBack. Meant for start-up: it is read without a lock.
  static void SetFastLoopBack(bool enable);

  /// Whether Connect and Listen ask for the platform's fast loopback path.
  /// False at start.
  static bool bEnableLoopBack;

private:
  CZoSocketDescriptor m_Socket;
  CZoIPAddr m_Addr;

  /// A default-constructed object, built at load; what Dummy() copies.
  static CZoSocket m_DummyObj;
};

#endif  // ZONETWORK_ZOSOCKET_H
