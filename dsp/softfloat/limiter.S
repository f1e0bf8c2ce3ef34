#include "dsp/softfloat/arm.inc"
#include "dsp/softfloat/offsets.h"

@ The output limiter's recurrences, and the products of samples with gains.

@ raise v: replaces a float's bits by its significand at bits 30 to 7.
.macro raise v
    mov     \v, \v, lsl #8
    orr     \v, \v, #0x80000000
    mov     \v, \v, lsr #1
.endm

@ stickyshift to, value, shift: to = value >> shift, with the lowest bit set if anything was lost.
.macro stickyshift to, value, shift
    mov     \to, \value, lsr \shift
    cmp     \value, \to, lsl \shift
    orrne   \to, \to, #1
.endm

@ next v, factor, added, up: v = NextRaised(v, factor, up, added), see limiter.h. The flags are those
@ of the result. Changes r12.
.macro next v, factor, added, up:vararg
    umull   r12, \v, \factor, \v    @ v = factor * v / 2^32, rounded to nearest
    cmp     r12, #0x80000000
    adc     \v, \v, #0
    add     \v, \added, \v, \up     @ v = (v << up) + added
    movs    r12, \v, lsr #8         @ round to 24 bits; carry = the last kept bit
    adc     \v, \v, #63
    bics    \v, \v, #127
.endm

@ steadysample: reads the next sample. Leaves the loop if it exceeds the peak; otherwise updates the
@ largest magnitude and counts down. The flags are those of the count.
.macro steadysample
    ldr     r7, [r0], r2
    bic     r7, r7, #0x80000000
    cmp     r7, r4
    bgt     .LsteadyEnds
    cmp     r7, r5
    movgt   r5, r7
    subs    r3, r3, #1
.endm

