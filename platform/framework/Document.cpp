#include "n7utility/platform/framework/Document.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/framework/File.h"

namespace {

// The file a save writes before it replaces the target.
std::wstring SavingName(LPCWSTR path_name) { return std::wstring(path_name) + L".saving"; }

void Rename(const std::wstring& from, LPCWSTR to) {
  const std::optional<std::string> native_from = n7platform::codec::ToUtf8(from);
  const std::optional<std::string> native_to = n7platform::codec::ToUtf8(to);
  if (!native_from || !native_to) throw new CFileException(CFileException::badPath, -1, to);
  if (std::rename(native_from->c_str(), native_to->c_str()) != 0) {
    throw new CFileException(CFileException::accessDenied, errno, to);
  }
}

}  // namespace

IMPLEMENT_DYNAMIC(CDocument, CObject)

CDocument::CDocument() = default;

CDocument::~CDocument() = default;

void CDocument::SetPathName(LPCWSTR path_name, BOOL /*add_to_mru*/) { m_strPathName = path_name; }

void CDocument::DeleteContents() {}

BOOL CDocument::OnNewDocument() {
  DeleteContents();
  m_strPathName = L"";
  SetModifiedFlag(FALSE);
  return TRUE;
}

void CDocument::ReportSaveLoadException(LPCWSTR /*path_name*/, CException* /*e*/, BOOL /*saving*/,
                                        UINT /*default_prompt*/) {}

BOOL CDocument::ReportingFailures(LPCWSTR path_name, BOOL saving,
                                  const std::function<void()>& work) {
  const UINT prompt = saving ? AFX_IDP_FAILED_TO_SAVE_DOC : AFX_IDP_FAILED_TO_OPEN_DOC;
  try {
    work();
    return TRUE;
  } catch (CException* e) {
    ReportSaveLoadException(path_name, e, saving, prompt);
    e->Delete();
  } catch (const std::exception&) {
    ReportSaveLoadException(path_name, nullptr, saving, prompt);
  }
  return FALSE;
}

void CDocument::Load(CFile& file) {
  CArchive ar(&file, CArchive::load | CArchive::bNoFlushOnDelete);
  ar.m_pDocument = this;
  if (file.GetLength() != 0) Serialize(ar);
  ar.Close();
}

void CDocument::Store(LPCWSTR path_name) {
  const std::wstring saving = SavingName(path_name);
  CFile file;
  CFileException error;
  if (!file.Open(saving.c_str(), CFile::modeCreate | CFile::modeWrite, &error)) {
    throw new CFileException(error.m_cause, error.m_lOsError, path_name);
  }
  try {
    CArchive ar(&file, CArchive::store | CArchive::bNoFlushOnDelete);
    ar.m_pDocument = this;
    Serialize(ar);
    ar.Close();
    file.Flush();
    file.Close();
    Rename(saving, path_name);
  } catch (...) {
    DeleteFileW(saving.c_str());
    throw;
  }
}

BOOL CDocument::OnOpenDocument(LPCWSTR path_name) {
  CFile file;
  CFileException error;
  if (!file.Open(path_name, CFile::modeRead, &error)) {
    ReportSaveLoadException(path_name, &error, FALSE, AFX_IDP_FAILED_TO_OPEN_DOC);
    return FALSE;
  }
  DeleteContents();
  SetModifiedFlag();  // partly loaded until the load is through
  if (!ReportingFailures(path_name, FALSE, [&] { Load(file); })) {
    DeleteContents();
    return FALSE;
  }
  SetModifiedFlag(FALSE);
  return TRUE;
}

BOOL CDocument::OnSaveDocument(LPCWSTR path_name) {
  if (!ReportingFailures(path_name, TRUE, [&] { Store(path_name); })) return FALSE;
  SetModifiedFlag(FALSE);
  return TRUE;
}
