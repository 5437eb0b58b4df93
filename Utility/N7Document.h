// The base of the suite's documents: a framework document that, while a file loads, remembers for
// each serialisable class the schema its objects were stored with, so that every object of the
// class read later can ask for it.
//
// An object's Serialize, when loading, calls GetVersionID with its class and the archive and reads
// the layout of the schema it gets:
//
//   void CShape::Serialize(CArchive& ar) {
//     ...
//     auto* document = static_cast<CN7Document*>(ar.m_pDocument);
//     if (document->GetVersionID(RUNTIME_CLASS(CShape), ar) >= 2) ar >> m_label;
//   }
//
// The first call for a class during a load records the archive's object schema (the archive can
// answer once per object; GetObjectSchema) and every later call returns that number, so a class
// keeps the schema of the first of its objects read. When the recorded number is 0 and a later
// call finds the archive answering something else, the version-zero flag is raised; a program can
// query it after the load (QueryVersionZeroLoaded) until the next OnOpenDocument starts.
//
// The schema record is emptied at the start and at the end of every OnOpenDocument, also after a
// failed load. Outside a load nothing empties it: calls then record what the archive reports,
// until the next document is opened. A document is used by one thread at a time.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/Archive.h"
#include "n7utility/platform/framework/Document.h"
#include "n7utility/platform/framework/Map.h"

class N7_EXPORT CN7Document : public CDocument {
  DECLARE_DYNAMIC(CN7Document)

 public:
  CN7Document();
  ~CN7Document() override;

  // The schema recorded for `runtime_class` during the current load (see above).
  int GetVersionID(CRuntimeClass* runtime_class, CArchive& ar);
  // 1 when the last load met a class first recorded at schema 0 with another schema; else 0.
  int QueryVersionZeroLoaded() const { return m_bVersionZeroLoaded; }

  BOOL OnOpenDocument(LPCWSTR path_name) override;

 protected:
  CMap<CRuntimeClass*, CRuntimeClass*, int, int> m_VersionMap;
  int m_bVersionZeroLoaded = 0;
};
