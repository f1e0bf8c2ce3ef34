"""The memory of a program whose inputs are unknown, and the types of LLVM's intermediate code.

Values are terms of the solver z3. Offsets and sizes are numbers of 64 bits, so they can't wrap.
"""
import dataclasses
import functools
import itertools
import re

import z3

_names = itertools.count()


class Violation(Exception):
    """An access that can leave its object. `model` is an input that leads there."""

    def __init__(self, text, model=None):
        super().__init__(text)
        self.model = model


def fresh(bits):
    return z3.BitVec(f"unknown{next(_names)}", bits)


def number(value, bits=64):
    return z3.BitVecVal(value, bits)


_names_in = {}


def names_in(term):
    """Returns the unknowns of a term."""
    key = term.get_id()
    if key not in _names_in:
        if z3.is_const(term):
            names = {term.decl().name()} if term.decl().kind() == z3.Z3_OP_UNINTERPRETED else set()
        else:
            names = set().union(*map(names_in, term.children()))
        _names_in[key] = term, names  # the term is kept, so that its number stays its own
    return _names_in[key][1]


def concrete(term):
    term = z3.simplify(term)
    return term.as_long() if z3.is_bv_value(term) else None


@dataclasses.dataclass(eq=False)
class Block:
    """A block of memory with a life of its own."""
    name: str
    size: object  # bytes
    writable: bool = True
    of_caller: bool = False  # at any address, so no access may assume an alignment
    shared: bool = False     # another process may change it: each read gives something else


@dataclasses.dataclass(frozen=True)
class Pointer:
    block: object  # a Block, the name of a function, "?" for an unknown address, or None for null
    offset: object
    part: object = None  # offset and size of the member array that the pointer must stay in


NULL = Pointer(None, number(0))


class Contents:
    """A value for each byte of a block. What lies at known offsets is kept apart, which is faster."""

    def __init__(self, rest, known=()):
        self.rest, self.known = rest, dict(known)

    def __getitem__(self, offset):
        at = concrete(offset)
        if at in self.known:
            return self.known[at]
        if at is None:
            self._settle()
        return self.rest[offset]

    def __setitem__(self, offset, value):
        at = concrete(offset)
        if at is None:
            self._settle()
            self.rest = z3.Store(self.rest, offset, value)
        else:
            self.known[at] = value

    def _settle(self):
        for at, value in self.known.items():
            self.rest = z3.Store(self.rest, number(at), value)
        self.known = {}

    def copy(self):
        return Contents(self.rest, self.known)


class Memory:
    """The bytes of all blocks on one path, and where pointers lie among them."""

    def __init__(self, other=None):
        self.bytes = {b: c.copy() if b.writable else c for b, c in other.bytes.items()} if other else {}
        self.written = {b: c.copy() if b.writable else c for b, c in other.written.items()} if other else {}
        self.pointers = {b: dict(p) if b.writable else p for b, p in other.pointers.items()} if other else {}
        self.freed = set(other.freed) if other else set()
        self.conditions = list(other.conditions) if other else []

    def add(self, block, content=None):
        index = z3.BitVecSort(64)
        self.bytes[block] = Contents(z3.Array(f"bytes{next(_names)}", index, z3.BitVecSort(8)))
        self.written[block] = Contents(z3.K(index, z3.BoolVal(False)))
        self.pointers[block] = {}
        for at, byte in enumerate(content or b""):
            self.bytes[block][number(at)] = number(byte, 8)
        return Pointer(block, number(0))

    def put(self, block, offset, byte):
        self.bytes[block][offset] = byte
        self.written[block][offset] = z3.BoolVal(True)

    def forget_pointers(self, block, offset, size):
        at = concrete(offset)
        for slot, (_, pointer_bytes) in list(self.pointers[block].items()):
            if at is None or at - pointer_bytes < slot < at + size:
                del self.pointers[block][slot]


@dataclasses.dataclass(eq=False)
class Room(Block):
    """A block. Of `data`, no content is known."""
    data: bool = False


class State:
    """What is known on one path."""

    def __init__(self, other=None):
        self.cells = dict(other.cells) if other else {}  # by block; a block's cells are never changed
        self.freed = frozenset()  # these programs release nothing
        self.conditions = list(other.conditions) if other else []
        self.kept = other.kept if other else ()  # statements about objects: pointer, function

    def add(self, block):
        self.cells[block] = {}
        return Pointer(block, number(0))

    def put(self, block, at, size, value):
        if not block.data:
            self.cells[block] = {**self.cells[block], at: (size, value)}


