#pragma once

#include "kxmd/mp4/atoms/KXMP4Atom.h"
#include "kxmd/mp4/atoms/KXMP4AtomArenaPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomTypesPrivate.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Builds atom trees from a reader. One parse, one object.
///
/// The ancestors of the read position are kept in a list of their own: the machine stack does not
/// grow with the depth of the file, and nothing is asked through the chain of parents.
class KXMP4AtomParser {
public:
    /// Makes `root` the root of all atoms that `data` reads, with a fresh budget.
    static void parseRoot(KXMP4Atom& root, KXAbstractData& data);

    KXMP4AtomParser(KXAbstractData& data, bool rootIsParsed);

    /// The atom at the read position with its children; null at the end of the list that it stands
    /// in.
    KXMP4Atom::Ref readAtom(KXMP4Atom* parent);

    /// Reads `atom`, of whatever class, anew at the read position, with its children.
    void parseAtom(KXMP4Atom& atom, KXMP4Atom* parent);

private:
    /// The first eight bytes of an atom.
    struct Header {
        std::uint64_t offset { 0 };
        std::uint32_t size { 0 };
        KXFourCharacterCode type {};
        bool isTyped { false };
    };

    /// An atom whose children are next, if it is a container.
    struct Fresh {
        KXMP4Atom::Ref atom;
        KXMP4ContainerRule rule { KXMP4ContainerRule::never };
    };

    /// Who appends the children of an atom: the atom itself, if a caller passed it in and it may be
    /// of any class; otherwise the parser.
    enum class AddedBy : std::uint8_t { parent, parser };

    struct OpenAtom {
        KXMP4Atom* atom;
        KXMP4Atom::Ref owner; ///< Null for the atom that the parse began with.
        AddedBy addedBy;
    };

    /// A track among the open atoms, with what its finished children say of its type so far.
    struct OpenTrack {
        std::size_t depth; ///< Its place among the open atoms.
        std::size_t examinedChildren { 0 };
        KXMP4TrackType type { KXMP4TrackTypeNone };
    };

    void parseTableAgain(KXMP4Atom& table);
    Header readHeader();
    bool readTypeTo(KXFourCharacterCode& type);
    Fresh readFreshAtom(KXMP4Atom* parent);
    void readFields(KXMP4Atom& atom, KXMP4Atom* parent, Header const& header);
    void readChildren(KXMP4Atom& atom, bool isContainer, AddedBy addedBy);
    void appendChild(KXMP4Atom::Ref child);
    void open(KXMP4Atom& atom, KXMP4Atom::Ref owner, AddedBy addedBy);
    void closeLast();
    bool isContainer(KXMP4Atom& atom, KXMP4ContainerRule rule);

    // What `KXMP4Atom::trackType` would answer, without going over the same atoms for every table.
    KXMP4TrackType trackTypeAround(KXMP4Atom& atom);
    KXMP4TrackType typeOfInnermostOpenTrack();
    KXMP4TrackType typeOfTrackAbove(KXMP4Atom& top);

    KXAbstractData& _data;
    bool _rootIsParsed;
    KXMP4AtomArena::Ref const _arena;
    std::vector<OpenAtom> _open;
    std::vector<OpenTrack> _openTracks;

    // The last track above the open atoms, and its type. The tables of one track follow each other.
    KXMP4Atom* _lastTrack { nullptr };
    KXMP4TrackType _lastTrackType { KXMP4TrackTypeNone };
};
