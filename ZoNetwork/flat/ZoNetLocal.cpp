// Whether this process may use local (Unix-domain) sockets: decided once, at
// the first question, and switched off for good on request.
#include <atomic>

#include "flat/FlatInternal.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "flat/FlatPlatform.h"

namespace {

constexpr int kUndecided = -1;
constexpr int kUnsupported = 0;
constexpr int kSupported = 1;

// -1 until decided, then 0 or 1. No lock: two first questions at once both
// try and come to the same answer.
std::atomic<int> g_unixSockets{kUndecided};
std::atomic<int> g_trials{0};

// The first build of the other platform whose local sockets can be relied
// on, and the update that mended it.
constexpr uint32_t kFirstMajor = 10;
constexpr uint32_t kMendedBuild = 17763;
constexpr uint32_t kMendedRevision = 2210;

}  // namespace

namespace zonet_internal {

int UnixSocketsSupportedByVersion(uint32_t major, uint32_t ubr, uint32_t build) {
  if (major < kFirstMajor) return kUnsupported;
  if (build > kMendedBuild) return kSupported;
  if (build == kMendedBuild && ubr >= kMendedRevision) return kSupported;
  return kUnsupported;
}

void ResetUnixSocketsDecision() { g_unixSockets.store(kUndecided, std::memory_order_relaxed); }

int UnixSocketTrials() { return g_trials.load(std::memory_order_relaxed); }

}  // namespace zonet_internal

extern "C" {

ZONET_API int ZONET_AreUnixSocketsSupported(void) {
  int state = g_unixSockets.load(std::memory_order_relaxed);
  if (state == kSupported || state == kUnsupported) return state;

  // Linux has no version register to read: a local socket is tried, the
  // step the other platform falls back to when its register is silent.
  g_trials.fetch_add(1, std::memory_order_relaxed);
  int decided = zonet_platform::CanOpenLocalSocket() ? kSupported : kUnsupported;
  // Only an undecided state takes the answer, so a switch-off that came
  // meanwhile is never overwritten.
  int expected = kUndecided;
  if (g_unixSockets.compare_exchange_strong(expected, decided, std::memory_order_relaxed)) return decided;
  return expected;
}

ZONET_API void ZONET_DisableUnixSockets(void) { g_unixSockets.store(kUnsupported, std::memory_order_relaxed); }

}  // extern "C"
