"""package_test.py VSCSIM LIBRARY SOURCE: the package as its users have it, with simulated cameras"""

import contextlib
import ctypes
import doctest
import functools
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

VSCSIM, LIBRARY, SOURCE = sys.argv[1:4]
os.environ["VSCCAM_LIBRARY"] = LIBRARY
sys.path.insert(0, f"{SOURCE}/python")

import numpy as np
import vsccam
from astropy.io import fits
from vsccam import _library, camera, controls, many


def on_bus(*options):
    """The test runs in a process that has these cameras."""

    def decorate(test):
        @functools.wraps(test)
        def outside(self):
            if "UMOCKDEV_DIR" in os.environ:
                return test(self)
            command = [VSCSIM, "run", *options, "--", sys.executable, *sys.argv[:4], self.id()]
            with tempfile.TemporaryDirectory() as folder:
                done = subprocess.run(command, cwd=folder, capture_output=True, text=True)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertNotIn("Traceback", done.stderr)

        return outside

    return decorate


class Interrupted:
    """Control-C, once what is under way waits for something."""

    def __init__(self, test):
        self._test = test

    def __enter__(self):
        self._timer = threading.Timer(0.7, os.kill, (os.getpid(), signal.SIGINT))
        self._timer.start()

    def __exit__(self, kind, error, trace):
        self._timer.cancel()
        self._test.assertIs(kind, KeyboardInterrupt)
        return True


def last_of_guide_port():
    with open("requests", encoding="ascii") as file:
        return re.findall("guide o.*", file.read())[-1]


def is_pattern(frame):
    """Whether all of a frame is the simulated cameras' test pattern, but for the marks' rows."""
    y, x = np.indices(frame.shape)
    high = frame >> 8 if frame.dtype == np.uint16 else frame
    number = (int(high[1, 0]) - 11) * 53  # 29 * 53 is 1 modulo 256
    expected = (number * 29 + x * 5 + y * 11 + (x >> 6) * (y >> 5)) & 0xFF
    return (high[1:-1] == expected[1:-1]).all()


