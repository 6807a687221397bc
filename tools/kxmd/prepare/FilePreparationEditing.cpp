#include "FilePreparation.h"
#include "Sound.h"

#include <kxmd/base/KXMutableAbstractData.h>
#include <kxmd/mp4/KXMP4CameraData.h>
#include <kxmd/processors/KXMDFileProcessorCleanIPhoneVideo.h>
#include <kxmd/processors/KXMDFileProcessorConvertALAC.h>

void FilePreparation::edit()
{
    if (_options.converts && isLosslessMusic())
        convert();
    else if (_options.cleans && isRecording())
        clean();
    if (_options.insertsCovers && _isMusic)
        completeCover();
}

KXDCSimpleFileProxy FilePreparation::proxy() const { return { _file, _outcome.target }; }

/// Counts a step, with the size that its processor predicts.
void FilePreparation::use(KXDCFileProcessor const& processor, PreparationStep step)
{
    _outcome.predictedSize
        = processor.processedFilesizeForFileProxy(proxy(), _outcome.predictedSize);
    _outcome.steps.push_back(step);
}

/// What is not done to a file, with the size that it has without that.
void FilePreparation::takeBack(std::uint64_t predictedSize, std::string const& reason)
{
    _outcome.steps.pop_back();
    _outcome.predictedSize = predictedSize;
    remark(reason);
}

void FilePreparation::remark(std::string const& reason)
{
    _outcome.remark = reason;
    _outcome.isLeftAsItWas = true;
}

/// Drops all that was made so far.
void FilePreparation::leaveAsItIs(std::string const& reason)
{
    _edited.reset();
    _converted.reset();
    _reader = KXAbstractData::abstractDataWithPath(_job.source);
    _outcome.steps.clear();
    _outcome.target = _job.target;
    _outcome.predictedSize = _source.size();
    remark(reason);
}

/// What was made so far, to be edited on.
KXMutableData::Ref FilePreparation::edited() const
{
    return _edited ? _edited : std::make_shared<KXMutableData>(_reader);
}

void FilePreparation::convert()
{
    if (_options.isDryRun)
        return estimateConversion();
    _folder.emplace(_platform);
    if (!_folder->platform())
        return remark("there is no temporary folder to convert it in");
    KXMDFileProcessorConvertALAC const processor(_folder->platform());
    use(processor, PreparationStep::conversion);
    auto const data = processor.processedFileDataForFileProxy(proxy(), nullptr);
    auto const meta = data ? KXMDFileMeta::fileMetaWithAbstractData(*data) : nullptr;
    _converted.emplace(processor.pathToCacheForFile(*_file));
    if (!meta || !_converted->error().empty())
        return leaveAsItIs("cannot be converted");
    _reader = data;
    setMeta(meta); // The next processor is asked about the file that there is now.
    _outcome.target = _job.convertedTarget;
}

void FilePreparation::estimateConversion()
{
    _outcome.steps.push_back(PreparationStep::conversion);
    _outcome.target = _job.convertedTarget;
    if (probe() && probe()->duration > 0)
        _outcome.predictedSize = convertedSizeOf(*probe());
    // The copy can take a cover, whatever the source is.
    _isEstimated = true;
}

void FilePreparation::clean()
{
    auto const data = edited();
    if (!removeUserData(data))
        return;
    if (!_options.keepsMetadata)
        removeCameraData(data);
    bool const keepsMeasurements = !_options.keepsMetadata && _kind->hasMeasurements;
    if (keepsMeasurements && _outcome.remark.empty())
        _outcome.remark = "its track of measurements stays, which may tell places";
    if (_outcome.has(PreparationStep::cleaning))
        _edited = data;
}

/// False, with a remark, when it has to stay.
bool FilePreparation::removeUserData(KXMutableData::Ref const& data)
{
    using Processor = KXMDFileProcessorCleanIPhoneVideo;
    std::uint64_t const cleanedSize = Processor::cleanedSizeOfData(*_reader);
    if (cleanedSize == _reader->length())
        return true;
    if (auto const danger = Processor::reasonAgainstCleaningData(*_reader)) {
        remark(*danger);
        return false;
    }
    std::uint64_t const size = _outcome.predictedSize;
    _outcome.predictedSize = cleanedSize; // As the processor would predict it.
    _outcome.steps.push_back(PreparationStep::cleaning);
    if (Processor::cleanData(data) && data->length() == _outcome.predictedSize)
        return true;
    takeBack(size, "cannot be cleaned");
    return false;
}

/// What the camera wrote beside the movie's user data.
void FilePreparation::removeCameraData(KXMutableData::Ref const& data)
{
    auto const reader = KXMutableAbstractData::abstractDataWithData(data);
    if (auto const danger = KXMP4CameraData::reasonAgainstRemovingFromData(*reader))
        return remark("what the camera wrote cannot all be removed: " + *danger);
    std::uint64_t const before = data->length();
    bool const isRemoved = KXMP4CameraData::removeFromData(data);
    if (data->length() == before)
        return;
    if (!isRemoved)
        return remark("what the camera wrote cannot all be removed");
    if (!_outcome.has(PreparationStep::cleaning))
        _outcome.steps.push_back(PreparationStep::cleaning);
    _outcome.predictedSize = data->length();
}
