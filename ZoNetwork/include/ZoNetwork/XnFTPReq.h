/// @file
/// FTP and explicit FTPS requests over libcurl: XnFTPReq.
#ifndef ZONETWORK_XNFTPREQ_H
#define ZONETWORK_XNFTPREQ_H

#include <curl/curl.h>

#include <map>
#include <string>
#include <vector>

#include "ZoNetwork/XnProtocolReq.h"
#include "ZoNetwork/ZoNetworkExport.h"

namespace XnCURL {

/// A request object for FTP (and, with setSSL, explicit FTPS). It serves
/// uploads, downloads, name listings and the size and existence probes; the
/// post, get, put and delete operations are refused with code 101. The URL is
/// composed from the registered server (setURL) and the operation's path; a
/// full "ftp://" URL in the path replaces the server. A transfer that leaves
/// no response code, or one of 100 to 399, counts as success.
class ZONET_API XnFTPReq : public XnProtocolReq {
public:
  /// An object with nothing set and no curl call; call initialize next.
  XnFTPReq();
  /// A second view of other's handle and command list (shallow, as the base).
  XnFTPReq(const XnFTPReq& other);
  /// Copies other's fields; what this object held is not released.
  XnFTPReq& operator=(const XnFTPReq& other);
  /// Frees the command list, then the base's resources.
  ~XnFTPReq() override;

  /// The time curl waits for each answer of the server
  /// (CURLOPT_FTP_RESPONSE_TIMEOUT). Fails with code 1 when not initialized,
  /// or with curl's code "Failed to set option [112]".
  CZoError SetFTPResponseTimeOut(long seconds);
  /// The SSH authentication methods, a mask of CURLSSH_AUTH_* values
  /// (CURLOPT_SSH_AUTH_TYPES); it matters only to XnSFTPReq. Fails as
  /// SetFTPResponseTimeOut does.
  CZoError setFTPAuth(int mask);
  /// Explicit FTPS: TLS required on the control connection
  /// (CURLOPT_USE_SSL, CURLUSESSL_CONTROL). There is no way to turn it off.
  /// Fails as SetFTPResponseTimeOut does.
  CZoError setSSL();
  /// Active mode: the server connects back to address:port; with both empty,
  /// to the address of the control connection on a port of curl's choice
  /// ("-"). Fails as SetFTPResponseTimeOut does.
  CZoError setActiveMode(const std::string& address, const std::string& port);
  /// Passive mode again (CURLOPT_FTPPORT to null). Fails as
  /// SetFTPResponseTimeOut does.
  CZoError disableActiveMode();
  /// Turns EPSV off (CURLOPT_FTP_USE_EPSV 0). Fails with code 1 when not
  /// initialized, or with curl's code.
  CZoError setDefaults() override;
  /// Reads a saved name listing (one name a line) into entries, appended
  /// behind what they hold, each with m_isFile 0; parentLink is not used.
  /// Fails with code 1 when not initialized or entries is null, or with the
  /// file's error when it cannot be opened, sized, read or closed.
  CZoError collectFilesAndDir(const std::string& responseFile, std::vector<FileDirInfo>* entries,
                              std::string parentLink) override;
  /// The URL of the current request: server, ":" and the port if one is
  /// registered, then the path. Fails with code 1 when not initialized.
  CZoError getFullWorkingURL(std::string& url) override;
  /// Whether path is a file: true when the path with a slash behind it
  /// cannot be entered (curl's code 9), false when it can. Another failure of
  /// the probe comes back as its error.
  CZoError IsFile(const std::string& path, bool& isFile) override;

protected:
  /// True for no response code or one of 100 to 399. Fails only when the
  /// object is not initialized.
  CZoError isOperationSuccess(bool& ok) override;
  /// Sends each pair as the command "key:value" ahead of the transfer
  /// (CURLOPT_QUOTE), in key order. Fails with code 1 when not initialized,
  /// or with curl's code when the option is refused.
  CZoError setHeaders(const std::map<std::string, std::string>& headers) override;
  /// Undoes setMethodParameter and setHeaders; the creation of missing
  /// directories stays on. Fails only when not initialized.
  CZoError unsetOpTypeParameter() override;
  /// Sets the tunnel option and the options of the current kind of request.
  /// Fails with code 101 "Invalid OpType [%d] for FTP protocol" for a post,
  /// get, put or delete, or code 1 when not initialized.
  CZoError setMethodParameter() override;
  /// Server and path from m_URL and m_URLPath for the "ftp://" scheme. Fails
  /// only when the object is not initialized.
  CZoError splitServerAndURLPath(std::string& server, std::string& path) override;

  /// The command list of the next request, owned; null when there is none.
  curl_slist* m_quoteList;
};

}  // namespace XnCURL

#endif  // ZONETWORK_XNFTPREQ_H
