// The proxy look-ups of CZoHTTP2: the machine-wide setting from a private
// /etc/environment, the user's from the process environment, the proxy for
// one URL from scripts served on loopback, the script helpers, the bounds of
// the evaluation, and auto-detection by a name that the test's own hosts
// file maps to a local script server.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <regex>

#include "ZoNetwork/ZoHTTP2.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "http/HttpInternal2.h"
#include "http/beast/HttpProxy2.h"
#include "support/HostsNamespace.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using zotest::ScriptedHttpPeer;
namespace px = zonet_http2::proxy;

namespace {

ScriptedHttpPeer::Reply Script(const std::string& body) {
  ScriptedHttpPeer::Reply r;
  r.raw = ScriptedHttpPeer::Response(200, "OK", {"Content-Type: application/x-ns-proxy-autoconfig"}, body);
  return r;
}

std::string Pac(const std::string& answerExpression) {
  return "function FindProxyForURL(url, host) { return " + answerExpression + "; }";
}

// The look-up keeps fetched scripts by their URL; a peer of a later test may
// get the port, and so the URL, of an earlier one. Each test starts with none.
class ForgetFetchedScripts : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo&) override { zonet_internal::ClearProxyScriptCache(); }
};
const bool kForgetFetchedScripts =
    (::testing::UnitTest::GetInstance()->listeners().Append(new ForgetFetchedScripts), true);

// Inside a private mount namespace (the child of RunWithHostsFile): the
// test's own text over one of the machine's files. 0 on success.
int MountOver(const std::string& target, const std::string& text, const std::string& scratch) {
  FILE* f = fopen(scratch.c_str(), "w");
  if (f == nullptr) return 1;
  fputs(text.c_str(), f);
  fclose(f);
  if (mount(scratch.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0) {
    fprintf(stderr, "bind mount over %s: %s\n", target.c_str(), strerror(errno));
    return 1;
  }
  return 0;
}

// Sets an environment variable for one scope, and puts back what was there.
class EnvVar {
public:
  EnvVar(const char* name, const char* value) : m_name(name) {
    const char* old = std::getenv(name);
    m_had = old != nullptr;
    if (m_had) m_old = old;
    if (value) setenv(name, value, 1); else unsetenv(name);
  }
  ~EnvVar() {
    if (m_had) setenv(m_name.c_str(), m_old.c_str(), 1); else unsetenv(m_name.c_str());
  }

private:
  std::string m_name, m_old;
  bool m_had = false;
};

struct CleanProxyEnvironment {
  EnvVar a{"http_proxy", nullptr}, b{"HTTP_PROXY", nullptr}, c{"https_proxy", nullptr}, d{"HTTPS_PROXY", nullptr},
      e{"no_proxy", nullptr}, f{"NO_PROXY", nullptr}, g{px::kAutoConfigVariable, nullptr},
      h{px::kAutoDetectVariable, nullptr};
};

}  // namespace

// ---------------------------------------------------------------- settings

TEST(ZoHTTP2ProxySetting, AssignmentsGiveThePlatformsSyntax) {
  struct V {
    const char* file;
    const char* proxy;
    const char* bypass;
  } vectors[] = {
      {"", "", ""},
      {"http_proxy=http://a:1/\n", "http=a:1", ""},
      {"http_proxy=a:1\nhttps_proxy=a:1\n", "a:1", ""},
      {"http_proxy=http://a:1\nhttps_proxy=http://b:2/\n", "http=a:1;https=b:2", ""},
      {"https_proxy=\"b:2\"\n", "https=b:2", ""},
      {"HTTP_PROXY='a:1'\nHTTPS_PROXY=a:1\n", "a:1", ""},
      {"HTTP_PROXY=x:9\nhttp_proxy=a:1\n", "http=a:1", ""},
      {"export http_proxy=a:1\n# http_proxy=b:2\n", "http=a:1", ""},
      {"no_proxy=.example.com, <local>,host.test,10.0.0.1\n", "", "*.example.com;<local>;host.test;10.0.0.1"},
      {"NO_PROXY=\".corp\"\n", "", "*.corp"},
      {"PATH=/usr/bin\nLANG=C\n", "", ""},
  };
  for (const V& v : vectors) {
    std::string proxy = "x", bypass = "x";
    px::ProxyFromAssignments(px::ParseEnvironmentFile(v.file), proxy, bypass);
    EXPECT_EQ(proxy, v.proxy) << v.file;
    EXPECT_EQ(bypass, v.bypass) << v.file;
  }
}

