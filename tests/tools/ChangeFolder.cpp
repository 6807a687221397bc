// A host that goes to another folder before it asks for a thumbnail: FOLDER PICTURE. Ends with 0
// when there is one.

#include <kxmd/kxmd.h>

#include <unistd.h>

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3 || ::chdir(arguments[1]) != 0)
        return 2;
    auto const& controller = KXMDThumbnailController::sharedController();
    return controller->thumbnailForPath(arguments[2], { 16, 16 }) ? 0 : 1;
}
