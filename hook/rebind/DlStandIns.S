/* Stand-ins for the loader's functions. The loader tells its caller by the return address, so a
   call that does not concern us must reach it with everything as it was: ask first with the
   arguments saved, then jump. A call that does concern us goes to a function that gets the
   caller's address as its fourth argument. */

#if defined(__x86_64__)

.macro STAND_IN name, ask
    .globl tqhook_\name\()_stand_in
    .hidden tqhook_\name\()_stand_in
    .type tqhook_\name\()_stand_in, @function
    .p2align 4
tqhook_\name\()_stand_in:
    .cfi_startproc
    endbr64
    pushq %rdi
    .cfi_adjust_cfa_offset 8
    pushq %rsi
    .cfi_adjust_cfa_offset 8
    pushq %rdx
    .cfi_adjust_cfa_offset 8
    movq 24(%rsp), %rcx
    call tqhook_wants_\ask
    popq %rdx
    .cfi_adjust_cfa_offset -8
    popq %rsi
    .cfi_adjust_cfa_offset -8
    popq %rdi
    .cfi_adjust_cfa_offset -8
    testl %eax, %eax
    jne 1f
    jmpq *tqhook_real_\name\()(%rip)
1:  movq (%rsp), %rcx
    jmp tqhook_\name
    .cfi_endproc
    .size tqhook_\name\()_stand_in, . - tqhook_\name\()_stand_in
.endm

#elif defined(__aarch64__)

.macro STAND_IN name, ask
    .globl tqhook_\name\()_stand_in
    .hidden tqhook_\name\()_stand_in
    .type tqhook_\name\()_stand_in, %function
    .p2align 4
tqhook_\name\()_stand_in:
    .cfi_startproc
    hint #34                            /* bti c */
    stp x29, x30, [sp, #-48]!
    .cfi_adjust_cfa_offset 48
    .cfi_offset x29, -48
    .cfi_offset x30, -40
    mov x29, sp
    stp x0, x1, [sp, #16]
    str x2, [sp, #32]
    mov x3, x30
    bl tqhook_wants_\ask
    mov w9, w0
    ldp x0, x1, [sp, #16]
    ldr x2, [sp, #32]
    ldp x29, x30, [sp], #48
    .cfi_adjust_cfa_offset -48
    .cfi_restore x29
    .cfi_restore x30
    cbnz w9, 1f
    adrp x16, tqhook_real_\name
    ldr x16, [x16, #:lo12:tqhook_real_\name]
    br x16
1:  mov x3, x30
    b tqhook_\name
    .cfi_endproc
    .size tqhook_\name\()_stand_in, . - tqhook_\name\()_stand_in
.endm

#else
#error "stand-ins are not written for this machine"
#endif

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
