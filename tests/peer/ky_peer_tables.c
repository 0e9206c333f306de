/* ky_peer_tables.c: the three registry tables (signals and subscribers of a
 * domain, applications of the machine) and the registry event signal.
 *
 * Single-threaded: the peer keeps each table mapped for its whole run in a
 * small cache and never unmaps it. Registration is best effort, as in the
 * framework: a table that cannot be opened or is full is skipped silently.
 * Registration and look-up block on a table's mutex; the heartbeat only
 * try-locks, so a table left locked by a dead process never hangs the peer's
 * wait loop. */
#define _GNU_SOURCE
#include "ky_peer.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

_Static_assert(sizeof(kyp_table_header) == 56, "table header");
_Static_assert(sizeof(kyp_signal_row) == 640, "signal row");
_Static_assert(offsetof(kyp_signal_row, shm_name) == 32, "signal row shmName");
_Static_assert(offsetof(kyp_signal_row, type_name) == 384, "signal row typeName");
_Static_assert(sizeof(kyp_subscriber_row) == 312, "subscriber row");
_Static_assert(offsetof(kyp_subscriber_row, domain) == 24, "subscriber row domain");
_Static_assert(offsetof(kyp_subscriber_row, signal) == 152, "subscriber row signal");
_Static_assert(sizeof(kyp_app_row) == 344, "app row");
_Static_assert(offsetof(kyp_app_row, pids) == 24, "app row pids");
_Static_assert(offsetof(kyp_app_row, pid_last_seen_ms) == 88, "app row stamps");
_Static_assert(offsetof(kyp_app_row, domain) == 216, "app row domain");
_Static_assert(sizeof(kyp_signal_table) == 163896, "signal table");
_Static_assert(sizeof(kyp_subscriber_table) == 159800, "subscriber table");
_Static_assert(sizeof(kyp_app_table) == 22072, "app table");

#define CACHE_SLOTS 16

static struct {
    char name[80];
    void *base;
} g_cache[CACHE_SLOTS];

