"""What the provers share: compiling, models of functions outside of the sources, and spoilt copies.

A spoilt copy has one change, for example a size check left out. A proof of it must fail.
"""
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import z3

from llvm_memory import NULL, Block, Memory, Pointer, Violation, concrete, fresh, number

ROOT = pathlib.Path(__file__).resolve().parent.parent


def compiled(folder, source, *options):
    """Returns the intermediate code of a C++ text, whose headers are in `folder` or in the project."""
    return subprocess.run(
        ["clang++", "-std=c++20", f"-I{folder}", f"-I{ROOT}", "-O1", "-fno-vectorize", "-fno-unroll-loops",
         "-fno-exceptions", "-fno-rtti", "-ffp-contract=off", "-S", "-emit-llvm", *options,
         "-x", "c++", "-", "-o", "-"],
        input=source, cwd=folder, stdout=subprocess.PIPE, text=True, check=True).stdout


def reachable(text, roots):
    """Returns the intermediate code without the functions that those named by `roots` don't need."""
    bodies = {found[1]: found[0] for found in re.finditer(
        r"^define [^\n]*?@([\w.]+)\([^\n]*\n.*?^\}\n", text, re.M | re.S)}
    used, todo = set(), [name for name in bodies if re.match(roots, name)]
    while todo:
        if (name := todo.pop()) in bodies and name not in used:
            used.add(name)
            todo += re.findall(r"@([\w.]+)", bodies[name])
    return re.sub(r"^define .*?^\}\n", "", text, flags=re.M | re.S) + "".join(map(bodies.get, used))


def holds(name, prove):
    """Prints how a proof ends; `prove` returns its program and what to say. Returns whether it holds."""
    start = time.process_time()
    try:
        program, said = prove()
    except Violation as fault:
        print(f"{name}: REFUTED: {fault}, with {fault.model}", flush=True)
        return False
    print(f"{name}: proved, {program.accesses} accesses, {said}, {time.process_time() - start:.1f} s",
          flush=True)
    return True


def notices(name, file, text, replacement, prove):
    """Spoils one place in a copy of a file, and returns whether prove(folder of the copy) fails."""
    source = (ROOT / file).read_text()
    if source.count(text) != 1:
        sys.exit(f"{file} doesn't have “{text}” once, so “{name}” controls nothing")
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / file
        copy.parent.mkdir(parents=True)
        copy.write_text(source.replace(text, replacement))
        try:
            prove(folder)
            print(f"control: {name}: NOT NOTICED", flush=True)
            return False
        except Violation as fault:
            names = sorted(fault.model or (), key=lambda name: ("!" in str(name), str(name)))
            inputs = ", ".join(f"{name} = {fault.model[name]}" for name in names[:4])
            print(f"control: {name}: noticed: {fault}, with {inputs}", flush=True)
            return True


# What functions outside of the sources do. Each yields memory and result of its paths.
def unknown(program, kind):
    kind = program.types.whole(kind)
    return fresh(kind[1]) if kind[0] == "int" else None


def harmless(program, memory, _arguments, _sizes, result):
    yield memory, unknown(program, result)


def allocation(_program, memory, arguments, _sizes, _result):
    size = 1
    for argument in (a for a in arguments if not isinstance(a, Pointer)):
        size *= concrete(argument)
    yield Memory(memory), NULL
    yield memory, memory.add(Block("heap", number(size)), b"\0" * size)


def release(_program, memory, arguments, _sizes, _result):
    block = arguments[0].block
    if block is not None:
        if not isinstance(block, Block) or block.name != "heap" or block in memory.freed:
            raise Violation("release of what wasn't allocated")
        memory.freed.add(block)
    yield memory, None


def copying(program, memory, arguments, _sizes, _result):
    to, source, size = arguments[:3]
    size = z3.ZeroExt(64 - size.size(), size) if size.size() < 64 else size
    if isinstance(source, Pointer):
        program.check(memory, source, size, False)
        there = memory.bytes[source.block].copy()
        if source.block.shared:
            program.copy(memory, to, size, lambda n: fresh(8))
        else:
            program.copy(memory, to, size, lambda n: there[source.offset + n])
    else:
        program.copy(memory, to, size, lambda n: source)
    yield memory, None


def comparison(program, memory, arguments, _sizes, result):
    for pointer in arguments[:2]:
        program.check(memory, pointer, concrete(arguments[2]), False)
    yield memory, unknown(program, result)


def printing(program, memory, arguments, _sizes, result):
    program.copy(memory, arguments[0], number(concrete(arguments[1])), lambda n: fresh(8))
    yield memory, unknown(program, result)


def rotation(_program, memory, arguments, _sizes, _result):
    high, low, by = arguments
    bits = high.size()
    yield memory, z3.Extract(2 * bits - 1, bits, z3.Concat(high, low) << z3.ZeroExt(bits, by % bits))


def absolute(_program, memory, arguments, _sizes, _result):
    yield memory, z3.If(arguments[0] < 0, -arguments[0], arguments[0])


def atomic_load(program, memory, arguments, _sizes, result):
    yield memory, program.load(memory, arguments[0], result, 1)


def atomic_store(program, memory, arguments, _sizes, _result):
    program.store(memory, arguments[0], arguments[1], ("int", 8), 1)
    yield memory, None


MODELS = {
    "llvm.lifetime": harmless, "llvm.mem": copying, "llvm.fshl": rotation, "llvm.abs": absolute,
    "pthread_mutex": harmless, "snprintf": printing, "bcmp": comparison, "calloc": allocation,
    "_Znw": allocation, "_Znj": allocation, "_ZdlPv": release, "free": release,
    "__atomic_load_1": atomic_load, "__atomic_store_1": atomic_store,
}
