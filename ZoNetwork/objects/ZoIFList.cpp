// Interface discovery: the four static operations of CZoIPAddr on one adapter
// walk. The adapter data is fetched in two steps (learn the size, then fetch
// into a buffer of that size) with the designed platform's outcomes: no
// adapters is a quiet success, and each failure has its log lines and text.
// The steps read one snapshot of the system's list, taken by the first, so
// that both see the same adapters.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoUtils/ZoLog.h"
#include "objects/ObjectsInternal.h"
#include "objects/ObjectsPlatform.h"

namespace {

using zonet_internal::IfQueryFault;
using zonet_platform::IfAdapterEntry;
using zonet_platform::IfUnicastEntry;

std::atomic<IfQueryFault> g_fault{IfQueryFault::kNone};
std::atomic<int> g_faultCode{0};

IfQueryFault Fault() { return g_fault.load(std::memory_order_relaxed); }

// The writer is read once per line: a host may empty it.
#define ZO_IFLOG(level, where, ...)                                                    \
  do {                                                                                 \
    boost::shared_ptr<CLogWriterInterface> zo_writer_ = g_ptrLogWriter;                \
    if (zo_writer_) zo_writer_->WriteLog((level), (where), __LINE__, 0, 0, __VA_ARGS__); \
  } while (0)

// The adapter query, as the designed platform's is called: with no buffer it
// answers ZONET_ERR_BUFFER_OVERFLOW and the size, ZONET_ERR_NO_DATA when
// there is no adapter, or an error number; with a buffer that fits it fills
// it and answers 0. One object serves the two calls of one operation.
class AdapterQuery {
public:
  AdapterQuery() = default;
  ~AdapterQuery() { zonet_platform::IfSnapshotRelease(m_snapshot); }
  AdapterQuery(const AdapterQuery&) = delete;
  AdapterQuery& operator=(const AdapterQuery&) = delete;

  int Call(int family, void* buffer, unsigned long* size) {
    IfQueryFault fault = Fault();
    if (buffer == nullptr && fault == IfQueryFault::kSizeQueryFails) return g_faultCode.load();
    if (buffer != nullptr && fault == IfQueryFault::kFetchFails) return g_faultCode.load();
    if (family != CZoIPAddr::IP_FAMILY_ANY && family != CZoIPAddr::IP_FAMILY_IPV4 &&
        family != CZoIPAddr::IP_FAMILY_IPV6) {
      return ZONET_ERR_INVALID_PARAMETER;
    }
    if (m_snapshot == nullptr) {
      int error = zonet_platform::IfSnapshotTake(&m_snapshot);
      if (error != 0) return error;
    }
    unsigned long needed = zonet_platform::IfViewSize(m_snapshot, family);
    if (needed == 0 || fault == IfQueryFault::kNoAdapters) return ZONET_ERR_NO_DATA;
    if (buffer == nullptr || *size < needed) {
      *size = needed;
      return ZONET_ERR_BUFFER_OVERFLOW;
    }
    return zonet_platform::IfViewFill(m_snapshot, family, buffer, *size);
  }

private:
  zonet_platform::IfSnapshot* m_snapshot = nullptr;
};

// The fetched list; null when the query found no adapters.
struct AdapterBuffer {
  IfAdapterEntry* first = nullptr;
  ~AdapterBuffer() { std::free(first); }
};

// The two-step fetch, with sizeFamily for the size and fetchFamily for the
// fetch. where names the operation in the log and the error.
CZoError FetchAdapters(const char* where, int sizeFamily, int fetchFamily, AdapterBuffer& out) {
  AdapterQuery query;
  unsigned long size = 0;
  int result = query.Call(sizeFamily, nullptr, &size);
  if (result == ZONET_ERR_NO_DATA) {
    boost::shared_ptr<CLogWriterInterface> writer = g_ptrLogWriter;
    if (writer && writer->GetLogLevel() >= 2) writer->WriteLog(2, where, __LINE__, 0, 0, "No interfaces available");
    return CZoError::Success();
  }
  if (result != ZONET_ERR_BUFFER_OVERFLOW) {
    ZO_IFLOG(-1, where, "Can't figure out buffer space for adapter addresses.");
    ZO_IFLOG(-1, where, "Expected error: %d or %d (), but received %d", static_cast<int>(ZONET_ERR_NO_DATA),
             static_cast<int>(ZONET_ERR_BUFFER_OVERFLOW), result);
    return FXErrorUtil::ErrorWin32(FXLOC(where), static_cast<unsigned long>(result),
                                   "Can't figure out buffer space for adapter addresses.");
  }
  void* buffer = Fault() == IfQueryFault::kAllocationFails ? nullptr : std::calloc(1, size);
  if (buffer == nullptr) {
    ZO_IFLOG(-1, where, "Error allocating memory for pAdapterAddBuff");
    return FXErrorUtil::ErrorWin32(FXLOC(where), ZONET_ERR_NOT_ENOUGH_MEMORY,
                                   "Error allocating memory for pAdapterAddBuff");
  }
  result = query.Call(fetchFamily, buffer, &size);
  if (result != 0) {
    std::free(buffer);
    ZO_IFLOG(-1, where, "Error fetching adapter addresses: %d", result);
    return FXErrorUtil::ErrorWin32(FXLOC(where), static_cast<unsigned long>(result),
                                   "Error fetching adapter addresses");
  }
  out.first = static_cast<IfAdapterEntry*>(buffer);
  if (Fault() == IfQueryFault::kForeignFamily) {
    for (IfAdapterEntry* adapter = out.first; adapter != nullptr; adapter = adapter->next) {
      if (adapter->firstUnicastAddress == nullptr) continue;
      uint16_t local = ZONET_FAMILY_UNIX;
      std::memcpy(const_cast<void*>(adapter->firstUnicastAddress->sockaddr), &local, sizeof local);
    }
  }
  return CZoError::Success();
}

// The one filter of the walk: the loopback adapter whatever its state, and
// every adapter that is up.
bool Counts(const char* where, const IfAdapterEntry* adapter) {
  if (adapter->ifType == zonet_platform::kIfTypeSoftwareLoopback ||
      adapter->operStatus == zonet_platform::kIfOperStatusUp) {
    return true;
  }
  ZO_IFLOG(-1, where, "Skipping disabled interface '%s'", adapter->adapterName);
  return false;
}

}  // namespace

