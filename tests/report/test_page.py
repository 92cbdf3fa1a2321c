# SPDX-License-Identifier: ISC
"""The page in a real browser: what it shows, on what it is shown, and who reads it."""

import base64
import re

import looks
import pytest
from pages import DATA, attempt_of, expected, log_of, sample_page
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from report import attempts, page, readers
from report.events import Verdict

WIDTHS = (1280, 800, 390)
EXPECTED = expected()
# A success, a failure with two attempts, an estimate, a stock router's, and a long quiet time.
FEW = ("push-button", "hostapd-dies", "repeater-2g", "stock-without-kelm")
LEAST_CONTRAST = 4.5
HOSTILE = "</script></style><img src=x onerror=window.owned=1><b>\"'&\u202egnp.exe\x1b[31m\x00"
PRESSED = '{ "gpio": {"type":"wps","pressed":1} }'
PRESS = (0.0, "bus", PRESSED)
WATCHED = "svg.wide a.mark"


def rendered(monkeypatch, log, *found, title="made"):
    """The page of a log whose attempts the test has written down."""
    monkeypatch.setattr(attempts, "attempts", lambda _: list(found))
    return page.render([log], title)


@pytest.mark.parametrize("name", sorted(EXPECTED))
def test_a_sample_shows_its_verdicts_lanes_and_marks_and_nothing_overflows(browser, name):
    browser.show(sample_page(name))
    seen = browser.run(looks.SUMMARY)
    assert [(one["causes"], one["lanes"], one["points"]) for one in seen] == EXPECTED[name]
    assert all(text[:1].isupper() for one in seen for text in one["sentences"])
    for width in WIDTHS:
        browser.look(width)
        assert browser.run(looks.OUTSIDE) == [], width
        assert browser.run(looks.COVERED) == [], width
    assert browser.run(looks.STUMBLES) == []
    assert browser.messages() == []


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("name", FEW)
def test_every_text_stands_out(browser, name, scheme):
    browser.show(sample_page(name), scheme=scheme)
    browser.run("document.querySelectorAll('details').forEach(one => { one.open = true; });"
                "document.querySelector(arguments[0]).focus();", WATCHED)
    rows = browser.run(looks.COLOURS)
    assert len(rows) > 8
    poor = [(text, round(contrast(colour, behind), 2))
            for text, colour, *all_behind in rows for behind in all_behind
            if contrast(colour, behind) < LEAST_CONTRAST]
    assert poor == []
    paper = browser.run("return getComputedStyle(document.body).backgroundColor")
    assert paper == {"light": "rgb(255, 255, 255)", "dark": "rgb(18, 22, 27)"}[scheme]


def contrast(colour, behind):
    """As it is defined for the reading of texts: 1 to 21."""
    def light(channels):
        parts = [one / 255 for one in channels[:3]]
        parts = [one / 12.92 if one <= 0.04045 else ((one + 0.055) / 1.055) ** 2.4 for one in parts]
        return 0.2126 * parts[0] + 0.7152 * parts[1] + 0.0722 * parts[2]
    darker, lighter = sorted([light(colour), light(behind)])
    return (lighter + 0.05) / (darker + 0.05)


@pytest.mark.parametrize("colours, value", [
    ([[0, 0, 0], [255, 255, 255]], 21.0), ([[119, 119, 119], [255, 255, 255]], 4.48),
    ([[9, 9, 9], [9, 9, 9]], 1.0)])
def test_the_measure_of_contrast_is_the_known_one(colours, value):
    assert round(contrast(*colours), 2) == value


@pytest.mark.parametrize("name, words", [
    ("push-button", ["Worked: ", "Note: "]), ("hidden", ["Failed: ", "Failed: "]),
    ("wpa3-only", ["Note: ", "Note: "]), ("access-point-pin", ["Worked: "])])
def test_each_sign_has_its_word_for_a_screen_reader(browser, name, words):
    browser.show(sample_page(name))
    assert browser.run("return [...document.querySelectorAll('.sentence .unseen')].map("
                       "one => one.textContent)") == words


