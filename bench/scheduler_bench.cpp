// The scheduler against a plain std::multimap timer queue doing the same work.
//
// - ScheduleDeschedule/N: schedule N tasks at scattered times, then deschedule them all; the
//   figure is time per operation, which must grow no faster than log N. The ratios at the end
//   compare its rate with the multimap's at each N.
// - MemoryPerTask: heap bytes held per pending task.
// - DispatchLatency: with 10^5 tasks pending, the time from scheduling a task due now to the
//   start of its callback on the dispatch thread.
// The peer keeps its timer queue under a mutex and hands due tasks to a thread of its own, the
// least a timer queue needs to serve several threads.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/ratio_reporter.h"
#include "n7utility/Utility/Scheduler.h"
#include "n7utility/core/heap_counter_test.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::int64_t kPendingForLatency = 100'000;

// Scattered due times between one hour and one day ahead.
int DelayOf(std::int64_t i) { return 3600 + static_cast<int>((i * 7919) % 82800); }

// A callback that notes when it starts.
class StampingCallback : public ASchedulerCallback {
 public:
  StampingCallback() : ASchedulerCallback("bench") {}
  ~StampingCallback() override = default;

  std::atomic<std::int64_t> started{0};

 protected:
  void OnScheduledTask(void*, unsigned long) override {
    started.store(SteadyClock::now().time_since_epoch().count(), std::memory_order_release);
    started.notify_all();
  }
};

void ScheduleMany(ASchedulerCallback& callback, std::int64_t count) {
  for (std::int64_t i = 0; i < count; ++i) {
    callback.ScheduleTaskForSec(nullptr, static_cast<unsigned long>(i), DelayOf(i));
  }
}

void BM_Scheduler_ScheduleDeschedule(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  StampingCallback callback;
  for (auto _ : state) {
    ScheduleMany(callback, count);
    for (std::int64_t i = 0; i < count; ++i) {
      callback.DescheduleTask(nullptr, static_cast<unsigned long>(i));
    }
  }
  state.SetItemsProcessed(state.iterations() * count * 2);
}

// The peer: a multimap from due time to task under a mutex, with its own dispatch thread.
class MultimapTimerQueue {
 public:
  struct Task {
    void* context;
    unsigned long id;
  };
  using Queue = std::multimap<std::int64_t, Task>;

  MultimapTimerQueue() : thread_([this] { Dispatch(); }) {}
  ~MultimapTimerQueue() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_one();
    thread_.join();
  }

  Queue::iterator Schedule(std::int64_t due_seconds, Task task) {
    std::lock_guard lock(mutex_);
    const bool earliest = queue_.empty() || due_seconds < queue_.begin()->first;
    auto inserted = queue_.emplace(due_seconds, task);
    if (earliest) changed_.notify_one();
    return inserted;
  }
  void Deschedule(Queue::iterator task) {
    std::lock_guard lock(mutex_);
    queue_.erase(task);
  }

  std::atomic<std::int64_t> started{0};

 private:
  static std::int64_t NowSeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  }

  void Dispatch() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      if (queue_.empty()) {
        changed_.wait(lock);
      } else if (queue_.begin()->first > NowSeconds()) {
        changed_.wait_until(lock, std::chrono::system_clock::time_point(
                                      std::chrono::seconds(queue_.begin()->first)));
      } else {
        queue_.erase(queue_.begin());
        lock.unlock();
        started.store(SteadyClock::now().time_since_epoch().count(), std::memory_order_release);
        started.notify_all();
        lock.lock();
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  Queue queue_;
  bool stopping_ = false;
  std::thread thread_;
};

std::int64_t NowPlus(int seconds) {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
             .count() +
         seconds;
}

void BM_Multimap_ScheduleDeschedule(benchmark::State& state) {
  const std::int64_t count = state.range(0);
  MultimapTimerQueue queue;
  std::vector<MultimapTimerQueue::Queue::iterator> handles(static_cast<std::size_t>(count));
  for (auto _ : state) {
    for (std::int64_t i = 0; i < count; ++i) {
      handles[static_cast<std::size_t>(i)] =
          queue.Schedule(NowPlus(DelayOf(i)), {nullptr, static_cast<unsigned long>(i)});
    }
    for (auto handle : handles) queue.Deschedule(handle);
  }
  state.SetItemsProcessed(state.iterations() * count * 2);
}

