#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace quelta::bench {

struct Column {
    // The key in a row. A row may lack it.
    const char* key;
    const char* heading;
    int decimals = 0;
};

// The result of one section.
struct Figures {
    std::string title;
    std::vector<Column> columns;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    // Explains the figures.
    std::string note = {};
};

} // namespace quelta::bench
