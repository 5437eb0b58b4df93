#include "n7utility/Utility/N7Document.h"

IMPLEMENT_DYNAMIC(CN7Document, CDocument)

CN7Document::CN7Document() : m_VersionMap(10) {}

CN7Document::~CN7Document() = default;

int CN7Document::GetVersionID(CRuntimeClass* runtime_class, CArchive& ar) {
  int version = 0;
  if (!m_VersionMap.Lookup(runtime_class, version)) {
    // The archive's schema is unsigned; "no schema" (all bits set) is kept as -1.
    version = static_cast<int>(ar.GetObjectSchema());
    m_VersionMap[runtime_class] = version;
    return version;
  }
  if (version == 0 && ar.GetObjectSchema() != 0) m_bVersionZeroLoaded = 1;
  return version;
}

BOOL CN7Document::OnOpenDocument(LPCWSTR path_name) {
  m_VersionMap.RemoveAll();
  m_bVersionZeroLoaded = 0;
  BOOL opened = FALSE;
  try {
    opened = CDocument::OnOpenDocument(path_name);
  } catch (...) {
    m_VersionMap.RemoveAll();
    throw;
  }
  m_VersionMap.RemoveAll();
  return opened;
}
