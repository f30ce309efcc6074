// What the server calls. Its errors leave these functions by longjmp, so that no object here has a
// destructor; what needs one lies in Engine.cpp.

extern "C" {
#include <postgres.h>

#include <catalog/pg_type.h>
#include <executor/spi.h>
#include <fmgr.h>
#include <funcapi.h>
#include <libpq/pqsignal.h>
#include <mb/pg_wchar.h>
#include <miscadmin.h>
#include <signal.h>
#include <utils/builtins.h>
#include <utils/guc.h>
#include <utils/jsonb.h>
#include <utils/memutils.h>
#include <utils/numeric.h>
#include <utils/snapmgr.h>
#include <utils/timestamp.h>
}

#include <climits>

#include "postgresql/Engine.h"
#include "postgresql/RecordFields.h"

namespace PgApi {

namespace {

int timeLimitS = 10'000;
int memoryLimitS = 64 << 10;
int stepLimitS = -1;
int programsS = 64;
char* capabilitiesS = nullptr;
char* timeZoneS = nullptr;

// Grows with each change of a setting; programs are made anew then.
unsigned settingsS = 1;
unsigned configuredS = 0;

void noteNumber(int /*value*/, void* /*extra*/) { ++settingsS; }
void noteText(const char* /*value*/, void* /*extra*/) { ++settingsS; }

// Signals that may end a query: the server's handler notes what is asked for, and then the script
// that runs at that moment is told.
struct Watched {
    int signal;
    pqsigfunc handler;
};
Watched watchedS[] = {{SIGINT, nullptr}, {SIGTERM, nullptr}, {SIGUSR1, nullptr}};

void passOn(int signal) {
    const int kept = errno;
    for (const Watched& watched : watchedS) {
        if (watched.signal != signal) continue;
        if (watched.handler == SIG_DFL || watched.handler == SIG_IGN) continue;
        watched.handler(signal);
    }
    if (QueryCancelPending || ProcDiePending) interrupt();
    errno = kept;
}

void watchSignals() {
    static int watchedBy = 0;
    if (watchedBy == MyProcPid) return;
    findBy(findField);
    for (Watched& watched : watchedS) watched.handler = pqsignal(watched.signal, passOn);
    watchedBy = MyProcPid;
}

void getReady() {
    watchSignals();
    forgetInterrupt();  // before the look at what has been asked for, so that nothing gets lost
    CHECK_FOR_INTERRUPTS();
    if (configuredS == settingsS) return;
    if (GetDatabaseEncoding() != PG_UTF8) {
        ereport(ERROR, (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                        errmsg("scripts work in databases of the encoding UTF8 only")));
    }
    configure({timeLimitS, std::int64_t{memoryLimitS} << 10, stepLimitS,
               capabilitiesS != nullptr ? capabilitiesS : "", timeZoneS != nullptr ? timeZoneS : "",
               static_cast<std::size_t>(programsS)});
    configuredS = settingsS;
}

int stateOf(Failure::Kind kind) {
    switch (kind) {
        case Failure::Kind::Text:
            return ERRCODE_SYNTAX_ERROR;
        case Failure::Kind::Limit:
            return ERRCODE_PROGRAM_LIMIT_EXCEEDED;
        case Failure::Kind::Interrupted:
            return ERRCODE_QUERY_CANCELED;
        case Failure::Kind::Record:
            return ERRCODE_DATA_EXCEPTION;
        case Failure::Kind::Unproven:
            return ERRCODE_FEATURE_NOT_SUPPORTED;
        default:
            return ERRCODE_INVALID_PARAMETER_VALUE;
    }
}

[[noreturn]] void raise(const text* source) {
    const Failure& told = failure();
    if (told.kind == Failure::Kind::Interrupted) CHECK_FOR_INTERRUPTS();
    const char* const join = told.place[0] != '\0' && told.detail[0] != '\0' ? ": " : "";
    const bool hasDetail = told.place[0] != '\0' || told.detail[0] != '\0';
    ereport(ERROR, (errcode(stateOf(told.kind)), errmsg("%s", told.message),
                    hasDetail ? errdetail("%s%s%s", told.place, join, told.detail) : 0,
                    told.cure[0] != '\0' ? errhint("%s", told.cure) : 0,
                    told.position > 0 ? internalerrposition(told.position) : 0,
                    told.position > 0 ? internalerrquery(text_to_cstring(source)) : 0));
    pg_unreachable();
}

// Runs the program of the first argument on the record of the second one.
Program& runOn(FunctionCallInfo fcinfo, Wanted wanted, bool isProven) {
    getReady();
    text* const source = PG_GETARG_TEXT_PP(0);
    Program* const made = program(VARDATA_ANY(source), VARSIZE_ANY_EXHDR(source), wanted, isProven);
    if (made == nullptr) raise(source);
    Jsonb* const record = PG_GETARG_JSONB_P(1);
    if (!JB_ROOT_IS_OBJECT(record)) {
        ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                        errmsg("the record is no object of JSON")));
    }
    StringInfoData json{};
    if (wanted == Wanted::Json || wanted == Wanted::Rows) {
        initStringInfo(&json);
        JsonbToCString(&json, &record->root, VARSIZE(record));
        enlargeStringInfo(&json, static_cast<int>(padding()));
    }
    openRecord(record);
    if (!run(*made, json.data, static_cast<std::size_t>(json.len))) {
        raiseOfFields();
        raise(source);
    }
    const Value prints = printed(*made);
    if (prints.size > 0) {
        const int size = static_cast<int>(prints.size);
        ereport(
            NOTICE,
            (errmsg("%s", pg_any_to_server(pnstrdup(prints.data, prints.size), size, PG_UTF8))));
    }
    return *made;
}

