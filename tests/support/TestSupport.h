// What many tests need: a private temporary directory, and a count of this
// process's open descriptors to prove that nothing leaks.
#ifndef ZONET_TESTS_TESTSUPPORT_H
#define ZONET_TESTS_TESTSUPPORT_H

#include <string>
#include <vector>

namespace zotest {

// The descriptors open in this process, from /proc/self/fd.
std::vector<int> OpenDescriptors();

// Fails the current test when the set of open descriptors at destruction
// differs from the one at construction.
class FdLeakCheck {
public:
  FdLeakCheck();
  ~FdLeakCheck();

private:
  std::vector<int> m_before;
};

// A fresh directory under TMPDIR, removed with all its contents at the end.
class TempDir {
public:
  TempDir();
  ~TempDir();
  const std::string& Path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }
  // Writes contents to name inside the directory; the full path.
  std::string Write(const std::string& name, const std::string& contents) const;

private:
  std::string m_path;
};

// Whether the process may open raw sockets (root, or CAP_NET_RAW).
bool CanOpenRawSockets();

}  // namespace zotest

#endif  // ZONET_TESTS_TESTSUPPORT_H
