#include "records/script/RecordManual.h"

namespace Records {
namespace {

using SCR::Effect;

constexpr SCR::ModuleFunction functionsS[] = {
    {"String edrString(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "The text of the field; \"\" when it is missing or empty. On the left of `=` it gives the "
     "field "
     "a text. A field that the input lacks becomes a new column of a table, and a new member of a "
     "JSON object. For JSON, the further arguments are indices of the arrays on the way.",
     "edrString(name) = \"Anna\"; edrString(name) == \"Anna\""},
    {"Long edrLong(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "The field as a whole number; 0 when it is missing or empty. Blanks around it, a sign and an "
     "exponent are read, and whole numbers in any form, such as `5.0`. On another text the script "
     "fails for this record, see `--on-error`. JSON's `true` is 1. On the left of `=` it gives the "
     "field a number.",
     "edrLong(seconds) = edrLong(seconds) + 1; edrLong(seconds) == 62"},
    {"Decimal edrDecimal(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "The field as an exact number; INVALID_DECIMAL when it is missing or empty. It reads what "
     "edrLong reads, and fractions. On the left of `=` it gives the field a number; "
     "INVALID_DECIMAL leaves a field that holds nothing as it is, and fails for any other.",
     "edrDecimal(cost) = edrDecimal(cost) * 3; edrDecimal(cost) == 0.3"},
    {"Date edrDate(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "The field as a date, read as by `strToDate` without a format; the invalid date when it is "
     "missing or empty, which fails when it is compared. On the left of `=` it gives the field a "
     "date, as `2026-03-01 00:00:00`; "
     "the "
     "invalid date leaves a field that holds nothing as it is, and fails for any other.",
     "dateToStr(edrDate(begin), \"%H\") == \"20\""},
    {"Bool edrMissingInput(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "Whether the record has no such field: a table's record is too short, a JSON object has no "
     "such member.",
     "edrMissingInput(colour) and edrMissingInput(empty) == false"},
    {"Bool edrEmptyInput(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "Whether the record has the field, and it is empty or JSON's `null`.",
     "edrEmptyInput(empty) and edrEmptyInput(colour) == false"},
    {"Void edrDeleteField(Field field, [Long i, Long j, Long k])", nullptr, Effect::None,
     "Removes the field: the member or element of JSON, the column of a table with names. In a "
     "table "
     "without names it becomes empty.",
     "edrDeleteField(name); edrMissingInput(name)"},
    {"Long edrArrayIndex(Field field, [Long i, Long j])", nullptr, Effect::None,
     "For JSON: the number of elements of the array, which is the index of the next one; 0 when it "
     "is "
     "missing, -1 when it is no array.",
     "edrArrayIndex(items) == 2 and edrDecimal(items.price, 1) == 2.5"},
    {"Void recordDrop()", nullptr, Effect::None,
     "The record is not written. The script goes on to its end.",
     "if (edrLong(seconds) == 0) recordDrop();"},
    {"Void recordReject(String reason)", nullptr, Effect::None,
     "The record goes to the rejects, with the first reason given. The script goes on to its end.",
     "if (edrString(name) == \"\") recordReject(\"no name\");"},
    {"Void recordWrite()", nullptr, Effect::None,
     "Writes the record as it stands, besides what becomes of it at the end, and as often as it is "
     "called. In END it writes records from the fields that are set there.",
     "edrString(name) = \"first\"; recordWrite(); edrString(name) = \"second\";"},
    {"Void outputFile(String name)", nullptr, Effect::WritesFiles,
     "The record goes to the file of this name instead, as do those that `recordWrite` writes "
     "after "
     "that. Up to 10,000 files may be named; each appears complete or not at all.",
     "outputFile(\"calls-\" + edrString(name) + \".jsonl\");"},
    {"Void stopJob(String reason)", nullptr, Effect::None,
     "Ends the job at once with status 1. The record and those after it are not counted, and an "
     "output file does not appear.",
     "if (edrMissingInput(name)) stopJob(\"this is another kind of file\");"},
    {"Bool tableFind(Table table, Key key, ...)", nullptr, Effect::None,
     "Goes to the first row with the key in a table that `--table` names, and tells whether there "
     "is one. A key of several columns takes an argument for each.",
     "tableFind(rates, \"49\")"},
    {"Bool tableNext(Table table)", nullptr, Effect::None,
     "Goes to the next row with the same key, in the order of the file, and tells whether there is "
     "one.",
     "tableFind(rates, \"49\") and tableNext(rates)"},
    {"Value tableField(Column column)", nullptr, Effect::None,
     "The value in a column of the row found, of the column's type; the null value where there is "
     "no row, or the cell is empty.",
     "tableFind(rates, \"49\") and tableField(rates.price) == 0.25"},
    {"Void total(Variable total, [String key], Value value)", nullptr, Effect::Totals,
     "Adds to a variable, or to the element of a hash, Long or Decimal. END finds the sum of all "
     "threads and parts in it; only END may read it.",
     "Decimal sum; total(sum, edrDecimal(cost));"},
    {"Void totalMin(Variable total, [String key], Value value)", nullptr, Effect::Totals,
     "The same for the smallest value, a Long, Decimal, Date or String.",
     "Date first; totalMin(first, edrDate(begin));"},
    {"Void totalMax(Variable total, [String key], Value value)", nullptr, Effect::Totals,
     "The same for the largest value.",
     "Long most{}; totalMax(most, edrString(name), edrLong(seconds));"},
    {"Void totalCount(Variable total, [String key])", nullptr, Effect::Totals,
     "Adds 1 to a Long, or to an element of a hash of Long.",
     "Long calls{}; totalCount(calls, edrString(name));"},
    {"Void totalSet(Variable hash, String key)", nullptr, Effect::Totals,
     "Gives the hash, of Bool or Long, the key.",
     "Bool names{}; totalSet(names, edrString(name));"},
    {"Void recordUnique(String key)", nullptr, Effect::None,
     "Of the records with this key that are written, only the first in the order of the input "
     "stays; the others are dropped.",
     "recordUnique(edrString(name));"},
    {"Long recordNumber()", nullptr, Effect::Position,
     "The number of the record, from 1, without the header.", "recordNumber() == 1"},
    {"String recordText()", nullptr, Effect::None, "The record as it was read.",
     "strSubstr(recordText(), 0, 1) == \"{\""},
};

constexpr SCR::ModuleTable tableS{"record",
                                  "Scripts for records have these functions, in `kestrel run "
                                  "--records`, `query`, `conditions` and "
                                  "`check`. A field is named as in the header, with dots into "
                                  "nested JSON objects, or by a constant "
                                  "text: `edrString(\"2nd name\")`.",
                                  functionsS};

}  // namespace

const SCR::ModuleTable& recordManual() { return tableS; }

}  // namespace Records
