"""Drives the real recorder from the outside: exit codes and messages, and what is left on the disk.

Arguments: a module whose device does not open, one of another class, one that lacks a symbol, a
library that is no module, then the program.
"""

import errno
import fcntl
import functools
import json
import math
import os
import pty
import re
import resource
import select
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import wave
from pathlib import Path

REFUSING_MODULE, OTHER_CLASS, INCOMPLETE, NO_MODULE, RECORDER = sys.argv[1:]
ROOT = Path(__file__).resolve().parents[3]
DOCUMENTS = ROOT / "docs"
SAMPLE = ROOT / "etc/binaural_record_algo_coeffs.xml"
PATIENCE_S = 60  # with a step that takes milliseconds on a machine at rest


def read_wav(path):
    """Rate, channels and samples, by a reader that is not the one that wrote the file."""
    with wave.open(path) as file:
        assert file.getsampwidth() == 2
        data = file.readframes(file.getnframes())
        return file.getframerate(), file.getnchannels(), struct.unpack(f"<{len(data) // 2}h", data)


def write_wav(path, rate, frames, channels=2):
    with wave.open(path, "w") as file:
        file.setparams((channels, 2, rate, 0, "NONE", ""))
        tone = (int(3000 * math.sin(i * 0.1)) for i in range(frames))
        file.writeframes(b"".join(struct.pack("<h", s) * channels for s in tone))


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE_S
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"waited in vain for {what}")
        time.sleep(0.01)


class RecorderTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="record_program_")
        self.addCleanup(folder.cleanup)
        os.chdir(folder.name)

    def script(self, *lines):
        Path("fault.txt").write_text("\n".join(lines) + "\n")
        return "fault.txt"

    def report(self):
        return json.loads(Path("r.json").read_text())

    def samples(self):
        return read_wav("out.wav")[2]

    def assert_contains(self, text, fragments):
        for fragment in fragments:
            self.assertIn(fragment, text)

    def run_recorder(self, *args, code=0, **options):
        """Runs to the end; the text on standard error."""
        done = subprocess.run([RECORDER, *args], stderr=subprocess.PIPE,
                              stdout=options.pop("stdout", subprocess.DEVNULL),
                              timeout=2 * PATIENCE_S, **options)
        text = done.stderr.decode()
        self.assertEqual(done.returncode, code, f"{args}\n{text}")
        return text

    def start_recorder(self, *args, **options):
        process = subprocess.Popen([RECORDER, *args], stderr=subprocess.PIPE,
                                   stdout=options.pop("stdout", subprocess.DEVNULL), **options)
        self.addCleanup(lambda: (process.poll() is None and process.kill(), process.wait(),
                                 process.stderr.close()))
        return process


