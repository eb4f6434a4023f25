#include "support/Servers.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>

#ifndef ZOTEST_HTTP_PEER_PY
#error "ZOTEST_HTTP_PEER_PY must name tests/support/http_peer.py"
#endif

namespace zotest {

namespace {

using Clock = std::chrono::steady_clock;

// The interval at which readiness and ends are polled.
constexpr auto kPollStep = std::chrono::milliseconds(10);
// How many times a server is started on a new port when it loses its port.
constexpr int kPortAttempts = 5;

std::string ErrnoText(const char* what, int error) { return std::string(what) + ": " + strerror(error); }

// A descriptor moved to 10 or above, close-on-exec, so that a child's
// descriptors 0 to 3 can be set up without touching it.
int HighCloexec(int fd) {
  if (fd < 0) return fd;
  int high = fcntl(fd, F_DUPFD_CLOEXEC, 10);
  close(fd);
  return high;
}

bool PathExecutable(const std::string& path) { return !path.empty() && access(path.c_str(), X_OK) == 0; }

void RemoveTree(const std::string& path) {
  DIR* dir = opendir(path.c_str());
  if (dir != nullptr) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      std::string child = path + "/" + name;
      struct stat st;
      if (lstat(child.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
        RemoveTree(child);
      } else {
        unlink(child.c_str());
      }
    }
    closedir(dir);
  }
  rmdir(path.c_str());
}

void MakeParents(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0755);
  }
}

// Every process below pid, from /proc: the server's workers and per-connection
// children, some of which leave its process group (sshd's sessions do).
std::vector<pid_t> Descendants(pid_t root) {
  std::map<pid_t, std::vector<pid_t>> children;
  DIR* dir = opendir("/proc");
  if (dir == nullptr) return {};
  while (dirent* entry = readdir(dir)) {
    pid_t pid = atoi(entry->d_name);
    if (pid <= 0) continue;
    std::string stat = ReadFile("/proc/" + std::string(entry->d_name) + "/stat");
    size_t close = stat.rfind(')');
    if (close == std::string::npos) continue;
    char state = 0;
    int ppid = 0;
    if (sscanf(stat.c_str() + close + 1, " %c %d", &state, &ppid) == 2) children[ppid].push_back(pid);
  }
  closedir(dir);
  std::vector<pid_t> found;
  std::vector<pid_t> todo{root};
  while (!todo.empty()) {
    pid_t next = todo.back();
    todo.pop_back();
    for (pid_t child : children[next]) {
      found.push_back(child);
      todo.push_back(child);
    }
  }
  return found;
}

struct Spawned {
  pid_t pid = -1;
  std::string error;
};

// fork and exec with the child's descriptors 0, 1, 2 (and 3 when fd3 >= 0)
// set as given and every other descriptor closed at exec. The child gets a
// process group of its own and dies with the thread that started it. A
// failure to exec comes back through a close-on-exec pipe.
Spawned Spawn(const std::vector<std::string>& argv, int fd0, int fd1, int fd2, int fd3) {
  Spawned result;
  if (argv.empty()) {
    result.error = "nothing to run";
    return result;
  }
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);

  int errorPipe[2];
  if (pipe2(errorPipe, O_CLOEXEC) != 0) {
    result.error = ErrnoText("pipe2", errno);
    return result;
  }
  errorPipe[1] = HighCloexec(errorPipe[1]);
  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid < 0) {
    result.error = ErrnoText("fork", errno);
    close(errorPipe[0]);
    close(errorPipe[1]);
    return result;
  }
  if (pid == 0) {
    // Only async-signal-safe calls from here to exec.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(127);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    int wanted[4] = {fd0, fd1, fd2, fd3};
    for (int target = 0; target < 4; ++target) {
      if (wanted[target] < 0) continue;
      if (dup2(wanted[target], target) < 0) {
        int error = errno;
        (void)!write(errorPipe[1], &error, sizeof error);
        _exit(127);
      }
    }
    syscall(SYS_close_range, fd3 >= 0 ? 4U : 3U, ~0U, 4U /* CLOSE_RANGE_CLOEXEC */);
    execv(args[0], args.data());
    int error = errno;
    (void)!write(errorPipe[1], &error, sizeof error);
    _exit(127);
  }
  close(errorPipe[1]);
  int childErrno = 0;
  ssize_t got;
  do {
    got = read(errorPipe[0], &childErrno, sizeof childErrno);
  } while (got < 0 && errno == EINTR);
  close(errorPipe[0]);
  if (got == static_cast<ssize_t>(sizeof childErrno)) {
    waitpid(pid, nullptr, 0);
    result.error = ErrnoText(("cannot run " + argv[0]).c_str(), childErrno);
    return result;
  }
  result.pid = pid;
  return result;
}

// Orphans of a server (sessions whose parent went first) come to this
// process rather than to init, so that stopping a server can wait for each
// of them to be gone, not leave zombies for init to collect later.
void BecomeSubreaper() {
  static std::once_flag once;
  std::call_once(once, [] { prctl(PR_SET_CHILD_SUBREAPER, 1); });
}

bool ProcessExists(pid_t pid) { return access(("/proc/" + std::to_string(pid)).c_str(), F_OK) == 0; }

// Waits, at most a second or two, until every one of pids is gone: reaped
// here when it has become this process's child, or by its own parent.
void ReapOrphans(const std::vector<pid_t>& pids) {
  auto deadline = Clock::now() + std::chrono::seconds(2);
  std::vector<pid_t> left = pids;
  while (!left.empty() && Clock::now() < deadline) {
    std::vector<pid_t> still;
    for (pid_t pid : left) {
      pid_t got = waitpid(pid, nullptr, WNOHANG);
      if (got == pid) continue;
      if (got < 0 && errno == ECHILD && !ProcessExists(pid)) continue;
      still.push_back(pid);
    }
    left.swap(still);
    if (!left.empty()) std::this_thread::sleep_for(kPollStep);
  }
}

std::string DescribeStatus(int status) {
  if (WIFEXITED(status)) return "exited with status " + std::to_string(WEXITSTATUS(status));
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  return "ended";
}

std::string Tail(const std::string& text, size_t most = 4000) {
  return text.size() <= most ? text : "..." + text.substr(text.size() - most);
}

// The Debian package that brings a tool.
std::string PackageOf(const std::string& tool) {
  static const std::map<std::string, std::string> packages = {
      {"nginx", "nginx"},     {"tinyproxy", "tinyproxy"}, {"vsftpd", "vsftpd"},
      {"sshd", "openssh-server"}, {"ssh", "openssh-client"}, {"sftp", "openssh-client"},
      {"ssh-keygen", "openssh-client"}, {"python3", "python3"}, {"openssl", "openssl"},
      {"curl", "curl"}};
  auto it = packages.find(tool);
  return it == packages.end() ? tool : it->second;
}

std::string Python() {
  // Debian's own first: a python3 earlier in PATH may be anything.
  if (PathExecutable("/usr/bin/python3")) return "/usr/bin/python3";
  return FindProgram("python3");
}

}  // namespace

