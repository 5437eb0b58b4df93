#include "n7utility/platform/system/FormatMessage.h"

#include <gtest/gtest.h>

#include <string>

#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/LocalMemory.h"

namespace {

constexpr DWORD kFromSystem = FORMAT_MESSAGE_FROM_SYSTEM;
constexpr DWORD kFromString = FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_ARGUMENT_ARRAY;

// The outcome of one call: the text, or the last error when the call returned 0.
struct Outcome {
  std::wstring text;
  DWORD error = ERROR_SUCCESS;
};

Outcome Format(DWORD flags, LPCVOID source, DWORD id, const DWORD_PTR* arguments = nullptr,
               DWORD language = 0) {
  wchar_t buffer[256];
  SetLastError(0xDEAD);
  const DWORD length =
      FormatMessageW(flags, source, id, language, buffer, 256,
                     reinterpret_cast<va_list*>(const_cast<DWORD_PTR*>(arguments)));
  if (length == 0) return {L"", GetLastError()};
  EXPECT_EQ(length, std::wcslen(buffer));
  return {buffer, ERROR_SUCCESS};
}

Outcome FormatString(LPCWSTR message, std::initializer_list<DWORD_PTR> arguments) {
  return Format(kFromString, message, 0, std::data(arguments));
}

// Formats through a va_list, as printf-like wrappers pass their own arguments on.
Outcome FormatVa(LPCWSTR message, ...) {
  va_list arguments;
  va_start(arguments, message);
  wchar_t buffer[128];
  const DWORD length =
      FormatMessageW(FORMAT_MESSAGE_FROM_STRING, message, 0, 0, buffer, 128, &arguments);
  va_end(arguments);
  if (length == 0) return {L"", GetLastError()};
  return {buffer, ERROR_SUCCESS};
}

TEST(FormatMessageSystemTest, KnownCodesHaveTheirTextWithItsLineEnd) {
  EXPECT_EQ(Format(kFromSystem, nullptr, 5).text, L"Access is denied.\r\n");
  EXPECT_EQ(Format(kFromSystem, nullptr, 1722).text, L"The RPC server is unavailable.\r\n");
  EXPECT_EQ(Format(kFromSystem, nullptr, 0x80004005u /* E_FAIL */).text, L"Unspecified error\r\n");
  // HRESULTs of the Win32 facility read as their Win32 code.
  EXPECT_EQ(Format(kFromSystem, nullptr, 0x8007000Eu /* E_OUTOFMEMORY */).text,
            Format(kFromSystem, nullptr, ERROR_OUTOFMEMORY).text);
  EXPECT_EQ(Format(kFromSystem, nullptr, 0x80070057u, nullptr, 0x0409).text,
            L"The parameter is incorrect.\r\n");
}

TEST(FormatMessageSystemTest, MissingTextsAndBadRequestsFail) {
  EXPECT_EQ(Format(kFromSystem, nullptr, 0x80040201u).error, ERROR_MR_MID_NOT_FOUND);
  EXPECT_EQ(Format(kFromSystem, nullptr, 7).error, ERROR_MR_MID_NOT_FOUND);
  EXPECT_EQ(Format(kFromSystem, nullptr, 5, nullptr, MAKELANGID(0x07, 0x01)).error, 1815u);
  EXPECT_EQ(Format(0, nullptr, 5).error, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Format(FORMAT_MESSAGE_FROM_STRING, nullptr, 0).error, ERROR_INVALID_PARAMETER);
  // 317's own text has inserts: asking for it without arguments is a bad request.
  EXPECT_EQ(Format(kFromSystem, nullptr, ERROR_MR_MID_NOT_FOUND).error, ERROR_INVALID_PARAMETER);
}

TEST(FormatMessageModuleTest, ModuleTableComesBeforeTheSystems) {
  constexpr DWORD kFromProgram = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY;
  const DWORD_PTR service[] = {reinterpret_cast<DWORD_PTR>(L"spooler")};
  EXPECT_EQ(Format(kFromProgram, nullptr, 0x40000001, service).text,
            L"Service spooler started.\r\n");
  EXPECT_EQ(Format(kFromProgram | kFromSystem, nullptr, 5).text,
            L"The program's own text for 5.\r\n");
  EXPECT_EQ(Format(kFromProgram | kFromSystem, nullptr, 87).text,
            L"The parameter is incorrect.\r\n");
  EXPECT_EQ(Format(kFromProgram, nullptr, 87).error, ERROR_MR_MID_NOT_FOUND);
}

TEST(FormatMessageBufferTest, CallerBufferMustHoldTextAndTerminator) {
  wchar_t buffer[19];  // "Access is denied.\r\n" is 19 characters
  SetLastError(0);
  EXPECT_EQ(FormatMessageW(kFromSystem, nullptr, 5, 0, buffer, 19, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  wchar_t fits[20];
  EXPECT_EQ(FormatMessageW(kFromSystem, nullptr, 5, 0, fits, 20, nullptr), 19u);
  EXPECT_EQ(FormatMessageW(kFromSystem, nullptr, 5, 0, nullptr, 20, nullptr), 0u);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(FormatMessageBufferTest, AllocatedBufferIsFreedWithLocalFree) {
  LPWSTR text = nullptr;
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | kFromSystem, nullptr, 87, 0,
                                      reinterpret_cast<LPWSTR>(&text), 0, nullptr);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::wstring(text, length), L"The parameter is incorrect.\r\n");
  EXPECT_EQ(LocalFree(text), nullptr);

  text = reinterpret_cast<LPWSTR>(1);
  EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | kFromSystem, nullptr, 7, 0,
                           reinterpret_cast<LPWSTR>(&text), 0, nullptr),
            0u);
  EXPECT_EQ(text, nullptr);
}

