// The tokenizer's bulk scanners: they move over the runs of bytes that need no decision one by
// one (plain text up to its next special byte, the characters of a name) and count the line ends
// in what has been read.
//
// The text scanner and the line counter come twice: a vector version that tests 16 bytes a step
// (SSE2, which every x86-64 processor has) and a plain one that goes byte by byte. Both give the
// same answer for every input. A process-wide switch makes the tokenizer use the plain ones and
// read one token at a time, so that tests and fuzzers can check the two ways against each other.
// Names are short: a table lookup per byte beats setting up a vector test.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "n7utility/core/utf8.h"
#include "n7utility/n7xml/char_classes_internal.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace n7xml::impl {

using Byte = unsigned char;

// The process-wide choice of scanners: true for the plain ones, with no reading ahead. Set it
// only while no tokenizer is at work.
inline bool g_plain_scanners = false;

// The bytes that end or interrupt one kind of text: `a`, `b` and `c` (a kind with fewer than
// three repeats one), and those every kind stops at: CR, and the bytes of 0x80 and above, which
// begin multi-byte characters. Also kept as a table, for testing a byte with one lookup.
struct TextStops {
  constexpr TextStops(Byte a_, Byte b_, Byte c_) noexcept : a(a_), b(b_), c(c_) {
    for (std::size_t byte = 0x80; byte < table.size(); ++byte) table[byte] = true;
    table['\r'] = table[a] = table[b] = table[c] = true;
  }

  Byte a, b, c;
  std::array<bool, 256> table{};
};

// The line ends among the bytes [p, stop) of data that ends at `end`: every LF, and every CR
// followed by neither an LF (which ends the line itself) nor the end of the data.
struct LineEnds {
  int count = 0;
  const Byte* after_last = nullptr;  // the byte after the last line end, if any
};

constexpr bool is_line_end(const Byte* p, const Byte* end) noexcept {
  return *p == '\n' || (*p == '\r' && p + 1 != end && p[1] != '\n');
}

inline constexpr std::array<std::uint16_t, 128> kAsciiClasses = [] {
  std::array<std::uint16_t, 128> table{};
  for (char32_t c = 0; c < table.size(); ++c) table[c] = char_class(c);
  return table;
}();

// For each byte value, whether it is an ASCII name character.
inline constexpr std::array<bool, 256> kAsciiNameBytes = [] {
  std::array<bool, 256> table{};
  for (std::size_t c = 0; c < kAsciiClasses.size(); ++c)
    table[c] = (kAsciiClasses[c] & kNameClasses) != 0;
  return table;
}();

constexpr bool is_ascii_name_char(Byte c) noexcept { return kAsciiNameBytes[c]; }

// Moves over text from `p` to the first CR, byte of 0x80 or above, byte of `stops`, or `end`.
inline const Byte* scan_text_plain(const Byte* p, const Byte* end,
                                   const TextStops& stops) noexcept {
  while (p != end && !stops.table[*p]) ++p;
  return p;
}

inline LineEnds count_line_ends_plain(const Byte* p, const Byte* stop, const Byte* end) noexcept {
  LineEnds ends;
  for (; p != stop; ++p) {
    if (is_line_end(p, end)) {
      ++ends.count;
      ends.after_last = p + 1;
    }
  }
  return ends;
}

// Moves over the ASCII name characters from `p`.
inline const Byte* scan_name(const Byte* p, const Byte* end) noexcept {
  while (p != end && is_ascii_name_char(*p)) ++p;
  return p;
}

#if defined(__SSE2__)

// The 16 bytes at `p`; when fewer remain, those followed by zeros, which do not stop a scan of
// text before `end` would.
inline __m128i load_block(const Byte* p, const Byte* end) noexcept {
  if (end - p >= 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  alignas(16) Byte tail[16] = {};
  std::memcpy(tail, p, static_cast<std::size_t>(end - p));
  return _mm_load_si128(reinterpret_cast<const __m128i*>(tail));
}

inline unsigned byte_mask(__m128i bytes) noexcept {
  return static_cast<unsigned>(_mm_movemask_epi8(bytes));
}

inline constexpr std::ptrdiff_t kScalarPrefix = 8;

inline const Byte* scan_text_sse2(const Byte* p, const Byte* end, const TextStops& stops) noexcept {
  const __m128i a = _mm_set1_epi8(static_cast<char>(stops.a));
  const __m128i b = _mm_set1_epi8(static_cast<char>(stops.b));
  const __m128i c = _mm_set1_epi8(static_cast<char>(stops.c));
  // Most runs of text are short. Their first bytes are tested one by one: the processor predicts
  // those tests and reads on ahead of them, where the next position would have to wait for the
  // result of a vector test.
  for (const Byte* first = p + std::min<std::ptrdiff_t>(end - p, kScalarPrefix); p != first; ++p) {
    if (stops.table[*p]) return p;
  }
  const __m128i cr = _mm_set1_epi8('\r');
  for (; p < end; p += 16) {
    const __m128i v = load_block(p, end);
    const __m128i stop = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, a), _mm_cmpeq_epi8(v, b)),
                                      _mm_or_si128(_mm_cmpeq_epi8(v, c), _mm_cmpeq_epi8(v, cr)));
    const unsigned stops_mask = byte_mask(_mm_or_si128(stop, v));  // v: its bytes >= 0x80
    if (stops_mask != 0) return p + __builtin_ctz(stops_mask);
  }
  return end;
}

