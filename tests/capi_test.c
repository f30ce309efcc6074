/* The interface for C, used as C99, with values, calls and handles that are wrong in every way. */

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kestrel.h"

static int failures = 0;

static void expect(int holds, const char* what, int line) {
    if (holds) return;
    kestrel_diagnostic error;
    kestrel_error(&error);
    printf("line %d: %s; the last error: %s\n", line, what, error.text);
    ++failures;
}
#define EXPECT(condition) expect((condition), #condition, __LINE__)

/* Whether the last error is this one. */
static int told(const char* text) {
    kestrel_diagnostic error;
    kestrel_error(&error);
    return strcmp(error.text, text) == 0;
}

static int area(kestrel_call* call, void* data) {
    kestrel_value width;
    kestrel_value height;
    EXPECT(kestrel_call_get(call, 0, &width) == KESTREL_FINISHED);
    if (kestrel_call_count(call) == 1) {
        height = width;
    } else {
        EXPECT(kestrel_call_get(call, 1, &height) == KESTREL_FINISHED);
    }
    if (width.as.number < 0) return kestrel_call_fail(call, "negative"), 1;
    kestrel_value wrong = kestrel_string("x", 1);
    EXPECT(kestrel_call_result(call, &wrong) == KESTREL_REFUSED);
    kestrel_value result = kestrel_long(width.as.number * height.as.number);
    EXPECT(kestrel_call_result(call, &result) == KESTREL_FINISHED);
    EXPECT(kestrel_call_set(call, 0, &result) == KESTREL_REFUSED);
    *(kestrel_call**)data = call;
    return 0;
}

static int cut(kestrel_call* call, void* data) {
    kestrel_value text;
    (void)data;
    EXPECT(kestrel_call_get(call, 0, &text) == KESTREL_FINISHED);
    EXPECT(kestrel_call_get(call, 1, &text) == KESTREL_REFUSED);
    EXPECT(kestrel_call_get(call, 0, &text) == KESTREL_FINISHED);
    char copy[16];
    size_t size = text.as.text.size < 3 ? text.as.text.size : 3;
    memcpy(copy, text.as.text.data, size);
    kestrel_value shorter = kestrel_string(copy, size);
    EXPECT(kestrel_call_set(call, 0, &shorter) == KESTREL_FINISHED);
    return 0;
}

/* Calls the interpreter while it runs. */
static int again(kestrel_call* call, void* data) {
    kestrel_interpreter* own = kestrel_call_interpreter(call);
    int* depth = data;
    EXPECT(own != NULL);
    EXPECT(kestrel_compile(own, "", KESTREL_NUL) == KESTREL_REFUSED);
    EXPECT(kestrel_interpreter_free(own) == KESTREL_REFUSED);
    EXPECT(kestrel_output_to(own, NULL, NULL) == KESTREL_REFUSED);
    if (++*depth < 3) EXPECT(kestrel_call_script(own, "nest", NULL, 0, NULL) == KESTREL_FINISHED);
    return 0;
}

static char record[32] = "Ann";
static int readField(kestrel_call* call, void* data) {
    kestrel_value field;
    (void)data;
    EXPECT(kestrel_call_get(call, 0, &field) == KESTREL_FINISHED && field.type == KESTREL_FIELD);
    EXPECT(field.as.field.id == 7 && strcmp(field.as.field.name.data, "name") == 0);
    kestrel_value value = kestrel_string(record, KESTREL_NUL);
    return (int)kestrel_call_result(call, &value);
}
static int writeField(kestrel_call* call, void* data) {
    kestrel_value value;
    (void)data;
    EXPECT(kestrel_call_get(call, 1, &value) == KESTREL_FINISHED);
    snprintf(record, sizeof record, "%.*s", (int)value.as.text.size, value.as.text.data);
    return 0;
}
static int64_t fieldId(void* data, const char* name, size_t size) {
    (void)data;
    return size == 4 && memcmp(name, "name", 4) == 0 ? 7 : -1;
}

static void count(void* data) { ++*(int*)data; }
static void countLog(void* data, const kestrel_diagnostic* message) {
    *(int*)data += message->severity == 4;
}
static int collect(void* data, const char* text, size_t size) {
    strncat(data, text, size);
    return 1;
}
static int addUp(void* data, kestrel_text key, const kestrel_value* value) {
    *(int64_t*)data += value->as.number * (int64_t)key.size;
    return 0;
}

static void* interrupt(void* interpreter) {
    /* Ends, too, when nothing runs, as then the test has failed. */
    for (long tries = 0; tries < 50000000 && !kestrel_interrupt(interpreter); ++tries) {
    }
    return NULL;
}
static void* intrude(void* variable) {
    kestrel_value value = kestrel_long(1);
    return kestrel_set(variable, &value) == KESTREL_REFUSED ? variable : NULL;
}
static int second(kestrel_call* call, void* data) {
    pthread_t thread;
    void* refused = NULL;
    (void)call;
    pthread_create(&thread, NULL, intrude, *(kestrel_variable**)data);
    pthread_join(thread, &refused);
    EXPECT(refused != NULL);
    return 0;
}

