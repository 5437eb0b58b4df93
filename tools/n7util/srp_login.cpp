#include "srp_login.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include "n7utility/Utility/Authentication.h"

namespace n7util {
namespace {

std::string hex(const std::vector<unsigned char>& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const unsigned char byte : bytes) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 15]);
  }
  return text;
}

}  // namespace

SrpLogin::SrpLogin(std::string user, std::string blob)
    : user_(std::move(user)), blob_(std::move(blob)) {}

SrpLogin::Outcome SrpLogin::run(const std::string& password) {
  timed("client", "SRPClientCreateA", [&] { N7A::SRPClientCreateA(a_, A_); });
  timed("server", "MakeExtendedChallengeRound1",
        [&] { N7A::MakeExtendedChallengeRound1(user_, blob_, A_, salt_, B_, serverK_, props_); });
  timed("client", "SRPClientCreateM1",
        [&] { N7A::SRPClientCreateM1(user_, password, props_, salt_, a_, A_, B_, clientK_, M1_); });
  bool accepted = false;
  timed("server", "MakeExtendedChallengeRound2", [&] {
    accepted = N7A::MakeExtendedChallengeRound2(user_, blob_, A_, M1_, B_, serverK_, M2_);
  });
  if (!accepted) return Outcome::kRefusedByServer;
  timed("client", "SRPClientValidateM2",
        [&] { accepted = N7A::SRPClientValidateM2(props_, A_, M1_, clientK_, M2_); });
  return accepted ? Outcome::kAccepted : Outcome::kRefusedByClient;
}

bool SrpLogin::same_key() const {
  if (clientK_.size() != serverK_.size()) return false;
  // No early exit: the time taken does not tell where the keys differ.
  unsigned char difference = 0;
  for (std::size_t i = 0; i < clientK_.size(); ++i) {
    difference |= static_cast<unsigned char>(clientK_.data()[i] ^ serverK_.data()[i]);
  }
  return difference == 0;
}

void SrpLogin::print(std::ostream& out) const {
  out << "A   " << hex(A_) << '\n'
      << "B   " << hex(B_) << '\n'
      << "M1  " << hex(M1_) << '\n'
      << "M2  " << (M2_.empty() ? "(none)" : hex(M2_)) << '\n'
      << "K   " << (same_key() ? "the same on both sides" : "not the same on both sides") << '\n'
      << "steps:\n";
  for (const Step& step : steps_) {
    char line[96];
    std::snprintf(line, sizeof line, "  %-6s  %-28s %9.3f ms\n", step.side, step.name,
                  step.milliseconds);
    out << line;
  }
}

template <typename Action>
void SrpLogin::timed(const char* side, const char* name, Action&& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  const std::chrono::duration<double, std::milli> elapsed =
      std::chrono::steady_clock::now() - start;
  steps_.push_back({side, name, elapsed.count()});
}

}  // namespace n7util
