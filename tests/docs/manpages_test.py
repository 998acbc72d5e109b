"""The manual pages render without a warning, name every option of the
program, and are found by man(1) after cmake --install."""

import os
import re
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "web"))
import webstore as ws  # noqa: E402

SOURCE = os.environ["STOREGEN_SOURCE_DIR"]
BUILD = os.environ["STOREGEN_BUILD_DIR"]
PAGES = {"storegen": "1", "storegen-admin": "8", "storegen-cgi": "8", "storegen-fcgi": "8",
         "storegen-import": "1"}


def run(*args, **kw):
    return subprocess.run(args, capture_output=True, text=True, timeout=60, **kw)


class ManPagesTest(unittest.TestCase):
    def test_pages_render_without_warnings(self):
        for name, section in PAGES.items():
            with self.subTest(page=name):
                page = os.path.join(SOURCE, "man", f"{name}.{section}")
                groff = run("groff", "-man", "-Tutf8", "-ww", "-z", page)
                self.assertEqual((groff.returncode, groff.stderr), (0, ""))
                shown = run("man", "-l", page, env={**os.environ, "MANWIDTH": "80"})
                self.assertEqual(shown.returncode, 0, shown.stderr)
                self.assertIn("SYNOPSIS", shown.stdout)

    def test_every_option_is_described(self):
        with open(os.path.join(SOURCE, "man", "storegen.1"), encoding="utf-8") as f:
            text = f.read()
        missing = [o for o in "vbdpoastfCc" if not re.search(rf"^\.[BT]\S* *\\-{o}\b", text, re.M)]
        self.assertEqual(missing, [])

    def test_man_finds_the_installed_pages(self):
        prefix = ws.temp_dir(self.addCleanup, "install-")
        install = run(os.environ.get("CMAKE_COMMAND", "cmake"), "--install", BUILD,
                      "--prefix", prefix)
        self.assertEqual(install.returncode, 0, install.stderr)
        self.assertTrue(os.path.isfile(os.path.join(prefix, "share", "doc", "storegen",
                                                    "getting-started.md")))
        installed = ["storegen", "storegen-admin", "storegen-cgi"]
        # Built only with the FastCGI library, and its page installed with it.
        if os.path.exists(ws.binary("storegen-fcgi")):
            installed.append("storegen-fcgi")
        for name in installed:
            shown = run("man", "-M", os.path.join(prefix, "share", "man"), name)
            self.assertEqual(shown.returncode, 0, shown.stderr)
            self.assertIn(name, shown.stdout)


if __name__ == "__main__":
    ws.require_tools("groff", "man", hint="tools/install-deps.sh --tests installs them")
    sys.exit(unittest.main())
