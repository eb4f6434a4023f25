// The request engine, its configuration and its operations, against real
// peers on loopback: nginx, a scripted HTTP peer and a forward proxy.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ZoNetwork/XnCURLError.h"
#include "curl/RequestSupport.h"
#include "support/HostsNamespace.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using namespace XnCURL;
using namespace zotest_curl;
using Reply = zotest::ScriptedHttpPeer::Reply;

namespace {

const char kSingular[] =
    "XnProtocol class is not initialized yet. Call initialize function before any other function.";
const char kPlural[] =
    "XnProtocol class is not initialized yet. Call initialize function before any other functions.";

// The curl layer's first call opens what curl keeps for the process; a test
// that counts descriptors starts after it.
void WarmUp() {
  HttpReq warm;
  ASSERT_FALSE(warm.initialize(0).IsError());
}

class CurlRequest : public ::testing::Test {
protected:
  void SetUp() override { WarmUp(); }
};

}  // namespace

// ---- lifecycle ----

TEST_F(CurlRequest, ANewObjectIsNotInitializedAndEveryCallSaysSoInItsOwnForm) {
  HttpReq request;
  EXPECT_FALSE(request.Initialized());
  EXPECT_EQ(request.getOperationType(), static_cast<operationType>(0));
  // Never initialized: no buffer yet, and still an error rather than a crash.
  CZoError e = request.download("/a", kNone);
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, kPlural));
  EXPECT_TRUE(Contains(request.doGetOperation("/a", kNone), kSingular));
  EXPECT_TRUE(Contains(request.SetTimeOut(1), kPlural));
  EXPECT_TRUE(Contains(request.SetConnectionTimeOut(1), kPlural));
  EXPECT_TRUE(Contains(request.DisableProxy(), kPlural));
  EXPECT_TRUE(Contains(request.setProyAuth(1), kPlural));
  EXPECT_TRUE(Contains(request.setSessionIDCaching(1), kPlural));
  EXPECT_TRUE(Contains(request.checkConnection(), kPlural));
  EXPECT_TRUE(Contains(request.getFilesAndDirsInfoInFile("d"), kPlural));
  EXPECT_TRUE(Contains(request.uploadFile("s", "u", 0, kNone), kPlural));
  EXPECT_TRUE(Contains(request.addFormValues("a", 4, "b"), kPlural));
  EXPECT_TRUE(Contains(request.Base().setDefaults(), kPlural));
  EXPECT_TRUE(Contains(request.setCredentials("u", "p"), kSingular));
  EXPECT_TRUE(Contains(request.setSecured(true, "x"), kSingular));
  EXPECT_TRUE(Contains(request.setProxyBypass(""), kSingular));
  EXPECT_TRUE(Contains(request.setHTTPAuth(1), kSingular));
  double size = 0;
  EXPECT_TRUE(Contains(request.getFileInfo("a", size), kSingular));
  std::string text;
  EXPECT_TRUE(Contains(request.getInfo(curlInfoPrimaryIP, text), kSingular));
  EXPECT_TRUE(Contains(request.Base().getFullWorkingURL(text), kSingular));
  int dummy = 0;
  request.setTraceCallBack(&dummy, [](void*, void*, char*, size_t, void*) { return 0; });
  EXPECT_TRUE(Contains(request.setTraceCallBack(&dummy, [](void*, void*, char*, size_t, void*) { return 0; }),
                       kPlural));
  int code = -5;
  std::string message = "x";
  request.getLastCurlErrorCodeAndErrorMsg(code, message);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(message, "");
}

TEST_F(CurlRequest, InitializeSetsTheStateAndTheStoredFlag) {
  HttpReq request;
  ASSERT_FALSE(request.initialize(7).IsError());
  EXPECT_TRUE(request.Initialized());
  EXPECT_EQ(request.getUseCAFile(), 7u);
  request.setUseCAFile(3);
  EXPECT_EQ(request.getUseCAFile(), 3u);
  // The defaults leave the kind of request at download.
  EXPECT_EQ(request.getOperationType(), opDownload);
  EXPECT_NE(request.Handle(), nullptr);
  EXPECT_FALSE(request.Base().setDefaults().IsError());
}

