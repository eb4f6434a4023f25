// The platform HTTP layer against real peers on loopback: handles, requests,
// keep-alive, time-outs, TLS checks, proxies, challenges, and the mapping of
// each kind of real failure to its number.
#include <gtest/gtest.h>

#include <algorithm>

#include <cstdlib>
#include <cstring>
#include <thread>
#include <atomic>

#include "ZoUtils/ZoErrorCodes.h"
#include "http/HttpInternal.h"
#include "http/HttpPlatform.h"
#include "support/HostsNamespace.h"
#include "support/HttpPeers.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

namespace hp = zonet_http;
using zotest::ScriptedHttpPeer;

namespace {

struct Outcome {
  bool sent = false;
  uint32_t error = 0;  // of the send, or of the first failing read
  int status = 0;
  std::string body;
};

// Opens root, connection and request and runs one GET to the end.
Outcome Get(const std::string& host, int port, const std::string& object, uint32_t flags = 0,
            uint32_t timeoutMs = 0, uint32_t securityFlags = 0, const char* user = nullptr,
            const char* password = nullptr, uint32_t access = hp::kOpenTypeDirect, const char* proxy = nullptr,
            const char* bypass = nullptr) {
  Outcome out;
  hp::Handle root = hp::InternetOpen("layer-test", access, proxy, bypass, 0);
  hp::Handle connect = hp::InternetConnect(root, host.c_str(), static_cast<uint16_t>(port), user, password,
                                           hp::kServiceHttp, 0, 0);
  const char* accept[] = {"*/*", nullptr};
  hp::Handle request = hp::HttpOpenRequest(connect, "GET", object.c_str(), "HTTP/1.1", nullptr, accept,
                                           flags | 0x84400000, 0);
  if (timeoutMs != 0) {
    hp::InternetSetOption(request, hp::kOptionReceiveTimeout, &timeoutMs, 4);
    hp::InternetSetOption(request, hp::kOptionConnectTimeout, &timeoutMs, 4);
  }
  if (securityFlags != 0) hp::InternetSetOption(request, hp::kOptionSecurityFlags, &securityFlags, 4);
  out.sent = hp::HttpSendRequest(request, nullptr, 0, nullptr, 0);
  if (!out.sent) {
    out.error = hp::LastError();
  } else {
    char text[32] = {0};
    uint32_t size = sizeof text;
    if (hp::HttpQueryInfo(request, hp::kQueryStatusCode, text, &size, nullptr)) out.status = std::atoi(text);
    char buffer[10240];
    for (;;) {
      uint32_t got = 0;
      if (!hp::InternetReadFile(request, buffer, sizeof buffer, &got)) {
        out.error = hp::LastError();
        break;
      }
      if (got == 0) break;
      out.body.append(buffer, got);
    }
  }
  hp::InternetCloseHandle(request);
  hp::InternetCloseHandle(connect);
  hp::InternetCloseHandle(root);
  return out;
}

std::string Ok(const std::string& body, std::vector<std::string> headers = {}) {
  return ScriptedHttpPeer::Response(200, "OK", headers, body);
}

// Every test leaves no descriptor open: checked around each whole test.
class HttpLayer : public ::testing::Test {
  zotest::FdLeakCheck m_leaks;
};

}  // namespace

TEST_F(HttpLayer, GetFromNginxAndNothingLeft) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("files/a.txt", "alpha");
  zotest::FdLeakCheck leaks;
  size_t handlesBefore = zonet_internal::HttpOpenHandleCount();
  // An object without a leading slash goes out with one.
  Outcome out = Get("localhost", nginx.Port(), "files/a.txt");
  EXPECT_TRUE(out.sent) << out.error;
  EXPECT_EQ(out.status, 200);
  EXPECT_EQ(out.body, "alpha");
  EXPECT_TRUE(nginx.WaitForAccessLog("GET /files/a.txt HTTP/1.1"));
  EXPECT_EQ(zonet_internal::HttpOpenHandleCount(), handlesBefore);
}

