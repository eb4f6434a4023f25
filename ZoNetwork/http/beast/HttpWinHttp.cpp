// The second client's face of the platform HTTP layer (HttpPlatform2.h):
// session, connection and request handles over the engine, URL cracking and
// building, with the designed platform's options, flags and numbers.
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoString.h"
#include "http/HttpInternal2.h"
#include "http/HttpPlatform.h"
#include "http/HttpPlatform2.h"
#include "http/beast/HttpEngine.h"
#include "http/beast/HttpProxy2.h"

namespace zonet_http2 {

using zonet_http::engine::Face;
using zonet_http::engine::Request;
using zonet_http::engine::Session;
using zonet_http::engine::Timeouts;

namespace {

enum class Kind { Session, Connect, Request };

struct Object {
  Kind kind;
  std::shared_ptr<Session> session;
  Timeouts timeouts;
  int resolveMs = 0;
  // Session: what it was opened with, for the tests.
  uint32_t accessType = 0;
  std::string proxy, bypass;
  bool hasProxy = false, hasBypass = false;
  // Connection.
  std::string host;
  uint16_t port = 0;
  // Request.
  std::unique_ptr<Request> request;
  uint64_t total = 0;
};

// Handles are numbers from a counter of this face's own, never reused: a
// handle closed twice, or one of the other face, is refused cleanly. A
// request keeps its session alive by itself, so closing the connection under
// it (as a reconnect does) leaves it usable.
std::mutex g_mutex;
std::map<uintptr_t, std::shared_ptr<Object>> g_handles;
uintptr_t g_next = 0x20000000;

Handle Register(std::shared_ptr<Object> object) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_next += 4;
  g_handles[g_next] = std::move(object);
  return reinterpret_cast<Handle>(g_next);
}

bool Fail(uint32_t code) {
  zonet_http::SetLastError(code);
  return false;
}

std::shared_ptr<Object> Get(Handle handle, Kind kind) {
  std::shared_ptr<Object> object;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
    if (it != g_handles.end()) object = it->second;
  }
  if (!object) {
    Fail(ZONET_ERR_INVALID_HANDLE);
    return nullptr;
  }
  if (object->kind != kind) {
    Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE);
    return nullptr;
  }
  return object;
}

std::string Narrow(const wchar_t* text) { return FXString::ToString(text); }
std::string Narrow(const wchar_t* text, size_t length) {
  return text == nullptr ? std::string() : FXString::ToString(std::wstring(text, length));
}


bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

bool SameNoCase(const wchar_t* a, size_t n, const char* b) {
  if (std::strlen(b) != n) return false;
  for (size_t i = 0; i < n; ++i) {
    wchar_t c = a[i];
    if (c >= L'A' && c <= L'Z') c = c - L'A' + L'a';
    if (c != static_cast<wchar_t>(b[i])) return false;
  }
  return true;
}

// The characters that building a URL escapes, besides controls, space and
// everything from 0x7F up.
bool MustEscape(unsigned char c) {
  return c <= 0x20 || c >= 0x7F || std::strchr("\"<>\\^`{|}", c) != nullptr;
}

void AppendEscaped(std::wstring& out, const wchar_t* text, size_t length, bool escape) {
  if (!escape) {
    out.append(text, length);
    return;
  }
  static const char kHex[] = "0123456789ABCDEF";
  // Non-ASCII text is escaped byte by byte in UTF-8.
  std::string bytes = FXString::ToString(std::wstring(text, length));
  for (unsigned char c : bytes) {
    if (MustEscape(c)) {
      out += L'%';
      out += static_cast<wchar_t>(kHex[c >> 4]);
      out += static_cast<wchar_t>(kHex[c & 15]);
    } else {
      out += static_cast<wchar_t>(c);
    }
  }
}

}  // namespace

