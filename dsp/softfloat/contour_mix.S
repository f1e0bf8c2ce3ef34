#include "dsp/softfloat/arm.inc"
#include "dsp/softfloat/offsets.h"

@ The enhancer's weighted sum of its bands, with the contour added.
@
@ In this file a sum is formed in r2, r3; the term that is added to it is in r4, r5. r0 is the
@ ContourMix, r1 the offset in bytes of the present pair in each array, r12 the address of the next
@ array's pointer in mix->from.

@ addterm carried, unclean: sum += term, with the options of align and normround. Changes r8 and r9.
@ "The near window".
.macro addterm carried=1, unclean=0
    align   r2, r3, r4, r5, .LfarTerm, carried=\carried
    add     r2, r9, r2, asr #3
    normround r2, r3, r3, unclean=\unclean
.endm

@ addtermbeside am, ae, factor, raised: sum += term. Meanwhile the next term is formed: am, ae times the
@ factor at that offset of the ContourMix. `raised` is product's. Changes r8 and r9. "Products".
.macro addtermbeside am, ae, factor, raised=0
    align   r2, r3, r4, r5, .LfarTerm, carried=1
    add     r2, r9, r2, asr #3
    ldrd    r8, r9, [r0, #\factor]
    eor     lr, r2, r2, lsl #2      @ the steps of normround r2, r3, r3 and of product r4, r5 in turn
    clz     lr, lr
    smull   r5, r4, r8, \am
    mov     r2, r2, lsl lr
    sub     r3, r3, lr
    movs    lr, r2, lsr #7
    adc     r2, r2, #31
    cmp     r5, #1
    adc     r4, r4, r4
    .if \raised
    add     r5, r9, \ae, lsr #24
    .else
    add     r5, r9, \ae
    .endif
    teq     r4, r4, lsl #2
    movpl   r4, r4, lsl #1
    subpl   r5, r5, #1
    movs    lr, r4, lsr #7
    adc     r4, r4, #31
    bic     r2, r2, #63
    bic     r4, r4, #63
.endm

@ twoterms raised: replaces the sum by its product with the factor in r8, r9, and the term by its product
@ with the factor in r6, r7. `raised` is product's. Changes r8. "Products".
.macro twoterms raised=0
    smull   lr, r2, r8, r2          @ the steps of product for both in turn
    smull   r8, r4, r6, r4
    .if \raised
    add     r3, r9, r3, lsr #24
    add     r5, r7, r5, lsr #24
    .else
    add     r3, r9, r3
    add     r5, r7, r5
    .endif
    cmp     lr, #1
    adc     r2, r2, r2
    cmp     r8, #1
    adc     r4, r4, r4
    teq     r2, r2, lsl #2
    movpl   r2, r2, lsl #1
    subpl   r3, r3, #1
    teq     r4, r4, lsl #2
    movpl   r4, r4, lsl #1
    subpl   r5, r5, #1
    movs    lr, r2, lsr #7
    adc     r2, r2, #31
    movs    r8, r4, lsr #7
    adc     r4, r4, #31
    bic     r2, r2, #63
    bic     r4, r4, #63
.endm

@ unpack subtracts LEAST from a float's bits, which are shifted left by 1. From BEYOND on, its result is
@ too large.
.equ    LEAST, 47 << 24
.equ    BEYOND, (187 - 47) << 24
@ pack's 46 and the 9 that the exponents of outputs are lowered by.
.equ    PACKED, 55

@ channelsum: the sum of the next channel's three weighted bands, to r2, r3. Changes r4 to r10. "A
@ number".
.macro channelsum
    ldmia   r12!, {r6, r7, r10}
    ldrd    r8, r9, [r0, #CONTOUR_MIX_WEIGHTS]
    ldr     r6, [r6, r1]            @ the channel's samples of the three bands
    ldr     r7, [r7, r1]
    ldr     r10, [r10, r1]
    orr     r2, r11, r6, lsl #8     @ the steps of unpack for the first two in turn
    orr     r4, r11, r7, lsl #8
    mov     r2, r2, lsr #2
    mov     r4, r4, lsr #2
    movs    r3, r6, lsl #1
    rsbcs   r2, r2, #0
    movs    r5, r7, lsl #1
    rsbcs   r4, r4, #0
    ldrd    r6, r7, [r0, #CONTOUR_MIX_WEIGHTS + 8]
    sub     r3, r3, #LEAST
    sub     r5, r5, #LEAST
    cmp     r3, #BEYOND
    cmplo   r5, #BEYOND
    blhs    .LsampleOfTwoIsZero
    twoterms raised=1
    unpack  r6, r7, r10, r11, .LsampleIsZero, raised=1
    addtermbeside r6, r7, CONTOUR_MIX_WEIGHTS + 16, raised=1
    addterm
.endm

@ size_t SoftContourMix(ContourMix* mix, float* out, size_t frames, size_t channels)
@ The loop of RunContourMixPortable (contour_mix.h). docs/soft-float.md, "Bands and contour".
@   in    r0 mix, r1 out, r2 frames, at least 1; r3 channels, 1 or 2
@   uses  r4, r5 the contour, once it is known; r11 2^31, then r10, r11 x2, y2 and mixed[0]
@   stack [0], [8] the channels' sums; [16] channels; [20] end of mix->from; [24] frames left;
@         [28] frames; [32] out
@   out   r0 the frames done
routine SoftContourMix
    push    {r4-r11, lr}
    sub     sp, sp, #36
    str     r1, [sp, #32]
    str     r2, [sp, #28]
    str     r2, [sp, #24]
    add     r4, r3, r3, lsl #1      @ mix->from has 2 * 3 * channels pointers
    add     r4, r0, r4, lsl #3
    str     r4, [sp, #20]
    str     r3, [sp, #16]
    mov     r12, r0
    mov     r1, #0
.LmixNext:
    mov     r11, #0x80000000
    channelsum                      @ mixed[0]
    ldr     lr, [sp, #16]
    strd    r2, r3, [sp]
    cmp     lr, #1
    beq     .LmixSummed
    channelsum                      @ mixed[1]
    strd    r2, r3, [sp, #8]
    ldrd    r4, r5, [sp]            @ x = mixed[0] + mixed[1]
    addterm carried=0
.LmixSummed:
    ldrd    r6, r7, [r0, #CONTOUR_MIX_Y1]
    orrs    lr, r3, r7
    blmi    .LsettleMix             @ x and y1 must not be too small for a product
    ldrd    r4, r5, [r0, #CONTOUR_MIX_X1]
    ldrd    r8, r9, [r0, #CONTOUR_MIX_B0]
    strd    r2, r3, [r0, #CONTOUR_MIX_X1] @ x1 becomes x, and x2 becomes x1
    ldrd    r10, r11, [r0, #CONTOUR_MIX_X2]
    ldrd    r6, r7, [r0, #CONTOUR_MIX_B1]
    strd    r4, r5, [r0, #CONTOUR_MIX_X2]
    twoterms                        @ sum = b0 * x, term = b1 * x1
    ldrd    r6, r7, [r0, #CONTOUR_MIX_Y1]
    addtermbeside r10, r11, CONTOUR_MIX_B2 @ sum += term, term = b2 * x2
    ldrd    r10, r11, [r0, #CONTOUR_MIX_Y2]
    strd    r6, r7, [r0, #CONTOUR_MIX_Y2] @ y2 becomes y1
    addtermbeside r6, r7, CONTOUR_MIX_FB1 @ sum += term, term = fb1 * y1
    addtermbeside r10, r11, CONTOUR_MIX_FB2 @ sum += term, term = fb2 * y2
    align   r2, r3, r4, r5, .LfarTerm, carried=1
    ldrd    r10, r11, [sp]          @ mixed[0]
    add     r4, r9, r2, asr #3      @ y = sum + term
    ldr     r6, [sp, #32]
    normround r4, r5, r3
    strd    r4, r5, [r0, #CONTOUR_MIX_Y1]

    align   r10, r11, r4, r5, .LfarOut, carried=1
    ldr     lr, [sp, #16]
    ldrd    r2, r3, [sp, #8]        @ mixed[1], if there is one
    add     r10, r9, r10, asr #3    @ mixed[0] + y
    cmp     lr, #1
    beq     .LmixOneOut
    align   r2, r3, r4, r5, .LfarTerm, carried=1
    add     r2, r9, r2, asr #3      @ mixed[1] + y
    normroundboth r10, r11, r11, r2, r3, r3, unclean=1
    add     r11, r11, #PACKED       @ *out++ = both
    add     r3, r3, #PACKED
    pack    r10, r11, r7, .LmixRareFirst
    str     r10, [r6], #4
    pack    r2, r3, r7, .LmixRare
    str     r2, [r6], #4
.LmixOut:
    ldr     lr, [sp, #20]
    ldr     r7, [sp, #24]
    str     r6, [sp, #32]
    cmp     r12, lr                 @ after an odd frame: first arrays, next pair
    moveq   r12, r0
    addeq   r1, r1, #4
    subs    r7, r7, #1
    str     r7, [sp, #24]
    bne     .LmixNext
.LmixEnd:
    ldr     r0, [sp, #28]
    ldr     r1, [sp, #24]
    sub     r0, r0, r1
    add     sp, sp, #36
    pop     {r4-r11, pc}

.LmixOneOut:
    normround r10, r11, r11, unclean=1
    add     r11, r11, #PACKED       @ *out++ = mixed[0] + y
    pack    r10, r11, r7, .LmixRareFirst
    str     r10, [r6], #4
    b       .LmixOut

@ `rare` of unpack: makes the number of a zero; for any other sample ends the loop.
.LsampleIsZero:
    cmn     r7, #LEAST              @ 0 for a zero
    bne     .LmixEnd
    mov     r6, #0
    mov     r7, #0
    bx      lr
@ This does the same for two samples if at least one of them is rare.
.LsampleOfTwoIsZero:
    cmn     r3, #LEAST
    moveq   r2, #0
    moveq   r3, #0
    cmn     r5, #LEAST
    moveq   r4, #0
    moveq   r5, #0
    cmp     r3, #BEYOND
    cmplo   r5, #BEYOND
    bxlo    lr
    b       .LmixEnd

@ Called if the exponent of x or y1 is below 0. Returns if only zeros have such exponents, which
@ become 0; otherwise ends the loop.
.LsettleMix:
    cmp     r2, #0
    moveq   r3, #0
    cmp     r6, #0
    moveq   r7, #0
    orrs    r8, r3, r7
    bxpl    lr
    b       .LmixEnd

    farout  .LfarTerm, r2, r3, r4, r5
    farout  .LfarOut, r10, r11, r4, r5
    packrare .LmixRare, r2, r3
    packrare .LmixRareFirst, r10, r11
endroutine SoftContourMix
