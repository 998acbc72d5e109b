"""Shared machinery of the web suite: tools, store layouts, a lighttpd server
on the loopback interface, a bounded HTTP client, and the link rules of the
sample store's pages.

Every test lays its stores out in a directory of its own (a fresh temporary
directory, removed afterwards) with its own link of the program under test,
since the program works in its own directory.
"""

import collections
import html.parser
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

# Set by CMake (tests/web/CMakeLists.txt).
BUILD_DIR = os.environ.get("STOREGEN_BUILD_DIR", "")
SAMPLE_DIR = os.environ.get("STOREGEN_SAMPLE_DIR", "")
ARTIFACT_DIR = os.environ.get("STOREGEN_WEB_ARTIFACTS", "")
HERE = os.path.dirname(os.path.abspath(__file__))

SKIP_EXIT = 77  # CTest's SKIP_RETURN_CODE for this suite

# Bounds of everything that talks to a server.
REQUEST_TIMEOUT = 20  # seconds per request
MAX_REQUESTS = 400  # per server
SERVER_START_TIMEOUT = 10

STORE = "lantern"  # the sample store's configuration name and directory
STORE_DIR = "/lantern/"

# Keywords the cart reads in front of a link target; the generator keeps them.
ACTION_KEYWORDS = (
    "ADDTOCART#", "CLEARCART#", "GEOGRAPHY#", "USERGEN#", "USERPROG#", "IMAGEMAP#",
    "TAKEORDER#", "MAILFORM#", "ADDPRODUCT#", "CYBERCASH#", "WALLET#", "NOPARSE#",
    "PWAY_USERPROG#", "PWAY_WALLET#",
)


# --- Tools ------------------------------------------------------------------

def in_ci():
    return os.environ.get("CI") == "true"


def require_tools(*names):
    """Ends the process with the skip code when a tool is missing, saying which
    and why; under CI a missing tool is a failure instead."""
    missing = [n for n in names if shutil.which(n) is None]
    if not missing:
        return
    what = ", ".join(missing)
    if in_ci():
        print(f"FAILED: {what} not installed; CI installs it (.ci/run), so this is an error")
        sys.exit(1)
    print(f"SKIPPED: {what} not installed (apt-get install {' '.join(missing)}); "
          "this part of the web suite needs it to serve or look at the pages")
    sys.exit(SKIP_EXIT)


def storegen_binary():
    return os.path.join(BUILD_DIR, "bin", "storegen")


def admin_binary():
    return os.path.join(BUILD_DIR, "bin", "storegen-admin")


def front_binary():
    return os.path.join(BUILD_DIR, "bin", "storegen-cgi")


# --- Stores -------------------------------------------------------------------

class TempDir:
    """A fresh directory, removed with its content when the test ends."""

    def __init__(self, prefix):
        self.path = tempfile.mkdtemp(prefix=prefix)

    def cleanup(self):
        shutil.rmtree(self.path, ignore_errors=True)


def generate_static_store(base):
    """Generates the sample store with sample/generate.sh, as the README says,
    into |base|/sample-store (the HTML root) from |base|/sample-work. Returns
    (work, html_root)."""
    os.makedirs(os.path.join(base, "bin"), exist_ok=True)
    os.symlink(storegen_binary(), os.path.join(base, "bin", "storegen"))
    run = subprocess.run([os.path.join(SAMPLE_DIR, "generate.sh"), base],
                         capture_output=True, text=True, timeout=120)
    if run.returncode != 0 or not os.path.isfile(
            os.path.join(base, "sample-store", STORE, "index.html")):
        raise AssertionError(f"generate.sh failed (exit {run.returncode}):\n"
                             f"{run.stdout}\n{run.stderr}")
    return os.path.join(base, "sample-work"), os.path.join(base, "sample-store")


