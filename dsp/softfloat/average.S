#include "dsp/softfloat/arm.inc"

@ joinsum op: r4, r5, the sum, becomes what `op` makes of it and the sample in r6: add, or rsb for one
@ that leaves. Changes r8 and r9. "Running sums".
.macro joinsum op
    adds    r8, r5, #3
    blle    SoftSmallSum
    mov     r9, r6, asr r8
    cmp     r6, r9, lsl r8
    orrne   r9, r9, #1
    \op     r4, r9, r4, asr #3
    normround r4, r5, r8
.endm

.macro averageloop name, first
@ void name(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
@           RunningAverage* state, size_t frames)
@ The loop of RunAverageText (average.h). docs/soft-float.md, "Running sums".
@   in    r0 rows, r1 entering, r2 leaving, r3 state; stack: frames, at least 1
@   uses  r4, r5 the sum; r0 the row's output; r7 its end; r12 leaving
@   stack gain, state
routine \name
    push    {r4-r11, lr}
    sub     sp, sp, #12
    ldr     r4, [sp, #48]
    mov     r12, r2
    add     r0, r0, #8
    add     r7, r0, r4, lsl #4
    str     r3, [sp, #8]
    ldmia   r3, {r4, r5, r8, r9}
    stmia   sp, {r8, r9}
.L\name\()Next:
    ldr     r6, [r1], #4
    joinsum add
    ldrd    r2, r3, [r0, #-8]
    strd    r4, r5, [r0, #-8]
    add     r3, r3, #4              @ align, but twice the narrower sum
    subs    r8, r3, r5
    rsbsgt  r9, r8, #7
    asrgt   r9, r4, r8
    blle    .LfarSum
    rsb     r2, r9, r2, asr #3
    normround r2, r3, r3
    ldrd    r8, r9, [sp]
    product r2, r3, r2, r3
    .if \first == 0
    ldrd    r10, r11, [r0]
    align   r2, r3, r10, r11, .LfarOutput
    add     r2, r9, r2, asr #3
    normround r2, r3, r3
    .endif
    strd    r2, r3, [r0], #16
    ldr     r6, [r12], #4
    joinsum rsb
    cmp     r0, r7
    bne     .L\name\()Next
    ldr     r3, [sp, #8]
    strd    r4, r5, [r3]
    add     sp, sp, #12
    pop     {r4-r11, pc}
endroutine \name
.endm

    averageloop SoftFirstAverage, 1
    averageloop SoftAverage, 0

@ joinsum's sum of no more than 2^27: r4 asr #3 becomes whole units, or halves of twice as many.
routine SoftSmallSum
    rsb     r8, r8, #0
    mov     r4, r4, asr r8
    add     r8, r6, #0x20000000
    cmp     r8, #0x40000000
    mov     r8, #0
    bxlo    lr
    tst     r4, #8
    mov     r4, r4, asr #1
    orrne   r4, r4, #8
    mov     r8, #1
    bx      lr
endroutine SoftSmallSum

routine SoftAverageFar
    farout  .LfarSum, r2, r3, r4, r5
    farout  .LfarOutput, r2, r3, r10, r11
endroutine SoftAverageFar
