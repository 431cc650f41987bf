#!/usr/bin/env python3
"""Takes the pictures of the documentation: pictures.py PAGE_SERVER FOLDER"""
import os
import sys

from browser import Browser, PageServer

# Name, source, address, width, height (none: the whole page), colours, script before the picture is taken (None: the
# browser runs no script).
OPEN_READ_OUT = """const probe = document.querySelector(".plot.wide .probe");
const box = probe.getBoundingClientRect();
probe.dispatchEvent(new PointerEvent("pointermove", { clientX: box.left + (box.width * 11.3) / 24 }));"""
PICTURES = [
    ("overview-light", "sample", "/?lang=en", 1160, 830, "light", ""),
    ("overview-dark-ja", "sample", "/?lang=ja", 1160, 830, "dark", ""),
    ("company-en", "sample", "/company/tokyo?lang=en", 1160, 1000, "light", OPEN_READ_OUT),
    ("company-ja", "sample", "/company/kansai?lang=ja", 1160, 1000, "dark", OPEN_READ_OUT),
    ("narrow", "odd", "/company/tohoku?lang=en", 360, 1000, "light", ""),
    ("without-script", "sample", "/company/kyushu?lang=en", 760, 1300, "light", None),
]


def main(program, folder):
    browser = Browser()
    try:
        for name, source, address, width, height, scheme, script in PICTURES:
            server = PageServer(program, source)
            browser.set_window(width, scheme)
            browser.allow_script(script is not None)
            browser.open(server.url + address)
            if script is not None:
                browser.run(script)
            with open(os.path.join(folder, name + ".png"), "wb") as file:
                file.write(browser.picture(width, height))
            server.close()
    finally:
        browser.close()


main(*sys.argv[1:])
