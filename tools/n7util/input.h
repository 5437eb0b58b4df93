// What n7util's commands read: whole files, and passwords from standard input.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace n7util {

// The whole of FILE, or of standard input for "-"; null (with the reason reported) when it
// cannot be read.
std::optional<std::string> read_input(std::string_view path);

// A stored password blob: read_input() of `path` without the line end and blanks that follow the
// blob in a file written by `n7util passwd blob`.
std::optional<std::string> read_blob(std::string_view path);

// A password: the first line of standard input without its line end (LF or CR LF), as UTF-8
// and as wide text. On a terminal it prompts for `user`'s password on standard error and turns
// off the echo. Throws for a line that cannot be read, one longer than 1023 bytes, or one that
// is not UTF-8. Both forms are wiped on destruction.
class Password {
 public:
  explicit Password(std::string_view user);
  Password(const Password&) = delete;
  Password& operator=(const Password&) = delete;
  ~Password();

  const std::string& utf8() const { return utf8_; }
  const std::wstring& wide() const { return wide_; }

 private:
  std::string utf8_;
  std::wstring wide_;
};

}  // namespace n7util
