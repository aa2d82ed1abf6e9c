#pragma once

/* The program makes this file of another, where its configuration writes the number. */

#define OUT123_API_VERSION 4
#include "out123.h.in"
