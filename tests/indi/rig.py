"""An INDI server on a bus of simulated cameras."""
import os
import signal
import socket
import subprocess
import tempfile
import time
from pathlib import Path

from client import LONGEST, Client


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


class Rig:
    """with Rig(bin, cameras=["VSC470MC"], fault="mute@3") as rig: client = rig.client()"""

    def __init__(self, folder, cameras=("VSC470MC",), fault=None, fifo=False):
        self.home = Path(tempfile.mkdtemp(prefix="indi"))
        self.port = free_port()
        folder = Path(folder).resolve()
        # With the simulated bus inside, for sanitizers: it has cameras, and no account of theirs.
        inside = folder / "indi_driver_with_bus"
        self.driver = inside if inside.exists() else folder / "indi_vsccam_ccd"
        command = [str(folder / "vscsim"), "run"]
        for number, camera in enumerate(cameras):
            command += ["--camera", f"{camera}:requests={self.home}/requests{number}"]
        command += ["--fault", fault] if fault else []
        command = [] if inside.exists() else command + ["--"]
        # Its socket for local clients is one for all servers of a machine, unless it is told.
        command += ["indiserver", "-p", str(self.port), "-u", f"{self.home}/local", "-r", "3"]
        if fifo:
            self.fifo = self.home / "fifo"
            os.mkfifo(self.fifo)
            command += ["-f", str(self.fifo)]
        else:
            command += [str(self.driver)]
        self.log = open(self.home / "log", "w")
        self.process = subprocess.Popen(command, cwd=self.home, stdout=self.log, stderr=self.log,
                                        env={**os.environ, "HOME": str(self.home),
                                             "VSCSIM_CAMERAS": " ".join(cameras)})
        self.clients = []

    def client(self, **options):
        deadline = time.monotonic() + LONGEST
        while True:
            try:
                self.clients.append(Client(self.port, **options))
                return self.clients[-1]
            except (ConnectionRefusedError, ConnectionResetError):
                assert time.monotonic() < deadline, (self.home / "log").read_text()
                time.sleep(0.05)

    def account(self, number=0):
        return (self.home / f"requests{number}").read_text().splitlines()

    def drivers(self):
        """Process ids, in the order of their start."""
        found = []
        for entry in Path("/proc").glob("[0-9]*"):
            try:
                mine = str(self.home).encode() in (entry / "environ").read_bytes()
                if mine and (entry / "comm").read_text().startswith("indi_"):
                    found.append(int(entry.name))
            except OSError:
                continue  # it has just ended
        return sorted(found)

    def start(self, name):
        with open(self.fifo, "w") as fifo:
            fifo.write(f'start {self.driver} -n "{name}"\n')

    def kill(self):
        """As by the system: nothing of the driver runs any more."""
        for driver in self.drivers():
            os.kill(driver, signal.SIGKILL)

    def __enter__(self):
        return self

    def __exit__(self, kind, *_):
        for client in self.clients:
            client.socket.close()
        self.process.terminate()  # the server; the driver sees the end of its input
        self.process.wait(LONGEST)
        deadline = time.monotonic() + LONGEST
        while self.drivers() and time.monotonic() < deadline:
            time.sleep(0.05)  # it closes the camera
        assert not self.drivers(), "a driver goes on"
        self.log.close()
        told = (self.home / "log").read_text()
        if kind:
            print(told[-3000:])
        assert "Sanitizer" not in told, told[told.index("Sanitizer") - 200:][:6000]
