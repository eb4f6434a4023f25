// ZoHTTP against real peers on loopback: base URLs and credentials, GET and
// its status rules, downloads, the multipart upload byte for byte, and the
// HTML listing.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ZoNetwork/ZoHTTP.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "http/HttpInternal.h"
#include "http/HttpPlatform.h"
#include "http/ZoHTTPInternal.h"
#include "support/HttpPeers.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using zonet_internal::ZoHTTPAccess;
using zotest::ScriptedHttpPeer;

namespace {

std::string Str(const CZoString& s) { return std::string(s.c_str()); }

std::string Ok(const std::string& body) { return ScriptedHttpPeer::Response(200, "OK", {}, body); }

std::string Slurp(const std::string& path) { return zotest::ReadFile(path); }

bool Exists(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0;
}

// The body of a request as the peer recorded it.
std::string BodyOf(const std::string& raw) {
  size_t end = raw.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : raw.substr(end + 4);
}
std::string HeadOf(const std::string& raw) { return raw.substr(0, raw.find("\r\n\r\n") + 2); }

int Count(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

const char kDelimiter[] = "----HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--\r\n";

std::string ExpectedForm(const std::string& tkid, const std::string& path, const std::string& file, bool jsp,
                         const std::string& user = "", const std::string& password = "") {
  std::string form = std::string(kDelimiter) + "Content-Disposition: form-data; name=\"mode\"\r\n\r\ngo\r\n" +
                     kDelimiter + "Content-Disposition: form-data; name=\"tkid\"\r\n\r\n" + tkid + "\r\n";
  if (jsp) {
    form += std::string(kDelimiter) + "Content-Disposition: form-data; name=\"username\"\r\n\r\n" + user + "\r\n";
    form += std::string(kDelimiter) + "Content-Disposition: form-data; name=\"password\"\r\n\r\n" + password + "\r\n";
  }
  form += std::string(kDelimiter) + "Content-Disposition: form-data; name=\"logfile\"; filename=" + path + "\r\n" +
          "Content-Type: application/octet-stream\r\n\r\n" + file + "\r\n" + kDelimiter +
          "Content-Disposition: form-data; name=\"submit\"\r\n\r\nUpload\r\n" +
          "----HTTP-LOGUPLOAD-DEFAULT-BOUNDARY----\r\n";
  return form;
}

}  // namespace

// Every test leaves no descriptor open: checked around each whole test.
class NoLeaks : public ::testing::Test {
  zotest::FdLeakCheck m_leaks;
};
class ZoHTTPBaseUrl : public NoLeaks {};
class ZoHTTPCredentials : public NoLeaks {};
class ZoHTTPGet : public NoLeaks {};
class ZoHTTPDownload : public NoLeaks {};
class ZoHTTPUpload : public NoLeaks {};
class ZoHTTPCopies : public NoLeaks {};
class ZoHTTPListing : public NoLeaks {};

// ---------------------------------------------------------------- base URL

TEST_F(ZoHTTPBaseUrl, EmptyChangesNothingElse) {
  ZoHTTP h("a");
  h.SetBaseURL("https://srv:8443/logs");
  h.SetBaseURL("");
  EXPECT_EQ(Str(ZoHTTPAccess::BaseURL(h)), "");
  EXPECT_EQ(Str(ZoHTTPAccess::WebServer(h)), "srv");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 8443);
  CZoString url;
  h.GetWorkingURL(url);
  EXPECT_EQ(Str(url), "https://srv/logs/");
  ZoHTTP fresh("a");
  fresh.SetBaseURL("");
  fresh.GetWorkingURL(url);
  EXPECT_EQ(Str(url), "HTTP:///");
}

TEST_F(ZoHTTPBaseUrl, HttpsWithPortAndPath) {
  ZoHTTP h("a");
  h.SetBaseURL("https://host:8443/logs");
  EXPECT_EQ(Str(ZoHTTPAccess::Scheme(h)), "https");
  EXPECT_EQ(Str(ZoHTTPAccess::WebServer(h)), "host");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 8443);
  EXPECT_EQ(ZoHTTPAccess::RequestFlags(h) & 0x800000u, 0x800000u);
  EXPECT_EQ(Str(ZoHTTPAccess::Path(h)), "logs/");
  EXPECT_EQ(Str(ZoHTTPAccess::BaseURL(h)), "https://host:8443/logs/");
  CZoString url;
  h.GetWorkingURL(url);
  EXPECT_EQ(Str(url), "https://host:8443/logs/");
}

