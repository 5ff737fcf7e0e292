"""The process that holds one camera of `open_many`. It ends when its parent does."""

import contextlib
import signal
import sys
import threading
from collections.abc import Callable
from multiprocessing.connection import Connection
from typing import Any

from ._memory import SharedFrames
from .camera import Camera, CameraInfo
from .errors import VsccamError


class _Stopped(Exception):
    """The parent wants no more of what it asked for under a number."""

    def __init__(self, number: int) -> None:
        super().__init__(number)
        self.number = number


class _Server:
    def __init__(self, connection: Connection, memory: SharedFrames) -> None:
        self._connection = connection
        self._memory = memory
        self._sending = threading.Lock()  # over what is sent
        self._camera: Camera | None = None
        self._under_way: set[int] = set()
        self._pulses: dict[int, threading.Event] = {}  # set to end those of the guide port
        self._free = 0  # frames of the ring that the parent does not use

    def run(self) -> None:
        try:
            while True:
                self._serve(self._connection.recv())
        except (EOFError, OSError):
            pass  # the parent has gone
        finally:
            if self._camera:
                self._camera.close()

    def _serve_pending(self) -> None:
        while self._connection.poll():
            self._serve(self._connection.recv())

    def _serve(self, message: tuple[Any, ...]) -> None:
        """Also while an answer to an earlier message is under way, which may take long."""
        number, what, *arguments = message
        if what == "stop":
            if number in self._under_way:
                raise _Stopped(number)
            if pulse := self._pulses.get(number):
                pulse.set()
            return
        if what == "guide":  # meanwhile frames go on
            self._pulses[number] = threading.Event()
            threading.Thread(target=self._guide, args=(number, *arguments)).start()
            return
        if what == "more":
            self._free += 1
            return
        action: Callable[..., Any] = getattr(self, f"_do_{what}")
        self._under_way.add(number)
        try:
            self._answer(number, lambda: action(*arguments))
        finally:
            self._under_way.discard(number)

    def _answer(self, number: int, action: Callable[[], Any]) -> None:
        answer: tuple[int, bool, Any] = (number, True, None)  # also of what was stopped
        try:
            answer = (number, True, action())
        except _Stopped as stopped:
            if stopped.number != number:
                raise
        except Exception as error:  # is the parent's, if that is still there: see run
            answer = (number, False, error)
        finally:
            self._send(answer)

    def _send(self, message: tuple[Any, ...]) -> None:
        with self._sending:
            self._connection.send(message)

    def _guide(self, number: int, direction: str, seconds: float) -> None:
        """On a thread of its own, which ends with the pulse, at the latest when the camera is
        closed."""

        def between() -> None:
            if self._pulses[number].is_set():
                raise _Stopped(number)

        with contextlib.suppress(OSError):  # the parent has gone
            self._answer(number, lambda: self._open_camera()._pulse(direction, seconds, between))
        del self._pulses[number]

    def _open_camera(self) -> Camera:
        assert self._camera is not None
        return self._camera

    def _do_open(self, which: CameraInfo) -> CameraInfo:
        self._camera = Camera(f"usb:{which.port}")
        self._camera._between = self._serve_pending
        return self._camera.info

    def _do_get(self, name: str) -> Any:
        return getattr(self._open_camera(), name)

    def _do_set(self, name: str, value: Any) -> None:
        setattr(self._open_camera(), name, value)

    def _do_call(self, name: str, arguments: tuple[Any, ...], named: dict[str, Any]) -> Any:
        return getattr(self._open_camera(), name)(*arguments, **named)

    def _do_expose(
        self, seconds: float | None, timeout: float | None
    ) -> tuple[tuple[int, ...], str]:
        camera = self._open_camera()
        shape, dtype = camera.shape, camera.dtype.str
        camera.expose(seconds, timeout=timeout, out=self._memory.arrays(shape, dtype, 1)[0])
        return shape, dtype

    def _do_frames(self, count: int | None, timeout: float | None, slots: int) -> None:
        camera = self._open_camera()
        shape, dtype = camera.shape, camera.dtype.str
        ring = self._memory.arrays(shape, dtype, slots)
        self._free = slots
        for place, frame in enumerate(camera.frames(count, timeout=timeout, ring=ring)):
            if frame is not ring[place % slots]:
                raise VsccamError("the format was changed; begin the video anew")
            self._free -= 1
            self._send((None, shape, dtype, slots, place % slots))
            while self._free == 0:
                self._serve(self._connection.recv())


def main() -> None:
    signal.signal(signal.SIGINT, signal.SIG_IGN)  # Control-C is for the parent
    connection, memory = (int(argument) for argument in sys.argv[1:])
    _Server(Connection(connection), SharedFrames(memory)).run()


if __name__ == "__main__":
    main()