def lay_out_store(work, config_source):
    """Lays the sample store out in |work| the way generate.sh does (program in
    cgi-bin/ beside the search gateway template, indexer in ../swish/), with
    |config_source| installed as the store's configuration lantern.cfg."""
    os.makedirs(work)
    for name in ("modern", "modern.cfg", "products.txt", "products.cdb", "products.adb"):
        src = os.path.join(SAMPLE_DIR, name)
        if os.path.isdir(src):
            shutil.copytree(src, os.path.join(work, name))
        else:
            shutil.copy(src, work)
    with open(config_source, encoding="utf-8") as f:
        lines = f.read().splitlines()
    lines = [f"ProductDatabase\t{work}/products.txt" if l.startswith("ProductDatabase\t") else l
             for l in lines]
    with open(os.path.join(work, STORE + ".cfg"), "w", encoding="utf-8") as f:
        f.write("\n".join(lines) + "\n")
    os.makedirs(os.path.join(work, "cgi-bin"))
    os.makedirs(os.path.join(work, "swish"))
    os.symlink(storegen_binary(), os.path.join(work, "cgi-bin", "storegen"))
    shutil.copy(os.path.join(SAMPLE_DIR, "cgi-bin", "wwwwais.cfg"), os.path.join(work, "cgi-bin"))
    shutil.copy(os.path.join(SAMPLE_DIR, "swish", "swish.cfg"), os.path.join(work, "swish"))
    indexer = shutil.which("swish-e")
    if indexer:
        os.symlink(indexer, os.path.join(work, "swish", "swish"))


def run_storegen(work, *args):
    """Runs the store's program from |work|/cgi-bin; returns the finished process."""
    program = os.path.join(work, "cgi-bin", "storegen")
    return subprocess.run([program, *args], capture_output=True, timeout=120)


def config_value(cfg_path, key):
    """The first value of |key| in a key TAB value file, or ""."""
    with open(cfg_path, encoding="utf-8") as f:
        for line in f:
            name, _, value = line.rstrip("\r\n").partition("\t")
            if name.lower() == key.lower() and value:
                return value
    return ""


def read_table(path):
    """Rows of a TAB-separated file with a name line first, as dicts."""
    with open(path, encoding="utf-8") as f:
        rows = [line.rstrip("\r\n").split("\t") for line in f if line.strip()]
    return [dict(zip(rows[0], r)) for r in rows[1:]]


def read_categories(path):
    """Category names of a category database, in its order."""
    with open(path, encoding="utf-8") as f:
        return [line.split("\t")[0] for line in f if line.strip()][1:]


# --- Web server -------------------------------------------------------------

