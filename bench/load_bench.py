#!/usr/bin/env python3
"""Dynamic pages under load, through a real lighttpd on 127.0.0.1.

    load_bench.py [--build build-rel] [--sizes 1000,10000,100000]
                  [--modes cgi-text,cgi-sqlite,...] [--conns 1,20,100]
                  [--duration 10] [--work DIR] [--out FILE] [--oneshot]
                  [--replace [--replace-size N] [--replace-duration 60]]

For each store size N it makes the synthetic store of make_store.py (N
products in 50 categories; the SQLite file with storegen-import) and, for
each mode, starts lighttpd in a directory of its own on a free port of
127.0.0.1 and puts it under load with wrk, a closed-loop client: C
connections, each sending its next request as soon as the answer to the last
has come, for the given number of seconds, at each of the given connection
counts. The requests are spread over the store: 80 % product pages of random
SKUs (`-p+-c+CFG+SKU`), 10 % pages of the shop home page's list and 10 % of a
category's list, each from a random start (`-c+CFG[+-C+Cat]+-f+N`), in the
form the store's own links use (--list-share 0: product pages only).

Modes (the responder, then the product database):

    cgi-text, cgi-sqlite, cgi-pg      storegen-cgi, one storegen process per request
    fcgi-text, fcgi-sqlite, fcgi-pg   the FastCGI responder storegen-fcgi

The -pg modes need a PostgreSQL server: the script starts a throwaway one
(bench/pg_server.py) and imports each store into a database of its own.
Modes whose program or library the build lacks are left out with a note.

Before the load, each mode's answers for a few requests (first, middle and
last product, a home and a category list page) are compared with the pages
the one-shot program prints for the same command lines; a difference stops
the bench. Each row gives pages/s (answers with status 2xx per second),
the median and 99th percentile of the latency, answers with another status,
socket errors (connect, read, write, time-outs), the largest sum of the
resident memory (VmRSS) of lighttpd's children and of the responder's
processes seen during the load (sampled every 0.1 s; for CGI, the request
processes alive at that moment), the size of the product database, and the
1-minute load average when the row started.

--replace: 60 s of load at 20 connections on the text store of
--replace-size products (default the largest size) while another process
replaces the product database every second by rename, taking turns between
two versions (the second with every price changed). The requests cycle over
a fixed set of product and list pages whose answers for both versions were
made beforehand with the one-shot program; every answer must be 2xx and equal
to one of its two versions (no torn page), and the responder's resident
memory and open descriptors (/proc/PID/fd) at the end must not have grown
from the start.

--oneshot: whole `storegen -c CFG -p SKU` processes for the first, middle and
last SKU, text and SQLite, 30 runs each, median and minimum in ms.

Build a release tree first: cmake -B build-rel -DCMAKE_BUILD_TYPE=RelWithDebInfo
-DBUILD_TESTING=OFF; cmake --build build-rel -j2 --target storegen storegen-cgi
storegen-fcgi storegen-import storegen_papi_sqlite storegen_papi_pg. The run
is load: note the machine's load average beside every figure; other work on
the machine lowers pages/s and raises p99. Only 127.0.0.1 is ever contacted.
"""
import argparse
import contextlib
import json
import random
import os
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import make_store  # noqa: E402

MODES = ["cgi-text", "cgi-sqlite", "cgi-pg", "fcgi-text", "fcgi-sqlite", "fcgi-pg"]
DB_CONFIGS = {"text": "text.cfg", "sqlite": "sqlite.cfg", "pg": "pg.cfg"}
PAGE_PATH = "/cgi-bin/storegen"  # PageGenProg: where the store's links call
CHILD_PATH = "/usr/local/bin:/usr/bin:/bin"
WRK_TIMEOUT = "10s"  # an answer slower than this counts as a socket error
PAGE_SIZE = 20
CATEGORIES = 50


def log(text):
    print(text, file=sys.stderr, flush=True)


def load_avg():
    return "%.2f %.2f %.2f" % os.getloadavg()


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def write(path, text):
    with open(path, "w") as f:
        f.write(text)


def one_shot_body(output):
    """The page of a one-shot run's standard output: what follows its headers."""
    return output.split(b"\n\n", 1)[1] if b"\n\n" in output else b""


# --- Stores -------------------------------------------------------------------

