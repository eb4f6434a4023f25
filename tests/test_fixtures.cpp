// The test peers themselves: each fixture starts, serves what it should over
// loopback, and leaves nothing running. The checks use plain sockets and the
// curl command-line tool, never the library, so that a fault here is the
// fixture's.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/Servers.h"
#include "support/TestSupport.h"

namespace {

using zotest::ProgramResult;
using zotest::RunProgram;

// curl against loopback only: no proxy from the environment, no config file.
ProgramResult Curl(std::vector<std::string> args) {
  std::vector<std::string> argv{"curl", "-q", "--silent", "--show-error", "--max-time", "10"};
  bool proxied = false;
  for (const std::string& arg : args) proxied = proxied || arg == "--proxy";
  if (!proxied) {
    argv.push_back("--noproxy");
    argv.push_back("*");
  }
  argv.insert(argv.end(), args.begin(), args.end());
  return RunProgram(argv, 15000);
}

// The status code curl saw, from -w.
std::string CurlStatus(std::vector<std::string> args) {
  args.insert(args.begin(), {"--output", "/dev/null", "--write-out", "%{http_code}"});
  ProgramResult run = Curl(args);
  return run.out;
}

int ConnectLoopback(int port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

bool SendAll(int fd, const std::string& data) {
  size_t done = 0;
  while (done < data.size()) {
    ssize_t sent = send(fd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    done += static_cast<size_t>(sent);
  }
  return true;
}

// Everything the peer sends until it closes.
std::string ReadToEnd(int fd) {
  timeval limit{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  std::string all;
  char buffer[4096];
  ssize_t got;
  while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) all.append(buffer, static_cast<size_t>(got));
  return all;
}

// The machinery under every fixture: a child and everything it starts end
// with Stop(), reaped, and a child past its lifetime is killed.
TEST(Fixtures, ChildProcessStopEndsTheWholeTree) {
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  std::string pids = dir.File("pids");
  zotest::ChildProcess child;
  // A shell that starts two sleepers and writes their pids, then waits.
  ASSERT_TRUE(child.Start({"/bin/sh", "-c", "sleep 30 & echo $! > " + pids + ".tmp; sleep 30 & echo $! >> " + pids +
                                                ".tmp; mv " + pids + ".tmp " + pids + "; wait"},
                          dir.File("log")))
      << child.Error();
  std::vector<pid_t> sleepers;
  for (int i = 0; i < 500 && sleepers.empty(); ++i) {
    std::string text = zotest::ReadFile(pids);
    for (size_t at = 0; at < text.size();) {
      size_t end = text.find('\n', at);
      if (end == std::string::npos) break;
      sleepers.push_back(atoi(text.substr(at, end - at).c_str()));
      at = end + 1;
    }
    if (sleepers.empty()) usleep(10000);
  }
  ASSERT_EQ(sleepers.size(), 2u);
  EXPECT_TRUE(child.Running());
  child.Stop(2000);
  EXPECT_FALSE(child.Running());
  for (pid_t pid : sleepers) {
    EXPECT_NE(access(("/proc/" + std::to_string(pid)).c_str(), F_OK), 0) << "sleeper " << pid << " outlived Stop()";
  }
}

TEST(Fixtures, ChildProcessPastItsLifetimeIsKilled) {
  zotest::TempDir dir;
  zotest::ChildProcess child;
  ASSERT_TRUE(child.Start({"/bin/sleep", "30"}, dir.File("log"), nullptr, 1)) << child.Error();
  for (int i = 0; i < 300 && child.Running(); ++i) usleep(10000);
  EXPECT_FALSE(child.Running());
  EXPECT_EQ(child.HowItEnded(), "killed by signal 9");
}

TEST(Fixtures, AServerThatCannotStartSaysWhy) {
  ZOTEST_REQUIRE_TOOL("nginx");
  zotest::NginxServer::Options options;
  options.extraConfig = "    no_such_directive on;";
  zotest::NginxServer nginx(options);
  EXPECT_FALSE(nginx.Ok());
  EXPECT_NE(nginx.Reason().find("unknown directive \"no_such_directive\""), std::string::npos) << nginx.Reason();
}

TEST(Fixtures, NginxServesAFileOverHttp) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("hello.txt", "hello over http\n");
  ProgramResult got = Curl({"--fail", nginx.Url("hello.txt")});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_EQ(got.out, "hello over http\n");
  EXPECT_TRUE(nginx.WaitForAccessLog("\"GET /hello.txt HTTP/1.1\" 200")) << nginx.AccessLog();
  EXPECT_EQ(CurlStatus({nginx.Url("missing.txt")}), "404");
  // The extras for redirects and odd statuses.
  EXPECT_EQ(CurlStatus({nginx.Url("redirect/hello.txt")}), "302");
  EXPECT_EQ(Curl({"--location", nginx.Url("redirect/hello.txt")}).out, "hello over http\n");
  EXPECT_EQ(CurlStatus({nginx.Url("status/405")}), "405");
}

TEST(Fixtures, NginxServesOverHttpsWithTheThrowawayCa) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("openssl");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::NginxServer::Options options;
  options.tls = true;
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  EXPECT_EQ(nginx.Url("a").substr(0, 8), "https://");
  nginx.AddFile("secret.txt", "over tls\n");
  // Trusted through the CA, by name and by address.
  ProgramResult got = Curl({"--fail", "--cacert", nginx.CaFile(), nginx.Url("secret.txt")});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_EQ(got.out, "over tls\n");
  got = Curl({"--fail", "--cacert", nginx.CaFile(),
              "https://127.0.0.1:" + std::to_string(nginx.Port()) + "/secret.txt"});
  EXPECT_EQ(got.status, 0) << got.err;
  // Not trusted by the system's store: curl's code 60 (peer certificate cannot be authenticated).
  got = Curl({nginx.Url("secret.txt")});
  EXPECT_EQ(got.status, 60) << got.err;
}

TEST(Fixtures, NginxBasicAuthRefusesThenAccepts) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::NginxServer::Options options;
  options.user = "alice";
  options.password = "s3cret";
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("private/p.txt", "members only\n");
  nginx.AddFile("open.txt", "anyone\n");
  EXPECT_EQ(CurlStatus({nginx.Url("private/p.txt")}), "401");
  EXPECT_EQ(CurlStatus({"--user", "alice:wrong", nginx.Url("private/p.txt")}), "401");
  EXPECT_EQ(Curl({"--fail", "--user", "alice:s3cret", nginx.Url("private/p.txt")}).out, "members only\n");
  EXPECT_EQ(CurlStatus({nginx.Url("open.txt")}), "200");
}

