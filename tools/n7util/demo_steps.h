// The steps of `n7util demo`, one file each (demo_<topic>.cpp). A step writes what it does to
// `out`, reports what went wrong with print_error(), and returns whether the library behaved as
// expected.
#pragma once

#include <ostream>

namespace n7util {

bool scheduler_step(std::ostream& out);
bool password_step(std::ostream& out);
bool login_step(std::ostream& out);
bool date_step(std::ostream& out);
bool pool_step(std::ostream& out);
bool registry_step(std::ostream& out);
bool eventlog_step(std::ostream& out);
bool resources_step(std::ostream& out);
bool errorpool_step(std::ostream& out);

}  // namespace n7util
