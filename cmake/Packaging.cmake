# `cpack` in the build folder makes a Debian package and a .tar.gz of what
# `cmake --install` installs. The Debian package installs under /usr and takes
# its library dependencies from dpkg-shlibdeps; the archive is relocatable.
set(CPACK_PACKAGE_NAME kova)
set(CPACK_PACKAGE_VENDOR "KOVA")
set(CPACK_PACKAGE_CONTACT "KOVA developers <kova@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Kernel library of an imaging component family, its headers and the kova command")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR "DEB;TGZ")
set(CPACK_PACKAGE_FILE_NAME "kova-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}")
set(CPACK_STRIP_FILES OFF)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_BINARY_DIR}/CPackPerGenerator.cmake)
file(WRITE ${CMAKE_BINARY_DIR}/CPackPerGenerator.cmake
  "if(CPACK_GENERATOR STREQUAL \"DEB\")\n  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)\nendif()\n")
include(CPack)
