// Thread message queues: kernel objects signalled while they hold a message the owning thread is
// looking for, so that GetMessage waits in the kernel wait engine like any other wait.

#include <algorithm>
#include <deque>
#include <memory>
#include <unordered_map>

#include "platform/KernelObjects.h"
#include "platform/KernelObjects_internal.h"
#include "platform/NoDestructor.h"
#include "platform/Thread.h"
#include "platform/Thread_internal.h"
#include "platform/Time.h"

namespace n7platform::internal {
namespace {

constexpr std::size_t kMaxPostedMessages = 10000;

// Which message numbers a GetMessage or PeekMessage asks for.
struct Filter {
  UINT min = 0;
  UINT max = 0;

  bool Matches(UINT message) const {
    if (message == WM_QUIT || (min == 0 && max == 0)) return true;
    return min <= message && message <= max;
  }
};

// Only the owning thread takes messages, so the filter of its current GetMessage can live in the
// queue, where the wait engine's signal check finds it.
class MessageQueue final : public KernelObject {
 public:
  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(KernelLock()) {
    return quit_pending_ || FindMatch() != messages_.end();
  }
  bool Acquire(DWORD /*thread*/) override REQUIRES(KernelLock()) { return false; }

  bool Post(const MSG& msg) REQUIRES(KernelLock()) {
    if (messages_.size() >= kMaxPostedMessages) return false;
    messages_.push_back(msg);
    SatisfyWaiters();
    return true;
  }

  void PostQuit(int exit_code, DWORD time) REQUIRES(KernelLock()) {
    quit_pending_ = true;
    quit_.message = WM_QUIT;
    quit_.wParam = static_cast<WPARAM>(exit_code);
    quit_.time = time;
    SatisfyWaiters();
  }

  void SetFilter(Filter filter) REQUIRES(KernelLock()) { filter_ = filter; }

  // The first message that matches the filter, else a pending quit; false when there is neither.
  bool Take(MSG& msg, bool remove) REQUIRES(KernelLock()) {
    const auto match = FindMatch();
    if (match != messages_.end()) {
      msg = *match;
      if (remove) messages_.erase(match);
      return true;
    }
    if (!quit_pending_) return false;
    msg = quit_;
    if (remove) quit_pending_ = false;
    return true;
  }

 private:
  std::deque<MSG>::const_iterator FindMatch() const REQUIRES(KernelLock()) {
    return std::find_if(messages_.begin(), messages_.end(),
                        [this](const MSG& msg)
                            REQUIRES(KernelLock()) { return filter_.Matches(msg.message); });
  }

  std::deque<MSG> messages_ GUARDED_BY(KernelLock());
  bool quit_pending_ GUARDED_BY(KernelLock()) = false;
  MSG quit_ GUARDED_BY(KernelLock()) = {};
  Filter filter_ GUARDED_BY(KernelLock());
};

using QueueMap = std::unordered_map<DWORD, std::shared_ptr<MessageQueue>>;

QueueMap& Queues() REQUIRES(KernelLock()) {
  static NoDestructor<QueueMap> queues;
  return *queues;
}

// The calling thread's queue. It leaves the map when the thread ends, before the thread id can be
// given to another thread.
class QueueOfThisThread {
 public:
  ~QueueOfThisThread() {
    std::shared_ptr<MessageQueue> released;  // destroyed after the lock is released
    KernelGuard guard;
    released = std::move(queue_);
    Forget(released);
  }

  const std::shared_ptr<MessageQueue>& Get() REQUIRES(KernelLock()) {
    if (queue_ == nullptr) {
      queue_ = std::make_shared<MessageQueue>();
      Queues()[GetCurrentThreadId()] = queue_;
    }
    return queue_;
  }

  void Forget(const std::shared_ptr<MessageQueue>& queue) REQUIRES(KernelLock()) {
    const auto entry = Queues().find(GetCurrentThreadId());
    if (entry != Queues().end() && entry->second == queue) Queues().erase(entry);
  }

  const std::shared_ptr<MessageQueue>& queue() const { return queue_; }

 private:
  std::shared_ptr<MessageQueue> queue_;
};

thread_local QueueOfThisThread t_queue;

MessageQueue& ThisThreadsQueue() REQUIRES(KernelLock()) { return *t_queue.Get(); }

// Windows belong to no thread here: only thread messages exist.
bool CheckMessageArguments(LPMSG msg, HWND hwnd) {
  if (msg == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (hwnd != nullptr) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return false;
  }
  return true;
}

// Waits for a message that matches `filter` and takes it, all under one hold of the kernel lock.
void WaitForMessage(MSG& msg, Filter filter, KernelGuard& guard) REQUIRES(KernelLock()) {
  const std::shared_ptr<MessageQueue> queue = t_queue.Get();
  queue->SetFilter(filter);
  const std::shared_ptr<KernelObject> waited[] = {queue};
  WaitForObjects(waited, false, INFINITE, guard);
  queue->Take(msg, true);
}

}  // namespace

void CreateMessageQueue() { ThisThreadsQueue(); }

void DestroyMessageQueue() { t_queue.Forget(t_queue.queue()); }

}  // namespace n7platform::internal

using n7platform::internal::KernelGuard;

BOOL PostThreadMessageW(DWORD thread_id, UINT message, WPARAM wparam, LPARAM lparam) {
  const MSG msg{nullptr, message, wparam, lparam, GetTickCount(), {0, 0}};
  KernelGuard guard;
  const auto& queues = n7platform::internal::Queues();
  const auto entry = queues.find(thread_id);
  if (entry == queues.end()) {
    SetLastError(ERROR_INVALID_THREAD_ID);
    return FALSE;
  }
  if (!entry->second->Post(msg)) {
    SetLastError(ERROR_NOT_ENOUGH_QUOTA);
    return FALSE;
  }
  return TRUE;
}

BOOL GetMessageW(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max) {
  if (!n7platform::internal::CheckMessageArguments(msg, hwnd)) return -1;
  KernelGuard guard;
  n7platform::internal::WaitForMessage(*msg, {filter_min, filter_max}, guard);
  return msg->message != WM_QUIT ? TRUE : FALSE;
}

BOOL PeekMessageW(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max, UINT remove) {
  if (!n7platform::internal::CheckMessageArguments(msg, hwnd)) return FALSE;
  KernelGuard guard;
  auto& messages = n7platform::internal::ThisThreadsQueue();
  messages.SetFilter({filter_min, filter_max});
  return messages.Take(*msg, (remove & PM_REMOVE) != 0) ? TRUE : FALSE;
}

void PostQuitMessage(int exit_code) {
  const DWORD now = GetTickCount();
  KernelGuard guard;
  n7platform::internal::ThisThreadsQueue().PostQuit(exit_code, now);
}
