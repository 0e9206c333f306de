/* ky_peer.c: hash, object names, signature texts, the tuple codec, the two
 * channel kinds (signal block, ring queue) and the datagram wake-ups.
 *
 * Everything runs on the peer's single thread. Channel writers block on the
 * object's process-shared mutex; polling readers only try-lock it so that a
 * wedged writer in another process never stalls the peer's wait loop. */
#define _GNU_SOURCE
#include "ky_peer.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

/* The bytes other processes read: any drift in these layouts breaks interop. */
_Static_assert(sizeof(pthread_mutex_t) == 40, "mutex width");
_Static_assert(sizeof(pthread_cond_t) == 48, "cond width");
_Static_assert(offsetof(kyp_signal_block, mutex) == 16, "signal mutex");
_Static_assert(offsetof(kyp_signal_block, cond) == 56, "signal cond");
_Static_assert(offsetof(kyp_signal_block, seq) == 104, "signal seq");
_Static_assert(offsetof(kyp_signal_block, size) == 112, "signal size");
_Static_assert(offsetof(kyp_signal_block, payload) == 116, "signal payload");
_Static_assert(offsetof(kyp_signal_block, reserved) == 4216, "signal reserved");
_Static_assert(sizeof(kyp_signal_block) == 4280, "signal block size");
_Static_assert(offsetof(kyp_queue_header, seq) == 104, "queue seq");
_Static_assert(offsetof(kyp_queue_header, head) == 112, "queue head");
_Static_assert(sizeof(kyp_queue_header) == 128, "queue header size");
_Static_assert(offsetof(kyp_queue_slot, size) == 8, "slot size");
_Static_assert(offsetof(kyp_queue_slot, payload) == 12, "slot payload");
_Static_assert(sizeof(kyp_queue_slot) == 4112, "slot width");

static const uint64_t kHashStart = 0x14650FB0739D0383ull;
static const uint64_t kHashPrime = 0x100000001B3ull;

uint64_t kyp_hash(const void *data, size_t len) {
    const unsigned char *p = data;
    uint64_t h = kHashStart;
    for (size_t i = 0; i < len; ++i) {
        h ^= p[i];
        h *= kHashPrime;
    }
    return h;
}

uint64_t kyp_hash_str(const char *text) { return kyp_hash(text, strlen(text)); }

void kyp_hex64(uint64_t value, char out[17]) {
    static const char digits[] = "0123456789abcdef";
    for (int i = 15; i >= 0; --i) {
        out[i] = digits[value & 0xF];
        value >>= 4;
    }
    out[16] = 0;
}

/* Hash of a|b|c without building the joined text, so no name length is too long. */
static uint64_t hash_triple(const char *a, const char *b, const char *c) {
    uint64_t h = kHashStart;
    const char *parts[5] = {a, "|", b, "|", c};
    for (int k = 0; k < 5; ++k)
        for (const unsigned char *p = (const unsigned char *)parts[k]; *p; ++p) {
            h ^= *p;
            h *= kHashPrime;
        }
    return h;
}

void kyp_shm_name(const char *domain, const char *object, const char *signal, char out[25]) {
    memcpy(out, "/ky_sig_", 8);
    kyp_hex64(hash_triple(domain, object, signal), out + 8);
}

static int suffix_byte_ok(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_';
}

void kyp_sanitize_suffix(const char *domain, char out[50]) {
    const size_t n = strlen(domain);
    size_t begin = 0, end = n;
    /* Leading and trailing "_" go whether they were underscores or replaced bytes. */
    while (begin < end && !(suffix_byte_ok((unsigned char)domain[begin]) && domain[begin] != '_')) ++begin;
    while (end > begin && !(suffix_byte_ok((unsigned char)domain[end - 1]) && domain[end - 1] != '_')) --end;
    if (begin == end) {
        strcpy(out, "root");
        return;
    }
    size_t len = end - begin;
    const size_t kept = len > 32 ? 32 : len;
    for (size_t i = 0; i < kept; ++i) {
        const unsigned char c = (unsigned char)domain[begin + i];
        out[i] = suffix_byte_ok(c) ? (char)c : '_';
    }
    if (len <= 32) {
        out[kept] = 0;
        return;
    }
    out[32] = '_';
    kyp_hex64(kyp_hash(domain, n), out + 33);
}

void kyp_copy_trunc(char *dst, size_t cap, const char *src) {
    if (!dst || cap == 0) return;
    size_t n = src ? strlen(src) : 0;
    if (n > cap - 1) n = cap - 1;
    if (n) memcpy(dst, src, n);
    dst[n] = 0;
}

