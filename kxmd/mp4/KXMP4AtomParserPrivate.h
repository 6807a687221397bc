#pragma once

#include "kxmd/mp4/KXMP4Atom.h"
#include "kxmd/mp4/KXMP4AtomTypesPrivate.h"

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

    /// Reads `atom` anew at the read position, with its children.
    void parseAtom(KXMP4Atom& atom, KXMP4Atom* parent);

private:
    /// The first eight bytes of an atom.
    struct Header {
        std::uint64_t offset { 0 };
        std::uint32_t size { 0 };
        std::uint32_t type { 0 }; ///< Its first byte in the lowest bits.
        bool isTyped { false };
    };

    struct OpenAtom {
        KXMP4Atom* atom;
        KXMP4Atom::Ref owner; ///< Null for the atom that the parse began with.
        std::size_t firstChild { 0 }; ///< Where its finished children begin among all of them.
    };

    /// A track among the open atoms, with what its finished children say of its type so far.
    struct OpenTrack {
        std::size_t depth; ///< Its place among the open atoms.
        std::size_t nextChild; ///< The first of its finished children that was not looked at yet.
        KXMP4TrackType type { KXMP4TrackTypeNone };
    };

    Header readHeader();
    KXMP4Atom::Ref openAtom(KXMP4Atom* parent, KXMP4ContainerRule& rule);
    void readFields(KXMP4Atom& atom, KXMP4Atom* parent, Header const& header);
    void readChildren(KXMP4Atom& atom, KXMP4ContainerRule rule);
    void open(KXMP4Atom& atom, KXMP4Atom::Ref owner);
    void closeLast();
    bool isContainer(KXMP4Atom& atom, KXMP4ContainerRule rule);
    KXMP4TrackType trackTypeAround(KXMP4Atom& atom);

    KXAbstractData& _data;
    bool const _rootIsParsed;
    std::vector<OpenAtom> _open;
    KXMP4Atom::List _finished; // Children of the open atoms, outermost first, until those close.
    std::vector<OpenTrack> _openTracks;

    // The last answer for atoms outside of the open tracks.
    KXMP4Atom* _lastTop { nullptr };
    KXMP4Atom* _lastTrack { nullptr };
    KXMP4TrackType _lastTrackType { KXMP4TrackTypeNone };
};
