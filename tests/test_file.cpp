// CZoFile, CZoDirectory, FXFile and FXPath on a real file system.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "ZoUtils/ZoFile.h"
#include "support/TestSupport.h"

namespace {
mode_t ModeOf(const std::string& path) {
  struct stat st;
  EXPECT_EQ(stat(path.c_str(), &st), 0);
  return st.st_mode & 0777;
}
std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}
}  // namespace

// The five ways the library opens files, by meaning.
TEST(ZoFile, DownloadDestinationCreatesReadWriteOwnerOnly) {
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  std::string path = dir.File("download.bin");
  umask(022);
  {
    CZoFile file;
    ASSERT_FALSE(file.Open(path.c_str(), O_CREAT | O_RDWR, S_IRUSR | S_IWUSR).IsError());
    EXPECT_TRUE(file.IsValid());
    unsigned written = 0;
    ASSERT_FALSE(file.Write("payload", 7, &written).IsError());
    EXPECT_EQ(written, 7u);
    int64_t pos = -1;
    ASSERT_FALSE(file.Seek(0, 0, &pos).IsError());
    EXPECT_EQ(pos, 0);
    char buffer[16] = {};
    unsigned got = 0;
    ASSERT_FALSE(file.Read(buffer, sizeof buffer, &got).IsError());
    EXPECT_EQ(std::string(buffer, got), "payload");
    bool atEnd = false;
    ASSERT_FALSE(file.IsEOF(atEnd).IsError());
    EXPECT_TRUE(atEnd);
    uint64_t size = 0;
    ASSERT_FALSE(file.Size(size).IsError());
    EXPECT_EQ(size, 7u);
  }  // the destructor closes
  EXPECT_EQ(ModeOf(path), 0600u);
}

TEST(ZoFile, ReadOnlySourcesCannotBeWritten) {
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  std::string path = dir.Write("upload.log", "log line\n");
  for (int mode : {0, S_IRUSR, S_IRUSR | S_IWUSR}) {
    CZoFile file;
    ASSERT_FALSE(file.Open(path.c_str(), O_RDONLY, mode).IsError());
    unsigned written = 99;
    CZoError e = file.Write("x", 1, &written);
    EXPECT_TRUE(e.Is(EBADF));
    EXPECT_EQ(written, 0u);
    bool atEnd = true;
    ASSERT_FALSE(file.IsEOF(atEnd).IsError());
    EXPECT_FALSE(atEnd);
  }
}

TEST(ZoFile, CreateWriteOnlyKeepsAnOldTailAsTheOriginalDoes) {
  zotest::TempDir dir;
  std::string path = dir.Write("dest.txt", "0123456789");
  CZoFile file;
  // Create if missing, write only, and no truncation.
  ASSERT_FALSE(file.Open(path.c_str(), O_CREAT | O_WRONLY, S_IRUSR | S_IWUSR).IsError());
  ASSERT_FALSE(file.Write("abc", 3, nullptr).IsError());
  ASSERT_FALSE(file.Close().IsError());
  EXPECT_EQ(Slurp(path), "abc3456789");
  EXPECT_FALSE(file.IsValid());
  EXPECT_FALSE(file.Close().IsError()) << "closing a closed file is harmless";
}

