#include "ZoUtils/ZoFile.h"

#include <cstdlib>
#include <cerrno>
#include <cstring>

#include "ZoPlatform.h"

namespace {
CZoError NotOpen(const char* where) {
  return FXErrorUtil::ErrorWin32(FXLOC(where), ZONET_ERR_INVALID_STATE, "File is not open");
}
CZoError NullArgument(const char* where, const char* name) {
  return FXErrorUtil::ErrorWin32(FXLOC(where), ZONET_ERR_INVALID_PARAMETER, "Invalid input parameter, %s is NULL",
                                 name);
}
}  // namespace

CZoFile::CZoFile() : m_fd(-1) {}

CZoFile::~CZoFile() { (void)Close(); }

CZoError CZoFile::Open(const char* path, int flags, int mode) {
  if (path == nullptr) return NullArgument("CZoFile::Open", "path");
  (void)Close();
  int fd = zo_platform::FileOpen(path, flags, mode);
  if (fd < 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::Open"), static_cast<unsigned long>(zo_platform::LastError()),
                                   "Failed to open file [%s]", path);
  }
  m_fd = fd;
  return CZoError::Success();
}

bool CZoFile::IsValid() { return m_fd >= 0; }

CZoError CZoFile::Read(void* buffer, unsigned size, unsigned* got) {
  if (got) *got = 0;
  if (!IsValid()) return NotOpen("CZoFile::Read");
  if (buffer == nullptr && size > 0) return NullArgument("CZoFile::Read", "buffer");
  if (got == nullptr) return NullArgument("CZoFile::Read", "got");
  long n = zo_platform::FileRead(m_fd, buffer, size);
  if (n < 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::Read"), static_cast<unsigned long>(zo_platform::LastError()));
  }
  *got = static_cast<unsigned>(n);
  return CZoError::Success();
}

CZoError CZoFile::Write(const void* buffer, unsigned size, unsigned* written) {
  if (written) *written = 0;
  if (!IsValid()) return NotOpen("CZoFile::Write");
  if (buffer == nullptr && size > 0) return NullArgument("CZoFile::Write", "buffer");
  const char* from = static_cast<const char*>(buffer);
  unsigned done = 0;
  while (done < size) {
    long n = zo_platform::FileWrite(m_fd, from + done, size - done);
    if (n < 0) {
      if (written) *written = done;
      return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::Write"), static_cast<unsigned long>(zo_platform::LastError()));
    }
    done += static_cast<unsigned>(n);
  }
  if (written) *written = done;
  return CZoError::Success();
}

CZoError CZoFile::Seek(int64_t offset, int whence, int64_t* newPos) {
  if (!IsValid()) return NotOpen("CZoFile::Seek");
  int64_t pos = zo_platform::FileSeek(m_fd, offset, whence);
  if (pos < 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::Seek"), static_cast<unsigned long>(zo_platform::LastError()));
  }
  if (newPos) *newPos = pos;
  return CZoError::Success();
}

CZoError CZoFile::Size(uint64_t& size) {
  size = 0;
  if (!IsValid()) return NotOpen("CZoFile::Size");
  if (zo_platform::FileSize(m_fd, &size) != 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::Size"), static_cast<unsigned long>(zo_platform::LastError()));
  }
  return CZoError::Success();
}

CZoError CZoFile::IsEOF(bool& atEnd) {
  atEnd = false;
  int64_t pos = 0;
  uint64_t size = 0;
  CZoError error = Seek(0, 1, &pos);
  if (error.IsError()) return error.Push(FXLOC("CZoFile::IsEOF"));
  error = Size(size);
  if (error.IsError()) return error.Push(FXLOC("CZoFile::IsEOF"));
  atEnd = static_cast<uint64_t>(pos) >= size;
  return CZoError::Success();
}

CZoError CZoFile::Close() {
  if (!IsValid()) return CZoError::Success();
  int fd = m_fd;
  m_fd = -1;
  if (zo_platform::FileClose(fd) != 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::Close"), static_cast<unsigned long>(zo_platform::LastError()));
  }
  return CZoError::Success();
}