def test_nothing_is_fetched(browser):
    browser.show(sample_page("push-button"))
    assert [url for url in browser.requests() if not url.endswith("/page.html")] == []
    assert not re.search(r"https?:|@import|url\(", sample_page("push-button"))


def test_what_the_page_does_not_hold_itself_cannot_run(browser):
    browser.show(sample_page("push-button"))
    browser.run("""
        const script = document.createElement('script');
        script.textContent = 'window.owned = 1';
        document.body.append(script);
        const image = document.createElement('img');
        image.src = 'data:image/gif;base64,R0lGODlhAQABAAAAACw=';
        document.body.append(image);""")
    assert browser.run("return window.owned") is None
    told = browser.messages()
    assert any("script" in text for text in told) and any("image" in text for text in told)


# Keyboard and pointer.

def card(browser):
    """What the card says; None where there is none."""
    found = browser.driver.find_element(By.CSS_SELECTOR, ".card")
    return found.text if found.is_displayed() else None


def press(browser, *keys):
    ActionChains(browser.driver).send_keys(*keys).perform()


def test_the_line_behind_a_mark_is_shown_to_a_keyboard(browser):
    browser.show(sample_page("push-button"))
    assert card(browser) is None
    steps = 0
    while not browser.run("return document.activeElement.matches('.mark')") and steps < 20:
        press(browser, Keys.TAB)
        steps += 1
    assert card(browser) == ('Button, 0.00 s: the WPS button is pressed\n'
                             '0.00 s  bus { "gpio": {"type":"wps","pressed":1} }')
    press(browser, Keys.ARROW_RIGHT)
    assert card(browser).startswith("kelm, ")
    press(browser, Keys.ARROW_LEFT)
    assert card(browser).startswith("Button, ")
    press(browser, Keys.ESCAPE)
    assert card(browser) is None


def follow(browser, go):
    """Goes by a link to a line. The browser goes there by itself first; the page shows the line
    whole when it is told of it, and this listener is told behind the page's."""
    browser.run("window.followed = new Promise((done) => addEventListener('hashchange', done))")
    go()
    browser.driver.execute_async_script("followed.then(() => arguments[0]())")


def test_enter_goes_from_a_mark_to_its_line(browser):
    browser.show(sample_page("push-button"))
    browser.run("document.querySelector('svg.wide g[data-lane^=hostapd] a.good').focus()")
    follow(browser, lambda: press(browser, Keys.ENTER))
    assert "client 02:00:00:00:02:00 has received the key" in browser.run(
        "return document.activeElement.innerText")
    box = browser.run("return document.activeElement.getBoundingClientRect().toJSON()")
    assert 0 <= box["top"] and box["bottom"] <= 900


@pytest.mark.parametrize("width, kind", [(1280, "wide"), (800, "middle"), (390, "narrow")])
def test_the_line_behind_a_mark_is_shown_to_a_pointer_within_the_window(browser, width, kind):
    browser.show(sample_page("repeater-2g"), width=width)
    for mark in browser.driver.find_elements(By.CSS_SELECTOR, f"svg.{kind} a.mark")[::7]:
        browser.run("arguments[0].scrollIntoView({block: 'center'})", mark)
        ActionChains(browser.driver).move_to_element(
            mark.find_element(By.CSS_SELECTOR, ".shape")).perform()
        assert card(browser).split("\n")[0] == mark.get_attribute("aria-label").split("\n")[0]
        assert browser.run(looks.OUTSIDE) == []


def shown_rows(browser):
    return browser.run("return [...document.querySelectorAll('table[id$=attempt1-table] tbody tr')]"
                       ".filter(one => one.getClientRects().length).map(one => one.dataset.lane)")


@pytest.mark.parametrize("width", WIDTHS)
def test_the_table_is_filtered_by_lane_with_the_keyboard(browser, width):
    browser.show(sample_page("push-button"), width=width)
    count = browser.run("return document.querySelector('output').textContent")
    everything = shown_rows(browser)
    assert count == "%d of %d lines" % (len(everything), len(everything))
    browser.run("document.querySelector('input[name=daemon]').focus()")
    press(browser, Keys.SPACE)
    left = shown_rows(browser)
    assert left == [lane for lane in everything if lane != "daemon"] and "daemon" in everything
    assert browser.run("return document.querySelector('output').textContent") == (
        "%d of %d lines" % (len(left), len(everything)))


