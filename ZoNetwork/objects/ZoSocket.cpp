// CZoSocket and CZoSocketDescriptor: state checks in front of the flat socket
// functions, and their results turned into CZoError values.
#include "ZoNetwork/ZoSocket.h"

#include <cstring>

#include "ZoNetwork/ZoNetSocket.h"
#include "objects/ObjectsPlatform.h"

namespace plat = zonet_platform;

namespace {

const char* const kInUse = "Socket already in use";
const char* const kNotValid = "Not a valid socket";
const char* const kNotBound = "Not a bound socket";
const char* const kNotListening = "Not a listening socket";
const char* const kAlreadyConnected = "Output socket object is already a connected socket";
const char* const kShutdown = "Socket shutdown detected";
const char* const kRecvTimedOut = "Socket receive timed out";
const char* const kSendTimedOut = "Socket send timed out";
const char* const kNullTimedOut = "Invalid input parameter, pnTimedOut is NULL";
const char* const kPairFailed = "Failed to create a socket pair";

inline CZoError StateError(const FXCodeLocation& location, const char* message) {
  return FXErrorUtil::ErrorWin32(location, ZONET_ERR_INVALID_STATE, "%s", message);
}

inline CZoError SystemError(const FXCodeLocation& location, int code) {
  return FXErrorUtil::ErrorWin32(location, static_cast<unsigned long>(code));
}

// Bind's opening step reports a family the system has no stack for in the
// C-library domain: that is the answer the address probes look for, and it
// tells "no such stack" apart from a refused address. The binding step keeps
// the plain system number: there the same number means an address of another
// family than the socket's, which is the caller's mistake.
inline CZoError OpenForBindError(const FXCodeLocation& location, int code) {
  if (code == ZONET_ERRNO_AFNOSUPPORT)
    return FXErrorUtil::ErrorErrNo(location, ZONET_ERRNO_AFNOSUPPORT, "Address family not supported");
  return SystemError(location, code);
}

// A stream socket of addr's family into handle, for Bind and Connect on an
// object that has none yet.
inline int OpenStream(const CZoIPAddr& addr, CZoSocketDescriptor& handle) {
  return ZONET_socket(addr.GetAddressFamily(), &handle);
}

// The request's failure is of no interest: the connection works without it.
inline void AskForFastLoopBack(uint64_t handle) { (void)plat::SockObjLoopbackFastPath(handle); }

// A cleared record to getsockname or getpeername; addr takes it on success.
CZoError ReadAddress(const FXCodeLocation& location, int (*call)(ZONET_SOCKET, ZONET_SockAddr*), uint64_t handle,
                     CZoIPAddr& addr) {
  ZONET_SockAddr record;
  std::memset(&record, 0, sizeof record);
  const int rc = call(handle, &record);
  if (rc != 0) return SystemError(location, rc);
  addr = record;
  return CZoError::Success();
}

// The text of an address read by read; empty when it cannot be read.
CZoString AddressText(const CZoSocket& socket, CZoError (CZoSocket::*read)(CZoIPAddr&) const) {
  CZoString text;
  CZoIPAddr addr;
  if ((socket.*read)(addr).IsError()) return text;
  // Its error leaves the text empty, which is the answer for it.
  (void)addr.GetAddressString(text);
  return text;
}

inline CZoError NullTimedOut(const FXCodeLocation& location) {
  return FXErrorUtil::ErrorWin32(location, ZONET_ERR_INVALID_PARAMETER, "%s", kNullTimedOut);
}

// The outcome of a stream transfer, in the order the checks have always come:
// the count goes out whatever happened, then the code, the time-out (when
// the call has one) and a count short of what was asked.
CZoError StreamResult(const FXCodeLocation& location, int rc, int count, int length, int* countOut,
                      const int* timedOut, const char* timedOutMessage) {
  if (countOut != nullptr) *countOut = count;
  if (rc != 0) return SystemError(location, rc);
  if (timedOut != nullptr && *timedOut == 1) return StateError(location, timedOutMessage);
  if (count < length) return StateError(location, kShutdown);
  return CZoError::Success();
}

// The outcome of one datagram: the time-out is looked at before the code,
// and a datagram that went short is not an error.
CZoError DatagramResult(const FXCodeLocation& location, int rc, int count, int* countOut, const int* timedOut,
                        const char* timedOutMessage) {
  if (countOut != nullptr) *countOut = count;
  if (timedOut != nullptr && *timedOut == 1) return StateError(location, timedOutMessage);
  if (rc != 0) return SystemError(location, rc);
  return CZoError::Success();
}

}  // namespace

