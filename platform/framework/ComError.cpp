#include "n7utility/platform/framework/ComError.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "n7utility/platform/system/FormatMessage.h"
#include "n7utility/platform/system/LocalMemory.h"

namespace {

constexpr DWORD kDispatchFirst = 0x80040200u;
constexpr DWORD kDispatchLast = 0x8004FFFFu;
constexpr std::size_t kFallbackMessageChars = 32;

// A BSTR's characters follow its length, which sits in the block's first bytes.
struct BstrHeader {
  UINT length;
};
constexpr std::size_t kBstrPrefix = alignof(std::max_align_t);
static_assert(sizeof(BstrHeader) <= kBstrPrefix);

std::atomic_ref<LPWSTR> Message(LPWSTR& slot) { return std::atomic_ref<LPWSTR>(slot); }

}  // namespace

BSTR SysAllocStringLen(const wchar_t* text, UINT length) {
  const std::size_t chars = std::size_t{length} + 1;
  auto* block = static_cast<unsigned char*>(std::calloc(1, kBstrPrefix + chars * sizeof(wchar_t)));
  if (block == nullptr) return nullptr;
  reinterpret_cast<BstrHeader*>(block)->length = length;
  auto* string = reinterpret_cast<wchar_t*>(block + kBstrPrefix);
  if (text != nullptr) std::wmemcpy(string, text, length);
  return string;
}

BSTR SysAllocString(const wchar_t* text) {
  if (text == nullptr) return nullptr;
  return SysAllocStringLen(text, static_cast<UINT>(std::wcslen(text)));
}

void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(reinterpret_cast<unsigned char*>(text) - kBstrPrefix);
}

UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  return reinterpret_cast<const BstrHeader*>(reinterpret_cast<unsigned char*>(text) - kBstrPrefix)
      ->length;
}

_com_error::_com_error(HRESULT hr, IErrorInfo* error_info, bool add_ref) noexcept
    : m_hresult(hr), m_perrinfo(error_info) {
  if (m_perrinfo != nullptr && add_ref) m_perrinfo->AddRef();
}

_com_error::_com_error(const _com_error& that) noexcept
    : m_hresult(that.m_hresult), m_perrinfo(that.m_perrinfo) {
  if (m_perrinfo != nullptr) m_perrinfo->AddRef();
}

_com_error& _com_error::operator=(const _com_error& that) noexcept {
  if (this == &that) return *this;
  if (that.m_perrinfo != nullptr) that.m_perrinfo->AddRef();
  if (m_perrinfo != nullptr) m_perrinfo->Release();
  m_hresult = that.m_hresult;
  m_perrinfo = that.m_perrinfo;
  LocalFree(Message(m_pszMsg).exchange(nullptr));
  return *this;
}

_com_error::~_com_error() {
  if (m_perrinfo != nullptr) m_perrinfo->Release();
  LocalFree(m_pszMsg);
}

IErrorInfo* _com_error::ErrorInfo() const noexcept {
  if (m_perrinfo != nullptr) m_perrinfo->AddRef();
  return m_perrinfo;
}

const wchar_t* _com_error::ErrorMessage() const noexcept {
  auto slot = Message(m_pszMsg);
  LPWSTR text = slot.load(std::memory_order_acquire);
  if (text != nullptr) return text;
  LPWSTR built = BuildMessage();
  if (built == nullptr) return L"";
  // Another thread may have built it meanwhile; the first text stays.
  if (slot.compare_exchange_strong(text, built, std::memory_order_acq_rel)) return built;
  LocalFree(built);
  return text;
}

LPWSTR _com_error::BuildMessage() const noexcept {
  LPWSTR text = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, static_cast<DWORD>(m_hresult), MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
      reinterpret_cast<LPWSTR>(&text), 0, nullptr);
  if (text != nullptr) {
    if (length > 1 && text[length - 1] == L'\n') {
      text[length - 1] = L'\0';
      if (text[length - 2] == L'\r') text[length - 2] = L'\0';
    }
    return text;
  }
  text = static_cast<LPWSTR>(LocalAlloc(LMEM_FIXED, kFallbackMessageChars * sizeof(wchar_t)));
  if (text == nullptr) return nullptr;
  if (const WORD code = WCode(); code != 0) {
    std::swprintf(text, kFallbackMessageChars, L"IDispatch error #%d", code);
  } else {
    std::swprintf(text, kFallbackMessageChars, L"Unknown error 0x%0lX",
                  static_cast<unsigned long>(static_cast<DWORD>(m_hresult)));
  }
  return text;
}

WORD _com_error::HRESULTToWCode(HRESULT hr) noexcept {
  const auto value = static_cast<DWORD>(hr);
  return value >= kDispatchFirst && value <= kDispatchLast
             ? static_cast<WORD>(value - kDispatchFirst)
             : WORD{0};
}

HRESULT _com_error::WCodeToHRESULT(WORD code) noexcept {
  return code >= 0xFE00 ? static_cast<HRESULT>(kDispatchLast)
                        : static_cast<HRESULT>(kDispatchFirst + code);
}

void _com_issue_error(HRESULT hr) { throw _com_error(hr); }

void _com_raise_error(HRESULT hr, IErrorInfo* error_info) { throw _com_error(hr, error_info); }
