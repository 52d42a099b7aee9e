# One library of the system: orv_library(OrvName SOURCES a.cpp b.cpp LINKS OrvOther ...)
function(orv_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE OrvFlags)
endfunction()

# One program: orv_program(orv-name SOURCES main.cpp LINKS ...)
function(orv_program name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE OrvFlags ${ARG_LINKS})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
endfunction()

# One test program, each of its cases a CTest test of its own:
# orv_test(name SOURCES a.cpp LINKS OrvX OrvPlatformLinux LABELS threads TIMEOUT 60)
# Link exactly one of OrvPlatformLinux and OrvPlatformSim. One label at most: "threads" for tests that also run under
# the thread sanitizer, "e2e" for tests with real processes, "realtime" for tests that must not share the machine.
# TOGETHER: the cases share what is made once for them all, so the whole program is one CTest test.
function(orv_test name)
  cmake_parse_arguments(ARG "TOGETHER" "TIMEOUT;LABELS" "SOURCES;LINKS" ${ARGN})
  if(ARG_UNPARSED_ARGUMENTS)
    # A second label among them: gtest_discover_tests would lose it without a word.
    message(FATAL_ERROR "orv_test(${name}) does not know \"${ARG_UNPARSED_ARGUMENTS}\"; LABELS takes one")
  endif()
  if(ORV_TEST_LABEL AND NOT ORV_TEST_LABEL STREQUAL ARG_LABELS)
    return()
  endif()
  if(ORV_COVERAGE AND NOT "${ARG_LINKS}" MATCHES "OrvServiceProcess|OrvFileEngine|OrvConfigClient|OrvAudioFeeder")
    return()  # runs nothing of what is counted
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 60)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE OrvFlags ${ARG_LINKS} GTest::gmock GTest::gtest GTest::gtest_main)
  if(TARGET OrvNoSkips)
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:OrvNoSkips>)
  endif()
  # What is tested is optimised, what tests it is not: that halves the time of a build.
  target_compile_options(${name} PRIVATE -O0 -g1)
  if(ORV_TEST_PREFIX)
    # A sanitizer run repeats the whole program at once; which case failed stands in its output.
    add_test(NAME "${ORV_TEST_PREFIX}${name}" COMMAND ${name})
    math(EXPR timeout "${ARG_TIMEOUT} * 4")
    set_tests_properties("${ORV_TEST_PREFIX}${name}" PROPERTIES TIMEOUT ${timeout} LABELS "${ARG_LABELS}")
  elseif(ARG_TOGETHER)
    add_test(NAME "${name}: all cases" COMMAND ${name})
    set_tests_properties("${name}: all cases" PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
  else()
    gtest_discover_tests(${name} TEST_PREFIX "${name}: " DISCOVERY_MODE PRE_TEST
      PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
  endif()
endfunction()
