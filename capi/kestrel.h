#ifndef KESTREL_H
#define KESTREL_H

/* Kestrel for hosts in C, and for bindings to other languages: scripts are compiled once and
   executed for each record.

   Objects are named by handles. Whoever gets one from a function with `new` in its name frees it by
   the one with `free`. A handle is a number: one that was freed, is of another kind or null gives
   KESTREL_REFUSED, or the result that stands for nothing. Texts have a size and need no NUL; those
   that a function gives end in one besides, and the comment says how long they live. A size of
   KESTREL_NUL means that the text given ends at its first NUL.

   One thread at a time uses an interpreter and what belongs to it; a call by a second thread is
   refused. Programs and patterns may be used by any number of threads. No exception passes through
   these functions, and none may pass through the host's callbacks. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KESTREL_C_API __attribute__((visibility("default")))
#define KESTREL_NUL ((size_t)-1)

typedef struct kestrel_interpreter kestrel_interpreter;
typedef struct kestrel_program kestrel_program;
typedef struct kestrel_variable kestrel_variable;
typedef struct kestrel_conditions kestrel_conditions;
typedef struct kestrel_patterns kestrel_patterns;
typedef struct kestrel_call kestrel_call;
typedef struct kestrel_live kestrel_live;
typedef struct kestrel_runner kestrel_runner;

/* How a call ended. After anything above KESTREL_RETURNED, kestrel_error tells why. */
typedef enum kestrel_status {
    KESTREL_FINISHED = 0, /* all is done */
    KESTREL_RETURNED = 1, /* so it is; a statement of an extension ended the script early */
    KESTREL_STOPPED = 2,  /* by a limit or an interruption */
    KESTREL_FAILED = 3,   /* a function of the host failed, or there was no memory */
    KESTREL_INVALID = 4,  /* the text does not compile */
    KESTREL_REFUSED = 5   /* nothing was done: a wrong handle, type, name, thread or moment */
} kestrel_status;

/* A message. The texts are never null; "" stands for what is not known. */
typedef struct kestrel_diagnostic {
    int severity;            /* 2 for a warning, 4 for an error */
    const char* code;        /* "K" and four digits, which never change */
    const char* text;        /* as a log takes it */
    const char* explanation; /* in plain words, or "" when the text says it */
    const char* cure;        /* what to do about it */
    const char* file;        /* an include file, "" for the script itself */
    int line;                /* 1-based; 0 when it is not known */
    int column;              /* in characters, 1-based; 0 when it is not known */
    int length;              /* in characters */
    const char* limit;       /* for KESTREL_STOPPED: its name, "" for an interruption */
    const char* function;    /* for KESTREL_FAILED: the host's function, or "" */
    const void* reserved[4];
} kestrel_diagnostic;

/* Why the last call by this thread that did not finish or return did not; the texts live until the
   next such call by this thread. */
KESTREL_C_API void kestrel_error(kestrel_diagnostic* error);
/* "7.5.0" and so on, the version of the library. */
KESTREL_C_API const char* kestrel_version(void);

/* Values */

typedef enum kestrel_type {
    KESTREL_VOID = 0,
    KESTREL_LONG,
    KESTREL_BOOL,
    KESTREL_STRING,
    KESTREL_DECIMAL,
    KESTREL_DATE,
    KESTREL_NEXID,
    KESTREL_FIELD, /* the name of a record's field, an argument of field functions */
    KESTREL_ARRAY, /* only as the type of a variable */
    KESTREL_HASH,
    KESTREL_OBJECT /* of the host, as an argument or a result */
} kestrel_type;

/* A decimal number of up to 28 digits, exact. The functions below make and read it. */
typedef struct kestrel_decimal {
    uint64_t bits[2];
} kestrel_decimal;

/* A date is seconds since 1970-01-01 00:00:00 UTC, from the year 1 to 9999; this is the invalid
 * one. */
#define KESTREL_NO_DATE ((int64_t)1 << 62)

typedef struct kestrel_text {
    const char* data;
    size_t size;
} kestrel_text;

typedef struct kestrel_nexid {
    int64_t database;
    int64_t id;
    kestrel_text type;
    int32_t revision;
} kestrel_nexid;

typedef struct kestrel_field {
    kestrel_text name;
    int64_t id; /* what kestrel_field_ids gave for the name */
} kestrel_field;