TEST_F(ZoHTTPBaseUrl, HttpsAloneGives443AndNoPath) {
  ZoHTTP h("a");
  h.SetBaseURL("https://host");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 443);
  EXPECT_EQ(Str(ZoHTTPAccess::Path(h)), "");
  EXPECT_EQ(Str(ZoHTTPAccess::WebServer(h)), "host");
  // "http" afterwards leaves the port and the flag.
  h.SetBaseURL("http://other");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 443);
  EXPECT_EQ(ZoHTTPAccess::RequestFlags(h) & 0x800000u, 0x800000u);
}

TEST_F(ZoHTTPBaseUrl, NoSchemeKeepsHttp) {
  ZoHTTP h("a");
  h.SetBaseURL("host/dir");
  EXPECT_EQ(Str(ZoHTTPAccess::Scheme(h)), "HTTP");
  EXPECT_EQ(Str(ZoHTTPAccess::WebServer(h)), "host");
  EXPECT_EQ(Str(ZoHTTPAccess::Path(h)), "dir/");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 80);
}

TEST_F(ZoHTTPBaseUrl, ColonWithoutPortStaysInTheName) {
  ZoHTTP h("a");
  h.SetBaseURL("http://host:/x");
  EXPECT_EQ(Str(ZoHTTPAccess::WebServer(h)), "host:");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 80);
}

TEST_F(ZoHTTPBaseUrl, QueryGivesLeadingSlashForm) {
  ZoHTTP h("a");
  h.SetBaseURL("http://host/dir?a=b");
  EXPECT_EQ(Str(ZoHTTPAccess::Path(h)), "/dir");
  EXPECT_EQ(Str(ZoHTTPAccess::BaseURL(h)), "http://host/dir?a=b/");
}

TEST_F(ZoHTTPBaseUrl, PortIsTruncatedTo16Bits) {
  ZoHTTP h("a");
  h.SetBaseURL("http://host:65617/");
  EXPECT_EQ(ZoHTTPAccess::Port(h), 81);
}

// ---------------------------------------------------------------- credentials

TEST_F(ZoHTTPCredentials, FiftySevenBytesEncodeTo76AndEndInCrLf) {
  ZoHTTP h("a");
  std::string user(28, 'u'), password(28, 'p');  // 28 + ":" + 28 = 57 bytes
  h.SetUser(user.c_str());
  h.SetPassword(password.c_str());
  ZoHTTPAccess::GetUserAuthorization(h);
  std::string line = Str(ZoHTTPAccess::Authorization(h));
  ASSERT_EQ(line.size(), std::string("Authorization: Basic ").size() + 76 + 2);
  EXPECT_EQ(line.substr(line.size() - 2), "\r\n");
  EXPECT_EQ(line.compare(0, 21, "Authorization: Basic "), 0);
}

TEST_F(ZoHTTPCredentials, EmptyCredentialsKeepTheOlderLine) {
  ZoHTTP h("a");
  h.SetUser("old");
  h.SetPassword("pw");
  ZoHTTPAccess::GetUserAuthorization(h);
  std::string before = Str(ZoHTTPAccess::Authorization(h));
  EXPECT_EQ(before, "Authorization: Basic b2xkOnB3");
  h.SetUser("");
  h.SetPassword("");
  ZoHTTPAccess::GetUserAuthorization(h);
  EXPECT_EQ(Str(ZoHTTPAccess::Authorization(h)), before);
}

