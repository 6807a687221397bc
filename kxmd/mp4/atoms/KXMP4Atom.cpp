#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include "kxmd/base/KXFourCharacterCodePrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomHdlr.h"
#include "kxmd/mp4/atoms/KXMP4AtomParserPrivate.h"
#include "kxmd/mp4/atoms/KXMP4AtomTypesPrivate.h"
#include "kxmd/mp4/atoms/KXMP4TagValuePrivate.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

/// The value of a tag that is a code of four characters; 0 for any other.
std::uint32_t codeOfTag(std::string_view tag)
{
    return KXFourCharacterCode::codeOfText(tag).value_or(KXFourCharacterCode()).value();
}

}

/// One tag of a path.
struct KXMP4Atom::PathStep {
    PathStep() = default;
    explicit PathStep(std::string_view tag)
        : text(tag)
        , code(codeOfTag(tag))
    {
    }

    std::string_view text;
    std::uint32_t code { 0 };
};

/// A path whose tags are taken one after the other.
class KXMP4Atom::Path {
public:
    explicit Path(std::string_view text)
        : _rest(text)
    {
    }

    bool isTaken() const { return _isTaken; }

    PathStep takeStep()
    {
        std::size_t const end = _rest.find('/');
        _isTaken = end == std::string_view::npos;
        PathStep const step(_rest.substr(0, end));
        _rest.remove_prefix(_isTaken ? _rest.size() : end + 1);
        return step;
    }

    /// Appends every atom below `top` at what is left of the path.
    void appendAtomsBelow(KXMP4Atom const& top, List& atoms)
    {
        // A search goes down the machine stack, which no length of a path may exhaust.
        std::array<PathStep, 8> steps;
        auto const takeSteps = [&] {
            std::size_t count = 0;
            while (count < steps.size() && !_isTaken)
                steps[count++] = takeStep();
            return std::span<PathStep const>(steps).first(count);
        };
        top.appendAtomsAt(takeSteps(), atoms);
        while (!_isTaken && !atoms.empty()) {
            List const matched = std::exchange(atoms, {});
            auto const next = takeSteps();
            for (Ref const& atom : matched)
                atom->appendAtomsAt(next, atoms);
        }
    }

private:
    std::string_view _rest;
    bool _isTaken { false };
};

KXMP4Atom::KXMP4Atom() = default;

KXMP4Atom::~KXMP4Atom()
{
    // A file may nest atoms by the hundred thousand: no destructor runs inside another, and the way
    // back up is kept in the parent links of the dying.
    for (KXMP4Atom* atom = this; atom != this || !_children.empty();) {
        if (atom->_children.empty()) {
            atom = atom->_parent; // Which lets go of it next, now that it is without children.
            continue;
        }
        Ref const& last = atom->_children.back();
        atom->letGoOf(*last);
        bool const diesWithUs = last.use_count() == 1;
        if (diesWithUs && !last->_children.empty()) {
            last->_parent = atom;
            atom = last.get();
        } else {
            atom->_children.pop_back();
        }
    }
    if (!_formerChildren)
        return;
    for (auto const& formerChild : *_formerChildren) {
        if (Ref const child = formerChild.lock())
            letGoOf(*child);
    }
}

std::string KXMP4Atom::tag() const { return givenTag().value_or(""); }

std::optional<std::string> KXMP4Atom::givenTag() const
{
    if (std::uint32_t const type = _type)
        return KXFourCharacterCode(type).text();
    std::scoped_lock const lock(_lock);
    if (std::uint32_t const newType = _type) // It was just replaced.
        return KXFourCharacterCode(newType).text();
    return _otherTag ? std::optional(*_otherTag) : std::nullopt;
}