// ---------------------------------------------------------------------------
// Small tools

std::string FindProgram(const std::string& name) {
  if (name.empty()) return "";
  if (name.find('/') != std::string::npos) return PathExecutable(name) ? name : "";
  std::vector<std::string> dirs;
  const char* path = getenv("PATH");
  std::stringstream split(path ? path : "");
  for (std::string dir; std::getline(split, dir, ':');) {
    if (!dir.empty()) dirs.push_back(dir);
  }
  for (const char* extra : {"/usr/sbin", "/sbin", "/usr/bin", "/bin"}) dirs.push_back(extra);
  for (const std::string& dir : dirs) {
    std::string candidate = dir + "/" + name;
    struct stat st;
    if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && PathExecutable(candidate)) return candidate;
  }
  return "";
}

std::string ServerUnavailableReason(const std::string& tool) {
  std::string path = tool == "python3" ? Python() : FindProgram(tool);
  if (path.empty()) {
    return tool + " is not installed (Debian package " + PackageOf(tool) + "; scripts/deps.sh installs it)";
  }
  // These two run only in a private mount namespace (their logins and PAM
  // service exist only there).
  if (tool == "vsftpd" || tool == "sshd") {
    std::string why = PrivateMountsUnavailableReason();
    if (!why.empty()) return tool + " " + why;
  }
  return "";
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  std::stringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

ProgramResult RunProgram(const std::vector<std::string>& argvIn, int timeoutMs) {
  ProgramResult result;
  std::vector<std::string> argv = argvIn;
  if (argv.empty()) {
    result.err = "nothing to run";
    return result;
  }
  std::string path = FindProgram(argv[0]);
  if (path.empty()) {
    result.err = argv[0] + ": not found";
    return result;
  }
  argv[0] = path;
  int outPipe[2], errPipe[2];
  if (pipe2(outPipe, O_CLOEXEC) != 0) return result;
  if (pipe2(errPipe, O_CLOEXEC) != 0) {
    close(outPipe[0]);
    close(outPipe[1]);
    return result;
  }
  int devNull = HighCloexec(open("/dev/null", O_RDONLY | O_CLOEXEC));
  outPipe[1] = HighCloexec(outPipe[1]);
  errPipe[1] = HighCloexec(errPipe[1]);
  Spawned child = Spawn(argv, devNull, outPipe[1], errPipe[1], -1);
  close(devNull);
  close(outPipe[1]);
  close(errPipe[1]);
  if (child.pid < 0) {
    close(outPipe[0]);
    close(errPipe[0]);
    result.err = child.error;
    return result;
  }
  auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int open = 2;
  while (open > 0) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) {
      result.timedOut = true;
      break;
    }
    int ready = poll(fds, 2, static_cast<int>(left));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      char buffer[65536];
      ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
      if (got > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(got));
      } else if (got == 0 || errno != EINTR) {
        close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (pollfd& fd : fds) {
    if (fd.fd >= 0) close(fd.fd);
  }
  if (result.timedOut) {
    for (pid_t below : Descendants(child.pid)) kill(below, SIGKILL);
    kill(-child.pid, SIGKILL);
    kill(child.pid, SIGKILL);
  }
  int status = 0;
  while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!result.timedOut && WIFEXITED(status)) result.status = WEXITSTATUS(status);
  return result;
}

std::string PatternBytes(uint64_t offset, size_t length) {
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) {
    uint64_t at = offset + i;
    // The low byte of a multiplicative hash of the block number, plus the
    // position: different everywhere a test is likely to look.
    uint64_t block = at >> 8;
    bytes[i] = static_cast<char>(((block * 0x9E3779B97F4A7C15ULL) >> 56) + at);
  }
  return bytes;
}

bool WritePatternFile(const std::string& path, uint64_t bytes) {
  MakeParents(path);
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  constexpr size_t kBlock = 1 << 20;
  bool ok = true;
  for (uint64_t done = 0; ok && done < bytes;) {
    std::string block = PatternBytes(done, static_cast<size_t>(std::min<uint64_t>(kBlock, bytes - done)));
    size_t written = 0;
    while (ok && written < block.size()) {
      ssize_t n = write(fd, block.data() + written, block.size() - written);
      if (n < 0 && errno == EINTR) continue;
      ok = n > 0;
      if (ok) written += static_cast<size_t>(n);
    }
    done += block.size();
  }
  return close(fd) == 0 && ok;
}

int PickFreePort() {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  int port = 0;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
    port = ntohs(address.sin_port);
  }
  close(fd);
  return port;
}

bool PortAccepts(int port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  bool accepted = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return accepted;
}

// ---------------------------------------------------------------------------
// ChildProcess

ChildProcess::~ChildProcess() { Stop(); }

bool ChildProcess::Start(const std::vector<std::string>& argv, const std::string& logFile, int* readyFd,
                         int lifetimeSeconds) {
  Stop();
  BecomeSubreaper();
  m_error.clear();
  m_ended.clear();
  int log = HighCloexec(open(logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
  if (log < 0) {
    m_error = ErrnoText(("cannot open " + logFile).c_str(), errno);
    return false;
  }
  int devNull = HighCloexec(open("/dev/null", O_RDONLY | O_CLOEXEC));
  int ready[2] = {-1, -1};
  if (readyFd != nullptr) {
    if (pipe2(ready, O_CLOEXEC) != 0) {
      m_error = ErrnoText("pipe2", errno);
      close(log);
      close(devNull);
      return false;
    }
    ready[1] = HighCloexec(ready[1]);
  }
  Spawned child = Spawn(argv, devNull, log, log, ready[1]);
  close(log);
  close(devNull);
  if (ready[1] >= 0) close(ready[1]);
  if (child.pid < 0) {
    m_error = child.error;
    if (ready[0] >= 0) close(ready[0]);
    return false;
  }
  if (readyFd != nullptr) *readyFd = ready[0];
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_name.clear();
    for (const std::string& arg : argv) m_name += (m_name.empty() ? "" : " ") + arg;
    m_pid = child.pid;
    m_reaped = false;
    m_stopping = false;
  }
  m_watchdog = std::thread([this, lifetimeSeconds] { Watch(lifetimeSeconds); });
  return true;
}

void ChildProcess::Watch(int lifetimeSeconds) {
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_wake.wait_for(lock, std::chrono::seconds(lifetimeSeconds), [this] { return m_stopping; })) return;
  if (m_reaped) return;
  // Past its lifetime: the test hangs or forgot it. Kill it; Stop() reaps.
  fprintf(stderr, "zotest: killing %s (pid %d) after its lifetime of %d s\n", m_name.c_str(), m_pid,
          lifetimeSeconds);
  for (pid_t below : Descendants(m_pid)) kill(below, SIGKILL);
  kill(-m_pid, SIGKILL);
  kill(m_pid, SIGKILL);
}

