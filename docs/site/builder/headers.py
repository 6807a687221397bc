"""The public headers, as the reference shows them."""

import html
import importlib.machinery
import importlib.util
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[3]


def module_of_script(path):
    """A script without an extension, as a module."""
    loader = importlib.machinery.SourceFileLoader(path.name.replace("-", "_"), str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


names = module_of_script(ROOT / "scripts/check-names")


class Operations:
    """The operations of all headers by their phrases, of which the doc comments speak."""

    def __init__(self, texts):
        self.by_phrase = {}
        for text in texts:
            for operation in names.HeaderReader(text).read():
                if phrase := names.phrase_of(operation.doc):
                    self.by_phrase.setdefault(phrase, []).append((operation.scope, operation.name))

    def link(self, phrase, scopes, named):
        """A link to the operation, or None if the phrase is none, or not clearly that of one."""
        found = self.by_phrase.get(phrase, [])
        near = [entry for entry in found if entry[0] == named] or [entry for entry in found if entry[0] in scopes]
        if not near and ":" in phrase and len(set(found)) == 1:
            near = found
        if not near:
            return None
        scope, name = near[0]
        return f"\\link {scope}::{name} {name}\\endlink" if scope else f"\\link ::{name} {name}\\endlink"


# What no reader asks for: destructors, what is deleted, and comparison field by field.
SAYS_NOTHING = re.compile(
    r"\s*(virtual ~\w+\(\);|~\w+\(\) override;|.*= delete;.*|bool operator==\(.*\) const = default;)$")
PHRASE = re.compile(r"`([a-z]\w*(?::(?:[a-z]\w*:)*)?)`(?=( of `(KX\w+)`)?)")


def shown_header(path, text, operations):
    """The header with its doc comments in terms of C++; each line stays where it is."""
    scopes = set(re.findall(r"^(?:class|struct) KX_EXPORT (\w+)", text, re.MULTILINE))
    lines, is_first = [], True
    for line in text.split("\n"):
        if line.lstrip().startswith("///"):
            if is_first:
                line = re.sub(r"^(\s*///) `[A-Za-z]\w*(?::(?:[a-z]\w*:)*)?` (?=[A-Z])", r"\1 ", line)
            # Here the summary would end: at a full stop before a backslash.
            line = re.sub(r"`([^`]*\\[^`]*)`", lambda found: "<code>" + html.escape(found[1]).replace(
                "\\", "&#92;").replace(".", "&#46;") + "</code>", line)
            line = PHRASE.sub(lambda found: operations.link(found[1], scopes, found[3]) or found[0], line)
            is_first = False
        else:
            is_first = True
            if SAYS_NOTHING.match(line):
                line = ""
            if path.name == "kxmd_c.h" and (heading := re.match(r"// ([A-Z].*)$", line)) and "NOLINT" not in line:
                line = f"/** \\name {heading[1].split('.')[0]} */"
        lines.append(line)
    # Of a header that begins with a comment of its own, that is what it is about.
    is_about_header = re.match(r"#pragma once\n\n(///.*\n)+\n", text) is not None
    lines[1 if is_about_header else 0] = f"/// \\file {path}" if is_about_header else f"/** \\file {path} */"
    lines[0] = "" if is_about_header else lines[0]
    return "\n".join(lines)


def values_without_comment(name, text):
    """The values of enumerations that say nothing of themselves; Doxygen does not tell."""
    for found in re.finditer(r"\benum\b[^;{]*\{([^}]*)\}", text):
        before = ""
        for number, line in enumerate(found[1].split("\n"), text.count("\n", 0, found.start(1)) + 1):
            if re.match(r"\s*\w+( = \w+)?,?( //|$)", line) and "///<" not in line and not before.startswith("///"):
                yield f"kxmd/{name}:{number}: error: {line.strip()} is not documented."
            before = line.strip()


def public_headers():
    listed = (ROOT / "kxmd/CMakeLists.txt").read_text()
    return re.search(r"set\(kxmd_headers\s+(.*?)\)", listed, re.DOTALL)[1].split()


def version():
    return re.search(r"project\(kxmd VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())[1]


def write_headers(folder):
    headers = {name: (ROOT / "kxmd" / name).read_text() for name in public_headers()}
    major, minor, patch = version().split(".")
    made = (ROOT / "kxmd/version.h.in").read_text()
    for name, value in (("", version()), ("_MAJOR", major), ("_MINOR", minor), ("_PATCH", patch)):
        made = made.replace(f"@PROJECT_VERSION{name}@", value)
    headers["version.h"] = made
    operations = Operations(headers.values())
    for name, text in headers.items():
        target = folder / "kxmd" / name
        target.parent.mkdir(parents=True, exist_ok=True)
        headers[name] = shown_header(pathlib.Path("kxmd") / name, text, operations)
        target.write_text(headers[name])
    return headers
