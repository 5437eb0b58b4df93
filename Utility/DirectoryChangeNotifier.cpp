#include "n7utility/Utility/DirectoryChangeNotifier.h"

#include "n7utility/platform/kernel/KernelObjects.h"

CDirectoryChangeNotifier::~CDirectoryChangeNotifier() = default;

void CDirectoryChangeNotifier::FindFirstChangeNotificationW(CHANGE_SPEC* /*spec*/) {}

bool CDirectoryChangeNotifier::FindNextChangeNotification() { return false; }

void CDirectoryChangeNotifier::FindCloseChangeNotification() {}

void CDirectoryChangeNotifier::Abort() {}

unsigned long CDirectoryChangeNotifier::WaitForEvent(unsigned long /*milliseconds*/) {
  return WAIT_FAILED;
}

void CDirectoryChangeNotifier::ProcessChangeNotification() {}

IMPLEMENT_DYNAMIC(CFileSystemChangeNotifier, CSyncObject)

CFileSystemChangeNotifier::CFileSystemChangeNotifier() : CSyncObject(L"") {}

// The change notification is closed here, with its own close, so that CSyncObject's destructor
// finds no handle left to close.
CFileSystemChangeNotifier::~CFileSystemChangeNotifier() {
  CFileSystemChangeNotifier::FindCloseChangeNotification();
}

CFileSystemChangeNotifier* CFileSystemChangeNotifier::Create(const wchar_t* directory) {
  CHANGE_SPEC spec{CHANGE_SPEC::kFileSystemDirectory, directory, 1};
  auto* notifier = new CFileSystemChangeNotifier;
  notifier->FindFirstChangeNotificationW(&spec, 0);
  return notifier;
}

void CFileSystemChangeNotifier::FindFirstChangeNotificationW(CHANGE_SPEC* spec,
                                                             unsigned long /*unused*/) {
  if (spec == nullptr || spec->kind != CHANGE_SPEC::kFileSystemDirectory) return;
  FindCloseChangeNotification();
  m_directory = spec->path;
  HANDLE handle = ::FindFirstChangeNotificationW(m_directory, FALSE, FILE_NOTIFY_CHANGE_FILE_NAME);
  // A refused set-up leaves no handle rather than an invalid one to wait on.
  m_hObject = handle != INVALID_HANDLE_VALUE ? handle : nullptr;
}

bool CFileSystemChangeNotifier::FindNextChangeNotification() {
  return m_hObject != nullptr && ::FindNextChangeNotification(m_hObject) != FALSE;
}

void CFileSystemChangeNotifier::FindCloseChangeNotification() {
  if (m_hObject == nullptr) return;
  ::FindCloseChangeNotification(m_hObject);
  m_hObject = nullptr;
}

unsigned long CFileSystemChangeNotifier::WaitForEvent(unsigned long milliseconds) {
  if (m_hObject == nullptr) return WAIT_FAILED;
  const DWORD timeout = milliseconds >= INFINITE ? INFINITE : static_cast<DWORD>(milliseconds);
  return WaitForSingleObject(m_hObject, timeout);
}

BOOL CFileSystemChangeNotifier::Unlock() { return TRUE; }

const CString& CFileSystemChangeNotifier::GetDirectory() const { return m_directory; }
