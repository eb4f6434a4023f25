// The second face of the platform HTTP layer: the operations that CZoHTTP2
// is written against, with the designed platform's handles, options, flags
// and error numbers, and wide text. It stands on the same engine as the
// first face (beast/HttpEngine.h): the same connections, TLS checks,
// deadlines and error mapping; only the handles and the order of calls
// differ. Internal: nothing here is exported.
//
// As in the first face, every operation runs on the caller's thread, starts
// no thread, and leaves the reason of a failure in the calling thread's last
// error (LastError() of HttpPlatform.h, shared by both faces).
#ifndef ZONET_HTTP_HTTPPLATFORM2_H
#define ZONET_HTTP_HTTPPLATFORM2_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace zonet_http2 {

using Handle = void*;

// Access types of a session.
constexpr uint32_t kAccessTypeDefaultProxy = 0;  // the machine-wide setting (/etc/environment)
constexpr uint32_t kAccessTypeNoProxy = 1;
constexpr uint32_t kAccessTypeNamedProxy = 3;

constexpr uint32_t kFlagSecure = 0x00800000;
constexpr uint32_t kAddReqFlagAdd = 0x20000000;

constexpr uint32_t kQueryStatusCode = 19;
constexpr uint32_t kQueryRawHeaders = 21;
constexpr uint32_t kQueryRawHeadersCrlf = 22;
constexpr uint32_t kQueryFlagNumber = 0x20000000;

constexpr uint32_t kOptionSecurityFlags = 31;
constexpr uint32_t kOptionClientCertContext = 47;

constexpr uint32_t kAuthSchemeBasic = 1;
constexpr uint32_t kAuthSchemeNtlm = 2;
constexpr uint32_t kAuthSchemePassport = 4;
constexpr uint32_t kAuthSchemeDigest = 8;
constexpr uint32_t kAuthSchemeNegotiate = 16;
constexpr uint32_t kAuthTargetServer = 0;
constexpr uint32_t kAuthTargetProxy = 1;

constexpr uint32_t kIcuEscape = 0x80000000;
constexpr int kSchemeHttp = 1;
constexpr int kSchemeHttps = 2;

using StatusCallback = void (*)(Handle, uintptr_t, uint32_t, void*, uint32_t);
// What a failed callback registration returns.
inline StatusCallback InvalidStatusCallback() { return reinterpret_cast<StatusCallback>(~uintptr_t(0)); }

// The parts of a URL, as pointers into the cracked text (or, for building,
// into the caller's texts) with their lengths.
struct UrlComponents {
  uint32_t dwStructSize = sizeof(UrlComponents);
  const wchar_t* lpszScheme = nullptr;
  uint32_t dwSchemeLength = 0;
  int nScheme = 0;
  const wchar_t* lpszHostName = nullptr;
  uint32_t dwHostNameLength = 0;
  uint16_t nPort = 0;
  const wchar_t* lpszUserName = nullptr;
  uint32_t dwUserNameLength = 0;
  const wchar_t* lpszPassword = nullptr;
  uint32_t dwPasswordLength = 0;
  const wchar_t* lpszUrlPath = nullptr;
  uint32_t dwUrlPathLength = 0;
  const wchar_t* lpszExtraInfo = nullptr;
  uint32_t dwExtraInfoLength = 0;
};

Handle WinHttpOpen(const wchar_t* agent, uint32_t accessType, const wchar_t* proxy, const wchar_t* bypass,
                   uint32_t flags);
bool WinHttpSetTimeouts(Handle handle, int resolveMs, int connectMs, int sendMs, int receiveMs);
StatusCallback WinHttpSetStatusCallback(Handle handle, StatusCallback callback, uint32_t flags, uintptr_t reserved);
Handle WinHttpConnect(Handle session, const wchar_t* server, uint16_t port, uint32_t reserved);
Handle WinHttpOpenRequest(Handle connect, const wchar_t* verb, const wchar_t* objectName, const wchar_t* version,
                          const wchar_t* referrer, const wchar_t** acceptTypes, uint32_t flags);
bool WinHttpSetOption(Handle handle, uint32_t option, const void* buffer, uint32_t length);
bool WinHttpAddRequestHeaders(Handle request, const wchar_t* headers, uint32_t length, uint32_t modifiers);
bool WinHttpSendRequest(Handle request, const wchar_t* headers, uint32_t headersLength, const void* optional,
                        uint32_t optionalLength, uint32_t totalLength, uintptr_t context);
bool WinHttpWriteData(Handle request, const void* buffer, uint32_t size, uint32_t* written);
bool WinHttpReceiveResponse(Handle request, void* reserved);
// The status as a number (kQueryStatusCode | kQueryFlagNumber, 4 bytes) or the
// raw head as wide text (kQueryRawHeaders: lines ended by NUL, an empty line
// last; kQueryRawHeadersCrlf: lines ended by CR LF). Sizes are in bytes.
bool WinHttpQueryHeaders(Handle request, uint32_t infoLevel, const wchar_t* name, void* buffer, uint32_t* bufferLength,
                         uint32_t* index);
bool WinHttpQueryDataAvailable(Handle request, uint32_t* available);
bool WinHttpReadData(Handle request, void* buffer, uint32_t size, uint32_t* read);
// The schemes of the last 401 or 407 that this layer can answer (Basic and
// Digest: NTLM, Negotiate and Passport are never reported), and its target.
bool WinHttpQueryAuthSchemes(Handle request, uint32_t* supported, uint32_t* first, uint32_t* target);
bool WinHttpSetCredentials(Handle request, uint32_t target, uint32_t scheme, const wchar_t* user,
                           const wchar_t* password, void* reserved);
bool WinHttpCrackUrl(const wchar_t* url, uint32_t length, uint32_t flags, UrlComponents* components);
// With a null buffer, or one too short: false with ZONET_ERR_INSUFFICIENT_BUFFER
// and *length the size needed in characters, the terminator included. On
// success *length is the URL's length without it.
bool WinHttpCreateUrl(const UrlComponents* components, uint32_t flags, wchar_t* buffer, uint32_t* length);
bool WinHttpCloseHandle(Handle handle);

// The proxy look-ups. Strings are the layer's answer in the designed
// platform's syntax; empty when nothing applies.
struct ProxyInfo {
  std::wstring proxy, bypass;
  bool hasProxy = false, hasBypass = false;
};
struct CurrentUserProxyConfig {
  bool autoDetect = false;
  std::wstring autoConfigUrl, proxy, bypass;
  bool hasAutoConfigUrl = false, hasProxy = false, hasBypass = false;
};
constexpr uint32_t kAutoProxyAutoDetect = 1;
constexpr uint32_t kAutoProxyConfigUrl = 2;
constexpr uint32_t kAutoDetectTypeDhcp = 1;
constexpr uint32_t kAutoDetectTypeDnsA = 2;
struct AutoProxyOptions {
  uint32_t dwFlags = 0;
  uint32_t dwAutoDetectFlags = 0;
  const wchar_t* lpszAutoConfigUrl = nullptr;
  bool fAutoLogonIfChallenged = false;
};
bool WinHttpGetDefaultProxyConfiguration(ProxyInfo* info);
bool WinHttpGetIEProxyConfigForCurrentUser(CurrentUserProxyConfig* config);
bool WinHttpGetProxyForUrl(Handle session, const wchar_t* url, const AutoProxyOptions* options, ProxyInfo* info);

}  // namespace zonet_http2

#endif  // ZONET_HTTP_HTTPPLATFORM2_H
