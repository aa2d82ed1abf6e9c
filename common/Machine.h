#pragma once

// What differs by processor outside the arithmetic: how images are told and relocated, and the
// code that stands in for the loader's functions. Another machine is added here and nowhere else.
// The assembler reads this file too.

#if !defined(__ASSEMBLER__)

#include <elf.h>
#include <link.h>

#include <cstdint>

namespace tqcommon {

/// What image files of this machine say in their headers, and which relocations are filled with
/// the address of a symbol.
#if defined(__x86_64__)
inline constexpr ElfW(Half) kElfMachine = EM_X86_64;
inline constexpr std::uint32_t kCallRelocation = R_X86_64_JUMP_SLOT;
inline constexpr std::uint32_t kPointerRelocation = R_X86_64_GLOB_DAT;
inline constexpr std::uint32_t kDataRelocation = R_X86_64_64;
/// The version of the C library that the machine came with: its oldest symbols bear it.
inline constexpr const char* kOldestLibcVersion = "GLIBC_2.2.5";
#elif defined(__aarch64__)
inline constexpr ElfW(Half) kElfMachine = EM_AARCH64;
inline constexpr std::uint32_t kCallRelocation = R_AARCH64_JUMP_SLOT;
inline constexpr std::uint32_t kPointerRelocation = R_AARCH64_GLOB_DAT;
inline constexpr std::uint32_t kDataRelocation = R_AARCH64_ABS64;
inline constexpr const char* kOldestLibcVersion = "GLIBC_2.17";
#else
#error "this machine is not known yet"
#endif

/// The same on all of them; their relocations hold addends (Rela).
inline constexpr unsigned char kElfClass = ELFCLASS64;
inline constexpr unsigned char kElfData = ELFDATA2LSB;

/// Whether a file begins as those do that this machine's loader takes.
[[nodiscard]] inline bool isForThisMachine(const ElfW(Ehdr) & header) {
    return header.e_ident[EI_MAG0] == ELFMAG0 && header.e_ident[EI_MAG1] == ELFMAG1 &&
           header.e_ident[EI_MAG2] == ELFMAG2 && header.e_ident[EI_MAG3] == ELFMAG3 &&
           header.e_ident[EI_CLASS] == kElfClass && header.e_ident[EI_DATA] == kElfData &&
           header.e_machine == kElfMachine;
}

}  // namespace tqcommon

#else

/* clang-format off */

/* ASK_THEN_JUMP question, untouched, taken: calls `question` with the three arguments and, as the
   fourth, the return address. When it answers 0, the call goes on to the function that `untouched`
   points to, with everything as it was; else to `taken`, again with the return address as the fourth
   argument. It is the whole body of a function. */

#if defined(__x86_64__)

.macro ASK_THEN_JUMP question, untouched, taken
    endbr64
    pushq %rdi
    .cfi_adjust_cfa_offset 8
    pushq %rsi
    .cfi_adjust_cfa_offset 8
    pushq %rdx
    .cfi_adjust_cfa_offset 8
    movq 24(%rsp), %rcx
    call \question
    popq %rdx
    .cfi_adjust_cfa_offset -8
    popq %rsi
    .cfi_adjust_cfa_offset -8
    popq %rdi
    .cfi_adjust_cfa_offset -8
    testl %eax, %eax
    jne 1f
    jmpq *\untouched(%rip)
1:  movq (%rsp), %rcx
    jmp \taken
.endm

#elif defined(__aarch64__)

.macro ASK_THEN_JUMP question, untouched, taken
    hint #34                            /* bti c */
    stp x29, x30, [sp, #-48]!
    .cfi_adjust_cfa_offset 48
    .cfi_offset x29, -48
    .cfi_offset x30, -40
    mov x29, sp
    stp x0, x1, [sp, #16]
    str x2, [sp, #32]
    mov x3, x30
    bl \question
    mov w9, w0
    ldp x0, x1, [sp, #16]
    ldr x2, [sp, #32]
    ldp x29, x30, [sp], #48
    .cfi_adjust_cfa_offset -48
    .cfi_restore x29
    .cfi_restore x30
    cbnz w9, 1f
    adrp x16, \untouched
    ldr x16, [x16, #:lo12:\untouched]
    br x16
1:  mov x3, x30
    b \taken
.endm

#else
#error "this machine is not known yet"
#endif

/* clang-format on */

#endif