Handle WinHttpOpen(const wchar_t* agent, uint32_t accessType, const wchar_t* proxyText, const wchar_t* bypassText,
                   uint32_t) {
  auto object = std::make_shared<Object>();
  object->kind = Kind::Session;
  object->accessType = accessType;
  object->hasProxy = proxyText != nullptr;
  object->hasBypass = bypassText != nullptr;
  object->proxy = Narrow(proxyText);
  object->bypass = Narrow(bypassText);
  std::string list = object->proxy, bypass = object->bypass;
  uint32_t engineAccess = zonet_http::kOpenTypeProxy;
  switch (accessType) {
    case kAccessTypeDefaultProxy:
      proxy::MachineSetting(list, bypass);
      break;
    case kAccessTypeNoProxy:
      engineAccess = zonet_http::kOpenTypeDirect;
      break;
    case kAccessTypeNamedProxy:
      break;
    default:
      Fail(ZONET_ERR_INVALID_PARAMETER);
      return nullptr;
  }
  if (list.empty()) engineAccess = zonet_http::kOpenTypeDirect;
  object->session = std::make_shared<Session>(Narrow(agent), engineAccess, list, bypass);
  object->timeouts = object->session->timeouts;
  return Register(std::move(object));
}

bool WinHttpSetTimeouts(Handle handle, int resolveMs, int connectMs, int sendMs, int receiveMs) {
  if (resolveMs < -1 || connectMs < -1 || sendMs < -1 || receiveMs < -1) return Fail(ZONET_ERR_INVALID_PARAMETER);
  std::shared_ptr<Object> object;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
    if (it != g_handles.end()) object = it->second;
  }
  if (!object) return Fail(ZONET_ERR_INVALID_HANDLE);
  if (object->kind == Kind::Connect) return Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE);
  // 0 (and -1, "no limit") keep the layer's defaults: a wait without end
  // would hold the caller's thread for good.
  Timeouts defaults;
  Timeouts t;
  t.connectMs = connectMs > 0 ? static_cast<uint32_t>(connectMs) : defaults.connectMs;
  t.sendMs = sendMs > 0 ? static_cast<uint32_t>(sendMs) : defaults.sendMs;
  t.receiveMs = receiveMs > 0 ? static_cast<uint32_t>(receiveMs) : defaults.receiveMs;
  object->resolveMs = resolveMs;
  object->timeouts = t;
  if (object->kind == Kind::Session) object->session->timeouts = t;
  if (object->kind == Kind::Request) object->request->timeouts = t;
  return true;
}

StatusCallback WinHttpSetStatusCallback(Handle handle, StatusCallback, uint32_t, uintptr_t) {
  // Accepted and never called: the layer is synchronous and has nothing to
  // tell on the side.
  if (!Get(handle, Kind::Session)) return InvalidStatusCallback();
  return nullptr;
}

Handle WinHttpConnect(Handle sessionHandle, const wchar_t* server, uint16_t port, uint32_t) {
  std::shared_ptr<Object> session = Get(sessionHandle, Kind::Session);
  if (!session) return nullptr;
  std::string host = Narrow(server);
  if (host.empty()) {
    Fail(ZONET_ERR_INVALID_PARAMETER);
    return nullptr;
  }
  // No network call here: a wrong name or a refused port shows at the send.
  auto object = std::make_shared<Object>();
  object->kind = Kind::Connect;
  object->session = session->session;
  object->host = host;
  if (object->host.size() > 2 && object->host.front() == '[' && object->host.back() == ']') {
    object->host = object->host.substr(1, object->host.size() - 2);
  }
  object->port = port == 0 ? 80 : port;
  return Register(std::move(object));
}

