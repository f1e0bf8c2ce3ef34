#include "dsp/softfloat/arm.inc"

@ What turns rarely come to, for every file that has some. "Turns".

    turnties SoftRealTies, r2, r4, r5
    turnties SoftImaginaryTies, r6, r10, r9

    farturn SoftFarTurnRe, r2, r3, r10, r11
    farturn SoftFarTurnIm, r4, r5, r6, r7
