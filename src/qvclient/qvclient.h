/*
 * libqvclient: commands and events of qvcd, the configuration daemon of the appliance, for C programs.
 *
 *   - A client (qvc_client) knows where the daemon is and who asks. Every command opens a connection of its
 * own, so a client that waits for its next use costs nothing, and a daemon that was restarted meanwhile is
 * found.
 *   - What a function returns (qvc_status) says whether there is an answer. What the answer is, stands in the
 *     reply (qvc_reply): its lines, its result code, and the errors that stand in place of values.
 *   - Events (qvc_events) are read one by one, or from the loop of a program that polls descriptors.
 *
 * Threads: different objects may be used by different threads at the same time; one object by one thread at a
 * time. Replies and events do not depend on the client that they came from, and their texts live as long as
 * they. Signals: no function raises SIGPIPE; a signal that is handled does not end a wait. All descriptors
 * are close-on-exec. Texts are UTF-8 as the daemon has them, and end with a NUL byte. Times are milliseconds.
 * Null pointers: functions that free do nothing, others return QVC_ARGUMENT, 0 or null.
 *
 * Versions: within one major version functions are added and none is changed; programs that were built with
 * an older minor version run with a newer one.
 */
#ifndef QVCLIENT_H
#define QVCLIENT_H

#include <stddef.h>

#define QVC_VERSION_MAJOR 1
#define QVC_VERSION_MINOR 0
#define QVC_VERSION_PATCH 0
#define QVC_VERSION_NUMBER(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
#define QVC_VERSION QVC_VERSION_NUMBER(QVC_VERSION_MAJOR, QVC_VERSION_MINOR, QVC_VERSION_PATCH)

#if defined(__GNUC__)
#define QVC_API __attribute__((visibility("default")))
#else
#define QVC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the library that runs, as QVC_VERSION is that of this header; and as "1.0.0". */
QVC_API int qvc_version(void);
QVC_API const char *qvc_version_text(void);

/* ---- What functions return ---- */

typedef enum qvc_status {
    QVC_OK = 0,          /* there is an answer */
    QVC_REFUSED = 1,     /* the daemon answered with an error (not of commands: see their replies) */
    QVC_ARGUMENT = 2,    /* an argument is wrong or cannot be said on the wire; nothing was sent */
    QVC_MEMORY = 3,      /* no memory */
    QVC_UNREACHABLE = 4, /* there is no connection; nothing was sent */
    QVC_UNTRUSTED = 5,   /* TLS: no agreement, or the daemon's certificate is not trusted; nothing was sent */
    QVC_TLS_FILE = 6,    /* TLS: a file cannot be used; nothing was sent */
    QVC_TIMEOUT = 7,     /* the time is over; what was asked may still happen */
    QVC_BROKEN = 8,      /* the connection ended too early; what was asked may have happened */
    QVC_INTERNAL = 9     /* another failure of the system */
} qvc_status;

/* A few English words on a status, for messages. Never null. */
QVC_API const char *qvc_status_text(qvc_status status);

/* ---- Clients ---- */

typedef struct qvc_client qvc_client;

/* A client of the local daemon, with session 0 and the usual time limits. Null: no memory. */
QVC_API qvc_client *qvc_client_new(void);
QVC_API void qvc_client_free(qvc_client *client);

/*
 * The local daemon, whose sockets are in `folder`; null: /var/run/qv below $QV_SYSROOT, as it was when the
 * process first asked.
 */
QVC_API qvc_status qvc_client_use_local(qvc_client *client, const char *folder);

/*
 * The daemon at a host name or numeric address, and a port from 1 to 65535. What is said, passwords included,
 * can be read on the way, unless qvc_client_use_tls() comes behind.
 */
QVC_API qvc_status qvc_client_use_tcp(qvc_client *client, const char *host, int port);

/*
 * Speak TLS with the host of qvc_client_use_tcp(), which comes before. PEM files, read at the first
 * connection: `authorities`: whose certificates of daemons are trusted, null: those that the system trusts;
 * `certificate` and `key` (not encrypted): what to show, both null: none.
 */
QVC_API qvc_status qvc_client_use_tls(qvc_client *client, const char *authorities, const char *certificate,
                                      const char *key);

/*
 * Up to `connect` for a connection and up to `reply` for the whole of a command, 1 to 86400000 each; 0: the
 * usual (30 s, and 600 s for commands that wait for the appliance's scripts). Looking up a host name may take
 * longer.
 */
QVC_API qvc_status qvc_client_set_timeouts(qvc_client *client, int connect, int reply);

/* Who asks, as the daemon's history shows it: one word of up to 64 printable ASCII characters. Default "qvc".
 */
QVC_API qvc_status qvc_client_set_name(qvc_client *client, const char *name);

/*
 * The session that commands run in, from 0 on. 0 is root for local administrators, or stands for the user of
 * the certificate; qvc_client_login() sets another. It is a credential.
 */
QVC_API qvc_status qvc_client_set_session(qvc_client *client, int session);
QVC_API int qvc_client_session(const qvc_client *client);

/*
 * Logs in; from then on commands run in the new session. QVC_REFUSED with the daemon's reason in
 * qvc_problem(): the session stays what it was.
 */
QVC_API qvc_status qvc_client_login(qvc_client *client, const char *user, const char *password);

/* Ends the session at the daemon; from then on commands run in session 0. */
QVC_API qvc_status qvc_client_logout(qvc_client *client);

/* What went wrong in the last call with this client that did not return QVC_OK, for people. Never null; good
 * until the next call. */
QVC_API const char *qvc_problem(const qvc_client *client);

/* ---- Single values ---- */

