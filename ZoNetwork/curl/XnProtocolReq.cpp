// The request engine: lifecycle, default configuration and the run of one
// request. The settings are in XnProtocolConfig.cpp, the operations in
// XnProtocolOps.cpp.
#include "ZoNetwork/XnProtocolReq.h"

#include <cstring>
#include <new>

#include "ZoNetwork/CurlWrapper.h"
#include "curl/CurlPlatform.h"
#include "curl/XnCurlInternal.h"

using namespace CurlWrapper;

namespace XnCURL {

bool XnProtocolReq::m_gbInit = false;
void** XnProtocolReq::ssl_mutex = nullptr;

// curl's own receive buffer is 16 KiB; its command-line tool asks for 100
// KiB, and a download that hands six times as many pieces to the write
// function runs at little more than half the tool's speed. The handle is
// given the tool's size once, where it is made, so that every request of the
// object reads in the same pieces the tool does; nothing else changes.
static const long kReceiveBufferBytes = 100L * 1024L;

CurlHandleHolder::CurlHandleHolder() : m_curlHandle(xn_curl_easy_init()) {
  if (m_curlHandle != nullptr) (void)xn_curl_easy_setopt(m_curlHandle, CURLOPT_BUFFERSIZE, kReceiveBufferBytes);
}

CurlHandleHolder::~CurlHandleHolder() {
  if (m_curlHandle != nullptr) {
    xn_curl_easy_cleanup(m_curlHandle);
    m_curlHandle = nullptr;
  }
}

XnProtocolReq::XnProtocolReq()
    : m_postBuffer(nullptr),
      m_operationType(static_cast<operationType>(0)),
      m_dataSizeInBytes(0),
      m_isProxySet(false),
      m_linkRedirects(false),
      m_writeFunction(nullptr),
      m_readFunction(nullptr),
      m_headerWriteFunction(nullptr),
      m_writeContext(nullptr),
      m_readContext(nullptr),
      m_headerWriteContext(nullptr),
      m_curlContext(nullptr),
      m_errorBuffer(nullptr),
      m_initialized(false),
      m_lastCurlCode(0),
      m_responseCode(0),
      m_skipExpect100(false) {}

// Copies are member by member on purpose: a copy is a second view of the same
// handle and buffer (see the class's note).
XnProtocolReq::XnProtocolReq(const XnProtocolReq& other) = default;
XnProtocolReq& XnProtocolReq::operator=(const XnProtocolReq& other) = default;

XnProtocolReq::~XnProtocolReq() {
  m_readFunction = nullptr;
  if (m_curlContext != nullptr) {
    delete m_curlContext;
    m_curlContext = nullptr;
  }
  delete[] m_errorBuffer;
  m_errorBuffer = nullptr;
}

void XnProtocolReq::initializeCurlLibrary() {
  // The wrapper is empty and always succeeds: curl's real global set-up runs
  // when the library is loaded, at the first wrapper call.
  if (!m_gbInit && xn_curl_global_init(CURL_GLOBAL_ALL) == CURLE_OK) m_gbInit = true;
}

void XnProtocolReq::deinitializeCurlLibrary() {}

CZoError XnProtocolReq::initialize(unsigned int useCAFile) {
  m_useCAFile = useCAFile;
  // A second initialize overwrites the earlier handle and buffer without
  // releasing them, as the object has always done.
  m_errorBuffer = new (std::nothrow) char[zonet_curl::kErrorBufferSize];
  if (m_errorBuffer == nullptr) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::initialize"), 1, "Failed to allocate memory for Error buffer");
  }
  resetCurlErrorBuffer();
  m_curlContext = new (std::nothrow) CurlHandleHolder();
  if (m_curlContext == nullptr) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::initialize"), -1, "Failed to get CURL Context");
  }
  if (m_curlContext->m_curlHandle == nullptr) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::initialize"), -1, "Failed to get CURL handle");
  }
  CZoError error = setDefaultConfiguration();
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::initialize"));
  m_initialized = true;
  return CZoError::Success();
}

