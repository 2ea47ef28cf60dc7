/*
 * insncount: a qemu-user TCG plugin that counts the 32-bit ARM (A32/T32)
 * instructions a program executes, by class, for scripts/board-cost.
 *
 *   cc -shared -fPIC -O2 -o insncount.so bench/armcount/insncount.c
 *   qemu-arm -plugin ./insncount.so,out=REPORT[,hist=N] PROGRAM ARGS...
 *
 * Each translated block is classified once from its disassembly; an inline
 * counter per block counts its executions, and at exit the counts are the
 * blocks' class counts times their executions. The report has one
 * "name value" line per class and sub-count (and "mnem NAME COUNT" lines for
 * the N most executed mnemonics with hist=N).
 *
 * Classes (their sum is "total"):
 *   fp_arith   FP/SIMD data processing: every v* instruction other than the
 *              loads, stores and moves below (vadd, vmul, vmla, vfma, vdiv,
 *              vcvt, vcmp, NEON permutes such as vdup/vzip/vext, ...)
 *   fp_ldst    vldr vstr vld1-4 vst1-4 vldm vstm vpush vpop
 *   fp_move    vmov vmrs vmsr
 *   int_ldst   ldr* str* ldm* stm* push pop pld (those writing pc: branch)
 *   branch     b bl blx bx cbz cbnz tbb tbh and every write to pc
 *   int_other  the rest (ALU, multiplies, divides, it, svc, ...)
 * Sub-counts: fp_arith by register file (vfp_s: scalar single, vfp_f64:
 * scalar double, neon_d: 64-bit vector, neon_q: 128-bit vector), div_sqrt,
 * mac (multiply-accumulate); registers moved by multi-register transfers.
 *
 * In qemu-system-arm (the emulated board, scripts/board-cost-vm) two more
 * options: kernel=ADDR (default 0xc0000000) counts blocks at or above that
 * virtual address as the kernel's, and each SIGUSR2 to QEMU writes the counts
 * so far to REPORT.markN, REPORT.markN.kernel and REPORT.markN.user (N = 1,
 * 2, ...; same format, no mnemonics), so that a window of the guest's time is
 * the difference of two marks.
 *
 * The build needs no QEMU headers: the few declarations of QEMU's plugin API
 * (version 1, as in Debian's QEMU 7.2) that it uses are below.
 */
#include <ctype.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* ---- QEMU plugin API, version 1 (qemu-plugin.h of QEMU 7.2) ---- */
typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t {
  const char *target_name;
  struct {
    int min;
    int cur;
  } version;
  bool system_emulation;
  union {
    struct {
      int smp_vcpus;
      int max_vcpus;
    } system;
  };
} qemu_info_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
enum qemu_plugin_op { QEMU_PLUGIN_INLINE_ADD_U64 };
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void *userdata);
typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb *tb);
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *tb, enum qemu_plugin_op op,
                                              void *ptr, uint64_t imm);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void *userdata);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *tb);
struct qemu_plugin_insn *qemu_plugin_tb_get_insn(const struct qemu_plugin_tb *tb, size_t idx);
char *qemu_plugin_insn_disas(const struct qemu_plugin_insn *insn);
uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb *tb);

#define EXPORT __attribute__((visibility("default")))
EXPORT int qemu_plugin_version = 1;

/* ---- classes and sub-counts ---- */
enum {
  FP_ARITH, FP_LDST, FP_MOVE, INT_LDST, BRANCH, INT_OTHER, N_CLASSES,
  VFP_S = N_CLASSES, VFP_F64, NEON_D, NEON_Q, DIV_SQRT, MAC, INT_MULTI_REGS, FP_MULTI_REGS,
  N_COUNTS
};
static const char *const kCountNames[N_COUNTS] = {
    "fp_arith", "fp_ldst", "fp_move", "int_ldst", "branch", "int_other",
    "fp_arith.vfp_s", "fp_arith.vfp_f64", "fp_arith.neon_d", "fp_arith.neon_q",
    "fp_arith.div_sqrt", "fp_arith.mac", "int_ldst.multi_regs", "fp_ldst.multi_regs"};

/* Mnemonics seen, for the hist=N list. */
#define MAX_MNEMONICS 4096
static char *mnemonics[MAX_MNEMONICS];
static uint64_t mnemonic_exec[MAX_MNEMONICS];
static int n_mnemonics;

