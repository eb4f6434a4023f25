/// @file
/// CZoHTTP2: the second platform HTTP client. It takes a whole URL per call
/// and downloads it to a file or uploads a file to it (PUT, or POST), answers
/// server challenges with its user and password, retries once after a
/// receive time-out and after a demand for a client certificate, and waits
/// out busy (501) replies. Its static operations look up the proxy settings
/// of the machine, of the current user, and for one URL.
#ifndef ZONETWORK_ZOHTTP2_H
#define ZONETWORK_ZOHTTP2_H

#include <stdint.h>

#include <map>
#include <string>

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"

class CZoFile;

namespace zonet_internal {
struct ZoHTTP2Access;
}

/// One client of whole URLs. It holds a session, at most one connection and
/// at most one request of the platform HTTP layer, made on first use, and
/// the settings that apply to them. Copies share those handles, and both
/// close them when destroyed: a copy is not to outlive its source. Not for
/// use by two threads at once. Failures come back as CZoError: a platform
/// failure with the layer's number (ErrorWin32), a refused request with its
/// status (ErrorHttp, a negative code).
class ZONET_API CZoHTTP2 {
public:
  /// Makes a client with every setting at its default and the agent "ZoHTTP".
  CZoHTTP2();
  /// Makes a client with every setting at its default and the given agent
  /// (a null agent is the empty text).
  explicit CZoHTTP2(const char* userAgent);
  /// Copies every field, the handles included, as they are: both objects
  /// then close the same handles.
  CZoHTTP2(const CZoHTTP2& other);
  /// Copies every field, the handles included, without closing what this
  /// object held. Returns this object.
  CZoHTTP2& operator=(const CZoHTTP2& other);
  /// Closes the request, connection and session, in that order.
  virtual ~CZoHTTP2();

  /// Sets the user name that answers a server's challenge.
  void SetUser(const char* user);
  /// Sets the password that answers a server's challenge.
  void SetPassword(const char* password);
  /// Names the proxy (when not null) and selects the named-proxy access type
  /// in every case. Counts only before the first Connect.
  void SetProxyAccess(const char* proxy);
  /// Sets the proxy bypass list (when not null) and hands a bypass list to
  /// the session in every case. Counts only before the first Connect.
  void SetProxyBypass(const char* bypass);
  /// Keeps a proxy user and password; they are not handed to the platform.
  void SetProxyCredentials(const char* user, const char* password);
  /// Sets the connect, send and receive time-outs to seconds * 1000
  /// milliseconds; 0 leaves the platform's own.
  void SetInternetTimeoutSec(long seconds);
  /// Uploads with POST when true, PUT when false (the default).
  void SetPostUpload(bool post);
  /// Escapes URLs before a request when true (the default). Escaping drops
  /// the characters ! $ & ' ( ) * + , ; = ? @ from the URL.
  void SetAutoEscapeUrl(bool escape);
  /// Uses TLS when true. Every URL that can be split sets it anew from its scheme.
  void SetSecured(bool secured);
  /// Adds a header to every request; a name already present keeps its old value.
  void SetRequestHeader(std::string name, std::string value);
  /// Replaces all request headers.
  void SetRequestHeader(std::map<std::string, std::string> headers);
  /// Removes all request headers.
  void ClearRequestHeader();

  /// Makes the session (once) and a connection to the URL's host. Returns the
  /// platform's failure with "WinHttpConnect failed, HostName=..." when no
  /// connection can be made.
  CZoError Connect(const char* url);
  /// Connect with a wide URL.
  CZoError Connect(const wchar_t* url);

  /// Fetches url into the file destination (created if missing; none: the
  /// body is read and dropped). On failure the file is deleted. Returns the
  /// failure, ErrorHttp with the status for any status but 200 (and 201).
  CZoError DownloadFile(const char* destination, const char* url);
  /// DownloadFile with a wide URL.
  CZoError DownloadFile(const char* destination, const wchar_t* url);
  /// Sends the file source to url as the request's body (PUT, or POST).
  /// Returns the failure, ErrorHttp with the status for any status but 200 and 201.
  CZoError UploadFile(const char* source, const char* url);
  /// UploadFile with a wide URL.
  CZoError UploadFile(const char* source, const wchar_t* url);

  /// The machine-wide proxy and bypass list, both emptied first. Returns
  /// "Failed to global HTTP proxy configuration" when they cannot be read.
  static CZoError GetGlobalProxyConfiguration(std::string& proxy, std::string& bypass);
  /// The current user's proxy, bypass list, configuration script URL and
  /// auto-detection flag, all emptied first. Returns "Failed to get HTTP
  /// proxy configuration for the current user" when they cannot be read.
  static CZoError GetProxyConfigurationForCurrentUser(std::string& proxy, std::string& bypass,
                                                      std::string& autoConfigUrl, bool& autoDetect);
  /// The proxy (and bypass list) for url, by the script at autoConfigUrl or,
  /// when that is empty, by auto-detection. Returns "Failed to get proxy for
  /// URL [...]" with the platform's code when there is no answer.
  static CZoError GetProxyForUrl(const std::string& url, const std::string& autoConfigUrl, std::string& proxy,
                                 std::string& bypass);

private:
  friend struct zonet_internal::ZoHTTP2Access;

  CZoError IntializeSession();
  CZoError BreakUrl(const wchar_t* url, std::wstring& host, std::wstring& path, int& port);
  CZoError EscapeUrl(const wchar_t* url, std::wstring& escaped);
  CZoError EscapeUrlExtra(const wchar_t* url, std::wstring& escaped);
  CZoError Reconnect();
  CZoError SubmitRequest(const wchar_t* url, bool upload, CZoFile& file);
  CZoError Authenticate();
  CZoError AddRequestHeader();
  CZoError ReceiveFileData(CZoFile& file);
  CZoError SendFileData(CZoFile& file);
  CZoError PreUploadFile(const wchar_t* url);
  static void Log(const char* format, ...);
  static void StatusCallbackStatic(void* handle, uint64_t context, uint32_t status, void* information,
                                   uint32_t length);

  void* m_hSession;
  void* m_hConnect;
  void* m_hRequest;
  uint16_t m_port;
  std::wstring m_serverName;
  std::wstring m_user;
  std::wstring m_password;
  std::wstring m_userAgent;
  bool m_postUpload;
  bool m_authenticated;
  bool m_autoEscapeUrl;
  bool m_secured;
  int32_t m_timeoutMs;
  int32_t m_accessType;
  bool m_proxyAuthenticated;
  std::wstring m_proxyServer;
  std::wstring m_proxyUser;
  std::wstring m_proxyPassword;
  bool m_hasProxyBypass;
  std::wstring m_proxyBypass;
  std::map<std::string, std::string> m_requestHeaders;
};

#endif  // ZONETWORK_ZOHTTP2_H
