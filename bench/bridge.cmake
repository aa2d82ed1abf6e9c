# What a bridge adds to a program's thread for each piece that it writes.
tq_bench(bridge SOURCES bridge.cpp support/HookedHost.cpp
         LIBS tqbridge_streams tqbridge_core tq_public_headers tq_capi_internal Threads::Threads)
# How late a track is, on a device that keeps time.
tq_bench(bridge_latency SOURCES bridge_latency.cpp support/HookedHost.cpp CORES 2 REPETITIONS 1
         LIBS tqbridge_streams tqbridge_core tq_public_headers tq_capi_internal Threads::Threads)
