// ZoHTTP: one web server through the platform HTTP layer. The logic is
// written against the layer's operations (HttpPlatform.h) and nothing else:
// no socket object, no system call of its own.
#include "ZoNetwork/ZoHTTP.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include <fcntl.h>
#include <sys/stat.h>

#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoFile.h"
#include "http/HttpPlatform.h"
#include "http/ZoHTTPInternal.h"

using FXErrorUtil::ErrorHttp;
using FXErrorUtil::ErrorWin32;
namespace hp = zonet_http;

namespace {

// The hidden switch of the user agent: the JSP form of the upload service.
const char kJspAgent[] = "Use_JSP_for_Upload";
const char kBoundary[] = "--HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--";
const char kCrLf[] = "\r\n";
// The request flags of every request: reload, no cache write, keep the connection.
constexpr uint32_t kRequestFlags = 0x84400000;
constexpr unsigned kChunk = 10240;

// The download destination and the upload source, by meaning (see docs/porting.md).
constexpr int kOpenDestinationFlags = O_CREAT | O_RDWR;
constexpr int kOpenDestinationMode = S_IRUSR | S_IWUSR;
constexpr int kOpenSourceFlags = O_RDONLY;
constexpr int kOpenSourceMode = S_IRUSR;

CZoError LastPlatformError(const char* function) { return ErrorWin32(FXLOC(function), hp::LastError()); }

}  // namespace

// ------------------------------------------------------------ object

ZoHTTP::ZoHTTP(const char* userAgent)
    : m_hInternet(nullptr),
      m_hConnect(nullptr),
      m_hRequest(nullptr),
      m_userAgent(userAgent),
      m_scheme("HTTP"),
      m_accessType(0),
      m_requestFlags(0),
      m_port(80),
      m_operation(0),
      m_timeout(0),
      m_ignoreCertErrors(0) {}

// Copies share the handles on purpose; each copy closes them.
ZoHTTP::ZoHTTP(const ZoHTTP& other) = default;
ZoHTTP& ZoHTTP::operator=(const ZoHTTP& other) = default;

ZoHTTP::~ZoHTTP() {
  _internetCloseHandle(m_hRequest);
  _internetCloseHandle(m_hConnect);
  _internetCloseHandle(m_hInternet);
}

// ------------------------------------------------------------ setters

void ZoHTTP::SetBaseURL(const char* url) {
  // Step 1: the text as given; an empty one changes nothing else.
  m_baseURL = url;
  if (m_baseURL.IsEmpty()) return;
  // Step 2: a trailing slash.
  m_baseURL.AppendForwardSlash();
  size_t start = 0;
  // Step 3: the scheme, as the caller wrote it.
  char schemeSeparator[] = "://";
  int found = m_baseURL.Find(schemeSeparator, 0);
  if (found >= 0) {
    m_scheme = m_baseURL.SubStr(0, static_cast<size_t>(found));
    start = static_cast<size_t>(found) + 3;
  }
  // Step 4: HTTPS sets the port and the secure flag; no other scheme undoes them.
  if (m_scheme.ToUpper() == "HTTPS") {
    m_port = 443;
    m_requestFlags |= hp::kFlagSecure;
  }
  // Step 5: the server runs to the next slash.
  found = m_baseURL.Find('/', start);
  if (found < 0) {
    m_webServer = m_baseURL.SubStr(start, m_baseURL.Length() - start);
    return;
  }
  // Step 6.
  m_webServer = m_baseURL.SubStr(start, static_cast<size_t>(found) - start);
  start = static_cast<size_t>(found) + 1;
  // Step 7: an explicit port; a colon with nothing behind it stays in the name.
  int colon = m_webServer.Find(':', 0);
  if (colon >= 0 && static_cast<size_t>(colon) + 1 != m_webServer.Length()) {
    CZoString portText = m_webServer.SubStr(static_cast<size_t>(colon) + 1, m_webServer.Length());
    m_webServer.ChopAt(static_cast<size_t>(colon));
    m_port = static_cast<uint16_t>(std::atoi(portText.c_str()));
  }
  // Step 8: the path, in one of its two forms.
  int query = m_baseURL.Find('?', start);
  if (query < 0) {
    m_path = m_baseURL.SubStr(start, m_baseURL.Length() - start);
  } else {
    m_path = m_baseURL.SubStr(start - 1, static_cast<size_t>(query) - (start - 1));
    start = static_cast<size_t>(query) + 1;
  }
  // Step 9: the query and fragment are located and kept nowhere.
  (void)m_baseURL.Find('#', 0);
}

