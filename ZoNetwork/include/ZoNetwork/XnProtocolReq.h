/// @file
/// The request engine over libcurl: XnProtocolReq, the abstract base of the
/// request classes, with the vocabulary of the request layer. One object owns
/// one curl easy handle and runs one synchronous transfer per operation on
/// the caller's thread; the response goes to the caller's callbacks.
#ifndef ZONETWORK_XNPROTOCOLREQ_H
#define ZONETWORK_XNPROTOCOLREQ_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ZoNetwork/XnCURLError.h"
#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/ZoError.h"

namespace XnCURL {

/// The kind of the current request; the protocol classes switch on it.
enum operationType {
  opUpload = 1,         ///< send a file or a form (uploadFile)
  opDownload = 2,       ///< fetch a body (download; also left by the default configuration)
  opList = 3,           ///< fetch a directory listing (getFilesAndDirsInfoInFile)
  opFileInfo = 4,       ///< headers only, for a size (getFileInfo, IsFile)
  opHeadOnly = 5,       ///< headers only; set only through setOperationType
  opPostString = 6,     ///< POST of a string (doPostOperation with a text)
  opCheck = 7,          ///< headers only, to reach the server (checkConnection, getInfo)
  opPostBuffer = 8,     ///< POST of a buffer (doPostOperation with a buffer and size)
  opCustomRequest = 9,  ///< a named method with a body (doPutOperation, doDeleteOperation)
  opGet = 10,           ///< GET (doGetOperation)
};

/// What getInfo returns.
enum CurlInfoType {
  curlInfoPrimaryIP = 0,     ///< the address of the server reached (CURLINFO_PRIMARY_IP)
  curlInfoEffectiveURL = 1,  ///< the URL last used (CURLINFO_EFFECTIVE_URL)
};

/// The scheme XnHTTPReq puts in front of a server without one.
enum HTTPProtocol {
  protocolHTTP = 1,   ///< "http://", the default
  protocolHTTPS = 2,  ///< "https://"
};

/// One pair a caller hands to an operation: a request header (HTTP) or a
/// command line in two halves (FTP).
struct ZONET_API commandInfo {
  std::string m_key;    ///< header name, or first half of a command line
  std::string m_value;  ///< header value, or second half of a command line
};

/// One entry of a directory listing.
struct ZONET_API FileDirInfo {
  std::string m_name;      ///< entry name
  uint8_t m_isFile = 0;    ///< 1 for a file, 0 for a directory
  int64_t m_reserved = 0;  ///< always 0
};

/// The curl easy handle of one request object.
struct ZONET_API CurlHandleHolder {
  /// Takes a new handle from xn_curl_easy_init; null without curl.
  CurlHandleHolder();
  /// Cleans the handle up if there is one.
  ~CurlHandleHolder();
  /// Not copyable: the handle has one owner.
  CurlHandleHolder(const CurlHandleHolder&) = delete;
  /// Not assignable.
  CurlHandleHolder& operator=(const CurlHandleHolder&) = delete;
  /// The easy handle, or null.
  void* m_curlHandle;
};

/// The abstract base of the request classes. Failures come back as CZoError
/// values: ErrorInt code 1 for a missing initialization or a bad argument,
/// 101 for a request that cannot be formed, and curl failures in the XnCURL
/// domain. Copies are shallow: a copy shares the curl handle and the error
/// buffer with its source and both destructors release them, so a copy must
/// not be destroyed beside its source.
class ZONET_API XnProtocolReq {
public:
  /// A body sink or header sink, as curl calls it.
  typedef size_t (*WriteFunction)(char*, size_t, size_t, void*);
  /// An upload source, as curl calls it.
  typedef size_t (*ReadFunction)(void*, size_t, size_t, void*);
  /// A trace sink, called by curl while logging is on.
  typedef int (*TraceFunction)(void*, void*, char*, size_t, void*);

protected:
  /// Judges m_responseCode: ok is true for a successful request. Fails only
  /// when the object is not initialized.
  virtual CZoError isOperationSuccess(bool& ok) = 0;
  /// Hands headers to the handle for the next request.
  virtual CZoError setHeaders(const std::map<std::string, std::string>& headers) = 0;

public:
  /// Releases the handle and the error buffer (see the class's note on copies).
  virtual ~XnProtocolReq();
  /// Parses a saved listing file into entries (appended). Nothing in the
  /// library calls it.
  virtual CZoError collectFilesAndDir(const std::string& responseFile, std::vector<FileDirInfo>* entries,
                                      std::string parentLink) = 0;
  /// The URL of the request, composed from the server and the path.
  virtual CZoError getFullWorkingURL(std::string& url) = 0;

protected:
  /// Undoes setMethodParameter and setHeaders after a request.
  virtual CZoError unsetOpTypeParameter() = 0;
  /// Sets the options of m_operationType on the handle.
  virtual CZoError setMethodParameter() = 0;

public:
  /// Protocol defaults; nothing in the library calls it.
  virtual CZoError setDefaults() = 0;

protected:
  /// Server and path out of m_URL and m_URLPath.
  virtual CZoError splitServerAndURLPath(std::string& server, std::string& path) = 0;

public:
  /// Probes whether path is a file; nothing in the library calls it.
  virtual CZoError IsFile(const std::string& path, bool& isFile) = 0;

