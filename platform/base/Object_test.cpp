#include "n7utility/platform/base/Object.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

// A small hierarchy: an abstract-ish base known only by its record, a creatable class and a
// class derived from the creatable one.
class CAnimal : public CObject {
  DECLARE_DYNAMIC(CAnimal)
};
IMPLEMENT_DYNAMIC(CAnimal, CObject)

class CDog : public CAnimal {
  DECLARE_DYNCREATE(CDog)

 public:
  int barks = 3;
};
IMPLEMENT_DYNCREATE(CDog, CAnimal)

class CPuppy : public CDog {
  DECLARE_DYNCREATE(CPuppy)
};
IMPLEMENT_DYNCREATE(CPuppy, CDog)

class CStone : public CObject {
  DECLARE_DYNCREATE(CStone)
};
IMPLEMENT_DYNCREATE(CStone, CObject)

// Two classes whose records share the name "CTwin", as when two modules bring a class each.
namespace first {
class CTwin : public CObject {
  DECLARE_DYNCREATE(CTwin)
};
IMPLEMENT_DYNCREATE(CTwin, CObject)
}  // namespace first
namespace second {
class CTwin : public CObject {
  DECLARE_DYNCREATE(CTwin)
};
IMPLEMENT_DYNCREATE(CTwin, CObject)
}  // namespace second

namespace {

TEST(RuntimeClassTest, ObjectsKnowTheirClassThroughABasePointer) {
  std::unique_ptr<CObject> puppy(new CPuppy);
  EXPECT_EQ(puppy->GetRuntimeClass(), RUNTIME_CLASS(CPuppy));
  EXPECT_TRUE(puppy->IsKindOf(RUNTIME_CLASS(CPuppy)));
  EXPECT_TRUE(puppy->IsKindOf(RUNTIME_CLASS(CAnimal)));
  EXPECT_TRUE(puppy->IsKindOf(RUNTIME_CLASS(CObject)));
  EXPECT_FALSE(puppy->IsKindOf(RUNTIME_CLASS(CStone)));
  EXPECT_FALSE(puppy->IsKindOf(nullptr));
  EXPECT_FALSE(RUNTIME_CLASS(CDog)->IsDerivedFrom(RUNTIME_CLASS(CPuppy)));
  EXPECT_FALSE(puppy->IsSerializable());
}

TEST(RuntimeClassTest, DowncastsCheckTheClass) {
  CPuppy puppy;
  CStone stone;
  CObject* as_object = &puppy;
  EXPECT_EQ(DYNAMIC_DOWNCAST(CDog, as_object), &puppy);
  EXPECT_EQ(STATIC_DOWNCAST(CAnimal, as_object), &puppy);
  EXPECT_EQ(DYNAMIC_DOWNCAST(CDog, &stone), nullptr);
  EXPECT_EQ(STATIC_DOWNCAST(CDog, &stone), nullptr);
  EXPECT_EQ(DYNAMIC_DOWNCAST(CDog, static_cast<CObject*>(nullptr)), nullptr);
}

TEST(RuntimeClassTest, CreatesObjectsByName) {
  std::unique_ptr<CObject> dog(CRuntimeClass::CreateObject("CDog"));
  ASSERT_NE(dog, nullptr);
  EXPECT_EQ(dog->GetRuntimeClass(), RUNTIME_CLASS(CDog));
  EXPECT_EQ(STATIC_DOWNCAST(CDog, dog.get())->barks, 3);

  std::unique_ptr<CObject> puppy(CRuntimeClass::CreateObject(L"CPuppy"));
  ASSERT_NE(puppy, nullptr);
  EXPECT_EQ(puppy->GetRuntimeClass(), RUNTIME_CLASS(CPuppy));

  EXPECT_EQ(CRuntimeClass::FromName("CAnimal"), RUNTIME_CLASS(CAnimal));
  EXPECT_EQ(CRuntimeClass::CreateObject("CAnimal"), nullptr);  // not creatable by name
  EXPECT_EQ(CRuntimeClass::FromName("CUnicorn"), nullptr);
  EXPECT_EQ(CRuntimeClass::FromName(L"CDog\u00e9"), nullptr);
  EXPECT_EQ(CRuntimeClass::FromName(static_cast<LPCSTR>(nullptr)), nullptr);
  EXPECT_EQ(CRuntimeClass::CreateObject(static_cast<LPCWSTR>(nullptr)), nullptr);
}

// The record registered last under a name is found; withdrawing it uncovers the earlier one.
TEST(ClassRegistryTest, LatestRecordOfANameIsFound) {
  CRuntimeClass* first = RUNTIME_CLASS(first::CTwin);
  CRuntimeClass* second = RUNTIME_CLASS(second::CTwin);
  ASSERT_STREQ(first->m_lpszClassName, second->m_lpszClassName);

  AfxClassInit(first);
  EXPECT_EQ(CRuntimeClass::FromName("CTwin"), first);
  AfxClassInit(second);
  EXPECT_EQ(CRuntimeClass::FromName("CTwin"), second);
  n7platform::WithdrawClass(second);
  EXPECT_EQ(CRuntimeClass::FromName("CTwin"), first);
  n7platform::WithdrawClass(first);
  // The registrations made when the test program loaded are still there.
  EXPECT_NE(CRuntimeClass::FromName("CTwin"), nullptr);

  // Withdrawing a record that was never registered changes nothing.
  CRuntimeClass stray = {"CDog", 1, 1, nullptr, nullptr};
  n7platform::WithdrawClass(&stray);
  EXPECT_EQ(CRuntimeClass::FromName("CDog"), RUNTIME_CLASS(CDog));
}

// Lookups on several threads while another registers and withdraws records of its own.
TEST(ClassRegistryTest, LookupsAndRegistrationsRunConcurrently) {
  constexpr int kRounds = 2000;
  std::vector<CRuntimeClass> records(8, CRuntimeClass{"CBusy", 1, 1, nullptr, nullptr});
  std::atomic<bool> wrong_answer{false};
  std::vector<std::thread> readers;
  readers.reserve(3);
  for (int reader = 0; reader < 3; ++reader) {
    readers.emplace_back([&wrong_answer] {
      for (int round = 0; round < kRounds; ++round) {
        if (CRuntimeClass::FromName("CDog") != RUNTIME_CLASS(CDog)) wrong_answer = true;
        const CRuntimeClass* busy = CRuntimeClass::FromName("CBusy");
        if (busy != nullptr && std::strcmp(busy->m_lpszClassName, "CBusy") != 0) {
          wrong_answer = true;
        }
      }
    });
  }
  for (int round = 0; round < kRounds / 8; ++round) {
    for (CRuntimeClass& record : records) AfxClassInit(&record);
    for (CRuntimeClass& record : records) n7platform::WithdrawClass(&record);
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_FALSE(wrong_answer);
  EXPECT_EQ(CRuntimeClass::FromName("CBusy"), nullptr);
}

}  // namespace
