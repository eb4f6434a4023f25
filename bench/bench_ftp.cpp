// FTP and SFTP requests beside the curl command-line tool, in one run, on the
// test fixtures' vsftpd and sshd on loopback: a 1 GiB download into a file
// and a 1 GiB upload from one, both ways. And the two listing parsers on a
// 100,000-entry file beside a plain split of the same text. Local files are
// in /dev/shm, so the disk does not decide. Peak resident memory is reported
// as a counter.
#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnHTTPReq.h"
#include "ZoNetwork/XnSFTPReq.h"
#include "BenchSupport.h"
#include "support/Servers.h"

using zobench::PeakMiB;
using zobench::RunTool;
using zobench::Scratch;

namespace {

const long long kBig = 1LL << 30;  // 1 GiB
const int kEntries = 100000;

struct Peers {
  std::unique_ptr<zotest::FtpServer> ftp;
  std::unique_ptr<zotest::SshServer> ssh;
  std::string source = Scratch("source.bin");
  bool ok = false;
  std::string why;
  Peers() {
    ftp.reset(new zotest::FtpServer(zotest::FtpServer::Options{}));
    ssh.reset(new zotest::SshServer(zotest::SshServer::Options{}));
    if (!ftp->Ok() || !ssh->Ok()) {
      why = ftp->Ok() ? ssh->Reason() : ftp->Reason();
      return;
    }
    // Sparse files: the servers read zeros without a disk.
    for (const std::string& path : {ftp->AddFile("big.bin", ""), ssh->AddFile("big.bin", "")}) {
      if (truncate(path.c_str(), kBig) != 0) {
        why = "cannot make the big file";
        return;
      }
    }
    for (const std::string& path : {ftp->Root() + "/big.bin", ssh->Root() + "/big.bin"}) zobench::WarmPageCache(path);
    { std::ofstream(source, std::ios::binary); }
    if (truncate(source.c_str(), kBig) != 0) {
      why = "cannot make the source file";
      return;
    }
    ok = true;
  }
  ~Peers() { unlink(source.c_str()); }
};

Peers& Servers() {
  static Peers peers;
  return peers;
}

size_t WriteToFile(char* data, size_t size, size_t count, void* context) {
  return fwrite(data, size, count, static_cast<FILE*>(context));
}

size_t ReadFromFile(void* data, size_t size, size_t count, void* context) {
  return fread(data, size, count, static_cast<FILE*>(context));
}

// range(0): 0 FTP, 1 SFTP; range(1): 0 download, 1 upload.
void BM_Transfer_Library(benchmark::State& state) {
  Peers& peers = Servers();
  if (!peers.ok) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  const bool sftp = state.range(0) == 1;
  const bool upload = state.range(1) == 1;
  XnCURL::XnSFTPReq secure;
  XnCURL::XnFTPReq plain;
  XnCURL::XnFTPReq& request = sftp ? static_cast<XnCURL::XnFTPReq&>(secure) : plain;
  if (request.initialize(0).IsError()) {
    state.SkipWithError("initialize failed");
    return;
  }
  request.setURL("localhost");
  request.setPortNumber(std::to_string(sftp ? peers.ssh->Port() : peers.ftp->Port()));
  (void)request.setCredentials("tester", "secret");
  const std::string remote = sftp ? peers.ssh->Root().substr(1) + "/" : "";
  const std::string out = Scratch("library.bin");
  for (auto _ : state) {
    CZoError e = CZoError::Success();
    if (upload) {
      FILE* in = fopen(peers.source.c_str(), "rb");
      setvbuf(in, nullptr, _IOFBF, 1 << 20);
      request.setReadFunctionPointer(in, ReadFromFile);
      e = request.uploadFile(peers.source.c_str(), (remote + "up-library.bin").c_str(), kBig, {});
      fclose(in);
    } else {
      FILE* file = fopen(out.c_str(), "wb");
      setvbuf(file, nullptr, _IOFBF, 1 << 20);
      request.setWriteFunctionPointer(file, WriteToFile);
      e = request.download((remote + "big.bin").c_str(), {});
      fclose(file);
    }
    if (e.IsError()) state.SkipWithError(e.AsString().c_str());
  }
  unlink(out.c_str());
  state.SetBytesProcessed(state.iterations() * kBig);
  state.counters["peak_rss_MiB"] = PeakMiB(RUSAGE_SELF);
}

void BM_Transfer_CurlTool(benchmark::State& state) {
  Peers& peers = Servers();
  if (!peers.ok) {
    state.SkipWithError(peers.why.c_str());
    return;
  }
  const bool sftp = state.range(0) == 1;
  const bool upload = state.range(1) == 1;
  const std::string out = Scratch("tool.bin");
  std::vector<std::string> args = {"curl", "-s", "-S", "--user", "tester:secret"};
  if (sftp) args.push_back("--insecure");  // no host key check, as the library's object
  if (upload) {
    args.push_back("-T");
    args.push_back(peers.source);
    args.push_back(sftp ? peers.ssh->Url("up-tool.bin") : peers.ftp->Url("up-tool.bin"));
  } else {
    args.push_back("-o");
    args.push_back(out);
    args.push_back(sftp ? peers.ssh->Url("big.bin") : peers.ftp->Url("big.bin"));
  }
  for (auto _ : state) {
    if (RunTool(args) != 0) state.SkipWithError("curl failed");
  }
  unlink(out.c_str());
  state.SetBytesProcessed(state.iterations() * kBig);
  state.counters["peak_rss_MiB"] = PeakMiB(RUSAGE_CHILDREN);
}

// The listings, made once: 100,000 names of 12 to 16 characters.
struct Listings {
  std::string names = Scratch("names.txt"), page = Scratch("page.html");
  std::string namesText;
  Listings() {
    std::ostringstream n, p;
    p << "<A HREF=\"/\">[To Parent Directory]</A><br>";
    for (int i = 0; i < kEntries; ++i) {
      n << "file-" << i << ".txt\r\n";
      p << "<A HREF=\"/dir/file-" << i << ".txt\">file-" << i << ".txt</A><br>";
    }
    namesText = n.str();
    std::ofstream(names, std::ios::binary) << namesText;
    std::ofstream(page, std::ios::binary) << p.str();
  }
  ~Listings() {
    unlink(names.c_str());
    unlink(page.c_str());
  }
};

Listings& Lists() {
  static Listings lists;
  return lists;
}

void BM_ParseNames_Library(benchmark::State& state) {
  XnCURL::XnFTPReq request;
  if (request.initialize(0).IsError()) {
    state.SkipWithError("initialize failed");
    return;
  }
  XnCURL::XnProtocolReq& base = request;
  for (auto _ : state) {
    std::vector<XnCURL::FileDirInfo> entries;
    CZoError e = base.collectFilesAndDir(Lists().names, &entries, "");
    if (e.IsError() || entries.size() != static_cast<size_t>(kEntries)) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(entries.data());
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}

// The same file read and split by lines with the standard library.
void BM_ParseNames_PlainSplit(benchmark::State& state) {
  for (auto _ : state) {
    std::ifstream in(Lists().names, std::ios::binary);
    std::vector<std::string> names;
    std::string line;
    while (std::getline(in, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      names.push_back(line);
    }
    if (names.size() != static_cast<size_t>(kEntries)) state.SkipWithError("split failed");
    benchmark::DoNotOptimize(names.data());
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}

void BM_ParsePage_Library(benchmark::State& state) {
  XnCURL::XnHTTPReq request;
  if (request.initialize(0).IsError()) {
    state.SkipWithError("initialize failed");
    return;
  }
  XnCURL::XnProtocolReq& base = request;
  for (auto _ : state) {
    std::vector<XnCURL::FileDirInfo> entries;
    CZoError e = base.collectFilesAndDir(Lists().page, &entries, "");
    if (e.IsError() || entries.size() != static_cast<size_t>(kEntries)) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(entries.data());
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}

}  // namespace

// Library and tool alternate, so that both see the machine in the same state.
BENCHMARK(BM_Transfer_Library)->Args({0, 0})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_CurlTool)->Args({0, 0})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_Library)->Args({0, 1})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_CurlTool)->Args({0, 1})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_Library)->Args({1, 0})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_CurlTool)->Args({1, 0})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_Library)->Args({1, 1})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_Transfer_CurlTool)->Args({1, 1})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_ParseNames_Library)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseNames_PlainSplit)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParsePage_Library)->Unit(benchmark::kMillisecond);
