#!/usr/bin/env python3
"""Adds Quenthra Orvane v2 to a device's audio_effects.conf, or takes it out, and keeps every other byte.

    merge_audio_effects.py [--remove] DEVICE_ROOT OUTPUT

DEVICE_ROOT holds the device's files in the same folders as on the device (system/etc/...,
vendor/etc/...). The script reads the file that is in force. That is the vendor's if there is one,
because it replaces the system's file as a whole. OUTPUT may be the same file. It belongs at the same
place on the device, and the script prints that path. If there is nothing to add or to take out, OUTPUT
is a copy. Adding and then taking out gives the bytes from before.

The status is 0 if OUTPUT was written. It is 1, and nothing is written, if there is no such file, if a
section of it is missing or has no end, or if it contradicts the entries.
"""
import os
import re
import sys

IN_ORDER = ("vendor/etc/audio_effects.conf", "system/vendor/etc/audio_effects.conf",
            "system/etc/audio_effects.conf")
NAME = "qth_orvane"
OURS = {
    "libraries": {"path": "/system/lib/soundfx/libqth_orvane_ics_NOVFP.so"},
    "effects": {"library": NAME, "uuid": "d92c3a90-3e26-11e2-a25f-0800200c9a66"},
}
BLANKS = " \t\n\v\f\r"
IGNORED = re.compile(rf"(?:[{BLANKS}]|#[^\n]*)*")  # blanks, and comments up to the end of the line
WORD = re.compile(rf"[^{BLANKS}.{{}}]+")


class Malformed(Exception):
    pass


class Node:
    def __init__(self, name):
        self.name = name
        self.value = None  # text from the value's first character up to the end of the line
        self.children = []
        self.blocks = []  # for each pair of braces, [offset of the name, offset of the last brace or None]
        self.dotted = False  # True if the name stands before or after a dot

    def named(self, name):
        return [child for child in self.children if child.name == name]

    def values(self):
        return {child.name: child.value for child in reversed(self.children)}


def parse(text):
    """Returns the file as the platform's parser reads it, and the offset at which that stops. It stops
    at the first thing out of place, and what it has read until then counts. It reads "name value" and
    "name { ... }", and "a.b" like a block with one thing in it. Only a value ends with its line. Blocks
    of the same name are one block."""
    text = text.split("\0", 1)[0]
    root = Node("")
    open_nodes = [root]
    at = 0
    while True:
        at = IGNORED.match(text, at).end()
        if text[at:at + 1] == "}" and len(open_nodes) > 1:
            open_nodes.pop().blocks[-1][1] = at
            at += 1
            continue
        node, token, dotted = open_nodes[-1], None, False
        while token in (None, "."):
            word = WORD.match(text, at)
            if word is None:
                return root, at
            same = [child for child in node.named(word[0]) if not child.value]
            node.children += [] if same else [Node(word[0])]
            node, start = same[0] if same else node.children[-1], at
            at = IGNORED.match(text, word.end()).end()
            token = text[at:at + 1]
            dotted = dotted or token == "."
            node.dotted = node.dotted or dotted
            if token == ".":
                at = IGNORED.match(text, at + 1).end()
        if token in ("", "}"):
            return root, at
        if token == "{":
            node.blocks.append([start, None])
            open_nodes.append(node)
            at += 1
        else:
            line_end = text.find("\n", at)
            line_end = len(text) if line_end < 0 else line_end
            node.value = text[at:line_end].rstrip(BLANKS)
            at = line_end


def read(text):
    """Returns our sections by name, and those entries of theirs that are ours. Raises Malformed if a
    section is missing or an entry of our name is another one."""
    root, stop = parse(text)
    where = f"; line {text.count(chr(10), 0, stop) + 1}: the platform reads no further"
    sections, entries = {}, {}
    for name, ours in OURS.items():
        section = next(iter(root.named(name)), Node(name))
        sections[name], entries[name] = section, section.named(NAME)
        if not section.blocks:
            raise Malformed(f"there is no section {name}{where}")
        for node in (section, *entries[name]):
            if None in (end for _, end in node.blocks):
                raise Malformed(f"section {name} has no end{where}")
        for entry in entries[name]:
            its = {(child.name, child.value) for child in entry.children}
            if its != set(ours.items()) or entry.value or entry.dotted:
                raise Malformed(f"{name} holds another {NAME}")
    return sections, entries


def merge(text):
    """Returns the text of a file with our library and effect added."""
    insertions = []
    sections, entries = read(text)
    for name, ours in OURS.items():
        if entries[name]:
            continue
        section = sections[name]
        for other in section.children:
            if (other.values().get("uuid") or "").lower() == ours.get("uuid"):
                raise Malformed(f"effect {other.name} has the same uuid")
        start, end = section.blocks[0]
        line_end = "\r\n" if "\r\n" in text[start:end] else "\n"
        line = text.rfind("\n", 0, end) + 1
        indent = text[line:end]
        lines = [f"{NAME} {{", *(f"    {key} {value}" for key, value in ours.items()), "  }"]
        if indent.strip(BLANKS):  # the closing brace isn't the first thing on its line
            insertions.append((end, line_end.join(lines)))
        else:
            lines[0] = "  " + lines[0]
            insertions.append((line, "".join(indent + each + line_end for each in lines)))
    for at, added in sorted(insertions, reverse=True):
        text = text[:at] + added + text[at:]
    return text


def remove(text):
    """Returns the text of a file with our library and effect taken out. An entry that has its lines for
    itself goes with these lines."""
    blocks = [block for entries in read(text)[1].values() for entry in entries
              for block in entry.blocks]
    for begin, end in sorted(blocks, reverse=True):
        end += 1
        line = text.rfind("\n", 0, begin) + 1
        rest = re.compile(r"[ \t\r]*\n").match(text, end)
        if rest and not text[line:begin].strip(BLANKS):
            begin, end = line, rest.end()
        text = text[:begin] + text[end:]
    return text


def main(arguments):
    change = merge
    if arguments[:1] == ["--remove"]:
        change = remove
        del arguments[0]
    if len(arguments) != 2:
        sys.exit(__doc__)
    root, output = arguments
    for name in IN_ORDER:
        path = os.path.join(root, name)
        if os.path.exists(path):
            break
    else:
        sys.exit(f"merge_audio_effects: no audio_effects.conf in {root}")
    try:
        with open(path, "rb") as file:
            text = file.read().decode("latin-1")  # one character a byte, so encoding restores it
        changed = change(text).encode("latin-1")
        with open(output + ".new", "wb") as file:
            file.write(changed)
        os.replace(output + ".new", output)
    except Malformed as error:
        sys.exit(f"merge_audio_effects: {path}: {error}")
    except OSError as error:
        sys.exit(f"merge_audio_effects: {error}")
    print(f"/{name}")


if __name__ == "__main__":
    main(sys.argv[1:])
