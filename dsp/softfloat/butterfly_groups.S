#include "dsp/softfloat/arm.inc"

@ In the routines of this file a complex value takes r2 to r5 or r6, r7, r10, r11, in the order in
@ which it lies in memory. r0, r1 and r12 are the places of A, B and C, or of what becomes of them;
@ the stack holds D's and where D ends.

@ pair am, ae, bm, be: sum and difference of a stage's pair in place of a and b, or with `swap` of b
@ and a; with `backward` the difference is b - a. With `alike`, the exponents are any numbers'.
@ Changes r8 and r9. "Sum and difference".
.macro pair am, ae, bm, be, swap=0, backward=0, alike=0
    align   \am, \ae, \bm, \be, .Lfar\am\()\bm, carried=1-\alike
    .if \swap
    add     \bm, r9, \am, asr #3
    difference \am, \am, \backward
    .else
    difference \bm, \am, \backward
    add     \am, r9, \am, asr #3
    .endif
    normround \bm, \be, \ae
    normround \am, \ae, \ae
.endm
.macro difference m, am, backward
    .if \backward
    sub     \m, r9, \am, asr #3
    .else
    rsb     \m, r9, \am, asr #3
    .endif
.endm

@ places: of B and C, D and its end, to r8 and r9, where A is at r0 and they lie lr bytes apart.
.macro places
    add     r1, r0, lr
    add     r12, r1, lr
    add     r8, r12, lr
    add     r9, r8, lr
.endm

