#!/usr/bin/env python3
"""Feeds a header to Doxygen with the library's plain // comments read as documentation.

The headers keep ordinary // comments: the opening block says what the header is for and
the lines above a declaration are its contract. Doxygen reads only /// comments, so this
filter rewrites them on the way in (indented example code stays verbatim): the opening block becomes the file's description and
every other whole-line // comment a /// one. The \file line is the only one added, so a
warning's line number is one past the header's own.
"""
import os
import re
import sys

WHOLE_LINE = re.compile(r"^(\s*)//(?!/)(.*)$")


def rewrite(path, text):
    lines = text.split("\n")
    out = []
    opening = True
    for number, line in enumerate(lines):
        match = WHOLE_LINE.match(line)
        if opening and not match:
            opening = False
        if match:
            body = match.group(2)
            # Example code is indented by three or more blanks after the slashes; Markdown
            # needs four to keep it verbatim.
            if body.startswith("   "):
                body = "  " + body
            if opening and number == 0:
                body = " \\file " + os.path.basename(path) + "\n///" + body
            line = match.group(1) + "///" + body
        out.append(line)
    return "\n".join(out)


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as f:
        sys.stdout.write(rewrite(sys.argv[1], f.read()))
