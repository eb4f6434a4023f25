// FTP and SFTP: each kind of request as curl options, the commands sent
// ahead of a transfer, the success rule and the composition of the URL.
#include "ZoNetwork/XnFTPReq.h"

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnSFTPReq.h"
#include "ZoUtils/ZoString.h"
#include "curl/XnCurlInternal.h"

using namespace CurlWrapper;

namespace XnCURL {

namespace {

// The not-initialized answer of every FTP operation, under the operation's name.
CZoError NotInitialized(const char* where) {
  return FXErrorUtil::ErrorInt(FXLOC(where), 1, "%s", zonet_curl::kNotInitializedSingular);
}

// Splits server and path for one scheme. A full URL in the path wins over
// the registered server, without any check that they agree. With
// anyCase the scheme is found in upper or lower case; every cut is made on
// the text as it stands.
void SplitForScheme(const std::string& registered, const std::string& urlPath, const std::string& scheme,
                    bool anyCase, std::string& server, std::string& path) {
  std::string serverCopy = registered;
  const std::string pathCopy = urlPath;
  std::string serverSearch = serverCopy;
  std::string pathSearch = pathCopy;
  if (anyCase) {
    FXString::ToLower(serverSearch);
    FXString::ToLower(pathSearch);
  }
  if (serverSearch.find(scheme) == std::string::npos) serverCopy = scheme + serverCopy;
  (void)FXString::RemoveRight(serverCopy, "/");
  const size_t mark = pathSearch.find(scheme);
  if (mark == std::string::npos) {
    server = serverCopy;
    path = "/" + pathCopy;
    return;
  }
  const size_t slash = pathCopy.find('/', mark + scheme.size());
  if (slash == std::string::npos) {
    server = pathCopy;
    path = "/";
  } else {
    server = pathCopy.substr(0, slash);
    path = pathCopy.substr(slash);
  }
}

}  // namespace

XnFTPReq::XnFTPReq() : m_quoteList(nullptr) {}

// Shallow on purpose, as the base: the list is shared with the source.
XnFTPReq::XnFTPReq(const XnFTPReq& other) = default;
XnFTPReq& XnFTPReq::operator=(const XnFTPReq& other) = default;

XnFTPReq::~XnFTPReq() {
  if (m_quoteList != nullptr) {
    xn_curl_slist_free_all(m_quoteList);
    m_quoteList = nullptr;
  }
}

#define ZO_FTP_SETTER(name, option, value)                                                             \
  resetCurlErrorBuffer();                                                                              \
  if (!m_initialized) return NotInitialized(name);                                                     \
  m_lastCurlCode = xn_curl_easy_setopt(m_curlContext->m_curlHandle, option, value);                    \
  if (m_lastCurlCode != 0) {                                                                           \
    return ErrorXnCURL(FXLOC(name), m_lastCurlCode, "Failed to set option [%d]", static_cast<int>(option)); \
  }                                                                                                    \
  return CZoError::Success()

CZoError XnFTPReq::SetFTPResponseTimeOut(long seconds) {
  ZO_FTP_SETTER("XnFTPReq::SetFTPResponseTimeOut", CURLOPT_FTP_RESPONSE_TIMEOUT, seconds);
}

CZoError XnFTPReq::setFTPAuth(int mask) {
  ZO_FTP_SETTER("XnFTPReq::setFTPAuth", CURLOPT_SSH_AUTH_TYPES, static_cast<long>(mask));
}

CZoError XnFTPReq::setSSL() {
  ZO_FTP_SETTER("XnFTPReq::setSSL", CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_CONTROL));
}

CZoError XnFTPReq::setActiveMode(const std::string& address, const std::string& port) {
  // Both empty: curl takes the address of the control connection and a port
  // of its own choice.
  const std::string value = address.empty() && port.empty() ? std::string("-") : address + ":" + port;
  ZO_FTP_SETTER("XnFTPReq::setActiveMode", CURLOPT_FTPPORT, value.c_str());
}

CZoError XnFTPReq::disableActiveMode() {
  ZO_FTP_SETTER("XnFTPReq::disableActiveMode", CURLOPT_FTPPORT, static_cast<void*>(nullptr));
}

#undef ZO_FTP_SETTER

CZoError XnFTPReq::setDefaults() {
  // The error buffer is left as it is here.
  if (!m_initialized) return NotInitialized("XnFTPReq::setDefaults");
  m_lastCurlCode = xn_curl_easy_setopt(m_curlContext->m_curlHandle, CURLOPT_FTP_USE_EPSV, 0L);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnFTPReq::setDefaults"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_FTP_USE_EPSV));
  }
  return CZoError::Success();
}

CZoError XnFTPReq::setHeaders(const std::map<std::string, std::string>& headers) {
  resetCurlErrorBuffer();
  if (!m_initialized) return NotInitialized("XnFTPReq::setHeaders");
  if (headers.empty()) return CZoError::Success();
  for (const auto& entry : headers) {
    const std::string command = entry.first + ":" + entry.second;
    // A failed append keeps the list built so far.
    curl_slist* grown = xn_curl_slist_append(m_quoteList, command.c_str());
    if (grown != nullptr) m_quoteList = grown;
  }
  m_lastCurlCode = xn_curl_easy_setopt(m_curlContext->m_curlHandle, CURLOPT_QUOTE, static_cast<void*>(m_quoteList));
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnFTPReq::setHeaders"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_QUOTE));
  }
  return CZoError::Success();
}