Datum numericOf(const Value& value, int32 modifier) {
    constexpr std::size_t mostDigits = 18;
    if (modifier >= 0 || value.size > mostDigits) {
        return DirectFunctionCall3(numeric_in, CStringGetDatum(value.data),
                                   ObjectIdGetDatum(InvalidOid), Int32GetDatum(modifier));
    }
    std::int64_t digits = 0;
    int places = -1;  // after the point, once it was seen
    for (std::size_t i = value.data[0] == '-' ? 1 : 0; i < value.size; ++i) {
        if (value.data[i] != '.') digits = digits * 10 + (value.data[i] - '0');
        if (value.data[i] == '.' || places >= 0) ++places;
    }
    if (value.data[0] == '-') digits = -digits;
    return NumericGetDatum(places > 0 ? int64_div_fast_to_numeric(digits, places)
                                      : int64_to_numeric(digits));
}

Datum textOf(const Value& value) {
    const int size = static_cast<int>(value.size);
    pg_verify_mbstr(PG_UTF8, value.data, size, false);
    return PointerGetDatum(cstring_to_text_with_len(value.data, size));
}

Datum jsonOf(const Value& value) {
    return DirectFunctionCall1(jsonb_in, CStringGetDatum(value.data));
}

Datum timestampOf(const Value& value) {
    constexpr std::int64_t epoch =
        std::int64_t{POSTGRES_EPOCH_JDATE - UNIX_EPOCH_JDATE} * SECS_PER_DAY;
    return TimestampTzGetDatum((value.number - epoch) * USECS_PER_SEC);
}

Datum evaluate(FunctionCallInfo fcinfo, Wanted wanted, bool isProven) {
    Value value{true, 0, "", 0};
    if (!result(runOn(fcinfo, wanted, isProven), value)) raise(PG_GETARG_TEXT_PP(0));
    if (value.isNull) PG_RETURN_NULL();
    switch (wanted) {
        case Wanted::Numeric:
            return numericOf(value, -1);
        case Wanted::Text:
            return textOf(value);
        case Wanted::Bool:
            return BoolGetDatum(value.number != 0);
        case Wanted::Timestamp:
            return timestampOf(value);
        default:
            return jsonOf(value);
    }
}

Datum evaluateRows(FunctionCallInfo fcinfo, bool isProven) {
    Program& made = runOn(fcinfo, Wanted::Rows, isProven);
    InitMaterializedSRF(fcinfo, MAT_SRF_USE_EXPECTED_DESC);
    auto* const results = reinterpret_cast<ReturnSetInfo*>(fcinfo->resultinfo);
    for (std::size_t i = 0; i < rowCount(made); ++i) {
        Datum record = jsonOf(row(made, i));
        bool isNull = false;
        tuplestore_putvalues(results->setResult, results->setDesc, &record, &isNull);
        pfree(DatumGetPointer(record));
    }
    forgetRows(made);
    return Datum{0};
}

// What a call site of eval_row keeps.
struct RowShape {
    TupleDesc types;
    Column* columns;
};

