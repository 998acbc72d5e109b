#!/usr/bin/env python3
"""A throwaway PostgreSQL server for the benchmarks.

    with PgServer(work_dir) as server:
        server.conninfo   # "host=SOCKET_DIR user=storegen dbname=postgres"

initdb makes it in WORK_DIR/pg (removed first); it runs as user 65534 when
the bench runs as root (the server refuses root), who must be able to reach
WORK_DIR (/tmp/... is; /root/... is not), listens only on a Unix
socket in that directory, and is stopped (fast shutdown) when the block
ends. It runs as a production server would, with fsync on: the benchmarks
read, and write only what an import writes. The server's programs are
Debian's (postgresql), found under /usr/lib/postgresql/VERSION/bin.
"""
import glob
import os
import shutil
import subprocess
import time

SERVER_USER = 65534


def bin_dir():
    """The newest installed server's programs, or None."""
    found = []
    for path in glob.glob("/usr/lib/postgresql/*/bin"):
        version = os.path.basename(os.path.dirname(path))
        if version.isdigit() and os.access(os.path.join(path, "postgres"), os.X_OK):
            found.append((int(version), path))
    return max(found)[1] if found else None


class PgServer:
    def __init__(self, work_dir):
        self.bin = bin_dir()
        if self.bin is None:
            raise RuntimeError("no PostgreSQL server under /usr/lib/postgresql "
                               "(apt-get install postgresql)")
        self.dir = os.path.join(os.path.abspath(work_dir), "pg")
        self.data = os.path.join(self.dir, "data")
        self.log = os.path.join(self.dir, "server.log")
        self.conninfo = "host=%s user=storegen dbname=postgres" % self.dir
        self.process = None

    def _as_server_user(self):
        if os.geteuid() == 0:
            os.setgroups([])
            os.setgid(SERVER_USER)
            os.setuid(SERVER_USER)

    def __enter__(self):
        shutil.rmtree(self.dir, ignore_errors=True)
        os.makedirs(self.dir, mode=0o700)
        if os.geteuid() == 0:
            os.chown(self.dir, SERVER_USER, SERVER_USER)
        log = open(self.log, "ab")
        subprocess.run([os.path.join(self.bin, "initdb"), "-D", self.data, "-U", "storegen", "-A",
                        "trust", "-E", "UTF8", "--locale=C", "--no-instructions"],
                       stdout=log, stderr=log, check=True, preexec_fn=self._as_server_user)
        self.process = subprocess.Popen(
            [os.path.join(self.bin, "postgres"), "-D", self.data, "-k", self.dir, "-c",
             "listen_addresses=", "-c", "max_connections=200"],
            stdout=log, stderr=log, preexec_fn=self._as_server_user)
        deadline = time.time() + 60
        while subprocess.run([os.path.join(self.bin, "pg_isready"), "-q", "-h", self.dir]).returncode:
            if self.process.poll() is not None or time.time() > deadline:
                raise RuntimeError("the PostgreSQL server did not start; see " + self.log)
            time.sleep(0.05)
        return self

    def __exit__(self, *exc):
        if self.process is not None:
            self.process.send_signal(2)  # SIGINT: fast shutdown
            self.process.wait()
        return False
