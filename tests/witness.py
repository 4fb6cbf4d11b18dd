#!/usr/bin/env python3
"""Compares the inventory of a program, row by row, with what gdb, nm and llvm-dwarfdump report.

usage: witness.py INVENTORY_ROWS PROGRAM [REPORTS]
       witness.py --table PROGRAM

The second form prints the variables that gdb knows, with types spelled as in the suite's tables: address, name, type, size, size
of the type without pointers and arrays (-1: none), file, line.

The file REPORTS caches what the three tools report. If it exists, it is used instead of running them: for a program whose
debugging information has since been moved to where they do not find it. Prints differences and missing variables; the exit
status is 0 if there are none. gdb runs this same file to write down its symbols.
"""
import collections
import json
import os
import re
import subprocess
import sys
import tempfile

ROW = 'name type size section writable thread_local linkage file line address named_size'.split()


# --- inside gdb -------------------------------------------------------------------------------------------------------

def spelled(type_):
    import gdb
    texts = []
    for language in 'c', 'c++':
        gdb.execute('set language ' + language)
        texts.append(str(type_))
    return texts


def is_open(type_, depth=0):
    """Whether objects may be larger than their type."""
    import gdb
    type_ = type_.strip_typedefs()
    if type_.code == gdb.TYPE_CODE_ARRAY: return type_.sizeof == 0
    if type_.code not in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION) or depth > 9: return False
    fields = [field for field in type_.fields() if hasattr(field, 'bitpos')]
    return any(is_open(field.type, depth + 1) for field in (fields if type_.code == gdb.TYPE_CODE_UNION else fields[-1:]))


def base_size(type_):
    """Returns the size of the type without pointers and arrays; -1 if it has none or no name."""
    import gdb
    while type_.code in (gdb.TYPE_CODE_PTR, gdb.TYPE_CODE_ARRAY): type_ = type_.target()
    return -1 if type_.code in (gdb.TYPE_CODE_FUNC, gdb.TYPE_CODE_VOID) or '{' in str(type_) else type_.sizeof


def address_of(symbol):
    import gdb
    if symbol.addr_class != gdb.SYMBOL_LOC_STATIC: return None
    if symbol.type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        # gdb follows references; `info address` shows the address of the reference itself.
        found = re.search(r'static storage at address (0x[0-9a-f]+)', described(symbol))
        return int(found[1], 16) if found else None
    try:
        value = symbol.value().address
    except gdb.error:
        return None
    return int(value) if value is not None else None


def described(symbol):
    import gdb
    try:
        return gdb.execute("info address '%s'" % symbol.name, to_string=True)
    except gdb.error:
        return ''


def gdb_symbols(hints):
    """Yields every variable that gdb finds by the code addresses and names in `hints`."""
    import gdb
    seen = {}

    def take(symbol, in_function, static):
        if symbol is None or not symbol.is_variable or symbol.is_argument: return
        if symbol.addr_class not in (gdb.SYMBOL_LOC_STATIC, gdb.SYMBOL_LOC_COMPUTED): return
        if symbol.addr_class == gdb.SYMBOL_LOC_COMPUTED and (in_function or symbol.needs_frame): return
        key = (symbol.name, symbol.symtab.fullname() if symbol.symtab else '', symbol.line, str(symbol.type))
        address = address_of(symbol)
        seen.setdefault(key + (address,), (symbol, in_function, static, address))

    for pc in hints['pcs']:
        block = gdb.block_for_pc(pc)
        while block is not None and not block.is_global:
            in_function = not block.is_static
            for symbol in block: take(symbol, in_function, True)
            block = block.superblock
        if block is not None:
            for symbol in block: take(symbol, False, False)
    for name in hints['names']:
        try:
            take(gdb.lookup_global_symbol(name), False, False)
            for symbol in gdb.lookup_static_symbols(name): take(symbol, False, True)
        except gdb.error:
            pass
    for symbol, in_function, static, address in seen.values():
        yield {'name': symbol.name, 'types': spelled(symbol.type), 'size': symbol.type.sizeof, 'address': address,
               'file': symbol.symtab.fullname() if symbol.symtab else None, 'line': symbol.line,
               'in_function': in_function, 'static': static, 'base_size': base_size(symbol.type), 'open': is_open(symbol.type),
               'incomplete': symbol.type.sizeof == 0 or 'incomplete type' in str(symbol.type)}


