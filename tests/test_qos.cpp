// QoS flows through the optional module "Qwave.dll": without it every wrapper
// says so; with a test module that lacks one function the others work. The
// module is found by the system's library search, which reads
// LD_LIBRARY_PATH once, when a process starts. So the runs with the test
// module happen in a fresh process (qos_probe) started with that path set;
// the loader it builds is its own, and this process's stays as it is.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "ZoNetwork/QosWaveApi.h"
#include "objects/ObjectsInternal.h"
#include "support/TestSupport.h"

namespace {

bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Whether this process's loader found no module at all, as on a system
// without the service.
bool NoModuleHere() { return zonet_internal::QosLoaderResult().Is(ZONET_ERR_MOD_NOT_FOUND); }

void ExpectNotSupported(const CZoError& e, const char* function) {
  EXPECT_TRUE(e.Is(ZONET_ERR_NOT_SUPPORTED)) << e.AsString();
  EXPECT_TRUE(Has(e.AsString(), std::string("Not supported on this system, Group=[Qwave], Function=[") + function +
                                    "]"))
      << e.AsString();
  EXPECT_TRUE(Has(e.AsString(), std::string("FXQWaveDll::") + function)) << e.AsString();
}

struct Line {
  long code = -1;
  std::string text;
};

struct ProbeRun {
  int status = -1;
  std::string output;
  std::map<std::string, Line> lines;
};

// Starts qos_probe with arguments; with the test module's folder first on the
// library path when withModule is set.
ProbeRun RunProbe(const std::string& arguments, bool withModule) {
  std::string command;
  if (withModule) command += std::string("LD_LIBRARY_PATH='") + QWAVE_STUB_DIR + "' ";
  command += std::string("'") + QOS_PROBE + "' " + arguments + " 2>&1";
  ProbeRun run;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  char buffer[4096];
  while (fgets(buffer, sizeof buffer, pipe) != nullptr) run.output += buffer;
  run.status = pclose(pipe);
  std::istringstream in(run.output);
  std::string row;
  while (std::getline(in, row)) {
    size_t first = row.find('\t');
    size_t second = first == std::string::npos ? first : row.find('\t', first + 1);
    if (second == std::string::npos) continue;
    Line line;
    line.code = std::strtol(row.substr(first + 1, second - first - 1).c_str(), nullptr, 10);
    line.text = row.substr(second + 1);
    run.lines[row.substr(0, first)] = line;
  }
  return run;
}

}  // namespace

TEST(Qos, WithoutTheModuleEveryWrapperIsNotSupported) {
  zotest::FdLeakCheck leaks;
  if (!NoModuleHere()) GTEST_SKIP() << "a Qwave.dll is on this system's library path";
  _QOS_VERSION version = {1, 0};
  void* handle = nullptr;
  unsigned long flow = 0;
  _QOS_TRAFFIC_TYPE type = QOSTrafficTypeVoice;
  EXPECT_NO_THROW(ExpectNotSupported(FXQWaveDll::QOSCreateHandle(&version, &handle), "QOSCreateHandle"));
  EXPECT_EQ(handle, nullptr);
  EXPECT_NO_THROW(ExpectNotSupported(FXQWaveDll::QOSCloseHandle(handle), "QOSCloseHandle"));
  EXPECT_NO_THROW(ExpectNotSupported(
      FXQWaveDll::QOSSetFlow(handle, 1, QOSSetTrafficType, sizeof type, &type, 0, nullptr), "QOSSetFlow"));
  EXPECT_NO_THROW(ExpectNotSupported(
      FXQWaveDll::QOSAddSocketToFlow(handle, 3, nullptr, QOSTrafficTypeBestEffort, 0, &flow), "QOSAddSocketToFlow"));
  EXPECT_NO_THROW(
      ExpectNotSupported(FXQWaveDll::QOSRemoveSocketFromFlow(handle, 3, flow, 0), "QOSRemoveSocketFromFlow"));
  EXPECT_EQ(flow, 0u);
  // Null arguments are never reached: the answer is the same.
  EXPECT_NO_THROW(ExpectNotSupported(FXQWaveDll::QOSCreateHandle(nullptr, nullptr), "QOSCreateHandle"));
}

TEST(Qos, TheMissingModuleIsTheKeptLoadResultAndTheLoaderIsBuiltOnce) {
  if (!NoModuleHere()) GTEST_SKIP() << "a Qwave.dll is on this system's library path";
  (void)FXQWaveDll::QOSCloseHandle(nullptr);
  (void)FXQWaveDll::QOSCloseHandle(nullptr);
  EXPECT_EQ(zonet_internal::QosLoaderBuilds(), 1);
  CZoError kept = zonet_internal::QosLoaderResult();
  EXPECT_TRUE(Has(kept.AsString(), "Failed to load, Module=[Qwave.dll]")) << kept.AsString();
  EXPECT_TRUE(Has(kept.AsString(), "FXQWaveDll::CDynamicLoadBaseQwave::LoadDynamicFunctions")) << kept.AsString();
}

