#!/usr/bin/env python3
"""Dynamic product-page latency, built-in reader against the SQLite library.

    product_page_latency.py [BUILD_DIR] [--sizes 1000,10000,100000] [--runs 20]

For each store size, makes a synthetic store (make_store.py), imports it into
SQLite, and times whole `storegen -c CFG -p SKU` processes for the first, the
middle and the last product, with the tab-separated files (text.cfg) and
through the SQLite library (sqlite.cfg) in turn. Both must print the same page.
Prints one Markdown table row per size and reader: the minimum, the median and
the 90th percentile over all runs, and the median (minimum) per product
position, in milliseconds. The minimum shows the cost on an idle machine best.
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

READERS = ("text", "sqlite")


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

    print("| products | reader | min | median | p90 | first | middle | last |")
    print("|---:|---|---:|---:|---:|---:|---:|---:|")
    with tempfile.TemporaryDirectory(prefix="storegen-bench.") as work:
        for n in (int(s) for s in args.sizes.split(",")):
            store = make_store.make_store(n, os.path.join(work, "store-%d" % n), build)
            link = os.path.join(store, "storegen")  # storegen works in its own directory
            os.symlink(program, link)
            skus = [make_store.sku(0), make_store.sku(n // 2), make_store.sku(n - 1)]
            # Runs of the two readers alternate, so that both see the same
            # load on the machine.
            times = {(reader, sku): [] for reader in READERS for sku in skus}
            for sku in skus:
                argvs = {r: [link, "-c", os.path.join(store, r + ".cfg"), "-p", sku]
                         for r in READERS}
                pages = {r: run_ms(argvs[r]) for r in READERS}  # warms the page cache
                for r, (_, out, rc) in pages.items():
                    if rc != 0 or b"Content-type" not in out:
                        sys.exit("%s.cfg -p %s failed (exit %d)" % (r, sku, rc))
                if pages["text"][1] != pages["sqlite"][1]:
                    sys.exit("-p %s: the SQLite store's page differs from the text store's" % sku)
                for _ in range(args.runs):
                    for r in READERS:
                        times[(r, sku)].append(run_ms(argvs[r])[0])
            for r in READERS:
                every = sorted(t for sku in skus for t in times[(r, sku)])
                p90 = every[int(0.9 * (len(every) - 1))]
                cells = ["%.1f" % every[0], "%.1f" % statistics.median(every), "%.1f" % p90]
                cells += ["%.1f (%.1f)" % (statistics.median(times[(r, sku)]), min(times[(r, sku)]))
                          for sku in skus]
                print("| %d | %s | %s |" % (n, r, " | ".join(cells)), flush=True)


if __name__ == "__main__":
    main()
