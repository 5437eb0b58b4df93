#include "n7utility/platform/framework/Archive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "n7utility/platform/base/TempDir_test.h"
#include "n7utility/platform/framework/Archive_test.h"
#include "n7utility/platform/framework/MemFile.h"

// Objects that keep a set of themselves, so that a test can delete whatever a load created,
// whatever shape a malformed archive gave the graph.
class CTracked : public CObject {
  DECLARE_DYNAMIC(CTracked)

 public:
  CTracked() { Live().insert(this); }
  ~CTracked() override { Live().erase(this); }

  static std::set<CTracked*>& Live() {
    static std::set<CTracked*> live;
    return live;
  }
};
IMPLEMENT_DYNAMIC(CTracked, CObject)

// Deletes the tracked objects made during its scope.
class LoadScope {
 public:
  LoadScope() : before_(CTracked::Live()) {}
  ~LoadScope() {
    std::vector<CTracked*> made;
    std::set_difference(CTracked::Live().begin(), CTracked::Live().end(), before_.begin(),
                        before_.end(), std::back_inserter(made));
    for (CTracked* object : made) delete object;
  }
  LoadScope(const LoadScope&) = delete;
  LoadScope& operator=(const LoadScope&) = delete;

 private:
  std::set<CTracked*> before_;
};

// A node of an object graph. Its pointers do not own.
class CNode : public CTracked {
  DECLARE_SERIAL(CNode)

 public:
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) {
      ar << value << name << static_cast<CObject*>(next) << peer;
    } else {
      ar >> value >> name >> next >> peer;
    }
  }

  int value = 0;
  CString name;
  CNode* next = nullptr;
  CObject* peer = nullptr;
};
IMPLEMENT_SERIAL(CNode, CTracked, 1)

// Reads layouts of older schemas: it records the schema it was loaded with, and what a second
// question gives.
class CVersioned : public CTracked {
  DECLARE_SERIAL(CVersioned)

 public:
  void Serialize(CArchive& ar) override {
    if (ar.IsStoring()) return;
    schema = ar.GetObjectSchema();
    second_question = ar.GetObjectSchema();
  }
  UINT schema = 0;
  UINT second_question = 0;
};
IMPLEMENT_SERIAL(CVersioned, CTracked, VERSIONABLE_SCHEMA | 3)

class CNotStorable : public CObject {
  DECLARE_DYNCREATE(CNotStorable)
};
IMPLEMENT_DYNCREATE(CNotStorable, CObject)

namespace {

using n7platform::test_support::ArchiveCauseOf;
using n7platform::test_support::ArchiveErrorOf;
using n7platform::test_support::Loaded;
using n7platform::test_support::Stored;
using Bytes = std::vector<BYTE>;

class ArchiveTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(CTracked::Live().empty()) << "objects left behind"; }
};

// The new-class record of a class as the archive writes it: tag, schema, name.
Bytes ClassRecord(WORD schema, const std::string& name) {
  Bytes bytes = {0xFF,
                 0xFF,
                 static_cast<BYTE>(schema),
                 static_cast<BYTE>(schema >> 8),
                 static_cast<BYTE>(name.size()),
                 0};
  bytes.insert(bytes.end(), name.begin(), name.end());
  return bytes;
}

// The text a loading archive reads from `bytes`.
CString LoadedText(const Bytes& bytes) {
  CString text;
  Loaded(bytes, [&](CArchive& ar) { ar >> text; });
  return text;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST_F(ArchiveTest, ValuesAreLittleEndianOfTheirWindowsWidths) {
  const Bytes bytes = Stored([](CArchive& ar) {
    ar << BYTE{0x01} << WORD{0x0302} << DWORD{0x07060504} << -2 << true << 1.5 << 0.25f
       << LONGLONG{-1} << short{-3};
  });
  const Bytes expected = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xFE, 0xFF, 0xFF, 0xFF, 0x01,
                          0,    0,    0,    0,    0,    0,    0xF8, 0x3F, 0,    0,    0x80, 0x3E,
                          0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFD, 0xFF};
  EXPECT_EQ(bytes, expected);
  std::tuple<BYTE, WORD, DWORD, int, bool, double, float, LONGLONG, short> loaded{};
  Loaded(bytes, [&](CArchive& ar) {
    std::apply([&ar](auto&... value) { (ar >> ... >> value); }, loaded);
  });
  EXPECT_EQ(Stored([&](CArchive& ar) {
              std::apply([&ar](const auto&... value) { (ar << ... << value); }, loaded);
            }),
            bytes);
}

