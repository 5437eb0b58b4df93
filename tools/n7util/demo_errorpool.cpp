// n7util demo, error pools: a module's error texts, and a code it never defined.

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/ErrorPool.h"
#include "n7utility/core/text.h"
#include "n7utility/platform/system/MessageBox.h"

namespace n7util {
namespace {

constexpr int kNoError = 0;
constexpr int kSpoolFileMissing = 1;
constexpr int kUndefinedCode = 42;
// No resource module has this string, so the default text is stored.
constexpr UINT kNoSuchString = 60000;

// The demo's error manager: one module, one defined error.
class DemoErrorMgr final : public AErrorPoolMgr {
 public:
  DemoErrorMgr() : AErrorPoolMgr(L"n7util demo", kNoError) {
    AddError(kSpoolFileMissing, kNoSuchString, L"The spool file could not be opened.");
  }
  using AErrorPoolMgr::IManage;
  using AErrorPoolMgr::IMessage;
};

}  // namespace

bool errorpool_step(std::ostream& out) {
  DemoErrorMgr errors;
  const CString message = errors.IMessage(kSpoolFileMissing);
  out << "  the message of error " << kSpoolFileMissing << ": \""
      << n7core::to_string(message.str()) << "\"\n";
  if (message != L"The spool file could not be opened.") {
    print_error("error pools: the defined error lost its text");
    return false;
  }
  if (errors.IManage(kNoError, MB_OK, 0) != 0) {
    print_error("error pools: the no-error value showed a message");
    return false;
  }
  out << "  showing error " << kUndefinedCode
      << ", which the module never defined (the message box writes to standard error):"
      << std::endl;
  if (errors.IManage(kUndefinedCode, MB_OK, 0) != IDOK) {
    print_error("error pools: the message box of an undefined error did not answer OK");
    return false;
  }
  return true;
}

}  // namespace n7util
