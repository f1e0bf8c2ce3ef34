#include "dsp/softfloat/arm.inc"

@ In this file sums are formed in r2, r3, to which a term in r4, r5 is added; r0 is the ContourMix,
@ r1 the way in bytes from an array's beginning to the present pair, r12 the next array's address.

@ addterm carried, unclean: "The near window"; as align and normround have them. Changes r8, r9.
.macro addterm carried=1, unclean=0
    align   r2, r3, r4, r5, .LfarTerm, carried=\carried
    add     r2, r9, r2, asr #3
    normround r2, r3, r3, unclean=\unclean
.endm

@ weightedsample m, e, weight: the next array's sample of the pair, times the weight there in the
@ ContourMix. r11 is 2^31. Changes r4 to r9. "A number", "Products".
.macro weightedsample m, e, weight
    ldr     r6, [r12], #4
    ldr     r6, [r6, r1]
    ldrd    r8, r9, [r0, #\weight]
    unpack  r4, r5, r6, r11, .LsampleIsZero, raised=1
    product \m, \e, r4, r5, raised=1
.endm

@ channelsum: the next channel's three bands, to r2, r3.
.macro channelsum
    weightedsample r2, r3, 48
    weightedsample r4, r5, 56
    addterm
    weightedsample r4, r5, 64
    addterm
.endm

@ channelout place: the sum at sp + place and the contour in r4, r5 to the next output, at r6.
.macro channelout place
    ldrd    r2, r3, [sp, #\place]
    addterm unclean=1
    add     r3, r3, #55             @ as pack takes it, and what the exponents are lowered by
    pack    r2, r3, r7, .LmixRare
    str     r2, [r6], #4
.endm

@ size_t SoftContourMix(ContourMix* mix, float* out, size_t frames, size_t channels)
@ The loop of RunContourMixText (contour_mix.h). docs/soft-float.md, "Bands and contour".
@   in    r0 mix, r1 out, r2 frames, at least 1; r3 channels, 1 or 2
@   uses  r4, r5 the contour once it is known; r11 2^31; then r10, r11 x2
@   stack the channels' sums; channels, the end of `from`, frames left, frames, out
@   out   r0 the frames done
routine SoftContourMix
    push    {r4-r11, lr}
    sub     sp, sp, #36
    str     r1, [sp, #32]
    str     r2, [sp, #28]
    str     r2, [sp, #24]
    add     r4, r3, r3, lsl #1
    add     r4, r0, r4, lsl #3
    str     r4, [sp, #20]
    str     r3, [sp, #16]
    mov     r12, r0
    mov     r1, #0
.LmixNext:
    mov     r11, #0x80000000
    channelsum
    strd    r2, r3, [sp]
    ldr     lr, [sp, #16]
    cmp     lr, #1
    beq     .LmixSummed
    channelsum
    strd    r2, r3, [sp, #8]
    ldrd    r4, r5, [sp]
    addterm carried=0
.LmixSummed:
    ldrd    r6, r7, [r0, #128]      @ y1
    orrs    lr, r3, r7
    blmi    .LsettleMix
    ldrd    r4, r5, [r0, #112]      @ x1
    strd    r2, r3, [r0, #112]
    ldrd    r10, r11, [r0, #120]    @ x2
    strd    r4, r5, [r0, #120]
    ldrd    r8, r9, [r0, #72]
    product r2, r3, r2, r3
    ldrd    r8, r9, [r0, #80]
    product r4, r5, r4, r5
    addterm
    ldrd    r8, r9, [r0, #88]
    product r4, r5, r10, r11
    addterm
    ldrd    r8, r9, [r0, #96]
    product r4, r5, r6, r7
    addterm
    ldrd    r4, r5, [r0, #136]      @ y2
    strd    r6, r7, [r0, #136]
    ldrd    r8, r9, [r0, #104]
    product r4, r5, r4, r5
    align   r2, r3, r4, r5, .LfarTerm, carried=1
    add     r4, r9, r2, asr #3
    normround r4, r5, r3
    strd    r4, r5, [r0, #128]

    ldr     r6, [sp, #32]
    channelout 0
    ldr     lr, [sp, #16]
    cmp     lr, #1
    beq     .LmixOut
    channelout 8
.LmixOut:
    str     r6, [sp, #32]
    ldr     lr, [sp, #20]
    cmp     r12, lr
    moveq   r12, r0
    addeq   r1, r1, #4
    ldr     lr, [sp, #24]
    subs    lr, lr, #1
    str     lr, [sp, #24]
    bne     .LmixNext
.LmixEnd:
    ldr     r0, [sp, #28]
    ldr     r1, [sp, #24]
    sub     r0, r0, r1
    add     sp, sp, #36
    pop     {r4-r11, pc}

@ A sample beyond the numbers: back if it is 0, else the end.
.LsampleIsZero:
    movs    r5, r6, lsl #1
    bne     .LmixEnd
    mov     r4, #0
    bx      lr

@ x or y1 with an exponent below 0: back if it is a zero's, else the end.
.LsettleMix:
    cmp     r2, #0
    moveq   r3, #0
    cmp     r6, #0
    moveq   r7, #0
    orrs    r8, r3, r7
    bxpl    lr
    b       .LmixEnd

    farout  .LfarTerm, r2, r3, r4, r5
    packrare .LmixRare, r2, r3
endroutine SoftContourMix
