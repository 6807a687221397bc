"""The pages that Doxygen is given, beside the headers."""

import pathlib
import re
import shutil

from .headers import ROOT

PAGES = ROOT / "docs/site"
FOLDERS = {  # In the order in which one needs them.
    "core": "The metadata of files",
    "mp3": "MP3",
    "mp4": "MP4",
    "mp4/atoms": "Atoms",
    "mp4/safety": "The safety of edits",
    "thumbnails": "Thumbnails",
    "image": "Pictures",
    "host": "What an application brings",
    "processors": "Processors",
    "platform": "The platform",
    "base": "Bytes, texts, queues",
}

CLASS = re.compile(
    r"^(?:template <.*>\s*)?(?:class|struct|enum|enum class) (?:KX_EXPORT )?(KX\w+)(?: final)?\s*(?:[:{]|$)",
    re.MULTILINE)


def summary_of(text, at):
    """The first sentence of the doc comment that ends above a position."""
    comment = re.search(r"((?:^///.*\n)+)\Z", text[:at], re.MULTILINE)
    words = "\n".join(line[3:].strip() for line in comment[1].splitlines()) if comment else ""
    paragraph = words.split("\n\n")[0].replace("\n", " ")
    return re.split(r"(?<=\.) (?=[A-Z])", paragraph, maxsplit=1)[0]


def reference(headers):
    """A page that lists what there is, folder by folder."""
    lines = ["# Classes {#reference}", "",
             "All of it is in `<kxmd/kxmd.h>`, and [the version](version_8h.html) as well. The interface for C has "
             "[a page of its own](kxmd__c_8h.html).", ""]
    for folder, title in FOLDERS.items():
        lines += [f"## {title}", ""]
        for name, text in headers.items():
            if str(pathlib.PurePath(name).parent) != folder:
                continue
            if found := list(CLASS.finditer(text)):
                lines += [f"- @ref {entry[1]} — {summary_of(text, entry.start())}" for entry in found]
            else:
                header = pathlib.PurePath(name).name
                lines += [f"- [{header}]({header_page(header)}) — functions and constants"]
        lines += [""]
    return "\n".join(lines)


def header_page(name):
    return name.replace("_", "__").replace(".", "_8") + ".html"


def write_pages(folder, headers):
    folder.mkdir()
    for page in PAGES.glob("*.md"):
        shutil.copy(page, folder)
    for name in ("performance", "architecture"):
        text = (ROOT / "docs" / f"{name}.md").read_text()
        title, rest = text.split("\n", 1)
        rest = re.sub(r"!\[(.*?)\]\(performance/(.*?)\)", r'![\1](\2)', rest)
        (folder / f"{name}.md").write_text(f"{title} {{#{name}}}\n{rest}")
    (folder / "reference.md").write_text(reference(headers))