TEST(Fixtures, NginxStoresAPutAndDeletesIt) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::TempDir local;
  std::string source = local.Write("up.bin", std::string(100000, 'x') + "end");
  EXPECT_EQ(CurlStatus({"--upload-file", source, nginx.Url("upload/deep/er/up.bin")}), "201");
  EXPECT_EQ(zotest::ReadFile(nginx.Root() + "/upload/deep/er/up.bin"), std::string(100000, 'x') + "end");
  EXPECT_EQ(CurlStatus({"--request", "DELETE", nginx.Url("upload/deep/er/up.bin")}), "204");
  EXPECT_NE(access((nginx.Root() + "/upload/deep/er/up.bin").c_str(), F_OK), 0);
  // Outside /upload/ nothing is written.
  EXPECT_EQ(CurlStatus({"--upload-file", source, nginx.Url("up.bin")}), "405");
}

TEST(Fixtures, NginxServesALargePatternFile) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  const uint64_t size = 5 * 1024 * 1024 + 3;
  ASSERT_FALSE(nginx.AddPatternFile("big/file.bin", size).empty());
  ProgramResult got = Curl({"--fail", nginx.Url("big/file.bin")});
  ASSERT_EQ(got.status, 0) << got.err;
  ASSERT_EQ(got.out.size(), size);
  EXPECT_TRUE(got.out == zotest::PatternBytes(0, size));
  EXPECT_EQ(got.out.substr(4096 * 1000, 300), zotest::PatternBytes(4096 * 1000, 300));
  // Not a short repetition: two blocks a page apart differ.
  EXPECT_NE(zotest::PatternBytes(0, 256), zotest::PatternBytes(4096, 256));
  // A range, as a resumed download asks.
  got = Curl({"--fail", "--range", "1000-1099", nginx.Url("big/file.bin")});
  EXPECT_EQ(got.out, zotest::PatternBytes(1000, 100));
}

TEST(Fixtures, NginxWithoutDavRefusesPut) {
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::NginxServer::Options options;
  options.dav = false;
  zotest::NginxServer nginx(options);
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  zotest::TempDir local;
  EXPECT_EQ(CurlStatus({"--upload-file", local.Write("f", "x"), nginx.Url("upload/f")}), "405");
}

