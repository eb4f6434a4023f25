// CZoHTTP2 against real peers on loopback: sessions and connections, URL
// splitting and escaping, request submission with its status table, the
// challenge passes, the reconnect after a receive time-out, the client
// certificate demand and the busy pauses.
#include <gtest/gtest.h>

#include <algorithm>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "ZoNetwork/ZoHTTP2.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoString.h"
#include "http/HttpInternal2.h"
#include "http/HttpPlatform.h"
#include "http/HttpPlatform2.h"
#include "http/ZoHTTP2Internal.h"
#include "support/HttpPeers.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using zonet_internal::ZoHTTP2Access;
using zotest::ScriptedHttpPeer;
namespace hp = zonet_http2;

namespace {

std::string Ok(const std::string& body) { return ScriptedHttpPeer::Response(200, "OK", {}, body); }
std::string Status(int code, const std::string& reason, const std::vector<std::string>& headers = {}) {
  return ScriptedHttpPeer::Response(code, reason, headers, "");
}
ScriptedHttpPeer::Reply R(const std::string& raw) {
  ScriptedHttpPeer::Reply r;
  r.raw = raw;
  return r;
}
ScriptedHttpPeer::Reply Stall() {
  ScriptedHttpPeer::Reply r;
  r.stall = true;
  return r;
}
std::string FirstLine(const std::string& raw) { return raw.substr(0, raw.find("\r\n")); }
std::string BodyOf(const std::string& raw) {
  size_t end = raw.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : raw.substr(end + 4);
}
bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}
std::string W2S(const std::wstring& w) { return FXString::ToString(w); }
bool HasText(const CZoError& e, const std::string& text) { return e.AsString().find(text) != std::string::npos; }

// Downloads the peer's "p" into dir's "f" with the credentials given.
CZoError DownloadAs(const ScriptedHttpPeer& peer, const zotest::TempDir& dir, const char* user, const char* password) {
  CZoHTTP2 h;
  h.SetUser(user);
  h.SetPassword(password);
  return h.DownloadFile(dir.File("f").c_str(), peer.Url("p").c_str());
}

// A session, connection and GET request of the layer's second face, closed
// in reverse order at the end of the scope. The session may have its status
// callback set before the connection is made.
struct RawGet {
  hp::Handle session, connect = nullptr, request = nullptr;
  explicit RawGet(hp::Handle s) : session(s) {}
  RawGet(const wchar_t* host, int port, const wchar_t* path, uint32_t flags = 0)
      : session(hp::WinHttpOpen(L"a", 1, nullptr, nullptr, 0)) {
    Open(host, port, path, flags);
  }
  void Open(const wchar_t* host, int port, const wchar_t* path, uint32_t flags = 0) {
    connect = hp::WinHttpConnect(session, host, static_cast<uint16_t>(port), 0);
    request = hp::WinHttpOpenRequest(connect, L"GET", path, nullptr, nullptr, nullptr, flags);
  }
  // Sends the request and reads the reply's head.
  bool Go() {
    return hp::WinHttpSendRequest(request, nullptr, 0, nullptr, 0, 0, 0) && hp::WinHttpReceiveResponse(request, nullptr);
  }
  ~RawGet() {
    if (request) hp::WinHttpCloseHandle(request);
    if (connect) hp::WinHttpCloseHandle(connect);
    hp::WinHttpCloseHandle(session);
  }
  RawGet(const RawGet&) = delete;
  RawGet& operator=(const RawGet&) = delete;
};

std::vector<unsigned long> g_pauses;
void RecordPause(unsigned long ms) { g_pauses.push_back(ms); }

struct SleepHook {
  SleepHook() {
    g_pauses.clear();
    zonet_internal::SetHttp2SleepHook(RecordPause);
  }
  ~SleepHook() { zonet_internal::SetHttp2SleepHook(nullptr); }
};

#define REQUIRE_PEER(peer) \
  ASSERT_TRUE((peer).Ok()) << (peer).Reason()

}  // namespace

// ---------------------------------------------------------------- setters and fields

TEST(ZoHTTP2Fields, Defaults) {
  CZoHTTP2 h;
  EXPECT_EQ(W2S(ZoHTTP2Access::UserAgent(h)), "ZoHTTP");
  EXPECT_TRUE(ZoHTTP2Access::Secured(h));
  EXPECT_EQ(ZoHTTP2Access::AccessType(h), 0);
  EXPECT_EQ(ZoHTTP2Access::Session(h), nullptr);
  CZoHTTP2 named("agent");
  EXPECT_EQ(W2S(ZoHTTP2Access::UserAgent(named)), "agent");
}

TEST(ZoHTTP2Fields, SetRequestHeaderTwiceKeepsTheFirstValue) {
  CZoHTTP2 h;
  h.SetRequestHeader("X-A", "one");
  h.SetRequestHeader("X-A", "two");
  EXPECT_EQ(ZoHTTP2Access::Headers(h).at("X-A"), "one");
  h.SetRequestHeader(std::map<std::string, std::string>{{"X-B", "b"}});
  EXPECT_EQ(ZoHTTP2Access::Headers(h).size(), 1u);
  h.ClearRequestHeader();
  EXPECT_TRUE(ZoHTTP2Access::Headers(h).empty());
}

