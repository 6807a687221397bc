"""kxmd sheet and kxmd prepare --report: the pages they write, read as data and used in a browser."""

import base64
import json
import os
import re
import resource
import subprocess
import unittest

from pictures import RED, solid
from preparing import COVER, PrepareTestCase
from support import (CommandTestCase, id3v23, mp4, preloading, run, sound_entry, tag_atom, text_frame, track, user_data,
                     video_entry)

try:
    from selenium import webdriver
    from selenium.common.exceptions import WebDriverException
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError:
    webdriver = None


def files_of(page):
    """The files that a page tells of, by name."""
    with open(page, encoding="utf-8") as file:
        text = file.read()
    told, = re.findall(r'<script type="application/json" id="files">(.*?)</script>', text, re.DOTALL)
    return {file["name"]: file for file in json.loads(told)}


def song(title):
    return mp4(track(b"soun", sound_entry(2)), user_data(tag_atom(b"\xa9nam", title), tag_atom(b"\xa9ART", "Ann")))


def driver(width=1200, height=800):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
        options.add_argument(argument)
    options.add_argument(f"--window-size={width},{height}")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class SheetTests(CommandTestCase):
    def sheet(self, *paths):
        result = run("-q", "sheet", *paths, "-o", self.path("page.html"))
        self.assertEqual((result.status, result.out), (0, b""), result.errors)
        return files_of(self.path("page.html"))

    def test_page_tells_what_is_in_files(self):
        os.mkdir(self.path("a"))
        self.write("a/b.m4a", song("Blue"))
        self.write("a/c.mp4", mp4(track(b"vide", video_entry(320, 240, 77, 30))))
        self.write("a/d.png", solid(200, 100, RED))
        files = self.sheet(self.path("a"))
        self.assertEqual(list(files), ["a/b.m4a", "a/c.mp4", "a/d.png"])
        told = files["a/b.m4a"]
        self.assertEqual((told["title"], told["artist"], told["album"], told["kind"]), ("Blue", "Ann", "", "MP4"))
        self.assertEqual((told["cover"], told["coverState"], told["size"]), ("none", "bad", len(song("Blue"))))
        self.assertTrue(told["codecs"].startswith("AAC"), told)
        self.assertEqual(told["picture"], "")
        self.assertEqual(files["a/c.mp4"]["coverState"], "")
        picture = base64.b64decode(files["a/d.png"]["picture"])
        self.assertTrue(picture.startswith(b"\xff\xd8"))
        with open(self.path("d.jpg"), "wb") as file:
            file.write(picture)
        size = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0",
                               self.path("d.jpg")], stdout=subprocess.PIPE, check=True).stdout
        self.assertEqual(size.strip(), b"128,64")

    def test_texts_end_no_script(self):
        wild = '</script><script>alert(1)</script> & "quoted" \\ \x1b\u2028'
        files = self.sheet(self.write("a<b>.m4a", song(wild)))
        self.assertEqual(files["a<b>.m4a"]["title"], wild)

    def test_name_that_is_no_text(self):
        path = os.path.join(self.folder.encode(), b"a\xff.mp3")
        with open(path, "wb") as file:
            file.write(id3v23(text_frame(b"TIT2", "Blue")))
        self.assertEqual(self.sheet(path)["a\ufffd.mp3"]["title"], "Blue")

    def test_no_files_give_an_empty_page(self):
        os.mkdir(self.path("empty"))
        self.assertEqual(self.sheet(self.path("empty")), {})

    def test_missing_file_is_reported_and_the_others_are_shown(self):
        song_path = self.write("a.m4a", song("Blue"))
        result = run("-q", "sheet", self.path("none"), song_path, "-o", self.path("page.html"))
        self.assert_failure(result, self.path("none"), "No such file or directory")
        self.assertEqual(list(files_of(self.path("page.html"))), ["a.m4a"])

    def test_same_page_by_any_number_of_threads(self):
        paths = [self.write(f"{i}.m4a", song(f"Song {i}")) for i in range(40)]
        pages = []
        for jobs in ("1", "5"):
            run("-q", "sheet", *paths, "-j", jobs, "-o", self.path("page.html"))
            with open(self.path("page.html"), "rb") as file:
                pages.append(file.read())
        self.assertEqual(*pages)

    def test_song_is_not_taken_for_the_page(self):
        path = self.write("a.m4a", song("Blue"))
        self.assert_usage_error(run("sheet", path, "-o", path))
        self.assertEqual(run("-q", "sheet", path).status, 2)

    def test_page_replaces_no_file_that_it_shows(self):
        path = self.write("a.html", b"words")
        result = run("-q", "sheet", path, "-o", path)
        self.assertEqual(result.status, 1)
        with open(path, "rb") as file:
            self.assertEqual(file.read(), b"words")

    def test_page_in_the_folder_that_it_shows(self):
        os.mkdir(self.path("a"))
        self.write("a/b.m4a", song("Blue"))
        for _ in range(2):
            result = run("-q", "sheet", self.path("a"), "-o", self.path("a/page.html"))
            self.assertEqual(result.status, 0, result.errors)
            self.assertEqual(list(files_of(self.path("a/page.html"))), ["a/b.m4a"])
        self.write("a/page.html", b"<!DOCTYPE html><title>Media files</title>")
        self.assertEqual(run("-q", "sheet", self.path("a"), "-o", self.path("a/page.html")).status, 1)

    def test_page_is_as_private_as_what_it_shows(self):
        path = self.write("a.m4a", song("Blue"))
        os.chmod(path, 0o600)
        self.sheet(path, self.write("b.m4a", song("Red")))
        self.assertEqual(os.stat(self.path("page.html")).st_mode & 0o777, 0o600)

    def test_page_follows_a_link(self):
        os.symlink("real.html", self.path("page.html"))
        for _ in range(2):
            self.sheet(self.write("a.m4a", song("Blue")))
            self.assertTrue(os.path.islink(self.path("page.html")))
            self.assertEqual(list(files_of(self.path("real.html"))), ["a.m4a"])

    def test_page_that_cannot_be_written(self):
        path = self.write("a.m4a", song("Blue"))
        result = run("-q", "sheet", path, "-o", self.path("none/page.html"))
        self.assertEqual((result.status, len(result.errors)), (1, 1), result.errors)

    def test_page_that_cannot_be_written_has_no_file_looked_into(self):
        path = self.write("a.m4a", song("Blue"))
        counting = {**preloading("KXMD_COUNT_OPENS"), "KXMD_COUNTED": path}
        for length, opened in ((1 << 20, 1), (100, 0)):
            result = run("-q", "sheet", path, "-o", self.path("page.html"), env=counting,
                         preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (length, length)))
            self.assertEqual(bool(result.status), bool(opened), result.errors)

    def test_page_needs_nothing_beside_it(self):
        self.sheet(self.write("a.m4a", song("Blue")))
        with open(self.path("page.html"), encoding="utf-8") as file:
            page = file.read()
        self.assertIn("default-src 'none'", page)
        self.assertNotRegex(page, r"https?://|<link|src=[\"'](?!data:)")


