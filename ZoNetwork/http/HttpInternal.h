// Test hooks of the platform HTTP layer. Internal, never exported: tests and
// fuzz targets link the static twin to reach them.
#ifndef ZONET_HTTP_HTTPINTERNAL_H
#define ZONET_HTTP_HTTPINTERNAL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace zonet_internal {

// How many handles of the layer are open now (all threads).
size_t HttpOpenHandleCount();

// The reply's head as the layer reads it from a connection: status line and
// header fields, by the same parser and limits. True with the status and the
// fields when data holds a whole, valid head; false with the layer's number
// for the failure (ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE for garbage,
// ZONET_ERR_HTTP_CONNECTION_ABORTED for a head cut short).
bool HttpParseReplyHead(const char* data, size_t size, unsigned& status,
                        std::vector<std::pair<std::string, std::string>>& fields, uint32_t& error);

// The proxy that the designed platform's list and bypass syntax choose for a
// host ("" when none, else "host:port").
std::string HttpChooseProxy(const std::string& list, const std::string& bypass, bool secure, const std::string& host);
// The same from the process environment (http_proxy, https_proxy, no_proxy).
std::string HttpChooseProxyFromEnvironment(bool secure, const std::string& host);

}  // namespace zonet_internal

#endif  // ZONET_HTTP_HTTPINTERNAL_H
