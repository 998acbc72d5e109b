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
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "web"))
import webstore as ws  # noqa: E402

DOC = os.path.join(os.environ["STOREGEN_SOURCE_DIR"], "docs", "deployment.md")

# Files storegen keeps beside its pages, laid into the store's directory as a
# store kept inside the document root would have them.
FORBIDDEN = ["Xzq3Jpo9", ".storegen-Ab12Cd", "index1.tmp", "lantern.bak", "lantern.cfg",
             "pgstatus.log", "pgstatus.err", "pgstatus.pid", "pgstatus.lck", "pgstatus.start",
             "products.adb", "products.cdb", "lantern.wcf", "lantern.scf", "lantern.ind"]
PAGES = {"index.html": "text/html", "p-LL-101.html": "text/html", "c-Kitchen1.html": "text/html",
         "css/style.css": "text/css", "images/logo.svg": "image/svg+xml", "": "text/html"}


class RecipeServer(ws.Server):
    """lighttpd with the recipe |name| of the deployment page, its var.*
    settings replaced by |values|."""

    def __init__(self, work, name, **values):
        m = re.search(rf"^<!-- recipe: {name} -->\n```\n(.*?)^```$", ws.read(DOC), re.S | re.M)
        if not m:
            raise AssertionError(f"no recipe {name} in {DOC}")
        self.text, self.values = m.group(1), values
        super().__init__(work, "", "")

    def conf_text(self, root, cgi_dir, env):
        conf = self.text
        for name, value in self.values.items():
            conf, n = re.subn(rf'^var\.{name} = "[^"]*"', f'var.{name} = "{value}"', conf,
                              flags=re.M)
            if n != 1:
                raise AssertionError(f"the recipe has no line var.{name}")
        conf = re.sub(r"^server\.port = \d+", f"server.port = {self.port}", conf, flags=re.M)
        conf = re.sub(r"^server\.(user|group)name = .*\n", "", conf, flags=re.M)
        return conf + f'server.bind = "127.0.0.1"\nserver.errorlog = "{self.error_log}"\n'


class RecipesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        ws.require_tools("lighttpd")

    def setUp(self):
        self.tmp = ws.temp_dir(self.addCleanup, "recipes-")

    def serve(self, name, **values):
        server = RecipeServer(self.tmp, name, **values)
        self.addCleanup(server.stop)
        return server

    def check_store(self, server, store_dir):
        for name in FORBIDDEN:
            ws.write(os.path.join(store_dir, name), "")
        for page, kind in PAGES.items():
            status, headers, _ = server.fetch("/lantern/" + page)
            self.assertEqual(status, 200, page)
            self.assertTrue(headers.get("Content-Type", "").startswith(kind), page)
        for name in FORBIDDEN:
            status, _, _ = server.fetch("/lantern/" + name)
            self.assertIn(status, (403, 404), name)

    def test_static(self):
        _, root = ws.generate_static_store(self.tmp)
        self.check_store(self.serve("static", html_root=root), os.path.join(root, ws.STORE))

    def test_admin(self):
        work, root = os.path.join(self.tmp, "work"), os.path.join(self.tmp, "html")
        # A run started from the web needs the store's template directory.
        ws.lay_out_store(work, PageGenTemplateDir=work)
        os.makedirs(root)
        config, users = os.path.join(self.tmp, "admin.cfg"), os.path.join(self.tmp, "htpasswd")
        ws.admin_config(config, work, root)
        digest = base64.b64encode(hashlib.sha1(b"secret").digest()).decode()
        ws.write(users, f"admin:{{SHA}}{digest}\n")
        server = self.serve("admin", html_root=root, admin_program=ws.binary("storegen-admin"),
                            admin_config=config, admin_users=users)
        status, _, _ = server.fetch("/storegen-admin?action=status&store=lantern")
        self.assertEqual(status, 401)
        auth = {"Authorization": "Basic " + base64.b64encode(b"admin:secret").decode()}
        report = ws.generate(server, "/storegen-admin", auth)
        self.assertIn("The store's pages were generated successfully.", report)
        self.check_store(server, os.path.join(root, ws.STORE))

    def test_dynamic(self):
        work, root = ws.generate_static_store(self.tmp)
        config = os.path.join(self.tmp, "storegen-cgi.cfg")
        ws.front_config(config, work)
        server = self.serve("dynamic", html_root=root, front_program=ws.binary("storegen-cgi"),
                            front_config=config)
        self.check_store(server, os.path.join(root, ws.STORE))
        status, headers, body = server.fetch("/cgi-bin/storegen?-p+-c+lantern.cfg+LL-101")
        self.assertEqual(status, 200, body)
        self.assertTrue(headers.get("Content-Type", "").startswith("text/html"))
        self.assertEqual(body, ws.read(os.path.join(root, ws.STORE, "p-LL-101.html"), "rb"))
        status, _, _ = server.fetch("/cgi-bin/storegen?-c+lantern.cfg+-tx+/etc/passwd+-f+0")
        self.assertEqual(status, 400)

    def test_fastcgi(self):
        if not os.path.exists(ws.binary("storegen-fcgi")):
            self.skipTest("storegen-fcgi is not built (no libfcgi-dev)")
        work, root = ws.generate_static_store(self.tmp)
        config = os.path.join(self.tmp, "storegen-cgi.cfg")
        ws.front_config(config, work)
        server = self.serve("fastcgi", html_root=root, responder_program=ws.binary("storegen-fcgi"),
                            responder_config=config,
                            responder_socket=os.path.join(self.tmp, "fcgi.sock"))
        self.check_store(server, os.path.join(root, ws.STORE))
        for _ in range(2):  # the second from the pages kept
            status, _, body = server.fetch("/cgi-bin/storegen?-p+-c+lantern.cfg+LL-101")
            self.assertEqual(status, 200, body)
            self.assertEqual(body, ws.read(os.path.join(root, ws.STORE, "p-LL-101.html"), "rb"))
        status, _, _ = server.fetch("/cgi-bin/storegen?-c+lantern.cfg+-tx+/etc/passwd+-f+0")
        self.assertEqual(status, 400)


if __name__ == "__main__":
    sys.exit(unittest.main())
