#!/bin/sh
# Stand-in for the SWISH indexer: records, next to itself, the program path
# and its arguments (one a line), its working directory and whether its input
# ended at once; then writes more output than a pipe holds, so that a parent
# that does not read would stall it. "timeout" turns such a stall into a recorded failure.
here=$(dirname "$0")
printf '%s\n' "$0" "$@" > "$here/args.txt"
pwd > "$here/cwd.txt"
timeout 30 cat > "$here/stdin.txt"
echo $? > "$here/stdin_status.txt"
timeout 30 seq 1 30000
echo $? > "$here/output_status.txt"
