# Resource tables: a module (an executable, the shared library, a language resource module) carries
# its resources in a table that n7rc (tools/n7rc) compiles from a resource description and that is
# linked into the module, found through the exported function `n7_module_resources`.
#
# The same file serves the project's own build and, installed with the CMake package, programs
# outside it: there the compiler is the imported n7utility::n7rc and the table layout header comes
# from the installed include directory.

if(TARGET n7utility::n7rc)
  set(N7_RESOURCE_COMPILER n7utility::n7rc)
else()
  set(N7_RESOURCE_COMPILER n7rc)
endif()
if(NOT DEFINED N7_RESOURCE_INCLUDE_DIR)
  set(N7_RESOURCE_INCLUDE_DIR ${PROJECT_SOURCE_DIR})
endif()

# n7_add_resources(<target> <description>): compiles <description> (relative to the current source
# directory) and links its table into <target>. An executable exports the table's name so the
# dynamic linker can find it; an object library passes that on to the executables that link it.
# A mistake in the description fails the build with "FILE:LINE: error: ...".
function(n7_add_resources target description)
  get_filename_component(source ${description} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources.cpp)
  add_custom_command(OUTPUT ${output}
    COMMAND ${N7_RESOURCE_COMPILER} ${source} -o ${output} --depfile ${output}.d
    DEPENDS ${N7_RESOURCE_COMPILER} ${source}
    DEPFILE ${output}.d
    COMMENT "Compiling the resources of ${target}"
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
  target_include_directories(${target} PRIVATE ${N7_RESOURCE_INCLUDE_DIR})
  set(export_table "LINKER:--export-dynamic-symbol=n7_module_resources")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${target} PRIVATE ${export_table})
  elseif(type STREQUAL "OBJECT_LIBRARY")
    target_link_options(${target} INTERFACE ${export_table})
  endif()
endfunction()

# n7_resource_module_name(<host> <code> <variable>): the file name of the language resource module
# for language <code> ("de", "fr-FR") of the module file named <host>, as the resource manager
# looks for it in res/ beside the host: Name.dll|exe|ocx -> NameRes.<code>.dll, a program without
# an extension (prog) -> progRes.<code>.so, a shared object (libfoo.so, libfoo.so.1.2) ->
# libfooRes.<code>.so. Any other name has no language modules, which is an error.
function(n7_resource_module_name host code variable)
  if(host MATCHES "^(.+)\\.([dD][lL][lL]|[eE][xX][eE]|[oO][cC][xX])$")
    set(name "${CMAKE_MATCH_1}Res.${code}.dll")
  elseif(host MATCHES "^([^.]+)(\\.so(\\.[0-9.]*)?)?$")
    set(name "${CMAKE_MATCH_1}Res.${code}.so")
  else()
    message(FATAL_ERROR "n7_resource_module_name: '${host}' has no language resource modules")
  endif()
  set(${variable} ${name} PARENT_SCOPE)
endfunction()

# n7_add_resource_module(<target> DESCRIPTION <description>
#                        {FILE_NAME <name> | HOST <host file name> LANGUAGE <code>}
#                        [DIRECTORY <dir>]):
# a language resource module, a shared object that holds only the resources of <description>,
# written as the file <name> (taken as it is: "HostRes.de-DE.dll"), or named for <host> and
# <code> by n7_resource_module_name, in <dir> (default: the current binary directory). The
# resource manager finds it in res/ beside its host; programs may also load it with LoadLibraryW.
function(n7_add_resource_module target)
  cmake_parse_arguments(ARG "" "DESCRIPTION;FILE_NAME;HOST;LANGUAGE;DIRECTORY" "" ${ARGN})
  if(NOT ARG_FILE_NAME AND ARG_HOST AND ARG_LANGUAGE)
    n7_resource_module_name(${ARG_HOST} ${ARG_LANGUAGE} ARG_FILE_NAME)
  endif()
  if(NOT ARG_DESCRIPTION OR NOT ARG_FILE_NAME)
    message(FATAL_ERROR
      "n7_add_resource_module(${target}): DESCRIPTION and FILE_NAME (or HOST and LANGUAGE) are needed")
  endif()
  add_library(${target} MODULE)
  n7_add_resources(${target} ${ARG_DESCRIPTION})
  set_target_properties(${target} PROPERTIES PREFIX "" SUFFIX "" OUTPUT_NAME ${ARG_FILE_NAME})
  if(ARG_DIRECTORY)
    set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${ARG_DIRECTORY})
  endif()
endfunction()
