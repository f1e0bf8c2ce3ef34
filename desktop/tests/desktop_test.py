#!/usr/bin/env python3
"""Everything that docs/desktop.md promises, in a desktop without a screen.

desktop_test.py BUILD_FOLDER [ROUNDS [CHECK...]]
    ROUNDS: random steps to try, 12 if not given. CHECK: names of functions below, all if not given.
"""
import array
import collections
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import stat
import statistics
import subprocess
import sys
import tempfile
import time

from session import Session, wait_until

BUILD = pathlib.Path(sys.argv[1]).resolve()
ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 12


def make_sound(file, rate, seconds, expression):
    """Stereo, 16 bits, with half a second of silence before and after."""
    subprocess.run(["ffmpeg", "-y", "-v", "error", "-f", "lavfi", "-i",
                    f"aevalsrc={expression}:s={rate}:d={seconds}", "-af",
                    "adelay=500|500,apad=pad_dur=0.5", "-c:a", "pcm_s16le", file], check=True)


def samples(file):
    """Interleaved 16-bit samples of any audio file."""
    raw = subprocess.run(["ffmpeg", "-v", "error", "-i", file, "-f", "s16le", "-"],
                         capture_output=True, check=True).stdout
    return array.array("h", raw)


def windows(values):
    """All runs of 16 stereo frames that aren't silent."""
    raw = values.tobytes()
    return {raw[at:at + 64] for at in range(0, len(raw) - 63, 4) if any(raw[at:at + 64])}


def record(session, file, rate, output="speakers", channels=2, links=()):
    """Records an output, or the ports that `links` name, until stop_recording."""
    target = ["--target", "0"] if links else ["--target", output, "-P", '{ "stream.capture.sink": true }']
    session.start("recorder", "pw-record", *target, "--rate", str(rate), "--channels", str(channels),
                  "--format", "f32", file)
    wait_until("a recorder", lambda: session.number("pw-record") is not None)
    if links:
        ports = [f"pw-record:input_{name}" for name in ("FL", "FR")]
        wait_until("its ports", lambda: all(p in session.run("pw-link", "-i").stdout for p in ports))
        for start, port in zip(links, ports):
            wait_until(f"a link from {start}",
                       lambda: session.run("pw-link", start, port).returncode == 0)
    else:
        wait_until("a recording", lambda: "pw-record" in session.linked_to(output))


def stop_recording(session):
    time.sleep(0.3)
    session.stop("recorder", signal.SIGINT)


def level(values):
    """The median of the levels of 10 ms each, so that a dropped buffer doesn't count."""
    return statistics.median(sum(v * v for v in values[at:at + 480]) ** 0.5
                             for at in range(0, len(values) - 479, 480))


def plays_the_renderers_samples(session):
    rate = session.rate
    make_sound("in.wav", rate, 2, "0.4*(2*random(0)-1)|0.3*sin(900*t)*(2*random(1)-1)")
    # What lies beside the equalizer's delay is the same whenever the chain was started.
    pathlib.Path("settings").write_text("eq = -0.2,1,0.8,0.05,-0.05,-0.15,0,-0.1,0.05,-0.05\n"
                                        "output-gain = -6dB\n")
    session.orvane("on", "settings")
    subprocess.run(["orvane", "render", "in.wav", "wanted.wav", "-q", "--preset", "settings",
                    "--cold-start", "--keep-delay", "--no-dither", "--buffer", "770"], check=True)
    wanted = windows(samples("wanted.wav"))
    share = 0.0
    for _ in range(5):  # a busy machine drops buffers here and there, and more than that is refused
        record(session, "out.wav", rate)
        session.run("pw-cat", "-p", "in.wav")
        stop_recording(session)
        share = max(share, len(wanted & windows(samples("out.wav"))) / len(wanted))
        if share == 1:
            break
    print(f"  {rate} Hz: {100 * share:.1f} % of the renderer's samples")
    assert share > 0.25  # without the effect, or with one sample wrong in 16, it is 0


