# What a bridge adds to a program's thread for each piece that it writes.
tq_bench(bridge SOURCES bridge.cpp support/HookedHost.cpp
         LIBS tqbridge_streams tqbridge_core tq_public_headers tq_capi_internal Threads::Threads)