TEST_F(ZoHTTPCredentials, StaleAuthorizationStillGoesOutWithTheUpload) {
  ScriptedHttpPeer peer({{Ok("ok")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("l.log", "x");
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("logs").c_str());
  h.SetUser("old");
  h.SetPassword("pw");
  ZoHTTPAccess::GetUserAuthorization(h);
  h.SetUser("");
  h.SetPassword("");
  CZoError e = h.UploadFile(file.c_str(), "T");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_NE(peer.Requests()[0].find("\r\nAuthorization: Basic b2xkOnB3\r\n"), std::string::npos);
}

TEST_F(ZoHTTPCredentials, SeventySixCharactersSendOneAuthorizationLine) {
  ScriptedHttpPeer peer({{Ok("ok")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("l.log", "x");
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  std::string user(28, 'u'), password(28, 'p');
  h.SetUser(user.c_str());
  h.SetPassword(password.c_str());
  CZoError e = h.UploadFile(file.c_str(), "T");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string head = HeadOf(peer.Requests()[0]);
  EXPECT_EQ(Count(head, "Authorization: Basic "), 1);
  size_t at = head.find("Authorization: Basic ");
  ASSERT_NE(at, std::string::npos);
  std::string value = head.substr(at + 21, 78);
  EXPECT_EQ(value.find("\r\n"), 76u);  // 76 characters, then the line's one end
  EXPECT_NE(value.find_first_of("\r\n"), 75u);
}

// ---------------------------------------------------------------- GET status rules

TEST_F(ZoHTTPGet, A302WithoutLocationCountsAsSuccess) {
  ScriptedHttpPeer peer({{ScriptedHttpPeer::Response(302, "Found", {}, "moved")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("agent");
    h.SetBaseURL(peer.Url("").c_str());
    CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "r.txt");
    EXPECT_FALSE(e.IsError()) << e.AsString();
  }
  EXPECT_EQ(Slurp(dir.File("r.txt")), "moved");
}

TEST_F(ZoHTTPGet, A401WithBodyEndsInHttp401AfterProxyCredentialsWereSet) {
  std::string challenge = ScriptedHttpPeer::Response(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"x\""}, "go away");
  ScriptedHttpPeer peer({{challenge}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  h.SetProxyCreds("proxyman", "proxypw");
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "c.txt");
  EXPECT_TRUE(FXErrorUtil::IsHttp(e, 401)) << e.AsString();
  EXPECT_LT(e.GetErrorCode(), 0);
  // The challenge was sent again once, and the proxy credentials are on the request.
  EXPECT_EQ(peer.Requests().size(), 2u);
  char name[64] = {0};
  uint32_t size = sizeof name;
  ASSERT_TRUE(zonet_http::InternetQueryOption(ZoHTTPAccess::Request(h), zonet_http::kOptionProxyUsername, name, &size));
  EXPECT_STREQ(name, "proxyman");
  // The refused file is gone.
  EXPECT_FALSE(Exists(dir.File("c.txt")));
}

TEST_F(ZoHTTPGet, A401WithoutBodyEndsInCode232) {
  std::string challenge = ScriptedHttpPeer::Response(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"x\""}, "");
  ScriptedHttpPeer peer({{challenge}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  CZoError e = ZoHTTPAccess::SendRequestGet(h, "/c.txt");
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NO_DATA);
  EXPECT_EQ(peer.Requests().size(), 1u);  // not retried
  // The code is positive, so a download goes on to read the (empty) body
  // and keeps its file.
  e = h.DownloadFile(dir.Path().c_str(), nullptr, "c.txt");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_TRUE(Exists(dir.File("c.txt")));
}

TEST_F(ZoHTTPGet, ProxyChallengeWithBodyIsSentAgainWithTheCredentials) {
  // The scripted peer stands as the proxy: it gets the absolute URL.
  std::string challenge =
      ScriptedHttpPeer::Response(407, "Proxy Authentication Required", {"Proxy-Authenticate: Basic realm=\"p\""}, "who?");
  ScriptedHttpPeer proxy({{challenge}, {Ok("through")}});
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL("http://origin.test:8080/d");
  h.SetProxyAccess(("127.0.0.1:" + std::to_string(proxy.Port())).c_str(), "");
  h.SetProxyCreds("pu", "pp");
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "f.txt");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(Slurp(dir.File("d/f.txt")), "through");
  auto requests = proxy.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].find("GET http://origin.test:8080/d/f.txt HTTP/1.1\r\n"), 0u) << requests[0];
  EXPECT_EQ(requests[0].find("Proxy-Authorization"), std::string::npos);
  EXPECT_NE(requests[1].find("\r\nProxy-Authorization: Basic cHU6cHA=\r\n"), std::string::npos) << requests[1];
}

TEST_F(ZoHTTPGet, ProxyChallengeWithoutBodyEndsInCode232) {
  std::string challenge =
      ScriptedHttpPeer::Response(407, "Proxy Authentication Required", {"Proxy-Authenticate: Basic realm=\"p\""}, "");
  ScriptedHttpPeer proxy({{challenge}});
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  ZoHTTP h("agent");
  h.SetBaseURL("http://origin.test/");
  h.SetProxyAccess(("127.0.0.1:" + std::to_string(proxy.Port())).c_str(), nullptr);
  h.SetProxyCreds("pu", "pp");
  CZoError e = ZoHTTPAccess::SendRequestGet(h, "/x");
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_NO_DATA) << e.AsString();
  EXPECT_EQ(proxy.Requests().size(), 1u);
}

TEST_F(ZoHTTPGet, ServerCredentialsAnswerTheChallenge) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.user = "alice";
  options.password = "wonder";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("private/p.txt", "secret");
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(nginx.Url("private").c_str());
  h.SetUser("alice");
  h.SetPassword("wonder");
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "p.txt");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(Slurp(dir.File("private/p.txt")), "secret");
}

