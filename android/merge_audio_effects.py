#!/usr/bin/env python3
"""Adds Quenthra Orvane v2 to a device's list of effects, or takes it out, and keeps every other byte.

    merge_audio_effects.py [--remove] [--library PATH] DEVICE_ROOT OUTPUT

DEVICE_ROOT holds the device's files in the same folders as on the device (system/etc/...,
vendor/etc/...). The script reads the list that is in force: audio_effects.xml if there is one, else the
vendor's audio_effects.conf if there is one, because it replaces the system's file as a whole. OUTPUT may
be the same file. It belongs at the same place on the device, and the script prints that path. If there is
nothing to add or to take out, OUTPUT is a copy. Adding and then taking out gives the bytes from before.

PATH is the library's on the device; without it, that of Android 4.0 to 4.2. In audio_effects.xml only its
file name is written. --remove takes out our entries with any path of our libraries.

The status is 0 if OUTPUT was written. It is 1, and nothing is written, if there is no such file, if a
section of it is missing or has no end, or if it contradicts the entries.
"""
import argparse
import os
import re
import sys
import xml.parsers.expat

IN_ORDER = ("vendor/etc/audio_effects.xml", "system/vendor/etc/audio_effects.xml",
            "vendor/etc/audio_effects.conf", "system/vendor/etc/audio_effects.conf",
            "system/etc/audio_effects.conf")
NAME = "qth_orvane"
UUID = "d92c3a90-3e26-11e2-a25f-0800200c9a66"
LIBRARY = "/system/lib/soundfx/libqth_orvane_ics_NOVFP.so"
OUR_FILES = ("libqth_orvane_ics_NOVFP.so", "libqth_orvane.so")
SECTIONS = ("libraries", "effects")
XML_TAGS = {"libraries": "library", "effects": "effect"}  # of the entries in each section
BLANKS = " \t\n\v\f\r"
IGNORED = re.compile(rf"(?:[{BLANKS}]|#[^\n]*)*")  # blanks, and comments up to the end of the line
TAG = re.compile(r"""<[^\s/>]+(?:\s+[^\s=]+\s*=\s*(?:"[^"]*"|'[^']*'))*\s*/?>""")
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


class Section:
    """A section as it stands in the file. Offsets are in bytes, and a piece is a pair of them."""

    def __init__(self, start, end):
        self.start = start
        self.end = end  # of the brace or tag that ends the section; entries are added before it
        self.entries = []  # those of our name: their attributes without the name, and their pieces
        self.uuids = {}  # the names of all other entries by their uuids


def read_conf(text):
    """Returns the two sections of an audio_effects.conf by name. Raises Malformed if one is missing."""
    root, stop = parse(text)
    where = f"; line {text.count(chr(10), 0, stop) + 1}: the platform reads no further"
    sections = {}
    for name in SECTIONS:
        found = next(iter(root.named(name)), Node(name))
        if not found.blocks:
            raise Malformed(f"there is no section {name}{where}")
        for node in (found, *found.named(NAME)):
            if None in (end for _, end in node.blocks):
                raise Malformed(f"section {name} has no end{where}")
        section = sections[name] = Section(*found.blocks[0])
        for entry in found.children:
            if entry.name != NAME:
                section.uuids[(entry.values().get("uuid") or "").lower()] = entry.name
            else:
                plain = not entry.value and not entry.dotted and len(entry.values()) == len(
                    {(child.name, child.value) for child in entry.children})
                section.entries.append((entry.values() if plain else {},
                                        [(begin, end + 1) for begin, end in entry.blocks]))
    return sections


class Element:
    def __init__(self, tag, attributes, begin):
        self.tag = tag
        self.attributes = attributes
        self.begin = begin
        self.closing = None  # offset of the closing tag, or None if there is none
        self.end = None
        self.children = []


def parse_xml(text):
    """Returns the root element of a document. Raises Malformed if it is none, or has a document type,
    whose entities could stand for elements."""
    data = text.encode("latin-1")
    parser = xml.parsers.expat.ParserCreate()
    top = Element("", {}, 0)
    open_elements = [top]

    def start(tag, attributes):
        element = Element(tag, attributes, parser.CurrentByteIndex)
        open_elements[-1].children.append(element)
        open_elements.append(element)

    def stop(_):
        element = open_elements.pop()
        element.end = TAG.match(text, element.begin).end()
        if text[element.end - 2] != "/":
            element.closing = parser.CurrentByteIndex
            element.end = text.index(">", element.closing) + 1

    def refuse(*_):
        raise Malformed("it has a document type")

    parser.StartElementHandler, parser.EndElementHandler = start, stop
    parser.StartDoctypeDeclHandler = refuse
    if data.startswith((b"\xff\xfe", b"\xfe\xff")):
        raise Malformed("it has two bytes a character")
    try:
        parser.Parse(data, True)
    except xml.parsers.expat.ExpatError as error:
        raise Malformed(str(error)) from error
    return top.children[0]