void ZoHTTP::GetWorkingURL(CZoString& url) {
  if (!m_baseURL.IsEmpty()) {
    url = m_baseURL;
  } else {
    url = m_scheme + "://" + m_webServer + "/" + m_path;
  }
}

void ZoHTTP::SetWebServer(const char* server) { m_webServer = server; }
void ZoHTTP::SetUser(const char* user) { m_user = user; }
void ZoHTTP::SetPassword(const char* password) { m_password = password; }
void ZoHTTP::SetPath(const char* path) { m_path = path; }
void ZoHTTP::SetUserAgent(const char* userAgent) { m_userAgent = userAgent; }

void ZoHTTP::SetProxyAccess(const char* proxy, const char* bypass) {
  if (proxy != nullptr) m_proxyServer = proxy;
  if (bypass != nullptr) m_proxyBypass = bypass;
  m_accessType = hp::kOpenTypeProxy;
}

void ZoHTTP::SetProxyCreds(const char* user, const char* password) {
  if (user != nullptr) m_proxyUser = user;
  if (password != nullptr) m_proxyPassword = password;
}

void ZoHTTP::SetInternetTimeout(long milliseconds) { m_timeout = static_cast<int32_t>(milliseconds); }

void ZoHTTP::SetIgnoreCertificateErrors() { m_ignoreCertErrors = 1; }

// ------------------------------------------------------------ handle chain

void ZoHTTP::_getUserAuthorization() {
  // Step 1: no credentials leaves the older header line in force.
  if (m_user.IsEmpty() && m_password.IsEmpty()) return;
  // Step 2.
  std::string text = std::string(m_user.c_str()) + ":" + m_password.c_str();
  // Steps 3 and 4: Base64, with CR LF behind every group that brings the
  // count of characters to a multiple of 76.
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  size_t written = 0;
  for (size_t i = 0; i < text.size(); i += 3) {
    uint32_t v = static_cast<uint8_t>(text[i]) << 16;
    size_t left = text.size() - i;
    if (left > 1) v |= static_cast<uint8_t>(text[i + 1]) << 8;
    if (left > 2) v |= static_cast<uint8_t>(text[i + 2]);
    encoded += kAlphabet[(v >> 18) & 63];
    encoded += kAlphabet[(v >> 12) & 63];
    encoded += left > 1 ? kAlphabet[(v >> 6) & 63] : '=';
    encoded += left > 2 ? kAlphabet[v & 63] : '=';
    written += 4;
    if (written % 76 == 0) encoded += kCrLf;
  }
  // Step 5.
  m_authorization = CZoString("Authorization: Basic ") + encoded.c_str();
}

CZoError ZoHTTP::_openInternet() {
  // Step 1: the root handle, once.
  if (m_hInternet == nullptr) {
    bool named = m_accessType == hp::kOpenTypeProxy;
    m_hInternet = hp::InternetOpen(m_userAgent.c_str(), m_accessType, named ? m_proxyServer.c_str() : nullptr,
                                   named ? m_proxyBypass.c_str() : nullptr, 0);
    if (m_hInternet == nullptr) return LastPlatformError("ZoHTTP::_openInternet");
  }
  // Step 2: the time-outs, every time; results not looked at.
  if (m_timeout != 0) {
    uint32_t value = static_cast<uint32_t>(m_timeout);
    hp::InternetSetOption(m_hInternet, hp::kOptionConnectTimeout, &value, 4);
    hp::InternetSetOption(m_hInternet, hp::kOptionReceiveTimeout, &value, 4);
    hp::InternetSetOption(m_hInternet, hp::kOptionSendTimeout, &value, 4);
  }
  return CZoError::Success();
}

