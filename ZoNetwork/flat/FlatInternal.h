// Inside the flat layer: the bound resolver for the library's own callers,
// the library's IPv4 resolver, the Windows version rule of the local-socket
// decision, descriptor-set helpers, and the hooks the tests use to reach
// states and failure paths a normal process passes only once or never. Not
// installed, not exported: the tests reach it through the static twin of the
// library.
#ifndef ZONETWORK_FLAT_FLATINTERNAL_H
#define ZONETWORK_FLAT_FLATINTERNAL_H

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetAddr.h"
#include <netdb.h>
#include <stdint.h>
#include <sys/socket.h>

#include <atomic>




namespace zonet_internal {

using GetAddrInfoFn = int (*)(const char* node, const char* service, const struct addrinfo* hints,
                              struct addrinfo** result);
using GetNameInfoFn = int (*)(const struct sockaddr* addr, socklen_t length, char* host, socklen_t hostLength,
                              char* service, socklen_t serviceLength, int flags);
using FreeAddrInfoFn = void (*)(struct addrinfo* list);

// ---- the resolver binding ----

// Hints for a stream/TCP look-up with these flags and family, every other
// field zero: what every resolution of the library asks.
struct addrinfo TcpStreamHints(int flags, int family);

// The resolver functions every caller inside the library uses: the system's,
// found at the first call, or the library's own when the system lacks one of
// the three. The three always belong together.
GetAddrInfoFn ResolverGetAddrInfo();
GetNameInfoFn ResolverGetNameInfo();
FreeAddrInfoFn ResolverFreeAddrInfo();

// The library's own IPv4-only resolver, which stands in for the system's.
// Errors are the EAI_* codes of the same meaning as the system's resolver.
int FallbackGetAddrInfo(const char* node, const char* service, const struct addrinfo* hints,
                        struct addrinfo** result);
int FallbackGetNameInfo(const struct sockaddr* addr, socklen_t length, char* host, socklen_t hostLength,
                        char* service, socklen_t serviceLength, int flags);
void FallbackFreeAddrInfo(struct addrinfo* list);

// Test hooks. Forcing puts the library's own three in place at once and keeps
// them until the binding is reset; a reset makes the next call bind afresh.
void ForceResolverFallbacks();
void ResetResolverBinding();
// Whether the three in use are the library's own (binds first if needed).
bool ResolverUsesFallbacks();
// Whether the three in use are those the platform's own look-up found (binds
// first if needed): false with the library's own three and with what a test's
// look-up gave. Only then may a numeric text skip the resolver's list, since
// the answer must be the one that resolver would give.
bool ResolverIsThePlatforms();
// The same without a call once the platform's three are bound: the short
// way of a numeric parse is only a few calls long, and this would be one
// more.
extern std::atomic<int> g_platformRows;
inline bool ResolverIsThePlatformsQuick() {
  return g_platformRows.load(std::memory_order_relaxed) != 0 || ResolverIsThePlatforms();
}
// Replaces how the binding finds a function by name (null: the platform's),
// so that a test can show what happens when the system lacks one. Takes
// effect at the next binding; reset the binding around it.
using ResolverLookupFn = void* (*)(const char* name);
void SetResolverLookup(ResolverLookupFn lookup);

// ---- once-only states of the address model ----

// Whether the four bytes at the place of the IPv4 address in addr are those
// of the collision sentinel, 127.0.53.53 (parsed at the first call). For an
// IPv6 record that place is the flow label, which never matches.
bool MatchesCollisionSentinel(const ZONET_SockAddr* addr);
// Puts the collision sentinel back to "not parsed".
void ResetCollisionSentinel();
// Whether the collision sentinel has been parsed.
bool CollisionSentinelReady();

// ---- numeric text to a record ----

// ZONET_str2ip by the resolver's list alone, never the short way for the
// common forms; what the short way must agree with.
int Str2ipFullPath(const char* text, ZONET_SockAddr* addr);
// The short way alone: for a dotted quad or an IPv6 text of hexadecimal
// groups only (no dotted tail, no scope), and only while the platform's own
// resolver is bound, fills addr, makes the collision test and sets *result as
// ZONET_str2ip would, and gives true. Otherwise false, with nothing written.
bool Str2ipCommonForm(const char* text, ZONET_SockAddr* addr, int* result);

// ---- the local-socket decision ----

// The rule of the other platform, where the system's version decides:
// Windows 10 (major 10 or later) from build 17763 with update revision 2210,
// or any later build. 1 supported, 0 not.
int UnixSocketsSupportedByVersion(uint32_t major, uint32_t ubr, uint32_t build);
// Puts the decision back to "not decided".
void ResetUnixSocketsDecision();
// How many times this process has tried a local socket to decide.
int UnixSocketTrials();

// ---- descriptor sets and socket pairs ----
// Makes the mask of an allocated set cover at least bits descriptors, so that
// select may be handed nfds up to bits. 0, or -1 when memory fails or the set
// is not allocated.
int FdsetCoverBits(xnfdset_t* set, int bits);

// Makes the nth heap allocation of descriptor-set storage from now fail (1:
// the next one), so that a test can reach a failure half-way through an
// operation that needs two blocks; 0 turns it off.
void FailFdsetAllocation(int nth);

// The steps of building a socket pair, in the order they run.
enum SocketPairStep {
  kPairNoStep = 0,
  kPairListenerSocket,
  kPairBind,
  kPairListen,
  kPairGetSockName,
  kPairClientSocket,
  kPairConnect,
  kPairAccept,
  kPairClientNonBlocking,
  kPairServerNonBlocking
};

// Makes step give error (after it has run, so that what it opened stays to be
// cleaned up) on every address tried; kPairNoStep turns this off.
void SetSocketPairFailure(SocketPairStep step, int error);

// Replaces the resolution of "localhost" for socket pairs; NULL restores
// ZONET_name2ip. The list given back is released with ZONET_freehostent, so
// its array must come from malloc.
typedef int (*SocketPairResolver)(const char* name, ZONET_HostEnt* hostEnt, int family);
void SetSocketPairResolver(SocketPairResolver resolver);

}  // namespace zonet_internal

#endif  // ZONETWORK_FLAT_FLATINTERNAL_H
