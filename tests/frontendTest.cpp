// `tolquin tables`: names as gdb spells them, unusual programs, errors, damage.
#include <gtest/gtest.h>

#include <random>

#include "debuginfo/cxxNames.h"
#include "debuginfo/inventory.h"
#include "support.h"

namespace {

// A directory with a small program of one variable.
class FrontEnd : public testing::Test {
 protected:
  void SetUp() override {
    const RunResult built =
        directory.run("echo 'long counter = 1; int main(void) { return 0; }' | gcc -g -x c - -o program");
    ASSERT_EQ(built.status, 0) << built.err;
  }

  const TempDir directory;
};

// A shell function: `scan PROGRAM DIRECTORY [OPTION]` makes the tables of the program, and the result from them.
const std::string scan = R"(
scan() { tolquin tables --quiet $3 -o $2 $1; EXEFILE=$PWD/$1 DB=$2 PATH=$LOCATOR:$PATH tolquin.exe $2 $PWD/$1; }
)";

}  // namespace

TEST_F(FrontEnd, NamesAsGdbSpellsThem) {
  const std::string cases[][3] = {
      {"long unsigned int", "unsigned long", "unsigned long"},
      {"A<B<int>>", "A<B<int> >", "A<B<int> >"},
      {"W<a::T *, 4UL>", "W<a::T*, 4ul>", "W<T*, 4ul>"},
      {"__int128 unsigned", "__int128 unsigned", "__int128 unsigned"},
      {"a::pair<const b::T, short int>", "a::pair<b::T const, short>", "pair<T const, short>"},
      {"F<void(const a::T&)>", "F<void(const a::T&)>", "F<void(const T&)>"},
      {"M<a::K*, std::less<a::K*> >::it", "M<a::K*, std::less<a::K*> >::it", "it"},
      {"(anonymous namespace)::T", "(anonymous namespace)::T", "T"},
      {"int A::*", "int A::*", "int A::*"},
      {"C<L'a', '\\x41'>", "C<L'a', '\\x41'>", "C<L'a', '\\x41'>"},
      {"C<'>', '\\'', (char)':'>", "C<(char)'>', (char)'\\'', (char)':'>", "C<(char)'>', (char)'\\'', (char)':'>"},
      {"P<const S, F<S(long unsigned int)> >", "P<const S, F<S(long unsigned int)> >",
       "P<const S, F<S(long unsigned int)> >"},
      {"P<const S, int (S::*)(const S &, long unsigned int)>", "P<S const, int (S::*)(S const&, unsigned long)>",
       "P<S const, int (S::*)(S const&, unsigned long)>"},
      {"P<const int (&)(const S&, ...)>", "P<int const (&)(S const&, ...)>", "P<int const (&)(S const&, ...)>"},
      {"P<int (* (*)(const S&))[4], int[3]>", "P<int (*(*)(S const&)) [4], int [3]>",
       "P<int (*(*)(S const&)) [4], int [3]>"},
      {"W<(& n::nv), const S *const volatile *>", "W<&n::nv, S const* const volatile*>",
       "W<&nv, S const* const volatile*>"},
      {"V<const S, V<> >", "V<const S, V<> >", "V<const S, V<> >"},
      {"f[abi:cxx11]", "f[abi:cxx11]", "f[abi:cxx11]"},
      {"::::<<(>", "::::<<(>", "<<(>"},
      {"A::operator<::n", "A::operator<::n", "n"},
      {"A::operator>><long int>::n", "A::operator>><long>::n", "n"},
      {"A::operator<< <B::C<int> >", "A::operator<< <B::C<int> >", "operator<< <C<int> >"},
      {"A::operator()::n", "A::operator()::n", "n"},
  };
  for (const auto& [name, canonical, plain] : cases) {
    EXPECT_EQ(canonicalName(name), canonical);
    EXPECT_EQ(withoutScopes(canonicalName(name)), plain);
  }
  EXPECT_EQ(scopesOf("A::operator<::n").size(), 3u);
}

