// The reader of debugging information: programs in all the ways that compilers build them, compared with gdb, nm and
// llvm-dwarfdump; and a case for each of its rules.
#include <gtest/gtest.h>

#include <random>

#include "debuginfo/findings.h"
#include "debuginfo/inventory.h"
#include "src/userError.h"
#include "support.h"

namespace {

// A build of the example and tests/programs as one program: the two compilers, their flags and, after a ';', what is
// done with the program, in the directory of the sources.
class Witnessed : public testing::TestWithParam<std::string> {};

// The result of `readInventory` for a program: "name|type|size|section|linkage" of each variable, or the error.
std::vector<std::string> inventoryOf(const std::string& path, const ReadOptions& options = {}) {
  std::vector<std::string> rows;
  try {
    const Inventory inventory = readInventory(path, options);
    for (const Variable& each : inventory.variables) {
      constexpr const char* linkages[] = {"external", "internal", "function"};
      rows.push_back(std::string(each.name) + "|" + std::string(each.type) + "|" +
                     (each.size ? std::to_string(*each.size) : "null") + "|" + std::string(each.section) + "|" +
                     linkages[static_cast<int>(each.linkage.value())]);
    }
    for (const std::string& each : inventory.warnings) rows.push_back("warning: " + each);
  } catch (const UserError& error) {
    rows.push_back(std::string("error: ") + error.what());
  }
  return rows;
}

std::string joined(const std::vector<std::string>& rows) {
  std::string text;
  for (const std::string& row : rows) text += row + "\n";
  return text;
}

}  // namespace

