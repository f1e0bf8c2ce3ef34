#include "dsp/softfloat/arm.inc"

@ turned sign: the four products' sums, "Turns". In: r4, r5 and r6, r7 the products of re; r2, r3 and
@ r10, r11 those of im. Out: re in r4, r5, im in r2, r3. re is the difference and im the sum, or
@ with `back` the other way round.
.macro turned back=0
    align   r4, r5, r6, r7, .LfarProductRe
    .if \back
    add     r4, r9, r4, asr #3
    .else
    rsb     r4, r9, r4, asr #3
    .endif
    normround r4, r5, r5
    align   r2, r3, r10, r11, .LfarProductIm
    .if \back
    rsb     r2, r9, r2, asr #3
    .else
    add     r2, r9, r2, asr #3
    .endif
    normround r2, r3, r3
.endm

@ kernelproduct at: the value at `at` by the kernel's, to r4, r5 and r2, r3.
.macro kernelproduct at
    ldrd    r10, r11, [\at]
    ldrd    r8, r9, [\at, r1]
    product r4, r5, r10, r11
    add     \at, \at, #8
    ldrd    r6, r7, [\at]
    product r2, r3, r6, r7
    ldrd    r8, r9, [\at, r1]
    sub     \at, \at, #8
    product r10, r11, r10, r11
    product r6, r7, r6, r7
    turned
.endm

@ storereversed place, step: r4, r5 and r2, r3 to the place of `out` that the table's next entry,
@ `step` bytes on, names. Changes r8, r9, lr.
.macro storereversed place, step
    ldr     lr, [sp, #\place]
    ldr     r9, [sp, #60]
    ldrh    r8, [lr, #\step]!
    str     lr, [sp, #\place]
    add     r9, r9, r8, lsl #4
    strd    r4, r5, [r9]
    strd    r2, r3, [r9, #8]
.endm

@ bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const Complex<SoftFactor>* kernel,
@                          const Complex<SoftFactor>* w, const uint16_t* reversed,
@                          Complex<SoftFloat>* out, size_t half)
@ The loop of SpectrumProductText (spectrum_product.h). docs/soft-float.md, "The real spectrum".
@   in    r0 spectrum, r1 kernel, r2 w, r3 reversed; stack: out, half
@   uses  r0 value k, r12 value half - k, r1 from a value to its kernel's
@   stack left, right, y; w, reversed going up, reversed going down, out
@   out   r0 whether no number was too small for a product
routine SoftSpectrumProduct
    push    {r4-r11, lr}
    sub     sp, sp, #76
    ldr     r4, [sp, #112]
    ldr     r5, [sp, #116]
    add     r12, r0, r5, lsl #4
    add     r5, r3, r5, lsl #1
    sub     r1, r1, r0
    str     r2, [sp, #48]
    str     r3, [sp, #52]
    str     r5, [sp, #56]
    str     r4, [sp, #60]
    b       .LproductTest
.LproductNext:
    kernelproduct r12
    strd    r4, r5, [sp, #16]
    strd    r2, r3, [sp, #24]
    kernelproduct r0
    strd    r4, r5, [sp]
    strd    r2, r3, [sp, #8]

    ldrd    r6, r7, [sp, #16]
    ldrd    r10, r11, [sp, #24]
    align   r2, r3, r10, r11, .LfarProductIm
    add     r2, r9, r2, asr #3
    align   r4, r5, r6, r7, .LfarProductRe
    rsb     r10, r9, r4, asr #3
    normround r10, r11, r5          @ y.re
    mov     r6, r2
    normround r6, r7, r3            @ y.im
    orrs    lr, r11, r7
    blmi    .LsettleProduct
    ldr     lr, [sp, #48]
    ldrd    r8, r9, [lr, #16]!
    str     lr, [sp, #48]
    product r4, r5, r10, r11
    product r2, r3, r6, r7
    ldr     lr, [sp, #48]
    ldrd    r8, r9, [lr, #8]
    product r10, r11, r10, r11
    product r6, r7, r6, r7
    turned  back=1
    strd    r4, r5, [sp, #32]
    strd    r2, r3, [sp, #40]

    ldrd    r6, r7, [sp]
    align   r4, r5, r6, r7, .LfarProductRe
    sub     r4, r9, r4, asr #3
    normround r4, r5, r5            @ left.re - y.re
    ldrd    r10, r11, [sp, #8]
    align   r2, r3, r10, r11, .LfarProductIm
    rsb     r2, r9, r2, asr #3
    normround r2, r3, r3            @ y.im - left.im
    storereversed 52, 2
    ldrd    r4, r5, [sp, #32]
    ldrd    r6, r7, [sp, #16]
    align   r4, r5, r6, r7, .LfarProductRe
    add     r4, r9, r4, asr #3
    normround r4, r5, r5            @ right.re + y.re
    ldrd    r2, r3, [sp, #40]
    ldrd    r10, r11, [sp, #24]
    align   r2, r3, r10, r11, .LfarProductIm
    rsb     r2, r9, r2, asr #3
    normround r2, r3, r3            @ y.im - right.im
    storereversed 56, -2
.LproductTest:
    add     r0, r0, #16
    sub     r12, r12, #16
    cmp     r0, r12
    bne     .LproductNext
    mov     r0, #1
.LproductEnd:
    add     sp, sp, #76
    pop     {r4-r11, pc}

@ An exponent below 0: put right if it is a zero's, else the end.
.LsettleProduct:
    cmp     r10, #0
    moveq   r11, #0
    cmp     r6, #0
    moveq   r7, #0
    orrs    r8, r11, r7
    bxpl    lr
    mov     r0, #0
    b       .LproductEnd

    farout  .LfarProductRe, r4, r5, r6, r7
    farout  .LfarProductIm, r2, r3, r10, r11
endroutine SoftSpectrumProduct
