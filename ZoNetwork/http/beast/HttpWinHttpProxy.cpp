// The proxy look-ups of the second face on Linux: the machine-wide setting
// from /etc/environment, the user's from the process environment, and the
// proxy for one URL from an auto-configuration script, fetched through the
// layer and evaluated by duktape in a child process that a time and memory
// limit bound from outside the engine. Fetched scripts are kept for a while,
// as the designed platform keeps them, so that a look-up per request does not
// cost a download per request.
#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <list>
#include <mutex>
#include <sstream>

#include <duktape.h>

#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoString.h"
#include "http/HttpInternal2.h"
#include "http/HttpPlatform.h"
#include "http/HttpPlatform2.h"
#include "http/beast/HttpProxy2.h"

namespace zonet_http2 {
namespace proxy {

const char* const kMachineFile = "/etc/environment";
const char* const kAutoConfigVariable = "ZONET_PROXY_AUTOCONFIG_URL";
const char* const kAutoDetectVariable = "ZONET_PROXY_AUTODETECT";

namespace {

std::atomic<uint16_t> g_wpadPort{80};
std::atomic<unsigned long> g_proxyForUrlCalls{0};

constexpr size_t kScriptLimit = 1 << 20;

// Scripts fetched with success, by their URL as given, newest first. Only a
// script that arrived whole is kept: a failure (a logon asked for, a missing
// file) is asked again next time. The lock is held for the look-up and the
// store, never across a fetch: two threads may fetch the same script at
// once, and the later one's copy stays.
class ScriptCache {
public:
  static constexpr size_t kEntries = 8;  // at most 8 MiB of scripts
  bool Find(const std::string& url, std::string& script) {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto now = std::chrono::steady_clock::now();
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
      if (it->url != url) continue;
      if (now - it->fetched >= m_lifetime) {
        m_entries.erase(it);
        return false;
      }
      script = it->script;
      return true;
    }
    return false;
  }
  void Store(const std::string& url, const std::string& script) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.remove_if([&](const Entry& e) { return e.url == url; });
    m_entries.push_front(Entry{url, script, std::chrono::steady_clock::now()});
    if (m_entries.size() > kEntries) m_entries.pop_back();
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
  }
  std::chrono::milliseconds SetLifetime(std::chrono::milliseconds lifetime) {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::swap(m_lifetime, lifetime);
    return lifetime;
  }

private:
  struct Entry {
    std::string url, script;
    std::chrono::steady_clock::time_point fetched;
  };
  std::mutex m_mutex;
  std::list<Entry> m_entries;
  // A changed script is seen within this time.
  std::chrono::milliseconds m_lifetime{std::chrono::minutes(5)};
};

ScriptCache& Scripts() {
  static ScriptCache* cache = new ScriptCache;  // outlives every caller
  return *cache;
}

std::string Trim(const std::string& text) {
  size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string::npos) return std::string();
  size_t end = text.find_last_not_of(" \t\r\n");
  return text.substr(start, end - start + 1);
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// A variable's proxy without its scheme and trailing "/".
std::string ProxyValue(std::string value) {
  size_t scheme = value.find("://");
  if (scheme != std::string::npos) value = value.substr(scheme + 3);
  while (!value.empty() && value.back() == '/') value.pop_back();
  return value;
}

// The standard helpers of proxy auto-configuration scripts, in the script's
// own language, on top of the two that need the system (dnsResolve and
// myIpAddress, written in C below).
const char kPacHelpers[] = R"JS(
function isPlainHostName(host) { return host.indexOf('.') < 0; }
function dnsDomainIs(host, domain) {
  return host.length >= domain.length && host.substring(host.length - domain.length) == domain;
}
function localHostOrDomainIs(host, hostdom) {
  return host == hostdom || hostdom.lastIndexOf(host + '.', 0) == 0;
}
function isResolvable(host) { return dnsResolve(host) !== null; }
function convert_addr(ipchars) {
  var bytes = ipchars.split('.');
  return ((bytes[0] & 0xff) << 24) | ((bytes[1] & 0xff) << 16) | ((bytes[2] & 0xff) << 8) | (bytes[3] & 0xff);
}
function isInNet(ipaddr, pattern, maskstr) {
  var test = /^(\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3})$/.exec(ipaddr);
  if (test == null) {
    ipaddr = dnsResolve(ipaddr);
    if (ipaddr == null) return false;
  } else if (test[1] > 255 || test[2] > 255 || test[3] > 255 || test[4] > 255) {
    return false;
  }
  var host = convert_addr(ipaddr), pat = convert_addr(pattern), mask = convert_addr(maskstr);
  return (host & mask) == (pat & mask);
}
function dnsDomainLevels(host) { return host.split('.').length - 1; }
function shExpMatch(url, pattern) {
  pattern = pattern.replace(/\./g, '\\.').replace(/\*/g, '.*').replace(/\?/g, '.');
  return new RegExp('^' + pattern + '$').test(url);
}
var wdays = {SUN: 0, MON: 1, TUE: 2, WED: 3, THU: 4, FRI: 5, SAT: 6};
var months = {JAN: 0, FEB: 1, MAR: 2, APR: 3, MAY: 4, JUN: 5, JUL: 6, AUG: 7, SEP: 8, OCT: 9, NOV: 10, DEC: 11};
function weekdayRange() {
  function getDay(weekday) { return weekday in wdays ? wdays[weekday] : -1; }
  var date = new Date();
  var argc = arguments.length;
  var wday;
  if (argc < 1) return false;
  if (arguments[argc - 1] == 'GMT') { argc--; wday = date.getUTCDay(); } else { wday = date.getDay(); }
  var wd1 = getDay(arguments[0]);
  var wd2 = (argc == 2) ? getDay(arguments[1]) : wd1;
  if (wd1 == -1 || wd2 == -1) return false;
  return (wd1 <= wd2) ? (wd1 <= wday && wday <= wd2) : (wd2 >= wday || wday >= wd1);
}
function dateRange() {
  function getMonth(name) { return name in months ? months[name] : -1; }
  var date = new Date();
  var argc = arguments.length;
  if (argc < 1) return false;
  var isGMT = (arguments[argc - 1] == 'GMT');
  if (isGMT) argc--;
  if (argc == 1) {
    var tmp = parseInt(arguments[0], 10);
    if (isNaN(tmp)) return ((isGMT ? date.getUTCMonth() : date.getMonth()) == getMonth(arguments[0]));
    else if (tmp < 32) return ((isGMT ? date.getUTCDate() : date.getDate()) == tmp);
    else return ((isGMT ? date.getUTCFullYear() : date.getFullYear()) == tmp);
  }
  var year = date.getFullYear();
  var date1, date2;
  date1 = new Date(year, 0, 1, 0, 0, 0);
  date2 = new Date(year, 11, 31, 23, 59, 59);
  var adjustMonth = false;
  for (var i = 0; i < (argc >> 1); i++) {
    var tmp = parseInt(arguments[i], 10);
    if (isNaN(tmp)) {
      var mon = getMonth(arguments[i]);
      date1.setMonth(mon);
    } else if (tmp < 32) {
      adjustMonth = (argc <= 2);
      date1.setDate(tmp);
    } else {
      date1.setFullYear(tmp);
    }
  }
  for (var i = (argc >> 1); i < argc; i++) {
    var tmp = parseInt(arguments[i], 10);
    if (isNaN(tmp)) {
      var mon = getMonth(arguments[i]);
      date2.setMonth(mon);
    } else if (tmp < 32) {
      date2.setDate(tmp);
    } else {
      date2.setFullYear(tmp);
    }
  }
  if (adjustMonth) { date1.setMonth(date.getMonth()); date2.setMonth(date.getMonth()); }
  if (isGMT) {
    var tmp = date;
    tmp.setFullYear(date.getUTCFullYear());
    tmp.setMonth(date.getUTCMonth());
    tmp.setDate(date.getUTCDate());
    tmp.setHours(date.getUTCHours());
    tmp.setMinutes(date.getUTCMinutes());
    tmp.setSeconds(date.getUTCSeconds());
    date = tmp;
  }
  return (date1 <= date2) ? (date1 <= date) && (date <= date2) : (date2 >= date) || (date >= date1);
}
function timeRange() {
  var argc = arguments.length;
  var date = new Date();
  var isGMT = false;
  if (argc < 1) return false;
  if (arguments[argc - 1] == 'GMT') { isGMT = true; argc--; }
  var hour = isGMT ? date.getUTCHours() : date.getHours();
  var date1, date2;
  date1 = new Date();
  date2 = new Date();
  if (argc == 1) return (hour == arguments[0]);
  else if (argc == 2) return ((arguments[0] <= hour) && (hour <= arguments[1]));
  else switch (argc) {
    case 6:
      date1.setSeconds(arguments[2]);
      date2.setSeconds(arguments[5]);
    case 4:
      var middle = argc >> 1;
      date1.setHours(arguments[0]);
      date1.setMinutes(arguments[1]);
      date2.setHours(arguments[middle]);
      date2.setMinutes(arguments[middle + 1]);
      if (middle == 2) { date2.setSeconds(59); }
      break;
    default:
      return false;
  }
  if (isGMT) {
    date.setFullYear(date.getUTCFullYear());
    date.setMonth(date.getUTCMonth());
    date.setDate(date.getUTCDate());
    date.setHours(date.getUTCHours());
    date.setMinutes(date.getUTCMinutes());
    date.setSeconds(date.getUTCSeconds());
  }
  return (date1 <= date2) ? (date1 <= date) && (date <= date2) : (date2 >= date) || (date >= date1);
}
)JS";

