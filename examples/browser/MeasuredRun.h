#pragma once

#include "HandlerTime.h"
#include "PictureLoader.h"

#include <string>
#include <vector>

/// A browser's window, as an automatic test drives it.
class MeasuredWindow {
public:
    virtual ~MeasuredWindow() = default;

    /// How many files the folder has.
    virtual std::size_t fileCount() const = 0;
    /// Whether the folder has been read and laid out.
    virtual bool hasFolder() const = 0;
    virtual VisibleFiles visibleFiles() const = 0;
    virtual PictureLoader const& loader() const = 0;
    /// Scrolls to a place between 0, the top, and 1, the bottom.
    virtual void scrollTo(double place) = 0;
    /// Selects the first file that is no folder. False when there is none.
    virtual bool selectFirstFile() = 0;
    /// Activates the first folder, as a double click does. False when there is none.
    virtual bool openFirstFolder() = 0;
    /// Goes back up, as the button does.
    virtual void openParent() = 0;
    /// What is told of the selected file; empty until it has come.
    virtual std::string detailsText() const = 0;
    virtual void drawInto(std::string const& path) = 0;
    virtual void close() = 0;
};

/// Goes through a window without a user: waits for its pictures, scrolls to the bottom in frames
/// and back to the top, selects a file, draws the window into a PNG file, tells what it saw and
/// closes it.
class MeasuredRun {
public:
    /// How far a run goes.
    enum class Kind {
        whole,
        closeWhileLoading, ///< Closes the window when pictures are still to come.
    };

    /// A run that draws the window into the file at `screenshot`.
    MeasuredRun(Kind kind, std::string screenshot);

    /// Does what is due in the next frame of `window`. False once there is nothing left to do.
    bool nextFrame(MeasuredWindow& window);

    /// Keeps how long one turn of the main loop took.
    void addTurn(HandlerTime::Clock::duration turn);

    /// Prints what was seen.
    void print() const;

private:
    using Step = bool (MeasuredRun::*)(MeasuredWindow& window);

    bool becomesQuiet(bool isQuiet);
    bool waitForPictures(MeasuredWindow& window);
    bool scrollDown(MeasuredWindow& window);
    bool lookAtBottom(MeasuredWindow& window);
    bool openFolder(MeasuredWindow& window);
    bool comeBack(MeasuredWindow& window);
    bool lookAtTop(MeasuredWindow& window);
    bool finish(MeasuredWindow& window);
    bool closeWhileLoading(MeasuredWindow& window);

    std::vector<Step> _steps; // Each is done frame by frame until it says that it is done.
    std::size_t _step { 0 };
    int _quietFrames { 0 };
    int _scrolledFrames { 0 };

    std::string const _screenshot;
    std::size_t _files { 0 };
    VisibleFiles _top;
    VisibleFiles _below;
    VisibleFiles _bottom;
    std::size_t _mostVisible { 0 };
    PictureLoader::Counts _counts;
    bool _hasOpened { false };
    bool _hasSelected { false };
    bool _isOver { false };
    std::string _details;
    HandlerTime::Clock::duration _longestTurn { 0 };
    HandlerTime::Clock::duration _longestScrollingTurn { 0 };
};
