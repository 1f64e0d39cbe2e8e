"""The files for a device tree hold together: the build file parses and agrees with the CMake build,
the audio policy entry has the platform's shape, labels cover exactly what gets installed.

usage: check_device_tree.py REPOSITORY CMAKE_SOURCES.json SCRATCH_FOLDER
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
HERE = ROOT / "tests/android"


def read_blueprint(path):
    environment = dict(os.environ, GO111MODULE="off", GOPATH="/usr/share/gocode",
                       GOCACHE=str(SCRATCH / "go"), GOFLAGS="")
    return subprocess.run(["go", "run", HERE / "dump_blueprint.go", path],
                          env=environment, capture_output=True, text=True)


def lint(text):
    """Exit status of the schema check of one policy entry."""
    return subprocess.run(["xmllint", "--noout", "--schema", HERE / "audio_policy_module.xsd", "-"],
                          input=text, capture_output=True, text=True)


class BuildFile(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        parsed = read_blueprint(ROOT / "Android.bp")
        assert parsed.returncode == 0, parsed.stderr
        cls.modules = {m["properties"]["name"]: m for m in json.loads(parsed.stdout)}

    def with_defaults(self, name):
        own = self.modules[name]["properties"]
        merged = {}
        for default in own.get("defaults", []):
            merged.update(self.modules[default]["properties"])
        return {**merged, **own}

    def test_parser_refuses_a_broken_file(self):
        broken = SCRATCH / "broken.bp"
        broken.write_text('cc_library_shared { name: "a", srcs: ["b" }')
        self.assertNotEqual(read_blueprint(broken).returncode, 0)

    def test_module_is_built_as_the_audio_service_needs_it(self):
        module = self.with_defaults("audio.binaural_record.default")
        wanted = {"device_specific": True, "relative_install_path": "hw", "compile_multilib": "32",
                  "rtti": False, "cpp_std": "c++17", "cppflags": ["-fexceptions"],
                  "version_script": "binaural_record/exports.map", "ldflags": ["-Wl,-Bsymbolic"],
                  "whole_static_libs": ["libbinaural_record_bcap", "libbinaural_record_bcap_dsp"],
                  "required": ["binaural_record_algo_coeffs.xml"]}
        self.assertEqual({key: module.get(key) for key in wanted}, wanted)
        self.assertIn("-fvisibility=hidden", module["cflags"])
        for library in ("libbluetooth_audio_extend_session_corva", "libtinyxml2", "libaudioutils",
                        "libbluetooth_audio_extend_factory_client", "liblog", "libbase"):
            self.assertIn(library, module["shared_libs"])

    def test_sources_and_their_flags_are_those_of_the_cmake_build(self):
        cmake = json.loads(CMAKE_SOURCES.read_text())
        libraries = {"libbinaural_record_bcap": "bcap", "libbinaural_record_bcap_dsp": "bcap",
                     "audio.binaural_record.default": "binaural_record_core"}
        matched = {"bcap": {}, "binaural_record_core": {}}
        for name, target in libraries.items():
            properties = self.modules[name]["properties"]
            excluded = properties.get("exclude_srcs", [])
            for path in (p for pattern in properties["srcs"] for p in ROOT.glob(pattern)):
                relative = str(path.relative_to(ROOT))
                if relative not in excluded:
                    self.assertNotIn(relative, matched[target])
                    matched[target][relative] = properties.get("cflags", [])
        for target, sources in matched.items():
            built = {os.path.relpath(path, ROOT): flags for path, flags in cmake[target].items()}
            self.assertEqual(sources, built)

    def test_files_and_folders_named_exist(self):
        for module in self.modules.values():
            properties = module["properties"]
            named = properties.get("export_include_dirs", []) + properties.get("local_include_dirs", [])
            named += [properties[key] for key in ("version_script", "src") if key in properties]
            for path in named:
                self.assertTrue((ROOT / path).exists(), path)

    def test_coefficient_file_lands_where_the_module_looks(self):
        file = self.with_defaults("binaural_record_algo_coeffs.xml")
        installed = "/odm/etc/" + file["name"]
        self.assertTrue(file["device_specific"])
        sources = "".join(p.read_text() for p in (ROOT / "binaural_record").rglob("*.h"))
        self.assertIn(f'"{installed}"', sources)

    def test_product_makefile_names_modules_of_the_build_file(self):
        text = (ROOT / "android/binaural_record.mk").read_text()
        packages = re.findall(r"PRODUCT_PACKAGES \+= (.*)", text)
        self.assertEqual(packages, ["audio.binaural_record.default"])
        self.assertIn(packages[0], self.modules)

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
    text = (ROOT / "android/audio_policy_module.xml").read_text()

    def test_has_the_platform_s_shape(self):
        result = lint(self.text)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_shape_check_refuses_what_the_platform_refuses(self):
        cases = {"no version": (' halVersion="2.0"', ""),
                 "unknown version": ('halVersion="2.0"', 'halVersion="9.0"'),
                 "unknown role": ('role="sink"', 'role="drain"'),
                 "rates in blanks": ("44100,48000", "44100 48000"),
                 "no device type": (' type="AUDIO_DEVICE_IN_PROXY"', ""),
                 "unclosed": ("</routes>", "")}
        for name, (old, new) in cases.items():
            self.assertIn(old, self.text, name)
            self.assertNotEqual(lint(self.text.replace(old, new)).returncode, 0, name)

    def test_offers_what_the_module_can_record_and_nothing_else(self):
        module = ElementTree.fromstring(self.text)
        self.assertEqual(module.attrib, {"name": "binaural_record", "halVersion": "2.0"})
        self.assertIsNone(module.find("attachedDevices"))
        (mix,) = module.iter("mixPort")
        (device,) = module.iter("devicePort")
        (route,) = module.iter("route")
        self.assertEqual((mix.get("role"), mix.get("maxOpenCount"), mix.get("maxActiveCount")),
                         ("sink", "1", "1"))
        self.assertEqual((device.get("role"), device.get("type")),
                         ("source", "AUDIO_DEVICE_IN_PROXY"))
        self.assertEqual((route.get("sink"), route.get("sources")),
                         (mix.get("name"), device.get("tagName")))
        for port in (mix, device):
            (profile,) = port
            self.assertEqual(profile.attrib, {
                "name": "", "format": "AUDIO_FORMAT_PCM_16_BIT", "samplingRates": "44100,48000",
                "channelMasks": "AUDIO_CHANNEL_IN_STEREO"})


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