CZoError CZoFile::ReadWholeFile(const char* path, char** buffer, size_t& size) {
  size = 0;
  if (buffer == nullptr) return NullArgument("CZoFile::ReadWholeFile", "buffer");
  *buffer = nullptr;
  CZoFile file;
  CZoError error = file.Open(path, 0, 0);
  if (error.IsError()) return error.Push(FXLOC("CZoFile::ReadWholeFile"));
  uint64_t length = 0;
  error = file.Size(length);
  if (error.IsError()) return error.Push(FXLOC("CZoFile::ReadWholeFile"));
  if (length == 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::ReadWholeFile"), ZONET_ERR_EMPTY, "File [%s] is empty", path);
  }
  if (length > 0xFFFFFFFFull) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::ReadWholeFile"), ZONET_ERR_NOT_ENOUGH_MEMORY,
                                   "File [%s] is too large to read whole", path);
  }
  char* data = static_cast<char*>(std::malloc(static_cast<size_t>(length) + 1));
  if (data == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoFile::ReadWholeFile"), ZONET_ERR_NOT_ENOUGH_MEMORY,
                                   "Error allocating %llu bytes", static_cast<unsigned long long>(length));
  }
  size_t done = 0;
  while (done < length) {
    unsigned got = 0;
    unsigned want = static_cast<unsigned>(std::min<uint64_t>(length - done, 1u << 30));
    error = file.Read(data + done, want, &got);
    if (error.IsError()) {
      std::free(data);
      return error.Push(FXLOC("CZoFile::ReadWholeFile"));
    }
    if (got == 0) break;  // the file shrank under us: what was read is the file
    done += got;
  }
  data[done] = '\0';
  *buffer = data;
  size = done;
  return CZoError::Success();
}

CZoError CZoDirectory::Create(const char* path, bool recursive) {
  if (path == nullptr || *path == '\0') {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoDirectory::Create"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, path is empty");
  }
  std::string full(path);
  if (recursive) {
    for (size_t at = full.find('/', 1); at != std::string::npos; at = full.find('/', at + 1)) {
      std::string parent = full.substr(0, at);
      int err = zo_platform::MakeDirectory(parent.c_str());
      // A parent that is a file is left for the last step to report as the
      // system does (ENOTDIR), rather than as "exists".
      if (err != 0 && err != EEXIST) {
        return FXErrorUtil::ErrorWin32(FXLOC("CZoDirectory::Create"), static_cast<unsigned long>(err),
                                       "Failed to create directory [%s]", parent.c_str());
      }
    }
  }
  int err = zo_platform::MakeDirectory(full.c_str());
  if (err != 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoDirectory::Create"), static_cast<unsigned long>(err),
                                   "Failed to create directory [%s]", path);
  }
  return CZoError::Success();
}

namespace FXFile {
CZoError RemoveFile(const std::string& path) {
  int err = zo_platform::RemoveFile(path.c_str());
  if (err != 0) {
    return FXErrorUtil::ErrorWin32(FXLOC("FXFile::RemoveFile"), static_cast<unsigned long>(err),
                                   "Failed to remove file [%s]", path.c_str());
  }
  return CZoError::Success();
}
}  // namespace FXFile

namespace FXPath {
CZoError SplitParentPath(const std::string& path, std::string& parent, std::string& leaf) {
  parent.clear();
  leaf.clear();
  if (path.empty()) {
    return FXErrorUtil::ErrorWin32(FXLOC("FXPath::SplitParentPath"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, path is empty");
  }
  size_t at = path.rfind('/');
  if (at == std::string::npos) {
    leaf = path;
  } else {
    parent = at == 0 ? std::string("/") : path.substr(0, at);
    leaf = path.substr(at + 1);
  }
  return CZoError::Success();
}
}  // namespace FXPath
