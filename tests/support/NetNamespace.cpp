#include "support/NetNamespace.h"

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include <gtest/gtest.h>

namespace zotest {

namespace {

std::string WorkOutReason() {
  if (geteuid() != 0) return "network namespaces need root";
  if (RunShell("command -v ip >/dev/null 2>&1") != 0) return "the ip tool (iproute2) is missing";
  NetNamespace probe("probe");
  if (!probe.Ok()) return "cannot make a network namespace here (ip netns add failed)";
  if (probe.Ip("link set lo up") != 0) return "cannot configure adapters in a network namespace";
  return "";
}

}  // namespace

std::string NetNamespaceUnavailableReason() {
  static const std::string reason = WorkOutReason();
  return reason;
}

int RunShell(const std::string& command) {
  int status = std::system(command.c_str());
  if (status == -1 || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

NetNamespace::NetNamespace(const std::string& tag) {
  static std::atomic<int> serial{0};
  m_name = "zo-" + tag + "-" + std::to_string(getpid()) + "-" + std::to_string(serial++);
  m_ok = RunShell("ip netns add " + m_name) == 0;
}

NetNamespace::~NetNamespace() {
  // Deleting the namespace takes its adapters with it; a veth pair dies with
  // either end.
  if (m_ok) RunShell("ip netns del " + m_name);
}

int NetNamespace::Ip(const std::string& args) const { return RunShell("ip -n " + m_name + " " + args); }

int NetNamespace::Exec(const std::string& command) const {
  return RunShell("ip netns exec " + m_name + " sh -c '" + command + "'");
}

bool NetNamespace::Enter() const {
  int fd = open(("/run/netns/" + m_name).c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  bool entered = setns(fd, CLONE_NEWNET) == 0;
  close(fd);
  return entered;
}

void NetNamespace::Run(const std::function<void()>& body) const {
  std::thread worker([&] {
    if (!Enter()) {
      ADD_FAILURE() << "cannot enter network namespace " << m_name;
      return;
    }
    body();
  });
  worker.join();
}

bool NetNamespace::Veth(const NetNamespace& a, const std::string& nameA, const NetNamespace& b,
                        const std::string& nameB) {
  return a.Ip("link add " + nameA + " type veth peer name " + nameB + " netns " + b.Name()) == 0;
}

}  // namespace zotest
