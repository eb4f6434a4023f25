// The foundation's hot paths beside plain C++ doing the same work.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <vector>

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoString.h"

namespace {

void BM_ErrorSuccess(benchmark::State& state) {
  for (auto _ : state) {
    CZoError e = CZoError::Success();
    benchmark::DoNotOptimize(e);
  }
}
BENCHMARK(BM_ErrorSuccess);

void BM_ErrorCreate(benchmark::State& state) {
  for (auto _ : state) {
    CZoError e = FXErrorUtil::ErrorWin32(FXLOC("Bench::Create"), ZONET_ERR_INVALID_STATE);
    benchmark::DoNotOptimize(e);
  }
}
BENCHMARK(BM_ErrorCreate);

void BM_ErrorCreateWithText(benchmark::State& state) {
  for (auto _ : state) {
    CZoError e = FXErrorUtil::ErrorWin32(FXLOC("Bench::Create"), ZONET_ERR_INVALID_STATE, "Socket %s timed out",
                                         "receive");
    benchmark::DoNotOptimize(e);
  }
}
BENCHMARK(BM_ErrorCreateWithText);

// What the same text costs as a plain std::string made with snprintf.
void BM_Baseline_SnprintfString(benchmark::State& state) {
  for (auto _ : state) {
    char buffer[64];
    int n = std::snprintf(buffer, sizeof buffer, "Socket %s timed out", "receive");
    std::string s(buffer, static_cast<size_t>(n));
    benchmark::DoNotOptimize(s);
  }
}
BENCHMARK(BM_Baseline_SnprintfString);

void BM_ErrorPush(benchmark::State& state) {
  CZoError base = FXErrorUtil::ErrorWin32(FXLOC("Bench::Create"), ZONET_ERR_INVALID_STATE);
  for (auto _ : state) {
    CZoError e = base;
    e.Push(FXLOC("Bench::Push"));
    benchmark::DoNotOptimize(e);
  }
}
BENCHMARK(BM_ErrorPush);

void BM_ErrorCopy(benchmark::State& state) {
  CZoError e = FXErrorUtil::ErrorWin32(FXLOC("Bench::Create"), ZONET_ERR_INVALID_STATE);
  for (int i = 0; i < state.range(0); ++i) e.Push(FXLOC("Bench::Push"));
  for (auto _ : state) {
    CZoError copy = e;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_ErrorCopy)->Arg(0)->Arg(4);

// A copy shares the chain: compare with copying a vector of shared pointers
// of the same length, the obvious alternative.
void BM_Baseline_VectorOfSharedPtrCopy(benchmark::State& state) {
  std::vector<boost::shared_ptr<int>> chain;
  for (int i = 0; i <= state.range(0); ++i) chain.emplace_back(new int(i));
  for (auto _ : state) {
    auto copy = chain;
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_Baseline_VectorOfSharedPtrCopy)->Arg(0)->Arg(4);

void BM_ErrorDeepCopy(benchmark::State& state) {
  CZoError e = FXErrorUtil::ErrorWin32(FXLOC("Bench::Create"), ZONET_ERR_INVALID_STATE, "text");
  for (int i = 0; i < 4; ++i) e.Push(FXLOC("Bench::Push"));
  for (auto _ : state) {
    CZoError copy = e.Copy();
    benchmark::DoNotOptimize(copy);
  }
}
BENCHMARK(BM_ErrorDeepCopy);

void BM_ZoStringConcat(benchmark::State& state) {
  CZoString host("http://server.example");
  for (auto _ : state) {
    CZoString url = host + "/path/" + "file.txt";
    benchmark::DoNotOptimize(url);
  }
}
BENCHMARK(BM_ZoStringConcat);

void BM_Baseline_StdStringConcat(benchmark::State& state) {
  std::string host("http://server.example");
  for (auto _ : state) {
    std::string url = host + "/path/" + "file.txt";
    benchmark::DoNotOptimize(url);
  }
}
BENCHMARK(BM_Baseline_StdStringConcat);

void BM_FXStringFormat(benchmark::State& state) {
  for (auto _ : state) {
    std::string s = FXString::Format("/XnCURL.%d.0x%X", 28, 28);
    benchmark::DoNotOptimize(s);
  }
}
BENCHMARK(BM_FXStringFormat);

void BM_FXStringSplit(benchmark::State& state) {
  std::string text = "one two three four five six seven eight";
  std::vector<std::string> out;
  for (auto _ : state) {
    FXString::Split(text, " ", out, 0);
    benchmark::DoNotOptimize(out);
  }
}
BENCHMARK(BM_FXStringSplit);

void BM_FXStringReplaceAll(benchmark::State& state) {
  for (auto _ : state) {
    std::string text = "a b a b a b a b";
    int n = FXString::ReplaceAll(text, "a", "%20", 0);
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(BM_FXStringReplaceAll);

}  // namespace
