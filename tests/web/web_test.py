"""The sample store behind a real web server, in four parts, each run by CTest
on its own (web_test.py PART):

  static   the generated store crawled over HTTP from the shop home page
  dynamic  product and list pages made on request through the front
           storegen-cgi, against the pages a static run writes
  fastcgi  the same through the FastCGI responder storegen-fcgi, and files
           changed between its requests
  admin    a generation run started and followed through storegen-admin
  browser  pages opened in headless Chromium: rendered DOM and screenshots

A part whose tools are missing is skipped outside CI (exit code 77, with the
reason) and fails under CI.
"""

import os
import re
import signal
import subprocess
import sys
import time
import unittest
import urllib.parse

import webstore as ws


def store_seeds(cfg_path, work):
    """Where a crawl of the store starts: the shop home page, the cart pages
    the run announced in the store configuration, and the search page (the
    cart and the search gateway lead to those; no store page does)."""
    seeds = [ws.STORE_DIR + "index.html"]
    seeds += filter(None, (ws.config_value(cfg_path, k)
                           for k in ("PostModCartPage", "OnlineOrderPage", "ErrorPage")))
    wcf = os.path.join(work, "swish", ws.STORE + ".wcf")
    if os.path.exists(wcf):
        seeds += [ws.STORE_DIR + os.path.basename(words[1]) for words in map(
            str.split, ws.read(wcf).splitlines()) if len(words) == 2 and words[0] == "PageTitle"]
    return seeds


def html_pages(directory):
    return sorted(n for n in os.listdir(directory) if n.endswith(".html"))


class StaticStoreTest(unittest.TestCase):
    """The store as generate.sh writes it, served as static files."""

    @classmethod
    def setUpClass(cls):
        cls.tmp = ws.temp_dir(cls.addClassCleanup, "web-static-")
        cls.work, cls.root = ws.generate_static_store(cls.tmp)
        cls.cfg = os.path.join(cls.work, ws.STORE + ".cfg")
        cls.server = ws.Server(cls.tmp, cls.root, os.path.join(cls.tmp, "www-cgi"))
        cls.addClassCleanup(cls.server.stop)

    def test_every_link_of_the_store_answers(self):
        result = ws.crawl(self.server, ws.StoreLinks(self.cfg), store_seeds(self.cfg, self.work))
        self.assertEqual(result.problems, [], "broken links:\n" + ws.describe(result.problems))
        # Every page the run wrote is reached, and the template set's support
        # files that the pages use.
        written = {ws.STORE_DIR + n for n in html_pages(os.path.join(self.root, ws.STORE))}
        self.assertEqual(written - set(result.status), set(), "pages no link leads to")
        for path in ("css/style.css", "images/logo.svg", "images/next.svg", "images/prev.svg"):
            self.assertEqual(result.status.get(ws.STORE_DIR + path), 200, path)
        self.assertGreater(result.kinds["cart"], 0)
        self.assertEqual(result.kinds["dynamic"], 0)


