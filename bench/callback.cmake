# The library's objects are part of the programs, so that rings can be emptied between blocks; the
# hooks are installed by rebinding, as in any host.
tq_bench(callback SOURCES callback.cpp support/HookedHost.cpp LIBS tq_capture_internal)
target_compile_definitions(bench_callback PRIVATE TQ_BENCH_AFTER_CAPTURE=false)
tq_bench(callback_capture SOURCES callback.cpp support/HookedHost.cpp LIBS tq_capture_internal)
target_compile_definitions(bench_callback_capture PRIVATE TQ_BENCH_AFTER_CAPTURE=true)
tq_bench(callback_slowest SOURCES callback_slowest.cpp support/HookedHost.cpp CORES 2 REPETITIONS 1
         LIBS tq_capture_internal)
