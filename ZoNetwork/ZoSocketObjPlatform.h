// What the socket object and the selector need of the platform beyond the
// flat functions: the thread's last socket error, the fast loopback request,
// and the numbers of the two requests the object makes by itself. Not
// installed, not exported; Posix/ZoSocketObj_posix.cpp is the Linux side.
#ifndef ZONETWORK_ZOSOCKETOBJPLATFORM_H
#define ZONETWORK_ZOSOCKETOBJPLATFORM_H

#include <stdint.h>

namespace zonet_platform {

// The calling thread's last socket error, as a failed call left it; 0 when
// none is recorded.
int SockObjLastError();

// Asks for the platform's fast loopback path on handle. 0, or the error of a
// request the platform does not have.
int SockObjLoopbackFastPath(uint64_t handle);

// The option level and option name of TCP's no-delay switch.
int SockObjTcpLevel();
int SockObjNoDelayOption();

// The ioctl command that gives the number of bytes waiting to be read.
unsigned long SockObjReadQueueCommand();

}  // namespace zonet_platform

#endif  // ZONETWORK_ZOSOCKETOBJPLATFORM_H
