pkg_check_modules(MIXER_SWRESAMPLE REQUIRED IMPORTED_TARGET libswresample libavutil)
tq_bench(mixer SOURCES mixer.cpp mixer_tracks.cpp LIBS tqplatform tq_audio_utils
         PkgConfig::MIXER_SWRESAMPLE)
