/* DovrelScript in programs in C: the functions of dovrel.h, whose rules hold here too.
 *
 *   dovrel_interpreter *interpreter = dovrel_new(NULL);
 *   dovrel_value *answer = dovrel_run(interpreter, "return 6 * 7", 12, "main.dv");
 *   int32_t number;
 *   if (!dovrel_to_integer(answer, &number)) puts(dovrel_last_error()->message);
 *   dovrel_value_free(answer);
 *   dovrel_free(interpreter);
 *
 * Failure: a function that gives a pointer gives NULL, and one that gives a bool false, where nothing
 * else is said; `dovrel_last_error` then tells what it was. No exception leaves these functions.
 *
 * Ownership: a dovrel_value that a function gives belongs to the caller, who frees it by
 * `dovrel_value_free`, before or after its interpreter. Values that are handed to a function stay the
 * caller's. Wherever a value is wanted, NULL stands for nil.
 *
 * Texts that are handed in are copied. A `const char *` without a length ends with a zero byte.
 *
 * Threads: an interpreter, with its values, is used by one thread at a time. Only `dovrel_interrupt`
 * may be called from anywhere at any time.
 */
#ifndef DOVREL_C_H
#define DOVREL_C_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define DOVREL_C_API __attribute__((visibility("default")))
#else
#define DOVREL_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct dovrel_interpreter dovrel_interpreter;
typedef struct dovrel_value dovrel_value;

typedef enum dovrel_kind {
    DOVREL_NIL,
    DOVREL_BOOLEAN,
    DOVREL_INTEGER,  /* 32 bits */
    DOVREL_FLOAT,    /* 32 bits */
    DOVREL_TEXT,     /* bytes, of any length */
    DOVREL_ARRAY,    /* by reference */
    DOVREL_TABLE,    /* by reference */
    DOVREL_FUNCTION, /* a script's or a native, by reference */
    DOVREL_SEVERAL   /* the results of a call that gave other than one */
} dovrel_kind;

/* ------------------------------------------------------------------ errors */

typedef enum dovrel_reason {
    DOVREL_BY_SCRIPT,   /* the script, or a native that it has called, has failed */
    DOVREL_BY_USAGE,    /* the host has asked for something that cannot be */
    DOVREL_INTERRUPTED, /* by dovrel_interrupt */
    DOVREL_STATEMENTS,  /* a limit has been reached: see dovrel_options */
    DOVREL_MEMORY,      /* that limit, or the process has no more */
    DOVREL_TIME,
    DOVREL_RECURSION
} dovrel_reason;

/* The parts of a report; "", or 0, where it has none. */
typedef struct dovrel_error {
    dovrel_reason reason;
    const char *report; /* the whole, of several lines if it has a place */
    const char *message;
    const char *script; /* the name that was given to it */
    int line;           /* 1-based */
    const char *near_token;
    const char *source_line;
    const char *hint;
} dovrel_error;

/* What the last failure on this thread was; never NULL. It holds until the next call of this library
 * on this thread. */
DOVREL_C_API const dovrel_error *dovrel_last_error(void);

/* ------------------------------------------------------------------ interpreters */

/* What scripts may do and take; 0 stands for no limit. */
typedef struct dovrel_options {
    bool files;           /* scripts may open, load and run files */
    bool processes;       /* scripts may start commands */
    uint64_t statements;  /* of one run or call */
    uint64_t memory;      /* bytes, all in all */
    uint64_t recursion;   /* calls inside of each other */
    uint64_t nanoseconds; /* of one run or call */
} dovrel_options;

/* For scripts that nobody has read: dovrel::Options::sandbox(). */
DOVREL_C_API dovrel_options dovrel_sandbox_options(void);

/* A new interpreter, which the caller frees. NULL as the options stands for files and commands, and no
 * limits. */
DOVREL_C_API dovrel_interpreter *dovrel_new(const dovrel_options *options);
/* Ends an interpreter, and does nothing for NULL. Not from a native that it has called. Arrays,
 * tables and functions that are left of it come to nothing: what is asked of them fails. */
DOVREL_C_API void dovrel_free(dovrel_interpreter *interpreter);

/* Runs a script of `length` bytes and gives the value of its `return`, or else of its last
 * expression. `name` stands in reports, and may be NULL. The interpreter can be used on after a
 * failure. */
DOVREL_C_API dovrel_value *dovrel_run(dovrel_interpreter *interpreter, const char *text,
                                      size_t length, const char *name);
/* The same with the script in a file, which the host may read whatever the scripts may. */
DOVREL_C_API dovrel_value *dovrel_run_file(dovrel_interpreter *interpreter, const char *path);
/* Calls the function that a global holds, and gives nil, a value, or several. `arguments` may be
 * NULL if there are none. */
DOVREL_C_API dovrel_value *dovrel_call(dovrel_interpreter *interpreter, const char *function,
                                       const dovrel_value *const *arguments, size_t count);
/* The same with the function as a value. */
DOVREL_C_API dovrel_value *dovrel_call_value(const dovrel_value *function,
                                             const dovrel_value *const *arguments, size_t count);