/* A value. Texts in it belong to whoever made it. */
typedef struct kestrel_value {
    kestrel_type type;
    union {
        int64_t number;
        int boolean;
        kestrel_text text;
        kestrel_decimal decimal;
        int64_t date;
        kestrel_nexid nexid;
        kestrel_field field;
        void* object;
    } as;
} kestrel_value;

static inline kestrel_value kestrel_long(int64_t number) {
    kestrel_value value;
    value.type = KESTREL_LONG;
    value.as.number = number;
    return value;
}
static inline kestrel_value kestrel_bool(int boolean) {
    kestrel_value value;
    value.type = KESTREL_BOOL;
    value.as.boolean = boolean;
    return value;
}
static inline kestrel_value kestrel_string(const char* data, size_t size) {
    kestrel_value value;
    value.type = KESTREL_STRING;
    value.as.text.data = data;
    value.as.text.size = size;
    return value;
}
static inline kestrel_value kestrel_date(int64_t seconds) {
    kestrel_value value;
    value.type = KESTREL_DATE;
    value.as.date = seconds;
    return value;
}
static inline kestrel_value kestrel_number(kestrel_decimal decimal) {
    kestrel_value value;
    value.type = KESTREL_DECIMAL;
    value.as.decimal = decimal;
    return value;
}

static inline kestrel_value kestrel_object(void* object) {
    kestrel_value value;
    value.type = KESTREL_OBJECT;
    value.as.object = object;
    return value;
}

/* The number that a text spells; the invalid decimal for any other text. */
KESTREL_C_API kestrel_decimal kestrel_decimal_from_text(const char* text, size_t size);
KESTREL_C_API kestrel_decimal kestrel_decimal_from_long(int64_t number);
/* The decimal with the fewest digits that `number` is the nearest double to. */
KESTREL_C_API kestrel_decimal kestrel_decimal_from_double(double number);
KESTREL_C_API double kestrel_decimal_to_double(kestrel_decimal number);
/* Writes all digits and a NUL, as far as `room` bytes go, and gives the length without the NUL; 48
   bytes are always enough. The invalid decimal is "INVALID". */
KESTREL_C_API size_t kestrel_decimal_to_text(kestrel_decimal number, char* text, size_t room);
/* `sign` is '+', '-', '*' or '/'; any other gives the invalid decimal. */
KESTREL_C_API kestrel_decimal kestrel_decimal_compute(kestrel_decimal a, char sign,
                                                      kestrel_decimal b);
/* Negative, 0 or positive; the invalid decimal is less than any number. */
KESTREL_C_API int kestrel_decimal_compare(kestrel_decimal a, kestrel_decimal b);
KESTREL_C_API int kestrel_decimal_is_valid(kestrel_decimal number);

/* Interpreters */

/* Receives the messages. They live during the call. */
typedef void (*kestrel_log)(void* data, const kestrel_diagnostic* message);

/* `log` may be null. Null when there is no memory. */
KESTREL_C_API kestrel_interpreter* kestrel_interpreter_new(kestrel_log log, void* data);
/* Runs "END" and frees the interpreter with its variables and conditions; their handles are dead
   then. Refused while it compiles or executes. */
KESTREL_C_API kestrel_status kestrel_interpreter_free(kestrel_interpreter* interpreter);

/* Sets the limit called `name` ("steps", "time", "memory", ...); a negative one means no limit. */
KESTREL_C_API kestrel_status kestrel_limit(kestrel_interpreter* interpreter, const char* name,
                                           int64_t limit);
/* From now on scripts may do only what the `count` texts name: "files=DIR", "shell", "all", ... */
KESTREL_C_API kestrel_status kestrel_capabilities(kestrel_interpreter* interpreter,
                                                  const char* const* names, size_t count);
/* "UTC", a zone of the system such as "Europe/Berlin", a rule, or "" for the zone of the process.
 */
KESTREL_C_API kestrel_status kestrel_time_zone(kestrel_interpreter* interpreter, const char* name);
/* Directories in which include files, and libraries of extensions, are looked for. */
KESTREL_C_API kestrel_status kestrel_include_path(kestrel_interpreter* interpreter,
                                                  const char* const* directories, size_t count);
KESTREL_C_API kestrel_status kestrel_module_path(kestrel_interpreter* interpreter,
                                                 const char* const* directories, size_t count);
/* Receives what scripts print, instead of the standard output; gives whether it took all of it. */
typedef int (*kestrel_output)(void* data, const char* text, size_t size);
KESTREL_C_API kestrel_status kestrel_output_to(kestrel_interpreter* interpreter,
                                               kestrel_output output, void* data);

