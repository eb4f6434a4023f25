// What the transfer benchmarks share: a scratch file name in memory-backed
// storage, a peer tool started and waited for, and the peak resident size.
#ifndef ZONET_BENCH_BENCHSUPPORT_H
#define ZONET_BENCH_BENCHSUPPORT_H

#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/Servers.h"

extern char** environ;

namespace zobench {

// A file name in /dev/shm (or /tmp), so that the disk is not what is measured.
inline std::string Scratch(const std::string& name) {
  struct stat st;
  std::string dir = stat("/dev/shm", &st) == 0 ? "/dev/shm" : "/tmp";
  return dir + "/zonet-bench-" + std::to_string(getpid()) + "-" + name;
}

// Runs a program from PATH with args and waits for it; its exit status, or
// -1 when it could not start or did not exit.
inline int RunTool(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid;
  if (posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Reads a served file through once, so that the page cache holds it before
// the first row: whichever row came first would otherwise pay for filling it
// (the pages of a sparse file are zeroed on their first read, about 2.5 s a
// GiB here, more than a whole transfer).
inline void WarmPageCache(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> chunk(1 << 20);
  while (in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()))) {
  }
}

// A plain and an HTTPS nginx of the test fixtures on loopback, each serving
// "big.bin", a sparse file of bigSize bytes already in the page cache, and
// the small files given (name, contents). ok, or why not.
struct NginxPair {
  std::unique_ptr<zotest::NginxServer> http, https;
  bool ok = false;
  std::string why;
  NginxPair(long long bigSize, const std::vector<std::pair<std::string, std::string>>& files) {
    http.reset(new zotest::NginxServer({}));
    zotest::NginxServer::Options tls;
    tls.tls = true;
    https.reset(new zotest::NginxServer(tls));
    if (!http->Ok() || !https->Ok()) {
      why = http->Ok() ? https->Reason() : http->Reason();
      return;
    }
    for (zotest::NginxServer* server : {http.get(), https.get()}) {
      std::string path = server->AddFile("big.bin", "");
      if (truncate(path.c_str(), bigSize) != 0) {
        why = "cannot make the big file";
        return;
      }
      WarmPageCache(path);
      for (const auto& file : files) server->AddFile(file.first, file.second);
    }
    ok = true;
  }
  zotest::NginxServer& Of(bool tls) { return tls ? *https : *http; }
};

// The peak resident size of RUSAGE_SELF or RUSAGE_CHILDREN, in MiB.
inline double PeakMiB(int who) {
  rusage usage{};
  getrusage(who, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace zobench

#endif  // ZONET_BENCH_BENCHSUPPORT_H
