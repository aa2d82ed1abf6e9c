# Installs into an empty folder, builds a host and a listener against it with the CMake package and
# with pkg-config, and runs them. Needs BUILD (the build folder), SOURCE (this folder), WORK.

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${ARGV}\n${output}")
    endif()
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} -G Ninja -S ${SOURCE}/consumer -B ${WORK}/build
    -DCMAKE_PREFIX_PATH=${WORK}/prefix)
run(${CMAKE_COMMAND} --build ${WORK}/build)
set(ENV{TQ_AUDIO_DEVICE} manual)
set(ENV{XDG_CACHE_HOME} ${WORK}/cache)
run(${WORK}/build/host)
run(${WORK}/build/listener)

# The recorder finds its library beside itself.
set(ENV{TQ_AUDIO_DEVICE} null)
run(${WORK}/prefix/bin/tqaudiorecord -q -o ${WORK}/recorded.wav ${WORK}/build/player)
execute_process(COMMAND sox ${WORK}/recorded.wav -n stat ERROR_VARIABLE statistics)
if(NOT statistics MATCHES "Length \\(seconds\\): +1\\." OR
   NOT statistics MATCHES "Maximum amplitude: +0\\.[23]")
    message(FATAL_ERROR "the installed recorder recorded something else:\n${statistics}")
endif()
foreach(file share/man/man1/tqaudiorecord.1 share/bash-completion/completions/tqaudiorecord
             share/zsh/site-functions/_tqaudiorecord)
    if(NOT EXISTS ${WORK}/prefix/${file})
        message(FATAL_ERROR "${file} is not installed")
    endif()
endforeach()

file(GLOB_RECURSE pkgconfig ${WORK}/prefix/*/TQAudioRecord.pc)
get_filename_component(folder ${pkgconfig} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${folder})
# pkgconf finds the files by their own place, wherever the prefix was moved.
execute_process(COMMAND pkg-config --define-prefix --cflags --libs TQAudioRecord
                OUTPUT_VARIABLE flags RESULT_VARIABLE result OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know TQAudioRecord")
endif()
separate_arguments(flags)
run(c++ -std=c++20 ${SOURCE}/consumer/listener.cpp -o ${WORK}/by-pkg-config ${flags})
get_filename_component(libraries ${folder} DIRECTORY)
set(ENV{LD_LIBRARY_PATH} ${libraries})
run(${WORK}/by-pkg-config)
