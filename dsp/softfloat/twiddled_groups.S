#include "dsp/softfloat/arm.inc"

@ pair sm, se, dm, de: sum and difference of r4, r5 and r6, r7. dm is not r4, r8 or r9 only for the
@ difference; de is not r5. Changes r4 to r9. "Sum and difference".
.macro pair sm, se, dm, de
    align   r4, r5, r6, r7, .LfarPair
    rsb     \dm, r9, r4, asr #3
    add     \sm, r9, r4, asr #3
    normround \dm, \de, r5
    normround \sm, \se, r5
.endm

@ turn place: y, re in r10, r11 and im in r6, r7, by the factor at sp + place; re to r4, r5 and im to
@ r2, r3. Changes r6 to r11. "Turns".
.macro turn place
    orrs    lr, r11, r7
    blmi    .LsettleTwiddled
    ldrd    r8, r9, [sp, #\place]
    product r4, r5, r10, r11
    product r2, r3, r6, r7
    ldrd    r8, r9, [sp, #\place + 8]
    product r10, r11, r10, r11
    product r6, r7, r6, r7
    align   r4, r5, r6, r7, .LfarPair
    rsb     r4, r9, r4, asr #3
    normround r4, r5, r5
    align   r2, r3, r10, r11, .LfarTurn
    add     r2, r9, r2, asr #3
    normround r2, r3, r3
.endm

@ bool SoftTwiddledGroups(Complex<SoftFloat>* a, size_t span, const Twiddles<SoftFactor>* w,
@                         size_t groups)
@ The loops of TwiddledGroupsText (twiddled_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2 w, r3 groups, at least 1
@   uses  r0, r1 places of A and B, then of C and D; r12 from A to C in bytes
@   stack the group's factors, the place where A ends, groups left, w
@   out   r0 whether no number was too small for a product
routine SoftTwiddledGroups
    push    {r4-r11, lr}
    sub     sp, sp, #68
    str     r3, [sp, #52]
    mov     r12, r1, lsl #5
    add     r1, r0, r1, lsl #4
.LtwiddledGroup:
    ldmia   r2!, {r4-r11}
    stmia   sp, {r4-r11}
    ldmia   r2!, {r4-r7}
    add     lr, sp, #32
    stmia   lr, {r4-r7}
    str     r1, [sp, #48]
    str     r2, [sp, #56]
.LtwiddledNext:
    ldrd    r4, r5, [r0]
    ldrd    r6, r7, [r1]
    pair    r2, r3, r6, r7
    strd    r2, r3, [r0]            @ x0.re
    strd    r6, r7, [r1]            @ x1.re
    ldrd    r4, r5, [r0, #8]
    ldrd    r6, r7, [r1, #8]
    pair    r2, r3, r6, r7
    strd    r2, r3, [r0, #8]        @ x0.im
    strd    r6, r7, [r1, #8]        @ x1.im
    add     r0, r0, r12
    add     r1, r1, r12
    ldrd    r4, r5, [r0, #8]
    ldrd    r6, r7, [r1, #8]
    pair    r2, r3, r6, r7
    strd    r2, r3, [r0, #8]        @ x2.im
    strd    r6, r7, [r1, #8]        @ x3.im
    ldrd    r4, r5, [r0]
    ldrd    r6, r7, [r1]
    pair    r6, r7, r10, r11
    strd    r10, r11, [r1]          @ x3.re

    ldrd    r4, r5, [r0, -r12]
    pair    r2, r3, r10, r11        @ x0.re, x2.re: y0.re, y2.re
    strd    r2, r3, [r0, -r12]
    add     r0, r0, #8
    add     r1, r1, #8
    ldrd    r4, r5, [r0, -r12]
    ldrd    r6, r7, [r0]
    pair    r2, r3, r6, r7          @ x0.im, x2.im: y0.im, y2.im
    strd    r2, r3, [r0, -r12]
    turn    16
    strd    r4, r5, [r0, #-8]
    strd    r2, r3, [r0]

    ldrd    r4, r5, [r1, -r12]
    ldrd    r6, r7, [r1, #-8]
    pair    r2, r3, r10, r11        @ x1.im, x3.re: y1.im, y3.im
    sub     r1, r1, #8
    ldrd    r4, r5, [r1, -r12]
    ldrd    r6, r7, [r1, #8]
    strd    r10, r11, [r1, #8]
    pair    r4, r5, r10, r11        @ x1.re, x3.im: y3.re, y1.re
    strd    r4, r5, [r1]
    mov     r6, r2
    mov     r7, r3
    turn    0
    strd    r4, r5, [r1, -r12]
    add     r1, r1, #8
    strd    r2, r3, [r1, -r12]
    ldrd    r10, r11, [r1, #-8]
    ldrd    r6, r7, [r1]
    turn    32
    strd    r4, r5, [r1, #-8]
    strd    r2, r3, [r1]

    sub     r0, r0, r12
    sub     r1, r1, r12
    add     r0, r0, #8
    add     r1, r1, #8
    ldr     lr, [sp, #48]
    cmp     r0, lr
    bne     .LtwiddledNext
    add     r0, r1, r12             @ A of the next group
    add     r1, r0, r12, lsr #1
    ldr     r3, [sp, #52]
    ldr     r2, [sp, #56]
    subs    r3, r3, #1
    str     r3, [sp, #52]
    bne     .LtwiddledGroup
    mov     r0, #1
.LtwiddledEnd:
    add     sp, sp, #68
    pop     {r4-r11, pc}

@ An exponent below 0: put right if it is a zero's, else the end.
.LsettleTwiddled:
    cmp     r10, #0
    moveq   r11, #0
    cmp     r6, #0
    moveq   r7, #0
    orrs    r8, r11, r7
    bxpl    lr
    mov     r0, #0
    b       .LtwiddledEnd

    farout  .LfarPair, r4, r5, r6, r7
    farout  .LfarTurn, r2, r3, r10, r11
endroutine SoftTwiddledGroups
