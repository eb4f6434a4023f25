// CZoSocketSelector, and CZoSocket::AcceptWithTimeout, the one operation of
// the socket object that stands on the selector rather than under it.
#include "ZoNetwork/ZoSocketSelector.h"

#include <algorithm>
#include <atomic>
#include <climits>

#include "ZoNetwork/ZoNetSocket.h"
#include "objects/ObjectsInternal.h"
#include "objects/ObjectsPlatform.h"

namespace {

// The test hook: a wait that fails without waiting. Off (0) unless a test
// sets it.
std::atomic<int> g_forcedWaitError{0};
std::atomic<int> g_forcedLastError{0};

typedef unsigned long MaskWord;
constexpr unsigned kWordBits = sizeof(MaskWord) * CHAR_BIT;

// Ready sockets are looked up one by one when they are this many times
// fewer than the registered ones; a look-up costs about a dozen steps of a
// walk through a thousand registered sockets.
constexpr size_t kLookUpRatio = 32;

inline uint64_t HandleOf(const CZoSocket& socket) { return static_cast<uint64_t>(socket.GetSocketDescriptor()); }

// Whether the last wait left handle's bit set; bits past the mask never are.
inline bool ReadyBit(const MaskWord* words, uint64_t bits, uint64_t handle) {
  return handle < bits && ((words[handle / kWordBits] >> (handle % kWordBits)) & 1UL) != 0;
}

// The registered sockets whose bit the last wait left set, in their order.
//
// Only registered sockets count, and of them only those the wait found, so
// the answer is the same whether the registration is walked and each bit
// asked, or the bits are walked and each one looked up in the registration.
// A wait over many sockets usually finds few, and then the second costs a
// few look-ups where the first costs a step per registered socket; when
// many are ready, the walk is the cheaper and is taken. Every registered
// handle is at most maxSocket (it only falls back in ClearAll, which empties
// the registration), so no bit past it can belong to one.
const std::set<CZoSocket> Selected(const std::set<CZoSocket>& sockets, const ZoFdset& result, uint64_t maxSocket) {
  std::set<CZoSocket> selected;
  // A working set never set up holds no ready bit.
  if (sockets.empty() || !result.IsInitialized() || result.set_ptr == nullptr) return selected;
  const MaskWord* words = reinterpret_cast<const MaskWord*>(result.set_ptr);
  const uint64_t bits = std::min<uint64_t>(result.mask_bits, maxSocket + 1);
  const uint64_t wordCount = (bits + kWordBits - 1) / kWordBits;
  // The last word may reach past bits; those bits are no registered handle's.
  const unsigned tail = static_cast<unsigned>(bits % kWordBits);
  const MaskWord lastMask = tail == 0 ? ~MaskWord(0) : (MaskWord(1) << tail) - 1;
  auto wordAt = [&](uint64_t i) { return i + 1 == wordCount ? words[i] & lastMask : words[i]; };

  // Counted only as far as the choice needs (and bit by bit: without the
  // processor's own instruction, which the build does not assume, a
  // population count is a library call per word).
  const size_t lookUps = sockets.size() / kLookUpRatio;
  size_t ready = 0;
  for (uint64_t i = 0; i < wordCount && ready <= lookUps; ++i) {
    for (MaskWord word = wordAt(i); word != 0 && ready <= lookUps; word &= word - 1) ++ready;
  }
  if (ready == 0) return selected;

  if (ready <= lookUps) {
    // Bits in rising order are handles in the set's own order, so each copy
    // goes in at the end.
    CZoSocket key;
    for (uint64_t i = 0; i < wordCount; ++i) {
      for (MaskWord word = wordAt(i); word != 0; word &= word - 1) {
        key.AttachConnectedSocket(i * kWordBits + static_cast<unsigned>(__builtin_ctzl(word)));
        std::set<CZoSocket>::const_iterator found = sockets.find(key);
        if (found != sockets.end()) selected.insert(selected.end(), *found);
      }
    }
    return selected;
  }
  for (const CZoSocket& socket : sockets) {
    if (ReadyBit(words, bits, HandleOf(socket))) selected.insert(selected.end(), socket);
  }
  return selected;
}

// Empties one group: working set, registration and list.
void ClearGroup(std::set<CZoSocket>* sockets, ZoFdset* working, ZoFdset* master) {
  working->zero();
  master->zero();
  sockets->clear();
}

}  // namespace

namespace zonet_internal {

void SetSelectorWaitFailure(int error, int lastError) {
  g_forcedLastError.store(lastError, std::memory_order_relaxed);
  g_forcedWaitError.store(error, std::memory_order_relaxed);
}

}  // namespace zonet_internal

