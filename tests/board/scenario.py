#!/usr/bin/python3
"""The service on a whole emulated board: boots the armhf image under
qemu-system-arm, installs the package as the README's "On a device" section
says, and walks a device's life: start under systemd (as the service's own
user, without capabilities), plug a stick, index, browse and play through
ALSA, pull the stick mid-song, plug it again, soft power-off and crash, a
hung process, stop. Every step has its own time limit
and says what it waited for when it fails. Figures are printed at the end.

Run by scripts/board-armhf.sh, which makes the image, the package and the
stick.
"""

import argparse
import json
import os
import re
import select
import shlex
import socket
import subprocess
import sys
import tempfile
import time

BOOT_SECONDS = 300          # kernel to root shell, on a busy 2-core machine under TCG
COMMAND_SECONDS = 120       # one ordinary command on the board
EVENT_SECONDS = 90          # a plug, a pull, a restart
SERVICE = "usb-media-service"
SERVICE_USER = "usbmedia"   # made by the package's postinst
ART_FOLDER = "/home/root/art_dump"
STICK_MOUNT = "/mnt/usb-stick1"
MOUNT_UNIT = r"mnt-usb\x2dstick1.mount"
STICK_UNIT = "usb-media-stick@1.service"
PAYLOAD = "/payload"
GUEST = PAYLOAD + "/guest.sh"


class StepFailed(Exception):
    pass


class Console:
    """A root shell on the board's serial console. Each command runs in a
    subshell between two markers that only the shell's output can form, so
    its output and exit status are read back exactly."""

    def __init__(self, path, log_path):
        self.sock = connect_unix(path)
        self.sock.setblocking(False)
        self.buffer = ""
        self.log = open(log_path, "a", buffering=1, errors="replace")
        self.count = 0

    def read_some(self, timeout):
        ready, _, _ = select.select([self.sock], [], [], timeout)
        if not ready:
            return
        data = self.sock.recv(65536)
        if not data:
            raise StepFailed("the board's serial console closed (QEMU ended?)")
        text = data.decode("utf-8", errors="replace").replace("\r", "")
        self.log.write(text)
        self.buffer += text

    def expect(self, regex, seconds, what):
        pattern = re.compile(regex, re.S)
        deadline = time.monotonic() + seconds
        while True:
            match = pattern.search(self.buffer)
            if match:
                self.buffer = self.buffer[match.end():]
                return match
            left = deadline - time.monotonic()
            if left <= 0:
                raise StepFailed("%s: nothing within %d s; the console's last lines:\n%s"
                                 % (what, seconds, tail(self.buffer, 30)))
            self.read_some(min(left, 1.0))

    def send(self, text):
        self.sock.setblocking(True)
        self.sock.sendall(text.encode())
        self.sock.setblocking(False)

    def run(self, command, seconds=COMMAND_SECONDS, check=True, what=None):
        self.count += 1
        n = self.count
        # printf builds the markers, so an echoed command line never matches.
        self.send("printf '@@B%%s@@\\n' %d; ( %s ) </dev/null 2>&1; printf '@@E%%s:%%s@@\\n' %d $?\n"
                  % (n, command, n))
        self.expect(r"@@B%d@@\n" % n, 30, "start of: " + command)
        match = self.expect(r"(.*?)@@E%d:(\d+)@@\n" % n, seconds, what or command)
        output, status = match.group(1), int(match.group(2))
        if check and status != 0:
            raise StepFailed("%s: exit status %d\n%s" % (what or command, status, output.rstrip()))
        return output.rstrip("\n") if check else (status, output.rstrip("\n"))


class Monitor:
    """QEMU's human monitor, for plugging and pulling the stick."""

    def __init__(self, path):
        self.sock = connect_unix(path)
        self.sock.settimeout(30)
        self.read_prompt()

    def read_prompt(self):
        data = b""
        while not data.endswith(b"(qemu) "):
            chunk = self.sock.recv(4096)
            if not chunk:
                raise StepFailed("the QEMU monitor closed")
            data += chunk
        return data.decode(errors="replace")

    def command(self, text):
        self.sock.sendall(text.encode() + b"\n")
        reply = self.read_prompt()
        # The monitor echoes the command; what remains is its answer.
        answer = reply.split("\n", 1)[1] if "\n" in reply else ""
        answer = answer.replace("(qemu) ", "").strip()
        if "rror" in answer:
            raise StepFailed("QEMU monitor: %s -> %s" % (text, answer))
        return answer