/* Compiles a script, which replaces the former one, and runs its "BEGIN". */
KESTREL_C_API kestrel_status kestrel_compile(kestrel_interpreter* interpreter, const char* text,
                                             size_t size);
/* Compiles it with all warnings, and runs nothing. */
KESTREL_C_API kestrel_status kestrel_check(kestrel_interpreter* interpreter, const char* text,
                                           size_t size);
KESTREL_C_API kestrel_status kestrel_execute(kestrel_interpreter* interpreter);
/* Runs "END", closes the files that the script left open and writes out its prints. */
KESTREL_C_API kestrel_status kestrel_finish(kestrel_interpreter* interpreter);
/* Keeps one expression of type Bool, and evaluates it into `holds`, 0 or 1. */
KESTREL_C_API kestrel_status kestrel_compile_query(kestrel_interpreter* interpreter,
                                                   const char* text, size_t size);
KESTREL_C_API kestrel_status kestrel_query(kestrel_interpreter* interpreter, int* holds);
/* Stops the compile or execution of this moment; 0 when there is none. Any thread may call it, as
   long as the interpreter exists. */
KESTREL_C_API int kestrel_interrupt(kestrel_interpreter* interpreter);

/* The messages since the last compile began; the texts live until the next compile or message. */
KESTREL_C_API size_t kestrel_diagnostic_count(kestrel_interpreter* interpreter);
KESTREL_C_API kestrel_status kestrel_diagnostic_get(kestrel_interpreter* interpreter, size_t index,
                                                    kestrel_diagnostic* message);

/* Functions of the host */

/* Called by scripts: 0, or another number when it fails, which stops the script. `call` is dead
   when it has returned. */
typedef int (*kestrel_function)(kestrel_call* call, void* data);
/* Called once when nobody needs `data` any more; may be null. */
typedef void (*kestrel_release)(void* data);

/* Gives later scripts a function, such as "Long area(Long width, Long height)". The types are Long,
   Bool, String, Decimal, Date and Nexid; the result may be Void. "Long&" is a variable that the
   function may assign, "[Long]" an argument that may be left out, at the end, and "Field" the name
   of a field, the first argument of edrLong and its siblings. At most nine arguments. The name of a
   type that kestrel_add_type declared is an object of it, never null; "Account?" may be null. */
KESTREL_C_API kestrel_status kestrel_add_function(kestrel_interpreter* interpreter,
                                                  const char* signature, kestrel_function function,
                                                  void* data, kestrel_release release);
/* Declares a type of objects of the host, such as "Account": later scripts keep handles of them in
   variables, arrays and hashes, which do not mix with those of other types. Without `release`
   objects are lent: call kestrel_forget before one is destroyed. With it a function gives an object
   away with its result, and `release` gets it, once, when no variable of the script holds it any
   more, after the run, or when the script or the interpreter is gone. */
KESTREL_C_API kestrel_status kestrel_add_type(kestrel_interpreter* interpreter, const char* name,
                                              kestrel_release release);
/* All handles of the object are dead from now on, and it is released. Refused when scripts have
   none. */
KESTREL_C_API kestrel_status kestrel_forget(kestrel_interpreter* interpreter, const char* type,
                                            void* object);
/* The same for a function that may stand on the left of "=", such as "Long edrLong(Field)": `write`
   gets the arguments and, as the last one, the value. */
KESTREL_C_API kestrel_status kestrel_add_field(kestrel_interpreter* interpreter,
                                               const char* signature, kestrel_function read,
                                               kestrel_function write, void* data,
                                               kestrel_release release);
/* Says what a function does, for those who write scripts: the names of its parameters, apart by
   commas, sentences in Markdown, and an example or null. */
KESTREL_C_API kestrel_status kestrel_describe(kestrel_interpreter* interpreter, const char* name,
                                              const char* parameters, const char* manual,
                                              const char* example);
/* The functions added so far as JSON, which the language server reads; lives until the next call
   for the interpreter. */
KESTREL_C_API kestrel_status kestrel_functions_json(kestrel_interpreter* interpreter,
                                                    kestrel_text* json);
/* Turns the name of a field into its number when a script is compiled; a negative one is a compile
   error. Without it all numbers are 0. */
