// Test helpers: store through an archive into bytes, load from bytes, and catch the archive's
// error by its cause.
#pragma once

#include <functional>
#include <vector>

#include "n7utility/platform/framework/Archive.h"
#include "n7utility/platform/framework/MemFile.h"

namespace n7platform::test_support {

inline std::vector<BYTE> ContentsOf(CFile& file) {
  std::vector<BYTE> bytes(static_cast<std::size_t>(file.GetLength()));
  file.SeekToBegin();
  file.Read(bytes.data(), static_cast<UINT>(bytes.size()));
  return bytes;
}

// The bytes that `store` writes into a storing archive.
inline std::vector<BYTE> Stored(const std::function<void(CArchive&)>& store) {
  CMemFile file;
  CArchive ar(&file, CArchive::store);
  store(ar);
  ar.Close();
  return ContentsOf(file);
}

// Runs `load` on a loading archive over `bytes`.
inline void Loaded(const std::vector<BYTE>& bytes, const std::function<void(CArchive&)>& load) {
  CMemFile file(bytes.data(), static_cast<UINT>(bytes.size()));
  CArchive ar(&file, CArchive::load);
  load(ar);
}

// The cause of the CArchiveException that `operation` throws, or -1 when it throws none.
inline int ArchiveCauseOf(const std::function<void()>& operation) {
  try {
    operation();
  } catch (CArchiveException* e) {
    const int cause = e->m_cause;
    delete e;
    return cause;
  }
  return -1;
}

// The cause of the CArchiveException that `load` throws on `bytes`, or -1 when it throws none.
inline int ArchiveErrorOf(const std::vector<BYTE>& bytes,
                          const std::function<void(CArchive&)>& load) {
  return ArchiveCauseOf([&] { Loaded(bytes, load); });
}

}  // namespace n7platform::test_support