Handle WinHttpOpenRequest(Handle connectHandle, const wchar_t* verb, const wchar_t* objectName, const wchar_t* version,
                          const wchar_t* referrer, const wchar_t** acceptTypes, uint32_t flags) {
  std::shared_ptr<Object> connect = Get(connectHandle, Kind::Connect);
  if (!connect) return nullptr;
  auto object = std::make_shared<Object>();
  object->kind = Kind::Request;
  object->session = connect->session;
  object->request = std::make_unique<Request>(connect->session, Face::WinHttp);
  Request& r = *object->request;
  r.autoAnswer = false;
  r.url.secure = (flags & kFlagSecure) != 0;
  r.url.host = connect->host;
  r.url.port = connect->port;
  std::string target = Narrow(objectName);
  if (target.empty() || target[0] != '/') target = "/" + target;
  r.url.target = target;
  r.verb = verb == nullptr || *verb == 0 ? "GET" : Narrow(verb);
  if (version != nullptr && *version != 0) r.version = Narrow(version);
  r.referrer = Narrow(referrer);
  for (const wchar_t** a = acceptTypes; a != nullptr && *a != nullptr; ++a) r.accept.push_back(Narrow(*a));
  object->timeouts = r.timeouts;
  return Register(std::move(object));
}

bool WinHttpSetOption(Handle handle, uint32_t option, const void* buffer, uint32_t length) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  switch (option) {
    case kOptionSecurityFlags: {
      if (buffer == nullptr || length != 4) return Fail(ZONET_ERR_HTTP_BAD_OPTION_LENGTH);
      uint32_t value;
      std::memcpy(&value, buffer, 4);
      object->request->securityFlags = value;
      return true;
    }
    case kOptionClientCertContext:
      // Only "no certificate" (null) is known: there is no store to pick from.
      if (buffer != nullptr) return Fail(ZONET_ERR_HTTP_INVALID_OPTION);
      object->request->noClientCert = true;
      return true;
    default:
      return Fail(ZONET_ERR_HTTP_INVALID_OPTION);
  }
}

bool WinHttpAddRequestHeaders(Handle handle, const wchar_t* headers, uint32_t length, uint32_t) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if (headers == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  std::string all = length == 0xFFFFFFFFu ? Narrow(headers) : Narrow(headers, length);
  return zonet_http::engine::SplitHeaderLines(all, object->request->extraHeaders) || Fail(ZONET_ERR_HTTP_INVALID_HEADER);
}

bool WinHttpSendRequest(Handle handle, const wchar_t* headers, uint32_t headersLength, const void* optional,
                        uint32_t optionalLength, uint32_t totalLength, uintptr_t) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if (headers != nullptr && headersLength != 0 && !WinHttpAddRequestHeaders(handle, headers, headersLength, 0)) {
    return false;
  }
  if (optional != nullptr && optionalLength > totalLength) return Fail(ZONET_ERR_INVALID_PARAMETER);
  // The head goes now, and the reply is read by WinHttpReceiveResponse: a
  // deadline passed here is one of sending, there one of receiving.
  uint32_t error = 0;
  object->total = totalLength;
  if (!object->request->Send(std::string(), totalLength, true, error)) return Fail(error);
  if (optional != nullptr && optionalLength > 0) {
    size_t written = 0;
    if (!object->request->WriteBody(optional, optionalLength, written, error)) return Fail(error);
  }
  return true;
}

bool WinHttpWriteData(Handle handle, const void* buffer, uint32_t size, uint32_t* written) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if (written) *written = 0;
  if (buffer == nullptr && size > 0) return Fail(ZONET_ERR_INVALID_PARAMETER);
  size_t done = 0;
  uint32_t error = 0;
  if (!object->request->WriteBody(buffer, size, done, error)) return Fail(error);
  if (written) *written = static_cast<uint32_t>(done);
  return true;
}

bool WinHttpReceiveResponse(Handle handle, void*) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  bool challenged = false;
  uint32_t error = 0;
  if (!object->request->EndBody(challenged, error)) return Fail(error);
  return true;
}