TEST(ZoHTTP2Fields, ProxySettersSetTheirFlagsEvenForNull) {
  CZoHTTP2 h;
  h.SetProxyAccess(nullptr);
  EXPECT_EQ(ZoHTTP2Access::AccessType(h), 3);
  h.SetProxyBypass(nullptr);
  EXPECT_TRUE(ZoHTTP2Access::HasProxyBypass(h));
  h.SetProxyCredentials("pu", nullptr);
  EXPECT_EQ(W2S(ZoHTTP2Access::ProxyUser(h)), "pu");
}

TEST(ZoHTTP2Session, NullBypassStillHandsAnEmptyBypassList) {
  CZoHTTP2 h;
  h.SetProxyAccess("127.0.0.1:1");
  h.SetProxyBypass(nullptr);
  ASSERT_FALSE(h.Connect("http://localhost:1/").IsError());
  zonet_internal::WinHttpSessionSettings s;
  ASSERT_TRUE(zonet_internal::WinHttpSessionOf(ZoHTTP2Access::Session(h), s));
  EXPECT_EQ(s.accessType, 3u);
  EXPECT_EQ(s.proxy, "127.0.0.1:1");
  EXPECT_TRUE(s.hasBypass);
  EXPECT_EQ(s.bypass, "");
}

TEST(ZoHTTP2Session, ProxyAccessAfterTheFirstConnectHasNoEffect) {
  ScriptedHttpPeer peer({R(Ok("direct"))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoHTTP2 h;
  ASSERT_FALSE(h.Connect(peer.Url("x").c_str()).IsError());
  h.SetProxyAccess("127.0.0.1:1");  // a refused port: used, it would fail the download
  zonet_internal::WinHttpSessionSettings s;
  ASSERT_TRUE(zonet_internal::WinHttpSessionOf(ZoHTTP2Access::Session(h), s));
  EXPECT_EQ(s.accessType, 0u);
  CZoError e = h.DownloadFile(dir.File("f").c_str(), peer.Url("x").c_str());
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("f")), "direct");
}

