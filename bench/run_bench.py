#!/usr/bin/env python3
"""storegen against Hugo and the floor, side by side, on one machine.

    run_bench.py [--build BUILD] [--sizes 1000,10000,100000] [--reps 5]
                 [--reference-build REF_BUILD] [--work DIR] [--no-hugo]
                 [--no-static] [--no-dynamic] [--dynamic-runs 30]

For each store size N (C categories, P products per list page) it makes the
synthetic store and the same site for Hugo (make_store.py), then:

Static runs. Takes turns, --reps times, between a full static run of storegen
(`storegen -o OUT -c shop.cfg -s 0`), a Hugo build of the same site, and the
floors (bench/floor.c: the same files with the same bytes, one
open/write/close each, timed inside the program): written by one process,
by two processes (every other file each), and by one process with each file
written under a temporary name and renamed into place, as storegen writes
its pages. Each run starts from an empty output directory; storegen's and
Hugo's wall time is taken around the whole process, their peak RSS comes
from /usr/bin/time -v. Prints the medians, pages/s and the ratios.

Output check. The first time a size is run with --reference-build (a build
of the unoptimised program; again with --fresh-reference), that build's
output is kept in DIR/nN/ref: the
generated tree, the store configuration as the run left it, standard output
and the exit status, and the dynamic pages. Every static run and every
dynamic request of the build under test is compared with it byte for byte;
any difference stops the bench with exit status 1.

Dynamic requests. Times whole `storegen -c CFG -p SKU` processes for the
first, the middle and the last product, with the built-in reader of the text
files and through the SQLite product library (when the build has it), the
two taking turns, and prints the minimum, median and 90th percentile.

Build both programs as release builds (cmake -B build-rel
-DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF; targets storegen,
storegen-import, storegen_papi_sqlite). Note the machine's load (uptime) when
you measure: the script prints it before and after.
"""
import argparse
import filecmp
import hashlib
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import make_store  # noqa: E402

TIME = "/usr/bin/time"


class Mismatch(Exception):
    pass


def load():
    return open("/proc/loadavg").read().split()[:3]


def timed(argv, cwd=None):
    """Runs |argv| under /usr/bin/time -v. Returns (seconds, peak RSS in KB,
    exit status, stdout bytes). The wall time is taken here, around the
    process, to the microsecond (/usr/bin/time reports hundredths of a
    second, too coarse for runs of a few hundredths); it includes starting
    /usr/bin/time itself, well under a millisecond."""
    start = time.perf_counter()
    proc = subprocess.run([TIME, "-v"] + argv, cwd=cwd, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE)
    seconds = time.perf_counter() - start
    err = proc.stderr.decode(errors="replace")
    rss = re.search(r"Maximum resident set size \(kbytes\): (\d+)", err)
    if not rss:
        sys.exit("cannot read /usr/bin/time's report for %s:\n%s" % (argv[0], err))
    return seconds, int(rss.group(1)), proc.returncode, proc.stdout


def clean(path):
    if os.path.lexists(path):
        shutil.rmtree(path)


def tree_files(root):
    out = {}
    for base, _, names in os.walk(root):
        for name in names:
            full = os.path.join(base, name)
            out[os.path.relpath(full, root)] = full
    return out


# The list of generated files names them by their full paths: runs that
# write to different directories are compared with the directory left out.
FILE_LIST = "Xzq3Jpo9"


def without_dir(data, directory):
    return data.replace(os.fsencode(directory), b"<OUT>")


def compare_trees(ref, ref_dir, got, got_dir):
    """Raises Mismatch unless the two trees hold the same files, byte for byte
    (the file list with each run's output directory left out)."""
    a, b = tree_files(ref), tree_files(got)
    if a.keys() != b.keys():
        missing = sorted(a.keys() - b.keys())[:5]
        extra = sorted(b.keys() - a.keys())[:5]
        raise Mismatch("file sets differ: missing %s, extra %s" % (missing, extra))
    for rel in sorted(a):
        if os.path.basename(rel) == FILE_LIST:
            same = (without_dir(open(a[rel], "rb").read(), ref_dir) ==
                    without_dir(open(b[rel], "rb").read(), got_dir))
        else:
            same = filecmp.cmp(a[rel], b[rel], shallow=False)
        if not same:
            raise Mismatch("%s differs from the reference" % rel)


def page_count(root):
    return sum(1 for rel in tree_files(root) if rel.endswith(".html"))


