/* The functions that the test hosts call and the test hooks redirect. */
#pragma once

int t_add(int a, int b);
/* Two t_add()s, called inside the library that defines it. */
int t_twice(int a, int b);
/* Chosen when the library is loaded. */
int t_pick(void);
