#include "n7utility/Utility/ExceptionWrappers.h"

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "n7utility/Utility/StringTable.h"
#include "n7utility/core/error.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/system/FormatMessage.h"
#include "n7utility/platform/system/LocalMemory.h"

namespace {

// The library's string with the structured-exception message for 64-bit registers.
constexpr UINT kWin64ExceptionMessage = 3;
// A chain longer than this is taken for a cycle.
constexpr std::size_t kMaxExceptionRecords = 256;
constexpr UINT kMaxAppendedMessage = 512;
constexpr std::size_t kSystemErrorChars = 512;
constexpr wchar_t kEllipsis[] = L" ...";
constexpr int kEllipsisLength = 4;
// The shortest limit with room for a head, the marker and a tail: h = 3, t = 0.
constexpr int kMinimumCutLimit = 7;

// Formats `message` with positional inserts from `arguments`; the message itself when it
// cannot be formatted.
CString FormatInserts(const CString& message, const DWORD_PTR* arguments) {
  LPWSTR text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY | FORMAT_MESSAGE_ALLOCATE_BUFFER,
      message.GetString(), 0, 0, reinterpret_cast<LPWSTR>(&text), 0,
      reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments)));
  if (text == nullptr) return message;
  CString result(std::wstring(text, length));
  LocalFree(text);
  return result;
}

// The message's register inserts (2 to 7) read their argument as 64 bits: a plain "X" takes the
// low 32 bits only, which would show addresses of a 64-bit process that point nowhere.
CString WidenRegisterInserts(const CString& message) {
  std::wstring text = message.str();
  for (wchar_t insert = L'2'; insert <= L'7'; ++insert) {
    const std::wstring number(1, insert);
    const std::wstring narrow = L"%" + number + L"!X!";
    const std::wstring::size_type at = text.find(narrow);
    if (at != std::wstring::npos) text.replace(at, narrow.size(), L"%" + number + L"!I64X!");
  }
  return CString(std::move(text));
}

// The length of a text as the append counts it: given, or measured and then within 32 bits.
template <typename Char>
std::size_t MeasuredLength(const Char* text, int length) {
  if (length >= 0) return static_cast<std::size_t>(length);
  const std::size_t measured = std::char_traits<Char>::length(text);
  if (measured > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    n7core::safe_cast_throw_sign_reversal("int32_t", static_cast<std::uint64_t>(measured));
  }
  return measured;
}

// The sizes of a cut text's head and tail for `limit`; false when the limit has no room for
// the marker, and the head is then all there is.
bool CutSizes(int limit, std::size_t& head, std::size_t& tail) {
  if (limit < kMinimumCutLimit) {
    head = static_cast<std::size_t>(limit > 0 ? limit : 0);
    tail = 0;
    return false;
  }
  head = static_cast<std::size_t>(limit / 2);
  tail = static_cast<std::size_t>(limit) - head - kEllipsisLength;
  return true;
}

// Joins the head, the marker and the tail, or gives the head alone when there is no marker.
std::wstring CutText(std::wstring_view head, std::wstring_view tail, bool marked) {
  std::wstring cut(head);
  if (marked) {
    cut += kEllipsis;
    cut += tail;
  }
  return cut;
}

bool FitsLimit(std::size_t length, int limit) {
  return limit >= 0 && length <= static_cast<std::size_t>(limit);
}

std::wstring LimitedText(std::wstring_view text, int limit) {
  if (FitsLimit(text.size(), limit)) return std::wstring(text);
  std::size_t head = 0;
  std::size_t tail = 0;
  const bool marked = CutSizes(limit, head, tail);
  return CutText(text.substr(0, head), text.substr(text.size() - tail), marked);
}

bool IsContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0u) == 0x80u; }

std::wstring LimitedText(std::string_view text, int limit) {
  if (FitsLimit(text.size(), limit)) return n7core::to_wstring(text);
  std::size_t head = 0;
  std::size_t tail = 0;
  const bool marked = CutSizes(limit, head, tail);
  const std::wstring converted = n7core::to_wstring(text);
  std::string_view tail_bytes = text.substr(text.size() - tail);
  while (!tail_bytes.empty() && IsContinuationByte(tail_bytes.front())) {
    tail_bytes.remove_prefix(1);
  }
  const std::wstring_view whole = converted;
  return CutText(whole.substr(0, head), n7core::to_wstring(tail_bytes), marked);
}

