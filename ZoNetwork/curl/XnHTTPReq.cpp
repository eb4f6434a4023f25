// HTTP and HTTPS: each kind of request as curl options, the request
// headers, multipart forms, the success rule and the composition of the URL.
#include "ZoNetwork/XnHTTPReq.h"

#include "ZoNetwork/CurlWrapper.h"
#include "ZoUtils/ZoFile.h"
#include "ZoUtils/ZoString.h"
#include "curl/CurlLegacy.h"
#include "curl/XnCurlInternal.h"

using namespace CurlWrapper;

namespace XnCURL {

namespace {

const char kSchemeMark[] = "://";

}  // namespace

XnHTTPReq::XnHTTPReq(HTTPProtocol protocol)
    : m_protocol(protocol),
      m_headerList(nullptr),
      m_chunkedTransfer(false),
      m_formPostFirst(nullptr),
      m_formPostLast(nullptr) {}

// Shallow on purpose, as the base: the lists are shared with the source.
XnHTTPReq::XnHTTPReq(const XnHTTPReq& other) = default;
XnHTTPReq& XnHTTPReq::operator=(const XnHTTPReq& other) = default;

XnHTTPReq::~XnHTTPReq() {
  if (m_headerList != nullptr) {
    xn_curl_slist_free_all(m_headerList);
    m_headerList = nullptr;
  }
  if (m_formPostFirst != nullptr) {
    xn_curl_formfree(m_formPostFirst);
    m_formPostFirst = nullptr;
    m_formPostLast = nullptr;
  }
  // Lists still in m_formHeaderLists are freed only by unsetOpTypeParameter.
}

CZoError XnHTTPReq::setHTTPAuth(long mask) {
  resetCurlErrorBuffer();
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setHTTPAuth"), 1, "%s", zonet_curl::kNotInitializedSingular);
  }
  m_lastCurlCode = xn_curl_easy_setopt(m_curlContext->m_curlHandle, CURLOPT_HTTPAUTH, mask);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnHTTPReq::setHTTPAuth"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_HTTPAUTH));
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::addFormValues(const std::string& name, int type, const std::string& value) {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::addFormValues"), 1, "%s", zonet_curl::kNotInitializedPlural);
  }
  FormValue field;
  field.m_name = name;
  field.m_formType = type;
  field.m_value = value;
  m_formValues.push_back(field);
  return CZoError::Success();
}

