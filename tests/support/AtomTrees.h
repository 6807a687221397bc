#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "support/Builders.h"

/// The tree of a file with these bytes.
inline KXMP4Atom::Ref treeOf(build::Bytes bytes)
{
    return KXMP4Atom::atomWithAbstractData(*build::reader(std::move(bytes)));
}

/// The last atom at a path, of the class that it must have; null when there is none.
template <class Atom = KXMP4Atom>
std::shared_ptr<Atom> lastAtom(KXMP4Atom::Ref const& root, std::string_view path)
{
    auto const atoms = root->allAtomsWithPath(path);
    return atoms.empty() ? nullptr : std::dynamic_pointer_cast<Atom>(atoms.back());
}

/// The first sample entry of a file whose only track has this handler and these entries.
template <class Atom = KXMP4Atom>
std::shared_ptr<Atom> sampleEntry(std::string_view handlerType, build::Bytes const& entries)
{
    auto const root = treeOf(build::atom("moov", build::track(handlerType, build::stsd(entries))));
    auto const table = lastAtom(root, "moov/trak/mdia/minf/stbl/stsd");
    auto const children = table ? table->children() : KXMP4Atom::List();
    return children.empty() ? nullptr : std::dynamic_pointer_cast<Atom>(children.front());
}
