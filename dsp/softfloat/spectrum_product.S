#include "dsp/softfloat/arm.inc"

@ turned sign: the four products' sums, "Turns". In: r4, r5 and r6, r7 the products of re; r2, r3 and
@ r10, r11 those of im. Out: re in r4, r5, im in r2, r3. re is the difference and im the sum, or
@ with `back` the other way round.
.macro turned back=0
    align   r4, r5, r6, r7, .LfarProductRe, carried=1
    .if \back
    add     r4, r9, r4, asr #3
    .else
    rsb     r4, r9, r4, asr #3
    .endif
    normround r4, r5, r5
    align   r2, r3, r10, r11, .LfarProductIm, carried=1
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

@ bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
@                          const SoftTurn* w, const uint16_t* reversed,
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

.LsettleProduct:
    settle  r10, r11, r6, r7, .LproductEnd
endroutine SoftSpectrumProduct

@ realresult op, at: the result in place of the value at `at`: op its real part and y's, its
@ imaginary part less y's. y in r6, r7 and r10, r11, which stay.
.macro realresult op, at
    ldrd    r4, r5, [\at]
    align   r4, r5, r6, r7, .LfarProductRe
    \op     r4, r9, r4, asr #3
    normround r4, r5, r5
    ldrd    r2, r3, [\at, #8]
    align   r2, r3, r10, r11, .LfarProductIm
    rsb     r2, r9, r2, asr #3
    normround r2, r3, r3
    orrs    lr, r5, r3
    blmi    .LsettleResult
    strd    r4, r5, [\at]
    strd    r2, r3, [\at, #8]
.endm

@ bool SoftRealStep(Complex<SoftFloat>* a, const SoftTurn* w, size_t half)
@ The loop of RealStepText (spectrum_product.h). docs/soft-float.md, "The real spectrum".
@   in    r0 a, r1 w, r2 half, at least 2
@   uses  r0 value k, r12 value half - k
@   out   r0 whether no number was too small for a product
routine SoftRealStep
    push    {r4-r11, lr}
    add     r12, r0, r2, lsl #4
    add     r1, r1, #16
    b       .LrealTest
.LrealNext:
    ldrd    r2, r3, [r0, #8]
    ldrd    r10, r11, [r12, #8]
    align   r2, r3, r10, r11, .LfarProductIm
    add     r2, r9, r2, asr #3
    ldrd    r4, r5, [r0]
    ldrd    r6, r7, [r12]
    align   r4, r5, r6, r7, .LfarProductRe
    rsb     r10, r9, r4, asr #3
    normround r10, r11, r5          @ y.re
    mov     r6, r2
    normround r6, r7, r3            @ y.im
    orrs    lr, r11, r7
    blmi    .LsettleReal
    ldrd    r8, r9, [r1], #8
    product r4, r5, r10, r11
    product r2, r3, r6, r7
    ldrd    r8, r9, [r1], #8
    product r10, r11, r10, r11
    product r6, r7, r6, r7
    turned
    mov     r6, r4
    mov     r7, r5
    mov     r10, r2
    mov     r11, r3
    realresult rsb, r0
    realresult add, r12
.LrealTest:
    add     r0, r0, #16
    sub     r12, r12, #16
    cmp     r0, r12
    bne     .LrealNext
    mov     r0, #1
.LrealEnd:
    pop     {r4-r11, pc}
.LsettleReal:
    settle  r10, r11, r6, r7, .LrealEnd
.LsettleResult:
    settle  r4, r5, r2, r3, .LrealEnd
endroutine SoftRealStep

routine SoftSpectrumFar
    farout  .LfarProductRe, r4, r5, r6, r7
    farout  .LfarProductIm, r2, r3, r10, r11
endroutine SoftSpectrumFar
