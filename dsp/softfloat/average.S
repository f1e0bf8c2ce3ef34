#include "dsp/softfloat/arm.inc"

@ In this file r4, r5 are the sum: r4 in units of 2^s, s being r5 less `raised`. r6 is 2^(32 - s) and
@ r10 the same, negative; r11 is what r4 asr #23 is in the binade, either 1 or -2. Of a sum below 2^25
@ s is 0, r6 is 1, and r11 is out of reach.

@ joinsum at, factor: the sample at the pointer `at` joins the sum, or leaves it, the factor being
@ r10. Changes r8 and r9; in SoftNewBinade also r2 and r3. "Running sums".
.macro joinsum at, factor
    ldr     r8, [\at], #4
    mov     r9, #0
    smlal   r9, r4, r8, \factor
    teq     r11, r4, asr #23
    blne    SoftNewBinade
    movs    r8, r4, lsr #1          @ the last bit is the carry
    sbcs    r9, r9, #0x80000000
    adc     r4, r4, #0
.endm

.macro averageloop name, first
@ void name(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
@           RunningAverage* state, size_t frames)
@ The loop of RunAverageText (average.h). docs/soft-float.md, "Running sums".
@   in    r0 rows, r1 entering, r2 leaving, r3 state; stack: frames, at least 1
@   uses  r2, r3 the narrower sum, the gain, the output; r8, r9 the band; r7 where rows end;
@         r12 leaving
@   stack state, gain, raised
routine \name
    push    {r4-r11, lr}
    ldr     r7, [sp, #36]
    mov     r12, r2
    add     r7, r0, r7, lsl #4
    ldmia   r3, {r4, r5, r8, r9, r10}
    sub     r2, r5, r10
    .ifeq \first
    add     r9, r9, #6             @ of addband
    .endif
    stmdb   sp!, {r3, r8-r10}
    rsb     r2, r2, #32
    mov     r6, #1
    cmp     r2, #30
    movle   r6, r6, lsl r2
    rsb     r10, r6, #0
    mov     r11, r4, asr #31
    eor     r11, r11, #1
    movgt   r11, #8
.L\name\()Next:
    joinsum r1, r6
    .if \first
    ldr     r2, [r12, #4]
    eor     r3, r2, r2, lsl #1
    clz     r3, r3
    mov     r2, r2, lsl r3
    mov     r2, r2, asr #7
    rsb     r3, r3, #5
    .else
    ldrd    r2, r3, [r0]
    .endif
    subs    r8, r5, r3
    rsbspl  r9, r8, #5 - \first
    movpl   r9, r4, lsl r8
    blmi    .LfarSum
    rsb     r8, r9, r2, lsl #3
    normround r8, r9, r3
    ldrd    r2, r3, [sp, #4]
    product r8, r9, r8, r9, fm=r2, fe=r3, unclean=1-\first
    .ifeq \first
    ldrd    r2, r3, [r0, #8]
    addband r8, r9, r2, r3, .LfarOutput
    normround r8, r9, r9
    .endif
    stmia   r0!, {r4, r5, r8, r9}
    joinsum r12, r10
    cmp     r0, r7
    bne     .L\name\()Next
    ldr     r3, [sp]
    strd    r4, r5, [r3]
    add     sp, sp, #16
    pop     {r4-r11, pc}
endroutine \name
.endm

    averageloop SoftFirstAverage, 1
    averageloop SoftAverage, 0

@ A sum that leaves its binade, r4 in units of 2^s and r9 below, which joinsum then rounds; or any
@ below 2^25, which is rounded here. The stack is the loops'. "Running sums".
routine SoftNewBinade
    cmp     r6, #1
    bne     .LlargeBefore
    sub     r4, r4, r9, asr #31     @ the sum before; r9 is what joins
    add     r4, r4, r9
.Lsmall:
    eor     r9, r4, r4, lsl #1
    movs    r9, r9, lsr #25
    addeq   pc, lr, #12             @ past the rounding
    cmp     r9, #1
    bne     .LlargeNow
    movs    r4, r4, asr #1          @ half of the last bit is the carry
    andcs   r9, r4, #1
    addcs   r4, r4, r9
    mov     r4, r4, lsl #1
    add     pc, lr, #12
.LlargeNow:
    eor     r9, r4, r4, lsl #1
    clz     r9, r9
    rsb     r2, r9, #7              @ s
    add     r3, r9, #25             @ 32 - s
    add     r5, r5, r2
    mov     r6, #1
    mov     r6, r6, lsl r3
    mov     r9, r4, lsl r3
    mov     r4, r4, asr r2
    b       .LinBinade
.LlargeBefore:
    eor     r2, r4, r4, lsl #1
    clz     r2, r2
    subs    r2, r2, #7              @ binades down
    ble     .Lup
    movs    r6, r6, lsl r2
    ble     .LsmallNow              @ 2^31 or more
    sub     r5, r5, r2
    rsb     r3, r2, #32
    mov     r4, r4, lsl r2
    orr     r4, r4, r9, lsr r3
    mov     r9, r9, lsl r2
.LinBinade:
    rsb     r10, r6, #0
    mov     r11, r4, asr #23
    bx      lr
.Lup:
    add     r3, r2, #32
    rsb     r2, r2, #0
    mov     r9, r9, lsr r2          @ a multiple of r6, so nothing is lost
    orr     r9, r9, r4, lsl r3
    mov     r4, r4, asr r2
    mov     r6, r6, lsr r2
    add     r5, r5, r2
    rsb     r10, r6, #0
    mov     r11, r4, asr #23
    bx      lr
.LsmallNow:
    ldr     r3, [sp, #12]
    sub     r2, r5, r3              @ s
    mov     r5, r3
    rsb     r3, r2, #32
    mov     r4, r4, lsl r2
    orr     r4, r4, r9, lsr r3
    mov     r6, #1
    mvn     r10, #0
    mov     r11, #8
    b       .Lsmall
endroutine SoftNewBinade

@ The difference is r2 lsl #3 less r9, or stands in r8 past the instruction that forms it.
routine SoftAverageFar
.LfarSum:
    cmp     r8, #0
    bgt     .LwiderLeads
    rsb     r8, r8, #0
    mov     r9, r4, asr r8
    cmp     r4, r9, lsl r8
    orrne   r9, r9, #1
    bx      lr
.LwiderLeads:
    sub     r8, r8, #4
    add     r3, r3, r8
    mov     r9, r2, lsl #3
    mov     r2, r9, asr r8
    cmp     r9, r2, lsl r8
    orrne   r2, r2, #1
    sub     r8, r2, r4, lsl #4
    add     pc, lr, #4
    farband .LfarOutput, r8, r9, r2, r3
endroutine SoftAverageFar