bool WinHttpQueryHeaders(Handle handle, uint32_t infoLevel, const wchar_t*, void* buffer, uint32_t* bufferLength,
                         uint32_t*) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  Request& r = *object->request;
  if (!r.HaveReply()) return Fail(ZONET_ERR_HTTP_HEADER_NOT_FOUND);
  if (bufferLength == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  if (infoLevel == (kQueryStatusCode | kQueryFlagNumber)) {
    if (buffer == nullptr || *bufferLength < 4) {
      *bufferLength = 4;
      return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
    }
    uint32_t status = r.Status();
    std::memcpy(buffer, &status, 4);
    *bufferLength = 4;
    return true;
  }
  if (infoLevel == kQueryRawHeaders || infoLevel == kQueryRawHeadersCrlf) {
    std::wstring text = FXString::ToWstring(r.RawHeaders());
    if (infoLevel == kQueryRawHeaders) {
      std::wstring nul;
      size_t start = 0;
      for (size_t end; (end = text.find(L"\r\n", start)) != std::wstring::npos; start = end + 2) {
        nul += text.substr(start, end - start);
        nul += L'\0';
      }
      text = nul;
    }
    uint32_t need = static_cast<uint32_t>((text.size() + 1) * sizeof(wchar_t));
    if (buffer == nullptr || *bufferLength < need) {
      *bufferLength = need;
      return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(buffer, text.c_str(), need);
    *bufferLength = need - sizeof(wchar_t);
    return true;
  }
  return Fail(ZONET_ERR_HTTP_HEADER_NOT_FOUND);
}

bool WinHttpQueryDataAvailable(Handle handle, uint32_t* available) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  size_t count = 0;
  uint32_t error = 0;
  if (!object->request->Available(count, error)) return Fail(error);
  if (available) *available = static_cast<uint32_t>(count);
  return true;
}

bool WinHttpReadData(Handle handle, void* buffer, uint32_t size, uint32_t* read) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if (read) *read = 0;
  if (buffer == nullptr && size > 0) return Fail(ZONET_ERR_INVALID_PARAMETER);
  size_t got = 0;
  uint32_t error = 0;
  if (!object->request->Read(buffer, size, got, error)) return Fail(error);
  if (read) *read = static_cast<uint32_t>(got);
  return true;
}

bool WinHttpQueryAuthSchemes(Handle handle, uint32_t* supported, uint32_t* first, uint32_t* target) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if (supported == nullptr || first == nullptr || target == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  Request& r = *object->request;
  unsigned status = r.HaveReply() ? r.Status() : 0;
  if (status != 401 && status != 407) return Fail(ZONET_ERR_HTTP_INCORRECT_HANDLE_STATE);
  bool fromProxy = status == 407;
  // Linux has no way to answer NTLM, Negotiate or Passport: they are not offered.
  uint32_t schemes = (fromProxy ? r.ProxySchemes() : r.ServerSchemes()) & (kAuthSchemeBasic | kAuthSchemeDigest);
  *supported = schemes;
  *first = (schemes & kAuthSchemeBasic) ? kAuthSchemeBasic : schemes;
  *target = fromProxy ? kAuthTargetProxy : kAuthTargetServer;
  return true;
}

bool WinHttpSetCredentials(Handle handle, uint32_t target, uint32_t scheme, const wchar_t* user,
                           const wchar_t* password, void*) {
  std::shared_ptr<Object> object = Get(handle, Kind::Request);
  if (!object) return false;
  if ((scheme != kAuthSchemeBasic && scheme != kAuthSchemeDigest) ||
      (target != kAuthTargetServer && target != kAuthTargetProxy) || user == nullptr) {
    return Fail(ZONET_ERR_INVALID_PARAMETER);
  }
  Request& r = *object->request;
  if (target == kAuthTargetServer) {
    r.user = Narrow(user);
    r.password = Narrow(password);
  } else {
    r.proxyUser = Narrow(user);
    r.proxyPassword = Narrow(password);
  }
  return true;
}

