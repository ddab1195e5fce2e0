# Flags of every target: warnings are errors, the program is hardened, and its bytes do not depend on where or when it
# was built.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)

# The launcher is small, not fast: hashing and transfers happen inside the system.
if(WIN32)
  set(CMAKE_CXX_FLAGS_RELEASE "-Os -DNDEBUG")
else()
  set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
endif()
# For single sources that were measured to need speed: the few that touch every byte or path of a manifest, which may
# have 64 MiB.
set(kvx_fast $<$<CONFIG:Release>:-O2>)

# With ccache installed, what was compiled once on this machine is not compiled again, in whatever checkout.
find_program(KVX_CCACHE ccache)
if(KVX_CCACHE AND (NOT CMAKE_CXX_COMPILER_LAUNCHER OR CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache$"))
  set(CMAKE_CXX_COMPILER_LAUNCHER env "CCACHE_BASEDIR=${CMAKE_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${KVX_CCACHE}")
endif()

option(KVX_TRAP_UNDEFINED "Stop at undefined behaviour (clang)" OFF)
option(KVX_SANITIZE "Report misuse of memory and undefined behaviour (clang, Linux)" OFF)

if(WIN32)
  add_compile_definitions(UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX WINVER=0x0A00 _WIN32_WINNT=0x0A00
                          NTDDI_VERSION=0x0A000006)
endif()
add_compile_options(
  -fstack-protector-strong
  -ffunction-sections
  -fdata-sections
  "-ffile-prefix-map=${CMAKE_SOURCE_DIR}=."
  "-ffile-prefix-map=${CMAKE_BINARY_DIR}=build")
add_link_options(-fstack-protector-strong -Wl,--gc-sections)
if(WIN32)
  add_link_options(-static -Wl,--dynamicbase -Wl,--nxcompat -Wl,--high-entropy-va -Wl,--no-insert-timestamp)
else()
  add_link_options(-pie -Wl,-z,relro,-z,now)
endif()
add_link_options($<$<CONFIG:Release>:-s>)

if(KVX_TRAP_UNDEFINED)
  add_compile_options(-fsanitize=undefined -fsanitize-trap=all)
endif()
if(KVX_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# Kept out of add_compile_options so that GoogleTest, which is not ours, is not held to them.
set(kvx_warnings -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
                 -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wundef)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND kvx_warnings -Wduplicated-cond -Wlogical-op -Wuseless-cast)
endif()

# kvx_library(NAME SOURCES... LIBRARIES...): one static library a folder, included as "folder/file.h".
function(kvx_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(${name} PRIVATE ${kvx_warnings})
  target_link_libraries(${name} PUBLIC ${arg_LIBRARIES})
endfunction()
