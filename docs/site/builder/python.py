"""The reference of the module for Python, from its sources: what it exports, with docstrings and comments."""

import ast
import html
import re

from .headers import ROOT

PLACE = "PYTHON_REFERENCE"  # In the page, for what is made here.
PAGE = "python-reference.html"
EMPTY = re.compile(r'id="([^"]*)">(?:(?!<tr).)*</tr>\s*<tr><td class="mdescLeft"></td><td class="mdescRight"></td>')
PACKAGE = ROOT / "python/kxmd"


def text_of(doc):
    """A docstring as HTML: paragraphs, blocks that are indented, and code between backticks."""
    parts = []
    for block in re.split(r"\n\s*\n", doc or ""):
        if block.startswith("    "):
            code = html.escape(re.sub(r"^    ", "", block, flags=re.MULTILINE))
            parts.append(f'<pre class="fragment">{code}</pre>')
        elif block:
            parts.append("<p>" + re.sub(r"`(.*?)`", r"<code>\1</code>", html.escape(block, quote=False)) + "</p>")
    return "\n".join(parts)


class Module:
    """What a source defines, by name, with the comments that ast leaves out."""

    def __init__(self, path):
        source = path.read_text()
        self.lines = source.splitlines()
        self.definitions = {node.name: node for node in ast.parse(source).body
                            if isinstance(node, (ast.ClassDef, ast.FunctionDef))}

    def comment_of(self, node):
        """What stands after the "#:" behind a field."""
        found = re.search(r"#: (.*)", self.lines[node.lineno - 1])
        return found[1] if found else ""


def signature(function, is_method):
    """The parameters as they are called, and what comes back."""
    arguments = ast.unparse(function.args).replace("=", " = ")
    if is_method:
        arguments = re.sub(r"^self(, )?", "", arguments)
    result = ast.unparse(function.returns) if function.returns else "None"
    return f"({arguments})" + ("" if result == "None" else f" -> {result}")


def constructor(owner):
    """How an object is made, unless only the package makes it."""
    for node in owner.body:
        if isinstance(node, ast.FunctionDef) and node.name == "__init__" and not ast.get_docstring(node):
            return signature(node, True)
    return ""


def row(anchor, left, name, rest, doc):
    return (f'<tr><td class="memItemLeft">{html.escape(left)}</td><td class="memItemRight" id="{anchor}">'
            f"<b>{html.escape(name)}</b>{html.escape(rest)}</td></tr>\n"
            f'<tr><td class="mdescLeft"></td><td class="mdescRight">{doc}</td></tr>\n')


def member_rows(module, owner):
    rows = []
    for node in owner.body:
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef)):
            kinds = [ast.unparse(decorator) for decorator in node.decorator_list]
            if node.name.startswith("_") or any(kind.endswith((".setter", ".deleter")) for kind in kinds):
                continue
            anchor, doc = f"{owner.name}.{node.name}", text_of(ast.get_docstring(node))
            if "property" in kinds:
                rows.append((node.name, row(anchor, ast.unparse(node.returns), node.name, "", doc)))
            else:
                left = "async" if isinstance(node, ast.AsyncFunctionDef) else ""
                rows.append((node.name, row(anchor, left, node.name, signature(node, True), doc)))
        elif isinstance(node, ast.AnnAssign):
            name, doc = node.target.id, text_of(module.comment_of(node))
            rows.append((name, row(f"{owner.name}.{name}", ast.unparse(node.annotation), name, "", doc)))
        elif isinstance(node, ast.Assign) and not node.targets[0].id.startswith("_"):
            name = node.targets[0].id
            rows.append((name, row(f"{owner.name}.{name}", "", name, "", text_of(module.comment_of(node)))))
    return rows


def reference():
    """The reference as HTML, and the places in it for the search: name, class, address."""
    exported = re.findall(r'^    "(\w+)",$', (PACKAGE / "__init__.py").read_text(), re.MULTILINE)
    modules = [Module(path) for path in sorted(PACKAGE.glob("_*.py")) if path.name != "__init__.py"]
    parts = {"Functions": [], "Classes": []}
    places = []
    for name in exported:
        module = next((module for module in modules if name in module.definitions), None)
        if not module:
            continue  # The version.
        node = module.definitions[name]
        doc = text_of(ast.get_docstring(node))
        places.append((f"kxmd.{name}", "Python", f"{PAGE}#{name}"))
        if isinstance(node, ast.FunctionDef):
            call = html.escape(signature(node, False))
            parts["Functions"].append(f'<h3 id="{name}"><code>kxmd.{name}{call}</code></h3>\n{doc}')
            continue
        rows = member_rows(module, node)
        places += [(member, f"kxmd.{name}", f"{PAGE}#{name}.{member}") for member, _ in rows]
        begins = "".join(f"({ast.unparse(base)})" for base in node.bases) or constructor(node)
        table = f'<table class="memberdecls">{"".join(text for _, text in rows)}</table>' if rows else ""
        parts["Classes"].append(f'<h3 id="{name}"><code>kxmd.{name}{html.escape(begins)}</code></h3>\n{doc}\n{table}')
    if empty := EMPTY.search("".join(parts["Classes"])):
        raise ValueError(f"kxmd.{empty[1]} of the module for Python is not documented")
    return "\n".join(f"<h2>{title}</h2>\n" + "\n".join(texts) for title, texts in parts.items()), places
