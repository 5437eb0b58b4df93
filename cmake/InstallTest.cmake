# The install_consumer test: installs this build into a scratch prefix and builds and runs a small
# program against it the two ways outside code links the library (pkg-config and the CMake
# package), then runs the installed n7util.
#
# Not in sanitizer builds: the installed library then needs the sanitizer runtime, which a plain
# consumer build does not link.
if(N7_SANITIZE)
  return()
endif()

add_test(NAME install_consumer
  COMMAND ${PROJECT_SOURCE_DIR}/tests/install/check_install.sh
          ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/install-test
          ${CMAKE_CXX_COMPILER} ${CMAKE_GENERATOR})
set_tests_properties(install_consumer PROPERTIES TIMEOUT 300)
