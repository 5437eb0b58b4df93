// The core error services: error codes by dotted name, error records with a message and a source
// location, and the exception that carries them.
//
// An ErrorCode is a process-wide object, defined at namespace scope by the code that raises it
// and kept until the library unloads. An error is an immutable ErrorInfo shared by reference
// count; ErrorException carries one and derives from std::exception, so a host that knows nothing
// of this library still gets a readable what():
//   "error.n7crypto.srp.invalidArg: Invalid argument [at N7A::Foo, Utility/Authentication:42]"
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "n7utility/core/refcount.h"
#include "n7utility/platform/base/Export.h"

namespace n7core {

// One error code, named by a dotted path that begins "error." and then names the library and the
// area ("error.n7crypto.srp.invalidArg"). Construction registers the code for find(); codes are
// compared by address.
class N7_EXPORT ErrorCode {
 public:
  // `name` must outlive the code (a string literal). `exported` is always true in this library:
  // the code is visible to find(). Codes are made while the library loads, where a failure to
  // register could not be handled anyway: noexcept.
  ErrorCode(const char* name, bool exported) noexcept;
  ~ErrorCode();
  ErrorCode(const ErrorCode&) = delete;
  ErrorCode& operator=(const ErrorCode&) = delete;

  const char* name() const noexcept { return name_; }

  // The registered code with this name, or null.
  static const ErrorCode* find(std::string_view name);

 private:
  const char* name_;
};

// Where an error was raised: a function label, a source file label and a line.
class N7_EXPORT SourceLocation {
 public:
  constexpr SourceLocation() = default;
  constexpr SourceLocation(const char* function, const char* file, int line)
      : function_(function), file_(file), line_(line) {}

  const char* function() const noexcept { return function_; }
  const char* file() const noexcept { return file_; }
  int line() const noexcept { return line_; }

 private:
  const char* function_ = "";
  const char* file_ = "";
  int line_ = 0;
};

// Named values of an error: the message's "{@name}" placeholders are filled with them, and a
// reader of the error can look each one up (a parser's line and position, say).
class N7_EXPORT ErrorParams {
 public:
  // Adds a value; a later value under the same name hides the earlier one.
  ErrorParams& add(std::string name, std::string value);
  ErrorParams& add(std::string name, std::int64_t value);

  // The value under `name`, or null.
  const std::string* find(std::string_view name) const noexcept;
  bool empty() const noexcept { return values_.empty(); }
  const std::vector<std::pair<std::string, std::string>>& values() const noexcept {
    return values_;
  }

  // `message` with each "{@name}" replaced by its value; a placeholder without a value stays as
  // it is. Values are inserted as they are, never searched for placeholders themselves.
  std::string format(std::string_view message) const;

 private:
  std::vector<std::pair<std::string, std::string>> values_;
};

// One error: its code, its fixed narrow message and where it was raised. Immutable once created.
class N7_EXPORT ErrorInfo final : public RefCounted<AtomicRefCount> {
 public:
  static RefCountPtr<const ErrorInfo> create(const ErrorCode& code, std::string message,
                                             const SourceLocation& location);
  // An error with named parameters: message() is `message` with its placeholders filled.
  static RefCountPtr<const ErrorInfo> create(const ErrorCode& code, std::string_view message,
                                             ErrorParams params, const SourceLocation& location);
  // The error an exception stands for: an ErrorException's own error; for any other
  // std::exception "error.n7core.exception" with what() as the message; for anything else
  // "error.n7core.unknownException". `error` must not be null.
  static RefCountPtr<const ErrorInfo> from_exception(const std::exception_ptr& error);

  const ErrorCode& code() const noexcept { return *code_; }
  const std::string& message() const noexcept { return message_; }
  const SourceLocation& location() const noexcept { return location_; }
  const ErrorParams& params() const noexcept { return params_; }
  // "code: message [at function, file:line]".
  std::string to_string() const;

 private:
  ErrorInfo(const ErrorCode& code, std::string message, ErrorParams params,
            const SourceLocation& location);

  const ErrorCode* code_;
  std::string message_;
  ErrorParams params_;
  SourceLocation location_;
};

// The exception that carries an ErrorInfo.
class N7_EXPORT ErrorException : public std::exception {
 public:
  explicit ErrorException(RefCountPtr<const ErrorInfo> info);

