# Writes n7util's bash completion from the tool's command table: runs `N7UTIL --commands` (one
# line per group: its name, then its subcommands) and fills TEMPLATE into OUTPUT.
#
#   cmake -DN7UTIL=... -DTEMPLATE=n7util.bash.in -DOUTPUT=n7util -P completion.cmake
execute_process(COMMAND ${N7UTIL} --commands
  OUTPUT_VARIABLE table RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0 OR table STREQUAL "")
  message(FATAL_ERROR "${N7UTIL} --commands failed (${status})")
endif()

set(N7UTIL_GROUPS "")
set(N7UTIL_CASES "")
string(REPLACE "\n" ";" lines "${table}")
foreach(line IN LISTS lines)
  string(REPLACE " " ";" words "${line}")
  list(POP_FRONT words group)
  list(JOIN words " " subcommands)
  list(APPEND N7UTIL_GROUPS ${group})
  string(APPEND N7UTIL_CASES "    ${group}) subcommands=\"${subcommands}\" ;;\n")
endforeach()
list(JOIN N7UTIL_GROUPS " " N7UTIL_GROUPS)
configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
