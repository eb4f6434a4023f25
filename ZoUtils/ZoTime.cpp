#include "ZoUtils/ZoTime.h"

#include "ZoPlatform.h"

CTimeStamp::CTimeStamp() : m_time{0, 0} {}
CTimeStamp::~CTimeStamp() = default;

CTimeStamp CTimeStamp::Now() {
  CTimeStamp now;
  now.m_time = zo_platform::WallClock();
  return now;
}

FXProcess::FXProcess(int64_t pid, CTimeStamp start, const char* /*name*/, bool /*flag*/)
    : m_pid(pid == 0 ? zo_platform::CurrentProcessId() : pid), m_start(start) {}

FXProcess::~FXProcess() = default;

void ZOSLEEP_InTeRnAl(unsigned long milliseconds, const char* /*file*/, int /*line*/) {
  zo_platform::SleepMilliseconds(milliseconds);
}
