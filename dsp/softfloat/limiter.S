#include "dsp/softfloat/arm.inc"

@ raise v: a float's bits become its significand at bits 30 to 7.
.macro raise v
    mov     \v, \v, lsl #8
    orr     \v, \v, #0x80000000
    mov     \v, \v, lsr #1
.endm

@ join to, value, shift: a raised significand shifted right, its lowest bit set if anything is lost.
.macro join to, value, shift
    mov     \to, \value, lsr \shift
    cmp     \value, \to, lsl \shift
    orrne   \to, \to, #1
.endm

@ next v, factor, joining, up: NextRaised (limiter.h), in place. The flags are of its last step.
@ Changes r12.
.macro next v, factor, joining, up:vararg
    umull   r12, \v, \factor, \v
    cmp     r12, #0x80000000
    adc     \v, \v, #0
    add     \v, \joining, \v, \up
    movs    r12, \v, lsr #8         @ the last kept bit is the carry
    adc     \v, \v, #63
    bics    \v, \v, #127
.endm

@ steadysample: the next one, unless it exceeds the peak, and the largest; the flags are of the count.
.macro steadysample
    ldr     r7, [r0], r2
    bic     r7, r7, #0x80000000
    cmp     r7, r4
    bgt     .LsteadyEnds
    cmp     r7, r5
    movgt   r5, r7
    subs    r3, r3, #1
.endm

