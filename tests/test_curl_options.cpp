// What the request layer tells curl where nothing on the wire can show it:
// the transfer time-out of the defaults, their order, and option values that
// change nothing on loopback. A recording stand-in for libcurl, placed beside
// a copy of the library in a child process, logs each call and forwards it
// to the system's curl.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <curl/curl.h>

#include "curl/CurlProbe.h"
#include "support/Servers.h"

using namespace zotest_curl;

namespace {

using Lines_ = std::vector<std::string>;

ProbeRun RunRecorded(const LibraryCopy& copy, const std::string& arguments, const std::string& workDir = "") {
  copy.PutCurl(CURL_STUB_RECORD);
  return copy.Run(arguments, workDir);
}

}  // namespace

TEST(CurlOptions, TheFirstInitializeSetsNoTimeOutAndASecondOneSets1080Seconds) {
  LibraryCopy copy;
  ProbeRun run = RunRecorded(copy, "defaults");
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(run.values.at("first"), "ok");
  EXPECT_EQ(run.values.at("second"), "ok");
  // The defaults in their order; no bundle in the current directory, so none
  // is handed to curl. A new handle first gets the curl tool's receive buffer
  // of 100 KiB (option 98).
  EXPECT_EQ(Section(run.log, "first initialize"),
            (Lines_{"loaded", "global_init 3", "easy_init", "setopt 98 102400", "setopt 10010 pointer", "setopt 52 0", "setopt 64 1",
                    "setopt 81 2", "setopt 216 16"}));
  EXPECT_EQ(Section(run.log, "second initialize"),
            (Lines_{"easy_init", "setopt 98 102400", "setopt 13 1080", "setopt 10010 pointer", "setopt 52 0", "setopt 64 1",
                    "setopt 81 2", "setopt 216 16"}));
}

TEST(CurlOptions, ABundleInTheCurrentDirectoryIsHandedToCurlLast) {
  LibraryCopy copy;
  zotest::TempDir work;
  work.Write("curl-ca-bundle.crt", "not read by this test\n");
  ProbeRun run = RunRecorded(copy, "defaults", work.Path());
  ASSERT_EQ(run.status, 0) << run.output;
  EXPECT_EQ(Section(run.log, "first initialize").back(), "setopt 10065 \"./curl-ca-bundle.crt\"");
  EXPECT_EQ(Section(run.log, "second initialize").back(), "setopt 10065 \"./curl-ca-bundle.crt\"");
}

