#include "dsp/softfloat/arm.inc"

@ How samples enter and leave the equalizer.

@ int32_t SoftTakeShorts(const int16_t* samples, int32_t* units, size_t frames, size_t channels)
@ The loop of TakeShortsPortable (equalizer_ends.h). docs/soft-float.md, "The equalizer's ends".
@   in    r0 samples, r1 units, r2 frames, at least 1; r3 channels
@   uses  r4 half of the last of 9 bits, less one; r5 all bits below it; r12 the units or-ed together
@   out   r0 the units or-ed together
routine SoftTakeShorts
    push    {r4-r8, lr}
    mvn     r5, #0
    mov     r4, r5, lsr #12
    mov     r5, r5, lsr #11
    mov     r3, r3, lsl #1
    mov     r12, #0
    ldrsh   r6, [r0], r3            @ r6 = s
.LtakeNext:
    eor     lr, r6, r6, lsl #2      @ r7 = s with its highest bit at bit 29
    clz     lr, lr
    mov     r7, r6, lsl lr
    movs    r8, r7, lsr #22         @ round r7 to 9 bits; carry = the last kept bit
    adc     r7, r7, r4
    bic     r7, r7, r5
    mov     r7, r7, asr lr          @ r7 = (s << 15) + s rounded to 9 bits
    subs    r2, r2, #1
    add     r7, r7, r6, lsl #15
    ldrshne r6, [r0], r3            @ the next s
    orr     r12, r12, r7
    str     r7, [r1], #4            @ *units++ = r7
    bne     .LtakeNext
    mov     r0, r12
    pop     {r4-r8, pc}
endroutine SoftTakeShorts

@ void SoftFinishRows(const AverageRow* rows, const SoftFactor* gain, float* samples, size_t frames,
@                     size_t channels)
@ The loop of FinishRowsPortable (equalizer_ends.h). docs/soft-float.md, "The equalizer's ends".
@   in    r0 rows, r1 gain, r2 samples, r3 frames, at least 1; stack: channels
@   uses  r1 samples; r2, r3 the sum; r8, r9 the output; r6 bytes from a sample to the next;
@         r7 end of rows; r10, r11 the gain
routine SoftFinishRows
    push    {r4-r11, lr}
    ldr     r6, [sp, #36]
    ldrd    r10, r11, [r1]
    mov     r1, r2
    add     r7, r0, r3, lsl #4
    mov     r6, r6, lsl #2
    add     r11, r11, #6            @ addband expects the band's exponent raised by 6
.LfinishNext:
    ldmia   r0!, {r2, r3, r8, r9}   @ rows->sum, rows->output
    eor     lr, r2, r2, lsl #2      @ r2, r3 = the sum with its highest bit at bit 29
    clz     lr, lr
    mov     r2, r2, lsl lr
    sub     r3, r3, lr
    product r2, r3, r2, r3, fm=r10, fe=r11, unclean=1
    addband r2, r3, r8, r9, .LfarFinish @ r2, r3 = gain * sum + output
    ands    r8, r2, #0x80000000     @ r8 = sign, r2 = magnitude
    rsbmi   r2, r2, #0
    clz     r9, r2                  @ move the highest bit to bit 30
    mov     r2, r2, lsl r9
    movs    r2, r2, lsr #1
    sub     r3, r3, r9
    moveq   r3, #0                  @ a zero's field is 0
    movs    lr, r2, lsr #8          @ round to 24 bits; carry = the last kept bit
    adc     r2, r2, #63
    mov     r2, r2, lsr #7
    add     r2, r2, r3, lsl #23     @ 2^23 makes the field one more, 2^24 two
    orr     r2, r2, r8
    str     r2, [r1], r6
    cmp     r0, r7
    bne     .LfinishNext
    pop     {r4-r11, pc}
endroutine SoftFinishRows

routine SoftFinishFar
    farband .LfarFinish, r2, r3, r8, r9
endroutine SoftFinishFar
