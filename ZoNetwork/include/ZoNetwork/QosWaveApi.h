/// @file
/// FXQWaveDll: the QoS flow service of the optional module "Qwave.dll" as
/// CZoError results. The module is bound at the first call; where the system
/// has none, every call answers ZONET_ERR_NOT_SUPPORTED and the library still
/// loads and works.
#ifndef ZONETWORK_QOSWAVEAPI_H
#define ZONETWORK_QOSWAVEAPI_H

#include <stdint.h>

#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoUtils/DynamicLoadBase.h"
#include "ZoUtils/ZoError.h"

struct sockaddr;

#if defined(_WIN32)
#include <winsock2.h>
#include <qos2.h>
#else
// Linux has no QoS flow service and no header that declares its types, so the
// library declares them, each with the layout it has on 64-bit Windows: a
// module built for this library and the callers pass the same bytes.

/// The version of the QoS interface a caller asks for.
typedef struct _QOS_VERSION {
  uint16_t MajorVersion;  ///< Major version; 1 is the only one there is.
  uint16_t MinorVersion;  ///< Minor version; 0 is the only one there is.
} QOS_VERSION;

/// What QOSSetFlow changes on a flow.
typedef enum _QOS_SET_FLOW {
  QOSSetTrafficType = 0,       ///< The flow's traffic type; the buffer holds a _QOS_TRAFFIC_TYPE.
  QOSSetOutgoingRate = 1,      ///< The flow's outgoing rate.
  QOSSetOutgoingDSCPValue = 2  ///< The DSCP value of the flow's outgoing packets.
} QOS_SET_FLOW;

/// The kind of traffic a flow carries, from least to most urgent.
typedef enum _QOS_TRAFFIC_TYPE {
  QOSTrafficTypeBestEffort = 0,       ///< Ordinary traffic.
  QOSTrafficTypeBackground = 1,       ///< Below ordinary: bulk transfers.
  QOSTrafficTypeExcellentEffort = 2,  ///< Above ordinary: important data.
  QOSTrafficTypeAudioVideo = 3,       ///< Audio and video streams.
  QOSTrafficTypeVoice = 4,            ///< Interactive voice.
  QOSTrafficTypeControl = 5           ///< Network control traffic.
} QOS_TRAFFIC_TYPE;

/// The state of an overlapped (asynchronous) request; 32 bytes.
typedef struct _OVERLAPPED {
  uintptr_t Internal;      ///< Status of the request, kept by the system.
  uintptr_t InternalHigh;  ///< Bytes transferred, kept by the system.
  /// Where the request starts, or a pointer reserved for the system.
  union {
#if defined(__GNUC__)
    __extension__  // an anonymous struct, as the layout has it
#endif
    /// The 64-bit position as two 32-bit halves.
    struct {
      uint32_t Offset;      ///< Low half of the position.
      uint32_t OffsetHigh;  ///< High half of the position.
    };
    void* Pointer;  ///< Reserved for the system.
  };
  void* hEvent;  ///< The event to signal on completion, or null.
} OVERLAPPED;

static_assert(sizeof(_QOS_VERSION) == 4, "two 16-bit words");
static_assert(sizeof(_QOS_SET_FLOW) == 4 && sizeof(_QOS_TRAFFIC_TYPE) == 4, "enumerations are 32-bit");
static_assert(sizeof(_OVERLAPPED) == 32, "the 64-bit layout");
#endif

/// The QoS flow service as CZoError results.
namespace FXQWaveDll {

/// The loader of "Qwave.dll": one member per function, bound in its
/// constructor. A function the module lacks stays null with its own error,
/// and the others stay usable. The module is never unloaded.
class ZONET_API CDynamicLoadBaseQwave : public CDynamicLoadBase {
public:
  /// Binds the module at once: the load result starts as
  /// ZONET_ERR_INVALID_DATA and becomes what LoadDynamicFunctions() returns.
  CDynamicLoadBaseQwave();
  /// Destroys the error members only; the module stays loaded.
  ~CDynamicLoadBaseQwave() override;

  /// Loads "Qwave.dll" through the system's library search and binds the five
  /// functions in order, each keeping its own result. Success when the module
  /// was loaded already. Failure: the module's load error, or else the error
  /// of the last function that could not be bound, with this location pushed.
  CZoError LoadDynamicFunctions();

  /// "QOSCreateHandle"; null until bound.
  CLoadedFunction<int (*)(_QOS_VERSION*, void**)> m_create;
  /// "QOSCloseHandle"; null until bound.
  CLoadedFunction<int (*)(void*)> m_close;
  /// "QOSSetFlow"; null until bound.
  CLoadedFunction<int (*)(void*, unsigned long, _QOS_SET_FLOW, unsigned long, void*, unsigned long, _OVERLAPPED*)>
      m_setFlow;
  /// "QOSAddSocketToFlow"; null until bound.
  CLoadedFunction<int (*)(void*, uint64_t, sockaddr*, _QOS_TRAFFIC_TYPE, unsigned long, unsigned long*)> m_addSocket;
  /// "QOSRemoveSocketFromFlow"; null until bound.
  CLoadedFunction<int (*)(void*, uint64_t, unsigned long, unsigned long)> m_removeSocket;
  /// The outcome of the constructor's binding; kept, never shown to callers.
  CZoError m_loadResult;
};

// Each wrapper hands its arguments to the module's function as they are.
// Where the function is not there: ZONET_ERR_NOT_SUPPORTED, "Not supported on
// this system, Group=[Qwave], Function=[<name>]". Where it answers 0: the
// error number it left (errno on Linux) with the wrapper's text.

/// Opens a QoS handle into *handle. Failure: "Failed to create QOS handle".
ZONET_API CZoError QOSCreateHandle(_QOS_VERSION* version, void** handle);
/// Closes a QoS handle. Failure: "Failed to close QOS handle".
ZONET_API CZoError QOSCloseHandle(void* handle);
/// Changes a flow's setting named by operation to the size bytes at buffer.
/// Failure: "Failed to set QOS flow".
ZONET_API CZoError QOSSetFlow(void* handle, unsigned long flowId, _QOS_SET_FLOW operation, unsigned long size,
                              void* buffer, unsigned long flags, _OVERLAPPED* overlapped);
/// Adds socket, sending to destination, to a flow of trafficType; *flowId is
/// the flow. Failure: "Failed to add socket (<socket>) to the flow".
ZONET_API CZoError QOSAddSocketToFlow(void* handle, uint64_t socket, sockaddr* destination,
                                      _QOS_TRAFFIC_TYPE trafficType, unsigned long flags, unsigned long* flowId);
/// Takes socket out of flow flowId. Failure: "Failed to remove socket
/// (<socket>) from the flow".
ZONET_API CZoError QOSRemoveSocketFromFlow(void* handle, uint64_t socket, unsigned long flowId, unsigned long flags);

}  // namespace FXQWaveDll

#endif  // ZONETWORK_QOSWAVEAPI_H
