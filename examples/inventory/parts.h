/* A small parts store: interface of the C half, used by main.cpp. */
#ifndef PARTS_H
#define PARTS_H

#ifdef __cplusplus
extern "C" {
#endif

enum unit { PIECE, METRE, LITRE };

struct part {
  char code[12];
  enum unit unit;
  unsigned stock;
  struct part *next;
};

typedef int (*part_filter)(const struct part *part, unsigned least);

extern struct part *first_part;
extern unsigned long part_count;
extern part_filter current_filter;

struct part *add_part(const char *code, enum unit unit, unsigned stock);
unsigned count_parts(void);

#ifdef __cplusplus
}
#endif

#endif
