"""Tests merge_audio_effects.py on files like those of devices, on broken ones and on random ones. These
are read by the platform's own parser, too."""
import ctypes
import importlib.util
import os
import random
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "merge_audio_effects.py")
PARSER = f"/usr/lib/{os.uname().machine}-linux-gnu/android/libcutils.so.0"
STOCK = b"""# List of effect libraries to load.
libraries {
  bundle {
    path /system/lib/soundfx/libbundlewrapper.so
  }
}

# caf\xe9
effects
{
  bassboost {
    library bundle
    uuid 8631f300-72e2-11df-b57e-0002a5d5c51b
  }
\t}
pre_processing {
  mic {
    aec {
    }
  }
}"""
LIBRARY = b"""  qth_orvane {
    path /system/lib/soundfx/libqth_orvane_ics_NOVFP.so
  }
"""
EFFECT = b"""\t  qth_orvane {
\t    library qth_orvane
\t    uuid d92c3a90-3e26-11e2-a25f-0800200c9a66
\t  }
"""
MERGED = STOCK.replace(b"}\n\n#", LIBRARY + b"}\n\n#").replace(b"\t}", EFFECT + b"\t}")


XML = b"""\xef\xbb\xbf<?xml version="1.0" encoding="UTF-8"?>
<audio_effects_conf version="2.0" xmlns="http://schemas.android.com/audio/audio_effects_conf/v2_0">
    <libraries>
        <library name="bundle" path="libbundlewrapper.so"/>
    </libraries>
    <effects>
        <effect name="bassboost" library="bundle" uuid="8631f300-72e2-11df-b57e-0002a5d5c51b"/>
        <!-- </effects> caf\xc3\xa9 -->
    </effects>
</audio_effects_conf>
"""
XML_LIBRARY = b'        <library name="qth_orvane" path="libqth_orvane.so"/>\n'
XML_EFFECT = (b'        <effect name="qth_orvane" library="qth_orvane" '
              b'uuid="d92c3a90-3e26-11e2-a25f-0800200c9a66"/>\n')
XML_MERGED = XML.replace(b"    </libr", XML_LIBRARY + b"    </libr").replace(
    b"    </effects>\n<", XML_EFFECT + b"    </effects>\n<")


def load_script():
    module = importlib.util.spec_from_file_location("merge_audio_effects", SCRIPT)
    script = importlib.util.module_from_spec(module)
    module.loader.exec_module(script)
    return script


