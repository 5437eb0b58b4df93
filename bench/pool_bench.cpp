// The thread pool against a std::mutex + std::condition_variable work queue, in one run.
//
// - PoolRoundTrip/N: one unit of work handed out and done on a pool of N workers:
//   SelectThread, Continue, the worker's OnWork, and the worker back on the idle list.
// - CondVarQueueRoundTrip/N: the same unit pushed to a queue served by N std::threads, with at most
//   N units in flight, so that the producer waits for a free worker as SelectThread does.
// At the end the pool's throughput is given as a ratio to the queue's for each N.

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bench/ratio_reporter.h"
#include "n7utility/Utility/ThreadPool.h"

namespace {

std::atomic<unsigned long> g_work_done = 0;

// The unit of work: as little as possible, so that the figures are the hand-over's cost.
void DoUnit() { g_work_done.fetch_add(1, std::memory_order_relaxed); }

class BenchWorker : public APooledWorkerThread {
 public:
  explicit BenchWorker(CThreadPool& pool) : APooledWorkerThread(pool) {}

 protected:
  unsigned int OnWork() override {
    DoUnit();
    return 0;
  }
};

// Blocks until all `count` workers of `pool` are idle, and leaves them so.
void AwaitAllIdle(CThreadPool& pool, int count) {
  std::vector<APooledThread*> idle;
  idle.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) idle.push_back(pool.SelectThread(INFINITE));
  for (APooledThread* thread : idle) pool.ReleaseThread(thread);
}

void BM_PoolRoundTrip(benchmark::State& state) {
  const auto workers = static_cast<int>(state.range(0));
  CThreadPool pool;
  for (int i = 0; i < workers; ++i) (new BenchWorker(pool))->Start();
  AwaitAllIdle(pool, workers);
  for (auto _ : state) {
    auto* worker = static_cast<APooledWorkerThread*>(pool.SelectThread(INFINITE));
    worker->Continue();
  }
  AwaitAllIdle(pool, workers);
  state.SetItemsProcessed(state.iterations());
  pool.Shutdown(INFINITE);
}

// A fixed set of std::threads serving a queue of units, with at most one unit per thread in
// flight.
class CondVarQueue {
 public:
  explicit CondVarQueue(int threads) : capacity_(threads) {
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { Serve(); });
  }
  ~CondVarQueue() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    work_ready_.notify_all();
    for (auto& thread : threads_) thread.join();
  }
  CondVarQueue(const CondVarQueue&) = delete;
  CondVarQueue& operator=(const CondVarQueue&) = delete;

  void Submit() {
    std::unique_lock lock(mutex_);
    worker_free_.wait(lock, [this] { return in_flight_ < capacity_; });
    ++in_flight_;
    queue_.push_back(DoUnit);
    lock.unlock();
    work_ready_.notify_one();
  }

  void AwaitIdle() {
    std::unique_lock lock(mutex_);
    worker_free_.wait(lock, [this] { return in_flight_ == 0; });
  }

 private:
  void Serve() {
    std::unique_lock lock(mutex_);
    for (;;) {
      work_ready_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
      if (queue_.empty()) return;
      void (*unit)() = queue_.front();
      queue_.pop_front();
      lock.unlock();
      unit();
      lock.lock();
      --in_flight_;
      worker_free_.notify_all();
    }
  }

  const int capacity_;
  std::mutex mutex_;
  std::condition_variable work_ready_;
  std::condition_variable worker_free_;
  std::deque<void (*)()> queue_;
  int in_flight_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

void BM_CondVarQueueRoundTrip(benchmark::State& state) {
  CondVarQueue queue(static_cast<int>(state.range(0)));
  for (auto _ : state) queue.Submit();
  queue.AwaitIdle();
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_PoolRoundTrip)->Arg(1)->Arg(2)->Arg(8)->UseRealTime();
BENCHMARK(BM_CondVarQueueRoundTrip)->Arg(1)->Arg(2)->Arg(8)->UseRealTime();

// Prints the pool's throughput over the queue's for each number of workers.
void PrintRatios(const n7bench::RatioTable& table) {
  std::printf("\nRound trips per second, pool / condition-variable queue (above 1: pool faster)\n");
  for (const char* workers : {"1", "2", "8"}) {
    const std::string suffix = std::string("/") + workers + "/real_time";
    const double pool = table.Rate("BM_PoolRoundTrip" + suffix);
    const double queue = table.Rate("BM_CondVarQueueRoundTrip" + suffix);
    if (queue > 0) std::printf("%s worker(s): %6.2f\n", workers, pool / queue);
  }
}

}  // namespace

int main(int argc, char** argv) { return n7bench::RunWithRatios(argc, argv, PrintRatios); }
