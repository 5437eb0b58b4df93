// The system's message texts for the Win32 error codes and HRESULTs that the library produces or
// meets, in English, each ending in CR LF as the system's texts do.
#include "n7utility/platform/system/SystemMessageTable_internal.h"

#include <algorithm>
#include <iterator>

namespace n7platform {

namespace {

struct SystemMessage {
  DWORD id;
  const wchar_t* text;
};

// Sorted by id.
constexpr SystemMessage kSystemMessages[] = {
    {0, L"The operation completed successfully.\r\n"},
    {1, L"Incorrect function.\r\n"},
    {2, L"The system cannot find the file specified.\r\n"},
    {3, L"The system cannot find the path specified.\r\n"},
    {4, L"The system cannot open the file.\r\n"},
    {5, L"Access is denied.\r\n"},
    {6, L"The handle is invalid.\r\n"},
    {8, L"Not enough memory resources are available to process this command.\r\n"},
    {13, L"The data is invalid.\r\n"},
    {14, L"Not enough memory resources are available to complete this operation.\r\n"},
    {18, L"There are no more files.\r\n"},
    {50, L"The request is not supported.\r\n"},
    {80, L"The file exists.\r\n"},
    {87, L"The parameter is incorrect.\r\n"},
    {120, L"This function is not supported on this system.\r\n"},
    {122, L"The data area passed to a system call is too small.\r\n"},
    {126, L"The specified module could not be found.\r\n"},
    {183, L"Cannot create a file when that file already exists.\r\n"},
    {234, L"More data is available.\r\n"},
    {259, L"No more data is available.\r\n"},
    {317,
     L"The system cannot find message text for message number 0x%1 in the message file for "
     L"%2.\r\n"},
    {998, L"Invalid access to memory location.\r\n"},
    {1009, L"The configuration registry database is corrupt.\r\n"},
    {1010, L"The configuration registry key is invalid.\r\n"},
    {1011, L"The configuration registry key could not be opened.\r\n"},
    {1012, L"The configuration registry key could not be read.\r\n"},
    {1013, L"The configuration registry key could not be written.\r\n"},
    {1018, L"Illegal operation attempted on a registry key that has been marked for deletion.\r\n"},
    {1021, L"Cannot create a stable subkey under a volatile parent key.\r\n"},
    {1056, L"An instance of the service is already running.\r\n"},
    {1060, L"The specified service does not exist as an installed service.\r\n"},
    {1062, L"The service has not been started.\r\n"},
    {1168, L"Element not found.\r\n"},
    {1722, L"The RPC server is unavailable.\r\n"},
    {1812, L"The specified image file did not contain a resource section.\r\n"},
    {1813, L"The specified resource type cannot be found in the image file.\r\n"},
    {1814, L"The specified resource name cannot be found in the image file.\r\n"},
    {1815, L"The specified resource language ID cannot be found in the image file.\r\n"},
    {0x80004001u, L"Not implemented\r\n"},
    {0x80004002u, L"No such interface supported\r\n"},
    {0x80004003u, L"Invalid pointer\r\n"},
    {0x80004004u, L"Operation aborted\r\n"},
    {0x80004005u, L"Unspecified error\r\n"},
    {0x8000FFFFu, L"Catastrophic failure\r\n"},
    {0x80010106u, L"Cannot change thread mode after it is set.\r\n"},
    {0x80040154u, L"Class not registered\r\n"},
    {0x800401F0u, L"CoInitialize has not been called.\r\n"},
};

static_assert(std::is_sorted(std::begin(kSystemMessages), std::end(kSystemMessages),
                             [](const SystemMessage& a, const SystemMessage& b) {
                               return a.id < b.id;
                             }));

constexpr DWORD kWin32FacilityErrors = 0x80070000u;

const wchar_t* Find(DWORD id) {
  const auto* entry =
      std::lower_bound(std::begin(kSystemMessages), std::end(kSystemMessages), id,
                       [](const SystemMessage& message, DWORD key) { return message.id < key; });
  return entry != std::end(kSystemMessages) && entry->id == id ? entry->text : nullptr;
}

}  // namespace

const wchar_t* FindSystemMessage(DWORD id) {
  if ((id & 0xFFFF0000u) == kWin32FacilityErrors) return Find(id & 0xFFFFu);
  return Find(id);
}

}  // namespace n7platform
