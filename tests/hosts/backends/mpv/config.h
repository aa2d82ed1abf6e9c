#pragma once

/* The program's configuration makes this file. */

#define HAVE_POSIX 1
#define HAVE_COREAUDIO 1
