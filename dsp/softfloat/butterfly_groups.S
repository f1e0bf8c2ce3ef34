#include "dsp/softfloat/arm.inc"
#include "dsp/softfloat/offsets.h"

@ The transform's groups of butterflies. docs/soft-float.md, "A butterfly".
@
@ In this file a complex value takes r2 to r5, or r6, r7, r10, r11, in the order of memory. This
@ order is m and e of the real part, then m and e of the imaginary part. r0, r1 and r12 are the
@ addresses of A, B and C and of the results in their places. The stack holds the address of D and
@ the address where D ends.

.equ    W1, TWIDDLES_W1
.equ    W2, TWIDDLES_W2
.equ    W3, TWIDDLES_W3

@ pair am, ae, bm, be: a becomes a + b and b becomes a - b, for a stage's pair. With `swap` the two
@ results change places. With `backward` the difference is b - a. With `alike`, no exponent is lowered.
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
    normroundboth \bm, \be, \ae, \am, \ae, \ae
.endm
.macro difference m, am, backward
    .if \backward
    sub     \m, r9, \am, asr #3     @ b - a
    .else
    rsb     \m, r9, \am, asr #3     @ a - b
    .endif
.endm

@ addresses: r1 = B, r12 = C, r8 = D and r9 = the end of D, where r0 is A and lr the bytes between
@ them.
.macro addresses
    add     r1, r0, lr
    add     r12, r1, lr
    add     r8, r12, lr
    add     r9, r8, lr
.endm

@ firsthalf: x0 in r2 to r5 and x2 in r6, r7, r10, r11. x1 is stored in B's place, and x3 is pushed. r8
@ is the address of D.
.macro firsthalf
    ldmia   r12, {r2-r5}            @ C
    ldmia   r8, {r6, r7, r10, r11}  @ D
    pair    r2, r3, r6, r7          @ x2, x3 = C + D, C - D
    pair    r4, r5, r10, r11
    stmdb   sp!, {r2-r7, r10, r11}
    ldmia   r0, {r2-r5}             @ A
    ldmia   r1, {r6, r7, r10, r11}  @ B
    pair    r2, r3, r6, r7          @ x0, x1 = A + B, A - B
    pair    r4, r5, r10, r11
    stmia   r1, {r6, r7, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11} @ x2
.endm

@ evenpairs: y0 = x0 + x2 is stored; y2 = x0 - x2 is in r6, r7, r10, r11. `meanwhile` is an instruction
@ that runs before y0 is stored.
.macro evenpairs meanwhile
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    \meanwhile
    stmia   r0!, {r2-r5}
.endm

@ oddpairs: y1 = x1 + i x3 and y3 = x1 - i x3 from what firsthalf stored. y3 is in r2 to r5. y1 has
@ its real part in r10, r11 and its imaginary part in r6, r7.
.macro oddpairs
    ldmia   r1, {r2-r5}             @ x1
    ldmia   sp!, {r6, r7, r10, r11} @ x3
    pair    r4, r5, r6, r7, swap=1  @ x1.im, x3.re
    pair    r2, r3, r10, r11        @ x1.re, x3.im
.endm

