/* Stand-ins for the loader's functions. The loader tells its caller by the return address, so a
   call that does not concern us must reach it with everything as it was: ask first with the
   arguments saved, then jump. A call that does concern us goes to a function that gets the
   caller's address as its fourth argument. */

#if defined(__x86_64__)

.macro STAND_IN name, ask
    .globl tqresolver_\name\()_stand_in
    .hidden tqresolver_\name\()_stand_in
    .type tqresolver_\name\()_stand_in, @function
    .p2align 4
tqresolver_\name\()_stand_in:
    .cfi_startproc
    endbr64
    pushq %rdi
    .cfi_adjust_cfa_offset 8
    pushq %rsi
    .cfi_adjust_cfa_offset 8
    pushq %rdx
    .cfi_adjust_cfa_offset 8
    movq 24(%rsp), %rcx
    call tqresolver_wants_\ask
    popq %rdx
    .cfi_adjust_cfa_offset -8
    popq %rsi
    .cfi_adjust_cfa_offset -8
    popq %rdi
    .cfi_adjust_cfa_offset -8
    testl %eax, %eax
    jne 1f
    jmpq *tqresolver_real_\name\()(%rip)
1:  movq (%rsp), %rcx
    jmp tqresolver_\name
    .cfi_endproc
    .size tqresolver_\name\()_stand_in, . - tqresolver_\name\()_stand_in
.endm

#elif defined(__aarch64__)

.macro STAND_IN name, ask
    .globl tqresolver_\name\()_stand_in
    .hidden tqresolver_\name\()_stand_in
    .type tqresolver_\name\()_stand_in, %function
    .p2align 4
tqresolver_\name\()_stand_in:
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
    bl tqresolver_wants_\ask
    mov w9, w0
    ldp x0, x1, [sp, #16]
    ldr x2, [sp, #32]
    ldp x29, x30, [sp], #48
    .cfi_adjust_cfa_offset -48
    .cfi_restore x29
    .cfi_restore x30
    cbnz w9, 1f
    adrp x16, tqresolver_real_\name
    ldr x16, [x16, #:lo12:tqresolver_real_\name]
    br x16
1:  mov x3, x30
    b tqresolver_\name
    .cfi_endproc
    .size tqresolver_\name\()_stand_in, . - tqresolver_\name\()_stand_in
.endm

#else
#error "stand-ins are not written for this machine"
#endif

    .hidden tqresolver_wants_dlopen, tqresolver_wants_dlmopen, tqresolver_wants_dlsym
    .hidden tqresolver_dlopen, tqresolver_dlmopen, tqresolver_dlsym, tqresolver_dlvsym
    .hidden tqresolver_real_dlopen, tqresolver_real_dlmopen
    .hidden tqresolver_real_dlsym, tqresolver_real_dlvsym

    .text
    STAND_IN dlopen, dlopen
    STAND_IN dlmopen, dlmopen
    STAND_IN dlsym, dlsym
    STAND_IN dlvsym, dlsym

    .section .note.GNU-stack, "", %progbits
