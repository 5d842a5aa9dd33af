#!/usr/bin/python3
# A person's sign-in in a real browser: the device's page, the pages of the simulated cloud, and back. Runs inside
# scripts/sandbox as root (`make test-browser`): the simulator needs port 443, and the browser learns of its CA by a
# managed policy in the sandbox's own /etc. Pictures of every page go into $VARNKIVO_BUILD/screenshots.
import base64
import json
import os
import pathlib
import ssl
import subprocess
import tempfile
import unittest
import urllib.request

from selenium import webdriver
from selenium.common.exceptions import WebDriverException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

BUILD = pathlib.Path(os.environ["VARNKIVO_BUILD"])
PICTURES = BUILD / "screenshots"
POLICIES = pathlib.Path("/etc/chromium/policies/managed")
SECONDS = 20


def start_browser(ca_file):
    der = ssl.PEM_cert_to_DER_cert(pathlib.Path(ca_file).read_text())
    POLICIES.mkdir(parents=True, exist_ok=True)
    (POLICIES / "varnkivo.json").write_text(json.dumps({"CACertificates": [base64.b64encode(der).decode()]}))
    os.environ["HOME"] = home = tempfile.mkdtemp()  # in the sandbox's own /tmp, which ends with it
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--user-data-dir=" + home):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class BrowserTest(unittest.TestCase):
    def start(self, program, *arguments, **options):
        started = subprocess.Popen([BUILD / program, *arguments], stdout=subprocess.PIPE, text=True, **options)
        self.addCleanup(started.communicate, timeout=SECONDS)
        self.addCleanup(started.terminate)
        return started

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def await_element(self, selector):
        """Of a page that is not the one marked; the driver may call elements of a page that is being left anything."""
        return WebDriverWait(self.browser, SECONDS, ignored_exceptions=[WebDriverException]).until(
            lambda browser: not browser.execute_script("return window.left") and self.find(selector), selector)

    def press(self, selector, then):
        """Takes a picture, presses a button and returns an element of the page that it leads to."""
        for width, size in (("desktop", (1280, 800)), ("phone", (390, 844))):
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": width == "phone"})
            self.browser.save_screenshot(str(PICTURES / f"{self.pictures}-{width}.png"))
            overflow = self.browser.execute_script(
                "return document.documentElement.scrollWidth - document.documentElement.clientWidth")
            self.assertLessEqual(overflow, 0, f"picture {self.pictures} has to be scrolled sideways on a {width}")
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        self.pictures += 1
        self.browser.execute_script("window.left = true")
        self.find(selector).click()
        return self.await_element(then)

    def sign_in_and_be_asked(self):
        self.find("#email").send_keys("ann@example.com", Keys.TAB, "correct horse")
        self.press("#go", "[value=allow]")

    def test_signing_in_and_out(self):
        self.pictures = 0
        PICTURES.mkdir(parents=True, exist_ok=True)
        ready = json.loads(self.start("sim/varnkivo-sim", "--trust-into").stdout.readline())
        self.browser = start_browser(ready["ca"])
        self.addCleanup(self.browser.quit)
        home_page = self.start("examples/console/varnkivo-console", "--port", "0").stdout.readline().strip()

        self.browser.get(home_page)
        self.press("#sign-in", "#password")
        self.assertEqual("email", self.browser.switch_to.active_element.get_attribute("id"))
        self.find("#email").send_keys("ann@example.com")
        self.find("#password").send_keys("wrong horse")
        self.assertEqual("Wrong e-mail or password.", self.press("#go", "[role=alert]").text)
        self.browser.switch_to.active_element.send_keys("correct horse", Keys.ENTER)
        self.await_element("[value=allow]")
        self.assertIn("not", self.press("[value=deny]", "[role=alert]").text)
        self.assertEqual([], self.browser.find_elements(By.ID, "account-email"))

        self.press("#sign-in", "#password")
        self.sign_in_and_be_asked()
        self.assertEqual("ann@example.com", self.press("[value=allow]", "#account-email").text)
        self.assertEqual(home_page, self.browser.current_url)
        self.find("#sign-out").click()
        self.press("#sign-out-confirm", "#sign-in")

        tool = self.start("tools/varnkivo/varnkivo", "login", stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.browser.get(next(line.strip() for line in tool.stderr if line.strip().startswith("https://")))
        self.sign_in_and_be_asked()
        code = self.press("[value=allow]", "#code").text  # is copied, where nobody fetches it
        tool.stdin.write(code + "\n")
        tool.stdin.flush()
        self.assertEqual(0, tool.wait(SECONDS))
        self.browser.get(home_page)
        self.assertEqual("ann@example.com", self.await_element("#account-email").text)

        log = [entry["message"] for entry in self.browser.get_log("browser")]
        self.assertEqual([], [message for message in log if "Content Security Policy" in message])
        with urllib.request.urlopen(ready["control"] + "/journal", None, SECONDS) as answer:
            self.assertEqual([], [entry["complaint"] for entry in json.load(answer) if entry.get("complaint")])


if __name__ == "__main__":
    unittest.main(verbosity=2)