Type typeOf(const FormData_pg_attribute& column) {
    switch (column.atttypid) {
        case INT4OID:
        case INT8OID:
            return Type::Long;
        case BOOLOID:
            return Type::Bool;
        case TEXTOID:
            return Type::Text;
        case NUMERICOID:
            return Type::Numeric;
        case TIMESTAMPTZOID:
            return Type::Timestamp;
        default:
            break;
    }
    ereport(ERROR, (errcode(ERRCODE_DATATYPE_MISMATCH),
                    errmsg("the column \"%s\" has a type that no variable of a script has",
                           NameStr(column.attname)),
                    errhint("Take bigint, integer, boolean, text, numeric or timestamptz.")));
    pg_unreachable();
}

RowShape& shapeOf(FunctionCallInfo fcinfo) {
    FmgrInfo* const site = fcinfo->flinfo;
    if (site->fn_extra != nullptr) return *static_cast<RowShape*>(site->fn_extra);
    TupleDesc types = nullptr;
    if (get_call_result_type(fcinfo, nullptr, &types) != TYPEFUNC_COMPOSITE) {
        ereport(ERROR,
                (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                 errmsg("eval_row stands after FROM, with a list of columns"),
                 errhint("... FROM t, kestrel.eval_row(program, record) AS r(price numeric)")));
    }
    const MemoryContext before = MemoryContextSwitchTo(site->fn_mcxt);
    const auto count = static_cast<std::size_t>(types->natts);
    auto* const made = static_cast<RowShape*>(palloc(sizeof(RowShape)));
    made->columns = static_cast<Column*>(palloc(count * sizeof(Column)));
    made->types = BlessTupleDesc(CreateTupleDescCopy(types));
    for (int i = 0; i < types->natts; ++i) {
        const FormData_pg_attribute& column = *TupleDescAttr(made->types, i);
        made->columns[i] = {NameStr(column.attname), typeOf(column)};
    }
    MemoryContextSwitchTo(before);
    site->fn_extra = made;
    return *made;
}

Datum datumOf(const Value& value, const FormData_pg_attribute& column) {
    switch (column.atttypid) {
        case INT4OID:
            if (value.number < INT_MIN || value.number > INT_MAX) {
                ereport(ERROR,
                        (errcode(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE),
                         errmsg("%lld does not fit the column \"%s\" of type integer",
                                static_cast<long long>(value.number), NameStr(column.attname))));
            }
            return Int32GetDatum(static_cast<int32>(value.number));
        case INT8OID:
            return Int64GetDatum(value.number);
        case BOOLOID:
            return BoolGetDatum(value.number != 0);
        case TEXTOID:
            return textOf(value);
        case NUMERICOID:
            return numericOf(value, column.atttypmod);
        default:
            return timestampOf(value);
    }
}

Datum evaluateRow(FunctionCallInfo fcinfo, bool isProven) {
    RowShape& shape = shapeOf(fcinfo);
    Program& made = runOn(fcinfo, Wanted::Row, isProven);
    if (isDropped(made)) PG_RETURN_NULL();
    const auto count = static_cast<std::size_t>(shape.types->natts);
    auto* const values = static_cast<Value*>(palloc(count * sizeof(Value)));
    auto* const data = static_cast<Datum*>(palloc0(count * sizeof(Datum)));
    auto* const nulls = static_cast<bool*>(palloc0(count * sizeof(bool)));
    if (!columns(made, shape.columns, count, values)) raise(PG_GETARG_TEXT_PP(0));
    for (std::size_t i = 0; i < count; ++i) {
        nulls[i] = values[i].isNull;
        const FormData_pg_attribute& column = *TupleDescAttr(shape.types, static_cast<int>(i));
        if (!nulls[i]) data[i] = datumOf(values[i], column);
    }
    return HeapTupleGetDatum(heap_form_tuple(shape.types, data, nulls));
}

Wanted wantedOf(const char* name) {
    constexpr struct {
        const char* name;
        Wanted wanted;
    } names[] = {{"numeric", Wanted::Numeric}, {"text", Wanted::Text},
                 {"bool", Wanted::Bool},       {"timestamptz", Wanted::Timestamp},
                 {"jsonb", Wanted::Json},      {"rows", Wanted::Rows},
                 {"row", Wanted::Row}};
    for (const auto& known : names) {
        if (strcmp(known.name, name) == 0) return known.wanted;
    }
    ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE), errmsg("there is no eval_%s", name),
                    errhint("There are numeric, text, bool, timestamptz, jsonb, rows and row.")));
    pg_unreachable();
}