def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Server:
    """lighttpd on 127.0.0.1 at a free port, serving |root|, with CGI for every
    program in |cgi_dir| under /cgi-bin/. |cgi_env| is the CGI programs'
    environment besides the CGI variables. Always stop() it."""

    def __init__(self, work, root, cgi_dir, cgi_env=None):
        self.work = work
        self.conf = os.path.join(work, "lighttpd.conf")
        self.error_log = os.path.join(work, "lighttpd-error.log")
        self.access_log = os.path.join(work, "lighttpd-access.log")
        self.proc = None
        self.requests = 0
        env = {"PATH": "/usr/local/bin:/usr/bin:/bin"}
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                env[name] = os.environ[name]
        env.update(cgi_env or {})
        for attempt in range(3):
            self.port = free_port()
            self._write_conf(root, cgi_dir, env)
            self.proc = subprocess.Popen(["lighttpd", "-D", "-f", self.conf],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            if self._wait_ready():
                return
            self.stop()
        raise AssertionError("lighttpd did not start:\n" + self.log())

    def _write_conf(self, root, cgi_dir, env):
        def q(text):
            return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'
        env_items = ", ".join(f"{q(k)} => {q(v)}" for k, v in env.items())
        conf = f"""\
server.modules = ( "mod_alias", "mod_setenv", "mod_cgi", "mod_accesslog" )
server.document-root = {q(root)}
server.bind = "127.0.0.1"
server.port = {self.port}
server.errorlog = {q(self.error_log)}
accesslog.filename = {q(self.access_log)}
accesslog.format = "%s %r"
index-file.names = ( "index.html" )
mimetype.assign = ( ".html" => "text/html; charset=utf-8", ".css" => "text/css",
                    ".svg" => "image/svg+xml", ".png" => "image/png" )
alias.url = ( "/cgi-bin/" => {q(cgi_dir.rstrip('/') + '/')} )
$HTTP["url"] =~ "^/cgi-bin/" {{
  cgi.assign = ( "" => "" )
}}
setenv.add-environment = ( {env_items} )
"""
        with open(self.conf, "w", encoding="utf-8") as f:
            f.write(conf)

    def _wait_ready(self):
        deadline = time.monotonic() + SERVER_START_TIMEOUT
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                return False
            try:
                with socket.create_connection(("127.0.0.1", self.port), timeout=1):
                    return True
            except OSError:
                time.sleep(0.05)
        return False

    def stop(self):
        if self.proc is None:
            return
        if self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        if self.proc.stderr:
            self.proc.stderr.close()
        self.proc = None

    def log(self):
        text = ""
        if os.path.exists(self.error_log):
            with open(self.error_log, encoding="utf-8", errors="replace") as f:
                text = f.read()
        return text[-4000:]

    def url(self, path):
        return f"http://127.0.0.1:{self.port}{path}"

    def fetch(self, path, data=None, headers=None):
        """GET (or POST |data|) |path|, with |headers| besides the usual ones;
        returns (status, headers, body bytes). Counts against MAX_REQUESTS."""
        self.requests += 1
        if self.requests > MAX_REQUESTS:
            raise AssertionError(f"more than {MAX_REQUESTS} requests to one server")
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        request = urllib.request.Request(self.url(path), data=data, headers=headers or {})
        try:
            with opener.open(request, timeout=REQUEST_TIMEOUT) as r:
                return r.status, r.headers, r.read()
        except urllib.error.HTTPError as e:
            return e.code, e.headers, e.read()


# --- Pages and links ----------------------------------------------------------

LINK_ATTRIBUTES = {
    "a": "href", "area": "href", "link": "href", "base": "href", "img": "src",
    "script": "src", "frame": "src", "iframe": "src", "source": "src",
    "form": "action", "body": "background",
}


class PageParser(html.parser.HTMLParser):
    """Collects a page's link values and its visible text."""

    def __init__(self):
        super().__init__(convert_charrefs=True)
        self.links = []  # (tag, value)
        self.text = []
        self.title = ""
        self._in_title = False

    def handle_starttag(self, tag, attrs):
        wanted = LINK_ATTRIBUTES.get(tag)
        for name, value in attrs:
            if name == wanted and value is not None:
                self.links.append((tag, value))
        if tag == "title":
            self._in_title = True

    def handle_endtag(self, tag):
        if tag == "title":
            self._in_title = False

    def handle_data(self, data):
        self.text.append(data)
        if self._in_title:
            self.title += data


def parse_page(body):
    parser = PageParser()
    parser.feed(body.decode("utf-8", errors="replace"))
    parser.close()
    return parser


class Link:
    """One link of a page, classified.

    kind: "store" (a page or file of the store, fetched and crawled),
    "dynamic" (a page the page generator makes on request, through the CGI
    program PageGenProg names), "cart" (a link into the cart's own programs or
    servers: only its shape is checked, and the store page it leads back to
    is fetched), "anchor" (a place on the same page).
    fetch: the local path to request, or None. problem: why the link is bad."""

    def __init__(self, kind, fetch=None, problem=None):
        self.kind = kind
        self.fetch = fetch
        self.problem = problem


class StoreLinks:
    """The link rules of one store, from its configuration."""

    def __init__(self, cfg_path):
        self.cgi_dir = config_value(cfg_path, "CGIBinDirectory").rstrip("/")
        self.pagegen = self.cgi_dir + "/" + config_value(cfg_path, "PageGenProg").rsplit("/", 1)[-1]
        self.cart = (self.cgi_dir + "/" + config_value(cfg_path, "TillboxName") + "." +
                     config_value(cfg_path, "TillboxExtension"))
        self.domains = [config_value(cfg_path, "NonSecureDomain"),
                        config_value(cfg_path, "SecureDomain")]
        self.store_dir = "/" + config_value(cfg_path, "StoreDir").strip("/") + "/"
        self.cfg_name = os.path.basename(cfg_path)
        self.store_name = self.cfg_name.split(".")[0]
        # The cart program with a store page behind it: PG_TILLBOX# and the
        # switches between the secure and the non-secure server.
        self.cart_page = re.compile(
            "^" + re.escape(self.cart) + "(" + re.escape(self.store_dir) +
            r"[^?#\s]*)\?[ELRU]\+" + re.escape(self.store_name) +
            r"(\+%%[A-Za-z.]+%%)?$")

    def classify(self, value, page_path):
        # The cart's own run-time tags (session, affiliate) stay in its links.
        bare = re.sub(r"%%[Tt]illbox\.[\w.]+%%", "", value)
        if "PG_" in bare or "PAGEGEN_" in bare or "%%" in bare:
            return Link("bad", problem="unexpanded template keyword or tag")
        keyword = next((k for k in ACTION_KEYWORDS if value.startswith(k)), "")
        target = value[len(keyword):]
        if keyword == "NOPARSE#":
            return self._cart_server(target)
        if keyword == "USERPROG#" and target.startswith(self.pagegen + "?"):
            return Link("dynamic", fetch=target)
        if keyword == "USERPROG#" and re.match(r"^/?[\w./-]*cgi-bin/\w+(\?\S*)?$", target):
            return Link("cart")  # another cart program, e.g. the search gateway
        if target.startswith(self.cart + "/"):
            return self._cart_page(target)
        if keyword:
            # The cart acts, then shows a page of the store.
            if not target.startswith(self.store_dir):
                return Link("bad", problem=f"{keyword} in front of a target outside the store")
            return Link("cart", fetch=target)
        if target.startswith("#"):
            return Link("anchor")
        parts = urllib.parse.urlsplit(target)
        if parts.scheme or parts.netloc:
            return Link("bad", problem="link that leaves the store")
        path = urllib.parse.urljoin(page_path, target).split("#")[0]
        return Link("store", fetch=path)

    def _cart_page(self, target):
        m = self.cart_page.match(target)
        if not m:
            return Link("bad", problem="cart program link of an unexpected shape")
        return Link("cart", fetch=m.group(1))

    def _cart_server(self, target):
        for domain in self.domains:
            if domain and target.startswith(domain.rstrip("/") + "/"):
                rest = target[len(domain.rstrip("/")):]
                if rest.startswith(self.store_dir) and "?" not in rest:
                    return Link("cart", fetch=rest)
                return self._cart_page(rest)
        return Link("bad", problem="NOPARSE# link to a server the store does not name")


def unexpanded_text(parser):
    """Template tags left in a page's visible text."""
    return sorted({m.group(0) for chunk in parser.text
                   for m in re.finditer(r"%%[^%\s]*%%|<!--\s*PAGEGEN_\w+", chunk)})


class CrawlResult:
    def __init__(self):
        self.status = {}  # fetched path -> HTTP status
        self.problems = []  # (page, link or path, what is wrong)
        self.kinds = collections.Counter()  # links seen, by kind


def crawl(server, links, seeds, limit=MAX_REQUESTS - 20):
    """Fetches |seeds| and every link reachable from them that leads to the
    store's own pages (store, dynamic, and the store pages behind cart links),
    once each. Returns a CrawlResult."""
    result = CrawlResult()
    queue = [(None, s) for s in seeds]
    seen = set(seeds)
    while queue:
        page, path = queue.pop(0)
        if len(result.status) >= limit:
            result.problems.append((page, path, "crawl limit reached"))
            break
        status, headers, body = server.fetch(path)
        result.status[path] = status
        if status != 200:
            result.problems.append((page, path, f"answered {status}"))
            continue
        if not headers.get("Content-Type", "").startswith("text/html"):
            continue
        parser = parse_page(body)
        for tag in unexpanded_text(parser):
            result.problems.append((path, tag, "template tag left in the page text"))
        # Relative links resolve against the page's base when it names one.
        base = next((urllib.parse.urljoin(path, v) for t, v in parser.links if t == "base"), path)
        for tag, value in parser.links:
            link = links.classify(value, base)
            result.kinds[link.kind] += 1
            if link.problem:
                result.problems.append((path, value, link.problem))
            elif link.fetch and link.fetch not in seen:
                seen.add(link.fetch)
                queue.append((path, link.fetch))
    return result


def describe(problems):
    return "\n".join(f"  on {page}: {what}: {link}" for page, link, what in problems)
