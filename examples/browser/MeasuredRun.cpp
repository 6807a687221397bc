#include "MeasuredRun.h"

#include <iostream>
#include <utility>

namespace {

constexpr int scrollFrames = 300;
constexpr int enoughQuietFrames = 4; // What a window draws late has come by then.

}

MeasuredRun::MeasuredRun(Kind kind, std::string screenshot)
    : _screenshot(std::move(screenshot))
{
    if (kind == Kind::closeWhileLoading) {
        _steps = { &MeasuredRun::closeWhileLoading };
        return;
    }
    _steps = { &MeasuredRun::waitForPictures, &MeasuredRun::scrollDown,
        &MeasuredRun::waitForPictures, &MeasuredRun::lookAtBottom, &MeasuredRun::waitForPictures,
        &MeasuredRun::openFolder, &MeasuredRun::waitForPictures, &MeasuredRun::comeBack,
        &MeasuredRun::waitForPictures, &MeasuredRun::lookAtTop, &MeasuredRun::finish };
}

bool MeasuredRun::nextFrame(MeasuredWindow& window)
{
    _mostVisible = std::max(_mostVisible, window.visibleFiles().files);
    if (_step < _steps.size() && (this->*_steps[_step])(window))
        ++_step;
    return _step < _steps.size();
}

void MeasuredRun::addTurn(HandlerTime::Clock::duration turn)
{
    if (_isOver)
        return;
    _longestTurn = std::max(_longestTurn, turn);
    if (_scrolledFrames > 0 && _scrolledFrames < scrollFrames)
        _longestScrollingTurn = std::max(_longestScrollingTurn, turn);
}

bool MeasuredRun::becomesQuiet(bool isQuiet)
{
    _quietFrames = isQuiet ? _quietFrames + 1 : 0;
    if (_quietFrames < enoughQuietFrames)
        return false;
    _quietFrames = 0;
    return true;
}

bool MeasuredRun::waitForPictures(MeasuredWindow& window)
{
    return becomesQuiet(window.hasFolder() && window.loader().isIdle());
}

bool MeasuredRun::scrollDown(MeasuredWindow& window)
{
    window.scrollTo(static_cast<double>(++_scrolledFrames) / scrollFrames);
    return _scrolledFrames == scrollFrames;
}

bool MeasuredRun::lookAtBottom(MeasuredWindow& window)
{
    _bottom = window.visibleFiles();
    window.scrollTo(0);
    return true;
}

bool MeasuredRun::openFolder(MeasuredWindow& window)
{
    _hasOpened = window.openFirstFolder();
    return true;
}

bool MeasuredRun::comeBack(MeasuredWindow& window)
{
    if (_hasOpened) {
        _below = window.visibleFiles();
        window.openParent();
    }
    return true;
}

bool MeasuredRun::lookAtTop(MeasuredWindow& window)
{
    _files = window.fileCount();
    _top = window.visibleFiles();
    _hasSelected = window.selectFirstFile();
    return true;
}

bool MeasuredRun::finish(MeasuredWindow& window)
{
    _details = window.detailsText();
    if (!becomesQuiet(!_hasSelected || !_details.empty()))
        return false;
    _counts = window.loader().counts();
    _isOver = true; // Drawing into a file is none of what a window does.
    window.drawInto(_screenshot);
    window.close();
    return true;
}

bool MeasuredRun::closeWhileLoading(MeasuredWindow& window)
{
    if (!window.visibleFiles().withPicture || window.loader().isIdle())
        return false;
    window.close();
    return true;
}

void MeasuredRun::print() const
{
    auto const printVisible = [](char const* place, VisibleFiles const& visible) {
        std::cout << place << ": " << visible.files << " files, " << visible.withPicture
                  << " with a picture, " << visible.withoutPicture << " that have none\n";
    };
    std::cout << "folder: " << _files << " files\n";
    printVisible("top", _top);
    printVisible("bottom", _bottom);
    printVisible("below", _below);
    auto const milliseconds = HandlerTime::millisecondsOf;
    std::cout << "visible at once: " << _mostVisible << '\n'
              << "wanted at once: " << _counts.mostWanted << '\n'
              << "in flight at once: " << _counts.mostInFlight << '\n'
              << "asked: " << _counts.asked << '\n'
              << "longest handler: " << HandlerTime::longestMilliseconds() << " ms, "
              << HandlerTime::longestWorkMilliseconds() << " ms of the processor\n"
              << "longest turn: " << milliseconds(_longestTurn) << " ms\n"
              << "longest turn while scrolling: " << milliseconds(_longestScrollingTurn) << " ms\n"
              << "details: " << _details << '\n';
}
