#include "kxmd/mp4/atoms/KXMP4AtomParserPrivate.h"

#include "kxmd/mp4/atoms/KXMP4AtomCovr.h"
#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"
#include "kxmd/mp4/atoms/KXMP4AtomMeta.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtAvcc.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtD263.h"
#include "kxmd/mp4/atoms/KXMP4AtomSDExtEsds.h"
#include "kxmd/mp4/atoms/KXMP4AtomSampleTable.h"
#include "kxmd/mp4/atoms/KXMP4AtomSoundSD.h"
#include "kxmd/mp4/atoms/KXMP4AtomStsd.h"
#include "kxmd/mp4/atoms/KXMP4AtomVideoSD.h"

#include <iterator>
#include <utility>

namespace {

constexpr KXFourCharacterCode trackType { "trak" };
constexpr KXFourCharacterCode mediaType { "mdia" };
constexpr KXFourCharacterCode movieType { "moov" };

template <class Atom> KXMP4Atom::Ref newAtom(KXMP4AtomArena& arena)
{
    return std::allocate_shared<Atom>(KXMP4AtomAllocator<Atom>(arena));
}

KXMP4Atom::Ref atomOfClass(KXMP4AtomClass atomClass, KXMP4AtomArena& arena)
{
    switch (atomClass) {
    case KXMP4AtomClass::plain:
        break;
    case KXMP4AtomClass::hdlr:
        return newAtom<KXMP4AtomHdlr>(arena);
    case KXMP4AtomClass::sampleTable:
        return newAtom<KXMP4AtomSampleTable>(arena);
    case KXMP4AtomClass::meta:
        return newAtom<KXMP4AtomMeta>(arena);
    case KXMP4AtomClass::covr:
        return newAtom<KXMP4AtomCovr>(arena);
    case KXMP4AtomClass::stsd:
        return newAtom<KXMP4AtomStsd>(arena);
    case KXMP4AtomClass::esds:
        return newAtom<KXMP4AtomSDExtEsds>(arena);
    case KXMP4AtomClass::avcC:
        return newAtom<KXMP4AtomSDExtAvcc>(arena);
    case KXMP4AtomClass::d263:
        return newAtom<KXMP4AtomSDExtD263>(arena);
    case KXMP4AtomClass::soundSD:
        return newAtom<KXMP4AtomSoundSD>(arena);
    case KXMP4AtomClass::videoSD:
        return newAtom<KXMP4AtomVideoSD>(arena);
    }
    return newAtom<KXMP4Atom>(arena);
}

}

KXMP4AtomParser::KXMP4AtomParser(KXAbstractData& data, bool rootIsParsed)
    : _data(data)
    , _rootIsParsed(rootIsParsed)
    , _arena(KXMP4AtomArena::make())
{
    constexpr std::size_t usualDepth = 12;
    _open.reserve(usualDepth);
}

