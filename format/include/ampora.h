/* The data files of AmporaSrv for other programs: reads them and waits for new ones. For C and C++; ampora.hpp has the
 * same with objects that free themselves. docs/library.md shows how to use and link it, docs/data-format.md the files.
 *
 * Texts are UTF-8 and end with a zero; those that the library gives are constant and are not freed. A null pointer
 * where none is allowed gives AMPORA_ERROR_ARGUMENT. No function throws.
 *
 * Threads: every function may be called from any thread. One ampora_file may be read by any number of threads at once;
 * one ampora_watch belongs to one thread at a time. Nothing may use an object while it is freed.
 */
#ifndef AMPORA_H
#define AMPORA_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a function tells. Everything above AMPORA_TIMED_OUT is an error. */
enum {
    AMPORA_OK = 0,
    AMPORA_TIMED_OUT = 1,           /* nothing has changed in that time */
    AMPORA_ERROR_ARGUMENT = 2,      /* null where none is allowed, or a number out of its range */
    AMPORA_ERROR_COMPANY = 3,       /* no company has this number */
    AMPORA_ERROR_KIND = 4,          /* no kind of data has this code */
    AMPORA_ERROR_FOLDER = 5,        /* there is no such folder, or the default one is unknown */
    AMPORA_ERROR_MISSING = 6,       /* there is no such file: not written yet, or not wanted by the settings */
    AMPORA_ERROR_HELD = 7,          /* AmporaSrv, or another writer, had it open for AMPORA_HELD_LIMIT_MS */
    AMPORA_ERROR_UNREADABLE = 8,    /* the system refuses to read it */
    AMPORA_ERROR_SHORT = 9,         /* less than a header: the writer was interrupted */
    AMPORA_ERROR_VERSION = 10,      /* another format version */
    AMPORA_ERROR_FOREIGN_KIND = 11, /* it holds another kind of data than its name says */
    AMPORA_ERROR_RESERVED = 12,     /* a part of the header that must be 0 is not */
    AMPORA_ERROR_TORN = 13,         /* its length is not what its record count makes: the writer was interrupted */
    AMPORA_ERROR_SIZE = 14,         /* the caller's buffer or structure is too small */
    AMPORA_ERROR_MEMORY = 15,       /* out of memory */
    AMPORA_ERROR_WATCH = 16         /* the system cannot watch the folder, or not any more */
};

/* Companies, by the number that they have in the settings. */
enum {
    AMPORA_COMPANY_TOHOKU = 2,
    AMPORA_COMPANY_TOKYO = 3,
    AMPORA_COMPANY_CHUBU = 5,
    AMPORA_COMPANY_KANSAI = 6,
    AMPORA_COMPANY_KYUSHU = 9
};

/* Kinds of data, by their data type codes. */
enum {
    AMPORA_KIND_INSTANT_USAGE = 1,
    AMPORA_KIND_ACTUAL_USAGE = 2,
    AMPORA_KIND_ESTIMATED_USAGE = 4,
    AMPORA_KIND_PEAK_SUPPLY = 8,
    AMPORA_KIND_PEAK_DEMAND = 16
};

/* For how long ampora_read tries again while a writer has the file open, in milliseconds. */
enum { AMPORA_HELD_LIMIT_MS = 250 };

/* A calendar time: local wall-clock time. All zero: it could not be computed. */
typedef struct ampora_time {
    uint16_t year;
    uint16_t month;       /* 1 to 12 */
    uint16_t day_of_week; /* 0 is Sunday */
    uint16_t day;         /* 1 to 31 */
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t milliseconds;
} ampora_time;

/* One record, as it lies in the file. */
typedef struct ampora_record {
    uint64_t value;    /* usage, supply or demand as the report gives it */
    ampora_time start; /* of the interval that the value covers */
    ampora_time end;
} ampora_record;

/* What a file says of itself. */
typedef struct ampora_file_info {
    uint32_t size;       /* set by the caller: sizeof(ampora_file_info) */
    int32_t company;     /* AMPORA_COMPANY_... */
    uint32_t kind;       /* AMPORA_KIND_... */
    uint32_t count;      /* number of records */
    ampora_time written; /* when AmporaSrv wrote the file */
} ampora_file_info;

/* The content of one data file, read at one moment. */
typedef struct ampora_file ampora_file;

/* The watch of a folder. */
typedef struct ampora_watch ampora_watch;

/* The version of the library, such as "1.0.0". */
const char* ampora_version(void);

/* A result in words, in English, without a full stop. Never null; "unknown error" for any other number. */
const char* ampora_error_text(int32_t result);

/* The companies, in the order of every list: how many there are; the number of the one at a position, from 0 on, 0 for
 * a position out of the range. */
uint32_t ampora_company_count(void);
int32_t ampora_company_at(uint32_t position);
/* A company's name for people, such as "Tokyo", and its key in file names, such as "tokyo"; null for a number that no
 * company has. */
