#!/usr/bin/env python3
"""indi.py BIN [ROUNDS] [EXPOSURES]: exposures a second at a client, 1936 x 1096 of 16 bits and 10 ms,
in turns from the driver with a simulated camera and from INDI's own simulator of a camera."""
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests" / "indi"))
from client import Client  # noqa: E402
from rig import Rig, free_port  # noqa: E402

WIDTH, HEIGHT, SECONDS = 1936, 1096, 0.01


def simulator(folder):
    """INDI's own, with a sensor of the same size."""
    port = free_port()
    log = open(folder / "simulator.log", "w")
    server = subprocess.Popen(["indiserver", "-p", str(port), "-u", f"{folder}/other", "indi_simulator_ccd"], cwd=folder,
                              stdout=log, stderr=log)
    while True:
        try:
            client = Client(port)
            break
        except ConnectionRefusedError:
            time.sleep(0.1)
    client.wait(lambda: "SIMULATOR_SETTINGS" in client.values, what="its settings")
    client.numbers("SIMULATOR_SETTINGS", **{**client.values["SIMULATOR_SETTINGS"],
                                            "SIM_XRES": WIDTH, "SIM_YRES": HEIGHT})
    client.switch("CONNECTION", "CONNECT")
    client.wait(lambda: client.values.get("CCD_INFO", {}).get("CCD_MAX_X") == str(WIDTH),
                what="its size")
    return server, client


def rate(client, count):
    begun = time.monotonic()
    for _ in range(count):
        frame = client.expose(SECONDS)
        assert len(frame) > WIDTH * HEIGHT * 2
    return count / (time.monotonic() - begun)


def main():
    folder = sys.argv[1]
    rounds, count = (int(one) for one in (sys.argv[2:] + ["3", "20"][len(sys.argv) - 2:]))
    # Frames that were made before: the speed of the simulated sky is not what is measured.
    with Rig(folder, cameras=["VSC470MM:made=4"]) as rig:
        ours = rig.client()
        ours.connect()
        server, theirs = simulator(rig.home)
        try:
            for client in (ours, theirs):
                rate(client, 2)
            for _ in range(rounds):
                driver, other = rate(ours, count), rate(theirs, count)
                print(f"driver {driver:.1f} exposures/s, INDI's simulator {other:.1f}: "
                      f"{driver / other:.2f}")
        finally:
            server.terminate()
            server.wait()


if __name__ == "__main__":
    main()
