"""Serves the sample store with each lighttpd set-up of docs/deployment.md,
as written there, on 127.0.0.1 at a free port.

A set-up is the code block after "<!-- recipe: NAME -->". Only the settings
a reader changes for the machine are replaced: the var.* paths, the port,
the user and group (the test runs as whoever runs it), and the error log is
added. The store's pages must answer 200 with their content types, and
storegen's own files, put where a careless layout would leave them, 403 or
404. The management set-up must refuse requests without the password and run
a generation for a request with it. The set-up for pages made on request
must answer a product page as the static run wrote it, and refuse a query
that is not one of the store's links.
"""

import base64
import hashlib
import os
import re
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "web"))
import webstore as ws  # noqa: E402

DOC = os.path.join(os.environ["STOREGEN_SOURCE_DIR"], "docs", "deployment.md")
os.environ.setdefault("STOREGEN_SAMPLE_DIR", os.path.join(os.environ["STOREGEN_SOURCE_DIR"], "sample"))
ws.SAMPLE_DIR = os.environ["STOREGEN_SAMPLE_DIR"]

# Files storegen keeps beside its pages, laid into the store's directory as a
# store kept inside the document root would have them.
FORBIDDEN = ["Xzq3Jpo9", ".storegen-Ab12Cd", "index1.tmp", "lantern.bak", "lantern.cfg",
             "pgstatus.log", "pgstatus.err", "pgstatus.pid", "pgstatus.lck", "pgstatus.start", "products.adb", "products.cdb",
             "lantern.wcf", "lantern.scf", "lantern.ind"]
PAGES = {"index.html": "text/html", "p-LL-101.html": "text/html", "c-Kitchen1.html": "text/html",
         "css/style.css": "text/css", "images/logo.svg": "image/svg+xml", "": "text/html"}


def recipe(name):
    with open(DOC, encoding="utf-8") as f:
        text = f.read()
    m = re.search(r"^<!-- recipe: " + name + r" -->\n```\n(.*?)^```$", text, re.S | re.M)
    if not m:
        raise AssertionError(f"no recipe {name} in {DOC}")
    return m.group(1)


class RecipeServer(ws.Server):
    """lighttpd with a recipe of the deployment page."""

    def __init__(self, work, text, values):
        self.text = text
        self.values = values
        super().__init__(work, "", "")

    def _write_conf(self, root, cgi_dir, env):
        conf = self.text
        for name, value in self.values.items():
            conf, n = re.subn(rf'^var\.{name} = "[^"]*"', f'var.{name} = "{value}"', conf, flags=re.M)
            if n != 1:
                raise AssertionError(f"the recipe has no line var.{name}")
        conf = re.sub(r"^server\.port = \d+", f"server.port = {self.port}", conf, flags=re.M)
        conf = re.sub(r"^server\.(user|group)name = .*\n", "", conf, flags=re.M)
        conf += f'server.bind = "127.0.0.1"\nserver.errorlog = "{self.error_log}"\n'
        with open(self.conf, "w", encoding="utf-8") as f:
            f.write(conf)


class RecipesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        ws.require_tools("lighttpd")

    def setUp(self):
        self.tmp = ws.TempDir("recipes-")
        self.addCleanup(self.tmp.cleanup)

    def check_store(self, server, store_dir):
        for name in FORBIDDEN:
            with open(os.path.join(store_dir, name), "a", encoding="utf-8"):
                pass
        for page, kind in PAGES.items():
            status, headers, _ = server.fetch("/lantern/" + page)
            self.assertEqual(status, 200, page)
            self.assertTrue(headers.get("Content-Type", "").startswith(kind), page)
        for name in FORBIDDEN:
            status, _, _ = server.fetch("/lantern/" + name)
            self.assertIn(status, (403, 404), name)

    def test_static(self):
        _, root = ws.generate_static_store(self.tmp.path)
        server = RecipeServer(self.tmp.path, recipe("static"), {"html_root": root})
        self.addCleanup(server.stop)
        self.check_store(server, os.path.join(root, ws.STORE))

    def test_admin(self):
        work = os.path.join(self.tmp.path, "work")
        ws.lay_out_store(work, os.path.join(ws.SAMPLE_DIR, "lantern.cfg"))
        # A run started from the web needs the store's template directory.
        with open(os.path.join(work, ws.STORE + ".cfg"), "a", encoding="utf-8") as f:
            f.write(f"PageGenTemplateDir\t{work}\n")
        root = os.path.join(self.tmp.path, "html")
        os.makedirs(root)
        config = os.path.join(self.tmp.path, "storegen-admin.cfg")
        with open(config, "w", encoding="utf-8") as f:
            f.write(f"StoregenProgram\t{work}/cgi-bin/storegen\nStoreConfigDir\t{work}\n"
                    f"TemplateDir\t{work}\nHtmlRoot\t{root}\n")
        users = os.path.join(self.tmp.path, "htpasswd")
        digest = base64.b64encode(hashlib.sha1(b"secret").digest()).decode()
        with open(users, "w", encoding="utf-8") as f:
            f.write(f"admin:{{SHA}}{digest}\n")
        server = RecipeServer(self.tmp.path, recipe("admin"), {
            "html_root": root, "admin_program": ws.admin_binary(), "admin_config": config,
            "admin_users": users})
        self.addCleanup(server.stop)
        auth = {"Authorization": "Basic " + base64.b64encode(b"admin:secret").decode()}
        status, _, _ = server.fetch("/storegen-admin?action=status&store=lantern")
        self.assertEqual(status, 401)
        status, _, body = server.fetch("/storegen-admin", b"action=generate&store=lantern", auth)
        self.assertEqual((status, ws.parse_page(body).title), (200, "Generation started"), body)
        deadline = time.monotonic() + 90
        while True:
            status, _, body = server.fetch("/storegen-admin?action=status&store=lantern",
                                           headers=auth)
            self.assertEqual(status, 200)
            if ws.parse_page(body).title not in ("Generation running", "No generation report"):
                break
            self.assertLess(time.monotonic(), deadline, "the run did not end")
            time.sleep(0.2)
        self.assertIn(b"The store's pages were generated successfully.", body)
        self.check_store(server, os.path.join(root, ws.STORE))

    def test_dynamic(self):
        work, root = ws.generate_static_store(self.tmp.path)
        config = os.path.join(self.tmp.path, "storegen-cgi.cfg")
        with open(config, "w", encoding="utf-8") as f:
            f.write(f"StoregenProgram\t{work}/cgi-bin/storegen\nStoreConfigDir\t{work}\n"
                    f"Stores\t{ws.STORE}.cfg\n")
        server = RecipeServer(self.tmp.path, recipe("dynamic"), {
            "html_root": root, "front_program": ws.front_binary(), "front_config": config})
        self.addCleanup(server.stop)
        self.check_store(server, os.path.join(root, ws.STORE))
        status, headers, body = server.fetch("/cgi-bin/storegen?-p+-c+lantern.cfg+LL-101")
        self.assertEqual(status, 200, body)
        self.assertTrue(headers.get("Content-Type", "").startswith("text/html"))
        with open(os.path.join(root, ws.STORE, "p-LL-101.html"), "rb") as f:
            self.assertEqual(body, f.read())
        status, _, _ = server.fetch("/cgi-bin/storegen?-c+lantern.cfg+-tx+/etc/passwd+-f+0")
        self.assertEqual(status, 400)


if __name__ == "__main__":
    sys.exit(unittest.main())