def differ(one, other):
    if isinstance(one, Pointer) or isinstance(other, Pointer):
        return not (isinstance(one, Pointer) and isinstance(other, Pointer) and
                    one.block is other.block and z3.eq(one.offset, other.offset))
    return not z3.eq(one, other)


def offset_or_value(value):
    return value.offset if isinstance(value, Pointer) else value


def wide(term):
    return z3.ZeroExt(64 - term.size(), term) if term.size() < 64 else term


class Cells:
    """Reads and writes of a program whose memory is a State, and the merging of such states."""

    def load(self, memory, pointer, kind, align):
        kind, size = self.types.whole(kind), self.types.size(kind)
        self.check(memory, pointer, size, False)
        block, at = pointer.block, concrete(pointer.offset)
        term = None
        if at is not None and isinstance(block, Block):
            for start, (length, value) in memory.cells[block].items():
                if start <= at and at + size <= start + length:
                    if isinstance(value, Pointer):
                        return value if kind[0] == "pointer" and start == at else fresh(8 * size)
                    term = z3.simplify(z3.Extract(8 * (at - start + size) - 1, 8 * (at - start), value))
                    break
        if term is None:
            term = fresh(8 * size)
            if at is not None and isinstance(block, Block) and not any(
                    start < at + size and at < start + length
                    for start, (length, _) in memory.cells[block].items()):
                memory.put(block, at, size, term)
        if kind[0] == "pointer":
            return NULL if concrete(term) == 0 else Pointer("?", wide(term))
        return z3.Extract(kind[1] - 1, 0, term) if kind[1] < 8 * size else term

    def store(self, memory, pointer, value, kind, align):
        size = self.types.size(kind)
        self.check(memory, pointer, size, True)
        block = pointer.block
        if not isinstance(value, Pointer):
            value = z3.ZeroExt(8 * size - value.size(), value) if value.size() < 8 * size else value
        self.forget(memory, pointer, number(size))
        if concrete(pointer.offset) is not None:
            memory.put(block, concrete(pointer.offset), size, value)

    def forget(self, memory, pointer, size):
        """Nothing is known any more of what a write can reach."""
        def reached(start, length):
            if known is not None:
                return start < known[0] + known[1] and known[0] < start + length
            return self.possible(memory, z3.ULT(number(start), pointer.offset + size),
                                 z3.ULT(pointer.offset, start + length), whole=False) is not None
        cells = memory.cells[pointer.block]
        if cells:
            known = concrete(pointer.offset), concrete(size)
            if None in known:
                known = pointer.part if pointer.part and None not in pointer.part else None
            memory.cells[pointer.block] = {at: cell for at, cell in cells.items()
                                           if not reached(at, cell[0])}

    def copy(self, memory, to, size, source):
        """memcpy, memmove and memset. `source` is a pointer or a byte."""
        at, length = concrete(to.offset), concrete(size)
        moved = {}
        if isinstance(source, Pointer):
            self.check(memory, source, size, False)
            begin = concrete(source.offset)
            if None not in (at, length, begin):
                moved = {at + start - begin: cell for start, cell in memory.cells[source.block].items()
                         if begin <= start and start + cell[0] <= begin + length}
        elif None not in (at, length) and concrete(source) == 0 and 0 < length <= 4096:
            moved = {at: (length, number(0, 8 * length))}
        self.check(memory, to, size, True)
        self.forget(memory, to, size)
        for place, cell in moved.items():
            memory.put(to.block, place, *cell)

    def merged(self, common, ends):
        """One end for all that differ in numbers only."""
        while ends:
            first, value = ends[0]
            alike = [end for end in ends if self.alike(first, value, *end)]
            ends = [end for end in ends if not any(end is other for other in alike)]
            if len(alike) == 1:
                yield first, value
                continue
            whole = State(first)
            ways = [z3.And(*memory.conditions[common:]) for memory, _ in alike]
            whole.conditions[common:] = [z3.Or(*ways)]
            for block, cells in first.cells.items():
                both = {}
                for at, (size, _) in cells.items():
                    values = [memory.cells[block].get(at, (0, None)) for memory, _ in alike]
                    if all(length == size for length, _ in values):
                        both[at] = size, self.either(ways, [v for _, v in values])
                whole.cells[block] = both
            yield whole, value if value is None else self.either(ways, [v for _, v in alike])

    def alike(self, first, value, memory, other):
        if set(first.cells) != set(memory.cells):
            return False
        if isinstance(value, Pointer) and differ(value, other):
            return False
        for block, cells in first.cells.items():
            for at, (_, known) in cells.items() if cells is not memory.cells[block] else ():
                there = memory.cells[block].get(at, (0, known))[1]
                if isinstance(known, Pointer) | isinstance(there, Pointer) and differ(known, there):
                    return False
        return True

    @staticmethod
    def either(ways, values):
        term = values[-1]
        for way, value in zip(ways[-2::-1], values[-2::-1]):
            if differ(value, term):
                term = z3.If(way, value, term)
        return term

    def demand(self, memory, term, text):
        if model := self.possible(memory, z3.Not(term), whole=False) and self.possible(memory, z3.Not(term)):
            raise Violation(text, model)


