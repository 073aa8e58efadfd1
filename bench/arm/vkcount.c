// Minimal QEMU TCG plugin (API v1, QEMU >= 4.2; tested 7.2): deterministic guest counts.
// Own declarations of the public plugin interface, so no header package is needed.
#include <inttypes.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
typedef uint32_t qemu_plugin_meminfo_t;
typedef struct {
    const char* target_name;
    struct {
        int min, cur;
    } version;
    bool system_emulation;
    union {
        struct {
            int smp_vcpus, max_vcpus;
        } system;
    };
} qemu_info_t;
enum { CB_NO_REGS = 0 };
enum { MEM_R = 1, MEM_W = 2, MEM_RW = 3 };
enum { INLINE_ADD_U64 = 0 };
#define EXPORT __attribute__((visibility("default")))
extern size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb*);
extern uint64_t qemu_plugin_tb_vaddr(const struct qemu_plugin_tb*);
extern struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb*, size_t);
extern uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn*);
extern const char* qemu_plugin_insn_symbol(const struct qemu_plugin_insn*);
extern char* qemu_plugin_insn_disas(const struct qemu_plugin_insn*);
extern void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t,
                                                  void (*)(qemu_plugin_id_t,
                                                           struct qemu_plugin_tb*));
extern void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb*, int op, void* ptr,
                                                     uint64_t imm);
extern void qemu_plugin_register_vcpu_mem_cb(struct qemu_plugin_insn*,
                                             void (*)(unsigned, qemu_plugin_meminfo_t, uint64_t,
                                                      void*),
                                             int flags, int rw, void*);
extern unsigned qemu_plugin_mem_size_shift(qemu_plugin_meminfo_t);
extern bool qemu_plugin_mem_is_store(qemu_plugin_meminfo_t);
extern void qemu_plugin_register_vcpu_syscall_cb(qemu_plugin_id_t,
                                                 void (*)(qemu_plugin_id_t, unsigned, int64_t,
                                                          uint64_t, uint64_t, uint64_t, uint64_t,
                                                          uint64_t, uint64_t, uint64_t, uint64_t));
extern void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, void (*)(qemu_plugin_id_t, void*),
                                           void*);
extern void qemu_plugin_outs(const char*);
EXPORT int qemu_plugin_version = 1;

enum { C_NEON_FMA, C_NEON_OTHER, C_NEON_LDST, C_VFP, C_LOAD, C_STORE, C_BRANCH, C_OTHER, NCLS };
static const char* cname[NCLS] = {"neon_fma", "neon_other", "neon_ldst", "vfp",
                                  "load",     "store",      "branch",    "other"};
static uint64_t total, cls[NCLS];
static uint64_t mem_ops[2], mem_bytes[2], l1_miss[2], l2_miss[2];
static bool do_mem, do_hot, do_symbols;
static FILE* out;

// ---- simple LRU cache model (L1D, L2), line 64
typedef struct {
    unsigned sets, ways;
    uint64_t* tag;
    uint32_t* age;
} cache_t;
static cache_t l1, l2;
static uint32_t tick;
static void c_init(cache_t* c, unsigned bytes, unsigned ways) {
    c->ways = ways;
    c->sets = bytes / 64 / ways;
    c->tag = malloc(sizeof(uint64_t) * c->sets * ways);
    memset(c->tag, 0xff, sizeof(uint64_t) * c->sets * ways);
    c->age = calloc(c->sets * ways, sizeof(uint32_t));
}
static bool c_access(cache_t* c, uint64_t line) {
    unsigned s = (unsigned)(line % c->sets) * c->ways, v = s;
    ++tick;
    for (unsigned i = s; i < s + c->ways; i++) {
        if (c->tag[i] == line) {
            c->age[i] = tick;
            return true;
        }
        if (c->age[i] < c->age[v])
            v = i;
    }
    c->tag[v] = line;
    c->age[v] = tick;
    return false;
}
static void on_mem(unsigned cpu, qemu_plugin_meminfo_t info, uint64_t va, void* ud) {
    (void)cpu;
    (void)ud;
    unsigned n = 1u << qemu_plugin_mem_size_shift(info);
    int st = qemu_plugin_mem_is_store(info);
    mem_ops[st]++;
    mem_bytes[st] += n;
    for (uint64_t l = va / 64; l <= (va + n - 1) / 64; l++)
        if (!c_access(&l1, l)) {
            l1_miss[st]++;
            if (!c_access(&l2, l))
                l2_miss[st]++;
        }
}