  /// An object with nothing set and no curl call; call initialize next.
  XnProtocolReq();
  /// A second view of other's handle and buffer (shallow).
  XnProtocolReq(const XnProtocolReq& other);
  /// Copies other member by member; what this object held is not released.
  XnProtocolReq& operator=(const XnProtocolReq& other);

  /// Process-wide set-up; the real one happens when curl is loaded, so this
  /// only raises m_gbInit. Never fails.
  static void initializeCurlLibrary();
  /// Does nothing; m_gbInit stays true.
  static void deinitializeCurlLibrary();

  /// Makes the error buffer and the curl handle and applies the default
  /// configuration. Fails with code 1 "Failed to allocate memory for Error
  /// buffer", with XnCURL -1 "Failed to get CURL handle" without curl, or with
  /// the failing option's curl code; the object then stays not initialized.
  CZoError initialize(unsigned int useCAFile);
  /// The last stored curl result and curl's error text.
  void getLastCurlErrorCodeAndErrorMsg(int& code, std::string& message);
  /// The last response code of the server.
  void getLastServerResponseCode(int& code);
  /// Sets the last curl result to 0 and empties the error text.
  void resetCurlErrorCodeAndErrorMsg();
  /// A header sink that swallows the headers: returns size times count.
  static size_t getContentSize(void* data, size_t size, size_t count, void* context);

  /// Registers the server (a name, or a URL with its scheme).
  void setURL(const std::string& url) { m_URL = url; }
  /// Registers the port, as text; empty for the scheme's own.
  void setPortNumber(const std::string& port) { m_portNo = port; }
  /// Stores the value given to initialize; nothing else reads it.
  void setUseCAFile(unsigned int useCAFile) { m_useCAFile = useCAFile; }
  /// The value given to initialize or setUseCAFile.
  unsigned int getUseCAFile() const { return m_useCAFile; }

  // ---- configuration: each setter sets its options on the handle at once,
  // for every later request of the object ----

  /// The transfer time-out in seconds (CURLOPT_TIMEOUT). Fails when not
  /// initialized or when curl refuses the option.
  CZoError SetTimeOut(long seconds);
  /// The connection time-out in seconds (CURLOPT_CONNECTTIMEOUT). Fails as
  /// SetTimeOut does.
  CZoError SetConnectionTimeOut(long seconds);
  /// The server's user and password (CURLOPT_USERPWD "user:password"). The
  /// strings are kept even when the option fails.
  CZoError setCredentials(const std::string& user, const std::string& password);
  /// Certificate checks on, with caFile trusted beside the system's store
  /// when the file exists; or both checks off. Stops at the first option
  /// curl refuses.
  CZoError setSecured(bool secured, const std::string& caFile);
  /// The highest TLS version, in curl's encoding, for the server and the
  /// proxy. Fails when not initialized or an option is refused.
  CZoError setMaxSSLVersion(int version);
  /// TCP keep-alive with its idle time and interval, or off. On a refused
  /// option the error carries the curl code stored before, as it stands.
  CZoError setKeepAlive(bool on, long idleSeconds, long intervalSeconds);
  /// An HTTP proxy "host:port" with "user:password" (empty strings are passed
  /// as they are). m_isProxySet becomes true after the last option.
  CZoError setProxyDetails(const std::string& host, const std::string& user, const std::string& password,
                           const std::string& port);
  /// The hosts that bypass the proxy: always the local ones, then hosts.
  CZoError setProxyBypass(const std::string& hosts);
  /// An empty proxy; the proxy's credentials and m_isProxySet stay.
  CZoError DisableProxy();
  /// The proxy's authentication methods (CURLOPT_PROXYAUTH).
  CZoError setProyAuth(long mask);
  /// TLS session-ID caching on (any value but 0) or off.
  CZoError setSessionIDCaching(long on);
  /// Whether redirects are followed (POST stays POST when they are). Needs a
  /// successful initialize; returns nothing.
  void setLinkRedirects(bool on);
  /// curl's verbose output on or off. Needs a successful initialize.
  void setLogging(bool on);
  /// A trace sink for curl's verbose output; code 1 "Input is invalid" when
  /// either argument is null.
  CZoError setTraceCallBack(void* context, TraceFunction callback);