@ firsthalf place: x0 to r2 to r5, x2 to r6, r7, r10, r11; x1 to B's place, and x3 pushed. D's place
@ is at sp + place.
.macro firsthalf place
    ldr     lr, [sp, #\place]
    ldmia   r12, {r2-r5}
    ldmia   lr, {r6, r7, r10, r11}
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    stmdb   sp!, {r2-r7, r10, r11}
    ldmia   r0, {r2-r5}
    ldmia   r1, {r6, r7, r10, r11}
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    stmia   r1, {r6, r7, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11}
.endm

@ evenpairs: x0 and x2 become y0, to its place, and y2.
.macro evenpairs
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    stmia   r0!, {r2-r5}
.endm

@ oddpairs: of x1 and x3 as firsthalf leaves them, y3 to r2 to r5, y1's real part to r10, r11 and
@ its imaginary part to r6, r7.
.macro oddpairs
    ldmia   r1, {r2-r5}
    ldmia   sp!, {r6, r7, r10, r11}
    pair    r4, r5, r6, r7, swap=1 @ x1.im, x3.re
    pair    r2, r3, r10, r11     @ x1.re, x3.im
.endm

@ storelast place, label, registers: y3 to D's place; then to the label for the next butterfly,
@ unless D ends there.
.macro storelast place, label, registers:vararg
    ldrd    r8, r9, [sp, #\place]
    stmia   r8!, {\registers}
    str     r8, [sp, #\place]
    cmp     r8, r9
    bne     \label
.endm

@ turnproducts ofreal, ofimaginary: y, its parts as oddpairs leaves y1's or the other way round, by
@ the factor whose parts lie at these addresses, as turned takes them. "Turns".
.macro turnproducts ofreal, ofimaginary
    ldrd    r8, r9, \ofreal
    realproducts
    ldrd    r8, r9, \ofimaginary
    imaginaryproducts
.endm

@ settlefour fail: settle for all four numbers. Changes r8 and r9.
.macro settlefour fail
    cmp     r2, #0
    moveq   r3, #0
    cmp     r4, #0
    moveq   r5, #0
    orrs    r9, r3, r5
    movmi   r0, #0
    bmi     \fail
    settle  r6, r7, r10, r11, \fail
.endm

@ void SoftUntwiddledGroup(Complex<SoftFloat>* a, size_t span)
@ The loop of UntwiddledGroupText (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span         stack  places
routine SoftUntwiddledGroup
    push    {r4-r11, lr}
    sub     sp, sp, #12
    mov     lr, r1, lsl #4
    places
    strd    r8, r9, [sp]
.LuntwiddledNext:
    firsthalf 0
    evenpairs
    stmia   r12!, {r6, r7, r10, r11}
    oddpairs
    strd    r10, r11, [r1], #8
    strd    r6, r7, [r1], #8
    storelast 0, .LuntwiddledNext, r2-r5
    add     sp, sp, #12
    pop     {r4-r11, pc}
endroutine SoftUntwiddledGroup

@ bool SoftEighthGroup(Complex<SoftFloat>* a, size_t span, int32_t m, int32_t e)
@ The loop of EighthGroupText (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2, r3 the factor cos(pi / 4)
@   stack the factor, places
@   out   r0 whether no product is too small
routine SoftEighthGroup
    push    {r4-r11, lr}
    sub     sp, sp, #20
    mov     lr, r1, lsl #4
    places
    strd    r2, r3, [sp]
    strd    r8, r9, [sp, #8]
.LeighthNext:
    firsthalf 8
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11, backward=1
    stmia   r0!, {r2-r5}
    strd    r10, r11, [r12], #8     @ y2 = i (x0 - x2)
    strd    r6, r7, [r12], #8
    ldmia   r1, {r2-r5}
    ldmia   sp!, {r6, r7, r10, r11}
    pair    r4, r5, r6, r7, swap=1, backward=1
    pair    r2, r3, r10, r11, swap=1
    pair    r2, r3, r6, r7, swap=1, alike=1 @ y1 before its scaling
    pair    r4, r5, r10, r11, swap=1, alike=1
    ldrd    r8, r9, [sp]
    product r2, r3, r2, r3
    product r4, r5, r4, r5
    product r6, r7, r6, r7
    product r10, r11, r10, r11
    orrs    lr, r3, r5
    orrspl  lr, r7, r11
    blmi    .LsettleEighth
    stmia   r1!, {r2, r3, r6, r7}
    storelast 8, .LeighthNext, r4, r5, r10, r11
    mov     r0, #1
.LeighthEnd:
    add     sp, sp, #20
    pop     {r4-r11, pc}
.LsettleEighth:
    settlefour .LeighthEnd
endroutine SoftEighthGroup

@ bool SoftTwiddledButterflies(Complex<SoftFloat>* a, const SoftTwiddles* w, size_t groups)
@ That of TwiddledGroupsText (butterfly_groups.h), span 1. docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 w, r2 groups, at least 1
@   uses  r0 the place of C, r12 that behind the last butterfly
@   stack as in SoftTwiddledGroups, whose ends serve both, but nothing is there
@   out   r0 whether no number was too small for a product
routine SoftTwiddledButterflies
    push    {r4-r11, lr}
    sub     sp, sp, #68
    add     r0, r0, #32
    add     r12, r0, r2, lsl #6
    sub     r1, r1, #8              @ in the loop, the last factor that was loaded
.LbutterflyNext:
    ldmia   r0, {r2-r7, r10, r11}
    orrs    r8, r6, r10
    beq     .LbutterflyPadded
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
.LbutterflySecond:
    stmdb   sp!, {r2-r7, r10, r11}
    ldmdb   r0, {r2-r7, r10, r11}
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    stmdb   r0, {r6, r7, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11}
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    strd    r2, r3, [r0, #-32]
    strd    r4, r5, [r0, #-24]
    orrs    lr, r7, r11
    blmi    .LsettleEven
    turnproducts "[r1, #24]!", "[r1, #8]"
    turned  r2, r3, r4, r5
    stmia   r0, {r2-r5}
    ldmdb   r0, {r2-r5}
    ldmia   sp!, {r6, r7, r10, r11}
    pair    r4, r5, r6, r7, swap=1
    pair    r2, r3, r10, r11
    orrs    lr, r3, r5
    orrspl  lr, r7, r11
    blmi    .LsettleOdd
    stmdb   sp!, {r2-r5}
    turnproducts "[r1, #-16]", "[r1, #-8]"
    turned  r10, r11, r2, r3, back=1
    stmdb   r0, {r2, r3, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11}
    turnproducts "[r1, #16]", "[r1, #24]!"
    turned  r2, r3, r4, r5
    add     r0, r0, #16
    stmia   r0!, {r2-r5}
    add     r0, r0, #32
    cmp     r0, r12
    bne     .LbutterflyNext
    b       .LtwiddledSettled
@ D is 0, as all but one are where a block's padding begins: x2 and x3 are C.
.LbutterflyPadded:
    sub     r3, r3, #3
    sub     r5, r5, #3
    mov     r6, r2
    mov     r7, r3
    mov     r10, r4
    mov     r11, r5
    b       .LbutterflySecond
endroutine SoftTwiddledButterflies

@ bool SoftTwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
@                         size_t groups)
@ The loops of TwiddledGroupsText (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2 w, r3 groups, at least 1
@   stack the group's factors, places, w and where it ends, 16 span
@   out   r0 whether no number was too small for a product
routine SoftTwiddledGroups
    push    {r4-r11, lr}
    sub     sp, sp, #68
    mov     r1, r1, lsl #4
    str     r1, [sp, #64]
    add     r3, r3, r3, lsl #1
    add     r3, r2, r3, lsl #4
    str     r3, [sp, #60]
    mov     r8, r0
.LtwiddledGroup:
    ldmia   r2!, {r0, r1, r3-r7, r9-r12, lr}
    stmia   sp, {r0, r1, r3-r7, r9-r12, lr}
    str     r2, [sp, #56]
    ldr     lr, [sp, #64]
    mov     r0, r8
    places
    strd    r8, r9, [sp, #48]
.LtwiddledNext:
    firsthalf 48
    evenpairs
    orrs    lr, r7, r11
    blmi    .LsettleEven
    turnproducts "[sp, #32]", "[sp, #40]"
    turned  r2, r3, r4, r5
    stmia   r12!, {r2-r5}
    oddpairs
    orrs    lr, r3, r5
    orrspl  lr, r7, r11
    blmi    .LsettleOdd
    stmdb   sp!, {r2-r5}
    turnproducts "[sp, #16]", "[sp, #24]"
    turned  r10, r11, r2, r3, back=1
    stmia   r1!, {r2, r3, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11}
    turnproducts "[sp, #32]", "[sp, #40]"
    turned  r2, r3, r4, r5
    storelast 48, .LtwiddledNext, r2-r5
    ldrd    r2, r3, [sp, #56]
    cmp     r2, r3
    bne     .LtwiddledGroup         @ the next A lies where D ends
.LtwiddledSettled:
    mov     r0, #1
.LtwiddledEnd:
    add     sp, sp, #68
    pop     {r4-r11, pc}
.LtwiddledPushed:
    add     sp, sp, #16
    b       .LtwiddledEnd
.LsettleEven:
    settle  r6, r7, r10, r11, .LtwiddledPushed
.LsettleOdd:
    settlefour .LtwiddledEnd
endroutine SoftTwiddledGroups

@ void SoftLastStage(SoftFloat* a, size_t count)
@ The loop of LastStageText (butterfly_groups.h). docs/soft-float.md, "Sum and difference".
@   in    r0 a, r1 count, even and at least 2
@   uses  r1 the second numbers, r12 where they begin, and the first ones end
routine SoftLastStage
    push    {r4-r11, lr}
    add     r12, r0, r1, lsl #3
    mov     r1, r12
.LlastNext:
    ldmia   r0, {r2-r5}
    ldmia   r1, {r6, r7, r10, r11}
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    stmia   r0!, {r2-r5}
    stmia   r1!, {r6, r7, r10, r11}
    cmp     r0, r12
    bne     .LlastNext
    pop     {r4-r11, pc}
endroutine SoftLastStage

routine SoftButterflyFar
    farout  .Lfarr2r6, r2, r3, r6, r7, spare=r7
    farout  .Lfarr4r10, r4, r5, r10, r11, spare=r11
    farout  .Lfarr4r6, r4, r5, r6, r7, spare=r7
    farout  .Lfarr2r10, r2, r3, r10, r11, spare=r11
endroutine SoftButterflyFar
