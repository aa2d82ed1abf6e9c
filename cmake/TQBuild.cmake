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

# tq_test(NAME SOURCES a.cpp ... LIBS lib ... [ENVIRONMENT A=b ...] [PROPERTIES ...]): a GoogleTest
# program whose cases each run in a process of their own, so that singletons start fresh. Every
# test runs on the manual device (no thread, no clock, no sound server) with the flag files of the
# crash guard in the build folder; ENVIRONMENT adds to that or overrides it.
function(tq_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;ENVIRONMENT;PROPERTIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE tq_warnings tq_common ${ARG_LIBS} tq_test_helpers GTest::gmock
                                          GTest::gtest_main)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    # The speed of the tests' own code does not matter, that of compiling so much of it does.
    target_compile_options(${name} PRIVATE -O0 -g1)
    # The frameworks' headers take longer to compile than most tests. A program that is partly in C
    # cannot share them; and of shared ones g++ 12 warns itself, so only the sanitizers' builds share
    # them, which leave warnings to the others.
    if(TQ_SANITIZE AND NOT "${ARG_SOURCES}" MATCHES "\\.c(;|$)")
        target_precompile_headers(${name} REUSE_FROM tq_test_headers)
        target_compile_options(${name} PRIVATE -w)
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