class CommandLine(RecorderTest):
    def test_what_cannot_be_done_is_refused_in_words(self):
        write_wav("in.wav", 48000, 960)
        write_wav("six.wav", 48000, 960, channels=6)
        write_wav("odd.wav", 22050, 960)
        Path("bad.txt").write_text("reads full\nreads sideways\n")
        Path("text.wav").write_text("not a sound")
        for code, args, fragments in [
            (2, [], ["OUT is required", "--help"]),
            (2, ["-d", "0", "out.wav"], ['"0" is not a duration']),
            (2, ["-d", "1:75", "out.wav"], ['"1:75" is not a duration', "mm:ss"]),
            (2, ["--mode", "4", "out.wav"], ["--mode", "0 to 3"]),
            (2, ["--periods", "4", "out.wav"], ["--periods", "1 to 3"]),
            (2, ["--at", "soon", "a=b", "out.wav"], ['"soon" is not a time']),
            (2, ["--headset", "x;binaural_recording_algorithmMode=3", "out.wav"], ["--headset", '";"']),
            (2, ["--headset", "a=b", "out.wav"], ["--headset", '"="']),
            (2, ["-i", "in.wav", "--source", "tone", "out.wav"], ["--source", "excludes"]),
            (2, ["-q", "-v", "out.wav"], ["excludes"]),
            (2, ["-q", "-i", "missing.wav", "out.wav"], ['cannot read "missing.wav"']),  # also when quiet
            (2, ["-i", "text.wav", "out.wav"], ["text.wav", "try: "]),
            (2, ["-i", "six.wav", "out.wav"], ["six.wav: 6 channels", "try: "]),
            (2, ["-i", "odd.wav", "out.wav"], ["odd.wav: no session has its rate of 22050 Hz", "try: "]),
            (2, ["--coefficients", "missing.xml", "out.wav"], ['cannot read "missing.xml"']),
            (2, ["--fault", "missing.txt", "out.wav"], ['cannot read "missing.txt"']),
            (2, ["--fault", "bad.txt", "out.wav"], ["bad.txt:2: expected full"]),
            (2, ["--force", "-i", "in.wav", "in.wav"], ["in.wav", "overwritten while it is read"]),
            (2, ["--json", "out.wav", "out.wav"], ["same name"]),
            (7, ["text.wav"], ['"text.wav" exists', "--force"]),
            (7, ["--json", "text.wav", "out.wav"], ['"text.wav" exists', "--force"]),
            (7, ["no/such/folder/out.wav"], ["try: "]),
            (7, ["--force", "/dev/full"], ["try: "]),
            (7, ["-"], ["try: "]),
        ]:
            with self.subTest(args=args), open("/dev/full", "wb") as full:
                self.assert_contains(self.run_recorder(*args, code=code, stdout=full), fragments)
                self.assertFalse(Path("out.wav").exists())
        self.assertEqual(Path("text.wav").read_text(), "not a sound")

    def test_help_goes_to_standard_output_and_the_manual_page_knows_what_it_says(self):
        manual = (DOCUMENTS / "man/binaural-record.1").read_text().replace("\\-", "-")
        for option, fragment in [("--version", "binaural-record 1."), ("--help", "Exit codes")]:
            done = subprocess.run([RECORDER, option], capture_output=True, check=True)
            text = done.stdout.decode()
            self.assertIn(fragment, text)
            self.assertEqual(done.stderr, b"")
        options = set(re.findall(r"--[a-z-]+", text))
        self.assertGreater(len(options), 15)
        self.run_recorder("--fast", "-d", "0.02", "--json", "r.json", "out.wav")
        for word in sorted(options) + sorted(self.report()):
            self.assertRegex(manual, re.escape(word) + r"\b", word)

    def test_every_script_of_the_guide_can_be_read(self):
        scripts = re.findall(r"```fault\n(.*?)```", (DOCUMENTS / "virtual-headset.md").read_text(), re.S)
        self.assertGreaterEqual(len(scripts), 5)
        for script in scripts:  # read before the module is looked for
            self.run_recorder("--module", "missing.so", "--fault", self.script(script), "out.wav", code=3)


