#include "soak/caller.h"
#include "soak/soak.h"
#include "support/dialogs.h"

namespace quelta::soak {

using namespace test;

namespace {

void meet(HWND window, Board& board, bool wrong)
{
    const std::string caption = textOf(window);
    // The window may have closed since it was listed.
    if (!IsWindow(window)) return;
    ++board.windows;
    if (caption == messageCaption) {
        PostMessageA(window, WM_COMMAND, IDOK, 0);
    } else if (caption == pinCaption) {
        if (wrong) ++board.wrongPins;
        // The text is set, not typed. A dialog that comes to the front selects its text, and the next character would replace it.
        SendMessageA(PinDialog(window).edit(), WM_SETTEXT, 0, reinterpret_cast<LPARAM>(wrong ? wrongPin : pins[board.pin]));
        PinDialog(window).pressLogin();
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
        for (; !stop.stop_requested(); Sleep(20))
            for (const HWND window : visibleDialogs()) meet(window, board, board.stage != Stage::quiet && random() % 3 == 0);
    });
}

} // namespace quelta::soak
