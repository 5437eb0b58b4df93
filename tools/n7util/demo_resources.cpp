// n7util demo, resources: a string of the library's own string table.

#include "command.h"
#include "demo_steps.h"
#include "n7utility/Utility/StringTable.h"
#include "n7utility/core/text.h"

namespace n7util {

bool resources_step(std::ostream& out) {
  const CString text = CStringTable().Load(3);
  out << "  string 3 of the library's own string table, compiled into libn7utility.so:\n  \""
      << n7core::to_string(text.str()) << "\"\n";
  if (text.Find(L"A Win64 exception '0x%1!X!' has occurred.") != 0) {
    print_error("resources: the library's string 3 is missing or wrong");
    return false;
  }
  return true;
}

}  // namespace n7util
