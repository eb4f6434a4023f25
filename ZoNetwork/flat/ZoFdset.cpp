// Descriptor sets: a select mask with the member list beside it.
//
// The list keeps what callers count on (members in order of adding, no
// duplicates, a capacity that grows once to the limit, the limit's messages);
// the mask is what select reads and writes. The two grow independently: the
// list when it is full, the mask when a descriptor beyond it is added.
#include "ZoNetwork/ZoFdset.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include <atomic>

#include "flat/FlatInternal.h"

namespace {

// The process-wide limit. Meant to be set once during start-up; relaxed
// atomic so that a late change is merely seen late, never torn.
std::atomic<int> g_maxsock{XNFDSET_DEFAULT_MAXSOCK};

// Counts down to an allocation the tests want to fail; 0 when none.
std::atomic<int> g_failAllocationIn{0};

// Every heap block of a set comes from here.
void* SetCalloc(size_t count, size_t size) {
  int left = g_failAllocationIn.load(std::memory_order_relaxed);
  while (left > 0 && !g_failAllocationIn.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
  }
  if (left == 1) return nullptr;
  return std::calloc(count, size);
}

typedef unsigned long MaskWord;
const unsigned kWordBits = sizeof(MaskWord) * CHAR_BIT;
// The largest mask ever needed: one bit for every int descriptor.
const uint64_t kMaxMaskBits = uint64_t(INT_MAX) + 1;

// The mask as words. A heap mask runs past the end of fd_set's own array, so
// it is addressed through a plain pointer rather than fds_bits[].
inline MaskWord* Words(fd_set* mask) { return reinterpret_cast<MaskWord*>(mask); }

inline bool MaskHas(const xnfdset_t* set, int fd) {
  if (static_cast<uint32_t>(fd) >= set->mask_bits) return false;
  return (Words(set->set_ptr)[fd / kWordBits] >> (fd % kWordBits)) & 1UL;
}

inline void MaskAdd(xnfdset_t* set, int fd) { Words(set->set_ptr)[fd / kWordBits] |= 1UL << (fd % kWordBits); }

inline void MaskRemove(xnfdset_t* set, int fd) {
  if (static_cast<uint32_t>(fd) < set->mask_bits) Words(set->set_ptr)[fd / kWordBits] &= ~(1UL << (fd % kWordBits));
}

inline bool UsesInlineMask(const xnfdset_t* set) { return set->set_ptr == &set->inline_set; }
inline bool UsesInlineList(const xnfdset_t* set) { return set->members == set->inline_members; }

// A handle as a descriptor, or -1 when it cannot be one.
inline int AsDescriptor(ZONET_SOCKET sock) { return sock <= ZONET_SOCKET(INT_MAX) ? static_cast<int>(sock) : -1; }

// Grows the mask to cover at least bits descriptors, doubling so that a run
// of rising descriptors moves the mask only a few times. 0 or -1.
uint64_t DoubledBits(uint64_t have, uint64_t bits) {
  while (have < bits) have *= 2;
  return have;
}

int GrowMask(xnfdset_t* set, uint64_t bits) {
  if (bits <= set->mask_bits) return 0;
  if (bits > kMaxMaskBits) return -1;
  const uint64_t newBits = DoubledBits(set->mask_bits, bits);
  void* block = SetCalloc(1, static_cast<size_t>(newBits / CHAR_BIT));
  if (block == nullptr) return -1;
  std::memcpy(block, set->set_ptr, set->mask_bits / CHAR_BIT);
  if (!UsesInlineMask(set)) std::free(set->set_ptr);
  set->set_ptr = static_cast<fd_set*>(block);
  set->mask_bits = static_cast<uint32_t>(newBits);
  return 0;
}

// Moves a full inline list onto the heap at the set's limit, once, keeping
// its members. 0 or -1.
int GrowList(xnfdset_t* set) {
  int* block = static_cast<int*>(SetCalloc(set->limit, sizeof(int)));
  if (block == nullptr) return -1;
  std::memcpy(block, set->members, set->count * sizeof(int));
  set->members = block;
  set->capacity = set->limit;
  return 0;
}

}  // namespace

namespace zonet_internal {

void FailFdsetAllocation(int nth) { g_failAllocationIn.store(nth < 0 ? 0 : nth, std::memory_order_relaxed); }

int FdsetCoverBits(xnfdset_t* set, int bits) {
  if (set == nullptr || set->set_ptr == nullptr) return -1;
  if (bits <= 0) return 0;
  return GrowMask(set, static_cast<uint64_t>(bits));
}

}  // namespace zonet_internal

