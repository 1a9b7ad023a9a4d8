#include "columns.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cwchar>

#include "text.h"

namespace TAVO::FileMigrateOrvane::Ctl {
namespace {

constexpr std::size_t GAP = 2;
constexpr std::size_t USUAL_WIDTH = 80;

struct Cell {
    std::string text;  ///< escaped, without colour
    std::size_t width;
    Tone tone;
};

std::size_t TerminalWidth() {
    winsize size{};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : USUAL_WIDTH;
}

/// The width of an escaped text in terminal columns.
std::size_t DisplayWidth(const std::string& text) {
    std::wstring wide(text.size(), L'\0');
    const std::size_t length = std::mbstowcs(wide.data(), text.c_str(), wide.size());
    const int width = length <= wide.size() ? wcswidth(wide.data(), length) : -1;
    return width >= 0 ? static_cast<std::size_t>(width) : text.size();
}

std::vector<Cell> Cells(std::vector<Entry> entries) {
    std::ranges::sort(entries, {}, &Entry::name);
    std::vector<Cell> cells;
    for (const Entry& entry : entries) {
        const std::string text = Printable(entry.name) + (entry.isDirectory ? "/" : "");
        cells.push_back({text, DisplayWidth(text), entry.isDirectory ? Tone::Strong : Tone::Plain});
    }
    return cells;
}

/// The width of each column, with its gap, if the cells fill columns of `rows` rows.
std::vector<std::size_t> ColumnWidths(const std::vector<Cell>& cells, std::size_t rows) {
    std::vector<std::size_t> widths((cells.size() + rows - 1) / rows);
    for (std::size_t i = 0; i < cells.size(); ++i) {
        widths[i / rows] = std::max(widths[i / rows], cells[i].width + GAP);
    }
    return widths;
}

bool Fits(const std::vector<std::size_t>& widths, std::size_t terminalWidth) {
    std::size_t sum = 0;
    for (const std::size_t width : widths) {
        sum += width;
    }
    return sum <= terminalWidth + GAP;
}

/// The smallest number of rows in which the cells fit.
std::size_t RowsFor(const std::vector<Cell>& cells, std::size_t terminalWidth) {
    // Every column has at least one letter and its gap.
    std::size_t columns = std::min(cells.size(), (terminalWidth + GAP) / (1 + GAP));
    const auto rows = [&] { return (cells.size() + columns - 1) / columns; };
    while (columns > 1 && !Fits(ColumnWidths(cells, rows()), terminalWidth)) {
        --columns;
    }
    return columns > 1 ? rows() : cells.size();
}

std::string InColumns(const std::vector<Cell>& cells, std::size_t terminalWidth, bool isColoured) {
    if (cells.empty()) {
        return {};
    }
    const std::size_t rows = RowsFor(cells, terminalWidth);
    const std::vector<std::size_t> widths = ColumnWidths(cells, rows);
    std::string text;
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t i = row; i < cells.size(); i += rows) {
            text += Toned(cells[i].tone, cells[i].text, isColoured);
            text += i + rows < cells.size() ? std::string(widths[i / rows] - cells[i].width, ' ') : "\n";
        }
    }
    return text;
}

}  // namespace

std::string ListingText(const std::vector<Entry>& entries) {
    if (isatty(STDOUT_FILENO) == 1) {
        return InColumns(Cells(entries), TerminalWidth(), MayColour(STDOUT_FILENO));
    }
    std::string text;
    for (const Entry& entry : entries) {
        text += entry.name + (entry.isDirectory ? "/\n" : "\n");
    }
    return text;
}

}  // namespace TAVO::FileMigrateOrvane::Ctl
