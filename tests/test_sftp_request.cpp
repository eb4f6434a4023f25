// SFTP requests against OpenSSH's sshd: the scheme in any case, as curl gets
// it; password and key logins; uploads, downloads, name listings read back,
// the probes and the faults.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ZoNetwork/XnCURLError.h"
#include "curl/FtpSupport.h"
#include "curl/RequestSupport.h"
#include "support/Servers.h"
#include "support/TestSupport.h"

using namespace XnCURL;
using namespace zotest_curl;

namespace {

size_t ReadFromFile(void* data, size_t size, size_t count, void* context) {
  return fread(data, size, count, static_cast<FILE*>(context));
}

class SftpLive : public ::testing::Test {
protected:
  void SetUp() override {
    ZOTEST_REQUIRE_TOOL("sshd");
    sshd.reset(new zotest::SshServer(zotest::SshServer::Options{}));
    ASSERT_TRUE(sshd->Ok()) << sshd->Reason();
    sshd->AddFile("hello.txt", "hello over sftp\n");
    sshd->AddFile("dir/inner.txt", "inner\n");
    // Paths are absolute (the login is not jailed); the composition puts the
    // leading slash back.
    base = sshd->Root().substr(1) + "/";
  }
  // A request with the password login.
  void Prepare(SftpReq& request, const std::string& password = "secret") {
    ASSERT_FALSE(request.initialize(0).IsError());
    request.setURL("localhost");
    request.setPortNumber(std::to_string(sshd->Port()));
    ASSERT_FALSE(request.setCredentials(sshd->User(), password).IsError());
    ASSERT_FALSE(request.SetConnectionTimeOut(10).IsError());
    ASSERT_FALSE(request.SetTimeOut(30).IsError());
  }
  zotest::FdLeakCheck leaks;
  zotest::TempDir local;
  std::unique_ptr<zotest::SshServer> sshd;
  std::string base;
};

}  // namespace

TEST(SftpRequest, TheURLCompositionTable) {
  zotest::FdLeakCheck leaks;
  const UrlRow rows[] = {
      {"host", "a", "", "sftp://host/a"},
      {"SFTP://host", "a", "", "SFTP://host/a"},
      {"host", "SFTP://other/x", "", "SFTP://other/x"},
      {"host", "sftp://other", "", "sftp://other/"},
      {"sftp://host/", "/a", "2222", "sftp://host:2222//a"},
      {"Sftp://Host", "B/c", "", "Sftp://Host/B/c"},
      // An FTP URL is no SFTP URL: it becomes part of the path.
      {"host", "ftp://other/x", "", "sftp://host/ftp://other/x"},
  };
  const int closed = zotest::PickFreePort();
  for (const UrlRow& row : rows) {
    Composed c;
    ASSERT_NO_FATAL_FAILURE(Compose<XnSFTPReq>(row, closed, c));
    EXPECT_EQ(c.url, row.url) << row.server << " + " << row.path;
    EXPECT_TRUE(c.sent.Is(CurlCode(CURLE_COULDNT_CONNECT))) << c.sent.AsString();
    // curl writes the scheme in lower case and keeps the rest.
    std::string expected = row.url;
    std::transform(expected.begin(), expected.begin() + 4, expected.begin(), ::tolower);
    if (expected.find("://", 7) == std::string::npos) {
      EXPECT_EQ(c.effective, expected);
    }
  }
}

TEST(SftpRequest, CopiesAndMovesShareTheHandle) {
  SftpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL("host");
  XnSFTPReq& original = request;
  // Moving copies: the source keeps what it holds. The copies must not
  // outlive the source's destructor, so they are left to leak nothing by
  // being destroyed while the source still runs: the handle stays the
  // source's (copies are views).
  alignas(XnSFTPReq) unsigned char room[sizeof(XnSFTPReq)];
  XnSFTPReq* moved = new (room) XnSFTPReq(std::move(original));
  std::string url;
  ASSERT_FALSE(moved->getFullWorkingURL(url).IsError());
  EXPECT_EQ(url, "sftp://host/");
  ASSERT_FALSE(request.getFullWorkingURL(url).IsError());
  EXPECT_EQ(url, "sftp://host/");
  // Not destroyed: its destructor would release the shared handle.
}

