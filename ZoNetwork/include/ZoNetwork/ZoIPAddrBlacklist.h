/// @file
/// CZoIPAddrBlacklist: addresses that have failed a caller, with grace
/// attempts before an address counts as blacklisted and failures that decay
/// one per expiration period, worked out when the address is next asked about.
#ifndef ZONETWORK_ZOIPADDRBLACKLIST_H
#define ZONETWORK_ZOIPADDRBLACKLIST_H

#include <cstdint>
#include <list>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoString.h"

/// One entry of the blacklist.
class ZONET_API CZoIPAddrBlacklistNode {
public:
  /// A default address, an empty description and last attempt 0; the attempts
  /// mean something only once the entry has been reported.
  CZoIPAddrBlacklistNode();
  /// A copy of other's fields.
  CZoIPAddrBlacklistNode(const CZoIPAddrBlacklistNode& other);
  /// Copies other's fields.
  CZoIPAddrBlacklistNode& operator=(const CZoIPAddrBlacklistNode& other);
  ~CZoIPAddrBlacklistNode();

  /// Matched by CZoIPAddr's operator==: port and IPv6 scope don't count.
  CZoIPAddr m_Address;
  /// The text given with the first report.
  CZoString m_Description;
  /// Failures on record; never above the grace attempts by reports.
  unsigned int m_Attempts;
  /// Seconds since the epoch of the last report, moved on by each decay step.
  int64_t m_LastAttempt;
};

/// The list itself. Not safe for concurrent use: IsAddressBlacklisted changes
/// the list, so a caller that shares one serialises every call.
class ZONET_API CZoIPAddrBlacklist {
public:
  /// No decay, one grace attempt: the first report blacklists for good.
  CZoIPAddrBlacklist();
  /// Copy settings and entries. A walk isn't carried over: on the copy it
  /// starts again with GetFirstBlacklistEntry.
  CZoIPAddrBlacklist(const CZoIPAddrBlacklist& other);
  /// Copies settings and entries as the copy constructor; a walk of this
  /// list starts again.
  CZoIPAddrBlacklist& operator=(const CZoIPAddrBlacklist& other);
  ~CZoIPAddrBlacklist();

  /// Seconds per decay step; 0 or less: entries never decay. Existing entries
  /// are not touched.
  void SetExpirationTime(int seconds);
  /// The number of failures on record from which an address is blacklisted.
  /// Existing entries are not touched.
  void SetGraceAttempts(unsigned int attempts);

  /// Reports a failure of addr, with an empty description. Success, or
  /// ZONET_ERR_OUTOFMEMORY when a new entry cannot be stored.
  CZoError AddAddressToBlacklist(const CZoIPAddr& addr);
  /// Reports a failure of addr: a listed entry gets one more attempt (at most
  /// the grace attempts) and the time of now, and keeps its first
  /// description; an unlisted address is appended with 1 attempt. Success,
  /// or ZONET_ERR_OUTOFMEMORY when the new entry cannot be stored (the list
  /// is then unchanged).
  CZoError AddAddressToBlacklist(const CZoIPAddr& addr, const CZoString& description);
  /// Whether addr is blacklisted, after the decay its entry is due: each full
  /// expiration period since the last report takes one failure off, and an
  /// entry left without failures is removed. description and attempts (either
  /// may be null) receive the entry's values whatever the answer, or empty
  /// and 0 for an address that isn't (or no longer) listed.
  bool IsAddressBlacklisted(const CZoIPAddr& addr, CZoString* description, unsigned int* attempts);

  /// Starts a walk of the entries in order of first report and gives the
  /// first one; ZONET_ERR_NO_MORE_ITEMS, "End of blacklist reached", for an
  /// empty list. Any output pointer may be null. secondsLeft is the time to
  /// the entry's next decay step (0 when overdue), or -1 without decay. The
  /// walk applies no decay.
  CZoError GetFirstBlacklistEntry(CZoIPAddr& addr, CZoString* description, unsigned int* attempts, int64_t* lastAttempt,
                                  int64_t* secondsLeft);
  /// The next entry of the walk, the same way; ZONET_ERR_NO_MORE_ITEMS, "End
  /// of blacklist reached", after the last one (and before any walk started),
  /// with the outputs untouched.
  CZoError GetNextBlacklistEntry(CZoIPAddr& addr, CZoString* description, unsigned int* attempts, int64_t* lastAttempt,
                                 int64_t* secondsLeft);

  /// Reports every address of a text file of one host name, numeric address
  /// or path per line (resolved as it is read; lines that don't resolve are
  /// skipped). The file's last line counts twice when the file ends in a line
  /// feed. A file that can't be opened gives its errno with "Failed to open
  /// file, FileName=%s" and leaves the list as it was. An address that cannot
  /// be stored ends the load with ZONET_ERR_OUTOFMEMORY; what was stored
  /// before it stays.
  CZoError LoadBlacklistFromFile(const char* fileName);

private:
  typedef std::list<CZoIPAddrBlacklistNode> EntryList;

  int m_ExpirationTime;
  unsigned int m_GraceAttempts;
  EntryList m_Entries;
  EntryList::iterator m_Cursor;
};

#endif  // ZONETWORK_ZOIPADDRBLACKLIST_H
