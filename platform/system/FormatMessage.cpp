#include "n7utility/platform/system/FormatMessage.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/FormatMessage_internal.h"
#include "n7utility/platform/system/LocalMemory.h"
#include "n7utility/platform/system/Resources.h"
#include "n7utility/platform/system/SystemMessageTable_internal.h"

namespace {

constexpr DWORD kErrorResourceLangNotFound = 1815;
// Widths and precisions beyond this are taken for garbage arguments, not for layout.
constexpr int kMaxFieldWidth = 0xFFFF;

// Why a message could not be made: the Win32 error code for the caller.
struct Failure {
  DWORD error;
};

[[noreturn]] void Fail(DWORD error) { throw Failure{error}; }

// The size prefix of an insert's format.
enum class Size { kDefault, kChar, kShort, kLong, kLongLong, kPointer, kWide };

// An insert's printf-like format, the text between its two '!'.
struct InsertFormat {
  std::wstring flags;
  int width = -1;
  bool width_from_argument = false;
  int precision = -1;
  bool precision_from_argument = false;
  Size size = Size::kDefault;
  wchar_t conversion = L's';

  // The arguments the insert takes: width and precision given by '*' come before the value.
  int ArgumentCount() const {
    return 1 + (width_from_argument ? 1 : 0) + (precision_from_argument ? 1 : 0);
  }
};

// One piece of a parsed message: literal text with its escapes resolved, or an insert.
struct Piece {
  std::wstring text;
  int index = 0;  // 0 for literal text, otherwise the insert's argument number
  InsertFormat format;
};

// Reads a field width or precision at `spec[at]`: digits, '*' or nothing (-1).
void ParseField(std::wstring_view spec, std::size_t& at, int& value, bool& from_argument) {
  if (at < spec.size() && spec[at] == L'*') {
    from_argument = true;
    ++at;
    return;
  }
  for (; at < spec.size() && spec[at] >= L'0' && spec[at] <= L'9'; ++at) {
    value = std::max(value, 0) * 10 + (spec[at] - L'0');
    if (value > kMaxFieldWidth) Fail(ERROR_INVALID_PARAMETER);
  }
}

Size ParseSize(std::wstring_view spec, std::size_t& at) {
  struct Prefix {
    std::wstring_view text;
    Size size;
  };
  // Longer prefixes first, so "ll" is not read as "l".
  static constexpr Prefix kPrefixes[] = {{L"I64", Size::kLongLong}, {L"I32", Size::kLong},
                                         {L"ll", Size::kLongLong},  {L"hh", Size::kChar},
                                         {L"h", Size::kShort},      {L"l", Size::kLong},
                                         {L"w", Size::kWide},       {L"I", Size::kPointer}};
  for (const Prefix& prefix : kPrefixes) {
    if (spec.substr(at).starts_with(prefix.text)) {
      at += prefix.text.size();
      return prefix.size;
    }
  }
  return Size::kDefault;
}

InsertFormat ParseInsertFormat(std::wstring_view spec) {
  InsertFormat format;
  std::size_t at = 0;
  for (; at < spec.size() && std::wstring_view(L"-+ #0").find(spec[at]) != std::wstring_view::npos;
       ++at) {
    format.flags += spec[at];
  }
  ParseField(spec, at, format.width, format.width_from_argument);
  if (at < spec.size() && spec[at] == L'.') {
    ++at;
    ParseField(spec, at, format.precision, format.precision_from_argument);
    if (!format.precision_from_argument) format.precision = std::max(format.precision, 0);
  }
  format.size = ParseSize(spec, at);
  if (at + 1 != spec.size() ||
      std::wstring_view(L"sScCdiuxXop").find(spec[at]) == std::wstring_view::npos) {
    Fail(ERROR_INVALID_PARAMETER);
  }
  format.conversion = spec[at];
  return format;
}

// Cuts a message into literal text and inserts, resolving the escapes as it goes.
class MessageParser {
 public:
  MessageParser(std::wstring_view message, bool ignore_inserts, bool keep_line_breaks)
      : message_(message), ignore_inserts_(ignore_inserts), keep_line_breaks_(keep_line_breaks) {}

  std::vector<Piece> Parse() {
    while (at_ < message_.size()) {
      const wchar_t c = message_[at_++];
      if (c == L'%') {
        if (ParseEscape()) break;
      } else if (c == L'\r' || c == L'\n') {
        AppendLineBreak(c);
      } else {
        literal_ += c;
      }
    }
    FlushLiteral();
    return std::move(pieces_);
  }

