// zonet zohttp: one web server through ZoHTTP. "get" fetches one file of the
// base URL into a folder (with progress on standard error for long
// transfers), "ls" prints the links of the base URL's listing page as ZoHTTP
// reports them, "upload" posts a log file to the upload script.
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ZoNetwork/ZoHTTP.h"
#include "commands.h"

namespace zonet {

namespace {

struct Options {
  std::string agent = "zonet";
  std::string dir = ".";
  std::string tkid;
  bool hasTkid = false;
  std::string user, password;
  bool insecure = false;
  long long timeoutMs = 0;
};

// Options after the positional arguments; "" when all are known, else the message.
std::string ParseOptions(const Args& args, size_t first, Options& options) {
  for (size_t i = first; i < args.size(); ++i) {
    const std::string& arg = args[i];
    bool hasValue = i + 1 < args.size();
    if (arg == "--insecure") {
      options.insecure = true;
    } else if (arg == "--jsp") {
      options.agent = "Use_JSP_for_Upload";
    } else if ((arg == "--agent" || arg == "--dir" || arg == "--tkid" || arg == "--user" || arg == "--password" ||
                arg == "--timeout") && !hasValue) {
      return arg + " wants a value";
    } else if (arg == "--agent") {
      options.agent = args[++i];
    } else if (arg == "--dir") {
      options.dir = args[++i];
    } else if (arg == "--tkid") {
      options.tkid = args[++i];
      options.hasTkid = true;
    } else if (arg == "--user") {
      options.user = args[++i];
    } else if (arg == "--password") {
      options.password = args[++i];
    } else if (arg == "--timeout") {
      if (!ParseNumber(args[++i], 0, 0x7FFFFFFF, options.timeoutMs)) return "--timeout wants milliseconds";
    } else {
      return "unknown option '" + arg + "'";
    }
  }
  return "";
}

void Configure(ZoHTTP& http, const std::string& baseUrl, const Options& options) {
  http.SetBaseURL(baseUrl.c_str());
  if (!options.user.empty()) http.SetUser(options.user.c_str());
  if (!options.password.empty()) http.SetPassword(options.password.c_str());
  if (options.insecure) http.SetIgnoreCertificateErrors();
  if (options.timeoutMs > 0) http.SetInternetTimeout(static_cast<long>(options.timeoutMs));
}

// Reports the growing size of a file on standard error twice a second while a
// transfer runs, once it has taken more than a second. The library has no
// progress callback: the tool watches the file from a thread of its own.
class Progress {
public:
  explicit Progress(std::string path) : m_path(std::move(path)), m_thread([this] { Run(); }) {}
  ~Progress() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_done = true;
    }
    m_wake.notify_all();
    m_thread.join();
    if (m_shown) std::fprintf(stderr, "\n");
  }

private:
  void Run() {
    auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_wake.wait_for(lock, std::chrono::milliseconds(500), [this] { return m_done; })) {
      double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      if (seconds < 1.0) continue;
      struct stat st;
      if (::stat(m_path.c_str(), &st) != 0) continue;
      std::fprintf(stderr, "\r%lld bytes, %.1f MiB/s", static_cast<long long>(st.st_size),
                   static_cast<double>(st.st_size) / seconds / (1024.0 * 1024.0));
      m_shown = true;
    }
  }

  std::string m_path;
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_done = false;
  bool m_shown = false;
  std::thread m_thread;
};

// Where DownloadFile puts FILE: below the folder, under the base URL's path
// on the server and the file's name.
std::string LocalPath(const std::string& dir, const std::string& baseUrl, const std::string& file) {
  size_t scheme = baseUrl.find("://");
  size_t slash = baseUrl.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  std::string path = slash == std::string::npos ? std::string() : baseUrl.substr(slash + 1);
  if (!path.empty() && path.back() != '/') path += '/';
  return dir + "/" + path + file;
}

}  // namespace

int CmdZoHttp(const Args& args) {
  if (args.empty()) return UsageError("zohttp: wants get, ls or upload");
  const std::string& verb = args[0];
  Options options;
  if (verb == "get") {
    if (args.size() < 3) return UsageError("zohttp: get wants BASEURL FILE");
    std::string why = ParseOptions(args, 3, options);
    if (!why.empty()) return UsageError("zohttp: %s", why.c_str());
    ZoHTTP http(options.agent.c_str());
    Configure(http, args[1], options);
    CZoError error = CZoError::Success();
    {
      Progress progress(LocalPath(options.dir, args[1], args[2]));
      error = http.DownloadFile(options.dir.c_str(), nullptr, args[2].c_str());
    }
    if (error.IsError()) return Fail(error);
    std::printf("%s\n", LocalPath(options.dir, args[1], args[2]).c_str());
    return 0;
  }
  if (verb == "ls") {
    if (args.size() < 2) return UsageError("zohttp: ls wants BASEURL");
    std::string why = ParseOptions(args, 2, options);
    if (!why.empty()) return UsageError("zohttp: %s", why.c_str());
    ZoHTTP http(options.agent.c_str());
    Configure(http, args[1], options);
    std::vector<CZoString> files;
    CZoError error = http.GetFileList(files, nullptr);
    if (error.IsError()) return Fail(error);
    for (const CZoString& file : files) std::printf("%s\n", file.c_str());
    return 0;
  }
  if (verb == "upload") {
    if (args.size() < 3) return UsageError("zohttp: upload wants BASEURL LOGFILE");
    std::string why = ParseOptions(args, 3, options);
    if (!why.empty()) return UsageError("zohttp: %s", why.c_str());
    ZoHTTP http(options.agent.c_str());
    Configure(http, args[1], options);
    CZoError error = http.UploadFile(args[2].c_str(), options.hasTkid ? options.tkid.c_str() : nullptr);
    if (error.IsError()) return Fail(error);
    std::printf("uploaded %s\n", args[2].c_str());
    return 0;
  }
  return UsageError("zohttp: unknown action '%s' (get, ls or upload)", verb.c_str());
}

}  // namespace zonet
