"""Shared machinery of the web suite and the docs tests: tools, store layouts,
a lighttpd server on the loopback interface, a bounded HTTP client, pages
parsed, and the link rules of the sample store's pages.

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
import types
import urllib.error
import urllib.parse
import urllib.request

# Set by CMake (tests/web/CMakeLists.txt, tests/docs/CMakeLists.txt).
BUILD_DIR = os.environ.get("STOREGEN_BUILD_DIR", "")
SAMPLE_DIR = os.environ.get("STOREGEN_SAMPLE_DIR") or os.path.join(
    os.environ.get("STOREGEN_SOURCE_DIR", ""), "sample")
ARTIFACT_DIR = os.environ.get("STOREGEN_WEB_ARTIFACTS", "")

REQUEST_TIMEOUT = 20  # seconds per request
MAX_REQUESTS = 400  # per server

STORE = "lantern"  # the sample store's configuration name and directory
STORE_DIR = "/lantern/"
# The environment a program under test keeps: a plain PATH and the sanitizers' options.
CHILD_ENV = {"PATH": "/usr/local/bin:/usr/bin:/bin", **{
    k: v for k, v in os.environ.items() if k in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS")}}

# Keywords the cart reads in front of a link target; the generator keeps them.
ACTION_KEYWORDS = (
    "ADDTOCART#", "CLEARCART#", "GEOGRAPHY#", "USERGEN#", "USERPROG#", "IMAGEMAP#",
    "TAKEORDER#", "MAILFORM#", "ADDPRODUCT#", "CYBERCASH#", "WALLET#", "NOPARSE#",
    "PWAY_USERPROG#", "PWAY_WALLET#",
)


def require_tools(*names, hint=None):
    """Ends the process with CTest's skip code 77 when a tool is missing,
    saying which and why; under CI a missing tool is a failure instead."""
    missing = [n for n in names if shutil.which(n) is None]
    if not missing:
        return
    what = ", ".join(missing)
    if os.environ.get("CI") == "true":
        print(f"FAILED: {what} not installed; CI installs it (.ci/run), so this is an error")
        sys.exit(1)
    print(f"SKIPPED: {what} not installed ({hint or 'apt-get install ' + ' '.join(missing)}); "
          "this test needs it")
    sys.exit(77)


def binary(name="storegen"):
    return os.path.join(BUILD_DIR, "bin", name)


def temp_dir(add_cleanup, prefix):
    """A fresh directory, removed by the cleanup |add_cleanup| registers."""
    path = tempfile.mkdtemp(prefix=prefix)
    add_cleanup(shutil.rmtree, path, ignore_errors=True)
    return path


def read(path, mode="r"):
    with open(path, mode, **({} if "b" in mode else {"encoding": "utf-8"})) as f:
        return f.read()


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


def write_keys(path, **keys):
    """A configuration file: one "key TAB value" line a key."""
    write(path, "".join(f"{k}\t{v}\n" for k, v in keys.items()))


# --- Stores -------------------------------------------------------------------

def generate_static_store(base):
    """Generates the sample store with sample/generate.sh, as the README says,
    into |base|/sample-store (the HTML root) from |base|/sample-work. Returns
    (work, html_root)."""
    os.makedirs(os.path.join(base, "bin"), exist_ok=True)
    os.symlink(binary(), os.path.join(base, "bin", "storegen"))
    run = subprocess.run([os.path.join(SAMPLE_DIR, "generate.sh"), base],
                         capture_output=True, text=True, timeout=120)
    if run.returncode != 0 or not os.path.isfile(
            os.path.join(base, "sample-store", STORE, "index.html")):
        raise AssertionError(f"generate.sh failed (exit {run.returncode}):\n"
                             f"{run.stdout}\n{run.stderr}")
    return os.path.join(base, "sample-work"), os.path.join(base, "sample-store")


def lay_out_store(work, config="lantern.cfg", **keys):
    """Lays the sample store out in |work| the way generate.sh does (program in
    cgi-bin/ beside the search gateway template, indexer in ../swish/), with
    the sample's |config| as the store's configuration lantern.cfg, its
    |keys| set."""
    for name in ("modern", "modern.cfg", "products.txt", "products.cdb", "products.adb"):
        src = os.path.join(SAMPLE_DIR, name)
        (shutil.copytree if os.path.isdir(src) else shutil.copy)(src, os.path.join(work, name))
    keys = {"ProductDatabase": f"{work}/products.txt", **keys}
    lines = [l for l in read(os.path.join(SAMPLE_DIR, config)).splitlines()
             if l.split("\t")[0] not in keys]
    write(os.path.join(work, STORE + ".cfg"),
          "\n".join(lines + [f"{k}\t{v}" for k, v in keys.items()]) + "\n")
    for name in ("cgi-bin/wwwwais.cfg", "swish/swish.cfg"):
        write(os.path.join(work, name), read(os.path.join(SAMPLE_DIR, name)))
    os.symlink(binary(), os.path.join(work, "cgi-bin", "storegen"))
    if shutil.which("swish-e"):
        os.symlink(shutil.which("swish-e"), os.path.join(work, "swish", "swish"))


def run_storegen(work, *args):
    """Runs the store's program from |work|/cgi-bin; returns the finished process."""
    return subprocess.run([os.path.join(work, "cgi-bin", "storegen"), *args],
                          capture_output=True, timeout=120)