 private:
  // The message's own line breaks stay, or become a blank when the caller sets a line width.
  void AppendLineBreak(wchar_t c) {
    if (keep_line_breaks_) {
      literal_ += c;
      return;
    }
    if (c == L'\r' && at_ < message_.size() && message_[at_] == L'\n') ++at_;
    literal_ += L' ';
  }

  // Reads what follows a '%'; returns true at %0, which ends the message.
  bool ParseEscape() {
    if (at_ == message_.size()) {
      literal_ += L'%';
      return false;
    }
    const wchar_t c = message_[at_];
    if (c >= L'1' && c <= L'9') {
      ParseInsert();
      return false;
    }
    ++at_;
    switch (c) {
      case L'0':
        return true;
      case L'n':
        literal_ += L"\r\n";
        break;
      case L'r':
        literal_ += L'\r';
        break;
      case L't':
        literal_ += L'\t';
        break;
      default:
        literal_ += c;
    }
    return false;
  }

  // Reads %N or %NN with an optional !format!; the '%' is behind `at_`.
  void ParseInsert() {
    const std::size_t start = at_ - 1;
    int index = message_[at_++] - L'0';
    if (at_ < message_.size() && message_[at_] >= L'0' && message_[at_] <= L'9') {
      index = index * 10 + (message_[at_++] - L'0');
    }
    std::wstring_view spec = L"s";
    if (at_ < message_.size() && message_[at_] == L'!') {
      const std::size_t close = message_.find(L'!', at_ + 1);
      if (close == std::wstring_view::npos) Fail(ERROR_INVALID_PARAMETER);
      spec = message_.substr(at_ + 1, close - at_ - 1);
      at_ = close + 1;
    }
    if (ignore_inserts_) {
      literal_ += message_.substr(start, at_ - start);
      return;
    }
    FlushLiteral();
    pieces_.push_back(Piece{{}, index, ParseInsertFormat(spec)});
  }

  void FlushLiteral() {
    if (literal_.empty()) return;
    pieces_.push_back(Piece{std::move(literal_), 0, {}});
    literal_.clear();
  }

  std::wstring_view message_;
  bool ignore_inserts_;
  bool keep_line_breaks_;
  std::size_t at_ = 0;
  std::wstring literal_;
  std::vector<Piece> pieces_;
};

// The insert values, numbered from 1, from an argument array or a va_list.
class InsertArguments {
 public:
  // `count` is the highest argument number the message uses.
  InsertArguments(DWORD flags, va_list* arguments, int count) {
    if (count == 0) return;
    if (arguments == nullptr) Fail(ERROR_INVALID_PARAMETER);
    if ((flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) != 0) {
      array_ = reinterpret_cast<const DWORD_PTR*>(arguments);
      return;
    }
    // The analyser does not follow a va_list passed by pointer.
    // NOLINTBEGIN(clang-analyzer-valist.Uninitialized)
    va_list list;
    va_copy(list, *arguments);
    for (int i = 0; i < count; ++i) values_.push_back(va_arg(list, DWORD_PTR));
    // NOLINTEND(clang-analyzer-valist.Uninitialized)
    va_end(list);
    array_ = values_.data();
  }

  DWORD_PTR operator[](int number) const {
    if (array_ == nullptr) Fail(ERROR_INVALID_PARAMETER);
    return array_[number - 1];
  }

