# Cross-compiles for 64-bit Windows with Debian's MinGW-w64 (POSIX threads
# flavour, for std::thread and std::mutex). Use:
#   cmake -S . -B build-win -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(BS_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${BS_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${BS_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${BS_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${BS_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The executables and the DLL carry the compiler's runtime (libgcc,
# libstdc++, winpthread), so they run on a bare Windows.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")

# Test executables run under Wine on the build machine.
find_program(BS_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
if(BS_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${BS_WINE})
endif()