TEST_F(ArchiveTest, TextLengthsEscalateAndCarryTheUtf16Marker) {
  struct Case {
    std::size_t length;
    Bytes prefix;
  };
  const Case cases[] = {
      {0, {0xFF, 0xFE, 0xFF, 0x00}},
      {254, {0xFF, 0xFE, 0xFF, 0xFE}},
      {255, {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0x00}},
      {0xFFFD, {0xFF, 0xFE, 0xFF, 0xFF, 0xFD, 0xFF}},
      {0xFFFE, {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}},
  };
  for (const Case& c : cases) {
    const CString text(std::wstring(c.length, L'x'));
    const Bytes bytes = Stored([&](CArchive& ar) { ar << text; });
    ASSERT_EQ(bytes.size(), c.prefix.size() + 2 * c.length) << c.length;
    EXPECT_TRUE(std::equal(c.prefix.begin(), c.prefix.end(), bytes.begin())) << c.length;
    EXPECT_EQ(LoadedText(bytes), text) << c.length;
  }
}

TEST_F(ArchiveTest, TextIsUtf16AndNarrowTextIsLatin1) {
  // A character beyond the BMP is a surrogate pair; a lone surrogate survives the round trip.
  const CString text(std::wstring(L"A\U0001F600") + static_cast<wchar_t>(0xD800) + L"z");
  const Bytes bytes = Stored([&](CArchive& ar) { ar << text; });
  const Bytes expected = {0xFF, 0xFE, 0xFF, 5, 'A', 0, 0x3D, 0xD8, 0x00, 0xDE, 0x00, 0xD8, 'z', 0};
  EXPECT_EQ(bytes, expected);
  EXPECT_EQ(LoadedText(bytes), text);
  EXPECT_EQ(LoadedText({3, 'a', 0xE9, 'b'}), L"a\u00e9b");
  // A length that promises more than the archive holds.
  const Bytes too_long = {0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                          0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a',  0};
  EXPECT_EQ(ArchiveCauseOf([&] { LoadedText(too_long); }), CArchiveException::endOfFile);
}

TEST_F(ArchiveTest, ObjectsAreStoredWithClassRecordsAndReferences) {
  CNode first;
  first.value = 7;
  CNode second;
  second.next = &first;
  second.peer = &second;
  const Bytes bytes = Stored([&](CArchive& ar) { ar << &first << &second << nullptr; });
  const Bytes node_fields_first = {7, 0, 0, 0, 0xFF, 0xFE, 0xFF, 0, 0, 0, 0, 0};
  const Bytes expected =
      Concat({ClassRecord(1, "CNode"),
              node_fields_first,                              // class 1, object 2
              {0x01, 0x80, 0, 0, 0, 0, 0xFF, 0xFE, 0xFF, 0},  // class ref, object 3
              {0x02, 0x00, 0x03, 0x00},                       // next = 2, peer = 3 (itself)
              {0x00, 0x00}});                                 // null
  EXPECT_EQ(bytes, expected);

  Loaded(bytes, [](CArchive& ar) {
    LoadScope scope;
    CNode* a = nullptr;
    CNode* b = nullptr;
    CObject* c = nullptr;
    ar >> a >> b >> c;
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->value, 7);
    EXPECT_EQ(b->next, a);
    EXPECT_EQ(b->peer, b);
    EXPECT_EQ(c, nullptr);
  });
}

TEST_F(ArchiveTest, ManyObjectsTakeTheLongIndexForm) {
  constexpr int kNodes = 0x7FFF + 10;
  std::vector<CNode> nodes(kNodes);
  for (int i = 0; i < kNodes; ++i) nodes[static_cast<std::size_t>(i)].value = i;
  const Bytes bytes = Stored([&](CArchive& ar) {
    for (CNode& node : nodes) ar << &node;
    ar << &nodes.back() << &nodes.front();
  });
  // The last object's reference: the long tag, then its index (classes and objects count).
  const Bytes tail(bytes.end() - 8, bytes.end() - 2);
  EXPECT_EQ(tail, Bytes({0xFF, 0x7F, 0x0A, 0x80, 0x00, 0x00}));
  Loaded(bytes, [&](CArchive& ar) {
    std::vector<CNode*> loaded(kNodes);
    for (CNode*& node : loaded) ar >> node;
    CNode* last = nullptr;
    CNode* first = nullptr;
    ar >> last >> first;
    EXPECT_EQ(last, loaded.back());
    EXPECT_EQ(first, loaded.front());
    EXPECT_EQ(loaded[0x8000]->value, 0x8000);
    for (CNode* node : loaded) delete node;
  });
}