extern "C" {

int xnfdset_alloc(int size, xnfdset_t* set) {
  if (set == nullptr) return -1;
  if (size < XNFDSET_INLINE_MEMBERS) size = XNFDSET_INLINE_MEMBERS;
  // The inline list needs no clearing: nothing past count is ever read.
  std::memset(&set->inline_set, 0, sizeof(set->inline_set));
  set->set_ptr = &set->inline_set;
  set->capacity = XNFDSET_INLINE_MEMBERS;
  set->limit = static_cast<uint32_t>(size);
  set->maxfd = -1;
  set->count = 0;
  set->mask_bits = XNFDSET_INLINE_BITS;
  set->members = set->inline_members;
  return 0;
}

void xnfdset_free(xnfdset_t* set) {
  if (set == nullptr) return;
  if (set->set_ptr != nullptr) {
    if (!UsesInlineMask(set)) std::free(set->set_ptr);
    if (set->members != nullptr && !UsesInlineList(set)) std::free(set->members);
    set->set_ptr = nullptr;
  }
  set->members = nullptr;
  set->count = 0;
  set->mask_bits = 0;
  set->capacity = 0;
  set->maxfd = -1;
}

void xnfdset_zero(xnfdset_t* set) {
  if (set == nullptr || set->set_ptr == nullptr) return;
  set->count = 0;
  set->maxfd = -1;
  std::memset(set->set_ptr, 0, set->mask_bits / CHAR_BIT);
}

int xnfdset_set(ZONET_SOCKET sock, xnfdset_t* set) {
  if (set == nullptr || set->set_ptr == nullptr) return -2;
  const int fd = AsDescriptor(sock);
  if (fd < 0) return -3;
  const int* members = set->members;
  for (uint32_t i = 0; i < set->count; ++i) {
    if (members[i] == fd) {
      // Already a member; select may have cleared its bit since, and adding
      // it again means watching it again.
      MaskAdd(set, fd);
      return 0;
    }
  }
  if (set->count == set->capacity && UsesInlineList(set) && set->capacity < set->limit) {
    if (GrowList(set) != 0) return -1;
  }
  if (set->count >= set->capacity) return -1;
  if (GrowMask(set, static_cast<uint64_t>(fd) + 1) != 0) return -1;
  set->members[set->count++] = fd;
  MaskAdd(set, fd);
  return 0;
}

int xnfdset_clr(ZONET_SOCKET sock, xnfdset_t* set) {
  if (set == nullptr || set->set_ptr == nullptr) return -2;
  const int fd = AsDescriptor(sock);
  if (fd < 0) return 0;
  int* members = set->members;
  for (uint32_t i = 0; i < set->count; ++i) {
    if (members[i] == fd) {
      std::memmove(members + i, members + i + 1, (set->count - i - 1) * sizeof(int));
      --set->count;
      MaskRemove(set, fd);
      return 0;
    }
  }
  return 0;
}

int xnfdset_isset(ZONET_SOCKET sock, xnfdset_t* set) {
  if (set == nullptr || set->set_ptr == nullptr) return -2;
  const int fd = AsDescriptor(sock);
  if (fd < 0) return 0;
  return MaskHas(set, fd) ? 1 : 0;
}

int xnfdset_copy_fdset(xnfdset_t* destination, const xnfdset_t* source) {
  if (destination == nullptr || source == nullptr || destination->set_ptr == nullptr || source->set_ptr == nullptr)
    return -1;
  if (destination == source) return 0;
  if (source->capacity > destination->limit) return -1;
  const bool growList = source->capacity > destination->capacity && UsesInlineList(destination) &&
                        destination->capacity < destination->limit;
  if (source->capacity > (growList ? destination->limit : destination->capacity)) return -1;
  // Both new blocks are had before anything changes, so that a failure of
  // either leaves the destination as it was. Everything is overwritten below,
  // so neither old list nor old mask needs to move.
  int* newList = nullptr;
  if (growList) {
    newList = static_cast<int*>(SetCalloc(destination->limit, sizeof(int)));
    if (newList == nullptr) return -1;
  }
  uint64_t newBits = destination->mask_bits;
  void* newMask = nullptr;
  if (source->mask_bits > destination->mask_bits) {
    newBits = DoubledBits(destination->mask_bits, source->mask_bits);
    newMask = SetCalloc(1, static_cast<size_t>(newBits / CHAR_BIT));
    if (newMask == nullptr) {
      std::free(newList);
      return -1;
    }
  }
  if (newList != nullptr) {
    destination->members = newList;
    destination->capacity = destination->limit;
  }
  if (newMask != nullptr) {
    if (!UsesInlineMask(destination)) std::free(destination->set_ptr);
    destination->set_ptr = static_cast<fd_set*>(newMask);
    destination->mask_bits = static_cast<uint32_t>(newBits);
  }
  // The mask as it stands (after a select, the ready bits), then zeros for
  // the part of a larger destination mask that the source does not have.
  const size_t sourceBytes = source->mask_bits / CHAR_BIT;
  std::memcpy(destination->set_ptr, source->set_ptr, sourceBytes);
  std::memset(reinterpret_cast<char*>(destination->set_ptr) + sourceBytes, 0,
              destination->mask_bits / CHAR_BIT - sourceBytes);
  std::memcpy(destination->members, source->members, source->count * sizeof(int));
  destination->count = source->count;
  destination->maxfd = source->maxfd;
  // Taken even when smaller than the destination's storage, as callers of
  // this set have always had it.
  destination->capacity = source->capacity;
  return 0;
}

fd_set* xnfdset_get_fdsetp(xnfdset_t* set) { return set == nullptr ? nullptr : set->set_ptr; }

int64_t xnfdset_get_maxfd(const xnfdset_t* set) {
  if (set == nullptr || set->set_ptr == nullptr || set->count == 0) return -1;
  // Not the highest descriptor: a count-style select ignores nfds, and this
  // value has only ever told "something is in it".
  return 1;
}

int xnfdset_maxsock_get(void) { return g_maxsock.load(std::memory_order_relaxed); }

void xnfdset_maxsock_set(int size) { g_maxsock.store(size, std::memory_order_relaxed); }

}  // extern "C"

