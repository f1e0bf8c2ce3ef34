#!/usr/bin/python3
"""The window of orvane-desktop, used as a screen reader uses it, on a screen that nobody sees.

window_test.py BUILD_FOLDER
"""
import array
import cmath
import math
import operator
import os
import pathlib
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from session import Session, wait_until

BUILD = pathlib.Path(sys.argv[1]).resolve()
RATE, LOW_HZ, HIGH_HZ = 48000, 100, 1000


def level(values, hertz):
    """The level of one tone: the median of spans of 10 ms, so that a dropped buffer doesn't count."""
    turns = [cmath.exp(-2j * math.pi * hertz * n / RATE) for n in range(RATE // 100)]
    spans = [values[at:at + len(turns)] for at in range(0, len(values) - len(turns), len(turns))]
    sizes = [abs(sum(map(operator.mul, span, turns))) for span in spans]
    return 20 * math.log10(max(1e-9, statistics.median(sizes)))


def heard(session):
    """The low tone against the high one, and the power of both together, in dB."""
    session.start("recorder", "pw-record", "--target", "speakers", "-P", '{ "stream.capture.sink": true }',
                  "--rate", str(RATE), "--channels", "1", "--format", "f32", "heard.wav")
    wait_until("a recording", lambda: "pw-record" in session.linked_to("speakers"))
    time.sleep(1.5)
    session.stop("recorder", signal.SIGINT)
    raw = subprocess.run(["ffmpeg", "-v", "error", "-ss", "0.4", "-i", "heard.wav", "-t", "1", "-f", "f32le",
                          "-"], capture_output=True, check=True).stdout
    values = array.array("f", raw)
    low, high = level(values, LOW_HZ), level(values, HIGH_HZ)
    return low - high, 10 * math.log10(10 ** (low / 10) + 10 ** (high / 10))


def find(name, roles, node=None):
    """The first thing on the screen with this name and one of these roles."""
    if node is None:
        while GLib.MainContext.default().iteration(False):
            pass  # news of windows that came and went
        node = Atspi.get_desktop(0)
    if node.get_name() == name and node.get_role_name() in roles:
        return node
    for index in range(node.get_child_count()):
        child = node.get_child_at_index(index)
        found = child and find(name, roles, child)
        if found:
            return found
    return None


def press(name, roles=("push button", "check box", "toggle button")):
    wait_until(f"{name} on the screen", lambda: (found := find(name, roles)) and found.do_action(0))


def is_pressed(name):
    return find(name, ("push button", "toggle button")).get_state_set().contains(Atspi.StateType.PRESSED)


def check(session):
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    f"aevalsrc=0.01*sin({LOW_HZ}*2*PI*t)+0.01*sin({HIGH_HZ}*2*PI*t):s={RATE}:d=120",
                    "tones.wav"], check=True)
    session.play("tones.wav")
    session.start("window", "orvane-desktop", "window")
    press("Turn On")
    wait_until("routed", lambda: session.heard_on() == ({"speakers"}, True))
    press("Bass")
    wait_until("bass", lambda: "lo-contour 0.3" in session.orvane("status"))
    time.sleep(5)  # the levels of the last 3 s are those of the preset
    for _ in range(12):  # a busy machine drops buffers here and there
        press("After")
        tilt, loudness = heard(session)
        press("Before")
        before_tilt, before_loudness = heard(session)
        print(f"  after: low tone {tilt:+.1f} dB, before: {before_tilt:+.1f} dB, "
              f"{before_loudness - loudness:+.2f} dB louder")
        if 4 < tilt < 8 and abs(before_tilt) < 0.5 and abs(before_loudness - loudness) < 0.7:
            break
    else:
        raise AssertionError("before and after")
    # Each output has its own settings, and they come back with it.
    session.choose("headset")
    press("Night")
    wait_until("night", lambda: "ratio 3" in session.orvane("status"))
    session.choose("speakers")
    wait_until("bass again", lambda: is_pressed("Bass") and is_pressed("After"))
    session.choose("headset")
    wait_until("night again", lambda: is_pressed("Night"))
    # Somebody else changes the settings all the time. A press isn't lost among the events of it.
    busy = subprocess.Popen(["sh", "-c", "while orvane-desktop set ratio 4 && orvane-desktop set ratio 3; do :; done"])
    press("headset")
    wait_until("off here", lambda: session.heard_on() == ({"headset"}, False))
    busy.terminate()
    busy.wait()
    session.choose("speakers")
    press("player")
    wait_until("left out", lambda: "left out" in session.orvane("status"))
    press("player")
    wait_until("back", lambda: session.heard_on() == ({"speakers"}, True))
    # A change from elsewhere is shown. Closing the window while before is heard leaves the effect on.
    session.orvane("on", "music")
    wait_until("music", lambda: is_pressed("Music"))
    press("Before")
    press("Close")
    session.processes.pop("window").wait(timeout=10)
    wait_until("the effect again", lambda: heard(session)[0] > 2)
    # Without a sound server, the window says so.
    session.start("window", "orvane-desktop", "window")
    wait_until("a window", lambda: find("Music", ("push button", "toggle button")))
    session.stop("manager", signal.SIGKILL)
    session.stop("server", signal.SIGKILL)
    press("Turn On")
    wait_until("the reason", lambda: find("No PipeWire is running", ("label",)))
    session.stop("window")


def in_session():
    """Runs this program again, with a screen and a bus of its own."""
    screen = subprocess.Popen(["Xvfb", "-noreset", "-displayfd", "1"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    number = screen.stdout.readline().decode().strip()
    try:
        return subprocess.run(["dbus-run-session", "--", *sys.argv], check=False, env={
            **os.environ, "ORVANE_IN_SESSION": "1", "DISPLAY": f":{number}", "GDK_BACKEND": "x11",
            "GSK_RENDERER": "cairo", "LC_ALL": "C.UTF-8"}).returncode
    finally:
        screen.terminate()  # it then takes its lock away
        screen.wait()


missing = [p for p in ("Xvfb", "wireplumber", "pw-cat", "dbus-run-session", "ffmpeg") if not shutil.which(p)]
try:
    import gi
    gi.require_version("Atspi", "2.0")
    from gi.repository import Atspi, GLib
    Atspi.set_timeout(20000, 20000)
except (ImportError, ValueError):
    missing.append("AT-SPI")
if missing:
    print(f"skipped: no {missing[0]}")
elif "ORVANE_IN_SESSION" not in os.environ:
    sys.exit(in_session())
else:
    with tempfile.TemporaryDirectory() as installed:
        subprocess.run(["cmake", "--install", BUILD, "--prefix", installed], check=True,
                       stdout=subprocess.DEVNULL)
        with Session(installed) as desktop:
            check(desktop)
