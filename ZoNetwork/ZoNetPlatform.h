// The narrow internal face of the platform under ZoNetwork. Every socket,
// resolver and interface call of the library is made behind it, in Posix/
// (and later Windows/). Not installed, not exported.
#ifndef ZONETWORK_ZONETPLATFORM_H
#define ZONETWORK_ZONETPLATFORM_H

namespace zonet_platform {

// Start and end of the system's socket layer; 0 or the error number. Linux
// has nothing to start, so these only count, for the tests' sake.
int SocketLayerStart();
void SocketLayerEnd();
// How many starts are not ended yet.
int SocketLayerStarts();

}  // namespace zonet_platform

#endif  // ZONETWORK_ZONETPLATFORM_H