  /// The body sink of the next request; applied only when both are set.
  void setWriteFunctionPointer(void* context, WriteFunction function);
  /// The upload source of the next request; applied only when both are set.
  void setReadFunctionPointer(void* context, ReadFunction function);
  /// The header sink of the next request; applied only when both are set.
  void setHeaderWriteFunctionPointer(void* context, WriteFunction function);
  /// Whether an HTTP upload sends an empty "Expect" header.
  void skipExpectContinue100(bool skip) { m_skipExpect100 = skip; }
  /// Sets a header (or command) of the next request; a key given again takes
  /// the new value.
  void addRequestedHeaders(const std::string& key, const std::string& value);

  /// Percent-encodes in into out (needs a handle).
  void URLEncode(const std::string& in, std::string& out);
  /// Decodes in into out, up to its first zero byte (needs a handle).
  void URLDecode(const std::string& in, std::string& out);
  /// URLEncode, with "/" and "\" left as they are.
  void URLEncodePath(const std::string& in, std::string& out);
  /// The same as URLDecode.
  void URLDecodePath(const std::string& in, std::string& out);

  // ---- operations: one transfer each ----

  /// Fetches url (a path or a full URL) into the write function. Code 1
  /// "Invalid source url." for a null or empty url.
  CZoError download(const char* url, const std::vector<commandInfo>& commands);
  /// Sends the upload body (the form on HTTP, the read function on FTP) to
  /// url. Code 1 for a null or empty source or url.
  CZoError uploadFile(const char* source, const char* url, size_t size, const std::vector<commandInfo>& commands);
  /// POSTs text to url. Code 1 for a null or empty text or url.
  CZoError doPostOperation(const char* url, const char* text, const std::vector<commandInfo>& commands);
  /// POSTs size bytes of buffer to url. Code 1 for a null buffer with a size,
  /// a null or empty url, or a negative size.
  CZoError doPostOperation(const char* url, const char* buffer, long size, const std::vector<commandInfo>& commands);
  /// GETs url into the write function. Code 1 for a null or empty url.
  CZoError doGetOperation(const char* url, const std::vector<commandInfo>& commands);
  /// PUTs size bytes of buffer to url. Code 1 for a null buffer, a null or
  /// empty url, or a negative size.
  CZoError doPutOperation(const char* url, const char* buffer, long size, const std::vector<commandInfo>& commands);
  /// DELETEs url with size bytes of buffer as body. Code 1 as doPutOperation.
  CZoError doDeleteOperation(const char* url, const char* buffer, long size,
                             const std::vector<commandInfo>& commands);
  /// Whether the server can be reached: an answer of 401, 403, 404 or 405
  /// counts as reached.
  CZoError checkConnection();
  /// The size of the remote file path; XnCURL error "File size recieved from
  /// server is invalid" when the server gives none.
  CZoError getFileInfo(const std::string& path, double& size);
  /// Fetches the listing of the directory path into the write function.
  CZoError getFilesAndDirsInfoInFile(const std::string& path);
  /// The primary IP or the effective URL of a probe of the current path.
  CZoError getInfo(CurlInfoType type, std::string& value);
  /// Whether the file (isFile) or directory path exists.
  CZoError checkIfFileOrDirExists(const std::string& path, bool isFile, bool& exists);