CZoError XnHTTPReq::setDefaults() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setDefaults"), 1, "%s", zonet_curl::kNotInitializedPlural);
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::setMethodParameter() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setMethodParameter"), 1, "%s",
                                 zonet_curl::kNotInitializedSingular);
  }
  void* handle = m_curlContext->m_curlHandle;
  // The options' results are not looked at here.
  switch (m_operationType) {
    case opUpload:
      // A form that fails does not stop the upload: it goes out with what the
      // form holds.
      (void)setFormValue();
      addRequestedHeaders("Expect", m_skipExpect100 ? "" : "100-continue");
      (void)xn_curl_easy_setopt(handle, zonet_curl::kOptHttpPost, static_cast<void*>(m_formPostFirst));
      break;
    case opDownload:
      (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
      break;
    case opList:
      break;
    case opFileInfo:
      zonet_curl::SetSizeProbe(handle, reinterpret_cast<void*>(&getContentSize));
      break;
    case opHeadOnly:
      (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
      break;
    case opPostString:
      (void)xn_curl_easy_setopt(handle, CURLOPT_POST, 1L);
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(m_postString.size()));
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDS, m_postString.c_str());
      break;
    case opCheck:
      (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
      break;
    case opPostBuffer:
      (void)xn_curl_easy_setopt(handle, CURLOPT_POST, 1L);
      if (m_dataSizeInBytes != 0) {
        (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(m_dataSizeInBytes));
        if (m_postBuffer == nullptr) {
          return FXErrorUtil::ErrorInt(
              FXLOC("XnHTTPReq::setMethodParameter"), 1,
              "XnProtocol buffer is NULL. Set buffer before calling doPostOperation function.");
        }
        (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDS, m_postBuffer);
      } else {
        (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, 0L);
      }
      break;
    case opCustomRequest:
      (void)xn_curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, m_operationName.c_str());
      if (m_postBuffer == nullptr) {
        return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setMethodParameter"), 1,
                                     "XnProtocol buffer is NULL. Set buffer before calling.");
      }
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDS, m_postBuffer);
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, static_cast<long>(m_dataSizeInBytes));
      break;
    case opGet:
      (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
      break;
    default:
      return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setMethodParameter"), 101, "Invalid OpType [%d]",
                                   static_cast<int>(m_operationType));
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::setFormValue() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setFormValue"), 1, "%s", zonet_curl::kNotInitializedSingular);
  }
  // Emptied without freeing: unsetOpTypeParameter frees what it holds.
  m_formHeaderLists.clear();
  for (const FormValue& field : m_formValues) {
    std::string header;
    if (field.m_formType == zonet_curl::kFormFile) {
      std::string parent;
      std::string leaf;
      CZoError error = FXPath::SplitParentPath(field.m_value, parent, leaf);
      if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::setFormValue"));
      header = FXString::Format("Content-Disposition: form-data; name=\"%s\";filename=\"%s\"", field.m_name.c_str(),
                                leaf.c_str());
    } else {
      header = FXString::Format("Content-Disposition: form-data; name=\"%s\"", field.m_name.c_str());
    }
    curl_slist* list = xn_curl_slist_append(nullptr, header.c_str());
    if (list == nullptr) {
      return ErrorXnCURL(FXLOC("XnHTTPReq::setFormValue"), -1, "Failed to create content header list.");
    }
    m_formHeaderLists.push_back(list);
    (void)xn_curl_formadd(&m_formPostFirst, &m_formPostLast, zonet_curl::kFormContentHeader, list,
                          zonet_curl::kFormCopyName, field.m_name.c_str(),
                          static_cast<CURLformoption>(field.m_formType), field.m_value.c_str(),
                          zonet_curl::kFormEnd);
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::setHeaders(const std::map<std::string, std::string>& headers) {
  resetCurlErrorBuffer();
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::setHeaders"), 1, "%s", zonet_curl::kNotInitializedSingular);
  }
  if (headers.empty()) return CZoError::Success();
  for (const auto& entry : headers) {
    // An empty value ends the line in the colon, which tells curl to send no
    // such header at all.
    const std::string line = entry.first + ":" + entry.second;
    curl_slist* grown = xn_curl_slist_append(m_headerList, line.c_str());
    // The result is not looked at beyond keeping the list: a failed append
    // leaves the list as it was.
    if (grown != nullptr) m_headerList = grown;
  }
  m_lastCurlCode = xn_curl_easy_setopt(m_curlContext->m_curlHandle, CURLOPT_HTTPHEADER,
                                       static_cast<void*>(m_headerList));
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnHTTPReq::setHeaders"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_HTTPHEADER));
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::unsetOpTypeParameter() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::unsetOpTypeParameter"), 1, "%s",
                                 zonet_curl::kNotInitializedSingular);
  }
  void* handle = m_curlContext->m_curlHandle;
  if (m_headerList != nullptr) {
    xn_curl_slist_free_all(m_headerList);
    (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPHEADER, static_cast<void*>(nullptr));
    m_headerList = nullptr;
  }
  m_formValues.clear();
  switch (m_operationType) {
    case opUpload:
      (void)xn_curl_easy_setopt(handle, zonet_curl::kOptHttpPost, static_cast<void*>(nullptr));
      (void)xn_curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, 0LL);
      if (m_formPostFirst != nullptr) {
        xn_curl_formfree(m_formPostFirst);
        m_formPostFirst = nullptr;
        m_formPostLast = nullptr;
      }
      for (curl_slist* list : m_formHeaderLists) xn_curl_slist_free_all(list);
      m_formHeaderLists.clear();
      break;
    case opDownload:
      (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPGET, 0L);
      break;
    case opList:
      break;
    case opFileInfo:
      zonet_curl::UnsetSizeProbe(handle);
      break;
    case opHeadOnly:
    case opCheck:
      (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 0L);
      break;
    case opPostString:
      (void)xn_curl_easy_setopt(handle, CURLOPT_POST, 0L);
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDS, static_cast<void*>(nullptr));
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, 0L);
      break;
    case opCustomRequest:
      (void)xn_curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, static_cast<void*>(nullptr));
      (void)xn_curl_easy_setopt(handle, CURLOPT_POST, 0L);
      (void)xn_curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE, 0L);
      break;
    case opGet:
      // Left at 1, not 0: kept as it always was.
      (void)xn_curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
      break;
    default:
      // opPostBuffer has no undoing: its POST options stay on the handle for
      // the next request, which the caller discards.
      return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::unsetOpTypeParameter"), 101,
                                   "Invalid OpType [%d] for HTTP protocol", static_cast<int>(m_operationType));
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::isOperationSuccess(bool& ok) {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::isOperationSuccess"), 1, "%s",
                                 zonet_curl::kNotInitializedSingular);
  }
  const int hundreds = m_responseCode / 100;
  ok = hundreds == 1 || hundreds == 2 || hundreds == 3;
  return CZoError::Success();
}

