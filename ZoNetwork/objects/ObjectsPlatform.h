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

// ---- ping ----

// The option level of IP and the name of its time-to-live option, which
// CZoPing sets on its socket.
int PingIpLevel();
int PingTtlOption();

}  // namespace zonet_platform

#endif  // ZONETWORK_OBJECTS_OBJECTSPLATFORM_H
