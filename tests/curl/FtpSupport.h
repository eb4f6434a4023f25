// What the FTP and SFTP tests share: request objects that show their
// protected state, and the URL a request actually handed to curl.
#ifndef ZONET_TESTS_CURL_FTPSUPPORT_H
#define ZONET_TESTS_CURL_FTPSUPPORT_H

#include <string>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnSFTPReq.h"
#include "curl/RequestSupport.h"

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

// Downloads path into body (emptied first) through a fresh write function.
template <typename Request>
CZoError Fetch(Visible<Request>& request, const std::string& path, std::string& body) {
  body.clear();
  request.setWriteFunctionPointer(&body, &CollectInto);
  return request.download(path.c_str(), kNone);
}

// One row of a URL composition table: what the request is given, and the
// URL it composes.
struct UrlRow {
  const char* server;
  const char* path;
  const char* port;
  const char* url;
};

// What a row gives: the composed URL; then the result of sending it, with
// every name led to closedPort on loopback, where nothing listens; and the
// URL curl was handed for it.
struct Composed {
  std::string url, effective;
  CZoError sent = CZoError::Success();
};

template <typename Request>
void Compose(const UrlRow& row, int closedPort, Composed& out) {
  Visible<Request> request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL(row.server);
  request.setPortNumber(row.port);
  request.setURLPath(row.path);
  ASSERT_FALSE(request.getFullWorkingURL(out.url).IsError());
  const std::string connectTo = "::127.0.0.1:" + std::to_string(closedPort);
  curl_slist* to = CurlWrapper::xn_curl_slist_append(nullptr, connectTo.c_str());
  ASSERT_EQ(CurlWrapper::xn_curl_easy_setopt(request.Handle(), CURLOPT_CONNECT_TO, static_cast<void*>(to)), CURLE_OK);
  std::string body;
  out.sent = Fetch(request, row.path, body);
  out.effective = request.EffectiveUrl();
  CurlWrapper::xn_curl_easy_setopt(request.Handle(), CURLOPT_CONNECT_TO, static_cast<void*>(nullptr));
  CurlWrapper::xn_curl_slist_free_all(to);
}

}  // namespace zotest_curl

#endif  // ZONET_TESTS_CURL_FTPSUPPORT_H
