// Shows a progress bar as its standard input tells it to: "UNIT ITEMS BYTES", the total, and then
// lines of "advance ITEMS BYTES", "wait MILLISECONDS", "error TEXT" or "result TEXT".

#include "ProgressBar.h"
#include "Session.h"

#include <iostream>
#include <sstream>
#include <thread>

namespace {

void follow(std::string const& line, ProgressBar& bar, Session& session)
{
    std::istringstream words(line);
    std::string verb;
    words >> verb >> std::ws;
    if (verb == "advance") {
        ProgressBar::Amount done;
        words >> done.items >> done.bytes;
        bar.advanceBy(done);
    } else if (verb == "wait") {
        int milliseconds = 0;
        words >> milliseconds;
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    } else {
        std::string text;
        std::getline(words, text);
        if (verb == "error")
            session.reportError("path", text);
        else
            session.write(text + '\n');
    }
}

}

int main()
{
    Session session;
    std::string unit;
    ProgressBar::Amount total;
    std::cin >> unit >> total.items >> total.bytes >> std::ws;
    {
        ProgressBar bar(session.standardError(), unit, total);
        for (std::string line; std::getline(std::cin, line);)
            follow(line, bar, session);
    }
    session.finish();
}