 private:
  std::vector<DWORD_PTR> values_;
  const DWORD_PTR* array_ = nullptr;
};

int HighestArgument(const std::vector<Piece>& pieces) {
  int highest = 0;
  for (const Piece& piece : pieces) {
    if (piece.index != 0) {
      highest = std::max(highest, piece.index + piece.format.ArgumentCount() - 1);
    }
  }
  return highest;
}

std::wstring Pad(std::wstring text, const InsertFormat& format) {
  const auto width = static_cast<std::size_t>(std::max(format.width, 0));
  if (text.size() >= width) return text;
  const std::wstring blanks(width - text.size(), L' ');
  return format.flags.find(L'-') != std::wstring::npos ? text + blanks : blanks + text;
}

// A narrow insert is UTF-8; bytes that are not stand for themselves (Latin-1), so that no text
// is lost.
std::wstring WidenNarrow(std::string_view text) {
  if (std::optional<std::wstring> wide = n7platform::codec::FromUtf8(text)) return *wide;
  std::wstring bytes;
  for (const char c : text) bytes += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return bytes;
}

bool IsNarrowText(const InsertFormat& format) {
  if (format.conversion == L's' || format.conversion == L'c') {
    return format.size == Size::kShort || format.size == Size::kChar;
  }
  return format.size != Size::kLong && format.size != Size::kWide;
}

std::wstring FormatString(DWORD_PTR value, const InsertFormat& format) {
  std::wstring text;
  const bool limited = format.precision >= 0;
  const auto limit = static_cast<std::size_t>(format.precision);
  if (value == 0) {
    text = L"(null)";
  } else if (IsNarrowText(format)) {
    // The argument array carries pointers as integers.
    const auto* narrow = reinterpret_cast<const char*>(value);  // NOLINT(performance-no-int-to-ptr)
    text = WidenNarrow(
        std::string_view(narrow, limited ? strnlen(narrow, limit) : std::strlen(narrow)));
  } else {
    const auto* wide =
        reinterpret_cast<const wchar_t*>(value);  // NOLINT(performance-no-int-to-ptr)
    text.assign(wide, limited ? wcsnlen(wide, limit) : std::wcslen(wide));
  }
  if (limited && text.size() > limit) text.resize(limit);
  return Pad(std::move(text), format);
}

std::wstring FormatCharacter(DWORD_PTR value, const InsertFormat& format) {
  const wchar_t c = IsNarrowText(format) ? static_cast<wchar_t>(static_cast<unsigned char>(value))
                                         : static_cast<wchar_t>(static_cast<DWORD>(value));
  return Pad(std::wstring(1, c), format);
}

int IntegerBits(Size size) {
  switch (size) {
    case Size::kChar:
      return 8;
    case Size::kShort:
      return 16;
    case Size::kDefault:
    case Size::kLong:
      return 32;
    case Size::kLongLong:
    case Size::kPointer:
      return 64;
    case Size::kWide:
      break;
  }
  Fail(ERROR_INVALID_PARAMETER);
}

std::wstring FormatInteger(DWORD_PTR value, const InsertFormat& format) {
  const int bits = IntegerBits(format.size);
  std::uint64_t raw = value;
  if (bits < 64) {
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    raw &= mask;
    const bool negative = (raw >> (bits - 1)) != 0;
    if (negative && (format.conversion == L'd' || format.conversion == L'i')) raw |= ~mask;
  }
  std::wstring spec = L"%" + format.flags;
  if (format.width >= 0) spec += std::to_wstring(format.width);
  if (format.precision >= 0) spec += L"." + std::to_wstring(format.precision);
  spec += L"ll";
  spec += format.conversion;
  std::vector<wchar_t> out(static_cast<std::size_t>(std::max(format.width, format.precision)) + 32);
  const int written =
      format.conversion == L'd' || format.conversion == L'i'
          ? std::swprintf(out.data(), out.size(), spec.c_str(), static_cast<long long>(raw))
          : std::swprintf(out.data(), out.size(), spec.c_str(),
                          static_cast<unsigned long long>(raw));
  if (written < 0) Fail(ERROR_INVALID_PARAMETER);
  return std::wstring(out.data(), static_cast<std::size_t>(written));
}

std::wstring FormatPointer(DWORD_PTR value, const InsertFormat& format) {
  wchar_t out[24];
  std::swprintf(out, std::size(out), L"%016llX", static_cast<unsigned long long>(value));
  return Pad(out, format);
}

// A width or precision read from the arguments: a negative width left-justifies, a negative
// precision is none.
void TakeFieldArguments(InsertFormat& format, const InsertArguments& arguments, int& next) {
  if (format.width_from_argument) {
    format.width = static_cast<int>(static_cast<LONG>(arguments[next++]));
    if (format.width < 0) {
      format.flags += L'-';
      format.width = -format.width;
    }
  }
  if (format.precision_from_argument) {
    format.precision = std::max(static_cast<int>(static_cast<LONG>(arguments[next++])), -1);
  }
  if (format.width > kMaxFieldWidth || format.precision > kMaxFieldWidth) {
    Fail(ERROR_INVALID_PARAMETER);
  }
}

std::wstring FormatInsert(const Piece& insert, const InsertArguments& arguments) {
  InsertFormat format = insert.format;
  int next = insert.index;
  TakeFieldArguments(format, arguments, next);
  const DWORD_PTR value = arguments[next];
  switch (format.conversion) {
    case L's':
    case L'S':
      return FormatString(value, format);
    case L'c':
    case L'C':
      return FormatCharacter(value, format);
    case L'p':
      return FormatPointer(value, format);
    default:
      return FormatInteger(value, format);
  }
}

// Breaks each line longer than `width` at its last blank within the width, or at the width.
std::wstring WrapLines(std::wstring_view text, std::size_t width) {
  std::wstring out;
  while (!text.empty()) {
    const std::size_t end_of_line = std::min(text.find(L"\r\n"), text.size());
    if (end_of_line <= width) {
      const std::size_t taken = std::min(end_of_line + 2, text.size());
      out += text.substr(0, taken);
      text.remove_prefix(taken);
      continue;
    }
    const std::size_t blank = text.substr(0, width + 1).rfind(L' ');
    const bool at_blank = blank != std::wstring_view::npos && blank != 0;
    const std::size_t cut = at_blank ? blank : width;
    out += text.substr(0, cut);
    out += L"\r\n";
    text.remove_prefix(at_blank ? cut + 1 : cut);
  }
  return out;
}

std::wstring FormatText(std::wstring_view message, DWORD flags, va_list* arguments) {
  const DWORD width = flags & FORMAT_MESSAGE_MAX_WIDTH_MASK;
  MessageParser parser(message, (flags & FORMAT_MESSAGE_IGNORE_INSERTS) != 0, width == 0);
  const std::vector<Piece> pieces = parser.Parse();
  const InsertArguments values(flags, arguments, HighestArgument(pieces));
  std::wstring text;
  for (const Piece& piece : pieces)
    text += piece.index == 0 ? piece.text : FormatInsert(piece, values);
  if (width != 0 && width != FORMAT_MESSAGE_MAX_WIDTH_MASK) return WrapLines(text, width);
  return text;
}

bool IsSystemLanguage(DWORD language) {
  const WORD primary = PRIMARYLANGID(language);
  return (language >> 16) == 0 && (primary == LANG_NEUTRAL || primary == LANG_ENGLISH);
}

std::wstring LoadMessage(DWORD flags, LPCVOID source, DWORD id, DWORD language) {
  if ((flags & FORMAT_MESSAGE_FROM_STRING) != 0) {
    if (source == nullptr) Fail(ERROR_INVALID_PARAMETER);
    return static_cast<const wchar_t*>(source);
  }
  if ((flags & (FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM)) == 0) {
    Fail(ERROR_INVALID_PARAMETER);
  }
  DWORD error = ERROR_MR_MID_NOT_FOUND;
  if ((flags & FORMAT_MESSAGE_FROM_HMODULE) != 0) {
    std::wstring text;
    error = n7platform::FindModuleMessage(source, id, language, text);
    if (error == ERROR_SUCCESS) return text;
  }
  if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) != 0) {
    if (!IsSystemLanguage(language)) Fail(kErrorResourceLangNotFound);
    const wchar_t* text = n7platform::FindSystemMessage(id);
    if (text == nullptr) Fail(ERROR_MR_MID_NOT_FOUND);
    return text;
  }
  Fail(error);
}