class DynamicStoreTest(unittest.TestCase):
    """The store with product and list pages served dynamically, beside the
    static twin that the store without them writes.

    The dynamic configuration is installed under the static one's name, so
    both stores have the same name, directory and cart links. A dynamic
    product page must then equal its static twin byte for byte, except the
    links the dynamic configuration makes dynamic on purpose: a link to a
    product page or to a category's list page calls the page generator
    instead of naming the static file. Those links, and only those, are
    mapped back to the static file names before the comparison.
    """

    @classmethod
    def setUpClass(cls):
        cls.tmp = ws.temp_dir(cls.addClassCleanup, "web-dynamic-")
        _, static_root = ws.generate_static_store(os.path.join(cls.tmp, "static"))
        cls.static_pages = os.path.join(static_root, ws.STORE)

        cls.work = os.path.join(cls.tmp, "dynamic")
        cls.cfg = os.path.join(cls.work, ws.STORE + ".cfg")
        cls.root = os.path.join(cls.tmp, "html")
        ws.lay_out_store(cls.work, "lantern-dynamic.cfg")
        run = ws.run_storegen(cls.work, "-o", cls.root, "-c", cls.cfg, "-s", "0")
        if run.returncode != 0:
            raise AssertionError(f"static run of the dynamic store failed ({run.returncode}): "
                                 f"{run.stdout!r} {run.stderr!r}")
        cls.server = cls.start_server()
        cls.addClassCleanup(cls.server.stop)
        cls.links = ws.StoreLinks(cls.cfg)
        cls.products = ws.read_table(os.path.join(cls.work, "products.txt"))

    @classmethod
    def start_server(cls):
        """The front storegen-cgi as /cgi-bin/storegen, the name PageGenProg gives."""
        cgi = os.path.join(cls.tmp, "www-cgi")
        ws.front_config(os.path.join(cgi, "storegen-cgi.cfg"), cls.work)
        os.symlink(ws.binary("storegen-cgi"), os.path.join(cgi, "storegen"))
        return ws.Server(cls.tmp, cls.root, cgi)

    def pagegen(self, query):
        return self.links.pagegen + "?" + query

    def as_static(self, body):
        """|body| with the deliberately dynamic page links turned into the
        static file names a static run writes."""
        prefix = "USERPROG#" + re.escape(self.links.pagegen)
        cfg = re.escape(self.links.cfg_name)
        text = re.sub(prefix + r"\?-p\+-c\+" + cfg + r"\+([\w.-]+)(?=\")",
                      lambda m: f"{ws.STORE_DIR}p-{m.group(1)}.html", body.decode("utf-8"))
        return re.sub(prefix + r"\?-c\+" + cfg + r"\+-f\+0\+-C\+([\w.%-]+)(?=\")",
                      lambda m: f"{ws.STORE_DIR}c-{urllib.parse.unquote(m.group(1))}.html", text)

    def test_product_pages_equal_their_static_twins(self):
        for product in self.products:
            sku = product["SKU"]
            with self.subTest(sku=sku):
                status, _, body = self.server.fetch(self.pagegen("-p+-c+lantern.cfg+" + sku))
                self.assertEqual(status, 200)
                self.assertEqual(self.as_static(body),
                                 ws.read(os.path.join(self.static_pages, f"p-{sku}.html")))
        status, _, _ = self.server.fetch(self.pagegen("-p+-c+lantern.cfg+NO-SUCH-SKU"))
        self.assertEqual(status, 404)

    def test_hostile_queries_are_refused(self):
        outside = os.path.join(self.tmp, "outside")
        for query in ("-c+lantern.cfg+-tx+/etc/passwd+-f+0", f"-tt+-p+-oo+{outside}+-ss+0",
                      "-p+-c+lantern.cfg%00.x+LL-106", "-p+-c+..%2Fdynamic%2Flantern.cfg+LL-106"):
            with self.subTest(query=query):
                status, _, body = self.server.fetch(self.pagegen(query))
                self.assertEqual(status, 400)
                self.assertNotIn(b"root:", body)
        self.assertFalse(os.path.exists(outside))

    def list_walk(self, path):
        """Follows a list's "Next" links from |path|; returns the SKUs of its
        product links, page by page, and checks each page's paging links: at
        most one "Next", and one "Previous" on every page but the first,
        leading back to the page before."""
        pages = []
        first, before = 0, None
        while path:
            self.assertLess(len(pages), 20, "list pages do not end")
            status, _, body = self.server.fetch(path)
            self.assertEqual(status, 200, path)
            skus, starts = [], []
            for tag, value in ws.Page(body).links:
                link = self.links.classify(value, path)
                if link.kind != "dynamic":
                    continue
                m = re.search(r"\?-p\+-c\+[^+]+\+(.+)$", link.fetch)
                if m:
                    skus.append(m.group(1))
                m = re.search(r"-f\+(\d+)(\+-C\+.*)?$", link.fetch)
                if m and tag == "a" and link.fetch.split("?", 1)[1].count("-C") == path.count("-C"):
                    starts.append((int(m.group(1)), link.fetch))
            pages.append(skus)
            self.assertEqual([s for s, _ in starts if s < first], [before] if pages[1:] else [],
                             f"Previous links on {path}")
            following = [p for s, p in starts if s > first]
            self.assertLessEqual(len(following), 1, f"Next links on {path}")
            path = following[0] if following else None
            if path:
                first, before = int(re.search(r"-f\+(\d+)", path).group(1)), first
        return pages

    def test_list_pages_page_through_every_product_once(self):
        status, _, body = self.server.fetch(ws.STORE_DIR + "index.html")
        self.assertEqual(status, 200)
        category_links = {}
        for _, value in ws.Page(body).links:
            m = re.search(r"-f\+0\+-C\+(.+)$", value)
            if m:
                category_links[urllib.parse.unquote(m.group(1))] = self.links.classify(
                    value, ws.STORE_DIR).fetch
        categories = [c["TILLBOXCATEGORY"]
                      for c in ws.read_table(os.path.join(self.work, "products.cdb"))]
        self.assertEqual(sorted(category_links), sorted(categories))
        for category in categories:
            with self.subTest(category=category):
                pages = self.list_walk(category_links[category])
                expected = [p["SKU"] for p in self.products if p["TILLBOXCATEGORY"] == category]
                self.assertEqual(sum(pages, []), expected)
                self.assertTrue(all(pages), "an empty list page")
        # The shop home page continues its list of every product on dynamic
        # pages made from its own template.
        pages = self.list_walk(ws.STORE_DIR + "index.html")
        self.assertGreater(len(pages), 1)
        self.assertEqual(sum(pages, []), [p["SKU"] for p in self.products])

    def test_every_link_of_the_store_answers(self):
        result = ws.crawl(self.server, self.links, store_seeds(self.cfg, self.work))
        self.assertEqual(result.problems, [], "broken links:\n" + ws.describe(result.problems))
        products = [p for p in result.status if p.startswith(self.links.pagegen + "?-p+")]
        self.assertEqual(len(products), len(self.products))
        # Product and category pages exist only on request.
        self.assertFalse(any(n.startswith(("p-", "c-"))
                             for n in os.listdir(os.path.join(self.root, ws.STORE))))