TEST_P(Witnessed, RowsAreRightAndComplete) {
  const TempDir directory;
  const std::string& build = GetParam();
  const std::size_t end = std::min(build.find(';'), build.size());
  // Processes that share the reading give the same result.
  const std::string witness =
      R"(inventoryRows ../program >../by_one 2>&1; inventoryRows ../program -j3 --share >../by_three 2>&1
cmp ../by_one ../by_three && /usr/bin/python3 $SOURCE/tests/witness.py inventoryRows ../program ../reports)";
  // gdb is asked before the debugging information is moved, which sometimes confuses gdb 13.
  const RunResult built = directory.run("set -e; set -- " + build.substr(0, end) + R"(
      c=$1; cxx=$2; shift 2; mkdir src; cd src; cp $SOURCE/examples/inventory/*.* $SOURCE/tests/programs/tricky.* .
      $c -w $* -c parts.c -o parts.o; $c -w $* -c tricky.c -o tricky_c.o; $cxx -w $* -c main.cpp -o main.o
      $cxx -std=c++17 -w $* -c tricky.cpp -o tricky.o; $cxx -w $* main.o tricky.o parts.o tricky_c.o -o ../program)");
  ASSERT_EQ(built.status, 0) << built.err;
  const RunResult first = directory.run("cd src; " + witness);
  EXPECT_EQ(first.status, 0) << first.out << first.err;
  if (end == build.size()) return;
  const RunResult moved = directory.run("cd src; set -e" + build.substr(end) + "\n" + witness);
  EXPECT_EQ(moved.status, 0) << moved.out << moved.err;
}

INSTANTIATE_TEST_SUITE_P(
    Builds, Witnessed,
    testing::Values("gcc g++ -O0 -gdwarf-5 -pie", "gcc g++ -O0 -gdwarf-4 -no-pie",
                    "gcc g++ -O0 -gdwarf-3 -gstrict-dwarf", "gcc g++ -O0 -gdwarf-2 -gstrict-dwarf",
                    "gcc g++ -O2 -gdwarf-5 -gdwarf64 -no-pie", "gcc g++ -O0 -g -static", "gcc g++ -O2 -g -shared -fPIC",
                    "gcc g++ -O0 -gdwarf-4 -gz -fdebug-types-section",
                    "gcc g++ -O0 -gdwarf-5 -gsplit-dwarf -fdebug-types-section",
                    "gcc g++ -O0 -gdwarf-4 -gsplit-dwarf -fdebug-types-section",
                    "gcc g++ -O0 -gdwarf-5 -fdebug-types-section", "gcc g++ -O2 -g -flto",
                    "gcc g++ -O0 -gdwarf-5 -gsplit-dwarf",
                    "gcc g++ -O0 -gdwarf-4 -gsplit-dwarf -fdebug-types-section; dwp -e ../program -o ../program.dwp; "
                    "rm *.dwo",
                    "gcc g++ -O2 -g -ffunction-sections -fdata-sections -Wl,--gc-sections; "
                    "objcopy --only-keep-debug ../program ../p.debug; strip ../program; "
                    "objcopy --add-gnu-debuglink=../p.debug ../program",
                    "gcc g++ -O1 -g; cd ..; cp program p2; dwz -m shared program p2; cd src",
                    "gcc g++ -O0 -gdwarf-4; dwz ../program", "clang clang++ -O0 -g", "clang clang++ -O2 -gdwarf-4",
                    "clang clang++ -O2 -gdwarf-2", "clang clang++ -O1 -g -gsplit-dwarf",
                    "clang clang++ -O0 -gdwarf-5 -gsplit-dwarf; llvm-dwp -e ../program -o ../program.dwp; rm *.dwo",
                    "clang clang++ -O0 -gdwarf-4 -gsplit-dwarf -fdebug-types-section; "
                    "llvm-dwp -e ../program -o ../program.dwp; rm *.dwo"));

// Special cases: commands that build `program` from the source, rows that are expected, and texts that are not.
TEST(Inventory, Rules) {
  const std::string link = " -nostartfiles -nostdlib -Wl,-emain -fno-pie -no-pie -Wl,--build-id=none ";
  const struct {
    std::string source, build;
    std::vector<std::string> found, absent;
  } cases[] = {
      // A section at address 0, and a discarded variable, whose recorded address is 0 too.
      {"const long vectors[2] __attribute__((section(\".vectors\"))) = {1}; int gone = 3, data = 4; "
       "int main(void) { return data; }",
       "printf 'SECTIONS { .vectors 0 : { KEEP(*(.vectors)) } .text : { *(.text*) } .data 0x20000 : { *(.data*) } }' "
       ">ld; gcc -g -fdata-sections -Wl,--gc-sections -T ld" +
           link + "-x c source -o program",
       {"vectors|const long [2]|16|.vectors|external", "data|int|4|.data|external"},
       {"gone"}},
      // Qualifiers of an array apply to its elements.
      {"typedef const char *names_t[3]; const names_t t = {\"a\"}; int main(void) { return t[0][0]; }",
       "gcc -g -x c source -o program",
       {"t|const char * const [3]|24|.data.rel.ro|external"},
       {}},
      {"static constexpr const char *kinds[3] = {\"a\"}; int main(int n, char **) { return kinds[n] != nullptr; }",
       "clang++ -g -x c++ source -o program",
       {"kinds|const char * const [3]|24|.data.rel.ro|internal"},
       {}},
      // Functions of which only the static variables are left.
      {"static inline __attribute__((always_inline)) int lex(void) { static int state; return ++state; }\n"
       "namespace n { struct L { static int run(const char *) { static int runs; return ++runs; } }; }\n"
       "int main() { return lex() + n::L::run(\"\"); }",
       "clang++ -O2 -g -x c++ source -o program",
       {"lex::state|int|4|.bss|function", "n::L::run::runs|int|4|.bss|function"},
       {"warning"}},
      {"static inline __attribute__((always_inline)) int lex(void) { static int state; return ++state; }\n"
       "int main(void) { return lex(); }",
       "clang -O2 -g -x c source -o program",
       {"lex::state|int|4|.bss|function"},
       {"warning"}},
      // Addresses in a section that is compressed in the old GNU format.
      {"int v; int main(void) { return v; }",
       "clang -g -x c source -c -o a.o; for i in $(seq 60); do echo \"int v$i;\"; done >more; clang -g -x c more -c -o "
       "b.o; clang a.o b.o -o program; objcopy --compress-debug-sections=zlib-gnu program; readelf -SW program | "
       "grep -q zdebug_addr",
       {"v|int|4|.bss|external", "v60|int|4|.bss|external"},
       {"warning"}},
      // Functions whose names dwz moved to another file.
      {"namespace n { static int lex(int a) { static int state; return state += a; } } struct P { int x, y; } p;\n"
       "int main() { return n::lex(p.x); }",
       "g++ -g -x c++ source -o program; cp program q; dwz -m shared program q",
       {"n::lex::state|int|4|.bss|function"},
       {}},
      // Thread-local variables, and one that the compiler generated.
      {"static thread_local long t[2] = {1}; thread_local int z; const char *f() { return __func__; }\n"
       "int main() { return t[0] + z + !f(); }",
       "g++ -g -x c++ source -o program",
       {"t|long [2]|16|.tdata|internal", "z|int|4|.tbss|external"},
       {"__func__"}},
      {"int f(void) { static __thread int first = 1; return first++; } int main(void) { return f(); }",
       "clang -g -x c source -o program",
       {"f::first|int|4|.tdata|function"},
       {}},
      // Variables that have a symbol, but no location of their own in the debugging information: the second of two
      // merged
      // constants, constants whose value is recorded instead, flags that were narrowed to a byte.
      {"const char one[] = \"text\", two[] = \"text\"; static const int gone[2] = {1, 2}; const char *volatile p;\n"
       "int main(void) { p = one; p = two; return gone[0]; }",
       "gcc -O2 -g -fmerge-all-constants -x c source -o program; cp program q; dwz -m shared program q",
       {"one|const char [5]|5|.rodata|external", "two|const char [5]|5|.rodata|external"},
       {"gone"}},
      {"namespace n { namespace { const unsigned table[64] = {1, 2, 3}; const int limit = 3; } }\n"
       "int main(int a, char **) { return n::table[a & 63] + n::limit; }",
       "g++ -O2 -g -x c++ source -o program",
       {"n::(anonymous namespace)::table|const unsigned int [64]|256|.rodata|internal"},
       {"limit"}},
      {"static int flag; static volatile int other; __attribute__((noinline)) void set(void) { flag = 1; }\n"
       "int main(void) { static int seen; if (other) set(); if (seen) return 2; seen = 7; int flag2 = flag; return "
       "flag2; }",
       "clang -O2 -gdwarf-4 -x c source -o program",
       {"flag|int|1|.bss|internal", "main::seen|int|1|.bss|function"},
       {"flag2"}},
      // Only the elements in use are left of some variables, adjacent or not.
      {"static int one[3]; static long two[8]; static __thread char each[9]; static struct { int yes, no; long l; } "
       "s;\n"
       "static int once(void) { static int t[3]; return t[1]++; } int main(int n, char **v) { one[1] += n; two[1] += "
       "n;\n"
       "two[6] += n; each[2] += n; if (n > 1) s.yes = 1; s.l += n; return once() + one[1] + two[1] + two[6] + each[2] "
       "+ s.yes + s.l; }",
       R"(clang -O2 -g -x c source -o q; nm q | sed -nE 's/^(0*)(.*) . one.0/\2/p' >place
inventoryRows q | awk -F '\t' '$1 == "one" { printf "%x\n", $10 } $1 == "two" { print $10 }' | grep -v null | cmp - place
mv q program)",
       {"one|int [3]|4|.bss|internal", "once::t|int [3]|4|.bss|function", "two|long [8]|16|.bss|internal",
        "each|char [9]|1|.tbss|internal", "s|struct {...}|9|.bss|internal"},
       {"warning"}},
      {"namespace n { struct C { int m() { static char buf[40]; buf[3]++; return buf[2]; } }; }\n"
       "int main() { n::C c; return c.m(); }",
       "clang++ -g -O2 -flto -fuse-ld=lld -x c++ source -o program",
       {"n::C::m::buf|char [40]|1|.bss|function"},
       {"warning"}},
      // Types in type units; elsewhere, gcc does not record their namespaces.
      {"namespace ns { struct P { typedef int type; int x; static int s; }; } int ns::P::s; ns::P::type *p; int main() "
       "{}",
       R"(for v in 4 5; do g++ -gdwarf-$v -fdebug-types-section -x c++ source -o $v; inventoryRows $v | cut -f 1,2 >r$v; done
cmp r4 r5; mv 5 program)",
       {"ns::P::s|int|4|.bss|external", "p|ns::P::type *|8|.bss|external"},
       {}},
      // Sections that overlap.
      {"int low __attribute__((section(\".low\"))) = 1; const int high[4] __attribute__((section(\".high\"))) = {1, "
       "2};\n"
       "int main(void) { return low + high[1]; }",
       "printf 'SECTIONS { .text 0x1000 : { *(.text*) } OVERLAY 0x20000 : { .low { *(.low) } .high { *(.high) } } }' "
       ">ld; "
       "gcc -g -T ld" +
           link + "-x c source -o program",
       {"low|int|4|.low|external", "high|const int [4]|16|.high|external"},
       {}},
      // Discarded variables with a namesake at address 0 from another unit, or of another size.
      {"#ifdef A\nstatic const unsigned v[2] __attribute__((used, section(\".v\"))) = {1, 2}; int a; int main(void) { "
       "return v[a]; }\n#elif defined B\nstatic const unsigned v[2] = {1}; static int l; int b(void) { return v[l]; }\n"
       "#else\nstatic const char v[8] = {1}; static int l; int c(void) { return v[l]; }\n#endif",
       "printf 'SECTIONS { .v 0 : { KEEP(*(.v)) } .text 0x100 : { *(.text*) } .rodata 0x20000 : { *(.rodata*) } .bss : "
       "{ "
       "*(.bss*) } }' >ld; for u in A B C; do cp source $u.c; gcc -g -fno-pic -fdata-sections -ffunction-sections -D$u "
       "-c "
       "$u.c; done; gcc *.o -T ld -Wl,--gc-sections" +
           link + "-o q; test $(inventoryRows q | grep -c '^v') = 1; mv q program",
       {"v|const unsigned int [2]|8|.v|internal"},
       {"char"}},
      // Declarations that dwz moved to a shared file, where file names are relative to the directory of the unit.
      {"namespace n { constexpr int k[3] = {1, 2}; struct K { static constexpr int m = 3; int a[4]; long b[7]; char "
       "c[9]; "
       "}; }",
       R"(mkdir -p s/i; mv source s/i/h.h; echo '#include "i/h.h"
const int *p = n::k, *q = &n::K::m; n::K k; int main() { return *p; }' >s/d.cpp; g++ -std=c++17 -gdwarf-5 s/d.cpp -o q
cp q r; dwz -m $PWD/com -h q r; inventoryRows q | grep '^n' | cut -f 8,9 | uniq >place
printf "$PWD/s/i/h.h\t1\n" | cmp - place; mv q program)",
       {"n::k|const int [3]|12|.rodata|internal", "n::K::m|const int|4|.rodata|external"},
       {}},
      // Lambdas and unnamed classes, which each compiler names differently, are distinguished by their symbols.
      {"namespace app { inline auto one = [] { static int n; return ++n; }; inline auto two = [] { static int n; "
       "return "
       "++n; };\ntemplate <class F> int call(F f) { static int t; return f() + ++t; }\n"
       "typedef struct { int f() { static int k; return ++k; } } Td; }\n"
       "inline int fn(int n) { return app::call([n] { static int u; return u += n; }) + app::call([] { return 1; }); "
       "}\n"
       "int main(int n, char **) { return app::one() + app::two() + app::Td().f() + fn(n); }",
       R"(for c in 'clang++ -O0' 'clang++ -O2' 'g++ -O0' 'g++ -O2 -flto' 'g++ -O0 -fdebug-types-section'; do
$c -g -w -std=c++17 -x c++ source -o q; inventoryRows q | grep function | cut -f 1 | sort >>rows; done
sort rows | uniq -c | awk '$1 != 5' >odd; test ! -s odd; mv q program)",
       {"app::one::{lambda()#1}::operator()::n|int|4|.bss|function",
        "app::two::{lambda()#1}::operator()::n|int|4|.bss|function", "app::Td::f::k|int|4|.bss|function",
        "fn::{lambda()#1}::operator()::u|int|4|.bss|function",
        "app::call<fn(int)::{lambda()#1}>::t|int|4|.bss|function",
        "app::call<fn(int)::{lambda()#2}>::t|int|4|.bss|function"},
       {}},
      // Members of classes in an unnamed namespace, which clang marks as external.
      {"namespace { struct C { static int s; }; int C::s = 1; } template <class T> struct B { static int s; };\n"
       "template <class T> int B<T>::s = 2; int main() { return C::s + B<C>::s + B<int>::s; }",
       "clang++ -g -x c++ source -o program",
       {"(anonymous namespace)::C::s|int|4|.data|internal", "B<(anonymous namespace)::C>::s|int|4|.data|internal",
        "B<int>::s|int|4|.data|external"},
       {}},
      // Another byte order and word size; the compiler omits the bias of thread-local offsets there.
      {"static long kept[3] = {1}; const char *const words[2] = {\"a\"}; __thread int each = 3; __thread short every;\n"
       "int _start(void) { static char state; return ++state + (int)kept[1]; }",
       R"(for v in 4 5; do clang --target=powerpc-linux-gnu -gdwarf-$v -ffreestanding -nostdlib -static -fuse-ld=lld -x c source -o program
mv program $v; inventoryRows $v >>rows; done; cut -f 1-9 rows | sort | uniq -c | awk '$1 != 2' >odd
test ! -s odd; clang --target=powerpc-linux-gnu -g -gsplit-dwarf -ffreestanding -c -x c source -o a.o
ld.lld -static a.o -o program; llvm-dwp -e program -o program.dwp; rm a.dwo)",
       {"kept|long [3]|12|.data|internal", "words|const char * const [2]|8|.data.rel.ro|external",
        "_start::state|char|1|.bss|function", "each|int|4|.tdata|external", "every|short|2|.tbss|external"},
       {"warning"}},
      // Several names at one address; a variable that several units describe is listed once.
      {"static union { int u; float f; }; inline int shared = 3; inline int g() { static int s; return ++s; }\n"
       "int use() { return u + shared + g(); }\n#ifdef MAIN\nint main() { return use(); }\n#endif",
       "g++ -g -O0 -x c++ -DMAIN source -c -o a.o; g++ -g -x c++ -Duse=use2 source -c -o b.o; g++ a.o b.o -o program",
       {"u|int|4|.bss|internal", "f|float|4|.bss|internal", "shared|int|4|.data|external", "g::s|int|4|.bss|function"},
       {"warning"}},
      // Structured bindings, whose names are only in their symbols.
      {"struct P { int x; long y; }; P make() { return {1, 2}; } static auto [a, b] = make();\n"
       "thread_local auto [c, d] = make(); int main() { return a + c; }",
       "clang++ -std=c++20 -w -g -x c++ source -o program",
       {"[a, b]|P|16|.bss|internal", "[c, d]|P|16|.tbss|external"},
       {"warning"}},
      // A flexible array member, and a type that is incomplete where it is first used.
      {"struct F { int n; char a[]; } f = {1, \"xy\"}; extern struct O o; struct O *p = &o; struct O { long l; } o;\n"
       "int main(void) { return f.n; }",
       "gcc -g -x c source -o program",
       {"f|struct F|7|.data|external", "o|struct O|8|.bss|external", "p|struct O *|8|.data|external"},
       {}},
      // Equal constants of two units at one address.
      {"#ifdef A\nstatic const double t = 2.5; const void *volatile p = &t;\n#else\n\nstatic const double t = 2.5; "
       "const "
       "void *volatile q = &t; int main(void) { return 0; }\n#endif",
       R"(for u in A B; do gcc -O2 -g -fmerge-all-constants -D$u -x c -c source -o $u.o; done; gcc A.o B.o -o q
inventoryRows q | grep '^t' | cut -f 10 >rows; sort -u rows | wc -l >count; cat rows | wc -l >>count
tr '\n' ' ' <count | grep -qx '1 2 ' && mv q program)",
       {"t|const double|8|.rodata|internal"},
       {}},
      // A type that one unit only declares, and another defines.
      {"#ifdef A\nstruct P; struct P *p;\n#else\nstruct P { long l[3]; } v; int main(void) { return 0; }\n#endif",
       "gcc -g -DA -x c -c source -o a.o; gcc -g -x c -c source -o b.o; gcc a.o b.o -o program",
       {"v|struct P|24|.bss|external", "p|struct P *|8|.bss|external"},
       {}},
      // The first directory of a unit is the one in which it was compiled, even if its name is relative.
      {"int v; int main(void) { return 0; }",
       R"(mkdir d; mv source d/s.c; cd d; gcc -gdwarf-5 -ffile-prefix-map=$(dirname $PWD)=. s.c -o ../q; cd ..
inventoryRows q | cut -f 8 >file; echo d/s.c | cmp - file; mv q program)",
       {"v|int|4|.bss|external"},
       {}},
      // File names in .debug_str, a form that compilers do not use today.
      {"int v; int main(void) { return 0; }",
       R"(gcc -gdwarf-5 -x c source -o q; objcopy --dump-section .debug_line=l --dump-section .debug_line_str=s q
LC_ALL=C sed -i 's/\x01\x1f/\x01\x0e/g' l; objcopy --update-section .debug_line=l --update-section .debug_str=s q r
for p in q r; do inventoryRows $p | cut -f 8 >>files; done; test $(uniq files | wc -l) = 1; mv r program)",
       {"v|int|4|.bss|external"},
       {}},
      // Debugging information that cannot be read, and the reason.
      {"#include <stdio.h>\n#include <stdlib.h>\nint v; int main(void) { return printf(\"\"); }",
       "gcc -g3 -x c source -o program; objcopy --compress-debug-sections=zstd program",
       {"error: program: its debugging information is compressed with zstd, which this libdw cannot read; decompress "
        "it with "
        "objcopy --decompress-debug-sections"},
       {}},
      {"struct S { int i; } v; int main() { return v.i; }",
       "g++ -gdwarf-5 -gsplit-dwarf -fdebug-types-section -gz -x c++ -c source -o a.o; g++ a.o -o program",
       {"v|S|4|.bss|external"},
       {"warning"}},
      {"#define M(c) int c##0, c##1, c##2, c##3, c##4, c##5, c##6, c##7;\n"
       "struct S { M(a) M(b) M(c) M(d) M(e) } v; int main() { return v.a0; }",
       "g++ -gdwarf-5 -gsplit-dwarf -fdebug-types-section -gz -x c++ -c source -o a.o; g++ a.o -o program",
       {"error: program: the debugging information in a.dwo is missing: the file has a compressed section for each "
        "type, "
        "which cannot be read; compile without -gz or without -fdebug-types-section"},
       {}},
      {"int v = 3; int main(void) { return v++; }",
       "gcc -O2 -g -flto -gsplit-dwarf -w -x c source -c -o a.o; gcc -O2 -g -flto -gsplit-dwarf -w a.o -o program",
       {"warning: variables are missing: with both -flto and -gsplit-dwarf, gcc loses their names and types; "
        "link without -gsplit-dwarf"},
       {}},
      {"int v; int main(void) { return v; }",
       "clang -g1 -x c source -o program",
       {"warning: its debugging information describes no variables, as with -g1"},
       {}},
      {"int v; int main(void) { return v; }",
       "gcc -g -gsplit-dwarf -x c source -c -o a.o; gcc a.o -o program; rm a.dwo",
       {"error: program: the debugging information in a.dwo is missing: the file is neither where the compiler put it "
        "nor in program.dwp"},
       {}},
      {"int V; int main(void) { return V; }",
       "for i in 1 2 3 4 5; do gcc -g -gsplit-dwarf -DV=v$i -Dmain=f$i -x c -c source -o $i.o; done; rm *.dwo\n"
       "gcc -g -x c -c source -o 6.o; gcc *.o -o program",
       {"V|int|4|.bss|external", "warning: 2 more .dwo files cannot be used either"},
       {}},
  };
  for (const auto& each : cases) {
    const TempDir directory;
    writeFile(directory / "source", each.source + "\n");
    const RunResult result = directory.run("(set -e; " + each.build + ") >&2; inventoryRows program");
    const std::string path = directory / "program";
    std::string all = joined(inventoryOf(path));
    for (std::size_t at = 0; (at = all.find(path)) != std::string::npos;) all.replace(at, path.size(), "program");
    for (const std::string& row : each.found)
      EXPECT_NE(("\n" + all).find("\n" + row + "\n"), std::string::npos) << row << "\n" << all << result.err;
    for (const std::string& row : each.absent) EXPECT_EQ(all.find(row), std::string::npos) << all;
  }
}

// Location expressions with operations after the address or instead of it, written in assembly language.
TEST(Inventory, LocationExpressions) {
  const TempDir directory;
  directory.run("echo 'int first = 1, v = 1;' >s.c; gcc -gdwarf-5 -S s.c");
  const std::string found = "v|int|4|.data|external\n";
  const auto notListed = [&](const std::string& why) {
    return "warning: 1 variable is not listed: v (" + directory / "s.c" + ":1): " + why + "\n";
  };
  const std::string computed = notListed("the address is known only at run time");
  const std::string unreadable = notListed("the location expression cannot be read");
  const std::string cases[][2] = {
      {".byte 3; .quad v - 0x40000; .byte 0x10; .uleb128 0x40000; .byte 0x22", found},  // DW_OP_constu, DW_OP_plus
      {".byte 0x9e, 4; .long 7", found},                    // DW_OP_implicit_value, but the variable has a symbol
      {".byte 3; .quad v; .byte 0x8f, 4, 0x22", computed},  // DW_OP_breg31, DW_OP_plus
      {".byte 3; .quad v; .byte 0xf1", unreadable},         // an unknown operation
      {".byte 3; .quad v; .byte 0x93, 2, 0xf1", unreadable},
  };
  for (const auto& [expression, expected] : cases) {
    // The lengths of the unit and of the expression are replaced with differences of labels.
    const RunResult built = directory.run(R"(sed -zE 's/(debug_info0:\n\t.long\t)\w+/\19f-8f\n8:/
s/\t.section\t.debug_abbrev/9:\n&/; s/\.uleb128 0x9\n\t\.byte\t0x3\n\t\.quad\tv\n/.uleb128 2f-1f\n1: )" +
                                          expression + R"(\n2:\n/' s.s | gcc -shared -x assembler - -o program)");
    EXPECT_EQ(joined(inventoryOf(directory / "program")), "first|int|4|.data|external\n" + expected)
        << expression << built.err;
  }
}

TEST(Inventory, FieldsOfOneVariable) {
  const TempDir directory;
  const RunResult built = directory.run(R"(mkdir -p p/src q
echo 'extern const int *const k; int c; const int *const k = &c;' >p/src/a.c; echo 'int main(void) { return 0; }' >q/m.c
cd p; gcc -g -c src/a.c; cd ../q; gcc -g m.c ../p/a.o -o ../program)");
  ASSERT_EQ(built.status, 0) << built.err;
  const Inventory inventory = readInventory(directory / "program", {});
  EXPECT_EQ(inventory.directory, directory.path());
  EXPECT_EQ(inventory.buildId.size(), 40u);
  ASSERT_EQ(inventory.variables.size(), 2u);
  const Variable& k = inventory.variables[0];
  EXPECT_EQ(k.name, "k");
  EXPECT_EQ(k.section, ".data.rel.ro");
  EXPECT_EQ(k.writable, false) << "in a section that is writable until the program has been loaded";
  EXPECT_EQ(k.threadLocal, false);
  EXPECT_EQ(k.file, "p/src/a.c");
  EXPECT_EQ(k.line, 1);
  EXPECT_EQ(k.namedSize, 4u);
  EXPECT_EQ(declare(k.type, k.name), "const int * const k");
  EXPECT_EQ(inventory.variables[1].writable, true);
  EXPECT_EQ(directory.run("nm program | grep ' k$'").out.substr(12, 4) + "\n",
            directory.run("printf '%x\n' " + std::to_string(*k.address)).out.substr(0, 5));
}

// Whatever happens to processes that share the reading, the result is that of a single one.
TEST(Inventory, SharedReading) {
  const TempDir directory;
  const RunResult built = directory.run(R"(for i in 1 2 3 4 5 6 7 8; do cat >$i.cpp <<END
static union { int u; float f; }; struct S { int a[$i]; } s$i; inline int shared = 3;
int g$i(int (*g)(S &)) { static int state; return g(s$i) + shared + u + ++state; }
END
done; echo 'int main() {}' >m.cpp; g++ -g -w *.cpp -o program)");
  ASSERT_EQ(built.status, 0) << built.err;
  const std::string rows = "inventoryRows program";
  const RunResult alone = directory.run(rows);
  ASSERT_EQ(std::count(alone.out.begin(), alone.out.end(), '\n'), 33) << alone.out;
  const std::string faults[] = {
      "pipe2:error=EMFILE:when=1",  // no queue
      "pipe2:error=EMFILE:when=2",  // no pipe for results
      "pipe2:error=EMFILE:when=3",  // a single helper
      "clone:error=EAGAIN",         // no helper
      "prctl:signal=SIGSEGV",       // helpers end before they begin
      "write:error=EIO:when=1",     // the first write of each process: to the queue, or of results
  };
  const RunResult shared = directory.run(rows + " -j3 --share");
  EXPECT_EQ(shared.out, alone.out) << shared.err;
  if (SANITIZED) GTEST_SKIP() << "sanitizers need pipes of their own";
  if (run("strace -o /dev/null true").status != 0) GTEST_SKIP() << "strace does not work here";
  for (const std::string& fault : faults) {
    const std::string call = fault.substr(0, fault.find(':'));
    const RunResult result =
        directory.run("strace -f -qq -o trace -e trace=" + call + " -e inject=" + fault + " " + rows + " -j3 --share");
    EXPECT_EQ(result.out, alone.out) << fault << result.err;
    EXPECT_EQ(result.status, 0) << fault << result.err;
    const std::string trace = readFile(directory / "trace");
    EXPECT_NE(trace.find(fault.find("SIG") != std::string::npos ? "SIGSEGV" : "INJECTED"), std::string::npos) << fault;
  }
}

TEST(Inventory, WarningsBetweenProcesses) {
  Findings sent;
  for (const char* why : {"it is small", "it is large"}) {
    for (const char* what : {"a", "b", "c", "d", "e"}) sent.warnings.add(why, what);
  }
  sent.warnings.append({"something else"});
  const std::string bytes = packFindings({{3, sent}});
  EXPECT_EQ(unpackFindings(bytes).at(0).second.warnings.sentences(), sent.warnings.sentences());
  EXPECT_EQ(sent.warnings.sentences().size(), 3U);
}

// Bytes changed at random, in programs of several kinds and in a .dwo file: an error or an inventory, and no crash.
TEST(Inventory, DamagedPrograms) {
  const std::string cases[][2] = {{"gcc -gdwarf-4", "program"},
                                  {"gcc -gdwarf-5 -O2", "program"},
                                  {"clang -g", "program"},
                                  {"g++ -x c++ -gdwarf-4 -fdebug-types-section", "program"},
                                  {"g++ -x c++ -gdwarf-5 -gsplit-dwarf -fdebug-types-section", "program-s.dwo"}};
  std::mt19937 random(11);
  for (const auto& [build, file] : cases) {
    const TempDir directory;
    writeFile(directory / "s.c",
              "struct s { int a[3]; struct s *n; } v; long q(void) { static long k; return ++k; }\n"
              "char *(*f)(long); int main() { return (int)q() + v.a[1]; }\n");
    directory.run("echo 'struct { int i; } t;' >t.c; " + build +
                  " -w -nostartfiles -nostdlib -Wl,-emain s.c t.c -o program");
    const std::string good = readFile(directory / file);
    ASSERT_FALSE(good.empty()) << build;
    for (int round = 0; round < 300; ++round) {
      std::string bytes = good;
      for (int i = 0; i < 30; ++i) bytes[random() % bytes.size()] = static_cast<char>(random());
      std::copy_n(good.begin(), 64, bytes.begin());
      writeFile(directory / file, bytes);
      for (const std::string& row : inventoryOf(directory / "program", {.artificial = true, .declarations = true}))
        EXPECT_NE(row.front(), '|') << "a variable without a name";
      if (round % 10 != 0) continue;
      const ReadOptions shared{.jobs = 2, .bytesOfProcess = 1};
      EXPECT_EQ(joined(inventoryOf(directory / "program", shared)), joined(inventoryOf(directory / "program")));
    }
  }
}
