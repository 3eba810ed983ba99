#!/usr/bin/python3
"""browser_test.py BUILD [CASE...]   uses the search page in Chromium as a person would

BUILD is build/release."""
import subprocess
import sys
import unittest
import urllib.parse

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from browser import CONTRASTS, PHONE, WIDE, Browser
from library import ATTACKS, hostile, packages
from service import Relay, Service, eventually

ENGINES = 3
COUNT = 120
SORTS = (("-Installed-Size", "Largest first"), ("Section", "Section"))
BUILD = None


class Case(unittest.TestCase):
    """A browser before a service of its own."""

    browser = service = None
    load = "eager"

    @classmethod
    def service_of(cls):
        raise NotImplementedError

    @classmethod
    def setUpClass(cls):
        cls.service = cls.service_of()
        cls.addClassCleanup(cls.service.stop)
        cls.browser = Browser(cls.load)
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        self.browser.size(WIDE)
        self.browser.requested()
        self.browser.complaints()

    def all(self, selector):
        return self.browser.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector):
        found = self.all(selector)
        self.assertEqual(len(found), 1, selector)
        return found[0]

    def texts(self, selector):
        return [element.text for element in self.all(selector)]

    def visit(self, path):
        self.browser.driver.get(self.service.address + path)

    def search(self, text, **more):
        self.visit("/search?" + urllib.parse.urlencode({"q": text, **more}))

    def shown(self, text):
        """Waits until the page holds a link or heading with that text."""
        eventually(lambda: text in self.one("body").text, f"'{text}' is shown")