// ============================================================ lifetime

CZoSocketSelector::CZoSocketSelector() : m_MaxSocket(0), m_bAllCleared(false) { ClearAll(); }

CZoSocketSelector::CZoSocketSelector(const CZoSocketSelector& other)
    : m_ReadSockets(other.m_ReadSockets),
      m_WriteSockets(other.m_WriteSockets),
      m_ExceptionSockets(other.m_ExceptionSockets),
      m_ReadFdset(other.m_ReadFdset),
      m_WriteFdset(other.m_WriteFdset),
      m_ExceptionFdset(other.m_ExceptionFdset),
      m_MasterReadFdset(other.m_MasterReadFdset),
      m_MasterWriteFdset(other.m_MasterWriteFdset),
      m_MasterExceptionFdset(other.m_MasterExceptionFdset),
      m_MaxSocket(other.m_MaxSocket),
      m_bAllCleared(other.m_bAllCleared) {}

CZoSocketSelector& CZoSocketSelector::operator=(const CZoSocketSelector& other) {
  // Member by member; each member ignores its own self-assignment.
  m_ReadSockets = other.m_ReadSockets;
  m_WriteSockets = other.m_WriteSockets;
  m_ExceptionSockets = other.m_ExceptionSockets;
  m_ReadFdset = other.m_ReadFdset;
  m_WriteFdset = other.m_WriteFdset;
  m_ExceptionFdset = other.m_ExceptionFdset;
  m_MasterReadFdset = other.m_MasterReadFdset;
  m_MasterWriteFdset = other.m_MasterWriteFdset;
  m_MasterExceptionFdset = other.m_MasterExceptionFdset;
  m_MaxSocket = other.m_MaxSocket;
  m_bAllCleared = other.m_bAllCleared;
  return *this;
}

CZoSocketSelector::~CZoSocketSelector() { ClearAll(); }

// ============================================================ registration

CZoError CZoSocketSelector::SetSocket(std::set<CZoSocket>* sockets, ZoFdset* masterFdset, const CZoSocket& socket) {
  if (!socket.IsValid())
    return FXErrorUtil::ErrorWin32(FXLOC("CZoSocketSelector::SetSocket"), ZONET_ERR_NOT_SOCKET, "Invalid socket");
  const uint64_t handle = socket.GetSocketDescriptor();
  CZoError error = masterFdset->set(handle);
  if (error.IsError()) return error.Push(FXLOC("CZoSocketSelector::SetSocket"));
  // A handle already registered keeps the copy stored first.
  sockets->insert(socket);
  if (m_MaxSocket < handle) m_MaxSocket = handle;
  return CZoError::Success();
}

void CZoSocketSelector::ClearSocket(std::set<CZoSocket>* sockets, ZoFdset* masterFdset, const CZoSocket& socket) {
  // Erasing by key removes every element equivalent to socket; for an
  // invalid socket, which the ordering makes equivalent to all, that is the
  // whole list.
  sockets->erase(socket);
  (void)masterFdset->clr(socket.GetSocketDescriptor());
  m_bAllCleared = false;
}

void CZoSocketSelector::SetReadSocket(const CZoSocket& socket) {
  (void)SetSocket(&m_ReadSockets, &m_MasterReadFdset, socket);
}

void CZoSocketSelector::SetWriteSocket(const CZoSocket& socket) {
  (void)SetSocket(&m_WriteSockets, &m_MasterWriteFdset, socket);
}

void CZoSocketSelector::SetExceptionSocket(const CZoSocket& socket) {
  (void)SetSocket(&m_ExceptionSockets, &m_MasterExceptionFdset, socket);
}

void CZoSocketSelector::ClearReadSocket(const CZoSocket& socket) {
  ClearSocket(&m_ReadSockets, &m_MasterReadFdset, socket);
}

void CZoSocketSelector::ClearWriteSocket(const CZoSocket& socket) {
  ClearSocket(&m_WriteSockets, &m_MasterWriteFdset, socket);
}

void CZoSocketSelector::ClearExceptionSocket(const CZoSocket& socket) {
  ClearSocket(&m_ExceptionSockets, &m_MasterExceptionFdset, socket);
}

void CZoSocketSelector::ClearAllReadSockets() {
  ClearGroup(&m_ReadSockets, &m_ReadFdset, &m_MasterReadFdset);
  m_bAllCleared = false;
}

void CZoSocketSelector::ClearAllWriteSockets() {
  ClearGroup(&m_WriteSockets, &m_WriteFdset, &m_MasterWriteFdset);
  m_bAllCleared = false;
}

