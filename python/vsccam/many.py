"""Several cameras at once, each in a process of its own."""

from __future__ import annotations

import collections
import contextlib
import os
import socket
import subprocess
import sys
import threading
from collections.abc import Iterable, Iterator
from multiprocessing.connection import Connection
from typing import Any, Literal

from ._closing import Closing
from ._memory import SharedFrames
from .camera import _REFUSALS, Camera, CameraInfo, Format, Frame, _find
from .errors import CameraClosed, CameraLost, NoCamera, VsccamError

_STEP_S = 0.02
_LONGEST_END_S = 5.0


class RemoteCamera(Closing):
    """A camera in a process of its own, used like a `Camera`: what that has, this has, too, except
    for `controls`. Comes from `open_many`. But for guide pulses, that process does one thing at a
    time: no frames come while `cool` waits."""

    _own = frozenset(
        {
            *("info", "_process", "_connection", "_memory", "_lock"),
            *("_answers", "_finished", "_frames", "_asked"),
        }
    )

    def __init__(self, which: CameraInfo) -> None:
        ours, theirs = socket.socketpair()
        with theirs:
            memory = os.memfd_create("vsccam frames")
            folder = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
            paths = [folder, *filter(None, [os.environ.get("PYTHONPATH")])]
            self._process = subprocess.Popen(
                [sys.executable, "-m", "vsccam._helper", str(theirs.fileno()), str(memory)],
                pass_fds=(theirs.fileno(), memory),
                env={**os.environ, "PYTHONPATH": os.pathsep.join(paths)},
                stdin=subprocess.DEVNULL,
            )
        self._connection = Connection(ours.detach())
        self._memory = SharedFrames(memory)
        self._lock = threading.RLock()  # over the connection
        self._answers: dict[int, tuple[bool, Any]] = {}
        self._finished: set[int] = set()  # of which the answer was taken
        self._frames: collections.deque[tuple[Any, ...]] = collections.deque()
        self._asked = 0
        self.info = which
        """The model and the port of this camera."""

    def close(self) -> None:
        """Closes the camera and ends its process, within 5 s."""
        with self._lock:
            if self._connection.closed:
                return
            self._connection.close()
            os.close(self._memory.file)
        try:
            self._process.wait(_LONGEST_END_S)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()

    # ---- the way to the other process

    def _ask(self, what: str, *arguments: Any) -> int:
        with self._lock:
            if self._connection.closed:
                raise CameraClosed(f"{self.info.model} was closed; open it again with open_many()")
            self._asked += 1
            self._send((self._asked, what, *arguments))
            return self._asked

    def _send(self, message: tuple[Any, ...]) -> None:
        try:
            self._connection.send(message)
        except OSError:
            raise self._gone() from None

    def _gone(self) -> CameraLost:
        return CameraLost(f"the process of {self.info.model} has ended; open the camera again")

    def _receive(self) -> None:
        """Takes what has come, or waits for a moment."""
        with self._lock:
            if self._connection.closed:
                raise CameraClosed(f"{self.info.model} was closed meanwhile")
            try:
                if not self._connection.poll(_STEP_S):
                    return
                number, *rest = self._connection.recv()
            except (EOFError, OSError):
                raise self._gone() from None
            if number is None:
                self._frames.append(tuple(rest))
            else:
                self._answers[number] = (rest[0], rest[1])

    def _answer(self, number: int) -> Any:
        while number not in self._answers:
            self._receive()
        done, value = self._answers.pop(number)
        self._finished.add(number)
        if not done:
            raise value
        return value

    def _answer_or_stop(self, number: int) -> Any:
        try:
            return self._answer(number)
        except BaseException:
            self._stop(number)
            raise

    def _stop(self, number: int) -> None:
        """Ends what was asked for, if it still goes on, so that the camera is free for more."""
        with self._lock:
            if number in self._finished or self._connection.closed:
                return
            self._send((number, "stop"))
        self._answer(number)

    def __getattr__(self, name: str) -> Any:
        if name.startswith("_") or not hasattr(Camera, name):
            raise AttributeError(f"a camera has no '{name}'")
        if callable(getattr(Camera, name)):
            return lambda *arguments, **named: self._call(name, *arguments, **named)
        return self._answer(self._ask("get", name))

    def __setattr__(self, name: str, value: Any) -> None:
        if name in self._own:
            super().__setattr__(name, value)
        elif name.startswith("_") or not hasattr(Camera, name):
            raise AttributeError(f"a camera has no '{name}'")
        else:
            self._answer(self._ask("set", name, value))

    def _call(self, name: str, *arguments: Any, **named: Any) -> Any:
        return self._answer_or_stop(self._ask("call", name, arguments, named))

    # ---- what is not passed on as it is

    def set_format(
        self,
        *,
        size: tuple[int, int] | None = None,
        start: tuple[int, int] | None = None,
        bin: int = 1,
        format: Format = "raw16",
    ) -> None:
        """As `Camera.set_format`."""
        self._call("set_format", size=size, start=start, bin=bin, format=format)

    def guide(self, direction: Literal["north", "south", "east", "west"], seconds: float) -> None:
        """As `Camera.guide`; exposures and frames go on meanwhile."""
        self._answer_or_stop(self._ask("guide", direction, seconds))

    def expose(self, seconds: float | None = None, *, timeout: float | None = None) -> Frame:
        """As `Camera.expose`; the frame is the caller's."""
        return self._exposed(self._ask("expose", seconds, timeout))

    def _exposed(self, number: int) -> Frame:
        shape, dtype = self._answer_or_stop(number)
        return self._memory.arrays(shape, dtype, 1)[0].copy()

    def frames(
        self, count: int | None = None, *, timeout: float | None = None, ring: int = 4
    ) -> Iterator[Frame]:
        """As `Camera.frames`. Each frame lies in memory that both processes share, and holds until
        the next one is asked for; the other process goes on to fill the rest of the ring."""
        number = self._ask("frames", count, timeout, ring)
        try:
            while True:
                while not self._frames and number not in self._answers:
                    self._receive()
                if not self._frames:
                    self._answer(number)
                    return
                shape, dtype, slots, place = self._frames.popleft()
                yield self._memory.arrays(shape, dtype, slots)[place]
                self._send((number, "more"))
        finally:
            self._stop(number)
            self._frames.clear()