TEST(ZoHTTP2Session, TimeoutInSecondsGoesToConnectSendReceiveButNotResolve) {
  ScriptedHttpPeer peer({R(Ok("t"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  h.SetInternetTimeoutSec(30);
  EXPECT_EQ(ZoHTTP2Access::TimeoutMs(h), 30000);
  ASSERT_FALSE(h.DownloadFile("", peer.Url("t").c_str()).IsError());
  for (void* handle : {ZoHTTP2Access::Session(h), ZoHTTP2Access::Request(h)}) {
    int resolve = -5;
    uint32_t connect = 0, send = 0, receive = 0;
    ASSERT_TRUE(zonet_internal::WinHttpTimeoutsOf(handle, resolve, connect, send, receive));
    EXPECT_EQ(resolve, 0);
    EXPECT_EQ(connect, 30000u);
    EXPECT_EQ(send, 30000u);
    EXPECT_EQ(receive, 30000u);
  }
}

TEST(ZoHTTP2Session, HandlesAreClosedByTheDestructor) {
  size_t before = zonet_internal::WinHttpOpenHandleCount();
  {
    ScriptedHttpPeer peer({R(Ok("x"))});
    REQUIRE_PEER(peer);
    CZoHTTP2 h;
    ASSERT_FALSE(h.DownloadFile("", peer.Url("x").c_str()).IsError());
    EXPECT_EQ(zonet_internal::WinHttpOpenHandleCount(), before + 3);
  }
  EXPECT_EQ(zonet_internal::WinHttpOpenHandleCount(), before);
}

TEST(ZoHTTP2Session, AHandleClosedTwiceIsRefusedCleanly) {
  hp::Handle s = hp::WinHttpOpen(L"a", 1, nullptr, nullptr, 0);
  ASSERT_NE(s, nullptr);
  EXPECT_TRUE(hp::WinHttpCloseHandle(s));
  EXPECT_FALSE(hp::WinHttpCloseHandle(s));
  EXPECT_EQ(zonet_http::LastError(), static_cast<uint32_t>(ZONET_ERR_INVALID_HANDLE));
}

TEST(ZoHTTP2Session, StatusCallbackIsAcceptedAndNeverCalled) {
  static int calls = 0;
  ScriptedHttpPeer peer({R(Ok("x"))});
  REQUIRE_PEER(peer);
  RawGet get(hp::WinHttpOpen(L"a", 1, nullptr, nullptr, 0));
  auto cb = [](hp::Handle, uintptr_t, uint32_t, void*, uint32_t) { ++calls; };
  EXPECT_NE(hp::WinHttpSetStatusCallback(get.session, cb, 0xFFFFFFFFu, 0), hp::InvalidStatusCallback());
  get.Open(L"127.0.0.1", peer.Port(), L"/x");
  EXPECT_TRUE(get.Go());
  EXPECT_EQ(calls, 0);
}

TEST(ZoHTTP2Session, HeaderTextIsSplitIntoLinesAndABadTextAddsNothing) {
  ScriptedHttpPeer peer({R(Ok("x"))});
  REQUIRE_PEER(peer);
  {
    RawGet get(L"127.0.0.1", peer.Port(), L"/h");
    EXPECT_TRUE(hp::WinHttpAddRequestHeaders(get.request, L"X-One: 1\r\nX-Two: 2\r\n", 0xFFFFFFFFu, 0));
    for (const wchar_t* bad : {L"X-Three: 3\r\nno colon here\r\n", L": empty name", L"X Four: 4", L"X-Five\n: 5"}) {
      EXPECT_FALSE(hp::WinHttpAddRequestHeaders(get.request, bad, 0xFFFFFFFFu, 0));
      EXPECT_EQ(zonet_http::LastError(), static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_HEADER));
    }
    EXPECT_TRUE(get.Go());
  }
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_NE(raw.find("\r\nX-One: 1\r\nX-Two: 2\r\n"), std::string::npos) << raw;
  EXPECT_EQ(raw.find("X-Three"), std::string::npos);  // a refused text adds nothing
  EXPECT_EQ(raw.find("Four"), std::string::npos);
}

TEST(ZoHTTP2Session, WhatIsAvailableIsWhatIsReadForEveryFormOfBody) {
  const std::string text = zotest::PatternBytes(0, 3000);
  for (const std::string& raw : {ScriptedHttpPeer::Response(200, "OK", {}, text),
                                 ScriptedHttpPeer::ChunkedResponse(200, "OK", {}, text, 1000),
                                 ScriptedHttpPeer::Response(200, "OK", {"Connection: close"}, text, true)}) {
    ScriptedHttpPeer peer({R(raw)});
    REQUIRE_PEER(peer);
    RawGet get(L"127.0.0.1", peer.Port(), L"/b");
    ASSERT_TRUE(get.Go());
    hp::Handle r = get.request;
    std::string body;
    for (;;) {
      uint32_t available = 0;
      ASSERT_TRUE(hp::WinHttpQueryDataAvailable(r, &available));
      if (available == 0) break;
      char buffer[7];
      uint32_t got = 0;
      ASSERT_TRUE(hp::WinHttpReadData(r, buffer, std::min<uint32_t>(available, sizeof buffer), &got));
      ASSERT_GT(got, 0u);
      ASSERT_LE(got, available);
      body.append(buffer, got);
    }
    EXPECT_EQ(body, text) << raw.substr(0, raw.find("\r\n\r\n"));
  }
}

// ---------------------------------------------------------------- Connect

TEST(ZoHTTP2Connect, TextWithoutSchemeKeepsAnExistingConnection) {
  CZoHTTP2 h;
  ASSERT_FALSE(h.Connect("http://localhost:8080/a").IsError());
  void* before = ZoHTTP2Access::Connection(h);
  CZoError e = h.Connect("no scheme here");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(ZoHTTP2Access::Connection(h), before);
  EXPECT_EQ(W2S(ZoHTTP2Access::ServerName(h)), "localhost");
  EXPECT_EQ(ZoHTTP2Access::Port(h), 8080);
}

TEST(ZoHTTP2Connect, TextWithoutSchemeAndNoConnectionFails) {
  CZoHTTP2 h;
  CZoError e = h.Connect("no scheme here");
  ASSERT_TRUE(e.IsError());
  EXPECT_TRUE(HasText(e, "WinHttpConnect failed, HostName=")) << e.AsString();
  EXPECT_EQ(ZoHTTP2Access::Connection(h), nullptr);
}

TEST(ZoHTTP2Connect, SameHostOtherPortKeepsTheOldConnection) {
  CZoHTTP2 h;
  ASSERT_FALSE(h.Connect("http://localhost:8080/").IsError());
  void* before = ZoHTTP2Access::Connection(h);
  ASSERT_FALSE(h.Connect("http://localhost:9090/").IsError());
  EXPECT_EQ(ZoHTTP2Access::Connection(h), before);
  EXPECT_EQ(ZoHTTP2Access::Port(h), 8080);
  ASSERT_FALSE(h.Connect("http://127.0.0.1:9090/").IsError());
  EXPECT_NE(ZoHTTP2Access::Connection(h), before);
  EXPECT_EQ(ZoHTTP2Access::Port(h), 9090);
}

TEST(ZoHTTP2Connect, SchemeDecidesSecuredWhateverTheSetterSaid) {
  CZoHTTP2 h;
  h.SetSecured(true);
  ASSERT_FALSE(h.Connect("http://host").IsError());
  EXPECT_FALSE(ZoHTTP2Access::Secured(h));
  h.SetSecured(false);
  ASSERT_FALSE(h.Connect("https://host").IsError());
  EXPECT_TRUE(ZoHTTP2Access::Secured(h));
  h.SetSecured(false);
  ASSERT_FALSE(h.Connect("not a url").IsError());
  EXPECT_FALSE(ZoHTTP2Access::Secured(h));
}

TEST(ZoHTTP2Connect, NoNetworkCallUntilTheSend) {
  int port = zotest::PickFreePort();
  ASSERT_NE(port, 0);
  std::string url = "http://127.0.0.1:" + std::to_string(port) + "/x";
  CZoHTTP2 h;
  EXPECT_FALSE(h.Connect(url.c_str()).IsError());
  CZoError e = h.DownloadFile("", url.c_str());
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_CANNOT_CONNECT)) << e.AsString();
  EXPECT_TRUE(HasText(e, "WinHttpSendRequest failed")) << e.AsString();
}

TEST(ZoHTTP2Connect, ReconnectNeedsAKnownServerAndAConnection) {
  CZoHTTP2 h;
  CZoError e = ZoHTTP2Access::Reconnect(h);
  EXPECT_TRUE(e.Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_TRUE(HasText(e, "Invalid parameters to reconnect"));
  ASSERT_FALSE(h.Connect("http://localhost:81/").IsError());
  void* before = ZoHTTP2Access::Connection(h);
  EXPECT_FALSE(ZoHTTP2Access::Reconnect(h).IsError());
  EXPECT_NE(ZoHTTP2Access::Connection(h), before);
}

TEST(ZoHTTP2Connect, CopySharesTheHandles) {
  CZoHTTP2 h;
  ASSERT_FALSE(h.Connect("http://localhost:81/").IsError());
  size_t before = zonet_internal::WinHttpOpenHandleCount();
  {
    CZoHTTP2* copy = new CZoHTTP2(h);
    EXPECT_EQ(ZoHTTP2Access::Session(*copy), ZoHTTP2Access::Session(h));
    delete copy;  // closes the shared handles
  }
  EXPECT_EQ(zonet_internal::WinHttpOpenHandleCount(), before - 2);
  // The source's own close then finds them gone, and is refused cleanly.
  EXPECT_FALSE(hp::WinHttpCloseHandle(ZoHTTP2Access::Connection(h)));
}

// ---------------------------------------------------------------- splitting and escaping

TEST(ZoHTTP2Url, BreakUrlVectors) {
  struct V {
    const wchar_t* url;
    const char* host;
    const char* path;
    int port;
  } vectors[] = {
      {L"http://host/a/b?c=d", "host", "/a/b?c=d", 80},
      {L"https://host/x", "host", "/x", 443},
      {L"http://host:8080/p", "host", "/p", 8080},
      {L"https://host:8443", "host", "", 8443},
      {L"http://user:pw@host:81/q", "host", "/q", 81},
      {L"HTTP://Host/", "Host", "/", 80},
      {L"http://[::1]:82/v6", "[", "/v6", 82},  // cut at the first ":", as the split is defined
      {L"relative/path", "", "relative/path", 0},
      {L"ftp://host/x", "", "ftp://host/x", 0},
      {L"http://host:99999/", "", "http://host:99999/", 0},
      {L"http:///nohost", "", "http:///nohost", 0},
      {L"http://host:0/zero", "", "http://host:0/zero", 0},
      {L"http://host:/empty-port", "host", "/empty-port", 80},
  };
  for (const V& v : vectors) {
    CZoHTTP2 h;
    std::wstring host, path;
    int port = -1;
    EXPECT_FALSE(ZoHTTP2Access::BreakUrl(h, v.url, host, path, port).IsError());
    EXPECT_EQ(W2S(host), v.host) << W2S(v.url);
    EXPECT_EQ(W2S(path), v.path) << W2S(v.url);
    EXPECT_EQ(port, v.port) << W2S(v.url);
  }
}

TEST(ZoHTTP2Url, EscapeVectors) {
  struct V {
    const wchar_t* url;
    const char* escaped;
  } vectors[] = {
      {L"http://host/a?b=c", "http://host/abc"},
      {L"https://host/x?y=1", "https://host/xy1"},
      {L"http://host/a b", "http://host/a%20b"},
      {L"http://host/\x01\x1f", "http://host/%01%1F"},
      {L"http://host/\x7f", "http://host/%7F"},
      {L"http://host/\u00e9", "http://host/%C3%A9"},
      {L"http://host/\u20ac", "http://host/%E2%82%AC"},
      {L"http://host/\"<>\\^`{|}", "http://host/%22%3C%3E%5C%5E%60%7B%7C%7D"},
      {L"http://host/100%25", "http://host/100%25"},
      {L"http://host/%", "http://host/%"},
      {L"http://host/!$&'()*+,;=?@", "http://host/"},
      {L"http://host/~-._:#[]", "http://host/~-._:#[]"},
      {L"http://host:80/x", "http://host/x"},
      {L"http://host:81/x", "http://host:81/x"},
      {L"not a url", ""},
  };
  for (const V& v : vectors) {
    CZoHTTP2 h;
    std::wstring escaped;
    EXPECT_FALSE(ZoHTTP2Access::EscapeUrl(h, v.url, escaped).IsError());
    EXPECT_EQ(W2S(escaped), v.escaped) << W2S(v.url);
  }
}

TEST(ZoHTTP2Url, EscapeExtraDropsExactlyTheThirteen) {
  CZoHTTP2 h;
  std::wstring all;
  for (wchar_t c = 32; c < 127; ++c) all += c;
  std::wstring out;
  EXPECT_FALSE(ZoHTTP2Access::EscapeUrlExtra(h, all.c_str(), out).IsError());
  std::wstring expected;
  for (wchar_t c : all) {
    if (std::wstring(L"!$&'()*+,;=?@").find(c) == std::wstring::npos) expected += c;
  }
  EXPECT_EQ(out, expected);
  EXPECT_EQ(all.size() - out.size(), 13u);
}

TEST(ZoHTTP2Url, CreateUrlAsksForItsLengthFirst) {
  hp::UrlComponents parts;
  ASSERT_TRUE(hp::WinHttpCrackUrl(L"http://h/a b", 0, 0, &parts));
  uint32_t length = 0;
  EXPECT_FALSE(hp::WinHttpCreateUrl(&parts, hp::kIcuEscape, nullptr, &length));
  EXPECT_EQ(zonet_http::LastError(), static_cast<uint32_t>(ZONET_ERR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(length, std::wstring(L"http://h/a%20b").size() + 1);
  std::vector<wchar_t> buffer(length);
  EXPECT_TRUE(hp::WinHttpCreateUrl(&parts, hp::kIcuEscape, buffer.data(), &length));
  EXPECT_EQ(std::wstring(buffer.data()), L"http://h/a%20b");
}

// ---------------------------------------------------------------- requests

TEST(ZoHTTP2Request, DownloadWritesTheBodyAndSendsTheExactRequest) {
  ScriptedHttpPeer peer({R(Ok("hello body"))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  {
    CZoHTTP2 h("agent/1");
    CZoError e = h.DownloadFile(dir.File("out").c_str(), peer.Url("dir/file.txt").c_str());
    ASSERT_FALSE(e.IsError()) << e.AsString();
    EXPECT_TRUE(ZoHTTP2Access::Authenticated(h));
  }
  EXPECT_EQ(zotest::ReadFile(dir.File("out")), "hello body");
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0], "GET /dir/file.txt HTTP/1.1\r\nUser-Agent: agent/1\r\nHost: localhost:" +
                             std::to_string(peer.Port()) + "\r\nConnection: Keep-Alive\r\n\r\n");
}

TEST(ZoHTTP2Request, LargeBodyPassesInBufferSizedReads) {
  std::string body = zotest::PatternBytes(0, 300000);
  ScriptedHttpPeer peer({R(Ok(body))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoHTTP2 h;
  ASSERT_FALSE(h.DownloadFile(dir.File("big").c_str(), peer.Url("big").c_str()).IsError());
  EXPECT_EQ(zotest::ReadFile(dir.File("big")), body);
}

TEST(ZoHTTP2Request, QueryLosesItsSignsWhenEscaping) {
  ScriptedHttpPeer peer({R(Ok("q"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  ASSERT_FALSE(h.DownloadFile("", peer.Url("x?y=1").c_str()).IsError());
  ASSERT_EQ(peer.Requests().size(), 1u);
  EXPECT_EQ(FirstLine(peer.Requests()[0]), "GET /xy1 HTTP/1.1");
}

TEST(ZoHTTP2Request, EscapedPathGoesOutEscaped) {
  ScriptedHttpPeer peer({R(Ok("e"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  std::wstring url = FXString::ToWstring(peer.Url("a b/\u00e9\"x"));
  ASSERT_FALSE(h.DownloadFile("", url.c_str()).IsError());
  ASSERT_EQ(peer.Requests().size(), 1u);
  EXPECT_EQ(FirstLine(peer.Requests()[0]), "GET /a%20b/%C3%A9%22x HTTP/1.1");
}

TEST(ZoHTTP2Request, UncrackableUrlWithEscapingAsksForTheEmptyPath) {
  ScriptedHttpPeer peer({R(Ok("1")), R(Ok("2"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  ASSERT_FALSE(h.Connect(peer.Url("").c_str()).IsError());
  ASSERT_FALSE(h.DownloadFile("", "some/path").IsError());
  h.SetAutoEscapeUrl(false);
  ASSERT_FALSE(h.DownloadFile("", "some/path").IsError());
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(FirstLine(requests[0]), "GET / HTTP/1.1");
  EXPECT_EQ(FirstLine(requests[1]), "GET /some/path HTTP/1.1");
}

TEST(ZoHTTP2Request, HeadersGoOutOnEveryPassAndRequestUntilCleared) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"r\""})), R(Ok("a")),
                         R(Ok("b")), R(Ok("c"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  h.SetUser("u");
  h.SetPassword("p");
  h.SetRequestHeader("X-Zo", "v1");
  ASSERT_FALSE(h.DownloadFile("", peer.Url("a").c_str()).IsError());
  ASSERT_FALSE(h.DownloadFile("", peer.Url("b").c_str()).IsError());
  h.ClearRequestHeader();
  ASSERT_FALSE(h.DownloadFile("", peer.Url("c").c_str()).IsError());
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 4u);
  for (int i = 0; i < 3; ++i) EXPECT_NE(requests[i].find("X-Zo: v1\r\n"), std::string::npos) << i;
  EXPECT_EQ(requests[3].find("X-Zo"), std::string::npos);
}

TEST(ZoHTTP2Request, NotFoundDeletesTheDestination) {
  ScriptedHttpPeer peer({R(Status(404, "Not Found"))});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  CZoHTTP2 h;
  CZoError e = h.DownloadFile(dir.File("gone").c_str(), peer.Url("x").c_str());
  EXPECT_TRUE(e.Is(ZONET_ERR_NOT_FOUND)) << e.AsString();
  EXPECT_TRUE(HasText(e, "URL not found"));
  EXPECT_FALSE(Exists(dir.File("gone")));
}

TEST(ZoHTTP2Request, EmptyDestinationReadsAndWritesNothing) {
  ScriptedHttpPeer peer({R(Ok("dropped")), R(Status(500, "Oops"))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoHTTP2 h;
  EXPECT_FALSE(h.DownloadFile("", peer.Url("x").c_str()).IsError());
  // On failure the removal of the empty name is attempted and harmless.
  CZoError e = h.DownloadFile("", peer.Url("x").c_str());
  EXPECT_TRUE(FXErrorUtil::IsHttp(e, 500)) << e.AsString();
}

TEST(ZoHTTP2Request, OtherStatusesAreHttpErrorsAnd201OnlyCountsForUploads) {
  ScriptedHttpPeer peer({R(Status(204, "No Content")), R(Status(302, "Found", {"Location: /nowhere-else"})),
                         R(ScriptedHttpPeer::Response(201, "Created", {}, "body")),
                         R(Status(201, "Created"))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoHTTP2 h;
  EXPECT_TRUE(FXErrorUtil::IsHttp(h.DownloadFile("", peer.Url("a").c_str()), 204));
  h.SetAutoEscapeUrl(true);
  CZoError redirect = h.DownloadFile("", peer.Url("b").c_str());
  EXPECT_TRUE(redirect.IsError());
  std::string out = dir.File("created");
  EXPECT_FALSE(h.DownloadFile(out.c_str(), peer.Url("c").c_str()).IsError());
  EXPECT_EQ(zotest::ReadFile(out), "");  // 201 on a download: success, no body read
}

TEST(ZoHTTP2Request, CertificateErrorsAreIgnored) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options o;
  o.tls = true;
  zotest::NginxServer nginx(o);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("s.txt", "secret");
  zotest::TempDir dir;
  CZoHTTP2 h;
  // The throwaway CA is in no trust store, and 127.0.0.1 is checked as a name.
  std::string url = "https://127.0.0.1:" + std::to_string(nginx.Port()) + "/s.txt";
  CZoError e = h.DownloadFile(dir.File("s").c_str(), url.c_str());
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("s")), "secret");
}

// ---------------------------------------------------------------- challenges

TEST(ZoHTTP2Auth, A401ThenA200SendsTwiceWithCredentials) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"r\""})), R(Ok("in"))});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  CZoError e = DownloadAs(peer, dir, "user", "pass");
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("f")), "in");
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].find("Authorization"), std::string::npos);
  EXPECT_NE(requests[1].find("Authorization: Basic dXNlcjpwYXNz\r\n"), std::string::npos);
}

TEST(ZoHTTP2Auth, DigestIsPreferredOverBasic) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized",
                                  {"WWW-Authenticate: Basic realm=\"r\"",
                                   "WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\", qop=\"auth\""})),
                         R(Ok("d"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  h.SetUser("user");
  h.SetPassword("pass");
  ASSERT_FALSE(h.DownloadFile("", peer.Url("p").c_str()).IsError());
  ASSERT_EQ(peer.Requests().size(), 2u);
  EXPECT_NE(peer.Requests()[1].find("Authorization: Digest username=\"user\""), std::string::npos);
}

TEST(ZoHTTP2Auth, Two401sEndInAuthenticationFailed) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"r\""}))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoHTTP2 h;
  h.SetUser("user");
  h.SetPassword("wrong");
  CZoError e = h.DownloadFile(dir.File("f").c_str(), peer.Url("p").c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_TRUE(HasText(e, "Authentication failed")) << e.AsString();
  EXPECT_EQ(peer.Requests().size(), 2u);
  EXPECT_FALSE(Exists(dir.File("f")));
  EXPECT_FALSE(ZoHTTP2Access::Authenticated(h));
}

TEST(ZoHTTP2Auth, A407IsAnsweredOnceWithoutCredentials) {
  ScriptedHttpPeer peer({R(Status(407, "Proxy Authentication Required", {"Proxy-Authenticate: Basic realm=\"p\""}))});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  CZoHTTP2 h;
  h.SetProxyCredentials("proxyuser", "proxypass");
  CZoError e = h.DownloadFile("", peer.Url("p").c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_TRUE(HasText(e, "Proxy Authentication failed")) << e.AsString();
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 2u);
  for (const auto& r : requests) EXPECT_EQ(r.find("Proxy-Authorization"), std::string::npos);
}

TEST(ZoHTTP2Auth, A401AfterA407IsStillAnswered) {
  ScriptedHttpPeer peer({R(Status(407, "Proxy Authentication Required", {"Proxy-Authenticate: Basic realm=\"p\""})),
                         R(Status(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"r\""})), R(Ok("both"))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoError e = DownloadAs(peer, dir, "user", "pass");
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("f")), "both");
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_NE(requests[2].find("Authorization: Basic"), std::string::npos);
}

TEST(ZoHTTP2Auth, OnlySchemesLinuxCannotAnswerAreDroppedAsSuccess) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized", {"WWW-Authenticate: NTLM", "WWW-Authenticate: Negotiate"}))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  CZoHTTP2 h;
  h.SetUser("user");
  h.SetPassword("pass");
  // "No Valid Authentication Schemes" is dropped: success, an empty file.
  CZoError e = h.DownloadFile(dir.File("f").c_str(), peer.Url("p").c_str());
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(peer.Requests().size(), 1u);
  EXPECT_TRUE(Exists(dir.File("f")));
  EXPECT_EQ(zotest::ReadFile(dir.File("f")), "");
}