uint64_t kyp_now_ms(void) {
    struct timespec ts;
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) return 0;
    return (uint64_t)ts.tv_sec * 1000u + (uint64_t)ts.tv_nsec / 1000000u;
}

int kyp_process_gone(uint32_t pid) {
    /* Past INT32_MAX a pid_t would be negative: a process group, or all. */
    if (pid == 0 || pid > 0x7FFFFFFFu) return 1;
    return kill((pid_t)pid, 0) != 0 && errno == ESRCH;
}

/* ---- signatures ---------------------------------------------------------- */

static const char *type_word(char kind) {
    switch (kind) {
    case 'b': return "bool";
    case 'i': return "int";
    case 'u': return "unsigned int";
    case 't': return "long unsigned int";
    case 's': return "KyString";
    default: return NULL;
    }
}

int kyp_sig_valid(const char *sig) {
    if (strlen(sig) > KYP_MAX_ARGS) return -1;
    for (const char *p = sig; *p; ++p)
        if (!type_word(*p)) return -1;
    return 0;
}

static int sig_text(const char *head, const char *sig, const char *tail, char *out, size_t cap) {
    if (kyp_sig_valid(sig) != 0) return -1;
    size_t used = 0;
    int n = snprintf(out, cap, "%s", head);
    if (n < 0 || (size_t)n >= cap) return -1;
    used = (size_t)n;
    for (const char *p = sig; *p; ++p) {
        n = snprintf(out + used, cap - used, "%s%s", p == sig ? "" : ", ", type_word(*p));
        if (n < 0 || (size_t)n >= cap - used) return -1;
        used += (size_t)n;
    }
    n = snprintf(out + used, cap - used, "%s", tail);
    return (n < 0 || (size_t)n >= cap - used) ? -1 : 0;
}

int kyp_type_id_text(const char *sig, char *out, size_t cap) {
    return sig_text("uint64_t ky::ipc::detail::type_id() [with Args = {", sig,
                    "}; uint64_t = long unsigned int]", out, cap);
}

int kyp_type_name_text(const char *sig, char *out, size_t cap) {
    return sig_text("KyString ky::ipc::detail::type_name() [with Args = {", sig, "}]", out, cap);
}

uint64_t kyp_type_id(const char *sig) {
    char text[1024];
    if (kyp_type_id_text(sig, text, sizeof text) != 0) return 0;
    return kyp_hash_str(text);
}

/* ---- codec ---------------------------------------------------------------- */

int kyp_parse_value(char kind, const char *text, kyp_value *out) {
    memset(out, 0, sizeof *out);
    out->kind = kind;
    char *end = NULL;
    errno = 0;
    switch (kind) {
    case 'b':
        if (strcmp(text, "true") == 0) out->b = 1;
        else if (strcmp(text, "false") == 0) out->b = 0;
        else return -1;
        return 0;
    case 'i': {
        const long long v = strtoll(text, &end, 10);
        if (!*text || *end || errno || v < INT32_MIN || v > INT32_MAX) return -1;
        out->i = (int32_t)v;
        return 0;
    }
    case 'u':
    case 't': {
        if (!*text || *text == '-' || *text == ' ') return -1;
        const unsigned long long v = strtoull(text, &end, 10);
        if (*end || errno) return -1;
        if (kind == 'u') {
            if (v > UINT32_MAX) return -1;
            out->u = (uint32_t)v;
        } else {
            out->t = (uint64_t)v;
        }
        return 0;
    }
    case 's': {
        const size_t n = strlen(text);
        if (n > UINT32_MAX) return -1;
        out->s = text;
        out->len = (uint32_t)n;
        return 0;
    }
    default: return -1;
    }
}

static void put_le(uint8_t *dst, uint64_t v, int width) {
    for (int k = 0; k < width; ++k) dst[k] = (uint8_t)(v >> (8 * k));
}

static uint64_t get_le(const uint8_t *src, int width) {
    uint64_t v = 0;
    for (int k = 0; k < width; ++k) v |= (uint64_t)src[k] << (8 * k);
    return v;
}

