#include "dsp/softfloat/arm.inc"

@ One running average of the equalizer. docs/soft-float.md, "Running sums".
@
@ In this file the sum is r4 * 2^s units of a sample, and r5 is s + `raised`.
@   r6   2^(32 - s), the factor of a joining sample; 1 for a sum below 2^25 units, whose s is 0
@   r10  -r6, the factor of a leaving sample
@   r11  the value that r4 >> 23 has while the sum stays in its binade: 1 or -2; 8, which it never
@        has, for a sum below 2^25 units

@ A sample joins the sum in two parts with other work between them, because the product is late.
@ startjoin factor: begins to add factor * the sample in r8. The factor is r6 or r10. Then r4:r9 is the
@ sum, not rounded.
.macro startjoin factor
    mov     r9, #0
    smlal   r9, r4, r8, \factor     @ r4:r9 += x * 2^(32 - s)
.endm
@ endjoin meanwhile: rounds the sum. Changes r8 and r9; SoftNewBinade may change r10. `meanwhile` is an
@ instruction that runs before the rounding.
.macro endjoin meanwhile
    teq     r11, r4, asr #23
    blne    SoftNewBinade           @ the sum left its binade, or is below 2^25
    \meanwhile
    movs    r8, r4, lsr #1          @ carry = last bit of r4
    sbcs    r9, r9, #0x80000000     @ no borrow if the lower word rounds up, ties to even
    adc     r4, r4, #0
.endm

@ shiftjoining factor: startjoin, interleaved with the first part of normround r2, r3, r3. roundoff is the
@ second part. docs/soft-float.md, "Normalise and round".
.macro shiftjoining factor
    eor     lr, r2, r2, lsl #2
    mov     r9, #0
    clz     lr, lr
    smlal   r9, r4, r8, \factor     @ r4:r9 += x * 2^(32 - s)
    mov     r2, r2, lsl lr
    sub     r3, r3, lr
.endm
.macro roundoff
    movs    lr, r2, lsr #7          @ r2 += 31 + its last kept bit
    adc     r2, r2, #31
    bic     r2, r2, #63
.endm

@ averagestep first, far: one frame, whose entering sample has begun to join. At the end the next one
@ has. `first` is 1 for the narrowest average; `far` is addband's. Changes r2, r3, r8 and r9.
.macro averagestep first, far
    .if \first
    endjoin "ldr r2, [r12, #4]"     @ sum += *entering
    eor     r3, r2, r2, lsl #1      @ r2, r3 = leaving[1] as a sum of 24 bits
    clz     r3, r3
    mov     r2, r2, lsl r3
    mov     r2, r2, asr #7
    rsb     r3, r3, #5
    .else
    endjoin "ldrd r2, r3, [r0]"     @ the same; r2, r3 = rows->sum, the narrower one
    .endif
    subs    r8, r5, r3              @ r9 = sum << (difference of the exponents + 2)
    rsbspl  r9, r8, #5 - \first
    movpl   r9, r4, lsl r8
    blmi    .LfarSum
.Lsubtract\@:
    rsb     r2, r9, r2, lsl #3      @ r2, r3 = 2 * narrower sum - sum
