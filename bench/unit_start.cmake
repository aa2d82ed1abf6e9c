tq_bench(unit_start SOURCES unit_start.cpp support/HookedHost.cpp REPETITIONS 10
         LIBS tq_capture_internal)
