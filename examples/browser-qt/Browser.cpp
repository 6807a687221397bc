#include "Browser.h"

#include "../browser/HandlerTime.h"
#include "PictureDelegate.h"

#include <QPointer>
#include <QScrollBar>
#include <QSplitter>
#include <QToolBar>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>

namespace {

constexpr int coverSide = 260;

}

Browser::Browser(KXPlatform::Ref platform)
    : _platform(std::move(platform))
    // Larger screens show more pixels in a point.
    , _loader(PictureLoader::create(_platform, PictureDelegate::pictureSide * devicePixelRatio(),
          {
              .pictureCame =
                  [this](auto const& file, auto const& picture) {
                      HandlerTime const time;
                      _model->takePicture(file, picture);
                  },
              .iconCame =
                  [this] {
                      HandlerTime const time;
                      _model->takeIcons();
                  },
          }))
    , _detailsReader(_platform, coverSide * devicePixelRatio(),
          [this](FileDetails const& details) { showDetails(details); })
    , _model(new FileModel(_loader))
    , _list(new QListView)
    , _cover(new QLabel)
    , _selectedName(new QLabel("Select a file."))
    , _details(new QLabel)
{
    _model->setParent(this);
    buildList();
    auto* const splitter = new QSplitter;
    splitter->addWidget(_list);
    splitter->addWidget(newPane());
    splitter->setStretchFactor(0, 1);
    setCentralWidget(splitter);
    auto* const bar = addToolBar("Folder");
    bar->setMovable(false);
    auto* const up = bar->addAction(
        style()->standardIcon(QStyle::SP_FileDialogToParent), "Up", this, &Browser::openParent);
    up->setShortcuts({ Qt::ALT | Qt::Key_Up, Qt::Key_Backspace });
    resize(1100, 720);
}

void Browser::buildList()
{
    _list->setModel(_model);
    _list->setItemDelegate(new PictureDelegate(_list));
    _list->setViewMode(QListView::IconMode);
    _list->setMovement(QListView::Static);
    _list->setResizeMode(QListView::Adjust);
    _list->setVerticalScrollMode(QListView::ScrollPerPixel);
    // All cells have one size, so the list need not ask for that of each file.
    _list->setUniformItemSizes(true);
    _list->setGridSize(PictureDelegate::cellSize);

    // However often the list moves in a turn of the loop, what is in view is looked at once.
    _look.setSingleShot(true);
    _look.setInterval(0);
    connect(&_look, &QTimer::timeout, this, &Browser::askForVisiblePictures);
    auto const look = [this] { _look.start(); };
    connect(_list->verticalScrollBar(), &QScrollBar::valueChanged, this, look);
    connect(_list->verticalScrollBar(), &QScrollBar::rangeChanged, this, look);
    connect(_model, &QAbstractItemModel::modelReset, this, look);
    connect(_list, &QListView::activated, this, [this](QModelIndex const& index) {
        if (auto const file = _model->fileAt(index.row()); file->isFolder())
            openFolder(file->sourcePath());
    });
    connect(_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
        &Browser::showSelected);
}

QWidget* Browser::newPane()
{
    auto* const pane = new QWidget;
    auto* const column = new QVBoxLayout(pane);
    _cover->setFixedSize(coverSide, coverSide);
    _cover->setAlignment(Qt::AlignCenter);
    QFont heading = _selectedName->font();
    heading.setBold(true);
    _selectedName->setFont(heading);
    column->addWidget(_cover);
    for (QLabel* const label : { _selectedName, _details }) {
        label->setTextFormat(Qt::PlainText); // Whatever a file says of itself is no markup.
        label->setWordWrap(true);
        label->setFixedWidth(coverSide);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        column->addWidget(label);
    }
    column->addStretch();
    return pane;
}

// What is in view.

/// The first and the last row in view: told by the size of the cells, since to ask the list for the
/// place of every row would take long.
std::pair<int, int> Browser::rowsInView() const
{
    QSize const cell = _list->gridSize();
    QSize const view = _list->viewport()->size();
    int const columns = std::max(1, view.width() / cell.width());
    int const top = _list->verticalScrollBar()->value();
    int const bottom = top + view.height() - 1;
    return { top / cell.height() * columns,
        std::min((bottom / cell.height() + 1) * columns, _model->rowCount()) - 1 };
}

void Browser::askForVisiblePictures()
{
    HandlerTime const time;
    auto const [first, last] = rowsInView();
    _loader->setWanted(_model->setRowsInView(first, last));
}

VisibleFiles Browser::visibleFiles() const
{
    VisibleFiles visible;
    auto const placeOf = [this](int row) { return _list->visualRect(_model->index(row)); };
    int first = 0;
    for (int end = _model->rowCount(); first < end;) { // Halves what the first may be of.
        int const middle = first + (end - first) / 2;
        if (placeOf(middle).bottom() < 0)
            first = middle + 1;
        else
            end = middle;
    }
    for (int row = first; row < _model->rowCount(); ++row) {
        if (placeOf(row).top() >= _list->viewport()->height())
            break;
        ++visible.files;
        visible.withPicture += _model->hasPicture(row);
        visible.withoutPicture += _model->hasNoPicture(row);
    }
    return visible;
}

// Folders.

void Browser::openFolder(std::string const& path)
{
    _isReadingFolder = true;
    _folderQueue.async([self = QPointer(this), platform = _platform, path, reading = ++_reading] {
        platform->mainQueue->async([self, path, reading, files = filesInFolder(path)] {
            if (self && self->_reading == reading) // Or the user has gone on.
                self->takeFolder(path, files);
        });
    });
}

void Browser::takeFolder(std::string const& path, std::optional<Files> files)
{
    HandlerTime const time;
    _isReadingFolder = false;
    if (!files) {
        setWindowTitle(shownName(path) + " cannot be read");
        return;
    }
    _path = path;
    setWindowTitle(QString("%1 – %2 files").arg(shownName(path)).arg(files->size()));
    _model->setFiles(std::move(*files));
    showSelected({});
}

void Browser::openParent()
{
    if (!_path.empty())
        openFolder(std::filesystem::path(_path).parent_path());
}

// The selected file.

void Browser::showSelected(QModelIndex const& index)
{
    HandlerTime const time;
    _cover->hide();
    _details->clear();
    if (!index.isValid()) {
        _selectedName->setText("Select a file.");
        return;
    }
    auto const& file = _model->fileAt(index.row());
    _selectedName->setText(shownName(file->sourcePath()));
    _detailsReader.read(file);
}

void Browser::showDetails(FileDetails const& details)
{
    HandlerTime const time;
    QString text;
    for (auto const& [name, value] : details.rows)
        text += QString::fromStdString(name + ": " + value + '\n');
    _details->setText(text);
    if (details.picture) {
        auto cover = QPixmap::fromImage(qImageOfImage(details.picture));
        cover.setDevicePixelRatio(devicePixelRatio());
        _cover->setPixmap(cover);
    }
    _cover->setVisible(details.picture != nullptr);
}