TEST(ZoHTTP2ProxySetting, MachineWideFromAPrivateEtcEnvironment) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  zotest::TempDir dir;
  std::string scratch = dir.File("environment");
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n", [&] {
    std::string proxy = "junk", bypass = "junk";
    ZOTEST_CHILD_CHECK(MountOver("/etc/environment", "", scratch) == 0);
    // Nothing configured: success and two empty strings.
    ZOTEST_CHILD_CHECK(!CZoHTTP2::GetGlobalProxyConfiguration(proxy, bypass).IsError());
    ZOTEST_CHILD_CHECK(proxy.empty() && bypass.empty());
    umount("/etc/environment");
    ZOTEST_CHILD_CHECK(MountOver("/etc/environment",
                                 "PATH=\"/usr/bin\"\nhttp_proxy=\"http://p.test:3128/\"\nHTTPS_PROXY=s.test:8443\n"
                                 "no_proxy=.corp.test,<local>\n",
                                 scratch) == 0);
    ZOTEST_CHILD_CHECK(!CZoHTTP2::GetGlobalProxyConfiguration(proxy, bypass).IsError());
    ZOTEST_CHILD_CHECK(proxy == "http=p.test:3128;https=s.test:8443");
    ZOTEST_CHILD_CHECK(bypass == "*.corp.test;<local>");
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(ZoHTTP2ProxySetting, SessionOfAccessTypeZeroUsesTheMachineWideSetting) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::ForwardProxy proxy("", "");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  ScriptedHttpPeer peer({ScriptedHttpPeer::Reply{ScriptedHttpPeer::Response(200, "OK", {}, "via")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string scratch = dir.File("environment");
  std::string url = "http://127.0.0.1:" + std::to_string(peer.Port()) + "/m";
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n", [&] {
    ZOTEST_CHILD_CHECK(MountOver("/etc/environment", "http_proxy=" + proxy.Url() + "\n", scratch) == 0);
    CZoHTTP2 h;
    CZoError e = h.DownloadFile("", url.c_str());
    if (e.IsError()) fprintf(stderr, "%s\n", e.AsString().c_str());
    ZOTEST_CHILD_CHECK(!e.IsError());
    return 0;
  });
  EXPECT_EQ(status, 0);
  auto forwarded = proxy.ForwardedUrls();
  ASSERT_EQ(forwarded.size(), 1u) << proxy.Log();
  EXPECT_EQ(forwarded[0], url);
}

TEST(ZoHTTP2ProxySetting, CurrentUserFromTheEnvironment) {
  CleanProxyEnvironment clean;
  std::string proxy = "x", bypass = "x", script = "x";
  bool detect = true;
  ASSERT_FALSE(CZoHTTP2::GetProxyConfigurationForCurrentUser(proxy, bypass, script, detect).IsError());
  EXPECT_EQ(proxy, "");
  EXPECT_EQ(bypass, "");
  EXPECT_EQ(script, "");
  EXPECT_FALSE(detect);
  EnvVar a("http_proxy", "http://a.test:1/");
  EnvVar b("no_proxy", ".x.test");
  EnvVar c(px::kAutoConfigVariable, "http://pac.test/proxy.pac");
  EnvVar d(px::kAutoDetectVariable, "1");
  ASSERT_FALSE(CZoHTTP2::GetProxyConfigurationForCurrentUser(proxy, bypass, script, detect).IsError());
  EXPECT_EQ(proxy, "http=a.test:1");
  EXPECT_EQ(bypass, "*.x.test");
  EXPECT_EQ(script, "http://pac.test/proxy.pac");
  EXPECT_TRUE(detect);
}

TEST(ZoHTTP2ProxySetting, AutoDetectFlagOtherThanOneIsFalse) {
  CleanProxyEnvironment clean;
  std::string proxy, bypass, script;
  bool detect = true;
  for (const char* value : {"2", "true", "yes", "01", ""}) {
    EnvVar d(px::kAutoDetectVariable, value);
    ASSERT_FALSE(CZoHTTP2::GetProxyConfigurationForCurrentUser(proxy, bypass, script, detect).IsError());
    EXPECT_FALSE(detect) << value;
  }
}

// ---------------------------------------------------------------- one URL by a script