TEST(ZoHTTP2Auth, ThroughTheAuthenticatingProxyA407IsNotAnswered) {
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::ForwardProxy proxy("pu", "pp");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  ScriptedHttpPeer peer({R(Ok("behind"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  h.SetProxyAccess(("127.0.0.1:" + std::to_string(proxy.Port())).c_str());
  h.SetProxyCredentials("pu", "pp");
  CZoError e = h.DownloadFile("", peer.Url("x").c_str());
  ASSERT_TRUE(e.IsError());
  EXPECT_TRUE(HasText(e, "Proxy Authentication failed")) << e.AsString();
  EXPECT_TRUE(peer.Requests().empty());
}

// ---------------------------------------------------------------- uploads

TEST(ZoHTTP2Upload, PutSendsTheBareFileAndAChallengeResendsItFromOffsetZero) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"r\""})),
                         R(Status(201, "Created"))});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  std::string content = zotest::PatternBytes(0, 25000);
  std::string source = dir.Write("src.bin", content);
  CZoHTTP2 h;
  h.SetUser("u");
  h.SetPassword("p");
  CZoError e = h.UploadFile(source.c_str(), peer.Url("up/file.bin").c_str());
  ASSERT_FALSE(e.IsError()) << e.AsString();
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 2u);
  for (const auto& r : requests) {
    EXPECT_EQ(FirstLine(r), "PUT /up/file.bin HTTP/1.1");
    EXPECT_NE(r.find("Content-Length: 25000\r\n"), std::string::npos);
    EXPECT_EQ(BodyOf(r), content);
  }
}

