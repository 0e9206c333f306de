/* ky_peer: a second, independent implementation of the console's IPC bytes,
 * written in plain C so that nothing is shared with the C++ framework.
 *
 * Model: one short-lived, single-threaded process that maps channel blocks,
 * ring queues and the three registry tables, reads and writes them with the
 * same locking rules as the framework (writers block on the process-shared
 * mutex, polling readers only try-lock), and wakes listeners with one-byte
 * datagrams on abstract sockets. Nothing here is thread-safe; the front end
 * (ky_c_peer.c) calls it from its main thread only.
 *
 * Errors are values: functions return 0 on success and a negative code
 * otherwise; channel opening also hands back the framework's error text. */
#ifndef KY_PEER_H
#define KY_PEER_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#define KYP_PAYLOAD_CAP 4096u
#define KYP_MAX_ARGS 32
#define KYP_STALE_MS 15000u

/* Magic values and versions of the shared objects. */
#define KYP_SIG_MAGIC 0x53494731u
#define KYP_SIG_VERSION 2u
#define KYP_QUEUE_MAGIC 0x51554531u
#define KYP_QUEUE_VERSION 1u
#define KYP_REG_MAGIC 0x52454731u
#define KYP_REG_VERSION 2u
#define KYP_SUBS_MAGIC 0x53554231u
#define KYP_SUBS_VERSION 1u
#define KYP_APPS_MAGIC 0x41505031u
#define KYP_APPS_VERSION 2u
#define KYP_CLOCK_TAG 0x544D5331u

#define KYP_REG_ROWS 256u
#define KYP_SUBS_ROWS 512u
#define KYP_APPS_ROWS 64u
#define KYP_APP_PIDS 16u

#define KYP_APPS_NAME "/ky_ipc_registry"
#define KYP_EVENTS_OBJECT "__ky_ipc__"
#define KYP_EVENTS_SIGNAL "__registryChanged__"

/* ---- shared layouts ---------------------------------------------------- */

/// Latest-value signal block: 4280 bytes.
typedef struct {
    uint32_t magic;
    uint32_t version;
    uint64_t type_id;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint64_t seq;
    uint32_t size;
    uint8_t payload[KYP_PAYLOAD_CAP];
    uint8_t padding[4];
    uint8_t reserved[64];
} kyp_signal_block;

/// Header of a ring queue; N slots follow at offset 128, then 64 reserved bytes.
typedef struct {
    uint32_t magic;
    uint32_t version;
    uint64_t type_id;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint64_t seq;
    uint64_t head;
    uint64_t reserved;
} kyp_queue_header;

/// One ring queue slot: 4112 bytes.
typedef struct {
    uint64_t seq;
    uint32_t size;
    uint8_t payload[KYP_PAYLOAD_CAP];
    uint8_t padding[4];
} kyp_queue_slot;

/// The 56-byte header shared by the three registry tables.
typedef struct {
    uint32_t magic;
    uint32_t version;
    uint32_t count;
    uint32_t clock_tag;
    pthread_mutex_t mutex;
} kyp_table_header;

/// Row of a domain's signal table: 640 bytes.
typedef struct {
    uint64_t hash;
    uint64_t type_id;
    uint64_t last_seen_ms;
    uint32_t pid;
    uint32_t padding;
    char shm_name[64];
    char domain[64];
    char object[64];
    char signal[160];
    char type_name[256];
} kyp_signal_row;

/// Row of a domain's subscriber table: 312 bytes.
typedef struct {
    uint64_t hash;
    uint64_t last_seen_ms;
    uint32_t pid;
    uint32_t ref_count;
    char domain[64];
    char object[64];
    char signal[160]; /* signal, NUL, subscriber object, NUL */
} kyp_subscriber_row;

/// Row of the machine's application table: 344 bytes.
typedef struct {
    uint64_t hash;
    uint64_t last_seen_ms;
    uint32_t pid_count;
    uint32_t padding;
    uint32_t pids[KYP_APP_PIDS];
    uint64_t pid_last_seen_ms[KYP_APP_PIDS];
    char domain[64];
    char shm_name[64];
} kyp_app_row;

typedef struct { kyp_table_header h; kyp_signal_row rows[KYP_REG_ROWS]; } kyp_signal_table;
typedef struct { kyp_table_header h; kyp_subscriber_row rows[KYP_SUBS_ROWS]; } kyp_subscriber_table;
typedef struct { kyp_table_header h; kyp_app_row rows[KYP_APPS_ROWS]; } kyp_app_table;

/* ---- names, hash, clock ------------------------------------------------ */

uint64_t kyp_hash(const void *data, size_t len);
uint64_t kyp_hash_str(const char *text);
/// 16 lower-case hex digits and a NUL into out[17].
void kyp_hex64(uint64_t value, char out[17]);
/// "/ky_sig_" + hex64(hash(domain|object|signal)) into out[25].
void kyp_shm_name(const char *domain, const char *object, const char *signal, char out[25]);
/// A domain as a safe object-name suffix, at most 49 characters, into out[50].
void kyp_sanitize_suffix(const char *domain, char out[50]);
/// Truncating copy that always terminates; nothing happens for a null dst or cap 0.
void kyp_copy_trunc(char *dst, size_t cap, const char *src);
/// Monotonic milliseconds.
uint64_t kyp_now_ms(void);
/// True when pid is 0 or kill(pid, 0) reports ESRCH.
int kyp_process_gone(uint32_t pid);

