# Cross-compiles for 64-bit Windows with mingw-w64, using the POSIX threading flavour so that the
# command-line tool has <thread>. Compiler run-time code is linked statically: the products import
# nothing but the system's own DLLs and each other.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_ASM_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The Windows ABI aligns stacks to 16 bytes, and GCC relies on more for vectors of 32 and 64 bytes
# that it keeps there (GCC bug 54412). The assembler makes such moves safe.
set(CMAKE_C_FLAGS_INIT "-Wa,-muse-unaligned-vector-move")
set(CMAKE_CXX_FLAGS_INIT "-Wa,-muse-unaligned-vector-move")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc")
# Dependencies are linked statically too, where there is a choice.
set(ZLIB_USE_STATIC_LIBS ON)
# Programs that the tests and the build run on the host go through Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR
  ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run.sh ${CMAKE_BINARY_DIR}/wine)