def connect_unix(path, seconds=30):
    deadline = time.monotonic() + seconds
    while True:
        sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            sock.connect(path)
            return sock
        except OSError:
            sock.close()
            if time.monotonic() > deadline:
                raise StepFailed("cannot connect to %s" % path)
            time.sleep(0.1)


def tail(text, lines):
    return "\n".join(text.rstrip("\n").split("\n")[-lines:])


def readme_steps(readme, name, keep_comments=False):
    """The shell lines of the README's block marked <!-- board: NAME -->,
    without trailing comments; whole-line comments too when asked."""
    text = open(readme, encoding="utf-8").read()
    match = re.search(r"<!-- board: %s -->\s*```sh\n(.*?)```" % re.escape(name), text, re.S)
    if not match:
        raise StepFailed("README.md has no block marked <!-- board: %s -->" % name)
    steps = []
    for line in match.group(1).split("\n"):
        line = line.strip()
        if not line.startswith("#"):
            line = line.split("  #")[0].strip()
        if line and (keep_comments or not line.startswith("#")):
            steps.append(line)
    return steps


class Scenario:
    def __init__(self, args):
        self.args = args
        self.work = args.work
        self.figures = []
        self.plugs = 0
        self.stick_reports = 0  # plugs of the readable stick, each reported with its UUID
        self.qemu = None
        self.started = time.monotonic()

    # --- the board ---------------------------------------------------------
    def start_board(self):
        payload = os.path.join(self.work, "payload")
        os.makedirs(payload, exist_ok=True)
        for source in (self.args.deb, os.path.join(os.path.dirname(__file__), "guest.sh")):
            subprocess.run(["cp", source, payload], check=True)
        os.chmod(os.path.join(payload, "guest.sh"), 0o755)
        payload_img = os.path.join(self.work, "payload.img")
        subprocess.run(["mke2fs", "-q", "-t", "ext4", "-L", "payload", "-d", payload, payload_img, "64M"],
                       check=True)
        image = self.args.image
        self.serial_path = os.path.join(self.work, "serial.sock")
        self.monitor_path = os.path.join(self.work, "monitor.sock")
        self.serial_log = os.path.join(self.work, "serial.log")
        command = [
            "qemu-system-arm", "-M", "virt", "-cpu", "cortex-a15", "-smp", "2", "-m", "1024",
            "-kernel", os.path.join(image, "vmlinuz"), "-initrd", os.path.join(image, "initrd.img"),
            "-append", "root=LABEL=board-root rw console=ttyAMA0 quiet loglevel=3",
            # The cached image stays clean: writes live as long as this QEMU.
            "-drive", "if=none,id=root,format=raw,snapshot=on,file=" + os.path.join(image, "root.img"),
            "-device", "virtio-blk-device,drive=root",
            "-drive", "if=none,id=payload,format=raw,readonly=on,file=" + payload_img,
            "-device", "virtio-blk-device,drive=payload",
            "-device", "qemu-xhci,id=xhci",
            "-nic", "none", "-display", "none",
            "-chardev", "socket,id=serial,path=%s,server=on,wait=off" % self.serial_path,
            "-serial", "chardev:serial",
            "-monitor", "unix:%s,server=on,wait=off" % self.monitor_path,
        ]
        self.qemu_log = open(os.path.join(self.work, "qemu.log"), "w")
        self.started = time.monotonic()
        self.qemu = subprocess.Popen(command, stdout=self.qemu_log, stderr=subprocess.STDOUT)
        self.console = Console(self.serial_path, self.serial_log)
        self.monitor = Monitor(self.monitor_path)

    def wait_for_shell(self, what):
        self.console.expect(r"root@usbmedia-board:[^\n]*# $|root@usbmedia-board:[^\n]*# ", BOOT_SECONDS, what)
        # A quiet shell: no echo of what is typed, no pager, no colours.
        self.console.send("stty -echo; export PAGER=cat SYSTEMD_PAGER= SYSTEMD_COLORS=0 LC_ALL=C; PS1='# '\n")
        self.run("true", what="a shell that answers")

    def run(self, command, seconds=COMMAND_SECONDS, what=None):
        return self.console.run(command, seconds, what=what)

    def try_run(self, command, seconds=COMMAND_SECONDS):
        return self.console.run(command, seconds, check=False)

    def guest(self, arguments, seconds=COMMAND_SECONDS, what=None):
        return self.run(GUEST + " " + arguments, seconds, what)

    def step(self, title):
        print("board: %6.1f s  %s" % (time.monotonic() - self.started, title), flush=True)

    def figure(self, name, value):
        self.figures.append((name, value))
        print("board: figure: %s: %s" % (name, value), flush=True)

    def lines(self):
        return int(self.guest("lines"))

    def wait_line(self, since, regex, seconds, what):
        return self.guest("wait-line %d %s %d" % (since, shlex.quote(regex), seconds), seconds + 30, what)

    def ctl(self, arguments, what=None):
        return self.run("usb-media-ctl " + arguments, what=what or "usb-media-ctl " + arguments)

    # --- the steps -----------------------------------------------------------
    def boot(self):
        self.step("boot")
        self.start_board()
        self.wait_for_shell("boot to a root shell on the serial console")
        self.figure("boot to a root shell", "%.1f s" % (time.monotonic() - self.started))
        self.run("mkdir -p %s && mount -o ro LABEL=payload %s" % (PAYLOAD, PAYLOAD))

    def install(self):
        self.step("install the package as the README says")
        deb = os.path.basename(self.args.deb)
        for line in readme_steps(self.args.readme, "install"):
            line = line.replace("./usb-media-service_*.deb", PAYLOAD + "/" + deb)
            self.run(line, 600 if line.startswith("apt") else COMMAND_SECONDS, "README step: " + line)
        pid = self.guest("wait-active %s %d" % (SERVICE, EVENT_SECONDS), EVENT_SECONDS + 30,
                         "the service active after READY=1")
        self.figure("first start, building GStreamer's registry", self.start_seconds())
        self.check_user(pid)
        self.run("test -s /var/cache/%s/registry.bin" % SERVICE,
                 what="GStreamer's registry written into the unit's cache folder")

    def start_seconds(self):
        out = self.run("systemctl show -P ExecMainStartTimestampMonotonic %s; "
                       "systemctl show -P ActiveEnterTimestampMonotonic %s" % (SERVICE, SERVICE))
        start, active = (int(v) for v in out.split())
        return "%.2f s from exec to READY=1" % ((active - start) / 1e6)

    def check_user(self, pid):
        """The service runs as the user its unit declares (usbmedia, made by
        the package), in the audio group, with no capability and umask 0027;
        the art folder is its group's alone."""
        declared = self.run("systemctl show -P User %s" % SERVICE) or "root"
        if declared != SERVICE_USER:
            raise StepFailed("the unit declares the user %s, not %s" % (declared, SERVICE_USER))
        running = self.run("ps -o user= -p %s" % pid).strip()
        if running != declared:
            raise StepFailed("the service runs as %s, its unit declares %s" % (running, declared))
        status = self.run("cat /proc/%s/status" % pid, what="the service's /proc status")
        fields = dict(line.split(":", 1) for line in status.split("\n") if ":" in line)
        capabilities = fields.get("CapEff", "").strip()
        if capabilities != "0000000000000000":
            raise StepFailed("the service's effective capabilities are %r, not none" % capabilities)
        umask = fields.get("Umask", "").strip()
        if umask != "0027":
            raise StepFailed("the service's umask is %r: art files would not be 0640" % umask)
        audio = self.run("getent group audio | cut -d: -f3").strip()
        if audio not in fields.get("Groups", "").split():
            raise StepFailed("the service is not in the audio group (%s): Groups %s"
                             % (audio, fields.get("Groups", "").strip()))
        art = self.run("stat -c '%%a %%U %%G' %s" % ART_FOLDER, what="the art folder made by tmpfiles.d")
        if art != "770 %s %s" % (SERVICE_USER, SERVICE_USER):
            raise StepFailed("the art folder %s is %s, not 770 %s %s" % (ART_FOLDER, art, SERVICE_USER, SERVICE_USER))
        print("board: the service runs as %s (pid %s), as its unit declares, CapEff %s, in the audio group; "
              "%s is %s" % (running, pid, capabilities, ART_FOLDER, art))

    def reboot(self):
        self.step("reboot: the service starts at boot, from the registry it kept")
        self.console.send("systemctl reboot\n")
        rebooted = time.monotonic()
        self.wait_for_shell("reboot to a root shell")
        self.run("mkdir -p %s && mount -o ro LABEL=payload %s" % (PAYLOAD, PAYLOAD))
        pid = self.guest("wait-active %s %d" % (SERVICE, EVENT_SECONDS), EVENT_SECONDS + 30,
                         "the service active at boot")
        # From PID 1's start: the virt board's counter runs on across a reset,
        # so the kernel's own clock does not start at the reboot.
        ready = int(self.run("systemctl show -P ActiveEnterTimestampMonotonic %s" % SERVICE))
        userspace = int(self.run("systemctl show -P UserspaceTimestampMonotonic"))
        self.figure("boot (systemd's start) to READY=1", "%.1f s (%.1f s from the reboot command to a shell)"
                    % ((ready - userspace) / 1e6, time.monotonic() - rebooted))
        self.figure("later start, registry kept", self.start_seconds())
        print("board: what the service waited for at boot:\n" +
              self.run("systemd-analyze critical-chain --no-pager %s.service | tail -n +3" % SERVICE))
        self.check_user(pid)
        self.service_pid = pid
        out = self.run("journalctl -b -u %s --no-pager -o cat | grep -ci 'registry' || true" % SERVICE)
        if out.strip() not in ("", "0"):
            print("board: note: registry lines in the journal:\n" +
                  self.run("journalctl -b -u %s --no-pager -o cat | grep -i registry" % SERVICE))

    def plug(self):
        self.plugs += 1
        n = self.plugs
        self.step("plug the stick (%d)" % n)
        since = self.lines()
        t0 = time.monotonic()
        self.monitor.command("drive_add 0 if=none,id=stick%d,format=raw,readonly=on,file=%s"
                             % (n, self.args.stick))
        self.monitor.command("device_add usb-storage,bus=xhci.0,port=1,drive=stick%d,id=usbstick%d,removable=on"
                             % (n, n))
        self.wait_line(since, r'"usbConnectionNotification".*"connected":true', EVENT_SECONDS,
                       "usbConnectionNotification connected after the plug")
        self.figure("plug to usbConnectionNotification (%d)" % n, "%.1f s" % (time.monotonic() - t0))
        self.run("findmnt -n -o SOURCE,FSTYPE,OPTIONS %s" % STICK_MOUNT, what="the stick mounted at " + STICK_MOUNT)
        self.run("systemctl is-active %s %s" % (shlex.quote(MOUNT_UNIT), STICK_UNIT),
                 what="the mount unit and the stick unit active")
        uuid = self.check_stick_uuid()
        self.check_library(uuid, t0)

    def check_library(self, uuid, plugged):
        """The plug starts a scan of the stick's tags: the library becomes
        "ready" with tracks, kept in a database named by the stick's UUID.
        Polled (libraryScanNotification goes only to clients that asked the
        library), each poll one short request."""
        deadline = time.monotonic() + EVENT_SECONDS
        while True:
            reply = self.run("usb-media-ctl --json call getLibraryStatusUSB",
                             what="getLibraryStatusUSB after the plug")
            status = json.loads(reply).get("result", {})
            if status.get("state") == "ready":
                break
            if status.get("state") == "failed" or time.monotonic() > deadline:
                raise StepFailed("the library after the plug is not ready within %d s: %s" % (EVENT_SECONDS, reply))
            time.sleep(0.5)
        if not isinstance(status.get("tracks"), int) or status["tracks"] <= 0:
            raise StepFailed("the library is ready without tracks: %s" % reply)
        self.figure("plug to library ready (%d)" % self.plugs, "%.1f s, %d tracks, %d albums, %d artists"
                    % (time.monotonic() - plugged, status["tracks"], status.get("albums", 0),
                       status.get("artists", 0)))
        database = "/var/lib/%s/tags-uuid-%s.sqlite" % (SERVICE, uuid)
        self.run("test -s %s" % shlex.quote(database), what="the stick's tag database named by its UUID")

    def check_stick_uuid(self):
        """The stick unit reported the file system's UUID as udev knows it,
        found from inside the unit's sandbox (a private /dev)."""
        self.stick_reports += 1
        uuid = self.run("udevadm info -q property --property=ID_FS_UUID --value /dev/usb-stick1",
                        what="udev's ID_FS_UUID of the stick")
        if not uuid:
            raise StepFailed("udev knows no ID_FS_UUID of the stick")
        report = "usb1: plugged reported (%s, UUID %s)" % (STICK_MOUNT, uuid)
        self.run("i=0; until [ $(journalctl -b --no-pager -o cat -u %s | grep -cF %s) -ge %d ]; do "
                 "i=$((i+1)); [ $i -gt 150 ] && exit 1; sleep 0.2; done"
                 % (STICK_UNIT, shlex.quote(report), self.stick_reports),
                 what="the stick unit's report naming the UUID: " + report)
        print("board: the stick unit reported the UUID %s" % uuid)
        return uuid

    def pull(self):
        n = self.plugs
        self.step("pull the stick mid-song (%d)" % n)
        since = self.lines()
        t0 = time.monotonic()
        self.monitor.command("device_del usbstick%d" % n)
        self.wait_line(since, r'"usbConnectionNotification".*"connected":false', EVENT_SECONDS,
                       "usbConnectionNotification not connected after the pull")
        self.figure("pull to usbConnectionNotification (%d)" % n, "%.1f s" % (time.monotonic() - t0))
        self.wait_line(since, r'"playerStateChangedNotification".*"playerState":0', EVENT_SECONDS,
                       "playback stopped (state 0) after the pull")
        self.guest("wait-ping 30", what="the service still answers after the pull")
        status = self.ctl("status")
        if "not connected" not in status and "connected: no" not in status:
            print("board: status after the pull:\n" + status)
        self.run("i=0; while findmnt -n %s >/dev/null; do i=$((i+1)); [ $i -gt 300 ] && exit 1; sleep 0.1; done"
                 % STICK_MOUNT, what="the stick unmounted after the pull")
        # The service heard of the pull before the file system went.
        order = self.run("journalctl -b --no-pager -o cat -u %s -u %s | grep -E '^(Stopped %s|Unmounting)'"
                         % (STICK_UNIT, shlex.quote(MOUNT_UNIT), STICK_UNIT),
                         what="the stick unit's stop and the unmount")
        if not order.split("\n")[0].startswith("Stopped " + STICK_UNIT):
            raise StepFailed("the file system was unmounted before the service heard of the pull:\n" + order)
        # No playlist left after the stick that held it went.
        status, out = self.try_run("usb-media-ctl next")
        if status == 0:
            raise StepFailed("next succeeded after the pull: " + out)

    def play(self, path, ticks, what):
        since = self.lines()
        self.ctl("play " + shlex.quote(path))
        self.expect_ticks(since, ticks, what)

    def expect_ticks(self, since, ticks, what):
        """`ticks` trackTimeNotifications after line `since`, about a second apart."""
        regex = r'"trackTimeNotification"'
        self.wait_line(since, regex, EVENT_SECONDS, what + ": first trackTimeNotification")
        deadline = time.monotonic() + ticks * 3 + 30
        while int(self.guest("count-lines %d %s" % (since, shlex.quote(regex)))) < ticks:
            if time.monotonic() > deadline:
                raise StepFailed("%s: fewer than %d trackTimeNotifications" % (what, ticks))
            time.sleep(1)
        stamps = [float(line.split()[0]) for line in
                  self.run("tail -n +%d /tmp/watch.log | grep trackTimeNotification" % (since + 1)).split("\n")]
        gaps = [b - a for a, b in zip(stamps, stamps[1:])][:ticks - 1]
        # A pause or seek adds one out of turn; none is asked for here.
        if not gaps or max(gaps) > 1.6 or min(gaps) < 0.4:
            raise StepFailed("%s: trackTimeNotifications not once a second: gaps %s"
                             % (what, ", ".join("%.2f" % g for g in gaps)))
        print("board: %s: trackTime every %s s" % (what, "/".join("%.2f" % g for g in gaps)))

    def check_alsa(self):
        status = self.run("cat /proc/asound/card0/pcm0p/sub0/status /proc/asound/card0/pcm0p/sub0/hw_params",
                          what="ALSA's loopback card in use")
        if "RUNNING" not in status:
            raise StepFailed("the loopback card's playback stream is not running:\n" + status)
        card = self.run("cat /proc/asound/card0/id")
        fmt = re.search(r"format: (\S+)", status)
        print("board: ALSA card %s playing, format %s" % (card, fmt.group(1) if fmt else "?"))

    def readme_play_steps(self):
        """The README's block of a stick's life, line by line: its commands run
        as written (the watching client with time stamps added), "# plug" and
        "# pull" are done through the QEMU monitor, and what each line should
        have done is checked."""
        for line in readme_steps(self.args.readme, "play", keep_comments=True):
            if line.startswith("# plug"):
                self.plug()
            elif line.startswith("# pull"):
                self.pull()
            elif line.startswith("#"):
                continue
            elif line.startswith("usb-media-ctl watch"):
                self.step("a client stays connected: " + line)
                self.guest("watch-start")
            elif line.startswith("usb-media-ctl ls"):
                listing = self.run(line, what="README step: " + line)
                for name in ("Jazz", "Rock", "Spoken", "Welcome.mp3"):
                    if name not in listing:
                        raise StepFailed("the stick's root listing lacks %s:\n%s" % (name, listing))
            elif re.match(r"usb-media-ctl (play|next|prev)\b", line):
                self.step(line)
                since = self.lines()
                self.run(line, what="README step: " + line)
                info = self.wait_line(since, r'"trackInfoNotification"', EVENT_SECONDS, line + ": the track's info")
                name = re.search(r'"fileName":"([^"]*)"', info)
                # Counted from the new track on: the old one may tick once more.
                self.expect_ticks(self.lines(), 3, name.group(1) if name else line)
                self.check_alsa()
            else:
                self.run(line, what="README step: " + line)

    def unsupported_stick(self):
        """A stick whose file system the service cannot read is reported as
        such, never mounted, and its pull reported too."""
        self.plugs += 1
        n = self.plugs
        self.step("plug a stick the service cannot read (minix)")
        since = self.lines()
        self.monitor.command("drive_add 0 if=none,id=stick%d,format=raw,readonly=on,file=%s"
                             % (n, self.args.unsupported_stick))
        self.monitor.command("device_add usb-storage,bus=xhci.0,port=1,drive=stick%d,id=usbstick%d,removable=on"
                             % (n, n))
        self.wait_line(since, r'"usbConnectionNotification".*"connected":true,"errorCode":"not_supported"',
                       EVENT_SECONDS, "the unreadable stick reported as not supported")
        status, out = self.try_run("findmnt -n %s" % STICK_MOUNT)
        if status == 0:
            raise StepFailed("the unsupported stick was mounted: " + out)
        since = self.lines()
        self.monitor.command("device_del usbstick%d" % n)
        self.wait_line(since, r'"usbConnectionNotification".*"connected":false', EVENT_SECONDS,
                       "the unsupported stick's pull reported")

    def play_again(self):
        self.step("play again after the second plug")
        self.play(STICK_MOUNT + "/Rock/Live/Encore.wav", 3, "WAV after plugging again")

    def crash(self):
        self.step("soft power-off, then SIGKILL: restarted and answering")
        self.ctl("power off")
        old = self.run("systemctl show -P MainPID %s" % SERVICE)
        self.run("systemctl kill -s KILL %s" % SERVICE)
        self.service_pid = self.guest("wait-active %s %d %s" % (SERVICE, EVENT_SECONDS, old), EVENT_SECONDS + 30,
                                      "the service restarted after SIGKILL")
        self.guest("wait-ping 60", what="the restarted service answers")
        self.guest("watch-start")

    def hang(self):
        self.step("SIGSTOP: the watchdog restarts it")
        old = self.run("systemctl show -P MainPID %s" % SERVICE)
        t0 = time.monotonic()
        self.run("kill -STOP %s" % old)
        limit = 30 + 10 + 60  # watchdog, abort time-out, restart under emulation
        self.service_pid = self.guest("wait-active %s %d %s" % (SERVICE, limit, old), limit + 30,
                                      "the service restarted by the watchdog")
        result = self.run("journalctl -b -u %s --no-pager -o cat | grep -c 'Watchdog timeout' || true" % SERVICE)
        if result.strip() in ("", "0"):
            raise StepFailed("the restart after SIGSTOP was not the watchdog's")
        self.figure("SIGSTOP to restarted by the watchdog", "%.1f s" % (time.monotonic() - t0))
        self.guest("wait-ping 60", what="the service answers after the watchdog restart")

    def idle_usage(self):
        self.step("idle figures")
        pid = self.run("systemctl show -P MainPID %s" % SERVICE)
        usage = self.guest("usage %s 10" % pid, 60)
        values = dict(item.split("=") for item in usage.split())
        self.figure("idle RSS on the board", "%s KiB" % values["rss_kib"])
        self.figure("idle CPU on the board", "%s s in 10 s" % values["cpu_s"])

    def stop(self):
        self.step("systemctl stop")
        self.guest("watch-stop")
        out = self.run("s=$(date +%s.%N); systemctl stop " + SERVICE + "; r=$?; e=$(date +%s.%N); "
                       "echo $r $(awk -v s=$s -v e=$e 'BEGIN { printf \"%.2f\", e - s }')", 60)
        status, seconds = out.split()
        result = self.run("systemctl show -P Result %s; systemctl show -P ExecMainStatus %s" % (SERVICE, SERVICE))
        limit = self.run("systemctl show -P TimeoutStopUSec %s" % SERVICE)
        if status != "0" or result.split() != ["success", "0"]:
            raise StepFailed("systemctl stop: status %s, result %s" % (status, " ".join(result.split())))
        self.figure("systemctl stop", "%s s (limit %s), exit status 0" % (seconds, limit))

    def check_journal(self):
        self.step("no error lines from the service, udev or the mount")
        checks = [
            ("the service's own error records",
             "journalctl -b --no-pager -o short-monotonic _SYSTEMD_UNIT=%s.service "
             "| grep -E '\\[(ERROR|FATAL)|^[^ ]+ [^ ]+ [^ ]+: E: ' || true" % SERVICE),
            ("error lines from udev, the mount or the stick units",
             "journalctl -b -p err --no-pager -o short-monotonic -u systemd-udevd.service "
             "-u %s -u 'usb-media-stick@*' -u 'usb-media-stick-unsupported@*' || true"
             % shlex.quote(MOUNT_UNIT)),
        ]
        lines = self.run("journalctl -b --no-pager -o cat _SYSTEMD_UNIT=%s.service | wc -l" % SERVICE)
        print("board: %s lines of the service's own in the journal, none of them an error" % lines.strip())
        for what, command in checks:
            out = self.run(command)
            lines = [line for line in out.split("\n") if line.strip() and "-- No entries --" not in line]
            if lines:
                raise StepFailed("%s:\n%s" % (what, "\n".join(lines)))

    def shutdown(self):
        if self.qemu and self.qemu.poll() is None:
            try:
                self.monitor.command("quit")
            except Exception:
                pass
            try:
                self.qemu.wait(10)
            except subprocess.TimeoutExpired:
                self.qemu.kill()
                self.qemu.wait()

    def diagnose(self):
        """What the board says about the service, after a failure."""
        try:
            print(self.try_run("systemctl status --no-pager -l %s %s %s 2>&1 | tail -n 40; "
                               "journalctl -b --no-pager -n 60 -o short-monotonic"
                               % (SERVICE, STICK_UNIT, shlex.quote(MOUNT_UNIT)), 60)[1])
        except Exception as error:  # the board may be gone
            print("board: no diagnosis: %s" % error)
        if os.path.exists(self.serial_log):
            print("board: last lines of the serial console:\n" + tail(open(self.serial_log, errors="replace").read(), 40))

    def run_all(self):
        self.boot()
        self.install()
        self.reboot()
        self.readme_play_steps()
        self.unsupported_stick()
        self.plug()
        self.play_again()
        self.crash()
        self.idle_usage()
        self.hang()
        self.stop()
        self.check_journal()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--image", required=True, help="folder with vmlinuz, initrd.img and root.img")
    parser.add_argument("--deb", required=True)
    parser.add_argument("--stick", required=True, help="FAT32 image of the stick")
    parser.add_argument("--unsupported-stick", required=True, help="image of a file system the service cannot read")
    parser.add_argument("--work", default=None)
    parser.add_argument("--readme", default="README.md")
    parser.add_argument("--image-seconds", type=int, default=None)
    args = parser.parse_args()
    if args.work is None:
        args.work = tempfile.mkdtemp(prefix="usbmedia-board-")
    scenario = Scenario(args)
    if args.image_seconds is not None:
        scenario.figure("board image build (cold)", "%d s" % args.image_seconds)
    else:
        scenario.figure("board image build", "cached")
    status = 0
    try:
        scenario.run_all()
        print("board: scenario passed in %.0f s" % (time.monotonic() - scenario.started))
    except StepFailed as failure:
        print("board: FAILED: %s" % failure, flush=True)
        scenario.diagnose()
        status = 1
    finally:
        scenario.shutdown()
    print("board: figures")
    for name, value in scenario.figures:
        print("board:   %-45s %s" % (name, value))
    return status


if __name__ == "__main__":
    sys.exit(main())