TEST(Fixtures, NginxStopsAndFreesItsPort) {
  ZOTEST_REQUIRE_TOOL("nginx");
  int port = 0;
  {
    zotest::NginxServer nginx({});
    ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
    port = nginx.Port();
    EXPECT_TRUE(zotest::PortAccepts(port));
  }
  EXPECT_FALSE(zotest::PortAccepts(port));
}

TEST(Fixtures, ScriptedPeerRecordsTheRequestAndSendsItsReplyByteForByte) {
  ZOTEST_REQUIRE_TOOL("python3");
  zotest::FdLeakCheck leaks;
  const std::string reply = "HTTP/1.1 299 Odd\r\nX-B: 2\r\nx-a:1\r\nContent-Length: 3\r\n\r\nabc";
  zotest::ScriptedHttpPeer peer({{reply}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  const std::string request = "POST /form?x=1 HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\nhello";
  int fd = ConnectLoopback(peer.Port());
  ASSERT_GE(fd, 0);
  ASSERT_TRUE(SendAll(fd, request));
  EXPECT_EQ(ReadToEnd(fd), reply);
  close(fd);
  std::vector<std::string> seen = peer.Requests();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0], request);
  EXPECT_EQ(peer.Connections(), 1);
}

TEST(Fixtures, ScriptedPeerFollowsItsScript) {
  ZOTEST_REQUIRE_TOOL("python3");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  using Peer = zotest::ScriptedHttpPeer;
  Peer::Reply first{Peer::Response(200, "OK", {"X-First: 1"}, "one")};
  first.closeAfter = false;
  Peer::Reply cut{Peer::Response(200, "OK", {}, "0123456789")};
  cut.cutAfter = cut.raw.size() - 4;
  Peer::Reply stall;
  stall.stall = true;
  Peer peer({first, first, cut, stall});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  // Two requests on one kept connection, chunked upload included.
  ProgramResult got = Curl({peer.Url("a"), "--next", "--header", "Transfer-Encoding: chunked", "--data-binary",
                            "xyz", peer.Url("b")});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_EQ(got.out, "oneone");
  EXPECT_EQ(peer.Connections(), 1);
  // The third is cut short of its body: curl's code 18 (partial file).
  got = Curl({peer.Url("c")});
  EXPECT_EQ(got.status, 18) << got.err;
  EXPECT_EQ(got.out, "012345");
  // The fourth never gets an answer: curl's code 28 (timed out).
  got = Curl({"--max-time", "0.5", peer.Url("d")});
  EXPECT_EQ(got.status, 28) << got.err;
  std::vector<std::string> seen = peer.Requests();
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0].substr(0, 17), "GET /a HTTP/1.1\r\n");
  EXPECT_EQ(seen[1].substr(0, 18), "POST /b HTTP/1.1\r\n");
  EXPECT_NE(seen[1].find("\r\n\r\n3\r\nxyz\r\n0\r\n\r\n"), std::string::npos) << seen[1];
  EXPECT_EQ(seen[3].substr(0, 17), "GET /d HTTP/1.1\r\n");
}

TEST(Fixtures, ScriptedPeerDelaysItsReply) {
  ZOTEST_REQUIRE_TOOL("python3");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::ScriptedHttpPeer::Reply late{zotest::ScriptedHttpPeer::Response(200, "OK", {}, "late")};
  late.delayMs = 800;
  zotest::ScriptedHttpPeer peer({late});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  EXPECT_EQ(Curl({"--max-time", "0.3", peer.Url("x")}).status, 28);
  EXPECT_EQ(Curl({"--max-time", "5", peer.Url("x")}).out, "late");
}

TEST(Fixtures, ProxyForwardsWithAuthAndRefusesWithout) {
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  ZOTEST_REQUIRE_TOOL("nginx");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::NginxServer nginx({});
  ASSERT_TRUE(nginx.Ok()) << nginx.Reason();
  nginx.AddFile("via.txt", "through the proxy\n");
  zotest::ForwardProxy proxy("bob", "pr0xy");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  // Without credentials: 407; with wrong ones tinyproxy answers 401. Neither
  // reaches nginx.
  EXPECT_EQ(CurlStatus({"--proxy", proxy.Url(), nginx.Url("refused.txt")}), "407");
  EXPECT_EQ(CurlStatus({"--proxy", proxy.Url(), "--proxy-user", "bob:wrong", nginx.Url("refused.txt")}), "401");
  ProgramResult got = Curl({"--fail", "--proxy", proxy.Url(), "--proxy-user", "bob:pr0xy", nginx.Url("via.txt")});
  EXPECT_EQ(got.status, 0) << got.err << proxy.Log();
  EXPECT_EQ(got.out, "through the proxy\n");
  // A tunnel too.
  got = Curl({"--fail", "--proxytunnel", "--proxy", proxy.Url(), "--proxy-user", "bob:pr0xy", nginx.Url("via.txt")});
  EXPECT_EQ(got.status, 0) << got.err << proxy.Log();
  EXPECT_TRUE(nginx.WaitForAccessLog("/via.txt"));
  EXPECT_EQ(nginx.AccessLog().find("refused.txt"), std::string::npos);
  std::vector<std::string> expected{nginx.Url("via.txt"), "localhost:" + std::to_string(nginx.Port())};
  EXPECT_EQ(proxy.ForwardedUrls(), expected) << proxy.Log();
}

