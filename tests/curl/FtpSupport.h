// What the FTP and SFTP tests share: request objects that show their
// protected state, and the URL a request actually handed to curl.
#ifndef ZONET_TESTS_CURL_FTPSUPPORT_H
#define ZONET_TESTS_CURL_FTPSUPPORT_H

#include <string>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnSFTPReq.h"

namespace zotest_curl {

// An FTP or SFTP request object whose protected state a test may read.
template <typename Request>
class Visible : public Request {
public:
  using XnCURL::XnProtocolReq::getIsProxySet;
  using XnCURL::XnProtocolReq::getOperationType;
  using XnCURL::XnProtocolReq::getURLPath;
  using XnCURL::XnProtocolReq::setOperationType;
  using XnCURL::XnProtocolReq::setURLPath;
  XnCURL::XnProtocolReq& Base() { return *this; }
  CZoError Success(bool& ok) { return this->isOperationSuccess(ok); }
  CZoError Split(std::string& server, std::string& path) { return this->splitServerAndURLPath(server, path); }
  int ResponseCode() const { return this->m_responseCode; }
  void SetResponseCode(int code) { this->m_responseCode = code; }
  int LastCurlCode() const { return this->m_lastCurlCode; }
  curl_slist* QuoteList() const { return this->m_quoteList; }
  void* Handle() const { return this->m_curlContext ? this->m_curlContext->m_curlHandle : nullptr; }
  // The URL curl used last (CURLINFO_EFFECTIVE_URL), or "<none>".
  std::string EffectiveUrl() const {
    char* url = nullptr;
    if (CurlWrapper::xn_curl_easy_getinfo(Handle(), CURLINFO_EFFECTIVE_URL, &url) != CURLE_OK || url == nullptr) {
      return "<none>";
    }
    return url;
  }
};

using FtpReq = Visible<XnCURL::XnFTPReq>;
using SftpReq = Visible<XnCURL::XnSFTPReq>;

}  // namespace zotest_curl

#endif  // ZONET_TESTS_CURL_FTPSUPPORT_H