def run_in_gdb():
    with open(os.environ['WITNESS_HINTS']) as file: hints = json.load(file)
    # Each line is written at once, because gdb may crash.
    with open(os.environ['WITNESS_RESULT'], 'w') as file:
        for fact in gdb_symbols(hints): print(json.dumps(fact), file=file, flush=True)


# --- the other tools --------------------------------------------------------------------------------------------------

def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False).stdout.decode(
        'utf-8', 'replace')


def sections(program):
    """Yields the sections that are in memory at run time: name, address, size, whether thread-local."""
    for line in output('readelf', '-SW', program).splitlines():
        found = re.match(r'\s*\[ *\d+\] (\S+)\s+\S+\s+([0-9a-f]+) [0-9a-f]+ ([0-9a-f]+) \S+\s+(\w*A\w*) ', line)
        if found: yield found[1], int(found[2], 16), int(found[3], 16), 'T' in found[4]


def debugging_files(program):
    """Returns the file with the program's debugging information, and the one to which dwz moved part of it."""
    found = program
    if not re.search(r'\.debug_info\b', output('readelf', '-SW', program)):
        build_id = re.search('Build ID: (..)(.*)', output('readelf', '-n', program))
        link = re.search(r'\] +(\S+)', output('readelf', '-p', '.gnu_debuglink', program))
        candidates = ['/usr/lib/debug/.build-id/%s/%s.debug' % build_id.groups()] if build_id else []
        if link: candidates.append(os.path.join(os.path.dirname(program), link[1]))
        found = next((path for path in candidates if os.path.exists(path)), program)
    shared = re.search(r'\] +(\S+)', output('readelf', '-p', '.gnu_debugaltlink', found))
    return [found] + ([os.path.join(os.path.dirname(found), shared[1])] if shared else [])


def address_lists(path):
    """Returns the address tables of .debug_addr by the offset of their first entry."""
    lists, end = {}, 0
    for line in output('llvm-dwarfdump', '--debug-addr', path).splitlines():
        found = re.match(r'Address table header: length = (0x[0-9a-f]+), format = DWARF(32|64)', line)
        if found:
            header = 4 if found[2] == '32' else 12
            lists[end + header + 4] = addresses = []
            end += header + int(found[1], 16)
        if re.match('0x[0-9a-f]+$', line) and lists: addresses.append(int(line, 16))
    return lists


def plain_path(path):
    """Removes the prefix that both tools repeat before the first directory of DWARF 5 if it is relative."""
    return os.path.normpath(re.sub(r'^\./(.+)/\./\1/', r'./\1/', path))


def dwarf_entries(path, number, entries, pcs):
    """Adds the variables in a file, the `number`th, to `entries`, and addresses of code to `pcs`."""
    lists = address_lists(path)
    entry, addresses = None, []
    for line in output('llvm-dwarfdump', '--debug-info', path).splitlines():
        if ' DW_TAG_' in line or line.endswith(' NULL'):
            found = re.match(r'(0x[0-9a-f]+):\s+DW_TAG_(?:variable|member)\b', line)
            entry = None
            if found: entry = entries[number, int(found[1], 16)] = {'name': None, 'artificial': False}
            continue
        for low in re.findall(r'DW_AT_low_pc\s+\((0x[0-9a-f]+)\)|\[(0x[0-9a-f]+), 0x', line):
            pcs.add(int(low[0] or low[1], 16))
        found = re.search(r'DW_AT_addr_base\s+\((0x[0-9a-f]+)', line)
        if found: addresses = lists.get(int(found[1], 16), [])
        if entry is None: continue
        if 'DW_AT_location' in line:
            for index in re.findall('DW_OP_addrx (0x[0-9a-f]+)', line):
                if int(index, 16) < len(addresses):
                    line = line.replace('DW_OP_addrx ' + index, 'DW_OP_addr 0x%x' % addresses[int(index, 16)])
            found = re.search(r'\(DW_OP_addr (0x[0-9a-f]+)(?:, DW_OP_plus_uconst (0x[0-9a-f]+))?\)', line)
            if found:
                entry['address'] = int(found[1], 16) + int(found[2] or '0', 16)
                entry['discarded'] = int(found[1], 16) == 0
            found = re.search(r'\(DW_OP_const\w+ (0x[0-9a-f]+), DW_OP_(?:GNU_push|form)_tls_address', line)
            if found: entry['offset'] = int(found[1], 16)
        found = re.search(r'DW_AT_name\s+\("(.*)"\)', line)
        if found: entry['name'] = found[1]
        found = re.search(r'DW_AT_(?:specification|abstract_origin)\s+\(0x[0-9a-f]+ "(.*)"\)', line)
        if found: entry['shown'] = found[1]
        found = re.search(r'DW_AT_(?:specification|abstract_origin)\s+\((<alt )?(0x[0-9a-f]+)', line)
        if found: entry['completes'] = (1 if found[1] else number, int(found[2], 16))
        found = re.search(r'DW_AT_decl_file\s+\("(.*)"\)', line)
        if found: entry['file'] = plain_path(found[1])
        found = re.search(r'DW_AT_linkage_name\s+\("(.*)"\)', line)
        if found: entry['linkage'] = found[1]
        if 'DW_AT_artificial' in line: entry['artificial'] = True


