#include "ZoUtils/ZoLog.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "ZoUtils/ZoString.h"

CLogWriterInterface::~CLogWriterInterface() = default;

struct CStdErrLogWriter::Impl {
  std::mutex lock;
  int level = 1;
};

CStdErrLogWriter::CStdErrLogWriter() : m_impl(new Impl) {}
CStdErrLogWriter::~CStdErrLogWriter() { delete m_impl; }

void CStdErrLogWriter::WriteLog(int level, const char* function, int line, int, int, const char* format, ...) {
  if (level > GetLogLevel()) return;
  std::string text;
  va_list args;
  va_start(args, format);
  (void)FXString::FormatArgList(text, format, args);
  va_end(args);
  // One fputs per entry under the lock keeps entries from different threads whole.
  std::string entry = FXString::Format("[%d] %s:%d %s\n", level, function ? function : "?", line, text.c_str());
  std::lock_guard<std::mutex> hold(m_impl->lock);
  std::fputs(entry.c_str(), stderr);
}

void CStdErrLogWriter::SetLogLevel(int level) {
  std::lock_guard<std::mutex> hold(m_impl->lock);
  m_impl->level = level;
}

int CStdErrLogWriter::GetLogLevel() {
  std::lock_guard<std::mutex> hold(m_impl->lock);
  return m_impl->level;
}

boost::shared_ptr<CLogWriterInterface> g_ptrLogWriter(new CStdErrLogWriter);
