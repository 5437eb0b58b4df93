#include "n7utility/core/error.h"

#include <string>
#include <unordered_map>
#include <utility>

#include "n7utility/core/mutex_internal.h"
#include "n7utility/platform/base/NoDestructor.h"

namespace n7core {

namespace errors {
const ErrorCode winerror("error.n7core.winerror", true);
const ErrorCode value_truncated("error.n7core.safeCast.valueTruncated", true);
const ErrorCode sign_reversal("error.n7core.safeCast.signReversal", true);
const ErrorCode negative_to_unsigned("error.n7core.safeCast.negativeToUnsigned", true);
const ErrorCode not_a_number("error.n7core.string.notANumber", true);
const ErrorCode embedded_nul("error.n7core.string.embeddedNul", true);
const ErrorCode invalid_utf8("error.n7core.string.invalidUtf8", true);
const ErrorCode invalid_utf16("error.n7core.string.invalidUtf16", true);
const ErrorCode base64_invalid_character("error.n7core.base64.invalidCharacter", true);
const ErrorCode base64_truncated("error.n7core.base64.truncatedSequence", true);
const ErrorCode std_exception("error.n7core.exception", true);
const ErrorCode unknown_exception("error.n7core.unknownException", true);
}  // namespace errors

namespace {

// Codes by name. Codes register from static constructors of any module in any order, and may be
// looked up by threads that outlive static destruction, so the registry is made on first use and
// never destroyed.
class ErrorCodeRegistry {
 public:
  // A second code with a name already taken is not registered; find() keeps returning the first.
  void add(const ErrorCode& code) EXCLUDES(mutex_) {
    internal::MutexLock lock(mutex_);
    codes_.emplace(code.name(), &code);
  }

  void remove(const ErrorCode& code) EXCLUDES(mutex_) {
    internal::MutexLock lock(mutex_);
    const auto it = codes_.find(code.name());
    if (it != codes_.end() && it->second == &code) codes_.erase(it);
  }

  const ErrorCode* find(std::string_view name) EXCLUDES(mutex_) {
    internal::MutexLock lock(mutex_);
    const auto it = codes_.find(name);
    return it == codes_.end() ? nullptr : it->second;
  }

 private:
  internal::Mutex mutex_;
  std::unordered_map<std::string_view, const ErrorCode*> codes_ GUARDED_BY(mutex_);
};

ErrorCodeRegistry& registry() {
  static n7platform::NoDestructor<ErrorCodeRegistry> instance;
  return *instance;
}

constexpr SourceLocation here(const char* function, int line) {
  return SourceLocation(function, "core/error", line);
}

template <typename Value>
[[noreturn]] void raise_cast_error(const ErrorCode& code, const char* function, int line,
                                   const char* problem, const char* type, Value value) {
  throw_error(code, "Value " + std::to_string(value) + " " + problem + " " + type,
              here(function, line));
}

// The text of a failed conversion as it goes into a message: bytes outside printable ASCII as
// \xHH, and long texts cut short, so a binary or huge input still gives a readable message.
std::string quote_text(const char* text, std::size_t length) {
  constexpr std::size_t kMaxShown = 64;
  std::string quoted = "'";
  for (std::size_t i = 0; i < length && i < kMaxShown; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte >= 0x20 && byte < 0x7F) {
      quoted.push_back(static_cast<char>(byte));
    } else {
      constexpr char kHex[] = "0123456789ABCDEF";
      quoted += "\\x";
      quoted.push_back(kHex[byte >> 4]);
      quoted.push_back(kHex[byte & 0xF]);
    }
  }
  if (length > kMaxShown) quoted += "...";
  return quoted + "'";
}

}  // namespace

ErrorCode::ErrorCode(const char* name, bool exported) noexcept : name_(name) {
  if (exported) registry().add(*this);
}

ErrorCode::~ErrorCode() { registry().remove(*this); }

const ErrorCode* ErrorCode::find(std::string_view name) { return registry().find(name); }

ErrorParams& ErrorParams::add(std::string name, std::string value) {
  values_.emplace_back(std::move(name), std::move(value));
  return *this;
}

ErrorParams& ErrorParams::add(std::string name, std::int64_t value) {
  return add(std::move(name), std::to_string(value));
}

const std::string* ErrorParams::find(std::string_view name) const noexcept {
  for (auto it = values_.rbegin(); it != values_.rend(); ++it) {
    if (it->first == name) return &it->second;
  }
  return nullptr;
}

std::string ErrorParams::format(std::string_view message) const {
  constexpr std::string_view kOpen = "{@";
  std::string out;
  out.reserve(message.size());
  while (!message.empty()) {
    const std::size_t open = message.find(kOpen);
    const std::size_t close =
        open == std::string_view::npos ? open : message.find('}', open + kOpen.size());
    if (close == std::string_view::npos) break;
    const std::string* value =
        find(message.substr(open + kOpen.size(), close - open - kOpen.size()));
    out.append(message.substr(0, open));
    out.append(value != nullptr ? std::string_view{*value}
                                : message.substr(open, close - open + 1));
    message.remove_prefix(close + 1);
  }
  out.append(message);
  return out;
}

