"""VSC astronomy cameras, with frames as numpy arrays.

>>> import vsccam
>>> with vsccam.Camera() as camera:
...     camera.gain = 200
...     frame = camera.expose(0.1)
>>> frame.shape, frame.dtype
((1096, 1936), dtype('uint16'))

A process holds one camera. `open_many` gives each of several a process of its own, and their frames
to this one. The library `libvsccam.so.1` has to be installed; the environment variable
VSCCAM_LIBRARY names another file.

No call waits for ever, and Control-C ends those that wait. What goes wrong is a `VsccamError`,
whose text says what can be done about it.
"""

from .camera import Camera, CameraInfo, Format, Frame, cameras
from .controls import Control
from .errors import (
    CameraBusy,
    CameraClosed,
    CameraLost,
    LibraryMissing,
    NoCamera,
    NoFrame,
    NotPermitted,
    NotSupported,
    OutOfRange,
    TimedOut,
    VsccamError,
)
from .many import Cameras, RemoteCamera, open_many

__all__ = [
    "Camera",
    "CameraBusy",
    "CameraClosed",
    "CameraInfo",
    "CameraLost",
    "Cameras",
    "Control",
    "Format",
    "Frame",
    "LibraryMissing",
    "NoCamera",
    "NoFrame",
    "NotPermitted",
    "NotSupported",
    "OutOfRange",
    "RemoteCamera",
    "TimedOut",
    "VsccamError",
    "cameras",
    "open_many",
]