CZoError XnFTPReq::setMethodParameter() {
  if (!m_initialized) return NotInitialized("XnFTPReq::setMethodParameter");
  void* handle = m_curlContext->m_curlHandle;
  // Every request asks for a tunnel, proxy or not; without a proxy curl
  // ignores it.
  (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPPROXYTUNNEL, 1L);
  // The options' results are not looked at here.
  switch (m_operationType) {
    case opUpload:
      (void)xn_curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
      (void)xn_curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, static_cast<long long>(m_dataSizeInBytes));
      (void)xn_curl_easy_setopt(handle, CURLOPT_FTP_CREATE_MISSING_DIRS, 1L);
      break;
    case opDownload:
      break;
    case opList:
      (void)xn_curl_easy_setopt(handle, CURLOPT_DIRLISTONLY, 1L);
      break;
    case opFileInfo:
      zonet_curl::SetSizeProbe(handle, reinterpret_cast<void*>(&getContentSize));
      break;
    case opHeadOnly:
    case opCheck:
      (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
      break;
    default:
      return FXErrorUtil::ErrorInt(FXLOC("XnFTPReq::setMethodParameter"), 101, "Invalid OpType [%d] for FTP protocol",
                                   static_cast<int>(m_operationType));
  }
  return CZoError::Success();
}

CZoError XnFTPReq::unsetOpTypeParameter() {
  if (!m_initialized) return NotInitialized("XnFTPReq::unsetOpTypeParameter");
  void* handle = m_curlContext->m_curlHandle;
  // Only with a proxy: without one the tunnel option stays at 1.
  if (m_isProxySet) (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPPROXYTUNNEL, 0L);
  if (m_quoteList != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_QUOTE, static_cast<void*>(nullptr));
    xn_curl_slist_free_all(m_quoteList);
    m_quoteList = nullptr;
  }
  switch (m_operationType) {
    case opUpload:
      // The creation of missing directories stays on for later requests.
      (void)xn_curl_easy_setopt(handle, CURLOPT_UPLOAD, 0L);
      (void)xn_curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, 0LL);
      break;
    case opList:
      (void)xn_curl_easy_setopt(handle, CURLOPT_DIRLISTONLY, 0L);
      break;
    case opFileInfo:
      zonet_curl::UnsetSizeProbe(handle);
      break;
    case opHeadOnly:
    case opCheck:
      (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 0L);
      break;
    default:
      break;
  }
  return CZoError::Success();
}

CZoError XnFTPReq::isOperationSuccess(bool& ok) {
  if (!m_initialized) return NotInitialized("XnFTPReq::isOperationSuccess");
  // A transfer that leaves no response code has succeeded: SFTP has none.
  const int hundreds = m_responseCode / 100;
  ok = m_responseCode == 0 || hundreds == 1 || hundreds == 2 || hundreds == 3;
  return CZoError::Success();
}

CZoError XnFTPReq::splitServerAndURLPath(std::string& server, std::string& path) {
  if (!m_initialized) return NotInitialized("XnFTPReq::splitServerAndURLPath");
  SplitForScheme(m_URL, m_URLPath, "ftp://", false, server, path);
  return CZoError::Success();
}

CZoError XnFTPReq::getFullWorkingURL(std::string& url) {
  if (!m_initialized) return NotInitialized("XnFTPReq::getFullWorkingURL");
  std::string server;
  std::string path;
  CZoError error = splitServerAndURLPath(server, path);
  if (error.IsError()) return error.Push(FXLOC("XnFTPReq::getFullWorkingURL"), "splitServerAndURLPath failed.");
  if (!m_portNo.empty()) server += ":" + m_portNo;
  url = server + path;
  return CZoError::Success();
}

CZoError XnFTPReq::IsFile(const std::string& path, bool& isFile) {
  resetCurlErrorBuffer();
  if (!m_initialized) return NotInitialized("XnFTPReq::IsFile");
  CZoString probe(path.c_str());
  probe.AppendForwardSlash();
  setURLPath(probe.c_str());
  setOperationType(opFileInfo);
  CZoError error = SendReqest();
  // The path with a slash behind it could not be entered as a directory.
  if (m_lastCurlCode == CURLE_REMOTE_ACCESS_DENIED) {
    isFile = true;
    return CZoError::Success();
  }
  if (error.IsError()) return error.Push(FXLOC("XnFTPReq::IsFile"));
  isFile = false;
  return CZoError::Success();
}

// ---- SFTP: the scheme is all that differs ----

XnSFTPReq::XnSFTPReq() = default;
XnSFTPReq::XnSFTPReq(const XnSFTPReq& other) = default;
// The move forms copy, as the copy forms do: the source keeps what it holds.
XnSFTPReq::XnSFTPReq(XnSFTPReq&& other) : XnFTPReq(static_cast<const XnFTPReq&>(other)) {}
XnSFTPReq& XnSFTPReq::operator=(const XnSFTPReq& other) = default;
XnSFTPReq& XnSFTPReq::operator=(XnSFTPReq&& other) {
  XnFTPReq::operator=(static_cast<const XnFTPReq&>(other));
  return *this;
}
XnSFTPReq::~XnSFTPReq() = default;

CZoError XnSFTPReq::splitServerAndURLPath(std::string& server, std::string& path) {
  if (!m_initialized) return NotInitialized("XnSFTPReq::splitServerAndURLPath");
  SplitForScheme(m_URL, m_URLPath, "sftp://", true, server, path);
  return CZoError::Success();
}

}  // namespace XnCURL
