#!/usr/bin/env python3
"""serve.py VSCCAM VSCSIM: the server of a simulated camera, as its clients and its enemies see it."""
import base64
import http.client
import io
import json
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import urllib.parse

import numpy
from astropy.io import fits

VSCCAM, VSCSIM = sys.argv[1:3]
TOKEN = "a-token-of-some-length"


def check(holds, *what):
    if not holds:
        raise AssertionError(what)


def until(get, what, seconds=30):
    """Waits for a true value; the time only ends a test that would never end."""
    end = time.monotonic() + seconds
    while not (value := get()):
        check(time.monotonic() < end, "never came: " + what)
        time.sleep(0.02)
    return value


class Server:
    def __init__(self, *arguments, camera="VSC470MC", fault=None, token=None,
                 address="127.0.0.1"):
        self.token = token
        self.address = address
        self.folder = tempfile.TemporaryDirectory()
        words = [VSCSIM, "run", "--camera", camera]
        words += ["--fault", fault] if fault else []
        # The shell tells the number of the program, which is no child of ours.
        words += ["--", "sh", "-c", 'echo $$; exec "$@"', "sh", VSCCAM, "-q", "--json", "serve",
                  "--port", "0", "--folder", self.folder.name, *arguments]
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        self.pid = int(self.process.stdout.readline())
        self.port = json.loads(self.process.stdout.readline())["port"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self, by=signal.SIGTERM):
        if self.process.poll() is None:
            os.kill(self.pid, by)
        code = self.process.wait(30)
        self.process.stdout.close()
        self.folder.cleanup()
        return code

    def ask(self, method, path, body=None, headers=None):
        connection = http.client.HTTPConnection(self.address, self.port, timeout=30)
        sent = {"Authorization": "Bearer " + self.token} if self.token else {}
        if isinstance(body, dict):
            body = json.dumps(body)
            sent["Content-Type"] = "application/json"
        connection.request(method, path, body, {**sent, **(headers or {})})
        answer = connection.getresponse()
        data = answer.read()
        connection.close()
        return answer.status, dict(answer.getheaders()), data

    def get(self, path):
        status, _, data = self.ask("GET", path)
        check(status == 200, path, status, data)
        return json.loads(data)

    def put(self, path, **members):
        status, _, data = self.ask("PUT", path, members)
        check(status == 200, path, members, status, data)

    def raw(self, data, wait=5):
        """Sends bytes as they are. Returns the first line of the answer; empty: it just closed."""
        with socket.create_connection(("127.0.0.1", self.port), wait) as client:
            try:
                client.sendall(data)
            except OSError:
                pass  # closed while we still speak
            try:
                return client.recv(65536).split(b"\r\n")[0].decode("latin-1")
            except OSError:
                return ""

    def memory(self):
        """Of the program, MiB"""
        with open(f"/proc/{self.pid}/status") as status:
            return int(re.search(r"VmRSS:\s+(\d+)", status.read())[1]) / 1024


# ---- the API


def conforms(value, schema, description, at="answer"):
    """Whether JSON is what the description says."""
    if "$ref" in schema:
        schema = description["components"]["schemas"][schema["$ref"].rsplit("/", 1)[1]]
    if "anyOf" in schema:
        kinds = [s for s in schema["anyOf"] if (s.get("type") == "null") == (value is None)]
        return conforms(value, kinds[0], description, at)
    kinds = schema.get("type", [])
    kinds = [kinds] if isinstance(kinds, str) else kinds
    types = {"object": dict, "array": list, "string": str, "boolean": bool, "null": type(None),
             "integer": int, "number": (int, float)}
    check(not kinds or any(isinstance(value, types[kind]) and
                           (kind == "boolean" or not isinstance(value, bool)) for kind in kinds),
          at, value, kinds)
    if isinstance(value, dict):
        known = schema.get("properties", {})
        check(set(value) <= set(known), at, "has", set(value) - set(known))
        check(set(schema.get("required", [])) <= set(value), at, "lacks a member", value)
        for name, member in value.items():
            conforms(member, known[name], description, f"{at}.{name}")
    if isinstance(value, list):
        for member in value:
            conforms(member, schema["items"], description, at + "[]")
    return True


