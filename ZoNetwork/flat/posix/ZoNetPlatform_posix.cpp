// The POSIX side of ZoNetwork's platform face.
#include "flat/FlatPlatform.h"

#include <atomic>

namespace zonet_platform {

namespace {
std::atomic<int> g_starts{0};
}

int SocketLayerStart() {
  g_starts.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

void SocketLayerEnd() { g_starts.fetch_sub(1, std::memory_order_relaxed); }

int SocketLayerStarts() { return g_starts.load(std::memory_order_relaxed); }

}  // namespace zonet_platform
