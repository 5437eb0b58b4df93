#include "n7utility/Utility/N7Document.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/framework/MemFile.h"

// Two releases of one class, "CShape", as two programs would have them: the first stores a size;
// the second adds a label and still reads what the first stored.
namespace release1 {
class CShape : public CObject {
  DECLARE_SERIAL(CShape)

 public:
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar << size;
    } else {
      ar >> size;
    }
  }
  int size = 0;
};
IMPLEMENT_SERIAL(CShape, CObject, 1)
}  // namespace release1

namespace release2 {
class CShape : public CObject {
  DECLARE_SERIAL(CShape)

 public:
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar << size << label;
      return;
    }
    auto* document = static_cast<CN7Document*>(ar.m_pDocument);
    seen_version = document->GetVersionID(RUNTIME_CLASS(CShape), ar);
    ar >> size;
    if (seen_version >= 2) ar >> label;
  }
  int size = 0;
  CString label = L"unnamed";
  int seen_version = -1;
};
IMPLEMENT_SERIAL(CShape, CObject, VERSIONABLE_SCHEMA | 2)
}  // namespace release2

namespace {

using n7platform::test_support::TempDir;

// Makes one release's class the one its name loads, as when that program runs.
class ReleaseInUse {
 public:
  explicit ReleaseInUse(CRuntimeClass* runtime_class) : class_(runtime_class) {
    AfxClassInit(class_);
  }
  ~ReleaseInUse() { n7platform::WithdrawClass(class_); }
  ReleaseInUse(const ReleaseInUse&) = delete;
  ReleaseInUse& operator=(const ReleaseInUse&) = delete;

 private:
  CRuntimeClass* class_;
};

// A drawing: a list of shapes it owns. It can be told to fail while saving.
class CDrawing : public CN7Document {
 public:
  ~CDrawing() override { CDrawing::DeleteContents(); }

  void DeleteContents() override {
    for (CObject* shape : shapes) delete shape;
    shapes.clear();
  }
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar.WriteCount(static_cast<DWORD>(shapes.size()));
      for (const CObject* shape : shapes) ar << shape;
      if (fail_saving) AfxThrowArchiveException(CArchiveException::genericException);
      return;
    }
    for (DWORD count = ar.ReadCount(); count > 0; --count) {
      CObject* shape = nullptr;
      ar >> shape;
      shapes.push_back(shape);
    }
  }
  void ReportSaveLoadException(LPCWSTR /*path*/, CException* e, BOOL saving,
                               UINT /*prompt*/) override {
    auto* archive_error = dynamic_cast<CArchiveException*>(e);
    reported.push_back({saving != FALSE, archive_error != nullptr ? archive_error->m_cause : -1});
  }
  template <typename Shape>
  Shape* At(std::size_t index) {
    return STATIC_DOWNCAST(Shape, shapes.at(index));
  }
  int MapSize() const { return static_cast<int>(m_VersionMap.GetCount()); }

  struct Report {
    bool saving;
    int archive_cause;
    bool operator==(const Report&) const = default;
  };
  std::vector<CObject*> shapes;
  std::vector<Report> reported;
  bool fail_saving = false;
};

std::wstring Wide(const std::string& text) { return {text.begin(), text.end()}; }

class N7DocumentTest : public ::testing::Test {
 protected:
  // A file saved by the first release with shapes of the given sizes.
  std::wstring SavedByRelease1(const std::vector<int>& sizes) {
    CDrawing drawing;
    for (const int size : sizes) {
      auto* shape = new release1::CShape;
      shape->size = size;
      drawing.shapes.push_back(shape);
    }
    std::wstring path = Wide(dir_ / "release1.drawing");
    EXPECT_TRUE(drawing.OnSaveDocument(path.c_str()));
    return path;
  }

  TempDir dir_;
};

