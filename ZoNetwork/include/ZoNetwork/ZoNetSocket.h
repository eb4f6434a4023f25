/**
 * @file
 * The flat socket interface: creating, binding, connecting, listening on,
 * accepting on, configuring, feeding and reading sockets, select, the two
 * watch callbacks and connected socket pairs. C linkage; compiles as C and as
 * C++.
 *
 * Every function that returns int returns 0 for success or the errno of the
 * system call that failed, unless its comment says otherwise. A pointer that a
 * function needs and that is NULL gives ZONET_ERR_INVALID_PARAMETER (EINVAL)
 * and nothing is done. A handle that cannot be a descriptor (above INT_MAX,
 * the invalid handle included) gives EBADF, as the kernel would.
 *
 * Lengths and counts are int, as the object layer above has them; a negative
 * length gives EINVAL. Time-outs are whole seconds, and 0 or less means no
 * limit. Sends never raise SIGPIPE: a peer that has gone away gives EPIPE.
 */
#ifndef ZONETWORK_ZONETSOCKET_H
#define ZONETWORK_ZONETSOCKET_H

#ifndef _WIN32
#include <sys/select.h>
#include <sys/time.h>
#endif

#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoNetworkExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A watch callback: gets the socket that is about to be closed or listened on. */
typedef void (*ZONET_SOCKCB)(ZONET_SOCKET);

/* ---- creation ---- */

/** A stream socket (TCP for IPv4/IPv6) of family. *sock gets the handle, the
 * invalid one on failure. */
ZONET_API int ZONET_socket(int family, ZONET_SOCKET* sock);
/** A datagram socket over UDP of family. */
ZONET_API int ZONET_dgramsocket(int family, ZONET_SOCKET* sock);
/** A raw ICMP socket of family (ICMPv6 for IPv6); needs CAP_NET_RAW. */
ZONET_API int ZONET_icmpsocket(int family, ZONET_SOCKET* sock);

/* ---- addresses and connections ---- */

/** Binds to addr with the record's actual length (a local path: path + 3). */
ZONET_API int ZONET_bind(ZONET_SOCKET sock, const ZONET_SockAddr* addr);
/** Calls the listen callback when one is set, then listen. */
ZONET_API int ZONET_listen(ZONET_SOCKET sock, int backlog);
/**
 * Fills addr with the listening socket's own address, then accepts, the
 * peer's address overwriting it. A failure of getsockname is returned. A
 * failure of accept itself is NOT an error: *newSock is then the invalid
 * handle and the result is 0, so the caller tests *newSock.
 */
ZONET_API int ZONET_accept(ZONET_SOCKET sock, ZONET_SOCKET* newSock, ZONET_SockAddr* addr);
/** Connects to addr with the record's actual length. */
ZONET_API int ZONET_connect(ZONET_SOCKET sock, const ZONET_SockAddr* addr);
/** Calls the close callback when one is set (even for an invalid handle), then
 * closes. Returns close's own 0 or -1, not an error number. */
ZONET_API int ZONET_close(ZONET_SOCKET sock);
/** how: SHUT_RD (0), SHUT_WR (1) or SHUT_RDWR (2). */
ZONET_API int ZONET_shutdown(ZONET_SOCKET sock, int how);
/** The socket's own address. Length 0 gives an empty local record; an unnamed
 * local socket gives an empty path; a local path is always terminated. */
ZONET_API int ZONET_getsockname(ZONET_SOCKET sock, ZONET_SockAddr* addr);
/** The peer's address, repaired as in ZONET_getsockname. */
ZONET_API int ZONET_getpeername(ZONET_SOCKET sock, ZONET_SockAddr* addr);

/* ---- options ---- */

/** The socket's family (a ZONET_FAMILY_* value), or -1 when it cannot be read. */
ZONET_API int ZONET_getsockfamily(ZONET_SOCKET sock);
/** getsockopt; *length is the size of value in and the size written out. */
ZONET_API int ZONET_getsockopt(ZONET_SOCKET sock, int level, int name, void* value, int* length);
/** setsockopt with length bytes of value. */
ZONET_API int ZONET_setsockopt(ZONET_SOCKET sock, int level, int name, const void* value, int length);
/** ioctl with an int-sized argument, e.g. FIONBIO or FIONREAD. */
ZONET_API int ZONET_ioctl(ZONET_SOCKET sock, unsigned long command, int* argument);
/** Makes the socket blocking (FIONBIO off). */
ZONET_API int ZONET_setblocking(ZONET_SOCKET sock);
/** Makes the socket non-blocking (FIONBIO on). */
ZONET_API int ZONET_setnonblocking(ZONET_SOCKET sock);
/** Keep-alive on, first probe after idleSeconds of silence, then one every
 * intervalSeconds. */