// ---- classification by mnemonic (capstone text)
static int classify(const char* d) {
    if (d[0] == 'v') {
        bool q = strchr(d, 'q') != NULL, dreg = strchr(d, 'd') != NULL;
        (void)dreg;
        if (!strncmp(d, "vld", 3) || !strncmp(d, "vst", 3) || !strncmp(d, "vpush", 5) ||
            !strncmp(d, "vpop", 4))
            return C_NEON_LDST;
        if ((!strncmp(d, "vmla", 4) || !strncmp(d, "vfma", 4) || !strncmp(d, "vmls", 4) ||
             !strncmp(d, "vfms", 4)) &&
            strstr(d, "f32")) {
            // VFP scalar form uses s registers
            const char* p = strchr(d, ' ');
            while (p && *p == ' ')
                p++;
            return (p && *p == 's') ? C_VFP : C_NEON_FMA;
        }
        const char* p = strchr(d, ' ');
        while (p && (*p == ' ' || *p == '\t'))
            p++;
        if (strstr(d, "f64") || (p && *p == 's') || !strncmp(d, "vmrs", 4))
            return C_VFP;
        (void)q;
        return C_NEON_OTHER;
    }
    if (!strncmp(d, "ldr", 3) || !strncmp(d, "ldm", 3) || !strncmp(d, "pop", 3) ||
        !strncmp(d, "ldrex", 5))
        return C_LOAD;
    if (!strncmp(d, "str", 3) || !strncmp(d, "stm", 3) || !strncmp(d, "push", 4))
        return C_STORE;
    if (d[0] == 'b' && strncmp(d, "bic", 3) && strncmp(d, "bfi", 3) && strncmp(d, "bfc", 3))
        return C_BRANCH;
    if (!strncmp(d, "cbz", 3) || !strncmp(d, "cbnz", 4) || !strncmp(d, "tb", 2))
        return C_BRANCH;
    return C_OTHER;
}

typedef struct hot {
    uint64_t va, n;
    uint64_t execs;
    char* text;
    struct hot* next;
} hot_t;
static hot_t* hots[4096];
static hot_t* hot_get(uint64_t va, uint64_t n) {
    unsigned h = (unsigned)((va * 0x9E3779B97F4A7C15ull) >> 52);
    for (hot_t* p = hots[h]; p; p = p->next)
        if (p->va == va && p->n == n)
            return p;
    hot_t* p = calloc(1, sizeof *p);
    p->va = va;
    p->n = n;
    p->next = hots[h];
    hots[h] = p;
    return p;
}

// ---- instructions by the symbol that their block begins in
typedef struct symbol {
    char* name;
    uint64_t insns, before;
    struct symbol* next;
} symbol_t;
static symbol_t* symbols;
static symbol_t* symbol_get(const char* name) {
    if (!name || !*name)
        name = "?";
    for (symbol_t* p = symbols; p; p = p->next)
        if (!strcmp(p->name, name))
            return p;
    symbol_t* p = calloc(1, sizeof *p);
    p->name = malloc(strlen(name) + 1);
    strcpy(p->name, name);
    p->next = symbols;
    symbols = p;
    return p;
}

static void on_tb(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
    (void)id;
    size_t n = qemu_plugin_tb_n_insns(tb);
    uint64_t c[NCLS] = {0};
    hot_t* h = do_hot ? hot_get(qemu_plugin_tb_vaddr(tb), n) : NULL;
    bool fill = h && !h->text;
    size_t cap = 0, len = 0;
    for (size_t i = 0; i < n; i++) {
        struct qemu_plugin_insn* in = qemu_plugin_tb_get_insn(tb, i);
        char* d = qemu_plugin_insn_disas(in);
        c[classify(d)]++;
        if (fill) {
            size_t l = strlen(d) + 24;
            if (len + l > cap) {
                cap = (cap + l) * 2;
                h->text = realloc(h->text, cap);
            }
            len += (size_t)sprintf(h->text + len, "    %08" PRIx64 "  %s\n",
                                   qemu_plugin_insn_vaddr(in), d);
        }
        free(d);
        if (do_mem)
            qemu_plugin_register_vcpu_mem_cb(in, on_mem, CB_NO_REGS, MEM_RW, NULL);
    }
    qemu_plugin_register_vcpu_tb_exec_inline(tb, INLINE_ADD_U64, &total, n);
    if (do_symbols) {
        symbol_t* symbol = symbol_get(qemu_plugin_insn_symbol(qemu_plugin_tb_get_insn(tb, 0)));
        qemu_plugin_register_vcpu_tb_exec_inline(tb, INLINE_ADD_U64, &symbol->insns, n);
    }
    for (int k = 0; k < NCLS; k++)
        if (c[k])
            qemu_plugin_register_vcpu_tb_exec_inline(tb, INLINE_ADD_U64, &cls[k], c[k]);
    if (h)
        qemu_plugin_register_vcpu_tb_exec_inline(tb, INLINE_ADD_U64, &h->execs, 1);
}

