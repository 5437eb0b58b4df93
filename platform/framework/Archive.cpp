#include "n7utility/platform/framework/Archive.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <type_traits>

namespace {

constexpr WORD kNullTag = 0;
constexpr WORD kNewClassTag = 0xFFFF;
constexpr WORD kClassTag = 0x8000;
constexpr DWORD kBigClassTag = 0x80000000u;
constexpr WORD kBigObjectTag = 0x7FFF;
constexpr DWORD kMaxMapCount = 0x3FFFFFFE;
constexpr std::size_t kMinBuffer = 16;
// Class names are identifiers; a longer name in an archive is taken as malformed.
constexpr WORD kMaxClassName = 255;
// Long texts are read in pieces, so that a length in a malformed archive costs memory only as far
// as the file really holds text.
constexpr std::size_t kTextPiece = 4096;

constexpr char16_t kReplacementCharacter = 0xFFFD;

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// UTF-16 units of wide text. A lone surrogate stays one unit, so that any text read from an
// archive is written back the same; a value that is no code point becomes U+FFFD.
std::u16string ToUtf16(const std::wstring& text) {
  std::u16string units;
  units.reserve(text.size());
  for (const wchar_t character : text) {
    // wchar_t holds UTF-32 here; a negative value is no code point and fails the range tests.
    const auto code = static_cast<std::uint32_t>(character);  // NOLINT(bugprone-signed-char-misuse)
    if (code < 0x10000) {
      units.push_back(static_cast<char16_t>(code));
    } else if (code <= 0x10FFFF) {
      units.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
      units.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
    } else {
      units.push_back(kReplacementCharacter);
    }
  }
  return units;
}

std::wstring FromUtf16(const std::u16string& units) {
  std::wstring text;
  text.reserve(units.size());
  for (std::size_t i = 0; i < units.size(); ++i) {
    const char16_t unit = units[i];
    if (IsHighSurrogate(unit) && i + 1 < units.size() && IsLowSurrogate(units[i + 1])) {
      const std::uint32_t code =
          0x10000 + ((std::uint32_t{unit} - 0xD800) << 10) + (std::uint32_t{units[i + 1]} - 0xDC00);
      text.push_back(static_cast<wchar_t>(code));
      ++i;
    } else {
      text.push_back(static_cast<wchar_t>(unit));
    }
  }
  return text;
}

}  // namespace

CArchiveException::CArchiveException(int cause, LPCWSTR archive_name)
    : m_cause(cause), m_strFileName(archive_name) {}

CArchiveException::~CArchiveException() = default;

void AfxThrowArchiveException(int cause, LPCWSTR archive_name) {
  throw new CArchiveException(cause, archive_name);
}

// While an object loads: its schema is the archive's object schema and it counts towards the
// nesting depth. If it does not finish, its entry in the load map is marked failed, so that a
// later reference cannot reach the object, which is deleted.
class CArchive::ObjectLoad {
 public:
  ObjectLoad(CArchive& ar, UINT schema, std::size_t index)
      : ar_(ar), saved_schema_(ar.object_schema_), index_(index) {
    ar_.object_schema_ = schema;
    ++ar_.object_depth_;
  }
  ~ObjectLoad() {
    ar_.object_schema_ = saved_schema_;
    --ar_.object_depth_;
    if (!done_) ar_.load_map_[index_] = {LoadEntry::Kind::kFailed, nullptr, nullptr};
  }
  ObjectLoad(const ObjectLoad&) = delete;
  ObjectLoad& operator=(const ObjectLoad&) = delete;

  void Done() { done_ = true; }

 private:
  CArchive& ar_;
  UINT saved_schema_;
  std::size_t index_;
  bool done_ = false;
};

CArchive::CArchive(CFile* file, UINT mode, int buffer_size, void* /*buffer*/)
    : file_(file),
      mode_(mode),
      buffer_(std::max(kMinBuffer, static_cast<std::size_t>(std::max(buffer_size, 0)))) {
  load_map_.push_back({LoadEntry::Kind::kNull, nullptr, nullptr});
}

