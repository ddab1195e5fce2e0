# kvx_build_identity(TARGET VERSION): an object library with what differs between two builds of the same sources: the
# version, the built-in server and the keys, and the program's resources. A program links exactly one of these.
function(kvx_build_identity target version)
  if(NOT version MATCHES "^[0-9]+(\\.[0-9]+)?(\\.[0-9]+)?(\\.[0-9]+)?$")
    message(FATAL_ERROR "KVX_VERSION: \"${version}\" is not one to four numbers with dots")
  endif()
  string(REPLACE "." ";" numbers "${version}")
  foreach(number IN LISTS numbers)
    if(number GREATER 65535)
      message(FATAL_ERROR "KVX_VERSION: ${number} in \"${version}\" does not fit a version record, which holds 0 to 65535")
    endif()
  endforeach()
  list(APPEND numbers 0 0 0)
  list(SUBLIST numbers 0 4 numbers)
  list(JOIN numbers "," KVX_VERSION_NUMBERS)
  list(JOIN numbers "." KVX_VERSION_DOTTED)
  set(KVX_VERSION "${version}")
  kvx_wide_literal("${KVX_BASE_URL}" KVX_BASE_URL_LITERAL)

  set(folder "${CMAKE_BINARY_DIR}/generated/${target}")
  configure_file("${CMAKE_SOURCE_DIR}/launcher/build_identity.cpp.in" "${folder}/build_identity.cpp" @ONLY)
  configure_file("${CMAKE_SOURCE_DIR}/manifest/built_in_keys.cpp.in" "${folder}/built_in_keys.cpp" @ONLY)
  add_library(${target} OBJECT "${folder}/build_identity.cpp" "${folder}/built_in_keys.cpp")
  target_include_directories(${target} PRIVATE "${CMAKE_SOURCE_DIR}")
  target_compile_options(${target} PRIVATE ${kvx_warnings})
  set(KVX_VERSION_NUMBERS "${KVX_VERSION_NUMBERS}" PARENT_SCOPE)
  set(KVX_VERSION_DOTTED "${KVX_VERSION_DOTTED}" PARENT_SCOPE)
endfunction()

# kvx_launcher_program(TARGET IDENTITY VERSION): the launcher as a program, with its resources.
function(kvx_launcher_program target identity version)
  kvx_build_identity(${identity} "${version}")
  set(KVX_VERSION "${version}")
  set(folder "${CMAKE_BINARY_DIR}/generated/${identity}")
  set(resource_script "${folder}/launcher.rc")
  configure_file("${CMAKE_SOURCE_DIR}/resources/launcher.manifest.in" "${folder}/launcher.manifest" @ONLY)
  configure_file("${CMAKE_SOURCE_DIR}/resources/launcher.rc.in" "${resource_script}" @ONLY)
  set_source_files_properties("${resource_script}" PROPERTIES
    INCLUDE_DIRECTORIES "${folder};${CMAKE_SOURCE_DIR}/resources"
    OBJECT_DEPENDS "${folder}/launcher.manifest;${CMAKE_SOURCE_DIR}/resources/launcher.ico")
  add_executable(${target} WIN32 "${CMAKE_SOURCE_DIR}/launcher/main.cpp"
                 "${CMAKE_SOURCE_DIR}/launcher/stack_guard.cpp"
                 "${CMAKE_SOURCE_DIR}/launcher/system_libraries.cpp"
                 "${CMAKE_SOURCE_DIR}/launcher/terminate_handler.cpp" "${resource_script}")
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${kvx_warnings}>)
  target_link_options(${target} PRIVATE -municode)
  target_link_libraries(${target} PRIVATE ${identity} kvx_system_clock kvx_launcher)
  set_target_properties(${target} PROPERTIES KVX_LATE_LIBRARIES ON RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
endfunction()