// Line breaks are rare next to the bytes between them: the blocks are tested for CR and LF
// together, and the few bytes found are judged one by one.
inline LineEnds count_line_ends_sse2(const Byte* p, const Byte* stop, const Byte* end) noexcept {
  const __m128i cr = _mm_set1_epi8('\r');
  const __m128i lf = _mm_set1_epi8('\n');
  LineEnds ends;
  for (; stop - p >= 16; p += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    unsigned breaks = byte_mask(_mm_or_si128(_mm_cmpeq_epi8(v, cr), _mm_cmpeq_epi8(v, lf)));
    for (; breaks != 0; breaks &= breaks - 1) {
      const Byte* q = p + __builtin_ctz(breaks);
      if (is_line_end(q, end)) {
        ++ends.count;
        ends.after_last = q + 1;
      }
    }
  }
  const LineEnds tail = count_line_ends_plain(p, stop, end);
  ends.count += tail.count;
  if (tail.count != 0) ends.after_last = tail.after_last;
  return ends;
}

#endif  // __SSE2__

inline const Byte* scan_text(const Byte* p, const Byte* end, const TextStops& stops) noexcept {
#if defined(__SSE2__)
  if (!g_plain_scanners) return scan_text_sse2(p, end, stops);
#endif
  return scan_text_plain(p, end, stops);
}

inline LineEnds count_line_ends(const Byte* p, const Byte* stop, const Byte* end) noexcept {
#if defined(__SSE2__)
  if (!g_plain_scanners) return count_line_ends_sse2(p, stop, end);
#endif
  return count_line_ends_plain(p, stop, end);
}

// Decodes the multi-byte character at `p`. The well-formed two- and three-byte sequences that
// make up nearly all non-ASCII text are decoded here; the rest (four-byte sequences, the leads
// whose second byte has a narrower range, anything malformed) go to the core decoder, which
// also says what is wrong.
inline n7core::Utf8Sequence decode_multibyte(const Byte* p, const Byte* end) noexcept {
  const auto continuation = [](Byte c) { return (c & 0xC0) == 0x80; };
  const Byte lead = *p;
  const auto left = end - p;
  if (lead >= 0xC2 && lead <= 0xDF && left >= 2 && continuation(p[1])) {
    return {static_cast<char32_t>((lead & 0x1Fu) << 6 | (p[1] & 0x3Fu)), 2};
  }
  if (lead >= 0xE1 && lead <= 0xEF && lead != 0xED && left >= 3 && continuation(p[1]) &&
      continuation(p[2])) {
    return {static_cast<char32_t>((lead & 0x0Fu) << 12 | (p[1] & 0x3Fu) << 6 | (p[2] & 0x3Fu)), 3};
  }
  return n7core::decode_utf8(
      std::string_view(reinterpret_cast<const char*>(p), static_cast<std::size_t>(left)));
}

// Where the name that begins at `p` ends (at `p` when none does), and whether the name is cut
// short by an invalid UTF-8 sequence, which then begins at `end`.
struct NameScan {
  const Byte* end;
  bool valid;
};

inline NameScan read_name(const Byte* p, const Byte* end) noexcept {
  std::uint16_t allowed = kNameStartClasses;
  while (p != end) {
    if (*p < 0x80) {
      if ((kAsciiClasses[*p] & allowed) == 0) break;
      p = scan_name(p + 1, end);
      if (p == end || *p < 0x80) break;  // at a byte that is not a name character
    } else {
      const auto sequence = decode_multibyte(p, end);
      if (sequence.length == 0) return {p, false};
      if ((char_class(sequence.code_point) & allowed) == 0) break;
      p += sequence.length;
    }
    allowed = kNameClasses;
  }
  return {p, true};
}

}  // namespace n7xml::impl
