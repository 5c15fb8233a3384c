#ifndef CHANGERCTL_TABLE_H
#define CHANGERCTL_TABLE_H

/* Tables of text: columns with a heading. */

#include "changerctl/Terminal.h"

#include <string>
#include <vector>

namespace changerctl {

enum class Alignment { Left, Right };

struct Column {
    std::string name; // in lower case; the heading is the same in upper case
    Alignment alignment = Alignment::Left;
};

class Table {
public:
    // `chosen` names the columns to show, in that order; empty: all. Throws Failure with
    // ExitStatus::Usage if one of them does not exist.
    Table(std::vector<Column> columns, const std::vector<std::string>& chosen);

    // Adds a row of printable texts, one for each column of the table.
    void AddRow(std::vector<Span> cells);

    // The lines of the table. Nothing follows the last cell of a line.
    std::vector<TextLine> Lines(bool withHeader) const;

private:
    std::vector<std::size_t> Widths(bool withHeader) const;
    TextLine MakeLine(const std::vector<Span>& cells, const std::vector<std::size_t>& widths) const;

    std::vector<Column> columns_;
    std::vector<std::size_t> chosen_; // indices of columns_
    std::vector<std::vector<Span>> rows_;
};

} // namespace changerctl

#endif
