pkg_check_modules(AVFILTER REQUIRED IMPORTED_TARGET libavfilter libavutil)
tq_bench(gain SOURCES gain.cpp gain_peers.cpp LIBS tq_audio_utils PkgConfig::AVFILTER)
