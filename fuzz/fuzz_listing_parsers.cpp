// Both listing parsers over any file contents: a directory page
// (XnHTTPReq) and a name listing (XnFTPReq). The page parser ends in
// success, its one parse error, or the out-of-range failure of an empty link
// text; the name parser always succeeds with one entry per line end.
#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnHTTPReq.h"

namespace {

template <typename Request>
XnCURL::XnProtocolReq& Object() {
  static Request* request = [] {
    Request* r = new Request();
    if (r->initialize(0).IsError()) __builtin_trap();
    return r;
  }();
  return *request;
}

// The one scratch file of the run, removed when the process ends.
struct Scratch {
  std::string path = "/tmp/fuzz_listing_" + std::to_string(getpid());
  ~Scratch() { unlink(path.c_str()); }
};

const std::string& Path() {
  static Scratch scratch;
  return scratch.path;
}

}  // namespace

// Input: a selector byte (even: page, odd: name listing), then the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  FILE* out = std::fopen(Path().c_str(), "wb");
  if (out == nullptr) return 0;
  std::fwrite(data + 1, 1, size - 1, out);
  std::fclose(out);
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string before = text.substr(0, text.find('\0'));
  std::vector<XnCURL::FileDirInfo> entries;
  if (data[0] & 1) {
    if (Object<XnCURL::XnFTPReq>().collectFilesAndDir(Path(), &entries, "").IsError()) __builtin_trap();
    size_t lines = 0;
    for (char c : before) lines += c == '\n';
    if (entries.size() != lines) __builtin_trap();
    for (const XnCURL::FileDirInfo& e : entries) {
      if (e.m_name.find('\n') != std::string::npos || e.m_isFile != 0) __builtin_trap();
    }
  } else {
    try {
      CZoError e = Object<XnCURL::XnHTTPReq>().collectFilesAndDir(Path(), &entries, "/");
      if (e.IsError() && e.AsString().find("Invalid HTTP Reponse. Parsing the reponse file failed.") == std::string::npos) {
        __builtin_trap();
      }
    } catch (const std::out_of_range&) {
      // An empty link text, as documented.
    }
    for (const XnCURL::FileDirInfo& e : entries) {
      if (e.m_name == "web.config" || e.m_isFile > 1) __builtin_trap();
    }
  }
  return 0;
}