typedef int64_t (*kestrel_field_id)(void* data, const char* name, size_t size);
KESTREL_C_API kestrel_status kestrel_field_ids(kestrel_interpreter* interpreter,
                                               kestrel_field_id ids, void* data);

/* The number of arguments that the script gave. */
KESTREL_C_API size_t kestrel_call_count(kestrel_call* call);
/* An argument; its texts live during the call. Refused for one that was left out. */
KESTREL_C_API kestrel_status kestrel_call_get(kestrel_call* call, size_t index,
                                              kestrel_value* value);
/* Assigns an argument of the kind "Long&". */
KESTREL_C_API kestrel_status kestrel_call_set(kestrel_call* call, size_t index,
                                              const kestrel_value* value);
/* Sets the result, which is copied; without it, it is the null value. */
KESTREL_C_API kestrel_status kestrel_call_result(kestrel_call* call, const kestrel_value* value);
/* Sets the message for a function that fails then. */
KESTREL_C_API kestrel_status kestrel_call_fail(kestrel_call* call, const char* message);
/* The interpreter that runs the script. */
KESTREL_C_API kestrel_interpreter* kestrel_call_interpreter(kestrel_call* call);

/* Variables */

/* Declares a variable of the host for later scripts, of the type and with the value of `value`. */
KESTREL_C_API kestrel_status kestrel_declare(kestrel_interpreter* interpreter, const char* name,
                                             const kestrel_value* value);
/* Declares a constant. */
KESTREL_C_API kestrel_status kestrel_constant(kestrel_interpreter* interpreter, const char* name,
                                              const kestrel_value* value);
/* A variable that the compiled script declares at its top level, or one of the host. Dead when
   another script is compiled. Null, with an error, when there is none. */
KESTREL_C_API kestrel_variable* kestrel_variable_new(kestrel_interpreter* interpreter,
                                                     const char* name);
KESTREL_C_API kestrel_status kestrel_variable_free(kestrel_variable* variable);
/* Its type; KESTREL_VOID for a dead one. */
KESTREL_C_API kestrel_type kestrel_variable_type(kestrel_variable* variable);
/* Its value. Texts live until the variable changes. */
KESTREL_C_API kestrel_status kestrel_get(kestrel_variable* variable, kestrel_value* value);
/* Assigns a copy of a value of its type. A Long becomes a Decimal. */
KESTREL_C_API kestrel_status kestrel_set(kestrel_variable* variable, const kestrel_value* value);
/* The number of elements of an array or a hash; 0 for any other. */
KESTREL_C_API size_t kestrel_size(kestrel_variable* variable);
/* An element of an array; refused beyond the end. Assigning one makes the array longer. */
KESTREL_C_API kestrel_status kestrel_array_get(kestrel_variable* variable, size_t index,
                                               kestrel_value* value);
KESTREL_C_API kestrel_status kestrel_array_set(kestrel_variable* variable, size_t index,
                                               const kestrel_value* value);
/* An element of a hash; refused when there is none under the key. */
KESTREL_C_API kestrel_status kestrel_hash_get(kestrel_variable* variable, const char* key,
                                              size_t size, kestrel_value* value);
KESTREL_C_API kestrel_status kestrel_hash_set(kestrel_variable* variable, const char* key,
                                              size_t size, const kestrel_value* value);
/* Calls `visit` with each entry of a hash, in no certain order, until it gives another number than
   0. It must not change the hash. */
typedef int (*kestrel_visit)(void* data, kestrel_text key, const kestrel_value* value);
KESTREL_C_API kestrel_status kestrel_hash_visit(kestrel_variable* variable, kestrel_visit visit,
                                                void* data);
/* Removes all elements. */
KESTREL_C_API kestrel_status kestrel_clear(kestrel_variable* variable);

/* Calls a function of the script with `count` arguments of its parameters' types. `result` may be
   null; its texts live until the next call of the function. */
KESTREL_C_API kestrel_status kestrel_call_script(kestrel_interpreter* interpreter, const char* name,
                                                 const kestrel_value* arguments, size_t count,
                                                 kestrel_value* result);

/* Programs */

/* Prepares an interpreter: functions, variables, limits. The handle is dead when it has returned.
 */
typedef void (*kestrel_setup)(kestrel_interpreter* interpreter, void* data);
/* A script compiled and checked once, from which interpreters of several threads are made. `setup`,
   which may be null, is called now, and by kestrel_interpreter_from. Never null but without memory:
   a text with errors gives a program that has them. */
