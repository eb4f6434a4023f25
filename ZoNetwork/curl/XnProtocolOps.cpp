// The operations of a request object: each checks its arguments, fills the
// fields, names the kind of request and runs it through SendReqest.
#include <cstdint>
#include <string>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnProtocolReq.h"
#include "ZoUtils/ZoString.h"
#include "curl/CurlLegacy.h"
#include "curl/XnCurlInternal.h"

using namespace CurlWrapper;

namespace XnCURL {

namespace {

bool IsNullOrEmpty(const char* text) { return text == nullptr || text[0] == '\0'; }

}  // namespace

// Every operation begins alike: clear the buffer and check the state.
#define ZO_OPERATION_BEGIN(name, notInitialized) \
  resetCurlErrorBuffer();                        \
  if (!m_initialized) return FXErrorUtil::ErrorInt(FXLOC(name), 1, "%s", zonet_curl::notInitialized)

#define ZO_CHECK(name, failed, text) \
  if (failed) return FXErrorUtil::ErrorInt(FXLOC(name), 1, text)

#define ZO_SEND(name)                                     \
  CZoError error = SendReqest();                          \
  if (error.IsError()) return error.Push(FXLOC(name));    \
  return CZoError::Success()

CZoError XnProtocolReq::download(const char* url, const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::download", kNotInitializedPlural);
  ZO_CHECK("XnProtocolReq::download", IsNullOrEmpty(url), "Invalid source url.");
  setURLPath(url);
  setOperationType(opDownload);
  setCommandInfo(commands);
  ZO_SEND("XnProtocolReq::download");
}

CZoError XnProtocolReq::uploadFile(const char* source, const char* url, size_t size,
                                   const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::uploadFile", kNotInitializedPlural);
  ZO_CHECK("XnProtocolReq::uploadFile", IsNullOrEmpty(source), "Invalid source file path.");
  ZO_CHECK("XnProtocolReq::uploadFile", IsNullOrEmpty(url), "Invalid URL path.");
  setURLPath(url);
  setDataSizeInBytes(static_cast<long long>(size));
  setOperationType(opUpload);
  setCommandInfo(commands);
  setSourceFile(source);
  ZO_SEND("XnProtocolReq::uploadFile");
}

CZoError XnProtocolReq::doPostOperation(const char* url, const char* text, const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::doPostOperation", kNotInitializedSingular);
  // The body is looked at before the path.
  ZO_CHECK("XnProtocolReq::doPostOperation", IsNullOrEmpty(text), "Invalid post string .");
  ZO_CHECK("XnProtocolReq::doPostOperation", IsNullOrEmpty(url), "Invalid URL path .");
  setOperationType(opPostString);
  setURLPath(url);
  setCommandInfo(commands);
  setPostString(text);
  ZO_SEND("XnProtocolReq::doPostOperation");
}

CZoError XnProtocolReq::doPostOperation(const char* url, const char* buffer, long size,
                                        const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::doPostOperation", kNotInitializedSingular);
  ZO_CHECK("XnProtocolReq::doPostOperation", buffer == nullptr && size != 0, "Invalid post array .");
  ZO_CHECK("XnProtocolReq::doPostOperation", IsNullOrEmpty(url), "Invalid URL path .");
  ZO_CHECK("XnProtocolReq::doPostOperation", size < 0, "Invalid Buffer size.");
  setDataSizeInBytes(size);
  setOperationType(opPostBuffer);
  setURLPath(url);
  setCommandInfo(commands);
  setPostBuffer(buffer);
  ZO_SEND("XnProtocolReq::doPostOperation");
}

CZoError XnProtocolReq::doGetOperation(const char* url, const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::doGetOperation", kNotInitializedSingular);
  ZO_CHECK("XnProtocolReq::doGetOperation", IsNullOrEmpty(url), "Invalid URL path .");
  setOperationType(opGet);
  setURLPath(url);
  setCommandInfo(commands);
  ZO_SEND("XnProtocolReq::doGetOperation");
}

CZoError XnProtocolReq::doPutOperation(const char* url, const char* buffer, long size,
                                       const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::doPutOperation", kNotInitializedSingular);
  ZO_CHECK("XnProtocolReq::doPutOperation", buffer == nullptr, "Invalid PUT data.");
  ZO_CHECK("XnProtocolReq::doPutOperation", IsNullOrEmpty(url), "Invalid URL path .");
  ZO_CHECK("XnProtocolReq::doPutOperation", size < 0, "Invalid Buffer size.");
  setDataSizeInBytes(size);
  setOperationType(opCustomRequest);
  setURLPath(url);
  setCommandInfo(commands);
  setPostBuffer(buffer);
  setOperationName("PUT");
  ZO_SEND("XnProtocolReq::doPutOperation");
}

CZoError XnProtocolReq::doDeleteOperation(const char* url, const char* buffer, long size,
                                          const std::vector<commandInfo>& commands) {
  ZO_OPERATION_BEGIN("XnProtocolReq::doDeleteOperation", kNotInitializedSingular);
  ZO_CHECK("XnProtocolReq::doDeleteOperation", buffer == nullptr, "Invalid DELETE data.");
  ZO_CHECK("XnProtocolReq::doDeleteOperation", IsNullOrEmpty(url), "Invalid URL path .");
  ZO_CHECK("XnProtocolReq::doDeleteOperation", size < 0, "Invalid Buffer size.");
  setDataSizeInBytes(size);
  setOperationType(opCustomRequest);
  setURLPath(url);
  setCommandInfo(commands);
  setPostBuffer(buffer);
  setOperationName("DELETE");
  ZO_SEND("XnProtocolReq::doDeleteOperation");
}

CZoError XnProtocolReq::checkConnection() {
  ZO_OPERATION_BEGIN("XnProtocolReq::checkConnection", kNotInitializedPlural);
  setOperationType(opCheck);
  CZoError error = SendReqest();
  // A server that refuses us has been reached all the same.
  if (error.IsError() && m_responseCode != 401 && m_responseCode != 403 && m_responseCode != 404 &&
      m_responseCode != 405) {
    return error;
  }
  return CZoError::Success();
}

CZoError XnProtocolReq::getFileInfo(const std::string& path, double& size) {
  ZO_OPERATION_BEGIN("XnProtocolReq::getFileInfo", kNotInitializedSingular);
  setURLPath(path);
  setOperationType(opFileInfo);
  double length = 0;
  CZoError error = SendReqest();
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::getFileInfo"));
  m_lastCurlCode = xn_curl_easy_getinfo(m_curlContext->m_curlHandle, zonet_curl::kInfoContentLengthDownload, &length);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::getFileInfo"), m_lastCurlCode,
                       "CURL perform failed. ErrorCode : [%d], Error Message : [%s]", m_lastCurlCode,
                       zonet_curl::ErrorBufferText(m_errorBuffer));
  }
  // curl's -1 for an unknown size; a size of exactly 4294967295 bytes reads
  // the same, as it always has.
  const int64_t whole = static_cast<int64_t>(length);
  if ((static_cast<uint64_t>(whole) & 0xFFFFFFFFu) == 0xFFFFFFFFu) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::getFileInfo"), m_lastCurlCode,
                       "File size recieved from server is invalid");
  }
  size = length;
  return CZoError::Success();
}

