// libFuzzer target: base64, the project's Unicode codec and the core services' text conversions
// over it, over arbitrary bytes. Each must agree with itself and the callers with the codec:
//   - base64: decode(encode(x)) == x; a text the strict decoder accepts re-encodes to a text that
//     decodes to the same bytes, and the lenient decoder reads it the same way.
//   - UTF-8: the check, both converters and the one-sequence decoder accept exactly the same
//     texts; an accepted text converts to wide text and back unchanged. Replacing malformed
//     sequences changes nothing in valid text and always gives text that converts back.
//   - wide and UTF-16 text (the bytes taken as 32-bit or 16-bit units): a conversion that
//     succeeds gives text the other direction turns back into the same units.
// Refusals must be n7core::ErrorException (or an empty optional from the codec).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/core/base64.h"
#include "n7utility/core/error.h"
#include "n7utility/core/text.h"
#include "n7utility/core/utf8.h"
#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/base/Check_fuzz.h"

namespace {

using n7fuzz::check;

void CheckBase64(std::string_view bytes) {
  const std::string encoded = n7core::base64_encode(bytes.data(), bytes.size());
  const std::vector<unsigned char> decoded = n7core::base64_decode(encoded);
  check(std::string_view(reinterpret_cast<const char*>(decoded.data()), decoded.size()) == bytes,
        "base64 decode(encode(x)) != x");

  std::vector<unsigned char> strict;
  try {
    strict = n7core::base64_decode(bytes);
  } catch (const n7core::ErrorException&) {
    return;  // not base64: refused
  }
  check(n7core::base64_decode(bytes, n7core::Base64LoneGroup::kAccept) == strict,
        "lenient base64 decoder disagrees with the strict one");
  const std::string again = n7core::base64_encode(strict.data(), strict.size());
  check(n7core::base64_decode(again) == strict, "re-encoded base64 decodes differently");
}

// Whether the one-sequence decoder walks the whole text, and the code points it found.
bool WalkUtf8(std::string_view text, std::wstring& code_points) {
  while (!text.empty()) {
    const n7core::Utf8Sequence sequence = n7core::decode_utf8(text);
    if (sequence.length == 0) return false;
    check(sequence.length <= text.size(), "UTF-8 sequence longer than the text");
    code_points.push_back(static_cast<wchar_t>(sequence.code_point));
    text.remove_prefix(sequence.length);
  }
  return true;
}

void CheckUtf8(std::string_view text) {
  bool checked = true;
  try {
    n7core::check_utf8(text);
  } catch (const n7core::ErrorException&) {
    checked = false;
  }
  std::optional<std::wstring> wide;
  try {
    wide = n7core::to_wstring(text);
  } catch (const n7core::ErrorException&) {
  }
  std::wstring walked;
  const bool walks = WalkUtf8(text, walked);
  const std::optional<std::wstring> platform = n7platform::codec::FromUtf8(text);
  check(checked == wide.has_value() && checked == walks && checked == platform.has_value(),
        "UTF-8 validators disagree");
  if (!checked) return;
  check(*wide == walked && *wide == *platform, "UTF-8 decoders give different code points");
  check(n7core::to_string(*wide) == text, "UTF-8 -> wide -> UTF-8 changed the text");
  check(n7platform::codec::ToUtf8(*platform) == std::optional<std::string>(text),
        "codec UTF-8 -> wide -> UTF-8 changed the text");
}

void CheckUtf8Replacement(std::string_view text) {
  namespace codec = n7platform::codec;
  const std::optional<std::wstring> strict = codec::FromUtf8(text);
  const std::optional<std::wstring> replaced = codec::FromUtf8(text, codec::Malformed::kReplace);
  check(replaced.has_value(), "replacing malformed UTF-8 gave no text");
  if (strict) check(*replaced == *strict, "replacement changed valid UTF-8");
  check(replaced->size() <= text.size(), "replacement made more characters than bytes");
  check(codec::ToUtf8(*replaced).has_value(), "replaced text does not convert back");
}

template <typename Unit>
std::basic_string<Unit> Units(std::string_view bytes) {
  std::basic_string<Unit> units(bytes.size() / sizeof(Unit), Unit{});
  if (!units.empty()) std::memcpy(units.data(), bytes.data(), units.size() * sizeof(Unit));
  return units;
}

void CheckWide(std::string_view bytes) {
  const std::wstring wide = Units<wchar_t>(bytes);
  const std::optional<std::string> platform = n7platform::codec::ToUtf8(wide);
  std::optional<std::string> utf8;
  try {
    utf8 = n7core::to_string(wide);
  } catch (const n7core::ErrorException&) {
  }
  check(utf8 == platform, "wide -> UTF-8 differs between the core services and the codec");
  if (!utf8) return;
  const std::wstring back = n7core::to_wstring(*utf8);
  check(n7core::to_string(back) == *utf8, "wide -> UTF-8 -> wide -> UTF-8 unstable");
  // Only surrogate pairs, joined into their code points, may come back different.
  if (back != wide) {
    check(back.size() < wide.size() && n7core::to_utf16(back) == n7core::to_utf16(wide),
          "wide -> UTF-8 -> wide changed more than surrogate pairs");
  }
  check(n7core::from_utf16(n7core::to_utf16(back)) == back, "wide -> UTF-16 -> wide changed it");
}

void CheckUtf16(std::string_view bytes) {
  const std::u16string units = Units<char16_t>(bytes);
  std::wstring wide;
  try {
    wide = n7core::from_utf16(units);
  } catch (const n7core::ErrorException&) {
    return;  // unpaired surrogate
  }
  check(n7core::to_utf16(wide) == units, "UTF-16 -> wide -> UTF-16 changed the units");
}

// Seeds: ASCII, multi-byte UTF-8, its base64, its UTF-16 and wide units, and malformed UTF-8.
void WriteSeeds(const std::filesystem::path& directory) {
  const std::wstring text = L"Gr\u00fc\u00dfe \u2013 \u65e5\u672c \U0001F600";
  const std::string utf8 = n7core::to_string(text);
  const std::u16string utf16 = n7core::to_utf16(text);
  n7fuzz::write_seed(directory, "ascii", "plain text 123");
  n7fuzz::write_seed(directory, "utf8", utf8);
  n7fuzz::write_seed(directory, "base64", n7core::base64_encode(utf8.data(), utf8.size()));
  n7fuzz::write_seed(directory, "utf16",
                     std::string_view(reinterpret_cast<const char*>(utf16.data()),
                                      utf16.size() * sizeof(char16_t)));
  n7fuzz::write_seed(
      directory, "wide",
      std::string_view(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)));
  n7fuzz::write_seed(directory, "malformed_utf8",
                     "overlong \xC0\xAF surrogate \xED\xA0\x80 cut \xE2\x82");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size heap copy: any read past the end is a heap overflow AddressSanitizer reports.
  const std::vector<char> copy(data, data + size);
  const std::string_view bytes(copy.data(), copy.size());
  CheckBase64(bytes);
  CheckUtf8(bytes);
  CheckUtf8Replacement(bytes);
  CheckWide(bytes);
  CheckUtf16(bytes);
  return 0;
}
