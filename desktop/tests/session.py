"""A desktop without a screen: a sound server, a session manager and outputs that nobody hears.

Programs run in folders of their own, so that nothing of the listener's is read or changed. Must be
started within `dbus-run-session`.
"""
import array
import json
import os
import pathlib
import shutil
import signal
import socket
import statistics
import struct
import subprocess
import tempfile
import time

SECONDS = 30  # how long to wait for what must happen


def wait_until(what, holds):
    end = time.monotonic() + SECONDS
    while not holds():
        assert time.monotonic() < end, f"not within {SECONDS} s: {what}"
        time.sleep(0.05)


def has_ended(process):
    """Also true of a process whose end nobody has asked for yet."""
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rpartition(")")[2].split()[0] == "Z"
    except OSError:
        return True


def wait_for_end(processes):
    wait_until("the end of all", lambda: all(map(has_ended, processes)))


class Session:
    def __init__(self, prefix, rate=48000):
        self.rate, self.outputs, self.processes = rate, {"speakers": 1000, "headset": 500}, {}
        self.folder = pathlib.Path(tempfile.mkdtemp())
        (self.folder / "run").mkdir(mode=0o700)
        drop_in = self.folder / "config/pipewire/pipewire.conf.d"
        drop_in.mkdir(parents=True)
        (drop_in / "rate.conf").write_text(
            f"context.properties = {{ default.clock.rate = {rate} default.clock.allowed-rates = [ {rate} ] "
            "default.clock.quantum = 256 default.clock.min-quantum = 256 "
            "default.clock.max-quantum = 256 }\n")
        os.environ.update(
            HOME=str(self.folder), XDG_RUNTIME_DIR=str(self.folder / "run"),
            XDG_CONFIG_HOME=str(self.folder / "config"), XDG_STATE_HOME=str(self.folder / "state"),
            PATH=f"{prefix}/bin:{os.environ['PATH']}")
        os.chdir(self.folder)
        self.start_server()

    def __enter__(self):
        return self

    def __exit__(self, *fault):
        self.kill_client()
        for name in list(self.processes):
            self.stop(name, signal.SIGKILL)
        os.chdir("/")
        shutil.rmtree(self.folder)

    def start(self, name, *words):
        with open(f"{name}.log", "w") as log:
            self.processes[name] = subprocess.Popen(words, stdout=log, stderr=log, stdin=subprocess.DEVNULL)

    def stop(self, name, how=signal.SIGTERM):
        process = self.processes.pop(name, None)
        if process is not None:
            process.send_signal(how)
            process.wait()

    def start_server(self):
        self.start("server", "pipewire")
        wait_until("a sound server", lambda: self.run("pw-cli", "info", "0").returncode == 0)
        self.start_manager()
        for name in self.outputs:
            self.plug(name)
        first = max(self.outputs, key=self.outputs.get)
        wait_until("a default output", lambda: (self.metadata().get((0, "default.audio.sink")) or {})
                   .get("name") == first)

    def start_manager(self):
        self.start("manager", "wireplumber")
        wait_until("a session manager", lambda: "WirePlumber" in self.run("pw-cli", "ls", "Client").stdout)

    def restart_manager(self):
        """Outputs that outlive a manager stay dead, and players are lost, also without Orvane."""
        plugged = [name for name in self.outputs if self.number(name) is not None]
        self.stop("player")
        for name in plugged:
            self.unplug(name)
        self.stop("manager", signal.SIGKILL)
        self.start_manager()
        for name in plugged:
            self.plug(name)
        time.sleep(0.5)
        self.play("tone.wav")

    def client(self):
        """The process that serves the socket, and those that it has started; nothing if none runs."""
        with socket.socket(socket.AF_UNIX) as connection:
            if connection.connect_ex(str(self.folder / "run/orvane-desktop")) != 0:
                return []
            who = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
        first = struct.unpack("3i", who)[0]
        return [first, *map(int, pathlib.Path(f"/proc/{first}/task/{first}/children").read_text().split())]

    def kill_client(self, count=1):
        """Kills the client itself, or with count=2 also the process that cleans up after it."""
        for process in reversed(self.client()[:count]):
            os.kill(process, signal.SIGKILL)

    @staticmethod
    def run(*words):
        try:
            return subprocess.run(words, capture_output=True, text=True, check=False, timeout=20)
        except subprocess.TimeoutExpired:  # pw-cli sometimes waits for ever if the manager starts
            return subprocess.CompletedProcess(words, -1, "", "")

    def orvane(self, *words, status=0):
        """Runs orvane-desktop, which must end with `status`; returns what it printed."""
        result = self.run("orvane-desktop", *words)
        assert result.returncode == status, f"{words}: {result.returncode}, {result.stderr}"
        return result.stdout + result.stderr

    # Questions to the sound server.

    def dump(self):
        """All objects. What changes while pw-dump runs stands in further lists behind the first."""
        text, objects = self.run("pw-dump").stdout.strip(), {}
        while text:
            items, end = json.JSONDecoder().raw_decode(text)
            objects.update((item["id"], item) for item in items)
            text = text[end:].strip()
        return [item for item in objects.values() if item.get("type")]

    def nodes(self, dump=None):
        return {item["id"]: (item.get("info") or {}).get("props") or {} for item in dump or self.dump()
                if item["type"] == "PipeWire:Interface:Node"}

    def number(self, name):
        return next((n for n, p in self.nodes().items() if p.get("node.name") == name), None)

    def metadata(self):
        """The session manager's entries by (node, key)."""
        return {(entry["subject"], entry["key"]): entry["value"] for item in self.dump()
                if (item.get("props") or {}).get("metadata.name") == "default"
                for entry in item.get("metadata", [])}

    def targets(self):
        """Where the entries send players, by their numbers."""
        return {number: value for (number, key), value in self.metadata().items() if key == "target.object"}

    def linked_to(self, name, dump=None):
        """The names of the nodes that `name` plays into."""
        dump = dump or self.dump()
        nodes = self.nodes(dump)
        return {nodes.get(item["info"]["input-node-id"], {}).get("node.name") for item in dump
                if item["type"] == "PipeWire:Interface:Link"
                and nodes.get(item["info"]["output-node-id"], {}).get("node.name") == name}

    def heard_on(self, player="player"):
        """The outputs that a player's sound arrives at, and whether it passes through Orvane."""
        dump = self.dump()
        outputs = self.linked_to(player, dump)
        if "orvane" not in outputs:
            return outputs, False
        return (outputs - {"orvane"}) | self.linked_to("orvane.out", dump), True

    def hears(self, output, through=True):
        wait_until(f"{output}, through Orvane: {through}",
                   lambda: self.heard_on() == ({output}, through))

    def told_latency(self):
        """The frames that Orvane tells players, with a quantum of 256."""
        latency = next(entry for item in self.dump() if item["type"] == "PipeWire:Interface:Node"
                       and item["info"]["props"].get("node.name") == "orvane"
                       for entry in item["info"]["params"]["Latency"] if entry["direction"] == "Input")
        return round(latency["minNs"] * self.rate / 1e9) + 256 * round(latency["minQuantum"])

    # Acts of a listener.

    def plug(self, name):
        self.run("pw-cli", "create-node", "adapter",
                 f"{{ factory.name=support.null-audio-sink node.name={name} node.description={name} "
                 f"media.class=Audio/Sink audio.position=[FL FR] monitor.channel-volumes=true "
                 f"priority.session={self.outputs[name]} object.linger=true }}")
        wait_until(f"{name} plugged in", lambda: self.number(name) is not None)

    def unplug(self, name):
        self.run("pw-cli", "destroy", str(self.number(name)))
        wait_until(f"{name} unplugged", lambda: self.number(name) is None)

    def choose(self, name):
        self.run("wpctl", "set-default", str(self.number(name)))

    def play(self, file, name="player", **properties):
        words = {"node.name": name, "application.name": name, **properties}
        self.start(name, "pw-cat", "-p", "-P", json.dumps(words), file)
        wait_until(f"{name} plays", lambda: self.linked_to(name))

    def play_through(self):
        """Plays the tone, and waits until it passes through Orvane to the loudspeakers."""
        self.play("tone.wav")
        self.hears("speakers")


