#include "soak/caller.h"
#include "soak/soak.h"
#include "support/dialogs.h"

namespace quelta::soak {

using namespace test;

namespace {

// A dialog that comes to the front while it is typed into selects what it has so far, and the next character takes its place.
void enter(const PinDialog& dialog, const std::string& text)
{
    dialog.type(text);
    for (int tries = 0; tries < 20 && textOf(dialog.edit()) != text; ++tries) {
        dialog.erase(textOf(dialog.edit()).size());
        dialog.type(text);
    }
    dialog.pressLogin();
}

void meet(HWND window, Board& board, bool wrong)
{
    const std::string caption = textOf(window);
    // It may have gone since it was listed.
    if (!IsWindow(window)) return;
    ++board.windows;
    if (caption == messageCaption) {
        PostMessageA(window, WM_COMMAND, IDOK, 0);
    } else if (caption == pinCaption) {
        if (wrong) ++board.wrongPins;
        enter(PinDialog(window), wrong ? wrongPin : pins[board.pin]);
    } else {
        find("A window that nobody expects: " + caption);
        PinDialog(window).close();
    }
    if (!goesAway(window)) find("A window stays although it was left: " + caption);
}

} // namespace

std::jthread startUser(Board& board)
{
    return std::jthread([&board](const std::stop_token& stop) {
        std::mt19937 random(board.seed);
        // When it is quiet, exactly one PIN must be wrong.
        bool misled = false;
        for (; !stop.stop_requested(); Sleep(20))
            for (const HWND window : visibleDialogs()) {
                const bool wrong = board.stage == Stage::quiet ? !misled : random() % 3 == 0;
                meet(window, board, wrong);
                misled = board.stage == Stage::quiet;
            }
    });
}

} // namespace quelta::soak