CZoError CZoIPAddr::GetIFList(std::vector<std::pair<CZoIPAddr, CZoIPAddr> >& out, IP_FAMILY family) {
  static const char* const kWhere = "CZoIPAddr::GetIFList";
  out.clear();
  AdapterBuffer adapters;
  CZoError error = FetchAdapters(kWhere, family, family, adapters);
  if (error.IsError()) return error;
  for (const IfAdapterEntry* adapter = adapters.first; adapter != nullptr; adapter = adapter->next) {
    if (!Counts(kWhere, adapter)) continue;
    for (const IfUnicastEntry* unicast = adapter->firstUnicastAddress; unicast != nullptr; unicast = unicast->next) {
      uint16_t own = 0;
      std::memcpy(&own, unicast->sockaddr, sizeof own);
      if (own != ZONET_FAMILY_IPV4 && own != ZONET_FAMILY_IPV6) {
        ZO_IFLOG(-1, kWhere, "Unknown address family (%d), skipping", static_cast<int>(own));
        continue;
      }
      ZONET_SockAddr record;
      std::memset(&record, 0, sizeof record);
      std::memcpy(&record, unicast->sockaddr,
                  std::min(static_cast<size_t>(unicast->sockaddrLength), sizeof record));
      CZoIPAddr address(record);
      CZoIPAddr companion;
      if (own == ZONET_FAMILY_IPV4) {
        int prefix = unicast->onLinkPrefixLength;
        if (prefix >= 1 && prefix <= 32) {
          // The network address of the subnet: the address word under the
          // prefix's mask, byte by byte in the word's stored (network) order.
          uint32_t mask = prefix == 32 ? 0xFFFFFFFFu : ~(0xFFFFFFFFu >> prefix);
          ZONET_SockAddr network = record;
          uint8_t* bytes = reinterpret_cast<uint8_t*>(&network.ipv4.addr);
          for (int i = 0; i < 4; ++i) bytes[i] &= static_cast<uint8_t>(mask >> (24 - 8 * i));
          companion = network;
        }
      } else {
        // Deliberately no IPv6 subnet: an IPv4 record whose address word holds
        // the 16-bit word of address bytes 6 and 7, zero-extended, as stored.
        ZONET_SockAddr word;
        std::memset(&word, 0, sizeof word);
        word.family = ZONET_FAMILY_IPV4;
        uint16_t third = 0;
        std::memcpy(&third, record.ipv6.addr + 6, sizeof third);
        uint32_t extended = third;
        std::memcpy(&word.ipv4.addr, &extended, sizeof extended);
        companion = word;
      }
      out.push_back(std::make_pair(address, companion));
    }
  }
  return CZoError::Success();
}