TEST(Fixtures, ProxyWithoutAUserTakesAnyone) {
  ZOTEST_REQUIRE_TOOL("tinyproxy");
  ZOTEST_REQUIRE_TOOL("python3");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::ScriptedHttpPeer peer({{zotest::ScriptedHttpPeer::Response(200, "OK", {}, "direct")}});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::ForwardProxy proxy("", "");
  ASSERT_TRUE(proxy.Ok()) << proxy.Reason();
  EXPECT_EQ(Curl({"--proxy", proxy.Url(), peer.Url("open")}).out, "direct");
  EXPECT_EQ(proxy.ForwardedUrls(), std::vector<std::string>{peer.Url("open")}) << proxy.Log();
  // The peer sees the proxy's request, in origin form.
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(peer.Requests()[0].substr(0, 20), "GET /open HTTP/1.1\r\n");
}

TEST(Fixtures, ThrowawayCaSignsForLocalhost) {
  ZOTEST_REQUIRE_TOOL("openssl");
  zotest::ThrowawayCA ca;
  ASSERT_TRUE(ca.Ok()) << ca.Reason();
  ProgramResult verify = RunProgram({"openssl", "verify", "-CAfile", ca.CaFile(), "-verify_hostname", "localhost",
                                     "-verify_ip", "127.0.0.1", ca.CertFile()});
  EXPECT_EQ(verify.status, 0) << verify.out << verify.err;
  verify = RunProgram({"openssl", "verify", "-CAfile", ca.CaFile(), "-verify_hostname", "example.org", ca.CertFile()});
  EXPECT_NE(verify.status, 0);
}

TEST(Fixtures, FtpListsAFileAnonymouslyAndForTheLogin) {
  ZOTEST_REQUIRE_TOOL("vsftpd");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::FtpServer ftp({});
  ASSERT_TRUE(ftp.Ok()) << ftp.Reason();
  ftp.AddFile("pub/hello.txt", "hello over ftp\n");
  ProgramResult got = Curl({"--list-only", ftp.Url("pub/")});
  EXPECT_EQ(got.status, 0) << got.err << ftp.Log();
  EXPECT_EQ(got.out, "hello.txt\n");
  got = Curl({"--user", "tester:secret", ftp.Url("pub/hello.txt")});
  EXPECT_EQ(got.status, 0) << got.err << ftp.Log();
  EXPECT_EQ(got.out, "hello over ftp\n");
  // Active mode too: the server connects back to the client.
  got = Curl({"--user", "tester:secret", "--ftp-port", "127.0.0.1", ftp.Url("pub/hello.txt")});
  EXPECT_EQ(got.status, 0) << got.err << ftp.Log();
  EXPECT_EQ(got.out, "hello over ftp\n");
  // A wrong password: curl's code 67 (login denied).
  EXPECT_EQ(Curl({"--user", "tester:wrong", ftp.Url("pub/")}).status, 67);
  // The login may write anywhere in its tree, folders included.
  zotest::TempDir local;
  got = Curl({"--user", "tester:secret", "--ftp-create-dirs", "--upload-file", local.Write("up.txt", "stored"),
              ftp.Url("new/dir/up.txt")});
  EXPECT_EQ(got.status, 0) << got.err << ftp.Log();
  EXPECT_EQ(zotest::ReadFile(ftp.Root() + "/new/dir/up.txt"), "stored");
  EXPECT_NE(ftp.Log().find("OK UPLOAD"), std::string::npos) << ftp.Log();
  // Anonymous writes in upload/ only.
  EXPECT_EQ(Curl({"--upload-file", local.Write("anon.txt", "a"), ftp.Url("upload/anon.txt")}).status, 0);
  EXPECT_EQ(zotest::ReadFile(ftp.Root() + "/upload/anon.txt"), "a");
  EXPECT_EQ(Curl({"--upload-file", local.Write("anon.txt", "a"), ftp.Url("anon.txt")}).status, 25);
}

