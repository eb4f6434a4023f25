// The QoS flow service through the optional module "Qwave.dll". The loader is
// a function-level static, so the first caller builds it under the run-time's
// guard and every later caller, on any thread, only reads it.
#include "ZoNetwork/QosWaveApi.h"

#include <atomic>

#include "objects/ObjectsInternal.h"
#include "objects/ObjectsPlatform.h"

namespace {

const char* const kModuleName = "Qwave.dll";
const char* const kGroup = "Qwave";

std::atomic<int> g_loaderBuilds{0};

FXQWaveDll::CDynamicLoadBaseQwave& Loader() {
  static FXQWaveDll::CDynamicLoadBaseQwave loader;
  return loader;
}

CZoError NotSupported(const char* where, const char* function) {
  return FXErrorUtil::ErrorWin32(FXLOC(where), ZONET_ERR_NOT_SUPPORTED,
                                 "Not supported on this system, Group=[%s], Function=[%s]", kGroup, function);
}

}  // namespace

namespace FXQWaveDll {

CDynamicLoadBaseQwave::CDynamicLoadBaseQwave()
    : m_loadResult(FXErrorUtil::ErrorWin32(FXLOC("FXQWaveDll::CDynamicLoadBaseQwave::CDynamicLoadBaseQwave"),
                                           ZONET_ERR_INVALID_DATA)) {
  g_loaderBuilds.fetch_add(1, std::memory_order_relaxed);
  m_loadResult = LoadDynamicFunctions();
}

CDynamicLoadBaseQwave::~CDynamicLoadBaseQwave() = default;

CZoError CDynamicLoadBaseQwave::LoadDynamicFunctions() {
  if (GetModule() != nullptr) return CZoError::Success();
  m_bLoadAttempted = true;
  CZoError result = Load(kModuleName);
  if (!result.IsError()) {
    // Every function is bound even when an earlier one is missing, so the
    // ones the module has stay usable; the last failure is the one reported.
    if (m_create.Load(*this, "QOSCreateHandle").IsError()) result = m_create.GetError().Copy();
    if (m_close.Load(*this, "QOSCloseHandle").IsError()) result = m_close.GetError().Copy();
    if (m_setFlow.Load(*this, "QOSSetFlow").IsError()) result = m_setFlow.GetError().Copy();
    if (m_addSocket.Load(*this, "QOSAddSocketToFlow").IsError()) result = m_addSocket.GetError().Copy();
    if (m_removeSocket.Load(*this, "QOSRemoveSocketFromFlow").IsError()) result = m_removeSocket.GetError().Copy();
  }
  if (result.IsError()) {
    result.Push(FXLOC("FXQWaveDll::CDynamicLoadBaseQwave::LoadDynamicFunctions"));
    return result;
  }
  return CZoError::Success();
}

CZoError QOSCreateHandle(_QOS_VERSION* version, void** handle) {
  static const char* const kWhere = "FXQWaveDll::QOSCreateHandle";
  CDynamicLoadBaseQwave& loader = Loader();
  if (!loader.m_create.IsBound()) return NotSupported(kWhere, "QOSCreateHandle");
  if (loader.m_create.Get()(version, handle) != 0) return CZoError::Success();
  return FXErrorUtil::ErrorWin32(FXLOC(kWhere), zonet_platform::QosLastError(), "Failed to create QOS handle");
}

CZoError QOSCloseHandle(void* handle) {
  static const char* const kWhere = "FXQWaveDll::QOSCloseHandle";
  CDynamicLoadBaseQwave& loader = Loader();
  if (!loader.m_close.IsBound()) return NotSupported(kWhere, "QOSCloseHandle");
  if (loader.m_close.Get()(handle) != 0) return CZoError::Success();
  return FXErrorUtil::ErrorWin32(FXLOC(kWhere), zonet_platform::QosLastError(), "Failed to close QOS handle");
}

CZoError QOSSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size, void* buffer,
                    unsigned long flags, _OVERLAPPED* overlapped) {
  static const char* const kWhere = "FXQWaveDll::QOSSetFlow";
  CDynamicLoadBaseQwave& loader = Loader();
  if (!loader.m_setFlow.IsBound()) return NotSupported(kWhere, "QOSSetFlow");
  if (loader.m_setFlow.Get()(handle, flowId, operation, size, buffer, flags, overlapped) != 0) {
    return CZoError::Success();
  }
  return FXErrorUtil::ErrorWin32(FXLOC(kWhere), zonet_platform::QosLastError(), "Failed to set QOS flow");
}

// The texts show the socket with "%u", as the designed platform's do: its low
// 32 bits.
CZoError QOSAddSocketToFlow(void* handle, uint64_t socket, sockaddr* destination, _QOS_TRAFFIC_TYPE trafficType,
                            unsigned long flags, unsigned long* flowId) {
  static const char* const kWhere = "FXQWaveDll::QOSAddSocketToFlow";
  CDynamicLoadBaseQwave& loader = Loader();
  if (!loader.m_addSocket.IsBound()) return NotSupported(kWhere, "QOSAddSocketToFlow");
  if (loader.m_addSocket.Get()(handle, socket, destination, trafficType, flags, flowId) != 0) {
    return CZoError::Success();
  }
  return FXErrorUtil::ErrorWin32(FXLOC(kWhere), zonet_platform::QosLastError(), "Failed to add socket (%u) to the flow",
                                 static_cast<unsigned>(socket));
}

CZoError QOSRemoveSocketFromFlow(void* handle, uint64_t socket, unsigned long flowId, unsigned long flags) {
  static const char* const kWhere = "FXQWaveDll::QOSRemoveSocketFromFlow";
  CDynamicLoadBaseQwave& loader = Loader();
  if (!loader.m_removeSocket.IsBound()) return NotSupported(kWhere, "QOSRemoveSocketFromFlow");
  if (loader.m_removeSocket.Get()(handle, socket, flowId, flags) != 0) return CZoError::Success();
  return FXErrorUtil::ErrorWin32(FXLOC(kWhere), zonet_platform::QosLastError(),
                                 "Failed to remove socket (%u) from the flow", static_cast<unsigned>(socket));
}

}  // namespace FXQWaveDll

namespace zonet_internal {

int QosLoaderBuilds() { return g_loaderBuilds.load(std::memory_order_relaxed); }

CZoError QosLoaderResult() { return Loader().m_loadResult; }

}  // namespace zonet_internal
