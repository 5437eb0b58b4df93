// Trace calls with a flags word, mapped onto the core trace services.

#include "n7utility/Utility/TraceDebugCompat.h"

#include <array>
#include <cstdint>
#include <string>

#include "n7utility/core/text.h"
#include "n7utility/core/trace.h"

namespace {

struct LevelAndSubtype {
  std::int8_t level;
  int subtype;
};

struct FlagBit {
  unsigned long bit;
  LevelAndSubtype meaning;
};

constexpr LevelAndSubtype kUnflagged = {61, 2};

// Tested in this order; a later bit that is set overrides an earlier one.
constexpr std::array<FlagBit, 12> kFlagBits = {{
    {0x8, {61, 2}},
    {0x4, {41, 2}},
    {0x2, {21, 3}},
    {0x1, {11, 4}},
    {0x100, {61, 2}},
    {0x200, {61, 2}},
    {0x400, {61, 2}},
    {0x800, {61, 2}},
    {0x1000, {61, 2}},
    {0x2000, {61, 2}},
    {0x4000, {61, 2}},
    {0x8000, {61, 2}},
}};

LevelAndSubtype FromFlags(unsigned long flags) {
  LevelAndSubtype result = kUnflagged;
  for (const FlagBit& flag : kFlagBits) {
    if ((flags & flag.bit) != 0) result = flag.meaning;
  }
  return result;
}

// Registered while the library loads, before any client call can arrive.
n7trace::intTopicHdl* const g_compatTopic =  // NOLINT(cert-err58-cpp): lives from load to unload
    n7trace::get_trace_mgr().topic_handle("Compatibility Topic", 0, -127);

}  // namespace

void Trace(const wchar_t* /*module*/, unsigned long flags, const char* file, int line,
           const wchar_t* message, va_list /*args*/) {
  const LevelAndSubtype traced = FromFlags(flags);
  // Unflagged messages bypass the level check: older code relies on them always showing.
  if (flags != 0 && !n7trace::trace_enabled(g_compatTopic, traced.level)) return;
  const std::string text = n7core::to_string(message);
  n7trace::TraceMessage(g_compatTopic, traced.level, "Trace()", file, line, "{}")
          .msg_type(2)
          .user_msg_type(traced.subtype)
      << text;
}

void Trace(const wchar_t* module, unsigned long flags, const char* file, int line,
           const wchar_t* message, ...) {
  va_list args;
  va_start(args, message);
  Trace(module, flags, file, line, message, args);
  va_end(args);
}

void CTraceMsg::Print(const wchar_t* module, unsigned long flags, const wchar_t* message,
                      ...) const {
  va_list args;
  va_start(args, message);
  Trace(module, flags, m_File, m_Line, message, args);
  va_end(args);
}