@ size_t SoftSteadyFrames(const float* x, const float* maxima, size_t stride, size_t count,
@                         float peak, float* largest)
@ The loop of SteadyFramesPortable (limiter.h). docs/soft-float.md, "A limiter's gains".
@   in    r0 x, r1 maxima or 0, r2 stride, r3 count; stack: peak, largest
@   uses  r4 peak; r5 the largest magnitude, r12 its address; r6 count
routine SoftSteadyFrames
    push    {r4-r7, lr}
    ldr     r4, [sp, #20]
    ldr     r12, [sp, #24]
    ldr     r5, [r12]
    mov     r2, r2, lsl #2
    mov     r6, r3
    cmp     r1, #0
    beq     .LwithoutTails
.LwithTails:
    ldr     r7, [r1], r2            @ ends if the maximum is below the peak
    cmp     r7, r4
    blt     .LsteadyEnds
    steadysample
    bne     .LwithTails
    b       .LsteadyEnds
.LwithoutTails:
    steadysample
    bne     .LwithoutTails
.LsteadyEnds:
    str     r5, [r12]
    sub     r0, r6, r3
    pop     {r4-r7, pc}
endroutine SoftSteadyFrames

@ size_t SoftSmoothing(float* gains, size_t stride, size_t count, float smoothed,
@                      float taken)
@ The loop of RunSmoothingPortable (limiter.h). docs/soft-float.md, "A limiter's gains".
@   in    r0 gains, r1 stride, r2 count, r3 smoothed; stack: taken
@   uses  r3 the raised significand; r4 factor, r5 what is added, r6 up; r7 first, r8 beyond - first;
@         r9 (exponent - 1) << 23; r10 count; r11 the significand before the first step
routine SoftSmoothing
    push    {r4-r11, lr}
    ldr     r5, [sp, #36]
    mov     r10, r2
    mov     r1, r1, lsl #2
    mov     r9, r3, lsr #23         @ ends if the exponent is below 32 or taken's is larger
    cmp     r9, #32
    subshs  r6, r9, r5, lsr #23
    blo     .LsmoothingEnds
    raise   r5                      @ r5 = taken in units of 2^-7 of smoothed's last bit
    stickyshift r7, r5, r6
    mov     r5, r7
    raise   r3
    ldr     r4, .LkeepTwice         @ if the product keeps the exponent:
    ldr     r7, .LkeepsExponent     @ factor, up = 7, first = kKeepsExponent, beyond = 2^31
    cmp     r3, r7
    rsbhs   r8, r7, #0x80000000
    movhs   r6, #7
    ldrlo   r12, .LleastAndOne      @ otherwise:
    sublo   r8, r7, r12             @ 2 factor, up = 6, first = 2^30 + 128, beyond = kKeepsExponent
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
    add     r12, r9, r3, lsr #7     @ the target is reached: store it for all frames
.LsmoothingFills:
    str     r12, [r0], r1
    subs    r2, r2, #1
    bne     .LsmoothingFills
    b       .LsmoothingEnds
.LsmoothingNext:
    next    r3, r4, r5, lsl r6
.LsmoothingChecks:
    sub     r12, r3, r7             @ ends unless first <= r3 < beyond
    cmp     r12, r8
    bhs     .LsmoothingEnds
    add     r12, r9, r3, lsr #7     @ pack and store
    str     r12, [r0], r1
    subs    r2, r2, #1
    bne     .LsmoothingNext
.LsmoothingEnds:
    sub     r0, r10, r2
    pop     {r4-r11, pc}
.LkeepTwice:
    .word   LIMITER_KEEP << 1
.LkeepsExponent:
    .word   LIMITER_KEEPS_FROM
.LleastAndOne:
    .word   0x40000080              @ kRaisedOne + 128
endroutine SoftSmoothing

@ size_t SoftRecovery(float* gains, size_t stride, size_t count, float gain)
@ The loop of RunRecoveryPortable (limiter.h). docs/soft-float.md, "A limiter's gains".
@   in    r0 gains, r1 stride, r2 count, r3 gain
@   uses  r4 the smoothed target; r5 the gain's raised significand; r6 factor, r7 what is added;
@         r8 (exponent - 1) << 23; r9 count
routine SoftRecovery
    push    {r4-r9, lr}
    mov     r9, r2
    mov     r1, r1, lsl #2
    ldr     r6, .LrecoverKeepTwice
.Lfalls:
    ldr     r4, [r0], r1            @ a target that isn't above the gain becomes the gain
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
    mov     r8, r3, lsr #23         @ ends if the exponent is below that of the added constant
    subs    lr, r8, #LIMITER_RECOVER_STEP_EXPONENT
    blo     .LrecoveryEnds
    mov     r5, r3
    raise   r5
    ldr     r12, .LrecoverStep      @ r7 = the constant in units of 2^-7 of the gain's last bit
    stickyshift r7, r12, lr
    sub     r8, r8, #1
    mov     r8, r8, lsl #23
.Lrecovers:
    next    r5, r6, r7, lsl #7
    bmi     .LrecoveryEnds          @ the exponent would change
    add     r12, r8, r5, lsr #7
    cmp     r12, r4
    bhs     .Lcapped                @ the target is reached
    mov     r3, r12
    str     r3, [r0, -r1]
    subs    r2, r2, #1
    ldrne   r4, [r0], r1
    bne     .Lrecovers
    b       .LrecoveryEnds
.LrecoverKeepTwice:
    .word   LIMITER_RECOVER_KEEP << 1
.LrecoverStep:
    .word   LIMITER_RECOVER_STEP << 7   @ raised significand
endroutine SoftRecovery

@ size_t SoftAmplify(float* samples, size_t count, const SampleGain* gain)
@ The loop of AmplifySimplePortable (samples.h). docs/soft-float.md, "Samples times a gain".
@   in    r0 samples, r1 count, r2 gain
@   uses  r2 a sample, r9 its product; r3 factor, r4 -first, r5 length, r6 exponent; r7 factor / 2; r8 count
routine SoftAmplify
    push    {r4-r9, lr}
    ldmia   r2, {r3-r6}
    rsb     r4, r4, #0
    mov     r7, r3, lsr #1
    mov     r8, r1
    ldr     r2, [r0]
.LamplifyNext:
    add     r12, r4, r2, lsl #1     @ simple if 2 * bits - first < length
    cmp     r12, r5
    bhs     .LnotSimple
    mov     r12, r2, lsl #8         @ r12 = significand at bits 31 to 8
    orr     r12, r12, #0x80000000
    umull   lr, r9, r12, r3         @ r9:lr = significand * factor
    cmp     r9, #0x1000000          @ if it has 25 bits, take factor / 2; carry = 1
    umullhs lr, r9, r12, r7
    adc     r2, r6, r2, lsr #23     @ sign and field += exponent + carry
    cmp     lr, #0x80000000         @ round up from one half on
    adc     r9, r9, r2, lsl #23
    biceq   r9, r9, #1              @ a tie goes to even
.LamplifyStores:
    subs    r1, r1, #1
    ldrne   r2, [r0, #4]            @ the next sample
    str     r9, [r0], #4
    bne     .LamplifyNext
.LamplifyEnds:
    sub     r0, r8, r1
    pop     {r4-r9, pc}
.LnotSimple:
    movs    r12, r2, lsl #1         @ a zero takes the sign of the product
    bne     .LamplifyEnds
    add     r12, r6, #128
    mov     r12, r12, lsr #8
    eor     r9, r2, r12, lsl #31
    b       .LamplifyStores
endroutine SoftAmplify

@ size_t SoftShortProducts(const float* x, const float* gains, int16_t* out, size_t count,
@                          int32_t limit)
@ The loop of ShortProducts::MakeRun (samples.h) as long as one product of integers decides the
@ output. Returns how many outputs it made. docs/soft-float.md, "One product for an output".
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
    mov     r12, r6, lsl #8         @ lr = upper half of the significands' product
    orr     r12, r12, #0x80000000
    mov     lr, r7, lsl #8
    orr     lr, lr, #0x80000000
    umull   r8, lr, r12, lr
    mov     r12, r6, lsl #1         @ r8 = kUnits - both exponent fields
    sub     r8, r5, r12, lsr #24
    sub     r8, r8, r7, lsr #23
    mov     lr, lr, lsr r8          @ 32 and more leave nothing; below 8, more than any limit
    sub     lr, lr, lr, lsr #15     @ lr = units of 2^-8 of an output
    add     r12, lr, #2             @ undecided within 2 of a whole number, or from limit on
    tst     r12, #0xfc
    cmpne   r4, lr
    bls     .Lundecided
    mov     lr, lr, lsr #8
    cmp     r6, #0                  @ the sample's sign
    rsblt   lr, lr, #0
.LshortStores:
    strh    lr, [r2], #2
    subs    r3, r3, #1
    bne     .LshortNext
.LshortEnds:
    sub     r0, r9, r3
    pop     {r4-r9, pc}
.Lundecided:
    cmp     lr, #0                  @ 0 units are an output of 0, unless the field sum wrapped
    bne     .LshortEnds
    cmp     r8, #0
    cmpgt   r4, #0
    bgt     .LshortStores
    b       .LshortEnds
endroutine SoftShortProducts
