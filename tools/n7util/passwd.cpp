// n7util passwd: makes and checks stored password values, shows a password's keypad form, and
// makes extended password blobs and shows their public properties.
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "args.h"
#include "command.h"
#include "input.h"
#include "n7utility/Utility/Authentication.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/key.h"

namespace n7util {
namespace {

int make(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  const std::string_view user = parsed.operands()[0];
  const Password password(user);
  if (password.wide().empty()) throw std::runtime_error("empty password");
  const std::wstring stored = N7A::MakePassword(n7core::to_wstring(user), password.wide());
  if (stored.size() != 44) {
    throw std::runtime_error(
        "the password has no letter A to Z and no digit: without a keypad form, its stored value "
        "would never validate");
  }
  std::cout << n7core::to_string(stored) << '\n';
  return kExitOk;
}

int check(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"keypad"}});
  parsed.expect_operands(2, 2);
  const std::string_view user = parsed.operands()[0];
  const std::wstring stored = n7core::to_wstring(parsed.operands()[1]);
  const Password password(user);
  const bool match =
      N7A::Validate(n7core::to_wstring(user), password.wide(), parsed.has("keypad"), stored);
  std::cout << (match ? "match" : "no match") << '\n';
  return match ? kExitOk : kExitFailure;
}

int keymap(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"mark-others"}});
  parsed.expect_operands(1, 1);
  const std::wstring text = n7core::to_wstring(parsed.operands()[0]);
  std::cout << n7core::to_string(N7A::KeyMap(text, parsed.has("mark-others"))) << '\n';
  return kExitOk;
}

int blob(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  const std::string user(parsed.operands()[0]);
  const Password password(user);
  if (password.utf8().empty()) throw std::runtime_error("empty password");
  std::cout << N7A::MdgM2(user, password.utf8()) << '\n';
  return kExitOk;
}

// The properties are what a server sends with B in the first round of a login, so that round
// is run against a throwaway A.
std::string public_properties(const std::string& blob) {
  n7crypto::Key a, K;
  std::vector<unsigned char> A, salt, B;
  std::string props;
  N7A::SRPClientCreateA(a, A);
  N7A::MakeExtendedChallengeRound1("", blob, A, salt, B, K, props);
  return props;
}

int props(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  const auto blob = read_blob(parsed.operands()[0]);
  if (!blob) return kExitUsage;
  std::cout << public_properties(*blob);
  return kExitOk;
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {
    {"make", make}, {"check", check}, {"keymap", keymap}, {"blob", blob}, {"props", props}};

int run_passwd(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util passwd make USER\n"
    "       n7util passwd check USER STORED [--keypad]\n"
    "       n7util passwd keymap TEXT [--mark-others]\n"
    "       n7util passwd blob USER\n"
    "       n7util passwd props BLOB-FILE\n"
    "\n"
    "Stored password values: 44 characters, the digest of the password as typed followed by\n"
    "that of its telephone-keypad form. The user ID's case (A to Z) does not matter.\n"
    "\n"
    "  make    reads the password from standard input (one line; not echoed on a terminal) and\n"
    "          prints USER's stored value\n"
    "  check   reads a password from standard input and checks it against STORED; with\n"
    "          --keypad the password is the digits as entered on a telephone keypad\n"
    "  keymap  prints the keypad form of TEXT: letters A to Z become their keypad digits, digits\n"
    "          stay, other letters are dropped; other characters become '*' with\n"
    "          --mark-others and are dropped without\n"
    "  blob    reads the password from standard input and prints a new extended password blob\n"
    "          for USER: a fresh salt, the SRP password key (PBKDF2, 1024 iterations) and the\n"
    "          stored value; what a server keeps for `n7util srp login`\n"
    "  props   prints the public password properties of the blob in BLOB-FILE ('-': standard\n"
    "          input): the XML text with salt, algorithm and iterations that a server sends\n"
    "          to the client at login (lines end in CR LF)\n"
    "\n"
    "Exit status: 0 success or a match, 1 no match or failure, 2 usage error or unreadable\n"
    "file.\n";

}  // namespace

extern const Command passwd_command = {"passwd",
                                       "Makes and checks stored password values and password blobs",
                                       kUsage, run_passwd, kSubcommands};

}  // namespace n7util
