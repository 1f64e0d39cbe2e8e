"""The built module is the file that a device's loader expects: word size, machine, soname, a writable
module record, and the exported names, which are the same on every target.

usage: check_module_file.py MODULE 32|64
"""
import pathlib
import re
import subprocess
import sys
import unittest

MODULE, BITS = sys.argv[1], sys.argv[2]
EXPECTED = {"32": ("ELF32", "ARM", 128), "64": ("ELF64", "Advanced Micro Devices X86-64", 248)}[BITS]
# Each line is a name, or "patterns: words", each pattern with each word in place of its "*".
EXPORTS = set()
for line in pathlib.Path(__file__).with_name("exports.txt").read_text().splitlines():
    patterns, colon, words = line.partition(": ")
    EXPORTS |= {pattern.replace("*", word) for pattern in patterns.split()
                for word in words.split()} if colon else {line}


def readelf(*options):
    return subprocess.run(["readelf", "-W", *options, MODULE], check=True, capture_output=True,
                          text=True).stdout


def exported():
    """Name -> (kind, size, section number) of what the module defines for others, demangled."""
    symbols = {}
    rows = [row.split() for row in readelf("--dyn-syms").splitlines()]
    rows = [row for row in rows if len(row) >= 8 and row[0].rstrip(":").isdigit()]
    rows = [row for row in rows if row[4] != "LOCAL" and row[6] != "UND"]
    names = subprocess.run(["c++filt"], input="\n".join(row[7] for row in rows), check=True,
                           capture_output=True, text=True).stdout.splitlines()
    for row, name in zip(rows, names):
        # One name on every target: the integer types behind size_t and uint64_t differ.
        name = re.sub(r"\bunsigned (long long|long|int)\b", "unsigned", name)
        symbols[name] = (row[3], int(row[2], 0), row[6])
    return symbols


class ModuleFile(unittest.TestCase):
    def test_is_a_library_of_the_target(self):
        header = readelf("-h")
        self.assertRegex(header, r"Class: +" + EXPECTED[0] + r"\n")
        self.assertRegex(header, r"Machine: +" + EXPECTED[1] + r"\n")
        dynamic = readelf("-d")
        self.assertIn("Library soname: [audio.binaural_record.default.so]", dynamic)
        self.assertIn("SYMBOLIC", dynamic)
        self.assertNotIn("TEXTREL", dynamic)
        for library in ("libbluetooth_audio_extend_session_corva.so", "liblog.so", "libtinyxml2.so",
                        "libbluetooth_audio_extend_factory_client.so", "libbase.so"):
            self.assertIn(f"Shared library: [{library}", dynamic)

    def test_exports_exactly_the_interface(self):
        found = set(exported())
        # The class goes out whole, helpers that no interface names included.
        helpers = {name for name in found if "::BluetoothAudioPortIn::" in name}
        self.assertEqual(EXPORTS - found, set())
        self.assertEqual(found - EXPORTS - helpers, set())

    def test_module_record_is_writable(self):
        kind, size, section = exported()["HMI"]
        self.assertEqual((kind, size), ("OBJECT", EXPECTED[2]))
        # Not in .data.rel.ro, which is read-only once the loader has relocated it.
        self.assertRegex(readelf("-S"), rf"\[ *{section}\] \.data +PROGBITS .* WA ")

    def test_has_no_type_information_of_our_own(self):
        self.assertNotRegex(readelf("-s"), r"_ZT[IS]N6vendor")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
