#include <unistd.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <string>
#include <string_view>

#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/KernelObjects.h"
#include "n7utility/platform/system/LocalSystem_internal.h"

namespace n7platform::internal {

DWORD Win32ErrorOfErrno(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
      return ERROR_ACCESS_DENIED;
    case EEXIST:
      return ERROR_FILE_EXISTS;
    case ENOSPC:
    case EDQUOT:
      return ERROR_DISK_FULL;
    case EROFS:
      return ERROR_WRITE_PROTECT;
    case ENAMETOOLONG:
      return ERROR_INVALID_NAME;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    default:
      return ERROR_GEN_FAILURE;
  }
}

bool IsLocalMachine(LPCWSTR server) {
  if (server == nullptr || *server == L'\0') return true;
  std::wstring_view name(server);
  if (name.starts_with(L"\\\\")) name.remove_prefix(2);
  char host[HOST_NAME_MAX + 1] = {};
  if (gethostname(host, sizeof host - 1) != 0) return false;
  const std::optional<std::wstring> local = codec::FromUtf8(host);
  if (!local || local->size() != name.size()) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    // Host names are ASCII; other characters must match exactly.
    const auto fold = [](wchar_t c) { return c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c; };
    if (fold(name[i]) != fold((*local)[i])) return false;
  }
  return true;
}

}  // namespace n7platform::internal
