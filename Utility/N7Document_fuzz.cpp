// libFuzzer target: arbitrary bytes loaded as the archive of a versioned document, a drawing that
// holds shapes of a class with two schemas (the second adds a note, a weight and a flag, and reads
// what the first stored). A malformed archive must end in CArchiveException* only, deleted by the
// catcher, with no leak and no out-of-bounds read. An archive that loads is saved; loading that
// and saving it again must give the same bytes.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "n7utility/Utility/N7Document.h"
#include "n7utility/platform/base/Check_fuzz.h"
#include "n7utility/platform/framework/Archive.h"
#include "n7utility/platform/framework/MemFile.h"

// The classes are not in an anonymous namespace: DECLARE_SERIAL declares an operator>> that this
// file does not use.
class CFuzzShape : public CObject {
  DECLARE_SERIAL(CFuzzShape)

 public:
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar << size << label << note << weight << flag;
      return;
    }
    auto* document = static_cast<CN7Document*>(ar.m_pDocument);
    ar >> size >> label;
    if (document->GetVersionID(RUNTIME_CLASS(CFuzzShape), ar) >= 2) ar >> note >> weight >> flag;
  }

  int size = 0;
  CString label;
  CString note;
  double weight = 0;
  bool flag = false;
};
IMPLEMENT_SERIAL(CFuzzShape, CObject, VERSIONABLE_SCHEMA | 2)

namespace {

// A drawing: a count, then that many shapes or null pointers; a shape may appear more than once.
class CFuzzDrawing : public CN7Document {
 public:
  ~CFuzzDrawing() override { CFuzzDrawing::DeleteContents(); }

  void DeleteContents() override {
    for (CObject* shape : std::set<CObject*>(shapes.begin(), shapes.end())) delete shape;
    shapes.clear();
  }
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar.WriteCount(static_cast<DWORD>(shapes.size()));
      for (const CObject* shape : shapes) ar.WriteObject(shape);
      return;
    }
    for (DWORD count = ar.ReadCount(); count > 0; --count) {
      shapes.push_back(ar.ReadObject(RUNTIME_CLASS(CFuzzShape)));
    }
  }

  std::vector<CObject*> shapes;
};

using Bytes = std::vector<BYTE>;

// The archive's bytes loaded into a new drawing and saved again; nothing for a malformed archive.
std::optional<Bytes> LoadAndSave(const Bytes& archive) {
  CFuzzDrawing drawing;
  try {
    CMemFile in(archive.data(), static_cast<UINT>(archive.size()));
    CArchive loading(&in, CArchive::load);
    loading.m_pDocument = &drawing;
    drawing.Serialize(loading);
    loading.Close();
  } catch (CArchiveException* error) {
    error->Delete();
    return std::nullopt;
  } catch (CException* error) {
    error->Delete();
    n7fuzz::fail("loading raised an exception other than CArchiveException");
  }
  CMemFile out;
  {
    CArchive storing(&out, CArchive::store);
    storing.m_pDocument = &drawing;
    drawing.Serialize(storing);
    storing.Close();
  }
  Bytes saved(static_cast<std::size_t>(out.GetLength()));
  out.SeekToBegin();
  if (!saved.empty()) out.Read(saved.data(), static_cast<UINT>(saved.size()));
  return saved;
}

CFuzzShape* NewShape(int size, const wchar_t* label, const wchar_t* note) {
  auto* shape = new CFuzzShape;
  shape->size = size;
  shape->label = label;
  shape->note = note;
  shape->weight = 2.5;
  shape->flag = true;
  return shape;
}

// Saves `drawing` as the seed `name`.
void WriteDrawing(const std::filesystem::path& directory, const char* name, CFuzzDrawing& drawing) {
  CMemFile out;
  {
    CArchive storing(&out, CArchive::store);
    storing.m_pDocument = &drawing;
    drawing.Serialize(storing);
    storing.Close();
  }
  std::vector<char> bytes(static_cast<std::size_t>(out.GetLength()));
  out.SeekToBegin();
  out.Read(bytes.data(), static_cast<UINT>(bytes.size()));
  n7fuzz::write_seed(directory, name, std::string_view(bytes.data(), bytes.size()));
}

// Seeds: an empty drawing, one with shapes, a null and a shape stored twice, and one with a
// label long enough for the longer length form.
void WriteSeeds(const std::filesystem::path& directory) {
  CFuzzDrawing empty;
  WriteDrawing(directory, "empty", empty);
  CFuzzDrawing shapes;
  shapes.shapes = {NewShape(1, L"one", L"caf\u00e9"), nullptr, NewShape(-2, L"", L"\U0001F600")};
  shapes.shapes.push_back(shapes.shapes[0]);
  WriteDrawing(directory, "shapes", shapes);
  CFuzzDrawing long_label;
  long_label.shapes = {NewShape(3, std::wstring(300, L'x').c_str(), L"n")};
  WriteDrawing(directory, "long_label", long_label);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  n7fuzz::write_seeds_if_asked(WriteSeeds);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes archive(data, data + size);
  const std::optional<Bytes> saved = LoadAndSave(archive);
  if (!saved) return 0;
  const std::optional<Bytes> again = LoadAndSave(*saved);
  n7fuzz::check(again.has_value(), "a saved drawing does not load");
  n7fuzz::check(*again == *saved, "a loaded drawing saves differently the second time");
  return 0;
}
