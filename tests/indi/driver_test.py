"""driver_test.py BIN [NAME...]: what a client sees of the driver, whatever goes wrong."""
import io
import os
import re
import signal
import subprocess
import sys
import threading
import time

from astropy.io import fits

from client import LONGEST
from rig import Rig

# An exposure ends by itself 5 s after its own time, and four frame times, which are short here; the
# driver waits 2 s longer. The rest is for a machine that is busy.
BOUND = 7 + 15


def header(frame):
    return fits.open(io.BytesIO(frame))[0].header


def pulses(rig):
    """(line, seconds) of each guide pulse, by the camera's own account."""
    found = [re.match(r"line (\d) was on for (\d+) us", one) for one in rig.account()]
    return [(int(one[1]), int(one[2]) / 1e6) for one in found if one]


def guide(client, **ms):
    for name, value in ms.items():
        other = {"N": "S", "S": "N", "E": "W", "W": "E"}[name]
        axis = "NS" if name in "NS" else "WE"
        client.numbers(f"TELESCOPE_TIMED_GUIDE_{axis}",
                       **{f"TIMED_GUIDE_{name}": value, f"TIMED_GUIDE_{other}": 0})


def state(client, wanted, seconds=LONGEST):
    client.wait(lambda: client.is_("CCD_STATUS", "STATE", wanted), seconds, f"state {wanted}")


def count(client, name):
    return client.number("CCD_STATISTICS", name)


def test_ends(rig_of):
    """Every exposure ends with a frame or a reason."""
    for fault, seconds in [("mute:b0@0", 1.5), ("unplug:b0@0", 1.5), ("stall-frame@0x*", 0.2),
                           ("empty-frame@0x*", 0.2), ("bad-head@0x*", 0.2)]:
        with rig_of(fault=fault) as rig:
            client = rig.client()
            client.connect()
            begun = time.monotonic()
            if ":b0" in fault:  # the request of a guide pulse
                threading.Timer(0.5, guide, [client], {"N": 1}).start()
            assert client.expose(seconds) is None, f"{fault}: a frame came"
            assert time.monotonic() - begun < seconds + BOUND, fault
            assert any("no frame: " in one for one in client.messages), fault


def test_abort(rig_of):
    """An exposure that is aborted in any state ends at once, and the next one works."""
    with rig_of() as rig:
        client = rig.client()
        client.connect()
        for exposure, after in [(30, 0), (30, 1), (0.05, 0.05), (0.02, 0), (0.01, 0.15)]:
            client.numbers("CCD_EXPOSURE", CCD_EXPOSURE_VALUE=exposure)
            time.sleep(after)
            begun = len(client.history)
            client.switch("CCD_ABORT_EXPOSURE", "ABORT")
            client.wait(lambda: any(one[0] == "CCD_EXPOSURE" and one[2] in ("Idle", "Ok")
                                    for one in client.history[begun:]), 2 + 10, "the abort")
        assert client.expose(0.01)
        client.numbers("CCD_EXPOSURE", CCD_EXPOSURE_VALUE=30)
        client.disconnect()
        client.connect()
        assert client.expose(0.01)


