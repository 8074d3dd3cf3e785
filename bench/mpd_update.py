#!/usr/bin/python3
"""The reference for the tag library's first scan: Debian's mpd, on a private
port with its own configuration and database in a temporary folder and no
audio output, times a full database update of TREE.

mpd updates its database by itself when it starts without one, so it starts
on an empty music folder; once that (empty) update is done, a hard-linked
copy of TREE is moved in and the "update" command is timed until "status"
no longer shows "updating_db". Hard links share the cached pages of TREE,
as the copy the service scans does.

Usage: mpd_update.py TREE
Prints one line: "mpd-update SECONDS SONGS"."""

import os
import socket
import subprocess
import sys
import tempfile
import time

POLL_SECONDS = 0.01
START_TIMEOUT_SECONDS = 30
UPDATE_TIMEOUT_SECONDS = 900


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def write_config(folder, port):
    path = os.path.join(folder, "mpd.conf")
    with open(path, "w", encoding="utf-8") as config:
        config.write('music_directory "%s"\n' % os.path.join(folder, "music"))
        config.write('db_file "%s"\n' % os.path.join(folder, "database"))
        config.write('log_file "%s"\n' % os.path.join(folder, "log"))
        config.write('bind_to_address "127.0.0.1"\nport "%d"\n' % port)
        config.write('zeroconf_enabled "no"\nauto_update "no"\n')
        config.write('audio_output {\n  type "null"\n  name "none"\n}\n')
    return path


class MpdClient:
    """The line protocol: a command, then lines up to "OK" or "ACK ..."."""

    def __init__(self, port):
        deadline = time.monotonic() + START_TIMEOUT_SECONDS
        while True:
            try:
                self.sock = socket.create_connection(("127.0.0.1", port))
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.05)
        self.reader = self.sock.makefile("r", encoding="utf-8")
        greeting = self.reader.readline()
        if not greeting.startswith("OK MPD"):
            raise RuntimeError("not mpd: " + greeting)

    def command(self, text):
        self.sock.sendall((text + "\n").encode("utf-8"))
        values = {}
        for line in self.reader:
            line = line.rstrip("\n")
            if line == "OK":
                return values
            if line.startswith("ACK"):
                raise RuntimeError(text + ": " + line)
            key, _, value = line.partition(": ")
            values[key] = value
        raise RuntimeError(text + ": connection closed")

    def wait_until_updated(self):
        deadline = time.monotonic() + UPDATE_TIMEOUT_SECONDS
        while "updating_db" in self.command("status"):
            if time.monotonic() > deadline:
                raise RuntimeError("mpd update did not end")
            time.sleep(POLL_SECONDS)


def main(argv):
    if len(argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    tree = os.path.abspath(argv[1])
    with tempfile.TemporaryDirectory(prefix="mpd-bench-") as folder:
        os.mkdir(os.path.join(folder, "music"))
        staged = os.path.join(folder, "staged")
        subprocess.run(["cp", "-al", tree, staged], check=True)
        port = free_port()
        mpd = subprocess.Popen(["mpd", "--no-daemon", write_config(folder, port)],
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            client = MpdClient(port)
            client.wait_until_updated()  # its own update of the empty folder
            os.rename(staged, os.path.join(folder, "music", "stick"))
            start = time.monotonic()
            client.command("update")
            client.wait_until_updated()
            seconds = time.monotonic() - start
            songs = int(client.command("stats").get("songs", "0"))
        finally:
            mpd.terminate()
            mpd.wait()
    print("mpd-update %.3f %d" % (seconds, songs))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
