// Synchronisation objects against their standard-library peers, in one run.
//
// - RW/<lock>/<write every>/threads:N: acquisitions per second of each reader/writer lock and of
//   std::shared_mutex, with one write in 10 (90/10) or in 2 (50/50) operations, on 2 and 4
//   threads.
// - EventPingPong: round trip of SetEvent / WaitForSingleObject between two threads, against
//   the same ping-pong over std::mutex + std::condition_variable.
// - WaitFor64PingPong: the same round trip where the woken thread waits for any of 64 handles
//   (the signalled one last): the cost of one wake-up of a 64-handle wait, against EventPingPong.
// - EventSetWait / CondVarSetWait: SetEvent then WaitForSingleObject(event, 0) on an event of the
//   thread's own, against setting and taking a flag under std::mutex + std::condition_variable.
// - KernelMutex / StdMutex: wait for then release a kernel mutex of the thread's own, against
//   std::mutex lock and unlock.
//   Both run on 1, 2, 4, ... threads up to the hardware's, each thread on its own objects: with
//   nothing shared, throughput should grow with the threads as the peers' does.
// At the end a table gives each figure as a ratio to its peer.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/ratio_reporter.h"
#include "n7utility/Utility/ReadWriteLock.h"
#include "n7utility/platform/kernel/KernelObjects.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Reader/writer locks

class SharedMutex {
 public:
  void AcquireReadLock() { mutex_.lock_shared(); }
  void ReleaseReadLock() { mutex_.unlock_shared(); }
  void AcquireWriteLock() { mutex_.lock(); }
  void ReleaseWriteLock() { mutex_.unlock(); }

 private:
  std::shared_mutex mutex_;
};

template <typename Lock>
void BM_RW(benchmark::State& state) {
  static Lock lock;
  static long data[8];  // guarded by lock
  const auto write_every = static_cast<unsigned>(state.range(0));
  auto op = static_cast<unsigned>(state.thread_index());
  for (auto _ : state) {
    const unsigned slot = ++op % 8;
    if (op % write_every == 0) {
      lock.AcquireWriteLock();
      ++data[slot];
      lock.ReleaseWriteLock();
    } else {
      lock.AcquireReadLock();
      benchmark::DoNotOptimize(data[slot]);
      lock.ReleaseReadLock();
    }
  }
  state.SetItemsProcessed(state.iterations());
}

#define N7_RW_BENCHMARK(Lock) \
  BENCHMARK_TEMPLATE(BM_RW, Lock)->Arg(10)->Arg(2)->Threads(2)->Threads(4)->UseRealTime()

N7_RW_BENCHMARK(SharedMutex);
N7_RW_BENCHMARK(CReaderPrefRWLock);
N7_RW_BENCHMARK(CWriterPrefRWLock);
N7_RW_BENCHMARK(CMutexRWLock);

// ---------------------------------------------------------------------------------------------
// Ping-pong between two threads

// A partner thread that waits on `waited` (signalled at `ping_index`) and answers on `pong`
// until told to stop.
class EventPartner {
 public:
  EventPartner(std::vector<HANDLE> waited, HANDLE pong)
      : waited_(std::move(waited)), pong_(pong), thread_([this] { Run(); }) {}
  ~EventPartner() {
    stop_ = true;
    SetEvent(waited_.back());
    thread_.join();
  }
  EventPartner(const EventPartner&) = delete;
  EventPartner& operator=(const EventPartner&) = delete;

 private:
  void Run() {
    const auto count = static_cast<DWORD>(waited_.size());
    while (WaitForMultipleObjects(count, waited_.data(), FALSE, INFINITE) != WAIT_FAILED &&
           !stop_) {
      SetEvent(pong_);
    }
  }

  std::vector<HANDLE> waited_;
  HANDLE pong_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// Ping-pong where the partner waits on `handle_count` auto-reset events, the last being ping.
void EventPingPong(benchmark::State& state, DWORD handle_count) {
  std::vector<HANDLE> waited;
  for (DWORD i = 0; i < handle_count; ++i)
    waited.push_back(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  HANDLE ping = waited.back();
  HANDLE pong = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  {
    EventPartner partner(waited, pong);
    for (auto _ : state) {
      SetEvent(ping);
      WaitForSingleObject(pong, INFINITE);
    }
  }
  for (HANDLE handle : waited) CloseHandle(handle);
  CloseHandle(pong);
}

void BM_EventPingPong(benchmark::State& state) { EventPingPong(state, 1); }
void BM_WaitFor64PingPong(benchmark::State& state) { EventPingPong(state, MAXIMUM_WAIT_OBJECTS); }

void BM_CondVarPingPong(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable changed;
  int turn = 0;  // 0: main's turn, 1: partner's turn, 2: stop; guarded by mutex
  std::thread partner([&] {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [&] { return turn != 0; });
      if (turn == 2) return;
      turn = 0;
      changed.notify_all();
    }
  });
  for (auto _ : state) {
    std::unique_lock lock(mutex);
    turn = 1;
    changed.notify_all();
    changed.wait(lock, [&] { return turn == 0; });
  }
  {
    std::lock_guard lock(mutex);
    turn = 2;
  }
  changed.notify_all();
  partner.join();
}

