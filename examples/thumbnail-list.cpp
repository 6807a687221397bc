// Lists a folder with the pictures of its files, which arrive one by one while the window is there.
//
//     thumbnail-list FOLDER [SCREENSHOT.png]
//
// With a second argument it draws the window into that file once every picture has come, and ends.

#include <kxmd/thumbnails/KXMDThumbnailController.h>

#include <algorithm>
#include <filesystem>
#include <gtk/gtk.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr KXSize thumbnailSize { 128, 128 };

/// The window and what is still awaited.
struct List {
    GtkWidget* window { nullptr };
    GtkWidget* box { nullptr };
    std::string screenshot;
    std::size_t awaited { 0 };
    std::size_t shown { 0 };
    std::size_t onOtherThreads { 0 };
    std::thread::id const mainThread { std::this_thread::get_id() };
};

/// The picture as a surface of cairo, whose pixels are blue first on the machines that we know.
cairo_surface_t* surfaceOfImage(KXImage const& image)
{
    auto const width = static_cast<int>(image.pixelWidth());
    auto const height = static_cast<int>(image.pixelHeight());
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_surface_flush(surface);
    unsigned char* const pixels = cairo_image_surface_get_data(surface);
    auto const rowLength = static_cast<std::size_t>(cairo_image_surface_get_stride(surface));
    std::uint8_t const* from = image.pixels().data();
    for (std::size_t y = 0; y < image.pixelHeight(); ++y) {
        unsigned char* to = pixels + y * rowLength;
        for (std::size_t x = 0; x < image.pixelWidth(); ++x, from += 4, to += 4) {
            to[0] = from[2];
            to[1] = from[1];
            to[2] = from[0];
            to[3] = from[3];
        }
    }
    cairo_surface_mark_dirty(surface);
    return surface;
}

void showImage(GtkImage& view, KXImage const& image)
{
    cairo_surface_t* const surface = surfaceOfImage(image);
    gtk_image_set_from_surface(&view, surface);
    cairo_surface_destroy(surface);
}

gboolean takeScreenshot(gpointer listPointer)
{
    auto const& list = *static_cast<List const*>(listPointer);
    int const width = gtk_widget_get_allocated_width(list.window);
    int const height = gtk_widget_get_allocated_height(list.window);
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_t* const context = cairo_create(surface);
    gtk_widget_draw(list.window, context);
    cairo_destroy(context);
    cairo_surface_write_to_png(surface, list.screenshot.c_str());
    cairo_surface_destroy(surface);
    gtk_main_quit();
    return G_SOURCE_REMOVE;
}

/// Counts an answer; after the last one the window has a moment to draw itself.
void countAnswer(List& list, bool isPicture)
{
    list.shown += isPicture;
    list.onOtherThreads += std::this_thread::get_id() != list.mainThread;
    if (--list.awaited == 0 && !list.screenshot.empty())
        g_timeout_add(200, takeScreenshot, &list);
}

/// Adds a file with the icon of its type, until its picture comes.
void addFile(List& list, std::filesystem::path const& path)
{
    auto const& controller = KXMDThumbnailController::sharedController();
    auto const file = std::make_shared<KXDCSimpleFile>(path.string());
    GtkWidget* const view = gtk_image_new();
    gtk_widget_set_size_request(view, 140, 140);
    GtkWidget* const label = gtk_label_new(file->filename().c_str());
    gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_MIDDLE);
    gtk_label_set_max_width_chars(GTK_LABEL(label), 16);
    GtkWidget* const cell = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    gtk_container_add(GTK_CONTAINER(cell), view);
    gtk_container_add(GTK_CONTAINER(cell), label);
    gtk_container_add(GTK_CONTAINER(list.box), cell);
    if (auto const icon = controller->iconForFile(*file, { 64, 64 }))
        showImage(*GTK_IMAGE(view), *icon);

    ++list.awaited;
    auto const cached
        = controller->thumbnailForFile(file, thumbnailSize, [&list, view](KXImage::Ref image) {
              if (image)
                  showImage(*GTK_IMAGE(view), *image);
              countAnswer(list, image != nullptr);
          });
    if (cached) { // Then the handler is not called.
        showImage(*GTK_IMAGE(view), *cached);
        countAnswer(list, true);
    }
}

std::vector<std::filesystem::path> filesOfFolder(char const* folder)
{
    std::vector<std::filesystem::path> paths;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.is_regular_file())
            paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    return paths;
}

void buildWindow(List& list)
{
    list.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_default_size(GTK_WINDOW(list.window), 900, 700);
    g_signal_connect(list.window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
    GtkWidget* const scroller = gtk_scrolled_window_new(nullptr, nullptr);
    list.box = gtk_flow_box_new();
    gtk_flow_box_set_selection_mode(GTK_FLOW_BOX(list.box), GTK_SELECTION_NONE);
    gtk_flow_box_set_max_children_per_line(GTK_FLOW_BOX(list.box), 6);
    gtk_container_add(GTK_CONTAINER(scroller), list.box);
    gtk_container_add(GTK_CONTAINER(list.window), scroller);
}

}

int main(int argumentCount, char** arguments)
{
    gtk_init(&argumentCount, &arguments);
    if (argumentCount < 2) {
        g_printerr("Usage: thumbnail-list FOLDER [SCREENSHOT.png]\n");
        return 2;
    }
    List list;
    list.screenshot = argumentCount > 2 ? arguments[2] : "";
    buildWindow(list);
    auto const paths = filesOfFolder(arguments[1]);
    for (auto const& path : paths)
        addFile(list, path);
    gtk_widget_show_all(list.window);
    gtk_main();
    g_print("%zu files, %zu with a picture, %zu answers on another thread than the main one\n",
        paths.size(), list.shown, list.onOtherThreads);
    return list.onOtherThreads || list.awaited ? 1 : 0;
}