// Reads a body the way a caller that asks first does: what is available,
// then at most that much (in pieces of up to 7 bytes), until 0 is available.
std::string ReadCounted(hp::Handle request) {
  std::string body;
  for (;;) {
    uint32_t available = 0;
    if (!hp::InternetQueryDataAvailable(request, &available, 0, 0)) return body + "<query failed>";
    if (available == 0) return body;
    char buffer[7];
    uint32_t got = 0;
    if (!hp::InternetReadFile(request, buffer, std::min<uint32_t>(available, sizeof buffer), &got)) {
      return body + "<read failed>";
    }
    if (got == 0 || got > available) return body + "<bad count>";
    body.append(buffer, got);
  }
}

TEST_F(HttpLayer, WhatIsAvailableIsWhatIsReadForEveryFormOfBody) {
  const std::string text = zotest::PatternBytes(0, 3000);
  for (const std::string& raw : {ScriptedHttpPeer::Response(200, "OK", {}, text),
                                 ScriptedHttpPeer::ChunkedResponse(200, "OK", {}, text, 1000),
                                 ScriptedHttpPeer::Response(200, "OK", {"Connection: close"}, text, true)}) {
    ScriptedHttpPeer peer({ScriptedHttpPeer::Reply{raw}});
    ASSERT_TRUE(peer.Ok()) << peer.Reason();
    hp::Handle root = hp::InternetOpen("agent/1", hp::kOpenTypeDirect, nullptr, nullptr, 0);
    hp::Handle connect = hp::InternetConnect(root, "127.0.0.1", static_cast<uint16_t>(peer.Port()), nullptr, nullptr,
                                             hp::kServiceHttp, 0, 0);
    hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/b", nullptr, nullptr, nullptr, 0, 0);
    ASSERT_TRUE(hp::HttpSendRequest(request, nullptr, 0, nullptr, 0));
    EXPECT_EQ(ReadCounted(request), text) << raw.substr(0, raw.find("\r\n\r\n"));
    hp::InternetCloseHandle(root);
  }
}

TEST_F(HttpLayer, HandlesClosedTwiceOrForgedAreRefused) {
  hp::Handle root = hp::InternetOpen("x", hp::kOpenTypeDirect, nullptr, nullptr, 0);
  ASSERT_NE(root, nullptr);
  hp::Handle connect = hp::InternetConnect(root, "localhost", 80, nullptr, nullptr, hp::kServiceHttp, 0, 0);
  ASSERT_NE(connect, nullptr);
  EXPECT_TRUE(hp::InternetCloseHandle(connect));
  EXPECT_FALSE(hp::InternetCloseHandle(connect));
  EXPECT_EQ(hp::LastError(), static_cast<uint32_t>(ZONET_ERR_INVALID_HANDLE));
  EXPECT_FALSE(hp::InternetCloseHandle(reinterpret_cast<hp::Handle>(0x1234)));
  EXPECT_FALSE(hp::InternetCloseHandle(nullptr));
  // A handle of the wrong kind.
  EXPECT_EQ(hp::HttpOpenRequest(root, "GET", "/", nullptr, nullptr, nullptr, 0, 0), nullptr);
  EXPECT_EQ(hp::LastError(), static_cast<uint32_t>(ZONET_ERR_HTTP_INCORRECT_HANDLE_TYPE));
  EXPECT_TRUE(hp::InternetCloseHandle(root));
  EXPECT_FALSE(hp::InternetCloseHandle(root));
}

TEST_F(HttpLayer, ClosingTheRootClosesItsChildren) {
  hp::Handle root = hp::InternetOpen("x", hp::kOpenTypeDirect, nullptr, nullptr, 0);
  hp::Handle connect = hp::InternetConnect(root, "localhost", 80, nullptr, nullptr, hp::kServiceHttp, 0, 0);
  hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/", nullptr, nullptr, nullptr, 0, 0);
  ASSERT_NE(request, nullptr);
  EXPECT_TRUE(hp::InternetCloseHandle(root));
  EXPECT_FALSE(hp::InternetCloseHandle(request));
  EXPECT_FALSE(hp::InternetCloseHandle(connect));
}