TEST_F(ZoHTTPGet, ProxyChallengeIsAnsweredOnTheResend) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("p.txt", "via proxy");
  zotest::ForwardProxy proxy("pu", "pp");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(nginx.Url("").c_str());
  h.SetProxyAccess(("127.0.0.1:" + std::to_string(proxy.Port())).c_str(), "");
  h.SetProxyCreds("pu", "pp");
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "p.txt");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(Slurp(dir.File("p.txt")), "via proxy");
  EXPECT_FALSE(proxy.ForwardedUrls().empty());
}

TEST_F(ZoHTTPGet, HttpsWithIgnoredCertificateErrors) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.tls = true;
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("s.txt", "secure");
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("agent");
    h.SetBaseURL(nginx.Url("").c_str());
    CZoError refused = h.DownloadFile(dir.Path().c_str(), nullptr, "s.txt");
    EXPECT_EQ(refused.GetErrorCode(), ZONET_ERR_HTTP_INVALID_CA) << refused.AsString();
    EXPECT_FALSE(Exists(dir.File("s.txt")));
    h.SetIgnoreCertificateErrors();
    CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "s.txt");
    EXPECT_FALSE(e.IsError()) << e.AsString();
  }
  EXPECT_EQ(Slurp(dir.File("s.txt")), "secure");
}

// ---------------------------------------------------------------- downloads

TEST_F(ZoHTTPDownload, RemotePathMakesTheFolderAndTheObject) {
  ScriptedHttpPeer peer({{Ok("deep")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("agent");
    h.SetWebServer("127.0.0.1");
    h.SetBaseURL(peer.Url("").c_str());
    CZoError e = h.DownloadFile(dir.Path().c_str(), "a/b", "f.txt");
    EXPECT_FALSE(e.IsError()) << e.AsString();
    EXPECT_EQ(Str(ZoHTTPAccess::ObjectName(h)), "a/b/f.txt");
  }
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(peer.Requests()[0].find("GET /a/b/f.txt HTTP/1.1\r\n"), 0u);
  EXPECT_NE(peer.Requests()[0].find("\r\nAccept: */*\r\n"), std::string::npos);
  EXPECT_EQ(Slurp(dir.File("a/b/f.txt")), "deep");
}

TEST_F(ZoHTTPDownload, LongerExistingFileKeepsItsTail) {
  ScriptedHttpPeer peer({{Ok("NEW")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::ofstream(dir.File("t.txt")) << "old-and-longer";
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "t.txt");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(Slurp(dir.File("t.txt")), "NEW-and-longer");
}

TEST_F(ZoHTTPDownload, RefusedFileIsRemovedByTheSignOfTheCode) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(nginx.Url("").c_str());
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "missing.txt");
  EXPECT_TRUE(FXErrorUtil::IsHttp(e, 404)) << e.AsString();
  EXPECT_LT(e.GetErrorCode(), 0);
  EXPECT_FALSE(Exists(dir.File("missing.txt")));
}

TEST_F(ZoHTTPDownload, PlatformFailureAlsoLosesTheFile) {
  int port = zotest::PickFreePort();
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("agent");
    h.SetBaseURL(("http://127.0.0.1:" + std::to_string(port) + "/").c_str());
    CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "x.txt");
    EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_CANNOT_CONNECT) << e.AsString();
  }
  EXPECT_FALSE(Exists(dir.File("x.txt")));
}

TEST_F(ZoHTTPDownload, MidBodyCloseLosesTheFile) {
  ScriptedHttpPeer::Reply reply{Ok(std::string(30000, 'z'))};
  reply.cutAfter = 15000;
  ScriptedHttpPeer peer({reply});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "cut.bin");
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_CONNECTION_ABORTED) << e.AsString();
  EXPECT_FALSE(Exists(dir.File("cut.bin")));
}