@ storelast dplace, label, registers: stores y3 in D's place. Unless this was the last butterfly of the
@ group, branches to the label for the next one. On entry r8 is the address of D and r9 where D ends.
@ Afterwards r8 is the address of the next D.
.macro storelast dplace, label, registers:vararg
    stmia   r8!, {\registers}
    str     r8, [sp, #\dplace]
    cmp     r8, r9
    bne     \label
.endm

@ settlefour fail: settle for the four numbers of r2 to r7, r10, r11.
.macro settlefour fail
    cmp     r2, #0
    moveq   r3, #0
    cmp     r4, #0
    moveq   r5, #0
    cmp     r3, #0
    cmpge   r5, #0
    movlt   r0, #0
    blt     \fail
    settle  r6, r7, r10, r11, \fail
.endm

@ void SoftUntwiddledGroup(Complex<SoftFloat>* a, size_t span)
@ The loop of UntwiddledGroupPortable (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span
@   stack [0] D, [4] end of D
routine SoftUntwiddledGroup
    push    {r4-r11, lr}
    sub     sp, sp, #12
    mov     lr, r1, lsl #4
    addresses
    strd    r8, r9, [sp]
.LuntwiddledNext:
    firsthalf
    evenpairs
    stmia   r12!, {r6, r7, r10, r11} @ y2
    oddpairs
    ldrd    r8, r9, [sp]
    strd    r10, r11, [r1], #8      @ y1
    strd    r6, r7, [r1], #8
    storelast 0, .LuntwiddledNext, r2-r5
    add     sp, sp, #12
    pop     {r4-r11, pc}
endroutine SoftUntwiddledGroup

@ beginscaling, doublescaled, roundscaled m, e: the number times the factor in r8, r9. These are the steps
@ of product, which leave lr free for another product after the second one. "Products".
.macro beginscaling m, e
    smull   lr, \m, r8, \m          @ m:lr = factor * m
    add     \e, \e, r9
.endm
.macro doublescaled m
    cmp     lr, #1                  @ carry = lower half is not 0
    adc     \m, \m, \m
.endm
.macro roundscaled m, e
    teq     \m, \m, lsl #2          @ 29 bits: shift m to 30
    movpl   \m, \m, lsl #1
    subpl   \e, \e, #1
    tst     \m, \m, lsr #7          @ carry = bit 6, the last kept bit
    adc     \m, \m, #31
    bic     \m, \m, #63
.endm

@ bool SoftEighthGroup(Complex<SoftFloat>* a, size_t span, int32_t m, int32_t e)
@ The loop of EighthGroupPortable (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2, r3 the factor u = cos(pi / 4)
@   stack [0] u, [8] D, [12] end of D
@   out   r0 false if a product was too small
routine SoftEighthGroup
    push    {r4-r11, lr}
    sub     sp, sp, #20
    mov     lr, r1, lsl #4
    addresses
    strd    r2, r3, [sp]
    strd    r8, r9, [sp, #8]
.LeighthNext:
    firsthalf
    pair    r2, r3, r6, r7          @ y0 = x0 + x2
    pair    r4, r5, r10, r11, backward=1
    stmia   r0!, {r2-r5}
    strd    r10, r11, [r12], #8     @ y2 = i (x0 - x2)
    strd    r6, r7, [r12], #8
    ldmia   r1, {r2-r5}             @ x1
    ldmia   sp!, {r6, r7, r10, r11} @ x3
    pair    r4, r5, r6, r7, swap=1, backward=1 @ x1.im, x3.re
    pair    r2, r3, r10, r11, swap=1           @ x1.re, x3.im
    pair    r2, r3, r6, r7, swap=1, alike=1    @ y1 and y3 before they are scaled
    pair    r4, r5, r10, r11, swap=1, alike=1
    ldrd    r8, r9, [sp]            @ times u, each product begun while the one before is rounded
    beginscaling r2, r3
    doublescaled r2
    beginscaling r4, r5
    roundscaled r2, r3
    doublescaled r4
    beginscaling r6, r7
    roundscaled r4, r5
    doublescaled r6
    beginscaling r10, r11
    roundscaled r6, r7
    doublescaled r10
    roundscaled r10, r11
    orrs    lr, r3, r5
    orrspl  lr, r7, r11
    blmi    .LsettleEighth
    ldrd    r8, r9, [sp, #8]
    stmia   r1!, {r2, r3, r6, r7}   @ y1
    storelast 8, .LeighthNext, r4, r5, r10, r11
    mov     r0, #1
.LeighthEnd:
    add     sp, sp, #20
    pop     {r4-r11, pc}
.LsettleEighth:
    settlefour .LeighthEnd
endroutine SoftEighthGroup

@ bool SoftTwiddledButterflies(Complex<SoftFloat>* a, const SoftTwiddles* w, size_t groups)
@ The loop of TwiddledGroupsPortable (butterfly_groups.h) for span 1. docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 w, r2 groups, at least 1
@   uses  r0 address of C, r12 end of the butterflies, plus 32; r1 the factor loaded last
@   stack as large as in SoftTwiddledGroups, because both share their ends; unused
@   out   r0 false if a number was too small for a product
routine SoftTwiddledButterflies
    push    {r4-r11, lr}
    sub     sp, sp, #44
    add     r0, r0, #32             @ the value size is 16: A, B, C, D at -32, -16, 0, 16
    add     r12, r0, r2, lsl #6
    sub     r1, r1, #8
.LbutterflyNext:
    ldmia   r0, {r2-r7, r10, r11}   @ C, D
    orrs    r8, r6, r10
    beq     .LbutterflyPadded
    pair    r2, r3, r6, r7          @ x2, x3 = C + D, C - D
    pair    r4, r5, r10, r11
.LbutterflySecond:
    stmdb   sp!, {r2-r7, r10, r11}
    ldmdb   r0, {r2-r7, r10, r11}   @ A, B
    pair    r2, r3, r6, r7          @ x0, x1 = A + B, A - B
    pair    r4, r5, r10, r11
    stmdb   r0, {r6, r7, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11} @ x2
    pair    r2, r3, r6, r7          @ y0, y2 = x0 + x2, x0 - x2
    pair    r4, r5, r10, r11
    ldrd    r8, r9, [r1, #W2 + 8]!
    strd    r2, r3, [r0, #-32]
    strd    r4, r5, [r0, #-24]
    turnproducts .LsettleEven       @ y2 *= w2, which r1 points to
    turned  r2, r3, r4, r5
    stmia   r0, {r2-r5}
    ldmdb   r0, {r2-r5}             @ x1
    ldmia   sp!, {r6, r7, r10, r11} @ x3
    pair    r4, r5, r6, r7, swap=1  @ y1, y3 = x1 + i x3, x1 - i x3
    pair    r2, r3, r10, r11
    ldrd    r8, r9, [r1, #W1 - W2]
    orrs    lr, r3, r5
    orrspl  lr, r7, r11
    blmi    .LsettleOdd
    stmdb   sp!, {r2-r5}
    turnproducts                    @ y1 *= w1
    turned  r10, r11, r2, r3, back=1
    ldrd    r8, r9, [r1, #W3 - W2]!
    stmdb   r0, {r2, r3, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11}
    turnproducts                    @ y3 *= w3
    turned  r2, r3, r4, r5
    add     r0, r0, #16
    stmia   r0!, {r2-r5}
    add     r0, r0, #32             @ C of the next butterfly
    cmp     r0, r12
    bne     .LbutterflyNext
    b       .LtwiddledSettled
@ D is 0 where the block's padding begins. Then x2 and x3 both equal C, with lowered exponents.
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
@ The loops of TwiddledGroupsPortable (butterfly_groups.h). docs/soft-float.md, "A butterfly".
@   in    r0 a, r1 span, r2 w, r3 groups, at least 1
@   stack [0] the group's factors w1, w2, w3; [24] D, [28] end of D; [32] next w, [36] end of w;
@         [40] 16 * span
@   out   r0 false if a number was too small for a product
routine SoftTwiddledGroups
    push    {r4-r11, lr}
    sub     sp, sp, #44
    mov     r1, r1, lsl #4
    str     r1, [sp, #40]
    add     r3, r3, r3, lsl #1      @ r3 = w + groups, 24 bytes each
    add     r3, r2, r3, lsl #3
    str     r3, [sp, #36]
    mov     r8, r0
.LtwiddledGroup:
    ldmia   r2!, {r0, r1, r3-r6}    @ copy the group's factors to the stack
    stmia   sp, {r0, r1, r3-r6}
    str     r2, [sp, #32]
    ldr     lr, [sp, #40]
    mov     r0, r8
    addresses
    strd    r8, r9, [sp, #24]
.LtwiddledNext:
    firsthalf
    evenpairs "ldrd r8, r9, [sp, #16 + W2]"
    turnproducts .LsettleEven       @ y2 *= w2; x3 is pushed
    turned  r2, r3, r4, r5
    stmia   r12!, {r2-r5}
    oddpairs
    ldrd    r8, r9, [sp, #W1]
    orrs    lr, r3, r5
    orrspl  lr, r7, r11
    blmi    .LsettleOdd
    stmdb   sp!, {r2-r5}
    turnproducts                    @ y1 *= w1; y3 is pushed
    turned  r10, r11, r2, r3, back=1
    ldrd    r8, r9, [sp, #16 + W3]
    stmia   r1!, {r2, r3, r10, r11}
    ldmia   sp!, {r6, r7, r10, r11}
    turnproducts                    @ y3 *= w3
    turned  r2, r3, r4, r5, unclean=1
    ldrd    r8, r9, [sp, #24]
    bic     r2, r2, #63
    bic     r4, r4, #63
    storelast 24, .LtwiddledNext, r2-r5
    ldrd    r2, r3, [sp, #32]
    cmp     r2, r3
    bne     .LtwiddledGroup         @ r8: the next A is where D ends
.LtwiddledSettled:
    mov     r0, #1
.LtwiddledEnd:
    add     sp, sp, #44
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
@ The loop of LastStagePortable (butterfly_groups.h). docs/soft-float.md, "Sum and difference".
@   in    r0 a, r1 count, even and at least 2
@   uses  r1 address of the second numbers; r12 where they begin and the first numbers end
routine SoftLastStage
    push    {r4-r11, lr}
    add     r12, r0, r1, lsl #3
    mov     r1, r12
.LlastNext:
    ldmia   r0, {r2-r5}             @ two numbers of each half
    ldmia   r1, {r6, r7, r10, r11}
    pair    r2, r3, r6, r7
    pair    r4, r5, r10, r11
    stmia   r0!, {r2-r5}            @ sums
    stmia   r1!, {r6, r7, r10, r11} @ differences
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