# Method, path as it is described, what stands for its name, body, status.
API = [
    ("GET", "/api/state", "", None, 200),
    ("GET", "/api/info", "", None, 200),
    ("GET", "/api/openapi.json", "", None, 200),
    ("GET", "/api/controls", "", None, 200),
    ("GET", "/api/controls/{name}", "gain", None, 200),
    ("GET", "/api/controls/{name}", "nothing", None, 404),
    ("PUT", "/api/controls/{name}", "gain", {"value": 100}, 200),
    ("PUT", "/api/controls/{name}", "exposure", {"value": 0.01}, 200),
    ("PUT", "/api/controls/{name}", "gain", {"auto": True}, 200),
    ("PUT", "/api/controls/{name}", "high-speed", {"value": True}, 200),
    ("PUT", "/api/controls/{name}", "gain", {"value": 100000}, 400),
    ("PUT", "/api/controls/{name}", "gain", {"value": 1.5}, 400),
    ("PUT", "/api/controls/{name}", "gain", {"value": 1e300}, 400),
    ("PUT", "/api/controls/{name}", "gain", {}, 400),
    ("PUT", "/api/controls/{name}", "fan", {"value": True}, 404),
    ("PUT", "/api/controls/{name}", "temperature", {"value": 1}, 409),
    ("GET", "/api/format", "", None, 200),
    ("PUT", "/api/format", "", {"type": "raw16", "region":
                                {"width": 640, "height": 480, "x": 64, "y": 32}}, 200),
    ("PUT", "/api/format", "", {"type": "raw32"}, 400),
    ("PUT", "/api/format", "", {"bin": 3}, 404),
    ("PUT", "/api/format", "", {"region": {"width": 99999, "height": 2}}, 400),
    ("GET", "/api/statistics", "", None, 200),
    ("GET", "/api/picture.fits", "", None, 404),
    ("GET", "/api/frame", "", None, 200),
    ("PUT", "/api/record", "", {"file": "moon.ser", "frames": 5}, 200),
    ("PUT", "/api/record", "", {"file": "moon.fit"}, 400),
    ("PUT", "/api/record", "", {"file": "../moon.ser"}, 400),
    ("PUT", "/api/record/stop", "", {}, 200),
    ("PUT", "/api/capture", "", {"exposure_s": -1}, 400),
    ("PUT", "/api/capture", "", {"exposure_s": 1e7}, 400),
    ("PUT", "/api/capture", "", {"exposure_s": 0.01, "name": "a/b.fit"}, 400),
    ("PUT", "/api/capture", "", {"exposure_s": 0.01, "name": "m42.txt"}, 400),
    ("PUT", "/api/capture", "", {"exposure_s": 60, "count": 2}, 200),
    ("PUT", "/api/capture", "", {"exposure_s": 60}, 409),
    ("PUT", "/api/capture/stop", "", {}, 200),
    ("PUT", "/api/video", "", {"on": False}, 200),
    ("PUT", "/api/video", "", {"on": "yes"}, 400),
    ("PUT", "/api/guide", "", {"direction": "north", "time_s": 30}, 200),
    ("PUT", "/api/guide", "", {"direction": "south", "time_s": 0.1}, 409),
    ("PUT", "/api/guide", "", {"direction": "up", "time_s": 1}, 400),
    ("GET", "/api/cooling", "", None, 200),
    ("PUT", "/api/cooling", "", {"on": True, "target_c": 0}, 404),
    ("GET", "/api/events", "", None, 200),
]


def test_every_path_of_the_api_answers_as_described():
    with Server() as server:
        description = server.get("/api/openapi.json")
        walked = set()
        for method, path, name, body, wanted in API:
            walked.add((method.lower(), path))
            until(lambda: not (server.get("/api/state")["recording"] or {}).get("running") or
                  path.startswith("/api/record"), "the end of the recording")
            status, _, data = server.ask(method, path.replace("{name}", name), body)
            check(status == wanted, method, path, body, status, data)
            responses = description["paths"][path][method.lower()]["responses"]
            response = responses.get(str(status)) or responses["default"]
            for media, content in response["content"].items():
                if media == "application/json" and "schema" in content:
                    conforms(json.loads(data), content["schema"], description, path)
        described = {(method, path) for path, item in description["paths"].items()
                     for method in item if method in ("get", "put")}
        walked |= {("get", "/live.mjpg")}  # which has no end; see below
        check(walked == described, walked ^ described)


