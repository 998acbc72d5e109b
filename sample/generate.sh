#!/bin/sh
# Generates the sample store with a built storegen:
#   sample/generate.sh [BUILD_DIR]          (default: build)
# The store's files are copied to BUILD_DIR/sample-work/ (a run writes into
# the store's directory: text-block caches and the cart pages' entries in the
# store configuration), the copy's configuration is pointed at the copy's
# product database, and a full static run writes the pages, the site pages
# included, below BUILD_DIR/sample-store/.
#
# The store allows indexing, so the run also sets up its search index. The
# program runs from BUILD_DIR/sample-work/cgi-bin/ (a link to the built
# program, with the search gateway template wwwwais.cfg beside it); the
# sibling directory swish/ holds the indexer template swish.cfg, the store's
# index files after the run, and the indexer itself as "swish": a link to
# swish-e when it is installed. Without swish-e the pages are still written;
# only the index is missing.
set -eu
build=$(cd "${1:-build}" && pwd)
src=$(cd "$(dirname "$0")" && pwd)
work="$build/sample-work"
out="$build/sample-store"

mkdir -p "$work" "$out"
cp -R "$src/modern" "$src/modern.cfg" "$src/lantern.cfg" "$src/products.txt" \
  "$src/products.cdb" "$src/products.adb" "$work/"
sed -i "s|^ProductDatabase	.*|ProductDatabase	$work/products.txt|" "$work/lantern.cfg"

mkdir -p "$work/cgi-bin" "$work/swish"
ln -sf "$build/bin/storegen" "$work/cgi-bin/storegen"
cp "$src/cgi-bin/wwwwais.cfg" "$work/cgi-bin/"
cp "$src/swish/swish.cfg" "$work/swish/"
rm -f "$work/swish/swish"
if indexer=$(command -v swish-e); then
  ln -s "$indexer" "$work/swish/swish"
else
  echo "swish-e is not installed: the store is generated without its search index."
fi

"$work/cgi-bin/storegen" -o "$out" -c "$work/lantern.cfg" -s 0
echo "The sample store is in $out/lantern/ (start page: index.html)."
if [ -e "$work/swish/swish" ]; then
  for index in "$work"/swish/*.ind; do
    if [ -e "$index" ]; then
      echo "Its search index is $index (try: swish-e -f $index -w lantern)."
    fi
  done
fi
