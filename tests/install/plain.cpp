// A host built without exceptions, without run-time type information, or without both: the whole
// host API, with scripts that are stopped and numbers that do not fit.

#include <cstdio>
#include <string_view>

#include "scr/Capabilities.h"
#include "scr/ConditionList.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Limits.h"
#include "scr/Log.h"

namespace {

class LastMessage final : public SCR::Log {
public:
    void log(const FND::String& message, FND::Status::Severity /*severity*/) override {
        text = message;
    }
    FND::String text;
};

struct Record {
    FND::String name = "Ann";
    long count = 3;
};

void fill(SCR::HostExtension& host, Record& record) {
    host.function("minus", [](long a, long b) { return a - b; });
    host.function("join", [](std::string_view a, const FND::String& b, FND::String c) {
        return FND::String(a) + b + c;
    });
    host.function("half", [](const FND::Decimal& value) { return value / FND::Decimal(2); });
    host.function("given", [](std::optional<std::string_view> text) { return text.has_value(); });
    host.function("change", [](FND::String& text, bool& flag, long& number) {
        text += "!";
        flag = !flag;
        ++number;
    });
    host.function("refuse", [](SCR::Interpreter& running) { running.fail("no more"); });
    host.constant("YES", true);
    host.fieldIds([](const FND::String& name) { return name == "name" ? 0L : 1L; });
    host.field(
        "edrString", [&](SCR::FieldAlias) -> const FND::String& { return record.name; },
        [&](SCR::FieldAlias, std::string_view value) { record.name = value; });
    host.field(
        "edrLong", [&](SCR::FieldAlias field) { return record.count * field.id(); },
        [&](SCR::FieldAlias, short value) { record.count = value; });
}

// Each sets `shown`.
constexpr struct {
    const char* script;
    std::string_view shown;
    std::string_view log = "";
} casesS[] = {
    {"shown = longToStr(minus(5, 7)) + decimalToStr(half(5.0), 1);", "-22.5"},
    {"String t = \"a text that is no short one\"; function String other { t = \"b\"; return t; }"
     "shown = join(t, other(), t);",
     "a text that is no short onebb"},
    {"Bool flag; Long list[]; String texts{}; change(texts{\"k\"}, flag, list[3]);"
     "if (flag and YES and given(\"\") and given() == false) shown = texts{\"k\"} + "
     "longToStr(list[3]);",
     "!1"},
    {"edrString(name) = \"Bob\"; edrLong(count) = 4; shown = edrString(name) + "
     "longToStr(edrLong(count));",
     "Bob4"},
    {"edrLong(count) = 70000;", "", "edrLong: value out of range '70000'"},
    {"function String ever { while (true) { shown = \"turning\"; } return \"\"; }"
     "shown = join(\"a text that is no short one\", ever(), \"\");",
     "turning", "limit `steps'"},
    {"function Long down { return minus(down(), 1); } down();", "", "limit `depth'"},
    {"refuse(); shown = \"after\";", "", "refuse: no more"},
    {"system(\"true\");", "", "not allowed (shell)"},
};

}  // namespace

int main() {
    LastMessage log;
    Record record;
    SCR::Interpreter interpreter(&log);
    SCR::HostExtension* const host = SCR::HostExtension::insert(interpreter, "host");
    if (host == nullptr) return 1;
    fill(*host, record);
    auto shown = host->variable<FND::String>("shown");
    SCR::Limits limits;
    limits.steps = 1000;
    limits.depth = 50;
    interpreter.limits(limits);
    interpreter.capabilities(SCR::Capabilities::none());
    int faults = 0;
    for (const auto& c : casesS) {
        shown = "";
        log.text.clear();
        if (interpreter.compile(c.script)) interpreter.execute();
        const bool isLogged =
            c.log.empty() ? log.text.empty() : log.text.find(c.log) != log.text.npos;
        if (shown.value() == c.shown && isLogged) continue;
        std::fprintf(stderr, "%s\ngives: %s\nlogs: %s\n", c.script, shown.value().c_str(),
                     log.text.c_str());
        ++faults;
    }
    bool holds = false;
    SCR::ConditionList conditions(interpreter);
    const bool isCompiled = conditions.compile("given(shown); join(\"a\", \"b\", \"\") =~ \"a.\";");
    if (!isCompiled || !conditions.all(holds) || !holds) ++faults;
    return faults;
}