TEST_F(HttpLayer, LastErrorIsPerThread) {
  hp::SetLastError(12345);
  uint32_t other = 1;
  std::thread([&] { other = hp::LastError(); }).join();
  EXPECT_EQ(other, 0u);
  EXPECT_EQ(hp::LastError(), 12345u);
}

TEST_F(HttpLayer, HeaderTextIsSplitIntoLines) {
  ScriptedHttpPeer peer({{Ok("x")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  hp::Handle root = hp::InternetOpen("agent/1", hp::kOpenTypeDirect, nullptr, nullptr, 0);
  hp::Handle connect = hp::InternetConnect(root, "127.0.0.1", static_cast<uint16_t>(peer.Port()), nullptr, nullptr,
                                           hp::kServiceHttp, 0, 0);
  hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/h", nullptr, "http://ref/", nullptr, 0, 0);
  const char good[] = "X-One: 1\r\nX-Two: 2\r\n";
  EXPECT_TRUE(hp::HttpAddRequestHeaders(request, good, sizeof good - 1, hp::kAddReqFlagAdd));
  const char bad[] = "X-Three: 3\r\nno colon here\r\n";
  EXPECT_FALSE(hp::HttpAddRequestHeaders(request, bad, sizeof bad - 1, hp::kAddReqFlagAdd));
  EXPECT_EQ(hp::LastError(), static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_HEADER));
  EXPECT_TRUE(hp::HttpSendRequest(request, nullptr, 0, nullptr, 0));
  hp::InternetCloseHandle(root);
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_EQ(raw.find("GET /h HTTP/1.1\r\n"), 0u);
  EXPECT_NE(raw.find("\r\nX-One: 1\r\nX-Two: 2\r\n"), std::string::npos);
  EXPECT_EQ(raw.find("X-Three"), std::string::npos);  // a refused text adds nothing
  EXPECT_NE(raw.find("\r\nUser-Agent: agent/1\r\n"), std::string::npos);
  EXPECT_NE(raw.find("\r\nReferer: http://ref/\r\n"), std::string::npos);
}

TEST_F(HttpLayer, BlanksAndNonAsciiInTheObjectAreEscaped) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("my file \xC3\xA9.txt", "spaced");
  Outcome out = Get("localhost", nginx.Port(), "my file \xC3\xA9.txt");
  EXPECT_EQ(out.status, 200);
  EXPECT_EQ(out.body, "spaced");
  EXPECT_TRUE(nginx.WaitForAccessLog("GET /my%20file%20%C3%A9.txt HTTP/1.1"));
}

TEST_F(HttpLayer, KeepAliveReusesOneConnection) {
  ScriptedHttpPeer::Reply reply{Ok("one")};
  reply.closeAfter = false;
  ScriptedHttpPeer peer({reply});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  hp::Handle root = hp::InternetOpen("x", hp::kOpenTypeDirect, nullptr, nullptr, 0);
  hp::Handle connect = hp::InternetConnect(root, "127.0.0.1", static_cast<uint16_t>(peer.Port()), nullptr, nullptr,
                                           hp::kServiceHttp, 0, 0);
  for (int i = 0; i < 3; ++i) {
    hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/k", nullptr, nullptr, nullptr, 0, 0);
    ASSERT_TRUE(hp::HttpSendRequest(request, nullptr, 0, nullptr, 0)) << hp::LastError();
    char buffer[64];
    uint32_t got = 0;
    std::string body;
    while (hp::InternetReadFile(request, buffer, sizeof buffer, &got) && got > 0) body.append(buffer, got);
    EXPECT_EQ(body, "one");
    hp::InternetCloseHandle(request);
  }
  hp::InternetCloseHandle(root);
  EXPECT_EQ(peer.Connections(), 1);
}

TEST_F(HttpLayer, StaleKeptConnectionIsReplaced) {
  // The peer closes after each reply although it says nothing of it.
  ScriptedHttpPeer peer({{Ok("a")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  hp::Handle root = hp::InternetOpen("x", hp::kOpenTypeDirect, nullptr, nullptr, 0);
  hp::Handle connect = hp::InternetConnect(root, "127.0.0.1", static_cast<uint16_t>(peer.Port()), nullptr, nullptr,
                                           hp::kServiceHttp, 0, 0);
  for (int i = 0; i < 2; ++i) {
    hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/s", nullptr, nullptr, nullptr, 0, 0);
    EXPECT_TRUE(hp::HttpSendRequest(request, nullptr, 0, nullptr, 0)) << hp::LastError();
    char buffer[16];
    uint32_t got = 0;
    while (hp::InternetReadFile(request, buffer, sizeof buffer, &got) && got > 0) {
    }
    hp::InternetCloseHandle(request);
  }
  hp::InternetCloseHandle(root);
  EXPECT_EQ(peer.Requests().size(), 2u);
}

TEST_F(HttpLayer, RefusedPortIsCannotConnect) {
  int port = zotest::PickFreePort();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("127.0.0.1", port, "/");
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_CANNOT_CONNECT));
}

TEST_F(HttpLayer, UnresolvableNameIsNameNotResolved) {
  std::string why = zotest::HostsNamespaceUnavailableReason();
  if (!why.empty()) GTEST_SKIP() << why;
  int status = zotest::RunWithHostsFile("127.0.0.1 known.test\n", [] {
    Outcome out = Get("unknown.test", 80, "/");
    ZOTEST_CHILD_CHECK(!out.sent);
    ZOTEST_CHILD_CHECK(out.error == ZONET_ERR_HTTP_NAME_NOT_RESOLVED);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(HttpLayer, StallPastTheTimeoutIsTimeout) {
  ScriptedHttpPeer::Reply stall;
  stall.stall = true;
  ScriptedHttpPeer peer({stall});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  auto start = std::chrono::steady_clock::now();
  Outcome out = Get("127.0.0.1", peer.Port(), "/", 0, 500);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_TIMEOUT));
  EXPECT_GE(seconds, 0.4);
  EXPECT_LT(seconds, 5.0);
}

TEST_F(HttpLayer, StallInsideTheBodyIsTimeout) {
  ScriptedHttpPeer::Reply reply{"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly this", 0, false};
  ScriptedHttpPeer peer({reply});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("127.0.0.1", peer.Port(), "/", 0, 500);
  EXPECT_TRUE(out.sent);
  EXPECT_EQ(out.body, "only this");
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_TIMEOUT));
}

TEST_F(HttpLayer, MidBodyCloseIsConnectionAborted) {
  ScriptedHttpPeer::Reply reply{Ok(std::string(5000, 'x'))};
  reply.cutAfter = 1000;
  ScriptedHttpPeer peer({reply});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("127.0.0.1", peer.Port(), "/");
  EXPECT_TRUE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_CONNECTION_ABORTED));
  EXPECT_LT(out.body.size(), 5000u);
}