class Recording(RecorderTest):
    def test_length_is_exact_to_the_frame(self):
        for rate, duration, frames in [
            ("48000", "0.001", 48), ("48000", "0.02", 960), ("48000", "0.0333", 1598),
            ("48000", "0:01", 48000), ("44100", "1", 44100), ("44100", "0.5", 22050),
        ]:
            for periods in "123":
                with self.subTest(rate=rate, duration=duration, periods=periods):
                    self.run_recorder("--fast", "--force", "--rate", rate, "-d", duration,
                                      "--periods", periods, "out.wav")
                    got_rate, channels, samples = read_wav("out.wav")
                    self.assertEqual((got_rate, channels, len(samples)), (int(rate), 2, 2 * frames))

    def test_a_file_is_recorded_from_its_first_to_its_last_frame(self):
        for rate, channels, frames, announced, args, recorded, warning in [
            (48000, 2, 12345, None, [], 12345, ""), (44100, 2, 7, None, [], 7, ""),
            (48000, 1, 4800, None, [], 4800, ""), (48000, 2, 480, 0xFFFFFFFF, [], 480, ""),  # as a stream begins
            (48000, 2, 480, 0x7FFFF024, [], 480, ""), (48000, 2, 480, 0x80000024, [], 480, ""),
            (48000, 2, 480, 1957, [], 480, ""),  # with padding that was left out
            (48000, 2, 480, 1958, [], 480, "in.wav ends early: its header announces 1966 bytes, it has 1964"),
            (48000, 2, 480, 0xC0000000, [], 480, "in.wav ends early: its header announces 3221225480 bytes, it has 1964"),
            (48000, 2, 4800, None, ["-d", "1"], 48000, '"in.wav" is shorter than the recording; silence follows it'),
        ]:
            with self.subTest(rate=rate, channels=channels, announced=announced, args=args):
                write_wav("in.wav", rate, frames, channels)
                if announced is not None:
                    data = bytearray(Path("in.wav").read_bytes())
                    data[4:8] = announced.to_bytes(4, "little")
                    Path("in.wav").write_bytes(data)
                text = self.run_recorder("--fast", "--force", "-i", "in.wav", *args, "out.wav")
                self.assertIn(warning, text)
                self.assertEqual("warning: " in text, warning != "", text)
                got_rate, got_channels, samples = read_wav("out.wav")
                self.assertEqual((got_rate, got_channels, len(samples)), (rate, 2, 2 * recorded))
                self.assertTrue(channels == 2 or samples[::2] == samples[1::2], "heard by both ears")

    def test_standard_output_carries_the_samples_of_the_file(self):
        args = ["--fast", "-d", "0.5", "--source", "tone", "--periods", "3"]
        read_end, write_end = os.pipe()
        os.set_blocking(write_end, False)  # as some shells hand it on
        fcntl.fcntl(write_end, fcntl.F_SETPIPE_SZ, 4096)  # takes less than one write
        process = self.start_recorder(*args, "-", stdout=write_end)
        wait_until(lambda: not select.select([], [write_end], [], 0)[1], "a full pipe")
        os.close(write_end)
        with open(read_end, "rb") as pipe:
            recorded = pipe.read()
        self.assertIn("to standard output", process.communicate(timeout=PATIENCE_S)[1].decode())
        self.run_recorder(*args, "out.wav")
        samples = self.samples()
        self.assertEqual(recorded, struct.pack(f"<{len(samples)}h", *samples))

    def test_the_same_command_gives_the_same_recording(self):
        # Also when little is shown: the module re-creates its algorithm inside an INFO line.
        results = []
        for name, args in [("a.wav", ["--fast"]), ("b.wav", ["--fast", "-q"]), ("c.wav", [])]:
            text = self.run_recorder(*args, "-d", "1", "--at", "0.3", "binaural_recording_algorithmMode=1",
                                     "--at", "0.6", "binaural_recording_algorithmMode=0", name)
            self.assertEqual('at 0.30 s: set "binaural_recording_algorithmMode=1"' in text, "-q" not in args)
            results.append(read_wav(name))
        self.assertEqual(results, [results[0]] * 3)

    def test_report(self):
        for source, levels in [("scene", [-16.8, -15.8, -30.1]), ("tone", [-19.3, -19.5, -19.3]),
                               ("silence", [None, None, None])]:
            with self.subTest(source=source):
                self.run_recorder("--fast", "--force", "--mode", "1", "--headset", "Nobody's",
                                  "--source", source, "--json", "r.json", "out.wav")
                report = self.report()
                wanted = {
                    "outcome": "done", "exit_code": 0, "error": None, "frames": 480000, "duration_s": 10.0,
                    "failed_reads": 0, "reads": 500, "generation": "1.0", "sample_rate_hz": 48000,
                    "channels": 2, "pacing": "fast", "source": source, "output": "out.wav",
                    "session_changes": 0, "clipped_samples": 0, "port_state": "STARTED",
                    "sizes": {"period_bytes": 3840, "request_bytes": 3840, "device_buffer_bytes": 3840}}
                self.assertEqual({key: report[key] for key in wanted}, wanted)
                self.assertGreater(report["time_to_first_sample_ms"], 0)
                for expected, level in zip(levels, report["peak_dbfs"] + [report["integrated_loudness_lufs"]]):
                    self.assertAlmostEqual(level, expected, delta=0.2)


class Endings(RecorderTest):
    def test_a_killed_recording_is_valid(self):
        for sent, code in [(signal.SIGKILL, -9), (signal.SIGINT, 0), (signal.SIGTERM, 0)]:
            with self.subTest(signal=sent):
                out = Path("out.wav")
                process = self.start_recorder("--force", "-d", "1:00", "--json", "r.json", "out.wav")
                wait_until(lambda: out.exists() and out.stat().st_size >= 20000, "audio in the file")
                process.send_signal(sent)
                text = process.communicate(timeout=PATIENCE_S)[1].decode()
                self.assertEqual(process.returncode, code, text)
                samples = self.samples()
                self.assertIn(out.stat().st_size - 44 - 2 * len(samples), range(3841))  # unfinished
                self.assertTrue(any(samples))
                if code == 0:
                    self.assertIn("Interrupted", text)
                    report = self.report()
                    self.assertEqual((report["outcome"], 2 * report["frames"]), ("interrupted", len(samples)))
                out.unlink()

    def test_ctrl_c_gets_through_to_a_headset_that_never_lets_go(self):
        for fault in ["answer never", "reads blocking"]:
            with self.subTest(fault):
                process = self.start_recorder("-vv", "--fault", self.script(fault), "out.wav")
                self.assertTrue(any(b"in_read" in line for line in process.stderr), "no read began")
                began = time.monotonic()
                process.send_signal(signal.SIGINT)
                text = process.communicate(timeout=PATIENCE_S)[1].decode()
                self.assertEqual(process.returncode, 0, text)
                self.assertLess(time.monotonic() - began, 4)
                self.assertFalse(Path("out.wav").exists())

    def test_a_full_disk_leaves_whole_frames(self):
        # Before the header, behind it, inside the first period, and at every byte of a later frame.
        for room, frames in [(20, 0), (44, 0), (45, 0), (100000, 24989), (100001, 24989),
                             (100002, 24989), (100003, 24989), (100004, 24990)]:
            with self.subTest(room=room):
                limit = functools.partial(resource.setrlimit, resource.RLIMIT_FSIZE, (room, room))
                text = self.run_recorder("--fast", "--force", "-d", "10", "out.wav", code=7,
                                         preexec_fn=limit)
                self.assert_contains(text, ['"out.wav"', "try: "])
                self.assertEqual(Path("out.wav").exists(), frames > 0)
                if frames > 0:
                    self.assertIn("further: " + os.strerror(errno.EFBIG), text)
                    self.assertEqual(len(self.samples()), 2 * frames)
                    self.assertEqual(Path("out.wav").stat().st_size, 44 + 4 * frames)

    def test_a_reader_that_goes_away_is_an_output_error(self):
        process = self.start_recorder("--fast", "-d", "10", "-", stdout=subprocess.PIPE)
        process.stdout.read(1000)
        process.stdout.close()
        text = process.stderr.read().decode()
        self.assertEqual(process.wait(PATIENCE_S), 7)
        self.assertIn("the program that was reading has ended", text)