int kyp_encode(const char *sig, const kyp_value *vals, uint8_t *buf, size_t cap, size_t *len) {
    size_t pos = 0;
    for (size_t k = 0; sig[k]; ++k) {
        const kyp_value *v = &vals[k];
        switch (sig[k]) {
        case 'b':
            if (pos + 1 > cap) return -1;
            buf[pos++] = (uint8_t)(v->b ? 1 : 0);
            break;
        case 'i':
            if (pos + 4 > cap) return -1;
            put_le(buf + pos, (uint32_t)v->i, 4);
            pos += 4;
            break;
        case 'u':
            if (pos + 4 > cap) return -1;
            put_le(buf + pos, v->u, 4);
            pos += 4;
            break;
        case 't':
            if (pos + 8 > cap) return -1;
            put_le(buf + pos, v->t, 8);
            pos += 8;
            break;
        case 's':
            if (pos + 4 > cap) return -1;
            put_le(buf + pos, v->len, 4);
            pos += 4;
            if (pos + v->len > cap) return -1;
            if (v->len) memcpy(buf + pos, v->s, v->len);
            pos += v->len;
            break;
        default: return -1;
        }
    }
    *len = pos;
    return 0;
}

int kyp_decode(const char *sig, const uint8_t *buf, size_t len, kyp_value *vals) {
    size_t pos = 0;
    for (size_t k = 0; sig[k]; ++k) {
        kyp_value *v = &vals[k];
        memset(v, 0, sizeof *v);
        v->kind = sig[k];
        switch (sig[k]) {
        case 'b':
            if (pos + 1 > len) return -1;
            v->b = buf[pos++] != 0;
            break;
        case 'i':
            if (pos + 4 > len) return -1;
            v->i = (int32_t)(uint32_t)get_le(buf + pos, 4);
            pos += 4;
            break;
        case 'u':
            if (pos + 4 > len) return -1;
            v->u = (uint32_t)get_le(buf + pos, 4);
            pos += 4;
            break;
        case 't':
            if (pos + 8 > len) return -1;
            v->t = get_le(buf + pos, 8);
            pos += 8;
            break;
        case 's': {
            if (pos + 4 > len) return -1;
            const uint32_t n = (uint32_t)get_le(buf + pos, 4);
            pos += 4;
            if (n > 0 && (size_t)n > len - pos) return -1;
            v->s = (const char *)buf + pos;
            v->len = n;
            pos += n;
            break;
        }
        default: return -1;
        }
    }
    return 0;
}

void kyp_print_values(FILE *out, const char *sig, const kyp_value *vals) {
    for (size_t k = 0; sig[k]; ++k) {
        if (k) fputc(' ', out);
        const kyp_value *v = &vals[k];
        switch (sig[k]) {
        case 'b': fputs(v->b ? "true" : "false", out); break;
        case 'i': fprintf(out, "%d", (int)v->i); break;
        case 'u': fprintf(out, "%u", (unsigned)v->u); break;
        case 't': fprintf(out, "%llu", (unsigned long long)v->t); break;
        case 's': fwrite(v->s, 1, v->len, out); break;
        default: break;
        }
    }
}

/* ---- channels --------------------------------------------------------------- */

size_t kyp_queue_size(uint32_t capacity) {
    return sizeof(kyp_queue_header) + (size_t)capacity * sizeof(kyp_queue_slot) + 64;
}

static kyp_queue_slot *queue_slot(kyp_channel *ch, uint64_t m) {
    uint8_t *slots = (uint8_t *)ch->base + sizeof(kyp_queue_header);
    return (kyp_queue_slot *)(slots + (size_t)(m % ch->capacity) * sizeof(kyp_queue_slot));
}

/* Both layouts begin with magic, version, typeId, mutex, cond at the same offsets. */
static void init_channel(void *base, size_t size, uint32_t magic, uint32_t version, uint64_t type_id, int is_signal) {
    memset(base, 0, size);
    kyp_queue_header *h = base;
    h->magic = magic;
    h->version = version;
    h->type_id = type_id;
    pthread_mutexattr_t ma;
    pthread_mutexattr_init(&ma);
    pthread_mutexattr_setpshared(&ma, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&h->mutex, &ma);
    pthread_mutexattr_destroy(&ma);
    pthread_condattr_t ca;
    pthread_condattr_init(&ca);
    pthread_condattr_setpshared(&ca, PTHREAD_PROCESS_SHARED);
    pthread_cond_init(&h->cond, &ca);
    pthread_condattr_destroy(&ca);
    if (is_signal) ((kyp_signal_block *)base)->seq = 1;
}

