pkg_check_modules(SWRESAMPLE REQUIRED IMPORTED_TARGET libswresample libavutil)
pkg_check_modules(SAMPLERATE REQUIRED IMPORTED_TARGET samplerate)
pkg_check_modules(SDL2 REQUIRED IMPORTED_TARGET sdl2)
tq_bench(conversion SOURCES conversion.cpp conversion_peers.cpp
         LIBS tq_audio_utils PkgConfig::SWRESAMPLE PkgConfig::SAMPLERATE PkgConfig::SDL2)
