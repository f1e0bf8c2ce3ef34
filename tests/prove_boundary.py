#!/usr/bin/python3
"""Proves that the library keeps to its callers' memory, whatever they hand over.

The entry points, `process` and `command` of the library are compiled to clang's intermediate code and
executed path by path with unknown inputs: any code, size, content and state, and any pointer null or
not. For every access z3 is asked for an input with which it leaves its object. Then one check is spoilt
in a copy of the sources, five times, and each time such an input must be found.
"""
import itertools
import pathlib
import sys

import z3

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "scripts"))
sys.dont_write_bytecode = True
import llvm_proofs
from llvm_memory import NULL, Block, Memory, Pointer, Violation, concrete, fresh, number
from llvm_paths import Program
from llvm_proofs import harmless, unknown

SOURCES = "host/reply.cpp", "host/effect.cpp", "host/entry_points.cpp", "unit/process_unit_orvane.cpp"
TARGETS = {"x86_64-linux-gnu": "x86-64", "arm-linux-gnueabi": "32-bit ARM"}
ASSUMPTIONS = """assumed:
- The code is what clang 14 makes at -O1. Other compilers and levels get the same sources.
- The blocks of one call don't overlap, and each is as large as the caller says. A reply block whose
  size is not told has 4 bytes. The command block may change between any two reads.
- The chain of processors (construction, reset, parameters, rate, channels, destruction) keeps to its
  own memory. Processing keeps to as many frames of `in` and `out` as it is told, of 2 channels.
- The answer to a question for a parameter leaves two words of the question as they were: the size and
  the identifier. They are the only announced bytes that the library doesn't write.
- Writing a log line reads its texts only. Locks, the clock and the marker file touch nothing here.
- Memory can be refused at any place. Handles are null or come from EffectCreate. The records of audio
  buffers, and the places for a handle and for a count, are aligned."""
REPLIES = {0, 1, 3, 4, 5, 7, 8}  # the codes with a reply; the others leave block and size alone
# The answer to a question for a parameter leaves the question's own words: its size, its identifier.
ANSWER, KEPT = 8, (4, 12)
CONTROLS = {  # what is spoilt: file, text, replacement
    "a size check is left out":
        ("unit/process_unit_orvane.cpp", " || cmdSize < sizeof(effect_config_t)", ""),
    "a size check is off by one":
        ("host/reply.cpp", "offered >= kParameterBytes", "offered + 1 >= kParameterBytes"),
    "a null pointer is accepted":
        ("unit/process_unit_orvane.cpp", "data == nullptr || ", ""),
    "a whole record is copied":
        ("unit/process_unit_orvane.cpp", "size < sizeof *record ? size : sizeof *record",
         "sizeof *record"),
    "a value's size may be any multiple of 4":
        ("unit/process_unit_orvane.cpp",
         "valueBytes != 4 && valueBytes != 8 && valueBytes != 12 && valueBytes != 16",
         "valueBytes % 4 != 0"),
}


def chain(program, memory, arguments, sizes, result):
    """Leaves any content in the chain's own memory."""
    this = arguments[0]
    assert sizes[0] > 0
    program.check(memory, this, sizes[0], True)
    memory.forget_pointers(this.block, this.offset, sizes[0])
    for n in range(sizes[0]):
        memory.put(this.block, this.offset + n, fresh(8))
    yield memory, this if result == ("pointer",) else unknown(program, result)


def processing(program, memory, arguments, _sizes, result):
    frames = z3.ZeroExt(32, arguments[3])
    program.check(memory, arguments[1], frames * 4, False)
    program.check(memory, arguments[2], frames * 4, True)
    yield memory, unknown(program, result)


def state_unknown(program, memory, unit, size=None):
    """Leaves any state in an instance, whose first word is the pointer to its functions."""
    for n in range(program.types.pointer_bytes, size or concrete(unit.block.size)):
        memory.put(unit.block, unit.offset + n, fresh(8))


def log_with(program, memory, log, count):
    """Leaves `count` unknown lines in a log of a configuration."""
    kind = program.types.whole(("named", "%class.DeferredLog"))
    at, word = program.types.member(kind, 1)
    memory.forget_pointers(log.block, log.offset, at)
    for n in range(at):
        memory.put(log.block, log.offset + n, fresh(8))
    program.store(memory, Pointer(log.block, log.offset + at), number(count, word[1]), word, 1)


def log_places(program):
    return program.types.whole(program.types.member(("named", "%class.DeferredLog"), 0)[1])[1]


