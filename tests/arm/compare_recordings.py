"""The 32-bit ARM module records what the x86-64 module records, within one step of 16-bit PCM. Behind the noise
reduction what they differ by lies 60 dB under the recording in half of all tenths of a second and 40 dB in each: its
network rounds its inputs to 16 bits, a number on the edge falls to either side, and the recurrent layers carry that on
for as long as a sound is held (measured: over 90 dB in half of them; 45 dB in one, where a held sound becomes louder).

Brings the native recorder up to date, gives both recorders the same made-up WAV file and compares.

usage: compare_recordings.py REPOSITORY SCRATCH_FOLDER ARM_RECORDER_COMMAND...
"""
import array
import math
import pathlib
import random
import re
import subprocess
import sys
import unittest
import wave

ROOT, SCRATCH, ARM_RECORDER = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3:]
NATIVE_RECORDER = [str(ROOT / "build/record/bin/binaural-record")]
SECONDS = 3


def write_input(path, rate):
    """Bursts of a harmonic voice from two sides over steady noise."""
    noise = random.Random(1)
    samples = array.array("h")
    for n in range(rate * SECONDS):
        silent = (n // (rate // 4)) % 3 == 2
        voice = sum(math.sin(2 * math.pi * 140 * k * n / rate) / k for k in range(1, 12))
        for gain in (3000, 1500):
            samples.append(round(0 if silent else gain * voice) + noise.randint(-300, 300))
    with wave.open(str(path), "wb") as out:
        out.setparams((2, 2, rate, 0, "NONE", ""))
        out.writeframes(samples.tobytes())


def record(recorder, source, options):
    run = subprocess.run(recorder + ["--fast", "-q", "-i", str(source), *options, "-"],
                         capture_output=True, check=True)
    return array.array("h", run.stdout)


class Recordings(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for command in (["cmake", "--preset", "record"],
                        ["cmake", "--build", "build/record", "--target", "binaural-record"]):
            subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)

    def test_agree_but_for_rounding(self):
        without_network = SCRATCH / "without_network.xml"
        sample = (ROOT / "etc/binaural_record_algo_coeffs.xml").read_text()
        without_network.write_text(re.sub('("rnn_enable" value=)"1"', r'\1"0"', sample))
        headset, network = ["--headset", "Alder Buds"], True
        cases = {"48 kHz, built-in tuning": (48000, [], network),
                 "44.1 kHz, built-in tuning": (44100, [], network),
                 "headset of the sample file": (48000, headset, network),
                 "mirrored selfie": (48000, headset + ["--orientation", "front", "--mirror"], network),
                 "no network": (48000, headset + ["--coefficients", str(without_network)], not network),
                 "mode 1": (48000, ["--mode", "1"], not network)}
        for name, (rate, options, with_network) in cases.items():
            source = SCRATCH / f"input-{rate}.wav"
            if not source.exists():
                write_input(source, rate)
            native, arm = (record(recorder, source, options) for recorder in (NATIVE_RECORDER, ARM_RECORDER))
            with self.subTest(name):
                self.assertEqual(len(native), len(arm))
                self.assertGreaterEqual(len(native), 2 * rate * (SECONDS - 1))
                self.assertGreater(max(native), 1000)
                apart = [a - b for a, b in zip(native, arm)]
                if not with_network:
                    self.assertLessEqual(max(map(abs, apart)), 1)
                tenth = rate // 5  # of a second, both ears
                shares = []
                for at in range(0, len(apart), tenth):
                    difference, recording = (sum(x * x for x in of[at:at + tenth]) for of in (apart, native))
                    shares.append(difference / (recording + 1e4 * tenth))  # a step each, in what is all but silent
                    self.assertLessEqual(shares[-1], 1e-4, f"from {at / 2 / rate} s")
                self.assertLessEqual(sorted(shares)[len(shares) // 2], 1e-6)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
