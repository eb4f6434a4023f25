// The Linux side of interface discovery: getifaddrs gives every link (its
// AF_PACKET entry, with index, flags and hardware address) and every address,
// and the view groups the addresses under their link, links in index order,
// as the designed platform's adapter list has them.
#include "objects/ObjectsPlatform.h"

#include <errno.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "ZoUtils/ZoErrorCodes.h"

namespace zonet_platform {

struct IfSnapshot {
  ifaddrs* list = nullptr;
  std::vector<const ifaddrs*> links;  // the AF_PACKET entries, by interface index
};

namespace {

size_t Aligned(size_t size) { return (size + 7) & ~static_cast<size_t>(7); }

int FamilyOf(const ifaddrs* entry) { return entry->ifa_addr != nullptr ? entry->ifa_addr->sa_family : AF_UNSPEC; }

const sockaddr_ll* LinkOf(const ifaddrs* entry) { return reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr); }

bool Wanted(const ifaddrs* entry, int family) {
  int own = FamilyOf(entry);
  return (own == AF_INET || own == AF_INET6) && (family == AF_UNSPEC || own == family);
}

// Whether an address entry is on the link named link: an IPv4 address may
// carry a label "link:something", and a link's own name never holds ':'.
bool OnLink(const char* entryName, const char* link) {
  size_t length = std::strlen(link);
  return std::strncmp(entryName, link, length) == 0 && (entryName[length] == '\0' || entryName[length] == ':');
}

// The prefix length of a netmask: its one bits (a netmask's are contiguous).
uint8_t PrefixOf(const sockaddr* mask) {
  if (mask == nullptr) return 0;
  const uint8_t* bytes = nullptr;
  size_t size = 0;
  if (mask->sa_family == AF_INET) {
    bytes = reinterpret_cast<const uint8_t*>(&reinterpret_cast<const sockaddr_in*>(mask)->sin_addr);
    size = 4;
  } else if (mask->sa_family == AF_INET6) {
    bytes = reinterpret_cast<const sockaddr_in6*>(mask)->sin6_addr.s6_addr;
    size = 16;
  }
  int bits = 0;
  for (size_t i = 0; i < size; ++i) bits += __builtin_popcount(bytes[i]);
  return static_cast<uint8_t>(bits);
}

// Lays out the view in buffer, or with a null buffer only counts its bytes;
// both ways walk the same steps, so the count is exact.
unsigned long Layout(const IfSnapshot* snapshot, int family, char* buffer) {
  size_t used = 0;
  IfAdapterEntry* previous = nullptr;
  for (const ifaddrs* link : snapshot->links) {
    IfAdapterEntry* adapter = buffer != nullptr ? reinterpret_cast<IfAdapterEntry*>(buffer + used) : nullptr;
    used += Aligned(sizeof(IfAdapterEntry));
    size_t nameSize = std::strlen(link->ifa_name) + 1;
    char* name = buffer != nullptr ? buffer + used : nullptr;
    used += Aligned(nameSize);
    if (adapter != nullptr) {
      std::memset(adapter, 0, sizeof *adapter);
      std::memcpy(name, link->ifa_name, nameSize);
      adapter->adapterName = name;
      const sockaddr_ll* hardware = LinkOf(link);
      bool loopback = (link->ifa_flags & IFF_LOOPBACK) != 0;
      adapter->ifType = loopback                              ? kIfTypeSoftwareLoopback
                        : hardware->sll_hatype == ARPHRD_ETHER ? kIfTypeEthernet
                                                               : kIfTypeOther;
      adapter->operStatus = (link->ifa_flags & IFF_RUNNING) != 0 ? kIfOperStatusUp : kIfOperStatusDown;
      // Linux gives the loopback six zero bytes; the designed platform gives
      // it no hardware address, and so does this view.
      if (!loopback) {
        size_t length = std::min<size_t>(hardware->sll_halen, sizeof adapter->physicalAddress);
        std::memcpy(adapter->physicalAddress, hardware->sll_addr, length);
        adapter->physicalAddressLength = static_cast<uint32_t>(length);
      }
      if (previous != nullptr) previous->next = adapter;
    }
    IfUnicastEntry* last = nullptr;
    for (const ifaddrs* entry = snapshot->list; entry != nullptr; entry = entry->ifa_next) {
      if (!Wanted(entry, family) || !OnLink(entry->ifa_name, link->ifa_name)) continue;
      int length = FamilyOf(entry) == AF_INET ? static_cast<int>(sizeof(sockaddr_in))
                                              : static_cast<int>(sizeof(sockaddr_in6));
      IfUnicastEntry* unicast = buffer != nullptr ? reinterpret_cast<IfUnicastEntry*>(buffer + used) : nullptr;
      used += Aligned(sizeof(IfUnicastEntry));
      char* address = buffer != nullptr ? buffer + used : nullptr;
      used += Aligned(static_cast<size_t>(length));
      if (unicast == nullptr) continue;
      std::memset(unicast, 0, sizeof *unicast);
      std::memcpy(address, entry->ifa_addr, static_cast<size_t>(length));
      unicast->sockaddr = address;
      unicast->sockaddrLength = length;
      unicast->onLinkPrefixLength = PrefixOf(entry->ifa_netmask);
      if (last != nullptr) {
        last->next = unicast;
      } else {
        adapter->firstUnicastAddress = unicast;
      }
      last = unicast;
    }
    previous = adapter;
  }
  return static_cast<unsigned long>(used);
}

}  // namespace

int IfSnapshotTake(IfSnapshot** snapshot) {
  *snapshot = nullptr;
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return errno;
  IfSnapshot* taken = new IfSnapshot;
  taken->list = list;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (FamilyOf(entry) == AF_PACKET) taken->links.push_back(entry);
  }
  // The kernel lists links by index already; sorting keeps that a promise.
  std::stable_sort(taken->links.begin(), taken->links.end(), [](const ifaddrs* a, const ifaddrs* b) {
    return LinkOf(a)->sll_ifindex < LinkOf(b)->sll_ifindex;
  });
  *snapshot = taken;
  return 0;
}

unsigned long IfViewSize(const IfSnapshot* snapshot, int family) {
  if (snapshot->links.empty()) return 0;
  return Layout(snapshot, family, nullptr);
}

int IfViewFill(const IfSnapshot* snapshot, int family, void* buffer, unsigned long size) {
  if (Layout(snapshot, family, nullptr) > size) return ZONET_ERR_BUFFER_OVERFLOW;
  Layout(snapshot, family, static_cast<char*>(buffer));
  return 0;
}

void IfSnapshotRelease(IfSnapshot* snapshot) {
  if (snapshot == nullptr) return;
  if (snapshot->list != nullptr) ::freeifaddrs(snapshot->list);
  delete snapshot;
}

}  // namespace zonet_platform
