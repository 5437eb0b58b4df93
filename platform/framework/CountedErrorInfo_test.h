// An error-information object for tests: it counts its references (the test owns its storage) and
// describes itself with `description` when one is set.
#pragma once

#include "n7utility/platform/framework/ComError.h"

namespace n7testing {

class CountedErrorInfo : public IErrorInfo {
 public:
  HRESULT QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++references; }
  ULONG Release() override { return --references; }
  HRESULT GetGUID(GUID*) override { return E_NOTIMPL; }
  HRESULT GetSource(BSTR*) override { return E_NOTIMPL; }
  HRESULT GetDescription(BSTR* text) override {
    if (description == nullptr) return E_NOTIMPL;
    *text = SysAllocString(description);
    return S_OK;
  }
  HRESULT GetHelpFile(BSTR*) override { return E_NOTIMPL; }
  HRESULT GetHelpContext(DWORD*) override { return E_NOTIMPL; }

  ULONG references = 1;
  const wchar_t* description = nullptr;
};

}  // namespace n7testing
