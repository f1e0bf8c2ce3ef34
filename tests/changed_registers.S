    .syntax unified
    .arch   armv5te
    .arm
    .text
@ uint32_t ChangedRegisters(const void* routine, uint32_t arguments[6], uint32_t* result)
@ Calls the routine with six words of arguments. Returns one bit for each of r4 to r11 that came back
@ changed, and bit 13 for the stack pointer.
    .global ChangedRegisters
    .type   ChangedRegisters, %function
ChangedRegisters:
    push    {r4-r11, lr}
    sub     sp, sp, #4
    ldr     r3, .Lkept
    stmia   r3, {r2, sp}
    mov     r12, r0
    mov     lr, r1
    ldr     r4, [lr, #16]
    ldr     r5, [lr, #20]
    push    {r4, r5}
    ldmia   lr, {r0-r3}
    .irp    n, 4, 5, 6, 7, 8, 9, 10, 11
    mov     r\n, #\n << 24
    .endr
    blx     r12
    ldr     r12, .Lkept
    ldmia   r12, {r2, r3}           @ result, the stack pointer
    str     r0, [r2]
    add     r2, sp, #8
    mov     sp, r3
    mov     r0, #0
    cmp     r2, r3
    orrne   r0, r0, #0x2000
    .irp    n, 4, 5, 6, 7, 8, 9, 10, 11
    cmp     r\n, #\n << 24
    orrne   r0, r0, #1 << \n
    .endr
    add     sp, sp, #4
    pop     {r4-r11, pc}
.Lkept:
    .word   changedRegistersKept
    .size   ChangedRegisters, . - ChangedRegisters

    .bss
    .p2align 2
changedRegistersKept:
    .space  8
    .section .note.GNU-stack, "", %progbits
