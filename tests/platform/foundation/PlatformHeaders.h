#pragma once

/* What the C side of the header test offers to the C++ side. */

#ifdef __cplusplus
extern "C" {
#endif

/** Uses every C header as a C program does. 0, or the number of the first check that failed. */
int useTheHeadersFromC(void);

#ifdef __cplusplus
}
#endif
