#!/bin/sh
# Generates the sample store with a built storegen:
#   sample/generate.sh [BUILD_DIR]          (default: build)
# The store's files are copied to BUILD_DIR/sample-work/ (a run writes into
# the store's directory: text-block caches and the cart pages' entries in the
# store configuration), the copy's configuration is pointed at the copy's
# product database, and a full static run writes the pages, the site pages
# included, below BUILD_DIR/sample-store/.
set -eu
build=$(cd "${1:-build}" && pwd)
src=$(cd "$(dirname "$0")" && pwd)
work="$build/sample-work"
out="$build/sample-store"

mkdir -p "$work" "$out"
cp -R "$src/modern" "$src/modern.cfg" "$src/lantern.cfg" "$src/products.txt" \
  "$src/products.cdb" "$src/products.adb" "$work/"
sed -i "s|^ProductDatabase	.*|ProductDatabase	$work/products.txt|" "$work/lantern.cfg"

"$build/bin/storegen" -o "$out" -c "$work/lantern.cfg" -s 0
echo "The sample store is in $out/lantern/ (start page: index.html)."
