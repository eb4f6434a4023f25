// HTTP and HTTPS requests: the composition of the URL, the success rule,
// multipart forms as they arrive, request headers, what one request leaves
// behind for the next, and certificate checks against a throwaway CA.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "ZoNetwork/XnCURLError.h"
#include "curl/RequestSupport.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using namespace XnCURL;
using namespace zotest_curl;
using Reply = zotest::ScriptedHttpPeer::Reply;

namespace {

// curl's CURLFORM_COPYCONTENTS, by number: its name is deprecated.
const int kCopyContents = 4;

struct Composition {
  const char* server;
  const char* path;
  HTTPProtocol protocol;
  const char* port;
  const char* url;  // or the error's text
  bool error;
};

// The URL a request with these settings goes to, or the error's text.
std::string Compose(const Composition& c) {
  HttpReq request(c.protocol);
  if (request.initialize(0).IsError()) return "initialize failed";
  request.setURL(c.server);
  request.setURLPath(c.path);
  request.setPortNumber(c.port);
  std::string url;
  CZoError e = request.Base().getFullWorkingURL(url);
  return e.IsError() ? e.AsString() : url;
}

}  // namespace

TEST(HttpRequest, TheURLCompositionTable) {
  const Composition table[] = {
      {"host", "a/b", protocolHTTP, "", "http://host/a/b", false},
      {"host", "/a", protocolHTTPS, "8443", "https://host:8443/a", false},
      {"http://host", "http://host/a", protocolHTTP, "", "http://host/a", false},
      {"host", "https://host/a", protocolHTTP, "", "https://host/a", false},
      {"hostA", "http://hostB/a", protocolHTTP, "", "Server name in URLPath conflicts with registered server", true},
      {"host", "host/a", protocolHTTP, "", "http://host/a", false},
      {"HOST", "http://host/a", protocolHTTP, "", "Server name in URLPath conflicts with registered server", true},
      {"host/", "/a", protocolHTTP, "", "http://host//a", false},
      {"data", "database/x", protocolHTTP, "", "http://database/x", false},
      // The port goes behind the server part of a full URL, even one with a port.
      {"host:1", "http://host:1/a", protocolHTTP, "8080", "http://host:1:8080/a", false},
      {"host", "http://host", protocolHTTP, "", "http://host/", false},
      {"https://host", "/a", protocolHTTP, "", "https://host/a", false},
      {"host", "", protocolHTTPS, "", "https://host/", false},
  };
  for (const Composition& c : table) {
    std::string got = Compose(c);
    if (c.error) {
      EXPECT_NE(got.find(c.url), std::string::npos) << c.server << " + " << c.path << " gave " << got;
      EXPECT_NE(got.find("XnHTTPReq::getFullWorkingURL"), std::string::npos) << got;
    } else {
      EXPECT_EQ(got, c.url) << c.server << " + " << c.path;
    }
  }
}

TEST(HttpRequest, AConflictingServerStopsTheRequestBeforeTheTransfer) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL("http://127.0.0.1:" + std::to_string(peer.Port()));
  CZoError e = request.download(("http://localhost:" + std::to_string(peer.Port()) + "/a").c_str(), kNone);
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "Server name in URLPath conflicts with registered server"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::PrepareForRequest: Failed to get working URL"));
  EXPECT_EQ(peer.Connections(), 0);
  // A path with the same server goes out.
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download(("http://127.0.0.1:" + std::to_string(peer.Port()) + "/b").c_str(), kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(RequestLine(peer.Requests()[0]), "GET /b HTTP/1.1");
}

TEST(HttpRequest, OneHundredToThreeNinetyNineIsSuccess) {
  struct Status {
    int code;
    bool ok;
  };
  for (Status s : {Status{200, true}, Status{204, true}, Status{399, true}, Status{400, false}, Status{500, false},
                   Status{599, false}}) {
    zotest::ScriptedHttpPeer peer({Plain(s.code)});
    ASSERT_TRUE(peer.Ok()) << peer.Reason();
    HttpReq request;
    ASSERT_TRUE(Aimed(request, peer.Port()));
    std::string body;
    request.setWriteFunctionPointer(&body, CollectInto);
    CZoError e = request.doGetOperation("/s", kNone);
    EXPECT_EQ(!e.IsError(), s.ok) << s.code << " " << e.AsString();
    EXPECT_EQ(request.ResponseCode(), s.code);
  }
}

