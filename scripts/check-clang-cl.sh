#!/bin/sh
# Checks that clang-cl, Clang in the clothes of Microsoft's compiler, accepts the library's sources.
#
# Debian has clang-cl (clang-tools) but no headers of Microsoft's; those of mingw-w64 stand in. They
# are written for GCC, hence its version below, and the one type that clang-cl's C++ has not.
set -eu
cd "$(dirname "$0")/.."

clang_cl=$(command -v clang-cl || command -v clang-cl-14 || ls /usr/lib/llvm-*/bin/clang-cl)
cxx=$(x86_64-w64-mingw32-g++-posix -print-file-name=include/c++)
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
printf '#include <_mingw.h>\n#undef __SIZEOF_INT128__\n' >"$folder/first.h"

git ls-files -z -- 'core/*.cpp' 'src/*.cpp' |
  xargs -0 -n 1 -P "$(nproc)" "$clang_cl" --target=x86_64-pc-windows-msvc /std:c++20 /Zs /WX \
    -mssse3 /EHs-c- /GR- -DZEBDC_BUILDING_LIBRARY -DZEBDC_SHARED_BUILD -Iinclude -Isrc \
    /clang:-fgnuc-version=12.2.0 -D_UCRT "/FI$folder/first.h" \
    -imsvc "$cxx" -imsvc "$cxx/x86_64-w64-mingw32" -imsvc /usr/x86_64-w64-mingw32/include
