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
#include "kxmd/mp4/KXMP4AtomVideoSD.h"

#include <array>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

KXMP4Atom::Ref atomOfClass(KXMP4AtomClass atomClass)
{
    switch (atomClass) {
    case KXMP4AtomClass::plain:
        break;
    case KXMP4AtomClass::hdlr:
        return std::make_shared<KXMP4AtomHdlr>();
    case KXMP4AtomClass::sampleTable:
        return std::make_shared<KXMP4AtomSampleTable>();
    case KXMP4AtomClass::meta:
        return std::make_shared<KXMP4AtomMeta>();
    case KXMP4AtomClass::covr:
        return std::make_shared<KXMP4AtomCovr>();
    case KXMP4AtomClass::stsd:
        return std::make_shared<KXMP4AtomStsd>();
    case KXMP4AtomClass::esds:
        return std::make_shared<KXMP4AtomSDExtEsds>();
    case KXMP4AtomClass::avcC:
        return std::make_shared<KXMP4AtomSDExtAvcc>();
    case KXMP4AtomClass::d263:
        return std::make_shared<KXMP4AtomSDExtD263>();
    case KXMP4AtomClass::soundSD:
        return std::make_shared<KXMP4AtomSoundSD>();
    case KXMP4AtomClass::videoSD:
        return std::make_shared<KXMP4AtomVideoSD>();
    }
    return std::make_shared<KXMP4Atom>();
}

/// The type's four Latin-1 characters in UTF-8; "NULL" for one that begins with a zero byte.
std::string tagOfType(std::uint32_t type)
{
    if (!(type & 0xFF))
        return "NULL";
    std::array<std::uint8_t, sizeof type> bytes;
    std::memcpy(bytes.data(), &type, sizeof type);
    constexpr std::uint32_t highBits = 0x80808080;
    if (!(type & highBits)) // ASCII, as nearly all types are.
        return std::string(reinterpret_cast<char const*>(bytes.data()), bytes.size());
    return *textFromBytes(bytes, KXStringEncodingLatin1);
}

}

KXMP4AtomParser::KXMP4AtomParser(KXAbstractData& data, bool rootIsParsed)
    : _data(data)
    , _rootIsParsed(rootIsParsed)
{
    constexpr std::size_t usualDepth = 12;
    _open.reserve(usualDepth);
}

void KXMP4AtomParser::parseRoot(KXMP4Atom& root, KXAbstractData& data)
{
    data.budget() = KXParseBudget();
    root.removeAllChildren(); // Those of an earlier parse.
    root.setParent(nullptr);
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

    // What a sample description table holds depends on its track's handler, which may stand behind
    // it: the tables are read again once all handlers are known.
    KXMP4AtomParser secondPass(data, true);
    for (auto const& table : root.allAtomsWithPath("moov/trak/mdia/minf/stbl/stsd")) {
        data.setOffset(table->_offset);
        secondPass.parseAtom(*table, table->_parent);
    }
}

KXMP4Atom::Ref KXMP4AtomParser::readAtom(KXMP4Atom* parent)
{
    Fresh const fresh = readFreshAtom(parent);
    if (fresh.atom)
        readChildren(*fresh.atom, fresh.rule);
    return fresh.atom;
}

void KXMP4AtomParser::parseAtom(KXMP4Atom& atom, KXMP4Atom* parent)
{
    atom.removeAllChildren();
    Header const header = readHeader();
    readFields(atom, parent, header);
    readChildren(atom, traitsOfType(header.type).containerRule);
}

KXMP4AtomParser::Header KXMP4AtomParser::readHeader()
{
    Header header { .offset = _data.offset() };
    header.size = _data.readUInt32OrZero(KXSwap::yes);
    header.isTyped = _data.readUInt32To(header.type, KXSwap::no);
    return header;
}

/// The atom at the read position up to where its children would begin; null at the end of a list.
KXMP4AtomParser::Fresh KXMP4AtomParser::readFreshAtom(KXMP4Atom* parent)
{
    Header const header = readHeader();
    if (!header.size || !header.isTyped
        || !_data.budget().takeNode("KXMP4Atom->too many atoms, the rest is left out")) {
        _data.setOffset(header.offset);
        return {};
    }
    auto const traits = traitsOfType(header.type);
    Fresh fresh { atomOfClass(traits.atomClass), traits.containerRule };
    readFields(*fresh.atom, parent, header);
    return fresh;
}

/// Fills `atom`, whose header was just read.
void KXMP4AtomParser::readFields(KXMP4Atom& atom, KXMP4Atom* parent, Header const& header)
{
    atom.setParent(parent);
    atom._offset = header.offset;
    atom._size = header.size;
    atom._tag = header.isTyped ? tagOfType(header.type) : std::string();
    if (atom._size)
        atom.parseAtomSpecificData(_data);
}

void KXMP4AtomParser::readChildren(KXMP4Atom& atom, KXMP4ContainerRule rule)
{
    if (!atom._size || !isContainer(atom, rule)) {
        _data.setOffset(atom.end());
        return;
    }
    open(atom, nullptr);
    while (!_open.empty()) {
        KXMP4Atom& parent = *_open.back().atom;
        auto [child, childRule] = _data.offset() < parent.end() ? readFreshAtom(&parent) : Fresh();
        if (!child) {
            closeLast();
        } else if (isContainer(*child, childRule)) {
            KXMP4Atom& opened = *child;
            open(opened, std::move(child));
        } else {
            _data.setOffset(child->end());
            appendChild(parent, std::move(child));
        }
    }
}

/// Without the lock: only the building thread touches the tree now.
void KXMP4AtomParser::appendChild(KXMP4Atom& parent, KXMP4Atom::Ref child)
{
    constexpr std::size_t fewChildren = 4;
    if (parent._children.empty())
        parent._children.reserve(fewChildren);
    parent._children.push_back(std::move(child));
}

void KXMP4AtomParser::open(KXMP4Atom& atom, KXMP4Atom::Ref owner)
{
    if (atom._tag == "trak")
        _openTracks.push_back({ .depth = _open.size() });
    _open.push_back({ &atom, std::move(owner) });
}

/// Ends the list of the innermost open atom, which joins its parent only now that it is finished.
void KXMP4AtomParser::closeLast()
{
    OpenAtom closed = std::move(_open.back());
    _open.pop_back();
    if (!_openTracks.empty() && _openTracks.back().depth == _open.size())
        _openTracks.pop_back();
    // Also back, when the last child ran past the end of its parent: those bytes are then walked
    // again as what follows the parent. Wanted so; the budget of atoms bounds it.
    _data.setOffset(closed.atom->end());
    if (closed.owner)
        appendChild(*_open.back().atom, std::move(closed.owner));
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
        if (child._tag != "mdia")
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
    bool const mayChange = top._tag == "mdia";
    if (track != _lastTrack || mayChange)
        _lastTrackType = track ? track->trackType() : KXMP4TrackTypeNone;
    _lastTrack = track;
    return _lastTrackType;
}