class Types:
    """Reads types, and knows their sizes and the offsets of their members."""

    def __init__(self, text, pointer_bytes):
        self.pointer_bytes = pointer_bytes
        self.definitions = dict(re.findall(r'^(%(?:"[^"]*"|[\w.]+)) = type (.*)$', text, re.M))

    @functools.lru_cache(None)
    def read(self, text):
        """Returns the type at the beginning of `text`, and the rest."""
        text = text.lstrip()
        if found := re.match(r"i(\d+)", text):
            kind = ("int", int(found[1]))
        elif found := re.match(r"float|double", text):
            kind = ("int", 32 if found[0] == "float" else 64)  # only its size matters here
        elif found := re.match(r"void|metadata|\.\.\.", text):
            kind = ("void",)
        elif found := re.match(r'%(?:"[^"]*"|[\w.]+)', text):
            kind = ("named", found[0])
        elif found := re.match(r"\[(\d+) x ", text):
            item, rest = self.read(text[found.end():])
            return self._suffix(("array", int(found[1]), item), rest.lstrip()[1:])
        elif found := re.match(r"<?\{", text):
            members, rest = [], text[found.end():]
            while not re.match(r"\s*\}", rest):
                member, rest = self.read(rest)
                members.append(member)
                rest = rest.lstrip().removeprefix(",")
            rest = rest.lstrip()[len(found[0]):]
            return self._suffix(("struct", tuple(members), found[0] == "<{"), rest)
        else:
            raise NotImplementedError(f"type: {text[:80]}")
        return self._suffix(kind, text[found.end():])

    def _suffix(self, kind, rest):
        while True:
            if rest.startswith("*"):
                kind, rest = ("pointer",), rest[1:]
            elif rest.startswith(" (") and re.match(r" \([^()]*(\([^()]*\)[^()]*)*\)\*", rest):
                end = re.match(r" \([^()]*(\([^()]*\)[^()]*)*\)\*", rest).end()
                kind, rest = ("pointer",), rest[end:]
            else:
                return kind, rest

    @functools.lru_cache(None)
    def whole(self, kind):
        return self.read(self.definitions[kind[1]])[0] if kind[0] == "named" else kind

    @functools.lru_cache(None)
    def align(self, kind):
        kind = self.whole(kind)
        if kind[0] == "int":
            return max(1, kind[1] // 8)
        if kind[0] == "pointer":
            return self.pointer_bytes
        if kind[0] == "array":
            return self.align(kind[2])
        return 1 if kind[2] else max((self.align(m) for m in kind[1]), default=1)

    @functools.lru_cache(None)
    def size(self, kind):
        kind = self.whole(kind)
        if kind[0] == "int":
            return max(1, kind[1] // 8)
        if kind[0] == "pointer":
            return self.pointer_bytes
        if kind[0] == "array":
            return kind[1] * self.size(kind[2])
        return self.member(kind, len(kind[1]))[0]

    @functools.lru_cache(None)
    def member(self, kind, index):
        """Returns offset and type of a member; behind the last one, the size."""
        kind = self.whole(kind)
        if kind[0] == "array":
            return index * self.size(kind[2]), kind[2]
        at = 0
        for n, member in enumerate(kind[1]):
            if not kind[2]:
                at = -(-at // self.align(member)) * self.align(member)
            if n == index:
                return at, member
            at += self.size(member)
        return -(-at // self.align(kind)) * self.align(kind), None


OPERATIONS = {
    "add": lambda a, b: a + b, "sub": lambda a, b: a - b, "and": lambda a, b: a & b,
    "or": lambda a, b: a | b, "xor": lambda a, b: a ^ b, "shl": lambda a, b: a << b,
    "lshr": z3.LShR, "mul": lambda a, b: a * b, "fdiv": lambda a, _: fresh(a.size()),
}
RELATIONS = {
    "eq": lambda a, b: a == b, "ne": lambda a, b: a != b, "ult": z3.ULT, "ule": z3.ULE,
    "ugt": z3.UGT, "uge": z3.UGE, "slt": lambda a, b: a < b, "sgt": lambda a, b: a > b,
    "sle": lambda a, b: a <= b, "sge": lambda a, b: a >= b,
}
