// A child process for the binding's tests: it is linked against the shared
// ZoNetwork and run with LD_LIBRARY_PATH pointing at a copy of it, beside
// which the test has placed a stand-in libcurl (or nothing). It runs one
// scenario and prints what it saw, one "key=value" a line; where a stand-in
// records curl's calls, the probe writes "-- name" markers into the same log.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnHTTPReq.h"

using namespace CurlWrapper;
using namespace XnCURL;

namespace {

// Every mapped file whose name holds "libcurl", one per line, comma-joined.
std::string MappedCurl() {
  std::ifstream maps("/proc/self/maps");
  std::string line;
  std::vector<std::string> seen;
  while (std::getline(maps, line)) {
    size_t at = line.find('/');
    if (at == std::string::npos) continue;
    std::string path = line.substr(at);
    if (path.find("libcurl") == std::string::npos) continue;
    bool known = false;
    for (const std::string& s : seen) known = known || s == path;
    if (!known) seen.push_back(path);
  }
  std::string out;
  for (const std::string& s : seen) out += (out.empty() ? "" : ",") + s;
  return out.empty() ? "none" : out;
}

void Mark(const char* name) {
  const char* path = getenv("ZONET_CURL_LOG");
  if (path == nullptr) return;
  int fd = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd < 0) return;
  std::string line = std::string("-- ") + name + "\n";
  ssize_t ignored = write(fd, line.data(), line.size());
  (void)ignored;
  close(fd);
}

std::string Text(const char* text) { return text ? text : "null"; }

std::string Result(const CZoError& e) {
  if (!e.IsError()) return "ok";
  std::string text = e.AsString();
  for (char& c : text) c = c == '\n' ? '|' : c;
  return text;
}

int FailureValues() {
  Dl_info info{};
  dladdr(reinterpret_cast<void*>(&xn_curl_version), &info);
  printf("zonetwork=%s\n", info.dli_fname ? info.dli_fname : "?");
  printf("mapped_before=%s\n", MappedCurl().c_str());
  printf("global_init=%d\n", static_cast<int>(xn_curl_global_init(CURL_GLOBAL_ALL)));
  xn_curl_global_cleanup();
  printf("mapped_after_global_init=%s\n", MappedCurl().c_str());
  Mark("first call");
  void* handle = xn_curl_easy_init();
  Mark("after first call");
  printf("easy_init=%s\n", handle ? "handle" : "null");
  printf("mapped_after=%s\n", MappedCurl().c_str());
  printf("perform=%d\n", static_cast<int>(xn_curl_easy_perform(handle)));
  printf("pause=%d\n", static_cast<int>(xn_curl_easy_pause(handle, 0)));
  long code = 0;
  printf("getinfo=%d\n", static_cast<int>(xn_curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &code)));
  printf("setopt_long=%d\n", static_cast<int>(xn_curl_easy_setopt(handle, CURLOPT_TIMEOUT, 1L)));
  printf("setopt_text=%d\n", static_cast<int>(xn_curl_easy_setopt(handle, CURLOPT_URL, "http://127.0.0.1/")));
  printf("multi_init=%s\n", xn_curl_multi_init() ? "handle" : "null");
  int running = 0;
  printf("multi_perform=%d\n", static_cast<int>(xn_curl_multi_perform(nullptr, &running)));
  curl_httppost* first = nullptr;
  curl_httppost* last = nullptr;
  printf("formadd=%d\n", static_cast<int>(xn_curl_formadd(&first, &last, static_cast<CURLformoption>(1), "name",
                                                          static_cast<CURLformoption>(4), "value",
                                                          static_cast<CURLformoption>(17))));
  char date[] = "Sun, 06 Nov 1994 08:49:37 GMT";
  printf("getdate=%lld\n", static_cast<long long>(xn_curl_getdate(date, nullptr)));
  printf("version=%s\n", Text(xn_curl_version()).c_str());
  printf("strerror=%s\n", Text(xn_curl_easy_strerror(CURLE_OK)).c_str());
  printf("version_info=%s\n", xn_curl_version_info(CURLVERSION_NOW) ? "record" : "null");
  curl_slist* list = xn_curl_slist_append(nullptr, "a: b");
  printf("slist=%s\n", list ? "list" : "null");
  xn_curl_slist_free_all(list);
  char* escaped = xn_curl_easy_escape(nullptr, "a b", 0);
  printf("escape=%s\n", Text(escaped).c_str());
  xn_curl_free(escaped);
  xn_curl_easy_cleanup(handle);
  printf("cleanup=returned\n");
  XnHTTPReq request;
  printf("initialize=%s\n", Result(request.initialize(0)).c_str());
  // The object stays not initialized, its buffer allocated.
  printf("after_failed_initialize=%s\n", Result(request.SetTimeOut(5)).c_str());
  Mark("end of main");
  return 0;
}

// Two objects initialized: the first without a transfer time-out, a second
// initialize on the same object with 1080 seconds.
int Defaults() {
  XnHTTPReq request;
  Mark("first initialize");
  printf("first=%s\n", Result(request.initialize(0)).c_str());
  Mark("second initialize");
  printf("second=%s\n", Result(request.initialize(0)).c_str());
  Mark("end");
  return 0;
}

