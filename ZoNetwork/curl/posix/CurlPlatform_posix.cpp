#include "curl/CurlPlatform.h"

#include <dlfcn.h>
#include <sys/stat.h>

namespace zonet_curl_platform {

bool OwnModulePath(std::string& path) {
  Dl_info info{};
  // Any address inside this module will do; this function's own is one.
  if (::dladdr(reinterpret_cast<void*>(&OwnModulePath), &info) == 0 || info.dli_fname == nullptr) return false;
  path = info.dli_fname;
  return !path.empty();
}

bool FileExists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

const char* CurlFileName() { return "libcurl.so.4"; }

const char* PathSeparator() { return "/"; }

}  // namespace zonet_curl_platform
