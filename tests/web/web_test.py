"""The sample store behind a real web server, in four parts, each run by CTest
on its own (web_test.py PART):

  static   the generated store crawled over HTTP from the shop home page
  dynamic  product and list pages made on request through the front
           storegen-cgi, against the pages a static run writes
  admin    a generation run started and followed through storegen-admin
  browser  pages opened in headless Chromium: rendered DOM and screenshots

A part whose tools are missing is skipped outside CI (exit code 77, with the
reason) and fails under CI.
"""

import html.parser
import os
import re
import signal
import subprocess
import sys
import time
import unittest
import urllib.parse

import webstore as ws


def install_front(cgi_dir, work):
    """The dynamic-page front storegen-cgi as /cgi-bin/storegen (the name
    PageGenProg gives), serving the store laid out in |work|."""
    os.makedirs(cgi_dir, exist_ok=True)
    os.symlink(ws.front_binary(), os.path.join(cgi_dir, "storegen"))
    with open(os.path.join(cgi_dir, "storegen-cgi.cfg"), "w", encoding="utf-8") as f:
        f.write(f"StoregenProgram\t{work}/cgi-bin/storegen\nStoreConfigDir\t{work}\n"
                f"Stores\t{ws.STORE}.cfg\n")


def serve_dynamic_store(work, root, server_dir):
    """Lays out the store with its dynamic configuration in |work|, writes its
    static pages into |root| and serves them from a server in |server_dir|,
    with the dynamic pages through the front. Returns the server."""
    ws.lay_out_store(work, os.path.join(ws.SAMPLE_DIR, "lantern-dynamic.cfg"))
    run = ws.run_storegen(work, "-o", root, "-c", os.path.join(work, ws.STORE + ".cfg"), "-s", "0")
    if run.returncode != 0:
        raise AssertionError(f"static run of the dynamic store failed ({run.returncode}): "
                             f"{run.stdout!r} {run.stderr!r}")
    cgi = os.path.join(server_dir, "www-cgi")
    install_front(cgi, work)
    return ws.Server(server_dir, root, cgi)


def store_seeds(cfg_path, work):
    """Where a crawl of the store starts: the shop home page, the cart pages
    the run announced in the store configuration, and the search page (the
    cart and the search gateway lead to those; no store page does)."""
    seeds = [ws.STORE_DIR + "index.html"]
    for key in ("PostModCartPage", "OnlineOrderPage", "ErrorPage"):
        value = ws.config_value(cfg_path, key)
        if value:
            seeds.append(value)
    wcf = os.path.join(work, "swish", ws.STORE + ".wcf")
    if os.path.exists(wcf):
        with open(wcf, encoding="utf-8") as f:
            for line in f:
                words = line.split()
                if len(words) == 2 and words[0] == "PageTitle":
                    seeds.append(ws.STORE_DIR + os.path.basename(words[1]))
    return seeds


