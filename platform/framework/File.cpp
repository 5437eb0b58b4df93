#include "n7utility/platform/framework/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/LocalSystem_internal.h"

namespace n7platform::internal {
namespace {

constexpr std::size_t kTempNameCapacity = 260;  // characters, terminator included
constexpr UINT kUniqueNumbers = 0x10000;

// The UTF-8 path, or nothing with ERROR_INVALID_NAME set.
std::optional<std::string> NativePath(LPCWSTR path) {
  std::optional<std::string> native;
  if (path != nullptr && *path != L'\0') native = codec::ToUtf8(path);
  if (!native) SetLastError(ERROR_INVALID_NAME);
  return native;
}

void FailWithErrno() { SetLastError(Win32ErrorOfErrno(errno)); }

std::wstring TempFileName(std::wstring_view directory, LPCWSTR prefix, UINT unique) {
  std::wstring name(directory);
  if (!name.ends_with(L'/')) name += L'/';
  if (prefix != nullptr) name += std::wstring_view(prefix).substr(0, 3);
  wchar_t number[8];
  std::swprintf(number, std::size(number), L"%04X", unique & 0xFFFFu);
  return name + number + L".TMP";
}

// Creates the file `name` if it does not exist; false with errno set otherwise.
bool CreateNew(const std::wstring& name) {
  const std::optional<std::string> native = codec::ToUtf8(name);
  if (!native) {
    errno = EINVAL;
    return false;
  }
  const int fd = open(native->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  close(fd);
  return true;
}

// Tries unique numbers from a start that differs between processes and calls, until a file
// could be created; 0 with the last error set when none could.
UINT CreateUniqueFile(std::wstring_view directory, LPCWSTR prefix, std::wstring* name) {
  static std::atomic<UINT> calls{0};
  const UINT start = static_cast<UINT>(getpid()) * 31u + calls.fetch_add(1) * 7919u;
  for (UINT i = 0; i < kUniqueNumbers; ++i) {
    const UINT unique = (start + i) % kUniqueNumbers;
    if (unique == 0) continue;
    *name = TempFileName(directory, prefix, unique);
    if (CreateNew(*name)) return unique;
    if (errno != EEXIST) {
      FailWithErrno();
      return 0;
    }
  }
  SetLastError(ERROR_FILE_EXISTS);
  return 0;
}

std::wstring TempDirectory() {
  for (const char* variable : {"TMPDIR", "TMP", "TEMP"}) {
    const char* value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe)
    if (value == nullptr || *value == '\0') continue;
    if (std::optional<std::wstring> path = codec::FromUtf8(value)) return *path;
  }
  return L"/tmp";
}

int CauseOf(int error) {
  switch (error) {
    case ENOENT:
      return CFileException::fileNotFound;
    case ENOTDIR:
    case ENAMETOOLONG:
      return CFileException::badPath;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return CFileException::accessDenied;
    default:
      return CFileException::genericException;
  }
}

[[noreturn]] void ThrowFileException(int error, LPCWSTR file_name) {
  throw new CFileException(CauseOf(error), error, file_name);
}

int IoCauseOf(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return CFileException::diskFull;
    case EINVAL:
    case ESPIPE:
      return CFileException::badSeek;
    case EBADF:
      return CFileException::accessDenied;
    default:
      return CFileException::hardIO;
  }
}

// Reading, writing or seeking failed with errno: a full disk, a file that is not open, a failing
// device.
[[noreturn]] void ThrowIoError() {
  const int error = errno;
  throw new CFileException(IoCauseOf(error), error, nullptr);
}

}  // namespace
}  // namespace n7platform::internal

using n7platform::internal::NativePath;

