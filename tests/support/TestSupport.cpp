#include "support/TestSupport.h"

#include <dirent.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>

namespace zotest {

std::vector<int> OpenDescriptors() {
  std::vector<int> fds;
  DIR* dir = opendir("/proc/self/fd");
  if (dir == nullptr) return fds;
  int own = dirfd(dir);
  while (dirent* entry = readdir(dir)) {
    if (entry->d_name[0] == '.') continue;
    int fd = atoi(entry->d_name);
    if (fd != own) fds.push_back(fd);
  }
  closedir(dir);
  std::sort(fds.begin(), fds.end());
  return fds;
}

FdLeakCheck::FdLeakCheck() : m_before(OpenDescriptors()) {}

FdLeakCheck::~FdLeakCheck() {
  std::vector<int> after = OpenDescriptors();
  EXPECT_EQ(m_before, after) << "descriptors leaked or closed behind the test's back";
}

namespace {
void RemoveTree(const std::string& path) {
  DIR* dir = opendir(path.c_str());
  if (dir != nullptr) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      std::string child = path + "/" + name;
      if (entry->d_type == DT_DIR) {
        RemoveTree(child);
      } else {
        unlink(child.c_str());
      }
    }
    closedir(dir);
  }
  rmdir(path.c_str());
}
}  // namespace

TempDir::TempDir() {
  const char* base = getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/zonet-test-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp failed";
  }
  m_path = buffer.data();
}

TempDir::~TempDir() { RemoveTree(m_path); }

std::string TempDir::Write(const std::string& name, const std::string& contents) const {
  std::string path = File(name);
  std::ofstream out(path, std::ios::binary);
  out << contents;
  return path;
}

bool CanOpenRawSockets() {
  int fd = socket(AF_INET, SOCK_RAW, IPPROTO_ICMP);
  if (fd < 0) return false;
  close(fd);
  return true;
}

}  // namespace zotest