def test_replug(rig_of):
    """A camera that comes back is set as it was; the connection stays."""
    def expose(client):
        client.numbers("CCD_EXPOSURE", CCD_EXPOSURE_VALUE=20)
        state(client, "exposing")

    def video(client):
        client.switch("CCD_VIDEO_STREAM", "STREAM_ON")
        client.wait(lambda: client.blobs, what="video")

    def cool(client):
        client.numbers("CCD_TEMP_RAMP", RAMP_SLOPE=30, RAMP_THRESHOLD=0.2)
        client.numbers("CCD_TEMPERATURE", CCD_TEMPERATURE_VALUE=5)
        client.wait(lambda: client.states["CCD_TEMPERATURE"] == "Busy", what="cooling")

    for prepare in (lambda client: None, expose, video, cool):
        # The first guide pulse after opening unplugs it: "off" is sent at the opening only.
        with rig_of(cameras=["VSC470MC-Cool"], fault="replug:b0@0=1500") as rig:
            client = rig.client()
            client.connect()
            client.numbers("CCD_GAIN", GAIN=77)
            client.numbers("CCD_OFFSET", OFFSET=33)
            client.numbers("CCD_BINNING", HOR_BIN=2, VER_BIN=2)
            client.numbers("CCD_FRAME", X=200, Y=100, WIDTH=640, HEIGHT=480)
            client.switch("CCD_FLIP", "FLIP_Y")
            client.wait(lambda: client.is_("CCD_FRAME", "WIDTH", "640"), what="the region")
            prepare(client)
            frames = len(client.blobs)
            guide(client, N=50)
            client.wait(lambda: "CCD_STATISTICS" in client.values
                        and count(client, "RECONNECTS") == 1, what="the return")
            assert client.is_("CONNECTION", "CONNECT", "On")
            if prepare is video:
                client.wait(lambda: len(client.blobs) > frames + 2, what="video after the return")
                client.switch("CCD_VIDEO_STREAM", "STREAM_OFF")
                continue
            if prepare is cool:
                client.wait(lambda: client.number("CCD_SET_POINT", "SET_POINT") <= 16
                            and client.number("CCD_COOLER_POWER", "CCD_COOLER_VALUE") > 0,
                            what="cooling after the return")
            told = header(client.expose(0.01))
            assert (told["GAIN"], told["OFFSET"]) == (77, 33)
            assert (told["NAXIS1"], told["NAXIS2"], told["XBINNING"]) == (320, 240, 2)
            assert (told["XORGSUBF"], told["YORGSUBF"]) == (100, 50)
            assert told["BAYERPAT"] == "GBRG", told["BAYERPAT"]  # RGGB, mirrored top to bottom
            assert any("is back, and set as it was" in one for one in client.messages)


def test_times(rig_of):
    """DATE-OBS is the start of the exposure by the camera's own account."""
    with rig_of() as rig:
        client = rig.client()
        client.connect()
        for seconds in (0.01, 0.3, 1.5):
            told = header(client.expose(seconds))
            line = [one for one in rig.account() if one.startswith("frame")][-1]
            exposed, since = map(int, re.findall(r"(\d+) us", line))
            begun = since / 1e6 + time.time() - time.monotonic()
            obs = told["DATE-OBS"]
            start = time.strptime(obs[:19], "%Y-%m-%dT%H:%M:%S")
            start = (time.mktime(start) - time.timezone) + float(obs[19:])
            uncertainty = client.number("CCD_TIMING", "UNCERTAINTY")
            # The uncertainty grows with what the machine takes for itself.
            assert abs(start - begun) < max(0.02, uncertainty), (seconds, start - begun)
            assert seconds < 1 or uncertainty < 1
            assert abs(told["EXPTIME"] - exposed / 1e6) < 0.2 and told["EXPREQ"] == seconds
            assert abs(client.number("CCD_TIMING", "PLANNED") - told["EXPTIME"]) < 1e-6
        assert abs(told["EXPTIME"] - 1.4) < 1e-6 and told["EXPMEAS"] >= 1.4


def test_account(rig_of):
    """Frames: all that the camera sent were delivered, dropped or discarded."""
    with rig_of(fault="bad-head@1,bad-tail@3") as rig:
        client = rig.client()
        client.connect()
        for _ in range(3):
            assert client.expose(0.05)
        client.numbers("CCD_EXPOSURE", CCD_EXPOSURE_VALUE=0.05)
        time.sleep(0.6)
        client.switch("CCD_ABORT_EXPOSURE", "ABORT")
        client.wait(lambda: count(client, "FRAMES") + count(client, "DISCARDED") == 4,
                    what="the account")
        client.wait(lambda: count(client, "DROPPED") == 2, what="the dropped ones")


def test_regions(rig_of, models=("VSC470MC", "VSC340MM", "VSC2800MM", "VSC048MM")):
    """What is in force is told before the exposure; the full sensor is always reachable."""
    for model in models:
        with rig_of(cameras=[f"{model}:flawless"]) as rig:
            client = rig.client()
            client.connect()
            full = [int(client.number("CCD_INFO", f"CCD_MAX_{one}")) for one in "XY"]

            def take(bin_, x, y, width, height):
                client.numbers("CCD_BINNING", HOR_BIN=bin_, VER_BIN=bin_)
                client.numbers("CCD_FRAME", X=x, Y=y, WIDTH=width, HEIGHT=height)
                frame = client.expose(0.01)
                assert frame, (model, bin_, client.messages[-3:])
                told = header(frame)
                size = [int(client.number("CCD_FRAME", one)) for one in ("WIDTH", "HEIGHT")]
                assert [told["NAXIS1"] * bin_, told["NAXIS2"] * bin_] == size, (model, bin_)
                return size

            for bin_ in (1, 2, 3, 4):
                if bin_ <= int(client.number("CCD_BINNING", "HOR_BIN") + 3):
                    frames = len(client.messages)
                    client.numbers("CCD_BINNING", HOR_BIN=bin_, VER_BIN=bin_)
                    client.numbers("CCD_FRAME", X=0, Y=0, WIDTH=full[0], HEIGHT=full[1])
                    assert client.expose(0.01), (model, bin_)
            for odd in ((13, 7, 333, 221), (full[0] - 9, full[1] - 3, 500, 500), (1, 1, 1, 1)):
                width, height = take(1, *odd)
                assert width >= 8 and height >= 2
            client.switch("CCD_FRAME_RESET", "RESET")
            client.wait(lambda: [int(client.number("CCD_FRAME", one))
                                 for one in ("WIDTH", "HEIGHT")] == full, what=f"{model}: all of it")
            assert header(client.expose(0.01))["NAXIS1"] == full[0]


