"""What the measurements of sound servers share: servers of our own, a tone, processor time."""

import array
import contextlib
import math
import os
import signal
import subprocess
import tempfile
import time
import wave
from pathlib import Path

RATE = 48000


@contextlib.contextmanager
def _folder():
    """A folder for files, which is home and run-time folder of everything that is started."""
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for part in ("run", "home"):
            (folder / part).mkdir(mode=0o700)
        for key in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "PULSE_SERVER"):
            os.environ.pop(key, None)
        os.environ["XDG_RUNTIME_DIR"] = str(folder / "run")
        os.environ["XDG_CACHE_HOME"] = os.environ["HOME"] = str(folder / "home")
        yield folder


@contextlib.contextmanager
def running(command):
    """A process that gets SIGTERM at the end."""
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        yield process
    finally:
        process.send_signal(signal.SIGTERM)
        process.wait()


def until(answer, what):
    """What the function answers once that is something."""
    for _ in range(100):
        if found := answer():
            return found
        time.sleep(0.1)
    raise SystemExit(f"no {what}")


@contextlib.contextmanager
def pulse_server():
    """PulseAudio with a null sink "cap"; gives its process and a folder for files."""
    with _folder() as folder:
        socket = folder / "pulse.sock"
        with running(
                ["pulseaudio", "-n", "--daemonize=no", "--use-pid-file=no", "--exit-idle-time=-1",
                 "--realtime=no", "--high-priority=no", "--log-level=error",
                 "-L", f"module-native-protocol-unix auth-anonymous=1 socket={socket}",
                 "-L", f"module-null-sink sink_name=cap rate={RATE} format=s16le channels=2"]) as server:
            until(socket.exists, "PulseAudio")
            os.environ["PULSE_SERVER"] = f"unix:{socket}"
            yield server, folder


@contextlib.contextmanager
def pipewire_server():
    """PipeWire with a null sink "cap"; gives its processes and a folder for files."""
    with _folder() as folder, contextlib.ExitStack() as stack:
        bus = folder / "bus"
        stack.enter_context(running(["dbus-daemon", "--session", "--nofork", f"--address=unix:path={bus}"]))
        until(bus.exists, "bus")
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={bus}"
        servers = [stack.enter_context(running(["pipewire"]))]
        until((folder / "run/pipewire-0").exists, "PipeWire")
        servers.append(stack.enter_context(running(["wireplumber"])))
        made = ["pw-cli", "create-node", "adapter",
                "{ factory.name=support.null-audio-sink node.name=cap media.class=Audio/Sink "
                "object.linger=true audio.position=[ FL FR ] }"]
        until(lambda: subprocess.run(made, capture_output=True).returncode == 0, "null sink")
        time.sleep(1)
        yield servers, folder


def processor_seconds(process):
    """Of a process or its number. Nanoseconds that the scheduler gave to each thread; the ticks of
    "stat" are too coarse."""
    tasks = Path(f"/proc/{getattr(process, 'pid', process)}/task").iterdir()
    return sum(int((task / "schedstat").read_text().split()[0]) for task in tasks) / 1e9


def write_tone(path):
    """Two minutes of 16-bit stereo; a file of samples alone, or a .wav."""
    period = RATE // 400
    one = array.array("h")
    for i in range(period):
        one.extend(2 * [int(3000 * math.sin(2 * math.pi * i / period))])
    sound = one.tobytes() * (RATE * 120 // period)
    if path.suffix == ".wav":
        with wave.open(str(path), "wb") as file:
            file.setparams((2, 2, RATE, 0, "NONE", ""))
            file.writeframes(sound)
    else:
        path.write_bytes(sound)
