/* ky_c_peer: command-line front end of the independent IPC peer, spawned by
 * interop tests as a real child process.
 *
 * One command per run, on the main thread. Waiting commands (watch, drain,
 * serve, call) bind the process's wake-up socket, register their rows, print
 * "ready" and then sleep in poll() on that socket; each datagram triggers a
 * pass over the channel, and once a second a heartbeat stamps the process's
 * rows. Every event is one flushed line on stdout.
 *
 * Exit codes: 0 done, 1 failure (or an RPC error reply), 2 usage, 3 refused
 * (full queue, payload too large, layout or type mismatch), 4 timeout. */
#define _GNU_SOURCE
#include "ky_peer.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

enum { EXIT_OK = 0, EXIT_FAIL = 1, EXIT_USAGE = 2, EXIT_REFUSED = 3, EXIT_TIMEOUT = 4 };

static void line(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
static void line(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vprintf(fmt, ap);
    va_end(ap);
    fputc('\n', stdout);
    fflush(stdout);
}

static int usage(const char *why) {
    fprintf(stderr, "ky_c_peer: %s\n", why);
    fprintf(stderr,
            "usage: ky_c_peer shmname D O S\n"
            "       publish D O SIGNAL SIG ARGS... | read D O SIGNAL SIG\n"
            "       watch D O SIGNAL SIG [--count N] [--timeout MS] [--initial]\n"
            "       push D O QUEUE CAP SIG ARGS... | drain D O QUEUE CAP SIG [--count N] [--timeout MS]\n"
            "       serve D O METHOD SIG [--cap C] [--returns L] [--result V] [--error TEXT] [--count N]"
            " [--timeout MS]\n"
            "       call D O METHOD SIG ARGS... [--cap C] [--returns L] [--timeout MS]\n"
            "       registry D | subs D | apps [D]\n"
            "       unlink-domain D [OBJECT NAME]...\n");
    return EXIT_USAGE;
}

/* ---- options ---------------------------------------------------------------- */

typedef struct {
    long count;
    long timeout_ms;
    int initial;
    long cap;
    const char *result; /* text of the result, parsed by the returns letter */
    char returns;       /* the method's result type, one signature letter */
    const char *error;
} options;

static int parse_long(const char *text, long lo, long hi, long *out) {
    char *end = NULL;
    errno = 0;
    const long v = strtol(text, &end, 10);
    if (!*text || *end || errno || v < lo || v > hi) return -1;
    *out = v;
    return 0;
}

/* Parses the trailing options of argv[from..argc); allowed lists the accepted names. */
static int parse_options(int argc, char **argv, int from, const char *allowed, options *o) {
    for (int k = from; k < argc; ++k) {
        const char *name = argv[k];
        if (strncmp(name, "--", 2) != 0 || !strstr(allowed, name)) return usage("unknown option");
        if (strcmp(name, "--initial") == 0) {
            o->initial = 1;
            continue;
        }
        if (k + 1 >= argc) return usage("option without a value");
        const char *value = argv[++k];
        int bad = 0;
        if (strcmp(name, "--count") == 0) bad = parse_long(value, 0, 1000000, &o->count);
        else if (strcmp(name, "--timeout") == 0) bad = parse_long(value, 0, 86400000, &o->timeout_ms);
        else if (strcmp(name, "--cap") == 0) bad = parse_long(value, 1, 100000, &o->cap);
        else if (strcmp(name, "--error") == 0) o->error = value;
        else if (strcmp(name, "--result") == 0) o->result = value;
        else if (strcmp(name, "--returns") == 0) {
            o->returns = value[0];
            bad = strlen(value) == 1 && kyp_sig_valid(value) == 0 ? 0 : -1;
        } else bad = -1;
        if (bad) return usage("bad option value");
    }
    return 0;
}

/* Parses one value per letter of sig from argv[from..]. */
static int parse_args(const char *sig, char **argv, int from, kyp_value *vals) {
    for (size_t k = 0; sig[k]; ++k)
        if (kyp_parse_value(sig[k], argv[from + (int)k], &vals[k]) != 0) {
            fprintf(stderr, "ky_c_peer: bad value for '%c': %s\n", sig[k], argv[from + (int)k]);
            return -1;
        }
    return 0;
}

/* RPC queues exist in these capacities; any other number keeps its name but gets 100 slots. */
static uint32_t rpc_slots(long cap) {
    static const long known[] = {10, 25, 50, 100, 200, 500};
    for (size_t k = 0; k < sizeof known / sizeof known[0]; ++k)
        if (known[k] == cap) return (uint32_t)cap;
    return 100;
}

/* ---- channel opening with the framework's registration ---------------------- */

static int open_registered(const char *domain, const char *object, const char *name, const char *sig,
                           uint32_t queue_slots, kyp_channel *ch) {
    char shm[25], type_name[1024];
    kyp_shm_name(domain, object, name, shm);
    const uint64_t type_id = kyp_type_id(sig);
    const char *err = "";
    const int rc = queue_slots ? kyp_open_queue(shm, queue_slots, type_id, ch, &err)
                               : kyp_open_signal(shm, type_id, ch, &err);
    if (rc != 0) {
        line("%s", err);
        return rc == -1 ? EXIT_FAIL : EXIT_REFUSED;
    }
    kyp_type_name_text(sig, type_name, sizeof type_name);
    kyp_register_signal(domain, object, name, shm, type_id, type_name);
    return EXIT_OK;
}

/* ---- the wait loop ------------------------------------------------------------- */

/* A pass returns 1 when the command is complete, 0 to keep waiting, -1 when a
 * channel lock was busy and the pass should be repeated soon. */
typedef int (*pass_fn)(void *ctx);

static int wait_loop(int fd, const char *domain, long timeout_ms, pass_fn pass, void *ctx) {
    const uint64_t start = kyp_now_ms();
    uint64_t next_beat = start + 1000;
    int retry = 0;
    for (;;) {
        const uint64_t now = kyp_now_ms();
        if (timeout_ms > 0 && now - start >= (uint64_t)timeout_ms) return EXIT_TIMEOUT;
        uint64_t wait = next_beat > now ? next_beat - now : 0;
        if (timeout_ms > 0 && start + (uint64_t)timeout_ms - now < wait) wait = start + (uint64_t)timeout_ms - now;
        /* A busy lock is retried shortly instead of waiting for the next datagram. */
        if (retry && wait > 5) wait = 5;
        struct pollfd p = {fd, POLLIN, 0};
        const int ready = poll(&p, 1, (int)wait);
        if (ready < 0 && errno != EINTR) return EXIT_FAIL;
        int run = retry;
        if (ready > 0 && (p.revents & POLLIN)) {
            kyp_wake_drain(fd);
            run = 1;
        }
        if (kyp_now_ms() >= next_beat) {
            kyp_heartbeat(domain);
            next_beat = kyp_now_ms() + 1000;
        }
        if (run) {
            const int r = pass(ctx);
            if (r == 1) return EXIT_OK;
            retry = r < 0;
        }
    }
}

/* ---- signals ----------------------------------------------------------------------- */

static int cmd_publish(int argc, char **argv) {
    if (argc < 6) return usage("publish needs DOMAIN OBJECT SIGNAL SIG ARGS...");
    const char *domain = argv[2], *object = argv[3], *signal = argv[4], *sig = argv[5];
    if (kyp_sig_valid(sig) != 0) return usage("bad signature");
    if (argc != 6 + (int)strlen(sig)) return usage("argument count does not match the signature");
    kyp_value vals[KYP_MAX_ARGS];
    if (parse_args(sig, argv, 6, vals) != 0) return EXIT_USAGE;
    uint8_t buf[KYP_PAYLOAD_CAP];
    size_t len = 0;
    if (kyp_encode(sig, vals, buf, sizeof buf, &len) != 0) {
        line("too large");
        return EXIT_REFUSED;
    }
    kyp_channel ch;
    const int rc = open_registered(domain, object, signal, sig, 0, &ch);
    if (rc != EXIT_OK) return rc;
    kyp_signal_publish(&ch, buf, len);
    const uint64_t seq = kyp_signal_seq(&ch);
    kyp_close_channel(&ch);
    kyp_wake_subscribers(domain, object, signal);
    line("published seq=%llu", (unsigned long long)seq);
    return EXIT_OK;
}

static int cmd_read(int argc, char **argv) {
    if (argc != 6) return usage("read needs DOMAIN OBJECT SIGNAL SIG");
    const char *sig = argv[5];
    if (kyp_sig_valid(sig) != 0) return usage("bad signature");
    kyp_channel ch;
    const int rc = open_registered(argv[2], argv[3], argv[4], sig, 0, &ch);
    if (rc != EXIT_OK) return rc;
    static uint8_t buf[KYP_PAYLOAD_CAP];
    uint64_t seq = 0;
    uint32_t size = 0;
    kyp_signal_read(&ch, &seq, buf, &size);
    kyp_close_channel(&ch);
    line("seq=%llu", (unsigned long long)seq);
    kyp_value vals[KYP_MAX_ARGS];
    if (size == 0) line("empty");
    else if (size > KYP_PAYLOAD_CAP || kyp_decode(sig, buf, size, vals) != 0) line("undecodable size=%u", size);
    else {
        fputs("value ", stdout);
        kyp_print_values(stdout, sig, vals);
        line("%s", "");
    }
    return EXIT_OK;
}

typedef struct {
    kyp_channel ch;
    const char *sig;
    uint64_t last_seq;
    int initial_pending;
    long seen;
    long want;
} watch_state;

static int watch_pass(void *ctx) {
    watch_state *w = ctx;
    static uint8_t buf[KYP_PAYLOAD_CAP];
    uint32_t size = 0;
    int has_value = 0;
    const int rc = kyp_signal_poll(&w->ch, &w->last_seq, w->initial_pending, buf, &size, &has_value);
    if (rc < 0) return -1;
    if (rc == 0) return 0;
    w->initial_pending = 0;
    kyp_value vals[KYP_MAX_ARGS];
    if (!has_value) return 0;
    if (kyp_decode(w->sig, buf, size, vals) != 0) {
        fprintf(stderr, "ky_c_peer: dropped an undecodable value of %u bytes\n", size);
        return 0;
    }
    fputs("value ", stdout);
    kyp_print_values(stdout, w->sig, vals);
    line("%s", "");
    return ++w->seen >= w->want ? 1 : 0;
}

static int cmd_watch(int argc, char **argv) {
    if (argc < 6) return usage("watch needs DOMAIN OBJECT SIGNAL SIG");
    const char *domain = argv[2], *object = argv[3], *signal = argv[4];
    options o = {.count = 1, .timeout_ms = 10000};
    if (kyp_sig_valid(argv[5]) != 0) return usage("bad signature");
    if (parse_options(argc, argv, 6, "--count --timeout --initial", &o) != 0) return EXIT_USAGE;
    watch_state w = {.sig = argv[5], .want = o.count, .initial_pending = o.initial};
    int rc = open_registered(domain, object, signal, w.sig, 0, &w.ch);
    if (rc != EXIT_OK) return rc;
    w.last_seq = kyp_signal_seq(&w.ch);
    const int fd = kyp_wake_bind();
    if (fd < 0) {
        line("bind failed");
        return EXIT_FAIL;
    }
    const uint32_t self = (uint32_t)getpid();
    kyp_register_subscription(domain, object, signal, self, "");
    line("ready");
    rc = w.want == 0 ? EXIT_OK : EXIT_TIMEOUT;
    if (w.want > 0) {
        const int first = watch_pass(&w);
        rc = first == 1 ? EXIT_OK : wait_loop(fd, domain, o.timeout_ms, watch_pass, &w);
    }
    if (rc == EXIT_TIMEOUT) line("timeout");
    kyp_unregister_subscription(domain, object, signal, self, "");
    close(fd);
    kyp_close_channel(&w.ch);
    return rc;
}

/* ---- ring queues ---------------------------------------------------------------------- */

static int parse_cap(const char *text, uint32_t *cap) {
    long v = 0;
    if (parse_long(text, 1, 100000, &v) != 0) return usage("bad capacity");
    *cap = (uint32_t)v;
    return 0;
}

static int cmd_push(int argc, char **argv) {
    if (argc < 7) return usage("push needs DOMAIN OBJECT QUEUE CAP SIG ARGS...");
    const char *domain = argv[2], *object = argv[3], *queue = argv[4], *sig = argv[6];
    uint32_t cap = 0;
    if (parse_cap(argv[5], &cap) != 0) return EXIT_USAGE;
    if (kyp_sig_valid(sig) != 0) return usage("bad signature");
    if (argc != 7 + (int)strlen(sig)) return usage("argument count does not match the signature");
    kyp_value vals[KYP_MAX_ARGS];
    if (parse_args(sig, argv, 7, vals) != 0) return EXIT_USAGE;
    uint8_t buf[KYP_PAYLOAD_CAP];
    size_t len = 0;
    if (kyp_encode(sig, vals, buf, sizeof buf, &len) != 0) {
        line("too large");
        return EXIT_REFUSED;
    }
    kyp_channel ch;
    const int rc = open_registered(domain, object, queue, sig, cap, &ch);
    if (rc != EXIT_OK) return rc;
    const int pushed = kyp_queue_push(&ch, buf, len);
    kyp_close_channel(&ch);
    if (pushed != 0) {
        line("full");
        return EXIT_REFUSED;
    }
    kyp_wake_subscribers(domain, object, queue);
    line("pushed");
    return EXIT_OK;
}

typedef struct {
    kyp_channel ch;
    const char *sig;
    long seen;
    long want;
} drain_state;

static void drain_message(void *ctx, const uint8_t *payload, uint32_t size) {
    drain_state *d = ctx;
    kyp_value vals[KYP_MAX_ARGS];
    if (kyp_decode(d->sig, payload, size, vals) != 0) {
        fprintf(stderr, "ky_c_peer: dropped an undecodable message of %u bytes\n", size);
        return;
    }
    fputs("msg ", stdout);
    kyp_print_values(stdout, d->sig, vals);
    line("%s", "");
    ++d->seen;
}

static int drain_pass(void *ctx) {
    drain_state *d = ctx;
    if (kyp_queue_drain(&d->ch, drain_message, d) < 0) return -1;
    return d->want > 0 && d->seen >= d->want ? 1 : 0;
}

static void queue_sub_object(char *out, size_t cap) {
    snprintf(out, cap, "__rqsub__%u|1", (unsigned)getpid());
}

static int cmd_drain(int argc, char **argv) {
    if (argc < 7) return usage("drain needs DOMAIN OBJECT QUEUE CAP SIG");
    const char *domain = argv[2], *object = argv[3], *queue = argv[4];
    uint32_t cap = 0;
    if (parse_cap(argv[5], &cap) != 0) return EXIT_USAGE;
    options o = {.count = 1, .timeout_ms = 10000};
    if (kyp_sig_valid(argv[6]) != 0) return usage("bad signature");
    if (parse_options(argc, argv, 7, "--count --timeout", &o) != 0) return EXIT_USAGE;
    drain_state d = {.sig = argv[6], .want = o.count};
    int rc = open_registered(domain, object, queue, d.sig, cap, &d.ch);
    if (rc != EXIT_OK) return rc;
    const int fd = kyp_wake_bind();
    if (fd < 0) {
        line("bind failed");
        return EXIT_FAIL;
    }
    char sub[64];
    queue_sub_object(sub, sizeof sub);
    const uint32_t self = (uint32_t)getpid();
    kyp_register_subscription(domain, object, queue, self, sub);
    line("ready");
    /* Messages queued before this consumer came up are drained at once. */
    const int first = drain_pass(&d);
    rc = first == 1 || d.want == 0 ? EXIT_OK : wait_loop(fd, domain, o.timeout_ms, drain_pass, &d);
    if (rc == EXIT_TIMEOUT) line("timeout");
    kyp_unregister_subscription(domain, object, queue, self, sub);
    close(fd);
    kyp_close_channel(&d.ch);
    return rc;
}

/* ---- RPC ------------------------------------------------------------------------------------ */

#define MAX_CLIENTS 32

/* The reply record: id, ok, error text, then the result. */
static void reply_sig(char returns, char out[5]) {
    memcpy(out, "tbs", 3);
    out[3] = returns;
    out[4] = 0;
}

/* The value a failed call carries: the result type's default. */
static const char *default_text(char kind) { return kind == 'b' ? "false" : kind == 's' ? "" : "0"; }

typedef struct {
    const char *domain, *object, *method, *params;
    char request_sig[KYP_MAX_ARGS + 4];
    char reply_sig[5];
    options o;
    kyp_channel requests;
    struct {
        uint32_t pid;
        kyp_channel ch;
    } replies[MAX_CLIENTS];
    int reply_count;
    long handled;
} server_state;

static void reply_queue_name(const char *method, long cap, uint32_t pid, char *out, size_t n) {
    snprintf(out, n, "__rpc_ret__|%ld|%s|%u", cap, method, (unsigned)pid);
}

/* The reply queue of a client, opened once and kept for later replies. */
static kyp_channel *server_reply_queue(server_state *s, uint32_t pid, const char *name) {
    for (int k = 0; k < s->reply_count; ++k)
        if (s->replies[k].pid == pid) return &s->replies[k].ch;
    kyp_channel ch;
    if (open_registered(s->domain, s->object, name, s->reply_sig, rpc_slots(s->o.cap), &ch) != EXIT_OK) return NULL;
    if (s->reply_count == MAX_CLIENTS) {
        /* Reuse the oldest entry; the tool serves a handful of clients per run. */
        kyp_close_channel(&s->replies[0].ch);
        memmove(&s->replies[0], &s->replies[1], sizeof s->replies[0] * (MAX_CLIENTS - 1));
        --s->reply_count;
    }
    s->replies[s->reply_count].pid = pid;
    s->replies[s->reply_count].ch = ch;
    return &s->replies[s->reply_count++].ch;
}

static void serve_request(void *ctx, const uint8_t *payload, uint32_t size) {
    server_state *s = ctx;
    kyp_value vals[KYP_MAX_ARGS + 3];
    if (kyp_decode(s->request_sig, payload, size, vals) != 0) {
        /* A malformed request gets no reply: its client times out. */
        fprintf(stderr, "ky_c_peer: dropped an undecodable request of %u bytes\n", size);
        return;
    }
    const uint64_t id = vals[0].t;
    const uint32_t pid = vals[1].u;
    printf("request id=%llu pid=%u info=", (unsigned long long)id, (unsigned)pid);
    fwrite(vals[2].s, 1, vals[2].len, stdout);
    fputs(" args", stdout);
    if (*s->params) fputc(' ', stdout);
    kyp_print_values(stdout, s->params, vals + 3);
    line("%s", "");
    ++s->handled;

    char name[256];
    reply_queue_name(s->method, s->o.cap, pid, name, sizeof name);
    kyp_channel *reply = server_reply_queue(s, pid, name);
    if (!reply) return;
    const int ok = s->o.error == NULL;
    kyp_value out[4];
    kyp_parse_value('t', "0", &out[0]);
    out[0].t = id;
    kyp_parse_value('b', ok ? "true" : "false", &out[1]);
    kyp_parse_value('s', ok ? "" : s->o.error, &out[2]);
    kyp_parse_value(s->o.returns, ok ? s->o.result : default_text(s->o.returns), &out[3]);
    uint8_t buf[KYP_PAYLOAD_CAP];
    size_t len = 0;
    if (kyp_encode(s->reply_sig, out, buf, sizeof buf, &len) != 0 || kyp_queue_push(reply, buf, len) != 0) {
        line("reply lost id=%llu", (unsigned long long)id);
        return;
    }
    kyp_wake_subscribers(s->domain, s->object, name);
}

static int serve_pass(void *ctx) {
    server_state *s = ctx;
    if (kyp_queue_drain(&s->requests, serve_request, s) < 0) return -1;
    return s->o.count > 0 && s->handled >= s->o.count ? 1 : 0;
}

static int cmd_serve(int argc, char **argv) {
    if (argc < 6) return usage("serve needs DOMAIN OBJECT METHOD SIG");
    static server_state s;
    s.domain = argv[2];
    s.object = argv[3];
    s.method = argv[4];
    s.params = argv[5];
    s.o = (options){.count = 0, .timeout_ms = 0, .cap = 100, .returns = 'b'};
    if (kyp_sig_valid(s.params) != 0 || strlen(s.params) > KYP_MAX_ARGS - 3) return usage("bad signature");
    if (parse_options(argc, argv, 6, "--cap --returns --result --error --count --timeout --delay-ms", &s.o) != 0)
        return EXIT_USAGE;
    if (!s.o.result) s.o.result = s.o.returns == 'b' ? "true" : default_text(s.o.returns);
    kyp_value probe;
    if (kyp_parse_value(s.o.returns, s.o.result, &probe) != 0) return usage("result does not fit the result type");
    snprintf(s.request_sig, sizeof s.request_sig, "tus%s", s.params);
    reply_sig(s.o.returns, s.reply_sig);
    char queue[256];
    snprintf(queue, sizeof queue, "__rpc__|%ld|%s", s.o.cap, s.method);
    int rc = open_registered(s.domain, s.object, queue, s.request_sig, rpc_slots(s.o.cap), &s.requests);
    if (rc != EXIT_OK) return rc;
    const int fd = kyp_wake_bind();
    if (fd < 0) {
        line("bind failed");
        return EXIT_FAIL;
    }
    const uint32_t self = (uint32_t)getpid();
    /* The server subscribes under its object's name, as an exposed method does. */
    kyp_register_subscription(s.domain, s.object, queue, self, s.object);
    line("ready");
    /* Calls made before the server came up wait in the ring: serve them first. */
    const int first = serve_pass(&s);
    rc = first == 1 ? EXIT_OK : wait_loop(fd, s.domain, s.o.timeout_ms, serve_pass, &s);
    if (rc == EXIT_TIMEOUT) line("timeout");
    kyp_unregister_subscription(s.domain, s.object, queue, self, s.object);
    close(fd);
    for (int k = 0; k < s.reply_count; ++k) kyp_close_channel(&s.replies[k].ch);
    kyp_close_channel(&s.requests);
    return rc;
}

typedef struct {
    kyp_channel replies;
    char reply_sig[5];
    uint64_t id;
    int done;
    int ok;
    uint8_t reply[KYP_PAYLOAD_CAP]; /* the whole record; decoded again for printing */
    uint32_t reply_size;
} client_state;

static void client_reply(void *ctx, const uint8_t *payload, uint32_t size) {
    client_state *c = ctx;
    kyp_value vals[4];
    if (kyp_decode(c->reply_sig, payload, size, vals) != 0) return;
    /* Replies to other ids are late answers of calls that already gave up. */
    if (c->done || vals[0].t != c->id) return;
    c->done = 1;
    c->ok = vals[1].b;
    memcpy(c->reply, payload, size);
    c->reply_size = size;
}

static int client_pass(void *ctx) {
    client_state *c = ctx;
    if (kyp_queue_drain(&c->replies, client_reply, c) < 0) return -1;
    return c->done;
}

static int cmd_call(int argc, char **argv) {
    if (argc < 6) return usage("call needs DOMAIN OBJECT METHOD SIG ARGS...");
    const char *domain = argv[2], *object = argv[3], *method = argv[4], *params = argv[5];
    if (kyp_sig_valid(params) != 0 || strlen(params) > KYP_MAX_ARGS - 3) return usage("bad signature");
    const int nparams = (int)strlen(params);
    if (argc < 6 + nparams) return usage("argument count does not match the signature");
    options o = {.timeout_ms = 5000, .cap = 100, .returns = 'b'};
    if (parse_options(argc, argv, 6 + nparams, "--cap --returns --timeout", &o) != 0) return EXIT_USAGE;
    kyp_value vals[KYP_MAX_ARGS];
    if (parse_args(params, argv, 6, vals + 3) != 0) return EXIT_USAGE;
    static client_state c;
    c.id = 1;
    reply_sig(o.returns, c.reply_sig);
    const uint32_t self = (uint32_t)getpid();
    char request_sig[KYP_MAX_ARGS + 4], queue[256], reply[256];
    snprintf(request_sig, sizeof request_sig, "tus%s", params);
    snprintf(queue, sizeof queue, "__rpc__|%ld|%s", o.cap, method);
    reply_queue_name(method, o.cap, self, reply, sizeof reply);
    const uint32_t slots = rpc_slots(o.cap);

    kyp_channel requests;
    int rc = open_registered(domain, object, queue, request_sig, slots, &requests);
    if (rc != EXIT_OK) return rc;
    rc = open_registered(domain, object, reply, c.reply_sig, slots, &c.replies);
    if (rc != EXIT_OK) return rc;
    const int fd = kyp_wake_bind();
    if (fd < 0) {
        line("bind failed");
        return EXIT_FAIL;
    }
    char sub[64];
    queue_sub_object(sub, sizeof sub);
    kyp_register_subscription(domain, object, reply, self, sub);
    client_pass(&c); /* whatever a dead process of the same pid left behind */

    kyp_parse_value('t', "1", &vals[0]);
    vals[0].t = c.id;
    vals[1].kind = 'u';
    vals[1].u = self;
    kyp_parse_value('s', "ky_c_peer", &vals[2]);
    uint8_t buf[KYP_PAYLOAD_CAP];
    size_t len = 0;
    if (kyp_encode(request_sig, vals, buf, sizeof buf, &len) != 0 || kyp_queue_push(&requests, buf, len) != 0) {
        line("rpc: request queue full (or payload too large)");
        rc = EXIT_REFUSED;
    } else {
        kyp_wake_subscribers(domain, object, queue);
        rc = client_pass(&c) == 1 ? EXIT_OK : wait_loop(fd, domain, o.timeout_ms, client_pass, &c);
        kyp_value got[4];
        if (rc == EXIT_TIMEOUT) line("rpc: timeout");
        else if (rc == EXIT_OK && kyp_decode(c.reply_sig, c.reply, c.reply_size, got) == 0) {
            fputs(c.ok ? "result " : "error ", stdout);
            if (c.ok) kyp_print_values(stdout, c.reply_sig + 3, got + 3);
            else fwrite(got[2].s, 1, got[2].len, stdout);
            line("%s", "");
            if (!c.ok) rc = EXIT_FAIL;
        }
    }
    kyp_unregister_subscription(domain, object, reply, self, sub);
    close(fd);
    kyp_close_channel(&requests);
    kyp_close_channel(&c.replies);
    return rc;
}

/* ---- registries ----------------------------------------------------------------------------- */

static int cmd_registry(const char *domain) {
    kyp_signal_table *t = kyp_signal_table_open(domain, 0);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return EXIT_OK;
    kyp_clean_signal_rows(t, kyp_now_ms());
    for (uint32_t k = 0; k < t->h.count; ++k) {
        const kyp_signal_row *r = &t->rows[k];
        char hex[17];
        kyp_hex64(r->type_id, hex);
        printf("row pid=%u object=%.64s signal=%.160s typeId=%s shm=%.64s typeName=%.256s\n", (unsigned)r->pid,
               r->object, r->signal, hex, r->shm_name, r->type_name);
    }
    pthread_mutex_unlock(&t->h.mutex);
    fflush(stdout);
    return EXIT_OK;
}

static int cmd_subs(const char *domain) {
    kyp_subscriber_table *t = kyp_subscriber_table_open(domain, 0);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return EXIT_OK;
    kyp_clean_subscriber_rows(t, kyp_now_ms());
    for (uint32_t k = 0; k < t->h.count; ++k) {
        const kyp_subscriber_row *r = &t->rows[k];
        const size_t end = strnlen(r->signal, sizeof r->signal);
        const char *packed = end + 1 < sizeof r->signal ? r->signal + end + 1 : "";
        printf("sub pid=%u refCount=%u object=%.64s signal=%.160s subObject=%.*s\n", (unsigned)r->pid,
               (unsigned)r->ref_count, r->object, r->signal, (int)strnlen(packed, sizeof r->signal - end - 1),
               packed);
    }
    pthread_mutex_unlock(&t->h.mutex);
    fflush(stdout);
    return EXIT_OK;
}

static int cmd_apps(const char *only) {
    kyp_app_table *t = kyp_app_table_open(0);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return EXIT_OK;
    kyp_clean_app_rows(t, kyp_now_ms());
    for (uint32_t k = 0; k < t->h.count; ++k) {
        const kyp_app_row *r = &t->rows[k];
        if (only && strncmp(r->domain, only, sizeof r->domain) != 0) continue;
        printf("app domain=%.64s shm=%.64s pids=", r->domain, r->shm_name);
        for (uint32_t j = 0; j < r->pid_count && j < KYP_APP_PIDS; ++j)
            printf("%s%u", j ? "," : "", (unsigned)r->pids[j]);
        fputc('\n', stdout);
    }
    pthread_mutex_unlock(&t->h.mutex);
    fflush(stdout);
    return EXIT_OK;
}

/* ---- utilities for fault tests ---------------------------------------------------------------- */

/* Removes a test domain: its tables, its event signal, every channel its rows name
 * and the extra (object, name) pairs given, and its row in the application table. */
static int cmd_unlink_domain(int argc, char **argv) {
    if (argc < 3 || (argc - 3) % 2 != 0) return usage("unlink-domain needs DOMAIN [OBJECT NAME]...");
    const char *domain = argv[2];
    char name[80];
    kyp_shm_name(domain, KYP_EVENTS_OBJECT, KYP_EVENTS_SIGNAL, name);
    shm_unlink(name);
    for (int k = 3; k + 1 < argc; k += 2) {
        kyp_shm_name(domain, argv[k], argv[k + 1], name);
        shm_unlink(name);
    }
    kyp_signal_table *t = kyp_signal_table_open(domain, 0);
    if (t && pthread_mutex_lock(&t->h.mutex) == 0) {
        for (uint32_t k = 0; k < t->h.count && k < KYP_REG_ROWS; ++k) {
            const kyp_signal_row *r = &t->rows[k];
            if (strncmp(r->domain, domain, sizeof r->domain) == 0 && strncmp(r->shm_name, "/ky_sig_", 8) == 0) {
                kyp_copy_trunc(name, sizeof name, r->shm_name);
                shm_unlink(name);
            }
        }
        pthread_mutex_unlock(&t->h.mutex);
    }
    char suffix[50];
    kyp_sanitize_suffix(domain, suffix);
    snprintf(name, sizeof name, "/ky_ipc_registry_%s", suffix);
    shm_unlink(name);
    snprintf(name, sizeof name, "/ky_ipc_subs_%s", suffix);
    shm_unlink(name);
    kyp_app_table *apps = kyp_app_table_open(0);
    if (apps && pthread_mutex_lock(&apps->h.mutex) == 0) {
        const uint64_t hash = kyp_hash_str(domain);
        for (uint32_t k = 0; k < apps->h.count && k < KYP_APPS_ROWS; ++k)
            if (apps->rows[k].hash == hash) {
                const uint32_t last = apps->h.count - 1;
                if (k != last) apps->rows[k] = apps->rows[last];
                memset(&apps->rows[last], 0, sizeof apps->rows[last]);
                apps->h.count = last;
                break;
            }
        pthread_mutex_unlock(&apps->h.mutex);
    }
    line("removed");
    return EXIT_OK;
}

/* ---- main ---------------------------------------------------------------------------------------- */

static int run(int argc, char **argv) {
    if (argc < 2) return usage("no command");
    const char *cmd = argv[1];
    if (strcmp(cmd, "shmname") == 0) {
        if (argc != 5) return usage("shmname needs DOMAIN OBJECT SIGNAL");
        char name[25];
        kyp_shm_name(argv[2], argv[3], argv[4], name);
        line("%s", name);
        return EXIT_OK;
    }
    if (strcmp(cmd, "publish") == 0) return cmd_publish(argc, argv);
    if (strcmp(cmd, "read") == 0) return cmd_read(argc, argv);
    if (strcmp(cmd, "watch") == 0) return cmd_watch(argc, argv);
    if (strcmp(cmd, "push") == 0) return cmd_push(argc, argv);
    if (strcmp(cmd, "drain") == 0) return cmd_drain(argc, argv);
    if (strcmp(cmd, "serve") == 0) return cmd_serve(argc, argv);
    if (strcmp(cmd, "call") == 0) return cmd_call(argc, argv);
    if (strcmp(cmd, "registry") == 0) return argc == 3 ? cmd_registry(argv[2]) : usage("registry needs DOMAIN");
    if (strcmp(cmd, "subs") == 0) return argc == 3 ? cmd_subs(argv[2]) : usage("subs needs DOMAIN");
    if (strcmp(cmd, "apps") == 0) return argc <= 3 ? cmd_apps(argc == 3 ? argv[2] : NULL) : usage("apps [DOMAIN]");
    if (strcmp(cmd, "unlink-domain") == 0) return cmd_unlink_domain(argc, argv);
    return usage("unknown command");
}

int main(int argc, char **argv) {
    const int rc = run(argc, argv);
    /* Channel commands joined the domain's application row; leave it as the framework's exit hook does. */
    static const char *joined[] = {"publish", "read", "watch", "push", "drain", "serve", "call"};
    if (argc >= 3)
        for (size_t k = 0; k < sizeof joined / sizeof joined[0]; ++k)
            if (strcmp(argv[1], joined[k]) == 0) kyp_unregister_domain(argv[2]);
    return rc;
}
