#!/usr/bin/env python3
"""Everything that docs/desktop.md promises, in a desktop without a screen.

desktop_test.py BUILD_FOLDER [ROUNDS [CHECK...]]
    ROUNDS: random steps to try, 12 if not given; the environment variable SEED chooses other steps. CHECK:
    names of functions below; if not given, all.
"""
import collections
import json
import os
import pathlib
import random
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import time

from session import (Session, make_sound, record, recorded, right_to_left, samples, wait_for_end, wait_until,
                     windows)

BUILD = pathlib.Path(sys.argv[1]).resolve()
ROUNDS = int(sys.argv[2]) if len(sys.argv) > 2 else 12
NEEDED = ("pipewire", "wireplumber", "pw-cat", "wpctl", "pw-dump", "dbus-run-session")
PRESETS = ("music", "bass", "steady", "night", "voice", "loud", "off")
# Requests that must be refused.
NONSENSE = ("", "hello", "[]", '{"do": 3}', '{"do": "sing"}', '{"do": "set", "key": "ratio"}',
            '{"do": "on", "settings": 5}', '{"do": "off", "for": []}', "[" * 30000, "\0",
            '{"do": "bypass", "gain_db": 99}',
            '{"do": "on", "settings": [' + 30000 * "[" + 30000 * "]" + "]}")


def plays_the_renderers_samples(session):
    make_sound("in.wav", session.rate, 2, "0.4*(2*random(0)-1)|0.3*sin(900*t)*(2*random(1)-1)")
    # With these settings the samples don't depend on when the chain was started.
    pathlib.Path("settings").write_text("eq = -0.2,1,0.8,0.05,-0.05,-0.15,0,-0.1,0.05,-0.05\n"
                                        "output-gain = -6dB\n")
    session.orvane("on", "settings")
    subprocess.run(["orvane", "render", "in.wav", "wanted.wav", "-q", "--preset", "settings",
                    "--cold-start", "--keep-delay", "--no-dither", "--buffer", "770"], check=True)
    wanted, share = windows(samples("wanted.wav")), 0
    for _ in range(5):  # a busy machine drops buffers here and there, and more than that is refused
        record(session)
        session.run("pw-cat", "-p", "in.wav")
        share = max(share, len(wanted & windows(recorded(session))) / len(wanted))
        if share == 1:
            break
    print(f"  {100 * share:.1f} % of the renderer's samples")
    assert share > 0.25  # without the effect, or with one sample wrong in 16, it is 0


