// Files and directories: attributes, unique temporary files, the temporary directory, and the
// framework's file object.
//
// Paths are wide text converted to UTF-8 for the file system and use "/" as separator. Failures
// set the calling thread's last error (errno translated to the nearest Win32 code).
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/Exceptions.h"

inline constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x00000001;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;

inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;

// FILE_ATTRIBUTE_DIRECTORY for a directory, FILE_ATTRIBUTE_READONLY for an entry without any write
// permission bit, FILE_ATTRIBUTE_NORMAL otherwise; INVALID_FILE_ATTRIBUTES when there is no such
// entry (ERROR_PATH_NOT_FOUND, ERROR_ACCESS_DENIED, ...).
N7_EXPORT DWORD GetFileAttributesW(LPCWSTR path);

// Names a temporary file in `path`: PREFIX (its first three characters), the unique number as four
// upper-case hexadecimal digits, ".TMP". With `unique` 0 the number is chosen so that the file
// does not exist yet, and the file is created, empty; otherwise the name is only formed. Writes
// the name to `temp_file_name`, which must hold 260 characters, and returns the number used; 0 on
// failure (ERROR_BUFFER_OVERFLOW when the name would not fit, ERROR_PATH_NOT_FOUND,
// ERROR_ACCESS_DENIED, ...).
N7_EXPORT UINT GetTempFileNameW(LPCWSTR path, LPCWSTR prefix, UINT unique, LPWSTR temp_file_name);

N7_EXPORT BOOL DeleteFileW(LPCWSTR path);

// The temporary directory, ending in "/": the first of the environment variables TMPDIR, TMP and
// TEMP that is set to a non-empty UTF-8 text, else "/tmp/". The directory is not checked. With a
// buffer of `buffer_length` characters too small for the path and its terminator, returns the
// length the buffer needs (terminator included) and leaves the buffer alone; otherwise copies the
// path and returns its length (terminator not included).
N7_EXPORT DWORD GetTempPathW(DWORD buffer_length, LPWSTR buffer);

// The framework's file error, thrown by pointer; the catcher deletes it.
class N7_EXPORT CFileException : public CException {
 public:
  enum { none = 0, genericException = 1, fileNotFound = 2, badPath = 3, accessDenied = 5 };
  enum { badSeek = 9, hardIO = 10, diskFull = 13, endOfFile = 14 };

  explicit CFileException(int cause = none, LONG os_error = -1, LPCWSTR file_name = nullptr);
  ~CFileException() override;

  int m_cause;
  LONG m_lOsError;  // the errno value
  CString m_strFileName;
};

// The framework's file object: one open file, closed on destruction. Only what the library uses.
// Reading, writing and seeking are virtual so that other kinds of file (CMemFile) can stand in for
// a file on disk; they throw CFileException* on failure.
class N7_EXPORT CFile : public CObject {
  DECLARE_DYNAMIC(CFile)

 public:
  enum OpenFlags : UINT {
    modeRead = 0x0000,
    modeWrite = 0x0001,
    modeReadWrite = 0x0002,
    modeCreate = 0x1000,      // creates the file, truncating it if it exists
    modeNoTruncate = 0x2000,  // with modeCreate: keeps an existing file's contents
  };

  enum SeekPosition : UINT { begin = 0, current = 1, end = 2 };

  CFile() = default;
  ~CFile() override;
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  // FALSE when the file cannot be opened; `error` (optional) then tells why.
  BOOL Open(LPCWSTR file_name, UINT open_flags, CFileException* error = nullptr);
  // Throws CFileException* when closing reports an error. Does nothing for a closed file.
  void Close();

  // Reads up to `count` bytes; fewer only at the end of the file.
  virtual UINT Read(void* buffer, UINT count);
  // Writes all `count` bytes.
  virtual void Write(const void* buffer, UINT count);
  // Moves the file position by `offset` from `from` (begin, current or end); the new position.
  virtual ULONGLONG Seek(LONGLONG offset, UINT from);
  void SeekToBegin() { Seek(0, begin); }
  ULONGLONG SeekToEnd() { return Seek(0, end); }
  virtual ULONGLONG GetPosition() const;
  virtual ULONGLONG GetLength() const;
  // Makes what was written durable (fsync).
  virtual void Flush();

  // Deletes the file; throws CFileException* on failure.
  static void Remove(LPCWSTR file_name);

 private:
  int fd_ = -1;
};
