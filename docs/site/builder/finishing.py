"""What is done to the pages that Doxygen has made: the contents beside them, and less around their text."""

import html
import re

from . import python
from .headers import ROOT
from .pages import PAGES, header_page


def chapters():
    """The parts of the contents, each with its pages: file and title."""
    parts = []
    for line in (PAGES / "contents.txt").read_text().splitlines():
        if line.startswith(" "):
            parts[-1][1].append(tuple(line.split(None, 1)))
        else:
            parts.append((line, []))
    return parts


def navigation(current):
    lines = ['<nav class="contents" aria-label="Contents">', '<a class="brand" href="index.html">kxmd</a>',
             '<input id="search" type="search" placeholder="Search" aria-label="Search" hidden>',
             '<ul id="found" aria-live="polite" hidden></ul>']
    for part, pages in chapters():
        lines += [f"<h2>{html.escape(part)}</h2>", "<ul>"]
        for file, title in pages:
            mark = ' aria-current="page"' if file == current else ""
            lines.append(f'<li><a href="{file}"{mark}>{html.escape(title)}</a></li>')
        lines.append("</ul>")
    return "\n".join([*lines, "</nav>"])


def turn(current):
    """Links to the pages before and after one that is read in order."""
    order = [page for part, pages in chapters() if part != "Reference" for page in pages]
    at = next((i for i, page in enumerate(order) if page[0] == current), None)
    if at is None:
        return ""
    links = [f'<a href="{order[i][0]}"><small>{word}</small>{html.escape(order[i][1])}</a>'
             for i, word in ((at - 1, "Before"), (at + 1, "Next")) if 0 <= i < len(order)]
    return '<nav class="turn" aria-label="Pages before and after">' + "".join(links) + "</nav>"


def without_indent(fragment):
    """A part of a function begins at the left."""
    lines = re.findall(r'<div class="line">(?:<span class="lineno">.*?</span>)?( *)(?=\S)(?!</div>)', fragment)
    least = min(map(len, lines), default=0)
    return re.sub(r'(<div class="line">(?:<span class="lineno">.*?</span>)?) {%d}' % least, r"\1", fragment)


def in_order_of_header(text):
    """The groups of the interface for C as they stand in its header; Doxygen has those with macros first."""
    headings = re.findall(r"^// ([A-Z][^.\n]*)", (ROOT / "kxmd/kxmd_c.h").read_text(), re.MULTILINE)
    tables = re.findall(r'<table class="memberdecls">.*?</table>\n?', text, re.DOTALL)

    def place(table):
        title = re.search(r'groupheader">(?:<a[^>]*></a>)?\s*([^<]*)', table)[1].strip()
        return headings.index(title) if title in headings else len(headings)

    for table in tables[1:]:
        text = text.replace(table, "")
    return text.replace(tables[0], tables[0] + "".join(sorted(tables[1:], key=place)))


def heading(found):
    """The name first, and what it is after it."""
    kind = "header" if found[2] == "File" else found[2].lower()
    return f"{found[1]} <small>{kind}</small>"


def transcript(found):
    """What is typed stands out from what is printed."""
    text = re.sub(r"^(\$ .*)$", r"<b>\1</b>", found[1], flags=re.MULTILINE)
    kind = "fragment transcript" if text != found[1] else "fragment"
    return f'<pre class="{kind}">{text.rstrip()}</pre>'


CHANGES = [(re.compile(pattern, re.DOTALL), replacement) for pattern, replacement in (
    # One heading of the first rank, for readers that go by them.
    (r"<h1>(.*?)</h1>", r"<h2>\1</h2>"),
    (r'<div class="title">(.*?)\s*</div>', r'<h1 class="title">\1</h1>'),
    (r'(<h1 class="title">[^<]*?) (Class|Struct|File)(?: Template)? Reference', heading),
    (r'<div class="fragment">.*?</div><!-- fragment -->', lambda found: without_indent(found[0])),
    (r'<pre class="fragment">(.*?)</pre>', transcript),
    # Anchors that are named after the folder of this run.
    (r'<a class="anchor" id="md_[^"]*"></a>\s*', ""),
    (r"<p\s*></p>", ""),
    # What the contents and the headings say already.
    (r'<div id="nav-path".*?</div>', ""),
    (r'<div class="summary">.*?</div>', ""),
    (r'(<a [^>]*></a>)?<h2 class="groupheader">Detailed Description</h2>', r"\1"),
    (r"<p>Inherits <?[^<>]*std::enable_shared_from_this&lt;.*?</p>", ""),
    # Of a base class the name is enough, which leads to its page.
    (r'<tr class="[^"]* inherit [^"]*">.*?</tr>\n?', ""),
    (r'<tr class="heading"><td[^>]*><h2[^>]*><a id="inherited".*?(?=</table>)', ""),
    (r'(<tr class="inherit_header [^"]*"><td[^>]*?) onclick="[^"]*"><img [^>]*>(?:&#160;)?', r"\1>"),
)]


def finish_page(path):
    text = path.read_text()
    text = text.replace("<!-- NAVIGATION: scripts/site puts it here. -->", navigation(path.name))
    text = text.replace("<!-- TURN: scripts/site puts the pages before and after here. -->", turn(path.name))
    for pattern, replacement in CHANGES:
        text = pattern.sub(replacement, text)
    if path.name == python.PAGE:
        text = re.sub(rf"<p\s*>\s*{python.PLACE}\s*</p>", lambda _: python.reference()[0], text)
    if path.name == header_page("kxmd_c.h"):
        text = in_order_of_header(text)
    path.write_text(text)


def link_to_guide(folder):
    """Tells on the page of a class which pages of the guide speak of it."""
    speak = {}
    for file, title in (page for part, pages in chapters() if part != "Reference" for page in pages):
        for target in set(re.findall(r'href="((?:class|struct)KX\w+\.html)', (folder / file).read_text())):
            speak.setdefault(target, []).append(f'<a href="{file}">{html.escape(title)}</a>')
    for target, links in speak.items():
        path = folder / target
        before, table, after = path.read_text().partition('<table class="memberdecls">')
        if table:  # Others say nothing but what they are.
            path.write_text(f"{before}<p>In the guide: {', '.join(links)}.</p>\n{table}{after}")
