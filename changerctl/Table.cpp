#include "changerctl/Table.h"

#include "changerctl/Failure.h"
#include "changerctl/PrintableText.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace changerctl {
namespace {

constexpr std::size_t kGap = 2; // blanks between columns

std::string JoinNames(const std::vector<Column>& columns) {
    std::string names;
    for (const Column& column : columns)
        names += (names.empty() ? "" : ",") + column.name;
    return names;
}

std::size_t FindColumn(const std::vector<Column>& columns, const std::string& name) {
    const auto found = std::ranges::find(columns, name, &Column::name);
    if (found == columns.end())
        throw Failure(ExitStatus::Usage,
                      "no column " + name + "; the columns are " + JoinNames(columns));
    return static_cast<std::size_t>(found - columns.begin());
}

Span Heading(const Column& column) {
    std::string text = column.name;
    std::ranges::transform(text, text.begin(), [](unsigned char letter) {
        return static_cast<char>(std::toupper(letter));
    });
    return {text, Style::Bold};
}

Span Blanks(std::size_t count) {
    return {std::string(count, ' ')};
}

} // namespace

Table::Table(std::vector<Column> columns, const std::vector<std::string>& chosen)
    : columns_(std::move(columns)) {
    for (const std::string& name : chosen)
        chosen_.push_back(FindColumn(columns_, name));
    if (chosen.empty()) {
        chosen_.resize(columns_.size());
        std::iota(chosen_.begin(), chosen_.end(), 0);
    }
}

void Table::AddRow(std::vector<Span> cells) {
    rows_.push_back(std::move(cells));
}

std::vector<TextLine> Table::Lines(bool withHeader) const {
    const std::vector<std::size_t> widths = Widths(withHeader);
    std::vector<TextLine> lines;
    if (withHeader) {
        std::vector<Span> headings;
        std::ranges::transform(columns_, std::back_inserter(headings), Heading);
        lines.push_back(MakeLine(headings, widths));
    }
    for (const auto& row : rows_)
        lines.push_back(MakeLine(row, widths));
    return lines;
}

std::vector<std::size_t> Table::Widths(bool withHeader) const {
    std::vector<std::size_t> widths(columns_.size());
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        widths[i] = withHeader ? columns_[i].name.size() : 0;
        for (const auto& row : rows_)
            widths[i] = std::max(widths[i], ColumnsOf(row[i].text));
    }
    return widths;
}

TextLine Table::MakeLine(const std::vector<Span>& cells,
                         const std::vector<std::size_t>& widths) const {
    TextLine line;
    std::size_t pending = 0; // blanks that only a further cell makes necessary
    for (const std::size_t i : chosen_) {
        const std::size_t padding = widths[i] - ColumnsOf(cells[i].text);
        const bool isRight = columns_[i].alignment == Alignment::Right;
        line.push_back(Blanks(pending + (isRight ? padding : 0)));
        line.push_back(cells[i]);
        pending = kGap + (isRight ? 0 : padding);
    }
    return line;
}

} // namespace changerctl