BENCHMARK(BM_EventPingPong)->UseRealTime();
BENCHMARK(BM_CondVarPingPong)->UseRealTime();
BENCHMARK(BM_WaitFor64PingPong)->UseRealTime();

// ---------------------------------------------------------------------------------------------
// Uncontended operations, and how they scale with threads that share nothing

void BM_EventSetWait(benchmark::State& state) {
  HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  for (auto _ : state) {
    SetEvent(event);
    benchmark::DoNotOptimize(WaitForSingleObject(event, 0));
  }
  CloseHandle(event);
  state.SetItemsProcessed(state.iterations());
}

// The event's peer: a flag set and taken under a mutex, with a condition variable to notify.
void BM_CondVarSetWait(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable changed;
  bool signalled = false;  // guarded by mutex
  for (auto _ : state) {
    {
      std::lock_guard lock(mutex);
      signalled = true;
    }
    changed.notify_one();
    std::unique_lock lock(mutex);
    benchmark::DoNotOptimize(
        changed.wait_for(lock, std::chrono::seconds(0), [&] { return signalled; }));
    signalled = false;
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_KernelMutex(benchmark::State& state) {
  HANDLE mutex = CreateMutexW(nullptr, FALSE, nullptr);
  for (auto _ : state) {
    WaitForSingleObject(mutex, INFINITE);
    ReleaseMutex(mutex);
  }
  CloseHandle(mutex);
  state.SetItemsProcessed(state.iterations());
}

void BM_StdMutex(benchmark::State& state) {
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
  state.SetItemsProcessed(state.iterations());
}

// 1, 2, 4, ... threads, up to the hardware's.
int MaxThreads() { return std::max(1, static_cast<int>(std::thread::hardware_concurrency())); }

void ScalingThreads(benchmark::internal::Benchmark* benchmark) {
  for (int threads = 1; threads < MaxThreads(); threads *= 2) benchmark->Threads(threads);
  benchmark->Threads(MaxThreads());
}

BENCHMARK(BM_EventSetWait)->Apply(ScalingThreads)->UseRealTime();
BENCHMARK(BM_CondVarSetWait)->Apply(ScalingThreads)->UseRealTime();
BENCHMARK(BM_KernelMutex)->Apply(ScalingThreads)->UseRealTime();
BENCHMARK(BM_StdMutex)->Apply(ScalingThreads)->UseRealTime();

// ---------------------------------------------------------------------------------------------
// Ratios to the peers

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

void PrintTimeRatio(const n7bench::RatioTable& table, const std::string& ours,
                    const std::string& peer) {
  const auto our_time = table.times.find(ours);
  const auto peer_time = table.times.find(peer);
  if (our_time == table.times.end() || peer_time == table.times.end()) return;
  std::printf("%-52s %6.2f (vs %s)\n", ours.c_str(), peer_time->second / our_time->second,
              peer.c_str());
}

// Throughput on N threads over throughput on one, for ours and the peers.
void PrintScaling(const n7bench::RatioTable& table) {
  std::printf(
      "\nScaling (throughput on N threads / on 1 thread, each thread on its own objects)\n");
  for (const char* name :
       {"BM_EventSetWait", "BM_CondVarSetWait", "BM_KernelMutex", "BM_StdMutex"}) {
    const std::string prefix = std::string(name) + "/real_time/threads:";
    const double single = table.Rate(prefix + "1");
    if (single <= 0) continue;
    for (int threads = 2; threads <= MaxThreads(); threads *= 2) {
      const std::string run = prefix + std::to_string(threads);
      if (table.Rate(run) > 0) std::printf("%-52s %6.2f\n", run.c_str(), table.Rate(run) / single);
    }
    const std::string most = prefix + std::to_string(MaxThreads());
    if ((MaxThreads() & (MaxThreads() - 1)) != 0 && table.Rate(most) > 0) {
      std::printf("%-52s %6.2f\n", most.c_str(), table.Rate(most) / single);
    }
  }
}

// Prints each figure next to its peer's.
void PrintRatios(const n7bench::RatioTable& table) {
  std::printf("\nRatios (throughput: ours / peer; round trip: peer / ours; above 1 is better)\n");
  for (const auto& [name, rate] : table.rates) {
    for (const char* lock : {"CReaderPrefRWLock", "CWriterPrefRWLock", "CMutexRWLock"}) {
      const std::string peer = Replace(name, lock, "SharedMutex");
      if (peer != name && table.Rate(peer) > 0) {
        std::printf("%-52s %6.2f\n", name.c_str(), rate / table.Rate(peer));
      }
    }
  }
  PrintTimeRatio(table, "BM_EventPingPong/real_time", "BM_CondVarPingPong/real_time");
  PrintTimeRatio(table, "BM_WaitFor64PingPong/real_time", "BM_EventPingPong/real_time");
  PrintTimeRatio(table, "BM_EventSetWait/real_time/threads:1",
                 "BM_CondVarSetWait/real_time/threads:1");
  PrintTimeRatio(table, "BM_KernelMutex/real_time/threads:1", "BM_StdMutex/real_time/threads:1");
  PrintScaling(table);
}

}  // namespace

int main(int argc, char** argv) { return n7bench::RunWithRatios(argc, argv, PrintRatios); }