// ============================================================ descriptor

CZoSocketDescriptor::CZoSocketDescriptor() : m_Handle(ZONET_INVALID_SOCKET) {}

CZoSocketDescriptor::CZoSocketDescriptor(uint64_t handle) : m_Handle(handle) {}

CZoSocketDescriptor::CZoSocketDescriptor(const CZoSocketDescriptor& other) : m_Handle(other.m_Handle) {}

CZoSocketDescriptor::~CZoSocketDescriptor() {}

CZoSocketDescriptor& CZoSocketDescriptor::operator=(const CZoSocketDescriptor& other) {
  m_Handle = other.m_Handle;
  return *this;
}

CZoSocketDescriptor::operator uint64_t() { return m_Handle; }

CZoSocketDescriptor::operator uint64_t() const { return m_Handle; }

uint64_t* CZoSocketDescriptor::operator&() { return &m_Handle; }

bool CZoSocketDescriptor::IsValid() const { return IsValid(m_Handle); }

bool CZoSocketDescriptor::IsValid(uint64_t handle) { return handle < ZONET_INVALID_SOCKET; }

std::string CZoSocketDescriptor::AsString() const { return AsString(m_Handle); }

std::string CZoSocketDescriptor::AsString(uint64_t handle) {
  return FXString::Format("0x%p", reinterpret_cast<void*>(static_cast<uintptr_t>(handle)));
}

// ============================================================ statics

bool CZoSocket::bEnableLoopBack = false;
CZoSocket CZoSocket::m_DummyObj;

CZoSocket CZoSocket::Dummy() { return m_DummyObj; }

void CZoSocket::SetFastLoopBack(bool enable) { bEnableLoopBack = enable; }

// ============================================================ construction

CZoSocket::CZoSocket() {}

CZoSocket::CZoSocket(const CZoSocket& other) : m_Socket(other.m_Socket), m_Addr(other.m_Addr) {}

CZoSocket::CZoSocket(const sockaddr_in& addr) { *this = addr; }

CZoSocket::CZoSocket(const sockaddr_in6& addr) { *this = addr; }

CZoSocket::CZoSocket(const CZoIPAddr& addr) { *this = addr; }

CZoSocket::CZoSocket(const char* addr) { *this = addr; }

CZoSocket::~CZoSocket() { Clear(); }

CZoSocket& CZoSocket::operator=(const CZoSocket& other) {
  m_Socket = other.m_Socket;
  m_Addr = other.m_Addr;
  return *this;
}

CZoSocket& CZoSocket::operator=(const sockaddr_in& addr) {
  m_Socket = ZONET_INVALID_SOCKET;
  m_Addr = addr;
  return *this;
}

CZoSocket& CZoSocket::operator=(const sockaddr_in6& addr) {
  m_Socket = ZONET_INVALID_SOCKET;
  m_Addr = addr;
  return *this;
}

CZoSocket& CZoSocket::operator=(const CZoIPAddr& addr) {
  m_Socket = ZONET_INVALID_SOCKET;
  m_Addr = addr;
  return *this;
}

CZoSocket& CZoSocket::operator=(const char* addr) {
  m_Socket = ZONET_INVALID_SOCKET;
  m_Addr = addr;
  return *this;
}

// ============================================================ comparison

bool CZoSocket::operator==(const CZoSocket& other) const {
  if (!other.m_Socket.IsValid()) return false;
  return static_cast<uint64_t>(m_Socket) == static_cast<uint64_t>(other.m_Socket);
}

