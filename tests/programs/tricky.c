/* C variables of every kind that compilers describe differently. */
#include <complex.h>
#include <stdatomic.h>
typedef const char *names_t[3];
const names_t typed = {"a", "b", "c"};
typedef int grid_t[2][3];
static const volatile grid_t cells = {{1, 2, 3}};
__thread int per_thread = 3;
static _Thread_local long per_thread_zero[4];
struct flexible { int n; char text[]; } flexible = {1, "xy"};
struct empty {};
struct empty nothing;
_Atomic int atomic_count;
double _Complex complex_value;
#ifdef __SIZEOF_INT128__
__int128 wide_number;
#endif
typedef int vec4 __attribute__((vector_size(16)));
vec4 vector_value;
int (*(*returns_array)(int, ...))[5];
void (*noargs)();
char *restrict const only = 0;
extern struct opaque *hidden;
struct opaque *hidden;
struct opaque { int a, b; };
enum color { RED, GREEN } color = GREEN;
enum { ONE = 1 } unnamed_enum = ONE;
struct node { struct node *next; union { int i; float f; }; struct { int x : 3; int y : 5; } bits; } nodes[2];
static inline __attribute__((always_inline)) int lex(int a) { static int state = 5; static int table[4]; state += a; table[a & 3]++; return state + table[1]; }
int lex_user(int a) { static int state; per_thread += a; per_thread_zero[a & 3]++; state++; return lex(a) + state; }
int lex_user2(int a) { { static short inner_state; inner_state += (short)a; return lex(a + 1) + inner_state; } }
const char merged_a[] = "merged", merged_b[] = "merged";
static const char *const kinds[3] = {"x", "y", "z"};
const char *kind(int i) { return kinds[i]; }
int const *const volatile cv = 0;
int cells_user(int i) { return cells[i & 1][2]; }
_Alignas(64) char aligned[7];
unsigned char uc; signed char sc; unsigned short us; long long ll; unsigned long long ull; float f; long double ld;
int common_one;
void funcname(void) { static const char *n; n = __func__; (void)n; }
