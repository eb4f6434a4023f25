// The Linux side of the socket object: errno, the no-delay option and
// FIONREAD. Linux has no request for a fast loopback path; its loopback is
// already the short way, so the request does nothing.
#include "objects/ObjectsPlatform.h"

#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>

#include "ZoUtils/ZoErrorCodes.h"

namespace zonet_platform {

int SockObjLastError() { return errno; }

int SockObjLoopbackFastPath(uint64_t /*handle*/) {
  // Reported, not pretended; the object ignores it as it ignores any failure
  // of this request.
  return ZONET_ERR_NOT_SUPPORTED;
}

int SockObjTcpLevel() { return IPPROTO_TCP; }

int SockObjNoDelayOption() { return TCP_NODELAY; }

unsigned long SockObjReadQueueCommand() { return FIONREAD; }

}  // namespace zonet_platform
