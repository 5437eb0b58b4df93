// A file held in memory: what an archive is written to and read from when the bytes should stay
// in the process (tests, copies of objects, archives carried in other data).
#pragma once

#include <vector>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/File.h"

// Reads, writes and seeks like a CFile. Seeking past the end is allowed; writing there fills the
// gap with zeros. A memory file holds at most 2 GiB; positions beyond throw
// CFileException(badSeek).
class N7_EXPORT CMemFile : public CFile {
  DECLARE_DYNAMIC(CMemFile)

 public:
  explicit CMemFile(UINT grow_bytes = 1024);
  // A memory file holding a copy of `size` bytes at `buffer`, positioned at its start.
  CMemFile(const BYTE* buffer, UINT size);
  ~CMemFile() override;

  UINT Read(void* buffer, UINT count) override;
  void Write(const void* buffer, UINT count) override;
  ULONGLONG Seek(LONGLONG offset, UINT from) override;
  ULONGLONG GetPosition() const override;
  ULONGLONG GetLength() const override;
  void Flush() override;

 private:
  std::vector<BYTE> bytes_;
  std::size_t position_ = 0;
};
