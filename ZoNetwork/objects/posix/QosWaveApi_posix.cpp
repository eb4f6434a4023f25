// The Linux side of the QoS binding: a module's functions report failure
// through errno, which stands for the designed platform's GetLastError().
#include "objects/ObjectsPlatform.h"

#include <errno.h>

namespace zonet_platform {

int QosLastError() { return errno; }

}  // namespace zonet_platform