class Refusals(RecorderTest):
    def test_are_told_in_words_and_leave_no_recording(self):
        write_wav("in.wav", 16000, 1600)
        not_ready = "absent, not ready, or accepts no client"
        for code, args, lines, fragments in [
            (3, ["--module", "missing.so"], [], ["missing.so"]),
            (3, ["--module", NO_MODULE], [], ["HMI"]),
            (3, ["--module", INCOMPLETE], [], [INCOMPLETE, "absent_everywhere"]),
            (3, ["--module", OTHER_CLASS], [], ['"sensors"']),
            (4, ["--module", REFUSING_MODULE], [], ["does not open its device (-12)"]),
            (5, [], ["instance absent"], [not_ready]),
            (5, [], ["ready no"], [not_ready]),
            (5, [], ["register zero"], [not_ready]),
            (5, [], ["parameters RATE_96000 STEREO BITS_16"], ["96000 Hz"]),
            (5, [], ["parameters RATE_48000 STEREO BITS_24"], ["noise at full scale"]),
            (5, ["-i", "in.wav"], [], ["16000 Hz; the module processes 44100 and 48000 Hz only"]),
            (6, [], ["answer never"], ["never answered"]),
            (6, [], ["reads empty"], ["delivers nothing"]),
            (6, [], ["reads blocking"], ["delivers nothing"]),
            (6, [], ["start refused"], []),
            (6, [], ["parameters RATE_48000 MONO BITS_16"], ["warning: the headset's session is mono"]),
            (6, ["--mode", "2"], [], ["warning: the module accepts mode 2", "every read fails in mode 2"]),
            (6, ["--set", "a=b;binaural_recording_algorithmMode=3"], [], ["every read fails in mode 3"]),
        ]:
            with self.subTest(args=args, lines=lines):
                text = self.run_recorder("--fast", "--give-up", "1", *args, "--json", "r.json",
                                         "--fault", self.script(*lines), "out.wav", code=code)
                self.assert_contains(text, fragments + ["try: "] + ["no audio came"] * (code == 6))
                report = self.report()
                self.assertEqual((report["exit_code"], report["outcome"]), (code, "failed"))
                self.assertIn(report["error"], text)
                self.assertFalse(Path("out.wav").exists())
                os.remove("r.json")

    def test_what_came_before_the_headset_fell_silent_stays(self):
        text = self.run_recorder("--fast", "--give-up", "0.5", "--json", "r.json",
                                 "--fault", self.script("at 1500ms reads empty"), "out.wav", code=6)
        self.assertIn("no more audio came after 00:01.", text)
        self.assertEqual(2 * self.report()["frames"], len(self.samples()))


