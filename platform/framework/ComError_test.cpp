#include "n7utility/platform/framework/ComError.h"

#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/framework/CountedErrorInfo_test.h"

namespace {

using n7testing::CountedErrorInfo;

TEST(ComErrorTest, ErrorInfoReferencesFollowTheCopies) {
  CountedErrorInfo info;
  info.description = L"described";
  {
    _com_error error(E_FAIL, &info);  // takes over the caller's reference
    EXPECT_EQ(info.references, 1u);
    {
      _com_error copy(error);  // NOLINT(performance-unnecessary-copy-initialization)
      EXPECT_EQ(info.references, 2u);
      _com_error assigned(S_OK);
      assigned = copy;
      EXPECT_EQ(info.references, 3u);
      EXPECT_EQ(assigned.Error(), E_FAIL);
    }
    EXPECT_EQ(info.references, 1u);
    IErrorInfo* given = error.ErrorInfo();
    EXPECT_EQ(given, &info);
    EXPECT_EQ(info.references, 2u);
    given->Release();
  }
  EXPECT_EQ(info.references, 0u);

  info.references = 1;
  { _com_error shared(E_FAIL, &info, true); }
  EXPECT_EQ(info.references, 1u);
  EXPECT_EQ(_com_error(E_FAIL).ErrorInfo(), nullptr);
}

TEST(ComErrorTest, MessageIsTheSystemTextWithoutItsLineEnd) {
  EXPECT_STREQ(_com_error(E_FAIL).ErrorMessage(), L"Unspecified error");
  EXPECT_STREQ(_com_error(S_OK).ErrorMessage(), L"The operation completed successfully.");
  const _com_error error(E_INVALIDARG);
  const wchar_t* first = error.ErrorMessage();
  EXPECT_EQ(error.ErrorMessage(), first);  // built once
  const _com_error copy(error);            // NOLINT(performance-unnecessary-copy-initialization)
  EXPECT_STREQ(copy.ErrorMessage(), first);
}

TEST(ComErrorTest, CodesWithoutTextReadAsDispatchOrUnknown) {
  EXPECT_STREQ(_com_error(static_cast<HRESULT>(0x80040201u)).ErrorMessage(), L"IDispatch error #1");
  EXPECT_STREQ(_com_error(static_cast<HRESULT>(0x8004FFFFu)).ErrorMessage(),
               L"IDispatch error #65023");
  EXPECT_STREQ(_com_error(static_cast<HRESULT>(0x80040200u)).ErrorMessage(),
               L"Unknown error 0x80040200");
  EXPECT_STREQ(_com_error(0x2A).ErrorMessage(), L"Unknown error 0x2A");
  EXPECT_EQ(_com_error::WCodeToHRESULT(1), static_cast<HRESULT>(0x80040201u));
  EXPECT_EQ(_com_error::WCodeToHRESULT(0xFFFF), static_cast<HRESULT>(0x8004FFFFu));
}

TEST(ComErrorTest, IssueErrorThrowsByValue) {
  try {
    _com_issue_error(E_POINTER);
    FAIL() << "no throw";
  } catch (const _com_error& error) {
    EXPECT_EQ(error.Error(), E_POINTER);
    EXPECT_STREQ(error.ErrorMessage(), L"Invalid pointer");
  }
}

TEST(ComErrorTest, HresultMacrosAndWin32Mapping) {
  EXPECT_TRUE(SUCCEEDED(S_FALSE));
  EXPECT_TRUE(FAILED(E_FAIL));
  EXPECT_EQ(HRESULT_FROM_WIN32(5), E_ACCESSDENIED);
  EXPECT_EQ(HRESULT_FROM_WIN32(0), S_OK);
  EXPECT_EQ(HRESULT_FROM_WIN32(static_cast<DWORD>(E_FAIL)), E_FAIL);
  EXPECT_EQ(HRESULT_CODE(E_INVALIDARG), 0x57);
  EXPECT_EQ(HRESULT_FACILITY(E_INVALIDARG), static_cast<HRESULT>(FACILITY_WIN32));
  EXPECT_EQ(MAKE_HRESULT(SEVERITY_ERROR, FACILITY_WIN32, 5), E_ACCESSDENIED);
}

TEST(ComErrorTest, BstrKeepsItsLength) {
  BSTR text = SysAllocStringLen(L"a\0b", 3);
  EXPECT_EQ(SysStringLen(text), 3u);
  EXPECT_EQ(text[2], L'b');
  EXPECT_EQ(text[3], L'\0');
  SysFreeString(text);
  EXPECT_EQ(SysAllocString(nullptr), nullptr);
  EXPECT_EQ(SysStringLen(nullptr), 0u);
  SysFreeString(nullptr);
}

}  // namespace
