#include "Measure.h"

#include <QAbstractEventDispatcher>
#include <QScrollBar>

using namespace std::chrono_literals;

namespace {

class Window final : public MeasuredWindow {
public:
    explicit Window(Browser& browser)
        : _browser(browser)
    {
    }

    std::size_t fileCount() const override
    {
        return static_cast<std::size_t>(_browser.model().rowCount());
    }
    bool hasFolder() const override { return !_browser.isReadingFolder() && !_browser.isBehind(); }
    VisibleFiles visibleFiles() const override { return _browser.visibleFiles(); }
    PictureLoader const& loader() const override { return _browser.loader(); }
    std::string detailsText() const override { return _browser.detailsText(); }
    void drawInto(std::string const& path) override
    {
        _browser.grab().save(QString::fromStdString(path), "PNG");
    }
    void close() override { _browser.close(); }

    void scrollTo(double place) override
    {
        QScrollBar& bar = *_browser.list().verticalScrollBar();
        bar.setValue(static_cast<int>(bar.maximum() * place));
    }

    bool selectFirstFile() override
    {
        QModelIndex const index = first(false);
        _browser.list().setCurrentIndex(index);
        return index.isValid();
    }

    bool openFirstFolder() override
    {
        QModelIndex const index = first(true);
        if (index.isValid())
            emit _browser.list().activated(index);
        return index.isValid();
    }

    void openParent() override
    {
        for (QAction* const action : _browser.findChildren<QAction*>()) {
            if (action->text() == "Up")
                action->trigger();
        }
    }

private:
    /// The first folder, or the first other file; invalid when there is none.
    QModelIndex first(bool isFolder) const
    {
        FileModel const& model = _browser.model();
        for (int row = 0; row < model.rowCount(); ++row) {
            if (model.fileAt(row)->isFolder() == isFolder)
                return model.index(row);
        }
        return {};
    }

    Browser& _browser;
};

}

MeasuredApplication::MeasuredApplication(int& argumentCount, char** arguments)
    : QApplication(argumentCount, arguments)
{
    // Of the loop over GLib, all work lies between "about to block" and "awake"; of Qt's own, that
    // of timers and sockets. So a turn begins with the first event as well.
    auto const* const dispatcher = QAbstractEventDispatcher::instance();
    connect(dispatcher, &QAbstractEventDispatcher::awake, this, &MeasuredApplication::beginTurn);
    connect(
        dispatcher, &QAbstractEventDispatcher::aboutToBlock, this, &MeasuredApplication::endTurn);
}

void MeasuredApplication::beginTurn()
{
    if (!_isInTurn)
        _turnBegan = HandlerTime::Clock::now();
    _isInTurn = true;
}

void MeasuredApplication::endTurn()
{
    if (_isInTurn && _run)
        _run->addTurn(HandlerTime::Clock::now() - _turnBegan);
    _isInTurn = false;
}

bool MeasuredApplication::notify(QObject* receiver, QEvent* event)
{
    beginTurn();
    return QApplication::notify(receiver, event);
}

void MeasuredApplication::driveBrowser(Browser& browser, MeasuredRun& run)
{
    _run = &run;
    _window = std::make_unique<Window>(browser);
    connect(&_frames, &QTimer::timeout, this, [this] {
        if (!_run->nextFrame(*_window))
            _frames.stop();
    });
    _frames.start(16ms);
}