bool CZoSocket::operator!=(const CZoSocket& other) const { return !(*this == other); }

bool CZoSocket::operator<(const CZoSocket& other) const {
  if (!other.m_Socket.IsValid()) return false;
  return static_cast<uint64_t>(m_Socket) < static_cast<uint64_t>(other.m_Socket);
}

// ============================================================ opening

CZoError CZoSocket::Socket(const CZoIPAddr& addr) {
  if (m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::Socket"), kInUse);
  const int rc = ZONET_socket(addr.GetAddressFamily(), &m_Socket);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::Socket"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::DgramSocket(const CZoIPAddr& addr) {
  if (m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::DgramSocket"), kInUse);
  const int rc = ZONET_dgramsocket(addr.GetAddressFamily(), &m_Socket);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::DgramSocket"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::ICMPSocket(const CZoIPAddr& addr, CZoIPAddr::IP_FAMILY family) {
  if (m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::ICMPSocket"), kInUse);
  m_Addr = addr;
  const int icmpFamily = family == CZoIPAddr::IP_FAMILY_IPV6 ? ZONET_FAMILY_IPV6 : ZONET_FAMILY_IPV4;
  const int rc = ZONET_icmpsocket(icmpFamily, &m_Socket);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::ICMPSocket"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::Bind(const CZoIPAddr& addr) {
  if (!m_Socket.IsValid()) {
    const int rc = OpenStream(addr, m_Socket);
    if (rc != 0) return OpenForBindError(FXLOC("CZoSocket::Bind"), rc);
  }
  const ZONET_SockAddr record = addr.GetSockAddr();
  const int rc = ZONET_bind(m_Socket, &record);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::Bind"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::Connect(const CZoIPAddr& addr) {
  if (!m_Socket.IsValid()) {
    const int rc = OpenStream(addr, m_Socket);
    if (rc != 0) return SystemError(FXLOC("CZoSocket::Connect"), rc);
  }
  // On the connecting side the request has to come before the connection.
  if (bEnableLoopBack) AskForFastLoopBack(m_Socket);
  const ZONET_SockAddr record = addr.GetSockAddr();
  const int rc = ZONET_connect(m_Socket, &record);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::Connect"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::Listen(int backlog) {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::Listen"), kNotBound);
  const int rc = ZONET_listen(m_Socket, backlog);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::Listen"), rc);
  // On the listening side, after listen, and only when it worked; accepted
  // sockets inherit it.
  if (bEnableLoopBack) AskForFastLoopBack(m_Socket);
  return CZoError::Success();
}

CZoError CZoSocket::Accept(CZoSocket& accepted) const {
  if (accepted.IsValid()) return StateError(FXLOC("CZoSocket::Accept"), kAlreadyConnected);
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::Accept"), kNotListening);
  ZONET_SOCKET handle = ZONET_INVALID_SOCKET;
  ZONET_SockAddr peer;
  std::memset(&peer, 0, sizeof peer);
  const int rc = ZONET_accept(m_Socket, &handle, &peer);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::Accept"), rc);
  // A failed accept leaves handle invalid and is not an error here: the
  // caller tests accepted.IsValid().
  accepted.AttachConnectedSocket(handle, CZoIPAddr(peer));
  return CZoError::Success();
}

// ============================================================ data

CZoError CZoSocket::Recv(void* buffer, int length, int flags, int* received) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::Recv"), kNotValid);
  int count = 0;
  const int rc = ZONET_recv(m_Socket, buffer, length, &count, flags);
  return StreamResult(FXLOC("CZoSocket::Recv"), rc, count, length, received, nullptr, nullptr);
}

CZoError CZoSocket::Send(const void* buffer, int length, int flags, int* sent) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::Send"), kNotValid);
  int count = 0;
  const int rc = ZONET_send(m_Socket, buffer, length, &count, flags);
  return StreamResult(FXLOC("CZoSocket::Send"), rc, count, length, sent, nullptr, nullptr);
}

