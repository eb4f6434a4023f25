// Files and paths: CZoFile, CZoDirectory, FXFile, FXPath.
#ifndef ZOUTILS_ZOFILE_H
#define ZOUTILS_ZOFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

// An open file, closed by Close() or the destructor. Not copyable: one object
// owns one descriptor.
class ZOUTILS_API CZoFile {
public:
  CZoFile();
  ~CZoFile();
  CZoFile(const CZoFile&) = delete;
  CZoFile& operator=(const CZoFile&) = delete;

  // Opens path with the system's own open flags and creation mode (O_RDONLY,
  // O_CREAT | O_RDWR, S_IRUSR | S_IWUSR, ...). An open file is closed first.
  CZoError Open(const char* path, int flags, int mode);
  // Reads at most size bytes; got is set (0 at the end of the file).
  CZoError Read(void* buffer, unsigned size, unsigned* got);
  // Writes all size bytes unless an error stops it; written may be null.
  CZoError Write(const void* buffer, unsigned size, unsigned* written);
  // Moves the position; whence 0 is from the start, 1 from here, 2 from the
  // end. newPos may be null.
  CZoError Seek(int64_t offset, int whence, int64_t* newPos);
  CZoError Size(uint64_t& size);
  // Whether the position is at (or past) the end.
  CZoError IsEOF(bool& atEnd);
  /// Whether a file is open; false after Close() or a failed Open().
  bool IsValid();
  CZoError Close();

  // Reads the whole file into a buffer from malloc, NUL-terminated behind its
  // size bytes; the caller frees it with free(). An empty file gives
  // ZONET_ERR_EMPTY and no buffer.
  static CZoError ReadWholeFile(const char* path, char** buffer, size_t& size);

private:
  int m_fd;
};

class ZOUTILS_API CZoDirectory {
public:
  // Makes the directory, and its parents when recursive; one that exists
  // already is success.
  static CZoError Create(const char* path, bool recursive);
};

namespace FXFile {
ZOUTILS_API CZoError RemoveFile(const std::string& path);
}

namespace FXPath {
// Splits at the last '/': "a/b/c" gives "a/b" and "c"; a path without one
// gives an empty parent. An empty path is ZONET_ERR_INVALID_PARAMETER.
ZOUTILS_API CZoError SplitParentPath(const std::string& path, std::string& parent, std::string& leaf);
}

#endif  // ZOUTILS_ZOFILE_H
