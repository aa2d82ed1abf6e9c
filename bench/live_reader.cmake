# The quickest reader of a live source: live_measure starts it on PipeWire.
pkg_check_modules(TQ_BENCH_PIPEWIRE REQUIRED IMPORTED_TARGET libpipewire-0.3)
add_executable(live_reader live_reader.cpp)
target_link_libraries(live_reader PRIVATE tq_warnings PkgConfig::TQ_BENCH_PIPEWIRE)
add_dependencies(tq_benches live_reader)