CZoError ZoHTTP::_connectInternet() {
  // Step 1: the connection handle, once; its user and password answer the
  // server's challenges to a GET.
  if (m_hConnect == nullptr) {
    m_hConnect = hp::InternetConnect(m_hInternet, m_webServer.c_str(), m_port,
                                     m_user.IsEmpty() ? nullptr : m_user.c_str(),
                                     m_password.IsEmpty() ? nullptr : m_password.c_str(), hp::kServiceHttp, 0, 0);
    if (m_hConnect == nullptr) return LastPlatformError("ZoHTTP::_connectInternet");
  }
  // Step 2.
  if (m_timeout != 0) {
    uint32_t value = static_cast<uint32_t>(m_timeout);
    hp::InternetSetOption(m_hConnect, hp::kOptionConnectTimeout, &value, 4);
    hp::InternetSetOption(m_hConnect, hp::kOptionReceiveTimeout, &value, 4);
    hp::InternetSetOption(m_hConnect, hp::kOptionSendTimeout, &value, 4);
  }
  return CZoError::Success();
}

CZoError ZoHTTP::_openRequest(bool closeExisting) {
  // Steps 1 to 3.
  _getUserAuthorization();
  CZoError error = _openInternet();
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_openRequest"));
  error = _connectInternet();
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_openRequest"));
  // Step 4.
  if (closeExisting && m_hRequest != nullptr) _internetCloseHandle(m_hRequest);
  // Step 5: an open request is used again.
  if (m_hRequest == nullptr) {
    // Step 6: the object.
    bool upload = m_operation == 3;
    CZoString object;
    if (!upload) {
      object = m_objectName;
    } else if (m_userAgent == kJspAgent) {
      object = CZoString("/") + m_path + "httplogupload.do";
    } else {
      object = CZoString("/") + m_path + "upload.asp";
    }
    // Step 7.
    const char* acceptAll[] = {"*/*", nullptr};
    m_hRequest = hp::HttpOpenRequest(m_hConnect, upload ? "POST" : "GET", object.c_str(), "HTTP/1.1",
                                     m_baseURL.c_str(), upload ? nullptr : acceptAll,
                                     m_requestFlags | kRequestFlags, 0);
    if (m_hRequest == nullptr) return LastPlatformError("ZoHTTP::_openRequest");
  }
  // Step 8.
  if (m_ignoreCertErrors) {
    error = _ignoreCertificateErrors();
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_openRequest"));
  }
  return CZoError::Success();
}

CZoError ZoHTTP::_queryRequestStatus() {
  // Step 1: the status as text.
  char text[32] = {0};
  uint32_t size = sizeof text;
  if (!hp::HttpQueryInfo(m_hRequest, hp::kQueryStatusCode, text, &size, nullptr)) {
    return LastPlatformError("ZoHTTP::_queryRequestStatus");
  }
  // Steps 2 and 3: everything below 400 is success.
  int status = std::atoi(text);
  if (status != 401 && status != 407) {
    if (status < 400) return CZoError::Success();
    return ErrorHttp(FXLOC("ZoHTTP::_queryRequestStatus"), status);
  }
  // Step 4: a challenge without a body is not an HTTP error.
  uint32_t available = 0;
  if (!hp::InternetQueryDataAvailable(m_hRequest, &available, 0, 0) || available == 0) {
    return ErrorWin32(FXLOC("ZoHTTP::_queryRequestStatus"), ZONET_ERR_NO_DATA);
  }
  // Step 5.
  char* buffer = new (std::nothrow) char[available];
  if (buffer == nullptr) return ErrorWin32(FXLOC("ZoHTTP::_queryRequestStatus"), ZONET_ERR_OUTOFMEMORY);
  // Step 6: drain the body.
  uint32_t read = 0;
  do {
    read = 0;
    hp::InternetReadFile(m_hRequest, buffer, available, &read);
  } while (read != 0);
  delete[] buffer;
  // Step 7: the proxy credentials, for either challenge.
  if (!hp::InternetSetOption(m_hRequest, hp::kOptionProxyUsername, m_proxyUser.c_str(),
                             static_cast<uint32_t>(m_proxyUser.Length())) ||
      !hp::InternetSetOption(m_hRequest, hp::kOptionProxyPassword, m_proxyPassword.c_str(),
                             static_cast<uint32_t>(m_proxyPassword.Length()))) {
    return LastPlatformError("ZoHTTP::_queryRequestStatus");
  }
  // Step 8.
  return ErrorHttp(FXLOC("ZoHTTP::_queryRequestStatus"), status);
}

