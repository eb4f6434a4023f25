// What the blacklist needs from the platform: the wall clock in seconds and a
// text file read line by line. Not installed, not exported; defined in
// Posix/ZoIPAddr_posix.cpp.
#ifndef ZONETWORK_ZOIPADDRPLATFORM_H
#define ZONETWORK_ZOIPADDRPLATFORM_H

#include <cstdint>

namespace zonet_platform {

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

}  // namespace zonet_platform

#endif  // ZONETWORK_ZOIPADDRPLATFORM_H
