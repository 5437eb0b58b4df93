// Checked integer conversions: safe_cast narrows or changes signedness only when the value stays
// the same, and string_to reads a whole text as an integer. Failures carry the target type's name.
//
//   auto length = n7core::safe_cast<std::uint32_t>(size);  // throws if size > 4294967295
#pragma once

#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "n7utility/core/error.h"

namespace n7core {

// The name of an integral type as messages show it: the fixed-width name for the standard
// integers, the keyword for character types.
template <typename T>
constexpr const char* integral_type_name() {
  static_assert(std::is_integral_v<T>);
  if constexpr (std::is_same_v<T, bool>) {
    return "bool";
  } else if constexpr (std::is_same_v<T, char>) {
    return "char";
  } else if constexpr (std::is_same_v<T, wchar_t>) {
    return "wchar_t";
  } else if constexpr (std::is_same_v<T, char8_t>) {
    return "char8_t";
  } else if constexpr (std::is_same_v<T, char16_t>) {
    return "char16_t";
  } else if constexpr (std::is_same_v<T, char32_t>) {
    return "char32_t";
  } else {
    constexpr const char* kUnsigned[] = {"uint8_t", "uint16_t", "", "uint32_t",
                                         "",        "",         "", "uint64_t"};
    constexpr const char* kSigned[] = {"int8_t", "int16_t", "", "int32_t", "", "", "", "int64_t"};
    return (std::is_signed_v<T> ? kSigned : kUnsigned)[sizeof(T) - 1];
  }
}

// `value` as a To, or an ErrorException ("error.n7core.safeCast.*") when the conversion would
// change it: a negative value to an unsigned type, a value out of range that keeps its bits but
// flips its sign (unsigned to signed), or any other value out of range.
template <typename To, typename From>
To safe_cast(From value) {
  static_assert(std::is_integral_v<To> && std::is_integral_v<From>);
  constexpr const char* kTypeName = integral_type_name<To>();
  if constexpr (std::is_signed_v<From>) {
    if constexpr (std::is_unsigned_v<To>) {
      if (value < 0) {
        safe_cast_throw_negative_to_unsigned(kTypeName, static_cast<std::int64_t>(value));
      }
    }
    const auto result = static_cast<To>(value);
    if (static_cast<From>(result) != value) {
      safe_cast_throw_value_truncated(kTypeName, static_cast<std::int64_t>(value));
    }
    return result;
  } else {
    const auto result = static_cast<To>(value);
    if (static_cast<From>(result) != value) {
      safe_cast_throw_value_truncated(kTypeName, static_cast<std::uint64_t>(value));
    }
    if constexpr (std::is_signed_v<To>) {
      if (result < 0) safe_cast_throw_sign_reversal(kTypeName, static_cast<std::uint64_t>(value));
    }
    return result;
  }
}

// Reads all of `text` as a decimal integer of type T. On failure (empty text, a sign or digit
// missing, anything after the digits, a value out of T's range) returns false and stores the
// error ("error.n7core.string.notANumber") in `error`; `out` is then unchanged.
template <typename T>
bool string_to(std::string_view text, T& out, RefCountPtr<const ErrorInfo>& error) {
  static_assert(std::is_integral_v<T> && !std::is_same_v<T, bool>);
  T value{};
  const char* const end = text.data() + text.size();
  const auto [stop, status] = std::from_chars(text.data(), end, value);
  if (status != std::errc() || stop != end) {
    string_to_failure(text.data(), text.size(), integral_type_name<T>(), error);
    return false;
  }
  out = value;
  return true;
}

}  // namespace n7core