def read_xml(text):
    """Returns the two sections of an audio_effects.xml by name. Raises Malformed if one is missing."""
    root = parse_xml(text)
    if root.tag != "audio_effects_conf":
        raise Malformed(f"it is a document of another kind, {root.tag}")
    sections = {}
    for name in SECTIONS:
        found = [element for element in root.children if element.tag == name]
        with_end = [element for element in found if element.closing is not None]
        if not with_end:
            raise Malformed(f"there is no section {name} with a closing tag")
        section = sections[name] = Section(with_end[0].begin, with_end[0].closing)
        for entry in (child for element in found for child in element.children):
            if entry.attributes.pop("name", None) != NAME:
                section.uuids[entry.attributes.get("uuid", "").lower()] = entry.tag
            else:
                plain = entry.tag == XML_TAGS[name] and not entry.children
                section.entries.append((entry.attributes if plain else {}, [(entry.begin, entry.end)]))
    return sections


def conf_lines(_, attributes):
    return [f"  {NAME} {{", *(f"    {key} {value}" for key, value in attributes.items()), "  }"]


def xml_lines(section, attributes):
    values = "".join(f' {key}="{value}"' for key, value in attributes.items())
    return [f'    <{XML_TAGS[section]} name="{NAME}"{values}/>']


# How a list is written. The functions read its sections, make the lines of an entry, and shorten the
# library's path.
CONF = (read_conf, conf_lines, lambda library: library)
XML = (read_xml, xml_lines, os.path.basename)


def ours(path):
    """Returns the attributes of our entries by section."""
    return {"libraries": {"path": path}, "effects": {"library": NAME, "uuid": UUID}}


def merge(text, form=CONF, library=LIBRARY):
    """Returns the text of a list with our library and effect added."""
    insertions = []
    read, lines_of, shorten = form
    wanted = ours(shorten(library))
    for name, section in read(text).items():
        if any(entry != wanted[name] for entry, _ in section.entries):
            raise Malformed(f"{name} holds another {NAME}")
        if section.entries:
            continue
        if wanted[name].get("uuid") in section.uuids:
            raise Malformed(f"effect {section.uuids[UUID]} has the same uuid")
        line_end = "\r\n" if "\r\n" in text[section.start:section.end] else "\n"
        line = text.rfind("\n", 0, section.end) + 1
        indent = text[line:section.end]
        lines = lines_of(name, wanted[name])
        if indent.strip(BLANKS):  # what ends the section isn't the first thing on its line
            insertions.append((section.end, line_end.join(lines).lstrip(" ")))
        else:
            insertions.append((line, "".join(indent + each + line_end for each in lines)))
    for at, added in sorted(insertions, reverse=True):
        text = text[:at] + added + text[at:]
    return text


def remove(text, form=CONF):
    """Returns the text of a list with our library and effect taken out. An entry that has its lines for
    itself goes with these lines."""
    pieces = []
    for name, section in form[0](text).items():
        for entry, its_pieces in section.entries:
            path = entry.get("path") or ""
            known = name != "libraries" or os.path.basename(path) in OUR_FILES
            if not known or entry != ours(path)[name]:
                raise Malformed(f"{name} holds another {NAME}")
            pieces += its_pieces
    for begin, end in sorted(pieces, reverse=True):
        line = text.rfind("\n", 0, begin) + 1
        rest = re.compile(r"[ \t\r]*\n").match(text, end)
        if rest and not text[line:begin].strip(BLANKS):
            begin, end = line, rest.end()
        text = text[:begin] + text[end:]
    return text


def main():
    options = argparse.ArgumentParser(description=__doc__,
                                      formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--remove", action="store_true")
    options.add_argument("--library", metavar="PATH", default=LIBRARY)
    options.add_argument("root", metavar="DEVICE_ROOT")
    options.add_argument("output", metavar="OUTPUT")
    options = options.parse_args()
    for name in IN_ORDER:
        path = os.path.join(options.root, name)
        if os.path.exists(path):
            break
    else:
        sys.exit(f"merge_audio_effects: no list of effects in {options.root}")
    form = XML if name.endswith(".xml") else CONF
    try:
        with open(path, "rb") as file:
            text = file.read().decode("latin-1")  # one character a byte, so encoding restores it
        changed = remove(text, form) if options.remove else merge(text, form, options.library)
        with open(options.output + ".new", "wb") as file:
            file.write(changed.encode("latin-1"))
        os.replace(options.output + ".new", options.output)
    except Malformed as error:
        sys.exit(f"merge_audio_effects: {path}: {error}")
    except OSError as error:
        sys.exit(f"merge_audio_effects: {error}")
    print(f"/{name}")


if __name__ == "__main__":
    main()
