// A stand-in service manager for the integration tests: owns the manager's well-known name on the
// bus at the address given as the only argument and answers the manager's D-Bus interface (the
// LoadUnit method, the unit properties LoadState, ActiveState, SubState and FreezerState, all
// strings) for a fixed set of units. Any other unit name loads as "not-found", as the real manager
// answers for a unit without a file. Prints "ready" on standard output once the name is owned;
// runs until it is killed.
#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kName[] = "org.freedesktop.systemd1";
constexpr char kManagerPath[] = "/org/freedesktop/systemd1";
constexpr char kUnitPrefix[] = "/org/freedesktop/systemd1/unit";

struct Unit {
  const char* name;
  const char* load_state;
  const char* active_state;
  const char* sub_state;
  const char* freezer_state;
};

constexpr Unit kUnits[] = {
    {"n7-running.service", "loaded", "active", "running", "running"},
    {"n7-stopped.service", "loaded", "inactive", "dead", "running"},
    {"n7-frozen.service", "loaded", "active", "running", "frozen"},
};
constexpr Unit kNotFound = {"", "not-found", "inactive", "dead", "running"};

const Unit* FindUnit(const char* name) {
  for (const Unit& unit : kUnits) {
    if (std::strcmp(unit.name, name) == 0) return &unit;
  }
  return &kNotFound;
}

// LoadUnit(s name) -> o: the unit's object path, escaped the way the manager escapes it.
int LoadUnit(sd_bus_message* call, void* /*userdata*/, sd_bus_error* /*error*/) {
  const char* name = nullptr;
  int result = sd_bus_message_read(call, "s", &name);
  if (result < 0) return result;
  char* path = nullptr;
  result = sd_bus_path_encode(kUnitPrefix, name, &path);
  if (result < 0) return result;
  result = sd_bus_reply_method_return(call, "o", path);
  std::free(path);  // NOLINT(cppcoreguidelines-no-malloc): allocated by sd-bus
  return result;
}

// Resolves a unit path to its Unit, so that the property getters below get the unit's fields.
int FindUnitObject(sd_bus* /*bus*/, const char* path, const char* /*interface*/, void* /*userdata*/,
                   void** found, sd_bus_error* /*error*/) {
  char* name = nullptr;
  if (sd_bus_path_decode(path, kUnitPrefix, &name) <= 0) return 0;
  *found = const_cast<Unit*>(FindUnit(name));  // sd-bus passes it back, never writes through it
  std::free(name);                             // NOLINT(cppcoreguidelines-no-malloc)
  return 1;
}

// A string property: `userdata` points at the Unit field named by the property's offset.
int GetString(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
              const char* /*property*/, sd_bus_message* reply, void* userdata,
              sd_bus_error* /*error*/) {
  return sd_bus_message_append(reply, "s", *static_cast<const char* const*>(userdata));
}

const sd_bus_vtable kManagerVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("LoadUnit", "s", "o", LoadUnit, 0),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable kUnitVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY("LoadState", "s", GetString, offsetof(Unit, load_state), 0),
    SD_BUS_PROPERTY("ActiveState", "s", GetString, offsetof(Unit, active_state), 0),
    SD_BUS_PROPERTY("SubState", "s", GetString, offsetof(Unit, sub_state), 0),
    SD_BUS_PROPERTY("FreezerState", "s", GetString, offsetof(Unit, freezer_state), 0),
    SD_BUS_VTABLE_END,
};

int Fail(const char* what, int error) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the stand-in reports from one thread
  std::fprintf(stderr, "service_manager_standin: %s: %s\n", what, std::strerror(-error));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: service_manager_standin BUS_ADDRESS\n");
    return 2;
  }
  sd_bus* bus = nullptr;
  int result = sd_bus_new(&bus);
  if (result < 0) return Fail("sd_bus_new", result);
  if ((result = sd_bus_set_address(bus, argv[1])) < 0 ||
      (result = sd_bus_set_bus_client(bus, 1)) < 0 || (result = sd_bus_start(bus)) < 0) {
    return Fail("connecting to the bus", result);
  }
  result = sd_bus_add_object_vtable(bus, nullptr, kManagerPath, "org.freedesktop.systemd1.Manager",
                                    kManagerVtable, nullptr);
  if (result < 0) return Fail("adding the manager object", result);
  result = sd_bus_add_fallback_vtable(bus, nullptr, kUnitPrefix, "org.freedesktop.systemd1.Unit",
                                      kUnitVtable, FindUnitObject, nullptr);
  if (result < 0) return Fail("adding the unit objects", result);
  result = sd_bus_request_name(bus, kName, 0);
  if (result < 0) return Fail("owning the name", result);
  std::printf("ready\n");
  std::fflush(stdout);
  for (;;) {
    result = sd_bus_process(bus, nullptr);
    if (result < 0) return Fail("processing", result);
    if (result == 0 && (result = sd_bus_wait(bus, UINT64_MAX)) < 0) return Fail("waiting", result);
  }
}