def test_pictures_for_the_eye_come_as_they_are_wished():
    with Server() as server:
        description = server.get("/api/openapi.json")
        for query in ("size=x", "stretch=1,2", "stretch=0.5,0.5,0.4", "stretch=0,1,1", "loupe=1",
                      "loupe=-1,1", "after=x"):
            check(server.ask("GET", "/api/frame?" + query)[0] == 400, query)
        last = 0
        for query, size in (("size=full", 1936), ("stretch=linear", 968), ("size=quarter", 484),
                            ("stretch=0,0.1,1&loupe=1935,3", 256)):
            status, headers, data = server.ask("GET", f"/api/frame?after={last}&{query}")
            check(status == 200 and data.startswith(b"\xff\xd8"), query, status)
            facts = json.loads(headers["Vsccam-Frame"])
            conforms(facts, {"$ref": "#/components/schemas/Frame"}, description, query)
            check(facts["sequence"] > last, "not newer", facts)
            last = facts["sequence"]
            check(facts["window"][2] // facts["reduction"] == size, query, facts)
        server.put("/api/video", on=False)
        check(server.ask("GET", f"/api/frame?after={last + 1000}")[0] == 204, "there is none")


def test_four_players_get_one_picture_after_the_other():
    with Server() as server:
        players = []
        for _ in range(4):
            players.append(http.client.HTTPConnection("127.0.0.1", server.port, timeout=30))
            players[-1].request("GET", "/live.mjpg")
            answer = players[-1].getresponse()
            parts = [answer.readline() for _ in range(3)]
            check(parts[1] == b"Content-Type: image/jpeg\r\n", parts)
            answer.read(int(parts[2].split(b":")[1]) + 4)
            check(answer.readline() == parts[0], "another boundary follows a picture")
        another = b"GET /live.mjpg HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"
        check(" 503 " in server.raw(another), "a fifth player")
        players[0].close()
        until(lambda: " 200 " in server.raw(another), "room for another one")


def test_pictures_and_recordings_are_files_that_others_read():
    with Server() as server:
        folder = server.folder.name
        server.put("/api/format", type="raw16")
        server.put("/api/capture", exposure_s=0.02, count=2, name="m42_{seq:02}.fit", object="M 42")
        until(lambda: server.get("/api/state")["capture"]["taken"] == 2, "two pictures")
        with fits.open(folder + "/m42_02.fit") as saved:
            got = fits.open(io.BytesIO(server.ask("GET", "/api/picture.fits")[2]))[0]
            check((saved[0].data == got.data).all() and saved[0].header == got.header)
            check(saved[0].header["OBJECT"] == "M 42" and saved[0].header["SIMULATE"])
        until(lambda: server.get("/api/state")["mode"] == "video", "the video again")
        server.put("/api/record", file="moon.ser", frames=10)
        check(server.ask("PUT", "/api/format", {"bin": 2})[0] == 409)
        until(lambda: not server.get("/api/state")["recording"]["running"], "the end")
        told = subprocess.run([VSCCAM, "--json", "ser", "info", folder + "/moon.ser"], check=True,
                              capture_output=True, text=True)
        check(json.loads(told.stdout)["frames"] == 10, told.stdout)
        server.put("/api/record", file="long.ser")
        until(lambda: server.get("/api/state")["recording"]["frames"] > 0, "a frame")
        check(sorted(os.listdir(folder))[:2] == [".long.ser.times", "long.ser"] or
              "long.ser" in os.listdir(folder))
        check(server.process.poll() is None)
        os.kill(server.pid, signal.SIGTERM)
        check(server.process.wait(30) == 143)
        told = subprocess.run([VSCCAM, "--json", "ser", "info", folder + "/long.ser"], check=True,
                              capture_output=True, text=True)
        check(json.loads(told.stdout)["faults"] == [], told.stdout)


def test_a_camera_that_is_unplugged_comes_back_with_its_settings():
    for video in True, False:
        with Server("--no-warming", camera="VSC470MM-Cool", fault="replug@20=1500") as server:
            server.put("/api/controls/gain", value=123)
            server.put("/api/cooling", on=True, target_c=5)
            if not video:
                server.put("/api/capture", exposure_s=0.05, count=25)
            until(lambda: not server.get("/api/state")["present"], "the loss")
            check(server.ask("PUT", "/api/controls/gain", {"value": 5})[0] == 503)
            state = until(lambda: (s := server.get("/api/state"))["present"] and s, "the return")
            check(state["statistics"]["reconnects"] == 1)
            check(server.get("/api/controls/gain")["value"] == 123)
            cooling = server.get("/api/state")["cooling"]
            check(cooling["on"] and cooling["target_c"] == 5, cooling)
            frames = state["statistics"]["frames"]
            until(lambda: server.get("/api/state")["statistics"]["frames"] > frames, "frames")
            texts = " ".join(event["text"] for event in server.get("/api/events")["events"])
            check("is gone" in texts and "is back" in texts, texts)


# ---- what nobody should send


HOST = "Host: 127.0.0.1\r\n"
REFUSED = [
    (b"\0\xff\xfe\x80garbage\r\n\r\n", ("", "400")),
    (b"GET /api/state HTTP/9.9\r\n\r\n", ("400", "505", "421")),
    (b"GET /api/state HTTP/1.1\r\n\r\n", ("400", "421")),
    (f"GET /{'a' * 100000} HTTP/1.1\r\n{HOST}\r\n".encode(), ("", "414", "431", "413")),
    (f"GET / HTTP/1.1\r\n{HOST}{'X: y' * 20000}\r\n\r\n".encode(), ("", "431", "413")),
    (f"GET / HTTP/1.1\r\n{HOST}{chr(10).join(f'X{i}: y' for i in range(9999))}\r\n\r\n".encode(),
     ("", "431", "413")),
    (f"PUT /api/video HTTP/1.1\r\n{HOST}Content-Length: 70000\r\n\r\n".encode(), ("413",)),
    (f"PUT /api/video HTTP/1.1\r\n{HOST}Content-Length: -1\r\n\r\n".encode(), ("", "400")),
    (f"PUT /api/video HTTP/1.1\r\n{HOST}Transfer-Encoding: chunked\r\n\r\nzz\r\n".encode(),
     ("", "400")),
    (f"GET /api/state HTTP/1.1\r\nHost: evil.example\r\n\r\n".encode(), ("421",)),
    (f"GET / HTTP/1.1\r\n{HOST}Origin: http://evil.example\r\n\r\n".encode(), ("403",)),
    (f"GET / HTTP/1.1\r\n{HOST}Origin: null\r\n\r\n".encode(), ("403",)),
    (f"POST /api/video HTTP/1.1\r\n{HOST}Content-Length: 0\r\n\r\n".encode(), ("405",)),
    (f"OPTIONS /api/video HTTP/1.1\r\n{HOST}\r\n".encode(), ("405",)),
    (f"GET /../../etc/passwd HTTP/1.1\r\n{HOST}\r\n".encode(), ("404",)),
    (f"GET /api//state HTTP/1.1\r\n{HOST}\r\n".encode(), ("404",)),
    (f"GET /api/state?after=x HTTP/1.1\r\n{HOST}\r\n".encode(), ("400",)),
]


def test_what_is_no_request_is_refused_and_costs_nothing():
    with Server() as server:
        for data, wanted in REFUSED:
            line = server.raw(data)
            check((line.split(" ")[1:2] or [""])[0] in wanted, data[:60], line, wanted)
        for body, kind, wanted in (("{}", "text/plain", 415), ("{", "application/json", 400),
                                   ("[]", "application/json", 400),
                                   ("[" * 60000, "application/json", 400),
                                   ('{"on":true,"off":1}', "application/json", 400)):
            status, _, data = server.ask("PUT", "/api/video", body, {"Content-Type": kind})
            check(status == wanted, body[:20], status, data)
        check(server.ask("PUT", "/api/video", iter([b"x" * 65536] * 160))[0] == 413)
        _, headers, _ = server.ask("GET", "/")
        check("default-src 'self'" in headers["Content-Security-Policy"], headers)
        check("Access-Control-Allow-Origin" not in headers)

        before = server.memory()
        slow = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(40)]
        for number, client in enumerate(slow):
            client.sendall([b"G", b"GET / HTTP/1.1\r\nX-Slow: ",
                            f"PUT /api/video HTTP/1.1\r\n{HOST}Content-Length: 999\r\n\r\n{{".encode(),
                            f"GET /api/state?after=999999 HTTP/1.1\r\n{HOST}\r\n".encode()]
                           [number % 4])
        frames = server.get("/api/state")["statistics"]["frames"]
        until(lambda: server.get("/api/state")["statistics"]["frames"] > frames + 10, "frames")
        check(server.memory() < before + 32, before, server.memory())
        for client in slow:
            client.close()