TEST(ZoHTTP2Upload, PostWhenAskedAndMissingSourceFails) {
  ScriptedHttpPeer peer({R(Ok("ok"))});
  REQUIRE_PEER(peer);
  zotest::TempDir dir;
  std::string source = dir.Write("s.txt", "abc");
  CZoHTTP2 h;
  h.SetPostUpload(true);
  ASSERT_FALSE(h.UploadFile(source.c_str(), peer.Url("post").c_str()).IsError());
  ASSERT_EQ(peer.Requests().size(), 1u);
  EXPECT_EQ(FirstLine(peer.Requests()[0]), "POST /post HTTP/1.1");
  EXPECT_EQ(BodyOf(peer.Requests()[0]), "abc");
  CZoError e = h.UploadFile(dir.File("missing").c_str(), peer.Url("post").c_str());
  EXPECT_TRUE(HasText(e, "Failed to open source file")) << e.AsString();
}

TEST(ZoHTTP2Upload, ToNginxDav) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::TempDir dir;
  std::string source = dir.Write("s.txt", "dav body");
  CZoHTTP2 h;
  CZoError e = h.UploadFile(source.c_str(), nginx.Url("upload/new.txt").c_str());
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(nginx.Root() + "/upload/new.txt"), "dav body");
}

// ---------------------------------------------------------------- time-outs, busy, certificates

