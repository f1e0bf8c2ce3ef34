#!/usr/bin/env python3
"""Adds Quenthra Orvane v2 to a device's audio_effects.conf and keeps every other byte.

    merge_audio_effects.py DEVICE_ROOT OUTPUT

DEVICE_ROOT holds the device's files in the same folders as on the device (system/etc/...,
vendor/etc/...). The script reads the file that is in force. That is the vendor's if there is one,
because it replaces the system's file as a whole. OUTPUT may be the same file. It belongs at the same
place on the device, and the script prints that path. If the effect is already in the file, OUTPUT is
a copy.

The status is 0 if OUTPUT was written. It is 1, and nothing is written, if there is no such file, or
if it is malformed or contradicts the new entries.
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


class Malformed(Exception):
    pass


class Block:
    def __init__(self, line):
        self.values = {}  # name: text up to the end of the line
        self.blocks = {}  # name: Block; if a name appears twice, the platform sees the first
        self.begin = line  # index of the line of its opening brace
        self.end = None  # index of the line of its closing brace


def parse(text):
    """Returns the file as a Block. Each line holds one thing, as in the platform's own files: "name {",
    "name value" or "}". A value reaches to the end of the line, as for the platform's parser. A comment
    begins with #."""
    root = Block(-1)
    open_blocks = [root]
    waiting = None  # a name whose opening brace is on a later line
    for number, line in enumerate(text.split("\n")):
        words = line.split("#", 1)[0].split(None, 1)
        if not words:
            continue
        name, value = words[0], words[1].strip() if len(words) > 1 else ""
        block = open_blocks[-1]
        opens = value == "{" and waiting is None
        if name == "{" and not value and waiting is not None:
            name, waiting, opens = waiting, None, True
        if waiting is not None:
            raise Malformed(f"line {number + 1}: expected {{")
        if opens:
            open_blocks.append(Block(number))
            block.blocks.setdefault(name, open_blocks[-1])
        elif name == "}" and not value and len(open_blocks) > 1:
            open_blocks.pop().end = number
            continue
        elif re.search("[{}]", name + value):
            raise Malformed(f"line {number + 1}: a brace out of place")
        elif value:
            block.values.setdefault(name, value)
        else:
            waiting = name
        if not re.fullmatch(r"[\w.\-/]+", name):
            raise Malformed(f"line {number + 1}: {name!r} is no name")
    if len(open_blocks) > 1 or waiting is not None:
        raise Malformed("it ends inside a block")
    return root


def merge(data):
    """Takes the bytes of a file and returns them with our library and effect added."""
    text = data.decode("latin-1")  # makes every byte a character, so that encoding restores it
    root = parse(text)
    lines = text.split("\n")
    insertions = []
    for section, ours in OURS.items():
        block = root.blocks.get(section)
        if block is None:
            raise Malformed(f"there is no section {section}")
        present = block.blocks.get(NAME)
        if present is not None:
            if present.values != ours:
                raise Malformed(f"{section} holds another {NAME}")
            continue
        for other, its in block.blocks.items():
            if its.values.get("uuid", "").lower() == ours.get("uuid"):
                raise Malformed(f"effect {other} has the same uuid")
        closing = lines[block.end]
        indent = closing[:len(closing) - len(closing.lstrip())]
        line_end = "\r" if lines[block.begin].endswith("\r") else ""
        added = [f"  {NAME} {{", *(f"    {key} {value}" for key, value in ours.items()), "  }"]
        insertions.append((block.end, [indent + line + line_end for line in added]))
    for at, added in sorted(insertions, reverse=True):
        lines[at:at] = added
    return "\n".join(lines).encode("latin-1")


def main(arguments):
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
            merged = merge(file.read())
        with open(output + ".new", "wb") as file:
            file.write(merged)
        os.replace(output + ".new", output)
    except Malformed as error:
        sys.exit(f"merge_audio_effects: {path}: {error}")
    except OSError as error:
        sys.exit(f"merge_audio_effects: {error}")
    print(f"/{name}")


if __name__ == "__main__":
    main(sys.argv[1:])
