#include "frontend/packed.h"

#include "debuginfo/packer.h"

std::string packInventories(const std::vector<Inventory>& programs) {
  Packer packer;
  packer.number(programs.size());
  for (const Inventory& program : programs) {
    packer.text(program.executable);
    packer.text(program.buildId);
    packer.text(program.directory);
    packer.number(program.modified.has_value() ? 1 : 0);
    packer.number(static_cast<std::uint64_t>(program.modified.value_or(0)));
    packer.number(program.sections.size());
    for (const Section& section : program.sections) {
      packer.text(section.name);
      packer.number(section.size);
    }
    packer.number(program.warnings.size());
    for (const std::string& warning : program.warnings) packer.text(warning);
    packer.variables(program.variables);
  }
  return packer.take();
}

std::vector<Inventory> unpackInventories(std::string_view bytes) {
  Unpacker unpacker(bytes);
  std::vector<Inventory> programs;
  for (std::uint64_t count = unpacker.number(); count > 0; --count) {
    Inventory& program = programs.emplace_back();
    program.executable = unpacker.text();
    program.buildId = unpacker.text();
    program.directory = unpacker.text();
    const bool isModificationKnown = unpacker.number() != 0;
    const auto modified = static_cast<std::int64_t>(unpacker.number());
    if (isModificationKnown) program.modified = modified;
    for (std::uint64_t left = unpacker.number(); left > 0; --left) {
      Section& section = program.sections.emplace_back();
      section.name = unpacker.text();
      section.size = unpacker.number();
    }
    for (std::uint64_t left = unpacker.number(); left > 0; --left) program.warnings.emplace_back(unpacker.text());
    program.variables = unpacker.variables();
  }
  return programs;
}
