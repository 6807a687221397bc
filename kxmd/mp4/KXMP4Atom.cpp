#include "kxmd/mp4/KXMP4Atom.h"

#include "kxmd/mp4/KXMP4AtomHdlr.h"
#include "kxmd/mp4/KXMP4AtomParserPrivate.h"
#include "kxmd/mp4/KXMP4AtomTypesPrivate.h"

#include <algorithm>
#include <iterator>
#include <utility>

KXMP4Atom::KXMP4Atom() = default;

KXMP4Atom::~KXMP4Atom()
{
    // A file may nest atoms by the hundred thousand: no destructor runs inside another.
    List doomed;
    auto const takeChildrenOf = [&doomed](KXMP4Atom& dying) {
        for (auto& child : dying._children) {
            dying.letGoOf(*child);
            doomed.push_back(std::move(child));
        }
        dying._children.clear();
    };
    takeChildrenOf(*this);
    while (!doomed.empty()) {
        Ref const child = std::move(doomed.back());
        doomed.pop_back();
        if (child.use_count() == 1) // Dies with us.
            takeChildrenOf(*child);
    }
}

std::string KXMP4Atom::tag() const
{
    std::scoped_lock const lock(_lock);
    return _tag;
}

void KXMP4Atom::setTag(std::string tag)
{
    std::scoped_lock const lock(_lock);
    _tag.swap(tag);
}

std::optional<std::string> KXMP4Atom::content() const
{
    std::scoped_lock const lock(_lock);
    return _content ? std::optional(*_content) : std::nullopt;
}

void KXMP4Atom::setContent(std::optional<std::string> content)
{
    auto text = content ? std::make_unique<std::string>(std::move(*content)) : nullptr;
    std::scoped_lock const lock(_lock);
    _content.swap(text);
}

KXMP4Atom::List KXMP4Atom::children() const
{
    std::scoped_lock const lock(_lock);
    return _children;
}

void KXMP4Atom::addChild(Ref child)
{
    std::scoped_lock const lock(_lock);
    _children.push_back(std::move(child));
}

void KXMP4Atom::removeChild(KXMP4Atom const& child)
{
    List removed; // Destroyed after the lock is left.
    std::scoped_lock const lock(_lock);
    auto const first = std::stable_partition(_children.begin(), _children.end(),
        [&child](Ref const& kept) { return kept.get() != &child; });
    std::move(first, _children.end(), std::back_inserter(removed));
    _children.erase(first, _children.end());
    for (auto const& atom : removed)
        letGoOf(*atom);
}

void KXMP4Atom::removeAllChildren()
{
    List removed; // Destroyed after the lock is left.
    std::scoped_lock const lock(_lock);
    removed.swap(_children);
    for (auto const& atom : removed)
        letGoOf(*atom);
}

void KXMP4Atom::letGoOf(KXMP4Atom& child) const
{
    if (child._parent != this)
        return;
    child._parent = nullptr;
    child._isLetGo = true;
}

bool KXMP4Atom::rootIsParsed() const
{
    KXMP4Atom const* atom = this;
    while (atom->_parent)
        atom = atom->_parent;
    return atom->_rootIsParsed;
}

KXMP4Atom* KXMP4Atom::rootAtom()
{
    KXMP4Atom* atom = this;
    while (atom->_parent)
        atom = atom->_parent;
    return atom;
}

KXMP4Atom* KXMP4Atom::trackAtom()
{
    KXMP4Atom* atom = this;
    while (atom && atom->_tag != "trak")
        atom = atom->_parent;
    return atom;
}

KXMP4TrackType KXMP4Atom::trackType()
{
    KXMP4Atom* const track = trackAtom();
    if (!track)
        return KXMP4TrackTypeNone;
    auto const handler
        = std::dynamic_pointer_cast<KXMP4AtomHdlr>(track->lastAtomBelow("mdia/hdlr"));
    return handler ? handler->trackTypeOfHandler() : KXMP4TrackTypeNone;
}

bool KXMP4Atom::isContainerAtom()
{
    return isContainerUnderRule(
        containerRuleOfTag(tag()), [this] { return rootIsParsed(); },
        [this] { return trackType(); });
}

KXMP4Atom::List KXMP4Atom::allAtomsWithPath(std::string_view path)
{
    std::size_t const slash = path.find('/');
    std::string_view step = path.substr(0, slash);
    List matched;
    if (!_parent)
        appendChildrenWithTag(step, matched);
    else if (Ref self = weak_from_this().lock(); self && _tag == step)
        matched.push_back(std::move(self));

    // One list of atoms a step, so that the length of the path costs no stack.
    List next;
    for (std::size_t end = slash; end != std::string_view::npos && !matched.empty();) {
        path.remove_prefix(end + 1);
        end = path.find('/');
        step = path.substr(0, end);
        next.clear();
        for (auto const& atom : matched)
            atom->appendChildrenWithTag(step, next);
        matched.swap(next);
    }
    return matched;
}

