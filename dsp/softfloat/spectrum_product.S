#include "dsp/softfloat/arm.inc"
#include "dsp/softfloat/offsets.h"

@ The steps between the spectra of complex and of real values. docs/soft-float.md, "The real spectrum".
@
@ In this file r0 is the address of value k and r12 that of value half - k. Two sums are formed at a
@ time. Their first terms are in r2, r3 (real part) and r4, r5 (imaginary part), as a value lies in
@ memory. Their second terms are in r10, r11 and r6, r7.

@ mirrordifference carried: y = left - conj(right), left in r2 to r5, right in r10, r11 and r6, r7.
@ y has its real part in r6, r7 and its imaginary part in r10, r11, as turnproducts expects. `meanwhile`
@ is normroundboth's; it may change r2.
.macro mirrordifference carried=0, meanwhile
    align   r4, r5, r6, r7, .LfarIm, carried=\carried
    add     r4, r9, r4, asr #3      @ left.im + right.im
    align   r2, r3, r10, r11, .LfarRe, carried=\carried
    rsb     r6, r9, r2, asr #3      @ left.re - right.re
    mov     r10, r4
    normroundboth r6, r7, r3, r10, r11, r5, meanwhile="\meanwhile"
.endm

@ kernelproduct at, factor: the value at `at` times the kernel's factor at the address `factor`, to r2
@ to r5.
.macro kernelproduct at, factor:vararg
    ldrd    r8, r9, \factor
    ldmia   \at, {r6, r7, r10, r11}
    turnproducts
    turned  r2, r3, r4, r5
.endm

@ storeexchanged op, right, places: stores the result for the value in r2 to r5 with its parts
@ exchanged. This is the imaginary part minus y's, then the real part `op` y's. `right` is 1 for
@ value half - k. The address of its MirroredPlaces is at sp + places. y, in r10, r11 and r6, r7,
@ stays.
.macro storeexchanged op, right, places
    align   r4, r5, r6, r7, .LfarIm, carried=1-\right
    rsb     r4, r9, r4, asr #3
    align   r2, r3, r10, r11, .LfarRe, carried=1-\right
    \op     r8, r9, r2, asr #3
    normroundboth r4, r5, r5, r8, r9, r3, spare=r2, unclean=1, meanwhile="ldr r3, [sp, #\places]"
    .if \right
    ldr     r2, [r3, #MIRRORED_PLACES_RIGHT]
    ldrsb   r3, [r3, #MIRRORED_PLACES_RAISED]
    .else
    ldrd    r2, r3, [r3, #MIRRORED_PLACES_RIGHT]
    .endif
    bic     r4, r4, #63
    bic     r8, r8, #63
    .if \right
    add     r5, r5, r3              @ raise both exponents
    add     r9, r9, r3
    .else
    add     r2, r2, r3, asr #12     @ right + leftFromRight; a value has 16 bytes
    .endif
    stmia   r2, {r4, r5, r8, r9}
.endm

@ bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const MirroredTurns* kernel,
@                          const MirroredPlaces* places, size_t half)
@ The loop of SpectrumProductPortable (spectrum_product.h). docs/soft-float.md, "The real spectrum".
@   in    r0 spectrum, r1 kernel, r2 places, r3 half
@   uses  r1 kernel[k]
@   stack [0] places; left and then right are pushed while they wait
@   out   r0 false if a number was too small for a product
routine SoftSpectrumProduct
    push    {r4-r11, lr}
    str     r2, [sp, #-4]!
    add     r12, r0, r3, lsl #4
    add     r1, r1, #MIRRORED_TURNS_SIZE
    b       .LproductTest
.LproductNext:
    kernelproduct r12, [r1, #MIRRORED_TURNS_RIGHT] @ right
    stmdb   sp!, {r2-r5}
    kernelproduct r0, [r1], #MIRRORED_TURNS_SIZE   @ left
    ldrd    r10, r11, [sp]
    ldrd    r6, r7, [sp, #8]
    stmdb   sp!, {r2-r5}
    mirrordifference carried=1, meanwhile="ldr r2, [sp, #32]" @ y = left - conj(right)
    ldrd    r8, r9, [r2, #MIRRORED_PLACES_SIZE]! @ y *= conj((++places)->w)
    str     r2, [sp, #32]
    turnproducts .LsettleProduct
    turned  r10, r11, r6, r7, back=1, unclean=1
    ldmia   sp!, {r2-r5}
    bic     r10, r10, #63
    bic     r6, r6, #63
    storeexchanged rsb, 0, 16       @ left - y
    ldmia   sp!, {r2-r5}
    storeexchanged add, 1, 0        @ right + conj(y)
.LproductTest:
    add     r0, r0, #16
    sub     r12, r12, #16
    cmp     r0, r12
    bne     .LproductNext
    mov     r0, #1
.LproductEnd:
    add     sp, sp, #4
    pop     {r4-r11, pc}
.LsettleProduct:
    settle  r6, r7, r10, r11, .LproductRefused
.LproductRefused:
    add     sp, sp, #32             @ left and right
    b       .LproductEnd
endroutine SoftSpectrumProduct

@ realresult op, at: replaces the value at `at`: its real part `op` y's, its imaginary part minus y's.
@ y, in r10, r11 and r6, r7, stays.
.macro realresult op, at
    ldmia   \at, {r2-r5}
    align   r2, r3, r10, r11, .LfarRe
    \op     r2, r9, r2, asr #3
    align   r4, r5, r6, r7, .LfarIm
    rsb     r4, r9, r4, asr #3
    normroundboth r2, r3, r3, r4, r5, r5
    orrs    lr, r3, r5
    blmi    .LsettleResult
    stmia   \at, {r2-r5}
.endm

@ bool SoftRealStep(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half)
@ The loop of RealStepPortable (spectrum_product.h). docs/soft-float.md, "The real spectrum".
@   in    r0 a, r1 places, r2 half, at least 2
@   out   r0 false if a number was too small for a product
routine SoftRealStep
    push    {r4-r11, lr}
    add     r12, r0, r2, lsl #4
    b       .LrealTest
.LrealNext:
    ldmia   r0, {r2-r5}             @ left
    ldrd    r10, r11, [r12]         @ right
    ldrd    r6, r7, [r12, #8]
    mirrordifference                @ y = left - conj(right)
    ldrd    r8, r9, [r1, #MIRRORED_PLACES_SIZE]! @ y *= (++places)->w
    turnproducts .LsettleReal
    turned  r10, r11, r6, r7
    realresult rsb, r0              @ left - y
    realresult add, r12             @ right + conj(y)
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