TEST(ZoFile, FailuresAreValues) {
  zotest::TempDir dir;
  CZoFile file;
  CZoError missing = file.Open(dir.File("missing").c_str(), O_RDONLY, 0);
  EXPECT_TRUE(missing.Is(ENOENT));
  EXPECT_NE(missing.AsString().find("missing"), std::string::npos);
  EXPECT_TRUE(file.Open(nullptr, O_RDONLY, 0).Is(ZONET_ERR_INVALID_PARAMETER));
  unsigned got = 5;
  char b[4];
  EXPECT_TRUE(file.Read(b, 4, &got).Is(ZONET_ERR_INVALID_STATE));
  EXPECT_EQ(got, 0u);
  EXPECT_TRUE(file.Write(b, 4, nullptr).Is(ZONET_ERR_INVALID_STATE));
  EXPECT_TRUE(file.Seek(0, 0, nullptr).Is(ZONET_ERR_INVALID_STATE));
  uint64_t size;
  EXPECT_TRUE(file.Size(size).Is(ZONET_ERR_INVALID_STATE));
  bool atEnd;
  EXPECT_TRUE(file.IsEOF(atEnd).Is(ZONET_ERR_INVALID_STATE));
  std::string path = dir.Write("f", "abc");
  ASSERT_FALSE(file.Open(path.c_str(), O_RDONLY, 0).IsError());
  EXPECT_TRUE(file.Read(nullptr, 4, &got).Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_TRUE(file.Read(b, 4, nullptr).Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_TRUE(file.Seek(-10, 0, nullptr).Is(EINVAL));
}

TEST(ZoFile, ReadWholeFile) {
  zotest::TempDir dir;
  zotest::FdLeakCheck leaks;
  std::string contents("binary\0data\nend", 15);
  std::string path = dir.Write("whole", contents);
  char* buffer = nullptr;
  size_t size = 0;
  ASSERT_FALSE(CZoFile::ReadWholeFile(path.c_str(), &buffer, size).IsError());
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::string(buffer, size), contents);
  EXPECT_EQ(buffer[size], '\0');
  std::free(buffer);
}

TEST(ZoFile, ReadWholeFileOfAnEmptyFileIsTheEmptyCodeNotSuccess) {
  zotest::TempDir dir;
  std::string path = dir.Write("empty", "");
  char* buffer = reinterpret_cast<char*>(1);
  size_t size = 7;
  CZoError e = CZoFile::ReadWholeFile(path.c_str(), &buffer, size);
  EXPECT_TRUE(e.IsError());
  EXPECT_TRUE(e.Is(ZONET_ERR_EMPTY));
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_TRUE(CZoFile::ReadWholeFile(dir.File("none").c_str(), &buffer, size).Is(ENOENT));
  EXPECT_TRUE(CZoFile::ReadWholeFile(path.c_str(), nullptr, size).Is(ZONET_ERR_INVALID_PARAMETER));
}

TEST(ZoDirectory, CreateRecursiveAndAgain) {
  zotest::TempDir dir;
  std::string deep = dir.File("a/b/c");
  ASSERT_FALSE(CZoDirectory::Create(deep.c_str(), true).IsError());
  struct stat st;
  ASSERT_EQ(stat(deep.c_str(), &st), 0);
  EXPECT_TRUE(S_ISDIR(st.st_mode));
  EXPECT_FALSE(CZoDirectory::Create(deep.c_str(), true).IsError()) << "an existing directory is success";
  EXPECT_TRUE(CZoDirectory::Create(dir.File("x/y").c_str(), false).Is(ENOENT));
  std::string file = dir.Write("plain", "x");
  EXPECT_TRUE(CZoDirectory::Create((file + "/sub").c_str(), true).Is(ENOTDIR));
  EXPECT_TRUE(CZoDirectory::Create(nullptr, true).Is(ZONET_ERR_INVALID_PARAMETER));
  EXPECT_TRUE(CZoDirectory::Create("", true).Is(ZONET_ERR_INVALID_PARAMETER));
}

TEST(FXFile, RemoveFile) {
  zotest::TempDir dir;
  std::string path = dir.Write("gone", "x");
  EXPECT_FALSE(FXFile::RemoveFile(path).IsError());
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  EXPECT_TRUE(FXFile::RemoveFile(path).Is(ENOENT));
}

TEST(FXPath, SplitParentPath) {
  std::string parent, leaf;
  ASSERT_FALSE(FXPath::SplitParentPath("/var/log/app.log", parent, leaf).IsError());
  EXPECT_EQ(parent, "/var/log");
  EXPECT_EQ(leaf, "app.log");
  ASSERT_FALSE(FXPath::SplitParentPath("name", parent, leaf).IsError());
  EXPECT_EQ(parent, "");
  EXPECT_EQ(leaf, "name");
  ASSERT_FALSE(FXPath::SplitParentPath("/top", parent, leaf).IsError());
  EXPECT_EQ(parent, "/");
  EXPECT_EQ(leaf, "top");
  ASSERT_FALSE(FXPath::SplitParentPath("dir/", parent, leaf).IsError());
  EXPECT_EQ(parent, "dir");
  EXPECT_EQ(leaf, "");
  EXPECT_TRUE(FXPath::SplitParentPath("", parent, leaf).Is(ZONET_ERR_INVALID_PARAMETER));
}