CZoError XnProtocolReq::getFilesAndDirsInfoInFile(const std::string& path) {
  ZO_OPERATION_BEGIN("XnProtocolReq::getFilesAndDirsInfoInFile", kNotInitializedPlural);
  CZoString directory(path.c_str());
  if (directory.IsEmpty()) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::getFilesAndDirsInfoInFile"), 1, "Source path passed in empty");
  }
  directory.AppendForwardSlash();
  setURLPath(directory.c_str());
  setOperationType(opList);
  ZO_SEND("XnProtocolReq::getFilesAndDirsInfoInFile");
}

CZoError XnProtocolReq::getInfo(CurlInfoType type, std::string& value) {
  ZO_OPERATION_BEGIN("XnProtocolReq::getInfo", kNotInitializedSingular);
  CURLINFO info;
  if (type == curlInfoPrimaryIP) {
    info = CURLINFO_PRIMARY_IP;
  } else if (type == curlInfoEffectiveURL) {
    info = CURLINFO_EFFECTIVE_URL;
  } else {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::getInfo"), 1, "Unrecognized Curl Info type.");
  }
  setOperationType(opCheck);
  CZoError error = SendReqest();
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::getInfo"));
  char* text = nullptr;
  m_lastCurlCode = xn_curl_easy_getinfo(m_curlContext->m_curlHandle, info, &text);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::getInfo"), m_lastCurlCode,
                       "CURL get info failed. ErrorCode : [%d] , ErrorMessage : [%s]", m_lastCurlCode,
                       zonet_curl::ErrorBufferText(m_errorBuffer));
  }
  if (text == nullptr) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::getInfo"), m_lastCurlCode, "Invalid pointer from curl get info.");
  }
  value = text;
  return CZoError::Success();
}

CZoError XnProtocolReq::checkIfFileOrDirExists(const std::string& path, bool isFile, bool& exists) {
  ZO_OPERATION_BEGIN("XnProtocolReq::checkIfFileOrDirExists", kNotInitializedSingular);
  CZoString target(path.c_str());
  if (!isFile) target.AppendForwardSlash();
  double size = 0;
  CZoError probed = getFileInfo(target.c_str(), size);
  if (isFile) {
    if (m_lastCurlCode != 0) {
      return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::checkIfFileOrDirExists"), 1,
                                   "Failed to check if File exists.Error Code : [%d]. Error Message [%s] ",
                                   m_lastCurlCode, zonet_curl::ErrorBufferText(m_errorBuffer));
    }
    exists = !probed.IsError();
    return CZoError::Success();
  }
  // For a directory every answer but 404 means that it is there; the
  // asymmetry with files is deliberate.
  if (m_lastCurlCode == CURLE_REMOTE_ACCESS_DENIED || m_responseCode == 404) {
    exists = false;
    return CZoError::Success();
  }
  if (m_lastCurlCode != 0) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::checkIfFileOrDirExists"), 1,
                                 "Failed to check if Directory exists. Error Code : [%d]. Error Message [%s] ",
                                 m_lastCurlCode, zonet_curl::ErrorBufferText(m_errorBuffer));
  }
  exists = true;
  return CZoError::Success();
}

}  // namespace XnCURL
