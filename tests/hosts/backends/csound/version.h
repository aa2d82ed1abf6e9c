#pragma once

/* The program's configuration makes this file. */

#define CS_PACKAGE_NAME "csound"
#define CS_PACKAGE_VERSION "6.18"
#define CS_VERSION (6)
#define CS_SUBVER (18)
#define CS_PATCHLEVEL (1)
#define CS_APIVERSION 4
#define CS_APISUBVER 0
