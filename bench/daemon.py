#!/usr/bin/env python3
"""Measures the daemon itself, with the reference module host and no module.

    bench/daemon.py ZORN LIBRARY_FOLDER [SECONDS_AT_REST]

Time from start to "Waiting for signals" less the one second that the start sleeps (median of 5),
resident memory, and wake-ups at rest (context switches of all its threads). Needs root.
Exit status 1 if a bar is missed: 10 ms, 4 MB, no wake-up.
"""
import os
import pathlib
import signal
import statistics
import subprocess
import sys
import tempfile
import time


def switches(pid):
    total = 0
    for status in pathlib.Path(f"/proc/{pid}/task").glob("*/status"):
        for line in status.read_text().splitlines():
            if "ctxt_switches" in line:
                total += int(line.split()[1])
    return total


def start(zorn, libraries, folder):
    log = pathlib.Path(folder, "log.zorn")
    log.unlink(missing_ok=True)
    environment = {"LD_LIBRARY_PATH": libraries, "QX_LOG_RINGBUF_DIR": folder,
                   "ZORN_MODULE_DIR": folder, "PATH": os.environ["PATH"]}
    begin = time.monotonic()
    daemon = subprocess.Popen([zorn], env=environment)
    while not (log.exists() and "Waiting for signals" in log.read_text()):
        if daemon.poll() is not None:
            sys.exit(f"{zorn} ended with {daemon.returncode}")
        time.sleep(0.0005)
    return daemon, time.monotonic() - begin - 1


def main():
    zorn, libraries = (os.path.abspath(path) for path in sys.argv[1:3])
    rest = float(sys.argv[3]) if len(sys.argv) > 3 else 10
    with tempfile.TemporaryDirectory() as folder:
        times = []
        for _ in range(5):
            daemon, seconds = start(zorn, libraries, folder)
            times.append(seconds)
            daemon.send_signal(signal.SIGTERM)
            daemon.wait()
        daemon, _ = start(zorn, libraries, folder)
        status = pathlib.Path(f"/proc/{daemon.pid}/status").read_text()
        resident = int(status.split("VmRSS:")[1].split()[0]) / 1024
        before = switches(daemon.pid)
        time.sleep(rest)
        wakeups = switches(daemon.pid) - before
        daemon.send_signal(signal.SIGTERM)
        daemon.wait()
    start_ms = statistics.median(times) * 1000
    rows = [("start to ready less 1 s", f"{start_ms:.1f} ms", start_ms < 10),
            ("resident at rest", f"{resident:.1f} MB", resident < 4),
            (f"wake-ups in {rest:g} s at rest", str(wakeups), wakeups == 0)]
    for what, figure, good in rows:
        print(f"  {'ok    ' if good else 'MISSED'} {what:<40} {figure}")
    return 0 if all(good for *_, good in rows) else 1


sys.exit(main())
