/// @file
/// Everything of ZoNetwork and ZoUtils in one include.
#ifndef ZONETWORK_ZONETWORK_H
#define ZONETWORK_ZONETWORK_H

// ZoUtils
#include "ZoUtils/DynamicLoadBase.h"
#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoErrorCodes.h"
#include "ZoUtils/ZoFile.h"
#include "ZoUtils/ZoLibrary.h"
#include "ZoUtils/ZoLog.h"
#include "ZoUtils/ZoString.h"
#include "ZoUtils/ZoTime.h"
#include "ZoUtils/ZoUtilsExport.h"

// ZoNetwork
#include "ZoNetwork/ZoNetworkExport.h"
#include "ZoNetwork/ZoNetAddr.h"
#include "ZoNetwork/ZoSockInit.h"
// sockets, descriptor sets, socket pairs (flat layer)
#include "ZoNetwork/ZoFdset.h"
#include "ZoNetwork/ZoNetSocket.h"
// address object and blacklist
#include "ZoNetwork/ZoIPAddr.h"
#include "ZoNetwork/ZoIPAddrBlacklist.h"
// socket object, selector, stack probes
#include "ZoNetwork/ZoSocket.h"
#include "ZoNetwork/ZoSocketSelector.h"
// QoS flows
#include "ZoNetwork/QosWaveApi.h"
// ping
#include "ZoNetwork/ZoPing.h"
#include "ZoNetwork/ZoHTTP2.h"
// requests over libcurl: binding, error domain, engine, HTTP
#include "ZoNetwork/CurlWrapper.h"
#include "ZoNetwork/XnCURLError.h"
#include "ZoNetwork/XnFTPReq.h"
#include "ZoNetwork/XnHTTPReq.h"
#include "ZoNetwork/XnProtocolReq.h"
#include "ZoNetwork/XnSFTPReq.h"
#include "ZoNetwork/ZoHTTP.h"

#endif  // ZONETWORK_ZONETWORK_H
