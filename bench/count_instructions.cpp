// Plug-in of qemu-user that counts the instructions which `chain_load` executes inside the effect's
// process calls. It counts them per call, and by stage of the chain and function.
//
// A stage begins when the unit, which runs the chain, enters a function of the stage's class. It
// ends when control returns to the unit. Functions that the stage calls (arithmetic helpers,
// memcpy) count for the stage. The unit is left when control returns to the caller.
//
// The plug-in counts whole blocks of translated code, each for the function in which it begins. A
// conditional instruction counts whether or not its condition holds. Neither clock nor sampling is
// used, so runs are repeatable.
//
// It also watches instructions that load or store two words at once. The processor executes them
// only at addresses that are multiples of 8, but the emulator accepts any address.
//
// Arguments:
//   symbols=FILE  the output of `nm -nC` for the program, which must be linked statically and at
//   fixed
//                 addresses. It is needed because the emulator's own look-up confuses functions
//                 that overlap.
//   entry=NAME    count the calls of this function of the interface (InterfaceCommand) instead of
//                 InterfaceProcess
//   cycles=yes    also model the cycles that three processors take (cycle_model.h). Only for code
//                 of ARMv5TE. Takes ten times as long.
//
// Prints lines of fields that are separated by tabs:
//   calls N                   the number of calls
//   worst N                   the instructions of the slowest call
//   stage STAGE               each stage, in the chain's order
//   count STAGE N NAME        the instructions of a function that count for a stage
//   misaligned NAME           a function that accessed two words at another address
//   cycles PROCESSOR STAGE N  the cycles of a stage
//   worst-cycles PROCESSOR N  the cycles of the slowest call
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "bench/cycle_model.h"
#include "table/stages.h"

// The part of QEMU's plug-in interface, version 1, that is used here.
extern "C" {
using qemu_plugin_id_t = uint64_t;
struct qemu_info_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* tb);
uint64_t qemu_plugin_tb_vaddr(const qemu_plugin_tb* tb);
uint64_t qemu_plugin_insn_vaddr(const qemu_plugin_insn* instruction);
qemu_plugin_insn* qemu_plugin_tb_get_insn(const qemu_plugin_tb* tb, size_t index);
const void* qemu_plugin_insn_data(const qemu_plugin_insn* instruction);
size_t qemu_plugin_insn_size(const qemu_plugin_insn* instruction);
void qemu_plugin_register_vcpu_mem_cb(qemu_plugin_insn* instruction,
                                      void (*callback)(unsigned, uint32_t, uint64_t, void*),
                                      int flags, int readsAndWrites, void* data);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*callback)(qemu_plugin_id_t, qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_cb(qemu_plugin_tb* tb, void (*callback)(unsigned, void*),
                                          int flags, void* data);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*callback)(qemu_plugin_id_t, void*),
                                    void* data);
void qemu_plugin_outs(const char* text);

__attribute__((visibility("default"))) int qemu_plugin_version = 1;
__attribute__((visibility("default"))) int qemu_plugin_install(qemu_plugin_id_t id,
                                                               const qemu_info_t* info, int argc,
                                                               char** argv);
}

