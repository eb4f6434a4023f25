#include "ZoNetwork/ZoIPAddrBlacklist.h"

#include <atomic>
#include <cstdint>
#include <new>
#include <vector>

#include "objects/ObjectsInternal.h"
#include "objects/ObjectsPlatform.h"

namespace zonet_internal {

namespace {
std::atomic<BlacklistClock> g_blacklistClock{nullptr};
}

void SetBlacklistClock(BlacklistClock clock) { g_blacklistClock.store(clock, std::memory_order_release); }

namespace {
// Counts down to a new entry the tests want to fail; 0 when none.
std::atomic<int> g_failEntryIn{0};

// True when the entry about to be stored is the one a test wants to fail.
bool EntryAllocationFails() {
  int left = g_failEntryIn.load(std::memory_order_relaxed);
  while (left > 0 && !g_failEntryIn.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
  }
  return left == 1;
}
}  // namespace

void FailBlacklistEntryAllocation(int nth) { g_failEntryIn.store(nth < 0 ? 0 : nth, std::memory_order_relaxed); }

time_t BlacklistNow() {
  BlacklistClock clock = g_blacklistClock.load(std::memory_order_acquire);
  return clock != nullptr ? clock() : static_cast<time_t>(zonet_platform::WallClockSeconds());
}

}  // namespace zonet_internal

namespace {

constexpr size_t kLineBufferSize = 1024;

int64_t Now() { return static_cast<int64_t>(zonet_internal::BlacklistNow()); }

}  // namespace

// ---------------------------------------------------------------- node

CZoIPAddrBlacklistNode::CZoIPAddrBlacklistNode() : m_Attempts(0), m_LastAttempt(0) {}

CZoIPAddrBlacklistNode::CZoIPAddrBlacklistNode(const CZoIPAddrBlacklistNode& other) = default;

CZoIPAddrBlacklistNode& CZoIPAddrBlacklistNode::operator=(const CZoIPAddrBlacklistNode& other) = default;

CZoIPAddrBlacklistNode::~CZoIPAddrBlacklistNode() = default;

// ---------------------------------------------------------------- list

CZoIPAddrBlacklist::CZoIPAddrBlacklist() : m_ExpirationTime(0), m_GraceAttempts(1), m_Cursor(m_Entries.end()) {}

// The walk's position would point into the other list, so a copy starts with
// no walk under way: continuing gives "End of blacklist reached" until
// GetFirstBlacklistEntry, where reading the other list could only go wrong.
CZoIPAddrBlacklist::CZoIPAddrBlacklist(const CZoIPAddrBlacklist& other)
    : m_ExpirationTime(other.m_ExpirationTime),
      m_GraceAttempts(other.m_GraceAttempts),
      m_Entries(other.m_Entries),
      m_Cursor(m_Entries.end()) {}

CZoIPAddrBlacklist& CZoIPAddrBlacklist::operator=(const CZoIPAddrBlacklist& other) {
  if (this == &other) return *this;
  m_ExpirationTime = other.m_ExpirationTime;
  m_GraceAttempts = other.m_GraceAttempts;
  m_Entries = other.m_Entries;
  m_Cursor = m_Entries.end();
  return *this;
}

CZoIPAddrBlacklist::~CZoIPAddrBlacklist() = default;

void CZoIPAddrBlacklist::SetExpirationTime(int seconds) { m_ExpirationTime = seconds; }

void CZoIPAddrBlacklist::SetGraceAttempts(unsigned int attempts) { m_GraceAttempts = attempts; }

CZoError CZoIPAddrBlacklist::AddAddressToBlacklist(const CZoIPAddr& addr) {
  return AddAddressToBlacklist(addr, CZoString());
}

CZoError CZoIPAddrBlacklist::AddAddressToBlacklist(const CZoIPAddr& addr, const CZoString& description) {
  int64_t now = Now();
  bool matched = false;
  // Every matching entry is refreshed, not only the first.
  for (CZoIPAddrBlacklistNode& node : m_Entries) {
    if (node.m_Address != addr) continue;
    matched = true;
    node.m_LastAttempt = now;
    ++node.m_Attempts;
    if (node.m_Attempts > m_GraceAttempts) node.m_Attempts = m_GraceAttempts;
  }
  if (matched) return CZoError::Success();

  try {
    if (zonet_internal::EntryAllocationFails()) throw std::bad_alloc();
    CZoIPAddrBlacklistNode node;
    node.m_Address = addr;
    node.m_Description = description;
    node.m_LastAttempt = now;
    node.m_Attempts = 1;  // not clamped: a grace of 0 still records the one report
    m_Entries.push_back(node);
  } catch (const std::bad_alloc&) {
    // A report that could not be kept is no success: a caller (the file
    // loader above all) would take the address for listed.
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddrBlacklist::AddAddressToBlacklist"), ZONET_ERR_OUTOFMEMORY);
  }
  return CZoError::Success();
}

