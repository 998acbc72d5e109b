#!/usr/bin/env python3
"""Writes a synthetic store of N products for the latency benchmark.

    make_store.py N DIR [--import BUILD_DIR]

DIR receives the sample store's template set and configuration, a product
database products.txt of N products (spread over the sample's categories),
the sample's category and attribute databases, and two store configurations:
text.cfg reads the tab-separated files, sqlite.cfg the SQLite file store.sqlite
through the SQLite product library. With --import, store.sqlite is made with
BUILD_DIR/bin/storegen-import.
"""
import argparse
import os
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SAMPLE = os.path.normpath(os.path.join(HERE, "..", "..", "sample"))
COLUMNS = ["SKU", "NAME", "PRICE", "TILLBOXCATEGORY", "TILLBOXTEMPLATE", "TILLBOXATTRIBUTES",
           "GRAPHIC", "THUMBNAIL", "DESCRIPTION"]
CATEGORIES = ["Lighting", "Textiles", "Kitchen", "Stationery", "Garden"]


def sku(i):
    return "P%07d" % i


def write_products(path, n):
    with open(path, "w", newline="\n") as out:
        out.write("\t".join(COLUMNS) + "\n")
        for i in range(n):
            out.write("\t".join([
                sku(i), "Product number %d" % i, "%d.%02d" % (5 + i % 200, i % 100),
                CATEGORIES[i % len(CATEGORIES)], "NA", "1:1,2", "images/placeholder.svg",
                "images/placeholder.svg",
                "Synthetic product %d, described at about the length of a real one so that "
                "lines weigh what they would in a store." % i]) + "\n")


def write_config(path, sample_cfg, db, library=None):
    lines = []
    for line in sample_cfg.splitlines():
        if line.startswith("ProductDatabase\t"):
            line = "ProductDatabase\t" + db
        lines.append(line)
    if library:
        lines += ["ProductAPILibrary\t" + library, "ProductAPILibConfig\t" + db]
    with open(path, "w") as out:
        out.write("\n".join(lines) + "\n")


def make_store(n, directory, build_dir=None):
    directory = os.path.abspath(directory)
    if os.path.exists(directory):
        shutil.rmtree(directory)
    shutil.copytree(os.path.join(SAMPLE, "modern"), os.path.join(directory, "modern"))
    for name in ("modern.cfg", "products.cdb", "products.adb"):
        shutil.copy(os.path.join(SAMPLE, name), directory)
    write_products(os.path.join(directory, "products.txt"), n)
    with open(os.path.join(SAMPLE, "lantern.cfg")) as f:
        sample_cfg = f.read()
    text_db = os.path.join(directory, "products.txt")
    sqlite_db = os.path.join(directory, "store.sqlite")
    library = os.path.join(os.path.abspath(build_dir or "build"), "lib",
                           "libstoregen_papi_sqlite.so")
    write_config(os.path.join(directory, "text.cfg"), sample_cfg, text_db)
    write_config(os.path.join(directory, "sqlite.cfg"), sample_cfg, sqlite_db, library)
    if build_dir:
        tool = os.path.join(os.path.abspath(build_dir), "bin", "storegen-import")
        subprocess.run([tool, text_db, sqlite_db], check=True, stdout=subprocess.DEVNULL)
    return directory


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("n", type=int)
    parser.add_argument("dir")
    parser.add_argument("--import", dest="build_dir", metavar="BUILD_DIR")
    args = parser.parse_args()
    make_store(args.n, args.dir, args.build_dir)


if __name__ == "__main__":
    sys.exit(main())
