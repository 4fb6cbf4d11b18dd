# Shared by the scripts in this directory, which source it from the root of the project.

# Writes a program of $1 global variables of mixed types to $2.c, and compiles it to $2.
generate_program() {
  awk -v n="$1" 'BEGIN {
    split("int;unsigned long;char *;double;struct point", type, ";")
    print "struct point { int x, y; };"
    for (i = 0; i < n; ++i) printf "%s%s variable_%d%s;\n", i % 3 ? "" : "static ", type[i % 5 + 1], i, i % 7 ? "" : "[4]"
    print "void *use(int i) { switch (i) {"
    for (i = 0; i < n; i += 3) printf "case %d: return &variable_%d;\n", i, i
    print "} return 0; }\nint main(void) { return use(1) != 0; }" }' >"$2.c"
  gcc -g -O0 -fno-pie -no-pie -w "$2.c" -o "$2"
}

# Runs a command, discards its output, and prints the seconds that it takes.
seconds() {
  local start=$EPOCHREALTIME status=0
  "$@" >/dev/null 2>&1 || status=$?
  awk -v a="$start" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.3f\n", b - a }'
  return "$status"
}
