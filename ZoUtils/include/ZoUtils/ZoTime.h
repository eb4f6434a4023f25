/// @file
/// Clock, process identity and sleeping.
#ifndef ZOUTILS_ZOTIME_H
#define ZOUTILS_ZOTIME_H

#include <cstdint>
#include <ctime>

#include "ZoUtils/ZoUtilsExport.h"

/// A moment of the wall clock, to nanoseconds. A default one is the epoch.
class ZOUTILS_API CTimeStamp {
public:
  /// The epoch.
  CTimeStamp();
  /// Nothing to release.
  ~CTimeStamp();
  /// The present moment of the wall clock (CLOCK_REALTIME).
  static CTimeStamp Now();
  /// The moment as seconds and nanoseconds since the epoch.
  timespec AsTimeSpec() const { return m_time; }

private:
  timespec m_time;
};

/// A process. Made with pid 0 it stands for the calling process.
class ZOUTILS_API FXProcess {
public:
  /// The process pid, or the calling process for pid 0. start is kept; name
  /// and flag mean nothing here (callers pass null and false).
  FXProcess(int64_t pid, CTimeStamp start, const char* name, bool flag);
  /// Nothing to release.
  ~FXProcess();
  /// The process's identifier (the calling process's own for pid 0).
  int64_t getProcessId() const { return m_pid; }

private:
  int64_t m_pid;
  CTimeStamp m_start;
};

/// Blocks the calling thread for that many milliseconds, interrupted or not;
/// file and line say who asked.
ZOUTILS_API void ZOSLEEP_InTeRnAl(unsigned long milliseconds, const char* file, int line);
/// ZOSLEEP_InTeRnAl() with the caller's file and line.
#define ZOSLEEP(milliseconds) ZOSLEEP_InTeRnAl((milliseconds), __FILE__, __LINE__)

#endif  // ZOUTILS_ZOTIME_H
