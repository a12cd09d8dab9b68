# Cross build for 32-bit Windows with the MinGW-w64 compilers of the posix
# thread model. Every module links the C++ runtime, libgcc and the thread
# library statically, so KOVA32.DLL, KOVA.EXE and the class libraries need no
# DLL beyond the system's own. Each module then has its own unwinder: a C++
# exception cannot cross a module boundary, which is why every export is a C
# function.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(KOVA_MINGW_PREFIX i686-w64-mingw32)
set(CMAKE_C_COMPILER ${KOVA_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KOVA_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KOVA_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KOVA_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static")

# Test programs run under Wine on the build machine.
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(KOVA_WINE wine)
  if(KOVA_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${KOVA_WINE})
  endif()
endif()
