#include "Measure.h"

#include <optional>

namespace {

using Clock = HandlerTime::Clock;

MeasuredRun* measuredRun;
Clock::time_point wokeUp;

/// Waits for the loop's next events. Between two waits lies one turn of the loop: whatever its
/// sources do in it, ours and the toolkit's, nothing else can happen meanwhile.
gint pollBetweenTurns(GPollFD* files, guint count, gint timeout)
{
    measuredRun->addTurn(Clock::now() - wokeUp);
    gint const ready = g_poll(files, count, timeout);
    wokeUp = Clock::now();
    return ready;
}

}

/// A browser's window, for a run.
class Measure::Window final : public MeasuredWindow {
public:
    explicit Window(std::shared_ptr<Browser> const& browser)
        : _browser(browser)
    {
    }

    std::size_t fileCount() const override { return g_list_model_get_n_items(files()); }
    bool hasFolder() const override { return !_browser->isReadingFolder(); }
    VisibleFiles visibleFiles() const override { return _browser->visibleFiles(); }
    PictureLoader const& loader() const override { return _browser->loader(); }
    std::string detailsText() const override { return _browser->detailsText(); }
    void close() override
    {
        gtk_window_destroy(_browser->window());
        _browser = nullptr;
    }

    void scrollTo(double place) override
    {
        GtkAdjustment* const position = gtk_scrolled_window_get_vadjustment(_browser->scroller());
        double const end
            = gtk_adjustment_get_upper(position) - gtk_adjustment_get_page_size(position);
        gtk_adjustment_set_value(position, end * place);
    }

    bool selectFirstFile() override
    {
        auto const at = first(false);
        if (at)
            gtk_single_selection_set_selected(_browser->selection(), *at);
        return at.has_value();
    }

    bool openFirstFolder() override
    {
        auto const at = first(true);
        GtkWidget* const grid = gtk_scrolled_window_get_child(_browser->scroller());
        return at && gtk_widget_activate_action(grid, "list.activate-item", "u", *at);
    }

    void openParent() override
    {
        g_action_group_activate_action(G_ACTION_GROUP(_browser->window()), "up", nullptr);
    }

    void drawInto(std::string const& path) override
    {
        auto* const window = GTK_WIDGET(_browser->window());
        GRef<GdkPaintable> const contents(gtk_widget_paintable_new(window));
        GtkSnapshot* const snapshot = gtk_snapshot_new();
        gdk_paintable_snapshot(contents.get(), snapshot,
            gdk_paintable_get_intrinsic_width(contents.get()),
            gdk_paintable_get_intrinsic_height(contents.get()));
        GskRenderNode* const node = gtk_snapshot_free_to_node(snapshot);
        GskRenderer* const renderer = gtk_native_get_renderer(GTK_NATIVE(window));
        GRef<GdkTexture> const texture(gsk_renderer_render_texture(renderer, node, nullptr));
        gsk_render_node_unref(node);
        gdk_texture_save_to_png(texture.get(), path.c_str());
    }

private:
    GListModel* files() const { return G_LIST_MODEL(_browser->selection()); }

    /// Where the first folder is, or the first other file.
    std::optional<guint> first(bool isFolder) const
    {
        for (guint i = 0; i < fileCount(); ++i) {
            GRef<FileItem> const item(static_cast<FileItem*>(g_list_model_get_item(files(), i)));
            if (item->file->isFolder() == isFolder)
                return i;
        }
        return std::nullopt;
    }

    std::shared_ptr<Browser> _browser;
};

Measure::Measure(std::shared_ptr<Browser> const& browser, MeasuredRun& run)
    : _window(std::make_unique<Window>(browser))
{
    measuredRun = &run;
    wokeUp = Clock::now();
    g_main_context_set_poll_func(nullptr, pollBetweenTurns);
    gtk_widget_add_tick_callback(
        GTK_WIDGET(browser->window()),
        [](GtkWidget*, GdkFrameClock*, gpointer window) -> gboolean {
            return measuredRun->nextFrame(*static_cast<Window*>(window));
        },
        _window.get(), nullptr);
}

Measure::~Measure() { g_main_context_set_poll_func(nullptr, nullptr); }
