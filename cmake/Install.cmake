# What `cmake --install` puts under the prefix: the shared library with its soname links, the
# public headers under include/n7utility/ (laid out as in the source tree, so the library's own
# "n7utility/platform/kernel/Clock.h"-style includes resolve against include/) and the umbrella
# header include/n7utility.h, the pkg-config module and the CMake package
# `n7utility` with the resource compiler's functions, and the n7util and n7rc tools.
#
# Every rule names one of three components, the Debian packages cmake/Packaging.cmake makes:
#   library      the shared library and its soname link (libn7utility<soversion>)
#   development  headers, the unversioned .so link, pkg-config and CMake packages, n7rc
#   tool         n7util with its manual page, bash completion and demo data
include(CMakePackageConfigHelpers)

set(N7_INSTALL_HEADERDIR ${CMAKE_INSTALL_INCLUDEDIR}/n7utility)
set(N7_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/n7utility)

# The public headers need C++20; consumers of the CMake package get it with the target.
target_compile_features(n7utility PUBLIC cxx_std_20)

# A shared library is not a program: 0644, as Debian installs libraries.
install(TARGETS n7utility EXPORT n7utilityTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS n7util
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
# The resource compiler and its CMake functions, so that programs outside the project carry
# string tables and language resource modules of their own.
install(TARGETS n7rc EXPORT n7utilityTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/Resources.cmake
  DESTINATION ${N7_INSTALL_CMAKEDIR}
  RENAME n7utilityResources.cmake
  COMPONENT development)

# Headers: every *.h of the public layers. Headers named *_internal.h or *_test.h belong to the
# library's own sources and tests and stay out, and so do the fuzzers' seed directories (they
# would be installed empty).
foreach(dir include platform core Utility n7crypto n7xml)
  if(NOT IS_DIRECTORY ${PROJECT_SOURCE_DIR}/${dir})
    continue()
  endif()
  if(dir STREQUAL "include")
    set(destination ${CMAKE_INSTALL_INCLUDEDIR})  # <n7utility.h>, the umbrella header
  else()
    set(destination ${N7_INSTALL_HEADERDIR}/${dir})
  endif()
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${dir}/
    DESTINATION ${destination}
    COMPONENT development
    FILES_MATCHING PATTERN "*.h"
    PATTERN "*_internal.h" EXCLUDE
    PATTERN "*_test.h" EXCLUDE
    PATTERN "*corpus" EXCLUDE)
endforeach()

# pkg-config module. Its prefix is found from the module's own location, so the installed tree
# works wherever `cmake --install --prefix` put it, or after it was moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(N7_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH pc_to_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
  set(N7_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(N7_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(N7_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
configure_file(${CMAKE_CURRENT_LIST_DIR}/n7utility.pc.in ${PROJECT_BINARY_DIR}/n7utility.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/n7utility.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# CMake package: find_package(n7utility) gives the imported target n7utility::n7utility.
install(EXPORT n7utilityTargets
  NAMESPACE n7utility::
  DESTINATION ${N7_INSTALL_CMAKEDIR}
  COMPONENT development)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/n7utilityConfig.cmake.in
  ${PROJECT_BINARY_DIR}/n7utilityConfig.cmake
  INSTALL_DESTINATION ${N7_INSTALL_CMAKEDIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
# The soname carries the major version, so any release with the same major version will do.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/n7utilityConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/n7utilityConfig.cmake
  ${PROJECT_BINARY_DIR}/n7utilityConfigVersion.cmake
  DESTINATION ${N7_INSTALL_CMAKEDIR}
  COMPONENT development)
