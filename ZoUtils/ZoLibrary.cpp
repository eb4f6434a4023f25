#include "ZoUtils/ZoLibrary.h"

#include "ZoPlatform.h"

CZoLibrary::CZoLibrary(bool unloadOnDestroy) : m_module(nullptr), m_unloadOnDestroy(unloadOnDestroy) {}

CZoLibrary::~CZoLibrary() {
  // An owner that made the object with false keeps the code for the life of
  // the process (its function pointers may outlive the object).
  if (m_unloadOnDestroy && m_module != nullptr) zo_platform::LibraryClose(m_module);
  m_module = nullptr;
}

CZoError CZoLibrary::Load(const char* path, bool /*flag*/) {
  if (m_module != nullptr) return CZoError::Success();
  if (path == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoLibrary::Load"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, path is NULL");
  }
  std::string text;
  m_module = zo_platform::LibraryOpen(path, text);
  if (m_module == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoLibrary::Load"), ZONET_ERR_MOD_NOT_FOUND, "Failed to load [%s]", path)
        .Push(FXLOC("CZoLibrary::Load"), "%s", text.c_str());
  }
  return CZoError::Success();
}

CZoError CZoLibrary::GetAddress(const char* name, void*& address) {
  address = nullptr;
  if (m_module == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoLibrary::GetAddress"), ZONET_ERR_INVALID_STATE, "Library not loaded");
  }
  if (name == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoLibrary::GetAddress"), ZONET_ERR_INVALID_PARAMETER,
                                   "Invalid input parameter, name is NULL");
  }
  std::string text;
  address = zo_platform::LibrarySymbol(m_module, name, text);
  if (address == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CZoLibrary::GetAddress"), ZONET_ERR_PROC_NOT_FOUND,
                                   "Failed to find [%s]", name)
        .Push(FXLOC("CZoLibrary::GetAddress"), "%s", text.c_str());
  }
  return CZoError::Success();
}
