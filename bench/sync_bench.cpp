// Synchronisation objects against their standard-library peers, in one run.
//
// - RW/<lock>/<write every>/threads:N: acquisitions per second of each reader/writer lock and of
//   std::shared_mutex, with one write in 10 (90/10) or in 2 (50/50) operations, on 2 and 4
//   threads.
// - EventPingPong: round trip of SetEvent / WaitForSingleObject between two threads, against
//   the same ping-pong over std::mutex + std::condition_variable.
// - WaitFor64PingPong: the same round trip where the woken thread waits for any of 64 handles
//   (the signalled one last): the cost of one wake-up of a 64-handle wait, against EventPingPong.
// At the end a table gives each figure as a ratio to its peer.

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "Utility/ReadWriteLock.h"
#include "bench/ratio_reporter.h"
#include "platform/KernelObjects.h"

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
}

}  // namespace

int main(int argc, char** argv) { return n7bench::RunWithRatios(argc, argv, PrintRatios); }
