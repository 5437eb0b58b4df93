// The pending tasks' two orders over one node per task.
//
// Run order, a pairing heap: every node's record runs before those of its children; a node keeps
// its first child, its next sibling and its previous sibling (for a first child: its parent),
// which is what cutting an arbitrary node out takes. Identity order, a splay tree searched top
// down: every search moves the node it ends on to the root, so a lookup followed by a change of
// the same task finds it at the root.

#include "n7utility/Utility/PendingTasks_internal.h"

#include <compare>
#include <utility>

namespace n7utility::internal {

struct PendingTasks::Node {
  TaskRecord task;
  Node* child = nullptr;
  Node* next = nullptr;
  Node* prev = nullptr;
  Node* left = nullptr;
  Node* right = nullptr;
};

namespace {

constexpr std::size_t kFirstBlockNodes = 8;
constexpr std::size_t kBlockDoublings = 5;  // up to blocks of 256 nodes

// Run order: due time, then identity. Two pending tasks never tie.
bool RunsBefore(const TaskRecord& a, const TaskRecord& b) {
  if (a.due != b.due) return a.due < b.due;
  return IdentityOf(a) < IdentityOf(b);
}

}  // namespace

PendingTasks::PendingTasks() = default;
PendingTasks::~PendingTasks() = default;

const TaskRecord& PendingTasks::First() const { return m_first->task; }

bool PendingTasks::Contains(const TaskIdentity& identity) { return Find(identity) != nullptr; }

bool PendingTasks::Insert(const TaskRecord& task) {
  if (Node* pending = Find(IdentityOf(task)); pending != nullptr) {
    if (pending->task.due != task.due) {
      UnlinkFromRunOrder(pending);
      pending->task = task;
      m_first = Meld(m_first, pending);
    }
    return true;
  }
  Node* node = m_pool.Allocate();
  *node = Node{.task = task};
  LinkByIdentity(node);
  m_first = Meld(m_first, node);
  return false;
}

bool PendingTasks::Erase(const TaskIdentity& identity) {
  Node* node = Find(identity);
  if (node == nullptr) return false;
  UnlinkFromRunOrder(node);
  UnlinkIdentityRoot();
  m_pool.Free(node);
  if (empty()) m_pool.Release();  // an idle scheduler holds no memory
  return true;
}

TaskRecord PendingTasks::PopFirst() {
  const TaskRecord task = m_first->task;
  Erase(IdentityOf(task));
  return task;
}

const TaskRecord* PendingTasks::LowerBound(const TaskIdentity& from) {
  m_byIdentity = Splay(m_byIdentity, from);
  Node* node = m_byIdentity;
  // The search ends next to `from`: on it, just above it, or just below it.
  if (node != nullptr && IdentityOf(node->task) < from) {
    node = node->right;
    while (node != nullptr && node->left != nullptr) node = node->left;
  }
  return node != nullptr ? &node->task : nullptr;
}

PendingTasks::Node* PendingTasks::RotateRight(Node* node) {
  Node* top = node->left;
  node->left = top->right;
  top->right = node;
  return top;
}

PendingTasks::Node* PendingTasks::RotateLeft(Node* node) {
  Node* top = node->right;
  node->right = top->left;
  top->left = node;
  return top;
}

// Top-down splay: the search for `key` moves the nodes it passes into a tree of smaller and a tree
// of larger nodes, rotating at every second step so that long paths halve, and ends with the
// node it stopped on as the root over both. That node is the one of `key` when there is one.
PendingTasks::Node* PendingTasks::Splay(Node* root, const TaskIdentity& key) {
  if (root == nullptr) return nullptr;
  Node* smaller = nullptr;
  Node* larger = nullptr;
  Node** smaller_max = &smaller;  // the empty link at the right of the smaller tree
  Node** larger_min = &larger;    // the empty link at the left of the larger tree
  Node* node = root;
  for (;;) {
    const auto order = key <=> IdentityOf(node->task);
    if (std::is_lt(order)) {
      if (node->left == nullptr) break;
      if (key < IdentityOf(node->left->task)) {
        node = RotateRight(node);
        if (node->left == nullptr) break;
      }
      *larger_min = node;
      larger_min = &node->left;
      node = node->left;
    } else if (std::is_gt(order)) {
      if (node->right == nullptr) break;
      if (IdentityOf(node->right->task) < key) {
        node = RotateLeft(node);
        if (node->right == nullptr) break;
      }
      *smaller_max = node;
      smaller_max = &node->right;
      node = node->right;
    } else {
      break;
    }
  }
  *smaller_max = node->left;
  *larger_min = node->right;
  node->left = smaller;
  node->right = larger;
  return node;
}

PendingTasks::Node* PendingTasks::Find(const TaskIdentity& key) {
  m_byIdentity = Splay(m_byIdentity, key);
  if (m_byIdentity == nullptr || IdentityOf(m_byIdentity->task) != key) return nullptr;
  return m_byIdentity;
}

// Makes `node`, whose identity the last search looked for in vain, the root.
void PendingTasks::LinkByIdentity(Node* node) {
  Node* root = m_byIdentity;
  m_byIdentity = node;
  if (root == nullptr) return;
  if (IdentityOf(node->task) < IdentityOf(root->task)) {
    node->left = std::exchange(root->left, nullptr);
    node->right = root;
  } else {
    node->right = std::exchange(root->right, nullptr);
    node->left = root;
  }
}

void PendingTasks::UnlinkIdentityRoot() {
  Node* root = m_byIdentity;
  if (root->left == nullptr) {
    m_byIdentity = root->right;
    return;
  }
  // The largest of the smaller nodes comes up with no right child, where the larger ones go.
  m_byIdentity = Splay(root->left, IdentityOf(root->task));
  m_byIdentity->right = root->right;
}

// Joins two heaps, each given by its root (or null): the root that runs later becomes the first
// child of the other.
PendingTasks::Node* PendingTasks::Meld(Node* first, Node* second) {
  if (first == nullptr) return second;
  if (second == nullptr) return first;
  if (RunsBefore(second->task, first->task)) std::swap(first, second);
  second->prev = first;
  second->next = first->child;
  if (first->child != nullptr) first->child->prev = second;
  first->child = second;
  return first;
}

// Joins a list of sibling heaps into one, in two passes: neighbours in pairs from the left, then
// the pairs from the right. This is what keeps taking the first task O(log n) amortized.
PendingTasks::Node* PendingTasks::MeldSiblings(Node* first) {
  Node* pairs = nullptr;  // the melded pairs, last one first, linked through `next`
  while (first != nullptr) {
    Node* one = first;
    Node* other = one->next;
    first = other != nullptr ? other->next : nullptr;
    one->next = one->prev = nullptr;
    if (other != nullptr) other->next = other->prev = nullptr;
    Node* pair = Meld(one, other);
    pair->next = pairs;
    pairs = pair;
  }
  Node* root = nullptr;
  while (pairs != nullptr) {
    Node* pair = std::exchange(pairs, pairs->next);
    pair->next = nullptr;
    root = Meld(root, pair);
  }
  return root;
}

// Takes `node` out of the run order: its children, melded, take its place.
void PendingTasks::UnlinkFromRunOrder(Node* node) {
  Node* children = MeldSiblings(std::exchange(node->child, nullptr));
  if (node == m_first) {
    m_first = children;
    return;
  }
  if (node->prev->child == node) {
    node->prev->child = node->next;
  } else {
    node->prev->next = node->next;
  }
  if (node->next != nullptr) node->next->prev = node->prev;
  node->next = node->prev = nullptr;
  m_first = Meld(m_first, children);
}

// Blocks hold 8 nodes at first, twice as many each time, at most 256: a small set holds little
// memory, a large one makes few allocations and leaves at most the end of one block unused.
PendingTasks::Node* PendingTasks::NodePool::Allocate() {
  if (m_freed != nullptr) return std::exchange(m_freed, m_freed->next);
  if (m_unused == m_unusedEnd) {
    const std::size_t count = m_blocks.size() < kBlockDoublings
                                  ? kFirstBlockNodes << m_blocks.size()
                                  : kFirstBlockNodes << kBlockDoublings;
    m_blocks.push_back(std::make_unique<Node[]>(count));
    m_unused = m_blocks.back().get();
    m_unusedEnd = m_unused + count;
  }
  return m_unused++;
}

void PendingTasks::NodePool::Free(Node* node) { node->next = std::exchange(m_freed, node); }

void PendingTasks::NodePool::Release() {
  m_blocks.clear();
  m_unused = m_unusedEnd = m_freed = nullptr;
}

}  // namespace n7utility::internal