TEST_F(N7DocumentTest, ANewerReleaseLoadsWhatAnOlderOneSaved) {
  const std::wstring path = SavedByRelease1({3, 4});
  ReleaseInUse release(RUNTIME_CLASS(release2::CShape));
  CDrawing drawing;
  ASSERT_TRUE(drawing.OnOpenDocument(path.c_str()));
  ASSERT_EQ(drawing.shapes.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    auto* shape = drawing.At<release2::CShape>(i);
    EXPECT_EQ(shape->seen_version, 1);
    EXPECT_EQ(shape->size, static_cast<int>(3 + i));
    EXPECT_EQ(shape->label, L"unnamed");
  }
  EXPECT_EQ(drawing.QueryVersionZeroLoaded(), 0);
  EXPECT_EQ(drawing.MapSize(), 0);  // emptied after the load
  EXPECT_FALSE(drawing.IsModified());
}

// The rules of GetVersionID, with the archive's object schema set by hand as a load would.
TEST_F(N7DocumentTest, EachClassKeepsTheSchemaOfItsFirstObject) {
  CDrawing drawing;
  CMemFile file;
  CArchive ar(&file, CArchive::load);
  CRuntimeClass* a = RUNTIME_CLASS(release1::CShape);
  CRuntimeClass* b = RUNTIME_CLASS(release2::CShape);

  ar.SetObjectSchema(2);
  EXPECT_EQ(drawing.GetVersionID(a, ar), 2);
  ar.SetObjectSchema(3);
  EXPECT_EQ(drawing.GetVersionID(a, ar), 2);
  ar.SetObjectSchema(5);
  EXPECT_EQ(drawing.GetVersionID(b, ar), 5);
  EXPECT_EQ(drawing.QueryVersionZeroLoaded(), 0);

  // A class first seen at 0 and met again with another schema raises the flag, and keeps 0.
  CDrawing zero;
  ar.SetObjectSchema(0);
  EXPECT_EQ(zero.GetVersionID(a, ar), 0);
  ar.SetObjectSchema(0);
  EXPECT_EQ(zero.GetVersionID(a, ar), 0);
  EXPECT_EQ(zero.QueryVersionZeroLoaded(), 0);
  ar.SetObjectSchema(1);
  EXPECT_EQ(zero.GetVersionID(a, ar), 0);
  EXPECT_EQ(zero.QueryVersionZeroLoaded(), 1);

  // Opening a document clears the flag and the record before loading.
  ASSERT_TRUE(zero.OnOpenDocument(SavedByRelease1({}).c_str()));
  EXPECT_EQ(zero.QueryVersionZeroLoaded(), 0);
  ar.SetObjectSchema(7);
  EXPECT_EQ(zero.GetVersionID(a, ar), 7);
}

// A failed save keeps the old file; a failed load keeps nothing of what it read. Each failure is
// reported with its exception.
TEST_F(N7DocumentTest, FailuresAreReportedAndLeaveNothingHalfDone) {
  const std::wstring path = SavedByRelease1({9});
  const std::wstring newer = Wide(dir_ / "release2.drawing");
  CDrawing drawing;
  drawing.shapes.push_back(new release2::CShape);
  ASSERT_TRUE(drawing.OnSaveDocument(newer.c_str()));
  drawing.fail_saving = true;
  drawing.SetModifiedFlag();
  EXPECT_FALSE(drawing.OnSaveDocument(path.c_str()));
  EXPECT_TRUE(drawing.IsModified());
  EXPECT_FALSE(std::filesystem::exists(dir_ / "release1.drawing.saving"));
  EXPECT_FALSE(drawing.OnSaveDocument(Wide(dir_ / "no-such-dir/file").c_str()));

  // The older release refuses the newer layout.
  ReleaseInUse release(RUNTIME_CLASS(release1::CShape));
  EXPECT_FALSE(drawing.OnOpenDocument(newer.c_str()));
  EXPECT_TRUE(drawing.shapes.empty());
  EXPECT_EQ(drawing.MapSize(), 0);
  EXPECT_FALSE(drawing.OnOpenDocument(Wide(dir_ / "missing").c_str()));
  EXPECT_EQ(drawing.reported,
            (std::vector<CDrawing::Report>{{true, CArchiveException::genericException},
                                           {true, -1},
                                           {false, CArchiveException::badSchema},
                                           {false, -1}}));

  CDrawing reread;
  ASSERT_TRUE(reread.OnOpenDocument(path.c_str()));
  EXPECT_EQ(reread.At<release1::CShape>(0)->size, 9);
}

}  // namespace
