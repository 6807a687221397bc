// Prints what the library itself says of a file's atom tree, for the tests to hold the command
// against.

#include "kxmd/mp4/atoms/KXMP4Atom.h"

#include <cstdio>
#include <string_view>

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3)
        return 2;
    auto const data = KXAbstractData::abstractDataWithPath(arguments[2]);
    if (!data)
        return 1;
    auto const root = KXMP4Atom::atomWithAbstractData(*data);
    std::string const text = std::string_view(arguments[1]) == "--paths"
        ? root->allPaths()
        : root->recursiveDescriptionWithInset(0);
    return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
