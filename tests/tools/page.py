#!/usr/bin/env python3
"""Works the page of `vsccam serve` as somebody at the telescope does: in a browser.

usage: page.py VSCCAM VSCSIM CHROMEDRIVER
"""
import contextlib
import json
import os
import subprocess
import sys
import tempfile
import time
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

VSCCAM, VSCSIM, CHROMEDRIVER = sys.argv[1:]
PATIENCE = 60  # seconds, on a busy machine

# Mean brightness of a canvas, and whether there is anything but red on a picture of the screen.
BRIGHTNESS = """
const canvas = document.getElementById(arguments[0]);
const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
let sum = 0;
for (let i = 0; i < data.length; i += 4) sum += data[i + 1];
return 4 * sum / data.length;
"""
LIGHT = """
const [png, done] = arguments;
const bytes = Uint8Array.from(atob(png), (letter) => letter.charCodeAt(0));
createImageBitmap(new Blob([bytes])).then((image) => {
    const canvas = new OffscreenCanvas(image.width, image.height);
    const context = canvas.getContext('2d');
    context.drawImage(image, 0, 0);
    const most = [0, 0, 0];
    context.getImageData(0, 0, image.width, image.height).data.forEach((value, i) => {
        if (i % 4 < 3) most[i % 4] = Math.max(most[i % 4], value);
    });
    done(most);
});
"""


@contextlib.contextmanager
def served(camera, *options, port=0):
    """Runs the server; gives its address, and itself."""
    command = [VSCSIM, 'run', '--camera', camera, *options, '--',
               VSCCAM, '--json', 'serve', '--port', str(port)]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as server:
        try:
            yield json.loads(server.stdout.readline())['url'], server
        finally:
            server.terminate()


def put(url, **body):
    """Changes something without the page."""
    request = urllib.request.Request(url, json.dumps(body).encode(), method='PUT',
                                     headers={'Content-Type': 'application/json'})
    urllib.request.urlopen(request).read()


class Page:
    """The page in a browser, by the names of what is on it."""

    def __init__(self, browser):
        self.browser = browser

    def __getitem__(self, name):
        return self.browser.find_element(By.ID, name)

    def text(self, name):
        return self[name].text

    def brightness(self, canvas='picture'):
        return self.browser.execute_script(BRIGHTNESS, canvas)

    def sequence(self):
        return int(self.text('caption').split(' ')[0] or 0)

    def press(self, key):
        self.browser.find_element(By.TAG_NAME, 'body').send_keys(key)

    def fill(self, name, text):
        self[name].clear()
        self[name].send_keys(text)

    def until(self, what, condition):
        """Waits until a condition holds; what it waits for is said when it never does."""
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end:
                self.browser.save_screenshot('failed.png')
                sys.exit(f"{what}: not so; the page shows:\n{self.text('model')}\n"
                         f"{self.browser.find_element(By.TAG_NAME, 'body').text}")
            time.sleep(0.05)

    def open(self, url):
        self.browser.get(url)
        self.until('a picture is shown', lambda: self.text('caption'))


def picture(page):
    assert page['simulated'].is_displayed()
    first, look = page.sequence(), page.brightness()
    page.until('the picture moves', lambda: page.sequence() > first + 3 and
               page.brightness() != look)

    page['linear'].click()
    page.until('linear, a night sky is dark', lambda: page.brightness() < 40)
    dark = page.brightness()
    page['grey'].send_keys(Keys.HOME)
    page.until('a slider of the stretch brightens it', lambda: page.brightness() > dark + 30)
    page['linear'].click()
    page.until('linear, it is dark again', lambda: page.brightness() < dark + 1)
    gain = page.browser.find_element(By.CSS_SELECTOR, '[data-control="gain"] [type="range"]')
    gain.send_keys(Keys.END)
    page.until('so does gain', lambda: page.brightness() > dark + 5)
    page['auto'].click()


