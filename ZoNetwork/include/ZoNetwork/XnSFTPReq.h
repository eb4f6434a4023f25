/// @file
/// SFTP requests over libcurl: XnSFTPReq.
#ifndef ZONETWORK_XNSFTPREQ_H
#define ZONETWORK_XNSFTPREQ_H

#include <string>

#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/ZoNetworkExport.h"

namespace XnCURL {

/// A request object for SFTP. It is an XnFTPReq in all but the scheme of the
/// URL, "sftp://", which is recognised in any case ("SFTP://" too). The SSH
/// authentication methods are chosen with setFTPAuth.
class ZONET_API XnSFTPReq : public XnFTPReq {
public:
  /// An object with nothing set and no curl call; call initialize next.
  XnSFTPReq();
  /// A second view of other's handle (shallow, as the base).
  XnSFTPReq(const XnSFTPReq& other);
  /// The same as the copy constructor: other keeps what it holds.
  XnSFTPReq(XnSFTPReq&& other);
  /// Copies other's fields; what this object held is not released.
  XnSFTPReq& operator=(const XnSFTPReq& other);
  /// The same as the copy assignment.
  XnSFTPReq& operator=(XnSFTPReq&& other);
  /// Releases what XnFTPReq's destructor releases.
  ~XnSFTPReq() override;

protected:
  /// Server and path from m_URL and m_URLPath for the "sftp://" scheme,
  /// found in any case. Fails only when the object is not initialized.
  CZoError splitServerAndURLPath(std::string& server, std::string& path) override;
};

}  // namespace XnCURL

#endif  // ZONETWORK_XNSFTPREQ_H
