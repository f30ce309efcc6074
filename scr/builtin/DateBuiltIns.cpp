#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "fnd/Portable.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/value/LargeText.h"

namespace SCR {

namespace {

using FND::DateTime;

/// The position of the letter of the first "%L" in `format`; `npos` if there is none. With "%L" a
/// script asks for local time; it shows the name of the zone.
std::size_t findLocal(const FND::String& format) {
    std::size_t letter = FND::String::npos;
    inPieces(format.size(), [&](std::size_t begin, std::size_t end) {
        if (letter != FND::String::npos) return;
        // Formats are full of "%" and seldom have an "L".
        const std::string_view read = std::string_view(format).substr(0, end);
        letter = read.find('L', std::max<std::size_t>(begin, 1));
        while (letter != FND::String::npos && format[letter - 1] != '%') {
            letter = read.find('L', letter + 1);
        }
    });
    return letter;
}

DateTime::Zone zoneFor(std::size_t letter) {
    return letter == FND::String::npos ? DateTime::Zone::Utc : DateTime::Zone::Local;
}

/// A format that is not long.
class DateFormat {
public:
    /// The format in the directives of the library, stored in this object or `format` itself;
    /// `zone` tells whose clock it is for.
    const FND::String& directives(const FND::String& format, DateTime::Zone& zone) {
        if (&format != constant_) return find(format, zone);
        zone = constantZone_;
        return constantZone_ == DateTime::Zone::Utc ? format : local_;
    }

    /// Looks at `format` once; it must not change and must outlive this object.
    void fix(const FND::String& format) {
        find(format, constantZone_);
        constant_ = &format;
    }

private:
    const FND::String& find(const FND::String& format, DateTime::Zone& zone) {
        const std::size_t letter = findLocal(format);
        zone = zoneFor(letter);
        if (letter == FND::String::npos) return format;
        local_ = format;
        local_[letter] = 'Z';
        return local_;
    }

    FND::String local_;
    const FND::String* constant_ = nullptr;
    DateTime::Zone constantZone_{};
};

/// A function of an operand and a format, usually a constant.
template <class Derived, class Signature>
class DateFunction;
template <class Derived, class Result, class Operand>
class DateFunction<Derived, Result(Operand)>
    : public BuiltInNode<Derived, Result(Operand, Optional<StringType>)> {
public:
    static Node* factory(Interpreter& interpreter, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        const bool hasFormat = stack.topNumParams() > 1;
        auto node = DateFunction::build(interpreter, stack);
        if (hasFormat) {
            const FND::String* const format = constantOf<StringType>(node->template operand<1>());
            if (format != nullptr && !isLarge(format->size())) {
                node->format_.fix(*format);
            }
        }
        return node.release();
    }

protected:
    DateFormat format_;
};

class DateToStr final : public DateFunction<DateToStr, StringType(DateType)> {
public:
    void value(Interpreter& interpreter, FND::String& result, const DateTime& date,
               const FND::String* format) {
        if (format == nullptr) return date.format(result);
        if (isLarge(format->size())) return formatLarge(interpreter, result, date, *format);
        DateTime::Zone zone{};
        const FND::String& directives = format_.directives(*format, zone);
        if (zone == DateTime::Zone::Utc) return date.format(result, directives, zone);
        date.format(result, directives, interpreter.timeZone());
    }

private:
    void formatLarge(Interpreter& interpreter, FND::String& result, const DateTime& date,
                     const FND::String& format) const {
        constexpr std::size_t pieceSize = 1024;
        if (!date.isValid()) return date.format(result);
        const std::size_t letter = findLocal(format);
        const DateTime::Zone zone = zoneFor(letter);
        result.clear();
        FND::String pattern;
        FND::String text;
        for (std::size_t at = 0; at < format.size(); at += pattern.size()) {
            pattern = DateTime::patternFront(std::string_view(format).substr(at), pieceSize);
            if (letter - at < pattern.size()) pattern[letter - at] = 'Z';
            if (zone == DateTime::Zone::Utc) {
                date.format(text, pattern, zone);
            } else {
                date.format(text, pattern, interpreter.timeZone());
            }
            const std::size_t size = result.size() + text.size();
            if (!growResult(interpreter, result, size)) {
                return this->fail(Messages::resultTooLong(size), date, format);
            }
            result += text;
            countWork(pattern.size() + text.size());
        }
    }
};

class StrToDate final : public DateFunction<StrToDate, DateType(StringType)> {
public:
    DateTime value(Interpreter& interpreter, const FND::String& text, const FND::String* format) {
        const DateTime date = read(interpreter, text, format);
        if (!date.isValid()) [[unlikely]]
            interpreter.runControl().invalidDates().areRead = true;
        return date;
    }

private:
    DateTime read(Interpreter& interpreter, const FND::String& text, const FND::String* format) {
        if (format == nullptr) return parse(text);
        if (isLarge(format->size())) return parseLarge(interpreter, text, *format);
        DateTime::Zone zone{};
        const FND::String& directives = format_.directives(*format, zone);
        return DateTime::parse(text, directives, interpreter.timeZone(), countWork);
    }