void KXMP4Atom::appendChildrenWithTag(std::string_view tag, List& atoms) const
{
    std::scoped_lock const lock(_lock);
    for (auto const& child : _children) {
        if (child->_tag == tag)
            atoms.push_back(child);
    }
}

KXMP4Atom::Ref KXMP4Atom::lastAtomBelow(std::string_view pathBelow)
{
    std::string path = tag();
    path.append("/").append(pathBelow);
    List const atoms = allAtomsWithPath(path);
    return atoms.empty() ? nullptr : atoms.back();
}

std::string KXMP4Atom::fullPath() const
{
    std::vector<KXMP4Atom const*> ancestors;
    for (KXMP4Atom const* atom = this; atom; atom = atom->_parent)
        ancestors.push_back(atom);
    std::string path;
    for (auto atom = ancestors.rbegin(); atom != ancestors.rend(); ++atom) {
        if (!path.empty())
            path += '.';
        path += (*atom)->tag();
    }
    return path;
}

std::string KXMP4Atom::fullPathWithSize() const
{
    return fullPath() + " Size:" + std::to_string(static_cast<std::int64_t>(_size));
}

std::string KXMP4Atom::allPaths()
{
    std::string paths;
    visitDepthFirst([&paths](KXMP4Atom& atom, std::size_t) {
        paths.append(atom.fullPathWithSize()).append("\n");
        return true;
    });
    return paths;
}

std::string KXMP4Atom::description() const
{
    std::string text = "MP4 Atom:" + tag() + " - " + std::to_string(_size);
    if (auto const decoded = content())
        text.append(" - ").append(*decoded);
    return text;
}

std::string KXMP4Atom::recursiveDescriptionWithInset(std::size_t inset)
{
    std::string text;
    visitDepthFirst([&text, inset](KXMP4Atom& atom, std::size_t depth) {
        text.append(inset + depth, '\t').append(atom.description()).append("\n");
        return true;
    });
    return text;
}

void KXMP4Atom::visitDepthFirst(Visitor const& visitor)
{
    struct Pending {
        Ref atom;
        std::size_t depth;
    };
    std::vector<Pending> pending;
    auto const pushChildren = [&pending](KXMP4Atom const& atom, std::size_t depth) {
        List children = atom.children();
        for (auto child = children.rbegin(); child != children.rend(); ++child)
            pending.push_back({ std::move(*child), depth });
    };

    if (!visitor(*this, 0))
        return;
    pushChildren(*this, 1);
    while (!pending.empty()) {
        auto const [atom, depth] = std::move(pending.back());
        pending.pop_back();
        if (!visitor(*atom, depth))
            return;
        pushChildren(*atom, depth + 1);
    }
}

KXMP4Atom::Ref KXMP4Atom::atomWithAbstractData(KXAbstractData& data)
{
    auto const root = std::make_shared<KXMP4Atom>();
    root->parseRootWithAbstractData(data);
    return root;
}

KXMP4Atom::Ref KXMP4Atom::atomForParent(KXMP4Atom* parent, KXAbstractData& data)
{
    return KXMP4AtomParser(data, parent && parent->rootIsParsed()).readAtom(parent);
}

void KXMP4Atom::parseRootWithAbstractData(KXAbstractData& data)
{
    KXMP4AtomParser::parseRoot(*this, data);
}

void KXMP4Atom::parseWithParent(KXMP4Atom* parent, KXAbstractData& data)
{
    bool const isParsed = parent ? parent->rootIsParsed() : _rootIsParsed;
    KXMP4AtomParser(data, isParsed).parseAtom(*this, parent);
}

void KXMP4Atom::parseAtomSpecificData(KXAbstractData& data)
{
    if (!tagTypes.contains(_tag))
        return;
    // The tag's "data" atom, as iTunes writes it: size, type, type indicator, locale, text.
    constexpr std::uint32_t headerSize = 16;
    constexpr std::uint32_t longestData = 270; // Longer texts are left out, not cut.
    std::uint32_t dataSize;
    std::optional<std::string> dataType;
    if (!data.readUInt32To(dataSize, KXSwap::yes)
        || !data.readStringTo(dataType, 4, KXStringEncodingLatin1) || *dataType != "data"
        || dataSize < headerSize || dataSize > longestData)
        return;
    data.skipBytes(8); // Type indicator and locale, whatever they hold.
    std::optional<std::string> text;
    if (data.readStringTo(text, dataSize - headerSize, KXStringEncodingUTF8) && !text->empty())
        setContent(std::move(text));
}

std::optional<KXMDCodecInfo> KXMP4Atom::codecInfo() { return std::nullopt; }