class Merge(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def put(self, name, data):
        path = os.path.join(self.folder.name, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)

    def merge(self, *options):
        """Returns the merged bytes, or the script's complaint."""
        output = os.path.join(self.folder.name, "output")
        run = subprocess.run([sys.executable, SCRIPT, *options, self.folder.name, output],
                             capture_output=True, text=True)
        if run.returncode != 0:
            self.assertFalse(os.path.exists(output))
            return run.stderr
        with open(output, "rb") as file:
            return file.read()

    def test_adds_two_entries_once_and_takes_all_of_them_out(self):
        twice = MERGED.replace(EFFECT, EFFECT + EFFECT)
        one_line = b"libraries {}effects {}"
        in_line = (b"libraries {" + LIBRARY.strip() + b"}effects {" + EFFECT.strip() + b"}").replace(
            b"\t", b"")
        for given, wanted, without in (
                (STOCK, MERGED, STOCK), (MERGED, MERGED, STOCK), (twice, twice, STOCK),
                (MERGED.replace(EFFECT, b""), MERGED, STOCK), (one_line, in_line, one_line),
                (STOCK.replace(b"\n", b"\r\n"), MERGED.replace(b"\n", b"\r\n"),
                 STOCK.replace(b"\n", b"\r\n"))):
            self.put("system/etc/audio_effects.conf", given)
            self.assertEqual(self.merge(), wanted)
            self.put("system/etc/audio_effects.conf", wanted)
            self.assertEqual(self.merge("--remove"), without)

    def test_the_vendors_file_is_in_force(self):
        self.put("system/etc/audio_effects.conf", b"libraries {\n}\neffects {\n}\n")
        self.put("vendor/etc/audio_effects.conf", STOCK)
        self.assertEqual(self.merge(), MERGED)

    def test_refuses_what_it_cannot_read_and_writes_nothing(self):
        self.assertIn("no list of effects", self.merge())
        for given, complaint in (
                (b"", "no section libraries"),
                (STOCK.replace(b"effects\n", b"}\neffects\n"), "no section effects; line 9"),
                (STOCK.replace(b"effects\n", b"effects x\n"), "no section effects"),
                (STOCK[:STOCK.index(b"\t}")], "section effects has no end; line 15"),
                (MERGED.replace(b"_NOVFP", b"_VFP"), "another qth_orvane"),
                (MERGED.replace(EFFECT, EFFECT + EFFECT.replace(b"0800", b"0801")), "another qth"),
                (STOCK.replace(b"effects\n", b"effects.qth_orvane.library qth_orvane\neffects.qth_orvane."
                               + EFFECT.split(b"\n")[2].strip() + b"\neffects\n"), "another qth"),
                (STOCK.replace(b"8631f300-72e2-11df-b57e-0002a5d5c51b",
                               b"D92C3A90-3E26-11E2-A25F-0800200C9A66"), "the same uuid")):
            self.put("system/etc/audio_effects.conf", given)
            self.assertIn(complaint, str(self.merge()), given)

    def test_changes_lists_in_xml_before_others(self):
        later = ("--library", "/vendor/lib64/soundfx/libqth_orvane.so")
        self.put("vendor/etc/audio_effects.conf", STOCK)
        for given, wanted, without in (
                (XML, XML_MERGED, XML), (XML.replace(b"\n", b"\r\n"), XML_MERGED.replace(b"\n", b"\r\n"),
                                         XML.replace(b"\n", b"\r\n")),
                (XML_MERGED.replace(XML_EFFECT, 2 * XML_EFFECT), XML_MERGED.replace(XML_EFFECT, 2 * XML_EFFECT),
                 XML)):
            self.put("vendor/etc/audio_effects.xml", given)
            self.assertEqual(self.merge(*later), wanted)
            self.put("vendor/etc/audio_effects.xml", wanted)
            self.assertEqual(self.merge("--remove"), without)
        os.remove(os.path.join(self.folder.name, "output"))
        for old, new, complaint in (
                (b"</libraries>", b"", "mismatched tag"), (b"effects>", b"x>", "no section effects"),
                (b"audio_effects_conf", b"x", "another kind"), (b"?>\n", b"?><!DOCTYPE x>", "document type"),
                (b"8631f300-72e2-11df-b57e-0002a5d5c51b", b"D92C3A90-3E26-11E2-A25F-0800200C9A66", "same uuid"),
                (b"    </libr", XML_LIBRARY.replace(b"ne.so", b"n.so") + b"    </libr", "another qth")):
            self.put("vendor/etc/audio_effects.xml", XML.replace(old, new))
            self.assertIn(complaint, str(self.merge(*later)))

    def test_random_lists_in_xml_keep_all_but_our_entries(self):
        def tree(text):
            return [(element.tag, sorted(element.items())) for element in
                    xml.etree.ElementTree.fromstring(text.encode("latin-1")).iter()
                    if element.get("name") != "qth_orvane"]
        pieces = ("<!-- <effects> -->", "<?x > ?>", "\n", "\r\n", "\t", " ", "<x a='>' b = \"/>\" />", "<x>/></x>",
                  "<effects/>", "<libraries><x/></libraries >", "t", "<![CDATA[</effects>]]>")
        script, pick = load_script(), random.Random(2)
        for _ in range(3000):
            some = ["".join(pick.choices(pieces, k=pick.randrange(6))) for _ in range(4)]
            text = ("\xef\xbb\xbf" * pick.randrange(2) + "<audio_effects_conf>" + some[0] + "<libraries a='/>'>" +
                    some[1] + "</libraries>" + some[2] + "<effects>" + some[3] + "</effects \n></audio_effects_conf>")
            merged = script.merge(text, script.XML)
            self.assertEqual(tree(merged), tree(text), text)
            entries = xml.etree.ElementTree.fromstring(merged.encode("latin-1"))
            self.assertEqual([len(entries.findall(f"{path}[@name='qth_orvane']")) for path in
                              ("libraries/library", "effects/effect")], [1, 1], text)
            self.assertEqual(script.merge(merged, script.XML), merged)
            self.assertEqual(script.remove(merged, script.XML), text)



class PlatformNode(ctypes.Structure):
    """A node of the platform's parser: pointers to the next node and to the children, name, value."""


PlatformNode._fields_ = [(name, ctypes.POINTER(PlatformNode)) for name in ("next", "first", "last")] + [
    (name, ctypes.c_char_p) for name in ("name", "value")]


@unittest.skipUnless(os.path.exists(PARSER), f"no {PARSER} (Debian: android-libcutils)")
class Platform(unittest.TestCase):
    """Compares with what the platform's parser sees."""
    PIECES = ("libraries", "effects", "qth_orvane", "a", "\xe9", "x#y", "path /x y", "uuid 1", "# c }\n",
              "#", "{", "{", "}", "}", "}", ".", " ", "\t", "\v", "\n", "\n", "\r\n", " {\n", "}\n")

    @classmethod
    def setUpClass(cls):
        cls.parser = ctypes.CDLL(PARSER)
        cls.parser.config_node.restype = ctypes.POINTER(PlatformNode)
        cls.parser.config_load.argtypes = [ctypes.POINTER(PlatformNode), ctypes.c_char_p]
        cls.script = load_script()

    def seen(self, text):
        """Returns what the platform reads as a list of (name, value, list)."""
        def below(node):
            child, found = node.contents.first, []
            while child:
                name, value = child.contents.name, child.contents.value or b""
                found.append((name.decode("latin-1"), value.decode("latin-1"), below(child)))
                child = child.contents.next
            return found
        root = self.parser.config_node(b"", b"")
        buffer = ctypes.create_string_buffer((text + "\n").encode("latin-1"))  # the tree points into it
        self.parser.config_load(root, buffer)
        return below(root)

    def test_reads_and_changes_random_lists_as_the_platform_sees_them(self):
        def below(node):
            return [(child.name, child.value or "", below(child)) for child in node.children]
        pick, changed = random.Random(1), 0
        for _ in range(8000):
            start, middle, end = ("".join(pick.choices(self.PIECES, k=pick.randrange(9)))
                                  for _ in range(3))
            text = start + "\nlibraries {" + middle + "}\neffects{" + end + "}"
            before = self.seen(text)
            self.assertEqual(below(self.script.parse(text)[0]), before, text)
            try:
                merged = self.script.merge(text)
            except self.script.Malformed:
                continue
            if merged.count("qth_orvane {") != text.count("qth_orvane {") + 2:
                continue
            changed += 1
            after = self.seen(merged)
            for section, ours in self.script.ours(self.script.LIBRARY).items():
                at = [name for name, _, _ in before].index(section)
                entry = ("qth_orvane", "", [(key, value, []) for key, value in ours.items()])
                before[at][2].append(entry)
                before[at][2].sort()  # the entry isn't the last one if there is a second section
                after[at][2].sort()
            self.assertEqual(after, before, text)
            self.assertEqual(self.script.merge(merged), merged, text)
            self.assertEqual(self.script.remove(merged), text)
        self.assertGreater(changed, 150)


if __name__ == "__main__":
    unittest.main()
