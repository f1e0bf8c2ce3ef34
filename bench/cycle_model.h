// A model of the cycles that three ARM processors take for a trace of executed instructions. It
// follows the timing chapters of their public reference manuals. Instructions are issued in order
// and wait for their operands; loads and products deliver their results later. Caches, the table of
// pages and branch prediction are modelled.
//
// Left out are write buffers, contention for the bus, work that goes on during a miss, and
// prefetching. A full set of a cache always replaces the line that was used least recently. The
// figures are therefore good to 5 to 10 %.
#pragma once
#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

#include "bench/arm_instruction.h"

namespace cycles {

// Holds what tells the processors apart, in cycles unless a comment says otherwise.
struct Rules {
    const char* name;
    bool issuesTwo = false;   // in a cycle; never two products, two accesses or dependent ones
    int early = 0;            // early operands are wanted that much earlier than others,
    int stored = 0;           // stored ones that much later,
    int accumulated = 1;      // and accumulated ones that much later
    int shiftByRegister = 2;  // until the next instruction: after a shift by a register,
    int twoWords = 2;         // LDRD and STRD,
    int complexAddress = 1;   // a load or store of a complex address,
    int leastMany = 1;        // LDM and STM at least,
    int wordsACycle = 2;      // which move that many words in a cycle
    int loaded, loadedPart,
        loadedComplex;                  // until a result is ready: a word, less, complex address
    int product, lower, upper, half;    // MUL; the words of a long product; a product of halves
    uint32_t cacheBytes, lineBytes;     // of the instruction and of the data cache, 4 ways
    uint32_t pages = 64, pageWays = 2;  // held in the table of pages
    int pageMiss, miss;                 // a miss of this table; a miss of all caches
    int secondLevel = 0;  // a miss that the second-level cache of 256 KiB holds; 0: there is none
};
inline constexpr Rules kRules[] = {
    {.name = "ARM926EJ-S",
     .leastMany = 2,
     .wordsACycle = 1,
     .loaded = 2,
     .loadedPart = 3,
     .loadedComplex = 2,
     .product = 3,
     .lower = 3,
     .upper = 4,
     .half = 2,
     .cacheBytes = 16384,
     .lineBytes = 32,
     .pageMiss = 45,
     .miss = 45},
    {.name = "ARM1136",
     .early = 1,
     .stored = 1,
     .twoWords = 1,
     .complexAddress = 2,
     .loaded = 3,
     .loadedPart = 3,
     .loadedComplex = 4,
     .product = 4,
     .lower = 4,
     .upper = 5,
     .half = 3,
     .cacheBytes = 32768,
     .lineBytes = 32,
     .pageMiss = 60,
     .miss = 60},
    {.name = "Cortex-A8",
     .issuesTwo = true,
     .early = 1,
     .stored = 1,
     .accumulated = 3,
     .shiftByRegister = 1,
     .loaded = 2,
     .loadedPart = 2,
     .loadedComplex = 2,
     .product = 5,
     .lower = 6,
     .upper = 6,
     .half = 4,
     .cacheBytes = 32768,
     .lineBytes = 64,
     .pages = 32,
     .pageWays = 32,
     .pageMiss = 20,
     .miss = 150,
     .secondLevel = 9},
};
inline constexpr size_t kProcessors = std::size(kRules);

// An instruction's times on one processor.
struct Timed {
    struct At {
        uint8_t number;  // of a register
        int8_t cycle;    // counted from the issue
    };
    int cycles = 1;  // until the next instruction can be issued
    uint8_t wantedCount = 0, readyCount = 0;
    At wanted[18], ready[16];  // operands and results
};

inline Timed TimesOf(const Instruction& instruction, const Rules& rules) {
    const Kind kind = instruction.kind;
    const int words = instruction.words;
    const bool many = kind == Kind::kLoadMany || kind == Kind::kStoreMany;
    Timed made;
    if (kind == Kind::kShiftByRegister) made.cycles = rules.shiftByRegister;
    if (kind == Kind::kMultiply || (kind == Kind::kOther && !rules.issuesTwo)) made.cycles = 2;
    if (kind == Kind::kMultiplyLong) made.cycles = 3;
    if (many)
        made.cycles =
            std::max(rules.leastMany, (words + rules.wordsACycle - 1) / rules.wordsACycle);
    else if (instruction.UsesMemory() && words == 2)
        made.cycles = rules.twoWords;
    else if (instruction.complexAddress)
        made.cycles = rules.complexAddress;

    const auto at = [](size_t r, int cycle) {
        return Timed::At{static_cast<uint8_t>(r), static_cast<int8_t>(cycle)};
    };
    int loadedBefore = 0;
    for (size_t r = 0; r < 15; ++r) {
        const auto in = [r](Registers set) { return (set >> r & 1U) != 0; };
        if (in(instruction.early)) made.wanted[made.wantedCount++] = at(r, -rules.early);
        if (in(instruction.operands)) made.wanted[made.wantedCount++] = at(r, 0);
        if (in(instruction.late))
            made.wanted[made.wantedCount++] =
                at(r, instruction.Multiplies() ? rules.accumulated : rules.stored);
        if (!in(instruction.results)) continue;
        int ready = 1;
        if (in(instruction.base))
            ready = 1;
        else if (kind == Kind::kShiftByRegister)
            ready = rules.shiftByRegister;
        else if (kind == Kind::kLoadMany)
            ready = rules.loaded + loadedBefore++ / rules.wordsACycle;
        else if (kind == Kind::kLoad && words == 2)
            ready = rules.loaded + loadedBefore++ * (rules.twoWords - 1);
        else if (kind == Kind::kLoad)
            ready = std::max(instruction.partOfWord ? rules.loadedPart : rules.loaded,
                             instruction.complexAddress ? rules.loadedComplex : 0);
        else if (kind == Kind::kMultiply)
            ready = rules.product;
        else if (kind == Kind::kMultiplyLong)
            ready = in(instruction.upperHalf) ? rules.upper : rules.lower;
        else if (kind == Kind::kMultiplyHalf)
            ready = rules.half;
        made.ready[made.readyCount++] = at(r, ready);
    }
    return made;
}

// Keeps the lines that were used last in each of its sets.
class Cache {
public:
    // All sizes are powers of two.
    Cache(uint32_t bytes, uint32_t ways, uint32_t lineBytes)
        : ways_(ways),
          lineBits_(static_cast<uint32_t>(std::countr_zero(lineBytes))),
          lastSet_(bytes / ways / lineBytes - 1),
          lines_(bytes / lineBytes, ~uint32_t{0}) {}
    uint32_t LineOf(uint32_t address) const { return address >> lineBits_; }
    // Returns whether the address was held. If it wasn't and `allocate` is set, it is from now on.
    bool Holds(uint32_t address, bool allocate = true) {
        const uint32_t line = LineOf(address);
        uint32_t* const first = lines_.data() + size_t{line & lastSet_} * ways_;
        uint32_t* const end = first + ways_;
        if (*first == line) return true;
        uint32_t* at = std::find(first, end, line);
        const bool held = at != end;
        if (!held && !allocate) return false;
        if (!held) *--at = line;
        std::rotate(first, at, at + 1);
        return held;
    }

private:
    const uint32_t ways_, lineBits_, lastSet_;
    std::vector<uint32_t> lines_;  // of each set in turn, the line that was used last first
};

class Processor {
public:
    explicit Processor(const Rules& rules)
        : rules_(rules),
          code_(rules.cacheBytes, 4, rules.lineBytes),
          data_(rules.cacheBytes, 4, rules.lineBytes),
          second_(262144, 8, rules.lineBytes),
          pages_(rules.pages * kPage, rules.pageWays, kPage) {}

