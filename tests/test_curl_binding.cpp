// The run-time binding of libcurl. Each case copies the built shared library
// into a directory of its own, puts a stand-in libcurl beside it (or none, or
// a file that will not load), and runs a child process that loads that copy:
// a failed load is final for a process, so every case needs a fresh one.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "ZoNetwork/CurlWrapper.h"
#include "curl/CurlProbe.h"
#include "support/TestSupport.h"

namespace {

using namespace zotest_curl;

void ExpectEveryFailureValue(const ProbeRun& run) {
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.values.at("easy_init"), "null");
  EXPECT_EQ(run.values.at("perform"), "2");
  EXPECT_EQ(run.values.at("pause"), "2");
  EXPECT_EQ(run.values.at("getinfo"), "2");
  EXPECT_EQ(run.values.at("setopt_long"), "2");
  EXPECT_EQ(run.values.at("setopt_text"), "2");
  EXPECT_EQ(run.values.at("multi_init"), "null");
  EXPECT_EQ(run.values.at("multi_perform"), "1");
  EXPECT_EQ(run.values.at("formadd"), "3");
  EXPECT_EQ(run.values.at("getdate"), "-1");
  EXPECT_EQ(run.values.at("version"), "Failed to load libcurl");
  EXPECT_EQ(run.values.at("strerror"), "Failed to load libcurl");
  EXPECT_EQ(run.values.at("version_info"), "null");
  EXPECT_EQ(run.values.at("slist"), "null");
  EXPECT_EQ(run.values.at("escape"), "null");
  EXPECT_EQ(run.values.at("cleanup"), "returned");
  EXPECT_EQ(run.values.at("global_init"), "0");
  // A request object meets the missing curl as a handle it cannot have.
  EXPECT_NE(run.values.at("initialize").find("/XnCURL.-1.0xFFFFFFFF-Failed to get CURL handle"), std::string::npos)
      << run.values.at("initialize");
  EXPECT_NE(run.values.at("after_failed_initialize").find("Call initialize function before any other functions."),
            std::string::npos)
      << run.values.at("after_failed_initialize");
}

}  // namespace

TEST(CurlBinding, AFileThatWillNotLoadCountsAsNoCurlAndEveryWrapperGivesItsFailureValue) {
  LibraryCopy copy;
  copy.PutGarbageCurl();
  ProbeRun run = copy.Run("failure-values");
  ExpectEveryFailureValue(run);
  EXPECT_EQ(run.values.at("zonetwork"), copy.Dir() + "/libZoNetwork.so.0") << "the probe must load the copy";
  // The system's curl is there, but a file beside the library is the only
  // candidate.
  EXPECT_EQ(run.values.at("mapped_after"), "none");
}

TEST(CurlBinding, ALibraryWithoutGlobalInitCountsAsNoneAndIsUnloaded) {
  LibraryCopy copy;
  copy.PutCurl(CURL_STUB_NO_GLOBAL_INIT);
  ProbeRun run = copy.Run("failure-values");
  ExpectEveryFailureValue(run);
  EXPECT_EQ(Count(run.log, "easy_init"), 0u) << "nothing of the rejected file is called";
  // Loaded and unloaded again at the first call, before the call returned.
  std::vector<std::string> first = Section(run.log, "first call");
  ASSERT_EQ(first.size(), 2u) << ReadFile(copy.Log());
  EXPECT_EQ(first[0], "loaded");
  EXPECT_EQ(first[1], "unloaded");
  EXPECT_EQ(run.values.at("mapped_after"), "none") << "the rejected file is no longer mapped";
}

