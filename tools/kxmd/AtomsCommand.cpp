// kxmd atoms: the atom tree of a file.

#include "Commands.h"
#include "JSONLine.h"
#include "Session.h"
#include "Usage.h"

#include <kxmd/base/KXPrintableText.h>
#include <kxmd/mp4/atoms/KXMP4Atom.h>

#include <memory>

namespace {

struct Options {
    std::string path;
    bool paths { false };
    bool json { false };
};

/// The full path of each atom of a depth-first visit, grown and cut as the visit goes down and up:
/// asked of each atom anew, paths would cost the square of the depth before the first line is out.
class RunningPath {
public:
    std::string const& pathOf(KXMP4Atom const& atom, std::size_t depth)
    {
        _lengths.resize(depth);
        _path.resize(_lengths.empty() ? 0 : _lengths.back());
        if (!_path.empty())
            _path += '.';
        _path += atom.tag();
        _lengths.push_back(_path.size());
        return _path;
    }

private:
    std::string _path;
    std::vector<std::size_t> _lengths; // Of the path to the atom at each depth.
};

std::string pathLine(std::string const& path, KXMP4Atom const& atom)
{
    // Signed, as in the library's own list of paths.
    return KXTextWithoutControlCharacters(path)
        + " Size:" + std::to_string(static_cast<std::int64_t>(atom.size())) + '\n';
}

std::string atomJSON(std::string const& path, KXMP4Atom const& atom, std::size_t depth)
{
    JSON object { { "depth", depth }, { "offset", atom.offset() }, { "size", atom.size() },
        { "tag", atom.tag() }, { "path", path } };
    if (auto const content = atom.content())
        object["content"] = *content;
    return jsonLine(object);
}

/// Prints a tree line by line, up to a bound: what a small file of deeply nested atoms has to show
/// grows with the square of its depth, to hundreds of gigabytes.
class TreePrinter {
public:
    TreePrinter(Options const& options, Session& session)
        : _options(options)
        , _session(session)
    {
    }

    void print(KXMP4Atom& root)
    {
        root.visitDepthFirst(
            [this](KXMP4Atom& atom, std::size_t depth) { return printLine(lineOf(atom, depth)); });
    }

private:
    static constexpr std::uint64_t outputBound = 256ull << 20; // Bytes.

    std::string lineOf(KXMP4Atom& atom, std::size_t depth)
    {
        if (_options.json)
            return atomJSON(_path.pathOf(atom, depth), atom, depth);
        if (_options.paths)
            return pathLine(_path.pathOf(atom, depth), atom);
        return std::string(depth, '\t') + KXTextWithoutControlCharacters(atom.description()) + '\n';
    }

    bool printLine(std::string const& line)
    {
        if (line.size() > outputBound - _printed) {
            _session.reportError(
                _options.path, "the tree is too large to print, the rest is left out");
            return false;
        }
        _printed += line.size();
        return _session.write(line);
    }

    Options const& _options;
    Session& _session;
    RunningPath _path;
    std::uint64_t _printed { 0 };
};

void showAtoms(Options const& options, Session& session)
{
    auto const data = KXAbstractData::abstractDataWithPath(options.path);
    if (!data)
        return session.reportUnreadable(options.path);
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    TreePrinter(options, session).print(*root);
    session.reportReadError(options.path, data->readError());
}

void addOptions(CLI::App& command, Session& session)
{
    auto const options = std::make_shared<Options>();
    auto* const paths = command.add_flag("--paths", options->paths, "Print full paths and sizes");
    command.add_flag("--json", options->json, "Print one JSON object per atom")->excludes(paths);
    addFile(command, options->path, "File to look at");
    command.callback([options, &session] { showAtoms(*options, session); });
}

}

Command const atomsCommand { .name = "atoms",
    .description = "Print the atom tree of a file",
    .group = lookingGroup,
    .examples = R"(    kxmd atoms film.mp4            the tree, indented
    kxmd atoms --paths film.mp4    the path and the size of each atom)",
    .nature = Command::Nature::reads,
    .addOptions = addOptions };