class FastCgiStoreTest(DynamicStoreTest):
    """The same dynamic store, its pages made by the FastCGI responder
    storegen-fcgi, which lighttpd starts: the same pages and answers as
    through storegen-cgi, and files changed between requests seen."""

    @classmethod
    def start_server(cls):
        config = os.path.join(cls.tmp, "storegen-fcgi.cfg")
        ws.front_config(config, cls.work)
        # The store's files as on a server where they have not changed for a
        # while: the responder keeps them between requests.
        hour_ago = time.time() - 3600
        for name in ("lantern.cfg", "products.txt", "modern/product.html"):
            os.utime(os.path.join(cls.work, name), (hour_ago, hour_ago))
        return ws.Server(cls.tmp, cls.root, os.path.join(cls.tmp, "www-cgi"), fastcgi={
            "/cgi-bin/storegen": (ws.binary("storegen-fcgi"), {"STOREGEN_FCGI_CONFIG": config})})

    def replace(self, name, old, new):
        """Writes |name| of the store anew with |old| replaced, and renames it
        into place as an operator's update does; returns the old text."""
        path = os.path.join(self.work, name)
        text = ws.read(path)
        self.assertIn(old, text)
        ws.write(path + ".new", text.replace(old, new))
        os.rename(path + ".new", path)
        return text

    def test_changed_files_are_seen_by_the_next_request(self):
        page = self.pagegen("-p+-c+lantern.cfg+LL-101")
        status, _, before = self.server.fetch(page)
        self.assertEqual(status, 200)
        products = self.replace("products.txt", "Brass Table Lamp\t89.00", "Brass Table Lamp\t91.50")
        template = self.replace("modern/product.html", "</html>", "<!-- v2 --></html>")
        try:
            status, _, after = self.server.fetch(page)
            self.assertEqual(status, 200)
            self.assertIn(b"91.50", after)
            self.assertIn(b"<!-- v2 -->", after)
            self.assertNotIn(b"91.50", before)
        finally:
            ws.write(os.path.join(self.work, "products.txt"), products)
            ws.write(os.path.join(self.work, "modern/product.html"), template)
        self.assertEqual(self.server.fetch(page)[2], before)
        # A request that made no page is a line on the responder's standard error.
        self.server.fetch(self.pagegen("-p+-c+lantern.cfg+NO-SUCH-SKU"))
        self.assertIn("storegen-fcgi: storegen -c " + self.cfg + " -p NO-SUCH-SKU ended with",
                      ws.read(self.server.breakage_log))


