// CZoHTTP2: whole URLs through the second face of the platform HTTP layer.
// The logic is written against the layer's operations (HttpPlatform2.h) and
// nothing else: no socket object, no system call of its own.
#include "ZoNetwork/ZoHTTP2.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <sstream>
#include <vector>

#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoFile.h"
#include "ZoUtils/ZoString.h"
#include "ZoUtils/ZoTime.h"
#include "http/HttpInternal2.h"
#include "http/HttpPlatform.h"
#include "http/HttpPlatform2.h"
#include "http/ZoHTTP2Internal.h"

using FXErrorUtil::ErrorHttp;
using FXErrorUtil::ErrorWin32;
namespace hp = zonet_http2;

namespace {

constexpr unsigned kChunk = 10240;
constexpr uint32_t kIgnoredCertificateErrors = 0x3300;
// The download destination and the upload source, by meaning (see docs/porting.md).
constexpr int kOpenDestinationFlags = O_CREAT | O_WRONLY;
constexpr int kOpenSourceFlags = O_RDONLY;
constexpr int kOpenMode = S_IRUSR | S_IWUSR;

std::atomic<zonet_internal::Http2SleepHook> g_sleepHook{nullptr};

void Pause(unsigned long milliseconds) {
  zonet_internal::Http2SleepHook hook = g_sleepHook.load();
  if (hook != nullptr) {
    hook(milliseconds);
  } else {
    ZOSLEEP_InTeRnAl(milliseconds, __FILE__, __LINE__);
  }
}

uint32_t LastError() { return zonet_http::LastError(); }

bool IsThirteen(wchar_t c) {
  switch (c) {
    case 33: case 36: case 38: case 39: case 40: case 41: case 42: case 43: case 44: case 59: case 61: case 63:
    case 64:
      return true;
    default:
      return false;
  }
}

}  // namespace

namespace zonet_internal {
Http2SleepHook SetHttp2SleepHook(Http2SleepHook hook) { return g_sleepHook.exchange(hook); }
}  // namespace zonet_internal

CZoHTTP2::CZoHTTP2() : CZoHTTP2("ZoHTTP") {}

CZoHTTP2::CZoHTTP2(const char* userAgent)
    : m_hSession(nullptr),
      m_hConnect(nullptr),
      m_hRequest(nullptr),
      m_port(0),
      m_userAgent(FXString::ToWstring(userAgent)),
      m_postUpload(false),
      m_authenticated(false),
      m_autoEscapeUrl(true),
      m_secured(true),
      m_timeoutMs(0),
      m_accessType(0),
      m_proxyAuthenticated(false),
      m_hasProxyBypass(false) {}

CZoHTTP2::CZoHTTP2(const CZoHTTP2& other) = default;
CZoHTTP2& CZoHTTP2::operator=(const CZoHTTP2& other) = default;

CZoHTTP2::~CZoHTTP2() {
  if (m_hRequest != nullptr) hp::WinHttpCloseHandle(m_hRequest);
  if (m_hConnect != nullptr) hp::WinHttpCloseHandle(m_hConnect);
  if (m_hSession != nullptr) hp::WinHttpCloseHandle(m_hSession);
}

void CZoHTTP2::SetUser(const char* user) { m_user = FXString::ToWstring(user); }
void CZoHTTP2::SetPassword(const char* password) { m_password = FXString::ToWstring(password); }

void CZoHTTP2::SetProxyAccess(const char* proxy) {
  if (proxy != nullptr) m_proxyServer = FXString::ToWstring(proxy);
  m_accessType = 3;
}

void CZoHTTP2::SetProxyBypass(const char* bypass) {
  if (bypass != nullptr) m_proxyBypass = FXString::ToWstring(bypass);
  m_hasProxyBypass = true;
}

void CZoHTTP2::SetProxyCredentials(const char* user, const char* password) {
  if (user != nullptr) m_proxyUser = FXString::ToWstring(user);
  if (password != nullptr) m_proxyPassword = FXString::ToWstring(password);
}

