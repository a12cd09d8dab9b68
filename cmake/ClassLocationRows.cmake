# Writes the rows of the kernel's class location table (kernel/ClassLocations.def)
# as resource-script string literals, each entry padded with NULs to its 34
# bytes: 21 for the class name, 13 for the library name. The resource compiler
# turns them into the same bytes as the compiled-in table of KernelResources.cpp.
#   cmake -DINPUT=ClassLocations.def -DOUTPUT=rows.inc -P ClassLocationRows.cmake
cmake_minimum_required(VERSION 3.25)

# A name of `length` characters in a field of `size` bytes, as a literal.
function(padded_literal text size out)
  string(LENGTH "${text}" length)
  if(length GREATER_EQUAL size)
    message(FATAL_ERROR "${INPUT}: \"${text}\" does not fit a field of ${size} bytes")
  endif()
  math(EXPR padding "${size} - ${length}")
  string(REPEAT "\\0" ${padding} nuls)
  set(${out} "\"${text}${nuls}\"" PARENT_SCOPE)
endfunction()

file(STRINGS "${INPUT}" lines)
set(rows "")
set(count 0)
foreach(line IN LISTS lines)
  if(NOT line MATCHES "^[ \t]*KV_CLASSLOC")
    continue()
  endif()
  # Anything but the plain form would be read differently by the C++ compiler.
  if(NOT line MATCHES "^KV_CLASSLOC\\(\"([A-Za-z0-9_]+)\", \"([A-Za-z0-9_.]+)\"\\)$")
    message(FATAL_ERROR "${INPUT}: a row not of the form KV_CLASSLOC(\"Class\", \"LIB.DLL\"): ${line}")
  endif()
  padded_literal("${CMAKE_MATCH_1}" 21 className)
  padded_literal("${CMAKE_MATCH_2}" 13 libraryName)
  if(count GREATER 0)
    string(APPEND rows ",\n")
  endif()
  string(APPEND rows "    ${className} ${libraryName}")
  math(EXPR count "${count} + 1")
endforeach()
if(count EQUAL 0)
  message(FATAL_ERROR "${INPUT}: no rows")
endif()

file(WRITE "${OUTPUT}.new"
     "// Generated from ${INPUT} by ClassLocationRows.cmake: ${count} rows.\n${rows}\n")
file(COPY_FILE "${OUTPUT}.new" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.new")
