#!/usr/bin/env python3
"""Takes a picture of a page: page_screenshot.py PAGE.html PICTURE.png [--width N] [--height N] [--dark]"""

import argparse
import base64
import pathlib
import sys

import headless


def main():
    parser = argparse.ArgumentParser(description="Takes a picture of a page with headless Chromium.")
    parser.add_argument("page")
    parser.add_argument("picture")
    parser.add_argument("--width", type=int, default=1280)
    parser.add_argument("--height", type=int, default=0, help="of the picture; 0: the whole page")
    parser.add_argument("--dark", action="store_true")
    wanted = parser.parse_args()
    program = headless.find_browser()
    if program is None:
        sys.exit("page_screenshot: chromium is not installed: apt-get install chromium")
    with headless.Browser(program) as browser:
        page = headless.Page(browser, wanted.page, wanted.width, "dark" if wanted.dark else "light")
        picture = page.screenshot(wanted.width, wanted.height or page.height())
    pathlib.Path(wanted.picture).write_bytes(base64.b64decode(picture))


if __name__ == "__main__":
    main()
