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

@ weightedsample m, e, weight: the present sample of the next array times the weight at that offset of
@ the ContourMix. r11 is 2^31. Changes r4 to r9. "A number", "Products".
.macro weightedsample m, e, weight
    ldr     r6, [r12], #4
    ldr     r6, [r6, r1]
    ldrd    r8, r9, [r0, #\weight]
    unpack  r4, r5, r6, r11, .LsampleIsZero, raised=1
    product \m, \e, r4, r5, raised=1
.endm

@ channelsum: the sum of the next channel's three weighted bands, to r2, r3.
.macro channelsum
    weightedsample r2, r3, CONTOUR_MIX_WEIGHTS
    weightedsample r4, r5, CONTOUR_MIX_WEIGHTS + 8
    addterm
    weightedsample r4, r5, CONTOUR_MIX_WEIGHTS + 16
    addterm
.endm

@ channelout place: *r6++ = the sum stored at sp + place, plus the contour in r4, r5.
.macro channelout place
    ldrd    r2, r3, [sp, #\place]
    addterm unclean=1
    add     r3, r3, #55             @ pack's 46 and the 9 that exponents are lowered by
    pack    r2, r3, r7, .LmixRare
    str     r2, [r6], #4
.endm

@ size_t SoftContourMix(ContourMix* mix, float* out, size_t frames, size_t channels)
@ The loop of RunContourMixPortable (contour_mix.h). docs/soft-float.md, "Bands and contour".
@   in    r0 mix, r1 out, r2 frames, at least 1; r3 channels, 1 or 2
@   uses  r4, r5 the contour, once it is known; r11 2^31, then r10, r11 x2
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
    strd    r2, r3, [sp]
    ldr     lr, [sp, #16]
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
    strd    r2, r3, [r0, #CONTOUR_MIX_X1] @ x1 becomes x, and x2 becomes x1
    ldrd    r10, r11, [r0, #CONTOUR_MIX_X2]
    strd    r4, r5, [r0, #CONTOUR_MIX_X2]
    ldrd    r8, r9, [r0, #CONTOUR_MIX_B0] @ sum = b0 * x
    product r2, r3, r2, r3
    ldrd    r8, r9, [r0, #CONTOUR_MIX_B1] @ sum += b1 * x1
    product r4, r5, r4, r5
    addterm
    ldrd    r8, r9, [r0, #CONTOUR_MIX_B2] @ sum += b2 * x2
    product r4, r5, r10, r11
    addterm
    ldrd    r8, r9, [r0, #CONTOUR_MIX_FB1] @ sum += fb1 * y1
    product r4, r5, r6, r7
    addterm
    ldrd    r4, r5, [r0, #CONTOUR_MIX_Y2] @ y = sum + fb2 * y2, and y2 becomes y1
    strd    r6, r7, [r0, #CONTOUR_MIX_Y2]
    ldrd    r8, r9, [r0, #CONTOUR_MIX_FB2]
    product r4, r5, r4, r5
    align   r2, r3, r4, r5, .LfarTerm, carried=1
    add     r4, r9, r2, asr #3
    normround r4, r5, r3
    strd    r4, r5, [r0, #CONTOUR_MIX_Y1]

    ldr     r6, [sp, #32]
    channelout 0                    @ *out++ = mixed[0] + y
    ldr     lr, [sp, #16]
    cmp     lr, #1
    beq     .LmixOut
    channelout 8                    @ *out++ = mixed[1] + y
.LmixOut:
    str     r6, [sp, #32]
    ldr     lr, [sp, #20]           @ after an odd frame: first arrays, next pair
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

@ `rare` of unpack: returns the number of a zero; for any other sample ends the loop.
.LsampleIsZero:
    movs    r5, r6, lsl #1
    bne     .LmixEnd
    mov     r4, #0
    bx      lr

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
    packrare .LmixRare, r2, r3
endroutine SoftContourMix
