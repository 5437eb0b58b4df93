// n7util demo, the thread pool: units of work handed to two pooled workers, one of which fails.

#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/ThreadPool.h"

namespace n7util {
namespace {

constexpr unsigned long kPoolTimeoutMs = 10000;

// A pooled worker that adds the square of its input to a shared total; a negative input throws.
class SquaringWorker final : public APooledWorkerThread {
 public:
  SquaringWorker(CThreadPool& pool, char name, std::atomic<int>& total, std::atomic<int>& failures)
      : APooledWorkerThread(pool), name_(name), total_(total), failures_(failures) {}

  char name() const { return name_; }
  // Set before Continue(), which hands it over to the worker's thread.
  void set_input(int input) { input_ = input; }

 protected:
  unsigned int OnWork() override {
    if (input_ < 0) throw std::domain_error("no square of a negative input here");
    total_ += input_ * input_;
    return 0;
  }
  void OnException(CException* exception) override {
    ++failures_;
    APooledWorkerThread::OnException(exception);
  }

 private:
  const char name_;
  std::atomic<int> input_ = 0;
  std::atomic<int>& total_;
  std::atomic<int>& failures_;
};

// Selects every worker, so that all are known to be idle, and puts them back.
bool await_idle_workers(CThreadPool& pool, int count) {
  std::vector<APooledThread*> idle;
  for (int i = 0; i < count; ++i) {
    APooledThread* thread = pool.SelectThread(kPoolTimeoutMs);
    if (thread == nullptr) break;
    idle.push_back(thread);
  }
  for (APooledThread* thread : idle) pool.ReleaseThread(thread);
  if (idle.size() == static_cast<std::size_t>(count)) return true;
  print_error("thread pool: only " + std::to_string(idle.size()) + " of " + std::to_string(count) +
              " workers went idle");
  return false;
}

}  // namespace

bool pool_step(std::ostream& out) {
  constexpr int kInputs[] = {1, 2, -3, 4, 5};
  std::atomic<int> total = 0;
  std::atomic<int> failures = 0;
  CThreadPool pool;
  for (char name : {'A', 'B'}) (new SquaringWorker(pool, name, total, failures))->Start();
  if (!await_idle_workers(pool, 2)) return false;
  out << "  two workers started and idle; the most recently idle one is selected first\n";
  for (int input : kInputs) {
    auto* worker = static_cast<SquaringWorker*>(pool.SelectThread(kPoolTimeoutMs));
    if (worker == nullptr) {
      print_error("thread pool: no worker became idle");
      return false;
    }
    out << "  input " << input << " -> worker " << worker->name() << std::endl;
    worker->set_input(input);
    worker->Continue();
  }
  if (!await_idle_workers(pool, 2)) return false;
  pool.Shutdown(kPoolTimeoutMs);
  out << "  sum of squares " << total << ", " << failures
      << " unit(s) failed and went to OnException; " << pool.QueryNumThreads()
      << " thread(s) left after Shutdown\n";
  if (total != 46 || failures != 1 || pool.QueryNumThreads() != 0) {
    print_error("thread pool: expected the sum 46, one failure and no thread left");
    return false;
  }
  return true;
}

// ---- Event log ----

}  // namespace n7util
