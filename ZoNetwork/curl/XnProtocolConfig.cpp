// The settings of a request object: nearly all one curl option each, set on
// the handle at once and kept for every later request of the object.
#include <string>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnProtocolReq.h"
#include "curl/CurlPlatform.h"
#include "curl/XnCurlInternal.h"

using namespace CurlWrapper;

namespace zonet_curl {

const char* ErrorBufferText(const char* buffer) {
  return buffer != nullptr ? buffer : " Error buffer is not initialized";
}

int SetCertificateBundle(void* handle, const std::string& path) {
  if (!zonet_curl_platform::FileExists(path)) return 0;
  return xn_curl_easy_setopt(handle, CURLOPT_CAINFO, path.c_str());
}

size_t DiscardBody(char* /*data*/, size_t size, size_t count, void* /*context*/) { return size * count; }

void SetSizeProbe(void* handle, void* headerFunction) {
  (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
  (void)xn_curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, headerFunction);
  (void)xn_curl_easy_setopt(handle, CURLOPT_HEADER, 0L);
}

void UnsetSizeProbe(void* handle) {
  (void)xn_curl_easy_setopt(handle, CURLOPT_NOBODY, 0L);
  (void)xn_curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, static_cast<void*>(nullptr));
  (void)xn_curl_easy_setopt(handle, CURLOPT_HEADER, 0L);
}

}  // namespace zonet_curl

