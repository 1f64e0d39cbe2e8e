"""Every log line that the bring-up document quotes is one that the product writes under that tag.

usage: check_bring_up.py REPOSITORY
"""
import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(sys.argv[1])
# What varies: placeholders, and values in lines that are quoted from a run.
VALUE = re.compile(r": session_type=\S+(?=, cookie)|(?<=cookie=0x)0000|<[^<>]*>|(?<==)[A-Z0-9_]{2,}|(?<==)\w+(?=,| |\])|0x[0-9a-f]{8}|/odm/\S+|\[\w+\]")


def texts_by_tag():
    """Tag -> all string literals of its sources, adjacent ones joined, one per line."""
    texts = {}
    for path in (ROOT / "binaural_record").rglob("*.cpp"):
        source = path.read_text()
        tag = re.search(r'#define LOG_TAG "(\w+)"', source)
        if tag:
            joined = re.sub(r'"\s*\n?\s*"', "", source)
            literals = re.findall(r'"((?:[^"\\]|\\.)*)"', joined)
            literals += re.findall(r"#name|\b[A-Za-z_]\w+\b(?=\()", source)
            texts.setdefault(tag.group(1), []).extend(literals)
    return {tag: "\n".join(found) for tag, found in texts.items()}


def quoted_lines():
    for line in (ROOT / "docs/bring-up.md").read_text().splitlines():
        row = re.match(r"\| (BinauralRecord\w+) \| `([^`]+)` \|", line)
        if row:
            yield row.groups()


class QuotedLines(unittest.TestCase):
    def test_are_in_the_sources_of_their_tag(self):
        texts = texts_by_tag()
        rows = list(quoted_lines())
        self.assertGreater(len(rows), 60)
        for tag, line in rows:
            with self.subTest(tag=tag, line=line):
                name = re.match(r"[a-zA-Z_0-9]+?(?=gStreamIn|unknown device|device=0x|\W)", line).group()
                self.assertIn(name, texts[tag])
                for piece in re.split(VALUE, line[len(name):]):
                    self.assertIn(piece.strip("[]"), texts[tag])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
