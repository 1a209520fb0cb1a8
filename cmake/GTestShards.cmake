# zt_gtest_shards(TARGET target PREFIX name SOURCES file...)
# One CTest entry per test file of a GoogleTest program, each running that
# file's suites in one process: a crash costs the results of one file, not
# of all, and there is no Wine start per test. The suites are read from the
# files, so a file is configured again when it changes; a suite name may
# belong to one file only, and <name>.EveryTestIsInAShard proves that no
# test is left out.
function(zt_gtest_shards)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "TARGET;PREFIX" "SOURCES")
  set(all_suites "")
  set(all_filter "")
  foreach(source IN LISTS arg_SOURCES)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${source})
    file(STRINGS ${source} declarations REGEX "^(TEST|TEST_F|TEST_P|TYPED_TEST|TYPED_TEST_P)\\([A-Za-z0-9_]+,")
    get_filename_component(file_name ${source} NAME_WE)
    set(filter "")
    set(seen "")
    foreach(declaration IN LISTS declarations)
      string(REGEX REPLACE "^[A-Z_]+\\(([A-Za-z0-9_]+),.*" "\\1" suite "${declaration}")
      if(suite IN_LIST seen)
        continue()
      endif()
      list(APPEND seen ${suite})
      if(suite IN_LIST all_suites)
        message(FATAL_ERROR "test suite ${suite} is in ${file_name}.cpp and in another file of ${arg_TARGET}")
      endif()
      list(APPEND all_suites ${suite})
      # Plain, value-parameterised and typed forms of the suite's test names.
      string(APPEND filter "${suite}.*:*/${suite}.*:${suite}/*:*/${suite}/*:")
    endforeach()
    if(filter STREQUAL "")
      continue()
    endif()
    string(APPEND all_filter "${filter}")
    add_test(NAME ${arg_PREFIX}.${file_name} COMMAND ${arg_TARGET} --gtest_brief=1 --gtest_filter=${filter})
    set_tests_properties(${arg_PREFIX}.${file_name} PROPERTIES LABELS unit TIMEOUT 300)
  endforeach()
  # Lists whatever test no shard's filter takes; there must be none.
  add_test(NAME ${arg_PREFIX}.EveryTestIsInAShard
    COMMAND ${arg_TARGET} --gtest_list_tests --gtest_filter=-${all_filter})
  set_tests_properties(${arg_PREFIX}.EveryTestIsInAShard PROPERTIES LABELS unit
    PASS_REGULAR_EXPRESSION "Running main\\(\\) from" FAIL_REGULAR_EXPRESSION "\n  [A-Za-z_]")
endfunction()
