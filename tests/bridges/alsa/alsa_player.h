#pragma once

/// What alsa_player does; returns its exit code.
extern "C" [[gnu::visibility("default")]] int playAlsa(int count, char** arguments);
