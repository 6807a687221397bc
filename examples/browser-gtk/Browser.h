#pragma once

#include "../browser/DetailsReader.h"
#include "../browser/PictureLoader.h"
#include "FileItem.h"

#include <gtk/gtk.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Lets go of an object of GLib.
struct Unreference {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <class Object> using GRef = std::unique_ptr<Object, Unreference>;

/// A window on a folder: a grid of its files, and what is told of the selected one beside it. Lives
/// as long as its window.
class Browser : public std::enable_shared_from_this<Browser> {
public:
    /// Makes a window of `application` and opens the folder at `path` in it.
    static std::shared_ptr<Browser> createForApplication(
        GtkApplication* application, std::string const& path);

    ~Browser();

    /// Shows the folder at `path`, once it has been read.
    void openFolder(std::string const& path);

    // What an automatic test looks at.

    GtkWindow* window() const { return _window; }
    GtkScrolledWindow* scroller() const { return _scroller; }
    GtkSingleSelection* selection() const { return _selection; }
    PictureLoader const& loader() const { return *_loader; }
    bool isReadingFolder() const { return _isReadingFolder; }
    VisibleFiles visibleFiles() const;
    std::string detailsText() const { return gtk_label_get_text(_details); }

private:
    /// The widgets of one place in the grid, which GTK uses for one file after the other.
    struct Cell {
        GtkListItem* place; // Owns the cell.
        GtkPicture* picture;
        GtkInscription* name;
        bool hasPicture { false };

        FileItem& item() const { return *static_cast<FileItem*>(gtk_list_item_get_item(place)); }
    };

    /// Objects of GLib for the files of a folder.
    using Items = std::shared_ptr<std::vector<gpointer>>;

    Browser() = default;

    void buildWindow(GtkApplication* application);
    void watchFrames();
    GtkWidget* newGrid();
    GtkWidget* newPane();

    void makeCell(GtkListItem* place);
    static Cell& cellIn(GtkListItem* place);
    void showFile(Cell& cell);
    void hideFile(Cell& cell);
    void showIcon(Cell& cell);
    bool isVisible(Cell const& cell) const;
    void askForVisiblePictures();
    void takePicture(KXDCFile::Ref const& file, KXImage::Ref const& picture);
    GdkPaintable* textureOfIcon(KXImage::Ref const& icon);

    void takeFolder(std::string const& path, Items items);
    gboolean addFiles();
    void openParent();
    void showSelected();
    void showDetails(FileDetails const& details);

    KXPlatform::Ref const _platform { KXPlatform::shared() };
    KXSerialQueue _folderQueue { "org.kxmd.browser.folder" };
    PictureLoader::Ref _loader;
    std::unique_ptr<DetailsReader> _detailsReader;

    GtkWindow* _window { nullptr };
    GRef<GdkFrameClock> _frameClock;
    GtkScrolledWindow* _scroller { nullptr };
    GListStore* _store { nullptr };
    GtkSingleSelection* _selection { nullptr };
    GtkPicture* _cover { nullptr };
    GtkLabel* _selectedName { nullptr };
    GtkLabel* _details { nullptr };

    std::string _path;
    unsigned _reading { 0 }; // The number of the folder that was asked for last.
    bool _isReadingFolder { false };
    Items _items; // All of the folder's; the store has those that were added.
    guint _addingSource { 0 };
    bool _hasMoved { false }; // The window may show other files than the loader knows of.
    std::vector<Cell*> _cells; // Those that stand for a file, in view or near it.
    std::map<KXImage::Ref, GRef<GdkPaintable>> _icons;
};