    // Executes an instruction, which accessed memory at the `count` addresses in the
    // lower halves of `addresses`. `next` is the
    // address of the instruction that followed.
    void Execute(const Instruction& instruction, const Timed& timed, const uint64_t* addresses,
                 size_t count, uint32_t next) {
        const bool taken = next != instruction.address + instruction.size;
        const bool idle = instruction.conditional && (instruction.UsesMemory() ? count == 0
                                                      : instruction.Branches() ? !taken
                                                                               : false);
        int64_t issue = now_ + Fetch(instruction.address);
        if (!idle)
            for (size_t n = 0; n < timed.wantedCount; ++n)
                issue = std::max(issue, ready_[timed.wanted[n].number] - timed.wanted[n].cycle);
        const int cycles = idle ? 1 : timed.cycles;
        const bool second = issue == now_ && cycles == 1 && IsSecond(instruction);
        if (second) --issue;
        int waits = 0;
        for (size_t n = 0; n < count; ++n)
            waits += Access(data_, static_cast<uint32_t>(addresses[n]), instruction.Loads());
        if (!idle)
            for (size_t n = 0; n < timed.readyCount; ++n)
                ready_[timed.ready[n].number] = issue + timed.ready[n].cycle + waits;
        now_ = issue + cycles + waits;
        if (instruction.Branches() && !(idle && instruction.UsesMemory()))
            now_ += BranchCycles(instruction, taken, next);
        before_ = rules_.issuesTwo && !second && instruction.kind != Kind::kOther &&
                          !(instruction.Branches() && taken)
                      ? &instruction
                      : nullptr;
    }
    int64_t Now() const { return now_; }  // cycles since construction

private:
    static constexpr uint32_t kPage = 4096;
    struct Prediction {
        uint32_t address = 0;
        uint8_t taken = 0;  // 0 to 3; predicted to be taken from 2 on
    };

