// A saved name listing of an FTP or SFTP server, read back as one entry per
// line. Names are taken as they stand: nothing is trimmed, decoded or skipped.
#include <cstdlib>
#include <string>

#include "ZoNetwork/XnFTPReq.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoFile.h"
#include "curl/XnCurlInternal.h"

namespace XnCURL {

CZoError XnFTPReq::collectFilesAndDir(const std::string& responseFile, std::vector<FileDirInfo>* entries,
                                      std::string /*parentLink*/) {
  const char* const where = "XnFTPReq::collectFilesAndDir";
  if (!m_initialized) return FXErrorUtil::ErrorInt(FXLOC(where), 1, "%s", zonet_curl::kNotInitializedSingular);
  if (entries == nullptr) {
    return FXErrorUtil::ErrorInt(FXLOC(where), 1, "Null pointer passed for output vector");
  }
  CZoFile file;
  CZoError error = file.Open(responseFile.c_str(), 0, 0);
  if (error.IsError()) {
    return error.Push(FXLOC(where), "Failed to open the response file [%s]", responseFile.c_str());
  }
  uint64_t size = 0;
  error = file.Size(size);
  if (error.IsError()) {
    return error.Push(FXLOC(where), "Failed to get the size of a file [%s]", responseFile.c_str());
  }
  if (size == 0) return CZoError::Success();
  char* buffer = nullptr;
  size_t length = 0;
  error = CZoFile::ReadWholeFile(responseFile.c_str(), &buffer, length);
  if (error.IsError()) {
    std::free(buffer);
    // The file emptied between the size and the read.
    if (error.Is(FXErrorUtil::ErrorWin32(FXLOC(where), ZONET_ERR_EMPTY, "%s", "").GetErrorCode())) {
      return CZoError::Success();
    }
    return error.Push(FXLOC(where), "Failed to read the response file [%s]", responseFile.c_str());
  }
  error = file.Close();
  if (error.IsError()) {
    std::free(buffer);
    return error.Push(FXLOC(where), "Failed to close the response file [%s]", responseFile.c_str());
  }
  if (buffer == nullptr) return FXErrorUtil::ErrorInt(FXLOC(where), 1, "NULL buffer from ReadWholeFile");
  const std::string listing(buffer);  // up to the first zero byte
  std::free(buffer);
  // A line ends in a line feed, with or without a carriage return before it:
  // curl hands FTP listings over with bare line feeds here, and SFTP
  // listings always have them. Text behind the last line end is no line.
  size_t at = 0;
  for (;;) {
    const size_t feed = listing.find('\n', at);
    if (feed == std::string::npos) break;
    size_t end = feed;
    if (end > at && listing[end - 1] == '\r') --end;
    FileDirInfo entry;
    entry.m_name = listing.substr(at, end - at);
    entry.m_isFile = 0;
    entry.m_reserved = 0;
    entries->push_back(entry);
    at = feed + 1;
  }
  return CZoError::Success();
}

}  // namespace XnCURL