def test_all_none_and_explained_lines_can_be_asked_for(browser):
    browser.show(sample_page("push-button"))
    everything = shown_rows(browser)
    for selector, expected_count in (("[data-none]", 0), ("[data-all]", len(everything)),
                                     ("[data-told]", 25)):
        browser.driver.find_element(By.CSS_SELECTOR, selector).click()
        assert len(shown_rows(browser)) == expected_count, selector
    assert 25 < len(everything)


def test_a_link_shows_its_line_whatever_is_filtered(browser):
    browser.show(sample_page("push-button"))
    browser.driver.find_element(By.CSS_SELECTOR, "[data-none]").click()
    assert shown_rows(browser) == []
    follow(browser, lambda: browser.run("document.querySelector('.evidence a').click()"))
    assert shown_rows(browser) == ["hostapd-24g"]


def test_the_page_is_whole_without_scripts(browser):
    browser.show(sample_page("push-button"), scripts=False)
    find = browser.driver.find_elements
    rows = find(By.CSS_SELECTOR, "table[id$=attempt1-table] tbody tr")
    assert rows and all(row.is_displayed() for row in rows)
    assert not find(By.CSS_SELECTOR, "form.filter")[0].is_displayed()
    mark = find(By.CSS_SELECTOR, WATCHED)[0]
    assert mark.find_element(By.TAG_NAME, "title").get_attribute("textContent") == (
        "0.00 s: the WPS button is pressed")
    assert find(By.CSS_SELECTOR, mark.get_dom_attribute("href"))


# Paper.

def test_a_print_holds_every_line_also_those_that_are_filtered(browser):
    browser.show(sample_page("hostapd-dies"))
    browser.driver.find_element(By.CSS_SELECTOR, "[data-none]").click()
    browser.look(700, media="print", scheme="dark")
    rows = browser.run("return [...document.querySelectorAll('tbody tr')]"
                       ".map(one => one.checkVisibility() && one.offsetHeight > 0)")
    # The log has 190 lines; three of them belong to both attempts.
    assert len(rows) == 193 and all(rows)
    assert browser.run(looks.OUTSIDE) == []
    assert browser.run("return [...document.querySelectorAll('figure > svg')].filter("
                       "one => one.getClientRects().length).map(one => one.classList[1])"
                       ) == ["middle", "middle"]
    assert browser.run("return getComputedStyle(document.body).backgroundColor") == (
        "rgb(255, 255, 255)")
    assert browser.run("return [...document.querySelectorAll('.filter, .card, .screen-only')]"
                       ".filter(one => one.getClientRects().length).length") == 0


def test_a_print_can_be_made(browser):
    browser.show(sample_page("push-button"))
    printed = base64.b64decode(browser.command("Page.printToPDF", printBackground=True)["data"])
    assert printed.startswith(b"%PDF") and len(printed) > 20000


# Strangers' texts.

def hostile_log():
    rows = [PRESS,
            (1.0, "hostapd", "wlan1: WPS-REG-SUCCESS 02:00:00:00:02:00 " + HOSTILE, "2.4 GHz"),
            (1.5, "demo", HOSTILE), (2.0, "file", "/tmp/%s 0600 3 bytes: KEY=[1]" % HOSTILE),
            (2.5, "client0", "sta0: CTRL-EVENT-CONNECTED - Connection to %s" % HOSTILE),
            (3.0, "hostapd", "%s: AP-ENABLED" % HOSTILE.replace(" ", "_")), (9.0, HOSTILE, HOSTILE)]
    log = log_of(rows, names={"client0": HOSTILE}, scenario=HOSTILE, trouble=[HOSTILE],
                 checks=[(HOSTILE, False)], program=HOSTILE,
                 files={"/tmp/" + HOSTILE: {"mode": HOSTILE, "keys": [HOSTILE],
                                            "values": {HOSTILE: HOSTILE}}})
    verdict = Verdict("2.4 GHz", "joined\"><b>", True, HOSTILE, HOSTILE, [log.events[1]])
    return log, attempt_of(log, headline=HOSTILE, advice=HOSTILE, bands={"2.4 GHz": verdict},
                           notes=[Verdict("", "x", None, HOSTILE, "", [log.events[2]])])


