// The Linux side of ping: the numbers of the time-to-live option. Linux
// numbers IP_TTL differently from the other platform, so it goes by name.
#include "objects/ObjectsPlatform.h"

#include <netinet/in.h>

namespace zonet_platform {

int PingIpLevel() { return IPPROTO_IP; }

int PingTtlOption() { return IP_TTL; }

}  // namespace zonet_platform