CZoError CZoIPAddr::GetIFList(std::vector<CZoIPAddr>& out, IP_FAMILY family) {
  std::vector<std::pair<CZoIPAddr, CZoIPAddr> > pairs;
  CZoError error = GetIFList(pairs, family);
  if (error.IsError()) return error.Push(FXLOC("CZoIPAddr::GetIFList"));
  out.reserve(pairs.size());
  for (const std::pair<CZoIPAddr, CZoIPAddr>& pair : pairs) out.push_back(pair.first);
  return CZoError::Success();
}

CZoError CZoIPAddr::GetMACList(std::vector<std::string>& out, IP_FAMILY family) {
  static const char* const kWhere = "CZoIPAddr::GetMACList";
  AdapterBuffer adapters;
  // The size is learnt for family and the fetch asks for every family, as on
  // the designed platform: family never narrows the answer, and a size learnt
  // for fewer addresses can be too small for the fetch.
  CZoError error = FetchAdapters(kWhere, family, IP_FAMILY_ANY, adapters);
  if (error.IsError()) return error;
  for (const IfAdapterEntry* adapter = adapters.first; adapter != nullptr; adapter = adapter->next) {
    if (!Counts(kWhere, adapter)) continue;
    if (adapter->physicalAddressLength == 0) continue;
    std::string text;
    for (uint32_t i = 0; i < adapter->physicalAddressLength; ++i) {
      text += FXString::Format("%02x:", adapter->physicalAddress[i]);
    }
    FXString::TrimRight(text, ":");
    out.push_back(text);
  }
  return CZoError::Success();
}

CZoError CZoIPAddr::GetAllInterfaces(GetAllInterfacesArgs_t& args, GetAllInterfacesRet_t& ret,
                                     const IP_FAMILY& family) {
  if (!args.wantAddresses && !args.wantHostNames) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoIPAddr::GetAllInterfaces"), ZONET_ERR_INVALID_PARAMETER,
                                   "Nothing requested in arguments.");
  }
  if (args.wantHostNames) args.wantAddresses = true;
  ZONET_SockAddr loopback4;
  ZONET_SockAddr loopback6;
  std::memset(&loopback4, 0, sizeof loopback4);
  std::memset(&loopback6, 0, sizeof loopback6);
  (void)ZONET_str2ip("127.0.0.1", &loopback4);
  (void)ZONET_str2ip("::1", &loopback6);
  const CZoIPAddr first(loopback4);
  const CZoIPAddr second(loopback6);

  // A failed walk is dropped on purpose: the digest is made of what there is.
  (void)GetIFList(ret.addresses, family);
  for (const CZoIPAddr& address : ret.addresses) {
    if (address == first || address == second) continue;
    ZONET_SockAddr record = address.GetSockAddr();
    char text[128] = "";
    (void)ZONET_ip2str(&record, text, sizeof text);
    ret.addressStrings.push_back(text);
    if (args.wantHostNames) {
      char name[256] = "";
      if (ZONET_ip2name(&record, name, sizeof name) == 0 && name[0] != '\0') {
        std::string lower(name);
        FXString::ToLower(lower);
        ret.hostNames.push_back(lower);
      }
    }
  }
  if (!ret.addressStrings.empty()) std::sort(ret.addressStrings.begin(), ret.addressStrings.end());
  if (!ret.hostNames.empty()) {
    std::sort(ret.hostNames.begin(), ret.hostNames.end());
    ret.hostNames.resize(static_cast<size_t>(std::unique(ret.hostNames.begin(), ret.hostNames.end()) -
                                             ret.hostNames.begin()));
  }
  return CZoError::Success();
}

namespace zonet_internal {

void SetIfQueryFault(IfQueryFault fault, int code) {
  g_faultCode.store(code);
  g_fault.store(fault);
}

}  // namespace zonet_internal
