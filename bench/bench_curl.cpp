// The curl request layer beside the curl command-line tool, in one run, on
// the same nginx on loopback: a 1 GiB download into a file over HTTP and
// HTTPS, and 1,000 small GETs on one object against the tool fetching the
// same URLs in one run. Files are written to /dev/shm, so the disk does not
// decide. Peak resident memory is reported as a counter.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnHTTPReq.h"
#include "BenchSupport.h"
#include "support/Servers.h"

using zobench::PeakMiB;
using zobench::RunTool;
using zobench::Scratch;

namespace {

const long long kBig = 1LL << 30;  // 1 GiB
const int kSmallCount = 1000;

// The two servers and their files, made once for the run.
struct Peers : zobench::NginxPair {
  Peers() : NginxPair(kBig, {{"small.txt", std::string(512, 's')}}) {}
};

Peers& Servers() {
  static Peers peers;
  return peers;
}

size_t WriteToFile(char* data, size_t size, size_t count, void* context) {
  return fwrite(data, size, count, static_cast<FILE*>(context));
}

size_t Discard(char*, size_t size, size_t count, void* context) {
  *static_cast<long long*>(context) += static_cast<long long>(size * count);
  return size * count;
}

void BM_Download1GiB_Library(benchmark::State& state) {
  Peers& peers = Servers();
  if (!peers.ok) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  const bool tls = state.range(0) == 1;
  zotest::NginxServer& server = peers.Of(tls);
  const std::string out = Scratch("library.bin");
  XnCURL::XnHTTPReq request(tls ? XnCURL::protocolHTTPS : XnCURL::protocolHTTP);
  if (request.initialize(0).IsError()) {
    state.SkipWithError("initialize failed");
    return;
  }
  if (tls) (void)request.setSecured(true, server.CaFile());
  request.setURL("localhost");
  request.setPortNumber(std::to_string(server.Port()));
  for (auto _ : state) {
    FILE* file = fopen(out.c_str(), "wb");
    // The write function's own buffering is the caller's choice: one write
    // to the file per MiB rather than one per piece curl hands over.
    setvbuf(file, nullptr, _IOFBF, 1 << 20);
    request.setWriteFunctionPointer(file, WriteToFile);
    CZoError e = request.download("/big.bin", {});
    fclose(file);
    if (e.IsError()) state.SkipWithError(e.AsString().c_str());
  }
  unlink(out.c_str());
  state.SetBytesProcessed(state.iterations() * kBig);
  state.counters["peak_rss_MiB"] = PeakMiB(RUSAGE_SELF);
}

void BM_Download1GiB_CurlTool(benchmark::State& state) {
  Peers& peers = Servers();
  if (!peers.ok) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  const bool tls = state.range(0) == 1;
  zotest::NginxServer& server = peers.Of(tls);
  const std::string out = Scratch("tool.bin");
  std::vector<std::string> args = {"curl", "-s", "-f", "-o", out};
  if (tls) {
    args.push_back("--cacert");
    args.push_back(server.CaFile());
  }
  args.push_back(server.Url("big.bin"));
  for (auto _ : state) {
    if (RunTool(args) != 0) state.SkipWithError("curl failed");
  }
  unlink(out.c_str());
  state.SetBytesProcessed(state.iterations() * kBig);
  state.counters["peak_rss_MiB"] = PeakMiB(RUSAGE_CHILDREN);
}

void BM_SmallGets_Library(benchmark::State& state) {
  Peers& peers = Servers();
  if (!peers.ok) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  XnCURL::XnHTTPReq request;
  if (request.initialize(0).IsError()) {
    state.SkipWithError("initialize failed");
    return;
  }
  request.setURL("localhost");
  request.setPortNumber(std::to_string(peers.http->Port()));
  long long bytes = 0;
  for (auto _ : state) {
    for (int i = 0; i < kSmallCount; ++i) {
      request.setWriteFunctionPointer(&bytes, Discard);
      CZoError e = request.doGetOperation("/small.txt", {});
      if (e.IsError()) {
        state.SkipWithError(e.AsString().c_str());
        break;
      }
    }
  }
  state.counters["requests"] = kSmallCount;
}

void BM_SmallGets_CurlTool(benchmark::State& state) {
  Peers& peers = Servers();
  if (!peers.ok) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  // One run of the tool with all the URLs, each to /dev/null, on one
  // connection as the library uses one handle.
  const std::string config = Scratch("small.cfg");
  {
    std::ofstream cfg(config);
    for (int i = 0; i < kSmallCount; ++i) {
      cfg << "url = \"" << peers.http->Url("small.txt") << "\"\noutput = \"/dev/null\"\n";
    }
  }
  for (auto _ : state) {
    if (RunTool({"curl", "-s", "-f", "-K", config}) != 0) state.SkipWithError("curl failed");
  }
  unlink(config.c_str());
  state.counters["requests"] = kSmallCount;
}

}  // namespace

// range(0): 0 HTTP, 1 HTTPS. Library and tool alternate, so that both see
// the machine in the same state.
BENCHMARK(BM_Download1GiB_Library)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Download1GiB_CurlTool)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Download1GiB_Library)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Download1GiB_CurlTool)->Arg(1)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_SmallGets_Library)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
BENCHMARK(BM_SmallGets_CurlTool)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);