ErrorInfo::ErrorInfo(const ErrorCode& code, std::string message, ErrorParams params,
                     const SourceLocation& location)
    : code_(&code), message_(std::move(message)), params_(std::move(params)), location_(location) {}

RefCountPtr<const ErrorInfo> ErrorInfo::create(const ErrorCode& code, std::string message,
                                               const SourceLocation& location) {
  return RefCountPtr<const ErrorInfo>(
      new ErrorInfo(code, std::move(message), ErrorParams(), location));
}

RefCountPtr<const ErrorInfo> ErrorInfo::create(const ErrorCode& code, std::string_view message,
                                               ErrorParams params, const SourceLocation& location) {
  std::string text = params.format(message);
  return RefCountPtr<const ErrorInfo>(
      new ErrorInfo(code, std::move(text), std::move(params), location));
}

RefCountPtr<const ErrorInfo> ErrorInfo::from_exception(const std::exception_ptr& error) {
  const SourceLocation location("n7core::ErrorInfo::from_exception", "core/error", __LINE__);
  try {
    std::rethrow_exception(error);
  } catch (const ErrorException& e) {
    return e.info_ptr();
  } catch (const std::exception& e) {
    return create(errors::std_exception, e.what(), location);
  } catch (...) {
    return create(errors::unknown_exception, "Unknown exception", location);
  }
}

std::string ErrorInfo::to_string() const {
  return std::string(code_->name()) + ": " + message_ + " [at " + location_.function() + ", " +
         location_.file() + ":" + std::to_string(location_.line()) + "]";
}

ErrorException::ErrorException(RefCountPtr<const ErrorInfo> info)
    : info_(std::move(info)), what_(info_->to_string()) {}

const char* ErrorException::what() const noexcept { return what_.c_str(); }

void ErrorException::throw_error(RefCountPtr<const ErrorInfo> info) {
  throw ErrorException(std::move(info));
}

void throw_error(const ErrorCode& code, std::string message, const SourceLocation& location) {
  ErrorException::throw_error(ErrorInfo::create(code, std::move(message), location));
}

void throw_error(const ErrorCode& code, std::string_view message, ErrorParams params,
                 const SourceLocation& location) {
  ErrorException::throw_error(ErrorInfo::create(code, message, std::move(params), location));
}

ErrorComposer& ErrorComposer::append(std::string_view text) {
  message_.append(text);
  return *this;
}

ErrorComposer& ErrorComposer::param(std::string name, std::string value) {
  params_.add(std::move(name), std::move(value));
  return *this;
}

ErrorComposer& ErrorComposer::param(std::string name, std::int64_t value) {
  params_.add(std::move(name), value);
  return *this;
}

RefCountPtr<const ErrorInfo> ErrorComposer::info() const {
  return ErrorInfo::create(*code_, message_, params_, location_);
}

void ErrorComposer::raise() const { ErrorException::throw_error(info()); }

void throw_winerror(const SourceLocation& location, std::uint32_t error, bool /*exported*/) {
  throw_error(errors::winerror, "Windows error " + std::to_string(error), location);
}

void safe_cast_throw_value_truncated(const char* type, std::int64_t value) {
  raise_cast_error(errors::value_truncated, __func__, __LINE__, "does not fit in", type, value);
}

void safe_cast_throw_value_truncated(const char* type, std::uint64_t value) {
  raise_cast_error(errors::value_truncated, __func__, __LINE__, "does not fit in", type, value);
}

void safe_cast_throw_sign_reversal(const char* type, std::int64_t value) {
  raise_cast_error(errors::sign_reversal, __func__, __LINE__, "changes sign as", type, value);
}

void safe_cast_throw_sign_reversal(const char* type, std::uint64_t value) {
  raise_cast_error(errors::sign_reversal, __func__, __LINE__, "changes sign as", type, value);
}

void safe_cast_throw_negative_to_unsigned(const char* type, std::int64_t value) {
  raise_cast_error(errors::negative_to_unsigned, __func__, __LINE__, "is negative, not a valid",
                   type, value);
}

void string_to_failure(const char* text, std::size_t length, const char* type,
                       RefCountPtr<const ErrorInfo>& out) {
  out = ErrorInfo::create(errors::not_a_number,
                          quote_text(text, length) + " is not a number of type " + type,
                          here(__func__, __LINE__));
}

void raise_embedded_nul_error() {
  throw_error(errors::embedded_nul, "Text holds a NUL character before its end",
              here(__func__, __LINE__));
}

}  // namespace n7core