void ChildProcess::KillDescendants() {
  if (m_pid > 0) {
    for (pid_t below : Descendants(m_pid)) kill(below, SIGKILL);
  }
}

void ChildProcess::NoteEnd(int status) {
  m_reaped = true;
  m_ended = DescribeStatus(status);
}

bool ChildProcess::Running() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_pid <= 0 || m_reaped) return false;
  int status = 0;
  pid_t got = waitpid(m_pid, &status, WNOHANG);
  if (got == m_pid) {
    NoteEnd(status);
    return false;
  }
  return got == 0;
}

void ChildProcess::Stop(int graceMs) {
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopping = true;
  }
  m_wake.notify_all();
  if (m_watchdog.joinable()) m_watchdog.join();
  if (m_pid <= 0) return;
  if (!m_reaped) {
    // The processes below it first: once it is gone they are orphans that
    // cannot be found through it any more.
    std::vector<pid_t> below = Descendants(m_pid);
    for (pid_t pid : below) kill(pid, SIGTERM);
    kill(-m_pid, SIGTERM);
    kill(m_pid, SIGTERM);
    auto deadline = Clock::now() + std::chrono::milliseconds(graceMs);
    int status = 0;
    pid_t got = 0;
    while ((got = waitpid(m_pid, &status, WNOHANG)) == 0 && Clock::now() < deadline) {
      std::this_thread::sleep_for(kPollStep);
    }
    if (got != m_pid) {
      for (pid_t pid : Descendants(m_pid)) below.push_back(pid);
      for (pid_t pid : below) kill(pid, SIGKILL);
      kill(-m_pid, SIGKILL);
      kill(m_pid, SIGKILL);
      while ((got = waitpid(m_pid, &status, 0)) < 0 && errno == EINTR) {
      }
    }
    // What was below it and is still there (orphans now) gets KILL: nothing a
    // fixture started may outlive it, not even as a zombie.
    for (pid_t pid : below) kill(pid, SIGKILL);
    kill(-m_pid, SIGKILL);
    ReapOrphans(below);
    std::lock_guard<std::mutex> lock(m_mutex);
    if (got == m_pid) {
      NoteEnd(status);
    } else {
      m_reaped = true;
      m_ended = "lost";
    }
  }
  m_pid = -1;
}

std::string WaitUntilAccepting(ChildProcess& child, int port, int timeoutMs) {
  auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (true) {
    if (!child.Running()) return "the server " + child.HowItEnded() + " before it accepted connections";
    if (PortAccepts(port)) {
      // Make sure it was this server that answered, not one that took the
      // port first and made ours fail.
      if (child.Running()) return "";
      return "the server " + child.HowItEnded() + " before it accepted connections";
    }
    if (Clock::now() >= deadline) {
      return "the server did not accept connections on port " + std::to_string(port) + " within " +
             std::to_string(timeoutMs) + " ms";
    }
    std::this_thread::sleep_for(kPollStep);
  }
}

// ---------------------------------------------------------------------------
// FixtureDir

FixtureDir::FixtureDir(const std::string& tag) {
  const char* base = getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/zonet-" + tag + "-XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) != nullptr) m_path = buffer.data();
}

FixtureDir::~FixtureDir() {
  if (!m_path.empty()) RemoveTree(m_path);
}

std::string FixtureDir::Write(const std::string& name, const std::string& contents, int mode) const {
  if (m_path.empty()) return "";
  std::string path = File(name);
  MakeParents(path);
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (fd < 0) return "";
  size_t done = 0;
  while (done < contents.size()) {
    ssize_t wrote = write(fd, contents.data() + done, contents.size() - done);
    if (wrote < 0 && errno == EINTR) continue;
    if (wrote <= 0) {
      close(fd);
      return "";
    }
    done += static_cast<size_t>(wrote);
  }
  fchmod(fd, static_cast<mode_t>(mode));
  close(fd);
  return path;
}

std::string FixtureDir::MakeDir(const std::string& name, int mode) const {
  std::string path = File(name);
  MakeParents(path + "/");
  chmod(path.c_str(), static_cast<mode_t>(mode));
  return path;
}

// ---------------------------------------------------------------------------
// ThrowawayCA

namespace {
std::atomic<unsigned> g_serial{1};

std::string RunOpenssl(const std::vector<std::string>& args) {
  std::vector<std::string> argv{"openssl"};
  argv.insert(argv.end(), args.begin(), args.end());
  ProgramResult run = RunProgram(argv, 30000);
  if (run.status == 0) return "";
  std::string command;
  for (const std::string& arg : argv) command += arg + " ";
  return command + "failed (" + (run.timedOut ? "timed out" : "status " + std::to_string(run.status)) +
         "): " + Tail(run.err + run.out);
}
}  // namespace

ThrowawayCA::ThrowawayCA() {
  std::string why = ServerUnavailableReason("openssl");
  if (!why.empty() || !m_dir.Ok()) {
    m_reason = why.empty() ? "cannot make a temporary folder" : why;
    return;
  }
  m_caFile = m_dir.File("ca.crt");
  m_caKeyFile = m_dir.File("ca.key");
  why = RunOpenssl({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", m_caKeyFile, "-out", m_caFile,
                    "-days", "2", "-subj", "/O=ZoNetwork tests/CN=ZoNetwork throwaway CA", "-addext",
                    "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign"});
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  if (!Issue("localhost", {"DNS:localhost", "IP:127.0.0.1"}, &m_certFile, &m_keyFile)) return;
  m_chainFile = m_dir.Write("chain.crt", ReadFile(m_certFile) + ReadFile(m_caFile));
  m_ok = !m_chainFile.empty();
  if (!m_ok) m_reason = "cannot write the chain file";
}

bool ThrowawayCA::Issue(const std::string& name, const std::vector<std::string>& altNames, std::string* certFile,
                        std::string* keyFile) {
  unsigned serial = g_serial++;
  std::string stem = m_dir.File("server-" + std::to_string(serial));
  std::string sans;
  for (const std::string& alt : altNames) sans += (sans.empty() ? "" : ",") + alt;
  std::string ext = "basicConstraints=critical,CA:FALSE\n"
                    "keyUsage=critical,digitalSignature,keyEncipherment\n"
                    "extendedKeyUsage=serverAuth\n";
  if (!sans.empty()) ext += "subjectAltName=" + sans + "\n";
  m_dir.Write("server-" + std::to_string(serial) + ".ext", ext);
  std::string why = RunOpenssl({"req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", stem + ".key", "-out",
                                stem + ".csr", "-subj", "/O=ZoNetwork tests/CN=" + name});
  if (why.empty()) {
    char serialText[32];
    snprintf(serialText, sizeof serialText, "0x%x%04x", static_cast<unsigned>(getpid()), serial);
    why = RunOpenssl({"x509", "-req", "-in", stem + ".csr", "-CA", m_caFile, "-CAkey", m_caKeyFile, "-set_serial",
                      serialText, "-days", "2", "-sha256", "-extfile", stem + ".ext", "-out", stem + ".crt"});
  }
  if (!why.empty()) {
    m_reason = why;
    return false;
  }
  *certFile = stem + ".crt";
  *keyFile = stem + ".key";
  return true;
}