TEST(ZoHTTP2ProxyForUrl, ScriptAnswerBecomesThePlatformsList) {
  struct V {
    const char* answer;
    const char* proxy;
  } vectors[] = {
      {"\"PROXY a:1; PROXY b:2; DIRECT\"", "a:1;b:2"},
      {"\"DIRECT\"", ""},
      {"\"PROXY only:8080\"", "only:8080"},
      {"\"DIRECT; PROXY late:1\"", "late:1"},
      {"\"SOCKS s:1; PROXY p:2\"", "p:2"},
  };
  for (const V& v : vectors) {
    zonet_internal::ClearProxyScriptCache();
    ScriptedHttpPeer peer({Script(Pac(v.answer))});
    ASSERT_TRUE(peer.Ok()) << peer.Reason();
    std::string proxy = "x", bypass = "x";
    CZoError e = CZoHTTP2::GetProxyForUrl("http://www.example.test/a", peer.Url("proxy.pac"), proxy, bypass);
    ASSERT_FALSE(e.IsError()) << e.AsString();
    EXPECT_EQ(proxy, v.proxy) << v.answer;
    EXPECT_EQ(bypass, "");
  }
}

TEST(ZoHTTP2ProxyForUrl, ScriptSeesTheUrlAndHost) {
  ScriptedHttpPeer peer({Script("function FindProxyForURL(url, host) {\n"
                                "  if (dnsDomainIs(host, '.inside.test')) return 'DIRECT';\n"
                                "  if (shExpMatch(url, 'https:*')) return 'PROXY secure.test:443';\n"
                                "  return 'PROXY ' + host + ':80';\n"
                                "}\n")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  std::string proxy, bypass;
  ASSERT_FALSE(CZoHTTP2::GetProxyForUrl("http://a.inside.test/", peer.Url("p.pac"), proxy, bypass).IsError());
  EXPECT_EQ(proxy, "");
  ASSERT_FALSE(CZoHTTP2::GetProxyForUrl("https://b.test/", peer.Url("p.pac"), proxy, bypass).IsError());
  EXPECT_EQ(proxy, "secure.test:443");
  ASSERT_FALSE(CZoHTTP2::GetProxyForUrl("http://c.test:81/x", peer.Url("p.pac"), proxy, bypass).IsError());
  EXPECT_EQ(proxy, "c.test:80");
}

TEST(ZoHTTP2ProxyForUrl, AFetchedScriptIsKeptForItsLifetime) {
  ScriptedHttpPeer peer({Script(Pac("\"PROXY first:1\"")), Script(Pac("\"PROXY second:2\""))});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  std::string proxy, bypass;
  for (const char* url : {"http://a.test/", "http://b.test/x", "https://c.test/"}) {
    ASSERT_FALSE(CZoHTTP2::GetProxyForUrl(url, peer.Url("p.pac"), proxy, bypass).IsError());
    EXPECT_EQ(proxy, "first:1") << url;
  }
  EXPECT_EQ(peer.Requests().size(), 1u);
  // Past its lifetime the script is fetched again, and the new one answers.
  auto kept = zonet_internal::SetProxyScriptLifetimeForTests(std::chrono::milliseconds(0));
  ASSERT_FALSE(CZoHTTP2::GetProxyForUrl("http://a.test/", peer.Url("p.pac"), proxy, bypass).IsError());
  zonet_internal::SetProxyScriptLifetimeForTests(kept);
  EXPECT_EQ(proxy, "second:2");
  EXPECT_TRUE(peer.WaitForRequests(2));
  // Another script URL on the same server is a script of its own.
  ASSERT_FALSE(CZoHTTP2::GetProxyForUrl("http://a.test/", peer.Url("q.pac"), proxy, bypass).IsError());
  EXPECT_TRUE(peer.WaitForRequests(3));
  EXPECT_EQ(peer.Requests().size(), 3u);
}

TEST(ZoHTTP2ProxyForUrl, AFailedFetchIsNotKept) {
  ScriptedHttpPeer peer({ScriptedHttpPeer::Reply{ScriptedHttpPeer::Response(404, "Not Found", {}, "")},
                         Script(Pac("\"PROXY later:1\""))});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  std::string proxy, bypass;
  CZoError e = CZoHTTP2::GetProxyForUrl("http://a.test/", peer.Url("p.pac"), proxy, bypass);
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT)) << e.AsString();
  ASSERT_FALSE(CZoHTTP2::GetProxyForUrl("http://a.test/", peer.Url("p.pac"), proxy, bypass).IsError());
  EXPECT_EQ(proxy, "later:1");
  EXPECT_EQ(peer.Requests().size(), 2u);
}