CZoError XnProtocolReq::setDefaultConfiguration() {
  const std::string bundle =
      std::string(".") + zonet_curl_platform::PathSeparator() + zonet_curl::kCertificateBundleName;
  void* handle = m_curlContext->m_curlHandle;
  resetCurlErrorBuffer();
  m_operationType = opDownload;
  // Before m_initialized is set, so on a first initialize this ends at its own
  // check and a new object has no transfer time-out; kept so.
  (void)SetTimeOut(1080);

  m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, static_cast<void*>(m_errorBuffer));
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_ERRORBUFFER));
  }
  if (m_linkRedirects) {
    m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    if (m_lastCurlCode != 0) {
      return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode,
                         "Failed to set option [%d]", static_cast<int>(CURLOPT_FOLLOWLOCATION));
    }
    m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
    if (m_lastCurlCode != 0) {
      return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode,
                         "Failed to set option [%d]", static_cast<int>(CURLOPT_POSTREDIR));
    }
  } else {
    m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    if (m_lastCurlCode != 0) {
      return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode,
                         "Failed to set option [%d]", static_cast<int>(CURLOPT_FOLLOWLOCATION));
    }
  }
  m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_SSL_VERIFYPEER));
  }
  m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_SSL_VERIFYHOST));
  }
  m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_NATIVE_CA));
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode,
                       "Failed to set option [%d] with mask [%d]", static_cast<int>(CURLOPT_SSL_OPTIONS),
                       static_cast<int>(CURLSSLOPT_NATIVE_CA));
  }
  // The bundle goes to curl only when it is there: the system's own store
  // then stays in force beside it, and a missing bundle leaves that store
  // alone instead of failing every secured request.
  m_lastCurlCode = zonet_curl::SetCertificateBundle(handle, bundle);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::setDefaultConfiguration"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_CAINFO));
  }
  return CZoError::Success();
}

void XnProtocolReq::getLastCurlErrorCodeAndErrorMsg(int& code, std::string& message) {
  code = m_lastCurlCode;
  message = m_errorBuffer != nullptr ? m_errorBuffer : "";
}

void XnProtocolReq::getLastServerResponseCode(int& code) { code = m_responseCode; }

void XnProtocolReq::resetCurlErrorCodeAndErrorMsg() {
  m_lastCurlCode = 0;
  resetCurlErrorBuffer();
}

size_t XnProtocolReq::getContentSize(void* /*data*/, size_t size, size_t count, void* /*context*/) {
  return size * count;
}

void XnProtocolReq::resetCurlErrorBuffer() {
  // An object whose initialize never got as far as the buffer has none; the
  // caller then gets the not-initialized error instead of a crash.
  if (m_errorBuffer != nullptr) std::memset(m_errorBuffer, 0, zonet_curl::kErrorBufferSize);
}

CZoError XnProtocolReq::SendReqest() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::SendReqest"), 1, "%s", zonet_curl::kNotInitializedSingular);
  }
  CZoError prepared = PrepareForRequest();
  if (prepared.IsError()) {
    (void)unSetMethodParameter();
    return prepared.Push(FXLOC("XnProtocolReq::SendReqest"));
  }
  CZoError executed = Execute();
  (void)unSetMethodParameter();
  if (executed.IsError()) return executed.Push(FXLOC("XnProtocolReq::SendReqest"));
  return CZoError::Success();
}

CZoError XnProtocolReq::PrepareForRequest() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::PrepareForRequest"), 1, "%s",
                                 zonet_curl::kNotInitializedPlural);
  }
  if (m_URL.empty()) return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::PrepareForRequest"), 101, "URL is empty");
  std::string url;
  CZoError error = getFullWorkingURL(url);
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::PrepareForRequest"), "Failed to get working URL");
  void* handle = m_curlContext->m_curlHandle;
  (void)xn_curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  error = setMethodParameter();
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::PrepareForRequest"));
  if (m_writeFunction != nullptr && m_writeContext != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_WRITEDATA, m_writeContext);
    (void)xn_curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, reinterpret_cast<void*>(m_writeFunction));
  }
  if (m_readFunction != nullptr && m_readContext != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_READDATA, m_readContext);
    (void)xn_curl_easy_setopt(handle, CURLOPT_READFUNCTION, reinterpret_cast<void*>(m_readFunction));
  }
  if (m_headerWriteFunction != nullptr && m_headerWriteContext != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_HEADERDATA, m_headerWriteContext);
    (void)xn_curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, reinterpret_cast<void*>(m_headerWriteFunction));
  }
  // A failed header list does not stop the request.
  (void)setHeaders(m_requestedHeaders);
  return CZoError::Success();
}