/* ---- signatures and codec ---------------------------------------------- */

/// One argument: kind is one of b i u t s; s points at len bytes (not terminated).
typedef struct {
    char kind;
    int b;
    int32_t i;
    uint32_t u;
    uint64_t t;
    const char *s;
    uint32_t len;
} kyp_value;

/// 0 when every letter of sig is one of b i u t s and there are at most KYP_MAX_ARGS.
int kyp_sig_valid(const char *sig);
/// The compiler-style type-id text of a signature; -1 on a bad letter or small buffer.
int kyp_type_id_text(const char *sig, char *out, size_t cap);
int kyp_type_name_text(const char *sig, char *out, size_t cap);
uint64_t kyp_type_id(const char *sig);

/// Parses command-line text for one letter; -1 when the text is not a valid value.
int kyp_parse_value(char kind, const char *text, kyp_value *out);
/// Encodes vals in the order of sig; -1 when the payload does not fit cap.
int kyp_encode(const char *sig, const kyp_value *vals, uint8_t *buf, size_t cap, size_t *len);
/// Decodes sig from buf; strings point into buf. Extra bytes are ignored; -1 on overrun.
int kyp_decode(const char *sig, const uint8_t *buf, size_t len, kyp_value *vals);
/// Prints values separated by blanks (bools as true/false, strings raw), no newline.
void kyp_print_values(FILE *out, const char *sig, const kyp_value *vals);

/* ---- channels ----------------------------------------------------------- */

typedef struct {
    char name[64];
    void *base;
    size_t size;
    uint32_t capacity; /* slots of a ring queue, 0 for a signal block */
} kyp_channel;

size_t kyp_queue_size(uint32_t capacity);
/// openOrCreate of a signal block; *err gets the framework's text on failure.
int kyp_open_signal(const char *name, uint64_t type_id, kyp_channel *out, const char **err);
int kyp_open_queue(const char *name, uint32_t capacity, uint64_t type_id, kyp_channel *out, const char **err);
void kyp_close_channel(kyp_channel *ch);

/// Blocking publish of an encoded payload.
int kyp_signal_publish(kyp_channel *ch, const uint8_t *payload, size_t len);
/// Reads seq, size and payload under the blocking lock.
int kyp_signal_read(kyp_channel *ch, uint64_t *seq, uint8_t *payload, uint32_t *size);
/// Polling read: 1 with a new value (or the initial one), 0 nothing new, -1 lock busy.
/// *has_value is 0 when the new state carries no payload (size 0 or oversize).
int kyp_signal_poll(kyp_channel *ch, uint64_t *last_seq, int initial_pending, uint8_t *payload,
                    uint32_t *size, int *has_value);
uint64_t kyp_signal_seq(kyp_channel *ch);

/// 0 pushed, -1 full.
int kyp_queue_push(kyp_channel *ch, const uint8_t *payload, size_t len);
typedef void (*kyp_message_fn)(void *ctx, const uint8_t *payload, uint32_t size);
/// Drains as the framework's queue closure: -1 when the lock was busy, else the message count.
int kyp_queue_drain(kyp_channel *ch, kyp_message_fn fn, void *ctx);

/* ---- registries (ky_peer_tables.c) -------------------------------------- */

kyp_signal_table *kyp_signal_table_open(const char *domain, int create);
kyp_subscriber_table *kyp_subscriber_table_open(const char *domain, int create);
kyp_app_table *kyp_app_table_open(int create);

void kyp_register_signal(const char *domain, const char *object, const char *signal, const char *shm_name,
                         uint64_t type_id, const char *type_name);
uint64_t kyp_subscription_hash(const char *domain, const char *object, const char *signal, uint32_t pid,
                               const char *sub_object);
void kyp_register_subscription(const char *domain, const char *object, const char *signal, uint32_t pid,
                               const char *sub_object);
void kyp_unregister_subscription(const char *domain, const char *object, const char *signal, uint32_t pid,
                                 const char *sub_object);
/// Fills pids (sorted, unique) and returns how many; at most cap.
size_t kyp_list_subscriber_pids(const char *domain, const char *object, const char *signal, uint32_t *pids,
                                size_t cap);
void kyp_register_domain(const char *domain);
/// Removes this process from the application rows of domain (the exit hook's work).
void kyp_unregister_domain(const char *domain);
/// Publishes now on the domain's registry event signal and wakes its listeners.
void kyp_notify_registry_changed(const char *domain);
/// One heartbeat of all three tables for domain; never blocks on shared memory.
void kyp_heartbeat(const char *domain);

void kyp_clean_signal_rows(kyp_signal_table *t, uint64_t now);
void kyp_clean_subscriber_rows(kyp_subscriber_table *t, uint64_t now);
void kyp_clean_app_rows(kyp_app_table *t, uint64_t now);

/// Wakes every listener of the triple (after cleaning the subscriber table).
void kyp_wake_subscribers(const char *domain, const char *object, const char *signal);

/* ---- wake-ups ------------------------------------------------------------ */

/// Binds "ky_ipc_notify_<own pid>"; the descriptor or -1.
int kyp_wake_bind(void);
/// Sends one byte to pid's socket; failures are ignored.
void kyp_wake_pid(uint32_t pid);
/// Reads every queued datagram; the number read.
int kyp_wake_drain(int fd);

#endif