def test_a_strangers_text_is_a_text(browser, monkeypatch):
    log, attempt = hostile_log()
    browser.show(rendered(monkeypatch, log, attempt, title=HOSTILE))
    assert browser.run("return window.owned") is None
    assert browser.run("return [...document.querySelectorAll('script, style, img, iframe, object')]"
                       ".map(one => one.tagName)") == ["STYLE", "SCRIPT"]
    assert browser.run("return document.title") == (
        "</script></style><img src=x onerror=window.owned=1><b>\"'&"
        "\\u202egnp.exe\\u001b[31m\\u0000")
    assert not set("\u202e\x1b\x00") & set(browser.run("return document.documentElement.outerHTML"))
    assert browser.messages() == []
    assert browser.run(looks.STUMBLES) == []
    for width in WIDTHS:
        browser.look(width)
        assert browser.run(looks.OUTSIDE) == [], width
    browser.run("document.querySelector('svg.narrow g[data-lane=client0] a').focus()")
    assert "<img src=x" in card(browser)


def test_a_picture_alone_keeps_a_strangers_text_a_text(browser):
    log, attempt = hostile_log()
    browser.show(page.render_svg(log, attempt, HOSTILE), suffix=".svg")
    assert browser.run("return document.documentElement.tagName") == "svg"
    assert browser.run("return document.querySelectorAll('script, image, foreignObject, a[href]')"
                       ".length") == 0
    assert browser.messages() == []


# Logs of other kinds.

def test_a_log_without_times_is_told_in_its_order(browser, monkeypatch):
    log = log_of([(None, "bus", PRESSED),
                  (None, "hostapd", "wlan1: WPS-PBC-ACTIVE", "2.4 GHz"),
                  (None, "hostapd", "wlan1: WPS-REG-SUCCESS 02:00:00:00:02:00", "2.4 GHz")])
    browser.show(rendered(monkeypatch, log, attempt_of(log)))
    assert "This log has no times: the marks stand in the order of its lines" in browser.run(
        "return document.querySelector('figcaption').innerText")
    assert browser.run("return [...document.querySelectorAll('svg.wide .tick-text')].map("
                       "one => one.textContent)") == ["1", "2", "3"]
    lefts = browser.run("return [...document.querySelectorAll('svg.wide .mark .hit')].map("
                        "one => one.getBoundingClientRect().left)")
    assert len(lefts) == 3 and abs((lefts[1] - lefts[0]) - (lefts[2] - lefts[1])) < 1
    assert browser.run("return document.querySelector('td.time').textContent") == "1"


def test_a_log_without_an_attempt_shows_its_lines(browser, monkeypatch):
    browser.show(rendered(monkeypatch, log_of([(0.0, "hostapd", "wlan1: AP-ENABLED", "2.4 GHz")])))
    text = browser.run("return document.body.innerText")
    assert "No attempt was found in it." in text and "All lines\n1 line\n" in text
    assert browser.run("return document.querySelectorAll('tbody tr').length") == 1
    assert browser.run(looks.STUMBLES) == [] and browser.messages() == []


def test_a_log_without_an_attempt_says_why_a_press_would_have_come_to_nothing(browser):
    log = log_of([(3.0, "start", "1 daemon 283"), (4.0, "exit", "1 daemon 283 status 255")])
    browser.show(page.render([log], "made"))
    assert browser.run("return [...document.querySelectorAll('.verdict .bands > li')].map("
                       "one => one.dataset.cause)") == ["no-daemon"]
    text = browser.run("return document.querySelector('.verdict').innerText")
    assert "A press would have come to nothing:" in text
    assert "The daemon was not running; its start had failed" in text
    assert "Start the service and read its first lines in the log." in text
    follow(browser, lambda: browser.run("document.querySelector('.verdict .evidence a').click()"))
    assert browser.run("return document.activeElement.innerText").endswith(
        "exit 1 daemon 283 status 255")
    for width in WIDTHS:
        browser.look(width)
        assert browser.run(looks.OUTSIDE) == [], width
    assert browser.run(looks.STUMBLES) == [] and browser.messages() == []