CZoError CZoSocket::RecvWithTimeout(void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                                    int* received) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::RecvWithTimeout"), kNotValid);
  if (pnTimedOut == nullptr) return NullTimedOut(FXLOC("CZoSocket::RecvWithTimeout"));
  int count = 0;
  const int rc = ZONET_recvwithtimeout(m_Socket, buffer, length, &count, timeout, pnTimedOut, flags);
  return StreamResult(FXLOC("CZoSocket::RecvWithTimeout"), rc, count, length, received, pnTimedOut, kRecvTimedOut);
}

CZoError CZoSocket::SendWithTimeOut(const void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                                    int* sent) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::SendWithTimeOut"), kNotValid);
  if (pnTimedOut == nullptr) return NullTimedOut(FXLOC("CZoSocket::SendWithTimeOut"));
  int count = 0;
  const int rc = ZONET_sendwithtimeout(m_Socket, buffer, length, &count, timeout, pnTimedOut, flags);
  return StreamResult(FXLOC("CZoSocket::SendWithTimeOut"), rc, count, length, sent, pnTimedOut, kSendTimedOut);
}

CZoError CZoSocket::SendtoICMPSocket(const void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                                     int* sent) {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::SendtoICMPSocket"), kNotValid);
  if (timeout != 0 && pnTimedOut == nullptr) return NullTimedOut(FXLOC("CZoSocket::SendtoICMPSocket"));
  const ZONET_SockAddr destination = m_Addr.GetSockAddr();
  int count = 0;
  // A null pnTimedOut (allowed above with no time-out) is refused by the flat
  // call with ZONET_ERR_INVALID_PARAMETER.
  const int rc = ZONET_sendtoicmpsocket(m_Socket, &destination, buffer, length, &count, flags, timeout, pnTimedOut);
  return DatagramResult(FXLOC("CZoSocket::SendtoICMPSocket"), rc, count, sent, pnTimedOut, kSendTimedOut);
}

CZoError CZoSocket::RecvfromICMPSocket(const void* buffer, int length, int timeout, int* pnTimedOut, int flags,
                                       int* received) {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::RecvfromICMPSocket"), kNotValid);
  if (timeout != 0 && pnTimedOut == nullptr) return NullTimedOut(FXLOC("CZoSocket::RecvfromICMPSocket"));
  // The record goes in with the destination's family, which sizes the
  // sender's address, and comes back with the sender.
  ZONET_SockAddr sender = m_Addr.GetSockAddr();
  int count = 0;
  const int rc = ZONET_recvfromicmpsocket(m_Socket, &sender, const_cast<void*>(buffer), length, &count, flags,
                                          timeout, pnTimedOut);
  m_Addr = sender;
  return DatagramResult(FXLOC("CZoSocket::RecvfromICMPSocket"), rc, count, received, pnTimedOut, kRecvTimedOut);
}

// ============================================================ addresses and options

CZoError CZoSocket::GetLocalAddress(CZoIPAddr& addr) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::GetLocalAddress"), kNotValid);
  return ReadAddress(FXLOC("CZoSocket::GetLocalAddress"), ZONET_getsockname, m_Socket, addr);
}

CZoError CZoSocket::GetPeerAddress(CZoIPAddr& addr) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::GetPeerAddress"), kNotValid);
  return ReadAddress(FXLOC("CZoSocket::GetPeerAddress"), ZONET_getpeername, m_Socket, addr);
}

CZoError CZoSocket::GetSockOpt(int level, int name, char* value, int* length) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::GetSockOpt"), kNotValid);
  const int rc = ZONET_getsockopt(m_Socket, level, name, value, length);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::GetSockOpt"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::SetSockOpt(int level, int name, char* value, int length) const {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::SetSockOpt"), kNotValid);
  const int rc = ZONET_setsockopt(m_Socket, level, name, value, length);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::SetSockOpt"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::SetToBlocking() {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::SetToBlocking"), kNotValid);
  const int rc = ZONET_setblocking(m_Socket);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::SetToBlocking"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::SetToNonBlocking() {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::SetToNonBlocking"), kNotValid);
  const int rc = ZONET_setnonblocking(m_Socket);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::SetToNonBlocking"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::NagleOff() {
  int32_t on = 1;
  return SetSockOpt(plat::SockObjTcpLevel(), plat::SockObjNoDelayOption(), reinterpret_cast<char*>(&on),
                    sizeof on);
}

