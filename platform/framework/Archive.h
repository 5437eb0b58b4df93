// The framework's archive: stores objects and values into a file in the framework's binary
// layout, and loads them back.
//
// Values are little-endian, of their Windows widths (int and LONG 4 bytes, bool 1 byte). A
// CString is its length in UTF-16 units, preceded by the marker FF FE FF that says the text is
// UTF-16; the length takes 1 byte below 0xFF, else FF then 2 bytes below 0xFFFE, else FF FF then
// 4 bytes below 0xFFFFFFFF, else FF FF FF FF then 8 bytes. Text without the marker (as older
// archives hold) is read as one byte per character, in ISO 8859-1.
//
// An object is stored with its class: the first object of a class is preceded by a new-class
// record (tag 0xFFFF, the class's schema and name), later ones by a reference to that record
// (0x8000 | its index); an object stored a second time is written as a reference to the first
// (its index), so loading gives one object again; a null pointer is tag 0. Indexes count classes
// and objects together from 1, in the order they were written; above 0x7FFE they take the long
// form 0x7FFF followed by 4 bytes.
//
// Loading throws CArchiveException* (the catcher deletes it) for an archive that ends early
// (endOfFile), a reference to nothing or to the wrong kind of entry (badIndex), a class that is not
// registered, cannot be created or is not the one asked for (badClass), or a schema the class
// cannot read (badSchema); the file's own errors come as CFileException*. A malformed archive
// never makes it read out of bounds or allocate more than the file holds. Objects created by a
// load that fails are deleted, and the objects they loaded are the caller's classes' to delete.
//
// An archive is used by one thread at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <vector>

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/Object.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/Exceptions.h"
#include "n7utility/platform/framework/File.h"

class CDocument;

class N7_EXPORT CArchiveException : public CException {
 public:
  enum {
    none = 0,
    genericException = 1,  // also: objects nested too deeply, an archive used after Close
    readOnly = 2,          // writing to an archive that loads
    endOfFile = 3,
    writeOnly = 4,  // reading from an archive that stores
    badIndex = 5,
    badClass = 6,  // also: storing an object whose class is not serialisable
    badSchema = 7,
    bufferFull = 8,
  };

  explicit CArchiveException(int cause = none, LPCWSTR archive_name = nullptr);
  ~CArchiveException() override;

  int m_cause;
  CString m_strFileName;
};

// Throws a new CArchiveException by pointer.
[[noreturn]] N7_EXPORT void AfxThrowArchiveException(int cause, LPCWSTR archive_name = nullptr);

class N7_EXPORT CArchive {
 public:
  enum Mode : UINT { store = 0, load = 1, bNoFlushOnDelete = 2, bNoByteSwap = 4 };

  // Schema value when no object is being loaded, and after GetObjectSchema was asked once.
  static constexpr UINT kNoSchema = 0xFFFFFFFFu;
  // How deeply objects may be loaded inside objects before the archive is taken as malformed.
  static constexpr int kMaxObjectDepth = 1000;

  // An archive over `file` (which it does not own) that stores or loads, with a buffer of
  // `buffer_size` bytes (at least 16). The framework's caller-supplied buffer is not used.
  CArchive(CFile* file, UINT mode, int buffer_size = 4096, void* buffer = nullptr);
  // Closes a storing archive (writing what is buffered) unless made with bNoFlushOnDelete; errors
  // then are dropped: call Close to see them.
  ~CArchive();
  CArchive(const CArchive&) = delete;
  CArchive& operator=(const CArchive&) = delete;

  BOOL IsLoading() const { return (mode_ & load) != 0 ? TRUE : FALSE; }
  BOOL IsStoring() const { return (mode_ & load) == 0 ? TRUE : FALSE; }
  CFile* GetFile() const { return file_; }

  // The schema of the object being loaded, as its class was stored. A second call during the
  // same object's Serialize gives kNoSchema, as in the framework.
  UINT GetObjectSchema();
  void SetObjectSchema(UINT schema) { object_schema_ = schema; }

  // Raw bytes. Read returns fewer than `count` only at the end of the file.
  UINT Read(void* buffer, UINT count);
  void Write(const void* buffer, UINT count);
  // Writes what is buffered to the file (storing only).
  void Flush();
  // Flushes a storing archive and detaches it from its file; the archive cannot be used after.
  void Close();
  // Detaches from the file without writing what is buffered.
  void Abort();

