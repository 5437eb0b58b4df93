# Debian packages made by `cpack` (run in the build directory) from the install components of
# cmake/Install.cmake, installed under /usr:
#
#   libn7utility<soversion>  the shared library (component library)
#   libn7utility-dev         headers, pkg-config and CMake packages, n7rc (component development)
#   n7util                   the tool, its manual page and bash completion (component tool)
#
# The library's runtime dependencies come from dpkg-shlibdeps, and the library package carries a
# shlibs file for the programs built against it. The tool package creates the registry store's
# system directory when it is configured and removes it on purge only (packaging/n7util/); the
# library package has dpkg refresh the dynamic linker's cache (packaging/library/triggers).

set(N7_DEB_MAINTAINER "libn7utility maintainers <maintainers@users.noreply.c-seed-51a4bcf4.example>"
  CACHE STRING "Maintainer field of the Debian packages")
set(N7_DEB_RELEASE 1 CACHE STRING "Debian revision of the packages")

set(N7_DEB_SOURCE n7utility)
set(N7_DEB_VERSION ${PROJECT_VERSION}-${N7_DEB_RELEASE})
set(N7_DEB_LIBRARY libn7utility${PROJECT_VERSION_MAJOR})
set(N7_DEB_PACKAGES "${N7_DEB_LIBRARY};libn7utility-dev;n7util")
set(N7_DEB_COMPONENTS "library;development;tool")

# Every Debian package has its copyright file and its changelog in /usr/share/doc/<package>. They
# belong to the packages only: a plain `cmake --install` leaves them out (EXCLUDE_FROM_ALL), cpack
# installs them with their component. The changelog date honours SOURCE_DATE_EPOCH, and gzip -n
# leaves out the time stamp, so that the same sources make the same packages.
string(TIMESTAMP N7_DEB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in
  ${PROJECT_BINARY_DIR}/packaging/changelog.Debian @ONLY)
add_custom_command(OUTPUT packaging/changelog.Debian.gz
  COMMAND gzip -9n -c changelog.Debian > changelog.Debian.gz
  DEPENDS ${PROJECT_BINARY_DIR}/packaging/changelog.Debian
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
add_custom_target(n7_deb_changelog ALL DEPENDS packaging/changelog.Debian.gz)
foreach(package component IN ZIP_LISTS N7_DEB_PACKAGES N7_DEB_COMPONENTS)
  install(FILES ${PROJECT_SOURCE_DIR}/packaging/copyright
                ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${N7_DEB_SOURCE})
# Each package's description below starts with its own synopsis; an empty summary keeps cpack
# from putting the project's description above it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${N7_DEB_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${N7_DEB_COMPONENTS})
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # <package>_<version>_<architecture>.deb
set(CPACK_DEBIAN_PACKAGE_RELEASE ${N7_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_SOURCE ${N7_DEB_SOURCE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${N7_DEB_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Runtime dependencies from the ELF files. n7util needs the library of this build: dpkg-shlibdeps
# finds it in the build directory; the dependency on its package is written below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${N7_DEB_LIBRARY})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/library/triggers)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "general services for the suite's server programs
libn7utility gives the suite's programs scheduling, threads and
synchronisation, SRP-6a login and password storage, calendar dates,
diagnostics, a registry, an event log, resources and service probes, keyed
maps and an XML tokenizer.

This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libn7utility-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${N7_DEB_LIBRARY} (= ${N7_DEB_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "general services for the suite's server programs (development)
libn7utility gives the suite's programs scheduling, threads and
synchronisation, SRP-6a login and password storage, calendar dates,
diagnostics, a registry, an event log, resources and service probes, keyed
maps and an XML tokenizer.

This package holds the headers, the pkg-config module n7utility, the CMake
package n7utility and the resource compiler n7rc with its CMake functions.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME n7util)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${N7_DEB_LIBRARY} (= ${N7_DEB_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA
  ${PROJECT_SOURCE_DIR}/packaging/n7util/postinst
  ${PROJECT_SOURCE_DIR}/packaging/n7util/postrm)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "command-line tool over the libn7utility library
n7util reads and writes the registry, registers event sources and reports
events, checks passwords, runs SRP-6a logins, shows calendar dates, prints
resources and XML tokens, and probes services. n7util demo runs the library's
main job end to end.")

include(CPack)
