"""Chromium without a screen, and what it tells of a page."""
import json

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service as Driver

WIDE, PHONE = (1280, 900), (360, 740)


class Browser:
    def __init__(self, load="eager"):
        """load: what a command waits for, as WebDriver names it."""
        options = Options()
        options.binary_location = "/usr/bin/chromium"
        options.page_load_strategy = load
        for argument in (
            "--headless=new",
            "--no-sandbox",  # root has none
            "--disable-dev-shm-usage",
            "--disable-background-networking",
            "--lang=en",
        ):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
        self.driver = webdriver.Chrome(service=Driver("/usr/bin/chromedriver"), options=options)
        self.size(WIDE)

    def size(self, size, scale=1, dark=False):
        """A window so many CSS pixels wide and high."""
        self.command(
            "Emulation.setDeviceMetricsOverride",
            width=size[0],
            height=size[1],
            deviceScaleFactor=scale,
            mobile=False,
        )
        scheme = {"name": "prefers-color-scheme", "value": "dark" if dark else "light"}
        self.command("Emulation.setEmulatedMedia", features=[scheme])

    def command(self, name, **arguments):
        return self.driver.execute_cdp_cmd(name, arguments)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def requested(self):
        """The addresses that were asked for since the last call."""
        addresses = []
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                addresses.append(message["params"]["request"]["url"])
        return addresses

    def complaints(self):
        """What the browser has logged since the last call."""
        return [entry["message"] for entry in self.driver.get_log("browser")]

    def accessible(self):
        """What a screen reader has of the page: role, name and level of each node."""
        nodes = []
        for node in self.command("Accessibility.getFullAXTree")["nodes"]:
            if node.get("ignored"):
                continue
            level = [p["value"]["value"] for p in node.get("properties", ()) if p["name"] == "level"]
            nodes.append(
                (node["role"]["value"], node.get("name", {}).get("value", ""), (level or [None])[0])
            )
        return nodes

    def picture(self, path):
        self.driver.save_screenshot(str(path))

    def close(self):
        self.driver.quit()


# For each text of the page: its contrast with what is behind it, the least first (WCAG 2, 1.4.3).
CONTRASTS = """
const channel = c => (c /= 255) <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
const light = c => 0.2126 * channel(c[0]) + 0.7152 * channel(c[1]) + 0.0722 * channel(c[2]);
const parse = text => text.match(/[0-9.]+/g).map(Number);
const behind = node => {
  for (; node; node = node.parentElement) {
    const color = parse(getComputedStyle(node).backgroundColor);
    if (color.length < 4 || color[3] > 0) return color;
  }
  return [255, 255, 255];
};
const found = [];
const walk = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walk.nextNode()) {
  const text = walk.currentNode.data.trim(), node = walk.currentNode.parentElement;
  if (!text || node.tagName === 'SCRIPT') continue;
  const a = light(parse(getComputedStyle(node).color)), b = light(behind(node));
  found.push([(Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05), text]);
}
return found.sort((a, b) => a[0] - b[0]);
"""