def dwarf_variables(program):
    """Returns the entries of variables that have an address or a thread-local offset, and addresses of code."""
    entries, pcs = {}, set()
    for number, path in enumerate(debugging_files(program)): dwarf_entries(path, number, entries, pcs)
    for entry in entries.values():
        other = entry
        while 'completes' in other and (other := entries.get(other['completes'])):
            entry['artificial'] = entry['artificial'] or other['artificial']
            entry['name'] = entry['name'] or other['name']
            for key in 'file', 'linkage':
                if key in other: entry.setdefault(key, other[key])
        entry['name'] = entry['name'] or entry.get('shown')
    located = [{key: value for key, value in entry.items() if key != 'completes'}
               for entry in entries.values() if 'address' in entry or 'offset' in entry]
    return located, sorted(pcs)


def symbols(program):
    """Returns the symbols at each address: name, size and letter."""
    found = collections.defaultdict(list)
    for line in output('nm', '-S', '--defined-only', debugging_files(program)[0]).splitlines():
        words = line.split()
        if len(words) == 4: found[int(words[0], 16)].append((words[3], int(words[1], 16), words[2]))
    return found


def code_addresses(program):
    """Returns all addresses in the functions of the program, or none if it is large."""
    ranges = []
    for line in output('nm', '-S', '--defined-only', program).splitlines():
        words = line.split()
        if len(words) == 4 and words[2] in 'tTwW': ranges.append(range(int(words[0], 16), int(words[0], 16) + int(words[1], 16)))
    return [pc for each in ranges for pc in each] if sum(len(each) for each in ranges) < 50000 else []


# --- comparison ------------------------------------------------------------------------------------------------------

def bare(text):
    """Removes blanks, and ABI tags, which gdb 13 cannot spell."""
    return re.sub(r'\s|\[abi:\w+\]', '', text or '')


def last_part(name):
    """Removes scopes and template arguments."""
    while '<' in name and name != (shorter := re.sub(r'<[^<>]*>', '', name)): name = shorter
    return name.split('::')[-1]


def ask_gdb(program, pcs, names):
    """Returns what gdb knows about the variables in functions at `pcs` and in their files, and about those called `names`."""
    with tempfile.TemporaryDirectory() as directory:
        hints, result = directory + '/hints', directory + '/result'
        with open(hints, 'w') as file: json.dump({'pcs': pcs, 'names': sorted(names)}, file)
        environment = dict(os.environ, WITNESS_HINTS=hints, WITNESS_RESULT=result, DEBUGINFOD_URLS='')
        done = subprocess.run([os.environ.get('GDB', 'gdb'), '-nx', '-batch', '-x', os.path.abspath(__file__), program],
                              env=environment, capture_output=True, check=False)
        if done.returncode != 0: print(program + ': gdb failed: ' + done.stderr.decode()[:200])
        with open(result) as file: return [json.loads(line) for line in file]


def print_table(program):
    """Prints a line for each address; tables spell an array as a pointer."""
    facts = {}
    for fact in ask_gdb(program, code_addresses(program), []):
        if fact['address'] is not None: facts.setdefault(fact['address'], fact)
    for address, fact in sorted(facts.items()):
        spelled = fact['types'][0 if fact['file'].endswith('.c') else 1]
        if '(' not in spelled:
            text, dimensions = re.fullmatch(r'(.*?)((?:\[\d+\])*)', spelled).groups()
            spelled = text + '*' * dimensions.count('[')
        name = fact['name'].replace('(anonymous namespace)::', '')
        print('%x' % address, name, ('static ' if fact['static'] else '') + spelled, fact['size'], fact['base_size'],
              fact['file'], fact['line'], sep='\t')


