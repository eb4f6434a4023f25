/// @file
/// HTTP and HTTPS requests over libcurl: XnHTTPReq.
#ifndef ZONETWORK_XNHTTPREQ_H
#define ZONETWORK_XNHTTPREQ_H

#include <curl/curl.h>

#include <map>
#include <string>
#include <vector>

#include "ZoNetwork/XnProtocolReq.h"
#include "ZoNetwork/ZoNetworkExport.h"

namespace XnCURL {

/// One field of a multipart form.
struct ZONET_API FormValue {
  std::string m_name;   ///< field name
  int m_formType = 0;   ///< curl form option that introduces the value; 10 (CURLFORM_FILE) uploads a file
  std::string m_value;  ///< the value, or the path of the file
};

/// A request object for HTTP and HTTPS. The URL of a request is composed from
/// the registered server (setURL) and the operation's path, either of which
/// may be a full URL; a response of 100 to 399 counts as success.
class ZONET_API XnHTTPReq : public XnProtocolReq {
public:
  /// An object that puts "https://" (protocolHTTPS) or "http://" in front of
  /// a server without a scheme. No curl call; call initialize next.
  explicit XnHTTPReq(HTTPProtocol protocol = protocolHTTP);
  /// A second view of other's handle and lists (shallow, as the base).
  XnHTTPReq(const XnHTTPReq& other);
  /// Copies other's fields; what this object held is not released.
  XnHTTPReq& operator=(const XnHTTPReq& other);
  /// Frees the header list and the form, then the base's resources.
  ~XnHTTPReq() override;

  /// The server's authentication methods (CURLOPT_HTTPAUTH). Fails when not
  /// initialized or when curl refuses the option.
  CZoError setHTTPAuth(long mask);
  /// Stored and read by nothing: it changes nothing on the wire.
  void setChunkedTransfer(bool chunked) { m_chunkedTransfer = chunked; }
  /// Adds a field to the form of the next upload (type 10 for a file). Code 1
  /// when the object is not initialized.
  CZoError addFormValues(const std::string& name, int type, const std::string& value);

private:
  CZoError isOperationSuccess(bool& ok) override;
  CZoError setHeaders(const std::map<std::string, std::string>& headers) override;
  CZoError collectFilesAndDir(const std::string& responseFile, std::vector<FileDirInfo>* entries,
                              std::string parentLink) override;
  CZoError getFullWorkingURL(std::string& url) override;
  CZoError unsetOpTypeParameter() override;
  CZoError setMethodParameter() override;
  CZoError setDefaults() override;
  CZoError splitServerAndURLPath(std::string& server, std::string& path) override;
  CZoError IsFile(const std::string& path, bool& isFile) override;

  CZoError setFormValue();
  CZoError doesURLPathContainURL(bool& contains);
  CZoError getServerAndPathFromURLPath(std::string& server, std::string& path);

  HTTPProtocol m_protocol;
  curl_slist* m_headerList;
  bool m_chunkedTransfer;
  std::vector<FormValue> m_formValues;
  curl_httppost* m_formPostFirst;
  curl_httppost* m_formPostLast;
  std::vector<curl_slist*> m_formHeaderLists;
};

}  // namespace XnCURL

#endif  // ZONETWORK_XNHTTPREQ_H
