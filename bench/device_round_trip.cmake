# A sound's way out of a program and back: devices_measure starts it on a server.
find_package(cubeb REQUIRED)
pkg_check_modules(TQ_BENCH_SDL REQUIRED IMPORTED_TARGET sdl2)
add_executable(device_round_trip device_round_trip.cpp)
target_include_directories(device_round_trip PRIVATE ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(device_round_trip PRIVATE tq_warnings tqplatform cubeb::cubeb PkgConfig::TQ_BENCH_SDL)
add_dependencies(device_round_trip tqdevice-cubeb)
add_dependencies(tq_benches device_round_trip)