namespace {

// A part of the program to which instructions are assigned: the caller, the unit, or a stage of the
// table. Functions of kNobody count for the part that calls them.
using Part = size_t;
constexpr Part kCaller = 0, kUnit = 1, kFirstStage = 2, kNobody = kFirstStage + std::size(kStages);
std::string NameOf(Part part) {
    return part == kUnit ? "unit" : kStages[part - kFirstStage].name;
}

struct Function {
    std::string name;
    Part owner = kNobody;
    uint64_t counts[kNobody] = {};
    bool misaligned = false;
};
// An instruction with its times on each processor.
struct Modelled {
    cycles::Instruction instruction;
    cycles::Timed timed[cycles::kProcessors];
};
struct Block {
    Function* function;
    uint64_t instructions, address;
    std::vector<Modelled> modelled;  // empty without `cycles=yes`
};
// Counts cycles on one processor.
struct Cycles {
    explicit Cycles(const cycles::Rules& rules) : processor(rules) {}
    cycles::Processor processor;
    int64_t counts[kNobody] = {};
    int64_t callBegan = 0, worst = 0;
};
// An instruction that loads or stores two words: the emulator accesses one after the other.
struct TwoWords {
    Function* function;
    bool second;
};

std::string entry = "InterfaceProcess";
std::map<uint64_t, Function> functions;  // by address
// The emulator keeps addresses of these elements, so they must not move.
std::deque<Block> blocks;
std::deque<TwoWords> twoWords;
std::deque<Cycles> processors;  // empty without `cycles=yes`
// The block that is being executed, and what it has accessed. It is modelled when it has ended,
// because only then is it known which of its instructions accessed memory and whether it branched.
const Block* running = nullptr;
std::vector<uint64_t>
    accesses;  // the address of the code in the upper half, of the data in the lower
Part stage = kCaller;
uint64_t calls = 0, inThisCall = 0, worst = 0;

// Finds the part that a function belongs to by a piece of its name. The first match counts.
Part OwnerOf(const std::string& name) {
    const auto has = [&name](const char* part) { return name.find(part) != std::string::npos; };
    if (name == "main" || has("Instance::")) return kCaller;
    if (has("ProcessUnit_Orvane") || has("Chain::") || has("InterfaceProcess")) return kUnit;
    for (size_t n = 0; n < std::size(kStages); ++n)
        if (has(kStages[n].className)) return kFirstStage + n;
    return kNobody;
}

// Models the block that was executed, for the present stage. The block at `next` follows.
void ModelBlock(uint64_t next) {
    if (running == nullptr) return;
    const std::vector<Modelled>& modelled = running->modelled;
    for (size_t p = 0; p < processors.size(); ++p) {
        cycles::Processor& processor = processors[p].processor;
        const int64_t began = processor.Now();
        size_t at = 0;  // in `accesses`
        for (size_t n = 0; n < modelled.size(); ++n) {
            const cycles::Instruction& instruction = modelled[n].instruction;
            const size_t first = at;
            while (at < accesses.size() && accesses[at] >> 32U == instruction.address) ++at;
            processor.Execute(instruction, modelled[n].timed[p], accesses.data() + first,
                              at - first,
                              n + 1 < modelled.size() ? modelled[n + 1].instruction.address
                                                      : static_cast<uint32_t>(next));
        }
        processors[p].counts[stage] += processor.Now() - began;
    }
    running = nullptr;
    accesses.clear();
}

void FinishCall() {
    for (Cycles& on : processors) {
        on.worst = std::max(on.worst, on.processor.Now() - on.callBegan);
        on.callBegan = on.processor.Now();
    }
    ++calls;
    if (inThisCall > worst) worst = inThisCall;
    inThisCall = 0;
}

void Executed(unsigned, void* data) {
    const Block& block = *static_cast<const Block*>(data);
    Function& function = *block.function;
    ModelBlock(block.address);
    if (stage == kCaller) {
        if (function.name.find(entry) == std::string::npos) return;
        stage = kUnit;
    } else if (function.owner == kCaller) {
        FinishCall();
        stage = kCaller;
        return;
    } else if (function.owner == kUnit) {
        stage = kUnit;
    } else if (stage == kUnit && function.owner != kNobody) {
        stage = function.owner;
    }
    function.counts[stage] += block.instructions;
    inThisCall += block.instructions;
    if (!processors.empty()) running = &block;
}

void AccessedModelled(unsigned, uint32_t, uint64_t address, void* data) {
    if (running == nullptr) return;
    const auto& instruction = *static_cast<const cycles::Instruction*>(data);
    accesses.push_back(uint64_t{instruction.address} << 32U | static_cast<uint32_t>(address));
}

void Accessed(unsigned, uint32_t, uint64_t address, void* data) {
    TwoWords& access = *static_cast<TwoWords*>(data);
    if (!access.second && address % 8 != 0) access.function->misaligned = true;
    access.second = !access.second;
}

uint32_t CodeOf(const qemu_plugin_insn* instruction) {
    uint32_t code = 0;
    std::memcpy(&code, qemu_plugin_insn_data(instruction), qemu_plugin_insn_size(instruction));
    return code;
}

// Returns true for LDRD and STRD in ARM state.
bool TakesTwoWords(const qemu_plugin_insn* instruction) {
    if (qemu_plugin_insn_size(instruction) != sizeof(uint32_t)) return false;
    const uint32_t code = CodeOf(instruction);
    return (code & 0x0e1000d0U) == 0xd0U && code >> 28U != 15U;
}

// Decodes a block's instructions. A block is in one state, and only Thumb state has instructions of
// two bytes.
void Model(qemu_plugin_tb* tb, Block& block) {
    bool thumb = false;
    for (size_t i = 0; i < block.instructions; ++i)
        thumb |= qemu_plugin_insn_size(qemu_plugin_tb_get_insn(tb, i)) == 2;
    block.modelled.reserve(block.instructions);  // the emulator keeps addresses of the elements
    for (size_t i = 0; i < block.instructions; ++i) {
        qemu_plugin_insn* const instruction = qemu_plugin_tb_get_insn(tb, i);
        const auto address = static_cast<uint32_t>(qemu_plugin_insn_vaddr(instruction));
        block.modelled.push_back(
            {cycles::Decode(address, CodeOf(instruction),
                            static_cast<uint8_t>(qemu_plugin_insn_size(instruction)), thumb),
             {}});
        Modelled& one = block.modelled.back();
        for (size_t p = 0; p < cycles::kProcessors; ++p)
            one.timed[p] = cycles::TimesOf(one.instruction, cycles::kRules[p]);
        if (one.instruction.UsesMemory())
            qemu_plugin_register_vcpu_mem_cb(instruction, AccessedModelled, 0, 3, &one.instruction);
    }
}

void Translated(qemu_plugin_id_t, qemu_plugin_tb* tb) {
    const auto next = functions.upper_bound(qemu_plugin_tb_vaddr(tb));
    if (next == functions.begin()) return;
    Function* const function = &std::prev(next)->second;
    const size_t instructions = qemu_plugin_tb_n_insns(tb);
    blocks.push_back({function, instructions, qemu_plugin_tb_vaddr(tb), {}});
    if (!processors.empty()) Model(tb, blocks.back());
    qemu_plugin_register_vcpu_tb_exec_cb(tb, Executed, 0, &blocks.back());
    for (size_t i = 0; i < instructions; ++i) {
        qemu_plugin_insn* const instruction = qemu_plugin_tb_get_insn(tb, i);
        if (!TakesTwoWords(instruction)) continue;
        twoWords.push_back({function, false});
        qemu_plugin_register_vcpu_mem_cb(instruction, Accessed, 0, 3, &twoWords.back());
    }
}

void Report(qemu_plugin_id_t, void*) {
    std::string text =
        "calls\t" + std::to_string(calls) + "\nworst\t" + std::to_string(worst) + "\n";
    for (Part part = kUnit; part < kNobody; ++part) text += "stage\t" + NameOf(part) + "\n";
    for (size_t p = 0; p < processors.size(); ++p) {
        const std::string name = cycles::kRules[p].name;
        text += "worst-cycles\t" + name + "\t" + std::to_string(processors[p].worst) + "\n";
        for (Part part = kUnit; part < kNobody; ++part)
            text += "cycles\t" + name + "\t" + NameOf(part) + "\t" +
                    std::to_string(processors[p].counts[part]) + "\n";
    }
    for (const auto& [address, function] : functions) {
        if (function.misaligned) text += "misaligned\t" + function.name + "\n";
        for (Part part = kUnit; part < kNobody; ++part)
            if (function.counts[part] != 0)
                text += "count\t" + NameOf(part) + "\t" + std::to_string(function.counts[part]) +
                        "\t" + function.name + "\n";
    }
    qemu_plugin_outs(text.c_str());
}

// Reads lines of an address, a letter and a name. If an address has several names, takes that of
// the ARM run-time interface, or else the first. Returns false if there is no symbol.
bool ReadSymbols(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        std::istringstream words(line);
        uint64_t address = 0;
        char kind = 0;
        std::string name;
        if (!(words >> std::hex >> address >> kind) || !std::getline(words >> std::ws, name) ||
            std::string("tTwW").find(kind) == std::string::npos)
            continue;
        Function& function = functions[address];
        if (!function.name.empty() && name.rfind("__aeabi_", 0) != 0) continue;
        function.name = name;
        function.owner = OwnerOf(name);
    }
    return !functions.empty();
}

}  // namespace

int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t*, int argc, char** argv) {
    std::string symbols;
    for (int i = 0; i < argc; ++i) {
        const std::string argument = argv[i];
        const size_t equals = argument.find('=');
        if (equals == std::string::npos) return 1;
        const std::string key = argument.substr(0, equals), value = argument.substr(equals + 1);
        if (key == "symbols")
            symbols = value;
        else if (key == "entry")
            entry = value;
        else if (key == "cycles" && value == "yes")
            for (const cycles::Rules& rules : cycles::kRules) processors.emplace_back(rules);
        else
            return 1;
    }
    if (!ReadSymbols(symbols)) return 1;
    qemu_plugin_register_vcpu_tb_trans_cb(id, Translated);
    qemu_plugin_register_atexit_cb(id, Report, nullptr);
    return 0;
}
