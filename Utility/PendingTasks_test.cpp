// Tests of the scheduler's pending set on its own, with made-up callback and context addresses
// that the set never dereferences.

#include "n7utility/Utility/PendingTasks_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <numeric>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using N7OS::CN7DateTime;
using n7utility::internal::IdentityOf;
using n7utility::internal::PendingTasks;
using n7utility::internal::TaskIdentity;
using n7utility::internal::TaskRecord;

TaskRecord Task(std::uintptr_t callback, std::uintptr_t context, unsigned long id,
                std::int64_t due) {
  // NOLINTBEGIN(performance-no-int-to-ptr): addresses that are compared, never dereferenced
  return {reinterpret_cast<ASchedulerCallback*>(callback), reinterpret_cast<void*>(context), id,
          CN7DateTime(due)};
  // NOLINTEND(performance-no-int-to-ptr)
}

using Key = std::tuple<std::uintptr_t, std::uintptr_t, unsigned long, std::int64_t>;

Key KeyOf(const TaskRecord& task) {
  const TaskIdentity identity = IdentityOf(task);
  return {identity.callback, identity.context, identity.id, task.due.seconds()};
}

std::vector<Key> PopAll(PendingTasks& tasks) {
  std::vector<Key> popped;
  while (!tasks.empty()) popped.push_back(KeyOf(tasks.PopFirst()));
  return popped;
}

constexpr std::uintptr_t kHigh = ~std::uintptr_t{0} - 15;  // negative as a signed number

TEST(PendingTasksTest, RunsByDueTimeThenCallbackContextAndIdAsUnsignedNumbers) {
  PendingTasks tasks;
  const std::vector<TaskRecord> in_order = {
      Task(kHigh, 0, 0, -1),  // invalid: before every valid time
      Task(0x10, 0x20, 1, 100), Task(0x10, 0x20, 2, 100),  Task(0x10, kHigh, 0, 100),
      Task(0x20, 0x10, 0, 100), Task(kHigh, 0x10, 0, 100), Task(0x10, 0x10, 0, 101),
  };
  std::vector<TaskRecord> scrambled = in_order;
  std::mt19937 random(7);
  std::shuffle(scrambled.begin(), scrambled.end(), random);
  for (const TaskRecord& task : scrambled) EXPECT_FALSE(tasks.Insert(task));

  std::vector<Key> expected;
  expected.reserve(in_order.size());
  for (const TaskRecord& task : in_order) expected.push_back(KeyOf(task));
  EXPECT_EQ(PopAll(tasks), expected);
}

TEST(PendingTasksTest, LowerBoundFindsTheNextIdentityWhereverTheSearchEnds) {
  PendingTasks tasks;
  std::vector<unsigned long> ids(298);
  std::iota(ids.begin(), ids.end(), 0ul);
  std::mt19937 random(11);
  std::shuffle(ids.begin(), ids.end(), random);
  for (unsigned long id : ids) {
    if (id % 3 == 0) tasks.Insert(Task(1, 1, id, static_cast<std::int64_t>(id % 7)));
  }
  std::shuffle(ids.begin(), ids.end(), random);
  for (unsigned long id : ids) {
    const TaskRecord* found = tasks.LowerBound({1, 1, id});
    ASSERT_NE(found, nullptr) << id;
    EXPECT_EQ(found->id, (id + 2) / 3 * 3) << id;
  }
  EXPECT_EQ(tasks.LowerBound({1, 1, 298}), nullptr);
}

// The reference: the same tasks in two standard ordered containers.
class Model {
 public:
  bool Insert(const TaskRecord& task) {
    const bool replaced = Erase(IdentityOf(task));
    due_[IdentityOf(task)] = task.due;
    run_order_.emplace(task.due, IdentityOf(task));
    return replaced;
  }
  bool Erase(const TaskIdentity& identity) {
    const auto found = due_.find(identity);
    if (found == due_.end()) return false;
    run_order_.erase({found->second, identity});
    due_.erase(found);
    return true;
  }
  bool empty() const { return due_.empty(); }
  std::pair<CN7DateTime, TaskIdentity> First() const { return *run_order_.begin(); }
  const std::map<TaskIdentity, CN7DateTime>& ByIdentity() const { return due_; }

 private:
  std::map<TaskIdentity, CN7DateTime> due_;
  std::set<std::pair<CN7DateTime, TaskIdentity>> run_order_;
};

// Few identities and few due times, so that replacements and ties are common; pops often enough
// to exercise the heap's restructuring, and erasures anywhere in both orders.
TEST(PendingTasksTest, RandomOperationsAgreeWithOrderedContainers) {
  PendingTasks tasks;
  Model model;
  std::mt19937 random(2024);
  const auto pick = [&random](int below) {
    return std::uniform_int_distribution(0, below - 1)(random);
  };
  const auto identity = [&] {
    return TaskIdentity{static_cast<std::uintptr_t>(pick(3)) * 0x40 + 0x40,
                        static_cast<std::uintptr_t>(pick(4)), static_cast<unsigned long>(pick(40))};
  };
  for (int step = 0; step < 50'000; ++step) {
    const int action = pick(10);
    const TaskIdentity some = identity();
    if (action < 5) {
      const TaskRecord task = Task(some.callback, some.context, some.id, pick(30));
      ASSERT_EQ(tasks.Insert(task), model.Insert(task)) << step;
    } else if (action < 8) {
      ASSERT_EQ(tasks.Erase(some), model.Erase(some)) << step;
    } else if (action < 9) {
      ASSERT_EQ(tasks.Contains(some), model.ByIdentity().contains(some)) << step;
      const auto next = model.ByIdentity().lower_bound(some);
      const TaskRecord* found = tasks.LowerBound(some);
      ASSERT_EQ(found == nullptr, next == model.ByIdentity().end()) << step;
      if (found != nullptr) {
        ASSERT_EQ(IdentityOf(*found), next->first) << step;
      }
    } else if (!model.empty()) {
      const TaskRecord popped = tasks.PopFirst();
      ASSERT_EQ(std::make_pair(popped.due, IdentityOf(popped)), model.First()) << step;
      model.Erase(IdentityOf(popped));
    }
    ASSERT_EQ(tasks.empty(), model.empty()) << step;
    if (!model.empty()) {
      ASSERT_EQ(std::make_pair(tasks.First().due, IdentityOf(tasks.First())), model.First())
          << step;
    }
  }
}

}  // namespace
