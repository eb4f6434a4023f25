#include "ZoNetwork/CurlWrapper.h"

#include <cstdlib>
#include <mutex>
#include <string>

#include "ZoUtils/ZoLibrary.h"
#include "curl/CurlLegacy.h"
#include "curl/CurlPlatform.h"

namespace {

// The loaded curl. Made with true, so that destroying it unloads the file.
class CurlLibraryHolder : public CZoLibrary {
public:
  CurlLibraryHolder() : CZoLibrary(true), m_GlobalInitDone(false) {}
  ~CurlLibraryHolder() {
    // Only a curl that was set up globally is cleaned up, and before the file
    // goes away (the base's destructor unloads it).
    if (m_GlobalInitDone) {
      void* cleanup = nullptr;
      (void)GetAddress("curl_global_cleanup", cleanup);
      if (cleanup != nullptr) reinterpret_cast<void (*)()>(cleanup)();
    }
  }
  bool m_GlobalInitDone;
};

// Null when loading failed; set once, under the guard of LookUp.
CurlLibraryHolder* g_curl = nullptr;

void UnloadCurlAtExit() {
  delete g_curl;
  g_curl = nullptr;
}

// The file to load: the one beside this library if there is one (then it is
// the only candidate), otherwise the bare name for the system's search. The
// current directory is never looked at.
std::string CurlPath() {
  const std::string name = zonet_curl_platform::CurlFileName();
  std::string own;
  if (!zonet_curl_platform::OwnModulePath(own)) return name;
  const std::string separator = zonet_curl_platform::PathSeparator();
  size_t cut = own.rfind(separator);
  if (cut == std::string::npos) return name;
  std::string beside = own.substr(0, cut + separator.size()) + name;
  return zonet_curl_platform::FileExists(beside) ? beside : name;
}

void LoadCurl() {
  CurlLibraryHolder* holder = new CurlLibraryHolder();
  // Every failure is dropped without a trace: no curl is an answer, not an
  // error, and each wrapper reports it by its own failure value.
  if (holder->Load(CurlPath().c_str(), false).IsError()) {
    delete holder;
    return;
  }
  void* init = nullptr;
  (void)holder->GetAddress("curl_global_init", init);
  if (init == nullptr || reinterpret_cast<CURLcode (*)(long)>(init)(CURL_GLOBAL_ALL) != CURLE_OK) {
    delete holder;
    return;
  }
  holder->m_GlobalInitDone = true;
  g_curl = holder;
  std::atexit(UnloadCurlAtExit);
}

// The address of one curl function, or null. The first call of the process
// loads curl; curl wants its global set-up run once and alone, which the
// guard gives.
void* LookUp(const char* name) {
  static std::once_flag loaded;
  std::call_once(loaded, LoadCurl);
  if (g_curl == nullptr) return nullptr;
  void* function = nullptr;
  (void)g_curl->GetAddress(name, function);
  return function;
}

const char kNoCurlText[] = "Failed to load libcurl";

}  // namespace

