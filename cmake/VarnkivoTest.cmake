# varnkivo_add_test(name [SOURCES] file... [LIBS library...] [TIMEOUT seconds] [LABELS label...] [ARGS argument...] [NO_MAIN])
#
# Makes the test program `name` and one CTest entry that runs it inside the sandbox: the absolute paths, the six hosts
# and port 443 are its own there, so any number of tests may run at once. The program exports its symbols: a function
# that it defines stands in front of the one of the same name in libc, the platform and the library itself.
#
# varnkivo_add_check(name COMMAND command... [TIMEOUT seconds])
#
# A CTest entry for a script about the tree or the build; it runs as it is, outside the sandbox.
if(BUILD_TESTING)
  find_package(GTest REQUIRED)
endif()

set(VARNKIVO_TEST_ENVIRONMENT
  "VARNKIVO_BUILD=${PROJECT_BINARY_DIR}"
  "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:check_initialization_order=1"
  "UBSAN_OPTIONS=print_stacktrace=1"
  "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:die_after_fork=0")

function(varnkivo_add_test name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 arg "NO_MAIN" "TIMEOUT" "SOURCES;LIBS;LABELS;ARGS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 90)
  endif()
  add_executable(${name} ${arg_SOURCES} ${arg_UNPARSED_ARGUMENTS})
  set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
  target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
  if(arg_NO_MAIN)
    target_link_libraries(${name} PRIVATE ${arg_LIBS} GTest::gmock GTest::gtest Threads::Threads)
  else()
    target_link_libraries(${name} PRIVATE ${arg_LIBS} GTest::gmock GTest::gtest_main Threads::Threads)
  endif()
  add_test(NAME ${name} COMMAND "${PROJECT_SOURCE_DIR}/scripts/sandbox" "$<TARGET_FILE:${name}>" ${arg_ARGS})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${VARNKIVO_TEST_ENVIRONMENT}"
    LABELS "${arg_LABELS}")
endfunction()

function(varnkivo_add_check name)
  if(NOT BUILD_TESTING)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "COMMAND")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 90)
  endif()
  add_test(NAME ${name} COMMAND ${arg_COMMAND} WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}")
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${VARNKIVO_TEST_ENVIRONMENT}")
endfunction()