static int open_channel(const char *name, size_t size, uint32_t magic, uint32_t version, uint64_t type_id,
                        int is_signal, kyp_channel *out, const char **err) {
    memset(out, 0, sizeof *out);
    int creator = 1;
    int fd = shm_open(name, O_CREAT | O_EXCL | O_RDWR, 0666);
    if (fd >= 0) {
        /* The umask may have cut the mode; every user of the machine must reach the channel. */
        (void)fchmod(fd, 0666);
        if (ftruncate(fd, (off_t)size) != 0) {
            close(fd);
            shm_unlink(name);
            *err = "ftruncate(shm) failed";
            return -1;
        }
    } else if (errno == EEXIST) {
        creator = 0;
        fd = shm_open(name, O_RDWR, 0666);
        if (fd < 0) {
            *err = "shm_open(existing) failed";
            return -1;
        }
        (void)fchmod(fd, 0666);
        /* A shorter object (another capacity, or a creator that died before sizing it)
           would fault on access; refuse it instead of touching past its end. */
        struct stat st;
        if (fstat(fd, &st) != 0 || (size_t)st.st_size < size) {
            close(fd);
            *err = "SHM object smaller than its layout";
            return -2;
        }
    } else {
        *err = "shm_open failed";
        return -1;
    }
    void *base = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (base == MAP_FAILED) {
        *err = "mmap failed";
        return -1;
    }
    const kyp_queue_header *h = base;
    if (creator || (h->magic == 0 && h->version == 0)) {
        /* An all-zero object is a creator that died or has not finished: adopt it. */
        init_channel(base, size, magic, version, type_id, is_signal);
    } else if (h->magic != magic || h->version != version) {
        munmap(base, size);
        *err = "SHM layout mismatch (magic/version)";
        return -2;
    } else if (h->type_id != type_id) {
        munmap(base, size);
        *err = "SHM type mismatch (subscriber/publisher types differ)";
        return -3;
    }
    kyp_copy_trunc(out->name, sizeof out->name, name);
    out->base = base;
    out->size = size;
    return 0;
}

int kyp_open_signal(const char *name, uint64_t type_id, kyp_channel *out, const char **err) {
    return open_channel(name, sizeof(kyp_signal_block), KYP_SIG_MAGIC, KYP_SIG_VERSION, type_id, 1, out, err);
}

int kyp_open_queue(const char *name, uint32_t capacity, uint64_t type_id, kyp_channel *out, const char **err) {
    if (capacity == 0) {
        *err = "queue capacity must be positive";
        return -1;
    }
    const int rc = open_channel(name, kyp_queue_size(capacity), KYP_QUEUE_MAGIC, KYP_QUEUE_VERSION, type_id, 0,
                                out, err);
    if (rc == 0) out->capacity = capacity;
    return rc;
}

void kyp_close_channel(kyp_channel *ch) {
    if (ch->base) munmap(ch->base, ch->size);
    ch->base = NULL;
}

int kyp_signal_publish(kyp_channel *ch, const uint8_t *payload, size_t len) {
    kyp_signal_block *b = ch->base;
    if (len > KYP_PAYLOAD_CAP) return -1;
    if (pthread_mutex_lock(&b->mutex) != 0) return -1;
    memcpy(b->payload, payload, len);
    __atomic_store_n(&b->seq, b->seq + 1, __ATOMIC_RELEASE);
    b->size = (uint32_t)len;
    pthread_cond_broadcast(&b->cond);
    pthread_mutex_unlock(&b->mutex);
    return 0;
}

int kyp_signal_read(kyp_channel *ch, uint64_t *seq, uint8_t *payload, uint32_t *size) {
    kyp_signal_block *b = ch->base;
    if (pthread_mutex_lock(&b->mutex) != 0) return -1;
    *seq = b->seq;
    *size = b->size;
    if (*size <= KYP_PAYLOAD_CAP) memcpy(payload, b->payload, *size);
    pthread_mutex_unlock(&b->mutex);
    return 0;
}

uint64_t kyp_signal_seq(kyp_channel *ch) {
    kyp_signal_block *b = ch->base;
    return __atomic_load_n(&b->seq, __ATOMIC_ACQUIRE);
}