static int mnemonic_id(const char *m) {
  for (int i = 0; i < n_mnemonics; ++i)
    if (strcmp(mnemonics[i], m) == 0) return i;
  if (n_mnemonics == MAX_MNEMONICS) return MAX_MNEMONICS - 1;
  mnemonics[n_mnemonics] = strdup(m);
  return n_mnemonics++;
}

/* One record per translated block; blocks are translated under QEMU's lock in
 * user mode, so the list needs none. */
typedef struct Block {
  uint64_t exec; /* executions, incremented inline */
  uint32_t count[N_COUNTS];
  int n_insns;
  int kernel; /* at or above the kernel address */
  int *mnemonic; /* mnemonic id per instruction */
  struct Block *next;
} Block;
static Block *blocks;
static const char *out_path;
static int hist_n;
static uint64_t kernel_base = 0xc0000000u;
static volatile int marks;

static bool starts_with(const char *s, const char *prefix) {
  return strncmp(s, prefix, strlen(prefix)) == 0;
}

/* Is s (n characters) one of the condition-code suffixes? */
static bool is_condition(const char *s, size_t n) {
  static const char kConds[] = "eqnecshscclomiplvsvchilsgeltgtleal";
  if (n != 2) return false;
  for (size_t i = 0; i + 1 < sizeof kConds; i += 2)
    if (s[0] == kConds[i] && s[1] == kConds[i + 1]) return true;
  return false;
}

/* Is mnemonic m the stem, optionally followed by a condition, then the end or a
 * '.' (data type or width suffix)? "vaddeq.f32" has the stem "vadd". */
static bool has_stem(const char *m, const char *stem) {
  size_t n = strlen(stem);
  if (strncmp(m, stem, n) != 0) return false;
  const char *rest = m + n;
  const char *dot = strchr(rest, '.');
  size_t len = dot ? (size_t)(dot - rest) : strlen(rest);
  return len == 0 || is_condition(rest, len);
}
static bool has_any_stem(const char *m, const char *const *stems) {
  for (; *stems; ++stems)
    if (has_stem(m, *stems)) return true;
  return false;
}

/* Registers named in a {...} list; ranges such as {d8-d15} count each one. */
static int list_registers(const char *operands) {
  const char *p = strchr(operands, '{');
  if (!p) return 1;
  int n = 0;
  for (++p; *p && *p != '}';) {
    while (*p == ' ' || *p == ',') ++p;
    if (!*p || *p == '}') break;
    const char *token = p;
    while (*p && *p != ',' && *p != '}') ++p;
    const char *dash = memchr(token, '-', (size_t)(p - token));
    if (dash && isdigit((unsigned char)token[1]) && isdigit((unsigned char)dash[2])) {
      int first = atoi(token + 1), last = atoi(dash + 2);
      n += last >= first ? last - first + 1 : 1;
    } else {
      ++n;
    }
  }
  return n ? n : 1;
}

/* Which register files the operands name: s, d or q registers. */
static void register_files(const char *operands, bool *s, bool *d, bool *q) {
  *s = *d = *q = false;
  for (const char *p = operands; *p; ++p) {
    bool word_start = p == operands || !(isalnum((unsigned char)p[-1]) || p[-1] == '_');
    if (!word_start || !isdigit((unsigned char)p[1])) continue;
    const char *e = p + 1;
    while (isdigit((unsigned char)*e)) ++e;
    if (isalnum((unsigned char)*e) || *e == '_') continue;
    if (*p == 's') *s = true;
    if (*p == 'd') *d = true;
    if (*p == 'q') *q = true;
  }
}

static bool writes_pc(const char *base, const char *operands) {
  if (strstr(operands, "pc}") && (starts_with(base, "pop") || starts_with(base, "ldm"))) return true;
  if (starts_with(operands, "pc,") || starts_with(operands, "pc ")) {
    static const char *const kReadOnly[] = {"str", "cmp", "cmn", "tst", "teq", "pld", NULL};
    for (const char *const *r = kReadOnly; *r; ++r)
      if (starts_with(base, *r)) return false;
    return true;
  }
  return false;
}

