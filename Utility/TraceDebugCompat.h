// Trace calls of older client code: a flags word, a source file, a line and a wide message text.
//
// Each call becomes one message of the core trace services on the topic "Compatibility Topic",
// which the library registers at level -127 when it loads (so flagged messages stay off until
// N7_TRACE or the topic's owner raises the level). The flags word picks the message's level and
// subtype; the bits are tested in this order and the last one set wins:
//
//   0x8 -> 61/2, 0x4 -> 41/2, 0x2 -> 21/3, 0x1 -> 11/4, then each of 0x100 ... 0x8000 -> 61/2
//
// No listed bit leaves 61/2. A flagged message is traced only when its level is at most the
// topic's level; a flags word of 0 is always traced, at 61/2.
//
// The message text is traced as it is, in UTF-8: format sequences such as "%s" are not expanded,
// and the module text and the further arguments are accepted and ignored. Nothing is reported to
// the caller; a message that is not valid text throws the core conversion error. Any thread may
// call.
#pragma once

#include <cstdarg>

#include "n7utility/platform/base/Export.h"

// The argument-list form. `args` is the platform's argument list, as the caller's own variadic
// function received it.
N7_EXPORT void Trace(const wchar_t* module, unsigned long flags, const char* file, int line,
                     const wchar_t* message, va_list args);
// The variable-argument form: the same message, its further arguments ignored.
N7_EXPORT void Trace(const wchar_t* module, unsigned long flags, const char* file, int line,
                     const wchar_t* message, ...);

// A trace site that names its file and line once:
//
//   CTraceMsg(__FILE__, __LINE__).Print(L"Module", 0x2, L"connection %d lost", id);
//
// Meant as a short-lived temporary. The file text is kept, not copied: it must outlive the
// object, as a source-file literal does.
class N7_EXPORT CTraceMsg {
 public:
  CTraceMsg(const char* file, int line) : m_File(file), m_Line(line) {}

  // Traces `message` with the stored file and line, as Trace() does.
  void Print(const wchar_t* module, unsigned long flags, const wchar_t* message, ...) const;

 private:
  const char* m_File;
  int m_Line;
};