void CZoHTTP2::SetInternetTimeoutSec(long seconds) { m_timeoutMs = static_cast<int32_t>(seconds * 1000); }
void CZoHTTP2::SetPostUpload(bool post) { m_postUpload = post; }
void CZoHTTP2::SetAutoEscapeUrl(bool escape) { m_autoEscapeUrl = escape; }
void CZoHTTP2::SetSecured(bool secured) { m_secured = secured; }

void CZoHTTP2::SetRequestHeader(std::string name, std::string value) {
  m_requestHeaders.insert(std::make_pair(name, value));
}

void CZoHTTP2::SetRequestHeader(std::map<std::string, std::string> headers) { m_requestHeaders = headers; }

void CZoHTTP2::ClearRequestHeader() { m_requestHeaders.clear(); }

void CZoHTTP2::Log(const char*, ...) {
  // Every message is dropped; the call sites keep their texts for a sink.
}

void CZoHTTP2::StatusCallbackStatic(void*, uint64_t, uint32_t, void*, uint32_t) {}

CZoError CZoHTTP2::IntializeSession() {
  if (m_hSession != nullptr) return CZoError::Success();
  if (m_accessType == 0) {
    m_hSession = hp::WinHttpOpen(m_userAgent.c_str(), 0, nullptr, nullptr, 0);
  } else if (m_hasProxyBypass) {
    m_hSession = hp::WinHttpOpen(m_userAgent.c_str(), m_accessType, m_proxyServer.c_str(), m_proxyBypass.c_str(), 0);
  } else {
    m_hSession = hp::WinHttpOpen(m_userAgent.c_str(), m_accessType, m_proxyServer.c_str(), nullptr, 0);
  }
  if (m_hSession == nullptr) {
    uint32_t code = LastError();
    Log("WinHttpOpen Failed, %d", code);
    return ErrorWin32(FXLOC("CZoHTTP2::IntializeSession"), code, "WinHttpOpen Failed");
  }
  if (m_timeoutMs != 0 && !hp::WinHttpSetTimeouts(m_hSession, 0, m_timeoutMs, m_timeoutMs, m_timeoutMs)) {
    return ErrorWin32(FXLOC("CZoHTTP2::IntializeSession"), LastError(), "WinHttpSetTimeouts failed");
  }
  auto callback = reinterpret_cast<hp::StatusCallback>(&CZoHTTP2::StatusCallbackStatic);
  if (hp::WinHttpSetStatusCallback(m_hSession, callback, 0xFFFFFFFFu, 0) == hp::InvalidStatusCallback()) {
    Log("WinHttpSetStatusCallback Failed, %d", LastError());
  }
  return CZoError::Success();
}

CZoError CZoHTTP2::Connect(const char* url) {
  std::wstring wide = FXString::ToWstring(url);
  return Connect(wide.c_str());
}

CZoError CZoHTTP2::Connect(const wchar_t* url) {
  CZoError error = IntializeSession();
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::Connect"));
  std::wstring host, path;
  int port = 0;
  error = BreakUrl(url, host, path, port);
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::Connect"));
  if (m_hConnect != nullptr) {
    if (host.empty() || host == m_serverName) return CZoError::Success();
    hp::WinHttpCloseHandle(m_hConnect);
    m_hConnect = nullptr;
  }
  Log("Connecting to %S:%d", host.c_str(), port);
  m_hConnect = hp::WinHttpConnect(m_hSession, host.c_str(), static_cast<uint16_t>(port), 0);
  if (m_hConnect == nullptr) {
    uint32_t code = LastError();
    Log("WinHttpConnect failed, %d", code);
    return ErrorWin32(FXLOC("CZoHTTP2::Connect"), code, "WinHttpConnect failed, HostName=%s",
                      FXString::ToString(host).c_str());
  }
  m_serverName = host;
  m_port = static_cast<uint16_t>(port);
  m_authenticated = false;
  m_proxyAuthenticated = false;
  return CZoError::Success();
}