static void classify_vector(const char *m, const char *operands, uint32_t *count) {
  static const char *const kLoadStore[] = {"vldr", "vstr", "vld1", "vld2", "vld3", "vld4", "vst1",
                                           "vst2", "vst3", "vst4", "vpush", "vpop", NULL};
  static const char *const kMoves[] = {"vmov", "vmrs", "vmsr", NULL};
  static const char *const kMac[] = {"vmla", "vmls", "vnmla", "vnmls", "vfma", "vfms", "vfnma", "vfnms", NULL};
  static const char *const kDivSqrt[] = {"vdiv", "vsqrt", NULL};
  bool multi = starts_with(m, "vldm") || starts_with(m, "vstm");
  if (multi || has_any_stem(m, kLoadStore)) {
    count[FP_LDST]++;
    if (multi || has_stem(m, "vpush") || has_stem(m, "vpop")) count[FP_MULTI_REGS] += list_registers(operands);
    return;
  }
  if (has_any_stem(m, kMoves)) {
    count[FP_MOVE]++;
    return;
  }
  bool s, d, q;
  register_files(operands, &s, &d, &q);
  count[FP_ARITH]++;
  if (q)
    count[NEON_Q]++;
  else if (strstr(m, ".f64"))
    count[VFP_F64]++;
  else if (d)
    count[NEON_D]++;
  else
    count[VFP_S]++;
  if (has_any_stem(m, kDivSqrt)) count[DIV_SQRT]++;
  if (has_any_stem(m, kMac)) count[MAC]++;
}

static void classify_integer(const char *base, const char *operands, uint32_t *count) {
  bool multi = starts_with(base, "ldm") || starts_with(base, "stm") || starts_with(base, "push") ||
               starts_with(base, "pop");
  if (writes_pc(base, operands)) {
    count[BRANCH]++;
    if (multi) count[INT_MULTI_REGS] += list_registers(operands);
    return;
  }
  static const char *const kBranches[] = {"b", "bl", "blx", "bx", "bxj", NULL};
  if (has_any_stem(base, kBranches) || !strcmp(base, "cbz") || !strcmp(base, "cbnz") ||
      !strcmp(base, "tbb") || !strcmp(base, "tbh")) {
    count[BRANCH]++;
    return;
  }
  static const char *const kLoadStore[] = {"ldr", "str", "ldm", "stm", "push", "pop", "pld", "pli",
                                           "lda", "stl", "swp", "srs", "rfe", NULL};
  for (const char *const *l = kLoadStore; *l; ++l)
    if (starts_with(base, *l)) {
      count[INT_LDST]++;
      if (multi) count[INT_MULTI_REGS] += list_registers(operands);
      return;
    }
  count[INT_OTHER]++;
}

/* Classifies one disassembled instruction ("vadd.f32 s0, s1, s2") and returns
 * its lower-case mnemonic in mnemonic[64]. */
static void classify(const char *text, uint32_t *count, char *mnemonic) {
  while (*text == ' ' || *text == '\t') ++text;
  size_t n = 0;
  while (text[n] && text[n] != ' ' && text[n] != '\t' && n < 63) {
    mnemonic[n] = (char)tolower((unsigned char)text[n]);
    ++n;
  }
  mnemonic[n] = 0;
  const char *operands = text + n;
  while (*operands == ' ' || *operands == '\t') ++operands;
  if (mnemonic[0] == 'v') {
    classify_vector(mnemonic, operands, count);
    return;
  }
  char base[64]; /* without a .w/.n width suffix */
  snprintf(base, sizeof base, "%s", mnemonic);
  size_t len = strlen(base);
  if (len > 2 && base[len - 2] == '.' && (base[len - 1] == 'w' || base[len - 1] == 'n')) base[len - 2] = 0;
  classify_integer(base, operands, count);
}

static void on_translate(qemu_plugin_id_t id, struct qemu_plugin_tb *tb) {
  (void)id;
  size_t n = qemu_plugin_tb_n_insns(tb);
  Block *b = calloc(1, sizeof *b);
  b->n_insns = (int)n;
  b->kernel = qemu_plugin_tb_vaddr(tb) >= kernel_base;
  b->mnemonic = calloc(n ? n : 1, sizeof *b->mnemonic);
  for (size_t i = 0; i < n; ++i) {
    char *text = qemu_plugin_insn_disas(qemu_plugin_tb_get_insn(tb, i));
    char mnemonic[64];
    classify(text ? text : "?", b->count, mnemonic);
    b->mnemonic[i] = mnemonic_id(mnemonic);
    free(text);
  }
  b->next = blocks;
  blocks = b;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &b->exec, 1);
}