// Each wrapper keeps its own pointer, looked up once under its own guard; a
// pointer not found stays null for the life of the process.
#define ZO_CURL_BIND(Type, pointer, name)                                             \
  static Type pointer = nullptr;                                                      \
  static std::once_flag pointer##Once;                                                \
  std::call_once(pointer##Once, [] { pointer = reinterpret_cast<Type>(LookUp(name)); })

namespace CurlWrapper {

void* xn_curl_easy_init() {
  using Fn = CURL* (*)();
  ZO_CURL_BIND(Fn, fn, "curl_easy_init");
  return fn ? fn() : nullptr;
}

void xn_curl_easy_cleanup(void* handle) {
  using Fn = void (*)(CURL*);
  ZO_CURL_BIND(Fn, fn, "curl_easy_cleanup");
  if (fn) fn(handle);
}

void xn_curl_easy_reset(void* handle) {
  using Fn = void (*)(CURL*);
  ZO_CURL_BIND(Fn, fn, "curl_easy_reset");
  if (fn) fn(handle);
}

CURLcode xn_curl_easy_perform(void* handle) {
  using Fn = CURLcode (*)(CURL*);
  ZO_CURL_BIND(Fn, fn, "curl_easy_perform");
  return fn ? fn(handle) : CURLE_FAILED_INIT;
}

CURLcode xn_curl_easy_pause(void* handle, int bitmask) {
  using Fn = CURLcode (*)(CURL*, int);
  ZO_CURL_BIND(Fn, fn, "curl_easy_pause");
  return fn ? fn(handle, bitmask) : CURLE_FAILED_INIT;
}

CURLcode xn_curl_easy_getinfo(void* handle, CURLINFO info, void* out) {
  using Fn = CURLcode (*)(CURL*, CURLINFO, ...);
  ZO_CURL_BIND(Fn, fn, "curl_easy_getinfo");
  return fn ? fn(handle, info, out) : CURLE_FAILED_INIT;
}

// curl_easy_setopt takes its value through variable arguments; each overload
// passes exactly its own type, which is what curl reads for the option.
using SetOptFn = CURLcode (*)(CURL*, CURLoption, ...);

CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, void* value) {
  ZO_CURL_BIND(SetOptFn, fn, "curl_easy_setopt");
  return fn ? fn(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, int value) {
  return xn_curl_easy_setopt(handle, option, static_cast<long>(value));
}

CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, long value) {
  ZO_CURL_BIND(SetOptFn, fn, "curl_easy_setopt");
  return fn ? fn(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode xn_curl_easy_setopt(void* handle, CURLoption option,
                             int (*value)(void*, curl_infotype, char*, size_t, void*)) {
  ZO_CURL_BIND(SetOptFn, fn, "curl_easy_setopt");
  return fn ? fn(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, const char* value) {
  ZO_CURL_BIND(SetOptFn, fn, "curl_easy_setopt");
  return fn ? fn(handle, option, value) : CURLE_FAILED_INIT;
}

CURLcode xn_curl_easy_setopt(void* handle, CURLoption option, long long value) {
  static_assert(sizeof(long long) == sizeof(curl_off_t), "curl's large values are 64 bits");
  ZO_CURL_BIND(SetOptFn, fn, "curl_easy_setopt");
  return fn ? fn(handle, option, static_cast<curl_off_t>(value)) : CURLE_FAILED_INIT;
}

const char* xn_curl_easy_strerror(CURLcode code) {
  using Fn = const char* (*)(CURLcode);
  ZO_CURL_BIND(Fn, fn, "curl_easy_strerror");
  return fn ? fn(code) : kNoCurlText;
}

char* xn_curl_easy_escape(void* handle, const char* text, int length) {
  using Fn = char* (*)(CURL*, const char*, int);
  ZO_CURL_BIND(Fn, fn, "curl_easy_escape");
  return fn ? fn(handle, text, length) : nullptr;
}

char* xn_curl_easy_unescape(void* handle, const char* text, int length, int* outLength) {
  using Fn = char* (*)(CURL*, const char*, int, int*);
  ZO_CURL_BIND(Fn, fn, "curl_easy_unescape");
  return fn ? fn(handle, text, length, outLength) : nullptr;
}

using FormAddFn = CURLFORMcode (*)(curl_httppost**, curl_httppost**, ...);

CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1, curl_slist* list,
                             CURLformoption option2, const char* text2, CURLformoption option3, const char* text3,
                             CURLformoption end) {
  ZO_CURL_BIND(FormAddFn, fn, "curl_formadd");
  return fn ? fn(first, last, option1, list, option2, text2, option3, text3, end) : zonet_curl::kFormAddNull;
}

CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             const char* text1, CURLformoption option2, const char* text2, CURLformoption option3,
                             const char* text3, CURLformoption end) {
  ZO_CURL_BIND(FormAddFn, fn, "curl_formadd");
  return fn ? fn(first, last, option1, text1, option2, text2, option3, text3, end) : zonet_curl::kFormAddNull;
}

CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             const char* text1, CURLformoption option2, const char* text2, CURLformoption end) {
  ZO_CURL_BIND(FormAddFn, fn, "curl_formadd");
  return fn ? fn(first, last, option1, text1, option2, text2, end) : zonet_curl::kFormAddNull;
}

CURLFORMcode xn_curl_formadd(curl_httppost** first, curl_httppost** last, CURLformoption option1,
                             const char* text1, CURLformoption option2, const char* text2, CURLformoption option3,
                             void* pointer3, CURLformoption option4, long length4, CURLformoption end) {
  ZO_CURL_BIND(FormAddFn, fn, "curl_formadd");
  return fn ? fn(first, last, option1, text1, option2, text2, option3, pointer3, option4, length4, end)
            : zonet_curl::kFormAddNull;
}

void xn_curl_formfree(curl_httppost* form) {
  using Fn = void (*)(curl_httppost*);
  ZO_CURL_BIND(Fn, fn, "curl_formfree");
  if (fn) fn(form);
}

void xn_curl_free(char* memory) {
  using Fn = void (*)(void*);
  ZO_CURL_BIND(Fn, fn, "curl_free");
  if (fn) fn(memory);
}

time_t xn_curl_getdate(char* text, long long* now) {
  using Fn = time_t (*)(const char*, const time_t*);
  ZO_CURL_BIND(Fn, fn, "curl_getdate");
  if (!fn) return -1;
  if (now == nullptr) return fn(text, nullptr);
  time_t base = static_cast<time_t>(*now);
  return fn(text, &base);
}

CURLcode xn_curl_global_init(long /*flags*/) { return CURLE_OK; }

void xn_curl_global_cleanup() {}

void* xn_curl_multi_init() {
  using Fn = CURLM* (*)();
  ZO_CURL_BIND(Fn, fn, "curl_multi_init");
  return fn ? fn() : nullptr;
}

CURLMcode xn_curl_multi_add_handle(void* multi, void* easy) {
  using Fn = CURLMcode (*)(CURLM*, CURL*);
  ZO_CURL_BIND(Fn, fn, "curl_multi_add_handle");
  return fn ? fn(multi, easy) : CURLM_BAD_HANDLE;
}

CURLMcode xn_curl_multi_remove_handle(void* multi, void* easy) {
  using Fn = CURLMcode (*)(CURLM*, CURL*);
  ZO_CURL_BIND(Fn, fn, "curl_multi_remove_handle");
  return fn ? fn(multi, easy) : CURLM_BAD_HANDLE;
}

CURLMcode xn_curl_multi_fdset(void* multi, fd_set* readSet, fd_set* writeSet, fd_set* exceptSet, int* maxFd) {
  using Fn = CURLMcode (*)(CURLM*, fd_set*, fd_set*, fd_set*, int*);
  ZO_CURL_BIND(Fn, fn, "curl_multi_fdset");
  return fn ? fn(multi, readSet, writeSet, exceptSet, maxFd) : CURLM_BAD_HANDLE;
}

CURLMcode xn_curl_multi_perform(void* multi, int* running) {
  using Fn = CURLMcode (*)(CURLM*, int*);
  ZO_CURL_BIND(Fn, fn, "curl_multi_perform");
  return fn ? fn(multi, running) : CURLM_BAD_HANDLE;
}

CURLMcode xn_curl_multi_timeout(void* multi, long* timeout) {
  using Fn = CURLMcode (*)(CURLM*, long*);
  ZO_CURL_BIND(Fn, fn, "curl_multi_timeout");
  return fn ? fn(multi, timeout) : CURLM_BAD_HANDLE;
}

curl_slist* xn_curl_slist_append(curl_slist* list, const char* text) {
  using Fn = curl_slist* (*)(curl_slist*, const char*);
  ZO_CURL_BIND(Fn, fn, "curl_slist_append");
  return fn ? fn(list, text) : nullptr;
}

void xn_curl_slist_free_all(curl_slist* list) {
  using Fn = void (*)(curl_slist*);
  ZO_CURL_BIND(Fn, fn, "curl_slist_free_all");
  if (fn) fn(list);
}

const char* xn_curl_version() {
  using Fn = char* (*)();
  ZO_CURL_BIND(Fn, fn, "curl_version");
  return fn ? fn() : kNoCurlText;
}

curl_version_info_data* xn_curl_version_info(CURLversion age) {
  using Fn = curl_version_info_data* (*)(CURLversion);
  ZO_CURL_BIND(Fn, fn, "curl_version_info");
  return fn ? fn(age) : nullptr;
}

}  // namespace CurlWrapper
