#include "n7utility/Utility/StringTable.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

#include "n7utility/Utility/LibraryModule_internal.h"
#include "n7utility/platform/framework/ModuleState.h"
#include "n7utility/platform/system/Resources_internal.h"

namespace {

using n7utility::internal::LibraryModule;

// A loaded module without resources, to stand for another current resource module.
HINSTANCE OtherModule() { return GetModuleHandleW(L"libc.so.6"); }

// Keeps the framework's current resource module as the test found it.
class StringTableTest : public ::testing::Test {
 protected:
  void TearDown() override { AfxSetResourceHandle(saved_); }

  const HINSTANCE saved_ = AfxGetResourceHandle();
};

TEST_F(StringTableTest, LibraryStringsHaveTheirTexts) {
  CStringTable table;
  EXPECT_EQ(table.Load(1),
            L"Internal error: The error %1!d! in the module %2!s! is not implemented. Please "
            L"contact your tool provider.");
  EXPECT_EQ(table.Load(2),
            L"A Win32 exception '0x%1!X!' has occurred.  Exception Context Record: [Ebp=0x%2!X! "
            L"Eip=0x%3!X! SegCs=0x%4!X! EFlags=0x%5!X! Esp=0x%6!X! SegSs=0x%7!X!]");
  EXPECT_EQ(table.Load(3),
            L"A Win64 exception '0x%1!X!' has occurred.  Exception Context Record: [Rbp=0x%2!X! "
            L"Rip=0x%3!X! SegCs=0x%4!X! EFlags=0x%5!X! Rsp=0x%6!X! SegSs=0x%7!X!]");
  EXPECT_EQ(table.Load(4), L"");
}

const N7ResourceTable* ThrowingLookup(HMODULE /*module*/) {
  throw std::runtime_error("lookup failed");
}

// A load switches to the library's module and back, also when it throws; a null previous module
// is not put back.
TEST_F(StringTableTest, PreviousResourceModuleIsPutBackUnlessNull) {
  CStringTable table;
  AfxSetResourceHandle(OtherModule());
  EXPECT_FALSE(table.Load(1).IsEmpty());
  EXPECT_EQ(AfxGetResourceHandle(), OtherModule());

  const auto previous = n7platform::internal::SetResourceTableLookup(ThrowingLookup);
  EXPECT_THROW(table.Load(1), std::runtime_error);
  n7platform::internal::SetResourceTableLookup(previous);
  EXPECT_EQ(AfxGetResourceHandle(), OtherModule());

  AfxSetResourceHandle(nullptr);
  EXPECT_FALSE(table.Load(2).IsEmpty());
  EXPECT_EQ(AfxGetResourceHandle(), LibraryModule().hResource);
}

TEST_F(StringTableTest, WithoutTheLibraryModuleTheTextIsTheEnglishFallback) {
  const HMODULE library = LibraryModule().hResource;
  LibraryModule().hResource = nullptr;
  const CString text = CStringTable().Load(1);
  LibraryModule().hResource = library;
  EXPECT_EQ(text, L"English Only: Instance handle not initialized.");
}

TEST_F(StringTableTest, FrameworkLoadsSearchTheCurrentModuleThenTheExtensionModules) {
  AfxSetResourceHandle(OtherModule());  // has no strings: the library's module has them
  EXPECT_EQ(AfxFindStringResourceHandle(1), LibraryModule().hResource);
  CString text(L"unchanged");
  EXPECT_FALSE(text.LoadString(999));
  EXPECT_EQ(text, L"unchanged");
  EXPECT_TRUE(text.LoadString(1));
  EXPECT_EQ(text.Find(L"Internal error"), 0);

  std::array<wchar_t, 9> buffer{};
  EXPECT_EQ(AfxLoadString(1, buffer.data(), 9), 8);
  EXPECT_EQ(std::wstring(buffer.data()), L"Internal");
  EXPECT_EQ(AfxLoadString(999, buffer.data(), 9), 0);
  EXPECT_EQ(buffer[0], L'\0');
}

TEST(ModuleStateTest, InstanceIsTheMainProgram) {
  EXPECT_EQ(AfxGetInstanceHandle(), GetModuleHandleW(nullptr));
  EXPECT_TRUE(LibraryModule().bInitialized);
}

}  // namespace