def configuring(program, memory, arguments, sizes, result):
    """What `configurations` proves: any state and any number of lines, if the log was empty before."""
    unit, record, log = arguments
    assert sizes[0] > 0
    program.check(memory, record, CONFIGURATION_BYTES[program.types.pointer_bytes], False)
    judge_log(program, memory, log, most=0)
    state_unknown(program, memory, unit, sizes[0])
    for count in range(log_places(program) + 1):
        branch = Memory(memory)
        log_with(program, branch, log, count)
        yield branch, unknown(program, result)


CONFIGURATION_BYTES = {8: 112, 4: 64}  # of the record, by the size of a pointer
MODELS = {
    "LogInfo": harmless, "WallClock": harmless, "DataFileExists": harmless,
    "_ZN5Chain7Process": processing, "_ZN5Chain": chain, **llvm_proofs.MODELS,
}
# Proved apart, and then taken for granted where they are called.
CONFIGURE, APPLY = "_ZN6Effect9configure", "_ZN18ProcessUnit_Orvane18ApplyConfiguration"
SET = "_ZN18ProcessUnit_Orvane12SetParameter"


def instances(program, memory, whole_state):
    """Yields the memory after EffectCreate and the handle, or null."""
    uuid = memory.add(Block("uuid", number(16), writable=False, of_caller=True))
    place = memory.add(Block("handle", number(8)))
    for after, status in program.call(memory, "EffectCreate", [uuid, fresh(32), fresh(32), place]):
        if concrete(status) != 0:
            continue
        handle = after.pointers[place.block][0][0]
        if whole_state:  # any state that calls can have left
            state_unknown(program, after, unit_of(program, after, handle))
        yield after, handle


def unit_of(program, memory, handle):
    return memory.pointers[handle.block][program.types.pointer_bytes][0]


def setting(program, memory, arguments, sizes, result):
    """What `parameters` proves: any state, and only the told bytes of the command are read."""
    unit, size, data = arguments
    assert sizes[0] > 0
    if data.block is not None:
        program.check(memory, data, z3.ZeroExt(32, size), False)
    state_unknown(program, memory, unit, sizes[0])
    yield memory, unknown(program, result)


def parameters(program):
    """Any parameter write in any state."""
    program.models = MODELS
    function = next(f for f in program.functions if SET in f)
    for memory, handle in instances(program, program.start(), True):
        size = z3.BitVec("size", 32)
        data = memory.add(command_block(size))
        for given in (NULL, data):
            arguments = [unit_of(program, memory, handle), size, given]
            program.paths += sum(1 for _ in program.call(Memory(memory), function, arguments))


def configurations(program):
    """`configure`, and what follows it, with any record and state, and an empty log."""
    for name, models in ((CONFIGURE, MODELS), (APPLY, {CONFIGURE: configuring, **MODELS})):
        program.models = models
        for memory, handle in instances(program, program.start(), True):
            record = memory.add(Block("the configuration", writable=False, of_caller=True,
                                      size=number(CONFIGURATION_BYTES[program.types.pointer_bytes])))
            log = memory.add(Block("the log", number(
                program.types.size(("named", "%class.DeferredLog")))))
            log_with(program, memory, log, 0)
            function = next(f for f in program.functions if name in f)
            arguments = [unit_of(program, memory, handle), record, log]
            for after, _ in program.call(memory, function, arguments):
                program.paths += 1
                judge_log(program, after, log)
    program.models = {APPLY: configuring, SET: setting, **MODELS}


def judge_log(program, memory, log, most=None):
    """A log has no more lines than it has places."""
    at, word = program.types.member(("named", "%class.DeferredLog"), 1)
    count = program.load(memory, Pointer(log.block, log.offset + at), word, 1)
    if model := program.possible(memory, z3.UGT(count, log_places(program) if most is None else most)):
        raise Violation("the log counts more lines than it has places for", model)


def command_block(size):
    return Block("the command block", z3.ZeroExt(32, size), writable=False, of_caller=True, shared=True)


def commands(program):
    """Every command with every choice of null pointers."""
    start = list(instances(program, program.start(), True))
    for has_data, has_size, has_reply in itertools.product((False, True), repeat=3):
        for made, handle in start:
            memory = Memory(made)
            code, size = z3.BitVecs("code size", 32)
            offered = z3.BitVec("offered", 32)
            data = memory.add(command_block(size)) if has_data else NULL
            word = memory.add(Block("the reply's size", number(4), of_caller=True)) \
                if has_size else NULL
            if has_size:
                for n in range(4):
                    memory.bytes[word.block][number(n)] = z3.Extract(8 * n + 7, 8 * n, offered)
            room = z3.ZeroExt(32, offered) if has_size else number(4)
            reply = memory.add(Block("the reply block", room, of_caller=True)) if has_reply else NULL
            arguments = [handle, code, size, data, word, reply]
            for after, _ in program.call(memory, interface(program, "Command"), arguments):
                program.paths += 1
                if has_size:
                    judge(program, after, code, offered, word, reply)