class StaticStoreTest(unittest.TestCase):
    """The store as generate.sh writes it, served as static files."""

    @classmethod
    def setUpClass(cls):
        cls.tmp = ws.TempDir("web-static-")
        cls.addClassCleanup(cls.tmp.cleanup)
        cls.work, cls.root = ws.generate_static_store(cls.tmp.path)
        cls.cfg = os.path.join(cls.work, ws.STORE + ".cfg")
        cls.server = ws.Server(cls.tmp.path, cls.root, os.path.join(cls.tmp.path, "www-cgi"))
        cls.addClassCleanup(cls.server.stop)

    def test_every_link_of_the_store_answers(self):
        links = ws.StoreLinks(self.cfg)
        result = ws.crawl(self.server, links, store_seeds(self.cfg, self.work))
        self.assertEqual(result.problems, [], "broken links:\n" + ws.describe(result.problems))
        # Every page the run wrote is reached, and the template set's support
        # files that the pages use.
        out = os.path.join(self.root, ws.STORE)
        written = {ws.STORE_DIR + n for n in os.listdir(out) if n.endswith(".html")}
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
        cls.tmp = ws.TempDir("web-dynamic-")
        cls.addClassCleanup(cls.tmp.cleanup)
        static = os.path.join(cls.tmp.path, "static")
        os.makedirs(static)
        _, static_root = ws.generate_static_store(static)
        cls.static_pages = os.path.join(static_root, ws.STORE)

        cls.work = os.path.join(cls.tmp.path, "dynamic")
        cls.cfg = os.path.join(cls.work, ws.STORE + ".cfg")
        cls.root = os.path.join(cls.tmp.path, "html")
        cls.server = serve_dynamic_store(cls.work, cls.root, cls.tmp.path)
        cls.addClassCleanup(cls.server.stop)
        cls.links = ws.StoreLinks(cls.cfg)
        cls.products = ws.read_table(os.path.join(cls.work, "products.txt"))

    def pagegen(self, query):
        return self.links.pagegen + "?" + query

    def as_static(self, body):
        """|body| with the deliberately dynamic page links turned into the
        static file names a static run writes."""
        text = body.decode("utf-8")
        prefix = "USERPROG#" + re.escape(self.links.pagegen)
        cfg = re.escape(self.links.cfg_name)
        text = re.sub(prefix + r"\?-p\+-c\+" + cfg + r"\+([\w.-]+)(?=\")",
                      lambda m: f"{ws.STORE_DIR}p-{m.group(1)}.html", text)
        text = re.sub(prefix + r"\?-c\+" + cfg + r"\+-f\+0\+-C\+([\w.%-]+)(?=\")",
                      lambda m: f"{ws.STORE_DIR}c-{urllib.parse.unquote(m.group(1))}.html", text)
        return text.encode("utf-8")

    def test_product_pages_equal_their_static_twins(self):
        for product in self.products:
            sku = product["SKU"]
            with self.subTest(sku=sku):
                status, headers, body = self.server.fetch(self.pagegen("-p+-c+lantern.cfg+" + sku))
                self.assertEqual(status, 200)
                with open(os.path.join(self.static_pages, f"p-{sku}.html"), "rb") as f:
                    twin = f.read()
                self.assertEqual(self.as_static(body).decode(), twin.decode())
        status, _, _ = self.server.fetch(self.pagegen("-p+-c+lantern.cfg+NO-SUCH-SKU"))
        self.assertEqual(status, 404)

    def test_hostile_queries_are_refused(self):
        outside = os.path.join(self.tmp.path, "outside")
        for query in ("-c+lantern.cfg+-tx+/etc/passwd+-f+0", f"-tt+-p+-oo+{outside}+-ss+0",
                      "-p+-c+lantern.cfg%00.x+LL-106", "-p+-c+..%2Fdynamic%2Flantern.cfg+LL-106"):
            with self.subTest(query=query):
                status, _, body = self.server.fetch(self.pagegen(query))
                self.assertEqual(status, 400)
                self.assertNotIn(b"root:", body)
        self.assertFalse(os.path.exists(outside))

    def list_walk(self, path, exact_previous=True):
        """Follows a list's "Next" links from |path|; returns the SKUs of its
        product links, page by page, and checks each page's paging links: at
        most one "Next", and one "Previous" on every page but the first,
        leading back to the page before (with |exact_previous|) or to some
        earlier start."""
        pages = []
        first, before = 0, None
        while path:
            self.assertLess(len(pages), 20, "list pages do not end")
            status, _, body = self.server.fetch(path)
            self.assertEqual(status, 200, path)
            skus, starts = [], []
            for tag, value in ws.parse_page(body).links:
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
            previous = [s for s, _ in starts if s < first]
            following = [p for s, p in starts if s > first]
            expected = [before] if before is not None else []
            if not exact_previous and len(previous) == 1:
                expected = previous
            self.assertEqual(previous, expected, f"Previous links on {path}")
            self.assertLessEqual(len(following), 1, f"Next links on {path}")
            path = following[0] if following else None
            if path:
                first, before = int(re.search(r"-f\+(\d+)", path).group(1)), first
        return pages

    def test_list_pages_page_through_every_product_once(self):
        status, _, body = self.server.fetch(ws.STORE_DIR + "index.html")
        self.assertEqual(status, 200)
        category_links = {}
        for _, value in ws.parse_page(body).links:
            m = re.search(r"-f\+0\+-C\+(.+)$", value)
            if m:
                category_links[urllib.parse.unquote(m.group(1))] = self.links.classify(
                    value, ws.STORE_DIR).fetch
        categories = ws.read_categories(os.path.join(self.work, "products.cdb"))
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
        dynamic = [p for p in result.status if p.startswith(self.links.pagegen)]
        self.assertEqual(len([p for p in dynamic if "?-p+" in p]), len(self.products))
        # Product and category pages exist only on request.
        self.assertFalse(any(n.startswith(("p-", "c-"))
                             for n in os.listdir(os.path.join(self.root, ws.STORE))))