TEST(ZoHTTP2Recovery, OneReceiveTimeoutReconnectsOnce) {
  ScriptedHttpPeer peer({Stall(), R(Ok("after"))});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  CZoHTTP2 h;
  h.SetInternetTimeoutSec(1);
  ASSERT_FALSE(h.Connect(peer.Url("").c_str()).IsError());
  void* before = ZoHTTP2Access::Connection(h);
  CZoError e = h.DownloadFile(dir.File("f").c_str(), peer.Url("x").c_str());
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("f")), "after");
  EXPECT_NE(ZoHTTP2Access::Connection(h), before);
  EXPECT_EQ(peer.Requests().size(), 2u);
}

TEST(ZoHTTP2Recovery, TwoReceiveTimeoutsFail) {
  ScriptedHttpPeer peer({Stall()});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  CZoHTTP2 h;
  h.SetInternetTimeoutSec(1);
  CZoError e = h.DownloadFile("", peer.Url("x").c_str());
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_TIMEOUT)) << e.AsString();
  EXPECT_TRUE(HasText(e, "WinHttpReceiveResponse failed")) << e.AsString();
  EXPECT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(peer.Requests().size(), 2u);
}

TEST(ZoHTTP2Recovery, ASendTimeoutDoesNotReconnect) {
  // A TLS handshake that the peer never answers: the deadline passes while
  // sending, and the request is not tried again.
  ScriptedHttpPeer peer({Stall()});
  REQUIRE_PEER(peer);
  zotest::FdLeakCheck leaks;
  CZoHTTP2 h;
  h.SetInternetTimeoutSec(1);
  std::string url = "https://localhost:" + std::to_string(peer.Port()) + "/x";
  auto start = std::chrono::steady_clock::now();
  CZoError e = h.DownloadFile("", url.c_str());
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_TIMEOUT)) << e.AsString();
  EXPECT_TRUE(HasText(e, "WinHttpSendRequest failed")) << e.AsString();
  EXPECT_EQ(peer.Connections(), 1);
  EXPECT_LT(took, std::chrono::seconds(3));
}

