// What decides the time that an ARM instruction takes (ARMv5TE, ARM or Thumb state). This is the
// registers that it reads and changes, and the kind of its work.
#pragma once
#include <cstdint>

namespace cycles {

using Registers = uint16_t;  // a set: bit n stands for register n

enum class Kind : uint8_t {
    kSimple,
    kShiftByRegister,
    kMultiply,
    kMultiplyLong,
    kMultiplyHalf,  // by halves of words, and saturating sums
    kLoad,
    kStore,
    kLoadMany,
    kStoreMany,
    kBranch,            // to a fixed address
    kBranchToRegister,  // also anything else that computes the next address
    kOther,
};

struct Instruction {
    Kind kind = Kind::kOther;
    Registers early = 0;     // operands that are wanted early: shifted, multiplied, addresses
    Registers operands = 0;  // other operands
    Registers late = 0;      // operands that are wanted late: stored or accumulated
    Registers results = 0;
    Registers base = 0;       // the result that is an updated address
    Registers upperHalf = 0;  // the result that is the upper word of a long product
    uint8_t words = 0;        // loaded or stored
    bool conditional = false;
    bool partOfWord = false;      // loads a byte or a halfword
    bool complexAddress = false;  // the offset is shifted other than by 0 or 2, or subtracted
    bool returns = false;         // a branch to where the function was called
    bool loadsNext = false;       // loads the next address
    uint8_t size = 4;             // bytes
    uint32_t address = 0;
    uint32_t target = 0;  // of kBranch