class Store:
    """The synthetic store of N products in WORK/nN/store, with a store
    configuration per product database that serves pages on request:
    text.cfg, sqlite.cfg and (with a PostgreSQL server) pg.cfg."""

    def __init__(self, args, n):
        self.n = n
        self.build = args.build
        self.base = os.path.join(args.work, "n%d" % n)
        self.dir = os.path.join(self.base, "store")
        self.program = os.path.join(self.base, "bin", "storegen")
        self.categories = make_store.category_names(CATEGORIES)
        stamp = os.path.join(self.base, "made")
        if not os.path.exists(stamp):
            self.make()
            write(stamp, "%d\n" % n)
        self.use_build()
        self.db_bytes = {"text": os.path.getsize(self.products),
                         "sqlite": os.path.getsize(os.path.join(self.dir, "store.sqlite"))}

    @property
    def products(self):
        return os.path.join(self.dir, "products.txt")

    def make(self):
        log("making the store of %d products in %s" % (self.n, self.dir))
        shutil.rmtree(self.base, ignore_errors=True)
        os.makedirs(os.path.join(self.base, "bin"))
        rng = random.Random(20240917)  # make_store.py's seed: the same store
        products = [make_store.product(i, self.categories, rng) for i in range(self.n)]
        make_store.write_storegen_store(self.dir, products, self.categories, PAGE_SIZE)
        subprocess.run([os.path.join(self.build, "bin", "storegen-import"), self.products,
                        os.path.join(self.dir, "store.sqlite")], check=True,
                       stdout=subprocess.DEVNULL)

    def use_build(self):
        """The program (a link of its own: it works in its own directory)
        and the store configurations, for the build under test."""
        if os.path.lexists(self.program):
            os.remove(self.program)
        os.symlink(os.path.join(self.build, "bin", "storegen"), self.program)
        sqlite_db = os.path.join(self.dir, "store.sqlite")
        self.write_config("text.cfg", {})
        self.write_config("sqlite.cfg", {
            "ProductDatabase": sqlite_db, "ProductAPILibConfig": sqlite_db,
            "ProductAPILibrary": os.path.join(self.build, "lib", "libstoregen_papi_sqlite.so")})
        if os.path.exists(os.path.join(self.dir, "pg.cfg")):
            os.remove(os.path.join(self.dir, "pg.cfg"))  # a database of an earlier run

    def attach_postgres(self, server):
        """Imports the store into a database of its own on |server| (a
        pg_server.PgServer) and writes pg.cfg, reading through the
        PostgreSQL library."""
        log("importing the store of %d products into PostgreSQL" % self.n)
        database = "n%d" % self.n
        subprocess.run([os.path.join(server.bin, "createdb"), "-h", server.dir, "-U",
                        "storegen", database], check=True)
        conninfo = "host=%s user=storegen dbname=%s" % (server.dir, database)
        make_store.import_into_postgres(self.dir, self.build, conninfo)
        api_cfg = os.path.join(self.dir, "store.pgconf")
        self.write_config("pg.cfg", {
            "ProductDatabase": api_cfg, "ProductAPILibConfig": api_cfg,
            "ProductAPILibrary": os.path.join(self.build, "lib", "libstoregen_papi_pg.so")})
        psql = [os.path.join(server.bin, "psql"), "-X", "-q", "-At", "-h", server.dir, "-U",
                "storegen", "-d", database, "-c"]
        subprocess.run(psql + ["ANALYZE"], check=True)
        self.db_bytes["pg"] = int(subprocess.run(
            psql + ["SELECT pg_total_relation_size('products') + "
                    "pg_total_relation_size('categories')"],
            check=True, capture_output=True, text=True).stdout.strip())

    def write_config(self, name, keys):
        """shop.cfg with pages made on request, the list templates set (as a
        static run would), and |keys| replacing its own."""
        keys = {"PageGenDynamicProductPages": "yes", "PageGenDynamicListPages": "yes",
                "PageGenShopHomeListTplt": "bench/home.html",
                "PageGenCategoryListTplt": "bench/category.html", **keys}
        with open(os.path.join(self.dir, "shop.cfg")) as f:
            lines = [l for l in f.read().splitlines() if l.split("\t")[0] not in keys]
        write(os.path.join(self.dir, name),
              "\n".join(lines + ["%s\t%s" % kv for kv in keys.items()]) + "\n")

    def has(self, db):
        return os.path.exists(os.path.join(self.dir, DB_CONFIGS[db]))

    def sample_queries(self, cfg):
        """Queries answered before the load and compared with the one-shot
        program: first, middle and last product, home and category lists."""
        last = self.n - 1
        cat = self.categories[-1].replace(" ", "%20")
        return ["-p+-c+%s+%s" % (cfg, make_store.sku(i)) for i in (0, self.n // 2, last)] + [
            "-c+%s+-f+%d" % (cfg, (last // PAGE_SIZE) * PAGE_SIZE),
            "-c+%s+-C+%s+-f+0" % (cfg, cat)]

    def one_shot(self, query):
        """The one-shot program's output for a query of the links' form."""
        words = [urllib.request.unquote(w) for w in query.split("+")]
        words[words.index("-c") + 1] = os.path.join(self.dir, words[words.index("-c") + 1])
        run = subprocess.run([self.program] + words, capture_output=True, timeout=120)
        if run.returncode != 0:
            raise SystemExit("one-shot %s failed (exit %d): %s" % (
                query, run.returncode, run.stderr.decode(errors="replace")))
        return run.stdout


# --- Processes and lighttpd -----------------------------------------------------

def descendants(pid):
    """|pid|'s children, their children, ... (pids), from /proc."""
    children = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                with open("/proc/%s/stat" % entry) as f:
                    ppid = int(f.read().rsplit(")", 1)[1].split()[1])
            except (OSError, IndexError, ValueError):
                continue
            children.setdefault(ppid, []).append(int(entry))
    found, todo = [], [pid]
    while todo:
        for child in children.get(todo.pop(), []):
            found.append(child)
            todo.append(child)
    return found


def rss_kb(pids):
    total = 0
    for pid in pids:
        try:
            with open("/proc/%d/status" % pid) as f:
                total += next(int(l.split()[1]) for l in f if l.startswith("VmRSS:"))
        except (OSError, StopIteration):
            pass  # ended meanwhile, or a zombie
    return total


def tree_cpu_ticks(roots):
    """CPU time (clock ticks) of |roots| and their descendants, with the
    children they have waited for (a finished request process counts in its
    parent's figures)."""
    total = 0
    for pid in set(roots) | {d for r in roots for d in descendants(r)}:
        try:
            with open("/proc/%d/stat" % pid) as f:
                fields = f.read().rsplit(")", 1)[1].split()
            total += sum(int(x) for x in fields[11:15])  # utime stime cutime cstime
        except (OSError, ValueError):
            pass
    return total


def wait_idle(pids, limit=30.0):
    """Waits until |pids| use no CPU for half a second (requests still under
    way finished), for at most |limit| seconds."""
    deadline = time.monotonic() + limit
    last = tree_cpu_ticks(pids)
    while time.monotonic() < deadline:
        time.sleep(0.5)
        now = tree_cpu_ticks(pids)
        if now == last:
            return
        last = now


def busy_ticks():
    """CPU time spent by the whole machine (clock ticks), from /proc/stat."""
    with open("/proc/stat") as f:
        user, nice, system, _idle, _iowait, irq, softirq = (
            int(x) for x in f.readline().split()[1:8])
    return user + nice + system + irq + softirq


# Processes of the bench besides lighttpd's: the PostgreSQL server.
OWN_ROOTS = []


class CpuShare:
    """CPU time between start and stop(): the server's (lighttpd, its
    children, the PostgreSQL server), and the share of the machine's CPUs
    that other work took (all CPU time in /proc/stat less the server's, wrk's
    and this script's), in per cent of all CPUs."""

    def __init__(self, roots):
        self.roots = list(roots) + OWN_ROOTS
        self.start = (time.monotonic(), busy_ticks(), tree_cpu_ticks(self.roots), os.times())

    def stop(self):
        """(server CPU seconds, others' per cent)."""
        wall, busy, server, times = self.start
        now, hz = os.times(), os.sysconf("SC_CLK_TCK")
        server = (tree_cpu_ticks(self.roots) - server) / hz
        # wrk ran as this script's child and has been waited for.
        own = server + sum(now[:4]) - sum(times[:4])
        others = (busy_ticks() - busy) / hz - own
        return server, max(0.0, 100.0 * others / ((time.monotonic() - wall) * os.cpu_count()))


def fd_count(pids):
    total = 0
    for pid in pids:
        try:
            total += len(os.listdir("/proc/%d/fd" % pid))
        except OSError:
            pass
    return total


class Sampler(threading.Thread):
    """Samples the summed RSS of |pids_of()| every |interval| seconds until
    stopped; keeps the largest."""

    def __init__(self, pids_of, interval=0.1):
        super().__init__(daemon=True)
        self.pids_of, self.interval = pids_of, interval
        self.peak_kb = 0
        self.done = threading.Event()

    def run(self):
        while not self.done.is_set():
            self.peak_kb = max(self.peak_kb, rss_kb(self.pids_of()))
            self.done.wait(self.interval)

    def stop(self):
        self.done.set()
        self.join()
        return self.peak_kb


def quote(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


class Lighttpd:
    """lighttpd serving one mode of one store on 127.0.0.1, in |work|."""

    def __init__(self, args, store, mode, work):
        self.work = work
        os.makedirs(work, exist_ok=True)
        self.port = free_port()
        self.error_log = os.path.join(work, "lighttpd-error.log")
        kind, db = mode.split("-")
        self.path = PAGE_PATH
        self.cfg = DB_CONFIGS[db]
        html = os.path.join(work, "html")
        os.makedirs(html, exist_ok=True)
        write(os.path.join(html, "index.html"), "load bench\n")
        env = {"PATH": CHILD_PATH}
        if kind == "cgi":
            front_cfg = os.path.join(work, "storegen-cgi.cfg")
            write(front_cfg, "StoregenProgram\t%s\nStoreConfigDir\t%s\nStores\t%s\n" % (
                store.program, store.dir, self.cfg))
            env["STOREGEN_CGI_CONFIG"] = front_cfg
            handler = ('alias.url = ( %s => %s )\n$HTTP["url"] == %s {\n'
                       '  cgi.assign = ( "" => "" )\n}\n' % (
                           quote(PAGE_PATH), quote(os.path.join(args.build, "bin", "storegen-cgi")),
                           quote(PAGE_PATH)))
            modules = '"mod_alias", "mod_cgi", "mod_setenv"'
        else:
            handler, modules = fcgi_handler(args, store, self.cfg, work)
        env_items = ", ".join("%s => %s" % (quote(k), quote(v)) for k, v in env.items())
        self.conf = os.path.join(work, "lighttpd.conf")
        write(self.conf, """\
server.modules = ( %s )
server.document-root = %s
server.bind = "127.0.0.1"
server.port = %d
server.errorlog = %s
server.max-connections = 1024
server.max-fds = 4096
index-file.names = ( "index.html" )
mimetype.assign = ( ".html" => "text/html; charset=utf-8" )
setenv.add-environment = ( %s )
%s""" % (modules, quote(html), self.port, quote(self.error_log), env_items, handler))
        # The responder's standard error is lighttpd's: its messages (and a
        # sanitizer build's reports) end up there.
        self.stderr_log = os.path.join(work, "lighttpd-stderr.log")
        with open(self.stderr_log, "wb") as stderr:
            self.proc = subprocess.Popen(["lighttpd", "-D", "-f", self.conf],
                                         stdout=stderr, stderr=stderr)
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline and self.proc.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                return
            except OSError:
                time.sleep(0.05)
        self.stop()
        raise SystemExit("lighttpd did not start: see " + self.error_log)

    def responder_pids(self):
        return descendants(self.proc.pid)

    def url(self, query=""):
        return "http://127.0.0.1:%d%s%s" % (self.port, self.path, "?" + query if query else "")

    def fetch(self, query):
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with opener.open(self.url(query), timeout=30) as r:
                return r.status, r.read()
        except urllib.error.HTTPError as e:
            return e.code, e.read()

    def sanitizer_reports(self):
        """Lines of the logs (the error log and lighttpd's standard error,
        which the responder's is) that report a sanitizer finding, when the
        build is a sanitizer build."""
        found = []
        for path in (self.error_log, self.stderr_log):
            with open(path, errors="replace") as f:
                found += [l for l in f if "Sanitizer" in l or "runtime error:" in l]
        return found

    def stop(self):
        """Stops lighttpd, and waits (up to 15 s) for the responder's
        processes to end too: a sanitizer build reports leaks as they end."""
        children = self.responder_pids()
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            try:
                self.proc.wait(timeout=15)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()
        deadline = time.monotonic() + 15
        while time.monotonic() < deadline and any(
                os.path.exists("/proc/%d/fd" % pid) for pid in children):
            time.sleep(0.1)


def fcgi_handler(args, store, cfg, work):
    """lighttpd's configuration lines for the FastCGI responder, as the
    deployment recipe has them: lighttpd starts it (one process; the
    workers are its own) with its socket in |work|."""
    responder_cfg = os.path.join(work, "storegen-fcgi.cfg")
    write(responder_cfg, "StoregenProgram\t%s\nStoreConfigDir\t%s\nStores\t%s\n" % (
        store.program, store.dir, cfg))
    program = os.path.join(args.build, "bin", "storegen-fcgi")
    if args.fcgi_workers:
        program += " -w %d" % args.fcgi_workers
    handler = """fastcgi.server = ( %s => ((
  "bin-path" => %s,
  "socket" => %s,
  "max-procs" => 1,
  "bin-environment" => ( "STOREGEN_FCGI_CONFIG" => %s ),
  "check-local" => "disable"
)) )
""" % (quote(PAGE_PATH), quote(program), quote(os.path.join(work, "fcgi.sock")),
       quote(responder_cfg))
    return handler, '"mod_fastcgi", "mod_setenv"'


# --- wrk ----------------------------------------------------------------------

LUA_MIX = r"""
function init(args)
  math.randomseed(1000 + id * 7919)
end
request = function()
  local r = math.random()
  local q
  if r < P.product_share then
    q = string.format("-p+-c+%s+FF-%06d", P.cfg, math.random(0, P.n - 1))
  elseif r < P.product_share + P.home_share then
    q = string.format("-c+%s+-f+%d", P.cfg, P.page * math.random(0, math.floor((P.n - 1) / P.page)))
  else
    local cat = math.random(1, #P.cats)
    local per_cat = math.floor((P.n - cat) / #P.cats) + 1
    q = string.format("-c+%s+-C+%s+-f+%d", P.cfg, P.cats[cat],
                      P.page * math.random(0, math.floor((per_cat - 1) / P.page)))
  end
  return wrk.format("GET", P.path .. "?" .. q)
end
"""

LUA_REPLACE = r"""
function init(args)
  queries, expected = {}, {}
  for line in io.lines(P.manifest) do
    local q, a, b = line:match("^(%S+)\t(%S+)\t(%S+)$")
    table.insert(queries, q)
    for version, path in pairs({a = a, b = b}) do
      local f = assert(io.open(path, "rb"))
      local body = f:read("*a")
      f:close()
      local seen = expected[body]
      expected[body] = (seen and seen ~= version) and "ab" or version
    end
  end
  next_query = (id * 7) % #queries
  ok_a, ok_b, ok_ab, torn, not_ok = 0, 0, 0, 0, 0
end
request = function()
  next_query = next_query % #queries + 1
  return wrk.format("GET", P.path .. "?" .. queries[next_query])
end
response = function(status, headers, body)
  if status < 200 or status > 299 then
    not_ok = not_ok + 1
    return
  end
  local v = expected[body]
  if v == "a" then ok_a = ok_a + 1
  elseif v == "b" then ok_b = ok_b + 1
  elseif v == "ab" then ok_ab = ok_ab + 1
  else
    torn = torn + 1
    if torn <= 3 then
      local f = io.open(string.format("%s/torn-%d-%d.html", P.dir, id, torn), "wb")
      if f then f:write(body) f:close() end
    end
  end
end
"""

# Every script's threads are numbered (|id|) and kept for done()'s totals.
LUA_SETUP = r"""
local threads = {}
local counter = 0
function setup(thread)
  counter = counter + 1
  thread:set("id", counter)
  table.insert(threads, thread)
end
"""

LUA_DONE = r"""
function done(summary, latency, requests)
  local extra = {}
  for _, name in ipairs(P.counters or {}) do
    local total = 0
    for _, t in ipairs(threads) do total = total + (t:get(name) or 0) end
    table.insert(extra, string.format('"%s":%d', name, total))
  end
  local e = summary.errors
  io.write(string.format('RESULT {"requests":%d,"duration_us":%d,"connect":%d,"read":%d,' ..
    '"write":%d,"status":%d,"timeout":%d,"p50":%d,"p99":%d,"max":%d%s}\n',
    summary.requests, summary.duration, e.connect, e.read, e.write, e.status, e.timeout,
    latency:percentile(50), latency:percentile(99), latency.max,
    #extra > 0 and ("," .. table.concat(extra, ",")) or ""))
end
"""


def lua_table(value):
    if isinstance(value, dict):
        return "{" + ", ".join("%s = %s" % (k, lua_table(v)) for k, v in value.items()) + "}"
    if isinstance(value, (list, tuple)):
        return "{" + ", ".join(lua_table(v) for v in value) + "}"
    if isinstance(value, str):
        return json.dumps(value)  # a JSON string of ASCII text is a Lua string
    return repr(value)


def run_wrk(work, script, params, url, conns, seconds):
    """Runs wrk with |script| (given the table P = |params|) at |conns|
    connections for |seconds|; returns its RESULT record."""
    path = os.path.join(work, "load.lua")
    write(path, "P = %s\n%s%s%s" % (lua_table(params), LUA_SETUP, script, LUA_DONE))
    argv = ["wrk", "-t%d" % min(2, conns), "-c%d" % conns, "-d%ds" % seconds,
            "--timeout", WRK_TIMEOUT, "--latency", "-s", path, url]
    run = subprocess.run(argv, capture_output=True, text=True, timeout=seconds + 60)
    for line in run.stdout.splitlines():
        if line.startswith("RESULT "):
            result = json.loads(line[len("RESULT "):])
            result["socket"] = sum(result[k] for k in ("connect", "read", "write", "timeout"))
            seconds = result["duration_us"] / 1e6
            result["pages_s"] = (result["requests"] - result["status"]) / seconds
            return result
    raise SystemExit("wrk gave no result (exit %d):\n%s\n%s" % (
        run.returncode, run.stdout, run.stderr))


# --- The table ------------------------------------------------------------------

def check_answers(server, store):
    """Each sample query answered through the web server as the one-shot
    program prints it."""
    for query in store.sample_queries(server.cfg):
        status, body = server.fetch(query)
        want = one_shot_body(store.one_shot(query))
        if status != 200 or body != want:
            raise SystemExit("%s?%s: status %d, %d bytes, not the one-shot page (%d bytes); "
                             "see %s" % (server.path, query, status, len(body), len(want),
                                         server.error_log))


def mode_missing(args, store, mode):
    """Why |mode| cannot run with this build and store, or None."""
    kind, db = mode.split("-")
    program = "storegen-cgi" if kind == "cgi" else "storegen-fcgi"
    if not os.path.exists(os.path.join(args.build, "bin", program)):
        return "no %s in the build" % program
    if not store.has(db):
        return "no %s store (%s)" % (db, "no PostgreSQL server" if db == "pg" else "build")
    return None


def bench_mode(args, store, mode):
    work = os.path.join(store.base, "run-" + mode)
    shutil.rmtree(work, ignore_errors=True)
    server = Lighttpd(args, store, mode, work)
    rows = []
    try:
        check_answers(server, store)
        params = {"n": store.n, "cfg": server.cfg, "path": server.path, "page": PAGE_SIZE,
                  "cats": [c.replace(" ", "%20") for c in store.categories],
                  "product_share": 1.0 - args.list_share, "home_share": args.list_share / 2}
        for conns in args.conns:
            load = os.getloadavg()[0]
            sampler = Sampler(server.responder_pids)
            sampler.start()
            cpu = CpuShare([server.proc.pid])
            result = run_wrk(work, LUA_MIX, params, server.url(), conns, args.duration)
            server_cpu, others = cpu.stop()
            result.update(n=store.n, mode=mode, conns=conns, load=load, others=others,
                          cpu_ms=1000.0 * server_cpu / max(1, result["requests"]),
                          rss_mb=sampler.stop() / 1024.0,
                          db_mb=store.db_bytes[mode.split("-")[1]] / 1e6)
            rows.append(result)
            log("  %s" % format_row(result))
    finally:
        server.stop()
    reports = server.sanitizer_reports()
    if reports:
        raise SystemExit("%s: sanitizer reports in %s:\n%s" % (mode, server.stderr_log,
                                                               "".join(reports[:10])))
    return rows


TABLE_HEAD = ("| products | mode | conns | pages/s | p50 ms | p99 ms | non-2xx | socket errors "
              "| responder RSS MB | DB MB | server CPU ms/page | load | others' CPU % |\n"
              "|---:|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")


def format_row(r):
    return ("| {:,} | {} | {} | {:,.0f} | {:.2f} | {:.2f} | {} | {} | {:.1f} | {:.1f} | {:.2f} "
            "| {:.2f} | {:.0f} |").format(
        r["n"], r["mode"], r["conns"], r["pages_s"], r["p50"] / 1000.0, r["p99"] / 1000.0,
        r["status"], r["socket"], r["rss_mb"], r["db_mb"], r["cpu_ms"], r["load"], r["others"])


def targets(rows):
    """The targets at 100,000 products and 20 connections, met or not."""
    lines = []
    for r in rows:
        if r["n"] != 100000 or r["conns"] != 20 or not r["mode"].startswith("fcgi"):
            continue
        pages, p99 = (2000, 10) if r["mode"] == "fcgi-pg" else (5000, 5)
        checks = ["%.0f pages/s %s %d" % (r["pages_s"], ">=" if r["pages_s"] >= pages else "<",
                                          pages),
                  "p99 %.2f ms %s %d" % (r["p99"] / 1000.0, "<=" if r["p99"] <= p99 * 1000 else ">",
                                         p99)]
        if r["mode"] != "fcgi-pg":
            limit = 2 * r["db_mb"] + 50
            checks.append("RSS %.0f MB %s %.0f" % (r["rss_mb"], "<=" if r["rss_mb"] <= limit
                                                   else ">", limit))
        met = all(" < " not in c and " > " not in c for c in checks)
        lines.append("- %s: %s: %s" % (r["mode"], ", ".join(checks), "met" if met else "MISSED"))
    return lines


# --- Replacing the product database under load -----------------------------------

def alternate_products(store, path):
    """The product database with every price one unit higher, written to |path|."""
    price = make_store.COLUMNS.index("PRICE")
    with open(store.products) as src, open(path, "w") as out:
        out.write(next(src))
        for line in src:
            fields = line.rstrip("\n").split("\t")
            whole, _, cents = fields[price].partition(".")
            fields[price] = "%d.%s" % (int(whole) + 1, cents)
            out.write("\t".join(fields) + "\n")


class Replacer(threading.Thread):
    """Every |period| seconds, copies the next of |versions| beside the live
    product database and renames it over it."""

    def __init__(self, live, versions, period=1.0):
        super().__init__(daemon=True)
        self.live, self.versions, self.period = live, versions, period
        self.count = 0
        self.done = threading.Event()

    def run(self):
        tmp = self.live + ".new"
        while not self.done.wait(self.period):
            self.count += 1
            shutil.copyfile(self.versions[self.count % 2], tmp)
            os.rename(tmp, self.live)

    def stop(self):
        self.done.set()
        self.join()


def replace_bench(args, store, mode):
    work = os.path.join(store.base, "replace-" + mode)
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    versions = [os.path.join(work, "products-a.txt"), os.path.join(work, "products-b.txt")]
    shutil.copyfile(store.products, versions[0])
    alternate_products(store, versions[1])
    cfg = DB_CONFIGS["text"]
    step = max(1, store.n // 40)
    queries = ["-p+-c+%s+%s" % (cfg, make_store.sku(i)) for i in
               list(range(0, store.n, step)) + [store.n - 1]]
    queries += ["-c+%s+-f+%d" % (cfg, PAGE_SIZE * (i * (store.n // PAGE_SIZE) // 5))
                for i in range(5)]
    queries += ["-c+%s+-C+%s+-f+0" % (cfg, c.replace(" ", "%20")) for c in store.categories[:5]]
    # The expected pages: each query's answer from each version, one-shot.
    manifest = []
    expect = os.path.join(work, "expect")
    os.makedirs(expect)
    try:
        pages = {}
        for v, version in enumerate(versions):
            shutil.copyfile(version, store.products + ".new")
            os.rename(store.products + ".new", store.products)
            for i, query in enumerate(queries):
                pages[(i, v)] = path = os.path.join(expect, "%d-%s.html" % (i, "ab"[v]))
                with open(path, "wb") as f:
                    f.write(one_shot_body(store.one_shot(query)))
        for i, query in enumerate(queries):
            manifest.append("%s\t%s\t%s\n" % (query, pages[(i, 0)], pages[(i, 1)]))
        write(os.path.join(work, "manifest"), "".join(manifest))
        server = Lighttpd(args, store, mode, os.path.join(work, "server"))
        try:
            # Warm up under the same load (every worker loads the store),
            # then take the starting figures.
            params = {"path": server.path, "manifest": os.path.join(work, "manifest"),
                      "dir": work, "counters": ["ok_a", "ok_b", "ok_ab", "torn", "not_ok"]}
            run_wrk(work, LUA_REPLACE, params, server.url(), args.replace_conns, 3)
            pids = server.responder_pids() if mode.startswith("fcgi") else []
            wait_idle(pids)
            start = (rss_kb(pids), fd_count(pids))
            series, stop_series = [], threading.Event()

            def sample_series():
                while not stop_series.wait(5.0):
                    series.append((rss_kb(pids), fd_count(pids)))
            series_thread = threading.Thread(target=sample_series, daemon=True)
            replacer = Replacer(store.products, versions)
            replacer.start()
            series_thread.start()
            load = os.getloadavg()[0]
            cpu = CpuShare([server.proc.pid])
            result = run_wrk(work, LUA_REPLACE, params, server.url(), args.replace_conns,
                             args.replace_duration)
            result["others"] = cpu.stop()[1]
            replacer.stop()
            stop_series.set()
            series_thread.join()
            wait_idle(pids)
            end = (rss_kb(pids), fd_count(pids))
            alive = all(os.path.exists("/proc/%d" % p) for p in pids)
        finally:
            server.stop()
        reports = server.sanitizer_reports()
    finally:
        shutil.copyfile(versions[0], store.products + ".new")
        os.rename(store.products + ".new", store.products)
    result.update(n=store.n, mode=mode, load=load, replacements=replacer.count, start=start,
                  end=end, series=series, pids=len(pids), alive=alive, sanitizer=len(reports),
                  error_log=server.stderr_log)
    return result


def format_replace(r):
    lines = [
        "Replacing the text product database every second under load: %s, %s products, "
        "%d connections, %d s, load %.2f at the start, %.0f %% of the CPUs used by other work" % (
            r["mode"], "{:,}".format(r["n"]), r["conns"], r["duration"], r["load"],
            r["others"]),
        "",
        "- answers: %d (%.0f pages/s, p50 %.2f ms, p99 %.2f ms); the database replaced %d times"
        % (r["requests"], r["pages_s"], r["p50"] / 1000.0, r["p99"] / 1000.0, r["replacements"]),
        "- old version %d, new version %d, the same in both %d; torn or unknown pages %d; "
        "non-2xx %d (wrk: %d); socket errors %d" % (
            r["ok_a"], r["ok_b"], r["ok_ab"], r["torn"], r["not_ok"], r["status"], r["socket"]),
    ]
    if r["pids"]:
        lines.append("- responder (%d processes%s): RSS %.1f MB -> %.1f MB, open descriptors "
                     "%d -> %d; every 5 s: %s" % (
                         r["pids"], "" if r["alive"] else ", NOT ALL ALIVE AT THE END",
                         r["start"][0] / 1024.0, r["end"][0] / 1024.0, r["start"][1],
                         r["end"][1], ", ".join("%.1f MB/%d fds" % (kb / 1024.0, fds)
                                                for kb, fds in r["series"])))
    if r["sanitizer"]:
        lines.append("- %d sanitizer report lines in %s" % (r["sanitizer"], r["error_log"]))
    # Memory is judged from 10 s into the load, when both versions have been
    # loaded a few times, to the end: a leak grows on; descriptors from the
    # start (after the warm-up) to the end, both at rest.
    (rss0, fds0), (rss1, fds1) = r["series"][1] if len(r["series"]) > 1 else r["start"], r["end"]
    fds0 = r["start"][1]
    grew = r["pids"] and (not r["alive"] or fds1 > fds0 or rss1 > rss0 + max(rss0 / 10, 4096))
    bad = (r["torn"] or r["not_ok"] or r["socket"] or r["ok_a"] == 0 or r["ok_b"] == 0 or grew
           or r["sanitizer"])
    lines.append("- verdict: %s" % ("FAILED" if bad else "no error status, no torn page, "
                                     "both versions seen" + (
                                         "" if not r["pids"] else ", no growth in descriptors, "
                                         "nor in memory from 10 s on beyond 10 % or 4 MB")))
    return "\n".join(lines), bool(bad)


# --- One-shot -p ------------------------------------------------------------------

def oneshot_bench(store, runs=30):
    rows = []
    devnull = os.open(os.devnull, os.O_WRONLY)
    try:
        for db in [db for db in DB_CONFIGS if store.has(db)]:
            cfg = os.path.join(store.dir, DB_CONFIGS[db])
            cells = []
            for i in (0, store.n // 2, store.n - 1):
                argv = [store.program, "-c", cfg, "-p", make_store.sku(i)]
                times = []
                for _ in range(runs):
                    start = time.perf_counter()
                    pid = os.posix_spawn(argv[0], argv, {"PATH": CHILD_PATH}, file_actions=[
                        (os.POSIX_SPAWN_DUP2, devnull, 1)])
                    os.waitpid(pid, 0)
                    times.append((time.perf_counter() - start) * 1000.0)
                cells.append("%.1f (%.1f)" % (statistics.median(times), min(times)))
            rows.append("| {:,} | {} | {} |".format(store.n, db, " | ".join(cells)))
    finally:
        os.close(devnull)
    return rows


# --- Main -------------------------------------------------------------------------

def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0],
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog=__doc__.split("\n\n", 2)[2])
    parser.add_argument("--build", default="build-rel", help="release build tree (build-rel)")
    parser.add_argument("--sizes", default="1000,10000,100000")
    parser.add_argument("--modes", default=",".join(MODES))
    parser.add_argument("--conns", default="1,20,100")
    parser.add_argument("--duration", type=int, default=10, help="seconds per row (10)")
    parser.add_argument("--list-share", type=float, default=0.2,
                        help="share of list pages among the requests, half of them the home "
                        "page's list (0.2; 0 for product pages only)")
    parser.add_argument("--fcgi-workers", type=int,
                        help="the FastCGI responder's workers (-w; its default: one per CPU)")
    parser.add_argument("--work", default="/dev/shm/storegen-load" if os.path.isdir("/dev/shm")
                        else "/tmp/storegen-load", help="stores and servers (kept for reuse)")
    parser.add_argument("--out", help="also write the report (Markdown) to this file")
    parser.add_argument("--no-table", action="store_true", help="skip the load table")
    parser.add_argument("--oneshot", action="store_true", help="time one-shot -p processes")
    parser.add_argument("--replace", action="store_true",
                        help="the product database replaced every second under load")
    parser.add_argument("--replace-size", type=int, help="products (default: largest size)")
    parser.add_argument("--replace-modes", default="fcgi-text",
                        help="modes for --replace (fcgi-text; cgi-text works too)")
    parser.add_argument("--replace-conns", type=int, default=20)
    parser.add_argument("--replace-duration", type=int, default=60)
    args = parser.parse_args()
    args.build = os.path.abspath(args.build)
    args.work = os.path.abspath(args.work)
    sizes = [int(s) for s in args.sizes.split(",")]
    modes = args.modes.split(",")
    args.conns = [int(c) for c in args.conns.split(",")]
    for mode in modes + args.replace_modes.split(","):
        if mode not in MODES:
            parser.error("unknown mode %s (modes: %s)" % (mode, ", ".join(MODES)))
    for tool in ("wrk", "lighttpd"):
        if not shutil.which(tool):
            parser.error("%s is not installed (apt-get install %s)" % (tool, tool))
    os.makedirs(args.work, exist_ok=True)

    report = ["Load bench, %s, %d CPUs, load average %s at the start" % (
        time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime()), os.cpu_count(), load_avg()), ""]
    stores = {n: Store(args, n) for n in sorted(set(sizes + ([args.replace_size]
                                                             if args.replace_size else [])))}
    failed = False
    with contextlib.ExitStack() as stack:
        if any(m.endswith("-pg") for m in modes) or args.oneshot:
            start_postgres(args, stack, stores.values(), report)
        failed = run_benches(args, sizes, modes, stores, report)
    text = "\n".join(report)
    print(text)
    if args.out:
        write(args.out, text + "\n")
    return 1 if failed else 0


def start_postgres(args, stack, stores, report):
    """A throwaway PostgreSQL server in the work directory, stopped at the
    end, with each store imported; without one the -pg modes are left out."""
    try:
        import pg_server
        server = stack.enter_context(pg_server.PgServer(args.work))
        OWN_ROOTS.append(server.process.pid)
    except (ImportError, RuntimeError, OSError, subprocess.CalledProcessError) as e:
        report += ["No PostgreSQL server: %s" % e, ""]
        return
    for store in stores:
        store.attach_postgres(server)


def run_benches(args, sizes, modes, stores, report):
    """The parts asked for, their results added to |report|; True when the
    replacement check failed."""
    failed = False
    if not args.no_table:
        rows, notes = [], []
        for n in sizes:
            for mode in modes:
                missing = mode_missing(args, stores[n], mode)
                if missing:
                    notes.append("- %s at %s products left out: %s" % (mode, n, missing))
                    continue
                log("%s, %d products" % (mode, n))
                try:
                    rows += bench_mode(args, stores[n], mode)
                except SystemExit as e:  # a failed check: the other modes go on
                    log(str(e))
                    notes.append("- %s at %s products FAILED: %s" % (mode, n, str(e)[:300]))
                    failed = True
        report += [TABLE_HEAD] + [format_row(r) for r in rows] + [""] + notes
        report += ["", "Load average at the end: %s" % load_avg()] + targets(rows) + [""]
    if args.oneshot:
        report += ["One-shot `storegen -c CFG -p SKU`, whole process, ms, median (minimum) "
                   "of 30; load %s" % load_avg(), "",
                   "| products | database | first | middle | last |", "|---:|---|---:|---:|---:|"]
        for n in sizes:
            report += oneshot_bench(stores[n])
        report.append("")
    if args.replace:
        n = args.replace_size or max(sizes)
        for mode in args.replace_modes.split(","):
            missing = mode_missing(args, stores[n], mode)
            if missing:
                report += ["--replace with %s left out: %s" % (mode, missing), ""]
                continue
            log("replacing the database under load: %s, %d products" % (mode, n))
            result = replace_bench(args, stores[n], mode)
            result.update(conns=args.replace_conns, duration=args.replace_duration)
            text, bad = format_replace(result)
            failed |= bad
            report += [text, ""]
    return failed


if __name__ == "__main__":
    sys.exit(main())
