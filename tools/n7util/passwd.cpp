// n7util passwd: makes and checks stored password values, and shows a password's keypad form.
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Utility/Authentication.h"
#include "args.h"
#include "command.h"
#include "core/text.h"

namespace n7util {
namespace {

// Longest password line read, in bytes of UTF-8.
constexpr std::size_t kMaxPasswordBytes = 1023;

// Turns off the echo of a terminal on standard input for its lifetime; does nothing elsewhere.
class EchoOff {
 public:
  EchoOff() {
    if (isatty(STDIN_FILENO) == 0 || tcgetattr(STDIN_FILENO, &saved_) != 0) return;
    termios quiet = saved_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    active_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;
  ~EchoOff() {
    if (!active_) return;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved_);
    std::cerr << std::endl;  // the user's Enter was not echoed
  }

 private:
  termios saved_{};
  bool active_ = false;
};

// The bytes of a password line, wiped when they go out of scope.
struct WipedLine {
  char bytes[kMaxPasswordBytes + 2];  // the line end and the terminator
  WipedLine() = default;
  WipedLine(const WipedLine&) = delete;
  WipedLine& operator=(const WipedLine&) = delete;
  ~WipedLine() { explicit_bzero(bytes, sizeof bytes); }
};

// A password: the first line of standard input, without its line end. Wiped on destruction.
class Password {
 public:
  explicit Password(std::string_view user) {
    if (isatty(STDIN_FILENO) != 0)
      std::cerr << "n7util: password for " << user << ": " << std::flush;
    WipedLine line;
    const std::size_t length = read_line(line.bytes, sizeof line.bytes);
    text_ = n7core::to_wstring(std::string_view(line.bytes, length));
  }
  Password(const Password&) = delete;
  Password& operator=(const Password&) = delete;
  ~Password() { explicit_bzero(text_.data(), text_.size() * sizeof(wchar_t)); }

  const std::wstring& text() const { return text_; }

 private:
  // Reads one line into `line`; returns its length without the line end.
  static std::size_t read_line(char* line, std::size_t size) {
    const EchoOff echo_off;
    if (std::fgets(line, static_cast<int>(size), stdin) == nullptr) {
      line[0] = '\0';
      if (std::ferror(stdin) != 0) throw std::runtime_error("cannot read the password");
    }
    std::size_t length = std::strlen(line);
    const bool whole_line = length > 0 && line[length - 1] == '\n';
    if (!whole_line && std::feof(stdin) == 0) {
      throw std::runtime_error("password longer than " + std::to_string(kMaxPasswordBytes) +
                               " bytes");
    }
    if (whole_line) --length;
    if (length > 0 && line[length - 1] == '\r') --length;
    return length;
  }

  std::wstring text_;
};

int make(const std::vector<std::string_view>& args) {
  const Args parsed(args, {});
  parsed.expect_operands(1, 1);
  const std::string_view user = parsed.operands()[0];
  const Password password(user);
  if (password.text().empty()) throw std::runtime_error("empty password");
  const std::wstring stored = N7A::MakePassword(n7core::to_wstring(user), password.text());
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
      N7A::Validate(n7core::to_wstring(user), password.text(), parsed.has("keypad"), stored);
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

int run_passwd(const std::vector<std::string_view>& args) {
  static constexpr Subcommand kSubcommands[] = {
      {"make", make}, {"check", check}, {"keymap", keymap}};
  return run_subcommand(kSubcommands, args);
}

constexpr std::string_view kUsage =
    "Usage: n7util passwd make USER\n"
    "       n7util passwd check USER STORED [--keypad]\n"
    "       n7util passwd keymap TEXT [--mark-others]\n"
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
    "\n"
    "Exit status: 0 success or a match, 1 no match or failure, 2 usage error.\n";

}  // namespace

extern const Command passwd_command = {"passwd", "Makes and checks stored password values", kUsage,
                                       run_passwd};

}  // namespace n7util
