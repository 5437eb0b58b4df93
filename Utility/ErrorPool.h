// Error pools: a module's table from its integer error codes to message texts, and the base of the
// module's error manager that fills the table and shows its messages.
//
// A module derives its error manager from AErrorPoolMgr and fills the pool at start-up with
// AddError, each text taken from the program's string resources when they have it, else from a
// default given in code. IMessage gives a code's text; IManage shows it in the application message
// box. The pool's no-error value never shows anything. A code without an entry shows the
// internal-error text, which names the code and the pool, so that a module that forgot a message
// still tells the user which error it was.
//
// Nothing here throws on its own account: a missing resource falls back to the default text, an
// internal-error text that cannot be formatted is shown as it stands. Allocation failures of the
// map and of CString pass through as they are.
//
// A pool has no lock: fill it before several threads read it. IManage blocks its thread until the
// message box handler returns.
#pragma once

#include "n7utility/platform/base/Export.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/framework/CString.h"
#include "n7utility/platform/framework/Map.h"

// The codes and texts of one module, with the module's name and its no-error value. Entries are
// allocated ten at a time.
class N7_EXPORT CErrorPool : public CMap<int, int, CString, const CString&> {
 public:
  CErrorPool(const CString& name, int no_error_value);
  ~CErrorPool() override;
  CErrorPool(const CErrorPool&) = delete;
  CErrorPool& operator=(const CErrorPool&) = delete;

  // The module name that the internal-error text shows.
  const CString& Name() const;
  // The code that means success.
  int NoErrorValue() const;

 private:
  CString m_strName;
  int m_nNoErrorValue;
};

// Base of a module's error manager; only derived classes make and use one.
class N7_EXPORT AErrorPoolMgr {
 protected:
  AErrorPoolMgr(const CString& name, int no_error_value);
  ~AErrorPoolMgr();
  AErrorPoolMgr(const AErrorPoolMgr&) = delete;
  AErrorPoolMgr& operator=(const AErrorPoolMgr&) = delete;

  const CErrorPool& Pool() const;

  // Stores the message of `code`: string `resource_id` as the framework's string load finds it
  // in the program's resource modules, or `default_text` when none has it. Replaces an entry
  // already there.
  void AddError(int code, UINT resource_id, const CString& default_text);

  // The stored text of `code`, or an empty string when it has none. The no-error value is an
  // ordinary code here.
  const CString IMessage(int code) const;

  // Shows the message of `code` and returns the message box's result:
  //   - the no-error value: nothing is shown, 0;
  //   - a code with an entry: its text, with `style` and `help_id` as given;
  //   - any other code: the internal-error text with the code (signed decimal) and the pool's
  //     name filled in, always with the stop icon (MB_ICONSTOP) alone and no help identifier,
  //     since the caller's buttons and help topic were meant for a message that does not exist.
  // The internal-error text is string 1 of the library's own string table; when the library's
  // resources cannot be reached, the same English text built into the code.
  int IManage(int code, UINT style, UINT help_id);

 private:
  CErrorPool m_Pool;
};
