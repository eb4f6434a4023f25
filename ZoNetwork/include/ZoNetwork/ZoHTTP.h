/// @file
/// ZoHTTP: a client of one web server through the platform HTTP layer. It
/// fetches files that the server lists in HTML pages, fetches single URLs with
/// extra headers, and posts a log file to the server's upload script as a
/// multipart form.
#ifndef ZONETWORK_ZOHTTP_H
#define ZONETWORK_ZOHTTP_H

#include <stdint.h>

#include <map>
#include <string>
#include <vector>

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoString.h"

namespace zonet_internal {
struct ZoHTTPAccess;
}

/// One client of one web server. A plain value class, driven in one order:
/// constructor, setters, then any number of transfers, then destructor. It
/// holds three handles of the platform HTTP layer (root, connection, request),
/// made at the first request. Copies share those handles, and both close
/// them when destroyed: a copy is not to outlive its source. Not for use by
/// two threads at once. Failures come back as CZoError: a platform failure
/// with the layer's number (ErrorWin32), a refused request with its status
/// (ErrorHttp, a negative code).
class ZONET_API ZoHTTP {
public:
  /// Makes a client with every field at its default: scheme "HTTP", port 80,
  /// and the given user agent, which is also sent with every request. The
  /// agent "Use_JSP_for_Upload" selects the JSP form of the upload service. A
  /// null agent is taken as the empty text.
  explicit ZoHTTP(const char* userAgent);
  /// Copies every field, the three handles included, as they are: both
  /// objects then close the same handles.
  ZoHTTP(const ZoHTTP& other);
  /// Copies every field, the handles included, without closing the handles
  /// this object held. Returns this object.
  ZoHTTP& operator=(const ZoHTTP& other);
  /// Closes the request, connection and root handles, in that order, and
  /// discards the results.
  ~ZoHTTP();

  /// Takes a base URL "[scheme://]host[:port][/path][?query]": sets the
  /// scheme, server, port (443 and the secure flag for "https"), path and the
  /// base URL itself with a "/" appended. An empty text empties the base URL
  /// and changes nothing else. A malformed URL is taken as far as it goes;
  /// nothing is reported.
  void SetBaseURL(const char* url);
  /// Gives the base URL, or, when there is none, scheme + "://" + server +
  /// "/" + path.
  void GetWorkingURL(CZoString& url);
  /// Sets the server's host name, as it stands.
  void SetWebServer(const char* server);
  /// Sets the server user name, which answers the server's challenges and
  /// goes into the upload's Authorization header.
  void SetUser(const char* user);
  /// Sets the server password (held as plain text).
  void SetPassword(const char* password);
  /// Sets the directory on the server, as it stands (no slash added).
  void SetPath(const char* path);
  /// Sets the user agent; it counts only until the first request.
  void SetUserAgent(const char* userAgent);
  /// Uses the given proxy list and bypass list (each set only when not null)
  /// instead of the user's proxy setting; counts only until the first request.
  void SetProxyAccess(const char* proxy, const char* bypass);
  /// Sets the credentials that answer a proxy's challenge (each only when not null).
  void SetProxyCreds(const char* user, const char* password);
  /// Sets the connect, send and receive time-outs of the next requests, in
  /// milliseconds; 0 keeps the layer's own.
  void SetInternetTimeout(long milliseconds);
  /// Accepts server certificates of unknown authority, wrong name or bad date
  /// from now on; there is no way back.
  void SetIgnoreCertificateErrors();

  /// Fetches files into localDir. With a fileName, the one object path +
  /// fileName (remotePath, when given, becomes the path first); without, every
  /// file that the listing of the base URL yields. Each file is written below
  /// localDir under its name on the server, making folders as needed. The
  /// first failure ends the call and is returned; the file that failed is
  /// removed when the server refused it, earlier files stay.
  CZoError DownloadFile(const char* localDir, const char* remotePath, const char* fileName);
  /// Fetches url (a whole URL, sent as the object name) with the given extra
  /// headers into localDir + "/" + fileName. The headers stay in the object
  /// when the call fails, and go out again with the next fetch.
  CZoError DownloadFileFromUrl(const char* localDir, const char* url, const char* fileName,
                               std::map<std::string, std::string> headers);
  /// Posts the file at filePath as a multipart form to the server's upload
  /// script ("upload.asp", or "httplogupload.do" for the JSP agent) under the
  /// path, with the installation identifier tkid ("NO TKID" when null).
  /// Returns the first failure of opening, reading or sending.
  CZoError UploadFile(const char* filePath, const char* tkid);
  /// Empties files, then fills it with the links of the listing page of the
  /// base URL (or of the server's root) + path, in page order. A failure
  /// leaves what was found before it.
  CZoError GetFileList(std::vector<CZoString>& files, const char* path);

private:
  friend struct zonet_internal::ZoHTTPAccess;

  CZoError _openInternet();
  CZoError _connectInternet();
  CZoError _openRequest(bool closeExisting);
  CZoError _queryRequestStatus();
  CZoError _addRequestHeader(const char* name, const char* value);
  CZoError _ignoreCertificateErrors();
  CZoError _internetCloseHandle(void*& handle);
  void _getUserAuthorization();
  CZoError _downloadFile(const char* localDir, const char* fileName);
  CZoError _uploadFile(const char* filePath);
  CZoError _uploadData(const char* data, size_t size);
  CZoError _sendRequestGet(const char* fileName);
  CZoError _sendRequestPost(const char* fileName, size_t fileSize);
  CZoError _sendRequestPut(unsigned long size);
  CZoError _getFileListRecursive(std::vector<CZoString>& files, const char* url);

  void* m_hInternet;
  void* m_hConnect;
  void* m_hRequest;
  CZoString m_userAgent;
  CZoString m_webServer;
  CZoString m_user;
  CZoString m_password;
  CZoString m_baseURL;
  CZoString m_path;
  CZoString m_objectName;
  CZoString m_proxyServer;
  CZoString m_proxyBypass;
  CZoString m_proxyUser;
  CZoString m_proxyPassword;
  CZoString m_scheme;
  CZoString m_postPreamble;
  CZoString m_postEpilogue;
  CZoString m_authorization;
  CZoString m_tkid;
  uint32_t m_accessType;
  uint32_t m_requestFlags;
  uint16_t m_port;
  int32_t m_operation;
  std::map<std::string, std::string> m_requestHeaders;
  int32_t m_timeout;
  int32_t m_ignoreCertErrors;
};

#endif  // ZONETWORK_ZOHTTP_H
