// Library-internal helpers of the flat socket layer, and the hooks its tests
// use to reach failure paths that a healthy system never takes. Not
// installed, not exported: tests reach them through ZoNetwork_static.
#ifndef ZONETWORK_ZOSOCKETINTERNAL_H
#define ZONETWORK_ZOSOCKETINTERNAL_H

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetAddr.h"

namespace zonet_internal {

// Makes the mask of an allocated set cover at least bits descriptors, so that
// select may be handed nfds up to bits. 0, or -1 when memory fails or the set
// is not allocated.
int FdsetCoverBits(xnfdset_t* set, int bits);

// The steps of building a socket pair, in the order they run.
enum SocketPairStep {
  kPairNoStep = 0,
  kPairListenerSocket,
  kPairBind,
  kPairListen,
  kPairGetSockName,
  kPairClientSocket,
  kPairConnect,
  kPairAccept,
  kPairClientNonBlocking,
  kPairServerNonBlocking
};

// Makes step give error (after it has run, so that what it opened stays to be
// cleaned up) on every address tried; kPairNoStep turns this off.
void SetSocketPairFailure(SocketPairStep step, int error);

// Replaces the resolution of "localhost" for socket pairs; NULL restores
// ZONET_name2ip. The list given back is released with ZONET_freehostent, so
// its array must come from malloc.
typedef int (*SocketPairResolver)(const char* name, ZONET_HostEnt* hostEnt, int family);
void SetSocketPairResolver(SocketPairResolver resolver);

}  // namespace zonet_internal

#endif  // ZONETWORK_ZOSOCKETINTERNAL_H
