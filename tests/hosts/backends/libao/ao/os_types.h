#pragma once

#include <stdint.h>

/* The program's configuration makes this file. */

typedef uint8_t uint_8;
typedef uint16_t uint_16;
typedef uint32_t uint_32;
typedef int8_t sint_8;
typedef int16_t sint_16;
typedef int32_t sint_32;
