"""Executes LLVM intermediate code with loops of any length, by induction.

What is known of memory are single cells: a size and a value at a known offset. Everything else may hold
anything. At the head of a loop, whatever the loop changes becomes unknown. Then statements about it are
guessed; those that hold before the loop and that each turn keeps are taken for granted in every turn.
Numbers that are no integers are unknown always.
"""
import dataclasses
import itertools
import re

import z3
from llvm_memory import (NULL, Cells, Pointer, Room, State, concrete, differ, fresh, number,
                         offset_or_value, wide)
from llvm_paths import Program

OPAQUE = re.compile(r"f(add|sub|mul|div|rem|neg)$")
CONVERSIONS = "fptosi", "fptoui", "sitofp", "uitofp", "fpext", "fptrunc"
FACTORS = [sign * factor for factor in (1, 2, 4, 8, 16) for sign in (1, -1)]


class Inductive(Cells, Program):
    """`stand_ins` gives, for a part of a name, what is called instead of the function. The loops of
    `unrolled` functions are executed turn by turn."""

    keeps_to_members, patience_ms = True, 500

    def __init__(self, text, stand_ins=(), unrolled=()):
        super().__init__(text, MODELS)
        self.stand_ins, self.unrolled = stand_ins, unrolled
        self.heads = {}
        self.invariants = self.quiet = 0
        self.names = {id(blocks): name for name, (_, blocks) in self.functions.items()}
        self.bits = {name: int(bits) for bits, name in re.findall(
            r"^define [^@\n]*?\bi(\d+) @([\w.]+)\(", text, re.M)}

    def start(self):
        memory = State()
        self.globals = {}
        for name, text in self.definitions.items():
            kind, _ = self.types.read(text)
            self.globals[name] = memory.add(Room(name, number(self.types.size(kind)), data=True))
        return memory

    def check(self, memory, pointer, size, writes, align=None):
        if not self.quiet:
            super().check(memory, pointer, size, writes)

    def call(self, memory, name, arguments, sizes=(), result=("void",)):
        for part, stand_in in self.stand_ins:
            if found := re.search(part, name):
                name = found.expand(stand_in)
                break
        if name not in self.functions:
            yield from super().call(memory, name, arguments, sizes, result)
            return
        ends = list(super().call(memory, name, arguments, sizes, result))
        yield from self.merged(len(memory.conditions), ends)

    def choose(self, memory, condition):
        condition = z3.simplify(condition)
        if not self.quiet or z3.is_bv_value(condition):
            yield from super().choose(memory, condition)
            return
        for value in (True, False):
            branch = State(memory)
            branch.conditions.append(z3.simplify(condition == number(int(value), 1)))
            yield value, branch

    def loops(self, blocks):
        """Returns the labels of each loop, by its head."""
        if id(blocks) not in self.heads:
            after = {label: re.findall(r"label %(\d+)", lines[-1]) for label, lines in blocks.items()}
            before = {label: [b for b in blocks if label in after[b]] for label in blocks}
            entry = next(iter(blocks))
            open_, done, back = [(entry, iter(after[entry]))], {entry}, []
            path = {entry}
            while open_:
                label, rest = open_[-1]
                for where in rest:
                    if where in path:
                        back.append((label, where))
                    elif where not in done:
                        done.add(where)
                        path.add(where)
                        open_.append((where, iter(after[where])))
                        break
                else:
                    path.discard(open_.pop()[0])
            found = {}
            for source, head in back:
                body, todo = found.setdefault(head, {head}), [source]
                while todo:
                    if (label := todo.pop()) not in body:
                        body.add(label)
                        todo += before[label]
            self.heads[id(blocks)] = {head: body for head, body in found.items()
                                      if not self.short(blocks, body, after)}
        return self.heads[id(blocks)]

    def short(self, blocks, body, after):
        """Returns whether a loop is executed turn by turn."""
        ends = [re.search(r"%\d+", blocks[label][-1])[0] for label in body
                if len(after[label]) == 2 and not set(after[label]) <= body]
        text = "\n".join(line for label in body for line in blocks[label])
        turns = [int(n) for end in ends
                 for n in re.findall(re.escape(end) + r" = icmp .*, (\d+)$", text, re.M)]
        listed = any(part in self.names[id(blocks)] for part in self.unrolled)
        return bool(turns) and 2 <= min(turns) and max(turns) <= 4 or listed and not turns

    def run(self, memory, blocks, label, at, previous, env):
        if at == 0 and self.loops(blocks):
            while env.get("loops") and label not in env["loops"][-1][1]:
                *outer, left = env["loops"]
                if left[2] is not None:
                    return  # only the turns of this loop are looked at
                env = {**env, "loops": outer}
            if env.get("loops") and label == env["loops"][-1][0]:
                if env["loops"][-1][2] is not None:
                    env["loops"][-1][2].append((memory, self.incoming(blocks[label], previous, env)))
                return  # the loop's statements hold again, so this turn is like any other
            if label in self.loops(blocks):
                yield from self.loop(memory, blocks, label, previous, env)
                return
        yield from super().run(memory, blocks, label, at, previous, env)

    def incoming(self, lines, previous, env):
        """Returns the values that the block's variables get when it is entered from `previous`."""
        values = {}
        for line in itertools.takewhile(lambda line: " = phi " in line, lines):
            target, _, rest = line.partition(" = phi ")
            kind, choices = self.types.read(rest)
            pairs = re.findall(r"\[ (.*?), %(\d+) \](?:,|$)", choices)
            chosen = next(value for value, source in pairs if source == previous)
            values[target] = self.value(kind, chosen, env)[0]
        return values

    def loop(self, memory, blocks, label, previous, env):
        body, lines = self.loops(blocks)[label], blocks[label]
        first = self.incoming(lines, previous, env)
        integers = {line.split(" ")[0] for line in lines if re.search(r"= phi (i\d+ |.*\*)", line)}
        outer = list(env.get("loops", ()))
        changed, unknown = {}, {}
        variables = {}
        for target, value in first.items():
            if isinstance(value, Pointer):
                variables[target] = dataclasses.replace(value, offset=fresh(64))
            else:
                variables[target] = fresh(value.size())
        before = State(memory)
        for pointer, function in before.kept:
            self.holds(before, pointer, function)  # so that it knows the cells that matter
        chosen = self.candidates(blocks, body, env, {t: first[t] for t in first if t in integers}, before)
        chosen = self.surviving(chosen, [(before, first)])
        while True:
            head = State(before)
            for block, at in changed:
                cells = dict(head.cells[block])
                size, value = cells.pop(at)
                if not isinstance(value, Pointer):
                    cells[at] = size, unknown.setdefault((block, at), fresh(8 * size))
                head.cells[block] = cells
            strongest = dict(reversed(chosen)).values()
            head.conditions += [c for c in (z3.simplify(say(head, variables)) for say in strongest)
                                if not z3.is_true(c)]
            turns = []
            inside = {**env, **variables, "loops": outer + [(label, body, turns)]}
            self.quiet += 1
            for _ in super().run(State(head), blocks, label, len(first), None, inside):
                pass
            self.quiet -= 1
            more = {}
            for after, values in turns:
                for block, cells in head.cells.items():
                    for at, (size, value) in cells.items():
                        there = after.cells[block].get(at)
                        if (block, at) not in changed and (
                                there is None or there[0] != size or differ(value, there[1])):
                            more[block, at] = True
                for target, value in values.items():
                    known = variables[target]
                    if isinstance(known, Pointer):
                        if value.block is not known.block:
                            raise NotImplementedError("a loop's pointer changes its block")
                        if value.part != known.part:
                            variables[target] = dataclasses.replace(known, part=None)
                            more["part", target] = False
            changed.update({key: True for key, is_cell in more.items() if is_cell})
            rest = self.surviving(chosen, turns)
            if len(rest) == len(chosen) and not more:
                break
            chosen = rest
        if not self.quiet:
            self.invariants += len(head.conditions) - len(before.conditions)
        inside["loops"] = outer + [(label, body, None)]
        yield from super().run(head, blocks, label, len(first), None, inside)

    def candidates(self, blocks, body, env, first, memory):
        """Guesses statements about the variables of a loop. Each is a function of memory and values, in
        front of it a group. Within a group each statement implies those behind it."""
        text = "\n".join(line for label in body for line in blocks[label]
                         if re.search(" = (icmp|sub) ", line))
        bounds = [env[name] for name in dict.fromkeys(re.findall(r"%\d+", text))
                  if name in env and not isinstance(env[name], tuple)]
        numbers = sorted({int(n) for n in re.findall(r"[ ,](-?\d+)(?=,|$)", text, re.M)} - {0, 1})
        result = []

        def guess(group, relation, name, bound):
            result.append((group, lambda m, v: relation(offset_or_value(v[name]), bound)))
        for name, value in first.items():
            value = offset_or_value(value)
            bits = value.size()
            guess((name, "rises"), z3.UGE, name, value)
            guess((name, "falls"), z3.ULE, name, value)
            guess((name, "signed"), lambda a, b: a >= b, name, value)
            alike = [offset_or_value(b) for b in bounds
                     if getattr(b, "block", None) is getattr(first[name], "block", None)]
            for n, bound in enumerate(b for b in alike if b.size() == bits):
                guess((name, "below", n), z3.ULT, name, bound)
                guess((name, "below", n), z3.ULE, name, bound)
                guess((name, "above", n), z3.UGE, name, bound)
                guess((name, "two below", n), lambda a, b: z3.UGE(b - a, 2), name, bound)
            for n in numbers:
                guess((name, "most"), z3.ULT, name, number(n, bits))
                guess((name, "most"), z3.ULE, name, number(n, bits))
            for n in [*reversed(numbers), 1]:
                guess((name, "least"), z3.UGE, name, number(n, bits))
            for mask in (15, 7, 3, 1):
                if mask < 1 << bits:
                    guess((name, "step"), lambda a, b, mask=mask: (a - b) & mask == 0, name, value)
        for one, other in itertools.permutations(first, 2):
            for factor in FACTORS:
                if abs(factor) > 1 or one < other:
                    result.append(((one, other), self.relation(first, one, (other,), factor)))
        for one, two in itertools.product(first, itertools.combinations(first, 2)):
            if one not in two and isinstance(first[one], Pointer):
                result += [((one, two), self.relation(first, one, two, factor))
                           for factor in FACTORS if factor > 0]
        for pointer, function in memory.kept:
            if self.bits[function] == 1:
                result.append(((pointer, function),
                               lambda m, v, p=pointer, f=function: self.holds(m, p, f) == 1))
                continue
            for name, value in first.items():  # a bound, or a place in a ring: 2^32 is a turn
                if isinstance(value, Pointer):
                    continue
                group = pointer, function, name
                result.append((group, lambda m, v, p=pointer, f=function, name=name:
                               z3.ULE(wide(v[name]), wide(self.holds(m, p, f)))))
                for shift in (23, 24) if value.size() >= 32 else ():
                    def place(m, v, p=pointer, f=function, name=name, shift=shift):
                        return self.holds(m, p, f) - (z3.Extract(31, 0, v[name]) << shift)
                    result.append(((*group, shift), lambda m, v, place=place,
                                   begin=place(memory, first): place(m, v) == begin))
        return result

    @staticmethod
    def relation(first, one, others, factor):
        def total(values):
            return wide(offset_or_value(values[one])) + factor * sum(
                wide(offset_or_value(values[other])) for other in others)
        begin = total(first)
        return lambda m, v: total(v) == begin

    def holds(self, memory, pointer, function):
        """Returns what a function says about an object. It has no choices."""
        (after, value), = super().call(memory, function, [pointer])
        memory.cells, memory.conditions = after.cells, after.conditions
        return value

    def surviving(self, chosen, turns):
        """Returns the statements that hold after every turn."""
        for memory, values in turns:
            memory = State(memory)
            terms = [(z3.simplify(say(memory, values)), (group, say)) for group, say in chosen]
            terms = [term for term in terms if not z3.is_false(term[0])]
            while claims := [claim for claim, _ in terms if not z3.is_true(claim)]:
                model = self.possible(memory, z3.Not(z3.And(*claims)), whole=False, near=claims)
                if model is None:
                    break
                terms = [term for term in terms
                         if z3.is_true(model.eval(term[0], model_completion=True))]
            chosen = [guess for _, guess in terms]
        return chosen

    def simple(self, memory, target, operation, rest, env):
        if operation == "alloca":
            kind, _ = self.types.read(rest)
            size = self.types.size(kind)
            env[target] = memory.add(Room(f"the local {kind[-1]}", number(size),
                                          data=kind[0] == "array" and size > 64))
        elif OPAQUE.match(operation):
            env[target] = fresh(self.types.read(rest)[0][1])
        elif operation == "extractvalue":
            whole, index = re.search(r"(%\d+), (\d)$", rest).groups()
            env[target] = env[whole][int(index)]
        elif operation in CONVERSIONS:
            env[target] = fresh(self.types.read(re.search(r" to (.*)$", rest)[1])[0][1])
        elif operation == "fcmp":
            env[target] = fresh(1)
        elif operation in ("udiv", "urem", "sdiv", "srem", "mul", "ashr", "shl", "lshr"):
            kind, right = self.types.read(re.sub(r"^((nuw|nsw|exact) )*", "", rest))
            left, right = self.value(kind, right, env)
            right, _ = self.value(kind, right.lstrip().removeprefix(","), env)
            env[target] = z3.simplify(self.product(memory, operation, left, right))
        else:
            super().simple(memory, target, operation, rest, env)

    def product(self, memory, operation, left, right):
        """Products and quotients by a known number; others may be anything."""
        known = concrete(right)
        if known is None and operation == "mul" and concrete(left) is not None:
            left, right, known = right, left, concrete(left)
        bits = left.size()
        if known is None:
            return fresh(bits)
        if operation in ("udiv", "urem") and known and known & known - 1:
            quotient, rest = fresh(bits), fresh(bits)
            memory.conditions += [left == quotient * known + rest, z3.ULT(rest, known),
                                  z3.ULE(quotient, ((1 << bits) - 1) // known)]
            return quotient if operation == "udiv" else rest
        return {"mul": lambda: left * right, "udiv": lambda: z3.UDiv(left, right),
                "urem": lambda: z3.URem(left, right), "sdiv": lambda: left / right,
                "srem": lambda: z3.SRem(left, right), "ashr": lambda: left >> right,
                "shl": lambda: left << right, "lshr": lambda: z3.LShR(left, right)}[operation]()


# What the proof's own functions and those outside of the sources do.
def harmless(program, memory, _arguments, _sizes, result):
    kind = program.types.whole(result)
    yield memory, fresh(kind[1]) if kind[0] == "int" else None


def named(data):
    def make(program, memory, arguments, _sizes, _result):
        name = re.search(r'c"(.*?)\\00"', program.definitions[arguments[0].block.name])[1]
        yield memory, memory.add(Room(name, wide(arguments[1]), data=data))
    return make


def reading(program, memory, arguments, _sizes, _result):
    program.check(memory, arguments[0], wide(arguments[1]), False)
    yield memory, None


def writing(program, memory, arguments, _sizes, _result):
    program.check(memory, arguments[0], wide(arguments[1]), True)
    program.forget(memory, arguments[0], wide(arguments[1]))
    yield memory, None


def assumption(_program, memory, arguments, _sizes, _result):
    memory.conditions.append(z3.simplify(arguments[0] == 1))
    yield memory, None


def claim(program, memory, arguments, _sizes, _result):
    program.demand(memory, arguments[0] == 1, "a claim does not hold")
    yield memory, None


def keeping(_program, memory, arguments, _sizes, _result):
    memory.kept += ((arguments[0], arguments[1].block),)
    yield memory, None


def copying(program, memory, arguments, _sizes, _result):
    program.copy(memory, arguments[0], wide(arguments[2]), arguments[1])
    yield memory, None


def allocation(_program, memory, arguments, _sizes, _result):
    yield State(memory), NULL
    yield memory, memory.add(Room("new memory", wide(arguments[0]), data=True))


def product_and_overflow(_program, memory, arguments, _sizes, _result):
    high, low = (z3.Extract(top, top - 63, z3.ZeroExt(64, arguments[0]) * z3.ZeroExt(64, arguments[1]))
                 for top in (127, 63))
    yield memory, (low, z3.If(high != 0, number(1, 1), number(0, 1)))


def extreme(compare):
    def choose(_program, memory, arguments, _sizes, _result):
        yield memory, z3.If(compare(*arguments), arguments[0], arguments[1])
    return choose


MODELS = {
    "llvm.assume": harmless, "llvm.lifetime": harmless, "llvm.experimental": harmless,
    "llvm.fabs": harmless, "llvm.ctlz": harmless, "logf": harmless, "powf": harmless,
    "llvm.mem": copying, "llvm.umin": extreme(z3.ULT), "llvm.umax": extreme(z3.UGT),
    "llvm.smin": extreme(lambda a, b: a < b), "llvm.smax": extreme(lambda a, b: a > b),
    "proof_object": named(False), "proof_data": named(True), "proof_read": reading,
    "proof_write": writing, "proof_assume": assumption, "proof_check": claim, "proof_keep": keeping,
    "proof_number": keeping, "harmless": harmless, "_Zna": allocation, "_Zda": harmless,
    "llvm.umul.with.overflow": product_and_overflow,
}
