// What the kestrel command makes of records.

#include <sys/file.h>

#include "CliRun.h"

namespace {

namespace fs = std::filesystem;
using Harness::CliTest;
using Harness::Result;

TEST_F(CliTest, RecordsComeOutAsTheyShould) {
    const std::string csv = "a,b\n1,x\n2,yy\n3,z\n";
    write("conditions", "edrLong(a) > 1; edrString(b) =~ \"[xy]+\";");
    write("wrong", "edrLong(a) > \"1\"; 3;");
    write("loops.ks", "function BEGIN { while (true) {} }");
    write("second.ks", "if (edrLong(f1) == 2) while (true) {}");
    write("end.ks", "function END { while (true) {} }");
    const std::string stopped =
        ".ks:1: error[K0605]: script stopped: limit `steps' of 1000 passed\n";
    const std::string limit = "line 1: script stopped: limit `steps' of 1000 passed\n";
    const std::string counts = "kestrel: records: ";
    expect({
        {"query 'edrLong(a) > 1' --records - --header --stats", "a,b\n2,yy\n3,z\n",
         counts + "3 read, 2 written, 1 dropped, 0 rejected\n", 0, csv},
        {"query 'edrLong(a) > 1' --records - --format jsonl --jobs 2 --stats", "{\"a\": 2}\n",
         "-:2: no JSON object\n" + counts +
             "3 read, 1 written, 1 dropped, 1 rejected\nkestrel: rejected: 1 no JSON object\n",
         1, "{\"a\":1}\n[]\n{\"a\": 2}\n"},
        {"conditions conditions --records - --header", "1\n0 1\n0\n", "", 0, csv},
        {"conditions wrong --records - --header --jobs 2", "",
         "wrong:1:12: error[K0201]: cannot compare a Long and a String with `>`\n"
         " 1 | edrLong(a) > \"1\"; 3;\n   |            ^\n"
         "  help: write `strToLong(\"1\")` or `1`\n"
         "wrong:1:19: error[K0205]: a condition is a Bool, and this is a Long\n"
         " 1 | edrLong(a) > \"1\"; 3;\n   |                   ^\n"
         "  help: compare it, as in `3 != 0`\n",
         3, csv},
        {"check --conditions --werror conditions wrong", "", "...wrong:1:19: error[K0205]", 3},
        {"check --conditions --werror conditions", ""},
        {"query 'edrLong(nosuch) > 1' --records - --header", "",
         "query:1:9: error[K0103]: the records have no field `nosuch`\n"
         " 1 | edrLong(nosuch) > 1\n   |         ^~~~~~\n",
         3, csv},
        {"run loops.ks --records - --limit steps=1000", "",
         "loops" + stopped + "kestrel: stopped before the first record\n", 4, csv},
        {"run loops.ks --limit steps=1000", "", "...loops" + stopped, 4},
        {"run second.ks --records - --limit steps=1000 --jobs 2 --stats json", "1\n3\n",
         "second" + stopped +
             "  note: in record 2 (-:2)\n"
             "{\"read\":3,\"written\":2,\"dropped\":0,\"rejected\":1,\"extra\":0,\"reasons\":{\"" +
             limit.substr(0, limit.size() - 1) + "\":1}}\n",
         1, "1\n2\n3\n"},
        {"run second.ks --records - --limit steps=1000 --jobs 2 --stats --on-error stop", "1\n",
         "kestrel: -:2: " + limit + counts + "1 read, 1 written, 0 dropped, 0 rejected\n", 4,
         "1\n2\n3\n"},
        {"run second.ks --records - --limit steps=1000 --on-error keep", "1\n2\n3\n",
         "second" + stopped + "  note: in record 2\n", 0, "1\n2\n3\n"},
        {"run -e 'if (edrLong(f1) == 2) stopJob(\"why\");' --records -", "1\n",
         "kestrel: -:2: ended by the script: why\n", 1, "1\n2\n3\n"},
        {"run -e 'function BEGIN { scriptUsable(false); }' --records -", "",
         "kestrel: the script declared itself unusable before the first record\n", 1, "1\n"},
        {"run -e 'function BEGIN { strPad(\"\", \"\", -1, true); }' --records -", "",
         "...kestrel: BEGIN failed; stopped before the first record\n", 4, "1\n"},
        {"run -e 'edrLong(f1);' --records - --output /dev/null --rejects-format json "
         "--rejects /dev/stdout",
         "{\"file\":\"-\",\"line\":1,\"number\":1,\"reason\":\"no Long\",\"field\":\"f1\","
         "\"value\":\"a\",\"record\":\"a,\xC3\xBF\",\"encoding\":\"latin1\"}\n",
         "", 0, "a,\xFF\n1\n"},
        {"run -e 'edrLong(a);' --records - --header --output /dev/null --rejects-format input "
         "--rejects /dev/stdout",
         "a,b\r\nx,2\r\n", "-:3: field a: no Long: 'x'\n", 0, "a,b\r\n1,1\r\nx,2\r\n"},
        {"run -e 'edrLong(f1);' --records -", "", "...'a'\n5 more records were rejected\n", 1,
         "a\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\na\n"},
        // State, which several workers would have each.
        {"run -e 'Long n; n = n + 1; edrLong(f1) = n;' --records - --jobs 2", "",
         "kestrel: -e:1: `n\' keeps what earlier executions left in it, assigned in line 1\n"
         "kestrel: each worker would have variables of its own: use --jobs 1, or accept that by "
         "--jobs-state each\n",
         2, "1\n"},
        {"run -e 'Long n; n = n + 1;' --records - --part 1/1", "1\n", "", 0, "1\n"},
        {"run -e 'Long n; n = n + 1;' --records - --jobs 2 --jobs-state each", "1\n", "", 0, "1\n"},
        // A mutex of all workers; the record that is stopped gives it up.
        {"run -e 'Long m; function BEGIN { m = mutexCreate(); } mutexAcquire(m); "
         "if (edrLong(f1) < 3) while (true) {} mutexRelease(m);' --records - --jobs 2 "
         "--limit steps=1000 --rejects /dev/null",
         "3\n4\n", "", 0, "1\n2\n3\n4\n"},
        // Prints keep their places.
        {"run -e 'logStdout(\"p\" + edrString(f1) + \" \");' --records - --jobs 2", "p1 1\np2 2\n",
         "", 0, "1\n2\n"},
        {"run end.ks --records - --limit steps=1000", "1\n2\n",
         "end" + stopped + "kestrel: the function END was stopped\n", 4, "1\n2\n"},
        {"run -e '' --records - --part 2/2", "2\n", "", 0, "1\n2\n"},
        {"run -e '' --records - --limit record=3", "1\n222\n",
         "kestrel: -:3: limit `record' of 3 passed\n", 4, "1\n222\n4444\n5\n"},
        {"run -e '' --records - --limit record=2 --header", "",
         "kestrel: -:1: limit `record' of 2 passed\n", 4, "abc\n1\n"},
    });
}

TEST_F(CliTest, ColumnsAreAddedChosenAndConverted) {
    const std::string csv = "id,2nd name,x\r\n1,\"a,b\",5\r\n2,c,06\r\n";
    const std::string json = "{\"a\":1,\"b\":{\"c\":\"x,y\"},\"d\":[1, 2]}\n{\"a\": 2}\n";
    const std::string head = "run --records - --header -e ";
    const std::string object = "run --records - --format jsonl -e ";
    expect({
        {head + "'if (edrLong(id) == 2) edrLong(twice) = edrLong(x) * 2; edrString(n) = \"n\";'",
         "id,2nd name,x,twice,n\r\n1,\"a,b\",5,,n\r\n2,c,06,12,n\r\n", "", 0, csv},
        {head + "'edrDeleteField(x); /* edrLong(no) = */ edrString(\"a b\") = edrString(\"2nd "
                "name\") + "
                "edrString(x);'",
         "id,2nd name,a b\r\n1,\"a,b\",\"a,b\"\r\n2,c,c\r\n", "", 0, csv},
        {head + "'' --select x,id --rename id=n --output-format tsv", "x\tn\n5\t1\n06\t2\n", "", 0,
         csv},
        {head + "'' --select=-x --output-format jsonl",
         "{\"id\":1,\"2nd name\":\"a,b\"}\n{\"id\":2,\"2nd name\":\"c\"}\n", "", 0, csv},
        {head + "'' --select x --output-format jsonl", "{\"x\":5}\n{\"x\":\"06\"}\n", "", 0, csv},
        {head + "'' --select x --output-format lines --jobs 2", "5\n06\n", "", 0, csv},
        {head + "'' --output-format tsv", "a\n2\n",
         "-:2: field a: the format cannot hold this value: 'x\\ty'\n", 1, "a\nx\ty\n2\n"},
        {head + "'edrLong(n) = 1;'", "a,n\n2,1\n", "-:2: it has more fields than there are names\n",
         1, "a\n1,2\n2\n"},
        {head + "'' --select nosuch", "", "kestrel: unknown field `nosuch'\n", 2, csv},
        {head + "'edrLong(nosuch);'", "",
         "-e:1:9: error[K0103]: the records have no field `nosuch`\n 1 | edrLong(nosuch);\n   |    "
         "     ^~~~~~\n",
         3, csv},
        {head + "'edrLong(valeu);'", "",
         "-e:1:9: error[K0103]: the records have no field `valeu`\n 1 | edrLong(valeu);\n   |      "
         "   ^~~~~\n  help: did you mean `value`?\n",
         3, "id,value\n1,2\n"},
        {head + "'edrLong(\"a\" + \"b\");'", "",
         "...is a String, where the name of a field is needed", 3, csv},
        {object + "'' --output-format csv --select a,b.c,d --rename b.c=c",
         "a,c,d\n1,\"x,y\",\"[1, 2]\"\n2,,\n", "", 0, json},
        {object + "'edrLong(\"a b\") = 3;' --select=-a,-b --rename d=e",
         "{\"a b\":3,\"e\":[1, 2]}\n{\"a b\":3}\n", "", 0, json},
        {object + "'recordWrite(); edrLong(d) = 3;' --rename a=b --rename b=a",
         "{\"d\":[1, 2],\"b\":1,\"a\":{\"c\":\"x,y\"}}\n"
         "{\"d\":3,\"b\":1,\"a\":{\"c\":\"x,y\"}}\n{\"b\":2}\n{\"d\":3,\"b\":2}\n",
         "", 0, json},
        {object + "'' --rename a=d", "{\"d\":2}\n",
         "-:1: field d: a member is to be renamed, and there is one of this name\n", 1, json},
        {head + "'' --rename id=x", "", "kestrel: --rename: there is another field `x'\n", 2, csv},
        {head + "'' --rename id=a --rename id=b", "", "kestrel: --rename: `id' gets two names\n", 2,
         csv},
        {head + "'' --select x,x", "", "kestrel: --select: `x' is there twice\n", 2, csv},
        {object + "'' --select d,a", "{\"d\":[1, 2],\"a\":1}\n{\"a\":2}\n", "", 0, json},
        {object + "'' --output-format csv", "", "kestrel: --select must name the columns\n", 2,
         json},
    });
}

TEST_F(CliTest, InputsAreSeveralAndCompressed) {
    const auto bytes = [](const char* hex) {
        std::string text;
        for (; *hex != 0; hex += 2) {
            text += static_cast<char>(std::stoi(std::string(hex, 2), nullptr, 16));
        }
        return text;
    };
    // "k,v\na,1\n"
    const std::string gzip = bytes("1f8b08000000000002ffcbd629e34ad431e402005f0730e308000000");
    const std::string zstd = bytes("28b52ffd20084100006b2c760a612c310a");
    write("a", gzip);
    write("b", "k,v\nb,x\n");
    write("c", "k,w\n");
    write("e", "");
    write("cut", gzip.substr(0, 12));
    write("zip", "PK\3\4...");
    write("one.csv", "k,v\na,1\n");
    write("e.csv", "");
    write("two.tsv", "k\tv\nb\t2\n");
    write("other.csv", "v,k\n3,c\n");
    const std::string head = "run -e 'edrLong(v);' --header ";
    const std::string skip = "run -e '' --records - ";
    expect({
        {head + "--records e --records a --records - --records e --records b --jobs 2 --stats",
         "k,v\na,1\na,1\n",
         "b:2: field v: no Long: 'x'\nkestrel: records: 3 read, 2 written, 0 dropped, 1 rejected\n"
         "kestrel: rejected: 1 field v: no Long\n",
         1, zstd},
        {head + "--records a --records c", "k,v\na,1\n",
         "kestrel: c: its header is not that of a\n", 2},
        {skip, "k,v\na,1\nk,v\na,1\n", "", 0, gzip + gzip},
        {skip, "k,v\na,1\nk,v\na,1\n", "", 0, zstd + zstd},
        {head + "--records cut", "", "...cut: the compressed data ends too early\n", 2},
        {head + "--records zip", "", "kestrel: zip: it is a ZIP archive, not lines of text\n", 2},
        {"run -e 'if (edrLong(v) == 2) recordDrop(); if (edrLong(v) == 1) edrLong(n) = 1; "
         "outputFile(\"f\");' --records - --header --dry-run 3",
         "k,v,n\n1 - a,1\n1 + a,1,1\n2 - b,2\n2 dropped\n3 - c,x\n3 ! field v: no Long: 'x'\n",
         "-:4: field v: no Long: 'x'\n", 1, "k,v\na,1\nb,2\nc,x\nd,1\n"},
        {"run -e '' --records - --dry-run 1", "1 = a\n", "", 0, "a\nb\n"},
        {"run -e 'logStdout(\"p\\n\"); recordDrop();' --records - --dry-run 1",
         "p\n1 - a\n1 dropped\n", "", 0, "a\nb\n"},
        {"run -e '' --records - --dry-run 9", "1 - \"a\n1 ! a quote is not closed\n",
         "-:1: a quote is not closed\n", 1, "\"a\n"},
        {head + "--records a --part 1/2", "k,v\n",
         "kestrel: a: it is compressed; only other files have parts\n", 2},
        {skip + "--skip 1 --limit 2 --blank-lines skip --stats", "b\nc\n",
         "kestrel: records: 2 read, 2 written, 0 dropped, 0 rejected\n", 0, "a\n\nb\n \nc\nd\n"},
        {"repl",
         "fields: k v\nrecord 2: b\\t2\n\"b\"\nother.csv: its fields are others\n"
         "there are no records: :records FILE opens some\nfields: k v\n"
         "there are no more records\ne.csv: there is no line with names\n",
         "", 0,
         ":records one.csv two.tsv other.csv\n:next 2\nedrString(k)\n:next\n:next\n"
         ":records one.csv two.tsv\n:next 3\n:records e.csv\n"},
    });
}

TEST_F(CliTest, TablesAreLookedUp) {
    const std::string csv = "to,secs\n49,10\n33,20\n1,30\n";
    write("rates.csv",
          "prefix,unit price:Decimal,since:Date\n49,0.10,\n33,0.25,2026-02-01\n33,1,2026-03-01\n");
    write("zones.jsonl",
          "{\"z\":{\"b\":1.50,\"a\":\"x\"},\"v\":[1,{\"q\":\"]\"}]}\n\n{\"w\":\"\\u00e4\"}\n");
    write("join.ks",
          "Bool found = tableFind(rates, edrString(to));\n"
          "while (found) { edrDecimal(price) = tableField(rates.unit_price) * edrDecimal(secs);\n"
          "edrDate(since) = tableField(since); recordWrite(); found = tableNext(rates); }\n"
          "recordDrop();\n");
    write("bad.csv", "a:Long,b\n1,\nx,\n");
    write("wide.csv", "a\n1,2\n");
    const std::string head = "run --records - --header --jobs 2 --table rates=rates.csv ";
    const std::string zones =
        "--table zones=zones.jsonl --table-type zones=z.b:Decimal "
        "--table-key zones=z.a,z.b -e 'tableFind(zones, ";
    const std::string joined =
        "to,secs,price,since\n49,10,1.00,\n33,20,5.00,2026-02-01 00:00:00\n33,20,20,2026-03-01 "
        "00:00:00\n";
    expect({
        {head + "join.ks", joined, "", 0, csv},
        {head + zones +
             "\"x\", 1.5); logStdout(tableField(v) + tableField(w)); edrString(w) = "
             "tableField(zones.z.a);'",
         "to,w\n[1,{\"q\":\"]\"}]1,x\n", "", 0, "to\n1\n"},
        {head + zones + "\"\", strToDecimal(\"\")); edrString(w) = tableField(w);'",
         "to,w\n1,\xC3\xA4\n", "", 0, "to\n1\n"},
        // What is found lasts for one record.
        {head + "-e 'if (edrLong(to) == 49) tableFind(rates, \"49\"); edrDecimal(p) = "
                "tableField(unit_price);'",
         "to,p\n49,0.10\n1,\n", "", 0, "to\n49\n1\n"},
        {head + "-e 'tableFind(rates, edrString(to)); if (tableField(since) < "
                "strToDate(\"2026-02-15\")) recordDrop();'",
         "to\n", "-:2: no date to compare; ask dateIsValid first\n", 1, "to\n49\n33\n"},
        {"check --distributable --table rates=rates.csv join.ks", ""},
        {"query 'tableFind(rates, edrString(to))' --records - --header --table rates=rates.csv",
         "to\n33\n", "", 0, "to\n1\n33\n"},
        {head + "-e 'tableFind(none, \"\");'", "", "...there is no table 'none'", 3, csv},
        {head + "-e 'tableFind(rates, 1);'", "", "...is a String, not a Long", 3, csv},
        {head + "-e 'tableFind(rates, \"\", \"\");'", "", "...of the table rates has 1 columns", 3,
         csv},
        {head + "-e 'Long n = tableField(since);'", "", "...store a Date in the Long", 3, csv},
        {head + "--table more=rates.csv -e 'tableField(since);'", "", "...say rates.since", 3, csv},
        {head + "--table bad=bad.csv -e ''", "", "kestrel: bad.csv:3: column a: no Long: 'x'\n", 2},
        {head + "--table wide=wide.csv -e ''", "",
         "kestrel: wide.csv:2: it has more fields than there are names\n", 2},
        {head + "--table-key rates=x -e ''", "", "kestrel: rates.csv: it has no column 'x'\n", 2},
        {head + "--limit tables=100 -e ''", "",
         "kestrel: rates.csv: limit `tables' of 100 bytes passed\n", 4},
    });
}

TEST_F(CliTest, TotalsAreThoseOfOneRun) {
    std::string csv = "id,country,price,day,secs\n";
    for (int i = 0; i < 12'000; ++i) {
        const int n = i * 7919 % 10'007;
        csv += std::to_string(n % 5000) + "," + (n % 3 == 0 ? "de" : "fr\xFF") + "," +
               (n % 13 == 0   ? "bad"
                : n % 17 == 0 ? ""
                              : std::to_string(n) + ".5") +
               ",2026-01-" + std::to_string(10 + n % 20) + "," + std::to_string(n % 100 - 50) +
               "\n";
    }
    write("in.csv", csv);
    write("total.ks", R"(
Decimal sum; Decimal by{}; Long n; Long c{}; Long low; Date first{}; String last; Bool ids{};
function count(String key) { totalCount(n); totalCount(c, key); }
total(by, edrString(country), edrDecimal(price));  // which fails for some records
count(edrString(country));
total(sum, edrDecimal(price));
totalMin(low, edrLong(secs));
totalMin(first, edrString(country), edrDate(day));
totalMax(last, edrString(day));
totalSet(ids, edrString(id));
edrDecimal(price);
recordUnique(edrString(id));
function END {
    String ks[]; Long k = hashKeys(c, ks); Long i;
    for (i = 0; i < k; i = i + 1) {
        String key = ks[i]; edrString(country) = key; edrDecimal(price) = by{key};
        edrLong(secs) = c{key}; edrDate(day) = first{key}; recordWrite();
    }
    edrDecimal(price) = sum; edrLong(secs) = low; edrString(day) = last;
    edrLong(id) = hashKeys(ids, ks); edrLong(country) = n; recordWrite();
})");
    write("again", "aaaa\naaaa\nbb\nc\nd\nbb\nbb\nee\nff\nc\n");
    const std::string base = "run total.ks --records in.csv --header ";
    const auto counted = [&](const std::string& line) {
        const Result result = kestrel(line + " --output out --rejects rejects --stats");
        EXPECT_EQ(result.status, 0) << line << result.messages;
        const std::string counts = result.messages.substr(0, result.messages.find('\n'));
        return counts + folder_.read("out") + folder_.read("rejects");
    };
    const std::string single = counted(base + "--jobs 1");
    EXPECT_NE(single.find("12000 read, 5000 written, 6073 dropped, 927 rejected, 3 extra"),
              std::string::npos)
        << single.substr(0, 100);
    EXPECT_NE(single.find("\n5000,11073,52152666.0,2026-01-29,-50\n"), std::string::npos);
    EXPECT_TRUE(counted(base + "--jobs 3") == single);
    expect({{"check --distributable total.ks", ""}});
    for (const int parts : {1, 5}) {
        fs::remove_all(folder_.path("dir"));
        for (int part = parts; part > 0; --part) {
            EXPECT_EQ(kestrel("merge dir").status, 2);  // parts are missing
            const std::string name = std::to_string(part) + "/" + std::to_string(parts);
            EXPECT_EQ(kestrel(base + "--jobs 2 --out dir --part " + name).status, 0);
        }
        EXPECT_TRUE(counted("merge dir") == single) << parts;
    }
    write("dir/state-0000002-of-0000005.txt", "kestrel state 1\n");
    const std::string head = "run --records - -e ";
    const std::string keys = "a\nb\na\nc\nb\n";
    expect({
        {"merge dir", "", "...state-0000002-of-0000005.txt is not as its manifest says\n", 2},
        // What a part repeats itself moves the records that the other part has too.
        {"run -e 'recordUnique(edrString(f1));' --records again --part 2/2 --out twice", ""},
        {"run -e 'recordUnique(edrString(f1));' --records again --part 1/2 --out twice", ""},
        {"merge twice", "aaaa\nbb\nc\nd\nee\nff\n"},
        {base + "--part 1/2", "", "...need --out, and `kestrel merge'\n", 2},
        {head + "'recordUnique(edrString(f1));' --jobs 2", "a\nb\nc\n", "", 0, keys},
        {head + "'recordUnique(edrString(f1));' --dry-run 3", "1 = a\n2 = b\n3 - a\n3 dropped\n",
         "", 0, keys},
        // Neither what is dropped nor what is rejected takes the key.
        {head + "'recordUnique(edrString(f1)); if (recordNumber() < 3) recordDrop();'", "a\nc\nb\n",
         "", 0, keys},
        {head + "'recordUnique(edrString(f1));' --limit tables=0", "",
         "kestrel: recordUnique: limit `tables' of 0 bytes passed\n", 4, keys},
        {head + "'Decimal d; total(d, edrDecimal(f1)); function END { edrDecimal(f1) = d; "
                "recordWrite(); }'",
         "9000000000000000000000000001\n9000000000000000000000000001\n",
         "...more digits than a Decimal", 1, "9000000000000000000000000001\n0.1\n"},
        {head + "'Long n; total(n, edrLong(f1)); function END { edrLong(f1) = n; recordWrite(); }' "
                "--jobs 2",
         "9223372036854775807\n9223372036854775807\n", "...the sum does not fit a Long", 1,
         "9223372036854775807\n1\n"},
        {head + "'Long n; function BEGIN { totalCount(n); }'", "", "...there is no record yet", 4},
        {head + "'Long h{}; total(h{\"a\"}, 1);'", "", "...must be a variable, or a hash and", 3},
        {head + "'Long n; total(n, 1); totalMax(n, 1);'", "", "...a total of another kind", 3},
        {head + "'Long n; total(n, 1.5);'", "", "...a Long is needed, not a Decimal", 3},
        {head + "'Bool b; totalMin(b, true);'", "", "...no total is a Bool", 3},
    });
}

TEST_F(CliTest, ScriptsWriteRecordsAndFilesOfTheirOwn) {
    const std::string csv = "k,v\na,1\nb,2\na,3\n";
    const std::string head = "run --records - --header --stats -e ";
    const std::string counts = "kestrel: records: 3 read, ";
    write("last.ks",
          "String last{}; last{edrString(k)} = edrString(v); recordDrop();\n"
          "function END { String ks[]; Long n = hashKeys(last, ks); Long i;\n"
          "for (i = 0; i < n; i = i + 1) { String key = ks[i]; edrString(k) = key;\n"
          "edrString(v) = last{key}; logStdout(\"p\\n\"); recordWrite(); } }");
    const std::string split = "'outputFile(\"out-\" + edrString(k));";
    expect({
        {head + "'Long i; for (i = 1; i < edrLong(v); i = i + 1) { edrLong(n) = i; recordWrite(); }"
                "if (edrLong(v) == 2) recordDrop();'",
         "k,v,n\na,1,\nb,2,1\na,3,1\na,3,2\na,3,2\n",
         counts + "2 written, 1 dropped, 0 rejected, 3 extra\n", 0, csv},
        {"run last.ks --records - --header", "k,v\np\na,3\np\nb,2\n", "", 0, csv},
        {head + split + " if (edrLong(v) == 3) stopJob(\"x\");'", "k,v\n",
         "kestrel: -:4: ended by the script: x\n" + counts.substr(0, 18) +
             "2 read, 2 written, 0 dropped, 0 rejected\n",
         1, csv},
        {"run --records - -e 'edrLong(b) = 1; recordWrite(); function END { edrLong(z) = 2; "
         "recordWrite(); }' --format jsonl",
         "{\"b\":1}\n{\"b\":1}\n{\"z\":2}\n", "", 0, "{}\n"},
    });
    EXPECT_FALSE(fs::exists(folder_.path("out-a")));
    write(".out-a.aaaaaa", "left by a killed job");
    expect({{head + split + "' --jobs 2", "k,v\n", counts + "3 written, 0 dropped, 0 rejected\n", 0,
             csv}});
    EXPECT_EQ(folder_.read("out-a") + folder_.read("out-b"), "k,v\na,1\na,3\nk,v\nb,2\n");
    EXPECT_FALSE(fs::exists(folder_.path(".out-a.aaaaaa")));
    write("in", csv);
    const std::string file = " --records in -e 'outputFile(\"in\");'";
    expect({
        {"run" + file, "", "kestrel: outputFile: the job has another output or input in `in'\n", 4},
        {"run" + file + " --out dir", "",
         "kestrel: outputFile: a directory of parts has one output\n", 4},
        {"run --sandbox" + file, "", "...`outputFile` is not allowed (files)", 3},
        {"run --allow files=. --rejects /dev/null" + file, ""},
    });
}

// What a script does to a record is the script's until the next record.
TEST_F(CliTest, WhatRecordsTakeCountsAsMemory) {
    const std::string text = "String s = strPad(\"\", \"x\", 400000, true);";
    const struct {
        std::string script;
        const char* options;
        const char* input;
    } rows[] = {
        {text + "edrString(f2) = s;", "", "1\n2\n3\n"},
        {"edrLong(f3000) = 1; edrLong(f6000) = 1;", "", "1\n2\n3\n"},
        {text + "recordReject(s);", " --rejects rejects", "1\n2\n3\n"},
        {text + "edrString(a) = s;", " --format jsonl", "{}\n{}\n{}\n"},
        {"Long i; for (i = 0; i < 40000; i = i + 1) { edrLong(a, i) = 1000000000000; }",
         " --format jsonl", "{}\n{}\n{}\n"},
    };
    for (const auto& row : rows) {
        const std::string line = "run -e '" + row.script + "' --records -" + row.options +
                                 " --output /dev/null --on-error stop --limit memory=";
        const Result stopped = kestrel(line + "800000", row.input);
        EXPECT_EQ(stopped.status, 4) << row.script;
        EXPECT_NE(stopped.messages.find("limit `memory' of "), std::string::npos) << row.script;
        EXPECT_EQ(kestrel(line + "3500000", row.input).messages, "") << row.script;
    }
}

TEST_F(CliTest, PartsInADirectoryAreMadeOnce) {
    std::string csv = "n,text\n";
    for (int i = 0; i < 500; ++i) csv += std::to_string(i) + ",\"a\n" + std::to_string(i) + "\"\n";
    write("in.csv", csv);
    write("double.ks", "include \"drop.ks\";\nedrLong(n) = edrLong(n) * strToLong(factor);\n");
    write("drop.ks",
          "if (edrLong(n) % 7 == 0) recordDrop();\n"
          "if (edrLong(n) % 11 == 0) recordReject(\"eleven\");\n");
    write("t.csv", "k\n");
    const std::string base = "run double.ks -D factor=2 --records in.csv --header --table t=t.csv ";
    const auto run = [&](const std::string& part, const std::string& options = "") {
        return kestrel(base + options + " --out out --part " + part);
    };
    const auto joined = [&](const std::string& begin) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_.path("out"))) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        std::string text;
        for (const std::string& name : names) {
            if (name.starts_with(begin)) text += folder_.read("out/" + name);
        }
        return text;
    };
    const Result single = kestrel(base + "--rejects rejects");
    ASSERT_EQ(single.status, 0);
    for (const int parts : {1, 3, 40}) {
        fs::remove_all(folder_.path("out"));
        for (int part = parts; part > 0; --part) {
            const std::string name = std::to_string(part) + "/" + std::to_string(parts);
            EXPECT_EQ(run(name).status, 0);
            const Result again = run(name);
            EXPECT_EQ(again.status, 0);
            EXPECT_EQ(again.messages, "kestrel: part " + name + " is complete in out, skipped\n");
        }
        EXPECT_EQ(joined("part-"), single.output);
        EXPECT_EQ(joined("rejects-"), folder_.read("rejects"));
        EXPECT_EQ(joined("."), "");
    }
    const Result other = run("1/2");
    EXPECT_EQ(other.status, 2);
    EXPECT_NE(other.messages.find("which is not one of 2 parts\n"), std::string::npos);

    // Everything that the result depends on is checked, and a damaged result is made again.
    fs::remove_all(folder_.path("out"));
    const std::string part = "out/part-0000001-of-0000001.csv";
    const struct {
        const char* what;
        std::function<void()> change;
        const char* options = "";
    } changes[] = {
        {"nothing", [] {}},
        {"a damaged result", [&] { write(part, "damaged"); }},
        {"no result", [&] { fs::remove(folder_.path(part)); }},
        {"damaged rejects", [&] { write("out/rejects-0000001-of-0000001.txt", "x"); }},
        {"a damaged manifest", [&] { write("out/manifest-0000001-of-0000001.json", "{}"); }},
        {"the include file", [&] { write("drop.ks", "\n"); }},
        {"the script", [&] { write("double.ks", "include \"drop.ks\";\n"); }},
        {"the input", [&] { write("in.csv", csv.replace(7, 1, "5")); }},
        {"a table", [&] { write("t.csv", "k\nv\n"); }},
        {"a limit", [] {}, "--limit depth=100"},
        {"a zone", [] {}, "--zone ABC-5"},
        {"a query", [] {}, "--where 'edrLong(n) > 3'"},
    };
    for (const auto& change : changes) {
        SCOPED_TRACE(change.what);
        change.change();
        const Result result = run("1/1", change.options);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.messages, "");
        EXPECT_NE(folder_.read(part), "damaged");
        EXPECT_NE(run("1/1", change.options).messages, "");
        if (*change.options != 0) run("1/1");
    }
    const std::string bare = "run -e '' --records in.csv --out bare --part 1/1";
    EXPECT_EQ(kestrel(bare + " --header").messages + kestrel(bare).messages, "");
    // The parts in one directory use one zone; the zone of the process does not matter.
    setenv("TZ", "XYZ+11", 1);
    fs::remove_all(folder_.path("out"));
    EXPECT_EQ(run("1/2", "--zone ABC-5").status, 0);
    const Result unfit = run("2/2");
    EXPECT_EQ(unfit.status, 2);
    EXPECT_EQ(unfit.messages,
              "kestrel: out holds manifest-0000001-of-0000002.json, which was made in the time "
              "zone ABC-5, not UTC\n");
    EXPECT_EQ(run("2/2", "--zone ABC-5").status, 0);
    EXPECT_EQ(run("2/2", "--zone ABC-5ABD,0,1").status, 2);
    fs::remove_all(folder_.path("out"));
    EXPECT_EQ(run("1/1").status, 0);
    unsetenv("TZ");

    // Leftovers of a killed run are removed; the files of a living one stay.
    const std::string dead = folder_.path("out/.part-0000001-of-0000001.csv.Abcdef");
    const std::string alive = folder_.path("out/.part-0000001-of-0000001.csv.Abcdeg");
    write("out/.part-0000001-of-0000001.csv.Abcdef", "half");
    write("out/.part-0000001-of-0000001.csv.Abcdeg", "half");
    const int descriptor = open(alive.c_str(), O_RDONLY);
    ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
    write(part, "damaged");
    EXPECT_EQ(run("1/1").status, 0);
    EXPECT_FALSE(fs::exists(dead));
    EXPECT_TRUE(fs::exists(alive));
    close(descriptor);
}

}  // namespace