static void values(void) {
    char text[48];
    kestrel_decimal third = kestrel_decimal_compute(kestrel_decimal_from_long(1), '/',
                                                    kestrel_decimal_from_text("3", 1));
    EXPECT(kestrel_decimal_to_text(third, text, sizeof text) == 30);
    EXPECT(strcmp(text, "0.3333333333333333333333333333") == 0);
    EXPECT(kestrel_decimal_to_text(third, text, 5) == 30 && strcmp(text, "0.33") == 0);
    EXPECT(kestrel_decimal_compare(kestrel_decimal_from_double(0.1),
                                   kestrel_decimal_from_text("0.10", KESTREL_NUL)) == 0);
    EXPECT(!kestrel_decimal_is_valid(kestrel_decimal_compute(third, '?', third)));
    EXPECT(!kestrel_decimal_is_valid(kestrel_decimal_from_text(NULL, 4)));
    /* Words that no decimal has. */
    const uint64_t words[][2] = {{0, 29},
                                 {UINT64_MAX, 0x100},
                                 {1, 0x100},
                                 {0, ~UINT64_C(0)},
                                 {UINT64_C(1000000000000000000), 0}};
    for (size_t i = 0; i < sizeof words / sizeof *words; ++i) {
        kestrel_decimal made = {{words[i][0], words[i][1]}};
        EXPECT(kestrel_decimal_is_valid(made) == (i == 1));
    }
}

