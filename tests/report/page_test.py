#!/usr/bin/env python3
"""Opens pages of sample documents in a headless Chromium and checks what is really shown.

page_test.py CORVANE SAMPLES SCRIPTS

Exit status 77 where no Chromium is installed.
"""

import base64
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

CORVANE, SAMPLES, SCRIPTS = (pathlib.Path(word).resolve() for word in sys.argv[1:4])
sys.path.insert(0, str(SCRIPTS))
import headless  # noqa: E402

NOT_INSTALLED = 77
WIDE = 1280
NARROW = 400


def luminance(colour):
    """Of a colour as the browser computes it, "rgb(1, 2, 3)", from 0 to 1."""
    parts = [int(number) / 255 for number in re.findall(r"\d+", colour)[:3]]
    linear = [part / 12.92 if part <= 0.04045 else ((part + 0.055) / 1.055) ** 2.4 for part in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    darker, lighter = sorted((luminance(one), luminance(other)))
    return (lighter + 0.05) / (darker + 0.05)


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.browser = headless.Browser(headless.find_browser()).__enter__()
        cls.folder = tempfile.TemporaryDirectory()

    @classmethod
    def tearDownClass(cls):
        cls.browser.__exit__()
        cls.folder.cleanup()

    def open(self, sample, width=WIDE, scheme="light"):
        """The page of a sample; whatever it complains about or asks for by the end of the test fails the test."""
        file = pathlib.Path(self.folder.name) / (pathlib.Path(sample).stem + ".html")
        made = subprocess.run([CORVANE, "report", SAMPLES / sample, "--output", file], capture_output=True, text=True,
                              timeout=60, check=False)
        self.assertEqual(made.returncode, 0, made.stderr)
        page = headless.Page(self.browser, file, width, scheme)
        self.addCleanup(page.close)
        self.addCleanup(self.check_quiet, page)
        return page

    def check_quiet(self, page):
        page.settle()
        self.assertEqual(page.complaints(), [])
        self.assertEqual(page.requests(), [page.url])

    def check_fits(self, page):
        self.assertLessEqual(page.ask("document.documentElement.scrollWidth"),
                             page.ask("document.documentElement.clientWidth"))

    def test_a_finding_with_its_explanation(self):
        page = self.open("explained.json")
        self.assertIn("Data failure, 1 finding", page.texts("#verdict h1")[0])
        self.assertEqual(page.texts(".finding h2"), ["Finding 1: old data at LBA 148 (0x94) of sim0"])
        self.assertEqual(page.count(".sentences p"), 3)
        self.assertIn("holds what command 75 wrote", page.texts(".sentences p")[0])
        self.assertEqual(page.texts(".finding .command-line code"), ["corvane replay explained.json"])
        self.assertEqual(page.texts(".legal li"), ["what command 121 wrote"])
        self.assertEqual(page.texts(".timeline-figure summary"), ["The 21 commands as a table"])

    def test_the_commands_of_a_finding(self):
        page = self.open("explained.json")
        self.assertEqual(page.count(".timeline .bar"), 21)
        self.assertEqual(page.count(".timeline .bar.failing"), 1)
        self.assertEqual(page.count(".timeline .bar.marked"), 3)
        self.assertEqual(page.count(".timeline .bar.failed"), 0)
        self.assertEqual(page.count(".timeline .block-line"), 1)
        self.assertEqual(page.texts(".block-label"), ["148"])
        self.assertEqual(sorted(page.texts(".callout")),
                         ["read 268: met it", "write 121: should be there", "write 75: found on the block"])
        self.assertEqual(page.count(".timeline-figure tbody tr"), 21)
        self.assertEqual(page.count(".timeline-figure tr.marked"), 3)
        self.assertIn("read", page.ask("document.querySelector('.bar.failing').getAttribute('aria-label')"))
        boxes = page.ask("[...document.querySelectorAll('.timeline .bar .shape')].map(one => one.getBBox())"
                         ".map(box => [box.x, box.y, box.width, box.height])")
        self.assertTrue(all(width >= 3 and height >= 3 for _, _, width, height in boxes), boxes)
        band = page.ask("(() => { const box = document.querySelector('.block-line').getBBox();"
                        " return [box.y, box.y + box.height]; })()")
        read = page.ask("(() => { const box = document.querySelector('.bar.failing .shape').getBBox();"
                        " return [box.y, box.y + box.height]; })()")
        self.assertTrue(read[0] <= band[0] + 0.5 and band[1] <= read[1] + 0.5, (read, band))

    def test_the_timeline_to_scale(self):
        page = self.open("explained.json")
        positions = "[...document.querySelectorAll('.timeline .bar .shape')].map(one => one.getAttribute('x'))"
        before = page.ask(positions)
        page.ask("document.querySelectorAll('.choice button')[1].click()")
        after = page.ask(positions)
        self.assertEqual(len(after), 21)
        self.assertNotEqual(before, after)
        self.assertEqual(page.ask("document.querySelector('.choice [aria-pressed=true]').textContent"), "to scale")

    def test_the_tip_of_a_command(self):
        page = self.open("explained.json")
        self.assertTrue(page.ask("document.getElementById('tip').hidden"))
        page.ask("document.querySelector('.bar.failing').dispatchEvent(new PointerEvent('pointerenter'))")
        self.assertFalse(page.ask("document.getElementById('tip').hidden"))
        self.assertIn("met it", page.texts("#tip")[0])
        self.assertIn("268", page.texts("#tip")[0])
        page.ask("document.querySelector('.bar.failing').dispatchEvent(new PointerEvent('pointerleave'))")
        self.assertTrue(page.ask("document.getElementById('tip').hidden"))

    def test_the_bytes_of_a_finding(self):
        page = self.open("explained.json")
        self.assertEqual(page.texts(".differing-count"), ["499 of 512 bytes differ, the first at byte 1"])
        self.assertEqual(page.count(".byte.differs"), 2 * 499)
        self.assertEqual(page.count(".byte"), 2 * 512)
        self.assertEqual(page.texts(".names small"), ["bucket", "LBA", "n", "command id"] * 2)
        self.assertEqual(page.count(".stamps tr.unequal"), 2)
        self.assertEqual(page.count(".history tbody tr"), 2)
        self.assertEqual(page.count(".neighbours .neighbour"), 25)
        self.assertEqual(page.texts(".neighbour.self .glyph"), ["o"])

    def test_equal_rows_are_folded(self):
        page = self.open("several-drives.json")
        self.assertEqual(page.texts("#finding-1 .differing-count"), ["1 of 512 bytes differ, the first at byte 100"])
        self.assertEqual(page.count("#finding-1 .byte.differs"), 2)
        self.assertEqual(page.count("#finding-1 .fold"), 2)
        page.ask("document.querySelector('#finding-1 .more').click()")
        self.assertEqual(page.count("#finding-1 .byte"), 2 * 512)
        self.assertEqual(page.count("#finding-1 .fold"), 0)

    def test_a_finding_from_the_files_beside_the_result(self):
        page = self.open("lost-write/result.json")
        self.assertEqual(page.count(".bar.failing"), 1)
        self.assertIn("read 268: met it", page.texts(".callout"))
        self.assertIn("write 75: found on the block", page.texts(".callout"))
        self.assertIn("write 121: should be there", page.texts(".callout"))
        self.assertGreaterEqual(page.count(".timeline .bar"), 20)
        self.assertEqual(page.count(".byte.differs"), 2 * 499)
        self.assertEqual(page.count(".history tbody tr"), 2)
        self.assertEqual(page.texts(".injections td code"), ["lost-write"])

    def test_a_clean_run(self):
        page = self.open("clean.json")
        self.assertIn("Clean: nothing found", page.texts("#verdict h1")[0])
        self.assertEqual(page.count(".finding"), 0)
        self.assertEqual(page.texts(".drive h2"), ["Drive sim0"])
        self.assertEqual(page.count(".coverage tbody tr"), 4)
        self.assertEqual(page.count(".coverage-bar span"), 4)
        self.assertIn("90.00 %", page.texts(".coverage tbody tr")[0])
        self.assertEqual(page.count(".latency table tbody tr"), 2)
        self.assertEqual(page.count(".histogram"), 2)
        self.assertGreater(page.count(".histogram-bar"), 5)
        self.assertEqual(page.texts("#test .command-line code"),
                         ["corvane run --drive sim:128k --commands 900 --seed 3"])

    def test_several_drives_and_kinds(self):
        page = self.open("several-drives.json")
        self.assertEqual(page.count(".finding"), 2)
        self.assertEqual(page.count(".contents a"), 2)
        self.assertEqual(page.texts(".drive h2"), ["Drive sim0", "Drive sim1", "Drive sim2"])
        self.assertEqual(page.texts(".drive-verdict")[2], "DRIVE ERROR: the drive answers no more")
        for kind in ("write", "atomic", "writesame", "trim", "read", "verify", "sync"):
            self.assertGreaterEqual(page.count(f"#finding-2 .timeline .kind-{kind}"), 1, kind)
        self.assertEqual(page.count("#finding-2 .timeline .bar.open"), 1)
        self.assertEqual(page.count("#finding-2 .timeline .bar.failed .cross"), 1)
        self.assertEqual(page.count("#finding-2 .bytes"), 0)
        fills = page.ask("['write', 'atomic', 'writesame', 'trim', 'read', 'verify'].map(kind => getComputedStyle("
                         "document.querySelector(`#finding-2 .timeline .kind-${kind} .shape`)))"
                         ".map(style => style.fill + style.stroke + style.strokeDasharray)")
        self.assertEqual(len(set(fills)), 6, fills)

    def test_documents_with_little_in_them(self):
        page = self.open("missing-keys.json")
        self.assertEqual(page.count(".finding"), 2)
        self.assertEqual(page.count("#finding-1 .timeline"), 0)
        self.assertEqual(page.count("#finding-2 .timeline .bar"), 1)
        page = self.open("unfinished.json")
        self.assertIn("Unfinished", page.texts("#verdict h1")[0])
        self.assertIn("seed 18446744073709551615", page.texts("#verdict p")[0])

    def test_hostile_names_stay_texts(self):
        page = self.open("hostile.json")
        self.assertIsNone(page.ask("window.broken ?? null"))
        self.assertEqual(page.count("img, iframe, object, embed, link:not([rel=icon])"), 0)
        self.assertEqual(page.count("script"), 2)
        self.assertIn("</script><script>window.broken=1</script>\"'><img src=x", page.texts(".finding h2")[0])
        self.assertIn("&amp; \u2028", page.texts(".drive h2")[0])
        self.assertIn("18446744073709551615", page.texts(".stamps")[0])
        self.assertEqual(page.count(".timeline .bar"), 20)
        self.check_fits(page)

    def test_both_colour_schemes(self):
        page = self.open("explained.json", scheme="light")
        colours = "(() => { const at = name => getComputedStyle(document.querySelector(name)); return {" \
                  "paper: at('body').backgroundColor, ink: at('body').color, soft: at('.soft').color," \
                  "alarm: at('#verdict h1').color}; })()"

        def seen():
            now = page.ask(colours)
            self.assertGreaterEqual(contrast(now["paper"], now["ink"]), 7)
            self.assertGreaterEqual(contrast(now["paper"], now["soft"]), 4.5)
            self.assertGreaterEqual(contrast(now["paper"], now["alarm"]), 4.5)
            return now["paper"]

        light = seen()
        page.set_scheme("dark")
        dark = seen()
        self.assertGreater(luminance(light), 0.8)
        self.assertLess(luminance(dark), 0.05)
        for label, paper in (("light", light), ("dark", dark), ("system", dark)):
            page.ask("document.getElementById('theme').click()")
            self.assertEqual(page.texts("#theme"), [f"Colours: {label}"])
            self.assertEqual(seen(), paper)

    def test_it_fits_wide_and_narrow(self):
        for sample in ("explained.json", "several-drives.json", "clean.json", "lost-write/result.json"):
            for width in (WIDE, NARROW):
                with self.subTest(sample=sample, width=width):
                    page = self.open(sample, width)
                    self.check_fits(page)
                    outside = page.ask(
                        "[...document.querySelectorAll('.timeline text, .histogram text')].filter(text => {"
                        " const own = text.getBoundingClientRect();"
                        " const all = text.ownerSVGElement.getBoundingClientRect();"
                        " return own.left < all.left - 1 || own.right > all.right + 1; }).map(text => text.textContent)")
                    self.assertEqual(outside, [])

    def test_the_timeline_follows_the_width(self):
        page = self.open("explained.json", WIDE)
        page.set_width(NARROW)
        page.settle()
        self.assertLess(page.ask("document.querySelector('.timeline').getBoundingClientRect().width"), NARROW)
        self.assertEqual(page.count(".timeline .bar"), 21)

    def test_it_prints(self):
        page = self.open("explained.json", scheme="dark")
        paper = base64.b64decode(page.call("Page.printToPDF", printBackground=True)["data"])
        self.assertTrue(paper.startswith(b"%PDF-"))
        page.call("Emulation.setEmulatedMedia", media="print", features=[])
        self.assertGreater(luminance(page.ask("getComputedStyle(document.body).backgroundColor")), 0.8)
        self.assertEqual(page.ask("getComputedStyle(document.getElementById('theme')).display"), "none")


if __name__ == "__main__":
    if headless.find_browser() is None:
        print("No chromium: nothing tested")
        sys.exit(NOT_INSTALLED)
    unittest.main(argv=sys.argv[:1], verbosity=2)