TEST(ZoHTTP2Recovery, SixBusyRepliesTakeFivePauses) {
  SleepHook hook;
  ScriptedHttpPeer peer({R(Status(501, "Not Implemented"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  CZoError e = h.DownloadFile("", peer.Url("busy").c_str());
  EXPECT_TRUE(FXErrorUtil::IsHttp(e, 501)) << e.AsString();
  EXPECT_EQ(peer.Requests().size(), 6u);
  EXPECT_EQ(g_pauses, (std::vector<unsigned long>{2000, 4000, 6000, 8000, 10000}));
}

TEST(ZoHTTP2Recovery, BusyPauseOnTheRealClock) {
  ScriptedHttpPeer peer({R(Status(501, "Not Implemented")), R(Ok("late"))});
  REQUIRE_PEER(peer);
  CZoHTTP2 h;
  auto start = std::chrono::steady_clock::now();
  CZoError e = h.DownloadFile("", peer.Url("busy").c_str());
  auto took = std::chrono::steady_clock::now() - start;
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_GE(took, std::chrono::milliseconds(2000));
  EXPECT_LT(took, std::chrono::milliseconds(3500));
}

class ZoHTTP2ClientCert : public ::testing::Test {
protected:
  void Start(const std::string& verify) {
    if (!zotest::ServerUnavailableReason("nginx").empty()) GTEST_SKIP() << zotest::ServerUnavailableReason("nginx");
    ASSERT_TRUE(ca.Ok()) << ca.Reason();
    zotest::NginxServer::Options o;
    o.tls = true;
    o.extraConfig = "ssl_verify_client " + verify + "; ssl_client_certificate " + ca.CaFile() + ";";
    nginx = std::make_unique<zotest::NginxServer>(o);
    ASSERT_TRUE(nginx->Ok()) << nginx->Reason();
    nginx->AddFile("c.txt", "cert");
  }
  zotest::ThrowawayCA ca;
  std::unique_ptr<zotest::NginxServer> nginx;
};

TEST_F(ZoHTTP2ClientCert, TheLayerFailsTheSendUntilToldToGoOnWithout) {
  Start("optional");
  RawGet get(L"localhost", nginx->Port(), L"/c.txt", hp::kFlagSecure);
  hp::Handle r = get.request;
  uint32_t flags = 0x3300;
  ASSERT_TRUE(hp::WinHttpSetOption(r, hp::kOptionSecurityFlags, &flags, 4));
  EXPECT_FALSE(hp::WinHttpSendRequest(r, nullptr, 0, nullptr, 0, 0, 0));
  EXPECT_EQ(zonet_http::LastError(), static_cast<uint32_t>(ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED));
  ASSERT_TRUE(hp::WinHttpSetOption(r, hp::kOptionClientCertContext, nullptr, 0));
  EXPECT_TRUE(hp::WinHttpSendRequest(r, nullptr, 0, nullptr, 0, 0, 0)) << zonet_http::LastError();
  EXPECT_TRUE(hp::WinHttpReceiveResponse(r, nullptr)) << zonet_http::LastError();
}

TEST_F(ZoHTTP2ClientCert, DownloadGoesOnWithoutACertificate) {
  Start("optional");
  zotest::TempDir dir;
  CZoHTTP2 h;
  CZoError e = h.DownloadFile(dir.File("c").c_str(), nginx->Url("c.txt").c_str());
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("c")), "cert");
}

TEST_F(ZoHTTP2ClientCert, AServerThatInsistsFailsWith12044) {
  Start("on");
  CZoHTTP2 h;
  CZoError e = h.DownloadFile("", nginx->Url("c.txt").c_str());
  ASSERT_TRUE(e.IsError());
  // The second demand is final; nginx refuses the request without one.
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED) || FXErrorUtil::IsHttp(e, 400)) << e.AsString();
}