  // Stores `object` (null allowed) with its class, or a reference to it when already stored.
  void WriteObject(const CObject* object);
  // Loads an object written by WriteObject; `requested` (optional) is the class it must be of.
  // The caller owns a newly created object.
  CObject* ReadObject(const CRuntimeClass* requested);
  void WriteClass(const CRuntimeClass* runtime_class);
  // Reads a class record or class reference. With `object_tag` given, a reference to an object
  // gives null and its index in *object_tag; otherwise that is a badIndex error. The class's
  // schema goes to *schema, or without it to the object schema (GetObjectSchema).
  CRuntimeClass* ReadClass(const CRuntimeClass* requested = nullptr, UINT* schema = nullptr,
                           DWORD* object_tag = nullptr);

  // Element counts of collections: 2 bytes, or 0xFFFF and 4 bytes.
  void WriteCount(DWORD count);
  DWORD ReadCount();

  CArchive& operator<<(BYTE value);
  CArchive& operator<<(WORD value);
  CArchive& operator<<(short value);
  CArchive& operator<<(int value);  // also LONG
  CArchive& operator<<(DWORD value);
  CArchive& operator<<(LONGLONG value);
  CArchive& operator<<(ULONGLONG value);
  CArchive& operator<<(float value);
  CArchive& operator<<(double value);
  CArchive& operator<<(bool value);  // one byte, 0 or 1
  CArchive& operator<<(const CString& text);

  CArchive& operator>>(BYTE& value);
  CArchive& operator>>(WORD& value);
  CArchive& operator>>(short& value);
  CArchive& operator>>(int& value);
  CArchive& operator>>(DWORD& value);
  CArchive& operator>>(LONGLONG& value);
  CArchive& operator>>(ULONGLONG& value);
  CArchive& operator>>(float& value);
  CArchive& operator>>(double& value);
  CArchive& operator>>(bool& value);  // any non-zero byte is true
  CArchive& operator>>(CString& text);

  // The document being stored or loaded, for objects that need it; set by CDocument.
  CDocument* m_pDocument = nullptr;

 private:
  // An entry of the load map: a class, an object, or an object whose loading failed (which no
  // later reference may reach).
  struct LoadEntry {
    enum class Kind { kNull, kClass, kObject, kFailed };
    Kind kind;
    CRuntimeClass* runtime_class;
    CObject* object;
  };
  class ObjectLoad;

  void RequireStoring() const;
  void RequireLoading() const;
  void RequireOpen() const;
  void WriteLittleEndian(ULONGLONG value, std::size_t size);
  template <typename Integer>
  CArchive& WriteInteger(Integer value);
  template <typename Integer>
  CArchive& ReadInteger(Integer& value);
  ULONGLONG ReadLittleEndian(std::size_t size);
  // Makes `count` (at most the buffer's size) bytes available in the load buffer; endOfFile when
  // the file ends first.
  void Fill(std::size_t count);
  std::size_t Buffered() const { return end_ - cur_; }

  void WriteStringLength(ULONGLONG length);
  ULONGLONG ReadStringLength(bool& utf16);
  std::wstring ReadUtf16Text(ULONGLONG length);
  std::wstring ReadNarrowText(ULONGLONG length);

  void WriteTag(DWORD index, WORD short_flag, DWORD long_flag);
  DWORD NewMapIndex();
  CRuntimeClass* ReadNewClass(UINT& schema);
  CRuntimeClass* ClassAt(DWORD index) const;
  CObject* ObjectAt(DWORD index, const CRuntimeClass* requested) const;
  CObject* LoadNewObject(CRuntimeClass* runtime_class, UINT schema);

  CFile* file_;
  UINT mode_;
  std::vector<BYTE> buffer_;
  std::size_t cur_ = 0;  // loading: next byte to read; storing: unused
  std::size_t end_ = 0;  // loading: end of the valid bytes; storing: bytes buffered
  UINT object_schema_ = kNoSchema;
  int object_depth_ = 0;

  // Storing: the index of each class record and object already written.
  std::unordered_map<const void*, DWORD> store_map_;
  // Loading: the classes and objects read so far, by index (entry 0 is the null object).
  std::vector<LoadEntry> load_map_;
  // Loading: the schema each class was stored with, where it differs from the class's own.
  std::unordered_map<const CRuntimeClass*, UINT> schema_map_;
  DWORD map_count_ = 1;
};

N7_EXPORT CArchive& operator<<(CArchive& ar, const CObject* object);
N7_EXPORT CArchive& operator>>(CArchive& ar, CObject*& object);
N7_EXPORT CArchive& operator>>(CArchive& ar, const CObject*& object);