bool WinHttpCrackUrl(const wchar_t* url, uint32_t length, uint32_t, UrlComponents* c) {
  if (url == nullptr || c == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  size_t n = length != 0 ? length : std::wcslen(url);
  const wchar_t* end = url + n;
  const wchar_t* p = url;
  while (p < end && *p != L':') ++p;
  if (p + 2 >= end || p[1] != L'/' || p[2] != L'/' || p == url) return Fail(ZONET_ERR_HTTP_UNRECOGNIZED_SCHEME);
  int scheme = 0;
  if (SameNoCase(url, p - url, "http")) scheme = kSchemeHttp;
  if (SameNoCase(url, p - url, "https")) scheme = kSchemeHttps;
  if (scheme == 0) return Fail(ZONET_ERR_HTTP_UNRECOGNIZED_SCHEME);
  const wchar_t* authority = p + 3;
  const wchar_t* authorityEnd = authority;
  while (authorityEnd < end && *authorityEnd != L'/' && *authorityEnd != L'?' && *authorityEnd != L'#') {
    ++authorityEnd;
  }
  const wchar_t* host = authority;
  const wchar_t* userEnd = nullptr;
  for (const wchar_t* q = authority; q < authorityEnd; ++q) {
    if (*q == L'@') userEnd = q;
  }
  const wchar_t* userName = nullptr;
  const wchar_t* password = nullptr;
  size_t userLength = 0, passwordLength = 0;
  if (userEnd != nullptr) {
    userName = authority;
    const wchar_t* colon = authority;
    while (colon < userEnd && *colon != L':') ++colon;
    userLength = colon - authority;
    if (colon < userEnd) {
      password = colon + 1;
      passwordLength = userEnd - colon - 1;
    }
    host = userEnd + 1;
  }
  const wchar_t* hostEnd = authorityEnd;
  const wchar_t* portText = nullptr;
  if (host < authorityEnd && *host == L'[') {
    const wchar_t* close = host;
    while (close < authorityEnd && *close != L']') ++close;
    if (close == authorityEnd) return Fail(ZONET_ERR_HTTP_INVALID_URL);
    hostEnd = close + 1;
    if (hostEnd < authorityEnd) {
      if (*hostEnd != L':') return Fail(ZONET_ERR_HTTP_INVALID_URL);
      portText = hostEnd + 1;
    }
  } else {
    for (const wchar_t* q = host; q < authorityEnd; ++q) {
      if (*q == L':') {
        hostEnd = q;
        portText = q + 1;
        break;
      }
    }
  }
  if (hostEnd == host) return Fail(ZONET_ERR_HTTP_INVALID_URL);
  unsigned port = scheme == kSchemeHttps ? 443 : 80;
  if (portText != nullptr && portText < authorityEnd) {
    port = 0;
    for (const wchar_t* q = portText; q < authorityEnd; ++q) {
      if (!IsDigit(*q)) return Fail(ZONET_ERR_HTTP_INVALID_URL);
      port = port * 10 + (*q - L'0');
      if (port > 65535) return Fail(ZONET_ERR_HTTP_INVALID_URL);
    }
    // No server listens on port 0: such a URL names nothing.
    if (port == 0) return Fail(ZONET_ERR_HTTP_INVALID_URL);
  }
  const wchar_t* path = authorityEnd;
  const wchar_t* extra = path;
  while (extra < end && *extra != L'?' && *extra != L'#') ++extra;
  *c = UrlComponents();
  c->lpszScheme = url;
  c->dwSchemeLength = static_cast<uint32_t>(p - url);
  c->nScheme = scheme;
  c->lpszHostName = host;
  c->dwHostNameLength = static_cast<uint32_t>(hostEnd - host);
  c->nPort = static_cast<uint16_t>(port);
  c->lpszUserName = userName;
  c->dwUserNameLength = static_cast<uint32_t>(userLength);
  c->lpszPassword = password;
  c->dwPasswordLength = static_cast<uint32_t>(passwordLength);
  c->lpszUrlPath = path;
  c->dwUrlPathLength = static_cast<uint32_t>(extra - path);
  c->lpszExtraInfo = extra;
  c->dwExtraInfoLength = static_cast<uint32_t>(end - extra);
  return true;
}

bool WinHttpCreateUrl(const UrlComponents* c, uint32_t flags, wchar_t* buffer, uint32_t* length) {
  if (c == nullptr || length == nullptr || c->lpszHostName == nullptr) return Fail(ZONET_ERR_INVALID_PARAMETER);
  auto len = [](const wchar_t* text, uint32_t given) -> size_t {
    return text == nullptr ? 0 : (given != 0 ? given : std::wcslen(text));
  };
  bool escape = (flags & kIcuEscape) != 0;
  std::wstring out;
  if (c->lpszScheme != nullptr && len(c->lpszScheme, c->dwSchemeLength) > 0) {
    out.append(c->lpszScheme, len(c->lpszScheme, c->dwSchemeLength));
  } else {
    out += c->nScheme == kSchemeHttps ? L"https" : L"http";
  }
  bool secure = c->nScheme == kSchemeHttps || SameNoCase(out.c_str(), out.size(), "https");
  out += L"://";
  if (c->lpszUserName != nullptr && len(c->lpszUserName, c->dwUserNameLength) > 0) {
    out.append(c->lpszUserName, len(c->lpszUserName, c->dwUserNameLength));
    if (c->lpszPassword != nullptr && len(c->lpszPassword, c->dwPasswordLength) > 0) {
      out += L':';
      out.append(c->lpszPassword, len(c->lpszPassword, c->dwPasswordLength));
    }
    out += L'@';
  }
  out.append(c->lpszHostName, len(c->lpszHostName, c->dwHostNameLength));
  if (c->nPort != 0 && c->nPort != (secure ? 443 : 80)) out += L":" + std::to_wstring(c->nPort);
  AppendEscaped(out, c->lpszUrlPath, len(c->lpszUrlPath, c->dwUrlPathLength), escape);
  AppendEscaped(out, c->lpszExtraInfo, len(c->lpszExtraInfo, c->dwExtraInfoLength), escape);
  if (buffer == nullptr || *length < out.size() + 1) {
    *length = static_cast<uint32_t>(out.size() + 1);
    return Fail(ZONET_ERR_INSUFFICIENT_BUFFER);
  }
  std::wmemcpy(buffer, out.c_str(), out.size() + 1);
  *length = static_cast<uint32_t>(out.size());
  return true;
}

bool WinHttpCloseHandle(Handle handle) {
  std::shared_ptr<Object> object;
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    auto it = g_handles.find(reinterpret_cast<uintptr_t>(handle));
    if (it == g_handles.end()) return Fail(ZONET_ERR_INVALID_HANDLE);
    object = std::move(it->second);
    g_handles.erase(it);
  }
  // The object (and with the last holder, its session) goes outside the lock.
  object.reset();
  return true;
}

}  // namespace zonet_http2

