// What the framework's threads share with their message queues, and the count of live threads
// by which tests check that nothing leaks.
#pragma once

#include <chrono>
#include <cstddef>

#include "n7utility/platform/kernel/KernelObjects_internal.h"

namespace n7platform::internal {

// Gives the calling thread its message queue if it has none yet. A thread begun through
// CWinThread gets it before its creator learns its id, so posts to it cannot fail for want of one.
void CreateMessageQueue();

// Takes the calling thread's queue out of reach as the thread ends: posts to it fail from then on.
void DestroyMessageQueue();

// Threads begun through CWinThread that have not finished. An auto-deleting thread finishes only
// after it has deleted its CWinThread (and so closed its handle).
std::size_t LiveThreadCount();

// Blocks until at most `count` such threads are left; false if that takes longer than `limit`
// (a thread that never ends should fail a test, not hang it).
bool AwaitLiveThreadCount(std::size_t count, std::chrono::milliseconds limit);

}  // namespace n7platform::internal
