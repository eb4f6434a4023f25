// Hooks of the objects layer for the library's own tests: the blacklist's
// clock and the selector's wait. Not installed and not exported: tests reach
// them through the static twin.
#ifndef ZONETWORK_OBJECTS_OBJECTSINTERNAL_H
#define ZONETWORK_OBJECTS_OBJECTSINTERNAL_H

#include <ctime>


namespace zonet_internal {

// The clock of the blacklist, in seconds since the epoch. A null clock puts
// the wall clock back.
using BlacklistClock = time_t (*)();
void SetBlacklistClock(BlacklistClock clock);

// What the blacklist takes as "now": the hooked clock or the wall clock.
time_t BlacklistNow();

// ---- the selector ----
// Makes every CZoSocketSelector::Select of the process skip the wait and act
// as if it had failed with error while the system's last error read
// lastError. error 0 turns this off.
void SetSelectorWaitFailure(int error, int lastError);

// ---- ping ----
// The Internet checksum as CZoPing computes it: 16-bit words in the
// machine's order, a last odd byte added as it is, folded twice and
// complemented.
unsigned short PingChecksum(const void* data, int size);

}  // namespace zonet_internal

#endif  // ZONETWORK_OBJECTS_OBJECTSINTERNAL_H