def test_guide(rig_of):
    """Pulses of both axes have their time, overlap none of their axis, and cost no frame."""
    with rig_of() as rig:
        client = rig.client()
        client.connect()
        client.switch("CCD_VIDEO_STREAM", "STREAM_ON")
        wanted = [("N", 1, 0), ("E", 200, 2), ("S", 300, 1), ("W", 30, 3), ("N", 1500, 0)]
        for name, ms, _ in wanted:
            guide(client, **{name: ms})
        client.wait(lambda: len(pulses(rig)) == len(wanted), what="the pulses")
        found = dict((line, []) for line in range(4))
        for line, seconds in pulses(rig):
            found[line].append(seconds)
        for name, ms, line in wanted:
            # A thread may sleep too long, never too short.
            assert ms / 1000 <= found[line].pop(0) < ms / 1000 + 5, name
        client.switch("CCD_VIDEO_STREAM", "STREAM_OFF")
        guide(client, S=20000)  # a killed driver leaves it on
        client.wait(lambda: [one for one in rig.account() if one.startswith("guide")][-1]
                    == "guide on 1", what="the line")
        rig.kill()  # the server starts it again
        again = rig.client()
        again.connect()
        assert [one for one in rig.account() if one.startswith("guide")].count("guide off 1") >= 3


def test_cooling(rig_of):
    """Cooling follows the ramp both ways, whoever watches."""
    with rig_of(cameras=["VSC470MC-Cool"]) as rig:
        client = rig.client()
        client.connect()
        client.numbers("CCD_TEMP_RAMP", RAMP_SLOPE=30, RAMP_THRESHOLD=0.2)
        client.numbers("CCD_TEMPERATURE", CCD_TEMPERATURE_VALUE=14)
        client.wait(lambda: client.number("CCD_SET_POINT", "SET_POINT") <= 18, what="the ramp")
        client.close()
        client = rig.client()
        client.wait(lambda: "CCD_SET_POINT" in client.values
                    and client.number("CCD_SET_POINT", "SET_POINT") == 14, what="its end")
        points = [float(one[1]["SET_POINT"]) for one in client.history if one[0] == "CCD_SET_POINT"]
        assert all(a - b <= 4.5 for a, b in zip(points, points[1:])), points  # 2 C in 4 s
        client.switch("CCD_COOLER", "COOLER_OFF")
        client.wait(lambda: client.states["CCD_COOLER"] == "Busy", what="warming")
        client.disconnect()  # it goes on warming
        client.connect()
        assert client.number("CCD_COOLER_POWER", "CCD_COOLER_VALUE") >= 0
        client.numbers("CCD_TEMP_RAMP", RAMP_SLOPE=0, RAMP_THRESHOLD=0.2)
        client.switch("CCD_COOLER", "COOLER_OFF")
        client.wait(lambda: client.states["CCD_COOLER_POWER"] == "Idle", what="off at once")


def test_choice(rig_of):
    """Of two equal cameras it is the one that was chosen, every time."""
    with rig_of(cameras=["VSC470MC", "VSC470MC"]) as rig:
        client = rig.client()
        ports = []
        client.connect()
        ports.append(client.values["CCD_CAMERA_INFO"]["PORT"])
        client.disconnect()
        other = "1-1" if ports[0] == "1-2" else "1-2"
        for port in (other, ports[0], other):
            client.set("Text", "CCD_CAMERA", SELECTOR=f"usb:{port}")
            client.connect()
            assert client.values["CCD_CAMERA_INFO"]["PORT"] == port
            assert client.expose(0.01)
            client.disconnect()
        assert any(one.startswith("frame") for one in rig.account(0))
        assert any(one.startswith("frame") for one in rig.account(1))