CZoError ZoHTTP::_addRequestHeader(const char* name, const char* value) {
  std::string line = std::string(name ? name : "") + ": " + (value ? value : "") + kCrLf;
  if (!hp::HttpAddRequestHeaders(m_hRequest, line.c_str(), static_cast<uint32_t>(line.size()), hp::kAddReqFlagAdd)) {
    return LastPlatformError("ZoHTTP::_addRequestHeader");
  }
  return CZoError::Success();
}

CZoError ZoHTTP::_ignoreCertificateErrors() {
  uint32_t flags = 0;
  uint32_t size = 4;
  if (!hp::InternetQueryOption(m_hRequest, hp::kOptionSecurityFlags, &flags, &size)) {
    return LastPlatformError("ZoHTTP::_ignoreCertificateErrors");
  }
  flags |= hp::kSecurityFlagIgnoreCertDateInvalid | hp::kSecurityFlagIgnoreCertCnInvalid |
           hp::kSecurityFlagIgnoreUnknownCa | hp::kSecurityFlagIgnoreRevocation;
  if (!hp::InternetSetOption(m_hRequest, hp::kOptionSecurityFlags, &flags, 4)) {
    return LastPlatformError("ZoHTTP::_ignoreCertificateErrors");
  }
  return CZoError::Success();
}

CZoError ZoHTTP::_internetCloseHandle(void*& handle) {
  if (handle == nullptr) return CZoError::Success();
  if (!hp::InternetCloseHandle(handle)) return LastPlatformError("ZoHTTP::_internetCloseHandle");
  handle = nullptr;
  return CZoError::Success();
}

// ------------------------------------------------------------ downloads

CZoError ZoHTTP::DownloadFile(const char* localDir, const char* remotePath, const char* fileName) {
  // Step 1.
  if (remotePath != nullptr && *remotePath != '\0') {
    m_path = remotePath;
    m_path.AppendForwardSlash();
  }
  // Steps 2 and 3: the work list.
  std::vector<CZoString> work;
  if (fileName == nullptr) {
    CZoError error = GetFileList(work, nullptr);
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::DownloadFile"));
  } else {
    work.push_back(m_path + fileName);
  }
  // Step 4.
  m_operation = 2;
  // Step 5: in order; the first failure ends it.
  for (CZoString& entry : work) {
    m_objectName = entry;
    CZoError error = _downloadFile(localDir, entry.c_str());
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::DownloadFile"));
  }
  return CZoError::Success();
}

CZoError ZoHTTP::DownloadFileFromUrl(const char* localDir, const char* url, const char* fileName,
                                     std::map<std::string, std::string> headers) {
  // Step 1: a whole URL is the object name.
  if (url != nullptr && *url != '\0') {
    m_path = url;
    m_path.AppendForwardSlash();
    m_objectName = url;
  }
  // Steps 2 to 4: the headers stay behind when the fetch fails.
  m_requestHeaders = headers;
  CZoError error = _downloadFile(localDir, fileName);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::DownloadFileFromUrl"));
  m_requestHeaders.clear();
  return CZoError::Success();
}

