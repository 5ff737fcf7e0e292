"""A camera of this process."""

from __future__ import annotations

import atexit
import ctypes
import os
import re
import threading
import time
from collections.abc import Callable, Iterator, Mapping, Sequence
from dataclasses import dataclass
from types import MappingProxyType
from typing import Any, ClassVar, Literal

import numpy as np
import numpy.typing as npt

from ._closing import Closing
from ._library import Identity, library
from .controls import FACTS, Control, Setting
from .errors import (
    CameraBusy,
    CameraClosed,
    CameraLost,
    NoCamera,
    NoFrame,
    NotPermitted,
    NotSupported,
    OutOfRange,
    TimedOut,
    VsccamError,
)

Frame = npt.NDArray[Any]
"""Rows from the top; uint8 or uint16, (height, width), or (height, width, 3) for rgb24."""

Format = Literal["raw8", "rgb24", "raw16", "y8"]
_FORMATS: tuple[Format, ...] = ("raw8", "rgb24", "raw16", "y8")  # by their number
_DIRECTIONS = ("north", "south", "east", "west")
_BAYER = ("RGGB", "BGGR", "GRBG", "GBRG")

_STEP_MS = 200  # of a wait in the library, after which Python looks at signals
_LONGEST_PIECE_MS = 1000  # of a guide pulse: signals wait for its end
_PAUSE_S = 0.005
_PATIENCE_S = 5.0  # the library ends exposures by then, and four frame times
_CHOICE = "VSCCAM_CAMERA"
_USB_FOLDER = "/sys/bus/usb/devices"

_choosing = threading.RLock()  # over changes of _CHOICE


@dataclass(frozen=True)
class CameraInfo:
    """A camera on the bus."""

    model: str
    """As the library calls it, such as "KYR VSC470MC"."""
    port: str
    """Where it is plugged in, such as "1-2.3"."""

    @property
    def node(self) -> str:
        """Its file below /dev, by which the system grants it to users."""

        def number(name: str) -> int:
            with open(f"{_USB_FOLDER}/{self.port}/{name}", encoding="ascii") as file:
                return int(file.read())

        try:
            return f"/dev/bus/usb/{number('busnum'):03}/{number('devnum'):03}"
        except (OSError, ValueError):
            return ""


def _count(choice: str) -> int:
    """The cameras that a choice allows, which `openCamera` counts by from then on."""
    with _choosing:
        before = os.environ.get(_CHOICE)
        os.environ[_CHOICE] = choice
        try:
            return int(library().getNumberOfConnectedCameras())
        finally:
            if before is None:
                del os.environ[_CHOICE]
            else:
                os.environ[_CHOICE] = before


def _model(index: int) -> str:
    text: bytes | None = library().getCameraModel(index)
    return text.decode() if text else ""


def cameras() -> list[CameraInfo]:
    """The cameras on the bus, in the order of their ports. Opens none.

    >>> import vsccam
    >>> vsccam.cameras()
    [CameraInfo(model='KYR VSC470MC', port='1-1')]
    """
    try:
        ports = [name for name in os.listdir(_USB_FOLDER) if re.fullmatch(r"\d+-[\d.]+", name)]
    except OSError:
        ports = []
    with _choosing:
        named = os.environ.get(_CHOICE, "").lower()
        found = [
            CameraInfo(_model(0), port) for port in sorted(ports) if _count(f"usb:{port}") > 0
        ]
    return [camera for camera in found if not named or _is_named(camera, named.split(","))]


def _is_named(camera: CameraInfo, names: Sequence[str]) -> bool:
    model = camera.model.lower()
    own = {f"usb:{camera.port}", f"model:{model}", f"model:{model.split()[-1]}"}
    return any(name.strip() in own for name in names)


def _is_only_listed(camera: CameraInfo) -> bool:
    """Variants of a model are counted, but the library opens none."""
    return camera.model.endswith(("-A", "-B"))