  /// Reserved; stays null and nothing reads it.
  static void** ssl_mutex;

protected:
  /// Writes 256 zero bytes to m_errorBuffer.
  void resetCurlErrorBuffer();
  /// Runs one request: preparation, transfer, and the undoing of its
  /// settings.
  CZoError SendReqest();

  /// The path or full URL of the current request.
  const std::string& getURLPath() const { return m_URLPath; }
  /// The registered server.
  const std::string& getURL() const { return m_URL; }
  /// The source path given to uploadFile.
  const std::string& getSourceFile() const { return m_sourceFile; }
  /// The port as text.
  const std::string& getPortNo() const { return m_portNo; }
  /// The body of a string POST.
  const std::string& getPostString() const { return m_postString; }
  /// The body of a buffer POST or custom request.
  const char* getPostBuffer() const { return m_postBuffer; }
  /// The kind of the current request.
  operationType getOperationType() const { return m_operationType; }
  /// The size that goes with the request.
  long long getDataSizeInBytes() const { return m_dataSizeInBytes; }
  /// The method name of a custom request (a copy).
  std::string getOperationName() const { return m_operationName; }
  /// Whether setProxyDetails succeeded.
  bool getIsProxySet() const { return m_isProxySet; }
  /// Sets the kind of the next request.
  void setOperationType(operationType type) { m_operationType = type; }
  /// Sets the path or full URL of the next request.
  void setURLPath(const std::string& path) { m_URLPath = path; }

  /// User of setCredentials.
  std::string m_URLUserName;
  /// Password of setCredentials.
  std::string m_URLPassword;
  /// Path or full URL of the current request.
  std::string m_URLPath;
  /// The registered server.
  std::string m_URL;
  /// Source path given to uploadFile; read by nothing but its getter.
  std::string m_sourceFile;
  /// Headers or commands of the next request, in key order.
  std::map<std::string, std::string> m_requestedHeaders;
  /// Port as text.
  std::string m_portNo;
  /// Body of a string POST.
  std::string m_postString;
  /// Body of a buffer POST and a custom request; the caller's.
  const char* m_postBuffer;
  /// Kind of the current request; 0 before the first.
  operationType m_operationType;
  /// Size that goes with the request.
  long long m_dataSizeInBytes;
  /// Method name of a custom request.
  std::string m_operationName;
  /// setProxyDetails succeeded.
  bool m_isProxySet;
  /// Follow redirects.
  bool m_linkRedirects;
  /// Body sink.
  WriteFunction m_writeFunction;
  /// Upload source.
  ReadFunction m_readFunction;
  /// Header sink.
  WriteFunction m_headerWriteFunction;
  /// Argument of the body sink.
  void* m_writeContext;
  /// Argument of the upload source.
  void* m_readContext;
  /// Argument of the header sink.
  void* m_headerWriteContext;
  /// The handle, owned.
  CurlHandleHolder* m_curlContext;
  /// curl's error text, 256 bytes, owned.
  char* m_errorBuffer;
  /// initialize succeeded.
  bool m_initialized;
  /// The last curl result that was stored.
  int m_lastCurlCode;
  /// The last response code of the server.
  int m_responseCode;
  /// Send an empty "Expect" header on HTTP uploads.
  bool m_skipExpect100;
  /// The argument of initialize; not set by the constructor.
  unsigned int m_useCAFile;

  /// True once initializeCurlLibrary has run through.
  static bool m_gbInit;

private:
  void setURLUserName(const std::string& user) { m_URLUserName = user; }
  void setURLPassword(const std::string& password) { m_URLPassword = password; }
  void setSourceFile(const std::string& source) { m_sourceFile = source; }
  void setPostString(const std::string& text) { m_postString = text; }
  void setPostBuffer(const char* buffer) { m_postBuffer = buffer; }
  void setDataSizeInBytes(long long size) { m_dataSizeInBytes = size; }
  void setOperationName(const std::string& name) { m_operationName = name; }
  void setIsProxySet(bool set) { m_isProxySet = set; }
  CZoError setDefaultConfiguration();
  CZoError PrepareForRequest();
  CZoError Execute();
  CZoError getResponseCode();
  CZoError unSetMethodParameter();
  void setCommandInfo(const std::vector<commandInfo>& commands);
};

}  // namespace XnCURL

#endif  // ZONETWORK_XNPROTOCOLREQ_H
