// Test hooks of ZoHTTP: read access to its fields, for tests that check what
// the setters and transfers left behind. Internal, never exported.
#ifndef ZONET_HTTP_ZOHTTPINTERNAL_H
#define ZONET_HTTP_ZOHTTPINTERNAL_H

#include <functional>

#include "ZoNetwork/ZoHTTP.h"

namespace zonet_internal {

// The listing scanner of ZoHTTP on one page's text: calls onLink for every
// link it reports, in page order, with whether it takes the link for a
// directory; the first error of onLink ends the scan and is returned.
CZoError ScanListingPage(CZoString& page, bool jspMarker,
                         const std::function<CZoError(CZoString& link, bool directory)>& onLink);

struct ZoHTTPAccess {
  static void* Internet(const ZoHTTP& h) { return h.m_hInternet; }
  static void* Connect(const ZoHTTP& h) { return h.m_hConnect; }
  static void* Request(const ZoHTTP& h) { return h.m_hRequest; }
  static const CZoString& WebServer(const ZoHTTP& h) { return h.m_webServer; }
  static const CZoString& BaseURL(const ZoHTTP& h) { return h.m_baseURL; }
  static const CZoString& Path(const ZoHTTP& h) { return h.m_path; }
  static const CZoString& Scheme(const ZoHTTP& h) { return h.m_scheme; }
  static const CZoString& ObjectName(const ZoHTTP& h) { return h.m_objectName; }
  static const CZoString& Authorization(const ZoHTTP& h) { return h.m_authorization; }
  static const CZoString& Tkid(const ZoHTTP& h) { return h.m_tkid; }
  static const CZoString& PostPreamble(const ZoHTTP& h) { return h.m_postPreamble; }
  static const CZoString& PostEpilogue(const ZoHTTP& h) { return h.m_postEpilogue; }
  static uint16_t Port(const ZoHTTP& h) { return h.m_port; }
  static uint32_t RequestFlags(const ZoHTTP& h) { return h.m_requestFlags; }
  static uint32_t AccessType(const ZoHTTP& h) { return h.m_accessType; }
  static int32_t Operation(const ZoHTTP& h) { return h.m_operation; }
  static int32_t Timeout(const ZoHTTP& h) { return h.m_timeout; }
  static const std::map<std::string, std::string>& RequestHeaders(const ZoHTTP& h) { return h.m_requestHeaders; }
  static void GetUserAuthorization(ZoHTTP& h) { h._getUserAuthorization(); }
  static CZoError SendRequestGet(ZoHTTP& h, const char* object) {
    h.m_objectName = object;
    return h._sendRequestGet(object);
  }
};

}  // namespace zonet_internal

#endif  // ZONET_HTTP_ZOHTTPINTERNAL_H
