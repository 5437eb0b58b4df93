#include "n7utility/n7crypto/wipe.h"

#include <openssl/crypto.h>

#include <locale>

namespace n7crypto {

void wipe(void* data, std::size_t size) noexcept {
  if (data != nullptr && size != 0) OPENSSL_cleanse(data, size);
}

SecretOStream::SecretOStream() : std::ostream(&buffer_) { imbue(std::locale::classic()); }

SecretOStream::~SecretOStream() = default;

SecretOStream::Buffer::int_type SecretOStream::Buffer::overflow(int_type c) {
  if (!traits_type::eq_int_type(c, traits_type::eof()))
    text.push_back(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

std::streamsize SecretOStream::Buffer::xsputn(const char* data, std::streamsize count) {
  text.append(data, static_cast<std::size_t>(count));
  return count;
}

}  // namespace n7crypto
