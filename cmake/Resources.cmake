# Resource tables: a module (an executable, the shared library, a language resource module)
# carries its resources in a table that n7rc (tools/n7rc) compiles from a resource description
# and that is linked into the module, found through the exported function `n7_module_resources`.

# n7_add_resources(<target> <description>): compiles <description> (relative to the current source
# directory) and links its table into <target>. An executable exports the table's name so the
# dynamic linker can find it; an object library passes that on to the executables that link it.
# A mistake in the description fails the build with "FILE:LINE: error: ...".
function(n7_add_resources target description)
  get_filename_component(source ${description} ABSOLUTE BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources.cpp)
  add_custom_command(OUTPUT ${output}
    COMMAND n7rc ${source} -o ${output} --depfile ${output}.d
    DEPENDS n7rc ${source}
    DEPFILE ${output}.d
    COMMENT "Compiling the resources of ${target}"
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  set(export_table "LINKER:--export-dynamic-symbol=n7_module_resources")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${target} PRIVATE ${export_table})
  elseif(type STREQUAL "OBJECT_LIBRARY")
    target_link_options(${target} INTERFACE ${export_table})
  endif()
endfunction()

# n7_add_resource_module(<target> DESCRIPTION <description> FILE_NAME <name> [DIRECTORY <dir>]):
# a language resource module, a shared object that holds only the resources of <description>,
# written as the file <name> (taken as it is: "HostRes.de-DE.dll") in <dir> (default: the
# current binary directory). Programs load it with LoadLibraryW.
function(n7_add_resource_module target)
  cmake_parse_arguments(ARG "" "DESCRIPTION;FILE_NAME;DIRECTORY" "" ${ARGN})
  if(NOT ARG_DESCRIPTION OR NOT ARG_FILE_NAME)
    message(FATAL_ERROR "n7_add_resource_module(${target}): DESCRIPTION and FILE_NAME are needed")
  endif()
  add_library(${target} MODULE)
  n7_add_resources(${target} ${ARG_DESCRIPTION})
  set_target_properties(${target} PROPERTIES PREFIX "" SUFFIX "" OUTPUT_NAME ${ARG_FILE_NAME})
  if(ARG_DIRECTORY)
    set_target_properties(${target} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${ARG_DIRECTORY})
  endif()
endfunction()
