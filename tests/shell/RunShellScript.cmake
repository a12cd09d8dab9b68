# Runs one kova shell script and compares what it printed with the expected
# transcript beside it (SCRIPT with the extension .out). The transcript ends
# with the line "exit N", the shell's exit status. Addresses vary from run to
# run, so every 0x... number reads 0x? on both sides; Windows line ends are
# read as line feeds. The first line of a script may hold the shell's options
# after "#options:", where @DIR@ stands for the script's folder.
#   cmake -DKOVA=... [-DEMULATOR=...] -DSCRIPT=... -DWORK=... -P RunShellScript.cmake
file(STRINGS ${SCRIPT} first_line LIMIT_COUNT 1)
set(options --echo)
if(first_line MATCHES "^#options:(.*)$")
  get_filename_component(script_dir ${SCRIPT} DIRECTORY)
  string(REPLACE "@DIR@" "${script_dir}" extra "${CMAKE_MATCH_1}")
  separate_arguments(extra UNIX_COMMAND "${extra}")
  list(APPEND options ${extra})
endif()
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
execute_process(
  COMMAND ${EMULATOR} ${KOVA} --settings ${WORK} shell ${options} ${SCRIPT}
  WORKING_DIRECTORY ${WORK}
  OUTPUT_VARIABLE output ERROR_VARIABLE output
  RESULT_VARIABLE status)
string(APPEND output "exit ${status}\n")

string(REGEX REPLACE "\\.kova$" ".out" expected_file ${SCRIPT})
file(READ ${expected_file} expected)
foreach(text output expected)
  string(REPLACE "\r\n" "\n" ${text} "${${text}}")
  string(REGEX REPLACE "0x[0-9a-fA-F]+" "0x?" ${text} "${${text}}")
endforeach()
if(NOT output STREQUAL expected)
  file(WRITE ${WORK}/expected.out "${expected}")
  file(WRITE ${WORK}/actual.out "${output}")
  execute_process(COMMAND diff -u ${WORK}/expected.out ${WORK}/actual.out)
  message(FATAL_ERROR "the transcript differs from ${expected_file} "
                      "(what the shell printed is in ${WORK}/actual.out)")
endif()
