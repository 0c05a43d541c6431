#!/usr/bin/env python3
"""pageTest.py BUILD - the desk's page in Debian's Chromium, with a real daemon on a simulated camera. To be run in a world
of its own."""

import json
import shutil
import subprocess
import sys
import unittest

from browser import ENTER, TAB, Browser
from desk import PATIENCE, Desk, wait_until

RESOLUTION, FRAME_RATE, OWN_NETWORK = 2, 3, "30"
MARKUP = "<script>x=1</script><b>!"
RECORDS = "return document.querySelector('#recording').textContent === 'Recording' && !!document.querySelector('.recording')"
VALUE = "return document.querySelector(`#setting-${arguments[0]}:enabled`)?.value"
OPTION = "return document.querySelector(`#setting-${arguments[0]} option[value='${arguments[1]}']`)?.disabled"
CHOOSE = ("const select = document.querySelector(`#setting-${arguments[0]}:enabled`); select.value = arguments[1];"
          "select.dispatchEvent(new Event('change'))")
NO_CAMERA = ("window.tries = 0; window.realFetch = fetch; window.fetch = (path, options) => (path === 'devices' && ++tries ? Promise.resolve("
             "Response.json({error: {code: 'no-camera', message: 'no daemon runs'}}, {status: 503})) : realFetch(path, options))")
LINK = "return [document.querySelector('.link.bad')?.textContent ?? '', document.querySelector('#settings .note').textContent]"
FOCUSED = "return document.activeElement.id || document.activeElement.name || document.activeElement.textContent"
LOGGED = "return [...document.querySelectorAll('.entries li')].filter((one) => one.textContent.includes(arguments[0])).length"