def make_sound(file, rate, seconds, expression):
    """Stereo, 16 bits, with half a second of silence before and after."""
    subprocess.run(["ffmpeg", "-y", "-v", "error", "-f", "lavfi", "-i",
                    f"aevalsrc={expression}:s={rate}:d={seconds}", "-af",
                    "adelay=500|500,apad=pad_dur=0.5", "-c:a", "pcm_s16le", file], check=True)


def samples(file):
    """Interleaved 16-bit samples of any audio file."""
    return array.array("h", subprocess.run(["ffmpeg", "-v", "error", "-i", file, "-f", "s16le", "-"],
                                           capture_output=True, check=True).stdout)


def right_to_left(values):
    """The ratio of the two sides' levels: the median of spans of 10 ms, which passes over dropped buffers."""
    right, left = ([sum(map(abs, values[at + side:at + 960:2])) for at in range(0, len(values), 960)]
                   for side in (1, 0))
    return statistics.median(after / max(1, before) for after, before in zip(right, left))


def windows(values):
    """All runs of 16 stereo frames that aren't silent."""
    raw = values.tobytes()
    return {raw[at:at + 64] for at in range(0, len(raw) - 63, 4) if any(raw[at:at + 64])}


def record(session, links=()):
    """Records the loudspeakers, or the two ports that `links` name, until `recorded` is called."""
    target = ["0"] if links else ["speakers", "-P", '{ "stream.capture.sink": true }']
    session.start("recorder", "pw-record", "--target", *target, "--rate", str(session.rate), "--channels",
                  "2", "--format", "f32", "out.wav")
    for start, side in zip(links, ("FL", "FR")):
        wait_until(f"a link from {start}",
                   lambda: session.run("pw-link", start, f"pw-record:input_{side}").returncode == 0)
    wait_until("a recording", lambda: links or "pw-record" in session.linked_to("speakers"))


def recorded(session):
    time.sleep(0.3)
    session.stop("recorder", signal.SIGINT)
    return samples("out.wav")
