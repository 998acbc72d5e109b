#!/usr/bin/env python3
"""Dynamic product-page latency, built-in reader against the SQLite library.

    product_page_latency.py [BUILD_DIR] [--sizes 1000,10000,100000] [--runs 20]

For each store size, makes a synthetic store (make_store.py), imports it into
SQLite, and times whole `storegen -c CFG -p SKU` processes for the first, the
middle and the last product, once with the tab-separated files (text.cfg) and
once through the SQLite library (sqlite.cfg). Both must print the same page.
Prints one Markdown table row per size and reader: median and 90th percentile
over all runs, and the median per product position, in milliseconds.
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import make_store  # noqa: E402


def run_ms(argv):
    start = time.perf_counter()
    result = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    elapsed = (time.perf_counter() - start) * 1000.0
    return elapsed, result.stdout, result.returncode


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build_dir", nargs="?", default="build")
    parser.add_argument("--sizes", default="1000,10000,100000")
    parser.add_argument("--runs", type=int, default=20)
    args = parser.parse_args()
    build = os.path.abspath(args.build_dir)
    program = os.path.join(build, "bin", "storegen")

    print("| products | reader | median ms | p90 ms | first | middle | last |")
    print("|---:|---|---:|---:|---:|---:|---:|")
    with tempfile.TemporaryDirectory(prefix="storegen-bench.") as work:
        for n in (int(s) for s in args.sizes.split(",")):
            store = make_store.make_store(n, os.path.join(work, "store-%d" % n), build)
            link = os.path.join(store, "storegen")  # storegen works in its own directory
            os.symlink(program, link)
            skus = [make_store.sku(0), make_store.sku(n // 2), make_store.sku(n - 1)]
            pages = {}
            for reader in ("text", "sqlite"):
                cfg = os.path.join(store, reader + ".cfg")
                per_sku = []
                for sku in skus:
                    argv = [link, "-c", cfg, "-p", sku]
                    run_ms(argv)  # warm the page cache
                    times = []
                    for _ in range(args.runs):
                        ms, out, rc = run_ms(argv)
                        times.append(ms)
                    if rc != 0 or b"Content-type" not in out:
                        sys.exit("%s -p %s failed (exit %d)" % (cfg, sku, rc))
                    if pages.setdefault(sku, out) != out:
                        sys.exit("%s -p %s: the page differs from the text store's" % (cfg, sku))
                    per_sku.append(times)
                every = sorted(t for times in per_sku for t in times)
                p90 = every[int(0.9 * (len(every) - 1))]
                cells = ["%.1f" % statistics.median(every), "%.1f" % p90]
                cells += ["%.1f" % statistics.median(times) for times in per_sku]
                print("| %d | %s | %s |" % (n, reader, " | ".join(cells)), flush=True)


if __name__ == "__main__":
    main()