TEST_F(SftpLive, DownloadUploadAndListingWithThePassword) {
  SftpReq request;
  Prepare(request);
  std::string body;
  CZoError e = Fetch(request, base + "hello.txt", body);
  ASSERT_FALSE(e.IsError()) << e.AsString() << sshd->Log();
  EXPECT_EQ(body, "hello over sftp\n");
  // SFTP leaves no response code, which counts as success.
  int code = -1;
  request.getLastServerResponseCode(code);
  EXPECT_EQ(code, 0);

  FILE* in = fopen(local.Write("up.txt", "sent by sftp").c_str(), "rb");
  request.setReadFunctionPointer(in, &ReadFromFile);
  e = request.uploadFile("up.txt", (base + "made/deeper/up.txt").c_str(), 12, kNone);
  fclose(in);
  ASSERT_FALSE(e.IsError()) << e.AsString() << sshd->Log();
  EXPECT_EQ(zotest::ReadFile(sshd->Root() + "/made/deeper/up.txt"), "sent by sftp");

  const std::string file = local.File("listing.txt");
  FILE* out = fopen(file.c_str(), "wb");
  request.setWriteFunctionPointer(out, &WriteToFile);
  e = request.getFilesAndDirsInfoInFile(base + "dir");
  fclose(out);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  // Names only, one a line ended by a bare line feed.
  const std::string listing = zotest::ReadFile(file);
  EXPECT_EQ(listing.find('\r'), std::string::npos);
  std::vector<FileDirInfo> entries;
  ASSERT_FALSE(request.Base().collectFilesAndDir(file, &entries, "").IsError());
  std::vector<std::string> names;
  for (const FileDirInfo& entry : entries) names.push_back(entry.m_name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{".", "..", "inner.txt"})) << listing;
  // The listing option is gone afterwards.
  ASSERT_FALSE(Fetch(request, base + "dir/inner.txt", body).IsError());
  EXPECT_EQ(body, "inner\n");
  // The home folder by "~", in the scheme's own upper case.
  SftpReq home;
  Prepare(home);
  home.setURL("SFTP://localhost");
  ASSERT_FALSE(Fetch(home, "~/hello.txt", body).IsError());
  EXPECT_EQ(body, "hello over sftp\n");
}

TEST_F(SftpLive, TheKeyChosenBySetFTPAuth) {
  // curl takes the key from the home folder when the client names none.
  zotest::TempDir home;
  ASSERT_EQ(mkdir(home.File(".ssh").c_str(), 0700), 0);
  home.Write(".ssh/id_rsa", zotest::ReadFile(sshd->ClientKeyFile()));
  home.Write(".ssh/id_rsa.pub", zotest::ReadFile(sshd->ClientPublicKeyFile()));
  chmod(home.File(".ssh/id_rsa").c_str(), 0600);
  const char* saved = getenv("HOME");
  const std::string savedHome = saved ? saved : "";
  setenv("HOME", home.Path().c_str(), 1);

  SftpReq request;
  Prepare(request, "");
  ASSERT_FALSE(request.setFTPAuth(CURLSSH_AUTH_PUBLICKEY).IsError());
  std::string body;
  CZoError withKey = Fetch(request, base + "hello.txt", body);
  // Only the password allowed, and it is empty: refused.
  SftpReq passwordOnly;
  Prepare(passwordOnly, "");
  ASSERT_FALSE(passwordOnly.setFTPAuth(CURLSSH_AUTH_PASSWORD).IsError());
  std::string none;
  CZoError withoutKey = Fetch(passwordOnly, base + "hello.txt", none);

  if (saved) {
    setenv("HOME", savedHome.c_str(), 1);
  } else {
    unsetenv("HOME");
  }
  ASSERT_FALSE(withKey.IsError()) << withKey.AsString() << sshd->Log();
  EXPECT_EQ(body, "hello over sftp\n");
  EXPECT_NE(sshd->Log().find("Accepted publickey"), std::string::npos) << sshd->Log();
  EXPECT_TRUE(withoutKey.Is(CurlCode(CURLE_LOGIN_DENIED))) << withoutKey.AsString();
}

TEST_F(SftpLive, TheProbes) {
  SftpReq request;
  Prepare(request);
  // The probe asks for the path with a slash behind it; curl never gives its
  // code 9 over SFTP, so nothing is a "file" here.
  bool isFile = true;
  CZoError e = request.IsFile(base + "hello.txt", isFile);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_FALSE(isFile);
  isFile = true;
  e = request.IsFile(base + "dir", isFile);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_FALSE(isFile);
  double size = 0;
  e = request.getFileInfo(base + "hello.txt", size);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(size, 16.0);
  // A path with a slash behind it is a folder listing to curl's SFTP, and
  // a probe with no body never reads it: a missing path is no file either,
  // and the directory probe finds every folder, even a missing one.
  isFile = true;
  e = request.IsFile(base + "none", isFile);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_FALSE(isFile);
  EXPECT_EQ(request.LastCurlCode(), 0);
  bool exists = false;
  ASSERT_FALSE(request.checkIfFileOrDirExists(base + "dir", false, exists).IsError());
  EXPECT_TRUE(exists);
  exists = false;
  ASSERT_FALSE(request.checkIfFileOrDirExists(base + "gone", false, exists).IsError());
  EXPECT_TRUE(exists);
  // Files are opened: one that is there exists, a missing one is curl's 78,
  // which the file probe returns as its own failure.
  ASSERT_FALSE(request.checkIfFileOrDirExists(base + "hello.txt", true, exists).IsError());
  EXPECT_TRUE(exists);
  e = request.getFileInfo(base + "none.txt", size);
  EXPECT_TRUE(e.Is(CurlCode(CURLE_REMOTE_FILE_NOT_FOUND))) << e.AsString();
  EXPECT_TRUE(Contains(e, "XnProtocolReq::getFileInfo"));
  e = request.checkIfFileOrDirExists(base + "gone.txt", true, exists);
  EXPECT_TRUE(e.Is(IntCode(1))) << e.AsString();
  EXPECT_TRUE(Contains(e, "Failed to check if File exists.Error Code : [78]")) << e.AsString();
}

