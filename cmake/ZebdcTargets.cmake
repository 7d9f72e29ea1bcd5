# Compiler settings shared by every target of the project, and the rules that the library adds.

add_library(zebdc_options INTERFACE)
target_compile_features(zebdc_options INTERFACE cxx_std_20)
target_compile_options(zebdc_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wimplicit-fallthrough
  $<$<BOOL:${ZEBDC_WERROR}>:-Werror>)
if(ZEBDC_SANITIZE)
  target_compile_options(zebdc_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(zebdc_options INTERFACE -fsanitize=address,undefined)
endif()

# What the library itself is compiled with: no C++ run-time support, nothing exported by accident,
# and SSSE3 as the one instruction set that every code path may assume.
add_library(zebdc_library_options INTERFACE)
target_link_libraries(zebdc_library_options INTERFACE zebdc_options)
target_compile_options(zebdc_library_options INTERFACE
  $<$<COMPILE_LANGUAGE:C,CXX>:-mssse3>
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
set(CMAKE_CXX_EXTENSIONS OFF)

# Keeps a shared library free of the C++ run-time library: the C driver links it, and what CMake
# names for the language all the same is left out because nothing of it is used.
function(zebdc_link_without_cxx_runtime target)
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)
  if(NOT WIN32)
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now -Wl,--gc-sections -Wl,--as-needed)
    # Clang leaves the sanitizers' functions to the program.
    if(NOT ZEBDC_SANITIZE OR NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
      target_link_options(${target} PRIVATE -Wl,-z,defs)
    endif()
  endif()
endfunction()