def loupe(page):
    page.until('a star is measured', lambda: page.text('hfd') not in ('', '–'))
    assert 1 < float(page.text('hfd')) < 20, page.text('hfd')
    page['picture'].click()  # in the middle
    page.until('the loupe goes where it is told', lambda: all(
        abs(told - wanted) < 8 for told, wanted in
        zip(page.browser.execute_script('return loupe.window'), (840, 420, 256, 256))))
    page.until('and shows what is there', lambda: page.brightness('loupe') > 10)


def night(page):
    page.press('n')
    page.until('there is nothing but red light', lambda: page.browser.execute_async_script(
        LIGHT, page.browser.get_screenshot_as_base64())[1:] == [0, 0])
    page.press('n')


def files(page):
    page.fill('file', 'page.ser')
    page.press('\t')
    page.press('r')
    page.until('frames are recorded', lambda: page.text('recorded').isdigit() and
               int(page.text('recorded')) > 5)
    page.press('r')
    page.until('the recording ends', lambda: page.text('recording') == 'Record')
    facts = subprocess.run([VSCCAM, '--json', 'ser', 'info', 'page.ser'], check=True,
                           capture_output=True, text=True).stdout
    assert json.loads(facts)['frames'] == int(page.text('recorded')), facts

    page.fill('time', '100ms')
    page.fill('count', '2')
    page.fill('pattern', 'page_{seq:05}.fit')
    page['take'].click()
    page.until('exposures are taken', lambda: '2 of 2 taken' in page.text('taking'))
    assert os.path.exists('page_00002.fit')


def phone(page):
    metrics = {'width': 360, 'height': 740, 'deviceScaleFactor': 1, 'mobile': True}
    page.browser.execute_cdp_cmd('Emulation.setDeviceMetricsOverride', metrics)
    for tab in page.browser.find_elements(By.CSS_SELECTOR, '#tabs button'):
        tab.click()
        name = tab.get_attribute('data-tab')
        shown = page.browser.find_elements(By.CSS_SELECTOR, f'.panel[data-tab="{name}"]')
        assert all(panel.is_displayed() for panel in shown), name
        for pressed in page.browser.find_elements(By.CSS_SELECTOR, 'button, input, select'):
            box = pressed.rect
            assert not pressed.is_displayed() or 0 <= box['x'] <= 360 - box['width'], \
                f"{name}: {pressed.get_attribute('outerHTML')} at {box}"
    page.browser.execute_cdp_cmd('Emulation.clearDeviceMetricsOverride', {})


def losses(page):
    small = {'width': 320, 'height': 240, 'x': 0, 'y': 0}
    with served('VSC470MC', '--fault', 'replug@200=2000') as (url, server):
        put(url + 'api/video', on=False)
        put(url + 'api/format', region=small)
        page.browser.get(url)
        page.until('the page has come to life', lambda: page.text('mode') == 'idle')
        page['video'].click()
        page.until('the page tells that the camera is gone',
                   lambda: 'camera is gone' in page.text('alarm'))
        page.until('and that it is back', lambda: not page['alarm'].is_displayed())
        last = page.sequence()
        page.until('and goes on', lambda: page.sequence() > last)
        no_complaints(page)
        server.terminate()
        page.until('the page tells that the server is gone',
                   lambda: 'server does not answer' in page.text('alarm'))
        server.wait()
    with served('VSC470MC', port=url.split(':')[-1].strip('/')):
        page.until('and goes on with the next one', lambda: not page['alarm'].is_displayed())


def no_complaints(page):
    severe = [entry for entry in page.browser.get_log('browser') if entry['level'] == 'SEVERE']
    assert not severe, severe


def main():
    options = webdriver.ChromeOptions()
    for option in ('--headless=new', '--no-sandbox', '--disable-gpu', '--window-size=1280,900'):
        options.add_argument(option)
    options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
    browser = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
    page = Page(browser)
    try:
        with served('VSC470MC:glow=400') as (url, _):
            put(url + 'api/controls/exposure', value=0.1)
            page.open(url)
            for stage in (picture, loupe, night, files, phone):
                stage(page)
            no_complaints(page)
            browser.get('about:blank')  # which misses no server
        losses(page)
    finally:
        browser.quit()


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    main()
