/// @file
/// Binding an optional library at run time: one loader per library, one
/// CLoadedFunction per function, so that the process still starts where the
/// library is missing and only the calls that need it fail.
#ifndef ZOUTILS_DYNAMICLOADBASE_H
#define ZOUTILS_DYNAMICLOADBASE_H

#include <string>
#include <type_traits>

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

/// The base of a loader for one optional library. The module is never
/// unloaded: it stays for the life of the process.
class ZOUTILS_API CDynamicLoadBase {
public:
  /// A loader that has not tried to load anything yet.
  CDynamicLoadBase();
  /// Leaves the module loaded: it stays for the life of the process.
  virtual ~CDynamicLoadBase();

  /// Loads the module once; later calls on a loaded object are success and
  /// load nothing. Failure: ZONET_ERR_MOD_NOT_FOUND, "Failed to load,
  /// Module=[%s]", with the loader's own text pushed behind it.
  CZoError Load(const std::string& moduleName);

  /// The loaded module's handle, or null before a successful Load().
  void* GetModule() const { return m_hModule; }
  /// Whether Load() has been called, whatever its outcome.
  bool IsLoadAttempted() const { return m_bLoadAttempted; }

protected:
  /// The loaded module's handle; null until a Load() succeeds.
  void* m_hModule;
  /// Set by the first Load(), successful or not.
  bool m_bLoadAttempted;
};

/// The loader's helpers that CLoadedFunction, a template in this header,
/// needs from the library.
namespace ZoDynamicLoad {
/// The address of functionName in module, or null; text gets the loader's
/// message when there is one.
ZOUTILS_API void* FindSymbol(void* module, const char* functionName, std::string& text);
/// "CLoadedFunction<Signature>::Load" made from the compiler's name of an
/// instance, kept for the life of the process.
ZOUTILS_API const char* LocationName(const char* prettyFunction);
}  // namespace ZoDynamicLoad

/// One function of an optional library, null until bound.
/// @tparam Signature the pointer-to-function type that Get() returns, such as
///         int (*)(void*).
template <typename Signature>
class CLoadedFunction {
  static_assert(std::is_pointer<Signature>::value &&
                    std::is_function<typename std::remove_pointer<Signature>::type>::value,
                "CLoadedFunction takes a pointer-to-function type, such as int (*)(void*)");

public:
  /// An unbound function whose last error is success.
  CLoadedFunction() : m_pfn(nullptr), m_bFlag(false), m_error(CZoError::Success()) {}

  /// Finds functionName in the owner's module. Failure (ZONET_ERR_PROC_NOT_FOUND,
  /// "Failed to get address, Module=[0x%p], FunctionName=[%s]") is also kept
  /// in GetError(), and the function stays null.
  CZoError Load(CDynamicLoadBase& owner, const char* functionName) {
    static const char* const kWhere = ZoDynamicLoad::LocationName(__PRETTY_FUNCTION__);
    std::string text;
    void* address = ZoDynamicLoad::FindSymbol(owner.GetModule(), functionName, text);
    m_pfn = reinterpret_cast<Signature>(address);
    if (m_pfn == nullptr) {
      m_error = FXErrorUtil::ErrorWin32(FXCodeLocation(__FILE__, kWhere, __LINE__), ZONET_ERR_PROC_NOT_FOUND,
                                        "Failed to get address, Module=[0x%p], FunctionName=[%s]", owner.GetModule(),
                                        functionName ? functionName : "(null)");
      if (!text.empty()) m_error.Push(FXCodeLocation(__FILE__, kWhere, __LINE__), "%s", text.c_str());
      return m_error;
    }
    m_error = CZoError::Success();
    return m_error;
  }

  /// The bound function, or null when Load() failed or never ran.
  Signature Get() const { return m_pfn; }
  /// Whether Load() has found the function.
  bool IsBound() const { return m_pfn != nullptr; }
  /// The outcome of the last Load(); success before the first.
  const CZoError& GetError() const { return m_error; }

private:
  Signature m_pfn;
  bool m_bFlag;  // kept at false; nothing reads it
  CZoError m_error;
};

#endif  // ZOUTILS_DYNAMICLOADBASE_H