TEST(Qos, TheLayoutsAreThoseOfTheDesignedPlatform) {
  EXPECT_EQ(sizeof(_QOS_VERSION), 4u);
  EXPECT_EQ(sizeof(_OVERLAPPED), 32u);
  EXPECT_EQ(offsetof(_OVERLAPPED, Offset), 16u);
  EXPECT_EQ(offsetof(_OVERLAPPED, OffsetHigh), 20u);
  EXPECT_EQ(offsetof(_OVERLAPPED, Pointer), 16u);
  EXPECT_EQ(offsetof(_OVERLAPPED, hEvent), 24u);
  EXPECT_EQ(static_cast<int>(QOSSetOutgoingDSCPValue), 2);
  EXPECT_EQ(static_cast<int>(QOSTrafficTypeControl), 5);
}

TEST(Qos, AModuleWithoutSetFlowServesTheOtherFunctions) {
  zotest::FdLeakCheck leaks;
  ProbeRun run = RunProbe("stub", true);
  ASSERT_EQ(run.status, 0) << run.output;
  auto& lines = run.lines;
  EXPECT_EQ(lines["create"].code, 0) << run.output;
  EXPECT_EQ(lines["handle"].code, 1) << run.output;
  EXPECT_EQ(lines["set_flow"].code, ZONET_ERR_NOT_SUPPORTED) << run.output;
  EXPECT_TRUE(Has(lines["set_flow"].text, "Not supported on this system, Group=[Qwave], Function=[QOSSetFlow]"))
      << run.output;
  EXPECT_TRUE(Has(lines["set_flow"].text, "FXQWaveDll::QOSSetFlow")) << run.output;
  EXPECT_EQ(lines["add"].code, 0) << run.output;
  EXPECT_EQ(lines["flow"].code, 7) << run.output;
  EXPECT_EQ(lines["remove"].code, 0) << run.output;
  EXPECT_EQ(lines["close"].code, 0) << run.output;
  EXPECT_EQ(lines["builds"].code, 1) << run.output;
}

// A function that answers 0 gives the number it left in errno, with the
// wrapper's text; a socket shows with its low 32 bits.
TEST(Qos, AFunctionThatFailsGivesItsErrnoAndTheWrappersText) {
  ProbeRun run = RunProbe("stub", true);
  ASSERT_EQ(run.status, 0) << run.output;
  auto& lines = run.lines;
  EXPECT_EQ(lines["create_wrong_version"].code, EINVAL) << run.output;
  EXPECT_TRUE(Has(lines["create_wrong_version"].text, "Failed to create QOS handle")) << run.output;
  EXPECT_TRUE(Has(lines["create_wrong_version"].text, "FXQWaveDll::QOSCreateHandle")) << run.output;
  EXPECT_EQ(lines["close_bad"].code, EBADF) << run.output;
  EXPECT_TRUE(Has(lines["close_bad"].text, "Failed to close QOS handle")) << run.output;
  EXPECT_EQ(lines["add_bad_socket"].code, ENOTSOCK) << run.output;
  EXPECT_TRUE(Has(lines["add_bad_socket"].text, "Failed to add socket (5) to the flow")) << run.output;
  EXPECT_EQ(lines["remove_wrong_flow"].code, ENOENT) << run.output;
  EXPECT_TRUE(Has(lines["remove_wrong_flow"].text, "Failed to remove socket (43) from the flow")) << run.output;
}

// The module lacks one function: the kept result is that function's binding
// error, with the loader's location pushed behind it.
TEST(Qos, TheKeptLoadResultNamesTheMissingFunction) {
  ProbeRun run = RunProbe("stub", true);
  ASSERT_EQ(run.status, 0) << run.output;
  const Line& kept = run.lines["load_result"];
  EXPECT_EQ(kept.code, ZONET_ERR_PROC_NOT_FOUND) << run.output;
  EXPECT_TRUE(Has(kept.text, "FunctionName=[QOSSetFlow]")) << run.output;
  EXPECT_TRUE(Has(kept.text, "CLoadedFunction<int (*)(void*, ")) << run.output;
  EXPECT_TRUE(Has(kept.text, "FXQWaveDll::CDynamicLoadBaseQwave::LoadDynamicFunctions")) << run.output;
}

// Many threads make the first call at once: one loader is built, and all of
// them get its answer.
TEST(Qos, ConcurrentFirstCallsBuildOneLoader) {
  for (bool withModule : {true, false}) {
    ProbeRun run = RunProbe("threads 8", withModule);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.lines["builds"].code, 1) << run.output;
    EXPECT_EQ(run.lines["agree"].code, 1) << run.output;
    EXPECT_EQ(run.lines["first"].code, withModule ? 0 : ZONET_ERR_NOT_SUPPORTED) << run.output;
  }
}