static void talk(void) {
    int released = 0;
    int logged = 0;
    int depth = 0;
    char printed[64] = "";
    kestrel_call* dead = NULL;
    kestrel_variable* guarded = NULL;
    kestrel_interpreter* own = kestrel_interpreter_new(countLog, &logged);
    EXPECT(kestrel_add_function(own, "Long area(Long width, [Long height])", area, &dead, NULL) ==
           KESTREL_FINISHED);
    EXPECT(kestrel_add_function(own, "Void cut(String& text)", cut, &released, count) ==
           KESTREL_FINISHED);
    EXPECT(kestrel_add_function(own, "Void again()", again, &depth, NULL) == KESTREL_FINISHED);
    EXPECT(kestrel_add_function(own, "Void second()", second, &guarded, NULL) == KESTREL_FINISHED);
    EXPECT(kestrel_field_ids(own, fieldId, NULL) == KESTREL_FINISHED);
    EXPECT(kestrel_add_field(own, "String edrString(Field)", readField, writeField, NULL, NULL) ==
           KESTREL_FINISHED);
    const char* const refused[] = {"",
                                   "area",
                                   "Lon f()",
                                   "Long f(",
                                   "Long f(,)",
                                   "Long f(Void)",
                                   "Field f()",
                                   "Long f([Long], Long)",
                                   "Long f() x",
                                   "Long area()",
                                   "Long f([Long&])",
                                   "Long f(Long,Long,Long,Long,Long,Long,Long,Long,Long,Long)"};
    for (size_t i = 0; i < sizeof refused / sizeof *refused; ++i) {
        EXPECT(kestrel_add_function(own, refused[i], area, &released, count) == KESTREL_REFUSED);
    }
    EXPECT(released == 0);
    kestrel_value seven = kestrel_long(7);
    EXPECT(kestrel_declare(own, "amount", &seven) == KESTREL_FINISHED);
    EXPECT(kestrel_constant(own, "SEVEN", &seven) == KESTREL_FINISHED);
    EXPECT(kestrel_constant(own, "SEVEN", &seven) == KESTREL_REFUSED);
    EXPECT(kestrel_limit(own, "steps", 1000) == KESTREL_FINISHED);
    EXPECT(kestrel_limit(own, "stairs", 1000) == KESTREL_REFUSED);
    const char* none[] = {"shell", "nothing"};
    EXPECT(kestrel_capabilities(own, none, 2) == KESTREL_REFUSED);
    EXPECT(kestrel_capabilities(own, NULL, 0) == KESTREL_FINISHED);
    EXPECT(kestrel_time_zone(own, "UTC") == KESTREL_FINISHED);
    EXPECT(kestrel_output_to(own, collect, printed) == KESTREL_FINISHED);

    EXPECT(kestrel_compile(own, "system(\"true\");", KESTREL_NUL) == KESTREL_INVALID);
    kestrel_diagnostic message;
    EXPECT(kestrel_diagnostic_get(own, 0, &message) == KESTREL_FINISHED && message.line == 1);
    EXPECT(logged > 0);
    EXPECT(kestrel_compile(
               own,
               "Decimal price; Long list[]; Long by{}; String name; String lists[][];"
               "name = \"Anneliese\"; cut(name); price = longToDecimal(area(amount, 2));"
               "list[2] = area(3); by{\"k\"} = 4; edrString(name) = edrString(name) + name;"
               "again(); second(); logStdout(name);"
               "function nest { again(); }"
               "function String greet(String who, Long times) { if (times > 0) "
               "{ return who + longToStr(times); } }"
               "function Bool loop(Bool b) { while (b) {} return true; }"
               "function END { logStdout(\" end\"); again(); }",
               KESTREL_NUL) == KESTREL_FINISHED);
    guarded = kestrel_variable_new(own, "amount");
    kestrel_variable* price = kestrel_variable_new(own, "price");
    kestrel_variable* list = kestrel_variable_new(own, "list");
    kestrel_variable* by = kestrel_variable_new(own, "by");
    kestrel_variable* lists = kestrel_variable_new(own, "lists");
    EXPECT(kestrel_variable_new(own, "prize") == NULL);
    EXPECT(told("ERROR: there is no variable `prize'"));
    EXPECT(kestrel_execute(own) == KESTREL_FINISHED);
    EXPECT(depth == 3 && strcmp(printed, "Ann") == 0 && strcmp(record, "AnnAnn") == 0);
    kestrel_value value;
    EXPECT(kestrel_get(price, &value) == KESTREL_FINISHED && value.type == KESTREL_DECIMAL);
    EXPECT(kestrel_decimal_compare(value.as.decimal, kestrel_decimal_from_long(14)) == 0);
    EXPECT(kestrel_set(price, &seven) == KESTREL_FINISHED);
    value = kestrel_bool(1);
    EXPECT(kestrel_set(price, &value) == KESTREL_REFUSED);
    EXPECT(told("ERROR: `price': the value has another type"));
    EXPECT(kestrel_size(list) == 3 && kestrel_size(by) == 1 && kestrel_size(price) == 0);
    EXPECT(kestrel_array_get(list, 2, &value) == KESTREL_FINISHED && value.as.number == 9);
    EXPECT(kestrel_array_get(list, 3, &value) == KESTREL_REFUSED);
    EXPECT(kestrel_array_set(list, 4, &seven) == KESTREL_FINISHED && kestrel_size(list) == 5);
    EXPECT(kestrel_array_set(by, 4, &seven) == KESTREL_REFUSED);
    EXPECT(kestrel_array_get(lists, 0, &value) == KESTREL_REFUSED);
    EXPECT(kestrel_hash_set(by, "longer", KESTREL_NUL, &seven) == KESTREL_FINISHED);
    EXPECT(kestrel_hash_get(by, "k", 1, &value) == KESTREL_FINISHED && value.as.number == 4);
    EXPECT(kestrel_hash_get(by, "none", 4, &value) == KESTREL_REFUSED);
    int64_t sum = 0;
    EXPECT(kestrel_hash_visit(by, addUp, &sum) == KESTREL_FINISHED && sum == 4 + 7 * 6);
    EXPECT(kestrel_clear(by) == KESTREL_FINISHED && kestrel_size(by) == 0);
    EXPECT(kestrel_variable_type(by) == KESTREL_HASH);

    kestrel_value arguments[] = {kestrel_string("Bob", KESTREL_NUL), kestrel_long(3)};
    EXPECT(kestrel_call_script(own, "greet", arguments, 2, &value) == KESTREL_FINISHED);
    EXPECT(value.type == KESTREL_STRING && strcmp(value.as.text.data, "Bob3") == 0);
    arguments[1].as.number = 0;
    EXPECT(kestrel_call_script(own, "greet", arguments, 2, &value) == KESTREL_FINISHED);
    EXPECT(value.type == KESTREL_STRING && value.as.text.size == 0);
    EXPECT(kestrel_call_script(own, "greet", arguments, 1, &value) == KESTREL_REFUSED);
    EXPECT(kestrel_call_script(own, "greet", arguments + 1, 2, &value) == KESTREL_REFUSED);
    EXPECT(kestrel_call_script(own, "greets", arguments, 2, &value) == KESTREL_REFUSED);
    arguments[0] = kestrel_bool(1);
    EXPECT(kestrel_call_script(own, "loop", arguments, 1, &value) == KESTREL_STOPPED);
    kestrel_error(&message);
    EXPECT(strcmp(message.limit, "steps") == 0);
    EXPECT(kestrel_limit(own, "steps", -1) == KESTREL_FINISHED);
    pthread_t thread;
    pthread_create(&thread, NULL, interrupt, own);
    EXPECT(kestrel_call_script(own, "loop", arguments, 1, &value) == KESTREL_STOPPED);
    pthread_join(thread, NULL);
    value = kestrel_long(-1);
    EXPECT(kestrel_set(guarded, &value) == KESTREL_FINISHED);
    EXPECT(kestrel_execute(own) == KESTREL_FAILED);
    kestrel_error(&message);
    EXPECT(strcmp(message.function, "area") == 0 && message.line == 1);

    int holds = 0;
    int32_t first = 0;
    EXPECT(kestrel_compile_query(own, "amount == -1", KESTREL_NUL) == KESTREL_FINISHED);
    EXPECT(kestrel_query(own, &holds) == KESTREL_FINISHED && holds);
    kestrel_conditions* conditions = kestrel_conditions_new(own, "amount > 0; amount < 0;", 23);
    EXPECT(kestrel_conditions_count(conditions) == 2);
    EXPECT(kestrel_conditions_first(conditions, &first) == KESTREL_FINISHED && first == 1);
    EXPECT(kestrel_conditions_hold(conditions, 0, &holds) == KESTREL_FINISHED && !holds);
    EXPECT(kestrel_conditions_hold(conditions, 2, &holds) == KESTREL_REFUSED);
    EXPECT(kestrel_conditions_new(own, "1;", KESTREL_NUL) == NULL);

    /* Whatever is dead is refused: a call that has returned, and all that an interpreter had. */
    EXPECT(kestrel_call_result(dead, &seven) == KESTREL_REFUSED && kestrel_call_count(dead) == 0);
    EXPECT(kestrel_finish(own) == KESTREL_FINISHED && strcmp(printed, "Ann end") == 0);
    EXPECT(kestrel_interpreter_free(own) == KESTREL_FINISHED && released == 1);
    EXPECT(kestrel_interpreter_free(own) == KESTREL_REFUSED);
    EXPECT(told("ERROR: the handle names no interpreter"));
    EXPECT(kestrel_execute(own) == KESTREL_REFUSED && kestrel_diagnostic_count(own) == 0);
    EXPECT(!kestrel_interrupt(own));
    EXPECT(kestrel_get(price, &value) == KESTREL_REFUSED && kestrel_size(list) == 0);
    EXPECT(kestrel_variable_type(price) == KESTREL_VOID);
    EXPECT(kestrel_conditions_first(conditions, &first) == KESTREL_REFUSED);
    EXPECT(kestrel_call_set(dead, 0, &seven) == KESTREL_REFUSED);
    EXPECT(kestrel_conditions_free(conditions) == KESTREL_FINISHED);
    kestrel_variable* const all[] = {guarded, price, list, by, lists};
    for (size_t i = 0; i < 5; ++i) EXPECT(kestrel_variable_free(all[i]) == KESTREL_FINISHED);
    EXPECT(kestrel_variable_free(price) == KESTREL_REFUSED);
    /* Of another kind, or never a handle. */
    kestrel_interpreter* other = kestrel_interpreter_new(NULL, NULL);
    EXPECT(kestrel_get((kestrel_variable*)other, &value) == KESTREL_REFUSED);
    EXPECT(kestrel_execute((kestrel_interpreter*)&value) == KESTREL_REFUSED);
    EXPECT(kestrel_interpreter_free(other) == KESTREL_FINISHED);
}

