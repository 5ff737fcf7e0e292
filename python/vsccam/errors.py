"""What can go wrong. The text of each says what happened, and what can be done about it."""


class VsccamError(Exception):
    """Whatever this package reports."""


class LibraryMissing(VsccamError, OSError):
    """The library libvsccam cannot be loaded."""


class NoCamera(VsccamError):
    """There is no camera, or not the one that was asked for."""


class NotPermitted(VsccamError, PermissionError):
    """The system does not let this user have the camera."""


class CameraBusy(VsccamError):
    """Another program, or this process, has the camera or is using it otherwise."""


class CameraClosed(VsccamError):
    """The camera was closed before."""


class CameraLost(VsccamError):
    """The camera, or the process that holds it, is gone."""


class TimedOut(VsccamError, TimeoutError):
    """Something did not happen in time."""


class NoFrame(TimedOut):
    """No frame came in time."""


class NotSupported(VsccamError):
    """This model does not have it."""


class OutOfRange(VsccamError, ValueError):
    """A value, size or format that this model does not take."""
