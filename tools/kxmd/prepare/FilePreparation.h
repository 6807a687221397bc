#pragma once

#include "FolderPictures.h"
#include "Preparation.h"
#include "shared/SourceFile.h"
#include "shared/TemporaryFolder.h"

#include <kxmd/base/KXMutableData.h>
#include <kxmd/core/KXMDFileMeta.h>
#include <kxmd/host/KXDCFileProcessor.h>
#include <kxmd/mp4/KXMP4MovieKind.h>
#include <kxmd/platform/KXMediaProbe.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// The preparation of one file.
class FilePreparation {
public:
    FilePreparation(PreparationJob const& job, PreparationOptions const& options,
        FolderPictures& folderPictures, KXPlatform::Ref platform);

    PreparationOutcome run();

private:
    void prepare();
    bool sumUp();

    // What the file is.
    void readTags();
    void setMeta(KXMDFileMeta::Ref meta);
    bool isMusic() const;
    std::optional<KXMediaProbe> const& probe();
    PreparedSong song();
    bool isLosslessMusic();
    bool isRecording() const;

    // What is done to it.
    void edit();
    KXDCSimpleFileProxy proxy() const;
    void use(KXDCFileProcessor const& processor, PreparationStep step);
    void takeBack(std::uint64_t predictedSize, std::string const& reason);
    void remark(std::string const& reason);
    void leaveAsItIs(std::string const& reason);
    KXMutableData::Ref edited() const;
    void convert();
    void estimateConversion();
    void clean();
    bool removeUserData(KXMutableData::Ref const& data);
    void removeCameraData(KXMutableData::Ref const& data);

    // Covers.
    void completeCover();
    std::string album();
    bool isBare();
    bool hasLargePicture() const;
    void insertCover();
    void addToEstimate(KXData const& encoded);
    void addCover(KXData const& encoded);
    static bool addEncoded(KXData const& encoded, KXMutableData::Ref const& data);
    void addCoverWithPlace(KXData const& encoded);

    // The result.
    bool isWhollyRead();
    void finish();
    void write(SourceFile const& base);

    PreparationJob const& _job;
    PreparationOptions const& _options;
    FolderPictures& _folderPictures;
    KXPlatform::Ref const _platform;
    SourceFile const _source;
    std::optional<TemporaryFolder> _folder; ///< Outlives the readers over what is in it.
    std::shared_ptr<KXDCSimpleFile> const _file;
    KXMDFileMeta::Ref _meta;
    KXAbstractData::Ref _reader; ///< Over the source, or what it was converted to.
    std::optional<KXMP4MovieKind> _kind;
    std::optional<KXMediaProbe> _probe;
    bool _isProbed { false };
    bool _isMusic { false };
    std::optional<bool> _isBare; ///< Once asked.
    std::optional<SourceFile> _converted;
    bool _isEstimated { false }; ///< It would be converted.
    KXMutableData::Ref _edited; ///< What is written; null for the source, or the converted file.
    PreparationOutcome _outcome;
};