CZoError XnProtocolReq::Execute() {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::Execute"), 1, "%s", zonet_curl::kNotInitializedPlural);
  }
  m_lastCurlCode = xn_curl_easy_perform(m_curlContext->m_curlHandle);
  if (m_lastCurlCode != 0) {
    // m_responseCode keeps the value of the request before.
    return ErrorXnCURL(FXLOC("XnProtocolReq::Execute"), m_lastCurlCode,
                       "CURL perform failed.Curl ErrorCode : [%d], Error Message : [%s]", m_lastCurlCode,
                       zonet_curl::ErrorBufferText(m_errorBuffer));
  }
  CZoError error = getResponseCode();
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::Execute"), "Failed to get ResponseCode");
  bool ok = false;
  error = isOperationSuccess(ok);
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::Execute"), "Failed to determine success or failure.");
  if (ok) return CZoError::Success();
  // m_lastCurlCode is 0 here; the domain makes it an error all the same.
  return ErrorXnCURL(FXLOC("XnProtocolReq::Execute"), m_lastCurlCode,
                     "Requested Operation Failed. Return value from CURL: [%d] Response code from server: [%ld]",
                     m_lastCurlCode, static_cast<long>(m_responseCode));
}

CZoError XnProtocolReq::getResponseCode() {
  m_responseCode = 0;
  long code = 0;
  m_lastCurlCode = xn_curl_easy_getinfo(m_curlContext->m_curlHandle, CURLINFO_RESPONSE_CODE, &code);
  m_responseCode = static_cast<int>(code);
  if (m_lastCurlCode != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::getResponseCode"), m_lastCurlCode,
                       "CURL perform failed.ErrorCode : [%d], Error Message : [%s]", m_lastCurlCode,
                       zonet_curl::ErrorBufferText(m_errorBuffer));
  }
  return CZoError::Success();
}

CZoError XnProtocolReq::unSetMethodParameter() {
  void* handle = m_curlContext->m_curlHandle;
  if (m_writeFunction != nullptr && m_writeContext != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_WRITEDATA, static_cast<void*>(nullptr));
    // A null function would put curl's own writer back with a null file, on
    // which the next answer with a body would crash; a writer that discards
    // takes its place.
    (void)xn_curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, reinterpret_cast<void*>(&zonet_curl::DiscardBody));
  }
  m_writeFunction = nullptr;
  m_writeContext = nullptr;
  if (m_readFunction != nullptr && m_readContext != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_READDATA, static_cast<void*>(nullptr));
    (void)xn_curl_easy_setopt(handle, CURLOPT_READFUNCTION, static_cast<void*>(nullptr));
  }
  m_readFunction = nullptr;
  m_readContext = nullptr;
  if (m_headerWriteFunction != nullptr && m_headerWriteContext != nullptr) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_HEADERDATA, static_cast<void*>(nullptr));
    (void)xn_curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, static_cast<void*>(nullptr));
  }
  m_headerWriteFunction = nullptr;
  m_headerWriteContext = nullptr;
  m_requestedHeaders.clear();
  CZoError error = unsetOpTypeParameter();
  if (error.IsError()) return error.Push(FXLOC("XnProtocolReq::unSetMethodParameter"));
  return CZoError::Success();
}

void XnProtocolReq::setCommandInfo(const std::vector<commandInfo>& commands) {
  for (const commandInfo& command : commands) addRequestedHeaders(command.m_key, command.m_value);
}

}  // namespace XnCURL