static void nulls(void) {
    kestrel_interpreter* own = kestrel_interpreter_new(NULL, NULL);
    EXPECT(kestrel_compile(own, NULL, 5) == KESTREL_REFUSED);
    EXPECT(kestrel_add_function(own, NULL, area, NULL, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_add_function(own, "Long f()", NULL, NULL, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_declare(own, NULL, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_variable_new(own, NULL) == NULL && kestrel_variable_new(NULL, "a") == NULL);
    EXPECT(kestrel_call_script(own, NULL, NULL, 0, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_call_script(own, "f", NULL, 2, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_include_path(own, NULL, 1) == KESTREL_REFUSED);
    EXPECT(kestrel_limit(own, NULL, 1) == KESTREL_REFUSED);
    EXPECT(kestrel_query(own, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_program_new(NULL, 0, NULL, NULL) == NULL);
    EXPECT(kestrel_conditions_new(own, NULL, 0) == NULL);
    EXPECT(kestrel_patterns_new(NULL, 1) == NULL);
    EXPECT(kestrel_interpreter_free(NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_call_count(NULL) == 0 && kestrel_call_interpreter(NULL) == NULL);
    kestrel_error(NULL);
    EXPECT(kestrel_interpreter_free(own) == KESTREL_FINISHED);
}

/* Every function with a handle that is null, dead, of another kind or none, and with null for all
   else: refused, or nothing. A refusal costs as much as a crash here, so all are tried. */
static void useWrongly(const void* handle) {
    kestrel_interpreter* const i = (kestrel_interpreter*)handle;
    kestrel_variable* const v = (kestrel_variable*)handle;
    kestrel_call* const c = (kestrel_call*)handle;
    kestrel_program* const p = (kestrel_program*)handle;
    kestrel_conditions* const q = (kestrel_conditions*)handle;
    kestrel_live* const l = (kestrel_live*)handle;
    kestrel_runner* const r = (kestrel_runner*)handle;
    const kestrel_status refused[] = {
        kestrel_interpreter_free(i), kestrel_limit(i, "steps", 1), kestrel_capabilities(i, NULL, 0),
        kestrel_time_zone(i, NULL), kestrel_include_path(i, NULL, 0), kestrel_module_path(i, NULL, 0),
        kestrel_output_to(i, NULL, NULL), kestrel_compile(i, "", 0), kestrel_check(i, "", 0),
        kestrel_execute(i), kestrel_finish(i), kestrel_compile_query(i, "true", 4), kestrel_query(i, NULL),
        kestrel_diagnostic_get(i, 0, NULL), kestrel_add_function(i, "Long f()", area, NULL, NULL),
        kestrel_add_type(i, "T", NULL), kestrel_forget(i, "T", NULL),
        kestrel_add_field(i, "Long f()", area, area, NULL, NULL), kestrel_describe(i, "f", "", "", NULL),
        kestrel_functions_json(i, NULL), kestrel_field_ids(i, fieldId, NULL), kestrel_declare(i, "a", NULL),
        kestrel_constant(i, "a", NULL), kestrel_call_script(i, "f", NULL, 0, NULL),
        kestrel_execute_batch(i, NULL, 0, 0, NULL),
        kestrel_call_get(c, 0, NULL), kestrel_call_set(c, 0, NULL), kestrel_call_result(c, NULL),
        kestrel_call_fail(c, NULL), kestrel_variable_free(v), kestrel_get(v, NULL), kestrel_set(v, NULL),
        kestrel_array_get(v, 0, NULL), kestrel_array_set(v, 0, NULL), kestrel_hash_get(v, NULL, 0, NULL),
        kestrel_hash_set(v, NULL, 0, NULL), kestrel_hash_visit(v, NULL, NULL), kestrel_clear(v),
        kestrel_program_free(p), kestrel_program_status(p), kestrel_program_diagnostic_get(p, 0, NULL),
        kestrel_live_free(l), kestrel_live_replace(l, NULL), kestrel_runner_free(r),
        kestrel_runner_refresh(r), kestrel_runner_execute(r), kestrel_conditions_free(q),
        kestrel_conditions_hold(q, 0, NULL), kestrel_conditions_first(q, NULL),
        kestrel_patterns_free((kestrel_patterns*)handle)};
    for (size_t n = 0; n < sizeof(refused) / sizeof(refused[0]); ++n) EXPECT(refused[n] == KESTREL_REFUSED);
    EXPECT(!kestrel_interrupt(i) && kestrel_diagnostic_count(i) == 0 && kestrel_variable_new(i, "a") == NULL);
    EXPECT(kestrel_call_count(c) == 0 && kestrel_call_interpreter(c) == NULL && kestrel_size(v) == 0);
    EXPECT(kestrel_variable_type(v) == KESTREL_VOID && kestrel_program_diagnostic_count(p) == 0);
    EXPECT(kestrel_interpreter_from(p, NULL, NULL) == NULL && kestrel_runner_new(l, NULL, NULL) == NULL);
    EXPECT(kestrel_runner_interpreter(r) == NULL && kestrel_conditions_new(i, "true;", 5) == NULL);
    EXPECT(kestrel_conditions_count(q) == 0);
    EXPECT(kestrel_patterns_match((kestrel_patterns*)handle, NULL, 0) == -1);
}
static void* useFromThread(void* handle) {
    useWrongly(handle);
    return NULL;
}
static void wrongHandles(void) {
    kestrel_interpreter* dead = kestrel_interpreter_new(NULL, NULL);
    EXPECT(kestrel_interpreter_free(dead) == KESTREL_FINISHED);
    long none = 0;
    const void* const handles[] = {NULL, dead, &none, (const void*)(uintptr_t)-1};
    for (size_t n = 0; n < sizeof(handles) / sizeof(handles[0]); ++n) useWrongly(handles[n]);
    pthread_t thread;
    pthread_create(&thread, NULL, useFromThread, dead);
    useWrongly(dead);
    pthread_join(thread, NULL);
}

/* Objects that scripts hold: given away or lent. */
static int accounts;
static void freeAccount(void* account) {
    --accounts;
    free(account);
}
static int openAccount(kestrel_call* call, void* data) {
    (void)data;
    kestrel_value value;
    EXPECT(kestrel_call_get(call, 0, &value) == KESTREL_FINISHED);
    int64_t* const balance = malloc(sizeof *balance);
    *balance = value.as.number;
    ++accounts;
    value = kestrel_object(balance);
    EXPECT(kestrel_call_result(call, &value) == KESTREL_FINISHED);
    return kestrel_call_result(call, &value) != KESTREL_FINISHED;
}
static int balanceOf(kestrel_call* call, void* data) {
    (void)data;
    kestrel_value value;
    EXPECT(kestrel_call_get(call, 0, &value) == KESTREL_FINISHED && value.type == KESTREL_OBJECT);
    value = kestrel_long(value.as.object != NULL ? *(int64_t*)value.as.object : -1);
    return kestrel_call_result(call, &value) != KESTREL_FINISHED;
}
static int closeAccount(kestrel_call* call, void* data) {
    (void)data;
    kestrel_value value;
    kestrel_interpreter* own = kestrel_call_interpreter(call);
    EXPECT(kestrel_call_get(call, 0, &value) == KESTREL_FINISHED);
    EXPECT(kestrel_forget(own, "Owner", value.as.object) == KESTREL_REFUSED);
    EXPECT(kestrel_forget(own, "Account", value.as.object) == KESTREL_FINISHED);
    EXPECT(kestrel_forget(own, "Account", value.as.object) == KESTREL_REFUSED);
    *(int64_t*)value.as.object = 0; /* which the call still holds */
    return 0;
}
static int owner(kestrel_call* call, void* data) {
    const kestrel_value value = kestrel_object(data);
    return kestrel_call_result(call, &value) != KESTREL_FINISHED;
}
static void objects(void) {
    const struct {
        const char* text;
        kestrel_status compiled;
        kestrel_status executed;
    } rows[] = {
        {"Account a[]; a[1] = open(5); n = balance(a[1]); a[0] = open(2);", KESTREL_FINISHED, KESTREL_FINISHED},
        {"open(1); open(2); n = balance(open(5));", KESTREL_FINISHED, KESTREL_FINISHED},
        {"Account a = open(5); close(a); n = balance(a) + 6;", KESTREL_FINISHED, KESTREL_FINISHED},
        {"Account a = open(5); close(a); close(a);", KESTREL_FINISHED, KESTREL_FAILED},
        {"Account a; close(a);", KESTREL_FINISHED, KESTREL_FAILED},
        {"close(owner());", KESTREL_INVALID, KESTREL_REFUSED},
        {"Owner o = owner(); if (isSame(o, owner()) == 0) n = 5;", KESTREL_INVALID, KESTREL_REFUSED},
    };
    for (size_t i = 0; i < sizeof(rows) / sizeof(rows[0]); ++i) {
        kestrel_interpreter* own = kestrel_interpreter_new(NULL, NULL);
        kestrel_value n = kestrel_long(5);
        int lent = 1;
        EXPECT(kestrel_add_type(own, "Account", freeAccount) == KESTREL_FINISHED);
        EXPECT(kestrel_add_type(own, "Owner", NULL) == KESTREL_FINISHED);
        EXPECT(kestrel_add_type(own, "Owner", NULL) == KESTREL_REFUSED);
        EXPECT(kestrel_add_type(own, "Long", NULL) == KESTREL_REFUSED);
        EXPECT(kestrel_add_function(own, "Account open(Long balance)", openAccount, NULL, NULL) == KESTREL_FINISHED);
        EXPECT(kestrel_add_function(own, "Long balance(Account? of)", balanceOf, NULL, NULL) == KESTREL_FINISHED);
        EXPECT(kestrel_add_function(own, "Void close(Account a)", closeAccount, NULL, NULL) == KESTREL_FINISHED);
        EXPECT(kestrel_add_function(own, "Owner owner()", owner, &lent, NULL) == KESTREL_FINISHED);
        EXPECT(kestrel_add_function(own, "Void f(Account&)", owner, NULL, NULL) == KESTREL_REFUSED);
        EXPECT(kestrel_add_function(own, "Void f(Stranger s)", owner, NULL, NULL) == KESTREL_REFUSED);
        EXPECT(kestrel_declare(own, "n", &n) == KESTREL_FINISHED);
        EXPECT(kestrel_compile(own, rows[i].text, KESTREL_NUL) == rows[i].compiled);
        for (int run = 0; run < 3; ++run) EXPECT(kestrel_execute(own) == rows[i].executed);
        EXPECT(accounts <= 4);
        kestrel_variable* result = kestrel_variable_new(own, "n");
        if (rows[i].compiled == KESTREL_FINISHED) {
            EXPECT(kestrel_get(result, &n) == KESTREL_FINISHED && n.as.number == 5);
            EXPECT(kestrel_variable_free(result) == KESTREL_FINISHED);
        }
        EXPECT(kestrel_interpreter_free(own) == KESTREL_FINISHED && accounts == 0);
    }
}

static void prepare(kestrel_interpreter* interpreter, void* data) {
    kestrel_value one = kestrel_long(1);
    ++*(int*)data;
    EXPECT(kestrel_declare(interpreter, "step", &one) == KESTREL_FINISHED);
    EXPECT(kestrel_interpreter_free(interpreter) == KESTREL_REFUSED);
}

static void programs(void) {
    int prepared = 0;
    kestrel_program* program =
        kestrel_program_new("Long n; function BEGIN { n = 5; } n = n + step; Long unused;",
                            KESTREL_NUL, prepare, &prepared);
    EXPECT(kestrel_program_status(program) == KESTREL_FINISHED);
    EXPECT(kestrel_program_diagnostic_count(program) == 1);
    kestrel_interpreter* a = kestrel_interpreter_from(program, NULL, NULL);
    kestrel_interpreter* b = kestrel_interpreter_from(program, NULL, NULL);
    EXPECT(kestrel_program_free(program) == KESTREL_FINISHED);
    EXPECT(kestrel_interpreter_from(program, NULL, NULL) == NULL);
    EXPECT(prepared == 3 && kestrel_execute(a) == KESTREL_FINISHED);
    kestrel_variable* n = kestrel_variable_new(a, "n");
    kestrel_value value;
    EXPECT(kestrel_get(n, &value) == KESTREL_FINISHED && value.as.number == 6);
    EXPECT(kestrel_variable_free(n) == KESTREL_FINISHED);
    EXPECT(kestrel_interpreter_free(a) == KESTREL_FINISHED);
    EXPECT(kestrel_execute(b) == KESTREL_FINISHED);
    EXPECT(kestrel_interpreter_free(b) == KESTREL_FINISHED);

    kestrel_program* broken = kestrel_program_new("Long", 4, NULL, NULL);
    kestrel_diagnostic message;
    EXPECT(kestrel_program_status(broken) == KESTREL_INVALID);
    EXPECT(kestrel_program_diagnostic_get(broken, 0, &message) == KESTREL_FINISHED);
    EXPECT(kestrel_interpreter_from(broken, NULL, NULL) == NULL);
    EXPECT(kestrel_program_free(broken) == KESTREL_FINISHED);

    const char* const patterns[] = {"ab*", "c.", "("};
    EXPECT(kestrel_patterns_new(patterns, 3) == NULL);
    kestrel_patterns* automaton = kestrel_patterns_new(patterns, 2);
    EXPECT(kestrel_patterns_match(automaton, "cd", 2) == 1);
    EXPECT(kestrel_patterns_match(automaton, "x", KESTREL_NUL) == -1);
    EXPECT(kestrel_patterns_free(automaton) == KESTREL_FINISHED);
    EXPECT(kestrel_patterns_match(automaton, "cd", 2) == -1);
}

static void batches(void) {
    kestrel_interpreter* rule = kestrel_interpreter_new(NULL, NULL);
    const char* const text =
        "Long n; Bool b; String s; Decimal d; Date t; Long twice; String both; Bool off; Decimal e; Date u;"
        "twice = n * 2; both = s + s; if (b) { off = false; } else { off = true; }"
        "e = d * 2; u = t; if (n == 3) { while (true) {} }";
    int64_t n[] = {1, 2, 3, 4};
    unsigned char b[] = {1, 0, 7, 0};
    const kestrel_text s[] = {{"a", 1}, {NULL, 0}, {"xyz", 2}, {"d", 1}};
    kestrel_decimal d[4];
    int64_t t[] = {0, KESTREL_NO_DATE, 5, 6};
    int64_t twice[4] = {0};
    unsigned char off[4] = {9, 9, 9, 9};
    kestrel_text both[4];
    kestrel_decimal e[4];
    int64_t u[4] = {0};
    for (int i = 0; i < 4; ++i) d[i] = kestrel_decimal_from_long(i);
    const kestrel_column columns[] = {
        {"n", KESTREL_LONG, 0, n},          {"b", KESTREL_BOOL, 0, b},
        {"s", KESTREL_STRING, 0, (void*)s}, {"d", KESTREL_DECIMAL, 0, d},
        {"t", KESTREL_DATE, 0, t},          {"twice", KESTREL_LONG, 1, twice},
        {"both", KESTREL_STRING, 1, both},  {"off", KESTREL_BOOL, 1, off},
        {"e", KESTREL_DECIMAL, 1, e},       {"u", KESTREL_DATE, 1, u}};
    EXPECT(kestrel_limit(rule, "steps", 1000) == KESTREL_FINISHED);
    EXPECT(kestrel_execute_batch(rule, columns, 10, 4, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_compile(rule, text, KESTREL_NUL) == KESTREL_FINISHED);
    size_t at = 0;
    EXPECT(kestrel_execute_batch(rule, columns, 10, 4, &at) == KESTREL_STOPPED);
    EXPECT(at == 2 && twice[1] == 4 && both[0].size == 2 && memcmp(both[0].data, "aa", 2) == 0);
    EXPECT(both[1].size == 0 && off[0] == 0 && off[1] == 1 && off[2] == 9 && u[1] == KESTREL_NO_DATE);
    EXPECT(kestrel_decimal_compare(e[1], kestrel_decimal_from_long(2)) == 0 && twice[2] == 0);
    at = 3;
    EXPECT(kestrel_execute_batch(rule, columns, 10, 4, &at) == KESTREL_FINISHED);
    EXPECT(at == 4 && twice[3] == 8 && u[3] == 6);
    EXPECT(kestrel_execute_batch(rule, NULL, 10, 4, &at) == KESTREL_REFUSED);
    const kestrel_column wrong[] = {{NULL, KESTREL_LONG, 0, n}, {"n", KESTREL_LONG, 0, NULL}, {"n", KESTREL_NEXID, 0, n},
                                    {"n", KESTREL_BOOL, 0, b},  {"m", KESTREL_LONG, 1, n}};
    at = 0;
    for (size_t i = 0; i < sizeof(wrong) / sizeof(wrong[0]); ++i) {
        EXPECT(kestrel_execute_batch(rule, &wrong[i], 1, 4, &at) == KESTREL_REFUSED);
    }
    EXPECT(kestrel_interpreter_free(rule) == KESTREL_FINISHED);
    EXPECT(kestrel_execute_batch(rule, columns, 10, 4, &at) == KESTREL_REFUSED);
}

static kestrel_runner* running;
static int meddle(kestrel_call* call, void* data) {
    (void)call;
    (void)data;
    EXPECT(kestrel_runner_free(running) == KESTREL_REFUSED);
    return 0;
}
static void giveMeddle(kestrel_interpreter* interpreter, void* data) {
    EXPECT(kestrel_add_function(interpreter, "Void meddle()", meddle, data, NULL) == KESTREL_FINISHED);
}
static kestrel_status replaceBy(kestrel_live* live, const char* text) {
    kestrel_program* next = kestrel_program_new(text, KESTREL_NUL, giveMeddle, NULL);
    const kestrel_status status = kestrel_live_replace(live, next);
    EXPECT(kestrel_program_free(next) == KESTREL_FINISHED);
    return status;
}
static void live(void) {
    const char* const kept[] = {"total"};
    kestrel_live* programs = kestrel_live_new(NULL, kept, 1);
    running = kestrel_runner_new(programs, NULL, NULL);
    EXPECT(kestrel_runner_execute(running) == KESTREL_REFUSED);
    EXPECT(kestrel_runner_interpreter(running) == NULL);
    EXPECT(replaceBy(programs, "Long total; total = total + 1; meddle();") == KESTREL_FINISHED);
    EXPECT(kestrel_runner_execute(running) == KESTREL_FINISHED);
    kestrel_interpreter* first = kestrel_runner_interpreter(running);
    kestrel_variable* total = kestrel_variable_new(first, "total");
    kestrel_value value;
    EXPECT(kestrel_get(total, &value) == KESTREL_FINISHED && value.as.number == 1);
    EXPECT(kestrel_interpreter_free(first) == KESTREL_REFUSED);
    EXPECT(replaceBy(programs, "Long total = ;") == KESTREL_INVALID);
    EXPECT(replaceBy(programs, "Long total; total = total + 10;") == KESTREL_FINISHED);
    EXPECT(kestrel_live_replace(programs, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_live_free(programs) == KESTREL_FINISHED);
    EXPECT(kestrel_live_replace(programs, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_runner_execute(running) == KESTREL_FINISHED);
    EXPECT(kestrel_get(total, &value) == KESTREL_REFUSED && kestrel_execute(first) == KESTREL_REFUSED);
    EXPECT(kestrel_variable_free(total) == KESTREL_FINISHED);
    total = kestrel_variable_new(kestrel_runner_interpreter(running), "total");
    EXPECT(kestrel_get(total, &value) == KESTREL_FINISHED && value.as.number == 11);
    EXPECT(kestrel_runner_free(running) == KESTREL_FINISHED);
    EXPECT(kestrel_get(total, &value) == KESTREL_REFUSED);
    EXPECT(kestrel_variable_free(total) == KESTREL_FINISHED);
    EXPECT(kestrel_runner_execute(running) == KESTREL_REFUSED);
}

static void descriptions(void) {
    kestrel_interpreter* rule = kestrel_interpreter_new(NULL, NULL);
    kestrel_text json;
    giveMeddle(rule, NULL);
    EXPECT(kestrel_describe(rule, "meddle", "", "Meddles.", NULL) == KESTREL_FINISHED);
    EXPECT(kestrel_describe(rule, "meddle", "a", "Meddles.", NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_describe(rule, NULL, "a", "Meddles.", NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_functions_json(rule, &json) == KESTREL_FINISHED && strstr(json.data, "\"Meddles.\"") != NULL);
    EXPECT(kestrel_functions_json(rule, NULL) == KESTREL_REFUSED);
    EXPECT(kestrel_interpreter_free(rule) == KESTREL_FINISHED);
}

int main(void) {
    batches();
    live();
    descriptions();
    values();
    talk();
    nulls();
    wrongHandles();
    objects();
    programs();
    printf("%d failures\n", failures);
    return failures != 0;
}