CZoError CZoHTTP2::Reconnect() {
  if (m_serverName.empty() || m_port == 0) {
    return ErrorWin32(FXLOC("CZoHTTP2::Reconnect"), ZONET_ERR_INVALID_PARAMETER, "Invalid parameters to reconnect");
  }
  if (m_hConnect == nullptr) {
    return ErrorWin32(FXLOC("CZoHTTP2::Reconnect"), ZONET_ERR_INVALID_STATE, "No connection to reconnect");
  }
  hp::WinHttpCloseHandle(m_hConnect);
  Log("Reconnecting to %S:%d", m_serverName.c_str(), m_port);
  m_hConnect = hp::WinHttpConnect(m_hSession, m_serverName.c_str(), m_port, 0);
  if (m_hConnect == nullptr) {
    uint32_t code = LastError();
    Log("WinHttpConnect Failed, %d", code);
    return ErrorWin32(FXLOC("CZoHTTP2::Reconnect"), code, "WinHttpConnect (reconnect) failed, ServerName=%s, Port=%u",
                      FXString::ToString(m_serverName).c_str(), static_cast<unsigned>(m_port));
  }
  m_authenticated = false;
  m_proxyAuthenticated = false;
  return CZoError::Success();
}

CZoError CZoHTTP2::BreakUrl(const wchar_t* url, std::wstring& host, std::wstring& path, int& port) {
  host.clear();
  path.clear();
  port = 0;
  hp::UrlComponents parts;
  if (url == nullptr || !hp::WinHttpCrackUrl(url, 0, 0, &parts)) {
    if (url != nullptr) path = url;
    return CZoError::Success();
  }
  // The pointers run on to the end of the text: the path holds the query.
  path = parts.lpszUrlPath;
  std::wstring atHost = parts.lpszHostName;
  if (!path.empty()) {
    size_t at = atHost.find(path);
    host = atHost.substr(0, at);
  } else {
    host = atHost;
  }
  size_t colon = host.find(L':');
  if (colon != std::wstring::npos) host.resize(colon);
  port = parts.nPort;
  SetSecured(parts.nScheme == hp::kSchemeHttps);
  return CZoError::Success();
}

CZoError CZoHTTP2::EscapeUrl(const wchar_t* url, std::wstring& escaped) {
  hp::UrlComponents parts;
  if (url == nullptr || !hp::WinHttpCrackUrl(url, 0, 0, &parts)) return CZoError::Success();
  uint32_t length = 0;
  hp::WinHttpCreateUrl(&parts, hp::kIcuEscape, nullptr, &length);
  std::vector<wchar_t> buffer(length + 1);
  if (!hp::WinHttpCreateUrl(&parts, hp::kIcuEscape, buffer.data(), &length)) {
    return ErrorWin32(FXLOC("CZoHTTP2::EscapeUrl"), ZONET_ERR_INVALID_STATE, "Failed to escape URL");
  }
  CZoError error = EscapeUrlExtra(buffer.data(), escaped);
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::EscapeUrl"));
  return CZoError::Success();
}

CZoError CZoHTTP2::EscapeUrlExtra(const wchar_t* url, std::wstring& escaped) {
  std::wostringstream stream;
  for (const wchar_t* p = url; p != nullptr && *p != 0; ++p) {
    if (!IsThirteen(*p)) stream << *p;
  }
  escaped = stream.str();
  return CZoError::Success();
}

CZoError CZoHTTP2::DownloadFile(const char* destination, const char* url) {
  std::wstring wide = FXString::ToWstring(url);
  return DownloadFile(destination, wide.c_str());
}

CZoError CZoHTTP2::DownloadFile(const char* destination, const wchar_t* url) {
  CZoError error = Connect(url);
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::DownloadFile"));
  CZoFile file;
  if (destination != nullptr && *destination != 0) {
    error = file.Open(destination, kOpenDestinationFlags, kOpenMode);
    if (error.IsError()) {
      return error.Push(FXLOC("CZoHTTP2::DownloadFile"), "Failed to create destination file %s", destination);
    }
  }
  error = SubmitRequest(url, false, file);
  file.Close();
  if (error.IsError()) {
    // Removed whatever the failure was; an empty name removes nothing.
    if (destination != nullptr) FXFile::RemoveFile(destination);
    return error.Push(FXLOC("CZoHTTP2::DownloadFile"));
  }
  return CZoError::Success();
}

