#include "Browser.h"

#include "../browser/HandlerTime.h"

#include <algorithm>
#include <filesystem>

namespace {

constexpr int pictureSide = 128; // Points.
constexpr int coverSide = 260; // Points.
// GTK keeps thirty rows of cells, in view or not, so a wide window should not make hundreds.
constexpr unsigned mostColumns = 7;
constexpr std::size_t cellsKept = 30 * mostColumns;
constexpr std::size_t filesAtOnce = 20;

/// A texture over the very bytes of `image`: nothing is copied, and the bytes keep the image alive.
GRef<GdkPaintable> textureOfImage(KXImage::Ref const& image)
{
    auto const pixels = image->pixels();
    GBytes* const bytes = g_bytes_new_with_free_func(
        pixels.data(), pixels.size(),
        [](gpointer kept) { delete static_cast<KXImage::Ref*>(kept); }, new KXImage::Ref(image));
    GdkTexture* const texture = gdk_memory_texture_new(static_cast<int>(image->pixelWidth()),
        static_cast<int>(image->pixelHeight()), GDK_MEMORY_R8G8B8A8_PREMULTIPLIED, bytes,
        image->pixelWidth() * KXImage::bytesPerPixel);
    g_bytes_unref(bytes);
    return GRef<GdkPaintable>(GDK_PAINTABLE(texture));
}

/// What a path's last component looks like; names of files need not be UTF-8.
std::string shownName(std::string const& path)
{
    char* const name = g_filename_display_basename(path.c_str());
    std::string shown = name;
    g_free(name);
    return shown;
}

/// Objects of GLib for the files.
std::shared_ptr<std::vector<gpointer>> itemsOfFiles(Files const& files)
{
    auto* const items = new std::vector<gpointer>;
    items->reserve(files.size());
    for (auto const& file : files)
        items->push_back(newFileItem(file));
    return { items, [](auto* kept) {
                std::ranges::for_each(*kept, g_object_unref);
                delete kept;
            } };
}

}

std::shared_ptr<Browser> Browser::createForApplication(
    GtkApplication* application, std::string const& path)
{
    std::shared_ptr<Browser> browser(new Browser);
    browser->buildWindow(application);
    // Larger screens show more pixels in a point.
    auto const scale = gtk_widget_get_scale_factor(GTK_WIDGET(browser->_window));
    browser->_loader = PictureLoader::create(browser->_platform, pictureSide * scale,
        {
            .pictureCame = [self = browser.get()](auto const& file,
                               auto const& picture) { self->takePicture(file, picture); },
            .iconCame =
                [self = browser.get()] {
                    std::ranges::for_each(
                        self->_cells, [self](Cell* cell) { self->showIcon(*cell); });
                },
        });
    browser->_detailsReader = std::make_unique<DetailsReader>(browser->_platform, coverSide * scale,
        [self = browser.get()](FileDetails const& details) { self->showDetails(details); });
    // The window owns the browser. It is destroyed after its widgets, which still call us.
    g_signal_connect(browser->_window, "destroy", G_CALLBACK(+[](GtkWidget*, gpointer kept) {
        delete static_cast<std::shared_ptr<Browser>*>(kept);
    }),
        new std::shared_ptr<Browser>(browser));
    gtk_window_present(browser->_window);
    browser->openFolder(path);
    return browser;
}

// The window.

