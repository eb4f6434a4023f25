// Connected socket pairs, built by hand over loopback TCP so that both ends
// are ordinary sockets of an address family the rest of the library knows,
// and select and the time-out functions work on them as on any other.
#include <atomic>

#include "ZoNetwork/ZoNetSocket.h"
#include "flat/FlatInternal.h"

namespace {

// Test hooks; both off unless a test sets them.
std::atomic<int> g_failStep{zonet_internal::kPairNoStep};
std::atomic<int> g_failError{0};
std::atomic<zonet_internal::SocketPairResolver> g_resolver{nullptr};

// The step's own result, or the error a test asked this step to give.
int Step(zonet_internal::SocketPairStep step, int rc) {
  if (rc == 0 && g_failStep.load(std::memory_order_relaxed) == step) return g_failError.load(std::memory_order_relaxed);
  return rc;
}

void CloseIfValid(ZONET_SOCKET sock) {
  if (sock != ZONET_INVALID_SOCKET) (void)ZONET_close(sock);
}

// Tries one address of "localhost". 0 with the two ends, or the error of the
// step that failed, with everything this attempt opened closed again.
int TryAddress(const ZONET_SockAddr& record, ZONET_SOCKET sockets[2]) {
  using namespace zonet_internal;
  ZONET_SOCKET listener = ZONET_INVALID_SOCKET;
  ZONET_SOCKET client = ZONET_INVALID_SOCKET;
  ZONET_SOCKET server = ZONET_INVALID_SOCKET;
  ZONET_SockAddr addr = record;

  // Port 0, as the list gives it: the system picks one.
  int rc = Step(kPairListenerSocket, ZONET_socket(addr.family, &listener));
  if (rc == 0) rc = Step(kPairBind, ZONET_bind(listener, &addr));
  if (rc == 0) rc = Step(kPairListen, ZONET_listen(listener, 5));
  // Back into the address, for the port that was picked.
  if (rc == 0) rc = Step(kPairGetSockName, ZONET_getsockname(listener, &addr));
  if (rc == 0) rc = Step(kPairClientSocket, ZONET_socket(addr.family, &client));
  if (rc == 0) rc = Step(kPairConnect, ZONET_connect(client, &addr));
  if (rc == 0) rc = Step(kPairAccept, ZONET_accept(listener, &server, &addr));
  if (rc == 0) rc = Step(kPairClientNonBlocking, ZONET_setnonblocking(client));
  // Also the test of the accept: a failed one left an invalid handle, which
  // this refuses.
  if (rc == 0) rc = Step(kPairServerNonBlocking, ZONET_setnonblocking(server));

  if (rc == 0) {
    (void)ZONET_close(listener);
    sockets[0] = client;
    sockets[1] = server;
    return 0;
  }
  CloseIfValid(listener);
  CloseIfValid(client);
  CloseIfValid(server);
  return rc;
}

}  // namespace

namespace zonet_internal {

void SetSocketPairFailure(SocketPairStep step, int error) {
  g_failError.store(error, std::memory_order_relaxed);
  g_failStep.store(step, std::memory_order_relaxed);
}

void SetSocketPairResolver(SocketPairResolver resolver) { g_resolver.store(resolver, std::memory_order_relaxed); }

}  // namespace zonet_internal

extern "C" int ZONET_socketpair(ZONET_SOCKET sockets[2]) {
  if (sockets == nullptr) return ZONET_ERR_INVALID_PARAMETER;
  sockets[0] = ZONET_INVALID_SOCKET;
  sockets[1] = ZONET_INVALID_SOCKET;

  const zonet_internal::SocketPairResolver resolver = g_resolver.load(std::memory_order_relaxed);
  ZONET_HostEnt list = {0, nullptr};
  int rc = resolver != nullptr ? resolver("localhost", &list, ZONET_FAMILY_ANY)
                               : ZONET_name2ip("localhost", &list, ZONET_FAMILY_ANY);
  if (rc != 0) return rc;

  // Stands when the list is empty.
  rc = ZONET_ERR_NO_ADDRESS;
  // In the list's order, so the host's own preference picks the family.
  for (uint32_t i = 0; i < list.count; ++i) {
    rc = TryAddress(list.addrs[i], sockets);
    if (rc == 0) break;
  }
  ZONET_freehostent(&list);
  return rc;
}
