#include "dsp/softfloat/arm.inc"

@ In this file the first terms of two sums stand in r2, r3 and r4, r5, real and imaginary part of a
@ value as it lies in memory; the second ones in r10, r11 and r6, r7. r0 is value k, r12 value
@ half - k.

@ mirrordifference carried: y, as realproducts takes it, of left in r2 to r5 and right in r10, r11 and
@ r6, r7: left - conj(right).
.macro mirrordifference carried=0
    align   r4, r5, r6, r7, .LfarIm, carried=\carried
    add     r4, r9, r4, asr #3
    align   r2, r3, r10, r11, .LfarRe, carried=\carried
    rsb     r6, r9, r2, asr #3
    normround r6, r7, r3
    mov     r10, r4
    normround r10, r11, r5
.endm

@ kernelproduct at: the value at `at` by the kernel's, to r2 to r5.
.macro kernelproduct at
    ldmia   \at, {r6, r7, r10, r11}
    ldrd    r8, r9, [\at, r1]
    realproducts
    add     lr, \at, r1
    ldrd    r8, r9, [lr, #8]
    imaginaryproducts
    turned  r2, r3, r4, r5
.endm

@ storeexchanged op, right: of the value in r2 to r5, which is the right one or not, the imaginary
@ part less y's, and the real part `op` y's, to its place. y, in r10, r11 and r6, r7, stays.
.macro storeexchanged op, right
    align   r4, r5, r6, r7, .LfarIm, carried=1-\right
    rsb     r4, r9, r4, asr #3
    normround r4, r5, r5
    align   r2, r3, r10, r11, .LfarRe, carried=1-\right
    \op     r8, r9, r2, asr #3
    normround r8, r9, r3
    ldr     r2, [sp, #32]
    .if \right
    ldrd    r2, r3, [r2, #16]
    add     r5, r5, r3
    add     r9, r9, r3
    .else
    ldr     r2, [r2, #24]
    .endif
    stmia   r2, {r4, r5, r8, r9}
.endm

@ bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
@                          const MirroredPlaces* places, size_t half)
@ The loop of SpectrumProductText (spectrum_product.h). docs/soft-float.md, "The real spectrum".
@   in    r0 spectrum, r1 kernel, r2 places, r3 half
@   uses  r1 the way from a value to its kernel's
@   stack right, left; places
@   out   r0 whether no number was too small for a product
routine SoftSpectrumProduct
    push    {r4-r11, lr}
    sub     sp, sp, #36
    add     r12, r0, r3, lsl #4
    sub     r1, r1, r0
    str     r2, [sp, #32]
    b       .LproductTest
.LproductNext:
    kernelproduct r12
    stmia   sp, {r2-r5}
    kernelproduct r0
    add     lr, sp, #16
    stmia   lr, {r2-r5}
    ldrd    r10, r11, [sp]
    ldrd    r6, r7, [sp, #8]
    mirrordifference carried=1
    orrs    lr, r11, r7
    blmi    .LsettleProduct
    ldr     lr, [sp, #32]
    ldrd    r8, r9, [lr, #32]!
    str     lr, [sp, #32]
    realproducts
    ldr     lr, [sp, #32]
    ldrd    r8, r9, [lr, #8]
    imaginaryproducts
    turned  r10, r11, r6, r7, back=1
    add     lr, sp, #16
    ldmia   lr, {r2-r5}
    storeexchanged rsb, 0
    ldmia   sp, {r2-r5}
    storeexchanged add, 1
.LproductTest:
    add     r0, r0, #16
    sub     r12, r12, #16
    cmp     r0, r12
    bne     .LproductNext
    mov     r0, #1
.LproductEnd:
    add     sp, sp, #36
    pop     {r4-r11, pc}
.LsettleProduct:
    settle  r6, r7, r10, r11, .LproductEnd
endroutine SoftSpectrumProduct

@ realresult op, at: the result in place of the value at `at`: op its real part and y's, its
@ imaginary part less y's. y in r10, r11 and r6, r7, which stay.
.macro realresult op, at
    ldmia   \at, {r2-r5}
    align   r2, r3, r10, r11, .LfarRe
    \op     r2, r9, r2, asr #3
    normround r2, r3, r3
    align   r4, r5, r6, r7, .LfarIm
    rsb     r4, r9, r4, asr #3
    normround r4, r5, r5
    orrs    lr, r3, r5
    blmi    .LsettleResult
    stmia   \at, {r2-r5}
.endm

@ bool SoftRealStep(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half)
@ The loop of RealStepText (spectrum_product.h). docs/soft-float.md, "The real spectrum".
@   in    r0 a, r1 places, r2 half, at least 2
@   out   r0 whether no number was too small for a product
routine SoftRealStep
    push    {r4-r11, lr}
    add     r12, r0, r2, lsl #4
    b       .LrealTest
.LrealNext:
    ldmia   r0, {r2-r5}
    ldrd    r10, r11, [r12]
    ldrd    r6, r7, [r12, #8]
    mirrordifference
    orrs    lr, r11, r7
    blmi    .LsettleReal
    ldrd    r8, r9, [r1, #32]!
    realproducts
    ldrd    r8, r9, [r1, #8]
    imaginaryproducts
    turned  r10, r11, r6, r7
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
    settle  r6, r7, r10, r11, .LrealEnd
.LsettleResult:
    settle  r2, r3, r4, r5, .LrealEnd
endroutine SoftRealStep

routine SoftSpectrumFar
    farout  .LfarRe, r2, r3, r10, r11
    farout  .LfarIm, r4, r5, r6, r7
endroutine SoftSpectrumFar
