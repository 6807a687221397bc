"""What leads where: the links of all pages, and the places that the search finds."""

import html.parser
import json
import urllib.parse
import xml.etree.ElementTree

from . import python


class Links(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.targets, self.anchors = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value is not None:
                self.targets.append(value)
            elif name in ("id", "name") and value:
                self.anchors.add(value)


def broken_links(folder, places):
    """What leads nowhere, of the links of all pages and of the places that the search finds."""
    pages = {path: Links(path.read_text()) for path in sorted(folder.rglob("*.html"))}
    targets = [(path, target) for path, links in pages.items() for target in links.targets]
    targets += [(folder / "places.js", address) for _, _, address in places]
    for path, target in targets:
        parts = urllib.parse.urlsplit(target)
        if parts.scheme or parts.netloc:
            yield f"{path.name}: {target} leaves the site"
            continue
        leads_to = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
        if not leads_to.is_file():
            yield f"{path.name}: {target} is not there"
            continue
        place = urllib.parse.unquote(parts.fragment)
        if place and leads_to in pages and place not in pages[leads_to].anchors:
            yield f"{path.name}: {target} has no such place"


def write_places(tags, folder):
    """Writes what the search finds, and returns it: its name, where it belongs, its address."""
    places = []
    for compound in xml.etree.ElementTree.parse(tags).iter("compound"):
        kind, name = compound.get("kind"), compound.findtext("name")
        file = compound.findtext("filename").removesuffix(".html") + ".html"
        if kind == "dir":
            continue
        is_page = kind == "page"
        title = compound.findtext("title") if is_page else name
        if kind != "file":
            places.append((title, "", file))
        for member in compound.findall("member"):
            address = f"{member.findtext('anchorfile')}#{member.findtext('anchor')}"
            places.append((member.findtext("name"), "" if kind == "file" else name, address))
        for section in compound.findall("docanchor") if is_page else ():
            if not section.text.startswith("md_"):
                places.append((section.get("title") or section.text, title, f"{section.get('file')}#{section.text}"))
    places += python.reference()[1]
    places = sorted(set(places))
    (folder / "places.js").write_text(f"const places = {json.dumps(places, ensure_ascii=False)};\n")
    return places


def remove_unused(folder):
    """What Doxygen brings along and no page refers to."""
    used, waiting = set(), ["index.html"]
    while waiting:
        name = waiting.pop()
        if name in used or not (folder / name).is_file():
            continue
        used.add(name)
        if name.endswith(".html"):
            waiting += {target.split("#")[0] for target in Links((folder / name).read_text()).targets}
    for path in folder.iterdir():
        if path.name not in used:
            path.unlink()
