#!/usr/bin/python3
# A person's sign-in in a real browser: the device's page, the pages of the simulated cloud, and back. Runs inside
# scripts/sandbox as root (`make test-browser`): the simulator needs port 443, and the browser learns of its CA by a
# managed policy in the sandbox's own /etc. Pictures of every page go into $VARNKIVO_BUILD/screenshots.
import base64
import json
import os
import pathlib
import re
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
WIDTHS = {"desktop": (1280, 800), "phone": (390, 844)}
TOOL = BUILD / "tools/varnkivo/varnkivo"
SECONDS = 20


def start(*command, **options):
    return subprocess.Popen([str(word) for word in command], stdout=subprocess.PIPE, text=True, **options)


def stop(program):
    program.terminate()
    program.communicate(timeout=SECONDS)


def start_browser(ca_file, home):
    der = ssl.PEM_cert_to_DER_cert(pathlib.Path(ca_file).read_text())
    POLICIES.mkdir(parents=True, exist_ok=True)
    policy = {"CACertificates": [base64.b64encode(der).decode()]}
    (POLICIES / "varnkivo.json").write_text(json.dumps(policy))
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--user-data-dir=" + home):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class BrowserTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        os.environ["HOME"] = home = tempfile.mkdtemp()  # in the sandbox's own /tmp, which ends with it
        cls.sim = start(BUILD / "sim/varnkivo-sim", "--trust-into")
        cls.addClassCleanup(stop, cls.sim)
        cls.ready = json.loads(cls.sim.stdout.readline())
        cls.browser = start_browser(cls.ready["ca"], home)
        cls.addClassCleanup(cls.browser.quit)
        PICTURES.mkdir(parents=True, exist_ok=True)

    def setUp(self):
        self.expected = []  # complaints of the cloud
        self.cloud("/reset", b"{}")
        self.console = start(BUILD / "examples/console/varnkivo-console", "--port", "0")
        self.addCleanup(stop, self.console)
        self.home_page = self.console.stdout.readline().strip()
        self.assertRegex(self.home_page, r"^http://127\.0\.0\.1:\d+/$")
        self.browser.delete_all_cookies()
        self.addCleanup(subprocess.run, [TOOL, "logout", "--local", "--yes"], capture_output=True)

    def tearDown(self):
        entries = self.cloud("/journal")
        self.assertEqual(self.expected, [entry["complaint"] for entry in entries if entry.get("complaint")])
        log = [entry["message"] for entry in self.browser.get_log("browser")]
        self.assertEqual([], [message for message in log if "Content Security Policy" in message])

    def cloud(self, path, body=None):
        with urllib.request.urlopen(self.ready["control"] + path, body, SECONDS) as answer:
            return json.load(answer)

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def await_element(self, selector):
        """Of a page that is not the one marked; the driver may call elements of a page that is being left anything."""
        return WebDriverWait(self.browser, SECONDS, ignored_exceptions=[WebDriverException]).until(
            lambda browser: not browser.execute_script("return window.left") and self.find(selector), selector)

    def press(self, selector, then):
        """Presses a button and returns an element of the page that it leads to."""
        self.browser.execute_script("window.left = true")
        self.find(selector).click()
        return self.await_element(then)

    def picture(self, name):
        for width, size in WIDTHS.items():
            self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": width == "phone"})
            self.browser.save_screenshot(str(PICTURES / f"{name}-{width}.png"))
            overflow = self.browser.execute_script(
                "return document.documentElement.scrollWidth - document.documentElement.clientWidth")
            self.assertLessEqual(overflow, 0, f"{name} has to be scrolled sideways on a {width}")
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def type_in(self, email, password):
        for name, text in (("email", email), ("password", password)):
            field = self.find(f"#{name}")
            field.clear()
            field.send_keys(text)

    def open_sign_in(self):
        self.browser.get(self.home_page)
        self.press("#sign-in", "#password")

    def sign_in_and_be_asked(self):
        self.open_sign_in()
        self.type_in("ann@example.com", "correct horse")
        self.press("#go", "[value=allow]")

    def assert_signed_out(self):
        self.browser.get(self.home_page)
        self.await_element("#sign-in")
        self.assertEqual([], self.browser.find_elements(By.ID, "account-email"))

    def test_signing_in_lands_on_the_device_page(self):
        self.browser.get(self.home_page)
        self.await_element("#sign-in")
        self.picture("console-signed-out")
        self.press("#sign-in", "#password")
        self.picture("sign-in")
        self.assertEqual("email", self.browser.switch_to.active_element.get_attribute("id"))
        self.browser.switch_to.active_element.send_keys("ann@example.com", Keys.TAB, "correct horse", Keys.ENTER)
        self.await_element("[value=allow]")
        self.picture("consent")
        self.assertIn("ann@example.com", self.find("main").text)
        self.assertEqual("ann@example.com", self.press("[value=allow]", "#account-email").text)
        self.assertEqual(self.home_page, self.browser.current_url)
        self.picture("console-signed-in")
        families = [family for family in self.cloud("/tokens")["families"] if not family["revoked"]]
        self.assertEqual(["1001"], [family["user_id"] for family in families])

    def test_a_wrong_password_is_told_and_can_be_mended(self):
        self.open_sign_in()
        self.assertRegex(self.browser.current_url, r"^https://identity\.kivo\.example/oauth2/auth\?")
        self.type_in("ann@example.com", "wrong horse")
        self.assertEqual("Wrong e-mail or password.", self.press("#go", "[role=alert]").text)
        self.picture("sign-in-wrong-password")
        self.assertEqual("ann@example.com", self.find("#email").get_attribute("value"))
        self.assertEqual("password", self.browser.switch_to.active_element.get_attribute("id"))
        self.find("#password").send_keys("correct horse")
        self.press("#go", "[value=allow]")
        self.assertEqual("ann@example.com", self.press("[value=allow]", "#account-email").text)

    def test_a_refused_consent_leaves_the_device_signed_out(self):
        self.sign_in_and_be_asked()
        self.assertIn("not", self.press("[value=deny]", "[role=alert]").text)
        self.picture("console-refused")
        self.assertEqual(self.home_page, self.browser.current_url)
        self.assertEqual([], self.cloud("/tokens")["families"])
        self.assert_signed_out()

    def test_signing_out(self):
        self.sign_in_and_be_asked()
        self.press("[value=allow]", "#account-email")
        self.find("#sign-out").click()
        self.picture("console-sign-out")
        self.press("#sign-out-confirm", "#sign-in")
        self.assertTrue(all(family["revoked"] for family in self.cloud("/tokens")["families"]))
        self.assert_signed_out()

    def test_the_code_is_copied_where_nobody_fetches_it(self):
        tool = start(TOOL, "login", stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(tool.kill)
        address = next(line.strip() for line in tool.stderr if line.strip().startswith("https://"))
        self.browser.get(address)
        self.type_in("ann@example.com", "correct horse")
        self.press("#go", "[value=allow]")
        code = self.press("[value=allow]", "#code")
        self.picture("code")
        _, told = tool.communicate(code.text + "\n", SECONDS)
        self.assertEqual(0, tool.returncode, told)
        self.browser.get(self.home_page)
        self.assertEqual("ann@example.com", self.await_element("#account-email").text)

        self.browser.get(address)
        self.press("[value=deny]", "[role=alert]")
        self.picture("no-code")
        self.browser.get("https://identity.kivo.example/oauth2/sessions/logout")
        self.picture("signed-out")
        self.browser.get(re.sub("client_id=[^&]*", "client_id=eve", address))
        self.assertIn("unknown client", self.find("[role=alert]").text)
        self.picture("error")
        self.expected = ['unknown client "eve"']


if __name__ == "__main__":
    unittest.main(verbosity=2)