class SheetReportTests(PrepareTestCase):
    def report(self, *options):
        page = self.path("report.html")
        result = run("-q", "prepare", self.source + "/", "--to", self.out, "--report", page, *options,
                     env=self.environment)
        return result, files_of(page)

    def test_report_tells_what_was_done_and_why_not(self):
        self.place("A/song.mp3")
        self.place("A/cover.jpg")
        self.place("A/recording.mov")
        self.place("B/fragments.m4a")
        self.place("B/cover.jpg")
        result, files = self.report()
        self.assertEqual(result.status, 0, result.errors)
        self.assertEqual(files["A/song.mp3"]["done"], "cover inserted")
        self.assertEqual((files["A/song.mp3"]["title"], files["A/song.mp3"]["coverState"]), ("Song", "good"))
        self.assertTrue(files["A/song.mp3"]["picture"])
        self.assertEqual(files["A/cover.jpg"]["done"], "copied")
        self.assertIn("cleaned", files["A/recording.mov"]["done"])
        self.assertEqual(files["B/fragments.m4a"]["done"], "copied")
        self.assertIn("fragment", files["B/fragments.m4a"]["remark"])
        self.assertFalse(files["B/fragments.m4a"]["isFailed"])
        _, again = self.report()
        self.assertEqual({file["done"] for file in again.values()}, {"unchanged"})

    def test_report_of_a_dry_run_shows_the_sources(self):
        self.place("A/song.mp3")
        self.place("A/cover.jpg")
        result, files = self.report("-n")
        self.assertEqual(result.status, 0)
        self.assertEqual(files["A/song.mp3"]["done"], "would insert a cover")
        self.assertEqual((files["A/song.mp3"]["title"], files["A/song.mp3"]["cover"]), ("Song", "none"))
        self.assertFalse(os.path.exists(self.out))

    def test_report_of_what_was_removed_and_what_failed(self):
        for name in ("a", "b", "c", "d"):
            self.place(f"{name}.mp3", "song.mp3")
        self.report()
        os.remove(os.path.join(self.source, "a.mp3"))
        os.mkdir(os.path.join(self.out, "e.mp3"))
        self.place("e.mp3", "song.mp3")
        result, files = self.report("--delete")
        self.assertEqual(result.status, 1)
        self.assertEqual((files["a.mp3"]["done"], files["a.mp3"]["size"]), ("removed", 0))
        self.assertEqual((files["e.mp3"]["done"], files["e.mp3"]["isFailed"]), ("failed", True))
        page = self.path("page.html")
        self.assertEqual(run("-q", "sheet", self.out, "-o", page).status, 0)
        self.assertFalse([name for name in files_of(page) if ".kxmd-" in name])
        self.assertEqual(files["e.mp3"]["title"], "Song")
        self.assertTrue(files["e.mp3"]["remark"])

    def test_report_replaces_no_file_of_the_run(self):
        self.place("song.mp3")
        for name in ("diary.html", "other.html"):
            with open(os.path.join(self.source, name), "w", encoding="utf-8") as file:
                file.write("mine")
        os.symlink(os.path.join(self.source, "diary.html"), self.path("link.html"))
        command = ["-q", "prepare", self.source + "/", "--to", self.out]
        diary = os.path.join(self.source, "diary.html")
        for page in (diary, self.path("link.html"), os.path.join(self.out, "other.html")):
            result = run(*command, "--report", page, env=self.environment)
            self.assertEqual((result.status, len(result.errors)), (1, 1), result.errors)
            self.assertEqual(self.hashes(self.out), {})
        self.assertEqual(run(*command, env=self.environment).status, 0)
        prepared = os.path.join(self.out, "other.html")
        self.assertEqual(run(*command, "-n", "--report", prepared, env=self.environment).status, 1)
        os.remove(os.path.join(self.source, "other.html"))
        self.assertEqual(run(*command, "--report", prepared, env=self.environment).status, 1)
        for path in (diary, prepared):
            with open(path, encoding="utf-8") as file:
                self.assertEqual(file.read(), "mine")

    def test_report_among_the_sources_is_not_prepared(self):
        self.place("song.mp3")
        page = os.path.join(self.source, "report.html")
        for done in ("copied", "unchanged"):
            result = run("-q", "prepare", self.source + "/", "--to", self.out, "--report", page, env=self.environment)
            self.assertEqual(result.status, 0, result.errors)
            self.assertEqual({name: file["done"] for name, file in files_of(page).items()}, {"song.mp3": done})
        self.assertFalse(os.path.exists(os.path.join(self.out, "report.html")))

    def test_report_that_cannot_be_written_stops_the_run(self):
        self.place("song.mp3")
        result = run("-q", "prepare", self.source, "--to", self.out, "--report", self.path("none/report.html"))
        self.assertEqual(result.status, 1)
        self.assertEqual(self.hashes(self.out), {})