CZoError CZoHTTP2::UploadFile(const char* source, const char* url) {
  std::wstring wide = FXString::ToWstring(url);
  return UploadFile(source, wide.c_str());
}

CZoError CZoHTTP2::UploadFile(const char* source, const wchar_t* url) {
  CZoError error = Connect(url);
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::UploadFile"));
  CZoFile file;
  error = file.Open(source, kOpenSourceFlags, kOpenMode);
  if (error.IsError()) {
    return error.Push(FXLOC("CZoHTTP2::UploadFile"), "Failed to open source file %s", source ? source : "");
  }
  error = SubmitRequest(url, true, file);
  file.Close();
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::UploadFile"));
  return CZoError::Success();
}

CZoError CZoHTTP2::SubmitRequest(const wchar_t* url, bool upload, CZoFile& file) {
  const char* const where = "CZoHTTP2::SubmitRequest";
  if (m_hRequest != nullptr) {
    hp::WinHttpCloseHandle(m_hRequest);
    m_hRequest = nullptr;
  }
  std::wstring text;
  if (m_autoEscapeUrl) {
    CZoError error = EscapeUrl(url, text);
    if (error.IsError()) return error.Push(FXLOC(where));
    Log("Escaped Url to: %s", FXString::ToString(text).c_str());
  } else {
    text = url != nullptr ? url : L"";
  }
  std::wstring host, path;
  int port = 0;
  BreakUrl(text.c_str(), host, path, port);
  const wchar_t* verb = upload ? (m_postUpload ? L"POST" : L"PUT") : L"GET";
  m_hRequest = hp::WinHttpOpenRequest(m_hConnect, verb, path.c_str(), nullptr, nullptr, nullptr,
                                      m_secured ? hp::kFlagSecure : 0);
  if (m_hRequest == nullptr) return ErrorWin32(FXLOC(where), LastError(), "WinHttpOpenRequest failed");
  if (m_timeoutMs != 0 && !hp::WinHttpSetTimeouts(m_hRequest, 0, m_timeoutMs, m_timeoutMs, m_timeoutMs)) {
    return ErrorWin32(FXLOC(where), LastError(), "WinHttpSetTimeouts failed");
  }
  uint32_t flags = kIgnoredCertificateErrors;
  if (!hp::WinHttpSetOption(m_hRequest, hp::kOptionSecurityFlags, &flags, sizeof flags)) {
    return ErrorWin32(FXLOC(where), LastError(), "WinHttpSetOption failed");
  }
  if (!m_requestHeaders.empty()) {
    CZoError error = AddRequestHeader();
    if (error.IsError()) return error.Push(FXLOC(where));
  }

  bool serverAuthTried = false, proxyAuthTried = false, reconnected = false, noClientCertTried = false;
  int busyCount = 0;
  uint32_t status = 0;
  for (;;) {
    bool retry = false, finished = false;
    uint32_t total = 0;
    if (upload) {
      uint64_t size = 0;
      file.Size(size);
      total = static_cast<uint32_t>(size);
    }
    if (!hp::WinHttpSendRequest(m_hRequest, nullptr, 0, nullptr, 0, total, 0)) {
      uint32_t code = LastError();
      Log("Send Request Failed, %d", code);
      if (code == ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED && !noClientCertTried) {
        if (!hp::WinHttpSetOption(m_hRequest, hp::kOptionClientCertContext, nullptr, 0)) {
          Log("Set Option No Client Cert Failed, %d", LastError());
          return ErrorWin32(FXLOC(where), LastError(), "WinHttpSetOption(NoClientCert) Failed, Is this 2003 SP1?");
        }
        retry = true;
        noClientCertTried = true;
      } else {
        return ErrorWin32(FXLOC(where), code, "WinHttpSendRequest failed");
      }
    } else {
      Log("Send Request Succeeded");
      if (upload) {
        CZoError error = SendFileData(file);
        if (error.IsError()) return error.Push(FXLOC(where));
      }
      if (!hp::WinHttpReceiveResponse(m_hRequest, nullptr)) {
        uint32_t code = LastError();
        Log("Receive Response Failed, %d", code);
        if (code == ZONET_ERR_HTTP_TIMEOUT && !reconnected) {
          CZoError error = Reconnect();
          if (error.IsError()) return error.Push(FXLOC(where));
          retry = true;
          reconnected = true;
        } else {
          return ErrorWin32(FXLOC(where), code, "WinHttpReceiveResponse failed");
        }
      } else {
        Log("Receive Response Succeeded");
        uint32_t size = sizeof status;
        if (hp::WinHttpQueryHeaders(m_hRequest, hp::kQueryStatusCode | hp::kQueryFlagNumber, nullptr, &status, &size,
                                    nullptr)) {
          Log("Status Code: %d", status);
        } else {
          Log("Query Status Code Failed, %d", LastError());
          status = 0;
        }
        if (upload) {
          std::vector<char> raw(65536);
          uint32_t rawSize = static_cast<uint32_t>(raw.size());
          hp::WinHttpQueryHeaders(m_hRequest, hp::kQueryRawHeaders, nullptr, raw.data(), &rawSize, nullptr);
          Log("%s", raw.data());
        }
        switch (status) {
          case 200:
            finished = true;
            break;
          case 201:
            if (upload) finished = true;
            break;
          case 401:
            m_authenticated = false;
            if (serverAuthTried) {
              Log("Authentication Failed, %d", LastError());
              return ErrorWin32(FXLOC(where), LastError(), "Authentication failed");
            }
            if (!Authenticate().IsError()) {
              retry = true;
              serverAuthTried = true;
            }
            break;
          case 404:
            Log("File Not Found");
            return ErrorWin32(FXLOC(where), ZONET_ERR_NOT_FOUND, "URL not found");
          case 407:
            m_proxyAuthenticated = false;
            if (proxyAuthTried) {
              Log("Proxy Authentication Failed, %d", LastError());
              return ErrorWin32(FXLOC(where), LastError(), "Proxy Authentication failed");
            }
            if (!Authenticate().IsError()) {
              retry = true;
              proxyAuthTried = true;
            }
            break;
          case 501:
            if (busyCount >= 5) return ErrorHttp(FXLOC(where), static_cast<int>(status));
            ++busyCount;
            Pause(static_cast<unsigned long>(busyCount) * 2000);
            retry = true;
            break;
          default:
            return ErrorHttp(FXLOC(where), static_cast<int>(status));
        }
      }
    }
    if (retry) continue;
    if (!finished) return CZoError::Success();
    if (!upload) {
      CZoError error = ReceiveFileData(file);
      if (error.IsError()) return error.Push(FXLOC(where));
    }
    m_authenticated = true;
    return CZoError::Success();
  }
}

