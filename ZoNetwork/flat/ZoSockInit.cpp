#include "ZoNetwork/ZoSockInit.h"

#include "flat/FlatPlatform.h"

CZoSockInit::CZoSockInit() : m_bInitialised(false) {}

CZoSockInit::~CZoSockInit() { CleanUp(); }

CZoSockInit& CZoSockInit::operator=(const CZoSockInit& other) {
  m_bInitialised = other.m_bInitialised;
  return *this;
}

CZoError CZoSockInit::Init() {
  if (m_bInitialised) return CZoError::Success();
  int err = zonet_platform::SocketLayerStart();
  if (err != 0) return FXErrorUtil::ErrorWin32(FXLOC("CZoSockInit::Init"), static_cast<unsigned long>(err));
  m_bInitialised = true;
  return CZoError::Success();
}

void CZoSockInit::CleanUp() {
  if (!m_bInitialised) return;
  m_bInitialised = false;
  zonet_platform::SocketLayerEnd();
}
