// The proxy look-ups of CZoHTTP2: static, without an object, each asking the
// platform HTTP layer's second face once (twice for a script server that
// wants a logon).
#include "ZoNetwork/ZoHTTP2.h"

#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoString.h"
#include "http/HttpPlatform.h"
#include "http/HttpPlatform2.h"

using FXErrorUtil::ErrorWin32;
namespace hp = zonet_http2;

CZoError CZoHTTP2::GetGlobalProxyConfiguration(std::string& proxy, std::string& bypass) {
  proxy.clear();
  bypass.clear();
  hp::ProxyInfo info;
  if (!hp::WinHttpGetDefaultProxyConfiguration(&info)) {
    return ErrorWin32(FXLOC("CZoHTTP2::GetGlobalProxyConfiguration"), zonet_http::LastError(),
                      "Failed to global HTTP proxy configuration");
  }
  if (info.hasProxy) proxy = FXString::ToString(info.proxy);
  if (info.hasBypass) bypass = FXString::ToString(info.bypass);
  return CZoError::Success();
}

CZoError CZoHTTP2::GetProxyConfigurationForCurrentUser(std::string& proxy, std::string& bypass,
                                                       std::string& autoConfigUrl, bool& autoDetect) {
  proxy.clear();
  bypass.clear();
  autoConfigUrl.clear();
  autoDetect = false;
  hp::CurrentUserProxyConfig config;
  if (!hp::WinHttpGetIEProxyConfigForCurrentUser(&config)) {
    return ErrorWin32(FXLOC("CZoHTTP2::GetProxyConfigurationForCurrentUser"), zonet_http::LastError(),
                      "Failed to get HTTP proxy configuration for the current user");
  }
  if (config.hasProxy) proxy = FXString::ToString(config.proxy);
  if (config.hasBypass) bypass = FXString::ToString(config.bypass);
  if (config.hasAutoConfigUrl) autoConfigUrl = FXString::ToString(config.autoConfigUrl);
  autoDetect = config.autoDetect;
  return CZoError::Success();
}

CZoError CZoHTTP2::GetProxyForUrl(const std::string& url, const std::string& autoConfigUrl, std::string& proxy,
                                  std::string& bypass) {
  const char* const where = "CZoHTTP2::GetProxyForUrl";
  proxy.clear();
  bypass.clear();
  hp::Handle session = hp::WinHttpOpen(L"HTTPProxyCheck", hp::kAccessTypeDefaultProxy, nullptr, nullptr, 0);
  if (session == nullptr) {
    return ErrorWin32(FXLOC(where), zonet_http::LastError(), "Failed to open WinHttp Session");
  }
  std::wstring wideUrl = FXString::ToWstring(url);
  std::wstring wideScript = FXString::ToWstring(autoConfigUrl);
  hp::AutoProxyOptions options;
  if (autoConfigUrl.empty()) {
    options.dwFlags = hp::kAutoProxyAutoDetect;
    options.dwAutoDetectFlags = hp::kAutoDetectTypeDhcp | hp::kAutoDetectTypeDnsA;
  } else {
    options.dwFlags = hp::kAutoProxyConfigUrl;
    options.lpszAutoConfigUrl = wideScript.c_str();
  }
  options.fAutoLogonIfChallenged = false;
  hp::ProxyInfo info;
  if (!hp::WinHttpGetProxyForUrl(session, wideUrl.c_str(), &options, &info)) {
    uint32_t code = zonet_http::LastError();
    if (code != ZONET_ERR_HTTP_LOGIN_FAILURE) {
      hp::WinHttpCloseHandle(session);
      return ErrorWin32(FXLOC(where), code, "Failed to get proxy for URL [%s]", url.c_str());
    }
    // The logon is offered only after the script server asked for one.
    options.fAutoLogonIfChallenged = true;
    info = hp::ProxyInfo();
    if (!hp::WinHttpGetProxyForUrl(session, wideUrl.c_str(), &options, &info)) {
      hp::WinHttpCloseHandle(session);
      return ErrorWin32(FXLOC(where), ZONET_ERR_HTTP_LOGIN_FAILURE, "Failed to get proxy for URL [%s]", url.c_str());
    }
  }
  if (info.hasProxy) proxy = FXString::ToString(info.proxy);
  if (info.hasBypass && !info.bypass.empty()) bypass = FXString::ToString(info.bypass);
  hp::WinHttpCloseHandle(session);
  return CZoError::Success();
}