TEST(ZoHTTP2ProxyForUrl, AScriptServerThatAsksForALogonIsAskedExactlyTwice) {
  ScriptedHttpPeer::Reply challenge;
  challenge.raw = ScriptedHttpPeer::Response(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"pac\""}, "");
  ScriptedHttpPeer peer({challenge});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  unsigned long before = zonet_internal::WinHttpGetProxyForUrlCalls();
  std::string proxy = "x", bypass = "x";
  CZoError e = CZoHTTP2::GetProxyForUrl("http://www.example.test/", peer.Url("p.pac"), proxy, bypass);
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_LOGIN_FAILURE)) << e.AsString();
  EXPECT_NE(e.AsString().find("Failed to get proxy for URL [http://www.example.test/]"), std::string::npos);
  EXPECT_EQ(zonet_internal::WinHttpGetProxyForUrlCalls() - before, 2u);
  EXPECT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(peer.Requests().size(), 2u);
  EXPECT_EQ(proxy, "");
  EXPECT_EQ(bypass, "");
}

TEST(ZoHTTP2ProxyForUrl, ScriptThatCannotBeFetchedOrEvaluatedHasItsCode) {
  int port = zotest::PickFreePort();
  std::string proxy, bypass;
  CZoError e = CZoHTTP2::GetProxyForUrl("http://a.test/", "http://127.0.0.1:" + std::to_string(port) + "/p.pac",
                                        proxy, bypass);
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT)) << e.AsString();
  ScriptedHttpPeer missing({ScriptedHttpPeer::Reply{ScriptedHttpPeer::Response(404, "Not Found", {}, "")}});
  ASSERT_TRUE(missing.Ok());
  e = CZoHTTP2::GetProxyForUrl("http://a.test/", missing.Url("p.pac"), proxy, bypass);
  EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_UNABLE_TO_DOWNLOAD_SCRIPT)) << e.AsString();
  for (const char* bad : {"function FindProxyForURL(url, host) { return ", "var x = 1;",
                          "function FindProxyForURL(url, host) { throw 'no'; }",
                          "function FindProxyForURL(url, host) { return 42; }"}) {
    ScriptedHttpPeer peer({Script(bad)});
    ASSERT_TRUE(peer.Ok());
    e = CZoHTTP2::GetProxyForUrl("http://a.test/", peer.Url("p.pac"), proxy, bypass);
    EXPECT_TRUE(e.Is(ZONET_ERR_HTTP_BAD_AUTO_PROXY_SCRIPT)) << bad << "\n" << e.AsString();
  }
}

TEST(ZoHTTP2ProxyForUrl, ARunawayScriptIsStoppedByItsBounds) {
  zotest::FdLeakCheck leaks;
  for (const char* bad : {"function FindProxyForURL(url, host) { for (;;) {} }",
                          "function FindProxyForURL(url, host) { var a = []; for (;;) a.push('xxxxxxxxxxxxxxxx' + a.length); }"}) {
    std::string result;
    uint32_t error = 0;
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(px::EvaluatePac(bad, "http://a/", "a", result, error, 1500, 64ull << 20));
    EXPECT_EQ(error, static_cast<uint32_t>(ZONET_ERR_HTTP_BAD_AUTO_PROXY_SCRIPT));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)) << bad;
  }
}

// ---------------------------------------------------------------- the helpers

TEST(ZoHTTP2ProxyHelpers, Vectors) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  struct V {
    const char* expression;
    const char* value;
  } vectors[] = {
      {"isPlainHostName('www')", "true"},
      {"isPlainHostName('www.netscape.com')", "false"},
      {"dnsDomainIs('www.netscape.com', '.netscape.com')", "true"},
      {"dnsDomainIs('www', '.netscape.com')", "false"},
      {"dnsDomainIs('www.mcom.com', '.netscape.com')", "false"},
      {"localHostOrDomainIs('www.netscape.com', 'www.netscape.com')", "true"},
      {"localHostOrDomainIs('www', 'www.netscape.com')", "true"},
      {"localHostOrDomainIs('www.mcom.com', 'www.netscape.com')", "false"},
      {"localHostOrDomainIs('home.netscape.com', 'www.netscape.com')", "false"},
      {"isResolvable('inside.test')", "true"},
      {"isResolvable('nowhere.test')", "false"},
      {"dnsResolve('inside.test')", "10.1.2.3"},
      {"dnsResolve('nowhere.test')", "null"},
      {"isInNet('inside.test', '10.0.0.0', '255.0.0.0')", "true"},
      {"isInNet('198.95.249.79', '198.95.249.79', '255.255.255.255')", "true"},
      {"isInNet('198.95.1.1', '198.95.0.0', '255.255.0.0')", "true"},
      {"isInNet('10.0.0.1', '198.95.0.0', '255.255.0.0')", "false"},
      {"isInNet('nowhere.test', '10.0.0.0', '255.0.0.0')", "false"},
      {"dnsDomainLevels('www')", "0"},
      {"dnsDomainLevels('www.netscape.com')", "2"},
      {"shExpMatch('http://home.netscape.com/people/ari/index.html', '*/ari/*')", "true"},
      {"shExpMatch('http://home.netscape.com/people/montulli/index.html', '*/ari/*')", "false"},
      {"shExpMatch('a.b', 'a?b')", "true"},
      {"shExpMatch('axb', 'a.b')", "false"},
      {"weekdayRange('SUN', 'SAT')", "true"},
      {"weekdayRange('XYZ')", "false"},
      {"dateRange('JAN', 'DEC')", "true"},
      {"dateRange(1995)", "false"},
      {"timeRange(0, 23)", "true"},
      {"timeRange(25)", "false"},
      {"/^\\d+\\.\\d+\\.\\d+\\.\\d+$/.test(myIpAddress())", "true"},
  };
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n10.1.2.3 inside.test\n", [&] {
    int failures = 0;
    for (const V& v : vectors) {
      std::string result;
      bool ok = px::EvaluatePacHere(Pac(std::string("String(") + v.expression + ")"), "http://x/", "x", result);
      if (!ok || result != v.value) {
        fprintf(stderr, "%s gave %s, expected %s\n", v.expression, ok ? result.c_str() : "(no value)", v.value);
        ++failures;
      }
    }
    return failures == 0 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

