#!/usr/bin/env python3
"""Looks for dead links in the rendered pages (files and anchors that do not exist), and for markup that was not rendered.

    check_links.py FOLDER

Links to other sites (with a scheme such as https:) are not followed.
"""
import html.parser
import pathlib
import re
import sys
import urllib.parse


# What Doxygen makes of Markdown, which is visible if it fails: for example at a link whose text goes over two lines, or at
# an apostrophe in a code span (write two backticks there).
MARKUP = re.compile(r"@(code|endcode|section|subsection|ref)\b|</?tt>|^\s*\|.*\||.{0,20}[`\u2018\u2019].{0,20}", re.MULTILINE)

# The same in code.
MARKUP_IN_CODE = re.compile(r"\\ilinebr\b|</t[dr]>")

# Elements whose text is shown as it is.
CODE = ("pre", "code", "script", "style", "div.line")


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links = []
        self.markup = set()
        self.code = []
        self.anchors = set()
        self.feed(path.read_text(encoding="utf-8"))

    def handle_data(self, text):
        for found in (MARKUP_IN_CODE if self.code else MARKUP).finditer(text):
            self.markup.add(found.group().strip())

    def handle_endtag(self, tag):
        if self.code and self.code[-1] == tag:
            self.code.pop()

    def handle_starttag(self, tag, attrs):
        if tag in CODE or f"{tag}.{dict(attrs).get('class')}" in CODE:
            self.code.append(tag)
        for name, value in attrs:
            if name in ("id", "name"):
                self.anchors.add(value)
            elif value and (name in ("href", "src") or (tag, name) == ("object", "data")):
                self.links.append(value)


def main():
    folder = pathlib.Path(sys.argv[1])
    pages = {path.name: Page(path) for path in sorted(folder.glob("*.html"))}
    count = 0
    dead = []
    for name, page in pages.items():
        dead += [f"{name}: not rendered: {markup}" for markup in sorted(page.markup)]
        for link in page.links:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                continue
            count += 1
            target = urllib.parse.unquote(parts.path) or name
            if not (folder / target).is_file():
                dead.append(f"{name}: {link}: no such file")
            elif parts.fragment and target in pages and urllib.parse.unquote(parts.fragment) not in pages[target].anchors:
                dead.append(f"{name}: {link}: no such place on that page")
    if dead or count == 0:
        sys.exit("\n".join(dead) or f"{folder}: no links")
    print(f"{len(pages)} pages, {count} links, none dead")


main()