CZoError XnHTTPReq::doesURLPathContainURL(bool& contains) {
  std::string path = m_URLPath;
  std::string server = m_URL;
  // Comparisons are exact, case included.
  if (path.find(kSchemeMark) == std::string::npos) {
    size_t mark = server.find(kSchemeMark);
    if (mark != std::string::npos) server = server.substr(mark + 3);
    contains = path.compare(0, server.size(), server) == 0 && path.size() >= server.size();
    return CZoError::Success();
  }
  if (server.find(kSchemeMark) == std::string::npos) {
    server = path.substr(0, path.find(kSchemeMark) + 3) + server;
  }
  if (path.compare(0, server.size(), server) != 0 || path.size() < server.size()) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::doesURLPathContainURL"), 1,
                                 "Server name in URLPath conflicts with registered server");
  }
  contains = true;
  return CZoError::Success();
}

CZoError XnHTTPReq::getServerAndPathFromURLPath(std::string& server, std::string& path) {
  std::string pathCopy = m_URLPath;
  const std::string serverCopy = m_URL;
  size_t mark = pathCopy.find(kSchemeMark);
  if (mark == std::string::npos) {
    size_t serverMark = serverCopy.find(kSchemeMark);
    if (serverMark != std::string::npos) {
      pathCopy = serverCopy.substr(0, serverMark + 3) + pathCopy;
      mark = serverMark;
    }
  }
  const size_t from = mark == std::string::npos ? 0 : mark + 3;
  const size_t slash = pathCopy.find('/', from);
  if (slash != std::string::npos) {
    path = pathCopy.substr(slash);
    server = pathCopy.substr(0, slash);
  } else {
    server = pathCopy;
    path = "/";
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::splitServerAndURLPath(std::string& server, std::string& path) {
  bool contains = false;
  CZoError error = doesURLPathContainURL(contains);
  if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::splitServerAndURLPath"));
  if (contains) {
    error = getServerAndPathFromURLPath(server, path);
    if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::splitServerAndURLPath"));
  } else {
    server = m_URL;
    path = m_URLPath;
  }
  if (path.empty() || path[0] != '/') path = "/" + path;
  if (server.find("http://") == std::string::npos && server.find("https://") == std::string::npos) {
    server = (m_protocol == protocolHTTPS ? "https://" : "http://") + server;
  }
  return CZoError::Success();
}

CZoError XnHTTPReq::getFullWorkingURL(std::string& url) {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::getFullWorkingURL"), 1, "%s",
                                 zonet_curl::kNotInitializedSingular);
  }
  std::string server;
  std::string path;
  CZoError error = splitServerAndURLPath(server, path);
  if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::getFullWorkingURL"));
  if (server.empty()) return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::getFullWorkingURL"), 1, "URL is empty.");
  if (path.empty()) return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::getFullWorkingURL"), 1, "URL path is empty.");
  if (!m_portNo.empty()) server += ":" + m_portNo;
  url = server + path;
  return CZoError::Success();
}

CZoError XnHTTPReq::IsFile(const std::string& path, bool& isFile) {
  resetCurlErrorBuffer();
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnHTTPReq::IsFile"), 1, "%s", zonet_curl::kNotInitializedSingular);
  }
  CZoString probe(path.c_str());
  probe.AppendForwardSlash();
  setURLPath(probe.c_str());
  setOperationType(opFileInfo);
  CZoError error = SendReqest();
  // 404 is looked at first: the path with a slash behind it is no directory.
  // After a curl failure m_responseCode still holds the request before's.
  if (m_responseCode == 404) {
    isFile = true;
    return CZoError::Success();
  }
  if (error.IsError()) return error.Push(FXLOC("XnHTTPReq::IsFile"));
  isFile = false;
  return CZoError::Success();
}

}  // namespace XnCURL
