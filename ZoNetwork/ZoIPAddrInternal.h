// Hooks of the address object and the blacklist for the library's own tests.
// Not installed and not exported: tests reach them through the static twin.
#ifndef ZONETWORK_ZOIPADDRINTERNAL_H
#define ZONETWORK_ZOIPADDRINTERNAL_H

#include <ctime>

namespace zonet_internal {

// The clock of the blacklist, in seconds since the epoch. A null clock puts
// the wall clock back.
using BlacklistClock = time_t (*)();
void SetBlacklistClock(BlacklistClock clock);

// What the blacklist takes as "now": the hooked clock or the wall clock.
time_t BlacklistNow();

}  // namespace zonet_internal

#endif  // ZONETWORK_ZOIPADDRINTERNAL_H
