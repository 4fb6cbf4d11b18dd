// Writes changes as workflow commands of GitHub Actions, which annotate the lines of a pull request. Used by `diff`.
#include <filesystem>

#include "frontend/texts.h"
#include "frontend/views/changes.h"

namespace {

// `text` with the characters in `special` percent-encoded, as workflow commands require.
std::string escaped(std::string_view text, std::string_view special) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  std::string result;
  for (const char c : shownText(text)) {
    if (special.find(c) == std::string_view::npos) {
      result += c;
    } else {
      result += {'%', digits[static_cast<unsigned char>(c) >> 4], digits[static_cast<unsigned char>(c) & 0xf]};
    }
  }
  return result;
}

std::string messageText(std::string_view text) { return escaped(text, "%\r\n"); }
std::string propertyText(std::string_view text) { return escaped(text, "%\r\n:,"); }

namespace fs = std::filesystem;

// `file` relative to `directory`; empty unless it is in there.
std::string nameWithin(const fs::path& file, const fs::path& directory) {
  const fs::path name = file.lexically_relative(directory);
  return name.empty() || *name.begin() == ".." ? "" : name.native();
}

// The file of the variable, relative to `workspace` if it is in there, perhaps through symbolic links.
std::string fileOf(const Row& row, const std::string& workspace) {
  std::string file(row.variable->file);
  if (workspace.empty() || file.empty()) return file;
  const fs::path path = (row.program->directory / fs::path(file)).lexically_normal();
  std::string name = nameWithin(path, fs::path(workspace).lexically_normal());
  std::error_code error;
  if (name.empty() && path.is_absolute()) {
    name = nameWithin(fs::weakly_canonical(path, error), fs::weakly_canonical(workspace, error));
  }
  return name.empty() ? path.native() : name;
}

// The properties file and line, each followed by a comma.
std::string locationProperties(const Row& row, const std::string& workspace) {
  const std::string file = fileOf(row, workspace);
  if (file.empty()) return "";
  std::string properties = "file=" + propertyText(file) + ",";
  if (row.variable->line > 0) properties += "line=" + std::to_string(row.variable->line) + ",";
  return properties;
}

std::string sizeText(const Variable& variable) {
  std::string text = variable.size ? counted(*variable.size, "byte") : "of unknown size";
  if (!variable.section.empty()) text.append(" in ").append(variable.section);
  return text;
}

std::string messageOf(const Change& change) {
  const ShownChange record = shown(change);
  const Variable& variable = *change.after->variable;
  const std::string_view type = record.type.empty() ? variable.type : std::string_view(record.type);
  std::string text(variable.name);
  if (!type.empty()) text.append(", ").append(type);
  text += ": " + sizeText(variable);
  if (change.before && change.delta) text += ", " + record.delta;
  return messageText(text);
}

}  // namespace

void writeAnnotations(const ChangeReport& report, const std::string& workspace, Output& output) {
  for (const Change& change : report.comparison.changes) {
    if (!change.isGrowth()) continue;
    output.put("::warning " + locationProperties(*change.after, workspace));
    output.put(change.before ? "title=Variable has grown::" : "title=Variable added::");
    output.put(messageOf(change) + "\n");
  }
}