template <typename Fill>
void ReportBytesPerTask(benchmark::State& state, Fill fill) {
  const std::int64_t count = state.range(0);
  double bytes_per_task = 0;
  for (auto _ : state) {
    const std::size_t before = n7testing::LiveHeapBytes();
    fill(count, [&] {
      bytes_per_task =
          static_cast<double>(n7testing::LiveHeapBytes() - before) / static_cast<double>(count);
    });
  }
  state.counters["bytes_per_task"] = bytes_per_task;
}

void BM_Scheduler_MemoryPerTask(benchmark::State& state) {
  ReportBytesPerTask(state, [](std::int64_t count, auto measure) {
    StampingCallback callback;
    ScheduleMany(callback, count);
    measure();
  });
}

void BM_Multimap_MemoryPerTask(benchmark::State& state) {
  ReportBytesPerTask(state, [](std::int64_t count, auto measure) {
    MultimapTimerQueue::Queue queue;
    for (std::int64_t i = 0; i < count; ++i) {
      queue.emplace(NowPlus(DelayOf(i)), MultimapTimerQueue::Task{nullptr, 0});
    }
    measure();
  });
}

// Times one task from the scheduling call to the start of its callback.
template <typename ScheduleNow>
void TimeDispatch(benchmark::State& state, std::atomic<std::int64_t>& started,
                  ScheduleNow schedule_now) {
  for (auto _ : state) {
    started.store(0, std::memory_order_relaxed);
    const std::int64_t begin = SteadyClock::now().time_since_epoch().count();
    schedule_now();
    started.wait(0, std::memory_order_acquire);
    const auto elapsed = SteadyClock::duration(started.load(std::memory_order_acquire) - begin);
    state.SetIterationTime(std::chrono::duration<double>(elapsed).count());
  }
}

void BM_Scheduler_DispatchLatency(benchmark::State& state) {
  StampingCallback pending;
  ScheduleMany(pending, kPendingForLatency);
  StampingCallback callback;
  int context = 0;
  TimeDispatch(state, callback.started, [&] { callback.ScheduleTaskForSec(&context, 1, 0); });
}

void BM_Multimap_DispatchLatency(benchmark::State& state) {
  MultimapTimerQueue queue;
  for (std::int64_t i = 0; i < kPendingForLatency; ++i) {
    queue.Schedule(NowPlus(DelayOf(i)), {nullptr, static_cast<unsigned long>(i)});
  }
  TimeDispatch(state, queue.started, [&] { queue.Schedule(NowPlus(0), {nullptr, 1}); });
}

// Prints the scheduler's rates as ratios to the multimap's at the same number of tasks.
void PrintRatios(const n7bench::RatioTable& table) {
  std::printf("\nRatios (operations per second: scheduler / multimap; above 1 is better)\n");
  for (const char* tasks : {"/1000", "/10000", "/100000", "/1000000"}) {
    const std::string ours = std::string("BM_Scheduler_ScheduleDeschedule") + tasks;
    const double peer = table.Rate(std::string("BM_Multimap_ScheduleDeschedule") + tasks);
    if (peer > 0 && table.Rate(ours) > 0) {
      std::printf("%-40s %6.2f\n", ours.c_str(), table.Rate(ours) / peer);
    }
  }
}

}  // namespace

BENCHMARK(BM_Scheduler_ScheduleDeschedule)
    ->RangeMultiplier(10)
    ->Range(1'000, 1'000'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Multimap_ScheduleDeschedule)
    ->RangeMultiplier(10)
    ->Range(1'000, 1'000'000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Scheduler_MemoryPerTask)->Arg(100'000)->Iterations(1);
BENCHMARK(BM_Multimap_MemoryPerTask)->Arg(100'000)->Iterations(1);
BENCHMARK(BM_Scheduler_DispatchLatency)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Multimap_DispatchLatency)->UseManualTime()->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) { return n7bench::RunWithRatios(argc, argv, PrintRatios); }