TEST_F(HttpLayer, CloseBeforeAnyReplyIsConnectionAborted) {
  ScriptedHttpPeer::Reply reply{Ok("x")};
  reply.cutAfter = 0;
  reply.raw = "";
  ScriptedHttpPeer peer({reply});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("127.0.0.1", peer.Port(), "/");
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_CONNECTION_ABORTED));
}

TEST_F(HttpLayer, ResetIsConnectionReset) {
  zotest::ResettingPeer peer;
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("127.0.0.1", peer.Port(), "/");
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_CONNECTION_RESET));
}

TEST_F(HttpLayer, GarbageStatusLineIsInvalidServerResponse) {
  ScriptedHttpPeer peer({{"SSH-2.0-OpenSSH_9.2\r\nthis is no HTTP\r\n\r\n"}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("127.0.0.1", peer.Port(), "/");
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE));
  // The status query after a failed send tells the same reason.
}

TEST_F(HttpLayer, StatusBelow100IsInvalidServerResponse) {
  ScriptedHttpPeer peer({{"HTTP/1.1 099 Odd\r\nContent-Length: 0\r\n\r\n"}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("127.0.0.1", peer.Port(), "/");
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE));
}

TEST_F(HttpLayer, StatusQueryAfterAFailedSendTellsWhy) {
  int port = zotest::PickFreePort();
  hp::Handle root = hp::InternetOpen("x", hp::kOpenTypeDirect, nullptr, nullptr, 0);
  hp::Handle connect = hp::InternetConnect(root, "127.0.0.1", static_cast<uint16_t>(port), nullptr, nullptr,
                                           hp::kServiceHttp, 0, 0);
  hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/", nullptr, nullptr, nullptr, 0, 0);
  EXPECT_FALSE(hp::HttpSendRequest(request, nullptr, 0, nullptr, 0));
  char text[32];
  uint32_t size = sizeof text;
  EXPECT_FALSE(hp::HttpQueryInfo(request, hp::kQueryStatusCode, text, &size, nullptr));
  EXPECT_EQ(hp::LastError(), static_cast<uint32_t>(ZONET_ERR_HTTP_CANNOT_CONNECT));
  uint32_t got = 0;
  EXPECT_FALSE(hp::InternetReadFile(request, text, sizeof text, &got));
  EXPECT_EQ(hp::LastError(), static_cast<uint32_t>(ZONET_ERR_HTTP_CANNOT_CONNECT));
  hp::InternetCloseHandle(root);
}

