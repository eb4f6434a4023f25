// Test hooks of CZoHTTP2: read access to its fields and its private steps.
// Internal, never exported.
#ifndef ZONET_HTTP_ZOHTTP2INTERNAL_H
#define ZONET_HTTP_ZOHTTP2INTERNAL_H

#include <cstdint>
#include <map>
#include <string>

#include "ZoNetwork/ZoHTTP2.h"

namespace zonet_internal {

struct ZoHTTP2Access {
  static void* Session(const CZoHTTP2& h) { return h.m_hSession; }
  static void* Connection(const CZoHTTP2& h) { return h.m_hConnect; }
  static void* Request(const CZoHTTP2& h) { return h.m_hRequest; }
  static uint16_t Port(const CZoHTTP2& h) { return h.m_port; }
  static const std::wstring& ServerName(const CZoHTTP2& h) { return h.m_serverName; }
  static const std::wstring& UserAgent(const CZoHTTP2& h) { return h.m_userAgent; }
  static const std::wstring& ProxyServer(const CZoHTTP2& h) { return h.m_proxyServer; }
  static const std::wstring& ProxyBypass(const CZoHTTP2& h) { return h.m_proxyBypass; }
  static const std::wstring& ProxyUser(const CZoHTTP2& h) { return h.m_proxyUser; }
  static bool Secured(const CZoHTTP2& h) { return h.m_secured; }
  static bool HasProxyBypass(const CZoHTTP2& h) { return h.m_hasProxyBypass; }
  static bool Authenticated(const CZoHTTP2& h) { return h.m_authenticated; }
  static int32_t TimeoutMs(const CZoHTTP2& h) { return h.m_timeoutMs; }
  static int32_t AccessType(const CZoHTTP2& h) { return h.m_accessType; }
  static const std::map<std::string, std::string>& Headers(const CZoHTTP2& h) { return h.m_requestHeaders; }
  static CZoError BreakUrl(CZoHTTP2& h, const wchar_t* url, std::wstring& host, std::wstring& path, int& port) {
    return h.BreakUrl(url, host, path, port);
  }
  static CZoError EscapeUrl(CZoHTTP2& h, const wchar_t* url, std::wstring& escaped) {
    return h.EscapeUrl(url, escaped);
  }
  static CZoError EscapeUrlExtra(CZoHTTP2& h, const wchar_t* url, std::wstring& escaped) {
    return h.EscapeUrlExtra(url, escaped);
  }
  static CZoError Reconnect(CZoHTTP2& h) { return h.Reconnect(); }
};

}  // namespace zonet_internal

#endif  // ZONET_HTTP_ZOHTTP2INTERNAL_H
