#include "n7utility/platform/system/MessageBox.h"

#include <syslog.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "n7utility/platform/base/TextCodec.h"

namespace {

// No one is there to answer: the text goes where an administrator looks, and the box is "OK".
int LogMessageBox(LPCWSTR text, UINT type, UINT /*help_id*/) {
  // Text that is not Unicode is still shown, as far as it goes.
  const std::string utf8 =
      n7platform::codec::ToUtf8(text != nullptr ? text : L"").value_or("(unprintable text)");
  std::fprintf(stderr, "%s\n", utf8.c_str());
  const bool is_error = (type & 0xF0u) == MB_ICONHAND;
  syslog(is_error ? LOG_ERR : LOG_NOTICE, "%s", utf8.c_str());
  return IDOK;
}

std::atomic<MessageBoxHandler> g_handler{&LogMessageBox};

}  // namespace

MessageBoxHandler SetMessageBoxHandler(MessageBoxHandler handler) {
  return g_handler.exchange(handler != nullptr ? handler : &LogMessageBox);
}

int AfxMessageBox(LPCWSTR text, UINT type, UINT help_id) {
  return g_handler.load()(text, type, help_id);
}
