// The C++ half: static members, namespaces (also unnamed), templates, inline variables, references.
#include <cstdio>

#include "parts.h"

namespace store {

struct Point {
  int x;
  int y;
};

enum class Mode : unsigned char { Closed, Open };

Point entrance{3, 4};
Mode mode = Mode::Open;
const Point *corners[2] = {&entrance, nullptr};
static long opened_at = 20240501;

namespace detail {
unsigned retries = 3;
}

class Counter {
 public:
  void count() { ++total; }
  static int total;
  static const char *const label;

 private:
  static double weights[3];
};

int Counter::total = 0;
const char *const Counter::label = "counted";
double Counter::weights[3] = {0.5, 0.25, 0.25};

template <typename Unit>
struct Stock {
  static Unit amount;
  static int changes;
};
template <typename Unit>
Unit Stock<Unit>::amount = 1;
template <typename Unit>
int Stock<Unit>::changes = 2;

inline int shared_limit = 500;

template <int N>
inline unsigned grid[N][2] = {};

}  // namespace store

namespace {
short hidden_level = 9;
store::Counter counter;
}  // namespace

int &limit_alias = store::shared_limit;
struct part *favourite = nullptr;
bool verbose = false;
wchar_t sign = L'#';
char32_t wide_sign = U'#';
long double ratio = 1.0L;
static int (store::Point::*coordinate) = &store::Point::x;

static int visits() {
  static int calls = 0;
  {
    static const char *inner = "inner";
    if (calls > 3) inner = "done";
    std::printf("%s ", inner);
  }
  return ++calls;
}

int main() {
  favourite = add_part("A-100", PIECE, 5);
  add_part("B-200", METRE, 12);
  counter.count();
  store::Stock<long>::amount += visits();
  store::Stock<double>::amount *= 2;
  store::Stock<long>::changes += store::Stock<double>::changes;
  store::grid<3>[0][1] = store::detail::retries;
  hidden_level = static_cast<short>(hidden_level + store::entrance.*coordinate);
  std::printf("%u parts, %d counted %s, limit %d, level %d, since %ld\n", count_parts(), store::Counter::total,
              store::Counter::label, limit_alias, hidden_level, store::opened_at);
  return verbose && sign == L' ' && wide_sign == U' ' && ratio > 1 && store::mode == store::Mode::Closed &&
         store::corners[1] != nullptr;
}
