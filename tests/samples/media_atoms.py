"""Atoms of MP4 and QuickTime files (ISO/IEC 14496-12), read and edited independently of the library."""

import bisect
import struct

CONTAINERS = {
    None: {b"moov", b"meta", b"moof", b"mfra"},
    b"moov": {b"trak", b"udta", b"meta"}, b"trak": {b"mdia", b"udta", b"meta"}, b"mdia": {b"minf"},
    b"minf": {b"stbl", b"dinf"}, b"udta": {b"meta"}, b"meta": {b"ilst"}, b"moof": {b"traf"},
    b"mfra": set(), b"ilst": set(), b"stbl": set(), b"dinf": set(), b"traf": set(),
}


class Atom:
    """An atom in its file, with its children where it may have some that matter."""

    def __init__(self, data, kind, start, body, end, parent):
        self.data, self.kind, self.start, self.body, self.end = data, kind, start, body, end
        self.parent, self.children = parent, []

    def path(self):
        return (self.parent.path() if self.parent else ()) + (self.kind,)

    def number(self, offset, width):
        """The number at an offset from the body; 0 where it is not there."""
        at = self.body + offset
        return int.from_bytes(self.data[at:at + width], "big") if at + width <= self.end else 0


def atoms_in(data, start=0, end=None, parent=None):
    """The atoms between two positions, children included."""
    end = len(data) if end is None else end
    found = []
    while end - start >= 8:
        size, body = int.from_bytes(data[start:start + 4], "big"), start + 8
        kind = bytes(data[start + 4:start + 8])
        if size == 1 and end - start >= 16:
            size, body = int.from_bytes(data[start + 8:start + 16], "big"), start + 16
        elif size == 0 and parent is None:
            size = end - start
        if size < body - start:
            break
        atom = Atom(data, kind, start, body, min(start + size, end), parent)
        if kind in CONTAINERS[parent.kind if parent else None]:
            first = body + 4 if kind == b"meta" and atom.number(0, 4) == 0 else body
            atom.children = atoms_in(data, first, atom.end, atom)
        found.append(atom)
        start = atom.end
    return found


def all_atoms(data):
    """Every atom that `atoms_in` finds, depth first."""
    pending = atoms_in(data)[::-1]
    while pending:
        atom = pending.pop()
        yield atom
        pending.extend(atom.children[::-1])


def table(atom, count_at, width, step, first, inset=0):
    """Places and values of the field in each row of a table, as far as the rows lie in the atom."""
    count = min(atom.number(count_at, 4), max(0, atom.end - atom.body - first) // step)
    offsets = (first + i * step + inset for i in range(count))
    return [(atom.body + offset, width, atom.number(offset, width)) for offset in offsets]


def offset_tables(data):
    """The chunk offset tables of the tracks: (atom, its fields)."""
    way = (b"moov", b"trak", b"mdia", b"minf", b"stbl")
    for atom in all_atoms(data):
        if atom.path()[:-1] == way and atom.kind in (b"stco", b"co64"):
            width = 4 if atom.kind == b"stco" else 8
            yield atom, table(atom, 4, width, width, 8)


def places_named(data):
    """What each offset in the file points to: (kind of atom, the next bytes, or None outside). No bytes
    after the end of the atom that they lie in, since those may be a size."""
    found = [(atom.kind[:2], value) for atom, fields in offset_tables(data) for _, _, value in fields]
    base = fragment = 0
    for atom in all_atoms(data):
        inside = atom.path()[:-1]
        if atom.kind == b"moof":
            fragment = base = atom.start
        elif atom.kind == b"tfhd" and inside == (b"moof", b"traf"):
            base = atom.number(8, 8) if atom.number(3, 1) & 1 else fragment
            found.append((b"tfhd", base))
        elif atom.kind == b"trun" and atom.number(3, 1) & 1:
            distance = struct.unpack(">i", struct.pack(">I", atom.number(8, 4)))[0]
            found.append((b"trun", base + distance))
        elif atom.kind == b"tfra":
            wide = atom.number(0, 1) == 1
            lengths = atom.number(11, 1)
            step = (16 if wide else 8) + (lengths >> 4 & 3) + (lengths >> 2 & 3) + (lengths & 3) + 3
            width = 8 if wide else 4
            found += [(b"tfra", value) for _, _, value in table(atom, 12, width, step, 16, width)]
        elif atom.kind == b"sidx" and not inside:
            width = 8 if atom.number(0, 1) else 4
            place = atom.end + atom.number(12 + width, width)
            found.append((b"sidx", place))
            for i in range(atom.number(14 + 2 * width, 2)):
                place += atom.number(16 + 2 * width + 12 * i, 4) & 0x7FFFFFFF
                found.append((b"sidx", place))
        elif atom.kind == b"saio" and inside[:1] == (b"moov",):
            first = 8 if atom.number(3, 1) & 1 else 0
            width = 8 if atom.number(0, 1) else 4
            found += [(b"saio", value) for _, _, value in table(atom, 4 + first, width, width, 8 + first)]
    ends = [atom.end for atom in atoms_in(data)] + [len(data)]

    def bytes_at(place):
        index = bisect.bisect_right(ends, place)
        return data[place:min(place + 16, ends[index])] if index < len(ends) else None

    return [(kind, bytes_at(place)) for kind, place in found]


def without(data, doomed):
    """The file without some atoms: the sizes of those around them and all chunk offsets corrected."""
    removed = sorted((atom.start, atom.end) for atom in doomed)

    def moved(position):
        return position - sum(end - start for start, end in removed if start <= position)

    edited = bytearray(data)
    for _, fields in offset_tables(data):
        for at, width, value in fields:
            edited[at:at + width] = moved(value).to_bytes(width, "big")
    for atom in all_atoms(data):
        lost = sum(end - start for start, end in removed if atom.start < start < atom.end)
        if lost and all(atom.start != start for start, _ in removed):
            size = int.from_bytes(data[atom.start:atom.start + 4], "big")
            assert size >= 8  # Neither 64 bits nor open.
            edited[atom.start:atom.start + 4] = (size - lost).to_bytes(4, "big")
    for start, end in reversed(removed):
        del edited[start:end]
    return bytes(edited)


def covers(data):
    """The cover atoms in the tag lists."""
    way = (b"moov", b"udta", b"meta", b"ilst", b"covr")
    return [atom for atom in all_atoms(data) if atom.path() == way]


def user_data(data):
    """The user data of the movie."""
    return [atom for atom in all_atoms(data) if atom.path() == (b"moov", b"udta")]