CArchive::~CArchive() {
  if (file_ == nullptr || (mode_ & bNoFlushOnDelete) != 0) return;
  try {
    Close();
  } catch (CException* e) {
    e->Delete();
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor has no one to tell
  }
}

UINT CArchive::GetObjectSchema() {
  const UINT schema = object_schema_;
  object_schema_ = kNoSchema;
  return schema;
}

void CArchive::RequireOpen() const {
  if (file_ == nullptr) AfxThrowArchiveException(CArchiveException::genericException);
}

void CArchive::RequireStoring() const {
  RequireOpen();
  if (IsLoading()) AfxThrowArchiveException(CArchiveException::readOnly);
}

void CArchive::RequireLoading() const {
  RequireOpen();
  if (IsStoring()) AfxThrowArchiveException(CArchiveException::writeOnly);
}

void CArchive::Write(const void* buffer, UINT count) {
  RequireStoring();
  const auto* bytes = static_cast<const BYTE*>(buffer);
  if (count > buffer_.size() - end_) {
    Flush();
    if (count >= buffer_.size()) {
      file_->Write(bytes, count);
      return;
    }
  }
  if (count > 0) std::memcpy(buffer_.data() + end_, bytes, count);
  end_ += count;
}

void CArchive::Flush() {
  RequireOpen();
  if (IsLoading() || end_ == 0) return;
  const auto pending = static_cast<UINT>(end_);
  end_ = 0;
  file_->Write(buffer_.data(), pending);
}

void CArchive::Close() {
  if (file_ == nullptr) return;
  Flush();
  file_ = nullptr;
}

void CArchive::Abort() {
  file_ = nullptr;
  cur_ = end_ = 0;
}

UINT CArchive::Read(void* buffer, UINT count) {
  RequireLoading();
  auto* bytes = static_cast<BYTE*>(buffer);
  const std::size_t from_buffer = std::min<std::size_t>(count, Buffered());
  if (from_buffer > 0) std::memcpy(bytes, buffer_.data() + cur_, from_buffer);
  cur_ += from_buffer;
  std::size_t done = from_buffer;
  if (done == count) return count;
  const std::size_t rest = count - done;
  if (rest >= buffer_.size())
    return static_cast<UINT>(done + file_->Read(bytes + done, static_cast<UINT>(rest)));
  // Refill the buffer with whatever the file still has, then take what was asked for.
  cur_ = end_ = 0;
  end_ = file_->Read(buffer_.data(), static_cast<UINT>(buffer_.size()));
  const std::size_t more = std::min(rest, Buffered());
  if (more > 0) std::memcpy(bytes + done, buffer_.data(), more);
  cur_ = more;
  done += more;
  return static_cast<UINT>(done);
}

void CArchive::Fill(std::size_t count) {
  if (Buffered() >= count) return;
  std::memmove(buffer_.data(), buffer_.data() + cur_, Buffered());
  end_ = Buffered();
  cur_ = 0;
  while (end_ < count) {
    const UINT got = file_->Read(buffer_.data() + end_, static_cast<UINT>(buffer_.size() - end_));
    if (got == 0) AfxThrowArchiveException(CArchiveException::endOfFile);
    end_ += got;
  }
}

void CArchive::WriteLittleEndian(ULONGLONG value, std::size_t size) {
  BYTE bytes[sizeof(ULONGLONG)];
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<BYTE>(value >> (8 * i));
  Write(bytes, static_cast<UINT>(size));
}

ULONGLONG CArchive::ReadLittleEndian(std::size_t size) {
  RequireLoading();
  Fill(size);
  ULONGLONG value = 0;
  for (std::size_t i = 0; i < size; ++i) value |= ULONGLONG{buffer_[cur_ + i]} << (8 * i);
  cur_ += size;
  return value;
}

template <typename Integer>
CArchive& CArchive::WriteInteger(Integer value) {
  using Unsigned = std::make_unsigned_t<Integer>;
  WriteLittleEndian(static_cast<Unsigned>(value), sizeof value);
  return *this;
}