def test_an_empty_log_makes_a_page(browser, monkeypatch):
    browser.show(rendered(monkeypatch, log_of([], trouble=["The file is empty."])))
    assert "The file is empty." in browser.run("return document.body.innerText")
    assert browser.run(looks.STUMBLES) == [] and browser.messages() == []


def test_two_minutes_of_quiet_are_drawn_short_and_said(browser, monkeypatch):
    log = log_of([(5.0, "bus", PRESSED),
                  (5.4, "hostapd", "wlan1: WPS-PBC-ACTIVE", "2.4 GHz"),
                  (130.0, "console", "kelm[wps_session_maintain:176]: wps Timeout, stop"),
                  (130.5, "hostapd", "wlan1: WPS-TIMEOUT", "2.4 GHz")])
    browser.show(rendered(monkeypatch, log, attempt_of(log)))
    assert browser.run("return document.querySelector('svg.wide .quiet-text').textContent") == (
        "2 min 05 s")
    lefts = browser.run("return [...document.querySelectorAll('svg.wide .mark .hit')].map("
                        "one => one.getBoundingClientRect().left)")
    # Marks stand lane by lane: the press, kelm's end of it, hostapd's begin and end.
    assert lefts[2] - lefts[0] > 300 and lefts[1] - lefts[2] < 200 and lefts[3] - lefts[1] > 350


def test_a_flood_in_one_moment_is_one_small_picture_that_counts_it(browser, monkeypatch):
    rows = [PRESS]
    rows += [(1.0, "client0", "sta0: CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:%02x:%02x"
              % divmod(number, 256)) for number in range(3000)]
    log = log_of(rows)
    browser.show(rendered(monkeypatch, log, attempt_of(log)))
    lanes = browser.run(looks.SUMMARY)[0]["lanes"]
    assert lanes == ["button 1", "daemon 0", "client0 3000"]
    assert browser.run("return document.querySelector('svg.wide').clientHeight") < 500
    assert len(shown_rows(browser)) == 3001


def test_what_was_written_is_told_by_names_and_modes(browser, monkeypatch):
    log = log_of([PRESS, (1.0, "file", "/tmp/wps_wifi_ap.txt 0600 312 bytes: SSID=[9] KEY=[12]"),
                  (2.0, "file", "/tmp/wpsactive removed")],
                 files={"/tmp/kelm.info": {"mode": "0644", "keys": ["status", "mac"]}},
                 checks=[("the phone joins", True), ("the page is told", False)])
    browser.show(rendered(monkeypatch, log, attempt_of(log)))
    assert browser.run("return [...document.querySelectorAll('.attempt .written tbody tr')].map("
                       "one => [...one.cells].map(cell => cell.textContent))") == [
        ["1.00 s", "/tmp/wps_wifi_ap.txt", "0600 312 bytes: SSID=[9] KEY=[12]"],
        ["2.00 s", "/tmp/wpsactive", "removed"]]
    assert browser.run("return [...document.querySelectorAll('main > .written tbody tr')].map("
                       "one => [...one.cells].map(cell => cell.textContent))") == [
        ["/tmp/kelm.info", "0644", "status, mac"]]
    assert browser.run("return [...document.querySelectorAll('.checks li')].map("
                       "one => one.textContent)") == [
        "holds the phone joins", "fails the page is told"]


@pytest.mark.parametrize("name, texts", [
    ("client-leaves",
     ["Bring the device nearer to the router, and wait until it says that it is done."]),
    ("hidden", ["Show the network (hidden '0'), then press again."]),
    ("wrong-pin", ["Compare the PIN with the one that the device shows or has on its label, and "
                   "enter it again."]),
    ("nobody-comes", ["Press the router's button, then within two minutes that of the device. "
                      "Bring the device nearer, and see that it speaks WPS."])])