    bool Multiplies() const { return kind >= Kind::kMultiply && kind <= Kind::kMultiplyHalf; }
    bool UsesMemory() const { return kind >= Kind::kLoad && kind <= Kind::kStoreMany; }
    bool Loads() const { return kind == Kind::kLoad || kind == Kind::kLoadMany; }
    bool Branches() const {
        return kind == Kind::kBranch || kind == Kind::kBranchToRegister || loadsNext;
    }
};

constexpr Registers Register(uint32_t number) {
    return static_cast<Registers>(1U << number);
}
constexpr Registers kStack = Register(13), kLink = Register(14);
inline uint8_t CountOf(uint32_t registers) {
    return static_cast<uint8_t>(__builtin_popcount(registers));
}
// Returns the lowest `bits` bits of value as a signed number, times 2.
inline uint32_t TwiceSigned(uint32_t value, unsigned bits) {
    return static_cast<uint32_t>(static_cast<int32_t>(value << (32U - bits)) >>
                                 static_cast<int>(31U - bits));
}

inline Instruction Of(Kind kind, Registers early, Registers operands, Registers results) {
    Instruction made;
    made.kind = kind;
    made.early = early;
    made.operands = operands;
    made.results = results;
    return made;
}
// Loads or stores `registers`; the address is made of `early`.
inline Instruction Moving(bool loads, bool many, Registers early, uint32_t registers) {
    const Kind kind =
        many ? (loads ? Kind::kLoadMany : Kind::kStoreMany) : (loads ? Kind::kLoad : Kind::kStore);
    Instruction made = Of(kind, early, 0, 0);
    made.words = CountOf(registers);
    made.loadsNext = loads && (registers & Register(15)) != 0;
    (loads ? made.results : made.late) = static_cast<Registers>(registers & 0x7fffU);
    return made;
}
inline void UpdateBase(Instruction& moving, Registers base) {
    moving.base = base;
    moving.results |= base;
}

inline Instruction DecodeArm(uint32_t address, uint32_t code) {
    const auto field = [code](unsigned bit) { return Register(code >> bit & 15U); };
    const auto bit = [code](unsigned n) { return (code >> n & 1U) != 0; };
    const auto is = [code](uint32_t mask, uint32_t value) { return (code & mask) == value; };
    const auto either = [](Registers a, Registers b) { return static_cast<Registers>(a | b); };
    const Registers n = field(16), d = field(12), s = field(8), m = field(0);
    const bool always = code >> 28U == 15U;  // instructions without a condition
    if (is(0x0e000000, 0x0a000000)) {        // B, BL, BLX
        Instruction made = Of(Kind::kBranch, 0, 0, always || bit(24) ? kLink : Registers{0});
        made.target = address + 8 + 2 * TwiceSigned(code, 24);
        return made;
    }
    if (always) return Of(Kind::kSimple, 0, 0, 0);  // PLD
    if (is(0x0fc000f0, 0x00000090)) {               // MUL, MLA
        Instruction made = Of(Kind::kMultiply, either(m, s), 0, n);
        if (bit(21)) made.late = d;
        return made;
    }
    if (is(0x0f8000f0, 0x00800090)) {  // UMULL, SMULL, UMLAL, SMLAL
        Instruction made = Of(Kind::kMultiplyLong, either(m, s), 0, either(d, n));
        made.upperHalf = n;
        if (bit(21)) made.late = made.results;
        return made;
    }
    if (is(0x0f900090, 0x01000080)) {  // SMLAxy, SMLAWy, SMULWy, SMLALxy, SMULxy
        Instruction made = Of(Kind::kMultiplyHalf, either(m, s), 0, n);
        if (is(0x00600000, 0x00400000)) made.late = made.results = either(d, n);
        if (is(0x00600000, 0) || is(0x00600020, 0x00200000)) made.late = d;
        return made;
    }
    if (is(0x0e000090, 0x00000090) && (code & 0x60U) != 0) {  // halfwords, signed bytes, two words
        const bool two = !bit(20) && bit(6);
        const auto second = static_cast<Registers>(two ? d << 1U : 0);
        const Registers address0 = bit(22) ? n : either(n, m);
        Instruction made = Moving(bit(20) || is(0x60, 0x40), false, address0, either(d, second));
        made.partOfWord = bit(20);
        if (bit(21) || !bit(24)) UpdateBase(made, n);
        return made;
    }
    if (is(0x0f900000, 0x01000000) && !bit(7)) {
        if (is(0x0fffffd0, 0x012fff10)) {  // BX, BLX
            Instruction made = Of(Kind::kBranchToRegister, 0, m, bit(5) ? kLink : Registers{0});
            made.returns = m == kLink && !bit(5);
            return made;
        }
        if (is(0x0fff0ff0, 0x016f0f10)) return Of(Kind::kSimple, m, 0, d);  // CLZ
        if (is(0x0f9000f0, 0x01000050)) return Of(Kind::kMultiplyHalf, 0, either(m, n), d);
        return Of(Kind::kOther, 0, 0, d);  // MRS, MSR
    }
    if (is(0x0c000000, 0)) {  // arithmetic
        if (is(0x0fb0f000, 0x0320f000)) return Of(Kind::kOther, 0, 0, 0);
        const bool moves = is(0x01a00000, 0x01a00000), compares = is(0x01800000, 0x01000000);
        Instruction made =
            Of(Kind::kSimple, 0, moves ? Registers{0} : n, compares ? Registers{0} : d);
        if (!bit(25) && bit(4)) {
            made.kind = Kind::kShiftByRegister;
            made.early = either(m, s);
        } else if (!bit(25)) {
            ((code & 0xfe0U) != 0 ? made.early : made.operands) |= m;
        }
        if (!compares && d == Register(15)) {
            made.kind = Kind::kBranchToRegister;
            made.results = 0;
        }
        return made;
    }
    if (is(0x0c000000, 0x04000000) && !is(0x02000010, 0x02000010)) {  // LDR, STR
        Instruction made = Moving(bit(20), false, bit(25) ? either(n, m) : n, d);
        made.partOfWord = bit(22);
        const bool scaled = is(0xfe0, 0) || is(0xfe0, 0x100);
        made.complexAddress = bit(25) && (!bit(23) || !scaled);
        made.returns = n == kStack;
        if (bit(21) || !bit(24)) UpdateBase(made, n);
        return made;
    }
    if (is(0x0e000000, 0x08000000)) {  // LDM, STM
        Instruction made = Moving(bit(20), true, n, code & 0xffffU);
        made.returns = true;
        if (bit(21)) UpdateBase(made, n);
        return made;
    }
    return Of(Kind::kOther, 0, 0, 0);
}

inline Instruction DecodeThumb(uint32_t address, uint32_t code) {
    const auto low = [code](unsigned bit) { return Register(code >> bit & 7U); };
    const auto bit = [code](unsigned n) { return (code >> n & 1U) != 0; };
    const auto either = [](Registers a, Registers b) { return static_cast<Registers>(a | b); };
    const Registers d = low(0), m = low(3), n = low(6), wide = low(8);
    const Registers highD = Register((code & 7U) | (code >> 4U & 8U));
    const Registers highM = Register(code >> 3U & 15U);
    Instruction made;
    switch (code >> 12U & 15U) {
        case 0:
        case 1:  // shifts by a number; sums of three operands
            if (!bit(12) || !bit(11)) return Of(Kind::kSimple, m, 0, d);
            return Of(Kind::kSimple, 0, bit(10) ? m : either(m, n), d);
        case 2:
        case 3:  // MOV, CMP, ADD, SUB with a number
            return Of(Kind::kSimple, 0, (code & 0x1800U) == 0 ? Registers{0} : wide,
                      (code & 0x1800U) == 0x800U ? Registers{0} : wide);
        case 4: {
            if (bit(11)) return Moving(true, false, 0, wide);  // LDR from near the code
            const unsigned operation = code >> 6U & 15U;
            if (!bit(10)) {
                if (operation == 13) return Of(Kind::kMultiply, either(d, m), 0, d);
                if (operation == 7 || (operation >= 2 && operation <= 4))
                    return Of(Kind::kShiftByRegister, either(d, m), 0, d);
                const bool compares = operation == 8 || operation == 10 || operation == 11;
                return Of(Kind::kSimple, 0, either(d, m), compares ? Registers{0} : d);
            }
            if (operation >= 12) {  // BX, BLX
                made = Of(Kind::kBranchToRegister, 0, highM, bit(7) ? kLink : Registers{0});
                made.returns = highM == kLink && !bit(7);
                return made;
            }
            const bool jumps = highD == Register(15), moves = operation >= 8;
            const bool compares = !moves && operation >= 4;
            return Of(jumps ? Kind::kBranchToRegister : Kind::kSimple, 0,
                      moves ? highM : either(highD, highM),
                      compares || jumps ? Registers{0} : highD);
        }
        case 5: {  // with an offset in a register
            const unsigned operation = code >> 9U & 7U;
            made = Moving(operation >= 3, false, either(m, n), d);
            made.partOfWord = operation != 0 && operation != 4;
            return made;
        }
        case 6:
        case 7:
        case 8:  // with a fixed offset
            made = Moving(bit(11), false, m, d);
            made.partOfWord = code >> 12U != 6U;
            return made;
        case 9:
            return Moving(bit(11), false, kStack, wide);
        case 10:  // an address near the code or on the stack
            return Of(Kind::kSimple, 0, bit(11) ? kStack : Registers{0}, wide);
        case 11:
            if ((code & 0x600U) != 0x400U) return Of(Kind::kSimple, 0, kStack, kStack);
            made = Moving(bit(11), true, kStack,
                          (code & 0xffU) | (bit(8) ? (bit(11) ? 0x8000U : 0x4000U) : 0U));
            made.returns = true;
            UpdateBase(made, kStack);
            return made;
        case 12:
            made = Moving(bit(11), true, wide, code & 0xffU);
            UpdateBase(made, wide);
            return made;
        case 13:
            made = Of(Kind::kBranch, 0, 0, 0);
            made.conditional = true;
            made.target = address + 4 + TwiceSigned(code, 8);
            return made;
        case 14:
            made = Of(Kind::kBranch, 0, 0, 0);
            made.target = address + 4 + TwiceSigned(code, 11);
            return made;
        default:  // BL, BLX
            return Of(Kind::kBranch, 0, 0, kLink);
    }
}

// Decodes an instruction of `size` bytes. Two halfwords of Thumb code make one of 4 bytes, the
// first in the lower half of `code`.
inline Instruction Decode(uint32_t address, uint32_t code, uint8_t size, bool thumb) {
    Instruction made = thumb ? DecodeThumb(address, code) : DecodeArm(address, code);
    if (!thumb) made.conditional = code >> 28U < 14U;
    made.address = address;
    made.size = size;
    return made;
}

}  // namespace cycles