DWORD GetFileAttributesW(LPCWSTR path) {
  const std::optional<std::string> native = NativePath(path);
  if (!native) return INVALID_FILE_ATTRIBUTES;
  struct stat info {};
  if (stat(native->c_str(), &info) != 0) {
    n7platform::internal::FailWithErrno();
    return INVALID_FILE_ATTRIBUTES;
  }
  if (S_ISDIR(info.st_mode)) return FILE_ATTRIBUTE_DIRECTORY;
  return (info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 ? FILE_ATTRIBUTE_READONLY
                                                             : FILE_ATTRIBUTE_NORMAL;
}

UINT GetTempFileNameW(LPCWSTR path, LPCWSTR prefix, UINT unique, LPWSTR temp_file_name) {
  using n7platform::internal::kTempNameCapacity;
  if (path == nullptr || temp_file_name == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::wstring name = n7platform::internal::TempFileName(path, prefix, unique);
  if (name.size() >= kTempNameCapacity) {
    SetLastError(ERROR_BUFFER_OVERFLOW);
    return 0;
  }
  if (unique == 0) {
    unique = n7platform::internal::CreateUniqueFile(path, prefix, &name);
    if (unique == 0) return 0;
  }
  name.copy(temp_file_name, name.size());
  temp_file_name[name.size()] = L'\0';
  return unique;
}

BOOL DeleteFileW(LPCWSTR path) {
  const std::optional<std::string> native = NativePath(path);
  if (!native) return FALSE;
  if (unlink(native->c_str()) != 0) {
    n7platform::internal::FailWithErrno();
    return FALSE;
  }
  return TRUE;
}

DWORD GetTempPathW(DWORD buffer_length, LPWSTR buffer) {
  std::wstring path = n7platform::internal::TempDirectory();
  if (!path.ends_with(L'/')) path += L'/';
  if (buffer == nullptr || buffer_length <= path.size()) return static_cast<DWORD>(path.size() + 1);
  path.copy(buffer, path.size());
  buffer[path.size()] = L'\0';
  return static_cast<DWORD>(path.size());
}

CFileException::CFileException(int cause, LONG os_error, LPCWSTR file_name)
    : m_cause(cause), m_lOsError(os_error), m_strFileName(file_name) {}

CFileException::~CFileException() = default;

IMPLEMENT_DYNAMIC(CFile, CObject)

CFile::~CFile() {
  if (fd_ >= 0) close(fd_);
}

BOOL CFile::Open(LPCWSTR file_name, UINT open_flags, CFileException* error) {
  const std::optional<std::string> native = NativePath(file_name);
  if (!native) {
    if (error != nullptr) error->m_cause = CFileException::badPath;
    return FALSE;
  }
  int flags = O_CLOEXEC;
  if ((open_flags & modeReadWrite) != 0) {
    flags |= O_RDWR;
  } else if ((open_flags & modeWrite) != 0) {
    flags |= O_WRONLY;
  } else {
    flags |= O_RDONLY;
  }
  if ((open_flags & modeCreate) != 0) {
    flags |= O_CREAT;
    if ((open_flags & modeNoTruncate) == 0) flags |= O_TRUNC;
  }
  Close();
  fd_ = open(native->c_str(), flags, 0666);
  if (fd_ >= 0) return TRUE;
  const int os_error = errno;
  n7platform::internal::FailWithErrno();
  if (error != nullptr) {
    error->m_cause = n7platform::internal::CauseOf(os_error);
    error->m_lOsError = os_error;
    error->m_strFileName = file_name;
  }
  return FALSE;
}

void CFile::Close() {
  if (fd_ < 0) return;
  const int fd = fd_;
  fd_ = -1;
  if (close(fd) != 0) n7platform::internal::ThrowFileException(errno, nullptr);
}

void CFile::Remove(LPCWSTR file_name) {
  const std::optional<std::string> native = NativePath(file_name);
  if (!native) n7platform::internal::ThrowFileException(ENOENT, file_name);
  if (unlink(native->c_str()) != 0) n7platform::internal::ThrowFileException(errno, file_name);
}

UINT CFile::Read(void* buffer, UINT count) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  UINT done = 0;
  while (done < count) {
    const ssize_t got = read(fd_, bytes + done, count - done);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      n7platform::internal::ThrowIoError();
    }
    done += static_cast<UINT>(got);
  }
  return done;
}

void CFile::Write(const void* buffer, UINT count) {
  const auto* bytes = static_cast<const unsigned char*>(buffer);
  UINT done = 0;
  while (done < count) {
    const ssize_t put = write(fd_, bytes + done, count - done);
    if (put < 0) {
      if (errno == EINTR) continue;
      n7platform::internal::ThrowIoError();
    }
    done += static_cast<UINT>(put);
  }
}

ULONGLONG CFile::Seek(LONGLONG offset, UINT from) {
  const int whence = from == current ? SEEK_CUR : from == end ? SEEK_END : SEEK_SET;
  const off_t position = lseek(fd_, offset, whence);
  if (position < 0) n7platform::internal::ThrowIoError();
  return static_cast<ULONGLONG>(position);
}

ULONGLONG CFile::GetPosition() const {
  const off_t position = lseek(fd_, 0, SEEK_CUR);
  if (position < 0) n7platform::internal::ThrowIoError();
  return static_cast<ULONGLONG>(position);
}

ULONGLONG CFile::GetLength() const {
  struct stat info {};
  if (fstat(fd_, &info) != 0) n7platform::internal::ThrowIoError();
  return static_cast<ULONGLONG>(info.st_size);
}

void CFile::Flush() {
  if (fd_ >= 0 && fsync(fd_) != 0 && errno != EINVAL) n7platform::internal::ThrowIoError();
}
