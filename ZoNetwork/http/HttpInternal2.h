// Test hooks of the platform HTTP layer's second face and of CZoHTTP2.
// Internal, never exported: tests and fuzz targets link the static twin.
#ifndef ZONET_HTTP_HTTPINTERNAL2_H
#define ZONET_HTTP_HTTPINTERNAL2_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace zonet_internal {

// How many handles of the second face are open now (all threads).
size_t WinHttpOpenHandleCount();

// The time-outs in force on a session or request handle; false for an unknown handle.
bool WinHttpTimeoutsOf(void* handle, int& resolveMs, uint32_t& connectMs, uint32_t& sendMs, uint32_t& receiveMs);

// What a session handle was opened with.
struct WinHttpSessionSettings {
  uint32_t accessType = 0;
  std::string agent, proxy, bypass;
  bool hasProxy = false, hasBypass = false;
};
bool WinHttpSessionOf(void* handle, WinHttpSessionSettings& settings);

// The pause between busy replies of CZoHTTP2 goes through this function
// (milliseconds); null restores the library's sleep. Returns the previous one.
using Http2SleepHook = void (*)(unsigned long milliseconds);
Http2SleepHook SetHttp2SleepHook(Http2SleepHook hook);

// How many times the proxy look-up for one URL asked the layer (the count of
// WinHttpGetProxyForUrl calls since the process started).
unsigned long WinHttpGetProxyForUrlCalls();

// The port that auto-detection asks wpad.<domain> on (80 unless a test sets
// another, so that a PAC server of its own on loopback can answer).
void SetWpadPortForTests(uint16_t port);

// The fetched auto-configuration scripts that the look-up keeps: forgotten
// at once, and kept for another time (returns the previous one).
void ClearProxyScriptCache();
std::chrono::milliseconds SetProxyScriptLifetimeForTests(std::chrono::milliseconds lifetime);

}  // namespace zonet_internal

#endif  // ZONET_HTTP_HTTPINTERNAL2_H