TEST_F(HttpLayer, RedirectsAreFollowedForGet) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("target.txt", "landed");
  Outcome out = Get("localhost", nginx.Port(), "/redirect/target.txt");
  EXPECT_EQ(out.status, 200);
  EXPECT_EQ(out.body, "landed");
  Outcome kept = Get("localhost", nginx.Port(), "/redirect/target.txt", hp::kFlagNoAutoRedirect);
  EXPECT_EQ(kept.status, 302);
}

TEST_F(HttpLayer, ServerChallengeAnsweredWithBasic) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.user = "alice";
  options.password = "wonder";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("private/p.txt", "secret");
  Outcome none = Get("localhost", nginx.Port(), "/private/p.txt");
  EXPECT_EQ(none.status, 401);
  Outcome good = Get("localhost", nginx.Port(), "/private/p.txt", 0, 0, 0, "alice", "wonder");
  EXPECT_EQ(good.status, 200);
  EXPECT_EQ(good.body, "secret");
  Outcome bad = Get("localhost", nginx.Port(), "/private/p.txt", 0, 0, 0, "alice", "wrong");
  EXPECT_EQ(bad.status, 401);
}

TEST_F(HttpLayer, ServerChallengeAnsweredWithDigest) {
  std::string challenge = ScriptedHttpPeer::Response(
      401, "Unauthorized", {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n0nce\", qop=\"auth\", opaque=\"op\""}, "no");
  ScriptedHttpPeer peer({{challenge}, {Ok("in")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("127.0.0.1", peer.Port(), "/d", 0, 0, 0, "u", "p");
  EXPECT_EQ(out.status, 200);
  ASSERT_EQ(peer.Requests().size(), 2u);
  std::string second = peer.Requests()[1];
  EXPECT_NE(second.find("Authorization: Digest username=\"u\", realm=\"r\", nonce=\"n0nce\", uri=\"/d\""),
            std::string::npos)
      << second;
  EXPECT_NE(second.find("qop=auth, nc=00000001"), std::string::npos) << second;
  EXPECT_NE(second.find("opaque=\"op\""), std::string::npos);
}

TEST_F(HttpLayer, NtlmOnlyChallengeIsReturnedToTheCaller) {
  std::string challenge =
      ScriptedHttpPeer::Response(401, "Unauthorized", {"WWW-Authenticate: NTLM", "WWW-Authenticate: Negotiate"}, "x");
  ScriptedHttpPeer peer({{challenge}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("127.0.0.1", peer.Port(), "/n", 0, 0, 0, "u", "p");
  EXPECT_EQ(out.status, 401);
  EXPECT_EQ(peer.Requests().size(), 1u);
}

TEST_F(HttpLayer, ProxyListBypassListAndCredentials) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("p.txt", "through");
  zotest::ForwardProxy proxy("pu", "pp");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  std::string list = "127.0.0.1:" + std::to_string(proxy.Port());
  // Without credentials the proxy's 407 comes back.
  Outcome refused = Get("localhost", nginx.Port(), "/p.txt", 0, 0, 0, nullptr, nullptr, hp::kOpenTypeProxy,
                        list.c_str(), "");
  EXPECT_EQ(refused.status, 407);
  // With them, set on the request, the proxy forwards.
  hp::Handle root = hp::InternetOpen("x", hp::kOpenTypeProxy, list.c_str(), "", 0);
  hp::Handle connect = hp::InternetConnect(root, "localhost", static_cast<uint16_t>(nginx.Port()), nullptr, nullptr,
                                           hp::kServiceHttp, 0, 0);
  hp::Handle request = hp::HttpOpenRequest(connect, "GET", "/p.txt", nullptr, nullptr, nullptr, 0, 0);
  hp::InternetSetOption(request, hp::kOptionProxyUsername, "pu", 2);
  hp::InternetSetOption(request, hp::kOptionProxyPassword, "pp", 2);
  ASSERT_TRUE(hp::HttpSendRequest(request, nullptr, 0, nullptr, 0)) << hp::LastError();
  char text[32] = {0};
  uint32_t size = sizeof text;
  ASSERT_TRUE(hp::HttpQueryInfo(request, hp::kQueryStatusCode, text, &size, nullptr));
  EXPECT_STREQ(text, "200");
  hp::InternetCloseHandle(root);
  auto forwarded = proxy.ForwardedUrls();
  ASSERT_FALSE(forwarded.empty());
  EXPECT_NE(forwarded.back().find("/p.txt"), std::string::npos);
  // A bypassed host goes direct.
  size_t before = proxy.ForwardedUrls().size();
  Outcome direct = Get("localhost", nginx.Port(), "/p.txt", 0, 0, 0, nullptr, nullptr, hp::kOpenTypeProxy,
                       list.c_str(), "local*;other");
  EXPECT_EQ(direct.status, 200);
  EXPECT_EQ(proxy.ForwardedUrls().size(), before);
}

TEST_F(HttpLayer, HttpsThroughTheProxyTunnel) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer::Options options;
  options.tls = true;
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("s.txt", "tunnelled");
  zotest::ForwardProxy proxy("", "");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  std::string list = "https=127.0.0.1:" + std::to_string(proxy.Port());
  Outcome out = Get("localhost", nginx.Port(), "/s.txt", hp::kFlagSecure, 0, 0x3180, nullptr, nullptr,
                    hp::kOpenTypeProxy, list.c_str(), "");
  EXPECT_EQ(out.status, 200);
  EXPECT_EQ(out.body, "tunnelled");
  auto forwarded = proxy.ForwardedUrls();
  ASSERT_FALSE(forwarded.empty());
  EXPECT_NE(forwarded.back().find("localhost:" + std::to_string(nginx.Port())), std::string::npos);
}

TEST_F(HttpLayer, ProxySyntax) {
  using zonet_internal::HttpChooseProxy;
  EXPECT_EQ(HttpChooseProxy("proxy:8080", "", false, "h"), "proxy:8080");
  EXPECT_EQ(HttpChooseProxy("proxy", "", true, "h"), "proxy:80");
  EXPECT_EQ(HttpChooseProxy("http=hp:1 https=sp:2", "", false, "h"), "hp:1");
  EXPECT_EQ(HttpChooseProxy("http=hp:1 https=sp:2", "", true, "h"), "sp:2");
  EXPECT_EQ(HttpChooseProxy("http=hp:1", "", true, "h"), "");
  EXPECT_EQ(HttpChooseProxy("http://p:3/", "", false, "h"), "p:3");
  EXPECT_EQ(HttpChooseProxy("p:3", "*.example.com;<local>", false, "a.example.com"), "");
  EXPECT_EQ(HttpChooseProxy("p:3", "*.example.com;<local>", false, "intranet"), "");
  EXPECT_EQ(HttpChooseProxy("p:3", "*.example.com;<local>", false, "other.org"), "p:3");
}

TEST_F(HttpLayer, PreconfiguredProxyIsTheEnvironment) {
  setenv("http_proxy", "http://envproxy:3128/", 1);
  setenv("no_proxy", "example.com,.skip.org", 1);
  EXPECT_EQ(zonet_internal::HttpChooseProxyFromEnvironment(false, "a.b"), "envproxy:3128");
  EXPECT_EQ(zonet_internal::HttpChooseProxyFromEnvironment(false, "www.example.com"), "");
  EXPECT_EQ(zonet_internal::HttpChooseProxyFromEnvironment(false, "x.skip.org"), "");
  EXPECT_EQ(zonet_internal::HttpChooseProxyFromEnvironment(true, "a.b"), "");
  unsetenv("http_proxy");
  unsetenv("no_proxy");
}

// ---------------------------------------------------------------- TLS

class HttpLayerTls : public ::testing::Test {
protected:
  zotest::FdLeakCheck m_leaks;
  void SetUp() override {
    std::string why = zotest::ServerUnavailableReason("openssl");
    if (!why.empty()) GTEST_SKIP() << why;
    ASSERT_TRUE(m_ca.Ok()) << m_ca.Reason();
  }
  void TearDown() override { unsetenv("SSL_CERT_FILE"); }
  void TrustTheCa() { setenv("SSL_CERT_FILE", m_ca.CaFile().c_str(), 1); }
  zotest::ThrowawayCA m_ca;
};

TEST_F(HttpLayerTls, TrustedCertificateIsAccepted) {
  TrustTheCa();
  zotest::TlsPeer peer(m_ca.CertFile(), m_ca.KeyFile());
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("localhost", peer.Port(), "/", hp::kFlagSecure);
  EXPECT_TRUE(out.sent) << out.error;
  EXPECT_EQ(out.status, 200);
}

TEST_F(HttpLayerTls, SelfSignedIsUnknownAuthorityUnlessIgnored) {
  // The system's trust store does not know the throwaway CA.
  zotest::TlsPeer peer(m_ca.CertFile(), m_ca.KeyFile());
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("localhost", peer.Port(), "/", hp::kFlagSecure);
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_CA));
  Outcome ignored = Get("localhost", peer.Port(), "/", hp::kFlagSecure, 0, 0x180);
  EXPECT_TRUE(ignored.sent) << ignored.error;
}

TEST_F(HttpLayerTls, ExpiredIsBadDateUnlessIgnored) {
  TrustTheCa();
  zotest::FixtureDir dir("expired");
  std::string why = zotest::MakeExpiredCertificate(m_ca.CaFile(), m_ca.CaKeyFile(), dir.File("c.pem"), dir.File("k.pem"));
  ASSERT_EQ(why, "");
  zotest::TlsPeer peer(dir.File("c.pem"), dir.File("k.pem"));
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("localhost", peer.Port(), "/", hp::kFlagSecure);
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_SEC_CERT_DATE_INVALID));
  Outcome ignored = Get("localhost", peer.Port(), "/", hp::kFlagSecure, 0, 0x2000);
  EXPECT_TRUE(ignored.sent) << ignored.error;
}

