#include "kxmd/platform/KXMachineReport.h"

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

KXMachineReport::Decoder reportOfServer(KXRenderServer const& server)
{
    KXMachineReport::Decoder report;
    KXRenderRequest const request { .operation = KXRenderRequest::Operation::formats };
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

/// What two programs do together that share the formats.
KXMachineReport::Decoder bothOf(KXMachineReport::Decoder one, KXMachineReport::Decoder const& other)
{
    one.isThere = one.isThere && other.isThere;
    one.isConfinedToReading = one.isConfinedToReading && other.isConfinedToReading;
    one.isConfinedToComputing = one.isConfinedToComputing && other.isConfinedToComputing;
    one.formats.insert(one.formats.end(), other.formats.begin(), other.formats.end());
    std::ranges::sort(one.formats);
    return one;
}

}

KXMachineReport KXMachineReport::reportOfThisMachine()
{
    auto const places = KXDocumentThumbnailer::Places::ofThisMachine();
    return {
        .pictures = bothOf(reportOfServer(*renderServerForPictures()),
            reportOfServer(*renderServerForRarePictures())),
        .movies = reportOfServer(*renderServerForMovies()),
        .documentProgram = places.pdfProgram,
        .thumbnailedTypes = KXDesktopThumbnailers(places.thumbnailers).contentTypes(),
        .audioConverter = KXLinuxTaskRunner::Converter::ofThisMachine().installedPath(),
        .iconThemes = KXIconThemes(KXIconThemes::Places::ofThisMachine()).names(),
    };
}
