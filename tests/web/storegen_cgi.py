"""CGI front of the page generator for dynamic pages, in the cart's place.

The store's dynamic links name the program with its arguments in the query,
words joined by "+": "?-p+-c+store.cfg+SKU" for a product page and
"?-c+store.cfg[+-C+Category]+-f+N" for a list page. This program splits the
query into those words, maps the configuration's bare file name to the store
configuration in STOREGEN_STORE_DIR and runs STOREGEN_PROGRAM with them,
without a shell. The generator writes the answer, its header included; its
exit status goes in front as the header "X-Storegen-Exit". Its error output
goes to the web server's error log.

Settings come from the web server's environment:
  STOREGEN_PROGRAM    the page generator
  STOREGEN_STORE_DIR  the directory of the store configurations
"""

import os
import subprocess
import sys
import urllib.parse

ALLOWED_OPTIONS = {"-p", "-c", "-C", "-f"}


def answer(status, text):
    sys.stdout.write(f"Status: {status}\nContent-type: text/plain\n\n{text}\n")


def arguments(query, store_dir):
    """The generator's arguments for |query|, or None when it is not a request
    for a dynamic page of a configured store."""
    words = [urllib.parse.unquote(w) for w in query.split("+") if w]
    if "-c" not in words or words.index("-c") + 1 >= len(words):
        return None
    if "-p" not in words and "-f" not in words:
        return None
    if any(w.startswith("-") and len(w) == 2 and w not in ALLOWED_OPTIONS for w in words):
        return None
    at = words.index("-c") + 1
    name = words[at]
    if "/" in name or name.startswith(".") or not name.endswith(".cfg"):
        return None
    config = os.path.join(store_dir, name)
    if not os.path.isfile(config):
        return None
    words[at] = config
    return words


def main():
    program = os.environ.get("STOREGEN_PROGRAM", "")
    args = arguments(os.environ.get("QUERY_STRING", ""), os.environ.get("STOREGEN_STORE_DIR", ""))
    if args is None:
        answer("400 Bad Request", "not a request for a dynamic page of a configured store")
        return
    try:
        run = subprocess.run([program] + args, stdout=subprocess.PIPE, timeout=60)
    except (OSError, subprocess.TimeoutExpired) as e:
        answer("500 Internal Server Error", f"the page generator did not run: {e}")
        return
    if not run.stdout:
        # A product that does not exist ends with -2 and writes nothing.
        status = "404 Not Found" if run.returncode == 254 else "500 Internal Server Error"
        answer(status, f"the page generator wrote nothing (exit status {run.returncode})")
        return
    sys.stdout.write(f"X-Storegen-Exit: {run.returncode}\n")
    sys.stdout.flush()
    sys.stdout.buffer.write(run.stdout)


if __name__ == "__main__":
    main()