def test_what_to_do_next_is_said_once(browser, name, texts):
    browser.show(sample_page(name))
    assert browser.run("return [...document.querySelectorAll('.next p')].map("
                       "one => one.textContent)") == texts


def test_several_inputs_are_told_apart_by_their_names_not_by_their_paths(browser):
    logs = [readers.read(str(DATA / "recordings" / name)) for name in (
        "hidden.jsonl", "push-button.jsonl")]
    browser.show(page.render(logs, "two"))
    assert browser.run("return [...document.querySelectorAll('.contents b')].map("
                       "one => one.textContent)") == [
        "Push-button attempt, hidden.jsonl", "Push-button attempt, push-button.jsonl"]


def test_of_very_many_attempts_the_last_are_shown(browser, monkeypatch):
    log = log_of([PRESS, (1.0, "hostapd", "wlan1: WPS-TIMEOUT", "2.4 GHz")])
    found = [attempt_of(log, headline="It is number %d." % number) for number in range(1, 304)]
    browser.show(rendered(monkeypatch, log, *found))
    told = browser.run("return [...document.querySelectorAll('.contents a')].map("
                       "one => one.innerText.replace(/\\s+/g, ' '))")
    assert len(told) == 200
    assert told[0].endswith("Attempt 104: push-button attempt It is number 104.")
    assert told[-1].endswith("Attempt 303: push-button attempt It is number 303.")
    assert browser.run("return document.querySelector('.cut').textContent") == (
        "103 earlier attempts are left out of this page; the input holds them.")
    assert browser.run(looks.STUMBLES) == [] and browser.messages() == []


def test_a_run_whose_description_has_other_types_makes_a_page(browser, tmp_path):
    (tmp_path / "events.log").write_text("1.0 bus %s\n" % PRESSED, encoding="utf-8")
    (tmp_path / "run.json").write_text(
        '{"version":1,"names":[1],"scenario":[1],"zero_s":"x","checks":[1,[2],[1,2,3]],'
        '"files":{"/tmp/one":5,"/tmp/two":{"mode":[],"keys":5,"values":[1]}}}', encoding="utf-8")
    browser.show(page.render([readers.read(str(tmp_path))], "made"))
    assert browser.run("return [...document.querySelectorAll('main > .written tbody tr')].map("
                       "one => [...one.cells].map(cell => cell.textContent))") == [
        ["/tmp/two", "[]", ""]]


def test_several_attempts_have_a_list_at_the_top(browser):
    browser.show(sample_page("hostapd-dies"))
    links = browser.driver.find_elements(By.CSS_SELECTOR, ".contents a")
    assert [link.text.split("\n")[0] for link in links] == [
        "Attempt 1: push-button attempt", "Attempt 2: push-button attempt"]
    links[1].click()
    top = browser.run("return document.querySelector('[id$=attempt2]').getBoundingClientRect().top")
    assert abs(top) < 5


@pytest.mark.parametrize("scheme", ["light", "dark"])
def test_a_picture_alone_has_its_own_background(browser, scheme):
    from pages import DATA
    from report import readers
    log = readers.read(str(DATA / "runs/push-button"))
    text = page.render_svg(log, attempts.attempts(log)[0], "push-button")
    browser.show(text, suffix=".svg", scheme=scheme)
    assert browser.messages() == []
    assert browser.run("return getComputedStyle(document.querySelector('.sheet')).fill") == {
        "light": "rgb(255, 255, 255)", "dark": "rgb(18, 22, 27)"}[scheme]
    assert browser.run("""
        const all = document.documentElement.getBoundingClientRect();
        return [...document.querySelectorAll('text')].filter(one => {
          const box = one.getBoundingClientRect();
          return box.left < all.left || box.right > all.right || box.bottom > all.bottom;
        }).map(one => one.textContent)""") == []
    assert browser.run("return document.querySelectorAll('.mark').length") == 25
