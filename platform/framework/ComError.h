// COM error values and the objects a COM error travels in: HRESULT with its macros and common
// values, the base interfaces IUnknown and IErrorInfo (reference-counted, no class factory or
// apartment behind them), BSTR strings, and _com_error, the exception that COM wrappers throw by
// value (_com_issue_error).
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"

using HRESULT = LONG;
using SCODE = LONG;

#define SUCCEEDED(hr) (static_cast<HRESULT>(hr) >= 0)
#define FAILED(hr) (static_cast<HRESULT>(hr) < 0)
#define HRESULT_CODE(hr) (static_cast<HRESULT>(hr) & 0xFFFF)
#define HRESULT_FACILITY(hr) ((static_cast<HRESULT>(hr) >> 16) & 0x1FFF)
#define HRESULT_SEVERITY(hr) ((static_cast<HRESULT>(hr) >> 31) & 0x1)
#define MAKE_HRESULT(severity, facility, code)                \
  static_cast<HRESULT>((static_cast<DWORD>(severity) << 31) | \
                       (static_cast<DWORD>(facility) << 16) | static_cast<DWORD>(code))

inline constexpr DWORD FACILITY_NULL = 0;
inline constexpr DWORD FACILITY_RPC = 1;
inline constexpr DWORD FACILITY_DISPATCH = 2;
inline constexpr DWORD FACILITY_ITF = 4;
inline constexpr DWORD FACILITY_WIN32 = 7;
inline constexpr DWORD SEVERITY_SUCCESS = 0;
inline constexpr DWORD SEVERITY_ERROR = 1;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
inline constexpr HRESULT E_HANDLE = static_cast<HRESULT>(0x80070006u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr HRESULT RPC_E_CHANGED_MODE = static_cast<HRESULT>(0x80010106u);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = static_cast<HRESULT>(0x80040154u);
inline constexpr HRESULT CO_E_NOTINITIALIZED = static_cast<HRESULT>(0x800401F0u);

// The HRESULT of a Win32 error code: ERROR_SUCCESS stays S_OK, a value that already is an HRESULT
// stays as it is.
// NOLINTNEXTLINE(readability-identifier-naming): the Win32 name
constexpr HRESULT HRESULT_FROM_WIN32(DWORD error) {
  return static_cast<HRESULT>(error) <= 0
             ? static_cast<HRESULT>(error)
             : static_cast<HRESULT>((error & 0x0000FFFFu) | (FACILITY_WIN32 << 16) | 0x80000000u);
}

struct GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];

  friend bool operator==(const GUID& a, const GUID& b) = default;
};
using IID = GUID;
using REFIID = const IID&;
using REFGUID = const GUID&;

inline constexpr IID IID_IUnknown = {
    0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
inline constexpr IID IID_IErrorInfo = {
    0x1CF2B120, 0x547D, 0x101B, {0x8E, 0x65, 0x08, 0x00, 0x2B, 0x2B, 0xD1, 0x19}};

// A length-prefixed wide string owned by whoever it is handed to, freed with SysFreeString.
using BSTR = wchar_t*;
// A copy of `text` (null gives null); null when there is no memory.
N7_EXPORT BSTR SysAllocString(const wchar_t* text);
// A string of `length` characters copied from `text`, or left zeroed when `text` is null.
N7_EXPORT BSTR SysAllocStringLen(const wchar_t* text, UINT length);
N7_EXPORT void SysFreeString(BSTR text);
// The characters in the string (0 for null).
N7_EXPORT UINT SysStringLen(BSTR text);

// The base of every COM interface: reference counting and interface queries. An object frees
// itself when its last reference is released; its destructor is virtual (and not public) so
// that implementations can be destroyed through their own Release.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor)
class IUnknown {
 public:
  virtual HRESULT QueryInterface(REFIID iid, void** object) = 0;
  virtual ULONG AddRef() = 0;
  virtual ULONG Release() = 0;

 protected:
  virtual ~IUnknown() = default;
};

// What an object reports about the error it just returned.
// NOLINTNEXTLINE(cppcoreguidelines-virtual-class-destructor): as IUnknown's
class IErrorInfo : public IUnknown {
 public:
  virtual HRESULT GetGUID(GUID* guid) = 0;
  virtual HRESULT GetSource(BSTR* source) = 0;
  virtual HRESULT GetDescription(BSTR* description) = 0;
  virtual HRESULT GetHelpFile(BSTR* help_file) = 0;
  virtual HRESULT GetHelpContext(DWORD* help_context) = 0;

 protected:
  ~IErrorInfo() override = default;
};

// A COM error: its HRESULT, the error information the object gave (or none) and the system's
// text for the HRESULT, built on first use. Thrown by value.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the COM support library's name
class N7_EXPORT _com_error {
 public:
  // Takes over the caller's reference to `error_info` (may be null), or adds one when `add_ref`.
  explicit _com_error(HRESULT hr, IErrorInfo* error_info = nullptr, bool add_ref = false) noexcept;
  // Copies share the error information (one more reference); each builds its own text.
  _com_error(const _com_error& that) noexcept;
  _com_error& operator=(const _com_error& that) noexcept;
  virtual ~_com_error();

  HRESULT Error() const noexcept { return m_hresult; }
  // The dispatch error code an HRESULT of the dispatch range carries, otherwise 0.
  WORD WCode() const noexcept { return HRESULTToWCode(m_hresult); }
  // The error information with a reference added for the caller, or null.
  IErrorInfo* ErrorInfo() const noexcept;
  // The system's text for the HRESULT without its final line break; without one, "IDispatch
  // error #<n>" for a dispatch code or "Unknown error 0x<HRESULT>". The text lives as long as the
  // object. Safe to call from several threads.
  const wchar_t* ErrorMessage() const noexcept;

  static WORD HRESULTToWCode(HRESULT hr) noexcept;
  static HRESULT WCodeToHRESULT(WORD code) noexcept;

 private:
  LPWSTR BuildMessage() const noexcept;

  HRESULT m_hresult;
  IErrorInfo* m_perrinfo;
  mutable LPWSTR m_pszMsg = nullptr;  // built once, swapped in atomically
};

// Throws _com_error(hr).
// NOLINTNEXTLINE(bugprone-reserved-identifier)
[[noreturn]] N7_EXPORT void _com_issue_error(HRESULT hr);
// Throws _com_error(hr, error_info), taking over the caller's reference.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
[[noreturn]] N7_EXPORT void _com_raise_error(HRESULT hr, IErrorInfo* error_info = nullptr);