TEST_F(CurlRequest, TheGlobalFlagIsSetOnceAndDeinitializingLeavesIt) {
  HttpReq::initializeCurlLibrary();
  EXPECT_TRUE(HttpReq::GlobalInit());
  HttpReq::deinitializeCurlLibrary();
  EXPECT_TRUE(HttpReq::GlobalInit());
  HttpReq::initializeCurlLibrary();
  EXPECT_TRUE(HttpReq::GlobalInit());
  EXPECT_EQ(XnProtocolReq::ssl_mutex, nullptr);
}

TEST_F(CurlRequest, AnEmptyServerEndsEveryRequestBeforeCurlAndClearsCallbacksAndHeaders) {
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  request.setHeaderWriteFunctionPointer(&body, CollectInto);
  request.addRequestedHeaders("X-One", "1");
  CZoError e = request.download("/a", kNone);
  EXPECT_TRUE(e.Is(IntCode(101)));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::PrepareForRequest: URL is empty"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::SendReqest"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::download"));
  EXPECT_TRUE(request.CallbacksCleared());
  EXPECT_TRUE(request.RequestedHeaders().empty());
  EXPECT_EQ(request.LastCurlCode(), 0);
  // Every other operation ends the same way.
  EXPECT_TRUE(request.doGetOperation("/a", kNone).Is(IntCode(101)));
  EXPECT_TRUE(request.doPostOperation("/a", "text", kNone).Is(IntCode(101)));
  EXPECT_TRUE(request.doPutOperation("/a", "x", 1, kNone).Is(IntCode(101)));
  EXPECT_TRUE(request.checkConnection().Is(IntCode(101)));
}

