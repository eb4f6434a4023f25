// zonet http, run as a user runs it, against nginx and a forward proxy.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Servers.h"
#include "support/TestSupport.h"

namespace {

zotest::ProgramResult Zonet(const std::vector<std::string>& args, int timeoutMs = 20000) {
  std::vector<std::string> argv = {ZONET_TOOL};
  argv.insert(argv.end(), args.begin(), args.end());
  return zotest::RunProgram(argv, timeoutMs);
}

}  // namespace

TEST(ZonetHttp, GetPutAndHeadAgainstNginx) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("hello.txt", "hello from nginx\n");
  zotest::TempDir dir;

  zotest::ProgramResult r = Zonet({"http", "get", nginx.Url("hello.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "hello from nginx\n");

  r = Zonet({"http", "get", nginx.Url("hello.txt"), "-o", dir.File("copy.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "HTTP 200, 17 bytes saved to " + dir.File("copy.txt") + "\n");
  EXPECT_EQ(zotest::ReadFile(dir.File("copy.txt")), "hello from nginx\n");

  r = Zonet({"http", "head", nginx.Url("hello.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("HTTP/1.1 200 OK"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("size: 17 bytes"), std::string::npos) << r.out;

  std::string source = dir.Write("up.txt", "sent by zonet\n");
  r = Zonet({"http", "put", source, nginx.Url("upload/up.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "HTTP 201, 14 bytes sent to " + nginx.Url("upload/up.txt") + "\n");
  EXPECT_EQ(zotest::ReadFile(nginx.Root() + "/upload/up.txt"), "sent by zonet\n");

  r = Zonet({"http", "get", nginx.Url("missing.txt")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("zonet: curl 0: the server refused the request"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("Response code from server: [404]"), std::string::npos) << r.err;
}

TEST(ZonetHttp, AProgressLineOnALongTransfer) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.extraConfig = "limit_rate 1m;";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("slow.bin", std::string(2 * 1024 * 1024, 's'));
  zotest::TempDir dir;
  zotest::ProgramResult r = Zonet({"http", "get", nginx.Url("slow.bin"), "-o", dir.File("slow.bin")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find(" MiB received, "), std::string::npos) << r.err;
  EXPECT_EQ(r.err.back(), '\n');
  EXPECT_EQ(zotest::ReadFile(dir.File("slow.bin")).size(), 2u * 1024 * 1024);
}

TEST(ZonetHttp, UserInsecureAndProxy) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  zotest::NginxServer::Options options;
  options.tls = true;
  options.user = "bob";
  options.password = "builder";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("private/p.txt", "private\n");
  nginx.AddFile("open.txt", "open\n");

  // The throwaway CA is unknown to the system: refused without --insecure.
  zotest::ProgramResult r = Zonet({"http", "get", nginx.Url("open.txt")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("zonet: curl 60: "), std::string::npos) << r.err;
  r = Zonet({"http", "get", "--insecure", nginx.Url("open.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "open\n");
  r = Zonet({"http", "get", "--insecure", nginx.Url("private/p.txt")});
  EXPECT_EQ(r.status, 1);
  r = Zonet({"http", "get", "--insecure", "--user", "bob:builder", nginx.Url("private/p.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "private\n");

  zotest::ForwardProxy proxy("pu", "pp");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  r = Zonet({"http", "get", "--insecure", "--proxy", "pu:pp@127.0.0.1:" + std::to_string(proxy.Port()),
             nginx.Url("open.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "open\n");
  std::vector<std::string> forwarded = proxy.ForwardedUrls();
  ASSERT_EQ(forwarded.size(), 1u) << proxy.Log();
  EXPECT_EQ(forwarded[0], "localhost:" + std::to_string(nginx.Port()));
}