class Cameras(Closing, tuple[RemoteCamera, ...]):
    """Cameras that are used together; see `open_many`."""

    def close(self) -> None:
        """Closes all of them."""
        for camera in self:
            camera.close()

    def expose(self, seconds: float | None = None, *, timeout: float | None = None) -> list[Frame]:
        """One exposure with each, at the same time; the frames are in the order of the cameras.
        Raises what `Camera.expose` raises, when all exposures have ended or were stopped."""
        with contextlib.ExitStack() as under_way:  # stops each, whatever became of the others
            numbers = []
            for camera in self:
                numbers.append(camera._ask("expose", seconds, timeout))
                under_way.callback(camera._stop, numbers[-1])
            frames = [camera._exposed(number) for camera, number in zip(self, numbers)]
        return frames


def open_many(which: Iterable[str | int | CameraInfo] | None = None) -> Cameras:
    """Opens several cameras, each in a process of its own, as a process holds one.

    :param which: as `Camera` takes them; by default all on the bus that can be opened
    :raises NoCamera, NotPermitted, CameraBusy, NotSupported: as `Camera`; then none is left open

    >>> import vsccam
    >>> with vsccam.open_many() as cameras:
    ...     frames = cameras.expose(0.05)
    >>> [frame.shape for frame in frames]
    [(1096, 1936)]
    """
    found = _find(None) if which is None else [_find(one)[0] for one in which]
    if not found:
        raise NoCamera("no camera found. Are they plugged in? 'vsccam doctor' looks further")
    opened: list[RemoteCamera] = []
    refusals: list[VsccamError] = []
    try:
        for one in found:
            opened.append(RemoteCamera(one))
        for camera in tuple(opened):  # in turn: each looks at the whole bus
            try:
                camera._answer(camera._ask("open", camera.info))
            except _REFUSALS as refusal:
                refusals.append(refusal)
                opened.remove(camera)
                camera.close()
        if refusals and (which is not None or not opened):
            raise refusals[0]
    except BaseException:
        Cameras(opened).close()
        raise
    return Cameras(opened)