def _find(which: str | int | CameraInfo | None) -> list[CameraInfo]:
    """The camera that is meant; where none is named, all that may do."""
    there = cameras()
    if not there:
        raise NoCamera(
            "no camera found. Is it plugged in? 'vsccam doctor' looks further; to try without "
            "one: vscsim run -- python3 ..."
        )
    if which is None:
        return [camera for camera in there if not _is_only_listed(camera)] or there
    if isinstance(which, int):
        matching = there[which : which + 1] if which >= 0 else []
    elif isinstance(which, CameraInfo):
        matching = [camera for camera in there if camera == which]
    else:
        wanted = which.lower()
        if not wanted.startswith(("usb:", "model:")):
            wanted = f"model:{wanted}"
        matching = [camera for camera in there if _is_named(camera, [wanted])]
    if not matching:
        names = ", ".join(f"{camera.model} (usb:{camera.port})" for camera in there)
        raise NoCamera(f"no camera {which!r}; there is {names}")
    return matching[:1]


def _choice_for(camera: CameraInfo, which: object) -> str:
    """A camera that is lost may come back at another port, if its model tells which it is."""
    same = sum(other.model == camera.model for other in cameras())
    by_port = same > 1 or (isinstance(which, str) and which.lower().startswith("usb:"))
    return f"usb:{camera.port}" if by_port else f"model:{camera.model}"


def _why_not_opened(camera: CameraInfo) -> VsccamError:
    if _is_only_listed(camera):
        return NotSupported(
            f"{camera.model} is listed but cannot be opened: only the primary edition of a model can"
        )
    node = camera.node
    if node and not os.access(node, os.R_OK | os.W_OK):
        return NotPermitted(
            f"no permission for {camera.model} at {node}. Install the package vsccam-common, "
            "join the group plugdev, then plug the camera in again"
        )
    return CameraBusy(
        f"{camera.model} cannot be opened: another program uses it. 'fuser -v {node}' names that "
        "program"
    )


_REFUSALS = (NotPermitted, CameraBusy, NotSupported)
"""Of cameras that are there."""


def _open(camera: CameraInfo, choice: str) -> None:
    lib = library()
    if _count(choice) < 1:
        raise CameraLost(f"{camera.model} has just gone; check plug and power")
    try:
        if not lib.openCamera(0):
            raise _why_not_opened(camera)
        if not lib.initCamera():
            raise CameraLost(f"{camera.model} does not answer; plug it in again")
    except BaseException:
        lib.closeCamera()
        raise


def _open_first(which: str | int | CameraInfo | None) -> tuple[CameraInfo, str]:
    """Opens what can be opened of what is meant; also tells what the library looks for now."""
    refusals: list[VsccamError] = []
    for camera in _find(which):
        choice = _choice_for(camera, which)
        try:
            _open(camera, choice)
            return camera, choice
        except _REFUSALS as refusal:
            refusals.append(refusal)
    raise refusals[0]


