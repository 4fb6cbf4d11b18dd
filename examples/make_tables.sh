#!/usr/bin/env bash
# Makes the three tables that tolquin.exe reads (objdump.1, objdump.txt, sizes.tbl) from the output of nm and gdb for a program
# with debugging information. Also makes witness.tbl, the expected results according to gdb, which the tests compare with:
# address, name, type, size, size of the type without pointers and arrays (-1: none), file, line.
# usage: make_tables.sh <program> <directory>
set -euo pipefail
[ $# -eq 2 ] || { echo "usage: $0 <program> <directory>" >&2; exit 2; }
program=$1 directory=$2
mkdir -p "$directory"
export LC_ALL=C
unset DEBUGINFOD_URLS

# Address with one leading zero, size, and name without blanks, numeric suffixes, enclosing functions and unnamed
# namespaces.
nm -SC --defined-only "$program" | awk '
  NF >= 4 && $3 ~ /^[bBdDrRuVv]$/ {
    address = $1; size = $2
    sub(/^0+/, "", address)
    name = $0; sub(/^[^ ]+ [^ ]+ . /, "", name)
    gsub(/\(anonymous namespace\)::/, "", name)
    sub(/^.*\)::/, "", name); sub(/\.[0-9]+$/, "", name); gsub(/ /, "", name)
    print "0" address, size, name
  }' | sort >"$directory/objdump.1"

nm --defined-only "$program" | awk '$2 ~ /^[tTwW]$/ { print $1 }' >"$directory/functions.tmp"
cat >"$directory/tables.py" <<'PYTHON'
import gdb, os, re

directory = os.environ['TABLES_DIRECTORY']
found = {}  # address -> symbol, static

def use_language_of(symbol):
    gdb.execute('set language ' + ('c' if symbol.symtab.filename.endswith('.c') else 'c++'))

def take(block, static):
    for symbol in block:
        if not symbol.is_variable or symbol.addr_class != gdb.SYMBOL_LOC_STATIC: continue
        if symbol.type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF): continue
        try:
            address = symbol.value().address
        except gdb.error:
            continue  # gdb 13 dereferences a nullptr_t
        if address is not None: found.setdefault(int(address), (symbol, static))

for line in open(directory + '/functions.tmp'):
    function = gdb.block_for_pc(int(line, 16))
    if function is None: continue
    take(function.static_block, True)
    take(function.global_block, False)
    for pc in range(function.start, function.end):
        block = gdb.block_for_pc(pc)
        while block is not None and not block.is_static and not block.is_global:
            take(block, True)
            block = block.superblock

def pointee(type):
    while type.code in (gdb.TYPE_CODE_PTR, gdb.TYPE_CODE_ARRAY): type = type.target()
    return type

sizes, declarations, witness = {}, [], []
for address, (symbol, static) in sorted(found.items()):
    use_language_of(symbol)
    spelled = str(symbol.type)
    base = pointee(symbol.type)
    name = symbol.name.replace('(anonymous namespace)::', '')
    sized = base.code not in (gdb.TYPE_CODE_FUNC, gdb.TYPE_CODE_VOID) and '{' not in str(base)
    base_size = base.sizeof if sized else -1
    if sized:
        sizes.setdefault(str(base), set()).add(base.sizeof)
    text, dimensions = re.fullmatch(r'(.*?)((?:\[\d+\])*)', spelled).groups()
    storage = 'static ' if static else ''
    outcome = text.rstrip() + ' ' * ('*' not in text and dimensions != '') + '*' * dimensions.count('[')
    apart = '(' in spelled
    if apart: outcome = spelled
    witness.append((address, name, storage + outcome, symbol.type.sizeof, base_size, symbol.symtab.fullname(),
                    symbol.line))
    # The index can hold neither a ':' (gdb answers for these variables) nor a name of more than one word.
    if ':' in spelled: continue
    own = name.split('::')[-1]
    if apart: text, dimensions = spelled + ' ', ''
    if not text.endswith(('*', ' ')): text += ' '
    declarations.append('%s%s%s%s /* 0x%x */;' % (storage, text, own, dimensions, address))

with open(directory + '/objdump.txt', 'w') as file: file.writelines(line + '\n' for line in declarations)
with open(directory + '/sizes.tbl', 'w') as file:
    file.writelines('%s\t%d\n' % (name, min(of)) for name, of in sorted(sizes.items()) if len(of) == 1)
with open(directory + '/witness.tbl', 'w') as file:
    file.writelines('%x\t%s\t%s\t%d\t%d\t%s\t%d\n' % row for row in witness)
PYTHON
TABLES_DIRECTORY=$directory gdb -nx -batch -x "$directory/tables.py" "$program" >"$directory/gdb.log" 2>&1 ||
  { cat "$directory/gdb.log" >&2; exit 1; }
[ -e "$directory/witness.tbl" ] || { cat "$directory/gdb.log" >&2; exit 1; }
rm -f "$directory"/{functions.tmp,tables.py,gdb.log}
