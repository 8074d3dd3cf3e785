#!/usr/bin/python3
"""Runs COMMAND with a TCP socket listening on 127.0.0.1 handed over the way
systemd's socket activation does (descriptor 3, LISTEN_FDS=1, LISTEN_PID), so
the daemon serves on a port nobody else can take: the kernel picks it while
this process holds it, and it is written to PORT_FILE before COMMAND starts.
COMMAND replaces this process (exec), so LISTEN_PID, this pid, is its pid too,
also when COMMAND is an emulator running the daemon. USBMEDIA_PORT is set to
the port as well, for clients started from COMMAND's environment.

Usage: with-listener.py PORT_FILE COMMAND [ARG...]"""

import os
import socket
import sys

HANDED_OVER_FD = 3  # where socket activation puts the first socket


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    port_file, command = argv[1], argv[2:]
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.bind(("127.0.0.1", 0))
    listener.listen(socket.SOMAXCONN)
    port = listener.getsockname()[1]
    if listener.fileno() != HANDED_OVER_FD:
        os.dup2(listener.fileno(), HANDED_OVER_FD)
        listener.close()
    os.set_inheritable(HANDED_OVER_FD, True)
    os.environ.update(LISTEN_FDS="1", LISTEN_PID=str(os.getpid()), USBMEDIA_PORT=str(port))
    # Whole or not at all: a caller polls for the file.
    with open(port_file + ".new", "w", encoding="ascii") as f:
        f.write("%d\n" % port)
    os.rename(port_file + ".new", port_file)
    os.execvp(command[0], command)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