def tells_its_latency(session):
    """An impulse, recorded before and after in one stream. The told latency counts quanta apart."""
    pathlib.Path("limiters").write_text("output-gain = 1\n")
    session.orvane("on", "limiters")
    make_sound("impulse.wav", session.rate, 3, f"0.5*eq(floor(t*{session.rate})\\,{session.rate})")
    wrong = []
    while len(wrong) < 5:  # a busy machine drops buffers here and there
        session.play("impulse.wav")
        session.hears("speakers")
        wait_until("the least latency", lambda: "latency 1025 frames" in session.orvane("status"))
        record(session, links=("player:output_FL", "speakers:monitor_FL"))
        told = session.told_latency()
        session.processes["player"].wait()
        both = recorded(session)
        before, after = (max(range(len(both) // 2), key=both[side::2].__getitem__) for side in (0, 1))
        print(f"  told {told} frames, measured {after - before}")
        if abs(told - after + before) <= (1 if session.rate <= 48000 else 256):
            return
        wrong.append((told, after - before))
    raise AssertionError(wrong)


def keys_act_behind_the_effect(session):
    """The volume of the output at half (-18.06 dB) lowers the result by exactly that."""
    session.play_through()
    session.run("wpctl", "set-volume", str(session.number("speakers")), "0.5")
    for preset in PRESETS:
        session.orvane("on", preset)
        time.sleep(0.7)  # until the new preset alone is heard
        ratios = []
        while not (ratios and 0.1230 < ratios[-1] < 0.1288):  # a busy machine drops buffers here and there
            assert len(ratios) < 5, f"{preset}: half the volume gives {ratios}"
            record(session, links=("orvane.out:output_FL", "speakers:monitor_FL"))
            time.sleep(1)
            ratios.append(right_to_left(recorded(session)[-48000:]))


def keeps_a_profile_for_each_output(session):
    session.play("tone.wav")
    session.choose("headset")
    session.hears("headset")
    wait_until("the last settings", lambda: "ratio 3" in session.orvane("status"))
    session.orvane("on", "music")
    for output, word in (("speakers", "ratio 3"), ("headset", "process 1.2")):
        session.choose(output)
        wait_until(f"{word} again", lambda: word in session.orvane("status"))
    assert "* headset" in session.orvane("devices")
    session.orvane("set", "output-gain", "-20dB", "--for", "speakers")
    assert "-20.0 dB" in session.orvane("devices") and "-20.0 dB" not in session.orvane("status")
    assert "orvane" not in session.orvane("devices")  # nobody can choose it, and it never becomes the default
    for command, output, through in (
            ("off --for headset", "headset", False), ("status", "speakers", True),
            ("leave-out PLAYER", "speakers", False), ("bring-back player", "speakers", True),
            ("off", "speakers", False), ("on", "speakers", True), ("status", "headset", False)):
        session.choose(output)
        session.orvane(*command.split())
        session.hears(output, through)
    assert "outside 0 to 10" in session.orvane("set", "ratio", "11", status=1)


def leaves_a_listeners_own_target(session):
    # A player that refuses to be moved would end with the client.
    session.play("tone.wav", "fixed", **{"node.dont-reconnect": "true"})
    session.play_through()
    assert session.heard_on("fixed") == ({"speakers"}, False)
    assert "fixed: has an output of its own" in session.orvane("status")
    for output in ("speakers", "headset"):
        session.run("pw-metadata", str(session.number("player")), "target.object",
                    str(session.nodes()[session.number(output)]["object.serial"]), "Spa:Id")
        session.hears(output, False)
        time.sleep(0.7)
        assert session.heard_on() == ({output}, False)
    entries, processes = session.targets(), session.client()
    session.kill_client()
    wait_for_end(processes)
    assert session.targets() == entries and len(entries) == 1
    session.orvane("on")
    session.stop("player")
    for command in ("status", "off"):  # the session manager brings the choice back
        session.play("tone.wav")
        session.hears("headset", False)
        session.orvane(command)
        time.sleep(0.5)
        assert session.heard_on() == ({"headset"}, False)
        session.stop("player")


def answers_every_line(session):
    path = session.folder / "run/orvane-desktop"
    assert stat.S_IMODE(path.stat().st_mode) == 0o600
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect(str(path))
        file = connection.makefile("rw")
        for line in NONSENSE:
            file.write(line + "\n")
            file.flush()
            answer = json.loads(file.readline())
            assert answer["ok"] is False and answer["error"], f"{line[:20]}: {answer}"
        connection.sendall(b"x" * 200000)  # no line: the connection ends, the client doesn't
    assert "on, for" in session.orvane("status")


def bypasses_while_somebody_asks(session):
    """Bypass outlives the session manager, but not the connection that asked for it."""
    def gain_db():
        time.sleep(1.5)  # the levels are those of a third of a second
        return json.loads(session.orvane("status", "--json"))["levels"]["gain_db"]

    session.orvane("on", "off")
    session.orvane("set", "output-gain", "-20dB")
    session.play("tone.wav")
    with socket.socket(socket.AF_UNIX) as connection:
        connection.connect("run/orvane-desktop")
        connection.sendall(b'{"do": "bypass"}\n')
        assert abs(gain_db()) < 1
        session.restart_manager()
        session.hears("speakers")
        assert abs(gain_db()) < 1
    wait_until("the effect again", lambda: -21 < gain_db() < -19)


def follows_although_changes_are_hidden(session):
    """PipeWire hides changes of entries while a program begins to read them, for ever if it is killed then."""
    session.play_through()
    session.processes["manager"].send_signal(signal.SIGSTOP)
    session.start("reader", "pw-metadata")
    time.sleep(0.3)
    session.stop("reader", signal.SIGKILL)
    session.processes["manager"].send_signal(signal.SIGCONT)
    for word, through in (("leave-out", False), ("bring-back", True)):
        session.orvane(word, "player")
        session.hears("speakers", through)
        assert json.loads(session.orvane("status", "--json"))["players"][0]["routed"] == through
    time.sleep(1)  # a volume control erases our entry, long after we wrote it
    entry = (session.number("player"), "target.object")
    session.run("pw-metadata", "-d", *map(str, entry))
    wait_until("our entry again", lambda: session.metadata().get(entry) == "orvane")
    session.hears("speakers")
    for _ in range(200):  # asked again and again, in vain
        session.run("pw-metadata", "-d", *map(str, entry))
    session.hears("speakers")
    time.sleep(1)  # the listener chooses the default output for this player
    session.run("pw-metadata", *map(str, entry), "speakers", "Spa:String")
    session.hears("speakers", False)
    time.sleep(1)
    assert session.heard_on() == ({"speakers"}, False)
    session.run("pw-metadata", "-d", *map(str, entry))
    session.stop("player")
    session.play_through()
    # A program whose question no manager answers any more is never answered by the server either.
    session.processes["manager"].send_signal(signal.SIGSTOP)
    session.orvane("leave-out", "player")
    time.sleep(0.3)
    session.stop("manager", signal.SIGKILL)
    session.restart_manager()
    session.orvane("bring-back", "player")
    session.hears("speakers")


def outlives_an_update(session):
    """The program on the disk is replaced while it runs, as a package does."""
    session.play_through()
    program = pathlib.Path(shutil.which("orvane-desktop"))
    shutil.copy2(program, "new")
    os.replace(program, "old")
    shutil.move("new", program)
    for command in ("status", "set ratio 2", "off", "on night"):
        session.orvane(*command.split())
    session.hears("speakers")


def survives_failures(session):
    session.play_through()
    state = pathlib.Path("config/orvane/desktop.json")
    session.orvane("leave-out", "another player")
    # Killed: the sound goes on directly, nothing is left behind, and the next client knows the settings.
    processes = session.client()
    assert session.targets() == {session.number("player"): "orvane"} and len(processes) == 2
    session.kill_client()
    wait_for_end(processes)
    session.hears("speakers", False)
    assert not session.targets()
    assert session.orvane("status").startswith("off")
    session.orvane("on")
    session.hears("speakers")
    assert "ratio 3" in session.orvane("status")
    assert json.loads(session.orvane("status", "--json"))["left_out"] == ["another player"]
    assert "already" in session.orvane("run", status=1)
    # Killed together with the process that cleans up, a client leaves the entry to the next one.
    session.kill_client(2)
    session.hears("speakers", False)
    assert session.targets()
    session.orvane("off", "--for", "speakers")
    session.start("client", "orvane-desktop", "run")
    wait_until("no entry", lambda: not session.targets())
    # Off: no entry and no process is left behind.
    session.orvane("on")
    session.hears("speakers")
    processes = session.client()
    session.orvane("off")
    session.hears("speakers", False)
    assert not session.targets() and session.number("orvane") is None
    session.processes.pop("client").wait()
    wait_for_end(processes)
    # A profile that an update has narrowed, a broken file, and the file of an older version.
    narrowed = json.loads(state.read_text())
    narrowed["profiles"]["speakers"] = {"settings": ["ratio = 99", "output-gain = 0.5"]}
    for text, command, told, wanted in (
            (json.dumps(narrowed), ["on"], '"ratio = 99" is ignored', "output-gain 0.5"),
            (json.dumps(narrowed), ["on", "night"], '"ratio = 99" is ignored', "ratio 3"),
            ("{", ["on", "night"], "broken", "ratio 3"), (None, ["on"], "", "ratio 7")):
        if text is None:
            state.unlink()
            state.with_suffix("").write_text("playback-gain = on\nratio = 7\n")
        else:
            state.write_text(text)
        assert told in session.orvane(*command) and wanted in session.orvane("status"), told
        session.orvane("off")
    assert state.with_name("desktop.json.broken").read_text() == "{"
    # The server ends, and so does the client. Later everything is as before.
    session.orvane("on", "night")
    for name in ("player", "manager", "server"):
        session.stop(name, signal.SIGKILL)
    wait_until("the end", lambda: session.run("orvane-desktop", "status").stdout.startswith("off"))
    assert "no PipeWire" in session.orvane("on", status=1)
    session.start_server()
    session.orvane("on")
    session.play_through()


def keeps_the_older_settings(session):
    """A full disk leaves the file as it was; the change is heard all the same."""
    state = pathlib.Path("config/orvane/desktop.json")
    before = state.read_text()
    if session.run("mount", "-t", "tmpfs", "-o", "size=4k", "none", str(state.parent)).returncode != 0:
        print("  not tried: a full disk (no right to mount one)")
        return
    try:
        state.write_text(before + " " * (4096 - len(before) % 4096))
        assert "No space left" in session.orvane("set", "output-gain", "-20dB", status=1)
        assert "-20.0 dB" in session.orvane("status")
        assert state.read_text().startswith(before) and list(state.parent.iterdir()) == [state]
    finally:
        session.run("umount", str(state.parent))


def stays_on_the_right_output(session):
    """After each step the sound is where it would be without Orvane."""
    random.seed(int(os.environ.get("SEED", "1")))
    make_sound("tone.wav", 48000, 60 + 10 * ROUNDS, "0.25*sin(2*PI*440*t)")
    chosen, plugged, is_on, late, steps = "speakers", set(session.outputs), True, 0, collections.Counter()
    session.choose(chosen)
    session.play("tone.wav")
    for turn in range(ROUNDS):
        step = random.choice(("on", "off", "choose", "plug", "plug", "kill client", "kill manager"))
        if step in ("on", "off"):
            session.orvane(*(("on", random.choice(PRESETS)) if step == "on" else ("off",)))
            is_on = step == "on"
        elif step == "choose":
            chosen = random.choice(sorted(plugged))
            session.choose(chosen)
        elif step == "plug":
            name = random.choice(sorted(session.outputs))
            step = "unplug" if plugged > {name} else "plug"
            if step == "unplug":
                session.unplug(name)
                plugged.remove(name)
            elif name not in plugged:
                session.plug(name)
                plugged.add(name)
        elif step == "kill client":
            session.kill_client()
            is_on = False
        else:
            session.restart_manager()
        expected = {chosen if chosen in plugged else max(plugged, key=session.outputs.get)}, is_on

        def is_right():
            # Without us, a player may end with its output.
            if not is_on and session.processes["player"].poll() is not None:
                session.play("tone.wav")
            return session.heard_on() == expected

        time.sleep(1)
        if session.processes["manager"].poll() is not None:  # seen after an unplug, also without Orvane
            print(f"  round {turn}, {step}: the session manager has crashed and is started again")
            session.restart_manager()
            time.sleep(1)
        steps[step] += 1
        if not is_right():
            late += 1
            print(f"  round {turn}, {step}: after 1 s {session.heard_on()}, not {expected}", flush=True)
            wait_until(f"round {turn}, {step}: the right output", is_right)
    print(f"  {ROUNDS - late} of {ROUNDS} right after 1 s, all in the end; {dict(steps)}")


CHECKS = (plays_the_renderers_samples, tells_its_latency, keys_act_behind_the_effect,
          keeps_a_profile_for_each_output, leaves_a_listeners_own_target, answers_every_line,
          bypasses_while_somebody_asks, follows_although_changes_are_hidden, outlives_an_update,
          survives_failures, keeps_the_older_settings, stays_on_the_right_output)
RATES = {plays_the_renderers_samples: (44100, 48000), tells_its_latency: (44100, 48000, 96000)}


def main():
    if os.environ.get("ORVANE_IN_SESSION") != "1":
        missing = [word for word in NEEDED if shutil.which(word) is None]
        if missing:
            return print(f"skipped: no {missing[0]}")
        return subprocess.run(["dbus-run-session", "--", sys.executable, *sys.argv],
                              env={**os.environ, "ORVANE_IN_SESSION": "1"}, check=False).returncode
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True,
                       stdout=subprocess.DEVNULL)
        for check in [globals()[name] for name in sys.argv[3:]] or CHECKS:
            for rate in RATES.get(check, (48000,)):
                with Session(prefix, rate) as session:
                    print(f"{check.__name__}, {rate} Hz", flush=True)
                    make_sound("tone.wav", rate, 300, "0.25*sin(2*PI*440*t)")
                    session.orvane("on", "night")
                    check(session)
    return 0


sys.exit(main())
