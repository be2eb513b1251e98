#!/usr/bin/env python3
"""Looks at reports of "vorn run" in headless Chromium.

Usage: report_browser.py --vorn PROGRAM --home MODULE_TREE [--screenshots DIR]

Ends with 77, which means skipped, where there is no Chromium, or none that starts. With
--screenshots, pictures of the pages are left in DIR for people to look at.
"""
import argparse
import base64
import http.server
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.parse

SKIPPED = 77
arguments = None

JOB = r"""
job: Line 7, first look
modules:
  - {name: make, module: synthetic, shots: 2}
  - {name: filtered, module: bandpass, input: make, corners: [5 Hz, 10 Hz, 60 Hz, 80 Hz]}
  - name: raw
    module: host_gallery
    input: make
    title: "Shots as recorded\nx: channel\nxattr: tracf"
    graph: "Amplitude at 0.4 s\nx: trace\ny: amplitude\nlegend: 3=raw"
    sample: 100
    say: channel 17 is weak
    times: 3
  - name: show
    module: host_gallery
    input: filtered
    title: "Filtered\nmode: wiggle"
    graph: "Amplitude at 0.8 s\ny: amplitude"
    sample: 200
    severity: 1
    say: all is well
    times: 250
  - {name: write, module: segy_out, input: filtered, file: filtered.sgy}
"""

FLAGGED = r"""
job: bad traces
modules:
  - {name: make, module: synthetic, shots: 2, dead: [5], reversed: [20], spiky: [40]}
  - {name: qc, module: trace_qc, input: make}
"""

# Every text tries to run something, to load something, or to look like something else.
HOSTILE = r"""
job: "</title></script><script>document.title='taken'; window.taken=1</script>"
modules:
  - {name: make, module: synthetic, shots: 1, channels: 3}
  - name: show
    module: host_gallery
    input: make
    title: "\"><img src=x onerror=\"window.taken=2\">\nnote: <b>&amp;</b>"
    graph: "\u202egnp.exe\u2066 \u0007\nx: \"' onload='window.taken=3"
    say: "<img src='%(server)s/message' onerror='window.taken=4'>\x1b[31mred\u202etxt"
    severity: 3
  - name: again
    module: host_gallery
    input: make
    title: "&lt;script&gt; &#x202e; javascript:window.taken=5"
    say: "%(long)s"
    repeat: 2
    other: "--><style>body{display:none}</style> ]]> {{}} ${window.taken=6} `"
    more: "<iframe src=%(server)s/frame></iframe><link rel=stylesheet href=%(server)s/style>"
"""
LONG = "x" * 3000

# What a program named "dot" could print instead of the picture of a graph.
FORGED = r"""#!/bin/sh
cat > /dev/null
cat << 'END'
<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink"
  width="300" height="100" onload="window.taken=1; top.taken=1; parent.document.title='taken'">
<script>window.taken=2; top.taken=2; new Image().src='%(server)s/script'</script>
<script xlink:href="%(server)s/script.js"/>
<style>@import url('%(server)s/style'); rect { fill: url('%(server)s/fill'); }</style>
<image href="%(server)s/image" width="10" height="10" onerror="top.taken=3"/>
<use href="%(server)s/use#part"/>
<foreignObject width="100" height="100"><iframe xmlns="http://www.w3.org/1999/xhtml"
  src="%(server)s/frame"/><img xmlns="http://www.w3.org/1999/xhtml" src="x" onerror="top.taken=4"/>
</foreignObject>
<animate attributeName="x" begin="0s" dur="1ms" onbegin="top.taken=5"/>
<rect width="300" height="100" fill="green"/>
</svg>
END
"""


