// A log writer of the test's own, to read back what the library logged.
#ifndef ZONET_TESTS_LOGCAPTURE_H
#define ZONET_TESTS_LOGCAPTURE_H

#include <atomic>
#include <cstdarg>
#include <mutex>
#include <string>
#include <vector>

#include "ZoUtils/ZoLog.h"
#include "ZoUtils/ZoString.h"

namespace zotest {

// Keeps every line at or below its level as "level|function|text", or as
// "level|function|line|text" when made WithLine.
class CollectingWriter : public CLogWriterInterface {
public:
  enum Form { kWithoutLine, kWithLine };
  explicit CollectingWriter(Form form = kWithoutLine) : m_form(form) {}

  void WriteLog(int level, const char* function, int line, int, int, const char* format, ...) override {
    if (level > m_level) return;
    std::string text;
    va_list args;
    va_start(args, format);
    (void)FXString::FormatArgList(text, format, args);
    va_end(args);
    const std::string kept = m_form == kWithLine
                                 ? FXString::Format("%d|%s|%d|%s", level, function, line, text.c_str())
                                 : FXString::Format("%d|%s|%s", level, function, text.c_str());
    std::lock_guard<std::mutex> hold(m_lock);
    m_lines.push_back(kept);
  }
  void SetLogLevel(int level) override { m_level = level; }
  int GetLogLevel() override { return m_level; }
  std::vector<std::string> Lines() {
    std::lock_guard<std::mutex> hold(m_lock);
    return m_lines;
  }
  void Clear() {
    std::lock_guard<std::mutex> hold(m_lock);
    m_lines.clear();
  }

private:
  const Form m_form;
  std::mutex m_lock;
  std::vector<std::string> m_lines;
  std::atomic<int> m_level{1};
};

// Installs a collecting writer (lines without their line numbers) for one
// test and puts the old one back.
class LogCapture {
public:
  explicit LogCapture(int level = 1) : m_writer(new CollectingWriter), m_old(g_ptrLogWriter) {
    m_writer->SetLogLevel(level);
    g_ptrLogWriter = m_writer;
  }
  ~LogCapture() { g_ptrLogWriter = m_old; }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  std::vector<std::string> Lines() { return m_writer->Lines(); }
  void Clear() { m_writer->Clear(); }

private:
  boost::shared_ptr<CollectingWriter> m_writer;
  boost::shared_ptr<CLogWriterInterface> m_old;
};

}  // namespace zotest

#endif  // ZONET_TESTS_LOGCAPTURE_H
