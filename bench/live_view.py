#!/usr/bin/env python3
"""How the live view keeps up with a simulated camera of 30 frames a second while three viewers look
on, and what they cost the camera, in turns in one run.

usage: live_view.py PROGRAMS [SECONDS OF A TURN]
"""
import http.client
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request
from datetime import datetime, timezone

VIEWERS = 3
TURNS = 3
EXPOSURE_S = 0.0333


class Viewer(threading.Thread):
    """Asks for one picture after the other, as the page does."""

    def __init__(self, address, stop):
        super().__init__()
        self.address = address
        self.stop = stop
        self.pictures = []  # when the first byte came, and what is told of the frame

    def run(self):
        connection = http.client.HTTPConnection(self.address)
        after = 0
        while not self.stop.is_set():
            connection.request('GET', f'/api/frame?after={after}')
            response = connection.getresponse()
            came = time.time()
            response.read()
            if response.status == 200:
                facts = json.loads(response.headers['Vsccam-Frame'])
                after = facts['sequence']
                self.pictures.append((came, facts))


class Watcher(threading.Thread):
    """Notes when the simulator tells that an exposure has ended."""

    def __init__(self, path, stop):
        super().__init__()
        self.file = path.open(encoding='ascii')
        self.stop = stop
        self.ends = []

    def run(self):
        while not self.stop.is_set():
            line = self.file.readline()
            if line.startswith('frame'):
                self.ends.append(time.time())
            elif not line:
                time.sleep(0.0005)


def frames(url):
    """Frames that the camera delivered until now, and when that was."""
    state = json.load(urllib.request.urlopen(url + 'api/state'))
    return state['statistics']['frames'], time.monotonic()


def put(url, path, **body):
    request = urllib.request.Request(url + path, json.dumps(body).encode(), method='PUT',
                                     headers={'Content-Type': 'application/json'})
    urllib.request.urlopen(request).read()


def rate(before, after):
    return (after[0] - before[0]) / (after[1] - before[1])


def seconds(utc):
    return datetime.fromisoformat(utc).replace(tzinfo=timezone.utc).timestamp()


def lags(viewers, ends):
    """From the end of an exposure to the first byte of its picture, in frame times."""
    for viewer in viewers:
        for came, facts in viewer.pictures[1:]:
            arrived = seconds(facts['utc'])
            ended = [end for end in ends if arrived - 0.2 < end < arrived]
            if ended:
                yield (came - ended[-1]) / EXPOSURE_S


def measure(url, requests, length):
    alone, watched, shown, late = [], [], [], []
    for _ in range(TURNS):
        before = frames(url)
        time.sleep(length)
        alone.append(rate(before, frames(url)))

        stop = threading.Event()
        viewers = [Viewer(url.split('/')[2], stop) for _ in range(VIEWERS)]
        watcher = Watcher(requests, stop)
        for thread in (watcher, *viewers):
            thread.start()
        before = frames(url)
        time.sleep(length)
        watched.append(rate(before, frames(url)))
        stop.set()
        for thread in (watcher, *viewers):
            thread.join()
        shown += [len(viewer.pictures) / length for viewer in viewers]
        late += lags(viewers, watcher.ends)
    late.sort()
    print(f'camera alone          {max(alone):8.1f} frames/s')
    print(f'with {VIEWERS} viewers        {max(watched):8.1f} frames/s, '
          f'{max(watched) / max(alone):.3f} of that; goal 0.98')
    print(f'pictures of a viewer  {min(shown):8.1f} to {max(shown):.1f} /s; goal 25')
    print(f'lag, in frame times   {statistics.median(late):8.2f} median, '
          f'{late[len(late) * 95 // 100]:.2f} of 95 %, {late[-1]:.2f} longest; goal 1.5')


def main():
    programs = pathlib.Path(sys.argv[1])
    length = float(sys.argv[2]) if len(sys.argv) > 2 else 5
    with tempfile.TemporaryDirectory() as folder:
        requests = pathlib.Path(folder, 'requests')
        command = [programs / 'vscsim', 'run', '--camera', f'VSC470MC:made=16:requests={requests}',
                   '--', programs / 'vsccam', '--json', 'serve', '--port', '0']
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as server:
            try:
                url = json.loads(server.stdout.readline())['url']
                put(url, 'api/controls/exposure', value=EXPOSURE_S)
                time.sleep(2)
                measure(url, requests, length)
            finally:
                server.terminate()


main()
