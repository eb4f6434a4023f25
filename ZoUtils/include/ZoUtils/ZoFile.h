/// @file
/// Files and paths: CZoFile, CZoDirectory, FXFile, FXPath.
#ifndef ZOUTILS_ZOFILE_H
#define ZOUTILS_ZOFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

/// An open file, closed by Close() or the destructor. Not copyable: one object
/// owns one descriptor.
class ZOUTILS_API CZoFile {
public:
  /// A file object with no file open.
  CZoFile();
  /// Closes the file if one is open.
  ~CZoFile();
  /// Not copyable: one object owns one descriptor.
  CZoFile(const CZoFile&) = delete;
  /// Not assignable: one object owns one descriptor.
  CZoFile& operator=(const CZoFile&) = delete;

  /// Opens path with the system's own open flags and creation mode (O_RDONLY,
  /// O_CREAT | O_RDWR, S_IRUSR | S_IWUSR, ...). An open file is closed first.
  /// Failure: the system's errno, or ZONET_ERR_INVALID_PARAMETER for a null
  /// path.
  CZoError Open(const char* path, int flags, int mode);
  /// Reads at most size bytes; got is set (0 at the end of the file).
  /// Failure: the system's errno, ZONET_ERR_INVALID_PARAMETER for a null
  /// buffer or got, ZONET_ERR_INVALID_STATE when no file is open.
  CZoError Read(void* buffer, unsigned size, unsigned* got);
  /// Writes all size bytes unless an error stops it; written may be null.
  /// Failure: the system's errno, ZONET_ERR_INVALID_STATE when no file is open.
  CZoError Write(const void* buffer, unsigned size, unsigned* written);
  /// Moves the position; whence 0 is from the start, 1 from here, 2 from the
  /// end. newPos may be null. Failure: the system's errno,
  /// ZONET_ERR_INVALID_STATE when no file is open.
  CZoError Seek(int64_t offset, int whence, int64_t* newPos);
  /// The open file's size in bytes. Failure: the system's errno,
  /// ZONET_ERR_INVALID_STATE when no file is open.
  CZoError Size(uint64_t& size);
  /// Whether the position is at (or past) the end. Failure: the system's
  /// errno, ZONET_ERR_INVALID_STATE when no file is open.
  CZoError IsEOF(bool& atEnd);
  /// Whether a file is open; false after Close() or a failed Open().
  bool IsValid();
  /// Closes the file; closing an object with no file open is success.
  /// Failure: the system's errno.
  CZoError Close();

  /// Reads the whole file into a buffer from malloc, NUL-terminated behind its
  /// size bytes; the caller frees it with free(). An empty file gives
  /// ZONET_ERR_EMPTY and no buffer; other failures are the system's errno,
  /// ZONET_ERR_NOT_ENOUGH_MEMORY or ZONET_ERR_INVALID_PARAMETER.
  static CZoError ReadWholeFile(const char* path, char** buffer, size_t& size);

private:
  int m_fd;
};

/// Directories.
class ZOUTILS_API CZoDirectory {
public:
  /// Makes the directory, and its parents when recursive; one that exists
  /// already is success. Failure: the system's errno of the step that failed,
  /// ZONET_ERR_INVALID_PARAMETER for a null or empty path.
  static CZoError Create(const char* path, bool recursive);
};

/// Operations on files by name.
namespace FXFile {
/// Removes the file at path. Failure: the system's errno.
ZOUTILS_API CZoError RemoveFile(const std::string& path);
}

/// Operations on path texts.
namespace FXPath {
/// Splits at the last '/': "a/b/c" gives "a/b" and "c"; a path without one
/// gives an empty parent. An empty path is ZONET_ERR_INVALID_PARAMETER.
ZOUTILS_API CZoError SplitParentPath(const std::string& path, std::string& parent, std::string& leaf);
}

#endif  // ZOUTILS_ZOFILE_H