def test_another_address_wants_a_token():
    with tempfile.NamedTemporaryFile("w") as file:
        print(TOKEN, file=file, flush=True)
        alone = [VSCCAM, "--sim", "VSC470MC", "serve", "--port", "0", "--bind", "0.0.0.0"]
        check(subprocess.run(alone, capture_output=True).returncode == 2)
        os.chmod(file.name, 0o644)
        check(subprocess.run(alone + ["--token", file.name], capture_output=True).returncode == 9)
        os.chmod(file.name, 0o600)
        with Server("--bind", "0.0.0.0", "--token", file.name, token=TOKEN) as server:
            server.get("/api/info")
            for given, wanted in (("", 401), ("Bearer " + TOKEN[:-1] + "x", 401),
                                  ("Basic " + base64.b64encode(b"vsccam:no").decode(), 401),
                                  ("Basic " + base64.b64encode(
                                      b"vsccam:" + TOKEN.encode()).decode(), 200)):
                for path in "/", "/api/info":
                    status = server.ask("GET", path, headers={"Authorization": given})[0]
                    check(status == wanted, given, path, status)


# ---- Alpaca

NOT_IMPLEMENTED, INVALID, NOT_CONNECTED, OPERATION, NO_ACTION = 0x400, 0x401, 0x407, 0x40B, 0x40C


