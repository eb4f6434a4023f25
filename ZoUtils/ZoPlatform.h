// The narrow internal face of the platform under ZoUtils. Every system call of
// the library is made behind it, in posix/ (and later windows/), so the logic
// of the services above never names one. Not installed, not exported.
#ifndef ZOUTILS_ZOPLATFORM_H
#define ZOUTILS_ZOPLATFORM_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace zo_platform {

// The calling thread's last system error number.
int LastError();

// Files. Results as the system's calls give them: -1 and LastError() on failure.
int FileOpen(const char* path, int flags, int mode);
long FileRead(int fd, void* buffer, size_t size);
long FileWrite(int fd, const void* buffer, size_t size);
int64_t FileSeek(int fd, int64_t offset, int whence);
int FileSize(int fd, uint64_t* size);
int FileClose(int fd);
// 0, or the error number; a directory that is there already is 0.
int MakeDirectory(const char* path);
int RemoveFile(const char* path);

// Run-time libraries. Null on failure, with the loader's text in text.
void* LibraryOpen(const char* path, std::string& text);
void* LibrarySymbol(void* module, const char* name, std::string& text);
// Gives back one reference of LibraryOpen; the system unmaps the file with
// the last one.
void LibraryClose(void* module);

// The system's text for an error number, or for a negative resolver code.
std::string ErrorText(long code);

timespec WallClock();
int64_t CurrentProcessId();
void SleepMilliseconds(unsigned long milliseconds);

}  // namespace zo_platform

#endif  // ZOUTILS_ZOPLATFORM_H
