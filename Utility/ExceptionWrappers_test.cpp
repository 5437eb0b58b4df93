// Built with -fnon-call-exceptions: the faults below must unwind out of the faulting instruction.
#include "n7utility/Utility/ExceptionWrappers.h"

#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>
#include <string>
#include <thread>

#include "n7utility/core/error.h"
#include "n7utility/platform/base/Faults_test.h"
#include "n7utility/platform/framework/CountedErrorInfo_test.h"

namespace {

using Morvane_Inc::LimitTextA;
using Morvane_Inc::LimitTextW;

using n7platform::testing::DivideByZero;
using n7platform::testing::ReadNull;

// The exception that `operation` raises on a thread with the translator installed, or null.
template <typename Operation>
CSE_Exception* CatchStructured(Operation operation) {
  try {
    operation();
  } catch (CSE_Exception* exception) {
    return exception;
  }
  return nullptr;
}

// A register value as the message shows it: upper-case hexadecimal without leading zeros.
const wchar_t kHex[] = L"0x(0|[1-9A-F][0-9A-F]*)";

std::wregex MessagePattern(const std::wstring& code) {
  const std::wstring hex = kHex;
  return std::wregex(L"A Win64 exception '0x" + code +
                     L"' has occurred\\.  Exception Context Record: \\[Rbp=" + hex + L" Rip=" +
                     hex + L" SegCs=0x33 EFlags=" + hex + L" Rsp=" + hex + L" SegSs=0x2B\\]");
}

TEST(StructuredExceptionTest, FaultsArriveAsExceptionObjectsAndTheThreadGoesOn) {
  if (!n7platform::testing::kFaultsUnwind) GTEST_SKIP() << "faults cannot unwind in this build";
  bool went_on = false;
  std::thread([&] {
    _set_se_translator(&CSE_ExceptionTransFunction);
    const struct {
      void (*raise)();
      DWORD code;
      const wchar_t* hex;
    } faults[] = {{[] { ReadNull(); }, EXCEPTION_ACCESS_VIOLATION, L"C0000005"},
                  {[] { DivideByZero(1); }, EXCEPTION_INT_DIVIDE_BY_ZERO, L"C0000094"}};
    for (const auto& fault : faults) {
      CSE_Exception* caught = CatchStructured(fault.raise);
      ASSERT_NE(caught, nullptr) << std::hex << fault.code;
      EXPECT_EQ(caught->getExceptionCode(), fault.code);
      EXPECT_EQ(caught->getNumExceptionRecords(), 1);
      EXPECT_EQ(caught->getExceptionRecord(0).ExceptionCode, fault.code);
      EXPECT_TRUE(std::regex_match(caught->getErrorMessage().str(), MessagePattern(fault.hex)))
          << caught->getErrorMessage().str();
      caught->Delete();
    }
    _set_se_translator(nullptr);
    went_on = true;
  }).join();
  EXPECT_TRUE(went_on);
}

// An access violation raised while another exception was handled: two records in a chain.
class ChainedExceptionTest : public ::testing::Test {
 public:
  ChainedExceptionTest() {
    inner_.ExceptionCode = EXCEPTION_INT_DIVIDE_BY_ZERO;
    outer_.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    outer_.ExceptionRecord = &inner_;
    // Addresses of a 64-bit process: the text must not cut them to 32 bits.
    context_.Rbp = 0x7FFC1234ABCD;
    context_.Rip = 0x55FD93E3D2D7;
    context_.SegCs = 0x33;
    context_.EFlags = 0x10246;
    context_.Rsp = 0xFFFFFFFF00000001;
    context_.SegSs = 0x2B;
    // NOLINTNEXTLINE(bugprone-throw-keyword-missing): made to be inspected, not thrown
    exception_ = new CSE_Exception(EXCEPTION_ACCESS_VIOLATION, &pointers_);
  }
  ~ChainedExceptionTest() override { exception_->Delete(); }