def tree_bytes(root):
    return sum(os.path.getsize(p) for p in tree_files(root).values())


class Store:
    """One synthetic store of |n| products in WORK/nN, with its programs."""

    def __init__(self, args, n):
        self.n = n
        self.dir = os.path.join(args.work, "n%d" % n)
        self.store = os.path.join(self.dir, "store")
        self.hugo = os.path.join(self.dir, "hugo")
        self.ref = os.path.join(self.dir, "ref")
        # Every run writes to a directory of its own; they are all removed
        # at the end (finish()), so that no run pays for removing an older
        # tree, or for the file system's bookkeeping right after a removal.
        self.runs = os.path.join(args.out_root or self.dir, "runs-n%d" % n)
        clean(self.runs)
        os.makedirs(self.runs)
        self.run_count = 0
        with open(os.path.join(HERE, "make_store.py"), "rb") as generator:
            generator_hash = hashlib.sha256(generator.read()).hexdigest()
        params = {"n": n, "categories": args.categories, "page_size": args.page_size,
                  "generator": generator_hash}
        stamp = os.path.join(self.dir, "params.json")
        # The Hugo site (a file per product) is made only when Hugo runs.
        if (not os.path.exists(stamp) or json.load(open(stamp)) != params or
                (not args.no_hugo and not os.path.isdir(self.hugo))):
            print("# making the store of %d products in %s" % (n, self.dir), flush=True)
            make_store.make_store(n, self.dir, args.categories, args.page_size,
                                  args.build if args.sqlite else None, hugo=not args.no_hugo)
            clean(self.ref)
            for name in ("shop.cfg", "sqlite.cfg"):
                if os.path.exists(os.path.join(self.store, name)):
                    shutil.copy(os.path.join(self.store, name),
                                os.path.join(self.dir, name + ".orig"))
            json.dump(params, open(stamp, "w"))
        self.restore_config()
        self.program = self.install(args.build, "cgi-bin")
        self.ref_program = self.install(args.reference_build, "cgi-ref")

    def install(self, build, name):
        """Links the build's storegen into its own directory of the store (the
        program works in its own directory)."""
        if build is None:
            return None
        directory = os.path.join(self.store, name)
        os.makedirs(directory, exist_ok=True)
        link = os.path.join(directory, "storegen")
        if os.path.lexists(link):
            os.remove(link)
        os.symlink(os.path.join(os.path.abspath(build), "bin", "storegen"), link)
        return link

    def new_out(self, tool):
        self.run_count += 1
        return os.path.join(self.runs, "%s-%d" % (tool, self.run_count))

    def finish(self):
        clean(self.runs)

    def restore_config(self):
        """Every static run starts from the same store configuration (the run
        writes the cart pages' entries into it, at its end)."""
        for name in ("shop.cfg", "sqlite.cfg"):
            orig = os.path.join(self.dir, name + ".orig")
            if os.path.exists(orig):
                shutil.copy(orig, os.path.join(self.store, name))

    def settle_config(self):
        """Waits until the store configuration was last changed more than
        3 s ago, as it is when a store is regenerated in earnest: lookups
        read a file changed in the last seconds again every time, since its
        time stamps may not show a further change."""
        changed = os.stat(os.path.join(self.store, "shop.cfg")).st_ctime
        wait = changed + 3.2 - time.time()
        if wait > 0:
            time.sleep(wait)

    def static_run(self, program, out):
        os.makedirs(out)
        self.settle_config()
        result = timed([program, "-o", out, "-c", os.path.join(self.store, "shop.cfg"), "-s",
                        "0"])
        cfg = open(os.path.join(self.store, "shop.cfg"), "rb").read()
        # Restored now, so that it settles while the other programs run.
        self.restore_config()
        return result, cfg

    def dynamic_skus(self):
        return [make_store.sku(0), make_store.sku(self.n // 2), make_store.sku(self.n - 1)]

    def readers(self):
        return [r for r in ("shop", "sqlite") if os.path.exists(os.path.join(self.store,
                                                                              r + ".cfg"))]

    def dynamic_argv(self, program, reader, sku):
        return [program, "-c", os.path.join(self.store, reader + ".cfg"), "-p", sku]

    def dynamic_page(self, program, reader, sku):
        """One dynamic product request, its page captured."""
        return subprocess.run(self.dynamic_argv(program, reader, sku), stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL)

    def ref_page(self, reader, sku):
        """Where the reference's answer to a dynamic request is kept: the page,
        then its exit status."""
        return os.path.join(self.ref, "p-%s-%s" % (reader, sku))

    def make_reference(self):
        """Runs the reference build once and keeps what it wrote."""
        print("# reference run of %s" % self.ref_program, flush=True)
        out = os.path.join(self.runs, "ref")
        (_, _, code, stdout), cfg = self.static_run(self.ref_program, out)
        clean(self.ref)
        os.makedirs(self.ref)
        shutil.copytree(out, os.path.join(self.ref, "tree"))
        open(os.path.join(self.ref, "out_dir"), "w").write(out)
        open(os.path.join(self.ref, "shop.cfg"), "wb").write(cfg)
        open(os.path.join(self.ref, "stdout"), "wb").write(without_dir(stdout, out))
        open(os.path.join(self.ref, "status"), "w").write(str(code))
        for reader in self.readers():
            for sku in self.dynamic_skus():
                proc = self.dynamic_page(self.ref_program, reader, sku)
                open(self.ref_page(reader, sku), "wb").write(
                    proc.stdout + b"\nstatus=%d\n" % proc.returncode)

    def has_reference(self):
        return os.path.exists(os.path.join(self.ref, "status"))

    def check_static(self, out, code, stdout, cfg):
        ref_code = int(open(os.path.join(self.ref, "status")).read())
        if code != ref_code:
            raise Mismatch("exit status %d, the reference's %d" % (code, ref_code))
        if without_dir(stdout, out) != open(os.path.join(self.ref, "stdout"), "rb").read():
            raise Mismatch("standard output differs from the reference")
        if cfg != open(os.path.join(self.ref, "shop.cfg"), "rb").read():
            raise Mismatch("the store configuration differs from the reference's")
        compare_trees(os.path.join(self.ref, "tree"), open(os.path.join(self.ref, "out_dir")).read(),
                      out, out)

    def check_dynamic(self, reader, sku, stdout, code):
        path = self.ref_page(reader, sku)
        if not os.path.exists(path):
            return
        if stdout + b"\nstatus=%d\n" % code != open(path, "rb").read():
            raise Mismatch("-p %s (%s.cfg) differs from the reference" % (sku, reader))


def on_tmpfs(path):
    """Whether |path| is on a memory file system (the mount with the longest
    matching mount point decides)."""
    best, kind = "", ""
    for line in open("/proc/mounts"):
        fields = line.split()
        point = fields[1]
        inside = path == point or path.startswith(point.rstrip("/") + "/")
        if inside and len(point) > len(best):
            best, kind = point, fields[2]
    return kind == "tmpfs"


def median(values):
    return statistics.median(values) if values else float("nan")


def static_bench(args, store, floor):
    runs = {"storegen": [], "hugo": [], "floor": [], "floor_rename": [], "floor2": []}
    rss = {"storegen": [], "hugo": []}
    for rep in range(args.reps):
        out = store.new_out("storegen")
        (wall, kb, code, stdout), cfg = store.static_run(store.program, out)
        if store.has_reference():
            store.check_static(out, code, stdout, cfg)
        elif code != 0:
            raise Mismatch("storegen ended with %d" % code)
        runs["storegen"].append(wall)
        rss["storegen"].append(kb)
        if rep == 0:
            pages, size = page_count(out), tree_bytes(out)
            # The floor writes the reference's files (or this run's).
            floor_src = os.path.join(store.ref, "tree") if store.has_reference() else out
        tmpfs = args.out_root and on_tmpfs(args.out_root)
        if tmpfs and out != floor_src:
            # Checked: the floors have the memory it took.
            clean(out)
        if not args.no_hugo:
            hugo_out = store.new_out("hugo")
            wall, kb, code, _ = timed(["hugo", "--quiet", "-s", store.hugo, "-d", hugo_out])
            if code != 0:
                sys.exit("hugo failed (exit %d)" % code)
            runs["hugo"].append(wall)
            rss["hugo"].append(kb)
            if rep == 0:
                hugo_pages, hugo_size = page_count(hugo_out), tree_bytes(hugo_out)
            if tmpfs:
                clean(hugo_out)
        # The floor; the floor of files each written under a temporary name
        # and renamed into place, as storegen writes its pages; and the floor
        # written by two processes, as storegen writes its product pages.
        for key, argv in (("floor", [floor]), ("floor_rename", [floor]),
                          ("floor2", [floor, "-j", "2"])):
            floor_out = store.new_out(key)
            extra = ["rename"] if key == "floor_rename" else []
            proc = subprocess.run(argv + [floor_src, floor_out] + extra,
                                  stdout=subprocess.PIPE, check=True)
            runs[key].append(float(re.search(rb"seconds=(\S+)", proc.stdout).group(1)))
            if tmpfs:
                # On a memory file system a removal costs the next run
                # nothing; removing the trees at once keeps the memory they
                # take small (a tree of a million pages takes gigabytes).
                clean(floor_out)
        print("#   rep %d: storegen %.3f s, hugo %s, floor %.3f s, with rename %.3f s, "
              "two processes %.3f s (load %s)" % (
                  rep + 1, runs["storegen"][-1],
                  "%.3f s" % runs["hugo"][-1] if runs["hugo"] else "-", runs["floor"][-1],
                  runs["floor_rename"][-1], runs["floor2"][-1], " ".join(load())), flush=True)
    t = {k: median(v) for k, v in runs.items()}
    db = os.path.getsize(os.path.join(store.store, "products.txt"))
    row = {
        "n": store.n, "pages": pages, "mb": size / 1e6, "db_mb": db / 1e6,
        "storegen_s": t["storegen"], "storegen_pps": pages / t["storegen"],
        "storegen_rss_mb": max(rss["storegen"]) / 1024, "floor_s": t["floor"],
        "floor_pps": pages / t["floor"], "ratio_floor": t["storegen"] / t["floor"],
        "floor_rename_s": t["floor_rename"],
        "ratio_floor_rename": t["storegen"] / t["floor_rename"],
        "floor2_s": t["floor2"], "ratio_floor2": t["storegen"] / t["floor2"],
        "storegen_range": (min(runs["storegen"]), max(runs["storegen"])),
    }
    if runs["hugo"]:
        row.update({
            "hugo_s": t["hugo"], "hugo_pps": pages / t["hugo"],
            "hugo_rss_mb": max(rss["hugo"]) / 1024, "hugo_pages": hugo_pages,
            "hugo_mb": hugo_size / 1e6, "speedup_hugo": t["hugo"] / t["storegen"],
        })
    return row


def dynamic_bench(args, store):
    rows = []
    readers = store.readers()
    skus = store.dynamic_skus()
    times = {(r, s): [] for r in readers for s in skus}
    for sku in skus:
        pages = {}
        for reader in readers:
            proc = store.dynamic_page(store.program, reader, sku)
            if proc.returncode != 0 or b"Content-type" not in proc.stdout:
                raise Mismatch("%s.cfg -p %s failed (exit %d)" % (reader, sku, proc.returncode))
            store.check_dynamic(reader, sku, proc.stdout, proc.returncode)
            pages[reader] = proc.stdout
        if len(set(pages.values())) != 1:
            raise Mismatch("-p %s: the SQLite store's page differs from the text store's" % sku)
        for _ in range(args.dynamic_runs):
            for reader in readers:
                argv = store.dynamic_argv(store.program, reader, sku)
                start = time.perf_counter()
                subprocess.run(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
                times[(reader, sku)].append((time.perf_counter() - start) * 1000.0)
    for reader in readers:
        every = sorted(t for s in skus for t in times[(reader, s)])
        rows.append({
            "n": store.n, "reader": "text" if reader == "shop" else "sqlite",
            "min": every[0], "median": statistics.median(every),
            "p90": every[int(0.9 * (len(every) - 1))],
            "positions": [(statistics.median(times[(reader, s)]), min(times[(reader, s)]))
                          for s in skus],
        })
    return rows


def build_floor(args):
    floor = os.path.join(args.work, "floor")
    src = os.path.join(HERE, "floor.c")
    if not os.path.exists(floor) or os.path.getmtime(floor) < os.path.getmtime(src):
        subprocess.run(["cc", "-O2", "-Wall", "-Wextra", "-o", floor, src], check=True)
    return floor


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build-rel")
    parser.add_argument("--reference-build")
    parser.add_argument("--sizes", default="1000,10000,100000")
    parser.add_argument("--categories", type=int, default=50)
    parser.add_argument("--page-size", type=int, default=20)
    parser.add_argument("--reps", type=int, default=5)
    parser.add_argument("--dynamic-runs", type=int, default=30)
    parser.add_argument("--work", default="/tmp/storegen-bench")
    parser.add_argument("--out-root", help="where the runs write (default: in --work); for "
                        "example a tmpfs such as /dev/shm, to leave the disk out (there, each "
                        "run's tree is removed as soon as it has been checked)")
    parser.add_argument("--no-hugo", action="store_true")
    parser.add_argument("--no-static", action="store_true")
    parser.add_argument("--no-dynamic", action="store_true")
    parser.add_argument("--fresh-reference", action="store_true",
                        help="run the reference build again even where its output is kept")
    parser.add_argument("--no-compare", action="store_true",
                        help="run without a reference tree (no output check)")
    args = parser.parse_args()
    args.build = os.path.abspath(args.build)
    args.work = os.path.abspath(args.work)
    if args.out_root:
        args.out_root = os.path.abspath(args.out_root)
    args.sqlite = os.path.exists(os.path.join(args.build, "bin", "storegen-import"))
    os.makedirs(args.work, exist_ok=True)
    floor = build_floor(args)
    if not args.no_hugo and shutil.which("hugo") is None:
        sys.exit("hugo is not installed (Debian: apt-get install hugo), or pass --no-hugo")

    print("# machine: %s, %d CPUs; load %s" % (cpu_model(), os.cpu_count(), " ".join(load())))
    static_rows, dynamic_rows = [], []
    try:
        for n in (int(s) for s in args.sizes.split(",")):
            store = Store(args, n)
            # The runs' trees go whatever happens: a million pages take
            # gigabytes of a memory file system that others share.
            try:
                if args.reference_build and (args.fresh_reference or
                                             not store.has_reference()):
                    store.make_reference()
                if not store.has_reference() and not args.no_compare:
                    sys.exit("no reference output for %d products: give --reference-build (a "
                             "build of the unoptimised program) or --no-compare" % n)
                if not args.no_static:
                    static_rows.append(static_bench(args, store, floor))
                    print_static(static_rows[-1:], header=True)
                if not args.no_dynamic:
                    dynamic_rows += dynamic_bench(args, store)
            finally:
                store.finish()
    except Mismatch as e:
        print("OUTPUT DIFFERS FROM THE REFERENCE: %s" % e, file=sys.stderr)
        return 1
    print("\n# load at the end: %s" % " ".join(load()))
    if static_rows:
        print("\n## Static runs (medians of %d)\n" % args.reps)
        print_static(static_rows, header=True)
        if len(static_rows) > 1:
            for a, b in zip(static_rows, static_rows[1:]):
                print("\nt(%d)/t(%d) = %.2f" % (b["n"], a["n"], b["storegen_s"] / a["storegen_s"]))
    if dynamic_rows:
        print("\n## Dynamic product page, whole process (ms; %d runs per product)\n" %
              args.dynamic_runs)
        print("| products | reader | min | median | p90 | first | middle | last |")
        print("|---:|---|---:|---:|---:|---:|---:|---:|")
        for r in dynamic_rows:
            cells = ["%.1f" % r["min"], "%.1f" % r["median"], "%.1f" % r["p90"]]
            cells += ["%.1f (%.1f)" % p for p in r["positions"]]
            print("| %d | %s | %s |" % (r["n"], r["reader"], " | ".join(cells)))
    print("\nOutput check: %s" % ("identical to the reference" if not args.no_compare
                                  else "skipped (--no-compare)"))
    return 0


def print_static(rows, header):
    if header:
        print("| products | pages | MB | storegen s | pages/s | RSS MB | hugo s | pages/s | "
              "RSS MB | floor s | vs hugo | vs floor | floor+rename s | vs floor+rename | "
              "two-process floor s | vs two-process floor |")
        print("|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|")
    for r in rows:
        hugo = ("%.2f | %.0f | %.0f" % (r["hugo_s"], r["hugo_pps"], r["hugo_rss_mb"])
                if "hugo_s" in r else "- | - | -")
        speedup = "%.1fx" % r["speedup_hugo"] if "speedup_hugo" in r else "-"
        print("| %d | %d | %.1f | %.3f | %.0f | %.0f | %s | %.3f | %s | %.2f | %.3f | %.2f | "
              "%.3f | %.2f |" % (
                  r["n"], r["pages"], r["mb"], r["storegen_s"], r["storegen_pps"],
                  r["storegen_rss_mb"], hugo, r["floor_s"], speedup, r["ratio_floor"],
                  r["floor_rename_s"], r["ratio_floor_rename"], r["floor2_s"],
                  r["ratio_floor2"]), flush=True)


def cpu_model():
    for line in open("/proc/cpuinfo"):
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return "unknown CPU"


if __name__ == "__main__":
    sys.exit(main())
