# The library's objects are part of the program, so that rings can be emptied between blocks; the
# hooks are installed by rebinding, as in any host.
tq_bench(callback SOURCES callback.cpp support/HookedHost.cpp CORES 2
         LIBS tq_capture_internal)