/* The value of a global; nil if there is none. */
DOVREL_C_API dovrel_value *dovrel_global(const dovrel_interpreter *interpreter, const char *name);
DOVREL_C_API bool dovrel_set_global(dovrel_interpreter *interpreter, const char *name,
                                    const dovrel_value *value);

/* A function of the host. The arguments are the library's and end with the call. It gives true, and
 * its result in `*result`, which the library then frees; NULL, as which it comes, stands for nil. Or
 * it gives false: that is an error of the script, which `pcall` catches, with the message of
 * `dovrel_fail`, or else what the last failure in the call was. */
typedef bool (*dovrel_native)(dovrel_interpreter *interpreter, const dovrel_value *const *arguments,
                              size_t count, dovrel_value **result, void *user);
/* Makes `native` a function of scripts, as a value. `release`, unless it is NULL, is called with
 * `user` once: when nobody can call the native any more, at the end of the interpreter at the
 * latest, or at once if this fails. */
DOVREL_C_API dovrel_value *dovrel_function(dovrel_interpreter *interpreter, dovrel_native native,
                                           void *user, void (*release)(void *user));
/* The same as a global function. */
DOVREL_C_API bool dovrel_define(dovrel_interpreter *interpreter, const char *name,
                                dovrel_native native, void *user, void (*release)(void *user));
/* Makes `message` the last failure of this thread. False, so that a native may end with
 * `return dovrel_fail("...")`. */
DOVREL_C_API bool dovrel_fail(const char *message);

/* Where `print` goes, line feed included; standard output if `output` is NULL. The bytes end with the
 * call. */
DOVREL_C_API bool dovrel_set_output(dovrel_interpreter *interpreter,
                                    void (*output)(const char *text, size_t length, void *user),
                                    void *user);

/* Stops the script that runs, at its next statement, call or turn of a loop. Does nothing if none
 * runs. From any thread, and from a signal handler. */
DOVREL_C_API void dovrel_interrupt(dovrel_interpreter *interpreter);

/* ------------------------------------------------------------------ values */

/* New values. A float is rounded to 32 bits. */
DOVREL_C_API dovrel_value *dovrel_boolean(bool truth);
DOVREL_C_API dovrel_value *dovrel_integer(int32_t number);
DOVREL_C_API dovrel_value *dovrel_float(double number);
DOVREL_C_API dovrel_value *dovrel_text(const char *bytes, size_t length);
/* Empty containers of an interpreter. */
DOVREL_C_API dovrel_value *dovrel_array(dovrel_interpreter *interpreter);
DOVREL_C_API dovrel_value *dovrel_table(dovrel_interpreter *interpreter);
/* Several results as one, for a native: nil of none, and a single one itself. */
DOVREL_C_API dovrel_value *dovrel_several(const dovrel_value *const *values, size_t count);
/* Another handle of the same number or text, the same array, table or function. */
DOVREL_C_API dovrel_value *dovrel_copy(const dovrel_value *value);
DOVREL_C_API void dovrel_value_free(dovrel_value *value);

DOVREL_C_API dovrel_kind dovrel_kind_of(const dovrel_value *value);
/* The language's truth: nil and false do not hold, everything else does. Cannot fail. */
DOVREL_C_API bool dovrel_is_true(const dovrel_value *value);
/* These refuse values of another kind, and leave `*out` alone then; a float takes integers too. */
DOVREL_C_API bool dovrel_to_boolean(const dovrel_value *value, bool *out);
DOVREL_C_API bool dovrel_to_integer(const dovrel_value *value, int32_t *out);
DOVREL_C_API bool dovrel_to_float(const dovrel_value *value, double *out);
/* The bytes of a text, which hold as long as the value; a zero byte follows them. */
DOVREL_C_API const char *dovrel_bytes(const dovrel_value *value, size_t *length);
/* A new text: the value as `print` shows it. */
DOVREL_C_API dovrel_value *dovrel_shown(const dovrel_value *value);

/* How many elements an array has, entries a table, bytes a text, values "several". */
DOVREL_C_API bool dovrel_size(const dovrel_value *value, size_t *out);
/* The element under a key, of "several" too; nil where there is none. Positions count from 1. */
DOVREL_C_API dovrel_value *dovrel_get(const dovrel_value *container, const dovrel_value *key);
/* Writes an element. A position behind the end of an array makes it longer. */
DOVREL_C_API bool dovrel_set(const dovrel_value *container, const dovrel_value *key,
                             const dovrel_value *value);
/* The same for the two common sorts of keys. */
DOVREL_C_API dovrel_value *dovrel_get_at(const dovrel_value *container, size_t position);
DOVREL_C_API dovrel_value *dovrel_get_field(const dovrel_value *table, const char *name);
DOVREL_C_API bool dovrel_set_field(const dovrel_value *table, const char *name,
                                   const dovrel_value *value);
/* Puts a value behind the last one of an array. */
DOVREL_C_API bool dovrel_push(const dovrel_value *array, const dovrel_value *value);
/* Calls `visit` for each element, in the order in which `pairs` walks, until it gives false. Key and
 * value end with the call. */
DOVREL_C_API bool dovrel_each(const dovrel_value *container,
                              bool (*visit)(const dovrel_value *key, const dovrel_value *value,
                                            void *user),
                              void *user);

#ifdef __cplusplus
}
#endif

#endif