class Faults(RecorderTest):
    def test_leave_a_recording_as_long_as_asked_for_and_are_named(self):
        wrong_mode = ["--at", "0.3", "binaural_recording_algorithmMode=2",
                      "--at", "0.32", "binaural_recording_algorithmMode=0"]  # healed at once
        for version in ("1.0", "1.4.0"):
            Path(version).write_text(f'<?xml version="1.0"?><tuning bnc_verson="{version}"/>')
        Path("torn").write_text("<tuning")
        useless = ["--at", "5", "late=1", "--set", "nothing", "--mirror",
                   "--at", "0.5", "binaural_recording_orientation=front"]
        # Fragments of the warnings, then of other lines; reads failed, session changed, tuned from the file,
        # file refused.
        for args, lines, warnings, others, expected in [
            ([], ["at 200ms reads empty", "at 400ms reads full"], [], ["Done"], (True, 0, False, False)),
            (wrong_mode, [], ["the module accepts mode 2"], [], (True, 0, False, False)),
            ([], ["parameters RATE_48000 STEREO BITS_24"],
             ["the headset's session delivers 48000 Hz, 2 channels, 24 bit"], [], (False, 0, False, False)),
            ([], ["at 200ms parameters RATE_44100 STEREO BITS_16"],
             ["session changed from 48000 Hz, 2 channels, 16 bit to 44100 Hz, 2 channels, 16 bit"], [],
             (False, 1, False, False)),
            (useless, [], ['the recording ended before "late=1" was due', '"nothing" sets nothing',
                           "add --orientation front", "taken up at the next change of mode only"], [],
             (False, 0, False, False)),
            ([], [], [], ["tuning built in"], (False, 0, False, False)),
            (["--headset", "Alder Buds"], [], [], [SAMPLE.name], (False, 0, True, False)),
            (["--headset", "Alder Bud"], [], ['has no tuning for the headset "Alder Bud"'],
             ["tuning built in"], (False, 0, False, False)),
            (["--coefficients", str(SAMPLE)], [], ["has no tuning for a headset without a name"],
             ["tuning built in"], (False, 0, False, False)),
            *((["--coefficients", file], [], [f'the module does not use "{file}"'],
               [line, "tuning built in", "binaural-tune lint"], (False, 0, False, True))
              for file, line in [("torn", "get BINAURAL_ALGO_COEFF_CONFIG_FILE fail."),
                                 ("1.0", "bcn_version config error, please check.."),
                                 ("1.4.0", "load_bcap_2_0_lib failed.")]),
        ]:
            with self.subTest(args=args, lines=lines):
                text = self.run_recorder("--fast", "--force", "-d", "2", "--json", "r.json", *args,
                                         "--fault", self.script(*lines), "out.wav")
                self.assertEqual(text.count("warning: "), len(warnings), text)
                self.assert_contains(text, warnings + others)
                report = self.report()
                self.assertEqual((report["failed_reads"] > 0, report["session_changes"],
                                  report["tuned_from_file"], report["coefficients_refused"] is not None), expected)
                self.assertIn(report["coefficients_refused"] or "", text)
                rate, _, samples = read_wav("out.wav")
                self.assertEqual((rate, len(samples)), (48000, 2 * 96000))


class Talking(RecorderTest):
    def test_how_much_is_said(self):
        forged = ["--headset", "x\x1b[2J\nE/Forged: line"]
        for args, present, absent in [
            (["-q"], [], ["Recording", "Done", "I/Binaural"]),
            ([], ["Recording 00:00.2", "Done: 0.20 s, 9600 frames"], ["I/Binaural", "V/Binaural"]),
            (["-v"], ["I/BinauralRecordIf: ", "I/BinauralRecordHalStream: "], ["V/Binaural", "D/Binaural"]),
            (["-vv", *forged],
             ["V/BinauralRecordAudioHw: ", "D/BinauralRecordHalStream: ", "btHeadsetName x\\x1b[2J"],
             ["\nE/Forged"]),
        ]:
            with self.subTest(args=args):
                text = self.run_recorder("--fast", "--force", "-d", "0.2", *args, "out.wav")
                self.assert_contains(text, present)
                for fragment in absent:
                    self.assertNotIn(fragment, text)

    def test_the_line_on_a_terminal(self):
        main, child = pty.openpty()
        process = subprocess.Popen([RECORDER, "-d", "1", "out.wav"], stderr=child,
                                   stdout=subprocess.DEVNULL, env=dict(os.environ, TERM="xterm"))
        os.close(child)
        text = b""
        with self.assertRaisesRegex(OSError, os.strerror(errno.EIO)):  # how a terminal ends
            while select.select([main], [], [], PATIENCE_S)[0]:
                text += os.read(main, 4096)
        os.close(main)
        self.assertEqual(process.wait(PATIENCE_S), 0)
        lines = [line for line in text.decode().split("\r\x1b[K") if "clips" in line]
        self.assertGreater(len(lines), 3)
        self.assertIn("STARTED", lines[-1])
        for line in lines:
            self.assertRegex(line, r"^00:0\d\.\d/00:01\.0 +\d+% L\[=* *\] .* R\[=* *\] .* clips 0  failed 0")
            self.assertLess(len(line.split("\r\n")[0]), 80)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