TEST(CurlBinding, AFailingGlobalInitCountsAsNoneAndNothingRunsAtExit) {
  LibraryCopy copy;
  copy.PutCurl(CURL_STUB_INIT_FAILS);
  ProbeRun run = copy.Run("failure-values");
  ExpectEveryFailureValue(run);
  std::vector<std::string> first = Section(run.log, "first call");
  ASSERT_EQ(first.size(), 3u) << ReadFile(copy.Log());
  EXPECT_EQ(first[0], "loaded");
  EXPECT_EQ(first[1], "global_init 3");
  EXPECT_EQ(first[2], "unloaded");
  EXPECT_EQ(Count(run.log, "global_cleanup"), 0u);
  EXPECT_EQ(Section(run.log, "exit").size(), 0u) << "nothing is called at the end of the process";
  EXPECT_EQ(run.values.at("mapped_after"), "none");
}

TEST(CurlBinding, LoadsAtTheFirstWrapperCallAndCleansUpOnceBeforeTheUnload) {
  LibraryCopy copy;
  copy.PutCurl(CURL_STUB_RECORD);
  ProbeRun run = copy.Run("failure-values");
  ASSERT_EQ(run.status, 0) << run.output;
  // Nothing at load, nothing at the empty global init.
  EXPECT_EQ(run.values.at("mapped_before"), "none");
  EXPECT_EQ(run.values.at("mapped_after_global_init"), "none");
  EXPECT_EQ(run.values.at("global_init"), "0");
  EXPECT_LT(IndexOf(run.log, "-- first call"), IndexOf(run.log, "loaded"));
  EXPECT_NE(run.values.at("mapped_after").find(copy.Dir() + "/libcurl.so.4"), std::string::npos)
      << run.values.at("mapped_after");
  EXPECT_EQ(run.values.at("easy_init"), "handle");
  EXPECT_NE(run.values.at("version").find("libcurl/"), std::string::npos);
  EXPECT_EQ(run.values.at("initialize"), "ok");
  EXPECT_EQ(Count(run.log, "global_init 3"), 1u);
  // xn_curl_global_cleanup did nothing: curl stayed usable after it, and its
  // real clean-up comes once, at the end, before the file goes.
  std::vector<std::string> atExit = Section(run.log, "exit");
  ASSERT_EQ(atExit.size(), 2u) << ReadFile(copy.Log());
  EXPECT_EQ(atExit[0], "global_cleanup");
  EXPECT_EQ(atExit[1], "unloaded");
  EXPECT_EQ(Count(run.log, "global_cleanup"), 1u);
}

TEST(CurlBinding, WithoutAFileBesideTheLibraryTheSystemsCurlIsLoadedAndTheCurrentDirectoryIsNot) {
  LibraryCopy copy;
  zotest::TempDir work;
  // A stand-in in the current directory would log if it were loaded.
  CopyFile(CURL_STUB_RECORD, work.File("libcurl.so.4"));
  ProbeRun run = copy.Run("failure-values", work.Path());
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.values.at("easy_init"), "handle");
  EXPECT_EQ(run.values.at("mapped_after").find(work.Path()), std::string::npos) << run.values.at("mapped_after");
  EXPECT_NE(run.values.at("mapped_after"), "none");
  EXPECT_EQ(Count(run.log, "loaded"), 0u) << ReadFile(copy.Log());
}

TEST(CurlBinding, AModulePathLongerThan1280CharactersIsReadWhole) {
  zotest::TempDir base;
  std::string dir = base.Path();
  while (dir.size() <= 1400) {
    dir += "/a-directory-with-a-rather-long-name-to-make-the-path-long";
    ASSERT_EQ(mkdir(dir.c_str(), 0700), 0) << dir;
  }
  LibraryCopy copy(dir);
  copy.PutCurl(CURL_STUB_RECORD);
  ProbeRun run = copy.Run("failure-values");
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.values.at("zonetwork"), dir + "/libZoNetwork.so.0");
  EXPECT_EQ(Count(run.log, "global_init 3"), 1u) << "the stand-in beside the long path was found";
  EXPECT_EQ(run.values.at("easy_init"), "handle");
}