class Reading(Case):
    """A person who looks for something, over engines."""

    @classmethod
    def service_of(cls):
        return Service(BUILD, packages(COUNT), "Debian packages", ENGINES, SORTS)

    def test_typed_search_shows_hits_and_marks(self):
        self.visit("/")
        self.one("input[type=search]").send_keys("calendar" + Keys.ENTER)
        eventually(lambda: self.all(".hits li"), "there are hits")
        self.assertEqual(len(self.all(".hits li")), 10)
        self.assertIn("15 documents, 1 to 10", self.one(".status").text)
        self.assertTrue(self.all(".hits mark"))
        self.assertEqual({mark.text.lower() for mark in self.all(".hits mark")}, {"calendar"})
        self.assertEqual(self.one("h1").text, "Hits for calendar")
        self.assertEqual(self.browser.driver.title, "calendar - Packages")
        self.assertEqual(self.one("input[type=search]").get_attribute("value"), "calendar")

    def test_pages_go_on_and_back(self):
        self.search("calendar")
        first = self.texts(".hits h2")
        self.one("nav a[rel=next]").click()
        self.shown("11 to 15")
        self.assertEqual(len(self.all(".hits li")), 5)
        self.assertEqual(self.one(".hits li:first-child").get_attribute("value"), "11")
        self.assertFalse(set(first) & set(self.texts(".hits h2")))
        self.one("nav a[rel=prev]").click()
        self.shown("1 to 10")
        self.assertEqual(self.texts(".hits h2"), first)
        self.browser.driver.back()
        self.shown("11 to 15")
        self.browser.driver.back()
        self.shown("1 to 10")
        self.assertEqual(self.texts(".hits h2"), first)

    def test_orders_are_links(self):
        self.search("server")
        self.browser.driver.find_element(By.LINK_TEXT, "Section").click()
        eventually(lambda: "sort=Section" in self.browser.driver.current_url, "sorted")
        self.shown("40 documents")
        sections = [fact.split(",")[0] for fact in self.texts(".facts")]
        self.assertEqual(sections, sorted(sections))

    def test_document_opens_from_its_hit(self):
        self.search("keyboard")
        name = self.one(".hits li:first-child h2 a")
        title = name.text
        name.click()
        eventually(lambda: self.all("dl"), "the document is shown")
        self.assertEqual(self.one("h1").text, title)
        self.assertIn("KB", self.one("dl").text)
        self.browser.driver.back()
        eventually(lambda: self.all(".hits li"), "the hits are back")

    def test_dependencies_are_searched_by_their_links(self):
        self.search("keyboard")
        self.one(".hits li:first-child h2 a").click()
        eventually(lambda: self.all("dl"), "the document is shown")
        self.browser.driver.find_element(By.LINK_TEXT, "libstdc++6").click()
        eventually(lambda: "/search" in self.browser.driver.current_url, "searched")
        self.assertEqual(self.one("input[type=search]").get_attribute("value"), "libstdc++6")

    def test_nothing_found_says_what_to_try(self):
        self.search("xylophone")
        self.assertIn("Nothing was found for “xylophone” in Debian packages.", self.one("main").text)
        self.assertIn("Try fewer words", self.one("main").text)

    def test_wrong_address_is_a_page_too(self):
        self.visit("/nowhere")
        self.assertIn("There is no page of this address.", self.one("main").text)

    def test_phone_and_zoom_scroll_in_one_direction_only(self):
        # At 200 % a window of 1280 has 640 CSS pixels.
        for size, scale in ((PHONE, 3), ((640, 450), 2)):
            self.browser.size(size, scale)
            for path in ("/", "/search?q=server", "/search?q=xylophone", self.a_document()):
                self.visit(path)
                wide = self.browser.run("return document.documentElement.scrollWidth")
                self.assertLessEqual(wide, size[0], path)

    def a_document(self):
        self.search("keyboard")
        address = self.one(".hits li:first-child h2 a").get_attribute("href")
        return address[len(self.service.address) :]

    def test_keyboard_reaches_everything(self):
        self.search("server")
        reachable = self.browser.run(
            "return document.querySelectorAll('a[href], input:not([type=hidden]), select, button')"
            ".length"
        )
        self.assertGreater(reachable, 14)
        seen = []
        for _ in range(reachable):
            self.browser.driver.switch_to.active_element.send_keys(Keys.TAB)
            element = self.browser.driver.switch_to.active_element
            seen.append(element.id)
            outline = self.browser.run(
                "const s = getComputedStyle(arguments[0]);"
                "return [s.outlineStyle, parseFloat(s.outlineWidth)]",
                element,
            )
            self.assertEqual(outline[0], "solid", element.text)
            self.assertGreaterEqual(outline[1], 2, element.text)
            # The link that skips the form comes first, and only then is it seen.
            box = element.rect
            self.assertGreaterEqual(box["x"], 0, element.text)
        self.assertEqual(len(set(seen)), reachable)

    def test_screen_reader_has_landmarks_names_and_one_title(self):
        for path in ("/", "/search?q=server", "/search?q=xylophone", self.a_document()):
            self.visit(path)
            nodes = self.browser.accessible()
            roles = [role for role, _, _ in nodes]
            self.assertEqual(sum(r == "heading" and level == 1 for r, _, level in nodes), 1, path)
            levels = [level for role, _, level in nodes if role == "heading"]
            for before, after in zip(levels, levels[1:]):
                self.assertLessEqual(after, before + 1, path)
            for landmark in ("main", "search"):
                self.assertEqual(roles.count(landmark), 1, (path, landmark))
            for role, name, _ in nodes:
                if role in ("link", "button", "searchbox", "combobox", "navigation"):
                    self.assertTrue(name, (path, role))
            self.assertEqual(self.browser.run("return document.documentElement.lang"), "en")

    def test_every_text_has_contrast(self):
        for dark in (False, True):
            self.browser.size(WIDE, dark=dark)
            for path in ("/", "/search?q=server", "/search?q=calendar", "/search?q=xylophone", self.a_document()):
                self.visit(path)
                self.assertEqual(bool(self.all(".hits mark")), "server" in path or "calendar" in path, path)
                contrast, text = self.browser.run(CONTRASTS)[0]
                self.assertGreaterEqual(contrast, 4.5, (path, dark, text))

    def test_pages_are_valid_html(self):
        document = self.a_document()
        for path in ("/", "/search?q=server", "/search?q=server&page=2", "/search?q=xylophone",
                     "/search?q=calandar", "/nowhere", document):
            page = subprocess.run(["curl", "-s", self.service.address + path], capture_output=True,
                                  check=True).stdout
            # It calls aria-current proprietary, which is younger than it.
            checked = subprocess.run(["tidy", "-errors", "-quiet", "-utf8", "--warn-proprietary-attributes", "no"], input=page,
                                     capture_output=True, check=False)
            self.assertEqual((checked.stderr.decode(), checked.returncode), ("", 0), path)

    def test_only_this_server_is_asked(self):
        self.search("server")
        addresses = self.browser.requested()
        self.assertTrue(addresses)
        for address in addresses:
            self.assertTrue(address.startswith(self.service.address + "/"), address)
        self.assertEqual(self.browser.complaints(), [])


