// Loading libraries at run time: CZoLibrary, CDynamicLoadBase and
// CLoadedFunction, with real shared objects of the system.
#include <gtest/gtest.h>

#include <pthread.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "ZoUtils/DynamicLoadBase.h"
#include "ZoUtils/ZoLibrary.h"

namespace {

// A loader of the shape the library uses for its optional libraries.
class MathLoader : public CDynamicLoadBase {
public:
  CZoError LoadAll() {
    m_loadError = Load("libm.so.6");
    if (m_loadError.IsError()) return m_loadError;
    (void)m_cos.Load(*this, "cos");
    (void)m_missing.Load(*this, "zonet_no_such_function");
    return CZoError::Success();
  }
  CLoadedFunction<double (*)(double)> m_cos;
  CLoadedFunction<int (*)(void*)> m_missing;
  CZoError m_loadError = CZoError::Success();
};

}  // namespace

TEST(ZoLibrary, LoadsASystemLibraryAndFindsAFunction) {
  CZoLibrary library(true);
  void* none = nullptr;
  EXPECT_TRUE(library.GetAddress("cos", none).Is(ZONET_ERR_INVALID_STATE));
  ASSERT_FALSE(library.Load("libm.so.6", false).IsError());
  EXPECT_TRUE(library.IsLoaded());
  EXPECT_FALSE(library.Load("libm.so.6", false).IsError());
  void* address = nullptr;
  ASSERT_FALSE(library.GetAddress("cos", address).IsError());
  auto cosine = reinterpret_cast<double (*)(double)>(address);
  EXPECT_DOUBLE_EQ(cosine(0.0), 1.0);
  CZoError missing = library.GetAddress("zonet_no_such_function", address);
  EXPECT_TRUE(missing.Is(ZONET_ERR_PROC_NOT_FOUND));
  EXPECT_EQ(address, nullptr);
  EXPECT_NE(missing.AsString().find("zonet_no_such_function"), std::string::npos);
  EXPECT_TRUE(library.GetAddress(nullptr, address).Is(ZONET_ERR_INVALID_PARAMETER));
}

TEST(ZoLibrary, AMissingLibraryIsAValueWithTheLoadersText) {
  CZoLibrary library(true);
  CZoError e = library.Load("libzonet-missing.so.9", false);
  EXPECT_TRUE(e.Is(ZONET_ERR_MOD_NOT_FOUND));
  EXPECT_NE(e.AsString().find("libzonet-missing.so.9"), std::string::npos);
  EXPECT_GE(e.GetItemCount(), 2u) << "the loader's own message is pushed behind";
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(library.Load(nullptr, false).Is(ZONET_ERR_INVALID_PARAMETER));
}

TEST(DynamicLoad, LoadsOnceAndBindsFunctions) {
  MathLoader loader;
  EXPECT_FALSE(loader.IsLoadAttempted());
  ASSERT_FALSE(loader.LoadAll().IsError());
  EXPECT_TRUE(loader.IsLoadAttempted());
  void* module = loader.GetModule();
  ASSERT_NE(module, nullptr);
  // A second load with the module there does not load again.
  EXPECT_FALSE(loader.Load("libzonet-would-fail-if-loaded.so").IsError());
  EXPECT_EQ(loader.GetModule(), module);

  ASSERT_TRUE(loader.m_cos.IsBound());
  EXPECT_FALSE(loader.m_cos.GetError().IsError());
  EXPECT_DOUBLE_EQ(loader.m_cos.Get()(0.0), 1.0);
}

TEST(DynamicLoad, AMissingFunctionStaysNullWithItsError) {
  MathLoader loader;
  ASSERT_FALSE(loader.LoadAll().IsError());
  EXPECT_FALSE(loader.m_missing.IsBound());
  const CZoError& e = loader.m_missing.GetError();
  EXPECT_TRUE(e.Is(ZONET_ERR_PROC_NOT_FOUND));
  std::string text = e.AsString();
  EXPECT_NE(text.find("Failed to get address, Module=[0x"), std::string::npos);
  EXPECT_NE(text.find("FunctionName=[zonet_no_such_function]"), std::string::npos);
  EXPECT_NE(text.find("CLoadedFunction<int (*)(void*)>::Load"), std::string::npos) << text;
}