def front_config(path, work):
    """The configuration of storegen-cgi serving the store laid out in |work|."""
    write_keys(path, StoregenProgram=f"{work}/cgi-bin/storegen", StoreConfigDir=work,
               Stores=STORE + ".cfg")


def admin_config(path, work, root):
    """The configuration of storegen-admin managing the store laid out in
    |work|, its pages going below |root|."""
    write_keys(path, StoregenProgram=f"{work}/cgi-bin/storegen", StoreConfigDir=work,
               TemplateDir=work, HtmlRoot=root)


def config_value(cfg_path, key):
    """The first value of |key| in a key TAB value file, or ""."""
    for line in read(cfg_path).splitlines():
        name, _, value = line.partition("\t")
        if name.lower() == key.lower() and value:
            return value
    return ""


def read_table(path):
    """Rows of a TAB-separated file with a name line first, as dicts."""
    rows = [line.split("\t") for line in read(path).splitlines() if line.strip()]
    return [dict(zip(rows[0], r)) for r in rows[1:]]


# --- Web server -------------------------------------------------------------

class Server:
    """lighttpd on 127.0.0.1 at a free port, serving |root|, with CGI for every
    program in |cgi_dir| under /cgi-bin/. |cgi_env| is the CGI programs'
    environment besides the CGI variables. |fastcgi| maps a URL path to a
    FastCGI responder that lighttpd starts: (program, its environment).
    Always stop() it."""

    def __init__(self, work, root, cgi_dir, cgi_env=None, fastcgi=None):
        self.fastcgi = {path: (program, {**CHILD_ENV, **env}, os.path.join(work, f"fcgi{i}.sock"))
                        for i, (path, (program, env)) in enumerate((fastcgi or {}).items())}
        self.conf = os.path.join(work, "lighttpd.conf")
        self.error_log = os.path.join(work, "lighttpd-error.log")
        # The standard error of the programs lighttpd starts (FastCGI).
        self.breakage_log = os.path.join(work, "lighttpd-breakage.log")
        self.access_log = os.path.join(work, "lighttpd-access.log")
        self.requests = 0
        for _ in range(3):
            with socket.socket() as s:
                s.bind(("127.0.0.1", 0))
                self.port = s.getsockname()[1]
            write(self.conf, self.conf_text(root, cgi_dir, {**CHILD_ENV, **(cgi_env or {})}))
            self.proc = subprocess.Popen(["lighttpd", "-D", "-f", self.conf],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            deadline = time.monotonic() + 10
            while self.proc.poll() is None and time.monotonic() < deadline:
                try:
                    socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                    return
                except OSError:
                    time.sleep(0.05)
            self.stop()
        log = read(self.error_log)[-4000:] if os.path.exists(self.error_log) else ""
        raise AssertionError("lighttpd did not start:\n" + log)

    def conf_text(self, root, cgi_dir, env):
        def q(text):
            return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'
        env_items = ", ".join(f"{q(k)} => {q(v)}" for k, v in env.items())
        return f"""\
server.modules = ( "mod_alias", "mod_setenv", "mod_cgi", "mod_accesslog" )
server.document-root = {q(root)}
server.bind = "127.0.0.1"
server.port = {self.port}
server.errorlog = {q(self.error_log)}
server.breakagelog = {q(self.breakage_log)}
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
""" + self.fastcgi_text(q)

    def fastcgi_text(self, q):
        if not self.fastcgi:
            return ""
        def responder(path, program, env, sock):
            env_items = ", ".join(f"{q(k)} => {q(v)}" for k, v in env.items())
            return f"""{q(path)} => ((
  "bin-path" => {q(program)},
  "socket" => {q(sock)},
  "max-procs" => 1,
  "bin-environment" => ( {env_items} ),
  "check-local" => "disable"
))"""
        servers = ",\n".join(responder(path, *rest) for path, rest in self.fastcgi.items())
        return f'server.modules += ( "mod_fastcgi" )\nfastcgi.server = (\n{servers}\n)\n'

    def stop(self):
        if self.proc is not None and self.proc.poll() is None:
            self.proc.terminate()
            try:
                self.proc.wait(timeout=10)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        self.proc = None

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


def generate(server, path, headers=None):
    """Starts a run of the store through storegen-admin at |path| and polls
    its status page until the run has ended; returns the report page."""
    status, _, body = server.fetch(path, b"action=generate&store=" + STORE.encode(), headers)
    if (status, Page(body).title) != (200, "Generation started"):
        raise AssertionError(f"no run started ({status}): {body!r}")
    deadline = time.monotonic() + 90
    while True:
        status, _, body = server.fetch(f"{path}?action=status&store={STORE}", headers=headers)
        # Until the run has taken its lock the report of the one before is
        # gone and this one's is not there yet.
        if status != 200 or Page(body).title not in ("Generation running", "No generation report"):
            return body.decode("utf-8", "replace")
        if time.monotonic() > deadline:
            raise AssertionError("the run did not end")
        time.sleep(0.2)


# --- Pages and links ----------------------------------------------------------

LINK_ATTRIBUTES = {
    "a": "href", "area": "href", "link": "href", "base": "href", "img": "src",
    "script": "src", "frame": "src", "iframe": "src", "source": "src",
    "form": "action", "body": "background",
}
VOID_TAGS = ("input", "img", "br", "hr", "meta", "link", "base", "area", "source")


class Page(html.parser.HTMLParser):
    """A page (bytes or text) parsed: its link values, visible text and title,
    and what a shopper sees of it: first-level headings, prices, product cards
    and form controls."""

    def __init__(self, body):
        super().__init__(convert_charrefs=True)
        self.links = []  # (tag, value)
        self.text, self.h1, self.prices, self.controls = [], [], [], []
        self.title, self.cards, self._open = "", 0, []
        self.feed(body if isinstance(body, str) else body.decode("utf-8", errors="replace"))
        self.close()

    def handle_starttag(self, tag, attrs):
        a = dict(attrs)
        if a.get(LINK_ATTRIBUTES.get(tag)) is not None:
            self.links.append((tag, a[LINK_ATTRIBUTES[tag]]))
        classes = (a.get("class") or "").split()
        self.cards += tag == "a" and "card" in classes
        if tag in ("select", "textarea", "input", "option"):
            self.controls.append((tag, a.get("type", ""), a.get("name", ""), a.get("value", "")))
        if tag not in VOID_TAGS:
            self._open.append((tag, "price" in classes))

    def handle_endtag(self, tag):
        while self._open and self._open.pop()[0] != tag:
            pass

    def handle_data(self, data):
        self.text.append(data)
        tags = [t for t, _ in self._open]
        if tags[-1:] == ["title"]:
            self.title += data
        if "h1" in tags:
            self.h1.append(data.strip())
        if any(price for _, price in self._open):
            self.prices.append(data.strip())


class StoreLinks:
    """The link rules of one store, from its configuration. classify() tells a
    link's kind: "store" (a page or file of the store, fetched and crawled),
    "dynamic" (a page the page generator makes on request, through the CGI
    program PageGenProg names), "cart" (a link into the cart's own programs or
    servers: only its shape is checked, and the store page it leads back to
    is fetched), "anchor" (a place on the same page) or "bad"; with the local
    path to request (fetch) and, for a bad link, what is wrong (problem)."""

    def __init__(self, cfg_path):
        self.cgi_dir = config_value(cfg_path, "CGIBinDirectory").rstrip("/")
        self.pagegen = self.cgi_dir + "/" + config_value(cfg_path, "PageGenProg").rsplit("/", 1)[-1]
        self.cart = (self.cgi_dir + "/" + config_value(cfg_path, "TillboxName") + "." +
                     config_value(cfg_path, "TillboxExtension"))
        self.domains = [config_value(cfg_path, "NonSecureDomain"),
                        config_value(cfg_path, "SecureDomain")]
        self.store_dir = "/" + config_value(cfg_path, "StoreDir").strip("/") + "/"
        self.cfg_name = os.path.basename(cfg_path)
        # The cart program with a store page behind it: PG_TILLBOX# and the
        # switches between the secure and the non-secure server.
        self.cart_page = re.compile(
            "^" + re.escape(self.cart) + "(" + re.escape(self.store_dir) +
            r"[^?#\s]*)\?[ELRU]\+" + re.escape(self.cfg_name.split(".")[0]) +
            r"(\+%%[A-Za-z.]+%%)?$")

    @staticmethod
    def link(kind, fetch=None, problem=None):
        return types.SimpleNamespace(kind=kind, fetch=fetch, problem=problem)

    def classify(self, value, page_path):
        # The cart's own run-time tags (session, affiliate) stay in its links.
        bare = re.sub(r"%%[Tt]illbox\.[\w.]+%%", "", value)
        if "PG_" in bare or "PAGEGEN_" in bare or "%%" in bare:
            return self.link("bad", problem="unexpanded template keyword or tag")
        keyword = next((k for k in ACTION_KEYWORDS if value.startswith(k)), "")
        target = value[len(keyword):]
        if keyword == "NOPARSE#":
            return self._cart_server(target)
        if keyword == "USERPROG#" and target.startswith(self.pagegen + "?"):
            return self.link("dynamic", fetch=target)
        if keyword == "USERPROG#" and re.match(r"^/?[\w./-]*cgi-bin/\w+(\?\S*)?$", target):
            return self.link("cart")  # another cart program, e.g. the search gateway
        if target.startswith(self.cart + "/"):
            return self._cart_page(target)
        if keyword:
            # The cart acts, then shows a page of the store.
            if not target.startswith(self.store_dir):
                return self.link("bad", problem=f"{keyword} in front of a target outside the store")
            return self.link("cart", fetch=target)
        if target.startswith("#"):
            return self.link("anchor")
        parts = urllib.parse.urlsplit(target)
        if parts.scheme or parts.netloc:
            return self.link("bad", problem="link that leaves the store")
        return self.link("store", fetch=urllib.parse.urljoin(page_path, target).split("#")[0])

    def _cart_page(self, target):
        m = self.cart_page.match(target)
        if not m:
            return self.link("bad", problem="cart program link of an unexpected shape")
        return self.link("cart", fetch=m.group(1))

    def _cart_server(self, target):
        for domain in filter(None, self.domains):
            if target.startswith(domain.rstrip("/") + "/"):
                rest = target[len(domain.rstrip("/")):]
                if rest.startswith(self.store_dir) and "?" not in rest:
                    return self.link("cart", fetch=rest)
                return self._cart_page(rest)
        return self.link("bad", problem="NOPARSE# link to a server the store does not name")


def crawl(server, links, seeds, limit=MAX_REQUESTS - 20):
    """Fetches |seeds| and every link reachable from them that leads to the
    store's own pages (store, dynamic, and the store pages behind cart links),
    once each. Returns .status (fetched path -> HTTP status), .problems
    ((page, link or path, what is wrong)) and .kinds (links seen, by kind)."""
    result = types.SimpleNamespace(status={}, problems=[], kinds=collections.Counter())
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
        parsed = Page(body)
        for tag in sorted({m.group(0) for chunk in parsed.text
                           for m in re.finditer(r"%%[^%\s]*%%|<!--\s*PAGEGEN_\w+", chunk)}):
            result.problems.append((path, tag, "template tag left in the page text"))
        # Relative links resolve against the page's base when it names one.
        base = next((urllib.parse.urljoin(path, v) for t, v in parsed.links if t == "base"), path)
        for _, value in parsed.links:
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