static void *open_table(const char *name, size_t size, uint32_t magic, uint32_t version, int create) {
    for (int k = 0; k < CACHE_SLOTS; ++k)
        if (g_cache[k].base && strcmp(g_cache[k].name, name) == 0) return g_cache[k].base;
    const int fd = shm_open(name, create ? O_CREAT | O_RDWR : O_RDWR, 0666);
    if (fd < 0) return NULL;
    (void)fchmod(fd, 0666);
    /* Every opener sizes the table: the size never changes, so this is harmless. */
    if (ftruncate(fd, (off_t)size) != 0) {
        close(fd);
        return NULL;
    }
    void *base = mmap(NULL, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (base == MAP_FAILED) return NULL;
    kyp_table_header *h = base;
    if (h->magic != magic || h->version != version) {
        /* A table of another format holds nothing worth keeping: take it over. */
        memset(base, 0, size);
        h->magic = magic;
        h->version = version;
        pthread_mutexattr_t ma;
        pthread_mutexattr_init(&ma);
        pthread_mutexattr_setpshared(&ma, PTHREAD_PROCESS_SHARED);
        pthread_mutex_init(&h->mutex, &ma);
        pthread_mutexattr_destroy(&ma);
    }
    if (h->clock_tag != KYP_CLOCK_TAG) {
        /* Stamps of another clock cannot be compared with ours: drop every row. */
        memset((char *)base + sizeof(kyp_table_header), 0, size - sizeof(kyp_table_header));
        h->count = 0;
        h->clock_tag = KYP_CLOCK_TAG;
    }
    for (int k = 0; k < CACHE_SLOTS; ++k)
        if (!g_cache[k].base) {
            kyp_copy_trunc(g_cache[k].name, sizeof g_cache[k].name, name);
            g_cache[k].base = base;
            break;
        }
    return base;
}

kyp_signal_table *kyp_signal_table_open(const char *domain, int create) {
    char suffix[50], name[80];
    kyp_sanitize_suffix(domain, suffix);
    snprintf(name, sizeof name, "/ky_ipc_registry_%s", suffix);
    return open_table(name, sizeof(kyp_signal_table), KYP_REG_MAGIC, KYP_REG_VERSION, create);
}

kyp_subscriber_table *kyp_subscriber_table_open(const char *domain, int create) {
    char suffix[50], name[80];
    kyp_sanitize_suffix(domain, suffix);
    snprintf(name, sizeof name, "/ky_ipc_subs_%s", suffix);
    return open_table(name, sizeof(kyp_subscriber_table), KYP_SUBS_MAGIC, KYP_SUBS_VERSION, create);
}

kyp_app_table *kyp_app_table_open(int create) {
    return open_table(KYP_APPS_NAME, sizeof(kyp_app_table), KYP_APPS_MAGIC, KYP_APPS_VERSION, create);
}

/* ---- staleness ------------------------------------------------------------- */

static int stale(uint64_t stamp, uint32_t pid, uint64_t now) {
    if (stamp == 0 || pid == 0) return 1;
    if (now >= stamp && now - stamp > KYP_STALE_MS) return 1;
    return kyp_process_gone(pid);
}

void kyp_clean_signal_rows(kyp_signal_table *t, uint64_t now) {
    uint32_t k = 0;
    if (t->h.count > KYP_REG_ROWS) t->h.count = KYP_REG_ROWS;
    while (k < t->h.count) {
        kyp_signal_row *r = &t->rows[k];
        if (!stale(r->last_seen_ms, r->pid, now)) {
            ++k;
            continue;
        }
        /* Swap with the last row and test this index again. */
        const uint32_t last = t->h.count - 1;
        if (k != last) *r = t->rows[last];
        memset(&t->rows[last], 0, sizeof t->rows[last]);
        t->h.count = last;
    }
}

void kyp_clean_subscriber_rows(kyp_subscriber_table *t, uint64_t now) {
    uint32_t k = 0;
    if (t->h.count > KYP_SUBS_ROWS) t->h.count = KYP_SUBS_ROWS;
    while (k < t->h.count) {
        kyp_subscriber_row *r = &t->rows[k];
        if (r->ref_count != 0 && !stale(r->last_seen_ms, r->pid, now)) {
            ++k;
            continue;
        }
        const uint32_t last = t->h.count - 1;
        if (k != last) *r = t->rows[last];
        memset(&t->rows[last], 0, sizeof t->rows[last]);
        t->h.count = last;
    }
}

static void remove_app_row(kyp_app_table *t, uint32_t k) {
    const uint32_t last = t->h.count - 1;
    if (k != last) t->rows[k] = t->rows[last];
    memset(&t->rows[last], 0, sizeof t->rows[last]);
    t->h.count = last;
}

static void remove_app_slot(kyp_app_row *r, uint32_t j) {
    const uint32_t last = r->pid_count - 1;
    r->pids[j] = r->pids[last];
    r->pid_last_seen_ms[j] = r->pid_last_seen_ms[last];
    r->pids[last] = 0;
    r->pid_last_seen_ms[last] = 0;
    r->pid_count = last;
}

void kyp_clean_app_rows(kyp_app_table *t, uint64_t now) {
    uint32_t k = 0;
    if (t->h.count > KYP_APPS_ROWS) t->h.count = KYP_APPS_ROWS;
    while (k < t->h.count) {
        kyp_app_row *r = &t->rows[k];
        if (r->pid_count > KYP_APP_PIDS) r->pid_count = KYP_APP_PIDS;
        uint32_t j = 0;
        while (j < r->pid_count) {
            if (stale(r->pid_last_seen_ms[j], r->pids[j], now)) remove_app_slot(r, j);
            else ++j;
        }
        if (r->pid_count == 0) remove_app_row(t, k);
        else ++k;
    }
}

/* ---- signal table ----------------------------------------------------------- */

static void fill_signal_texts(kyp_signal_row *r, const char *domain, const char *object, const char *signal,
                              const char *shm_name, const char *type_name) {
    kyp_copy_trunc(r->shm_name, sizeof r->shm_name, shm_name);
    kyp_copy_trunc(r->domain, sizeof r->domain, domain);
    kyp_copy_trunc(r->object, sizeof r->object, object);
    kyp_copy_trunc(r->signal, sizeof r->signal, signal);
    kyp_copy_trunc(r->type_name, sizeof r->type_name, type_name);
}

static uint64_t triple_hash(const char *domain, const char *object, const char *signal) {
    const size_t n = strlen(domain) + strlen(object) + strlen(signal) + 3;
    char *joined = malloc(n);
    if (!joined) return 0;
    snprintf(joined, n, "%s|%s|%s", domain, object, signal);
    const uint64_t h = kyp_hash_str(joined);
    free(joined);
    return h;
}

void kyp_register_signal(const char *domain, const char *object, const char *signal, const char *shm_name,
                         uint64_t type_id, const char *type_name) {
    kyp_register_domain(domain);
    kyp_signal_table *t = kyp_signal_table_open(domain, 1);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return;
    const uint64_t hash = triple_hash(domain, object, signal);
    const uint64_t now = kyp_now_ms();
    const uint32_t self = (uint32_t)getpid();
    const uint32_t count = t->h.count > KYP_REG_ROWS ? KYP_REG_ROWS : t->h.count;
    kyp_signal_row *row = NULL;
    for (uint32_t k = 0; k < count && !row; ++k)
        if (t->rows[k].hash == hash) row = &t->rows[k];
    if (row) {
        row->type_id = type_id;
        const uint64_t stamp = row->last_seen_ms;
        const int take = row->pid == self || kyp_process_gone(row->pid) ||
                         (stamp != 0 && stamp <= now && now - stamp > KYP_STALE_MS);
        if (take) {
            row->last_seen_ms = now;
            row->pid = self;
        }
        fill_signal_texts(row, domain, object, signal, shm_name, type_name);
    } else if (count < KYP_REG_ROWS) {
        row = &t->rows[count];
        memset(row, 0, sizeof *row);
        row->hash = hash;
        row->type_id = type_id;
        row->last_seen_ms = now;
        row->pid = self;
        fill_signal_texts(row, domain, object, signal, shm_name, type_name);
        t->h.count = count + 1;
    }
    pthread_mutex_unlock(&t->h.mutex);
    if (!(strcmp(object, KYP_EVENTS_OBJECT) == 0 && strcmp(signal, KYP_EVENTS_SIGNAL) == 0))
        kyp_notify_registry_changed(domain);
}

/* ---- subscriber table ---------------------------------------------------------- */

uint64_t kyp_subscription_hash(const char *domain, const char *object, const char *signal, uint32_t pid,
                               const char *sub_object) {
    const size_t n = strlen(domain) + strlen(object) + strlen(signal) + strlen(sub_object) + 48;
    char *text = malloc(n);
    if (!text) return 0;
    int used = snprintf(text, n, "%s|%s|%s|sub|%u", domain, object, signal, (unsigned)pid);
    if (*sub_object) snprintf(text + used, n - (size_t)used, "|subObject|%s", sub_object);
    const uint64_t h = kyp_hash_str(text);
    free(text);
    return h;
}

static kyp_subscriber_row *find_subscriber(kyp_subscriber_table *t, uint64_t hash) {
    const uint32_t count = t->h.count > KYP_SUBS_ROWS ? KYP_SUBS_ROWS : t->h.count;
    for (uint32_t k = 0; k < count; ++k)
        if (t->rows[k].hash == hash) return &t->rows[k];
    return NULL;
}

void kyp_register_subscription(const char *domain, const char *object, const char *signal, uint32_t pid,
                               const char *sub_object) {
    kyp_subscriber_table *t = kyp_subscriber_table_open(domain, 1);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return;
    const uint64_t hash = kyp_subscription_hash(domain, object, signal, pid, sub_object);
    const uint64_t now = kyp_now_ms();
    kyp_clean_subscriber_rows(t, now);
    kyp_subscriber_row *row = find_subscriber(t, hash);
    if (row) {
        row->last_seen_ms = now;
        row->pid = pid;
        if (row->ref_count != 0xFFFFFFFFu) ++row->ref_count;
    } else if (t->h.count < KYP_SUBS_ROWS) {
        row = &t->rows[t->h.count++];
        memset(row, 0, sizeof *row);
        row->hash = hash;
        row->last_seen_ms = now;
        row->pid = pid;
        row->ref_count = 1;
    }
    if (row) {
        kyp_copy_trunc(row->domain, sizeof row->domain, domain);
        kyp_copy_trunc(row->object, sizeof row->object, object);
        kyp_copy_trunc(row->signal, sizeof row->signal, signal);
        /* The subscriber object rides behind the signal's terminator, where matching never looks. */
        const size_t t_end = strnlen(row->signal, sizeof row->signal);
        if (t_end >= sizeof row->signal) row->signal[sizeof row->signal - 1] = 0;
        else if (t_end < sizeof row->signal - 1)
            kyp_copy_trunc(row->signal + t_end + 1, sizeof row->signal - t_end - 1, sub_object);
    }
    pthread_mutex_unlock(&t->h.mutex);
}

void kyp_unregister_subscription(const char *domain, const char *object, const char *signal, uint32_t pid,
                                 const char *sub_object) {
    kyp_subscriber_table *t = kyp_subscriber_table_open(domain, 1);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return;
    kyp_clean_subscriber_rows(t, kyp_now_ms());
    kyp_subscriber_row *row = find_subscriber(t, kyp_subscription_hash(domain, object, signal, pid, sub_object));
    if (row && row->ref_count > 1) {
        --row->ref_count;
    } else if (row) {
        const uint32_t last = t->h.count - 1;
        if (row != &t->rows[last]) *row = t->rows[last];
        memset(&t->rows[last], 0, sizeof t->rows[last]);
        t->h.count = last;
    }
    pthread_mutex_unlock(&t->h.mutex);
}

/* A fixed field equals a text when it holds that text as far as the field can. */
static int field_equals(const char *field, size_t width, const char *text) {
    const size_t stored = strnlen(field, width);
    size_t want = strlen(text);
    if (want > width - 1) want = width - 1;
    return stored == want && memcmp(field, text, want) == 0;
}

static int cmp_u32(const void *a, const void *b) {
    const uint32_t x = *(const uint32_t *)a, y = *(const uint32_t *)b;
    return x < y ? -1 : x > y;
}

size_t kyp_list_subscriber_pids(const char *domain, const char *object, const char *signal, uint32_t *pids,
                                size_t cap) {
    kyp_subscriber_table *t = kyp_subscriber_table_open(domain, 1);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return 0;
    kyp_clean_subscriber_rows(t, kyp_now_ms());
    size_t n = 0;
    const uint32_t count = t->h.count > KYP_SUBS_ROWS ? KYP_SUBS_ROWS : t->h.count;
    for (uint32_t k = 0; k < count && n < cap; ++k) {
        const kyp_subscriber_row *r = &t->rows[k];
        if (r->pid != 0 && field_equals(r->domain, sizeof r->domain, domain) &&
            field_equals(r->object, sizeof r->object, object) && field_equals(r->signal, sizeof r->signal, signal))
            pids[n++] = r->pid;
    }
    pthread_mutex_unlock(&t->h.mutex);
    qsort(pids, n, sizeof *pids, cmp_u32);
    size_t unique = 0;
    for (size_t k = 0; k < n; ++k)
        if (unique == 0 || pids[unique - 1] != pids[k]) pids[unique++] = pids[k];
    return unique;
}

void kyp_wake_subscribers(const char *domain, const char *object, const char *signal) {
    uint32_t pids[KYP_SUBS_ROWS];
    const size_t n = kyp_list_subscriber_pids(domain, object, signal, pids, KYP_SUBS_ROWS);
    for (size_t k = 0; k < n; ++k) kyp_wake_pid(pids[k]);
}

/* ---- application table ---------------------------------------------------------- */

/* Stamps this process in the domain's row, adding the row or the pid slot when missing. */
static void touch_app_row_locked(kyp_app_table *t, const char *domain, uint64_t now, uint32_t self) {
    char suffix[50], shm_name[80];
    kyp_sanitize_suffix(domain, suffix);
    snprintf(shm_name, sizeof shm_name, "/ky_ipc_registry_%s", suffix);
    const uint64_t hash = kyp_hash_str(domain);
    kyp_app_row *row = NULL;
    for (uint32_t k = 0; k < t->h.count && !row; ++k)
        if (t->rows[k].hash == hash) row = &t->rows[k];
    if (row) {
        row->last_seen_ms = now;
        kyp_copy_trunc(row->domain, sizeof row->domain, domain);
        kyp_copy_trunc(row->shm_name, sizeof row->shm_name, shm_name);
        for (uint32_t j = 0; j < row->pid_count; ++j)
            if (row->pids[j] == self) {
                row->pid_last_seen_ms[j] = now;
                return;
            }
        if (row->pid_count < KYP_APP_PIDS) {
            row->pids[row->pid_count] = self;
            row->pid_last_seen_ms[row->pid_count] = now;
            ++row->pid_count;
        }
    } else if (t->h.count < KYP_APPS_ROWS) {
        row = &t->rows[t->h.count++];
        memset(row, 0, sizeof *row);
        row->hash = hash;
        row->last_seen_ms = now;
        row->pid_count = 1;
        row->pids[0] = self;
        row->pid_last_seen_ms[0] = now;
        kyp_copy_trunc(row->domain, sizeof row->domain, domain);
        kyp_copy_trunc(row->shm_name, sizeof row->shm_name, shm_name);
    }
}

void kyp_register_domain(const char *domain) {
    kyp_app_table *t = kyp_app_table_open(1);
    if (!t || pthread_mutex_lock(&t->h.mutex) != 0) return;
    const uint64_t now = kyp_now_ms();
    kyp_clean_app_rows(t, now);
    touch_app_row_locked(t, domain, now, (uint32_t)getpid());
    pthread_mutex_unlock(&t->h.mutex);
}

void kyp_unregister_domain(const char *domain) {
    kyp_app_table *t = kyp_app_table_open(0);
    /* At exit a busy table is skipped: a leaving process must not hang. */
    if (!t || pthread_mutex_trylock(&t->h.mutex) != 0) return;
    const uint64_t now = kyp_now_ms();
    kyp_clean_app_rows(t, now);
    const uint64_t hash = kyp_hash_str(domain);
    const uint32_t self = (uint32_t)getpid();
    for (uint32_t k = 0; k < t->h.count; ++k) {
        kyp_app_row *r = &t->rows[k];
        if (r->hash != hash) continue;
        for (uint32_t j = 0; j < r->pid_count; ++j)
            if (r->pids[j] == self) {
                remove_app_slot(r, j);
                break;
            }
        if (r->pid_count == 0) remove_app_row(t, k);
        else r->last_seen_ms = now;
        break;
    }
    pthread_mutex_unlock(&t->h.mutex);
}

/* ---- registry events and heartbeat ------------------------------------------------ */

void kyp_notify_registry_changed(const char *domain) {
    if (!*domain) return;
    char name[25];
    kyp_shm_name(domain, KYP_EVENTS_OBJECT, KYP_EVENTS_SIGNAL, name);
    const uint64_t type_id = kyp_type_id("t");
    kyp_channel ch;
    const char *err = NULL;
    if (kyp_open_signal(name, type_id, &ch, &err) != 0) return;
    char type_name[256];
    kyp_type_name_text("t", type_name, sizeof type_name);
    kyp_register_signal(domain, KYP_EVENTS_OBJECT, KYP_EVENTS_SIGNAL, name, type_id, type_name);
    kyp_value v = {.kind = 't', .t = kyp_now_ms()};
    uint8_t buf[8];
    size_t len = 0;
    if (kyp_encode("t", &v, buf, sizeof buf, &len) == 0) kyp_signal_publish(&ch, buf, len);
    kyp_close_channel(&ch);
    kyp_wake_subscribers(domain, KYP_EVENTS_OBJECT, KYP_EVENTS_SIGNAL);
}

void kyp_heartbeat(const char *domain) {
    const uint32_t self = (uint32_t)getpid();
    int stamped = 0;
    kyp_signal_table *st = kyp_signal_table_open(domain, 1);
    if (st && pthread_mutex_trylock(&st->h.mutex) == 0) {
        const uint64_t now = kyp_now_ms();
        st->h.clock_tag = KYP_CLOCK_TAG;
        kyp_clean_signal_rows(st, now);
        for (uint32_t k = 0; k < st->h.count; ++k)
            if (st->rows[k].pid == self) {
                st->rows[k].last_seen_ms = now;
                stamped = 1;
            }
        pthread_mutex_unlock(&st->h.mutex);
    }
    if (stamped) kyp_notify_registry_changed(domain);
    kyp_subscriber_table *sub = kyp_subscriber_table_open(domain, 1);
    if (sub && pthread_mutex_trylock(&sub->h.mutex) == 0) {
        const uint64_t now = kyp_now_ms();
        sub->h.clock_tag = KYP_CLOCK_TAG;
        kyp_clean_subscriber_rows(sub, now);
        for (uint32_t k = 0; k < sub->h.count; ++k)
            if (sub->rows[k].pid == self) sub->rows[k].last_seen_ms = now;
        pthread_mutex_unlock(&sub->h.mutex);
    }
    kyp_app_table *apps = kyp_app_table_open(1);
    if (apps && pthread_mutex_trylock(&apps->h.mutex) == 0) {
        const uint64_t now = kyp_now_ms();
        apps->h.clock_tag = KYP_CLOCK_TAG;
        kyp_clean_app_rows(apps, now);
        touch_app_row_locked(apps, domain, now, self);
        pthread_mutex_unlock(&apps->h.mutex);
    }
}
