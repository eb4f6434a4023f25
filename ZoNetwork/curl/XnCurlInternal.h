// What the request classes share inside the curl layer: texts, sizes and the
// small helpers that keep curl away from a null target. Not installed, not
// exported.
#ifndef ZONETWORK_CURL_XNCURLINTERNAL_H
#define ZONETWORK_CURL_XNCURLINTERNAL_H

#include <cstddef>
#include <string>

namespace zonet_curl {

// curl's error buffer (CURL_ERROR_SIZE).
constexpr size_t kErrorBufferSize = 256;

// The certificate bundle, looked for in the current directory.
constexpr const char kCertificateBundleName[] = "curl-ca-bundle.crt";

// The two forms of the not-initialized text; each function keeps its own.
constexpr const char kNotInitializedSingular[] =
    "XnProtocol class is not initialized yet. Call initialize function before any other function.";
constexpr const char kNotInitializedPlural[] =
    "XnProtocol class is not initialized yet. Call initialize function before any other functions.";

// The error buffer's text, or the text that says there is none.
const char* ErrorBufferText(const char* buffer);

// Hands path to curl as the certificate bundle (CURLOPT_CAINFO) when the file
// exists, and otherwise leaves the handle's trust store as it is: curl's
// result, or 0 when nothing was set.
int SetCertificateBundle(void* handle, const std::string& path);

// A body sink that takes and drops everything.
size_t DiscardBody(char* data, size_t size, size_t count, void* context);

// The options of a size probe (no body; the header lines go to
// headerFunction, without the headers in the body), in the order both
// request classes set them, and their taking back after the probe.
void SetSizeProbe(void* handle, void* headerFunction);
void UnsetSizeProbe(void* handle);

}  // namespace zonet_curl

#endif  // ZONETWORK_CURL_XNCURLINTERNAL_H
