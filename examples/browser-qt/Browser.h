#pragma once

#include "../browser/DetailsReader.h"
#include "FileModel.h"

#include <QAction>
#include <QLabel>
#include <QListView>
#include <QMainWindow>
#include <QTimer>
#include <utility>

/// A window on a folder: a grid of its files, and what is told of the selected one beside it.
class Browser final : public QMainWindow {
public:
    /// A window that works by `platform`, whose main queue is that of Qt.
    explicit Browser(KXPlatform::Ref platform);

    /// Shows the folder at `path`, once it has been read.
    void openFolder(std::string const& path);

    // What an automatic test looks at.

    QListView& list() { return *_list; }
    FileModel& model() { return *_model; }
    PictureLoader const& loader() const { return *_loader; }
    bool isReadingFolder() const { return _isReadingFolder; }
    bool isBehind() const { return _look.isActive(); }
    VisibleFiles visibleFiles() const;
    std::string detailsText() const { return _details->text().toStdString(); }

private:
    void buildList();
    QWidget* newPane();

    std::pair<int, int> rowsInView() const;
    void askForVisiblePictures();

    void takeFolder(std::string const& path, std::optional<Files> files);
    void openParent();
    void showSelected(QModelIndex const& index);
    void showDetails(FileDetails const& details);

    KXPlatform::Ref const _platform;
    KXSerialQueue _folderQueue { "org.kxmd.browser.folder" };
    PictureLoader::Ref const _loader;
    DetailsReader _detailsReader;

    // Owned by the window.
    FileModel* const _model;
    QListView* const _list;
    QLabel* const _cover;
    QLabel* const _selectedName;
    QLabel* const _details;

    QTimer _look; // Looks what is in view, once the loop has done what it has to.
    std::string _path;
    unsigned _reading { 0 }; // The number of the folder that was asked for last.
    bool _isReadingFolder { false };
};
