#pragma once

/* The program's configuration makes this file. */

#define USE_DOUBLE
