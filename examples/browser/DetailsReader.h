#pragma once

#include <kxmd/core/KXMDFileMetaController.h>
#include <kxmd/platform/KXPlatform.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What is told of the selected file. Texts are in UTF-8.
struct FileDetails {
    struct Row {
        std::string name;
        std::string value;
    };
    std::vector<Row> rows;
    KXImage::Ref picture; ///< The cover or another picture of the file, in its own proportions.
};

/// Reads what is told of the selected file, on another thread. For the main thread alone.
class DetailsReader {
public:
    /// Receives the answer on the main thread.
    using Handler = std::function<void(FileDetails const& details)>;

    /// A reader whose pictures are at most `side` pixels wide and high.
    DetailsReader(KXPlatform::Ref platform, double side, Handler handler);
    /// No handler is called any more.
    ~DetailsReader();

    /// Reads the details of `file`. Whatever was asked before is not answered any more: the user
    /// has gone on.
    void read(KXDCFile::Ref const& file);

private:
    /// What a request shares with the reader, which may be gone by the time it is answered.
    struct Shared {
        KXPlatform::Ref platform;
        KXSize size;
        Handler handler;
        std::atomic<unsigned> latest { 0 }; // The number of the request that is still wanted.
    };

    std::shared_ptr<Shared> const _shared;
    KXMDFileMetaController::Ref const _controller;
};
