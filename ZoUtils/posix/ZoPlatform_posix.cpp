// The POSIX side of ZoUtils' platform face.
#include "ZoPlatform.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

namespace zo_platform {

int LastError() { return errno; }

int FileOpen(const char* path, int flags, int mode) {
  int fd;
  do {
    fd = ::open(path, flags | O_CLOEXEC, static_cast<mode_t>(mode));
  } while (fd < 0 && errno == EINTR);
  return fd;
}

long FileRead(int fd, void* buffer, size_t size) {
  ssize_t n;
  do {
    n = ::read(fd, buffer, size);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

long FileWrite(int fd, const void* buffer, size_t size) {
  ssize_t n;
  do {
    n = ::write(fd, buffer, size);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

int64_t FileSeek(int fd, int64_t offset, int whence) { return ::lseek(fd, static_cast<off_t>(offset), whence); }

int FileSize(int fd, uint64_t* size) {
  struct stat st;
  if (::fstat(fd, &st) != 0) return -1;
  *size = static_cast<uint64_t>(st.st_size);
  return 0;
}

// A close interrupted by a signal has still released the descriptor on Linux,
// so it is never repeated.
int FileClose(int fd) { return ::close(fd); }

int MakeDirectory(const char* path) {
  if (::mkdir(path, 0777) == 0) return 0;
  int err = errno;
  struct stat st;
  if (err == EEXIST && ::stat(path, &st) == 0 && S_ISDIR(st.st_mode)) return 0;
  return err;
}

int RemoveFile(const char* path) { return ::unlink(path) == 0 ? 0 : errno; }

void* LibraryOpen(const char* path, std::string& text) {
  ::dlerror();  // a stale message must not be taken for this call's
  void* module = ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    const char* message = ::dlerror();
    text = message ? message : "no error";
  }
  return module;
}

void* LibrarySymbol(void* module, const char* name, std::string& text) {
  if (module == nullptr || name == nullptr) {
    text = module == nullptr ? "no module" : "no name";
    return nullptr;
  }
  ::dlerror();
  void* address = ::dlsym(module, name);
  if (address == nullptr) {
    const char* message = ::dlerror();
    text = message ? message : "symbol is null";
  }
  return address;
}

void LibraryClose(void* module) {
  if (module != nullptr) ::dlclose(module);
}

std::string ErrorText(long code) {
  if (code < 0) return ::gai_strerror(static_cast<int>(code));
  char buffer[256];
  // The GNU strerror_r returns the text, which may or may not be in buffer.
  const char* text = ::strerror_r(static_cast<int>(code), buffer, sizeof buffer);
  return text ? text : "Unknown error";
}

timespec WallClock() {
  timespec now;
  ::clock_gettime(CLOCK_REALTIME, &now);
  return now;
}

int64_t CurrentProcessId() { return static_cast<int64_t>(::getpid()); }

void SleepMilliseconds(unsigned long milliseconds) {
  timespec left;
  left.tv_sec = static_cast<time_t>(milliseconds / 1000);
  left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace zo_platform
