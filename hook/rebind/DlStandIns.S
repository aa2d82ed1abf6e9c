/* Stand-ins for the loader's functions. The loader tells its caller by the return address, so a
   call that does not concern us must reach it with everything as it was: ask first with the
   arguments saved, then jump. A call that does concern us goes to a function that gets the
   caller's address as its fourth argument. */

#include "common/Machine.h"

.macro STAND_IN name, ask
    .globl tqhook_\name\()_stand_in
    .hidden tqhook_\name\()_stand_in
    .type tqhook_\name\()_stand_in, %function
    .p2align 4
tqhook_\name\()_stand_in:
    .cfi_startproc
    ASK_THEN_JUMP tqhook_wants_\ask, tqhook_real_\name, tqhook_\name
    .cfi_endproc
    .size tqhook_\name\()_stand_in, . - tqhook_\name\()_stand_in
.endm

    .hidden tqhook_wants_dlopen, tqhook_wants_dlmopen, tqhook_wants_dlsym
    .hidden tqhook_dlopen, tqhook_dlmopen, tqhook_dlsym, tqhook_dlvsym
    .hidden tqhook_real_dlopen, tqhook_real_dlmopen
    .hidden tqhook_real_dlsym, tqhook_real_dlvsym

    .text
    STAND_IN dlopen, dlopen
    STAND_IN dlmopen, dlmopen
    STAND_IN dlsym, dlsym
    STAND_IN dlvsym, dlsym

    .section .note.GNU-stack, "", %progbits
