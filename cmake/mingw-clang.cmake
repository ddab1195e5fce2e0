# clang for the same target, with the mingw-w64 g++ headers and runtime.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)

execute_process(COMMAND x86_64-w64-mingw32-g++-posix -print-libgcc-file-name
                OUTPUT_VARIABLE libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(gcc_folder ${libgcc} DIRECTORY)
set(CMAKE_CXX_FLAGS_INIT
    "-nostdinc++ -isystem ${gcc_folder}/include/c++ -isystem ${gcc_folder}/include/c++/x86_64-w64-mingw32")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -L${gcc_folder}")