TEST_F(SftpLive, AProbeAfterADownloadReachesTheDiscardingWriter) {
  SftpReq request;
  Prepare(request);
  std::string body;
  ASSERT_FALSE(Fetch(request, base + "hello.txt", body).IsError());
  double size = 0;
  CZoError e = request.getFileInfo(base + "hello.txt", size);
  ASSERT_FALSE(e.IsError()) << e.AsString();
  EXPECT_EQ(size, 16.0);
  bool flag = false;
  ASSERT_FALSE(request.IsFile(base + "dir", flag).IsError());
  EXPECT_EQ(body, "hello over sftp\n");
  // A fresh object keeps curl's own default, standard output.
  SftpReq fresh;
  Prepare(fresh);
  std::string printed = CaptureStdout(local.File("stdout.txt"), [&] { (void)fresh.getFileInfo(base + "hello.txt", size); });
  // Over SFTP curl hands a probe no header lines at all.
  EXPECT_EQ(printed, "");
}

TEST_F(SftpLive, AWrongPasswordAMissingFileAndAClosedPort) {
  SftpReq wrong;
  Prepare(wrong, "wrong");
  std::string body;
  CZoError e = Fetch(wrong, base + "hello.txt", body);
  EXPECT_TRUE(e.Is(CurlCode(CURLE_LOGIN_DENIED))) << e.AsString();
  EXPECT_TRUE(Contains(e, "XnProtocolReq::Execute"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::SendReqest"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::download"));

  SftpReq request;
  Prepare(request);
  e = Fetch(request, base + "missing.txt", body);
  EXPECT_TRUE(e.Is(CurlCode(CURLE_REMOTE_FILE_NOT_FOUND))) << e.AsString();

  SftpReq nowhere;
  ASSERT_FALSE(nowhere.initialize(0).IsError());
  nowhere.setURL("sftp://127.0.0.1:" + std::to_string(zotest::PickFreePort()));
  e = Fetch(nowhere, "x", body);
  EXPECT_TRUE(e.Is(CurlCode(CURLE_COULDNT_CONNECT))) << e.AsString();
}

namespace {

// Keeps what arrives and, at the first piece, ends the server's sessions: the
// rest of the file never comes.
struct CutAfterFirstPiece {
  zotest::SshServer* server = nullptr;
  std::string body;
  bool cut = false;
  static size_t Write(char* data, size_t size, size_t count, void* context) {
    auto* self = static_cast<CutAfterFirstPiece*>(context);
    self->body.append(data, size * count);
    if (!self->cut) {
      self->cut = true;
      self->server->DropSessions();
    }
    return size * count;
  }
};

}  // namespace

TEST_F(SftpLive, TheSessionClosedMidTransfer) {
  const long long kSize = 64LL << 20;
  ASSERT_EQ(truncate(sshd->AddFile("big.bin", "").c_str(), kSize), 0);
  SftpReq request;
  Prepare(request);
  CutAfterFirstPiece cutter;
  cutter.server = sshd.get();
  request.setWriteFunctionPointer(&cutter, &CutAfterFirstPiece::Write);
  CZoError e = request.download((base + "big.bin").c_str(), kNone);
  ASSERT_TRUE(cutter.cut);
  ASSERT_TRUE(e.IsError()) << "the whole file arrived: " << cutter.body.size();
  // libssh2 reports the lost session as an SSH failure or a failed receive,
  // depending on where the read stood.
  EXPECT_TRUE(e.Is(CurlCode(CURLE_SSH)) || e.Is(CurlCode(CURLE_RECV_ERROR)) || e.Is(CurlCode(CURLE_PARTIAL_FILE)))
      << e.AsString();
  EXPECT_TRUE(Contains(e, "XnProtocolReq::Execute"));
  EXPECT_TRUE(Contains(e, "XnProtocolReq::download"));
  EXPECT_GT(cutter.body.size(), 0u);
  EXPECT_LT(static_cast<long long>(cutter.body.size()), kSize);
}

TEST(SftpRequest, PostGetPutAndDeleteAreRefused) {
  SftpReq request;
  ASSERT_FALSE(request.initialize(0).IsError());
  request.setURL("127.0.0.1");
  request.setPortNumber(std::to_string(zotest::PickFreePort()));
  CZoError e = request.doGetOperation("a", kNone);
  EXPECT_TRUE(e.Is(IntCode(101))) << e.AsString();
  EXPECT_TRUE(Contains(e, "Invalid OpType [10] for FTP protocol"));
  e = request.doPostOperation("a", "text", kNone);
  EXPECT_TRUE(Contains(e, "Invalid OpType [6] for FTP protocol"));
}