class AdminTest(unittest.TestCase):
    """storegen-admin behind the web server starts a run and reports it."""

    @classmethod
    def setUpClass(cls):
        cls.tmp = ws.TempDir("web-admin-")
        cls.addClassCleanup(cls.tmp.cleanup)
        cls.work = os.path.join(cls.tmp.path, "work")
        ws.lay_out_store(cls.work, os.path.join(ws.SAMPLE_DIR, "lantern.cfg"))
        # A run started from the web finds its template set through the
        # store's own template directory. The cart's programs are not where
        # storegen-admin is, so a run that took the directory of the request's
        # program for theirs would write other links than a shell's run.
        cls.cfg = os.path.join(cls.work, ws.STORE + ".cfg")
        with open(cls.cfg, encoding="utf-8") as f:
            lines = [l for l in f.read().splitlines() if not l.startswith("CGIBinDirectory\t")]
        with open(cls.cfg, "w", encoding="utf-8") as f:
            f.write("\n".join(lines + ["CGIBinDirectory\t/shop-cgi", f"PageGenTemplateDir\t{cls.work}"]))
            f.write("\n")
        cls.root = os.path.join(cls.tmp.path, "html")
        os.makedirs(cls.root)
        config = os.path.join(cls.tmp.path, "storegen-admin.cfg")
        with open(config, "w", encoding="utf-8") as f:
            f.write(f"StoregenProgram\t{cls.work}/cgi-bin/storegen\n"
                    f"StoreConfigDir\t{cls.work}\nTemplateDir\t{cls.work}\nHtmlRoot\t{cls.root}\n")
        cgi = os.path.join(cls.tmp.path, "www-cgi")
        os.makedirs(cgi)
        os.symlink(ws.admin_binary(), os.path.join(cgi, "storegen-admin"))
        cls.server = ws.Server(cls.tmp.path, cls.root, cgi, {"STOREGEN_ADMIN_CONFIG": config})
        cls.addClassCleanup(cls.server.stop)
        cls.addClassCleanup(cls.wait_for_run_end)

    @classmethod
    def wait_for_run_end(cls):
        """A run started here goes on by itself: before the store's directory
        goes, wait (bounded) until none is under way."""
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline:
            _, _, body = cls.server.fetch("/cgi-bin/storegen-admin?action=status")
            if ws.parse_page(body).title != "Generation running":
                return
            time.sleep(0.2)

    def generate_and_wait(self):
        """Starts a run and polls the status page until the run has ended;
        returns the report page."""
        status, _, body = self.server.fetch("/cgi-bin/storegen-admin",
                                            b"action=generate&store=" + ws.STORE.encode())
        self.assertEqual(status, 200)
        self.assertEqual(ws.parse_page(body).title, "Generation started", body)
        deadline = time.monotonic() + 90
        while True:
            status, _, body = self.server.fetch("/cgi-bin/storegen-admin?action=status&store=lantern")
            self.assertEqual(status, 200)
            # Until the run has taken its lock the report of the one before
            # is gone and this one's is not there yet.
            if ws.parse_page(body).title not in ("Generation running", "No generation report"):
                return body.decode("utf-8", "replace")
            self.assertLess(time.monotonic(), deadline, "the run did not end")
            time.sleep(0.2)

    def test_generation_runs_and_reports(self):
        report = self.generate_and_wait()
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
        shell_root = os.path.join(self.tmp.path, "shell")
        run = ws.run_storegen(self.work, "-o", shell_root, "-c", self.cfg, "-s", "0")
        self.assertEqual(run.returncode, 0, run.stdout)
        ours, theirs = os.path.join(self.root, ws.STORE), os.path.join(shell_root, ws.STORE)
        pages = sorted(n for n in os.listdir(theirs) if n.endswith(".html"))
        self.assertEqual(sorted(n for n in os.listdir(ours) if n.endswith(".html")), pages)
        for name in pages:
            with open(os.path.join(ours, name), "rb") as a, open(os.path.join(theirs, name), "rb") as b:
                self.assertEqual(a.read(), b.read(), name)