void Browser::buildWindow(GtkApplication* application)
{
    _window = GTK_WINDOW(gtk_application_window_new(application));
    gtk_window_set_default_size(_window, 1100, 720);

    GSimpleAction* const up = g_simple_action_new("up", nullptr);
    g_signal_connect_swapped(
        up, "activate", G_CALLBACK(+[](Browser* self) { self->openParent(); }), this);
    g_action_map_add_action(G_ACTION_MAP(_window), G_ACTION(up));
    g_object_unref(up);
    char const* const keys[] { "<Alt>Up", "BackSpace", nullptr };
    gtk_application_set_accels_for_action(application, "win.up", keys);
    GtkWidget* const back = gtk_button_new_from_icon_name("go-up-symbolic");
    gtk_widget_set_tooltip_text(back, "Open the folder that this one is in");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(back), "win.up");
    GtkWidget* const bar = gtk_header_bar_new();
    gtk_header_bar_pack_start(GTK_HEADER_BAR(bar), back);
    gtk_window_set_titlebar(_window, bar);

    _scroller = GTK_SCROLLED_WINDOW(gtk_scrolled_window_new());
    gtk_widget_set_hexpand(GTK_WIDGET(_scroller), TRUE);
    gtk_scrolled_window_set_policy(_scroller, GTK_POLICY_NEVER, GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_child(_scroller, newGrid());
    GtkAdjustment* const position = gtk_scrolled_window_get_vadjustment(_scroller);
    auto const haveMoved = G_CALLBACK(+[](Browser* self) { self->_hasMoved = true; });
    g_signal_connect_swapped(position, "value-changed", haveMoved, this);
    g_signal_connect_swapped(position, "changed", haveMoved, this); // Other sizes.

    GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_box_append(GTK_BOX(box), GTK_WIDGET(_scroller));
    gtk_box_append(GTK_BOX(box), gtk_separator_new(GTK_ORIENTATION_VERTICAL));
    gtk_box_append(GTK_BOX(box), newPane());
    gtk_window_set_child(_window, box);

    g_signal_connect_swapped(
        _window, "realize", G_CALLBACK(+[](Browser* self) { self->watchFrames(); }), this);
}

/// Looks after each frame: where cells are is known when it has been laid out, and not before.
void Browser::watchFrames()
{
    _frameClock.reset(
        GDK_FRAME_CLOCK(g_object_ref(gtk_widget_get_frame_clock(GTK_WIDGET(_window)))));
    g_signal_connect_swapped(_frameClock.get(), "after-paint",
        G_CALLBACK(+[](Browser* self) { self->askForVisiblePictures(); }), this);
}

Browser::~Browser()
{
    if (_frameClock) // It may live longer than the window.
        g_signal_handlers_disconnect_by_data(_frameClock.get(), this);
    if (_addingSource)
        g_source_remove(_addingSource);
}

GtkWidget* Browser::newGrid()
{
    GtkListItemFactory* const factory = gtk_signal_list_item_factory_new();
    using Handler = void (*)(GtkListItemFactory*, GtkListItem*, Browser*);
    Handler const setup = [](auto*, auto* place, auto* self) { self->makeCell(place); };
    Handler const bind = [](auto*, auto* place, auto* self) { self->showFile(cellIn(place)); };
    Handler const unbind = [](auto*, auto* place, auto* self) { self->hideFile(cellIn(place)); };
    g_signal_connect(factory, "setup", G_CALLBACK(setup), this);
    g_signal_connect(factory, "bind", G_CALLBACK(bind), this);
    g_signal_connect(factory, "unbind", G_CALLBACK(unbind), this);

    _store = g_list_store_new(fileItemType());
    _selection = gtk_single_selection_new(G_LIST_MODEL(_store));
    gtk_single_selection_set_autoselect(_selection, FALSE);
    gtk_single_selection_set_can_unselect(_selection, TRUE);
    g_signal_connect_swapped(_selection, "notify::selected-item",
        G_CALLBACK(+[](Browser* self) { self->showSelected(); }), this);

    GtkWidget* const grid = gtk_grid_view_new(GTK_SELECTION_MODEL(_selection), factory);
    gtk_grid_view_set_max_columns(GTK_GRID_VIEW(grid), mostColumns);
    g_signal_connect(grid, "activate", G_CALLBACK(+[](GtkGridView*, guint at, Browser* self) {
        auto* const item
            = static_cast<FileItem*>(g_list_model_get_item(G_LIST_MODEL(self->_selection), at));
        GRef<FileItem> const kept(item);
        if (item->file->isFolder())
            self->openFolder(item->file->sourcePath());
    }),
        this);
    return grid;
}

