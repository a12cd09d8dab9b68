# What `cmake --install` puts in place on POSIX: the kernel library with its
# versioned name, the public headers, the kova command (with its man page and
# the shell's class library beside the kernel), and the files through which
# other projects find the package: a CMake package (find_package(kova) gives
# kova::kova32) and a pkg-config file (kova32). Every path in them is relative
# to where they are installed, so the installed tree can be moved.
include(CMakePackageConfigHelpers)

set(kova_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kova)
set(kova_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS kova32 EXPORT kovaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/kova
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")

# The command finds the kernel library relative to itself.
file(RELATIVE_PATH kova_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(kova PROPERTIES INSTALL_RPATH "$ORIGIN/${kova_bin_to_lib}")
install(TARGETS kova RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS kvshell LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

# The man page lists the commands as the built command reports them.
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/doc/kova.1
  COMMAND ${CMAKE_COMMAND} -DKOVA=$<TARGET_FILE:kova> -DTEMPLATE=${PROJECT_SOURCE_DIR}/doc/kova.1.in
          -DOUTPUT=${CMAKE_BINARY_DIR}/doc/kova.1 -DVERSION=${PROJECT_VERSION}
          -P ${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake
  DEPENDS kova ${PROJECT_SOURCE_DIR}/doc/kova.1.in ${PROJECT_SOURCE_DIR}/cmake/ManPage.cmake
  COMMENT "Man page of the kova command")
add_custom_target(kova_man_page ALL DEPENDS ${CMAKE_BINARY_DIR}/doc/kova.1)
install(FILES ${CMAKE_BINARY_DIR}/doc/kova.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

install(EXPORT kovaTargets NAMESPACE kova:: DESTINATION ${kova_cmake_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/kovaConfig.cmake.in
  ${CMAKE_BINARY_DIR}/kovaConfig.cmake INSTALL_DESTINATION ${kova_cmake_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kovaConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kovaConfig.cmake ${CMAKE_BINARY_DIR}/kovaConfigVersion.cmake
  DESTINATION ${kova_cmake_dir})

file(RELATIVE_PATH kova_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/kova32.pc.in ${CMAKE_BINARY_DIR}/kova32.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kova32.pc DESTINATION ${kova_pkgconfig_dir})