TEST_F(HttpLayerTls, WrongNameIsNameMismatchUnlessIgnored) {
  TrustTheCa();
  std::string cert, key;
  ASSERT_TRUE(m_ca.Issue("elsewhere.test", {"DNS:elsewhere.test"}, &cert, &key));
  zotest::TlsPeer peer(cert, key);
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  Outcome out = Get("localhost", peer.Port(), "/", hp::kFlagSecure);
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_SEC_CERT_CN_INVALID));
  Outcome ignored = Get("localhost", peer.Port(), "/", hp::kFlagSecure, 0, 0x1000);
  EXPECT_TRUE(ignored.sent) << ignored.error;
}

TEST_F(HttpLayerTls, ClientCertificateDemandIsClientAuthCertNeeded) {
  TrustTheCa();
  zotest::TlsPeer peer(m_ca.CertFile(), m_ca.KeyFile(), m_ca.CaFile());
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  Outcome out = Get("localhost", peer.Port(), "/", hp::kFlagSecure, 3000);
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_CLIENT_AUTH_CERT_NEEDED));
}

TEST_F(HttpLayerTls, PlainPeerSpokenToWithTlsIsChannelError) {
  ZOTEST_REQUIRE_TOOL("nginx");
  // nginx without TLS answers the client's hello with a plain 400 page.
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  Outcome out = Get("localhost", nginx.Port(), "/", hp::kFlagSecure, 3000);
  EXPECT_FALSE(out.sent);
  EXPECT_EQ(out.error, static_cast<uint32_t>(ZONET_ERR_HTTP_SECURITY_CHANNEL_ERROR));
}