// "<code> (0x<code>): <system text>" without the text's CR LF, or "<code> (0x<code>)" when the
// system has no text for the code or the text does not fit.
std::wstring SystemErrorText(DWORD code) {
  wchar_t text[kSystemErrorChars];
  const int prefix =
      std::swprintf(text, kSystemErrorChars, L"%lu (0x%lX): ", static_cast<unsigned long>(code),
                    static_cast<unsigned long>(code));
  const auto prefix_length = static_cast<std::size_t>(prefix);
  const DWORD written =
      FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, code, 0, text + prefix_length,
                     static_cast<DWORD>(kSystemErrorChars - prefix_length), nullptr);
  const std::size_t length = written >= 2 ? prefix_length + written - 2 : prefix_length - 2;
  return std::wstring(text, length);
}

}  // namespace

CSE_Exception::CSE_Exception() : m_context{}, m_code(0) {}

CSE_Exception::CSE_Exception(DWORD code, EXCEPTION_POINTERS* pointers)
    : m_context(*pointers->ContextRecord), m_code(code) {
  BuildExceptionRecordArray(pointers->ExceptionRecord);
}

CSE_Exception::~CSE_Exception() = default;

void CSE_Exception::BuildExceptionRecordArray(const EXCEPTION_RECORD* first) {
  for (const EXCEPTION_RECORD* record = first;
       record != nullptr && m_records.size() < kMaxExceptionRecords;
       record = record->ExceptionRecord) {
    m_records.push_back(*record);
  }
  for (std::size_t i = 0; i < m_records.size(); ++i) {
    m_records[i].ExceptionRecord = i + 1 < m_records.size() ? &m_records[i + 1] : nullptr;
  }
}

LONG CSE_Exception::getNumExceptionRecords() const { return static_cast<LONG>(m_records.size()); }

const EXCEPTION_RECORD& CSE_Exception::getExceptionRecord(LONG index) const {
  if (index < 0 || index >= getNumExceptionRecords()) AfxThrowInvalidArgException();
  return m_records[static_cast<std::size_t>(index)];
}

CString CSE_Exception::getErrorMessage(UINT* help_context) {
  if (help_context != nullptr) *help_context = 0;
  const DWORD_PTR arguments[] = {m_code,           m_context.Rbp, m_context.Rip,  m_context.SegCs,
                                 m_context.EFlags, m_context.Rsp, m_context.SegSs};
  return FormatInserts(WidenRegisterInserts(CStringTable().Load(kWin64ExceptionMessage)),
                       arguments);
}

BOOL CSE_Exception::getErrorMessage(wchar_t* buffer, UINT size, UINT* help_context) {
  if (buffer == nullptr || size == 0) return FALSE;
  n7platform::CopyErrorMessage(getErrorMessage(help_context), buffer, size, help_context);
  return TRUE;
}

void CSE_Exception::Delete() { delete this; }

void CSE_ExceptionTransFunction(unsigned int code, EXCEPTION_POINTERS* pointers) {
  CSE_Exception* exception = nullptr;
  try {
    exception = new CSE_Exception(code, pointers);  // NOLINT(bugprone-throw-keyword-missing)
  } catch (const std::bad_alloc&) {
    exception = nullptr;
  }
  throw exception;
}

CComException::CComException(const _com_error& error, BOOL auto_delete)
    : CException(auto_delete), m_error(error) {}

CComException::CComException(HRESULT hr, IErrorInfo* error_info, BOOL auto_delete)
    : CException(auto_delete), m_error(hr, error_info) {}

CComException::~CComException() = default;

CComException& CComException::Fallback() {
  static CComException fallback(E_FAIL, nullptr, FALSE);
  return fallback;
}

void CComException::Throw(HRESULT hr, IErrorInfo* error_info) {
  auto* exception = new (std::nothrow) CComException(hr, error_info, TRUE);
  if (exception == nullptr) {
    exception = &Fallback();
    exception->m_error = _com_error(hr, error_info);
  }
  throw exception;
}

BOOL CComException::GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context) {
  n7platform::CopyErrorMessage(m_error.ErrorMessage(), error, max_error, help_context);
  return TRUE;
}

CSystemErrorString::CSystemErrorString(DWORD code) : CString(SystemErrorText(code)) {}

CString& operator<<(CString& out, CException& exception) {
  try {
    wchar_t text[kMaxAppendedMessage];
    if (exception.GetErrorMessage(text, kMaxAppendedMessage, nullptr)) {
      out += text;
    } else {
      out += L"No error text provided.";
    }
  } catch (CException* inner) {
    inner->Delete();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a failure to describe a failure is dropped
  }
  return out;
}

CString& operator<<(CString& out, const Morvane_Inc::LimitTextA& text) {
  if (text.text == nullptr) return out;
  const std::size_t length = MeasuredLength(text.text, text.length);
  out += LimitedText(std::string_view(text.text, length), text.limit);
  return out;
}

CString& operator<<(CString& out, const Morvane_Inc::LimitTextW& text) {
  if (text.text == nullptr) return out;
  const std::size_t length = MeasuredLength(text.text, text.length);
  out += LimitedText(std::wstring_view(text.text, length), text.limit);
  return out;
}