TEST(DynamicLoad, AMissingModuleIsNoCrash) {
  CDynamicLoadBase loader;
  CZoError e = loader.Load("libzonet-missing.so.9");
  EXPECT_TRUE(e.Is(ZONET_ERR_MOD_NOT_FOUND));
  EXPECT_NE(e.AsString().find("Failed to load, Module=[libzonet-missing.so.9]"), std::string::npos);
  EXPECT_TRUE(loader.IsLoadAttempted());
  EXPECT_EQ(loader.GetModule(), nullptr);
  CLoadedFunction<int (*)(void*)> function;
  EXPECT_TRUE(function.Load(loader, "anything").Is(ZONET_ERR_PROC_NOT_FOUND));
  EXPECT_EQ(function.Get(), nullptr);
  EXPECT_TRUE(function.Load(loader, nullptr).IsError());
}

// The template takes the pointer type itself, as the loaders declare their
// members: CLoadedFunction<int (*)(void*)> holds an int (*)(void*).
TEST(DynamicLoad, TakesAPointerToFunctionTypeAndCallsThrough) {
  static_assert(std::is_same<decltype(CLoadedFunction<int (*)(void*)>().Get()), int (*)(void*)>::value,
                "Get() gives the pointer type as it was named");
  CDynamicLoadBase loader;
  ASSERT_FALSE(loader.Load("libc.so.6").IsError());
  // Both take one pointer and answer an int, so the int (*)(void*) call is
  // the same call at the machine level.
  CLoadedFunction<int (*)(void*)> init;
  CLoadedFunction<int (*)(void*)> destroy;
  ASSERT_FALSE(init.Load(loader, "pthread_attr_init").IsError());
  ASSERT_FALSE(destroy.Load(loader, "pthread_attr_destroy").IsError());
  ASSERT_TRUE(init.IsBound());
  pthread_attr_t attributes;
  EXPECT_EQ(init.Get()(&attributes), 0);
  EXPECT_EQ(destroy.Get()(&attributes), 0);
}

TEST(DynamicLoad, LocatesItselfWithThePointerType) {
  CDynamicLoadBase loader;
  ASSERT_FALSE(loader.Load("libc.so.6").IsError());
  CLoadedFunction<int (*)(void*)> missing;
  std::string text = missing.Load(loader, "zonet_no_such_function").AsString();
  EXPECT_NE(text.find("CLoadedFunction<int (*)(void*)>::Load"), std::string::npos) << text;
  EXPECT_EQ(text.find("__cdecl"), std::string::npos) << text;
}

TEST(DynamicLoad, LocationNameSpellsEitherCompilerAlike) {
  EXPECT_STREQ(ZoDynamicLoad::LocationName(
                   "CZoError CLoadedFunction<Signature>::Load(CDynamicLoadBase&, const char*) "
                   "[with Signature = int (*)(void*)]"),
               "CLoadedFunction<int (*)(void*)>::Load");
  EXPECT_STREQ(ZoDynamicLoad::LocationName(
                   "CZoError CLoadedFunction<int (*)(void *)>::Load(CDynamicLoadBase &, const char *) "
                   "[Signature = int (*)(_QOS_VERSION *, void **)]"),
               "CLoadedFunction<int (*)(_QOS_VERSION*, void**)>::Load");
  EXPECT_STREQ(ZoDynamicLoad::LocationName("no template here"), "CLoadedFunction<?>::Load");
  EXPECT_STREQ(ZoDynamicLoad::LocationName(nullptr), "CLoadedFunction<?>::Load");
}

// The module handle in the message prints as "0x" and 16 upper-case
// hexadecimal digits, as on the designed platform; no module is all zeros.
TEST(DynamicLoad, TheModuleInTheMessageIsSixteenUpperCaseHexDigits) {
  MathLoader loader;
  ASSERT_FALSE(loader.LoadAll().IsError());
  char module[64];
  std::snprintf(module, sizeof module, "Module=[0x%016llX]",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(loader.GetModule())));
  const std::string text = loader.m_missing.GetError().AsString();
  EXPECT_NE(text.find(std::string("Failed to get address, ") + module + ", FunctionName=[zonet_no_such_function]"),
            std::string::npos)
      << text;

  MathLoader notLoaded;
  (void)notLoaded.m_missing.Load(notLoaded, "anything");
  EXPECT_NE(notLoaded.m_missing.GetError().AsString().find(
                "Failed to get address, Module=[0x0000000000000000], FunctionName=[anything]"),
            std::string::npos)
      << notLoaded.m_missing.GetError().AsString();
}
