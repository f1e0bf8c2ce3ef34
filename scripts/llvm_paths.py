"""Executes LLVM intermediate code with unknown inputs, path by path, and asks z3 about every access.

Only what clang 14 makes of the library's boundary is understood. Anything else ends the run with an
error, so nothing is passed over.
"""
import re
import sys

import z3

from llvm_memory import (NULL, OPERATIONS, RELATIONS, Block, Memory, Pointer, Types, Violation, concrete,
                         fresh, names_in, number)

sys.setrecursionlimit(20000)

VALUE = re.compile(r'%[\w.]+|@(?:"[^"]*"|[\w.]+)|-?\d[\w.+-]*|null|undef|poison|true|false|'
                   r'zeroinitializer')
ATTRIBUTE = re.compile(r"\s*(?:noundef|nonnull|nocapture|readonly|writeonly|noalias|zeroext|signext|"
                       r"immarg|inrange|align \d+|dereferenceable(?:_or_null)?\((\d+)\))(?=[\s,)])")


class Program:
    """The functions and constants of one module, and their execution.

    `models` gives, for a name or a part of it, what a function outside of the module does:
    model(program, memory, arguments, sizes, result type) yields pairs of memory and result.
    """

    keeps_to_members = False  # whether an access must keep to the array within its object
    patience_ms = 2**32 - 1   # after which another solver is asked; this is no limit

    def __init__(self, text, models):
        pointer_bytes = 4 if re.search(r'datalayout = "[^"]*p:32', text) else 8
        self.types, self.models = Types(text, pointer_bytes), models
        self.functions, self.globals = {}, {}
        self.accesses = self.paths = 0
        for head, name, body in re.findall(
                r"^define ([^\n]*?@([\w.]+)\([^\n]*)\n(.*?)^\}", text, re.M | re.S):
            parameters = re.search(r"@[\w.]+\((.*)\)", head)[1]
            names = re.findall(r"(%\d+)(?:,|$)", parameters)
            current = []
            labels = {str(len(names)): current}  # the first block has the number behind the parameters
            for line in body.splitlines():
                line = re.sub(r",? ![\w.]+( !\d+)?|;.*|(?<=call )fastcc ", "", line).rstrip()
                if found := re.match(r"(\d+):", line):
                    current = labels.setdefault(found[1], [])
                elif line.startswith("    ") or line == "  ]":  # the cases of a switch
                    current[-1] += line
                elif line:
                    current.append(line.strip())
            self.functions[name] = (names, labels)
        self.definitions = dict(re.findall(
            r"^(@[\w.]+) = [^\n]*?\b(?:constant|global) (.*)$", text, re.M))

    # Reading

    def start(self):
        """Returns the memory before the first call, with the module's constants."""
        memory = Memory()
        self.globals = {}
        sizes = {}
        for name, text in self.definitions.items():
            kind, rest = self.types.read(text)
            sizes[name] = (kind, rest)
            block = Block(name, number(self.types.size(kind)), writable=False)
            self.globals[name] = memory.add(block)
        for name, (kind, rest) in sizes.items():
            if not rest.startswith(","):  # an external constant has no value here
                self.fill(memory, self.globals[name].block, 0, kind, rest)
        return memory

    def fill(self, memory, block, at, kind, text):
        """Writes an initial value; returns what follows it."""
        text, whole = text.lstrip(), self.types.whole(kind)
        if found := re.match(r'c"([^"]*)"', text):
            content = re.sub(r"\\(..)", lambda m: chr(int(m[1], 16)), found[1])
            for n, letter in enumerate(content):
                memory.put(block, number(at + n), number(ord(letter), 8))
            return text[found.end():]
        if whole[0] in ("array", "struct") and not text.startswith("zeroinitializer"):
            text, n = re.sub(r"^(<\{|[{\[])", "", text), 0
            while not re.match(r"\s*(\}>|[}\]])", text):
                _, text = self.types.read(text)
                offset, member = self.types.member(whole, n)
                text = self.fill(memory, block, at + offset, member, text).lstrip().removeprefix(",")
                n += 1
            return re.sub(r"^\s*(\}>|[}\]])", "", text)
        value, rest = self.value(kind, text, {})
        self.store(memory, Pointer(block, number(at)), value, kind, None)
        return rest

    def value(self, kind, text, env):
        """Returns the operand at the beginning of `text`, and the rest."""
        text = text.lstrip()
        if found := re.match(r"getelementptr (?:inbounds )?\(", text):
            return self.address(text[found.end():], env)
        if text.startswith("bitcast ("):
            inner, rest = self.typed(text[len("bitcast ("):], env)
            _, rest = self.types.read(rest.lstrip().removeprefix("to "))
            return inner, rest.lstrip().removeprefix(")")
        found = VALUE.match(text)
        word, rest = found[0], text[found.end():]
        whole = self.types.whole(kind)
        bits = whole[1] if whole[0] == "int" else 8 * self.types.size(kind)
        if word[0] == "%":
            return env[word], rest
        if word[0] == "@":
            return self.globals.get(word, Pointer(word[1:], number(0))), rest
        if whole[0] == "pointer":
            return NULL, rest  # null, and undef, which no path of a right program looks at
        if word in ("true", "false"):
            return number(int(word == "true"), 1), rest
        if word == "zeroinitializer":
            return number(0, bits), rest
        return (number(int(word), bits) if re.fullmatch(r"-?\d+", word) else fresh(bits)), rest

    def typed(self, text, env):
        """Returns the operand behind a type and attributes, and the rest."""
        kind, rest = self.types.read(text)
        while found := ATTRIBUTE.match(rest):
            rest = rest[found.end():]
        return self.value(kind, rest, env)

    def address(self, text, env):
        kind, rest = self.types.read(text)
        pointer, rest = self.typed(rest.lstrip().removeprefix(","), env)
        offset, first, part = pointer.offset, True, pointer.part
        while rest.lstrip().startswith(","):
            index, rest = self.typed(re.sub(r"^\s*,\s*(inrange )?", "", rest), env)
            index = z3.SignExt(64 - index.size(), index)
            whole = self.types.whole(kind)
            if first or whole[0] == "array":
                if not first and concrete(index) is None:
                    part = concrete(offset), self.types.size(whole)
                kind = kind if first else whole[2]
                offset = offset + index * self.types.size(kind)
            else:
                at, kind = self.types.member(whole, concrete(index))
                offset = offset + at
            first = False
        return Pointer(pointer.block, z3.simplify(offset), part), rest.lstrip().removeprefix(")")

    # Memory

    def possible(self, memory, *terms, whole=True, near=()):
        """Returns an input for which the path and the terms hold, or None. If it isn't `whole`, only
        the conditions are looked at that have to do with the terms; a path holds by itself."""
        terms = [z3.simplify(t) for t in terms]
        if any(z3.is_false(t) for t in terms):
            return None
        conditions = memory.conditions
        if not whole:
            names, rest, conditions = set().union(*map(names_in, [*terms, *near])), list(conditions), []
            while related := [c for c in rest if names_in(c) & names]:
                rest = [c for c in rest if not names_in(c) & names]
                conditions += related
                names |= set().union(*map(names_in, related))
        solver = z3.SimpleSolver()  # a third of the time of z3's choice for any problem
        solver.set("timeout", self.patience_ms)
        solver.add(*conditions, *terms)
        answer = solver.check()
        if answer == z3.unknown:
            solver = z3.SolverFor("QF_BV")  # better for hard ones
            solver.add(*conditions, *terms)
            answer = solver.check()
        if answer == z3.unknown:
            raise NotImplementedError("the solver gives no answer")
        return solver.model() if answer == z3.sat else None

    def check(self, memory, pointer, size, writes, align=None):
        self.accesses += 1
        block, verb = pointer.block, "write to" if writes else "read of"
        fault = None
        if not isinstance(block, Block):
            fault = "null" if block is None else "an unknown address"
        elif block in memory.freed or (writes and not block.writable):
            fault = f"{block.name}, which is freed or not ours"
        elif block.of_caller and align not in (None, 1):
            fault = f"{block.name} with an assumed alignment"
        if fault:
            raise Violation(f"{verb} {fault}", self.possible(memory))
        size = size if z3.is_expr(size) else number(size)
        known = [concrete(term) for term in (size, pointer.offset, block.size)]
        if None not in known and known[0] + known[1] <= known[2]:
            return
        narrow = self.keeps_to_members and pointer.part and None not in pointer.part
        begin, room = pointer.part if narrow else (0, block.size)
        inside = z3.And(z3.ULE(size, room), z3.ULE(pointer.offset - begin, room - size))
        if self.possible(memory, z3.Not(inside), size != 0, whole=False):
            raise Violation(f"{verb} {block.name} outside of it",
                            self.possible(memory, z3.Not(inside), size != 0))

    def load(self, memory, pointer, kind, align):
        size = self.types.size(kind)
        self.check(memory, pointer, size, False, align)
        block, at = pointer.block, concrete(pointer.offset)
        whole = self.types.whole(kind)
        if whole[0] == "pointer" and at in memory.pointers[block]:
            return memory.pointers[block][at][0]
        if block.shared:
            term = fresh(8 * size)
        else:
            term = memory.bytes[block][pointer.offset]
            for n in range(1, size):
                term = z3.Concat(memory.bytes[block][pointer.offset + n], term)
        term = z3.simplify(term)
        if whole[0] == "pointer":
            return NULL if concrete(term) == 0 else Pointer("?", z3.ZeroExt(64 - 8 * size, term))
        return z3.Extract(whole[1] - 1, 0, term) if whole[1] < 8 * size else term

    def store(self, memory, pointer, value, kind, align):
        size = self.types.size(kind)
        if align is not None:  # an initial value needs no check
            self.check(memory, pointer, size, True, align)
        block = pointer.block
        memory.forget_pointers(block, pointer.offset, size)
        if isinstance(value, Pointer):
            if concrete(pointer.offset) is not None:
                memory.pointers[block][concrete(pointer.offset)] = value, size
            value = number(0, 8 * size) if value.block is None else fresh(8 * size)
        if value.size() < 8 * size:
            value = z3.ZeroExt(8 * size - value.size(), value)
        for n in range(size):
            memory.put(block, pointer.offset + n, z3.Extract(8 * n + 7, 8 * n, value))

    def copy(self, memory, to, size, source):
        """memcpy and memset. `source` gives the byte at an offset. The size may be unknown."""
        self.check(memory, to, size, True)
        memory.forget_pointers(to.block, to.offset, 1 << 32)
        whole = concrete(to.block.size)
        if concrete(size) is not None:
            for n in range(concrete(size)):
                memory.put(to.block, to.offset + n, source(number(n)))
            return
        before = memory.bytes[to.block].copy()
        for n in range(whole):
            index = number(n) - to.offset
            inside = z3.And(z3.UGE(number(n), to.offset), z3.ULT(index, size))
            memory.put(to.block, number(n), z3.If(inside, source(index), before[number(n)]))

    # Execution

    def call(self, memory, name, arguments, sizes=(), result=("void",)):
        """Yields memory and result of every path through a function."""
        for part, model in self.models.items():
            if part in name:
                yield from model(self, memory, arguments, sizes, result)
                return
        if name not in self.functions:
            raise NotImplementedError(f"no model of {name}")
        parameters, blocks = self.functions[name]
        frame = dict(zip(parameters, arguments))
        yield from self.run(memory, blocks, str(len(parameters)), 0, None, frame)

    def choose(self, memory, condition):
        """Yields the values that a condition can have, each with the memory of its path."""
        other_is_possible = True  # a path holds for something, so one of the two is possible
        for value in (True, False):
            term = condition == number(int(value), 1)
            if not other_is_possible or self.possible(memory, term, whole=False) is not None:
                branch = type(memory)(memory)
                branch.conditions.append(z3.simplify(term))
                yield value, branch
            else:
                other_is_possible = False

    def run(self, memory, blocks, label, at, previous, env):
        while True:
            line = blocks[label][at]
            at += 1
            target, _, text = line.partition(" = ") if re.match(r"%[\w.]+ = ", line) else ("", "", line)
            operation, _, rest = re.sub(r"^(tail|musttail|notail) ", "", text).partition(" ")
            if operation == "ret":
                yield memory, (None if rest == "void" else self.typed(rest, env)[0])
                return
            if operation in ("br", "switch"):
                for where, branch in self.jump(memory, operation, rest, env):
                    yield from self.run(branch, blocks, where, 0, label, dict(env))
                return
            if operation == "phi":
                kind, choices = self.types.read(rest)
                pairs = re.findall(r"\[ (.*?), %(\d+) \](?:,|$)", choices)
                chosen = next(value for value, source in pairs if source == previous)
                env.setdefault("phi", {})[target] = self.value(kind, chosen, env)[0]
                if not re.match(r"%[\w.]+ = phi ", blocks[label][at]):
                    env.update(env.pop("phi"))
                continue
            if operation == "call":
                for branch, value in self.calling(memory, rest, env):
                    yield from self.run(branch, blocks, label, at, previous, {**env, target: value})
                return
            if operation == "select":
                condition, rest = self.typed(rest, env)
                first, rest = self.typed(rest.lstrip().removeprefix(","), env)
                second, _ = self.typed(rest.lstrip().removeprefix(","), env)
                if not isinstance(first, Pointer):
                    env[target] = z3.simplify(z3.If(condition == 1, first, second))
                    continue
                for value, branch in self.choose(memory, condition):
                    chosen = {**env, target: first if value else second}
                    yield from self.run(branch, blocks, label, at, previous, chosen)
                return
            self.simple(memory, target, operation, rest, env)

    def jump(self, memory, operation, rest, env):
        labels = re.findall(r"label %(\d+)", rest)
        if operation == "br" and len(labels) == 1:
            yield labels[0], memory
        elif operation == "br":
            for value, branch in self.choose(memory, self.typed(rest, env)[0]):
                yield labels[0 if value else 1], branch
        else:
            word = self.typed(rest, env)[0]
            cases = re.findall(r"i\d+ (-?\d+), label %(\d+)", rest.partition("[")[2])
            for case, where in cases:
                for value, branch in self.choose(
                        memory, z3.If(word == int(case), number(1, 1), number(0, 1))):
                    if value:
                        yield where, branch
            other = z3.And(*[word != int(case) for case, _ in cases])
            for value, branch in self.choose(memory, z3.If(other, number(1, 1), number(0, 1))):
                if value:
                    yield labels[0], branch

    def calling(self, memory, rest, env):
        while found := ATTRIBUTE.match(" " + rest):
            rest = rest[found.end() - 1:].lstrip()
        result, rest = self.types.read(rest)
        if rest.lstrip().startswith("("):  # the type of a function with further arguments
            rest = rest[rest.index(")") + 1:]
        called, rest = self.value(("pointer",), rest, env)
        arguments, sizes = [], []
        rest = rest.lstrip()[1:]
        while not rest.lstrip().startswith(")"):
            if found := re.match(r"[^,)]*?dereferenceable\((\d+)\)", rest):
                sizes.append(int(found[1]))
            else:
                sizes.append(0)
            argument, rest = self.typed(rest, env)
            arguments.append(argument)
            rest = rest.lstrip().removeprefix(",")
        if not isinstance(called.block, str) or called.block == "?":
            raise Violation("call of no function", self.possible(memory))
        yield from self.call(memory, called.block, arguments, sizes, result)

    def simple(self, memory, target, operation, rest, env):
        """An instruction without a choice."""
        if operation == "alloca":
            kind, _ = self.types.read(rest)
            env[target] = memory.add(Block(f"the local {kind[-1]}", number(self.types.size(kind))))
        elif operation == "load":
            kind, rest = self.types.read(rest.removeprefix("atomic "))
            pointer, rest = self.typed(rest.lstrip().removeprefix(","), env)
            env[target] = self.load(memory, pointer, kind, int(re.search(r"align (\d+)", rest)[1]))
        elif operation == "store":
            kind, _ = self.types.read(rest.removeprefix("atomic "))
            value, rest = self.typed(rest.removeprefix("atomic "), env)
            pointer, rest = self.typed(rest.lstrip().removeprefix(","), env)
            self.store(memory, pointer, value, kind, int(re.search(r"align (\d+)", rest)[1]))
        elif operation == "getelementptr":
            env[target] = self.address(rest.removeprefix("inbounds "), env)[0]
        elif operation in ("bitcast", "zext", "sext", "trunc", "sitofp"):
            value, rest = self.typed(rest, env)
            kind = self.types.whole(self.types.read(rest.lstrip().removeprefix("to "))[0])
            if operation == "sitofp":
                value = fresh(kind[1])
            elif operation != "bitcast":
                more = kind[1] - value.size()
                value = z3.ZeroExt(more, value) if operation == "zext" else \
                    z3.SignExt(more, value) if operation == "sext" else \
                    z3.Extract(kind[1] - 1, 0, value)
            env[target] = value
        elif operation == "icmp":
            relation, _, rest = rest.partition(" ")
            kind, _ = self.types.read(rest)
            first, rest = self.typed(rest, env)
            second, _ = self.value(kind, rest.lstrip().removeprefix(","), env)
            env[target] = z3.simplify(z3.If(self.compare(relation, first, second),
                                            number(1, 1), number(0, 1)))
        else:
            rest = re.sub(r"^((nuw|nsw|exact) )*", "", rest)
            kind, _ = self.types.read(rest)
            first, rest = self.typed(rest, env)
            second, _ = self.value(kind, rest.lstrip().removeprefix(","), env)
            env[target] = z3.simplify(OPERATIONS[operation](first, second))

    def compare(self, relation, first, second):
        if isinstance(first, Pointer):
            if "?" in (first.block, second.block):
                unknown = first if first.block == "?" else second
                same = unknown.offset == 0  # compared with null only
            else:
                if relation not in ("eq", "ne") and first.block is second.block:
                    return RELATIONS[relation](first.offset, second.offset)
                same = z3.And(z3.BoolVal(first.block is second.block), first.offset == second.offset)
            return same if relation == "eq" else z3.Not(same)
        return RELATIONS[relation](first, second)
