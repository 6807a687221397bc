#pragma once

#include "kxmd/base/KXAbstractData.h"
#include "kxmd/base/KXByteLock.h"
#include "kxmd/base/KXExport.h"
#include "kxmd/core/KXMDCodecInfo.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What a track holds, by the type of its media handler (ISO/IEC 14496-12, 8.4.3).
enum KXMP4TrackType : std::int32_t {
    KXMP4TrackTypeNone = 0, ///< Neither of these, or no track.
    KXMP4TrackTypeVideo = 1, ///< "vide".
    KXMP4TrackTypeSound = 2, ///< "soun".
};

/// One node of the atom tree of an MP4 or QuickTime file (a box in ISO/IEC 14496-12), or the root
/// above its top-level atoms, tagged "ROOT".
///
/// Only 32-bit sizes are understood: a size of 0 ends the list of atoms that it stands in, and one
/// of 1 to 7 is taken as it is. A parent owns its children; the link back is not owned, and is
/// cleared when the parent dies.
///
/// A tree is built and edited by one thread at a time. Several threads may read a finished tree
/// while its tags, texts and lists of children are replaced, so the type is atomic, and every
/// access to another kind of tag, to the text or to the children holds the atom's lock. Only the
/// destructor, and the parser before any other thread can see the atom, do without it. A search by
/// path holds the locks on its way down, and nothing takes them upwards.
///
/// Every operation but `visitDepthFirst:` may be overridden. Walks over a tree stay on one level of
/// the machine stack: they ask each atom for `children`, `description` and `adjustOwnOffsets`, not
/// for the walk below it. A search by path goes by the tags and children that were set, whatever is
/// overridden.
class KX_EXPORT KXMP4Atom : public std::enable_shared_from_this<KXMP4Atom> {
public:
    /// A shared atom; null where there is none.
    using Ref = std::shared_ptr<KXMP4Atom>;
    /// Atoms in file order.
    using List = std::vector<Ref>;

    /// `atomWithAbstractData:` The root of the tree of all atoms that `data` reads; never null.
    [[nodiscard]] static Ref atomWithAbstractData(KXAbstractData& data);

    /// `atomForParent:abstractData:` Reads the atom at the read position, with its children.
    ///
    /// Null when its size is 0, with the reader then just past that size, or when it cannot be read
    /// or the reader's budget of atoms is spent. `parent`, which may be null, is not changed and
    /// must live as long as the atom uses it.
    [[nodiscard]] static Ref atomForParent(KXMP4Atom* parent, KXAbstractData& data);

    /// `init` An atom without type, size and place.
    KXMP4Atom();
    virtual ~KXMP4Atom();
    KXMP4Atom(KXMP4Atom const&) = delete;
    KXMP4Atom& operator=(KXMP4Atom const&) = delete;

    /// `offset` Position in the file, in bytes, of the atom's first byte (its size field).
    [[nodiscard]] virtual std::uint64_t offset() const { return _offset; }
    /// `setOffset:` Sets the position, in bytes.
    virtual void setOffset(std::uint64_t offset) { _offset = offset; }

    /// `size` The atom's size field: bytes from `offset`, header included; of the root the file's
    /// length.
    [[nodiscard]] virtual std::uint64_t size() const { return _size; }
    /// `setSize:` Sets the size, in bytes.
    virtual void setSize(std::uint64_t size) { _size = size; }

    /// `tag` The atom's type: four Latin-1 characters in UTF-8, "NULL" when the first is 0. Empty
    /// for an atom that was never given one.
    [[nodiscard]] virtual std::string tag() const;
    /// `setTag:` Replaces the type; any text is taken.
    virtual void setTag(std::string tag);

    /// `content` The text of a tag atom; absent for every other atom.
    [[nodiscard]] virtual std::optional<std::string> content() const;
    /// `setContent:` Replaces the text.
    virtual void setContent(std::optional<std::string> content);

    /// `parent` The enclosing atom; null for the root.
    [[nodiscard]] virtual KXMP4Atom* parent() const { return _parent; }
    /// `setParent:` Sets the link to the enclosing atom, which stays unowned.
    virtual void setParent(KXMP4Atom* parent);

    /// `children` The child atoms in file order, as they are now.
    [[nodiscard]] virtual List children() const;
    /// `addChild:` Appends `child`; its parent link is left as it is. Null is not added.
    virtual void addChild(Ref child);
    /// `removeChild:` Removes `child` wherever it stands among the children. Its parent link stays
    /// until this atom dies.
    virtual void removeChild(KXMP4Atom const& child);
    /// `removeAllChildren` Removes every child, as `removeChild:` does.
    virtual void removeAllChildren();

    /// `rootIsParsed` Whether the first pass over the file is over, as recorded in the root.
    [[nodiscard]] virtual bool rootIsParsed() const;
    /// `rootAtom` The atom at the top of the parent links; this one when it has no parent.
    [[nodiscard]] virtual KXMP4Atom* rootAtom();
    /// `trackAtom` The nearest atom tagged "trak" from this one upwards, or null.
    [[nodiscard]] virtual KXMP4Atom* trackAtom();
    /// `trackType` What the track around this atom holds.
    [[nodiscard]] virtual KXMP4TrackType trackType();
    /// `isContainerAtom` Whether the atom's payload is read as atoms.
    [[nodiscard]] virtual bool isContainerAtom();

    /// `allAtomsWithPath:` Every atom at `path`, in file order; none for an empty path.
    ///
    /// The path's tags are joined by "/". Asked of an atom without parent, such as the root, it
    /// begins with the tag of a child ("moov/trak"); asked of another atom with that atom's own
    /// ("trak/mdia"). A child that was added without a parent link is passed through: it takes the
    /// path as a root does.
    [[nodiscard]] virtual List allAtomsWithPath(std::string_view path);