class Alpaca:
    """One client."""

    def __init__(self, server, client):
        self.server = server
        self.client = client
        self.transaction = 0

    def call(self, method, member, **parameters):
        """Returns the answer; of one that is an error, its number."""
        self.transaction += 1
        words = urllib.parse.urlencode({"ClientID": self.client, "clienttransactionid":
                                        self.transaction, **parameters})
        path = "/api/v1/camera/0/" + member
        if method == "GET":
            status, _, data = self.server.ask("GET", path + "?" + words)
        else:
            status, _, data = self.server.ask(
                "PUT", path, words, {"Content-Type": "application/x-www-form-urlencoded"})
        if status != 200:
            return status
        answer = json.loads(data)
        check(answer["ClientTransactionID"] == self.transaction, answer)
        check(answer["ServerTransactionID"] > 0, answer)
        check((answer["ErrorNumber"] == 0) == (answer["ErrorMessage"] == ""), answer)
        return answer["ErrorNumber"] or answer

    def get(self, member):
        answer = self.call("GET", member)
        return answer if isinstance(answer, int) else answer["Value"]

    def put(self, member, **parameters):
        answer = self.call("PUT", member, **parameters)
        return answer if isinstance(answer, int) else 0

    def expose(self, seconds=0.01):
        check(self.put("startexposure", Duration=seconds, Light=True) == 0)
        until(lambda: self.get("imageready") is True, "the image")

    def image(self):
        status, headers, data = self.server.ask(
            "GET", f"/api/v1/camera/0/imagearray?ClientID={self.client}&ClientTransactionID=77",
            headers={"Accept": "application/imagebytes"})
        check(status == 200 and headers["Content-Type"] == "application/imagebytes", status)
        head = struct.unpack("<11i", data[:44])
        version, error, client, _, start, element, sent, rank, width, height, planes = head
        check((version, client, start) == (1, 77, 44), head)
        if error:
            check(len(data.decode("utf-8", "ignore")) > 44, data)
            return error
        check(element == 2 and sent in (6, 8) and rank == (3 if planes else 2), head)
        kind = numpy.uint16 if sent == 8 else numpy.uint8
        return numpy.frombuffer(data[44:], kind).reshape((width, height, planes or 1))


