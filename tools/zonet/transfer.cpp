// The pieces the transfer commands share.
#include "transfer.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace zonet {

void ShowProgress(Transfer& t, bool last) {
  auto now = std::chrono::steady_clock::now();
  double seconds = std::chrono::duration<double>(now - t.start).count();
  if (!last && (seconds < 1.0 || now - t.lastShown < std::chrono::milliseconds(500))) return;
  if (last && !t.shown) return;
  t.lastShown = now;
  t.shown = true;
  double mib = static_cast<double>(t.bytes) / (1024.0 * 1024.0);
  std::fprintf(stderr, "\r%.1f MiB %s, %.1f MiB/s%s", mib, t.verb, seconds > 0 ? mib / seconds : 0.0,
               last ? "\n" : "");
  std::fflush(stderr);
}

size_t ReceiveInto(char* data, size_t size, size_t count, void* transfer) {
  Transfer& t = *static_cast<Transfer*>(transfer);
  size_t written = std::fwrite(data, size, count, t.file);
  t.bytes += static_cast<unsigned long long>(written) * size;
  ShowProgress(t, false);
  return written * size;
}

size_t SendFrom(void* data, size_t size, size_t count, void* transfer) {
  Transfer& t = *static_cast<Transfer*>(transfer);
  size_t got = std::fread(data, 1, size * count, t.file);
  t.bytes += got;
  ShowProgress(t, false);
  return got;
}

std::string ServerOf(const std::string& url) {
  size_t mark = url.find("://");
  if (mark == std::string::npos) return "";
  size_t slash = url.find('/', mark + 3);
  return slash == std::string::npos ? url : url.substr(0, slash);
}

bool SplitCredentials(const std::string& text, std::string& user, std::string& password) {
  size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  user = text.substr(0, colon);
  password = text.substr(colon + 1);
  return true;
}

CZoError PrintListing(XnCURL::XnProtocolReq& request, const std::string& url, bool markDirectories) {
  const char* tmp = std::getenv("TMPDIR");
  std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/zonet-listing-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  int fd = mkstemp(name.data());
  if (fd < 0) return FXErrorUtil::ErrorWin32(FXLOC("zonet::PrintListing"), errno, "cannot make %s", pattern.c_str());
  const std::string path = name.data();
  Transfer t;
  t.file = fdopen(fd, "wb");
  request.setWriteFunctionPointer(&t, ReceiveInto);
  CZoError e = request.getFilesAndDirsInfoInFile(url);
  ShowProgress(t, true);
  std::fclose(t.file);
  std::vector<XnCURL::FileDirInfo> entries;
  if (!e.IsError()) e = request.collectFilesAndDir(path, &entries, "");
  unlink(path.c_str());
  if (e.IsError()) return e.Push(FXLOC("zonet::PrintListing"), "listing of %s", url.c_str());
  for (const XnCURL::FileDirInfo& entry : entries) {
    std::printf("%s%s\n", entry.m_name.c_str(), markDirectories && !entry.m_isFile ? "/" : "");
  }
  return CZoError::Success();
}

}  // namespace zonet