namespace zonet_internal {

size_t WinHttpOpenHandleCount() {
  std::lock_guard<std::mutex> lock(zonet_http2::g_mutex);
  return zonet_http2::g_handles.size();
}

bool WinHttpTimeoutsOf(void* handle, int& resolveMs, uint32_t& connectMs, uint32_t& sendMs, uint32_t& receiveMs) {
  std::lock_guard<std::mutex> lock(zonet_http2::g_mutex);
  auto it = zonet_http2::g_handles.find(reinterpret_cast<uintptr_t>(handle));
  if (it == zonet_http2::g_handles.end()) return false;
  resolveMs = it->second->resolveMs;
  connectMs = it->second->timeouts.connectMs;
  sendMs = it->second->timeouts.sendMs;
  receiveMs = it->second->timeouts.receiveMs;
  return true;
}

bool WinHttpSessionOf(void* handle, WinHttpSessionSettings& settings) {
  std::lock_guard<std::mutex> lock(zonet_http2::g_mutex);
  auto it = zonet_http2::g_handles.find(reinterpret_cast<uintptr_t>(handle));
  if (it == zonet_http2::g_handles.end() || it->second->kind != zonet_http2::Kind::Session) return false;
  settings.accessType = it->second->accessType;
  settings.proxy = it->second->proxy;
  settings.bypass = it->second->bypass;
  settings.hasProxy = it->second->hasProxy;
  settings.hasBypass = it->second->hasBypass;
  settings.agent = it->second->session->agent;
  return true;
}

}  // namespace zonet_internal