def test_video(rig_of, frames=60):
    """A client that reads slowly delays no capture; what it misses is counted."""
    with rig_of() as rig:
        client = rig.client()
        client.connect()
        client.numbers("STREAMING_EXPOSURE", STREAMING_EXPOSURE_VALUE=0.02,
                       STREAMING_DIVISOR_VALUE=1)
        slow = rig.client()
        slow.socket.setsockopt(1, 8, 4096)  # SO_RCVBUF
        slow.changed.acquire()  # it reads no further
        client.switch("CCD_VIDEO_STREAM", "STREAM_ON")
        client.wait(lambda: count(client, "FRAMES") + count(client, "DISCARDED") >= frames,
                    5 * LONGEST, "the frames")
        slow.changed.release()
        client.switch("CCD_VIDEO_STREAM", "STREAM_OFF")
        state(client, "idle")
        taken = count(client, "FRAMES") + count(client, "DISCARDED") + count(client, "DROPPED")
        read = sum(one.startswith("frame") for one in rig.account())
        assert read - 6 <= taken <= read + 1, (read, taken)  # the last ones were under way
        assert client.expose(0.01)


def test_two(rig_of):
    """Two drivers on one server: one is killed, the other goes on."""
    with rig_of(cameras=["VSC470MC", "VSC470MM"], fifo=True) as rig:
        rig.start("One")
        one = rig.client()
        rig.start("Two")
        two = rig.client()
        two.wait(lambda: two.device)
        one.connect()
        assert one.device == "One" and one.expose(0.01)
        victim = [pid for pid in rig.drivers()][-1]
        one.switch("CCD_VIDEO_STREAM", "STREAM_ON")
        state(one, "video")
        os.kill(victim, signal.SIGKILL)
        before = count(one, "FRAMES")
        one.wait(lambda: count(one, "FRAMES") > before + 20, what="video")
        assert count(one, "DROPPED") == 0
        one.switch("CCD_VIDEO_STREAM", "STREAM_OFF")


def test_stops(rig_of, rounds=4):
    """Disconnecting, aborting and stopping in any state leaves no thread and no descriptor."""
    with rig_of() as rig:
        client = rig.client()

        def use(exposure, video, after, leave):
            client.connect()
            if video:
                client.switch("CCD_VIDEO_STREAM", "STREAM_ON")
            else:
                client.numbers("CCD_EXPOSURE", CCD_EXPOSURE_VALUE=exposure)
            time.sleep(after)
            if leave == "abort":
                client.switch("CCD_ABORT_EXPOSURE", "ABORT")
            if leave == "stop":
                client.switch("CCD_VIDEO_STREAM", "STREAM_OFF")
            client.disconnect()

        def held():
            driver = f"/proc/{rig.drivers()[0]}/"
            return [len(os.listdir(driver + what)) for what in ("task", "fd")]

        use(0.01, False, 0.3, "")
        use(0, True, 0.3, "stop")
        before = held()
        for turn in range(rounds):
            after = 0.05 * (turn % 9)
            use(0.01, False, after, "abort")
            use(5, False, after, "")
            use(0, True, after, "stop" if turn % 2 else "")
        deadline = time.monotonic() + LONGEST
        while held() > before and time.monotonic() < deadline:
            time.sleep(0.1)  # threads of the base class end by themselves
        assert held() <= before, (before, held())


def every_model(folder):
    listed = subprocess.run([f"{folder}/vscsim", "list"], capture_output=True, text=True, check=True)
    return {"models": re.findall(r"VSC\w+(?:-Cool|-S)?", listed.stdout)}


# What takes long is done by night.
LONG = {"regions": every_model, "video": lambda _: {"frames": 10000},
        "stops": lambda _: {"rounds": 334}}


def main():
    folder, *names = sys.argv[1:]
    long = "--long" in names
    names = [name for name in names if name != "--long"]
    tests = {name[5:]: test for name, test in globals().items() if name.startswith("test_")}
    for name in names or tests:
        begun = time.monotonic()
        how = LONG.get(name, lambda folder: {})(folder) if long else {}
        tests[name](lambda **options: Rig(folder, **options), **how)
        print(f"{name}: {tests[name].__doc__} ({time.monotonic() - begun:.1f} s)")


if __name__ == "__main__":
    main()
