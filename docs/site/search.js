// Finds classes, functions and headings as one types. The places are in places.js, which scripts/site writes.

const field = document.getElementById("search");
const list = document.getElementById("found");

// Better is smaller: how far in the text begins, then how long the name is; negative when it is not in it.
function rank(name, text) {
    const at = name.toLowerCase().indexOf(text);
    return at < 0 ? -1 : (at > 0 && name[at - 1] !== " " ? 1000 : 0) + name.length;
}

function show() {
    const text = field.value.trim().toLowerCase();
    const found = text.length < 2 ? [] : places
        .map(([name, where, address]) => [rank(name, text), name, where, address])
        .filter(([value]) => value >= 0)
        .sort((a, b) => a[0] - b[0])
        .slice(0, 12);
    list.replaceChildren(...found.map(([, name, where, address]) => {
        const item = document.createElement("li");
        const link = item.appendChild(document.createElement("a"));
        link.href = address;
        link.append(name);
        if (where)
            link.appendChild(document.createElement("small")).append(where);
        return item;
    }));
    list.hidden = !found.length;
}

field.hidden = false;
field.addEventListener("input", show);
field.addEventListener("keydown", event => {
    if (event.key === "Enter")
        list.querySelector("a")?.click();
    else if (event.key === "Escape") {
        field.value = "";
        show();
    }
});
document.addEventListener("keydown", event => {
    if (event.key === "/" && event.target === document.body) {
        event.preventDefault();
        field.focus();
    }
});
