// The scheduler's pending tasks, kept in two orders at once: the order they run in (due time,
// then identity) and identity order, which answers "is it pending", "remove it" and "remove all
// of one object or one context". Each task is a single node that carries its record and the links
// of both orders, so a pending task costs one node and nothing else. Nodes come from blocks kept
// until no task is pending, so a steady scheduler calls no allocator at all.
//
// The run order is a pairing heap and the identity order a splay tree. Both adjust themselves, so
// a node holds no balance data, and every operation costs O(log n) amortized; adding a task to
// the run order costs O(1). Not thread-safe: the scheduler's lock serialises every use.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "n7utility/platform/kernel/N7DateTime.h"

class ASchedulerCallback;

namespace n7utility::internal {

// One task as the scheduler holds it.
struct TaskRecord {
  ASchedulerCallback* callback;
  void* context;
  unsigned long id;
  N7OS::CN7DateTime due;
};

// What names a task: callback address, then context address (both as unsigned numbers), then id,
// in that order of significance.
struct TaskIdentity {
  std::uintptr_t callback;
  std::uintptr_t context;
  unsigned long id;
  // NOLINTNEXTLINE(modernize-use-nullptr): a false report on defaulted comparisons
  friend auto operator<=>(const TaskIdentity&, const TaskIdentity&) = default;
};

inline TaskIdentity IdentityOf(const ASchedulerCallback* callback, const void* context,
                               unsigned long id) {
  return {reinterpret_cast<std::uintptr_t>(callback), reinterpret_cast<std::uintptr_t>(context),
          id};
}

inline TaskIdentity IdentityOf(const TaskRecord& task) {
  return IdentityOf(task.callback, task.context, task.id);
}

class PendingTasks {
 public:
  PendingTasks();
  PendingTasks(const PendingTasks&) = delete;
  PendingTasks& operator=(const PendingTasks&) = delete;
  ~PendingTasks();

  bool empty() const { return m_first == nullptr; }
  // The task that runs next: the earliest due, and of those the least identity. The set must not
  // be empty.
  const TaskRecord& First() const;
  // Whether a task of this identity is pending.
  bool Contains(const TaskIdentity& identity);
  // Adds `task` in place of a pending task of the same identity; returns whether there was one.
  // Throws std::bad_alloc, with the set unchanged, when there is no memory for a new task.
  bool Insert(const TaskRecord& task);
  // Removes the task of this identity; returns whether there was one.
  bool Erase(const TaskIdentity& identity);
  // Removes the first task and returns it. The set must not be empty.
  TaskRecord PopFirst();
  // The pending task of the least identity not less than `from`, null when there is none. Valid
  // until the next call that changes the set.
  const TaskRecord* LowerBound(const TaskIdentity& from);

 private:
  struct Node;

  // Hands out nodes from blocks of growing size and keeps freed ones on a list for the next task.
  // The blocks go back to the heap together, and only when no node is in use.
  class NodePool {
   public:
    // Throws std::bad_alloc when a new block finds no memory.
    Node* Allocate();
    void Free(Node* node);
    // Frees every block; no node may be in use.
    void Release();

   private:
    std::vector<std::unique_ptr<Node[]>> m_blocks;
    Node* m_unused = nullptr;  // the rest of the newest block, never handed out yet
    Node* m_unusedEnd = nullptr;
    Node* m_freed = nullptr;  // linked through `next`
  };

  // Identity order.
  static Node* RotateRight(Node* node);
  static Node* RotateLeft(Node* node);
  static Node* Splay(Node* root, const TaskIdentity& key);
  Node* Find(const TaskIdentity& key);
  void LinkByIdentity(Node* node);
  void UnlinkIdentityRoot();
  // Run order.
  static Node* Meld(Node* first, Node* second);
  static Node* MeldSiblings(Node* first);
  void UnlinkFromRunOrder(Node* node);

  NodePool m_pool;
  Node* m_first = nullptr;       // root of the run order
  Node* m_byIdentity = nullptr;  // root of the identity order
};

}  // namespace n7utility::internal