TEST(ZoHTTP2Request, NoThreadIsCreated) {
  ScriptedHttpPeer peer({R(Status(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"r\""})), R(Ok("t"))});
  REQUIRE_PEER(peer);
  int before = zotest::ThreadCount();
  CZoHTTP2 h;
  h.SetUser("u");
  ASSERT_FALSE(h.DownloadFile("", peer.Url("t").c_str()).IsError());
  EXPECT_EQ(zotest::ThreadCount(), before);
}

TEST(ZoHTTP2Recovery, ABodyThatCannotBeSentTimesOutWithoutReconnect) {
  // A listener that never accepts: the kernel takes the connection and the
  // head, then the socket buffers fill and the body stalls.
  int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(listener, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);
  socklen_t length = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  zotest::TempDir dir;
  std::string source = dir.File("big.bin");
  ASSERT_TRUE(zotest::WritePatternFile(source, 64u << 20));
  {
    zotest::FdLeakCheck leaks;
    CZoHTTP2 h;
    h.SetInternetTimeoutSec(1);
    std::string url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/up";
    auto start = std::chrono::steady_clock::now();
    CZoError e = h.UploadFile(source.c_str(), url.c_str());
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_TIMEOUT)) << e.AsString();
    EXPECT_TRUE(HasText(e, "WinHttpReadData failed")) << e.AsString();
    EXPECT_LT(took, std::chrono::seconds(4));
  }
  close(listener);
}

TEST(ZoHTTP2Request, NullArgumentsGiveErrorsNotCrashes) {
  CZoHTTP2 h;
  EXPECT_TRUE(h.DownloadFile("", static_cast<const char*>(nullptr)).IsError());
  EXPECT_TRUE(h.DownloadFile(nullptr, static_cast<const wchar_t*>(nullptr)).IsError());
  EXPECT_TRUE(h.Connect(static_cast<const char*>(nullptr)).IsError());
  ASSERT_FALSE(h.Connect("http://localhost:81/").IsError());
  CZoError e = h.UploadFile(nullptr, "http://localhost:81/x");
  EXPECT_TRUE(HasText(e, "Failed to open source file")) << e.AsString();
  h.SetUser(nullptr);
  h.SetPassword(nullptr);
  h.SetProxyCredentials(nullptr, nullptr);
}
