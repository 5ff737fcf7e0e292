#!/usr/bin/env python3
"""serve.py [ROUNDS] [SECONDS] [PREFIX...]: what clients cost a camera that is served, side by side in one run.

Frames that come while nobody asks, and while 50 clients do what they like: garbage, requests by
halves, bodies without an end, and some that ask for the state as fast as it is answered. Then the
time of an Alpaca image in its binary form, against a copy of the same bytes in memory. With a
prefix such as "chrt -r 1", other programs of a busy machine do not take part in the server's time.
"""
import http.client
import json
import random
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

ROUNDS = int(sys.argv[1]) if len(sys.argv) > 1 else 3
SECONDS = float(sys.argv[2]) if len(sys.argv) > 2 else 5
BIN = Path(__file__).resolve().parent.parent / "build/release/bin"
CLIENTS = 50


def ask(port, path, method="GET", body=None, headers=None):
    # From an address of its own: so many clients of one are not let in.
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60,
                                            source_address=("127.0.0.2", 0))
    connection.request(method, path, body, headers or {})
    data = connection.getresponse().read()
    connection.close()
    return data


def frames_per_second(port):
    def count():
        return json.loads(ask(port, "/api/statistics"))["frames"], time.monotonic()

    before, begin = count()
    time.sleep(SECONDS)
    after, end = count()
    return (after - before) / (end - begin)


def annoy(port, number, ended):
    """One client, until the end."""
    while not ended.is_set():
        try:
            with socket.create_connection(("127.0.0.1", port), 5) as client:
                if number % 5 == 0:
                    client.sendall(random.randbytes(1000) + b"\r\n\r\n")
                elif number % 5 == 1:
                    client.sendall(b"GET /api/state HT")
                    ended.wait(1)
                elif number % 5 == 2:
                    client.sendall(b"PUT /api/video HTTP/1.1\r\nHost: localhost\r\n"
                                   b"Transfer-Encoding: chunked\r\n\r\n")
                    for _ in range(100):
                        client.sendall(b"2000\r\n" + bytes(0x2000) + b"\r\n")
                elif number % 5 == 3:
                    client.sendall(b"GET / HTTP/1.1\r\nHost: localhost\r\n" + b"X: y\r\n" * 9999)
                else:
                    client.sendall(b"GET /api/state HTTP/1.1\r\nHost: localhost\r\n\r\n")
                    client.recv(1000)
                ended.wait(0.1)
        except OSError:
            ended.wait(0.1)  # refused: that is what is measured


def with_clients(port):
    ended = threading.Event()
    clients = [threading.Thread(target=annoy, args=(port, n, ended)) for n in range(CLIENTS)]
    for client in clients:
        client.start()
    time.sleep(1)
    rate = frames_per_second(port)
    ended.set()
    for client in clients:
        client.join()
    return rate


def image_times(port):
    """Seconds of an image, and of a copy of its bytes."""
    words = {"Content-Type": "application/x-www-form-urlencoded"}
    camera = "/api/v1/camera/0/"
    ask(port, camera + "connected", "PUT", "Connected=True&ClientID=1", words)
    ask(port, camera + "startexposure", "PUT", "Duration=0.01&Light=True&ClientID=1", words)
    while not json.loads(ask(port, camera + "imageready?ClientID=1"))["Value"]:
        time.sleep(0.01)
    begin = time.monotonic()
    image = ask(port, camera + "imagearray?ClientID=1",
                headers={"Accept": "application/imagebytes"})
    middle = time.monotonic()
    bytearray(image)
    return middle - begin, time.monotonic() - middle, len(image)


def main():
    server = subprocess.Popen([*sys.argv[3:], BIN / "vsccam", "--sim", "VSC470MC", "-q", "--json", "serve",
                               "--alpaca", "--port", "0"], stdout=subprocess.PIPE, text=True)
    try:
        port = json.loads(server.stdout.readline())["port"]
        ratios = []
        for _ in range(ROUNDS):
            alone = frames_per_second(port)
            loaded = with_clients(port)
            ratios.append(loaded / alone)
            print(f"{alone:.1f} frames/s alone, {loaded:.1f} with {CLIENTS} clients: "
                  f"{ratios[-1]:.3f}", flush=True)
        print(f"median {sorted(ratios)[len(ratios) // 2]:.3f}")
        image, copy, size = min(image_times(port) for _ in range(5))
        print(f"image of {size} bytes over HTTP: {image * 1e3:.1f} ms; a copy of it "
              f"{copy * 1e3:.2f} ms: {image / copy:.0f} times")
    finally:
        server.terminate()
        server.wait()


if __name__ == "__main__":
    main()
