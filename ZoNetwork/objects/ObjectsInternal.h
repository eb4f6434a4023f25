// Hooks of the objects layer for the library's own tests: the blacklist's
// clock and the selector's wait. Not installed and not exported: tests reach
// them through the static twin.
#ifndef ZONETWORK_OBJECTS_OBJECTSINTERNAL_H
#define ZONETWORK_OBJECTS_OBJECTSINTERNAL_H

#include <ctime>

#include "ZoUtils/ZoError.h"


namespace zonet_internal {

// The clock of the blacklist, in seconds since the epoch. A null clock puts
// the wall clock back.
using BlacklistClock = time_t (*)();
void SetBlacklistClock(BlacklistClock clock);

// What the blacklist takes as "now": the hooked clock or the wall clock.
time_t BlacklistNow();

// Makes the nth new blacklist entry from now fail to be stored, as when
// memory runs out (1: the next one); 0 turns it off. A report that only
// refreshes a listed entry needs no memory and does not count.
void FailBlacklistEntryAllocation(int nth);

// ---- the selector ----
// Makes every CZoSocketSelector::Select of the process skip the wait and act
// as if it had failed with error while the system's last error read
// lastError. error 0 turns this off.
void SetSelectorWaitFailure(int error, int lastError);

// ---- interface discovery ----
// What the adapter query of CZoIPAddr::GetIFList and GetMACList meets in
// place of the system while set: the outcomes a real machine seldom shows.
enum class IfQueryFault {
  kNone,             // the system answers
  kSizeQueryFails,   // the size query answers code (0 too: a query that succeeds at once)
  kNoAdapters,       // the size query finds no adapter
  kAllocationFails,  // the buffer for the list cannot be had
  kFetchFails,       // the fetch answers code
  kForeignFamily,    // the first address of each adapter reads as family AF_UNIX
};
// Sets the fault for every query of the process until it is set to kNone.
void SetIfQueryFault(IfQueryFault fault, int code = 0);

// ---- the QoS binding ----
// How many times the QoS loader has been constructed in this process (1 once
// any wrapper has run, whatever the number of threads that raced to it).
int QosLoaderBuilds();
// The loader's kept load result; builds the loader if no wrapper has yet.
CZoError QosLoaderResult();
// ---- ping ----
// The Internet checksum as CZoPing computes it: 16-bit words in the
// machine's order, a last odd byte added as it is, folded twice and
// complemented.
unsigned short PingChecksum(const void* data, int size);

}  // namespace zonet_internal

#endif  // ZONETWORK_OBJECTS_OBJECTSINTERNAL_H