class Browser:
    """Chromium, driven over its debugging pipe: JSON texts, each ended by a zero byte."""

    def __init__(self, program):
        self.directory = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        our_read, its_write = os.pipe()
        its_read, our_write = os.pipe()

        def as_three_and_four():
            os.dup2(os.dup(its_read), 13)
            os.dup2(os.dup(its_write), 14)
            os.dup2(13, 3)
            os.dup2(14, 4)

        self.process = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
             "--no-first-run", "--disable-background-networking", "--remote-debugging-pipe",
             "--user-data-dir=" + self.directory.name, "about:blank"],
            preexec_fn=as_three_and_four, close_fds=False, start_new_session=True,
            env={**os.environ, "HOME": self.directory.name},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(its_read)
        os.close(its_write)
        self.input = os.fdopen(our_write, "wb", buffering=0)
        self.output = os.fdopen(our_read, "rb", buffering=0)
        self.rest = b""
        self.last = 0
        self.session = None
        self.events = []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target,
                                 flatten=True)["sessionId"]
        for domain in ("Page", "Network", "Log", "Runtime"):
            self.call(domain + ".enable")

    def close(self):
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()
        self.input.close()
        self.output.close()
        self.directory.cleanup()

    def receive(self):
        while b"\0" not in self.rest:
            block = os.read(self.output.fileno(), 1 << 20)
            if not block:
                raise RuntimeError("the browser has ended")
            self.rest += block
        text, self.rest = self.rest.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.last += 1
        request = {"id": self.last, "method": method, "params": parameters}
        if self.session:
            request["sessionId"] = self.session
        self.input.write(json.dumps(request).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.last:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
            self.events.append(answer)

    def show(self, path, width=1200, height=900):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height,
                  deviceScaleFactor=1, mobile=False)
        self.events.clear()
        self.call("Page.navigate", url=pathlib.Path(path).resolve().as_uri())
        while not any(event["method"] == "Page.loadEventFired" for event in self.events):
            self.events.append(self.receive())

    def value(self, expression):
        """Of a JavaScript expression, which may be a promise."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True,
                           awaitPromise=True)
        if "exceptionDetails" in result:
            raise RuntimeError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def requests(self):
        return [event["params"]["request"]["url"] for event in self.events
                if event["method"] == "Network.requestWillBeSent"]

    def complaints(self):
        return [event for event in self.events if event["method"] in
                ("Log.entryAdded", "Runtime.exceptionThrown", "Runtime.consoleAPICalled")]

    def mouse(self, kind, x, y, **more):
        self.call("Input.dispatchMouseEvent", type=kind, x=x, y=y, **more)

    def key(self, key, code):
        for kind in ("keyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=key, code=code,
                      windowsVirtualKeyCode=27 if key == "Escape" else 0)

    def screenshot(self, name, whole=True):
        if arguments.screenshots:
            data = self.call("Page.captureScreenshot", captureBeyondViewport=whole)["data"]
            path = pathlib.Path(arguments.screenshots) / name
            path.write_bytes(base64.b64decode(data))


class CountingServer(http.server.ThreadingHTTPServer):
    """Notes who asks for anything."""

    def __init__(self):
        self.asked = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(handler):
                self.asked.append(handler.path)
                handler.send_response(200)
                handler.end_headers()

            def log_message(handler, *_):
                pass

        super().__init__(("127.0.0.1", 0), Handler)
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def url(self):
        return f"http://127.0.0.1:{self.server_port}"


def run(job, directory, name, **environment):
    """Runs the job; the paths of the report and the facts as they stand in the JSON file."""
    path = pathlib.Path(directory) / (name + ".yaml")
    path.write_text(job)
    page = path.with_suffix(".html")
    facts = path.with_suffix(".json")
    done = subprocess.run(
        [arguments.vorn, "run", path, "--report", page, "--json", facts, "--progress", "never"],
        capture_output=True, text=True,
        env={**os.environ, "VORN_HOME": arguments.home, **environment})
    if done.returncode not in (0, 1):
        raise RuntimeError(done.stderr)
    return page, json.loads(facts.read_text())


class ReportTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.server = CountingServer()
        cls.page, cls.facts = run(JOB, cls.directory.name, "line")
        cls.hostile, cls.hostile_facts = run(
            HOSTILE % {"server": cls.server.url(), "long": LONG}, cls.directory.name, "hostile")
        program = pathlib.Path(cls.directory.name) / "bin" / "dot"
        program.parent.mkdir()
        program.write_text(FORGED % {"server": cls.server.url()})
        program.chmod(0o755)
        cls.forged, _ = run(JOB.replace("Line 7, first look", "forged"), cls.directory.name, "forged",
                            PATH=f"{program.parent}:{os.environ['PATH']}")
        cls.flagged, _ = run(FLAGGED, cls.directory.name, "flagged")
        cls.browser = Browser(arguments.browser)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.server.shutdown()
        cls.server.server_close()
        cls.directory.cleanup()

    def text(self, selector):
        return self.browser.value(f"document.querySelector({json.dumps(selector)}).innerText")

    def texts(self, selector):
        return self.browser.value(f"[...document.querySelectorAll({json.dumps(selector)})]"
                                  ".map(one => one.innerText)")

    def image_widths(self, selector="img"):
        # decode() waits until a picture is there, and fails when it never will be.
        return self.browser.value(
            f"Promise.all([...document.querySelectorAll({json.dumps(selector)})]"
            ".map(one => one.decode().then(() => one.naturalWidth, () => 0)))")

    def assert_pictures(self, count):
        widths = self.image_widths("figure img")
        self.assertEqual(len(widths), count)
        self.assertTrue(all(width >= 900 for width in widths), widths)

    # ---- what is on the page ----

    def test_names_the_job_and_how_it_ended(self):
        self.browser.show(self.page)
        self.assertEqual(self.browser.value("document.title"), "Line 7, first look – vorn report")
        self.assertEqual(self.text("h1"), "Line 7, first look")
        self.assertEqual(self.text("header .badge"), "done, with warnings")
        self.assertIn(self.facts["measured"]["started"], self.text("header"))
        self.browser.screenshot("report-1200.png")

    def test_warnings_come_first(self):
        self.browser.show(self.page)
        self.assertEqual(self.browser.value("document.querySelector('main section').id"),
                         "warnings")
        self.assertEqual(self.texts("#warnings details[data-module=raw] .text"),
                         ["channel 17 is weak"] * 3)

    def test_the_table_holds_the_numbers_of_the_run(self):
        self.browser.show(self.page)
        rows = self.browser.value(
            "[...document.querySelectorAll('#modules tbody tr')].map(row => "
            "[...row.cells].map(cell => cell.firstChild ? cell.firstChild.textContent : ''))")
        self.assertEqual([row[:4] for row in rows],
                         [[one["name"], ", ".join(i["module"] for i in one["inputs"]),
                           str(one["traces_in"]) if one["inputs"] else "", str(one["traces_out"])]
                          for one in self.facts["modules"]])
        self.assertEqual([row[3] for row in rows], ["96", "96", "0", "0", "0"])

    def test_every_pad_is_a_picture_that_loads(self):
        self.browser.show(self.page)
        self.assertEqual(self.texts("figcaption h3"),
                         ["Shots as recorded", "Amplitude at 0.4 s", "Filtered",
                          "Amplitude at 0.8 s"])
        self.assert_pictures(4)
        self.assertNotIn("", self.browser.value(
            "[...document.querySelectorAll('figure img')].map(one => one.alt)"))

    # ---- the table of flagged traces ----

    def column(self, number):
        return self.browser.value(
            "[...document.querySelectorAll('.noted tbody tr')].map(row => "
            f"row.cells[{number}].textContent)")

    def test_flagged_traces_are_sorted_by_a_click(self):
        self.browser.show(self.flagged)
        headings = self.texts(".noted thead th")
        self.assertEqual([heading.strip() for heading in headings[:3]], ["trace", "fldr", "tracf"])
        self.assertEqual(self.column(0), ["5", "20", "40", "53", "68", "88"])
        press = "document.querySelector('.noted thead button').click()"
        self.browser.value(press)
        self.assertEqual(self.column(0), ["5", "20", "40", "53", "68", "88"], "as numbers")
        self.browser.value(press)
        self.assertEqual(self.column(0), ["88", "68", "53", "40", "20", "5"])
        self.assertEqual(self.browser.value(
            "document.querySelector('.noted th').getAttribute('aria-sort')"), "descending")
        self.assertFalse(self.browser.complaints())
        self.browser.screenshot("flagged.png")

    def test_cells_without_a_value_stay_at_the_end(self):
        self.browser.show(self.flagged)
        place = [heading.strip() for heading in self.texts(".noted thead th")].index("agreement")
        known = sorted((float(cell) for cell in self.column(place) if cell))
        for direction in (1, -1):
            self.browser.value(f"document.querySelectorAll('.noted thead button')[{place}].click()")
            cells = self.column(place)
            self.assertEqual([float(cell) for cell in cells if cell], known[::direction])
            self.assertEqual(cells[len(known):], [""] * (len(cells) - len(known)))
        self.assertLess(len(known), 6)

    def test_the_table_is_copied_as_csv(self):
        self.browser.show(self.flagged)
        self.browser.value("navigator.clipboard.writeText = async text => { window.copied = text; }")
        self.browser.value("document.querySelector('.noted .caption button').click()")
        lines = self.browser.value("window.copied").splitlines()
        self.assertEqual(len(lines), 7)
        self.assertTrue(lines[0].startswith("trace,"), lines[0])
        self.assertEqual([line.split(",")[0] for line in lines[1:]], ["5", "20", "40", "53", "68", "88"])
        self.assertEqual({line.count(",") for line in lines}, {lines[0].count(",")})
        self.assertEqual(self.text(".noted .caption button"), "Copied")

    def test_many_messages_are_cut_and_counted(self):
        self.browser.show(self.page)
        items = self.browser.value(
            "[...document.querySelectorAll('#messages details[data-module=show]"
            "[data-severity=information] li')].map(one => one.textContent)")
        self.assertEqual(len(items), 201)
        self.assertEqual(items[-1], "and 50 more, which are not shown here")
        self.assertFalse(self.browser.value(
            "document.querySelector('#messages details[data-module=show]').open"))

    def test_header_words_of_the_source(self):
        self.browser.show(self.page)
        words = self.browser.value(
            "Object.fromEntries([...document.querySelectorAll('#data tbody tr')].map(row => "
            "[row.cells[0].innerText, [...row.cells].slice(2).map(cell => cell.innerText)]))")
        self.assertEqual(words["tracf"], ["1", "48", "1", "48", "95"])
        self.assertEqual(words["fldr"], ["1", "2", "1", "2", "1"])
        self.assertEqual(words, {one["word"]: [str(one[key]) for key in
                                               ("minimum", "maximum", "first", "last", "changes")]
                                 for one in self.facts["sources"][0]["words"]})

    def test_files_have_checksums(self):
        self.browser.show(self.page)
        row = self.text("#files tbody tr")
        self.assertIn("filtered.sgy", row)
        self.assertIn("written", row)
        self.assertEqual(len(self.facts["outputs"][0]["sha256"]), 64)
        self.assertIn(self.facts["outputs"][0]["sha256"], row)

    def test_the_job_file_is_complete(self):
        self.browser.show(self.page)
        self.assertEqual(self.browser.value("document.querySelector('#job pre').textContent"),
                         self.facts["job"]["resolved"])

    def test_every_entry_of_the_contents_leads_somewhere(self):
        self.browser.show(self.page)
        self.assertEqual(self.browser.value(
            "[...document.querySelectorAll('nav a')].map(one => "
            "document.querySelector(one.getAttribute('href')) !== null)"), [True] * 10)

    def graph_pixels(self):
        """How many pixels of the job graph's picture have each colour, "red green blue alpha"."""
        return self.browser.value(
            "(async () => { const image = document.querySelector('.flow img');"
            " await image.decode();"
            " const canvas = document.createElement('canvas');"
            " canvas.width = image.naturalWidth; canvas.height = image.naturalHeight;"
            " const context = canvas.getContext('2d'); context.drawImage(image, 0, 0);"
            " const data = context.getImageData(0, 0, canvas.width, canvas.height).data;"
            " const counts = {};"
            " for (let i = 0; i < data.length; i += 4) {"
            "  const colour = [...data.slice(i, i + 4)].join(' ');"
            "  counts[colour] = (counts[colour] || 0) + 1; }"
            " return counts; })()")

    @unittest.skipUnless(shutil.which("dot"), "Graphviz is not installed")
    def test_the_job_graph_is_a_picture_in_the_colours_of_the_page(self):
        box = {"light": "238 243 248 255", "dark": "34 44 54 255"}
        for scheme, colour in box.items():
            with self.subTest(scheme=scheme):
                self.browser.call("Emulation.setEmulatedMedia",
                                  features=[{"name": "prefers-color-scheme", "value": scheme}])
                try:
                    self.browser.show(self.page)
                    pixels = self.graph_pixels()
                finally:
                    self.browser.call("Emulation.setEmulatedMedia", features=[])
                self.assertGreater(pixels.get(colour, 0), 5000)
                self.assertGreater(pixels.get("0 0 0 0", 0), 5000, "the page shows around the boxes")
        self.assertIn("Job graph: 5 modules", self.browser.value(
            "document.querySelector('.flow img').alt"))
        self.assertEqual(self.browser.value("document.querySelectorAll('.flow svg').length"), 0)

    def test_a_job_graph_that_means_harm_runs_and_loads_nothing(self):
        self.browser.show(self.forged)
        self.assertEqual(self.image_widths(".flow img"), [300])
        time.sleep(0.2)  # for what waits for an event
        self.assertEqual(self.browser.value("typeof window.taken"), "undefined")
        self.assertEqual(self.browser.value("document.title"), "forged – vorn report")
        self.assertEqual([one for one in self.browser.requests()
                          if not one.startswith("data:")], [self.forged.resolve().as_uri()])
        self.assertEqual(self.server.asked, [])

    def test_nothing_is_loaded_and_nothing_fails(self):
        for page in (self.page, self.hostile):
            self.browser.show(page)
            self.image_widths()
            self.assertEqual([one for one in self.browser.requests()
                              if not one.startswith("data:")], [page.resolve().as_uri()])
            self.assertEqual(self.browser.complaints(), [])
        self.assertEqual(self.server.asked, [])

    # ---- the pictures enlarged ----

    def scale(self):
        return self.browser.value(
            "new DOMMatrix(getComputedStyle(document.querySelector('.stage img')).transform).a")

    def corner(self):
        return self.browser.value(
            "(m => [m.e, m.f])(new DOMMatrix(getComputedStyle("
            "document.querySelector('.stage img')).transform))")

    def enlarge(self):
        self.browser.show(self.page)
        self.browser.value("document.querySelector('#picture-1 button').click()")
        self.assertTrue(self.browser.value("document.getElementById('viewer').open"))
        self.image_widths(".stage img")

    def press(self, action):
        self.browser.value(f"document.querySelector('#viewer [data-action={action}]').click()")

    def test_an_enlarged_picture_fits_the_window(self):
        self.enlarge()
        room = self.browser.value("(s => [s.clientWidth, s.clientHeight])"
                                  "(document.querySelector('.stage'))")
        self.assertAlmostEqual(self.scale(), min(room[0] / 900, room[1] / 600), places=3)
        self.assertEqual(self.text("#viewer h2"), "Shots as recorded")
        self.browser.screenshot("report-enlarged.png", whole=False)

    def test_buttons_zoom(self):
        self.enlarge()
        fitting = self.scale()
        self.press("in")
        self.assertAlmostEqual(self.scale(), fitting * 1.5, places=3)
        self.press("out")
        self.assertAlmostEqual(self.scale(), fitting, places=3)
        self.press("in")
        self.press("fit")
        self.assertAlmostEqual(self.scale(), fitting, places=3)

    def test_the_wheel_zooms_where_the_pointer_is(self):
        self.enlarge()
        top = self.browser.value("document.querySelector('.stage').getBoundingClientRect().top")
        x, y = 700, 400
        before, (left, up) = self.scale(), self.corner()
        point = [(x - left) / before, (y - top - up) / before]
        self.browser.mouse("mouseWheel", x, y, deltaX=0, deltaY=-600)
        after, (left, up) = self.scale(), self.corner()
        self.assertGreater(after, before * 1.5)
        self.assertAlmostEqual((x - left) / after, point[0], delta=0.5)
        self.assertAlmostEqual((y - top - up) / after, point[1], delta=0.5)

    def test_dragging_moves_the_picture(self):
        self.enlarge()
        for _ in range(3):
            self.press("in")
        left, up = self.corner()
        self.browser.mouse("mousePressed", 600, 450, button="left", clickCount=1)
        self.browser.mouse("mouseMoved", 650, 420, button="left", buttons=1)
        self.browser.mouse("mouseReleased", 650, 420, button="left", clickCount=1)
        self.assertEqual(self.corner(), [left + 50, up - 30])
        self.browser.mouse("mouseMoved", 700, 500)
        self.assertEqual(self.corner(), [left + 50, up - 30], "the button is up")

    def test_escape_closes_it(self):
        self.enlarge()
        self.browser.key("Escape", "Escape")
        self.assertFalse(self.browser.value("document.getElementById('viewer').open"))

    def test_pictures_are_there_without_scripts(self):
        self.browser.call("Emulation.setScriptExecutionDisabled", value=True)
        try:
            self.browser.show(self.page)
            self.assertFalse(self.browser.value(
                "document.documentElement.classList.contains('scripted')"))
            self.assert_pictures(4)
            self.assertEqual(self.browser.value(
                "[...document.querySelectorAll('figure button')].filter(one => !one.hidden).length"
            ), 0)
        finally:
            self.browser.call("Emulation.setScriptExecutionDisabled", value=False)

    # ---- texts that mean harm ----

    def test_hostile_texts_run_nothing(self):
        self.browser.show(self.hostile)
        time.sleep(0.2)  # for what waits for an event
        self.assertEqual(
            self.browser.value("document.title"),
            "</title></script><script>document.title='taken'; window.taken=1</script>"
            " – vorn report")
        self.assertEqual(self.browser.value("typeof window.taken"), "undefined")
        self.assertEqual(self.browser.value(
            "['script', 'style', 'iframe', 'link[rel=stylesheet]', 'figure img'].map(one => "
            "document.querySelectorAll(one).length)"), [1, 1, 0, 0, 4])
        self.assertEqual(self.browser.value(
            "[...document.querySelectorAll('*')].flatMap(one => [...one.attributes])"
            ".filter(one => one.name.startsWith('on')).length"), 0)
        self.browser.screenshot("hostile-1200.png")

    def test_hostile_texts_are_shown(self):
        self.browser.show(self.hostile)
        self.assertEqual(self.text("h1"), self.hostile_facts["job"]["name"])
        self.assertEqual(self.text("header .badge"), "ended with errors")
        self.assertEqual(self.text("#warnings details[data-module=show] .text"),
                         f"<img src='{self.server.url()}/message' onerror='window.taken=4'>"
                         "\\x1b[31mred\\u202etxt")
        self.assertEqual(self.texts("figcaption h3"),
                         ["\"><img src=x onerror=\"window.taken=2\">",
                          "\\u202egnp.exe\\u2066 \\x07",
                          "&lt;script&gt; &#x202e; javascript:window.taken=5", "first samples"])
        self.assert_pictures(4)

    def test_directions_of_writing_are_not_changed(self):
        self.browser.show(self.hostile)
        self.assertFalse(self.browser.value(
            r"/[\u0000-\u0008\u000b-\u001f\u007f-\u009f\u200e\u200f\u202a-\u202e\u2066-\u2069]/"
            ".test(document.documentElement.textContent)"))

    def test_very_long_texts_are_cut_and_keep_the_page_narrow(self):
        self.browser.show(self.hostile, width=1200)
        shown = self.text("#warnings details[data-module=again] .text")
        self.assertEqual(shown, (2 * LONG)[:4000] + " … (2000 more bytes)")
        self.assertEqual(self.browser.value("document.documentElement.scrollWidth"), 1200)

    def test_the_page_is_as_wide_as_a_narrow_window(self):
        for page, name in ((self.page, "report-400.png"), (self.hostile, "hostile-400.png")):
            self.browser.show(page, width=400)
            self.assertEqual(self.browser.value("document.documentElement.scrollWidth"), 400)
            self.browser.screenshot(name)

    def test_the_policy_refuses_what_the_page_does_not_hold(self):
        self.browser.show(self.page)
        refused = self.browser.value(
            "new Promise(resolve => {"
            "  addEventListener('securitypolicyviolation', event => resolve(event.blockedURI));"
            f" new Image().src = '{self.server.url()}/picture';"
            "  setTimeout(() => resolve('nothing'), 3000);"
            "})")
        self.assertEqual(refused, self.server.url() + "/picture")
        self.assertTrue(self.browser.value(
            f"fetch('{self.server.url()}/data').then(() => false, () => true)"))
        self.assertEqual(self.browser.value(
            "(script => { script.textContent = 'window.added = 1'; document.body.append(script);"
            " return typeof window.added; })(document.createElement('script'))"), "undefined")
        self.assertEqual(self.server.asked, [])

    # ---- looks ----

    def test_dark_where_the_reader_wants_it(self):
        colour = "getComputedStyle(document.body).backgroundColor"
        self.browser.show(self.page)
        light = self.browser.value(colour)
        self.browser.call("Emulation.setEmulatedMedia",
                          features=[{"name": "prefers-color-scheme", "value": "dark"}])
        try:
            self.browser.show(self.page)
            self.assertNotEqual(self.browser.value(colour), light)
            self.browser.screenshot("report-dark.png")
        finally:
            self.browser.call("Emulation.setEmulatedMedia", features=[])

    def test_print_shows_what_is_folded(self):
        self.browser.show(self.page)
        self.browser.value("dispatchEvent(new Event('beforeprint'))")
        self.assertEqual(self.browser.value(
            "document.querySelectorAll('details:not([open])').length"), 0)
        self.browser.value("dispatchEvent(new Event('afterprint'))")
        self.assertGreater(self.browser.value(
            "document.querySelectorAll('details:not([open])').length"), 0)
        if arguments.screenshots:
            pdf = self.browser.call("Page.printToPDF")["data"]
            (pathlib.Path(arguments.screenshots) / "report.pdf").write_bytes(
                base64.b64decode(pdf))


