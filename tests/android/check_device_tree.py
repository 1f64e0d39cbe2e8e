"""The files for a device tree hold together: the build file parses and agrees with the CMake build,
the audio policy entry has the platform's shape, labels cover exactly what gets installed.

usage: check_device_tree.py REPOSITORY CMAKE_SOURCES SCRATCH_FOLDER
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import unittest
import xml.etree.ElementTree as ElementTree

ROOT, CMAKE_SOURCES, SCRATCH = (pathlib.Path(argument) for argument in sys.argv[1:4])


def plain(value):
    """The Python value of an expression as the parser dumps it."""
    if not isinstance(value, dict):
        return value
    return [plain(item) for item in value["Values"]] if "Values" in value else plain(value["Value"])


class BuildFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        environment = dict(os.environ, GO111MODULE="off", GOPATH="/usr/share/gocode",
                           GOCACHE=str(SCRATCH / "go"), GOFLAGS="")
        parsed = subprocess.check_output(["go", "run", ROOT / "tests/android/dump_blueprint.go"],
                                         env=environment, stdin=open(ROOT / "Android.bp"))
        definitions = [{p["Name"]: plain(p["Value"]) for p in definition["Properties"]}
                       for definition in json.loads(parsed) if "Properties" in definition]
        cls.modules = {properties["name"]: properties for properties in definitions}

    def test_module_is_built_as_the_audio_service_needs_it(self):
        own = self.modules["audio.binaural_record.default"]
        module = {**self.modules["binaural_record_defaults"], **own}
        wanted = {"defaults": ["binaural_record_defaults"], "device_specific": True,
                  "relative_install_path": "hw", "compile_multilib": "32", "rtti": False,
                  "cpp_std": "c++17", "cppflags": ["-fexceptions"],
                  "version_script": "binaural_record/exports.map", "ldflags": ["-Wl,-Bsymbolic"],
                  "whole_static_libs": ["libbinaural_record_bcap", "libbinaural_record_bcap_dsp"],
                  "required": ["binaural_record_algo_coeffs.xml"]}
        self.assertEqual({key: module.get(key) for key in wanted}, wanted)
        self.assertIn("-fvisibility=hidden", module["cflags"])
        for library in ("libbluetooth_audio_extend_session_corva", "libtinyxml2", "libaudioutils",
                        "libbluetooth_audio_extend_factory_client", "liblog", "libbase"):
            self.assertIn(library, module["shared_libs"])

    def test_sources_and_their_flags_are_those_of_the_cmake_build(self):
        libraries = {"libbinaural_record_bcap": "bcap", "libbinaural_record_bcap_dsp": "bcap",
                     "audio.binaural_record.default": "binaural_record_core"}
        matched = []
        for name, target in libraries.items():
            properties = self.modules[name]
            for path in (p for pattern in properties["srcs"] for p in ROOT.glob(pattern)):
                if str(path.relative_to(ROOT)) not in properties.get("exclude_srcs", []):
                    matched.append([target, str(path), *properties.get("cflags", [])])
        built = [line.split() for line in CMAKE_SOURCES.read_text().splitlines()]
        self.assertEqual(sorted(matched), sorted(built))

    def test_files_and_folders_named_exist(self):
        for module in self.modules.values():
            named = module.get("export_include_dirs", []) + module.get("local_include_dirs", [])
            named += [module[key] for key in ("version_script", "src") if key in module]
            self.assertEqual([path for path in named if not (ROOT / path).exists()], [])

    def test_what_is_installed_lands_where_it_is_looked_for(self):
        makefile = (ROOT / "android/binaural_record.mk").read_text()
        self.assertEqual(re.findall(r"PRODUCT_PACKAGES \+= (.*)", makefile),
                         ["audio.binaural_record.default"])
        self.assertTrue(self.modules["binaural_record_algo_coeffs.xml"]["device_specific"])
        sources = "".join(p.read_text() for p in (ROOT / "binaural_record").rglob("*.h"))
        self.assertIn('"/odm/etc/binaural_record_algo_coeffs.xml"', sources)

    def test_labels_cover_exactly_what_is_installed(self):
        installed = ["/odm/lib/hw/audio.binaural_record.default.so",
                     "/odm/lib64/hw/libbinaural_record_bcap-2.0.so",
                     "/odm/etc/binaural_record_algo_coeffs.xml"]
        lines = [line for line in (ROOT / "android/sepolicy/file_contexts").read_text().splitlines()
                 if line and not line.startswith("#")]
        self.assertEqual(len(lines), len(installed))
        for path, line in zip(installed, lines):
            pattern, label = line.split()
            self.assertRegex(label, r"^u:object_r:\w+:s0$")
            self.assertTrue(re.fullmatch(pattern, path), path)
            self.assertTrue(re.fullmatch(pattern, "/vendor" + path), path)
            self.assertFalse(re.fullmatch(pattern, path.replace(".", "_")), path)

    def test_policy_rules_have_the_language_s_shape(self):
        text = (ROOT / "android/sepolicy/hal_audio_binaural_record.te").read_text()
        rules = [line for line in text.splitlines() if line and not line.startswith("#")]
        self.assertGreater(len(rules), 0)
        for rule in rules:
            self.assertRegex(rule, r"^(allow \w+ \w+:\w+ (\w+|\{( \w+)+ \});|\w+\(\w+(, \w+)*\))$")


class PolicyEntry(unittest.TestCase):
    def test_has_the_platform_s_shape_and_offers_what_the_module_can_record(self):
        module = ElementTree.parse(ROOT / "android/audio_policy_module.xml").getroot()
        mix, device = "binaural_record input", "Binaural Headset In"
        profile = ("profile", {"name": "", "format": "AUDIO_FORMAT_PCM_16_BIT",
                               "samplingRates": "44100,48000", "channelMasks": "AUDIO_CHANNEL_IN_STEREO"})
        # In the order of the platform's parser. No attached device: it would be opened at boot.
        self.assertEqual([(element.tag, element.attrib) for element in module.iter()], [
            ("module", {"name": "binaural_record", "halVersion": "2.0"}),
            ("mixPorts", {}),
            ("mixPort", {"name": mix, "role": "sink", "maxOpenCount": "1", "maxActiveCount": "1"}),
            profile,
            ("devicePorts", {}),
            ("devicePort", {"tagName": device, "role": "source", "type": "AUDIO_DEVICE_IN_PROXY"}),
            profile,
            ("routes", {}),
            ("route", {"type": "mix", "sink": mix, "sources": device})])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
