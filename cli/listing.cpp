// listing.cpp: the chosen columns of a listing, as text or JSON.
#include "listing.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "cli_error.h"
#include "commands.h"

namespace rsvctl {

namespace {

std::string fieldNames(const std::vector<Column> &columns, const char *separator = ",")
{
    std::string names;
    for (const auto &c : columns)
        names += (names.empty() ? "" : separator) + c.field;
    return names;
}

} // namespace

void addListingOptions(CLI::App *cmd, ListingOptions &options, const std::vector<Column> &columns)
{
    cmd->add_flag("--noheader", options.noHeader, "Rows only: no header line and no lines around the table");
    cmd->add_option("-o,--output", options.fields,
                    fmt::format("Columns to show, comma-separated, from: {}", fieldNames(columns, ", ")));
    cmd->add_flag("--json", options.json, "JSON output (see docs/rsvctl.md); with -o only those fields");
}

Listing::Listing(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Listing::addRow(std::vector<std::string> cells, nlohmann::ordered_json object)
{
    cells.resize(columns_.size());
    rows_.push_back(std::move(cells));
    objects_.push_back(std::move(object));
}

std::vector<size_t> Listing::chosen(const ListingOptions &options) const
{
    std::vector<size_t> out;
    if (options.fields.empty()) {
        for (size_t c = 0; c < columns_.size(); ++c)
            if (columns_[c].byDefault)
                out.push_back(c);
        return out;
    }
    for (std::string name : splitList(options.fields)) {
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
        auto it = std::find_if(columns_.begin(), columns_.end(), [&](const Column &c) { return c.field == name; });
        if (it == columns_.end())
            usageError(fmt::format("unknown field '{}' for -o: use {}", name, fieldNames(columns_)));
        out.push_back(static_cast<size_t>(it - columns_.begin()));
    }
    if (out.empty())
        usageError(fmt::format("-o needs at least one field: {}", fieldNames(columns_)));
    return out;
}

std::string Listing::text(const ListingOptions &options) const
{
    std::vector<size_t> cols = chosen(options);
    std::vector<size_t> width(cols.size());
    for (size_t k = 0; k < cols.size(); ++k) {
        width[k] = options.noHeader ? 0 : columns_[cols[k]].header.size();
        for (const auto &row : rows_)
            width[k] = std::max(width[k], row[cols[k]].size());
    }
    auto line = [&](auto cell) {
        std::string out;
        for (size_t k = 0; k < cols.size(); ++k) {
            if (k)
                out += "  ";
            const std::string &text = cell(cols[k]);
            out += columns_[cols[k]].right ? fmt::format("{:>{}}", text, width[k])
                                           : fmt::format("{:<{}}", text, width[k]);
        }
        out.erase(out.find_last_not_of(' ') + 1);
        return out + "\n";
    };
    std::string out;
    if (!options.noHeader)
        out += line([&](size_t c) -> const std::string & { return columns_[c].header; });
    for (const auto &row : rows_)
        out += line([&](size_t c) -> const std::string & { return row[c]; });
    return out;
}

nlohmann::ordered_json Listing::json(const ListingOptions &options) const
{
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    if (options.fields.empty()) {
        for (const auto &object : objects_)
            out.push_back(object);
        return out;
    }
    std::vector<size_t> cols = chosen(options);
    for (const auto &object : objects_) {
        nlohmann::ordered_json picked = nlohmann::ordered_json::object();
        for (size_t c : cols) {
            const std::string &key = columns_[c].field;
            picked[key] = object.contains(key) ? object[key] : nlohmann::ordered_json(nullptr);
        }
        out.push_back(std::move(picked));
    }
    return out;
}

} // namespace rsvctl