GtkWidget* Browser::newPane()
{
    _cover = GTK_PICTURE(gtk_picture_new());
    gtk_widget_set_size_request(GTK_WIDGET(_cover), coverSide, coverSide);
    _selectedName = GTK_LABEL(gtk_label_new("Select a file."));
    _details = GTK_LABEL(gtk_label_new(nullptr));
    GtkWidget* const pane = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    gtk_widget_set_size_request(pane, coverSide, -1);
    gtk_box_append(GTK_BOX(pane), GTK_WIDGET(_cover));
    gtk_widget_add_css_class(GTK_WIDGET(_selectedName), "heading");
    for (GtkLabel* const label : { _selectedName, _details }) {
        gtk_label_set_xalign(label, 0);
        gtk_label_set_wrap(label, TRUE);
        gtk_label_set_wrap_mode(label, PANGO_WRAP_WORD_CHAR);
        gtk_label_set_selectable(label, TRUE);
        gtk_label_set_max_width_chars(label, 1); // As wide as the pane, however long the text.
        gtk_box_append(GTK_BOX(pane), GTK_WIDGET(label));
    }
    for (auto const setMargin : { gtk_widget_set_margin_start, gtk_widget_set_margin_end,
             gtk_widget_set_margin_top, gtk_widget_set_margin_bottom })
        setMargin(pane, 12);
    return pane;
}

// Cells.

void Browser::makeCell(GtkListItem* place)
{
    HandlerTime const time;
    GtkWidget* const picture = gtk_picture_new();
    gtk_widget_set_size_request(picture, pictureSide, pictureSide);
    // A label would have the grid laid out again for each new text; this one keeps its size.
    GtkWidget* const name = gtk_inscription_new(nullptr);
    gtk_inscription_set_text_overflow(
        GTK_INSCRIPTION(name), GTK_INSCRIPTION_OVERFLOW_ELLIPSIZE_END);
    gtk_inscription_set_min_lines(GTK_INSCRIPTION(name), 2);
    gtk_inscription_set_xalign(GTK_INSCRIPTION(name), 0.5F);
    gtk_inscription_set_yalign(GTK_INSCRIPTION(name), 0);
    GtkWidget* const box = gtk_box_new(GTK_ORIENTATION_VERTICAL, 4);
    gtk_box_append(GTK_BOX(box), picture);
    gtk_box_append(GTK_BOX(box), name);
    gtk_list_item_set_child(place, box);
    auto* const cell = new Cell { place, GTK_PICTURE(picture), GTK_INSCRIPTION(name) };
    g_object_set_data_full(
        G_OBJECT(place), "cell", cell, [](gpointer kept) { delete static_cast<Cell*>(kept); });
}

Browser::Cell& Browser::cellIn(GtkListItem* place)
{
    return *static_cast<Cell*>(g_object_get_data(G_OBJECT(place), "cell"));
}

void Browser::showFile(Cell& cell)
{
    HandlerTime const time;
    _cells.push_back(&cell);
    _hasMoved = true;
    gtk_inscription_set_text(cell.name, shownName(cell.item().file->sourcePath()).c_str());
    showIcon(cell);
}

void Browser::hideFile(Cell& cell)
{
    HandlerTime const time;
    std::erase(_cells, &cell);
    cell.hasPicture = false;
    gtk_picture_set_paintable(cell.picture, nullptr);
}

void Browser::showIcon(Cell& cell)
{
    HandlerTime const time;
    if (cell.hasPicture)
        return;
    if (auto const icon = _loader->iconForFile(cell.item().file))
        gtk_picture_set_paintable(cell.picture, textureOfIcon(icon));
}

/// The texture that all cells with the icon share, so that it goes to the graphics card once.
GdkPaintable* Browser::textureOfIcon(KXImage::Ref const& icon)
{
    auto& texture = _icons[icon];
    if (!texture)
        texture = textureOfImage(icon);
    return texture.get();
}

bool Browser::isVisible(Cell const& cell) const
{
    graphene_rect_t bounds;
    GtkWidget* const scroller = GTK_WIDGET(_scroller);
    GtkWidget* const child = gtk_list_item_get_child(cell.place);
    // A cell far out of view is not mapped, and its place is one of earlier.
    return gtk_widget_get_mapped(child) && gtk_widget_compute_bounds(child, scroller, &bounds)
        && bounds.origin.y < static_cast<float>(gtk_widget_get_height(scroller))
        && bounds.origin.y + bounds.size.height > 0;
}

/// Tells the loader what the window shows. GTK makes cells for many more files than are in view.
void Browser::askForVisiblePictures()
{
    if (!_hasMoved)
        return;
    HandlerTime const time;
    _hasMoved = false;
    std::vector<Cell const*> lacking;
    std::ranges::copy_if(_cells, std::back_inserter(lacking), [this](Cell const* cell) {
        return !cell->hasPicture && !cell->item().hasNoPicture && isVisible(*cell);
    });
    std::ranges::sort(
        lacking, {}, [](Cell const* cell) { return gtk_list_item_get_position(cell->place); });
    Files wanted;
    for (Cell const* const cell : lacking)
        wanted.push_back(cell->item().file);
    _loader->setWanted(std::move(wanted));
}