TEST(CurlBindingThreads, ManyFirstCallsAtOnceLoadAndInitialiseCurlOnce) {
  LibraryCopy copy;
  copy.PutCurl(CURL_STUB_RECORD);
  ProbeRun run = copy.Run("threads 24");
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.values.at("same"), "24");
  EXPECT_EQ(run.values.at("result"), "Couldn't connect to server");
  EXPECT_NE(run.values.at("version").find("libcurl/"), std::string::npos);
  EXPECT_EQ(Count(run.log, "loaded"), 1u);
  EXPECT_EQ(Count(run.log, "global_init 3"), 1u);
  EXPECT_EQ(Count(run.log, "global_cleanup"), 1u);
}

// In this process the binding finds no file beside the test program, so it
// takes the system's curl.
TEST(CurlBindingInProcess, TheEmptyGlobalFunctionsLeaveCurlUsable) {
  EXPECT_EQ(CurlWrapper::xn_curl_global_init(CURL_GLOBAL_ALL), CURLE_OK);
  CurlWrapper::xn_curl_global_cleanup();
  void* handle = CurlWrapper::xn_curl_easy_init();
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(CurlWrapper::xn_curl_easy_setopt(handle, CURLOPT_TIMEOUT, 5), CURLE_OK);  // the int overload
  EXPECT_EQ(CurlWrapper::xn_curl_easy_setopt(handle, CURLOPT_INFILESIZE_LARGE, 10LL), CURLE_OK);
  char* escaped = CurlWrapper::xn_curl_easy_escape(handle, "a b/c", 0);
  ASSERT_NE(escaped, nullptr);
  EXPECT_STREQ(escaped, "a%20b%2Fc");
  CurlWrapper::xn_curl_free(escaped);
  int length = 0;
  char* plain = CurlWrapper::xn_curl_easy_unescape(handle, "a%20b", 0, &length);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(length, 3);
  CurlWrapper::xn_curl_free(plain);
  char date[] = "Sun, 06 Nov 1994 08:49:37 GMT";
  EXPECT_EQ(CurlWrapper::xn_curl_getdate(date, nullptr), 784111777);
  EXPECT_STREQ(CurlWrapper::xn_curl_easy_strerror(CURLE_COULDNT_CONNECT), "Couldn't connect to server");
  ASSERT_NE(CurlWrapper::xn_curl_version_info(CURLVERSION_NOW), nullptr);
  void* multi = CurlWrapper::xn_curl_multi_init();
  ASSERT_NE(multi, nullptr);
  EXPECT_EQ(CurlWrapper::xn_curl_multi_add_handle(multi, handle), CURLM_OK);
  long timeout = 0;
  EXPECT_EQ(CurlWrapper::xn_curl_multi_timeout(multi, &timeout), CURLM_OK);
  EXPECT_EQ(CurlWrapper::xn_curl_multi_remove_handle(multi, handle), CURLM_OK);
  fd_set reads, writes, excepts;
  FD_ZERO(&reads);
  FD_ZERO(&writes);
  FD_ZERO(&excepts);
  int maxFd = 0;
  EXPECT_EQ(CurlWrapper::xn_curl_multi_fdset(multi, &reads, &writes, &excepts, &maxFd), CURLM_OK);
  int running = 0;
  EXPECT_EQ(CurlWrapper::xn_curl_multi_perform(multi, &running), CURLM_OK);
  // Not in a transfer: curl itself refuses, which shows the call reached it.
  EXPECT_EQ(CurlWrapper::xn_curl_easy_pause(handle, CURLPAUSE_CONT), CURLE_BAD_FUNCTION_ARGUMENT);
  // The binding has no wrapper of curl_multi_cleanup; the test reaches the
  // loaded curl itself to release the multi handle.
  void* loaded = dlopen("libcurl.so.4", RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(loaded, nullptr);
  auto multiCleanup = reinterpret_cast<CURLMcode (*)(void*)>(dlsym(loaded, "curl_multi_cleanup"));
  ASSERT_NE(multiCleanup, nullptr);
  EXPECT_EQ(multiCleanup(multi), CURLM_OK);
  dlclose(loaded);
  CurlWrapper::xn_curl_easy_cleanup(handle);
}