TEST_F(ArchiveTest, SchemasAreCheckedOrHandedToVersionableClasses) {
  // A versionable class gets the stored schema, once per object.
  Loaded(Concat({ClassRecord(2, "CVersioned"), {0x01, 0x80}}), [](CArchive& ar) {
    CObject* first = ar.ReadObject(RUNTIME_CLASS(CVersioned));
    CObject* second = ar.ReadObject(nullptr);
    EXPECT_EQ(STATIC_DOWNCAST(CVersioned, first)->schema, 2u);
    EXPECT_EQ(STATIC_DOWNCAST(CVersioned, first)->second_question, CArchive::kNoSchema);
    EXPECT_EQ(STATIC_DOWNCAST(CVersioned, second)->schema, 2u);
    delete first;
    delete second;
  });
  // Its own schema is not remembered as different.
  Loaded(Concat({ClassRecord(3, "CVersioned"), {0x01, 0x80}}), [](CArchive& ar) {
    delete ar.ReadObject(nullptr);
    CObject* again = ar.ReadObject(nullptr);
    EXPECT_EQ(STATIC_DOWNCAST(CVersioned, again)->schema, 3u);
    delete again;
  });
  const auto read_node = [](CArchive& ar) { delete ar.ReadObject(nullptr); };
  EXPECT_EQ(ArchiveErrorOf(ClassRecord(2, "CNode"), read_node), CArchiveException::badSchema);
}

TEST_F(ArchiveTest, MalformedArchivesAreRefusedWithTheirCause) {
  const auto read_any = [](CArchive& ar) { delete ar.ReadObject(nullptr); };
  const auto read_node = [](CArchive& ar) { delete ar.ReadObject(RUNTIME_CLASS(CNode)); };
  const Bytes node = Concat({ClassRecord(1, "CNode"), {0, 0, 0, 0, 0xFF, 0xFE, 0xFF, 0}});
  EXPECT_EQ(ArchiveErrorOf(ClassRecord(1, "CNoSuchClass"), read_any), CArchiveException::badClass);
  EXPECT_EQ(ArchiveErrorOf(ClassRecord(0xFFFF, "CNotStorable"), read_any),
            CArchiveException::badClass);
  EXPECT_EQ(ArchiveErrorOf(ClassRecord(3, "CVersioned"), read_node), CArchiveException::badClass);
  EXPECT_EQ(ArchiveErrorOf(ClassRecord(1, std::string("CNo\0de", 6)), read_any),
            CArchiveException::badClass);
  EXPECT_EQ(ArchiveErrorOf({0x05, 0x80}, read_any), CArchiveException::badIndex);  // no class 5
  EXPECT_EQ(ArchiveErrorOf({0x01, 0x00}, read_any), CArchiveException::badIndex);  // no object 1
  // A reference to a class where an object belongs, and to a class entry as a class: an object.
  EXPECT_EQ(ArchiveErrorOf(Concat({node, {0x01, 0x00}, {0, 0}}), read_any),
            CArchiveException::badIndex);
  EXPECT_EQ(ArchiveErrorOf(Concat({node, {0, 0}, {0x02, 0x80}}), read_any),
            CArchiveException::badIndex);
  EXPECT_EQ(ArchiveErrorOf({0xFF, 0x7F, 0x01}, read_any), CArchiveException::endOfFile);
  EXPECT_EQ(ArchiveErrorOf(Bytes(node.begin(), node.end() - 1), read_any),
            CArchiveException::endOfFile);
  // A node whose next node is itself, still loading: allowed, it is the same object.
  Loaded(Concat({node, {0x02, 0x00}, {0, 0}}), [](CArchive& ar) {
    CNode* loop = nullptr;
    ar >> loop;
    EXPECT_EQ(loop->next, loop);
    delete loop;
  });
}

TEST_F(ArchiveTest, ObjectsNestedBeyondTheLimitAreRefused) {
  Bytes chain = ClassRecord(1, "CNode");
  const Bytes fields = {0, 0, 0, 0, 0xFF, 0xFE, 0xFF, 0};
  for (int depth = 0; depth <= CArchive::kMaxObjectDepth; ++depth) {
    chain.insert(chain.end(), fields.begin(), fields.end());
    chain.insert(chain.end(), {0x01, 0x80});  // next: a new node of class 1
  }
  EXPECT_EQ(ArchiveErrorOf(chain, [](CArchive& ar) { delete ar.ReadObject(nullptr); }),
            CArchiveException::genericException);
}

