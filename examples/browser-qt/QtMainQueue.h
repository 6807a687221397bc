#pragma once

#include <QObject>
#include <kxmd/base/KXQueue.h>
#include <memory>
#include <mutex>
#include <utility>

/// The library's way into the main thread of a program with Qt.
///
/// The library's own queue is the main loop of GLib. Qt turns that one too where it was built with
/// GLib, unless the user has set QT_NO_GLIB; this queue works with every loop of Qt.
class QtMainQueue final : public KXQueue {
public:
    /// Called on any thread: Qt's queue of events is safe for that.
    void async(Work work) override
    {
        std::scoped_lock const lock(_mutex);
        if (_receiver)
            QMetaObject::invokeMethod(_receiver.get(), std::move(work), Qt::QueuedConnection);
    }

    /// Drops what still comes. Called before the application ends: the library's threads may then
    /// still be at work, and Qt must not be called any more.
    void close()
    {
        std::unique_ptr<QObject> receiver;
        std::scoped_lock const lock(_mutex);
        receiver.swap(_receiver);
    }

private:
    std::mutex _mutex; // Guards the receiver.
    std::unique_ptr<QObject> _receiver { std::make_unique<QObject>() }; // Of the main thread.
};