    // Only a fraction of a second has any number of digits, and those are ignored.
    static DateTime parse(const FND::String& text) {
        if (!isLarge(text.size())) [[likely]]
            return DateTime::parse(text);
        constexpr std::size_t enough = 32;  // for what stands before and after the digits
        const std::string_view view = text;
        const std::size_t sign = view.substr(0, enough).find_first_of(".,");
        if (sign == std::string_view::npos) return FND::INVALID_DATETIME;
        const std::string_view fraction = view.substr(sign + 1);
        const std::string_view rest = withoutFront(fraction, std::string_view("0123456789"));
        if (rest.size() == fraction.size() || rest.size() > enough) return FND::INVALID_DATETIME;
        return DateTime::parse(FND::String(view.substr(0, sign + 2)).append(rest));
    }

    static DateTime parseLarge(Interpreter& interpreter, const FND::String& text,
                               const FND::String& format) {
        const FND::TimeZone& zone = interpreter.timeZone();
        const std::size_t letter = findLocal(format);
        if (letter == FND::String::npos) return DateTime::parse(text, format, zone, countWork);
        const BufferCharge charge(blockBytes(format.size() + 1));
        FND::String local = copyOf(format);
        local[letter] = 'Z';
        return DateTime::parse(text, local, zone, countWork);
    }
};

struct Sysdate final : BuiltInNode<Sysdate, DateType()> {
    static DateTime value(Interpreter& /*interpreter*/) { return DateTime::now(); }
};

struct CurrentTimeInMillis final : BuiltInNode<CurrentTimeInMillis, LongType()> {
    static long value(Interpreter& /*interpreter*/) { return FND::currentMillis(); }
};

struct DateIsValid final : BuiltInNode<DateIsValid, BoolType(DateType)> {
    static bool value(Interpreter& /*interpreter*/, const DateTime& date) { return date.isValid(); }
};

struct DateDiff final : BuiltInNode<DateDiff, LongType(DateType, DateType)> {
    static long value(Interpreter& interpreter, const DateTime& a, const DateTime& b) {
        const FND::TimeZone& zone = interpreter.timeZone();
        return a.toLocalSecs(zone) - b.toLocalSecs(zone);
    }
};

using Amount = Optional<LongType>;

struct DateAdd final
    : BuiltInNode<DateAdd, DateType(DateType, Amount, Amount, Amount, Amount, Amount, Amount)> {
    static DateTime value(Interpreter& interpreter, const DateTime& date, std::optional<long> years,
                          std::optional<long> months, std::optional<long> days,
                          std::optional<long> hours, std::optional<long> minutes,
                          std::optional<long> seconds) {
        DateTime moved = date;
        const bool isMoved = moved.addYears(years.value_or(0)) &&
                             moved.addMonths(months.value_or(0)) &&
                             moved.addDays(days.value_or(0)) &&
                             moved.addLocalTime(hours.value_or(0), minutes.value_or(0),
                                                seconds.value_or(0), interpreter.timeZone());
        return isMoved ? moved : FND::INVALID_DATETIME;
    }
};

// Which calls go by the local zone.

bool addsHours(const ParserStack& /*stack*/, int count) {
    constexpr int calendarArguments = 4;  // the date, years, months and days
    return count > calendarArguments;
}

// Whether the last of two operands is a format that may hold one of `directives`.
bool hasDirective(const ParserStack& stack, int count,
                  std::initializer_list<const char*> directives) {
    if (count < 2) return false;
    const FND::String* const format = constantOf<StringType>(*stack.data(0));
    return format == nullptr ||
           std::any_of(directives.begin(), directives.end(), [&](const char* directive) {
               return format->find(directive) != FND::String::npos;
           });
}

bool showsZone(const ParserStack& stack, int count) { return hasDirective(stack, count, {"%L"}); }

// "%L" stands for the directive of the zone's name.
bool readsZone(const ParserStack& stack, int count) {
    return hasDirective(stack, count, {"%L", "%Z"});
}

constexpr BuiltIn dateBuiltInsS[] = {
    {.number = 48,
     .signature = "String dateToStr(Date date, [String format])",
     .factory = DateToStr::factory,
     .effects = Effect::LocalZone,
     .facts = {.goesByZone = showsZone},
     .manual =
         "`date` as text: \"YYYY-MM-DD HH:MM:SS\" in UTC, or `format` with its directives filled "
         "in; \"INVALID\" for the invalid date. Without \"%L\" in `format` the clock is that of "
         "UTC; with it, that of the local zone, whose name takes the place of the first \"%L\". "
         "Directives are those of C's strftime in English: \"%Y\" year, \"%m\" month, \"%d\" day, "
         "\"%H\" hour, \"%M\" minute, \"%S\" second, \"%y\" year of the century, \"%C\" century, "
         "\"%B\" and \"%b\" month's name, \"%A\" and \"%a\" weekday's name, \"%u\" and \"%w\" "
         "weekday's number, \"%j\" day of the year, \"%G\", \"%g\" and \"%V\" year and week of "
         "ISO 8601, \"%U\" and \"%W\" week of the year, \"%I\" and \"%p\" hour of the half day, "
         "\"%e\", \"%k\" and \"%l\" day and hours with a leading blank, \"%s\" seconds since "
         "1970, \"%z\" and \"%Z\" offset and name of the zone, \"%F\", \"%T\", \"%R\", \"%D\", "
         "\"%r\", \"%c\", \"%x\" and \"%X\" combinations of these, \"%n\" line end, \"%t\" "
         "tabulator, \"%%\" percent sign. Any other \"%\" stands for itself.",
     .example = R"(dateToStr(strToDate("2024-02-29"), "%d.%m.%Y %H:%M") == "29.02.2024 00:00")"},
    {.number = 85,
     .signature = "Long currentTimeInMillis()",
     .factory = CurrentTimeInMillis::factory,
     .effects = Effect::Clock,
     .manual = "The milliseconds since 1970-01-01 00:00:00 UTC. The clock jumps when the system's "
               "time is set.",
     .example = "currentTimeInMillis() > 1500000000000"},
    {.number = 91,
     .signature = "Date sysdate()",
     .factory = Sysdate::factory,
     .effects = Effect::Clock,
     .manual = "The current point in time, cut to whole seconds.",
     .example = R"(sysdate() > strToDate("2020-01-01"))"},
    {.number = 92,
     .signature = "Date strToDate(String text, [String format])",
     .factory = StrToDate::factory,
     .effects = Effect::LocalZone,
     .facts = {.goesByZone = readsZone},
     .manual =
         "The date that `text` names, wholly and to its end; otherwise the invalid date, also when "
         "a day does not exist (31 June) or a field is out of its range. Without `format` the text "
         "is \"YYYY-MM-DD\", \"YYYY-MM-DD HH:MM:SS\", the same with a \"T\" for the blank, "
         "\"YYYYMMDD\" or \"YYYYMMDDHHMMSS\". In the forms with colons the seconds may be left "
         "out, "
         "and \"Z\" or an offset from UTC such as \"+02:00\", \"+0200\" or \"+02\" may follow; all "
         "else is in UTC. Fractions of a second are cut off. With `format`, `text` is read by the "
         "directives of `dateToStr`: in UTC unless the format has \"%z\", \"%Z\" or \"%L\". What "
         "the "
         "format leaves out is that of 1970-01-01 00:00:00; a \"%y\" without \"%C\" is of 1969 to "
         "2068.",
     .example = R"(strToDate("29/02/24", "%d/%m/%y") == strToDate("2024-02-29"))"},
    {.number = 93,
     .signature = "Bool dateIsValid(Date date)",
     .factory = DateIsValid::factory,
     .manual = "Whether `date` is a real date. A Date variable starts with the invalid one.",
     .example = R"(dateIsValid(strToDate("2024-02-30")) == false)"},
    {.number = 94,
     .signature = "Long dateDiff(Date a, Date b)",
     .factory = DateDiff::factory,
     .effects = Effect::LocalZone,
     .manual =
         "The seconds from `b` to `a` by the clock of the local zone: positive when `a` is later. "
         "Between summer and winter time it differs by the change of the clock from the time that "
         "passes. The invalid date is not refused: it counts as second 4611686018427387904.",
     .example = R"(dateDiff(strToDate("2024-01-02"), strToDate("2024-01-01")) == 86400)"},
    {.number = 95,
     .signature = "Date dateAdd(Date date, [Long years, Long months, Long days, Long hours, "
                  "Long minutes, Long seconds])",
     .factory = DateAdd::factory,
     .effects = Effect::LocalZone,
     .facts = {.goesByZone = addsHours},
     .manual =
         "`date` moved by the amounts given, forwards or, when negative, backwards. Years, months "
         "and days are added one after the other by the calendar of UTC; a day that the month "
         "reached does not have becomes its last. Hours, minutes and seconds are then added to the "
         "clock of the local zone; a time that is left out as clocks are set forward is moved on "
         "by what is left out. The invalid date when `date` is, and when the result or a step "
         "towards it is outside the years 1 to 9999.",
     .example = R"(dateAdd(strToDate("2024-01-31"), 0, 1) == strToDate("2024-02-29"))"},
};

}  // namespace

std::span<const BuiltIn> dateBuiltIns() { return dateBuiltInsS; }

}  // namespace SCR