  const ErrorInfo& info() const noexcept { return *info_; }
  const RefCountPtr<const ErrorInfo>& info_ptr() const noexcept { return info_; }
  // Code, message and location, as ErrorInfo::to_string().
  const char* what() const noexcept override;

  [[noreturn]] static void throw_error(RefCountPtr<const ErrorInfo> info);

 private:
  RefCountPtr<const ErrorInfo> info_;
  std::string what_;
};

// Builds an error whose message is put together piece by piece, with named parameters added as
// they become known, and then records or throws it.
class N7_EXPORT ErrorComposer {
 public:
  ErrorComposer(const ErrorCode& code, const SourceLocation& location)
      : code_(&code), location_(location) {}

  // Appends to the message, placeholders included.
  ErrorComposer& append(std::string_view text);
  ErrorComposer& param(std::string name, std::string value);
  ErrorComposer& param(std::string name, std::int64_t value);

  RefCountPtr<const ErrorInfo> info() const;
  [[noreturn]] void raise() const;

 private:
  const ErrorCode* code_;
  SourceLocation location_;
  std::string message_;
  ErrorParams params_;
};

// Creates the error and throws it.
[[noreturn]] N7_EXPORT void throw_error(const ErrorCode& code, std::string message,
                                        const SourceLocation& location);
// Creates the error with named parameters and throws it.
[[noreturn]] N7_EXPORT void throw_error(const ErrorCode& code, std::string_view message,
                                        ErrorParams params, const SourceLocation& location);

// Throws "error.n7core.winerror" for a Windows error code, with the code in the message
// ("Windows error 14"). `exported` is always true in this library.
[[noreturn]] N7_EXPORT void throw_winerror(const SourceLocation& location, std::uint32_t error,
                                           bool exported);

// A checked narrowing (safe_cast.h) would change the value: throw with the target type's name
// and the 64-bit value.
[[noreturn]] N7_EXPORT void safe_cast_throw_value_truncated(const char* type, std::int64_t value);
[[noreturn]] N7_EXPORT void safe_cast_throw_value_truncated(const char* type, std::uint64_t value);
[[noreturn]] N7_EXPORT void safe_cast_throw_sign_reversal(const char* type, std::int64_t value);
[[noreturn]] N7_EXPORT void safe_cast_throw_sign_reversal(const char* type, std::uint64_t value);
[[noreturn]] N7_EXPORT void safe_cast_throw_negative_to_unsigned(const char* type,
                                                                 std::int64_t value);

// Stores in `out` the error for `text[0..length)` that is not a number of type `type`
// ("error.n7core.string.notANumber").
N7_EXPORT void string_to_failure(const char* text, std::size_t length, const char* type,
                                 RefCountPtr<const ErrorInfo>& out);

// Throws "error.n7core.string.embeddedNul": a text that must end at its terminator holds a NUL
// within its length.
[[noreturn]] N7_EXPORT void raise_embedded_nul_error();

// The codes n7core raises itself.
namespace errors {
N7_EXPORT extern const ErrorCode winerror;              // error.n7core.winerror
N7_EXPORT extern const ErrorCode value_truncated;       // error.n7core.safeCast.valueTruncated
N7_EXPORT extern const ErrorCode sign_reversal;         // error.n7core.safeCast.signReversal
N7_EXPORT extern const ErrorCode negative_to_unsigned;  // error.n7core.safeCast.negativeToUnsigned
N7_EXPORT extern const ErrorCode not_a_number;          // error.n7core.string.notANumber
N7_EXPORT extern const ErrorCode embedded_nul;          // error.n7core.string.embeddedNul
N7_EXPORT extern const ErrorCode invalid_utf8;          // error.n7core.string.invalidUtf8
N7_EXPORT extern const ErrorCode invalid_utf16;         // error.n7core.string.invalidUtf16
N7_EXPORT extern const ErrorCode base64_invalid_character;  // error.n7core.base64.invalidCharacter
N7_EXPORT extern const ErrorCode base64_truncated;          // error.n7core.base64.truncatedSequence
N7_EXPORT extern const ErrorCode std_exception;             // error.n7core.exception
N7_EXPORT extern const ErrorCode unknown_exception;         // error.n7core.unknownException
}  // namespace errors

}  // namespace n7core