namespace XnCURL {

namespace {

// The fixed part of the bypass list: the local hosts always bypass a proxy.
const char kLocalHosts[] = "127.0.0.1,localhost,::1,0:0:0:0:0:0:0:1";

}  // namespace

// The common frame of a setter: clear the buffer, check the state, then the
// body; each option's result goes to m_lastCurlCode before it is tested.
#define ZO_SETTER_BEGIN(name, notInitialized)                                                       \
  resetCurlErrorBuffer();                                                                           \
  if (!m_initialized) return FXErrorUtil::ErrorInt(FXLOC(name), 1, "%s", zonet_curl::notInitialized); \
  void* handle = m_curlContext->m_curlHandle

#define ZO_SET_OPTION(name, option, value)                                                                   \
  m_lastCurlCode = xn_curl_easy_setopt(handle, option, value);                                               \
  if (m_lastCurlCode != 0) {                                                                                 \
    return ErrorXnCURL(FXLOC(name), m_lastCurlCode, "Failed to set option [%d]", static_cast<int>(option)); \
  }

CZoError XnProtocolReq::SetTimeOut(long seconds) {
  ZO_SETTER_BEGIN("XnProtocolReq::SetTimeOut", kNotInitializedPlural);
  ZO_SET_OPTION("XnProtocolReq::SetTimeOut", CURLOPT_TIMEOUT, seconds);
  return CZoError::Success();
}

CZoError XnProtocolReq::SetConnectionTimeOut(long seconds) {
  ZO_SETTER_BEGIN("XnProtocolReq::SetConnectionTimeOut", kNotInitializedPlural);
  ZO_SET_OPTION("XnProtocolReq::SetConnectionTimeOut", CURLOPT_CONNECTTIMEOUT, seconds);
  return CZoError::Success();
}

CZoError XnProtocolReq::setCredentials(const std::string& user, const std::string& password) {
  ZO_SETTER_BEGIN("XnProtocolReq::setCredentials", kNotInitializedSingular);
  setURLUserName(user);
  setURLPassword(password);
  const std::string pair = user + ":" + password;
  ZO_SET_OPTION("XnProtocolReq::setCredentials", CURLOPT_USERPWD, pair.c_str());
  return CZoError::Success();
}

CZoError XnProtocolReq::setSecured(bool secured, const std::string& caFile) {
  ZO_SETTER_BEGIN("XnProtocolReq::setSecured", kNotInitializedSingular);
  if (secured) {
    ZO_SET_OPTION("XnProtocolReq::setSecured", CURLOPT_SSL_VERIFYPEER, 1L);
    ZO_SET_OPTION("XnProtocolReq::setSecured", CURLOPT_SSL_VERIFYHOST, 2L);
    m_lastCurlCode = xn_curl_easy_setopt(handle, CURLOPT_SSL_OPTIONS, static_cast<long>(CURLSSLOPT_NATIVE_CA));
    if (m_lastCurlCode != 0) {
      return ErrorXnCURL(FXLOC("XnProtocolReq::setSecured"), m_lastCurlCode,
                         "Failed to set option [%d] with mask [%d]", static_cast<int>(CURLOPT_SSL_OPTIONS),
                         static_cast<int>(CURLSSLOPT_NATIVE_CA));
    }
    // As with the default bundle: handed to curl only when it is there.
    m_lastCurlCode = zonet_curl::SetCertificateBundle(handle, caFile);
    if (m_lastCurlCode != 0) {
      return ErrorXnCURL(FXLOC("XnProtocolReq::setSecured"), m_lastCurlCode, "Failed to set option [%d]",
                         static_cast<int>(CURLOPT_CAINFO));
    }
  } else {
    ZO_SET_OPTION("XnProtocolReq::setSecured", CURLOPT_SSL_VERIFYPEER, 0L);
    ZO_SET_OPTION("XnProtocolReq::setSecured", CURLOPT_SSL_VERIFYHOST, 0L);
  }
  return CZoError::Success();
}

CZoError XnProtocolReq::setMaxSSLVersion(int version) {
  ZO_SETTER_BEGIN("XnProtocolReq::setMaxSSLVersion", kNotInitializedSingular);
  // The value is already in curl's encoding and is handed on unchanged.
  for (CURLoption option : {CURLOPT_SSLVERSION, CURLOPT_PROXY_SSLVERSION}) {
    m_lastCurlCode = xn_curl_easy_setopt(handle, option, version);
    if (m_lastCurlCode != 0) {
      return ErrorXnCURL(FXLOC("XnProtocolReq::setMaxSSLVersion"), m_lastCurlCode,
                         "Failed to set option [%d]. Curl Error code [%d] ", static_cast<int>(option),
                         m_lastCurlCode);
    }
  }
  return CZoError::Success();
}

CZoError XnProtocolReq::setKeepAlive(bool on, long idleSeconds, long intervalSeconds) {
  ZO_SETTER_BEGIN("XnProtocolReq::setKeepAlive", kNotInitializedSingular);
  // This setter does not store the results: a failure reports the code that
  // m_lastCurlCode held before, as it always has.
  if (on) {
    const std::pair<CURLoption, long> options[] = {
        {CURLOPT_TCP_KEEPALIVE, 1L}, {CURLOPT_TCP_KEEPIDLE, idleSeconds}, {CURLOPT_TCP_KEEPINTVL, intervalSeconds}};
    for (const auto& option : options) {
      if (xn_curl_easy_setopt(handle, option.first, option.second) != 0) {
        return ErrorXnCURL(FXLOC("XnProtocolReq::setKeepAlive"), m_lastCurlCode, "Failed to set option [%d]",
                           static_cast<int>(option.first));
      }
    }
  } else if (xn_curl_easy_setopt(handle, CURLOPT_TCP_KEEPALIVE, 0L) != 0) {
    return ErrorXnCURL(FXLOC("XnProtocolReq::setKeepAlive"), m_lastCurlCode, "Failed to set option [%d]",
                       static_cast<int>(CURLOPT_TCP_KEEPALIVE));
  }
  return CZoError::Success();
}

CZoError XnProtocolReq::setProxyDetails(const std::string& host, const std::string& user,
                                        const std::string& password, const std::string& port) {
  ZO_SETTER_BEGIN("XnProtocolReq::setProxyDetails", kNotInitializedSingular);
  ZO_SET_OPTION("XnProtocolReq::setProxyDetails", CURLOPT_PROXYTYPE, static_cast<long>(CURLPROXY_HTTP));
  const std::string proxy = host + ":" + port;
  ZO_SET_OPTION("XnProtocolReq::setProxyDetails", CURLOPT_PROXY, proxy.c_str());
  // Empty credentials still go as ":", as they always have.
  const std::string credentials = user + ":" + password;
  ZO_SET_OPTION("XnProtocolReq::setProxyDetails", CURLOPT_PROXYUSERPWD, credentials.c_str());
  setIsProxySet(true);
  return CZoError::Success();
}

CZoError XnProtocolReq::setProxyBypass(const std::string& hosts) {
  ZO_SETTER_BEGIN("XnProtocolReq::setProxyBypass", kNotInitializedSingular);
  std::string list = kLocalHosts;
  if (!hosts.empty()) list += "," + hosts;
  ZO_SET_OPTION("XnProtocolReq::setProxyBypass", CURLOPT_NOPROXY, list.c_str());
  return CZoError::Success();
}

CZoError XnProtocolReq::DisableProxy() {
  ZO_SETTER_BEGIN("XnProtocolReq::DisableProxy", kNotInitializedPlural);
  ZO_SET_OPTION("XnProtocolReq::DisableProxy", CURLOPT_PROXY, "");
  return CZoError::Success();
}

CZoError XnProtocolReq::setProyAuth(long mask) {
  ZO_SETTER_BEGIN("XnProtocolReq::setProyAuth", kNotInitializedPlural);
  ZO_SET_OPTION("XnProtocolReq::setProyAuth", CURLOPT_PROXYAUTH, mask);
  return CZoError::Success();
}

CZoError XnProtocolReq::setSessionIDCaching(long on) {
  ZO_SETTER_BEGIN("XnProtocolReq::setSessionIDCaching", kNotInitializedPlural);
  ZO_SET_OPTION("XnProtocolReq::setSessionIDCaching", CURLOPT_SSL_SESSIONID_CACHE, on != 0 ? 1L : 0L);
  return CZoError::Success();
}

void XnProtocolReq::setLinkRedirects(bool on) {
  m_linkRedirects = on;
  if (m_curlContext == nullptr) return;  // never initialized: nothing to set
  void* handle = m_curlContext->m_curlHandle;
  if (on) {
    (void)xn_curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    (void)xn_curl_easy_setopt(handle, CURLOPT_POSTREDIR, static_cast<long>(CURL_REDIR_POST_ALL));
  } else {
    (void)xn_curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
  }
}

void XnProtocolReq::setLogging(bool on) {
  if (m_curlContext == nullptr) return;
  (void)xn_curl_easy_setopt(m_curlContext->m_curlHandle, CURLOPT_VERBOSE, on ? 1L : 0L);
}

CZoError XnProtocolReq::setTraceCallBack(void* context, TraceFunction callback) {
  if (!m_initialized) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::setTraceCallBack"), 1, "%s",
                                 zonet_curl::kNotInitializedPlural);
  }
  if (context == nullptr || callback == nullptr) {
    return FXErrorUtil::ErrorInt(FXLOC("XnProtocolReq::setTraceCallBack"), 1, "Input is invalid");
  }
  void* handle = m_curlContext->m_curlHandle;
  // curl passes its info type as the second argument; the caller's function
  // takes it as an untyped word of the same size.
  using DebugFunction = int (*)(void*, curl_infotype, char*, size_t, void*);
  (void)xn_curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION,
                            reinterpret_cast<DebugFunction>(reinterpret_cast<void (*)()>(callback)));
  (void)xn_curl_easy_setopt(handle, CURLOPT_DEBUGDATA, context);
  return CZoError::Success();
}

