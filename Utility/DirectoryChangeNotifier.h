// Directory change notification: a waitable object signalled when files appear in, vanish from
// or are renamed in one directory.
//
// CDirectoryChangeNotifier is the general interface of change notifiers, with do-nothing
// defaults. CFileSystemChangeNotifier watches a file-system directory (not its subdirectories)
// for changes of file names: creating, deleting and renaming files; writing to a file is not a
// change. It is a CSyncObject whose handle is the platform's change-notification handle, so it
// can be waited on alone (WaitForEvent), locked, or added to a CWaitableObjects set.
//
// A typical cycle: Create; then repeatedly wait, re-arm with FindNextChangeNotification (which
// resets the signal) and look at the directory; finally FindCloseChangeNotification and delete.
// The notifier does not say what changed. It has no lock of its own: callers serialise set-up,
// re-arming and closing.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/SyncObjects.h"

// What to watch. Only kind 1 (kFileSystemDirectory, a directory named by `path`) is acted on.
struct CHANGE_SPEC {
  static constexpr DWORD kFileSystemDirectory = 1;

  DWORD kind;
  const wchar_t* path;
  DWORD flags;  // set to 1 by CFileSystemChangeNotifier::Create; not read
};

class N7_EXPORT CDirectoryChangeNotifier {
 public:
  CDirectoryChangeNotifier() = default;
  CDirectoryChangeNotifier(const CDirectoryChangeNotifier&) = default;
  CDirectoryChangeNotifier& operator=(const CDirectoryChangeNotifier&) = default;
  virtual ~CDirectoryChangeNotifier();

  virtual void FindFirstChangeNotificationW(CHANGE_SPEC* spec);
  // Re-arms the notification; false when there is none or it cannot be re-armed.
  virtual bool FindNextChangeNotification();
  virtual void FindCloseChangeNotification();
  virtual void Abort();
  // WAIT_OBJECT_0 when a change was signalled, WAIT_TIMEOUT, or WAIT_FAILED (also when there is
  // no notification to wait on).
  virtual unsigned long WaitForEvent(unsigned long milliseconds);
  virtual void ProcessChangeNotification();
};

class N7_EXPORT CFileSystemChangeNotifier : public CSyncObject, public CDirectoryChangeNotifier {
  DECLARE_DYNAMIC(CFileSystemChangeNotifier)

 public:
  CFileSystemChangeNotifier();
  ~CFileSystemChangeNotifier() override;
  CFileSystemChangeNotifier(const CFileSystemChangeNotifier&) = delete;
  CFileSystemChangeNotifier& operator=(const CFileSystemChangeNotifier&) = delete;

  // A new notifier (owned by the caller) watching `directory`. It has no handle when the
  // directory cannot be watched (it does not exist, for one): then WaitForEvent returns
  // WAIT_FAILED and FindNextChangeNotification false.
  static CFileSystemChangeNotifier* Create(const wchar_t* directory);

  using CDirectoryChangeNotifier::FindFirstChangeNotificationW;
  // Sets up the notification for a spec of kind 1; other kinds leave the notifier without
  // handle. The second argument is not used.
  void FindFirstChangeNotificationW(CHANGE_SPEC* spec, unsigned long unused);
  bool FindNextChangeNotification() override;
  // Closes the notification; the notifier is without handle afterwards.
  void FindCloseChangeNotification() override;
  unsigned long WaitForEvent(unsigned long milliseconds) override;
  BOOL Unlock() override;  // nothing to release: TRUE

  const CString& GetDirectory() const;

 private:
  CString m_directory;
};
