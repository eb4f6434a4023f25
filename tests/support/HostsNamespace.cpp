#include "support/HostsNamespace.h"

#include <errno.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <vector>

namespace zotest {

namespace {

constexpr const char kHostsPath[] = "/etc/hosts";
constexpr const char kNsswitchPath[] = "/etc/nsswitch.conf";
// What a child says when its namespace could not be made; a body never
// returns it, since RunWithHostsFile maps it to kHostsUnavailable.
constexpr int kSetupFailedStatus = 254;

// Whether the "hosts:" line of nsswitch.conf names the "files" source.
bool HostsReadFromFiles(std::string& why) {
  std::ifstream in(kNsswitchPath);
  if (!in) {
    why = "no /etc/nsswitch.conf, so it is unknown whether the resolver reads /etc/hosts";
    return false;
  }
  std::string line;
  while (std::getline(in, line)) {
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    std::istringstream words(line);
    std::string key;
    if (!(words >> key) || key != "hosts:") continue;
    std::string source;
    while (words >> source) {
      if (source == "files") return true;
    }
    why = "the hosts line of /etc/nsswitch.conf has no \"files\" source";
    return false;
  }
  why = "/etc/nsswitch.conf has no hosts line";
  return false;
}

// In the child: a private mount namespace with the test's files over
// /etc/hosts and /etc/nsswitch.conf.
bool EnterPrivateHosts(const char* hosts, const char* nsswitch) {
  if (unshare(CLONE_NEWNS) != 0) {
    fprintf(stderr, "hosts namespace: unshare(CLONE_NEWNS): %s\n", strerror(errno));
    return false;
  }
  // Mounts made here must not travel back to the machine's namespace.
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    fprintf(stderr, "hosts namespace: making / private: %s\n", strerror(errno));
    return false;
  }
  if (mount(hosts, kHostsPath, nullptr, MS_BIND, nullptr) != 0) {
    fprintf(stderr, "hosts namespace: bind mount over %s: %s\n", kHostsPath, strerror(errno));
    return false;
  }
  if (mount(nsswitch, kNsswitchPath, nullptr, MS_BIND, nullptr) != 0) {
    fprintf(stderr, "hosts namespace: bind mount over %s: %s\n", kNsswitchPath, strerror(errno));
    return false;
  }
  return true;
}

int Wait(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return kHostsChildDied;
  }
  if (!WIFEXITED(status)) return kHostsChildDied;
  int code = WEXITSTATUS(status);
  return code == kSetupFailedStatus ? kHostsUnavailable : code;
}

// The machine's nsswitch.conf with the hosts line cut down to "files", so a
// name that the test's file lacks is not found at once, without asking the
// network.
std::string FilesOnlyNsswitch() {
  std::ifstream in(kNsswitchPath);
  std::string text;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string key;
    if (words >> key && key == "hosts:") line = "hosts: files";
    text += line + "\n";
  }
  return text;
}

bool WriteFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  return static_cast<bool>(out);
}

int RunInChild(const std::string& hostsText, const std::function<int()>& body) {
  const char* base = getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/zonet-hosts-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) return kHostsUnavailable;
  const std::string dir = name.data();
  const std::string hosts = dir + "/hosts";
  const std::string nsswitch = dir + "/nsswitch.conf";
  auto cleanUp = [&] {
    unlink(hosts.c_str());
    unlink(nsswitch.c_str());
    rmdir(dir.c_str());
  };
  if (!WriteFile(hosts, hostsText) || !WriteFile(nsswitch, FilesOnlyNsswitch())) {
    cleanUp();
    return kHostsUnavailable;
  }
  // Whatever the parent has buffered must not come out twice.
  fflush(nullptr);
  pid_t child = fork();
  if (child < 0) {
    cleanUp();
    return kHostsChildDied;
  }
  if (child == 0) {
    if (!EnterPrivateHosts(hosts.c_str(), nsswitch.c_str())) _exit(kSetupFailedStatus);
    int result = body();
    fflush(nullptr);
    _exit(result & 0xFF);
  }
  int result = Wait(child);
  cleanUp();
  return result;
}

std::string WorkOutReason() {
  std::string why;
  if (!HostsReadFromFiles(why)) return why;
  int probe = RunInChild("127.0.0.1 localhost\n", [] { return 0; });
  if (probe != 0) return "a private mount namespace with its own /etc/hosts cannot be made here (needs root)";
  return "";
}

}  // namespace

std::string HostsNamespaceUnavailableReason() {
  static const std::string reason = WorkOutReason();
  return reason;
}

int RunWithHostsFile(const std::string& hostsText, const std::function<int()>& body) {
  return RunInChild(hostsText, body);
}

}  // namespace zotest
