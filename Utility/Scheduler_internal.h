// The scheduler's seam for tests: how it begins its dispatch thread.
#pragma once

#include "n7utility/platform/kernel/Thread.h"

namespace n7utility::internal {

// Begins the scheduler's dispatch thread; null when the thread cannot start.
using SchedulerThreadStarter = CWinThread* (*)(AFX_THREADPROC proc, LPVOID param);

// Replaces how the scheduler begins its dispatch thread (null: AfxBeginThread), so that a test
// can make the start fail. Takes effect at the next scheduling call that finds no thread.
void SetSchedulerThreadStarter(SchedulerThreadStarter starter);

}  // namespace n7utility::internal
