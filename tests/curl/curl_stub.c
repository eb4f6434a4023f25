/* Stand-ins for libcurl, placed as "libcurl.so.4" beside a copy of ZoNetwork
 * in the binding's tests. One source, three builds:
 *   STUB_NO_GLOBAL_INIT  loads, but has no curl_global_init;
 *   STUB_INIT_FAILS      its curl_global_init fails;
 *   STUB_RECORD          forwards every call to the system's libcurl and
 *                        writes one line per call to the file named by
 *                        ZONET_CURL_LOG, so that a test can read what curl
 *                        was told where the wire cannot show it.
 * Each build writes "loaded" and "unloaded" when it is mapped and unmapped. */
/* The stand-in defines the functions that curl's type-checking macros wrap. */
#define CURL_DISABLE_TYPECHECK 1
#include <curl/curl.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define STUB_API __attribute__((visibility("default")))

static void stub_log(const char* format, ...) {
  const char* path = getenv("ZONET_CURL_LOG");
  if (path == NULL || path[0] == '\0') return;
  char line[4096];
  va_list args;
  va_start(args, format);
  int n = vsnprintf(line, sizeof line - 1, format, args);
  va_end(args);
  if (n < 0) return;
  if (n > (int)sizeof line - 2) n = (int)sizeof line - 2;
  line[n++] = '\n';
  int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return;
  ssize_t ignored = write(fd, line, (size_t)n);
  (void)ignored;
  close(fd);
}

__attribute__((constructor)) static void stub_loaded(void) { stub_log("loaded"); }
__attribute__((destructor)) static void stub_unloaded(void) { stub_log("unloaded"); }

#if defined(STUB_NO_GLOBAL_INIT)

/* Would be a working handle if the binding took this library. */
STUB_API CURL* curl_easy_init(void) {
  stub_log("easy_init");
  return (CURL*)0x1;
}
STUB_API char* curl_version(void) { return (char*)"stub without curl_global_init"; }

#elif defined(STUB_INIT_FAILS)

STUB_API CURLcode curl_global_init(long flags) {
  stub_log("global_init %ld", flags);
  return CURLE_FAILED_INIT;
}
STUB_API void curl_global_cleanup(void) { stub_log("global_cleanup"); }
STUB_API CURL* curl_easy_init(void) {
  stub_log("easy_init");
  return (CURL*)0x1;
}
STUB_API char* curl_version(void) { return (char*)"stub whose curl_global_init fails"; }

#elif defined(STUB_RECORD)

static void* real_curl(void) {
  static void* handle;
  if (handle == NULL) handle = dlopen(ZONET_SYSTEM_CURL, RTLD_NOW | RTLD_LOCAL);
  if (handle == NULL) {
    fprintf(stderr, "curl stub: cannot load %s: %s\n", ZONET_SYSTEM_CURL, dlerror());
    abort();
  }
  return handle;
}

static void* real(const char* name) {
  void* address = dlsym(real_curl(), name);
  if (address == NULL) {
    fprintf(stderr, "curl stub: no %s in the system's curl\n", name);
    abort();
  }
  return address;
}

STUB_API CURLcode curl_global_init(long flags) {
  stub_log("global_init %ld", flags);
  return ((CURLcode(*)(long))real("curl_global_init"))(flags);
}
STUB_API void curl_global_cleanup(void) {
  stub_log("global_cleanup");
  ((void (*)(void))real("curl_global_cleanup"))();
}
STUB_API CURL* curl_easy_init(void) {
  stub_log("easy_init");
  return ((CURL * (*)(void)) real("curl_easy_init"))();
}
STUB_API void curl_easy_cleanup(CURL* handle) {
  stub_log("easy_cleanup");
  ((void (*)(CURL*))real("curl_easy_cleanup"))(handle);
}
STUB_API void curl_easy_reset(CURL* handle) {
  stub_log("easy_reset");
  ((void (*)(CURL*))real("curl_easy_reset"))(handle);
}
STUB_API CURLcode curl_easy_perform(CURL* handle) {
  stub_log("perform");
  return ((CURLcode(*)(CURL*))real("curl_easy_perform"))(handle);
}
STUB_API CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
  va_list args;
  va_start(args, info);
  void* out = va_arg(args, void*);
  va_end(args);
  return ((CURLcode(*)(CURL*, CURLINFO, ...))real("curl_easy_getinfo"))(handle, info, out);
}
STUB_API CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  CURLcode (*forward)(CURL*, CURLoption, ...) = (CURLcode(*)(CURL*, CURLoption, ...))real("curl_easy_setopt");
  const struct curl_easyoption* (*by_id)(CURLoption) =
      (const struct curl_easyoption* (*)(CURLoption))real("curl_easy_option_by_id");
  va_list args;
  va_start(args, option);
  CURLcode result;
  if (option < CURLOPTTYPE_OBJECTPOINT) {
    long value = va_arg(args, long);
    stub_log("setopt %d %ld", (int)option, value);
    result = forward(handle, option, value);
  } else if (option < CURLOPTTYPE_FUNCTIONPOINT) {
    void* value = va_arg(args, void*);
    const struct curl_easyoption* about = by_id(option);
    if (value != NULL && about != NULL && about->type == CURLOT_STRING) {
      stub_log("setopt %d \"%s\"", (int)option, (const char*)value);
    } else {
      stub_log("setopt %d %s", (int)option, value != NULL ? "pointer" : "null");
    }
    result = forward(handle, option, value);
  } else if (option < CURLOPTTYPE_OFF_T) {
    void* value = va_arg(args, void*);
    stub_log("setopt %d %s", (int)option, value != NULL ? "function" : "null");
    result = forward(handle, option, value);
  } else {
    curl_off_t value = va_arg(args, curl_off_t);
    stub_log("setopt %d %lld", (int)option, (long long)value);
    result = forward(handle, option, value);
  }
  va_end(args);
  return result;
}
STUB_API const char* curl_easy_strerror(CURLcode code) {
  return ((const char* (*)(CURLcode))real("curl_easy_strerror"))(code);
}
STUB_API char* curl_easy_escape(CURL* handle, const char* text, int length) {
  return ((char* (*)(CURL*, const char*, int))real("curl_easy_escape"))(handle, text, length);
}
STUB_API char* curl_easy_unescape(CURL* handle, const char* text, int length, int* out) {
  return ((char* (*)(CURL*, const char*, int, int*))real("curl_easy_unescape"))(handle, text, length, out);
}
STUB_API void curl_free(void* memory) { ((void (*)(void*))real("curl_free"))(memory); }
STUB_API struct curl_slist* curl_slist_append(struct curl_slist* list, const char* text) {
  stub_log("slist_append \"%s\"", text);
  return ((struct curl_slist * (*)(struct curl_slist*, const char*)) real("curl_slist_append"))(list, text);
}
STUB_API void curl_slist_free_all(struct curl_slist* list) {
  ((void (*)(struct curl_slist*))real("curl_slist_free_all"))(list);
}
STUB_API char* curl_version(void) { return ((char* (*)(void))real("curl_version"))(); }
STUB_API curl_version_info_data* curl_version_info(CURLversion age) {
  return ((curl_version_info_data * (*)(CURLversion)) real("curl_version_info"))(age);
}

#else
#error "choose a stub"
#endif
