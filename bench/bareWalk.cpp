// Visits every DIE of a program's debugging information with libdw, and does nothing else: the lower bound for a reader
// that is built on libdw. With --attributes, visits every attribute too.
// usage: bareWalk [--attributes] PROGRAM
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <fcntl.h>

#include <cstdio>
#include <cstring>

#include "src/io.h"

namespace {

std::size_t dies = 0;
std::size_t attributes = 0;

int countAttribute(Dwarf_Attribute* attribute, void*) {
  attributes += attribute->form != 0 ? 1 : 0;
  return DWARF_CB_OK;
}

void visit(Dwarf_Die& die, bool withAttributes) {
  dies += dwarf_tag(&die) != 0 ? 1 : 0;
  if (withAttributes) dwarf_getattrs(&die, countAttribute, nullptr, 0);
  Dwarf_Die child;
  for (int more = dwarf_child(&die, &child); more == 0; more = dwarf_siblingof(&child, &child))
    visit(child, withAttributes);
}

}  // namespace

int main(int argc, char** argv) {
  const bool withAttributes = argc == 3 && std::strcmp(argv[1], "--attributes") == 0;
  const UniqueFd file = openFile(argv[argc - 1], O_RDONLY);
  Dwarf* dwarf = dwarf_begin(file.get(), DWARF_C_READ);
  if (dwarf == nullptr) return 1;
  Dwarf_CU* unit = nullptr;
  Dwarf_Die top;
  while (dwarf_get_units(dwarf, unit, &unit, nullptr, nullptr, &top, nullptr) == 0) visit(top, withAttributes);
  std::printf("%zu DIEs, %zu attributes\n", dies, attributes);
  dwarf_end(dwarf);
  return 0;
}