class Package(unittest.TestCase):
    def test_signatures_are_those_of_the_header(self):
        with open(f"{SOURCE}/include/vsccam.h", encoding="utf-8") as file:
            header = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.DOTALL)
        types = {"int": ctypes.c_int, "VSC_BOOL": ctypes.c_int, "Control_TYPE": ctypes.c_int,
                 "GuideD": ctypes.c_int, "bool": ctypes.c_bool, "float": ctypes.c_float,
                 "double": ctypes.c_double, "void": None, "unsigned char *": ctypes.c_void_p,
                 "char *": ctypes.c_char_p, "int *": ctypes.POINTER(ctypes.c_int),
                 "bool *": ctypes.POINTER(ctypes.c_bool), "_VSC_ID": _library.Identity,
                 "_VSC_ID *": ctypes.POINTER(_library.Identity)}

        def type_of(text):
            return types[re.sub(r"\bconst ", "", re.sub(r"\w+$", "", text) or text).strip()]

        found = {}
        for result, name, arguments in re.findall(
            r"^VSC_API ([\w ]+?[ *]+)(\w+)\((.*?)\);", header, re.MULTILINE | re.DOTALL
        ):
            parts = [part.strip() for part in arguments.split(",")]
            found[name] = (
                type_of(result + "x"), [] if parts == ["void"] else [type_of(p) for p in parts]
            )
        self.assertEqual(len(found), 51)
        self.assertEqual(found, _library.SIGNATURES)
        numbers = dict(re.findall(r"CONTROL_(\w+) = (\d+)", header))
        for name, facts in controls.FACTS.items():
            called = {"red": "wb_red", "blue": "wb_blue", "offset": "brightness",
                      "cooler": "cooler_on", "fan": "fan_on"}.get(name, name)
            self.assertEqual(facts.number, int(numbers[called.upper()]), name)

    def test_types_are_right_and_the_version_is_the_librarys(self):
        command = [sys.executable, "-m", "mypy", "--cache-dir", os.devnull, "--strict",
                   "--ignore-missing-imports", "vsccam", f"{SOURCE}/examples/live_stack.py"]
        done = subprocess.run(command, cwd=f"{SOURCE}/python", capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        with open(f"{SOURCE}/python/pyproject.toml", encoding="utf-8") as file:
            version = re.search(r'^version = "(.*)"$', file.read(), re.MULTILINE)[1]
        self.assertEqual(version, _library.library().getSDKVersion().decode())

    @on_bus("--speed", "max")
    def test_examples_of_its_documentation_hold(self):
        for module in (vsccam, camera, controls, many):
            result = doctest.testmod(module)
            self.assertEqual((result.failed, result.attempted > 0), (0, True), module.__name__)

    @on_bus("--scene", "pattern", "--camera", "VSC470MM:flawless", "--speed", "max")
    def test_frames_hold_what_the_camera_sent(self):
        cases = [(dict(format="raw8", size=(640, 480), start=(0, 0)), np.uint8),
                 (dict(format="raw16", size=(104, 64), start=(0, 0)), np.uint16)]
        with vsccam.Camera() as c:
            for kept, (form, dtype) in enumerate(cases, 2):
                c.set_format(**form)
                shape = form["size"][::-1]
                self.assertEqual((c.shape, c.dtype, c.format), (shape, dtype, form["format"]))
                last = []
                for frame in c.frames(9, ring=kept + 1):
                    last = [*last[-kept:], frame]
                    self.assertEqual((frame.shape, frame.dtype), (shape, dtype))
                    self.assertTrue(all(is_pattern(held) for held in last))
                    self.assertEqual(len({held[1, 0] for held in last}), len(last))
                frame = np.empty(shape, dtype)
                self.assertIs(c.expose(0.001, out=frame), frame)
                self.assertTrue(is_pattern(frame))
                c.flip = (True, True)
                self.assertTrue(is_pattern(c.expose()[::-1, ::-1]))
                c.flip = (False, False)

    @on_bus("--camera", "VSC420MM-A", "--camera", "VSC470MM", "--camera", "VSC470MM")
    def test_passes_over_what_cannot_be_opened_unless_it_is_named(self):
        for named in (lambda: vsccam.Camera(0), lambda: vsccam.open_many(["VSC420MM-A"])):
            with self.assertRaisesRegex(vsccam.NotSupported, "primary edition"):
                named()
        with vsccam.open_many() as cameras:
            self.assertEqual([c.info.port for c in cameras], ["1-2", "1-3"])
            cameras[1].close()
            with vsccam.Camera() as c:
                self.assertEqual(c.info.port, "1-3")
            with vsccam.open_many() as more:
                self.assertEqual([c.info.port for c in more], ["1-3"])
                with self.assertRaisesRegex(vsccam.CameraBusy, "another program"):
                    vsccam.Camera()
            with self.assertRaisesRegex(vsccam.CameraBusy, "another program"):
                vsccam.open_many([2, "usb:1-2"])

    @on_bus("--camera", "VSC470MC", "--speed", "max")
    def test_refuses_with_a_reason(self):
        bad = vsccam.OutOfRange
        cases = [(bad, "takes 0 to 600", lambda c: setattr(c, "gain", 601)),
                 (bad, "takes 40 to 100 %", lambda c: setattr(c, "bandwidth", -1)),
                 (bad, "641 x 480", lambda c: c.set_format(size=(641, 480))),
                 (bad, "no direction", lambda c: c.guide("up", 1)),
                 (bad, "without gaps", lambda c: c.expose(out=np.zeros((2, 2), np.uint16))),
                 (vsccam.NotSupported, "no binning 3", lambda c: c.set_format(bin=3)),
                 (vsccam.NotSupported, "'target_temp'", lambda c: c.cool(0)),
                 (vsccam.NotSupported, "only be read", lambda c: setattr(
                     c.controls["temperature"], "value", 3)),
                 (vsccam.NotSupported, "set itself", lambda c: setattr(
                     c.controls["gamma"], "auto", True)),
                 (vsccam.VsccamError, "no dark frame", lambda c: c.subtract_dark(os.devnull)),
                 (vsccam.CameraBusy, "open_many", lambda c: vsccam.Camera()),
                 (vsccam.CameraBusy, "taking frames", lambda c: [c.expose() for _ in c.frames(1)]),
                 (vsccam.NoCamera, "there is KYR", lambda c: vsccam.open_many(["VSC999"])),
                 (vsccam.CameraBusy, "another program", lambda c: vsccam.open_many())]
        with vsccam.Camera() as c:
            for error, text, act in cases:
                with self.subTest(text), self.assertRaisesRegex(error, text):
                    act(c)
            c.set_format(size=(64, 48), bin=2, format="rgb24")
            self.assertEqual((c.expose(0.01).shape, c.bin), ((48, 64, 3), 2))
        with self.assertRaisesRegex(vsccam.CameraClosed, "closed"):
            c.expose()

    @on_bus("--camera", "VSC470MM-Cool", "--speed", "max")
    def test_controls_are_set_read_and_counted_in_their_units(self):
        with vsccam.Camera("VSC470MM-Cool") as c:
            for name, value in dict(gain=300, exposure=1.5, offset=3, high_speed=True).items():
                setattr(c, name, value)
                self.assertEqual(getattr(c, name), value, name)
            self.assertEqual(_library.library().getValue(1, None), 1_500_000)
            self.assertIs(type(c.high_speed), bool)
            c.controls["gain"].auto = True
            self.assertTrue(c.controls["gain"].auto)
            self.assertLess(c.cool(17, wait=60, within=2.5), 19.6)
            c.warm(per_minute=3000)
            self.assertFalse(c.cooler)
            with self.assertRaisesRegex(vsccam.TimedOut, "warmer target"):
                c.cool(-40, wait=0.1)

    @on_bus("--camera", "VSC470MM", "--camera", "VSC470MM", "--fault", "unplug@2")
    def test_a_lost_camera_is_told(self):
        for _ in range(2):
            with vsccam.Camera() as c, self.assertRaisesRegex(vsccam.CameraLost, "unplugged"):
                for _ in c.frames(timeout=1):
                    pass
        with self.assertRaises(vsccam.NoCamera):
            vsccam.Camera()

    @on_bus("--camera", "VSC470MM", "--camera", "VSC340MM", "--fault", "move@3x2=300")
    def test_video_goes_on_after_the_camera_was_plugged_into_another_port(self):
        with vsccam.Camera("VSC470MM") as c:
            c.gain = 77
            lost = [c.dropped for _ in c.frames(12, timeout=60)]
            self.assertEqual((len(lost), lost[0], lost[-1] > 0, c.gain), (12, 0, True, 77))
        ports = {camera.model: camera.port for camera in vsccam.cameras()}
        self.assertEqual(ports, {"KYR VSC470MM": "1-4", "KYR VSC340MM": "1-2"})

    @on_bus("--camera", "VSC470MM:requests=requests", "--fault", "empty-frame@0x*")
    def test_waits_end_by_their_timeout_and_by_control_c(self):
        with vsccam.Camera() as c:
            for act in (lambda: next(c.frames(timeout=0.3)), lambda: c.expose(timeout=0.3)):
                with self.assertRaisesRegex(vsccam.NoFrame, "Try another cable"):
                    act()
            pulse = functools.partial(c.guide, "west", 3600)
            for act in (lambda: next(c.frames()), lambda: c.expose(1000), pulse):
                with Interrupted(self):
                    act()
            self.assertEqual(last_of_guide_port(), "guide off 3")
        with vsccam.open_many() as cameras:
            pulse = functools.partial(cameras[0].guide, "east", 3600)
            for act in (lambda: cameras.expose(1000), lambda: next(cameras[0].frames()), pulse):
                with Interrupted(self):
                    act()
                self.assertEqual(cameras[0].gain, 200)
            time.sleep(0.5)  # a pulse that goes on is in its next piece by then
            self.assertEqual(last_of_guide_port(), "guide off 2")

    @on_bus("--camera", "VSC470MM:requests=requests")
    def test_pulses_of_one_axis_follow_each_other_and_delay_no_frames(self):
        def started(guide, seconds):
            pulses = [
                threading.Thread(target=guide, args=(way, seconds)) for way in ("north", "south")
            ]
            for pulse in pulses:
                pulse.start()
            return pulses

        def order():
            with open("requests", encoding="ascii") as file:
                return "".join(re.findall("guide on ([01])", file.read()))

        with vsccam.Camera() as c:
            for pulse in started(c.guide, 1.1):
                pulse.join()
        self.assertRegex(order(), "^(0011|1100)$")
        def guide(way, seconds):
            with contextlib.suppress(vsccam.VsccamError):  # it is closed before the end
                cameras[0].guide(way, seconds)

        with vsccam.open_many() as cameras:
            frames = cameras[0].frames()
            next(frames)
            pulses = started(guide, 20)
            while len(order()) == 4:
                next(frames)
            for _ in range(3):
                next(frames)
            self.assertIn("guide on", last_of_guide_port())
        for pulse in pulses:
            pulse.join()
        self.assertIn("guide off", last_of_guide_port())

    @on_bus("--camera", "VSC470MC", "--camera", "VSC470MC", "--camera", "VSC340MM")
    def test_several_cameras_work_at_once(self):
        with vsccam.open_many() as cameras:
            with self.assertRaises(vsccam.CameraBusy):
                vsccam.Camera(0)
            first, second, third = cameras
            first.gain = 77
            third.set_format(size=(640, 480), format="raw8")
            self.assertEqual((first.gain, second.gain), (77, 200))
            one, two, three = cameras.expose(0.05)
            self.assertFalse((one == two).all())
            self.assertEqual((three.shape, three.dtype), ((480, 640), np.uint8))
            for number, frames in enumerate(zip(*(c.frames(6) for c in cameras))):
                self.assertEqual([f.shape for f in frames], [c.shape for c in cameras])
                second.gain = 100 + number
            self.assertEqual(second.gain, 105)
            for frame in third.frames(5, ring=2):
                before = frame.copy()
                time.sleep(0.1)
                self.assertTrue((frame == before).all())
            with self.assertRaisesRegex(vsccam.OutOfRange, "takes 0 to 600"):
                second.gain = 601
            with self.assertRaises(ctypes.ArgumentError):
                second.auto_limits = ("most", 1, 100)
            with self.assertRaises(vsccam.CameraLost):
                for _ in third.frames():
                    third._process.kill()
            with self.assertRaises(vsccam.CameraLost):
                cameras.expose(1000)
            self.assertEqual(second.expose(0.01).shape, (1096, 1936))
            unfinished = second.frames()
            next(unfinished)
        self.assertNotIn(None, [c._process.poll() for c in cameras])

    def test_live_stacking_finds_the_drift_and_lowers_the_noise(self):
        drift, frames = 8, 16
        with tempfile.TemporaryDirectory() as folder:
            sky = f"VSC470MM:seeing=0:drift={drift}:requests={folder}/requests"
            paths = [f"{SOURCE}/python", os.environ.get("PYTHONPATH", "")]
            sharpness = []
            for options in [[], ["--no-align"]]:
                done = subprocess.run(
                    [VSCSIM, "run", "--speed", "max", "--camera", sky, "--", sys.executable,
                     f"{SOURCE}/examples/live_stack.py", "--exposure", "0.1", *options,
                     "--frames", str(frames), f"{folder}/stack.fits"],
                    env={**os.environ, "PYTHONPATH": os.pathsep.join(paths)},
                    capture_output=True, text=True)
                self.assertEqual(done.returncode, 0, done.stderr)
                stack, header = fits.getdata(f"{folder}/stack.fits", header=True)
                self.assertEqual((stack.shape, header["NCOMBINE"]), ((1096, 1936), frames))
                sharpness.append(np.square(np.diff(stack[20:-20, 20:-20].astype(float))).sum())
                lines = re.findall(r"by (.*), (.*) px; noise (.*), of the mean (.*)", done.stdout)
                self.assertEqual(len(lines), frames)
                right, down, single, mean = map(float, lines[-1])
                with open(f"{folder}/requests", encoding="ascii") as file:
                    times = [int(us) / 1e6 for us in re.findall(r"exposed (\d+) us", file.read())]
                moved = drift * sum(times[1 - frames :])  # at 0.4 rad against the rows
                self.assertAlmostEqual(right, moved * np.cos(0.4), delta=0.1)
                self.assertAlmostEqual(down, moved * np.sin(0.4), delta=0.1)
                self.assertAlmostEqual(mean * frames**0.5 / single, 1, delta=0.15)
            self.assertGreater(sharpness[0], 3 * sharpness[1])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *(name.removeprefix("__main__.") for name in sys.argv[4:])])
