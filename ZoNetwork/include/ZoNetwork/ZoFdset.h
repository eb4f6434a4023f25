/**
 * @file
 * Descriptor sets that grow past the 1024 descriptors of a plain fd_set.
 *
 * A set keeps two things side by side: the select mask (one bit per
 * descriptor, handed to select as an fd_set pointer) and the list of members
 * in the order they were added. The list holds up to 1024 members in the
 * record itself and grows once, straight to the set's limit, onto the heap;
 * the limit comes from a process-wide value (8192 unless changed). The mask
 * covers descriptors below 1024 in the record itself and moves to a heap mask
 * as soon as a higher descriptor is added. So a set on the stack takes no
 * heap memory for up to 1024 members below descriptor 1024.
 *
 * The flat functions have C linkage and compile as C; the class ZoFdset below
 * gives the same with CZoError results and lazy set-up.
 */
#ifndef ZONETWORK_ZOFDSET_H
#define ZONETWORK_ZOFDSET_H

#include <stdint.h>

#ifndef _WIN32
#include <sys/select.h>
#endif

#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoNetworkExport.h"

#ifdef __cplusplus
#include "ZoUtils/ZoError.h"
extern "C" {
#endif

/** Members the record holds without heap memory. */
#define XNFDSET_INLINE_MEMBERS 1024
/** Descriptors the record's own mask covers. */
#define XNFDSET_INLINE_BITS 1024
/** The process-wide limit at start. */
#define XNFDSET_DEFAULT_MAXSOCK 8192

/** A growable descriptor set: a select mask and the list of members in the
 * order they were added. Allocate with xnfdset_alloc, release with
 * xnfdset_free; the fields are read-only to callers. */
typedef struct xnfdset_t {
  /** The mask in use: &inline_set or a heap mask; NULL when not allocated. */
  fd_set* set_ptr;
  /** The mask for descriptors 0 to 1023. */
  fd_set inline_set;
  /** Members that may be held now: 1024 at first, the limit once grown. */
  uint32_t capacity;
  /** Members the set may grow to, at least 1024. */
  uint32_t limit;
  /** -1; written by clearing and copying, raised by nothing. */
  int64_t maxfd;
  /** Members now in the list. */
  uint32_t count;
  /** Descriptors the mask in set_ptr covers (a multiple of 64). */
  uint32_t mask_bits;
  /** The member list in use: inline_members or a heap list of limit entries. */
  int* members;
  /** The record's own member list, used until the set grows. */
  int inline_members[XNFDSET_INLINE_MEMBERS];
} xnfdset_t;

/** Makes set an empty set whose list may grow to size members (at least
 * 1024). Takes no heap memory. 0, or -1 for a NULL set. */
ZONET_API int xnfdset_alloc(int size, xnfdset_t* set);
/** Releases any heap list and mask; the set must be allocated again before
 * use. Harmless on NULL and on a freed set. */
ZONET_API void xnfdset_free(xnfdset_t* set);
/** Empties the list and the mask; storage and capacity stay. */
ZONET_API void xnfdset_zero(xnfdset_t* set);
/** Adds sock at the end of the list (once only) and sets its bit. 0; -2 for a
 * NULL or unallocated set; -1 when the list is full or heap memory fails; -3
 * when sock is not a descriptor (above INT_MAX). */
ZONET_API int xnfdset_set(ZONET_SOCKET sock, xnfdset_t* set);
/** Takes sock out, keeping the order of the rest. 0 (also when sock was not
 * there); -2 for a NULL or unallocated set. */
ZONET_API int xnfdset_clr(ZONET_SOCKET sock, xnfdset_t* set);
/** Reads sock's bit in the mask, so after select whether it is ready: 1 or 0;
 * -2 for a NULL or unallocated set. */
ZONET_API int xnfdset_isset(ZONET_SOCKET sock, xnfdset_t* set);
/** Copies source's members, mask, capacity and maxfd into destination. 0, or -1
 * when either is NULL or unallocated, when source's capacity is beyond
 * destination's limit, or when heap memory fails. */
ZONET_API int xnfdset_copy_fdset(xnfdset_t* destination, const xnfdset_t* source);
/** The mask for select, or NULL for a NULL or unallocated set. It covers
 * set->mask_bits descriptors. */
ZONET_API fd_set* xnfdset_get_fdsetp(xnfdset_t* set);
/** -1 for a NULL, unallocated or empty set; otherwise 1 (not a descriptor). */
ZONET_API int64_t xnfdset_get_maxfd(const xnfdset_t* set);
/** The process-wide limit given to sets allocated from now on. */
ZONET_API int xnfdset_maxsock_get(void);
/** Sets the limit, without checks; meant for start-up. */
ZONET_API void xnfdset_maxsock_set(int size);

#ifdef __cplusplus
}

/**
 * A descriptor set that sets itself up at its first use, with the
 * process-wide limit. Copies are deep. Failures come back as CZoError with
 * code ZONET_ERR_INVALID_STATE, or ZONET_ERR_OUTOFMEMORY when set-up fails.
 */
class ZONET_API ZoFdset : public xnfdset_t {
public:
  /// A set that is not set up yet; it takes no memory until its first use.
  ZoFdset();
  /// A deep copy of other: same members, mask and capacity. When memory
  /// fails the copy is left not set up.
  ZoFdset(const ZoFdset& other);
  /// Makes this set a deep copy of other, as the copy constructor.
  ZoFdset& operator=(const ZoFdset& other);
  /// Releases the set's heap list and mask.
  ~ZoFdset();

  /// Frees what is allocated and allocates anew with maxsock_get().
  /// Failure: ZONET_ERR_OUTOFMEMORY, "Error allocating fdset".
  CZoError init();
  /// Adds sock, setting the set up first when needed. Failure:
  /// ZONET_ERR_INVALID_STATE, "Specified fd set is already full; Set size of
  /// %u" when full, or a text for a bad set or handle; ZONET_ERR_OUTOFMEMORY
  /// when set-up fails.
  CZoError set(ZONET_SOCKET sock);
  /// Takes sock out (success when it was not there), setting the set up
  /// first when needed. Failure: ZONET_ERR_INVALID_STATE for a bad set;
  /// ZONET_ERR_OUTOFMEMORY when set-up fails.
  CZoError clr(ZONET_SOCKET sock);
  /// As xnfdset_isset; sets the record up first when needed.
  int is_set(ZONET_SOCKET sock);
  /// Empties the set, setting it up first when needed.
  void zero();
  /// The mask for select (as xnfdset_get_fdsetp), setting the set up first
  /// when needed; NULL when set-up fails.
  fd_set* get_fdsetp();
  /// All ones when empty, else 1.
  uint64_t get_maxfd();
  /// Whether the set has been set up (by init() or a first use).
  bool IsInitialized() const { return m_bInitialized; }

  /// The process-wide limit, as xnfdset_maxsock_get.
  static int maxsock_get();
  /// Sets the process-wide limit, as xnfdset_maxsock_set; meant for start-up.
  static void maxsock_set(int size);

private:
  void __copy(const ZoFdset& other);

  bool m_bInitialized;
};

#endif /* __cplusplus */

#endif /* ZONETWORK_ZOFDSET_H */