// ---------------------------------------------------------------------------
// NginxServer

namespace {
// nginx takes no variable as a status, so each one served gets its location.
std::string StatusLocations() {
  std::string text;
  for (int status : {200, 201, 204, 301, 302, 303, 307, 308, 400, 401, 403, 404, 405, 409, 410, 500, 501, 502, 503}) {
    text += "    location = /status/" + std::to_string(status) + " { return " + std::to_string(status) + "; }\n";
  }
  return text;
}
}  // namespace

NginxServer::NginxServer(const Options& options) : m_options(options) {
  std::string why = ServerUnavailableReason("nginx");
  if (why.empty() && !m_dir.Ok()) why = "cannot make a temporary folder";
  if (why.empty() && m_options.user.find(':') != std::string::npos) why = "a Basic auth user name cannot hold ':'";
  if (why.empty() && m_options.tls) {
    m_ca.reset(new ThrowawayCA());
    if (!m_ca->Ok()) why = "no certificate: " + m_ca->Reason();
  }
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  m_root = m_dir.MakeDir("www");
  m_dir.MakeDir("www/private");
  m_dir.MakeDir("www/upload");
  m_dir.MakeDir("logs");
  m_dir.MakeDir("tmp");
  m_dir.Write("www/index.html", "<html><body>ZoNetwork test server</body></html>\n");
  if (!m_options.user.empty()) {
    // nginx reads a plain-text password with the {PLAIN} scheme.
    m_dir.Write("htpasswd", m_options.user + ":{PLAIN}" + m_options.password + "\n", 0600);
  }
  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    if (StartOnce(&why)) {
      m_ok = true;
      m_reason.clear();
      return;
    }
    m_reason = why;
    // Only a lost port is worth another try.
    if (ErrorLog().find("Address already in use") == std::string::npos) break;
  }
}

bool NginxServer::StartOnce(std::string* why) {
  m_port = PickFreePort();
  if (m_port == 0) {
    *why = "no free port";
    return false;
  }
  const std::string& d = m_dir.Path();
  std::ostringstream conf;
  conf << "# Written by the ZoNetwork test fixture; nothing here refers to the system's nginx.\n"
       << "daemon off;\n"
       << "master_process off;\n"
       << "worker_processes 1;\n"
       << "pid " << d << "/nginx.pid;\n"
       << "error_log " << d << "/logs/error.log info;\n"
       << "events { worker_connections 512; }\n"
       << "http {\n"
       << "  access_log " << d << "/logs/access.log;\n"
       << "  client_body_temp_path " << d << "/tmp/body;\n"
       << "  proxy_temp_path " << d << "/tmp/proxy;\n"
       << "  fastcgi_temp_path " << d << "/tmp/fastcgi;\n"
       << "  uwsgi_temp_path " << d << "/tmp/uwsgi;\n"
       << "  scgi_temp_path " << d << "/tmp/scgi;\n"
       << "  types { text/html html htm; text/plain txt; application/json json; }\n"
       << "  default_type application/octet-stream;\n"
       << "  sendfile on;\n"
       << "  keepalive_requests 100000;\n"
       << "  client_max_body_size 0;\n"
       << "  server {\n"
       << "    listen 127.0.0.1:" << m_port << (m_options.tls ? " ssl" : "") << ";\n"
       << "    server_name localhost;\n"
       << "    root " << m_root << ";\n";
  if (m_options.tls) {
    conf << "    ssl_certificate " << m_ca->CertFile() << ";\n"
         << "    ssl_certificate_key " << m_ca->KeyFile() << ";\n";
  }
  conf << "    location / { autoindex on; }\n"
       << "    location /private/ {\n"
       << "      autoindex on;\n";
  if (!m_options.user.empty()) {
    conf << "      auth_basic \"ZoNetwork test\";\n"
         << "      auth_basic_user_file " << d << "/htpasswd;\n";
  }
  conf << "    }\n"
       << "    location /upload/ {\n"
       << "      autoindex on;\n";
  if (m_options.dav) {
    conf << "      dav_methods PUT DELETE MKCOL COPY MOVE;\n"
         << "      create_full_put_path on;\n"
         << "      dav_access user:rw group:rw all:r;\n";
  }
  conf << "    }\n"
       << "    location ~ ^/redirect/(.*)$ { return 302 /$1; }\n"
       << "    location ~ ^/redirect301/(.*)$ { return 301 /$1; }\n"
       << StatusLocations()
       << m_options.extraConfig << "\n"
       << "  }\n"
       << "}\n";
  std::string confFile = m_dir.Write("nginx.conf", conf.str());
  std::vector<std::string> argv{FindProgram("nginx"), "-p", d + "/", "-c", confFile, "-e", d + "/logs/error.log"};
  if (!m_child.Start(argv, m_dir.File("logs/stderr.log"))) {
    *why = m_child.Error();
    return false;
  }
  std::string failure = WaitUntilAccepting(m_child, m_port, kServerStartSeconds * 1000);
  if (failure.empty()) return true;
  m_child.Stop();
  *why = "nginx: " + failure + "\n--- error log ---\n" + Tail(ErrorLog()) + "\n--- output ---\n" +
         Tail(ReadFile(m_dir.File("logs/stderr.log")));
  return false;
}

NginxServer::~NginxServer() { m_child.Stop(); }

std::string NginxServer::Url(const std::string& path) const {
  std::string rest = !path.empty() && path[0] == '/' ? path.substr(1) : path;
  return std::string(m_options.tls ? "https" : "http") + "://localhost:" + std::to_string(m_port) + "/" + rest;
}

std::string NginxServer::AddFile(const std::string& relativePath, const std::string& contents) const {
  std::string rest = !relativePath.empty() && relativePath[0] == '/' ? relativePath.substr(1) : relativePath;
  return m_dir.Write("www/" + rest, contents);
}

std::string NginxServer::AddPatternFile(const std::string& relativePath, uint64_t bytes) const {
  std::string rest = !relativePath.empty() && relativePath[0] == '/' ? relativePath.substr(1) : relativePath;
  std::string path = m_root + "/" + rest;
  return WritePatternFile(path, bytes) ? path : "";
}

std::string NginxServer::CaFile() const { return m_ca ? m_ca->CaFile() : ""; }

std::string NginxServer::AccessLog() const { return ReadFile(m_dir.File("logs/access.log")); }

std::string NginxServer::ErrorLog() const { return ReadFile(m_dir.File("logs/error.log")); }

bool NginxServer::WaitForAccessLog(const std::string& needle, int timeoutMs) const {
  auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (AccessLog().find(needle) == std::string::npos) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollStep);
  }
  return true;
}

// ---------------------------------------------------------------------------
// ScriptedHttpPeer

ScriptedHttpPeer::ScriptedHttpPeer(const std::vector<Reply>& replies) : ScriptedHttpPeer(replies, Options()) {}

