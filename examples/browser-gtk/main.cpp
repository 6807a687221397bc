// A file browser: a grid of a folder's files with their pictures, and what is in the selected one.
//
//     browser-gtk [FOLDER]
//     browser-gtk --measure FOLDER SCREENSHOT.png
//     browser-gtk --close-while-loading FOLDER

#include "Measure.h"

#include <filesystem>
#include <optional>
#include <string_view>

namespace {

struct Start {
    std::string folder { "." };
    std::optional<MeasuredRun> run;
    std::unique_ptr<Measure> measure;
};

void activate(GApplication* application, Start* start)
{
    auto path = std::filesystem::absolute(start->folder).lexically_normal();
    if (!path.has_filename()) // It ends with a slash.
        path = path.parent_path();
    auto const browser = Browser::createForApplication(GTK_APPLICATION(application), path);
    if (start->run)
        start->measure = std::make_unique<Measure>(browser, *start->run);
}

}

int main(int argumentCount, char** arguments)
{
    Start start;
    std::string_view const option = argumentCount > 2 ? arguments[1] : "";
    if (option == "--measure" && argumentCount == 4)
        start.run.emplace(MeasuredRun::Kind::whole, arguments[3]);
    else if (option == "--close-while-loading" && argumentCount == 3)
        start.run.emplace(MeasuredRun::Kind::closeWhileLoading, "");
    else if (argumentCount > 2) {
        g_printerr("Usage: browser-gtk [FOLDER]\n");
        return 2;
    }
    if (argumentCount > 1)
        start.folder = arguments[start.run ? 2 : 1];

    // A window of its own for each start, so no other process is asked to show it.
    GtkApplication* const application
        = gtk_application_new("org.example.KXBrowser", G_APPLICATION_NON_UNIQUE);
    g_signal_connect(application, "activate", G_CALLBACK(activate), &start);
    int const status = g_application_run(G_APPLICATION(application), 0, nullptr);
    g_object_unref(application);
    if (start.run)
        start.run->print();
    return status;
}