class PageTest(unittest.TestCase):
    def setUp(self):
        self.desk = Desk(sys.argv[1])
        self.addCleanup(self.desk.stop)
        self.browser = Browser()
        self.addCleanup(self.browser.stop)
        self.browser.open(f"http://127.0.0.1:{self.desk.port}/")
        self.wait_for_settings()

    def tearDown(self):
        self.browser.narrow(360)
        shown = self.browser.run("return [innerWidth, document.documentElement.scrollWidth]")
        self.assertEqual(shown, [360, 360])
        self.assertEqual(self.browser.complaints(), [])
        self.assertEqual(self.browser.run("return document.querySelector('#problems').textContent"), "")

    def wait_for_settings(self):
        """The page's phone is connected and knows what may be chosen: 240 frames a second only with less resolution."""
        self.browser.wait("the settings", VALUE, RESOLUTION)
        wait_until("the options", lambda: self.browser.run(OPTION, FRAME_RATE, "0") is True)

    def kzble(self, *words):
        subprocess.run(["kzble", *words], check=True, timeout=PATIENCE, stdout=subprocess.DEVNULL)

    def test_a_setting_chosen_with_the_keyboard_arrives_at_a_watching_kzble(self):
        watch = subprocess.Popen(["kzble", "--json", "watch", "--setting", str(RESOLUTION), "--count", "1", "--for", str(PATIENCE)],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.assertIn("watching", watch.stderr.readline())
        for _ in range(60):
            if self.browser.run(FOCUSED) == f"setting-{RESOLUTION}":
                break
            self.browser.press(TAB)
        before = self.browser.run(VALUE, RESOLUTION)
        self.browser.press("1080")  # a list jumps to what begins so
        self.browser.press(ENTER)
        wait_until("the choice", lambda: self.browser.run(VALUE, RESOLUTION) == "9")
        change = json.loads(watch.communicate(timeout=2 * PATIENCE)[0].splitlines()[0])
        self.assertEqual((before, [one["value"] for one in change["values"]]), ("1", [9]))
        wait_until("240 frames", lambda: self.browser.run(OPTION, FRAME_RATE, "0") is False)

    def test_a_shutter_pressed_with_kzble_shows_and_a_reload_loses_nothing(self):
        self.kzble("shutter", "on")
        self.browser.wait("the recording", RECORDS)
        self.browser.wait("its time", "return /^00:0[1-9]$/.test(document.querySelector('.time').textContent)")
        self.browser.run("const filter = document.querySelector('[name=filter]'); filter.value = 'register -status';"
                         "filter.dispatchEvent(new Event('input'))")
        self.browser.wait("the filtered log", LOGGED, "register-capabilities")
        devices = self.desk.ask("GET", "/state")[2]["devices"]
        self.browser.run("location.reload()")
        self.wait_for_settings()
        self.browser.wait("the recording", RECORDS)
        self.assertEqual(self.browser.run("return document.querySelector('[name=filter]').value"), "register -status")
        # What passed before, and once more from the same phone.
        wait_until("the log", lambda: self.browser.run(LOGGED, "register-capabilities") >= 4)
        after = self.desk.ask("GET", "/state")[2]["devices"]
        self.assertEqual([one["connection"] for one in after], [one["connection"] for one in devices])
        self.browser.click(".shutter")
        self.browser.wait("the end", "return document.querySelector('#recording').textContent === 'Recording stopped'")
        self.assertFalse(self.desk.ask("GET", "/state")[2]["camera"]["capturing"])

        self.desk.ask("POST", "/do", {"command": ["radio", "drop", "0", str(after[0]["connection"])]})
        wait_until("another phone", lambda: [one["device"] for one in self.desk.ask("GET", "/state")[2]["devices"]] == [2])
        self.browser.click(".problem button")
        self.wait_for_settings()

    def test_a_phone_that_ends_says_why_and_is_replaced(self):
        self.browser.run(NO_CAMERA)
        first = self.desk.ask("GET", "/state")[2]["devices"][0]["device"]
        self.desk.ask("DELETE", f"/devices/{first}")
        for reason in ("not connected: deleted", "not connected: no daemon runs"):
            wait_until(reason, lambda: all(reason in text for text in self.browser.run(LINK)))
        self.assertIn("disconnected: deleted", self.browser.run("return document.querySelector('#problems').textContent"))
        self.browser.click(".problem button")
        self.assertLess(self.browser.run("window.fetch = realFetch; return tries"), 4)
        self.wait_for_settings()
        self.assertEqual(self.browser.run(LINK), ["", ""])
        self.browser.run(CHOOSE, RESOLUTION, "9")
        wait_until("the setting", lambda: {"id": RESOLUTION, "value": 9}.items() <= next(
            one for one in self.desk.ask("GET", "/state")[2]["camera"]["settings"] if one["id"] == RESOLUTION).items())
        self.browser.run("location.reload()")
        wait_until("what both phones did", lambda: self.browser.run(LOGGED, "register-capabilities") >= 6)

    def test_what_others_say_is_text(self):
        self.desk.ask("POST", "/do", {"command": ["status", OWN_NETWORK, MARKUP]})
        sensor = self.desk.connect(type="sensor", central=True)
        for message in ("02 01" + MARKUP[:17].encode().hex(), "03" + b"<b> ".hex() + "00 00 53 02 01 00", "01 00 12 34"):
            self.desk.ask("POST", f"/devices/{sensor}/write", {"stream": 17, "message": message})
        for place, text in (("#face", MARKUP), (".entries", MARKUP[:17]), ("#plot", MARKUP[:17] + ": <b>")):
            self.browser.wait("the text in " + place,
                              "return document.querySelector(arguments[0]).textContent.includes(arguments[1])", place, text)
        self.assertEqual(self.browser.run("return [document.querySelectorAll('main script, main b').length, window.x ?? 0]"),
                         [0, 0])


if __name__ == "__main__":
    if not shutil.which("chromedriver"):
        print("SKIPPED: the page is not tested without Chromium, which scripts/setup --desk installs", file=sys.stderr)
        sys.exit(77)
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