ZONET_API int ZONET_settcpkeepaliveoptions(ZONET_SOCKET sock, int idleSeconds, int intervalSeconds);

/* ---- waiting ---- */

/**
 * select over plain masks. *ready (when not NULL) gets the number of ready
 * descriptors. The kernel reads and writes nfds bits of every set given, so
 * each must hold at least nfds bits: true of any fd_set for nfds <= 1024, and
 * of a descriptor-set record only up to the descriptors it holds. For sets
 * that may be shorter than nfds use ZONET_selectfdsets. On Linux select writes
 * the time left into *timeout.
 */
ZONET_API int ZONET_select(int nfds, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, struct timeval* timeout,
                           int* ready);
/**
 * select over descriptor-set records (any of them NULL): each mask is first
 * made to cover nfds bits, so that any nfds is safe. ENOMEM when a mask cannot
 * grow, EINVAL for a record that is not allocated.
 */
ZONET_API int ZONET_selectfdsets(int nfds, xnfdset_t* readSet, xnfdset_t* writeSet, xnfdset_t* exceptSet,
                                 struct timeval* timeout, int* ready);

/* ---- data ---- */

/** Sends all length bytes. *sent counts what went out. A send of 0 bytes ends
 * the loop with success and a short count; an error ends it at once. */
ZONET_API int ZONET_send(ZONET_SOCKET sock, const void* buffer, int length, int* sent, int flags);
/** Receives until length bytes came. A closed peer ends it with success and a
 * short count. With MSG_PEEK the peek is repeated until one peek gives all
 * length bytes (or the peer closes, or an error comes). */
ZONET_API int ZONET_recv(ZONET_SOCKET sock, void* buffer, int length, int* received, int flags);
/**
 * As ZONET_send, with the whole transfer limited to timeout seconds on a
 * whole-second clock, waiting in one-second slices: *timedOut becomes 1 at the
 * first tick after more than timeout seconds, with 0 as result and *sent as
 * far as it got. After each wait only what fits is sent, so even a blocking
 * socket never waits past the limit. timeout <= 0 is ZONET_send.
 */
ZONET_API int ZONET_sendwithtimeout(ZONET_SOCKET sock, const void* buffer, int length, int* sent, int timeout,
                                    int* timedOut, int flags);
/** The receiving twin of ZONET_sendwithtimeout. */
ZONET_API int ZONET_recvwithtimeout(ZONET_SOCKET sock, void* buffer, int length, int* received, int timeout,
                                    int* timedOut, int flags);
/** One sendto of a whole datagram to addr, after waiting for the socket to be
 * writable when timeout > 0. The address length is 16 for IPv4, otherwise the
 * whole record. */
ZONET_API int ZONET_sendtoicmpsocket(ZONET_SOCKET sock, const ZONET_SockAddr* addr, const void* buffer, int length,
                                     int* sent, int flags, int timeout, int* timedOut);
/** One recvfrom into buffer, after waiting for data when timeout > 0. addr's
 * family sets the address length as for sending; the sender is written there. */
ZONET_API int ZONET_recvfromicmpsocket(ZONET_SOCKET sock, ZONET_SockAddr* addr, void* buffer, int length,
                                       int* received, int flags, int timeout, int* timedOut);

/* ---- watch callbacks (process-wide, set during start-up; NULL clears) ---- */

/** Sets the callback that ZONET_close calls with the socket before closing
 * it; NULL clears it. Process-wide, meant for start-up. */
ZONET_API void ZONET_setclosecb(ZONET_SOCKCB callback);
/** Sets the callback that ZONET_listen calls with the socket before listening;
 * NULL clears it. Process-wide, meant for start-up. */
ZONET_API void ZONET_setlistencb(ZONET_SOCKCB callback);

/* ---- socket pairs ---- */

/**
 * Two connected, non-blocking TCP sockets over loopback, built through the
 * addresses of "localhost" in order. sockets[0] is the connecting end,
 * sockets[1] the accepted end; both are invalid on failure. The result is the
 * error of ZONET_name2ip, ZONET_ERR_NO_ADDRESS for an empty list, or the error
 * of the step that failed on the last address. No listener stays open.
 */
ZONET_API int ZONET_socketpair(ZONET_SOCKET sockets[2]);

#ifdef __cplusplus
}
#endif

#endif /* ZONETWORK_ZONETSOCKET_H */