# Model, GET or PUT, member, parameters, and what comes: a number is an error, or the status of a
# request that is none; a list is a value; None: whatever, but no error. For either side of the
# first exposure.
BEFORE = [
    ("GET", "imageready", {}, [False]),
    ("GET", "imagearray", {}, OPERATION),
    ("GET", "imagearrayvariant", {}, OPERATION),
    ("GET", "lastexposureduration", {}, OPERATION),
    ("GET", "lastexposurestarttime", {}, OPERATION),
    ("GET", "percentcompleted", {}, [0]),
    ("GET", "camerastate", {}, [0]),
]
ROWS = [
    ("PUT", "action", {"Action": "x", "Parameters": ""}, NO_ACTION),
    ("PUT", "commandblind", {"Command": "x", "Raw": "true"}, NOT_IMPLEMENTED),
    ("PUT", "commandbool", {"Command": "x", "Raw": "true"}, NOT_IMPLEMENTED),
    ("PUT", "commandstring", {"Command": "x", "Raw": "true"}, NOT_IMPLEMENTED),
    ("GET", "connected", {}, [True]),
    ("GET", "connecting", {}, [False]),
    ("GET", "description", {}, None),
    ("GET", "devicestate", {}, None),
    ("GET", "driverinfo", {}, None),
    ("GET", "driverversion", {}, None),
    ("GET", "interfaceversion", {}, [4]),
    ("GET", "name", {}, ["KYR VSC470MM-Cool"]),
    ("GET", "supportedactions", {}, [[]]),
    ("GET", "bayeroffsetx", {}, NOT_IMPLEMENTED),
    ("GET", "bayeroffsety", {}, NOT_IMPLEMENTED),
    ("GET", "cameraxsize", {}, [1936]),
    ("GET", "cameraysize", {}, [1096]),
    ("GET", "canabortexposure", {}, [True]),
    ("GET", "canasymmetricbin", {}, [False]),
    ("GET", "canfastreadout", {}, [False]),
    ("GET", "cangetcoolerpower", {}, [True]),
    ("GET", "canpulseguide", {}, [True]),
    ("GET", "cansetccdtemperature", {}, [True]),
    ("GET", "canstopexposure", {}, [False]),
    ("GET", "electronsperadu", {}, [3.584 / 16]),
    ("GET", "exposuremax", {}, [2000]),
    ("GET", "exposuremin", {}, None),
    ("GET", "exposureresolution", {}, [1e-6]),
    ("GET", "fullwellcapacity", {}, None),
    ("GET", "hasshutter", {}, [False]),
    ("GET", "maxadu", {}, [65520]),
    ("GET", "maxbinx", {}, [2]),
    ("GET", "maxbiny", {}, [2]),
    ("GET", "pixelsizex", {}, [2.9]),
    ("GET", "pixelsizey", {}, [2.9]),
    ("GET", "readoutmodes", {}, [["raw8", "raw16", "rgb24", "y8"]]),
    ("GET", "sensorname", {}, ["VSC470MM-Cool"]),
    ("GET", "sensortype", {}, [0]),
    ("PUT", "binx", {"BinX": 0}, INVALID),
    ("PUT", "binx", {"BinX": 3}, INVALID),
    ("PUT", "biny", {"BinY": 0}, INVALID),
    ("PUT", "biny", {"BinY": 3}, INVALID),
    ("PUT", "binx", {"bINx": 2}, 0),
    ("GET", "biny", {}, [2]),
    ("PUT", "biny", {"BinY": 1}, 0),
    ("GET", "binx", {}, [1]),
    ("PUT", "binx", {}, 400),
    ("PUT", "binx", {"BinX": "two"}, 400),
    ("GET", "fastreadout", {}, NOT_IMPLEMENTED),
    ("PUT", "fastreadout", {"FastReadout": True}, NOT_IMPLEMENTED),
    ("PUT", "gain", {"Gain": 77}, 0),
    ("GET", "gain", {}, [77]),
    ("PUT", "gain", {"Gain": -1}, INVALID),
    ("GET", "gainmin", {}, [0]),
    ("GET", "gainmax", {}, [600]),
    ("PUT", "gain", {"Gain": 601}, INVALID),
    ("GET", "gains", {}, NOT_IMPLEMENTED),
    ("GET", "offsetmin", {}, [0]),
    ("GET", "offsetmax", {}, None),
    ("PUT", "offset", {"Offset": 3}, 0),
    ("GET", "offset", {}, [3]),
    ("PUT", "offset", {"Offset": -1}, INVALID),
    ("GET", "offsets", {}, NOT_IMPLEMENTED),
    ("PUT", "readoutmode", {"ReadoutMode": 4}, INVALID),
    ("PUT", "readoutmode", {"ReadoutMode": -1}, INVALID),
    ("PUT", "readoutmode", {"ReadoutMode": 0}, 0),
    ("GET", "readoutmode", {}, [0]),
    ("GET", "maxadu", {}, [255]),
    ("PUT", "readoutmode", {"ReadoutMode": 1}, 0),
    ("GET", "subexposureduration", {}, NOT_IMPLEMENTED),
    ("PUT", "subexposureduration", {"SubExposureDuration": 1}, NOT_IMPLEMENTED),
    ("PUT", "startexposure", {"Duration": -1, "Light": True}, INVALID),
    ("PUT", "startexposure", {"Duration": 2001, "Light": True}, INVALID),
    ("PUT", "startexposure", {"Duration": "nan", "Light": True}, 400),
    ("PUT", "startexposure", {"Duration": 1}, 400),
    ("PUT", "startexposure", {"Duration": 1, "Light": "perhaps"}, 400),
    ("PUT", "stopexposure", {}, NOT_IMPLEMENTED),
    ("PUT", "abortexposure", {}, 0),
    ("GET", "ispulseguiding", {}, [False]),
    ("PUT", "pulseguide", {"Direction": 4, "Duration": 10}, INVALID),
    ("PUT", "pulseguide", {"Direction": 0, "Duration": -10}, INVALID),
    ("GET", "ccdtemperature", {}, None),
    ("PUT", "cooleron", {"CoolerOn": True}, 0),
    ("GET", "cooleron", {}, [True]),
    ("GET", "coolerpower", {}, None),
    ("GET", "heatsinktemperature", {}, NOT_IMPLEMENTED),
    ("PUT", "setccdtemperature", {"SetCCDTemperature": -274}, INVALID),
    ("PUT", "setccdtemperature", {"SetCCDTemperature": 101}, INVALID),
    ("PUT", "setccdtemperature", {"SetCCDTemperature": 10}, 0),
    ("GET", "setccdtemperature", {}, [10]),
    ("GET", "GAIN", {}, 400),
    ("GET", "nothing", {}, 400),
    ("PUT", "camerastate", {}, 400),
    ("GET", "startexposure", {}, 400),
    ("PUT", "connected", {"Connected": "perhaps"}, 400),
    ("GET", "gain", {"ClientID": -1}, 400),
]
# Where a frame begins and ends, in binned pixels of a sensor of 1936 x 1096.
REGIONS = [
    (1, dict(StartX=0, NumX=1937), INVALID), (1, dict(StartX=1, NumX=1936), INVALID),
    (1, dict(StartX=-1), INVALID), (1, dict(NumX=0), INVALID), (1, dict(NumY=1097), INVALID),
    (1, dict(StartY=1096, NumY=1), INVALID), (2, dict(NumX=969, NumY=548), INVALID),
    (2, dict(NumX=968, NumY=549), INVALID), (2, dict(NumX=968, NumY=548), 0),
    (1, dict(StartX=101, StartY=51, NumX=33, NumY=17), 0),
    (2, dict(StartX=900, StartY=501, NumX=68, NumY=47), 0),
]
WHOLE = dict(StartX=0, StartY=0, NumX=1936, NumY=1096)


