// What the shared objects show to the world: the declared face, and none of
// the internal hooks.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdio>
#include <regex>
#include <string>
#include <vector>

namespace {

struct Library {
  explicit Library(const char* path) : handle(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle) dlclose(handle);
  }
  bool Has(const char* symbol) const { return dlsym(handle, symbol) != nullptr; }
  void* handle;
};

// The demangled names of every symbol a shared object defines for others.
std::vector<std::string> DynamicSymbols(const char* path) {
  std::vector<std::string> names;
  std::string command = std::string("nm -DC --defined-only '") + path + "'";
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return names;
  char line[4096];
  while (fgets(line, sizeof line, pipe) != nullptr) {
    std::string text(line);
    // "0000000000001234 T name": the name starts after the address and the type.
    size_t at = text.find(' ', text.find(' ') + 1);
    if (at == std::string::npos) continue;
    std::string name = text.substr(at + 1);
    while (!name.empty() && (name.back() == '\n' || name.back() == '\r')) name.pop_back();
    names.push_back(name);
  }
  pclose(pipe);
  return names;
}

// What may leave a library: its own classes and functions, and what the
// compiler makes for them or instantiates from the standard library and Boost
// in the exported signatures, and AddressSanitizer's markers of exported
// globals. Anything else is an internal name that escaped.
void ExpectOnlyTheFace(const char* path) {
  static const std::regex allowed(
      "^(ZONET_|xnfdset_|CZo|ZoFdset|ZoHTTP::|FX|CLogWriterInterface|CStdErrLogWriter|CTimeStamp|CDynamicLoadBase|"
      "ZoDynamicLoad::|CurlWrapper::|XnCURL::|g_ptrLogWriter|ZOSLEEP_InTeRnAl|typeinfo |vtable |VTT |std::|void std::|boost::|void boost::|"
      "operator\\+|guard variable |__odr_asan\\.)");
  std::vector<std::string> names = DynamicSymbols(path);
  ASSERT_GT(names.size(), 10u) << "nm gave nothing for " << path;
  for (const std::string& name : names) EXPECT_TRUE(std::regex_search(name, allowed)) << name;
}

}  // namespace

TEST(Exports, NothingButTheFaceLeavesEitherLibrary) {
  ExpectOnlyTheFace(ZOUTILS_SO);
  ExpectOnlyTheFace(ZONETWORK_SO);
}

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
  EXPECT_TRUE(network.Has("ZONET_str2ip"));
  EXPECT_TRUE(network.Has("ZONET_recvwithtimeout"));
  EXPECT_TRUE(network.Has("ZONET_socketpair"));
  EXPECT_TRUE(network.Has("xnfdset_set"));
  // Interface discovery; its query hook and platform side stay inside.
  EXPECT_TRUE(network.Has("_ZN9CZoIPAddr9GetIFListERSt6vectorISt4pairIS_S_ESaIS2_EENS_9IP_FAMILYE"));
  EXPECT_TRUE(network.Has("_ZN9CZoIPAddr9GetIFListERSt6vectorIS_SaIS_EENS_9IP_FAMILYE"));
  EXPECT_TRUE(network.Has(
      "_ZN9CZoIPAddr10GetMACListERSt6vectorINSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEESaIS6_EENS_9IP_FAMILYE"));
  EXPECT_TRUE(
      network.Has("_ZN9CZoIPAddr16GetAllInterfacesER22GetAllInterfacesArgs_tR21GetAllInterfacesRet_tRKNS_9IP_FAMILYE"));
  EXPECT_FALSE(network.Has("_ZN14zonet_internal15SetIfQueryFaultENS_12IfQueryFaultEi"));
  EXPECT_FALSE(network.Has("_ZN14zonet_platform14IfSnapshotTakeEPPNS_10IfSnapshotE"));
  // The QoS flow service and its loader; the loader's test hooks and its
  // platform side stay inside.
  EXPECT_TRUE(network.Has("_ZN10FXQWaveDll15QOSCreateHandleEP12_QOS_VERSIONPPv"));
  EXPECT_TRUE(network.Has("_ZN10FXQWaveDll14QOSCloseHandleEPv"));
  EXPECT_TRUE(network.Has("_ZN10FXQWaveDll10QOSSetFlowEPvm13_QOS_SET_FLOWmS0_mP11_OVERLAPPED"));
  EXPECT_TRUE(network.Has("_ZN10FXQWaveDll18QOSAddSocketToFlowEPvmP8sockaddr17_QOS_TRAFFIC_TYPEmPm"));
  EXPECT_TRUE(network.Has("_ZN10FXQWaveDll23QOSRemoveSocketFromFlowEPvmmm"));
  EXPECT_TRUE(network.Has("_ZN10FXQWaveDll21CDynamicLoadBaseQwave20LoadDynamicFunctionsEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_internal15QosLoaderBuildsEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_internal15QosLoaderResultEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_platform12QosLastErrorEv"));
  // CZoPing::ping(const char*, unsigned, unsigned, unsigned, void*, CZoPingCallback*, _ZoPingResult&, bool)
  EXPECT_TRUE(network.Has("_ZN7CZoPing4pingEPKcjjjPvP15CZoPingCallbackR13_ZoPingResultb"));
  EXPECT_FALSE(network.Has("_ZN14zonet_platform17SocketLayerStartsEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_platform16SocketLayerStartEv"));
  // ZoHTTP is exported whole; the platform HTTP layer under it is not.
  EXPECT_TRUE(network.Has("_ZN6ZoHTTP12DownloadFileEPKcS1_S1_"));
  EXPECT_TRUE(network.Has("_ZN6ZoHTTP10SetBaseURLEPKc"));
  EXPECT_FALSE(network.Has("_ZN10zonet_http12InternetOpenEPKcjS1_S1_j"));
  EXPECT_FALSE(network.Has("_ZN10zonet_http9LastErrorEv"));
  EXPECT_FALSE(network.Has("_ZN14zonet_internal19HttpOpenHandleCountEv"));
}