TEST(FormatMessageInsertTest, ConversionsSizesAndFlags) {
  const std::string narrow = "caf\xC3\xA9";
  EXPECT_EQ(FormatString(L"%1 %2!d! %3!X! %4!S! %5!lu! %6!hs!",
                         {reinterpret_cast<DWORD_PTR>(L"wide"), 0xFFFFFFFFu, 0xC0000005u,
                          reinterpret_cast<DWORD_PTR>(narrow.c_str()), 0x1FFFFFFFFu,
                          reinterpret_cast<DWORD_PTR>("x")})
                .text,
            L"wide -1 C0000005 caf\u00e9 4294967295 x");
  EXPECT_EQ(
      FormatString(L"[%1!5d!|%2!-4s!|%3!.2s!|%4!08x!|%5!I64d!|%6!hd!|%7!c!]",
                   {42, reinterpret_cast<DWORD_PTR>(L"ab"), reinterpret_cast<DWORD_PTR>(L"abcdef"),
                    0xBEEF, static_cast<DWORD_PTR>(-5), 0x1FFFF, L'Z'})
          .text,
      L"[   42|ab  |ab|0000beef|-5|-1|Z]");
  EXPECT_EQ(FormatString(L"%2 before %1",
                         {reinterpret_cast<DWORD_PTR>(L"one"), reinterpret_cast<DWORD_PTR>(L"two")})
                .text,
            L"two before one");
  EXPECT_EQ(FormatString(L"%1!s!", {0}).text, L"(null)");
}

TEST(FormatMessageInsertTest, WidthAndPrecisionFromArguments) {
  // %1!*.*s! takes arguments 1 and 2 as width and precision and 3 as the text; %4 comes next.
  EXPECT_EQ(FormatString(L"<%1!*.*s!><%4!*d!>", {6, 3, reinterpret_cast<DWORD_PTR>(L"abcdef"),
                                                 static_cast<DWORD_PTR>(-4), 7})
                .text,
            L"<   abc><7   >");
}

TEST(FormatMessageInsertTest, EscapesLineBreaksAndEnd) {
  EXPECT_EQ(FormatString(L"100%% sure%.% %!%t%rline%nnext", {}).text,
            L"100% sure. !\t\rline\r\nnext");
  EXPECT_EQ(FormatString(L"kept%0 dropped", {}).text, L"kept");
  EXPECT_EQ(FormatString(L"trailing %", {}).text, L"trailing %");
}

TEST(FormatMessageInsertTest, IgnoredInsertsAreCopiedAsWritten) {
  EXPECT_EQ(
      Format(FORMAT_MESSAGE_FROM_STRING | FORMAT_MESSAGE_IGNORE_INSERTS, L"%1!d! of %2%n", 0).text,
      L"%1!d! of %2\r\n");
}

TEST(FormatMessageInsertTest, VaListArgumentsAreReadInOrder) {
  EXPECT_EQ(FormatVa(L"%1!s!=%2!u!", L"count", DWORD_PTR{7}).text, L"count=7");
  EXPECT_EQ(FormatVa(L"%2!s!", DWORD_PTR{1}, L"second").text, L"second");
}

TEST(FormatMessageInsertTest, MalformedInsertsFail) {
  const DWORD_PTR one[] = {1, 2, 3};
  EXPECT_EQ(Format(FORMAT_MESSAGE_FROM_STRING, L"%1", 0).error, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Format(kFromString, L"%1!d", 0, one).error, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Format(kFromString, L"%1!f!", 0, one).error, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Format(kFromString, L"%1!dd!", 0, one).error, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Format(kFromString, L"%1!99999d!", 0, one).error, ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Format(kFromString, L"", 0, one).error, ERROR_SUCCESS);
}

TEST(FormatMessageWidthTest, LineWidthReplacesBreaksAndWraps) {
  EXPECT_EQ(Format(kFromSystem | FORMAT_MESSAGE_MAX_WIDTH_MASK, nullptr, 5).text,
            L"Access is denied. ");
  EXPECT_EQ(Format(FORMAT_MESSAGE_FROM_STRING | 10, L"one two\r\nthree four%nfive", 0).text,
            L"one two\r\nthree four\r\nfive");
  EXPECT_EQ(Format(FORMAT_MESSAGE_FROM_STRING | 4, L"abcdefghij", 0).text, L"abcd\r\nefgh\r\nij");
}

}  // namespace
