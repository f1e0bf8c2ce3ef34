#include "dsp/softfloat/arm.inc"

@ The rare cases of turns: ties, and terms outside the near window. Every file that has turns calls
@ these routines. docs/soft-float.md, "Turns".

    turnties SoftRealTies, r2, r4, r5, r3, "add r3, r7, r8, asr #25"
    turnties SoftImaginaryTies, r6, r10, r9, r8

    farturn SoftFarTurnRe, r2, r3, r10, r11
    farturn SoftFarTurnIm, r4, r5, r6, r7
