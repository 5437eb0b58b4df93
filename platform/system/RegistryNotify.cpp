// Registry change notification: one notifier thread per process, started by the first
// registration and blocked in poll() on an inotify instance and an eventfd.
//
// Writers in any process read their store's companion file after each commit; the notifier
// watches those files for that (IN_ACCESS, and IN_ATTRIB for a writer that touches the file
// instead), and local writers also wake it through the eventfd, so that notification still works
// where inotify is unavailable. The files are watched rather than their directories: reads of the
// database files beside them, the notifier's own among them, would wake it for nothing. Woken, it
// reads each watched store's change log from the oldest entry a registration has not seen and
// signals the registrations the new entries concern. A change log read misses nothing: the log is
// in the database, written in the same transaction as the change, and touched only once committed.
//
// Lock order: the notifier's section, then the kernel lock (SetEvent). The section is never held
// while a store is used.

#include "n7utility/platform/system/RegistryNotify_internal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryStore_internal.h"

namespace n7platform::internal {
namespace {

bool StartsWithKey(const std::string& path, const std::string& ancestor) {
  return path.size() > ancestor.size() && path[ancestor.size()] == '\\' &&
         path.compare(0, ancestor.size(), ancestor) == 0;
}

// Whether the logged `change` concerns `registration`.
bool Concerns(const Change& change, const Registration& registration) {
  const bool same_key = change.path == registration.path;
  const bool watcher_below = StartsWithKey(registration.path, change.path);
  if ((change.kinds & kChangeKeyDeleted) != 0 && (same_key || watcher_below)) return true;
  if ((change.kinds & kChangeSubtreeReplaced) != 0 && watcher_below) return true;
  if ((change.kinds & registration.filter) == 0) return false;
  return same_key || (registration.subtree && StartsWithKey(change.path, registration.path));
}

class Notifier {
 public:
  Notifier()
      : inotify_fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)),
        wake_fd_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;

  DWORD Add(Registration registration) EXCLUDES(section_) {
    {
      ServiceGuard lock(section_);
      if (DWORD error = Start()) return error;
      Watch(registration.store->announce_path());
    }
    // The log's end is read after the file is watched, so a change committed later wakes
    // the notifier; one committed before the registration is listed is found by the Wake below.
    if (DWORD error = registration.store->LastChange(&registration.after)) return error;
    {
      ServiceGuard lock(section_);
      registrations_.push_back(std::move(registration));
      any_.store(true, std::memory_order_relaxed);
    }
    Wake();
    return ERROR_SUCCESS;
  }

  // Signals and ends the registrations `which` selects.
  template <typename Predicate>
  void End(Predicate which) EXCLUDES(section_) {
    ServiceGuard lock(section_);
    std::erase_if(registrations_, [&which](const Registration& registration) {
      if (!which(registration)) return false;
      SetEvent(registration.event);
      return true;
    });
    any_.store(!registrations_.empty(), std::memory_order_relaxed);
  }

  void Wake() {
    if (!any_.load(std::memory_order_relaxed)) return;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(wake_fd_, &one, sizeof one);
  }

 private:
  DWORD Start() REQUIRES(section_) {
    if (started_) return ERROR_SUCCESS;
    if (wake_fd_ < 0) return ERROR_NOT_ENOUGH_MEMORY;
    std::thread([this] { Run(); }).detach();
    started_ = true;
    return ERROR_SUCCESS;
  }

  // Without inotify, changes by other processes go unseen; local ones still wake the notifier.
  // Watching a file already watched changes nothing; a file made anew under the same name is
  // another inode, watched from then on.
  void Watch(const std::string& file) {
    if (inotify_fd_ >= 0) inotify_add_watch(inotify_fd_, file.c_str(), IN_ACCESS | IN_ATTRIB);
  }

  void Run() {
    for (;;) {
      pollfd fds[] = {{wake_fd_, POLLIN, 0}, {inotify_fd_, POLLIN, 0}};
      if (poll(fds, inotify_fd_ >= 0 ? 2 : 1, -1) < 0) {
        if (errno == EINTR || errno == ENOMEM) continue;
        return;
      }
      Drain();
      Scan();
    }
  }

  // Empties both descriptors.
  void Drain() {
    std::uint64_t count;
    [[maybe_unused]] const ssize_t read_count = read(wake_fd_, &count, sizeof count);
    if (inotify_fd_ < 0) return;
    alignas(inotify_event) char buffer[4096];
    while (read(inotify_fd_, buffer, sizeof buffer) > 0) {
    }
  }

  // The stores with registrations, each with the oldest log entry one of them has seen.
  std::map<std::shared_ptr<HiveStore>, std::int64_t> Pending() EXCLUDES(section_) {
    ServiceGuard lock(section_);
    std::map<std::shared_ptr<HiveStore>, std::int64_t> pending;
    for (const Registration& registration : registrations_) {
      auto [entry, added] = pending.emplace(registration.store, registration.after);
      if (!added) entry->second = std::min(entry->second, registration.after);
    }
    return pending;
  }

  void Scan() EXCLUDES(section_) {
    for (const auto& [store, after] : Pending()) {
      std::vector<Change> changes;
      if (store->ChangesAfter(after, &changes) != ERROR_SUCCESS || changes.empty()) continue;
      // Entries missing at the front were cut from the log: anything may have changed.
      const bool lost = changes.front().seq != after + 1;
      Deliver(store.get(), changes, lost);
    }
  }

  void Deliver(const HiveStore* store, const std::vector<Change>& changes, bool lost)
      EXCLUDES(section_) {
    const std::int64_t last = changes.back().seq;
    End([&](const Registration& registration) {
      if (registration.store.get() != store) return false;
      return lost || std::any_of(changes.begin(), changes.end(), [&](const Change& change) {
               return change.seq > registration.after && Concerns(change, registration);
             });
    });
    ServiceGuard lock(section_);
    for (Registration& registration : registrations_) {
      if (registration.store.get() == store)
        registration.after = std::max(registration.after, last);
    }
  }

  ServiceMutex section_;
  std::vector<Registration> registrations_ GUARDED_BY(section_);
  bool started_ GUARDED_BY(section_) = false;
  std::atomic<bool> any_{false};  // whether there are registrations, read without the section
  const int inotify_fd_;
  const int wake_fd_;
};

Notifier& TheNotifier() {
  static NoDestructor<Notifier> notifier;
  return *notifier;
}

}  // namespace

void WakeRegistryNotifier() { TheNotifier().Wake(); }

DWORD AddRegistration(Registration registration) {
  return TheNotifier().Add(std::move(registration));
}

void EndRegistrations(std::uintptr_t owner) {
  TheNotifier().End(
      [owner](const Registration& registration) { return registration.owner == owner; });
}

void EndAllRegistrations() {
  TheNotifier().End([](const Registration& /*registration*/) { return true; });
}

}  // namespace n7platform::internal