// The foundation's text and file classes keep their declarations exactly, so
// that a component built against them finds the names it was linked with:
// no const where the declaration has none.
TEST(Exports, ZoUtilsKeepsTheDeclaredConstness) {
  Library utils(ZOUTILS_SO);
  ASSERT_NE(utils.handle, nullptr) << dlerror();
  EXPECT_TRUE(utils.Has("_ZN9CZoStringixEm"));                    // char CZoString::operator[](size_t)
  EXPECT_TRUE(utils.Has("_ZN9CZoStringplERKS_"));                 // CZoString::operator+(const CZoString&)
  EXPECT_TRUE(utils.Has("_ZN9CZoStringplEPKc"));                  // CZoString::operator+(const char*)
  EXPECT_TRUE(utils.Has("_ZplPKcRK9CZoString"));                  // operator+(const char*, const CZoString&)
  EXPECT_TRUE(utils.Has("_ZN9CZoString16GetAllocatedSizeEv"));    // size_t CZoString::GetAllocatedSize()
  EXPECT_TRUE(utils.Has("_ZN7CZoFile7IsValidEv"));                // bool CZoFile::IsValid()
  // Declared const, and so exported.
  EXPECT_TRUE(utils.Has("_ZNK9CZoString5c_strEv"));               // CZoString::c_str() const
  EXPECT_TRUE(utils.Has("_ZNK9CZoStringeqEPKc"));                 // CZoString::operator==(const char*) const
}

// libcurl is loaded at run time, never linked: no trace of it among what the
// dynamic loader brings in with the library.
TEST(Exports, ZoNetworkDoesNotNeedLibcurl) {
  std::string command = std::string("readelf -d '") + ZONETWORK_SO + "'";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string text;
  char line[4096];
  while (fgets(line, sizeof line, pipe) != nullptr) text += line;
  ASSERT_EQ(pclose(pipe), 0);
  ASSERT_NE(text.find("(NEEDED)"), std::string::npos) << text;
  EXPECT_EQ(text.find("libcurl"), std::string::npos) << text;
}

TEST(Exports, TheCurlLayerShowsItsFace) {
  Library network(ZONETWORK_SO);
  ASSERT_NE(network.handle, nullptr) << dlerror();
  EXPECT_TRUE(network.Has("_ZN11CurlWrapper17xn_curl_easy_initEv"));
  EXPECT_TRUE(network.Has("_ZN6XnCURL11ErrorXnCURLERK14FXCodeLocationi"));
  EXPECT_TRUE(network.Has("_ZN6XnCURL13XnProtocolReq10SendReqestEv"));
  EXPECT_TRUE(network.Has("_ZN6XnCURL13XnProtocolReq11setProyAuthEl"));
  EXPECT_TRUE(network.Has("_ZN6XnCURL9XnHTTPReqC1ENS_12HTTPProtocolE"));
  EXPECT_FALSE(network.Has("_ZN10zonet_curl16ErrorBufferTextEPKc"));
  EXPECT_FALSE(network.Has("_ZN19zonet_curl_platform13OwnModulePathERNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"));
}