ScriptedHttpPeer::ScriptedHttpPeer(const std::vector<Reply>& replies, const Options& options) {
  std::string python = Python();
  if (python.empty()) {
    m_reason = ServerUnavailableReason("python3");
    return;
  }
  if (!m_dir.Ok()) {
    m_reason = "cannot make a temporary folder";
    return;
  }
  if (replies.empty()) {
    m_reason = "a scripted peer needs at least one reply";
    return;
  }
  std::ostringstream script;
  for (size_t i = 0; i < replies.size(); ++i) {
    const Reply& reply = replies[i];
    char name[32];
    snprintf(name, sizeof name, "reply-%03zu.bin", i);
    m_dir.Write(name, reply.raw);
    script << reply.delayMs << ' ' << (reply.closeAfter ? 1 : 0) << ' ' << (reply.stall ? 1 : 0) << ' '
           << reply.cutAfter << '\n';
  }
  m_dir.Write("script.txt", script.str());
  std::vector<std::string> argv{python, ZOTEST_HTTP_PEER_PY, m_dir.Path(), "3"};
  if (!options.answerExpectContinue) argv.push_back("--no-continue");
  int ready = -1;
  if (!m_child.Start(argv, m_dir.File("peer.log"), &ready)) {
    m_reason = m_child.Error();
    return;
  }
  // The peer binds port 0 itself and writes the port it got on the pipe: no
  // race for the port, and no polling.
  std::string line;
  auto deadline = Clock::now() + std::chrono::seconds(kServerStartSeconds);
  while (line.find('\n') == std::string::npos) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) break;
    pollfd wait{ready, POLLIN, 0};
    int got = poll(&wait, 1, static_cast<int>(left));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    char buffer[64];
    ssize_t n = read(ready, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    line.append(buffer, static_cast<size_t>(n));
  }
  close(ready);
  m_port = atoi(line.c_str());
  if (m_port <= 0 || line.find('\n') == std::string::npos) {
    m_child.Stop();
    m_reason = "the scripted peer did not report its port (" + m_child.HowItEnded() + ")\n--- output ---\n" +
               Tail(ReadFile(m_dir.File("peer.log")));
    return;
  }
  m_ok = true;
}

ScriptedHttpPeer::~ScriptedHttpPeer() { m_child.Stop(); }

std::string ScriptedHttpPeer::Url(const std::string& path) const {
  std::string rest = !path.empty() && path[0] == '/' ? path.substr(1) : path;
  return "http://localhost:" + std::to_string(m_port) + "/" + rest;
}

std::vector<std::string> ScriptedHttpPeer::Requests() const {
  std::vector<std::string> names;
  DIR* dir = opendir(m_dir.Path().c_str());
  if (dir != nullptr) {
    while (dirent* entry = readdir(dir)) {
      std::string name = entry->d_name;
      if (name.size() == 14 && name.compare(0, 4, "req-") == 0 && name.compare(10, 4, ".bin") == 0) {
        names.push_back(name);
      }
    }
    closedir(dir);
  }
  std::sort(names.begin(), names.end());
  std::vector<std::string> requests;
  for (const std::string& name : names) requests.push_back(ReadFile(m_dir.File(name)));
  return requests;
}

bool ScriptedHttpPeer::WaitForRequests(size_t count, int timeoutMs) const {
  auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (Requests().size() < count) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(kPollStep);
  }
  return true;
}

int ScriptedHttpPeer::Connections() const { return atoi(ReadFile(m_dir.File("accepted.txt")).c_str()); }

std::string ScriptedHttpPeer::Response(int status, const std::string& reason, const std::vector<std::string>& headers,
                                       const std::string& body, bool noLength) {
  std::string raw = "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\n";
  bool hasLength = false;
  for (const std::string& header : headers) {
    std::string lower = header.substr(0, header.find(':'));
    std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
    if (lower == "content-length" || lower == "transfer-encoding") hasLength = true;
    raw += header + "\r\n";
  }
  if (!hasLength && !noLength) raw += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return raw + "\r\n" + body;
}

std::string ScriptedHttpPeer::ChunkedResponse(int status, const std::string& reason,
                                              const std::vector<std::string>& headers, const std::string& body,
                                              size_t chunkSize) {
  std::vector<std::string> all = headers;
  all.push_back("Transfer-Encoding: chunked");
  std::string chunks;
  for (size_t at = 0; at < body.size(); at += chunkSize) {
    std::string piece = body.substr(at, chunkSize);
    char size[32];
    std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
    chunks += size + piece + "\r\n";
  }
  return Response(status, reason, all, chunks + "0\r\n\r\n");
}

// ---------------------------------------------------------------------------
// ForwardProxy

ForwardProxy::ForwardProxy(const std::string& user, const std::string& password) {
  std::string why = ServerUnavailableReason("tinyproxy");
  if (why.empty() && !m_dir.Ok()) why = "cannot make a temporary folder";
  if (why.empty() && (user.find_first_of(" \t\n\"") != std::string::npos ||
                      password.find_first_of(" \t\n\"") != std::string::npos)) {
    why = "tinyproxy takes no blanks or quotes in a Basic auth user or password";
  }
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    m_port = PickFreePort();
    if (m_port == 0) {
      m_reason = "no free port";
      return;
    }
    const std::string& d = m_dir.Path();
    std::ostringstream conf;
    conf << "# Written by the ZoNetwork test fixture.\n"
         << "Port " << m_port << "\n"
         << "Listen 127.0.0.1\n"
         << "Timeout 30\n"
         << "LogFile \"" << d << "/tinyproxy.log\"\n"
         << "LogLevel Info\n"
         << "PidFile \"" << d << "/tinyproxy.pid\"\n"
         << "MaxClients 64\n"
         << "Allow 127.0.0.1\n";
    // No ConnectPort line: tunnels to every port (the test servers' ports are free ones).
    if (!user.empty()) conf << "BasicAuth " << user << " " << password << "\n";
    std::string confFile = m_dir.Write("tinyproxy.conf", conf.str());
    if (!m_child.Start({FindProgram("tinyproxy"), "-d", "-c", confFile}, m_dir.File("output.log"))) {
      m_reason = m_child.Error();
      return;
    }
    std::string failure = WaitUntilAccepting(m_child, m_port, kServerStartSeconds * 1000);
    if (failure.empty()) {
      m_ok = true;
      m_reason.clear();
      return;
    }
    m_child.Stop();
    std::string log = Log();
    m_reason = "tinyproxy: " + failure + "\n--- log ---\n" + Tail(log) + "\n--- output ---\n" +
               Tail(ReadFile(m_dir.File("output.log")));
    if (log.find("in use") == std::string::npos && log.find("Could not create listening") == std::string::npos) {
      return;
    }
  }
}

ForwardProxy::~ForwardProxy() { m_child.Stop(); }

std::string ForwardProxy::Url() const { return "http://127.0.0.1:" + std::to_string(m_port); }

