// One whole SRP-6a login in this process, the client's and the server's steps in turn, timed:
// what `n7util srp login` shows and the demo's login step checks.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "n7utility/n7crypto/key.h"

namespace n7util {

class SrpLogin {
 public:
  enum class Outcome {
    kAccepted,         // both proofs verified: both sides hold the same K
    kRefusedByServer,  // the server did not accept M1 (wrong password or user ID)
    kRefusedByClient,  // the client did not accept M2
  };

  // A login of `user` against the server's stored `blob`.
  SrpLogin(std::string user, std::string blob);

  // Runs the steps in order with the password the client types. A step that throws ends the
  // login with its exception.
  Outcome run(const std::string& password);

  // Whether both sides hold the same session key.
  bool same_key() const;

  // A, B, M1, M2 in hexadecimal, whether K is the same, and the time of each step.
  void print(std::ostream& out) const;

 private:
  struct Step {
    const char* side;
    const char* name;
    double milliseconds;
  };

  template <typename Action>
  void timed(const char* side, const char* name, Action&& action);

  const std::string user_;
  const std::string blob_;
  n7crypto::Key a_, clientK_, serverK_;
  std::vector<unsigned char> A_, B_, M1_, M2_, salt_;
  std::string props_;
  std::vector<Step> steps_;
};

}  // namespace n7util
