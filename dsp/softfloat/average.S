#include "dsp/softfloat/arm.inc"

@ addtosum: the sum in r4, r5 and the sample in r6, r7 in the same units, as align: r4 asr #3, r9, r5.
@ The sum nearly always leads, so its way is the straight one; a sum of 0 has an exponent of 0, below
@ that of any sample. Changes r6 and r8. "Running sums".
.macro addtosum
    add     r5, r5, #3
    subs    r8, r5, r7
    blle    .LsampleLeads
    movgt   r9, r6, asr r8
    cmp     r6, r9, lsl r8
    orrne   r9, r9, #1
.endm
.macro roundsum
    normround r4, r5, r5
    cmp     r4, #0
    moveq   r5, #0
.endm

.macro averageloop name, first
@ void name(AverageRow* rows, const SoftFloat* entering, const SoftFloat* leaving,
@           RunningAverage* state, size_t frames)
@ The loop of RunAverageText (average.h). docs/soft-float.md, "Running sums".
@   in    r0 rows, r1 entering, r2 leaving, r3 state; stack: frames, at least 1
@   uses  r4, r5 the sum; r12 leaving
@   stack gain, scale, end of the rows, state
routine \name
    push    {r4-r11, lr}
    sub     sp, sp, #28
    ldr     r4, [sp, #64]
    mov     r12, r2
    add     r4, r0, r4, lsl #4
    str     r4, [sp, #12]
    str     r3, [sp, #16]
    ldmia   r3, {r4-r8}
    stmia   sp, {r6-r8}
    cmp     r4, #0
    moveq   r5, #0
.L\name\()Next:
    ldrd    r6, r7, [r1], #8
    addtosum
    add     r4, r9, r4, asr #3
    roundsum
    ldr     lr, [sp, #8]
    mov     r10, r4
    sub     r11, r5, lr
    ldrd    r2, r3, [r0]
    strd    r10, r11, [r0]          @ the average
    align   r2, r3, r10, r11, .LfarBand
    rsb     r2, r9, r2, asr #3
    normround r2, r3, r3
    ldrd    r8, r9, [sp]
    product r2, r3, r2, r3
    .if \first == 0
    ldrd    r10, r11, [r0, #8]
    align   r2, r3, r10, r11, .LfarBand
    add     r2, r9, r2, asr #3
    normround r2, r3, r3
    .endif
    strd    r2, r3, [r0, #8]        @ the output
    ldrd    r6, r7, [r12], #8
    addtosum
    rsb     r4, r9, r4, asr #3
    roundsum
    ldr     lr, [sp, #12]
    add     r0, r0, #16
    cmp     r0, lr
    bne     .L\name\()Next
    ldr     r3, [sp, #16]
    strd    r4, r5, [r3]
    add     sp, sp, #28
    pop     {r4-r11, pc}
endroutine \name
.endm

    averageloop SoftFirstAverage, 1
    averageloop SoftAverage, 0

@ A sample that leads, or is 0: then nothing is left for addtosum to do.
routine SoftAverageFar
.LsampleLeads:
    cmp     r6, #0
    moveq   r9, #0
    bxeq    lr
    rsb     r8, r8, #6
    mov     r9, r4, asr r8
    cmp     r4, r9, lsl r8
    orrne   r9, r9, #1
    mov     r4, r9, lsl #3
    mov     r9, r6, asr #3
    add     r5, r7, #3
    mov     r6, r9
    movs    r8, #0
    bx      lr
    farout  .LfarBand, r2, r3, r10, r11
endroutine SoftAverageFar