void KXMP4Atom::setTag(std::string tag)
{
    std::uint32_t const code = codeOfTag(tag);
    auto other = code ? nullptr : std::make_unique<std::string>(std::move(tag));
    std::scoped_lock const lock(_lock);
    _otherTag.swap(other);
    _type = code;
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

void KXMP4Atom::setParent(KXMP4Atom* parent)
{
    _parent = parent;
    _isOutOfTree = false;
}

KXMP4Atom::List KXMP4Atom::children() const
{
    std::scoped_lock const lock(_lock);
    return _children;
}

void KXMP4Atom::addChild(Ref child)
{
    if (!child)
        return;
    std::scoped_lock const lock(_lock);
    _children.push_back(std::move(child));
}

void KXMP4Atom::removeChild(KXMP4Atom const& child)
{
    Ref removed; // Destroyed after the lock is left.
    std::scoped_lock const lock(_lock);
    auto const found = std::ranges::find(_children, &child, &Ref::get);
    if (found == _children.end())
        return;
    rememberFormerChild(*found);
    removed = *found;
    std::erase(_children, removed);
}

void KXMP4Atom::removeAllChildren()
{
    List removed; // Destroyed after the lock is left.
    std::scoped_lock const lock(_lock);
    for (Ref const& child : _children) {
        if (child.use_count() > 1)
            rememberFormerChild(child);
    }
    removed.swap(_children);
}

/// Remembers a child that is about to be removed: its link has to be cleared when this atom dies.
void KXMP4Atom::rememberFormerChild(Ref const& child)
{
    if (!_formerChildren)
        _formerChildren = std::make_unique<std::vector<std::weak_ptr<KXMP4Atom>>>();
    _formerChildren->push_back(child);
}

void KXMP4Atom::letGoOf(KXMP4Atom& child) const
{
    if (child._parent != this)
        return;
    child._parent = nullptr;
    child._isOutOfTree = true;
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
    constexpr std::uint32_t track = KXFourCharacterCode("trak").value();
    KXMP4Atom* atom = this;
    while (atom && atom->_type != track)
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

KXMP4Atom::List KXMP4Atom::allAtomsWithPath(std::string_view text)
{
    List atoms;
    Path path(text);
    if (text.empty() || (_parent && !isAt(path.takeStep())))
        return atoms;
    if (path.isTaken()) {
        Ref self = weak_from_this().lock();
        atoms.push_back(self ? std::move(self) : Ref(Ref(), this)); // Owned in its own way.
    } else {
        path.appendAtomsBelow(*this, atoms);
    }
    return atoms;
}

bool KXMP4Atom::isAt(PathStep const& step) const
{
    if (std::uint32_t const type = _type)
        return type == step.code;
    std::scoped_lock const lock(_lock);
    if (std::uint32_t const newType = _type) // It was just replaced.
        return newType == step.code;
    return _otherTag && *_otherTag == step.text;
}

/// Appends the atoms at a path that begins with the tag of a child.
void KXMP4Atom::appendAtomsAt(std::span<PathStep const> steps, List& atoms) const
{
    std::scoped_lock const lock(_lock);
    for (Ref const& child : _children) {
        if (!child->_parent)
            child->appendAtomsAt(steps, atoms);
        else if (!child->isAt(steps.front()))
            continue;
        else if (steps.size() == 1)
            atoms.push_back(child);
        else
            child->appendAtomsAt(steps.subspan(1), atoms);
    }
}

KXMP4Atom::Ref KXMP4Atom::lastAtomBelow(std::string_view pathBelow)
{
    List atoms;
    if (_parent)
        Path(pathBelow).appendAtomsBelow(*this, atoms);
    else
        atoms = allAtomsWithPath(tag().append("/").append(pathBelow));
    return atoms.empty() ? nullptr : std::move(atoms.back());
}

std::string KXMP4Atom::fullPath() const
{
    std::vector<KXMP4Atom const*> ancestors;
    for (KXMP4Atom const* atom = this; atom; atom = atom->_parent)
        ancestors.push_back(atom);
    std::string path;
    for (auto atom = ancestors.rbegin(); atom != ancestors.rend(); ++atom) {
        if (atom != ancestors.rbegin())
            path += '.';
        path += (*atom)->tag();
    }
    return path;
}

std::string KXMP4Atom::fullPathWithSize() const
{
    return fullPath() + " Size:" + std::to_string(static_cast<std::int64_t>(size()));
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
    std::string shownTag = tag();
    if (shownTag.empty() && !givenTag())
        shownTag = "(null)";
    std::string text = "MP4 Atom:" + shownTag + " - " + std::to_string(size());
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
    auto root = std::make_shared<KXMP4Atom>();
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
    std::uint32_t const type = _type;
    if (type ? !traitsOfType(KXFourCharacterCode(type)).hasText : !tagTypes.contains(tag()))
        return;
    if (auto text = readTagText(data))
        setContent(std::move(text));
}

std::optional<KXMDCodecInfo> KXMP4Atom::codecInfo() { return std::nullopt; }