CZoError CZoSocket::NagleOn() {
  int32_t off = 0;
  return SetSockOpt(plat::SockObjTcpLevel(), plat::SockObjNoDelayOption(), reinterpret_cast<char*>(&off),
                    sizeof off);
}

CZoError CZoSocket::Shutdown(int how) {
  // The one operation content with a socket that was never opened.
  if (!m_Socket.IsValid()) return CZoError::Success();
  const int rc = ZONET_shutdown(m_Socket, how);
  if (rc != 0) return SystemError(FXLOC("CZoSocket::Shutdown"), rc);
  return CZoError::Success();
}

CZoError CZoSocket::GetReadQueueLen(unsigned* length) {
  if (!m_Socket.IsValid()) return StateError(FXLOC("CZoSocket::GetReadQueueLen"), kNotValid);
  // unsigned and int share their representation; a null length is refused by
  // the flat call.
  const int rc = ZONET_ioctl(m_Socket, plat::SockObjReadQueueCommand(), reinterpret_cast<int*>(length));
  if (rc != 0) return SystemError(FXLOC("CZoSocket::GetReadQueueLen"), rc);
  return CZoError::Success();
}

// ============================================================ socket pairs

CZoError CZoSocket::CreateSocketPair(CZoSocket* first, CZoSocket* second) {
  if (first == nullptr || second == nullptr)
    return FXErrorUtil::ErrorWin32(FXLOC("CZoSocket::CreateSocketPair"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, first or second is NULL");
  ZONET_SOCKET pair[2] = {ZONET_INVALID_SOCKET, ZONET_INVALID_SOCKET};
  if (ZONET_socketpair(pair) == 0) {
    first->AttachConnectedSocket(pair[0]);
    second->AttachConnectedSocket(pair[1]);
    return CZoError::Success();
  }
  // The pair's own result is not what decides: the system's last error is,
  // and a failure that left none behind passes for success. Callers have
  // always tested IsValid() afterwards, and so it stays.
  const int last = plat::SockObjLastError();
  if (last != 0) return FXErrorUtil::ErrorWin32(FXLOC("CZoSocket::CreateSocketPair"), last, "%s", kPairFailed);
  return CZoError::Success();
}

// ============================================================ plain state

void CZoSocket::Clear() {
  m_Socket = ZONET_INVALID_SOCKET;
  m_Addr.Clear();
}

void CZoSocket::Close() {
  if (m_Socket.IsValid()) (void)ZONET_close(m_Socket);
  Clear();
}

void CZoSocket::AttachConnectedSocket(uint64_t handle) {
  m_Socket = handle;
  m_Addr.Clear();
}

void CZoSocket::AttachConnectedSocket(uint64_t handle, CZoIPAddr addr) {
  m_Socket = handle;
  m_Addr = addr;
}

const CZoSocketDescriptor CZoSocket::GetSocketDescriptor() const { return m_Socket; }

bool CZoSocket::IsValid() const { return m_Socket.IsValid(); }

CZoIPAddr::IP_FAMILY CZoSocket::GetAddressFamily() const {
  // The enumeration's type is int, so -1 and families without a name pass
  // through as they are.
  return static_cast<CZoIPAddr::IP_FAMILY>(ZONET_getsockfamily(m_Socket));
}

CZoString CZoSocket::GetLocalAddressString() const { return AddressText(*this, &CZoSocket::GetLocalAddress); }

CZoString CZoSocket::GetPeerAddressString() const { return AddressText(*this, &CZoSocket::GetPeerAddress); }