TEST_F(ArchiveTest, ArchivesRefuseTheWrongDirectionAndUseAfterClose) {
  CMemFile file;
  CArchive storing(&file, CArchive::store);
  BYTE byte = 0;
  EXPECT_EQ(ArchiveCauseOf([&] { storing >> byte; }), CArchiveException::writeOnly);
  CNotStorable not_storable;
  EXPECT_EQ(ArchiveCauseOf([&] { storing << &not_storable; }), CArchiveException::badClass);
  storing.Close();
  EXPECT_EQ(ArchiveCauseOf([&] { storing << byte; }), CArchiveException::genericException);
  CArchive loading(&file, CArchive::load);
  EXPECT_EQ(ArchiveCauseOf([&] { loading << byte; }), CArchiveException::readOnly);
}

TEST_F(ArchiveTest, ArchivesWorkOverFilesOnDisk) {
  n7platform::test_support::TempDir dir;
  const std::string path = dir / "archive";
  const std::wstring wide_path(path.begin(), path.end());
  CNode node;
  node.name = L"on disk";
  {
    CFile file;
    ASSERT_TRUE(file.Open(wide_path.c_str(), CFile::modeCreate | CFile::modeWrite));
    CArchive ar(&file, CArchive::store, 16);  // a small buffer: text goes past it
    ar << &node << CString(std::wstring(100, L'y'));
  }  // the archive's destructor writes what is buffered
  CFile file;
  ASSERT_TRUE(file.Open(wide_path.c_str(), CFile::modeRead));
  CArchive ar(&file, CArchive::load, 16);
  CNode* loaded = nullptr;
  CString text;
  ar >> loaded >> text;
  EXPECT_EQ(loaded->name, L"on disk");
  EXPECT_EQ(text.GetLength(), 100);
  delete loaded;
}

// Random damage to a stored graph: each load either succeeds or throws the archive's error, never
// crashes, reads out of bounds or leaks (the sanitizer builds check the last two).
TEST_F(ArchiveTest, DamagedArchivesNeverCrash) {
  std::vector<CNode> nodes(6);
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].value = static_cast<int>(i);
    nodes[i].name = std::wstring(i * 3, L'n');
    nodes[i].next = &nodes[(i + 1) % nodes.size()];
    nodes[i].peer = i % 2 == 0 ? &nodes[0] : nullptr;
  }
  CVersioned versioned;
  const Bytes good =
      Stored([&](CArchive& ar) { ar << &nodes[0] << &versioned << CString(L"end"); });
  std::mt19937 random(20240601);
  for (int round = 0; round < 3000; ++round) {
    Bytes damaged = good;
    const int edits = 1 + static_cast<int>(random() % 4);
    for (int edit = 0; edit < edits && !damaged.empty(); ++edit) {
      const std::size_t at = random() % damaged.size();
      switch (random() % 4) {
        case 0:
          damaged[at] = static_cast<BYTE>(random());
          break;
        case 1:
          damaged[at] ^= static_cast<BYTE>(1u << (random() % 8));
          break;
        case 2:
          damaged.resize(at);
          break;
        default:
          damaged.insert(damaged.begin() + static_cast<std::ptrdiff_t>(at), 0xFF);
      }
    }
    LoadScope scope;
    try {
      Loaded(damaged, [](CArchive& ar) {
        CObject* graph = nullptr;
        CObject* other = nullptr;
        CString text;
        ar >> graph >> other >> text;
      });
    } catch (CArchiveException* e) {
      delete e;
    }
  }
}

TEST(MemFileTest, SeeksReadsAndWritesPastTheEnd) {
  CMemFile file;
  file.Write("abc", 3);
  EXPECT_EQ(file.Seek(2, CFile::end), 5u);
  file.Write("z", 1);
  EXPECT_EQ(file.GetLength(), 6u);
  EXPECT_EQ(n7platform::test_support::ContentsOf(file), Bytes({'a', 'b', 'c', 0, 0, 'z'}));
  char back[4] = {};
  file.Seek(-2, CFile::end);
  EXPECT_EQ(file.Read(back, 4), 2u);
  EXPECT_EQ(file.Read(back, 4), 0u);
  try {
    file.Seek(-7, CFile::current);
    ADD_FAILURE() << "seeking before the start";
  } catch (CFileException* e) {
    EXPECT_EQ(e->m_cause, CFileException::badSeek);
    delete e;
  }
}

}  // namespace
