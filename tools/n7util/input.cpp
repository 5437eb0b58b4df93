#include "input.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "command.h"
#include "n7utility/core/text.h"
#include "n7utility/n7crypto/wipe.h"

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
  ~WipedLine() { n7crypto::wipe(bytes, sizeof bytes); }
};

// Reads one line into `line`; returns its length without the line end.
std::size_t read_line(char* line, std::size_t size) {
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

}  // namespace

std::optional<std::string> read_input(std::string_view path) {
  std::ostringstream contents;
  if (path == "-") {
    contents << std::cin.rdbuf();
    if (std::cin.bad()) {
      print_error("cannot read standard input");
      return std::nullopt;
    }
    return std::move(contents).str();
  }
  std::ifstream file{std::string(path), std::ios::binary};
  if (!file) {
    print_error("cannot open '" + std::string(path) +
                "': " + std::generic_category().message(errno));
    return std::nullopt;
  }
  contents << file.rdbuf();
  if (file.bad()) {
    print_error("cannot read '" + std::string(path) + "'");
    return std::nullopt;
  }
  return std::move(contents).str();
}

std::optional<std::string> read_blob(std::string_view path) {
  std::optional<std::string> blob = read_input(path);
  if (blob) blob->erase(blob->find_last_not_of(" \t\r\n") + 1);
  return blob;
}

Password::Password(std::string_view user) {
  if (isatty(STDIN_FILENO) != 0) std::cerr << "n7util: password for " << user << ": " << std::flush;
  WipedLine line;
  const std::size_t length = read_line(line.bytes, sizeof line.bytes);
  // Reserved to its final size first, so that no shorter copy is left behind in freed memory.
  utf8_.reserve(length);
  utf8_.assign(line.bytes, length);
  try {
    wide_ = n7core::to_wstring(utf8_);
  } catch (...) {
    n7crypto::wipe(utf8_.data(), utf8_.size());
    throw;
  }
}

Password::~Password() {
  n7crypto::wipe(utf8_.data(), utf8_.size());
  n7crypto::wipe(wide_.data(), wide_.size() * sizeof(wchar_t));
}

}  // namespace n7util
