# Processes with many images: tiny shared objects that call one of the functions each, made at build
# time and loaded by the program before it measures.
set(image_folder ${CMAKE_CURRENT_BINARY_DIR}/load_images)
set(images "")
foreach(n RANGE 1 250)
    list(APPEND images ${image_folder}/image${n}.so)
endforeach()
add_custom_command(
    OUTPUT ${images}
    COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/load_images.sh ${CMAKE_C_COMPILER} ${image_folder} 250
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/load_images.sh
    VERBATIM)
add_custom_target(tq_bench_load_images DEPENDS ${images})
add_executable(bench_load_process load_process.cpp)
target_link_libraries(bench_load_process PRIVATE tq_warnings tqplatform TQAudioRecordResolver
                                                 ${CMAKE_DL_LIBS})
add_dependencies(bench_load_process tq_bench_load_images)
target_compile_definitions(bench_load_process PRIVATE TQ_LOAD_IMAGES="${image_folder}")
# The program itself calls nothing of the platform; its images do.
target_link_options(bench_load_process PRIVATE -Wl,--no-as-needed)
tq_bench(load SOURCES load.cpp LIBS)
target_compile_definitions(bench_load
                           PRIVATE TQ_LOAD_PROCESS="$<TARGET_FILE:bench_load_process>")
add_dependencies(bench_load bench_load_process)
# What a program's start costs under the recorder; its own calls are those of its images.
add_executable(bench_start_process start_process.cpp)
target_link_libraries(bench_start_process PRIVATE tq_warnings tqplatform ${CMAKE_DL_LIBS})
target_link_options(bench_start_process PRIVATE -Wl,--no-as-needed)
target_compile_definitions(bench_start_process PRIVATE TQ_LOAD_IMAGES="${image_folder}")
add_dependencies(bench_start_process tq_bench_load_images)
add_dependencies(tq_benches bench_start_process tqaudiorecord TQAudioRecordBridge)
