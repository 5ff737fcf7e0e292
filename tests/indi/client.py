"""A small client of INDI: a socket, the properties as they are now, and what was sent."""
import base64
import socket
import threading
import time
import xml.etree.ElementTree as xml

LONGEST = 60  # seconds that anything may take on a busy machine


class Client:
    def __init__(self, port, blobs=True):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=LONGEST)
        self.values, self.states, self.blobs, self.messages, self.history = {}, {}, [], [], []
        self.changed = threading.Condition()
        self.device = None
        self.blob_mode = "Also" if blobs else "Never"
        self.thread = threading.Thread(target=self._read, daemon=True)
        self.thread.start()
        self.send("<getProperties version='1.7'/>")
        self.wait(lambda: self.device)

    def send(self, text):
        self.socket.sendall(text.encode())

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.thread.join(LONGEST)
        self.socket.close()

    def _read(self):
        parser = xml.XMLPullParser(("start", "end"))
        parser.feed("<all>")
        depth, root = 0, None
        while block := self._block():
            parser.feed(block)
            for kind, element in parser.read_events():
                depth += 1 if kind == "start" else -1
                root = root if root is not None else element
                if kind == "end" and depth == 1:
                    self._take(element)
                    root.clear()

    def _block(self):
        try:
            return self.socket.recv(1 << 20)
        except OSError:
            return b""

    def _take(self, element):
        with self.changed:
            name, tag = element.get("name"), element.tag
            if element.get("message"):
                self.messages.append(element.get("message"))
            if tag.startswith("def") and not self.device:
                self.device = element.get("device")
                self.send(f"<enableBLOB device='{self.device}'>{self.blob_mode}</enableBLOB>")
            if tag == "delProperty":
                self.values.pop(name, None)
            elif tag == "setBLOBVector":
                blob = element[0]
                self.blobs.append((blob.get("format"), base64.b64decode(blob.text), time.time()))
            elif tag.endswith("Vector"):
                now = self.values.setdefault(name, {})
                now.update({one.get("name"): (one.text or "").strip() for one in element})
                self.states[name] = element.get("state", self.states.get(name))
                self.history.append((name, dict(now), self.states[name]))
            self.changed.notify_all()

    def wait(self, holds, seconds=LONGEST, what=""):
        with self.changed:
            if not self.changed.wait_for(holds, seconds):
                last = [one for one in self.history[-12:]]
                raise AssertionError(f"{what or 'it'} did not happen; {self.messages[-5:]}; {last}")

    def number(self, name, element):
        return float(self.values[name][element])

    def set(self, kind, name, **values):
        # Whether it is a number or a text, clients write it alike; a switch is On or Off.
        ones = "".join(f"<one{kind} name='{key}'>{value}</one{kind}>" for key, value in values.items())
        self.send(f"<new{kind}Vector device='{self.device}' name='{name}'>{ones}</new{kind}Vector>")

    def numbers(self, name, **values):
        self.set("Number", name, **values)

    def switch(self, name, element, state="On"):
        self.set("Switch", name, **{element: state})

    def is_(self, name, element, value):
        return self.values.get(name, {}).get(element) == value

    def connect(self):
        self.switch("CONNECTION", "CONNECT")
        self.wait(lambda: "CCD_STATISTICS" in self.values, what="connecting")

    def disconnect(self):
        self.switch("CONNECTION", "DISCONNECT")
        self.wait(lambda: "CCD_EXPOSURE" not in self.values, what="disconnecting")

    def expose(self, seconds):
        """The frame, or nothing when the exposure failed."""
        begun, frames = len(self.history), len(self.blobs)
        self.numbers("CCD_EXPOSURE", CCD_EXPOSURE_VALUE=seconds)
        failed = lambda: any(one[0] == "CCD_EXPOSURE" and one[2] == "Alert"
                             for one in self.history[begun:])
        self.wait(lambda: len(self.blobs) > frames or failed(), what="a frame or a reason")
        return None if failed() else self.blobs[-1][1]