// Signed values are stored in two's complement, which the conversion back restores.
template <typename Integer>
CArchive& CArchive::ReadInteger(Integer& value) {
  value = static_cast<Integer>(ReadLittleEndian(sizeof value));
  return *this;
}

CArchive& CArchive::operator<<(BYTE value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(WORD value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(short value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(int value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(DWORD value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(LONGLONG value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(ULONGLONG value) { return WriteInteger(value); }
CArchive& CArchive::operator<<(float value) { return *this << std::bit_cast<DWORD>(value); }
CArchive& CArchive::operator<<(double value) { return *this << std::bit_cast<ULONGLONG>(value); }
CArchive& CArchive::operator<<(bool value) { return *this << static_cast<BYTE>(value ? 1 : 0); }

CArchive& CArchive::operator>>(BYTE& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(WORD& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(short& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(int& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(DWORD& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(LONGLONG& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(ULONGLONG& value) { return ReadInteger(value); }
CArchive& CArchive::operator>>(float& value) {
  DWORD bits = 0;
  ReadInteger(bits);
  value = std::bit_cast<float>(bits);
  return *this;
}
CArchive& CArchive::operator>>(double& value) {
  ULONGLONG bits = 0;
  ReadInteger(bits);
  value = std::bit_cast<double>(bits);
  return *this;
}
CArchive& CArchive::operator>>(bool& value) {
  BYTE byte = 0;
  ReadInteger(byte);
  value = byte != 0;
  return *this;
}

void CArchive::WriteStringLength(ULONGLONG length) {
  *this << BYTE{0xFF} << WORD{0xFFFE};  // the text is UTF-16
  if (length < 0xFF) {
    *this << static_cast<BYTE>(length);
    return;
  }
  *this << BYTE{0xFF};
  if (length < 0xFFFE) {
    *this << static_cast<WORD>(length);
    return;
  }
  *this << WORD{0xFFFF};
  if (length < 0xFFFFFFFF) {
    *this << static_cast<DWORD>(length);
    return;
  }
  *this << DWORD{0xFFFFFFFF} << length;
}

ULONGLONG CArchive::ReadStringLength(bool& utf16) {
  utf16 = false;
  BYTE byte_length = 0;
  *this >> byte_length;
  if (byte_length < 0xFF) return byte_length;
  WORD word_length = 0;
  *this >> word_length;
  if (word_length == 0xFFFE) {
    utf16 = true;
    *this >> byte_length;
    if (byte_length < 0xFF) return byte_length;
    *this >> word_length;
  }
  if (word_length < 0xFFFF) return word_length;
  DWORD dword_length = 0;
  *this >> dword_length;
  if (dword_length < 0xFFFFFFFF) return dword_length;
  ULONGLONG length = 0;
  *this >> length;
  return length;
}

std::wstring CArchive::ReadUtf16Text(ULONGLONG length) {
  std::u16string units;
  BYTE piece[kTextPiece * 2];
  while (length > 0) {
    const std::size_t count = static_cast<std::size_t>(std::min<ULONGLONG>(length, kTextPiece));
    if (Read(piece, static_cast<UINT>(count * 2)) != count * 2) {
      AfxThrowArchiveException(CArchiveException::endOfFile);
    }
    for (std::size_t i = 0; i < count; ++i) {
      units.push_back(static_cast<char16_t>(piece[2 * i] | (piece[2 * i + 1] << 8)));
    }
    length -= count;
  }
  return FromUtf16(units);
}

std::wstring CArchive::ReadNarrowText(ULONGLONG length) {
  std::wstring text;
  BYTE piece[kTextPiece];
  while (length > 0) {
    const std::size_t count = static_cast<std::size_t>(std::min<ULONGLONG>(length, kTextPiece));
    if (Read(piece, static_cast<UINT>(count)) != count) {
      AfxThrowArchiveException(CArchiveException::endOfFile);
    }
    text.append(piece, piece + count);  // ISO 8859-1: each byte is its code point
    length -= count;
  }
  return text;
}

CArchive& CArchive::operator<<(const CString& text) {
  const std::u16string units = ToUtf16(text.str());
  WriteStringLength(units.size());
  for (const char16_t unit : units) *this << static_cast<WORD>(unit);
  return *this;
}

CArchive& CArchive::operator>>(CString& text) {
  bool utf16 = false;
  const ULONGLONG length = ReadStringLength(utf16);
  text = utf16 ? ReadUtf16Text(length) : ReadNarrowText(length);
  return *this;
}

void CArchive::WriteCount(DWORD count) {
  if (count < 0xFFFF) {
    *this << static_cast<WORD>(count);
    return;
  }
  *this << WORD{0xFFFF} << count;
}

DWORD CArchive::ReadCount() {
  WORD short_count = 0;
  *this >> short_count;
  if (short_count != 0xFFFF) return short_count;
  DWORD count = 0;
  *this >> count;
  return count;
}

void CRuntimeClass::Store(CArchive& ar) const {
  const std::size_t length = std::strlen(m_lpszClassName);
  if (length > kMaxClassName) AfxThrowArchiveException(CArchiveException::badClass);
  ar << static_cast<WORD>(m_wSchema) << static_cast<WORD>(length);
  ar.Write(m_lpszClassName, static_cast<UINT>(length));
}

CRuntimeClass* CRuntimeClass::Load(CArchive& ar, UINT* schema) {
  WORD stored_schema = 0;
  WORD length = 0;
  ar >> stored_schema >> length;
  *schema = stored_schema;
  char name[kMaxClassName + 1];
  if (length > kMaxClassName || ar.Read(name, length) != length) return nullptr;
  name[length] = '\0';
  if (std::strlen(name) != length) return nullptr;  // a name with a zero byte in it
  return FromName(name);
}

DWORD CArchive::NewMapIndex() {
  if (map_count_ >= kMaxMapCount) AfxThrowArchiveException(CArchiveException::badIndex);
  return map_count_++;
}

void CArchive::WriteTag(DWORD index, WORD short_flag, DWORD long_flag) {
  if (index < kBigObjectTag) {
    *this << static_cast<WORD>(short_flag | index);
    return;
  }
  *this << kBigObjectTag << (long_flag | index);
}

void CArchive::WriteClass(const CRuntimeClass* runtime_class) {
  RequireStoring();
  if (runtime_class->m_wSchema == kSchemaNotSerializable) {
    AfxThrowArchiveException(CArchiveException::badClass);
  }
  const auto found = store_map_.find(runtime_class);
  if (found != store_map_.end()) {
    WriteTag(found->second, kClassTag, kBigClassTag);
    return;
  }
  *this << kNewClassTag;
  runtime_class->Store(*this);
  store_map_[runtime_class] = NewMapIndex();
}

void CArchive::WriteObject(const CObject* object) {
  RequireStoring();
  if (object == nullptr) {
    *this << kNullTag;
    return;
  }
  const auto found = store_map_.find(object);
  if (found != store_map_.end()) {
    WriteTag(found->second, 0, 0);
    return;
  }
  WriteClass(object->GetRuntimeClass());
  store_map_[object] = NewMapIndex();
  // Storing does not change the object; Serialize serves both directions.
  const_cast<CObject*>(object)->Serialize(*this);
}

CRuntimeClass* CArchive::ReadNewClass(UINT& schema) {
  CRuntimeClass* runtime_class = CRuntimeClass::Load(*this, &schema);
  if (runtime_class == nullptr || runtime_class->m_wSchema == kSchemaNotSerializable) {
    AfxThrowArchiveException(CArchiveException::badClass);
  }
  if ((runtime_class->m_wSchema & ~VERSIONABLE_SCHEMA) != schema) {
    if ((runtime_class->m_wSchema & VERSIONABLE_SCHEMA) == 0) {
      AfxThrowArchiveException(CArchiveException::badSchema);
    }
    schema_map_[runtime_class] = schema;
  }
  if (load_map_.size() >= kMaxMapCount) AfxThrowArchiveException(CArchiveException::badIndex);
  load_map_.push_back({LoadEntry::Kind::kClass, runtime_class, nullptr});
  return runtime_class;
}

CRuntimeClass* CArchive::ClassAt(DWORD index) const {
  if (index == 0 || index >= load_map_.size() || load_map_[index].kind != LoadEntry::Kind::kClass) {
    AfxThrowArchiveException(CArchiveException::badIndex);
  }
  return load_map_[index].runtime_class;
}

CRuntimeClass* CArchive::ReadClass(const CRuntimeClass* requested, UINT* schema,
                                   DWORD* object_tag) {
  RequireLoading();
  if (requested != nullptr && requested->m_wSchema == kSchemaNotSerializable) {
    AfxThrowArchiveException(CArchiveException::badClass);
  }
  WORD tag = 0;
  *this >> tag;
  DWORD long_tag = 0;
  if (tag == kBigObjectTag) {
    *this >> long_tag;
  } else {
    const DWORD short_tag = tag;
    long_tag = ((short_tag & kClassTag) << 16) | (short_tag & ~DWORD{kClassTag});
  }
  if ((long_tag & kBigClassTag) == 0) {
    if (object_tag == nullptr) AfxThrowArchiveException(CArchiveException::badIndex);
    *object_tag = long_tag;
    return nullptr;
  }
  CRuntimeClass* runtime_class = nullptr;
  UINT class_schema = 0;
  if (tag == kNewClassTag) {
    runtime_class = ReadNewClass(class_schema);
  } else {
    runtime_class = ClassAt(long_tag & ~kBigClassTag);
    const auto found = schema_map_.find(runtime_class);
    class_schema =
        found != schema_map_.end() ? found->second : runtime_class->m_wSchema & ~VERSIONABLE_SCHEMA;
  }
  if (requested != nullptr && !runtime_class->IsDerivedFrom(requested)) {
    AfxThrowArchiveException(CArchiveException::badClass);
  }
  if (schema != nullptr) {
    *schema = class_schema;
  } else {
    object_schema_ = class_schema;
  }
  return runtime_class;
}

CObject* CArchive::ObjectAt(DWORD index, const CRuntimeClass* requested) const {
  if (index >= load_map_.size()) AfxThrowArchiveException(CArchiveException::badIndex);
  const LoadEntry& entry = load_map_[index];
  switch (entry.kind) {
    case LoadEntry::Kind::kNull:
      return nullptr;
    case LoadEntry::Kind::kObject:
      if (requested != nullptr && !entry.object->IsKindOf(requested)) {
        AfxThrowArchiveException(CArchiveException::badClass);
      }
      return entry.object;
    default:
      AfxThrowArchiveException(CArchiveException::badIndex);
  }
}

CObject* CArchive::LoadNewObject(CRuntimeClass* runtime_class, UINT schema) {
  if (object_depth_ >= kMaxObjectDepth) {
    AfxThrowArchiveException(CArchiveException::genericException);
  }
  std::unique_ptr<CObject> object(runtime_class->CreateObject());
  if (object == nullptr) AfxThrowArchiveException(CArchiveException::badClass);
  if (load_map_.size() >= kMaxMapCount) AfxThrowArchiveException(CArchiveException::badIndex);
  load_map_.push_back({LoadEntry::Kind::kObject, runtime_class, object.get()});
  ObjectLoad loading(*this, schema, load_map_.size() - 1);
  object->Serialize(*this);
  loading.Done();
  return object.release();
}

CObject* CArchive::ReadObject(const CRuntimeClass* requested) {
  UINT schema = 0;
  DWORD object_tag = 0;
  CRuntimeClass* runtime_class = ReadClass(requested, &schema, &object_tag);
  if (runtime_class == nullptr) return ObjectAt(object_tag, requested);
  return LoadNewObject(runtime_class, schema);
}

CArchive& operator<<(CArchive& ar, const CObject* object) {
  ar.WriteObject(object);
  return ar;
}

CArchive& operator>>(CArchive& ar, CObject*& object) {
  object = ar.ReadObject(nullptr);
  return ar;
}

CArchive& operator>>(CArchive& ar, const CObject*& object) {
  object = ar.ReadObject(nullptr);
  return ar;
}
