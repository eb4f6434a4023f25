// What the shared objects show to the world: the declared face, and none of
// the internal hooks.
#include <gtest/gtest.h>

#include <dlfcn.h>

namespace {

struct Library {
  explicit Library(const char* path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle) dlclose(handle);
  }
  bool Has(const char* symbol) const { return dlsym(handle, symbol) != nullptr; }
  void* handle;
};

}  // namespace

TEST(Exports, ZoUtilsShowsItsFaceOnly) {
  Library utils(ZOUTILS_SO);
  ASSERT_NE(utils.handle, nullptr) << dlerror();
  EXPECT_TRUE(utils.Has("ZONET_ErrorCodeName"));
  EXPECT_TRUE(utils.Has("g_ptrLogWriter"));
  EXPECT_TRUE(utils.Has("_ZN8CZoError7SuccessEv"));                       // CZoError::Success()
  EXPECT_TRUE(utils.Has("_ZN11FXErrorUtil10ErrorWin32ERK14FXCodeLocationm"));  // ErrorWin32(loc, code)
  EXPECT_TRUE(utils.Has("_Z16ZOSLEEP_InTeRnAlmPKci"));
  // The platform face stays inside.
  EXPECT_FALSE(utils.Has("_ZN11zo_platform9LastErrorEv"));
  EXPECT_FALSE(utils.Has("_ZN11zo_platform9ErrorTextEl"));
}

TEST(Exports, ZoNetworkShowsItsFaceOnly) {
  Library network(ZONETWORK_SO);
  ASSERT_NE(network.handle, nullptr) << dlerror();
  EXPECT_TRUE(network.Has("_ZN11CZoSockInit4InitEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_platform17SocketLayerStartsEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_platform16SocketLayerStartEv"));
}
