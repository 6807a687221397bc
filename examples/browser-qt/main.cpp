// A file browser: a grid of a folder's files with their pictures, and what is in the selected one.
//
//     browser-qt [FOLDER]
//     browser-qt --measure FOLDER SCREENSHOT.png
//     browser-qt --close-while-loading FOLDER

#include "Measure.h"
#include "QtMainQueue.h"

#include <filesystem>
#include <iostream>
#include <optional>
#include <string_view>

namespace {

std::string absolutePath(std::string const& folder)
{
    auto path = std::filesystem::absolute(folder).lexically_normal();
    return path.has_filename() ? path : path.parent_path(); // Without a slash at its end.
}

}

int main(int argumentCount, char** arguments)
{
    MeasuredApplication application(argumentCount, arguments);
    std::string_view const option = argumentCount > 2 ? arguments[1] : "";
    std::optional<MeasuredRun> run;
    if (option == "--measure" && argumentCount == 4)
        run.emplace(MeasuredRun::Kind::whole, arguments[3]);
    else if (option == "--close-while-loading" && argumentCount == 3)
        run.emplace(MeasuredRun::Kind::closeWhileLoading, "");
    else if (argumentCount > 2) {
        std::cerr << "Usage: browser-qt [FOLDER]\n";
        return 2;
    }

    // This machine's services, whose handlers come through Qt.
    auto const mainQueue = std::make_shared<QtMainQueue>();
    KXPlatform platform = *KXPlatform::platformOfThisMachine();
    platform.mainQueue = mainQueue;
    int status = 0;
    {
        Browser browser(std::make_shared<KXPlatform const>(std::move(platform)));
        browser.openFolder(absolutePath(argumentCount > 1 ? arguments[run ? 2 : 1] : "."));
        browser.show();
        if (run)
            application.driveBrowser(browser, *run);
        status = MeasuredApplication::exec();
    }
    mainQueue->close();
    if (run)
        run->print();
    return status;
}