void XnProtocolReq::setWriteFunctionPointer(void* context, WriteFunction function) {
  m_writeContext = context;
  m_writeFunction = function;
}

void XnProtocolReq::setReadFunctionPointer(void* context, ReadFunction function) {
  m_readContext = context;
  m_readFunction = function;
}

void XnProtocolReq::setHeaderWriteFunctionPointer(void* context, WriteFunction function) {
  m_headerWriteContext = context;
  m_headerWriteFunction = function;
}

void XnProtocolReq::addRequestedHeaders(const std::string& key, const std::string& value) {
  m_requestedHeaders[key] = value;
}

void XnProtocolReq::URLEncode(const std::string& in, std::string& out) {
  void* handle = m_curlContext != nullptr ? m_curlContext->m_curlHandle : nullptr;
  char* encoded = xn_curl_easy_escape(handle, in.c_str(), 0);
  // curl gives null only when it fails or is missing; the result is then empty
  // rather than a crash.
  out = encoded != nullptr ? encoded : "";
  xn_curl_free(encoded);
}

void XnProtocolReq::URLDecode(const std::string& in, std::string& out) {
  void* handle = m_curlContext != nullptr ? m_curlContext->m_curlHandle : nullptr;
  char* decoded = xn_curl_easy_unescape(handle, in.c_str(), 0, nullptr);
  out = decoded != nullptr ? decoded : "";
  xn_curl_free(decoded);
}

namespace {

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

}  // namespace

void XnProtocolReq::URLEncodePath(const std::string& in, std::string& out) {
  URLEncode(in, out);
  ReplaceAll(out, "%2F", "/");
  ReplaceAll(out, "%5C", "\\");
}

void XnProtocolReq::URLDecodePath(const std::string& in, std::string& out) { URLDecode(in, out); }

}  // namespace XnCURL
