// Streams for text the library writes: numbers in them look the same under any locale a host
// program installs (std::locale::global, setlocale). A stream takes the global C++ locale when it
// is made, and a locale with digit grouping would write 1024 as "1,024" or "1.024", which readers
// of blobs, properties and traces take for 1.
#pragma once

#include <locale>
#include <sstream>

namespace n7core {

// Makes `stream` format and parse numbers the classic way; returns it.
template <typename Stream>
Stream& use_classic_locale(Stream& stream) {
  stream.imbue(std::locale::classic());
  return stream;
}

// An output string stream in the classic locale.
class ClassicOStringStream : public std::ostringstream {
 public:
  ClassicOStringStream() { use_classic_locale(*this); }
};

}  // namespace n7core