static int by_executions(const void *a, const void *b) {
  uint64_t x = mnemonic_exec[*(const int *)a], y = mnemonic_exec[*(const int *)b];
  return x < y ? 1 : x > y ? -1 : 0;
}

static void on_program_exit(qemu_plugin_id_t id, void *userdata) {
  (void)id;
  (void)userdata;
  uint64_t total[N_COUNTS] = {0};
  for (Block *b = blocks; b; b = b->next) {
    for (int c = 0; c < N_COUNTS; ++c) total[c] += b->exec * b->count[c];
    for (int i = 0; i < b->n_insns; ++i) mnemonic_exec[b->mnemonic[i]] += b->exec;
  }
  uint64_t sum = 0;
  for (int c = 0; c < N_CLASSES; ++c) sum += total[c];
  FILE *f = out_path ? fopen(out_path, "w") : NULL;
  if (!f) f = stderr;
  fprintf(f, "total %llu\n", (unsigned long long)sum);
  for (int c = 0; c < N_COUNTS; ++c) fprintf(f, "%s %llu\n", kCountNames[c], (unsigned long long)total[c]);
  if (hist_n > 0) {
    int order[MAX_MNEMONICS];
    for (int i = 0; i < n_mnemonics; ++i) order[i] = i;
    qsort(order, (size_t)n_mnemonics, sizeof order[0], by_executions);
    for (int i = 0; i < n_mnemonics && i < hist_n; ++i)
      fprintf(f, "mnem %s %llu\n", mnemonics[order[i]], (unsigned long long)mnemonic_exec[order[i]]);
  }
  if (f != stderr) fclose(f);
}

/* SIGUSR2: the counts so far, all, kernel and user, each to its own file.
 * Blocks are only ever added at the list's head, so the walk is safe while
 * the vCPU runs; a counter read while it is incremented is off by one. */
static void write_report(const char *path, const uint64_t *total) {
  char text[1024];
  uint64_t sum = 0;
  for (int c = 0; c < N_CLASSES; ++c) sum += total[c];
  int len = snprintf(text, sizeof text, "total %llu\n", (unsigned long long)sum);
  for (int c = 0; c < N_COUNTS && len < (int)sizeof text; ++c)
    len += snprintf(text + len, sizeof text - (size_t)len, "%s %llu\n", kCountNames[c],
                    (unsigned long long)total[c]);
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return;
  if (write(fd, text, (size_t)len) != len) { /* a short report shows as one */
  }
  close(fd);
}

static void on_mark(int signo) {
  (void)signo;
  uint64_t part[2][N_COUNTS] = {{0}}, all[N_COUNTS] = {0};
  for (Block *b = blocks; b; b = b->next)
    for (int c = 0; c < N_COUNTS; ++c) part[b->kernel ? 1 : 0][c] += b->exec * b->count[c];
  for (int c = 0; c < N_COUNTS; ++c) all[c] = part[0][c] + part[1][c];
  const int n = ++marks;
  char path[4096];
  const char *base = out_path ? out_path : "insncount";
  snprintf(path, sizeof path, "%s.mark%d", base, n);
  write_report(path, all);
  snprintf(path, sizeof path, "%s.mark%d.kernel", base, n);
  write_report(path, part[1]);
  snprintf(path, sizeof path, "%s.mark%d.user", base, n);
  write_report(path, part[0]);
}

EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t *info, int argc, char **argv) {
  for (int i = 0; i < argc; ++i) {
    if (starts_with(argv[i], "out="))
      out_path = argv[i] + 4;
    else if (starts_with(argv[i], "hist="))
      hist_n = atoi(argv[i] + 5);
    else if (starts_with(argv[i], "kernel="))
      kernel_base = strtoull(argv[i] + 7, NULL, 0);
    else {
      fprintf(stderr, "insncount: unknown argument %s\n", argv[i]);
      return -1;
    }
  }
  if (info->system_emulation) signal(SIGUSR2, on_mark);
  qemu_plugin_register_vcpu_tb_trans_cb(id, on_translate);
  qemu_plugin_register_atexit_cb(id, on_program_exit, NULL);
  return 0;
}