CZoError ZoHTTP::_downloadFile(const char* localDir, const char* fileName) {
  // Step 1: the local path, joined with this system's separator.
  CZoString localPath = CZoString(localDir) + "/" + fileName;
  // Step 2: its folder.
  int slash = localPath.ReverseFind('/', 0);
  if (slash < 0) slash = localPath.ReverseFind('\\', 0);
  if (slash >= 0) {
    CZoError error = CZoDirectory::Create(localPath.SubStr(0, static_cast<size_t>(slash)).c_str(), true);
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_downloadFile"));
  }
  // Step 3: the file, made before anything is asked of the server; not truncated.
  CZoFile file;
  CZoError error = file.Open(localPath.c_str(), kOpenDestinationFlags, kOpenDestinationMode);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_downloadFile"));
  // Step 4: a refused request (a negative code) loses the file.
  CZoError result = _sendRequestGet(fileName);
  if (result.GetErrorCode() < 0) {
    file.Close();
    FXFile::RemoveFile(localPath.c_str());
    if (result.IsError()) return result.Push(FXLOC("ZoHTTP::_downloadFile"));
  }
  // Step 5: the body, through one buffer.
  static_assert(kChunk == 10240, "the transfers read in pieces of 10240 bytes");
  char buffer[kChunk];
  for (;;) {
    uint32_t got = 0;
    if (!hp::InternetReadFile(m_hRequest, buffer, kChunk, &got)) {
      file.Close();
      FXFile::RemoveFile(localPath.c_str());
      return LastPlatformError("ZoHTTP::_downloadFile");
    }
    if (got == 0) break;
    unsigned done = 0;
    while (done < got) {
      unsigned written = 0;
      CZoError wrote = file.Write(buffer + done, got - done, &written);
      // A file error on this system has a positive number: any failed write
      // ends the download (see docs/porting.md).
      if (wrote.IsError()) {
        file.Close();
        FXFile::RemoveFile(localPath.c_str());
        return wrote.Push(FXLOC("ZoHTTP::_downloadFile"));
      }
      done += written;
    }
  }
  // Step 6.
  file.Close();
  return CZoError::Success();
}

CZoError ZoHTTP::_sendRequestGet(const char*) {
  // Step 1: a new request handle.
  CZoError error = _openRequest(true);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_sendRequestGet"));
  // Step 2: the extra headers, results discarded.
  for (const auto& header : m_requestHeaders) _addRequestHeader(header.first.c_str(), header.second.c_str());
  // Step 3: up to two sends; a challenge gets the second.
  CZoError sendError = CZoError::Success();
  CZoError status = CZoError::Success();
  for (int pass = 0; pass < 2; ++pass) {
    sendError = CZoError::Success();
    if (!hp::HttpSendRequest(m_hRequest, nullptr, 0, nullptr, 0)) {
      sendError = LastPlatformError("ZoHTTP::_sendRequestGet");
    }
    status = _queryRequestStatus();
    if (FXErrorUtil::IsNotHttp(status, 407) && FXErrorUtil::IsNotHttp(status, 401)) break;
  }
  // Step 4.
  if (sendError.IsError() && !status.IsError()) return sendError;
  return status;
}

// ------------------------------------------------------------ upload

CZoError ZoHTTP::UploadFile(const char* filePath, const char* tkid) {
  m_tkid = tkid != nullptr ? tkid : "NO TKID";
  m_operation = 3;
  CZoError error = _uploadFile(filePath);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::UploadFile"));
  return CZoError::Success();
}

CZoError ZoHTTP::_uploadFile(const char* filePath) {
  // Steps 1 and 2.
  CZoFile file;
  CZoError error = file.Open(filePath, kOpenSourceFlags, kOpenSourceMode);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
  uint64_t size = 0;
  error = file.Size(size);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
  // Step 3: the name behind the last separator (not used by the post).
  CZoString path(filePath);
  int cut = path.ReverseFind('/', 0);
  if (cut < 0) cut = path.ReverseFind('\\', 0);
  if (cut >= 0) m_objectName = path.SubStr(static_cast<size_t>(cut) + 1, path.Length());
  // Step 4: send, and again when the layer asks for it, up to three times.
  int retries = 0;
  for (;;) {
    error = _sendRequestPost(filePath, static_cast<size_t>(size));
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
    error = _uploadData(m_postPreamble.c_str(), m_postPreamble.Length());
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
    char buffer[kChunk];
    uint64_t sent = 0;
    while (sent < size) {
      unsigned got = 0;
      error = file.Read(buffer, kChunk, &got);
      if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
      if (got == 0) break;
      error = _uploadData(buffer, got);
      if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
      sent += got;
    }
    // The source is closed here, so a second pass has only an empty file to send.
    file.Close();
    error = _uploadData(m_postEpilogue.c_str(), m_postEpilogue.Length());
    if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_uploadFile"));
    if (hp::HttpEndRequest(m_hRequest, nullptr, 0, 0)) {
      // Whatever the server answered counts as success.
      _internetCloseHandle(m_hRequest);
      return CZoError::Success();
    }
    uint32_t code = hp::LastError();
    if (code == ZONET_ERR_HTTP_FORCE_RETRY && retries < 3) {
      ++retries;
      continue;
    }
    return ErrorWin32(FXLOC("ZoHTTP::_uploadFile"), code);
  }
}

