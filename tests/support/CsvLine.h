#pragma once

#include <string>
#include <vector>

namespace Kestrion::TestSupport {

/// The fields of one line of the CSV files the host writes: a quoted field may hold commas and
/// doubled quotes.
inline std::vector<std::string> csvFields(const std::string& line) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"')
            fields.back() += line[++i];
        else if (line[i] == '"')
            quoted = !quoted;
        else if (line[i] == ',' && !quoted)
            fields.emplace_back();
        else
            fields.back() += line[i];
    }
    return fields;
}

} // namespace Kestrion::TestSupport