TEST_F(ZoHTTPDownload, TimeoutAppliesToTheRequest) {
  ScriptedHttpPeer::Reply stall;
  stall.stall = true;
  ScriptedHttpPeer peer({stall});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  h.SetInternetTimeout(400);
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, "s.txt");
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_TIMEOUT) << e.AsString();
}

TEST_F(ZoHTTPDownload, WholeListingIsFetched) {
  std::string page = "<a href=\"/\">up</a> <a href=\"/files/one.txt\">1</a> <a href=\"/files/two.txt\">2</a>";
  ScriptedHttpPeer peer({{Ok(page)}, {Ok("first")}, {Ok("second")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  ZoHTTP h("Use_JSP_for_Upload");
  h.SetBaseURL(peer.Url("files").c_str());
  CZoError e = h.DownloadFile(dir.Path().c_str(), nullptr, nullptr);
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(Slurp(dir.File("files/one.txt")), "first");
  EXPECT_EQ(Slurp(dir.File("files/two.txt")), "second");
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].find("GET /files/ HTTP/1.1"), 0u);
  EXPECT_EQ(requests[1].find("GET /files/one.txt HTTP/1.1"), 0u);
  EXPECT_EQ(requests[2].find("GET /files/two.txt HTTP/1.1"), 0u);
}

TEST_F(ZoHTTPDownload, FailedUrlFetchLeavesItsHeadersForTheNext) {
  zotest::TempDir dir;
  ScriptedHttpPeer peer({{ScriptedHttpPeer::Response(404, "Not Found", {}, "no")}, {Ok("later")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  CZoError e = h.DownloadFileFromUrl(dir.Path().c_str(), peer.Url("gone").c_str(), "u.txt", {{"X-Trace", "abc"}});
  EXPECT_TRUE(FXErrorUtil::IsHttp(e, 404)) << e.AsString();
  EXPECT_FALSE(Exists(dir.File("u.txt")));
  EXPECT_EQ(ZoHTTPAccess::RequestHeaders(h).size(), 1u);
  e = h.DownloadFile(dir.Path().c_str(), nullptr, "n.txt");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  // A successful fetch clears them.
  e = h.DownloadFileFromUrl(dir.Path().c_str(), peer.Url("ok").c_str(), "v.txt", {{"X-A", "1"}});
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_TRUE(ZoHTTPAccess::RequestHeaders(h).empty());
  EXPECT_EQ(Slurp(dir.File("v.txt")), "later");
  auto requests = peer.Requests();
  ASSERT_EQ(requests.size(), 3u);
  // The whole URL went out as the object.
  EXPECT_EQ(requests[0].find("GET " + peer.Url("gone") + " HTTP/1.1"), 0u);
  EXPECT_NE(requests[0].find("\r\nX-Trace: abc\r\n"), std::string::npos);
  EXPECT_NE(requests[1].find("\r\nX-Trace: abc\r\n"), std::string::npos);
}

// ---------------------------------------------------------------- upload

TEST_F(ZoHTTPUpload, FormIsByteExactForTheAspAgent) {
  ScriptedHttpPeer peer({{Ok("stored")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("sys.log", "line one\nline two\n");
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("MyAgent/2");
    h.SetBaseURL(peer.Url("logs").c_str());
    h.SetUser("bob");
    h.SetPassword("pw");
    CZoError e = h.UploadFile(file.c_str(), nullptr);
    EXPECT_FALSE(e.IsError()) << e.AsString();
    EXPECT_EQ(ZoHTTPAccess::Request(h), nullptr);  // a successful upload closes its request
  }
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  std::string head = HeadOf(raw);
  EXPECT_EQ(head.find("POST /logs/upload.asp HTTP/1.1\r\n"), 0u) << head;
  EXPECT_NE(head.find("\r\nContent-Type: multipart/form-data; boundary=--HTTP-LOGUPLOAD-DEFAULT-BOUNDARY--\r\n"),
            std::string::npos);
  EXPECT_NE(head.find("\r\nAuthorization: Basic Ym9iOnB3\r\n"), std::string::npos);
  EXPECT_NE(head.find("\r\nUser-Agent: MyAgent/2\r\n"), std::string::npos);
  EXPECT_NE(head.find("\r\nReferer: " + peer.Url("logs/") + "\r\n"), std::string::npos);
  EXPECT_EQ(head.find("Accept:"), std::string::npos);
  std::string expected = ExpectedForm("NO TKID", file, "line one\nline two\n", false);
  EXPECT_EQ(BodyOf(raw), expected);
  EXPECT_NE(head.find("\r\nContent-Length: " + std::to_string(expected.size()) + "\r\n"), std::string::npos);
}

TEST_F(ZoHTTPUpload, FormIsByteExactForTheJspAgentWithPasswordInClear) {
  ScriptedHttpPeer peer({{Ok("stored")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("dir\\with back\\slash.log", "data");
  ZoHTTP h("Use_JSP_for_Upload");
  h.SetBaseURL(peer.Url("svc").c_str());
  h.SetUser("carol");
  h.SetPassword("s3cret");
  CZoError e = h.UploadFile(file.c_str(), "TK-1");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_EQ(raw.find("POST /svc/httplogupload.do HTTP/1.1\r\n"), 0u);
  EXPECT_NE(HeadOf(raw).find("\r\nAuthorization: Basic Y2Fyb2w6czNjcmV0\r\n"), std::string::npos);
  EXPECT_EQ(BodyOf(raw), ExpectedForm("TK-1", file, "data", true, "carol", "s3cret"));
}

TEST_F(ZoHTTPUpload, EmptyFileSendsPreambleAndEpilogue) {
  ScriptedHttpPeer peer({{Ok("stored")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.File("empty.log");
  std::ofstream(file).close();
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  CZoError e = h.UploadFile(file.c_str(), "");
  EXPECT_FALSE(e.IsError()) << e.AsString();
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(BodyOf(peer.Requests()[0]), ExpectedForm("", file, "", false));
}

TEST_F(ZoHTTPUpload, ResendIsLimitedToThree) {
  std::string challenge = ScriptedHttpPeer::Response(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"u\""}, "no");
  ScriptedHttpPeer peer({{challenge}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.File("empty.log");
  std::ofstream(file).close();
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  h.SetUser("u");
  h.SetPassword("p");
  CZoError e = h.UploadFile(file.c_str(), "T");
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_FORCE_RETRY) << e.AsString();
  auto requests = peer.Requests();
  EXPECT_EQ(requests.size(), 4u);
  // Each resend adds its headers again.
  if (requests.size() == 4u) {
    EXPECT_EQ(Count(HeadOf(requests[3]), "Content-Type: multipart"), 4);
  }
}

TEST_F(ZoHTTPUpload, RetryWithBytesFailsOnTheClosedFile) {
  std::string challenge = ScriptedHttpPeer::Response(401, "Unauthorized", {"WWW-Authenticate: Basic realm=\"u\""}, "no");
  ScriptedHttpPeer peer({{challenge}, {Ok("ok")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("f.log", "bytes");
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  h.SetUser("u");
  h.SetPassword("p");
  CZoError e = h.UploadFile(file.c_str(), "T");
  EXPECT_TRUE(e.IsError());
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_INVALID_STATE) << e.AsString();
}

TEST_F(ZoHTTPUpload, UnknownAuthorityLoopEndsOnceTheFlagsAreSet) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.tls = true;
  options.extraConfig = "location = /up/upload.asp { return 200 \"taken\"; }";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("l.log", "tls upload");
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("agent");
    h.SetBaseURL(nginx.Url("up").c_str());
    CZoError e = h.UploadFile(file.c_str(), "T");
    EXPECT_FALSE(e.IsError()) << e.AsString();
  }
  EXPECT_TRUE(nginx.WaitForAccessLog("POST /up/upload.asp HTTP/1.1\" 200"));
}

TEST_F(ZoHTTPUpload, HttpsThroughAnAuthenticatingProxy) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer::Options options;
  options.tls = true;
  options.extraConfig = "location = /up/upload.asp { return 200 \"taken\"; }";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::ForwardProxy proxy("pu", "pp");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("l.log", "tunnelled upload");
  std::string list = "https=127.0.0.1:" + std::to_string(proxy.Port());
  {
    // The tunnel is refused until the proxy credentials are on the request,
    // then the unknown authority is accepted, then the form goes.
    ZoHTTP h("agent");
    h.SetBaseURL(nginx.Url("up").c_str());
    h.SetProxyAccess(list.c_str(), "");
    h.SetProxyCreds("pu", "pp");
    CZoError e = h.UploadFile(file.c_str(), "T");
    EXPECT_FALSE(e.IsError()) << e.AsString();
    EXPECT_TRUE(nginx.WaitForAccessLog("POST /up/upload.asp HTTP/1.1\" 200"));
  }
  {
    // Wrong credentials end the upload instead of going round for ever.
    ZoHTTP h("agent");
    h.SetBaseURL(nginx.Url("up").c_str());
    h.SetProxyAccess(list.c_str(), "");
    h.SetProxyCreds("pu", "wrong");
    CZoError e = h.UploadFile(file.c_str(), "T");
    EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_CONNECTION_ABORTED) << e.AsString();
  }
}

TEST_F(ZoHTTPUpload, RefusedPortIsReportedByTheFirstWrite) {
  int port = zotest::PickFreePort();
  zotest::TempDir dir;
  std::string file = dir.Write("l.log", "x");
  ZoHTTP h("agent");
  h.SetBaseURL(("http://127.0.0.1:" + std::to_string(port) + "/").c_str());
  CZoError e = h.UploadFile(file.c_str(), "T");
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_CANNOT_CONNECT) << e.AsString();
  EXPECT_NE(e.AsString().find("ZoHTTP::_uploadData"), std::string::npos);
}

TEST_F(ZoHTTPUpload, MissingSourceIsItsOpenError) {
  ZoHTTP h("agent");
  h.SetBaseURL("http://127.0.0.1:1/");
  CZoError e = h.UploadFile("/nonexistent/zohttp.log", "T");
  EXPECT_EQ(e.GetErrorCode(), ENOENT);
  EXPECT_EQ(ZoHTTPAccess::Internet(h), nullptr);  // nothing was opened
}

TEST_F(ZoHTTPUpload, OperationStaysAtThreeSoALaterUrlFetchPosts) {
  ScriptedHttpPeer peer({{Ok("ok")}, {Ok("then")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("l.log", "x");
  ZoHTTP h("agent");
  h.SetBaseURL(peer.Url("").c_str());
  EXPECT_FALSE(h.UploadFile(file.c_str(), "T").IsError());
  h.DownloadFileFromUrl(dir.Path().c_str(), "/u", "u.txt", {});
  ASSERT_TRUE(peer.WaitForRequests(2));
  // The path became "/u/", so the object is "/" + "/u/" + "upload.asp".
  EXPECT_EQ(peer.Requests()[1].find("POST //u/upload.asp HTTP/1.1"), 0u) << peer.Requests()[1];
}

// ---------------------------------------------------------------- copies

TEST_F(ZoHTTPCopies, ACopyClosesTheSameHandlesWithoutHarm) {
  ScriptedHttpPeer peer({{Ok("c")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  size_t before = zonet_internal::HttpOpenHandleCount();
  zotest::FdLeakCheck leaks;
  {
    ZoHTTP h("agent");
    h.SetBaseURL(peer.Url("").c_str());
    EXPECT_FALSE(h.DownloadFile(dir.Path().c_str(), nullptr, "c.txt").IsError());
    ZoHTTP copy(h);
    ZoHTTP assigned("other");
    assigned = h;
    EXPECT_EQ(ZoHTTPAccess::Request(copy), ZoHTTPAccess::Request(h));
  }
  EXPECT_EQ(zonet_internal::HttpOpenHandleCount(), before);
}

// ---------------------------------------------------------------- listing

namespace {

struct Listed {
  CZoError error = CZoError::Success();
  std::vector<std::string> files;
};

Listed List(const std::string& page, const char* agent, const char* path = nullptr) {
  Listed out;
  ScriptedHttpPeer peer({{Ok(page)}});
  if (!peer.Ok()) {
    ADD_FAILURE() << peer.Reason();
    return out;
  }
  ZoHTTP h(agent);
  h.SetBaseURL(peer.Url("d").c_str());
  std::vector<CZoString> files;
  out.error = h.GetFileList(files, path);
  for (auto& f : files) out.files.push_back(Str(f));
  return out;
}

const char kJsp[] = "Use_JSP_for_Upload";

}  // namespace

TEST_F(ZoHTTPListing, NoLinkIsAnEmptyList) {
  Listed l = List("<html>nothing here</html>", kJsp);
  EXPECT_FALSE(l.error.IsError());
  EXPECT_TRUE(l.files.empty());
}

TEST_F(ZoHTTPListing, FirstLinkIsNeverReported) {
  EXPECT_TRUE(List("<a href=\"/only.txt\">x</a>", kJsp).files.empty());
  Listed l = List("<a href=\"/a\">x</a><a href=\"/b.txt\">y</a>", kJsp);
  EXPECT_EQ(l.files, (std::vector<std::string>{"b.txt"}));
}

TEST_F(ZoHTTPListing, MarkerIsCaseSensitivePerAgent) {
  std::string upper = "<A HREF=\"/x\">x</A><A HREF=\"/y.txt\">y</A>";
  std::string lower = "<a href=\"/x\">x</a><a href=\"/y.txt\">y</a>";
  EXPECT_TRUE(List(upper, kJsp).files.empty());
  EXPECT_TRUE(List(lower, "other agent").files.empty());
  EXPECT_EQ(List(upper, "other agent").files, (std::vector<std::string>{"y.txt"}));
  EXPECT_EQ(List(lower, kJsp).files, (std::vector<std::string>{"y.txt"}));
}

// Pages and the names the scan takes from them (the first link always
// dropped), with the rule each row shows.
TEST_F(ZoHTTPListing, ScanRules) {
  struct Row {
    const char* rule;
    const char* page;
    std::vector<std::string> files;
  };
  const Row rows[] = {
      {"an offset of seven drops each link's first character",
       "<a href=\"/skip\"></a><a href=\"xfile.txt\"></a><a href=\"/dir/file\"></a>", {"file.txt", "dir/file"}},
      {"an unclosed last link is dropped", "<a href=\"/s\"></a><a href=\"/kept\"></a><a href=\"/lost", {"kept"}},
      {"queries and fragments are kept", "<a href=\"/s\"></a><a href=\"/f.txt?v=2\"></a><a href=\"/g.txt#top\"></a>",
       {"f.txt?v=2", "g.txt#top"}},
      {"a one-character link is an empty name", "<a href=\"/s\"></a><a href=\"/\"></a>", {""}},
      {"an empty link runs to the next quote", "<a href=\"/s\"></a><a href=\"\">text</a> and \"more\"",
       {">text</a> and "}},
      // The test of the link's end reads past its last character, where the
      // foundation's string gives the terminating NUL: no recursion.
      {"directory links are entries on this foundation",
       "<a href=\"/s\"></a><a href=\"/sub/\"></a><a href=\"/f\"></a>", {"sub/", "f"}},
  };
  for (const Row& row : rows) EXPECT_EQ(List(row.page, kJsp).files, row.files) << row.rule;
}

TEST_F(ZoHTTPListing, ErrorPageIsScannedLikeAnyOther) {
  ScriptedHttpPeer peer({{ScriptedHttpPeer::Response(404, "Not Found", {}, "<a href=\"/a\"></a><a href=\"/b\"></a>")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  ZoHTTP h(kJsp);
  h.SetBaseURL(peer.Url("").c_str());
  std::vector<CZoString> files;
  EXPECT_FALSE(h.GetFileList(files, "sub").IsError());
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(Str(files[0]), "b");
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(peer.Requests()[0].find("GET /sub/ HTTP/1.1"), 0u);
}

TEST_F(ZoHTTPListing, NulInsideTheReplyCutsItsChunk) {
  std::string page = std::string("<a href=\"/s\"></a><a href=\"/a\"></a>") + '\0' + "<a href=\"/hidden\"></a>";
  EXPECT_EQ(List(page, kJsp).files, (std::vector<std::string>{"a"}));
}

TEST_F(ZoHTTPListing, FailureLeavesAnEmptiedList) {
  int port = zotest::PickFreePort();
  zotest::FdLeakCheck leaks;
  ZoHTTP h(kJsp);
  h.SetBaseURL(("http://127.0.0.1:" + std::to_string(port)).c_str());
  std::vector<CZoString> files{"stale"};
  CZoError e = h.GetFileList(files, nullptr);
  EXPECT_EQ(e.GetErrorCode(), ZONET_ERR_HTTP_CANNOT_CONNECT);
  EXPECT_TRUE(files.empty());
}

TEST_F(ZoHTTPListing, NginxAutoindexWithTheJspAgent) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("pub/a1.txt", "1");
  nginx.AddFile("pub/b2.txt", "2");
  ZoHTTP h(kJsp);
  h.SetBaseURL(nginx.Url("pub").c_str());
  std::vector<CZoString> files;
  EXPECT_FALSE(h.GetFileList(files, nullptr).IsError());
  // nginx writes relative links: the first character goes with the offset.
  std::vector<std::string> names;
  for (auto& f : files) names.push_back(Str(f));
  EXPECT_EQ(names, (std::vector<std::string>{"1.txt", "2.txt"}));
}
