# clang for the same target, with the mingw-w64 g++ headers and runtime.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)

execute_process(COMMAND x86_64-w64-mingw32-g++-posix -print-libgcc-file-name
                OUTPUT_VARIABLE libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(gcc_folder ${libgcc} DIRECTORY)
# As g++ built libstdc++.a: thread-local variables are emulated, and the comparison of type_info is in the library alone.
set(CMAKE_CXX_FLAGS_INIT
    "-Wno-unused-command-line-argument -femulated-tls -D__GXX_TYPEINFO_EQUALITY_INLINE=0 -nostdinc++ -isystem ${gcc_folder}/include/c++ -isystem ${gcc_folder}/include/c++/x86_64-w64-mingw32")
# clang does not know that libstdc++ needs posix threads on this target.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-pthread -fuse-ld=lld -L${gcc_folder}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
