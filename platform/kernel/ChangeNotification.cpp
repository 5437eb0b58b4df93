// Directory change notifications: kernel objects signalled by inotify.
//
// The whole process shares one inotify instance (instances are a scarce per-user resource) and
// one watcher thread of the platform layer, blocked in poll() on it. When events arrive the
// watcher reads them and signals the change notifications they concern.
//
// No change is lost between a wake-up and the re-arm: a notification counts the batches of
// changes delivered to it and remembers the count when a wait takes it. Re-arming first reads
// the pending events itself (whatever the watcher thread is doing), then resets the object only
// if no change came after the last wait took it; otherwise it stays signalled, and the next wait
// is satisfied at once, as the client has not seen that change yet.
//
// Lock order: the watcher's section, then a notification's own lock. A change notification is
// destroyed outside its lock (CloseHandle and the waits release their references after it), and
// its destructor takes the section to end its watch.

#include "n7utility/platform/kernel/ChangeNotification.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <vector>

#include "n7utility/platform/base/NoDestructor.h"
#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/kernel/KernelObjects_internal.h"

namespace n7platform::internal {
namespace {

constexpr std::uint32_t kNameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr DWORD kKnownFilters = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME |
                                FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SIZE |
                                FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_LAST_ACCESS |
                                FILE_NOTIFY_CHANGE_CREATION | FILE_NOTIFY_CHANGE_SECURITY;

// The inotify events that a FILE_NOTIFY_CHANGE_* filter counts as changes.
struct Interest {
  bool file_names = false;
  bool directory_names = false;
  std::uint32_t other_events = 0;  // counted whatever they name

  static Interest Of(DWORD filter) {
    Interest interest;
    interest.file_names = (filter & FILE_NOTIFY_CHANGE_FILE_NAME) != 0;
    interest.directory_names = (filter & FILE_NOTIFY_CHANGE_DIR_NAME) != 0;
    if ((filter & (FILE_NOTIFY_CHANGE_ATTRIBUTES | FILE_NOTIFY_CHANGE_SECURITY |
                   FILE_NOTIFY_CHANGE_CREATION)) != 0) {
      interest.other_events |= IN_ATTRIB;
    }
    if ((filter & (FILE_NOTIFY_CHANGE_SIZE | FILE_NOTIFY_CHANGE_LAST_WRITE)) != 0) {
      interest.other_events |= IN_MODIFY;
    }
    if ((filter & FILE_NOTIFY_CHANGE_LAST_ACCESS) != 0) interest.other_events |= IN_ACCESS;
    return interest;
  }

  std::uint32_t WatchMask() const {
    return other_events | (file_names || directory_names ? kNameEvents : 0);
  }

  // A lost queue or a vanished directory counts for everyone: the client has to look.
  bool Matches(std::uint32_t mask) const {
    if ((mask & (IN_IGNORED | IN_Q_OVERFLOW)) != 0) return true;
    if ((mask & kNameEvents) != 0) return (mask & IN_ISDIR) != 0 ? directory_names : file_names;
    return (mask & other_events) != 0;
  }
};

class ChangeNotification final : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kChangeNotification;

  explicit ChangeNotification(Interest interest) : KernelObject(kKind), interest_(interest) {}
  ~ChangeNotification() override;

  bool IsSignalledFor(DWORD /*thread*/) const override REQUIRES(lock_) { return signalled_; }
  // A wait that takes the object has seen every change so far.
  bool Acquire(const WaitingThread& /*thread*/) override REQUIRES(lock_) {
    seen_ = changes_;
    return false;
  }

  void Signal() {
    ObjectGuard guard(lock_);
    ++changes_;
    if (signalled_) return;
    signalled_ = true;
    SatisfyWaiters();
  }
  void Rearm() {
    ObjectGuard guard(lock_);
    if (changes_ == seen_) signalled_ = false;
  }

  const Interest& interest() const { return interest_; }
  // Set once, by the watcher, before the object is reachable by a handle.
  void set_watch(int watch) { watch_ = watch; }

 private:
  const Interest interest_;
  int watch_ = -1;
  bool signalled_ GUARDED_BY(lock_) = false;
  std::uint64_t changes_ GUARDED_BY(lock_) = 0;  // batches of changes delivered
  std::uint64_t seen_ GUARDED_BY(lock_) = 0;     // changes_ when a wait last took the object
};

using Notifications = std::vector<std::shared_ptr<ChangeNotification>>;

class Watcher {
 public:
  Watcher();
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  // Watches `path` for `notification`; ERROR_SUCCESS or the error to report.
  DWORD Watch(const std::string& path, const std::shared_ptr<ChangeNotification>& notification);
  void Unwatch(int watch, const ChangeNotification* notification);
  // Signals the notifications that the pending events concern, then re-arms `rearm` (if any).
  void Deliver(ChangeNotification* rearm);

 private:
  struct Entry {
    const ChangeNotification* object;
    std::weak_ptr<ChangeNotification> reference;
  };

  void Run();
  Notifications ReadChanges() REQUIRES(section_);
  void Collect(std::uint32_t mask, int watch, Notifications& changed) REQUIRES(section_);

  ServiceMutex section_;  // serialises reading the instance and changing the watches
  const int fd_;
  bool running_ = false;  // set by the constructor only
  std::unordered_map<int, std::vector<Entry>> watches_ GUARDED_BY(section_);
};

Watcher& TheWatcher() {
  static NoDestructor<Watcher> watcher;
  return *watcher;
}

ChangeNotification::~ChangeNotification() {
  if (watch_ >= 0) TheWatcher().Unwatch(watch_, this);
}

Watcher::Watcher() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (fd_ < 0) return;
  try {
    std::thread([this] { Run(); }).detach();
    running_ = true;
  } catch (const std::system_error&) {
    // Without its thread the watcher refuses every watch.
  }
}

