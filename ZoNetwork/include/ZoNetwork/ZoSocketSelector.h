/// @file
/// CZoSocketSelector: the object form of a select wait over three groups of
/// sockets (read, write, exception). Sockets are registered once; each Select
/// works on fresh working copies of the registration, so the registration
/// survives the wait, and the ready sockets come back as sets of CZoSocket.
#ifndef ZONETWORK_ZOSOCKETSELECTOR_H
#define ZONETWORK_ZOSOCKETSELECTOR_H

#include <stdint.h>

#include <set>

#ifndef _WIN32
#include <sys/time.h>
#endif

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoNetwork/ZoSocket.h"
#include "ZoUtils/ZoError.h"

/// The selector holds copies of the registered CZoSocket objects and never
/// closes anything. All six descriptor sets are members, so a selector on the
/// stack takes no heap memory for its sets up to 1024 sockets per group below
/// descriptor 1024 (the ordered sets of sockets allocate as any std::set).
///
/// A selector belongs to one thread; Select blocks on the caller's thread.
/// Two selectors may hold the same socket.
class ZONET_API CZoSocketSelector {
public:
  /// Empty; runs ClearAll().
  CZoSocketSelector();
  /// Registration and the last results are copied, and the copy can be used
  /// by itself.
  CZoSocketSelector(const CZoSocketSelector& other);
  /// Copies registration and last results, as the copy constructor.
  CZoSocketSelector& operator=(const CZoSocketSelector& other);
  /// ClearAll(), then the members.
  ~CZoSocketSelector();

  /// Registers a socket for one group. An invalid socket, or one that does
  /// not fit in the group's descriptor set, is silently not registered; a
  /// socket already there stays as it was.
  void SetReadSocket(const CZoSocket& socket);
  /// Registers a socket for the write group, as SetReadSocket.
  void SetWriteSocket(const CZoSocket& socket);
  /// Registers a socket for the exception group, as SetReadSocket.
  void SetExceptionSocket(const CZoSocket& socket);

  /// Unregisters every socket equivalent to socket under CZoSocket's
  /// ordering. An invalid socket is equivalent to all of them, so clearing
  /// one empties the group's list (its descriptor set keeps its bits).
  void ClearReadSocket(const CZoSocket& socket);
  /// Unregisters from the write group, as ClearReadSocket.
  void ClearWriteSocket(const CZoSocket& socket);
  /// Unregisters from the exception group, as ClearReadSocket.
  void ClearExceptionSocket(const CZoSocket& socket);

  /// Empties one group: registration, working set and list.
  void ClearAllReadSockets();
  /// Empties the write group, as ClearAllReadSockets.
  void ClearAllWriteSockets();
  /// Empties the exception group, as ClearAllReadSockets.
  void ClearAllExceptionSockets();
  /// Empties all three groups and forgets the largest handle seen.
  void ClearAll();

  /// One select over the registered sockets. timeout null waits without
  /// limit; a zero time value polls. *timedOut (when not null) becomes true
  /// when nothing was ready in time and false when something was. A failed
  /// wait gives the system's last error; when that is 0 the result is Success
  /// and *timedOut is left as it was.
  CZoError Select(const timeval* timeout, bool* timedOut);

  /// The registered sockets that the last Select found ready, in order. Empty
  /// before any Select.
  const std::set<CZoSocket> GetReadSelected();
  /// The registered sockets that the last Select found writable, in order.
  const std::set<CZoSocket> GetWriteSelected();
  /// The registered sockets that the last Select found with an exception
  /// condition, in order.
  const std::set<CZoSocket> GetExceptionSelected();

private:
  CZoError SetSocket(std::set<CZoSocket>* sockets, ZoFdset* masterFdset, const CZoSocket& socket);
  void ClearSocket(std::set<CZoSocket>* sockets, ZoFdset* masterFdset, const CZoSocket& socket);

  std::set<CZoSocket> m_ReadSockets;
  std::set<CZoSocket> m_WriteSockets;
  std::set<CZoSocket> m_ExceptionSockets;
  /// Working copies that select changes.
  ZoFdset m_ReadFdset;
  ZoFdset m_WriteFdset;
  ZoFdset m_ExceptionFdset;
  /// The registration, changed only by the set and clear operations.
  ZoFdset m_MasterReadFdset;
  ZoFdset m_MasterWriteFdset;
  ZoFdset m_MasterExceptionFdset;
  /// The largest handle added since the last ClearAll; clearing a socket does
  /// not lower it.
  uint64_t m_MaxSocket;
  /// True after ClearAll, false after any narrower clear.
  bool m_bAllCleared;
};

#endif  // ZONETWORK_ZOSOCKETSELECTOR_H
