#!/usr/bin/env python3
"""The cost of reading a large attribute database.

    attribute_bench.py [--build BUILD] [--reference-build REF_BUILD]
                       [--sizes 10000,100000] [--reps 3] [--work DIR]

Makes a small store (make_store.py, 20 products) and gives it an attribute
database of N lines: the store's five attributes, then attributes 6 to N, in
three orders: ascending (as the database writes itself), descending, and
shuffled with every tenth index repeated. For each size and order it times
whole `storegen -c shop.cfg -p SKU` processes (the program reads the whole
database at start-up; the page's form controls look five attributes up) and
prints the median of --reps runs with the build, and with the reference
build beside it when one is given. The pages of both builds must be the same
byte for byte; a difference stops the bench with exit status 1.

Build both as release builds (cmake -B build-rel
-DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF; target storegen). Note
the machine's load: the script prints it before and after.
"""
import argparse
import os
import random
import statistics
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import make_store  # noqa: E402

PRODUCTS = 20


def attribute_lines(n, order):
    lines = ["%d\t%d\t%s\t%s\n" % (i, t, label, ",".join(values))
             for i, t, label, values in make_store.ATTRIBUTES]
    first = len(lines) + 1
    lines += ["%d\t%d\tOption %d\tred,green,blue\\, dark,n%d\n" % (i, 1 + i % 7, i, i)
              for i in range(first, n + 1)]
    if order == "descending":
        lines.reverse()
    elif order == "shuffled":
        lines += lines[::10]
        random.Random(n).shuffle(lines)
    return "".join(lines)


def install(store, build, name):
    """Links the build's storegen into its own directory of the store."""
    directory = os.path.join(store, name)
    os.makedirs(directory, exist_ok=True)
    link = os.path.join(directory, "storegen")
    if os.path.lexists(link):
        os.remove(link)
    os.symlink(os.path.join(os.path.abspath(build), "bin", "storegen"), link)
    return link


def run(program, store):
    argv = [program, "-c", os.path.join(store, "shop.cfg"), "-p", make_store.sku(PRODUCTS // 2)]
    start = time.perf_counter()
    proc = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start, proc.stdout + b"\nstatus=%d\n" % proc.returncode


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build-rel")
    parser.add_argument("--reference-build")
    parser.add_argument("--sizes", default="10000,100000")
    parser.add_argument("--reps", type=int, default=3)
    parser.add_argument("--work", default="/tmp/storegen-attribute-bench")
    args = parser.parse_args()

    print("# load before: %s" % open("/proc/loadavg").read().strip(), flush=True)
    store = os.path.join(make_store.make_store(PRODUCTS, args.work), "store")
    programs = [("build", install(store, args.build, "cgi-bin"))]
    if args.reference_build:
        programs.append(("reference", install(store, args.reference_build, "cgi-ref")))
    print("| lines | order | " + " | ".join("%s s" % name for name, _ in programs) + " |")
    print("|---:|---|" + "---:|" * len(programs))
    for n in [int(s) for s in args.sizes.split(",")]:
        for order in ("ascending", "descending", "shuffled"):
            with open(os.path.join(store, "products.adb"), "w") as out:
                out.write(attribute_lines(n, order))
            pages, medians = set(), []
            for _, program in programs:
                times = []
                for _ in range(args.reps):
                    seconds, page = run(program, store)
                    times.append(seconds)
                    pages.add(page)
                medians.append(statistics.median(times))
            if len(pages) != 1:
                sys.exit("the pages differ at %d lines, %s" % (n, order))
            print("| %d | %s | %s |" % (n, order, " | ".join("%.3f" % m for m in medians)),
                  flush=True)
    print("# load after: %s" % open("/proc/loadavg").read().strip())


if __name__ == "__main__":
    sys.exit(main())
