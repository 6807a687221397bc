#pragma once

#include "kxmd/base/KXExport.h"
#include "kxmd/base/KXSerialQueue.h"
#include "kxmd/core/KXMDFileMeta.h"
#include "kxmd/host/KXDCFile.h"

#include <functional>
#include <memory>

/// Where an application asks for the metadata of its files. Safe to use from several threads.
class KX_EXPORT KXMDFileMetaController
    : public std::enable_shared_from_this<KXMDFileMetaController> {
public:
    /// A shared controller; work that is under way owns it as well.
    using Ref = std::shared_ptr<KXMDFileMetaController>;

    /// Receives an answer, never null, on the controller's own queue.
    using Handler = std::function<void(KXMDFileMeta::Ref meta)>;

    /// `sharedController` The controller of the process, made on first use and never destroyed.
    [[nodiscard]] static Ref const& sharedController();

    /// `init` A controller with a serial queue of its own.
    [[nodiscard]] static Ref create();

    /// `initWithPlatform:` The same; its objects decode and encode covers with the picture library
    /// of `platform`. Null means the same as for `setPlatform:` of `KXMDFileMeta`.
    [[nodiscard]] static Ref createWithPlatform(KXMDFileMeta::PlatformRef platform);

    /// `fileMetaForFile:` The metadata of the file at `file`'s source path, read on the calling
    /// thread; never null.
    [[nodiscard]] KXMDFileMeta::Ref fileMetaForFile(KXDCFile const& file) const;

    /// `fileMetaForFile:handler:` Reads the metadata on the controller's queue and hands it to
    /// `handler` there, exactly once; a handler that touches a user interface goes to its thread
    /// itself.
    ///
    /// Requests are answered in order, also after the caller has let go of the controller. `file`
    /// is kept until then; null is a file that cannot be read. When the system has no thread to
    /// give, the handler is called before this returns.
    void fileMetaForFile(KXDCFile::Ref file, Handler handler);

    /// `mergeFileMeta:intoFile:` Stores the tags that `meta` has on `file` and names the file after
    /// its title. Other entries of the file stay as they are.
    void mergeFileMetaIntoFile(KXMDFileMeta const& meta, KXDCFile& file) const;

private:
    explicit KXMDFileMetaController(KXMDFileMeta::PlatformRef platform);

    KXMDFileMeta::PlatformRef const _platform; // Null for the process-wide one.
    KXSerialQueue _fileMetaQueue;
};