    // Returns the cycles that fetching takes longer. A line is looked up once while it is in use.
    int Fetch(uint32_t address) {
        const uint32_t line = code_.LineOf(address);
        if (line == line_) return 0;
        line_ = line;
        return Access(code_, address, true);
    }
    // Returns the cycles that an access takes longer. Only loads wait for a missing line and keep
    // it.
    int Access(Cache& cache, uint32_t address, bool loads) {
        const int page = pages_.Holds(address) ? 0 : rules_.pageMiss;
        if (cache.Holds(address, loads) || !loads) return page;
        const bool held = rules_.secondLevel != 0 && second_.Holds(address);
        return page + (held ? rules_.secondLevel : rules_.miss);
    }
    // Returns whether this instruction can be issued together with the one before it.
    bool IsSecond(const Instruction& instruction) const {
        if (before_ == nullptr || instruction.Multiplies() || instruction.kind == Kind::kOther)
            return false;
        if (instruction.UsesMemory() &&
            (before_->kind == Kind::kLoad || before_->kind == Kind::kStore))
            return false;
        const Registers stored = instruction.UsesMemory() ? Registers{0} : instruction.late;
        return (before_->results &
                (instruction.early | instruction.operands | stored | instruction.results)) == 0;
    }

    // Returns the cycles that a branch takes longer.
    int BranchCycles(const Instruction& branch, bool taken, uint32_t next) {
        if (rules_.issuesTwo) return PredictedByHistory(branch, taken, next);
        if (rules_.early != 0) return PredictedByAddress(branch, taken);
        if (!taken) return 0;
        return branch.UsesMemory() ? 4 : 2;
    }
    // ARM1136: a table of 128 branches. A branch that isn't there is predicted to be taken if it is
    // unconditional or leads backward.
    int PredictedByAddress(const Instruction& branch, bool taken) {
        if (branch.kind != Kind::kBranch) return !taken ? 0 : branch.returns ? 3 : 6;
        Prediction& entry = branches_[branch.address / 4 % 128];
        const bool known = entry.address == branch.address;
        const bool predicted =
            !branch.conditional || (known ? entry.taken >= 2 : branch.target < branch.address);
        if (taken && !known) entry = {branch.address, 2};
        if (taken || known) Learn(entry, taken);
        if (predicted != taken) return 5;
        return taken && !known ? 3 : 0;
    }
    // Cortex-A8: 4096 counters by address and the last ten conditional branches; 512 targets of
    // branches to registers. Returns are always predicted.
    int PredictedByHistory(const Instruction& branch, bool taken, uint32_t next) {
        constexpr int kWrong = 12;
        if (branch.kind != Kind::kBranch) {
            uint32_t& target = targets_[branch.address / 4 % targets_.size()];
            if (!taken || branch.returns || target == next) return 0;
            target = next;
            return kWrong;
        }
        if (!branch.conditional) return 0;
        Prediction& entry = branches_[(branch.address / 2 ^ history_ * 4) % branches_.size()];
        const bool predicted = entry.taken >= 2;
        Learn(entry, taken);
        history_ = (history_ * 2 + (taken ? 1 : 0)) % 1024;
        return predicted != taken ? kWrong : 0;
    }
    static void Learn(Prediction& entry, bool taken) {
        if (taken && entry.taken < 3) ++entry.taken;
        if (!taken && entry.taken > 0) --entry.taken;
    }

    const Rules& rules_;
    Cache code_, data_, second_, pages_;
    int64_t now_ = 0;                      // when the next instruction can be issued
    int64_t ready_[16] = {};               // when each register is
    uint32_t line_ = ~uint32_t{0};         // the line of code that is in use
    const Instruction* before_ = nullptr;  // issued in the cycle before `now_`, which has room left
    std::array<Prediction, 4096> branches_;
    std::array<uint32_t, 512> targets_ = {};
    uint32_t history_ = 0;  // of conditional branches, the last one in bit 0
};

}  // namespace cycles