.Lsubtracted\@:
    .if     .Lsubtracted\@ - .Lsubtract\@ != SUBTRACTION_BYTES
    .error  "LfarSum returns past a subtraction of another length"
    .endif
    ldr     r8, [r12], #4           @ *leaving++
    strd    r4, r5, [r0], #8        @ rows->sum = sum
    shiftjoining r10
    endjoin                         @ sum -= *leaving
    ldrd    r8, r9, [sp, #4]        @ r2, r3 *= gain: the band
    roundoff
    .if \first
    product r2, r3, r2, r3, meanwhile="ldr r8, [r1], #4" @ *++entering
    startjoin r6
    .else
    product r2, r3, r2, r3, unclean=1, meanwhile="ldrd r8, r9, [r0]"
    addband r2, r3, r8, r9, \far    @ r2, r3 = band + rows->output
    ldr     r8, [r1], #4            @ *++entering
    shiftjoining r6
    roundoff
    .endif
    strd    r2, r3, [r0], #8        @ rows++->output = r2, r3
.endm
.equ    SUBTRACTION_BYTES, 4

.macro averageloop name, first
@ void name(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
@           RunningAverage* state, size_t frames)
@ The loop of RunAveragePortable (average.h). docs/soft-float.md, "Running sums".
@   in    r0 rows, r1 entering, r2 leaving, r3 state; stack: frames, at least 1
@         Also reads entering[frames].
@   uses  r2, r3 the narrower sum, then the band; r8, r9 a sample, the gain, the output;
@         r7 end of rows; r12 leaving
@   stack [0] state, [4] gain, [12] raised
routine \name
    push    {r4-r11, lr}
    ldr     r7, [sp, #36]           @ r7 = rows + frames
    mov     r12, r2
    add     r7, r0, r7, lsl #4
    ldmia   r3, {r4, r5, r8, r9, r10} @ sum, gain, raised
    sub     r2, r5, r10             @ r2 = s
    .ifeq \first
    add     r9, r9, #6              @ addband expects the band's exponent raised by 6
    .endif
    stmdb   sp!, {r3, r8-r10}
    rsb     r2, r2, #32             @ r6 = s > 1 ? 2^(32 - s) : 1, r10 = -r6
    mov     r6, #1
    cmp     r2, #30
    movle   r6, r6, lsl r2
    rsb     r10, r6, #0
    mov     r11, r4, asr #31        @ r11 = 1 or -2 by the sign; 8 for a sum below 2^25
    eor     r11, r11, #1
    movgt   r11, #8
    ldr     r8, [r1], #4            @ *entering
    startjoin r6
    .ifeq \first
    sub     r2, r7, r0              @ two frames in each turn of the loop, an odd one first
    tst     r2, #16
    bne     .LlastOfTwo
.L\name\()Next:
    averagestep \first, .LfarFirst
.LlastOfTwo:
    averagestep \first, .LfarSecond
    .else
.L\name\()Next:
    averagestep \first
    .endif
    cmp     r0, r7
    bne     .L\name\()Next
    ldr     r3, [sp]                @ state->sum = sum, without entering[frames]
    smlal   r9, r4, r8, r10
    strd    r4, r5, [r3]
    add     sp, sp, #16
    pop     {r4-r11, pc}
endroutine \name
.endm

    averageloop SoftFirstAverage, 1
    averageloop SoftAverage, 0

@ Called by endjoin with the sum's upper word in r4 and its lower word in r9, if the sum has left its
@ binade or is below 2^25 units. Finds the new s and what follows from it. If the sum was rounded here,
@ the lower word becomes 0. "Running sums".
routine SoftNewBinade
    cmp     r6, #1
    bne     .LlargeBefore
    sub     r4, r4, r9, asr #31     @ s was 0: r9 is the sample itself; r4 = sum + sample
    add     r4, r4, r9
.Lsmall:
    add     r8, r4, #0x1000000      @ from -2^24 to 2^24 - 1 the sum is exact
    movs    r9, r8, lsr #25         @ r9 = 0: endjoin's rounding changes nothing
    bxeq    lr
    add     r8, r8, #0x1000000
    cmp     r8, #0x4000000
    bhs     .LlargeNow
    movs    r4, r4, asr #1          @ 2^24 to 2^25: round the last bit away, ties to even
    andcs   r9, r4, #1
    addcs   r4, r4, r9
    mov     r4, r4, lsl #1
    mov     r9, #0
    bx      lr
.LlargeNow:
    eor     r9, r4, r4, lsl #1      @ 2^25 and more: s = 7 - clz
    mov     r6, #1
    clz     r9, r9
    rsb     r8, r9, #7              @ r8 = s
    add     r10, r9, #25             @ r10 = 32 - s
    add     r5, r5, r8
    mov     r6, r6, lsl r10
    mov     r9, r4, lsl r10          @ split the sum into r4 * 2^s and the lower word
    mov     r4, r4, asr r8
    b       .LinBinade
.LlargeBefore:
    eor     r8, r4, r4, lsl #1
    clz     r8, r8
    subs    r8, r8, #7              @ r8 = binades that the sum fell
    ble     .Lup
    movs    r6, r6, lsl r8
    ble     .LsmallNow              @ 2^(32 - s) is 2^31 or more: s is 1 or less
    sub     r5, r5, r8              @ shift both words left by r8
    rsb     r10, r8, #32
    mov     r4, r4, lsl r8
    orr     r4, r4, r9, lsr r10
    mov     r9, r9, lsl r8
.LinBinade:
    rsb     r10, r6, #0
    mov     r11, r4, asr #23
    bx      lr
.Lup:
    rsb     r8, r8, #0              @ shift both words right by r8
    rsb     r10, r8, #32
    mov     r9, r9, lsr r8          @ exact: r9 is a multiple of r6
    orr     r9, r9, r4, lsl r10
    mov     r4, r4, asr r8
    mov     r6, r6, lsr r8
    add     r5, r5, r8
    rsb     r10, r6, #0
    mov     r11, r4, asr #23
    bx      lr
.LsmallNow:
    ldr     r10, [sp, #12]           @ raised
    sub     r8, r5, r10              @ r4 = r4:r9 as a whole number, s = 0
    mov     r5, r10
    rsb     r10, r8, #32
    mov     r4, r4, lsl r8
    orr     r4, r4, r9, lsr r10
    mov     r6, #1
    mvn     r10, #0
    mov     r11, #8
    b       .Lsmall
endroutine SoftNewBinade

@ Called by averagestep if the exponents of the two sums are outside the near window. r8 is their
@ difference. Returns with r9 for the subtraction, or past the subtraction with its result in r2.
routine SoftAverageFar
.LfarSum:
    cmp     r8, #0
    bgt     .LwiderLeads
    rsb     r8, r8, #0              @ the wider sum is smaller: r9 = r4 >> -r8, with a sticky bit
    mov     r9, r4, asr r8
    cmp     r4, r9, lsl r8
    orrne   r9, r9, #1
    bx      lr
.LwiderLeads:
    sub     r8, r8, #4              @ the narrower sum is smaller: r2 = 8 r2 >> (r8 - 4), sticky
    add     r3, r3, r8
    mov     r9, r2, lsl #3
    mov     r2, r9, asr r8
    cmp     r9, r2, lsl r8
    orrne   r2, r2, #1
    sub     r2, r2, r4, lsl #4
    add     pc, lr, #SUBTRACTION_BYTES
    farband .LfarFirst, r2, r3, r8, r9
    farband .LfarSecond, r2, r3, r8, r9
endroutine SoftAverageFar
