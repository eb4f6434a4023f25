/* The flat socket headers from C: a socket pair over loopback, one message
 * across it and back through the time-out and descriptor-set calls. */
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoNetSocket.h"

static int fail(const char* what, int rc) {
  fprintf(stderr, "%s failed: %d\n", what, rc);
  return 1;
}

int main(void) {
  ZONET_SOCKET pair[2];
  const char message[] = "hello from C";
  char buffer[sizeof(message)];
  int sent = 0, received = 0, timedOut = 0, ready = 0, rc;
  xnfdset_t set;
  struct timeval wait = {5, 0};

  rc = ZONET_socketpair(pair);
  if (rc != 0) return fail("ZONET_socketpair", rc);
  if (ZONET_getsockfamily(pair[0]) != ZONET_FAMILY_IPV4 && ZONET_getsockfamily(pair[0]) != ZONET_FAMILY_IPV6)
    return fail("ZONET_getsockfamily", ZONET_getsockfamily(pair[0]));

  rc = ZONET_send(pair[0], message, (int)sizeof(message), &sent, 0);
  if (rc != 0 || sent != (int)sizeof(message)) return fail("ZONET_send", rc);

  if (xnfdset_alloc(xnfdset_maxsock_get(), &set) != 0) return fail("xnfdset_alloc", -1);
  if (xnfdset_set(pair[1], &set) != 0) return fail("xnfdset_set", -1);
  rc = ZONET_selectfdsets((int)pair[1] + 1, &set, NULL, NULL, &wait, &ready);
  if (rc != 0 || ready != 1 || xnfdset_isset(pair[1], &set) != 1) return fail("ZONET_selectfdsets", rc);
  xnfdset_free(&set);

  rc = ZONET_recvwithtimeout(pair[1], buffer, (int)sizeof(buffer), &received, 5, &timedOut, 0);
  if (rc != 0 || timedOut != 0 || received != (int)sizeof(message)) return fail("ZONET_recvwithtimeout", rc);
  if (memcmp(buffer, message, sizeof(message)) != 0) return fail("message", 0);

  /* Both ends are non-blocking: nothing more to read. */
  rc = ZONET_recv(pair[1], buffer, 1, &received, 0);
  if (rc != EAGAIN) return fail("ZONET_recv on an empty pair", rc);

  if (ZONET_close(pair[0]) != 0 || ZONET_close(pair[1]) != 0) return fail("ZONET_close", -1);
  printf("flat C: %s\n", buffer);
  return 0;
}
