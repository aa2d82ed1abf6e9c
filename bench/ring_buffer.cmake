find_path(RWQ_INCLUDE readerwriterqueue/readerwriterqueue.h REQUIRED)
find_package(Boost 1.74 REQUIRED)
pkg_check_modules(JACK REQUIRED IMPORTED_TARGET jack)
tq_bench(ring_buffer SOURCES ring_buffer.cpp LIBS tq_audio_utils PkgConfig::JACK Boost::headers)
target_compile_definitions(bench_ring_buffer PRIVATE TQ_BENCH_BESIDE_BUSY_CORE=false)
tq_bench(ring_buffer_busy SOURCES ring_buffer.cpp CORES 2
         LIBS tq_audio_utils PkgConfig::JACK Boost::headers)
target_compile_definitions(bench_ring_buffer_busy PRIVATE TQ_BENCH_BESIDE_BUSY_CORE=true)
tq_bench(ring_buffer_threads SOURCES ring_buffer_threads.cpp CORES 2
         LIBS tq_audio_utils PkgConfig::JACK Boost::headers)