// curl itself ends a transfer whose only answer is a 1xx, or a status of 0,
// with an error of its own, so the rule is shown on the code directly.
TEST(HttpRequest, TheSuccessRuleOnTheResponseCode) {
  HttpReq request;
  bool ok = true;
  CZoError e = request.isOperationSuccess(ok);
  EXPECT_TRUE(e.Is(IntCode(1)));
  ASSERT_FALSE(request.initialize(0).IsError());
  struct Case {
    int code;
    bool ok;
  };
  for (Case c : {Case{0, false}, Case{99, false}, Case{100, true}, Case{199, true}, Case{200, true}, Case{302, true},
                 Case{399, true}, Case{400, false}, Case{404, false}, Case{500, false}, Case{600, false}}) {
    request.SetResponseCode(c.code);
    ok = !c.ok;
    ASSERT_FALSE(request.isOperationSuccess(ok).IsError());
    EXPECT_EQ(ok, c.ok) << c.code;
  }
}

TEST(HttpRequest, EachKindOfRequestOnTheWire) {
  zotest::ScriptedHttpPeer peer({Plain(200, "body")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  auto sink = [&] { request.setWriteFunctionPointer(&body, CollectInto); };
  sink();
  ASSERT_FALSE(request.download("/download", kNone).IsError());
  sink();
  ASSERT_FALSE(request.doGetOperation("/get", kNone).IsError());
  ASSERT_FALSE(request.doPostOperation("/poststring", "a=1&b=2", kNone).IsError());
  const char buffer[] = "0123456789";
  ASSERT_FALSE(request.doPutOperation("/put", buffer, 10, kNone).IsError());
  ASSERT_FALSE(request.doDeleteOperation("/delete", buffer, 4, kNone).IsError());
  ASSERT_FALSE(request.checkConnection().IsError());
  ASSERT_TRUE(peer.WaitForRequests(6));
  std::vector<std::string> raw = peer.Requests();
  EXPECT_EQ(RequestLine(raw[0]), "GET /download HTTP/1.1");
  EXPECT_EQ(RequestLine(raw[1]), "GET /get HTTP/1.1");
  EXPECT_EQ(RequestLine(raw[2]), "POST /poststring HTTP/1.1");
  EXPECT_EQ(Body(raw[2]), "a=1&b=2");
  EXPECT_EQ(RequestLine(raw[3]), "PUT /put HTTP/1.1");
  EXPECT_EQ(Body(raw[3]), "0123456789");
  EXPECT_EQ(RequestLine(raw[4]), "DELETE /delete HTTP/1.1");
  EXPECT_EQ(Body(raw[4]), "0123");
  // checkConnection probes the last path with headers only.
  EXPECT_EQ(RequestLine(raw[5]), "HEAD /delete HTTP/1.1");
}

TEST(HttpRequest, PostOptionsOfABufferSurviveIntoTheNextRequestWhereHttpGetDecides) {
  zotest::ScriptedHttpPeer peer({Plain(200, "x")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  const char buffer[] = "posted-buffer";
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.doPostOperation("/post", buffer, 13L, kNone).IsError());
  // A buffer's POST is never undone: a list request, which sets nothing of
  // its own, goes out as that POST again, with the caller's buffer.
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.getFilesAndDirsInfoInFile("/list").IsError());
  // A download sets HTTPGET, which decides the method.
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/after", kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(3));
  std::vector<std::string> raw = peer.Requests();
  EXPECT_EQ(RequestLine(raw[0]), "POST /post HTTP/1.1");
  EXPECT_EQ(Body(raw[0]), "posted-buffer");
  EXPECT_EQ(RequestLine(raw[1]), "POST /list/ HTTP/1.1");
  EXPECT_EQ(Body(raw[1]), "posted-buffer") << "the caller's buffer is still on the handle";
  EXPECT_EQ(RequestLine(raw[2]), "GET /after HTTP/1.1");
  EXPECT_EQ(Body(raw[2]), "");
}

TEST(HttpRequest, AGetLeavesHttpGetOnSoAListAfterItIsAGetToo) {
  zotest::ScriptedHttpPeer peer({Plain(200, "x")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.doPostOperation("/p", "string", kNone).IsError());
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.doGetOperation("/g", kNone).IsError());
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.getFilesAndDirsInfoInFile("/l").IsError());
  ASSERT_TRUE(peer.WaitForRequests(3));
  EXPECT_EQ(RequestLine(peer.Requests()[2]), "GET /l/ HTTP/1.1");
}

TEST(HttpRequest, MultipartFormsAsTheyArrive) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  std::string file = dir.Write("report.txt", "file contents\n");
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  ASSERT_FALSE(request.addFormValues("field", kCopyContents, "value one").IsError());
  ASSERT_FALSE(request.addFormValues("upload", 10, file).IsError());
  ASSERT_FALSE(request.uploadFile(file.c_str(), "/form", 14, kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_EQ(RequestLine(raw), "POST /form HTTP/1.1");
  EXPECT_EQ(Header(raw, "Content-Type").rfind("multipart/form-data; boundary=", 0), 0u) << raw;
  EXPECT_EQ(Header(raw, "Expect"), "100-continue");
  std::string body = Body(raw);
  size_t text = body.find("Content-Disposition: form-data; name=\"field\"\r\n");
  size_t upload = body.find("Content-Disposition: form-data; name=\"upload\";filename=\"report.txt\"\r\n");
  EXPECT_NE(text, std::string::npos) << body;
  EXPECT_NE(upload, std::string::npos) << body;
  EXPECT_LT(text, upload) << "fields in order of addition";
  EXPECT_NE(body.find("value one"), std::string::npos);
  EXPECT_NE(body.find("file contents\n"), std::string::npos);

  // The form is gone after the request; the next upload has none.
  ASSERT_FALSE(request.uploadFile(file.c_str(), "/empty", 0, kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(2));
  std::string second = peer.Requests()[1];
  EXPECT_EQ(second.find("multipart/form-data"), std::string::npos) << second;
  EXPECT_EQ(second.find("report.txt"), std::string::npos);
}

TEST(HttpRequest, SkippingExpectSendsNoExpectHeader) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  request.skipExpectContinue100(true);
  ASSERT_FALSE(request.addFormValues("a", kCopyContents, "b").IsError());
  ASSERT_FALSE(request.uploadFile("src", "/f", 1, kNone).IsError());
  // A header with an empty value is not sent at all.
  request.addRequestedHeaders("Accept", "");
  request.addRequestedHeaders("X-Empty", "");
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/d", kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(Header(peer.Requests()[0], "Expect"), "<none>");
  EXPECT_NE(Body(peer.Requests()[0]).find("name=\"a\""), std::string::npos);
  EXPECT_EQ(Header(peer.Requests()[1], "Accept"), "<none>");
  EXPECT_EQ(Header(peer.Requests()[1], "X-Empty"), "<none>");
}

TEST(HttpRequest, AFormFileThatCannotBeSplitDoesNotStopTheUpload) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  ASSERT_FALSE(request.addFormValues("first", kCopyContents, "kept").IsError());
  ASSERT_FALSE(request.addFormValues("broken", 10, "").IsError());
  ASSERT_FALSE(request.uploadFile("src", "/f", 1, kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_EQ(RequestLine(raw), "POST /f HTTP/1.1");
  EXPECT_NE(Body(raw).find("name=\"first\""), std::string::npos) << raw;
  EXPECT_EQ(Body(raw).find("name=\"broken\""), std::string::npos) << raw;
}

TEST(HttpRequest, ChunkedTransferChangesNothingOnTheWire) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  const char buffer[] = "abc";
  ASSERT_FALSE(request.doPutOperation("/c", buffer, 3, kNone).IsError());
  request.setChunkedTransfer(true);
  ASSERT_FALSE(request.doPutOperation("/c", buffer, 3, kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(peer.Requests()[0], peer.Requests()[1]);
  EXPECT_EQ(Header(peer.Requests()[1], "Transfer-Encoding"), "<none>");
}

TEST(HttpRequest, IsFileProbesThePathWithASlash) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("dir/file.txt", "f");
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  bool isFile = false;
  ASSERT_FALSE(request.Base().IsFile("/dir/file.txt", isFile).IsError());
  EXPECT_TRUE(isFile);
  ASSERT_FALSE(request.Base().IsFile("/dir", isFile).IsError());
  EXPECT_FALSE(isFile);
  EXPECT_TRUE(nginx.WaitForAccessLog("HEAD /dir/ HTTP/1.1"));
  EXPECT_EQ(request.getOperationType(), opFileInfo);
  // A curl failure after a 404: the stale 404 still reads as a file.
  ASSERT_FALSE(request.Base().IsFile("/dir/file.txt", isFile).IsError());
  request.setURL("http://127.0.0.1:" + std::to_string(zotest::PickFreePort()));
  isFile = false;
  ASSERT_FALSE(request.Base().IsFile("/anything", isFile).IsError());
  EXPECT_TRUE(isFile);
}

TEST(HttpRequest, DownloadIntoAFileThroughTheWriteFunction) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  std::string content;
  for (int i = 0; i < 200000; ++i) content += static_cast<char>('a' + i % 26);
  nginx.AddFile("big.bin", content);
  zotest::TempDir dir;
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  FILE* out = fopen(dir.File("copy.bin").c_str(), "wb");
  ASSERT_NE(out, nullptr);
  request.setWriteFunctionPointer(out, WriteToFile);
  std::string headers;
  request.setHeaderWriteFunctionPointer(&headers, CollectInto);
  CZoError e = request.download("/big.bin", kNone);
  fclose(out);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(zotest::ReadFile(dir.File("copy.bin")), content);
  EXPECT_NE(headers.find("Content-Length: 200000"), std::string::npos) << headers;
}

// ---- certificates: a server whose certificate comes from a throwaway CA ----

namespace {

class WorkDir {
public:
  explicit WorkDir(const std::string& path) {
    char buffer[4096];
    m_old = getcwd(buffer, sizeof buffer) ? buffer : "/";
    m_ok = chdir(path.c_str()) == 0;
  }
  ~WorkDir() { EXPECT_EQ(chdir(m_old.c_str()), 0); }
  bool Ok() const { return m_ok; }

private:
  std::string m_old;
  bool m_ok;
};

CZoError FetchOverTls(zotest::NginxServer& nginx, const std::string& workDir, int secured,
                      const std::string& caFile, std::string& body) {
  WorkDir here(workDir);
  EXPECT_TRUE(here.Ok());
  HttpReq request(protocolHTTPS);
  CZoError e = request.initialize(0);
  if (e.IsError()) return e;
  request.setURL("localhost");
  request.setPortNumber(std::to_string(nginx.Port()));
  if (secured == 1) e = request.setSecured(true, caFile);
  if (secured == 0) e = request.setSecured(false, caFile);
  if (e.IsError()) return e;
  request.setWriteFunctionPointer(&body, CollectInto);
  return request.download("/tls.txt", kNone);
}

}  // namespace

TEST(HttpRequest, CertificatesFromAThrowawayCA) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.tls = true;
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("tls.txt", "secret over tls");
  zotest::TempDir empty;
  zotest::TempDir withBundle;
  withBundle.Write("curl-ca-bundle.crt", zotest::ReadFile(nginx.CaFile()));

  // No bundle in the current directory: the system's store alone, which does
  // not know the CA.
  std::string body;
  CZoError e = FetchOverTls(nginx, empty.Path(), -1, "", body);
  EXPECT_TRUE(IsXnCURL(e, CURLE_PEER_FAILED_VERIFICATION)) << e.AsString();
  // The bundle in the current directory is trusted.
  body.clear();
  e = FetchOverTls(nginx, withBundle.Path(), -1, "", body);
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(body, "secret over tls");
  // setSecured with a CA file that exists.
  body.clear();
  e = FetchOverTls(nginx, empty.Path(), 1, nginx.CaFile(), body);
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(body, "secret over tls");
  // setSecured with a CA file that is not there: not handed over, so the
  // check fails against the system's store, not on a missing file.
  e = FetchOverTls(nginx, empty.Path(), 1, empty.File("missing.crt"), body);
  EXPECT_TRUE(IsXnCURL(e, CURLE_PEER_FAILED_VERIFICATION)) << e.AsString();
  // Checks off.
  body.clear();
  e = FetchOverTls(nginx, empty.Path(), 0, "", body);
  EXPECT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(body, "secret over tls");
}

// ---- a saved directory page read back ----

TEST(HttpRequest, ASavedDirectoryPageReadBack) {
  zotest::TempDir dir;
  HttpReq request;
  std::vector<FileDirInfo> entries;
  EXPECT_TRUE(request.Base().collectFilesAndDir(dir.File("none"), &entries, "").Is(IntCode(1)));
  ASSERT_FALSE(request.initialize(0).IsError());
  EXPECT_TRUE(Contains(request.Base().collectFilesAndDir(dir.File("none"), nullptr, ""),
                       "NULL pointer passed for output vector"));
  EXPECT_TRUE(Contains(request.Base().collectFilesAndDir(dir.File("none"), &entries, ""),
                       "Failed to open response file."));
  ASSERT_FALSE(request.Base().collectFilesAndDir(dir.Write("empty.html", ""), &entries, "").IsError());
  EXPECT_TRUE(entries.empty());
  ASSERT_FALSE(request.Base().collectFilesAndDir(dir.Write("nolinks.html", "<p>none</p>"), &entries, "").IsError());
  EXPECT_TRUE(entries.empty());

  std::string page =
      "<A HREF=\"/\">[To Parent Directory]</A><br>"
      "<A HREF=\"/files/sub%20dir/\">sub dir</A><br>"
      "<A HREF=\"/files/report.txt\">report.txt</A><br>"
      "<A HREF=\"/files/web.config\">web.config</A><br>"
      "<A HREF=\"/files/Web.Config\">Web.Config</A>";
  entries.push_back(FileDirInfo{"kept", 1, 0});
  ASSERT_FALSE(request.Base().collectFilesAndDir(dir.Write("page.html", page), &entries, "").IsError());
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0].m_name, "kept");
  EXPECT_EQ(entries[1].m_name, "sub dir");
  EXPECT_EQ(entries[1].m_isFile, 0);
  EXPECT_EQ(entries[2].m_name, "report.txt");
  EXPECT_EQ(entries[2].m_isFile, 1);
  EXPECT_EQ(entries[3].m_name, "Web.Config");
  EXPECT_EQ(entries[3].m_reserved, 0);

  // Without brackets the first link is compared with the parent link given.
  entries.clear();
  ASSERT_FALSE(request.Base()
                   .collectFilesAndDir(dir.Write("plain.html", "<a href=\"/up/\">up</a><a href=\"/up/x\">x</a>"),
                                       &entries, "/up/")
                   .IsError());
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].m_name, "x");

  // A bare relative name and a lone slash end the parse (the empty link text
  // is in test_listing_parsers).
  for (const char* bad : {"<a href=\"/a\">a</a><a href=\"sibling.txt\">s</a>", "<a href=\"x\">[p]</a><a href=\"/\">r</a>",
                          "<a href=\"/open"}) {
    entries.clear();
    CZoError e = request.Base().collectFilesAndDir(dir.Write("bad.html", bad), &entries, "");
    EXPECT_TRUE(e.Is(IntCode(101))) << bad << "\n" << e.AsString();
    EXPECT_TRUE(Contains(e, "Invalid HTTP Reponse. Parsing the reponse file failed.")) << bad;
  }
}
