#include "kxmd/mp4/KXMP4AtomParserPrivate.h"

#include "kxmd/mp4/KXMP4AtomCovr.h"
#include "kxmd/mp4/KXMP4AtomHdlr.h"
#include "kxmd/mp4/KXMP4AtomMeta.h"
#include "kxmd/mp4/KXMP4AtomSDExtAvcc.h"
#include "kxmd/mp4/KXMP4AtomSDExtD263.h"
#include "kxmd/mp4/KXMP4AtomSDExtEsds.h"
#include "kxmd/mp4/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/KXMP4AtomSoundSD.h"
#include "kxmd/mp4/KXMP4AtomStsd.h"
#include "kxmd/mp4/KXMP4AtomTypesPrivate.h"
#include "kxmd/mp4/KXMP4AtomVideoSD.h"

#include <utility>

namespace {

template <class Atom>
KXMP4Atom::Ref makeAtom()
{
    return std::make_shared<Atom>();
}

using AtomMaker = KXMP4Atom::Ref (*)();

struct TypeClass {
    std::string_view type;
    AtomMaker make;
};

constexpr TypeClass typeClasses[] {
    { "hdlr", makeAtom<KXMP4AtomHdlr> },
    { "stco", makeAtom<KXMP4AtomSampleTable> },
    { "meta", makeAtom<KXMP4AtomMeta> },
    { "covr", makeAtom<KXMP4AtomCovr> },
    { "stsd", makeAtom<KXMP4AtomStsd> },
    { "esds", makeAtom<KXMP4AtomSDExtEsds> },
    { "avcC", makeAtom<KXMP4AtomSDExtAvcc> },
    { "d263", makeAtom<KXMP4AtomSDExtD263> },
};

struct TypeListClass {
    KXCodeList const& types;
    AtomMaker make;
};

constexpr TypeListClass typeListClasses[] {
    { soundTypesAAC, makeAtom<KXMP4AtomSoundSD> },
    { soundTypesALAC, makeAtom<KXMP4AtomSoundSD> },
    { soundTypesAMR, makeAtom<KXMP4AtomSoundSD> },
    { soundTypesAMRWB, makeAtom<KXMP4AtomSoundSD> },
    { videoTypesMP4Visual, makeAtom<KXMP4AtomVideoSD> },
    { videoTypesAVC, makeAtom<KXMP4AtomVideoSD> },
    { videoTypesH263, makeAtom<KXMP4AtomVideoSD> },
};

KXMP4Atom::Ref atomOfType(std::string_view type)
{
    for (auto const& typeClass : typeClasses) {
        if (type == typeClass.type)
            return typeClass.make();
    }
    for (auto const& typeListClass : typeListClasses) {
        if (typeListClass.types.contains(type))
            return typeListClass.make();
    }
    return makeAtom<KXMP4Atom>();
}

}

KXMP4AtomParser::ContainerRule KXMP4AtomParser::containerRuleOfTag(std::string_view tag)
{
    if (tag.empty())
        return ContainerRule::never;
    if (containerTypes.contains(tag))
        return ContainerRule::always;
    if (sampleDescriptionTableTypes.contains(tag))
        return ContainerRule::inMediaTracks;
    // Of the sound entries only this one: those of the other codecs keep no children, on purpose.
    if (videoTypesMP4Visual.contains(tag) || videoTypesAVC.contains(tag)
        || videoTypesH263.contains(tag) || soundTypesAAC.contains(tag))
        return ContainerRule::onceRootIsParsed;
    return ContainerRule::never;
}

KXMP4AtomParser::KXMP4AtomParser(KXAbstractData& data, bool rootIsParsed)
    : _data(data)
    , _rootIsParsed(rootIsParsed)
{
}

void KXMP4AtomParser::parseRoot(KXMP4Atom& root, KXAbstractData& data)
{
    data.budget() = KXParseBudget();
    root.removeAllChildren();
    root._parent = nullptr;
    root._offset = 0;
    root._size = data.length();
    root.setTag("ROOT");
    data.setOffset(0);

    KXMP4AtomParser firstPass(data, root._rootIsParsed);
    while (data.offset() < data.length()) {
        auto atom = firstPass.readAtom(&root);
        if (!atom)
            break;
        root.addChild(std::move(atom));
    }
    root._rootIsParsed = true;

    // What a sample description table holds depends on its track's handler, which may stand behind it:
    // the tables are read again once all handlers are known.
    KXMP4AtomParser secondPass(data, true);
    for (auto const& table : root.allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd")) {
        data.setOffset(table->_offset);
        secondPass.parseAtom(*table, table->_parent);
    }
}