// ---- regions of interest: the guest calls prctl(0x564B4649, 1|2, id): a no-op (EINVAL) outside.
typedef struct {
    uint64_t total, cls[NCLS], mo[2], mb[2], m1[2], m2[2];
} snap_t;
static snap_t s0;
static void take(snap_t* s) {
    s->total = total;
    memcpy(s->cls, cls, sizeof cls);
    memcpy(s->mo, mem_ops, sizeof mem_ops);
    memcpy(s->mb, mem_bytes, sizeof mem_bytes);
    memcpy(s->m1, l1_miss, sizeof l1_miss);
    memcpy(s->m2, l2_miss, sizeof l2_miss);
}
static void report(const char* tag, const snap_t* a) {
    snap_t b;
    take(&b);
    fprintf(out, "%s insns=%" PRIu64, tag, b.total - a->total);
    for (int k = 0; k < NCLS; k++)
        fprintf(out, " %s=%" PRIu64, cname[k], b.cls[k] - a->cls[k]);
    if (do_mem)
        fprintf(out,
                " ld_ops=%" PRIu64 " ld_bytes=%" PRIu64 " st_ops=%" PRIu64 " st_bytes=%" PRIu64
                " l1d_miss=%" PRIu64 " l2_miss=%" PRIu64,
                b.mo[0] - a->mo[0], b.mb[0] - a->mb[0], b.mo[1] - a->mo[1], b.mb[1] - a->mb[1],
                b.m1[0] + b.m1[1] - a->m1[0] - a->m1[1], b.m2[0] + b.m2[1] - a->m2[0] - a->m2[1]);
    fputc('\n', out);
    fflush(out);
}
static void on_sys(qemu_plugin_id_t id, unsigned cpu, int64_t num, uint64_t a1, uint64_t a2,
                   uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8) {
    (void)id;
    (void)cpu;
    (void)num;
    (void)a4;
    (void)a5;
    (void)a6;
    (void)a7;
    (void)a8;
    if ((uint32_t)a1 != 0x564B4649u)
        return;
    if (a2 == 1) {
        for (symbol_t* p = symbols; p; p = p->next)
            p->before = p->insns;
        take(&s0);
    } else if (a2 == 2) {
        char t[32];
        snprintf(t, sizeof t, "roi[%u]", (unsigned)a3);
        report(t, &s0);
        for (symbol_t* p = symbols; p; p = p->next)
            if (p->insns > p->before)
                fprintf(out, "symbol[%u] %" PRIu64 " %s\n", (unsigned)a3, p->insns - p->before,
                        p->name);
    }
}
static int cmp(const void* a, const void* b) {
    const hot_t *x = *(hot_t*const*)a, *y = *(hot_t*const*)b;
    uint64_t p = x->n * x->execs, q = y->n * y->execs;
    return p < q ? 1 : p > q ? -1 : 0;
}
static void on_exit_(qemu_plugin_id_t id, void* p) {
    (void)id;
    (void)p;
    snap_t z;
    memset(&z, 0, sizeof z);
    report("total", &z);
    if (do_hot) {
        size_t k = 0;
        static hot_t* v[1 << 20];
        for (int i = 0; i < 4096; i++)
            for (hot_t* h = hots[i]; h && k < (1 << 20); h = h->next)
                v[k++] = h;
        qsort(v, k, sizeof *v, cmp);
        for (size_t i = 0; i < k && i < 8; i++)
            fprintf(out,
                    "hot va=%08" PRIx64 " insns=%" PRIu64 " execs=%" PRIu64 " share=%.2f%%\n%s",
                    v[i]->va, v[i]->n, v[i]->execs,
                    100.0 * (double)(v[i]->n * v[i]->execs) / (double)total, v[i]->text);
    }
    fflush(out);
}
EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc,
                               char** argv) {
    (void)info;
    out = stderr;
    unsigned l1k = 32, l1w = 4, l2k = 512, l2w = 8;
    for (int i = 0; i < argc; i++) {
        if (!strcmp(argv[i], "mem=on"))
            do_mem = true;
        else if (!strcmp(argv[i], "symbols=on"))
            do_symbols = true;
        else if (!strcmp(argv[i], "hot=on"))
            do_hot = true;
        else if (!strncmp(argv[i], "out=", 4)) {
            out = fopen(argv[i] + 4, "w");
            if (!out)
                return -1;
        } else if (sscanf(argv[i], "l1k=%u", &l1k) == 1 || sscanf(argv[i], "l1w=%u", &l1w) == 1 ||
                   sscanf(argv[i], "l2k=%u", &l2k) == 1 || sscanf(argv[i], "l2w=%u", &l2w) == 1) {
        } else {
            fprintf(stderr, "vkcount: unknown argument %s\n", argv[i]);
            return -1;
        }
    }
    if (do_mem) {
        c_init(&l1, l1k * 1024, l1w);
        c_init(&l2, l2k * 1024, l2w);
    }
    qemu_plugin_register_vcpu_tb_trans_cb(id, on_tb);
    qemu_plugin_register_vcpu_syscall_cb(id, on_sys);
    qemu_plugin_register_atexit_cb(id, on_exit_, NULL);
    return 0;
}
