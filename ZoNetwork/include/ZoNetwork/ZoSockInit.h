/// @file
/// Start-up of the socket layer, which the host process owns.
#ifndef ZONETWORK_ZOSOCKINIT_H
#define ZONETWORK_ZOSOCKINIT_H

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"

/// One object stands for one start of the system's socket layer. The host
/// makes one and calls Init() before its first socket call; nothing in the
/// library does. There is no reference count: a copy made with operator=
/// carries the flag, and both would end the start, so a host keeps one object
/// per start. Linux sockets need no start, so the flag is all there is here.
class ZONET_API CZoSockInit {
public:
  /// An object that holds no start.
  CZoSockInit();
  /// Ends this object's start, as CleanUp().
  ~CZoSockInit();  // CleanUp()
  /// Takes other's flag: both objects then hold the same start.
  CZoSockInit& operator=(const CZoSockInit& other);

  /// Starts the socket layer for this object; a second call is success and
  /// starts nothing. Failure: the platform's error, with this location.
  CZoError Init();
  /// Ends this object's start, if it holds one.
  void CleanUp();

  /// Whether this object holds a start.
  bool IsInitialised() const { return m_bInitialised; }

private:
  bool m_bInitialised;
};

#endif  // ZONETWORK_ZOSOCKINIT_H
