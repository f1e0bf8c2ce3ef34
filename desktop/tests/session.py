"""A desktop without a screen: a sound server, a session manager and outputs that nobody hears.

Programs run in folders of their own, so that nothing of the listener's is read or changed. Must be
started within `dbus-run-session`.
"""
import json
import os
import pathlib
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import time

SECONDS = 10  # how long to wait for what must happen


def wait_until(what, holds):
    end = time.monotonic() + SECONDS
    while not holds():
        assert time.monotonic() < end, f"not within {SECONDS} s: {what}"
        time.sleep(0.05)


class Session:
    def __init__(self, prefix, rate=48000, outputs=(("speakers", 1000), ("headset", 500))):
        self.rate = rate
        self.folder = pathlib.Path(tempfile.mkdtemp())
        run = self.folder / "run"
        run.mkdir(mode=0o700)
        drop_in = self.folder / "config/pipewire/pipewire.conf.d"
        drop_in.mkdir(parents=True)
        (drop_in / "rate.conf").write_text(
            f"context.properties = {{ default.clock.rate = {rate} "
            f"default.clock.allowed-rates = [ {rate} ] default.clock.quantum = 256 "
            "default.clock.min-quantum = 256 default.clock.max-quantum = 256 }}\n")
        os.environ.update(
            HOME=str(self.folder), XDG_RUNTIME_DIR=str(run), XDG_CONFIG_HOME=str(self.folder / "config"),
            XDG_STATE_HOME=str(self.folder / "state"),
            PATH=f"{prefix}/bin:{os.environ['PATH']}")
        os.chdir(self.folder)
        self.processes = {}
        self.outputs = dict(outputs)
        self.start_server()

    def __enter__(self):
        return self

    def __exit__(self, *fault):
        self.close()

    def start(self, name, *words):
        log = open(f"{name}.log", "w")
        self.processes[name] = subprocess.Popen(words, stdout=log, stderr=log, stdin=subprocess.DEVNULL)
        return self.processes[name]

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
        first = max(self.outputs, key=self.outputs.get, default=None)
        wait_until("a default output", lambda: self.default_output() == first)

    def start_manager(self):
        self.start("manager", "wireplumber")
        wait_until("a session manager", lambda: "WirePlumber" in self.run("pw-cli", "ls", "Client").stdout)

    def close(self):
        self.kill_client()
        for name in ("window", "player", "recorder", "client", "manager", "server"):
            self.stop(name, signal.SIGKILL)
        os.chdir("/")
        shutil.rmtree(self.folder)

    @staticmethod
    def run(*words, **options):
        return subprocess.run(words, capture_output=True, text=True, check=False, timeout=30, **options)

    def orvane(self, *words, status=0):
        """Runs orvane-desktop, which must end with `status`; returns what it printed."""
        result = self.run("orvane-desktop", *words)
        assert result.returncode == status, f"{words}: {result.returncode}, {result.stderr}"
        return result.stdout + result.stderr

    def kill_client(self):
        """Kills the process that serves the socket, if there is one."""
        with socket.socket(socket.AF_UNIX) as connection:
            if connection.connect_ex(str(self.folder / "run/orvane-desktop")) == 0:
                who = connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
                os.kill(struct.unpack("3i", who)[0], signal.SIGKILL)

    # Questions to the sound server.

    def dump(self):
        """All objects. What changes while pw-dump runs stands in further lists behind the first."""
        text, objects = self.run("pw-dump").stdout.strip(), {}
        while text:
            items, end = json.JSONDecoder().raw_decode(text)
            objects.update((item["id"], item) for item in items)
            text = text[end:].strip()
        return [item for item in objects.values() if item.get("type")]

    @staticmethod
    def properties(item):
        return (item.get("info") or {}).get("props") or item.get("props") or {}

    def nodes(self, dump=None):
        return {item["id"]: self.properties(item) for item in dump or self.dump()
                if item["type"] == "PipeWire:Interface:Node"}

    def number(self, name):
        return next((n for n, p in self.nodes().items() if p.get("node.name") == name), None)

    def metadata(self, dump=None):
        """All entries by (node, key), or None without a session manager."""
        for item in dump or self.dump():
            if self.properties(item).get("metadata.name") == "default":
                return {(entry["subject"], entry["key"]): entry["value"]
                        for entry in item.get("metadata", [])}
        return None

    def default_output(self):
        entry = (self.metadata() or {}).get((0, "default.audio.sink"), {})
        return entry.get("name") if isinstance(entry, dict) else None

    def linked_to(self, name, dump=None):
        """The names of the nodes that `name` plays into."""
        dump = dump or self.dump()
        nodes = self.nodes(dump)
        pairs = [(item["info"]["output-node-id"], item["info"]["input-node-id"]) for item in dump
                 if item["type"] == "PipeWire:Interface:Link"]
        return {nodes.get(to, {}).get("node.name") for start, to in pairs
                if nodes.get(start, {}).get("node.name") == name}

    def heard_on(self, player="player"):
        """The outputs that a player's sound arrives at, and whether it passes through Orvane."""
        dump = self.dump()
        outputs = self.linked_to(player, dump)
        if "orvane" not in outputs:
            return outputs, False
        return (outputs - {"orvane"}) | self.linked_to("orvane.out", dump), True

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
