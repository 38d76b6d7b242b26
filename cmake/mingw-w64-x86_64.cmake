# Cross-builds for Windows x86-64 with MinGW-w64 (Debian: g++-mingw-w64-x86-64)
# and runs the resulting .exe files under Wine (Debian: wine64) where it is
# installed, so that CTest and test discovery work from Linux.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

# The posix thread model: the win32 one of GCC 12 has no std::thread, which
# the loopback test server needs.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The C++ runtime, libgcc and winpthread linked in: the programs need no DLL
# beside the system's own, on Windows and under Wine alike.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")

# Wine in a prefix of the build tree's own, so that a build never touches
# ~/.wine and a fresh build directory starts from a fresh prefix.
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(TOVRIN_AI_WINE NAMES wine64 wine
    PATHS /usr/lib/wine /usr/lib64/wine NO_CACHE)
  if(TOVRIN_AI_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR sh
      ${CMAKE_CURRENT_LIST_DIR}/wine-emulator.sh
      ${CMAKE_BINARY_DIR}/wine ${TOVRIN_AI_WINE})
  endif()
endif()