bool CZoIPAddrBlacklist::IsAddressBlacklisted(const CZoIPAddr& addr, CZoString* description, unsigned int* attempts) {
  if (description != nullptr) description->Clear();
  if (attempts != nullptr) *attempts = 0;

  EntryList::iterator it = m_Entries.begin();
  while (it != m_Entries.end() && it->m_Address != addr) ++it;
  if (it == m_Entries.end()) return false;
  CZoIPAddrBlacklistNode& node = *it;

  // Decay: one failure off for each whole period that ended before now,
  // counted from the last report, so a long silence costs several steps. At
  // exactly one period after the report the entry is still whole. The steps
  // that are due are taken at once; the clock is read again after them, as
  // a step-by-step walk would.
  if (m_ExpirationTime > 0) {
    const int64_t period = m_ExpirationTime;
    for (;;) {
      int64_t now = Now();
      int64_t due = 0;
      if (__builtin_add_overflow(node.m_LastAttempt, period, &due) || due >= now) break;
      uint64_t elapsed = static_cast<uint64_t>(now) - static_cast<uint64_t>(node.m_LastAttempt);
      uint64_t steps = (elapsed - 1) / static_cast<uint64_t>(period);
      // A count of 0 (a grace of 0 clamps to it) wraps below zero on its first
      // step and would take the full unsigned round to come back to 0.
      uint64_t stepsToNone = node.m_Attempts != 0 ? node.m_Attempts : (uint64_t{1} << 32);
      if (steps >= stepsToNone) {
        if (m_Cursor == it) ++m_Cursor;  // a walk that stood here goes on with the next entry
        m_Entries.erase(it);
        return false;
      }
      node.m_Attempts -= static_cast<unsigned int>(steps);
      node.m_LastAttempt += static_cast<int64_t>(steps) * period;
    }
  }

  bool blacklisted = node.m_Attempts >= m_GraceAttempts;
  if (description != nullptr) *description = node.m_Description;
  if (attempts != nullptr) *attempts = node.m_Attempts;
  return blacklisted;
}

CZoError CZoIPAddrBlacklist::GetFirstBlacklistEntry(CZoIPAddr& addr, CZoString* description, unsigned int* attempts,
                                                    int64_t* lastAttempt, int64_t* secondsLeft) {
  m_Cursor = m_Entries.begin();
  CZoError error = GetNextBlacklistEntry(addr, description, attempts, lastAttempt, secondsLeft);
  if (error.IsError()) return error.Push(FXLOC("CZoIPAddrBlacklist::GetFirstBlacklistEntry"));
  return CZoError::Success();
}

CZoError CZoIPAddrBlacklist::GetNextBlacklistEntry(CZoIPAddr& addr, CZoString* description, unsigned int* attempts,
                                                   int64_t* lastAttempt, int64_t* secondsLeft) {
  if (m_Cursor == m_Entries.end()) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddrBlacklist::GetNextBlacklistEntry"), ZONET_ERR_NO_MORE_ITEMS,
                                   "End of blacklist reached");
  }
  const CZoIPAddrBlacklistNode& node = *m_Cursor;
  addr = node.m_Address;
  if (description != nullptr) *description = node.m_Description;
  if (attempts != nullptr) *attempts = node.m_Attempts;
  if (lastAttempt != nullptr) *lastAttempt = node.m_LastAttempt;
  if (secondsLeft != nullptr) {
    // The time to the next decay step, not to the end of the entry.
    if (m_ExpirationTime >= 1) {
      int64_t due = 0;
      int64_t left = 0;
      if (__builtin_add_overflow(node.m_LastAttempt, static_cast<int64_t>(m_ExpirationTime), &due) ||
          __builtin_sub_overflow(due, Now(), &left)) {
        left = INT64_MAX;  // only a clock at the ends of its range gets here
      }
      *secondsLeft = left < 0 ? 0 : left;
    } else {
      *secondsLeft = -1;
    }
  }
  ++m_Cursor;
  return CZoError::Success();
}

CZoError CZoIPAddrBlacklist::LoadBlacklistFromFile(const char* fileName) {
  if (fileName == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddrBlacklist::LoadBlacklistFromFile"), ZONET_ERR_INVALID_PARAMETER,
                                   "Null parameter passed");
  }
  int openError = 0;
  zonet_platform::TextFile* file = zonet_platform::TextFileOpen(fileName, openError);
  if (file == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddrBlacklist::LoadBlacklistFromFile"),
                                   static_cast<unsigned long>(openError), "Failed to open file, FileName=%s", fileName);
  }

  CZoString line;
  if (!line.AllocateBuffer(kLineBufferSize)) {
    zonet_platform::TextFileClose(file);
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddrBlacklist::LoadBlacklistFromFile"), ZONET_ERR_OUTOFMEMORY);
  }

  // The end shows only after a read has met it, and that read leaves the
  // buffer as it was: the last line of a file that ends in a line feed is
  // therefore taken twice. That is how lists have always been loaded.
  while (!zonet_platform::TextFileAtEnd(file)) {
    zonet_platform::TextFileReadLine(file, line.GetBuffer(), static_cast<int>(line.GetAllocatedSize()));
    line.ReCalculateLength();
    line.CheckAndRemoveLastCharacter('\n');
    // A file written on Windows loads as it does there, where text mode has
    // already taken the carriage return away.
    line.CheckAndRemoveLastCharacter('\r');
    if (line.IsEmpty()) continue;

    std::vector<CZoIPAddr> addresses;
    CZoError resolved = CZoIPAddr::GetAllByName(line.c_str(), addresses, CZoIPAddr::IP_FAMILY_ANY);
    if (resolved.IsError()) continue;  // a line that doesn't resolve is skipped, silently
    for (const CZoIPAddr& addr : addresses) {
      // Only a report that could not be stored fails, and then the list is
      // not what the file says: the load stops with that error.
      CZoError added = AddAddressToBlacklist(addr);
      if (added.IsError()) {
        zonet_platform::TextFileClose(file);
        return added.Push(FXLOC("CZoIPAddrBlacklist::LoadBlacklistFromFile"));
      }
    }
  }

  zonet_platform::TextFileClose(file);
  return CZoError::Success();
}
