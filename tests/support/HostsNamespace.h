// Runs a piece of a test against a hosts file of the test's own, so that the
// real resolver (getaddrinfo and the host database, through the "files"
// source) answers what the test needs: a name that collides, a name with only
// IPv6 addresses, a name with several addresses in a known order.
//
// The machine's own files are never changed. The body runs in a child
// process that has a private mount namespace, in which the test's file is
// bind-mounted over /etc/hosts and a copy of /etc/nsswitch.conf whose hosts
// line is "files" alone over that one: the file is the whole truth, and a
// name (or address) it lacks is not found at once, without the network. The
// parent only waits. This needs root (or CAP_SYS_ADMIN) and a host database
// that reads /etc/hosts.
//
// Usage:
//   ZOTEST_REQUIRE_HOSTS_NAMESPACE();
//   int status = zotest::RunWithHostsFile("127.0.53.53 collide.test\n", [] {
//     ... plain C++ and ZOTEST_CHILD_CHECK(cond), no gtest assertions (they
//     would be lost in the child) ...
//     return 0;  // or a non-zero value that says what went wrong
//   });
//   EXPECT_EQ(status, 0);
//
// A body that wants to say why it failed prints to stderr, which the child
// shares with the test.
#ifndef ZONET_TESTS_HOSTSNAMESPACE_H
#define ZONET_TESTS_HOSTSNAMESPACE_H

#include <stdio.h>

#include <functional>
#include <string>

namespace zotest {

// RunWithHostsFile could not make the private namespace or mount the file.
constexpr int kHostsUnavailable = -1;
// The child could not be started, or ended by a signal.
constexpr int kHostsChildDied = -2;

// Why hosts files cannot be swapped here ("" when they can): not permitted to
// make a mount namespace, or the host database does not read /etc/hosts.
// The answer is worked out once per process.
std::string HostsNamespaceUnavailableReason();

// Runs body in a child process that sees hostsText as /etc/hosts, and returns
// the body's result as the child's exit status (0 to 255), or one of the
// negative values above.
int RunWithHostsFile(const std::string& hostsText, const std::function<int()>& body);

}  // namespace zotest

// A check inside a body that runs in a child process, where gtest's own
// assertions would be lost: says what failed on stderr and ends the body with
// the result 1.
#define ZOTEST_CHILD_CHECK(cond)                                                       \
  do {                                                                                 \
    if (!(cond)) {                                                                     \
      fprintf(stderr, "%s:%d: child check failed: %s\n", __FILE__, __LINE__, #cond); \
      return 1;                                                                        \
    }                                                                                  \
  } while (0)

// Skips the current test, with the reason, when hosts files cannot be swapped.
#define ZOTEST_REQUIRE_HOSTS_NAMESPACE()                                         \
  do {                                                                           \
    std::string zotest_hosts_reason_ = zotest::HostsNamespaceUnavailableReason(); \
    if (!zotest_hosts_reason_.empty()) GTEST_SKIP() << zotest_hosts_reason_;     \
  } while (0)

#endif  // ZONET_TESTS_HOSTSNAMESPACE_H