void CZoSocketSelector::ClearAllExceptionSockets() {
  ClearGroup(&m_ExceptionSockets, &m_ExceptionFdset, &m_MasterExceptionFdset);
  m_bAllCleared = false;
}

void CZoSocketSelector::ClearAll() {
  ClearAllReadSockets();
  ClearAllWriteSockets();
  ClearAllExceptionSockets();
  m_MaxSocket = 0;
  m_bAllCleared = true;
}

// ============================================================ waiting

CZoError CZoSocketSelector::Select(const timeval* timeout, bool* timedOut) {
  // Fresh working copies: the results of an earlier wait are gone.
  m_ReadFdset = m_MasterReadFdset;
  m_WriteFdset = m_MasterWriteFdset;
  m_ExceptionFdset = m_MasterExceptionFdset;
  // A copy of a set that was never set up leaves it so; select is always
  // handed three masks, empty ones included.
  (void)m_ReadFdset.get_fdsetp();
  (void)m_WriteFdset.get_fdsetp();
  (void)m_ExceptionFdset.get_fdsetp();

  // The caller's time value is not to be written, and Linux's select writes
  // the time left into it.
  timeval limit = {0, 0};
  if (timeout != nullptr) limit = *timeout;
  const int nfds = static_cast<int>(m_MaxSocket + 1);

  int ready = 0;
  int rc = 0;
  int lastError = 0;
  const int forced = g_forcedWaitError.load(std::memory_order_relaxed);
  if (forced != 0) {
    rc = forced;
    lastError = g_forcedLastError.load(std::memory_order_relaxed);
  } else {
    rc = ZONET_selectfdsets(nfds, &m_ReadFdset, &m_WriteFdset, &m_ExceptionFdset,
                            timeout != nullptr ? &limit : nullptr, &ready);
    if (rc != 0) lastError = zonet_platform::SockObjLastError();
  }

  if (rc == 0) {
    if (timedOut != nullptr) *timedOut = ready == 0;
    return CZoError::Success();
  }
  // The failure is judged by the system's last error, as it always has been:
  // one that left no error behind passes for success, with *timedOut as it
  // was.
  if (lastError != 0) return FXErrorUtil::ErrorWin32(FXLOC("CZoSocketSelector::Select"), lastError);
  return CZoError::Success();
}

const std::set<CZoSocket> CZoSocketSelector::GetReadSelected() {
  return Selected(m_ReadSockets, m_ReadFdset, m_MaxSocket);
}

const std::set<CZoSocket> CZoSocketSelector::GetWriteSelected() {
  return Selected(m_WriteSockets, m_WriteFdset, m_MaxSocket);
}

const std::set<CZoSocket> CZoSocketSelector::GetExceptionSelected() {
  return Selected(m_ExceptionSockets, m_ExceptionFdset, m_MaxSocket);
}

// ============================================================ timed accept

CZoError CZoSocket::AcceptWithTimeout(CZoSocket& accepted, int timeout, int* pnTimedOut) const {
  // 1. This socket, for reading (a client waiting) and for exceptions.
  CZoSocketSelector selector;
  selector.SetReadSocket(*this);
  selector.SetExceptionSocket(*this);

  // 2. The out-value is needed whatever the time-out, and 3. starts at 0.
  if (pnTimedOut == nullptr)
    return FXErrorUtil::ErrorWin32(FXLOC("CZoSocket::AcceptWithTimeout"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, pnTimedOut is NULL");
  *pnTimedOut = 0;

  // 4. No limit: the accept blocks.
  if (timeout > 0) {
    // 5. One wait of the whole time.
    timeval limit;
    limit.tv_sec = timeout;
    limit.tv_usec = 0;
    bool timedOut = false;
    CZoError error = selector.Select(&limit, &timedOut);
    if (timedOut) {
      *pnTimedOut = 1;
      return FXErrorUtil::ErrorErrNo(FXLOC("CZoSocket::AcceptWithTimeout"), ZONET_ERRNO_TIMEDOUT,
                                     "no connection request received from client within the timeout %d", timeout);
    }
    if (error.IsError()) return error.Push(FXLOC("CZoSocket::AcceptWithTimeout"), "select call failed");

    // 6. What the wait found, not what was registered (which always holds
    // this socket).
    if (!selector.GetExceptionSelected().empty())
      return FXErrorUtil::ErrorErrNo(FXLOC("CZoSocket::AcceptWithTimeout"), ZONET_ERRNO_IO,
                                     "exception detected on socket %s", m_Socket.AsString().c_str());
  }

  // 7.
  return Accept(accepted);
}