// ---- ZoFdset ----

namespace {

// What set and clr say for each result of their flat function.
struct FdsetMessages {
  const char* location;
  const char* noRoom;      // -1, with the capacity
  const char* badPointer;  // -2
  const char* unknown;     // anything else, with the result
};

const FdsetMessages kSetMessages = {"ZoFdset::set", "Specified fd set is already full; Set size of %u",
                                    "Bad fdset pointer passed to 'set' routine", "Unknown error %d setting fd in fd set"};
// xnfdset_clr never gives -1 today; its message waits for the day it does.
const FdsetMessages kClrMessages = {"ZoFdset::clr", "Specified fd is out of bounds of this fd set; Set size of %u",
                                    "Bad fdset pointer passed to 'clr' routine",
                                    "Unknown error %d clearing fd in fd set"};

// set or clr: the lazy set-up, the flat operation and its message.
CZoError Apply(ZoFdset& set, ZONET_SOCKET sock, int (*operation)(ZONET_SOCKET, xnfdset_t*),
               const FdsetMessages& messages) {
  if (!set.IsInitialized()) {
    CZoError err = set.init();
    if (err.IsError()) return err.Push(FXLOC(messages.location));
  }
  const int rc = operation(sock, &set);
  switch (rc) {
    case 0:
      return CZoError::Success();
    case -1:
      return FXErrorUtil::ErrorWin32(FXLOC(messages.location), ZONET_ERR_INVALID_STATE, messages.noRoom, set.capacity);
    case -2:
      return FXErrorUtil::ErrorWin32(FXLOC(messages.location), ZONET_ERR_INVALID_STATE, "%s", messages.badPointer);
    default:
      return FXErrorUtil::ErrorWin32(FXLOC(messages.location), ZONET_ERR_INVALID_STATE, messages.unknown, rc);
  }
}

}  // namespace

// The record's arrays are left as they are: nothing reads them before init.
ZoFdset::ZoFdset() : m_bInitialized(false) {
  set_ptr = nullptr;
  capacity = 0;
  limit = 0;
  maxfd = -1;
  count = 0;
  mask_bits = 0;
  members = nullptr;
}

ZoFdset::ZoFdset(const ZoFdset& other) : ZoFdset() { __copy(other); }

ZoFdset& ZoFdset::operator=(const ZoFdset& other) {
  if (this != &other) __copy(other);
  return *this;
}

ZoFdset::~ZoFdset() {
  if (m_bInitialized) xnfdset_free(this);
  m_bInitialized = false;
}

CZoError ZoFdset::init() {
  if (m_bInitialized) {
    xnfdset_free(this);
    m_bInitialized = false;
  }
  if (xnfdset_alloc(maxsock_get(), this) != 0)
    return FXErrorUtil::ErrorWin32(FXLOC("ZoFdset::init"), ZONET_ERR_OUTOFMEMORY, "Error allocating fdset");
  m_bInitialized = true;
  return CZoError::Success();
}

CZoError ZoFdset::set(ZONET_SOCKET sock) { return Apply(*this, sock, xnfdset_set, kSetMessages); }

CZoError ZoFdset::clr(ZONET_SOCKET sock) { return Apply(*this, sock, xnfdset_clr, kClrMessages); }

int ZoFdset::is_set(ZONET_SOCKET sock) {
  if (!m_bInitialized) (void)init();
  return xnfdset_isset(sock, this);
}

void ZoFdset::zero() {
  if (!m_bInitialized) (void)init();
  xnfdset_zero(this);
}

fd_set* ZoFdset::get_fdsetp() {
  if (!m_bInitialized) (void)init();
  return xnfdset_get_fdsetp(this);
}

uint64_t ZoFdset::get_maxfd() {
  if (!m_bInitialized) (void)init();
  return static_cast<uint64_t>(xnfdset_get_maxfd(this));
}

int ZoFdset::maxsock_get() { return xnfdset_maxsock_get(); }

void ZoFdset::maxsock_set(int size) { xnfdset_maxsock_set(size); }

void ZoFdset::__copy(const ZoFdset& other) {
  if (m_bInitialized && other.m_bInitialized && capacity >= other.capacity) {
    (void)xnfdset_copy_fdset(this, &other);
    return;
  }
  if (m_bInitialized) {
    xnfdset_free(this);
    m_bInitialized = false;
  }
  if (!other.m_bInitialized) return;
  if (xnfdset_alloc(static_cast<int>(other.capacity), this) != 0) return;
  m_bInitialized = true;
  (void)xnfdset_copy_fdset(this, &other);
}
