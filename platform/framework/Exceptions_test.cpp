#include "n7utility/platform/framework/Exceptions.h"

#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/framework/CountedException_test.h"

namespace {

// Records what the message box would have shown.
std::wstring g_shown;
int RecordBox(LPCWSTR text, UINT /*type*/, UINT /*help_id*/) {
  g_shown = text;
  return IDCANCEL;
}

class ReportErrorTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = SetMessageBoxHandler(&RecordBox); }
  void TearDown() override { SetMessageBoxHandler(previous_); }

 private:
  MessageBoxHandler previous_ = nullptr;
};

TEST(ExceptionTest, DeleteFreesOnlyAutoDeletingObjects) {
  int destroyed = 0;
  (new CountedException(TRUE, &destroyed))->Delete();
  EXPECT_EQ(destroyed, 1);
  {
    CountedException on_stack(FALSE, &destroyed);
    on_stack.Delete();
    EXPECT_EQ(destroyed, 1);
  }
  EXPECT_EQ(destroyed, 2);
}

TEST(ExceptionTest, MessagesFillTheBufferWithinItsSize) {
  wchar_t buffer[64] = L"stale";
  UINT help = 99;
  CException& base = *new CException;
  EXPECT_FALSE(base.GetErrorMessage(buffer, 64, &help));
  EXPECT_STREQ(buffer, L"");
  EXPECT_EQ(help, 0u);
  base.Delete();

  CResourceException resource;
  CException& as_base = resource;  // the non-const form asks the const one
  EXPECT_TRUE(as_base.GetErrorMessage(buffer, 64));
  EXPECT_STREQ(buffer, L"A required resource was unavailable.");
  EXPECT_TRUE(resource.GetErrorMessage(buffer, 4));
  EXPECT_STREQ(buffer, L"A r");
  buffer[0] = L'x';
  EXPECT_TRUE(resource.GetErrorMessage(buffer, 0));
  EXPECT_EQ(buffer[0], L'x');
}

TEST(ExceptionTest, AfxThrowsArePointersToTheirKind) {
  try {
    AfxThrowInvalidArgException();
  } catch (CException* e) {
    EXPECT_NE(dynamic_cast<CInvalidArgException*>(e), nullptr);
    e->Delete();
  }
}

TEST_F(ReportErrorTest, ShowsTheTextOrTheFallback) {
  CInvalidArgException invalid;
  EXPECT_EQ(invalid.ReportError(MB_ICONSTOP), IDCANCEL);
  EXPECT_EQ(g_shown, L"Encountered an improper argument.");
  CException silent(FALSE);
  silent.ReportError();
  EXPECT_EQ(g_shown, L"No error message is available.");
  silent.ReportError(MB_OK, 12);
  EXPECT_EQ(g_shown, L"Error message 12.");
}

}  // namespace
