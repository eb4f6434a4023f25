#include "ZoUtils/DynamicLoadBase.h"

#include <cctype>
#include <cstring>
#include <mutex>
#include <set>

#include "ZoPlatform.h"
#include "ZoUtils/ZoString.h"

CDynamicLoadBase::CDynamicLoadBase() : m_hModule(nullptr), m_bLoadAttempted(false) {}

// The module is not unloaded: code of it may still be referenced by pointers
// that outlive the loader.
CDynamicLoadBase::~CDynamicLoadBase() = default;

CZoError CDynamicLoadBase::Load(const std::string& moduleName) {
  if (m_hModule != nullptr) return CZoError::Success();
  m_bLoadAttempted = true;
  std::string text;
  m_hModule = zo_platform::LibraryOpen(moduleName.c_str(), text);
  if (m_hModule == nullptr) {
    return FXErrorUtil::ErrorWin32(FXLOC("CDynamicLoadBase::Load"), ZONET_ERR_MOD_NOT_FOUND,
                                   "Failed to load, Module=[%s]", moduleName.c_str())
        .Push(FXLOC("CDynamicLoadBase::Load"), "%s", text.c_str());
  }
  return CZoError::Success();
}

namespace ZoDynamicLoad {

void* FindSymbol(void* module, const char* functionName, std::string& text) {
  return zo_platform::LibrarySymbol(module, functionName, text);
}

const char* LocationName(const char* prettyFunction) {
  // g++ writes "... CLoadedFunction<Signature>::Load(...) [with Signature =
  // int (*)(void*)]" and clang "[Signature = int (*)(void *)]"; the location
  // wants "CLoadedFunction<int (*)(void*)>::Load" from either.
  std::string pretty(prettyFunction ? prettyFunction : "");
  std::string name = "CLoadedFunction<?>::Load";
  const char* key = "Signature = ";
  size_t at = pretty.find(key);
  if (at != std::string::npos) {
    at += std::strlen(key);
    size_t end = pretty.find_first_of(";]", at);
    std::string signature = pretty.substr(at, end == std::string::npos ? std::string::npos : end - at);
    std::string spelled;
    for (size_t i = 0; i < signature.size(); ++i) {
      // clang's "void *" becomes g++'s "void*"; "int (*)" keeps its space.
      bool afterName = !spelled.empty() && (std::isalnum(static_cast<unsigned char>(spelled.back())) ||
                                            spelled.back() == '_');
      if (signature[i] == ' ' && i + 1 < signature.size() && signature[i + 1] == '*' && afterName) continue;
      spelled += signature[i];
    }
    name = "CLoadedFunction<" + spelled + ">::Load";
  }
  static std::mutex lock;
  static std::set<std::string>* names = new std::set<std::string>;  // lives for the whole run, by design
  std::lock_guard<std::mutex> hold(lock);
  return names->insert(name).first->c_str();
}

}  // namespace ZoDynamicLoad
