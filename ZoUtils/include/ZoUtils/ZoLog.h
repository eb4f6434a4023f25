/// @file
/// The process-wide log sink.
#ifndef ZOUTILS_ZOLOG_H
#define ZOUTILS_ZOLOG_H

#include <boost/shared_ptr.hpp>

#include "ZoUtils/ZoError.h"
#include "ZoUtils/ZoUtilsExport.h"

/// A log writer. Levels: -1 an error, written always; 0 and up ever finer
/// detail, written when the writer's level is at least that.
class ZOUTILS_API CLogWriterInterface {
public:
  /// A writer is destroyed through this interface.
  virtual ~CLogWriterInterface();
  /// One entry. The two middle arguments are reserved and always 0. Must
  /// accept calls from many threads at once.
  virtual void WriteLog(int level, const char* function, int line, int reserved1, int reserved2, const char* format,
                        ...) ZO_PRINTF_LIKE(7, 8) = 0;
  /// Sets the finest level that is written.
  virtual void SetLogLevel(int level) = 0;
  /// The finest level that is written.
  virtual int GetLogLevel() = 0;
};

/// The default writer: one line per entry on standard error, serialised by a
/// lock, at level 1 unless told otherwise.
class ZOUTILS_API CStdErrLogWriter : public CLogWriterInterface {
public:
  /// A writer at level 1.
  CStdErrLogWriter();
  /// Releases the writer's lock.
  ~CStdErrLogWriter() override;
  /// Writes one line on standard error when level is -1 or at most the
  /// writer's level; safe from many threads at once.
  void WriteLog(int level, const char* function, int line, int reserved1, int reserved2, const char* format, ...)
      override ZO_PRINTF_LIKE(7, 8);
  /// Sets the finest level that is written.
  void SetLogLevel(int level) override;
  /// The finest level that is written (1 unless set).
  int GetLogLevel() override;

private:
  struct Impl;
  Impl* m_impl;
};

/// The writer of the process, a CStdErrLogWriter at start. A host may replace
/// it (or empty it) during start-up, before other threads log; readers check
/// for null.
extern ZOUTILS_API boost::shared_ptr<CLogWriterInterface> g_ptrLogWriter;

#endif  // ZOUTILS_ZOLOG_H