DWORD ErrorOfWatch(int error) {
  switch (error) {
    case ENOTDIR:
      return ERROR_DIRECTORY;
    case EACCES:
      return ERROR_ACCESS_DENIED;
    case ENOMEM:
    case ENOSPC:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ERROR_PATH_NOT_FOUND;
  }
}

DWORD Watcher::Watch(const std::string& path,
                     const std::shared_ptr<ChangeNotification>& notification) {
  if (!running_) return ERROR_NOT_ENOUGH_MEMORY;
  ServiceGuard lock(section_);
  // A directory watched twice has one watch; its mask is the union of what each asks for.
  const int watch = inotify_add_watch(
      fd_, path.c_str(), notification->interest().WatchMask() | IN_MASK_ADD | IN_ONLYDIR);
  if (watch < 0) return ErrorOfWatch(errno);
  watches_[watch].push_back(Entry{notification.get(), notification});
  notification->set_watch(watch);
  return ERROR_SUCCESS;
}

void Watcher::Unwatch(int watch, const ChangeNotification* notification) {
  ServiceGuard lock(section_);
  const auto found = watches_.find(watch);
  if (found == watches_.end()) return;
  auto& entries = found->second;
  std::erase_if(entries, [&](const Entry& entry) { return entry.object == notification; });
  if (!entries.empty()) return;
  watches_.erase(found);
  inotify_rm_watch(fd_, watch);  // fails harmlessly when the directory is gone
}

void Watcher::Deliver(ChangeNotification* rearm) {
  Notifications changed;  // released last: a notification's destructor takes the section
  ServiceGuard lock(section_);
  changed = ReadChanges();
  // One batch read is one change for each notification it concerns, however many events.
  std::sort(changed.begin(), changed.end());
  changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
  for (const auto& notification : changed) notification->Signal();
  if (rearm != nullptr) rearm->Rearm();
  UnparkPending();
}

Notifications Watcher::ReadChanges() {
  Notifications changed;
  alignas(inotify_event) char buffer[16 * 1024];
  for (;;) {
    const ssize_t length = read(fd_, buffer, sizeof buffer);
    if (length <= 0) return changed;  // EAGAIN: nothing more pending
    for (std::size_t offset = 0;
         offset + sizeof(inotify_event) <= static_cast<std::size_t>(length);) {
      inotify_event event{};
      std::memcpy(&event, buffer + offset, sizeof event);
      Collect(event.mask, event.wd, changed);
      offset += sizeof event + event.len;
    }
  }
}

void Watcher::Collect(std::uint32_t mask, int watch, Notifications& changed) {
  const auto add = [&](const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
      if (!entry.object->interest().Matches(mask)) continue;
      if (auto notification = entry.reference.lock()) changed.push_back(std::move(notification));
    }
  };
  if ((mask & IN_Q_OVERFLOW) != 0) {
    for (const auto& [_, entries] : watches_) add(entries);
    return;
  }
  const auto found = watches_.find(watch);
  if (found != watches_.end()) add(found->second);
}

void Watcher::Run() {
  for (;;) {
    pollfd readable{fd_, POLLIN, 0};
    if (poll(&readable, 1, -1) < 0) {
      if (errno == EINTR || errno == ENOMEM) continue;
      return;
    }
    Deliver(nullptr);
  }
}

// The change notification behind `handle`, held so that it outlives a concurrent close.
std::shared_ptr<ChangeNotification> FindNotification(HANDLE handle) {
  std::shared_ptr<KernelObject> object = ShareObject(handle);
  if (object == nullptr) return nullptr;
  if (object->kind() != ChangeNotification::kKind) {
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  return std::static_pointer_cast<ChangeNotification>(object);
}

HANDLE Fail(DWORD error) {
  SetLastError(error);
  return INVALID_HANDLE_VALUE;
}

}  // namespace
}  // namespace n7platform::internal

using n7platform::internal::ChangeNotification;

HANDLE FindFirstChangeNotificationW(LPCWSTR path, BOOL watch_subtree, DWORD filter) {
  using n7platform::internal::Fail;
  if (path == nullptr || (filter & n7platform::internal::kKnownFilters) == 0 ||
      (filter & ~n7platform::internal::kKnownFilters) != 0) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (watch_subtree != FALSE) return Fail(ERROR_NOT_SUPPORTED);
  const std::optional<std::string> utf8 = n7platform::codec::ToUtf8(path);
  if (!utf8) return Fail(ERROR_PATH_NOT_FOUND);

  auto notification =
      std::make_shared<ChangeNotification>(n7platform::internal::Interest::Of(filter));
  const DWORD error = n7platform::internal::TheWatcher().Watch(*utf8, notification);
  if (error != ERROR_SUCCESS) return Fail(error);
  HANDLE handle = n7platform::internal::InsertHandle(notification);
  return handle != nullptr ? handle : INVALID_HANDLE_VALUE;
}

BOOL FindNextChangeNotification(HANDLE handle) {
  const auto notification = n7platform::internal::FindNotification(handle);
  if (notification == nullptr) return FALSE;
  n7platform::internal::TheWatcher().Deliver(notification.get());
  return TRUE;
}

BOOL FindCloseChangeNotification(HANDLE handle) {
  {
    n7platform::internal::ObjectRef ref;
    if (n7platform::internal::FindObjectOf<ChangeNotification>(handle, ref) == nullptr)
      return FALSE;
  }
  return n7platform::internal::RemoveHandle(handle) ? TRUE : FALSE;
}
