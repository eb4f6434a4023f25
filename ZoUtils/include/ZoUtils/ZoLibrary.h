/// @file
/// A library loaded at run time.
#ifndef ZOUTILS_ZOLIBRARY_H
#define ZOUTILS_ZOLIBRARY_H

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

/// Loads one shared library and finds names in it. A loaded library stays for
/// the life of the process, as everything the system loads at run time does.
class ZOUTILS_API CZoLibrary {
public:
  /// An object with nothing loaded; flag has no meaning on Linux (callers
  /// pass true).
  explicit CZoLibrary(bool flag);
  /// Leaves the library loaded: it stays for the life of the process.
  ~CZoLibrary();
  /// Not copyable.
  CZoLibrary(const CZoLibrary&) = delete;
  /// Not assignable.
  CZoLibrary& operator=(const CZoLibrary&) = delete;

  /// Loads path; a second call on a loaded object is success. Failure is
  /// ZONET_ERR_MOD_NOT_FOUND with the loader's own text in the chain, or
  /// ZONET_ERR_INVALID_PARAMETER for a null path. flag has no meaning on
  /// Linux (callers pass false).
  CZoError Load(const char* path, bool flag);
  /// Finds name; failure is ZONET_ERR_PROC_NOT_FOUND (address null), or
  /// ZONET_ERR_INVALID_STATE before a successful Load.
  CZoError GetAddress(const char* name, void*& address);
  /// Whether a Load() has succeeded.
  bool IsLoaded() const { return m_module != nullptr; }

private:
  void* m_module;
};

#endif  // ZOUTILS_ZOLIBRARY_H