class Camera(Closing):
    """A camera, opened and initialised: whole sensor, raw16, bin 1.

    :param which: an index into `cameras()`, a model ("VSC470MC"), a port ("usb:1-2.3"), an entry
        of `cameras()`, or nothing for the first one that can be opened
    :raises NoCamera, NotPermitted, CameraBusy, NotSupported: with what can be done about it

    A process holds one camera at a time; see `open_many` for more. Methods may be called from any
    thread. Use it with `with`, or call `close`: settings and cooling end then.

    >>> import vsccam
    >>> with vsccam.Camera("VSC470MC") as camera:
    ...     camera.set_format(size=(640, 480), format="raw8")
    ...     camera.exposure = 0.01
    ...     for frame in camera.frames(3):
    ...         print(frame.shape, frame.dtype)
    (480, 640) uint8
    (480, 640) uint8
    (480, 640) uint8
    """

    gain = Setting(int, "Gain, in steps of the model; mostly 0.1 dB.")
    exposure = Setting(float, "Exposure time in seconds, of exposures and of video.")
    gamma = Setting(int, "0 to 100; 50 is linear.")
    red = Setting(int, "White balance of the red sites, 50 is unity; colour models.")
    blue = Setting(int, "White balance of the blue sites, 50 is unity; colour models.")
    offset = Setting(int, "Black level that the sensor adds.")
    bandwidth = Setting(int, "Share of the USB bandwidth, per cent.")
    hardware_bin = Setting(bool, "Whether the sensor bins.")
    high_speed = Setting(bool, "Faster read-out with fewer bits.")
    mono_bin = Setting(bool, "Whether binning passes over colours; colour models.")
    target_temp = Setting(int, "Target of the cooler, degrees Celsius; cooled models.")
    cooler = Setting(bool, "Whether the cooler regulates; cooled models.")
    cooler_power = Setting(int, "Per cent; read only; cooled models.")
    fan = Setting(bool, "Whether the fan runs; cooled models.")

    info: CameraInfo
    """The model and the port of this camera."""
    controls: Mapping[str, Control]
    """All controls by their names, also those that this model does not have."""

    _opened: ClassVar[Camera | None] = None

    def __init__(self, which: str | int | CameraInfo | None = None) -> None:
        with _choosing:
            if Camera._opened is not None:
                raise CameraBusy(
                    f"this process has {Camera._opened.info.model} open: close it first, or use "
                    "open_many()"
                )
            self.info, self._choice = _open_first(which)
            Camera._opened = self
            atexit.register(self.close)
        self._streaming = threading.Lock()
        self._axes = (threading.Lock(), threading.Lock())  # of the guide port
        self._between: Callable[[], None] = lambda: None  # two steps of a wait
        try:
            self.controls = MappingProxyType({name: Control(self, name) for name in FACTS})
            self.set_format()
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        """Stops what runs, ends guide pulses and cooling, and gives the camera back. Takes 2 s at
        most."""
        with _choosing:
            if self._is_open():
                library().closeCamera()
                Camera._opened = None
                atexit.unregister(self.close)

    def _is_open(self) -> bool:
        return Camera._opened is self

    def _lib(self) -> ctypes.CDLL:
        if not self._is_open():
            raise CameraClosed(f"{self.info.model} was closed; open it again with Camera()")
        return library()

    # ---- what it is

    @property
    def sensor_size(self) -> tuple[int, int]:
        """Width and height of the sensor in pixels."""
        lib = self._lib()
        return lib.getMaxWidth(), lib.getMaxHeight()

    @property
    def pixel_size(self) -> float:
        """Edge of a pixel in micrometres."""
        return float(self._lib().getPixelSize())

    @property
    def colour(self) -> bool:
        """Whether the sensor has a colour mosaic."""
        return bool(self._lib().isColorCam())

    @property
    def mosaic(self) -> str | None:
        """The colours of the first two rows, such as "RGGB", without flips; None without colour."""
        return _BAYER[self._lib().getColorBayer()] if self.colour else None

    @property
    def cooled(self) -> bool:
        """Whether it has a cooler."""
        return bool(self._lib().isCoolerCam())

    @property
    def electrons_per_adu(self) -> float:
        """At gain 0, for a step of the converter; 0.0 where nobody knows."""
        return float(self._lib().getElectronsPerADU())

    @property
    def temperature(self) -> float:
        """Of the sensor, degrees Celsius; the last known one when the camera does not answer, 0.0
        for models without a thermometer. Asks the camera: takes up to 1.5 s."""
        return float(self._lib().getSensorTemp())

    @property
    def identity(self) -> bytes | None:
        """Eight bytes that the camera keeps in its flash memory, None when it holds none. Setting
        it writes the flash, 60 s at most; raises VsccamError when it was not written."""
        found = Identity()
        return bytes(found.id) if self._lib().GetID(ctypes.byref(found)) else None

    @identity.setter
    def identity(self, identity: bytes) -> None:
        if len(identity) != 8:
            raise OutOfRange("an identity has 8 bytes")
        if not self._lib().SetID(Identity((ctypes.c_ubyte * 8)(*identity))):
            raise VsccamError(f"{self.info.model} did not keep the identity; try again")

    # ---- format

    def set_format(
        self,
        *,
        size: tuple[int, int] | None = None,
        start: tuple[int, int] | None = None,
        bin: int = 1,
        format: Format = "raw16",
    ) -> None:
        """Sets what frames look like from then on; a running video goes on with it.

        :param size: width and height in binned pixels, the largest there is by default. Widths are
            multiples of 8, heights are even
        :param start: left and top in binned pixels; centred by default
        :param bin: binning factor
        :param format: raw8, raw16 (the converter's bits are the upper ones), y8 or rgb24, whose
            channels are blue, green and red; frame[..., ::-1] has red first
        :raises NotSupported: the model has no such binning or format
        :raises OutOfRange: it refuses the size
        """
        lib = self._lib()
        if not lib.isBinSupported(bin):
            raise NotSupported(f"{self.info.model} has no binning {bin}")
        if format not in _FORMATS or not lib.isImgTypeSupported(_FORMATS.index(format)):
            raise NotSupported(f"{self.info.model} does not deliver {format}")
        largest = (lib.getMaxWidth() // bin // 8 * 8, lib.getMaxHeight() // bin // 2 * 2)
        width, height = size or largest
        if not lib.setImageFormat(width, height, bin, _FORMATS.index(format)):
            raise OutOfRange(
                f"{self.info.model} refuses {width} x {height} at binning {bin}: {largest[0]} x "
                f"{largest[1]} is the largest, widths are multiples of 8, heights are even, and "
                "some models want whole blocks of 1024 pixels"
            )
        # Always: after a new size alone, some cameras read other rows than those that they name.
        lib.setStartPos(*(start or (lib.getStartX(), lib.getStartY())))

    @property
    def format(self) -> Format:
        """raw8, rgb24, raw16 or y8."""
        number: int = self._lib().getImgType()
        return _FORMATS[number]

    @property
    def bin(self) -> int:
        """The binning factor."""
        return int(self._lib().getBin())

    @property
    def region(self) -> tuple[int, int, int, int]:
        """Left, top, width and height in binned pixels."""
        lib = self._lib()
        return lib.getStartX(), lib.getStartY(), lib.getWidth(), lib.getHeight()

    @property
    def shape(self) -> tuple[int, ...]:
        """Of frames: (height, width), or (height, width, 3)."""
        lib = self._lib()
        plane = (lib.getHeight(), lib.getWidth())
        return (*plane, 3) if self.format == "rgb24" else plane

    @property
    def dtype(self) -> np.dtype[Any]:
        """Of frames: uint16 for raw16, else uint8."""
        return np.dtype(np.uint16 if self.format == "raw16" else np.uint8)

    @property
    def flip(self) -> tuple[bool, bool]:
        """Whether frames are mirrored left to right, and top to bottom."""
        x, y = ctypes.c_bool(), ctypes.c_bool()
        self._lib().GetMisc(ctypes.byref(x), ctypes.byref(y))
        return x.value, y.value

    @flip.setter
    def flip(self, flip: tuple[bool, bool]) -> None:
        self._lib().SetMisc(*flip)

    def subtract_dark(self, path: str | os.PathLike[str] | None) -> None:
        """Subtracts a dark frame, as `vsccam dark make` writes them, from frames of 8 bits from
        then on; None ends it. Raises VsccamError when the file does not fit."""
        lib = self._lib()
        if path is None:
            lib.DisableDarkSubtract()
        elif not lib.EnableDarkSubtract(os.fsencode(path)):
            raise VsccamError(
                f"{os.fspath(path)} is no dark frame of {self.info.model}; 'vsccam dark info' "
                "tells what it is"
            )

    @property
    def auto_limits(self) -> tuple[int, int, int]:
        """Of the automatic modes: largest gain, longest exposure in seconds, and the mean
        brightness aimed at, 0 to 255."""
        values = [ctypes.c_int() for _ in range(3)]
        self._lib().getAutoPara(*(ctypes.byref(value) for value in values))
        return values[0].value, values[1].value, values[2].value

    @auto_limits.setter
    def auto_limits(self, limits: tuple[int, int, int]) -> None:
        self._lib().setAutoPara(*limits)

    # ---- frames

    def _new_frame(self) -> Frame:
        return np.empty(self.shape, self.dtype)

    def _fits(self, frame: Frame) -> bool:
        return frame.shape == self.shape and frame.dtype == self.dtype

    def _begin_frames(self) -> None:
        if not self._streaming.acquire(blocking=False):
            raise CameraBusy(
                f"{self.info.model} is taking frames already: end that exposure or video first"
            )

    def expose(
        self,
        seconds: float | None = None,
        *,
        timeout: float | None = None,
        out: Frame | None = None,
    ) -> Frame:
        """Takes one exposure.

        :param seconds: sets `exposure` before; models round times from 1 s on
        :param timeout: how long after the exposure the frame may come, in seconds; as long as the
            library tries by default
        :param out: an array of `shape` and `dtype` for the frame, without gaps
        :returns: the frame: (height, width), or (height, width, 3) for rgb24
        :raises NoFrame, CameraLost: it did not come, and why
        """
        lib = self._lib()
        if seconds is not None:
            self.exposure = seconds
        frame = self._new_frame() if out is None else out
        if not self._fits(frame) or not frame.flags.c_contiguous:
            raise OutOfRange(f"out must be of {self.shape} {self.dtype}, without gaps")
        self._begin_frames()
        try:
            working, success = 1, 2
            patience = 4 * _PATIENCE_S if timeout is None else timeout
            deadline = time.monotonic() + self.exposure + patience
            lib.startExposure()
            while lib.getExpStatus() == working:
                if time.monotonic() > deadline:
                    raise self._no_frame("the exposure did not end")
                self._between()
                time.sleep(_PAUSE_S)
            self._lib()  # it may have been closed meanwhile
            if lib.getExpStatus() != success or not lib.getImageAfterExp(
                frame.ctypes.data, frame.nbytes
            ):
                raise self._no_frame("the exposure ended without a frame")
        finally:
            if self._is_open():
                lib.stopExposure()
            self._streaming.release()
        return frame

    def frames(
        self,
        count: int | None = None,
        *,
        timeout: float | None = None,
        ring: int | Sequence[Frame] = 4,
    ) -> Iterator[Frame]:
        """Video: yields frames as they come, of `exposure` each. A camera that is lost and comes
        back goes on.

        :param count: ends after so many frames
        :param timeout: longest wait for a frame in seconds; 5 s and two exposures by default
        :param ring: number of arrays that are used in turn, or the arrays: each holds its frame
            until so many others came. Copy what you keep
        :raises NoFrame, CameraLost: none came in time, and why

        >>> import vsccam
        >>> with vsccam.Camera() as camera:
        ...     camera.exposure = 0.02
        ...     means = [frame.mean() for frame in camera.frames(5)]
        >>> len(means)
        5
        """
        self._begin_frames()
        try:
            lib = self._lib()
            lib.startCapture()
            if isinstance(ring, int):
                ring = [self._new_frame() for _ in range(ring)]
            arrays = list(ring)
            taken = 0
            while count is None or taken < count:
                place = taken % len(arrays)
                arrays[place] = self._await_frame(arrays[place], timeout)
                taken += 1
                yield arrays[place]
        finally:
            if self._is_open():
                library().stopCapture()
            self._streaming.release()

    def _await_frame(self, frame: Frame, timeout: float | None) -> Frame:
        patience = 2 * self.exposure + _PATIENCE_S if timeout is None else timeout
        deadline = time.monotonic() + patience
        while True:
            lib = self._lib()
            self._between()
            if not self._fits(frame):
                frame = self._new_frame()  # the format was changed
            left = max(int((deadline - time.monotonic()) * 1000), 0)
            if lib.getImageData(
                frame.ctypes.data, frame.nbytes, min(left, _STEP_MS)
            ) and self._fits(frame):
                return frame
            if left == 0:
                raise self._no_frame(f"no frame within {patience:g} s")

    @property
    def dropped(self) -> int:
        """Frames lost since the present video began."""
        return int(self._lib().getDroppedFrames())

    def _no_frame(self, what: str) -> VsccamError:
        # Another one of its model may be there: what counts is what the library looks for.
        if not any(
            camera.model == self.info.model and _is_named(camera, [self._choice.lower()])
            for camera in cameras()
        ):
            return CameraLost(f"{self.info.model} was unplugged; check plug and power")
        return NoFrame(f"{self.info.model}: {what}. Try another cable or port, or 'vsccam doctor'")

    # ---- guiding and cooling

    def guide(self, direction: Literal["north", "south", "east", "west"], seconds: float) -> None:
        """Sends a pulse to the guide port, and waits for its end. The line is off in any case
        then: also after a Control-C, which ends a pulse within a second, and after `close`. Pulses
        of one axis, from several threads, follow each other.

        :param seconds: its length; 0 switches the line off
        """
        self._pulse(direction, seconds, self._between)

    def _pulse(self, direction: str, seconds: float, between: Callable[[], None]) -> None:
        if direction not in _DIRECTIONS:
            raise OutOfRange(f"no direction {direction!r}; there are {', '.join(_DIRECTIONS)}")
        if not 0 <= seconds <= 3600:
            raise OutOfRange(f"a pulse of {seconds} s: it takes 0 to 3600")
        line = _DIRECTIONS.index(direction)
        left = round(seconds * 1000)
        with self._axes[line // 2]:  # or pieces of other pulses would come between
            while True:
                # The library switches the line off at the end of each piece, and nothing else does.
                piece = min(left, _LONGEST_PIECE_MS)
                self._lib().pulseGuide(line, piece)
                left -= piece
                if left == 0:
                    return
                between()

    def cool(self, target: int, *, wait: float = 0, within: float = 0.5) -> float:
        """Cools to a temperature in degrees Celsius, until the camera is closed.

        :param wait: how long to wait until it is there, in seconds
        :param within: so near counts, in degrees
        :returns: the temperature
        :raises NotSupported: the model has no cooler
        :raises TimedOut: it was not reached
        """
        self.target_temp = target
        self.cooler = True
        deadline = time.monotonic() + wait
        while abs((reached := self.temperature) - target) > within and wait > 0:
            if time.monotonic() > deadline:
                raise TimedOut(
                    f"{self.info.model} has {reached:.1f} C after {wait:g} s, at "
                    f"{self.cooler_power} % of its power; choose a warmer target"
                )
            self._sleep(_STEP_MS / 1000)
        return reached

    def warm(self, per_minute: float = 5) -> None:
        """Raises the target by so many degrees a minute until the cooler has no more to do, then
        switches it off: a sensor that warms at once gets dew."""
        for target in range(round(self.temperature), int(self.controls["target_temp"].maximum) + 1):
            if not self.cooler or self.cooler_power == 0:
                break
            self.target_temp = target
            self._sleep(60 / per_minute)
        self.cooler = False

    def _sleep(self, seconds: float) -> None:
        end = time.monotonic() + seconds
        while (left := end - time.monotonic()) > 0:
            self._between()
            time.sleep(min(left, _STEP_MS / 1000))