TEST_F(CurlRequest, ARefusedResponseIsAnErrorWithCurlCodeZero) {
  zotest::ScriptedHttpPeer peer({Plain(500, "broken")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  CZoError e = request.download("/x", kNone);
  EXPECT_TRUE(IsXnCURL(e, 0));
  EXPECT_TRUE(Contains(e, "Requested Operation Failed. Return value from CURL: [0] Response code from server: [500]"));
  EXPECT_EQ(request.LastCurlCode(), 0);
  int code = 0;
  request.getLastServerResponseCode(code);
  EXPECT_EQ(code, 500);
  EXPECT_EQ(body, "broken");
}

TEST_F(CurlRequest, ACurlFailureAfterA404LeavesTheResponseCodeAt404) {
  int freePort = zotest::PickFreePort();
  zotest::ScriptedHttpPeer peer({Plain(404, "none")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  EXPECT_TRUE(request.download("/x", kNone).IsError());
  EXPECT_EQ(request.ResponseCode(), 404);
  // The server goes away: a refused connection, curl code 7.
  request.setURL("http://127.0.0.1:" + std::to_string(freePort));
  CZoError e = request.download("/x", kNone);
  EXPECT_TRUE(IsXnCURL(e, CURLE_COULDNT_CONNECT));
  EXPECT_EQ(request.ResponseCode(), 404);
  int code = 0;
  std::string message;
  request.getLastCurlErrorCodeAndErrorMsg(code, message);
  EXPECT_EQ(code, CURLE_COULDNT_CONNECT);
  EXPECT_FALSE(message.empty());
  EXPECT_TRUE(Contains(e, "CURL perform failed.Curl ErrorCode : [7], Error Message : ["));
  // checkConnection judges by that stale 404: reachable.
  EXPECT_FALSE(request.checkConnection().IsError());
  request.resetCurlErrorCodeAndErrorMsg();
  request.getLastCurlErrorCodeAndErrorMsg(code, message);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(message, "");
}

TEST_F(CurlRequest, AWriteFunctionWithoutContextRegistersNothingAndCurlsDefaultApplies) {
  zotest::ScriptedHttpPeer peer({Plain(200, "to-the-default-writer")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string out = CaptureStdout(dir.File("stdout"), [&] {
    request.setWriteFunctionPointer(nullptr, CollectInto);
    EXPECT_FALSE(request.download("/x", kNone).IsError());
  });
  EXPECT_EQ(out, "to-the-default-writer");
  EXPECT_TRUE(request.CallbacksCleared());
  // A null function with a context likewise.
  std::string body;
  out = CaptureStdout(dir.File("stdout2"), [&] {
    request.setWriteFunctionPointer(&body, nullptr);
    EXPECT_FALSE(request.download("/x", kNone).IsError());
  });
  EXPECT_EQ(out, "to-the-default-writer");
  EXPECT_EQ(body, "");
}

TEST_F(CurlRequest, AfterARequestWithCallbacksALaterBodyIsDiscardedNotWrittenToANullFile) {
  zotest::ScriptedHttpPeer peer({Plain(200, "body-one")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::TempDir dir;
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/x", kNone).IsError());
  EXPECT_EQ(body, "body-one");
  std::string out = CaptureStdout(dir.File("stdout"), [&] { EXPECT_FALSE(request.download("/x", kNone).IsError()); });
  EXPECT_EQ(out, "");
  EXPECT_EQ(body, "body-one");
}

TEST_F(CurlRequest, CommandsWithAKeyTwiceSendTheLastValueAndWinOverAddedHeaders) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  request.addRequestedHeaders("X-Same", "added");
  request.addRequestedHeaders("X-Added", "first");
  request.addRequestedHeaders("X-Added", "second");
  EXPECT_EQ(request.RequestedHeaders().size(), 2u);
  EXPECT_EQ(request.RequestedHeaders().at("X-Added"), "second");
  std::vector<commandInfo> commands = {{"X-Same", "one"}, {"X-Same", "two"}, {"A-First", "a"}};
  ASSERT_FALSE(request.doGetOperation("/h", commands).IsError());
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_EQ(Header(raw, "X-Same"), "two");
  EXPECT_EQ(Header(raw, "X-Added"), "second");
  EXPECT_EQ(raw.find("X-Same: one"), std::string::npos);
  // Headers go out in key order.
  EXPECT_LT(raw.find("A-First:"), raw.find("X-Added:"));
  EXPECT_LT(raw.find("X-Added:"), raw.find("X-Same:"));
  // Headers last one request.
  ASSERT_FALSE(request.doGetOperation("/h", kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(Header(peer.Requests()[1], "X-Same"), "<none>");
}

// ---- configuration ----

TEST_F(CurlRequest, URLEncodingKeepsSlashesAndBackslashesInPaths) {
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  std::string out;
  request.URLEncodePath("dir/sub\\name with blank", out);
  EXPECT_EQ(out, "dir/sub\\name%20with%20blank");
  request.URLEncode("dir/sub\\name with blank", out);
  EXPECT_EQ(out, "dir%2Fsub%5Cname%20with%20blank");
  request.URLDecode("a%20b%00c", out);
  EXPECT_EQ(out, "a b") << "decoded text ends at its first zero byte";
  request.URLDecodePath("x%2Fy", out);
  EXPECT_EQ(out, "x/y");
  request.URLEncode("", out);
  EXPECT_EQ(out, "");
}

TEST_F(CurlRequest, TraceNeedsBothArgumentsAndRunsWhileLoggingIsOn) {
  zotest::ScriptedHttpPeer peer({Plain(200, "b")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  auto trace = [](void*, void*, char*, size_t, void* context) {
    ++*static_cast<int*>(context);
    return 0;
  };
  CZoError e = request.setTraceCallBack(nullptr, trace);
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "Input is invalid"));
  int calls = 0;
  EXPECT_TRUE(Contains(request.setTraceCallBack(&calls, nullptr), "Input is invalid"));
  ASSERT_FALSE(request.setTraceCallBack(&calls, trace).IsError());
  request.setURL(Server(peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/t", kNone).IsError());
  EXPECT_EQ(calls, 0) << "no trace without logging";
  request.setLogging(true);
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/t", kNone).IsError());
  EXPECT_GT(calls, 0);
  request.setLogging(false);
}

TEST_F(CurlRequest, CredentialsReachTheServer) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.user = "alice";
  options.password = "wonder";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("private/secret.txt", "the secret");
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  CZoError refused = request.download("/private/secret.txt", kNone);
  EXPECT_TRUE(IsXnCURL(refused, 0));
  EXPECT_EQ(request.ResponseCode(), 401);
  // A 401 still counts as reached.
  EXPECT_FALSE(request.checkConnection().IsError());
  ASSERT_FALSE(request.setCredentials("alice", "wonder").IsError());
  ASSERT_FALSE(request.setHTTPAuth(CURLAUTH_BASIC).IsError());
  body.clear();
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/private/secret.txt", kNone).IsError());
  EXPECT_EQ(body, "the secret");
}

TEST_F(CurlRequest, RedirectsAreFollowedOnlyWhenAsked) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("target.txt", "arrived");
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  // A redirect that isn't followed counts as success.
  ASSERT_FALSE(request.download("/redirect/target.txt", kNone).IsError());
  EXPECT_EQ(request.ResponseCode(), 302);
  EXPECT_EQ(body.find("arrived"), std::string::npos);
  request.setLinkRedirects(true);
  body.clear();
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/redirect/target.txt", kNone).IsError());
  EXPECT_EQ(request.ResponseCode(), 200);
  EXPECT_EQ(body, "arrived");
  std::string url;
  request.setURLPath("/redirect/target.txt");
  ASSERT_FALSE(request.getInfo(curlInfoEffectiveURL, url).IsError());
  EXPECT_EQ(url, nginx.Url("target.txt"));
  std::string ip;
  ASSERT_FALSE(request.getInfo(curlInfoPrimaryIP, ip).IsError());
  EXPECT_TRUE(ip == "127.0.0.1" || ip == "::1") << ip;
}

TEST_F(CurlRequest, AProxyWithCredentialsTheBypassListAndDisablingIt) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("via.txt", "through");
  zotest::ForwardProxy proxy("puser", "ppass");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  ASSERT_FALSE(request.setProxyDetails("127.0.0.1", "puser", "ppass", std::to_string(proxy.Port())).IsError());
  ASSERT_FALSE(request.setProyAuth(CURLAUTH_BASIC).IsError());
  EXPECT_TRUE(request.getIsProxySet());
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/via.txt", kNone).IsError());
  EXPECT_EQ(body, "through");
  std::vector<std::string> forwarded = proxy.ForwardedUrls();
  ASSERT_EQ(forwarded.size(), 1u) << proxy.Log();
  EXPECT_EQ(forwarded[0], nginx.Url("via.txt"));

  // The local hosts bypass the proxy once a bypass list is set.
  ASSERT_FALSE(request.setProxyBypass("").IsError());
  body.clear();
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.download("/via.txt", kNone).IsError());
  EXPECT_EQ(body, "through");
  EXPECT_EQ(proxy.ForwardedUrls().size(), 1u);

  // Wrong credentials: the proxy refuses with 407.
  ASSERT_FALSE(request.setProxyBypass("other.example").IsError());  // localhost still bypasses
  ASSERT_FALSE(request.setProxyDetails("127.0.0.1", "puser", "wrong", std::to_string(proxy.Port())).IsError());
  ASSERT_FALSE(request.download("/via.txt", kNone).IsError()) << "local hosts cannot be taken out of the list";
  EXPECT_EQ(proxy.ForwardedUrls().size(), 1u);

  // Disabled: straight to the server, and the object still counts as proxied.
  ASSERT_FALSE(request.DisableProxy().IsError());
  EXPECT_TRUE(request.getIsProxySet());
  ASSERT_FALSE(request.download("/via.txt", kNone).IsError());
  EXPECT_EQ(proxy.ForwardedUrls().size(), 1u);
}

TEST_F(CurlRequest, WrongProxyCredentialsGive407) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::ForwardProxy proxy("puser", "ppass");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  ASSERT_FALSE(request.setProxyDetails("127.0.0.1", "puser", "wrong", std::to_string(proxy.Port())).IsError());
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  CZoError e = request.download("/", kNone);
  EXPECT_TRUE(IsXnCURL(e, 0)) << e.AsString();
  // tinyproxy refuses with 401 where a proxy would say 407; either is a refusal.
  EXPECT_TRUE(request.ResponseCode() == 407 || request.ResponseCode() == 401) << request.ResponseCode();
  EXPECT_TRUE(proxy.ForwardedUrls().empty());
}

TEST_F(CurlRequest, KeepAliveAndSessionCachingAndMaxTlsVersionAreAccepted) {
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  EXPECT_FALSE(request.setKeepAlive(true, 30, 10).IsError());
  EXPECT_FALSE(request.setKeepAlive(false, 5, 5).IsError());
  EXPECT_FALSE(request.setSessionIDCaching(7).IsError());
  EXPECT_FALSE(request.setMaxSSLVersion(CURL_SSLVERSION_MAX_TLSv1_3).IsError());
  EXPECT_FALSE(request.SetConnectionTimeOut(5).IsError());
  // A value curl refuses: the code is curl's, in the text its own form.
  CZoError e = request.setMaxSSLVersion(9999);
  EXPECT_TRUE(IsXnCURL(e, CURLE_BAD_FUNCTION_ARGUMENT)) << e.AsString();
  EXPECT_TRUE(Contains(e, "Failed to set option [32]. Curl Error code [43] "));
  EXPECT_EQ(request.LastCurlCode(), CURLE_BAD_FUNCTION_ARGUMENT);
  // setKeepAlive reports the code stored before, not its own option's.
  request.resetCurlErrorCodeAndErrorMsg();
  CZoError k = request.setKeepAlive(true, -1, 5);
  EXPECT_TRUE(IsXnCURL(k, 0)) << k.AsString();
  EXPECT_TRUE(Contains(k, "Failed to set option [214]"));
  EXPECT_EQ(request.LastCurlCode(), 0);
  // Other setters store what curl said.
  CZoError t = request.SetTimeOut(-1);
  EXPECT_TRUE(IsXnCURL(t, CURLE_BAD_FUNCTION_ARGUMENT));
  EXPECT_TRUE(Contains(t, "Failed to set option [13]"));
}

// ---- operations: argument checks in their order ----

TEST_F(CurlRequest, ArgumentChecksInTheirOrderWithTheirTexts) {
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL("http://127.0.0.1:1");
  struct Case {
    CZoError error;
    const char* text;
  };
  const Case cases[] = {
      {request.download(nullptr, kNone), "XnProtocolReq::download: Invalid source url."},
      {request.download("", kNone), "Invalid source url."},
      {request.uploadFile(nullptr, nullptr, 0, kNone), "XnProtocolReq::uploadFile: Invalid source file path."},
      {request.uploadFile("", "/u", 0, kNone), "Invalid source file path."},
      {request.uploadFile("/s", "", 0, kNone), "XnProtocolReq::uploadFile: Invalid URL path. "},
      {request.doPostOperation(nullptr, static_cast<const char*>(nullptr), kNone),
       "XnProtocolReq::doPostOperation: Invalid post string ."},
      {request.doPostOperation("", "text", kNone), "Invalid URL path ."},
      {request.doPostOperation(nullptr, nullptr, 3L, kNone), "Invalid post array ."},
      {request.doPostOperation("", "b", 1L, kNone), "Invalid URL path ."},
      {request.doPostOperation("/p", "b", -1L, kNone), "Invalid Buffer size."},
      {request.doGetOperation(nullptr, kNone), "XnProtocolReq::doGetOperation: Invalid URL path ."},
      {request.doPutOperation("/p", nullptr, 0L, kNone), "XnProtocolReq::doPutOperation: Invalid PUT data."},
      {request.doPutOperation(nullptr, nullptr, -1L, kNone), "Invalid PUT data."},
      {request.doPutOperation("", "b", -1L, kNone), "Invalid URL path ."},
      {request.doPutOperation("/p", "b", -1L, kNone), "Invalid Buffer size."},
      {request.doDeleteOperation("/p", nullptr, 0L, kNone), "XnProtocolReq::doDeleteOperation: Invalid DELETE data."},
      {request.doDeleteOperation("", "b", 0L, kNone), "Invalid URL path ."},
      {request.doDeleteOperation("/p", "b", -2L, kNone), "Invalid Buffer size."},
      {request.getFilesAndDirsInfoInFile(""), "Source path passed in empty"},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(c.error.Is(IntCode(1))) << c.text << "\n" << c.error.AsString();
    EXPECT_TRUE(Contains(c.error, c.text)) << c.text << "\n" << c.error.AsString();
    EXPECT_EQ(c.error.GetItemCount(), 1u) << "no request ran: " << c.error.AsString();
  }
  std::string value = "kept";
  CZoError e = request.getInfo(static_cast<CurlInfoType>(2), value);
  EXPECT_TRUE(Contains(e, "Unrecognized Curl Info type."));
  EXPECT_EQ(value, "kept");
  // Refused arguments leave the fields as they were.
  EXPECT_EQ(request.getOperationType(), opDownload);
  EXPECT_EQ(request.getURLPath(), "");
  EXPECT_EQ(request.getPostBuffer(), nullptr);
}

TEST_F(CurlRequest, RefusedArgumentsLeaveTheCallbacksForTheNextRequest) {
  zotest::ScriptedHttpPeer peer({Plain(200, "kept for later")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  EXPECT_TRUE(request.download(nullptr, kNone).IsError());
  EXPECT_FALSE(request.CallbacksCleared());
  ASSERT_FALSE(request.download("/x", kNone).IsError());
  EXPECT_EQ(body, "kept for later");
}

TEST_F(CurlRequest, OperationsFillTheFieldsTheyName) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  const char buffer[] = "put-body";
  ASSERT_FALSE(request.doPutOperation("/u/p", buffer, 8, kNone).IsError());
  EXPECT_EQ(request.getOperationType(), opCustomRequest);
  EXPECT_EQ(request.getOperationName(), "PUT");
  EXPECT_EQ(request.getPostBuffer(), buffer);
  EXPECT_EQ(request.getDataSizeInBytes(), 8);
  EXPECT_EQ(request.getURLPath(), "/u/p");
  ASSERT_FALSE(request.doPostOperation("/s", "a=b", kNone).IsError());
  EXPECT_EQ(request.getOperationType(), opPostString);
  EXPECT_EQ(request.getPostString(), "a=b");
  ASSERT_FALSE(request.uploadFile("/local/file.bin", "/up", 12, kNone).IsError());
  EXPECT_EQ(request.getOperationType(), opUpload);
  EXPECT_EQ(request.getSourceFile(), "/local/file.bin");
  EXPECT_EQ(request.getDataSizeInBytes(), 12);
  ASSERT_FALSE(request.doGetOperation("/g", kNone).IsError());
  EXPECT_EQ(request.getOperationType(), opGet);
}

TEST_F(CurlRequest, PostWithANullBufferAndSizeZeroPostsNothing) {
  zotest::ScriptedHttpPeer peer({Plain(200)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  ASSERT_FALSE(request.doPostOperation("/p", nullptr, 0L, kNone).IsError());
  ASSERT_TRUE(peer.WaitForRequests(1));
  std::string raw = peer.Requests()[0];
  EXPECT_EQ(RequestLine(raw), "POST /p HTTP/1.1");
  EXPECT_EQ(Header(raw, "Content-Length"), "0");
  EXPECT_EQ(Body(raw), "");
}

TEST_F(CurlRequest, PutAndDeleteThroughDav) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  const std::string content = "stored by PUT";
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.doPutOperation("/upload/put.txt", content.data(), static_cast<long>(content.size()), kNone)
                   .IsError());
  EXPECT_EQ(request.ResponseCode(), 201);
  EXPECT_EQ(zotest::ReadFile(nginx.Root() + "/upload/put.txt"), content);
  const char none[] = "";
  ASSERT_FALSE(request.doDeleteOperation("/upload/put.txt", none, 0L, kNone).IsError());
  EXPECT_EQ(request.ResponseCode(), 204);
  EXPECT_NE(access((nginx.Root() + "/upload/put.txt").c_str(), F_OK), 0);
}

TEST_F(CurlRequest, CheckConnectionCountsRefusalsAsReached) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  for (int status : {401, 403, 404, 405}) {
    request.setURLPath("/status/" + std::to_string(status));
    CZoError e = request.checkConnection();
    EXPECT_FALSE(e.IsError()) << status << " " << e.AsString();
    EXPECT_EQ(request.ResponseCode(), status);
  }
  request.setURLPath("/status/500");
  CZoError e = request.checkConnection();
  EXPECT_TRUE(IsXnCURL(e, 0));
  EXPECT_EQ(e.GetItemCount(), 2u) << "returned as it stands, no location of its own: " << e.AsString();
  request.setURLPath("/");
  EXPECT_FALSE(request.checkConnection().IsError());
  EXPECT_EQ(request.getOperationType(), opCheck);
}

TEST_F(CurlRequest, FileInfoGivesTheSizeOrRefusesAnUnknownOne) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("sized.bin", std::string(12345, 'z'));
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  double size = -1;
  ASSERT_FALSE(request.getFileInfo("/sized.bin", size).IsError());
  EXPECT_EQ(size, 12345.0);
  EXPECT_EQ(request.getOperationType(), opFileInfo);

  zotest::ScriptedHttpPeer peer({Plain(200, "", {}), [] {
                                   Reply r;
                                   r.raw = "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n";
                                   return r;
                                 }()});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  request.setURL(Server(peer.Port()));
  size = -1;
  ASSERT_FALSE(request.getFileInfo("/first", size).IsError());  // Content-Length: 0
  EXPECT_EQ(size, 0.0);
  double unknown = 42;
  CZoError e = request.getFileInfo("/nolength", unknown);
  EXPECT_TRUE(IsXnCURL(e, 0)) << e.AsString();
  EXPECT_TRUE(Contains(e, "File size recieved from server is invalid"));
  EXPECT_EQ(unknown, 42.0);
  ASSERT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(RequestLine(peer.Requests()[1]), "HEAD /nolength HTTP/1.1");
}

TEST_F(CurlRequest, ExistenceOfFilesAndDirectories) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("dir/file.txt", "f");
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  bool exists = false;
  ASSERT_FALSE(request.checkIfFileOrDirExists("/dir/file.txt", true, exists).IsError());
  EXPECT_TRUE(exists);
  exists = true;
  ASSERT_FALSE(request.checkIfFileOrDirExists("/dir/missing.txt", true, exists).IsError());
  EXPECT_FALSE(exists);
  ASSERT_FALSE(request.checkIfFileOrDirExists("/dir", false, exists).IsError());
  EXPECT_TRUE(exists);
  ASSERT_FALSE(request.checkIfFileOrDirExists("/nodir", false, exists).IsError());
  EXPECT_FALSE(exists);

  // After a clean request, an empty server: the preparation fails, no curl
  // code and no 404, so the directory "exists".
  ASSERT_FALSE(request.checkIfFileOrDirExists("/dir", false, exists).IsError());
  request.setURL("");
  exists = false;
  ASSERT_FALSE(request.checkIfFileOrDirExists("/dir", false, exists).IsError());
  EXPECT_TRUE(exists);

  // A connection failure: the file branch fails.
  request.setURL("http://127.0.0.1:" + std::to_string(zotest::PickFreePort()));
  CZoError e = request.checkIfFileOrDirExists("/dir/file.txt", true, exists);
  EXPECT_TRUE(e.Is(IntCode(1)));
  EXPECT_TRUE(Contains(e, "Failed to check if File exists.Error Code : [7]. Error Message ["));
  e = request.checkIfFileOrDirExists("/dir", false, exists);
  EXPECT_TRUE(Contains(e, "Failed to check if Directory exists. Error Code : [7]. Error Message ["));
}

TEST_F(CurlRequest, ADirectoryThatAnswers403Or500ExistsAllTheSame) {
  zotest::ScriptedHttpPeer peer({Plain(403), Plain(500), Plain(404)});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  bool exists = false;
  ASSERT_FALSE(request.checkIfFileOrDirExists("/d", false, exists).IsError());
  EXPECT_TRUE(exists);
  exists = false;
  ASSERT_FALSE(request.checkIfFileOrDirExists("/d", false, exists).IsError());
  EXPECT_TRUE(exists);
  ASSERT_FALSE(request.checkIfFileOrDirExists("/d", false, exists).IsError());
  EXPECT_FALSE(exists);
  ASSERT_TRUE(peer.WaitForRequests(3));
  EXPECT_EQ(RequestLine(peer.Requests()[0]), "HEAD /d/ HTTP/1.1");
}

TEST_F(CurlRequest, GetInfoOnA404FailsAndGivesNoValue) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, nginx.Port()));
  request.setURLPath("/missing");
  std::string value = "untouched";
  CZoError e = request.getInfo(curlInfoEffectiveURL, value);
  EXPECT_TRUE(IsXnCURL(e, 0));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::SendReqest"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::getInfo"));
  EXPECT_EQ(value, "untouched");
}

