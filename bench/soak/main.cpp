#include "base/text.h"
#include "soak/soak.h"

#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <io.h>

#include <chrono>
#include <cstdio>

namespace {

int run(int count, char** arguments)
{
    quelta::soak::Options options;
    std::string folder = ".", board;
    std::size_t process = 0;
    options.seed = static_cast<std::uint32_t>(std::chrono::system_clock::now().time_since_epoch().count() / 1000 % 1'000'000);
    CLI::App app("Load on the registered module over the software token in QUELTA_TOKEN_DIR; run it by ./soak.sh", "quelta-soak");
    app.allow_windows_style_options(false);
    app.add_option("MINUTES", options.minutes, "How long the load lasts")->check(CLI::Range(0.1, 10000.0));
    app.add_option("--seed", options.seed, "For the same weather as another time");
    app.add_flag("--json", options.json, "Say it as JSON");
    app.add_flag("--progress", options.progress, "A line every ten seconds");
    app.add_option("--folder", folder, "For logs and output");
    app.add_option("--board", board)->group("");
    app.add_option("--process", process)->group("");
    try {
        app.parse(count, arguments);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (!board.empty()) {
        quelta::soak::work(quelta::toWide(board), process);
        return 0;
    }
    options.folder = quelta::toWide(folder);
    return quelta::soak::drive(options);
}

} // namespace

int main(int count, char** arguments)
try {
    _setmode(_fileno(stdout), _O_BINARY);
    const int status = run(count, arguments);
    std::fflush(stdout);
    return status;
} catch (const std::exception& error) {
    std::fprintf(stderr, "quelta-soak: %s\n", error.what());
    return 1;
}
