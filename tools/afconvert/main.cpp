// afconvert: converts audio to AAC in an MPEG-4 audio file.

#include "Arguments.h"
#include "Conversion.h"
#include "FFmpegRefs.h"
#include "tools/shared/StandardFiles.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <kxmd/base/KXLog.h>
#include <kxmd/base/KXPrintableText.h>
#include <string>
#include <sys/prctl.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavutil/log.h>
}

namespace {

constexpr char const* help = R"(Usage: afconvert [-f m4af] [-d aac] [-b BITS] SOURCE TARGET

Converts the audio of SOURCE, whatever can be decoded, to AAC in an MPEG-4 audio
file, with the tags and the cover of SOURCE. TARGET appears only when it is whole.

  -f m4af     Format of the file: MPEG-4 audio, the only one
  -d aac      Format of the audio: AAC, the only one
  -b BITS     Bits per second, such as 256000
  -h, --help  Show this text
  --version   Show the version

The last two arguments are paths, whatever they begin with.
Exit status: 0 TARGET is complete, 1 SOURCE cannot be converted, 2 wrong usage.
)";

constexpr int cannotConvert = 1, wrongUsage = 2;

/// Ends with the process that started us, if that is the library and asks for it: nobody waits for
/// the result then. A shell may well go and leave us to our work. False when it is too late.
bool isStarterThere()
{
    char const* const starter = std::getenv("KXMD_CONVERTER_PARENT");
    if (!starter)
        return true;
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    // It may have ended before that, while our libraries were being loaded.
    return std::to_string(::getppid()) == starter;
}

int convertAsAsked(std::vector<std::string> const& words)
{
    std::string problem;
    auto const arguments = parsedArguments(words, problem);
    if (!arguments) {
        std::fprintf(stderr, "afconvert: %s\nTry \"afconvert --help\" for more.\n",
            KXTextWithoutControlCharacters(problem).c_str());
        return wrongUsage;
    }
    try {
        convert(*arguments);
    } catch (std::exception const& error) {
        std::string const line = arguments->source + ": " + error.what();
        std::fprintf(stderr, "afconvert: %s\n", KXTextWithoutControlCharacters(line).c_str());
        return cannotConvert;
    }
    return EXIT_SUCCESS;
}

}

int main(int argumentCount, char** arguments)
{
    openMissingStandardFiles();
    av_log_set_level(AV_LOG_QUIET); // What goes wrong is said by us, in one line.
    KXSetLogSink({});
    std::signal(SIGCHLD, SIG_DFL); // How our own process ends is of interest, whoever started us.
    std::signal(SIGXFSZ, SIG_IGN); // A file that grows too long is a failed write, not the end.
    if (!isStarterThere())
        return cannotConvert; // Nobody is left to tell.
    std::vector<std::string> const words(arguments + 1, arguments + argumentCount);
    bool const isOne = words.size() == 1;
    if (isOne && (words[0] == "-h" || words[0] == "--help")) {
        std::fputs(help, stdout);
        return EXIT_SUCCESS;
    }
    if (isOne && words[0] == "--version") {
        std::puts("afconvert (kxmd) " KXMD_VERSION);
        return EXIT_SUCCESS;
    }
    return convertAsAsked(words);
}