class AdminTest(unittest.TestCase):
    """storegen-admin behind the web server starts a run and reports it."""

    @classmethod
    def setUpClass(cls):
        cls.tmp = ws.temp_dir(cls.addClassCleanup, "web-admin-")
        cls.work = os.path.join(cls.tmp, "work")
        # A run started from the web finds its template set through the
        # store's own template directory. The cart's programs are not where
        # storegen-admin is, so a run that took the directory of the request's
        # program for theirs would write other links than a shell's run.
        ws.lay_out_store(cls.work, CGIBinDirectory="/shop-cgi", PageGenTemplateDir=cls.work)
        cls.cfg = os.path.join(cls.work, ws.STORE + ".cfg")
        cls.root = os.path.join(cls.tmp, "html")
        os.makedirs(cls.root)
        config = os.path.join(cls.tmp, "storegen-admin.cfg")
        ws.admin_config(config, cls.work, cls.root)
        cgi = os.path.join(cls.tmp, "www-cgi")
        os.makedirs(cgi)
        os.symlink(ws.binary("storegen-admin"), os.path.join(cgi, "storegen-admin"))
        cls.server = ws.Server(cls.tmp, cls.root, cgi, {"STOREGEN_ADMIN_CONFIG": config})
        cls.addClassCleanup(cls.server.stop)

    def test_generation_runs_and_reports(self):
        report = ws.generate(self.server, "/cgi-bin/storegen-admin")
        self.assertIn("Last generation run", report)
        self.assertIn("The store's pages were generated successfully.", report)
        self.assertIn('HREF="http://www.lantern-and-loom.example/lantern/', report)
        # The sample's product without a picture is listed as a problem row.
        self.assertRegex(report, r"<TR><TD><B>[^<]*:</B> LL-106</TD>")
        # The whole store, site pages included.
        for page in ("index.html", "p-LL-106.html", "c-Kitchen1.html", "cart.html", "about.html"):
            status, _, _ = self.server.fetch(ws.STORE_DIR + page)
            self.assertEqual(status, 200, page)
        # The same pages, byte for byte, as the same run from a shell writes.
        shell_root = os.path.join(self.tmp, "shell")
        run = ws.run_storegen(self.work, "-o", shell_root, "-c", self.cfg, "-s", "0")
        self.assertEqual(run.returncode, 0, run.stdout)
        ours, theirs = os.path.join(self.root, ws.STORE), os.path.join(shell_root, ws.STORE)
        self.assertEqual(html_pages(ours), html_pages(theirs))
        for name in html_pages(theirs):
            self.assertEqual(ws.read(os.path.join(ours, name), "rb"),
                             ws.read(os.path.join(theirs, name), "rb"), name)


def browse(args, timeout=60):
    """Runs chromium with |args| in a process group of its own, which is ended
    whole when it overruns. Returns (standard output, exit status, the end of
    its error output)."""
    proc = subprocess.Popen(["chromium", *args], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            start_new_session=True)
    try:
        out, err = proc.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, err = proc.communicate()
        err += b"\n(ended after %d seconds)" % timeout
    return (out.decode("utf-8", "replace"), proc.returncode,
            err.decode("utf-8", "replace")[-2000:])