// ---------------------------------------------------------------- threads, parsing

TEST_F(HttpLayer, NoThreadIsCreated) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddPatternFile("big.bin", 4 << 20);
  // A watcher samples the task count while the transfer runs.
  std::atomic<bool> done{false};
  std::atomic<int> most{0};
  std::thread watcher([&] {
    while (!done) {
      int n = zotest::ThreadCount();
      if (n > most) most = n;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  int before = zotest::ThreadCount();
  Outcome out = Get("localhost", nginx.Port(), "/big.bin");
  Outcome missing = Get("localhost", nginx.Port(), "/none");
  done = true;
  watcher.join();
  EXPECT_EQ(out.body.size(), 4u << 20);
  EXPECT_EQ(missing.status, 404);
  EXPECT_EQ(most.load(), before);
}

TEST_F(HttpLayer, ReplyHeadParsing) {
  unsigned status = 0;
  std::vector<std::pair<std::string, std::string>> fields;
  uint32_t error = 0;
  std::string good = "HTTP/1.1 207 Multi\r\nA: 1\r\nB:  two \r\n\r\n";
  ASSERT_TRUE(zonet_internal::HttpParseReplyHead(good.data(), good.size(), status, fields, error));
  EXPECT_EQ(status, 207u);
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields[1].second, "two");
  std::string garbage = "HTTX/1.1 200 OK\r\n\r\n";
  EXPECT_FALSE(zonet_internal::HttpParseReplyHead(garbage.data(), garbage.size(), status, fields, error));
  EXPECT_EQ(error, static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE));
  std::string zero = "HTTP/1.1 000 OK\r\n\r\n";
  EXPECT_FALSE(zonet_internal::HttpParseReplyHead(zero.data(), zero.size(), status, fields, error));
  EXPECT_EQ(error, static_cast<uint32_t>(ZONET_ERR_HTTP_INVALID_SERVER_RESPONSE));
  std::string cut = "HTTP/1.1 200 OK\r\nA: 1\r\n";
  EXPECT_FALSE(zonet_internal::HttpParseReplyHead(cut.data(), cut.size(), status, fields, error));
  EXPECT_EQ(error, static_cast<uint32_t>(ZONET_ERR_HTTP_CONNECTION_ABORTED));
}
