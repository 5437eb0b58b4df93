// n7util demo, passwords: a stored password value and its checks.

#include <iterator>
#include <string>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/Authentication.h"
#include "n7utility/core/text.h"

namespace n7util {
namespace {

// One check of a password against the stored value, and the answer it must get.
struct PasswordCheck {
  const char* description;
  const wchar_t* user;
  const wchar_t* password;
  bool keypad;
  bool accepted;
};

}  // namespace

bool password_step(std::ostream& out) {
  const std::wstring user = L"Operator", password = L"Night-Shift 7";
  const std::wstring stored = N7A::MakePassword(user, password);
  out << "  MakePassword(\"Operator\", \"Night-Shift 7\") stores " << n7core::to_string(stored)
      << "\n  (typed half, then the half of the keypad form "
      << n7core::to_string(N7A::KeyMap(password, false)) << ")\n";
  const PasswordCheck checks[] = {
      {"the password as typed", L"Operator", L"Night-Shift 7", false, true},
      {"the user ID in another case", L"OPERATOR", L"Night-Shift 7", false, true},
      {"the keypad digits, as from a telephone", L"operator", L"64448744387", true, true},
      {"a wrong password", L"Operator", L"night-shift 7", false, false},
      {"letters where the keypad needs digits", L"Operator", L"Night-Shift 7", true, false},
  };
  for (const PasswordCheck& check : checks) {
    const bool accepted = N7A::Validate(check.user, check.password, check.keypad, stored);
    out << "  Validate " << check.description << ": " << (accepted ? "accepted" : "rejected")
        << '\n';
    if (accepted != check.accepted) {
      print_error(std::string("passwords: ") + check.description + " was " +
                  (accepted ? "accepted" : "rejected"));
      return false;
    }
  }
  return true;
}

}  // namespace n7util