const char* ampora_company_name(int32_t company);
const char* ampora_company_key(int32_t company);
/* The number of the company with this key, in lower case; 0 when there is none, and for null. */
int32_t ampora_company_of_key(const char* key);

/* The kinds of data, likewise: codes; names such as "instant usage", keys such as "instant_usage". */
uint32_t ampora_kind_count(void);
uint32_t ampora_kind_at(uint32_t position);
const char* ampora_kind_name(uint32_t kind);
const char* ampora_kind_key(uint32_t kind);
uint32_t ampora_kind_of_key(const char* key);

/* Writes the path of the default data folder, the one into which AmporaSrv writes, into a buffer: without a separator
 * at its end. buffer: of size bytes; may be null when size is 0. needed: gets the bytes that it takes, the zero
 * included, also when they are too many; may be null. AMPORA_OK, AMPORA_ERROR_SIZE, AMPORA_ERROR_FOLDER,
 * AMPORA_ERROR_MEMORY. */
int32_t ampora_default_folder(char* buffer, size_t size, size_t* needed);

/* Likewise the path of a company's file of one kind in a folder. folder: null for the default one. Nothing is looked
 * at: the file need not exist. Also AMPORA_ERROR_COMPANY, AMPORA_ERROR_KIND. */
int32_t ampora_path(const char* folder, int32_t company, uint32_t kind, char* buffer, size_t size, size_t* needed);

/* Reads a company's file of one kind. folder: null for the default one. *file: gets the content, to be freed by the
 * caller; null unless the result is AMPORA_OK. The file is open for a moment only, in which AmporaSrv cannot write it;
 * while AmporaSrv writes it, this tries again for at most AMPORA_HELD_LIMIT_MS. A file that is not whole and right is
 * an error, never content. Any result but AMPORA_TIMED_OUT, AMPORA_ERROR_SIZE and AMPORA_ERROR_WATCH. */
int32_t ampora_read(const char* folder, int32_t company, uint32_t kind, ampora_file** file);

/* Frees a file with what was got from it. Null: nothing. */
void ampora_file_free(ampora_file* file);

/* What the file says of itself. info->size must be set; a larger one, of a newer header, is allowed and what is not
 * known here is set to zero. AMPORA_OK, AMPORA_ERROR_ARGUMENT, AMPORA_ERROR_SIZE. */
int32_t ampora_file_get_info(const ampora_file* file, ampora_file_info* info);

/* The number of records, 0 for null, and the first of them, null when there is none. They are in the file's order,
 * which need not be that of time, and live as long as the file. */
uint32_t ampora_file_count(const ampora_file* file);
const ampora_record* ampora_file_records(const ampora_file* file);

/* The record that starts latest; null when there is none. Of an estimate it may lie in the future. */
const ampora_record* ampora_file_newest(const ampora_file* file);

/* Watches a folder for changed data files from now on. folder: null for the default one. It need not exist yet as long
 * as the folder around it does. *watch: gets the watch, to be freed by the caller; null unless the result is AMPORA_OK.
 * AMPORA_OK, AMPORA_ERROR_ARGUMENT, AMPORA_ERROR_FOLDER, AMPORA_ERROR_WATCH, AMPORA_ERROR_MEMORY. */
int32_t ampora_watch_open(const char* folder, ampora_watch** watch);

/* Waits until a file in the folder has been written, removed or renamed, at most timeout_ms (0: only looks; negative:
 * without limit). Changes since the last call that told of one, or since the watch was opened, end it at once; several
 * may be told as one, and other files in the folder count as well. Nothing polls. AMPORA_OK (a change),
 * AMPORA_TIMED_OUT, AMPORA_ERROR_ARGUMENT, AMPORA_ERROR_WATCH, AMPORA_ERROR_MEMORY. */
int32_t ampora_watch_wait(ampora_watch* watch, int32_t timeout_ms);

/* For a program's own event loop: on Linux a file descriptor that becomes readable, on Windows a HANDLE that becomes
 * signalled, when ampora_watch_wait is worth calling (with timeout_ms 0; it may still time out). It belongs to the
 * watch and may be another one after each call of ampora_watch_wait. -1 for null. */
intptr_t ampora_watch_event(const ampora_watch* watch);

/* Ends a watch; no thread may be waiting with it. Null: nothing. */
void ampora_watch_free(ampora_watch* watch);

#ifdef __cplusplus
}
#define AMPORA_ASSERT_(condition) static_assert(condition, #condition)
#else
#define AMPORA_ASSERT_(condition) _Static_assert(condition, #condition)
#endif

AMPORA_ASSERT_(sizeof(ampora_time) == 16 && offsetof(ampora_time, milliseconds) == 14);
AMPORA_ASSERT_(sizeof(ampora_record) == 40 && offsetof(ampora_record, start) == 8 &&
               offsetof(ampora_record, end) == 24);
AMPORA_ASSERT_(sizeof(ampora_file_info) == 32 && offsetof(ampora_file_info, written) == 16);

#endif