// ---------------------------------------------------------------- detection

TEST(ZoHTTP2ProxyDetect, WpadByTheSearchDomainFromMostSpecificToTwoLabels) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  EXPECT_EQ(px::WpadCandidates("a.corp.example.test"),
            (std::vector<std::string>{"http://wpad.a.corp.example.test/wpad.dat",
                                      "http://wpad.corp.example.test/wpad.dat", "http://wpad.example.test/wpad.dat"}));
  EXPECT_TRUE(px::WpadCandidates("test").empty());
  ScriptedHttpPeer wpad({Script(Pac("'PROXY detected.test:3128; DIRECT'"))});
  ASSERT_TRUE(wpad.Ok()) << wpad.Reason();
  ScriptedHttpPeer given({Script(Pac("'PROXY given.test:1'"))});
  ASSERT_TRUE(given.Ok()) << given.Reason();
  zotest::TempDir dir;
  std::string scratch = dir.File("resolv.conf");
  int port = wpad.Port();
  std::string givenUrl = given.Url("p.pac");
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n127.0.0.1 wpad.corp.example.test\n", [&] {
    ZOTEST_CHILD_CHECK(MountOver("/etc/resolv.conf", "search a.corp.example.test\n", scratch) == 0);
    zonet_internal::SetWpadPortForTests(static_cast<uint16_t>(port));
    std::string proxy, bypass;
    // A script URL: no detection.
    CZoError e = CZoHTTP2::GetProxyForUrl("http://www.example.test/", givenUrl, proxy, bypass);
    ZOTEST_CHILD_CHECK(!e.IsError() && proxy == "given.test:1");
    // Detection: wpad.a.corp.example.test is not found, wpad.corp.example.test answers.
    e = CZoHTTP2::GetProxyForUrl("http://www.example.test/", "", proxy, bypass);
    if (e.IsError()) fprintf(stderr, "%s\n", e.AsString().c_str());
    ZOTEST_CHILD_CHECK(!e.IsError());
    ZOTEST_CHILD_CHECK(proxy == "detected.test:3128");
    return 0;
  });
  EXPECT_EQ(status, 0);
  auto requests = wpad.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].substr(0, requests[0].find("\r\n")), "GET /wpad.dat HTTP/1.1");
  EXPECT_NE(requests[0].find("Host: wpad.corp.example.test:" + std::to_string(port)), std::string::npos);
}

TEST(ZoHTTP2ProxyDetect, NothingFoundIs12180) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  zotest::TempDir dir;
  std::string scratch = dir.File("resolv.conf");
  int status = zotest::RunWithHostsFile("127.0.0.1 localhost\n", [&] {
    ZOTEST_CHILD_CHECK(MountOver("/etc/resolv.conf", "search corp.example.test\n", scratch) == 0);
    std::string proxy = "x", bypass = "x";
    CZoError e = CZoHTTP2::GetProxyForUrl("http://www.example.test/", "", proxy, bypass);
    ZOTEST_CHILD_CHECK(e.Is(ZONET_ERR_HTTP_AUTODETECTION_FAILED));
    ZOTEST_CHILD_CHECK(proxy.empty() && bypass.empty());
    return 0;
  });
  EXPECT_EQ(status, 0);
}
