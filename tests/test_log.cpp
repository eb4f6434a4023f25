// The log sink: default writer, replacement, null, many threads.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "ZoUtils/ZoLog.h"
#include "ZoUtils/ZoString.h"
#include "support/LogCapture.h"

TEST(Log, DefaultWriterIsThereAndWritesToStandardError) {
  ASSERT_TRUE(g_ptrLogWriter);
  int level = g_ptrLogWriter->GetLogLevel();
  EXPECT_EQ(level, 1);
  testing::internal::CaptureStderr();
  g_ptrLogWriter->WriteLog(-1, "CZoIPAddr::GetInterfaces", 10, 0, 0, "Expected error: %d or %d (), but received %d",
                           232, 111, 5);
  g_ptrLogWriter->WriteLog(2, "CZoIPAddr::GetInterfaces", 11, 0, 0, "No interfaces available");
  std::string out = testing::internal::GetCapturedStderr();
  EXPECT_NE(out.find("Expected error: 232 or 111 (), but received 5"), std::string::npos);
  EXPECT_EQ(out.find("No interfaces available"), std::string::npos) << "detail below the level is not written";
  g_ptrLogWriter->SetLogLevel(2);
  testing::internal::CaptureStderr();
  g_ptrLogWriter->WriteLog(2, "F::G", 1, 0, 0, "No interfaces available");
  out = testing::internal::GetCapturedStderr();
  EXPECT_NE(out.find("No interfaces available"), std::string::npos);
  g_ptrLogWriter->SetLogLevel(level);
}

TEST(Log, AHostReplacesOrEmptiesTheWriter) {
  boost::shared_ptr<CLogWriterInterface> saved = g_ptrLogWriter;
  boost::shared_ptr<zotest::CollectingWriter> mine(new zotest::CollectingWriter(zotest::CollectingWriter::kWithLine));
  g_ptrLogWriter = mine;
  if (g_ptrLogWriter) g_ptrLogWriter->WriteLog(-1, "A::B", 7, 0, 0, "x=%d", 3);
  EXPECT_EQ(mine->Lines(), (std::vector<std::string>{"-1|A::B|7|x=3"}));
  g_ptrLogWriter.reset();
  EXPECT_FALSE(g_ptrLogWriter) << "readers must cope with no writer";
  g_ptrLogWriter = saved;
}

TEST(Log, ManyThreadsWriteAtOnce) {
  CStdErrLogWriter writer;
  writer.SetLogLevel(2);
  testing::internal::CaptureStderr();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&writer, t] {
      for (int i = 0; i < 200; ++i) writer.WriteLog(2, "T::Run", t, 0, 0, "thread %d entry %d", t, i);
    });
  }
  for (auto& th : threads) th.join();
  std::string out = testing::internal::GetCapturedStderr();
  size_t lines = 0;
  for (char c : out) lines += c == '\n';
  EXPECT_EQ(lines, 800u) << "every entry is one whole line";
  EXPECT_NE(out.find("thread 3 entry 199"), std::string::npos);
}
