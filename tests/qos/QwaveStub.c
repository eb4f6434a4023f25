/* A stand-in for the optional QoS module, built by the tests under the
 * module's own name "Qwave.dll". It has four of the five functions: the one
 * missing, QOSSetFlow, shows that the others stay usable. Each failure leaves
 * errno set, as the library reads the module's errors from it. The types are
 * spelled out in C with the layouts of ZoNetwork/QosWaveApi.h. */
#include <errno.h>
#include <stddef.h>
#include <stdint.h>

#define STUB_EXPORT __attribute__((visibility("default")))

struct StubVersion {
  uint16_t major;
  uint16_t minor;
};

static int g_handle; /* its address is the one valid handle */

/* The flow that QOSAddSocketToFlow hands out. */
#define STUB_FLOW 7ul
/* A socket number the stub refuses, wider than 32 bits. */
#define STUB_BAD_SOCKET 0x100000005ull

STUB_EXPORT int QOSCreateHandle(struct StubVersion* version, void** handle) {
  if (version == NULL || handle == NULL || version->major != 1 || version->minor != 0) {
    errno = EINVAL;
    return 0;
  }
  *handle = &g_handle;
  return 1;
}

STUB_EXPORT int QOSCloseHandle(void* handle) {
  if (handle != &g_handle) {
    errno = EBADF;
    return 0;
  }
  return 1;
}

STUB_EXPORT int QOSAddSocketToFlow(void* handle, uint64_t socket, void* destination, int trafficType,
                                   unsigned long flags, unsigned long* flowId) {
  (void)destination;
  (void)flags;
  if (handle != &g_handle || flowId == NULL || trafficType < 0 || trafficType > 5) {
    errno = EINVAL;
    return 0;
  }
  if (socket == STUB_BAD_SOCKET) {
    errno = ENOTSOCK;
    return 0;
  }
  *flowId = STUB_FLOW;
  return 1;
}

STUB_EXPORT int QOSRemoveSocketFromFlow(void* handle, uint64_t socket, unsigned long flowId, unsigned long flags) {
  (void)socket;
  (void)flags;
  if (handle != &g_handle || flowId != STUB_FLOW) {
    errno = ENOENT;
    return 0;
  }
  return 1;
}