@unittest.skipUnless(webdriver and os.path.exists("/usr/bin/chromedriver"), "there is no browser to drive")
class SheetBrowserTests(CommandTestCase):
    @classmethod
    def setUpClass(cls):
        try:
            driver().quit()
        except WebDriverException as problem:
            raise unittest.SkipTest(f"no browser starts here: {problem.msg}")

    def open(self, count, **size):
        paths = [self.write(f"{i:04}.m4a", song(f"Song {count - i}") + bytes(i)) for i in range(count)]
        paths.append(self.write("picture.png", solid(60, 30, RED)))
        run("-q", "sheet", *paths, "-o", self.path("page.html"))
        browser = driver(**size)
        self.addCleanup(browser.quit)
        browser.get("file://" + self.path("page.html"))
        return browser

    def names(self, browser):
        return [row.find_elements(By.TAG_NAME, "td")[1].text for row in browser.find_elements(By.CSS_SELECTOR, "tbody tr")]

    def assert_no_errors(self, browser):
        self.assertEqual([entry for entry in browser.get_log("browser") if entry["level"] == "SEVERE"], [])

    def test_files_are_sorted_and_searched(self):
        browser = self.open(12)
        self.assertEqual(self.names(browser)[:2], ["0000.m4a", "0001.m4a"])
        heads = {head.text.split(" ")[0]: head for head in browser.find_elements(By.CSS_SELECTOR, "th")}
        heads["Size"].find_element(By.TAG_NAME, "button").click()
        heads["Size"].find_element(By.TAG_NAME, "button").click()
        self.assertEqual(heads["Size"].get_attribute("aria-sort"), "descending")
        self.assertEqual([name for name in self.names(browser) if name != "picture.png"][0], "0011.m4a")
        heads["Title"].find_element(By.TAG_NAME, "button").click()
        self.assertEqual(self.names(browser)[0], "0011.m4a")  # Song 1, before Song 10.
        search = browser.find_element(By.ID, "search")
        search.send_keys("SONG 12")
        self.assertEqual(self.names(browser), ["0000.m4a"])
        self.assertEqual(browser.find_element(By.ID, "count").text, "1 of 13 files")
        search.send_keys(" nothing")
        self.assertTrue(browser.find_element(By.ID, "none").is_displayed())
        search.send_keys(Keys.ESCAPE)
        self.assertEqual(len(self.names(browser)), 13)
        self.assert_no_errors(browser)

    def test_pictures_are_shown(self):
        browser = self.open(1)
        browser.find_element(By.ID, "search").send_keys("picture")
        image = browser.find_element(By.CSS_SELECTOR, "tbody img")
        self.assertEqual(browser.execute_script(
            "const image = arguments[0]; return image.decode().then(() => [image.naturalWidth, image.naturalHeight])",
            image), [60, 30])
        self.assert_no_errors(browser)

    def test_texts_are_shown_and_never_become_elements(self):
        wild = "<img src=x onerror=\"document.title = 'ran'\">"
        path = self.write(wild.replace("/", "") + ".m4a", song(wild))
        run("-q", "sheet", path, "-o", self.path("page.html"))
        browser = driver()
        self.addCleanup(browser.quit)
        browser.get("file://" + self.path("page.html"))
        row = browser.find_element(By.CSS_SELECTOR, "tbody tr")
        self.assertEqual(row.find_elements(By.TAG_NAME, "img"), [])
        self.assertEqual(row.text.count(wild), 2)
        self.assertEqual(browser.title, "Media files")

    def test_all_can_be_reached_by_keyboard(self):
        browser = self.open(3)
        body = browser.find_element(By.TAG_NAME, "body")
        body.send_keys("/")
        self.assertEqual(browser.switch_to.active_element.get_attribute("id"), "search")
        reached = []
        for _ in range(20):
            browser.switch_to.active_element.send_keys(Keys.TAB)
            active = browser.switch_to.active_element
            reached.append(active.tag_name)
            if active.tag_name == "tr":
                break
        self.assertEqual(reached[-1], "tr")
        self.assertGreater(reached.count("button"), 5)
        browser.switch_to.active_element.send_keys(Keys.ARROW_DOWN)
        self.assertIn("0001.m4a", browser.switch_to.active_element.text)
        browser.switch_to.active_element.send_keys(Keys.ARROW_UP)
        self.assertIn("0000.m4a", browser.switch_to.active_element.text)

    def test_thousands_of_files_make_few_rows(self):
        browser = self.open(3000)
        self.assertEqual(browser.find_element(By.ID, "count").text, "3001 files")
        before = len(browser.find_elements(By.CSS_SELECTOR, "tbody tr"))
        self.assertLess(before, 500)
        browser.execute_script("scrollTo(0, document.body.scrollHeight)")
        browser.execute_async_script("setTimeout(arguments[0], 500)")
        self.assertGreater(len(browser.find_elements(By.CSS_SELECTOR, "tbody tr")), before)
        browser.find_element(By.ID, "search").send_keys("song 17")
        self.assertLess(len(browser.find_elements(By.CSS_SELECTOR, "tbody tr")), 500)
        self.assert_no_errors(browser)

    def test_phones_get_cards_that_fit(self):
        browser = self.open(3, width=500, height=800)
        self.assertFalse(browser.find_element(By.TAG_NAME, "thead").is_displayed())
        self.assertTrue(browser.find_element(By.ID, "order").is_displayed())
        self.assertLessEqual(*browser.execute_script(
            "return [document.documentElement.scrollWidth, document.documentElement.clientWidth]"))

    def test_long_words_push_nothing_out_of_view(self):
        word = "Unbroken" * 6
        self.write("a.m4a", mp4(track(b"soun", sound_entry(2)), user_data(
            *(tag_atom(kind, word) for kind in (b"\xa9nam", b"\xa9ART", b"\xa9alb", b"aART")))))
        run("-q", "sheet", self.path("a.m4a"), "-o", self.path("page.html"))
        browser = driver()
        self.addCleanup(browser.quit)
        browser.get("file://" + self.path("page.html"))
        self.assertIn(word, browser.find_element(By.TAG_NAME, "tbody").text.replace("\n", ""))
        self.assertLessEqual(*browser.execute_script(
            "return [document.documentElement.scrollWidth, document.documentElement.clientWidth]"))

    def test_colours_follow_the_choice(self):
        browser = self.open(1)
        colour = lambda: browser.execute_script("return getComputedStyle(document.body).backgroundColor")
        light = colour()
        browser.find_element(By.ID, "theme").click()
        self.assertNotEqual(colour(), light)
