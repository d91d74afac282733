#include "base/text.h"
#include "soak/soak.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

// soak.sh gives a folder, the minutes and the seed; the driver gives a worker the board's name and its number.
int main(int count, char** arguments)
try {
    const auto numberAt = [&](int index) { return std::strtoul(arguments[index], nullptr, 10); };
    if (count == 4) return quelta::soak::drive(quelta::toWide(arguments[1]), std::strtod(arguments[2], nullptr), numberAt(3));
    if (count != 3) throw std::runtime_error("run it by ./soak.sh");
    quelta::soak::work(quelta::toWide(arguments[1]), numberAt(2));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "quelta-soak: %s\n", error.what());
    return 1;
}
