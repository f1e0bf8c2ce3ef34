#include "dsp/softfloat/arm.inc"
#include "dsp/softfloat/offsets.h"

@ How a block enters and leaves the transforms.

@ zeroenters m, e, bits: `rare` of LoadBlock's unpack. Makes the number of a zero and subtracts it from
@ r11, the count of parts that aren't 0. Refuses the block for any other value.
.macro zeroenters m, e, bits
    movs    \e, \bits, lsl #1
    bne     .LloadRefused
    mov     \m, #0
    sub     r11, r11, #1
    bx      lr
.endm

@ LoadedBlock SoftLoadBlock(const float* re, const float* im, const TransformPlace* places,
@                           Complex<SoftFloat>* out, size_t pairs)
@ The loop of LoadBlockPortable (block_ends.h). docs/soft-float.md, "A number".
@   in    r0 re, r1 im, r2 places, r3 out; stack: pairs, at least 1
@   uses  r8, r12 a pair, then its place; r9 2^31, r10 end of re, r11 number of parts that aren't 0
@   out   r0 a LoadedBlock
routine SoftLoadBlock
    push    {r4-r11, lr}
    ldr     r11, [sp, #36]
    mov     r9, #0x80000000
    add     r10, r0, r11, lsl #2
    mov     r11, r11, lsl #1        @ 2 * pairs
.LloadNext:
    ldr     r8, [r0], #4
    ldr     r12, [r1], #4
    unpack  r4, r5, r8, r9, .LloadZeroRe  @ r4, r5 = Unpack(*re++)
    ldrh    r8, [r2, #TRANSFORM_PLACE_RAISED]
    unpack  r6, r7, r12, r9, .LloadZeroIm @ r6, r7 = Unpack(*im++)
    ldrh    r12, [r2], #TRANSFORM_PLACE_SIZE
    add     r5, r5, r8              @ raise both exponents
    add     r7, r7, r8
    add     r12, r3, r12, lsl #4    @ out[places++->at] = the value
    stmia   r12, {r4-r7}
    cmp     r0, r10
    bne     .LloadNext
    cmp     r11, #0
    movne   r0, #1                  @ kNumbers
    moveq   r0, #2                  @ kSilence
.LloadEnd:
    pop     {r4-r11, pc}
.LloadRefused:
    mov     r0, #0                  @ kRefused
    b       .LloadEnd
.LloadZeroRe:
    zeroenters r4, r5, r8
.LloadZeroIm:
    zeroenters r6, r7, r12
endroutine SoftLoadBlock

.macro inverseloop name, overlapping
@ void name(const SoftFloat* a, size_t span, size_t count, float* low, float* high,
@           const float* tail)
@ The loop of LastInverseStagePortable (block_ends.h). docs/soft-float.md, "Sum and difference".
@   in    r0 a, r1 span, r2 count, at least 1; r3 low; stack: high, and tail if overlapping
@   uses  r1 bytes from the first to the second number, r2 low, r3 high,
@         r12 tail if overlapping, else end of a
@   stack end of a if overlapping
routine \name
    push    {r4-r11, lr}
    mov     r1, r1, lsl #4
    add     r12, r0, r2, lsl #4
    mov     r2, r3
    ldr     r3, [sp, #36]
    .if \overlapping
    mov     r4, r12
    ldr     r12, [sp, #40]
    str     r4, [sp, #-4]!
    .endif
.L\name\()Next:
    ldrd    r6, r7, [r0, r1]        @ r10, r11 = difference; r6, r7 = sum of the two numbers
    ldrd    r4, r5, [r0], #16
    align   r4, r5, r6, r7, .LfarEnd, carried=1
    rsb     r10, r9, r4, asr #3
    add     r6, r9, r4, asr #3
    add     r5, r5, #46             @ pack expects the exponent plus 46
    normroundboth r10, r11, r5, r6, r7, r5, unclean=1
    .if \overlapping
    ldr     r4, [r12], #4           @ *tail++
    bic     r6, r6, #63
    .endif
    pack    r10, r11, r8, .LrareHigh
    str     r10, [r3], #4           @ *high++ = difference
    .if \overlapping
    mov     r11, #0x80000000        @ sum += *tail; both exponents have the extra 46
    unpack  r4, r5, r4, r11, .LplainTail, least=1
    align   r4, r5, r6, r7, .LfarEnd
    add     r6, r9, r4, asr #3
    normround r6, r7, r5, unclean=1
    .endif
    pack    r6, r7, r8, .LrareLow
    .if \overlapping
.LtailAdded:
    ldr     lr, [sp]
    .endif
    str     r6, [r2], #4            @ *low++ = sum
    .if \overlapping
    cmp     r0, lr
    bne     .L\name\()Next
    add     sp, sp, #4
    .else
    cmp     r0, r12
    bne     .L\name\()Next
    .endif
    pop     {r4-r11, pc}
endroutine \name
.endm

    inverseloop SoftLastInverseStage, 0
    inverseloop SoftLastInverseOverlap, 1

routine SoftInverseFar
    farout  .LfarEnd, r4, r5, r6, r7
    packrare .LrareHigh, r10, r11
    packrare .LrareLow, r6, r7
@ A tail sample that is 0, subnormal or too large is added as a float.
.LplainTail:
    pack    r6, r7, r8, .LrareLow
    stmdb   sp!, {r0-r3, r12}
    mov     r0, r6
    ldr     r1, [r12, #-4]
    bl      __aeabi_fadd
    mov     r6, r0
    ldmia   sp!, {r0-r3, r12}
    b       .LtailAdded
endroutine SoftInverseFar