TEST_F(FrontEnd, TablesOfASmallProgram) {
  EXPECT_EQ(directory.run("tolquin tables program; cat program.vym/* | sed -E 's/(0x)?[0-9a-f]{4,16}/ADDRESS/'").out,
            "program.vym: 1 variable, 1 declaration, 1 type size\n"
            "ADDRESS 8 counter\nlong counter /* ADDRESS */;\nlong\t8\n");
  // A structured binding has no name that gdb could be asked for.
  directory.run(R"(echo 'static auto [a, b] = (int[2]){1}; int main() { return a; }' >b.cpp
clang++ -g b.cpp -w -std=c++17 -o b)");
  EXPECT_TRUE(directory.run("tolquin tables b").err.starts_with("tolquin: b: warning: 1 variable left out: "));
}

// A variable that the index cannot hold is left out if gdb would find another one of its name first; an object of size
// 0 does not hide a variable at the same address.
TEST_F(FrontEnd, NamesakesAndEmptyObjects) {
  writeFile(directory / "x.cpp",
            "#include <string>\nstruct S { int a; };\nint S::*offset = &S::a;\nint S::*alone = &S::a;\n"
            "struct M { int f() { return 1; } }; int (M::*method)() = &M::f;\n"
            "namespace other { char offset; short text; }\nnamespace A { struct T { long l; }; }\n"
            "A::T value;\nstd::string text;\nint main() { return other::offset; }\n");
  writeFile(directory / "z.c",
            "struct empty {};\nstruct empty key;\nlong counter;\nint main(void) { return counter; }\n");
  const RunResult result = directory.run(scan + R"(
g++ -g x.cpp -o x; gcc -g -fcommon z.c -o z; scan x x.vym; scan z z.vym; scan x q --qualified
for d in x.vym q z.vym; do cut -f2-5 $d/tGlobalVarDef.tbl | sort; done)");
  EXPECT_EQ(splitAt(result.err, '\n').size(), 2u) << result.err;
  EXPECT_NE(result.err.find("2 variables left out"), std::string::npos) << result.err;
  EXPECT_EQ(result.out,
            "alone\tint S::*\t8\t-1\n"
            "other::offset\tchar\t1\t1\nother::text\tshort\t2\t2\ntext\tstring\t32\t32\nvalue\tT\t8\t8\n"
            "alone\tint S::*\t8\t-1\nother::offset\tchar\t1\t1\nother::text\tshort\t2\t2\nvalue\tA::T\t8\t8\n"
            "counter\tlong\t8\t8\n");
}

// Name, type and both sizes of each variable.
TEST_F(FrontEnd, UnusualPrograms) {
  const std::string longest = "struct " + std::string(2100, 'S');  // which the index cannot hold, but gdb knows
  const std::string cases[][3] = {
      {"gcc -g -x c", longest + " { long l; } v;", "v\t" + longest + "\t8\t8\n"},
      {"gcc -g1 -x c", "struct S { long l[4]; } s; double d[3];", ""},
      {"clang -g -fsanitize=address -x c", "static char text[5]; char *use(void) { return text; }",
       "text\tstatic char *\t5\t1\n"},
      {"gcc -g -x c",
       "struct F { int n; char a[]; } f = {1, \"xy\"}; char *(*reader)(int); char *name; void (*hook)(void);",
       "f\tstruct F\t7\t4\nhook\tvoid (*)(void)\t8\t-1\nname\tchar *\t8\t1\nreader\tchar *(*)(int)\t8\t1\n"},
      {"gcc -w -g -fdebug-types-section -fcommon -x c", "struct Z {}; struct Z none[3]; struct S { long l; } some[3];",
       "none\tstruct Z *\t0\t0\nsome\tstruct S *\t24\t8\n"},
      {"g++ -g -x c++", "int fn(int); int (&rf)(int) = fn; int fn(int i) { return i; }", "rf\tint (&)(int)\t8\t-1\n"},
      {"clang++ -g -fdebug-types-section -x c++", "namespace n { struct A { static int x; }; int A::x; }",
       "n::A::x\tint\t4\t4\n"},
      {"gcc -g -O2 -fmerge-all-constants -x c", "const char a[] = \"xyz\", b[] = \"xyz\"; const char *p = a, *q = b;",
       "a\tconst char *\t4\t1\np\tconst char *\t8\t1\nq\tconst char *\t8\t1\n"},
      {"gcc -g -std=c17 -x c", "#line 7 \"q:12\"\nstruct P { int x; } p;", "p\tstruct P\t4\t4\n"},
  };
  for (const auto& [compiler, source, rows] : cases) {
    writeFile(directory / "odd.c", source + "\nint main(void) { return 0; }\n");
    const RunResult result = directory.run(
        scan + compiler + " odd.c -o odd && scan odd odd.vym; cut -f2-5 odd.vym/tGlobalVarDef.tbl | sort");
    EXPECT_EQ(result.out, rows) << compiler << result.err;
    const bool hasMerged = compiler.find("-fmerge-all-constants") != std::string::npos;
    EXPECT_EQ(result.err.find("1 variable left out: another") != std::string::npos, hasMerged) << result.err;
    if (!source.starts_with("#line")) continue;
    EXPECT_EQ(directory.run("cut -f8,9 odd.vym/tGlobalVarDef.tbl").out, "<NULL>\t0\n");
  }
}

