// C++ variables of every kind that compilers describe differently.
#include <string>
#include <map>
#include <vector>
#include <memory>
#include <functional>
#include <iostream>
namespace tricky {
inline namespace v1 { int in_inline_namespace = 1; }
struct Fwd; Fwd *fwd;
static constexpr const char *kinds[3] = {"one", "two", "three"};
const char *kind(int i) { return kinds[i]; }
thread_local int tls = 4;
static thread_local std::string tls_text("x");
struct WithTls { static thread_local long member; static inline int inlined = 6; static constexpr double ratio = 2.5; static const int cst; };
thread_local long WithTls::member = 2;
const int WithTls::cst = 8;
const double *use = &WithTls::ratio;
template <typename T, int N> struct Box { static T items[N]; static std::map<std::string, T> lookup; struct Inner { static int depth; }; T get(int i) { static T last; last = items[i]; return last; } };
template <typename T, int N> T Box<T, N>::items[N];
template <typename T, int N> std::map<std::string, T> Box<T, N>::lookup;
template <typename T, int N> int Box<T, N>::Inner::depth = 3;
template <class T> T variable_template = T(3);
template <class... T> struct Pack { static int count; };
template <class... T> int Pack<T...>::count = sizeof...(T);
template <char C, bool B, unsigned long U> int values = 2;
namespace { struct Anon { static int a; int b; }; int Anon::a = 1; Anon anon; namespace deep { int far = 2; } }
auto lambda = [](int x) { static int calls = 0; return x + ++calls; };
int (&array_ref)[2] = *new int[1][2];
int &&rref = 5;
std::nullptr_t null_value = nullptr;
int Fwd_user() { return fwd != nullptr; }
struct Fwd { int q; };
int Fwd::*member_pointer = &Fwd::q;
int (WithTls::*method_pointer)(int) const = nullptr;
const std::pair<int, const char *> pairs[2] = {{1, "a"}, {2, "b"}};
std::function<int(int)> callback = lambda;
std::unique_ptr<std::vector<std::string>> owned;
enum class Kind : unsigned char { A, B }; Kind kind_value = Kind::B;
auto [bound_a, bound_b] = std::pair<int, long>{1, 2};
static union { int un_int; float un_float; };
extern "C" { int c_linkage = 3; }
[[gnu::abi_tag("tag")]] int tagged = 3;
struct Method { int run(int a) const { static int runs; struct Local { int l; static int helper() { static int helped; return ++helped; } }; static Local local{1}; return runs++ + local.l + Local::helper(); } Method() { static long constructed; constructed++; } ~Method() {} operator int() { static int conversions; return ++conversions; } int operator()(int) { static char op; return ++op; } };
template <class T> int tfunc(T t) { static T kept; kept = t; static const char *const words[] = {"p", "q"}; return words[t > 0][0]; }
inline int inl(int a) { static int in_inline; return in_inline += a; }
static int un() { un_int = 3; return (int)un_float; }
int all(int a) { static std::string memo = __PRETTY_FUNCTION__; Method m; Box<int, 3> b; Box<std::string, 2>::lookup["a"] = "b"; tls_text += "y"; Box<Kind, 1>::Inner::depth++;
 return m.run(a) + b.get(1) + tls + (int)WithTls::member + lambda(a) + variable_template<int> + (int)variable_template<long> + Pack<int, char>::count + values<'x', true, 7> + values<'\0', false, 1> + tfunc(1) + tfunc(2.5) + inl(a) + un() + anon.b + Anon::a + deep::far + (int)m + m(1) + WithTls::inlined + (int)memo.size() + (int)bound_a; }
}
int tricky_entry(int a) { return tricky::all(a); }