def tells_its_latency(session):
    """An impulse, recorded before and after in one stream. The told latency counts quanta apart."""
    rate = session.rate
    pathlib.Path("limiters").write_text("output-gain = 1\n")
    session.orvane("on", "limiters")
    make_sound("impulse.wav", rate, 3, "0.5*eq(floor(t*%d)\\,%d)" % (rate, rate))
    told = measured = None
    for _ in range(5):  # a busy machine drops buffers here and there
        session.play("impulse.wav")
        wait_until("routed", lambda: session.heard_on()[1])
        record(session, "both.wav", rate, links=("player:output_FL", "speakers:monitor_FL"))
        dump = session.dump()
        session.processes["player"].wait()
        stop_recording(session)
        node = next(item for item in dump if Session.properties(item).get("node.name") == "orvane")
        latency = next(entry for entry in node["info"]["params"]["Latency"]
                       if entry["direction"] == "Input")
        told = round(latency["minNs"] * rate / 1e9) + 256 * round(latency["minQuantum"])
        both = samples("both.wav")
        before, after = (max(range(len(both) // 2), key=lambda n: abs(both[2 * n + side]))
                         for side in (0, 1))
        measured = after - before
        print(f"  {rate} Hz: told {told} frames, measured {measured}")
        if abs(told - measured) <= (1 if rate <= 48000 else 256):
            return
    raise AssertionError(f"told {told}, measured {measured}")


def keys_act_behind_the_effect(session):
    """The volume of the output at half (-18.06 dB) lowers the result by exactly that."""
    session.play("tone.wav")
    wait_until("routed", lambda: session.heard_on()[1])
    session.run("wpctl", "set-volume", str(session.number("speakers")), "0.5")
    time.sleep(0.5)
    record(session, "both.wav", 48000, links=("orvane.out:output_FL", "speakers:monitor_FL"))
    time.sleep(2)
    stop_recording(session)
    session.run("wpctl", "set-volume", str(session.number("speakers")), "1.0")
    session.stop("player")
    both = samples("both.wav")
    ratio = level(both[1::2]) / level(both[::2])
    assert 0.1222 < ratio < 0.1280, f"half the volume gives {ratio}"


def keeps_a_profile_for_each_output(session):
    session.play("tone.wav")
    session.choose("headset")
    wait_until("on the headset", lambda: session.heard_on() == ({"headset"}, True))
    session.orvane("on", "music")
    session.choose("speakers")
    wait_until("night again", lambda: "ratio 3" in session.orvane("status"))
    session.choose("headset")
    wait_until("music again", lambda: "process 1.2" in session.orvane("status"))
    session.orvane("off", "--for", "headset")
    wait_until("direct", lambda: session.heard_on() == ({"headset"}, False))
    session.orvane("set", "output-gain", "-20dB", "--for", "speakers")
    assert "-20.0 dB" in session.orvane("devices")
    session.choose("speakers")
    wait_until("on again", lambda: session.heard_on() == ({"speakers"}, True))
    session.orvane("leave-out", "PLAYER")
    wait_until("left out", lambda: not session.heard_on()[1])
    session.orvane("bring-back", "player")
    wait_until("back", lambda: session.heard_on()[1])
    assert "outside 0 to 10" in session.orvane("set", "ratio", "11", status=1)
    session.stop("player")


def leaves_a_listeners_own_target(session):
    session.play("tone.wav")
    wait_until("routed", lambda: session.heard_on()[1])
    session.run("pw-metadata", str(session.number("player")), "target.object",
                str(session.nodes()[session.number("headset")]["object.serial"]), "Spa:Id")
    wait_until("the listener's choice", lambda: session.heard_on() == ({"headset"}, False))
    session.stop("player")
    # The session manager brings the choice back with the next player of that name.
    session.play("tone.wav")
    wait_until("the choice again", lambda: session.heard_on() == ({"headset"}, False))
    time.sleep(0.5)
    assert session.heard_on() == ({"headset"}, False)
    session.orvane("off")
    time.sleep(0.5)
    assert session.heard_on() == ({"headset"}, False)


def answers_every_line(session):
    path = session.folder / "run/orvane-desktop"
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(str(path))
        file = connection.makefile("rw")
        for line in ("", "hello", "[]", '{"do": 3}', '{"do": "sing"}', '{"do": "set", "key": "ratio"}',
                     '{"do": "on", "settings": 5}', '{"do": "off", "for": []}', "[" * 30000, "\0"):
            file.write(line + "\n")
            file.flush()
            answer = json.loads(file.readline())
            assert answer["ok"] is False and answer["error"], f"{line[:20]}: {answer}"
        connection.sendall(b"x" * 200000)  # no line: the connection ends, the client doesn't
    assert "on, for" in session.orvane("status")


def survives_failures(session):
    session.play("tone.wav")
    state = pathlib.Path("config/orvane/desktop.json")
    # Killed: the sound goes on directly, and the next client finds everything as it was.
    session.kill_client()
    wait_until("direct", lambda: session.heard_on() == ({"speakers"}, False))
    assert session.orvane("status").startswith("off")
    session.orvane("on", "night")
    wait_until("routed", lambda: session.heard_on() == ({"speakers"}, True))
    # Only one runs.
    assert "already" in session.orvane("run", status=1)
    # Off: no entry and no process is left behind.
    session.orvane("off")
    wait_until("direct", lambda: session.heard_on() == ({"speakers"}, False))
    assert not [key for key in session.metadata() if key[1] == "target.object"]
    assert session.number("orvane") is None
    # A profile that an update has narrowed, and a broken file.
    text = json.loads(state.read_text())
    text["profiles"]["speakers"] = {"settings": ["ratio = 99", "output-gain = 0.5"]}
    state.write_text(json.dumps(text))
    answer = session.orvane("on")
    assert "ratio = 99" in answer and "is ignored" in answer, answer
    assert "output-gain 0.5" in session.orvane("status")
    session.orvane("off")
    state.write_text("{")
    assert "broken" in session.orvane("on", "night")
    assert "ratio 3" in session.orvane("status")
    assert state.with_name("desktop.json.broken").exists()
    json.loads(state.read_text())
    # The server ends: so does the client.
    session.stop("player")
    session.stop("manager", signal.SIGKILL)
    session.stop("server", signal.SIGKILL)
    wait_until("the client's end", 
               lambda: session.run("orvane-desktop", "status").stdout.startswith("off"))
    assert "no PipeWire" in session.orvane("on", status=1)


def keeps_the_older_settings(session):
    """A full disk leaves the file as it was; the change is heard all the same."""
    state = pathlib.Path("config/orvane/desktop.json")
    before = state.read_text()
    full = session.folder / "config/orvane"
    if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4k", "none", str(full)],
                      capture_output=True).returncode != 0:
        print("  not tried: a full disk (no right to mount one)")
        return
    try:
        (full / "desktop.json").write_text(before + " " * (4096 - len(before) % 4096))
        answer = session.orvane("set", "output-gain", "-20dB", status=1)
        assert "No space left" in answer, answer
        assert "-20.0 dB" in session.orvane("status")
        assert (full / "desktop.json").read_text().startswith(before)
    finally:
        subprocess.run(["umount", str(full)], check=True)


def stays_on_the_right_output(session):
    """After each step the sound is where it would be without Orvane."""
    random.seed(1)
    rounds = ROUNDS
    session.orvane("off")
    subprocess.run(["ffmpeg", "-v", "error", "-stream_loop", str(rounds), "-i", "tone.wav", "-c",
                    "copy", "long.wav"], check=True)
    chosen, plugged, is_on = "speakers", set(session.outputs), False
    session.choose(chosen)
    session.play("long.wav")
    late, steps = 0, collections.Counter()
    for turn in range(rounds):
        step = random.choice(("on", "off", "choose", "plug", "plug", "kill client", "kill manager"))
        if step == "on":
            session.orvane("on", random.choice(("night", "music", "voice")))
            is_on = True
        elif step == "off":
            session.orvane("off")
            is_on = False
        elif step == "choose":
            chosen = random.choice(sorted(plugged))
            session.choose(chosen)
        elif step == "plug":
            name = random.choice(sorted(session.outputs))
            if name in plugged and len(plugged) > 1:
                session.unplug(name)
                plugged.remove(name)
            elif name not in plugged:
                session.plug(name)
                plugged.add(name)
        elif step == "kill client":
            session.kill_client()
            is_on = False
        else:  # outputs that outlive a manager stay dead, and players are lost, also without us
            session.stop("player")
            for name in plugged:
                session.unplug(name)
            session.stop("manager", signal.SIGKILL)
            session.start_manager()
            for name in plugged:
                session.plug(name)
            time.sleep(0.5)
            session.play("long.wav")
        expected = {chosen if chosen in plugged else max(plugged, key=session.outputs.get)}, is_on

        def is_right():
            # Without us, a player may end with its output.
            if not is_on and session.processes["player"].poll() is not None:
                session.play("long.wav")
            return session.heard_on() == expected

        time.sleep(1)
        steps[step] += 1
        if not is_right():
            late += 1
            print(f"  round {turn}, {step}: after 1 s {session.heard_on()}, not {expected}", flush=True)
            wait_until(f"round {turn}, {step}: the right output", is_right)
    print(f"  {rounds - late} of {rounds} right after 1 s, all in the end; {dict(steps)}")
    session.stop("player")


CHECKS = {
    plays_the_renderers_samples: (44100, 48000),
    tells_its_latency: (44100, 48000, 96000),
    keys_act_behind_the_effect: (48000,),
    keeps_a_profile_for_each_output: (48000,),
    leaves_a_listeners_own_target: (48000,),
    answers_every_line: (48000,),
    keeps_the_older_settings: (48000,),
    survives_failures: (48000,),
    stays_on_the_right_output: (48000,),
}


def main():
    if os.environ.get("ORVANE_IN_SESSION") != "1":
        for program in ("pipewire", "wireplumber", "pw-cat", "wpctl", "pw-dump", "dbus-run-session"):
            if shutil.which(program) is None:
                print(f"skipped: no {program}")
                return 0
        return subprocess.run(["dbus-run-session", "--", sys.executable, *sys.argv],
                              env={**os.environ, "ORVANE_IN_SESSION": "1"}, check=False).returncode
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True,
                       stdout=subprocess.DEVNULL)
        for check, rates in CHECKS.items():
            if len(sys.argv) > 3 and check.__name__ not in sys.argv[3:]:
                continue
            for rate in rates:
                with Session(prefix, rate) as session:
                    print(f"{check.__name__}, {rate} Hz", flush=True)
                    make_sound("tone.wav", rate, 60, "0.25*sin(2*PI*440*t)")
                    session.orvane("on", "night")
                    check(session)
    return 0


sys.exit(main())