class BrowserTest(unittest.TestCase):
    """Pages of the static store in headless Chromium (a dynamic product page
    has the same body: see DynamicStoreTest). Screenshots are kept in the
    build tree."""

    FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--hide-scrollbars", "--window-size=1280,1400"]

    @classmethod
    def setUpClass(cls):
        cls.tmp = ws.temp_dir(cls.addClassCleanup, "web-browser-")
        _, root = ws.generate_static_store(cls.tmp)
        cls.server = ws.Server(cls.tmp, root, os.path.join(cls.tmp, "www-cgi"))
        cls.addClassCleanup(cls.server.stop)
        cls.shots = ws.ARTIFACT_DIR or cls.tmp
        os.makedirs(cls.shots, exist_ok=True)

    def render(self, path, name):
        """Opens |path| in a fresh browser profile; returns the rendered DOM,
        parsed. Fails when the page or anything it loads does not answer 200."""
        log = self.server.access_log
        logged = os.path.getsize(log) if os.path.exists(log) else 0
        shot = os.path.join(self.shots, name + ".png")
        if os.path.exists(shot):
            os.remove(shot)
        dom, returncode, errors = browse(
            [*self.FLAGS, f"--user-data-dir={self.tmp}/profile-{name}", f"--screenshot={shot}",
             "--dump-dom", self.server.url(path)])
        self.assertEqual(returncode, 0, errors)
        self.assertEqual(ws.read(shot, "rb")[:8], b"\x89PNG\r\n\x1a\n", "no screenshot")
        # The server writes its access log in batches, in order: a request of
        # our own after the browser has ended marks the end of what it loaded.
        mark = f" /end-of-{name} "
        self.server.fetch(mark.strip())
        deadline = time.monotonic() + 20
        while mark not in (text := ws.read(log, "rb")[logged:].decode()):
            self.assertLess(time.monotonic(), deadline, "the access log stays behind")
            time.sleep(0.1)
        requests = [line.split(" ", 1) for line in text.splitlines() if mark not in line]
        failed = [r for s, r in requests if s != "200" and "/favicon.ico " not in r]
        self.assertEqual(failed, [], f"{path} loaded something that failed")
        self.assertTrue(any("/css/style.css " in r for _, r in requests), "no style sheet loaded")
        return ws.Page(dom)

    def test_shop_home_page(self):
        dom = self.render(ws.STORE_DIR + "index.html", "home")
        self.assertEqual(dom.title, "Lantern & Loom")
        self.assertEqual(dom.h1, ["Things made to be used, and kept."])
        self.assertEqual(dom.cards, 5 + 12)  # categories, then a page of products
        self.assertIn("$89.00", dom.prices)

    def test_category_page(self):
        dom = self.render(ws.STORE_DIR + "c-Kitchen.html", "category")
        self.assertEqual(dom.title, "Kitchen · Lantern & Loom")
        self.assertEqual(dom.h1, ["Kitchen"])
        self.assertEqual(dom.cards, 6)
        self.assertIn("$19.00", dom.prices)

    def test_product_page(self):
        dom = self.render(ws.STORE_DIR + "p-TX-202.html", "product")
        self.assertEqual(dom.title, "Linen Cushion Cover · Lantern & Loom")
        self.assertEqual(dom.h1, ["Linen Cushion Cover"])
        self.assertEqual(dom.prices, ["$38.00"])
        self.assertEqual(dom.controls, [
            ("input", "hidden", "sku", "TX-202"),
            ("select", "", "Color", ""),
            ("option", "", "", "Natural"), ("option", "", "", "Indigo"),
            ("input", "RADIO", "Size", "Small"), ("input", "RADIO", "Size", "Medium"),
            ("input", "number", "quantity", "1"),
        ])


PARTS = {
    "static": (StaticStoreTest, ["lighttpd"]),
    "dynamic": (DynamicStoreTest, ["lighttpd"]),
    "fastcgi": (FastCgiStoreTest, ["lighttpd"]),
    "admin": (AdminTest, ["lighttpd"]),
    "browser": (BrowserTest, ["lighttpd", "chromium"]),
}


def main():
    if len(sys.argv) != 2 or sys.argv[1] not in PARTS:
        print(f"usage: {sys.argv[0]} {'|'.join(PARTS)}")
        return 2
    case, tools = PARTS[sys.argv[1]]
    ws.require_tools(*tools)
    if case is FastCgiStoreTest and not os.path.exists(ws.binary("storegen-fcgi")):
        # Built only with Debian's libfcgi-dev, which CI installs.
        print("SKIPPED: storegen-fcgi is not built (apt-get install libfcgi-dev)")
        return 1 if os.environ.get("CI") == "true" else 77
    for path in (ws.binary(), os.path.join(ws.SAMPLE_DIR, "generate.sh")):
        if not os.path.exists(path):
            print(f"FAILED: {path} is missing")
            return 1
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(case)
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(suite)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
