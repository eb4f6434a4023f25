// The POSIX side of the blacklist: its clock and its file.
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "objects/ObjectsPlatform.h"

namespace zonet_platform {

int64_t WallClockSeconds() { return static_cast<int64_t>(std::time(nullptr)); }

struct TextFile {
  FILE* stream;
};

TextFile* TextFileOpen(const char* path, int& error) {
  // Linux has no text mode: "r" reads the bytes as they are ("e": no
  // descriptor of ours leaks into a child the host starts meanwhile).
  FILE* stream = std::fopen(path, "re");
  if (stream == nullptr) {
    error = errno;
    return nullptr;
  }
  // Linux opens a directory for reading, where Windows refuses;
  // reading it would only fail, so it is refused here as well.
  struct stat info;
  if (fstat(fileno(stream), &info) == 0 && S_ISDIR(info.st_mode)) {
    std::fclose(stream);
    error = EISDIR;
    return nullptr;
  }
  TextFile* file = new (std::nothrow) TextFile{stream};
  if (file == nullptr) {
    std::fclose(stream);
    error = ENOMEM;
    return nullptr;
  }
  error = 0;
  return file;
}

// A read error ends the file as its end would: a loop that waits for the end
// alone would never finish on a file that can't be read.
bool TextFileAtEnd(TextFile* file) { return std::feof(file->stream) != 0 || std::ferror(file->stream) != 0; }

void TextFileReadLine(TextFile* file, char* buffer, int size) {
  // Whether it read anything is seen from the buffer: a read at the end of the
  // file leaves it as it was, which the caller relies on.
  (void)std::fgets(buffer, size, file->stream);
}

void TextFileClose(TextFile* file) {
  std::fclose(file->stream);
  delete file;
}

}  // namespace zonet_platform
