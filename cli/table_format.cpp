// table_format.cpp: aligned columns.
#include "table_format.h"

#include <algorithm>

#include <fmt/format.h>

namespace rsvctl {

TextTable::TextTable(std::vector<std::string> headers, std::set<size_t> rightAligned)
    : headers_(std::move(headers)), right_(std::move(rightAligned))
{
}

void TextTable::addRow(std::vector<std::string> cells)
{
    cells.resize(headers_.size());
    rows_.push_back(std::move(cells));
}

std::string TextTable::render(const std::string &indent) const
{
    std::vector<size_t> width(headers_.size());
    for (size_t c = 0; c < headers_.size(); ++c) {
        width[c] = headers_[c].size();
        for (const auto &row : rows_)
            width[c] = std::max(width[c], row[c].size());
    }
    auto line = [&](const std::vector<std::string> &cells) {
        std::string out = indent;
        for (size_t c = 0; c < cells.size(); ++c) {
            if (c)
                out += "  ";
            out += right_.count(c) ? fmt::format("{:>{}}", cells[c], width[c])
                                   : fmt::format("{:<{}}", cells[c], width[c]);
        }
        out.erase(out.find_last_not_of(' ') + 1);
        return out + "\n";
    };
    std::string out = line(headers_);
    for (const auto &row : rows_)
        out += line(row);
    return out;
}

} // namespace rsvctl
