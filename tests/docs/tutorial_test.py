"""Runs the tutorial docs/getting-started.md as a reader would and checks
what it shows.

The tutorial marks its code blocks with HTML comments, invisible on a code
host:

  <!-- tutorial: run -->          the sh block is run in bash (the directory
                                  it ends in carries over to the next block);
                                  it must succeed unless its output is shown
  <!-- tutorial: file PATH -->    the block is the whole content of PATH
  <!-- tutorial: output -->       the words of the last run block's output
                                  (standard output and error), in any order;
                                  /home/you stands for the home directory
  <!-- tutorial: page PATH -->    the block stands, byte for byte, in PATH

HOME is a fresh directory whose storegen/build/bin/storegen is the program
under test, the checkout the tutorial assumes. After the last block the
store is checked as a whole: every page the tutorial promises exists, no
template syntax is left in a page, and every link into the store leads to a
file the run wrote.
"""

import os
import re
import subprocess
import sys
import unittest
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "web"))
import webstore as ws  # noqa: E402

DOC = os.path.join(os.environ["STOREGEN_SOURCE_DIR"], "docs", "getting-started.md")
PROGRAM = os.path.join(os.environ["STOREGEN_BUILD_DIR"], "bin", "storegen")
MARK = re.compile(r"^<!-- tutorial: (run|file|output|page)\s*(\S*)\s*-->$")


def steps(text):
    """(kind, argument, block text) for each marked fenced block, in order."""
    lines = text.split("\n")
    found = []
    i = 0
    while i < len(lines):
        m = MARK.match(lines[i])
        i += 1
        if not m:
            continue
        if i >= len(lines) or not lines[i].startswith("```"):
            raise AssertionError(f"marker without a code block: {lines[i - 1]}")
        end = lines.index("```", i + 1)
        found.append((m.group(1), m.group(2), "\n".join(lines[i + 1:end]) + "\n"))
        i = end + 1
    return found


class TutorialTest(unittest.TestCase):
    def setUp(self):
        self.home = ws.temp_dir(self.addCleanup, "tutorial-")
        bin_dir = os.path.join(self.home, "storegen", "build", "bin")
        os.makedirs(bin_dir)
        os.symlink(PROGRAM, os.path.join(bin_dir, "storegen"))
        self.cwd = self.home
        self.env = {**ws.CHILD_ENV, "HOME": self.home, "LC_ALL": "C.UTF-8"}

    def run_block(self, script, strict):
        """Runs |script|; with |strict|, its first failing command ends it."""
        state = os.path.join(self.home, ".tutorial-cwd")
        shell = ["bash", "-e"] if strict else ["bash"]
        run = subprocess.run([*shell, "-c", f"{script}\nrc=$?\npwd > {state}\nexit $rc"], cwd=self.cwd,
                             env=self.env, capture_output=True, text=True, timeout=120)
        if os.path.exists(state):
            self.cwd = ws.read(state).strip()
        return run

    def test_tutorial(self):
        blocks = steps(ws.read(DOC))
        self.assertGreater(len(blocks), 10)
        output = None
        for i, (kind, arg, text) in enumerate(blocks):
            with self.subTest(kind=kind, arg=arg, text=text[:60]):
                if kind == "run":
                    # A block whose output is shown may fail on purpose (the
                    # output shows how); any other block must succeed.
                    shown = i + 1 < len(blocks) and blocks[i + 1][0] == "output"
                    run = self.run_block(text, strict=not shown)
                    output = run.stdout + run.stderr
                    if not shown:
                        self.assertEqual(run.returncode, 0, f"block failed:\n{output}")
                elif kind == "file":
                    ws.write(os.path.join(self.cwd, arg), text)
                elif kind == "output":
                    shown = text.replace("/home/you", self.home)
                    self.assertEqual(sorted(output.split()), sorted(shown.split()))
                else:
                    self.assertIn(text, ws.read(os.path.join(self.cwd, arg)))
        self.check_store(os.path.join(self.cwd, "www"))

    def check_store(self, root):
        store = os.path.join(root, "hilltop")
        pages = sorted(n for n in os.listdir(store) if n.endswith(".html"))
        skus = [f"T-10{i}" for i in range(1, 8)] + ["W-201", "W-202", "W-203", "W-205"]
        self.assertEqual(pages, sorted(["about.html", "c-Tea.html", "c-Teaware.html", "index.html",
                                        "index1.html", "index2.html"] +
                                       [f"p-{s}.html" for s in skus]))
        self.assertTrue(os.path.isfile(os.path.join(store, "css", "style.css")))
        for name in pages:
            page = ws.read(os.path.join(store, name))
            self.assertNotRegex(page, r"%%|PAGEGEN_|PG_\w+#", name)
            for target in re.findall(r'(?:href|HREF|src)="([^"]*)"', page):
                target = target.split("#", 1)[-1] if target.startswith("ADDTOCART#") else target
                with self.subTest(page=name, link=target):
                    path = urllib.parse.urljoin("/hilltop/" + name, target)
                    self.assertTrue(path.startswith("/hilltop/"))
                    self.assertTrue(os.path.isfile(os.path.join(root, path.lstrip("/"))))


if __name__ == "__main__":
    sys.exit(unittest.main())
