#pragma once

#include "../browser/MeasuredRun.h"
#include "Browser.h"

#include <QApplication>

/// An application that tells how long its loop is kept, whichever loop of Qt it is.
class MeasuredApplication final : public QApplication {
public:
    MeasuredApplication(int& argumentCount, char** arguments);

    /// Lets `run` drive `browser` from frame to frame.
    void driveBrowser(Browser& browser, MeasuredRun& run);

    bool notify(QObject* receiver, QEvent* event) override;

private:
    void beginTurn();
    void endTurn();

    bool _isInTurn { false };
    HandlerTime::Clock::time_point _turnBegan;
    MeasuredRun* _run { nullptr };
    std::unique_ptr<MeasuredWindow> _window;
    QTimer _frames;
};
