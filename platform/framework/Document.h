// The framework's document: the data a program loads from a file and saves to one through its
// Serialize. Only the file handling is here: no views, templates or frames.
//
// OnOpenDocument empties the document (DeleteContents), loads the file through a loading archive
// whose m_pDocument is the document (an empty file loads nothing), and leaves it unmodified.
// OnSaveDocument stores the document into a new file beside the target, makes it durable and then
// renames it over the target, so a failed save leaves the old file as it was. Both return FALSE on
// failure after telling ReportSaveLoadException, whose default does nothing (this layer has no
// user interface); a failed open also empties the document again. Neither sets the path name:
// that is the caller's, with SetPathName.
#pragma once

#include <functional>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/Archive.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/Exceptions.h"

class N7_EXPORT CDocument : public CObject {
  DECLARE_DYNAMIC(CDocument)

 public:
  // The prompts the framework would show for a failed load or save.
  static constexpr UINT AFX_IDP_FAILED_TO_OPEN_DOC = 0xF104;
  static constexpr UINT AFX_IDP_FAILED_TO_SAVE_DOC = 0xF105;

  CDocument();
  ~CDocument() override;

  const CString& GetPathName() const { return m_strPathName; }
  virtual void SetPathName(LPCWSTR path_name, BOOL add_to_mru = TRUE);
  virtual BOOL IsModified() { return m_bModified; }
  virtual void SetModifiedFlag(BOOL modified = TRUE) { m_bModified = modified; }

  // Empties the document's data; the default has none.
  virtual void DeleteContents();
  // Empties the document for new data: no path, unmodified.
  virtual BOOL OnNewDocument();
  virtual BOOL OnOpenDocument(LPCWSTR path_name);
  virtual BOOL OnSaveDocument(LPCWSTR path_name);
  // Told of a failed load or save: the exception (null for one that is not the framework's), and
  // which prompt applies. The caller deletes the exception afterwards.
  virtual void ReportSaveLoadException(LPCWSTR path_name, CException* e, BOOL saving,
                                       UINT default_prompt);

 protected:
  CString m_strPathName;
  BOOL m_bModified = FALSE;

 private:
  // Runs `work`; a failure is reported and gives FALSE.
  BOOL ReportingFailures(LPCWSTR path_name, BOOL saving, const std::function<void()>& work);
  void Load(CFile& file);
  void Store(LPCWSTR path_name);
};
