#include "dsp/softfloat/arm.inc"

@ In all routines of this file r0 and r1 are the places of a butterfly's A and B, or of its C and D;
@ r12 is the way from A to C, and from B to D, in bytes.

@ pair sm, se, dm, de: sum and difference of r4, r5 and r6, r7; `backward`: the difference the other
@ way round; carried and lowers as align has them. dm is not r4 or r9, de is not r5. Changes r4 to
@ r9. "Sum and difference".
.macro pair sm, se, dm, de, carried=0, lowers=0, backward=0
    .if \lowers
    align   r4, r5, r6, r7, .LfarSecond, lowers=1
    .else
    align   r4, r5, r6, r7, .LfarPair, carried=\carried
    .endif
    .if \backward
    sub     \dm, r9, r4, asr #3
    .else
    rsb     \dm, r9, r4, asr #3
    .endif
    add     \sm, r9, r4, asr #3
    normround \dm, \de, r5
    normround \sm, \se, r5
.endm

@ halfbutterfly: sums and differences of A and B, of C and D, each in their place; r0 and r1 go on
@ to C and D, and x2.re stays in r6, r7 alone. Changes r2 to r11.
.macro halfbutterfly
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
    pair    r2, r3, r6, r7, lowers=1
    strd    r2, r3, [r0, #8]        @ x2.im
    strd    r6, r7, [r1, #8]        @ x3.im
    ldrd    r4, r5, [r0]
    ldrd    r6, r7, [r1]
    pair    r6, r7, r10, r11, lowers=1 @ x2.re
    strd    r10, r11, [r1]          @ x3.re
.endm

@ evenhalf: from x0 and x2, y0 to its place and y2 to r10, r11 and r6, r7. r0 and r1 go on by 8.
.macro evenhalf
    ldrd    r4, r5, [r0, -r12]
    pair    r2, r3, r10, r11, carried=1
    strd    r2, r3, [r0, -r12]      @ y0.re
    add     r0, r0, #8
    add     r1, r1, #8
    ldrd    r4, r5, [r0, -r12]
    ldrd    r6, r7, [r0]
    pair    r2, r3, r6, r7, carried=1
    strd    r2, r3, [r0, -r12]      @ y0.im
.endm

@ oddhalf: from x1 and x3, y3 to its place and y1 to r10, r11 and r2, r3. r1 goes back by 8.
.macro oddhalf
    ldrd    r4, r5, [r1, -r12]
    ldrd    r6, r7, [r1, #-8]
    pair    r2, r3, r10, r11, carried=1 @ x1.im, x3.re
    sub     r1, r1, #8
    ldrd    r4, r5, [r1, -r12]
    ldrd    r6, r7, [r1, #8]
    strd    r10, r11, [r1, #8]      @ y3.im
    pair    r4, r5, r10, r11, carried=1 @ x1.re, x3.im
    strd    r4, r5, [r1]            @ y3.re
.endm

@ nextbutterfly place, label: to the label with r0 and r1 at the next A and B, unless it is at the
@ place that the stack holds.
.macro nextbutterfly place, label
    sub     r0, r0, r12
    sub     r1, r1, r12
    add     r0, r0, #8
    add     r1, r1, #8
    ldr     lr, [sp, #\place]
    cmp     r0, lr
    bne     \label
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
    align   r4, r5, r6, r7, .LfarPair, carried=1
    rsb     r4, r9, r4, asr #3
    normround r4, r5, r5
    align   r2, r3, r10, r11, .LfarTurn, carried=1
    add     r2, r9, r2, asr #3
    normround r2, r3, r3
.endm

@ void SoftUntwiddledGroup(Complex<SoftFloat>* a, size_t span)
@ The loop of UntwiddledGroupText (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span         stack  the place where A ends
routine SoftUntwiddledGroup
    push    {r4-r11, lr}
    mov     r12, r1, lsl #5
    add     r1, r0, r1, lsl #4
    str     r1, [sp, #-4]!
.LuntwiddledNext:
    halfbutterfly
    evenhalf
    strd    r10, r11, [r0, #-8]
    strd    r6, r7, [r0]
    oddhalf
    strd    r10, r11, [r1, -r12]
    add     r1, r1, #8
    strd    r2, r3, [r1, -r12]
    nextbutterfly 0, .LuntwiddledNext
    add     sp, sp, #4
    pop     {r4-r11, pc}
endroutine SoftUntwiddledGroup

@ eighthproducts: r6, r7 and r2, r3 times the factor at sp, stored to r1 - 8 and r1 less r12 or not.
.macro eighthproducts
    ldrd    r8, r9, [sp]
    product r6, r7, r6, r7
    product r2, r3, r2, r3
    orrs    lr, r7, r3
    blmi    .LsettleEighth
.endm

@ bool SoftEighthGroup(Complex<SoftFloat>* a, size_t span, int32_t m, int32_t e)
@ The loop of EighthGroupText (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2, r3 the factor cos(pi / 4)
@   stack the factor, the place where A ends
@   out   r0 whether no product is too small
routine SoftEighthGroup
    push    {r4-r11, lr}
    sub     sp, sp, #12
    strd    r2, r3, [sp]
    mov     r12, r1, lsl #5
    add     r1, r0, r1, lsl #4
    str     r1, [sp, #8]
.LeighthNext:
    halfbutterfly
    ldrd    r4, r5, [r0, -r12]
    pair    r2, r3, r10, r11, carried=1 @ x0.re, x2.re
    strd    r2, r3, [r0, -r12]      @ y0.re
    add     r0, r0, #8
    add     r1, r1, #8
    ldrd    r4, r5, [r0, -r12]
    ldrd    r6, r7, [r0]
    strd    r10, r11, [r0]          @ y2.im
    pair    r2, r3, r6, r7, carried=1, backward=1 @ x2.im, x0.im
    strd    r2, r3, [r0, -r12]      @ y0.im
    strd    r6, r7, [r0, #-8]       @ y2.re

    ldrd    r4, r5, [r1, -r12]
    ldrd    r6, r7, [r1, #-8]
    @ x3.re, x1.im: y1 im, y3 re before their turn
    pair    r2, r3, r10, r11, carried=1, backward=1
    sub     r1, r1, #8
    ldrd    r4, r5, [r1, -r12]
    ldrd    r6, r7, [r1, #8]
    pair    r6, r7, r8, r9, carried=1 @ x1.re, x3.im: y3 im, y1 re
    add     r1, r1, #8
    strd    r6, r7, [r1]
    mov     r4, r8
    mov     r5, r9
    mov     r6, r2
    mov     r7, r3
    pair    r2, r3, r6, r7
    eighthproducts
    strd    r2, r3, [r1, -r12]      @ y1.im
    sub     r1, r1, #8
    strd    r6, r7, [r1, -r12]      @ y1.re
    mov     r4, r10
    mov     r5, r11
    ldrd    r6, r7, [r1, #8]!
    pair    r2, r3, r6, r7
    eighthproducts
    strd    r2, r3, [r1]            @ y3.im
    strd    r6, r7, [r1, #-8]       @ y3.re
    nextbutterfly 8, .LeighthNext
    mov     r0, #1
.LeighthEnd:
    add     sp, sp, #12
    pop     {r4-r11, pc}
.LsettleEighth:
    settle  r6, r7, r2, r3, .LeighthEnd
endroutine SoftEighthGroup

@ bool SoftTwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
@                         size_t groups)
@ The loops of TwiddledGroupsText (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2 w, r3 groups, at least 1
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
    halfbutterfly
    evenhalf
    turn    16
    strd    r4, r5, [r0, #-8]
    strd    r2, r3, [r0]
    oddhalf
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
    nextbutterfly 48, .LtwiddledNext
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
.LsettleTwiddled:
    settle  r10, r11, r6, r7, .LtwiddledEnd
endroutine SoftTwiddledGroups

@ void SoftLastStage(SoftFloat* a, size_t count)
@ The loop of LastStageText (butterfly_groups.h). docs/soft-float.md, "Sum and difference".
@   in    r0 a, r1 count, at least 1       uses  r12 the way to the second number
@   stack the place where a ends
routine SoftLastStage
    push    {r4-r11, lr}
    mov     r12, r1, lsl #3
    add     r1, r0, r12
    str     r1, [sp, #-4]!
.LlastNext:
    ldrd    r4, r5, [r0]
    ldrd    r6, r7, [r0, r12]
    pair    r2, r3, r6, r7
    strd    r6, r7, [r0, r12]
    strd    r2, r3, [r0], #8
    ldr     lr, [sp]
    cmp     r0, lr
    bne     .LlastNext
    add     sp, sp, #4
    pop     {r4-r11, pc}
endroutine SoftLastStage

routine SoftButterflyFar
    farout  .LfarPair, r4, r5, r6, r7
    farout  .LfarSecond, r4, r5, r6, r7, leads=0
    farout  .LfarTurn, r2, r3, r10, r11
endroutine SoftButterflyFar