class Comparison:
    def __init__(self, rows_program, program, reports=None):
        self.program = program
        done = subprocess.run([rows_program, program, '--artificial'], capture_output=True, check=False)
        self.warnings = done.stderr.decode('utf-8', 'replace')
        self.rows = [dict(zip(ROW, line.split('\t'))) for line in done.stdout.decode('utf-8', 'replace').splitlines()]
        self.by_address = collections.defaultdict(list)
        self.by_name = collections.defaultdict(list)
        for row in self.rows:
            row['found'] = False
            self.by_name[bare(row['name'])].append(row)
            if row['thread_local'] == 'false' and row['address'] != 'null':
                self.by_address[int(row['address'])].append(row)
        self.sections = list(sections(program))
        self.symbols = symbols(program)
        if reports and os.path.exists(reports):
            with open(reports) as file: self.entries, self.known, self.symbols = json.load(file)
            self.symbols = {int(address): each for address, each in self.symbols.items()}
        else:
            self.entries, pcs = dwarf_variables(program)
            names = {row['name'] for row in self.rows}
            names |= {entry[key] for entry in self.entries for key in ('name', 'shown') if entry.get(key)}
            self.known = ask_gdb(program, sorted(set(pcs) | set(code_addresses(program))), names)
        if reports:
            with open(reports, 'w') as file: json.dump([self.entries, self.known, self.symbols], file)
        self.files = collections.defaultdict(set)
        self.entries_at = collections.defaultdict(list)
        for entry in self.entries:
            self.entries_at[entry.get('address')].append(entry)
            if 'file' in entry: self.files['address' in entry, entry.get('address', entry.get('offset'))].add(entry['file'])
        self.faults = 0
        if done.returncode != 0: self.fault('cannot be read: ' + self.warnings)

    def fault(self, text):
        self.faults += 1
        if self.faults <= int(os.environ.get('FAULTS', 40)): print('%s: %s' % (self.program, text))

    def in_memory(self, address):
        return any(begin <= address < begin + size and not threads for _, begin, size, threads in self.sections)

    def check_sections(self):
        for row in self.rows:
            if row['address'] == 'null': continue
            size, threads = int(row['size']) if row['size'] != 'null' else 0, row['thread_local'] == 'true'
            begins = [begin for _, begin, _, local in self.sections if local]
            address = int(row['address']) + (min(begins) if threads else 0)
            fits = [name for name, begin, length, local in self.sections
                    if local == threads and begin <= address and address + size <= begin + length]
            if row['section'] not in fits:
                self.fault('%s of %s bytes at %x is not in %s' % (row['name'], row['size'], address, row['section']))

    def check_entries(self):
        for entry in (each for each in self.entries if 'address' in each):
            address, name = entry['address'], entry['name']
            if entry['artificial'] or entry['discarded'] or not self.in_memory(address): continue
            own = bare(re.sub(r'^.*::', '', name or ''))
            if name is None or any(self.is_of_entry(row, own) for row in self.by_address[address]): continue
            if bare(name) in bare(self.warnings): continue
            self.fault('missing: %s at %x' % (name, address))

    @staticmethod
    def is_of_entry(row, own):
        """Whether `own`, a name without scopes or the name of a symbol, belongs to the variable of the row."""
        last = bare(last_part(row['name']))
        return bare(row['name']).endswith(own) or own == last or (own.startswith('_Z') and '%d%s' % (len(last), last) in own)

    def check_symbols(self):
        found = self.symbols
        for row in self.rows:
            row['symbol_sizes'] = {size for _, size, _ in found.get(int(row['address']), [])} \
                if row['address'] != 'null' else set()
        for row in self.rows:
            own = row['name'].split('::')[-1]
            same = [size for name, size, _ in found.get(int(row['address']), [])
                    if name == own or name.startswith(own + '.')] if row['address'] != 'null' else []
            # A variable that was split into pieces has a symbol for each.
            pieces = [size for at, names in found.items() if row['address'] != 'null' and row['size'] != 'null' and
                      0 <= at - int(row['address']) < int(row['size'])
                      for name, size, _ in names if re.fullmatch(re.escape(own) + r'\.\d+', name)] if same else []
            if same and row['size'] != 'null' and int(row['size']) > max(max(same), sum(pieces)):
                self.fault('%s: size %s, nm says %s' % (row['name'], row['size'], same))
            if row['thread_local'] == 'true' and '::' not in row['name'] and not same and found:
                self.fault('%s: thread-local at %s, where nm has no such symbol' % (row['name'], row['address']))

    def check_gdb(self):
        for fact in self.known:
            threads = fact['address'] is None
            if threads:
                candidates = [row for row in self.by_name[bare(fact['name'])] if row['thread_local'] == 'true']
                if not candidates: continue
            elif fact['address'] == 0 or not self.in_memory(fact['address']):
                continue
            else:
                candidates = [row for row in self.by_address[fact['address']] if self.is_named(row, fact)]
                # In C, gdb uses the name of the symbol if the source sets one.
                labels = [entry['name'] for entry in self.entries_at[fact['address']] if entry.get('linkage') == fact['name']]
                candidates = candidates or [row for row in self.by_address[fact['address']] if row['name'] in labels]
            if not candidates and fact['name'] not in self.warnings:
                self.fault('missing: %s, which gdb has at %x' % (fact['name'], fact['address'] or 0))
            differences = [self.differences(row, fact, self.by_address[fact['address']]) for row in candidates]
            if candidates and min(differences, key=len): self.fault(min(differences, key=len))
            for row in candidates: row['found'] = True

    @staticmethod
    def is_named(row, fact):
        name, theirs = bare(row['name']), bare(fact['name'])
        # gdb does not know the scopes of names without external linkage in DWARF 2, and sometimes not in later versions.
        short = row['linkage'] != 'external'
        return name == theirs or (short and name.endswith('::' + theirs))

    def files_of(self, row, fact):
        """Prefers llvm-dwarfdump, if it knows the address: gdb 13 sometimes uses the file list of another unit."""
        address = int(row['address']) if row['address'] != 'null' else None
        return self.files.get((row['thread_local'] == 'false', address)) or {plain_path(fact['file'])}

    def differences(self, row, fact, neighbors=()):
        found = []
        # gdb may mistake one member of an unnamed union for another.
        types = {row['type']} | {each['type'] for each in neighbors if each['size'] != row['size'] or each is not row}
        if row['type'] != 'null' and not {bare(text) for text in types} & {bare(text) for text in fact['types']}:
            found.append('type %s, gdb %s' % (row['type'], fact['types']))
        if row['size'] != 'null' and int(row['size']) != fact['size'] and not fact['incomplete'] and \
           not ((fact['open'] or '::*' in row['type']) and int(row['size']) in row['symbol_sizes']):
            found.append('size %s, gdb %s' % (row['size'], fact['size']))
        if row['file'] != 'null' and fact['file'] and not fact['file'].endswith('>') and \
           os.path.normpath(row['file']) not in self.files_of(row, fact):
            found.append('file %s, gdb %s' % (row['file'], fact['file']))
        if int(row['line']) not in (0, fact['line']): found.append('line %s, gdb %s' % (row['line'], fact['line']))
        return row['name'] + ': ' + '; '.join(found) if found else ''

    def run(self):
        self.check_sections()
        self.check_entries()
        self.check_symbols()
        self.check_gdb()
        unseen = [row['name'] for row in self.rows if not row['found']]
        nothing = sum(row[key] == 'null' for row in self.rows for key in ('type', 'size', 'file'))
        print('%s: %d rows, %d entries, %d by gdb, %d rows not seen by gdb, %d fields unknown, %d faults' %
              (self.program, len(self.rows), len(self.entries), len(self.known), len(unseen), nothing, self.faults))
        if unseen and 'VERBOSE' in os.environ: print('not seen by gdb: ' + ', '.join(unseen[:100]))
        if self.warnings: print(self.warnings, end='')
        return 1 if self.faults else 0


if __name__ == '__main__':
    if 'WITNESS_RESULT' in os.environ:
        run_in_gdb()
    elif len(sys.argv) == 3 and sys.argv[1] == '--table':
        print_table(sys.argv[2])
    elif len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    else:
        sys.exit(Comparison(*sys.argv[1:]).run())
