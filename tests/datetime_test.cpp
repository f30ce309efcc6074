#include "fnd/DateTime.h"

#include <ostream>

#include "Folder.h"
#include "Script.h"

namespace FND {

static void PrintTo(const DateTime& date, std::ostream* out) {
    String text;
    date.format(text);
    *out << text << " (" << date.secs() << ")";
}

namespace {

using Zone = DateTime::Zone;

constexpr std::int64_t leastS = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t greatestS = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t secsPerDayS = 86400;

static_assert(sizeof(DateTime) == 8 && std::is_trivially_copyable_v<DateTime>);
static_assert(!FND_INVALID_DATETIME.isValid() && INVALID_DATETIME == DateTime());

// Zones by rule, so that the tests need no zone files. In the first, clocks change at 01:00 UTC.
constexpr const char* centralEuropeS = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* newYorkS = "EST5EDT,M3.2.0,M11.1.0";
constexpr const char* lordHoweS = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
constexpr const char* oddOffsetS = "LMT-0:19:32";
constexpr const char* zonesS[] = {centralEuropeS, newYorkS, lordHoweS, oddOffsetS, "UTC0"};

/// The process's zone, for as long as this lives; UTC after that.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone) { set(zone); }
    ~ZoneScope() { set("UTC0"); }

private:
    static void set(const char* zone) {
        setenv("TZ", zone, 1);
        DateTime::rereadLocalZone();
    }
};

std::string text(DateTime date) {
    String out;
    date.format(out);
    return out;
}

std::string text(DateTime date, std::string_view pattern, Zone zone = Zone::Utc) {
    String out;
    date.format(out, pattern, zone);
    return out;
}

class Random {
public:
    std::int64_t between(std::int64_t low, std::int64_t high) {
        return std::uniform_int_distribution<std::int64_t>(low, high)(engine_);
    }
    DateTime date() { return DateTime(between(DateTime::min().secs(), DateTime::max().secs())); }
    DateTime dateSince(const char* text) {
        return DateTime(between(DateTime::parse(text).secs(), DateTime::max().secs()));
    }

private:
    std::mt19937_64 engine_{20240229};
};

TEST(DateTime, KnowsItsRange) {
    const struct {
        std::int64_t secs;
        const char* text;
    } cases[] = {
        {0, "1970-01-01 00:00:00"},
        {-1, "1969-12-31 23:59:59"},
        {-62135596800, "0001-01-01 00:00:00"},
        {-62135596801, "INVALID"},
        {253402300799, "9999-12-31 23:59:59"},
        {253402300800, "INVALID"},
        {leastS, "INVALID"},
        {greatestS, "INVALID"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text(DateTime(c.secs)), c.text) << c.secs;
        EXPECT_EQ(DateTime(c.secs).isValid(), std::string(c.text) != "INVALID") << c.secs;
        EXPECT_LE(DateTime(c.secs).secs(), DateTime::invalidSecsCM) << c.secs;
    }
    EXPECT_LT(DateTime::max(), DateTime());
    EXPECT_LT(DateTime::min(), DateTime::max());
    EXPECT_EQ(DateTime(leastS), DateTime(greatestS));
    EXPECT_LE(std::abs(DateTime::now().secs() - time(nullptr)), 1);
    const ZoneScope scope(centralEuropeS);
    EXPECT_EQ(text(DateTime(0), "%H", Zone::Local), "01");
    setenv("TZ", newYorkS, 1);  // unread as yet
    EXPECT_EQ(text(DateTime::parse("2024-07-01"), "%H %Z", Zone::Local), "02 CEST");
}

TEST(DateTime, AddsByTheCalendar) {
    const struct {
        const char* from;
        bool (DateTime::*add)(std::int64_t) noexcept;
        std::int64_t amount;
        const char* to;  // null: refused
    } cases[] = {
        {"2023-01-31 10:11:12", &DateTime::addMonths, 1, "2023-02-28 10:11:12"},
        {"2024-02-29", &DateTime::addYears, 1, "2025-02-28 00:00:00"},
        {"2024-02-29", &DateTime::addYears, -124, "1900-02-28 00:00:00"},
        {"2024-02-28", &DateTime::addDays, 2, "2024-03-01 00:00:00"},
        {"1969-12-31 23:59:59", &DateTime::addDays, -1, "1969-12-30 23:59:59"},
        {"0001-01-01", &DateTime::addYears, 9998, "9999-01-01 00:00:00"},
        {"0001-01-01", &DateTime::addMonths, 9999 * 12 - 1, "9999-12-01 00:00:00"},
        {"0001-01-01", &DateTime::addDays, 3652058, "9999-12-31 00:00:00"},
        {"0001-01-01", &DateTime::addDays, 3652059, nullptr},
        {"0001-01-01", &DateTime::addMonths, 9999 * 12, nullptr},
        {"9999-12-31", &DateTime::addYears, 1, nullptr},
        {"2024-01-01", &DateTime::addYears, greatestS, nullptr},
        {"2024-01-01", &DateTime::addYears, greatestS / 12 + 1, nullptr},
        {"2024-01-01", &DateTime::addMonths, leastS, nullptr},
        {"2024-01-01", &DateTime::addDays, greatestS / secsPerDayS + 1, nullptr},
        {"INVALID", &DateTime::addDays, 0, nullptr},
    };
    for (const auto& c : cases) {
        const DateTime from = DateTime::parse(c.from);
        DateTime date = from;
        EXPECT_EQ((date.*c.add)(c.amount), c.to != nullptr) << c.from << " + " << c.amount;
        EXPECT_EQ(text(date), c.to ? c.to : text(from)) << c.from << " + " << c.amount;
    }
}

TEST(DateTime, AddsMonthsAsTheCLibraryDoes) {
    Random random;
    for (int i = 0; i < 20000; ++i) {
        const DateTime from = random.date();
        const std::int64_t months = random.between(-3000, 3000);
        const time_t secs = from.secs();
        tm fields{};
        gmtime_r(&secs, &fields);
        const int day = fields.tm_mday;
        fields.tm_mon += static_cast<int>(months);
        time_t expected = timegm(&fields);
        if (fields.tm_mday != day) expected -= fields.tm_mday * secsPerDayS;  // ran over the end
        DateTime to = from;
        const bool fits = DateTime(expected).isValid();
        ASSERT_EQ(to.addMonths(months), fits) << from.secs() << " + " << months;
        ASSERT_EQ(to, fits ? DateTime(expected) : from) << from.secs() << " + " << months;
    }
}

TEST(DateTime, ReadsTheDefaultForms) {
    const std::pair<const char*, const char*> cases[] = {
        {"2024-02-29 23:59:58", "2024-02-29 23:59:58"},
        {"2024-02-29", "2024-02-29 00:00:00"},
        {"20240229235958", "2024-02-29 23:59:58"},
        {"2024-02-29T23:59:58Z", "2024-02-29 23:59:58"},
        {"2024-02-29T23:59:58+01:30", "2024-02-29 22:29:58"},
        {"2024-02-29T23:59:58-0130", "2024-03-01 01:29:58"},
        {"2024-02-29 23:59:58+01:30", "2024-02-29 22:29:58"},
        {"2024-02-29 23:59:58.999999999", "2024-02-29 23:59:58"},
        {"2024-02-29T23:59:58,5Z", "2024-02-29 23:59:58"},
        {"1960-02-29 23:59:58.9-02", "1960-03-01 01:59:58"},
        {"20240229235958.123", "2024-02-29 23:59:58"},
        {"2024-02-29 23:59", "2024-02-29 23:59:00"},
        {"2024-02-29 23:59-0130", "2024-03-01 01:29:00"},
        {"0001-01-01T00:00:00-00:01", "0001-01-01 00:01:00"},
        {"99991231235959", "9999-12-31 23:59:59"},
    };
    for (const auto& [read, date] : cases) EXPECT_EQ(text(DateTime::parse(read)), date) << read;
    for (const std::string& read : Harness::pieces(
             "0001-01-01T00:00:00+00:01|9999-12-31T23:59:59-00:01|0000-12-31|2023-02-29|"
             "1900-02-29|2024-06-31|2024-13-01|2024-00-01|2024-01-00|2024-01-01 24:00:00|"
             "2024-01-01 00:60:00|2024-01-01 00:00:60|2024|202401011|2024010112|2024-1-01|"
             "2024/01/01| 2024-01-01|2024-01-01 |2024-01-01 00|2024-01-01 00:|2024-01-01 00:0|"
             "2024-01-01 00:00:|2024-01-01 00:00:6|2024-01-01 12:60|2024-01-01 24:00|"
             "2024-01-01 24:00:01|2024-01-01 10:00:00.|2024-01-01 10:00:00.Z|"
             "2024-01-01 10:00:00.1.2|2024-01-01 10:00:00.1 |2024-01-01 10:00.5|2024-01-01.5|"
             "2024-01-01 +02:00|202401011234|20240101123456Z|20240101T123456|20240101123456.|"
             "2024-01-01 00:00:00 |2024-01-01T00:00:00z|2024-01-01T00:00:00Z0|"
             "2024-01-01T00:00:00+|2024-01-01T00:00:00+1|2024-01-01T00:00:00+24|"
             "2024-01-01T00:00:00+0160|2024-01-01T00:00:00+01:|2024-01-01T00:00:00+01:0|"
             "2024-01-01T00:00:00+01:02:03|2024-01-01x00:00:00|2024-01-01 00.00.00|+202-01-01|"
             "-024-01-01|2024-01-0\xb1|INVALID")) {
        EXPECT_FALSE(DateTime::parse(read).isValid()) << read;
    }
    EXPECT_FALSE(DateTime::parse(std::string_view("2024-01-01\0", 11)).isValid());
}

TEST(DateTime, ReadsByPattern) {
    const struct {
        const char *text, *pattern, *date;
    } cases[] = {
        {"5.3.2024 7:08", "%d.%m.%Y %H:%M", "2024-03-05 07:08:00"},
        {"2024-03-05  \n10", "%F %H", "2024-03-05 10:00:00"},
        {"2024-03-0510", "%F %H", "2024-03-05 10:00:00"},
        {"tUESDAY, 5 march 2024", "%a, %d %b %Y", "2024-03-05 00:00:00"},
        {"68", "%y", "2068-01-01 00:00:00"},
        {"69", "%y", "1969-01-01 00:00:00"},
        {"1868", "%C%y", "1868-01-01 00:00:00"},
        {"12:30 AM", "%I:%M %p", "1970-01-01 00:30:00"},
        {"12:30 pm", "%I:%M %p", "1970-01-01 12:30:00"},
        {"11pm", "%I%P", "1970-01-01 23:00:00"},
        {"2024-060", "%Y-%j", "2024-02-29 00:00:00"},
        {"2020-W53-7", "%G-W%V-%u", "2021-01-03 00:00:00"},
        {"2024 00 6", "%Y %U %w", "2024-01-06 00:00:00"},
        {"2024 01 Mon", "%Y %W %a", "2024-01-01 00:00:00"},
        {"-1", "%s", "1969-12-31 23:59:59"},
        {"2024-03-05 10 +0230", "%F %H %z", "2024-03-05 07:30:00"},
        {"2024-03-05 10 GMT", "%F %H %Z", "2024-03-05 10:00:00"},
        {"100%", "%j%%", "1970-04-10 00:00:00"},
        {"1970%Q%", "%Y%Q%", "1970-01-01 00:00:00"},
        {"2024 01", "%Y %V", "2024-01-01 00:00:00"},
        {"5 5", "%s %s", "1970-01-01 00:00:05"},
        {"10:00 +0100 +01", "%R %z %z", "1970-01-01 09:00:00"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text(DateTime::parse(c.text, c.pattern)), c.date)
            << c.text << " by " << c.pattern;
    }
    // A text and a pattern that does not read it.
    for (const std::string& row : Harness::pieces(
             "2024-03-05x~%F|2024-03-0~%F|2024-03~%F|2023-02-29~%F|2024-06-31~%F|29.02.~%d.%m.|"
             "2023-366~%Y-%j|2024-W53-1~%G-W%V-%u|2025 01~%Y %V|Wed 05 Mar 2024~%a %d %b %Y|"
             "2024 2025~%Y %Y|2024 25~%Y %y|13:00 AM~%H:%M %p|24~%H|13~%I|60~%S|0000~%Y|0~%d|"
             "54~%U|+5~%d|Ma 2024~%b %Y|253402300800~%s|999999999999999999999999~%s|5 6~%s %s|"
             "10:00 +0100 +02~%R %z %z|2024-03-05 10 XST~%F %H "
             "%Z|UTC~%Z|~|text~text|~%Y|2024~%Y%")) {
        const std::size_t bar = row.find('~');
        EXPECT_FALSE(DateTime::parse(row.substr(0, bar), row.substr(bar + 1)).isValid()) << row;
    }
}

TEST(DateTime, PrintsAsTheCLibraryDoes) {
    // The C library leaves out leading zeros of years below 1000.
    Random random;
    const std::string pattern =
        "%Y|%C|%y|%m|%B|%b|%h|%d|%e|%j|%A|%a|%u|%w|%G|%V|%g|%U|%W|%H|%I|%k|%l|%p|%P|%M|%S|%s|%F|%T|"
        "%R|%D|%r|%c|%X|%x|%n|%t|%%|text";
    const ZoneScope utc("UTC0");
    for (int i = 0; i < 20000; ++i) {
        const DateTime date = random.dateSince("1000-01-01");
        const time_t secs = date.secs();
        tm fields{};
        gmtime_r(&secs, &fields);
        char expected[512];
        strftime(expected, sizeof expected, pattern.c_str(), &fields);
        ASSERT_EQ(text(date, pattern), expected) << secs;
        strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S", &fields);
        ASSERT_EQ(text(date), expected) << secs;
    }
    EXPECT_EQ(text(DateTime::min(), "%Y %G %C %y %e %k %l"), "0001 0001 00 01  1  0 12");
    EXPECT_EQ(text(DateTime(0), "%Q%L%\xff%E%"), "%Q%L%\xff%E%");
    EXPECT_EQ(text(DateTime(), "%Y"), "INVALID");
}

TEST(DateTime, FollowsTheLocalZone) {
    const struct {
        const char *zone, *local, *utc;
        const char* text;  // the instant's local clock
    } cases[] = {
        {centralEuropeS, "2024-03-31 02:30:00", "2024-03-31 01:30:00",
         "2024-03-31 03:30:00 CEST +0200"},
        {centralEuropeS, "2024-10-27 02:30:00", "2024-10-27 00:30:00",
         "2024-10-27 02:30:00 CEST +0200"},
        {newYorkS, "2024-03-10 02:30:00", "2024-03-10 07:30:00", "2024-03-10 03:30:00 EDT -0400"},
        {newYorkS, "2024-11-03 01:30:00", "2024-11-03 05:30:00", "2024-11-03 01:30:00 EDT -0400"},
        {lordHoweS, "2024-10-06 02:15:00", "2024-10-05 15:45:00", "2024-10-06 02:45:00 +11 +1100"},
        {lordHoweS, "2024-04-07 01:45:00", "2024-04-06 14:45:00", "2024-04-07 01:45:00 +11 +1100"},
        {oddOffsetS, "2024-01-01 00:00:00", "2023-12-31 23:40:28",
         "2024-01-01 00:00:00 LMT +00:19:32"},
    };
    for (const auto& c : cases) {
        const ZoneScope scope(c.zone);
        const DateTime date = DateTime::fromLocalSecs(DateTime::parse(c.local).secs());
        EXPECT_EQ(text(date), c.utc) << c.local << " in " << c.zone;
        EXPECT_EQ(text(date, "%F %T %Z %z", Zone::Local), c.text) << c.local << " in " << c.zone;
    }
    const ZoneScope scope(centralEuropeS);
    EXPECT_EQ(DateTime().toLocalSecs(), DateTime::invalidSecsCM);
    for (const std::int64_t secs : {leastS, greatestS, DateTime::invalidSecsCM})
        EXPECT_FALSE(DateTime::fromLocalSecs(secs).isValid()) << secs;
    EXPECT_EQ(DateTime::fromLocalSecs(DateTime::max().toLocalSecs()), DateTime::max());
    EXPECT_EQ(DateTime::fromLocalSecs(DateTime::min().toLocalSecs()), DateTime::min());
    EXPECT_EQ(text(DateTime::max(), "%Y %C %y %G", Zone::Local), "10000 100 00 9999");
    // The zone's name distinguishes the two; no clock has shown the third.
    EXPECT_EQ(text(DateTime::parse("2024-10-27 02:30 CET", "%F %R %Z")), "2024-10-27 01:30:00");
    EXPECT_EQ(text(DateTime::parse("2024-10-27 02:30 CEST", "%F %R %Z")), "2024-10-27 00:30:00");
    EXPECT_FALSE(DateTime::parse("2024-03-31 02:30 CET", "%F %R %Z").isValid());
    EXPECT_FALSE(DateTime::parse("2024-01-01 02:30 CEST", "%F %R %Z").isValid());
}

TEST(DateTime, ConvertsToLocalTimeAndBackAsTheCLibraryDoes) {
    std::vector<std::string> zones(std::begin(zonesS), std::end(zonesS));
    zones.insert(zones.end(), {"IST-1GMT0,M10.5.0,M3.5.0/1", "AAA3BBB,J60/0,J300/24",
                               "AAA-3BBB-4:30,59/-1,300/167", ":Europe/Berlin"});
    // Special zones of the system's database, if it is installed.
    for (const char* const name :
         {"Europe/Berlin", "Europe/Dublin", "America/New_York", "America/Sao_Paulo",
          "Africa/Casablanca", "Asia/Kolkata", "Australia/Lord_Howe", "Antarctica/Troll",
          "Pacific/Apia", "Etc/GMT+5"}) {
        if (TimeZone::find(name) != nullptr) zones.emplace_back(name);
    }
    Random random;
    for (const std::string& zone : zones) {
        const ZoneScope scope(zone.c_str());
        const auto found = TimeZone::find(zone.substr(zone.starts_with(':') ? 1 : 0));
        ASSERT_NE(found, nullptr) << zone;
        for (int i = 0; i < 5000; ++i) {
            // The C library forgets about rules before 1970; half of the dates are of our time.
            const DateTime date = i % 2 == 0 ? DateTime(random.between(0, 3'000'000'000))
                                             : random.dateSince("1970-01-01");
            const time_t secs = date.secs();
            tm fields{};
            localtime_r(&secs, &fields);
            ASSERT_EQ(found->nameAt(secs), std::string(fields.tm_zone)) << secs << " in " << zone;
            const std::int64_t local = date.toLocalSecs();
            ASSERT_EQ(local, timegm(&fields)) << secs << " in " << zone;
            ASSERT_EQ(date.toLocalSecs(*found), local) << secs << " in " << zone;
            const DateTime back = DateTime::fromLocalSecs(local);
            ASSERT_LE(back, date) << zone;  // earlier only where the local time occurs twice
            ASSERT_EQ(back.toLocalSecs(), local) << secs << " in " << zone;
        }
    }
    const ZoneScope scope(newYorkS);
    const auto berlin = TimeZone::find(centralEuropeS);
    EXPECT_EQ(berlin->offsetAt(-14'182'940), 7200) << "rules hold before 1970, too";
    EXPECT_EQ(berlin->digest(), TimeZone::find(centralEuropeS)->digest());
    EXPECT_NE(berlin->digest(), TimeZone::local().digest());
    EXPECT_EQ(TimeZone::find("UTC")->digest(), TimeZone::find("UTC0")->digest());
    EXPECT_EQ(TimeZone::find("AAA5BBB4")->digest(),
              TimeZone::find("AAA5BBB4,M3.2.0,M11.1.0")->digest());
}

TEST(TimeZone, NamesThatAreNoneAreTold) {
    for (const std::string& name : Harness::pieces(
             "|Nowhere/City|CET|CET-|CE-1|CET-25|CET-1:60|<CET-1|CET-1CEST,M3.5.0|"
             "CET-1CEST,M13.5.0,M10.5.0|CET-1CEST,M3.6.0,M10.5.0|CET-1CEST,M3.5.7,M10.5.0|"
             "CET-1CEST,J0,J1|CET-1CEST,366,1|CET-1CEST,M3.5.0/168,M10.5.0|CET-1 |"
             "../zoneinfo/Europe/Berlin|/etc/localtime|Europe|zone.tab|Europe/Berlin/")) {
        if (name == "CET" && TimeZone::find("Europe/Berlin") != nullptr) continue;
        EXPECT_EQ(TimeZone::find(name), nullptr) << name;
    }
    EXPECT_EQ(TimeZone::find(std::string("UTC0\0", 5)), nullptr);
}

// The content of a zone file: numbers, each in so many bytes, and texts.
class ZoneBytes {
public:
    ZoneBytes& add(std::int64_t number, int size) {
        while (size-- > 0) bytes += static_cast<char>(size < 8 ? number >> (8 * size) : 0);
        return *this;
    }
    ZoneBytes& add(std::string_view text) {
        bytes += text;
        return *this;
    }
    // A part with times of `size` bytes: LMT, from `change` on ABC and from the hour after on DEF.
    ZoneBytes& addPart(std::int64_t change, int size) {
        add("TZif2").add(0, 15).add(0, 4).add(0, 4).add(0, 4).add(2, 4).add(3, 4).add(12, 4);
        add(change, size).add(change + 3600, size).add(1, 1).add(2, 1);
        add(3210, 4).add(0, 2).add(3600, 4).add(4, 2).add(7200, 4).add(0x108, 2);
        return add(std::string_view("LMT\0ABC\0DEF", 12));
    }

    std::string bytes;
};

TEST(TimeZone, ADamagedFileIsNoZoneAndHurtsNobody) {
    const std::string folder = testing::TempDir() + "zones" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    setenv("TZDIR", folder.c_str(), 1);
    ZoneBytes file;
    file.addPart(1'000'000'000, 4).addPart(1'000'000'000, 8).add("\nDEF-2GHI,M3.5.0,M10.5.0\n");
    const auto zoneOf = [&](const std::string& bytes) {
        std::ofstream(folder + "/Some", std::ios::binary) << bytes;
        return TimeZone::find("Some");
    };
    auto zone = zoneOf(file.bytes);
    ASSERT_NE(zone, nullptr);
    for (const auto& [secs, offset, name] : {std::tuple{-9'000'000'000, 3210, "LMT"},
                                             {999'999'999, 3210, "LMT"},
                                             {1'000'000'000, 3600, "ABC"},
                                             {1'000'003'600, 7200, "DEF"},
                                             {1'720'000'000, 10800, "GHI"},
                                             {16'725'225'600, 7200, "DEF"}}) {
        EXPECT_EQ(zone->offsetAt(secs), offset) << secs;
        EXPECT_EQ(zone->nameAt(secs), name) << secs;
    }
    // Without the rule and the second part it is a file of the first version.
    ZoneBytes old;
    old.addPart(1'000'000'000, 4).bytes[4] = '\0';
    zone = zoneOf(old.bytes);
    ASSERT_NE(zone, nullptr);
    EXPECT_EQ(zone->nameAt(1'720'000'000), "DEF");
    for (const std::string& whole : {file.bytes, old.bytes}) {
        for (std::size_t i = 0; i < whole.size(); ++i) {
            EXPECT_EQ(zoneOf(whole.substr(0, i)), nullptr) << i;
            for (const int bits : {0xFF, 0x01}) {
                std::string damaged = whole;
                damaged[i] = static_cast<char>(damaged[i] ^ bits);
                zone = zoneOf(damaged);
                if (zone == nullptr) continue;
                for (std::int64_t secs = -62135596800; secs < 253402300800; secs += 999'999'937) {
                    ASSERT_LT(std::abs(zone->offsetAt(secs)), 2 * secsPerDayS) << i;
                    ASSERT_LT(zone->nameAt(secs).size(), 40U) << i;
                }
            }
        }
    }
    unsetenv("TZDIR");
    std::filesystem::remove_all(folder);
}

TEST(DateTime, AddsLocalTime) {
    const ZoneScope scope(centralEuropeS);
    const struct {
        const char* from;
        std::int64_t hours, minutes, seconds;
        const char* to;  // null: refused
    } cases[] = {
        {"2024-03-30 12:00:00", 24, 0, 0, "2024-03-31 11:00:00"},
        {"2024-03-31 00:30:00", 1, 0, 0, "2024-03-31 01:30:00"},
        {"2024-03-31 00:30:00", 2, 0, 0, "2024-03-31 01:30:00"},
        {"2024-10-26 22:30:00", 2, 0, 0, "2024-10-27 00:30:00"},
        {"2024-10-27 01:30:00", 0, 0, 0, "2024-10-27 01:30:00"},
        {"2024-10-27 01:30:00", 0, 10, 0, "2024-10-27 01:40:00"},
        {"0001-01-01 00:00:00", 0, 0, -1, nullptr},
        {"9999-12-31 23:59:59", 0, 0, 1, nullptr},
        {"2024-06-01 00:00:00", greatestS, 0, 0, nullptr},
        {"2024-06-01 00:00:00", greatestS, greatestS, greatestS, nullptr},
        {"2024-06-01 00:00:00", 1LL << 52, -60 * (1LL << 52), 5, "2024-06-01 00:00:05"},
        {"INVALID", 0, 0, 0, nullptr},
    };
    for (const auto& c : cases) {
        const DateTime from = DateTime::parse(c.from);
        DateTime date = from;
        EXPECT_EQ(date.addLocalTime(c.hours, c.minutes, c.seconds), c.to != nullptr) << c.from;
        EXPECT_EQ(text(date), c.to ? c.to : text(from)) << c.from << " + " << c.hours << "h";
    }
}

}  // namespace
}  // namespace FND
