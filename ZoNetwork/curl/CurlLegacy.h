// The one place where the request layer names curl's deprecated interface:
// the form functions' option and result values, CURLOPT_HTTPPOST and
// CURLINFO_CONTENT_LENGTH_DOWNLOAD. They still work in the curl this library
// is built against, and the request layer keeps using them; only their
// deprecation warnings are silenced, and only here.
#ifndef ZONETWORK_CURL_CURLLEGACY_H
#define ZONETWORK_CURL_CURLLEGACY_H

#include <curl/curl.h>

namespace zonet_curl {

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
#endif
constexpr CURLFORMcode kFormAddNull = CURL_FORMADD_NULL;
constexpr CURLformoption kFormCopyName = CURLFORM_COPYNAME;
constexpr CURLformoption kFormCopyContents = CURLFORM_COPYCONTENTS;
constexpr CURLformoption kFormFile = CURLFORM_FILE;
constexpr CURLformoption kFormContentHeader = CURLFORM_CONTENTHEADER;
constexpr CURLformoption kFormEnd = CURLFORM_END;
constexpr CURLoption kOptHttpPost = CURLOPT_HTTPPOST;
constexpr CURLINFO kInfoContentLengthDownload = CURLINFO_CONTENT_LENGTH_DOWNLOAD;
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

static_assert(kFormAddNull == 3, "curl's number");
static_assert(kFormFile == 10 && kFormContentHeader == 15 && kFormCopyName == 1 && kFormEnd == 17, "curl's numbers");
static_assert(kOptHttpPost == 10024, "curl's number");

}  // namespace zonet_curl

#endif  // ZONETWORK_CURL_CURLLEGACY_H
