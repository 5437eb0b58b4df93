#include <cstring>

#include "n7utility/platform/system/RegistryFile_internal.h"

namespace n7platform::internal {
namespace {

constexpr std::string_view kSignature{"N7REG\x01\r\n", 8};

std::uint64_t Fnv1a(std::string_view bytes) {
  std::uint64_t hash = 0xCBF29CE484222325ull;
  for (const char byte : bytes) {
    hash ^= static_cast<unsigned char>(byte);
    hash *= 0x100000001B3ull;
  }
  return hash;
}

class Writer {
 public:
  void Number(std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out_ += static_cast<char>((value >> (8 * i)) & 0xFF);
  }
  void Bytes(const void* data, std::size_t size) {
    Number(size, 4);
    out_.append(static_cast<const char*>(data), size);
  }
  void Text(const std::string& text) { Bytes(text.data(), text.size()); }
  void Data(const std::vector<BYTE>& data) { Bytes(data.data(), data.size()); }

  void Key(const SavedKey& key) {
    Text(key.name);
    Text(key.class_name);
    Number(key.last_write, 8);
    Data(key.security);
    Number(key.values.size(), 4);
    for (const SavedValue& value : key.values) {
      Text(value.name);
      Number(value.type, 4);
      Data(value.data);
    }
    Number(key.subkeys.size(), 4);
    for (const SavedKey& subkey : key.subkeys) Key(subkey);
  }

  std::string& out() { return out_; }

 private:
  std::string out_;
};

// Reads the records back; every read checks the bytes left, and a failed read poisons the
// reader, so callers test ok() once at the end of a record.
class Reader {
 public:
  explicit Reader(std::string_view in) : in_(in) {}

  bool ok() const { return ok_; }
  bool at_end() const { return in_.empty(); }

  std::uint64_t Number(int bytes) {
    if (!Take(static_cast<std::size_t>(bytes))) return 0;
    std::uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i) {
      value = (value << 8) | static_cast<unsigned char>(taken_[static_cast<std::size_t>(i)]);
    }
    return value;
  }
  std::string Text() {
    const auto size = static_cast<std::size_t>(Number(4));
    return Take(size) ? std::string(taken_) : std::string();
  }
  std::vector<BYTE> Data() {
    const auto size = static_cast<std::size_t>(Number(4));
    if (!Take(size)) return {};
    return std::vector<BYTE>(taken_.begin(), taken_.end());
  }

  bool Key(SavedKey* key, int depth) {
    if (depth > kMaxSavedDepth) return ok_ = false;
    key->name = Text();
    key->class_name = Text();
    key->last_write = Number(8);
    key->security = Data();
    for (auto count = Number(4); ok_ && count > 0; --count) {
      SavedValue& value = key->values.emplace_back();
      value.name = Text();
      value.type = static_cast<DWORD>(Number(4));
      value.data = Data();
    }
    for (auto count = Number(4); ok_ && count > 0; --count) {
      if (!Key(&key->subkeys.emplace_back(), depth + 1)) return false;
    }
    return ok_;
  }

 private:
  bool Take(std::size_t size) {
    if (!ok_ || in_.size() < size) return ok_ = false;
    taken_ = in_.substr(0, size);
    in_.remove_prefix(size);
    return true;
  }

  std::string_view in_;
  std::string_view taken_;
  bool ok_ = true;
};

}  // namespace

std::string EncodeSavedKey(const SavedKey& key) {
  Writer writer;
  writer.out() = kSignature;
  writer.Key(key);
  writer.Number(Fnv1a(writer.out()), 8);
  return std::move(writer.out());
}

bool DecodeSavedKey(std::string_view bytes, SavedKey* key) {
  if (bytes.size() < kSignature.size() + 8 || bytes.substr(0, kSignature.size()) != kSignature)
    return false;
  const std::string_view body = bytes.substr(0, bytes.size() - 8);
  Reader checksum(bytes.substr(body.size()));
  if (checksum.Number(8) != Fnv1a(body)) return false;
  Reader reader(body.substr(kSignature.size()));
  *key = SavedKey{};
  return reader.Key(key, 1) && reader.at_end();
}

}  // namespace n7platform::internal