Datum checkText(FunctionCallInfo fcinfo) {
    getReady();
    text* const source = PG_GETARG_TEXT_PP(0);
    const Wanted wanted = wantedOf(text_to_cstring(PG_GETARG_TEXT_PP(1)));
    if (!check(VARDATA_ANY(source), VARSIZE_ANY_EXHDR(source), wanted)) raise(source);
    for (std::size_t i = 0; i < warningCount(); ++i) {
        ereport(WARNING, (errmsg("%s", warning(i))));
    }
    PG_RETURN_VOID();
}

// What a call site of `program` keeps: the text for a name and a version, as the statement sees the
// table. In PL/pgSQL a call site outlives its statement.
struct Found {
    text* name;
    int32 version;
    text* program;
    CommandId command;
    TransactionId next;
    uint32 running;
};

bool isSame(const text* a, const text* b) {
    return VARSIZE_ANY_EXHDR(a) == VARSIZE_ANY_EXHDR(b) &&
           memcmp(VARDATA_ANY(a), VARDATA_ANY(b), VARSIZE_ANY_EXHDR(a)) == 0;
}

text* copyOf(const text* from, MemoryContext context) {
    const std::size_t size = VARSIZE_ANY(from);
    return static_cast<text*>(memcpy(MemoryContextAlloc(context, size), from, size));
}

// The text of a program of the table. It is looked up once a query for each call site.
Datum programText(FunctionCallInfo fcinfo) {
    if (PG_ARGISNULL(0)) PG_RETURN_NULL();
    text* const name = PG_GETARG_TEXT_PP(0);
    const int32 version = PG_ARGISNULL(1) ? 0 : PG_GETARG_INT32(1);
    FmgrInfo* const site = fcinfo->flinfo;
    auto* found = static_cast<Found*>(site->fn_extra);
    const Snapshot seen = GetActiveSnapshot();
    if (found != nullptr && found->version == version && found->command == seen->curcid &&
        found->next == seen->xmax && found->running == seen->xcnt && isSame(found->name, name)) {
        PG_RETURN_TEXT_P(found->program);
    }
    SPI_connect();
    Oid types[] = {TEXTOID, INT4OID};
    Datum values[] = {PointerGetDatum(name), Int32GetDatum(version)};
    SPI_execute_with_args(
        "SELECT p.text FROM kestrel.programs p"
        " WHERE p.name OPERATOR(pg_catalog.=) $1"
        " AND ($2 OPERATOR(pg_catalog.=) 0"
        " OR p.version OPERATOR(pg_catalog.=) $2)"
        " ORDER BY p.version DESC LIMIT 1",
        2, types, values, nullptr, true, 1);
    if (SPI_processed == 0) {
        ereport(ERROR, (errcode(ERRCODE_UNDEFINED_OBJECT),
                        errmsg("there is no program \"%s\"", text_to_cstring(name)),
                        version != 0 ? errdetail("Version %d was asked for.", version) : 0,
                        errhint("kestrel.add_program adds one.")));
    }
    bool isNull = false;
    const Datum value = SPI_getbinval(SPI_tuptable->vals[0], SPI_tuptable->tupdesc, 1, &isNull);
    text* const program = copyOf(DatumGetTextPP(value), site->fn_mcxt);
    SPI_finish();
    text* const kept = copyOf(name, site->fn_mcxt);
    if (found == nullptr) {
        found = static_cast<Found*>(MemoryContextAlloc(site->fn_mcxt, sizeof(Found)));
    } else {
        pfree(found->name);
        pfree(found->program);
    }
    *found = {kept, version, program, seen->curcid, seen->xmax, seen->xcnt};
    site->fn_extra = found;
    PG_RETURN_TEXT_P(program);
}

