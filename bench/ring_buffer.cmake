find_path(RWQ_INCLUDE readerwriterqueue/readerwriterqueue.h REQUIRED)
find_package(Boost 1.74 REQUIRED)
pkg_check_modules(JACK REQUIRED IMPORTED_TARGET jack)
tq_bench(ring_buffer SOURCES ring_buffer.cpp LIBS tq_audio_utils PkgConfig::JACK Boost::headers)
tq_bench(ring_buffer_threads SOURCES ring_buffer_threads.cpp CORES 2
         LIBS tq_audio_utils PkgConfig::JACK Boost::headers)
