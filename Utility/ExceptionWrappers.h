// Helpers that turn failures into text:
// - CSE_Exception, a structured exception (a processor fault) caught as an ordinary exception
//   object, thrown by its translator CSE_ExceptionTransFunction;
// - CComException, a COM error carried as a framework exception;
// - CSystemErrorString, the system's text for a Windows error code;
// - appends of a framework exception's text, and of texts cut to a length limit, to a CString.
//
//   _set_se_translator(&CSE_ExceptionTransFunction);  // on each thread of the host
//   try { ... } catch (CSE_Exception* e) {
//     if (e != nullptr) { log << e->getErrorMessage(); e->Delete(); }
//   }
//
// Code that should have its faults translated must be built with -fnon-call-exceptions (see
// platform/kernel/StructuredExceptions.h).
#pragma once

#include <vector>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/ComError.h"
#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/kernel/StructuredExceptions.h"

// A structured exception: the chain of exception records and the registers at the fault.
// Instances live on the heap and end only through Delete.
class N7_EXPORT CSE_Exception {
 public:
  // No records; the code is 0 and the context all zeros.
  CSE_Exception();
  // Copies the records of the chain that starts at `pointers->ExceptionRecord` (the copies are
  // linked to each other, not to the originals) and the context.
  CSE_Exception(DWORD code, EXCEPTION_POINTERS* pointers);
  CSE_Exception(const CSE_Exception&) = delete;
  CSE_Exception& operator=(const CSE_Exception&) = delete;

  DWORD getExceptionCode() const { return m_code; }
  LONG getNumExceptionRecords() const;
  // The record at `index` in chain order (0 is the raised exception's own); an index out of
  // range throws CInvalidArgException*.
  const EXCEPTION_RECORD& getExceptionRecord(LONG index) const;

  // "A Win64 exception '0x<code>' has occurred.  Exception Context Record: [Rbp=0x... Rip=0x...
  // SegCs=0x... EFlags=0x... Rsp=0x... SegSs=0x...]", from the library's string table. The values
  // are upper-case hexadecimal without leading zeros; as the message's !X! inserts format them,
  // the 64-bit registers show their low 32 bits. Sets `*help_context` to 0 when given.
  CString getErrorMessage(UINT* help_context = nullptr);
  // Copies at most `size` - 1 characters of the message and a terminator into `buffer`. A null
  // buffer or a size of 0 gives FALSE and writes nothing; otherwise TRUE.
  BOOL getErrorMessage(wchar_t* buffer, UINT size, UINT* help_context = nullptr);

  // Destroys and frees the instance.
  void Delete();

 private:
  ~CSE_Exception();
  void BuildExceptionRecordArray(const EXCEPTION_RECORD* first);

  std::vector<EXCEPTION_RECORD> m_records;
  CONTEXT m_context;
  DWORD m_code;
};

// A translator for _set_se_translator: throws a new CSE_Exception* for the fault, or a null
// CSE_Exception* when there is no memory for one. Never returns.
N7_EXPORT void CSE_ExceptionTransFunction(unsigned int code, EXCEPTION_POINTERS* pointers);

// A COM error as a framework exception.
class N7_EXPORT CComException : public CException {
 public:
  // Copies the error, adding a reference to its error information.
  CComException(const _com_error& error, BOOL auto_delete);
  // Takes over the caller's reference to `error_info` (may be null).
  CComException(HRESULT hr, IErrorInfo* error_info, BOOL auto_delete);
  ~CComException() override;

  // Throws a new auto-deleting CComException* for the error, taking over the reference to
  // `error_info`. Without memory for one, throws the process-wide fallback instance (not
  // auto-deleting) after giving it this error; threads that do so at once share it.
  [[noreturn]] static void Throw(HRESULT hr, IErrorInfo* error_info);

  using CException::GetErrorMessage;
  // The COM error's text, cut to the buffer (at most `max_error` - 1 characters and a
  // terminator); nothing is written when `max_error` is 0. Always TRUE.
  BOOL GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context = nullptr) override;

  // NOLINTBEGIN(google-explicit-constructor): the framework's conversions
  operator _com_error&() { return m_error; }
  operator const _com_error&() const { return m_error; }
  // NOLINTEND(google-explicit-constructor)

 private:
  static CComException& Fallback();

  _com_error m_error;
};

// The system's text for a Windows error code: "5 (0x5): Access is denied.", without a line end.
// A code without text (or whose text is too long) gives the bare "<code> (0x<code>)".
class N7_EXPORT CSystemErrorString : public CString {
 public:
  explicit CSystemErrorString(DWORD code);
};

namespace Morvane_Inc {

// A text to append with at most `limit` characters. A negative `length` means that the text is
// measured up to its terminator. A text longer than the limit keeps its head and its tail around
// " ...": with h = limit / 2, the first h characters, " ...", and the last limit - h - 4.
// Limits below 7 have no room for that: the first `limit` characters are appended, without
// marker. A null text appends nothing.
//
// The narrow form holds UTF-8 and counts bytes; the head is taken from the converted text and
// the tail from the text's last bytes, skipping the continuation bytes of a character cut in
// two (the tail then has fewer characters). Text that is not UTF-8 throws
// "error.n7core.string.invalidUtf8".
struct LimitTextA {
  const char* text;
  int length;
  int limit;
};

// The wide form; lengths and limits count wide characters.
struct LimitTextW {
  const wchar_t* text;
  int length;
  int limit;
};

}  // namespace Morvane_Inc

// Appends the exception's text (up to 511 characters), or "No error text provided." when it has
// none. When asking for the text throws, nothing is appended: a framework exception is deleted,
// any other is swallowed.
N7_EXPORT CString& operator<<(CString& out, CException& exception);
// Append the text within its limit; a measured length beyond 32 bits throws the checked-cast
// error.
N7_EXPORT CString& operator<<(CString& out, const Morvane_Inc::LimitTextA& text);
N7_EXPORT CString& operator<<(CString& out, const Morvane_Inc::LimitTextW& text);
