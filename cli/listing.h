// listing.h: rows for people and for scripts. A listing command offers
// --noheader, -o FIELD,... and --json over the same rows: the table shows the
// chosen columns, the JSON the same fields of each row's object.
#ifndef RSVCTL_LISTING_H
#define RSVCTL_LISTING_H

#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace rsvctl {

struct ListingOptions {
    bool noHeader = false;
    std::string fields;  // -o, as typed; "" for the default columns
    bool json = false;
    // Whether the rows alone were asked for (no header, or chosen columns):
    // the lines around the table are then left out.
    bool rowsOnly() const { return noHeader || !fields.empty(); }
};

struct Column {
    std::string field;  // the -o name and the JSON key
    std::string header;
    bool right = false;      // numbers: aligned right
    bool byDefault = true;   // shown without -o
};

// --noheader, -o/--output and --json on `cmd`, the fields named in the help.
void addListingOptions(CLI::App *cmd, ListingOptions &options, const std::vector<Column> &columns);

class Listing {
public:
    explicit Listing(std::vector<Column> columns);
    // One row: a cell per column, in the columns' order, and its object.
    void addRow(std::vector<std::string> cells, nlohmann::ordered_json object);
    bool empty() const { return rows_.empty(); }

    // The columns chosen by `options` (usage error for an unknown field).
    std::vector<size_t> chosen(const ListingOptions &options) const;
    // The chosen columns in aligned text; the header line unless --noheader.
    std::string text(const ListingOptions &options) const;
    // Each row's object, with -o only the chosen fields.
    nlohmann::ordered_json json(const ListingOptions &options) const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
    std::vector<nlohmann::ordered_json> objects_;
};

} // namespace rsvctl

#endif