TEST_F(CurlRequest, AListingPathGetsOneSlash) {
  zotest::ScriptedHttpPeer peer({Plain(200, "<html></html>")});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  HttpReq request;
  ASSERT_TRUE(Aimed(request, peer.Port()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.getFilesAndDirsInfoInFile("/dir").IsError());
  request.setWriteFunctionPointer(&body, CollectInto);
  ASSERT_FALSE(request.getFilesAndDirsInfoInFile("/dir/").IsError());
  ASSERT_TRUE(peer.WaitForRequests(2));
  EXPECT_EQ(RequestLine(peer.Requests()[0]), "GET /dir/ HTTP/1.1");
  EXPECT_EQ(RequestLine(peer.Requests()[1]), "GET /dir/ HTTP/1.1");
  EXPECT_EQ(request.getOperationType(), opList);
}

// ---- faults: each gives its error chain, and nothing is left open ----

TEST_F(CurlRequest, APeerThatClosesMidBody) {
  Reply cut;
  cut.raw = zotest::ScriptedHttpPeer::Response(200, "OK", {}, std::string(10000, 'c'));
  cut.cutAfter = 3000;
  zotest::ScriptedHttpPeer peer({cut});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  {
    HttpReq request;
    ASSERT_TRUE(Aimed(request, peer.Port()));
    std::string body;
    request.setWriteFunctionPointer(&body, CollectInto);
    CZoError e = request.download("/cut", kNone);
    EXPECT_TRUE(IsXnCURL(e, CURLE_PARTIAL_FILE)) << e.AsString();
    ASSERT_EQ(e.GetItemCount(), 3u) << e.AsString();
    EXPECT_NE(e.GetItem(0)->AsString().find("XnProtocolReq::Execute/XnCURL.18.0x12-CURL perform failed."),
              std::string::npos);
    EXPECT_EQ(e.GetItem(1)->AsString(), "XnProtocolReq::SendReqest");
    EXPECT_EQ(e.GetItem(2)->AsString(), "XnProtocolReq::download");
    EXPECT_LT(body.size(), 10000u);
  }
}

TEST_F(CurlRequest, APeerThatStallsPastTheTimeOut) {
  Reply stall;
  stall.stall = true;
  zotest::ScriptedHttpPeer peer({stall});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::FdLeakCheck leaks;
  {
    HttpReq request;
    ASSERT_FALSE(request.initialize(0).IsError());
    ASSERT_FALSE(request.SetTimeOut(1).IsError());
    request.setURL(Server(peer.Port()));
    std::string body;
    request.setWriteFunctionPointer(&body, CollectInto);
    CZoError e = request.download("/stall", kNone);
    EXPECT_TRUE(IsXnCURL(e, CURLE_OPERATION_TIMEDOUT)) << e.AsString();
    EXPECT_TRUE(Contains(e, "CURL perform failed.Curl ErrorCode : [28], Error Message : [Operation timed out"));
    EXPECT_TRUE(Contains(e, "XnProtocolReq::download"));
  }
}

TEST_F(CurlRequest, ARefusedConnection) {
  zotest::FdLeakCheck leaks;
  HttpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL("127.0.0.1");
  request.setPortNumber(std::to_string(zotest::PickFreePort()));
  std::string body;
  request.setWriteFunctionPointer(&body, CollectInto);
  CZoError e = request.download("/x", kNone);
  EXPECT_TRUE(IsXnCURL(e, CURLE_COULDNT_CONNECT)) << e.AsString();
  EXPECT_EQ(GetXnCURL(e), 7);
  EXPECT_TRUE(Contains(e, "XnProtocolReq::download"));
}

TEST_F(CurlRequest, AnUnresolvableNameFromTheTestsOwnHostsFile) {
  ZOTEST_REQUIRE_HOSTS_NAMESPACE();
  int status = zotest::RunWithHostsFile("127.0.0.1 known.test\n", [] {
    {
      HttpReq warm;  // what curl opens once for the process
      ZOTEST_CHILD_CHECK(!warm.initialize(0).IsError());
    }
    const std::vector<int> before = zotest::OpenDescriptors();
    {
      HttpReq request;
      ZOTEST_CHILD_CHECK(!request.initialize(0).IsError());
      request.setURL("unknown.test");
      std::string body;
      request.setWriteFunctionPointer(&body, CollectInto);
      CZoError e = request.download("/x", kNone);
      if (!IsXnCURL(e, CURLE_COULDNT_RESOLVE_HOST)) fprintf(stderr, "%s\n", e.AsString().c_str());
      ZOTEST_CHILD_CHECK(IsXnCURL(e, CURLE_COULDNT_RESOLVE_HOST));
      ZOTEST_CHILD_CHECK(e.AsString().find("XnProtocolReq::download") != std::string::npos);
    }
    ZOTEST_CHILD_CHECK(zotest::OpenDescriptors() == before);
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(CurlRequest, NothingIsLeftOpenAfterRequestsOnNginx) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("a.txt", "aaa");
  zotest::FdLeakCheck leaks;
  {
    HttpReq request;
    ASSERT_TRUE(Aimed(request, nginx.Port()));
    for (int i = 0; i < 5; ++i) {
      std::string body;
      request.setWriteFunctionPointer(&body, CollectInto);
      ASSERT_FALSE(request.download("/a.txt", kNone).IsError());
      EXPECT_EQ(body, "aaa");
    }
  }
}
