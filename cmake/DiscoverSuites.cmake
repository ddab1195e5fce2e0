# Included by CTest when it reads the tests: each suite of a GoogleTest program is one test, PROGRAM.SUITE, because a
# process under Wine takes longer to start than most tests take.

# kvx_discover_suites(NAME PROGRAM RUNNER LIST PROPERTIES...): LIST is a file that keeps the program's own list of tests.
# RUNNER is what starts programs for another system, and otherwise empty.
function(kvx_discover_suites name program runner list)
  if(NOT EXISTS "${program}")
    add_test(${name}_NOT_BUILT ${name}_NOT_BUILT)
    return()
  endif()
  if("${program}" IS_NEWER_THAN "${list}")
    execute_process(COMMAND ${runner} "${program}" --gtest_list_tests
                    OUTPUT_VARIABLE text ERROR_VARIABLE errors RESULT_VARIABLE result TIMEOUT 300)
    if(NOT result EQUAL 0)
      message(FATAL_ERROR "${program} --gtest_list_tests: ${result}\n${text}${errors}")
    endif()
    file(WRITE "${list}" "${text}")
  endif()
  # Suites begin a line, the tests below them are indented.
  file(STRINGS "${list}" lines REGEX "^[^ ]+\\.( |\r?$)")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "\\..*" "" suite "${line}")
    add_test("${name}.${suite}" ${runner} "${program}" "--gtest_filter=${suite}.*")
    set_tests_properties("${name}.${suite}" PROPERTIES ${ARGN})
  endforeach()
endfunction()
