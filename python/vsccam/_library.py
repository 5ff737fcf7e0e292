"""The functions of libvsccam, with the types of vsccam.h."""

import ctypes
import functools
import os
from ctypes import POINTER, c_bool, c_char_p, c_double, c_float, c_int, c_ubyte, c_void_p
from typing import Any

from .errors import LibraryMissing


class Identity(ctypes.Structure):
    """_VSC_ID"""

    _fields_ = [("id", c_ubyte * 8)]


_INTS = POINTER(c_int)
_BOOLS = POINTER(c_bool)
_BYTES = c_void_p  # unsigned char *, of an array

# name: (result, arguments). A bool has one byte, and VSC_BOOL is an int.
SIGNATURES: dict[str, tuple[Any, list[Any]]] = {
    "getSDKVersion": (c_char_p, []),
    "setDebugPrint": (None, [c_bool]),
    "getNumberOfConnectedCameras": (c_int, []),
    "getCameraModel": (c_char_p, [c_int]),
    "openCamera": (c_int, [c_int]),
    "initCamera": (c_int, []),
    "closeCamera": (None, []),
    "getValue": (c_int, [c_int, _BOOLS]),
    "setValue": (None, [c_int, c_int, c_bool]),
    "getMin": (c_int, [c_int]),
    "getMax": (c_int, [c_int]),
    "isAutoSupported": (c_int, [c_int]),
    "isAvailable": (c_int, [c_int]),
    "setAutoPara": (None, [c_int, c_int, c_int]),
    "getAutoPara": (None, [_INTS, _INTS, _INTS]),
    "setImageFormat": (c_int, [c_int, c_int, c_int, c_int]),
    "getImgType": (c_int, []),
    "isImgTypeSupported": (c_int, [c_int]),
    "isBinSupported": (c_int, [c_int]),
    "getBin": (c_int, []),
    "getMaxWidth": (c_int, []),
    "getMaxHeight": (c_int, []),
    "getWidth": (c_int, []),
    "getHeight": (c_int, []),
    "setStartPos": (None, [c_int, c_int]),
    "getStartX": (c_int, []),
    "getStartY": (c_int, []),
    "isColorCam": (c_int, []),
    "getPixelSize": (c_double, []),
    "getColorBayer": (c_int, []),
    "isUSB3Host": (c_int, []),
    "isUSB3Camera": (c_int, []),
    "isCoolerCam": (c_int, []),
    "getElectronsPerADU": (c_float, []),
    "getGainOffset": (None, [_INTS, _INTS, _INTS, _INTS]),
    "startCapture": (None, []),
    "stopCapture": (None, []),
    "getImageData": (c_int, [_BYTES, c_int, c_int]),
    "getDroppedFrames": (c_int, []),
    "startExposure": (None, []),
    "stopExposure": (None, []),
    "getExpStatus": (c_int, []),
    "getImageAfterExp": (c_int, [_BYTES, c_int]),
    "getSensorTemp": (c_float, []),
    "SetMisc": (c_int, [c_bool, c_bool]),
    "GetMisc": (None, [_BOOLS, _BOOLS]),
    "pulseGuide": (None, [c_int, c_int]),
    "EnableDarkSubtract": (c_int, [c_char_p]),
    "DisableDarkSubtract": (None, []),
    "GetID": (c_int, [POINTER(Identity)]),
    "SetID": (c_int, [Identity]),
}


@functools.lru_cache(maxsize=None)
def library() -> ctypes.CDLL:
    """The library, loaded at the first call."""
    name = os.environ.get("VSCCAM_LIBRARY") or "libvsccam.so.1"
    try:
        loaded = ctypes.CDLL(name)
        for function, (result, arguments) in SIGNATURES.items():
            entry = getattr(loaded, function)
            entry.restype = result
            entry.argtypes = arguments
    except (OSError, AttributeError) as error:
        raise LibraryMissing(
            f"cannot use {name}: {error}. Install the package libvsccam1, or name the file in "
            "the environment variable VSCCAM_LIBRARY"
        ) from None
    return loaded
