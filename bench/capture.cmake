tq_bench(capture SOURCES capture.cpp support/HookedHost.cpp REPETITIONS 10
         LIBS tq_capture_internal)