std::string Resolve4(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0 || list == nullptr) return std::string();
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(list->ai_addr)->sin_addr, text, sizeof text);
  freeaddrinfo(list);
  return text;
}

duk_ret_t JsDnsResolve(duk_context* ctx) {
  std::string address = Resolve4(duk_safe_to_string(ctx, 0));
  if (address.empty()) {
    duk_push_null(ctx);
  } else {
    duk_push_string(ctx, address.c_str());
  }
  return 1;
}

duk_ret_t JsMyIpAddress(duk_context* ctx) {
  char name[256] = "";
  std::string address;
  if (gethostname(name, sizeof name - 1) == 0) address = Resolve4(name);
  duk_push_string(ctx, address.empty() ? "127.0.0.1" : address.c_str());
  return 1;
}

bool WriteAll(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// Fetches a script with the layer's own operations. 12015 for a server that
// asks for a logon, 12167 for any other failure.
bool FetchScript(Handle session, const std::string& url, std::string& script, uint32_t& error) {
  std::wstring wide = FXString::ToWstring(url);
  UrlComponents parts;
  if (!WinHttpCrackUrl(wide.c_str(), 0, 0, &parts)) {
    error = ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT;
    return false;
  }
  std::wstring host(parts.lpszHostName, parts.dwHostNameLength);
  std::wstring path(parts.lpszUrlPath, parts.dwUrlPathLength + parts.dwExtraInfoLength);
  Handle connect = WinHttpConnect(session, host.c_str(), parts.nPort, 0);
  if (connect == nullptr) {
    error = ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT;
    return false;
  }
  Handle request = WinHttpOpenRequest(connect, L"GET", path.c_str(), nullptr, nullptr, nullptr,
                                      parts.nScheme == kSchemeHttps ? kFlagSecure : 0);
  bool ok = request != nullptr && WinHttpSendRequest(request, nullptr, 0, nullptr, 0, 0, 0) &&
            WinHttpReceiveResponse(request, nullptr);
  uint32_t status = 0;
  uint32_t size = sizeof status;
  if (ok) ok = WinHttpQueryHeaders(request, kQueryStatusCode | kQueryFlagNumber, nullptr, &status, &size, nullptr);
  error = ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT;
  if (ok && (status == 401 || status == 407)) {
    error = ZONET_ERR_HTTP_LOGIN_FAILURE;
    ok = false;
  } else if (ok && status != 200) {
    ok = false;
  }
  script.clear();
  char buffer[8192];
  while (ok) {
    uint32_t got = 0;
    if (!WinHttpReadData(request, buffer, sizeof buffer, &got)) {
      ok = false;
      break;
    }
    if (got == 0) break;
    script.append(buffer, got);
    if (script.size() > kScriptLimit) ok = false;
  }
  if (request != nullptr) WinHttpCloseHandle(request);
  WinHttpCloseHandle(connect);
  return ok;
}

}  // namespace

