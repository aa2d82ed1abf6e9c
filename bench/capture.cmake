tq_bench(capture SOURCES capture.cpp support/HookedHost.cpp LIBS tq_capture_internal)
