// The directory page of a web server, saved by a client, read back as one
// level of entries. Not an HTML parser: it scans for link attributes.
#include <cstdlib>
#include <string>

#include "ZoNetwork/XnHTTPReq.h"
#include "ZoUtils/ZoFile.h"
#include "curl/XnCurlInternal.h"

namespace XnCURL {

namespace {

const char kInvalidPage[] = "Invalid HTTP Reponse. Parsing the reponse file failed.";

// The next link attribute at or behind from: the upper-case form wins over a
// lower-case one that stands ahead of it.
size_t NextLink(const std::string& page, size_t from) {
  size_t at = page.find("HREF=\"", from);
  if (at == std::string::npos) at = page.find("href=\"", from);
  return at;
}

}  // namespace

CZoError XnHTTPReq::collectFilesAndDir(const std::string& responseFile, std::vector<FileDirInfo>* entries,
                                       std::string parentLink) {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::collectFilesAndDir"), 1, "%s",
                                 zonet_curl::kNotInitializedSingular);
  }
  if (entries == nullptr) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::collectFilesAndDir"), 1, "NULL pointer passed for output vector");
  }
  CZoFile file;
  CZoError error = file.Open(responseFile.c_str(), 0, 0);
  if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::collectFilesAndDir"), "Failed to open response file.");
  uint64_t size = 0;
  error = file.Size(size);
  if (error.IsError()) {
    return error.Push(FXLOC("XnHTTPReq::collectFilesAndDir"), "Failed to get the size of a file [%s]",
                      responseFile.c_str());
  }
  if (size == 0) return CZoError::Success();
  char* buffer = nullptr;
  size_t length = 0;
  error = CZoFile::ReadWholeFile(responseFile.c_str(), &buffer, length);
  if (error.IsError()) {
    std::free(buffer);
    return error.Push(FXLOC("XnHTTPReq::collectFilesAndDir"), "Failed to read response file.");
  }
  if (buffer == nullptr) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::collectFilesAndDir"), 1, "Content buffer is NULL");
  }
  const std::string page(buffer);  // up to the first zero byte
  std::free(buffer);

  size_t link = NextLink(page, 0);
  bool first = true;
  while (link != std::string::npos) {
    const size_t start = link + 6;
    const size_t close = page.find('"', start);
    if (close == std::string::npos) return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::collectFilesAndDir"), 101, kInvalidPage);
    std::string text = page.substr(start, close - start);
    bool skip = false;
    bool parentDecided = false;
    if (first) {
      first = false;
      const size_t open = page.find('[', close);
      const size_t shut = open == std::string::npos ? std::string::npos : page.find(']', open);
      if (open != std::string::npos && shut != std::string::npos) {
        skip = page.substr(open, shut - open + 1) == "[To Parent Directory]";
        parentDecided = true;
      }
      if (!parentDecided) skip = text == parentLink;
    }
    if (!skip) {
      // An empty link text has no last character; it ends the parse as a page
      // that cannot be read, rather than with an exception.
      if (text.empty()) return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::collectFilesAndDir"), 101, kInvalidPage);
      bool directory = false;
      if (text.back() == '/') {
        text.pop_back();
        directory = true;
      }
      const size_t slash = text.rfind('/');
      if (slash == std::string::npos) {
        return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::collectFilesAndDir"), 101, kInvalidPage);
      }
      std::string name;
      URLDecode(text.substr(slash + 1), name);
      if (name != "web.config") {
        FileDirInfo entry;
        entry.m_name = name;
        entry.m_isFile = directory ? 0 : 1;
        entry.m_reserved = 0;
        entries->push_back(entry);
      }
    }
    link = NextLink(page, close);
  }
  error = file.Close();
  if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::collectFilesAndDir"));
  return CZoError::Success();
}

}  // namespace XnCURL
