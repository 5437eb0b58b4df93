#include "n7utility/platform/framework/MemFile.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr ULONGLONG kMaxMemFileSize = 0x80000000u;

[[noreturn]] void ThrowBadSeek() { throw new CFileException(CFileException::badSeek); }

}  // namespace

IMPLEMENT_DYNAMIC(CMemFile, CFile)

// The memory grows geometrically, which keeps long runs of small writes linear; the framework's
// growth step is accepted and not needed.
CMemFile::CMemFile(UINT /*grow_bytes*/) {}

CMemFile::CMemFile(const BYTE* buffer, UINT size) : bytes_(buffer, buffer + size) {}

CMemFile::~CMemFile() = default;

UINT CMemFile::Read(void* buffer, UINT count) {
  if (position_ >= bytes_.size()) return 0;
  const std::size_t available = std::min<std::size_t>(count, bytes_.size() - position_);
  std::memcpy(buffer, bytes_.data() + position_, available);
  position_ += available;
  return static_cast<UINT>(available);
}

void CMemFile::Write(const void* buffer, UINT count) {
  const std::size_t new_end = position_ + count;
  if (new_end > kMaxMemFileSize) throw new CFileException(CFileException::diskFull);
  if (new_end > bytes_.size()) bytes_.resize(new_end);  // zeros in any gap before the position
  if (count > 0) std::memcpy(bytes_.data() + position_, buffer, count);
  position_ = new_end;
}

ULONGLONG CMemFile::Seek(LONGLONG offset, UINT from) {
  LONGLONG base = 0;
  if (from == current) base = static_cast<LONGLONG>(position_);
  if (from == end) base = static_cast<LONGLONG>(bytes_.size());
  // Both terms are below 2^31 or the offset is refused before the sum could overflow.
  if (offset > static_cast<LONGLONG>(kMaxMemFileSize) ||
      offset < -static_cast<LONGLONG>(kMaxMemFileSize)) {
    ThrowBadSeek();
  }
  const LONGLONG position = base + offset;
  if (position < 0 || position > static_cast<LONGLONG>(kMaxMemFileSize)) ThrowBadSeek();
  position_ = static_cast<std::size_t>(position);
  return static_cast<ULONGLONG>(position_);
}

ULONGLONG CMemFile::GetPosition() const { return position_; }

ULONGLONG CMemFile::GetLength() const { return bytes_.size(); }

void CMemFile::Flush() {}
