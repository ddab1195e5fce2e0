# The Debian packages that the publisher's tool and the tests are built from. The launcher needs none of them.
set(KVX_PACKAGES_ROOT "" CACHE PATH "The folder that has the packages' usr/ folder, if not the root")
set(kvx_include_folder "${KVX_PACKAGES_ROOT}/usr/include")
set(kvx_googletest_folder "${KVX_PACKAGES_ROOT}/usr/src/googletest")

# kvx_missing_packages(OUT): those that are not installed, with blanks between them.
function(kvx_missing_packages out)
  set(missing "")
  foreach(package "libcli11-dev|${kvx_include_folder}/CLI/CLI.hpp"
                  "nlohmann-json3-dev|${kvx_include_folder}/nlohmann/json.hpp"
                  "googletest|${kvx_googletest_folder}/CMakeLists.txt")
    string(REPLACE "|" ";" package "${package}")
    list(GET package 1 file)
    if(NOT EXISTS "${file}")
      list(GET package 0 name)
      list(APPEND missing "${name}")
    endif()
  endforeach()
  list(JOIN missing " " missing)
  set(${out} "${missing}" PARENT_SCOPE)
endfunction()

# kvx_launcher_only(PACKAGES): in place of the tools and tests, which cannot be built without these packages. A build of all
# and a run of the tests fail and say why.
function(kvx_launcher_only packages)
  set(reason "Only the target KVXLauncher can be built: the rest needs the Debian packages ${packages}")
  message(WARNING "${reason}")
  add_custom_target(missing_packages ALL COMMAND "${CMAKE_COMMAND}" -E echo "${reason}"
                    COMMAND "${CMAKE_COMMAND}" -E false VERBATIM)
  add_test(NAME missing_packages COMMAND "${CMAKE_COMMAND}" --build "${CMAKE_BINARY_DIR}" --target missing_packages)
endfunction()