 protected:
  EXCEPTION_RECORD inner_{};
  EXCEPTION_RECORD outer_{};
  CONTEXT context_{};
  EXCEPTION_POINTERS pointers_{&outer_, &context_};
  CSE_Exception* exception_;
};

// Whether asking for the record at `index` throws the invalid-argument exception (released).
bool RejectsIndex(const CSE_Exception& exception, LONG index) {
  try {
    exception.getExceptionRecord(index);
  } catch (CException* e) {
    const bool invalid_argument = dynamic_cast<CInvalidArgException*>(e) != nullptr;
    e->Delete();
    return invalid_argument;
  }
  return false;
}

TEST_F(ChainedExceptionTest, KeepsTheRecordsInChainOrder) {
  ASSERT_EQ(exception_->getNumExceptionRecords(), 2);
  const EXCEPTION_RECORD& first = exception_->getExceptionRecord(0);
  EXPECT_EQ(first.ExceptionCode, EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(exception_->getExceptionRecord(1).ExceptionCode, EXCEPTION_INT_DIVIDE_BY_ZERO);
  EXPECT_EQ(first.ExceptionRecord, &exception_->getExceptionRecord(1));  // linked copies
  EXPECT_TRUE(RejectsIndex(*exception_, 2));
  EXPECT_TRUE(RejectsIndex(*exception_, -1));
  CSE_Exception* empty = new CSE_Exception;
  EXPECT_EQ(empty->getNumExceptionRecords(), 0);
  EXPECT_EQ(empty->getExceptionCode(), 0u);
  EXPECT_TRUE(RejectsIndex(*empty, 0));
  empty->Delete();
}

TEST_F(ChainedExceptionTest, MessageShowsCodeAndRegistersInBothForms) {
  const std::wstring expected =
      L"A Win64 exception '0xC0000005' has occurred.  Exception Context Record: "
      L"[Rbp=0x7FFC1234ABCD "
      L"Rip=0x55FD93E3D2D7 SegCs=0x33 EFlags=0x10246 Rsp=0xFFFFFFFF00000001 SegSs=0x2B]";
  UINT help = 7;
  EXPECT_EQ(exception_->getErrorMessage(&help).str(), expected);
  EXPECT_EQ(help, 0u);

  wchar_t buffer[16];
  EXPECT_TRUE(exception_->getErrorMessage(buffer, 16));
  EXPECT_EQ(std::wstring(buffer), expected.substr(0, 15));
  help = 7;
  buffer[0] = L'x';
  EXPECT_FALSE(exception_->getErrorMessage(buffer, 0, &help));
  EXPECT_EQ(buffer[0], L'x');
  EXPECT_EQ(help, 7u);  // nothing written
  EXPECT_FALSE(exception_->getErrorMessage(nullptr, 16));
}

using n7testing::CountedErrorInfo;

TEST(ComExceptionTest, TextIsTheComErrorsCutToTheBuffer) {
  CComException exception(E_ACCESSDENIED, nullptr, FALSE);
  wchar_t buffer[8] = L"stale";
  UINT help = 7;
  EXPECT_TRUE(exception.GetErrorMessage(buffer, 0, &help));  // TRUE even with no room
  EXPECT_STREQ(buffer, L"stale");
  EXPECT_EQ(help, 0u);
  EXPECT_TRUE(exception.GetErrorMessage(buffer, 7));
  EXPECT_STREQ(buffer, L"Access");
  const CException& as_const = exception;  // the base's other form has no text
  EXPECT_FALSE(as_const.GetErrorMessage(buffer, 8));
}

TEST(ComExceptionTest, ErrorInfoReferencesAreTakenOverOrAddedAndThrowTakesThemOver) {
  CountedErrorInfo info;
  {
    const _com_error error(E_FAIL, &info);
    CComException copied(error, FALSE);
    EXPECT_EQ(info.references, 2u);
  }
  EXPECT_EQ(info.references, 0u);
  info.references = 1;
  { CComException taken(E_FAIL, &info, FALSE); }
  EXPECT_EQ(info.references, 0u);

  // Throw raises an auto-deleting pointer that takes the reference over.
  info.references = 1;
  try {
    CComException::Throw(E_INVALIDARG, &info);
  } catch (CException* e) {
    auto* com = dynamic_cast<CComException*>(e);
    ASSERT_NE(com, nullptr);
    EXPECT_EQ(static_cast<_com_error&>(*com).Error(), E_INVALIDARG);
    EXPECT_EQ(info.references, 1u);
    e->Delete();
  }
  EXPECT_EQ(info.references, 0u);
}

TEST(SystemErrorStringTest, CodeThenTextOrTheBareNumber) {
  EXPECT_EQ(CSystemErrorString(5).str(), L"5 (0x5): Access is denied.");
  EXPECT_EQ(CSystemErrorString(7).str(), L"7 (0x7)");
  EXPECT_EQ(CSystemErrorString(0x80040201u).str(), L"2147746305 (0x80040201)");
  // 317's text has inserts and no arguments are given.
  EXPECT_EQ(CSystemErrorString(317).str(), L"317 (0x13D)");
}

// Gives a text, no text, or throws, as the test needs.
class ScriptedException : public CException {
 public:
  enum class Answer { kLongText, kNoText, kThrowsFramework, kThrowsOther };
  explicit ScriptedException(Answer answer) : CException(FALSE), answer_(answer) {}
  using CException::GetErrorMessage;
  BOOL GetErrorMessage(LPWSTR error, UINT max_error, UINT* help_context) override {
    switch (answer_) {
      case Answer::kLongText:
        n7platform::CopyErrorMessage(std::wstring(600, L'z').c_str(), error, max_error,
                                     help_context);
        return TRUE;
      case Answer::kNoText:
        return FALSE;
      case Answer::kThrowsFramework:
        AfxThrowResourceException();
      case Answer::kThrowsOther:
        break;
    }
    throw std::runtime_error("no text");
  }

 private:
  Answer answer_;
};

TEST(AppendExceptionTest, AppendsTheTextTheFallbackOrNothing) {
  CString out = L"> ";
  CResourceException resource;
  out << resource;
  EXPECT_EQ(out.str(), L"> A required resource was unavailable.");

  using Answer = ScriptedException::Answer;
  ScriptedException silent(Answer::kNoText);
  out = L"> ";
  EXPECT_EQ((out << silent).str(), L"> No error text provided.");

  ScriptedException chatty(Answer::kLongText);
  out = L"";
  EXPECT_EQ((out << chatty).GetLength(), 511);

  // The thrown framework exception is deleted: the leak check would see it otherwise.
  for (const Answer answer : {Answer::kThrowsFramework, Answer::kThrowsOther}) {
    ScriptedException failing(answer);
    out = L"> ";
    EXPECT_EQ((out << failing).str(), L"> ");
  }
}

std::wstring Append(const LimitTextW& text) {
  CString out;
  return (out << text).str();
}

std::wstring Append(const LimitTextA& text) {
  CString out;
  return (out << text).str();
}

TEST(LimitTextTest, WideTextsKeepHeadAndTailAroundTheMarker) {
  const wchar_t* twenty = L"ABCDEFGHIJKLMNOPQRST";
  EXPECT_EQ(Append({twenty, -1, 10}), L"ABCDE ...T");
  EXPECT_EQ(Append({twenty, -1, 11}), L"ABCDE ...ST");
  EXPECT_EQ(Append({twenty, -1, 7}), L"ABC ...");
  EXPECT_EQ(Append({twenty, -1, 20}), twenty);
  EXPECT_EQ(Append({twenty, 5, 10}), L"ABCDE");  // the given length, not the terminator
  // Limits without room for the marker: the head alone.
  EXPECT_EQ(Append({twenty, -1, 6}), L"ABCDEF");
  EXPECT_EQ(Append({twenty, -1, 0}), L"");
  EXPECT_EQ(Append({twenty, -1, -3}), L"");
  EXPECT_EQ(Append(LimitTextW{nullptr, -1, 10}), L"");
}

TEST(LimitTextTest, NarrowTextsAreConvertedFromUtf8) {
  EXPECT_EQ(Append({"abcdefghijklmnopqrst", -1, 10}), L"abcde ...t");
  EXPECT_EQ(Append({"caf\xC3\xA9", -1, 10}), L"caf\u00e9");
  // 21 bytes: the head comes from the converted text ...
  EXPECT_EQ(Append({"\xC3\xA9"
                    "bcdefghijklmnopqrst",
                    -1, 10}),
            L"\u00e9bcde ...t");
  // ... and a tail that starts inside a character drops its broken start.
  EXPECT_EQ(Append({"abcdefghijklmnopqrs\xC3\xA9", -1, 10}), L"abcde ...");
  EXPECT_THROW(Append({"abc\xFF", -1, 10}), n7core::ErrorException);
}

}  // namespace
