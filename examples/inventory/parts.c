/* The C half: static variables of files and functions, arrays, pointers to functions, unnamed structs. */
#include "parts.h"

#include <string.h>

#define POOL_SIZE 16

struct part *first_part;
unsigned long part_count = 0;
unsigned long stock_by_month[4][12];
const char *const unit_names[3] = {"piece", "metre", "litre"};
static struct part pool[POOL_SIZE];
static const char *last_code = "";
static volatile unsigned char busy;
static char **code_list;
_Bool closed = 0;
double price_factor = 1.25;

struct {
  int year;
  int month;
} season = {2024, 5};

union {
  unsigned bits;
  float value;
} scratch;

static int in_stock(const struct part *part, unsigned least) { return part->stock >= least; }

part_filter current_filter = in_stock;
int (*compare_codes)(const char *, const char *) = strcmp;
void (*hooks[2])(void);

struct part *add_part(const char *code, enum unit unit, unsigned stock) {
  static unsigned next_slot = 0;
  static char message[40] = "store is full";
  if (next_slot == POOL_SIZE) {
    last_code = message;
    return 0;
  }
  struct part *part = &pool[next_slot++];
  strncpy(part->code, code, sizeof part->code - 1);
  part->unit = unit;
  part->stock = stock;
  part->next = first_part;
  first_part = part;
  last_code = part->code;
  stock_by_month[0][season.month] += stock;
  scratch.bits ^= (unsigned)strlen(unit_names[unit]);
  ++part_count;
  if (hooks[0]) hooks[0]();
  return part;
}

unsigned count_parts(void) {
  static unsigned next_slot = 7; /* another variable of this name is in add_part */
  unsigned count = 0;
  busy = 1;
  code_list = 0;
  for (struct part *part = first_part; part; part = part->next) {
    if (!closed && current_filter(part, 1) && compare_codes(part->code, last_code) >= 0) ++count;
  }
  busy = 0;
  next_slot = (unsigned)((double)next_slot * price_factor) % 5;
  return count + (code_list ? next_slot : 0);
}
