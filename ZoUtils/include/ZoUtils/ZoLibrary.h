/// @file
/// A library loaded at run time.
#ifndef ZOUTILS_ZOLIBRARY_H
#define ZOUTILS_ZOLIBRARY_H

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

/// Loads one shared library and finds names in it. Whether the library is
/// unloaded with the object is the constructor's choice.
class ZOUTILS_API CZoLibrary {
public:
  /// An object with nothing loaded. unloadOnDestroy true: the destructor
  /// unloads what this object loaded; false: the library stays for the life
  /// of the process.
  explicit CZoLibrary(bool unloadOnDestroy);
  /// Unloads the library if the object was made with true and loaded one;
  /// otherwise leaves it loaded.
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
  bool m_unloadOnDestroy;
};

#endif  // ZOUTILS_ZOLIBRARY_H
