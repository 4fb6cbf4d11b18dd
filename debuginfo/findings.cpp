#include "debuginfo/findings.h"

#include <algorithm>
#include <iterator>

#include "debuginfo/packer.h"
#include "src/userError.h"

namespace {

template <typename Item>
void moveAfter(std::vector<Item>& items, std::vector<Item>& following) {
  if (items.empty())
    items = std::move(following);
  else
    std::move(following.begin(), following.end(), std::back_inserter(items));
}

void packTexts(const std::vector<std::string>& texts, Packer& packer) {
  packer.number(texts.size());
  for (const std::string& text : texts) packer.text(text);
}

std::vector<std::string> unpackTexts(Unpacker& unpacker) {
  std::vector<std::string> texts;
  for (std::uint64_t left = unpacker.number(); left > 0; --left) texts.emplace_back(unpacker.text());
  return texts;
}

void packWarnings(const Warnings& warnings, Packer& packer) {
  packer.number(warnings.reasons().size());
  for (const Warnings::Reason& reason : warnings.reasons()) {
    packer.text(reason.why);
    packTexts(reason.first, packer);
    packer.number(reason.count);
  }
  packTexts(warnings.others(), packer);
}

Warnings unpackWarnings(Unpacker& unpacker) {
  Warnings warnings;
  for (std::uint64_t left = unpacker.number(); left > 0; --left) {
    Warnings::Reason reason;
    reason.why = unpacker.text();
    reason.first = unpackTexts(unpacker);
    reason.count = unpacker.number();
    warnings.add(reason);
  }
  warnings.append(unpackTexts(unpacker));
  return warnings;
}

}  // namespace

void CommonDirectory::add(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  if (!path_) path_ = path;
  path += '/';
  while (!path_->empty() && !path.starts_with(*path_ + "/")) path_->erase(path_->rfind('/'));
}

void CommonDirectory::add(const CommonDirectory& other) {
  if (other.path_ && other.path_->empty())
    path_ = "";
  else if (other.path_)
    add(*other.path_);
}

void Findings::append(Findings following) {
  moveAfter(variables, following.variables);
  moveAfter(declarations, following.declarations);
  moveAfter(unplaced, following.unplaced);
  moveAfter(nameless, following.nameless);
  moveAfter(missing, following.missing);
  for (const Warnings::Reason& reason : following.warnings.reasons()) warnings.add(reason);
  warnings.append(following.warnings.others());
  directory.add(following.directory);
}

std::string packFindings(const std::vector<std::pair<std::size_t, Findings>>& parts) {
  Packer packer;
  std::vector<Variable> variables;
  packer.number(parts.size());
  for (const auto& [number, findings] : parts) {
    packer.number(number);
    packer.number(findings.variables.size());
    variables.insert(variables.end(), findings.variables.begin(), findings.variables.end());
    packer.number(findings.unplaced.size());
    for (const UnplacedVariable& each : findings.unplaced) {
      variables.push_back(each.variable);
      packer.text(each.symbol);
      packer.text(each.unit);
      packer.number(each.isOpen ? 1 : 0);
    }
    packer.number(findings.nameless.size());
    for (const auto& [address, what] : findings.nameless) {
      packer.number(address);
      packer.text(what);
    }
    packTexts(findings.missing, packer);
    packWarnings(findings.warnings, packer);
    packer.number(findings.directory.known() ? 1 : 0);
    packer.text(findings.directory.path());
  }
  packer.variables(variables);
  return packer.take();
}

std::vector<std::pair<std::size_t, Findings>> unpackFindings(std::string_view bytes) {
  Unpacker unpacker(bytes);
  std::vector<std::pair<std::size_t, Findings>> parts;
  std::vector<std::uint64_t> counts;  // number of variables in each part
  for (std::uint64_t left = unpacker.number(); left > 0; --left) {
    auto& [number, findings] = parts.emplace_back();
    number = unpacker.number();
    counts.push_back(unpacker.number());
    for (std::uint64_t unplaced = unpacker.number(); unplaced > 0; --unplaced) {
      UnplacedVariable& each = findings.unplaced.emplace_back();
      each.symbol = unpacker.text();
      each.unit = unpacker.text();
      each.isOpen = unpacker.number() != 0;
    }
    for (std::uint64_t nameless = unpacker.number(); nameless > 0; --nameless) {
      const std::uint64_t address = unpacker.number();
      findings.nameless.emplace_back(address, unpacker.text());
    }
    findings.missing = unpackTexts(unpacker);
    findings.warnings = unpackWarnings(unpacker);
    const bool hasDirectory = unpacker.number() != 0;
    const std::string_view directory = unpacker.text();
    if (hasDirectory) findings.directory.add(std::string(directory));
  }
  const std::vector<Variable> variables = unpacker.variables();
  auto next = variables.begin();
  for (std::size_t i = 0; i < parts.size(); ++i) {
    Findings& findings = parts[i].second;
    if (counts[i] + findings.unplaced.size() > static_cast<std::size_t>(variables.end() - next))
      throw UserError("variables are missing");
    const auto end = next + static_cast<std::ptrdiff_t>(counts[i]);
    findings.variables.assign(next, end);
    next = end;
    for (UnplacedVariable& each : findings.unplaced) each.variable = *next++;
  }
  return parts;
}
