// table_format.h: human output in aligned columns.
#ifndef RSVCTL_TABLE_FORMAT_H
#define RSVCTL_TABLE_FORMAT_H

#include <set>
#include <string>
#include <vector>

namespace rsvctl {

class TextTable {
public:
    // `rightAligned` holds the indexes of numeric columns.
    TextTable(std::vector<std::string> headers, std::set<size_t> rightAligned = {});
    void addRow(std::vector<std::string> cells);
    bool empty() const { return rows_.empty(); }
    // Every line starts with `indent`, columns are two blanks apart, trailing
    // blanks are trimmed, and every line ends in a newline.
    std::string render(const std::string &indent = "") const;

private:
    std::vector<std::string> headers_;
    std::set<size_t> right_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace rsvctl

#endif