std::vector<Assignment> ParseEnvironmentFile(const std::string& text) {
  std::vector<Assignment> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    line = Trim(line);
    if (line.empty() || line[0] == '#') continue;
    if (line.compare(0, 7, "export ") == 0) line = Trim(line.substr(7));
    size_t eq = line.find('=');
    if (eq == std::string::npos || eq == 0) continue;
    Assignment a;
    a.name = Trim(line.substr(0, eq));
    std::string value = Trim(line.substr(eq + 1));
    if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0]) {
      value = value.substr(1, value.size() - 2);
    }
    a.value = value;
    out.push_back(a);
  }
  return out;
}

void ProxyFromAssignments(const std::vector<Assignment>& assignments, std::string& proxy, std::string& bypass) {
  proxy.clear();
  bypass.clear();
  std::string http, https, noProxy;
  bool lowerHttp = false, lowerHttps = false, lowerNo = false;
  for (const Assignment& a : assignments) {
    // The lower-case name wins over the upper-case one, wherever it stands.
    if (a.name == "http_proxy") { http = a.value; lowerHttp = true; }
    if (a.name == "HTTP_PROXY" && !lowerHttp) http = a.value;
    if (a.name == "https_proxy") { https = a.value; lowerHttps = true; }
    if (a.name == "HTTPS_PROXY" && !lowerHttps) https = a.value;
    if (a.name == "no_proxy") { noProxy = a.value; lowerNo = true; }
    if (a.name == "NO_PROXY" && !lowerNo) noProxy = a.value;
  }
  http = ProxyValue(http);
  https = ProxyValue(https);
  if (!http.empty() && http == https) {
    proxy = http;
  } else {
    if (!http.empty()) proxy = "http=" + http;
    if (!https.empty()) proxy += (proxy.empty() ? "" : ";") + std::string("https=") + https;
  }
  std::string entry;
  std::istringstream list(noProxy);
  while (std::getline(list, entry, ',')) {
    entry = Trim(entry);
    if (entry.empty()) continue;
    if (entry[0] == '.') entry = "*" + entry;
    bypass += (bypass.empty() ? "" : ";") + entry;
  }
}