    /// `fullPath` The tags from the root down to this atom, joined by ".".
    [[nodiscard]] virtual std::string fullPath() const;
    /// `fullPathWithSize` The full path and the size in bytes.
    [[nodiscard]] virtual std::string fullPathWithSize() const;
    /// `allPaths` A line with full path and size for this atom and each atom below it.
    [[nodiscard]] virtual std::string allPaths();

    /// `description` The tag, "(null)" without one, the size and, for a tag atom, the text.
    [[nodiscard]] virtual std::string description() const;
    /// `recursiveDescriptionWithInset:` A line for this atom and each atom below it, indented by
    /// `inset` tabs and one more for each level.
    [[nodiscard]] virtual std::string recursiveDescriptionWithInset(std::size_t inset);

    /// Shown each atom of a subtree with its depth below the top; false ends the visit.
    using Visitor = std::function<bool(KXMP4Atom& atom, std::size_t depth)>;
    /// `visitDepthFirst:` Shows this atom and every atom below it to `visitor`, in file order.
    ///
    /// For trees too deep for the texts above, which grow with the square of the depth.
    void visitDepthFirst(Visitor const& visitor);

    /// `parseRootWithAbstractData:` Makes this atom the root of all atoms that `data` reads. The
    /// children of an earlier parse are removed first.
    virtual void parseRootWithAbstractData(KXAbstractData& data);
    /// `parseWithParent:abstractData:` Reads this atom anew at the read position, with its
    /// children, and leaves the reader at the atom's end. `parent` as in
    /// `atomForParent:abstractData:`.
    virtual void parseWithParent(KXMP4Atom* parent, KXAbstractData& data);

    /// `parseAtomSpecificData:` Reads the fields after the header, where the reader stands, and
    /// leaves it where child atoms would begin. Here: the text of a tag atom.
    virtual void parseAtomSpecificData(KXAbstractData& data);

    /// `codecInfo` What a sample entry says of its stream; absent for every other atom.
    [[nodiscard]] virtual std::optional<KXMDCodecInfo> codecInfo();

    // Edits, in a buffer with the whole file that the tree was parsed from. Sizes and offsets are
    // corrected in the tree and in the buffer, but the tree is not parsed again: parse the buffer
    // before the next edit. No 64-bit size and no 64-bit chunk offset is ever written. The root
    // must be kept alive meanwhile: an atom that was removed from the file, or that outlives its
    // parent, refuses to edit, since what is around it could not be corrected.

    /// `removeSelfFromMutableData:` Removes the atom from the file and from its parent.
    ///
    /// False, with nothing changed, when the atom is not all there or not in a tree any more; false
    /// as well when a size or a chunk offset table does not lie within the buffer, which is then
    /// edited in part.
    virtual bool removeSelfFromMutableData(KXMutableData& data);

    /// `insertBeforeSelfInMutableData:atomData:` Inserts the bytes of a whole atom before this one;
    /// the tree does not get it.
    ///
    /// False, with nothing changed, when this atom does not begin within the buffer; otherwise as
    /// above.
    virtual bool insertBeforeSelfInMutableData(
        KXMutableData& data, std::span<std::uint8_t const> atomData);

    /// `adjustSize:inMutableData:` Adds `difference` to the size of this atom and of each one
    /// around it, in the tree and, in 32 bits, in the buffer; the root has no size field.
    ///
    /// False when a size field does not lie within the buffer.
    virtual bool adjustSizeInMutableData(std::int64_t difference, KXMutableData& data);

    /// `adjustOffset:startingFrom:inMutableData:` Adds `difference` to each position from `start`
    /// on that this atom or one below it keeps: its own, and those in 32-bit chunk offset tables.
    ///
    /// False when a table does not lie within the buffer.
    virtual bool adjustOffsetInMutableData(
        std::int64_t difference, std::uint64_t start, KXMutableData& data);

protected:
    /// Adds `difference` to each position from `start` on in the atom's own fields, its offset
    /// being adjusted already. False when they do not lie within the buffer. Here: there are none.
    virtual bool adjustOwnOffsets(
        std::int64_t difference, std::uint64_t start, KXMutableData& data);

    /// Position of the first byte after the atom.
    [[nodiscard]] std::uint64_t end() const { return _offset + _size; }

    /// The last atom at the path made of this atom's own tag and `pathBelow`, or null.
    [[nodiscard]] Ref lastAtomBelow(std::string_view pathBelow);

private:
    friend class KXMP4AtomParser;
    struct PathStep;
    class Path;

    std::optional<std::string> givenTag() const;
    void appendAtomsAt(std::span<PathStep const> steps, List& atoms) const;
    bool isAt(PathStep const& step) const;
    void rememberFormerChild(Ref const& child);
    void letGoOf(KXMP4Atom& child) const;

    std::uint64_t _offset { 0 };
    std::uint64_t _size { 0 };
    KXMP4Atom* _parent { nullptr }; // Not owned; the parent clears it when it dies.
    std::atomic<std::uint32_t> _type { 0 }; // The tag, if it has four Latin-1 characters; else 0.
    bool _rootIsParsed { false };
    bool _isOutOfTree { false }; // Of a tree that it was in.
    mutable KXByteLock _lock; // Guards the four below.
    std::unique_ptr<std::string> _otherTag; // A tag that is not such a code; null without a tag.
    std::unique_ptr<std::string> _content;
    List _children;
    std::unique_ptr<std::vector<std::weak_ptr<KXMP4Atom>>> _formerChildren; // Still linked to us.
};
