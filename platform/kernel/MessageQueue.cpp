// Thread message queues: kernel objects signalled while they hold a message the owning thread is
// looking for, so that GetMessage waits in the kernel wait engine like any other wait.

#include "n7utility/platform/kernel/MessageQueue.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <unordered_map>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"
#include "n7utility/platform/kernel/Thread.h"
#include "n7utility/platform/kernel/Thread_internal.h"
#include "n7utility/platform/kernel/Time.h"

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
  static constexpr ObjectKind kKind = ObjectKind::kMessageQueue;

  MessageQueue() : KernelObject(kKind) {}

  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(lock_) {
    return quit_pending_ || FindMatch() != messages_.end();
  }
  bool Acquire(const WaitingThread& /*thread*/) override REQUIRES(lock_) { return false; }

  bool Post(const MSG& msg) REQUIRES(lock_) {
    if (messages_.size() >= kMaxPostedMessages) return false;
    messages_.push_back(msg);
    SatisfyWaiters();
    return true;
  }

  void PostQuit(int exit_code, DWORD time) REQUIRES(lock_) {
    quit_pending_ = true;
    quit_.message = WM_QUIT;
    quit_.wParam = static_cast<WPARAM>(exit_code);
    quit_.time = time;
    SatisfyWaiters();
  }

  void SetFilter(Filter filter) REQUIRES(lock_) { filter_ = filter; }

  // The first message that matches the filter, else a pending quit; false when there is neither.
  bool Take(MSG& msg, bool remove) REQUIRES(lock_) {
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
  std::deque<MSG>::const_iterator FindMatch() const REQUIRES(lock_) {
    return std::find_if(messages_.begin(), messages_.end(), [this](const MSG& msg) REQUIRES(lock_) {
      return filter_.Matches(msg.message);
    });
  }

  std::deque<MSG> messages_ GUARDED_BY(lock_);
  bool quit_pending_ GUARDED_BY(lock_) = false;
  MSG quit_ GUARDED_BY(lock_) = {};
  Filter filter_ GUARDED_BY(lock_);
};

using QueueMap = std::unordered_map<DWORD, std::shared_ptr<MessageQueue>>;

// Guards the directory of queues by thread id (not the queues themselves).
ServiceMutex& QueuesLock() {
  static NoDestructor<ServiceMutex> lock;
  return *lock;
}

QueueMap& Queues() REQUIRES(QueuesLock()) {
  static NoDestructor<QueueMap> queues;
  return *queues;
}

// The calling thread's queue. It leaves the map when the thread ends, before the thread id can be
// given to another thread.
class QueueOfThisThread {
 public:
  ~QueueOfThisThread() {
    const std::shared_ptr<MessageQueue> released = std::move(queue_);
    Forget(released);
  }

  const std::shared_ptr<MessageQueue>& Get() {
    if (queue_ == nullptr) {
      queue_ = std::make_shared<MessageQueue>();
      ServiceGuard guard(QueuesLock());
      Queues()[GetCurrentThreadId()] = queue_;
    }
    return queue_;
  }

  // The map's reference is destroyed after the lock is released.
  void Forget(const std::shared_ptr<MessageQueue>& queue) {
    std::shared_ptr<MessageQueue> removed;
    ServiceGuard guard(QueuesLock());
    const auto entry = Queues().find(GetCurrentThreadId());
    if (entry != Queues().end() && entry->second == queue) {
      removed = std::move(entry->second);
      Queues().erase(entry);
    }
  }

  const std::shared_ptr<MessageQueue>& queue() const { return queue_; }

 private:
  std::shared_ptr<MessageQueue> queue_;
};

thread_local QueueOfThisThread t_queue;

MessageQueue& ThisThreadsQueue() { return *t_queue.Get(); }

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

// Waits for a message that matches `filter` and takes it. Only this thread takes from its queue,
// so the message the wait found is still there when it looks again.
void WaitForMessage(MSG& msg, Filter filter) {
  MessageQueue& queue = ThisThreadsQueue();
  {
    ObjectGuard guard(queue.lock());
    queue.SetFilter(filter);
  }
  KernelObject* const waited[] = {&queue};
  for (;;) {
    WaitForObjects(waited, false, INFINITE);
    ObjectGuard guard(queue.lock());
    if (queue.Take(msg, true)) return;
  }
}

}  // namespace

void CreateMessageQueue() { ThisThreadsQueue(); }

void DestroyMessageQueue() { t_queue.Forget(t_queue.queue()); }

}  // namespace n7platform::internal

using n7platform::internal::ObjectGuard;
using n7platform::internal::ServiceGuard;

BOOL PostThreadMessageW(DWORD thread_id, UINT message, WPARAM wparam, LPARAM lparam) {
  const MSG msg{nullptr, message, wparam, lparam, GetTickCount(), {0, 0}};
  std::shared_ptr<n7platform::internal::MessageQueue> queue;
  {
    ServiceGuard guard(n7platform::internal::QueuesLock());
    const auto& queues = n7platform::internal::Queues();
    const auto entry = queues.find(thread_id);
    if (entry != queues.end()) queue = entry->second;
  }
  if (queue == nullptr) {
    SetLastError(ERROR_INVALID_THREAD_ID);
    return FALSE;
  }
  bool posted = false;
  {
    ObjectGuard guard(queue->lock());
    posted = queue->Post(msg);
  }
  n7platform::internal::UnparkPending();
  if (!posted) {
    SetLastError(ERROR_NOT_ENOUGH_QUOTA);
    return FALSE;
  }
  return TRUE;
}

BOOL GetMessageW(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max) {
  if (!n7platform::internal::CheckMessageArguments(msg, hwnd)) return -1;
  n7platform::internal::WaitForMessage(*msg, {filter_min, filter_max});
  return msg->message != WM_QUIT ? TRUE : FALSE;
}

BOOL PeekMessageW(LPMSG msg, HWND hwnd, UINT filter_min, UINT filter_max, UINT remove) {
  if (!n7platform::internal::CheckMessageArguments(msg, hwnd)) return FALSE;
  auto& messages = n7platform::internal::ThisThreadsQueue();
  ObjectGuard guard(messages.lock());
  messages.SetFilter({filter_min, filter_max});
  return messages.Take(*msg, (remove & PM_REMOVE) != 0) ? TRUE : FALSE;
}

void PostQuitMessage(int exit_code) {
  const DWORD now = GetTickCount();
  auto& messages = n7platform::internal::ThisThreadsQueue();
  {
    ObjectGuard guard(messages.lock());
    messages.PostQuit(exit_code, now);
  }
  n7platform::internal::UnparkPending();
}