class DomSummary(html.parser.HTMLParser):
    """What a shopper sees of a rendered page: title, headings, prices,
    product cards and form controls."""

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.title = ""
        self.h1 = []
        self.prices = []
        self.cards = 0
        self.controls = []  # (tag, type, name, value)
        self._open = []

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        classes = (a.get("class") or "").split()
        if tag == "a" and "card" in classes:
            self.cards += 1
        if tag in ("select", "textarea", "input"):
            self.controls.append((tag, a.get("type", ""), a.get("name", ""), a.get("value", "")))
        if tag == "option":
            self.controls.append((tag, "", "", a.get("value", "")))
        self._open.append((tag, "price" in classes))
        if tag in ("input", "img", "br", "hr", "meta", "link", "base", "area", "source"):
            self._open.pop()

    def handle_endtag(self, tag):
        while self._open:
            if self._open.pop()[0] == tag:
                break

    def handle_data(self, data):
        tags = [t for t, _ in self._open]
        if tags and tags[-1] == "title":
            self.title += data
        if "h1" in tags:
            self.h1.append(data.strip())
        if any(price for _, price in self._open):
            self.prices.append(data.strip())


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
        cls.tmp = ws.TempDir("web-browser-")
        cls.addClassCleanup(cls.tmp.cleanup)
        _, root = ws.generate_static_store(cls.tmp.path)
        cls.server = ws.Server(cls.tmp.path, root, os.path.join(cls.tmp.path, "www-cgi"))
        cls.addClassCleanup(cls.server.stop)
        cls.shots = ws.ARTIFACT_DIR or cls.tmp.path
        os.makedirs(cls.shots, exist_ok=True)

    def render(self, server, path, name):
        """Opens |path| in a fresh browser profile; returns the rendered DOM's
        summary. Fails when the page or anything it loads does not answer
        200."""
        with open(server.access_log, "a", encoding="utf-8"):
            pass
        logged = os.path.getsize(server.access_log)
        shot = os.path.join(self.shots, name + ".png")
        if os.path.exists(shot):
            os.remove(shot)
        profile = os.path.join(self.tmp.path, "profile-" + name)
        dom_text, returncode, errors = browse(
            [*self.FLAGS, f"--user-data-dir={profile}", f"--screenshot={shot}", "--dump-dom",
             server.url(path)])
        self.assertEqual(returncode, 0, errors)
        with open(shot, "rb") as f:
            self.assertEqual(f.read(8), b"\x89PNG\r\n\x1a\n", "no screenshot")
        # The server writes its access log in batches, in order: a request of
        # our own after the browser has ended marks the end of what it loaded.
        mark = f"/end-of-{name}"
        server.fetch(mark)
        deadline = time.monotonic() + 20
        while True:
            with open(server.access_log, encoding="utf-8") as f:
                f.seek(logged)
                requests = [line.split(" ", 1) for line in f.read().splitlines()]
            if any(f" {mark} " in r for _, r in requests):
                requests = [(s, r) for s, r in requests if f" {mark} " not in r]
                break
            self.assertLess(time.monotonic(), deadline, "the access log stays behind")
            time.sleep(0.1)
        failed = [r for s, r in requests if s != "200" and "/favicon.ico " not in r]
        self.assertEqual(failed, [], f"{path} loaded something that failed")
        self.assertTrue(any("/css/style.css " in r for _, r in requests), "no style sheet loaded")
        dom = DomSummary()
        dom.feed(dom_text)
        return dom

    def test_shop_home_page(self):
        dom = self.render(self.server, ws.STORE_DIR + "index.html", "home")
        self.assertEqual(dom.title, "Lantern & Loom")
        self.assertEqual(dom.h1, ["Things made to be used, and kept."])
        self.assertEqual(dom.cards, 5 + 12)  # categories, then a page of products
        self.assertIn("$89.00", dom.prices)

    def test_category_page(self):
        dom = self.render(self.server, ws.STORE_DIR + "c-Kitchen.html", "category")
        self.assertEqual(dom.title, "Kitchen · Lantern & Loom")
        self.assertEqual(dom.h1, ["Kitchen"])
        self.assertEqual(dom.cards, 6)
        self.assertIn("$19.00", dom.prices)

    def test_product_page(self):
        dom = self.render(self.server, ws.STORE_DIR + "p-TX-202.html", "product")
        self.assertEqual(dom.title, "Linen Cushion Cover · Lantern & Loom")
        self.assertEqual(dom.h1, ["Linen Cushion Cover"])
        self.assertEqual(dom.prices, ["$38.00"])
        self.assertEqual(dom.controls, [
            ("input", "hidden", "sku", "TX-202"),
            ("select", "", "Color", ""), ("option", "", "", "Natural"), ("option", "", "", "Indigo"),
            ("input", "RADIO", "Size", "Small"), ("input", "RADIO", "Size", "Medium"),
            ("input", "number", "quantity", "1"),
        ])


PARTS = {
    "static": (StaticStoreTest, ["lighttpd"]),
    "dynamic": (DynamicStoreTest, ["lighttpd"]),
    "admin": (AdminTest, ["lighttpd"]),
    "browser": (BrowserTest, ["lighttpd", "chromium"]),
}


def main():
    if len(sys.argv) != 2 or sys.argv[1] not in PARTS:
        print(f"usage: {sys.argv[0]} {'|'.join(PARTS)}")
        return 2
    case, tools = PARTS[sys.argv[1]]
    ws.require_tools(*tools)
    for path in (ws.storegen_binary(), os.path.join(ws.SAMPLE_DIR, "generate.sh")):
        if not os.path.exists(path):
            print(f"FAILED: {path} is missing")
            return 1
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(case)
    result = unittest.TextTestRunner(stream=sys.stdout, verbosity=2).run(suite)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
