#!/usr/bin/python3
"""pictures.py BUILD FOLDER   takes the pictures of the search page that stand in docs/pictures

BUILD is build/release.  What is searched are the packages that this machine has installed, over three engines."""
import pathlib
import sys

from selenium.webdriver.common.by import By

from browser import Browser
from service import Service, eventually

SORTS = (("-Installed-Size", "Largest first"), ("Section", "Section"))
SIZE, PHONE = (900, 720), (360, 640)


def records():
    text = pathlib.Path("/var/lib/dpkg/status").read_text(encoding="utf-8", errors="replace")
    return [record + "\n\n" for record in text.strip().split("\n\n")]


def take(build, folder):
    service = Service(build, records(), "Debian packages", 3, SORTS)
    browser = Browser()
    driver = browser.driver

    def shown(path, selector):
        driver.get(service.address + path)
        return eventually(lambda: driver.find_elements(By.CSS_SELECTOR, selector), selector)

    try:
        browser.size(SIZE)
        shown("/search?q=shared+library", ".hits li")
        browser.picture(folder / "results.png")
        link = driver.find_element(By.CSS_SELECTOR, ".hits li:first-child h2 a").get_attribute("href")
        shown(link[len(service.address) :], "dl")
        browser.picture(folder / "document.png")
        shown("/search?q=xylophone", ".status")
        browser.picture(folder / "nothing.png")
        browser.size(PHONE, 2, dark=True)
        shown("/search?q=shared+library", ".hits li")
        browser.picture(folder / "phone.png")
        browser.size(SIZE)
        service.kill("E", "engine1")
        shown("/search?q=shared+library", ".notice")
        browser.picture(folder / "partial.png")
    finally:
        browser.close()
        service.stop()


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    take(sys.argv[1], pathlib.Path(sys.argv[2]))