int Settings(const char* caFile) {
  XnHTTPReq request;
  printf("initialize=%s\n", Result(request.initialize(0)).c_str());
  struct Step {
    const char* name;
    CZoError (*run)(XnHTTPReq&, const char*);
  };
  static const Step steps[] = {
      {"keepalive off", [](XnHTTPReq& r, const char*) { return r.setKeepAlive(false, 5, 5); }},
      {"keepalive on", [](XnHTTPReq& r, const char*) { return r.setKeepAlive(true, 5, 6); }},
      {"session cache 7", [](XnHTTPReq& r, const char*) { return r.setSessionIDCaching(7); }},
      {"session cache 0", [](XnHTTPReq& r, const char*) { return r.setSessionIDCaching(0); }},
      {"max ssl", [](XnHTTPReq& r, const char*) { return r.setMaxSSLVersion(CURL_SSLVERSION_MAX_TLSv1_2); }},
      {"bypass empty", [](XnHTTPReq& r, const char*) { return r.setProxyBypass(""); }},
      {"bypass list", [](XnHTTPReq& r, const char*) { return r.setProxyBypass("a.example,b.example"); }},
      {"proxy", [](XnHTTPReq& r, const char*) { return r.setProxyDetails("127.0.0.1", "pu", "pp", "3128"); }},
      {"proxy empty", [](XnHTTPReq& r, const char*) { return r.setProxyDetails("", "", "", ""); }},
      {"disable proxy", [](XnHTTPReq& r, const char*) { return r.DisableProxy(); }},
      {"proxy auth", [](XnHTTPReq& r, const char*) { return r.setProyAuth(CURLAUTH_BASIC); }},
      {"http auth", [](XnHTTPReq& r, const char*) { return r.setHTTPAuth(CURLAUTH_ANY); }},
      {"credentials", [](XnHTTPReq& r, const char*) { return r.setCredentials("user", "secret"); }},
      {"timeout", [](XnHTTPReq& r, const char*) { return r.SetTimeOut(7); }},
      {"connect timeout", [](XnHTTPReq& r, const char*) { return r.SetConnectionTimeOut(3); }},
      {"redirects on", [](XnHTTPReq& r, const char*) { r.setLinkRedirects(true); return CZoError::Success(); }},
      {"redirects off", [](XnHTTPReq& r, const char*) { r.setLinkRedirects(false); return CZoError::Success(); }},
      {"logging on", [](XnHTTPReq& r, const char*) { r.setLogging(true); return CZoError::Success(); }},
      {"logging off", [](XnHTTPReq& r, const char*) { r.setLogging(false); return CZoError::Success(); }},
      {"unsecured", [](XnHTTPReq& r, const char*) { return r.setSecured(false, "/ignored.crt"); }},
      {"secured missing", [](XnHTTPReq& r, const char*) { return r.setSecured(true, "/nonexistent/ca.crt"); }},
      {"secured present", [](XnHTTPReq& r, const char* ca) { return r.setSecured(true, ca); }},
  };
  for (const Step& step : steps) {
    Mark(step.name);
    printf("%s=%s\n", step.name, Result(step.run(request, caFile)).c_str());
  }
  Mark("end");
  return 0;
}

// What each kind of request sets and takes back, on a port that refuses:
// the transfer fails at once, and the undoing runs all the same.
int Undo(const char* port) {
  XnHTTPReq request;
  printf("initialize=%s\n", Result(request.initialize(0)).c_str());
  request.setURL("127.0.0.1");
  request.setPortNumber(port);
  const std::vector<commandInfo> none;
  const char buffer[] = "abc";
  Mark("get");
  request.doGetOperation("/g", none);
  Mark("download");
  request.download("/d", none);
  Mark("post buffer");
  request.doPostOperation("/p", buffer, 3L, none);
  Mark("check");
  request.checkConnection();
  Mark("upload empty form");
  request.uploadFile("source", "/u", 0, none);
  Mark("post string");
  request.doPostOperation("/s", "text", none);
  Mark("put");
  request.doPutOperation("/t", buffer, 3L, none);
  Mark("file info");
  double size = 0;
  request.getFileInfo("/f", size);
  Mark("end");
  return 0;
}

int Threads(int count) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([i, &results] {
      // Each thread's first call is a different wrapper half the time, so the
      // load and the per-wrapper guards race together. (curl_version builds
      // its text in a static buffer and is not for many threads at once;
      // these are.)
      if (i % 2 == 0) {
        results[static_cast<size_t>(i)] = Text(xn_curl_easy_strerror(CURLE_COULDNT_CONNECT));
      } else {
        void* handle = xn_curl_easy_init();
        results[static_cast<size_t>(i)] = handle ? Text(xn_curl_easy_strerror(CURLE_COULDNT_CONNECT)) : "null";
        xn_curl_easy_cleanup(handle);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  int same = 0;
  for (const std::string& r : results) same += r == results[0] ? 1 : 0;
  printf("threads=%d\nsame=%d\nresult=%s\nversion=%s\n", count, same, results[0].c_str(),
         Text(xn_curl_version()).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  std::string scenario = argv[1];
  int status = 2;
  if (scenario == "failure-values") status = FailureValues();
  if (scenario == "defaults") status = Defaults();
  if (scenario == "settings") status = Settings(argc > 2 ? argv[2] : "/nonexistent");
  if (scenario == "undo") status = Undo(argc > 2 ? argv[2] : "1");
  if (scenario == "threads") status = Threads(argc > 2 ? atoi(argv[2]) : 16);
  fflush(stdout);
  Mark("exit");
  return status;
}