void KXMP4AtomParser::parseRoot(KXMP4Atom& root, KXAbstractData& data)
{
    data.budget() = KXParseBudget();
    root.removeAllChildren();
    root.setParent(nullptr);
    root._offset = 0;
    root._size = data.length();
    root.setTag("ROOT");
    data.setOffset(0);

    KXMP4AtomParser parser(data, root._rootIsParsed);
    while (data.offset() < data.length()) {
        auto atom = parser.readAtom(&root);
        if (!atom)
            break;
        root.addChild(std::move(atom));
    }
    root._rootIsParsed = parser._rootIsParsed = true;

    // What a sample description table holds depends on its track's handler, which may stand after
    // it: the tables are read again once all handlers are known.
    for (auto const& table : root.allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd"))
        parser.parseTableAgain(*table);
}

KXMP4Atom::Ref KXMP4AtomParser::readAtom(KXMP4Atom* parent)
{
    Fresh const fresh = readFreshAtom(parent);
    if (fresh.atom)
        readChildren(*fresh.atom, isContainer(*fresh.atom, fresh.rule), AddedBy::parser);
    return fresh.atom;
}

void KXMP4AtomParser::parseAtom(KXMP4Atom& atom, KXMP4Atom* parent)
{
    atom.removeAllChildren();
    readFields(atom, parent, readHeader());
    readChildren(atom, atom._size && atom.isContainerAtom(), AddedBy::parent);
}

/// The same for a table that this parser made, without asking it what is known here.
void KXMP4AtomParser::parseTableAgain(KXMP4Atom& table)
{
    _data.setOffset(table._offset);
    table.removeAllChildren();
    Header const header = readHeader();
    readFields(table, table._parent, header);
    auto const rule = traitsOfType(header.type).containerRule;
    readChildren(table, table._size && isContainer(table, rule), AddedBy::parser);
}

KXMP4AtomParser::Header KXMP4AtomParser::readHeader()
{
    Header header { .offset = _data.offset() };
    header.size = _data.readUInt32OrZero(KXSwap::yes);
    header.isTyped = readTypeTo(header.type);
    return header;
}

bool KXMP4AtomParser::readTypeTo(KXFourCharacterCode& type)
{
    std::uint32_t value;
    bool const isRead = _data.readUInt32To(value, KXSwap::yes);
    type = KXFourCharacterCode(value);
    return isRead;
}

/// The atom at the read position up to where its children would begin; null at the end of a list.
KXMP4AtomParser::Fresh KXMP4AtomParser::readFreshAtom(KXMP4Atom* parent)
{
    Header header { .offset = _data.offset() };
    header.size = _data.readUInt32OrZero(KXSwap::yes);
    if (!header.size)
        return {};
    header.isTyped = readTypeTo(header.type);
    if (!header.isTyped
        || !_data.budget().takeNode("KXMP4Atom->too many atoms, the rest is left out")) {
        _data.setOffset(header.offset);
        return {};
    }
    if (header.type == movieType) // It is gone through from end to end.
        _data.expectReadsFrom(header.offset, header.size);
    auto const traits = traitsOfType(header.type);
    Fresh fresh { atomOfClass(traits.atomClass, *_arena), traits.containerRule };
    readFields(*fresh.atom, parent, header);
    return fresh;
}

/// Fills `atom`, whose header was just read.
void KXMP4AtomParser::readFields(KXMP4Atom& atom, KXMP4Atom* parent, Header const& header)
{
    constexpr KXFourCharacterCode tagOfZero { "NULL" };
    bool const beginsWithZero = header.isTyped && header.type.bytes().front() == 0;
    atom._parent = parent;
    atom._isOutOfTree = false;
    atom._offset = header.offset;
    atom._size = header.size;
    KXFourCharacterCode const type = beginsWithZero ? tagOfZero : header.type;
    atom._type.store(type.value(), std::memory_order_relaxed);
    atom._otherTag = nullptr;
    if (atom._size)
        atom.parseAtomSpecificData(_data);
}

void KXMP4AtomParser::readChildren(KXMP4Atom& atom, bool isContainer, AddedBy addedBy)
{
    if (!isContainer) {
        _data.setOffset(atom.end());
        return;
    }
    open(atom, nullptr, addedBy);
    while (!_open.empty()) {
        KXMP4Atom& parent = *_open.back().atom;
        auto [child, rule] = _data.offset() < parent.end() ? readFreshAtom(&parent) : Fresh();
        if (!child) {
            closeLast();
        } else if (this->isContainer(*child, rule)) {
            KXMP4Atom& opened = *child;
            open(opened, std::move(child), AddedBy::parser);
        } else {
            _data.setOffset(child->end());
            appendChild(std::move(child));
        }
    }
}

/// Adds a finished child to the innermost open atom. Without the lock, unless the atom came from
/// elsewhere: only this thread knows the others yet.
void KXMP4AtomParser::appendChild(KXMP4Atom::Ref child)
{
    OpenAtom const& parent = _open.back();
    if (parent.addedBy == AddedBy::parent)
        return parent.atom->addChild(std::move(child));
    constexpr std::size_t fewChildren = 4;
    auto& children = parent.atom->_children;
    if (children.empty())
        children.reserve(fewChildren);
    children.push_back(std::move(child));
}

void KXMP4AtomParser::open(KXMP4Atom& atom, KXMP4Atom::Ref owner, AddedBy addedBy)
{
    if (KXFourCharacterCode(atom._type) == trackType)
        _openTracks.push_back({ .depth = _open.size() });
    _open.push_back({ &atom, std::move(owner), addedBy });
}

/// Ends the list of the innermost open atom, which joins its parent only now that it is finished.
void KXMP4AtomParser::closeLast()
{
    OpenAtom closed = std::move(_open.back());
    _open.pop_back();
    if (!_openTracks.empty() && _openTracks.back().depth == _open.size())
        _openTracks.pop_back();
    // This may move backwards, when the last child ran past the end of its parent: those bytes are
    // then read again as what follows the parent. Deliberate; the budget of atoms bounds it.
    _data.setOffset(closed.atom->end());
    if (closed.owner)
        appendChild(std::move(closed.owner));
}

bool KXMP4AtomParser::isContainer(KXMP4Atom& atom, KXMP4ContainerRule rule)
{
    return isContainerUnderRule(
        rule, [this] { return _rootIsParsed; }, [&] { return trackTypeAround(atom); });
}

KXMP4TrackType KXMP4AtomParser::trackTypeAround(KXMP4Atom& atom)
{
    if (!_openTracks.empty())
        return typeOfInnermostOpenTrack();
    return typeOfTrackAbove(_open.empty() ? atom : *_open.front().atom);
}

KXMP4TrackType KXMP4AtomParser::typeOfInnermostOpenTrack()
{
    OpenTrack& track = _openTracks.back();
    auto const& children = _open[track.depth].atom->_children;
    for (; track.examinedChildren < children.size(); ++track.examinedChildren) {
        KXMP4Atom const& child = *children[track.examinedChildren];
        if (KXFourCharacterCode(child._type) != mediaType)
            continue;
        for (auto const& grandchild : child._children) {
            if (auto const* const handler = dynamic_cast<KXMP4AtomHdlr*>(grandchild.get()))
                track.type = handler->trackTypeOfHandler();
        }
    }
    return track.type;
}

/// `top` is the outermost open atom, or the one that is about to be opened as such.
KXMP4TrackType KXMP4AtomParser::typeOfTrackAbove(KXMP4Atom& top)
{
    KXMP4Atom* const track = top.trackAtom();
    // A media atom that is read anew may only just have got its handler.
    bool const mayChange = KXFourCharacterCode(top._type) == mediaType;
    if (track != _lastTrack || mayChange)
        _lastTrackType = track ? track->trackType() : KXMP4TrackTypeNone;
    _lastTrack = track;
    return _lastTrackType;
}