void defineSettings() {
    DefineCustomIntVariable("kestrel.time_limit", "Time that a script may take for a record.",
                            nullptr, &timeLimitS, timeLimitS, 1, INT_MAX, PGC_SUSET, GUC_UNIT_MS,
                            nullptr, noteNumber, nullptr);
    DefineCustomIntVariable("kestrel.memory_limit", "Memory that the values of a script may take.",
                            nullptr, &memoryLimitS, memoryLimitS, 64, INT_MAX, PGC_SUSET,
                            GUC_UNIT_KB, nullptr, noteNumber, nullptr);
    DefineCustomIntVariable("kestrel.step_limit",
                            "Turns of loops and calls that a script may make for a record.",
                            "-1 is no limit.", &stepLimitS, stepLimitS, -1, INT_MAX, PGC_SUSET, 0,
                            nullptr, noteNumber, nullptr);
    DefineCustomIntVariable("kestrel.programs_kept", "Programs that a session keeps compiled.",
                            nullptr, &programsS, programsS, 1, 10'000, PGC_USERSET, 0, nullptr,
                            noteNumber, nullptr);
    DefineCustomStringVariable(
        "kestrel.capabilities", "What scripts may do besides computing.",
        "Names such as \"env\" and \"files-ro=/srv/tables\", apart by commas.", &capabilitiesS, "",
        PGC_SUSET, GUC_SUPERUSER_ONLY, nullptr, noteText, nullptr);
    DefineCustomStringVariable("kestrel.time_zone", "The local time zone of scripts.", nullptr,
                               &timeZoneS, "UTC", PGC_USERSET, 0, nullptr, noteText, nullptr);
    MarkGUCPrefixReserved("kestrel");
}

}  // namespace

}  // namespace PgApi

// The names by which the server finds them.
#pragma GCC visibility push(default)
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {

PG_MODULE_MAGIC;

void _PG_init(void);
void _PG_init(void) { PgApi::defineSettings(); }

using namespace PgApi;

PG_FUNCTION_INFO_V1(kestrel_eval_numeric);
Datum kestrel_eval_numeric(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Numeric, false); }
PG_FUNCTION_INFO_V1(kestrel_eval_numeric_parallel);
Datum kestrel_eval_numeric_parallel(PG_FUNCTION_ARGS) {
    return evaluate(fcinfo, Wanted::Numeric, true);
}
PG_FUNCTION_INFO_V1(kestrel_eval_text);
Datum kestrel_eval_text(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Text, false); }
PG_FUNCTION_INFO_V1(kestrel_eval_text_parallel);
Datum kestrel_eval_text_parallel(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Text, true); }
PG_FUNCTION_INFO_V1(kestrel_eval_bool);
Datum kestrel_eval_bool(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Bool, false); }
PG_FUNCTION_INFO_V1(kestrel_eval_bool_parallel);
Datum kestrel_eval_bool_parallel(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Bool, true); }
PG_FUNCTION_INFO_V1(kestrel_eval_timestamptz);
Datum kestrel_eval_timestamptz(PG_FUNCTION_ARGS) {
    return evaluate(fcinfo, Wanted::Timestamp, false);
}
PG_FUNCTION_INFO_V1(kestrel_eval_timestamptz_parallel);
Datum kestrel_eval_timestamptz_parallel(PG_FUNCTION_ARGS) {
    return evaluate(fcinfo, Wanted::Timestamp, true);
}
PG_FUNCTION_INFO_V1(kestrel_eval_jsonb);
Datum kestrel_eval_jsonb(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Json, false); }
PG_FUNCTION_INFO_V1(kestrel_eval_jsonb_parallel);
Datum kestrel_eval_jsonb_parallel(PG_FUNCTION_ARGS) { return evaluate(fcinfo, Wanted::Json, true); }
PG_FUNCTION_INFO_V1(kestrel_eval_rows);
Datum kestrel_eval_rows(PG_FUNCTION_ARGS) { return evaluateRows(fcinfo, false); }
PG_FUNCTION_INFO_V1(kestrel_eval_rows_parallel);
Datum kestrel_eval_rows_parallel(PG_FUNCTION_ARGS) { return evaluateRows(fcinfo, true); }
PG_FUNCTION_INFO_V1(kestrel_eval_row);
Datum kestrel_eval_row(PG_FUNCTION_ARGS) { return evaluateRow(fcinfo, false); }
PG_FUNCTION_INFO_V1(kestrel_eval_row_parallel);
Datum kestrel_eval_row_parallel(PG_FUNCTION_ARGS) { return evaluateRow(fcinfo, true); }
PG_FUNCTION_INFO_V1(kestrel_check);
Datum kestrel_check(PG_FUNCTION_ARGS) { return checkText(fcinfo); }
PG_FUNCTION_INFO_V1(kestrel_program);
Datum kestrel_program(PG_FUNCTION_ARGS) { return programText(fcinfo); }

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
#pragma GCC visibility pop