TEST_F(FrontEnd, ErrorsSayWhatToDo) {
  directory.run(R"(echo no program >text; strip -o stripped program; head -c 5000 program >short; cp program sizes.tbl
gcc -c -g -x c /dev/null -o o.o)");
  const std::string cases[][2] = {{"none", "none: cannot open: No such file or directory"},
                                  {"text", "text: is not an ELF file; expected an executable or shared object"},
                                  {".", ".: is not an ELF file"},
                                  {"o.o", "o.o: is an object file"},
                                  {"stripped", "compile it with -g"},
                                  {"short", "short: has no section headers; the file is truncated"},
                                  {"program -o text/x", "text/x: cannot create directory: Not a directory"},
                                  {"sizes.tbl -o .", "./sizes.tbl: is the executable"}};
  for (const auto& [arguments, message] : cases) {
    const RunResult result = directory.run("tolquin tables " + arguments);
    EXPECT_EQ(result.status, 1) << arguments;
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.err.starts_with("tolquin: ")) << result.err;
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
  }
  // A full disk leaves earlier tables unchanged, and no other files.
  const RunResult full =
      directory.run("tolquin tables program >log; (ulimit -f 0; tolquin tables program) 2>&1 | cat; ls -A *.vym");
  EXPECT_EQ(full.out,
            "tolquin: program.vym/objdump.1: cannot be written: File too large\nobjdump.1\nobjdump.txt\nsizes.tbl\n");
}

// A package gives the same tables and locations as the .dwo files in it, in both package formats.
TEST_F(FrontEnd, PackagesOfDwoFiles) {
  for (const std::string tools : {"gcc g++ -gdwarf-4 dwp", "clang clang++ -gdwarf-5 llvm-dwp"}) {
    const RunResult result = directory.run("set -e; set -- " + tools + R"(
      rm -rf *.dwp a b; cp $SOURCE/examples/inventory/*.* .
      $1 -w $3 -gsplit-dwarf -c parts.c; $2 -w $3 -gsplit-dwarf -c main.cpp; $2 *.o -o p
      tables() { tolquin tables --quiet -o $1 p; DB=$1 PATH=$LOCATOR:$PATH tolquin.exe $1 $PWD/p; rm $1/vifa.dat; }
      tables a; $4 -e p -o p.dwp; rm *.dwo; tables b; wc -l <a/tGlobalVarDef.tbl; diff -r a b)");
    EXPECT_EQ(result.out, "42\n") << tools << result.err;
    EXPECT_EQ(result.status, 0) << tools << result.err;
  }
}

// Bytes of the debugging information changed at random, in a program and in a package of .dwo files: an error or a
// table, never a crash or a hang.
TEST_F(FrontEnd, DamagedDebuggingInformation) {
  directory.run(R"(echo 'long a; int main(void) { return 0; }' >s.c
gcc -g -gdwarf-4 -gsplit-dwarf s.c -o split; dwp -e split; rm *.dwo)");
  std::mt19937 random(7);
  for (const std::string file : {"program", "split.dwp"}) {
    const std::string good = readFile(directory / file);
    const std::size_t from = file == "program" ? good.size() / 2 : 0;
    for (int round = 0; round < 100; ++round) {
      std::string bytes = good;
      for (int i = 0; i < 40; ++i) bytes[from + random() % (bytes.size() - from)] = static_cast<char>(random());
      writeFile(directory / file, bytes);
      const RunResult result = directory.run("timeout 60 tolquin tables " + file.substr(0, file.find('.')));
      ASSERT_LE(result.status, 1) << file << round << ": " << result.err;
      const bool warned = result.err.find("warning") != std::string::npos;
      EXPECT_EQ(result.status == 1 || warned, result.err.starts_with("tolquin: ")) << result.err;
    }
  }
}