std::string ForwardProxy::Log() const { return ReadFile(m_dir.File("tinyproxy.log")); }

std::vector<std::string> ForwardProxy::ForwardedUrls() const {
  // tinyproxy logs "Request (file descriptor N): METHOD TARGET VERSION" as
  // soon as it reads a request line, before it checks the credentials, and
  // "opensock: opening connection to HOST:PORT" only when it goes on to the
  // target. A request counts as forwarded when such a line for its host and
  // port follows it; the latest request for that host and port not yet
  // matched takes it, so a refused request (which leaves no such line) is not
  // credited with the next one's forwarding.
  struct Pending {
    std::string target, hostPort;
    bool forwarded = false;
  };
  std::vector<Pending> requests;
  std::istringstream log(Log());
  for (std::string line; std::getline(log, line);) {
    size_t at = line.find("]: Request (file descriptor ");
    if (at != std::string::npos) {
      size_t colon = line.find("): ", at);
      if (colon == std::string::npos) continue;
      std::istringstream words(line.substr(colon + 3));
      std::string method, target;
      words >> method >> target;
      Pending pending;
      pending.target = target;
      if (method == "CONNECT") {
        pending.hostPort = target;
      } else {
        std::string rest = target;
        size_t scheme = rest.find("://");
        if (scheme != std::string::npos) rest = rest.substr(scheme + 3);
        rest = rest.substr(0, rest.find('/'));
        if (rest.find(':') == std::string::npos || rest.back() == ']') rest += ":80";
        pending.hostPort = rest;
      }
      requests.push_back(pending);
      continue;
    }
    at = line.find("]: opensock: opening connection to ");
    if (at != std::string::npos) {
      std::string hostPort = line.substr(at + strlen("]: opensock: opening connection to "));
      for (auto it = requests.rbegin(); it != requests.rend(); ++it) {
        if (!it->forwarded && it->hostPort == hostPort) {
          it->forwarded = true;
          break;
        }
      }
    }
  }
  std::vector<std::string> urls;
  for (const Pending& pending : requests) {
    if (pending.forwarded) urls.push_back(pending.target);
  }
  return urls;
}

}  // namespace zotest

namespace zotest {

// ---------------------------------------------------------------------------
// Private mounts and logins

std::string PrivateMountsUnavailableReason() {
  static const std::string reason = [] {
    if (geteuid() != 0) return std::string("needs root: the server runs in a private mount namespace");
    if (FindProgram("unshare").empty()) return std::string("unshare is not installed (Debian package util-linux)");
    ProgramResult probe = RunProgram({"unshare", "--mount", "--propagation", "private", "--", "true"}, 10000);
    if (probe.status != 0) return "cannot make a mount namespace here: " + probe.err;
    return std::string();
  }();
  return reason;
}

namespace {

// The command that runs argv in a new mount namespace where each bind's
// first file is mounted over its second (and, with privateRun, /run is an
// empty tmpfs with the folder sshd wants), then runs the server. The
// process ChildProcess started is unshare, which waits for the namespace's
// init and kills it when it goes itself. Nothing is visible outside.
std::vector<std::string> InPrivateMounts(const FixtureDir& dir,
                                         const std::vector<std::pair<std::string, std::string>>& binds,
                                         bool privateRun, const std::vector<std::string>& argv) {
  std::string script = "#!/bin/sh\n# Written by the ZoNetwork test fixture: a private view for one server.\nset -e\n";
  if (privateRun) script += "mount -t tmpfs -o mode=0755,size=1m zotest-run /run\nmkdir -m 0755 /run/sshd\n";
  for (const auto& bind : binds) script += "mount --bind '" + bind.first + "' '" + bind.second + "'\n";
  // The shell stays as the namespace's init and the server runs as its child:
  // the init reaps every orphan (vsftpd's listener dies of a child it did not
  // start), and the shell's wait collects any pid, not only its job's.
  script += "\"$@\" &\nwait $!\n";
  std::string path = dir.Write("private-mounts.sh", script, 0755);
  // A PID namespace too: a session that its parent leaves behind is reaped
  // inside it, not by anyone outside, and when its init dies the kernel ends
  // and reaps all of them.
  std::vector<std::string> command{FindProgram("unshare"), "--mount", "--propagation", "private", "--pid",
                                   "--fork", "--kill-child", "--", "/bin/sh", path};
  command.insert(command.end(), argv.begin(), argv.end());
  return command;
}

// The lines of a passwd or shadow file without those for the given names,
// so that a private login of the same name as a real account wins.
std::string WithoutUsers(const std::string& file, const std::vector<std::string>& names) {
  std::istringstream in(file);
  std::string kept;
  for (std::string line; std::getline(in, line);) {
    std::string name = line.substr(0, line.find(':'));
    if (std::find(names.begin(), names.end(), name) == names.end()) kept += line + "\n";
  }
  return kept;
}

// Private copies of /etc/passwd and /etc/shadow with the logins added
// ("passwd" and "shadow" in dir); the binds that put them in place; "" or why not.
std::string WritePrivateLogins(const FixtureDir& dir, const std::vector<PrivateLogin>& logins,
                               std::vector<std::pair<std::string, std::string>>* binds) {
  std::vector<std::string> names;
  for (const PrivateLogin& login : logins) names.push_back(login.user);
  std::string passwd = WithoutUsers(ReadFile("/etc/passwd"), names);
  std::string shadow = WithoutUsers(ReadFile("/etc/shadow"), names);
  if (passwd.empty()) return "cannot read /etc/passwd";
  for (const PrivateLogin& login : logins) {
    if (login.user.empty() || login.user.find_first_of(":\n ") != std::string::npos) {
      return "a login name cannot be empty or hold ':', blanks or line ends";
    }
    std::string hash = "*";  // no password login
    if (!login.password.empty()) {
      // From a file: RunProgram's stdin is /dev/null, and an argument would
      // show in the process list.
      std::string file = dir.Write("password.tmp", login.password + "\n", 0600);
      ProgramResult made = RunProgram({"openssl", "passwd", "-6", "-in", file}, 10000);
      unlink(file.c_str());
      if (made.status != 0 || made.out.empty()) return "openssl passwd failed: " + made.err;
      hash = made.out.substr(0, made.out.find('\n'));
    }
    passwd += login.user + ":x:" + std::to_string(login.uid) + ":" + std::to_string(login.gid) +
              ":ZoNetwork test login:" + login.home + ":" + login.shell + "\n";
    shadow += login.user + ":" + hash + ":19000:0:99999:7:::\n";
  }
  std::string passwdFile = dir.Write("passwd", passwd, 0644);
  std::string shadowFile = dir.Write("shadow", shadow, 0600);
  if (passwdFile.empty() || shadowFile.empty()) return "cannot write the private account files";
  binds->push_back({passwdFile, "/etc/passwd"});
  binds->push_back({shadowFile, "/etc/shadow"});
  return "";
}

void ChownTree(const std::string& path, uid_t uid, gid_t gid) {
  if (lchown(path.c_str(), uid, gid) != 0) return;
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) return;
  while (dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    ChownTree(path + "/" + name, uid, gid);
  }
  closedir(dir);
}

// The uid and gid that own the FTP tree and run its sessions: the
// conventional "nobody", which needs no account of ours.
constexpr uid_t kFtpUid = 65534;
constexpr gid_t kFtpGid = 65534;
// Anonymous sessions: a uid of no account, which only reads, and writes in upload/.
constexpr uid_t kFtpAnonUid = 65533;

}  // namespace

