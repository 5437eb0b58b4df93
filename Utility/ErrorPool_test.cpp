#include "n7utility/Utility/ErrorPool.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "n7utility/Utility/LibraryModule_internal.h"
#include "n7utility/platform/system/MessageBox.h"

namespace {

// What the message box was asked to show; the box answers with `answer`.
struct ShownBox {
  int count = 0;
  std::wstring text;
  UINT type = 0;
  UINT help_id = 0;
  int answer = IDOK;
};
ShownBox g_box;

int RecordBox(LPCWSTR text, UINT type, UINT help_id) {
  ++g_box.count;
  g_box.text = text;
  g_box.type = type;
  g_box.help_id = help_id;
  return g_box.answer;
}

// A module's error manager, opened up for the tests.
class TestErrorMgr : public AErrorPoolMgr {
 public:
  TestErrorMgr(const CString& name, int no_error_value) : AErrorPoolMgr(name, no_error_value) {}
  using AErrorPoolMgr::AddError;
  using AErrorPoolMgr::IManage;
  using AErrorPoolMgr::IMessage;
  using AErrorPoolMgr::Pool;
};

// A string id that no resource table in the test program has.
constexpr UINT kMissingString = 60000;
// The library's own string 1, which the test program carries in its resources.
constexpr UINT kPresentString = 1;

std::wstring InternalError(const std::wstring& code, const std::wstring& module) {
  return L"Internal error: The error " + code + L" in the module " + module +
         L" is not implemented. Please contact your tool provider.";
}

class ErrorPoolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_box = ShownBox{};
    previous_ = SetMessageBoxHandler(&RecordBox);
  }
  void TearDown() override { SetMessageBoxHandler(previous_); }

  TestErrorMgr mgr_{L"Spooler", 0};

 private:
  MessageBoxHandler previous_ = nullptr;
};

TEST_F(ErrorPoolTest, NoErrorValueShowsNothing) {
  EXPECT_EQ(mgr_.IManage(0, MB_OK, 0), 0);
  EXPECT_EQ(mgr_.IMessage(0), L"");
  // A message added for the no-error value is kept, but still never shown.
  mgr_.AddError(0, kMissingString, L"All is well");
  EXPECT_EQ(mgr_.IMessage(0), L"All is well");
  EXPECT_EQ(mgr_.IManage(0, MB_OK, 0), 0);
  EXPECT_EQ(g_box.count, 0);

  // Another no-error value makes 0 an unknown code.
  TestErrorMgr other(L"Other", -1);
  EXPECT_EQ(other.IManage(-1, MB_OK, 0), 0);
  EXPECT_EQ(g_box.count, 0);
  other.IManage(0, MB_OK, 0);
  EXPECT_EQ(g_box.text, InternalError(L"0", L"Other"));
}

TEST_F(ErrorPoolTest, AddErrorTakesTheStringResourceOrTheDefaultAndReplaces) {
  mgr_.AddError(7, kMissingString, L"Printer out of paper");
  mgr_.AddError(7, kMissingString, L"Printer jammed");
  EXPECT_EQ(mgr_.IMessage(7), L"Printer jammed");
  EXPECT_EQ(mgr_.Pool().GetCount(), 1);
  EXPECT_EQ(mgr_.IMessage(8), L"");
  mgr_.AddError(9, kPresentString, L"Printer out of paper");
  EXPECT_EQ(mgr_.IMessage(9), InternalError(L"%1!d!", L"%2!s!"));
}

TEST_F(ErrorPoolTest, KnownCodeShowsItsTextWithCallersStyleAndHelp) {
  mgr_.AddError(7, kMissingString, L"Printer jammed");
  g_box.answer = IDNO;
  EXPECT_EQ(mgr_.IManage(7, MB_YESNO | MB_ICONQUESTION, 4711), IDNO);
  EXPECT_EQ(g_box.count, 1);
  EXPECT_EQ(g_box.text, L"Printer jammed");
  EXPECT_EQ(g_box.type, MB_YESNO | MB_ICONQUESTION);
  EXPECT_EQ(g_box.help_id, 4711u);
}

TEST_F(ErrorPoolTest, UnknownCodeShowsInternalErrorWithStopIconAndTheCodesSign) {
  g_box.answer = IDCANCEL;
  EXPECT_EQ(mgr_.IManage(42, MB_YESNO | MB_ICONQUESTION, 4711), IDCANCEL);
  EXPECT_EQ(g_box.text, InternalError(L"42", L"Spooler"));
  EXPECT_EQ(g_box.type, MB_ICONSTOP);
  EXPECT_EQ(g_box.help_id, 0u);
  mgr_.IManage(INT_MIN, MB_OK, 0);
  EXPECT_EQ(g_box.text, InternalError(L"-2147483648", L"Spooler"));
}

TEST_F(ErrorPoolTest, InternalErrorTextWithoutLibraryResources) {
  // A pool name with insert syntax in it is shown as it stands.
  TestErrorMgr odd(L"100%1!d!", 0);
  HMODULE& library = n7utility::internal::LibraryModule().hResource;
  const HMODULE saved = library;
  library = nullptr;
  odd.IManage(42, MB_OK, 0);
  library = saved;
  EXPECT_EQ(g_box.text, InternalError(L"42", L"100%1!d!"));
}

}  // namespace
