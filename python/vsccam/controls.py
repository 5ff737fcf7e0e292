"""The controls of a camera: their values, ranges and units."""

from __future__ import annotations

import ctypes
from collections.abc import Callable
from dataclasses import dataclass
from typing import TYPE_CHECKING, Generic, TypeVar, overload

from .errors import NotSupported, OutOfRange

if TYPE_CHECKING:
    from .camera import Camera


@dataclass(frozen=True)
class ControlFacts:
    """What is known of a control without a camera."""

    number: int  # of the C interface
    unit: str = ""
    scale: float = 1  # of the C interface's unit, in this one
    switch: bool = False
    writable: bool = True


FACTS = {
    "gain": ControlFacts(0),
    "exposure": ControlFacts(1, "s", 1e-6),
    "gamma": ControlFacts(2),
    "red": ControlFacts(3),
    "blue": ControlFacts(4),
    "offset": ControlFacts(5),
    "bandwidth": ControlFacts(6, "%"),
    "temperature": ControlFacts(8, "C", 0.1, writable=False),
    "hardware_bin": ControlFacts(9, switch=True),
    "high_speed": ControlFacts(10, switch=True),
    "cooler_power": ControlFacts(11, "%", writable=False),
    "target_temp": ControlFacts(12, "C"),
    "cooler": ControlFacts(13, switch=True),
    "mono_bin": ControlFacts(14, switch=True),
    "fan": ControlFacts(15, switch=True),
}

Value = float  # an int where the control has whole steps; switches are 0 and 1


class Control:
    """A control of an open camera.

    >>> import vsccam
    >>> with vsccam.Camera() as camera:
    ...     gain = camera.controls["gain"]
    ...     print(gain)
    gain 200 (0 to 600, 200 at first, can set itself)
    """

    def __init__(self, camera: Camera, name: str) -> None:
        self._camera = camera
        self._facts = FACTS[name]
        self.name = name
        self.unit = self._facts.unit
        """s, %, C (degrees Celsius), or empty."""
        lib = camera._lib()
        number = self._facts.number
        # The C interface does not tell of the one that colour cameras all have.
        self.available: bool = bool(
            lib.isColorCam() if name == "mono_bin" else lib.isAvailable(number)
        )
        """Whether this model has it."""
        self.can_be_auto: bool = bool(lib.isAutoSupported(number))
        """Whether it can set itself."""
        self.minimum: Value = self._scaled(lib.getMin(number))
        self.maximum: Value = self._scaled(lib.getMax(number))
        self.default: Value = self._scaled(lib.getValue(number, None))
        """The value after the camera was opened."""

    def _scaled(self, raw: int) -> Value:
        # Divided: a tenth is no binary number, and 0.3 should be that of the language.
        return raw if self._facts.scale == 1 else raw / round(1 / self._facts.scale)

    def _require(self) -> None:
        if not self.available:
            raise NotSupported(f"{self._camera.info.model} has no control '{self.name}'")

    @property
    def value(self) -> Value:
        """The present value, in `unit`. Raises NotSupported where the model lacks the control."""
        self._require()
        return self._scaled(self._camera._lib().getValue(self._facts.number, None))

    @value.setter
    def value(self, value: Value) -> None:
        self._require()
        if not self._facts.writable:
            raise NotSupported(f"'{self.name}' can only be read")
        if not self.minimum <= value <= self.maximum:
            raise OutOfRange(
                f"{self.name} {value}: {self._camera.info.model} takes "
                f"{self.minimum} to {self.maximum} {self.unit}".rstrip()
            )
        self._camera._lib().setValue(self._facts.number, round(value / self._facts.scale), False)

    @property
    def auto(self) -> bool:
        """Whether it sets itself. Raises NotSupported when it is set and the control cannot."""
        flag = ctypes.c_bool(False)
        self._camera._lib().getValue(self._facts.number, ctypes.byref(flag))
        return flag.value

    @auto.setter
    def auto(self, auto: bool) -> None:
        self._require()
        if auto and not self.can_be_auto:
            raise NotSupported(f"'{self.name}' does not set itself")
        lib = self._camera._lib()
        lib.setValue(self._facts.number, lib.getValue(self._facts.number, None), auto)

    def __repr__(self) -> str:
        if not self.available:
            return f"{self.name}: not on this model"
        unit = f" {self.unit}" if self.unit else ""
        alone = ", can set itself" if self.can_be_auto else ""
        return (
            f"{self.name} {self.value}{unit} ({self.minimum} to {self.maximum}{unit}, "
            f"{self.default} at first{alone})"
        )


T = TypeVar("T", bound=float)


class Setting(Generic[T]):
    """A control as an attribute of the camera."""

    def __init__(self, kind: Callable[[float], T], doc: str) -> None:
        self._kind = kind
        self._name = ""
        self.__doc__ = doc

    def __set_name__(self, owner: type, name: str) -> None:
        self._name = name

    @overload
    def __get__(self, camera: None, owner: type) -> Setting[T]: ...

    @overload
    def __get__(self, camera: Camera, owner: type) -> T: ...

    def __get__(self, camera: Camera | None, owner: type) -> Setting[T] | T:
        if camera is None:
            return self
        return self._kind(camera.controls[self._name].value)

    def __set__(self, camera: Camera, value: T) -> None:
        camera.controls[self._name].value = value
