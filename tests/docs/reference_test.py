"""Keeps the reference in docs/ complete and its links whole.

Every name a store owner can meet that the program's code knows must appear
in docs/: configuration keys, template markers, link keywords, environment
variables, and every result code in the table of docs/results.md. The names
are taken from the string literals of the program's sources (comments left
out): a new key, marker or keyword in the code fails this test until the
reference describes it. Relative links between README.md and docs/ must
lead to an existing file and heading.
"""

import os
import re
import sys
import unittest

SOURCE = os.environ["STOREGEN_SOURCE_DIR"]
DOCS = os.path.join(SOURCE, "docs")
# What is not the program: tests, fuzzing, benchmarks, build trees.
SKIP_DIRS = {"tests", "fuzz", "bench", "docs", "sample", "testdata", ".git"}

# Each kind: the pattern a whole string literal matches.
KINDS = {
    "marker": re.compile(r"PAGEGEN_[A-Z0-9]+(?:_[A-Z0-9]+)*"),
    "link keyword": re.compile(r"[A-Z][A-Z_]*#"),
    "environment variable": re.compile(r"STOREGEN_[A-Z_]+"),
    # Keys of the configuration files and marker attributes: CamelCase
    # words ("ShopName", "Currency", "Cgi-Bin").
    "configuration key": re.compile(r"[A-Z][A-Za-z0-9]*[a-z][A-Za-z0-9]*(?:-[A-Z][A-Za-z0-9]*)?"),
}


def program_sources():
    for top, dirs, files in os.walk(SOURCE):
        dirs[:] = [d for d in dirs if d not in SKIP_DIRS and not d.startswith("build")]
        for name in files:
            if name.endswith((".cc", ".h", ".c")) and "_test" not in name and "test_" not in name:
                yield os.path.join(top, name)


LEXEME = re.compile(r'//[^\n]*|/\*.*?\*/|"((?:[^"\\\n]|\\.)*)"|\'(?:[^\'\\\n]|\\.)*\'|\S', re.S)


def string_literals(text):
    """The string literals of C or C++ source |text|, comments left out, and
    literals joined to others ("abc" "def", as tables of characters are
    written) too."""
    tokens = [m for m in LEXEME.finditer(text) if not m.group(0).startswith(("//", "/*"))]
    literals = []
    for i, m in enumerate(tokens):
        if m.group(1) is None:
            continue
        joined = any(0 <= j < len(tokens) and tokens[j].group(1) is not None for j in (i - 1, i + 1))
        if not joined:
            literals.append(m.group(1))
    return literals


def names_in_code():
    found = {kind: set() for kind in KINDS}
    for path in program_sources():
        with open(path, encoding="utf-8", errors="replace") as f:
            for literal in string_literals(f.read()):
                for kind, pattern in KINDS.items():
                    if pattern.fullmatch(literal):
                        found[kind].add(literal)
                        break
    return found


def read(path):
    with open(path, encoding="utf-8") as f:
        return f.read()


def docs_text():
    return "\n".join(read(os.path.join(DOCS, n)) for n in sorted(os.listdir(DOCS))
                     if n.endswith(".md"))


def slug(heading):
    """The anchor a code host gives a Markdown heading."""
    text = re.sub(r"[`*_]|\[([^\]]*)\]\([^)]*\)", r"\1", heading.strip().lower())
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


class ReferenceTest(unittest.TestCase):
    def test_every_name_the_code_knows_is_described(self):
        text = docs_text()
        found = names_in_code()
        self.assertGreater(len(found["marker"]), 15)
        self.assertGreater(len(found["configuration key"]), 50)
        for kind, names in found.items():
            missing = sorted(n for n in names
                             if not re.search(r"(?<![\w-])" + re.escape(n) + r"(?![\w])", text))
            self.assertEqual(missing, [], f"{kind}s the code knows but docs/ does not describe")

    def test_every_result_code_is_explained(self):
        codes = re.findall(r"=\s*(-?\d+)\s*,",
                           read(os.path.join(SOURCE, "cgisupport", "result_codes.h")))
        self.assertIn("-50", codes)
        table = read(os.path.join(DOCS, "results.md"))
        missing = [c for c in codes if not re.search(rf"^\| {c} \| ", table, re.M)]
        self.assertEqual(missing, [], "result codes without a row in docs/results.md")

    def test_links_lead_somewhere(self):
        pages = [os.path.join(SOURCE, "README.md")] + [
            os.path.join(DOCS, n) for n in sorted(os.listdir(DOCS)) if n.endswith(".md")]
        broken = []
        for page in pages:
            text = re.sub(r"```.*?```", "", read(page), flags=re.S)
            for target in re.findall(r"\]\(([^)\s]+)\)", text):
                if re.match(r"[a-z]+:", target):
                    continue
                path, _, anchor = target.partition("#")
                path = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
                if not os.path.exists(path):
                    broken.append(f"{os.path.basename(page)}: {target}")
                elif anchor and path.endswith(".md"):
                    headings = re.findall(r"^#+ (.*)$", read(path), re.M)
                    if anchor not in {slug(h) for h in headings}:
                        broken.append(f"{os.path.basename(page)}: {target}")
        self.assertEqual(broken, [], "links to missing files or headings")


if __name__ == "__main__":
    sys.exit(unittest.main())