void MachineSetting(std::string& proxy, std::string& bypass) {
  std::ifstream in(kMachineFile, std::ios::binary);
  std::stringstream text;
  if (in) text << in.rdbuf();
  ProxyFromAssignments(ParseEnvironmentFile(text.str()), proxy, bypass);
}

std::string ProxyListFromPacResult(const std::string& result) {
  std::string out;
  std::istringstream in(result);
  std::string entry;
  while (std::getline(in, entry, ';')) {
    entry = Trim(entry);
    size_t space = entry.find_first_of(" \t");
    std::string kind = Lower(entry.substr(0, space));
    std::string where = space == std::string::npos ? std::string() : Trim(entry.substr(space));
    if ((kind == "proxy" || kind == "http" || kind == "https") && !where.empty()) {
      out += (out.empty() ? "" : ";") + where;
    }
  }
  return out;
}

bool EvaluatePacHere(const std::string& script, const std::string& url, const std::string& host,
                     std::string& result) {
  duk_context* ctx = duk_create_heap_default();
  if (ctx == nullptr) return false;
  duk_push_c_function(ctx, JsDnsResolve, 1);
  duk_put_global_string(ctx, "dnsResolve");
  duk_push_c_function(ctx, JsMyIpAddress, 0);
  duk_put_global_string(ctx, "myIpAddress");
  bool ok = duk_peval_string(ctx, kPacHelpers) == 0;
  duk_pop(ctx);
  if (ok) {
    ok = duk_peval_lstring(ctx, script.data(), script.size()) == 0;
    duk_pop(ctx);
  }
  if (ok) ok = duk_get_global_string(ctx, "FindProxyForURL") != 0 && duk_is_function(ctx, -1);
  if (ok) {
    duk_push_lstring(ctx, url.data(), url.size());
    duk_push_lstring(ctx, host.data(), host.size());
    ok = duk_pcall(ctx, 2) == 0 && duk_is_string(ctx, -1);
    if (ok) {
      duk_size_t length = 0;
      const char* text = duk_get_lstring(ctx, -1, &length);
      result.assign(text, length);
    }
  }
  duk_destroy_heap(ctx);
  return ok;
}