CZoError CZoHTTP2::Authenticate() {
  uint32_t supported = 0, first = 0, target = 0;
  if (!hp::WinHttpQueryAuthSchemes(m_hRequest, &supported, &first, &target)) {
    return ErrorWin32(FXLOC("CZoHTTP2::Authenticate"), LastError(), "WinHttpQueryAuthSchemes failed");
  }
  uint32_t scheme = 0;
  for (uint32_t candidate : {hp::kAuthSchemeNegotiate, hp::kAuthSchemeNtlm, hp::kAuthSchemePassport,
                             hp::kAuthSchemeDigest, hp::kAuthSchemeBasic}) {
    if ((supported & candidate) != 0) {
      scheme = candidate;
      break;
    }
  }
  if (scheme == 0) {
    return ErrorWin32(FXLOC("CZoHTTP2::Authenticate"), ZONET_ERR_INVALID_PARAMETER, "No Valid Authentication Schemes");
  }
  if (target == hp::kAuthTargetServer &&
      !hp::WinHttpSetCredentials(m_hRequest, target, scheme, m_user.c_str(), m_password.c_str(), nullptr)) {
    return ErrorWin32(FXLOC("CZoHTTP2::Authenticate"), LastError(), "WinHttpSetCredentials failed");
  }
  // A proxy's challenge is answered by sending again as it stands: the proxy
  // credentials are kept but never handed to the platform.
  return CZoError::Success();
}

