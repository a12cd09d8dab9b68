# GoogleTest for the cross build. Debian ships no GoogleTest libraries for
# MinGW, only the sources (package googletest, /usr/src/googletest); they are
# built here with the cross compilers and give the targets GTest::gtest and
# GTest::gtest_main, as find_package(GTest) would.
set(KOVA_GOOGLETEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources for cross builds")
if(NOT EXISTS ${KOVA_GOOGLETEST_SOURCE}/CMakeLists.txt)
  message(FATAL_ERROR "No GoogleTest sources in ${KOVA_GOOGLETEST_SOURCE}: install googletest")
endif()

set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
set(gtest_disable_pthreads ON CACHE BOOL "" FORCE) # Windows threads serve it there
set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)

# GoogleTest's own sources are not held to this project's warning flags.
get_directory_property(kova_compile_options COMPILE_OPTIONS)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "")
add_subdirectory(${KOVA_GOOGLETEST_SOURCE} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
set_directory_properties(PROPERTIES COMPILE_OPTIONS "${kova_compile_options}")
foreach(target gtest gtest_main)
  if(NOT TARGET GTest::${target})
    add_library(GTest::${target} ALIAS ${target})
  endif()
endforeach()
