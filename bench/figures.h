#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace quelta::bench {

struct Column {
    // In a row; a row may have none.
    const char* key;
    const char* heading;
    int decimals = 0;
};

// What one command measures.
struct Figures {
    std::string title;
    std::vector<Column> columns;
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    // What is needed to read them.
    std::string note = {};
};

} // namespace quelta::bench
