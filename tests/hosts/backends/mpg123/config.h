#pragma once

/* The program's configuration makes this file. */

#define HAVE_STDLIB_H
#define HAVE_STRERROR
#define HAVE_STRING_H
#define HAVE_UNISTD_H
#define HAVE_SYS_TYPES_H
#define HAVE_INTTYPES_H
#define HAVE_STDINT_H
#define HAVE_LIMITS_H
#define SIZEOF_OFF_T 8
#define LFS_SENSITIVE 0
#define NOXFERMEM
