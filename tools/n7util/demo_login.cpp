// n7util demo, login: an SRP-6a login against a freshly stored password blob, right and wrong
// password.

#include <string>

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/Authentication.h"
#include "srp_login.h"

namespace n7util {
namespace {

const char* describe_outcome(SrpLogin::Outcome outcome) {
  switch (outcome) {
    case SrpLogin::Outcome::kAccepted:
      return "accepted, both sides hold the same session key";
    case SrpLogin::Outcome::kRefusedByServer:
      return "refused by the server (M1 does not prove the password)";
    case SrpLogin::Outcome::kRefusedByClient:
      return "refused by the client (M2 does not verify)";
  }
  return "unknown outcome";
}

// One login of `user` typing `password` against `blob`; false when it did not end as `expected`.
bool try_login(std::ostream& out, const std::string& user, const std::string& password,
               const std::string& blob, SrpLogin::Outcome expected) {
  SrpLogin login(user, blob);
  SrpLogin::Outcome outcome = login.run(password);
  if (outcome == SrpLogin::Outcome::kAccepted && !login.same_key()) {
    outcome = SrpLogin::Outcome::kRefusedByClient;
  }
  out << "  login as " << user << " with \"" << password << "\": " << describe_outcome(outcome)
      << '\n';
  if (outcome != expected) {
    print_error("login: expected \"" + std::string(describe_outcome(expected)) + "\"");
    return false;
  }
  return true;
}

}  // namespace

bool login_step(std::ostream& out) {
  const std::string user = "Operator", password = "Night-Shift 7";
  const std::string blob = N7A::MdgM2(user, password);
  out << "  MdgM2 stores a new password blob for Operator: a fresh salt, the SRP password key\n"
         "  (PBKDF2, 1024 iterations) and the stored password value\n";
  return try_login(out, user, password, blob, SrpLogin::Outcome::kAccepted) &&
         try_login(out, user, "night-shift 7", blob, SrpLogin::Outcome::kRefusedByServer);
}

}  // namespace n7util
