// The stack probes of CZoIPAddr: IsAddrBindable and the three stack checks.
// What must not touch this process (a network namespace, the process-wide
// switch for local sockets) runs in a forked child that reports by its exit
// status.
#include <errno.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoSocket.h"
#include "support/TestSupport.h"
#include "support/ZoSocketTestSupport.h"

namespace {

using zotest::Address;

// Exit statuses of a child.
constexpr int kChildPassed = 0;
constexpr int kChildSkipped = 77;

// Runs body in a forked child; its result is the child's exit status.
int InChild(const std::function<int()>& body) {
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) _exit(body());
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A network namespace of its own for the calling (child) process, with
// loopback up or down. false when the process may not make one.
bool OwnNetwork(bool loopbackUp) {
  if (unshare(CLONE_NEWNET) != 0) return false;
  if (!loopbackUp) return true;
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  ifreq request;
  std::memset(&request, 0, sizeof request);
  std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
  bool up = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
  up = up && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  return up;
}

// Whether the system binds a stream socket to ::1, asked directly.
bool SystemBindsIPv6Loopback() {
  int fd = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_in6 addr;
  std::memset(&addr, 0, sizeof addr);
  addr.sin6_family = AF_INET6;
  addr.sin6_addr = in6addr_loopback;
  const bool bound = bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  close(fd);
  return bound;
}

}  // namespace

TEST(StackProbes, LoopbackIPv4IsBindable) {
  zotest::FdLeakCheck leaks;
  bool out = false;
  CZoError error = CZoIPAddr::IsAddrBindable(Address("127.0.0.1"), out);
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_TRUE(out);
}

TEST(StackProbes, IPv4StackIsPresent) {
  zotest::FdLeakCheck leaks;
  bool out = false;
  CZoError error = CZoIPAddr::IsIPv4StackPresent(out);
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_TRUE(out);
}

TEST(StackProbes, IPv6StackAnswerMatchesTheSystem) {
  zotest::FdLeakCheck leaks;
  bool out = !SystemBindsIPv6Loopback();
  CZoError error = CZoIPAddr::IsIPv6StackPresent(out);
  if (SystemBindsIPv6Loopback()) {
    ASSERT_FALSE(error.IsError()) << error.AsString();
    EXPECT_TRUE(out);
  } else {
    EXPECT_FALSE(out);
  }
}