// Stores the text in the caller's buffer or in a block allocated for the caller.
DWORD Deliver(const std::wstring& text, DWORD flags, LPWSTR buffer, DWORD size) {
  if (buffer == nullptr) Fail(ERROR_INVALID_PARAMETER);
  wchar_t* target = buffer;
  if ((flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0) {
    // An empty result is a 0 return, which callers take for failure: nothing to free then.
    if (text.empty()) return 0;
    const std::size_t chars = std::max<std::size_t>(text.size() + 1, size);
    target = static_cast<wchar_t*>(LocalAlloc(LMEM_FIXED, chars * sizeof(wchar_t)));
    if (target == nullptr) Fail(ERROR_NOT_ENOUGH_MEMORY);
    *reinterpret_cast<LPWSTR*>(buffer) = target;
  } else if (text.size() + 1 > size) {
    Fail(ERROR_INSUFFICIENT_BUFFER);
  }
  std::wmemcpy(target, text.data(), text.size());
  target[text.size()] = L'\0';
  return static_cast<DWORD>(text.size());
}

}  // namespace

namespace n7platform {

DWORD FindModuleMessage(LPCVOID module, DWORD id, DWORD language, std::wstring& text) {
  if (language > 0xFFFF) return ERROR_INVALID_PARAMETER;
  std::optional<std::wstring> found = LoadMessageText(
      static_cast<HMODULE>(const_cast<void*>(module)), id, static_cast<WORD>(language));
  if (!found) return GetLastError();
  text = std::move(*found);
  return ERROR_SUCCESS;
}

}  // namespace n7platform

DWORD FormatMessageW(DWORD flags, LPCVOID source, DWORD message_id, DWORD language_id,
                     LPWSTR buffer, DWORD size, va_list* arguments) {
  const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
  if (allocate && buffer != nullptr) *reinterpret_cast<LPWSTR*>(buffer) = nullptr;
  try {
    const std::wstring message = LoadMessage(flags, source, message_id, language_id);
    const std::wstring text = FormatText(message, flags, arguments);
    const DWORD count = Deliver(text, flags, buffer, size);
    if (count == 0) SetLastError(ERROR_SUCCESS);
    return count;
  } catch (const Failure& failure) {
    SetLastError(failure.error);
  } catch (const std::bad_alloc&) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  }
  return 0;
}
