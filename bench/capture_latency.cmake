tq_bench(capture_latency SOURCES capture_latency.cpp support/HookedHost.cpp CORES 2 REPETITIONS 1
         LIBS tq_capture_internal)
