"""Tests merge_audio_effects.py on files like those of devices, and on broken ones."""
import os
import subprocess
import sys
import tempfile
import unittest

SCRIPT = os.path.join(os.path.dirname(__file__), "..", "merge_audio_effects.py")
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


class Merge(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def put(self, name, data):
        path = os.path.join(self.folder.name, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(data)

    def merge(self):
        """Returns the merged bytes, or the script's complaint."""
        output = os.path.join(self.folder.name, "output")
        run = subprocess.run([sys.executable, SCRIPT, self.folder.name, output],
                             capture_output=True, text=True)
        if run.returncode != 0:
            self.assertFalse(os.path.exists(output))
            return run.stderr
        with open(output, "rb") as file:
            return file.read()

    def test_adds_two_entries_once_and_keeps_the_rest(self):
        for given, wanted in ((STOCK, MERGED), (MERGED, MERGED),
                              (MERGED.replace(EFFECT, b""), MERGED),
                              (STOCK.replace(b"\n", b"\r\n"), MERGED.replace(b"\n", b"\r\n"))):
            self.put("system/etc/audio_effects.conf", given)
            self.assertEqual(self.merge(), wanted)

    def test_the_vendors_file_is_in_force(self):
        self.put("system/etc/audio_effects.conf", b"libraries {\n}\neffects {\n}\n")
        self.put("vendor/etc/audio_effects.conf", STOCK)
        self.assertEqual(self.merge(), MERGED)

    def test_refuses_what_it_cannot_read_and_writes_nothing(self):
        self.assertIn("no audio_effects.conf", self.merge())
        for given, complaint in (
                (b"", "no section libraries"),
                (STOCK[:-1], "ends inside a block"),
                (STOCK + b"\n}", "brace out of place"),
                (b"libraries { }\neffects { }\n", "brace out of place"),
                (STOCK.replace(b"effects\n", b"effects\nx\n"), "expected {"),
                (STOCK.replace(b"  mic {", b"  m:c {"), "no name"),
                (MERGED.replace(b"_NOVFP", b"_VFP"), "another qth_orvane"),
                (STOCK.replace(b"8631f300-72e2-11df-b57e-0002a5d5c51b",
                               b"D92C3A90-3E26-11E2-A25F-0800200C9A66"), "the same uuid")):
            self.put("system/etc/audio_effects.conf", given)
            self.assertIn(complaint, str(self.merge()), given)


if __name__ == "__main__":
    unittest.main()