bool EvaluatePac(const std::string& script, const std::string& url, const std::string& host, std::string& result,
                 uint32_t& error, int timeoutMs, uint64_t memoryBytes) {
  error = ZONET_ERR_HTTP_BAD_AUTO_PROXY_SCRIPT;
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return false;
  pid_t child = fork();
  if (child < 0) {
    close(fds[0]);
    close(fds[1]);
    return false;
  }
  if (child == 0) {
    // The child: bounded from outside the engine, whatever the script does.
    close(fds[0]);
    // The limit counts on top of what the process has mapped already (a
    // sanitizer's shadow memory is a large reservation of its own).
    uint64_t mapped = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
      unsigned long long pages = 0;
      if (std::fscanf(statm, "%llu", &pages) == 1) mapped = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
      std::fclose(statm);
    }
    rlimit memory{mapped + memoryBytes, mapped + memoryBytes};
    setrlimit(RLIMIT_AS, &memory);
    rlim_t seconds = static_cast<rlim_t>(timeoutMs / 1000 + 1);
    rlimit cpu{seconds, seconds};
    setrlimit(RLIMIT_CPU, &cpu);
    std::string answer;
    bool ok = EvaluatePacHere(script, url, host, answer);
    if (ok) WriteAll(fds[1], answer);
    _exit(ok ? 0 : 1);
  }
  close(fds[1]);
  std::string answer;
  bool timedOut = false;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      timedOut = true;
      break;
    }
    pollfd p{fds[0], POLLIN, 0};
    int n = poll(&p, 1, static_cast<int>(left.count()));
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) {
      timedOut = true;
      break;
    }
    char buffer[4096];
    ssize_t got = read(fds[0], buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    answer.append(buffer, static_cast<size_t>(got));
    if (answer.size() > kScriptLimit) {
      timedOut = true;
      break;
    }
  }
  close(fds[0]);
  if (timedOut) kill(child, SIGKILL);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (timedOut || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return false;
  result = answer;
  return true;
}

std::string SearchDomain() {
  std::ifstream in("/etc/resolv.conf");
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string key, first;
    words >> key >> first;
    if ((key == "search" || key == "domain") && !first.empty()) {
      while (!first.empty() && first.back() == '.') first.pop_back();
      return first;
    }
  }
  char name[256] = "";
  if (gethostname(name, sizeof name - 1) == 0) {
    const char* dot = std::strchr(name, '.');
    if (dot != nullptr && dot[1] != 0) return dot + 1;
  }
  return std::string();
}

std::vector<std::string> WpadCandidates(const std::string& domain) {
  std::vector<std::string> out;
  std::string rest = domain;
  std::string port = g_wpadPort.load() == 80 ? std::string() : ":" + std::to_string(g_wpadPort.load());
  // Down to the two-label name: "wpad.a.b.c", "wpad.b.c"; never "wpad.c".
  while (std::count(rest.begin(), rest.end(), '.') >= 1) {
    out.push_back("http://wpad." + rest + port + "/wpad.dat");
    rest = rest.substr(rest.find('.') + 1);
  }
  return out;
}

}  // namespace proxy

bool WinHttpGetDefaultProxyConfiguration(ProxyInfo* info) {
  if (info == nullptr) return zonet_http::SetLastError(ZONET_ERR_INVALID_PARAMETER), false;
  *info = ProxyInfo();
  std::string proxyText, bypassText;
  proxy::MachineSetting(proxyText, bypassText);
  info->hasProxy = !proxyText.empty();
  info->hasBypass = !bypassText.empty();
  info->proxy = FXString::ToWstring(proxyText);
  info->bypass = FXString::ToWstring(bypassText);
  return true;
}