TEST(StackProbes, AnAddressInUseIsNotBindableAndTheBindErrorComesBack) {
  zotest::FdLeakCheck leaks;
  CZoSocket holder;
  ASSERT_FALSE(holder.Bind(Address("127.0.0.1")).IsError());
  ASSERT_FALSE(holder.Listen(1).IsError());
  CZoIPAddr taken;
  ASSERT_FALSE(holder.GetLocalAddress(taken).IsError());
  {
    zotest::FdLeakCheck probeLeaks;
    bool out = true;
    CZoError error = CZoIPAddr::IsAddrBindable(taken, out);
    EXPECT_FALSE(out);
    ASSERT_TRUE(error.Is(EADDRINUSE)) << error.AsString();
    ASSERT_EQ(error.GetItemCount(), 2u);
    EXPECT_STREQ(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocket::Bind");
    EXPECT_STREQ(error.GetItem(1)->GetLocation().GetFunction(), "CZoIPAddr::IsAddrBindable");
  }
  holder.Close();
}

TEST(StackProbes, AFamilyWithoutAStackIsAnAnswerNotAnError) {
  zotest::FdLeakCheck leaks;
  ZONET_SockAddr record;
  std::memset(&record, 0, sizeof record);
  record.family = 250;
  bool out = true;
  CZoError error = CZoIPAddr::IsAddrBindable(CZoIPAddr(record), out);
  EXPECT_FALSE(error.IsError()) << error.AsString();
  EXPECT_FALSE(out);

  CZoIPAddr none;
  none.SetAddressFamily(CZoIPAddr::IP_FAMILY_ANY);
  out = true;
  error = CZoIPAddr::IsAddrBindable(none, out);
  EXPECT_FALSE(error.IsError()) << error.AsString();
  EXPECT_FALSE(out);
}

TEST(StackProbes, ALocalPathIsBindableOnce) {
  zotest::FdLeakCheck leaks;
  zotest::TempDir dir;
  CZoIPAddr path;
  ASSERT_FALSE(path.SetAddressString(dir.File("probe.sock").c_str()).IsError());
  bool out = false;
  CZoError error = CZoIPAddr::IsAddrBindable(path, out);
  ASSERT_FALSE(error.IsError()) << error.AsString();
  EXPECT_TRUE(out);
  // The probe's bind made the file, and a path that exists is taken.
  error = CZoIPAddr::IsAddrBindable(path, out);
  EXPECT_TRUE(error.Is(EADDRINUSE)) << error.AsString();
  EXPECT_FALSE(out);
}

TEST(StackProbes, AnAddressOnNoInterfaceIsNotBindableAndLeavesNoSocket) {
  const int status = InChild([] {
    if (!OwnNetwork(true)) return kChildSkipped;
    const std::vector<int> before = zotest::OpenDescriptors();
    CZoIPAddr addr;
    if (addr.SetAddressString("192.0.2.1").IsError()) return 1;
    bool out = true;
    CZoError error = CZoIPAddr::IsAddrBindable(addr, out);
    if (out) return 2;
    if (!error.Is(EADDRNOTAVAIL)) return 3;
    if (FXErrorUtil::IsErrNo(error, ZONET_ERRNO_AFNOSUPPORT)) return 4;
    if (zotest::OpenDescriptors() != before) return 5;
    // Loopback is there in the same namespace.
    if (CZoIPAddr::IsIPv4StackPresent(out).IsError() || !out) return 6;
    return kChildPassed;
  });
  if (status == kChildSkipped) GTEST_SKIP() << "making a network namespace needs CAP_SYS_ADMIN";
  EXPECT_EQ(status, kChildPassed);
}

// In a fresh namespace loopback is down, and IPv6 has no ::1 until it comes
// up: the stack is there, the address is not, and that is an error.
TEST(StackProbes, IPv6ProbeWithoutTheLoopbackAddressFailsWithEveryLocation) {
  const int status = InChild([] {
    if (!OwnNetwork(false)) return kChildSkipped;
    bool out = true;
    CZoError error = CZoIPAddr::IsIPv6StackPresent(out);
    if (out) return 1;
    if (!error.Is(EADDRNOTAVAIL)) return 2;
    if (error.GetItemCount() != 3) return 3;
    if (std::strcmp(error.GetItem(0)->GetLocation().GetFunction(), "CZoSocket::Bind") != 0) return 4;
    if (std::strcmp(error.GetItem(1)->GetLocation().GetFunction(), "CZoIPAddr::IsAddrBindable") != 0) return 5;
    if (std::strcmp(error.GetItem(2)->GetLocation().GetFunction(), "CZoIPAddr::IsIPv6StackPresent") != 0) return 6;
    // Once loopback is up, ::1 is there.
    if (!OwnNetwork(true)) return 7;
    if (CZoIPAddr::IsIPv6StackPresent(out).IsError() || !out) return 8;
    return kChildPassed;
  });
  if (status == kChildSkipped) GTEST_SKIP() << "making a network namespace needs CAP_SYS_ADMIN";
  EXPECT_EQ(status, kChildPassed);
}

TEST(StackProbes, UnixStackAnswersAsTheFlatLayerAndSwitchingItOffMakesItAbsent) {
  zotest::FdLeakCheck leaks;
  bool out = false;
  ASSERT_FALSE(CZoIPAddr::IsUnixStackPresent(out).IsError());
  EXPECT_EQ(out, ZONET_AreUnixSocketsSupported() != 0);

  const int status = InChild([] {
    ZONET_DisableUnixSockets();
    bool present = true;
    if (CZoIPAddr::IsUnixStackPresent(present).IsError()) return 1;
    return present ? 2 : kChildPassed;
  });
  EXPECT_EQ(status, kChildPassed);
  // The switch stayed in the child.
  ASSERT_FALSE(CZoIPAddr::IsUnixStackPresent(out).IsError());
  EXPECT_EQ(out, ZONET_AreUnixSocketsSupported() != 0);
}