def why_it_does_not_start(program):
    """What keeps the browser from starting on this machine; None when nothing does."""
    def give_up(*_):
        raise TimeoutError("it does not answer")

    former = signal.signal(signal.SIGALRM, give_up)
    signal.alarm(60)
    try:
        Browser(program).close()
        return None
    except (OSError, RuntimeError) as error:
        return error
    finally:
        signal.alarm(0)
        signal.signal(signal.SIGALRM, former)


class IndexTest(unittest.TestCase):
    """The index page of "vorn run --each"."""

    HOSTILE_NAME = "it's <img src=x onerror=\"window.taken=1\"> #7?%41"

    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        work = pathlib.Path(cls.directory.name)
        (work / "data").mkdir()
        for name, channels, dead in (("line_2", 6, "[1]"), ("line_10", 5, "[]"),
                                     (cls.HOSTILE_NAME, 7, "[1, 2]")):
            run("modules:\n"
                f"  - {{name: make, module: synthetic, shots: 1, channels: {channels}, dead: {dead}}}\n"
                "  - {name: write, module: segy_out, input: make, file: made.sgy}\n", work, "make")
            (work / "made.sgy").rename(work / "data" / (name + ".sgy"))
        (work / "data/broken.sgy").write_text("no traces")
        (work / "job.yaml").write_text(
            "job: all lines\nmodules:\n  - {name: read, module: segy_in}\n"
            "  - {name: check, module: trace_qc, input: read}\n"
            "  - {name: look, module: section, input: check}\n")
        done = subprocess.run([arguments.vorn, "run", "job.yaml", "--each", "data/*.sgy"], cwd=work,
                              capture_output=True, text=True,
                              env={**os.environ, "VORN_HOME": arguments.home})
        if done.returncode != 1:
            raise RuntimeError(done.stderr)
        cls.page = work / "job-files/index.html"
        cls.browser = Browser(arguments.browser)

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.directory.cleanup()

    def setUp(self):
        self.browser.show(self.page, width=1500)

    def names(self):
        """Of the files in the table, those that are shown, from top to bottom."""
        return self.browser.value("[...document.querySelectorAll('#files tbody tr')]"
                                  ".filter(row => !row.hidden)"
                                  ".map(row => row.cells[0].firstChild.textContent)")

    def click(self, selector):
        self.browser.value(f"document.querySelector({json.dumps(selector)}).click()")

    def test_failed_files_come_first_then_those_with_most_flags(self):
        self.assertEqual(self.names(), ["broken.sgy", self.HOSTILE_NAME + ".sgy", "line_2.sgy",
                                        "line_10.sgy"])
        self.assertEqual(self.browser.value("document.querySelector('header .badge').innerText"),
                         "1 failed")
        self.browser.screenshot("index-1500.png")

    def test_pictures_and_links_lead_to_the_folders(self):
        self.browser.value("document.querySelectorAll('img').forEach(one => one.loading = 'eager')")
        widths = self.browser.value("Promise.all([...document.querySelectorAll('img')].map(one => "
                                    "one.decode().then(() => one.naturalWidth, () => 0)))")
        self.assertGreaterEqual(len(widths), 6)
        self.assertTrue(all(width >= 900 for width in widths), widths)
        links = self.browser.value("[...document.querySelectorAll('#files a')].map(one => one.href)")
        self.assertGreaterEqual(len(links), 12)
        for link in links:
            path = pathlib.Path(urllib.parse.unquote(urllib.parse.urlparse(link).path))
            self.assertTrue(path.is_file(), link)

    def test_nothing_else_is_loaded_and_nothing_foreign_runs(self):
        folder = self.page.resolve().parent.as_uri() + "/"
        for request in self.browser.requests():
            self.assertTrue(request.startswith(("data:", folder)), request)
        self.assertEqual(self.browser.complaints(), [])
        self.assertIsNone(self.browser.value("window.taken"))

    def test_a_click_on_a_heading_sorts(self):
        self.click("#files th:nth-child(3) button")
        self.assertEqual(self.names()[0], self.HOSTILE_NAME + ".sgy")
        self.assertEqual(self.names()[-1], "broken.sgy")
        self.click("#files th:nth-child(3) button")
        self.assertEqual(self.names()[0], "broken.sgy")
        self.click("#files th:nth-child(1) button")
        self.assertEqual(self.names()[2:], ["line_2.sgy", "line_10.sgy"])
        self.assertEqual(self.browser.value(
            "document.querySelector('#files th:nth-child(1)').getAttribute('aria-sort')"), "ascending")

    def test_files_are_chosen_by_name_and_verdict(self):
        self.click("#choices button[data-show=failed]")
        self.assertEqual(self.names(), ["broken.sgy"])
        self.click("#choices button[data-show=flagged]")
        self.assertEqual(self.names(), [self.HOSTILE_NAME + ".sgy", "line_2.sgy"])
        self.click("#choices button[data-show=all]")
        self.browser.value("(() => { const field = document.querySelector('#choices input');"
                           "field.value = 'LINE_1'; field.dispatchEvent(new Event('input')); })()")
        self.assertEqual(self.names(), ["line_10.sgy"])
        self.assertEqual(self.browser.value("document.querySelector('#choices output').innerText"),
                         "1 of 4 files")


def main():
    global arguments
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--vorn", required=True)
    parser.add_argument("--home", required=True)
    parser.add_argument("--browser", default=shutil.which("chromium") or "")
    parser.add_argument("--screenshots")
    arguments, rest = parser.parse_known_args()
    if not arguments.browser:
        print("skipped: there is no chromium; install Debian's package chromium")
        return SKIPPED
    reason = why_it_does_not_start(arguments.browser)
    if reason is not None:
        print(f"skipped: {arguments.browser} does not start on this machine: {reason}")
        return SKIPPED
    program = unittest.main(argv=sys.argv[:1] + rest, exit=False, verbosity=2)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