// ---------------------------------------------------------------------------
// FtpServer

FtpServer::FtpServer(const Options& options) : m_options(options) {
  std::string why = ServerUnavailableReason("vsftpd");
  if (why.empty()) why = PrivateMountsUnavailableReason();
  if (why.empty()) why = ServerUnavailableReason("openssl");
  if (why.empty() && !m_dir.Ok()) why = "cannot make a temporary folder";
  if (why.empty() && (m_options.tls || m_options.implicitTls)) {
    m_ca.reset(new ThrowawayCA());
    if (!m_ca->Ok()) why = "no certificate: " + m_ca->Reason();
  }
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  // The login's uid changes to its root by path before the chroot, so the
  // fixture's folder must be traversable (not readable) by it.
  chmod(m_dir.Path().c_str(), 0711);
  m_root = m_dir.MakeDir("root");
  m_dir.MakeDir("empty");
  ChownTree(m_root, kFtpUid, kFtpGid);
  m_dir.MakeDir("root/upload", 0777);
  std::vector<PrivateLogin> logins;
  PrivateLogin anonymous;
  anonymous.user = "zotest-anon";
  // Not the tree's owner: vsftpd refuses an anonymous session whose root it
  // may write to, whatever allow_writeable_chroot says.
  anonymous.uid = kFtpAnonUid;
  anonymous.gid = kFtpGid;
  anonymous.home = m_root;
  anonymous.shell = "/usr/sbin/nologin";
  logins.push_back(anonymous);
  if (!m_options.user.empty()) {
    PrivateLogin login;
    login.user = m_options.user;
    login.password = m_options.password;
    login.uid = kFtpUid;
    login.gid = kFtpGid;
    login.home = m_root;
    logins.push_back(login);
  }
  std::vector<std::pair<std::string, std::string>> binds;
  why = WritePrivateLogins(m_dir, logins, &binds);
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  // A PAM service of its own that checks the private shadow file, without
  // the machine's policy (ftpusers, shells) and without delays.
  std::string pamDir = m_dir.MakeDir("pam.d");
  m_dir.Write("pam.d/zotest-ftp",
              "auth required pam_unix.so nodelay\naccount required pam_unix.so\nsession required pam_permit.so\n");
  binds.push_back({pamDir, "/etc/pam.d"});

  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    m_port = PickFreePort();
    if (m_port == 0) {
      m_reason = "no free port";
      return;
    }
    bool tls = m_options.tls || m_options.implicitTls;
    std::ostringstream conf;
    conf << "# Written by the ZoNetwork test fixture.\n"
         << "listen=YES\nlisten_ipv6=NO\nlisten_address=127.0.0.1\nlisten_port=" << m_port << "\n"
         << "background=NO\n"
         // The sandboxes want kernel features a container may lack; the
         // fixture's jail is the chroot and the private mounts.
         << "seccomp_sandbox=NO\nisolate=NO\nisolate_network=NO\n"
         << "secure_chroot_dir=" << m_dir.File("empty") << "\n"
         << "pam_service_name=zotest-ftp\n"
         << "anonymous_enable=" << (m_options.anonymous ? "YES" : "NO") << "\n"
         << "anon_root=" << m_root << "\nno_anon_password=YES\nftp_username=zotest-anon\n"
         << "anon_upload_enable=YES\nanon_mkdir_write_enable=YES\nanon_other_write_enable=YES\n"
         << "anon_world_readable_only=NO\nanon_umask=022\n"
         << "local_enable=" << (m_options.user.empty() ? "NO" : "YES") << "\n"
         << "local_root=" << m_root << "\nchroot_local_user=YES\nallow_writeable_chroot=YES\nlocal_umask=022\n"
         << "write_enable=YES\ndirlist_enable=YES\ndownload_enable=YES\n"
         << "connect_from_port_20=NO\nidle_session_timeout=120\ndata_connection_timeout=60\n"
         << "vsftpd_log_file=" << m_dir.File("vsftpd.log") << "\n"
         << "xferlog_enable=YES\nlog_ftp_protocol=YES\n";
    if (m_options.maxRate > 0) {
      conf << "local_max_rate=" << m_options.maxRate << "\nanon_max_rate=" << m_options.maxRate << "\n";
    }
    if (tls) {
      conf << "ssl_enable=YES\n"
           << "rsa_cert_file=" << m_ca->CertFile() << "\nrsa_private_key_file=" << m_ca->KeyFile() << "\n"
           << "ssl_ciphers=HIGH\nrequire_ssl_reuse=NO\nallow_anon_ssl=YES\n"
           << "force_anon_logins_ssl=NO\nforce_anon_data_ssl=NO\n"
           << "force_local_logins_ssl=YES\nforce_local_data_ssl=YES\n"
           << "implicit_ssl=" << (m_options.implicitTls ? "YES" : "NO") << "\n";
    }
    std::string confFile = m_dir.Write("vsftpd.conf", conf.str(), 0600);
    std::vector<std::string> argv = InPrivateMounts(m_dir, binds, false, {FindProgram("vsftpd"), confFile});
    if (!m_child.Start(argv, m_dir.File("output.log"))) {
      m_reason = m_child.Error();
      return;
    }
    std::string failure = WaitUntilAccepting(m_child, m_port, kServerStartSeconds * 1000);
    if (failure.empty()) {
      m_ok = true;
      m_reason.clear();
      return;
    }
    m_child.Stop(0);
    std::string output = ReadFile(m_dir.File("output.log"));
    m_reason = "vsftpd: " + failure + "\n--- output ---\n" + Tail(output) + "\n--- log ---\n" + Tail(Log());
    if (output.find("could not bind") == std::string::npos) return;
  }
}

// The server is a PID namespace's init, which takes no TERM from outside
// (it has no handler for it): KILL at once.
FtpServer::~FtpServer() { m_child.Stop(0); }

std::string FtpServer::Url(const std::string& path) const {
  std::string rest = !path.empty() && path[0] == '/' ? path.substr(1) : path;
  return std::string(m_options.implicitTls ? "ftps" : "ftp") + "://localhost:" + std::to_string(m_port) + "/" + rest;
}

std::string FtpServer::AddFile(const std::string& relativePath, const std::string& contents) const {
  std::string rest = !relativePath.empty() && relativePath[0] == '/' ? relativePath.substr(1) : relativePath;
  std::string path = m_dir.Write("root/" + rest, contents);
  if (!path.empty()) ChownTree(m_root, kFtpUid, kFtpGid);
  return path;
}