def judge(program, memory, code, offered, word, reply):
    """The size never grows, and what it announces was written, unless the code has no reply."""
    told = z3.Concat(*[memory.bytes[word.block][number(n)] for n in (3, 2, 1, 0)])
    if model := program.possible(memory, z3.UGT(told, offered)):
        raise Violation("the reply's size grows", model)
    if reply is NULL:
        return
    n = z3.BitVec("position", 64)
    kept = z3.And(code == ANSWER, z3.Or(*[z3.And(z3.UGE(n, at), z3.ULT(n, at + 4)) for at in KEPT]))
    unwritten = z3.And(z3.ULT(n, z3.ZeroExt(32, told)), z3.Not(memory.written[reply.block][n]),
                       z3.Or(*[code == known for known in REPLIES]), z3.Not(kept))
    if model := program.possible(memory, unwritten):
        raise Violation("the size announces what was not written", model)


def interface(program, name):
    return next(function for function in program.functions if f"Interface{name}" in function)


def buffers(program):
    """Every process call with every choice of null pointers."""
    start = list(instances(program, program.start(), True))
    for nulls in itertools.product((False, True), repeat=4):
        for made, handle in start:
            memory = Memory(made)
            sides = []
            for side, (is_null, has_no_samples) in zip(("in", "out"), (nulls[:2], nulls[2:])):
                record = memory.add(Block(side, number(2 * program.types.pointer_bytes)))
                frames = z3.Concat(*[memory.bytes[record.block][number(n)] for n in (3, 2, 1, 0)])
                samples = memory.add(Block(f"samples of {side}", z3.ZeroExt(32, frames) * 4))
                memory.pointers[record.block][program.types.pointer_bytes] = \
                    NULL if has_no_samples else samples, program.types.pointer_bytes
                sides.append(NULL if is_null else record)
            for _ in program.call(memory, interface(program, "Process"), [handle, *sides]):
                program.paths += 1


def entry_points(program):
    """The other functions of the record and of the handle, with every choice of null pointers."""
    def block(memory, name, size, present, writable=True):
        return memory.add(Block(name, number(size), writable, of_caller=True)) if present else NULL

    for first, second in itertools.product((False, True), repeat=2):
        memory = program.start()
        uuid = block(memory, "uuid", 16, first, writable=False)
        descriptor = block(memory, "descriptor", 172, second)
        runs = [("EffectQueryNumberEffects", [memory.add(Block("count", number(4))) if first else NULL]),
                ("EffectQueryEffect", [fresh(32), descriptor]),
                ("EffectGetDescriptor", [uuid, descriptor]),
                ("EffectCreate", [uuid, fresh(32), fresh(32),
                                  memory.add(Block("handle", number(8))) if second else NULL]),
                ("EffectRelease", [NULL])]
        runs += [(interface(program, name), [NULL] * count + rest) for name, count, rest in
                 (("GetDescriptor", 1, [descriptor]), ("Process", 3, []))]
        runs.append((interface(program, "Command"), [NULL, fresh(32), fresh(32), NULL, NULL, NULL]))
        for name, arguments in runs:
            program.paths += sum(1 for _ in program.call(Memory(memory), name, arguments))
        for after, handle in instances(program, memory, False):
            for name, arguments in ((interface(program, "GetDescriptor"), [handle, descriptor]),
                                    ("EffectRelease", [handle])):
                program.paths += sum(1 for _ in program.call(Memory(after), name, arguments))


def prove(target, folder):
    text = "".join(f'#include "{source}"\n' for source in SOURCES)
    program = Program(llvm_proofs.compiled(folder, text, f"--target={target}"), MODELS)
    for part in (parameters, configurations, commands, buffers, entry_points):
        part(program)
    return program, f"{program.paths} paths"


print(ASSUMPTIONS)
held = [llvm_proofs.holds(name, lambda: prove(target, llvm_proofs.ROOT))
        for target, name in TARGETS.items()]
held += [llvm_proofs.notices(name, *change, lambda folder: prove("x86_64-linux-gnu", folder))
         for name, change in CONTROLS.items()]
sys.exit(0 if all(held) else 1)
