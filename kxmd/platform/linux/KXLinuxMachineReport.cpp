#include "kxmd/platform/linux/KXLinuxPlatformPrivate.h"
#include "kxmd/platform/linux/icons/KXIconThemesPrivate.h"
#include "kxmd/platform/linux/render/KXRenderPictureLoaderPrivate.h"
#include "kxmd/platform/linux/render/KXSealedMemoryPrivate.h"
#include "kxmd/platform/linux/system/KXLinuxTaskRunnerPrivate.h"
#include "kxmd/platform/linux/thumbnails/KXDocumentThumbnailerPrivate.h"

#include <algorithm>
#include <string_view>

namespace {

/// The words of a text, each followed by a space.
std::vector<std::string> wordsOf(std::string_view text)
{
    std::vector<std::string> words;
    for (std::size_t end; (end = text.find(' ')) != std::string_view::npos;) {
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    std::ranges::sort(words);
    return words;
}

using Operation = KXRenderRequest::Operation;

KXMachineReport::Decoder reportOfServer(
    KXRenderServer const& server, Operation operation = Operation::formats)
{
    KXMachineReport::Decoder report;
    KXRenderRequest const request { .operation = operation };
    KXFileDescriptor const nothing = sealedMemoryOf({});
    auto const reply = server.replyTo(request, nothing.get(), KXRenderLimits::forPictures());
    auto const greeting = server.greeting(); // Of the one that answered.
    if (!reply || !greeting)
        return report;
    report.isThere = true;
    report.isConfinedToReading = greeting->isConfinedToReading;
    report.isConfinedToComputing = greeting->canBeConfinedToComputing;
    report.formats = wordsOf(textOfAnswer(reply->message, reply->answer));
    return report;
}

/// What the programs do together that decode pictures. A machine may do without that of movies.
KXMachineReport::Decoder reportOfPictures()
{
    auto report = reportOfServer(*renderServerForPictures());
    auto const rare = reportOfServer(*renderServerForRarePictures());
    report.isThere = report.isThere && rare.isThere;
    report.isConfinedToReading = report.isConfinedToReading && rare.isConfinedToReading;
    report.isConfinedToComputing = report.isConfinedToComputing && rare.isConfinedToComputing;
    auto const uncommon = reportOfServer(*renderServerForMovies(), Operation::pictureFormats);
    for (auto const* const other : { &rare, &uncommon })
        report.formats.insert(report.formats.end(), other->formats.begin(), other->formats.end());
    std::ranges::sort(report.formats);
    return report;
}

}

KXMachineReport newMachineReport()
{
    auto const places = KXDocumentThumbnailer::Places::ofThisMachine();
    return {
        .pictures = reportOfPictures(),
        .movies = reportOfServer(*renderServerForMovies()),
        .documentProgram = places.pdfProgram,
        .thumbnailedTypes = KXDesktopThumbnailers(places.thumbnailers).contentTypes(),
        .audioConverter = KXLinuxTaskRunner::Converter::ofThisMachine().installedPath(),
        .iconThemes = KXIconThemes(KXIconThemes::Places::ofThisMachine()).names(),
    };
}
