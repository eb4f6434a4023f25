// Any bytes as a blacklist file: loading must never crash, leak or hang, and
// the walk must list what the list holds. Names go to the real resolver; the
// target runs in a network namespace of its own when it may, so that no
// query leaves the machine and each one fails at once.
#include <sched.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "ZoNetwork/ZoIPAddrBlacklist.h"

namespace {

std::string g_path;

void RemoveFile() {
  if (!g_path.empty()) unlink(g_path.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (unshare(CLONE_NEWNET) != 0) {
    std::fprintf(stderr,
                 "fuzz_blacklist_file: no network namespace of its own (not root?); names reach the "
                 "machine's resolver\n");
  }
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/zonet-fuzz-XXXXXX";
  int fd = mkstemp(&pattern[0]);
  if (fd < 0) {
    std::perror("mkstemp");
    std::abort();
  }
  close(fd);
  g_path = pattern;
  std::atexit(RemoveFile);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* out = std::fopen(g_path.c_str(), "wb");
  if (out == nullptr) std::abort();
  if (size > 0 && std::fwrite(data, 1, size, out) != size) std::abort();
  std::fclose(out);

  CZoIPAddrBlacklist list;
  list.SetGraceAttempts(size > 0 ? data[0] % 4 : 1);
  if (list.LoadBlacklistFromFile(g_path.c_str()).IsError()) __builtin_trap();

  // Every line makes at most a few entries; a walk ends, and each listed
  // address is found again.
  size_t count = 0;
  CZoIPAddr addr;
  unsigned int attempts = 0;
  int64_t last = 0;
  int64_t left = 0;
  for (CZoError e = list.GetFirstBlacklistEntry(addr, nullptr, &attempts, &last, &left); !e.IsError();
       e = list.GetNextBlacklistEntry(addr, nullptr, &attempts, &last, &left)) {
    if (++count > size + 1) __builtin_trap();
    if (left != -1) __builtin_trap();  // no expiration was set
  }
  return 0;
}