CZoError ZoHTTP::_sendRequestPost(const char* fileName, size_t fileSize) {
  // Step 1: the form around the file.
  std::string delimiter = std::string("--") + kBoundary + kCrLf;
  std::string pre = delimiter + "Content-Disposition: form-data; name=\"mode\"\r\n\r\ngo\r\n" + delimiter +
                    "Content-Disposition: form-data; name=\"tkid\"\r\n\r\n" + m_tkid.c_str() + kCrLf;
  if (m_userAgent == kJspAgent) {
    pre += delimiter + "Content-Disposition: form-data; name=\"username\"\r\n\r\n" + m_user.c_str() + kCrLf;
    pre += delimiter + "Content-Disposition: form-data; name=\"password\"\r\n\r\n" + m_password.c_str() + kCrLf;
  }
  pre += delimiter + "Content-Disposition: form-data; name=\"logfile\"; filename=" + (fileName ? fileName : "") +
         kCrLf + "Content-Type: application/octet-stream\r\n\r\n";
  std::string post = std::string(kCrLf) + delimiter + "Content-Disposition: form-data; name=\"submit\"\r\n\r\nUpload\r\n" +
                     "--" + kBoundary + "--" + kCrLf;
  m_postPreamble = pre.c_str();
  m_postEpilogue = post.c_str();
  // Step 2: the open request is used again.
  CZoError error = _openRequest(false);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_sendRequestPost"));
  // Step 3.
  error = _addRequestHeader("Content-Type", (std::string("multipart/form-data; boundary=") + kBoundary).c_str());
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_sendRequestPost"));
  // Step 4.
  if (!m_authorization.IsEmpty()) {
    if (!hp::HttpAddRequestHeaders(m_hRequest, m_authorization.c_str(), static_cast<uint32_t>(m_authorization.Length()),
                                   hp::kAddReqFlagAdd)) {
      return LastPlatformError("ZoHTTP::_sendRequestPost");
    }
  }
  // Step 5: the whole length up front, in 32 bits.
  hp::InternetBuffers buffers;
  buffers.dwStructSize = 56;
  buffers.dwBufferTotal = static_cast<uint32_t>(m_postPreamble.Length() + fileSize + m_postEpilogue.Length());
  // Step 6: an unknown authority is accepted and the send goes again; a
  // challenge goes again too.
  for (;;) {
    if (hp::HttpSendRequestEx(m_hRequest, &buffers, nullptr, hp::kHsrInitiate, 0)) break;
    if (hp::LastError() == ZONET_ERR_HTTP_INVALID_CA) {
      uint32_t flags = 0;
      uint32_t size = 4;
      hp::InternetQueryOption(m_hRequest, hp::kOptionSecurityFlags, &flags, &size);
      flags |= hp::kSecurityFlagIgnoreUnknownCa | hp::kSecurityFlagIgnoreRevocation;
      hp::InternetSetOption(m_hRequest, hp::kOptionSecurityFlags, &flags, 4);
      continue;
    }
    CZoError status = _queryRequestStatus();
    if (FXErrorUtil::IsHttp(status, 407) || FXErrorUtil::IsHttp(status, 401)) continue;
    break;
  }
  // Step 7: a send that failed otherwise is not reported here.
  return CZoError::Success();
}

CZoError ZoHTTP::_uploadData(const char* data, size_t size) {
  size_t sent = 0;
  while (sent < size) {
    uint32_t written = 0;
    if (!hp::InternetWriteFile(m_hRequest, data + sent, static_cast<uint32_t>(size - sent), &written)) {
      return LastPlatformError("ZoHTTP::_uploadData");
    }
    sent += written;
  }
  return CZoError::Success();
}

CZoError ZoHTTP::_sendRequestPut(unsigned long size) {
  CZoError error = _openRequest(false);
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_sendRequestPut"));
  hp::InternetBuffers buffers;
  buffers.dwStructSize = 56;
  buffers.dwBufferTotal = static_cast<uint32_t>(size);
  if (!hp::HttpSendRequestEx(m_hRequest, &buffers, nullptr, hp::kHsrInitiate, 0)) {
    return LastPlatformError("ZoHTTP::_sendRequestPut");
  }
  return CZoError::Success();
}