KXMP4Atom::Ref KXMP4AtomParser::readAtom(KXMP4Atom* parent)
{
    auto atom = openAtom(parent);
    if (atom)
        readChildren(*atom);
    return atom;
}

void KXMP4AtomParser::parseAtom(KXMP4Atom& atom, KXMP4Atom* parent)
{
    readHeaderAndFields(atom, parent);
    readChildren(atom);
}

KXMP4Atom::Ref KXMP4AtomParser::openAtom(KXMP4Atom* parent)
{
    std::uint64_t const offset = _data.offset();
    std::uint32_t const size = _data.readUInt32OrZero(KXSwap::yes);
    std::optional<std::string> type;
    bool const isWhole = size && _data.readStringTo(type, 4, KXStringEncodingLatin1);
    _data.setOffset(offset);
    if (!isWhole || !_data.budget().takeNode("KXMP4Atom->too many atoms, the rest is left out"))
        return nullptr;
    auto atom = atomOfType(*type);
    readHeaderAndFields(*atom, parent);
    return atom;
}

void KXMP4AtomParser::readHeaderAndFields(KXMP4Atom& atom, KXMP4Atom* parent)
{
    atom.removeAllChildren();
    atom._parent = parent;
    atom._offset = _data.offset();
    atom._size = _data.readUInt32OrZero(KXSwap::yes);
    std::optional<std::string> type;
    bool const isTyped = _data.readStringTo(type, 4, KXStringEncodingLatin1);
    atom.setTag(!isTyped ? std::string() : type->front() == '\0' ? "NULL" : std::move(*type));
    if (atom._size)
        atom.parseAtomSpecificData(_data);
}

bool KXMP4AtomParser::isContainer(KXMP4Atom& atom)
{
    switch (containerRuleOfTag(atom._tag)) {
    case ContainerRule::always:
        return true;
    case ContainerRule::onceRootIsParsed:
        return _rootIsParsed;
    case ContainerRule::inMediaTracks:
        return _rootIsParsed && trackTypeAround(atom) != KXMP4TrackTypeNone;
    case ContainerRule::never:
        break;
    }
    return false;
}

/// What `KXMP4Atom::trackType` would answer, without going over the same atoms for every table.
KXMP4TrackType KXMP4AtomParser::trackTypeAround(KXMP4Atom& atom)
{
    if (!_openTracks.empty()) {
        OpenTrack& track = _openTracks.back();
        auto const& children = _open[track.depth].atom->_children;
        for (; track.examinedChildren < children.size(); ++track.examinedChildren) {
            KXMP4Atom const& child = *children[track.examinedChildren];
            if (child._tag != "mdia")
                continue;
            for (auto const& grandchild : child._children) {
                if (auto const* const handler = dynamic_cast<KXMP4AtomHdlr*>(grandchild.get()))
                    track.type = handler->trackTypeOfHandler();
            }
        }
        return track.type;
    }
    KXMP4Atom& top = _open.empty() ? atom : *_open.front().atom;
    if (_lastTop != &top) {
        _lastTop = &top;
        KXMP4Atom* const track = top.trackAtom();
        if (track != _lastTrack)
            _lastTrackType = track ? track->trackType() : KXMP4TrackTypeNone;
        _lastTrack = track;
    }
    return _lastTrackType;
}

void KXMP4AtomParser::push(OpenAtom open)
{
    if (open.atom->_tag == "trak")
        _openTracks.push_back({ .depth = _open.size() });
    _open.push_back(std::move(open));
}

void KXMP4AtomParser::readChildren(KXMP4Atom& atom)
{
    if (!atom._size || !isContainer(atom)) {
        _data.setOffset(atom.end());
        return;
    }
    push({ &atom, nullptr });
    while (!_open.empty()) {
        KXMP4Atom& parent = *_open.back().atom;
        KXMP4Atom::Ref child;
        if (_data.offset() < parent.end())
            child = openAtom(&parent);
        if (!child) {
            closeLast();
        } else if (isContainer(*child)) {
            push({ child.get(), child });
        } else {
            _data.setOffset(child->end());
            parent.addChild(std::move(child));
        }
    }
}

/// Ends the list of the innermost open atom, which joins its parent only now that it is finished.
void KXMP4AtomParser::closeLast()
{
    OpenAtom const closed = std::move(_open.back());
    _open.pop_back();
    if (!_openTracks.empty() && _openTracks.back().depth == _open.size())
        _openTracks.pop_back();
    // Also back, when the last child ran past the end of its parent: those bytes are then walked again
    // as what follows the parent. Wanted so; the budget of atoms bounds it.
    _data.setOffset(closed.atom->end());
    if (closed.owner)
        _open.back().atom->addChild(closed.owner);
}