TEST(CurlOptions, EachSetterSetsItsOptionsInOrder) {
  LibraryCopy copy;
  zotest::TempDir work;
  std::string ca = work.Write("ca.crt", "a bundle\n");
  ProbeRun run = RunRecorded(copy, "settings '" + ca + "'");
  ASSERT_EQ(run.status, 0) << run.output;
  for (const auto& entry : run.values) EXPECT_EQ(entry.second, "ok") << entry.first;

  // Only the switch when keep-alive is off; the times are ignored.
  EXPECT_EQ(Section(run.log, "keepalive off"), (Lines_{"setopt 213 0"}));
  EXPECT_EQ(Section(run.log, "keepalive on"), (Lines_{"setopt 213 1", "setopt 214 5", "setopt 215 6"}));
  // 7 is passed on as 1.
  EXPECT_EQ(Section(run.log, "session cache 7"), (Lines_{"setopt 150 1"}));
  EXPECT_EQ(Section(run.log, "session cache 0"), (Lines_{"setopt 150 0"}));
  // The same version for the proxy's connection.
  const std::string v = std::to_string(static_cast<long>(CURL_SSLVERSION_MAX_TLSv1_2));
  EXPECT_EQ(Section(run.log, "max ssl"), (Lines_{"setopt 32 " + v, "setopt 250 " + v}));
  // The local hosts always stand first, with no trailing comma.
  EXPECT_EQ(Section(run.log, "bypass empty"), (Lines_{"setopt 10177 \"127.0.0.1,localhost,::1,0:0:0:0:0:0:0:1\""}));
  EXPECT_EQ(Section(run.log, "bypass list"),
            (Lines_{"setopt 10177 \"127.0.0.1,localhost,::1,0:0:0:0:0:0:0:1,a.example,b.example\""}));
  EXPECT_EQ(Section(run.log, "proxy"),
            (Lines_{"setopt 101 0", "setopt 10004 \"127.0.0.1:3128\"", "setopt 10006 \"pu:pp\""}));
  // Empty strings go on as they are: no credentials still set ":".
  EXPECT_EQ(Section(run.log, "proxy empty"), (Lines_{"setopt 101 0", "setopt 10004 \":\"", "setopt 10006 \":\""}));
  // The proxy's credentials stay.
  EXPECT_EQ(Section(run.log, "disable proxy"), (Lines_{"setopt 10004 \"\""}));
  EXPECT_EQ(Section(run.log, "proxy auth"), (Lines_{"setopt 111 1"}));
  EXPECT_EQ(Section(run.log, "http auth"), (Lines_{"setopt 107 " + std::to_string(static_cast<long>(CURLAUTH_ANY))}));
  EXPECT_EQ(Section(run.log, "credentials"), (Lines_{"setopt 10005 \"user:secret\""}));
  EXPECT_EQ(Section(run.log, "timeout"), (Lines_{"setopt 13 7"}));
  EXPECT_EQ(Section(run.log, "connect timeout"), (Lines_{"setopt 78 3"}));
  EXPECT_EQ(Section(run.log, "redirects on"), (Lines_{"setopt 52 1", "setopt 161 7"}));
  EXPECT_EQ(Section(run.log, "redirects off"), (Lines_{"setopt 52 0"}));
  EXPECT_EQ(Section(run.log, "logging on"), (Lines_{"setopt 41 1"}));
  EXPECT_EQ(Section(run.log, "logging off"), (Lines_{"setopt 41 0"}));
  EXPECT_EQ(Section(run.log, "unsecured"), (Lines_{"setopt 64 0", "setopt 81 0"}));
  // A bundle that is not there is not handed to curl; one that is, is.
  EXPECT_EQ(Section(run.log, "secured missing"), (Lines_{"setopt 64 1", "setopt 81 2", "setopt 216 16"}));
  EXPECT_EQ(Section(run.log, "secured present"),
            (Lines_{"setopt 64 1", "setopt 81 2", "setopt 216 16", "setopt 10065 \"" + ca + "\""}));
}

TEST(CurlOptions, WhatEachKindOfRequestSetsAndTakesBack) {
  LibraryCopy copy;
  std::string port = std::to_string(zotest::PickFreePort());
  ProbeRun run = RunRecorded(copy, "undo " + port);
  ASSERT_EQ(run.status, 0) << run.output;
  const std::string url = "setopt 10002 \"http://127.0.0.1:" + port;
  EXPECT_EQ(Section(run.log, "get"), (Lines_{url + "/g\"", "setopt 80 1", "perform", "setopt 80 1"}))
      << "a GET leaves HTTPGET at 1";
  EXPECT_EQ(Section(run.log, "download"), (Lines_{url + "/d\"", "setopt 80 1", "perform", "setopt 80 0"}));
  EXPECT_EQ(Section(run.log, "post buffer"),
            (Lines_{url + "/p\"", "setopt 47 1", "setopt 60 3", "setopt 10015 pointer", "perform"}))
      << "a buffer's POST is never undone";
  EXPECT_EQ(Section(run.log, "check"), (Lines_{url + "/p\"", "setopt 44 1", "perform", "setopt 44 0"}));
  EXPECT_EQ(Section(run.log, "upload empty form"),
            (Lines_{url + "/u\"", "setopt 10024 null", "slist_append \"Expect:100-continue\"", "setopt 10023 pointer",
                    "perform", "setopt 10023 null", "setopt 10024 null", "setopt 30115 0"}));
  EXPECT_EQ(Section(run.log, "post string"),
            (Lines_{url + "/s\"", "setopt 47 1", "setopt 60 4", "setopt 10015 pointer", "perform", "setopt 47 0",
                    "setopt 10015 null", "setopt 60 0"}));
  EXPECT_EQ(Section(run.log, "put"),
            (Lines_{url + "/t\"", "setopt 10036 \"PUT\"", "setopt 10015 pointer", "setopt 60 3", "perform",
                    "setopt 10036 null", "setopt 47 0", "setopt 60 0"}));
  EXPECT_EQ(Section(run.log, "file info"),
            (Lines_{url + "/f\"", "setopt 44 1", "setopt 20079 function", "setopt 42 0", "perform", "setopt 44 0",
                    "setopt 20079 null", "setopt 42 0"}));
}
