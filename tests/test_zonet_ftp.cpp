// zonet ftp, zonet sftp and zonet http ls, run as a user runs them, against
// vsftpd, sshd and the scripted HTTP peer.
#include <gtest/gtest.h>

#include <algorithm>
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

std::string Sorted(const std::string& lines) {
  std::vector<std::string> all;
  size_t at = 0;
  for (size_t end; (end = lines.find('\n', at)) != std::string::npos; at = end + 1) all.push_back(lines.substr(at, end - at));
  std::sort(all.begin(), all.end());
  std::string out;
  for (const std::string& line : all) out += line + "\n";
  return out;
}

}  // namespace

TEST(ZonetFtp, GetPutAndLsAgainstVsftpd) {
  ZOTEST_REQUIRE_TOOL("vsftpd");
  zotest::FtpServer ftp({});
  ASSERT_TRUE(ftp.Ok()) << ftp.Reason();
  ftp.AddFile("pub/hello.txt", "hello over ftp\n");
  ftp.AddDir("pub/sub");
  zotest::TempDir dir;

  zotest::ProgramResult r = Zonet({"ftp", "get", ftp.Url("pub/hello.txt"), "--user", "tester:secret"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "hello over ftp\n");
  r = Zonet({"ftp", "get", "--active", ftp.Url("pub/hello.txt"), "-o", dir.File("copy.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "15 bytes saved to " + dir.File("copy.txt") + "\n");
  EXPECT_EQ(zotest::ReadFile(dir.File("copy.txt")), "hello over ftp\n");

  r = Zonet({"ftp", "ls", ftp.Url("pub"), "--user", "tester:secret"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Sorted(r.out), "hello.txt\nsub\n");

  r = Zonet({"ftp", "put", dir.Write("up.txt", "sent by zonet\n"), ftp.Url("new/up.txt"), "--user", "tester:secret"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "14 bytes sent to " + ftp.Url("new/up.txt") + "\n");
  EXPECT_EQ(zotest::ReadFile(ftp.Root() + "/new/up.txt"), "sent by zonet\n");

  r = Zonet({"ftp", "get", ftp.Url("pub/missing.txt")});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("zonet: curl 78: "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("zonet::CmdFtp: download of " + ftp.Url("pub/missing.txt")), std::string::npos) << r.err;
}

TEST(ZonetFtp, ExplicitFtpsForAnonymous) {
  ZOTEST_REQUIRE_TOOL("vsftpd");
  zotest::FtpServer::Options options;
  options.tls = true;
  zotest::FtpServer ftp(options);
  ASSERT_TRUE(ftp.Ok()) << ftp.Reason();
  ftp.AddFile("t.txt", "tls\n");
  zotest::ProgramResult r = Zonet({"ftp", "get", "--ssl", "--insecure", ftp.Url("t.txt")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "tls\n");
  EXPECT_NE(ftp.Log().find("\"AUTH "), std::string::npos);
}

TEST(ZonetFtp, AProgressLineOnALongTransfer) {
  ZOTEST_REQUIRE_TOOL("vsftpd");
  zotest::FtpServer::Options options;
  options.maxRate = 1024 * 1024;
  zotest::FtpServer ftp(options);
  ASSERT_TRUE(ftp.Ok()) << ftp.Reason();
  ftp.AddFile("slow.bin", std::string(2 * 1024 * 1024, 's'));
  zotest::TempDir dir;
  zotest::ProgramResult r = Zonet({"ftp", "get", ftp.Url("slow.bin"), "-o", dir.File("slow.bin")}, 30000);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "2097152 bytes saved to " + dir.File("slow.bin") + "\n");
  EXPECT_NE(r.err.find(" MiB received, "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("\r2.0 MiB received, "), std::string::npos) << r.err;
  ASSERT_FALSE(r.err.empty());
  EXPECT_EQ(r.err.back(), '\n');
}

TEST(ZonetSftp, GetPutAndLsAgainstSshd) {
  ZOTEST_REQUIRE_TOOL("sshd");
  zotest::SshServer sshd({});
  ASSERT_TRUE(sshd.Ok()) << sshd.Reason();
  sshd.AddFile("d/hello.txt", "hello over sftp\n");
  zotest::TempDir dir;
  const std::string user = sshd.User() + ":" + sshd.Password();

  zotest::ProgramResult r = Zonet({"sftp", "get", sshd.Url("d/hello.txt"), "--user", user});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "hello over sftp\n");
  r = Zonet({"sftp", "put", dir.Write("up.txt", "up"), sshd.Url("d/up.txt"), "--user", user});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(zotest::ReadFile(sshd.Root() + "/d/up.txt"), "up");
  r = Zonet({"sftp", "ls", sshd.Url("d"), "--user", user});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(Sorted(r.out), ".\n..\nhello.txt\nup.txt\n");
  r = Zonet({"sftp", "get", sshd.Url("d/hello.txt"), "--user", sshd.User() + ":wrong"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("zonet: curl 67: "), std::string::npos) << r.err;
}

TEST(ZonetHttp, LsOfADirectoryPage) {
  ZOTEST_REQUIRE_TOOL("python3");
  zotest::ScriptedHttpPeer::Reply page;
  page.raw = zotest::ScriptedHttpPeer::Response(
      200, "OK", {"Content-Type: text/html"},
      "<html><body><A HREF=\"/\">[To Parent Directory]</A><br>"
      "<A HREF=\"/files/My%20Docs/\">My Docs</A><br><A HREF=\"/files/a.txt\">a.txt</A><br>"
      "<A HREF=\"/files/web.config\">web.config</A></body></html>");
  zotest::ScriptedHttpPeer peer({page});
  ASSERT_TRUE(peer.Ok()) << peer.Reason();
  zotest::ProgramResult r = Zonet({"http", "ls", peer.Url("files")});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "My Docs/\na.txt\n");
  ASSERT_TRUE(peer.WaitForRequests(1));
  EXPECT_EQ(peer.Requests()[0].substr(0, 21), "GET /files/ HTTP/1.1\r");
}
