#include "n7utility/platform/framework/Exceptions.h"

#include <cwchar>

namespace {

constexpr UINT kMaxReportText = 512;

}  // namespace

namespace n7platform {

void CopyErrorMessage(LPCWSTR text, LPWSTR error, UINT max_error, UINT* help_context) {
  if (help_context != nullptr) *help_context = 0;
  if (error == nullptr || max_error == 0) return;
  const std::size_t length = std::wcslen(text);
  const std::size_t copied = length < max_error - 1 ? length : max_error - 1;
  std::wmemcpy(error, text, copied);
  error[copied] = L'\0';
}

}  // namespace n7platform

CException::CException() : CException(TRUE) {}

CException::CException(BOOL auto_delete) : m_bAutoDelete(auto_delete) {}

CException::~CException() = default;

void CException::Delete() {
  if (m_bAutoDelete) delete this;
}

BOOL CException::GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context) const {
  n7platform::CopyErrorMessage(L"", error, max_error, help_context);
  return FALSE;
}

BOOL CException::GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context) {
  return static_cast<const CException*>(this)->GetErrorMessage(error, max_error, help_context);
}

int CException::ReportError(UINT type, UINT message_id) {
  wchar_t text[kMaxReportText];
  if (GetErrorMessage(text, kMaxReportText)) return AfxMessageBox(text, type);
  // The host's string table is not reachable from the platform layer; an identifier names a
  // text only the host can show, so it is reported by number.
  if (message_id != 0) {
    std::swprintf(text, kMaxReportText, L"Error message %u.", message_id);
    return AfxMessageBox(text, type);
  }
  return AfxMessageBox(L"No error message is available.", type);
}

CResourceException::CResourceException() = default;

CResourceException::~CResourceException() = default;

BOOL CResourceException::GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context) const {
  n7platform::CopyErrorMessage(L"A required resource was unavailable.", error, max_error,
                               help_context);
  return TRUE;
}

CInvalidArgException::CInvalidArgException() = default;

CInvalidArgException::~CInvalidArgException() = default;

BOOL CInvalidArgException::GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context) const {
  n7platform::CopyErrorMessage(L"Encountered an improper argument.", error, max_error,
                               help_context);
  return TRUE;
}

void AfxThrowResourceException() { throw new CResourceException; }

void AfxThrowInvalidArgException() { throw new CInvalidArgException; }
