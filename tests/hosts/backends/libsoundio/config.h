#pragma once

/* The program's configuration makes this file. */

#define SOUNDIO_VERSION_MAJOR 2
#define SOUNDIO_VERSION_MINOR 0
#define SOUNDIO_VERSION_PATCH 0
#define SOUNDIO_VERSION_STRING "2.0.0"
#define SOUNDIO_HAVE_COREAUDIO