class Alone(Case):
    """One database: engines know no spelling."""

    @classmethod
    def service_of(cls):
        return Service(BUILD, packages(40), "Debian packages")

    def test_spelling_is_followed(self):
        self.search("calandar")
        link = self.browser.driver.find_element(By.LINK_TEXT, "calendar")
        link.click()
        eventually(lambda: self.all(".hits li"), "the corrected search has hits")


class Partial(Case):
    """An engine dies while a page is open."""

    @classmethod
    def service_of(cls):
        return Service(BUILD, packages(COUNT), "Debian packages", ENGINES, SORTS)

    def test_missing_engine_is_said(self):
        self.search("server")
        self.assertFalse(self.all(".notice"))
        self.service.kill("E", "engine1")
        self.one("nav a[rel=next]").click()
        self.shown("Part of the documents could not be searched.")
        self.assertTrue(self.all(".hits li"))
        self.assertTrue(self.one(".notice").is_displayed())
        self.service.start("E", "engine1")
        eventually(lambda: self.search("server") or not self.all(".notice"), "all are searched")


class Progressive(Case):
    """A Document Manager that takes its time."""

    load = "none"

    @classmethod
    def service_of(cls):
        return Service(BUILD, packages(40), "Debian packages")

    def test_first_hit_is_seen_before_the_third_is_asked_for(self):
        relay = Relay(self.service.ports["D", "docs"][0])
        self.service.announce("D", "docs", relay.port)
        self.visit("/search?q=tool")  # does not wait for it
        eventually(lambda: relay.asked == 1, "the first document is asked for")
        relay.let_pass(1)
        eventually(lambda: len(self.all(".hits li h2")) == 1, "the first hit is in the page")
        eventually(lambda: relay.asked == 2, "the second document is asked for")
        relay.let_pass(100)
        eventually(lambda: len(self.all(".hits li")) == 10, "the page is whole")
        self.assertFalse(self.all(".notice"))


class Hostile(Case):
    """Documents that would run, load or break something."""

    @classmethod
    def service_of(cls):
        return Service(BUILD, hostile(), "Debian packages")

    def quiet(self):
        """Nothing ran, nothing was asked for elsewhere, and the page is the one that it was."""
        for address in self.browser.requested():
            self.assertTrue(address.startswith(self.service.address + "/"), address)
        self.assertEqual(self.browser.complaints(), [])
        self.assertNotEqual(self.browser.driver.title, "taken")
        self.assertEqual(len(self.all("h1")), 1)
        self.assertFalse(self.all("script, iframe, svg, img, main style, base, [onerror], [onmouseover]"))

    def test_hits_are_shown_as_text(self):
        found = 0
        for page in (1, 2):
            self.search("hostile", page=page)
            found += len(self.all(".hits li"))
            self.quiet()
        self.assertEqual(found, len(ATTACKS))

    def test_documents_are_shown_as_text(self):
        for number, attack in enumerate(ATTACKS, 1):
            self.visit(f"/doc/docs/{number}?type=docs")
            self.assertEqual(self.one("h1").text, f"hostile {attack}")
            self.assertIn(attack, [fact.text for fact in self.all("dd")])
            self.quiet()

    def test_queries_are_shown_as_text(self):
        for attack in ATTACKS:
            self.search(attack)
            self.assertEqual(self.one("input[type=search]").get_attribute("value"), attack)
            self.assertEqual(self.browser.driver.title, f"{attack} - Packages")
            self.quiet()


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    BUILD = sys.argv.pop(1)
    unittest.main(verbosity=2)
