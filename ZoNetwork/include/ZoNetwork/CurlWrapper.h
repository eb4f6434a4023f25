/// @file
/// The only door to libcurl. libcurl is not linked: it is loaded at the first
/// call of any function here (not when ZoNetwork is loaded), from the file
/// "libcurl.so.4" beside ZoNetwork's own file when one is there, otherwise by
/// the system's search. Loading also runs curl_global_init once for the
/// process. When curl is missing, or a function is missing from it, each
/// function gives its own failure value, named on it below; nothing throws
/// and nothing is logged.
#ifndef ZONETWORK_CURLWRAPPER_H
#define ZONETWORK_CURLWRAPPER_H

#include <curl/curl.h>

#include <cstddef>
#include <ctime>

#include "ZoNetwork/ZoNetworkExport.h"

/// The run-time binding of libcurl: one wrapper for each curl function the
/// request layer uses. Handles are untyped pointers.
namespace CurlWrapper {

/// curl_easy_init: a new easy handle, or null without curl.
ZONET_API void* xn_curl_easy_init();
/// curl_easy_cleanup of handle; without curl nothing happens.
ZONET_API void xn_curl_easy_cleanup(void* handle);
/// curl_easy_reset of handle; without curl nothing happens.
ZONET_API void xn_curl_easy_reset(void* handle);
/// curl_easy_perform: curl's result, or 2 (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_perform(void* handle);
/// curl_easy_pause: curl's result, or 2 (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_pause(void* handle, int bitmask);
/// curl_easy_getinfo into out: curl's result, or 2 (CURLE_FAILED_INIT)
/// without curl.
ZONET_API CURLcode xn_curl_easy_getinfo(void* handle, CURLINFO info, void* out);

/// curl_easy_setopt with a pointer value (data pointers and callbacks):
/// curl's result, or 2 (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, void* value);
/// The same with an int, passed on as a long to the long overload.
ZONET_API CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, int value);
/// curl_easy_setopt with a numeric value: curl's result, or 2
/// (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, long value);
/// curl_easy_setopt with the debug callback: curl's result, or 2
/// (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_setopt(void* handle, CURLoption option,
                                       int (*value)(void*, curl_infotype, char*, size_t, void*));
/// curl_easy_setopt with a text value: curl's result, or 2
/// (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, const char* value);
/// curl_easy_setopt with a large value (the file-size options): curl's
/// result, or 2 (CURLE_FAILED_INIT) without curl.
ZONET_API CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, long long value);

/// curl_easy_strerror: curl's text, or "Failed to load libcurl" without curl.
ZONET_API const char* xn_curl_easy_strerror(CURLcode code);
/// curl_easy_escape: a text to release with xn_curl_free, or null without
/// curl.
ZONET_API char* xn_curl_easy_escape(void* handle, const char* text, int length);
/// curl_easy_unescape: a text to release with xn_curl_free, or null without
/// curl.
ZONET_API char* xn_curl_easy_unescape(void* handle, const char* text, int length, int* outLength);

/// curl_formadd with a content-header list and two texts; the last option is
/// the caller's end marker. curl's result, or 3 (CURL_FORMADD_NULL) without
/// curl.
ZONET_API CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       curl_slist* list, CURLformoption option2, const char* text2,
                                       CURLformoption option3, const char* text3, CURLformoption end);
/// curl_formadd with three texts; curl's result, or 3 (CURL_FORMADD_NULL)
/// without curl.
ZONET_API CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       const char* text1, CURLformoption option2, const char* text2,
                                       CURLformoption option3, const char* text3, CURLformoption end);
/// curl_formadd with two texts; curl's result, or 3 (CURL_FORMADD_NULL)
/// without curl.
ZONET_API CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       const char* text1, CURLformoption option2, const char* text2,
                                       CURLformoption end);
/// curl_formadd with two texts, a pointer and a length; curl's result, or 3
/// (CURL_FORMADD_NULL) without curl.
ZONET_API CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                                       const char* text1, CURLformoption option2, const char* text2,
                                       CURLformoption option3, void* pointer3, CURLformoption option4, long length4,
                                       CURLformoption end);
/// curl_formfree of form; without curl nothing happens.
ZONET_API void xn_curl_formfree(curl_httppost* form);
/// curl_free of memory that curl gave; without curl nothing happens.
ZONET_API void xn_curl_free(char* memory);
/// curl_getdate of text, relative to *now when now is not null: the time,
/// or -1 without curl.
ZONET_API time_t xn_curl_getdate(char* text, long long* now);

/// Deliberately empty: curl's global set-up belongs to the loading step.
/// Loads nothing and always gives 0.
ZONET_API CURLcode xn_curl_global_init(long flags);
/// Deliberately empty: curl stays usable; its global clean-up runs when the
/// process ends.
ZONET_API void xn_curl_global_cleanup();

/// curl_multi_init: a new multi handle, or null without curl.
ZONET_API void* xn_curl_multi_init();
/// curl_multi_add_handle: curl's result, or 1 (CURLM_BAD_HANDLE) without
/// curl.
ZONET_API CURLMcode xn_curl_multi_add_handle(void* multi, void* easy);
/// curl_multi_remove_handle: curl's result, or 1 (CURLM_BAD_HANDLE) without
/// curl.
ZONET_API CURLMcode xn_curl_multi_remove_handle(void* multi, void* easy);
/// curl_multi_fdset: curl's result, or 1 (CURLM_BAD_HANDLE) without curl.
ZONET_API CURLMcode xn_curl_multi_fdset(void* multi, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet,
                                        int* maxFd);
/// curl_multi_perform: curl's result, or 1 (CURLM_BAD_HANDLE) without curl.
ZONET_API CURLMcode xn_curl_multi_perform(void* multi, int* running);
/// curl_multi_timeout: curl's result, or 1 (CURLM_BAD_HANDLE) without curl.
ZONET_API CURLMcode xn_curl_multi_timeout(void* multi, long* timeout);

/// curl_slist_append: the list with text added, or null without curl (or
/// when curl runs out of memory).
ZONET_API curl_slist* xn_curl_slist_append(curl_slist* list, const char* text);
/// curl_slist_free_all of list; without curl nothing happens.
ZONET_API void xn_curl_slist_free_all(curl_slist* list);
/// curl_version: curl's text, or "Failed to load libcurl" without curl.
ZONET_API const char* xn_curl_version();
/// curl_version_info: curl's record, or null without curl.
ZONET_API curl_version_info_data* xn_curl_version_info(CURLversion age);

}  // namespace CurlWrapper

#endif  // ZONETWORK_CURLWRAPPER_H
