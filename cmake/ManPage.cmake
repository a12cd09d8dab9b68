# Writes the kova command's man page: the template with @COMMANDS@ replaced by
# one entry per command, as `kova --help` lists them, so the page names every
# command the built program has.
#   cmake -DKOVA=... -DTEMPLATE=... -DOUTPUT=... -DVERSION=... -P ManPage.cmake
execute_process(COMMAND ${KOVA} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "kova --help failed: ${status}")
endif()
string(REPLACE "\n" ";" lines "${help}")
set(COMMANDS "")
foreach(line IN LISTS lines)
  if(line MATCHES "^  ([a-z]+) +(.*)$")
    string(APPEND COMMANDS ".TP\n.B kova ${CMAKE_MATCH_1}\n${CMAKE_MATCH_2}; see\n.B kova ${CMAKE_MATCH_1} --help\n")
  endif()
endforeach()
configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
