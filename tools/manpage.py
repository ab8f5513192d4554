#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Writes the manual page warpforge(1) from the README, so that the cards, outputs, exit status,
signal file and environment are told in one place.

    manpage.py README.md warpforge.1 VERSION

The README's sections "What it does" (its first paragraph), "The control deck", "Outputs",
"Exit status", "The signal file" and "Environment" become sections of the page; markdown
tables become tagged paragraphs, lists become indented paragraphs, fenced blocks stay as they
are. Only the standard library is used.
"""
import re
import sys

SECTIONS = [
    ("What it does", "DESCRIPTION", 1),
    ("The control deck", "CONTROL DECK", None),
    ("Outputs", "OUTPUTS", None),
    ("Exit status", "EXIT STATUS", None),
    ("The signal file", "SIGNAL FILE", None),
    ("Environment", "ENVIRONMENT", None),
]


def sections(text):
    """The README's level-2 sections by title, each a list of lines."""
    out, title = {}, None
    for line in text.splitlines():
        m = re.match(r"^## (.*)$", line)
        if m:
            title = m.group(1).strip()
            out[title] = []
        elif line.startswith("# "):
            title = None
        elif title is not None:
            out[title].append(line)
    return out


def inline(s):
    """Markdown inline text as roff: code spans in bold, *emphasis* in italics elsewhere."""
    out = []
    for k, part in enumerate(s.split("`")):
        part = part.replace("\\", "\\e").replace("-", "\\-")
        if k % 2:
            out.append("\\fB" + part + "\\fR")
        else:
            out.append(re.sub(r"\*([^*\s][^*]*)\*", lambda m: "\\fI" + m.group(1) + "\\fR", part))
    return "".join(out)


def line(s):
    """A roff text line: one that would start with a dot or a quote is guarded."""
    return "\\&" + s if s[:1] in (".", "'") else s


def body(lines, paragraphs=None):
    out, para, count, i = [], [], 0, 0

    def flush():
        nonlocal para, count
        if para:
            out.append(".PP")
            out.append(line(inline(" ".join(para))))
            para = []
            count += 1

    while i < len(lines):
        l = lines[i]
        if paragraphs is not None and count >= paragraphs:
            break
        if l.startswith("```"):
            flush()
            out.append(".PP")
            out.append(".RS 4")
            out.append(".nf")
            i += 1
            while i < len(lines) and not lines[i].startswith("```"):
                out.append(line(lines[i].replace("\\", "\\e")))
                i += 1
            out.append(".fi")
            out.append(".RE")
        elif l.startswith("|"):
            flush()
            rows = []
            while i < len(lines) and lines[i].startswith("|"):
                cells = [c.strip() for c in lines[i].strip().strip("|").split("|")]
                if not all(re.fullmatch(r":?-+:?", c) for c in cells):
                    rows.append(cells)
                i += 1
            i -= 1
            for cells in rows[1:]:  # the first row names the columns
                out.append(".TP")
                out.append(line(inline(cells[0] + (" (" + cells[1] + ")" if len(cells) > 2 else ""))))
                out.append(line(inline(cells[-1])))
        elif l.startswith("- "):
            flush()
            item = [l[2:]]
            while i + 1 < len(lines) and lines[i + 1].startswith("  ") and lines[i + 1].strip():
                i += 1
                item.append(lines[i].strip())
            out.append(".IP \\(bu 2")
            out.append(line(inline(" ".join(item))))
        elif not l.strip():
            flush()
        else:
            para.append(l.strip())
        i += 1
    flush()
    return out


def main():
    src, dst, version = sys.argv[1], sys.argv[2], sys.argv[3]
    with open(src, encoding="utf-8") as f:
        sec = sections(f.read())
    page = [
        '.\\" Written by tools/manpage.py from the README; edit the README, not this file.',
        '.TH WARPFORGE 1 "" "warpforge ' + version + '" "User Commands"',
        ".SH NAME",
        "warpforge \\- pre-deform additive-manufacturing surfaces against a simulated distortion",
        ".SH SYNOPSIS",
        ".B warpforge",
        ".I control-deck",
        ".br",
        ".B warpforge",
        "\\fB\\-\\-help\\fR | \\fB\\-\\-version\\fR",
    ]
    for title, head, paragraphs in SECTIONS:
        if title not in sec:
            sys.exit("manpage.py: the README has no section '" + title + "'")
        page.append(".SH " + head)
        page.extend(body(sec[title], paragraphs))
    page += [
        ".SH FILES",
        ".TP",
        ".I simsolver.arb",
        "The message catalogue, looked up beside the executable (installed together in",
        ".IR lib/warpforge/ ).",
        ".SH COPYING",
        "GPL-3.0-or-later.",
    ]
    with open(dst, "w", encoding="utf-8") as f:
        f.write("\n".join(page) + "\n")


if __name__ == "__main__":
    main()
