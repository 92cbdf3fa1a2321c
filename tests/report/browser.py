# SPDX-License-Identifier: ISC
"""A browser without a window and without a network, for one page after another."""

import json
import shutil
import tempfile
from pathlib import Path

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

CHROMIUM, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
HANGS_S = 60
# Nothing of these reaches a page: they keep the browser alone and its window the same everywhere.
ARGUMENTS = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
             "--hide-scrollbars", "--force-device-scale-factor=1", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--host-resolver-rules=MAP * ~NOTFOUND")


class Browser:
    """One browser for all tests: what one of them changes it puts back by show()."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="kelm-report-")
        options = Options()
        options.binary_location = CHROMIUM
        for argument in (*ARGUMENTS, "--user-data-dir=%s/profile" % self.folder):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.driver.set_page_load_timeout(HANGS_S)
        self.driver.set_script_timeout(HANGS_S)

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.folder, ignore_errors=True)

    def command(self, name, **arguments):
        return self.driver.execute_cdp_cmd(name, arguments)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def look(self, width=1280, scheme="light", media="screen"):
        """The window's width, and what the page is told of its reader."""
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=900,
                     deviceScaleFactor=1, mobile=False)
        self.command("Emulation.setEmulatedMedia", media=media,
                     features=[{"name": "prefers-color-scheme", "value": scheme}])

    def show(self, text, suffix=".html", scripts=True, **look):
        """Opens a text as a file."""
        path = Path(self.folder) / ("page" + suffix)
        path.write_text(text, encoding="utf-8")
        self.look(**look)
        self.command("Emulation.setScriptExecutionDisabled", value=not scripts)
        self.messages()
        self.driver.get("about:blank")
        self.driver.get_log("performance")
        self.driver.get(path.as_uri())

    def messages(self):
        """What the console has been told since the last question."""
        return [row["message"] for row in self.driver.get_log("browser")]

    def requests(self):
        """The addresses that were asked for since the page was opened."""
        rows = [json.loads(row["message"])["message"] for row in self.driver.get_log("performance")]
        return [row["params"]["request"]["url"] for row in rows
                if row["method"] == "Network.requestWillBeSent"]