KESTREL_C_API kestrel_program* kestrel_program_new(const char* text, size_t size,
                                                   kestrel_setup setup, void* data);
KESTREL_C_API kestrel_status kestrel_program_free(kestrel_program* program);
/* Whether the text compiled. */
KESTREL_C_API kestrel_status kestrel_program_status(kestrel_program* program);
KESTREL_C_API size_t kestrel_program_diagnostic_count(kestrel_program* program);
KESTREL_C_API kestrel_status kestrel_program_diagnostic_get(kestrel_program* program, size_t index,
                                                            kestrel_diagnostic* message);
/* An interpreter that runs the program; null, with an error, when there is none to be had. */
KESTREL_C_API kestrel_interpreter* kestrel_interpreter_from(kestrel_program* program,
                                                            kestrel_log log, void* data);

/* Batches */

/* The values of one variable for the records of a batch, an array of as many as there are records:
   int64_t for Long and Date, unsigned char for Bool, kestrel_text, kestrel_decimal. */
typedef struct kestrel_column {
    const char* name;
    kestrel_type type;
    int is_output; /* 0: assigned before each record; else stored after it */
    void* values;  /* of inputs only read */
} kestrel_column;

/* Executes the script for `recordCount` records. `*record`, 0 when null is given, is the first
   one; afterwards it is the one that went wrong, or else `recordCount`. Outputs of all records
   before it are stored; texts in them live until the next batch of the interpreter. */
KESTREL_C_API kestrel_status kestrel_execute_batch(kestrel_interpreter* interpreter,
                                                   const kestrel_column* columns,
                                                   size_t columnCount, size_t recordCount,
                                                   size_t* record);

/* Programs that are replaced while they run */

/* What the threads of a host run now; any number of them may use one. `first` may be null. The
   variables `kept` keep their values when a runner takes another program. */
KESTREL_C_API kestrel_live* kestrel_live_new(kestrel_program* first, const char* const* kept,
                                             size_t count);
/* Runners that exist go on with what they have. */
KESTREL_C_API kestrel_status kestrel_live_free(kestrel_live* live);
/* Runners take `next` before their next record. One that did not compile changes nothing. */
KESTREL_C_API kestrel_status kestrel_live_replace(kestrel_live* live, kestrel_program* next);
/* Runs the programs of `live` on one thread. Functions and variables come from their setups. */
KESTREL_C_API kestrel_runner* kestrel_runner_new(kestrel_live* live, kestrel_log log, void* data);
KESTREL_C_API kestrel_status kestrel_runner_free(kestrel_runner* runner);
/* Takes the newest program, if it does not run it yet. */
KESTREL_C_API kestrel_status kestrel_runner_refresh(kestrel_runner* runner);
/* Does that and executes the script once. */
KESTREL_C_API kestrel_status kestrel_runner_execute(kestrel_runner* runner);
/* The interpreter that runs now, to talk to its script; null when there is none. It belongs to the
   runner, and the handle is dead once that has taken another program. */
KESTREL_C_API kestrel_interpreter* kestrel_runner_interpreter(kestrel_runner* runner);

/* Conditions */

/* Conditions, each ended by ";", that see the variables of the interpreter and its script. Null,
   with an error, when one does not compile. They are dead when another script is compiled. */
KESTREL_C_API kestrel_conditions* kestrel_conditions_new(kestrel_interpreter* interpreter,
                                                         const char* text, size_t size);
KESTREL_C_API kestrel_status kestrel_conditions_free(kestrel_conditions* conditions);
KESTREL_C_API size_t kestrel_conditions_count(kestrel_conditions* conditions);
KESTREL_C_API kestrel_status kestrel_conditions_hold(kestrel_conditions* conditions, size_t index,
                                                     int* holds);
/* The first one that holds, or -1. */
KESTREL_C_API kestrel_status kestrel_conditions_first(kestrel_conditions* conditions,
                                                      int32_t* index);

/* Patterns */

/* An automaton of `count` patterns. Null, with an error, when one is no pattern. */
KESTREL_C_API kestrel_patterns* kestrel_patterns_new(const char* const* patterns, size_t count);
KESTREL_C_API kestrel_status kestrel_patterns_free(kestrel_patterns* patterns);
/* The number of the first pattern that matches the whole text; -1 when none does. */
KESTREL_C_API int32_t kestrel_patterns_match(kestrel_patterns* patterns, const char* text,
                                             size_t size);

#ifdef __cplusplus
}
#endif

#endif
