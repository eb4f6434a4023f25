// Runs the QoS wrappers in a process of its own, so that the loader is built
// by this process's first call and finds whatever module the library search
// path given at its start holds. It prints one line per result:
//   label <TAB> code <TAB> the error's text with its line breaks as " | "
// and the test that started it reads them.
//
//   qos_probe stub            the calls that the test module answers
//   qos_probe threads COUNT   COUNT threads make the first call at once
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ZoNetwork/QosWaveApi.h"
#include "objects/ObjectsInternal.h"

namespace {

void Print(const char* label, const CZoError& e) {
  std::string text = e.AsString();
  for (size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n', at)) text.replace(at, 1, " | ");
  std::printf("%s\t%ld\t%s\n", label, e.GetErrorCode(), text.c_str());
}

int Stub() {
  _QOS_VERSION version = {1, 0};
  void* handle = nullptr;
  Print("create", FXQWaveDll::QOSCreateHandle(&version, &handle));
  std::printf("handle\t%d\t\n", handle != nullptr ? 1 : 0);
  _QOS_VERSION wrong = {2, 0};
  void* none = nullptr;
  Print("create_wrong_version", FXQWaveDll::QOSCreateHandle(&wrong, &none));

  _QOS_TRAFFIC_TYPE type = QOSTrafficTypeVoice;
  Print("set_flow", FXQWaveDll::QOSSetFlow(handle, 7, QOSSetTrafficType, sizeof type, &type, 0, nullptr));

  unsigned long flow = 0;
  Print("add", FXQWaveDll::QOSAddSocketToFlow(handle, 42, nullptr, QOSTrafficTypeAudioVideo, 0, &flow));
  std::printf("flow\t%lu\t\n", flow);
  Print("add_bad_socket",
        FXQWaveDll::QOSAddSocketToFlow(handle, 0x100000005ull, nullptr, QOSTrafficTypeAudioVideo, 0, &flow));
  Print("remove", FXQWaveDll::QOSRemoveSocketFromFlow(handle, 42, flow, 0));
  Print("remove_wrong_flow", FXQWaveDll::QOSRemoveSocketFromFlow(handle, 43, flow + 1, 0));
  Print("close", FXQWaveDll::QOSCloseHandle(handle));
  Print("close_bad", FXQWaveDll::QOSCloseHandle(&flow));

  Print("load_result", zonet_internal::QosLoaderResult());
  std::printf("builds\t%d\t\n", zonet_internal::QosLoaderBuilds());
  return 0;
}

int Threads(int count) {
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<CZoError> results(static_cast<size_t>(count), CZoError::Success());
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) {
    threads.emplace_back([&, i] {
      ready.fetch_add(1);
      while (!go.load()) std::this_thread::yield();
      _QOS_VERSION version = {1, 0};
      void* handle = nullptr;
      results[static_cast<size_t>(i)] = FXQWaveDll::QOSCreateHandle(&version, &handle);
      if (handle != nullptr) (void)FXQWaveDll::QOSCloseHandle(handle);
    });
  }
  while (ready.load() < count) std::this_thread::yield();
  go.store(true);
  for (std::thread& t : threads) t.join();
  int agree = 1;
  for (const CZoError& e : results) {
    if (e.GetErrorCode() != results[0].GetErrorCode() || e.IsError() != results[0].IsError()) agree = 0;
  }
  Print("first", results[0]);
  std::printf("agree\t%d\t\n", agree);
  std::printf("builds\t%d\t\n", zonet_internal::QosLoaderBuilds());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "stub") == 0) return Stub();
  if (argc >= 3 && std::strcmp(argv[1], "threads") == 0) {
    int count = std::atoi(argv[2]);
    if (count < 1 || count > 256) return 2;
    return Threads(count);
  }
  std::fprintf(stderr, "usage: qos_probe stub | threads COUNT\n");
  return 2;
}
