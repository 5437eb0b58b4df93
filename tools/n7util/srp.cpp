// n7util srp: a whole SRP-6a login, client and server side in one process, against a stored
// password blob.
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "args.h"
#include "command.h"
#include "input.h"
#include "srp_login.h"

namespace n7util {
namespace {

int login(const std::vector<std::string_view>& args) {
  const Args parsed(args, {{"blob", true}});
  parsed.expect_operands(1, 1);
  const auto path = parsed.value("blob");
  if (!path) throw UsageError("missing --blob FILE");
  const std::string user(parsed.operands()[0]);
  auto blob = read_blob(*path);
  if (!blob) return kExitUsage;
  const Password password(user);
  SrpLogin session(user, std::move(*blob));
  const SrpLogin::Outcome outcome = session.run(password.utf8());
  session.print(std::cout);
  switch (outcome) {
    case SrpLogin::Outcome::kAccepted:
      return kExitOk;
    case SrpLogin::Outcome::kRefusedByServer:
      print_error(
          "login refused: the server did not accept the client's proof M1 (wrong "
          "password or user ID)");
      break;
    case SrpLogin::Outcome::kRefusedByClient:
      print_error("login refused: the client did not accept the server's proof M2");
      break;
  }
  return kExitFailure;
}

// The group's subcommands; the shell completion lists them from here too.
constexpr Subcommand kSubcommands[] = {{"login", login}};

int run_srp(const std::vector<std::string_view>& args) {
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util srp login USER --blob FILE\n"
    "\n"
    "SRP-6a logins (SHA-256 over the 1024-bit group of RFC 5054).\n"
    "\n"
    "  login  reads a password from standard input (one line; not echoed on a terminal) and\n"
    "         logs USER in against the extended password blob in FILE (as `n7util passwd blob`\n"
    "         prints it), running the client and the server side in this process. Prints A, B,\n"
    "         M1 and M2 in hexadecimal, whether both sides hold the same session key K, and the\n"
    "         time each step took.\n"
    "\n"
    "Exit status: 0 the login succeeded, 1 it was refused or failed, 2 usage error or\n"
    "unreadable file.\n";

}  // namespace

extern const Command srp_command = {"srp", "Runs SRP-6a logins against stored password blobs",
                                    kUsage, run_srp, kSubcommands};

}  // namespace n7util
