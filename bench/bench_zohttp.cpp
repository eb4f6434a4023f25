// ZoHTTP's transfers beside the curl command-line tool, in the same run,
// against the same nginx on loopback: a download of 1 GiB over HTTP and over
// HTTPS, and a multipart upload of 100 MiB. Both sides run as processes
// (the zonet tool's "zohttp" command for the library), so each is measured
// the same way: wall time, and the peak resident memory the kernel reports
// for the process (wait4). A 64 MiB download beside the 1 GiB one shows that
// the memory does not grow with the size. Skipped without nginx or curl.
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchSupport.h"
#include "support/Servers.h"

namespace {

constexpr uint64_t kBig = 1ull << 30;
constexpr uint64_t kSmall = 64ull << 20;
constexpr uint64_t kUpload = 100ull << 20;

struct Peers {
  std::unique_ptr<zotest::NginxServer> plain, tls;
  std::unique_ptr<zotest::FixtureDir> work;
  std::string why;
  std::string upload;  // the file to post
  // Where the downloads go: memory-backed, as the other transfer benchmarks'
  // files, so that the disk's write-back does not decide.
  std::string out = zobench::Scratch("zohttp");
  Peers() = default;
  Peers(Peers&&) = default;
  ~Peers() {
    if (out.empty()) return;
    ::rmdir((out + "/files").c_str());
    ::rmdir(out.c_str());
  }
};

// Both servers serve the same large files: written once into the plain
// server's folder, linked from the other's.
Peers& GetPeers() {
  static Peers peers = [] {
    Peers p;
    p.why = zotest::ServerUnavailableReason("nginx");
    if (p.why.empty()) p.why = zotest::ServerUnavailableReason("curl");
    if (!p.why.empty()) return p;
    zotest::NginxServer::Options options;
    options.extraConfig = "location = /up/upload.asp { client_max_body_size 0; return 200 \"taken\"; }";
    p.plain = std::make_unique<zotest::NginxServer>(options);
    options.tls = true;
    p.tls = std::make_unique<zotest::NginxServer>(options);
    p.work = std::make_unique<zotest::FixtureDir>("bench");
    if (!p.plain->Ok() || !p.tls->Ok()) {
      p.why = p.plain->Reason() + p.tls->Reason();
      return p;
    }
    for (auto [name, size] : {std::make_pair("big.bin", kBig), std::make_pair("small.bin", kSmall)}) {
      std::string file = p.plain->AddPatternFile(std::string("files/") + name, size);
      std::string link = p.tls->Root() + "/files";
      ::mkdir(link.c_str(), 0755);
      if (file.empty() || ::symlink(file.c_str(), (link + "/" + name).c_str()) != 0) p.why = "cannot write " + file;
    }
    ::mkdir(p.out.c_str(), 0755);
    p.upload = p.work->File("upload.log");
    if (!zotest::WritePatternFile(p.upload, kUpload)) p.why = "cannot write " + p.upload;
    return p;
  }();
  return peers;
}

struct Run {
  bool ok = false;
  double seconds = 0;
  long maxRssKiB = 0;
  std::string why;
};

// Runs argv to its end with its output thrown away; its wall time and the
// kernel's peak resident size of it.
Run Measure(const std::vector<std::string>& argv) {
  Run run;
  auto start = std::chrono::steady_clock::now();
  pid_t pid = ::fork();
  if (pid == 0) {
    std::freopen("/dev/null", "w", stdout);
    std::freopen("/dev/null", "w", stderr);
    std::vector<char*> args;
    for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
  }
  int status = 0;
  struct rusage usage {};
  if (pid < 0 || ::wait4(pid, &status, 0, &usage) != pid) {
    run.why = "cannot run " + argv[0];
    return run;
  }
  run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  run.maxRssKiB = usage.ru_maxrss;
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!run.ok) run.why = argv[0] + " failed with status " + std::to_string(status);
  return run;
}

void Report(benchmark::State& state, const std::vector<std::string>& argv, uint64_t bytes,
            const std::string& produced) {
  Peers& peers = GetPeers();
  if (!peers.why.empty()) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  long rss = 0;
  for (auto _ : state) {
    Run run = Measure(argv);
    if (!produced.empty()) std::remove(produced.c_str());
    if (!run.ok) {
      state.SkipWithError(run.why.c_str());
      return;
    }
    state.SetIterationTime(run.seconds);
    rss = std::max(rss, run.maxRssKiB);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["peak_rss_MiB"] = static_cast<double>(rss) / 1024.0;
}

std::string Zonet() { return ZONET_TOOL; }

void BM_ZoHTTP_Download(benchmark::State& state) {
  Peers& peers = GetPeers();
  bool tls = state.range(0) != 0;
  bool big = state.range(1) != 0;
  if (!peers.why.empty()) return Report(state, {}, 0, "");
  const auto& server = tls ? *peers.tls : *peers.plain;
  const char* name = big ? "big.bin" : "small.bin";
  std::vector<std::string> argv{Zonet(), "zohttp", "get", server.Url("files"), name, "--dir", peers.out};
  if (tls) argv.push_back("--insecure");
  Report(state, argv, big ? kBig : kSmall, peers.out + "/files/" + name);
}

void BM_Curl_Download(benchmark::State& state) {
  Peers& peers = GetPeers();
  bool tls = state.range(0) != 0;
  bool big = state.range(1) != 0;
  if (!peers.why.empty()) return Report(state, {}, 0, "");
  const auto& server = tls ? *peers.tls : *peers.plain;
  const char* name = big ? "big.bin" : "small.bin";
  std::string out = peers.out + "/curl-" + name;
  std::vector<std::string> argv{"curl", "-s", "-f", "-o", out, server.Url(std::string("files/") + name)};
  if (tls) argv.insert(argv.begin() + 1, "-k");
  Report(state, argv, big ? kBig : kSmall, out);
}

void BM_ZoHTTP_Upload(benchmark::State& state) {
  Peers& peers = GetPeers();
  if (!peers.why.empty()) return Report(state, {}, 0, "");
  Report(state, {Zonet(), "zohttp", "upload", peers.plain->Url("up"), peers.upload}, kUpload, "");
}

void BM_Curl_Upload(benchmark::State& state) {
  Peers& peers = GetPeers();
  if (!peers.why.empty()) return Report(state, {}, 0, "");
  Report(state,
         // No "Expect: 100-continue": nginx would answer at once and curl send no body.
         {"curl", "-s", "-f", "-o", "/dev/null", "-H", "Expect:", "-F", "logfile=@" + peers.upload,
          peers.plain->Url("up/upload.asp")},
         kUpload, "");
}

}  // namespace

// Arguments: TLS (0 or 1), then the 1 GiB file (1) or the 64 MiB one (0).
BENCHMARK(BM_ZoHTTP_Download)->Args({0, 1})->Args({1, 1})->Args({0, 0})->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Curl_Download)->Args({0, 1})->Args({1, 1})->Args({0, 0})->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZoHTTP_Upload)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Curl_Upload)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);