def matches(wanted, answer):
    if isinstance(wanted, list):
        return not isinstance(answer, int) and answer["Value"] == wanted[0]
    return answer == wanted if wanted else not isinstance(answer, int)


def set_region(client, bin, **region):
    for name, value in {"BinX": bin, **WHOLE, **region}.items():
        check(client.put(name.lower(), **{name: value}) == 0, name, value)


def test_each_row_of_alpaca():
    # An address of its own, where no other server of this machine answers those who look for one.
    address = f"127.{os.getpid() // 256 % 256}.{os.getpid() % 256}.7"
    with Server("--alpaca", "--no-warming", "--bind", address, camera="VSC470MM-Cool",
                address=address) as server:
        client = Alpaca(server, 41)
        check(client.get("gain") == NOT_CONNECTED and client.put("abortexposure") == NOT_CONNECTED)
        check(client.put("connected", Connected=True) == 0)
        for method, member, parameters, wanted in BEFORE + ROWS:
            answer = client.call(method, member, **parameters)
            check(matches(wanted, answer), method, member, parameters, answer, wanted)
        check(client.image() == OPERATION)
        for bin, region, wanted in REGIONS:
            set_region(client, bin, **region)
            check(client.put("startexposure", Duration=0.01, Light=True) == wanted, bin, region)
            if not wanted:
                until(lambda: client.get("imageready") is True, "the image")
                check(client.image().shape[:2] == (region["NumX"], region["NumY"]), bin, region)

        set_region(client, 1)
        check(client.put("startexposure", Duration=30, Light=True) == 0)
        check(client.get("camerastate") == 2 and client.get("imageready") is False)
        check(0 <= client.get("percentcompleted") < 100)
        check(client.put("startexposure", Duration=1, Light=True) == OPERATION)
        check(client.put("abortexposure") == 0)
        check(client.get("camerastate") == 0 and client.get("imageready") is False)
        check(client.put("pulseguide", Direction=2, Duration=60000) == 0)
        check(client.get("ispulseguiding") is True)
        check(client.put("pulseguide", Direction=3, Duration=10) == OPERATION)
        check(client.put("pulseguide", Direction=0, Duration=10) == 0)
        client.expose(1.5)  # which the camera's host times: 1.4 s
        check(abs(client.get("lastexposureduration") - 1.4) < 0.4)
        check(re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?",
                           client.get("lastexposurestarttime")))
        check(client.get("percentcompleted") == 100)

        for path, wanted in (("/management/apiversions", [1]), ("/management/v1/description", None),
                             ("/management/v1/configureddevices", None)):
            check(matches([wanted] if wanted else None, server.get(path)), path)
        check(server.ask("GET", "/setup/v1/camera/0/setup")[0] == 302)
        check(server.ask("GET", "/api/v1/camera/1/gain")[0] == 400)
        check(server.ask("GET", "/api/V1/camera/0/gain")[0] == 404)
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as finder:
            finder.settimeout(10)
            finder.sendto(b"alpacadiscovery1", (address, 32227))
            check(json.loads(finder.recv(100)) == {"AlpacaPort": server.port})