/*
 * The value of one setting, or of one status value. QVC_REFUSED with the reason in qvc_problem(): there is
 * none of that name, it is a group, or the caller may not read it. *value is to be freed with
 * qvc_text_free(); null unless QVC_OK.
 */
QVC_API qvc_status qvc_get(qvc_client *client, const char *name, char **value);
QVC_API void qvc_text_free(char *text);

/*
 * Sets one setting, which is neither saved nor applied by that. QVC_REFUSED with the reason in qvc_problem():
 * the daemon does not take the value, and keeps the old one.
 */
QVC_API qvc_status qvc_set(qvc_client *client, const char *name, const char *value);

/* ---- Commands ---- */

typedef struct qvc_reply qvc_reply;

/*
 * Runs a command of 1 to 100 words, the command itself first, and waits for its reply. Each word arrives as
 * it is given, blanks, commas and percent signs included, wherever the daemon takes such: in the value of
 * "NAME=VALUE", in names and passwords of users, in names of presets and of profiles that there are, behind
 * "-m". Elsewhere a comma separates names, and a word that is empty or holds a blank is QVC_ARGUMENT, as is
 * one with a control character. QVC_OK says that there is a reply, not that the command did what it should:
 * see qvc_reply_failed(). *reply is to be freed; null unless QVC_OK.
 */
QVC_API qvc_status qvc_run(qvc_client *client, size_t count, const char *const *words, qvc_reply **reply);

/*
 * qvc_run() for a command that takes a document of `size` bytes, at most 4 MiB (null only for 0): import,
 * preset.import, profile.import and user.import, where "-" stands in place of a file. Commands that give one
 * (export, ... with "-") give it in their reply. The time limit counts from the last byte that was sent.
 */
QVC_API qvc_status qvc_run_with_document(qvc_client *client, size_t count, const char *const *words,
                                         const char *document, size_t size, qvc_reply **reply);

/*
 * qvc_run(), handing out each line, without newline but with a NUL byte behind it, as soon as it comes: for
 * commands that take long, and replies that are large. What `take` is called with is good until it returns;
 * it must return. When it returns other than 0, the rest is not waited for, and the status is QVC_BROKEN; the
 * command goes on. *result (null: not wanted) is the result code.
 */
typedef int (*qvc_take_line)(void *context, const char *line, size_t size);
QVC_API qvc_status qvc_stream(qvc_client *client, size_t count, const char *const *words, qvc_take_line take,
                              void *context, int *result);

QVC_API void qvc_reply_free(qvc_reply *reply);

/* The command's result code: 0 for success. Some commands report errors in lines of their reply only. */
QVC_API int qvc_reply_result(const qvc_reply *reply);

/* 1 when the result code is not 0 or a line holds an error, else 0. */
QVC_API int qvc_reply_failed(const qvc_reply *reply);

/* The whole reply without the result code: each line with a newline, `*size` bytes (null: not wanted) before
 * a NUL byte. */
QVC_API const char *qvc_reply_text(const qvc_reply *reply, size_t *size);

/* The number of lines. */
QVC_API size_t qvc_reply_count(const qvc_reply *reply);

/*
 * Of line `i`, from 0: the whole; the name in front of "=", null when there is none; the value behind it, or
 * the whole; the error in place of the value ("Invalid port number format" of "##Invalid port number format#:
 * 99999"), null when there is none. Null when there is no such line.
 */
QVC_API const char *qvc_reply_line(const qvc_reply *reply, size_t i);
QVC_API const char *qvc_reply_name(const qvc_reply *reply, size_t i);
QVC_API const char *qvc_reply_value(const qvc_reply *reply, size_t i);
QVC_API const char *qvc_reply_error(const qvc_reply *reply, size_t i);

/* ---- Events ---- */

typedef struct qvc_events qvc_events;
typedef struct qvc_event qvc_event;

/*
 * Subscribes to what happens at the daemon from now on, as far as the client's session may see it. The
 * `count` words choose (0: everything): names of settings and groups, with "*" and "?", and kinds of events,
 * each behind a word "-e". The client is not needed any more. *events is to be closed; null unless QVC_OK.
 * QVC_REFUSED with the reason in qvc_problem(): the daemon does not tell.
 */
QVC_API qvc_status qvc_events_open(qvc_client *client, size_t count, const char *const *words,
                                   qvc_events **events);
QVC_API void qvc_events_close(qvc_events *events);

/*
 * The next event: waits for up to `timeout` (0: not at all, -1: for ever). QVC_TIMEOUT: none has come yet.
 * QVC_BROKEN: the daemon has ended the stream, because it ends itself or events were not read in time: later
 * events are missed; subscribe again, and ask for the values. QVC_REFUSED: it has ended for good, because the
 * session has ended or its rights have changed. *event is to be freed; null unless QVC_OK.
 */
QVC_API qvc_status qvc_events_next(qvc_events *events, int timeout, qvc_event **event);

/*
 * The descriptor to poll for POLLIN. Then call qvc_events_next() with timeout 0 until it returns QVC_TIMEOUT:
 * several may have come together. It must not be read, written or closed.
 */
QVC_API int qvc_events_fd(const qvc_events *events);

QVC_API void qvc_event_free(qvc_event *event);

/* What happened: "set", "save", "apply", "commit", "login", ...; docs/protocol.md has them all. */
QVC_API const char *qvc_event_kind(const qvc_event *event);

/* The payload "NAME=VALUE" in two: the setting, or else what the event is about; null when there is no "=".
 */
QVC_API const char *qvc_event_name(const qvc_event *event);
QVC_API const char *qvc_event_value(const qvc_event *event);

/* The whole event, a JSON object on one line. */
QVC_API const char *qvc_event_json(const qvc_event *event);

#ifdef __cplusplus
}
#endif

#endif
