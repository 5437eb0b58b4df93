#include "n7utility/Utility/ErrorPool.h"

#include <cstdarg>
#include <string>

#include "n7utility/Utility/LibraryModule_internal.h"
#include "n7utility/platform/system/FormatMessage.h"
#include "n7utility/platform/system/LocalMemory.h"
#include "n7utility/platform/system/MessageBox.h"

namespace {

constexpr INT_PTR kPoolBlockSize = 10;

// The library's string with the internal-error text, and that text for when the library's
// resources cannot be reached.
constexpr UINT kInternalErrorString = 1;
constexpr wchar_t kInternalErrorText[] =
    L"Internal error: The error %1!d! in the module %2!s! is not implemented. Please contact "
    L"your tool provider.";

// The internal-error text before formatting. Loads from the library's module directly rather
// than through the current resource module, so that no other thread's loads are redirected
// meanwhile.
CString InternalErrorFormat() {
  CString text(kInternalErrorText);
  const HMODULE library = n7utility::internal::LibraryModule().hResource;
  if (library != nullptr) {
    CString loaded;
    if (loaded.LoadString(library, kInternalErrorString) && !loaded.IsEmpty()) text = loaded;
  }
  return text;
}

// `format` with the code and the module name inserted; `format` itself when it cannot be
// formatted, so that the user still sees something.
CString FormatInternalError(const CString& format, int code, const CString& name) {
  // %1!d! reads the low 32 bits of its slot as signed, so the code's sign survives.
  const DWORD_PTR arguments[] = {static_cast<DWORD_PTR>(static_cast<INT_PTR>(code)),
                                 reinterpret_cast<DWORD_PTR>(name.GetString())};
  LPWSTR text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER,
      format.GetString(), 0, 0, reinterpret_cast<LPWSTR>(&text), 0,
      reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments)));
  if (text == nullptr) return format;
  CString result(std::wstring(text, length));
  LocalFree(text);
  return result;
}

}  // namespace

CErrorPool::CErrorPool(const CString& name, int no_error_value)
    : CMap(kPoolBlockSize), m_strName(name), m_nNoErrorValue(no_error_value) {}

CErrorPool::~CErrorPool() = default;

const CString& CErrorPool::Name() const { return m_strName; }

int CErrorPool::NoErrorValue() const { return m_nNoErrorValue; }

AErrorPoolMgr::AErrorPoolMgr(const CString& name, int no_error_value)
    : m_Pool(name, no_error_value) {}

AErrorPoolMgr::~AErrorPoolMgr() = default;

const CErrorPool& AErrorPoolMgr::Pool() const { return m_Pool; }

void AErrorPoolMgr::AddError(int code, UINT resource_id, const CString& default_text) {
  CString text(default_text);
  // LoadString leaves the text alone when no resource module has the string.
  text.LoadString(resource_id);
  m_Pool.SetAt(code, text);
}

const CString AErrorPoolMgr::IMessage(int code) const {
  CString text;
  m_Pool.Lookup(code, text);
  return text;
}

int AErrorPoolMgr::IManage(int code, UINT style, UINT help_id) {
  if (code == m_Pool.NoErrorValue()) return 0;
  if (const CErrorPool::CPair* entry = m_Pool.PLookup(code); entry != nullptr) {
    return AfxMessageBox(entry->value, style, help_id);
  }
  const CString text = FormatInternalError(InternalErrorFormat(), code, m_Pool.Name());
  return AfxMessageBox(text, MB_ICONSTOP, 0);
}