int kyp_signal_poll(kyp_channel *ch, uint64_t *last_seq, int initial_pending, uint8_t *payload, uint32_t *size,
                    int *has_value) {
    kyp_signal_block *b = ch->base;
    *has_value = 0;
    /* The unlocked look keeps a pass over an idle channel free of locking. */
    if (!initial_pending && *last_seq == __atomic_load_n(&b->seq, __ATOMIC_ACQUIRE)) return 0;
    if (pthread_mutex_trylock(&b->mutex) != 0) return -1;
    const uint64_t seq = b->seq;
    if (!initial_pending && *last_seq == seq) {
        pthread_mutex_unlock(&b->mutex);
        return 0;
    }
    *size = b->size;
    if (*size > 0 && *size <= KYP_PAYLOAD_CAP) {
        memcpy(payload, b->payload, *size);
        *has_value = 1;
    }
    pthread_mutex_unlock(&b->mutex);
    *last_seq = seq;
    return 1;
}

int kyp_queue_push(kyp_channel *ch, const uint8_t *payload, size_t len) {
    kyp_queue_header *h = ch->base;
    if (len > KYP_PAYLOAD_CAP) return -1;
    if (pthread_mutex_lock(&h->mutex) != 0) return -1;
    if (h->seq >= h->head && h->seq - h->head >= ch->capacity) {
        pthread_mutex_unlock(&h->mutex);
        return -1;
    }
    const uint64_t m = h->seq + 1;
    kyp_queue_slot *slot = queue_slot(ch, m);
    slot->seq = m;
    slot->size = (uint32_t)len;
    memcpy(slot->payload, payload, len);
    __atomic_store_n(&h->seq, m, __ATOMIC_RELEASE);
    pthread_cond_broadcast(&h->cond);
    pthread_mutex_unlock(&h->mutex);
    return 0;
}

int kyp_queue_drain(kyp_channel *ch, kyp_message_fn fn, void *ctx) {
    kyp_queue_header *h = ch->base;
    if (__atomic_load_n(&h->head, __ATOMIC_ACQUIRE) == __atomic_load_n(&h->seq, __ATOMIC_ACQUIRE)) return 0;
    if (pthread_mutex_trylock(&h->mutex) != 0) return -1;
    const uint64_t count = h->seq > h->head ? h->seq - h->head : 0;
    uint8_t *copy = malloc(count ? (size_t)count * sizeof(kyp_queue_slot) : 1);
    uint32_t *sizes = malloc(count ? (size_t)count * sizeof(uint32_t) : 1);
    size_t got = 0;
    if (!copy || !sizes) {
        pthread_mutex_unlock(&h->mutex);
        free(copy);
        free(sizes);
        return -1;
    }
    while (h->head < h->seq) {
        const uint64_t m = h->head + 1;
        const kyp_queue_slot *slot = queue_slot(ch, m);
        /* A slot that does not hold message m was overwritten or never written: skip it as lost. */
        if (slot->seq == m && slot->size <= KYP_PAYLOAD_CAP) {
            memcpy(copy + got * sizeof(kyp_queue_slot), slot->payload, slot->size);
            sizes[got++] = slot->size;
        }
        __atomic_store_n(&h->head, m, __ATOMIC_RELEASE);
    }
    pthread_mutex_unlock(&h->mutex);
    /* Callbacks run after the unlock so a slow consumer delays no writer. */
    for (size_t k = 0; k < got; ++k) fn(ctx, copy + k * sizeof(kyp_queue_slot), sizes[k]);
    free(copy);
    free(sizes);
    return (int)got;
}

/* ---- wake-ups ---------------------------------------------------------------- */

static socklen_t wake_addr(uint32_t pid, struct sockaddr_un *addr) {
    memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    char text[64];
    int n = snprintf(text, sizeof text, "ky_ipc_notify_%u", (unsigned)pid);
    if (n > 106) n = 106;
    memcpy(addr->sun_path + 1, text, (size_t)n);
    return (socklen_t)(n + 3);
}

int kyp_wake_bind(void) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    struct sockaddr_un addr;
    const socklen_t len = wake_addr((uint32_t)getpid(), &addr);
    if (bind(fd, (struct sockaddr *)&addr, len) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void kyp_wake_pid(uint32_t pid) {
    static int sender = -1;
    if (sender < 0) sender = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sender < 0) return;
    struct sockaddr_un addr;
    const socklen_t len = wake_addr(pid, &addr);
    const char one = 1;
    /* A listener that is gone or has a full queue simply misses this wake-up. */
    (void)sendto(sender, &one, 1, MSG_DONTWAIT, (struct sockaddr *)&addr, len);
}

int kyp_wake_drain(int fd) {
    int n = 0;
    char buf[64];
    while (recv(fd, buf, sizeof buf, MSG_DONTWAIT) > 0) ++n;
    return n;
}