bool WinHttpGetIEProxyConfigForCurrentUser(CurrentUserProxyConfig* config) {
  if (config == nullptr) return zonet_http::SetLastError(ZONET_ERR_INVALID_PARAMETER), false;
  *config = CurrentUserProxyConfig();
  std::vector<proxy::Assignment> assignments;
  for (const char* name : {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "no_proxy", "NO_PROXY"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != 0) assignments.push_back({name, value});
  }
  std::string proxyText, bypassText;
  proxy::ProxyFromAssignments(assignments, proxyText, bypassText);
  config->hasProxy = !proxyText.empty();
  config->hasBypass = !bypassText.empty();
  config->proxy = FXString::ToWstring(proxyText);
  config->bypass = FXString::ToWstring(bypassText);
  const char* script = std::getenv(proxy::kAutoConfigVariable);
  if (script != nullptr && *script != 0) {
    config->hasAutoConfigUrl = true;
    config->autoConfigUrl = FXString::ToWstring(script);
  }
  const char* detect = std::getenv(proxy::kAutoDetectVariable);
  config->autoDetect = detect != nullptr && std::strcmp(detect, "1") == 0;
  return true;
}

bool WinHttpGetProxyForUrl(Handle session, const wchar_t* url, const AutoProxyOptions* options, ProxyInfo* info) {
  ++proxy::g_proxyForUrlCalls;
  if (url == nullptr || options == nullptr || info == nullptr) {
    return zonet_http::SetLastError(ZONET_ERR_INVALID_PARAMETER), false;
  }
  *info = ProxyInfo();
  UrlComponents parts;
  if (!WinHttpCrackUrl(url, 0, 0, &parts)) return zonet_http::SetLastError(ZONET_ERR_HTTP_INVALID_URL), false;
  std::string narrowUrl = FXString::ToString(url);
  std::string host = FXString::ToString(std::wstring(parts.lpszHostName, parts.dwHostNameLength));
  std::vector<std::string> scripts;
  bool detecting = false;
  if ((options->dwFlags & kAutoProxyConfigUrl) != 0 && options->lpszAutoConfigUrl != nullptr) {
    scripts.push_back(FXString::ToString(options->lpszAutoConfigUrl));
  } else if ((options->dwFlags & kAutoProxyAutoDetect) != 0) {
    // Detection by DNS only: there is no DHCP answer to ask on Linux.
    detecting = true;
    if ((options->dwAutoDetectFlags & kAutoDetectTypeDnsA) != 0) {
      scripts = proxy::WpadCandidates(proxy::SearchDomain());
    }
  } else {
    return zonet_http::SetLastError(ZONET_ERR_INVALID_PARAMETER), false;
  }
  uint32_t error = detecting ? ZONET_ERR_HTTP_AUTODETECTION_FAILED : ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT;
  for (const std::string& scriptUrl : scripts) {
    std::string script;
    uint32_t why = 0;
    if (!proxy::Scripts().Find(scriptUrl, script)) {
      if (!proxy::FetchScript(session, scriptUrl, script, why)) {
        if (!detecting) error = why;
        continue;
      }
      proxy::Scripts().Store(scriptUrl, script);
    }
    std::string answer;
    if (!proxy::EvaluatePac(script, narrowUrl, host, answer, why)) {
      error = why;
      break;
    }
    std::string list = proxy::ProxyListFromPacResult(answer);
    info->hasProxy = !list.empty();
    info->proxy = FXString::ToWstring(list);
    return true;
  }
  zonet_http::SetLastError(error);
  return false;
}

}  // namespace zonet_http2

namespace zonet_internal {
unsigned long WinHttpGetProxyForUrlCalls() { return zonet_http2::proxy::g_proxyForUrlCalls.load(); }
void SetWpadPortForTests(uint16_t port) { zonet_http2::proxy::g_wpadPort.store(port); }
void ClearProxyScriptCache() { zonet_http2::proxy::Scripts().Clear(); }
std::chrono::milliseconds SetProxyScriptLifetimeForTests(std::chrono::milliseconds lifetime) {
  return zonet_http2::proxy::Scripts().SetLifetime(lifetime);
}
}  // namespace zonet_internal