void Browser::takePicture(KXDCFile::Ref const& file, KXImage::Ref const& picture)
{
    HandlerTime const time;
    auto const found
        = std::ranges::find(_cells, file, [](Cell const* cell) { return cell->item().file; });
    if (found == _cells.end())
        return; // It has been scrolled away.
    Cell& cell = **found;
    cell.item().hasNoPicture = !picture;
    if (!picture)
        return;
    cell.hasPicture = true;
    gtk_picture_set_paintable(cell.picture, textureOfImage(picture).get());
}

VisibleFiles Browser::visibleFiles() const
{
    VisibleFiles visible;
    for (Cell const* const cell : _cells) {
        if (!isVisible(*cell))
            continue;
        ++visible.files;
        visible.withPicture += cell->hasPicture;
        visible.withoutPicture += cell->item().hasNoPicture;
    }
    return visible;
}

// Folders.

void Browser::openFolder(std::string const& path)
{
    _isReadingFolder = true;
    _folderQueue.async(
        [weakSelf = weak_from_this(), platform = _platform, path, reading = ++_reading] {
            auto const files = filesInFolder(path);
            auto const items = files ? itemsOfFiles(*files) : nullptr;
            platform->mainQueue->async([weakSelf, path, reading, items] {
                auto const self = weakSelf.lock();
                if (self && self->_reading == reading) // Or the user has gone on.
                    self->takeFolder(path, items);
            });
        });
}

void Browser::takeFolder(std::string const& path, Items items)
{
    HandlerTime const time;
    if (!items) {
        _isReadingFolder = false;
        gtk_window_set_title(_window, (shownName(path) + " cannot be read").c_str());
        return;
    }
    _path = path;
    gtk_window_set_title(
        _window, (shownName(path) + " – " + std::to_string(items->size()) + " files").c_str());
    g_list_store_remove_all(_store);
    // To let go of ten thousand objects takes its time as well: the other thread does.
    _items.swap(items);
    _folderQueue.async([kept = std::move(items)] {});
    if (!_addingSource)
        _addingSource = g_idle_add(
            [](gpointer self) { return static_cast<Browser*>(self)->addFiles(); }, this);
}

/// Adds the next files to the grid, and says whether more are left. GTK makes all the cells that it
/// keeps as soon as there are files for them, which takes longer than a frame may: so the first
/// files come in pieces.
gboolean Browser::addFiles()
{
    HandlerTime const time;
    std::size_t const added = g_list_model_get_n_items(G_LIST_MODEL(_store));
    std::size_t const left = _items->size() - added;
    std::size_t const count = added < cellsKept ? std::min(left, filesAtOnce) : left;
    g_list_store_splice(
        _store, static_cast<guint>(added), 0, _items->data() + added, static_cast<guint>(count));
    if (count < left)
        return G_SOURCE_CONTINUE;
    _addingSource = 0;
    _isReadingFolder = false;
    return G_SOURCE_REMOVE;
}

void Browser::openParent()
{
    if (!_path.empty())
        openFolder(std::filesystem::path(_path).parent_path());
}

// The selected file.

void Browser::showSelected()
{
    HandlerTime const time;
    auto* const item = static_cast<FileItem*>(gtk_single_selection_get_selected_item(_selection));
    gtk_widget_set_visible(GTK_WIDGET(_cover), FALSE);
    gtk_label_set_text(_details, nullptr);
    gtk_label_set_text(
        _selectedName, item ? shownName(item->file->sourcePath()).c_str() : "Select a file.");
    if (item)
        _detailsReader->read(item->file);
}

void Browser::showDetails(FileDetails const& details)
{
    HandlerTime const time;
    std::string text;
    for (auto const& [name, value] : details.rows)
        text.append(name).append(": ").append(value).append("\n");
    gtk_label_set_text(_details, text.c_str());
    gtk_widget_set_visible(GTK_WIDGET(_cover), details.picture != nullptr);
    if (details.picture)
        gtk_picture_set_paintable(_cover, textureOfImage(details.picture).get());
}
