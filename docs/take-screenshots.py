#!/usr/bin/env python3
"""Takes the pictures of the page of `vsccam serve` that docs/live.md shows, with a simulated camera.

usage: take-screenshots.py PROGRAMS
"""
import json
import pathlib
import subprocess
import sys
import tempfile
import time
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

DOCS = pathlib.Path(__file__).resolve().parent


def put(url, path, **body):
    request = urllib.request.Request(url + path, json.dumps(body).encode(), method='PUT',
                                     headers={'Content-Type': 'application/json'})
    urllib.request.urlopen(request).read()


class Screen:
    """A browser that shows the page."""

    def __init__(self, url, folder):
        options = webdriver.ChromeOptions()
        for option in ('--headless=new', '--no-sandbox', '--disable-gpu', '--hide-scrollbars'):
            options.add_argument(option)
        self.browser = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)
        self.folder = folder
        self.browser.get(url)

    def press(self, selector):
        self.browser.find_element(By.CSS_SELECTOR, selector).click()

    def size(self, width, height):
        self.browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride', {
            'width': width, 'height': height, 'deviceScaleFactor': 1, 'mobile': width < 500})

    def take(self, name):
        time.sleep(2)
        path = str(self.folder / f'{name}.png')
        self.browser.save_screenshot(path)
        return path


def small(name, *arguments):
    """ImageMagick makes the picture of that name: of few colours, as what is to be seen needs no more."""
    subprocess.run(['/usr/bin/convert', *arguments, '-strip', '-dither', 'None', '-colors', '128',
                    f'PNG8:{DOCS / name}.png'], check=True)


def take(url, folder):
    put(url, 'api/format', type='raw16')
    put(url, 'api/controls/gain', value=200)
    put(url, 'api/controls/exposure', value=0.25)
    put(url, 'api/cooling', on=True, target_c=5, ramp_c_per_min=60)
    screen = Screen(url, folder)
    try:
        screen.size(1280, 800)
        time.sleep(20) # until the curve is one
        small('live', screen.take('day'))
        screen.press('#night')
        small('live-night', screen.take('night'), '-resize', '640x')
        screen.size(360, 740)
        screen.press('[data-tab="camera"]')
        phones = [screen.take('phone-night')]
        screen.press('#night')
        phones.append(screen.take('phone-camera'))
        for tab in ('cooling', 'focus'):
            screen.press(f'[data-tab="{tab}"]')
            phones.append(screen.take(f'phone-{tab}'))
        small('live-phone', *reversed(phones), '-bordercolor', 'white', '-border', '4x0', '+append')
    finally:
        screen.browser.quit()


def main():
    programs = pathlib.Path(sys.argv[1])
    command = [programs / 'vscsim', 'run', '--camera', 'VSC470MC-Cool', '--seed', '1', '--',
               programs / 'vsccam', '--json', 'serve', '--port', '0']
    with tempfile.TemporaryDirectory() as folder:
        with subprocess.Popen(command, stdout=subprocess.PIPE, text=True, cwd=folder) as server:
            try:
                take(json.loads(server.stdout.readline())['url'], pathlib.Path(folder))
            finally:
                server.terminate()


main()