@ size_t SoftSteadyFrames(const float* x, const float* tails, size_t stride, size_t count,
@                         float peak, float* largest)
@ The loop of SteadyFramesText (limiter.h). docs/soft-float.md, "A limiter's gains".
@   in    r0 x, r1 tails or 0, r2 stride, r3 count; stack: peak, largest
@   uses  r4 peak; r5 the largest, r12 its place; r6 count
routine SoftSteadyFrames
    push    {r4-r7, lr}
    ldr     r4, [sp, #20]
    ldr     r12, [sp, #24]
    ldr     r5, [r12]
    mov     r2, r2, lsl #2
    mov     r6, r3
    cmp     r1, #0
    beq     .Lholds
.Lhangs:
    ldr     r7, [r1], r2
    cmp     r7, r4
    blt     .LsteadyEnds
    steadysample
    bne     .Lhangs
    b       .LsteadyEnds
.Lholds:
    steadysample
    bne     .Lholds
.LsteadyEnds:
    str     r5, [r12]
    sub     r0, r6, r3
    pop     {r4-r7, pc}
endroutine SoftSteadyFrames

@ size_t SoftSmoothing(float* gains, size_t stride, size_t count, float smoothed,
@                      float taken)
@ The loop of RunSmoothingText (limiter.h). docs/soft-float.md, "A limiter's gains".
@   in    r0 gains, r1 stride, r2 count, r3 smoothed; stack: taken
@   uses  r3 raised; r4 factor, r5 joining, r6 up; r7 first, r8 the length from there; r9 the
@         exponent's place; r10 count; r11 smoothed as it was
routine SoftSmoothing
    push    {r4-r11, lr}
    ldr     r5, [sp, #36]
    mov     r10, r2
    mov     r1, r1, lsl #2
    mov     r9, r3, lsr #23
    cmp     r9, #32
    subshs  r6, r9, r5, lsr #23
    blo     .LsmoothingEnds
    raise   r5
    join    r7, r5, r6
    mov     r5, r7
    raise   r3
    ldr     r4, .LkeepTwice
    ldr     r7, .LkeepsExponent
    cmp     r3, r7
    rsbhs   r8, r7, #0x80000000
    movhs   r6, #7
    ldrlo   r12, .LleastAndOne
    sublo   r8, r7, r12
    movlo   r7, r12
    movlo   r4, r4, lsl #1
    movlo   r6, #6
    sub     r9, r9, #1
    mov     r9, r9, lsl #23
    mov     r11, r3
    next    r3, r4, r5, lsl r6
    cmp     r3, r11
    bne     .LsmoothingChecks
    cmp     r3, #0x40000000
    beq     .LsmoothingEnds
    add     r12, r9, r3, lsr #7     @ settled: it stays
.LsmoothingFills:
    str     r12, [r0], r1
    subs    r2, r2, #1
    bne     .LsmoothingFills
    b       .LsmoothingEnds
.LsmoothingNext:
    next    r3, r4, r5, lsl r6
.LsmoothingChecks:
    sub     r12, r3, r7
    cmp     r12, r8
    bhs     .LsmoothingEnds
    add     r12, r9, r3, lsr #7
    str     r12, [r0], r1
    subs    r2, r2, #1
    bne     .LsmoothingNext
.LsmoothingEnds:
    sub     r0, r10, r2
    pop     {r4-r11, pc}
.LkeepTwice:
    .word   0xe65fd9 << 1
.LkeepsExponent:
    .word   0x471e7800
.LleastAndOne:
    .word   0x40000080
endroutine SoftSmoothing

@ size_t SoftRecovery(float* gains, size_t stride, size_t count, float gain)
@ The loop of RunRecoveryText (limiter.h). docs/soft-float.md, "A limiter's gains".
@   in    r0 gains, r1 stride, r2 count, r3 gain
@   uses  r4 smoothed; r5 gain, raised; r6 factor, r7 joining; r8 the exponent's place; r9 count
routine SoftRecovery
    push    {r4-r9, lr}
    mov     r9, r2
    mov     r1, r1, lsl #2
    ldr     r6, .LrecoverKeepTwice
.Lfalls:
    ldr     r4, [r0], r1
    cmp     r4, r3
    bhi     .Lrises
.Lcapped:
    mov     r3, r4
    subs    r2, r2, #1
    bne     .Lfalls
.LrecoveryEnds:
    sub     r0, r9, r2
    pop     {r4-r9, pc}
.Lrises:
    mov     r8, r3, lsr #23
    subs    lr, r8, #113
    blo     .LrecoveryEnds
    mov     r5, r3
    raise   r5
    ldr     r12, .LrecoverStep
    join    r7, r12, lr
    sub     r8, r8, #1
    mov     r8, r8, lsl #23
.Lrecovers:
    next    r5, r6, r7, lsl #7
    bmi     .LrecoveryEnds
    add     r12, r8, r5, lsr #7
    cmp     r12, r4
    bhs     .Lcapped
    mov     r3, r12
    str     r3, [r0, -r1]
    subs    r2, r2, #1
    ldrne   r4, [r0], r1
    bne     .Lrecovers
    b       .LrecoveryEnds
.LrecoverKeepTwice:
    .word   0xfff972 << 1
.LrecoverStep:
    .word   0xd1b717 << 7
endroutine SoftRecovery

@ size_t SoftAmplify(float* samples, size_t count, const SampleGain* gain)
@ The loop of AmplifySimpleText (samples.h). docs/soft-float.md, "Samples times a gain".
@   in    r0 samples, r1 count, r2 gain
@   uses  r3 factor, r4 less first, r5 length, r6 exponent; r7 half the factor; r8 count; r2 a sample
routine SoftAmplify
    push    {r4-r9, lr}
    ldmia   r2, {r3-r6}
    rsb     r4, r4, #0
    mov     r7, r3, lsr #1
    mov     r8, r1
.LamplifyNext:
    ldr     r2, [r0], #4
    add     r12, r4, r2, lsl #1
    cmp     r12, r5
    bhs     .LnotSimple
    mov     r12, r2, lsl #8
    orr     r12, r12, #0x80000000
    umull   lr, r9, r12, r3
    cmp     r9, #0x1000000
    umullhs lr, r9, r12, r7
    adc     r2, r6, r2, lsr #23     @ one more if it had 25 bits
    cmp     lr, #0x80000000
    adc     r2, r9, r2, lsl #23
    biceq   r2, r2, #1
.LamplifyStores:
    str     r2, [r0, #-4]
    subs    r1, r1, #1
    bne     .LamplifyNext
.LamplifyEnds:
    sub     r0, r8, r1
    pop     {r4-r9, pc}
.LnotSimple:
    movs    r12, r2, lsl #1
    bne     .LamplifyEnds
    add     r12, r6, #128
    mov     r12, r12, lsr #8
    eor     r2, r2, r12, lsl #31
    b       .LamplifyStores
endroutine SoftAmplify

@ size_t SoftShortProducts(const float* x, const float* gains, int16_t* out, size_t count,
@                          int32_t limit)
@ ShortProducts::Make (samples.h) where it decides by one product; returns how many before another.
@ docs/soft-float.md, "One product for an output".
@   in    r0 x, r1 gains, r2 out, r3 count; stack: limit
@   uses  r4 limit; r5 kUnits; r6 a sample, r7 its gain, r8 down; r9 count; lr units
routine SoftShortProducts
    push    {r4-r9, lr}
    ldr     r4, [sp, #28]
    mov     r5, #256
    add     r5, r5, #5
    mov     r9, r3
.LshortNext:
    ldr     r6, [r0], #4
    ldr     r7, [r1], #4
    mov     r12, r6, lsl #1
    sub     r8, r5, r12, lsr #24
    sub     r8, r8, r7, lsr #23
    mov     r12, r6, lsl #8
    orr     r12, r12, #0x80000000
    mov     r7, r7, lsl #8
    orr     r7, r7, #0x80000000
    umull   r7, lr, r12, r7
    mov     lr, lr, lsr r8          @ of 32 and more nothing is left, below 8 more than any limit
    sub     lr, lr, lr, lsr #15
    add     r12, lr, #2
    tst     r12, #0xfc
    cmpne   r4, lr
    bls     .Lundecided
    mov     lr, lr, lsr #8
    cmp     r6, #0
    rsblt   lr, lr, #0
.LshortStores:
    strh    lr, [r2], #2
    subs    r3, r3, #1
    bne     .LshortNext
.LshortEnds:
    sub     r0, r9, r3
    pop     {r4-r9, pc}
.Lundecided:
    cmp     lr, #0                  @ next to nothing, unless the exponents' sum was too high
    bne     .LshortEnds
    cmp     r8, #0
    cmpgt   r4, #0
    bgt     .LshortStores
    b       .LshortEnds
endroutine SoftShortProducts