// ------------------------------------------------------------ listing

CZoError ZoHTTP::GetFileList(std::vector<CZoString>& files, const char* path) {
  // Steps 1 to 3.
  files.clear();
  CZoString local;
  if (path != nullptr && *path != '\0') {
    local = path;
    local.AppendForwardSlash();
  }
  CZoString url = m_baseURL.IsEmpty() ? m_scheme + "://" + m_webServer + "/" + local : m_baseURL + local;
  // Step 4.
  CZoError error = _getFileListRecursive(files, url.c_str());
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::GetFileList"));
  return CZoError::Success();
}

CZoError ZoHTTP::_getFileListRecursive(std::vector<CZoString>& files, const char* url) {
  // Step 1.
  CZoError error = _openInternet();
  if (error.IsError()) return error.Push(FXLOC("ZoHTTP::_getFileListRecursive"));
  // Step 2: the page, past the connection and request handles.
  void* page = hp::InternetOpenUrl(m_hInternet, url, nullptr, 0, m_requestFlags | kRequestFlags, 0);
  if (page == nullptr) return LastPlatformError("ZoHTTP::_getFileListRecursive");
  // Step 3: the whole page as text; a NUL cuts its chunk off there.
  CZoString text;
  char* buffer = new (std::nothrow) char[kChunk + 1];
  if (buffer == nullptr) {
    _internetCloseHandle(page);
    return ErrorWin32(FXLOC("ZoHTTP::_getFileListRecursive"), ZONET_ERR_OUTOFMEMORY);
  }
  std::memset(buffer, 0, kChunk + 1);
  for (;;) {
    uint32_t got = 0;
    if (!hp::InternetReadFile(page, buffer, kChunk, &got)) {
      // The page handle stays open on this path; the root's close ends it.
      delete[] buffer;
      return LastPlatformError("ZoHTTP::_getFileListRecursive");
    }
    if (got == 0) break;
    buffer[got] = '\0';
    text += buffer;
    std::memset(buffer, 0, kChunk + 1);
  }
  delete[] buffer;
  // Steps 4 to 11: links by their marker; a directory link is walked, any
  // other is an entry.
  error = zonet_internal::ScanListingPage(text, m_userAgent == kJspAgent, [&](CZoString& link, bool directory) {
    if (!directory) {
      files.push_back(link);
      return CZoError::Success();
    }
    CZoString nested = m_scheme + "://" + m_webServer + link;
    return _getFileListRecursive(files, nested.c_str());
  });
  if (error.IsError()) {
    _internetCloseHandle(page);
    return error.Push(FXLOC("ZoHTTP::_getFileListRecursive"));
  }
  // Step 12.
  _internetCloseHandle(page);
  return CZoError::Success();
}

namespace zonet_internal {

CZoError ScanListingPage(CZoString& page, bool jspMarker,
                         const std::function<CZoError(CZoString& link, bool directory)>& onLink) {
  // The marker is case-sensitive: each server type finds only its own form.
  char lower[] = "href=\"";
  char upper[] = "HREF=\"";
  char* marker = jspMarker ? lower : upper;
  // Step 4.
  bool skip = true;
  size_t position = 0;
  for (;;) {
    // Step 5.
    int match = page.Find(marker, position);
    if (match < 0) break;
    // Step 6: the marker is 6 long, so 7 also drops the link's first character.
    position = static_cast<size_t>(match) + 7;
    // Steps 7 and 8: a link without its closing mark is dropped.
    int quote = page.Find('"', position);
    if (quote < 0) break;
    CZoString link = page.SubStr(position, static_cast<size_t>(quote) - position);
    position = static_cast<size_t>(quote);
    // Step 9: the first link of every page is never reported.
    if (skip) {
      skip = false;
      continue;
    }
    // Step 10: the character at index Length() of the link decides.
    bool directory = link[link.Length()] == '/';
    CZoError error = onLink(link, directory);
    if (error.IsError()) return error;
  }
  return CZoError::Success();
}

}  // namespace zonet_internal
