# Shared build rules: warnings, sanitizers, and one way to declare a test program.

set(TQ_SANITIZE "" CACHE STRING "Sanitizers for the whole build, as -fsanitize= takes them")

# Sanitizer flags reach every target, the example hosts included, so that a preloaded
# instrumented library finds its run-time in the program.
if(TQ_SANITIZE)
    add_compile_options(-fsanitize=${TQ_SANITIZE} -fno-omit-frame-pointer -O1 -g1)
    add_link_options(-fsanitize=${TQ_SANITIZE})
    if(TQ_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=undefined)
    endif()
endif()

add_library(tq_warnings INTERFACE)
target_compile_options(tq_warnings INTERFACE -Wall -Wextra -Wconversion -Wshadow -Werror)

# The tests of one program are compiled as one file, which takes a third of the time: the frameworks'
# headers and templates cost more than the tests themselves. Turn it off to see that each file includes
# what it needs, or to work on one of them.
option(TQ_UNITY_TESTS "Compile the sources of a test program together" ON)
# tq_test(NAME SOURCES a.cpp ... LIBS lib ... [APART c.cpp ...] [ENVIRONMENT A=b ...]
# [PROPERTIES ...]): a GoogleTest program whose cases each run in a process of their own, so that
# singletons start fresh, also when it is run whole by hand. Every test runs on the manual device (no
# thread, no clock, no sound server) with the flag files of the crash guard in the build folder;
# ENVIRONMENT adds to that or overrides it.
# Sources that are APART have names that others of the program have too, so they are compiled alone.
function(tq_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;APART;LIBS;ENVIRONMENT;PROPERTIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES} ${ARG_APART})
    target_link_libraries(${name} PRIVATE tq_warnings tq_common ${ARG_LIBS} tq_test_main tq_test_helpers
                                          GTest::gmock GTest::gtest)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    # The speed of the tests' own code does not matter, that of compiling so much of it does.
    target_compile_options(${name} PRIVATE -O0 -g1)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ${TQ_UNITY_TESTS} UNITY_BUILD_BATCH_SIZE 12)
    if(TQ_UNITY_TESTS AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # A fixture in an unnamed namespace is not the main file's own any more, which does no harm here.
        target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
    endif()
    if(ARG_APART)
        set_source_files_properties(${ARG_APART} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    endif()
    # A program that is partly in C cannot share the frameworks' compiled headers.
    if(NOT "${ARG_SOURCES}" MATCHES "\\.c(;|$)")
        target_precompile_headers(${name} REUSE_FROM tq_test_headers)
    endif()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES TIMEOUT 120 ${ARG_PROPERTIES})
    # A list value does not survive gtest_discover_tests(), so it is set behind it.
    set(environment "TQ_AUDIO_DEVICE=manual" "XDG_CACHE_HOME=${CMAKE_BINARY_DIR}/test-cache"
                    ${ARG_ENVIRONMENT})
    if(TQ_SANITIZE MATCHES "thread")
        # By default it waits a second at each exit for threads that might still race.
        list(PREPEND environment "TSAN_OPTIONS=atexit_sleep_ms=20")
    endif()
    set(script ${CMAKE_CURRENT_BINARY_DIR}/${name}_environment.cmake)
    file(WRITE ${script} "foreach(test IN LISTS ${name}_TESTS)
    set_tests_properties(\"\${test}\" PROPERTIES ENVIRONMENT \"${environment}\")
endforeach()
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