std::string FtpServer::AddDir(const std::string& relativePath) const {
  std::string rest = !relativePath.empty() && relativePath[0] == '/' ? relativePath.substr(1) : relativePath;
  std::string path = m_dir.MakeDir("root/" + rest);
  ChownTree(m_root, kFtpUid, kFtpGid);
  return path;
}

std::string FtpServer::CaFile() const { return m_ca ? m_ca->CaFile() : ""; }

std::string FtpServer::Log() const { return ReadFile(m_dir.File("vsftpd.log")); }

// ---------------------------------------------------------------------------
// SshServer

namespace {
std::string RunKeygen(const std::vector<std::string>& args, std::string* out = nullptr) {
  std::vector<std::string> argv{"ssh-keygen"};
  argv.insert(argv.end(), args.begin(), args.end());
  ProgramResult run = RunProgram(argv, 30000);
  if (out != nullptr) *out = run.out;
  if (run.status == 0) return "";
  return "ssh-keygen failed: " + Tail(run.err + run.out);
}

// "256 SHA256:abc... comment (ED25519)" -> "abc..."; "MD5:aa:bb:..." -> "aabb...".
std::string FingerprintOf(const std::string& line, const std::string& prefix) {
  size_t at = line.find(prefix);
  if (at == std::string::npos) return "";
  std::string value = line.substr(at + prefix.size());
  value = value.substr(0, value.find(' '));
  value.erase(std::remove(value.begin(), value.end(), ':'), value.end());
  return value;
}
}  // namespace

SshServer::SshServer(const Options& options) : m_options(options) {
  std::string why = ServerUnavailableReason("sshd");
  if (why.empty()) why = ServerUnavailableReason("ssh-keygen");
  if (why.empty()) why = PrivateMountsUnavailableReason();
  if (why.empty()) why = ServerUnavailableReason("openssl");
  if (why.empty() && !m_dir.Ok()) why = "cannot make a temporary folder";
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  m_root = m_dir.MakeDir("root");
  const std::string host = m_dir.File("host_ed25519");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"-q", "-t", "ed25519", "-N", "", "-C", "zotest-host", "-f", host},
        std::vector<std::string>{"-q", "-t", "rsa", "-b", "2048", "-m", "PEM", "-N", "", "-C", "zotest-client", "-f",
                                 ClientKeyFile()},
        std::vector<std::string>{"-q", "-t", "ed25519", "-N", "", "-C", "zotest-client", "-f",
                                 ClientEd25519KeyFile()},
        std::vector<std::string>{"-q", "-t", "rsa", "-b", "2048", "-m", "PEM", "-N", "", "-C", "zotest-stranger",
                                 "-f", StrangerKeyFile()}}) {
    why = RunKeygen(args);
    if (!why.empty()) {
      m_reason = why;
      return;
    }
  }
  std::string line;
  RunKeygen({"-l", "-E", "sha256", "-f", host + ".pub"}, &line);
  m_hostSha256 = FingerprintOf(line, "SHA256:");
  RunKeygen({"-l", "-E", "md5", "-f", host + ".pub"}, &line);
  m_hostMd5 = FingerprintOf(line, "MD5:");
  m_dir.Write("authorized_keys", ReadFile(ClientPublicKeyFile()) + ReadFile(ClientEd25519PublicKeyFile()), 0600);

  PrivateLogin login;
  login.user = m_options.user;
  login.password = m_options.password;
  login.uid = 0;
  login.gid = 0;
  login.home = m_root;
  std::vector<std::pair<std::string, std::string>> binds;
  why = WritePrivateLogins(m_dir, {login}, &binds);
  if (!why.empty()) {
    m_reason = why;
    return;
  }
  std::string hostPublic = ReadFile(host + ".pub");
  hostPublic = hostPublic.substr(0, hostPublic.rfind(' '));  // without the comment

  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    m_port = PickFreePort();
    if (m_port == 0) {
      m_reason = "no free port";
      return;
    }
    std::string port = std::to_string(m_port);
    m_dir.Write("known_hosts",
                "[localhost]:" + port + " " + hostPublic + "\n[127.0.0.1]:" + port + " " + hostPublic + "\n");
    std::ostringstream conf;
    conf << "# Written by the ZoNetwork test fixture.\n"
         << "Port " << m_port << "\nListenAddress 127.0.0.1\n"
         << "HostKey " << host << "\n"
         << "PidFile " << m_dir.File("sshd.pid") << "\n"
         << "AuthorizedKeysFile " << m_dir.File("authorized_keys") << "\n"
         << "StrictModes no\nUsePAM no\nPermitRootLogin yes\n"
         << "PubkeyAuthentication yes\n"
         // libssh2 before 1.11 signs with ssh-rsa (SHA-1) only.
         << "PubkeyAcceptedAlgorithms +ssh-rsa\n"
         << "PasswordAuthentication " << (m_options.passwordAuth ? "yes" : "no") << "\n"
         << "PermitEmptyPasswords no\nKbdInteractiveAuthentication no\n"
         << "AllowUsers " << m_options.user << "\n"
         << "Subsystem sftp internal-sftp\n"
         << "ForceCommand internal-sftp -d " << m_root << "\n"
         << "AllowTcpForwarding no\nAllowAgentForwarding no\nX11Forwarding no\nPermitTTY no\n"
         << "PrintMotd no\nPrintLastLog no\nUseDNS no\n"
         << "MaxAuthTries 10\nMaxStartups 100\nLoginGraceTime 30\n"
         << "LogLevel VERBOSE\n";
    std::string confFile = m_dir.Write("sshd_config", conf.str(), 0600);
    std::vector<std::string> argv =
        InPrivateMounts(m_dir, binds, true, {FindProgram("sshd"), "-D", "-e", "-f", confFile});
    if (!m_child.Start(argv, m_dir.File("sshd.log"))) {
      m_reason = m_child.Error();
      return;
    }
    std::string failure = WaitUntilAccepting(m_child, m_port, kServerStartSeconds * 1000);
    if (failure.empty()) {
      m_ok = true;
      m_reason.clear();
      return;
    }
    m_child.Stop(0);
    m_reason = "sshd: " + failure + "\n--- log ---\n" + Tail(Log());
    if (Log().find("Address already in use") == std::string::npos) return;
  }
}

SshServer::~SshServer() { m_child.Stop(0); }

std::string SshServer::Url(const std::string& path) const {
  std::string rest = !path.empty() && path[0] == '/' ? path.substr(1) : path;
  return "sftp://localhost:" + std::to_string(m_port) + m_root + "/" + rest;
}

std::string SshServer::AddFile(const std::string& relativePath, const std::string& contents) const {
  std::string rest = !relativePath.empty() && relativePath[0] == '/' ? relativePath.substr(1) : relativePath;
  return m_dir.Write("root/" + rest, contents);
}

std::string SshServer::Log() const { return ReadFile(m_dir.File("sshd.log")); }

}  // namespace zotest
