#include "sections.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

namespace quelta::bench {

namespace {

struct Section {
    const char* name;
    const char* about;
    Figures (*measure)(const std::string& pin);
};

constexpr Section sections[] = {
    {"overhead", "what the module adds to each call (instant library)", measureOverhead},
    {"ratio", "each call against those of the library that it needs (software token)", measureRatio},
    {"growth", "with 1 to 1000 keys on the token (instant library)", measureGrowth},
    {"chains", "with chains of 1 to 10 certificates (instant library)", measureChains},
};

std::string textOf(const nlohmann::ordered_json& value, int decimals)
{
    if (value.is_string()) return value.get<std::string>();
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value.get<double>());
    return text;
}

void print(const Figures& figures)
{
    std::vector<std::vector<std::string>> lines(1);
    for (const Column& column : figures.columns) lines[0].emplace_back(column.heading);
    for (const auto& row : figures.rows) {
        auto& line = lines.emplace_back();
        for (const Column& column : figures.columns) line.push_back(textOf(row[column.key], column.decimals));
    }
    std::vector<std::size_t> widths(figures.columns.size());
    for (const auto& line : lines)
        for (std::size_t i = 0; i < widths.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
    std::cout << figures.title << "\n\n";
    for (const auto& line : lines) {
        std::string text;
        for (std::size_t i = 0; i < widths.size(); ++i) {
            const std::string room(widths[i] - line[i].size(), ' ');
            const bool words = !figures.rows.empty() && figures.rows[0][figures.columns[i].key].is_string();
            text += (words ? line[i] + room : room + line[i]) + "  ";
        }
        std::cout << "  " << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
    }
    if (!figures.note.empty()) std::cout << "\n  " << figures.note << '\n';
    std::cout << '\n';
}

int run(int argc, char** argv)
{
    CLI::App app("Measures the module beside this program; bench.sh runs it with what it needs.", "quelta-bench");
    std::string pin = "1234";
    bool json = false;
    app.add_option("--pin", pin, "the token's PIN");
    app.add_flag("--json", json, "one object a line in place of a table");
    app.require_subcommand(1);
    for (const Section& section : sections) app.add_subcommand(section.name, section.about)->fallthrough();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) ? 2 : 0;
    }
    for (const Section& section : sections) {
        if (!app.got_subcommand(section.name)) continue;
        const Figures figures = section.measure(pin);
        if (json)
            std::cout << nlohmann::ordered_json{{"section", section.name},
                                                {"title", figures.title},
                                                {"rows", figures.rows},
                                                {"note", figures.note}}
                      << '\n';
        else
            print(figures);
    }
    return 0;
}

} // namespace

} // namespace quelta::bench

int main(int argc, char** argv)
{
    try {
        return quelta::bench::run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "quelta-bench: " << error.what() << '\n';
        return 1;
    }
}