TEST(Fixtures, FtpsNeedsTlsForTheLoginAndVerifiesWithTheCa) {
  ZOTEST_REQUIRE_TOOL("vsftpd");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FtpServer::Options options;
  options.tls = true;
  zotest::FtpServer ftp(options);
  ASSERT_TRUE(ftp.Ok()) << ftp.Reason();
  ftp.AddFile("secret.txt", "ftps\n");
  ProgramResult got = Curl({"--ssl-reqd", "--cacert", ftp.CaFile(), "--user", "tester:secret", ftp.Url("secret.txt")});
  EXPECT_EQ(got.status, 0) << got.err << ftp.Log();
  EXPECT_EQ(got.out, "ftps\n");
  // Without TLS the login is refused.
  EXPECT_EQ(Curl({"--user", "tester:secret", ftp.Url("secret.txt")}).status, 67);
}

TEST(Fixtures, FtpsImplicit) {
  ZOTEST_REQUIRE_TOOL("vsftpd");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FtpServer::Options options;
  options.implicitTls = true;
  zotest::FtpServer ftp(options);
  ASSERT_TRUE(ftp.Ok()) << ftp.Reason();
  EXPECT_EQ(ftp.Url("x").substr(0, 7), "ftps://");
  ftp.AddFile("i.txt", "implicit\n");
  ProgramResult got = Curl({"--cacert", ftp.CaFile(), "--user", "tester:secret", ftp.Url("i.txt")});
  EXPECT_EQ(got.status, 0) << got.err << ftp.Log();
  EXPECT_EQ(got.out, "implicit\n");
}

TEST(Fixtures, SshdAcceptsTheKeyAndThePassword) {
  ZOTEST_REQUIRE_TOOL("sshd");
  ZOTEST_REQUIRE_TOOL("curl");
  zotest::FdLeakCheck leaks;
  zotest::SshServer sshd({});
  ASSERT_TRUE(sshd.Ok()) << sshd.Reason();
  sshd.AddFile("hello.txt", "hello over sftp\n");
  // The key, with the host checked by its fingerprint.
  ProgramResult got = Curl({"--user", "tester:", "--key", sshd.ClientKeyFile(), "--pubkey", sshd.ClientPublicKeyFile(),
                            "--hostpubsha256", sshd.HostKeySha256(), sshd.Url("hello.txt")});
  EXPECT_EQ(got.status, 0) << got.err << sshd.Log();
  EXPECT_EQ(got.out, "hello over sftp\n");
  // The password; the home folder is Root().
  got = Curl({"--user", "tester:secret", "--hostpubmd5", sshd.HostKeyMd5(),
              "sftp://localhost:" + std::to_string(sshd.Port()) + "/~/hello.txt"});
  EXPECT_EQ(got.status, 0) << got.err << sshd.Log();
  EXPECT_EQ(got.out, "hello over sftp\n");
  // A key it does not know, and a wrong password: curl's code 67 (login denied).
  EXPECT_EQ(Curl({"--user", "tester:", "--key", sshd.StrangerKeyFile(), "--insecure", sshd.Url("hello.txt")}).status,
            67);
  EXPECT_EQ(Curl({"--user", "tester:wrong", "--insecure", sshd.Url("hello.txt")}).status, 67);
  // The OpenSSH client with the Ed25519 key and the known_hosts file.
  ProgramResult sftp = RunProgram({"sftp", "-q", "-b", "-", "-i", sshd.ClientEd25519KeyFile(), "-o", "BatchMode=yes",
                                   "-o", "UserKnownHostsFile=" + sshd.KnownHostsFile(), "-o", "GlobalKnownHostsFile=/dev/null",
                                   "-o", "StrictHostKeyChecking=yes", "-F", "/dev/null", "-P",
                                   std::to_string(sshd.Port()), "tester@localhost:" + sshd.Root() + "/hello.txt",
                                   sshd.Root() + "/copy.txt"});
  EXPECT_EQ(sftp.status, 0) << sftp.err << sshd.Log();
  EXPECT_EQ(zotest::ReadFile(sshd.Root() + "/copy.txt"), "hello over sftp\n");
}

}  // namespace
