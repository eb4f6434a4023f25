// What the objects layer needs of the platform beyond the flat functions:
// the blacklist's wall clock and text file, the thread's last socket error,
// the fast loopback request, and the numbers of the requests the socket
// object makes by itself. Not installed, not exported; objects/posix/ is the
// Linux side.
#ifndef ZONETWORK_OBJECTS_OBJECTSPLATFORM_H
#define ZONETWORK_OBJECTS_OBJECTSPLATFORM_H

#include <cstdint>
#include <stdint.h>

namespace zonet_platform {

// ---- the blacklist ----
// Seconds since the epoch.
int64_t WallClockSeconds();

// A text file opened for reading.
struct TextFile;

// Opens path for reading; null with error set to errno when it can't (EISDIR
// for a directory).
TextFile* TextFileOpen(const char* path, int& error);
// True once a read has met the end of the file, or failed.
bool TextFileAtEnd(TextFile* file);
// Reads up to size - 1 characters, up to and including a line feed, into
// buffer and terminates it. At the end of the file (or on an error) buffer is
// left as it was.
void TextFileReadLine(TextFile* file, char* buffer, int size);
void TextFileClose(TextFile* file);

// ---- the socket object and the selector ----

// The calling thread's last socket error, as a failed call left it; 0 when
// none is recorded.
int SockObjLastError();

// Asks for the platform's fast loopback path on handle. 0, or the error of a
// request the platform does not have.
int SockObjLoopbackFastPath(uint64_t handle);

// The option level and option name of TCP's no-delay switch.
int SockObjTcpLevel();
int SockObjNoDelayOption();

// The ioctl command that gives the number of bytes waiting to be read.
unsigned long SockObjReadQueueCommand();

// ---- interface discovery ----
// The adapter view, laid out in one caller's buffer as the designed
// platform's adapter list is: adapters in the system's order, each with its
// unicast addresses in the system's order, all links inside the buffer.

// One unicast address of an adapter.
struct IfUnicastEntry {
  IfUnicastEntry* next;
  const void* sockaddr;         // a sockaddr_in or sockaddr_in6; first 16 bits the family
  int sockaddrLength;           // its size in bytes
  uint8_t onLinkPrefixLength;   // of the address's subnet
};

// One adapter.
struct IfAdapterEntry {
  IfAdapterEntry* next;
  const char* adapterName;      // the interface's name
  uint32_t ifType;              // kIfTypeSoftwareLoopback for the loopback adapter
  uint32_t operStatus;          // kIfOperStatusUp when it is running
  IfUnicastEntry* firstUnicastAddress;
  uint8_t physicalAddress[8];
  uint32_t physicalAddressLength;  // 0: none
};

constexpr uint32_t kIfTypeOther = 1;
constexpr uint32_t kIfTypeEthernet = 6;
constexpr uint32_t kIfTypeSoftwareLoopback = 24;
constexpr uint32_t kIfOperStatusUp = 1;
constexpr uint32_t kIfOperStatusDown = 2;

// The system's adapters and addresses as one call read them, held for the
// two steps of one query so that both see the same list.
struct IfSnapshot;

// Reads the system's list; 0, or the error number with *snapshot null.
int IfSnapshotTake(IfSnapshot** snapshot);
// The bytes the view of family (0 for every family, or an address family)
// needs; 0 when there are no adapters.
unsigned long IfViewSize(const IfSnapshot* snapshot, int family);
// Lays the view of family out in buffer. 0, or ZONET_ERR_BUFFER_OVERFLOW
// (and nothing written) when size bytes are too few.
int IfViewFill(const IfSnapshot* snapshot, int family, void* buffer, unsigned long size);
void IfSnapshotRelease(IfSnapshot* snapshot);

// ---- the QoS binding ----
// The error number a module function left when it answered failure.
int QosLastError();
// ---- ping ----

// The option level of IP and the name of its time-to-live option, which
// CZoPing sets on its socket.
int PingIpLevel();
int PingTtlOption();

}  // namespace zonet_platform

#endif  // ZONETWORK_OBJECTS_OBJECTSPLATFORM_H
