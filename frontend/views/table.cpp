#include "frontend/views/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <numeric>

#include "frontend/texts.h"

namespace {

bool isText(Kind kind) { return kind == Kind::Text || kind == Kind::Place; }
bool isRightAligned(Kind kind) {
  return kind == Kind::Bytes || kind == Kind::Count || kind == Kind::Number || kind == Kind::Delta;
}

// `text` escaped by shownText: itself if nothing needs escaping, otherwise stored in `made`.
std::string_view shown(std::string_view text, std::string& made) {
  if (plainLength(text) == text.size()) return text;
  made = shownText(text);
  return made;
}

// The text of a cell, which belongs to `value` or is stored in `made`.
std::string_view cellText(const Value& value, Kind kind, std::string& made) {
  if (!value.known) return "?";
  switch (kind) {
    case Kind::Text:
    case Kind::Delta:
      return shown(value.text, made);
    case Kind::Place:
      if (plainLength(value.text) == value.text.size())
        made = value.text;
      else
        made = shownText(value.text);
      if (value.number > 0) made.append(":").append(std::to_string(value.number));
      return made;
    case Kind::Flag:
      return value.number != 0 ? "true" : "false";
    case Kind::Address:
      return made = hexadecimal(value.number);
    case Kind::Number:
      return made = std::to_string(value.number);
    default:
      return made = withSeparators(value.number);
  }
}

std::size_t digitsOf(std::uint64_t number) {
  std::size_t digits = 1;
  for (; number >= 10; number /= 10) ++digits;
  return digits;
}

// The width of the text of a cell, in most cases without building that text.
std::size_t cellWidth(const Value& value, Kind kind, std::string& made) {
  const bool isNumber = kind == Kind::Bytes || kind == Kind::Count;
  if (value.known && isNumber) return digitsOf(value.number) + (digitsOf(value.number) - 1) / 3;
  const bool isPlain = value.known && isText(kind) && plainLength(value.text) == value.text.size();
  if (!isPlain) return displayWidth(cellText(value, kind, made));
  const bool hasLine = kind == Kind::Place && value.number > 0;
  return value.text.size() + (hasLine ? 1 + digitsOf(value.number) : 0);
}

// Computes the widths of columns and writes rows aligned to them.
class AlignedTable {
 public:
  explicit AlignedTable(const Listing& listing) : listing_(listing), columns_(listing.columns()) {
    std::string made;
    for (const Column& column : columns_) widths_.push_back(displayWidth(column.header));
    cellWidths_.reserve(listing.size() * columns_.size());
    for (std::size_t row = 0; row < listing.size(); ++row) {
      for (std::size_t i = 0; i < columns_.size(); ++i) {
        const std::size_t width = cellWidth(listing.value(row, i), columns_[i].kind, made);
        cellWidths_.push_back(static_cast<std::uint32_t>(width));
        widths_[i] = std::max(widths_[i], width);
      }
    }
  }

  // Narrows the widest text column until a line fits.
  void fit(std::size_t available) {
    constexpr std::size_t narrowest = 8;
    available_ = available;
    cut_ = true;
    while (std::accumulate(widths_.begin(), widths_.end(), gap * (widths_.size() - 1)) > available) {
      std::size_t widest = 0;
      for (std::size_t i = 0; i < widths_.size(); ++i) {
        if (!isText(columns_[i].kind)) continue;
        if (!isText(columns_[widest].kind) || widths_[i] > widths_[widest]) widest = i;
      }
      if (!isText(columns_[widest].kind) || widths_[widest] <= narrowest) return;
      --widths_[widest];
    }
  }

  // Limits the padding, so that a few long texts do not make every line long; those texts stick out.
  void limitPadding() {
    constexpr std::size_t widest = 80;
    for (std::size_t& width : widths_) width = std::min(width, widest);
  }

  void write(bool bold, Output& output) const {
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i)
      appendCell(line, columns_[i].header, displayWidth(columns_[i].header), i);
    output.put(bold ? "\033[1m" : "");
    putLine(line, output);
    output.put(bold ? "\033[0m\n" : "\n");
    std::string made;
    for (std::size_t row = 0; row < listing_.size(); ++row) {
      line.clear();
      for (std::size_t i = 0; i < columns_.size(); ++i) {
        const std::string_view text = cellText(listing_.value(row, i), columns_[i].kind, made);
        appendCell(line, text, cellWidths_[row * columns_.size() + i], i);
      }
      putLine(line, output);
      output.put('\n');
    }
  }

 private:
  static constexpr std::size_t gap = 2;

  // `width`: columns that `text` takes on a terminal.
  void appendCell(std::string& line, std::string_view text, std::size_t width, std::size_t column) const {
    const Kind kind = columns_[column].kind;
    std::string cut;
    if (cut_ && width > widths_[column]) {
      cut = kind == Kind::Place ? cutFront(text, widths_[column]) : cutEnd(text, widths_[column]);
      text = cut;
      width = displayWidth(cut);
    }
    const std::size_t padding = widths_[column] > width ? widths_[column] - width : 0;
    if (column > 0) line.append(gap, ' ');
    if (isRightAligned(kind)) line.append(padding, ' ');
    line += text;
    if (!isRightAligned(kind) && column + 1 < columns_.size()) line.append(padding, ' ');
  }

  void putLine(const std::string& line, Output& output) const {
    if (!cut_ || line.size() <= available_) return output.put(line);
    output.put(cutEnd(line, available_));
  }

  const Listing& listing_;
  const std::vector<Column>& columns_;
  std::vector<std::size_t> widths_;
  std::vector<std::uint32_t> cellWidths_;  // of all rows
  std::size_t available_ = 0;
  bool cut_ = false;
};

// The line width of standard output in columns; 0: unlimited.
std::size_t lineWidth() {
  const char* set = std::getenv("COLUMNS");
  if (const long columns = set != nullptr ? std::atol(set) : 0; columns > 0) return static_cast<std::size_t>(columns);
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

TableStyle styleOfOutput() { return {lineWidth(), isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr}; }

void writeTable(const Listing& listing, const TableStyle& style, Output& output) {
  AlignedTable table(listing);
  if (style.width > 0) {
    table.fit(style.width);
  } else {
    table.limitPadding();
  }
  table.write(style.bold, output);
}
