// A window with the picture of one file, which comes when it is ready.

//! [all]
#include <kxmd/kxmd.h>

#include <gtk/gtk.h>

// Our pixels are red, green, blue, alpha; cairo's are blue first on little-endian machines.
static void show(GtkWidget* view, KXImage const& image)
{
    int const width = static_cast<int>(image.pixelWidth());
    int const height = static_cast<int>(image.pixelHeight());
    cairo_surface_t* const surface
        = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    unsigned char* to = cairo_image_surface_get_data(surface); // Rows without gaps.
    for (std::size_t i = 0; i < image.pixels().size(); i += 4, to += 4) {
        auto const pixel = image.pixels().subspan(i, 4);
        to[0] = pixel[2], to[1] = pixel[1], to[2] = pixel[0], to[3] = pixel[3];
    }
    cairo_surface_mark_dirty(surface);
    gtk_image_set_from_surface(GTK_IMAGE(view), surface);
    cairo_surface_destroy(surface);
}

int main(int argumentCount, char** arguments)
{
    gtk_init(&argumentCount, &arguments);
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* const view = gtk_image_new_from_icon_name("image-loading", GTK_ICON_SIZE_DIALOG);
    gtk_container_add(GTK_CONTAINER(window), view);
    g_signal_connect(window, "destroy", gtk_main_quit, nullptr);
    gtk_widget_show_all(window);

    auto const& controller = KXMDThumbnailController::sharedController();
    auto const cached = controller->thumbnailForPath(
        "holiday.mp4", { 256, 256 }, [view](KXImage::Ref const& image) {
            if (image) // GTK's main loop has called us.
                show(view, *image);
            g_print("%s\n", image ? "shown" : "nothing to show");
        });
    if (cached) // It was in the cache; the handler is not called.
        show(view, *cached);
    gtk_main();
}
//! [all]
