#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Check.h"
#include "records/read/Record.h"
#include "records/read/RecordReader.h"

namespace {

using Records::Layout;
using Records::Record;
using Records::RecordReader;

const Records::StopSignal stopS;

// Skipped at the start of a file.
constexpr std::string_view byteOrderMarkS = "\xEF\xBB\xBF";

using Fuzz::check;

// A file in memory with `content`, to be read from its start.
int fileOf(std::string_view content) {
    static const int fileS = ::memfd_create("records", 0);
    check(::ftruncate(fileS, 0) == 0 && ::lseek(fileS, 0, SEEK_SET) == 0);
    check(::write(fileS, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    check(::lseek(fileS, 0, SEEK_SET) == 0);
    return fileS;
}

// The fields of a well-formed record, cut byte by byte.
std::vector<std::string> fieldsOf(std::string_view text, const Layout& layout) {
    if (layout.isWhole) return {std::string(text)};
    std::vector<std::string> fields(1);
    bool isAtStart = true;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (layout.isQuoted && isAtStart && text[i] == '"') {
            for (++i; text[i] != '"' || (i + 1 < text.size() && text[i + 1] == '"'); ++i) {
                fields.back() += text[i];
                if (text[i] == '"') ++i;
            }
            isAtStart = false;
        } else if (text[i] == layout.delimiter) {
            fields.emplace_back();
            isAtStart = true;
        } else {
            fields.back() += text[i];
            isAtStart = false;
        }
    }
    return fields;
}

std::vector<std::string> valuesOf(Record& record) {
    std::vector<std::string> values;
    while (record.has(values.size())) values.emplace_back(record.value(values.size()));
    return values;
}

// A record with a field replaced, written and read again, differs only in that field.
void checkAssignment(const Layout& layout, std::string_view text, std::size_t field,
                     std::string_view value) {
    Record record(layout);
    record.take(text);
    std::string written;
    if (!record.assign(field, value)) {
        record.write(written);
        check(written == text);
        return;
    }
    record.write(written);
    check(field == 0 || !layout.isWhole);
    std::vector<std::string> expected = fieldsOf(text, layout);
    if (expected.size() <= field) expected.resize(field + 1);
    expected[field] = value;
    std::string file = written + "\n";
    if (written.starts_with(byteOrderMarkS)) file.insert(0, byteOrderMarkS);
    RecordReader reader(fileOf(file), layout, stopS);
    check(reader.next() == RecordReader::State::Record);
    record.take(reader.text());
    if (written.ends_with('\r')) return;  // now part of the line end
    check(reader.text() == written && valuesOf(record) == expected);
    check(reader.next() == RecordReader::State::End);
}

}  // namespace

/// Reads the input after its first byte, which chooses the layout, as records; joins, cuts and
/// changes them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const Layout layout{",;\t|"[data[0] % 4], (data[0] & 4) != 0, (data[0] & 24) == 24};
    const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::string_view value = std::string_view(input).substr(0, data[0] >> 5);

    // A change reads another file: the records are kept.
    std::vector<std::string> records;
    RecordReader reader(fileOf(input), layout, stopS);
    std::string joined(input.starts_with(byteOrderMarkS) ? byteOrderMarkS : "");
    std::int64_t line = 1;
    RecordReader::State state;
    while ((state = reader.next()) != RecordReader::State::End) {
        check(state == RecordReader::State::Record || state == RecordReader::State::Malformed);
        check(reader.line() == line);
        const std::string_view end = reader.lineEnd();
        check(end == "\n" || end == "\r\n" || end.empty());
        joined += reader.text();
        joined += end;
        line = 1 + std::count(joined.begin(), joined.end(), '\n');
        if (state == RecordReader::State::Record) records.emplace_back(reader.text());
    }
    check(joined == input);

    std::size_t field = 0;
    for (const std::string& text : records) {
        Record record(layout);
        record.take(text);
        check(valuesOf(record) == fieldsOf(text, layout));
        std::string written;
        record.write(written);
        check(written == text);
        checkAssignment(layout, text, field % 4, value);
        if (++field == 8) break;
    }
    return 0;
}