CZoError CZoHTTP2::AddRequestHeader() {
  for (const auto& pair : m_requestHeaders) {
    std::wstring line = FXString::ToWstring(pair.first + ": " + pair.second + "\r\n");
    if (!hp::WinHttpAddRequestHeaders(m_hRequest, line.c_str(), static_cast<uint32_t>(line.size()),
                                      hp::kAddReqFlagAdd)) {
      return ErrorWin32(FXLOC("CZoHTTP2::AddRequestHeader"), LastError(), "WinHttpAddRequestHeaders failed");
    }
  }
  return CZoError::Success();
}

CZoError CZoHTTP2::SendFileData(CZoFile& file) {
  file.Seek(0, SEEK_SET, nullptr);
  std::vector<char> buffer(kChunk);
  for (;;) {
    unsigned count = 0;
    bool atEnd = false;
    file.IsEOF(atEnd);
    if (!atEnd) {
      CZoError error = file.Read(buffer.data(), kChunk, &count);
      if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::SendFileData"));
    }
    if (count == 0) return CZoError::Success();
    uint32_t written = 0;
    if (!hp::WinHttpWriteData(m_hRequest, buffer.data(), count, &written)) {
      Log("WinHttpWriteData Failed, %d", LastError());
      return ErrorWin32(FXLOC("CZoHTTP2::SendFileData"), LastError(), "WinHttpReadData failed");
    }
    if (written != count) {
      Log("Bytes Send does not match bytes Read, %d", LastError());
      return ErrorWin32(FXLOC("CZoHTTP2::SendFileData"), LastError(), "Bytes sent (%u) does not match bytes read (%u)",
                        written, count);
    }
  }
}

CZoError CZoHTTP2::ReceiveFileData(CZoFile& file) {
  std::vector<char> buffer(kChunk);
  for (;;) {
    uint32_t available = 0;
    if (!hp::WinHttpQueryDataAvailable(m_hRequest, &available)) {
      Log("WinHttpQueryDataAvailable Failed, %d", LastError());
      return ErrorWin32(FXLOC("CZoHTTP2::ReceiveFileData"), LastError(), "WinHttpQueryDataAvailable failed");
    }
    if (available == 0) return CZoError::Success();
    // The read is limited to the buffer; the loop runs more often instead.
    uint32_t want = available < kChunk ? available : kChunk;
    uint32_t read = 0;
    if (!hp::WinHttpReadData(m_hRequest, buffer.data(), want, &read)) {
      Log("WinHttpReadData Failed, %d", LastError());
      return ErrorWin32(FXLOC("CZoHTTP2::ReceiveFileData"), LastError(), "WinHttpReadData failed");
    }
    if (read != 0 && file.IsValid()) {
      CZoError error = file.Write(buffer.data(), read, nullptr);
      if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::ReceiveFileData"), "Failed to write to file");
    }
  }
}

CZoError CZoHTTP2::PreUploadFile(const wchar_t* url) {
  std::wstring host, path;
  int port = 0;
  CZoError error = BreakUrl(url, host, path, port);
  if (error.IsError()) return error.Push(FXLOC("CZoHTTP2::PreUploadFile"));
  size_t question = path.rfind(L'?');
  if (question != std::wstring::npos) path.resize(question);
  size_t slash = path.rfind(L'/');
  if (slash != std::wstring::npos) path.resize(slash);
  DownloadFile("", path.c_str());
  return CZoError::Success();
}
