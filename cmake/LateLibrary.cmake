# kvx_late_library(NAME DLL DEF): the library NAME, for targets that call functions of the system library DLL. A program
# with the property KVX_LATE_LIBRARIES imports nothing by the library's name: it is loaded at the first call of a
# function that the file DEF lists. Every other program imports DLL as usual, and so does everything that clang builds,
# which is for checks alone: its linker puts such a library where the loader cannot write.
function(kvx_late_library name dll def)
  add_library(${name} INTERFACE)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_link_libraries(${name} INTERFACE ${dll})
    return()
  endif()
  set(def "${CMAKE_CURRENT_SOURCE_DIR}/${def}")
  set(folder "${CMAKE_CURRENT_BINARY_DIR}/late")
  set(archive "lib${dll}_late.a")
  file(MAKE_DIRECTORY "${folder}")
  # The archive's name stands in its symbols, so it is given without the folder.
  add_custom_command(OUTPUT "${folder}/${archive}"
                     COMMAND ${CMAKE_DLLTOOL} --input-def "${def}" --output-delaylib "${archive}"
                     DEPENDS "${def}" WORKING_DIRECTORY "${folder}" VERBATIM)
  add_custom_target(${name}_archive DEPENDS "${folder}/${archive}")
  add_dependencies(${name} ${name}_archive)
  target_link_libraries(${name} INTERFACE
                        "$<IF:$<BOOL:$<TARGET_PROPERTY:KVX_LATE_LIBRARIES>>,${folder}/${archive},${dll}>")
endfunction()