def test_two_alpaca_clients_do_not_disturb_each_other():
    with Server("--alpaca") as server:
        one, other = Alpaca(server, 1), Alpaca(server, 2)
        for client in one, other:
            check(client.put("connect") == 0)
        set_region(one, 2, StartX=16, StartY=16, NumX=64, NumY=32)
        set_region(other, 1, NumX=48, NumY=24)
        one.expose()
        check(other.get("imageready") is False and other.get("imagearray") == OPERATION)
        other.expose()
        check(one.image().shape[:2] == (64, 32) and other.image().shape[:2] == (48, 24))
        check(other.put("startexposure", Duration=30, Light=True) == 0)
        check(one.put("startexposure", Duration=0.01, Light=True) == OPERATION)
        check(one.put("abortexposure") == 0 and other.get("camerastate") == 2)
        check(one.put("disconnect") == 0 and one.get("gain") == NOT_CONNECTED)
        check(other.get("connected") is True and other.put("abortexposure") == 0)


def cut(client, picture):
    """What a client has asked for of the file of the same frame, as columns."""
    data = picture.data if picture.data.ndim == 3 else picture.data[numpy.newaxis]
    x, y = (client.get(name) for name in ("startx", "starty"))
    width, height = (client.get(name) for name in ("numx", "numy"))
    flip_x, flip_y = (client.server.get("/api/format")[name] for name in ("flip_x", "flip_y"))
    x -= picture.header["XORGSUBF"]
    y -= picture.header["YORGSUBF"]
    x = data.shape[2] - x - width if flip_x else x
    y = data.shape[1] - y - height if flip_y else y
    return data[:, y:y + height, x:x + width].transpose(2, 1, 0)


def test_images_are_the_pixels_of_the_file_of_the_same_frame():
    for camera in "VSC470MM", "VSC470MC":
        with Server("--alpaca", camera=camera) as server:
            client = Alpaca(server, 9)
            client.put("connect")
            for mode, bin, flips, region in (
                    ("raw16", 1, (0, 0), WHOLE), ("raw16", 2, (1, 0), dict(NumX=968, NumY=548)),
                    ("raw16", 1, (1, 1), dict(StartX=101, StartY=51, NumX=35, NumY=17)),
                    ("rgb24", 1, (0, 1), dict(StartX=20, StartY=30, NumX=64, NumY=48)),
                    ("rgb24", 2, (1, 0), dict(NumX=968, NumY=548)),
                    ("raw8", 2, (0, 1), dict(StartX=7, StartY=9, NumX=51, NumY=31))):
                server.put("/api/format", flip_x=bool(flips[0]), flip_y=bool(flips[1]))
                client.put("readoutmode",
                           ReadoutMode=client.get("readoutmodes").index(mode))
                set_region(client, bin, **region)
                client.expose()
                image = client.image()
                data = server.ask("GET", "/api/picture.fits")[2]
                picture = fits.open(io.BytesIO(data))[0]
                check(image.shape[2] == (3 if mode == "rgb24" else 1))
                check((image == cut(client, picture)).all(), camera, mode, bin, flips, region)
                if image.size < 10000:
                    told = numpy.array(client.get("imagearray")).reshape(image.shape)
                    check((told == image).all(), camera, mode)
                mosaic = picture.header.get("BAYERPAT")
                check((client.get("sensortype") == 2) == (mosaic is not None))
                if mosaic:
                    red = client.get("bayeroffsetx") + 2 * client.get("bayeroffsety")
                    check(mosaic[red] == "R", mosaic, red)


if __name__ == "__main__":
    only = sys.argv[3:]
    for name, test in list(globals().items()):
        if name.startswith("test_") and (not only or any(word in name for word in only)):
            begin = time.monotonic()
            test()
            print(f"{name}: {time.monotonic() - begin:.1f} s", flush=True)
